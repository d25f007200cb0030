// The generated schema check of CSMS payloads. Agreement with the official
// validator rule by rule is the model property test's job (tests/model); here:
// the action lookup, the reason a log line shows, and a value no JSON text gives.
#include <gtest/gtest.h>
#include <rapidjson/document.h>

#include <limits>
#include <string>

#include "Ocpp20/Protocol/SchemaCheck.h"
#include "models/Models.h"

namespace {

// The reason text for a payload of `action`, empty when the payload passes.
std::string Why(const char* action, const char* payload, bool request = true) {
    rapidjson::Document d;
    d.Parse(payload);
    EXPECT_FALSE(d.HasParseError()) << payload;
    std::string why;
    const bool ok = models::ValidatePayload(action, request, d, &why);
    EXPECT_EQ(ok, why.empty()) << action << " " << payload << " -> " << why;
    return why;
}

std::string GetVariables(const std::string& secondComponent) {
    return R"({"getVariableData":[{"component":{"name":"OCPPCommCtrlr"},"variable":{"name":"HeartbeatInterval"}},)"
           R"({"component":{"name":")" + secondComponent + R"(","evse":{"id":1}},"variable":{"name":"Available"}}]})";
}

}  // namespace

TEST(SchemaCheck, OnlyOcppActionsAreKnownAndTheirNamesMatchExactly) {
    EXPECT_TRUE(models::IsOcppAction("Reset"));
    EXPECT_TRUE(models::IsOcppAction("Get15118EVCertificate"));
    for (const char* name : {"reset", "Resett", "", static_cast<const char*>(nullptr), "AFRRSignal" /* 2.1 only */})
        EXPECT_FALSE(models::IsOcppAction(name)) << (name ? name : "null");
    EXPECT_EQ(models::FindPayloadValidator("Reset", true), &models::ValidateResetRequest);
    EXPECT_EQ(models::FindPayloadValidator("Reset", false), &models::ValidateResetResponse);
    EXPECT_EQ(Why("NotAnAction", "{}"), "not an OCPP 2.0.1 action");
}

TEST(SchemaCheck, ALogLineNamesTheMemberAndTheRuleBroken) {
    EXPECT_EQ(Why("GetVariables", GetVariables("EVSE").c_str()), "");
    EXPECT_EQ(Why("GetVariables", GetVariables(std::string(51, 'c')).c_str()),
              "getVariableData[1].component.name: longer than 50 characters");
    EXPECT_EQ(Why("GetVariables", R"({"getVariableData":[]})"), "getVariableData: needs at least 1 item(s)");
    EXPECT_EQ(Why("TriggerMessage", R"({"requestedMessage":"Reboot"})"), "requestedMessage: not in enumeration");
    EXPECT_EQ(Why("Reset", R"({"type":"Immediate","delay":5})"), "delay: unknown member");
    EXPECT_EQ(Why("Reset", R"({"evseId":1})"), "type: required member missing");
    EXPECT_EQ(Why("Reset", R"({"type":"OnIdle","evseId":1.5})"), "evseId: not an integer");
    EXPECT_EQ(Why("Reset", R"([])"), "payload: not an object");
    EXPECT_EQ(Why("BootNotification", R"({"status":"Accepted","currentTime":"2024-02-30T00:00:00Z","interval":1})",
                  false),
              "currentTime: not a date-time");
    // Extra members are the vendor's business inside customData only.
    EXPECT_EQ(Why("Reset", R"({"type":"OnIdle","customData":{"vendorId":"v","x":[1]}})"), "");
    // A member name is cut in the log, however long it is.
    const std::string huge = R"({")" + std::string(5000, 'n') + R"(":1,"type":"OnIdle"})";
    EXPECT_EQ(Why("Reset", huge.c_str()), std::string(64, 'n') + ": unknown member");
}

TEST(SchemaCheck, AnIntegerMemberTakesOnlyFiniteWholeNumbers) {
    rapidjson::Document d;
    d.Parse(R"({"type":"OnIdle","evseId":3.0})");
    EXPECT_TRUE(models::ValidateResetRequest(d, nullptr));
    d["evseId"].SetDouble(std::numeric_limits<double>::infinity());
    EXPECT_FALSE(models::ValidateResetRequest(d, nullptr));
    d["evseId"].SetDouble(std::numeric_limits<double>::quiet_NaN());
    EXPECT_FALSE(models::ValidateResetRequest(d, nullptr));
}
