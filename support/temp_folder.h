#pragma once

#include "support/unique_descriptor.h"
#include "support/x_file.h"

#include <string>

// The private temporary folder of a process tree. The first process takes a numbered folder in
// the system's temporary root, keeps an exclusive flock() on its "XTempFolderLock" for its
// life and names the folder in $XTempFolderScope_Location, so that its children use the same
// folder instead of taking their own.
namespace Vesk {

class XTempFolderScope {
  public:
    // Without a prefix the candidates are "XTempFolder-0", "-1", ...; with one, "<prefix>-temp",
    // "<prefix>-temp-1", ... Files left in a taken folder by a process that died are removed.
    // Throws file_access_error when no folder can be made.
    explicit XTempFolderScope(const std::wstring& prefix = {});
    // The owner removes its folder; an inherited folder is left to its owner.
    ~XTempFolderScope();
    XTempFolderScope(const XTempFolderScope&) = delete;
    XTempFolderScope& operator=(const XTempFolderScope&) = delete;

    // Ends in '/'.
    const std::wstring& folder() const { return path; }
    bool owned() const { return lock.valid(); }

  private:
    std::wstring path;
    uniqueDescriptor lock;
};

// The process's scope, taken on first use (thread-safe) and kept until the process exits.
const std::wstring& tempFolder();

// "<process tag>-<n>", unique within the process tree's temporary folder.
std::string uniqueTempTag();

// Creates a new empty file "[<name>-]XTempFile-<tag><extension or .tmp>" in the temporary folder
// and returns it open for reading and writing. Throws the file error classes.
XFile createTempFile(const std::wstring& name = {}, const std::wstring& extension = {});

// Deletes the contents of `folder` except the entry named `keep`; true when all went.
bool removeFolderContents(const std::string& folder, const std::string& keep = {});

} // namespace Vesk
