/*
 * Charging sessions: what the host calls to start, update and end a
 * transaction, the meter items it hands over, and the lookups it may use.
 *
 * Every entry works for the protocol version negotiated with the CSMS; before
 * a version is known the transaction entries return 255 and the others 1 (or
 * 0 where noted) without doing anything.
 */
#ifndef OCPP_TRANSACTION_H
#define OCPP_TRANSACTION_H

#include <stdint.h>

#include "OcppExport.h"

OCPP_EXTERN_C_BEGIN

/* Why an event is sent (TriggerReasonEnumType order). */
typedef enum {
    TRANSACTIONREASON_AUTHORIZED = 0,
    TRANSACTIONREASON_CABLEPLUGGEDIN = 1,
    TRANSACTIONREASON_CHARGINGRATECHANGED = 2,
    TRANSACTIONREASON_CHARGINGSTATECHANGED = 3,
    TRANSACTIONREASON_DEAUTHORIZED = 4,
    TRANSACTIONREASON_ENERGYLIMITREACHED = 5,
    TRANSACTIONREASON_EVCOMMUNICATIONLOST = 6,
    TRANSACTIONREASON_EVCONNECTTIMEOUT = 7,
    TRANSACTIONREASON_METERVALUECLOCK = 8,
    TRANSACTIONREASON_METERVALUEPERIODIC = 9,
    TRANSACTIONREASON_TIMELIMITREACHED = 10,
    TRANSACTIONREASON_TRIGGER = 11,
    TRANSACTIONREASON_UNLOCKCOMMAND = 12,
    TRANSACTIONREASON_STOPAUTHORIZED = 13,
    TRANSACTIONREASON_EVDEPARTED = 14,
    TRANSACTIONREASON_EVDETECTED = 15,
    TRANSACTIONREASON_REMOTESTOP = 16,
    TRANSACTIONREASON_REMOTESTART = 17,
    TRANSACTIONREASON_ABNORMALCONDITION = 18,
    TRANSACTIONREASON_SIGNEDDATARECEIVED = 19,
    TRANSACTIONREASON_RESETCOMMAND = 20
} TRANSACTIONREASON;

/* ChargingStateEnumType order. */
typedef enum {
    TRANSACTIONCHARGINGSTATE_CHARGING = 0,
    TRANSACTIONCHARGINGSTATE_EVCONNECTED = 1,
    TRANSACTIONCHARGINGSTATE_SUSPENDEDEV = 2,
    TRANSACTIONCHARGINGSTATE_SUSPENDEDEVSE = 3,
    TRANSACTIONCHARGINGSTATE_IDLE = 4
} TRANSACTIONCHARGINGSTATE;

/* Why a transaction stopped, for every version (the 2.0.1 ReasonEnumType
 * order; the 1.6 engine maps it onto its shorter list). */
typedef enum {
    TRANSACTIONSTOPREASON_DEAUTHORIZED = 0,
    TRANSACTIONSTOPREASON_EMERGENCYSTOP = 1,
    TRANSACTIONSTOPREASON_ENERGYLIMITREACHED = 2,
    TRANSACTIONSTOPREASON_EVDISCONNECTED = 3,
    TRANSACTIONSTOPREASON_GROUNDFAULT = 4,
    TRANSACTIONSTOPREASON_IMMEDIATERESET = 5,
    TRANSACTIONSTOPREASON_LOCAL = 6,
    TRANSACTIONSTOPREASON_LOCALOUTOFCREDIT = 7,
    TRANSACTIONSTOPREASON_MASTERPASS = 8,
    TRANSACTIONSTOPREASON_OTHER = 9,
    TRANSACTIONSTOPREASON_OVERCURRENTFAULT = 10,
    TRANSACTIONSTOPREASON_POWERLOSS = 11,
    TRANSACTIONSTOPREASON_POWERQUALITY = 12,
    TRANSACTIONSTOPREASON_REBOOT = 13,
    TRANSACTIONSTOPREASON_REMOTE = 14,
    TRANSACTIONSTOPREASON_SOCLIMITREACHED = 15,
    TRANSACTIONSTOPREASON_STOPPEDBYEV = 16,
    TRANSACTIONSTOPREASON_TIMELIMITREACHED = 17,
    TRANSACTIONSTOPREASON_TIMEOUT = 18
} TRANSACTIONSTOPREASON;

/* What a meter item measures, for every version: the 2.0.1 MeasurandEnumType
 * order, then the two 1.6-only measurands. */
typedef enum {
    SAMPLEDVALUEMEASURAND_CURRENT_EXPORT = 0,
    SAMPLEDVALUEMEASURAND_CURRENT_IMPORT = 1,
    SAMPLEDVALUEMEASURAND_CURRENT_OFFERED = 2,
    SAMPLEDVALUEMEASURAND_ENERGY_ACTIVE_EXPORT_REGISTER = 3,
    SAMPLEDVALUEMEASURAND_ENERGY_ACTIVE_IMPORT_REGISTER = 4,
    SAMPLEDVALUEMEASURAND_ENERGY_REACTIVE_EXPORT_REGISTER = 5,
    SAMPLEDVALUEMEASURAND_ENERGY_REACTIVE_IMPORT_REGISTER = 6,
    SAMPLEDVALUEMEASURAND_ENERGY_ACTIVE_EXPORT_INTERVAL = 7,
    SAMPLEDVALUEMEASURAND_ENERGY_ACTIVE_IMPORT_INTERVAL = 8,
    SAMPLEDVALUEMEASURAND_ENERGY_ACTIVE_NET = 9,
    SAMPLEDVALUEMEASURAND_ENERGY_REACTIVE_EXPORT_INTERVAL = 10,
    SAMPLEDVALUEMEASURAND_ENERGY_REACTIVE_IMPORT_INTERVAL = 11,
    SAMPLEDVALUEMEASURAND_ENERGY_REACTIVE_NET = 12,
    SAMPLEDVALUEMEASURAND_ENERGY_APPARENT_NET = 13,
    SAMPLEDVALUEMEASURAND_ENERGY_APPARENT_IMPORT = 14,
    SAMPLEDVALUEMEASURAND_ENERGY_APPARENT_EXPORT = 15,
    SAMPLEDVALUEMEASURAND_FREQUENCY = 16,
    SAMPLEDVALUEMEASURAND_POWER_ACTIVE_EXPORT = 17,
    SAMPLEDVALUEMEASURAND_POWER_ACTIVE_IMPORT = 18,
    SAMPLEDVALUEMEASURAND_POWER_FACTOR = 19,
    SAMPLEDVALUEMEASURAND_POWER_OFFERED = 20,
    SAMPLEDVALUEMEASURAND_POWER_REACTIVE_EXPORT = 21,
    SAMPLEDVALUEMEASURAND_POWER_REACTIVE_IMPORT = 22,
    SAMPLEDVALUEMEASURAND_SOC = 23,
    SAMPLEDVALUEMEASURAND_VOLTAGE = 24,
    SAMPLEDVALUEMEASURAND_RPM = 25,         /* 1.6 only */
    SAMPLEDVALUEMEASURAND_TEMPERATURE = 26  /* 1.6 only */
} SAMPLEDVALUEMEASURAND;

/* Per-transaction fault the host may read back. */
typedef enum {
    TRANSACTIONERRORCODE_NONE = 0,
    TRANSACTIONERRORCODE_MASTERPASS = 1,  /* a master pass may stop but never start */
    TRANSACTIONERRORCODE_NOTACCEPTED = 2, /* the Started event could not be sent or kept */
    TRANSACTIONERRORCODE_INVALIDID = 3    /* the CSMS refused the token */
} TRANSACTIONERRORCODE;

/* Optional TransactionEvent fields the host may report at any time. */
typedef enum {
    TRANSACTIONINFO_NUMBEROFPHASESUSED = 0, /* 1 to 3 */
    TRANSACTIONINFO_CABLEMAXCURRENT = 1     /* amperes */
} TRANSACTIONINFOTYPE;

#pragma pack(push, 1)
/* One sampled value. A buffer of meter items is packed with no padding; an
 * item whose `isSigned` is 1 is a SignedMeterItem (5,142 bytes), otherwise
 * 38 bytes. Enumerated fields hold the OCPP list index plus one, 0 meaning
 * "not given" (the event then picks the context). */
typedef struct {
    uint32_t timestamp;   /* Unix seconds; 0: the time of the event */
    double value;
    uint8_t context;      /* ReadingContextEnumType index + 1 */
    uint8_t measurand;    /* SAMPLEDVALUEMEASURAND (not shifted) */
    uint8_t phase;        /* PhaseEnumType index + 1 */
    uint8_t location;     /* LocationEnumType index + 1 */
    char unit[20];        /* UnitOfMeasure unit; empty: the measurand's default */
    int8_t multiplier;    /* power of ten */
    uint8_t isSigned;
} MeterItem;
OCPP_STATIC_ASSERT(sizeof(MeterItem) == 38, "MeterItem must be 38 bytes");

typedef struct {
    MeterItem head;       /* head.isSigned is 1 */
    char signedMeterData[2501];
    char signingMethod[51];
    char encodingMethod[51];
    char publicKey[2501];
} SignedMeterItem;
OCPP_STATIC_ASSERT(sizeof(SignedMeterItem) == 5142, "SignedMeterItem must be 5142 bytes");

typedef struct {
    int32_t type;         /* TRANSACTIONINFOTYPE */
    int32_t value;
} TransactionInfoItem;
OCPP_STATIC_ASSERT(sizeof(TransactionInfoItem) == 8, "TransactionInfoItem must be 8 bytes");

/* An open transaction as the library holds it. Times are Unix seconds, 0 = not yet. */
typedef struct {
    char transactionId[37];
    int32_t evseId;
    int32_t connectorId;
    int32_t seqNo;            /* of the last event sent; 0 until Started and just after it */
    char idToken[37];
    int32_t idTokenType;      /* 255: opened by plugging in */
    int32_t reservationId;    /* 0 = none */
    int32_t remoteStartId;    /* 0 = not remotely started */
    uint32_t startedTime;     /* when Started was accepted for sending; 0 = not started */
    uint32_t lastEventTime;
    uint32_t authorizedTime;
    uint32_t cablePluggedTime;
    uint32_t evDetectedTime;
    int32_t errorCode;        /* TRANSACTIONERRORCODE */
    float totalCost;
} TransactionDetail;
OCPP_STATIC_ASSERT(sizeof(TransactionDetail) == 126, "TransactionDetail must be 126 bytes");
#pragma pack(pop)

/* Opens a transaction on an EVSE: by a token (reason Authorized, with the
 * token checked as the device model says), by plugging in (CablePluggedIn) or
 * by EV detection (EVDetected). The Started event is sent when the device
 * model's start points allow. `meter`/`meterCount` are the meter items of the
 * event (may be null/0). On 0 the new id (36 characters) is in
 * `outTransactionId` (37 bytes). `remoteStartId` and `reservationId` are 0
 * when none; `groupIdToken` may be null. `errorCode` (may be null) gets a
 * TRANSACTIONERRORCODE. Returns an AuthorizationStatusEnumType index: 0
 * opened, otherwise why not; 255 when no version is negotiated. */
OCPP_API int OcppProtocol_TransactionStart(int evseId, int connectorId, const char* idToken, int idTokenType,
                                           TRANSACTIONREASON reason, TRANSACTIONCHARGINGSTATE chargingState,
                                           int remoteStartId, int reservationId, const char* groupIdToken,
                                           const void* meter, int meterCount, char* outTransactionId,
                                           int* errorCode);

/* Something happened during a transaction: an Updated event is sent when due
 * (always, except periodic meter values that the device model switched off),
 * or the Started event when this trigger reaches a start point. `isRepeat`
 * 1 resends the last event's number and time. 0 on success, 4 for an unknown
 * transaction, 255 before a version is negotiated. */
OCPP_API int OcppProtocol_TransactionUpate(const char* transactionId, TRANSACTIONREASON reason,
                                           TRANSACTIONCHARGINGSTATE chargingState, const void* meter,
                                           int meterCount, int isRepeat);

/* Ends a transaction when the device model's stop points allow (otherwise
 * the transaction stays open and the host is told it is paused). 0 on success. */
OCPP_API int OcppProtocol_TransactionEnd(const char* transactionId, TRANSACTIONREASON reason,
                                         TRANSACTIONCHARGINGSTATE chargingState, TRANSACTIONSTOPREASON stopReason,
                                         const void* meter, int meterCount);

/* A token was presented to end a transaction. Returns 0 when the transaction
 * was ended here (master pass, or a transaction started without a token),
 * 1 when the token may end it and the host is to call
 * OcppProtocol_TransactionEnd, and an AuthorizationStatusEnumType index
 * (4 Invalid when the token does not match) otherwise. */
OCPP_API int OcppProtocol_TransactionEndWithToken(const char* transactionId, TRANSACTIONREASON reason,
                                                  TRANSACTIONCHARGINGSTATE chargingState,
                                                  TRANSACTIONSTOPREASON stopReason, const char* idToken,
                                                  int idTokenType, const void* meter, int meterCount);

/* Sets optional fields carried by the transaction's next events. 0 on success. */
OCPP_API int OcppProtocol_UpdateTransactionInfo(const char* transactionId, const TransactionInfoItem* items,
                                                int count);

/* The id of the transaction open on an EVSE into `out` (37 bytes); 1 when found. */
OCPP_API int OcppProtocol_TransactionIDFromEvseID(int evseId, char* out);
/* Copies up to `*count` open transactions (all of them, or only the one
 * named when `transactionId` is not empty) into `items` and sets `*count` to
 * how many there are. 1 on success. */
OCPP_API int OcppProtocol_GetTransactionItemsDetail(const char* transactionId, TransactionDetail* items, int* count);
OCPP_API int OcppProtocol_AddTransactionRemoteID(const char* transactionId, int remoteStartId);
OCPP_API int OcppProtocol_GetTransactionErrorCode(const char* transactionId);
OCPP_API int OcppProtocol_GetTransactionCount(void);

/* The host's answers to RequestStartTransaction / RequestStopTransaction
 * (records 23 and 24): Accepted 0, Rejected 1. */
OCPP_API int OcppProtocol_RequestStartTransaction(const char* messageId, int status, const char* transactionId);
OCPP_API int OcppProtocol_RequestStopTransaction(const char* messageId, int status);

/* Meter values outside a transaction (MeterValues); 1 when sent, 0 otherwise;
 * 1 without sending under 1.6. */
OCPP_API int OcppProtocol_SetMeterValues(int evseId, const void* meter, int meterCount);

/* ---- meter buffers ---- */

/* The byte length of `count` items, each by its own isSigned byte. */
OCPP_API int OcppProtocolUtils_GetMeterLength(const void* buffer, int count);
/* A heap copy the caller releases with free(); null for an empty buffer. */
OCPP_API void* OcppProtocolUtils_GetMeterCopy(const void* buffer, int count);
/* Value of the last item as an unsigned integer; 0 for an empty buffer. */
OCPP_API uint32_t OcppProtocolUtils_GetMeterMaxValue(int count, const void* buffer);

OCPP_EXTERN_C_END

#endif
