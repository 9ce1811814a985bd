// Methods the macOS files call that Apple's SDK has and GNUstep's headers lack (Linux syntax
// check only; signatures as Apple documents them).
#pragma once
#import <AppKit/AppKit.h>

@interface NSWindow (AppleOnly)
- (void)setStyleMask:(NSUInteger)styleMask;
@end
