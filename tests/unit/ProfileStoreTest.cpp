#include <gtest/gtest.h>
#include <sqlite3.h>

#include <OcppProtocol.h>

#include <atomic>
#include <map>
#include <string>
#include <thread>
#include <vector>

#include "Ocpp20/Process/VariableCache.h"
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

struct ProfileFields {
    int id;
    const char* purpose = "TxDefaultProfile";
    int stackLevel = 0;
    std::string transactionId = "";
    std::string validTo = "";  // empty: absent
    std::string kind = "Absolute";
    std::string extra = "";  // more members, with a leading comma
};

std::string Profile(const ProfileFields& p) {
    std::string json = "{\"id\":" + std::to_string(p.id) + ",\"stackLevel\":" + std::to_string(p.stackLevel) +
                       ",\"chargingProfilePurpose\":\"" + p.purpose + "\",\"chargingProfileKind\":\"" + p.kind + "\"";
    if (!p.transactionId.empty()) json += ",\"transactionId\":\"" + p.transactionId + "\"";
    if (!p.validTo.empty()) json += ",\"validTo\":\"" + p.validTo + "\"";
    json += p.extra;
    if (p.extra.find("chargingSchedule") != std::string::npos) return json + "}";
    return json +
           ",\"chargingSchedule\":[{\"id\":1,\"chargingRateUnit\":\"A\",\"chargingSchedulePeriod\":[{\"startPeriod\":0,"
           "\"limit\":16}]}]}";
}

std::string g_runningTransaction;  // on EVSE 1
std::string TransactionOfEvse(int evseId) { return evseId == 1 ? g_runningTransaction : std::string(); }
int TransactionCount() { return g_runningTransaction.empty() ? 0 : 1; }

// The file as another reader sees it: one integer column of one profile.
int64_t ColumnOf(const std::string& path, const std::string& column, int profileId) {
    sqlite3* db = nullptr;
    int64_t value = -1;
    if (sqlite3_open_v2(path.c_str(), &db, SQLITE_OPEN_READONLY, nullptr) == SQLITE_OK) {
        sqlite3_stmt* stmt = nullptr;
        const std::string sql = "select " + column + " from chargingprofile where profileid=" + std::to_string(profileId);
        if (sqlite3_prepare_v2(db, sql.c_str(), -1, &stmt, nullptr) == SQLITE_OK && sqlite3_step(stmt) == SQLITE_ROW)
            value = sqlite3_column_int64(stmt, 0);
        sqlite3_finalize(stmt);
    }
    sqlite3_close(db);
    return value;
}

std::vector<int> Ids(const std::list<ProfileItem>& items) {
    std::vector<int> ids;
    for (const ProfileItem& item : items) ids.push_back(item.profileId);
    return ids;
}

template <class Manager>
struct Generation;
template <>
struct Generation<CProfileManager20> {
    static constexpr const char* kFile = "chargingprofile20.db";
    static constexpr const char* kEnd = "endtimesec";
    static std::vector<int> StationCandidates() { return {10, -3}; }
};
template <>
struct Generation<CProfileManager21> {
    static constexpr const char* kFile = "chargingprofile21.db";
    static constexpr const char* kEnd = "validtosec";
    static std::vector<int> StationCandidates() { return {10}; }  // 2.1: the station's maximum only
};

// What both generations must do alike.
template <class Manager>
class ProfileStore : public ::testing::Test {
protected:
    void SetUp() override {
        g_runningTransaction.clear();
        store = Manager::GetInstance();
        store->SetTransactionLookup(&TransactionOfEvse, &TransactionCount);
        ASSERT_EQ(store->SetStoreFile(path), 1);
    }
    void TearDown() override {
        store->WaitEntriesWriters(2000);
        Manager::Release();
        CVariableCache::Release();
        g_eSdkStatus = SDKSTATUS_NONE;
    }
    int Add(int evseId, const ProfileFields& fields, const char* source = "CSO") {
        return store->AddChargingProfile(evseId, Profile(fields).c_str(), "", source);
    }

    TempDir dir;
    ClockGuard clock;
    LogCapture log;
    std::string path = dir.file(Generation<Manager>::kFile);
    Manager* store = nullptr;
};

typedef ::testing::Types<CProfileManager20, CProfileManager21> Generations;
TYPED_TEST_SUITE(ProfileStore, Generations);

TYPED_TEST(ProfileStore, AProfileSentAgainWithItsIdReplacesTheOldOneEvenOnAnotherEvseAndPurpose) {
    ASSERT_EQ(this->Add(1, {7, "TxDefaultProfile", 1}), 1);
    ASSERT_EQ(this->Add(2, {7, "ChargingStationMaxProfile", 3}), 1);
    EXPECT_EQ(this->store->GetLocalChargingProfileCount(), 1);
    EXPECT_EQ(this->store->GetEvseIDList(), std::list<int>({2}));
    EXPECT_NE(this->store->GetChargingProfile(7).find("ChargingStationMaxProfile"), std::string::npos);
    EXPECT_TRUE(this->store->GetProfieIDsFromPurpose("TxDefaultProfile").empty());
}

TYPED_TEST(ProfileStore, ExpiredProfilesArePurgedButOnesEndingNowOrNeverStay) {
    CTools::FreezeClock(true);
    const int64_t now = CTools::CurTimeSec();
    ASSERT_EQ(this->Add(1, {1}), 1);
    ASSERT_EQ(this->Add(1, {2, "TxDefaultProfile", 0, "", CTools::GetLocalTime(now - 10)}), 1);
    ASSERT_EQ(this->Add(1, {3, "TxDefaultProfile", 0, "", CTools::GetLocalTime(now)}), 1);
    EXPECT_EQ(ColumnOf(this->path, Generation<TypeParam>::kEnd, 1), 2147483647);

    EXPECT_EQ(this->store->RemoveTimeOutProfile(static_cast<uint64_t>(now)), 1);
    EXPECT_EQ(this->store->FilterChargingProfileIDs(-1, -1, ""), std::vector<int>({1, 3}));
    EXPECT_EQ(this->store->RemoveTimeOutProfile(static_cast<uint64_t>(now)), 0) << "nothing left to purge";
}

TYPED_TEST(ProfileStore, ClearAndReportFindProfilesByEveryCombinationOfCriteria) {
    ASSERT_EQ(this->Add(0, {1, "ChargingStationMaxProfile", 0}), 1);
    ASSERT_EQ(this->Add(1, {2, "TxDefaultProfile", 1}), 1);
    ASSERT_EQ(this->Add(1, {3, "TxDefaultProfile", 2}, "EMS"), 1);
    ASSERT_EQ(this->Add(2, {4, "TxDefaultProfile", 1}, "SO"), 1);
    typedef std::map<int, std::vector<int>> Found;
    const struct {
        const char* what;
        int evse, stack;
        const char* purpose;
        std::vector<int> ids;
        std::vector<std::string> sources;
        Found expected;
    } cases[] = {
        {"nothing given: every profile", -1, -1, "", {}, {}, {{0, {1}}, {1, {2, 3}}, {2, {4}}}},
        {"EVSE", 1, -1, "", {}, {}, {{1, {2, 3}}}},
        {"station EVSE", 0, -1, "", {}, {}, {{0, {1}}}},
        {"purpose", -1, -1, "TxDefaultProfile", {}, {}, {{1, {2, 3}}, {2, {4}}}},
        {"stack level", -1, 1, "", {}, {}, {{1, {2}}, {2, {4}}}},
        {"sources", -1, -1, "", {}, {"EMS", "SO"}, {{1, {3}}, {2, {4}}}},
        {"EVSE, purpose and stack level", 1, 2, "TxDefaultProfile", {}, {}, {{1, {3}}}},
        {"EVSE and source", 2, -1, "", {}, {"EMS"}, {}},
        {"ids override the EVSE", 2, 0, "ChargingStationMaxProfile", {2, 3}, {"SO"}, {{1, {2, 3}}}},
        {"unknown id", -1, -1, "", {99}, {}, {}},
        {"apostrophe in a purpose matches nothing", -1, -1, "x' or '1'='1", {}, {}, {}},
    };
    for (const auto& c : cases)
        EXPECT_EQ(this->store->FilterChargingProfileIDs(c.evse, c.stack, c.purpose, c.ids, c.sources), c.expected)
            << c.what;
    EXPECT_EQ(this->store->FilterChargingProfileIDs(1, 1, "TxDefaultProfile"), std::vector<int>({2}));
}

TYPED_TEST(ProfileStore, ATransactionsSecondTxProfileSurvivesTheEndOfTheTransaction) {
    ASSERT_EQ(this->Add(1, {5, "TxProfile", 0, "TX-1"}), 1);
    ASSERT_EQ(this->Add(1, {6, "TxProfile", 1, "TX-1"}), 1);
    EXPECT_EQ(this->store->RemoveTransactionProfile("TX-1"), 1);
    EXPECT_EQ(this->store->FilterChargingProfileIDs(-1, -1, ""), std::vector<int>({6}));
    EXPECT_EQ(this->store->RemoveTransactionProfile("TX-2"), 0);
    EXPECT_EQ(this->store->RemoveChargingProfile(std::vector<int>()), 0) << "an empty id list removes nothing";
    EXPECT_EQ(this->store->GetLocalChargingProfileCount(), 1);
}

TYPED_TEST(ProfileStore, ACalculationGetsTheEvsesProfilesWithItsRunningTransactionAndNegativeIdsLast) {
    ASSERT_EQ(this->Add(0, {-3, "TxDefaultProfile"}), 1);
    ASSERT_EQ(this->Add(0, {10, "ChargingStationMaxProfile"}), 1);
    ASSERT_EQ(this->Add(1, {11, "TxDefaultProfile"}), 1);
    ASSERT_EQ(this->Add(2, {12, "TxDefaultProfile"}), 1);
    ASSERT_EQ(this->Add(1, {13, "TxProfile", 0, "-1"}), 1);  // the transaction had no id yet
    EXPECT_EQ(Ids(this->store->GetProfileItemList(1)), std::vector<int>({11, -3}));

    g_runningTransaction = "TX-9";
    EXPECT_EQ(this->store->AddTransactionID(1, "TX-9"), 1);
    EXPECT_EQ(this->store->AddTransactionID(1, "TX-9"), 0) << "nothing waits any more";
    EXPECT_EQ(Ids(this->store->GetProfileItemList(1)), std::vector<int>({11, 13, -3}));
    EXPECT_EQ(Ids(this->store->GetProfileItemList(2)), std::vector<int>({12, -3}));
    EXPECT_EQ(Ids(this->store->GetProfileItemList(0)), Generation<TypeParam>::StationCandidates());
}

TYPED_TEST(ProfileStore, TheEvIsSentTheHighestTxDefaultEvenWhenItHasExpired) {
    CTools::FreezeClock(true);
    const int64_t now = CTools::CurTimeSec();
    ASSERT_EQ(this->Add(0, {1, "TxDefaultProfile", 1}), 1);
    ASSERT_EQ(this->Add(1, {2, "TxDefaultProfile", 2, "", CTools::GetLocalTime(now + 60)}), 1);
    EXPECT_NE(this->store->GetCurVaildTxDefaultProfile(1).find("\"id\":2"), std::string::npos);
    CTools::AdvanceClockMs(61000);
    EXPECT_EQ(this->store->GetCurVaildTxDefaultProfile(1), "") << "the lower valid one is not taken";
    EXPECT_NE(this->store->GetCurVaildTxDefaultProfile(2).find("\"id\":1"), std::string::npos);
}

TYPED_TEST(ProfileStore, AProfileWhoseJsonHoldsAnApostropheIsNotStored) {
    ASSERT_EQ(this->Add(1, {4}), 1);
    ProfileFields quoted{4};
    quoted.extra = ",\"customData\":{\"vendorId\":\"O'Neil\"}";
    EXPECT_EQ(this->Add(1, quoted), 0);
    EXPECT_EQ(this->store->GetChargingProfile(4), "") << "the earlier profile with that id is gone too";
    EXPECT_EQ(this->store->UpdateChargingProfileContent(4, "{'x'}"), 0);
    EXPECT_EQ(this->store->RemoveChargingProfile("O'Neil"), 0);
}

TYPED_TEST(ProfileStore, TheEntriesVariableFollowsAddsAndRemoves) {
    CVariableCache* variables = CVariableCache::GetInstance();
    ASSERT_EQ(this->Add(1, {1}), 1);
    ASSERT_EQ(this->Add(1, {2}), 1);
    EXPECT_TRUE(WaitFor([&] { return variables->SmartChargingCtrlrEntries() == 2; }));
    ASSERT_EQ(this->store->RemoveChargingProfile(1), 1);
    EXPECT_TRUE(WaitFor([&] { return variables->SmartChargingCtrlrEntries() == 1; }));
    ASSERT_EQ(this->store->RemoveChargingProfile("CSO"), 1);
    EXPECT_TRUE(WaitFor([&] { return variables->SmartChargingCtrlrEntries() == 0; }));
}

TYPED_TEST(ProfileStore, TheSamePathIsNotOpenedAgainAndProfilesSurviveARestart) {
    ASSERT_EQ(this->Add(3, {8, "TxDefaultProfile", 0, "", "", "Absolute", ",\"validFrom\":\"2030-01-01T00:00:00Z\""}),
              1);
    this->log.Clear();
    EXPECT_EQ(this->store->SetStoreFile(this->path), 1);
    EXPECT_EQ(this->log.Count("Cache File:"), 0u);
    TypeParam::Release();
    EXPECT_EQ(this->store->GetStoreFile(), "");
    ASSERT_EQ(this->store->SetStoreFile(this->path), 1);
    EXPECT_EQ(this->store->GetEvseIDList(), std::list<int>({3}));
    EXPECT_EQ(this->store->GetChargingProfileSource(8), "CSO");
    EXPECT_EQ(this->store->GetScheduleIDs(8), "");
}

TYPED_TEST(ProfileStore, ACalculationReadingWhileTheCsmsReplacesAProfileAlwaysFindsIt) {
    ASSERT_EQ(this->Add(1, {1, "TxDefaultProfile", 0}), 1);
    std::atomic<bool> stop{false};
    std::thread writer([&] {
        for (int i = 0; i < 100; ++i) this->Add(1, {1, "TxDefaultProfile", i % 3});
        stop = true;
    });
    int missing = 0;
    while (!stop.load())
        if (this->store->GetProfileItemList(1).size() != 1) ++missing;
    writer.join();
    EXPECT_EQ(missing, 0);
}

// ---- 2.1 only -------------------------------------------------------------

class ProfileStore21 : public ProfileStore<CProfileManager21> {};

TEST_F(ProfileStore21, RelativeProfilesStartWithTheTransactionOfTheirEvse) {
    CTools::FreezeClock(true);
    const int64_t now = CTools::CurTimeSec();
    ASSERT_EQ(Add(1, {1, "TxDefaultProfile", 0, "", "", "Relative"}), 1);
    EXPECT_EQ(store->GetProfileStartTime(1), 0) << "no transaction yet";
    g_runningTransaction = "TX-1";
    ASSERT_EQ(Add(1, {2, "TxDefaultProfile", 0, "", "", "Relative"}), 1);
    ASSERT_EQ(Add(0, {3, "TxDefaultProfile", 0, "", "", "Relative"}), 1);
    EXPECT_EQ(store->GetProfileStartTime(2), now);
    EXPECT_EQ(store->GetProfileStartTime(3), now) << "a station profile starts with any transaction";

    CTools::AdvanceClockMs(5000);
    EXPECT_EQ(store->ActiveRelativeStartTime(1), 1);
    EXPECT_EQ(store->GetProfileStartTime(1), now + 5);
    EXPECT_EQ(store->ReleaseRelativeStartTime(1, 1), 1);
    EXPECT_EQ(store->GetProfileStartTime(1), 0);
    EXPECT_EQ(store->GetProfileStartTime(3), now + 5) << "another transaction still runs";
    EXPECT_EQ(store->ReleaseRelativeStartTime(1, 0), 1);
    EXPECT_EQ(store->GetProfileStartTime(3), 0);
    EXPECT_EQ(store->GetProfileInstallTime(1), now);
}

TEST_F(ProfileStore21, PriorityAndDynamicProfilesKeepWhatTheirEngineNeeds) {
    ProfileFields priority{1, "PriorityCharging"};
    priority.extra = ",\"chargingSchedule\":[{\"id\":4},{\"id\":9}]";
    ASSERT_EQ(store->AddChargingProfile(1, Profile(priority).c_str(), "4,", "CSO"), 1);
    EXPECT_EQ(store->GetScheduleIDs(1), "4,9,") << "every priority schedule applies, whatever was selected";

    ProfileFields dynamic{2, "TxDefaultProfile", 0, "", "", "Dynamic", ",\"updateInterval\":30"};
    ASSERT_EQ(Add(1, dynamic), 1);
    const auto records = store->GetDynamicMonitorRecords();
    ASSERT_EQ(records.count(2), 1u);
    EXPECT_EQ(records.at(2).updateInterval, 30);
    EXPECT_EQ(store->UpdateDynamicMonitorTime(2), 1);
    store->RemoveDynamicMonitorRecord(2);
    EXPECT_EQ(store->UpdateDynamicMonitorTime(2), 0);
}

TEST_F(ProfileStore21, ProfilesPastTheirOfflineDurationAreParkedAndComeBackOnline) {
    CTools::FreezeClock(true);
    g_eSdkStatus = SDKSTATUS_DISCONNECTED;
    ASSERT_EQ(Add(1, {1, "TxDefaultProfile", 0, "", "", "Absolute", ",\"maxOfflineDuration\":60"}), 1);
    ASSERT_EQ(Add(2, {2, "TxDefaultProfile", 0, "", "", "Absolute",
                      ",\"maxOfflineDuration\":60,\"stopAfterOffline\":true"}),
              1);
    const std::map<unsigned, int> active = {{1, 1}, {2, 2}};
    store->OfflineProcess(active);
    CTools::AdvanceClockMs(60000);
    store->OfflineProcess(active);
    EXPECT_EQ(store->GetLocalChargingProfileCount(), 2) << "exactly the offline duration is still allowed";
    CTools::AdvanceClockMs(1000);
    store->OfflineProcess(active);
    EXPECT_EQ(store->GetLocalChargingProfileCount(), 0);

    g_eSdkStatus = SDKSTATUS_OK;
    store->OfflineProcess({});
    EXPECT_EQ(store->FilterChargingProfileIDs(-1, -1, ""), std::vector<int>({1})) << "stopAfterOffline is gone for good";
    EXPECT_EQ(store->GetOfflineSinceSec(), 0);
}

// ---- the host and the CSMS around the stores --------------------------------

// A transaction's profile held until the host chooses its schedule.
const std::string kTxProfile = Profile({42, "TxProfile", 0, "TX-1"});

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
        g_eSdkStatus = SDKSTATUS_NONE;
    }
    bool LastSentHas(const std::string& text) { return link.Last().find(text) != std::string::npos; }
    bool LastSentIs(const char* action) { return LastSentHas(std::string("\"") + action + "\""); }

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
    EXPECT_TRUE(LastSentHas("\"chargingLimitSource\": \"Other\"")) << link.Last();
    EXPECT_EQ(OcppProtocol_AddCharingProfile(
                  "{\"evseId\":1,\"chargingProfile\":{\"id\":6,\"chargingLimitSource\":\"EMS\",\"stackLevel\":0,"
                  "\"chargingProfilePurpose\":\"ChargingStationExternalConstraints\"}}"),
              1);
    EXPECT_EQ(store->GetChargingProfileSource(6), "EMS");
    EXPECT_TRUE(LastSentHas("\"chargingLimitSource\": \"EMS\"")) << link.Last();

    EXPECT_EQ(OcppProtocol_AddCharingProfile("{\"evseId\":"), 0);
    EXPECT_TRUE(log.Contains("ChargingProfile content error", 2));

    EXPECT_EQ(OcppProtocol_RemoveCharingProfile(1, CHARGINGLIMITSOURCE_CSO), 0) << "CSMS profiles are not the host's";
    EXPECT_EQ(OcppProtocol_RemoveCharingProfile(1, CHARGINGLIMITSOURCE_EMS), 1);
    EXPECT_TRUE(LastSentIs("ClearedChargingLimit"));
    EXPECT_TRUE(LastSentHas("\"chargingLimitSource\": \"EMS\"") && LastSentHas("\"evseId\": 1")) << link.Last();
    EXPECT_EQ(store->GetProfieIDsFromPurpose("ChargingStationExternalConstraints"), std::list<int>({5}));
}

TEST_F(ProfileEntries, TheEvsWaitingRecordLastsOnlyWhileTheCsmsCanBeAsked) {
    g_eSdkStatus = SDKSTATUS_OK;
    EXPECT_EQ(OcppProtocol_RequestChargingProfile(1, ENERGYTRANSFERMODE_AC_THREE_PHASE, 0, 0), 1);
    EXPECT_TRUE(LastSentIs("NotifyEVChargingNeeds"));
    EXPECT_TRUE(LastSentHas("\"requestedEnergyTransfer\": \"AC_three_phase\"")) << link.Last();
    EXPECT_EQ(cache->IsNeedCacheProfile(1), 1);

    link.SetSendResult(0);
    EXPECT_EQ(OcppProtocol_RequestChargingProfile(2, ENERGYTRANSFERMODE_DC, 0, 0), 0);
    EXPECT_EQ(cache->IsNeedCacheProfile(2), 0) << "a request that did not go out leaves nothing waiting";

    g_eSdkStatus = SDKSTATUS_DISCONNECTED;
    EXPECT_EQ(OcppProtocol_RequestChargingProfile(3, ENERGYTRANSFERMODE_DC, 0, 0), 255) << "no TxDefault to send";
    EXPECT_EQ(cache->IsNeedCacheProfile(3), 0);
}

TEST_F(ProfileEntries, TheHostsScheduleChoiceStoresThePendingProfileOnce) {
    cache->AddCacheRecord(1);
    EXPECT_EQ(OcppProtocol_SelectChargingProfileSchedule(42, "1"), 0) << "nothing has arrived yet";
    cache->CacheProfile(1, 42, kTxProfile.c_str());
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
    cache->CacheProfile(2, 42, kTxProfile.c_str());  // arrives later and starts its own window
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

TEST_F(ProfileEntries, TheExpiryTimerDropsAForgottenRecordWithinItsPeriodAlsoAfterAShutdown) {
    for (const char* round : {"the timer runs every 100 seconds", "the next record brings the timer back"}) {
        cache->AddCacheRecord(1);
        CTools::AdvanceClockMs(301 * 1000);
        CTimerManager::GetInstance()->RunDue();
        EXPECT_EQ(cache->Count(), 0u) << round;
        CTimerManager::Release();  // a shutdown drops every timer
    }
}

TEST_F(ProfileStore21, APendingProfileIsStoredInThe21Store) {
    CProfileCache21::GetInstance()->CacheProfile(1, 42, kTxProfile.c_str());
    EXPECT_EQ(CProfileCache21::GetInstance()->SelectSchedule(42, "1,"), 1);
    EXPECT_EQ(store->GetScheduleIDs(42), "1,");
    CProfileCache21::Release();
}

}  // namespace
