#include "Process/BootHeartbeat.h"

#include <pthread.h>

#include "Util/CriticalSectionManager.h"

CBootHeartbeat* CBootHeartbeat::s_instance = nullptr;

namespace {
pthread_mutex_t g_instanceSection = PTHREAD_MUTEX_INITIALIZER;
}

CBootHeartbeat* CBootHeartbeat::GetInstance() {
    OCPP_SECTION(&g_instanceSection);
    if (s_instance == nullptr) s_instance = new CBootHeartbeat();
    return s_instance;
}

void CBootHeartbeat::Release() {
    CBootHeartbeat* instance;
    {
        OCPP_SECTION(&g_instanceSection);
        instance = s_instance;
        s_instance = nullptr;
    }
    delete instance;
}

#include <OcppProtocol.h>

int OcppProtocol_GetReconnctBackOffTime(void) { return 5; }
int OcppProtocol_BootNotification(BOOTREASON, const char*, const char*, const BootNotificationOption*) { return 1; }

int CBootHeartbeat::GetBootStatus() { return m_bootStatus.load(); }

void CBootHeartbeat::SetBootStatus(int status) { m_bootStatus.store(status); }
