#include <gtest/gtest.h>

#include <cstdlib>
#include <vector>

#include "Dbus/Package.h"
#include "TestSupport.h"
#include "Util/Tools.h"

using namespace ocpptest;

namespace {

// Reference CRC-16/MODBUS, one bit at a time, independent of the library's table.
uint16_t BitwiseModbusCrc(const std::vector<uint8_t>& bytes) {
    uint16_t crc = 0xFFFF;
    for (uint8_t b : bytes) {
        crc ^= b;
        for (int i = 0; i < 8; ++i) crc = (crc & 1) ? static_cast<uint16_t>((crc >> 1) ^ 0xA001) : crc >> 1;
    }
    return crc;
}

std::vector<uint8_t> Built(uint16_t command, const std::vector<uint8_t>& payload, uint8_t r0 = 0x12,
                           uint8_t r1 = 0x34) {
    CPackage package;
    EXPECT_TRUE(package.Build(command, payload.data(), static_cast<uint32_t>(payload.size()), r0, r1));
    return std::vector<uint8_t>(package.GetPacket(), package.GetPacket() + package.GetPacketLength());
}

}  // namespace

TEST(PacketCodec, AbcPacketIsFramedByteForByte) {
    const std::vector<uint8_t> abc = {'A', 'B', 'C'};
    const std::vector<uint8_t> packet = Built(7, abc);
    std::vector<uint8_t> expected = {0xFF, 0x6A, 0xA6, 0x12, 0x34, 0x00, 0x07, 0x00, 0x07, 0x41, 0x42, 0x43};
    const uint16_t crc = BitwiseModbusCrc(std::vector<uint8_t>(expected.begin() + 3, expected.end()));
    expected.push_back(static_cast<uint8_t>(crc >> 8));
    expected.push_back(static_cast<uint8_t>(crc & 0xFF));
    EXPECT_EQ(packet, expected);
    const uint8_t check[] = {'1', '2', '3', '4', '5', '6', '7', '8', '9'};
    EXPECT_EQ(CPackage::Crc16Modbus(check, sizeof check), 0x4B37);  // the catalogue check value

    CPackage parsed;
    ASSERT_TRUE(parsed.Parse(packet.data(), packet.size()));
    EXPECT_EQ(parsed.GetCommand(), 7);
    ASSERT_EQ(parsed.GetDataLength(), 3u);
    EXPECT_EQ(std::vector<uint8_t>(parsed.GetData(), parsed.GetData() + 3), abc);
}

TEST(PacketCodec, OneMatchingLeadByteIsEnoughTheCrcDecides) {
    std::vector<uint8_t> packet = Built(0x0102, {1, 2, 3, 4});
    CPackage parsed;

    packet[1] = 0x00;
    packet[2] = 0x00;  // only 0xFF left
    ASSERT_TRUE(parsed.Parse(packet.data(), packet.size()));
    EXPECT_EQ(parsed.GetCommand(), 0x0102);

    packet[0] = 0x00;
    packet[2] = 0xA6;  // only the third byte left
    EXPECT_TRUE(parsed.Parse(packet.data(), packet.size()));

    packet[2] = 0x00;  // none of the three
    EXPECT_FALSE(parsed.Parse(packet.data(), packet.size()));
}

TEST(PacketCodec, CorruptedPacketsAreRefused) {
    const std::vector<uint8_t> good = Built(9, {'h', 'e', 'l', 'l', 'o'});
    CPackage parsed;
    for (size_t i = 3; i < good.size(); ++i) {
        std::vector<uint8_t> bad = good;
        bad[i] ^= 0x01;
        EXPECT_FALSE(parsed.Parse(bad.data(), bad.size())) << "flipped bit in byte " << i;
    }
    // Cut short, or a header that claims more than arrived: refused without reading past the end.
    for (size_t cut = 0; cut < good.size(); ++cut) {
        std::vector<uint8_t> shortened(good.begin(), good.begin() + static_cast<long>(cut));
        EXPECT_FALSE(parsed.Parse(shortened.data(), shortened.size())) << "length " << cut;
    }
    std::vector<uint8_t> claimsMore = good;
    claimsMore[5] = 0xFF;
    EXPECT_FALSE(parsed.Parse(claimsMore.data(), claimsMore.size()));
    std::vector<uint8_t> lengthTooSmall = good;
    lengthTooSmall[5] = 0x00;
    lengthTooSmall[6] = 0x03;
    EXPECT_FALSE(parsed.Parse(lengthTooSmall.data(), lengthTooSmall.size()));
    EXPECT_FALSE(parsed.Parse(nullptr, 20));
}

TEST(PacketCodec, EmptyPayloadRoundTripsWithAOneByteBufferAndOneTooLongForTheLengthFieldIsRefused) {
    CPackage package;
    ASSERT_TRUE(package.Build(0xBEEF, nullptr, 0, 0xAA, 0x55));
    ASSERT_EQ(package.GetPacketLength(), 11u);
    const std::vector<uint8_t> packet(package.GetPacket(), package.GetPacket() + 11);
    EXPECT_EQ(packet[5], 0x00);
    EXPECT_EQ(packet[6], 0x04);

    CPackage parsed;
    ASSERT_TRUE(parsed.Parse(packet.data(), packet.size()));
    EXPECT_EQ(parsed.GetCommand(), 0xBEEF);
    EXPECT_EQ(parsed.GetDataLength(), 0u);
    ASSERT_NE(parsed.GetData(), nullptr);
    EXPECT_EQ(parsed.GetData()[0], 0);

    std::vector<uint8_t> tooLong(CPackage::kMaxPayload + 1, 0x5A);
    EXPECT_FALSE(package.Build(1, tooLong.data(), static_cast<uint32_t>(tooLong.size()), 0, 0));
    EXPECT_EQ(package.GetPacketLength(), 0u);
    EXPECT_TRUE(package.Build(1, tooLong.data(), CPackage::kMaxPayload, 0, 0));
}

TEST(PacketCodec, RandomBytesFollowTheSecondSeedAndLeaveTheHostsSequenceAlone) {
    ClockGuard clock;
    CTools::FreezeClock(true);
    const unsigned seed = static_cast<unsigned>(CTools::CurTimeSec());
    srandom(seed);
    const uint8_t first = static_cast<uint8_t>(random() & 0xFF);
    const uint8_t second = static_cast<uint8_t>(random() & 0xFF);

    srandom(4242);
    const long hostNext = random();
    srandom(4242);
    CPackage package;
    const uint8_t payload[] = {1};
    ASSERT_TRUE(package.Build(3, payload, 1));
    EXPECT_EQ(random(), hostNext) << "building a packet must not reseed the host's generator";
    EXPECT_EQ(package.GetPacket()[3], first);
    EXPECT_EQ(package.GetPacket()[4], second);
}
