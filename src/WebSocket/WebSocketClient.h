#pragma once
#include <pthread.h>
#include <semaphore.h>

#include <OcppWebSocket.h>

#include <atomic>
#include <condition_variable>
#include <mutex>
#include <cstdint>
#include <deque>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "WebSocket/WebSocketClientCallBack.h"

class CInboundFrame;
struct lws;
struct lws_context;
struct lws_protocols;

// One message id awaiting an answer.
struct SendItem {
    char szMessageId[100];
    int iStatus;  // -1 waiting, 1 answered, 0 failed or timed out
    sem_t sem;
    uint8_t bInbound;  // 1: a CSMS CALL the host has still to answer
    int64_t iCreated;  // run-time seconds
    int iAnswerLen;
    char* pAnswer;
};

struct WebSocketUrlInfo {
    char szProtocol[256];
    char szHost[256];
    int iPort;
    char szPath[256];  // without its leading "/"
};

// TLS handshake failure classes, as bits.
enum {
    TLSFAIL_CSMS_CERTIFICATE = 1,
    TLSFAIL_TLS_VERSION = 2,
    TLSFAIL_CIPHER_SUITE = 4
};

// The CSMS link. Only the service thread calls into libwebsockets (apart from
// lws_cancel_service): senders queue their frame, wake the service thread and
// wait for the outcome of the write.
class CWebSocketClient {
public:
    CWebSocketClient();
    ~CWebSocketClient();
    CWebSocketClient(const CWebSocketClient&) = delete;
    CWebSocketClient& operator=(const CWebSocketClient&) = delete;

    void SetSsl(const char* cert, const char* privateKey, const char* ca);
    void SetNamePwd(const char* name, const char* password);
    void SetPingInterval(int seconds);
    void SetConnType(CONNTYPE type);
    int Init(const char* url, CWebSocketClientCallBack* callback, int64_t messageTimeoutSec);
    void Close();

    int SendMessage(const char* message, int length);
    // Synchronous request. On entry *answerLength is the capacity of `answer`
    // (0 or less means the usual 64 KB buffer); on success it is the answer's length.
    int SendMessage(const char* messageId, const char* message, int length, char* answer, int* answerLength);

    int IsWebSocketConnected();
    int64_t GetLastOperateTimeSec();
    int GetPingInterval();
    void LockSocket() {}
    void UnLockSocket() {}

    // Periodic procedures, run by the client's own threads once a second.
    void SweepTimeouts();
    void CheckPing();

    size_t WaitingCount();
    // TLSFAIL_ bits raised by the last connection attempt.
    int GetTlsFailures();

    // Shared with the connection probe.
    static int GetUrlInfo(const char* url, WebSocketUrlInfo& info);
    // The five lines both the client and the probe print about a parsed URL.
    static void LogUrlInfo(const char* url, const WebSocketUrlInfo& info);
    static lws_context* CreateClientContext(const lws_protocols* protocols, bool tls, const std::string& cert,
                                            const std::string& privateKey, const std::string& ca, void* user);
    static lws* ConnectClient(lws_context* context, const WebSocketUrlInfo& info, bool tls);
    static int AppendBasicAuthHeader(lws* wsi, void* in, size_t len, const std::string& name,
                                     const std::string& password);
    // Raises the SDK core's sticky flags for the failure; returns the TLSFAIL_ bits found.
    static int ClassifyTlsError(const char* errorText);
    // 1 refuses the peer certificate; 0 leaves the TLS library's verdict alone.
    // `refused` tells whether the certificate fails either way.
    static int VerifyPeerCertificate(void* x509StoreCtx, int preverifyOk, bool& refused);
    static bool IsRefusedWildcardCommonName(const char* commonName);
    static void SetWildcardRefusedDomain(const char* label);
    static std::string GetWildcardRefusedDomain();
    static void LogTlsSession(lws* wsi);
    static void RouteLibraryLog();
    static const int kDefaultAnswerCapacity = 65535;
    // Longest a request may be given; the sum with the monotonic clock must fit a 32-bit time_t.
    static const int64_t kMaxWaitSec = 86400;

    // The libwebsockets callback; public only so the protocol table can name it.
    int OnLwsEvent(lws* wsi, int reason, void* user, void* in, size_t len);

private:
    struct OutFrame {
        std::vector<unsigned char> data;  // pre-padding + payload
        size_t length = 0;
        bool ping = false;
        std::atomic<bool> done{false};  // set under the socket lock
        int written = 0;                // socket lock
    };

    void WakeService();
    void NotifyWritten();
    static void* ServiceProc(void* self);
    static void* SweepProc(void* self);
    static void* PingProc(void* self);
    bool WaitPeriod(int milliseconds);
    bool IsServiceThread() const;
    bool IsOwnThread() const;

    // One method per group of libwebsockets events.
    void OnConnectionError(const void* in, size_t len);
    void OnEstablished(lws* wsi);
    void OnReceive(lws* wsi, const void* in, size_t len);
    void DropRecvBuffer();
    // A CALLERROR the transport itself owes: written at once, no wait-table item behind it.
    static std::string ErrorFrame(const std::string& id, const char* code, const char* description);
    void SendOwnError(const std::string& id, const char* code, const char* description);
    void OnServiceWoken();
    void OnPeerClose(const void* in, size_t len);
    int OnVerifyServerCertificate(void* x509StoreCtx, size_t preverifyOk);

    void OnWebSocketMessage(std::unique_ptr<CInboundFrame> frame);
    // The frame as it goes to the log: tokens masked, line breaks removed.
    static std::string OneLine(const char* message, int length);
    void OnLinkDown(const char* why);
    void FailQueuedFrames();  // socket lock held
    int WriteFrame(const char* message, int length, const char* failFormat, bool& closeNeeded);
    void WriteNextFrame(lws* wsi);
    SendItem* NewItem(const std::string& id, uint8_t inbound);
    void FreeItem(SendItem* item);
    void ReleaseWaiters();

    int m_iPingInterval = 0;
    int64_t m_iLastOperateTime = 0;
    int64_t m_iMessageTimeout = 3;
    std::atomic<int> m_iStop{1};
    std::atomic<bool> m_bClosing{false};
    lws_context* m_pContext = nullptr;
    lws* m_pWsi = nullptr;
    pthread_t m_serviceThread{};
    pthread_t m_sweepThread{};
    pthread_t m_pingThread{};
    bool m_bThreadsRunning = false;
    char* m_pRecvBuffer = nullptr;
    size_t m_iRecvLen = 0;
    bool m_bRecvOverflow = false;
    bool m_bOversizeCall = false;
    std::string m_strOversizeId;
    // The longest message id the station keeps and can answer with.
    static const size_t kMaxMessageIdLen = 36;
    pthread_mutex_t m_socketLock;
    pthread_mutex_t m_requestLock;
    int m_iState = 0;  // 0 new, 1 connecting, 2 connected, 3 disconnected
    CWebSocketClientCallBack* m_pCallBack = nullptr;
    pthread_mutex_t m_waitLock;
    std::map<std::string, SendItem*> m_waitTable;
    std::string m_strCert;
    std::string m_strPrivateKey;
    std::string m_strCa;
    std::string m_strName;
    std::string m_strPwd;
    int m_iPongReceived = 1;
    bool m_bPeerCertRefused = false;  // socket lock
    int m_iTlsFailures = 0;           // socket lock
    CONNTYPE m_eConnType = CONNTYPE_WS;

    std::string m_strProtocol;  // must outlive the context: it names the protocol entry
    lws_protocols* m_pProtocols = nullptr;
    std::deque<std::shared_ptr<OutFrame>> m_sendQueue;  // socket lock
    // Senders wait for their write on a lock of its own, so the service thread
    // never has to win the socket lock back from a waking sender.
    std::mutex m_writeDoneMutex;
    std::condition_variable m_writeCv;
    // Wakes the service thread without the socket lock, which the woken thread
    // takes at once; guards the context against Close destroying it meanwhile.
    std::mutex m_wakeLock;
    lws_context* m_pWakeContext = nullptr;  // wake lock
    std::condition_variable_any m_removedCv;             // wait-table lock
    pthread_mutex_t m_periodLock;
    pthread_mutex_t m_closeLock;
    std::condition_variable_any m_periodCv;  // wakes sweeper and ping thread on Close
    std::atomic<int64_t> m_iPingCheckPoint{0};
};
