#include "app/adapter_main.h"

#include "app/command_failure.h"
#include "app/fatal_reports.h"
#include "app/usage.h"
#include "app/validate_command.h"
#include "app/vst_globals.h"
#include "hosting/process_defaults.h"
#include "support/standard_streams.h"
#include "support/thread_platform.h"

#include <csignal>
#include <cstdio>
#include <exception>
#include <new>

namespace {
constexpr int failureStatus = 255;
constexpr int noDevNullStatus = 1;

int runWithProtectedOutput(int argc, const char* const* argv) {
    if (!Vesk::fix_stdout())
        return noDevNullStatus;

    VSTGlobals globals;
    globals.command = argv[1];
    globals.arguments = argumentsFromCommandLine(argc, argv);
    globals.output = Vesk::standardOutput();
    globals.input = Vesk::standardInput();
    setOutputToFlushOnExit(globals.output);
    const bool succeeded = mainWithGlobals(globals);
    // Data the output still buffers must reach the parent before we report success.
    if (globals.output)
        globals.output->flush();
    return succeeded ? 0 : failureStatus;
}

int runCommandLine(int argc, const char* const* argv) {
    if (argc < 2 || argc % 2 != 0) {
        std::fputs("Incorrect argument count.\n", stderr);
        return failureStatus;
    }
    // Never plug-in commands, so the parent's protocol is untouched; standard output is still ours.
    if (isUsageWord(argv[1])) {
        printUsage(argv[1]);
        return 0;
    }
    // A parent that stops reading, or a file size limit reached, must show up as a write error
    // that says so, not kill us silently.
    std::signal(SIGPIPE, SIG_IGN);
    std::signal(SIGXFSZ, SIG_IGN);
    installFatalReports();
    // So that the same input gives the same output with plug-ins that draw random numbers.
    restoreProcessDefaults();
    int status = failureStatus;
    try {
        // Validation loads no plug-in itself: its children do, each under the protections here.
        status = isValidateWord(argv[1]) ? runValidateCommand(argc, argv)
                                         : runWithProtectedOutput(argc, argv);
    } catch (const CommandFailure& failure) {
        std::fputs(failure.what(), stderr);
    } catch (const std::bad_alloc&) {
        std::fputs("out of memory\n", stderr);
        status = failureStatus;
    } catch (const std::exception& error) {
        std::fprintf(stderr, "%s\n", error.what());
        status = failureStatus;
    }
    // The plug-in is closed and unloaded by now: what exits from here on is ours.
    markNormalExit();
    Vesk::resetStandardStreams();
    return status;
}

} // namespace

int adapterMain(int argc, const char* const* argv) {
    int status = failureStatus;
    // On macOS whatever the system frameworks autorelease for us is freed on every way out.
    auto run = [&] { status = runCommandLine(argc, argv); };
    Vesk::threadPlatform::inReleaseScope(run);
    return status;
}
