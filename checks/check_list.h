#pragma once

#include "checks/check.h"

// The checks' functions, one file each; listed together in check_list.cpp.
CheckResult runLoadCheck(const CheckTarget& target);
CheckResult runInfoCheck(const CheckTarget& target);
CheckResult runProcessCheck(const CheckTarget& target);
CheckResult runBlockSizeCheck(const CheckTarget& target);
CheckResult runDeterminismCheck(const CheckTarget& target);
CheckResult runLatencyCheck(const CheckTarget& target);
CheckResult runTailCheck(const CheckTarget& target);
CheckResult runStateCheck(const CheckTarget& target);
CheckResult runParametersCheck(const CheckTarget& target);
CheckResult runSpeedCheck(const CheckTarget& target);
CheckResult runReopenCheck(const CheckTarget& target);
CheckResult runSuspendResumeCheck(const CheckTarget& target);
CheckResult runRealtimeSafetyCheck(const CheckTarget& target);
CheckResult runThreadsCheck(const CheckTarget& target);
CheckResult runEditorCheck(const CheckTarget& target);
CheckResult runBusLayoutsCheck(const CheckTarget& target);
