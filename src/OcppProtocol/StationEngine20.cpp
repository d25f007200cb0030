#include "OcppProtocol/StationEngine20.h"

#include <algorithm>
#include <string>

#include "Ocpp20/Ocpp20ProtocolReport.h"
#include "Ocpp20/Ocpp20Transaction.h"
#include "Ocpp20/Process/TransactionManager.h"
#include "OcppProtocol/OcppEnumTrans.h"
#include "Util/Tools.h"

namespace {

const size_t kIdField = 37;

std::string Id(const char* transactionId) { return transactionId != nullptr ? transactionId : ""; }

CTransactionManager::Meter MeterOf(const void* meter, int meterCount) {
    CTransactionManager::Meter items;
    items.buffer = meter;
    items.count = meter != nullptr && meterCount > 0 ? meterCount : 0;
    return items;
}

}  // namespace

CStationEngine20* CStationEngine20::Instance() {
    static CStationEngine20 engine;
    return &engine;
}

int CStationEngine20::TransactionStart(int evseId, int connectorId, const char* idToken, int idTokenType,
                                       TRANSACTIONREASON reason, TRANSACTIONCHARGINGSTATE chargingState,
                                       int remoteStartId, int reservationId, const char* groupIdToken,
                                       const void* meter, int meterCount, char* outTransactionId, int* errorCode) {
    std::string transactionId;
    int code = TRANSACTIONERRORCODE_NONE;
    const int status = CTransactionManager::GetInstance()->TransactionStart(
        evseId, connectorId, idToken != nullptr ? idToken : "", idTokenType, reason, chargingState, remoteStartId,
        reservationId, groupIdToken, MeterOf(meter, meterCount), &transactionId, &code);
    if (outTransactionId != nullptr) CTools::CopyField(outTransactionId, kIdField, transactionId);
    if (errorCode != nullptr) *errorCode = code;
    return status;
}

int CStationEngine20::TransactionUpate(const char* transactionId, TRANSACTIONREASON reason,
                                       TRANSACTIONCHARGINGSTATE chargingState, const void* meter, int meterCount,
                                       int isRepeat) {
    return CTransactionManager::GetInstance()->TransactionUpdate(Id(transactionId), reason, chargingState,
                                                                 MeterOf(meter, meterCount), isRepeat);
}

int CStationEngine20::TransactionEnd(const char* transactionId, TRANSACTIONREASON reason,
                                     TRANSACTIONCHARGINGSTATE chargingState, TRANSACTIONSTOPREASON stopReason,
                                     const void* meter, int meterCount) {
    return CTransactionManager::GetInstance()->TransactionEnd(Id(transactionId), reason, chargingState,
                                                              OcppEnumTrans_TransTransactionStopReason20(stopReason),
                                                              MeterOf(meter, meterCount));
}

int CStationEngine20::TransactionEndWithToken(const char* transactionId, TRANSACTIONREASON reason,
                                              TRANSACTIONCHARGINGSTATE chargingState,
                                              TRANSACTIONSTOPREASON stopReason, const char* idToken, int idTokenType,
                                              const void* meter, int meterCount) {
    return CTransactionManager::GetInstance()->TransactionEndWithToken(
        Id(transactionId), reason, chargingState, OcppEnumTrans_TransTransactionStopReason20(stopReason),
        idToken != nullptr ? idToken : "", idTokenType, MeterOf(meter, meterCount));
}

int CStationEngine20::UpdateTransactionInfo(const char* transactionId, const TransactionInfoItem* items, int count) {
    return CTransactionManager::GetInstance()->UpdateTransactionInfo(Id(transactionId), items,
                                                                     items != nullptr ? count : 0);
}

int CStationEngine20::TransactionIDFromEvseID(int evseId, char* out) {
    std::string transactionId;
    if (!CTransactionManager::GetInstance()->TransactionIDFromEvseID(evseId, &transactionId)) return 0;
    if (out != nullptr) CTools::CopyField(out, kIdField, transactionId);
    return 1;
}

int CStationEngine20::GetTransactionItemsDetail(const char* transactionId, TransactionDetail* items, int* count) {
    if (count == nullptr) return 0;
    const std::vector<TransactionDetail> details =
        CTransactionManager::GetInstance()->GetTransactionItemsDetail(Id(transactionId));
    const size_t room = items != nullptr && *count > 0 ? static_cast<size_t>(*count) : 0;
    std::copy_n(details.begin(), std::min(room, details.size()), items);
    *count = static_cast<int>(details.size());
    return 1;
}

int CStationEngine20::AddTransactionRemoteID(const char* transactionId, int remoteStartId) {
    return CTransactionManager::GetInstance()->AddTransactionRemoteID(Id(transactionId), remoteStartId);
}

int CStationEngine20::GetTransactionErrorCode(const char* transactionId) {
    return CTransactionManager::GetInstance()->GetTransactionErrorCode(Id(transactionId));
}

int CStationEngine20::GetTransactionCount() { return CTransactionManager::GetInstance()->GetTransactionCount(); }

int CStationEngine20::Answer(STATIONANSWER answer, const char* messageId, int status) {
    switch (answer) {
        case STATIONANSWER_CHANGEAVAILABILITY:
            return Ocpp20Protocol_ChangeAvailability(messageId, status);
        case STATIONANSWER_RESERVENOW:
            return Ocpp20Protocol_ReserveNow(messageId, status);
        case STATIONANSWER_CANCELRESERVATION:
            return Ocpp20Protocol_CancelReservation(messageId, status);
        case STATIONANSWER_RESET:
            return Ocpp20Protocol_Reset(messageId, status);
        case STATIONANSWER_TRIGGERMESSAGE:
            return Ocpp20Protocol_TriggerMessage(messageId, status);
        case STATIONANSWER_UPDATEFIRMWARE:
            return Ocpp20Protocol_UpdateFirmware(messageId, status);
        case STATIONANSWER_UNLOCKCONNECTOR:
            return Ocpp20Protocol_UnlockConnector(messageId, status);
        case STATIONANSWER_CERTIFICATESIGNED:
            return Ocpp20Protocol_CertificateSigned(messageId, status);
        case STATIONANSWER_DELETECERTIFICATE:
            return Ocpp20Protocol_DeleteCertificate(messageId, status);
        case STATIONANSWER_INSTALLCERTIFICATE:
            return Ocpp20Protocol_InstallCertificate(messageId, status);
        case STATIONANSWER_PUBLISHFIRMWARE:
            return Ocpp20Protocol_PublishFirmware(messageId, status);
        case STATIONANSWER_UNPUBLISHFIRMWARE:
            return Ocpp20Protocol_UnpublishFirmware(messageId, status);
        case STATIONANSWER_REQUESTSTOPTRANSACTION:
            return Ocpp20Protocol_RequestStopTransaction(messageId, status);
        case STATIONANSWER_GETMONITORINGREPORT:
            return Ocpp20Protocol_GetMonitoringReport(messageId, status);
    }
    return 0;
}

int CStationEngine20::RequestStartTransaction(const char* messageId, int status, const char* transactionId) {
    return Ocpp20Protocol_RequestStartTransaction(messageId, status, transactionId);
}

int CStationEngine20::GetLog(const char* messageId, int status, const char* filename) {
    return Ocpp20Protocol_GetLog(messageId, status, filename);
}

int CStationEngine20::DataTransfer(const char* messageId, int status, const char* data, int dataIsJson) {
    return Ocpp20Protocol_DataTransfer(messageId, status, data, dataIsJson);
}

int CStationEngine20::GetInstalledCertificateIds(const char* messageId, int status,
                                                 const CertificateHashDataChainItem* items, int count) {
    return Ocpp20Protocol_GetInstalledCertificateIds(messageId, status, items, count);
}

int CStationEngine20::ReservationStatusUpdate(int reservationId, int status) {
    return Ocpp20Protocol_ReservationStatusUpdate(reservationId, status);
}

int CStationEngine20::AuthorizeWithCertificate(int idTokenType, const char* idToken, const char* certificate) {
    return Ocpp20Protocol_AuthorizeWithCertificate(idTokenType, idToken, certificate);
}

int CStationEngine20::SetMeterValues(int evseId, const void* meter, int meterCount) {
    return Ocpp20Protocol_MeterValueReport(evseId, meter, meterCount);
}

int CStationEngine20::FirmwareStatusNotification(int status, int requestId) {
    return Ocpp20Protocol_FirmwareStatusNotification(status, requestId);
}

int CStationEngine20::LogStatusNotification(int status, int requestId) {
    return Ocpp20Protocol_LogStatusNotification(status, requestId);
}

int CStationEngine20::PublishFirmwareStatusNotification(int status, int requestId, const char* location) {
    return Ocpp20Protocol_PublishFirmwareStatusNotification(status, requestId, location);
}

int CStationEngine20::SignCertificate(const char* csr, int certificateType) {
    return Ocpp20Protocol_SignCertificate(csr, certificateType);
}

int CStationEngine20::DataTransferRequest(const char* vendorId, const char* messageId, const char* data,
                                          int dataIsJson, int* status, char* answer, int capacity) {
    return Ocpp20Protocol_DataTransferRequest(vendorId, messageId, data, dataIsJson, status, answer, capacity);
}

int CStationEngine20::NotifyEvent(const EventDataItem* items, int count) {
    return Ocpp20Protocol_NotifyEvent(items, count);
}

int CStationEngine20::Get15118EVCertificate(const char* schemaVersion, int action, const char* exiRequest,
                                            int* status, char* exiResponse, int capacity) {
    return Ocpp20Protocol_Get15118EVCertificate(schemaVersion, action, exiRequest, status, exiResponse, capacity);
}

int CStationEngine20::GetCertificateStatus(const OcspRequestDataItem* ocsp, int* status, char* ocspResult,
                                           int capacity) {
    return Ocpp20Protocol_GetCertificateStatus(ocsp, status, ocspResult, capacity);
}

int CStationEngine20::NotifyEVChargingSchedule(int evseId, unsigned timeBase, const char* schedule, int length) {
    return Ocpp20protocol_NotifyEVChargingSchedule(evseId, timeBase, schedule, length);
}
