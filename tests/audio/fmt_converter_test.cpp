#include "audio/fmt_converter.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <vector>

namespace {

using bytes = std::vector<uint8_t>;

constexpr double nan = std::numeric_limits<double>::quiet_NaN();
constexpr double inf = std::numeric_limits<double>::infinity();
constexpr double lsb16 = 1.0 / 32768;
constexpr double lsb32 = 1.0 / 2147483648.0;

struct encoding {
    int bits;
    bool isFloat;
};
constexpr encoding u8{8, false}, s16{16, false}, s24{24, false}, s32{32, false}, f32{32, true},
    f64{64, true};

struct WriteCase {
    encoding format;
    double value;
    bytes expected;
};

// Values the float form holds exactly (or, for -1e-9, rounds the same), so both forms agree.
const WriteCase writeCases[] = {
    {u8, 1.0, {0xFF}},
    {u8, -1.0, {0x00}},
    {u8, 0.0, {0x80}},
    {u8, 2.0, {0xFF}},
    {u8, -2.0, {0x00}},
    {u8, 127.5 / 128, {0xFF}},
    {u8, 0.5 / 128, {0x81}},
    {u8, -0.5 / 128, {0x7F}},
    {u8, 1.5 / 128, {0x82}},
    {u8, -1.5 / 128, {0x7E}},
    {u8, 0.49 / 128, {0x80}},
    {u8, nan, {0x80}},
    {u8, inf, {0xFF}},
    {u8, -inf, {0x00}},

    {s16, 1.0, {0xFF, 0x7F}},
    {s16, -1.0, {0x00, 0x80}},
    {s16, 2.0, {0xFF, 0x7F}},
    {s16, -2.0, {0x00, 0x80}},
    {s16, 0.5 * lsb16, {0x01, 0x00}},
    {s16, -0.5 * lsb16, {0xFF, 0xFF}},
    {s16, 1.5 * lsb16, {0x02, 0x00}},
    {s16, -1.5 * lsb16, {0xFE, 0xFF}},
    {s16, -0.25 * lsb16, {0x00, 0x00}},
    {s16, nan, {0x00, 0x00}},
    {s16, -inf, {0x00, 0x80}},
    {s16, 1e30, {0xFF, 0x7F}},

    {s24, 1.0, {0xFF, 0xFF, 0x7F}},
    {s24, -1.0, {0x00, 0x00, 0x80}},
    {s24, -1e-9, {0xFF, 0xFF, 0xFF}},
    {s24, 0.0, {0x00, 0x00, 0x00}},
    {s24, 256 * lsb32, {0x01, 0x00, 0x00}},
    {s24, -256 * lsb32, {0xFF, 0xFF, 0xFF}},
    {s24, 255 * lsb32, {0x00, 0x00, 0x00}},
    {s24, 2.0, {0xFF, 0xFF, 0x7F}},
    {s24, nan, {0x00, 0x00, 0x00}},
    {s24, -inf, {0x00, 0x00, 0x80}},

    {s32, 1.0, {0xFF, 0xFF, 0xFF, 0x7F}},
    {s32, -1.0, {0x00, 0x00, 0x00, 0x80}},
    {s32, 0.5 * lsb32, {0x01, 0x00, 0x00, 0x00}},
    {s32, -0.5 * lsb32, {0xFF, 0xFF, 0xFF, 0xFF}},
    {s32, 3.0, {0xFF, 0xFF, 0xFF, 0x7F}},
    {s32, nan, {0x00, 0x00, 0x00, 0x00}},
    {s32, inf, {0xFF, 0xFF, 0xFF, 0x7F}},
    {s32, -inf, {0x00, 0x00, 0x00, 0x80}},

    {f32, 1.5, {0x00, 0x00, 0xC0, 0x3F}},
    {f32, -2.0, {0x00, 0x00, 0x00, 0xC0}},
    {f32, 0.1, {0xCD, 0xCC, 0xCC, 0x3D}},
    {f64, 1.5, {0, 0, 0, 0, 0, 0, 0xF8, 0x3F}},
    {f64, -2.5, {0, 0, 0, 0, 0, 0, 0x04, 0xC0}},
};

struct ReadCase {
    encoding format;
    bytes stream;
    double expected;
};

const ReadCase readCases[] = {
    {u8, {0x80}, 0.0},
    {u8, {0x00}, -1.0},
    {u8, {0xFF}, 0.9921875},
    {u8, {0x81}, 0.0078125},
    {s16, {0x00, 0x80}, -1.0},
    {s16, {0xFF, 0x7F}, 32767 * lsb16},
    {s16, {0x01, 0x00}, lsb16},
    {s16, {0xFF, 0xFF}, -lsb16},
    {s24, {0x00, 0x00, 0x80}, -1.0},
    {s24, {0xFF, 0xFF, 0x7F}, 0x7FFFFF00 * lsb32},
    {s24, {0x01, 0x00, 0x00}, 256 * lsb32},
    {s24, {0xFF, 0xFF, 0xFF}, -256 * lsb32},
    {s32, {0x00, 0x00, 0x00, 0x80}, -1.0},
    {s32, {0x01, 0x00, 0x00, 0x00}, lsb32},
    {f32, {0x00, 0x00, 0xC0, 0x3F}, 1.5},
    {f32, {0x00, 0x00, 0x80, 0x7F}, inf},
    {f64, {0, 0, 0, 0, 0, 0, 0xF8, 0x3F}, 1.5},
};

template <typename T> class Converter : public testing::Test {
  protected:
    FmtConverter2<T> converter;

    void setup(encoding format, uint32_t inputs, uint32_t outputs, uint32_t block = 512) {
        ASSERT_TRUE(converter.setup(inputs, outputs, format.bits, format.isFloat, block));
    }
};

using SampleTypes = testing::Types<float, double>;
TYPED_TEST_SUITE(Converter, SampleTypes);

// A run long enough for the vector loops and the sample-by-sample rest alike.
TYPED_TEST(Converter, WritesKnownAnswers) {
    constexpr uint32_t frames = 37;
    for (const auto& c : writeCases) {
        SCOPED_TRACE(testing::Message()
                     << c.format.bits << (c.format.isFloat ? "f " : "i ") << c.value);
        this->setup(c.format, 1, 1);
        std::fill_n(this->converter.outputs()[0], frames, static_cast<TypeParam>(c.value));
        bytes out(c.expected.size() * frames + 1, 0xAA);
        this->converter.writer(out.data(), frames);
        bytes expected;
        for (uint32_t i = 0; i < frames; ++i)
            expected.insert(expected.end(), c.expected.begin(), c.expected.end());
        expected.push_back(0xAA);
        EXPECT_EQ(out, expected);
    }
}

TYPED_TEST(Converter, ReadsKnownAnswers) {
    for (const auto& c : readCases) {
        SCOPED_TRACE(testing::Message()
                     << c.format.bits << (c.format.isFloat ? "f " : "i ") << c.expected);
        this->setup(c.format, 1, 1);
        this->converter.reader(c.stream.data(), 1);
        EXPECT_EQ(this->converter.inputs()[0][0], static_cast<TypeParam>(c.expected));
    }
}

TYPED_TEST(Converter, FloatStreamsPassOutOfRangeValuesUnclipped) {
    for (encoding format : {f32, f64}) {
        this->setup(format, 1, 1);
        this->converter.outputs()[0][0] = TypeParam(1.5);
        bytes out(format.bits / 8);
        this->converter.writer(out.data(), 1);
        this->converter.reader(out.data(), 1);
        EXPECT_EQ(this->converter.inputs()[0][0], TypeParam(1.5));
    }
}

// Each channel count has its own kernel; runs longer than one quantising piece cross its seams.
TYPED_TEST(Converter, RoundTripsEveryLayoutAndEncoding) {
    for (encoding format : {u8, s16, s24, s32, f32, f64})
        for (uint32_t channels : {1u, 2u, 3u, 4u, 6u, 8u})
            for (uint32_t frames : {1u, 300u, 512u}) {
                SCOPED_TRACE(testing::Message() << format.bits << " bits, " << channels
                                                << " channels, " << frames << " frames");
                this->setup(format, channels, channels);
                auto value = [](uint32_t c, uint32_t i) {
                    return TypeParam(int((c * 31 + i % 97) % 255) - 127) / TypeParam(128);
                };
                for (uint32_t c = 0; c < channels; ++c)
                    for (uint32_t i = 0; i < frames; ++i)
                        this->converter.outputs()[c][i] = value(c, i);
                bytes stream(size_t{frames} * channels * (format.bits / 8));
                this->converter.writer(stream.data(), frames);
                this->converter.reader(stream.data(), frames);
                uint32_t wrong = 0;
                for (uint32_t c = 0; c < channels; ++c)
                    for (uint32_t i = 0; i < frames; ++i)
                        wrong += this->converter.inputs()[c][i] != value(c, i);
                EXPECT_EQ(wrong, 0u);
            }
}

TYPED_TEST(Converter, InterleavesFrameAfterFrame) {
    this->setup(s16, 3, 3);
    // Frame i, channel c holds the code 10 * i + c.
    for (uint32_t c = 0; c < 3; ++c)
        for (uint32_t i = 0; i < 2; ++i)
            this->converter.outputs()[c][i] = TypeParam(10 * i + c) * TypeParam(lsb16);
    bytes stream(12);
    this->converter.writer(stream.data(), 2);
    EXPECT_EQ(stream, (bytes{0, 0, 1, 0, 2, 0, 10, 0, 11, 0, 12, 0}));

    const bytes input{5, 0, 6, 0, 7, 0, 8, 0, 9, 0, 10, 0};
    this->converter.reader(input.data(), 2);
    EXPECT_EQ(this->converter.inputs()[1][0], TypeParam(6 * lsb16));
    EXPECT_EQ(this->converter.inputs()[0][1], TypeParam(8 * lsb16));
    EXPECT_EQ(this->converter.inputs()[2][1], TypeParam(10 * lsb16));
}

TYPED_TEST(Converter, DifferentInputAndOutputCounts) {
    this->setup(s16, 1, 2);
    this->converter.outputs()[0][0] = TypeParam(lsb16);
    this->converter.outputs()[1][0] = TypeParam(-lsb16);
    bytes stream(4);
    this->converter.writer(stream.data(), 1);
    EXPECT_EQ(stream, (bytes{0x01, 0x00, 0xFF, 0xFF}));
}

TYPED_TEST(Converter, ZeroFramesTouchNothing) {
    this->setup(s16, 2, 2);
    this->converter.outputs()[0][0] = TypeParam(0.5);
    bytes stream(4, 0xAA);
    this->converter.writer(stream.data(), 0);
    this->converter.reader(stream.data(), 0);
    EXPECT_EQ(stream, bytes(4, 0xAA));
    EXPECT_EQ(this->converter.inputs()[0][0], TypeParam(0));
}

TYPED_TEST(Converter, SilenceCountsMinusZeroButNotNaN) {
    this->setup(f32, 1, 2, 8);
    EXPECT_TRUE(this->converter.allOutputsSilent(8));
    this->converter.outputs()[1][3] = TypeParam(-0.0);
    EXPECT_TRUE(this->converter.allOutputsSilent(8));
    this->converter.outputs()[1][3] = std::numeric_limits<TypeParam>::quiet_NaN();
    EXPECT_FALSE(this->converter.allOutputsSilent(8));
    EXPECT_TRUE(this->converter.allOutputsSilent(3)) << "only the first frames count";
    this->converter.inputs()[0][0] = TypeParam(1);
    this->converter.clearSamples();
    EXPECT_TRUE(this->converter.allOutputsSilent(8));
    EXPECT_EQ(this->converter.inputs()[0][0], TypeParam(0));

    this->setup(f32, 2, 0, 8);
    EXPECT_TRUE(this->converter.allOutputsSilent(8)) << "no outputs is silence";
}

TYPED_TEST(Converter, RefusesEncodingsOutsideTheTable) {
    struct refusal {
        int bits;
        bool isFloat;
        bool accepted;
    };
    const refusal cases[] = {{8, false, true},   {16, false, true},  {24, false, true},
                             {32, false, true},  {32, true, true},   {64, true, true},
                             {20, false, false}, {16, true, false},  {8, true, false},
                             {24, true, false},  {64, false, false}, {0, false, false},
                             {-16, false, false}};
    for (const auto& c : cases)
        EXPECT_EQ(this->converter.setup(2, 2, c.bits, c.isFloat, 512), c.accepted)
            << c.bits << (c.isFloat ? " float" : " integer");
}

TYPED_TEST(Converter, ChannelPointersCarrySixteenSpareNulls) {
    this->setup(s16, 3, 2, 64);
    for (int i = 0; i < 3; ++i)
        EXPECT_NE(this->converter.inputs()[i], nullptr);
    for (int i = 3; i < 3 + 16; ++i)
        EXPECT_EQ(this->converter.inputs()[i], nullptr);
    for (int i = 2; i < 2 + 16; ++i)
        EXPECT_EQ(this->converter.outputs()[i], nullptr);
}

TEST(ConverterPrecision, MultipliesInThePluginType) {
    const bytes top{0xFF, 0xFF, 0xFF, 0x7F};
    FmtConverter2<float> single;
    ASSERT_TRUE(single.setup(1, 1, 32, false, 1));
    single.reader(top.data(), 1);
    EXPECT_EQ(single.inputs()[0][0], 1.0f) << "2^31 - 1 becomes 2^31 as a float";
    FmtConverter2<double> twice;
    ASSERT_TRUE(twice.setup(1, 1, 32, false, 1));
    twice.reader(top.data(), 1);
    EXPECT_EQ(twice.inputs()[0][0], 2147483647.0 / 2147483648.0);

    // Just below the top code's half: only double precision can round it down.
    twice.outputs()[0][0] = 2147483646.4 / 2147483648.0;
    bytes out(4);
    twice.writer(out.data(), 1);
    EXPECT_EQ(out, (bytes{0xFE, 0xFF, 0xFF, 0x7F}));
}

} // namespace
