#include "Process/ConnectorManager.h"

#include <pthread.h>

#include "Util/CriticalSectionManager.h"

CConnectorManager* CConnectorManager::s_instance = nullptr;

namespace {
pthread_mutex_t g_instanceSection = PTHREAD_MUTEX_INITIALIZER;
}

CConnectorManager* CConnectorManager::GetInstance() {
    OCPP_SECTION(&g_instanceSection);
    if (s_instance == nullptr) s_instance = new CConnectorManager();
    return s_instance;
}

void CConnectorManager::Release() {
    CConnectorManager* instance;
    {
        OCPP_SECTION(&g_instanceSection);
        instance = s_instance;
        s_instance = nullptr;
    }
    delete instance;
}

void CConnectorManager::ReportAllConnectorStatus() {}

void CConnectorManager::ReportAllCacheConnectorStatus() {}
