#include "WebSocket/WebSocketConnect.h"

#include <libwebsockets.h>

#include <chrono>
#include <cstring>

#include "Util/CriticalSectionManager.h"
#include "Util/Thread.h"
#include "Util/Tools.h"
#include "WebSocket/LwsTrampoline.h"
#include "WebSocket/TlsFailureFlags.h"
#include "WebSocket/WebSocketClient.h"

namespace {
const int kPollMs = 100;

int ProbeLwsCallback(struct lws* wsi, enum lws_callback_reasons reason, void* user, void* in, size_t len) {
    return DispatchLwsEvent<CWebSocketConnect>(wsi, reason, "probe", [&](CWebSocketConnect& self) {
        return self.OnLwsEvent(wsi, static_cast<int>(reason), user, in, len);
    });
}

std::string Field(const char* text, size_t capacity) { return std::string(text, strnlen(text, capacity)); }
}  // namespace

CWebSocketConnect::CWebSocketConnect() {
    pthread_mutex_init(&m_lock, nullptr);
    m_pProtocols = new lws_protocols[2];
    memset(m_pProtocols, 0, sizeof(lws_protocols) * 2);
}

CWebSocketConnect::~CWebSocketConnect() {
    delete[] m_pProtocols;
    pthread_mutex_destroy(&m_lock);
}

void CWebSocketConnect::SetResult(int result) {
    {
        OCPP_SECTION(&m_lock);
        if (m_iResult != -1) return;
        m_iResult = result;
    }
    m_resultCv.notify_all();
}

void* CWebSocketConnect::ServiceProc(void* self) {
    CWebSocketConnect* probe = static_cast<CWebSocketConnect*>(self);
    while (probe->m_iStop == 0) lws_service(probe->m_pContext, 1000);
    return nullptr;
}

int CWebSocketConnect::CheckConnection(const char* url, int timeoutSec, const ConnectParam* param) {
    ConnectParam empty;
    memset(&empty, 0, sizeof(empty));
    const ConnectParam& p = param != nullptr ? *param : empty;
    m_eConnType = p.eConnType;
    WebSocketUrlInfo info;
    int parsed = CWebSocketClient::GetUrlInfo(url, info);
    LOG_INFO("=============WebSocketConnect===============\n");
    CWebSocketClient::LogUrlInfo(url, info);
    LOG_INFO("=======>CWebSocketConnect::CheckConnection eConnType <%d>\n", static_cast<int>(m_eConnType));
    if (!parsed) return 0;
    m_strName = Field(p.szName, sizeof(p.szName));
    m_strPwd = Field(p.szPwd, sizeof(p.szPwd));
    bool tls = m_eConnType == CONNTYPE_TLS_BASIC || m_eConnType == CONNTYPE_TLS_CLIENT_CERT;
    if (tls) LOG_INFO("===>Enable Ssl\n");

    m_strProtocol = info.szProtocol;
    memset(m_pProtocols, 0, sizeof(lws_protocols) * 2);
    m_pProtocols[0].name = m_strProtocol.c_str();
    m_pProtocols[0].callback = ProbeLwsCallback;
    m_pProtocols[0].user = this;
    {
        OCPP_SECTION(&m_lock);
        m_iResult = -1;
    }
    m_bPeerCertRefused = false;
    std::string cert = Field(p.szCert, sizeof(p.szCert));
    std::string key = Field(p.szPrivateKey, sizeof(p.szPrivateKey));
    std::string ca = Field(p.szCa, sizeof(p.szCa));
    m_pContext = CWebSocketClient::CreateClientContext(m_pProtocols, tls, cert, key, ca, this);
    if (m_pContext == nullptr) {
        LOG_ERROR("websocket connect lws_create_context fail");
        return 0;
    }
    int64_t startMs = CTools::GetCurRunTimeMilSec();
    if (CWebSocketClient::ConnectClient(m_pContext, info, tls) == nullptr) SetResult(0);
    m_iStop = 0;
    pthread_t service = LinuxCreateThread(nullptr, ServiceProc, this);

    int result;
    {
        OCPP_SECTION_NAMED(guard, &m_lock);
        while (m_iResult == -1) {
            m_resultCv.wait_for(guard, std::chrono::milliseconds(kPollMs));
            if (m_iResult == -1 && CTools::GetCurRunTimeMilSec() - startMs >= static_cast<int64_t>(timeoutSec) * 1000) {
                LOG_ERROR("TestConnect Timieout\n");
                m_iResult = 0;
            }
        }
        result = m_iResult;
    }
    LOG_INFO("======Conn result=======>%d\n", result);
    m_iStop = 1;
    lws_cancel_service(m_pContext);
    pthread_join(service, nullptr);
    lws_context_destroy(m_pContext);
    m_pContext = nullptr;
    return result;
}

int CWebSocketConnect::OnLwsEvent(lws* wsi, int reason, void* user, void* in, size_t len) {
    switch (reason) {
        case LWS_CALLBACK_CLIENT_ESTABLISHED:
            LOG_INFO("连接成功\n");
            SetResult(1);
            break;
        case LWS_CALLBACK_CLIENT_CONNECTION_ERROR: {
            char text[1024] = {0};
            if (in != nullptr) {
                size_t n = len < sizeof(text) - 1 ? len : sizeof(text) - 1;
                if (n == 0) n = strnlen(static_cast<const char*>(in), sizeof(text) - 1);
                memcpy(text, in, n);
            }
            LOG_ERROR("client LWS_CALLBACK_CLIENT_CONNECTION_ERROR: %s\n", text);
            int failures = CWebSocketClient::ClassifyTlsError(text);
            if (m_bPeerCertRefused && !(failures & TLSFAIL_CSMS_CERTIFICATE)) OcppProtocol_SetInvalidCsmsCertificate(1);
            LOG_ERROR("连接错误:%d\n", reason);
            SetResult(0);
            break;
        }
        case LWS_CALLBACK_WSI_DESTROY:
            SetResult(0);
            break;
        case LWS_CALLBACK_CLIENT_APPEND_HANDSHAKE_HEADER:
            return CWebSocketClient::AppendBasicAuthHeader(wsi, in, len, m_strName, m_strPwd);
        case LWS_CALLBACK_OPENSSL_PERFORM_SERVER_CERT_VERIFICATION:
            if (m_eConnType == CONNTYPE_TLS_BASIC || m_eConnType == CONNTYPE_TLS_CLIENT_CERT) {
                bool refused = false;
                int verdict = CWebSocketClient::VerifyPeerCertificate(user, static_cast<int>(len), refused);
                if (refused) m_bPeerCertRefused = true;
                return verdict;
            }
            break;
        default:
            break;
    }
    return 0;
}
