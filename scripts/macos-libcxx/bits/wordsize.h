// glibc's x86-64 headers stand in for Darwin's C library on an arm64 target, where their own
// word-size test (__x86_64__) fails: arm64 macOS is LP64.
#define __WORDSIZE 64
#define __WORDSIZE_TIME64_COMPAT32 1
#define __SYSCALL_WORDSIZE 64
