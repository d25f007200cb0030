#include <gtest/gtest.h>

#include <string>

#include "Ocpp20/Process/VariableCharacteristics.h"
#include "TestSupport.h"
#include "Util/Tools.h"

using namespace ocpptest;
using namespace Ocpp20;

namespace {

class Characteristics : public ::testing::Test {
protected:
    void TearDown() override { CVariableCharacteristics::Release(); }
    int Check(const char* component, const char* variable, const char* value, const char* instance = "") {
        return CVariableCharacteristics::GetInstance()->CheckCharacteristics(value, component, variable, instance, "",
                                                                             0, 0);
    }
    static VariableDataItem Declared(const char* component, const char* variable, int dataType, float minLimit,
                                     float maxLimit, int flag, const char* values = "") {
        VariableDataItem v = HostVariable(component, variable, "");
        v.dataType = static_cast<int8_t>(dataType);
        v.minLimit = minLimit;
        v.maxLimit = maxLimit;
        v.limitFlag = static_cast<int8_t>(flag);
        CTools::CopyField(v.valuesList, values);
        v.supportsMonitoring = 1;
        return v;
    }
    // A restart: the store comes back from its file only.
    CVariableCharacteristics* Reopen() {
        CVariableCharacteristics::Release();
        CVariableCharacteristics* c = CVariableCharacteristics::GetInstance();
        EXPECT_EQ(c->SetStoreFile(path), 1);
        return c;
    }
    TempDir dir;
    const std::string path = dir.file("VariableCharacteristicscache.json");
};

}  // namespace

TEST_F(Characteristics, TextLengthLimits) {
    EXPECT_EQ(Check("TariffCostCtrlr", "Currency", "EURO"), 0);
    EXPECT_EQ(Check("TariffCostCtrlr", "Currency", "EUR"), 1);
    EXPECT_EQ(Check("TariffCostCtrlr", "Currency", ""), 1);
    EXPECT_EQ(Check("AuthCtrlr", "MasterPassGroupId", std::string(37, 'g').c_str()), 0);
    EXPECT_EQ(Check("TariffCostCtrlr", "TariffFallbackMessage", std::string(255, 'm').c_str()), 1);
}

TEST_F(Characteristics, IntegerRangesAndSyntax) {
    LogCapture log;
    EXPECT_EQ(Check("MonitoringCtrlr", "ActiveMonitoringLevel", "10"), 0);
    EXPECT_TRUE(log.Contains(" is out of range(0-9)"));
    EXPECT_EQ(Check("MonitoringCtrlr", "ActiveMonitoringLevel", "9"), 1);
    EXPECT_EQ(Check("MonitoringCtrlr", "ActiveMonitoringLevel", "-1"), 0);
    EXPECT_EQ(Check("OCPPCommCtrlr", "OfflineThreshold", "-5"), 0);
    EXPECT_TRUE(log.Contains(" is less then minlimit:0"));
    EXPECT_EQ(Check("OCPPCommCtrlr", "OfflineThreshold", "3.5"), 0);
    EXPECT_TRUE(log.Contains("value:3.5 is not integer"));
    EXPECT_EQ(Check("DisplayMessageCtrlr", "DisplayMessages", "11"), 0);
    EXPECT_EQ(Check("DisplayMessageCtrlr", "DisplayMessages", "10"), 1);
    EXPECT_EQ(Check("OCPPCommCtrlr", "OfflineThreshold", "99999999999999999999"), 1) << "huge but positive";
}

TEST_F(Characteristics, OptionMemberAndSequenceLists) {
    EXPECT_EQ(Check("ClockCtrlr", "NtpSource", "DHCP,manual"), 0) << "an option list takes one word";
    EXPECT_EQ(Check("ClockCtrlr", "NtpSource", "manual"), 1);
    EXPECT_EQ(Check("ClockCtrlr", "NtpSource", ""), 0);
    EXPECT_EQ(Check("TxCtrlr", "TxStartPoint", "Authorized,EVConnected"), 1);
    EXPECT_EQ(Check("TxCtrlr", "TxStartPoint", "Authorized,Plugged"), 0);
    EXPECT_EQ(Check("TxCtrlr", "TxStartPoint", ""), 1) << "an empty member list is allowed";
    EXPECT_EQ(Check("TxCtrlr", "TxStopPoint", "DataSigned"), 0) << "the stop list has no DataSigned";
    EXPECT_EQ(Check("OCPPCommCtrlr", "NetworkConfigurationPriority", "2,1"), 1) << "order is not checked";
    EXPECT_EQ(Check("OCPPCommCtrlr", "NetworkConfigurationPriority", "1,3"), 0);
    EXPECT_EQ(Check("OCPPCommCtrlr", "FileTransferProtocols", "SFTP,FTPS"), 1);
}

TEST_F(Characteristics, BooleansDecimalsAndTimes) {
    EXPECT_EQ(Check("AuthCtrlr", "Enabled", "yes"), 0);
    EXPECT_EQ(Check("AuthCtrlr", "Enabled", "false"), 1);
    EXPECT_EQ(Check("SmartChargingCtrlr", "LimitChangeSignificance", "0.5"), 1);
    EXPECT_EQ(Check("SmartChargingCtrlr", "LimitChangeSignificance", "half"), 0);
    EXPECT_EQ(Check("ClockCtrlr", "DateTime", "2024-05-01T10:00:00Z"), 1);
    EXPECT_EQ(Check("ClockCtrlr", "DateTime", "yesterday"), 0);
}

TEST_F(Characteristics, DecimalWithOnlyAMaximumRefusesEverythingAboveItsMinimumField) {
    CVariableCharacteristics* c = CVariableCharacteristics::GetInstance();
    c->AddVariableCharacteristics(Declared("HostCtrlr", "Gain", VARIABLECHARACTERDATATYPE_DECIMAL, 1.0f, 100.0f, 2));
    LogCapture log;
    EXPECT_EQ(Check("HostCtrlr", "Gain", "50"), 0);
    EXPECT_TRUE(log.Contains(" is greater then maxlimit:100.000000"));
    EXPECT_EQ(Check("HostCtrlr", "Gain", "1.00000001"), 1) << "within 1e-7 of the minimum field";
    EXPECT_EQ(Check("HostCtrlr", "Gain", "0.5"), 1);

    c->AddVariableCharacteristics(Declared("HostCtrlr", "Gain", VARIABLECHARACTERDATATYPE_DECIMAL, 1.0f, 100.0f, 3));
    EXPECT_EQ(Check("HostCtrlr", "Gain", "50"), 1) << "the declaration replaces the earlier one";
    EXPECT_EQ(Check("HostCtrlr", "Gain", "100.5"), 0);
    EXPECT_EQ(Check("HostCtrlr", "Gain", "0.5"), 0);
}

TEST_F(Characteristics, UndescribedVariableTakesAnyValueButMissingTextsAreRefused) {
    LogCapture log;
    EXPECT_EQ(Check("HostCtrlr", "Anything", "whatever it is"), 1);
    EXPECT_TRUE(log.Contains("do not have characteristics"));
    CVariableCharacteristics* c = CVariableCharacteristics::GetInstance();
    EXPECT_EQ(c->CheckCharacteristics(nullptr, "AuthCtrlr", "Enabled", "", "", 0, 0), 0);
    EXPECT_EQ(c->CheckCharacteristics("true", nullptr, "Enabled", "", "", 0, 0), 0);
    EXPECT_TRUE(log.Contains("CheckCharacteristics Error: pszValue, pszComponentName or pszVariableName is NULL"));
}

TEST_F(Characteristics, StoreIsSeededPersistedAndReloaded) {
    CVariableCharacteristics* c = Reopen();
    const size_t defaults = c->GetAll().size();
    Json::Value file = ReadJson(path);
    ASSERT_TRUE(file.isArray());
    EXPECT_EQ(file.size(), defaults);
    EXPECT_TRUE(file[0].isMember("minilimit"));

    c->AddVariableCharacteristics(Declared("HostCtrlr", "Mode", VARIABLECHARACTERDATATYPE_OPTIONLIST, 0, 0, 0, "A,B"));
    EXPECT_EQ(Reopen()->GetAll().size(), defaults + 1);
    EXPECT_EQ(Check("HostCtrlr", "Mode", "C"), 0);

    // Too many records: back to the built-in table.
    std::string big = "[";
    for (int i = 0; i <= CVariableCharacteristics::kMaxRecords; ++i)
        big += std::string(i ? "," : "") + "{\"componentname\":\"H\",\"variablename\":\"V" + std::to_string(i) +
               "\",\"limitflag\":0}";
    WriteText(path, big + "]");
    EXPECT_EQ(Reopen()->GetAll().size(), defaults);
}

TEST_F(Characteristics, OlderFileLayoutIsMigratedWithItsLimits) {
    WriteText(path,
              "[{\"componentname\":\"TariffCostCtrlr\",\"variablename\":\"Currency\",\"datatype\":0,"
              "\"maxlimit\":2,\"supportsmonitoring\":false,\"valueslist\":\"\",\"unit\":\"\"},"
              "{\"componentname\":\"HostCtrlr\",\"variablename\":\"Level\",\"datatype\":2,"
              "\"minlimit\":5,\"maxlimit\":8,\"supportsmonitoring\":true}]");
    CVariableCharacteristics* c = Reopen();
    EXPECT_EQ(Check("TariffCostCtrlr", "Currency", "EUR"), 0) << "the migrated maximum of 2 applies";
    EXPECT_EQ(Check("HostCtrlr", "Level", "4"), 0);
    EXPECT_EQ(Check("HostCtrlr", "Level", "6"), 1);
    EXPECT_EQ(Check("HostCtrlr", "Level", "9"), 0);

    VariableCharacteristics currency;
    ASSERT_TRUE(c->GetVariableCharacteristics(currency, "TariffCostCtrlr", "Currency", "", "", 0, 0));
    EXPECT_EQ(currency.notSupportsMonitoring, 1);
    const Json::Value file = ReadJson(path);
    for (const Json::Value& obj : file) {
        EXPECT_TRUE(obj.isMember("limitflag"));
        EXPECT_FALSE(obj.isMember("minlimit"));
    }
}
