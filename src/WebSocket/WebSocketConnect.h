#pragma once
#include <pthread.h>

#include <OcppWebSocket.h>

#include <atomic>
#include <condition_variable>
#include <string>

struct lws;
struct lws_context;
struct lws_protocols;

// A throw-away connection attempt: tells whether a profile can connect at all,
// without touching the live CSMS link.
class CWebSocketConnect {
public:
    CWebSocketConnect();
    ~CWebSocketConnect();
    CWebSocketConnect(const CWebSocketConnect&) = delete;
    CWebSocketConnect& operator=(const CWebSocketConnect&) = delete;

    // 1 if the WebSocket handshake completed within timeoutSec, else 0. A null param is an empty one.
    int CheckConnection(const char* url, int timeoutSec, const ConnectParam* param);

    // The libwebsockets callback; public only so the protocol table can name it.
    int OnLwsEvent(lws* wsi, int reason, void* user, void* in, size_t len);

private:
    static void* ServiceProc(void* self);
    void SetResult(int result);

    std::string m_strName;
    std::string m_strPwd;
    std::string m_strProtocol;
    CONNTYPE m_eConnType = CONNTYPE_WS;
    lws_protocols* m_pProtocols = nullptr;
    lws_context* m_pContext = nullptr;
    std::atomic<int> m_iStop{1};
    pthread_mutex_t m_lock;
    std::condition_variable_any m_resultCv;
    int m_iResult = -1;  // -1 while undecided
    bool m_bPeerCertRefused = false;  // service thread only
};
