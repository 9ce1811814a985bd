// The in-tree VST 2.4 test plug-in's entry functions. The same sources build three modules that
// differ only in which of these they export (see CMakeLists.txt). What an instance does is chosen
// in the entry function from TEST_EFFECT, a comma-separated list of words (README.md has the same
// list):
//   null             the entry function returns null
//   bad-magic        the record's magic is wrong
//   synth            the record says it is an instrument (effFlagsIsSynth)
//   throw-entry      a C++ exception leaves the entry function
//   throw-open       a C++ exception leaves effOpen
//   throw-resume     a C++ exception leaves effMainsChanged with value 1
//   print            writes to standard output, with printf and with write(1), in the entry
//                    function, in effOpen and in every process call
//   inputs=N         input pins (default 2; negative counts are passed to the host as they are)
//   outputs=N        output pins (default 2; likewise)
//   sidechain        4 inputs: pins 0-1 a stereo pair, pins 2-3 a mono side-chain nobody reads
//   params=N         N parameters (default 1); parameter 0 is the gain, default 1.0
//   no-params        no parameters; the gain stays 1.0
//   editor[=WxH]     effFlagsHasEditor; effEditGetRect answers W by H (default 320x200)
//   chunks           effFlagsProgramChunks; effGetChunk and effSetChunk carry the parameters
//   latency=N        initialDelay = N
//   delay=N          the output is the input delayed by N frames; initialDelay and tail are N
//   tail=N           effGetTailSize answers N
//   double           effFlagsCanDoubleReplacing and processDoubleReplacing
//   no-replacing     no effFlagsCanReplacing and no processReplacing: only the accumulating
//                    process, which adds into the outputs
//   null-functions   processReplacing, setParameter and getParameter null, flags unchanged
//   hum              0.25 added to every output sample: the tail never falls silent
//   exit-at=PLACE    exit(0) at entry, open, process (the second block), editor (open), close
//   crash-at=PLACE   raise(SIGSEGV) at the same places
//   crash            the first process call with audio kills the process with SIGSEGV
// Without words: 2 inputs, 2 outputs, processReplacing, one parameter, output = input exactly.
// Output channel c carries input channel c (delayed, times the gain) while c is below the number
// of main inputs, and silence otherwise. TEST_EFFECT_LOG names a file for the call log.

#include "tests/plugins/effect_instance.h"

#include <cstdio>
#include <cstdlib>
#include <memory>
#include <stdexcept>
#include <string>

namespace test_effect {

AEffect* enter(audioMasterCallback host, Entry entry) {
    CallLog log(std::getenv("TEST_EFFECT_LOG"));
    log.line(entry == Entry::main ? "entry main" : "entry VSTPluginMain");
    const char* words = std::getenv("TEST_EFFECT");
    log.line("words " + std::string(words == nullptr ? "" : words));
    Options options;
    try {
        options = parseOptions(words == nullptr ? "" : words);
    } catch (const std::invalid_argument& error) {
        log.line(std::string("error ") + error.what());
        std::fprintf(stderr, "test_effect: %s\n", error.what());
        return nullptr;
    }
    if (options.print)
        say("entry");
    leaveIfAsked(options, log, "entry");
    auto instance = std::make_unique<TestEffect>(options, host, entry, log);
    instance->askHostAtEntry();
    if (options.throwEntry) {
        log.line("throw entry");
        throw std::runtime_error("test_effect: entry");
    }
    if (options.nullEntry)
        return nullptr;
    return handOver(std::move(instance));
}

} // namespace test_effect

extern "C" {

#ifdef TEST_EFFECT_UNRESOLVED_SYMBOL
// Defined nowhere: the system loader refuses the module, as it does a plug-in built against a
// library the machine lacks.
void testEffectMissingFunction();
#endif

#ifdef TEST_EFFECT_EXPORT_VST_PLUGIN_MAIN
__attribute__((visibility("default"))) AEffect* VSTPluginMain(audioMasterCallback host) {
#ifdef TEST_EFFECT_UNRESOLVED_SYMBOL
    testEffectMissingFunction();
#endif
    return test_effect::enter(host, test_effect::Entry::vstPluginMain);
}
#endif

#ifdef TEST_EFFECT_EXPORT_MAIN
// C++ reserves the name "main" for the program's entry; the asm label gives the exported symbol
// that name while the function keeps another.
__attribute__((visibility("default"))) AEffect*
vstMainEntry(audioMasterCallback host) __asm__("main");
AEffect* vstMainEntry(audioMasterCallback host) {
    return test_effect::enter(host, test_effect::Entry::main);
}
#endif
}
