#pragma once

#include "hosting/vst2/vst2_abi.h"

class PluginHost;

// The one callback every plug-in gets. Called on whatever thread the plug-in uses; takes no
// lock and never lets an exception cross back into the plug-in.
intptr_t hostCallback(AEffect* effect, int32_t opcode, int32_t index, intptr_t value, void* ptr,
                      float opt) noexcept;

// The single way back from a plug-in's record to our host object. Null while the plug-in is
// still inside its entry function (its `user` field is not set yet).
PluginHost* hostFromEffect(AEffect* effect) noexcept;

// Fills the calling thread's time record for the requested flags and returns it; valid on that
// thread until its next call.
VstTimeInfo* fillTimeInfo(PluginHost& host, intptr_t requestedFlags);

// The name the host gives itself to plug-ins (also what VST 3 plug-ins read as the host's name).
const char* hostProductName() noexcept;
