/*
 * Smart charging entries the host calls: profiles the station installs itself
 * and the ISO 15118 choice of a schedule.
 */
#ifndef OCPP_SMART_CHARGING_H
#define OCPP_SMART_CHARGING_H

#include <stdint.h>

#include "OcppExport.h"

OCPP_EXTERN_C_BEGIN

/* Who set a charging limit. */
typedef enum {
    CHARGINGLIMITSOURCE_EMS = 0,
    CHARGINGLIMITSOURCE_OTHER = 1,
    CHARGINGLIMITSOURCE_SO = 2,
    CHARGINGLIMITSOURCE_CSO = 3 /* the CSMS: never removed by the host */
} CHARGINGLIMITSOURCE;
OCPP_STATIC_ASSERT(sizeof(CHARGINGLIMITSOURCE) == 4, "CHARGINGLIMITSOURCE travels as 32 bits");

/* Energy transfer the EV asks for. */
typedef enum {
    ENERGYTRANSFERMODE_DC = 0,
    ENERGYTRANSFERMODE_AC_SINGLE_PHASE = 1,
    ENERGYTRANSFERMODE_AC_TWO_PHASE = 2,
    ENERGYTRANSFERMODE_AC_THREE_PHASE = 3
} ENERGYTRANSFERMODE;
OCPP_STATIC_ASSERT(sizeof(ENERGYTRANSFERMODE) == 4, "ENERGYTRANSFERMODE travels as 32 bits");

/* Installs a profile of the station's own, JSON {"evseId":n,"chargingProfile":{...}}; it is
 * stored under its chargingLimitSource ("Other" when it has none) and reported to the CSMS.
 * 1 when stored. */
OCPP_API int OcppProtocol_AddCharingProfile(const char* requestJson);
/* Removes every profile the host installed under `source` and tells the CSMS; CSO is refused (0). */
OCPP_API int OcppProtocol_RemoveCharingProfile(int evseId, CHARGINGLIMITSOURCE source);
/* The EV starts ISO 15118 charging: online the CSMS is asked for a profile, which comes back as a
 * charging profile record (type 31) for the host to choose schedules from; offline the current
 * TxDefault schedule is sent to the EV (255 when there is none). */
OCPP_API int OcppProtocol_RequestChargingProfile(int evseId, ENERGYTRANSFERMODE mode, int controlMode,
                                                 int departureTimeSec);
/* The host's choice for a pending profile: `scheduleIds` as the host lists them. 1 when stored. */
OCPP_API int OcppProtocol_SelectChargingProfileSchedule(uint32_t profileId, const char* scheduleIds);

OCPP_EXTERN_C_END

#endif
