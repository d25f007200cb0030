#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <cstring>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "OcppProtocol/MessageCallBack.h"
#include "OcppProtocol/OcppProtocol.h"
#include "RecordingHost.h"
#include "TestSupport.h"
#include "Util/Tools.h"

using namespace ocpptest;

namespace {

// Frames and records in the one order the notification thread handled them.
std::mutex g_seqMutex;
std::vector<std::string> g_sequence;

void SeenFrame(const char* frame, uint32_t len) {
    std::lock_guard<std::mutex> lock(g_seqMutex);
    g_sequence.push_back("frame " + std::string(frame, len));
}

std::vector<std::string> Sequence() {
    std::lock_guard<std::mutex> lock(g_seqMutex);
    return g_sequence;
}

// An ordinary record with a type code and a one-letter tag after the header.
std::string Record(int32_t type, char tag = 0) {
    std::string r(42, '\0');
    memcpy(&r[0], &type, sizeof type);
    r[41] = tag;
    return r;
}

void Post(const std::string& record, int priority = 0) {
    CMessageCallBack::GetInstance()->OnMessage(record.data(), static_cast<unsigned>(record.size()), priority);
}

void PostFrame(const std::string& frame) {
    CMessageCallBack::GetInstance()->OnWebSocketMessage(frame.data(), static_cast<unsigned>(frame.size()));
}

class Queue : public ::testing::Test {
protected:
    void SetUp() override {
        ResetSdkState();
        std::lock_guard<std::mutex> lock(g_seqMutex);
        g_sequence.clear();
    }
    void TearDown() override { ResetSdkState(); }

    // Holds the notification thread inside the host callback.
    void BlockWorker(RecordingHost& host) {
        host.BlockNext();
        Post(Record(100));
        ASSERT_TRUE(host.WaitBlocked());
    }
};

}  // namespace

TEST_F(Queue, StatusRecordOvertakesEverythingQueuedFramesArrivingWhileBusyGoNewestFirstAndRecordsKeepTheirOrder) {
    RecordingHost host;
    host.OnRecord([](const char* r, uint32_t len) {
        if (len > 41 && r[41] != 0) {
            std::lock_guard<std::mutex> lock(g_seqMutex);
            g_sequence.push_back(std::string("record ") + r[41]);
        }
    });
    CMessageCallBack::SetFrameObserver(&SeenFrame);
    OcppProtocol_InitOcppProtocol(OCPPPROTOCOL_201);
    BlockWorker(host);
    // Answered from the station's stores alone, yet it waits for the callback in hand like any frame.
    const std::string get = R"([2,"g1","GetVariables",{"getVariableData":[{"component":{"name":"OCPPCommCtrlr"},)"
                            R"("variable":{"name":"HeartbeatInterval"}}]}])";
    PostFrame(get);
    Post(Record(101, '1'));
    PostFrame("B");
    Post(Record(101, '2'));
    PostFrame("C");
    Post(Record(0, 's'), 1);
    host.Unblock();
    ASSERT_TRUE(WaitFor([] { return Sequence().size() == 6; }));
    EXPECT_EQ(Sequence(),
              (std::vector<std::string>{"record s", "frame C", "frame B", "frame " + get, "record 1", "record 2"}))
        << "the status record comes right after the one in hand";
}

TEST_F(Queue, RecordsAboveTenPackagesAreRefusedWithLog) {
    RecordingHost host;
    LogCapture log;
    std::string big = Record(101);
    big.resize(655350, 'x');
    Post(big);
    ASSERT_TRUE(host.WaitForCount(1));
    EXPECT_EQ(host.Records()[0].bytes, big);

    big.push_back('x');
    Post(big);
    Post(Record(102));
    ASSERT_TRUE(host.WaitForType(102));
    EXPECT_EQ(host.Count(101), 1u);
    EXPECT_TRUE(log.Contains("CMessageCallBack::OnMessage MessageLen over 10*MAX_PACKAGE_LEN", OCPP_LOG_ERROR));
}

TEST_F(Queue, RecordPostedToIdleQueueReachesHostAtOnce) {
    RecordingHost host;
    Post(Record(101));
    ASSERT_TRUE(host.WaitForCount(1));
    for (size_t i = 2; i <= 6; ++i) {
        std::this_thread::sleep_for(std::chrono::milliseconds(30));  // let the worker go idle
        const auto start = std::chrono::steady_clock::now();
        Post(Record(101));
        ASSERT_TRUE(host.WaitForCount(i));
        const auto waited = std::chrono::steady_clock::now() - start;
        EXPECT_LT(waited, std::chrono::milliseconds(50)) << "the worker must wake on a new item, not poll";
    }
}

TEST_F(Queue, NothingQueuedBeforeResetReachesHost) {
    RecordingHost host;
    BlockWorker(host);
    for (int i = 0; i < 5; ++i) Post(Record(101));
    PostFrame("frame");
    CMessageCallBack* queue = CMessageCallBack::GetInstance();
    std::thread reset([] { OcppProtocol_ResetSystem(); });
    // The reset empties the lists, then waits for the record in hand.
    ASSERT_TRUE(WaitFor([queue] { return queue->Pending() == 0; }));
    host.Unblock();
    reset.join();
    Post(Record(102));
    ASSERT_TRUE(host.WaitForType(102));
    EXPECT_EQ(host.Types(), (std::vector<int32_t>{100, 102}));
}

TEST_F(Queue, HostMayCallBackIntoTheLibraryFromItsCallback) {
    RecordingHost host;
    static std::atomic<bool> released;
    released = false;
    host.OnRecord([](const char* r, uint32_t len) {
        int32_t type;
        memcpy(&type, r, sizeof type);
        if (len >= 4 && type == 101) Post(Record(102));
        if (len >= 4 && type == 103) {
            OcppProtocol_Release();  // a host shutting down from the callback
            released = true;
        }
    });
    Post(Record(101));
    ASSERT_TRUE(host.WaitForType(102));
    Post(Record(103));
    ASSERT_TRUE(WaitFor([] { return released.load(); })) << "release from the callback must not hang";
    // The library comes back with the next record.
    Post(Record(104));
    ASSERT_TRUE(host.WaitForType(104));
}

TEST_F(Queue, RecordsWithoutHostAndFramesWithoutProtocolAreDroppedAndFreed) {
    OcppProtocol_Init(0, nullptr);
    CMessageCallBack::SetFrameObserver(&SeenFrame);
    for (int i = 0; i < 100; ++i) Post(Record(101));
    ASSERT_TRUE(WaitFor([] { return CMessageCallBack::GetInstance()->Pending() == 0; }));
    PostFrame("[2,\"1\",\"Reset\",{}]");  // no protocol yet; handled only after the last record
    ASSERT_TRUE(WaitFor([] { return Sequence().size() == 1; }));
    RecordingHost host;
    Post(Record(102));
    ASSERT_TRUE(host.WaitForType(102));
    EXPECT_EQ(host.Count(101), 0u) << "records posted with no host must not reach a later one";
}
