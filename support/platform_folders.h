#pragma once

#include <string>

// Where the platform keeps temporary files and per-user application data. One implementation
// file per platform (platform_folders_linux.cpp, platform_folders_mac.mm) and one for what both
// share (platform_folders_posix.cpp). Both roots end in a separator.
namespace Vesk::platformFolders {

// Linux: $TMPDIR, else "/tmp/". macOS: the per-user temporary folder.
std::wstring systemTemporaryRoot();

// Linux (XDG): $XDG_DATA_HOME when it is an absolute path, else $HOME/.local/share.
// macOS: $HOME/Library.
std::wstring applicationDataRoot();

// $HOME when set and not empty, else the user database's entry (services started without a
// login environment), else "/".
std::string homeFolder();

} // namespace Vesk::platformFolders
