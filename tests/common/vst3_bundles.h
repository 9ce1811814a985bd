#pragma once

#include <string>
#include <vector>

namespace testing_support {

// A temporary folder of VST 3 layouts made from a built module; removed with the object. Each
// layout holds its own copy of the module, so that loads of different layouts in one process
// do not share module state.
class Vst3Layouts {
  public:
    explicit Vst3Layouts(const std::string& tag);
    ~Vst3Layouts();
    Vst3Layouts(const Vst3Layouts&) = delete;
    Vst3Layouts& operator=(const Vst3Layouts&) = delete;

    // "NAME.vst3/Contents/<architecture>/NAME.so"; the machine's own architecture when empty.
    std::string bundle(const std::string& name, const std::string& module,
                       const std::string& architecture = "");
    // A fresh file name for a log or data file inside the folder.
    std::string file(const std::string& name) const;

  private:
    std::string root;
};

// The lines of a text file; none when it does not exist.
std::vector<std::string> readLines(const std::string& path);
// The lines of `lines` equal to `line`.
int countLines(const std::vector<std::string>& lines, const std::string& line);
// The lines that start with `prefix`.
std::vector<std::string> linesStartingWith(const std::vector<std::string>& lines,
                                           const std::string& prefix);

} // namespace testing_support
