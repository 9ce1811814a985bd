// macOS: the function rides on a small object that the main thread's run loop messages.
#include "hosting/editor/main_thread.h"

#import <Foundation/Foundation.h>

#include <utility>

@interface XMainThreadSyncObj : NSObject
@property(nonatomic, assign) std::function<void()> f;
- (void)run:(id)unused;
@end

@implementation XMainThreadSyncObj
- (void)run:(id)unused {
    if (_f)
        _f();
}
@end

void runOnMainThread(std::function<void()> function) {
    XMainThreadSyncObj* object = [[XMainThreadSyncObj alloc] init];
    object.f = std::move(function);
    // The run loop keeps the object until run: has been called.
    [object performSelectorOnMainThread:@selector(run:) withObject:object waitUntilDone:NO];
    [object release];
}
