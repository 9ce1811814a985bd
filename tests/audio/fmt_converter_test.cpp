#include "audio/fmt_converter.h"

#include <gtest/gtest.h>

#include <algorithm>
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
constexpr encoding u8{8, false}, s16{16, false}, s24{24, false}, s32{32, false}, f32{32, true};

struct WriteCase {
    encoding format;
    double value;
    bytes expected;
};

// Halves round away from zero, out-of-range values clamp, NaN writes silence. Every value is
// exact in single precision (or rounds the same), so both sample types share the table.
const WriteCase writeCases[] = {
    {u8, 0.0, {0x80}},
    {u8, 2.0, {0xFF}},
    {u8, -0.5 / 128, {0x7F}},
    {u8, nan, {0x80}},
    {s16, 0.5 * lsb16, {1, 0}},
    {s16, -1.5 * lsb16, {0xFE, 0xFF}},
    {s16, 2.0, {0xFF, 0x7F}},
    {s16, nan, {0, 0}},
    {s16, -inf, {0, 0x80}},
    {s24, -1e-9, {0xFF, 0xFF, 0xFF}},
    {s24, 256 * lsb32, {1, 0, 0}},
    {s24, 255 * lsb32, {0, 0, 0}},
    {s24, 1.0, {0xFF, 0xFF, 0x7F}},
    {s32, 1.0, {0xFF, 0xFF, 0xFF, 0x7F}},
    {s32, -0.5 * lsb32, {0xFF, 0xFF, 0xFF, 0xFF}},
    {s32, nan, {0, 0, 0, 0}},
    {f32, 1.5, {0, 0, 0xC0, 0x3F}},
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
        bytes out(c.expected.size() * frames + 1, 0xAA), expected;
        this->converter.writer(out.data(), frames);
        for (uint32_t i = 0; i < frames; ++i)
            expected.insert(expected.end(), c.expected.begin(), c.expected.end());
        expected.push_back(0xAA);
        EXPECT_EQ(out, expected);
    }
}

TYPED_TEST(Converter, SilenceCountsMinusZeroButNotNaN) {
    this->setup(f32, 1, 2, 8);
    this->converter.outputs()[1][3] = TypeParam(-0.0);
    EXPECT_TRUE(this->converter.allOutputsSilent(8));
    this->converter.outputs()[1][3] = std::numeric_limits<TypeParam>::quiet_NaN();
    EXPECT_FALSE(this->converter.allOutputsSilent(8));
    EXPECT_TRUE(this->converter.allOutputsSilent(3)) << "only the first frames count";
}

} // namespace
