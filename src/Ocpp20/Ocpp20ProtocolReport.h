#pragma once
// Reports and requests the host makes of the CSMS under 2.0.1.
#include <cstddef>

#include <OcppProtocol.h>

// status: FirmwareStatusEnumType index; requestId < 0 leaves it out. 1 when
// the CSMS answered, or the report was kept for when it is back.
int Ocpp20Protocol_FirmwareStatusNotification(int status, int requestId);
// status: UploadLogStatusEnumType index. 1 when the CSMS answered.
int Ocpp20Protocol_LogStatusNotification(int status, int requestId);
// status: PublishFirmwareStatusEnumType index; `location` only when Published.
int Ocpp20Protocol_PublishFirmwareStatusNotification(int status, int requestId, const char* location);
// certificateType: CertificateSigningUseEnumType index, < 0 leaves it out.
// 1 when the CSMS accepted the request.
int Ocpp20Protocol_SignCertificate(const char* csr, int certificateType);
// 1 when the CSMS answered: `*status` gets its DataTransferStatusEnumType
// index and `answer` (may be null) its data as text, cut to `capacity`.
int Ocpp20Protocol_DataTransferRequest(const char* vendorId, const char* messageId, const char* data, int dataIsJson,
                                       int* status, char* answer, int capacity);
// One NotifyEvent of `count` events. 1 when the CSMS answered or it was kept
// for when the station is back.
int Ocpp20Protocol_NotifyEvent(const EventDataItem* items, int count);
// 1 when the CSMS answered: `*status` Accepted 0 / Failed 1 and its EXI text
// into `exiResponse` (may be null), cut to `capacity`.
int Ocpp20Protocol_Get15118EVCertificate(const char* schemaVersion, int action, const char* exiRequest, int* status,
                                         char* exiResponse, int capacity);
// 1 when the CSMS answered: `*status` Accepted 0 / Failed 1 and the OCSP
// response into `ocspResult` (may be null), cut to `capacity`.
int Ocpp20Protocol_GetCertificateStatus(const OcspRequestDataItem* ocsp, int* status, char* ocspResult,
                                        int capacity);
// `schedule`: ChargingScheduleType JSON of `length` bytes. 1 when the CSMS
// accepted it or it was kept for when the station is back.
int Ocpp20protocol_NotifyEVChargingSchedule(int evseId, unsigned timeBase, const char* schedule, int length);
