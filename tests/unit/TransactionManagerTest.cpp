#include <gtest/gtest.h>

#include <OcppRecords.h>

#include <array>
#include <mutex>
#include <string>
#include <vector>

#include "Engine20.h"
#include "FrameSchema.h"
#include "Ocpp20/Process/AuthorizeCache.h"
#include "Ocpp20/Process/TransactionManager.h"
#include "OcppProtocol/OcppProtocol.h"
#include "Process/OfflineCache.h"
#include "SmartCharging/ChargingProfile20/ProfileManager.h"
#include "Util/Tools.h"

using namespace ocpptest;

namespace {

struct Event {
    int subtype;  // 1 started, 2 updated, 3 ended
    int seqNo;
    int reason;
    int chargingState;
    int stopReason;
    std::string token;
    std::string txId;
};

std::mutex g_eventsMutex;
std::vector<Event> g_events;

int Record(int subtype, const TransactionEventArgs& a, int32_t* eventParam) {
    std::lock_guard<std::mutex> lock(g_eventsMutex);
    g_events.push_back({subtype, a.seqNo, a.reason, a.chargingState, a.stopReason, a.idToken, a.transactionId});
    *eventParam = a.eventParam;
    return 0;
}

// {subtype, seqNo, reason} of each event: enough to read a run of events at a glance.
using Brief = std::vector<std::array<int, 3>>;
Brief BriefOf(const std::vector<Event>& events) {
    Brief brief;
    for (const Event& e : events) brief.push_back({e.subtype, e.seqNo, e.reason});
    return brief;
}

enum { kAccepted = 0, kInvalid = 4, kISO14443 = 2 };

class TransactionManagerTest : public Engine20 {
protected:
    void SetUp() override {
        ASSERT_NO_FATAL_FAILURE(Engine20::SetUp());
        ASSERT_EQ(CAuthorizeCache::GetInstance()->SetStoreFile(dir.file("authorizecache.db")), 1);
        g_eSdkStatus = SDKSTATUS_DISCONNECTED;  // tokens are decided from the cache
        CTransactionManager::SetEventSink(&Record);
        Open();
        Token("ALICE", "FAMILY");
        Token("BOB", "FAMILY");
        Token("CAROL", "OTHER");
        Token("DAVE", "");
        Token("MASTER", "MASTERS");
        SetLibraryVariable("AuthCtrlr", "MasterPassGroupId", "MASTERS");
        SetLibraryVariable("TxCtrlr", "TxStartPoint", "Authorized");
        SetLibraryVariable("TxCtrlr", "TxStopPoint", "");
    }
    void TearDown() override {
        CTransactionManager::SetEventSink(nullptr);
        CTransactionManager::Release();
        CAuthorizeCache::Release();
        Engine20::TearDown();
        std::lock_guard<std::mutex> lock(g_eventsMutex);
        g_events.clear();
    }

    void Open() {
        tx = CTransactionManager::GetInstance();
        ASSERT_EQ(tx->SetStoreFile(dir.file("transactioncache.bin")), 1);
    }
    static void Token(const char* token, const char* group) {
        AuthorizeItem item{};
        CTools::CopyField(item.token, token);
        item.tokenType = kISO14443;
        item.status = kAccepted;
        item.expiryTime = static_cast<int32_t>(CTools::CurTimeSec() + 3600);
        CTools::CopyField(item.groupToken, group);
        CAuthorizeCache::GetInstance()->UpdateAuthorizeCache(item);
    }
    std::vector<Event> Take() {
        std::lock_guard<std::mutex> lock(g_eventsMutex);
        std::vector<Event> events;
        events.swap(g_events);
        return events;
    }
    // Opens on `evse`; the id, or "" when refused.
    std::string Start(int evse, int reason, const char* token = "", int* status = nullptr, int* errorCode = nullptr) {
        std::string id;
        const int rc = tx->TransactionStart(evse, 1, token, kISO14443, reason, TRANSACTIONCHARGINGSTATE_EVCONNECTED,
                                            0, 0, nullptr, CTransactionManager::Meter(), &id, errorCode);
        if (status != nullptr) *status = rc;
        return rc == kAccepted ? id : std::string();
    }
    int End(const std::string& id, int reason, int state = TRANSACTIONCHARGINGSTATE_IDLE) {
        return tx->TransactionEnd(id, reason, state, TRANSACTIONSTOPREASON_LOCAL, CTransactionManager::Meter());
    }
    int Update(const std::string& id, int reason, int state = TRANSACTIONCHARGINGSTATE_CHARGING) {
        return tx->TransactionUpdate(id, reason, state, CTransactionManager::Meter(), 0);
    }

    CTransactionManager* tx = nullptr;
};

}  // namespace

TEST_F(TransactionManagerTest, StartedIsSentOnlyWhenTheConfiguredStartPointIsReached) {
    // Authorized: plugging in opens the transaction silently; the token starts it with seqNo 0.
    const std::string a = Start(1, TRANSACTIONREASON_CABLEPLUGGEDIN);
    ASSERT_FALSE(a.empty());
    EXPECT_TRUE(Take().empty()) << "nothing is sent before the start point";
    EXPECT_FALSE(tx->IsTransactionStart(a));
    EXPECT_EQ(Start(1, TRANSACTIONREASON_AUTHORIZED, "ALICE"), a) << "the token joins the open transaction";
    std::vector<Event> events = Take();
    ASSERT_EQ(BriefOf(events), (Brief{{1, 0, TRANSACTIONREASON_AUTHORIZED}}));
    EXPECT_EQ(events[0].token, "ALICE");

    // PowerPathClosed: both the token and the cable, in either order; one ended before that sends no Ended.
    SetLibraryVariable("TxCtrlr", "TxStartPoint", "PowerPathClosed");
    const std::string b = Start(2, TRANSACTIONREASON_AUTHORIZED, "BOB");
    const std::string c = Start(3, TRANSACTIONREASON_CABLEPLUGGEDIN);
    const std::string never = Start(6, TRANSACTIONREASON_AUTHORIZED, "ALICE");
    ASSERT_FALSE(never.empty());
    EXPECT_EQ(End(never, TRANSACTIONREASON_STOPAUTHORIZED), 0);
    EXPECT_FALSE(tx->IsTransactionExist(never));
    EXPECT_TRUE(Take().empty());
    EXPECT_EQ(Start(2, TRANSACTIONREASON_CABLEPLUGGEDIN), b);
    EXPECT_EQ(Start(3, TRANSACTIONREASON_AUTHORIZED, "CAROL"), c);
    events = Take();
    ASSERT_EQ(events.size(), 2u);
    EXPECT_EQ(events[0].txId, b);
    EXPECT_EQ(events[0].token, "BOB");
    EXPECT_EQ(events[1].txId, c);
    EXPECT_EQ(events[1].token, "CAROL");

    // EVConnected: the cable alone; EnergyTransfer: the first charging state change.
    SetLibraryVariable("TxCtrlr", "TxStartPoint", "EVConnected");
    const std::string d = Start(4, TRANSACTIONREASON_CABLEPLUGGEDIN);
    events = Take();
    ASSERT_EQ(events.size(), 1u);
    EXPECT_EQ(events[0].token, "") << "a transaction opened by the cable carries no token";
    SetLibraryVariable("TxCtrlr", "TxStartPoint", "EnergyTransfer");
    const std::string e = Start(5, TRANSACTIONREASON_AUTHORIZED, "DAVE");
    EXPECT_TRUE(Take().empty());
    EXPECT_EQ(Update(e, TRANSACTIONREASON_CHARGINGSTATECHANGED), 0);
    EXPECT_EQ(BriefOf(Take()), (Brief{{1, 0, TRANSACTIONREASON_CHARGINGSTATECHANGED}}));
}

TEST_F(TransactionManagerTest, StopPointsDecideWhetherAStopEndsOrPausesTheTransaction) {
    struct Case {
        const char* stopPoints;
        int reason;
        int state;
        bool ends;
    } const cases[] = {
        {"", TRANSACTIONREASON_STOPAUTHORIZED, TRANSACTIONCHARGINGSTATE_IDLE, true},
        {"EnergyTransfer", TRANSACTIONREASON_CHARGINGSTATECHANGED, TRANSACTIONCHARGINGSTATE_SUSPENDEDEV, true},
        {"PowerPathClosed", TRANSACTIONREASON_CHARGINGSTATECHANGED, TRANSACTIONCHARGINGSTATE_SUSPENDEDEVSE, false},
        {"EnergyTransfer", TRANSACTIONREASON_CHARGINGSTATECHANGED, TRANSACTIONCHARGINGSTATE_IDLE, false},
        {"Authorized", TRANSACTIONREASON_STOPAUTHORIZED, TRANSACTIONCHARGINGSTATE_IDLE, true},
        {"EVConnected", TRANSACTIONREASON_STOPAUTHORIZED, TRANSACTIONCHARGINGSTATE_IDLE, false},
        {"EVConnected", TRANSACTIONREASON_REMOTESTOP, TRANSACTIONCHARGINGSTATE_IDLE, false},
        {"Authorized", TRANSACTIONREASON_EVCOMMUNICATIONLOST, TRANSACTIONCHARGINGSTATE_IDLE, false},
        {"Authorized", TRANSACTIONREASON_EVDEPARTED, TRANSACTIONCHARGINGSTATE_IDLE, true},
    };
    SetLibraryVariable("TxCtrlr", "TxStartPoint", "ParkingBayOccupancy");
    size_t pauses = 0;
    for (const Case& c : cases) {
        SCOPED_TRACE(std::string(c.stopPoints) + " reason " + std::to_string(c.reason));
        SetLibraryVariable("TxCtrlr", "TxStopPoint", c.stopPoints);
        const std::string id = Start(1, TRANSACTIONREASON_EVDETECTED);
        ASSERT_TRUE(tx->IsTransactionStart(id));
        Take();
        EXPECT_EQ(End(id, c.reason, c.state), 0);
        const std::vector<Event> events = Take();
        EXPECT_EQ(tx->IsTransactionExist(id), !c.ends);
        ASSERT_EQ(BriefOf(events), (c.ends ? Brief{{3, 1, c.reason}} : Brief{}));
        if (c.ends) {
            EXPECT_EQ(events[0].stopReason, TRANSACTIONSTOPREASON_LOCAL);
        } else {
            const bool idle = c.reason == TRANSACTIONREASON_CHARGINGSTATECHANGED && c.state == TRANSACTIONCHARGINGSTATE_IDLE;
            if (!idle) {
                EXPECT_TRUE(host.WaitForType(SERVERRECVTYPE_NOTIFYTRANSACTIONPAUSE, ++pauses)) << "the host hears of the pause";
            }
            tx->RemoveAll();
        }
    }
}

TEST_F(TransactionManagerTest, MasterPassCannotStartButEndsAnyTransactionAndGroupsDecideTheRest) {
    int status = -1;
    int errorCode = -1;
    EXPECT_EQ(Start(1, TRANSACTIONREASON_AUTHORIZED, "MASTER", &status, &errorCode), "");
    EXPECT_EQ(status, kInvalid);
    EXPECT_EQ(errorCode, TRANSACTIONERRORCODE_MASTERPASS);
    EXPECT_EQ(tx->GetTransactionCount(), 0);

    const std::string alice = Start(1, TRANSACTIONREASON_AUTHORIZED, "ALICE");
    const std::string dave = Start(2, TRANSACTIONREASON_AUTHORIZED, "DAVE");
    Take();
    auto endWith = [&](const std::string& id, const char* token) {
        return tx->TransactionEndWithToken(id, TRANSACTIONREASON_STOPAUTHORIZED, TRANSACTIONCHARGINGSTATE_IDLE,
                                           TRANSACTIONSTOPREASON_LOCAL, token, kISO14443,
                                           CTransactionManager::Meter());
    };
    EXPECT_EQ(endWith(alice, "ALICE"), 1) << "the same token: the host ends it";
    EXPECT_EQ(endWith(alice, "BOB"), 1) << "a token of the same group: the host ends it";
    EXPECT_EQ(endWith(alice, "CAROL"), kInvalid) << "another group";
    EXPECT_EQ(endWith(dave, "BOB"), kInvalid) << "the starting token has no group";
    EXPECT_NE(endWith(alice, "STRANGER"), 0) << "a token nobody knows";
    EXPECT_TRUE(Take().empty());
    EXPECT_EQ(tx->GetTransactionCount(), 2);

    EXPECT_EQ(endWith(alice, "MASTER"), 0);
    std::vector<Event> events = Take();
    ASSERT_EQ(BriefOf(events), (Brief{{3, 1, TRANSACTIONREASON_STOPAUTHORIZED}}));
    EXPECT_EQ(events[0].stopReason, TRANSACTIONSTOPREASON_MASTERPASS);
    EXPECT_FALSE(tx->IsTransactionExist(alice));

    // Opened by the cable: any accepted token ends it here.
    SetLibraryVariable("TxCtrlr", "TxStartPoint", "EVConnected");
    const std::string cable = Start(3, TRANSACTIONREASON_CABLEPLUGGEDIN);
    Take();
    EXPECT_EQ(endWith(cable, "CAROL"), 0);
    EXPECT_EQ(Take().size(), 1u);
    EXPECT_FALSE(tx->IsTransactionExist(cable));
}

TEST_F(TransactionManagerTest, AuthorizedWithoutCableEndsWithEVConnectTimeoutAfterTheConnectionTimeOut) {
    ClockGuard clock;
    CTools::FreezeClock(true);
    SetLibraryVariable("TxCtrlr", "EVConnectionTimeOut", "60");
    const std::string id = Start(1, TRANSACTIONREASON_AUTHORIZED, "ALICE");
    EXPECT_EQ(Update(id, TRANSACTIONREASON_TRIGGER), 0);
    CTools::AdvanceClockMs(30000);
    CTransactionManager::OccupyTimerProc(nullptr);
    EXPECT_TRUE(tx->IsTransactionExist(id)) << "still within the time-out";
    CTools::AdvanceClockMs(31000);
    CTransactionManager::OccupyTimerProc(nullptr);
    const std::vector<Event> events = Take();
    ASSERT_EQ(BriefOf(events), (Brief{{1, 0, TRANSACTIONREASON_AUTHORIZED}, {2, 1, TRANSACTIONREASON_TRIGGER},
                                      {3, 2, TRANSACTIONREASON_EVCONNECTTIMEOUT}}))
        << "the end takes the seqNo one above the last event";
    EXPECT_EQ(events[2].chargingState, TRANSACTIONCHARGINGSTATE_IDLE);
    EXPECT_EQ(events[2].stopReason, TRANSACTIONSTOPREASON_TIMEOUT);
    EXPECT_FALSE(tx->IsTransactionExist(id));
}

TEST_F(TransactionManagerTest, PeriodicMeterValuesStopWhenTxUpdatedIntervalIsZeroOtherUpdatesDoNot) {
    SetLibraryVariable("SampledDataCtrlr", "Enabled", "true");
    SetLibraryVariable("SampledDataCtrlr", "Available", "true");
    SetLibraryVariable("SampledDataCtrlr", "TxUpdatedInterval", "60");
    const std::string id = Start(1, TRANSACTIONREASON_AUTHORIZED, "ALICE");
    Take();
    EXPECT_EQ(Update(id, TRANSACTIONREASON_METERVALUEPERIODIC), 0);
    SetLibraryVariable("SampledDataCtrlr", "TxUpdatedInterval", "0");
    EXPECT_EQ(Update(id, TRANSACTIONREASON_METERVALUEPERIODIC), 0);
    EXPECT_EQ(Update(id, TRANSACTIONREASON_CHARGINGRATECHANGED), 0);
    EXPECT_EQ(BriefOf(Take()),
              (Brief{{2, 1, TRANSACTIONREASON_METERVALUEPERIODIC}, {2, 2, TRANSACTIONREASON_CHARGINGRATECHANGED}}))
        << "a skipped periodic value takes no number";
    EXPECT_EQ(Update("no-such-transaction", TRANSACTIONREASON_TRIGGER), kInvalid);
}

TEST_F(TransactionManagerTest, OpenTransactionsSurviveARestartWithTheirIdTokenAndSeqNo) {
    const std::string a = Start(1, TRANSACTIONREASON_AUTHORIZED, "ALICE");
    const std::string b = Start(2, TRANSACTIONREASON_AUTHORIZED, "BOB");
    Update(a, TRANSACTIONREASON_TRIGGER);
    Update(a, TRANSACTIONREASON_TRIGGER);
    const std::string path = dir.file("transactioncache.bin");
    EXPECT_EQ(ReadText(path).size(), 2 * CTransactionManager::kRecordBytes) << "132 bytes a transaction, no header";
    // Power lost after the journal kept b's Updated 1 but before the store was rewritten.
    COfflineCache* journal = COfflineCache::GetInstance();
    ASSERT_EQ(journal->SetStoreFile(dir.file("offline.db")), 1);
    ASSERT_GT(journal->JournalTransactionMessage(OFFLINEMSGSUBTYPE_UPDATED, 1, "[2,\"j\",\"TransactionEvent\",{}]", b), 0);

    CTransactionManager::Release();
    Open();
    TransactionItem item;
    ASSERT_TRUE(tx->GetTransactionItem(a, &item));
    EXPECT_STREQ(item.idToken, "ALICE");
    EXPECT_EQ(+item.seqNo, 2);
    EXPECT_TRUE(tx->IsTransactionStart(b));
    Take();
    Update(a, TRANSACTIONREASON_TRIGGER);
    Update(b, TRANSACTIONREASON_TRIGGER);
    EXPECT_EQ(BriefOf(Take()), (Brief{{2, 3, TRANSACTIONREASON_TRIGGER}, {2, 2, TRANSACTIONREASON_TRIGGER}}))
        << "a seqNo the journal already holds is never used again";
    COfflineCache::Release();

    // A write cut short by power loss: the whole records before the tear still load.
    const std::string image = ReadText(path);
    CTransactionManager::Release();
    WriteText(path, image.substr(0, CTransactionManager::kRecordBytes + 50));
    Open();
    EXPECT_EQ(tx->GetTransactionCount(), 1);
}

TEST_F(TransactionManagerTest, CsmsLearnsWhetherATransactionIsOngoingAndCannotStartOrStopOneBeforeTheLinkIsUp) {
    auto deliver = [](const std::string& action, const std::string& payload) {
        DeliverTo20("[2,\"m-" + action + "\",\"" + action + "\"," + payload + "]");
    };
    deliver("RequestStopTransaction", R"({"transactionId":"tx-1"})");
    EXPECT_NE(link.Last().find("Rejected"), std::string::npos);
    EXPECT_TRUE(log.Contains("Charing status:0 Error, reject RequestStopTransactionRequest\n"));
    deliver("RequestStartTransaction", R"({"idToken":{"idToken":"ALICE","type":"ISO14443"},"remoteStartId":7})");
    EXPECT_NE(link.Last().find("Rejected"), std::string::npos);

    const std::string id = Start(1, TRANSACTIONREASON_AUTHORIZED, "ALICE");
    deliver("GetTransactionStatus", "{}");
    EXPECT_NE(link.Last().find("\"messagesInQueue\": true"), std::string::npos) << link.Last();
    EXPECT_EQ(link.Last().find("ongoingIndicator"), std::string::npos);
    deliver("GetTransactionStatus", R"({"transactionId":")" + id + "\"}");
    EXPECT_NE(link.Last().find("\"ongoingIndicator\": true"), std::string::npos) << link.Last();
    EXPECT_NE(link.Last().find("\"messagesInQueue\": false"), std::string::npos);
}

TEST_F(TransactionManagerTest, RemoteStartKeepsItsChargingProfileBeforeTheHostIsAsked) {
    ASSERT_EQ(CProfileManager20::GetInstance()->SetStoreFile(dir.file("chargingprofile20.db")), 1);
    g_eSdkStatus = SDKSTATUS_OK;
    host.OnRecord([](const char* record, uint32_t) {
        if (reinterpret_cast<const ServerRecvBase*>(record)->type == SERVERRECVTYPE_REQUESTSTARTTRANSACTION) {
            EXPECT_FALSE(CProfileManager20::GetInstance()->GetChargingProfile(31).empty());
        }
    });
    const std::string frame =
        R"([2,"m-1","RequestStartTransaction",{"idToken":{"idToken":"ALICE","type":"ISO14443"},"remoteStartId":7,)"
        R"("evseId":1,"chargingProfile":{"id":31,"stackLevel":0,"chargingProfilePurpose":"TxProfile",)"
        R"("chargingProfileKind":"Relative","chargingSchedule":[{"id":1,"chargingRateUnit":"A",)"
        R"("chargingSchedulePeriod":[{"startPeriod":0,"limit":16}]}]}}])";
    DeliverTo20(frame);
    EXPECT_TRUE(host.WaitForType(SERVERRECVTYPE_REQUESTSTARTTRANSACTION));
    CProfileManager20::Release();
}
