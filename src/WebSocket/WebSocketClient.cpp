#include "WebSocket/WebSocketClient.h"

#include <libwebsockets.h>
#include <openssl/ssl.h>
#include <openssl/x509.h>
#include <openssl/x509_vfy.h>

#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <mutex>

#include <json/json.h>

#include "Util/CriticalSectionManager.h"
#include "Util/Thread.h"
#include "Util/Tools.h"
#include "WebSocket/LwsTrampoline.h"
#include "WebSocket/TlsFailureFlags.h"

namespace {
// SSL_OP_NO_SSLv3 | SSL_OP_NO_TLSv1 | SSL_OP_NO_TLSv1_1: TLS 1.2 is the lowest offered.
const long kTlsOptions = 0x16000000L;
// A CSMS frame larger than this is dropped rather than grown without bound.
const size_t kMaxFrameBytes = 4u * 1024u * 1024u;
// Extra real time a synchronous request waits beyond its time-out if no sweep releases it.
const int kSweepGraceSec = 2;
const char* const kTimeoutErrorFormat = "[4,\"%s\",\"InternalError\",\"Request Timeout\",{}]";

pthread_mutex_t g_settingsLock = PTHREAD_MUTEX_INITIALIZER;
std::string g_strWildcardRefusedDomain;

thread_local const CWebSocketClient* t_pServicing = nullptr;
// Set on all three of a client's threads: none of them may join the others.
thread_local const CWebSocketClient* t_pOwnThread = nullptr;

int ClientLwsCallback(struct lws* wsi, enum lws_callback_reasons reason, void* user, void* in, size_t len) {
    return DispatchLwsEvent<CWebSocketClient>(wsi, reason, "client", [&](CWebSocketClient& self) {
        return self.OnLwsEvent(wsi, static_cast<int>(reason), user, in, len);
    });
}

void LibraryLogLine(int level, const char* line) {
    std::string text(line != nullptr ? line : "");
    while (!text.empty() && (text.back() == '\n' || text.back() == '\r')) text.pop_back();
    if (level & LLL_ERR) {
        LOG_ERROR("lws: %s", text.c_str());
    } else {
        LOG_INFO("lws: %s", text.c_str());
    }
}

// Reads message type and id from an OCPP-J array; false for anything else.
bool ReadFrameHead(const char* message, size_t length, int& type, std::string& id) {
    Json::Value root;
    if (!CTools::ParseJson(message, length, root)) return false;
    // isIntegral() also admits 3000000000 and 1e10, which asInt() throws on.
    if (!root.isArray() || root.size() < 2 || !root[0].isInt() || !root[1].isString()) return false;
    type = root[0].asInt();
    id = root[1].asString();
    return true;
}

std::string OneLine(const char* message, int length) {
    std::string text(message, static_cast<size_t>(length));
    std::string out;
    out.reserve(text.size());
    for (char c : text) {
        if (c != '\n' && c != '\r') out.push_back(c);
    }
    return CTools::MaskIdTokenFromJson(out);
}

// Longest a request may be given; the sum with the monotonic clock must fit a 32-bit time_t.
const int64_t kMaxWaitSec = 86400;

int64_t BoundWaitSec(int64_t seconds) { return seconds < 1 ? 1 : (seconds > kMaxWaitSec ? kMaxWaitSec : seconds); }

bool WaitSemaphore(sem_t* sem, int64_t seconds) {
    struct timespec deadline;
    clock_gettime(CLOCK_MONOTONIC, &deadline);
    deadline.tv_sec += static_cast<time_t>(BoundWaitSec(seconds));
    for (;;) {
        if (sem_clockwait(sem, CLOCK_MONOTONIC, &deadline) == 0) return true;
        if (errno != EINTR) return false;
    }
}
}  // namespace

CWebSocketClient::CWebSocketClient() {
    pthread_mutex_init(&m_socketLock, nullptr);
    pthread_mutex_init(&m_requestLock, nullptr);
    pthread_mutex_init(&m_waitLock, nullptr);
    pthread_mutex_init(&m_periodLock, nullptr);
    pthread_mutex_init(&m_closeLock, nullptr);
    m_pProtocols = new lws_protocols[2];
    memset(m_pProtocols, 0, sizeof(lws_protocols) * 2);
}

CWebSocketClient::~CWebSocketClient() {
    Close();
    free(m_pRecvBuffer);
    m_pRecvBuffer = nullptr;
    {
        OCPP_SECTION(&m_waitLock);
        for (auto& entry : m_waitTable) FreeItem(entry.second);
        m_waitTable.clear();
    }
    delete[] m_pProtocols;
    pthread_mutex_destroy(&m_socketLock);
    pthread_mutex_destroy(&m_requestLock);
    pthread_mutex_destroy(&m_waitLock);
    pthread_mutex_destroy(&m_periodLock);
    pthread_mutex_destroy(&m_closeLock);
}

void CWebSocketClient::SetSsl(const char* cert, const char* privateKey, const char* ca) {
    OCPP_SECTION(&m_socketLock);
    m_strCert = cert != nullptr ? cert : "";
    m_strPrivateKey = privateKey != nullptr ? privateKey : "";
    m_strCa = ca != nullptr ? ca : "";
    LOG_INFO("CWebSocketClient::SetSsl m_strCert len<%d>", static_cast<int>(m_strCert.size()));
    LOG_INFO("CWebSocketClient::SetSsl m_strPrivateKey len<%d>", static_cast<int>(m_strPrivateKey.size()));
    LOG_INFO("CWebSocketClient::SetSsl m_strCa len<%d>", static_cast<int>(m_strCa.size()));
}

void CWebSocketClient::SetNamePwd(const char* name, const char* password) {
    OCPP_SECTION(&m_socketLock);
    m_strName = name != nullptr ? name : "";
    m_strPwd = password != nullptr ? password : "";
}

void CWebSocketClient::SetPingInterval(int seconds) {
    // A short interval would mistake a slow CSMS for a dead one; 30 s is the floor.
    int interval = seconds == 0 ? 0 : (seconds >= 30 ? seconds : 30);
    OCPP_SECTION(&m_socketLock);
    m_iPingInterval = interval;
}

int CWebSocketClient::GetPingInterval() {
    OCPP_SECTION(&m_socketLock);
    return m_iPingInterval;
}

void CWebSocketClient::SetConnType(CONNTYPE type) {
    OCPP_SECTION(&m_socketLock);
    m_eConnType = type;
}

int CWebSocketClient::GetUrlInfo(const char* url, WebSocketUrlInfo& info) {
    memset(&info, 0, sizeof(info));
    if (url == nullptr) return 0;
    WebSocketUrlInfo t;
    memset(&t, 0, sizeof(t));
    if (sscanf(url, "%255[^:/]://%255[^:]:%d/%255s", t.szProtocol, t.szHost, &t.iPort, t.szPath) == 4) {
        info = t;
        return 1;
    }
    memset(&t, 0, sizeof(t));
    if (sscanf(url, "%255[^:/]://%255[^/]/%255s", t.szProtocol, t.szHost, t.szPath) == 3) {
        t.iPort = 80;
        info = t;
        return 1;
    }
    memset(&t, 0, sizeof(t));
    if (sscanf(url, "%255[^:/]://%255[^:]:%d", t.szProtocol, t.szHost, &t.iPort) == 3) {
        t.szPath[0] = '\0';
        info = t;
        return 1;
    }
    memset(&t, 0, sizeof(t));
    if (sscanf(url, "%255[^:/]://%255s", t.szProtocol, t.szHost) == 2) {
        t.iPort = 80;
        t.szPath[0] = '\0';
        info = t;
        return 1;
    }
    return 0;
}

void CWebSocketClient::RouteLibraryLog() {
    static std::once_flag once;
    std::call_once(once, [] { lws_set_log_level(LLL_ERR | LLL_WARN, LibraryLogLine); });
}

lws_context* CWebSocketClient::CreateClientContext(const lws_protocols* protocols, bool tls, const std::string& cert,
                                                   const std::string& privateKey, const std::string& ca,
                                                   void* user) {
    RouteLibraryLog();
    struct lws_context_creation_info info;
    memset(&info, 0, sizeof(info));
    info.port = CONTEXT_PORT_NO_LISTEN;
    info.protocols = protocols;
    info.gid = -1;
    info.uid = -1;
    info.user = user;
    if (tls) {
        info.options |= LWS_SERVER_OPTION_DO_SSL_GLOBAL_INIT;
        if (!cert.empty()) {
            info.client_ssl_cert_mem = cert.c_str();
            info.client_ssl_cert_mem_len = static_cast<unsigned int>(cert.size());
        }
        if (!privateKey.empty()) {
            info.client_ssl_key_mem = privateKey.c_str();
            info.client_ssl_key_mem_len = static_cast<unsigned int>(privateKey.size());
        }
        if (!ca.empty()) {
            info.client_ssl_ca_mem = ca.c_str();
            info.client_ssl_ca_mem_len = static_cast<unsigned int>(ca.size());
        }
        info.ssl_options_set = kTlsOptions;
        info.ssl_client_options_set = kTlsOptions;
    }
    return lws_create_context(&info);
}

lws* CWebSocketClient::ConnectClient(lws_context* context, const WebSocketUrlInfo& url, bool tls) {
    // The request line needs the path with its leading slash.
    std::string path = std::string("/") + url.szPath;
    struct lws_client_connect_info ci;
    memset(&ci, 0, sizeof(ci));
    ci.context = context;
    ci.address = url.szHost;
    ci.port = url.iPort;
    ci.path = path.c_str();
    ci.host = url.szHost;
    ci.origin = url.szHost;
    ci.protocol = url.szProtocol;
    ci.ssl_connection = tls ? LCCSCF_USE_SSL : 0;
    return lws_client_connect_via_info(&ci);
}

int CWebSocketClient::AppendBasicAuthHeader(lws* wsi, void* in, size_t len, const std::string& name,
                                            const std::string& password) {
    if (name.empty() && password.empty()) return 0;
    // "Basic " plus base64 of "name:password" plus the terminator always fits.
    size_t capacity = 5 * (name.size() + password.size()) + 16;
    std::vector<char> credential(capacity, '\0');
    if (lws_http_basic_auth_gen(name.c_str(), password.c_str(), credential.data(), capacity) != 0) {
        LOG_ERROR("basic auth credential does not fit");
        return -1;
    }
    unsigned char** p = static_cast<unsigned char**>(in);
    unsigned char* end = (*p) + len;
    // By name, so the header keeps its usual capitalisation for strict servers.
    if (lws_add_http_header_by_name(wsi, reinterpret_cast<const unsigned char*>("Authorization:"),
                                    reinterpret_cast<const unsigned char*>(credential.data()),
                                    static_cast<int>(strlen(credential.data())), p, end) != 0) {
        LOG_ERROR("no room for the Authorization header");
        return -1;
    }
    return 0;
}

int CWebSocketClient::ClassifyTlsError(const char* errorText) {
    if (errorText == nullptr) return 0;
    int found = 0;
    if (strstr(errorText, "server's cert didn't look good") != nullptr) {
        found |= TLSFAIL_CSMS_CERTIFICATE;
        OcppProtocol_SetInvalidCsmsCertificate(1);
    }
    if (strstr(errorText, "tlsv1 alert protocol version") != nullptr ||
        strstr(errorText, "tls: error:00000001:lib(0)::reason(1)") != nullptr) {
        found |= TLSFAIL_TLS_VERSION;
        OcppProtocol_SetInvalidTLSVersion(1);
    }
    if (strstr(errorText, "alert insufficient security") != nullptr ||
        strstr(errorText, "alert handshake failure") != nullptr) {
        found |= TLSFAIL_CIPHER_SUITE;
        OcppProtocol_SetInvalidTLSCiphersuite(1);
    }
    return found;
}

void CWebSocketClient::SetWildcardRefusedDomain(const char* label) {
    OCPP_SECTION(&g_settingsLock);
    g_strWildcardRefusedDomain = label != nullptr ? label : "";
}

std::string CWebSocketClient::GetWildcardRefusedDomain() {
    OCPP_SECTION(&g_settingsLock);
    return g_strWildcardRefusedDomain;
}

bool CWebSocketClient::IsRefusedWildcardCommonName(const char* commonName) {
    if (commonName == nullptr || commonName[0] != '*') return false;
    std::string label = GetWildcardRefusedDomain();
    return !label.empty() && strstr(commonName, label.c_str()) != nullptr;
}

int CWebSocketClient::VerifyPeerCertificate(void* x509StoreCtx, int preverifyOk, bool& refused) {
    refused = preverifyOk == 0;
    X509_STORE_CTX* store = static_cast<X509_STORE_CTX*>(x509StoreCtx);
    if (store == nullptr || X509_STORE_CTX_get_error_depth(store) != 0) return 0;
    X509* cert = X509_STORE_CTX_get_current_cert(store);
    if (cert == nullptr) return 0;
    X509_NAME* subject = X509_get_subject_name(cert);
    char subjectText[512] = {0};
    char commonName[256] = {0};
    X509_NAME_oneline(subject, subjectText, sizeof(subjectText));
    X509_NAME_get_text_by_NID(subject, NID_commonName, commonName, sizeof(commonName));
    LOG_INFO("get peer certificate subject=%s\n", subjectText);
    LOG_INFO("peer certificate CommonName=%s\n", commonName);
    if (IsRefusedWildcardCommonName(commonName)) {
        LOG_ERROR("verify peer certificate CommonName fail=%s\n", commonName);
        X509_STORE_CTX_set_error(store, X509_V_ERR_APPLICATION_VERIFICATION);
        refused = true;
        return 1;
    }
    return 0;
}

void CWebSocketClient::LogUrlInfo(const char* url, const WebSocketUrlInfo& info) {
    LOG_INFO("pszUrl:%s\n", url != nullptr ? url : "");
    LOG_INFO("szProtocol:%s\n", info.szProtocol);
    LOG_INFO("szHost:%s\n", info.szHost);
    LOG_INFO("iPort:%d\n", info.iPort);
    LOG_INFO("szPath:%s\n", info.szPath);
}

void CWebSocketClient::LogTlsSession(lws* wsi) {
    SSL* ssl = lws_get_ssl(wsi);
    if (ssl == nullptr) return;
    LOG_INFO("TLS version: %d\n", SSL_version(ssl));
    const SSL_CIPHER* cipher = SSL_get_current_cipher(ssl);
    const char* name = cipher != nullptr ? SSL_CIPHER_standard_name(cipher) : nullptr;
    LOG_INFO("Cipher Suite: %s\n", name != nullptr ? name : "");
}

int CWebSocketClient::Init(const char* url, CWebSocketClientCallBack* callback, int64_t messageTimeoutSec) {
    Close();
    m_bClosing = false;
    WebSocketUrlInfo info;
    bool tls = false;
    {
        OCPP_SECTION(&m_socketLock);
        m_iMessageTimeout = messageTimeoutSec > kMaxWaitSec ? kMaxWaitSec : messageTimeoutSec;
        m_pCallBack = callback;
        m_iState = 1;
        m_iPongReceived = 1;
        m_iLastOperateTime = 0;
        m_bPeerCertRefused = false;
        m_iTlsFailures = 0;
        tls = m_eConnType == CONNTYPE_TLS_BASIC || m_eConnType == CONNTYPE_TLS_CLIENT_CERT;
    }
    int parsed = GetUrlInfo(url, info);
    LOG_INFO("============================\n");
    LogUrlInfo(url, info);
    LOG_INFO("=======>CWebSocketClient::Init eConnType <%d> \n", static_cast<int>(m_eConnType));
    if (!parsed) {
        LOG_ERROR("websocket client url not understood: %s", url != nullptr ? url : "");
        return 0;
    }
    if (tls) LOG_INFO("===>Enable Ssl\n");

    m_strProtocol = info.szProtocol;
    memset(m_pProtocols, 0, sizeof(lws_protocols) * 2);
    m_pProtocols[0].name = m_strProtocol.c_str();
    m_pProtocols[0].callback = ClientLwsCallback;
    m_pProtocols[0].user = this;

    lws_context* context = CreateClientContext(m_pProtocols, tls, m_strCert, m_strPrivateKey, m_strCa, this);
    if (context == nullptr) {
        LOG_ERROR("websocket client lws_create_context fail");
        return 0;
    }
    {
        OCPP_SECTION(&m_socketLock);
        m_pContext = context;
    }
    m_iPingCheckPoint = CTools::GetCurRunTimeSec();
    // No other thread touches the context yet, so connecting from here is safe;
    // callbacks for an immediate failure arrive on this thread.
    lws* wsi = ConnectClient(context, info, tls);
    bool failedNow = false;
    {
        OCPP_SECTION(&m_socketLock);
        if (wsi != nullptr && m_iState != 3) {
            m_pWsi = wsi;
        } else if (wsi == nullptr && m_iState != 3) {
            m_iState = 3;
            m_iLastOperateTime = 0;
            failedNow = true;
        }
    }
    if (failedNow) {
        LOG_ERROR("websocket client connect to %s:%d failed at once", info.szHost, info.iPort);
        if (callback != nullptr) callback->OnConnectError();
    }
    m_iStop = 0;
    m_serviceThread = LinuxCreateThread(nullptr, ServiceProc, this);
    m_sweepThread = LinuxCreateThread(nullptr, SweepProc, this);
    m_pingThread = LinuxCreateThread(nullptr, PingProc, this);
    m_bThreadsRunning = true;
    return 1;
}

bool CWebSocketClient::IsServiceThread() const { return t_pServicing == this; }

bool CWebSocketClient::IsOwnThread() const { return t_pOwnThread == this; }

void* CWebSocketClient::ServiceProc(void* self) {
    CWebSocketClient* client = static_cast<CWebSocketClient*>(self);
    t_pServicing = client;
    t_pOwnThread = client;
    while (client->m_iStop == 0) {
        lws_service(client->m_pContext, 1000);
    }
    t_pServicing = nullptr;
    return nullptr;
}

bool CWebSocketClient::WaitPeriod(int milliseconds) {
    OCPP_SECTION_NAMED(guard, &m_periodLock);
    m_periodCv.wait_for(guard, std::chrono::milliseconds(milliseconds), [this] { return m_iStop != 0; });
    return m_iStop == 0;
}

void* CWebSocketClient::SweepProc(void* self) {
    CWebSocketClient* client = static_cast<CWebSocketClient*>(self);
    t_pOwnThread = client;
    while (client->WaitPeriod(1000)) client->SweepTimeouts();
    return nullptr;
}

void* CWebSocketClient::PingProc(void* self) {
    CWebSocketClient* client = static_cast<CWebSocketClient*>(self);
    t_pOwnThread = client;
    while (client->WaitPeriod(1000)) client->CheckPing();
    return nullptr;
}

void CWebSocketClient::Close() {
    if (IsOwnThread()) {
        // Joining ourselves would hang; the owner's Close or the destructor finishes the job.
        LOG_ERROR("CWebSocketClient::Close called on a client thread, deferred");
        OCPP_SECTION(&m_socketLock);
        m_iState = 3;
        m_iLastOperateTime = 0;
        return;
    }
    // A failing sender and the owner may close at the same time; threads are joined once.
    OCPP_SECTION(&m_closeLock);
    if (!m_bThreadsRunning && m_pContext == nullptr) {
        // Nothing was started, but a waiter may still be blocked after a failed Init.
        ReleaseWaiters();
        return;
    }
    LOG_INFO("CWebSocketClient::Close");
    m_bClosing = true;
    {
        OCPP_SECTION(&m_periodLock);
        m_iStop = 1;
    }
    m_periodCv.notify_all();
    if (m_bThreadsRunning) {
        pthread_join(m_sweepThread, nullptr);
        pthread_join(m_pingThread, nullptr);
        lws_cancel_service(m_pContext);
        pthread_join(m_serviceThread, nullptr);
        m_bThreadsRunning = false;
    }
    lws_context* context = nullptr;
    {
        OCPP_SECTION(&m_socketLock);
        context = m_pContext;
        m_pContext = nullptr;
    }
    // Destroying the context calls back for the socket; m_bClosing keeps
    // those callbacks from reporting upward.
    if (context != nullptr) lws_context_destroy(context);
    {
        OCPP_SECTION(&m_socketLock);
        m_iState = 3;
        m_pWsi = nullptr;
        m_iLastOperateTime = 0;
        FailQueuedFrames();
    }
    m_writeCv.notify_all();
    ReleaseWaiters();
}

void CWebSocketClient::ReleaseWaiters() {
    // Inbound items have no waiter; a late host answer then finds nothing and is dropped.
    OCPP_SECTION_NAMED(guard, &m_waitLock);
    for (auto it = m_waitTable.begin(); it != m_waitTable.end();) {
        if (it->second->bInbound) {
            FreeItem(it->second);
            it = m_waitTable.erase(it);
        } else {
            ++it;
        }
    }
    // Outbound items belong to their blocked senders: wake them and wait until they have left.
    while (!m_waitTable.empty()) {
        for (auto& entry : m_waitTable) {
            if (entry.second->iStatus == -1) {
                entry.second->iStatus = 0;
                sem_post(&entry.second->sem);
            }
        }
        m_removedCv.wait_for(guard, std::chrono::milliseconds(300));
    }
}

void CWebSocketClient::FailQueuedFrames() {
    for (auto& frame : m_sendQueue) {
        frame->done = true;
        frame->written = 0;
    }
    m_sendQueue.clear();
}

int CWebSocketClient::IsWebSocketConnected() {
    OCPP_SECTION(&m_socketLock);
    return m_iState == 2 ? 1 : 0;
}

int64_t CWebSocketClient::GetLastOperateTimeSec() {
    OCPP_SECTION(&m_socketLock);
    return m_iLastOperateTime;
}

int CWebSocketClient::GetTlsFailures() {
    OCPP_SECTION(&m_socketLock);
    return m_iTlsFailures;
}

size_t CWebSocketClient::WaitingCount() {
    OCPP_SECTION(&m_waitLock);
    return m_waitTable.size();
}

SendItem* CWebSocketClient::NewItem(const std::string& id, uint8_t inbound) {
    SendItem* item = static_cast<SendItem*>(calloc(1, sizeof(SendItem)));
    if (item == nullptr) return nullptr;
    CTools::CopyField(item->szMessageId, id);
    item->iStatus = -1;
    sem_init(&item->sem, 0, 0);
    item->bInbound = inbound;
    item->iCreated = CTools::GetCurRunTimeSec();
    return item;
}

void CWebSocketClient::FreeItem(SendItem* item) {
    if (item == nullptr) return;
    sem_destroy(&item->sem);
    free(item->pAnswer);
    free(item);
}

int CWebSocketClient::OnLwsEvent(lws* wsi, int reason, void* user, void* in, size_t len) {
    switch (reason) {
        case LWS_CALLBACK_CLIENT_CONNECTION_ERROR: {
            char text[1024] = {0};
            if (in != nullptr) {
                size_t n = len < sizeof(text) - 1 ? len : sizeof(text) - 1;
                // Some versions hand a terminated string with len 0.
                if (n == 0) n = strnlen(static_cast<const char*>(in), sizeof(text) - 1);
                memcpy(text, in, n);
            }
            LOG_ERROR("client LWS_CALLBACK_CLIENT_CONNECTION_ERROR: %s\n", text);
            int failures = ClassifyTlsError(text);
            {
                OCPP_SECTION(&m_socketLock);
                // Some TLS stacks report a refused certificate only as a generic error.
                if (m_bPeerCertRefused && !(failures & TLSFAIL_CSMS_CERTIFICATE)) {
                    failures |= TLSFAIL_CSMS_CERTIFICATE;
                    OcppProtocol_SetInvalidCsmsCertificate(1);
                }
                m_iTlsFailures |= failures;
            }
            OnLinkDown("connection error");
            break;
        }
        case LWS_CALLBACK_CLIENT_ESTABLISHED: {
            bool announce = false;
            bool tls = false;
            {
                OCPP_SECTION(&m_socketLock);
                if (m_iState != 2) {
                    m_iLastOperateTime = CTools::GetCurRunTimeSec();
                    m_iState = 2;
                    m_pWsi = wsi;
                    announce = !m_bClosing;
                }
                tls = m_eConnType == CONNTYPE_TLS_BASIC || m_eConnType == CONNTYPE_TLS_CLIENT_CERT;
            }
            if (announce && m_pCallBack != nullptr) m_pCallBack->OnConnectSuccess();
            if (tls) LogTlsSession(wsi);
            {
                // Frames may have been queued while the handshake ran.
                OCPP_SECTION(&m_socketLock);
                if (!m_sendQueue.empty()) lws_callback_on_writable(wsi);
            }
            break;
        }
        case LWS_CALLBACK_CLIENT_RECEIVE: {
            if (m_bRecvOverflow || m_iRecvLen + len > kMaxFrameBytes) {
                if (!m_bRecvOverflow) LOG_ERROR("CSMS frame over %u bytes dropped", static_cast<unsigned>(kMaxFrameBytes));
                m_bRecvOverflow = true;
                free(m_pRecvBuffer);
                m_pRecvBuffer = nullptr;
                m_iRecvLen = 0;
            } else {
                char* grown = static_cast<char*>(realloc(m_pRecvBuffer, m_iRecvLen + len + 1));
                if (grown == nullptr) {
                    LOG_ERROR("no memory for a CSMS frame of %u bytes", static_cast<unsigned>(m_iRecvLen + len));
                    m_bRecvOverflow = true;
                    free(m_pRecvBuffer);
                    m_pRecvBuffer = nullptr;
                    m_iRecvLen = 0;
                } else {
                    m_pRecvBuffer = grown;
                    if (len > 0) memcpy(m_pRecvBuffer + m_iRecvLen, in, len);
                    m_iRecvLen += len;
                }
            }
            if (lws_is_final_fragment(wsi)) {
                if (!m_bRecvOverflow && m_pRecvBuffer != nullptr) {
                    m_pRecvBuffer[m_iRecvLen] = '\0';
                    char* frame = m_pRecvBuffer;
                    size_t frameLen = m_iRecvLen;
                    m_pRecvBuffer = nullptr;
                    m_iRecvLen = 0;
                    try {
                        OnWebSocketMessage(frame, frameLen);
                    } catch (const std::exception& e) {
                        LOG_ERROR("CSMS frame handling failed: %s", e.what());
                    } catch (...) {
                        LOG_ERROR("CSMS frame handling failed");
                    }
                    free(frame);
                }
                m_bRecvOverflow = false;
                free(m_pRecvBuffer);
                m_pRecvBuffer = nullptr;
                m_iRecvLen = 0;
            }
            break;
        }
        case LWS_CALLBACK_CLIENT_RECEIVE_PONG: {
            LOG_DEBUG("LWS_CALLBACK_CLIENT_RECEIVE_PONG");
            OCPP_SECTION(&m_socketLock);
            m_iPongReceived = 1;
            break;
        }
        case LWS_CALLBACK_CLIENT_WRITEABLE:
            WriteNextFrame(wsi);
            break;
        case LWS_CALLBACK_EVENT_WAIT_CANCELLED: {
            OCPP_SECTION(&m_socketLock);
            if (m_sendQueue.empty()) break;
            if (m_pWsi != nullptr && m_iState == 2) {
                lws_callback_on_writable(m_pWsi);
            } else if (m_iState == 3) {
                FailQueuedFrames();
                m_writeCv.notify_all();
            }
            break;
        }
        case LWS_CALLBACK_CLIENT_APPEND_HANDSHAKE_HEADER: {
            std::string name, password;
            {
                OCPP_SECTION(&m_socketLock);
                name = m_strName;
                password = m_strPwd;
            }
            return AppendBasicAuthHeader(wsi, in, len, name, password);
        }
        case LWS_CALLBACK_WSI_DESTROY:
            LOG_INFO("LWS_CALLBACK_WSI_DESTROY");
            OnLinkDown("destroyed");
            break;
        case LWS_CALLBACK_WS_PEER_INITIATED_CLOSE: {
            LOG_INFO("ws server close");
            const unsigned char* payload = static_cast<const unsigned char*>(in);
            if (payload != nullptr && len >= 3) {
                LOG_INFO("Server initiated close with code: %d\n", (payload[0] << 8) | payload[1]);
                char reason[256] = {0};
                size_t n = len - 2 < sizeof(reason) - 1 ? len - 2 : sizeof(reason) - 1;
                memcpy(reason, payload + 2, n);
                LOG_INFO("Server Close reason: %s\n", reason);
            }
            break;
        }
        case LWS_CALLBACK_CLIENT_CLOSED:
            LOG_INFO("ws client close");
            break;
        case LWS_CALLBACK_OPENSSL_PERFORM_SERVER_CERT_VERIFICATION: {
            CONNTYPE type;
            {
                OCPP_SECTION(&m_socketLock);
                type = m_eConnType;
            }
            if (type != CONNTYPE_TLS_BASIC && type != CONNTYPE_TLS_CLIENT_CERT) break;
            bool refused = false;
            int verdict = VerifyPeerCertificate(user, static_cast<int>(len), refused);
            if (refused) {
                OCPP_SECTION(&m_socketLock);
                m_bPeerCertRefused = true;
            }
            return verdict;
        }
        case LWS_CALLBACK_GET_THREAD_ID:
        case LWS_CALLBACK_PROTOCOL_INIT:
        case LWS_CALLBACK_PROTOCOL_DESTROY:
            break;
        default:
            LOG_DEBUG("lws_callback_reasons:%d\n", reason);
            break;
    }
    return 0;
}

void CWebSocketClient::OnLinkDown(const char* why) {
    bool announce = false;
    {
        OCPP_SECTION(&m_socketLock);
        m_pWsi = nullptr;
        FailQueuedFrames();
        if (m_iState == 3) return;
        m_iState = 3;
        m_iLastOperateTime = 0;
        // While closing, the owner already knows.
        announce = !m_bClosing;
    }
    m_writeCv.notify_all();
    LOG_DEBUG("websocket link down: %s", why);
    if (announce && m_pCallBack != nullptr) m_pCallBack->OnConnectError();
}

void CWebSocketClient::OnWebSocketMessage(const char* message, size_t length) {
    LOG_INFO("[CSMS=>OCPP] %s", CTools::MaskIdTokenFromJson(message).c_str());
    {
        OCPP_SECTION(&m_socketLock);
        m_iLastOperateTime = CTools::GetCurRunTimeSec();
    }
    int type = 0;
    std::string id;
    if (!ReadFrameHead(message, length, type, id)) return;
    if (type == 2) {
        // Registered before delivery so that a quick host answer finds its CALL.
        {
            OCPP_SECTION(&m_waitLock);
            if (m_waitTable.find(id) == m_waitTable.end()) {
                SendItem* item = NewItem(id, 1);
                if (item != nullptr) m_waitTable[id] = item;
            }
        }
        if (m_pCallBack != nullptr) m_pCallBack->OnMessage(message, static_cast<int>(length));
    } else if (type == 3 || type == 4) {
        bool consumed = false;
        {
            OCPP_SECTION(&m_waitLock);
            auto it = m_waitTable.find(id);
            if (it != m_waitTable.end() && !it->second->bInbound && it->second->iStatus == -1) {
                SendItem* item = it->second;
                char* copy = static_cast<char*>(malloc(length + 1));
                if (copy != nullptr) {
                    memcpy(copy, message, length + 1);
                    free(item->pAnswer);
                    item->pAnswer = copy;
                    item->iAnswerLen = static_cast<int>(length);
                    item->iStatus = 1;
                } else {
                    item->iStatus = 0;
                }
                sem_post(&item->sem);
                consumed = true;
            }
        }
        if (!consumed && m_pCallBack != nullptr) m_pCallBack->OnMessage(message, static_cast<int>(length));
    }
}

void CWebSocketClient::WriteNextFrame(lws* wsi) {
    bool more = false;
    {
        OCPP_SECTION(&m_socketLock);
        if (m_sendQueue.empty()) return;
        std::shared_ptr<OutFrame> frame = m_sendQueue.front();
        m_sendQueue.pop_front();
        int n = lws_write(wsi, frame->data.data() + LWS_PRE, frame->length,
                          frame->ping ? LWS_WRITE_PING : LWS_WRITE_TEXT);
        frame->written = n;
        frame->done = true;
        more = !m_sendQueue.empty();
    }
    m_writeCv.notify_all();
    if (more) lws_callback_on_writable(wsi);
}

int CWebSocketClient::WriteFrame(const char* message, int length, const char* failFormat, bool& closeNeeded) {
    closeNeeded = false;
    auto frame = std::make_shared<OutFrame>();
    frame->data.resize(LWS_PRE + static_cast<size_t>(length));
    memcpy(frame->data.data() + LWS_PRE, message, static_cast<size_t>(length));
    frame->length = static_cast<size_t>(length);
    int written = 0;
    {
        OCPP_SECTION_NAMED(guard, &m_socketLock);
        if (m_iState != 2 || m_pContext == nullptr) {
            LOG_ERROR("WebSocket No CONNECTED");
            return 0;
        }
        m_sendQueue.push_back(frame);
        if (IsServiceThread()) {
            // Waiting here would block the very thread that writes.
            if (m_pWsi != nullptr) lws_callback_on_writable(m_pWsi);
            m_iLastOperateTime = CTools::GetCurRunTimeSec();
            return 1;
        }
        lws_cancel_service(m_pContext);
        int64_t boundSec = m_iMessageTimeout > 0 ? m_iMessageTimeout : 1;
        m_writeCv.wait_for(guard, std::chrono::seconds(boundSec), [&] { return frame->done; });
        if (!frame->done) {
            for (auto it = m_sendQueue.begin(); it != m_sendQueue.end(); ++it) {
                if (*it == frame) {
                    m_sendQueue.erase(it);
                    break;
                }
            }
        }
        written = frame->done ? frame->written : 0;
        if (written >= length) {
            m_iLastOperateTime = CTools::GetCurRunTimeSec();
            return 1;
        }
    }
    LOG_ERROR(failFormat, written, length);
    // The caller closes once it holds no wait-table item, since Close waits for those.
    closeNeeded = written == -1;
    return 0;
}

int CWebSocketClient::SendMessage(const char* message, int length) {
    if (message == nullptr || length <= 0) return 0;
    LOG_INFO("[OCPP=>CSMS] %s", OneLine(message, length).c_str());
    int type = 0;
    std::string id;
    if (ReadFrameHead(message, static_cast<size_t>(length), type, id)) {
        if (id.size() > 36) id.resize(36);
        if (type == 3 || type == 4) {
            OCPP_SECTION(&m_waitLock);
            auto it = m_waitTable.find(id);
            if (it == m_waitTable.end() || !it->second->bInbound) {
                // Already answered (perhaps by the sweeper), or never asked.
                LOG_ERROR("answer for unknown or expired CSMS request %s dropped", id.c_str());
                return 0;
            }
            FreeItem(it->second);
            m_waitTable.erase(it);
        }
    }
    bool closeNeeded = false;
    int sent = WriteFrame(message, length, "webSocket client sendMessage false SendLen<%d> MessageLen<%d>", closeNeeded);
    if (closeNeeded) Close();
    return sent;
}

int CWebSocketClient::SendMessage(const char* messageId, const char* message, int length, char* answer,
                                  int* answerLength) {
    if (messageId == nullptr || message == nullptr || length <= 0 || answer == nullptr || answerLength == nullptr) {
        return 0;
    }
    if (IsServiceThread()) {
        // The answer could only arrive on this very thread: waiting would stall the link.
        LOG_ERROR("synchronous request %s refused on the websocket service thread", messageId);
        return 0;
    }
    int capacity = *answerLength > 0 ? *answerLength : kDefaultAnswerCapacity;
    std::string id(messageId);
    {
        OCPP_SECTION(&m_waitLock);
        if (m_waitTable.find(id) != m_waitTable.end()) {
            LOG_ERROR("request %s already waiting", id.c_str());
            return 0;
        }
        SendItem* item = NewItem(id, 0);
        if (item == nullptr) return 0;
        m_waitTable[id] = item;
    }
    LOG_INFO("[OCPP=>CSMS] %s", OneLine(message, length).c_str());
    SendItem* item = nullptr;
    bool closeNeeded = false;
    if (!WriteFrame(message, length, "webSocket client innerRequestMessage false SendLen<%d> MessageLen<%d>",
                    closeNeeded)) {
        {
            OCPP_SECTION(&m_waitLock);
            auto it = m_waitTable.find(id);
            if (it != m_waitTable.end()) {
                FreeItem(it->second);
                m_waitTable.erase(it);
            }
        }
        m_removedCv.notify_all();
        if (closeNeeded) Close();
        return 0;
    }
    {
        OCPP_SECTION(&m_waitLock);
        auto it = m_waitTable.find(id);
        item = it != m_waitTable.end() ? it->second : nullptr;
    }
    if (item == nullptr) return 0;
    // The sweeper or Close ends the wait; the real-time bound only guards against neither running.
    WaitSemaphore(&item->sem, m_iMessageTimeout + kSweepGraceSec);
    int result = 0;
    {
        OCPP_SECTION(&m_waitLock);
        auto it = m_waitTable.find(id);
        if (it == m_waitTable.end()) return 0;
        item = it->second;
        if (item->iStatus == 1 && item->pAnswer != nullptr) {
            if (item->iAnswerLen < capacity) {
                memcpy(answer, item->pAnswer, static_cast<size_t>(item->iAnswerLen) + 1);
                *answerLength = item->iAnswerLen;
                result = 1;
            } else {
                LOG_ERROR("answer to %s of %d bytes does not fit %d", id.c_str(), item->iAnswerLen, capacity);
            }
        }
        FreeItem(item);
        m_waitTable.erase(it);
    }
    m_removedCv.notify_all();
    return result;
}

void CWebSocketClient::SweepTimeouts() {
    int state;
    {
        OCPP_SECTION(&m_socketLock);
        state = m_iState;
    }
    std::vector<std::string> unanswered;
    {
        OCPP_SECTION(&m_waitLock);
        int64_t now = CTools::GetCurRunTimeSec();
        for (auto& entry : m_waitTable) {
            SendItem* item = entry.second;
            bool expired = state == 3 || (item->iStatus == -1 && now - item->iCreated > m_iMessageTimeout);
            if (!expired) continue;
            if (item->bInbound) {
                unanswered.push_back(entry.first);
            } else if (item->iStatus == -1) {
                item->iStatus = 0;
                sem_post(&item->sem);
            }
        }
    }
    for (const std::string& id : unanswered) {
        std::string frame = CTools::StringFormat(kTimeoutErrorFormat, id.c_str());
        SendMessage(frame.c_str(), static_cast<int>(frame.size()));
    }
}

void CWebSocketClient::CheckPing() {
    int interval;
    {
        OCPP_SECTION(&m_socketLock);
        interval = m_iPingInterval;
    }
    if (interval < 1) return;
    int64_t now = CTools::GetCurRunTimeSec();
    if (now - m_iPingCheckPoint <= interval) return;
    m_iPingCheckPoint = now;
    bool lost = false;
    {
        OCPP_SECTION(&m_socketLock);
        if (m_pWsi == nullptr || m_iState == 3) return;
        if (m_iPongReceived == 1) {
            m_iPongReceived = 0;
            LOG_INFO("LWS_WRITE_PING");
            auto frame = std::make_shared<OutFrame>();
            frame->data.resize(LWS_PRE);
            frame->ping = true;
            m_sendQueue.push_back(frame);
            if (m_pContext != nullptr) lws_cancel_service(m_pContext);
        } else {
            // Two intervals without a pong: the link is gone even if frames still trickle in.
            m_iPongReceived = 1;
            m_iState = 3;
            m_iLastOperateTime = 0;
            LOG_ERROR("PONG NOT RECEIVE");
            lost = true;
        }
    }
    if (lost && m_pCallBack != nullptr) m_pCallBack->OnConnectError();
}
