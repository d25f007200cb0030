// The bus packet reader on any bytes another module may send: a well-headed
// packet it accepts it must build again byte for byte.
#include <cstddef>
#include <cstdint>
#include <cstring>

#include "Dbus/Package.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    CPackage package;
    if (!package.Parse(data, size)) return 0;
    const uint32_t length = package.GetDataLength();
    // The payload is readable to its last byte.
    volatile uint8_t sum = 0;
    for (uint32_t i = 0; i < length; ++i) sum = static_cast<uint8_t>(sum + package.GetData()[i]);
    CPackage again;
    const bool wellHeaded = data[0] == CPackage::kHead0 && data[1] == CPackage::kHead1 && data[2] == CPackage::kHead2;
    if (!again.Build(package.GetCommand(), package.GetData(), length, data[3], data[4])) __builtin_trap();
    if (wellHeaded && again.GetPacketLength() == size && memcmp(again.GetPacket(), data, size) != 0) __builtin_trap();
    return 0;
}
