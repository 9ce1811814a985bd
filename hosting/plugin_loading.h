#pragma once

#include "hosting/module/module_library.h"
#include "hosting/vst2/vst2_abi.h"

#include <memory>
#include <string>
#include <vector>

class PluginHost;
class Vst3Module;
struct Vst3ClassInfo;

// Loaders throw LoadFailure, which the command layer words; nothing thrown by plug-in code
// escapes them.

// Finds "VSTPluginMain" (else "main") in the module, calls it and attaches the result. The host
// keeps the module loaded for its own life.
void loadVst2(PluginHost& host, std::shared_ptr<ModuleLibrary> module);
// Loads the VST 3 module at `path` and opens its first audio module class that can be bridged.
// The host keeps the module for its own life.
void loadVst3(PluginHost& host, const std::string& path);

// The module's effects: its audio module classes, in factory order.
std::vector<const Vst3ClassInfo*> vst3EffectClasses(const Vst3Module& module);
// Opens effect `index` of `module` (as vst3EffectClasses counts them) and nothing else; throws
// LoadFailure when there is no such class, it cannot be made or it refuses.
void openVst3EffectClass(PluginHost& host, std::shared_ptr<Vst3Module> module, size_t index);

// Validates, attaches, opens and resumes a plug-in record. Refuses null, a wrong magic and
// instruments (closed first: they were created). On a failed open the record stays with the
// host, so teardown still closes it.
bool attachEffect(PluginHost& host, AEffect* effect);

// What a fresh instance of an already loaded plug-in is made from: the VST 2 entry function and
// the code that must stay loaded meanwhile, or the VST 3 module.
struct PluginSource {
    VstPluginMainProc entryPoint = nullptr;
    std::shared_ptr<ModuleLibrary> library;
    std::shared_ptr<Vst3Module> module;
};

// Taken from a host before it is destroyed, so that its code stays loaded.
PluginSource takeSource(PluginHost& host);

// Opens a new instance from `source` on a fresh host; throws LoadFailure when there is nothing
// to open from or the plug-in refuses.
void reopen(PluginHost& host, PluginSource source);
