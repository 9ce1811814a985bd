#pragma once

#include <cstdint>
#include <string>

// Path services over wide-string paths (UTF-8 at the system call). Failures throw the file
// error classes of support/errors.h unless a function says otherwise.
namespace Vesk {

constexpr uint32_t renameOverwrite = 1;

// Without renameOverwrite an existing `to` throws file_already_exists before anything moves.
void renameFile(const std::wstring& from, const std::wstring& to, uint32_t flags = 0);

// The target of a symbolic link; throws file_access_error.
std::wstring readLink(const std::wstring& path);

// $_APPDATA_OVERRIDE when set, else the platform's application-data folder; ends in '/'.
std::wstring appDataFolder();

// `path` ending in exactly the one separator folders are given with here.
std::wstring withTrailingSeparator(std::wstring path);

// Creates every missing folder of `path` with `mode`. A volume or share directly inside
// "/Volumes" or "/Network" is never created, only checked for reading. Stops at the first
// failure; true when every component exists.
bool createFolderPath(const std::wstring& path, unsigned mode = 0755);

// Whether the last component names a network storage device's housekeeping folder, which
// folder scans skip.
bool isHousekeepingFolder(const std::wstring& path);

// The sibling a file is rewritten through: "<target>.p<pid>[.<number>].rewrite.tmp".
std::wstring rewriteTempPath(const std::wstring& target, uint32_t number = 0);
// Removes the "*.rewrite.tmp" leftovers in `folder`; returns how many went.
size_t removeRewriteLeftovers(const std::wstring& folder);

} // namespace Vesk
