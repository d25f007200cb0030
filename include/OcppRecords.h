/*
 * Host notification records: byte-packed, little-endian, handed to slot 2 of
 * the callback table. Every record starts with ServerRecvBase; `type` says
 * which record follows. Text fields are NUL-terminated within their arrays.
 * Times are seconds since the epoch (unsigned 32-bit). Enumerations travel as
 * the index of the value in the OCPP schema's list unless a field says otherwise.
 */
#ifndef OCPP_RECORDS_H
#define OCPP_RECORDS_H

#include <stdint.h>

#include "OcppExport.h"

typedef enum {
    SERVERRECVTYPE_SDKSTATUSCHANGE = 0,
    SERVERRECVTYPE_CHANGEAVAILABILITY = 1,
    SERVERRECVTYPE_CANCELRESERVATION = 2,
    SERVERRECVTYPE_TRIGGERMESSAGE = 3,
    SERVERRECVTYPE_RESERVENOW = 4,
    SERVERRECVTYPE_CHANGECONFIGURATION = 5,
    SERVERRECVTYPE_SETVARIABLES = 5, /* same code under 2.0.1 and 2.1: see SetVariablesReq */
    SERVERRECVTYPE_DATATRANSFER = 6,
    SERVERRECVTYPE_CERTIFICATESIGNED = 7,
    SERVERRECVTYPE_CLEARDISPLAYMESSAGE = 9,
    SERVERRECVTYPE_UNLOCKCONNECTOR = 10,
    SERVERRECVTYPE_UNPUBLISHFIRMWARE = 12,
    SERVERRECVTYPE_UPDATEDTRANSACTIONCOST = 13,
    SERVERRECVTYPE_DELETECERTIFICATE = 15,
    SERVERRECVTYPE_INSTALLCERTIFICATE = 16,
    SERVERRECVTYPE_GETINSTALLEDCERTIFICATEIDS = 18,
    SERVERRECVTYPE_UPDATEFIRMWARE = 20,
    SERVERRECVTYPE_RESET = 21,
    SERVERRECVTYPE_REQUESTSTARTTRANSACTION = 23,
    SERVERRECVTYPE_REQUESTSTOPTRANSACTION = 24,
    SERVERRECVTYPE_PUBLISHFIRMWARE = 25,
    SERVERRECVTYPE_SETDISPLAYMESSAGE = 26,
    SERVERRECVTYPE_GETLOG = 27,
    SERVERRECVTYPE_CHARGINGCHANGE = 30,
    SERVERRECVTYPE_CHARGINGPROFILE = 31,
    SERVERRECVTYPE_ALLOWEDENERGYTRANSFER = 32,
    SERVERRECVTYPE_NOTIFYTRANSACTIONSTART = 33,
    SERVERRECVTYPE_NOTIFYTRANSACTIONSTOP = 34,
    SERVERRECVTYPE_NOTIFYTRANSACTIONPAUSE = 35,
    SERVERRECVTYPE_ENTEROFFLINEMODE = 36,
    SERVERRECVTYPE_PERSONALMSG = 37,
    SERVERRECVTYPE_CALIFORNIACUSTOMMSG = 38,
    SERVERRECVTYPE_TRANSACTIONNOTACCEPTED = 39,
    SERVERRECVTYPE_GETV2GWHITELIST = 40
} SERVERRECVTYPE;

#pragma pack(push, 1)

/* Common head of every notification record. */
typedef struct {
    int32_t type;          /* SERVERRECVTYPE */
    char messageId[37];    /* CSMS message id to answer; empty when the record answers nothing */
} ServerRecvBase;
OCPP_STATIC_ASSERT(sizeof(ServerRecvBase) == 41, "ServerRecvBase must be 41 bytes");

/* 0: the SDK status changed. */
typedef struct {
    ServerRecvBase base;
    int32_t status;              /* SDKSTATUS */
    int32_t statusChangeOption;  /* 0 nothing, 1 every connector reported, 2 only changes cached while offline */
    int32_t protocol;            /* OCPPPROTOCOL */
    int32_t needReportVariables; /* 1: report the host's device-model variables */
    int32_t resetFactoryConfig;  /* 1: the factory connection profile was put back */
} SdkStatusChange;
OCPP_STATIC_ASSERT(sizeof(SdkStatusChange) == 61, "SdkStatusChange must be 61 bytes");

/* 1 */
typedef struct {
    ServerRecvBase base;
    int32_t evseId;            /* 0 for the whole station */
    int32_t connectorId;
    int32_t operationalStatus; /* Inoperative 0, Operative 1 */
} ChangeAvailabilityReq;
OCPP_STATIC_ASSERT(sizeof(ChangeAvailabilityReq) == 53, "ChangeAvailabilityReq must be 53 bytes");

/* 2 */
typedef struct {
    ServerRecvBase base;
    int32_t reservationId;
} CancelReservationReq;
OCPP_STATIC_ASSERT(sizeof(CancelReservationReq) == 45, "CancelReservationReq must be 45 bytes");

/* 3: a message the host must send itself. */
typedef struct {
    ServerRecvBase base;
    int32_t requestedMessage; /* MessageTriggerEnumType index */
    uint8_t evseId;           /* 0 when the request names no EVSE */
    uint8_t connectorId;      /* 0 when the request names no connector */
} TriggerMessageReq;
OCPP_STATIC_ASSERT(sizeof(TriggerMessageReq) == 47, "TriggerMessageReq must be 47 bytes");

/* 4 */
typedef struct {
    ServerRecvBase base;
    int32_t id;              /* reservation id */
    uint32_t expiryDateTime;
    char idToken[37];
    int32_t idTokenType;     /* IdTokenEnumType index */
    int32_t evseId;          /* 0 when the request names no EVSE */
} ReserveNowReq;
OCPP_STATIC_ASSERT(sizeof(ReserveNowReq) == 94, "ReserveNowReq must be 94 bytes");

/* 5: a configuration key the host owns was changed (1.6). */
typedef struct {
    ServerRecvBase base;
    char key[51];
    char value[501];
    char reserved[1693];
} ChangeConfigurationReq;
OCPP_STATIC_ASSERT(sizeof(ChangeConfigurationReq) == 2286, "ChangeConfigurationReq must be 2286 bytes");

/* 5 under 2.0.1 and 2.1: a SetVariables request. Variable length, 45 + 2241 * count
 * bytes: `count` VariableDataItem records (OcppVariables.h) follow the head, in
 * the order of the request. Each carries the library's verdict in `status`;
 * VARIABLESTATUS_HOSTDECIDE (6) marks the host's own variables, which it decides.
 * The host answers every entry with OcppProtocol_SetVariables. */
typedef struct {
    ServerRecvBase base;
    int32_t count;
} SetVariablesReq;
OCPP_STATIC_ASSERT(sizeof(SetVariablesReq) == 45, "SetVariablesReq head must be 45 bytes");

/* 6 */
typedef struct {
    ServerRecvBase base;
    char vendorId[256];
    char dataMessageId[51]; /* the request's messageId field, not the frame's */
    char data[1025];        /* the data as text (JSON when it was not a string) */
} DataTransferReq;
OCPP_STATIC_ASSERT(sizeof(DataTransferReq) == 1373, "DataTransferReq must be 1373 bytes");

/* 7 */
typedef struct {
    ServerRecvBase base;
    char certificateChain[10001]; /* PEM */
    int32_t certificateType;      /* CertificateSigningUseEnumType index; -1 when absent */
} CertificateSignedReq;
OCPP_STATIC_ASSERT(sizeof(CertificateSignedReq) == 10046, "CertificateSignedReq must be 10046 bytes");

/* 9 */
typedef struct {
    ServerRecvBase base;
    int32_t id; /* display message id */
} ClearDisplayMessageReq;
OCPP_STATIC_ASSERT(sizeof(ClearDisplayMessageReq) == 45, "ClearDisplayMessageReq must be 45 bytes");

/* 10 */
typedef struct {
    ServerRecvBase base;
    int32_t evseId;
    int32_t connectorId;
} UnlockConnectorReq;
OCPP_STATIC_ASSERT(sizeof(UnlockConnectorReq) == 49, "UnlockConnectorReq must be 49 bytes");

/* 12 */
typedef struct {
    ServerRecvBase base;
    char checksum[33]; /* MD5 of the firmware to stop publishing */
} UnpublishFirmwareReq;
OCPP_STATIC_ASSERT(sizeof(UnpublishFirmwareReq) == 74, "UnpublishFirmwareReq must be 74 bytes");

/* 13: CostUpdated, or the running cost of a TransactionEvent answer. */
typedef struct {
    ServerRecvBase base;
    char transactionId[37];
    char totalCost[21];  /* decimal text as sent by the CSMS */
    char reserved[323];
} UpdatedTransactionCostReq;
OCPP_STATIC_ASSERT(sizeof(UpdatedTransactionCostReq) == 422, "UpdatedTransactionCostReq must be 422 bytes");

/* 15 */
typedef struct {
    ServerRecvBase base;
    uint8_t hashAlgorithm;    /* SHA256 0, SHA384 1, SHA512 2 */
    char issuerNameHash[129];
    char issuerKeyHash[129];
    char serialNumber[41];
    char reserved[1];
} DeleteCertificateReq;
OCPP_STATIC_ASSERT(sizeof(DeleteCertificateReq) == 342, "DeleteCertificateReq must be 342 bytes");

/* 16 */
typedef struct {
    ServerRecvBase base;
    int32_t certificateType; /* InstallCertificateUseEnumType index */
    char certificate[5501];  /* PEM */
} InstallCertificateReq;
OCPP_STATIC_ASSERT(sizeof(InstallCertificateReq) == 5546, "InstallCertificateReq must be 5546 bytes");

/* 18: variable length, 45 + 4 * count bytes; `certificateType[count]` follows
 * (GetCertificateIdUseEnumType indexes). */
typedef struct {
    ServerRecvBase base;
    int32_t count;
} GetInstalledCertificateIdsReq;
OCPP_STATIC_ASSERT(sizeof(GetInstalledCertificateIdsReq) == 45, "GetInstalledCertificateIdsReq head must be 45 bytes");

/* 20 (2.0.1, and 1.6 where the 1.6 request has the field) */
typedef struct {
    ServerRecvBase base;
    int32_t retries;            /* -1 when absent */
    int32_t retryInterval;      /* seconds; -1 when absent */
    int32_t requestId;
    char location[513];
    uint32_t retrieveDateTime;
    uint32_t installDateTime;   /* 0 when absent */
    char signingCertificate[5501];
    char signature[801];
} UpdateFirmwareReq;
OCPP_STATIC_ASSERT(sizeof(UpdateFirmwareReq) == 6876, "UpdateFirmwareReq must be 6876 bytes");

/* 21 */
typedef struct {
    ServerRecvBase base;
    int32_t type;   /* Immediate 0, OnIdle 1 */
    uint8_t evseId; /* cut to 8 bits */
} ResetReq;
OCPP_STATIC_ASSERT(sizeof(ResetReq) == 46, "ResetReq must be 46 bytes");

/* 23 (also 1.6 RemoteStartTransaction) */
typedef struct {
    ServerRecvBase base;
    int32_t evseId;        /* 0 when absent */
    int32_t remoteStartId;
    char idToken[37];
    int32_t idTokenType;   /* IdTokenEnumType index */
} RequestStartTransactionReq;
OCPP_STATIC_ASSERT(sizeof(RequestStartTransactionReq) == 90, "RequestStartTransactionReq must be 90 bytes");

/* 24 (also 1.6 RemoteStopTransaction) */
typedef struct {
    ServerRecvBase base;
    char transactionId[37];
} RequestStopTransactionReq;
OCPP_STATIC_ASSERT(sizeof(RequestStopTransactionReq) == 78, "RequestStopTransactionReq must be 78 bytes");

/* 25 */
typedef struct {
    ServerRecvBase base;
    char location[513];
    int32_t retries;       /* -1 when absent */
    char checksum[33];     /* MD5 */
    int32_t requestId;
    int32_t retryInterval; /* seconds; -1 when absent */
} PublishFirmwareReq;
OCPP_STATIC_ASSERT(sizeof(PublishFirmwareReq) == 599, "PublishFirmwareReq must be 599 bytes");

/* 26: a display message to show. */
typedef struct {
    ServerRecvBase base;
    int32_t id;
    int32_t priority;       /* AlwaysFront 0, InFront 1, NormalCycle 2 */
    int32_t state;          /* MessageStateEnumType index; -1 when absent */
    uint32_t startDateTime; /* 0 when absent */
    uint32_t endDateTime;   /* 0 when absent */
    char transactionId[37];
    int32_t format;         /* ASCII 0, HTML 1, URI 2, UTF8 3 */
    char language[9];
    char content[513];
    char displayName[51];   /* display component, empty when absent */
    char displayInstance[51];
    int32_t displayEvseId;
    int32_t displayConnectorId;
    char reserved[9];
} SetDisplayMessageReq;
OCPP_STATIC_ASSERT(sizeof(SetDisplayMessageReq) == 743, "SetDisplayMessageReq must be 743 bytes");

/* 27 (also 1.6 GetDiagnostics) */
typedef struct {
    ServerRecvBase base;
    int32_t logType;        /* DiagnosticsLog 0, SecurityLog 1 */
    int32_t requestId;
    int32_t retries;        /* -1 when absent */
    int32_t retryInterval;  /* seconds; -1 when absent */
    char remoteLocation[2001];
    uint32_t oldestTimestamp; /* 0 when absent */
    uint32_t latestTimestamp; /* 0 when absent */
} GetLogRequest;
OCPP_STATIC_ASSERT(sizeof(GetLogRequest) == 2066, "GetLogRequest must be 2066 bytes");

/* 30: a new charging limit for the host to apply. */
typedef struct {
    ServerRecvBase base;
    int32_t evseId;
    int32_t chargingRateUnit;   /* W 0, A 1 */
    char limit[21];             /* decimal text */
    int32_t numberPhases;       /* 0 when not limited */
    int32_t phaseToUse;         /* 0 when not given */
    char minChargingRate[21];   /* decimal text, empty when not given */
} ChargingChange;
OCPP_STATIC_ASSERT(sizeof(ChargingChange) == 99, "ChargingChange must be 99 bytes");

/* 31: variable length, 50 + textLength bytes; the profile as JSON text (with
 * its NUL) follows at offset 50. Never 65,536 bytes or more. */
typedef struct {
    ServerRecvBase base;
    uint8_t evseId;
    int32_t value;      /* meaning set by the producer */
    int32_t textLength;
} ChargingProfileChange;
OCPP_STATIC_ASSERT(sizeof(ChargingProfileChange) == 50, "ChargingProfileChange head must be 50 bytes");

/* 32 (2.1) */
typedef struct {
    ServerRecvBase base;
    char transactionId[37];
    uint32_t allowedEnergyTransfer; /* bit n set: EnergyTransferModeEnumType index n allowed */
} AllowedEnergyTransferChange;
OCPP_STATIC_ASSERT(sizeof(AllowedEnergyTransferChange) == 82, "AllowedEnergyTransferChange must be 82 bytes");

/* 33 and 35 */
typedef struct {
    ServerRecvBase base;
    int32_t evseId;
    int32_t connectorId;
    char transactionId[37];
    char idToken[37];
    int32_t idTokenType;         /* IdTokenEnumType index */
    int32_t authorizationStatus; /* AuthorizationStatusEnumType index */
    int32_t remoteStartId;       /* -1 when absent */
    int32_t reservationId;       /* -1 when absent */
    uint32_t startTime;
} NotifyTransactionStart;
OCPP_STATIC_ASSERT(sizeof(NotifyTransactionStart) == 143, "NotifyTransactionStart must be 143 bytes");

typedef NotifyTransactionStart NotifyTransactionPause;

/* 34 */
typedef struct {
    ServerRecvBase base;
    char transactionId[37];
    int32_t stopReason;
} NotifyTransactionStop;
OCPP_STATIC_ASSERT(sizeof(NotifyTransactionStop) == 82, "NotifyTransactionStop must be 82 bytes");

/* 37 */
typedef struct {
    ServerRecvBase base;
    int32_t evseId;
    char transactionId[37];
    int32_t format;    /* ASCII 0, HTML 1, URI 2, UTF8 3 */
    char language[9];
    char content[513];
} PersonalMsg;
OCPP_STATIC_ASSERT(sizeof(PersonalMsg) == 608, "PersonalMsg must be 608 bytes");

/* 38: tariff or cost texts carried in an Authorize or TransactionEvent answer. */
typedef struct {
    ServerRecvBase base;
    char transactionId[37]; /* empty for an Authorize answer */
    char idToken[37];
    int32_t messageType;    /* tariff 0, running cost 1, final cost 2 */
    char language[9];
    char content[2049];     /* the extra content as JSON text */
    char reserved[270];
} CaliforNiaCustomMsg;
OCPP_STATIC_ASSERT(sizeof(CaliforNiaCustomMsg) == 2447, "CaliforNiaCustomMsg must be 2447 bytes");

/* 39 */
typedef struct {
    ServerRecvBase base;
    char transactionId[37];
} TransactionNotAccepted;
OCPP_STATIC_ASSERT(sizeof(TransactionNotAccepted) == 78, "TransactionNotAccepted must be 78 bytes");

/* 40: a plug-in asks for the V2G white list; nothing beyond the head. */
typedef struct {
    ServerRecvBase base;
} GetV2GWhiteList;
OCPP_STATIC_ASSERT(sizeof(GetV2GWhiteList) == 41, "GetV2GWhiteList must be 41 bytes");

#pragma pack(pop)

#endif
