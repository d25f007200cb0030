#pragma once
// Peers for transport tests: a bare-socket WebSocket server that shows the raw
// handshake and can send frames the library's own server never would, and a
// recording CSMS built on the library's local server.
#include <OcppWebSocket.h>

#include <atomic>
#include <functional>
#include <future>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "WebSocket/WebSocketClientCallBack.h"

namespace ocpptest {

// Minimal server on 127.0.0.1 and an ephemeral port, one connection at a time.
class RawWsServer {
public:
    explicit RawWsServer(bool answerHandshake = true);
    ~RawWsServer();
    int Port() const { return m_port; }
    // The client's handshake request, once it has arrived (empty on time-out).
    std::string WaitRequest(int timeoutMs = 5000);
    // One server frame (unmasked) with the given first byte (FIN, opcode).
    bool SendFrame(unsigned char finAndOpcode, const std::string& payload);
    void CloseConnection();
    // Bytes the client sent after its handshake, still masked.
    std::string Received();

private:
    void Run();
    void Serve();
    bool m_answer;
    std::mutex m_fdMutex;
    int m_listenFd = -1;
    int m_port = 0;
    std::atomic<int> m_connFd{-1};
    std::atomic<bool> m_stop{false};
    std::mutex m_mutex;
    std::string m_request;
    std::string m_received;
    std::thread m_thread;
};

// Library's local server acting as CSMS; records what the station sends.
class RecordingCsms : public CWebSocketServerCallBack {
public:
    // TLS when any PEM text is given.
    explicit RecordingCsms(const std::string& protocol = "ocpp2.0.1", const std::string& cert = "",
                           const std::string& key = "", const std::string& ca = "");
    ~RecordingCsms() override;
    int Port() const { return m_server.GetPort(); }
    bool Started() const { return m_started; }
    // Sends to the most recent session; false without one.
    bool Send(const std::string& text);
    bool WaitSession(int timeoutMs = 5000);
    std::vector<std::string> Messages();
    size_t CountContaining(const std::string& needle);
    bool WaitMessageContaining(const std::string& needle, int timeoutMs = 5000);
    // Called on the server thread for every message; may answer through Send.
    std::function<void(const std::string&)> onMessage;

    void OnNewSession(CWebSocketServer* server, struct lws* connection) override;
    void OnCloseSession(CWebSocketServer* server, struct lws* connection) override;
    void OnMessage(CWebSocketServer* server, struct lws* connection, const char* data, int length) override;

    std::atomic<int> sessionsOpened{0};
    std::atomic<int> sessionsClosed{0};

private:
    CWebSocketServer m_server;
    bool m_started = false;
    std::mutex m_mutex;
    struct lws* m_session = nullptr;
    std::vector<std::string> m_messages;
};

// Station-side callback that records what the transport reports.
class RecordingClientEvents : public CWebSocketClientCallBack {
public:
    void OnConnectSuccess() override { ++connected; }
    void OnConnectError() override { ++errors; }
    void OnMessage(std::unique_ptr<CInboundFrame> frame) override;
    std::vector<std::string> Messages();
    std::atomic<int> connected{0};
    std::atomic<int> errors{0};

private:
    std::mutex m_mutex;
    std::vector<std::string> m_messages;
};

// A synchronous Heartbeat request with message id `id` through `sender`, made on a thread of its own.
template <class Sender>
std::future<int> RequestAsync(Sender& sender, const std::string& id) {
    return std::async(std::launch::async, [&sender, id] {
        const std::string request = "[2,\"" + id + "\",\"Heartbeat\",{}]";
        char answer[256] = {0};
        int len = sizeof(answer);
        return sender.SendMessage(id.c_str(), request.c_str(), static_cast<int>(request.size()), answer, &len);
    });
}

// Test PKI made with the openssl command line in `dir`.
struct TestPki {
    std::string caCert;
    std::string serverCert;
    std::string serverKey;
};
// A CA and a server certificate for 127.0.0.1 with the given Common Name; empty on failure.
TestPki MakeTestPki(const std::string& dir, const std::string& serverCommonName);

}  // namespace ocpptest
