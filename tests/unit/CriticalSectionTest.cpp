#include <gtest/gtest.h>

#include <chrono>
#include <condition_variable>
#include <thread>

#include "TestSupport.h"
#include "Util/CriticalSectionManager.h"
#include "Util/Tools.h"

using namespace ocpptest;

TEST(TracedLocks, RecursiveReEntryIsLoggedWithBothPlacesAndDelayed) {
    LogCapture log;
    pthread_mutexattr_t attr;
    pthread_mutexattr_init(&attr);
    pthread_mutexattr_settype(&attr, PTHREAD_MUTEX_RECURSIVE);
    pthread_mutex_t m;
    pthread_mutex_init(&m, &attr);
    CCriticalSectionManager* cs = CCriticalSectionManager::GetInstance();
    cs->Enter(&m, "Process/First.cpp", 10, "FirstFunc");
    const auto t0 = std::chrono::steady_clock::now();
    cs->Enter(&m, "Process/Second.cpp", 20, "SecondFunc");
    const auto waited = std::chrono::steady_clock::now() - t0;
    EXPECT_GE(waited, std::chrono::milliseconds(950));
    EXPECT_TRUE(log.Contains("ReEnter Old:FirstFunc===>Process/First.cpp==>10", OCPP_LOG_ERROR));
    EXPECT_TRUE(log.Contains("ReEnter New:SecondFunc===>Process/Second.cpp==>20", OCPP_LOG_ERROR));
    cs->Leave(&m, __FILE__, __LINE__, __FUNCTION__);
    cs->Leave(&m, __FILE__, __LINE__, __FUNCTION__);
    EXPECT_EQ(pthread_mutex_trylock(&m), 0) << "the mutex must be fully released";
    pthread_mutex_unlock(&m);
    pthread_mutex_destroy(&m);
}

TEST(TracedLocks, LockHeldOverAMinuteIsReportedAtEachScan) {
    ClockGuard clock;
    LogCapture log;
    CTools::FreezeClock(true);
    pthread_mutex_t m = PTHREAD_MUTEX_INITIALIZER;
    CCriticalSectionManager* cs = CCriticalSectionManager::GetInstance();
    cs->Enter(&m, "Process/Stuck.cpp", 42, "StuckFunc");
    CTools::AdvanceClockMs(59 * 1000);
    EXPECT_EQ(cs->ScanLongSections(), 0) << "59 s is not yet too long";
    CTools::AdvanceClockMs(11 * 1000);
    EXPECT_EQ(cs->ScanLongSections(), 1);
    EXPECT_TRUE(log.Contains("CriticalSection Long:StuckFunc===>Process/Stuck.cpp==>42", OCPP_LOG_ERROR));
    cs->Leave(&m, __FILE__, __LINE__, __FUNCTION__);
    EXPECT_EQ(cs->ScanLongSections(), 0) << "a released lock must not be reported";
}

TEST(TracedLocks, GuardWorksWithConditionVariablesAndTracksHolders) {
    pthread_mutex_t m = PTHREAD_MUTEX_INITIALIZER;
    std::condition_variable_any cv;
    bool ready = false;
    CCriticalSectionManager* cs = CCriticalSectionManager::GetInstance();
    const size_t before = cs->HeldCount();
    std::thread producer([&] {
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
        OCPP_SECTION(&m);
        ready = true;
        cv.notify_all();
    });
    {
        OCPP_SECTION_NAMED(guard, &m);
        EXPECT_EQ(cs->HeldCount(), before + 1);
        EXPECT_TRUE(cv.wait_for(guard, std::chrono::seconds(2), [&] { return ready; }));
    }
    producer.join();
    EXPECT_EQ(cs->HeldCount(), before);
}
