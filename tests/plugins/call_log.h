#pragma once

#include <string>
#include <string_view>

namespace test_effect {

// The optional record of what the host did to the plug-in: one "key value..." line per event,
// appended to the file named by TEST_EFFECT_LOG. Owned by one plug-in instance (or by the entry
// function before the instance exists); safe from any thread.
class CallLog {
  public:
    // `path` may be null or empty: then nothing is written.
    explicit CallLog(const char* path) : path(path == nullptr ? "" : path) {}

    // Opens, appends and closes per line, so that a host that crashes or kills the process
    // leaves every line written so far, and two instances never interleave within a line.
    void line(std::string_view text) const;
    // Whether lines go anywhere: callers on the audio thread build them only then.
    bool enabled() const { return !path.empty(); }

  private:
    std::string path;
};

// Writes all of `text` to a descriptor, retrying short writes; errors are dropped because the
// plug-in has nobody to report them to.
void writeAll(int descriptor, std::string_view text);

// A number as the log shows it: the shortest form that reads back exactly ("44100", "0.5", "nan").
std::string number(double value);

} // namespace test_effect
