// The offline cache and the ordered transaction queue: what is kept, in which
// order it reaches the CSMS, and what a lost link or a silent CSMS does to it.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "Engine20.h"
#include "Ocpp20/Process/TransactionManager.h"
#include "Ocpp20/TransactionMsgQueue.h"
#include "OcppProtocol/OcppProtocol.h"
#include "OcppProtocol/OutboundSender.h"
#include "Process/ConnectManager.h"
#include "Process/OfflineCache.h"
#include "Util/Tools.h"
#include "Util/TransactionMessageManager.h"

using namespace ocpptest;

namespace {

std::string Event(int seqNo, const char* txId = "tx-1", const char* type = "Updated") {
    return "[2,\"ev-" + std::to_string(seqNo) + "\",\"TransactionEvent\",\n{\"eventType\":\"" + type +
           "\",\"timestamp\":\"2030-01-01T00:00:00.000Z\",\"triggerReason\":\"MeterValuePeriodic\",\"seqNo\":" +
           std::to_string(seqNo) + ",\"transactionInfo\":{\"transactionId\":\"" + txId + "\"}}]";
}

std::string Security(int n) {
    return "[2,\"se-" + std::to_string(n) +
           "\",\"SecurityEventNotification\",\n{\"type\":\"ResetOrReboot\",\"timestamp\":\"2030-01-01T00:00:00.000Z\"}]";
}

OutboundResult SendEvent(int seqNo, const char* txId = "tx-1") {
    const std::string frame = Event(seqNo, txId);
    OutboundMessage message;
    message.kind = OUTBOUNDKIND_TRANSACTIONEVENT;
    message.frame = frame.c_str();
    message.len = static_cast<int>(frame.size());
    message.subtype = OFFLINEMSGSUBTYPE_UPDATED;
    message.seqNo = seqNo;
    message.transactionId = txId;
    return COutboundSender::Send(message);
}

std::string IdOf(const std::string& frame) {
    const size_t a = frame.find('"') + 1;
    return frame.substr(a, frame.find('"', a) - a);
}

void SetAttempts(const char* attempts, const char* interval) {
    VariableDataItem item[2];
    item[0] = HostVariable("OCPPCommCtrlr", "MessageAttempts", attempts, 0, VARIABLESTATUS_ACCEPTED);
    item[1] = HostVariable("OCPPCommCtrlr", "MessageAttemptInterval", interval, 0, VARIABLESTATUS_ACCEPTED);
    for (VariableDataItem& i : item) {
        CTools::CopyField(i.variableInstance, "TransactionEvent");
        ASSERT_EQ(OcppProtocol_SetVariableData(1, &i, 1), 1);
    }
}

class OfflineQueue : public Engine20 {
protected:
    void SetUp() override {
        ASSERT_NO_FATAL_FAILURE(Engine20::SetUp());
        cache = COfflineCache::GetInstance();
        ASSERT_EQ(cache->SetStoreFile(dir.file("offline.db")), 1);
        CTransactionMsgQueue::Start();
        link.Answer([](const std::string& id) { return "[3,\"" + id + "\",{}]"; });
    }
    void TearDown() override {
        CTransactionMessageManager::Release();
        CTransactionManager::Release();
        COfflineCache::Release();
        g_eSdkVersion = 0;
        OcppProtocol_SetOfflineTransactionStorePoint(TRANSACTIONSTOREPOINT_ALWAYS);
        Engine20::TearDown();
    }
    void Replay() {
        g_eSdkStatus = SDKSTATUS_CONNECTED;
        cache->SubmitOfflineMessage();
        cache->JoinReplay();
    }

    ClockGuard clock;
    COfflineCache* cache = nullptr;
};

}  // namespace

TEST_F(OfflineQueue, TransactionEventsAreKeptOfflineOnlyWhereTheStorePointAllows) {
    g_eSdkStatus = SDKSTATUS_DISCONNECTED;
    CConnectManager::GetInstance()->SetAcceptedByCsms(0);
    const struct {
        TRANSACTIONSTOREPOINT point;
        bool accepted;
        bool kept;
    } rows[] = {
        {TRANSACTIONSTOREPOINT_ALWAYS, false, true},
        {TRANSACTIONSTOREPOINT_TXBEFOREACCEPTED_OR_ACCEPTED, false, false},
        {TRANSACTIONSTOREPOINT_TXBEFOREACCEPTED_OR_ACCEPTED, true, true},
        {TRANSACTIONSTOREPOINT_ACCEPTED, false, false},
        {TRANSACTIONSTOREPOINT_ACCEPTED, true, true},
        {TRANSACTIONSTOREPOINT_NEVER, true, false},
    };
    int seqNo = 0;
    for (const auto& row : rows) {
        OcppProtocol_SetOfflineTransactionStorePoint(row.point);
        CConnectManager::GetInstance()->SetAcceptedByCsms(row.accepted ? 1 : 0);
        const size_t before = cache->Count();
        SendEvent(seqNo++);
        EXPECT_EQ(cache->Count() - before, row.kept ? 1u : 0u) << "store point " << row.point << " accepted "
                                                              << row.accepted;
    }
    EXPECT_TRUE(log.Contains("This TransactionEventis not allowed to store=>"));
    EXPECT_TRUE(cache->IsTransactionMessageExist("tx-1"));
    EXPECT_FALSE(cache->IsTransactionMessageExist("tx-2"));
    CConnectManager::GetInstance()->SetAcceptedByCsms(0);

    // A security event raised while disconnected, or while the boot waits for acceptance, is kept.
    const size_t before = cache->Count();
    EXPECT_EQ(OcppProtocol_SecurityEventNotification(SECURITYEVENTTYPE_STARTUPOFTHEDEVICE), 1);
    g_eSdkStatus = SDKSTATUS_CONNECTED;
    COutboundSender::SetAwaitingAcceptance(true);
    EXPECT_EQ(OcppProtocol_SecurityEventNotification(SECURITYEVENTTYPE_RESETORREBOOT), 1);
    EXPECT_EQ(cache->Count() - before, 2u);
    EXPECT_EQ(COutboundSender::Send(OUTBOUNDKIND_REQUEST, "[2,\"a1\",\"DataTransfer\",{\"vendorId\":\"v\"}]").result, 0);
    EXPECT_EQ(link.Count(), 0u) << "nothing unasked reaches the CSMS before it accepted the boot";
}

TEST_F(OfflineQueue, LinkLostDuringTheReplayKeepsTheUnsentRowsAndTheNextReplaySendsThemInOrderAndStartsTheTableAgain) {
    for (int i = 1; i <= 14; ++i) ASSERT_EQ(cache->AddSecurityEventNotificationMessage(Security(i)), 1);
    int answered = 0;
    link.Answer([&](const std::string& id) {
        if (++answered == 3) link.SetSendResult(0);
        return "[3,\"" + id + "\",{}]";
    });
    Replay();
    EXPECT_EQ(OcppProtocol_GetStatus(), SDKSTATUS_OK);
    EXPECT_EQ(cache->Count(), 11u) << "the third was answered; the fourth never left";
    ASSERT_EQ(cache->AddSecurityEventNotificationMessage(Security(15)), 1);
    EXPECT_EQ(cache->ReadRows(20).back().id, 15) << "the table is not emptied";
    EXPECT_EQ(cache->ReadRows(1).at(0).frame, Security(4)) << "at least once: the unanswered frame stays";

    // Twelve rows: more than one read of ten.
    link.SetSendResult(1);
    link.Clear();
    Replay();
    EXPECT_EQ(OcppProtocol_GetStatus(), SDKSTATUS_OK);
    const std::vector<std::string> sent = link.Sent();
    ASSERT_EQ(sent.size(), 12u);
    for (int i = 4; i <= 15; ++i) EXPECT_EQ(IdOf(sent[i - 4]), "se-" + std::to_string(i)) << "replay order";
    EXPECT_EQ(cache->Count(), 0u);
    ASSERT_EQ(cache->AddSecurityEventNotificationMessage(Security(16)), 1);
    EXPECT_EQ(cache->ReadRows(1).at(0).id, 1) << "a complete replay resets the row counter";
}

TEST_F(OfflineQueue, EventQueuedOnlineIsJournaledUntilAnsweredAndALostLinkIsNotAnAttempt) {
    g_eSdkStatus = SDKSTATUS_OK;
    link.SetSendResult(0);
    EXPECT_EQ(SendEvent(1).result, 1);
    ASSERT_TRUE(WaitFor([&] { return CTransactionMsgQueue::GetInstance()->Size() == 0; }));
    const size_t tried = link.Count();
    CTools::AdvanceClockMs(600000);
    CTools::SleepMs(300);
    EXPECT_LE(link.Count(), 1u);
    EXPECT_EQ(link.Count(), tried) << "a link that is down burns no attempt";
    EXPECT_EQ(cache->Count(), 1u) << "the event waits in the journal for the next replay";

    link.SetSendResult(1);
    link.Clear();
    Replay();
    EXPECT_EQ(link.CountContaining("\"seqNo\":1"), 1u);
    EXPECT_EQ(cache->Count(), 0u);

    SendEvent(2);
    ASSERT_TRUE(WaitFor([&] { return cache->Count() == 0 && link.Count() == 2; }));
}

TEST_F(OfflineQueue, StartMarkerWaitsForTheFramesQueuedBeforeIt) {
    g_eSdkStatus = SDKSTATUS_OK;
    std::vector<bool> notifiedWhenAnswering;
    link.Answer([&](const std::string& id) {
        notifiedWhenAnswering.push_back(log.Contains("notify start transaction<tx-2>"));
        return "[3,\"" + id + "\",{}]";
    });
    SendEvent(1);
    SendEvent(2);
    CTransactionMsgQueue::GetInstance()->PushStartMarker("tx-2");
    ASSERT_TRUE(WaitFor([&] { return log.Contains("20:MsgSendTimerProc notify start transaction<tx-2>"); }));
    EXPECT_EQ(notifiedWhenAnswering, std::vector<bool>({false, false}));
    EXPECT_EQ(cache->Count(), 0u);
}

TEST_F(OfflineQueue, SilentCsmsSeesTheEventMessageAttemptsTimesUnderNewIdsWithGrowingPauses) {
    SetAttempts("3", "10");
    g_eSdkStatus = SDKSTATUS_OK;
    link.Answer(nullptr);
    SendEvent(7);
    ASSERT_TRUE(WaitFor([&] { return link.Count() == 1; }));
    CTools::SleepMs(300);
    EXPECT_EQ(link.Count(), 1u);
    CTools::AdvanceClockMs(10000);
    ASSERT_TRUE(WaitFor([&] { return link.Count() == 2; }));
    // The pause is measured from after the failed send: let it begin before moving the clock.
    ASSERT_TRUE(WaitFor([&] { return log.Count("20:MsgSendTimerProc going attempts<tx-1>") == 2; }));
    CTools::SleepMs(300);
    CTools::AdvanceClockMs(10000);
    CTools::SleepMs(300);
    EXPECT_EQ(link.Count(), 2u) << "the second pause is twice the interval";
    CTools::AdvanceClockMs(10000);
    ASSERT_TRUE(WaitFor([&] { return link.Count() == 3; }));
    ASSERT_TRUE(WaitFor([&] { return cache->Count() == 0; })) << "given up after MessageAttempts";

    const std::vector<std::string> sent = link.Sent();
    EXPECT_NE(IdOf(sent[0]), IdOf(sent[1]));
    EXPECT_NE(IdOf(sent[1]), IdOf(sent[2]));
    EXPECT_EQ(sent[1].find('\n'), std::string::npos) << "a retry is written compact";
    EXPECT_TRUE(log.Contains("gave up<tx-1> seqNo:7"));
    EXPECT_EQ(log.Count("20:MsgSendTimerProc going attempts<tx-1>"), 3u);

    // A CALLERROR on a live link counts as a failed attempt; MessageAttempts 0 still sends once.
    SetAttempts("0", "10");
    link.Clear();
    link.Answer([](const std::string& id) { return "[4,\"" + id + "\",\"InternalError\",\"\",{}]"; });
    SendEvent(8);
    ASSERT_TRUE(WaitFor([&] { return cache->Count() == 0 && link.Count() == 1; }));
    CTools::AdvanceClockMs(60000);
    CTools::SleepMs(300);
    EXPECT_EQ(link.Count(), 1u);
}

TEST_F(OfflineQueue, SynchronousModeSendsAtOnceAndNeverTouchesTheQueue) {
    OcppProtocol_SetSdkVersion(1);
    g_eSdkStatus = SDKSTATUS_OK;
    const OutboundResult out = SendEvent(1);
    ASSERT_NE(out.answer, nullptr) << "the producer waits for the CSMS itself";
    EXPECT_EQ(link.Count(), 1u);
    EXPECT_EQ(CTransactionMsgQueue::GetInstance()->Size(), 0u);
    EXPECT_EQ(cache->Count(), 0u);
    CTransactionMsgQueue::GetInstance()->PushStartMarker("tx-1");
    CTransactionMessageManager::GetInstance()->Wake();
    CTools::SleepMs(200);
    EXPECT_EQ(CTransactionMsgQueue::GetInstance()->Size(), 1u) << "nothing is taken from the queue";
    CTransactionMsgQueue::GetInstance()->Flush();
}

TEST_F(OfflineQueue, RefusedTokenIsReportedOnceForAnOfflineTransactionAndByTheQueueOnline) {
    CTransactionManager* tx = CTransactionManager::GetInstance();
    ASSERT_EQ(tx->SetStoreFile(dir.file("transactioncache.bin")), 1);
    const auto start = [tx](std::string* id) {
        int errorCode = 0;
        return tx->TransactionStart(1, 1, "", 255, TRANSACTIONREASON_CABLEPLUGGEDIN,
                                    TRANSACTIONCHARGINGSTATE_EVCONNECTED, 0, 0, nullptr, CTransactionManager::Meter(),
                                    id, &errorCode);
    };
    const auto refuse = [](const std::string& id) {
        return "[3,\"" + id + "\",{\"idTokenInfo\":{\"status\":\"Invalid\"}}]";
    };
    g_eSdkStatus = SDKSTATUS_DISCONNECTED;
    std::string offlineTx;
    ASSERT_EQ(start(&offlineTx), 0);
    tx->TransactionUpdate(offlineTx, TRANSACTIONREASON_CHARGINGSTATECHANGED, TRANSACTIONCHARGINGSTATE_CHARGING,
                          CTransactionManager::Meter(), 0);
    ASSERT_GE(cache->Count(), 2u) << "Started and Updated kept while offline";
    link.Answer(refuse);
    Replay();
    ASSERT_TRUE(host.WaitForType(SERVERRECVTYPE_TRANSACTIONNOTACCEPTED));
    CTools::SleepMs(100);
    ASSERT_EQ(host.Count(SERVERRECVTYPE_TRANSACTIONNOTACCEPTED), 1u) << "one record for the whole transaction";
    EXPECT_TRUE(log.Contains("Notify offline transaction not accepted<" + offlineTx + ">"));
    // Accepted before the end is raised, so the queue cannot meet the refusal with it.
    link.Answer([](const std::string& id) { return "[3,\"" + id + "\",{}]"; });
    tx->TransactionEnd(offlineTx, TRANSACTIONREASON_STOPAUTHORIZED, TRANSACTIONCHARGINGSTATE_IDLE,
                       TRANSACTIONSTOPREASON_LOCAL, CTransactionManager::Meter());

    // Online, the queue's sender hands the answer to the transaction manager.
    ASSERT_TRUE(WaitFor([&] { return cache->Count() == 0; }));
    link.Answer(refuse);
    std::string onlineTx;
    ASSERT_EQ(start(&onlineTx), 0);
    const auto refused = host.RecordOf<TransactionNotAccepted>(SERVERRECVTYPE_TRANSACTIONNOTACCEPTED, 2);
    EXPECT_STREQ(refused.transactionId, onlineTx.c_str());
}
