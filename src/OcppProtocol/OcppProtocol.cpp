#include "OcppProtocol/OcppProtocol.h"

#include <pthread.h>

#include <cstdio>

#include "Util/CriticalSectionManager.h"

namespace {
OcppLogCallBack g_logCallBack = nullptr;
pthread_mutex_t g_logSection = PTHREAD_MUTEX_INITIALIZER;
}

void OcppProtocol_SetLog(OcppLogCallBack callback) {
    OCPP_SECTION(&g_logSection);
    g_logCallBack = callback;
}

void OcppProtocol_WriteLog(int level, const char* function, const char* file, int line, const char* text) {
    OCPP_SECTION(&g_logSection);
    if (g_logCallBack != nullptr) {
        g_logCallBack(static_cast<LOGLEVEL>(level), function, file, line, text);
    } else {
        fputs(text, stdout);
        fputc('\n', stdout);
        fflush(stdout);
    }
}
