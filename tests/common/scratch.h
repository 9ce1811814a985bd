#pragma once

#include <functional>
#include <string>

// Helpers for the file and process tests of the support library.
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

// A forked process: `body` runs in the child, whose exit status is body's result. The child
// may write text for the parent with report(); it waits for go() when it calls awaitGo().
class Child {
  public:
    explicit Child(std::function<int(Child&)> body);
    ~Child();
    Child(const Child&) = delete;
    Child& operator=(const Child&) = delete;

    // In the child.
    void report(const std::string& line);
    void awaitGo();
    // In the parent: the next line reported (empty when the child ended first), letting the
    // child go on, and the child's exit status (-1 when a signal ended it).
    std::string nextLine();
    void go();
    int finish();

  private:
    int pid = -1;
    int toParent[2] = {-1, -1};
    int toChild[2] = {-1, -1};
};

} // namespace scratch
