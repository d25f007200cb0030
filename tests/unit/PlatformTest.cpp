// Faults that show only on the 32-bit ARM target, where long and time_t are
// 4 bytes and 64-bit variadic arguments sit on 8-byte boundaries. The same
// checks run natively and under qemu-arm.
#include <gtest/gtest.h>

#include "TestSupport.h"
#include "Util/Tools.h"

using namespace ocpptest;

namespace {
const int64_t kYear2020Ms = 1577836800000LL;
const int64_t kYear2100Ms = 4102444800000LL;
const int64_t kFiftyDaysMs = 50LL * 86400 * 1000;  // beyond both 2^31 and 2^32 ms
}  // namespace

TEST(Platform32Bit, MillisecondClocksDoNotWrapOnA32BitLong) {
    const int64_t wallMs = CTools::CurTimeMilSec();
    EXPECT_GT(wallMs, kYear2020Ms) << "wall clock in ms wrapped or was truncated";
    EXPECT_LT(wallMs, kYear2100Ms);
    EXPECT_LE(CTools::CurTimeSec() - wallMs / 1000, 1);

    // A station that has run for 50 days has a monotonic ms count past 2^32.
    ClockGuard guard;
    CTools::FreezeClock(true);
    const int64_t wall = CTools::CurTimeMilSec();
    const int64_t mono = CTools::GetCurRunTimeMilSec();
    CTools::AdvanceClockMs(kFiftyDaysMs);
    EXPECT_EQ(CTools::CurTimeMilSec() - wall, kFiftyDaysMs);
    EXPECT_EQ(CTools::GetCurRunTimeMilSec() - mono, kFiftyDaysMs);
    EXPECT_EQ(CTools::GetCurRunTimeSec(), (mono + kFiftyDaysMs) / 1000);
}

TEST(Platform32Bit, CsmsTimesAfter2038KeepTheirValue) {
    EXPECT_EQ(CTools::GetTimeByString("2038-01-19T03:14:07Z"), 2147483647LL);
    EXPECT_EQ(CTools::GetTimeByString("2038-01-19T03:14:08Z"), 2147483648LL);
    EXPECT_EQ(CTools::GetTimeByString("2106-02-07T06:28:16Z"), 4294967296LL);
    EXPECT_EQ(CTools::GetTimeByString("2045-06-30T23:59:59.999+02:00"), 2382472799LL);
    EXPECT_TRUE(CTools::IsValidUTCTime("2040-02-29T00:00:00Z"));

    // What the station sends back must be the same instant, not a 1901 date.
    EXPECT_EQ(CTools::GetLocalTime(2147483648LL), "2038-01-19T03:14:08.000Z");
    EXPECT_EQ(CTools::GetLocalTime(4294967296LL), "2106-02-07T06:28:16.000Z");
}

TEST(Platform32Bit, SixtyFourBitValuesFormatWithoutTruncation) {
    const int64_t big = 4294967296123LL;
    EXPECT_EQ(CTools::StringFormat("%lld", static_cast<long long>(big)), "4294967296123");
    EXPECT_EQ(CTools::StringFormat("%lld", static_cast<long long>(-big)), "-4294967296123");
    // A 64-bit value after a 32-bit one is padded to 8 bytes in the argument
    // list on ARM; the values after it must still line up.
    EXPECT_EQ(CTools::StringFormat("%d|%lld|%s|%u", 7, static_cast<long long>(big), "evse", 4000000000u),
              "7|4294967296123|evse|4000000000");
}
