#include "Util/Thread.h"

#include <cstring>

#include "Util/Tools.h"

pthread_t LinuxCreateThread(pthread_attr_t* /*attributes*/, void* (*body)(void*), void* argument) {
    pthread_t handle{};
    const int rc = pthread_create(&handle, nullptr, body, argument);
    if (rc != 0) {
        LOG_ERROR("pthread_create failed: %s", strerror(rc));
        return pthread_t{};
    }
    return handle;
}
