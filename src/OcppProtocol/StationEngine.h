#pragma once
// What a protocol version does for the host's station entries. Each entry
// asks the registry for the engine of the negotiated version; a version
// without an engine gets the entry's "no version" result.
#include <OcppProtocol.h>

// The host's answers that are only a message id and a status.
enum STATIONANSWER {
    STATIONANSWER_CHANGEAVAILABILITY = 0,
    STATIONANSWER_RESERVENOW,
    STATIONANSWER_CANCELRESERVATION,
    STATIONANSWER_RESET,
    STATIONANSWER_TRIGGERMESSAGE,
    STATIONANSWER_UPDATEFIRMWARE,
    STATIONANSWER_UNLOCKCONNECTOR,
    STATIONANSWER_CERTIFICATESIGNED,
    STATIONANSWER_DELETECERTIFICATE,
    STATIONANSWER_INSTALLCERTIFICATE,
    STATIONANSWER_PUBLISHFIRMWARE,
    STATIONANSWER_UNPUBLISHFIRMWARE,
    STATIONANSWER_REQUESTSTOPTRANSACTION,
    STATIONANSWER_GETMONITORINGREPORT
};

// Every entry has a default: what a version without that message answers
// (255 for transaction entries, 1 for answers and reports, 0 for requests
// whose result is the CSMS's word), so an engine names only what it has.
class CStationEngine {
public:
    virtual ~CStationEngine() = default;

    // Transaction entries, with the host's arguments as they came.
    virtual int TransactionStart(int evseId, int connectorId, const char* idToken, int idTokenType,
                                 TRANSACTIONREASON reason, TRANSACTIONCHARGINGSTATE chargingState, int remoteStartId,
                                 int reservationId, const char* groupIdToken, const void* meter, int meterCount,
                                 char* outTransactionId, int* errorCode);
    virtual int TransactionUpate(const char* transactionId, TRANSACTIONREASON reason,
                                 TRANSACTIONCHARGINGSTATE chargingState, const void* meter, int meterCount,
                                 int isRepeat);
    virtual int TransactionEnd(const char* transactionId, TRANSACTIONREASON reason,
                               TRANSACTIONCHARGINGSTATE chargingState, TRANSACTIONSTOPREASON stopReason,
                               const void* meter, int meterCount);
    virtual int TransactionEndWithToken(const char* transactionId, TRANSACTIONREASON reason,
                                        TRANSACTIONCHARGINGSTATE chargingState, TRANSACTIONSTOPREASON stopReason,
                                        const char* idToken, int idTokenType, const void* meter, int meterCount);
    virtual int UpdateTransactionInfo(const char* transactionId, const TransactionInfoItem* items, int count);
    virtual int TransactionIDFromEvseID(int evseId, char* out);
    virtual int GetTransactionItemsDetail(const char* transactionId, TransactionDetail* items, int* count);
    virtual int AddTransactionRemoteID(const char* transactionId, int remoteStartId);
    virtual int GetTransactionErrorCode(const char* transactionId);
    virtual int GetTransactionCount();

    // Answers to the CSMS's requests and reports the host makes.
    virtual int Answer(STATIONANSWER answer, const char* messageId, int status);
    virtual int RequestStartTransaction(const char* messageId, int status, const char* transactionId);
    virtual int GetLog(const char* messageId, int status, const char* filename);
    virtual int DataTransfer(const char* messageId, int status, const char* data, int dataIsJson);
    virtual int GetInstalledCertificateIds(const char* messageId, int status,
                                           const CertificateHashDataChainItem* items, int count);
    virtual int ReservationStatusUpdate(int reservationId, int status);
    virtual int AuthorizeWithCertificate(int idTokenType, const char* idToken, const char* certificate);
    virtual int SetMeterValues(int evseId, const void* meter, int meterCount);
    virtual int FirmwareStatusNotification(int status, int requestId);
    virtual int LogStatusNotification(int status, int requestId);
    virtual int PublishFirmwareStatusNotification(int status, int requestId, const char* location);
    virtual int SignCertificate(const char* csr, int certificateType);
    virtual int DataTransferRequest(const char* vendorId, const char* messageId, const char* data, int dataIsJson,
                                    int* status, char* answer, int capacity);
    virtual int NotifyEvent(const EventDataItem* items, int count);
    virtual int Get15118EVCertificate(const char* schemaVersion, int action, const char* exiRequest, int* status,
                                      char* exiResponse, int capacity);
    virtual int GetCertificateStatus(const OcspRequestDataItem* ocsp, int* status, char* ocspResult, int capacity);
    // Each version sends its own schedule type: 2.1 never borrows the 2.0.1 one.
    virtual int NotifyEVChargingSchedule(int evseId, unsigned timeBase, const char* schedule, int length);
};

// The engine of `protocol` itself; null when that version has none.
CStationEngine* StationEngineFor(OCPPPROTOCOL protocol);
// The engine that answers the CSMS under `protocol`: 2.1 answers with the
// 2.0.1 engine until it has one of its own.
CStationEngine* AnswerEngineFor(OCPPPROTOCOL protocol);
// Puts `engine` in place for `protocol` (null puts the built-in one back);
// the engine must outlive every call.
void RegisterStationEngine(OCPPPROTOCOL protocol, CStationEngine* engine);
