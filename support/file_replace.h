#pragma once

#include <cstdint>
#include <span>
#include <string>

// Replacing a file's contents without ever leaving it damaged.
namespace Vesk {

// Writes `bytes` to a new file beside `path` (the rewrite-file name), syncs it, gives it the old
// file's owner, group and permissions and renames it over `path`, so that `path` holds either its
// old contents or all of the new ones, whatever happens meanwhile (a full disk, the process
// killed). Where the new file cannot be given the old owner (we are not root), the old file is
// written over in place instead, after a synced copy of it under the rewrite-file name, which
// puts it back when the write fails and stays if the process is killed meanwhile. A symbolic link,
// even a dangling one, is followed: the file it names is replaced or created, the link stays. Paths
// are UTF-8 bytes, passed to the system unchanged. Failures throw file errors and leave `path` as
// it was.
void replaceFileContents(const std::string& path, std::span<const uint8_t> bytes);

} // namespace Vesk
