#pragma once
// The 2.0.1 engine: frames in (dispatcher), frames out (request builders,
// answer parsers and the CALLRESULT builders for the CSMS's requests).
#include <OcppProtocol.h>

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "models/Models.h"

class CInboundFrame;
struct TransactionEventArgs;
struct TransactionAnswer;

// Answer fields the host or a component reads back from an answer frame.
struct BootNotificationResult {
    int32_t currentTime;  // UTC epoch seconds; 0 when the time was not readable
    int32_t interval;
    int32_t status;       // Accepted 0, Pending 1, Rejected 2
};

class COcppProtocol20 {
public:
    // Element 1 of a frame (its message id); empty when the frame does not parse.
    static std::string GetIdentify(const char* frame);
    static std::string GetIdentify(const char* frame, size_t len);
    // True when the frame is a CALLERROR.
    static bool IsReponseError(const char* frame);
    static bool IsReponseError(const char* frame, size_t len);

    // Inbound frames, one at a time, on the notification thread or, when
    // AnswersAtOnce, on the receiving one. The frame comes read; the text form
    // reads it first and is there for callers without one.
    static void OnMessage(const CInboundFrame& frame);
    static void OnMessage(const char* frame, int len);
    // A CALL whose answer needs neither the host nor the CSMS.
    static bool AnswersAtOnce(const CInboundFrame& frame);
    // 0 when the payload of a known action does not fit its request record.
    static int OnParamCheck(const char* action, const char* frame, int len);

    // --- Requests the station sends, and the answers it reads back. ---
    // A builder given an enumeration value outside its list returns an empty
    // string: such a frame would be refused by the CSMS and must not be sent.
    // Each parser returns 1 when the frame was an answer of the expected kind
    // and its outputs were written, 0 for a CALLERROR or an unreadable frame.
    static std::string BootNotificationReq(BOOTREASON reason, const char* model, const char* vendorName,
                                           const BootNotificationOption& option);
    static int BootNotificationResp(const char* frame, BootNotificationResult* out);

    static std::string HeartbeatReq();
    static int HeartbeatResp(const char* frame, int64_t* currentTime);

    // status: ConnectorStatusEnumType index; timestamp: epoch seconds.
    static std::string StatusNotificationReq(int evseId, int connectorId, int status, int64_t timestamp);
    static int StatusNotificationResp(const char* frame);

    static std::string SecurityEventNotificationReq(const char* type, int64_t timestamp, const char* techInfo);
    static int SecurityEventNotificationResp(const char* frame);

    // tokenType: IdTokenEnumType index. status: AuthorizationStatusEnumType index.
    static std::string AuthorizeReq(const char* idToken, int tokenType);
    static std::string AuthorizeWithCertificateReq(const char* idToken, int tokenType, const char* certificate);
    static int AuthorizeResp(const char* frame, int* status, models::idTokenInfo_t* info);
    static int AuthorizeWithCertificateResp(const char* frame, int* status, int* certificateStatus,
                                            models::idTokenInfo_t* info);

    // status: FirmwareStatusEnumType index; requestId < 0 leaves it out.
    static std::string FirmwareStatusNotificationReq(int status, int requestId);
    static int FirmwareStatusNotificationResp(const char* frame);
    // status: UploadLogStatusEnumType index.
    static std::string LogStatusNotificationReq(int status, int requestId);
    static int LogStatusNotificationResp(const char* frame);
    // status: PublishFirmwareStatusEnumType index; `location` only when Published.
    static std::string PublishFirmwareStatusNotificationReq(int status, int requestId, const char* location);
    static int PublishFirmwareStatusNotificationResp(const char* frame);
    // status: ReservationUpdateStatusEnumType index.
    static std::string ReservationStatusUpdateReq(int reservationId, int status);
    static int ReservationStatusUpdateResp(const char* frame);
    // source: ChargingLimitSourceEnumType index; evseId < 0 leaves it out.
    static std::string ClearedChargingLimitReq(int source, int evseId);
    static int ClearedChargingLimitResp(const char* frame);

    // `data` as text, or JSON when dataIsJson and it parses. status: DataTransferStatusEnumType index.
    static std::string DataTransferReq(const char* vendorId, const char* dataMessageId, const char* data,
                                       bool dataIsJson);
    static int DataTransferResp(const char* frame, int* status, std::string* data);

    // certificateType: CertificateSigningUseEnumType index, < 0 leaves it out.
    static std::string SignCertificateReq(const char* csr, int certificateType);
    static int SignCertificateResq(const char* frame, int* status);

    static std::string GetCertificateStatusReq(const models::ocspRequestData_t& ocsp);
    static int GetCertificateStatusResp(const char* frame, int* status, std::string* ocspResult);
    // action: CertificateActionEnumType index.
    static std::string Get15118EVCertificateReq(const char* schemaVersion, int action, const char* exiRequest);
    static int Get15118EVCertificateResp(const char* frame, int* status, std::string* exiResponse);

    // Messages whose content a component assembles as a record; the builder
    // gives it a fresh id and frames it.
    static std::string NotifyEventReq(models::notifyEventRequest_t request);
    static int NotifyEventResp(const char* frame);
    static std::string NotifyReportReq(models::notifyReportRequest_t request);
    static int NotifyReportResp(const char* frame);
    static std::string NotifyMonitoringReportReq(models::notifyMonitoringReportRequest_t request);
    static int NotifyMonitoringReportResq(const char* frame);
    static std::string NotifyChargingLimitReq(models::notifyChargingLimitRequest_t request);
    static int NotifyChargingLimitResp(const char* frame);
    static std::string NotifyCustomerInformationReq(models::notifyCustomerInformationRequest_t request);
    static int NotifyCustomerInformationResp(const char* frame);
    static std::string NotifyDisplayMessagesReq(models::notifyDisplayMessagesRequest_t request);
    static int NotifyDisplayMessagesResp(const char* frame);
    static std::string NotifyEVChargingNeedsReq(models::notifyEVChargingNeedsRequest_t request);
    static int NotifyEVChargingNeedsResp(const char* frame, int* status);
    static std::string NotifyEVChargingScheduleReq(models::notifyEVChargingScheduleRequest_t request);
    static int NotifyEVChargingScheduleResp(const char* frame, int* status);
    static std::string ReportChargingProfilesReq(models::reportChargingProfilesRequest_t request);
    static int ReportChargingProfilesResp(const char* frame);
    static std::string MeterValuesReq(models::meterValuesRequest_t request);
    static int MeterValuesResp(const char* frame);
    // MeterValues outside a transaction from the host's packed meter items.
    static std::string MeterValuesReq(int evseId, const void* meter, int meterCount, int64_t eventTime);

    // TransactionEvent from the manager's event; `offline`: it occurred while
    // the station was not online. Empty when a value is outside its list.
    static std::string TransactionStartReq(const TransactionEventArgs& args, bool offline);
    static std::string TransactionUpdateReq(const TransactionEventArgs& args, bool offline);
    static std::string TransactionEndReq(const TransactionEventArgs& args, bool offline);
    // 1 with `out` (and `info`, when given and present) filled from a
    // CALLRESULT; 0 for a CALLERROR or an unreadable frame.
    static int TransactionResp(const char* frame, size_t len, TransactionAnswer* out,
                               models::idTokenInfo_t* info = nullptr);
    static int TransactionResp(const char* frame, TransactionAnswer* out);

    // The host's packed meter items (MeterItem / SignedMeterItem) appended as
    // meterValue entries, one per timestamp in order of first appearance; an
    // item without a timestamp takes `eventTime`, one without a context
    // takes `context` (ReadingContextEnumType index).
    static void SetTransactionMeter(std::vector<models::meterValue_t>& out, const void* meter, int meterCount,
                                    int64_t eventTime, int context);
    static void SetTransactionMeterStart(std::vector<models::meterValue_t>& out, const void* meter, int meterCount,
                                         int64_t eventTime);
    static void SetTransactionMeterEnd(std::vector<models::meterValue_t>& out, const void* meter, int meterCount,
                                       int64_t eventTime);

    // --- CALLRESULTs for the CSMS's requests. ---
    // `status` is the answer's position in its OCPP list; an empty string
    // means the status was outside the list and nothing may be sent.
    static std::string ChangeAvailability(const char* messageId, int status);
    static std::string CancelReservation(const char* messageId, int status);
    static std::string CertificateSigned(const char* messageId, int status);
    static std::string ClearCache(const char* messageId, int status);
    static std::string ClearChargingProfile(const char* messageId, int status);
    static std::string ClearDisplayMessage(const char* messageId, int status);
    static std::string CostUpdated(const char* messageId);
    static std::string CustomerInformation(const char* messageId, int status);
    static std::string DeleteCertificate(const char* messageId, int status);
    static std::string InstallCertificate(const char* messageId, int status);
    static std::string TriggerMessage(const char* messageId, int status);
    static std::string ReserveNow(const char* messageId, int status);
    static std::string Reset(const char* messageId, int status);
    static std::string SendLocalList(const char* messageId, int status);
    static std::string RequestStartTransaction(const char* messageId, int status, const char* transactionId);
    static std::string RequestStopTransaction(const char* messageId, int status);
    static std::string PublishFirmware(const char* messageId, int status);
    static std::string DataTransfer(const char* messageId, int status, const char* data, bool dataIsJson);
    static std::string GetBaseReport(const char* messageId, int status);
    static std::string GetChargingProfiles(const char* messageId, int status);
    static std::string UnlockConnector(const char* messageId, int status);
    static std::string UnpublishFirmware(const char* messageId, int status);
    static std::string GetDisplayMessages(const char* messageId, int status);
    static std::string GetInstalledCertificateIds(const char* messageId, int status,
                                                  const CertificateHashDataChainItem* items, int count);
    static std::string GetLocalListVersion(const char* messageId, int versionNumber);
    static std::string UpdateFirmware(const char* messageId, int status);
    static std::string SetNetworkProfileResp(const char* messageId, int status);
    static std::string SetMonitoringLevelResp(const char* messageId, int status);
    static std::string SetMonitoringBaseResp(const char* messageId, int status);
    static std::string SetDisplayMessageResp(const char* messageId, int status);
    static std::string GetLog(const char* messageId, int status, const char* filename);
    static std::string GetMonitoringReport(const char* messageId, int status);
    static std::string GetReport(const char* messageId, int status);
    static std::string SetChargingProfile(const char* messageId, int status);
    // Answers whose content a component assembles as a record.
    static std::string ClearVariableMonitoring(const char* messageId, models::clearVariableMonitoringResponse_t answer);
    static std::string SetVariables(const char* messageId, models::setVariablesResponse_t answer);
    static std::string GetVariables(const char* messageId, models::getVariablesResponse_t answer);
    static std::string SetVariableMonitoring(const char* messageId, models::setVariableMonitoringResponse_t answer);
    static std::string GetCompositeSchedule(const char* messageId, models::getCompositeScheduleResponse_t answer);
    static std::string GetTransactionStatus(const char* messageId, models::getTransactionStatusResponse_t answer);
};
