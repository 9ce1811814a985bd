// Darwin's <TargetConditionals.h> (the VST 3 SDK reads it): clang predefines the TARGET_OS_
// macros; the CPU ones are those of the one target checked, arm64.
#pragma once
#define TARGET_CPU_ARM64 1
#define TARGET_CPU_ARM 0
#define TARGET_CPU_X86 0
#define TARGET_CPU_X86_64 0
#define TARGET_CPU_PPC 0
#define TARGET_CPU_PPC64 0
#define TARGET_RT_LITTLE_ENDIAN 1
#define TARGET_RT_BIG_ENDIAN 0
#define TARGET_RT_64_BIT 1
