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

struct NumberCase {
    const char* text;
    int value;
};

class WholeNumbers : public testing::TestWithParam<NumberCase> {};

TEST_P(WholeNumbers, ReadLikeAtoi) {
    EXPECT_EQ(readWholeNumber(GetParam().text), GetParam().value);
}

INSTANTIATE_TEST_SUITE_P(Table, WholeNumbers,
                         testing::Values(NumberCase{"\t\n+7", 7}, NumberCase{"-3", -3},
                                         NumberCase{"12abc", 12}, NumberCase{"- 3", 0},
                                         NumberCase{"-2147483648", -2147483647 - 1},
                                         NumberCase{"99999999999999999999", 2147483647}),
                         [](const auto& info) { return caseName({info.param.text}); });

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
                    PrecisionCase{{"--float64", "0", "--bits", "64", "--formattag", "3"}, false},
                    PrecisionCase{{"--bits", "64", "--formattag", "3"}, true},
                    PrecisionCase{{"--bits", "32", "--formattag", "3"}, false},
                    PrecisionCase{{"--bits", "32"}, true}, PrecisionCase{{"--bits", "24"}, false}),
    [](const auto& info) { return caseName(info.param.options); });

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
                                         LevelCase{{}, 4}),
                         [](const auto& info) { return caseName(info.param.options); });

} // namespace
