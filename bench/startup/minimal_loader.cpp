// The least a host can do to start a plug-in: load, open, resume, suspend, close. The start-up
// benchmark compares "vst-adapter test" with this.
#include "hosting/vst2/vst2_abi.h"

#include <cstdio>
#include <dlfcn.h>

namespace {

intptr_t minimalCallback(AEffect*, int32_t opcode, int32_t, intptr_t, void*, float) {
    if (opcode == audioMasterVersion)
        return kVstVersion;
    if (opcode == audioMasterGetSampleRate)
        return 44100;
    if (opcode == audioMasterGetBlockSize)
        return 512;
    return 0;
}

} // namespace

int main(int argc, char** argv) {
    if (argc != 2) {
        std::fputs("usage: minimal_loader PLUGIN.so\n", stderr);
        return 2;
    }
    void* library = dlopen(argv[1], RTLD_NOW | RTLD_LOCAL | RTLD_NODELETE);
    if (library == nullptr)
        return 1;
    auto entry = reinterpret_cast<VstPluginMainProc>(dlsym(library, "VSTPluginMain"));
    if (entry == nullptr)
        entry = reinterpret_cast<VstPluginMainProc>(dlsym(library, "main"));
    AEffect* effect = entry ? entry(minimalCallback) : nullptr;
    if (effect == nullptr || effect->magic != kEffectMagic)
        return 1;
    effect->dispatcher(effect, effOpen, 0, 0, nullptr, 0);
    effect->dispatcher(effect, effSetBlockSize, 0, 512, nullptr, 0);
    effect->dispatcher(effect, effMainsChanged, 0, 1, nullptr, 0);
    effect->dispatcher(effect, effMainsChanged, 0, 0, nullptr, 0);
    effect->dispatcher(effect, effClose, 0, 0, nullptr, 0);
    dlclose(library);
    return 0;
}
