#include <gtest/gtest.h>
#include <unistd.h>

#include <atomic>
#include <string>
#include <thread>

#include "Log/LogManager.h"
#include "Ocpp20/Process/VariableCache.h"
#include "Ocpp20/Process/VariableCharacteristics.h"
#include "OcppProtocol/OcppProtocol.h"
#include "Process/ConnectorManager.h"
#include "Process/ReservationManager.h"
#include "TestSupport.h"
#include "Util/TimerManager.h"
#include "Util/Tools.h"

using namespace ocpptest;

namespace {

class StoreLifetime : public ::testing::Test {
protected:
    void TearDown() override { OcppProtocol_ResetSystem(); }
    TempDir dir;
    LogCapture log;
};

// Every new connection resets the stores while timer and host threads keep using
// the pointers they already hold; under the address sanitizer a freed store shows here.
TEST_F(StoreLifetime, StoresStayUsableByOtherThreadsWhileTheSystemResetsOnEachConnection) {
    std::atomic<bool> stop{false};
    std::atomic<int> rounds{0};
    std::thread user([&] {
        while (!stop.load()) {
            CVariableCache* cache = CVariableCache::GetInstance();
            CReservationManager* reservations = CReservationManager::GetInstance();
            CVariableCharacteristics* characteristics = CVariableCharacteristics::GetInstance();
            CLogManager* logs = CLogManager::GetInstance();
            for (int i = 0; i < 20; ++i) {
                cache->GetVariable("OCPPCommCtrlr", "HeartbeatInterval");
                cache->OCPPCommCtrlrOfflineThreshold();
                reservations->GetReservationItem(1, nullptr);
                reservations->StoreReservation(1, "TOKEN", 1, "", 0, static_cast<uint32_t>(CTools::CurTimeSec() + 60));
                float limit = 0;
                characteristics->GetVariableMaxLimit(limit, "OCPPCommCtrlr", "HeartbeatInterval", "", "", 0, 0);
            }
            logs->Add(0, 1, "hammer");
            ++rounds;
        }
    });
    for (int i = 0; i < 150; ++i) {
        CReservationManager::GetInstance()->SetStoreFile(dir.file("reservation.json"));
        CLogManager::GetInstance()->SetStoreFile(dir.file("log.db"));
        OcppProtocol_ResetSystem();
    }
    ASSERT_TRUE(WaitFor([&] { return rounds.load() > 0; }));
    stop = true;
    user.join();
}

TEST_F(StoreLifetime, ResetLeavesStoresEmptyAndUnboundButKeepsHeldPointersValid) {
    CReservationManager* reservations = CReservationManager::GetInstance();
    ASSERT_EQ(reservations->SetStoreFile(dir.file("reservation.json")), 1);
    ASSERT_EQ(reservations->StoreReservation(9, "TOKEN", 1, "", 0, static_cast<uint32_t>(CTools::CurTimeSec() + 60)), 1);
    CLogManager* logs = CLogManager::GetInstance();
    ASSERT_EQ(logs->SetStoreFile(dir.file("log.db")), 1);
    logs->Add(0, 1, "before reset");

    OcppProtocol_ResetSystem();
    EXPECT_EQ(reservations->Count(), 0u);
    EXPECT_EQ(CReservationManager::GetInstance()->Count(), 0u);
    EXPECT_EQ(logs->GetStoreFile(), "");
    EXPECT_EQ(CLogManager::GetInstance()->GetStoreFile(), "");

    // A store unbound by the reset writes nothing until it is named again.
    const std::string before = ReadText(dir.file("reservation.json"));
    reservations->StoreReservation(10, "OTHER", 1, "", 0, static_cast<uint32_t>(CTools::CurTimeSec() + 60));
    EXPECT_EQ(ReadText(dir.file("reservation.json")), before);
    ASSERT_EQ(CReservationManager::GetInstance()->SetStoreFile(dir.file("reservation.json")), 1);
    EXPECT_EQ(CReservationManager::GetInstance()->GetReservationItem(9, nullptr), 1) << "reloaded from its file";
    EXPECT_EQ(CReservationManager::GetInstance()->GetReservationItem(10, nullptr), 0);
}

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

}  // namespace
