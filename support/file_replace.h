#pragma once

#include <cstdint>
#include <span>
#include <string>

// Replacing a file's contents without ever leaving it damaged.
namespace Vesk {

// Writes `bytes` to a new file beside `path` (the rewrite-file name), syncs it, gives it the old
// file's permissions and renames it over `path`, so that `path` holds either its old contents or
// all of the new ones, whatever happens meanwhile (a full disk, the process killed). A symbolic
// link is followed: the file it names is replaced, the link stays. Paths are UTF-8 bytes, passed
// to the system unchanged. Failures throw file errors and leave `path` as it was.
void replaceFileContents(const std::string& path, std::span<const uint8_t> bytes);

} // namespace Vesk
