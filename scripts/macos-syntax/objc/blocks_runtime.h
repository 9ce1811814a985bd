// The block runtime GNUstep's headers ask for when the compiler has blocks (Linux syntax check).
#pragma once
#ifdef __cplusplus
extern "C" {
#endif
void* _Block_copy(const void* block);
void _Block_release(const void* block);
#ifdef __cplusplus
}
#endif
