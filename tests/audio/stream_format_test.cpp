#include "audio/stream_format_codec.h"

#include <gtest/gtest.h>

namespace {

struct BuildCase {
    const char* name;
    StreamFormatOptions options;
    bool valid;
    StreamFormat expected;
};

class BuildFormat : public testing::TestWithParam<BuildCase> {};

TEST_P(BuildFormat, ChecksBoundsAndFillsMasks) {
    const auto built = buildStreamFormat(GetParam().options);
    ASSERT_EQ(built.has_value(), GetParam().valid);
    if (built) {
        EXPECT_EQ(*built, GetParam().expected);
    }
}

// Options are {rate, channels, channelsOutput, chanmask, chanmaskOutput}; records are {rate,
// input channels, input mask, output channels, output mask}. A mask is kept only when its bit
// count equals the mask itself.
INSTANTIATE_TEST_SUITE_P(
    Table, BuildFormat,
    testing::Values(
        BuildCase{"StereoDefault", {44100, 2, 0, 0, 0}, true, {44100, 2, 3, 2, 3}},
        BuildCase{"RateTooLow", {99, 2, 0, 0, 0}, false, {}},
        BuildCase{"TooManyChannels", {44100, 33, 0, 0, 0}, false, {}},
        BuildCase{
            "OutputMirrorsInputEvenWithItsMask", {48000, 2, 0, 1, 0x3F}, true, {48000, 2, 1, 2, 1}},
        BuildCase{"OwnOutputCountAndMask", {48000, 2, 6, 0, 0}, true, {48000, 2, 3, 6, 0x3F}},
        BuildCase{"ThreeBitMaskNotKept", {48000, 3, 0, 7, 0}, true, {48000, 3, 0, 3, 0}}),
    [](const testing::TestParamInfo<BuildCase>& info) { return std::string(info.param.name); });

} // namespace
