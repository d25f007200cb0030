#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <cstring>
#include <future>
#include <limits>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "TestSupport.h"
#include "Util/Tools.h"
#include "WebSocket/WebSocketClient.h"
#include "WebSocket/WebSocketConnect.h"
#include "WsTestPeers.h"

using namespace ocpptest;

namespace {
std::string Url(int port, const std::string& scheme = "ocpp2.0.1") {
    return scheme + "://127.0.0.1:" + std::to_string(port) + "/ocpp/CP001";
}

int64_t ElapsedMs(std::chrono::steady_clock::time_point since) {
    return std::chrono::duration_cast<std::chrono::milliseconds>(std::chrono::steady_clock::now() - since).count();
}

int Send(CWebSocketClient& client, const std::string& frame) {
    return client.SendMessage(frame.c_str(), static_cast<int>(frame.size()));
}

// The station end of a link. The events come first: upcalls may come until the client
// has closed, which its destructor does last.
struct StationLink {
    bool Start(int port, const std::string& scheme = "ocpp2.0.1", int64_t timeoutSec = 5) {
        return client.Init(Url(port, scheme).c_str(), &link, timeoutSec) == 1;
    }
    bool Connects(int port, const std::string& scheme = "ocpp2.0.1", int64_t timeoutSec = 5) {
        return Start(port, scheme, timeoutSec) && WaitFor([&] { return link.connected == 1; }, 5000);
    }
    // The link fails without ever coming up.
    bool Refused(int port) {
        return Start(port) && WaitFor([&] { return link.errors == 1; }, 5000) && link.connected == 0;
    }
    RecordingClientEvents link;
    CWebSocketClient client;
};

// A security-profile-2 client trusting `ca`.
void ConfigureProfile2(CWebSocketClient& client, const std::string& ca) {
    client.SetConnType(CONNTYPE_TLS_BASIC);
    client.SetNamePwd("CP001", "secret");
    client.SetSsl(nullptr, nullptr, ca.c_str());
}

std::string Dump(LogCapture& log) {
    std::string all;
    for (const auto& line : log.Lines()) all += line.text + "\n";
    return all;
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
        {
            std::lock_guard<std::mutex> lock(mutex);
            messages.emplace_back(data, static_cast<size_t>(length));
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

// An upper layer that, wrongly, makes a synchronous request from the connect callback.
class RequestingLink : public RecordingClientEvents {
public:
    void OnConnectSuccess() override {
        const std::string frame = "[2,\"cb-1\",\"BootNotification\",{}]";
        char answer[256];
        int len = sizeof(answer);
        result = client->SendMessage("cb-1", frame.c_str(), static_cast<int>(frame.size()), answer, &len);
        RecordingClientEvents::OnConnectSuccess();
    }
    CWebSocketClient* client = nullptr;
    std::atomic<int> result{-1};
};

// A client linked to the library's own server playing the CSMS; the clock is restored afterwards.
class WebSocketCsms : public ::testing::Test {
protected:
    // Our own server insists on Basic authentication.
    bool Connect(int64_t timeoutSec = 5) {
        client.SetNamePwd("CP001", "secret");
        return csms.Started() && client.Init(Url(csms.Port()).c_str(), &link, timeoutSec) == 1 &&
               WaitFor([&] { return link.connected == 1; }, 5000) && csms.WaitSession();
    }
    ClockGuard clock;
    RecordingCsms csms;
    RecordingClientEvents link;
    CWebSocketClient client;
};
}  // namespace

TEST(WebSocketUrl, SubprotocolHostPortAndPathComeFromTheFourUrlShapes) {
    const struct {
        const char* url;
        const char* protocol;
        const char* host;
        int port;  // no port means 80, even for TLS profiles
        const char* path;
    } shapes[] = {
        {"ocpp2.0.1://csms.example.com:443/ocpp/CP1", "ocpp2.0.1", "csms.example.com", 443, "ocpp/CP1"},
        {"ocpp2.0.1://host/ocpp/CP1", "ocpp2.0.1", "host", 80, "ocpp/CP1"},
        {"ocpp1.6://10.0.0.5:8180", "ocpp1.6", "10.0.0.5", 8180, ""},
        {"ocpp1.6://bare-host", "ocpp1.6", "bare-host", 80, ""},
    };
    WebSocketUrlInfo u;
    for (const auto& shape : shapes) {
        ASSERT_EQ(CWebSocketClient::GetUrlInfo(shape.url, u), 1) << shape.url;
        EXPECT_STREQ(u.szProtocol, shape.protocol);
        EXPECT_STREQ(u.szHost, shape.host);
        EXPECT_EQ(u.iPort, shape.port) << shape.url;
        EXPECT_STREQ(u.szPath, shape.path);
    }
    EXPECT_EQ(CWebSocketClient::GetUrlInfo("no scheme at all", u), 0);
    EXPECT_EQ(CWebSocketClient::GetUrlInfo(nullptr, u), 0);
    // An over-long host must be cut, not overrun the 256-byte field.
    std::string longUrl = "ocpp2.0.1://" + std::string(600, 'h') + ":80/p";
    CWebSocketClient::GetUrlInfo(longUrl.c_str(), u);
    EXPECT_LT(strlen(u.szHost), sizeof(u.szHost));
}

TEST(WebSocketPing, IntervalHasAThirtySecondFloorAndZeroDisables) {
    CWebSocketClient client;
    for (const auto& set : std::vector<std::pair<int, int>>{{10, 30}, {-5, 30}, {0, 0}, {45, 45}}) {
        client.SetPingInterval(set.first);
        EXPECT_EQ(client.GetPingInterval(), set.second) << set.first;
    }
}

TEST(WebSocketHandshake, RequestCarriesSubprotocolPathAndBasicAuthOnlyWithCredentials) {
    struct Case {
        const char* user;  // nullptr: no credentials set
        const char* password;
        const char* authorization;  // nullptr: no such header
    } cases[] = {
        {"CP001", "secret", "Authorization: Basic Q1AwMDE6c2VjcmV0\r\n"},  // base64("CP001:secret")
        {"", "pw", "Authorization: Basic OnB3\r\n"},                      // a password alone is sent too
        {nullptr, nullptr, nullptr},
    };
    for (const Case& c : cases) {
        RawWsServer raw;
        StationLink station;
        station.client.SetConnType(CONNTYPE_WS);  // the header depends on the credentials, not the type
        if (c.user != nullptr) station.client.SetNamePwd(c.user, c.password);
        ASSERT_TRUE(station.Start(raw.Port()));
        const std::string request = raw.WaitRequest();
        EXPECT_EQ(request.rfind("GET /ocpp/CP001 HTTP/1.1\r\n", 0), 0u) << request;
        EXPECT_NE(request.find("Sec-WebSocket-Protocol: ocpp2.0.1"), std::string::npos) << request;
        if (c.authorization != nullptr) {
            EXPECT_NE(request.find(c.authorization), std::string::npos) << request;
        } else {
            EXPECT_EQ(request.find("Authorization:"), std::string::npos) << request;
        }
        EXPECT_TRUE(WaitFor([&] { return station.link.connected == 1; }));
    }
}

TEST_F(WebSocketCsms, ConnectsReportsOnceAndExchangesFramesBothWays) {
    const int64_t before = CTools::GetCurRunTimeSec();
    ASSERT_TRUE(Connect());
    EXPECT_EQ(link.connected, 1);
    EXPECT_EQ(link.errors, 0);
    EXPECT_GE(client.GetLastOperateTimeSec(), before);

    const std::string call = "[2,\"csms-1\",\"Reset\",{\"type\":\"Immediate\"}]";
    ASSERT_TRUE(csms.Send(call));
    ASSERT_TRUE(WaitFor([&] { return link.Messages().size() == 1; }));
    EXPECT_EQ(link.Messages()[0], call);

    // The host's answer goes out once; a second answer to the same CALL is refused.
    const std::string answer = "[3,\"csms-1\",\n{\"status\":\"Accepted\"}]";
    EXPECT_EQ(Send(client, answer), 1);
    EXPECT_TRUE(csms.WaitMessageContaining("csms-1"));
    EXPECT_EQ(Send(client, answer), 0);
    EXPECT_EQ(client.WaitingCount(), 0u);

    // Station CALLs need no registration.
    EXPECT_EQ(Send(client, "[2,\"st-1\",\"Heartbeat\",{}]"), 1);
    EXPECT_TRUE(csms.WaitMessageContaining("st-1"));
    client.Close();
    EXPECT_EQ(client.IsWebSocketConnected(), 0);
    EXPECT_EQ(link.errors, 0) << "closing on purpose is not a connection loss";
}

TEST(WebSocketLink, ServerDroppingTheLinkIsReportedOnceAndFailsWaitingRequestsAtTheNextSweep) {
    RawWsServer raw;
    StationLink station;
    ASSERT_TRUE(station.Connects(raw.Port(), "ocpp2.0.1", 60));
    CWebSocketClient& client = station.client;
    auto pending = RequestAsync(client, "in-flight");
    ASSERT_TRUE(WaitFor([&] { return !raw.Received().empty(); }, 5000));
    raw.CloseConnection();
    ASSERT_TRUE(WaitFor([&] { return station.link.errors >= 1; }, 5000));
    EXPECT_EQ(client.IsWebSocketConnected(), 0);
    EXPECT_EQ(client.GetLastOperateTimeSec(), 0);
    EXPECT_EQ(Send(client, "[2,\"x\",\"Heartbeat\",{}]"), 0);
    client.SweepTimeouts();
    ASSERT_EQ(pending.wait_for(std::chrono::seconds(2)), std::future_status::ready);
    EXPECT_EQ(pending.get(), 0);
    client.Close();
    EXPECT_EQ(station.link.errors, 1);
}

TEST(WebSocketLink, RequestFromInsideALinkCallbackIsRefusedInsteadOfStallingTheLink) {
    RecordingCsms csms;
    RequestingLink link;
    CWebSocketClient client;
    link.client = &client;
    client.SetNamePwd("CP001", "secret");
    ASSERT_EQ(client.Init(Url(csms.Port()).c_str(), &link, 30), 1);
    ASSERT_TRUE(WaitFor([&] { return link.connected == 1; }, 5000));
    EXPECT_EQ(link.result, 0);
    ASSERT_TRUE(csms.WaitSession());
    ASSERT_TRUE(csms.Send("[2,\"after-cb\",\"Reset\",{}]"));
    EXPECT_TRUE(WaitFor([&] { return link.Messages().size() == 1; }));
}

TEST(WebSocketLink, UnreachableCsmsReportsAConnectionError) {
    int port;
    {
        RawWsServer closed;  // take a free port, then free it again
        port = closed.Port();
    }
    StationLink station;
    EXPECT_TRUE(station.Refused(port));
    station.client.Close();
    EXPECT_EQ(station.link.errors, 1);
}

TEST(WebSocketReceive, FragmentedAndLargeFramesArriveWhole) {
    RawWsServer raw;
    StationLink station;
    ASSERT_TRUE(station.Connects(raw.Port()));
    RecordingClientEvents& link = station.link;

    // Text frame without FIN, a continuation, then the final continuation.
    ASSERT_TRUE(raw.SendFrame(0x01, "[2,\"frag-1\","));
    ASSERT_TRUE(raw.SendFrame(0x00, "\"DataTransfer\","));
    ASSERT_TRUE(raw.SendFrame(0x80, "{\"vendorId\":\"v\"}]"));
    ASSERT_TRUE(WaitFor([&] { return link.Messages().size() == 1; }));
    EXPECT_EQ(link.Messages()[0], "[2,\"frag-1\",\"DataTransfer\",{\"vendorId\":\"v\"}]");

    // Larger than the library's receive buffer, so it arrives in pieces.
    std::string big = "[2,\"big-1\",\"DataTransfer\",{\"data\":\"" + std::string(60000, 'x') + "\"}]";
    ASSERT_TRUE(raw.SendFrame(0x81, big));
    ASSERT_TRUE(WaitFor([&] { return link.Messages().size() == 2; }));
    EXPECT_EQ(link.Messages()[1], big);

    // Garbage and unknown message types are dropped without upsetting the link.
    ASSERT_TRUE(raw.SendFrame(0x81, "not json"));
    ASSERT_TRUE(raw.SendFrame(0x81, "[9,\"odd\"]"));
    ASSERT_TRUE(raw.SendFrame(0x81, "[2,\"after\",\"Heartbeat\",{}]"));
    ASSERT_TRUE(WaitFor([&] { return link.Messages().size() == 3; }));
    EXPECT_EQ(link.Messages()[2], "[2,\"after\",\"Heartbeat\",{}]");
}

TEST_F(WebSocketCsms, SynchronousRequestGetsItsAnswerWhichIsNotPassedUpwardAndNeverOverrunsTheBuffer) {
    csms.onMessage = [&](const std::string& text) {
        if (text.find("\"req-7\"") != std::string::npos) {
            csms.Send("[3,\"unrelated\",{}]");
            csms.Send("[3,\"req-7\",{\"currentTime\":\"2024-01-01T00:00:00Z\"}]");
        }
        if (text.find("\"req-big\"") != std::string::npos) csms.Send("[3,\"req-big\",{\"x\":\"0123456789\"}]");
    };
    ASSERT_TRUE(Connect());
    const std::string request = "[2,\"req-7\",\"Heartbeat\",{}]";
    char answer[65535] = {0};
    int answerLen = 0;
    ASSERT_EQ(client.SendMessage("req-7", request.c_str(), static_cast<int>(request.size()), answer, &answerLen), 1);
    EXPECT_STREQ(answer, "[3,\"req-7\",{\"currentTime\":\"2024-01-01T00:00:00Z\"}]");
    EXPECT_EQ(answerLen, static_cast<int>(strlen(answer)));
    EXPECT_EQ(client.WaitingCount(), 0u);
    // The unmatched CALLRESULT goes up to the engine's own queue.
    ASSERT_TRUE(WaitFor([&] { return link.Messages().size() == 1; }));
    EXPECT_EQ(link.Messages()[0], "[3,\"unrelated\",{}]");

    // An answer larger than the caller's buffer is refused, not written past its end.
    const std::string big = "[2,\"req-big\",\"Heartbeat\",{}]";
    memset(answer, 0x5a, 16);
    int capacity = 8;
    EXPECT_EQ(client.SendMessage("req-big", big.c_str(), static_cast<int>(big.size()), answer, &capacity), 0);
    for (size_t i = 8; i < 16; ++i) EXPECT_EQ(answer[i], 0x5a);
}

TEST_F(WebSocketCsms, HugeMessageTimeoutStillWaitsForTheAnswer) {
    // A deadline built from this wraps round unless the time-out is bounded.
    ASSERT_TRUE(Connect(std::numeric_limits<int64_t>::max() - 10));
    std::future<int> sender = RequestAsync(client, "req-big");
    ASSERT_TRUE(csms.WaitMessageContaining("req-big"));
    std::this_thread::sleep_for(std::chrono::milliseconds(300));
    ASSERT_TRUE(csms.Send("[3,\"req-big\",{\"currentTime\":\"2024-01-01T00:00:00Z\"}]"));
    ASSERT_EQ(sender.wait_for(std::chrono::seconds(2)), std::future_status::ready);
    EXPECT_EQ(sender.get(), 1);
}

TEST_F(WebSocketCsms, UnansweredRequestFailsAfterTheMessageTimeoutAndCloseReleasesAnotherAtOnce) {
    ASSERT_TRUE(Connect(5));
    CTools::FreezeClock(true);
    auto pending = RequestAsync(client, "req-lost");
    ASSERT_TRUE(csms.WaitMessageContaining("req-lost"));
    // Exactly the time-out is not yet too late.
    CTools::AdvanceClockMs(5000);
    client.SweepTimeouts();
    EXPECT_EQ(pending.wait_for(std::chrono::milliseconds(200)), std::future_status::timeout);
    CTools::AdvanceClockMs(1000);
    const auto swept = std::chrono::steady_clock::now();
    client.SweepTimeouts();
    ASSERT_EQ(pending.wait_for(std::chrono::seconds(2)), std::future_status::ready);
    EXPECT_EQ(pending.get(), 0);
    EXPECT_LT(ElapsedMs(swept), 1000);
    EXPECT_EQ(client.WaitingCount(), 0u);

    // The clock stands still from here: only the close can end the wait.
    auto blocked = RequestAsync(client, "blocked");
    ASSERT_TRUE(csms.WaitMessageContaining("blocked"));
    EXPECT_EQ(RequestAsync(client, "blocked").get(), 0) << "a duplicate id is refused meanwhile";
    const auto start = std::chrono::steady_clock::now();
    client.Close();
    ASSERT_EQ(blocked.wait_for(std::chrono::seconds(2)), std::future_status::ready);
    EXPECT_EQ(blocked.get(), 0);
    EXPECT_LT(ElapsedMs(start), 2000);
    EXPECT_EQ(client.WaitingCount(), 0u);
}

TEST_F(WebSocketCsms, UnansweredCsmsCallGetsOneRequestTimeoutUnderItsOwnIdAndTheLateHostAnswerIsDropped) {
    ASSERT_TRUE(Connect(2));
    CTools::FreezeClock(true);
    // An id that needs escapes must come back as the same JSON text.
    const std::string id = "slow\\\"b\\\\s\\u0001\\t";
    ASSERT_TRUE(csms.Send("[2,\"" + id + "\",\"GetVariables\",{}]"));
    ASSERT_TRUE(WaitFor([&] { return link.Messages().size() == 1; }));
    for (int sweep = 0; sweep < 3; ++sweep) {
        CTools::AdvanceClockMs(3000);
        client.SweepTimeouts();
    }
    ASSERT_TRUE(csms.WaitMessageContaining("Request Timeout"));
    EXPECT_EQ(csms.Messages().back(), "[4,\"" + id + "\",\"InternalError\",\"Request Timeout\",{}]");

    EXPECT_EQ(Send(client, "[3,\"" + id + "\",{\"getVariableResult\":[]}]"), 0);
    EXPECT_EQ(Send(client, "[3,\"never-asked\",{}]"), 0);
    // Let anything wrongly sent arrive before looking.
    ASSERT_EQ(Send(client, "[2,\"marker\",\"Heartbeat\",{}]"), 1);
    ASSERT_TRUE(csms.WaitMessageContaining("marker"));
    EXPECT_EQ(csms.CountContaining("getVariableResult"), 0u) << "the late host answer must not go out";
    EXPECT_EQ(csms.CountContaining("Request Timeout"), 1u) << "the time-out answer is sent once";
    EXPECT_EQ(client.WaitingCount(), 0u);
}

TEST(WebSocketPing, MissedPongMarksTheLinkLostOnceEvenWhileFramesArrive) {
    ClockGuard clock;
    RawWsServer raw;  // never answers pings
    StationLink station;
    CWebSocketClient& client = station.client;
    LogCapture log;
    client.SetPingInterval(30);
    // Frozen before connecting: the link's last activity and the checks below
    // must see the same second, however slow the machine.
    CTools::FreezeClock(true);
    ASSERT_TRUE(station.Connects(raw.Port()));

    CTools::AdvanceClockMs(30000);
    client.CheckPing();
    EXPECT_EQ(log.Count("LWS_WRITE_PING"), 0u) << "exactly the interval is not yet due";
    CTools::AdvanceClockMs(1000);
    client.CheckPing();
    ASSERT_TRUE(WaitFor([&] { return !raw.Received().empty(); }, 5000));
    EXPECT_EQ(raw.Received()[0] & 0x0f, 0x9) << "a ping frame goes out first";

    ASSERT_TRUE(raw.SendFrame(0x81, "[2,\"still\",\"Heartbeat\",{}]"));
    ASSERT_TRUE(WaitFor([&] { return station.link.Messages().size() == 1; }));
    CTools::AdvanceClockMs(31000);
    client.CheckPing();
    EXPECT_EQ(station.link.errors, 1);
    EXPECT_EQ(client.IsWebSocketConnected(), 0);
    EXPECT_EQ(client.GetLastOperateTimeSec(), 0);
    EXPECT_TRUE(log.Contains("PONG NOT RECEIVE"));
    CTools::AdvanceClockMs(31000);
    client.CheckPing();
    EXPECT_EQ(station.link.errors, 1) << "a lost link is reported once";
}

TEST_F(WebSocketCsms, AnsweredPingKeepsTheLinkUp) {
    // The library's server answers pings.
    client.SetPingInterval(30);
    ASSERT_TRUE(Connect());
    CTools::FreezeClock(true);
    for (int i = 0; i < 3; ++i) {
        LogCapture log;
        CTools::AdvanceClockMs(31000);
        client.CheckPing();
        ASSERT_TRUE(WaitFor([&] { return log.Contains("LWS_CALLBACK_CLIENT_RECEIVE_PONG"); }, 5000)) << "round " << i;
    }
    EXPECT_EQ(link.errors, 0);
    EXPECT_EQ(client.IsWebSocketConnected(), 1);
}

TEST(WebSocketTls, HandshakeFailureTextsRaiseTheMatchingFlags) {
    EXPECT_EQ(CWebSocketClient::ClassifyTlsError(
                  "server's cert didn't look good, X509_V_ERR = 20: unable to get local issuer certificate"),
              TLSFAIL_CSMS_CERTIFICATE);
    EXPECT_EQ(CWebSocketClient::ClassifyTlsError("SSL routines::tlsv1 alert protocol version"), TLSFAIL_TLS_VERSION);
    EXPECT_EQ(CWebSocketClient::ClassifyTlsError("tls: error:00000001:lib(0)::reason(1)"), TLSFAIL_TLS_VERSION);
    EXPECT_EQ(CWebSocketClient::ClassifyTlsError("sslv3 alert handshake failure"), TLSFAIL_CIPHER_SUITE);
    EXPECT_EQ(CWebSocketClient::ClassifyTlsError("tlsv1 alert insufficient security"), TLSFAIL_CIPHER_SUITE);
    EXPECT_EQ(CWebSocketClient::ClassifyTlsError("connect failed"), 0);
    EXPECT_EQ(CWebSocketClient::ClassifyTlsError(nullptr), 0);
}

TEST_F(WebSocketCsms, HostileFramesFromTheCsmsAreDroppedAndTheLinkStaysUsable) {
    ASSERT_TRUE(Connect());

    // Numbers that look integral but do not fit an int, and nesting past the reader's limit.
    const std::string hostile[] = {"[3000000000,\"x\",{}]", "[1e10,\"x\"]", "[-3000000000,\"x\",{\"idToken\":\"A\"}]",
                                   std::string(1200, '[') + std::string(1200, ']'),
                                   "[2,\"n\",\"Reset\"," + std::string(1200, '[') + std::string(1200, ']') + "]"};
    for (const std::string& frame : hostile) ASSERT_TRUE(csms.Send(frame));

    const std::string call = "[2,\"after\",\"Reset\",{\"type\":\"Immediate\"}]";
    ASSERT_TRUE(csms.Send(call));
    ASSERT_TRUE(WaitFor([&] {
        for (const std::string& m : link.Messages())
            if (m == call) return true;
        return false;
    }));
    EXPECT_EQ(client.IsWebSocketConnected(), 1);
    EXPECT_EQ(link.errors, 0);
    EXPECT_EQ(Send(client, "[3,\"after\",{\"status\":\"Accepted\"}]"), 1);
    EXPECT_TRUE(csms.WaitMessageContaining("after"));
}

TEST(WebSocketTls, CsmsCertificateFromAnUnknownCaOrAWildcardOfTheRefusedDomainIsRefusedAndOneFromTheProfileCaCarriesFrames) {
    TempDir dir, otherDir;
    // Its address entry matches, so only the Common Name rule can refuse it.
    TestPki pki = MakeTestPki(dir.path(), "*.certlab.example");
    TestPki other = MakeTestPki(otherDir.path(), "127.0.0.1");
    ASSERT_FALSE(pki.serverCert.empty()) << "openssl could not make the test certificates";
    ASSERT_FALSE(other.caCert.empty());
    RecordingCsms csms("ocpp2.0.1", pki.serverCert, pki.serverKey, pki.caCert);
    ASSERT_TRUE(csms.Started());
    LogCapture log;
    {
        StationLink untrusting;
        ConfigureProfile2(untrusting.client, other.caCert);
        ASSERT_TRUE(untrusting.Refused(csms.Port()));
        EXPECT_EQ(untrusting.client.GetTlsFailures(), TLSFAIL_CSMS_CERTIFICATE) << Dump(log);
        EXPECT_EQ(csms.sessionsOpened, 0);
    }
    CWebSocketClient::SetWildcardRefusedDomain("certlab");
    {
        StationLink wildcard;
        ConfigureProfile2(wildcard.client, pki.caCert);
        ASSERT_TRUE(wildcard.Refused(csms.Port()));
        EXPECT_TRUE(log.Contains("verify peer certificate CommonName fail=*.certlab.example"));
        EXPECT_EQ(wildcard.client.GetTlsFailures(), TLSFAIL_CSMS_CERTIFICATE);
    }
    EXPECT_FALSE(CWebSocketClient::IsRefusedWildcardCommonName("csms.certlab.example")) << "only wildcards";
    EXPECT_FALSE(CWebSocketClient::IsRefusedWildcardCommonName("*.other.example"));
    CWebSocketClient::SetWildcardRefusedDomain("");

    log.Clear();
    StationLink station;
    ConfigureProfile2(station.client, pki.caCert);
    ASSERT_TRUE(station.Connects(csms.Port()));
    EXPECT_TRUE(log.Contains("===>Enable Ssl"));
    // The session is logged just after the link is announced, on the service thread.
    EXPECT_TRUE(WaitFor([&] { return log.Contains("Cipher Suite: TLS_"); }, 5000));
    EXPECT_TRUE(log.Contains("get peer certificate subject=/CN=*.certlab.example"));
    ASSERT_TRUE(csms.WaitSession());
    ASSERT_TRUE(csms.Send("[2,\"tls-1\",\"Reset\",{}]"));
    ASSERT_TRUE(WaitFor([&] { return station.link.Messages().size() == 1; }));
    EXPECT_EQ(Send(station.client, "[3,\"tls-1\",{\"status\":\"Accepted\"}]"), 1);
    EXPECT_TRUE(csms.WaitMessageContaining("tls-1"));
    EXPECT_EQ(station.client.GetTlsFailures(), 0);
    station.client.Close();
    EXPECT_EQ(station.link.errors, 0);
}

TEST(LocalServer, SessionsWithoutBasicAuthenticationAreRefusedAndThePasswordIsNotLogged) {
    RecordingCsms csms;
    LogCapture log;
    {
        StationLink anonymous;
        ASSERT_TRUE(anonymous.Refused(csms.Port()));
        EXPECT_TRUE(log.Contains("missing basic"));
        EXPECT_EQ(csms.sessionsOpened, 0);
    }
    StationLink station;
    station.client.SetNamePwd("CP001", "s3cr3t");
    ASSERT_TRUE(station.Connects(csms.Port()));
    EXPECT_TRUE(log.Contains("AUTHORIZATION:CP001:"));
    for (const auto& line : log.Lines()) EXPECT_EQ(line.text.find("s3cr3t"), std::string::npos) << line.text;
}

TEST(LocalServer, HostStartsServerAnswersFromItsCallbackAndCanDropASession) {
    AnsweringHost host;
    CWebSocketServer* server = OcppProtocol_StartWebSocketServer(0, &host);
    ASSERT_NE(server, nullptr);
    StationLink station;
    station.client.SetNamePwd("host", "pw");
    // The scheme names the subprotocol: "ws" is the local server's.
    ASSERT_TRUE(station.Connects(server->GetPort(), "ws"));
    ASSERT_TRUE(WaitFor([&] { return host.opened == 1; }));
    const std::string frame = "[2,\"h-1\",\"Heartbeat\",{}]";
    ASSERT_EQ(Send(station.client, frame), 1);
    ASSERT_TRUE(WaitFor([&] { return station.link.Messages().size() == 1; }));
    EXPECT_EQ(station.link.Messages()[0], "[3,\"echo\",{}]");
    {
        std::lock_guard<std::mutex> lock(host.mutex);
        ASSERT_EQ(host.messages.size(), 1u);
        EXPECT_EQ(host.messages[0], frame);
    }
    EXPECT_EQ(host.replied, 1);

    // From another thread the host learns what the write did.
    EXPECT_EQ(server->SendMessage(host.Session(), "[2,\"h-2\",\"Reset\",{}]"), 1);
    ASSERT_TRUE(WaitFor([&] { return station.link.Messages().size() == 2; }));
    EXPECT_EQ(server->SendMessage(nullptr, "x"), 0) << "unknown session";

    server->RemoveConnection(host.Session());
    EXPECT_TRUE(WaitFor([&] { return station.link.errors == 1; }, 5000)) << "a dropped session ends the client's link";
    EXPECT_TRUE(WaitFor([&] { return host.closed == 1; }, 5000));
    EXPECT_EQ(OcppProtocol_StopWebSocketServer(&server), 1);
    EXPECT_EQ(server, nullptr);
    EXPECT_EQ(OcppProtocol_StopWebSocketServer(&server), 0);
    EXPECT_EQ(OcppProtocol_StopWebSocketServer(nullptr), 0);
}

TEST(ConnectionProbe, ReportsWhetherAProfileCanConnectWithinItsTimeout) {
    RecordingCsms csms;
    ConnectParam good{};
    strncpy(good.szName, "CP001", sizeof(good.szName) - 1);
    strncpy(good.szPwd, "secret", sizeof(good.szPwd) - 1);
    good.eConnType = CONNTYPE_BASIC;
    CWebSocketConnect probe;
    EXPECT_EQ(probe.CheckConnection(Url(csms.Port()).c_str(), 5, &good), 1);
    EXPECT_TRUE(WaitFor([&] { return csms.sessionsClosed == 1; }, 5000)) << "the probe leaves no session behind";

    // Our server needs Basic authentication: an empty parameter block cannot connect.
    CWebSocketConnect refused;
    EXPECT_EQ(refused.CheckConnection(Url(csms.Port()).c_str(), 5, nullptr), 0);

    RawWsServer silent(false);  // accepts TCP but never completes the handshake
    LogCapture log;
    CWebSocketConnect slow;
    const auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(slow.CheckConnection(Url(silent.Port()).c_str(), 1, &good), 0);
    EXPECT_GE(ElapsedMs(start), 900);
    EXPECT_LT(ElapsedMs(start), 3000);
    EXPECT_TRUE(log.Contains("TestConnect Timieout"));
    EXPECT_NE(silent.WaitRequest(100).find("Authorization: Basic Q1AwMDE6c2VjcmV0"), std::string::npos)
        << "the probe authenticates like the client";
}
