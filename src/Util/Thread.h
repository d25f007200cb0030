#pragma once
#include <pthread.h>

// Creates a joinable thread with default attributes; the attribute argument is not used.
pthread_t LinuxCreateThread(pthread_attr_t* attributes, void* (*body)(void*), void* argument);
