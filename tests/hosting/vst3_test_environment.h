#pragma once

#include <cstdlib>
#include <string>

// Sets TEST_VST3 and TEST_VST3_LOG for modules entered while the object lives; the test
// plug-in reads them in its entry function.
class Vst3TestEnvironment {
  public:
    Vst3TestEnvironment(const std::string& words, const std::string& log) {
        ::setenv("TEST_VST3", words.c_str(), 1);
        ::setenv("TEST_VST3_LOG", log.c_str(), 1);
    }
    ~Vst3TestEnvironment() {
        ::unsetenv("TEST_VST3");
        ::unsetenv("TEST_VST3_LOG");
    }
    Vst3TestEnvironment(const Vst3TestEnvironment&) = delete;
    Vst3TestEnvironment& operator=(const Vst3TestEnvironment&) = delete;
};
