#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "Ocpp20/Process/VariableCache.h"
#include "Engine20.h"
#include "FrameSchema.h"
#include "Util/Tools.h"

using namespace ocpptest;

namespace {

std::string Entry(const std::string& component, const std::string& variable, const std::string& value,
                  const std::string& extra = "") {
    return R"({"component":{"name":")" + component + R"("},"variable":{"name":")" + variable +
           R"("},"attributeValue":")" + value + "\"" + extra + "}";
}

std::string Call(const std::string& id, const std::string& action, const std::vector<std::string>& entries) {
    const std::string key = action == "SetVariables" ? "setVariableData" : "getVariableData";
    std::string list;
    for (const std::string& e : entries) list += (list.empty() ? "" : ",") + e;
    return "[2,\"" + id + "\",\"" + action + "\",{\"" + key + "\":[" + list + "]}]";
}

std::vector<std::string> Values(const std::string& frame, const std::string& key) {
    std::vector<std::string> out;
    const std::string tag = "\"" + key + "\": \"";
    for (size_t at = frame.find(tag); at != std::string::npos; at = frame.find(tag, at + 1)) {
        const size_t from = at + tag.size();
        out.push_back(frame.substr(from, frame.find('"', from) - from));
    }
    return out;
}

class DeviceModelRequests : public Engine20 {
protected:
    void SetUp() override {
        ASSERT_NO_FATAL_FAILURE(Engine20::SetUp());
        VariableDataItem declared[6] = {HostVariable("HostCtrlr", "Brightness", "50", VARIABLEMODE_READWRITE),
                                        HostVariable("HostCtrlr", "Volume", "3", VARIABLEMODE_READWRITE),
                                        HostVariable("HostCtrlr", "Pin", "1234", VARIABLEMODE_WRITEONLY),
                                        ConnectorVariable("AvailabilityState", 1, "Available"),
                                        ConnectorVariable("ConnectorType", 1, "cType2"),
                                        ConnectorVariable("AvailabilityState", 2, "Occupied")};
        ASSERT_EQ(OcppProtocol_SetVariableData(6, declared, 0), 1);
    }
    static VariableDataItem ConnectorVariable(const char* variable, uint8_t connectorId, const char* value) {
        VariableDataItem v = HostVariable("Connector", variable, value, VARIABLEMODE_READONLY);
        v.evseId = 1;
        v.connectorId = connectorId;
        return v;
    }

    static std::string Stored(const char* component, const char* variable, const char* instance = "") {
        VariableDataItem20 q = VariableDataItem20::Make(component, variable, instance);
        return CVariableCache::GetInstance()->GetVariableAttributeValue(q);
    }

    ClockGuard clock;
};

}  // namespace

TEST_F(DeviceModelRequests, EverySetVariablesVerdictReachesTheHostAndTheFinalAnswer) {
    DeliverTo20(Call("s1", "SetVariables",
                 {Entry("AuthCtrlr", "Enabled", "false"),
                  R"({"component":{"name":"DeviceDataCtrlr"},"variable":{"name":"ItemsPerMessage","instance":"SetVariables"},"attributeValue":"10"})",
                  Entry("AuthCacheCtrlr", "Enabled", "maybe"), Entry("HostCtrlr", "Brightness", "80")}));
    DeliverTo20(Call("s2", "SetVariables",
                 {Entry("NoSuchCtrlr", "Enabled", "true"), Entry("AuthCtrlr", "NoSuchVariable", "true"),
                  Entry("AuthCtrlr", "Enabled", "true", R"(,"attributeType":"Target")"),
                  Entry("HostCtrlr", "Volume", "11")}));
    EXPECT_EQ(link.Count(), 0u) << "nothing is answered before the host has";
    EXPECT_EQ(Stored("AuthCtrlr", "Enabled"), "true") << "checking a request changes nothing yet";

    std::vector<VariableDataItem> first = host.SetVariablesEntries("s1");
    std::vector<VariableDataItem> second = host.SetVariablesEntries("s2");
    ASSERT_EQ(first.size(), 4u);
    ASSERT_EQ(second.size(), 4u);
    const int expectedFirst[] = {VARIABLESTATUS_ACCEPTED, VARIABLESTATUS_REJECTED, VARIABLESTATUS_REJECTED,
                                 VARIABLESTATUS_HOSTDECIDE};
    const int expectedSecond[] = {VARIABLESTATUS_UNKNOWNCOMPONENT, VARIABLESTATUS_UNKNOWNVARIABLE,
                                  VARIABLESTATUS_NOTSUPPORTEDATTRIBUTETYPE, VARIABLESTATUS_HOSTDECIDE};
    for (size_t i = 0; i < 4; ++i) {
        EXPECT_EQ(first[i].status, expectedFirst[i]) << "s1 entry " << i;
        EXPECT_EQ(second[i].status, expectedSecond[i]) << "s2 entry " << i;
    }
    EXPECT_STREQ(first[3].attributeValue, "80");
    EXPECT_STREQ(second[2].componentName, "AuthCtrlr");
    EXPECT_EQ(second[2].attributeType, VARIABLEATTRIBUTETYPE_TARGET);

    // The host settles its own entries; one that also tries to overrule the
    // library (unknown component made Accepted) is not believed.
    first[3].status = VARIABLESTATUS_ACCEPTED;
    second[3].status = VARIABLESTATUS_REJECTED;
    second[0].status = VARIABLESTATUS_ACCEPTED;
    ASSERT_EQ(OcppProtocol_SetVariables("s1", 4, first.data()), 1);
    ASSERT_EQ(OcppProtocol_SetVariables("s2", 4, second.data()), 1);

    const std::vector<std::string> sent = link.Sent();
    ASSERT_EQ(sent.size(), 2u);
    EXPECT_EQ(sent[0].rfind("[3,\"s1\",\n", 0), 0u);
    EXPECT_EQ(Values(sent[0], "attributeStatus"),
              (std::vector<std::string>{"Accepted", "Rejected", "Rejected", "Accepted"}));
    EXPECT_EQ(Values(sent[1], "attributeStatus"),
              (std::vector<std::string>{"UnknownComponent", "UnknownVariable", "NotSupportedAttributeType", "Rejected"}));
    EXPECT_EQ(Values(sent[1], "attributeType")[2], "Target");
    EXPECT_EQ(Values(sent[0], "instance"), (std::vector<std::string>{"SetVariables"}));

    EXPECT_EQ(Stored("AuthCtrlr", "Enabled"), "false");
    EXPECT_EQ(Stored("HostCtrlr", "Brightness"), "80");
    EXPECT_EQ(Stored("HostCtrlr", "Volume"), "3");
    EXPECT_EQ(Stored("AuthCacheCtrlr", "Enabled"), "true");
    EXPECT_EQ(Stored("DeviceDataCtrlr", "ItemsPerMessage", "SetVariables"), "4");
    VariableDataItem20 unknown = VariableDataItem20::Make("NoSuchCtrlr", "Enabled");
    EXPECT_TRUE(CVariableCache::GetInstance()->GetVariables(unknown, 0).empty());
}

TEST_F(DeviceModelRequests, RequestsOverTheLimitsAreRefusedWithoutAskingTheHost) {
    DeliverTo20(Call("many", "SetVariables", std::vector<std::string>(5, Entry("AuthCtrlr", "Enabled", "true"))));
    // Heavy but valid: vendor data is free in size.
    const std::string heavyEntry = R"({"component":{"name":"HostCtrlr"},"variable":{"name":"Brightness"},)"
                                   R"("attributeValue":"1","customData":{"vendorId":"v","pad":")" +
                                   std::string(1200, 'x') + "\"}}";
    DeliverTo20(Call("heavy", "SetVariables", std::vector<std::string>(4, heavyEntry)));
    // GetVariables answers its two limits with two different errors.
    DeliverTo20(Call("many-get", "GetVariables",
                 std::vector<std::string>(5, R"({"component":{"name":"AuthCtrlr"},"variable":{"name":"Enabled"}})")));
    DeliverTo20(Call("heavy-get", "GetVariables",
                 std::vector<std::string>(3, R"({"component":{"name":"AuthCtrlr"},"variable":{"name":"Enabled"},)"
                                                 R"("customData":{"vendorId":"v","pad":")" + std::string(2000, 'i') +
                                                 "\"}}")));
    EXPECT_EQ(link.Sent(), (std::vector<std::string>{"[4,\"many\",\"OccurrenceConstraintViolation\",\"\",{}]\n",
                                                     "[4,\"heavy\",\"OccurrenceConstraintViolation\",\"\",{}]\n",
                                                     "[4,\"many-get\",\"OccurrenceConstraintViolation\",\"\",{}]\n",
                                                     "[4,\"heavy-get\",\"FormatViolation\",\"\",{}]\n"}));
    EXPECT_TRUE(log.Contains("Too many variables:5 max:4"));
    Drain();
    EXPECT_EQ(host.Count(SERVERRECVTYPE_SETVARIABLES), 0u);

    DeliverTo20(Call("four", "SetVariables", std::vector<std::string>(4, Entry("AuthCtrlr", "Enabled", "true"))));
    EXPECT_TRUE(host.WaitForType(SERVERRECVTYPE_SETVARIABLES));
}

TEST_F(DeviceModelRequests, GetVariablesAnswersEveryEntryInOrderFromTheStoreAndHidesWriteOnlyValues) {
    CTools::FreezeClock(true);
    DeliverTo20(Call("g1", "GetVariables",
                 {R"({"component":{"name":"ClockCtrlr"},"variable":{"name":"DateTime"}})",
                  R"({"component":{"name":"HostCtrlr"},"variable":{"name":"Pin"}})",
                  R"({"component":{"name":"NoSuchCtrlr"},"variable":{"name":"X"}})",
                  R"({"component":{"name":"HostCtrlr"},"variable":{"name":"Volume"},"attributeType":"MaxSet"})"}));
    const std::string connector = R"({"component":{"name":"Connector","evse":{"id":1,"connectorId":%d}},"variable":{"name":"%s"}})";
    DeliverTo20(Call("g2", "GetVariables",
                 {CTools::StringFormat(connector.c_str(), 9, "AvailabilityState"),
                  CTools::StringFormat(connector.c_str(), 2, "ConnectorType"),
                  CTools::StringFormat(connector.c_str(), 2, "AvailabilityState")}));
    const std::vector<std::string> sent = link.Sent();
    ASSERT_EQ(sent.size(), 2u);
    EXPECT_EQ(sent[0].rfind("[3,\"g1\",\n", 0), 0u);
    EXPECT_EQ(Values(sent[0], "attributeStatus"),
              (std::vector<std::string>{"Accepted", "Rejected", "UnknownComponent", "NotSupportedAttributeType"}));
    EXPECT_EQ(Values(sent[0], "attributeValue"), (std::vector<std::string>{CTools::GetLocalTime(CTools::CurTimeSec())}))
        << "the clock is read now, and a write-only value never leaves";
    EXPECT_EQ(sent[0].find("1234"), std::string::npos);
    EXPECT_EQ(Values(sent[1], "attributeStatus"), (std::vector<std::string>{"UnknownComponent", "UnknownVariable", "Accepted"}))
        << "no connector 9 on EVSE 1, and connector 2 has no ConnectorType";
    EXPECT_EQ(Values(sent[1], "attributeValue"), (std::vector<std::string>{"Occupied"}));
    EXPECT_NE(sent[1].find("\"connectorId\": 9"), std::string::npos) << "the result names what was asked for";
}
