/*
 * The host's answers to the CSMS and its station reports, for every protocol
 * version: each entry forwards to the engine of the version negotiated with
 * the CSMS and returns what that engine returns (1 when the answer left, 0
 * otherwise). Before a version is known, or under a version that has no such
 * message, nothing is sent and the result is 1. Status values are those of
 * the Ocpp20Protocol_ entry of the same message.
 */
#ifndef OCPP_STATION_H
#define OCPP_STATION_H

#include "Ocpp20Protocol.h"
#include "OcppExport.h"

OCPP_EXTERN_C_BEGIN

/* Firmware states the host reports, for every version (the 2.0.1 list; the
 * 1.6 engine maps it onto its shorter one). */
typedef enum {
    FIRMWARESTATUS_DOWNLOADED = 0,
    FIRMWARESTATUS_DOWNLOADFAILED = 1,
    FIRMWARESTATUS_DOWNLOADING = 2,
    FIRMWARESTATUS_DOWNLOADSCHEDULED = 3,
    FIRMWARESTATUS_DOWNLOADPAUSED = 4,
    FIRMWARESTATUS_IDLE = 5,
    FIRMWARESTATUS_INSTALLATIONFAILED = 6,
    FIRMWARESTATUS_INSTALLING = 7,
    FIRMWARESTATUS_INSTALLED = 8,
    FIRMWARESTATUS_INSTALLREBOOTING = 9,
    FIRMWARESTATUS_INSTALLSCHEDULED = 10,
    FIRMWARESTATUS_INSTALLVERIFICATIONFAILED = 11,
    FIRMWARESTATUS_INVALIDSIGNATURE = 12,
    FIRMWARESTATUS_SIGNATUREVERIFIED = 13
} FIRMWARESTATUS;

/* Log upload states (the 2.0.1 UploadLogStatus list). */
typedef enum {
    UPLOADLOGSTATUS_BADMESSAGE = 0,
    UPLOADLOGSTATUS_IDLE = 1,
    UPLOADLOGSTATUS_NOTSUPPORTEDOPERATION = 2,
    UPLOADLOGSTATUS_PERMISSIONDENIED = 3,
    UPLOADLOGSTATUS_UPLOADED = 4,
    UPLOADLOGSTATUS_UPLOADFAILURE = 5,
    UPLOADLOGSTATUS_UPLOADING = 6,
    UPLOADLOGSTATUS_ACCEPTEDCANCELED = 7
} UPLOADLOGSTATUS;

/* The host's answer to an unlock request (the 2.0.1 UnlockStatus list). */
typedef enum {
    UNLOCKSTATUS_UNLOCKED = 0,
    UNLOCKSTATUS_UNLOCKFAILED = 1,
    UNLOCKSTATUS_ONGOINGAUTHORIZEDTRANSACTION = 2,
    UNLOCKSTATUS_UNKNOWNCONNECTOR = 3
} UNLOCKSTATUS;

#pragma pack(push, 1)
/* One event of a NotifyEvent. Texts are NUL-terminated; an empty text is left out. */
typedef struct {
    int32_t eventId;
    uint32_t timestamp;            /* Unix seconds; 0: now */
    int32_t trigger;               /* EventTriggerEnumType: Alerting 0, Delta 1, Periodic 2 */
    int32_t cause;                 /* eventId of the event that caused this one; < 0 none */
    int32_t eventNotificationType; /* HardWiredNotification 0, HardWiredMonitor 1, PreconfiguredMonitor 2,
                                      CustomMonitor 3 */
    int32_t variableMonitoringId;  /* < 0 none */
    int32_t evseId;                /* of the component; 0 none */
    int32_t connectorId;           /* of the component; 0 none */
    uint8_t cleared;               /* 1: the problem is gone */
    char actualValue[2501];
    char techCode[51];
    char techInfo[501];
    char transactionId[37];
    char componentName[51];
    char componentInstance[51];
    char variableName[51];
    char variableInstance[51];
} EventDataItem;
OCPP_STATIC_ASSERT(sizeof(EventDataItem) == 3327, "EventDataItem must be 3327 bytes");

/* The certificate whose revocation status the CSMS is asked for (OCSPRequestDataType). */
typedef struct {
    int32_t hashAlgorithm; /* SHA256 0, SHA384 1, SHA512 2 */
    char issuerNameHash[129];
    char issuerKeyHash[129];
    char serialNumber[41];
    char responderURL[513];
} OcspRequestDataItem;
OCPP_STATIC_ASSERT(sizeof(OcspRequestDataItem) == 816, "OcspRequestDataItem must be 816 bytes");
#pragma pack(pop)

OCPP_API int OcppProtocol_ChangeAvailability(const char* messageId, int status);
OCPP_API int OcppProtocol_ReserveNow(const char* messageId, int status);
OCPP_API int OcppProtocol_CancelReservation(const char* messageId, int status);
OCPP_API int OcppProtocol_Reset(const char* messageId, int status);
OCPP_API int OcppProtocol_TriggerMessage(const char* messageId, int status);
OCPP_API int OcppProtocol_UpdateFirmware(const char* messageId, int status);
OCPP_API int OcppProtocol_GetLog(const char* messageId, int status, const char* filename);
OCPP_API int OcppProtocol_RemotelyUnlockConnector(const char* messageId, int status);
OCPP_API int OcppProtocol_CertificateSigned(const char* messageId, int status);
OCPP_API int OcppProtocol_DeleteCertificate(const char* messageId, int status);
OCPP_API int OcppProtocol_InstallCertificate(const char* messageId, int status);
OCPP_API int OcppProtocol_PublishFirmware(const char* messageId, int status);
OCPP_API int OcppProtocol_UnpublishFirmware(const char* messageId, int status);
/* The host's answer to a DataTransfer CALL. */
OCPP_API int OcppProtocol_DataTransfer(const char* messageId, int status, const char* data, int dataIsJson);
OCPP_API int OcppProtocol_GetInstalledCertificateIds(const char* messageId, int status,
                                                     const CertificateHashDataChainItem* items, int count);
OCPP_API int OcppProtocol_ReservationStatusUpdate(int reservationId, int status);
/* The authorization status, as Ocpp20Protocol_AuthorizeWithCertificate; 1 before a version is known. */
OCPP_API int OcppProtocol_AuthorizeWithCertificate(int idTokenType, const char* idToken, const char* certificate);

/* ---- reports and requests the host makes of the CSMS ---- */

/* status: FirmwareStatusEnumType index (Downloaded 0, DownloadFailed 1, Downloading 2,
 * DownloadScheduled 3, DownloadPaused 4, Idle 5, InstallationFailed 6, Installing 7, Installed 8,
 * InstallRebooting 9, InstallScheduled 10, InstallVerificationFailed 11, InvalidSignature 12,
 * SignatureVerified 13); requestId < 0 when the CSMS did not ask for the update. 1 when the CSMS
 * answered or the report was kept for when the station is back online. */
OCPP_API int OcppProtocol_FirmwareStatusNotification(int status, int requestId);
/* status: UploadLogStatusEnumType index (BadMessage 0, Idle 1, NotSupportedOperation 2,
 * PermissionDenied 3, Uploaded 4, UploadFailure 5, Uploading 6, AcceptedCanceled 7). 1 when answered. */
OCPP_API int OcppProtocol_LogStatusNotification(int status, int requestId);
/* status: PublishFirmwareStatusEnumType index; `location` is sent only with Published. 1 when answered. */
OCPP_API int OcppProtocol_PublishFirmwareStatusNotification(int status, int requestId, const char* location);
/* Asks the CSMS to sign `csr` (PEM). certificateType: ChargingStationCertificate 0,
 * V2GCertificate 1, < 0 to leave it out. 1 when the CSMS accepted; 0 otherwise and before a
 * version is known. */
OCPP_API int OcppProtocol_SignCertificate(const char* csr, int certificateType);
/* A DataTransfer of the station's own. `data` may be null; with dataIsJson 1 and valid JSON it
 * is sent as JSON. 1 when the CSMS answered: `status` (may be null) gets Accepted 0, Rejected 1,
 * UnknownMessageId 2, UnknownVendorId 3, and `answer` (may be null) its data as text, cut to
 * `capacity` bytes with the NUL. 0 otherwise and before a version is known. */
OCPP_API int OcppProtocol_DataTransferRequest(const char* vendorId, const char* messageId, const char* data,
                                              int dataIsJson, int* status, char* answer, int capacity);

/* Reports events to the CSMS in one NotifyEvent (`count` >= 1 items). Kept for when the station
 * is back online while it is disconnected. 1 when the CSMS answered or it was kept. */
OCPP_API int OcppProtocol_NotifyEvent(const EventDataItem* items, int count);
/* The host's answer to a GetMonitoringReport CALL: Accepted 0, Rejected 1, NotSupported 2,
 * EmptyResultSet 3. */
OCPP_API int OcppProtocol_MonitoringReport(const char* messageId, int status);
/* Passes an EV's ISO 15118 certificate request on. action: Install 0, Update 1; `exiRequest` is
 * the Base64 EXI text. 1 when the CSMS answered: `status` (may be null) gets Accepted 0,
 * Failed 1, and `exiResponse` (may be null) its EXI text, cut to `capacity` bytes with the NUL.
 * 0 otherwise and before a version is known. */
OCPP_API int OcppProtocol_Get15118EVCertificate(const char* schemaVersion, int action, const char* exiRequest,
                                                int* status, char* exiResponse, int capacity);
/* Asks the CSMS for the OCSP status of a certificate. 1 when the CSMS answered: `status` (may
 * be null) gets Accepted 0, Failed 1, and `ocspResult` (may be null) its Base64 OCSPResponse,
 * cut to `capacity` bytes with the NUL. 0 otherwise and before a version is known. */
OCPP_API int OcppProtocol_GetCertificateStatus(const OcspRequestDataItem* ocsp, int* status, char* ocspResult,
                                               int capacity);
/* Sends the schedule the EV chose: `schedule` is the ChargingScheduleType as JSON text of
 * `length` bytes, `timeBase` Unix seconds. Kept for later while disconnected. 1 when the CSMS
 * accepted it or it was kept; 0 otherwise. */
OCPP_API int OcppProtocol_NotifyEVChargingSchedule(int evseId, unsigned timeBase, const char* schedule, int length);

OCPP_EXTERN_C_END

#endif
