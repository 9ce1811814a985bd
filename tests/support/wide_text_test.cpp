#include "support/wide_text.h"

#include <gtest/gtest.h>

namespace {

TEST(WideText, RoundTripsEveryPlane) {
    const std::wstring text = L"a\u00e9\u20ac\U0001F3B5/Klang";
    EXPECT_EQ(Vesk::toUtf8(text), "a\xc3\xa9\xe2\x82\xac\xf0\x9f\x8e\xb5/Klang");
    EXPECT_EQ(Vesk::fromUtf8(Vesk::toUtf8(text)), text);
}

TEST(WideText, BrokenBytesBecomeReplacementCharacters) {
    EXPECT_EQ(Vesk::fromUtf8("a\xff" "b"), L"a\ufffd" L"b");
    EXPECT_EQ(Vesk::fromUtf8("\xe2\x82"), L"\ufffd\ufffd");
    EXPECT_EQ(Vesk::fromUtf8("\xc0\xaf"), L"\ufffd");  // overlong '/'
}

} // namespace
