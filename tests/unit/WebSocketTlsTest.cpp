#include <gtest/gtest.h>

#include <string>

#include "TestSupport.h"
#include "WebSocket/WebSocketClient.h"
#include "WsTestPeers.h"

using namespace ocpptest;

namespace {
std::string Url(int port) { return "ocpp2.0.1://127.0.0.1:" + std::to_string(port) + "/CP001"; }

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
}  // namespace

TEST(WebSocketTls, CsmsCertificateFromAnUnknownCaIsRefusedAndOneSignedByTheProfileCaCarriesFrames) {
    TempDir dir, otherDir;
    TestPki pki = MakeTestPki(dir.path(), "127.0.0.1");
    TestPki other = MakeTestPki(otherDir.path(), "127.0.0.1");
    ASSERT_FALSE(pki.serverCert.empty()) << "openssl could not make the test certificates";
    ASSERT_FALSE(other.caCert.empty());
    RecordingCsms csms("ocpp2.0.1", pki.serverCert, pki.serverKey, pki.caCert);
    ASSERT_TRUE(csms.Started());
    LogCapture log;
    {
        RecordingClientEvents link;  // outlives the client: upcalls may come until it closes
        CWebSocketClient client;
        ConfigureProfile2(client, other.caCert);
        ASSERT_EQ(client.Init(Url(csms.Port()).c_str(), &link, 5), 1);
        ASSERT_TRUE(WaitFor([&] { return link.errors == 1; }, 5000));
        EXPECT_EQ(link.connected, 0);
        EXPECT_EQ(client.GetTlsFailures(), TLSFAIL_CSMS_CERTIFICATE) << Dump(log);
        EXPECT_EQ(csms.sessionsOpened, 0);
    }
    log.Clear();
    RecordingClientEvents link;  // outlives the client: upcalls may come until it closes
    CWebSocketClient client;
    ConfigureProfile2(client, pki.caCert);
    ASSERT_EQ(client.Init(Url(csms.Port()).c_str(), &link, 5), 1);
    ASSERT_TRUE(WaitFor([&] { return client.IsWebSocketConnected() == 1; }, 5000));
    EXPECT_TRUE(log.Contains("===>Enable Ssl"));
    // The session is logged just after the link is announced, on the service thread.
    EXPECT_TRUE(WaitFor([&] { return log.Contains("Cipher Suite: TLS_"); }, 5000));
    EXPECT_TRUE(log.Contains("get peer certificate subject=/CN=127.0.0.1"));
    ASSERT_TRUE(csms.WaitSession());
    ASSERT_TRUE(csms.Send("[2,\"tls-1\",\"Reset\",{}]"));
    ASSERT_TRUE(WaitFor([&] { return link.Messages().size() == 1; }));
    const std::string answer = "[3,\"tls-1\",{\"status\":\"Accepted\"}]";
    EXPECT_EQ(client.SendMessage(answer.c_str(), static_cast<int>(answer.size())), 1);
    EXPECT_TRUE(csms.WaitMessageContaining("tls-1"));
    EXPECT_EQ(client.GetTlsFailures(), 0);
    client.Close();
    EXPECT_EQ(link.errors, 0);
}

TEST(WebSocketTls, WildcardCertificateOfTheConfiguredTestDomainIsRefused) {
    TempDir dir;
    TestPki pki = MakeTestPki(dir.path(), "*.certlab.example");
    ASSERT_FALSE(pki.serverCert.empty());
    RecordingCsms csms("ocpp2.0.1", pki.serverCert, pki.serverKey, pki.caCert);
    {
        // Without the setting the same certificate is fine (its address entry matches),
        // so a refusal below is the Common Name rule and nothing else.
        CWebSocketClient::SetWildcardRefusedDomain("");
        RecordingClientEvents link;  // outlives the client: upcalls may come until it closes
        CWebSocketClient client;
        ConfigureProfile2(client, pki.caCert);
        ASSERT_EQ(client.Init(Url(csms.Port()).c_str(), &link, 5), 1);
        ASSERT_TRUE(WaitFor([&] { return link.connected == 1; }, 5000));
    }
    CWebSocketClient::SetWildcardRefusedDomain("certlab");
    LogCapture log;
    RecordingClientEvents link;  // outlives the client: upcalls may come until it closes
    CWebSocketClient client;
    ConfigureProfile2(client, pki.caCert);
    ASSERT_EQ(client.Init(Url(csms.Port()).c_str(), &link, 5), 1);
    ASSERT_TRUE(WaitFor([&] { return link.errors == 1; }, 5000));
    EXPECT_EQ(link.connected, 0);
    EXPECT_TRUE(log.Contains("verify peer certificate CommonName fail=*.certlab.example"));
    EXPECT_EQ(client.GetTlsFailures(), TLSFAIL_CSMS_CERTIFICATE);
    client.Close();
    CWebSocketClient::SetWildcardRefusedDomain("");

    EXPECT_FALSE(CWebSocketClient::IsRefusedWildcardCommonName("*.certlab.example"));
    CWebSocketClient::SetWildcardRefusedDomain("certlab");
    EXPECT_TRUE(CWebSocketClient::IsRefusedWildcardCommonName("*.certlab.example"));
    EXPECT_FALSE(CWebSocketClient::IsRefusedWildcardCommonName("csms.certlab.example")) << "only wildcards";
    EXPECT_FALSE(CWebSocketClient::IsRefusedWildcardCommonName("*.other.example"));
    CWebSocketClient::SetWildcardRefusedDomain("");
}
