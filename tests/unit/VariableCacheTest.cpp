#include <gtest/gtest.h>
#include <sys/stat.h>

#include <cstring>
#include <string>
#include <vector>

#include "Ocpp20/Process/VariableCache.h"
#include "Ocpp20/Process/VariableCharacteristics.h"
#include "Ocpp20/Process/VariableCustom.h"
#include "RecordingLink.h"
#include "TestSupport.h"
#include "Util/Tools.h"

using namespace ocpptest;

namespace {

ino_t InodeOf(const std::string& path) {
    struct stat st {};
    stat(path.c_str(), &st);
    return st.st_ino;
}

// One stored variable as the file holds it.
std::string Record(const std::string& component, const std::string& variable, const std::string& value) {
    return "{\"type\":0,\"variablemode\":0,\"value\":\"" + value + "\",\"componentname\":\"" + component +
           "\",\"variablename\":\"" + variable +
           "\",\"componentinstance\":\"\",\"variableinstance\":\"\",\"evseid\":0,\"connectorid\":0}";
}

std::string HostRecords(int count) {
    std::string text = "[";
    for (int i = 0; i < count; ++i) text += (i ? "," : "") + Record("HostCtrlr", "V" + std::to_string(i), std::to_string(i));
    return text + "]";
}

VariableDataItem20 Var(const char* component, const char* variable, const char* value = "",
                       const char* instance = "") {
    VariableDataItem20 v = VariableDataItem20::Make(component, variable, instance);
    CTools::CopyField(v.attributeValue, value);
    return v;
}

class VariableStore : public ::testing::Test {
protected:
    void SetUp() override { path = dir.file("variablecache.json"); }
    void TearDown() override { CloseDeviceModel(); }
    CVariableCache* Open() {
        CVariableCache* cache = CVariableCache::GetInstance();
        cache->InitDefault();
        EXPECT_EQ(cache->SetStoreFile(path), 1);
        return cache;
    }
    CVariableCache* Reopen() {
        CVariableCache::Release();
        return Open();
    }
    TempDir dir;
    std::string path;
};

// The host's calls, with the device model opened as a connection opens it.
class HostVariables : public VariableStore {
protected:
    void SetUp() override {
        VariableStore::SetUp();
        ASSERT_NO_FATAL_FAILURE(OpenDeviceModel(dir));
    }
    RecordingLink link;  // the answer to the CSMS must leave for the call to succeed
};

}  // namespace

TEST_F(VariableStore, NewDamagedOrEmptyStoreStartsWithTheBuiltInDefaults) {
    CVariableCache* cache = Open();
    ASSERT_TRUE(ReadJson(path).isArray());
    ASSERT_EQ(ReadJson(path).size(), 64u);
    EXPECT_EQ(ReadText(path).find('\n'), std::string::npos) << "the store is one compact line";
    // Not in the register and not declared by the host: neutral values, no failure.
    EXPECT_EQ(cache->OCPPCommCtrlrMessageTimeout(), 0);
    EXPECT_FALSE(cache->TxCtrlrStopTxOnInvalidId());
    EXPECT_EQ(cache->SampledDataCtrlrTxUpdatedInterval(), 0);

    const std::string deep(5000, '[');
    for (const std::string& content : {std::string("{not json"), std::string(""), std::string("[]"),
                                       std::string("{\"type\":0}"), std::string("42"), deep}) {
        LogCapture log;
        WriteText(path, content);
        cache = Reopen();
        EXPECT_EQ(cache->GetFullVariables().size(), 64u) << content.substr(0, 20);
        EXPECT_EQ(ReadJson(path).size(), 64u) << "the defaults must be written back";
        if (content != "[]") {
            EXPECT_TRUE(log.Contains("Variables File  json parse failed \n")) << content.substr(0, 20);
        }
    }
}

TEST_F(VariableStore, StoreOfThreeThousandRecordsLoadsButOneMoreIsReplacedByDefaults) {
    WriteText(path, HostRecords(3000));
    CVariableCache* cache = Open();
    EXPECT_EQ(cache->GetFullVariables().size(), 3000u + 64u);
    EXPECT_STREQ(cache->GetVariable("HostCtrlr", "V2999").attributeValue, "2999");

    LogCapture log;
    WriteText(path, HostRecords(3001));
    cache = Reopen();
    EXPECT_EQ(cache->GetFullVariables().size(), 64u);
    EXPECT_TRUE(log.Contains("变量数量超标(3001 > 3000)，加载默认配置"));
}

TEST_F(VariableStore, NotPersistentVariablesAreForgottenAfterRestart) {
    CVariableCache* cache = Open();
    VariableDataItem20 session = Var("HostCtrlr", "SessionKey", "abc");
    session.notPersistent = 1;
    ASSERT_EQ(cache->SetVariables({session, Var("HostCtrlr", "Kept", "1")}), 1);
    EXPECT_STREQ(cache->GetVariable("HostCtrlr", "SessionKey").attributeValue, "abc");

    cache = Reopen();
    VariableDataItem20 query = Var("HostCtrlr", "SessionKey");
    EXPECT_EQ(cache->GetVariable(&query), 0);
    EXPECT_STREQ(cache->GetVariable("HostCtrlr", "Kept").attributeValue, "1");
}

TEST_F(VariableStore, OlderStoreKeepsItsValuesAndGainsNewDefaultsAtTheEnd) {
    WriteText(path, "[" + Record("OCPPCommCtrlr", "OfflineThreshold", "99") + "]");
    CVariableCache* cache = Open();
    EXPECT_EQ(cache->OCPPCommCtrlrOfflineThreshold(), 99);
    const std::vector<VariableDataItem20> all = cache->GetFullVariables();
    ASSERT_EQ(all.size(), 64u);
    EXPECT_STREQ(all[0].variableName, "OfflineThreshold");
    EXPECT_STREQ(all[1].variableName, "TxStartPoint");
    EXPECT_EQ(ReadJson(path).size(), 64u);
}

TEST_F(VariableStore, ExactVariableWithWrongAttributeStaysNotSupportedDespiteLaterVariables) {
    CVariableCache* cache = Open();
    int mode = -1;
    VariableDataItem20 query = Var("AuthCtrlr", "Enabled");
    query.attributeType = VARIABLEATTRIBUTETYPE_MAXSET;
    EXPECT_EQ(cache->CheckStatus(query, mode), VARIABLESTATUS_NOTSUPPORTEDATTRIBUTETYPE);
    EXPECT_EQ(mode, -1);
    query.attributeType = VARIABLEATTRIBUTETYPE_ACTUAL;
    EXPECT_EQ(cache->CheckStatus(query, mode), VARIABLESTATUS_ACCEPTED);
    EXPECT_EQ(mode, VARIABLEMODE_READWRITE);

    VariableDataItem20 evseQuery = Var("AuthCtrlr", "Enabled");
    evseQuery.evseId = 1;
    EXPECT_EQ(cache->CheckComponentStatus(evseQuery, mode), VARIABLESTATUS_UNKNOWNCOMPONENT);
    EXPECT_EQ(cache->CheckComponentStatus(Var("AuthCtrlr", ""), mode), VARIABLESTATUS_ACCEPTED);
    VariableDataItem20 withBoth = Var("DeviceDataCtrlr", "ItemsPerMessage");
    CTools::CopyField(withBoth.componentInstance, "X");
    withBoth.evseId = 1;
    EXPECT_EQ(cache->CheckComponentStatus(withBoth, mode), VARIABLESTATUS_UNKNOWNCOMPONENT);
    EXPECT_EQ(cache->CheckVariableStatus(Var("", "ItemsPerMessage", "", "GetReport"), mode), VARIABLESTATUS_ACCEPTED);
    EXPECT_EQ(mode, VARIABLEMODE_READONLY);
    EXPECT_EQ(cache->CheckVariableStatus(Var("", "Nothing"), mode), VARIABLESTATUS_UNKNOWNVARIABLE);
}

TEST_F(VariableStore, ChangedVariableMovesToTheEndAndIsWrittenOncePerChange) {
    CVariableCache* cache = Open();
    const ino_t before = InodeOf(path);
    ASSERT_EQ(cache->SetVariables({Var("OCPPCommCtrlr", "OfflineThreshold", "20")}), 1);
    const ino_t afterFirst = InodeOf(path);
    EXPECT_NE(afterFirst, before) << "a change must rewrite the store";
    ASSERT_EQ(cache->SetVariables({Var("OCPPCommCtrlr", "OfflineThreshold", "20")}), 1);
    EXPECT_EQ(InodeOf(path), afterFirst) << "the same value again must not rewrite the store";

    const std::vector<VariableDataItem20> all = cache->GetFullVariables();
    ASSERT_EQ(all.size(), 64u);
    EXPECT_STREQ(all.back().variableName, "OfflineThreshold");
    EXPECT_EQ(all.back().mode, VARIABLEMODE_READWRITE);
    EXPECT_EQ(Reopen()->OCPPCommCtrlrOfflineThreshold(), 20);
}

TEST_F(VariableStore, FailedRewriteKeepsTheOldFileAndTheChangeInMemory) {
    CVariableCache* cache = Open();
    const std::string before = ReadText(path);
    ASSERT_EQ(mkdir((path + "1").c_str(), 0755), 0);  // the temporary file cannot be created
    EXPECT_EQ(cache->SetVariables({Var("OCPPCommCtrlr", "OfflineThreshold", "30")}), 0);
    EXPECT_EQ(ReadText(path), before);
    EXPECT_EQ(cache->OCPPCommCtrlrOfflineThreshold(), 30);
    rmdir((path + "1").c_str());
}

TEST_F(VariableStore, StationClockIsReadLiveNotFromTheStore) {
    ClockGuard clock;
    CVariableCache* cache = Open();
    CTools::FreezeClock(true);
    CTools::AdvanceClockMs(3600 * 1000);
    const std::string now = CTools::GetLocalTime(CTools::CurTimeMilSec() / 1000);

    VariableDataItem20 query = Var("ClockCtrlr", "DateTime");
    ASSERT_EQ(cache->GetVariable(&query), 1);
    EXPECT_EQ(query.attributeValue, now);
    EXPECT_EQ(query.status, VARIABLESTATUS_ACCEPTED);
    // The GetVariables answer is checked by the device model request test.
    for (const VariableDataItem20& v : cache->FilterFromVariableMode(VARIABLEMODE_READONLY)) {
        if (strcmp(v.variableName, "DateTime") == 0) {
            EXPECT_EQ(v.attributeValue, now);
        }
    }
}

TEST_F(VariableStore, LooseLookupMatchesEveryEvseButExactLookupDoesNot) {
    CVariableCache* cache = Open();
    VariableDataItem20 evse1 = Var("EVSE", "Power", "11", "");
    evse1.evseId = 1;
    VariableDataItem20 evse2 = evse1;
    evse2.evseId = 2;
    VariableDataItem20 evse2Max = evse2;
    evse2Max.attributeType = VARIABLEATTRIBUTETYPE_MAXSET;
    CTools::CopyField(evse2Max.attributeValue, "22");
    cache->SetVariables({evse1, evse2, evse2Max});

    EXPECT_EQ(cache->GetVariables(Var("EVSE", "Power"), 0).size(), 3u);
    EXPECT_EQ(cache->GetVariables(Var("EVSE", ""), 0).size(), 3u);
    EXPECT_EQ(cache->GetVariables(Var("EVSE", "Power"), 1).size(), 0u) << "exact lookup compares the EVSE";
    VariableDataItem20 q = Var("EVSE", "Power");
    q.evseId = 2;
    const std::vector<VariableDataItem20> both = cache->GetVariables(q, 0);
    EXPECT_EQ(both.size(), 2u);
    EXPECT_EQ(CVariableCache::GetMaxValue(both), "22");
    EXPECT_EQ(CVariableCache::GetMinValue(both), "");
    EXPECT_EQ(cache->GetVariables(q, 1).size(), 1u);
}

TEST(VariableRecords, TransactionPointsSkipUnknownWords) {
    EXPECT_EQ(CVariableCache::GetPoint("EVConnected,Bogus,DataSigned,ParkingBayOccupancy"),
              (std::vector<int>{TRANSACTIONSTARTPOINT_EVCONNECTED, TRANSACTIONSTARTPOINT_DATASIGNED,
                                TRANSACTIONSTARTPOINT_PARKINGBAYOCCUPANCY}));
    EXPECT_TRUE(CVariableCache::GetPoint("").empty());
}

TEST(VariableRecords, OverlongTextsAreCutToTheirFields) {
    Json::Value obj;
    obj["value"] = std::string(5000, 'v');
    obj["componentname"] = std::string(200, 'c');
    obj["type"] = "not a number";
    VariableDataItem20 item;
    ASSERT_TRUE(item.FromJson(obj));
    EXPECT_EQ(strlen(item.attributeValue), 1000u);
    EXPECT_EQ(strlen(item.componentName), 50u);
    EXPECT_EQ(item.attributeType, 0);
    EXPECT_FALSE(item.FromJson(Json::Value("text")));
}

TEST_F(VariableStore, StoredTextsSurviveQuotesControlCharactersAndChinese) {
    CVariableCache* cache = Open();
    const std::string tricky = "say \"hi\"\\ \n\t\x01 充电桩";
    ASSERT_EQ(cache->SetVariables({Var("HostCtrlr", "Greeting", tricky.c_str())}), 1);
    const std::string text = ReadText(path);
    EXPECT_EQ(text.rfind("[{\"type\":0,\"variablemode\":0,\"value\":\"PowerPathClosed", 0), 0u)
        << "keys are written in the file's fixed order";
    EXPECT_EQ(Reopen()->GetVariable("HostCtrlr", "Greeting").attributeValue, tricky);
}

TEST_F(HostVariables, DeclaredVariablesAreStoredWithTheirCharacteristicsAndReadBack) {
    VariableDataItem declared[2] = {HostVariable("HostCtrlr", "Volume", "7"),
                                    HostVariable("HostCtrlr", "Refused", "1", 0, 1)};
    CTools::CopyField(declared[0].unit, "dB");
    declared[0].dataType = 2;
    declared[0].limitFlag = 3;
    declared[0].minLimit = 0;
    declared[0].maxLimit = 11;
    ASSERT_EQ(OcppProtocol_SetVariableData(2, declared, 0), 1);

    VariableDataItem query = HostVariable("HostCtrlr", "", "");
    VariableDataItem out[4];
    int count = 4;
    ASSERT_EQ(OcppProtocol_GetVariableData(&query, 0, &count, out), 1);
    ASSERT_EQ(count, 1) << "only Accepted records are stored";
    EXPECT_STREQ(out[0].variableName, "Volume");
    EXPECT_STREQ(out[0].attributeValue, "7");
    EXPECT_STREQ(out[0].unit, "dB");
    EXPECT_FLOAT_EQ(out[0].maxLimit, 11);
    EXPECT_EQ(CVariableCharacteristics::GetInstance()->CheckCharacteristics("12", "HostCtrlr", "Volume", "", "", 0, 0),
              0);

    // An answer to the CSMS stores the value but leaves the declared characteristics alone.
    VariableDataItem answer = HostVariable("HostCtrlr", "Volume", "9");
    ASSERT_EQ(OcppProtocol_SetVariables("msg-1", 1, &answer), 1);
    count = 4;
    OcppProtocol_GetVariableData(&query, 0, &count, out);
    EXPECT_STREQ(out[0].attributeValue, "9");
    EXPECT_STREQ(out[0].unit, "dB");
}

TEST_F(HostVariables, ReadsNeverWriteBeyondTheGivenCapacity) {
    VariableDataItem query = HostVariable("AuthCtrlr", "", "");
    VariableDataItem out[3];
    memset(out, 0x5a, sizeof out);
    int count = 2;
    ASSERT_EQ(OcppProtocol_GetVariableData(&query, 0, &count, out), 1);
    EXPECT_EQ(count, 7) << "all matches are counted";
    EXPECT_STREQ(out[1].componentName, "AuthCtrlr");
    EXPECT_EQ(static_cast<unsigned char>(out[2].componentName[0]), 0x5a) << "third record must stay untouched";
    count = 0;
    EXPECT_EQ(OcppProtocol_GetVariableData(&query, 0, &count, nullptr), 1);
    EXPECT_EQ(count, 7);
    EXPECT_EQ(OcppProtocol_GetVariableData(nullptr, 0, &count, out), 0);
}

TEST_F(HostVariables, UnterminatedHostTextsAreCut) {
    VariableDataItem v = HostVariable("HostCtrlr", "Long", "");
    memset(v.attributeValue, 'x', sizeof v.attributeValue);
    memset(v.variableName, 'n', sizeof v.variableName);
    ASSERT_EQ(OcppProtocol_SetVariableData(1, &v, 0), 1);
    std::vector<VariableDataItem20> all = CVariableCache::GetInstance()->GetFullVariables();
    EXPECT_EQ(strlen(all.back().attributeValue), 1000u);
    EXPECT_EQ(strlen(all.back().variableName), 50u);
}

TEST_F(HostVariables, HostMayUpdateReadOnlyValuesAndUpgradeKeepsTheStoredValue) {
    VariableDataItem entries = HostVariable("LocalAuthListCtrlr", "Entries", "");
    EXPECT_EQ(OcppProtocol_UpdateVariableValue(&entries, "12"), VARIABLESTATUS_ACCEPTED);
    VariableDataItem unknown = HostVariable("NoSuchCtrlr", "Entries", "");
    EXPECT_EQ(OcppProtocol_UpdateVariableValue(&unknown, "12"), VARIABLESTATUS_UNKNOWNCOMPONENT);
    CVariableCache::GetInstance()->SetVariables({Var("HostCtrlr", "Volume", "7")});

    VariableUpgradeItem up[2] = {};
    up[0].operation = VARIABLEUPGRADE_UPDATE;
    up[0].variable = HostVariable("HostCtrlr", "Volume", "0", VARIABLEMODE_READONLY);
    up[1].operation = VARIABLEUPGRADE_ADD;
    up[1].variable = HostVariable("HostCtrlr", "Mode", "A");
    up[1].variable.dataType = 5;
    CTools::CopyField(up[1].variable.valuesList, "A,B");
    ASSERT_EQ(OcppProtocol_UpgrageVariableData(2, up), 1);
    VariableDataItem20 volume = CVariableCache::GetInstance()->GetVariable("HostCtrlr", "Volume");
    EXPECT_STREQ(volume.attributeValue, "7");
    EXPECT_EQ(volume.mode, VARIABLEMODE_READONLY);
    CVariableCharacteristics* c = CVariableCharacteristics::GetInstance();
    EXPECT_EQ(c->CheckCharacteristics("C", "HostCtrlr", "Mode", "", "", 0, 0), 0);

    up[0].operation = VARIABLEUPGRADE_DELETE;
    up[1].operation = VARIABLEUPGRADE_DELETE;
    ASSERT_EQ(OcppProtocol_UpgrageVariableData(2, up), 1);
    EXPECT_EQ(c->CheckCharacteristics("C", "HostCtrlr", "Mode", "", "", 0, 0), 1);
    for (int restarted = 0; restarted < 2; ++restarted) {
        for (const char* name : {"Volume", "Mode"}) {
            VariableDataItem20 gone = Var("HostCtrlr", name);
            EXPECT_EQ(CVariableCache::GetInstance()->GetVariable(&gone), 0) << name << " deleted, restarted " << restarted;
        }
        CloseDeviceModel();
        ASSERT_NO_FATAL_FAILURE(OpenDeviceModel(dir));
    }
    EXPECT_STREQ(CVariableCache::GetInstance()->GetVariable("LocalAuthListCtrlr", "Entries").attributeValue, "12");
}

TEST(CustomVariables, LocalListContentParsesOnlyArrays) {
    std::vector<CustomTokenItem> items;
    ASSERT_TRUE(CVariableCustom::ParseTokenList(
        "[{\"idToken\":\"ABC\",\"type\":\"ISO14443\",\"status\":\"Blocked\",\"groupIdToken\":\"G\","
        "\"ExpiryDateTime\":\"2030-01-01T00:00:00Z\"},{\"idToken\":\"" + std::string(60, 'z') + "\"}]",
        items));
    ASSERT_EQ(items.size(), 2u);
    EXPECT_STREQ(items[0].idToken, "ABC");
    EXPECT_EQ(CVariableCustom::GetTokenTypeInString(items[0].type), "ISO14443");
    EXPECT_EQ(CVariableCustom::GetTokenStatusInString(items[0].status), "Blocked");
    EXPECT_EQ(items[0].expiryDateTime, CTools::GetTimeByString("2030-01-01T00:00:00Z"));
    EXPECT_EQ(strlen(items[1].idToken), 36u);
    EXPECT_EQ(items[1].type, -1);
    EXPECT_FALSE(CVariableCustom::ParseTokenList("{\"idToken\":\"ABC\"}", items));
    EXPECT_FALSE(CVariableCustom::ParseTokenList("garbage", items));

    CVariableCustom* custom = CVariableCustom::GetInstance();
    VariableDataItem20 list = VariableDataItem20::Make("LocalAuthListCtrlr", "ListContent");
    EXPECT_TRUE(custom->IsCustomVariable(list));
    EXPECT_EQ(custom->GetCustomVariable(list), "[]");
    CTools::CopyField(list.attributeValue, "not a list");
    EXPECT_EQ(custom->SetCustomVariable(list), 0);
    EXPECT_FALSE(custom->IsCustomVariable(VariableDataItem20::Make("LocalAuthListCtrlr", "Entries")));
    CVariableCustom::Release();
}
