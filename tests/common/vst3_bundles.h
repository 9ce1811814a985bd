#pragma once

#include "tests/common/scratch.h"

#include <string>
#include <vector>

namespace testing_support {

// A temporary folder of VST 3 layouts made from a built module; removed with the object. Each
// layout holds its own copy of the module, so that loads of different layouts in one process
// do not share module state.
class Vst3Layouts : public scratch::Folder {
  public:
    // "NAME.vst3/Contents/<machine>-linux/BINARY.so", BINARY being NAME unless given.
    std::string bundle(const std::string& name, const std::string& module,
                       std::string binary = "") const;
};

// The lines of a text file; none when it does not exist.
std::vector<std::string> readLines(const std::string& path);

} // namespace testing_support
