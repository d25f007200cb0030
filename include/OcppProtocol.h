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

#include <pthread.h>
#include <stdint.h>

#include "OcppExport.h"
#include "OcppRecords.h"
#include "OcppLog.h"
#include "OcppVariables.h"
#include "OcppErrorCode.h"
#include "OcppWebSocket.h"
#include "Ocpp20Protocol.h"
#include "OcppSmartCharging.h"
#include "OcppTransaction.h"
#include "OcppStation.h"

OCPP_EXTERN_C_BEGIN

/* Diagnostic log levels handed to the host's log callback. */
typedef enum { LOGLEVEL_DEBUG = 0, LOGLEVEL_INFO = 1, LOGLEVEL_ERROR = 2 } LOGLEVEL;

typedef void (*OcppLogCallBack)(LOGLEVEL level, const char* function, const char* file, int line, const char* text);

/* Registers (or replaces) the host's diagnostic log sink; without one, lines go to standard output. */
OCPP_API void OcppProtocol_SetLog(OcppLogCallBack callback);

/* Protocol version of the current connection. */
typedef enum {
    OCPPPROTOCOL_16 = 0,
    OCPPPROTOCOL_201 = 1,
    OCPPPROTOCOL_21 = 2,
    OCPPPROTOCOL_NONE = 255 /* not negotiated yet */
} OCPPPROTOCOL;

/* Library state as the host sees it; every change arrives as an SdkStatusChange record. */
typedef enum {
    SDKSTATUS_DISCONNECTED = 0, /* no link to the CSMS */
    SDKSTATUS_CONNECTED = 1,    /* link open, boot not finished */
    SDKSTATUS_SUBMITTING = 2,   /* replaying messages kept while offline */
    SDKSTATUS_OK = 3,           /* online and ready */
    SDKSTATUS_NONE = 255        /* reset, nothing active */
} SDKSTATUS;

typedef enum {
    SECURITYEVENTTYPE_FIRMWAREUPDATED = 0,
    SECURITYEVENTTYPE_FAILEDTOAUTHENTICATEATCSMS = 1,
    SECURITYEVENTTYPE_CSMSFAILEDTOAUTHENTICATE = 2,
    SECURITYEVENTTYPE_SETTINGSYSTEMTIME = 3,
    SECURITYEVENTTYPE_STARTUPOFTHEDEVICE = 4,
    SECURITYEVENTTYPE_RESETORREBOOT = 5,
    SECURITYEVENTTYPE_SECURITYLOGWASCLEARED = 6,
    SECURITYEVENTTYPE_RECONFIGURATIONOFSECURITYPARAMETERS = 7,
    SECURITYEVENTTYPE_MEMORYEXHAUSTION = 8,
    SECURITYEVENTTYPE_INVALIDMESSAGES = 9,
    SECURITYEVENTTYPE_ATTEMPTEDREPLAYATTACKS = 10,
    SECURITYEVENTTYPE_TAMPERDETECTIONACTIVATED = 11,
    SECURITYEVENTTYPE_INVALIDFIRMWARESIGNATURE = 12,
    SECURITYEVENTTYPE_INVALIDFIRMWARESIGNINGCERTIFICATE = 13,
    SECURITYEVENTTYPE_INVALIDCSMSCERTIFICATE = 14,
    SECURITYEVENTTYPE_INVALIDCHARGINGSTATIONCERTIFICATE = 15,
    SECURITYEVENTTYPE_INVALIDTLSVERSION = 16,
    SECURITYEVENTTYPE_INVALIDTLSCIPHERSUITE = 17,
    SECURITYEVENTTYPE_MAINTENANCELOGINACCEPTED = 18,
    SECURITYEVENTTYPE_MAINTENANCELOGINFAILED = 19
} SECURITYEVENTTYPE;

/* When transaction events may be kept while offline. */
typedef enum {
    TRANSACTIONSTOREPOINT_ALWAYS = 0,
    TRANSACTIONSTOREPOINT_TXBEFOREACCEPTED_OR_ACCEPTED = 1, /* TxBeforeAcceptedEnabled, or profile accepted by the CSMS */
    TRANSACTIONSTOREPOINT_ACCEPTED = 2,                     /* only once the profile was accepted by the CSMS */
    TRANSACTIONSTOREPOINT_NEVER = 3
} TRANSACTIONSTOREPOINT;


/* One CSMS connection profile, copied by value. */
typedef struct {
    int32_t id;             /* configuration slot */
    int32_t priority;       /* larger is tried first */
    int32_t protocol;       /* OCPPPROTOCOL */
    int32_t connType;       /* CONNTYPE */
    int32_t messageTimeout; /* seconds */
    char url[600];          /* ws:// or wss:// address without the station identity */
} ConnectionItem;
OCPP_STATIC_ASSERT(sizeof(ConnectionItem) == 620, "ConnectionItem is copied as raw bytes");

/* The host's callback table. The library keeps only the pointer; the table must outlive it. */
typedef struct {
    void (*OnConnected)(void);    /* link opened, status became SDKSTATUS_CONNECTED */
    void (*OnDisconnected)(void); /* link lost, status became SDKSTATUS_DISCONNECTED */
    /* Every notification record, from the library's notification thread; valid only during the call. */
    void (*OnMessage)(const char* record, uint32_t length);
} OcppProtocolCallBack;

/* Stores the callback table when `reserved` is 0; any other value stores nothing. Always 1. */
OCPP_API int OcppProtocol_Init(int reserved, OcppProtocolCallBack* callback);
/* Folder under which every store lives (one sub-folder per CSMS). 0 when it is not writable. */
OCPP_API int OcppProtocol_SetCacheDir(const char* dir);
/* Starts connecting; with 1 the host will report its variables and every connector is reported on OK. */
OCPP_API int OcppProtocol_ActiveConnection(int reportVariables);
/* Stops every worker and closes every store. The callback table stays registered. */
OCPP_API void OcppProtocol_Release(void);

OCPP_API SDKSTATUS OcppProtocol_GetStatus(void);
OCPP_API int OcppProtocol_IsEnterOfflineMode(void);
OCPP_API OCPPPROTOCOL OcppProtocol_GetOcppProtocol(void);
/* "OCPP16", "OCPP20" or "OCPP21" (exact case) to its OCPPPROTOCOL; 0 when unknown. */
OCPP_API int OcppProtocol_GetOcppProtocolType(const char* name, OCPPPROTOCOL* out);
/* 1 when the host must report its device-model variables; always 0 before a protocol is chosen. */
OCPP_API int OcppProtocol_IsNeedReportVariables(void);
OCPP_API void OcppProtocol_SetNeedReportVariables(int need);
/* Highest EVSE id the host has reported a status for. */
OCPP_API int OcppProtocol_GetMaxEvse(void);
/* Writes "Branch: ...\nBuild: ...\n" into `out`, which must hold 255 bytes. */
OCPP_API int OcppProtocol_Version(char* out);

/* The library's traced locking, for host code that wants the same diagnostics. */
OCPP_API int OcppProtocol_EnterCriticalSection(pthread_mutex_t* mutex, const char* file, int line, const char* function);
OCPP_API int OcppProtocol_LeaveCriticalSection(pthread_mutex_t* mutex, const char* file, int line, const char* function);

/* Settings. */
/* 0: transaction messages go through the retry queue; 1: they are sent and answered synchronously. */
OCPP_API void OcppProtocol_SetSdkVersion(int version);
OCPP_API void OcppProtocol_SetSqlLogLevel(int level);
OCPP_API int OcppProtocol_GetSqlLogLevel(void);
/* Largest frame taken from the CSMS, in bytes (default 1 MiB, at most 4 MiB; 0 means the most).
   A larger frame is dropped; a CALL among them is answered with CALLERROR FormatViolation. */
OCPP_API void OcppProtocol_SetMaxFrameBytes(uint32_t bytes);
OCPP_API void OcppProtocol_SetOfflineTransactionStorePoint(TRANSACTIONSTOREPOINT point);
OCPP_API TRANSACTIONSTOREPOINT OcppProtocol_GetOfflineTransactionStorePoint(void);
/* Also write the hardware clock whenever the CSMS sets the time (2.0.1 and 2.1 only). */
OCPP_API void OcppProtocol_SysToHcUtcEnabled(void);
/* Security events to report once the station is online again. */
OCPP_API void OcppProtocol_SetInvalidCsmsCertificate(int invalid);
OCPP_API void OcppProtocol_SetInvalidTLSVersion(int invalid);
OCPP_API void OcppProtocol_SetInvalidTLSCiphersuite(int invalid);

/* Connection profiles and link settings. */
/* Installs the factory profile (slot 1). A changed one discards the profiles the CSMS installed. */
OCPP_API int OcppProtocol_SetConnection(OCPPPROTOCOL protocol, const char* url, CONNTYPE connType, int messageTimeout);
/* Probe attempts per profile and reconnect back-off; a value at or below its floor keeps the old one. */
OCPP_API int OcppProtocol_SetConnectParam(int testAttempts, int backOffMinimum, int backOffRandomRange,
                                          int backOffRepeatTimes, int earlyStart);
/* PEM texts of the client certificate, its key and the CA; NULL is empty. */
OCPP_API int OcppProtocol_SetSsl(const char* cert, const char* privateKey, const char* ca);
/* HTTP Basic credentials. Without a name the station identity of the url is used. */
OCPP_API int OcppProtocol_SetNamePwd(const char* name, const char* password);
OCPP_API int OcppProtocol_SetPwd(const char* password);
/* 1: when no profile can connect, run offline on the last one instead of probing for ever. */
OCPP_API int OcppProtocol_SetOfflineMode(int enable);
/* Closes the link and connects again on the current profile; 0 while probing or without a profile. */
OCPP_API int OcppProtocol_ImmediatelyReconnect(void);
/* One-off handshake probe, not touching the live link. NULL param is an empty one. 1 when it connected. */
OCPP_API int OcppProtocol_TestConnection(const char* url, int timeoutSec, ConnectParam* param);
/* Seconds the host should wait before its next retry, from the device model's back-off settings. */
OCPP_API int OcppProtocol_GetReconnctBackOffTime(void);

/* Boots the station: BootNotification is sent on the next timer tick and repeated until accepted.
 * A NULL option is an empty one. */
OCPP_API int OcppProtocol_BootNotification(BOOTREASON reason, const char* model, const char* vendorName,
                                           const BootNotificationOption* option);

/* Station operations. */
OCPP_API int OcppProtocol_SecurityEventNotification(SECURITYEVENTTYPE type);

/* Connector status as the host reports it (the 2.0.1 ConnectorStatus list). */
typedef enum {
    CONNECTORSTATUS_AVAILABLE = 0,
    CONNECTORSTATUS_OCCUPIED = 1,
    CONNECTORSTATUS_RESERVED = 2,
    CONNECTORSTATUS_UNAVAILABLE = 3,
    CONNECTORSTATUS_FAULTED = 4
} CONNECTORSTATUS;

/* Connector fault as the host reports it; a change of it alone is reported like a status change. */
typedef enum {
    CONNECTORERRORCODE_NOERROR = 0,
    CONNECTORERRORCODE_CONNECTORLOCKFAILURE = 1,
    CONNECTORERRORCODE_EVCOMMUNICATIONERROR = 2,
    CONNECTORERRORCODE_GROUNDFAILURE = 3,
    CONNECTORERRORCODE_HIGHTEMPERATURE = 4,
    CONNECTORERRORCODE_INTERNALERROR = 5,
    CONNECTORERRORCODE_LOCALLISTCONFLICT = 6,
    CONNECTORERRORCODE_OTHERERROR = 7,
    CONNECTORERRORCODE_OVERCURRENTFAILURE = 8,
    CONNECTORERRORCODE_OVERVOLTAGE = 9,
    CONNECTORERRORCODE_POWERMETERFAILURE = 10,
    CONNECTORERRORCODE_POWERSWITCHFAILURE = 11,
    CONNECTORERRORCODE_READERFAILURE = 12,
    CONNECTORERRORCODE_RESETFAILURE = 13,
    CONNECTORERRORCODE_UNDERVOLTAGE = 14,
    CONNECTORERRORCODE_WEAKSIGNAL = 15
} CONNECTORERRORCODE;

/* A connector's current state. Sent to the CSMS only when status or error code changed;
 * changes made while offline are sent on reconnection. 1 once recorded. */
OCPP_API int OcppProtocol_StatusNotification(int evseId, int connectorId, CONNECTORERRORCODE errorCode,
                                             CONNECTORSTATUS status);

/* ---- authorization lists ---- */

#pragma pack(push, 1)
/* One token of the local authorization list as the host reads and writes it. */
typedef struct {
    char token[37];
    int32_t tokenType;  /* IdTokenEnumType: Central 0, eMAID 1, ISO14443 2, ISO15693 3, KeyCode 4, Local 5,
                           MacAddress 6, NoAuthorization 7 */
    int32_t status;     /* AuthorizationStatusEnumType: Accepted 0, Blocked 1, ConcurrentTx 2, Expired 3, Invalid 4,
                           NoCredit 5, NotAllowedTypeEVSE 6, NotAtThisLocation 7, NotAtThisTime 8, Unknown 9 */
    int32_t expiryTime; /* Unix seconds; 0 never expires */
    char groupToken[37];
} TokenWhiteItem;
OCPP_STATIC_ASSERT(sizeof(TokenWhiteItem) == 86, "TokenWhiteItem must be 86 bytes");

/* One additional identifier of a token (AdditionalInfoType). */
typedef struct {
    char additionalIdToken[37];
    char type[51];
} TokenAdditionalInfoItem;
OCPP_STATIC_ASSERT(sizeof(TokenAdditionalInfoItem) == 88, "TokenAdditionalInfoItem must be 88 bytes");
#pragma pack(pop)

/* Copies up to `capacity` tokens of the local list into `items` (may be null)
 * and returns how many the list holds; -1 when no OCPP 2.0.1 store is open. */
OCPP_API int OcppProtocol_GetTokenWhiteItems(TokenWhiteItem* items, int capacity);
/* Replaces every token of the local list (its version stays); 1 on success. */
OCPP_API int OcppProtocol_SetTokenWhiteItems(const TokenWhiteItem* items, int count);
/* Replaces the additional identifiers kept for one token; 1 on success. */
OCPP_API int OcppProtocol_SetTokenAdditionalInfoItems(const char* token, const TokenAdditionalInfoItem* items,
                                                      int count);
/* Hands the V2G white list to the "PlugInV2gCustom" plug-in (OCPP 2.1 only);
 * the plug-in's result, or 0. */
OCPP_API int OcppProtocol_SetV2GCustomWhiteList(const char* list, int length);

OCPP_EXTERN_C_END

#endif
