#include "platform/thread.h"

#include <cerrno>
#include <pthread.h>
#include <pthread/qos.h>

int platform_thread_give_way()
{
    const int error = pthread_set_qos_class_self_np(QOS_CLASS_UTILITY, 0);
    errno = error;
    return error == 0 ? 0 : -1;
}
