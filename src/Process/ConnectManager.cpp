#include "Process/ConnectManager.h"

#include <openssl/evp.h>

#include <algorithm>
#include <cstring>
#include <sstream>

#include "Process/ConnectLink.h"
#include "Util/CriticalSectionManager.h"
#include "Util/Thread.h"
#include "Util/Tools.h"
#include "WebSocket/WebSocketClient.h"

namespace {
std::string Base64(const void* data, size_t len) {
    std::string out(4 * ((len + 2) / 3) + 1, '\0');
    const int n = EVP_EncodeBlock(reinterpret_cast<unsigned char*>(&out[0]), static_cast<const unsigned char*>(data),
                                  static_cast<int>(len));
    out.resize(n > 0 ? static_cast<size_t>(n) : 0);
    return out;
}
}  // namespace

// ---- Lifetime -----------------------------------------------------------------

CConnectManager::CConnectManager() : CJsonStore(StoreTexts(), StoreShape()) {
    pthread_mutex_init(&m_connLock, nullptr);
    pthread_mutex_init(&m_listLock, nullptr);
    pthread_mutex_init(&m_checkLock, nullptr);
    memset(&m_curConnItem, 0, sizeof m_curConnItem);
    StartCheckThread();
}

void CConnectManager::StartCheckThread() {
    m_checkThread = LinuxCreateThread(nullptr, CheckNetworkProc, this);
    m_bCheckThreadStarted = true;
}

// Never freed: senders and link events may still hold the pointer. A release stops the
// threads and the client, then puts every setting back to its constructed value; the
// generation keeps counting, so a late event of the old client is still dropped.
void CConnectManager::ResetInPlace() {
    Shutdown();
    Unbind();
    {
        OCPP_SECTION(&m_listLock);
        m_ConnItemVec.clear();
        m_strConnectPriority = "1";
        m_strFactoryConfigBase64.clear();
    }
    {
        OCPP_SECTION(&m_connLock);
        m_iNextConnTimeSec = 0;
        m_iNextConnTimeSpace = 0;
        m_iCurRetryCount = 0;
        memset(&m_curConnItem, 0, sizeof m_curConnItem);
        m_iTestAttempts = 1;
        m_iBackOffMinimum = 3;
        m_iBackOffRandomRange = 0;
        m_iBackOffRepeatTimes = 0;
        m_iEarlyStart = 0;
        m_iOfflineTimeSec = 0;
        m_iTestResult = -1;
        m_strCert.clear();
        m_strKey.clear();
        m_strCa.clear();
        m_strName.clear();
        m_strPwd.clear();
        m_bWake = false;
    }
    m_bTestConnectRequest = 0;
    m_bOfflineMode = 0;
    m_bResetFactoryConfig = 0;
    m_bTesting = 1;
    m_bCheckNetwork = 0;
    m_iLastPingSec = 0;
    m_bConnected = 0;
    m_bAcceptedByCsms = 0;
    m_bStop = 0;
    m_bCheckAfterReset = true;
}

void CConnectManager::Resume() {
    if (m_bCheckAfterReset.exchange(false)) StartCheckThread();
}

CConnectManager::~CConnectManager() {
    Shutdown();
    pthread_mutex_destroy(&m_checkLock);
    pthread_mutex_destroy(&m_listLock);
    pthread_mutex_destroy(&m_connLock);
}

void CConnectManager::Shutdown() {
    m_bStop = 1;
    Wake();
    {
        OCPP_SECTION(&m_connLock);
        m_testCv.notify_all();
    }
    {
        OCPP_SECTION(&m_checkLock);
        m_checkCv.notify_all();
    }
    bool joinConnect;
    {
        OCPP_SECTION(&m_connLock);
        joinConnect = m_bConnectThreadStarted;
        m_bConnectThreadStarted = false;
    }
    if (joinConnect) pthread_join(m_connectThread, nullptr);
    if (m_bCheckThreadStarted) {
        pthread_join(m_checkThread, nullptr);
        m_bCheckThreadStarted = false;
    }
    std::shared_ptr<ConnectLink> link;
    {
        OCPP_SECTION(&m_connLock);
        link = m_pLink;
        m_pLink.reset();
        ++m_iGeneration;
    }
    // A sender blocked on the link holds its own reference; closing wakes it and
    // stops the client's upcalls before this manager can be freed.
    if (link) link->client->Close();
    link.reset();
}

void CConnectManager::Wake() {
    OCPP_SECTION(&m_connLock);
    m_bWake = true;
    m_wakeCv.notify_all();
}

bool CConnectManager::WaitWake(int milliseconds) {
    OCPP_SECTION_NAMED(guard, &m_connLock);
    if (!m_bWake && !m_bStop.load())
        m_wakeCv.wait_for(guard, std::chrono::milliseconds(milliseconds), [this] { return m_bWake || m_bStop.load(); });
    m_bWake = false;
    return !m_bStop.load();
}

// ---- Settings -----------------------------------------------------------------

void CConnectManager::SetConnectParam(int testAttempts, int minimum, int range, int repeat, int earlyStart) {
    OCPP_SECTION(&m_connLock);
    if (testAttempts > 1) m_iTestAttempts = testAttempts;
    if (minimum > 3) m_iBackOffMinimum = minimum;
    if (range > 0) m_iBackOffRandomRange = range;
    if (repeat > 0) m_iBackOffRepeatTimes = repeat;
    if (earlyStart != 0 && earlyStart < minimum - 10) m_iEarlyStart = static_cast<uint8_t>(earlyStart);
}

void CConnectManager::SetSsl(const char* cert, const char* key, const char* ca) {
    OCPP_SECTION(&m_connLock);
    m_strCert = cert != nullptr ? cert : "";
    m_strKey = key != nullptr ? key : "";
    m_strCa = ca != nullptr ? ca : "";
}

void CConnectManager::SetNamePwd(const char* name, const char* password) {
    OCPP_SECTION(&m_connLock);
    m_strName = name != nullptr ? name : "";
    m_strPwd = password != nullptr ? password : "";
}

void CConnectManager::SetOfflineMode(int enable) { m_bOfflineMode = enable; }

// ---- Profiles -----------------------------------------------------------------

void CConnectManager::AddCustomItem(OCPPPROTOCOL protocol, const char* url, int connType, int messageTimeout) {
    if (url == nullptr || url[0] == '\0') {
        LOG_ERROR("Url is empty!!!");
        return;
    }
    LOG_INFO("Add custom connection:%s", url);
    ConnectionItem item;
    memset(&item, 0, sizeof item);  // the raw bytes are fingerprinted
    item.id = 1;
    item.priority = 1;
    item.protocol = protocol;
    item.connType = connType;
    item.messageTimeout = messageTimeout == 0 ? 5 : ClampMessageTimeout(messageTimeout);
    CTools::CopyField(item.url, url);
    const std::string fingerprint = Base64(&item, sizeof item);
    bool changed = false;
    bool reset = false;
    {
        OCPP_SECTION(&m_listLock);
        if (!m_strFactoryConfigBase64.empty() && m_strFactoryConfigBase64 != fingerprint) {
            changed = true;
            m_ConnItemVec.clear();
        }
        if (m_ConnItemVec.empty()) {
            reset = true;
            m_ConnItemVec.push_back(item);
            m_strConnectPriority = "1";
        }
        m_strFactoryConfigBase64 = fingerprint;
    }
    if (changed) {
        CTools::Log(OCPP_LOG_ERROR, __FUNCTION__, __FILE__, __LINE__,
                    "----------------------------The factory configuration is changed------------------------");
        OCPP_SECTION(&m_connLock);
        memset(&m_curConnItem, 0, sizeof m_curConnItem);
    }
    if (reset) {
        m_bResetFactoryConfig = 1;
        m_bAcceptedByCsms = 0;
    }
    SyncToFile();
    Wake();
}

int CConnectManager::AddConnItem(const ConnectionItem& item) {
    ConnectionItem copy = item;
    copy.url[sizeof copy.url - 1] = '\0';
    copy.messageTimeout = ClampMessageTimeout(copy.messageTimeout);
    {
        OCPP_SECTION(&m_listLock);
        m_ConnItemVec.erase(std::remove_if(m_ConnItemVec.begin(), m_ConnItemVec.end(),
                                           [&](const ConnectionItem& c) { return c.id == copy.id; }),
                            m_ConnItemVec.end());
        if (m_ConnItemVec.size() >= kMaxProfiles) return 0;
        m_ConnItemVec.push_back(copy);
    }
    SyncToFile();
    Wake();
    return 1;
}

std::vector<int> CConnectManager::SplitPriority(const std::string& list) {
    std::vector<int> ids;
    std::stringstream in(list);
    std::string part;
    while (std::getline(in, part, ',')) {
        part.erase(0, part.find_first_not_of(" \t"));
        part.erase(part.find_last_not_of(" \t") + 1);
        if (!CTools::IsInt(part)) return {};
        ids.push_back(atoi(part.c_str()));
    }
    return ids;
}

int CConnectManager::ResetAllPriority(const std::string& list) {
    const std::vector<int> ids = SplitPriority(list);
    if (ids.empty()) return 0;
    const int support2 = IsSupportSecurity2();
    const int support3 = IsSupportSecurity3();
    {
        OCPP_SECTION(&m_listLock);
        std::vector<ConnectionItem> items = m_ConnItemVec;
        const int n = static_cast<int>(ids.size());
        for (int i = 0; i < n; ++i) {
            auto it = std::find_if(items.begin(), items.end(), [&](const ConnectionItem& c) { return c.id == ids[i]; });
            if (it == items.end()) return 0;
            if (it->connType == CONNTYPE_TLS_BASIC && support2 != 1) return 0;
            if (it->connType == CONNTYPE_TLS_CLIENT_CERT && support3 != 1) return 0;
            it->priority = n - i;
        }
        m_ConnItemVec = items;
        m_strConnectPriority = list;
    }
    SyncToFile();
    return 1;
}


void CConnectManager::BackUpCurConnectionItem(const ConnectionItem& item) {
    bool urlChanged;
    {
        OCPP_SECTION(&m_connLock);
        urlChanged = strcmp(m_curConnItem.url, item.url) != 0;
        m_curConnItem = item;
    }
    if (urlChanged) m_bAcceptedByCsms = 0;
}

void CConnectManager::RemoveLowerConnInfo() {
    const ConnectionItem cur = GetCurConnItem();
    OCPP_SECTION(&m_listLock);
    m_ConnItemVec.erase(std::remove_if(m_ConnItemVec.begin(), m_ConnItemVec.end(),
                                       [&](const ConnectionItem& c) { return c.connType < cur.connType; }),
                        m_ConnItemVec.end());
    if (m_ConnItemVec.empty() && cur.url[0] != '\0') m_ConnItemVec.push_back(cur);
}

// ---- Sending ------------------------------------------------------------------

int CConnectManager::SendMessage(const char* message, int length) {
    std::shared_ptr<ConnectLink> link;
    {
        OCPP_SECTION(&m_connLock);
        link = m_pLink;
    }
    return link ? link->client->SendMessage(message, length) : 0;
}

int CConnectManager::SendMessage(const char* messageId, const char* message, int length, char* answer,
                                 int* answerLength) {
    std::shared_ptr<ConnectLink> link;
    {
        OCPP_SECTION(&m_connLock);
        link = m_pLink;
    }
    return link ? link->client->SendMessage(messageId, message, length, answer, answerLength) : 0;
}

void CConnectManager::SetWebSocketPingInterval(int seconds) {
    std::shared_ptr<ConnectLink> link;
    {
        OCPP_SECTION(&m_connLock);
        link = m_pLink;
    }
    if (link) link->client->SetPingInterval(seconds);
}

// ---- State --------------------------------------------------------------------

int CConnectManager::IsConnected() { return m_bConnected.load(); }

int64_t CConnectManager::GetLastOperateTimeSec() {
    std::shared_ptr<ConnectLink> link;
    {
        OCPP_SECTION(&m_connLock);
        link = m_pLink;
    }
    return link ? link->client->GetLastOperateTimeSec() : 0;
}

OCPPPROTOCOL CConnectManager::GetCurOcppProtocol() {
    return static_cast<OCPPPROTOCOL>(GetCurConnItem().protocol);
}

int CConnectManager::GetCurConnID() { return GetCurConnItem().id; }

int CConnectManager::IsTestConnectIng() { return m_bTesting.load(); }

int CConnectManager::IsResetFactoryConfig() { return m_bResetFactoryConfig.load(); }

int CConnectManager::IsAcceptedByCsms() { return m_bAcceptedByCsms.load(); }

void CConnectManager::SetAcceptedByCsms(int accepted) {
    if (m_bAcceptedByCsms.exchange(accepted != 0 ? 1 : 0) == (accepted != 0 ? 1 : 0)) return;
    SyncToFile();
}

std::vector<ConnectionItem> CConnectManager::GetConnItems() {
    OCPP_SECTION(&m_listLock);
    return m_ConnItemVec;
}

ConnectionItem CConnectManager::GetCurConnItem() {
    OCPP_SECTION(&m_connLock);
    return m_curConnItem;
}

std::string CConnectManager::GetConnectPriority() {
    OCPP_SECTION(&m_listLock);
    return m_strConnectPriority;
}

int64_t CConnectManager::GetNextConnTimeSec() {
    OCPP_SECTION(&m_connLock);
    return m_iNextConnTimeSec;
}

int CConnectManager::GetNextConnTimeSpace() {
    OCPP_SECTION(&m_connLock);
    return m_iNextConnTimeSpace;
}

int CConnectManager::GetCurRetryCount() {
    OCPP_SECTION(&m_connLock);
    return m_iCurRetryCount;
}

int64_t CConnectManager::GetOfflineTimeSec() {
    OCPP_SECTION(&m_connLock);
    return m_iOfflineTimeSec;
}
