// Declarations of the CoreFoundation calls the macOS files make, for a syntax check on Linux
// against GNUstep's Foundation and AppKit. Only what the code uses; signatures as documented.
#pragma once
#include <stdint.h>

typedef unsigned char UInt8;
typedef unsigned char Boolean;
typedef long CFIndex;
typedef uint32_t CFStringEncoding;
typedef const void* CFTypeRef;
typedef const struct __CFAllocator* CFAllocatorRef;
typedef const struct __CFString* CFStringRef;
typedef const struct __CFURL* CFURLRef;
typedef struct __CFBundle* CFBundleRef;
typedef struct __CFError* CFErrorRef;

enum { kCFStringEncodingUTF8 = 0x08000100 };
#ifdef __cplusplus
extern "C" {
#endif
extern const CFAllocatorRef kCFAllocatorDefault;
void CFRelease(CFTypeRef object);
CFStringRef CFStringCreateWithCString(CFAllocatorRef allocator, const char* text,
                                      CFStringEncoding encoding);
CFURLRef CFURLCreateFromFileSystemRepresentation(CFAllocatorRef allocator, const UInt8* buffer,
                                                 CFIndex length, Boolean isDirectory);
CFBundleRef CFBundleCreate(CFAllocatorRef allocator, CFURLRef bundleURL);
void* CFBundleGetFunctionPointerForName(CFBundleRef bundle, CFStringRef functionName);
Boolean CFBundleLoadExecutableAndReturnError(CFBundleRef bundle, CFErrorRef* error);
#ifdef __cplusplus
}
#endif
