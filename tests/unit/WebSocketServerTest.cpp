#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <mutex>
#include <vector>
#include <cstring>
#include <string>

#include "TestSupport.h"
#include "WebSocket/WebSocketClient.h"
#include "WebSocket/WebSocketConnect.h"
#include "WsTestPeers.h"

using namespace ocpptest;

namespace {
std::string Url(const std::string& scheme, int port) {
    return scheme + "://127.0.0.1:" + std::to_string(port) + "/CP001";
}

ConnectParam Credentials(const char* name, const char* password) {
    ConnectParam p{};
    strncpy(p.szName, name, sizeof(p.szName) - 1);
    strncpy(p.szPwd, password, sizeof(p.szPwd) - 1);
    p.eConnType = CONNTYPE_BASIC;
    return p;
}

// A host that answers every message from inside its callback.
class AnsweringHost : public CWebSocketServerCallBack {
public:
    void OnNewSession(CWebSocketServer*, struct lws* connection) override {
        std::lock_guard<std::mutex> lock(mutex);
        session = connection;
        ++opened;
    }
    void OnCloseSession(CWebSocketServer*, struct lws*) override { ++closed; }
    void OnMessage(CWebSocketServer* server, struct lws* connection, const char* data, int length) override {
        std::string text(data, static_cast<size_t>(length));
        {
            std::lock_guard<std::mutex> lock(mutex);
            messages.push_back(text);
        }
        replied = server->SendMessage(connection, "[3,\"echo\",{}]");
    }
    struct lws* Session() {
        std::lock_guard<std::mutex> lock(mutex);
        return session;
    }
    std::mutex mutex;
    struct lws* session = nullptr;
    std::vector<std::string> messages;
    std::atomic<int> opened{0};
    std::atomic<int> closed{0};
    std::atomic<int> replied{-1};
};
}  // namespace

TEST(LocalServer, SessionsWithoutBasicAuthenticationAreRefusedAndThePasswordIsNotLogged) {
    RecordingCsms csms;
    LogCapture log;
    {
        RecordingClientEvents link;  // outlives the client: upcalls may come until it closes
        CWebSocketClient client;
        ASSERT_EQ(client.Init(Url("ocpp2.0.1", csms.Port()).c_str(), &link, 5), 1);
        ASSERT_TRUE(WaitFor([&] { return link.errors == 1; }, 5000));
        EXPECT_EQ(link.connected, 0);
        EXPECT_TRUE(log.Contains("missing basic"));
        EXPECT_EQ(csms.sessionsOpened, 0);
    }
    RecordingClientEvents link;  // outlives the client: upcalls may come until it closes
    CWebSocketClient client;
    client.SetNamePwd("CP001", "s3cr3t");
    ASSERT_EQ(client.Init(Url("ocpp2.0.1", csms.Port()).c_str(), &link, 5), 1);
    ASSERT_TRUE(WaitFor([&] { return link.connected == 1; }, 5000));
    EXPECT_TRUE(log.Contains("AUTHORIZATION:CP001:"));
    for (const auto& line : log.Lines()) EXPECT_EQ(line.text.find("s3cr3t"), std::string::npos) << line.text;
}

TEST(LocalServer, HostStartsServerAnswersFromItsCallbackAndCanDropASession) {
    AnsweringHost host;
    CWebSocketServer* server = OcppProtocol_StartWebSocketServer(0, &host);
    ASSERT_NE(server, nullptr);
    RecordingClientEvents link;  // outlives the client: upcalls may come until it closes
    CWebSocketClient client;
    client.SetNamePwd("host", "pw");
    // The scheme names the subprotocol: "ws" is the local server's.
    ASSERT_EQ(client.Init(Url("ws", server->GetPort()).c_str(), &link, 5), 1);
    ASSERT_TRUE(WaitFor([&] { return link.connected == 1; }, 5000));
    ASSERT_TRUE(WaitFor([&] { return host.opened == 1; }));
    const std::string frame = "[2,\"h-1\",\"Heartbeat\",{}]";
    ASSERT_EQ(client.SendMessage(frame.c_str(), static_cast<int>(frame.size())), 1);
    ASSERT_TRUE(WaitFor([&] { return link.Messages().size() == 1; }));
    EXPECT_EQ(link.Messages()[0], "[3,\"echo\",{}]");
    {
        std::lock_guard<std::mutex> lock(host.mutex);
        ASSERT_EQ(host.messages.size(), 1u);
        EXPECT_EQ(host.messages[0], frame);
    }
    EXPECT_EQ(host.replied, 1);

    // From another thread the host learns what the write did.
    EXPECT_EQ(server->SendMessage(host.Session(), "[2,\"h-2\",\"Reset\",{}]"), 1);
    ASSERT_TRUE(WaitFor([&] { return link.Messages().size() == 2; }));
    EXPECT_EQ(server->SendMessage(nullptr, "x"), 0) << "unknown session";

    server->RemoveConnection(host.Session());
    EXPECT_TRUE(WaitFor([&] { return link.errors == 1; }, 5000)) << "a dropped session ends the client's link";
    EXPECT_TRUE(WaitFor([&] { return host.closed == 1; }, 5000));
    EXPECT_EQ(OcppProtocol_StopWebSocketServer(&server), 1);
    EXPECT_EQ(server, nullptr);
    EXPECT_EQ(OcppProtocol_StopWebSocketServer(&server), 0);
    EXPECT_EQ(OcppProtocol_StopWebSocketServer(nullptr), 0);
}

TEST(ConnectionProbe, ReportsWhetherAProfileCanConnectWithinItsTimeout) {
    RecordingCsms csms;
    ConnectParam good = Credentials("CP001", "secret");
    CWebSocketConnect probe;
    EXPECT_EQ(probe.CheckConnection(Url("ocpp2.0.1", csms.Port()).c_str(), 5, &good), 1);
    EXPECT_TRUE(WaitFor([&] { return csms.sessionsClosed == 1; }, 5000)) << "the probe leaves no session behind";

    // Our server needs Basic authentication: an empty parameter block cannot connect.
    CWebSocketConnect refused;
    EXPECT_EQ(refused.CheckConnection(Url("ocpp2.0.1", csms.Port()).c_str(), 5, nullptr), 0);

    RawWsServer silent(false);  // accepts TCP but never completes the handshake
    LogCapture log;
    CWebSocketConnect slow;
    const auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(slow.CheckConnection(Url("ocpp2.0.1", silent.Port()).c_str(), 1, &good), 0);
    const auto ms =
        std::chrono::duration_cast<std::chrono::milliseconds>(std::chrono::steady_clock::now() - start).count();
    EXPECT_GE(ms, 900);
    EXPECT_LT(ms, 3000);
    EXPECT_TRUE(log.Contains("TestConnect Timieout"));
    EXPECT_NE(silent.WaitRequest(100).find("Authorization: Basic Q1AwMDE6c2VjcmV0"), std::string::npos)
        << "the probe authenticates like the client";
}
