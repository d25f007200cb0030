/*
 * Charge-point protocol library: the host's interface.
 *
 * The station controller registers one callback table, names a cache folder,
 * gives its connection profiles and then talks to the CSMS through the
 * OcppProtocol_* entries. Notification records reach the host through slot 2
 * of the callback table, from one library thread, one at a time.
 *
 * Entries whose parameters are plain C types have C linkage, so this header
 * also compiles as C for them.
 */
#ifndef OCPP_PROTOCOL_H
#define OCPP_PROTOCOL_H

#include <stdint.h>

#include "OcppExport.h"
#include "OcppRecords.h"
#include "OcppLog.h"

OCPP_EXTERN_C_BEGIN

/* Diagnostic log levels handed to the host's log callback. */
typedef enum { LOGLEVEL_DEBUG = 0, LOGLEVEL_INFO = 1, LOGLEVEL_ERROR = 2 } LOGLEVEL;

typedef void (*OcppLogCallBack)(LOGLEVEL level, const char* function, const char* file, int line, const char* text);

/* Registers (or replaces) the host's diagnostic log sink; without one, lines go to standard output. */
OCPP_API void OcppProtocol_SetLog(OcppLogCallBack callback);

OCPP_EXTERN_C_END

#endif
