#include <gtest/gtest.h>

#include <cstring>
#include <vector>

#include "Ocpp20/Process/VariableCache.h"
#include "Ocpp20/Process/VariableCharacteristics.h"
#include "Ocpp20/Process/VariableCustom.h"
#include "RecordingLink.h"
#include "TestSupport.h"
#include "Util/Tools.h"

using namespace ocpptest;

namespace {

class HostVariables : public ::testing::Test {
protected:
    void SetUp() override {
        ASSERT_NO_FATAL_FAILURE(OpenDeviceModel(dir));
    }
    void TearDown() override {
        CloseDeviceModel();
    }
    TempDir dir;
    RecordingLink link;  // the answer to the CSMS must leave for the call to succeed
};

}  // namespace

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

TEST_F(HostVariables, UpdateAndUpgradeEntries) {
    VariableDataItem entries = HostVariable("LocalAuthListCtrlr", "Entries", "");
    EXPECT_EQ(OcppProtocol_UpdateVariableValue(&entries, "12"), VARIABLESTATUS_ACCEPTED);
    EXPECT_EQ(CVariableCache::GetInstance()->GetVariable("LocalAuthListCtrlr", "Entries").attributeValue,
              std::string("12"));

    VariableUpgradeItem up{};
    up.operation = VARIABLEUPGRADE_ADD;
    up.variable = HostVariable("HostCtrlr", "Mode", "A");
    up.variable.dataType = 5;
    CTools::CopyField(up.variable.valuesList, "A,B");
    ASSERT_EQ(OcppProtocol_UpgrageVariableData(1, &up), 1);
    CVariableCharacteristics* c = CVariableCharacteristics::GetInstance();
    EXPECT_EQ(c->CheckCharacteristics("C", "HostCtrlr", "Mode", "", "", 0, 0), 0);
    up.operation = VARIABLEUPGRADE_DELETE;
    ASSERT_EQ(OcppProtocol_UpgrageVariableData(1, &up), 1);
    EXPECT_EQ(c->CheckCharacteristics("C", "HostCtrlr", "Mode", "", "", 0, 0), 1);
    VariableDataItem20 gone = VariableDataItem20::Make("HostCtrlr", "Mode");
    EXPECT_EQ(CVariableCache::GetInstance()->GetVariable(&gone), 0);
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
