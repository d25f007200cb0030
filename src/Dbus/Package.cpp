#include "Dbus/Package.h"

#include <cstdlib>
#include <cstring>
#include <mutex>

#include "Util/Tools.h"

namespace {

struct CrcTable {
    uint16_t value[256];
    constexpr CrcTable() : value() {
        for (int i = 0; i < 256; ++i) {
            uint16_t crc = static_cast<uint16_t>(i);
            for (int bit = 0; bit < 8; ++bit) crc = (crc & 1) ? static_cast<uint16_t>((crc >> 1) ^ 0xA001) : (crc >> 1);
            value[i] = crc;
        }
    }
};
constexpr CrcTable kCrcTable;

// The random bytes are drawn from a private generator, seeded exactly as
// srandom() would be, so the host's own random() sequence stays untouched.
std::mutex g_randomMutex;

void DrawRandomBytes(uint8_t& first, uint8_t& second) {
    std::lock_guard<std::mutex> lock(g_randomMutex);
    static char state[128];
    static struct random_data data;
    memset(&data, 0, sizeof data);
    initstate_r(static_cast<unsigned int>(CTools::CurTimeSec()), state, sizeof state, &data);
    int32_t value = 0;
    random_r(&data, &value);
    first = static_cast<uint8_t>(value & 0xFF);
    random_r(&data, &value);
    second = static_cast<uint8_t>(value & 0xFF);
}

void PutU16(uint8_t* at, uint16_t value) {
    at[0] = static_cast<uint8_t>(value >> 8);
    at[1] = static_cast<uint8_t>(value & 0xFF);
}

uint16_t GetU16(const uint8_t* at) { return static_cast<uint16_t>((at[0] << 8) | at[1]); }

}  // namespace

uint16_t CPackage::Crc16Modbus(const uint8_t* data, size_t length) {
    uint16_t crc = 0xFFFF;
    for (size_t i = 0; i < length; ++i) crc = static_cast<uint16_t>((crc >> 8) ^ kCrcTable.value[(crc ^ data[i]) & 0xFF]);
    return crc;
}

bool CPackage::Build(uint16_t command, const uint8_t* data, uint32_t length) {
    uint8_t random0 = 0, random1 = 0;
    DrawRandomBytes(random0, random1);
    return Build(command, data, length, random0, random1);
}

bool CPackage::Build(uint16_t command, const uint8_t* data, uint32_t length, uint8_t random0, uint8_t random1) {
    m_packet.clear();
    m_payload.assign(1, 0);
    m_payloadLength = 0;
    m_command = command;
    if (length > kMaxPayload || (length > 0 && data == nullptr)) return false;

    m_packet.resize(length + kOverhead);
    uint8_t* p = m_packet.data();
    p[0] = kHead0;
    p[1] = kHead1;
    p[2] = kHead2;
    p[3] = random0;
    p[4] = random1;
    PutU16(p + 5, static_cast<uint16_t>(length + 4));
    PutU16(p + 7, command);
    if (length > 0) memcpy(p + 9, data, length);
    PutU16(p + 9 + length, Crc16Modbus(p + 3, length + 6));

    if (length > 0) m_payload.assign(data, data + length);
    m_payloadLength = length;
    return true;
}

bool CPackage::Parse(const uint8_t* packet, size_t length) {
    m_packet.clear();
    m_payload.assign(1, 0);
    m_payloadLength = 0;
    m_command = 0;
    if (packet == nullptr || length < kOverhead) return false;
    // Deliberately lenient: one matching lead byte is enough, the CRC decides.
    if (packet[0] != kHead0 && packet[1] != kHead1 && packet[2] != kHead2) return false;

    const uint16_t lengthField = GetU16(packet + 5);
    if (lengthField < 4) return false;
    const size_t payloadLength = lengthField - 4u;
    if (payloadLength + kOverhead > length) return false;  // header claims more than arrived

    const uint16_t crc = Crc16Modbus(packet + 3, length - 5);
    if (crc != GetU16(packet + 9 + payloadLength)) return false;

    m_command = GetU16(packet + 7);
    if (payloadLength > 0) m_payload.assign(packet + 9, packet + 9 + payloadLength);
    m_payloadLength = static_cast<uint32_t>(payloadLength);
    m_packet.assign(packet, packet + length);
    return true;
}
