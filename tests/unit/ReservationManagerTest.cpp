#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstring>
#include <string>

#include <OcppRecords.h>

#include "Process/ReservationManager.h"
#include "RecordingHost.h"
#include "TestSupport.h"
#include "Util/Tools.h"

using namespace ocpptest;

namespace {

ReservationItem Item(uint32_t id, int64_t expiry, const char* token = "TOKEN", const char* group = "") {
    ReservationItem item;
    memset(&item, 0, sizeof item);
    item.id = id;
    item.tokenType = 2;
    CTools::CopyField(item.token, token);
    item.groupTokenType = 3;
    CTools::CopyField(item.groupToken, group);
    item.expiryTimeSec = static_cast<uint32_t>(expiry);
    return item;
}

std::string FileOf(int count, int64_t expiry) {
    std::string text = "[";
    for (int i = 0; i < count; ++i) {
        if (i) text += ",";
        text += "{\"id\":" + std::to_string(i + 1) +
                ",\"tokentype\":1,\"token\":\"T\",\"grouptokentype\":0,\"grouptoken\":\"\",\"expirytimesec\":" +
                std::to_string(expiry) + "}";
    }
    return text + "]";
}

class Reservations : public ::testing::Test {
protected:
    void TearDown() override { CReservationManager::Release(); }
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

TEST_F(Reservations, FileWithMoreThanAThousandReservationsIsNotLoadedAtAll) {
    WriteText(path, FileOf(1000, now + 600));
    EXPECT_EQ(Open()->Count(), 1000u);

    CReservationManager::Release();
    WriteText(path, FileOf(1001, now + 600));
    CReservationManager* store = CReservationManager::GetInstance();
    EXPECT_EQ(store->SetStoreFile(path), 0);
    EXPECT_EQ(store->Count(), 0u);
    EXPECT_TRUE(log.Contains("预约数量异常(1001)，限制范围[0-1000]"));
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
    const std::string good = "{\"id\":5,\"tokentype\":1,\"token\":\"T\",\"grouptokentype\":0,\"grouptoken\":\"\","
                             "\"expirytimesec\":" + std::to_string(now + 60) + "}";
    WriteText(path, "[" + good + ",{\"id\":-1},7,{\"id\":6,\"tokentype\":1,\"token\":\"" + std::string(37, 'x') +
                        "\",\"grouptokentype\":0,\"grouptoken\":\"\",\"expirytimesec\":" + std::to_string(now + 60) +
                        "}]");
    store = Reopen();
    EXPECT_EQ(store->Count(), 1u);
    EXPECT_EQ(store->GetReservationItem(5, nullptr), 1);
}

TEST_F(Reservations, PowerCutBeforeRenameKeepsThePreviousFile) {
    CReservationManager* store = Open();
    store->AddReservationItem(Item(1, now + 600));
    const std::string before = ReadText(path);
    // What a cut during a write leaves behind: a half-written temporary file.
    WriteText(path + "1", "[{\"id\":2,\"tokent");
    store = Reopen();
    EXPECT_EQ(store->Count(), 1u);
    EXPECT_EQ(store->GetReservationItem(1, nullptr), 1);

    // A write that cannot even create its temporary file leaves the store untouched.
    unlink((path + "1").c_str());
    ASSERT_EQ(mkdir((path + "1").c_str(), 0755), 0);
    EXPECT_EQ(store->AddReservationItem(Item(9, now + 600)), 0);
    EXPECT_TRUE(log.Contains("SyncToFile: openat(" + path + "1) failed errno="));
    EXPECT_EQ(ReadText(path), before);
    rmdir((path + "1").c_str());
}

TEST_F(Reservations, ReserveNowIsStoredBeforeTheHostAnswersAndCancelIsForwarded) {
    RecordingHost host;
    CReservationManager* store = Open();
    const std::string expiry = CTools::GetLocalTime(now + 3600);
    ASSERT_EQ(store->OnReserveNowRequest("msg-1", 12, 2, "TOKEN", 1, "GROUP", 4, expiry), 1);
    ReservationItem got;
    ASSERT_EQ(store->GetReservationItem(12, &got), 1);
    EXPECT_EQ(got.expiryTimeSec, static_cast<uint32_t>(now + 3600));

    ASSERT_TRUE(host.WaitForType(SERVERRECVTYPE_RESERVENOW));
    const std::string bytes = host.Records()[0].bytes;
    ASSERT_EQ(bytes.size(), sizeof(ReserveNowReq));
    ReserveNowReq record;
    memcpy(&record, bytes.data(), sizeof record);
    EXPECT_STREQ(record.base.messageId, "msg-1");
    EXPECT_EQ(record.id, 12);
    EXPECT_EQ(record.expiryDateTime, static_cast<uint32_t>(now + 3600));
    EXPECT_STREQ(record.idToken, "TOKEN");
    EXPECT_EQ(record.idTokenType, 1);
    EXPECT_EQ(record.evseId, 2);

    EXPECT_EQ(store->OnReserveNowRequest("msg-2", 13, 1, "T", 1, "", 0, "not a time"), 0);
    EXPECT_EQ(store->GetReservationItem(13, nullptr), 0);

    EXPECT_EQ(store->OnCancelReservationRequest("msg-3", 12), 1);
    EXPECT_EQ(store->OnCancelReservationRequest("msg-4", 99), 0);
    ASSERT_TRUE(host.WaitForType(SERVERRECVTYPE_CANCELRESERVATION, 2));
    EXPECT_EQ(Int32At(host.Records()[1].bytes, 41), 12);
    EXPECT_EQ(host.Records()[1].bytes.size(), sizeof(CancelReservationReq));

    EXPECT_EQ(store->OnReservationStatusUpdate(12), 1);
    EXPECT_EQ(store->GetReservationItem(12, nullptr), 0);
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
