#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "Ocpp20/Process/VariableCache.h"
#include "OcppProtocol/OcppProtocol.h"
#include "Process/BootHeartbeat.h"
#include "Process/ConnectManager.h"
#include "Engine20.h"
#include "FrameSchema.h"
#include "Util/TimerManager.h"
#include "Util/Tools.h"

using namespace ocpptest;

namespace {

const int64_t k2030 = 1893456000;  // 2030-01-01T00:00:00Z

std::vector<int64_t> g_clockSets;
int g_clockResult = 1;
int RecordClockSet(int64_t epochSec) {
    g_clockSets.push_back(epochSec);
    return g_clockResult;
}

int64_t g_lastOperate = 0;
int64_t LastOperate() { return g_lastOperate; }

class BootHeartbeat : public Engine20 {
protected:
    void SetUp() override {
        CConnectManager::Release();
        ASSERT_NO_FATAL_FAILURE(Engine20::SetUp());
        g_eSdkStatus = SDKSTATUS_CONNECTED;
        CTools::FreezeClock(true);
        g_clockSets.clear();
        g_clockResult = 1;
        g_lastOperate = 0;
        CTools::SetSetTimeHook(&RecordClockSet);
        CBootHeartbeat::SetLastOperateSource(&LastOperate);
        boot = CBootHeartbeat::GetInstance();
        boot->StopTimer();  // ticks come from the test
    }
    void TearDown() override {
        CConnectManager::Release();
        CTimerManager::Release();
        CBootHeartbeat::SetLastOperateSource(nullptr);
        CTools::SetSetTimeHook(nullptr);
        Engine20::TearDown();
    }

    // Answers BootNotification with `status` and Heartbeat with the 2030 time.
    void Csms(const char* status, int interval) {
        link.Answer([status, interval, this](const std::string& id) {
            const std::string last = link.Last();
            if (last.find("\"Heartbeat\"") != std::string::npos)
                return "[3,\"" + id + "\",{\"currentTime\":\"2030-01-01T00:00:00Z\"}]";
            if (last.find("\"BootNotification\"") != std::string::npos)
                return "[3,\"" + id + "\",{\"currentTime\":\"2030-01-01T00:00:00Z\",\"interval\":" +
                       std::to_string(interval) + ",\"status\":\"" + status + "\"}]";
            return "[3,\"" + id + "\",{}]";
        });
    }
    void Advance(int seconds) { CTools::AdvanceClockMs(int64_t(seconds) * 1000); }
    // Ticks `seconds` on: how many frames named `action` went so far.
    size_t SentAfter(int seconds, const char* action) {
        Advance(seconds);
        boot->TimerProc();
        return link.Count(action);
    }
    void HostAsksForBoot() {
        OcppProtocol_BootNotification(BOOTREASON_POWERUP, "M", "V", nullptr);
        boot->TimerProc();
    }

    ClockGuard clock;
    CBootHeartbeat* boot = nullptr;
};

TEST_F(BootHeartbeat, BootWaitsForTheHostAndTheLinkAndOnceAcceptedSetsClockReportsRebootAndMarksProfileAccepted) {
    Csms("Accepted", 60);
    boot->TimerProc();
    EXPECT_EQ(link.Count("BootNotification"), 0u) << "nothing before the host asks for a boot";

    BootNotificationOption option{};
    CTools::CopyField(option.serialNumber, "SN-1");
    OcppProtocol_BootNotification(BOOTREASON_POWERUP, "Model-X", "Vendor-Y", &option);
    g_eSdkStatus = SDKSTATUS_DISCONNECTED;
    boot->TimerProc();
    Advance(100);
    boot->TimerProc();
    EXPECT_EQ(link.Count(), 0u) << "nothing while disconnected";
    EXPECT_EQ(OcppProtocol_GetStatus(), SDKSTATUS_DISCONNECTED);
    g_eSdkStatus = SDKSTATUS_CONNECTED;
    boot->TimerProc();

    ASSERT_EQ(link.Count("BootNotification"), 1u);
    for (const char* value : {"\"PowerUp\"", "\"Model-X\"", "\"SN-1\""})
        EXPECT_NE(link.Sent()[0].find(value), std::string::npos) << value;
    EXPECT_EQ(boot->GetBootStatus(), 0);
    EXPECT_EQ(boot->GetBootPhase(), 2);
    EXPECT_EQ(g_clockSets, std::vector<int64_t>{k2030});
    EXPECT_EQ(link.Count("SecurityEventNotification"), 1u);
    EXPECT_NE(link.Sent()[1].find("\"ResetOrReboot\""), std::string::npos);
    EXPECT_EQ(CConnectManager::GetInstance()->IsAcceptedByCsms(), 1);
    EXPECT_EQ(OcppProtocol_GetStatus(), SDKSTATUS_OK) << "accepted boot hands over to the online state";

    EXPECT_EQ(SentAfter(2, "BootNotification"), 1u) << "no second boot once accepted";
}

TEST_F(BootHeartbeat, PendingAndRejectedRetryAfterTheirIntervalAndSilenceAfterTenMoreSeconds) {
    Csms("Pending", 30);
    CConnectManager::GetInstance()->SetAcceptedByCsms(1);
    HostAsksForBoot();
    ASSERT_EQ(link.Count("BootNotification"), 1u);
    EXPECT_EQ(boot->GetBootStatus(), 1);
    EXPECT_EQ(boot->GetBootPhase(), 1);
    EXPECT_EQ(CConnectManager::GetInstance()->IsAcceptedByCsms(), 0);
    EXPECT_TRUE(g_clockSets.empty()) << "only an accepted boot sets the clock";

    EXPECT_EQ(SentAfter(29, "BootNotification"), 1u);
    EXPECT_EQ(SentAfter(1, "BootNotification"), 2u);

    // The CSMS goes silent: the next try waits the interval plus 10 s.
    link.SetSendResult(0);
    EXPECT_EQ(SentAfter(30, "BootNotification"), 3u);
    EXPECT_EQ(SentAfter(39, "BootNotification"), 3u);
    EXPECT_EQ(SentAfter(1, "BootNotification"), 4u);

    link.SetSendResult(1);
    Csms("Rejected", 0);
    EXPECT_EQ(SentAfter(40, "BootNotification"), 5u);
    EXPECT_EQ(boot->GetBootStatus(), 2);
    EXPECT_EQ(SentAfter(0, "BootNotification"), 6u) << "interval 0 retries on every tick";
}

TEST_F(BootHeartbeat, NeverAnsweredBootRetriesEveryTenSeconds) {
    link.SetSendResult(0);
    HostAsksForBoot();
    EXPECT_EQ(SentAfter(9, "BootNotification"), 1u);
    EXPECT_EQ(SentAfter(1, "BootNotification"), 2u);
}

TEST_F(BootHeartbeat, HeartbeatGoesTwoSecondsBeforeTheIntervalAndSetsTheClock) {
    Csms("Accepted", 60);
    HostAsksForBoot();
    link.Clear();
    g_clockSets.clear();

    EXPECT_EQ(SentAfter(57, "Heartbeat"), 0u);
    EXPECT_EQ(SentAfter(1, "Heartbeat"), 1u);
    EXPECT_EQ(g_clockSets, std::vector<int64_t>{k2030});

    // An unanswered heartbeat only moves the schedule on.
    link.SetSendResult(0);
    EXPECT_EQ(SentAfter(58, "Heartbeat"), 2u);
    EXPECT_EQ(SentAfter(57, "Heartbeat"), 2u);
    EXPECT_EQ(SentAfter(1, "Heartbeat"), 3u);
    EXPECT_EQ(g_clockSets.size(), 1u);
}

TEST_F(BootHeartbeat, BusyLinkPostponesHeartbeatsButNotBeyondOneDay) {
    Csms("Accepted", 60);
    HostAsksForBoot();
    ASSERT_EQ(SentAfter(58, "Heartbeat"), 1u) << "a first answer, so the day counts from here";

    int sent = 0;
    for (int elapsed = 10; elapsed <= 86400 + 10; elapsed += 10) {
        Advance(10);
        g_lastOperate = CTools::GetCurRunTimeSec();  // a frame every 10 s
        boot->TimerProc();
        if (link.Count("Heartbeat") > 1u) {
            sent = elapsed;
            break;
        }
    }
    EXPECT_GE(sent, 86400);
    EXPECT_LE(sent, 86410);
}

TEST_F(BootHeartbeat, DailyHeartbeatOnABusyLinkGoesOnceEvenWhenAnswersCarryNoUsableTime) {
    const char* answers[] = {"[3,\"%s\",{\"currentTime\":\"2030-01-01T00:00:00\"}]",
                             "[4,\"%s\",\"InternalError\",\"\",{}]", nullptr};
    for (const char* format : answers) {
        SCOPED_TRACE(format != nullptr ? format : "no answer");
        CBootHeartbeat::Release();
        boot = CBootHeartbeat::GetInstance();
        boot->StopTimer();
        Csms("Accepted", 3600);
        HostAsksForBoot();
        if (format != nullptr) {
            const std::string text = format;
            link.Answer([text](const std::string& id) { return CTools::StringFormat(text.c_str(), id.c_str()); });
        } else {
            link.SetSendResult(0);
        }
        link.Clear();
        Advance(86400);
        for (int tick = 0; tick < 30; ++tick) {
            Advance(2);
            g_lastOperate = CTools::GetCurRunTimeSec();  // the link is busy, so only the daily clause applies
            boot->TimerProc();
        }
        EXPECT_EQ(link.Count("Heartbeat"), 1u);
        link.SetSendResult(1);
    }
}

TEST_F(BootHeartbeat, TriggeredBootIsSentWhileBootingButRefusedOnceTheStationIsAccepted) {
    Csms("Pending", 300);
    HostAsksForBoot();
    Csms("Accepted", 60);
    DeliverTo20(R"([2,"t1","TriggerMessage",{"requestedMessage":"BootNotification"}])");
    ASSERT_EQ(link.Count("BootNotification"), 2u);
    EXPECT_NE(link.Sent()[1].find("\"Accepted\""), std::string::npos) << "the answer goes before the boot";
    EXPECT_EQ(boot->GetBootPhase(), 2);

    link.Clear();
    DeliverTo20(R"([2,"t2","TriggerMessage",{"requestedMessage":"BootNotification"}])");
    ASSERT_EQ(link.Count(), 1u) << "an accepted station sends no second BootNotification";
    EXPECT_EQ(link.Last(), "[3,\"t2\",\n{\n\"status\": \"Rejected\"\n}]");
}

TEST_F(BootHeartbeat, HeartbeatIntervalComesFromTheBootAnswerAndSetVariablesChangesTheNextHeartbeat) {
    Csms("Accepted", 60);
    HostAsksForBoot();
    EXPECT_EQ(CVariableCache::GetInstance()->OCPPCommCtrlrHeartbeatInterval(), 60);
    EXPECT_NE(ReadText(dir.file("variablecache.json")).find(R"("value":"60","componentname":"OCPPCommCtrlr","variablename":"HeartbeatInterval")"),
              std::string::npos)
        << "the interval is kept across restarts";
    link.Clear();
    DeliverTo20(R"([2,"g1","GetVariables",{"getVariableData":[{"component":{"name":"OCPPCommCtrlr"},"variable":{"name":"HeartbeatInterval"}}]}])");
    EXPECT_NE(link.Last().find("\"attributeValue\": \"60\""), std::string::npos) << link.Last();

    ASSERT_EQ(SentAfter(58, "Heartbeat"), 1u);
    link.Clear();
    DeliverTo20(SetCall("s1", "HeartbeatInterval", "20"));
    DeliverTo20(SetCall("s2", "HeartbeatInterval", "-5"));
    host.SettleSetVariables("s1");
    host.SettleSetVariables("s2");
    ASSERT_EQ(link.Count(), 2u);
    EXPECT_NE(link.Sent()[0].find("\"Accepted\""), std::string::npos);
    EXPECT_NE(link.Sent()[1].find("\"Rejected\""), std::string::npos) << "the interval is whole seconds, never negative";
    EXPECT_EQ(CVariableCache::GetInstance()->OCPPCommCtrlrHeartbeatInterval(), 20);

    EXPECT_EQ(SentAfter(17, "Heartbeat"), 0u);
    EXPECT_EQ(SentAfter(1, "Heartbeat"), 1u) << "the new interval applies from the next heartbeat on";
}

// The triggered boot itself is the test above and the dispatch test's (rejected station).
TEST_F(BootHeartbeat, ClockThatCannotBeSetLeavesTheBootAcceptedAndATriggeredHeartbeatGoesAtOnceAndSetsIt) {
    g_clockResult = 0;
    Csms("Accepted", 60);
    HostAsksForBoot();
    EXPECT_EQ(boot->GetBootPhase(), 2);
    EXPECT_TRUE(log.Contains("set system time failed"));
    g_clockSets.clear();
    EXPECT_EQ(boot->TriggerHeartBeat(), 1);
    EXPECT_EQ(link.Count("Heartbeat"), 1u);
    EXPECT_EQ(g_clockSets.size(), 1u);
}

TEST_F(BootHeartbeat, RetryBackOffValueFollowsTheDeviceModel) {
    SetLibraryVariable("OCPPCommCtrlr", "RetryBackOffWaitMinimum", "7");
    SetLibraryVariable("OCPPCommCtrlr", "RetryBackOffRandomRange", "0");
    SetLibraryVariable("OCPPCommCtrlr", "RetryBackOffRepeatTimes", "3");
    EXPECT_EQ(OcppProtocol_GetReconnctBackOffTime(), 5);
    boot->AddReconnctTimes();
    EXPECT_EQ(OcppProtocol_GetReconnctBackOffTime(), 5) << "not counting before a reset";

    boot->ResetReconnctTimes();
    EXPECT_EQ(OcppProtocol_GetReconnctBackOffTime(), 5);
    std::vector<int> values;
    for (int i = 0; i < 5; ++i) {
        boot->AddReconnctTimes();
        values.push_back(OcppProtocol_GetReconnctBackOffTime());
    }
    EXPECT_EQ(values, (std::vector<int>{7, 14, 28, 28, 28}));
    boot->ResetReconnctTimes();
    EXPECT_EQ(OcppProtocol_GetReconnctBackOffTime(), 5);
}

}  // namespace
