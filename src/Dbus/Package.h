#pragma once
#include <cstddef>
#include <cstdint>
#include <vector>

// The framed packet that station modules exchange over the bus:
//   FF 6A A6 | 2 random bytes | length (payload + 4) | command | payload | CRC
// Multi-byte fields are big-endian; the CRC-16/MODBUS covers everything from the
// random bytes to the end of the payload and is stored high byte first.
class CPackage {
public:
    static constexpr uint8_t kHead0 = 0xFF;
    static constexpr uint8_t kHead1 = 0x6A;
    static constexpr uint8_t kHead2 = 0xA6;
    static constexpr uint32_t kOverhead = 11;              // header, length, command, CRC
    static constexpr uint32_t kMaxPayload = 0xFFFF - 4;    // the length field is 16 bits

    static uint16_t Crc16Modbus(const uint8_t* data, size_t length);

    // Builds a packet whose random bytes come from a generator seeded with the
    // current second. False (and an empty packet) when the payload is too long.
    bool Build(uint16_t command, const uint8_t* data, uint32_t length);
    bool Build(uint16_t command, const uint8_t* data, uint32_t length, uint8_t random0, uint8_t random1);

    // Reads a received packet. On success the command and payload are available;
    // an empty payload still has a one-byte (zero) buffer behind GetData().
    bool Parse(const uint8_t* packet, size_t length);

    uint16_t GetCommand() const { return m_command; }
    const uint8_t* GetData() const { return m_payload.data(); }
    uint32_t GetDataLength() const { return m_payloadLength; }
    const uint8_t* GetPacket() const { return m_packet.data(); }
    uint32_t GetPacketLength() const { return static_cast<uint32_t>(m_packet.size()); }

private:
    uint16_t m_command = 0;
    uint32_t m_payloadLength = 0;
    std::vector<uint8_t> m_payload;
    std::vector<uint8_t> m_packet;
};
