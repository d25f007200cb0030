#include "Process/ConnectManager.h"

#include "Util/CriticalSectionManager.h"

CConnectManager* CConnectManager::s_instance = nullptr;

namespace {
pthread_mutex_t g_instanceSection = PTHREAD_MUTEX_INITIALIZER;
}

CConnectManager* CConnectManager::GetInstance() {
    OCPP_SECTION(&g_instanceSection);
    if (s_instance == nullptr) s_instance = new CConnectManager();
    return s_instance;
}

void CConnectManager::Release() {
    CConnectManager* instance;
    {
        OCPP_SECTION(&g_instanceSection);
        instance = s_instance;
        s_instance = nullptr;
    }
    delete instance;
}

CConnectManager::CConnectManager() { pthread_mutex_init(&m_mutex, nullptr); }

CConnectManager::~CConnectManager() { pthread_mutex_destroy(&m_mutex); }

int CConnectManager::SetStoreFile(const std::string& path) {
    OCPP_SECTION(&m_mutex);
    m_storeFile = path;
    return 1;
}

int CConnectManager::ActiveConnect() { return 1; }

int CConnectManager::IsResetFactoryConfig() { return 0; }

// ---- Host entries (filled in as the manager grows) ----
#include <OcppProtocol.h>

int OcppProtocol_SetConnection(OCPPPROTOCOL, const char*, CONNTYPE, int) { return 1; }
int OcppProtocol_SetConnectParam(int, int, int, int, int) { return 1; }
int OcppProtocol_SetSsl(const char*, const char*, const char*) { return 1; }
int OcppProtocol_SetNamePwd(const char*, const char*) { return 1; }
int OcppProtocol_SetPwd(const char*) { return 1; }
int OcppProtocol_SetOfflineMode(int) { return 1; }
int OcppProtocol_ImmediatelyReconnect(void) { return 0; }
int OcppProtocol_TestConnection(const char*, int, ConnectParam*) { return 0; }
