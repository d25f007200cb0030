#include "Process/ConnectManager.h"

#include <fcntl.h>
#include <json/json.h>
#include <openssl/evp.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <sstream>

#include "Ocpp20/Process/VariableCache.h"
#include "OcppProtocol/InboundFrame.h"
#include "OcppProtocol/MessageCallBack.h"
#include "OcppProtocol/OcppProtocol.h"
#include "Util/CriticalSectionManager.h"
#include "Util/FileUtil.h"
#include "Util/Thread.h"
#include "Util/Tools.h"
#include "WebSocket/Optee.h"
#include "WebSocket/WebSocketClient.h"
#include "WebSocket/WebSocketConnect.h"

CConnectManager* CConnectManager::s_instance = nullptr;

// One client with the callback object it was given; the client goes first.
struct ConnectLink {
    std::unique_ptr<COcppWebSocketClientCallBack> callBack;
    std::unique_ptr<CWebSocketClient> client;
    ~ConnectLink() { client.reset(); }
};

namespace {
// Set while a client's link event runs on that client's own thread.
thread_local int t_inLinkEvent = 0;

struct LinkEventScope {
    LinkEventScope() { ++t_inLinkEvent; }
    ~LinkEventScope() { --t_inLinkEvent; }
};

void* DeleteLinkProc(void* link) {
    delete static_cast<ConnectLink*>(link);
    return nullptr;
}

// A client cannot be closed from its own thread (it would join itself): if the
// last reference goes during a link event, another thread finishes it.
void DeleteLink(ConnectLink* link) {
    if (t_inLinkEvent > 0) {
        pthread_t thread;
        if (pthread_create(&thread, nullptr, DeleteLinkProc, link) == 0) {
            pthread_detach(thread);
            return;
        }
    }
    delete link;
}
}  // namespace

namespace {
pthread_mutex_t g_instanceSection = PTHREAD_MUTEX_INITIALIZER;

pthread_mutex_t g_settingSection = PTHREAD_MUTEX_INITIALIZER;
// One writer at a time: the temporary file has a fixed name, and a snapshot
// built earlier must not land over a later one.
pthread_mutex_t g_storeFileSection = PTHREAD_MUTEX_INITIALIZER;
std::string g_strCheckTarget;                          // empty: no diagnostic ping
std::string g_strCertDir = "/usrfs/conf/ocpp20/cert/";  // with trailing "/"
std::atomic<CConnectManager::TestConnectFn> g_testConnectHook{nullptr};

// A store of a handful of profiles; anything this large is not ours.
const size_t kMaxStoreBytes = 256 * 1024;
const size_t kMaxProfiles = 64;
const int kNetworkCheckPeriodSec = 60;

int32_t RunSec() { return static_cast<int32_t>(CTools::GetCurRunTimeSec()); }

std::string Base64(const void* data, size_t len) {
    std::string out(4 * ((len + 2) / 3) + 1, '\0');
    const int n = EVP_EncodeBlock(reinterpret_cast<unsigned char*>(&out[0]), static_cast<const unsigned char*>(data),
                                  static_cast<int>(len));
    out.resize(n > 0 ? static_cast<size_t>(n) : 0);
    return out;
}

Json::Value ItemToJson(const ConnectionItem& item) {
    Json::Value v(Json::objectValue);
    v["id"] = item.id;
    v["priority"] = item.priority;
    v["conntype"] = item.connType;
    v["protocol"] = item.protocol;
    v["messagetimeout"] = item.messageTimeout;
    v["url"] = item.url;
    return v;
}

int32_t IntOf(const Json::Value& v, const char* key, int32_t fallback) {
    const Json::Value& f = v[key];
    return f.isInt() ? f.asInt() : fallback;
}

bool ItemFromJson(const Json::Value& v, ConnectionItem& item) {
    if (!v.isObject() || !v["url"].isString()) return false;
    memset(&item, 0, sizeof item);
    item.id = IntOf(v, "id", 0);
    item.priority = IntOf(v, "priority", 0);
    item.connType = IntOf(v, "conntype", 0);
    item.protocol = IntOf(v, "protocol", OCPPPROTOCOL_201);
    item.messageTimeout = CConnectManager::ClampMessageTimeout(IntOf(v, "messagetimeout", 5));
    CTools::CopyField(item.url, v["url"].asString());
    return true;
}

bool HasContent(const std::string& path) {
    std::string text;
    return CFileUtil::ReadFile(path, text) && !text.empty();
}

// The ping target goes to a shell: host names and addresses only.
bool IsSafeHost(const std::string& host) {
    if (host.empty() || host.size() > 253 || host[0] == '-') return false;
    for (char c : host) {
        if (!isalnum(static_cast<unsigned char>(c)) && c != '.' && c != ':' && c != '-') return false;
    }
    return true;
}

const char* ProtocolName(int protocol, char* buffer) {
    buffer[0] = '\0';
    OcppProtocol_GetOcppProtocolType(static_cast<OCPPPROTOCOL>(protocol), buffer);
    return buffer;
}
}  // namespace

// ---- Link events ------------------------------------------------------------

void COcppWebSocketClientCallBack::OnConnectSuccess() {
    LinkEventScope scope;
    m_pManager->OnLinkUp(m_iGeneration);
}

void COcppWebSocketClientCallBack::OnConnectError() {
    LinkEventScope scope;
    m_pManager->OnLinkDown(m_iGeneration);
}

void COcppWebSocketClientCallBack::OnMessage(std::unique_ptr<CInboundFrame> frame) {
    if (!frame || frame->Length() == 0) return;
    CMessageCallBack::GetInstance()->OnWebSocketMessage(std::move(frame));
}

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

// ---- Lifetime -----------------------------------------------------------------

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
    }
    if (instance == nullptr) return;
    // Threads and the client stop while the instance is still reachable, so a
    // late callback cannot create a fresh manager behind our back.
    instance->Shutdown();
    {
        OCPP_SECTION(&g_instanceSection);
        s_instance = nullptr;
    }
    delete instance;
}

CConnectManager::CConnectManager() {
    pthread_mutex_init(&m_connLock, nullptr);
    pthread_mutex_init(&m_listLock, nullptr);
    pthread_mutex_init(&m_checkLock, nullptr);
    memset(&m_curConnItem, 0, sizeof m_curConnItem);
    m_checkThread = LinuxCreateThread(nullptr, CheckNetworkProc, this);
    m_bCheckThreadStarted = true;
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

void CConnectManager::SetNetworkCheckTarget(const std::string& target) {
    OCPP_SECTION(&g_settingSection);
    g_strCheckTarget = target;
}

void CConnectManager::SetCertDir(const std::string& dir) {
    OCPP_SECTION(&g_settingSection);
    g_strCertDir = dir;
    if (g_strCertDir.empty() || g_strCertDir.back() != '/') g_strCertDir += "/";
}

std::string CConnectManager::GetCertDir() {
    OCPP_SECTION(&g_settingSection);
    return g_strCertDir;
}

void CConnectManager::SetTestConnectHook(TestConnectFn hook) { g_testConnectHook = hook; }

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

// ---- Store file ---------------------------------------------------------------

int CConnectManager::SetStoreFile(const std::string& path) {
    {
        OCPP_SECTION(&m_listLock);
        if (path == m_strStoreFile && !path.empty()) return 1;
        if (path.empty()) return 0;
        m_strStoreFile = path;
    }
    LOG_INFO("Connection Cache File: %s", path.c_str());
    int err = 0;
    FileWriteResult r;
    const int created = CFileUtil::CreateIfAbsent(path, "{}", &err, &r);
    if (created == 0) {
        LOG_INFO("Connection Cache File already exists");
    } else if (created < 0 && r.failedStep == FileWriteResult::kOpen) {
        LOG_ERROR("SetStoreFile: openat failed, errno=%d", err);
        return 0;
    } else {
        // A failed first write is not fatal here: the next sync rewrites the whole file.
        if (created < 0) LOG_ERROR("CConnectManager write error, errno=%d", err);
        if (r.fsyncErr != 0) LOG_ERROR("CConnectManager fsync failed, errno=%d", r.fsyncErr);
        LOG_INFO("Connection Cache File created");
    }
    return SyncFromFile();
}

int CConnectManager::SyncFromFile() {
    std::string path;
    {
        OCPP_SECTION(&m_listLock);
        path = m_strStoreFile;
    }
    if (path.empty()) return 0;
    struct stat st;
    if (stat(path.c_str(), &st) != 0) return 0;
    if (static_cast<size_t>(st.st_size) > kMaxStoreBytes) {
        LOG_ERROR("Connection Cache File too large: %lld", (long long)st.st_size);
        return 0;
    }
    std::string text;
    if (!CFileUtil::ReadFile(path, text)) return 0;
    Json::Value root;
    std::string errors;
    const bool parsed = CTools::ParseJson(text, root, &errors);
    if (!parsed || !root.isObject()) {
        LOG_ERROR("Connection Cache File is not valid: %s", errors.c_str());
        return 0;
    }
    std::vector<ConnectionItem> items;
    bool haveItems = false;
    if (root["connectinfo"].isArray()) {
        haveItems = true;
        for (const Json::Value& v : root["connectinfo"]) {
            ConnectionItem item;
            if (items.size() < kMaxProfiles && ItemFromJson(v, item)) items.push_back(item);
        }
    }
    ConnectionItem cur;
    const bool haveCur = ItemFromJson(root["curconnection"], cur);
    {
        OCPP_SECTION(&m_listLock);
        if (haveItems) m_ConnItemVec = items;
        if (root["connectpriority"].isString()) m_strConnectPriority = root["connectpriority"].asString();
        if (root["factoryconfigbase64"].isString()) m_strFactoryConfigBase64 = root["factoryconfigbase64"].asString();
    }
    {
        OCPP_SECTION(&m_connLock);
        if (haveCur) m_curConnItem = cur;
        if (root["offlinetimesec"].isInt64() && m_iOfflineTimeSec == 0)
            m_iOfflineTimeSec = root["offlinetimesec"].asInt64();
    }
    if (root["isacceptedbycsms"].isInt()) m_bAcceptedByCsms = root["isacceptedbycsms"].asInt() != 0 ? 1 : 0;
    return 1;
}

std::string CConnectManager::BuildJson() {
    Json::Value root(Json::objectValue);
    Json::Value list(Json::arrayValue);
    {
        OCPP_SECTION(&m_listLock);
        if (m_ConnItemVec.empty()) LOG_ERROR("m_ConnItemVec is empty");
        for (const ConnectionItem& item : m_ConnItemVec) list.append(ItemToJson(item));
        root["connectpriority"] = m_strConnectPriority;
        root["factoryconfigbase64"] = m_strFactoryConfigBase64;
    }
    root["connectinfo"] = list;
    {
        OCPP_SECTION(&m_connLock);
        if (m_curConnItem.url[0] != '\0') root["curconnection"] = ItemToJson(m_curConnItem);
        root["offlinetimesec"] = static_cast<Json::Int64>(m_iOfflineTimeSec);
    }
    root["isacceptedbycsms"] = m_bAcceptedByCsms.load();
    Json::StreamWriterBuilder writer;
    writer["indentation"] = "";
    return Json::writeString(writer, root);
}

int CConnectManager::SyncToFile() {
    std::string path;
    {
        OCPP_SECTION(&m_listLock);
        path = m_strStoreFile;
    }
    if (path.empty()) return 0;
    LOG_INFO("Connection write to File");
    OCPP_SECTION(&g_storeFileSection);
    const std::string text = BuildJson();
    const std::string tmp = path + "1";
    const FileWriteResult r = CFileUtil::WriteFileAtomicEx(path, text, "1");
    switch (r.failedStep) {
    case FileWriteResult::kOpen:
        LOG_ERROR("SyncToFile: openat(%s) failed, errno=%d", tmp.c_str(), r.err);
        return 0;
    case FileWriteResult::kWrite:
        LOG_ERROR("SyncToFile: write failed, errno=%d", r.err);
        return 0;
    default:
        break;
    }
    if (r.fsyncErr != 0) LOG_ERROR("SyncToFile: fsync failed, errno=%d", r.fsyncErr);
    if (r.failedStep == FileWriteResult::kRename) {
        LOG_ERROR("SyncToFile: renameat(%s -> %s) failed, errno=%d", tmp.c_str(), path.c_str(), r.err);
        return 0;
    }
    LOG_INFO("Connection write to File Success");
    return 1;
}

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

int CConnectManager::IsSupportSecurity2() { return HasContent(GetCertDir() + "ca.crt") ? 1 : 0; }

int CConnectManager::IsSupportSecurity3() {
    return IsSupportSecurity2() == 1 && Optee_IsTlsPrivateKeyExist() && Optee_IsTlsTlsCertExist() ? 1 : 0;
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
    std::shared_ptr<ConnectLink> link(new ConnectLink(), DeleteLink);
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

// ---- Network check and CA fallback --------------------------------------------

void CConnectManager::SetCheckNetworkEnable(int enable) {
    m_bCheckNetwork = enable;
    OCPP_SECTION(&m_checkLock);
    m_checkCv.notify_all();
}

int CConnectManager::CheckNetworkOnce() {
    if (m_bCheckNetwork.load() == 0) return 0;
    std::string target;
    {
        OCPP_SECTION(&g_settingSection);
        target = g_strCheckTarget;
    }
    if (target.empty()) return 0;
    const int64_t now = RunSec();
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

// ---- Host entries -------------------------------------------------------------

int OcppProtocol_SetConnection(OCPPPROTOCOL protocol, const char* url, CONNTYPE connType, int messageTimeout) {
    CConnectManager::GetInstance()->AddCustomItem(protocol, url, connType, messageTimeout);
    return url != nullptr && url[0] != '\0' ? 1 : 0;
}

int OcppProtocol_SetConnectParam(int testAttempts, int backOffMinimum, int backOffRandomRange, int backOffRepeatTimes,
                                 int earlyStart) {
    CConnectManager::GetInstance()->SetConnectParam(testAttempts, backOffMinimum, backOffRandomRange,
                                                    backOffRepeatTimes, earlyStart);
    return 1;
}

int OcppProtocol_SetSsl(const char* cert, const char* privateKey, const char* ca) {
    CConnectManager::GetInstance()->SetSsl(cert, privateKey, ca);
    return 1;
}

int OcppProtocol_SetNamePwd(const char* name, const char* password) {
    CConnectManager::GetInstance()->SetNamePwd(name, password);
    return 1;
}

int OcppProtocol_SetPwd(const char* /*password*/) {
    // Kept by the variable monitor for the write-only monitor of BasicAuthPassword; it attaches here.
    return 1;
}

int OcppProtocol_SetOfflineMode(int enable) {
    if (enable != 0 && enable != 1) {
        LOG_ERROR("'enableofflinemode' Parameter setting error");
        LOG_ERROR("The correct parameters are '0' and '1'");
        return 0;
    }
    CConnectManager::GetInstance()->SetOfflineMode(enable);
    return 1;
}

int OcppProtocol_ImmediatelyReconnect(void) { return CConnectManager::GetInstance()->ReConnect(); }

int OcppProtocol_TestConnection(const char* url, int timeoutSec, ConnectParam* param) {
    CWebSocketConnect probe;
    return probe.CheckConnection(url, timeoutSec, param) == 1 ? 1 : 0;
}
