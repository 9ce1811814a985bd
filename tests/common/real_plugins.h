#pragma once

#include "tests/common/child_process.h"

namespace testing_support {

// How tests run the adapter on installed third-party plug-ins: no display (commands that never
// open an editor must work without one), a throw-away HOME for plug-ins that write settings
// there (one per test process, removed when it ends), and, under AddressSanitizer, no leak
// report: leaks inside third-party plug-ins are theirs, our own code is leak-checked with the
// in-tree plug-ins.
ChildOptions headless();

} // namespace testing_support
