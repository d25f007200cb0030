#include <gtest/gtest.h>

#include <Ocpp20Protocol.h>

#include <chrono>
#include <future>
#include <memory>
#include <string>
#include <vector>

#include "Ocpp20/Process/AuthorizeCache.h"
#include "Ocpp20/Process/VariableCache.h"
#include "Ocpp20/Process/VariableCharacteristics.h"
#include "Ocpp20/Process/VariableCustom.h"
#include "OcppProtocol/OcppProtocol.h"
#include "Process/PlugInManager.h"
#include "FrameSchema.h"
#include "RecordingHost.h"
#include "RecordingLink.h"
#include "TestSupport.h"
#include "Util/Tools.h"

using namespace ocpptest;

namespace {

// The authorization store opened in a fresh folder with the device model it reads.
class AuthorizeStore : public ::testing::Test {
protected:
    void SetUp() override { Open(dir); }
    // Every store bound to files in `folder`, from the defaults.
    void Open(const TempDir& folder) {
        ResetSdkState();
        OcppProtocol_InitOcppProtocol(OCPPPROTOCOL_201);
        ASSERT_NO_FATAL_FAILURE(OpenDeviceModel(folder));
        store = CAuthorizeCache::GetInstance();
        ASSERT_EQ(store->SetStoreFile(folder.file("authorizecache.db")), 1);
    }
    void TearDown() override {
        CAuthorizeCache::Release();
        CloseDeviceModel();
        ResetSdkState();
    }

    // The Entries count is written on its own thread; a test that changes the
    // list waits for it so that the write cannot land in the next test.
    static bool EntriesReach(int n) {
        const std::string want = std::to_string(n);
        const VariableDataItem20 entries = VariableDataItem20::Make("LocalAuthListCtrlr", "Entries");
        return WaitFor([&] { return CVariableCache::GetInstance()->GetVariableAttributeValue(entries) == want; });
    }

    static AuthorizeItem Item(const char* token, int type, int status, int32_t expiry = 0, const char* group = "") {
        AuthorizeItem item{};
        CTools::CopyField(item.token, token);
        item.tokenType = type;
        item.status = status;
        item.expiryTime = expiry;
        CTools::CopyField(item.groupToken, group);
        return item;
    }

    TempDir dir;
    CAuthorizeCache* store = nullptr;
};

enum { kISO14443 = 2, kCentral = 0, kBlocked = 1, kExpired = 3, kInvalid = 4, kNone = 255 };

struct Var {
    const char* component;
    const char* variable;
    const char* value;
};

std::string Entry(const std::string& token, const std::string& status) {
    const std::string info = status.empty() ? "" : ",\"idTokenInfo\":{\"status\":\"" + status + "\"}";
    return "{\"idToken\":{\"idToken\":\"" + token + "\",\"type\":\"ISO14443\"}" + info + "}";
}

std::string LocalList(int version, const char* type, const std::vector<std::string>& entries) {
    std::string list;
    for (const std::string& e : entries) list += (list.empty() ? "" : ",") + e;
    return "{\"versionNumber\":" + std::to_string(version) + ",\"updateType\":\"" + type +
           "\",\"localAuthorizationList\":[" + list + "]}";
}

class Authorize : public AuthorizeStore {
protected:
    void Online(bool online) { g_eSdkStatus = online ? SDKSTATUS_OK : SDKSTATUS_DISCONNECTED; }
    // The CSMS answers every Authorize with `status`; an empty status leaves it unanswered.
    void CsmsSays(const std::string& status, const std::string& extra = "") {
        link.Answer([status, extra](const std::string& id) -> std::string {
            if (status.empty()) return std::string();
            return "[3,\"" + id + "\",{\"idTokenInfo\":{\"status\":\"" + status + "\"" + extra + "}}]";
        });
    }
    static void Deliver(const std::string& id, const std::string& action, const std::string& payload) {
        DeliverTo20("[2,\"" + id + "\",\"" + action + "\"," + payload + "]");
    }
    // The status the station answers a SendLocalList with.
    std::string SendLocalList(int version, const char* type, const std::vector<std::string>& entries) {
        Deliver("sll", "SendLocalList", LocalList(version, type, entries));
        return Answered();
    }
    // The status text of the answer to the last request delivered.
    std::string Answered() {
        const std::string last = link.Last();
        const size_t at = last.find("\"status\": \"");
        if (at == std::string::npos) return last;
        const size_t from = at + 11;
        return last.substr(from, last.find('"', from) - from);
    }

    RecordingLink link;
    RecordingHost host;
};

const char kQuote[] = "O'Brien";
const char kInjection[] = "x' or '1'='1";

}  // namespace

TEST_F(Authorize, DecisionFollowsTheDeviceModelStepByStep) {
    const struct {
        const char* name;
        std::vector<Var> vars;
        bool online;
        int tokenType;
        int listStatus;   // kNone: not in the list
        int cacheStatus;  // kNone: not cached
        const char* csms; // "" silent
        int expected;
        size_t requests;
        AUTHORIZESOURCE source;
    } rows[] = {
        {"authorization disabled accepts every token", {{"AuthCtrlr", "Enabled", "false"}}, true, kISO14443, kBlocked,
         kNone, "Blocked", 0, 0, AUTHORIZESOURCE_EXEMPT},
        {"a NoAuthorization token is accepted", {}, true, 7, kNone, kNone, "Blocked", 0, 0, AUTHORIZESOURCE_EXEMPT},
        {"accepted in the local list", {}, true, kISO14443, 0, kNone, "Blocked", 0, 0, AUTHORIZESOURCE_LOCALLIST},
        {"accepted in the cache", {}, true, kISO14443, kNone, 0, "Blocked", 0, 0, AUTHORIZESOURCE_CACHE},
        {"a cache entry overrides a refusing list entry", {}, true, kISO14443, kBlocked, 0, "Blocked", 0, 0,
         AUTHORIZESOURCE_CACHE},
        {"blocked in the list, no post-authorize",
         {{"LocalAuthListCtrlr", "DisablePostAuthorize", "true"}}, true, kISO14443, kBlocked, kNone, "Accepted",
         kBlocked, 0, AUTHORIZESOURCE_LOCALLIST},
        {"blocked in the list is asked again online", {}, true, kISO14443, kBlocked, kNone, "Accepted", 0, 1,
         AUTHORIZESOURCE_CSMS},
        {"blocked in the cache, no post-authorize",
         {{"AuthCacheCtrlr", "DisablePostAuthorize", "true"}}, true, kISO14443, kNone, kBlocked, "Accepted",
         kBlocked, 0, AUTHORIZESOURCE_CACHE},
        {"offline unknown token with OfflineTxForUnknownId",
         {{"AuthCtrlr", "OfflineTxForUnknownIdEnabled", "true"}}, false, kISO14443, kNone, kNone, "", 0, 0,
         AUTHORIZESOURCE_OFFLINEUNKNOWN},
        {"offline unknown token without it", {}, false, kISO14443, kNone, kNone, "", kNone, 0, AUTHORIZESOURCE_NONE},
        {"offline blocked token never let through",
         {{"AuthCtrlr", "OfflineTxForUnknownIdEnabled", "true"}}, false, kISO14443, kBlocked, kNone, "", kBlocked, 0,
         AUTHORIZESOURCE_LOCALLIST},
        {"offline with local authorization off", {{"AuthCtrlr", "LocalAuthorizeOffline", "false"}}, false, kISO14443,
         0, kNone, "", kNone, 0, AUTHORIZESOURCE_NONE},
        {"remote authorization disabled", {{"AuthCtrlr", "DisableRemoteAuthorization", "true"}}, true, kISO14443,
         kNone, kNone, "Accepted", kNone, 0, AUTHORIZESOURCE_NONE},
        {"no pre-authorize asks the CSMS", {{"AuthCtrlr", "LocalPreAuthorize", "false"}}, true, kISO14443, 0, kNone,
         "Blocked", kBlocked, 1, AUTHORIZESOURCE_CSMS},
        {"silent CSMS keeps the local status", {}, true, kISO14443, kNone, kNone, "", kNone, 1,
         AUTHORIZESOURCE_NONE},
    };
    std::vector<std::unique_ptr<TempDir>> folders;
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        folders.emplace_back(new TempDir());  // every row starts from the defaults
        TearDown();
        Open(*folders.back());
        link.Clear();
        for (const Var& v : row.vars) SetLibraryVariable(v.component, v.variable, v.value);
        if (row.listStatus != kNone) {
            ASSERT_EQ(store->UpdateLocalList(1, {Item("CARD", row.tokenType, row.listStatus)}, 1), 1);
        }
        if (row.cacheStatus != kNone) {
            ASSERT_EQ(store->UpdateAuthorizeCache(Item("CARD", row.tokenType, row.cacheStatus)), 1);
        }
        Online(row.online);
        CsmsSays(row.csms);
        EXPECT_EQ(Ocpp20ProtocolPrivate_Authorize("CARD", row.tokenType), row.expected);
        EXPECT_EQ(link.Count("Authorize"), row.requests);
        EXPECT_EQ(Ocpp20ProtocolPrivate_GetAuthorizeSource(), row.source);
        if (row.listStatus != kNone) EntriesReach(2);
    }
}

TEST_F(Authorize, OnlineAnswerIsCachedWithTheDefaultLifetimeAndItsPersonalMessageReachesTheHost) {
    ClockGuard clock;
    CTools::FreezeClock(true);
    Online(true);
    CsmsSays("Accepted",
             ",\"groupIdToken\":{\"idToken\":\"FLEET\",\"type\":\"Central\"},"
             "\"personalMessage\":{\"format\":\"UTF8\",\"language\":\"en\",\"content\":\"Hello\"}");
    EXPECT_EQ(Ocpp20ProtocolPrivate_Authorize("CARD", kISO14443), 0);
    const std::unique_ptr<AuthorizeItem> cached = store->GetAuthorizeCacheItem("CARD", kISO14443);
    ASSERT_NE(cached, nullptr);
    EXPECT_EQ(cached->expiryTime, CTools::CurTimeSec() + 600) << "AuthCacheCtrlr.LifeTime when the CSMS gives none";
    EXPECT_EQ(store->GetGroupToken("CARD"), "FLEET");
    const PersonalMsg msg = host.RecordOf<PersonalMsg>(SERVERRECVTYPE_PERSONALMSG);
    EXPECT_STREQ(msg.content, "Hello");
    EXPECT_EQ(static_cast<int>(msg.format), 3);

    // Pre-authorized from the cache: the CSMS is not asked again.
    EXPECT_EQ(Ocpp20ProtocolPrivate_Authorize("CARD", kISO14443), 0);
    EXPECT_EQ(link.Count("Authorize"), 1u);

    // The CSMS's own expiry is kept; a Blocked answer is cached too.
    CsmsSays("Blocked", ",\"cacheExpiryDateTime\":\"2030-01-01T00:00:00.000Z\"");
    EXPECT_EQ(Ocpp20ProtocolPrivate_Authorize("OTHER", kISO14443), kBlocked);
    EXPECT_EQ(store->GetAuthorizeCacheItem("OTHER", kISO14443)->expiryTime, 1893456000);

    // With certificate data: cached the same way; no answer is Invalid.
    CsmsSays("Accepted");
    EXPECT_EQ(Ocpp20Protocol_AuthorizeWithCertificate(kISO14443, "CERT", "-----BEGIN CERTIFICATE-----"), 0);
    EXPECT_EQ(store->GetAuthorizeCacheItem("CERT", kISO14443)->expiryTime, CTools::CurTimeSec() + 600);
    link.Answer(nullptr);
    EXPECT_EQ(Ocpp20Protocol_AuthorizeWithCertificate(kISO14443, "CERT", "-----BEGIN CERTIFICATE-----"), kInvalid);
}

TEST_F(Authorize, WithThePricingPlugInListedItsReadingOfTheAnswerIsCachedAndItsTextsReachTheHost) {
    const std::string list = dir.file("pluginlist.json");
    WriteText(list, std::string(R"([{"name":"PlugInCaliforniaPrice","path":")") + OCPP_TEST_PRICE_PLUGIN_PATH +
                        R"(","autorun":false}])");
    ASSERT_EQ(CPlugInManager::GetInstance()->ReadAllPlugInInfo(list), 1);
    Online(true);
    CsmsSays("Accepted");
    EXPECT_EQ(Ocpp20ProtocolPrivate_Authorize("CARD", kISO14443), kBlocked) << "the plug-in's status, not the CSMS's";
    EXPECT_EQ(store->GetAuthorizeCacheItem("CARD", kISO14443)->expiryTime, 1893456000);
    EXPECT_EQ(store->GetGroupToken("CARD"), "PRICEGRP");
    EXPECT_TRUE(host.WaitForType(SERVERRECVTYPE_PERSONALMSG));
    const CaliforNiaCustomMsg price = host.RecordOf<CaliforNiaCustomMsg>(SERVERRECVTYPE_CALIFORNIACUSTOMMSG);
    EXPECT_EQ(host.Count(SERVERRECVTYPE_CALIFORNIACUSTOMMSG), 1u);
    EXPECT_STREQ(price.idToken, "CARD");
    EXPECT_STREQ(price.content, R"({"lines":[{"language":"en","text":"peak"}],"text":"0.30/kWh"})");
    CPlugInManager::Release();
}

TEST_F(Authorize, AnotherThreadsLocalListLookupIsNotHeldUpByAnAuthorizeWaitingOnASilentCsms) {
    ASSERT_EQ(store->UpdateLocalList(1, {Item("LISTED", kISO14443, 0)}, 1), 1);
    EntriesReach(2);
    std::promise<void> release;
    std::shared_future<void> released = release.get_future().share();
    link.Answer([released](const std::string&) {
        released.wait_for(std::chrono::seconds(5));
        return std::string();
    });
    Online(true);
    std::future<int> waiting = std::async(std::launch::async, [] {
        return Ocpp20ProtocolPrivate_Authorize("UNKNOWN", kISO14443);
    });
    ASSERT_TRUE(WaitFor([&] { return link.Count("Authorize") == 1; }));
    std::future<int> lookup = std::async(std::launch::async, [this] {
        int status = 0;
        return store->IsTokenAcceptFromLocalList("LISTED", kISO14443, &status);
    });
    EXPECT_EQ(lookup.wait_for(std::chrono::seconds(2)), std::future_status::ready)
        << "the store's lock is held across the network call";
    release.set_value();
    EXPECT_EQ(lookup.get(), 1);
    EXPECT_EQ(waiting.get(), kNone);
}

TEST_F(Authorize, SendLocalListChecksEnabledItemsPerMessageAndVersionOnlyForDifferential) {
    EXPECT_EQ(SendLocalList(5, "Full", {Entry("A", "Accepted"), Entry("B", "Blocked")}), "Accepted");
    EXPECT_EQ(store->GetLocalListVersion(), 5);
    EXPECT_EQ(SendLocalList(5, "Differential", {Entry("C", "Accepted")}), "VersionMismatch");
    EXPECT_EQ(SendLocalList(3, "Full", {Entry("A", "Accepted")}), "Accepted")
        << "a Full update is taken whatever its version";
    EXPECT_EQ(store->GetLocalListItem("B", kISO14443), nullptr) << "a Full update replaces the whole list";
    EXPECT_EQ(SendLocalList(4, "Differential", {Entry("A", ""), Entry("C", "Accepted")}), "Accepted");
    EXPECT_EQ(store->GetLocalListItem("A", kISO14443), nullptr) << "an entry without idTokenInfo is removed";
    EXPECT_NE(store->GetLocalListItem("C", kISO14443), nullptr);
    EXPECT_TRUE(EntriesReach(2));

    Deliver("v1", "GetLocalListVersion", "{}");
    EXPECT_NE(link.Last().find("\"versionNumber\": 4"), std::string::npos) << link.Last();

    SetLibraryVariable("LocalAuthListCtrlr", "ItemsPerMessage", "2");
    const std::vector<std::string> three = {Entry("A", "Accepted"), Entry("B", "Accepted"), Entry("D", "Accepted")};
    EXPECT_EQ(SendLocalList(6, "Full", three), "Failed") << "more entries than ItemsPerMessage";
    EXPECT_EQ(store->GetLocalListVersion(), 4);

    // The Entries maximum counts what the list will hold, the version row left out.
    VariableDataItem limit = HostVariable("LocalAuthListCtrlr", "Entries", "");
    limit.dataType = 2;
    limit.limitFlag = 2;
    limit.maxLimit = 2;
    ASSERT_EQ(CVariableCharacteristics::GetInstance()->AddVariableCharacteristics(limit), 1);
    SetLibraryVariable("LocalAuthListCtrlr", "ItemsPerMessage", "0");
    EXPECT_EQ(SendLocalList(5, "Differential", {Entry("D", "Accepted"), Entry("E", "Accepted")}), "Failed")
        << "1 stored + 2 new over a maximum of 2";
    EXPECT_EQ(SendLocalList(5, "Differential", {Entry("C", ""), Entry("D", "Accepted")}), "Accepted")
        << "a removal is not counted";
    EXPECT_TRUE(EntriesReach(2));

    SetLibraryVariable("LocalAuthListCtrlr", "Enabled", "false");
    EXPECT_EQ(SendLocalList(7, "Full", {Entry("A", "Accepted")}), "Failed");
    Deliver("v2", "GetLocalListVersion", "{}");
    EXPECT_NE(link.Last().find("\"versionNumber\": 0"), std::string::npos) << "a disabled list reads as version 0";
}

TEST_F(Authorize, ClearCacheEmptiesTheCacheEvenWhenTheAnswerIsRejected) {
    ASSERT_EQ(store->UpdateAuthorizeCache(Item("CARD", kISO14443, 0)), 1);
    Deliver("c1", "ClearCache", "{}");
    EXPECT_EQ(Answered(), "Accepted");
    EXPECT_EQ(store->GetAuthorizeCacheItem("CARD", kISO14443), nullptr);

    ASSERT_EQ(store->UpdateAuthorizeCache(Item("CARD", kISO14443, 0)), 1);
    SetLibraryVariable("AuthCacheCtrlr", "Enabled", "false");
    Deliver("c2", "ClearCache", "{}");
    EXPECT_EQ(Answered(), "Rejected") << "the cache is disabled";
    EXPECT_EQ(store->GetAuthorizeCacheItem("CARD", kISO14443), nullptr);
}

TEST_F(Authorize, NoLogLineOfAWholeAuthorizationRunShowsATokenInClear) {
    const std::string token = "CLEAR'TOKEN-0042";
    LogCapture log;
    Deliver("s1", "SendLocalList", LocalList(1, "Full", {Entry(token, "Blocked")}));
    Online(true);
    CsmsSays("Accepted");
    EXPECT_EQ(Ocpp20ProtocolPrivate_Authorize(token.c_str(), kISO14443), 0);
    EXPECT_EQ(Ocpp20ProtocolPrivate_Authorize(token.c_str(), kISO14443), 0);
    Online(false);
    EXPECT_EQ(Ocpp20ProtocolPrivate_Authorize(token.c_str(), kISO14443), 0);
    EXPECT_EQ(Ocpp20ProtocolPrivate_Authorize(token.c_str(), kCentral), kNone);
    store->UpdateAuthorizeCache(Item(token.c_str(), kCentral, 0));
    store->GetGroupToken(token.c_str());
    Deliver("c1", "ClearCache", "{}");
    EntriesReach(2);
    ASSERT_TRUE(log.Contains("Token:<" + CTools::Hash12(token) + ">"));
    for (const LogLine& line : log.Lines()) {
        EXPECT_EQ(line.text.find("CLEAR"), std::string::npos) << line.text;
    }
}

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
    SetLibraryVariable("AuthCacheCtrlr", "Available", "false");
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
}
