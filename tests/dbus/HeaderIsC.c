/* Compiled as C only: fails to build if the bus interface header stops being C. */
#include <LibDbus.h>

static void OnPacket(void* handle, void* message, uint16_t command, const uint8_t* data, uint32_t length) {
    (void)LibDbus_Reply(handle, message, command, data, length);
}

void* LibDbusHeaderIsC(void) { return LibDbus_Init("c_module", 5, OnPacket); }
