#include <gtest/gtest.h>
#include <unistd.h>

#include <atomic>

#include "Process/ConnectorManager.h"
#include "TestSupport.h"
#include "Util/TimerManager.h"
#include "Util/Tools.h"

using namespace ocpptest;

namespace {

struct Probe {
    std::atomic<int> entered{0};
    std::atomic<int> found{-1};
};

// Stands in for the boot timer bringing the station online: it holds the connector
// manager while the full report waits for the CSMS's answers.
void* ReportInProgress(void* argument) {
    Probe* probe = static_cast<Probe*>(argument);
    if (probe->entered.exchange(1) == 1) return nullptr;
    CConnectorManager* manager = CConnectorManager::GetInstance();
    usleep(200 * 1000);
    ConnectorInfo info;
    probe->found = manager->GetConnectorInfo(1, 1, info);
    return nullptr;
}

}  // namespace

// Under the sanitizers a wrong release order shows as a use after free in the timer thread.
TEST(Shutdown, ReleaseDuringAConnectorReportKeepsTheStatusesUntilTheReportEnds) {
    ClockGuard clock;
    CConnectorManager::GetInstance()->RecordConnectorStatus(1, 1, 0, 1);
    Probe probe;
    CTimerManager::GetInstance()->RegisterTimer(1, ReportInProgress, &probe);
    CTools::AdvanceClockMs(1500);
    ASSERT_TRUE(WaitFor([&] { return probe.entered.load() == 1; }, 2000));
    OcppProtocol_Release();
    EXPECT_EQ(probe.found.load(), 1);
}
