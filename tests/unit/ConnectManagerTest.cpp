#include <gtest/gtest.h>

#include <chrono>
#include <future>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "Engine20.h"
#include "FrameSchema.h"
#include "Ocpp20/Process/VariableCache.h"
#include "Process/BootHeartbeat.h"
#include "Process/ConnectManager.h"
#include "RecordingHost.h"
#include "TestSupport.h"
#include "Util/FileUtil.h"
#include "Util/TimerManager.h"
#include "Util/Tools.h"
#include "WsTestPeers.h"

using namespace ocpptest;

namespace {

// The profile ids in the order the store file lists them.
std::vector<int> StoredIds(const std::string& path) {
    const Json::Value root = ReadJson(path);
    std::vector<int> ids;
    for (const Json::Value& v : root["connectinfo"]) ids.push_back(v["id"].asInt());
    return ids;
}

class ConnectManagerTest : public ::testing::Test {
protected:
    void SetUp() override {
        ResetSdkState();
        CConnectManager::Release();
        CTools::FreezeClock(true);
        store = dir.file("csmscfg.json");
        CConnectManager::SetCertDir(dir.path());
    }
    void TearDown() override {
        CConnectManager::SetTestConnectHook(nullptr);
        CConnectManager::Release();
        CBootHeartbeat::Release();
        CTimerManager::Release();
        CConnectManager::SetCertDir("/usrfs/conf/ocpp20/cert/");
        ResetSdkState();
    }
    CConnectManager* Fresh() {
        CConnectManager::Release();
        CConnectManager* manager = CConnectManager::GetInstance();
        manager->SetStoreFile(store);
        return manager;
    }

    // A real socket: the library's local server plays the CSMS; the station connects to it as CP042.
    void ConnectTo(RecordingCsms& csms, int messageTimeout) {
        CTools::FreezeClock(false);
        ASSERT_TRUE(csms.Started());
        SetLibraryVariable("SecurityCtrlr", "Identity", "CP042");
        const std::string url = "ws://127.0.0.1:" + std::to_string(csms.Port());
        OcppProtocol_SetNamePwd(nullptr, "s3cr3t");
        OcppProtocol_SetConnection(OCPPPROTOCOL_201, url.c_str(), CONNTYPE_BASIC, messageTimeout);
        ASSERT_EQ(OcppProtocol_ActiveConnection(1), 1);
        ASSERT_TRUE(WaitFor([] { return OcppProtocol_GetStatus() == SDKSTATUS_CONNECTED; }, 8000));
    }

    ClockGuard clock;
    TempDir dir;
    LogCapture log;
    std::string store;
};

TEST_F(ConnectManagerTest, NewStoreStartsAsEmptyObjectAndProfilesSurviveARestart) {
    CConnectManager* manager = Fresh();
    EXPECT_TRUE(log.Contains("Connection Cache File created"));
    manager->AddCustomItem(OCPPPROTOCOL_201, "ws://csms.example:9000/ocpp", CONNTYPE_BASIC, 0);
    manager->AddConnItem(Profile(2, CONNTYPE_BASIC, "ws://second.example/ocpp"));
    manager->SetAcceptedByCsms(1);

    const std::string text = ReadText(store);
    EXPECT_EQ(text.find('\n'), std::string::npos) << "written compactly";
    EXPECT_FALSE(CFileUtil::Exists(store + "1"));
    const Json::Value root = ReadJson(store);
    ASSERT_EQ(root["connectinfo"].size(), 2u);
    EXPECT_EQ(root["connectinfo"][0]["url"].asString(), "ws://csms.example:9000/ocpp");
    EXPECT_EQ(root["connectinfo"][0]["messagetimeout"].asInt(), 5) << "time-out 0 becomes 5";
    EXPECT_EQ(root["connectpriority"].asString(), "1");
    EXPECT_FALSE(root.isMember("curconnection")) << "no current profile yet";
    EXPECT_EQ(root["isacceptedbycsms"].asInt(), 1);
    EXPECT_FALSE(root["factoryconfigbase64"].asString().empty());

    manager = Fresh();
    EXPECT_TRUE(log.Contains("Connection Cache File already exists"));
    EXPECT_EQ(Ids(manager->GetConnItems()), (std::vector<int>{1, 2}));
    EXPECT_EQ(manager->IsAcceptedByCsms(), 1);
    manager->AddCustomItem(OCPPPROTOCOL_201, "ws://csms.example:9000/ocpp", CONNTYPE_BASIC, 5);
    EXPECT_EQ(Ids(manager->GetConnItems()), (std::vector<int>{1, 2})) << "same factory profile keeps the CSMS's";
    EXPECT_EQ(manager->IsResetFactoryConfig(), 0);

    manager->AddCustomItem(OCPPPROTOCOL_201, "ws://other.example/ocpp", CONNTYPE_BASIC, 5);
    EXPECT_EQ(Ids(manager->GetConnItems()), (std::vector<int>{1}));
    EXPECT_STREQ(manager->GetConnItems()[0].url, "ws://other.example/ocpp");
    EXPECT_EQ(manager->IsResetFactoryConfig(), 1);
    EXPECT_EQ(manager->IsAcceptedByCsms(), 0);
    EXPECT_TRUE(log.Contains("The factory configuration is changed"));
}

TEST_F(ConnectManagerTest, BrokenOrOversizedStoreLeavesDefaults) {
    WriteText(store, "{\"connectinfo\":[{\"id\":3,\"url\":\"ws://x\"}");
    CConnectManager* manager = Fresh();
    EXPECT_TRUE(manager->GetConnItems().empty());
    EXPECT_EQ(manager->GetConnectPriority(), "1");

    WriteText(store, "{\"connectpriority\":\"" + std::string(300 * 1024, '1') + "\"}");
    manager = Fresh();
    EXPECT_EQ(manager->GetConnectPriority(), "1");

    // Keys present are read, absent ones keep their defaults; a wrong type counts as absent.
    WriteText(store, "{\"connectinfo\":[{\"id\":3,\"priority\":2,\"conntype\":1,\"protocol\":1,"
                     "\"messagetimeout\":9,\"url\":\"ws://x/y\"},{\"id\":4},{\"id\":5,\"messagetimeout\":2147483647,"
                     "\"url\":\"ws://x/z\"}],\"isacceptedbycsms\":\"1\",\"offlinetimesec\":1700000000}");
    manager = Fresh();
    ASSERT_EQ(Ids(manager->GetConnItems()), (std::vector<int>{3, 5}));
    EXPECT_EQ(manager->GetConnItems()[0].messageTimeout, 9);
    EXPECT_EQ(manager->GetConnItems()[1].messageTimeout, 3600) << "a stored time-out is bounded to an hour too";
    EXPECT_EQ(manager->IsAcceptedByCsms(), 0);
    EXPECT_EQ(manager->GetOfflineTimeSec(), 1700000000);
    EXPECT_EQ(manager->GetConnectPriority(), "1");
}

TEST_F(ConnectManagerTest, ConcurrentChangesLeaveTheStoreEqualToTheFinalState) {
    CConnectManager* manager = Fresh();
    std::thread flags([&] {
        for (int i = 0; i < 100; ++i) manager->SetAcceptedByCsms(i % 2);
        manager->SetAcceptedByCsms(1);
    });
    std::thread profiles([&] {
        for (int i = 0; i < 100; ++i) manager->AddConnItem(Profile(1 + i % 4, CONNTYPE_BASIC, "ws://csms.example/ocpp"));
    });
    flags.join();
    profiles.join();

    EXPECT_EQ(log.Count("SyncToFile: "), 0u) << "no write may fail";
    EXPECT_FALSE(CFileUtil::Exists(store + "1"));
    EXPECT_EQ(ReadJson(store)["isacceptedbycsms"].asInt(), 1);
    EXPECT_EQ(StoredIds(store), Ids(manager->GetConnItems()));
}

TEST_F(ConnectManagerTest, BackOffDefaultsToThreeSecondsAndThresholdsGuardTheParameters) {
    CConnectManager* manager = Fresh();
    manager->SetConnectParam(1, 3, 0, 0, 0);
    for (int i = 0; i < 3; ++i) {
        manager->GetReconnectTimeSec();
        EXPECT_EQ(manager->GetNextConnTimeSpace(), 3);
    }
    EXPECT_EQ(manager->GetNextConnTimeSec(), CTools::GetCurRunTimeSec() + 3);
}

// The whole loop: the connect thread's step finds the reconnect due, the client
// cannot start (no station identity), the loss schedules the next try.
TEST_F(ConnectManagerTest, UnreachableCsmsIsRetriedAfter10_20_40_80_80SecondsOnAProfileStoredAsCurrentAtOnce) {
    CConnectManager* manager = Fresh();
    manager->SetConnectParam(1, 10, 0, 3, 0);
    manager->AddCustomItem(OCPPPROTOCOL_201, "ws://127.0.0.1:1/ocpp", CONNTYPE_WS, 5);
    manager->SetOfflineMode(1);
    CConnectManager::SetTestConnectHook([](const ConnectionItem&) { return 0; });
    EXPECT_EQ(manager->TestConnectItem(), 0);  // every probe fails: offline on the factory profile
    EXPECT_EQ(OcppProtocol_IsEnterOfflineMode(), 1);
    EXPECT_EQ(ReadJson(store)["curconnection"]["url"].asString(), "ws://127.0.0.1:1/ocpp");

    std::vector<int> intervals{manager->GetNextConnTimeSpace()};
    for (int i = 0; i < 4; ++i) {
        const int64_t due = manager->GetNextConnTimeSec();
        CTools::AdvanceClockMs((due - CTools::GetCurRunTimeSec() - 1) * 1000);
        manager->ConnectStep();
        EXPECT_EQ(manager->GetNextConnTimeSec(), due) << "not before its time";
        CTools::AdvanceClockMs(1000);
        manager->ConnectStep();
        intervals.push_back(manager->GetNextConnTimeSpace());
    }
    EXPECT_EQ(intervals, (std::vector<int>{10, 20, 40, 80, 80}));
    EXPECT_TRUE(log.Contains("SecurityCtrlr_Identity not configured"));
    EXPECT_STREQ(Fresh()->GetCurConnItem().url, "ws://127.0.0.1:1/ocpp") << "a restart offline keeps the profile";
}

std::mutex g_probeMutex;
std::vector<int> g_probed;
int g_answeringSlot = 0;
int ProbeHook(const ConnectionItem& item) {
    std::lock_guard<std::mutex> lock(g_probeMutex);
    g_probed.push_back(item.id);
    return item.id == g_answeringSlot ? 1 : 0;
}
std::vector<int> Probed() {
    std::lock_guard<std::mutex> lock(g_probeMutex);
    return g_probed;
}

TEST_F(ConnectManagerTest, ActivationProbesListedSlotsByPriorityAndDropsWeakerProfiles) {
    CConnectManager* manager = Fresh();
    manager->AddCustomItem(OCPPPROTOCOL_201, "ws://one.example/ocpp", CONNTYPE_WS, 5);
    manager->AddConnItem(Profile(2, CONNTYPE_BASIC, "ws://two.example/ocpp"));
    manager->AddConnItem(Profile(3, CONNTYPE_TLS_BASIC, "wss://three.example/ocpp"));
    manager->AddConnItem(Profile(4, CONNTYPE_TLS_BASIC, "wss://four.example/ocpp"));
    manager->AddConnItem(Profile(5, CONNTYPE_TLS_BASIC, "wss://five.example/ocpp"));
    EXPECT_EQ(manager->ResetAllPriority("4,2,3,1"), 0) << "no CA on the station for the TLS slots";
    WriteText(dir.file("ca.crt"), "-----BEGIN CERTIFICATE-----\n");
    EXPECT_EQ(manager->ResetAllPriority("3,1,6"), 0) << "slot 6 does not exist";
    EXPECT_EQ(manager->GetConnectPriority(), "1");
    ASSERT_EQ(manager->ResetAllPriority("4,2,3,1"), 1);
    EXPECT_EQ(ReadJson(store)["connectpriority"].asString(), "4,2,3,1");
    std::vector<int> priorities;
    for (const ConnectionItem& item : manager->GetConnItems()) priorities.push_back(item.priority);
    EXPECT_EQ(priorities, (std::vector<int>{1, 3, 2, 4, 0})) << "the first listed slot ranks highest";

    {
        std::lock_guard<std::mutex> lock(g_probeMutex);
        g_probed.clear();
        g_answeringSlot = 3;
    }
    manager->BackUpCurConnectionItem(manager->GetConnItems()[0]);
    manager->SetAcceptedByCsms(1);
    CConnectManager::SetTestConnectHook(&ProbeHook);
    ASSERT_EQ(manager->ActiveConnect(), 1);
    ASSERT_TRUE(WaitFor([&] { return manager->IsTestConnectIng() == 0 && manager->GetConnItems().size() == 3; },
                        5000));
    EXPECT_EQ(Probed(), (std::vector<int>{4, 2, 3})) << "slot 5 is not in the priority list";
    EXPECT_EQ(manager->GetCurConnID(), 3);
    EXPECT_EQ(manager->IsAcceptedByCsms(), 0) << "another CSMS has still to accept the station";

    // Connected on security profile 2: profiles 0 and 1 are gone for good.
    ASSERT_TRUE(WaitFor([&] { return ReadJson(store)["connectpriority"].asString() == "3"; }, 3000));
    EXPECT_EQ(StoredIds(store), (std::vector<int>{4, 3, 5}));
    EXPECT_EQ(ReadJson(store)["curconnection"]["id"].asInt(), 3);
    EXPECT_TRUE(log.Contains("^^^^^^^^^^^^^^Test Connect Succcess^^^^^^^^^^^^^^^^^^^^\n"));
}

TEST_F(ConnectManagerTest, UrlCarriesSubprotocolHostAndStationIdentity) {
    CConnectManager* manager = Fresh();
    manager->BackUpCurConnectionItem(Profile(1, CONNTYPE_TLS_BASIC, "wss://csms.example:443/ocpp"));
    EXPECT_EQ(manager->CombineUrl("CP001", "OCPP20"), "ocpp2.0.1://csms.example:443/ocpp/CP001");
    EXPECT_EQ(manager->CombineUrl("CP001", "OCPP16"), "ocpp1.6://csms.example:443/ocpp/CP001");
    EXPECT_EQ(manager->CombineUrl("CP001", "OCPP21"), "");
    EXPECT_EQ(manager->CombineUrl("", "OCPP20"), "");
    manager->BackUpCurConnectionItem(Profile(1, CONNTYPE_WS, "http://csms.example/ocpp"));
    EXPECT_EQ(manager->CombineUrl("CP001", "OCPP20"), "");
}

TEST_F(ConnectManagerTest, ReconnectAndOfflineModeRefuseBadRequests) {
    CConnectManager* manager = Fresh();
    EXPECT_EQ(OcppProtocol_ImmediatelyReconnect(), 0);
    EXPECT_TRUE(log.Contains("ReConnect error: IsTestConnectIng"));
    EXPECT_EQ(OcppProtocol_SetOfflineMode(2), 0);
    EXPECT_TRUE(log.Contains("'enableofflinemode' Parameter setting error"));
    EXPECT_EQ(OcppProtocol_SetConnection(OCPPPROTOCOL_201, "", CONNTYPE_WS, 5), 0);
    EXPECT_TRUE(log.Contains("Url is empty!!!"));
    EXPECT_TRUE(manager->GetConnItems().empty());
}

TEST_F(ConnectManagerTest, ConnectsToALocalCsmsAndBootsThroughTheLink) {
    RecordingHost host;
    RecordingCsms csms("ocpp2.0.1");
    csms.onMessage = [&csms](const std::string& frame) {
        const size_t a = frame.find('"') + 1;
        const std::string id = frame.substr(a, frame.find('"', a) - a);
        const bool boot = frame.find("\"BootNotification\"") != std::string::npos;
        const std::string accepted = R"({"currentTime":"2030-01-01T00:00:00Z","interval":300,"status":"Accepted"})";
        csms.Send("[3,\"" + id + "\"," + (boot ? accepted : "{}") + "]");
    };
    CTools::SetSetTimeHook([](int64_t) { return 1; });
    ASSERT_NO_FATAL_FAILURE(ConnectTo(csms, 5));
    EXPECT_TRUE(log.Contains("AUTHORIZATION:CP042:")) << "no user name: the station identity is sent";
    EXPECT_EQ(CConnectManager::GetInstance()->IsConnected(), 1);

    OcppProtocol_BootNotification(BOOTREASON_POWERUP, "M", "V", nullptr);
    CBootHeartbeat::GetInstance()->TimerProc();
    EXPECT_TRUE(csms.WaitMessageContaining("\"BootNotification\"", 3000));
    EXPECT_EQ(CBootHeartbeat::GetInstance()->GetBootPhase(), 2);
    EXPECT_EQ(CConnectManager::GetInstance()->IsAcceptedByCsms(), 1);
    EXPECT_TRUE(csms.WaitMessageContaining("\"ResetOrReboot\"", 3000));
    EXPECT_EQ(OcppProtocol_GetStatus(), SDKSTATUS_OK);
    CTools::SetSetTimeHook(nullptr);
}

// A sender blocked on an unanswered request must not outlive the manager it came through.
TEST_F(ConnectManagerTest, ReleaseWakesASenderBlockedOnTheCsmsAndLeavesNothingBehind) {
    RecordingCsms csms("ocpp2.0.1");  // never answers
    ASSERT_NO_FATAL_FAILURE(ConnectTo(csms, 30));

    std::future<int> sender = RequestAsync(*CConnectManager::GetInstance(), "blocked-1");
    ASSERT_TRUE(csms.WaitMessageContaining("blocked-1"));
    const auto start = std::chrono::steady_clock::now();
    CConnectManager::Release();
    ASSERT_EQ(sender.wait_for(std::chrono::seconds(3)), std::future_status::ready)
        << "the sender still waits for its 30 s time-out";
    EXPECT_EQ(sender.get(), 0);
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(3));
}

// Profiles the CSMS changes: SetNetworkProfile and NetworkConfigurationPriority.
class NetworkProfile : public Engine20 {
protected:
    void SetUp() override {
        CConnectManager::Release();
        CConnectManager::SetCertDir(dir.path());
        ASSERT_NO_FATAL_FAILURE(Engine20::SetUp());
        manager = CConnectManager::GetInstance();
        manager->SetStoreFile(store);
    }
    void TearDown() override {
        CConnectManager::Release();
        CConnectManager::SetCertDir("/usrfs/conf/ocpp20/cert/");
        Engine20::TearDown();
    }
    std::string store = dir.file("csmscfg.json");
    CConnectManager* manager = nullptr;
};

std::string NetworkProfileCall(const std::string& id, int slot, int securityProfile, const std::string& url,
                               int messageTimeout = 30) {
    return "[2,\"" + id + "\",\"SetNetworkProfile\",{\"configurationSlot\":" + std::to_string(slot) +
           ",\"connectionData\":{\"ocppVersion\":\"OCPP20\",\"ocppTransport\":\"JSON\",\"ocppCsmsUrl\":\"" + url +
           "\",\"messageTimeout\":" + std::to_string(messageTimeout) +
           ",\"securityProfile\":" + std::to_string(securityProfile) +
           ",\"ocppInterface\":\"Wired0\"}}]";
}

TEST_F(NetworkProfile, CsmsInstallsProfilesButNeverAWeakerOneAndTimeoutsFromEitherSideAreBoundedToAnHour) {
    manager->AddCustomItem(OCPPPROTOCOL_201, "ws://one.example/ocpp", CONNTYPE_BASIC, 2147483647);
    EXPECT_EQ(manager->GetConnItems()[0].messageTimeout, 3600);
    manager->BackUpCurConnectionItem(manager->GetConnItems()[0]);

    DeliverTo20(NetworkProfileCall("n1", 2, 1, "ws://two.example/ocpp"));
    ASSERT_EQ(link.Count(), 1u);
    EXPECT_NE(link.Last().find("\"Accepted\""), std::string::npos);
    ASSERT_EQ(Ids(manager->GetConnItems()), (std::vector<int>{1, 2}));
    EXPECT_EQ(manager->GetConnItems()[1].messageTimeout, 30);
    EXPECT_STREQ(manager->GetConnItems()[1].url, "ws://two.example/ocpp");
    EXPECT_EQ(StoredIds(store), (std::vector<int>{1, 2}));

    DeliverTo20(NetworkProfileCall("n2", 3, 0, "ws://three.example/ocpp"));
    EXPECT_NE(link.Last().find("\"Rejected\""), std::string::npos) << "security profile 0 after 1";
    DeliverTo20(NetworkProfileCall("n3", 4, 2, "wss://four.example/ocpp"));
    EXPECT_NE(link.Last().find("\"Rejected\""), std::string::npos) << "no CA for security profile 2";
    DeliverTo20(NetworkProfileCall("n4", 5, 1, "wss://five.example/ocpp"));
    EXPECT_NE(link.Last().find("\"Rejected\""), std::string::npos) << "wss with a plain security profile";
    EXPECT_EQ(Ids(manager->GetConnItems()), (std::vector<int>{1, 2}));

    // Same slot again replaces the profile.
    DeliverTo20(NetworkProfileCall("n5", 2, 1, "ws://two-b.example/ocpp", 2147483647));
    ASSERT_EQ(Ids(manager->GetConnItems()), (std::vector<int>{1, 2}));
    EXPECT_STREQ(manager->GetConnItems()[1].url, "ws://two-b.example/ocpp");
    EXPECT_EQ(manager->GetConnItems()[1].messageTimeout, 3600);
}

TEST_F(NetworkProfile, AnySecurityProfileIsAcceptedWhileTheStationHasNoProfile) {
    DeliverTo20(NetworkProfileCall("n1", 2, 0, "ws://two.example/ocpp"));
    EXPECT_NE(link.Last().find("\"Accepted\""), std::string::npos);
    EXPECT_EQ(manager->GetConnItems().size(), 1u);
}

TEST_F(NetworkProfile, NetworkPriorityVariableReordersProfilesOrIsRejected) {
    manager->AddCustomItem(OCPPPROTOCOL_201, "ws://one.example/ocpp", CONNTYPE_WS, 5);
    manager->AddConnItem(Profile(2, CONNTYPE_WS, "ws://two.example/ocpp"));
    VariableDataItem20 item = VariableDataItem20::Make("OCPPCommCtrlr", "NetworkConfigurationPriority", "");
    CTools::CopyField(item.attributeValue, "2,1");
    EXPECT_EQ(CVariableCache::GetInstance()->CheckSetVariable(item), VARIABLESTATUS_REBOOTREQUIRED);
    EXPECT_EQ(manager->GetConnectPriority(), "2,1");
    EXPECT_EQ(manager->GetConnItems()[1].priority, 2);

    CTools::CopyField(item.attributeValue, "3,1");
    EXPECT_EQ(CVariableCache::GetInstance()->CheckSetVariable(item), VARIABLESTATUS_REJECTED);
    EXPECT_EQ(manager->GetConnectPriority(), "2,1");
}

}  // namespace
