// The realtime-safety check reads the sanitizer's report as text: the three frame forms it
// prints (symbol and module, symbol and source line, module and offset only) must each name
// the plug-in's frame as the origin, past the sanitizer's and the C++ runtime's frames.
#include "checks/realtime_report.h"

#include <gtest/gtest.h>

namespace {

constexpr const char* head =
    "Real-time violation: intercepted call to real-time unsafe function `malloc` in real-time "
    "context! Stack trace:\n"
    "    #0 0x55 in __rtsan::PrintStackTrace() (/b/vst-adapter-realtime-probe+0x2f) (BuildId: 71)\n"
    "    #1 0x55 in malloc (/b/vst-adapter-realtime-probe+0x30) (BuildId: 71)\n"
    "    #2 0x7f in operator new(unsigned long) (/lib/x86_64-linux-gnu/libstdc++.so.6+0xa9)\n";

TEST(RealtimeReport, NamesThePlugInsFrameInEachForm) {
    struct Case {
        const char* frame;
        std::string origin;
    };
    const Case cases[] = {
        {"    #3 0x7f in Filter::run() (/usr/lib/vst/fx.so+0x12) (BuildId: 8e)\n",
         "Filter::run() (fx.so)"},
        {"    #3 0x7f in Filter::run() /src/fx/filter.cpp:40:3\n", "Filter::run() (filter.cpp)"},
        {"    #3 0x7fcff249cb7d  (/usr/lib/vst/fx.so+0x9cb7d) (BuildId: 8e)\n", "fx.so+0x9cb7d"},
    };
    for (const Case& c : cases) {
        const auto violation = readRealtimeViolation(std::string(head) + c.frame +
                                                     "    #4 0x55 in main (/b/probe+0x1)\n");
        ASSERT_TRUE(violation.has_value()) << c.frame;
        EXPECT_EQ(violation->call, "malloc");
        EXPECT_EQ(violation->origin, c.origin);
        EXPECT_NE(c.origin.find(violation->library), std::string::npos);
        EXPECT_EQ(violation->backtrace.front(), "operator new(unsigned long) (libstdc++.so.6)");
    }
    EXPECT_FALSE(readRealtimeViolation("the plug-in could not be opened\n").has_value());
}

} // namespace
