#include <gtest/gtest.h>

#include <string>

#include <OcppProtocol.h>

#include "OcppProtocol/OcppProtocol.h"
#include "RecordingLink.h"
#include "SmartCharging/ChargingProfile20/ProfileCache.h"
#include "SmartCharging/ChargingProfile20/ProfileManager.h"
#include "SmartCharging/ChargingProfile21/ProfileCache.h"
#include "SmartCharging/ChargingProfile21/ProfileManager.h"
#include "TestSupport.h"
#include "Util/TimerManager.h"
#include "Util/Tools.h"

using namespace ocpptest;

namespace {

const char kTxProfile[] =
    "{\"id\":42,\"stackLevel\":0,\"chargingProfilePurpose\":\"TxProfile\",\"chargingProfileKind\":\"Absolute\","
    "\"transactionId\":\"TX-1\",\"chargingSchedule\":[{\"id\":1,\"chargingRateUnit\":\"A\","
    "\"chargingSchedulePeriod\":[{\"startPeriod\":0,\"limit\":16}]}]}";

std::string Accepted(const std::string& id) { return "[3,\"" + id + "\",{\"status\":\"Accepted\"}]"; }

// The host and the CSMS around the profile stores of the negotiated version.
class ProfileEntries : public ::testing::Test {
protected:
    void SetUp() override {
        ASSERT_EQ(OcppProtocol_SetCacheDir(dir.path().c_str()), 1);
        OcppProtocol_InitOcppProtocol(OCPPPROTOCOL_201);
        ASSERT_EQ(OcppProtocol_InitCache("ws://csms.example/ocpp"), 1);
        link.Answer(&Accepted);
    }
    void TearDown() override {
        CProfileManager20::GetInstance()->WaitEntriesWriters(2000);
        CProfileManager21::GetInstance()->WaitEntriesWriters(2000);
        OcppProtocol_ResetSystem();
        OcppProtocol_InitOcppProtocol(OCPPPROTOCOL_NONE);
    }
    bool LastSentIs(const char* action) { return link.Last().find(std::string("\"") + action + "\"") != std::string::npos; }

    TempDir dir;
    ClockGuard clock;
    RecordingLink link;
    LogCapture log;
    CProfileManager20* store = CProfileManager20::GetInstance();
    CProfileCache20* cache = CProfileCache20::GetInstance();
};

TEST_F(ProfileEntries, EachVersionOpensItsOwnStoreInTheCsmsFolderAndAResetClosesIt) {
    const std::string file20 = store->GetStoreFile();
    EXPECT_NE(file20.find("/chargingprofile20.db"), std::string::npos);
    EXPECT_EQ(CProfileManager21::GetInstance()->GetStoreFile(), "");

    OcppProtocol_ResetSystem();
    EXPECT_EQ(store->GetStoreFile(), "");
    OcppProtocol_InitOcppProtocol(OCPPPROTOCOL_21);
    ASSERT_EQ(OcppProtocol_InitCache("ws://csms.example/ocpp"), 1);
    EXPECT_EQ(CProfileManager21::GetInstance()->GetStoreFile(), file20.substr(0, file20.size() - 5) + "21.db");
    EXPECT_EQ(store->GetStoreFile(), "");
}

TEST_F(ProfileEntries, AHostProfileIsStoredUnderItsOwnSourceAndReportedToTheCsms) {
    g_eSdkStatus = SDKSTATUS_OK;
    EXPECT_EQ(OcppProtocol_AddCharingProfile(
                  "{\"evseId\":1,\"chargingProfile\":{\"id\":5,\"stackLevel\":0,\"chargingProfilePurpose\":"
                  "\"ChargingStationExternalConstraints\",\"chargingProfileKind\":\"Absolute\","
                  "\"chargingSchedule\":[]}}"),
              1);
    EXPECT_EQ(store->GetChargingProfileSource(5), "Other");
    EXPECT_TRUE(LastSentIs("NotifyChargingLimit"));
    EXPECT_EQ(OcppProtocol_AddCharingProfile(
                  "{\"evseId\":1,\"chargingProfile\":{\"id\":6,\"chargingLimitSource\":\"EMS\",\"stackLevel\":0,"
                  "\"chargingProfilePurpose\":\"ChargingStationExternalConstraints\"}}"),
              1);
    EXPECT_EQ(store->GetChargingProfileSource(6), "EMS");

    EXPECT_EQ(OcppProtocol_AddCharingProfile("{\"evseId\":"), 0);
    EXPECT_TRUE(log.Contains("ChargingProfile content error", 2));

    EXPECT_EQ(OcppProtocol_RemoveCharingProfile(1, CHARGINGLIMITSOURCE_CSO), 0) << "CSMS profiles are not the host's";
    EXPECT_EQ(OcppProtocol_RemoveCharingProfile(1, CHARGINGLIMITSOURCE_EMS), 1);
    EXPECT_TRUE(LastSentIs("ClearedChargingLimit"));
    EXPECT_EQ(store->GetProfieIDsFromPurpose("ChargingStationExternalConstraints"), std::list<int>({5}));
    g_eSdkStatus = SDKSTATUS_NONE;
}

TEST_F(ProfileEntries, TheEvsWaitingRecordLastsOnlyWhileTheCsmsCanBeAsked) {
    g_eSdkStatus = SDKSTATUS_OK;
    EXPECT_EQ(OcppProtocol_RequestChargingProfile(1, ENERGYTRANSFERMODE_AC_THREE_PHASE, 0, 0), 1);
    EXPECT_TRUE(LastSentIs("NotifyEVChargingNeeds"));
    EXPECT_EQ(cache->IsNeedCacheProfile(1), 1);

    link.SetSendResult(0);
    EXPECT_EQ(OcppProtocol_RequestChargingProfile(2, ENERGYTRANSFERMODE_DC, 0, 0), 0);
    EXPECT_EQ(cache->IsNeedCacheProfile(2), 0) << "a request that did not go out leaves nothing waiting";

    g_eSdkStatus = SDKSTATUS_DISCONNECTED;
    EXPECT_EQ(OcppProtocol_RequestChargingProfile(3, ENERGYTRANSFERMODE_DC, 0, 0), 255) << "no TxDefault to send";
    EXPECT_EQ(cache->IsNeedCacheProfile(3), 0);
    g_eSdkStatus = SDKSTATUS_NONE;
}

TEST_F(ProfileEntries, TheHostsScheduleChoiceStoresThePendingProfileOnce) {
    cache->AddCacheRecord(1);
    EXPECT_EQ(OcppProtocol_SelectChargingProfileSchedule(42, "1"), 0) << "nothing has arrived yet";
    cache->CacheProfile(1, 42, kTxProfile);
    EXPECT_EQ(OcppProtocol_SelectChargingProfileSchedule(0, "1"), 0);
    EXPECT_EQ(OcppProtocol_SelectChargingProfileSchedule(42, "1"), 1);
    EXPECT_EQ(store->GetScheduleIDs(42), "1");
    EXPECT_EQ(store->GetChargingProfileSource(42), "CSO");
    EXPECT_EQ(cache->IsNeedCacheProfile(1), 0);
    EXPECT_EQ(OcppProtocol_SelectChargingProfileSchedule(42, "1"), 0) << "already taken";
}

TEST_F(ProfileEntries, APendingProfileTheHostNeverChoosesIsDroppedAfterFiveMinutes) {
    CTools::FreezeClock(true);
    cache->AddCacheRecord(1);
    cache->AddCacheRecord(2);
    CTools::AdvanceClockMs(200 * 1000);
    cache->CacheProfile(2, 42, kTxProfile);  // arrives later and starts its own window
    CTools::AdvanceClockMs(100 * 1000);
    // The expiry timer may run as well when the clock moves: only the outcome counts.
    cache->Clear();
    EXPECT_EQ(cache->IsNeedCacheProfile(1), 1) << "exactly 300 seconds is still within the window";
    CTools::AdvanceClockMs(1000);
    cache->Clear();
    EXPECT_EQ(cache->IsNeedCacheProfile(1), 0);
    EXPECT_EQ(cache->IsNeedCacheProfile(2), 1);
    CTools::AdvanceClockMs(200 * 1000);
    cache->Clear();
    EXPECT_EQ(cache->Count(), 0u);
}

TEST_F(ProfileEntries, TheExpiryTimerDropsAForgottenRecordWithinItsPeriod) {
    cache->AddCacheRecord(1);
    CTools::AdvanceClockMs(301 * 1000);
    CTimerManager::GetInstance()->RunDue();
    EXPECT_EQ(cache->Count(), 0u) << "the timer runs every 100 seconds";

    CTimerManager::Release();  // a shutdown drops every timer
    cache->AddCacheRecord(1);
    CTools::AdvanceClockMs(301 * 1000);
    CTimerManager::GetInstance()->RunDue();
    EXPECT_EQ(cache->Count(), 0u) << "the next record brings the timer back";
}

TEST(ProfileCache21, APendingProfileIsStoredInThe21Store) {
    TempDir dir;
    CProfileManager21* store = CProfileManager21::GetInstance();
    ASSERT_EQ(store->SetStoreFile(dir.file("chargingprofile21.db")), 1);
    CProfileCache21::GetInstance()->CacheProfile(1, 42, kTxProfile);
    EXPECT_EQ(CProfileCache21::GetInstance()->SelectSchedule(42, "1,"), 1);
    EXPECT_EQ(store->GetScheduleIDs(42), "1,");
    store->WaitEntriesWriters(2000);
    CProfileCache21::Release();
    CProfileManager21::Release();
}

}  // namespace
