// What a certifying CSMS checks beyond the message schemas: triggered boot,
// the heartbeat interval variable, cancelled reservations and durable SetVariables.
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <Ocpp20Protocol.h>

#include <cstring>
#include <string>
#include <vector>

#include "Ocpp20/Ocpp20ProtocolRecv.h"
#include "Ocpp20/OcppProtocol20.h"
#include "Ocpp20/Process/VariableCache.h"
#include "Ocpp20/Process/VariableCharacteristics.h"
#include "Ocpp20/Process/VariableCustom.h"
#include "OcppProtocol/OcppProtocol.h"
#include "OcppProtocol/OcppSendSeam.h"
#include "Process/BootHeartbeat.h"
#include "Process/ConnectManager.h"
#include "Process/ReservationManager.h"
#include "RecordingHost.h"
#include "RecordingLink.h"
#include "TestSupport.h"
#include "Util/TimerManager.h"
#include "Util/Tools.h"

using namespace ocpptest;

namespace {

int IgnoreClockSet(int64_t) { return 1; }
int64_t NoTraffic() { return 0; }

std::string SetCall(const std::string& id, const std::string& variable, const std::string& value) {
    return "[2,\"" + id + R"(","SetVariables",{"setVariableData":[{"component":{"name":"OCPPCommCtrlr"},)" +
           R"("variable":{"name":")" + variable + R"("},"attributeValue":")" + value + "\"}]}]";
}

class ConformanceRules : public ::testing::Test {
protected:
    void SetUp() override {
        ResetSdkState();
        CBootHeartbeat::Release();
        CConnectManager::Release();
        Ocpp20Protocol_ClearPendingSetVariables();
        OcppProtocol_InitOcppProtocol(OCPPPROTOCOL_201);
        g_eSdkStatus = SDKSTATUS_CONNECTED;
        CTools::FreezeClock(true);
        CTools::SetSetTimeHook(&IgnoreClockSet);
        CBootHeartbeat::SetLastOperateSource(&NoTraffic);
        cache = CVariableCache::GetInstance();
        cache->InitDefault();
        ASSERT_EQ(cache->SetStoreFile(dir.file("variablecache.json")), 1);
        boot = CBootHeartbeat::GetInstance();
        boot->StopTimer();  // ticks come from the test
    }
    void TearDown() override {
        CBootHeartbeat::Release();
        CConnectManager::Release();
        CTimerManager::Release();
        CVariableCache::Release();
        CVariableCharacteristics::Release();
        CVariableCustom::Release();
        CReservationManager::Release();
        Ocpp20Protocol_ClearPendingSetVariables();
        CBootHeartbeat::SetLastOperateSource(nullptr);
        CTools::SetSetTimeHook(nullptr);
        ResetSdkState();
    }

    static void Deliver(const std::string& frame) {
        COcppProtocol20::OnMessage(frame.data(), static_cast<int>(frame.size()));
    }
    // The CSMS answers every boot with `status` and `interval`, everything else with its bare minimum.
    void Csms(const char* status, int interval) {
        link.Answer([status, interval, this](const std::string& id) {
            if (link.Last().find("\"BootNotification\"") == std::string::npos)
                return "[3,\"" + id + "\",{\"currentTime\":\"2030-01-01T00:00:00Z\"}]";
            return "[3,\"" + id + "\",{\"currentTime\":\"2030-01-01T00:00:00Z\",\"interval\":" +
                   std::to_string(interval) + ",\"status\":\"" + status + "\"}]";
        });
    }
    size_t Sent(const char* action) {
        size_t n = 0;
        for (const std::string& frame : link.Sent())
            if (frame.find(std::string("\"") + action + "\"") != std::string::npos) ++n;
        return n;
    }
    // The host settles the SetVariables request `id` as the library decided it.
    void HostAnswersSetVariables(const std::string& id) {
        std::vector<VariableDataItem> items;
        ASSERT_TRUE(WaitFor([&] {
            for (const HostRecord& r : host.Records()) {
                SetVariablesReq head;
                if (r.type != SERVERRECVTYPE_SETVARIABLES) continue;
                memcpy(&head, r.bytes.data(), sizeof head);
                if (id != head.base.messageId) continue;
                items.resize(static_cast<size_t>(head.count));
                memcpy(items.data(), r.bytes.data() + sizeof head, sizeof(VariableDataItem) * items.size());
                return true;
            }
            return false;
        }));
        OcppProtocol_SetVariables(id.c_str(), static_cast<int>(items.size()), items.data());
    }
    void Advance(int seconds) { CTools::AdvanceClockMs(int64_t(seconds) * 1000); }

    TempDir dir;
    ClockGuard clock;
    RecordingHost host;
    RecordingLink link;
    LogCapture log;
    CVariableCache* cache = nullptr;
    CBootHeartbeat* boot = nullptr;
};

}  // namespace

TEST_F(ConformanceRules, TriggeredBootIsSentWhileBootingButRefusedOnceTheStationIsAccepted) {
    Csms("Pending", 300);
    OcppProtocol_BootNotification(BOOTREASON_POWERUP, "M", "V", nullptr);
    boot->TimerProc();
    Csms("Accepted", 60);
    Deliver(R"([2,"t1","TriggerMessage",{"requestedMessage":"BootNotification"}])");
    ASSERT_EQ(Sent("BootNotification"), 2u);
    EXPECT_NE(link.Sent()[1].find("\"Accepted\""), std::string::npos) << "the answer goes before the boot";
    EXPECT_EQ(boot->GetBootPhase(), 2);

    link.Clear();
    Deliver(R"([2,"t2","TriggerMessage",{"requestedMessage":"BootNotification"}])");
    ASSERT_EQ(link.Count(), 1u) << "an accepted station sends no second BootNotification";
    EXPECT_EQ(link.Last().rfind("[3,\"t2\",", 0), 0u);
    EXPECT_NE(link.Last().find("\"Rejected\""), std::string::npos);
}

TEST_F(ConformanceRules, HeartbeatIntervalComesFromTheBootAnswerAndSetVariablesChangesTheNextHeartbeat) {
    Csms("Accepted", 60);
    OcppProtocol_BootNotification(BOOTREASON_POWERUP, "M", "V", nullptr);
    boot->TimerProc();
    EXPECT_EQ(cache->OCPPCommCtrlrHeartbeatInterval(), 60);
    EXPECT_NE(ReadText(dir.file("variablecache.json")).find(R"("value":"60","componentname":"OCPPCommCtrlr","variablename":"HeartbeatInterval")"),
              std::string::npos)
        << "the interval is kept across restarts";
    link.Clear();
    Deliver(R"([2,"g1","GetVariables",{"getVariableData":[{"component":{"name":"OCPPCommCtrlr"},"variable":{"name":"HeartbeatInterval"}}]}])");
    EXPECT_NE(link.Last().find("\"attributeValue\": \"60\""), std::string::npos) << link.Last();

    Advance(58);
    boot->TimerProc();
    ASSERT_EQ(Sent("Heartbeat"), 1u);
    link.Clear();
    Deliver(SetCall("s1", "HeartbeatInterval", "20"));
    Deliver(SetCall("s2", "HeartbeatInterval", "-5"));
    HostAnswersSetVariables("s1");
    HostAnswersSetVariables("s2");
    ASSERT_EQ(link.Count(), 2u);
    EXPECT_NE(link.Sent()[0].find("\"Accepted\""), std::string::npos);
    EXPECT_NE(link.Sent()[1].find("\"Rejected\""), std::string::npos) << "the interval is whole seconds, never negative";
    EXPECT_EQ(cache->OCPPCommCtrlrHeartbeatInterval(), 20);

    Advance(17);
    boot->TimerProc();
    EXPECT_EQ(Sent("Heartbeat"), 0u);
    Advance(1);
    boot->TimerProc();
    EXPECT_EQ(Sent("Heartbeat"), 1u) << "the new interval applies from the next heartbeat on";
}

TEST_F(ConformanceRules, AcceptedCancelReservationForgetsTheReservationAndRejectedKeepsIt) {
    CReservationManager* store = CReservationManager::GetInstance();
    const uint32_t expiry = static_cast<uint32_t>(CTools::CurTimeSec() + 3600);
    store->StoreReservation(5, "A", 0, "", 0, expiry);
    store->StoreReservation(6, "B", 0, "", 0, expiry);
    Deliver(R"([2,"c1","CancelReservation",{"reservationId":5}])");
    Deliver(R"([2,"c2","CancelReservation",{"reservationId":6}])");
    EXPECT_EQ(Ocpp20Protocol_CancelReservation("c2", 1), 1);
    EXPECT_EQ(store->GetReservationItem(6, nullptr), 1);
    EXPECT_EQ(Ocpp20Protocol_CancelReservation("c1", 0), 1);
    EXPECT_EQ(store->GetReservationItem(5, nullptr), 0);

    // Requests the host never answers are forgotten first; they cannot pile up.
    Deliver(R"([2,"old","CancelReservation",{"reservationId":6}])");
    for (size_t i = 0; i < CReservationManager::kMaxPendingCancels; ++i)
        Deliver(R"([2,"n)" + std::to_string(i) + R"(","CancelReservation",{"reservationId":99}])");
    Ocpp20Protocol_CancelReservation("old", 0);
    EXPECT_EQ(store->GetReservationItem(6, nullptr), 1);
}

namespace {
std::string g_storePath;
std::vector<std::string> g_answers;
std::vector<std::string> g_storeAtAnswer;  // the store file as each answer left
int SendSeeingTheStore(const char* frame, int len) {
    const std::string text(frame, static_cast<size_t>(len));
    if (text.find("setVariableResult") == std::string::npos) return 1;
    g_answers.push_back(text);
    g_storeAtAnswer.push_back(ReadText(g_storePath));
    return 1;
}
int NoRequests(const char*, const char*, int, char*, int, int*) { return 0; }
}  // namespace

TEST_F(ConformanceRules, LibraryOwnedSetVariablesValueIsOnTheFlashBeforeAcceptedIsSent) {
    g_storePath = dir.file("variablecache.json");
    g_answers.clear();
    g_storeAtAnswer.clear();
    COcppSendSeam::Set(&SendSeeingTheStore, &NoRequests);
    const std::string stored = R"("value":"%s","componentname":"OCPPCommCtrlr","variablename":"OfflineThreshold")";
    Deliver(SetCall("d1", "OfflineThreshold", "42"));
    HostAnswersSetVariables("d1");
    ASSERT_EQ(g_storeAtAnswer.size(), 1u);
    EXPECT_NE(g_answers[0].find("\"Accepted\""), std::string::npos);
    EXPECT_NE(g_storeAtAnswer[0].find(CTools::StringFormat(stored.c_str(), "42")), std::string::npos);

    // A store that cannot be written: the value is neither confirmed nor in force.
    ASSERT_EQ(mkdir((g_storePath + "1").c_str(), 0755), 0);
    Deliver(SetCall("d2", "OfflineThreshold", "43"));
    HostAnswersSetVariables("d2");
    ASSERT_EQ(g_answers.size(), 2u);
    EXPECT_NE(g_answers[1].find("\"Rejected\""), std::string::npos);
    EXPECT_EQ(cache->OCPPCommCtrlrOfflineThreshold(), 42);
    EXPECT_TRUE(log.Contains("SetVariables OCPPCommCtrlr.OfflineThreshold not stored, answered Rejected"));

    // The station itself changed the value but could not write it: the same value from the CSMS is written now.
    VariableDataItem20 local = VariableDataItem20::Make("OCPPCommCtrlr", "OfflineThreshold");
    CTools::CopyField(local.attributeValue, "50");
    cache->UpdateVariableValue(local);
    rmdir((g_storePath + "1").c_str());
    Deliver(SetCall("d3", "OfflineThreshold", "50"));
    HostAnswersSetVariables("d3");
    ASSERT_EQ(g_answers.size(), 3u);
    EXPECT_NE(g_answers[2].find("\"Accepted\""), std::string::npos);
    EXPECT_NE(g_storeAtAnswer[2].find(CTools::StringFormat(stored.c_str(), "50")), std::string::npos);
    COcppSendSeam::Reset();
}
