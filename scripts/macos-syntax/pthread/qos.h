// Darwin's quality-of-service calls, declared for the Linux syntax check.
#pragma once
#include <pthread.h>

typedef enum {
    QOS_CLASS_USER_INTERACTIVE = 0x21,
    QOS_CLASS_USER_INITIATED = 0x19,
    QOS_CLASS_DEFAULT = 0x15,
    QOS_CLASS_UTILITY = 0x11,
    QOS_CLASS_BACKGROUND = 0x09,
    QOS_CLASS_UNSPECIFIED = 0x00,
} qos_class_t;
#ifdef __cplusplus
extern "C" {
#endif
int pthread_attr_set_qos_class_np(pthread_attr_t* attributes, qos_class_t qosClass,
                                  int relativePriority);
int pthread_get_qos_class_np(pthread_t thread, qos_class_t* qosClass, int* relativePriority);
#ifdef __cplusplus
}
#endif
