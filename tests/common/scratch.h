#pragma once

#include <string>

// Files for tests.
namespace scratch {

// A fresh folder under /tmp, removed with everything in it at the end of the test.
class Folder {
  public:
    Folder();
    ~Folder();
    Folder(const Folder&) = delete;
    Folder& operator=(const Folder&) = delete;
    // Without a trailing separator.
    const std::string& path() const { return root; }
    std::string operator/(const std::string& name) const { return root + "/" + name; }

  private:
    std::string root;
};

void writeFile(const std::string& path, const std::string& content);
std::string readFile(const std::string& path);
bool exists(const std::string& path);

} // namespace scratch
