#include "WebSocket/WebSocketClient.h"

#include <libwebsockets.h>

#include <chrono>
#include <cstdlib>
#include <cstring>

#include "OcppProtocol/InboundFrame.h"
#include "Util/CriticalSectionManager.h"
#include "Util/Thread.h"
#include "Util/Tools.h"
#include "WebSocket/LwsTrampoline.h"
#include "WebSocket/TlsFailureFlags.h"

namespace {
thread_local const CWebSocketClient* t_pServicing = nullptr;
// Set on all three of a client's threads: none of them may join the others.
thread_local const CWebSocketClient* t_pOwnThread = nullptr;

int ClientLwsCallback(struct lws* wsi, enum lws_callback_reasons reason, void* user, void* in, size_t len) {
    return DispatchLwsEvent<CWebSocketClient>(wsi, reason, "client", [&](CWebSocketClient& self) {
        return self.OnLwsEvent(wsi, static_cast<int>(reason), user, in, len);
    });
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
    {
        std::lock_guard<std::mutex> wake(m_wakeLock);
        m_pWakeContext = context;
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
    {
        std::lock_guard<std::mutex> wake(m_wakeLock);
        m_pWakeContext = nullptr;
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
    NotifyWritten();
    ReleaseWaiters();
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

int CWebSocketClient::OnLwsEvent(lws* wsi, int reason, void* user, void* in, size_t len) {
    switch (reason) {
        case LWS_CALLBACK_CLIENT_CONNECTION_ERROR:
            OnConnectionError(in, len);
            break;
        case LWS_CALLBACK_CLIENT_ESTABLISHED:
            OnEstablished(wsi);
            break;
        case LWS_CALLBACK_CLIENT_RECEIVE:
            OnReceive(wsi, in, len);
            break;
        case LWS_CALLBACK_CLIENT_RECEIVE_PONG: {
            LOG_DEBUG("LWS_CALLBACK_CLIENT_RECEIVE_PONG");
            OCPP_SECTION(&m_socketLock);
            m_iPongReceived = 1;
            break;
        }
        case LWS_CALLBACK_CLIENT_WRITEABLE:
            WriteNextFrame(wsi);
            break;
        case LWS_CALLBACK_EVENT_WAIT_CANCELLED:
            OnServiceWoken();
            break;
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
        case LWS_CALLBACK_WS_PEER_INITIATED_CLOSE:
            OnPeerClose(in, len);
            break;
        case LWS_CALLBACK_CLIENT_CLOSED:
            LOG_INFO("ws client close");
            break;
        case LWS_CALLBACK_OPENSSL_PERFORM_SERVER_CERT_VERIFICATION:
            return OnVerifyServerCertificate(user, len);
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

void CWebSocketClient::OnConnectionError(const void* in, size_t len) {
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
}

void CWebSocketClient::OnEstablished(lws* wsi) {
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
    // Frames may have been queued while the handshake ran.
    OCPP_SECTION(&m_socketLock);
    if (!m_sendQueue.empty()) lws_callback_on_writable(wsi);
}

void CWebSocketClient::DropRecvBuffer() {
    free(m_pRecvBuffer);
    m_pRecvBuffer = nullptr;
    m_iRecvLen = 0;
}

void CWebSocketClient::OnReceive(lws* wsi, const void* in, size_t len) {
    // A CSMS frame larger than the cap is dropped rather than grown without bound.
    const size_t cap = CInboundFrame::MaxReceiveBytes();
    if (m_bRecvOverflow || m_iRecvLen + len > cap) {
        if (!m_bRecvOverflow) {
            LOG_ERROR("CSMS frame over %u bytes dropped", static_cast<unsigned>(cap));
            // Only the head is read, to answer a CALL by its id.
            std::string head(m_pRecvBuffer != nullptr ? m_pRecvBuffer : "", m_iRecvLen < 1100 ? m_iRecvLen : 1100);
            if (head.size() < 1100 && in != nullptr) {
                head.append(static_cast<const char*>(in), len < 1100 - head.size() ? len : 1100 - head.size());
            }
            m_strOversizeId.clear();
            m_bOversizeCall = CInboundFrame::PeekCallId(head.data(), head.size(), m_strOversizeId);
        }
        m_bRecvOverflow = true;
        DropRecvBuffer();
    } else {
        char* grown = static_cast<char*>(realloc(m_pRecvBuffer, m_iRecvLen + len + 1));
        if (grown == nullptr) {
            LOG_ERROR("no memory for a CSMS frame of %u bytes", static_cast<unsigned>(m_iRecvLen + len));
            m_bRecvOverflow = true;
            m_bOversizeCall = false;
            DropRecvBuffer();
        } else {
            m_pRecvBuffer = grown;
            if (len > 0) memcpy(m_pRecvBuffer + m_iRecvLen, in, len);
            m_iRecvLen += len;
        }
    }
    if (!lws_is_final_fragment(wsi)) return;
    const bool refused = m_bRecvOverflow;
    if (!m_bRecvOverflow && m_pRecvBuffer != nullptr) {
        m_pRecvBuffer[m_iRecvLen] = '\0';
        char* text = m_pRecvBuffer;
        const size_t textLen = m_iRecvLen;
        m_pRecvBuffer = nullptr;
        m_iRecvLen = 0;
        try {
            // The frame is read here, once; the text buffer goes with it.
            OnWebSocketMessage(CInboundFrame::Adopt(text, textLen));
        } catch (const std::exception& e) {
            LOG_ERROR("CSMS frame handling failed: %s", e.what());
        } catch (...) {
            LOG_ERROR("CSMS frame handling failed");
        }
    } else if (m_bRecvOverflow) {
        if (m_bOversizeCall) SendOwnError(m_strOversizeId, "FormatViolation", "");
    }
    m_bRecvOverflow = false;
    m_bOversizeCall = false;
    m_strOversizeId.clear();
    DropRecvBuffer();
    // A handled frame hands the heap back when it dies, wherever that is.
    if (refused) CInboundFrame::GiveBackHeap();
}

void CWebSocketClient::OnServiceWoken() {
    OCPP_SECTION(&m_socketLock);
    if (m_sendQueue.empty()) return;
    if (m_pWsi != nullptr && m_iState == 2) {
        lws_callback_on_writable(m_pWsi);
    } else if (m_iState == 3) {
        FailQueuedFrames();
        NotifyWritten();
    }
}

void CWebSocketClient::OnPeerClose(const void* in, size_t len) {
    LOG_INFO("ws server close");
    const unsigned char* payload = static_cast<const unsigned char*>(in);
    if (payload == nullptr || len < 3) return;
    LOG_INFO("Server initiated close with code: %d\n", (payload[0] << 8) | payload[1]);
    char reason[256] = {0};
    size_t n = len - 2 < sizeof(reason) - 1 ? len - 2 : sizeof(reason) - 1;
    memcpy(reason, payload + 2, n);
    LOG_INFO("Server Close reason: %s\n", reason);
}

int CWebSocketClient::OnVerifyServerCertificate(void* x509StoreCtx, size_t preverifyOk) {
    CONNTYPE type;
    {
        OCPP_SECTION(&m_socketLock);
        type = m_eConnType;
    }
    if (type != CONNTYPE_TLS_BASIC && type != CONNTYPE_TLS_CLIENT_CERT) return 0;
    bool refused = false;
    int verdict = VerifyPeerCertificate(x509StoreCtx, static_cast<int>(preverifyOk), refused);
    if (refused) {
        OCPP_SECTION(&m_socketLock);
        m_bPeerCertRefused = true;
    }
    return verdict;
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
    NotifyWritten();
    LOG_DEBUG("websocket link down: %s", why);
    if (announce && m_pCallBack != nullptr) m_pCallBack->OnConnectError();
}

void CWebSocketClient::OnWebSocketMessage(std::unique_ptr<CInboundFrame> frame) {
    if (!frame) return;
    // A large frame without tokens is not copied for its log line.
    if (frame->HasIdToken()) {
        LOG_INFO("[CSMS=>OCPP] %s", frame->MaskedText().c_str());
    } else {
        LOG_INFO("[CSMS=>OCPP] %s", frame->Text());
    }
    {
        OCPP_SECTION(&m_socketLock);
        m_iLastOperateTime = CTools::GetCurRunTimeSec();
    }
    if (!frame->HasHead()) return;
    const int type = frame->Type();
    const std::string id = frame->Id();
    if (type == 2 && id.size() > kMaxMessageIdLen) {
        // The station could not answer with this id intact: one refusal now, nothing kept.
        SendOwnError(id, "FormatViolation", "");
        return;
    }
    if (type == 2) {
        // Registered before delivery so that a quick host answer finds its CALL.
        {
            OCPP_SECTION(&m_waitLock);
            if (m_waitTable.find(id) == m_waitTable.end()) {
                SendItem* item = NewItem(id, 1);
                if (item != nullptr) m_waitTable[id] = item;
            }
        }
        if (m_pCallBack != nullptr) m_pCallBack->OnMessage(std::move(frame));
    } else if (type == 3 || type == 4) {
        bool consumed = false;
        {
            OCPP_SECTION(&m_waitLock);
            auto it = m_waitTable.find(id);
            if (it != m_waitTable.end() && !it->second->bInbound && it->second->iStatus == -1) {
                SendItem* item = it->second;
                const size_t length = frame->Length();
                char* copy = static_cast<char*>(malloc(length + 1));
                if (copy != nullptr) {
                    memcpy(copy, frame->Text(), length + 1);
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
        if (!consumed && m_pCallBack != nullptr) m_pCallBack->OnMessage(std::move(frame));
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
    NotifyWritten();
    if (more) lws_callback_on_writable(wsi);
}

void CWebSocketClient::WakeService() {
    std::lock_guard<std::mutex> lock(m_wakeLock);
    if (m_pWakeContext != nullptr) lws_cancel_service(m_pWakeContext);
}

void CWebSocketClient::NotifyWritten() {
    // Taking the waiters' lock orders this wake after their last look at `done`.
    { std::lock_guard<std::mutex> lock(m_writeDoneMutex); }
    m_writeCv.notify_all();
}

int CWebSocketClient::WriteFrame(const char* message, int length, const char* failFormat, bool& closeNeeded) {
    closeNeeded = false;
    auto frame = std::make_shared<OutFrame>();
    frame->data.resize(LWS_PRE + static_cast<size_t>(length));
    memcpy(frame->data.data() + LWS_PRE, message, static_cast<size_t>(length));
    frame->length = static_cast<size_t>(length);
    int written = 0;
    int64_t boundSec = 1;
    {
        OCPP_SECTION(&m_socketLock);
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
        if (m_iMessageTimeout > 0) boundSec = m_iMessageTimeout;
    }
    WakeService();
    {
        std::unique_lock<std::mutex> lock(m_writeDoneMutex);
        m_writeCv.wait_for(lock, std::chrono::seconds(boundSec), [&] { return frame->done.load(); });
    }
    {
        OCPP_SECTION(&m_socketLock);
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
            // The link may have gone down while this sender waited to wake: it stays inactive.
            if (m_iState == 2) m_iLastOperateTime = CTools::GetCurRunTimeSec();
            return 1;
        }
    }
    LOG_ERROR(failFormat, written, length);
    // The caller closes once it holds no wait-table item, since Close waits for those.
    closeNeeded = written == -1;
    return 0;
}

std::string CWebSocketClient::OneLine(const char* message, int length) {
    std::string out;
    out.reserve(static_cast<size_t>(length));
    for (int i = 0; i < length; ++i) {
        if (message[i] != '\n' && message[i] != '\r') out.push_back(message[i]);
    }
    return CTools::MaskIdTokenFromJson(out);
}

int CWebSocketClient::SendMessage(const char* message, int length) {
    if (message == nullptr || length <= 0) return 0;
    LOG_INFO("[OCPP=>CSMS] %s", OneLine(message, length).c_str());
    int type = 0;
    std::string id;
    if (CInboundFrame::ReadHead(message, static_cast<size_t>(length), type, id)) {
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
