// The libdispatch calls the macOS files make, declared for the Linux syntax check.
#pragma once
#include <stdint.h>

typedef struct dispatch_source_s* dispatch_source_t;
typedef struct dispatch_queue_s* dispatch_queue_t;
typedef const struct dispatch_source_type_s* dispatch_source_type_t;
typedef void (^dispatch_block_t)(void);
#ifdef __cplusplus
extern "C" {
#endif
extern const struct dispatch_source_type_s _dispatch_source_type_signal;
#define DISPATCH_SOURCE_TYPE_SIGNAL (&_dispatch_source_type_signal)
dispatch_queue_t dispatch_get_main_queue(void);
dispatch_source_t dispatch_source_create(dispatch_source_type_t type, uintptr_t handle,
                                         uintptr_t mask, dispatch_queue_t queue);
void dispatch_source_set_event_handler(dispatch_source_t source, dispatch_block_t handler);
void dispatch_resume(dispatch_source_t object);
#ifdef __cplusplus
}
#endif
