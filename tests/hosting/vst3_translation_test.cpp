// The pure translations of the VST 3 bridge: speaker arrangements, the chunk layout and text.
#include "hosting/vst3/vst3_chunk.h"
#include "hosting/vst3/vst3_speakers.h"
#include "hosting/vst3/vst3_text.h"
#include "tests/common/case_name.h"

#include <gtest/gtest.h>

#include <initializer_list>
#include <optional>
#include <string>
#include <vector>

namespace {

using testing_support::hexText;

VstSpeakerArrangement arrangement(int32_t type, std::initializer_list<int32_t> speakers) {
    VstSpeakerArrangement record{};
    record.type = type;
    record.numChannels = static_cast<int32_t>(speakers.size());
    int at = 0;
    for (const int32_t speaker : speakers)
        record.speakers[at++].type = speaker;
    return record;
}

struct FromVst2Case {
    const char* name;
    VstSpeakerArrangement record;
    std::optional<uint64_t> mask;
};

void PrintTo(const FromVst2Case& c, std::ostream* out) {
    *out << c.name;
}

class SpeakersFromVst2 : public testing::TestWithParam<FromVst2Case> {};

TEST_P(SpeakersFromVst2, Mask) {
    EXPECT_EQ(vst3_speakers::fromVst2(GetParam().record), GetParam().mask);
}

INSTANTIATE_TEST_SUITE_P(
    Table, SpeakersFromVst2,
    testing::Values(
        FromVst2Case{"MonoIsTheMSpeaker", arrangement(kSpeakerArrMono, {}),
                     vst3_speakers::monoMask},
        FromVst2Case{"Stereo", arrangement(kSpeakerArrStereo, {1, 2}), 0x3},
        FromVst2Case{"Quad", arrangement(kSpeakerArr40Music, {}), 0x33},
        FromVst2Case{"FivePointOne", arrangement(kSpeakerArr51, {}), 0x3F},
        FromVst2Case{"SevenPointOne", arrangement(kSpeakerArr71Music, {}), 0x63F},
        FromVst2Case{"Empty", arrangement(kSpeakerArrEmpty, {}), 0},
        FromVst2Case{"UserDefinedFromSpeakers", arrangement(kSpeakerArrUserDefined, {1, 2, 3}),
                     0x7},
        FromVst2Case{"UserDefinedMono", arrangement(kSpeakerArrUserDefined, {kSpeakerM}),
                     vst3_speakers::monoMask},
        FromVst2Case{"RepeatedSpeakerRefused", arrangement(kSpeakerArrUserDefined, {1, 1}),
                     std::nullopt},
        FromVst2Case{"UnknownSpeakerRefused", arrangement(kSpeakerArrUserDefined, {-5}),
                     std::nullopt},
        FromVst2Case{"NoChannelsRefused", arrangement(kSpeakerArrUserDefined, {}), std::nullopt}),
    [](const auto& info) { return std::string(info.param.name); });

TEST(SpeakersFromVst2, MoreThanEightChannelsRefused) {
    VstSpeakerArrangement record = arrangement(kSpeakerArrUserDefined, {1, 2, 3, 4, 5, 6, 7, 8});
    record.numChannels = 9;
    EXPECT_EQ(vst3_speakers::fromVst2(record), std::nullopt);
}

struct TypeCase {
    uint64_t mask;
    int32_t channels;
    int32_t type;
};

void PrintTo(const TypeCase& c, std::ostream* out) {
    *out << std::hex << c.mask;
}

class SpeakersToVst2 : public testing::TestWithParam<TypeCase> {};

TEST_P(SpeakersToVst2, PinTypeAndRecord) {
    const auto& c = GetParam();
    EXPECT_EQ(vst3_speakers::vst2Type(c.mask, c.channels), c.type);
    const VstSpeakerArrangement record = vst3_speakers::toVst2(c.mask);
    EXPECT_EQ(record.type, c.type);
    EXPECT_EQ(record.numChannels, c.channels);
    // Reading the record back names the same speakers, whatever its type.
    EXPECT_EQ(vst3_speakers::fromVst2(record), c.mask);
}

INSTANTIATE_TEST_SUITE_P(Table, SpeakersToVst2,
                         testing::Values(TypeCase{vst3_speakers::monoMask, 1, kSpeakerArrMono},
                                         TypeCase{0x3, 2, kSpeakerArrStereo},
                                         TypeCase{0x33, 4, kSpeakerArr40Music},
                                         TypeCase{0x3F, 6, kSpeakerArr51},
                                         TypeCase{0x63F, 8, kSpeakerArr71Music},
                                         TypeCase{0x7, 3, kSpeakerArrUserDefined}),
                         [](const auto& info) {
                             const auto& c = info.param;
                             return std::string("Mask" + hexText(c.mask));
                         });

TEST(SpeakersToVst2, ChannelCountDecidesMonoAndStereo) {
    // A centre-only bus is mono to VST 2, a side pair is stereo.
    EXPECT_EQ(vst3_speakers::vst2Type(0x4, 1), kSpeakerArrMono);
    EXPECT_EQ(vst3_speakers::vst2Type(0x600, 2), kSpeakerArrStereo);
}

std::vector<uint8_t> bytes(std::initializer_list<int> values) {
    return {values.begin(), values.end()};
}

std::vector<uint8_t> header(uint64_t component, uint64_t controller) {
    std::vector<uint8_t> out;
    for (uint64_t size : {component, controller})
        for (int byte = 0; byte < 8; ++byte)
            out.push_back(static_cast<uint8_t>(size >> (8 * byte)));
    return out;
}

TEST(Vst3Chunk, PackIsLittleEndianSizesThenBothParts) {
    const auto chunk = vst3_chunk::pack(bytes({1, 2, 3}), bytes({9}));
    auto expected = header(3, 1);
    expected.insert(expected.end(), {1, 2, 3, 9});
    EXPECT_EQ(chunk, expected);
}

struct SplitCase {
    const char* name;
    std::vector<uint8_t> chunk;
    std::optional<std::pair<std::vector<uint8_t>, std::vector<uint8_t>>> parts;
};

void PrintTo(const SplitCase& c, std::ostream* out) {
    *out << c.name;
}

std::vector<uint8_t> join(std::vector<uint8_t> head, std::initializer_list<int> body) {
    head.insert(head.end(), body.begin(), body.end());
    return head;
}

class Vst3ChunkSplit : public testing::TestWithParam<SplitCase> {};

TEST_P(Vst3ChunkSplit, Parts) {
    const auto parts = vst3_chunk::split(GetParam().chunk);
    ASSERT_EQ(parts.has_value(), GetParam().parts.has_value());
    if (!parts)
        return;
    EXPECT_EQ(std::vector<uint8_t>(parts->component.begin(), parts->component.end()),
              GetParam().parts->first);
    EXPECT_EQ(std::vector<uint8_t>(parts->controller.begin(), parts->controller.end()),
              GetParam().parts->second);
}

INSTANTIATE_TEST_SUITE_P(
    Table, Vst3ChunkSplit,
    testing::Values(
        SplitCase{"BothParts", join(header(2, 1), {5, 6, 7}), std::pair{bytes({5, 6}), bytes({7})}},
        SplitCase{"EmptyController", join(header(2, 0), {5, 6}),
                  std::pair{bytes({5, 6}), bytes({})}},
        SplitCase{"TrailingBytesIgnored", join(header(1, 0), {5, 6}),
                  std::pair{bytes({5}), bytes({})}},
        SplitCase{"ShorterThanHeader", bytes({1, 2, 3}), std::nullopt},
        SplitCase{"ComponentTooLong", join(header(4, 0), {1, 2}), std::nullopt},
        SplitCase{"ControllerTooLong", join(header(1, 2), {1, 2}), std::nullopt},
        SplitCase{"SizesThatWouldWrap", join(header(~uint64_t{0}, 2), {1, 2}), std::nullopt}),
    [](const auto& info) { return std::string(info.param.name); });

TEST(Vst3Text, Utf16RoundTripKeepsCharactersOutsideTheBasicPlane) {
    const std::string text = "Gain \xC3\xA9 \xF0\x9F\x8E\xB8"; // e acute, guitar
    char16_t field[16];
    vst3_text::toUtf16(text, field, 16);
    EXPECT_EQ(field[7], 0xD83C); // a surrogate pair
    EXPECT_EQ(vst3_text::fromUtf16(field, 16), text);
}

struct CutCase {
    const char* name;
    std::string text;
    size_t capacity;
    std::string expected;
};

void PrintTo(const CutCase& c, std::ostream* out) {
    *out << c.name;
}

class Vst3TextCut : public testing::TestWithParam<CutCase> {};

TEST_P(Vst3TextCut, FitsWithTerminator) {
    char out[16];
    std::fill(std::begin(out), std::end(out), 'x');
    vst3_text::copyCut(GetParam().text, out, GetParam().capacity);
    EXPECT_EQ(std::string(out), GetParam().expected);
    EXPECT_EQ(out[GetParam().capacity], 'x'); // nothing written past the buffer
}

INSTANTIATE_TEST_SUITE_P(
    Table, Vst3TextCut,
    testing::Values(CutCase{"Fits", "Gain", 8, "Gain"}, CutCase{"Cut", "Threshold", 8, "Thresho"},
                    CutCase{"NeverSplitsACharacter", "abcdef\xC3\xA9", 8, "abcdef"},
                    CutCase{"OneByteHoldsOnlyTheEnd", "Gain", 1, ""}),
    [](const auto& info) { return std::string(info.param.name); });

TEST(Vst3Text, UnterminatedFieldsAndBrokenSurrogates) {
    const char fixed[4] = {'A', 'u', 'd', 'i'};
    EXPECT_EQ(vst3_text::fromFixed(fixed, 4), "Audi");
    const char16_t broken[] = {u'a', 0xD800, u'b', 0};
    EXPECT_EQ(vst3_text::fromUtf16(broken, 4), "a\xEF\xBF\xBD"
                                               "b");
    char16_t tiny[3];
    vst3_text::toUtf16("abc", tiny, 3);
    EXPECT_EQ(std::u16string(tiny), u"ab");
}

} // namespace
