#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <string>

#include <Ocpp20Protocol.h>
#include <OcppRecords.h>

#include "OcppProtocol/OcppProtocol.h"
#include "Process/ReservationManager.h"
#include "FrameSchema.h"
#include "RecordingHost.h"
#include "RecordingLink.h"
#include "TestSupport.h"
#include "Util/Tools.h"

using namespace ocpptest;

namespace {

ReservationItem Item(uint32_t id, int64_t expiry, const char* token = "TOKEN", const char* group = "") {
    ReservationItem item{};
    item.id = id;
    item.tokenType = 2;
    CTools::CopyField(item.token, token);
    item.groupTokenType = 3;
    CTools::CopyField(item.groupToken, group);
    item.expiryTimeSec = static_cast<uint32_t>(expiry);
    return item;
}

std::string Entry(int id, int64_t expiry, const std::string& token = "T") {
    return "{\"id\":" + std::to_string(id) + ",\"tokentype\":1,\"token\":\"" + token +
           "\",\"grouptokentype\":0,\"grouptoken\":\"\",\"expirytimesec\":" + std::to_string(expiry) + "}";
}

std::string FileOf(int count, int64_t expiry) {
    std::string text = "[";
    for (int i = 0; i < count; ++i) text += (i ? "," : "") + Entry(i + 1, expiry);
    return text + "]";
}

// The store, and the CSMS and the host reaching it through the 2.0.1 engine.
class Reservations : public ::testing::Test {
protected:
    void SetUp() override {
        ResetSdkState();
        OcppProtocol_InitOcppProtocol(OCPPPROTOCOL_201);
    }
    void TearDown() override {
        CReservationManager::Release();
        ResetSdkState();
    }
    CReservationManager* Open() {
        CReservationManager* store = CReservationManager::GetInstance();
        EXPECT_EQ(store->SetStoreFile(path), 1);
        return store;
    }
    // A restart of the station: the store comes back from its file only.
    CReservationManager* Reopen() {
        CReservationManager::Release();
        return Open();
    }

    ClockGuard clock;
    // Expiry is checked to the second: the clock must not tick on its own mid-test.
    bool frozen = (CTools::FreezeClock(true), true);
    TempDir dir;
    std::string path = dir.file("reservation.json");
    LogCapture log;
    int64_t now = CTools::CurTimeSec();
};

TEST_F(Reservations, StoredReservationSurvivesRestartAndSameIdReplacesIt) {
    CReservationManager* store = Open();
    EXPECT_TRUE(log.Contains("Reservation Cache File created"));
    EXPECT_EQ(ReadText(path), "[]");

    ASSERT_EQ(store->AddReservationItem(Item(7, now + 600, "OLD")), 1);
    ASSERT_EQ(store->AddReservationItem(Item(7, now + 900, "NEW\"TOKEN", "GROUP")), 1);
    ASSERT_EQ(store->AddReservationItem(Item(4294967295u, now + 600)), 1);

    store = Reopen();
    EXPECT_TRUE(log.Contains("Reservation Cache File already exists"));
    EXPECT_EQ(store->Count(), 2u);
    ReservationItem got;
    ASSERT_EQ(store->GetReservationItem(7, &got), 1);
    EXPECT_STREQ(got.token, "NEW\"TOKEN");
    EXPECT_STREQ(got.groupToken, "GROUP");
    EXPECT_EQ(got.tokenType, 2);
    EXPECT_EQ(got.groupTokenType, 3);
    EXPECT_EQ(got.expiryTimeSec, static_cast<uint32_t>(now + 900));
    EXPECT_EQ(store->GetReservationItem(4294967295u, nullptr), 1);

    EXPECT_EQ(store->RemoveReservation(7), 1);
    EXPECT_EQ(store->RemoveReservation(7), 0);
    store->RemoveAll();
    EXPECT_EQ(ReadText(path), "[]");
}

TEST_F(Reservations, ExpiredReservationsAreGoneAtLookupAndAfterRestart) {
    CReservationManager* store = Open();
    store->AddReservationItem(Item(1, now + 10));
    store->AddReservationItem(Item(2, now + 100));

    CTools::AdvanceClockMs(9000);
    EXPECT_EQ(store->GetReservationItem(1, nullptr), 1) << "still a second to go";
    CTools::AdvanceClockMs(2000);
    EXPECT_EQ(store->GetReservationItem(1, nullptr), 0);
    EXPECT_EQ(store->Count(), 1u) << "an expired reservation found by a lookup is removed";

    // Reservation 2 expires while the station is off.
    CReservationManager::Release();
    CTools::AdvanceClockMs(100 * 1000);
    store = Open();
    EXPECT_EQ(store->Count(), 0u);
}

TEST_F(Reservations, AThousandLiveReservationsRefuseTheNextButAcceptAReplacementAndAFileOfMoreIsNotLoaded) {
    WriteText(path, FileOf(1000, now + 600));
    CReservationManager* store = Open();
    EXPECT_EQ(store->Count(), 1000u);
    EXPECT_EQ(store->AddReservationItem(Item(5000, now + 600)), 0);
    EXPECT_EQ(store->AddReservationItem(Item(7, now + 900, "NEW")), 1) << "same id replaces";
    EXPECT_EQ(Reopen()->Count(), 1000u);

    CReservationManager::Release();
    WriteText(path, FileOf(1001, now + 600));
    store = CReservationManager::GetInstance();
    EXPECT_EQ(store->SetStoreFile(path), 0);
    EXPECT_EQ(store->Count(), 0u);
    EXPECT_TRUE(log.Contains("预约数量异常(1001)，限制范围[0-1000]"));
}

TEST_F(Reservations, ReservationsThatExpireOneAfterAnotherNeverOutgrowWhatTheNextBootLoads) {
    CReservationManager* store = Open();
    ASSERT_EQ(store->AddReservationItem(Item(100000, now + 100000, "LONG")), 1);
    for (uint32_t id = 1; id <= 1500; ++id) {
        ASSERT_EQ(store->AddReservationItem(Item(id, CTools::CurTimeSec() + 1)), 1) << id;
        CTools::AdvanceClockMs(1000);  // expired before the next one comes
    }
    ASSERT_EQ(store->AddReservationItem(Item(2000, CTools::CurTimeSec() + 600, "LAST")), 1);
    EXPECT_LE(store->Count(), 3u);

    store = Reopen();
    EXPECT_FALSE(log.Contains("预约数量异常"));
    EXPECT_EQ(store->Count(), 2u);
    EXPECT_EQ(store->GetReservationItem(100000, nullptr), 1);
    EXPECT_EQ(store->GetReservationItem(2000, nullptr), 1);
}

TEST_F(Reservations, CorruptFileOrBadEntriesLeaveAWorkingStore) {
    WriteText(path, "[{\"id\":1,\"tokentype\":1,\"tok");
    CReservationManager* store = CReservationManager::GetInstance();
    EXPECT_EQ(store->SetStoreFile(path), 0);
    EXPECT_EQ(store->Count(), 0u);
    // Still usable: the next change writes a good file.
    ASSERT_EQ(store->AddReservationItem(Item(3, now + 60)), 1);
    EXPECT_EQ(Reopen()->Count(), 1u);

    // Entries of the wrong shape are skipped one by one, the rest is kept.
    WriteText(path, "[" + Entry(5, now + 60) + ",{\"id\":-1},7," + Entry(6, now + 60, std::string(37, 'x')) + "]");
    store = Reopen();
    EXPECT_EQ(store->Count(), 1u);
    EXPECT_EQ(store->GetReservationItem(5, nullptr), 1);
}

TEST_F(Reservations, PowerCutBeforeRenameKeepsThePreviousFile) {
    CReservationManager* store = Open();
    store->AddReservationItem(Item(1, now + 600));
    // What a cut during a write leaves behind: a half-written temporary file.
    WriteText(path + "1", "[{\"id\":2,\"tokent");
    store = Reopen();
    EXPECT_EQ(store->Count(), 1u);
    EXPECT_EQ(store->GetReservationItem(1, nullptr), 1);
    ASSERT_EQ(store->AddReservationItem(Item(2, now + 600)), 1) << "a stray temporary file must not block later writes";
    EXPECT_EQ(Reopen()->Count(), 2u);
    const std::string written = ReadText(path);

    // A write that cannot even create its temporary file leaves the store untouched.
    unlink((path + "1").c_str());
    ASSERT_EQ(mkdir((path + "1").c_str(), 0755), 0);
    EXPECT_EQ(store->AddReservationItem(Item(9, now + 600)), 0);
    EXPECT_TRUE(log.Contains("SyncToFile: openat(" + path + "1) failed errno="));
    EXPECT_EQ(ReadText(path), written);
    EXPECT_EQ(store->GetReservationItem(9, nullptr), 1) << "memory keeps the change";
    rmdir((path + "1").c_str());
}

TEST_F(Reservations, ReserveNowFromCsmsIsStoredEvenWhenTheHostRefusesIt) {
    RecordingHost host;
    RecordingLink link;
    CReservationManager* store = Open();
    const std::string call =
        R"([2,"rn-1","ReserveNow",{"id":12,"expiryDateTime":")" + CTools::GetLocalTime(now + 3600) +
        R"(","idToken":{"idToken":"TOKEN","type":"ISO14443"},"groupIdToken":{"idToken":"FAMILY","type":"Central"},"evseId":2}])";
    DeliverTo20(call);

    ReservationItem got;
    ASSERT_EQ(store->GetReservationItem(12, &got), 1) << "stored before the host has answered";
    EXPECT_STREQ(got.token, "TOKEN");
    EXPECT_STREQ(got.groupToken, "FAMILY");
    EXPECT_NE(got.tokenType, got.groupTokenType);
    EXPECT_EQ(got.expiryTimeSec, static_cast<uint32_t>(now + 3600));
    ASSERT_TRUE(host.WaitForType(SERVERRECVTYPE_RESERVENOW));
    EXPECT_EQ(Ocpp20Protocol_ReserveNow("rn-1", 3), 1);
    EXPECT_NE(link.Last().find("\"Rejected\""), std::string::npos);
    EXPECT_EQ(Reopen()->GetReservationItem(12, nullptr), 1);
}

TEST_F(Reservations, HostReportedEndTellsTheCsmsAndForgetsTheReservation) {
    RecordingLink link;
    CReservationManager* store = Open();
    store->AddReservationItem(Item(5, now + 600));
    store->AddReservationItem(Item(6, now + 600));

    link.Answer([](const std::string& id) { return "[3,\"" + id + "\",{}]"; });
    EXPECT_EQ(Ocpp20Protocol_ReservationStatusUpdate(5, 1), 1);
    EXPECT_NE(link.Last().find("\"ReservationStatusUpdate\""), std::string::npos);
    EXPECT_NE(link.Last().find("\"Removed\""), std::string::npos);
    EXPECT_EQ(store->GetReservationItem(5, nullptr), 0);

    // Without a link the CSMS is not told, but the station still forgets it.
    link.SetSendResult(0);
    EXPECT_EQ(Ocpp20Protocol_ReservationStatusUpdate(6, 0), 0);
    EXPECT_EQ(store->GetReservationItem(6, nullptr), 0);
    // A status outside the list is refused and changes nothing.
    store->AddReservationItem(Item(7, now + 600));
    EXPECT_EQ(Ocpp20Protocol_ReservationStatusUpdate(7, 9), 0);
    EXPECT_EQ(store->GetReservationItem(7, nullptr), 1);
}

TEST_F(Reservations, ReservedEvseStartsOnlyForItsTokenOrItsGroup) {
    CReservationManager* store = Open();
    store->AddReservationItem(Item(1, now + 600, "ALICE"));
    store->AddReservationItem(Item(2, now + 600, "BOB", "FAMILY"));

    EXPECT_EQ(store->CheckReservedStart(1, "ALICE", ""), CReservationManager::RESERVATION_ACCEPTED);
    EXPECT_EQ(store->CheckReservedStart(1, "MALLORY", ""), CReservationManager::RESERVATION_REFUSED);
    EXPECT_EQ(store->CheckReservedStart(2, "CAROL", "FAMILY"), CReservationManager::RESERVATION_ACCEPTED);
    EXPECT_EQ(store->CheckReservedStart(2, "BOB", ""), CReservationManager::RESERVATION_ACCEPTED);
    EXPECT_EQ(store->CheckReservedStart(2, "DAVE", "OTHER"), CReservationManager::RESERVATION_REFUSED);
    EXPECT_EQ(store->CheckReservedStart(3, "ALICE", ""), CReservationManager::RESERVATION_ABSENT);
}

}  // namespace
