/*
 * Answers to the CSMS requests that only the host can decide.
 *
 * For each such request the library posts a notification record carrying the
 * request's message id; the host answers, from any thread, with the entry of
 * the same name below and that id. Each entry sends the answer at once and
 * returns 1 when it left for the CSMS, 0 otherwise (link down, the CSMS no
 * longer waiting, or a status value outside its list).
 *
 * Status values are the position of the answer in the OCPP list of the
 * message, as noted for each entry.
 */
#ifndef OCPP20_PROTOCOL_H
#define OCPP20_PROTOCOL_H

#include <stdint.h>

#include "OcppErrorCode.h"
#include "OcppExport.h"

OCPP_EXTERN_C_BEGIN

/* Why the station booted. */
typedef enum {
    BOOTREASON_APPLICATIONRESET = 0,
    BOOTREASON_FIRMWAREUPDATE = 1,
    BOOTREASON_LOCALRESET = 2,
    BOOTREASON_POWERUP = 3,
    BOOTREASON_REMOTERESET = 4,
    BOOTREASON_SCHEDULEDRESET = 5,
    BOOTREASON_TRIGGERED = 6,
    BOOTREASON_UNKNOWN = 7,
    BOOTREASON_WATCHDOG = 8
} BOOTREASON;

/* Optional boot fields; empty texts are left out of the message. */
typedef struct {
    char serialNumber[26];
    char firmwareVersion[51];
    char iccid[21]; /* the modem is reported only when iccid or imsi is set */
    char imsi[21];
} BootNotificationOption;

/* One installed certificate for Ocpp20Protocol_GetInstalledCertificateIds. */
typedef struct {
    int32_t certificateType; /* V2GRootCertificate 0, MORootCertificate 1, CSMSRootCertificate 2,
                                V2GCertificateChain 3, ManufacturerRootCertificate 4 */
    int32_t hashAlgorithm;   /* SHA256 0, SHA384 1, SHA512 2 */
    char issuerNameHash[129];
    char issuerKeyHash[129];
    char serialNumber[41];
} CertificateHashDataChainItem;

/* Sends a CALLERROR for a CSMS request. `details` is used only when it is a
 * JSON object; otherwise "{}" is sent. A null description is sent empty. */
OCPP_API void OcppProtocol_ResponseError(const char* messageId, RESPONSEERRORCODE code, const char* description,
                                         const char* details);

/* Accepted 0, Rejected 1, Scheduled 2 */
OCPP_API int Ocpp20Protocol_ChangeAvailability(const char* messageId, int status);
/* Accepted 0, Rejected 1 */
OCPP_API int Ocpp20Protocol_CancelReservation(const char* messageId, int status);
/* Accepted 0, Rejected 1 */
OCPP_API int Ocpp20Protocol_CertificateSigned(const char* messageId, int status);
/* Accepted 0, Unknown 1 */
OCPP_API int Ocpp20Protocol_ClearDisplayMessage(const char* messageId, int status);
/* The answer carries nothing but the id. */
OCPP_API int Ocpp20Protocol_CostUpdated(const char* messageId);
/* Accepted 0, Failed 1, NotFound 2 */
OCPP_API int Ocpp20Protocol_DeleteCertificate(const char* messageId, int status);
/* Accepted 0, Rejected 1, Failed 2 */
OCPP_API int Ocpp20Protocol_InstallCertificate(const char* messageId, int status);
/* Accepted 0, Rejected 1, NotImplemented 2 */
OCPP_API int Ocpp20Protocol_TriggerMessage(const char* messageId, int status);
/* Accepted 0, Faulted 1, Occupied 2, Rejected 3, Unavailable 4 */
OCPP_API int Ocpp20Protocol_ReserveNow(const char* messageId, int status);
/* Accepted 0, Rejected 1, Scheduled 2 */
OCPP_API int Ocpp20Protocol_Reset(const char* messageId, int status);
/* Accepted 0, Rejected 1; `transactionId` may be null or empty when no transaction runs yet. */
OCPP_API int Ocpp20Protocol_RequestStartTransaction(const char* messageId, int status, const char* transactionId);
/* Accepted 0, Rejected 1 */
OCPP_API int Ocpp20Protocol_RequestStopTransaction(const char* messageId, int status);
/* Accepted 0, Rejected 1 */
OCPP_API int Ocpp20Protocol_PublishFirmware(const char* messageId, int status);
/* Accepted 0, Rejected 1, UnknownMessageId 2, UnknownVendorId 3. `data` may be null (left out);
 * with dataIsJson 1 and `data` valid JSON it is sent as JSON, otherwise as a string. */
OCPP_API int Ocpp20Protocol_DataTransfer(const char* messageId, int status, const char* data, int dataIsJson);
/* Unlocked 0, UnlockFailed 1, OngoingAuthorizedTransaction 2, UnknownConnector 3 */
OCPP_API int Ocpp20Protocol_UnlockConnector(const char* messageId, int status);
/* DownloadOngoing 0, NoFirmware 1, Unpublished 2 */
OCPP_API int Ocpp20Protocol_UnpublishFirmware(const char* messageId, int status);
/* Accepted 0, NotFound 1; `items` holds `count` certificates (may be null when count is 0). */
OCPP_API int Ocpp20Protocol_GetInstalledCertificateIds(const char* messageId, int status,
                                                       const CertificateHashDataChainItem* items, int count);
/* Accepted 0, Rejected 1, AcceptedCanceled 2; `filename` may be null or empty. */
OCPP_API int Ocpp20Protocol_GetLog(const char* messageId, int status, const char* filename);
/* Accepted 0, Rejected 1, AcceptedCanceled 2, InvalidCertificate 3, RevokedCertificate 4 */
OCPP_API int Ocpp20Protocol_UpdateFirmware(const char* messageId, int status);
/* Accepted 0, Rejected 1, NotSupported 2, EmptyResultSet 3 */
OCPP_API int Ocpp20Protocol_GetMonitoringReport(const char* messageId, int status);

/* The host reports that a reservation ended: Expired 0, Removed 1. The CSMS is
 * told and the library forgets the reservation. 1 when the CSMS answered. */
OCPP_API int Ocpp20Protocol_ReservationStatusUpdate(int reservationId, int status);

/* ---- authorization ---- */

/* Where the calling thread's last authorization decision came from. */
typedef enum {
    AUTHORIZESOURCE_NONE = 0,          /* no decision: unknown token, nothing answered */
    AUTHORIZESOURCE_EXEMPT = 1,        /* authorization disabled, or a NoAuthorization token */
    AUTHORIZESOURCE_LOCALLIST = 2,
    AUTHORIZESOURCE_CACHE = 3,
    AUTHORIZESOURCE_OFFLINEUNKNOWN = 4, /* offline, unknown token let through by OfflineTxForUnknownIdEnabled */
    AUTHORIZESOURCE_CSMS = 5            /* answered by the CSMS */
} AUTHORIZESOURCE;

/* Decides whether a token may charge, online or offline, as the device model
 * prescribes. Blocks up to the message time-out when the CSMS is asked.
 * Returns an AuthorizationStatusEnumType index (Accepted 0 ... Unknown 9), or
 * 255 when nothing is known about the token. */
OCPP_API int Ocpp20ProtocolPrivate_Authorize(const char* idToken, int idTokenType);
OCPP_API AUTHORIZESOURCE Ocpp20ProtocolPrivate_GetAuthorizeSource(void);
/* Authorize with ISO 15118 certificate data (PEM); the status, or 4 (Invalid) without an answer. */
OCPP_API int Ocpp20Protocol_AuthorizeWithCertificate(int idTokenType, const char* idToken, const char* certificate);

OCPP_EXTERN_C_END

#endif
