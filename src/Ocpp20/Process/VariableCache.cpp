#include "Ocpp20/Process/VariableCache.h"

#include <pthread.h>

#include "Util/CriticalSectionManager.h"

CVariableCache* CVariableCache::s_instance = nullptr;

namespace {
pthread_mutex_t g_instanceSection = PTHREAD_MUTEX_INITIALIZER;
}

CVariableCache* CVariableCache::GetInstance() {
    OCPP_SECTION(&g_instanceSection);
    if (s_instance == nullptr) s_instance = new CVariableCache();
    return s_instance;
}

void CVariableCache::Release() {
    CVariableCache* instance;
    {
        OCPP_SECTION(&g_instanceSection);
        instance = s_instance;
        s_instance = nullptr;
    }
    delete instance;
}

int CVariableCache::SetStoreFile(const std::string&) { return 1; }

int CVariableCache::OCPPCommCtrlrOfflineThreshold() { return 10; }
