// glibc's x86-64 headers on an arm64 target pick their 32-bit stub list; the 64-bit one is right.
#include <gnu/stubs-64.h>
