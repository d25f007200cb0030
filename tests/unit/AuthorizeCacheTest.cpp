#include <gtest/gtest.h>

#include "AuthorizeFixture.h"
#include "Ocpp20/Process/VariableCustom.h"

using namespace ocpptest;

namespace {

const char kQuote[] = "O'Brien";
const char kInjection[] = "x' or '1'='1";

}  // namespace

TEST_F(AuthorizeStore, TokenWithApostropheIsStoredFoundExpiredAndRemovedWithoutTouchingOtherRows) {
    const int32_t past = static_cast<int32_t>(CTools::CurTimeSec() - 10);
    ASSERT_EQ(store->UpdateLocalList(1, {Item(kQuote, kISO14443, 0, past), Item("PLAIN", kISO14443, kBlocked)}, 1), 1);
    ASSERT_EQ(store->UpdateAuthorizeCache(Item(kQuote, kISO14443, 0, past, "G'1")), 1);
    ASSERT_EQ(store->UpdateAuthorizeCache(Item("PLAIN", kISO14443, 0)), 1);

    int status = 0;
    EXPECT_EQ(store->IsTokenAcceptFromLocalList(kQuote, kISO14443, &status), 0);
    EXPECT_EQ(status, kExpired) << "expired on lookup in the local list";
    EXPECT_EQ(store->IsTokenAcceptFromAuthorizeCache(kQuote, kISO14443, &status), 0);
    EXPECT_EQ(status, kExpired) << "expired on lookup in the cache";
    EXPECT_EQ(store->GetGroupToken(kQuote), "G'1");

    // A token shaped like SQL matches nothing and changes nothing.
    EXPECT_EQ(store->IsTokenAcceptFromLocalList(kInjection, kISO14443, &status), 0);
    EXPECT_EQ(status, kNone);
    ASSERT_EQ(store->UpdateLocalList(2, {Item(kInjection, kISO14443, kNone)}, 0), 1);
    ASSERT_EQ(store->DeleteAuthorizeCacheItem(Item(kInjection, kISO14443, 0)), 1);
    EXPECT_NE(store->GetLocalListItem("PLAIN", kISO14443), nullptr);
    EXPECT_NE(store->GetAuthorizeCacheItem("PLAIN", kISO14443), nullptr);

    ASSERT_EQ(store->UpdateLocalList(3, {Item(kQuote, kISO14443, kNone)}, 0), 1);
    ASSERT_EQ(store->DeleteAuthorizeCacheItem(Item(kQuote, kISO14443, 0)), 1);
    EXPECT_EQ(store->GetLocalListItem(kQuote, kISO14443), nullptr);
    EXPECT_EQ(store->GetAuthorizeCacheItem(kQuote, kISO14443), nullptr);
    EXPECT_NE(store->GetLocalListItem("PLAIN", kISO14443), nullptr);
    EXPECT_TRUE(EntriesReach(2));
}

TEST_F(AuthorizeStore, AcceptedEntryPastItsExpiryIsAnsweredAndRewrittenExpiredWhileNoExpiryNeverExpires) {
    ClockGuard clock;
    const int32_t soon = static_cast<int32_t>(CTools::CurTimeSec() + 60);
    ASSERT_EQ(store->UpdateAuthorizeCache(Item("SOON", kISO14443, 0, soon)), 1);
    ASSERT_EQ(store->UpdateAuthorizeCache(Item("EVER", kISO14443, 0, 0)), 1);
    ASSERT_EQ(store->UpdateAuthorizeCache(Item("BLOCKED", kISO14443, kBlocked, soon)), 1);
    int status = 0;
    EXPECT_EQ(store->IsTokenAcceptFromAuthorizeCache("SOON", kISO14443, &status), 1);

    CTools::AdvanceClockMs(120 * 1000);
    EXPECT_EQ(store->IsTokenAcceptFromAuthorizeCache("SOON", kISO14443, &status), 0);
    EXPECT_EQ(status, kExpired);
    EXPECT_EQ(store->GetAuthorizeCacheItem("SOON", kISO14443)->status, kExpired) << "the row itself turns Expired";
    EXPECT_EQ(store->IsTokenAcceptFromAuthorizeCache("EVER", kISO14443, &status), 1);
    EXPECT_EQ(store->IsTokenAcceptFromAuthorizeCache("BLOCKED", kISO14443, &status), 0);
    EXPECT_EQ(status, kBlocked) << "only Accepted rows expire";
}

TEST_F(AuthorizeStore, EntriesCountsTheVersionRowAndTheHostViewLeavesItOut) {
    ASSERT_EQ(store->UpdateLocalList(7, {Item("A", kISO14443, 0), Item("B", kISO14443, 0), Item("C", kISO14443, 0)}, 1),
              1);
    EXPECT_EQ(store->GetLocalListVersion(), 7);
    EXPECT_EQ(store->GetCurLocalListEntries(), 4);
    EXPECT_TRUE(EntriesReach(4)) << "LocalAuthListCtrlr.Entries after a Full update of 3 tokens";

    // Differential: a removal of a missing row is no error; a changed row is updated.
    ASSERT_EQ(store->UpdateLocalList(8, {Item("A", kISO14443, kNone), Item("Z", kISO14443, kNone),
                                         Item("B", kISO14443, kBlocked, 0, "GRP")}, 0),
              1);
    EXPECT_EQ(store->GetLocalListVersion(), 8);
    EXPECT_EQ(store->GetLocalListItem("B", kISO14443)->status, kBlocked);
    EXPECT_EQ(store->GetGroupToken("B"), "GRP");

    const std::vector<AuthorizeItem> view = store->GetTokenWhiteItems();
    ASSERT_EQ(view.size(), 2u) << "the version row is not a token";
    ASSERT_EQ(store->SetTokenWhiteItems({Item("H1", kISO14443, 0)}), 1);
    EXPECT_EQ(store->GetLocalListVersion(), 8) << "the host's list keeps the CSMS's version";
    EXPECT_EQ(store->GetTokenWhiteItems().size(), 1u);
    EXPECT_TRUE(EntriesReach(2));
}

TEST_F(AuthorizeStore, CacheKeepsNoCentralOrEmptyTokenAndNothingWhenUnavailable) {
    EXPECT_EQ(store->UpdateAuthorizeCache(Item("CENTRAL", kCentral, 0)), 0);
    EXPECT_EQ(store->UpdateAuthorizeCache(Item("", kISO14443, 0)), 0);
    EXPECT_EQ(store->GetAuthorizeCacheItem("CENTRAL", kCentral), nullptr);
    ASSERT_EQ(store->UpdateAuthorizeCache(Item("CARD", kISO14443, 0)), 1);
    ASSERT_EQ(store->UpdateAuthorizeCache(Item("CARD", kISO14443, kBlocked)), 1) << "a second answer updates the row";
    EXPECT_EQ(store->GetAuthorizeCacheItem("CARD", kISO14443)->status, kBlocked);
    Set("AuthCacheCtrlr", "Available", "false");
    EXPECT_EQ(store->UpdateAuthorizeCache(Item("OTHER", kISO14443, 0)), 0);
}

TEST_F(AuthorizeStore, ReopeningTheSameFileKeepsTheRowsAndANewConnectionStartsEmpty) {
    ASSERT_EQ(store->UpdateAuthorizeCache(Item("CARD", kISO14443, 0)), 1);
    EXPECT_EQ(store->SetStoreFile(dir.file("authorizecache.db")), 1);
    CAuthorizeCache::Release();
    ASSERT_EQ(store->SetStoreFile(dir.file("authorizecache.db")), 1);
    EXPECT_NE(store->GetAuthorizeCacheItem("CARD", kISO14443), nullptr) << "rows survive a restart";
    ASSERT_EQ(store->SetStoreFile(dir.file("other.db")), 1);
    EXPECT_EQ(store->GetAuthorizeCacheItem("CARD", kISO14443), nullptr);
}

TEST_F(AuthorizeStore, ListContentReadsAndReplacesTheHostsTokenList) {
    ASSERT_EQ(store->UpdateLocalList(4, {Item("OLD", kISO14443, 0)}, 1), 1);
    VariableDataItem20 list = VariableDataItem20::Make("LocalAuthListCtrlr", "ListContent");
    CTools::CopyField(list.attributeValue,
                      R"([{"idToken":"N'EW","type":"ISO14443","status":"Blocked","groupIdToken":"G",)"
                      R"("ExpiryDateTime":"2030-01-01T00:00:00.000Z"}])");
    ASSERT_EQ(CVariableCustom::GetInstance()->SetCustomVariable(list), 1);
    EXPECT_EQ(store->GetLocalListItem("OLD", kISO14443), nullptr);
    EXPECT_EQ(store->GetLocalListVersion(), 4);
    EXPECT_EQ(CVariableCustom::GetInstance()->GetCustomVariable(list),
              R"([{"ExpiryDateTime":"2030-01-01T00:00:00.000Z","groupIdToken":"G","idToken":"N'EW",)"
              R"("status":"Blocked","type":"ISO14443"}])");
    EXPECT_TRUE(EntriesReach(2));
    CVariableCustom::Release();
}
