#include "Process/ConnectManager.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "Ocpp20/Process/VariableCache.h"
#include "OcppProtocol/OcppProtocol.h"
#include "Process/ConnectLink.h"
#include "Util/CriticalSectionManager.h"
#include "Util/Thread.h"
#include "Util/Tools.h"
#include "WebSocket/WebSocketClient.h"

namespace {
std::atomic<CConnectManager::TestConnectFn> g_testConnectHook{nullptr};

int32_t RunSec() { return static_cast<int32_t>(CTools::GetCurRunTimeSec()); }

const char* ProtocolName(int protocol, char* buffer) {
    buffer[0] = '\0';
    OcppProtocol_GetOcppProtocolType(static_cast<OCPPPROTOCOL>(protocol), buffer);
    return buffer;
}
}  // namespace

void CConnectManager::SetTestConnectHook(TestConnectFn hook) { g_testConnectHook = hook; }

// ---- Link events ------------------------------------------------------------

void CConnectManager::OnLinkUp(uint64_t generation) {
    if (m_bStop.load()) return;
    {
        OCPP_SECTION(&m_connLock);
        if (generation != m_iGeneration) return;  // a replaced client
    }
    LOG_INFO("COcppWebSocketClientCallBack::OnConnectSuccess\n");
    ItemConnect();
    if (IsTestConnectIng()) return;
    SetCheckNetworkEnable(0);
    OcppProtocol_SetStatus(SDKSTATUS_CONNECTED);
    OcppProtocolCallBack* host = g_pOcppProtocolCallBack.load();
    if (host != nullptr && host->OnConnected != nullptr) host->OnConnected();
    char name[10];
    LOG_INFO("OnConnectSuccess Protocol:%s\n", ProtocolName(g_eOcppProtocol.load(), name));
}

void CConnectManager::OnLinkDown(uint64_t generation) {
    if (m_bStop.load()) return;
    {
        OCPP_SECTION(&m_connLock);
        if (generation != m_iGeneration) return;
    }
    LOG_INFO("COcppWebSocketClientCallBack::OnConnectError\n");
    ItemDisConnect();
    if (IsTestConnectIng()) return;
    SetCheckNetworkEnable(1);
    OcppProtocol_SetStatus(SDKSTATUS_DISCONNECTED);
    OcppProtocolCallBack* host = g_pOcppProtocolCallBack.load();
    if (host != nullptr && host->OnDisconnected != nullptr) host->OnDisconnected();
    char name[10];
    LOG_INFO("OnConnectError Protocol:%s\n", ProtocolName(g_eOcppProtocol.load(), name));
}

// ---- Connecting ---------------------------------------------------------------

std::string CConnectManager::CombineUrl(const std::string& identity, const std::string& protocol) {
    if (identity.empty()) {
        LOG_ERROR("SecurityCtrlr_Identity not configured");
        return "";
    }
    std::string url;
    if (protocol == "OCPP16") {
        url = "ocpp1.6://";
    } else if (protocol == "OCPP20") {
        url = "ocpp2.0.1://";
    } else {
        return "";
    }
    const std::string base = GetCurConnItem().url;
    if (base.compare(0, 6, "wss://") == 0) {
        url += base.substr(6);
    } else if (base.compare(0, 5, "ws://") == 0) {
        url += base.substr(5);
    } else {
        return "";
    }
    return url + "/" + identity;
}

void CConnectManager::StartClient(const ConnectionItem& item, bool test) {
    // Read before any lock of ours: the variable cache calls into us with its own held.
    const std::string identity = CVariableCache::GetInstance()->SecurityCtrlrIdentity();
    std::shared_ptr<ConnectLink> old;
    std::string cert, key, ca, name, pwd;
    uint64_t generation;
    bool urlChanged;
    {
        OCPP_SECTION(&m_connLock);
        if (!test) m_iNextConnTimeSec = 0;
        urlChanged = strcmp(m_curConnItem.url, item.url) != 0;
        old = m_pLink;
        m_pLink.reset();
        cert = m_strCert;
        key = m_strKey;
        ca = m_strCa;
        name = m_strName;
        pwd = m_strPwd;
        m_curConnItem = item;
        generation = ++m_iGeneration;
        if (test) m_iTestResult = -1;
    }
    old.reset();  // closing joins its threads, which may be waiting for our lock
    if (urlChanged) m_bAcceptedByCsms = 0;  // another CSMS has not accepted us yet

    char protocolName[10];
    const std::string url = CombineUrl(identity, ProtocolName(item.protocol, protocolName));
    std::shared_ptr<ConnectLink> link = ConnectLink::Create();
    link->callBack.reset(new COcppWebSocketClientCallBack(this, generation));
    link->client.reset(new CWebSocketClient());
    if (!pwd.empty() && name.empty()) {
        const size_t slash = url.find_last_of('/');
        name = slash == std::string::npos ? url : url.substr(slash + 1);
    }
    switch (item.connType) {
        case CONNTYPE_TLS_CLIENT_CERT:
            link->client->SetSsl(cert.c_str(), key.c_str(), ca.c_str());
            break;
        case CONNTYPE_BASIC:
            link->client->SetNamePwd(name.c_str(), pwd.c_str());
            break;
        case CONNTYPE_TLS_BASIC:
            link->client->SetNamePwd(name.c_str(), pwd.c_str());
            link->client->SetSsl(nullptr, nullptr, ca.c_str());
            break;
        default:
            break;
    }
    if (item.connType >= CONNTYPE_WS && item.connType <= CONNTYPE_TLS_CLIENT_CERT)
        link->client->SetConnType(static_cast<CONNTYPE>(item.connType));
    {
        OCPP_SECTION(&m_connLock);
        if (generation != m_iGeneration || m_bStop.load()) return;  // replaced meanwhile
        m_pLink = link;
    }
    if (link->client->Init(url.c_str(), link->callBack.get(), item.messageTimeout) != 1) {
        // No link event follows a refused start; report it as one so the back-off runs.
        link->callBack->OnConnectError();
    }
}

int CConnectManager::Connect(const ConnectionItem& item) {
    printf("CConnectManager::Connect start\n");
    StartClient(item, false);
    printf("CConnectManager::Connect end\n");
    return 1;
}

int CConnectManager::TestConnect(const ConnectionItem& item) {
    TestConnectFn hook = g_testConnectHook.load();
    if (hook != nullptr) {
        BackUpCurConnectionItem(item);
        return hook(item);
    }
    printf("CConnectManager::TestConnect start\n");
    StartClient(item, true);
    // The transport gives up on a handshake long before this; the bound only
    // keeps a lost event from stalling the probe for ever.
    const int limitSec = std::max(ClampMessageTimeout(item.messageTimeout), 5) + 60;
    int result;
    {
        OCPP_SECTION_NAMED(guard, &m_connLock);
        m_testCv.wait_for(guard, std::chrono::seconds(limitSec),
                          [this] { return m_iTestResult != -1 || m_bStop.load(); });
        result = m_iTestResult == 1 ? 1 : 0;
    }
    printf("CConnectManager::TestConnect end\n");
    return result;
}

int CConnectManager::TestConnectItem() {
    std::vector<ConnectionItem> items;
    std::string priority;
    {
        OCPP_SECTION(&m_listLock);
        items = m_ConnItemVec;
        priority = m_strConnectPriority;
    }
    m_bTestConnectRequest = 0;
    const int attempts = std::max(1, m_iTestAttempts);
    LOG_INFO("TestConnectItem Attempt Try Conn Count:%d\n", attempts);
    const std::vector<int> ids = SplitPriority(priority);
    for (const ConnectionItem& item : items) {
        if (std::find(ids.begin(), ids.end(), item.id) == ids.end()) {
            LOG_INFO("ConnectPriority:%s CurConnID:%d", priority.c_str(), item.id);
            continue;
        }
        {
            OCPP_SECTION(&m_connLock);
            m_iCurRetryCount = 0;
        }
        int64_t nextTest = 0;
        int tries = 0;
        while (tries < attempts) {
            if (m_bStop.load()) return 0;
            const int64_t now = RunSec();
            if (nextTest == 0 || now >= nextTest) {
                ++tries;
                if (TestConnect(item) == 1) {
                    LOG_INFO("^^^^^^^^^^^^^^Test Connect Succcess^^^^^^^^^^^^^^^^^^^^\n");
                    BackUpCurConnectionItem(item);
                    OcppProtocol_ResourceInit(item);
                    m_bTesting = 0;
                    std::shared_ptr<ConnectLink> link;
                    uint64_t generation;
                    {
                        OCPP_SECTION(&m_connLock);
                        link = m_pLink;
                        generation = m_iGeneration;
                    }
                    if (link && link->client->IsWebSocketConnected() == 1) {
                        OnLinkUp(generation);
                        return 1;
                    }
                    // Through a connect and a loss, so the usual reconnect takes over.
                    OnLinkUp(generation);
                    CTools::SleepMs(500);
                    OnLinkDown(generation);
                    return 0;
                }
                nextTest = GetReconnectTimeSec();
                LOG_INFO("已经完成对槽<%d>中的连接信息的第<%d>次测试连接,测试结果:%d,<%d>秒后进行下一次测试\n", item.id,
                         tries, 0, static_cast<int>(nextTest - RunSec()));
            } else {
                LOG_DEBUG("curTime:%d nextTestTime:%d\n", static_cast<int>(now), static_cast<int>(nextTest));
                if (!WaitWake(1000)) return 0;
                if (m_bTestConnectRequest.load()) {
                    Wake();  // the new probe starts at once, not after a back-off
                    return 0;
                }
            }
        }
    }

    ConnectionItem cur = GetCurConnItem();
    if (cur.url[0] == '\0' && m_bOfflineMode.load() == 0) {
        m_bTestConnectRequest = 1;
        return 0;
    }
    if (cur.url[0] == '\0') {
        if (items.empty()) {
            m_bTestConnectRequest = 1;
            return 0;
        }
        cur = items.front();
    }
    BackUpCurConnectionItem(cur);
    SyncToFile();  // no link-up follows to store it, and a restart offline must find it
    OcppProtocol_ResourceInit(cur);
    OcppProtocol_EnterOfflineMode();
    // Keep trying the chosen profile on the usual back-off rather than stay offline for good.
    m_bTesting = 0;
    const int64_t next = GetReconnectTimeSec();
    {
        OCPP_SECTION(&m_connLock);
        m_iNextConnTimeSec = next;
    }
    return 0;
}

int CConnectManager::ConnectStep() {
    bool empty;
    {
        OCPP_SECTION(&m_listLock);
        empty = m_ConnItemVec.empty();
    }
    if (empty) return 2000;
    if (m_bTestConnectRequest.load()) {
        m_bTesting = 1;
        const int result = TestConnectItem();
        OCPP_SECTION(&m_connLock);
        if (result == 1) {
            m_iCurRetryCount = 0;
            m_iNextConnTimeSpace = 0;
            m_iNextConnTimeSec = 0;
        } else if (m_bTestConnectRequest.load()) {
            // Nothing answered: probe again after the back-off, not at once.
            return std::max(1, m_iNextConnTimeSpace) * 1000;
        }
        return 0;
    }
    ConnectionItem cur;
    int retry;
    {
        OCPP_SECTION(&m_connLock);
        const int64_t now = RunSec();
        if (m_iNextConnTimeSec == 0) return 60000;  // woken by the next loss or activation
        if (now + m_iEarlyStart < m_iNextConnTimeSec) {
            const int64_t waitMs = (m_iNextConnTimeSec - m_iEarlyStart - now) * 1000;
            return static_cast<int>(std::min<int64_t>(std::max<int64_t>(waitMs, 100), 1000));
        }
        m_bTesting = 0;
        retry = m_iCurRetryCount++;
        cur = m_curConnItem;
    }
    CTools::Log(OCPP_LOG_INFO, __FUNCTION__, __FILE__, __LINE__, "正在第%d次进行重连...............................",
                retry);
    Connect(cur);
    return 0;
}

void* CConnectManager::ConnectProc(void* self) {
    CConnectManager* manager = static_cast<CConnectManager*>(self);
    while (!manager->m_bStop.load()) {
        const int waitMs = manager->ConnectStep();
        if (waitMs > 0 && !manager->WaitWake(waitMs)) break;
    }
    return nullptr;
}

int CConnectManager::ActiveConnect() {
    std::shared_ptr<ConnectLink> old;
    {
        OCPP_SECTION(&m_listLock);
        std::stable_sort(m_ConnItemVec.begin(), m_ConnItemVec.end(),
                         [](const ConnectionItem& a, const ConnectionItem& b) { return a.priority > b.priority; });
    }
    {
        OCPP_SECTION(&m_connLock);
        old = m_pLink;
        m_pLink.reset();
        ++m_iGeneration;
        m_bTesting = 1;
        m_iTestResult = -1;
        m_bTestConnectRequest = 1;
        m_iNextConnTimeSec = 0;
        m_iNextConnTimeSpace = 0;
        m_iCurRetryCount = 0;
        m_testCv.notify_all();
    }
    old.reset();
    {
        OCPP_SECTION(&m_connLock);
        if (m_bConnectThreadStarted) {
            LOG_INFO("ConnectProc is already started!");
        } else if (!m_bStop.load()) {
            m_connectThread = LinuxCreateThread(nullptr, ConnectProc, this);
            m_bConnectThreadStarted = true;
        }
    }
    Wake();
    return 1;
}

int CConnectManager::GetReconnectTimeSec() {
    OCPP_SECTION(&m_connLock);
    if (m_iCurRetryCount <= m_iBackOffRepeatTimes) {
        if (m_iCurRetryCount == 0) {
            m_iNextConnTimeSpace = m_iBackOffMinimum + m_iBackOffRandomRange;
        } else {
            unsigned int seed = static_cast<unsigned int>(CTools::CurTimeSec());
            const int draw = m_iBackOffRandomRange > 0 ? rand_r(&seed) % (m_iBackOffRandomRange + 1) : 0;
            m_iNextConnTimeSpace = 2 * m_iNextConnTimeSpace + draw;
        }
    }
    m_iNextConnTimeSec = RunSec() + m_iNextConnTimeSpace;
    LOG_INFO("m_iCurRetryCount:%d m_iRetryCount:%d m_iNextConnTimeSec:%d m_iNextConnTimeSpace:%d\n", m_iCurRetryCount,
             m_iBackOffRepeatTimes, static_cast<int>(m_iNextConnTimeSec), m_iNextConnTimeSpace);
    return static_cast<int>(m_iNextConnTimeSec);
}

void CConnectManager::ItemConnect() {
    if (m_bTesting.load()) {
        OCPP_SECTION(&m_connLock);
        m_iTestResult = 1;
        m_testCv.notify_all();
        return;
    }
    {
        OCPP_SECTION(&m_connLock);
        m_bConnected = 1;
        m_bTestConnectRequest = 0;
        m_iCurRetryCount = 0;
        m_iNextConnTimeSec = 0;
        m_iNextConnTimeSpace = 0;
        m_iOfflineTimeSec = 0;
    }
    const ConnectionItem cur = GetCurConnItem();
    {
        OCPP_SECTION(&m_listLock);
        m_strConnectPriority = std::to_string(cur.id);
    }
    RemoveLowerConnInfo();
    SyncToFile();
    SyncVariables();
    SetWebSocketPingInterval(CVariableCache::GetInstance()->OCPPCommCtrlrWebSocketPingInterval());
}

void CConnectManager::ItemDisConnect() {
    if (m_bTesting.load()) {
        OCPP_SECTION(&m_connLock);
        m_iTestResult = 0;
        m_testCv.notify_all();
        return;
    }
    GetReconnectTimeSec();
    {
        OCPP_SECTION(&m_connLock);
        m_bConnected = 0;
        m_iOfflineTimeSec = CTools::CurTimeSec();
    }
    SyncToFile();
    Wake();
}

void CConnectManager::SyncVariables() {
    const ConnectionItem cur = GetCurConnItem();
    VariableDataItem items[4];
    memset(items, 0, sizeof items);
    const struct {
        const char* component;
        const char* variable;
        std::string value;
    } rows[4] = {{"OCPPCommCtrlr", "MessageTimeout", std::to_string(cur.messageTimeout)},
                 {"OCPPCommCtrlr", "ActiveNetworkProfile", std::to_string(cur.id)},
                 {"SecurityCtrlr", "SecurityProfile", std::to_string(cur.connType)},
                 {"OCPPCommCtrlr", "NetworkConfigurationPriority", std::to_string(cur.id)}};
    for (int i = 0; i < 4; ++i) {
        items[i].status = VARIABLESTATUS_ACCEPTED;
        items[i].attributeType = VARIABLEATTRIBUTETYPE_ACTUAL;
        CTools::CopyField(items[i].componentName, rows[i].component);
        CTools::CopyField(items[i].variableName, rows[i].variable);
        CTools::CopyField(items[i].attributeValue, rows[i].value);
    }
    CTools::CopyField(items[0].variableInstance, "Default");
    CTools::CopyField(items[0].unit, "s");
    CTools::CopyField(items[3].valuesList, "1,2");
    OcppProtocol_SetVariableData(4, items, 1);
}

int CConnectManager::ReConnect() {
    if (IsTestConnectIng()) {
        LOG_ERROR("ReConnect error: IsTestConnectIng");
        return 0;
    }
    const ConnectionItem cur = GetCurConnItem();
    if (cur.url[0] == '\0') {
        LOG_ERROR("ReConnect error: No connection info");
        return 0;
    }
    DisConnect();
    Connect(cur);
    return 1;
}

void CConnectManager::DisConnect() {
    std::shared_ptr<ConnectLink> link;
    {
        OCPP_SECTION(&m_connLock);
        link = m_pLink;
    }
    if (link) link->client->Close();
}
