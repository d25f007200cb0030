// Station modules exchanging packets over a real session bus (run under dbus-run-session).
#include <gtest/gtest.h>

#include <LibDbus.h>
#include <dbus/dbus.h>

#include <atomic>
#include <chrono>
#include <cstdlib>
#include <map>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "Dbus/DbusTools.h"
#include "Dbus/Package.h"
#include "TestSupport.h"

using namespace ocpptest;

namespace {

typedef std::vector<uint8_t> Bytes;

struct Received {
    uint16_t command;
    Bytes payload;
};

std::mutex g_modulesMutex;
std::map<void*, class Module*> g_modules;

// One module on the bus, recording what reaches it and answering as told.
class Module {
public:
    explicit Module(const char* name) : m_handle(LibDbus_Init(name, 5, &Module::OnPacket)) {
        std::lock_guard<std::mutex> lock(g_modulesMutex);
        if (m_handle != nullptr) g_modules[m_handle] = this;
    }
    ~Module() {
        LibDbus_UnInit(m_handle);
        std::lock_guard<std::mutex> lock(g_modulesMutex);
        g_modules.erase(m_handle);
    }
    void* handle() const { return m_handle; }
    void Echo() {
        std::lock_guard<std::mutex> lock(m_mutex);
        m_echo = true;
    }
    std::vector<Received> Got() {
        std::lock_guard<std::mutex> lock(m_mutex);
        return m_got;
    }
    size_t Count() { return Got().size(); }

private:
    static void OnPacket(void* handle, void* message, uint16_t command, const uint8_t* data, uint32_t length) {
        Module* self;
        {
            std::lock_guard<std::mutex> lock(g_modulesMutex);
            if (g_modules.count(handle) == 0) return;
            self = g_modules[handle];
        }
        std::lock_guard<std::mutex> lock(self->m_mutex);
        self->m_got.push_back({command, Bytes(data, data + length)});
        if (self->m_echo) LibDbus_Reply(handle, message, static_cast<uint16_t>(command + 1), data, length);
    }

    void* m_handle;
    std::mutex m_mutex;
    std::vector<Received> m_got;
    bool m_echo = false;
};

Bytes Text(const std::string& s) { return Bytes(s.begin(), s.end()); }

int SendSync(const char* target, uint16_t command, const Bytes& data, Bytes& answer, uint32_t capacity,
             int timeoutSec) {
    answer.assign(capacity, 0xEE);
    uint32_t length = capacity;
    const int rc = LibDbus_SendSyncWithTimeout(target, command, data.data(), static_cast<uint32_t>(data.size()),
                                               answer.data(), &length, timeoutSec);
    if (rc == 1) answer.resize(length);
    return rc;
}

int64_t ElapsedMs(std::chrono::steady_clock::time_point since) {
    return std::chrono::duration_cast<std::chrono::milliseconds>(std::chrono::steady_clock::now() - since).count();
}

class BusModules : public ::testing::Test {
protected:
    void SetUp() override {
        ASSERT_NE(getenv("DBUS_SESSION_BUS_ADDRESS"), nullptr) << "run this binary under dbus-run-session";
    }
};

}  // namespace

TEST_F(BusModules, AsyncPacketsArriveInOrderWithCommandAndPayload) {
    Module a("meter_a");
    Module b("charger_b");
    ASSERT_NE(a.handle(), nullptr);
    ASSERT_NE(b.handle(), nullptr);

    Bytes big(60000);
    for (size_t i = 0; i < big.size(); ++i) big[i] = static_cast<uint8_t>(i * 7);
    std::vector<Received> sent;
    for (uint16_t i = 0; i < 20; ++i) sent.push_back({static_cast<uint16_t>(0x0100 + i), Text(std::to_string(i))});
    sent.push_back({0x0200, Bytes()});
    sent.push_back({0x0201, big});
    sent.push_back({0xFFFF, Text("last")});
    for (const Received& r : sent)
        ASSERT_EQ(LibDbus_Send(a.handle(), "charger_b", r.command, r.payload.data(),
                               static_cast<uint32_t>(r.payload.size())),
                  1);

    ASSERT_TRUE(WaitFor([&] { return b.Count() >= sent.size(); }, 5000)) << "got " << b.Count();
    const std::vector<Received> got = b.Got();
    ASSERT_EQ(got.size(), sent.size());
    for (size_t i = 0; i < sent.size(); ++i) {
        EXPECT_EQ(got[i].command, sent[i].command) << i;
        EXPECT_EQ(got[i].payload, sent[i].payload) << i;
    }
    EXPECT_EQ(a.Count(), 0u);
}

TEST_F(BusModules, SyncRequestsEachGetTheirOwnAnswer) {
    Module b("echo_b");
    ASSERT_NE(b.handle(), nullptr);
    b.Echo();

    Bytes answer;
    ASSERT_EQ(SendSync("echo_b", 41, Text("status?"), answer, 64, 2), 1);
    EXPECT_EQ(answer, Text("status?"));

    ASSERT_EQ(SendSync("echo_b", 41, Bytes(), answer, 64, 2), 1) << "an empty answer is still an answer";
    EXPECT_TRUE(answer.empty());

    // Requests in flight at the same time must not pick up each other's answers.
    std::atomic<int> wrong{0};
    std::vector<std::thread> senders;
    for (int t = 0; t < 4; ++t) {
        senders.emplace_back([t, &wrong] {
            for (int i = 0; i < 5; ++i) {
                const Bytes request = Text("req-" + std::to_string(t) + "-" + std::to_string(i));
                Bytes got;
                if (SendSync("echo_b", 1, request, got, 64, 2) != 1 || got != request) ++wrong;
            }
        });
    }
    for (auto& s : senders) s.join();
    EXPECT_EQ(wrong.load(), 0);

    // The plain form (ten-second time-out) answers as soon as the module does.
    uint8_t buffer[16];
    uint32_t length = sizeof buffer;
    const Bytes ping = Text("ping");
    const auto start = std::chrono::steady_clock::now();
    ASSERT_EQ(LibDbus_SendSync("echo_b", 5, ping.data(), 4, buffer, &length), 1);
    EXPECT_LT(ElapsedMs(start), 1000);
    EXPECT_EQ(Bytes(buffer, buffer + length), ping);

    EXPECT_EQ(SendSync("echo_b", 8, Bytes(100, 0x42), answer, 99, 2), 0);
    EXPECT_EQ(answer, Bytes(99, 0xEE)) << "nothing may be written into a buffer that is too small";
    ASSERT_EQ(SendSync("echo_b", 8, Bytes(100, 0x42), answer, 100, 2), 1);
    EXPECT_EQ(answer, Bytes(100, 0x42));
}

TEST_F(BusModules, UnansweredSyncRequestGivesUpWithinTwiceTheTimeoutOrWhenItsConnectionIsReleased) {
    Module silent("silent_b");
    ASSERT_NE(silent.handle(), nullptr);

    Bytes answer;
    auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(SendSync("silent_b", 3, Text("anyone?"), answer, 64, 1), 0);
    const int64_t waited = ElapsedMs(start);
    EXPECT_GE(waited, 900);
    EXPECT_LE(waited, 2500);
    EXPECT_EQ(silent.Count(), 1u) << "the request itself must have been delivered";

    // A module that is not on the bus at all: the bus says so and the sender stops waiting.
    start = std::chrono::steady_clock::now();
    EXPECT_EQ(SendSync("nobody_here", 3, Text("anyone?"), answer, 64, 1), 0);
    EXPECT_LT(ElapsedMs(start), 900);

    CDbusTools tools(10);
    ASSERT_EQ(tools.InitConn("release_waiter", nullptr, nullptr), 1);
    std::atomic<int> result{-1};
    std::thread sender([&] {
        Bytes none;
        const uint8_t byte = 0;
        result = tools.SendDataSync("silent_b", &byte, 1, none);
    });
    ASSERT_TRUE(WaitFor([&] { return tools.WaitingCount() == 1; }, 2000));
    start = std::chrono::steady_clock::now();
    tools.Release();
    sender.join();
    EXPECT_EQ(result.load(), 0);
    EXPECT_LT(ElapsedMs(start), 1000) << "a waiting sender must not hold up Release for its whole time-out";
}

TEST_F(BusModules, BadModuleNamesAreRefusedWithoutCrashing) {
    for (const char* bad : {"bad-name", "1starts_with_digit", "", "dots.inside", "space here"})
        EXPECT_EQ(LibDbus_Init(bad, 1, nullptr), nullptr) << bad;
    EXPECT_EQ(LibDbus_Init(nullptr, 1, nullptr), nullptr);
    EXPECT_EQ(LibDbus_Init(std::string(300, 'x').c_str(), 1, nullptr), nullptr);

    Module a("name_check_a");
    ASSERT_NE(a.handle(), nullptr);
    const uint8_t byte = 1;
    EXPECT_EQ(LibDbus_Send(a.handle(), "bad-name", 1, &byte, 1), 0);
    EXPECT_EQ(LibDbus_Send(a.handle(), nullptr, 1, &byte, 1), 0);
    EXPECT_EQ(LibDbus_Send(nullptr, "name_check_a", 1, &byte, 1), 0);
    EXPECT_EQ(LibDbus_Reply(a.handle(), nullptr, 1, &byte, 1), 0);
    uint32_t length = 1;
    uint8_t out = 0;
    EXPECT_EQ(LibDbus_SendSyncWithTimeout("bad-name", 1, &byte, 1, &out, &length, 1), 0);
    EXPECT_EQ(LibDbus_SendSyncWithTimeout("name_check_a", 1, &byte, 1, nullptr, &length, 1), 0);
    LibDbus_UnInit(nullptr);
}

TEST_F(BusModules, GarbageOnTheBusNeverReachesTheHost) {
    Module b("victim_b");
    ASSERT_NE(b.handle(), nullptr);

    CDbusTools raw(1);
    ASSERT_EQ(raw.InitConn("raw_sender", nullptr, nullptr), 1);
    const Bytes junk = Text("not a packet at all");
    EXPECT_EQ(raw.SendData("victim_b", junk.data(), static_cast<uint32_t>(junk.size())), 1);
    CPackage package;
    const uint8_t payload[] = {1, 2, 3};
    ASSERT_TRUE(package.Build(5, payload, 3));
    Bytes corrupted(package.GetPacket(), package.GetPacket() + package.GetPacketLength());
    corrupted[10] ^= 0xFF;
    EXPECT_EQ(raw.SendData("victim_b", corrupted.data(), static_cast<uint32_t>(corrupted.size())), 1);
    EXPECT_EQ(raw.SendData("victim_b", nullptr, 0), 1);

    // A foreign caller with the wrong argument types, on the right member.
    DBusConnection* foreign = dbus_bus_get_private(DBUS_BUS_SESSION, nullptr);
    ASSERT_NE(foreign, nullptr);
    dbus_connection_set_exit_on_disconnect(foreign, FALSE);
    DBusMessage* call = dbus_message_new_method_call("com.quorvane.victim_b", "/com/quorvane/victim_b",
                                                     "com.quorvane.victim_b", "Message");
    const char* text = "hello";
    dbus_message_append_args(call, DBUS_TYPE_STRING, &text, DBUS_TYPE_INVALID);
    dbus_connection_send(foreign, call, nullptr);
    dbus_connection_flush(foreign);
    dbus_message_unref(call);

    // A good packet behind them proves the module kept listening.
    EXPECT_EQ(raw.SendData("victim_b", package.GetPacket(), package.GetPacketLength()), 1);
    ASSERT_TRUE(WaitFor([&] { return b.Count() >= 1; }, 3000));
    const std::vector<Received> got = b.Got();
    ASSERT_EQ(got.size(), 1u);
    EXPECT_EQ(got[0].command, 5);
    EXPECT_EQ(got[0].payload, Bytes(payload, payload + 3));

    dbus_connection_close(foreign);
    dbus_connection_unref(foreign);
}

namespace {
std::mutex g_hexMutex;
std::vector<std::string> g_hexLines;
void CollectHex(const char* hex) {
    std::lock_guard<std::mutex> lock(g_hexMutex);
    g_hexLines.push_back(hex);
}
}  // namespace

TEST_F(BusModules, HexLogShowsEveryPacketSentAndReceived) {
    Module a("hex_a");
    Module b("hex_b");
    ASSERT_NE(a.handle(), nullptr);
    ASSERT_NE(b.handle(), nullptr);
    LibDbus_SetHexLog(&CollectHex);
    const Bytes abc = Text("ABC");
    ASSERT_EQ(LibDbus_Send(a.handle(), "hex_b", 7, abc.data(), 3), 1);
    ASSERT_TRUE(WaitFor([&] { return b.Count() == 1; }, 3000));
    LibDbus_SetHexLog(nullptr);

    std::lock_guard<std::mutex> lock(g_hexMutex);
    ASSERT_EQ(g_hexLines.size(), 2u) << "one dump when sent, one when received";
    EXPECT_EQ(g_hexLines[0], g_hexLines[1]);
    EXPECT_EQ(g_hexLines[0].rfind("FF 6A A6 ", 0), 0u) << g_hexLines[0];
    EXPECT_NE(g_hexLines[0].find(" 00 07 00 07 41 42 43 "), std::string::npos) << g_hexLines[0];
    EXPECT_EQ(g_hexLines[0].size(), 14u * 3) << g_hexLines[0];
}
