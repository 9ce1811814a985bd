#include "app/arguments.h"

#include <gtest/gtest.h>

#include <string>
#include <utility>
#include <vector>

namespace {

ArgumentMap parse(std::vector<const char*> argv) {
    argv.insert(argv.begin(), {"vst-adapter", "process"});
    return argumentsFromCommandLine(static_cast<int>(argv.size()), argv.data());
}

std::string joined(const std::vector<const char*>& options) {
    std::string text;
    for (const char* option : options)
        text += std::string(text.empty() ? "" : " ") + option;
    return text;
}

TEST(WholeNumbers, ReadLikeAtoi) {
    for (const auto& [text, value] :
         std::vector<std::pair<const char*, int>>{{"\t\n+7", 7},
                                                  {"-3", -3},
                                                  {"12abc", 12},
                                                  {"- 3", 0},
                                                  {"-2147483648", -2147483647 - 1},
                                                  {"99999999999999999999", 2147483647}})
        EXPECT_EQ(readWholeNumber(text), value) << text;
}

TEST(Precision, FollowsFloat64ThenEncoding) {
    for (const auto& [options, doublePrecision] :
         std::vector<std::pair<std::vector<const char*>, bool>>{
             {{"--float64", "yes"}, false},
             {{"--float64", "1"}, true},
             {{"--float64", "0", "--bits", "64", "--formattag", "3"}, false},
             {{"--bits", "64", "--formattag", "3"}, true},
             {{"--bits", "32", "--formattag", "3"}, false},
             {{"--bits", "32"}, true},
             {{"--bits", "24"}, false}})
        EXPECT_EQ(wantsDoublePrecision(parse(options)), doublePrecision) << joined(options);
}

TEST(ProcessLevel, OnlyExactRealtimeIsRealtime) {
    for (const auto& [options, level] :
         std::vector<std::pair<std::vector<const char*>, int>>{{{"--process", "realtime"}, 2},
                                                               {{"--process", "REALTIME"}, 4},
                                                               {{"--process", "realtime "}, 4},
                                                               {{}, 4}})
        EXPECT_EQ(processLevelFromArguments(parse(options)), level) << joined(options);
}

} // namespace
