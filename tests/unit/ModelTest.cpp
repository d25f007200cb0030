#include <gtest/gtest.h>
#include <rapidjson/document.h>

#include <cstring>
#include <limits>
#include <string>

#include "Ocpp20/Protocol/Base.h"
#include "Ocpp20/Protocol/JsonText.h"
#include "Ocpp20/Protocol/SchemaCheck.h"
#include "TestSupport.h"
#include "models/Models.h"

using namespace ocpptest;

namespace {

std::string Call(const std::string& action, const std::string& payload) {
    return "[2,\"a1\",\"" + action + "\"," + payload + "]";
}

models::resetRequest_t ReadReset(const std::string& payload) {
    const std::string frame = Call("Reset", payload);
    return models::ResetRequestFromJsonData(frame.data(), static_cast<unsigned int>(frame.size()));
}

rapidjson::Document PayloadOf(const std::string& frame) {
    rapidjson::Document d;
    d.Parse(frame.c_str());
    EXPECT_FALSE(d.HasParseError()) << frame;
    rapidjson::Document payload;
    if (!d.HasParseError() && d.IsArray() && d.Size() >= 3) payload.CopyFrom(d[d.Size() - 1], payload.GetAllocator());
    return payload;
}

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

// Wrongly typed members of every message are refused by the schema round trip.
TEST(ModelReading, OutOfRangeIntegersAreRefusedAndAbsentMembersKeepDefaults) {
    EXPECT_THROW(ReadReset(R"({"type":"Immediate","evseId":3000000000})"), CustomException)
        << "an id that does not fit 32 bits must not be cut silently";

    const struct {
        const char* payload;
        const char* type;
        int evseId;
    } reads[] = {
        {R"({"type":"OnIdle"})", "OnIdle", -1},
        {R"({"evseId":2})", "", 2},
        {R"({"type":null,"evseId":null})", "", -1},
        {R"({"type":"Immediate","evseId":4.0})", "Immediate", 4},  // 4.0 is an integer in JSON
    };
    for (const auto& c : reads) {
        const models::resetRequest_t r = ReadReset(c.payload);
        EXPECT_EQ(r.type, c.type) << c.payload;
        EXPECT_EQ(r.evseId, c.evseId) << c.payload;
        EXPECT_EQ(r.evseId_present, c.evseId >= 0) << c.payload;
    }
}

TEST(ModelReading, BrokenFramesGiveAnEmptyRecordAndNeverCrash) {
    for (const std::string& frame : {std::string("not json"), std::string("[2,\"x\",\"Reset\",[1,2]]"), std::string(""),
                                     std::string(100000, '['), "[2,\"x\",\"Reset\"," + std::string(5000, '[')}) {
        models::resetRequest_t r =
            models::ResetRequestFromJsonData(frame.data(), static_cast<unsigned int>(frame.size()));
        EXPECT_EQ(r.type, "");
        EXPECT_EQ(r.evseId, -1);
    }
    // Only the given length is read, even without a terminating NUL.
    const std::string frame = Call("Reset", R"({"type":"Immediate"})") + "garbage";
    models::resetRequest_t r =
        models::ResetRequestFromJsonData(frame.data(), static_cast<unsigned int>(frame.size() - 7));
    EXPECT_EQ(r.type, "Immediate");
}

TEST(ModelReading, ArraysAndFilesOfRecords) {
    const char* text = R"([{"type":"Immediate","evseId":1},{"type":"OnIdle"}])";
    std::vector<models::resetRequest_t> list =
        models::ResetRequestArrayFromData(text, static_cast<unsigned int>(strlen(text)));
    ASSERT_EQ(list.size(), 2u);
    EXPECT_EQ(list[0].evseId, 1);
    EXPECT_EQ(list[1].type, "OnIdle");
    EXPECT_NE(list[0].base.messageId, list[1].base.messageId);
    EXPECT_THROW(models::ResetRequestArrayFromData("{}", 2), CustomException);
    EXPECT_THROW(models::ResetRequestArrayFromData("[1]", 3), CustomException);

    TempDir dir;
    WriteText(dir.file("reset.json"), Call("Reset", R"({"type":"OnIdle","evseId":7})"));
    models::resetRequest_t r = models::ResetRequestFromFile(dir.file("reset.json"));
    EXPECT_EQ(r.evseId, 7);
    EXPECT_EQ(models::ResetRequestFromFile(dir.file("missing.json")).evseId, -1);
}

TEST(ModelEnumerations, UnknownTextsAndIndexesOutsideTheListGiveNothing) {
    EXPECT_EQ(models::GetBootNotificationResponseStatusInInt("accepted"), -1);
    EXPECT_EQ(models::GetBootReasonInString(9), "");
    EXPECT_EQ(models::GetBootReasonInString(-1), "");
}

TEST(ModelWriting, HostTextsNeverBreakTheFrameOrItsLengthLimits) {
    models::authorizeRequest_t a;
    // idToken allows 36 characters: 35 ASCII then a 3-byte character must not be split.
    a.idToken.idToken = std::string(35, 'A') + "\xE4\xB8\xAD" + "tail";
    a.idToken.type = "ISO14443";
    a.certificate = std::string("quote\" backslash\\ newline\n nul") + '\0' + " bad\xFF" + "end";
    const std::string text = models::to_string(a, "", "");
    rapidjson::Document p = PayloadOf(text);
    ASSERT_TRUE(p.IsObject()) << text;
    EXPECT_EQ(std::string(p["idToken"]["idToken"].GetString()), std::string(35, 'A'));
    const std::string cert(p["certificate"].GetString(), p["certificate"].GetStringLength());
    EXPECT_EQ(cert, std::string("quote\" backslash\\ newline\n nul") + '\0' + " bad?end");
}

TEST(ModelWriting, NumbersReadBackToTheSameValue) {
    models::meterValuesRequest_t m;
    m.evseId = 1;
    models::meterValue_t mv;
    mv.timestamp = "2024-01-01T00:00:00Z";
    models::sampledValue_t sv;
    for (double v : {0.1, 1e-7, 123456789.125, -0.0000073, 1e21}) {
        sv.value = v;
        mv.sampledValue.assign(1, sv);
        m.meterValue.assign(1, mv);
        const std::string text = models::to_string(m, "", "");
        rapidjson::Document d;
        d.Parse<rapidjson::kParseFullPrecisionFlag>(text.c_str());
        ASSERT_FALSE(d.HasParseError()) << text;
        EXPECT_EQ(d[3]["meterValue"][0]["sampledValue"][0]["value"].GetDouble(), v) << text;
    }
    sv.value = std::numeric_limits<double>::quiet_NaN();
    mv.sampledValue.assign(1, sv);
    m.meterValue.assign(1, mv);
    EXPECT_TRUE(PayloadOf(models::to_string(m, "", "")).IsObject()) << "NaN must not make the frame unreadable";
}

TEST(ModelWriting, DataTransferDataKeepsItsJsonKind) {
    const char* frame = R"([2,"d","DataTransfer",{"vendorId":"v","data":{"a":[1,"x"]}}])";
    models::dataTransferRequest_t d = models::DataTransferRequestFromJsonData(frame, static_cast<unsigned int>(strlen(frame)));
    EXPECT_TRUE(d.data_json);
    EXPECT_EQ(d.data, R"({"a":[1,"x"]})");
    rapidjson::Document p = PayloadOf(models::to_string(d, "", ""));
    EXPECT_TRUE(p["data"].IsObject());

    d.data = "{not json";
    p = PayloadOf(models::to_string(d, "", ""));
    ASSERT_TRUE(p.IsObject());
    EXPECT_STREQ(p["data"].GetString(), "{not json");
    d.data = "123";
    d.data_json = false;
    EXPECT_STREQ(PayloadOf(models::to_string(d, "", ""))["data"].GetString(), "123");
}

TEST(RpcFrame, NormalizeExtractReturnsTheCompactPayloadAndACallErrorsDescription) {
    EXPECT_STREQ(Base::ErrorCodeText(12), "GenericError") << "a code outside the list";
    EXPECT_EQ(sizeof(RESPONSEERRORCODE), 4u);
    Base b;
    std::string payload = b.NormalizeExtract(std::string(R"([4,"e1","NotSupported","no such thing",{"x":1}])"));
    EXPECT_EQ(b.messageType, 4);
    EXPECT_EQ(b.messageId, "e1");
    EXPECT_EQ(b.errorCode, "NotSupported");
    EXPECT_EQ(b.errorDetails, "no such thing");
    EXPECT_EQ(payload, std::string("{}\0", 3)) << "the trailing newline is overwritten with a NUL in place";

    payload = b.NormalizeExtract(std::string("[2, \"c1\", \"Reset\", {\"type\" : \"Immediate\"}]"));
    EXPECT_EQ(b.action, "Reset");
    EXPECT_EQ(std::string(payload.c_str()), R"({"type":"Immediate"})");
    EXPECT_EQ(payload.back(), '\0');

    payload = b.NormalizeExtract(std::string("[3,\"c2\",{\"status\":\"Accepted\"}]"));
    EXPECT_EQ(b.messageType, 3);
    EXPECT_EQ(std::string(payload.c_str()), R"({"status":"Accepted"})");

    payload = b.NormalizeExtract(std::string("[2,\"c3\",\"Reset\",\"text\"]"));
    EXPECT_EQ(std::string(payload.c_str()), "{}");
}

TEST(JsonText, CutNeverSplitsACharacter) {
    const std::string euro = "\xE2\x82\xAC";  // 3 bytes
    EXPECT_EQ(CJsonText::CutLength("ab" + euro, 4), 2u);
    EXPECT_EQ(CJsonText::CutLength("ab" + euro, 5), 5u);
    EXPECT_EQ(CJsonText::CutLength("abcdef", 0), 6u);
    EXPECT_EQ(CJsonText::CutLength("abc\xFF\xFF", 4), 4u) << "stray bytes count one each";
    std::string out;
    CJsonText::AppendString(out, "\xC0\xAF" "x", 0);  // overlong '/', must not pass as UTF-8
    EXPECT_EQ(out, "\"??x\"");
}

// The generated schema check of CSMS payloads; agreement with the official validator
// rule by rule is the model property test's job (tests/model).
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
