#include <gtest/gtest.h>

#include <cstring>

#include "OcppProtocol/InboundFrame.h"
#include "TestSupport.h"
#include "Util/CryptoUtil.h"
#include "Util/Tools.h"

using namespace ocpptest;

// Platform32Bit: faults that show only on the 32-bit ARM target, where long and time_t
// are 4 bytes; the same checks run natively and under qemu-arm.

TEST(Platform32Bit, MillisecondClocksDoNotWrapOnA32BitLongAndUnfreezingNeverMovesTimeBackwards) {
    const int64_t wallMs = CTools::CurTimeMilSec();
    EXPECT_GT(wallMs, 1577836800000LL) << "wall clock in ms wrapped or was truncated before 2020";
    EXPECT_LT(wallMs, 4102444800000LL);
    EXPECT_LE(CTools::CurTimeSec() - wallMs / 1000, 1);

    // A station that has run for 50 days has a monotonic ms count past 2^32.
    const int64_t fiftyDaysMs = 50LL * 86400 * 1000;
    ClockGuard guard;
    CTools::FreezeClock(true);
    const int64_t wall = CTools::CurTimeMilSec();
    const int64_t mono = CTools::GetCurRunTimeMilSec();
    CTools::AdvanceClockMs(fiftyDaysMs);
    EXPECT_EQ(CTools::CurTimeMilSec() - wall, fiftyDaysMs);
    EXPECT_EQ(CTools::GetCurRunTimeMilSec() - mono, fiftyDaysMs);
    EXPECT_EQ(CTools::GetCurRunTimeSec(), (mono + fiftyDaysMs) / 1000);
    CTools::FreezeClock(false);
    EXPECT_GE(CTools::CurTimeMilSec(), wall + fiftyDaysMs);
}

TEST(Platform32Bit, CsmsTimesAreReadAsUtcEpochSecondsAndWrittenBackAsTheSameInstantPast2038) {
    const struct {
        const char* text;
        int64_t sec;
    } reads[] = {
        {"1970-01-01T00:00:00Z", 0},
        {"2024-02-29T12:00:00.123Z", 1709208000},
        {"2024-02-29T14:00:00+02:00", 1709208000},
        {"2038-01-19T03:14:07Z", 2147483647LL},
        {"2038-01-19T03:14:08Z", 2147483648LL},
        {"2106-02-07T06:28:16Z", 4294967296LL},
        {"2045-06-30T23:59:59.999+02:00", 2382472799LL},
    };
    for (const auto& r : reads) EXPECT_EQ(CTools::GetTimeByString(r.text), r.sec) << r.text;
    EXPECT_TRUE(CTools::IsValidUTCTime("2040-02-29T00:00:00Z"));
    EXPECT_EQ(CTools::GetLocalTime(1709208000), "2024-02-29T12:00:00.000Z");
    EXPECT_EQ(CTools::GetLocalTime(2147483648LL), "2038-01-19T03:14:08.000Z") << "not a 1901 date";
    EXPECT_EQ(CTools::GetLocalTime(4294967296LL), "2106-02-07T06:28:16.000Z");
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

TEST(TokenPrivacy, LogsShowOnlyTheHashOfAnIdTokenAndOtherFramesAsReceived) {
    EXPECT_EQ(CCryptoUtil::GenSha256("abc"), "ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad");
    EXPECT_EQ(CTools::Hash12("abc"), "ba7816bf8f01");
    EXPECT_EQ(CTools::Hash12(""), "");
    const std::string masked =
        CTools::MaskIdTokenFromJson(R"([2,"1","Authorize",{"idToken":{"idToken":"SECRET42","type":"ISO14443"}}])");
    EXPECT_EQ(masked.find("SECRET42"), std::string::npos);
    EXPECT_NE(masked.find(CTools::Hash12("SECRET42")), std::string::npos);

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

TEST(Platform32Bit, SixtyFourBitValuesFormatWithoutTruncation) {
    const int64_t big = 4294967296123LL;
    EXPECT_EQ(CTools::StringFormat("%lld", static_cast<long long>(big)), "4294967296123");
    EXPECT_EQ(CTools::StringFormat("%lld", static_cast<long long>(-big)), "-4294967296123");
    // On ARM a 64-bit value after a 32-bit one is padded to 8 bytes; the values after it must still line up.
    EXPECT_EQ(CTools::StringFormat("%d|%lld|%s|%u", 7, static_cast<long long>(big), "evse", 4000000000u),
              "7|4294967296123|evse|4000000000");
}
