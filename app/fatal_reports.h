#pragma once

#include <memory>

namespace Vesk {
class streamOut;
}

// Keeps the exit status honest when plug-in code ends the process. Installed once by main,
// before any plug-in loads; process-wide.
//
// - A plug-in that calls exit(): the output named below is flushed, "VST called exit" and the
//   stage go to standard error as one line, and the process ends with status 255.
// - A fatal signal (SIGSEGV, SIGBUS, SIGFPE, SIGILL, SIGABRT): one line "VST crashed with" the
//   signal's name and the stage, then the handler that was there before ours takes the signal,
//   so the process still dies by it. A plug-in that installs its own handlers keeps them.
void installFatalReports();

// The output that holds processed audio, flushed if a plug-in ends the process. Null for none.
void setOutputToFlushOnExit(std::shared_ptr<Vesk::streamOut> output);

// Our own way out has begun: exit handlers from here on belong to a normal end.
void markNormalExit();
