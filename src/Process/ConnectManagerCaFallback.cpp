#include "Process/ConnectManager.h"

#include <cerrno>
#include <cstdio>

#include "Util/CriticalSectionManager.h"
#include "Util/FileUtil.h"
#include "Util/Tools.h"
#include "WebSocket/Optee.h"

namespace {
pthread_mutex_t g_certDirSection = PTHREAD_MUTEX_INITIALIZER;
std::string g_strCertDir = "/usrfs/conf/ocpp20/cert/";  // with trailing "/"

bool HasContent(const std::string& path) {
    std::string text;
    return CFileUtil::ReadFile(path, text) && !text.empty();
}
}  // namespace

void CConnectManager::SetCertDir(const std::string& dir) {
    OCPP_SECTION(&g_certDirSection);
    g_strCertDir = dir;
    if (g_strCertDir.empty() || g_strCertDir.back() != '/') g_strCertDir += "/";
}

std::string CConnectManager::GetCertDir() {
    OCPP_SECTION(&g_certDirSection);
    return g_strCertDir;
}

int CConnectManager::IsSupportSecurity2() { return HasContent(GetCertDir() + "ca.crt") ? 1 : 0; }

int CConnectManager::IsSupportSecurity3() {
    return IsSupportSecurity2() == 1 && Optee_IsTlsPrivateKeyExist() && Optee_IsTlsTlsCertExist() ? 1 : 0;
}

void CConnectManager::CertificateFallback() {
    const std::string fallback = GetCertDir() + "ca_fallback.crt";
    std::string text;
    if (!CFileUtil::Exists(fallback) || !CFileUtil::ReadFile(fallback, text)) return;
    {
        OCPP_SECTION(&m_connLock);
        m_strCa = text;
    }
    RemoveFallBackCertificate();
}

int CConnectManager::RemoveFallBackCertificate() {
    // A rename does what "rm ca.crt; mv ca_fallback.crt ca.crt" did, without a shell.
    const std::string dir = GetCertDir();
    if (rename((dir + "ca_fallback.crt").c_str(), (dir + "ca.crt").c_str()) != 0) {
        LOG_ERROR("RemoveFallBackCertificate failed, errno=%d", errno);
        return 0;
    }
    return 1;
}
