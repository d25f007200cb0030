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

OCPP_EXTERN_C_END

#endif
