#include "app/adapter_main.h"

#include "app/command_failure.h"
#include "app/fatal_reports.h"
#include "app/scan_command.h"
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
    // Here, not in a destructor, so that a plug-in that throws as it closes is reported.
    globals.plugin.close();
    // Data the output still buffers must reach the parent before we report success.
    if (globals.output)
        globals.output->flush();
    return succeeded ? 0 : failureStatus;
}

// Every failure is one line on standard error and status 255.
template <typename Run> int reportingFailures(Run&& run) {
    try {
        return run();
    } catch (const CommandFailure& failure) {
        std::fputs(failure.what(), stderr);
    } catch (const std::bad_alloc&) {
        std::fputs("out of memory\n", stderr);
    } catch (const std::exception& error) {
        std::fprintf(stderr, "%s\n", error.what());
    }
    return failureStatus;
}

int runCommandLine(int argc, const char* const* argv) {
    if (argc < 2 || argc % 2 != 0) {
        std::fputs("Incorrect argument count.\n", stderr);
        return failureStatus;
    }
    // A parent that stops reading, or a file size limit reached, must show up as a write error
    // that says so, not kill us silently.
    std::signal(SIGPIPE, SIG_IGN);
    std::signal(SIGXFSZ, SIG_IGN);
    // Never plug-in commands, so the parent's protocol is untouched; standard output is still ours.
    if (isUsageWord(argv[1]))
        return reportingFailures([&] {
            printUsage(argv[1]);
            return 0;
        });
    installFatalReports();
    // So that the same input gives the same output with plug-ins that draw random numbers.
    restoreProcessDefaults();
    // The scan and validation load no plug-in themselves: their children do, each under the
    // protections here.
    const int status = reportingFailures([&] {
        if (isScanWord(argv[1]))
            return runScanCommand(argc, argv);
        if (isValidateWord(argv[1]))
            return runValidateCommand(argc, argv);
        return runWithProtectedOutput(argc, argv);
    });
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
