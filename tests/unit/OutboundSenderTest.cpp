#include <gtest/gtest.h>

#include <condition_variable>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "OcppProtocol/OcppProtocol.h"
#include "OcppProtocol/OutboundSender.h"
#include "RecordingHost.h"
#include "RecordingLink.h"
#include "TestSupport.h"

using namespace ocpptest;

namespace {

std::mutex g_keptMutex;
std::vector<std::string> g_kept;  // "where:kind:frame"

int Keep(const char* where, const OutboundMessage& message, int result) {
    std::lock_guard<std::mutex> lock(g_keptMutex);
    g_kept.push_back(std::string(where) + ":" + COutboundSender::KindName(message.kind) + ":" +
                     std::string(message.frame, static_cast<size_t>(message.len)));
    return result;
}
int KeepOffline(const OutboundMessage& message) { return Keep("offline", message, 7); }
int KeepQueued(const OutboundMessage& message) { return Keep("queue", message, 8); }

std::vector<std::string> Kept() {
    std::lock_guard<std::mutex> lock(g_keptMutex);
    return g_kept;
}

class Outbound : public ::testing::Test {
protected:
    void SetUp() override {
        ResetSdkState();
        OcppProtocol_InitOcppProtocol(OCPPPROTOCOL_201);
        std::lock_guard<std::mutex> lock(g_keptMutex);
        g_kept.clear();
    }
    void TearDown() override { ResetSdkState(); }
    RecordingLink link;
};

const std::string kFrame = "[2,\"out-1\",\"Heartbeat\",\n{}]";

}  // namespace

TEST_F(Outbound, EachKindIsSentQueuedKeptOfflineOrHeldByTheStationStatus) {
    link.Answer([](const std::string& id) { return "[3,\"" + id + "\",{}]"; });
    COutboundSender::SetOfflineStore(&KeepOffline);
    COutboundSender::SetTransactionQueue(&KeepQueued);
    const SDKSTATUS statuses[] = {SDKSTATUS_DISCONNECTED, SDKSTATUS_CONNECTED, SDKSTATUS_SUBMITTING, SDKSTATUS_OK,
                                  SDKSTATUS_NONE};
    // One letter per status above: s sent and answered, a one-way answer,
    // q ordered queue, o offline store, h held back (not sent, 0).
    const struct {
        OUTBOUNDKIND kind;
        const char* expected;
    } rows[] = {
        {OUTBOUNDKIND_ANSWER, "aaaaa"},
        {OUTBOUNDKIND_REQUEST, "sssss"},
        {OUTBOUNDKIND_BOOTHEARTBEAT, "sssss"},
        {OUTBOUNDKIND_STATUSNOTIFICATION, "hssss"},
        {OUTBOUNDKIND_SECURITYEVENT, "ossss"},
        {OUTBOUNDKIND_TRANSACTIONEVENT, "oooqo"},
        {OUTBOUNDKIND_MONITOREVENT, "ossss"},
        {OUTBOUNDKIND_EVCHARGINGNEEDS, "ossss"},
        {OUTBOUNDKIND_EVCHARGINGSCHEDULE, "ossss"},
        {OUTBOUNDKIND_FIRMWARESTATUS, "ossss"},
    };
    for (const auto& row : rows) {
        std::string got;
        for (SDKSTATUS status : statuses) {
            g_eSdkStatus = status;
            link.Clear();
            const size_t keptBefore = Kept().size();
            const OutboundResult out = COutboundSender::Send(row.kind, kFrame);
            if (Kept().size() > keptBefore) {
                const bool queued = Kept().back().rfind("queue:", 0) == 0;
                got += link.Count() != 0 || out.result != (queued ? 8 : 7) ? '?' : queued ? 'q' : 'o';
            } else if (link.Count() == 1) {
                got += out.result != 1 ? '?' : out.answer != nullptr ? 's' : 'a';
            } else {
                got += out.result == 0 ? 'h' : '?';
            }
        }
        EXPECT_EQ(got, row.expected) << "messages of kind " << COutboundSender::KindName(row.kind)
                                     << " take the wrong way out for some station status";
    }

    // Until a queue exists the producer waits for the CSMS itself (the synchronous mode: the offline queue test).
    g_eSdkStatus = SDKSTATUS_OK;
    COutboundSender::SetTransactionQueue(nullptr);
    EXPECT_NE(COutboundSender::Send(OUTBOUNDKIND_TRANSACTIONEVENT, kFrame).answer, nullptr);
}

TEST_F(Outbound, SecurityEventWhileDisconnectedGoesToTheOfflineStoreAndCountsAsKept) {
    LogCapture log;
    g_eSdkStatus = SDKSTATUS_DISCONNECTED;
    // Without a store it is logged and the host is still told it was kept.
    EXPECT_EQ(OcppProtocol_SecurityEventNotification(SECURITYEVENTTYPE_TAMPERDETECTIONACTIVATED), 1);
    EXPECT_TRUE(log.Contains("no offline store: SecurityEventNotification not kept"));

    COutboundSender::SetOfflineStore(&KeepOffline);
    EXPECT_EQ(OcppProtocol_SecurityEventNotification(SECURITYEVENTTYPE_TAMPERDETECTIONACTIVATED), 7);
    EXPECT_EQ(link.Count(), 0u);
    const std::vector<std::string> kept = Kept();
    ASSERT_EQ(kept.size(), 1u);
    EXPECT_EQ(kept[0].rfind("offline:SecurityEventNotification:[2,", 0), 0u) << kept[0];
    EXPECT_NE(kept[0].find("\"SecurityEventNotification\",\n"), std::string::npos);
    EXPECT_NE(kept[0].find("\"TamperDetectionActivated\""), std::string::npos);
}

TEST_F(Outbound, TwoThreadsWaitingAtOnceEachReadTheirOwnAnswer) {
    g_eSdkStatus = SDKSTATUS_OK;
    std::mutex mutex;
    std::condition_variable cv;
    int inFlight = 0;
    int answered = 0;
    // Both requests are in flight before either is answered.
    link.Answer([&](const std::string& id) {
        std::unique_lock<std::mutex> lock(mutex);
        ++inFlight;
        cv.notify_all();
        cv.wait_for(lock, std::chrono::seconds(5), [&] { return inFlight == 2; });
        return "[3,\"" + id + "\",{\"from\":\"" + id + "\"}]";
    });
    std::string seen[2];
    auto run = [&](int i) {
        const std::string frame = "[2,\"thread-" + std::to_string(i) + "\",\"Heartbeat\",\n{}]";
        const OutboundResult out = COutboundSender::Send(OUTBOUNDKIND_REQUEST, frame);
        std::unique_lock<std::mutex> lock(mutex);
        ++answered;
        cv.notify_all();
        // Read only after the other thread has its answer too.
        cv.wait_for(lock, std::chrono::seconds(5), [&] { return answered == 2; });
        seen[i] = out.answer != nullptr ? out.answer : "";
    };
    std::thread a(run, 0), b(run, 1);
    a.join();
    b.join();
    EXPECT_EQ(seen[0], "[3,\"thread-0\",{\"from\":\"thread-0\"}]");
    EXPECT_EQ(seen[1], "[3,\"thread-1\",{\"from\":\"thread-1\"}]");
    size_t idleCapacity = 1;
    std::thread([&] { idleCapacity = COutboundSender::AnswerCapacity(); }).join();
    EXPECT_EQ(idleCapacity, 0u) << "a thread that never asked holds no answer buffer";
}
