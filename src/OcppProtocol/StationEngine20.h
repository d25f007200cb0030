#pragma once
// The host's station entries under OCPP 2.0.1: transactions go to the
// transaction manager, answers to the 2.0.1 answer builders.
#include "OcppProtocol/StationEngine.h"

class CStationEngine20 : public CStationEngine {
public:
    static CStationEngine20* Instance();

    int TransactionStart(int evseId, int connectorId, const char* idToken, int idTokenType, TRANSACTIONREASON reason,
                         TRANSACTIONCHARGINGSTATE chargingState, int remoteStartId, int reservationId,
                         const char* groupIdToken, const void* meter, int meterCount, char* outTransactionId,
                         int* errorCode) override;
    int TransactionUpate(const char* transactionId, TRANSACTIONREASON reason, TRANSACTIONCHARGINGSTATE chargingState,
                         const void* meter, int meterCount, int isRepeat) override;
    int TransactionEnd(const char* transactionId, TRANSACTIONREASON reason, TRANSACTIONCHARGINGSTATE chargingState,
                       TRANSACTIONSTOPREASON stopReason, const void* meter, int meterCount) override;
    int TransactionEndWithToken(const char* transactionId, TRANSACTIONREASON reason,
                                TRANSACTIONCHARGINGSTATE chargingState, TRANSACTIONSTOPREASON stopReason,
                                const char* idToken, int idTokenType, const void* meter, int meterCount) override;
    int UpdateTransactionInfo(const char* transactionId, const TransactionInfoItem* items, int count) override;
    int TransactionIDFromEvseID(int evseId, char* out) override;
    int GetTransactionItemsDetail(const char* transactionId, TransactionDetail* items, int* count) override;
    int AddTransactionRemoteID(const char* transactionId, int remoteStartId) override;
    int GetTransactionErrorCode(const char* transactionId) override;
    int GetTransactionCount() override;

    int Answer(STATIONANSWER answer, const char* messageId, int status) override;
    int RequestStartTransaction(const char* messageId, int status, const char* transactionId) override;
    int GetLog(const char* messageId, int status, const char* filename) override;
    int DataTransfer(const char* messageId, int status, const char* data, int dataIsJson) override;
    int GetInstalledCertificateIds(const char* messageId, int status, const CertificateHashDataChainItem* items,
                                   int count) override;
    int ReservationStatusUpdate(int reservationId, int status) override;
    int AuthorizeWithCertificate(int idTokenType, const char* idToken, const char* certificate) override;
    int SetMeterValues(int evseId, const void* meter, int meterCount) override;
    int FirmwareStatusNotification(int status, int requestId) override;
    int LogStatusNotification(int status, int requestId) override;
    int PublishFirmwareStatusNotification(int status, int requestId, const char* location) override;
    int SignCertificate(const char* csr, int certificateType) override;
    int DataTransferRequest(const char* vendorId, const char* messageId, const char* data, int dataIsJson,
                            int* status, char* answer, int capacity) override;
    int NotifyEvent(const EventDataItem* items, int count) override;
    int Get15118EVCertificate(const char* schemaVersion, int action, const char* exiRequest, int* status,
                              char* exiResponse, int capacity) override;
    int GetCertificateStatus(const OcspRequestDataItem* ocsp, int* status, char* ocspResult, int capacity) override;
    int NotifyEVChargingSchedule(int evseId, unsigned timeBase, const char* schedule, int length) override;
};
