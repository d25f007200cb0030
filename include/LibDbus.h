/*
 * Packet messaging between station modules over the D-Bus session bus.
 *
 * Each module registers under a name of its own and exchanges framed packets
 * (a 16-bit command and a payload protected by a CRC) with the others. Sends
 * are fire-and-forget or synchronous; a synchronous request is answered by the
 * receiving module with LibDbus_Reply.
 *
 * Module names become part of bus names, object paths and interface names, so
 * they may hold only letters, digits and '_' and must not start with a digit.
 *
 * All functions return 1 on success and 0 on failure unless noted; this header
 * also compiles as C.
 */
#ifndef LIB_DBUS_H
#define LIB_DBUS_H

#include <stdint.h>

#include "OcppExport.h"

OCPP_EXTERN_C_BEGIN

/*
 * Called on the module's receive thread for every valid packet that reaches it.
 * `message` identifies the request for LibDbus_Reply and is only valid during
 * the call; `data` likewise. Do not call LibDbus_UnInit for the same handle
 * from inside the callback.
 */
typedef void (*LibDbusCallBack)(void* handle, void* message, uint16_t command, const uint8_t* data,
                                uint32_t length);

/* Receives the hexadecimal dump ("%02X " per byte) of every packet sent and received. */
typedef void (*LibDbusHexLogFunc)(const char* hex);

/* Registers the module; returns its handle, or null when the bus or the name is refused. */
OCPP_API void* LibDbus_Init(const char* moduleName, int timeoutSec, LibDbusCallBack callback);

/* Leaves the bus and frees the handle. */
OCPP_API void LibDbus_UnInit(void* handle);

/* Sends one packet to the module `target` without waiting for anything. */
OCPP_API int LibDbus_Send(void* handle, const char* target, uint16_t command, const uint8_t* data,
                          uint32_t length);

/*
 * Sends one packet and waits (up to about twice 10 seconds) for the answer.
 * `answerLength` gives the size of `answer` on entry and holds the answer's
 * payload length on success. Returns 0 when no answer came or it does not fit.
 */
OCPP_API int LibDbus_SendSync(const char* target, uint16_t command, const uint8_t* data, uint32_t length,
                              uint8_t* answer, uint32_t* answerLength);

/* As LibDbus_SendSync with a time-out of `timeoutSec` seconds. */
OCPP_API int LibDbus_SendSyncWithTimeout(const char* target, uint16_t command, const uint8_t* data,
                                         uint32_t length, uint8_t* answer, uint32_t* answerLength,
                                         int timeoutSec);

/* Answers `request` (the message given to the callback) with one packet. */
OCPP_API int LibDbus_Reply(void* handle, void* request, uint16_t command, const uint8_t* data,
                           uint32_t length);

/* Installs (or with null removes) the hexadecimal packet dump. */
OCPP_API void LibDbus_SetHexLog(LibDbusHexLogFunc function);

OCPP_EXTERN_C_END

#endif
