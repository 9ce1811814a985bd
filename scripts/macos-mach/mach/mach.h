// Stand-in for Darwin's <mach/mach.h>: only what the adapter's macOS files use (the task's
// resident memory), with the types and numbers of the SDK's declarations.
#pragma once

#include <cstdint>

typedef int kern_return_t;
typedef unsigned int natural_t;
typedef int integer_t;
typedef natural_t mach_port_t;
typedef natural_t mach_msg_type_number_t;
typedef natural_t task_flavor_t;
typedef integer_t* task_info_t;
typedef uint64_t mach_vm_size_t;
typedef int policy_t;
struct time_value {
    integer_t seconds;
    integer_t microseconds;
};
typedef struct time_value time_value_t;

#define KERN_SUCCESS 0
#define MACH_TASK_BASIC_INFO 20

struct mach_task_basic_info {
    mach_vm_size_t virtual_size;
    mach_vm_size_t resident_size;
    mach_vm_size_t resident_size_max;
    time_value_t user_time;
    time_value_t system_time;
    policy_t policy;
    integer_t suspend_count;
};
typedef struct mach_task_basic_info mach_task_basic_info_data_t;
#define MACH_TASK_BASIC_INFO_COUNT                                                                 \
    ((mach_msg_type_number_t)(sizeof(mach_task_basic_info_data_t) / sizeof(natural_t)))

extern "C" mach_port_t mach_task_self_;
#define mach_task_self() mach_task_self_
extern "C" kern_return_t task_info(mach_port_t task, task_flavor_t flavor, task_info_t info,
                                   mach_msg_type_number_t* count);
