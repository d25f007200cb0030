// What a certifying CSMS checks on the station: requests that break their
// schema are refused before anything acts on them, and every answer is one a
// strict CSMS accepts.
#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

#include "FrameSchema.h"
#include "Ocpp20/Ocpp20ProtocolRecv.h"
#include "Ocpp20/Process/VariableCache.h"
#include "Ocpp20/Process/VariableCharacteristics.h"
#include "Ocpp20/Process/VariableCustom.h"
#include "OcppProtocol/MessageCallBack.h"
#include "OcppProtocol/OcppProtocol.h"
#include "Process/BootHeartbeat.h"
#include "RecordingHost.h"
#include "RecordingLink.h"
#include "TestSupport.h"
#include "Util/Tools.h"

using namespace ocpptest;

namespace {

class Conformance : public ::testing::Test {
protected:
    void SetUp() override {
        ResetSdkState();
        CBootHeartbeat::Release();
        OcppProtocol_InitOcppProtocol(OCPPPROTOCOL_201);
        CVariableCache* cache = CVariableCache::GetInstance();
        cache->InitDefault();
        ASSERT_EQ(cache->SetStoreFile(dir.file("variablecache.json")), 1);
        ASSERT_EQ(CVariableCharacteristics::GetInstance()->SetStoreFile(dir.file("VariableCharacteristicscache.json")),
                  1);
    }
    void TearDown() override {
        CVariableCache::Release();
        CVariableCharacteristics::Release();
        CVariableCustom::Release();
        CBootHeartbeat::Release();
        ResetSdkState();
    }
    void Drain() { ASSERT_TRUE(WaitFor([] { return CMessageCallBack::GetInstance()->Pending() == 0; })); }

    TempDir dir;
    RecordingHost host;
    RecordingLink link;
    LogCapture log;
};

std::string Call(const std::string& id, const std::string& action, const std::string& payload) {
    return "[2,\"" + id + "\",\"" + action + "\"," + payload + "]";
}

std::string Error(const std::string& id, const char* code) { return "[4,\"" + id + "\",\"" + code + "\",\"\",{}]\n"; }

VariableDataItem ConnectorVariable(const char* variable, uint8_t connectorId) {
    VariableDataItem v;
    memset(&v, 0, sizeof v);
    v.evseId = 1;
    v.connectorId = connectorId;
    CTools::CopyField(v.componentName, "Connector");
    CTools::CopyField(v.variableName, variable);
    CTools::CopyField(v.attributeValue, "x");
    v.mode = VARIABLEMODE_READONLY;
    return v;
}

}  // namespace

TEST_F(Conformance, RequestBreakingItsSchemaIsRefusedAndNeverReachesTheHost) {
    const struct {
        const char* action;
        std::string payload;
    } cases[] = {
        {"Reset", R"({"evseId":1})"},                                           // required member missing
        {"Reset", R"({"type":"Sometime"})"},                                    // text outside the enumeration
        {"TriggerMessage", R"({"requestedMessage":"Coffee"})"},                 // the same, on a library-decided row
        {"GetVariables", R"({"getVariableData":[]})"},                          // required array empty
        {"CertificateSigned", "{\"certificateChain\":\"" + std::string(10001, 'C') + "\"}"},  // string too long
        {"Reset", R"({"type":"Immediate","colour":"red"})"},                   // member the schema does not know
        {"Reset", R"(["Immediate"])"},                                          // payload not an object
    };
    int n = 0;
    for (const auto& c : cases) {
        const std::string id = "v" + std::to_string(n++);
        DeliverTo20(Call(id, c.action, c.payload));
        EXPECT_EQ(link.Last(), Error(id, "TypeConstraintViolation")) << c.action << " " << c.payload.substr(0, 60);
    }
    EXPECT_EQ(link.Count(), static_cast<size_t>(n)) << "nothing but the errors leaves";
    EXPECT_TRUE(log.Contains("CustomException: type: not in enumeration", 1)) << "the log says which rule broke";
    Drain();
    EXPECT_EQ(host.Count(), 0u);
}

TEST_F(Conformance, OnlyAFrameTypedCallIsARequest) {
    DeliverTo20(R"([4,"e1","Reset","",{}])");
    DeliverTo20(R"([3,"r1","Reset",{"type":"Immediate"}])");
    DeliverTo20(R"([5,"x1","Reset",{"type":"Immediate"}])");
    Drain();
    EXPECT_EQ(host.Count(), 0u);
    EXPECT_EQ(link.Count(), 0u);
    EXPECT_EQ(log.Count("recv cms data error"), 1u) << "only the frame of no known type is logged";
}

TEST_F(Conformance, ActionOutsideOcppIsNotImplementedAtOnce) {
    DeliverTo20(Call("u1", "MakeCoffee", "{}"));
    EXPECT_EQ(link.Last(), Error("u1", "NotImplemented"));
    DeliverTo20(Call("u2", "reset", R"({"type":"Immediate"})"));
    EXPECT_EQ(link.Last(), Error("u2", "NotImplemented"));
    // A rejected station still says SecurityError first.
    CBootHeartbeat::GetInstance()->SetBootStatus(2);
    DeliverTo20(Call("u3", "MakeCoffee", "{}"));
    EXPECT_EQ(link.Last(), Error("u3", "SecurityError"));
    Drain();
    EXPECT_EQ(host.Count(), 0u);
}

TEST_F(Conformance, GetVariablesAnswersEveryEntryItCannotRead) {
    VariableDataItem declared[3] = {ConnectorVariable("AvailabilityState", 1), ConnectorVariable("ConnectorType", 1),
                                    ConnectorVariable("AvailabilityState", 2)};
    ASSERT_EQ(OcppProtocol_SetVariableData(3, declared, 0), 1);
    DeliverTo20(Call("g1", "GetVariables",
                     R"({"getVariableData":[)"
                     R"({"component":{"name":"Connector","evse":{"id":1,"connectorId":9}},"variable":{"name":"AvailabilityState"}},)"
                     R"({"component":{"name":"Connector","evse":{"id":1,"connectorId":2}},"variable":{"name":"ConnectorType"}},)"
                     R"({"component":{"name":"Connector","evse":{"id":1,"connectorId":2}},"variable":{"name":"AvailabilityState"}}]})"));
    ASSERT_EQ(link.Count(), 1u);
    const std::string answer = link.Last();
    const size_t unknownComponent = answer.find("\"attributeStatus\": \"UnknownComponent\"");
    const size_t unknownVariable = answer.find("\"attributeStatus\": \"UnknownVariable\"");
    const size_t accepted = answer.find("\"attributeStatus\": \"Accepted\"");
    ASSERT_NE(unknownComponent, std::string::npos) << "no connector 9 on EVSE 1:\n" << answer;
    ASSERT_NE(unknownVariable, std::string::npos) << "connector 2 has no ConnectorType:\n" << answer;
    ASSERT_NE(accepted, std::string::npos) << answer;
    EXPECT_LT(unknownComponent, unknownVariable) << "results keep the order of the request";
    EXPECT_LT(unknownVariable, accepted);
    EXPECT_NE(answer.find("\"connectorId\": 9"), std::string::npos) << "the result names what was asked for";
}

TEST_F(Conformance, FrameCheckRefusesWhatAStrictCsmsRefuses) {
    DeliverTo20(Call("g2", "GetVariables", R"({"getVariableData":[{"component":{"name":"X"},"variable":{"name":"Y"}}]})"));
    EXPECT_NE(FrameSchemaProblem("[3,\"g2\",\n{\"getVariableResult\": []}]"), "") << "empty result list";
    EXPECT_NE(FrameSchemaProblem("[2,\"c1\",\"Heartbeat\",\n{\"x\": 1}]"), "") << "unknown member";
    EXPECT_NE(FrameSchemaProblem("[4,\"c1\",\"Oops\",\"\",{}]\n"), "") << "unknown error code";
    EXPECT_EQ(FrameSchemaProblem("[4,\"c1\",\"GenericError\",\"\",{}]\n"), "");
}
