#pragma once

#include <optional>
#include <string>

// Which binary inside a VST 2 plug-in path to load. Accepted, in this order:
//   a file                                       -> the file itself
//   DIR/Contents/<architecture>/<DIR stem>.so   -> bundle layout
//   DIR/Contents/<architecture>/ with one .so   -> bundle whose binary has another name
//   DIR/<DIR stem>.so                            -> a folder named after its binary
//   DIR with exactly one .so                     -> that one
// Anything else names no module.
std::optional<std::string> resolveModuleBinary(const std::string& path,
                                               const std::string& architecture);

// Which binary inside a VST 3 path to load; stricter, as VST 3 fixes its layout:
//   a file whose name ends in ".vst3"            -> the file itself (single-file packaging)
//   DIR/Contents/<architecture>/<DIR stem>.so   -> bundle layout ("Name.vst3" -> "Name.so")
// Anything else names no module.
std::optional<std::string> resolveVst3Binary(const std::string& path,
                                             const std::string& architecture);

// The bundle folder holding binaries for this machine: "<machine>-linux", e.g. "x86_64-linux".
std::string linuxArchitectureFolder();
