#include "Process/ConnectManager.h"

#include <cerrno>
#include <cstdio>
#include <cstring>

#include "Util/CriticalSectionManager.h"
#include "Util/Tools.h"

namespace {
pthread_mutex_t g_targetSection = PTHREAD_MUTEX_INITIALIZER;
std::string g_strCheckTarget;  // empty: no diagnostic ping
const int kNetworkCheckPeriodSec = 60;

// The ping target goes to a shell: host names and addresses only.
bool IsSafeHost(const std::string& host) {
    if (host.empty() || host.size() > 253 || host[0] == '-') return false;
    for (char c : host) {
        if (!isalnum(static_cast<unsigned char>(c)) && c != '.' && c != ':' && c != '-') return false;
    }
    return true;
}
}  // namespace

void CConnectManager::SetNetworkCheckTarget(const std::string& target) {
    OCPP_SECTION(&g_targetSection);
    g_strCheckTarget = target;
}

void CConnectManager::SetCheckNetworkEnable(int enable) {
    m_bCheckNetwork = enable;
    OCPP_SECTION(&m_checkLock);
    m_checkCv.notify_all();
}

int CConnectManager::CheckNetworkOnce() {
    if (m_bCheckNetwork.load() == 0) return 0;
    std::string target;
    {
        OCPP_SECTION(&g_targetSection);
        target = g_strCheckTarget;
    }
    if (target.empty()) return 0;
    const int64_t now = CTools::GetCurRunTimeSec();
    if (m_iLastPingSec != 0 && now - m_iLastPingSec < kNetworkCheckPeriodSec) return 0;
    m_iLastPingSec = now;
    if (!IsSafeHost(target)) {
        LOG_ERROR("==================================================>Ping error:%s", target.c_str());
        return 0;
    }
    const std::string command = "ping -c 4 -w 5 " + target + " 2>&1";
    FILE* pipe = popen(command.c_str(), "r");
    if (pipe == nullptr) {
        LOG_ERROR("==================================================>Ping error:%s", strerror(errno));
        return 0;
    }
    LOG_INFO("==================================================>Ping result:");
    char line[512];
    while (fgets(line, sizeof line, pipe) != nullptr) LOG_INFO("%s", line);
    pclose(pipe);
    LOG_INFO("==================================================>Ping over");
    return 1;
}

void* CConnectManager::CheckNetworkProc(void* self) {
    CConnectManager* manager = static_cast<CConnectManager*>(self);
    while (!manager->m_bStop.load()) {
        manager->CheckNetworkOnce();
        OCPP_SECTION_NAMED(guard, &manager->m_checkLock);
        manager->m_checkCv.wait_for(guard, std::chrono::seconds(kNetworkCheckPeriodSec),
                                    [manager] { return manager->m_bStop.load() != 0; });
    }
    return nullptr;
}
