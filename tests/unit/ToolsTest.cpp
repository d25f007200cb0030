#include <gtest/gtest.h>

#include <cstring>

#include "OcppProtocol/InboundFrame.h"
#include "TestSupport.h"
#include "Util/CryptoUtil.h"
#include "Util/Tools.h"

using namespace ocpptest;

TEST(Clock, UnfreezingNeverMovesTimeBackwards) {
    ClockGuard guard;
    CTools::FreezeClock(true);
    CTools::AdvanceClockMs(90 * 1000);
    const int64_t wall = CTools::CurTimeMilSec();
    CTools::FreezeClock(false);
    EXPECT_GE(CTools::CurTimeMilSec(), wall);
}

TEST(TimeText, Rfc3339IsParsedToUtcEpochSeconds) {
    EXPECT_EQ(CTools::GetTimeByString("1970-01-01T00:00:00Z"), 0);
    EXPECT_EQ(CTools::GetTimeByString("2024-02-29T12:00:00.123Z"), 1709208000);
    EXPECT_EQ(CTools::GetTimeByString("2024-02-29T14:00:00+02:00"), 1709208000);
    EXPECT_EQ(CTools::GetLocalTime(1709208000), "2024-02-29T12:00:00.000Z");
}

TEST(TimeText, MalformedTimesAreRejected) {
    for (const char* bad : {"", "2024-02-30T00:00:00Z", "2023-02-29T00:00:00Z", "2024-01-01T24:00:00Z",
                            "2024-01-01", "2024-01-01T00:00:00", "2024-01-01T00:00:00Zjunk", "x024-01-01T00:00:00Z",
                            "2024-13-01T00:00:00Z", "2024-01-01T00:00:00.Z"}) {
        EXPECT_FALSE(CTools::IsValidUTCTime(bad)) << bad;
        EXPECT_EQ(CTools::GetTimeByString(bad), -1) << bad;
    }
}

TEST(ValueChecks, IntegersDecimalsAndBooleans) {
    EXPECT_TRUE(CTools::IsInt("-42"));
    EXPECT_FALSE(CTools::IsInt("4.2"));
    EXPECT_FALSE(CTools::IsInt("-"));
    EXPECT_FALSE(CTools::IsInt(""));
    EXPECT_TRUE(CTools::IsDecimal("4.25"));
    EXPECT_TRUE(CTools::IsDecimal("-7"));
    EXPECT_FALSE(CTools::IsDecimal("1.2.3"));
    EXPECT_FALSE(CTools::IsDecimal("."));
    EXPECT_TRUE(CTools::IsBool("true"));
    EXPECT_FALSE(CTools::IsBool("True"));
}

TEST(TokenPrivacy, LogsShowOnlyTheHashOfAnIdToken) {
    EXPECT_EQ(CCryptoUtil::GenSha256("abc"), "ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad");
    EXPECT_EQ(CTools::Hash12("abc"), "ba7816bf8f01");
    EXPECT_EQ(CTools::Hash12(""), "");
    const std::string masked =
        CTools::MaskIdTokenFromJson(R"([2,"1","Authorize",{"idToken":{"idToken":"SECRET42","type":"ISO14443"}}])");
    EXPECT_EQ(masked.find("SECRET42"), std::string::npos);
    EXPECT_NE(masked.find(CTools::Hash12("SECRET42")), std::string::npos);
}

TEST(TokenPrivacy, CsmsFrameLogShowsTokenHashesAndOtherFramesAsReceived) {
    const std::string plain = "[2,\"a\",\"Reset\",\n{ \"type\": \"Immediate\" }]";
    EXPECT_EQ(CInboundFrame::Copy(plain.data(), plain.size())->MaskedText(), plain);
    const std::string start =
        R"([2,"b","RequestStartTransaction",{"idToken":{"idToken":"SECRET1","type":"ISO14443"},)"
        R"("groupIdToken":{"idToken":"SECRET2","type":"Central"},"remoteStartId":7}])";
    EXPECT_EQ(CInboundFrame::Copy(start.data(), start.size())->MaskedText(),
              R"([2,"b","RequestStartTransaction",{"idToken":{"idToken":")" + CTools::Hash12("SECRET1") +
                  R"(","type":"ISO14443"},"groupIdToken":{"idToken":")" + CTools::Hash12("SECRET2") +
                  R"(","type":"Central"},"remoteStartId":7}])");
}

TEST(FixedFields, CopyIsBoundedAndAlwaysTerminated) {
    char field[5];
    memset(field, 'x', sizeof field);
    EXPECT_EQ(CTools::CopyField(field, "abcdefgh"), 4u);
    EXPECT_STREQ(field, "abcd");
    EXPECT_EQ(CTools::CopyField(field, static_cast<const char*>(nullptr)), 0u);
    EXPECT_STREQ(field, "");
}
