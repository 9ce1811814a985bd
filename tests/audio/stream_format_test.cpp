#include "audio/stream_format.h"
#include "tests/common/case_name.h"

#include <gtest/gtest.h>

#include <array>

namespace {

using testing_support::hexText;

struct MaskCase {
    uint32_t channels;
    uint32_t mask;
    uint32_t expected;
};

class EffectiveMask : public testing::TestWithParam<MaskCase> {};

TEST_P(EffectiveMask, KeepsOnlyMasksWhoseBitCountEqualsThemselves) {
    EXPECT_EQ(effectiveMask(GetParam().channels, GetParam().mask), GetParam().expected);
}

INSTANTIATE_TEST_SUITE_P(
    Table, EffectiveMask,
    testing::Values(MaskCase{0, 1, 0}, // no channels, no mask, even for a kept mask
                    MaskCase{1, 0, 0x4}, MaskCase{2, 0, 0x3}, MaskCase{3, 0, 0},
                    MaskCase{4, 0, 0x33}, MaskCase{5, 0, 0}, MaskCase{6, 0, 0x3F},
                    MaskCase{7, 0, 0}, MaskCase{8, 0, 0},
                    MaskCase{2, 1, 1},   // one bit, equal to itself: kept
                    MaskCase{8, 1, 1},   // kept whatever the channel count
                    MaskCase{2, 7, 0x3}, // three bits, but 3 != 7
                    MaskCase{3, 7, 0},   // not kept although 3 channels have 3 bits
                    MaskCase{2, 12, 0x3}, MaskCase{2, 3, 0x3}, MaskCase{6, 0x3F, 0x3F},
                    MaskCase{8, 0xFF, 0}, MaskCase{1, 0xFFFFFFFF, 0x4}),
    [](const auto& info) {
        const auto& c = info.param;
        return std::string("Channels" + std::to_string(c.channels) + "_Mask" + hexText(c.mask));
    });

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
// input channels, input mask, output channels, output mask}.
INSTANTIATE_TEST_SUITE_P(
    Table, BuildFormat,
    testing::Values(
        BuildCase{"StereoDefault", {44100, 2, 0, 0, 0}, true, {44100, 2, 3, 2, 3}},
        BuildCase{"LowestRate", {100, 1, 0, 0, 0}, true, {100, 1, 4, 1, 4}},
        BuildCase{"HighestRate", {10000000, 1, 0, 0, 0}, true, {10000000, 1, 4, 1, 4}},
        BuildCase{"RateTooLow", {99, 2, 0, 0, 0}, false, {}},
        BuildCase{"RateTooHigh", {10000001, 2, 0, 0, 0}, false, {}},
        BuildCase{"NegativeRate", {-44100, 2, 0, 0, 0}, false, {}},
        BuildCase{"NoChannels", {44100, 0, 0, 0, 0}, false, {}},
        BuildCase{"NegativeChannels", {44100, -2, 0, 0, 0}, false, {}},
        BuildCase{"MostChannels", {44100, 32, 0, 0, 0}, true, {44100, 32, 0, 32, 0}},
        BuildCase{"TooManyChannels", {44100, 33, 0, 0, 0}, false, {}},
        BuildCase{"TooManyOutputs", {44100, 2, 33, 0, 0}, false, {}},
        BuildCase{"NegativeOutputs", {44100, 2, -1, 0, 0}, false, {}},
        BuildCase{"MonoMaskKept", {48000, 2, 0, 1, 0}, true, {48000, 2, 1, 2, 1}},
        BuildCase{
            "OutputMirrorsInputEvenWithItsMask", {48000, 2, 0, 1, 0x3F}, true, {48000, 2, 1, 2, 1}},
        BuildCase{"OwnOutputCountAndMask", {48000, 2, 6, 0, 0}, true, {48000, 2, 3, 6, 0x3F}},
        BuildCase{"OwnOutputKeptMask", {48000, 6, 1, 0, 1}, true, {48000, 6, 0x3F, 1, 1}},
        BuildCase{"FiveChannelsNoLayout", {48000, 5, 0, 0, 0}, true, {48000, 5, 0, 5, 0}}),
    [](const testing::TestParamInfo<BuildCase>& info) { return std::string(info.param.name); });

TEST(StreamFormatBytes, EncodesLittleEndianInFieldOrderAndDecodesBack) {
    const StreamFormat format{0x0000AC44, 2, 0x3, 0x01020304, 0xA0B0C0D0};
    const std::array<uint8_t, 20> expected{0x44, 0xAC, 0, 0, 2, 0, 0,    0,    3,    0,
                                           0,    0,    4, 3, 2, 1, 0xD0, 0xC0, 0xB0, 0xA0};
    EXPECT_EQ(encodeStreamFormat(format), expected);
    EXPECT_EQ(decodeStreamFormat(expected.data()), format);
}

} // namespace
