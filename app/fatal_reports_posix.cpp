#include "app/fatal_reports.h"

#include "hosting/plugin_stage.h"
#include "support/stream.h"

#include <atomic>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <iterator>
#include <unistd.h>

namespace {

constexpr int failureStatus = 255;

struct FatalSignal {
    int number;
    const char* name;
};

constexpr FatalSignal fatalSignals[] = {
    {SIGSEGV, "SIGSEGV"}, {SIGBUS, "SIGBUS"},   {SIGFPE, "SIGFPE"},
    {SIGILL, "SIGILL"},   {SIGABRT, "SIGABRT"},
};

// Exit and signal handlers reach nothing else: these few must be process-wide.
struct sigaction previousActions[std::size(fatalSignals)];
std::atomic<bool> reported{false};
std::atomic<bool> normalExit{false};
std::shared_ptr<Vesk::streamOut> outputToFlush;
// Room for the handler when a plug-in has used up the main thread's stack.
alignas(16) char alternateStack[1 << 16];

void writeText(const char* text) {
    size_t left = std::strlen(text);
    while (left > 0) {
        const ssize_t written = ::write(STDERR_FILENO, text, left);
        if (written <= 0)
            return;
        text += written;
        left -= static_cast<size_t>(written);
    }
}

// One line, only from the first thread to get here.
void reportLine(const char* what, const char* detail) {
    if (reported.exchange(true))
        return;
    writeText(what);
    if (detail != nullptr) {
        writeText(" ");
        writeText(detail);
    }
    if (const char* stage = pluginStageName(currentPluginStage())) {
        writeText(" (stage: ");
        writeText(stage);
        writeText(")");
    }
    writeText("\n");
}

void onFatalSignal(int number, siginfo_t* info, void*) {
    size_t index = 0;
    while (index < std::size(fatalSignals) && fatalSignals[index].number != number)
        ++index;
    if (index == std::size(fatalSignals))
        return;
    reportLine("VST crashed with", fatalSignals[index].name);
    ::sigaction(number, &previousActions[index], nullptr);
    // A fault comes back when the instruction runs again; a sent signal must be sent again.
    // Either way the handler that was there before ours decides (by default: death by it).
    if (info == nullptr || info->si_code <= 0)
        ::raise(number);
}

void onExit() {
    if (normalExit.load())
        return;
    // Plug-in code called exit(): what was processed still reaches the parent, and the status
    // says the run did not finish.
    try {
        if (outputToFlush)
            outputToFlush->flush();
    } catch (...) {
    }
    reportLine("VST called exit", nullptr);
    ::_exit(failureStatus);
}

} // namespace

void installFatalReports() {
    stack_t stack{};
    stack.ss_sp = alternateStack;
    stack.ss_size = sizeof alternateStack;
    ::sigaltstack(&stack, nullptr);
    for (size_t index = 0; index < std::size(fatalSignals); ++index) {
        struct sigaction action {};
        action.sa_sigaction = onFatalSignal;
        action.sa_flags = SA_SIGINFO | SA_ONSTACK;
        sigemptyset(&action.sa_mask);
        ::sigaction(fatalSignals[index].number, &action, &previousActions[index]);
    }
    std::atexit(onExit);
}

void setOutputToFlushOnExit(std::shared_ptr<Vesk::streamOut> output) {
    outputToFlush = std::move(output);
}

void markNormalExit() {
    normalExit.store(true);
    outputToFlush.reset();
}
