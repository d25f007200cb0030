#include "WebSocket/WebSocketServer.h"

#include <libwebsockets.h>
#include <openssl/ssl.h>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdlib>
#include <cstring>
#include <deque>
#include <map>
#include <memory>
#include <exception>
#include <new>
#include <string>
#include <vector>

#include "Util/CriticalSectionManager.h"
#include "Util/Thread.h"
#include "Util/Tools.h"
#include "WebSocket/LwsTrampoline.h"
#include "WebSocket/WebSocketClient.h"

namespace {
const size_t kMaxMessageBytes = 4u * 1024u * 1024u;
const int kWriteWaitSec = 5;
const size_t kMaxAuthorizationBytes = 1024;

struct ServerFrame {
    std::vector<unsigned char> data;  // pre-padding + payload
    size_t length = 0;
    bool done = false;
    int written = 0;
};

struct SessionItem {
    lws* wsi = nullptr;
    size_t iRecvLen = 0;
    char* pRecvBuffer = nullptr;
    bool bRecvOverflow = false;
    bool bCloseRequested = false;
    std::deque<std::shared_ptr<ServerFrame>> queue;
};

thread_local const void* t_pServing = nullptr;

int ServerLwsCallback(struct lws* wsi, enum lws_callback_reasons reason, void* user, void* in, size_t len);
}  // namespace

// The host sees only the server class; its internals stay inside the library.
struct __attribute__((visibility("hidden"))) CWebSocketServer::Impl {
    CWebSocketServer* pOwner = nullptr;
    std::string strProtocol;
    std::string strCert;
    std::string strKey;
    std::string strCa;
    lws_protocols protocols[2];
    lws_context* pContext = nullptr;
    // Handed to the library so it does not make (and, in this version, leak) one of its own.
    SSL_CTX* pClientCtx = nullptr;
    int iPort = 0;
    CWebSocketServerCallBack* pCallBack = nullptr;
    pthread_mutex_t lock;
    std::condition_variable_any writeCv;
    std::map<lws*, SessionItem*> sessions;
    std::atomic<int> iStop{1};
    pthread_t thread{};
    bool bRunning = false;

    static void* ServiceProc(void* self);
    int OnEvent(lws* wsi, int reason, void* in, size_t len);
    int CheckAuthorization(lws* wsi);
    void OnReceive(lws* wsi, const void* in, size_t len);
    void DropSession(lws* wsi);
    int Send(lws* wsi, const char* data, int length);
};

namespace {
int ServerLwsCallback(struct lws* wsi, enum lws_callback_reasons reason, void*, void* in, size_t len) {
    return DispatchLwsEvent<CWebSocketServer::Impl>(wsi, reason, "server", [&](CWebSocketServer::Impl& impl) {
        return impl.OnEvent(wsi, static_cast<int>(reason), in, len);
    });
}

void FailFrames(SessionItem* session) {
    for (auto& frame : session->queue) {
        frame->done = true;
        frame->written = 0;
    }
    session->queue.clear();
}
}  // namespace

CWebSocketServer::CWebSocketServer() : m_pImpl(new Impl) {
    m_pImpl->pOwner = this;
    pthread_mutex_init(&m_pImpl->lock, nullptr);
    memset(m_pImpl->protocols, 0, sizeof(m_pImpl->protocols));
}

CWebSocketServer::~CWebSocketServer() {
    Close();
    pthread_mutex_destroy(&m_pImpl->lock);
    delete m_pImpl;
}

void CWebSocketServer::SetSsl(const char* cert, const char* privateKey, const char* ca) {
    OCPP_SECTION(&m_pImpl->lock);
    m_pImpl->strCert = cert != nullptr ? cert : "";
    m_pImpl->strKey = privateKey != nullptr ? privateKey : "";
    m_pImpl->strCa = ca != nullptr ? ca : "";
}

int CWebSocketServer::Init(const char* protocolName, int port, CWebSocketServerCallBack* callback) {
    Close();
    Impl* impl = m_pImpl;
    CWebSocketClient::RouteLibraryLog();
    impl->strProtocol = protocolName != nullptr ? protocolName : "";
    impl->pCallBack = callback;
    memset(impl->protocols, 0, sizeof(impl->protocols));
    impl->protocols[0].name = impl->strProtocol.c_str();
    impl->protocols[0].callback = ServerLwsCallback;
    impl->protocols[0].user = impl;

    struct lws_context_creation_info info;
    memset(&info, 0, sizeof(info));
    info.port = port;
    info.protocols = impl->protocols;
    info.gid = -1;
    info.uid = -1;
    info.user = impl;
    info.options = LWS_SERVER_OPTION_VALIDATE_UTF8;
    if (!impl->strCert.empty() || !impl->strKey.empty() || !impl->strCa.empty()) {
        // The server never dials out: the system CA bundle would only cost memory.
        info.options |= LWS_SERVER_OPTION_DO_SSL_GLOBAL_INIT | LWS_SERVER_OPTION_DISABLE_OS_CA_CERTS;
        if (!impl->strCert.empty()) {
            info.server_ssl_cert_mem = impl->strCert.c_str();
            info.server_ssl_cert_mem_len = static_cast<unsigned int>(impl->strCert.size());
        }
        if (!impl->strKey.empty()) {
            info.server_ssl_private_key_mem = impl->strKey.c_str();
            info.server_ssl_private_key_mem_len = static_cast<unsigned int>(impl->strKey.size());
        }
        if (!impl->strCa.empty()) {
            info.server_ssl_ca_mem = impl->strCa.c_str();
            info.server_ssl_ca_mem_len = static_cast<unsigned int>(impl->strCa.size());
        }
        impl->pClientCtx = SSL_CTX_new(TLS_client_method());
        info.provided_client_ssl_ctx = impl->pClientCtx;
    }
    impl->pContext = lws_create_context(&info);
    if (impl->pContext == nullptr) {
        SSL_CTX_free(impl->pClientCtx);
        impl->pClientCtx = nullptr;
        LOG_ERROR("websocket server lws_create_context fail port<%d>", port);
        return 0;
    }
    lws_vhost* vhost = lws_get_vhost_by_name(impl->pContext, "default");
    impl->iPort = vhost != nullptr ? lws_get_vhost_listen_port(vhost) : port;
    impl->iStop = 0;
    impl->thread = LinuxCreateThread(nullptr, Impl::ServiceProc, impl);
    impl->bRunning = true;
    LOG_INFO("websocket server <%s> listening on port %d", impl->strProtocol.c_str(), impl->iPort);
    return 1;
}

int CWebSocketServer::GetPort() const { return m_pImpl->iPort; }

void* CWebSocketServer::Impl::ServiceProc(void* self) {
    Impl* impl = static_cast<Impl*>(self);
    t_pServing = impl;
    while (impl->iStop == 0) lws_service(impl->pContext, 1000);
    t_pServing = nullptr;
    return nullptr;
}

void CWebSocketServer::Close() {
    Impl* impl = m_pImpl;
    if (t_pServing == impl) {
        LOG_ERROR("CWebSocketServer::Close called on its own thread, ignored");
        return;
    }
    if (impl->pContext == nullptr) return;
    impl->iStop = 1;
    if (impl->bRunning) {
        lws_cancel_service(impl->pContext);
        pthread_join(impl->thread, nullptr);
        impl->bRunning = false;
    }
    lws_context* context = nullptr;
    {
        OCPP_SECTION(&impl->lock);
        context = impl->pContext;
        impl->pContext = nullptr;
    }
    // Closing the sessions calls back for each of them.
    lws_context_destroy(context);
    SSL_CTX_free(impl->pClientCtx);
    impl->pClientCtx = nullptr;
    {
        OCPP_SECTION(&impl->lock);
        for (auto& entry : impl->sessions) {
            FailFrames(entry.second);
            free(entry.second->pRecvBuffer);
            delete entry.second;
        }
        impl->sessions.clear();
    }
    impl->writeCv.notify_all();
    LOG_INFO("websocket server closed");
}

int CWebSocketServer::SendMessage(lws* connection, const char* text) {
    if (text == nullptr) return 0;
    return m_pImpl->Send(connection, text, static_cast<int>(strlen(text)));
}

int CWebSocketServer::SendMessage(lws* connection, const char* data, int length) {
    return m_pImpl->Send(connection, data, length);
}

void CWebSocketServer::RemoveConnection(lws* connection) {
    OCPP_SECTION(&m_pImpl->lock);
    auto it = m_pImpl->sessions.find(connection);
    if (it == m_pImpl->sessions.end() || m_pImpl->pContext == nullptr) return;
    it->second->bCloseRequested = true;
    if (t_pServing == m_pImpl) {
        lws_callback_on_writable(connection);
    } else {
        lws_cancel_service(m_pImpl->pContext);
    }
}

int CWebSocketServer::Impl::Send(lws* wsi, const char* data, int length) {
    if (data == nullptr || length <= 0) return 0;
    auto frame = std::make_shared<ServerFrame>();
    frame->data.resize(LWS_PRE + static_cast<size_t>(length));
    memcpy(frame->data.data() + LWS_PRE, data, static_cast<size_t>(length));
    frame->length = static_cast<size_t>(length);
    OCPP_SECTION_NAMED(guard, &lock);
    auto it = sessions.find(wsi);
    if (it == sessions.end() || pContext == nullptr) return 0;
    it->second->queue.push_back(frame);
    if (t_pServing == this) {
        // From inside a callback: the write happens when this thread gets back to the loop.
        lws_callback_on_writable(wsi);
        return 1;
    }
    lws_cancel_service(pContext);
    writeCv.wait_for(guard, std::chrono::seconds(kWriteWaitSec), [&] { return frame->done; });
    if (!frame->done) {
        auto again = sessions.find(wsi);
        if (again != sessions.end()) {
            auto& queue = again->second->queue;
            for (auto q = queue.begin(); q != queue.end(); ++q) {
                if (*q == frame) {
                    queue.erase(q);
                    break;
                }
            }
        }
        return 0;
    }
    return frame->written >= length ? 1 : 0;
}

int CWebSocketServer::Impl::CheckAuthorization(lws* wsi) {
    int total = lws_hdr_total_length(wsi, WSI_TOKEN_HTTP_AUTHORIZATION);
    if (total < 0 || static_cast<size_t>(total) >= kMaxAuthorizationBytes) total = 0;
    char header[kMaxAuthorizationBytes] = {0};
    if (total > 0) lws_hdr_copy(wsi, header, sizeof(header), WSI_TOKEN_HTTP_AUTHORIZATION);
    if (strncmp(header, "Basic", 5) != 0) {
        LOG_ERROR("missing basic: %s\n", header);
        return -1;
    }
    if (strlen(header) <= 6) return -1;
    char decoded[kMaxAuthorizationBytes] = {0};
    int n = lws_b64_decode_string(header + 6, decoded, sizeof(decoded) - 1);
    if (n < 0) n = 0;
    decoded[n] = '\0';
    // The password stays out of the log.
    char* colon = strchr(decoded, ':');
    if (colon != nullptr) CTools::CopyField(colon + 1, sizeof(decoded) - static_cast<size_t>(colon + 1 - decoded), "***");
    LOG_INFO("AUTHORIZATION:%s\n", decoded);
    return 0;
}

void CWebSocketServer::Impl::OnReceive(lws* wsi, const void* in, size_t len) {
    SessionItem* session = nullptr;
    {
        OCPP_SECTION(&lock);
        auto it = sessions.find(wsi);
        if (it == sessions.end()) return;
        session = it->second;
    }
    // Only this thread touches the reassembly buffer.
    if (session->bRecvOverflow || session->iRecvLen + len > kMaxMessageBytes) {
        if (!session->bRecvOverflow) LOG_ERROR("websocket server message too large, dropped");
        session->bRecvOverflow = true;
        free(session->pRecvBuffer);
        session->pRecvBuffer = nullptr;
        session->iRecvLen = 0;
    } else {
        char* grown = static_cast<char*>(realloc(session->pRecvBuffer, session->iRecvLen + len + 1));
        if (grown == nullptr) {
            session->bRecvOverflow = true;
            free(session->pRecvBuffer);
            session->pRecvBuffer = nullptr;
            session->iRecvLen = 0;
        } else {
            session->pRecvBuffer = grown;
            if (len > 0) memcpy(grown + session->iRecvLen, in, len);
            session->iRecvLen += len;
        }
    }
    if (!lws_is_final_fragment(wsi)) return;
    char* message = session->pRecvBuffer;
    size_t length = session->iRecvLen;
    bool complete = !session->bRecvOverflow && message != nullptr;
    session->pRecvBuffer = nullptr;
    session->iRecvLen = 0;
    session->bRecvOverflow = false;
    if (complete) {
        message[length] = '\0';
        if (pCallBack != nullptr) pCallBack->OnMessage(pOwner, wsi, message, static_cast<int>(length));
    }
    free(message);
}

void CWebSocketServer::Impl::DropSession(lws* wsi) {
    SessionItem* session = nullptr;
    {
        OCPP_SECTION(&lock);
        auto it = sessions.find(wsi);
        if (it == sessions.end()) return;
        session = it->second;
        sessions.erase(it);
        FailFrames(session);
    }
    writeCv.notify_all();
    free(session->pRecvBuffer);
    delete session;
    if (pCallBack != nullptr) pCallBack->OnCloseSession(pOwner, wsi);
}

int CWebSocketServer::Impl::OnEvent(lws* wsi, int reason, void* in, size_t len) {
    switch (reason) {
        case LWS_CALLBACK_FILTER_PROTOCOL_CONNECTION:
            return CheckAuthorization(wsi);
        case LWS_CALLBACK_ESTABLISHED: {
            SessionItem* session = new SessionItem;
            session->wsi = wsi;
            {
                OCPP_SECTION(&lock);
                sessions[wsi] = session;
            }
            if (pCallBack != nullptr) pCallBack->OnNewSession(pOwner, wsi);
            break;
        }
        case LWS_CALLBACK_RECEIVE:
            OnReceive(wsi, in, len);
            break;
        case LWS_CALLBACK_SERVER_WRITEABLE: {
            bool more = false;
            {
                OCPP_SECTION(&lock);
                auto it = sessions.find(wsi);
                if (it == sessions.end()) break;
                SessionItem* session = it->second;
                if (session->bCloseRequested) return -1;
                if (session->queue.empty()) break;
                std::shared_ptr<ServerFrame> frame = session->queue.front();
                session->queue.pop_front();
                frame->written = lws_write(wsi, frame->data.data() + LWS_PRE, frame->length, LWS_WRITE_TEXT);
                frame->done = true;
                more = !session->queue.empty();
            }
            writeCv.notify_all();
            if (more) lws_callback_on_writable(wsi);
            break;
        }
        case LWS_CALLBACK_EVENT_WAIT_CANCELLED: {
            OCPP_SECTION(&lock);
            for (auto& entry : sessions) {
                if (!entry.second->queue.empty() || entry.second->bCloseRequested) lws_callback_on_writable(entry.first);
            }
            break;
        }
        case LWS_CALLBACK_CLOSED:
            DropSession(wsi);
            break;
        default:
            break;
    }
    return 0;
}

CWebSocketServer* OcppProtocol_StartWebSocketServer(int port, CWebSocketServerCallBack* callback) {
    CWebSocketServer* server = new (std::nothrow) CWebSocketServer();
    if (server == nullptr) return nullptr;
    if (!server->Init("ws", port, callback)) {
        delete server;
        return nullptr;
    }
    return server;
}

int OcppProtocol_StopWebSocketServer(CWebSocketServer** server) {
    if (server == nullptr || *server == nullptr) return 0;
    (*server)->Close();
    delete *server;
    *server = nullptr;
    return 1;
}
