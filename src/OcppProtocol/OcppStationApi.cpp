// The host's station entries: each goes to the engine of the negotiated version.
#include <OcppProtocol.h>

#include <cstdio>

#include "OcppProtocol/OcppProtocol.h"
#include "OcppProtocol/StationEngine.h"
#include "Util/Tools.h"

namespace {

const int kNoVersionTransaction = 255;
const int kNoVersionAnswer = 1;
const int kNoVersionRequest = 0;  // a request nobody was asked: no answer to report

CStationEngine* OwnEngine() { return StationEngineFor(g_eOcppProtocol.load()); }
CStationEngine* Answerer() { return AnswerEngineFor(g_eOcppProtocol.load()); }

}  // namespace

// Nothing may escape to C; a failure is the entry's "not done".
#define STATION_ENTRY(engine, none, call)                   \
    try {                                                   \
        CStationEngine* e = engine;                         \
        return e != nullptr ? e->call : none;               \
    } catch (const std::exception& ex) {                    \
        LOG_ERROR("%s failed: %s", __FUNCTION__, ex.what()); \
        return none;                                        \
    }

#define TRANSACTION_ENTRY(call) STATION_ENTRY(OwnEngine(), kNoVersionTransaction, call)
#define ANSWER_ENTRY(call) STATION_ENTRY(Answerer(), kNoVersionAnswer, call)
#define REQUEST_ENTRY(call) STATION_ENTRY(Answerer(), kNoVersionRequest, call)
// Messages whose payload differs by version go only to that version's engine.
#define OWN_VERSION_ENTRY(call) STATION_ENTRY(OwnEngine(), kNoVersionAnswer, call)

int OcppProtocol_TransactionStart(int evseId, int connectorId, const char* idToken, int idTokenType,
                                  TRANSACTIONREASON reason, TRANSACTIONCHARGINGSTATE chargingState,
                                  int remoteStartId, int reservationId, const char* groupIdToken, const void* meter,
                                  int meterCount, char* outTransactionId, int* errorCode) {
    TRANSACTION_ENTRY(TransactionStart(evseId, connectorId, idToken, idTokenType, reason, chargingState,
                                       remoteStartId, reservationId, groupIdToken, meter, meterCount,
                                       outTransactionId, errorCode))
}

int OcppProtocol_TransactionUpate(const char* transactionId, TRANSACTIONREASON reason,
                                  TRANSACTIONCHARGINGSTATE chargingState, const void* meter, int meterCount,
                                  int isRepeat) {
    TRANSACTION_ENTRY(TransactionUpate(transactionId, reason, chargingState, meter, meterCount, isRepeat))
}

int OcppProtocol_TransactionEnd(const char* transactionId, TRANSACTIONREASON reason,
                                TRANSACTIONCHARGINGSTATE chargingState, TRANSACTIONSTOPREASON stopReason,
                                const void* meter, int meterCount) {
    TRANSACTION_ENTRY(TransactionEnd(transactionId, reason, chargingState, stopReason, meter, meterCount))
}

int OcppProtocol_TransactionEndWithToken(const char* transactionId, TRANSACTIONREASON reason,
                                         TRANSACTIONCHARGINGSTATE chargingState, TRANSACTIONSTOPREASON stopReason,
                                         const char* idToken, int idTokenType, const void* meter, int meterCount) {
    TRANSACTION_ENTRY(TransactionEndWithToken(transactionId, reason, chargingState, stopReason, idToken,
                                              idTokenType, meter, meterCount))
}

int OcppProtocol_UpdateTransactionInfo(const char* transactionId, const TransactionInfoItem* items, int count) {
    printf("OcppProtocol_UpdateTransactionInfo------------<%d>-----------\n", count);
    TRANSACTION_ENTRY(UpdateTransactionInfo(transactionId, items, count))
}

int OcppProtocol_TransactionIDFromEvseID(int evseId, char* out) {
    TRANSACTION_ENTRY(TransactionIDFromEvseID(evseId, out))
}

int OcppProtocol_GetTransactionItemsDetail(const char* transactionId, TransactionDetail* items, int* count) {
    TRANSACTION_ENTRY(GetTransactionItemsDetail(transactionId, items, count))
}

int OcppProtocol_AddTransactionRemoteID(const char* transactionId, int remoteStartId) {
    TRANSACTION_ENTRY(AddTransactionRemoteID(transactionId, remoteStartId))
}

int OcppProtocol_GetTransactionErrorCode(const char* transactionId) {
    TRANSACTION_ENTRY(GetTransactionErrorCode(transactionId))
}

int OcppProtocol_GetTransactionCount(void) { TRANSACTION_ENTRY(GetTransactionCount()) }

int OcppProtocol_RequestStartTransaction(const char* messageId, int status, const char* transactionId) {
    ANSWER_ENTRY(RequestStartTransaction(messageId, status, transactionId))
}

int OcppProtocol_RequestStopTransaction(const char* messageId, int status) {
    ANSWER_ENTRY(Answer(STATIONANSWER_REQUESTSTOPTRANSACTION, messageId, status))
}

int OcppProtocol_SetMeterValues(int evseId, const void* meter, int meterCount) {
    ANSWER_ENTRY(SetMeterValues(evseId, meter, meterCount))
}

int OcppProtocol_ChangeAvailability(const char* messageId, int status) {
    ANSWER_ENTRY(Answer(STATIONANSWER_CHANGEAVAILABILITY, messageId, status))
}
int OcppProtocol_ReserveNow(const char* messageId, int status) {
    ANSWER_ENTRY(Answer(STATIONANSWER_RESERVENOW, messageId, status))
}
int OcppProtocol_CancelReservation(const char* messageId, int status) {
    ANSWER_ENTRY(Answer(STATIONANSWER_CANCELRESERVATION, messageId, status))
}
int OcppProtocol_Reset(const char* messageId, int status) {
    ANSWER_ENTRY(Answer(STATIONANSWER_RESET, messageId, status))
}
int OcppProtocol_TriggerMessage(const char* messageId, int status) {
    ANSWER_ENTRY(Answer(STATIONANSWER_TRIGGERMESSAGE, messageId, status))
}
int OcppProtocol_UpdateFirmware(const char* messageId, int status) {
    ANSWER_ENTRY(Answer(STATIONANSWER_UPDATEFIRMWARE, messageId, status))
}
int OcppProtocol_RemotelyUnlockConnector(const char* messageId, int status) {
    ANSWER_ENTRY(Answer(STATIONANSWER_UNLOCKCONNECTOR, messageId, status))
}
int OcppProtocol_CertificateSigned(const char* messageId, int status) {
    ANSWER_ENTRY(Answer(STATIONANSWER_CERTIFICATESIGNED, messageId, status))
}
int OcppProtocol_DeleteCertificate(const char* messageId, int status) {
    ANSWER_ENTRY(Answer(STATIONANSWER_DELETECERTIFICATE, messageId, status))
}
int OcppProtocol_InstallCertificate(const char* messageId, int status) {
    ANSWER_ENTRY(Answer(STATIONANSWER_INSTALLCERTIFICATE, messageId, status))
}
int OcppProtocol_PublishFirmware(const char* messageId, int status) {
    ANSWER_ENTRY(Answer(STATIONANSWER_PUBLISHFIRMWARE, messageId, status))
}
int OcppProtocol_UnpublishFirmware(const char* messageId, int status) {
    ANSWER_ENTRY(Answer(STATIONANSWER_UNPUBLISHFIRMWARE, messageId, status))
}
int OcppProtocol_GetLog(const char* messageId, int status, const char* filename) {
    ANSWER_ENTRY(GetLog(messageId, status, filename))
}
int OcppProtocol_DataTransfer(const char* messageId, int status, const char* data, int dataIsJson) {
    ANSWER_ENTRY(DataTransfer(messageId, status, data, dataIsJson))
}
int OcppProtocol_GetInstalledCertificateIds(const char* messageId, int status,
                                            const CertificateHashDataChainItem* items, int count) {
    ANSWER_ENTRY(GetInstalledCertificateIds(messageId, status, items, count))
}
int OcppProtocol_ReservationStatusUpdate(int reservationId, int status) {
    ANSWER_ENTRY(ReservationStatusUpdate(reservationId, status))
}
int OcppProtocol_AuthorizeWithCertificate(int idTokenType, const char* idToken, const char* certificate) {
    ANSWER_ENTRY(AuthorizeWithCertificate(idTokenType, idToken, certificate))
}
int OcppProtocol_FirmwareStatusNotification(int status, int requestId) {
    ANSWER_ENTRY(FirmwareStatusNotification(status, requestId))
}
int OcppProtocol_LogStatusNotification(int status, int requestId) {
    ANSWER_ENTRY(LogStatusNotification(status, requestId))
}
int OcppProtocol_PublishFirmwareStatusNotification(int status, int requestId, const char* location) {
    ANSWER_ENTRY(PublishFirmwareStatusNotification(status, requestId, location))
}
int OcppProtocol_SignCertificate(const char* csr, int certificateType) {
    REQUEST_ENTRY(SignCertificate(csr, certificateType))
}
int OcppProtocol_DataTransferRequest(const char* vendorId, const char* messageId, const char* data, int dataIsJson,
                                     int* status, char* answer, int capacity) {
    REQUEST_ENTRY(DataTransferRequest(vendorId, messageId, data, dataIsJson, status, answer, capacity))
}
int OcppProtocol_NotifyEvent(const EventDataItem* items, int count) { ANSWER_ENTRY(NotifyEvent(items, count)) }
int OcppProtocol_MonitoringReport(const char* messageId, int status) {
    ANSWER_ENTRY(Answer(STATIONANSWER_GETMONITORINGREPORT, messageId, status))
}
int OcppProtocol_Get15118EVCertificate(const char* schemaVersion, int action, const char* exiRequest, int* status,
                                       char* exiResponse, int capacity) {
    REQUEST_ENTRY(Get15118EVCertificate(schemaVersion, action, exiRequest, status, exiResponse, capacity))
}
int OcppProtocol_GetCertificateStatus(const OcspRequestDataItem* ocsp, int* status, char* ocspResult, int capacity) {
    REQUEST_ENTRY(GetCertificateStatus(ocsp, status, ocspResult, capacity))
}
int OcppProtocol_NotifyEVChargingSchedule(int evseId, unsigned timeBase, const char* schedule, int length) {
    OWN_VERSION_ENTRY(NotifyEVChargingSchedule(evseId, timeBase, schedule, length))
}
