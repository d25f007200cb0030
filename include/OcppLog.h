/*
 * Host operational log: records the station controller appends are kept in
 * rotating text files and in a database, from which a time window can be
 * exported as a file for diagnostics upload.
 */
#ifndef OCPP_LOG_H
#define OCPP_LOG_H

#include <stdint.h>

#include "OcppExport.h"

OCPP_EXTERN_C_BEGIN

/* Kind of an operational record; stored with it and usable as an export filter. */
typedef enum {
    LOGTYPE_SYSTEM = 0,
    LOGTYPE_CHARGING = 1,
    LOGTYPE_FAULT = 2,
    LOGTYPE_NETWORK = 3,
    LOGTYPE_OPERATION = 4,
    LOGTYPE_SECURITY = 5,
    LOGTYPE_OTHER = 6
} LOGTYPE;

#define OCPP_LOG_FILTER_TEXT_LEN 30

/* Which records an export takes. */
typedef struct {
    int64_t startTime;   /* seconds since the epoch, inclusive */
    int64_t endTime;     /* seconds since the epoch, inclusive; 0 means now */
    int32_t hasLogType;  /* 1: only records of logType */
    int32_t logType;     /* LOGTYPE */
    char text[OCPP_LOG_FILTER_TEXT_LEN + 1]; /* empty: any; otherwise a substring the record must contain */
} OCPP_PACKED OcppLogFilter;

OCPP_STATIC_ASSERT(sizeof(OcppLogFilter) == 55, "OcppLogFilter layout is part of the host interface");

/* Export progress: total matching records and how many are written so far. */
typedef void (*OcppLogFilterProgress)(int total, int written);
/* Export done: the path of the archive (.tar.gz) holding the exported .log file. */
typedef void (*OcppLogFilterSuccess)(const char* path);
/* Export failed; nothing usable was produced. */
typedef void (*OcppLogFilterFailure)(void);

/* Names the log database (its folder also receives the rotating text files). 1 on success. */
OCPP_API int OcppProtocol_SetLogFile(const char* path);

/* Appends one record; never waits for the database. */
OCPP_API void OcppProtocol_AppendLog(int type, int level, const char* text);

/* Starts an export into `dir` on a worker thread; the callbacks report the outcome from that thread.
 * Returns 1 when the export was started, 0 when no log file is set or the arguments are unusable. */
OCPP_API int OcppProtocol_FilterLog(const char* dir, const OcppLogFilter* filter, OcppLogFilterProgress progress,
                                    OcppLogFilterSuccess success, OcppLogFilterFailure failure);

OCPP_EXTERN_C_END

#endif
