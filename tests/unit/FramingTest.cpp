#include <gtest/gtest.h>

#include <string>

#include "Ocpp20/OcppProtocol20.h"
#include "OcppProtocol/OcppProtocol.h"
#include "OcppProtocol/OcppSendSeam.h"
#include "RecordingHost.h"
#include "RecordingLink.h"
#include "TestSupport.h"
#include "Util/Tools.h"

using namespace ocpptest;

namespace {

class Framing : public ::testing::Test {
protected:
    void SetUp() override { ResetSdkState(); }
    void TearDown() override { ResetSdkState(); }
    RecordingLink link;
    LogCapture log;
    char answer[kOcppResponseBufferLen] = {0};
    int answerLen = 0;
};

std::string FrameOfLength(size_t total) {
    const std::string head = "[2,\"len\",\"DataTransfer\",\n{\"vendorId\": \"v\", \"data\": \"";
    const std::string tail = "\"}]";
    return head + std::string(total - head.size() - tail.size(), 'x') + tail;
}

}  // namespace

// Answers are checked byte for byte for every host-answered request by the dispatch test.
TEST_F(Framing, CallAndErrorFramesAreWrittenByteForByteAndErrorDetailsAreAlwaysAnObject) {
    const std::string call = COcppProtocol20::ReservationStatusUpdateReq(7, 1);
    const std::string id = COcppProtocol20::GetIdentify(call.c_str());
    ASSERT_EQ(id.size(), 36u);
    EXPECT_EQ(call, "[2,\"" + id + "\",\"ReservationStatusUpdate\",\n{\n\"reservationId\": 7,\n"
                    "\"reservationUpdateStatus\": \"Removed\"\n}]");

    OcppProtocol_ResponseError("id-2", RESPONSEERRORCODE_GENERICERROR, "boom", "{\"k\":1}");
    EXPECT_EQ(link.Last(), "[4,\"id-2\",\"GenericError\",\"boom\",{\"k\":1}]\n");
    // An error reply never carries anything but an object as details.
    OcppProtocol_ResponseError("a", RESPONSEERRORCODE_FORMATVIOLATION, nullptr, "[1,2]");
    EXPECT_EQ(link.Last(), "[4,\"a\",\"FormatViolation\",\"\",{}]\n");
    OcppProtocol_ResponseError("a", RESPONSEERRORCODE_FORMATVIOLATION, "", "{\"unterminated\":");
    EXPECT_EQ(link.Last(), "[4,\"a\",\"FormatViolation\",\"\",{}]\n");
    OcppProtocol_ResponseError("a", RESPONSEERRORCODE_TYPECONSTRAINTVIOLATION, "say \"hi\"", nullptr);
    EXPECT_EQ(link.Last(), "[4,\"a\",\"TypeConstraintViolation\",\"say \\\"hi\\\"\",{}]\n");
}

TEST_F(Framing, FrameOneByteUnderTheLimitIsSentAndAtTheLimitRefused) {
    const std::string ok = FrameOfLength(65524);
    ASSERT_EQ(ok.size(), 65524u);
    EXPECT_EQ(OcppProtocol_SendMessage(ok.c_str(), static_cast<int>(ok.size())), 1);
    EXPECT_EQ(link.Count(), 1u);

    const std::string big = FrameOfLength(65525);
    EXPECT_EQ(OcppProtocol_SendMessage(big.c_str(), static_cast<int>(big.size())), 0);
    EXPECT_EQ(link.Count(), 1u);
    EXPECT_TRUE(log.Contains("Send msg to csms iMessageLen too long, msglen:65525\n", 2));
}

TEST_F(Framing, FailedSendIsLoggedWithTheMessageIdAndWithoutALinkEverySendFails) {
    link.SetSendResult(0);
    const std::string frame = COcppProtocol20::Reset("lost-1", 0);
    EXPECT_EQ(OcppProtocol_SendMessage(frame.c_str(), static_cast<int>(frame.size())), 0);
    EXPECT_TRUE(log.Contains("Send msg to csms failed => Identify:lost-1 msglen"));

    COcppSendSeam::Reset();
    const std::string heartbeat = COcppProtocol20::HeartbeatReq();
    EXPECT_EQ(OcppProtocol_SendMessage(heartbeat.c_str(), static_cast<int>(heartbeat.size())), 0);
    OcppProtocol_InitOcppProtocol(OCPPPROTOCOL_201);
    EXPECT_EQ(OcppProtocol_SendMessage(heartbeat.c_str(), static_cast<int>(heartbeat.size()), answer, &answerLen), 0);
}

TEST_F(Framing, RequestWaitsOnlyUnderTheTwoZeroEngines) {
    link.Answer([](const std::string& id) { return "[3,\"" + id + "\",{\"currentTime\":\"2030-01-01T00:00:00Z\"}]"; });
    const std::string frame = COcppProtocol20::HeartbeatReq();

    EXPECT_EQ(OcppProtocol_SendMessage(frame.c_str(), static_cast<int>(frame.size()), answer, &answerLen), 0);
    OcppProtocol_InitOcppProtocol(OCPPPROTOCOL_16);
    EXPECT_EQ(OcppProtocol_SendMessage(frame.c_str(), static_cast<int>(frame.size()), answer, &answerLen), 0);
    EXPECT_EQ(link.Count(), 0u);

    OcppProtocol_InitOcppProtocol(OCPPPROTOCOL_201);
    ASSERT_EQ(OcppProtocol_SendMessage(frame.c_str(), static_cast<int>(frame.size()), answer, &answerLen), 1);
    EXPECT_EQ(COcppProtocol20::GetIdentify(answer), COcppProtocol20::GetIdentify(frame.c_str()));
    int64_t now = 0;
    EXPECT_EQ(COcppProtocol20::HeartbeatResp(answer, &now), 1);
    EXPECT_EQ(now, 1893456000);
}

TEST_F(Framing, HeaderHelpersSurviveAnyInput) {
    EXPECT_EQ(COcppProtocol20::GetIdentify("[2,\"abc\",\"Reset\",{}]"), "abc");
    EXPECT_EQ(COcppProtocol20::GetIdentify("not json"), "");
    EXPECT_EQ(COcppProtocol20::GetIdentify("{\"a\":1}"), "");
    EXPECT_EQ(COcppProtocol20::GetIdentify(std::string(100000, '[').c_str()), "");
    EXPECT_EQ(COcppProtocol20::GetIdentify(nullptr), "");
    EXPECT_TRUE(COcppProtocol20::IsReponseError("[4,\"a\",\"GenericError\",\"\",{}]"));
    EXPECT_FALSE(COcppProtocol20::IsReponseError("[3,\"a\",{}]"));
    EXPECT_FALSE(COcppProtocol20::IsReponseError("[4"));
}

TEST_F(Framing, BootNotificationCarriesModemOnlyWhenKnownAndCutsLongTexts) {
    BootNotificationOption option{};
    CTools::CopyField(option.serialNumber, "SN-1");
    const std::string plain =
        COcppProtocol20::BootNotificationReq(BOOTREASON_POWERUP, "a-model-name-longer-than-twenty", "Vendor", option);
    EXPECT_EQ(plain.find("modem"), std::string::npos);
    EXPECT_NE(plain.find("\"model\": \"a-model-name-longer-\""), std::string::npos);

    CTools::CopyField(option.imsi, "001010123456789");
    const std::string withModem = COcppProtocol20::BootNotificationReq(BOOTREASON_WATCHDOG, "M", "V", option);
    EXPECT_NE(withModem.find("\"imsi\": \"001010123456789\""), std::string::npos);
    EXPECT_NE(COcppProtocol20::GetIdentify(withModem.c_str()), COcppProtocol20::GetIdentify(plain.c_str()));
}

TEST_F(Framing, BootAnswerIsReadAndAnErrorAnswerLeavesTheOutputsAlone) {
    BootNotificationResult result{-5, -5, -5};
    EXPECT_EQ(COcppProtocol20::BootNotificationResp(
                  "[3,\"b\",{\"currentTime\":\"2030-01-01T00:00:10Z\",\"interval\":300,\"status\":\"Rejected\"}]",
                  &result),
              1);
    EXPECT_EQ(result.currentTime, 1893456010);
    EXPECT_EQ(result.interval, 300);
    EXPECT_EQ(result.status, 2);

    BootNotificationResult untouched{-5, -5, -5};
    EXPECT_EQ(COcppProtocol20::BootNotificationResp("[4,\"b\",\"InternalError\",\"\",{}]", &untouched), 0);
    EXPECT_EQ(COcppProtocol20::BootNotificationResp("[3,\"b\",{\"interval\":\"300\"}]", &untouched), 0);
    EXPECT_EQ(untouched.status, -5);
}

TEST_F(Framing, AnswerWithStatusOutsideItsListIsNotSent) {
    EXPECT_EQ(COcppProtocol20::Reset("x", 3), "");
    EXPECT_EQ(COcppProtocol20::Reset("x", -1), "");
    EXPECT_EQ(Ocpp20Protocol_Reset("x", 9), 0);
    EXPECT_EQ(link.Count(), 0u);
}

TEST_F(Framing, RecordBuiltMessageIsSentAsANewMessageEachTime) {
    models::meterValuesRequest_t request;
    request.evseId = 1;
    request.evseId_present = true;
    const std::string first = COcppProtocol20::MeterValuesReq(request);
    const std::string second = COcppProtocol20::MeterValuesReq(request);
    EXPECT_EQ(first.rfind("[2,\"", 0), 0u);
    EXPECT_NE(first.find("\"MeterValues\",\n{"), std::string::npos);
    EXPECT_NE(COcppProtocol20::GetIdentify(first.c_str()), COcppProtocol20::GetIdentify(second.c_str()));
    EXPECT_EQ(COcppProtocol20::MeterValuesResp("[3,\"m\",{}]"), 1);
    EXPECT_EQ(COcppProtocol20::MeterValuesResp("[4,\"m\",\"GenericError\",\"\",{}]"), 0);
}
