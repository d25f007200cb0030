// A CSMS that sends what no well-behaved one would: the station answers what it
// can, once, and its memory and log stay where they were.
#include <gtest/gtest.h>

#include <atomic>
#include <fstream>
#include <string>

#include "OcppProtocol/InboundFrame.h"
#include "TestSupport.h"
#include "Util/Tools.h"
#include "WebSocket/WebSocketClient.h"
#include "WsTestPeers.h"

using namespace ocpptest;

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__) || defined(__arm__)
constexpr bool kMemoryFiguresMeaningful = false;
#else
constexpr bool kMemoryFiguresMeaningful = true;
#endif

namespace {

// Counts frames and lets them go at once, so the test holds no copy of its own.
class CountingEvents : public CWebSocketClientCallBack {
public:
    void OnConnectSuccess() override {}
    void OnConnectError() override {}
    void OnMessage(std::unique_ptr<CInboundFrame> frame) override {
        if (frame && frame->Parsed()) ++parsed;
        ++frames;
    }
    std::atomic<int> frames{0};
    std::atomic<int> parsed{0};
};

long StatusKb(const char* field) {
    std::ifstream in("/proc/self/status");
    std::string line;
    const std::string key = std::string(field) + ":";
    while (std::getline(in, line))
        if (line.compare(0, key.size(), key) == 0) return std::stol(line.substr(key.size()));
    return -1;
}

class HostileCsms : public ::testing::Test {
protected:
    void TearDown() override { OcppProtocol_SetMaxFrameBytes(CInboundFrame::kDefaultReceiveBytes); }
    bool Connect() {
        client.SetNamePwd("CP001", "secret");
        const std::string url = "ocpp2.0.1://127.0.0.1:" + std::to_string(csms.Port()) + "/ocpp/CP001";
        return csms.Started() && client.Init(url.c_str(), &events, 2) &&
               WaitFor([&] { return client.IsWebSocketConnected() == 1; }, 5000) && csms.WaitSession();
    }
    ClockGuard clock;
    RecordingCsms csms;
    CountingEvents events;
    CWebSocketClient client;
};

}  // namespace

TEST_F(HostileCsms, FrameOverTheCapIsRefusedByIdAndALargeFrameLeavesNoMemoryBehind) {
    ASSERT_TRUE(Connect());
    OcppProtocol_SetMaxFrameBytes(64 * 1024);
    ASSERT_TRUE(csms.Send("[2,\"big\\\"1\",\"DataTransfer\",{\"data\":\"" + std::string(100000, 'x') + "\"}]"));
    ASSERT_TRUE(csms.WaitMessageContaining("FormatViolation"));
    EXPECT_EQ(csms.Messages().back(), "[4,\"big\\\"1\",\"FormatViolation\",\"\",{}]");
    EXPECT_EQ(events.frames, 0) << "an oversize frame must never reach the protocol engine";

    // A 1 MiB array payload: memory proportional to the text, and given back afterwards.
    // A sanitizer's allocator keeps freed blocks, and an emulator's own memory counts as
    // ours: the figures mean something only in a plain native build.
    if (!kMemoryFiguresMeaningful) return;
    OcppProtocol_SetMaxFrameBytes(2 * 1024 * 1024);
    std::string payload = "[2,\"mem\",\"DataTransfer\",[0";
    while (payload.size() < 1024 * 1024) payload += ",0";
    payload += "]]";
    {
        std::ofstream reset("/proc/self/clear_refs");
        reset << "5";
    }
    const long before = StatusKb("VmRSS");
    // Heap pages only: code paged in on first use is not memory the frame kept.
    const long anonBefore = StatusKb("RssAnon");
    ASSERT_TRUE(csms.Send(payload));
    ASSERT_TRUE(WaitFor([&] { return events.frames == 1; }, 10000));
    EXPECT_EQ(events.parsed, 1);
    const long peakGrowth = StatusKb("VmHWM") - before;
    ASSERT_TRUE(WaitFor([&] { return StatusKb("RssAnon") - anonBefore <= 2048; }, 3000))
        << "resident memory stays " << StatusKb("RssAnon") - anonBefore << " KiB above where it started";
    EXPECT_LE(peakGrowth, 20 * 1024) << "peak growth " << peakGrowth << " KiB for a 1 MiB frame";
    RecordProperty("PeakGrowthKiB", static_cast<int>(peakGrowth));
    RecordProperty("ResidentGrowthKiB", static_cast<int>(StatusKb("RssAnon") - anonBefore));
}

TEST_F(HostileCsms, OverLongMessageIdsAreRefusedOnceAndLeaveNothingForTheSweeper) {
    ASSERT_TRUE(Connect());
    CTools::FreezeClock(true);
    LogCapture log;
    const std::string longPrefix(37, 'L');
    for (int i = 0; i < 200; ++i)
        ASSERT_TRUE(csms.Send("[2,\"" + longPrefix + std::to_string(i) + "\",\"Heartbeat\",{}]"));
    const std::string kept(36, 'K');
    ASSERT_TRUE(csms.Send("[2,\"" + kept + "\",\"Heartbeat\",{}]"));
    ASSERT_TRUE(WaitFor([&] { return events.frames == 1; }, 5000));
    ASSERT_TRUE(WaitFor([&] { return csms.CountContaining("FormatViolation") == 200; }, 5000));
    EXPECT_EQ(events.frames, 1) << "only the 36-character id reaches the protocol engine";
    EXPECT_EQ(client.WaitingCount(), 1u);
    EXPECT_EQ(csms.Messages().back().rfind("[4,\"" + longPrefix, 0), 0u) << "the id goes back as sent";

    for (int sweep = 0; sweep < 5; ++sweep) {
        CTools::AdvanceClockMs(3000);
        client.SweepTimeouts();
    }
    ASSERT_TRUE(csms.WaitMessageContaining("Request Timeout"));
    EXPECT_EQ(csms.CountContaining("FormatViolation"), 200u);
    EXPECT_EQ(csms.CountContaining("Request Timeout"), 1u);
    EXPECT_EQ(csms.Messages().back().rfind("[4,\"" + kept + "\",", 0), 0u);
    EXPECT_EQ(log.Count("answer for unknown or expired CSMS request"), 0u);
    EXPECT_EQ(client.WaitingCount(), 0u);
}
