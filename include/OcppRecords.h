/* Host notification records: byte-packed, little-endian. */
#ifndef OCPP_RECORDS_H
#define OCPP_RECORDS_H

#include <stdint.h>

#include "OcppExport.h"

#pragma pack(push, 1)

/* Common head of every notification record. */
typedef struct {
    int32_t type;          /* SERVERRECVTYPE */
    char messageId[37];    /* CSMS message id to answer; empty when the record answers nothing */
} ServerRecvBase;
OCPP_STATIC_ASSERT(sizeof(ServerRecvBase) == 41, "ServerRecvBase must be 41 bytes");

#pragma pack(pop)

#endif
