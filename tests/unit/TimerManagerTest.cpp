#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <thread>

#include "TestSupport.h"
#include "Util/TimerManager.h"
#include "Util/Tools.h"

using namespace ocpptest;

namespace {
std::atomic<int> g_calls{0};
void* CountCall(void*) {
    ++g_calls;
    return nullptr;
}
void* SlowCall(void*) {
    ++g_calls;
    CTools::AdvanceClockMs(300);  // the callback "takes" 300 ms
    return nullptr;
}

struct TimerManager : ::testing::Test {
    ClockGuard clock;
    void SetUp() override {
        g_calls = 0;
        CTools::FreezeClock(true);
    }
    void TearDown() override { CTimerManager::Release(); }
    // Moves the clock `ms` on and runs what is due: the calls so far.
    int CallsAfter(int ms) {
        CTools::AdvanceClockMs(ms);
        CTimerManager::GetInstance()->RunDue();
        return g_calls;
    }
};

TEST_F(TimerManager, FreedIdsAreReusedSmallestFirst) {
    CTimerManager* tm = CTimerManager::GetInstance();
    EXPECT_EQ(tm->RegisterTimer(60, CountCall, nullptr), 1u);
    EXPECT_EQ(tm->RegisterTimer(60, CountCall, nullptr), 2u);
    EXPECT_EQ(tm->RegisterTimer(60, CountCall, nullptr), 3u);
    tm->UnRegisterTimer(1);
    tm->UnRegisterTimer(99);  // unknown ids are ignored
    EXPECT_EQ(tm->RegisterTimer(60, CountCall, nullptr), 1u);
    EXPECT_EQ(tm->RegisterTimer(60, CountCall, nullptr), 4u);
    EXPECT_EQ(tm->Count(), 4u);
}

TEST_F(TimerManager, FirstCallComesOneIntervalAfterRegistrationThenOneIntervalAfterTheLastRunEnded) {
    CTimerManager::GetInstance()->RegisterTimer(2, SlowCall, nullptr);
    EXPECT_EQ(CallsAfter(1999), 0);
    EXPECT_EQ(CallsAfter(1), 1);
    EXPECT_EQ(CallsAfter(0), 1) << "a timer must not fire twice for one interval";
    EXPECT_EQ(CallsAfter(1999), 1) << "1999 ms after the run ended";
    EXPECT_EQ(CallsAfter(1), 2);
}

CTimerManager* g_tm = nullptr;
unsigned long long g_selfId = 0;
void* UnregisterSelf(void*) {
    ++g_calls;
    g_tm->UnRegisterTimer(g_selfId);
    g_tm->RegisterTimer(5, CountCall, nullptr);
    return nullptr;
}

TEST_F(TimerManager, CallbackMayRemoveItselfAndRegisterAnother) {
    g_tm = CTimerManager::GetInstance();
    g_selfId = g_tm->RegisterTimer(1, UnregisterSelf, nullptr);
    EXPECT_EQ(CallsAfter(1000), 1) << "must not deadlock";
    EXPECT_EQ(g_tm->Count(), 1u);
    EXPECT_EQ(CallsAfter(1000), 1) << "the removed timer must not run again";
}

std::atomic<bool> g_inCallback{false};
std::atomic<bool> g_release{false};
void* BlockingCall(void*) {
    g_inCallback = true;
    while (!g_release) std::this_thread::sleep_for(std::chrono::milliseconds(1));
    ++g_calls;
    return nullptr;
}

TEST_F(TimerManager, UnregisterWaitsForACallbackInFlight) {
    CTools::FreezeClock(false);
    CTimerManager* tm = CTimerManager::GetInstance();
    g_inCallback = false;
    g_release = false;
    const auto id = tm->RegisterTimer(1, BlockingCall, nullptr);
    ASSERT_TRUE(WaitFor([] { return g_inCallback.load(); }, 1800)) << "worker did not run the timer on time";
    std::atomic<bool> unregistered{false};
    std::thread t([&] {
        tm->UnRegisterTimer(id);
        unregistered = true;
    });
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
    EXPECT_FALSE(unregistered) << "owner could free the timer's argument while the callback still uses it";
    g_release = true;
    t.join();
    EXPECT_TRUE(unregistered);
    EXPECT_EQ(g_calls, 1);
}

TEST_F(TimerManager, ReleaseKeepsAHeldPointerUsableAndTheNextUseRunsTimersAgain) {
    CTools::FreezeClock(false);
    CTimerManager* held = CTimerManager::GetInstance();
    held->RegisterTimer(1, CountCall, nullptr);
    CTimerManager::Release();
    EXPECT_EQ(held->Count(), 0u) << "a release drops every timer";
    ASSERT_EQ(CTimerManager::GetInstance(), held);
    held->RegisterTimer(1, CountCall, nullptr);
    EXPECT_TRUE(WaitFor([] { return g_calls.load() > 0; }, 2500)) << "timers stopped for good after a release";
}

}  // namespace
