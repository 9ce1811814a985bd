#pragma once

#include <optional>
#include <string>

// Which binary inside a plug-in path to load. Accepted, in this order:
//   a file                                       -> the file itself
//   DIR/Contents/<architecture>/<DIR stem>.so   -> bundle layout
//   DIR/Contents/<architecture>/ with one .so   -> bundle whose binary has another name
//   DIR/<DIR stem>.so                            -> a folder named after its binary
//   DIR with exactly one .so                     -> that one
// Anything else names no module.
std::optional<std::string> resolveModuleBinary(const std::string& path,
                                               const std::string& architecture);
