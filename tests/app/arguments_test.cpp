#include "app/arguments.h"
#include "tests/common/case_name.h"

#include <gtest/gtest.h>

#include <vector>

namespace {

using testing_support::caseName;

ArgumentMap parse(std::vector<const char*> argv) {
    argv.insert(argv.begin(), {"vst-adapter", "process"});
    return argumentsFromCommandLine(static_cast<int>(argv.size()), argv.data());
}

TEST(Arguments, LastValueWinsAndKeysAreExact) {
    const auto arguments = parse({"--rate", "44100", "--rate", "48000", "--RATE", "1"});
    EXPECT_EQ(getIntOption(arguments, "--rate"), 48000);
    EXPECT_EQ(getIntOption(arguments, "--RATE"), 1);
    EXPECT_EQ(arguments.size(), 2u);
}

TEST(Arguments, PresentEmptyValueIsPresent) {
    const auto arguments = parse({"--data", ""});
    ASSERT_TRUE(findArgument(arguments, "--data"));
    EXPECT_EQ(*findArgument(arguments, "--data"), "");
    EXPECT_FALSE(findArgument(arguments, "--input"));
}

struct NumberCase {
    const char* text;
    int value;
};

class WholeNumbers : public testing::TestWithParam<NumberCase> {};

TEST_P(WholeNumbers, ReadLikeAtoi) { EXPECT_EQ(readWholeNumber(GetParam().text), GetParam().value); }

INSTANTIATE_TEST_SUITE_P(
    Table, WholeNumbers,
    testing::Values(NumberCase{"44100", 44100}, NumberCase{"  12", 12}, NumberCase{"\t\n+7", 7},
                    NumberCase{"-3", -3}, NumberCase{"12abc", 12}, NumberCase{"0x33", 0},
                    NumberCase{"abc", 0}, NumberCase{"", 0}, NumberCase{"- 3", 0},
                    NumberCase{"--3", 0}, NumberCase{"2147483647", 2147483647},
                    NumberCase{"-2147483648", -2147483647 - 1}, NumberCase{"3.9", 3},
                    NumberCase{"99999999999999999999", 2147483647}),
    [](const auto& info) {
        const auto& c = info.param;
        return std::string(caseName({c.text}));
    });

struct PrecisionCase {
    std::vector<const char*> options;
    bool doublePrecision;
};

class Precision : public testing::TestWithParam<PrecisionCase> {};

TEST_P(Precision, FollowsFloat64ThenEncoding) {
    EXPECT_EQ(wantsDoublePrecision(parse(GetParam().options)), GetParam().doublePrecision);
}

INSTANTIATE_TEST_SUITE_P(
    Table, Precision,
    testing::Values(PrecisionCase{{"--float64", "yes"}, false},
                    PrecisionCase{{"--float64", "1"}, true},
                    PrecisionCase{{"--float64", ""}, false},
                    PrecisionCase{{"--float64", "0", "--bits", "64", "--formattag", "3"}, false},
                    PrecisionCase{{"--bits", "32", "--formattag", "3"}, false},
                    PrecisionCase{{"--bits", "64", "--formattag", "3"}, true},
                    PrecisionCase{{"--bits", "32"}, true},
                    PrecisionCase{{"--bits", "32", "--formattag", "1"}, true},
                    PrecisionCase{{"--bits", "24"}, false}, PrecisionCase{{}, false}),
    [](const auto& info) {
        const auto& c = info.param;
        return std::string(caseName(c.options));
    });

struct LevelCase {
    std::vector<const char*> options;
    int level;
};

class ProcessLevel : public testing::TestWithParam<LevelCase> {};

TEST_P(ProcessLevel, OnlyExactRealtimeIsRealtime) {
    EXPECT_EQ(processLevelFromArguments(parse(GetParam().options)), GetParam().level);
}

INSTANTIATE_TEST_SUITE_P(Table, ProcessLevel,
                         testing::Values(LevelCase{{"--process", "realtime"}, 2},
                                         LevelCase{{"--process", "REALTIME"}, 4},
                                         LevelCase{{"--process", "realtime "}, 4},
                                         LevelCase{{"--process", "offline"}, 4}, LevelCase{{}, 4}),
                         [](const auto& info) {
                             const auto& c = info.param;
                             return std::string(caseName(c.options));
                         });

} // namespace
