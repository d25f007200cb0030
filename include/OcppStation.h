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

OCPP_EXTERN_C_END

#endif
