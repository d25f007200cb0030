#include "Ocpp20/OcppProtocol20.h"

#include <rapidjson/document.h>

#include <cstring>
#include <memory>
#include <utility>

#include "Ocpp20/Ocpp20ProtocolRecv.h"
#include "Ocpp20/Protocol/JsonText.h"
#include "Ocpp20/Protocol/SchemaCheck.h"
#include "OcppProtocol/InboundFrame.h"
#include "OcppProtocol/OcppSendSeam.h"
#include "Process/BootHeartbeat.h"
#include "Util/Tools.h"

namespace {

const int kBootRejected = 2;

bool ParseFrame(const char* frame, size_t len, rapidjson::Document& doc) {
    if (frame == nullptr || !CJsonText::DepthWithin(frame, len)) return false;
    doc.Parse<rapidjson::kParseIterativeFlag | rapidjson::kParseFullPrecisionFlag>(frame, len);
    return !doc.HasParseError() && doc.IsArray();
}

std::string Text(const char* s) { return s != nullptr ? std::string(s) : std::string(); }

// A CALLRESULT with the CALL's id.
template <class T>
std::string Answer(T& answer, const char* messageId) {
    answer.base.messageType = Base::CALLRESULT;
    answer.base.messageId = Text(messageId);
    return models::to_string(answer, "", "");
}

// The common case: an answer that is only a status from its list.
template <class T>
std::string StatusAnswer(const char* messageId, const std::string& status) {
    if (status.empty()) return std::string();
    T answer;
    answer.status = status;
    return Answer(answer, messageId);
}

// Answer frames of the station's own requests: a CALLERROR or anything
// unreadable leaves the outputs alone.
template <class T, class Parse>
bool ReadAnswer(const char* frame, Parse parse, T& out) {
    if (frame == nullptr) return false;
    const size_t len = std::strlen(frame);
    if (COcppProtocol20::IsReponseError(frame, len)) return false;
    try {
        out = parse(frame, static_cast<unsigned int>(len));
    } catch (const CustomException& e) {
        LOG_INFO("CustomException: %s", e.what());
        return false;
    }
    return out.base.messageType == Base::CALLRESULT;
}

template <class T>
std::string Frame(T& request) {
    // Records handed in may be copies of earlier ones: each send is a new message.
    request.base = Base(Base::CALL, CTools::GetUuid(), request.base.action);
    return models::to_string(request, "", "");
}

}  // namespace

// --- Frame header access ---

std::string COcppProtocol20::GetIdentify(const char* frame) {
    return frame != nullptr ? GetIdentify(frame, std::strlen(frame)) : std::string();
}

std::string COcppProtocol20::GetIdentify(const char* frame, size_t len) {
    // Every send asks for the id: it is read from the head, not from a parse of the whole frame.
    int type = 0;
    std::string id;
    if (!CInboundFrame::ReadHead(frame, len, type, id)) id.clear();
    return id;
}

bool COcppProtocol20::IsReponseError(const char* frame) {
    return frame != nullptr && IsReponseError(frame, std::strlen(frame));
}

bool COcppProtocol20::IsReponseError(const char* frame, size_t len) {
    rapidjson::Document doc;
    return ParseFrame(frame, len, doc) && doc.Size() >= 1 && doc[0].IsInt() && doc[0].GetInt() == Base::CALLERROR;
}

// --- Dispatcher ---

void COcppProtocol20::OnMessage(const char* frame, int len) {
    if (frame == nullptr || len <= 0) return;
    const std::unique_ptr<CInboundFrame> read = CInboundFrame::Copy(frame, static_cast<size_t>(len));
    if (read) OnMessage(*read);
}

void COcppProtocol20::OnMessage(const CInboundFrame& frame) {
    if (frame.Length() == 0) return;
    const rapidjson::Document& doc = frame.Document();
    const bool parsed = frame.Parsed() && doc.IsArray();
    const int len = static_cast<int>(frame.Length());
    const int type = parsed && doc.Size() >= 1 && doc[0].IsInt() ? doc[0].GetInt() : 0;
    // Only a frame typed CALL is a request: a CALLERROR names its error code
    // where a CALL names its action, and must never be taken for one.
    if (type == Base::CALL && doc.Size() >= 3 && doc[2].IsString()) {
        const std::string id = doc[1].IsString() ? std::string(doc[1].GetString(), doc[1].GetStringLength()) : "";
        const std::string action(doc[2].GetString(), doc[2].GetStringLength());
        const Ocpp20InboundAction* row = Ocpp20Protocol_FindInboundAction(action.c_str());
        Ocpp20Record request;
        std::string failure;
        bool fits = true;
        if (row != nullptr) {
            try {
                request = Ocpp20Protocol_CheckRequest(*row, doc);
            } catch (const CustomException& e) {
                fits = false;
                failure = e.what();
            }
        }
        // Only a well-formed TriggerMessage(BootNotification) passes a rejected registration.
        const bool bootTrigger =
            fits && request && action == models::actionTriggerMessage_t &&
            static_cast<const models::triggerMessageRequest_t*>(request.get())->requestedMessage == "BootNotification";
        if (CBootHeartbeat::GetInstance()->GetBootStatus() == kBootRejected && !bootTrigger) {
            OcppProtocol_ResponseError(id.c_str(), RESPONSEERRORCODE_SECURITYERROR, "", "{}");
            return;
        }
        // A name OCPP 2.0.1 does not know is refused at once rather than left to time out.
        if (!models::IsOcppAction(action.c_str())) {
            OcppProtocol_ResponseError(id.c_str(), RESPONSEERRORCODE_NOTIMPLEMENTED, "", "{}");
            return;
        }
        // Every schema violation is TypeConstraintViolation, whatever rule it breaks.
        if (!fits) {
            LOG_INFO("CustomException: %s", failure.c_str());
            OcppProtocol_ResponseError(id.c_str(), RESPONSEERRORCODE_TYPECONSTRAINTVIOLATION, "", "{}");
            return;
        }
        if (row != nullptr && row->handler != nullptr) row->handler(id.c_str(), request.get(), len);
        return;
    }
    // Answers nobody waits for any more are dropped without a word.
    if (type == Base::CALLRESULT || type == Base::CALLERROR) return;
    LOG_ERROR("recv cms data error:%s\n", frame.Text());
}

bool COcppProtocol20::AnswersAtOnce(const CInboundFrame& frame) {
    const rapidjson::Document& doc = frame.Document();
    if (!frame.Parsed() || !doc.IsArray() || doc.Size() < 3 || !doc[0].IsInt() || doc[0].GetInt() != Base::CALL ||
        !doc[2].IsString())
        return false;
    const Ocpp20InboundAction* row = Ocpp20Protocol_FindInboundAction(doc[2].GetString());
    return row != nullptr && row->atOnce;
}

// --- Requests the station sends ---

std::string COcppProtocol20::BootNotificationReq(BOOTREASON reason, const char* model, const char* vendorName,
                                                 const BootNotificationOption& option) {
    models::bootNotificationRequest_t request;
    request.reason = models::GetBootReasonInString(static_cast<int>(reason));
    if (request.reason.empty()) return std::string();
    request.chargingStation_present = true;
    models::chargingStation_t& station = request.chargingStation;
    station.model = Text(model);
    station.vendorName = Text(vendorName);
    // The option record comes from the host: never read past its arrays.
    station.serialNumber.assign(option.serialNumber, strnlen(option.serialNumber, sizeof(option.serialNumber)));
    station.firmwareVersion.assign(option.firmwareVersion,
                                   strnlen(option.firmwareVersion, sizeof(option.firmwareVersion)));
    station.modem.iccid.assign(option.iccid, strnlen(option.iccid, sizeof(option.iccid)));
    station.modem.imsi.assign(option.imsi, strnlen(option.imsi, sizeof(option.imsi)));
    station.modem_present = !station.modem.iccid.empty() || !station.modem.imsi.empty();
    return models::to_string(request, "", "");
}

int COcppProtocol20::BootNotificationResp(const char* frame, BootNotificationResult* out) {
    models::bootNotificationResponse_t answer;
    if (out == nullptr || !ReadAnswer(frame, models::BootNotificationResponseFromJsonData, answer)) return 0;
    const int64_t when = CTools::GetTimeByString(answer.currentTime);
    out->currentTime = when > 0 && when <= INT32_MAX ? static_cast<int32_t>(when) : 0;
    out->interval = answer.interval;
    out->status = models::GetRegistrationStatusInInt(answer.status);
    return 1;
}

std::string COcppProtocol20::HeartbeatReq() {
    models::heartbeatRequest_t request;
    return models::to_string(request, "", "");
}

int COcppProtocol20::HeartbeatResp(const char* frame, int64_t* currentTime) {
    models::heartbeatResponse_t answer;
    if (currentTime == nullptr || !ReadAnswer(frame, models::HeartbeatResponseFromJsonData, answer)) return 0;
    *currentTime = CTools::GetTimeByString(answer.currentTime);
    return 1;
}

std::string COcppProtocol20::StatusNotificationReq(int evseId, int connectorId, int status, int64_t timestamp) {
    models::statusNotificationRequest_t request;
    request.timestamp = CTools::GetLocalTime(timestamp);
    request.connectorStatus = models::GetConnectorStatusInString(status);
    if (request.connectorStatus.empty()) return std::string();
    request.evseId = evseId;
    request.evseId_present = true;
    request.connectorId = connectorId;
    request.connectorId_present = true;
    return models::to_string(request, "", "");
}

int COcppProtocol20::StatusNotificationResp(const char* frame) {
    models::statusNotificationResponse_t answer;
    return ReadAnswer(frame, models::StatusNotificationResponseFromJsonData, answer) ? 1 : 0;
}

std::string COcppProtocol20::SecurityEventNotificationReq(const char* type, int64_t timestamp, const char* techInfo) {
    models::securityEventNotificationRequest_t request;
    request.type = Text(type);
    request.timestamp = CTools::GetLocalTime(timestamp);
    request.techInfo = Text(techInfo);
    return models::to_string(request, "", "");
}

int COcppProtocol20::SecurityEventNotificationResp(const char* frame) {
    models::securityEventNotificationResponse_t answer;
    return ReadAnswer(frame, models::SecurityEventNotificationResponseFromJsonData, answer) ? 1 : 0;
}

std::string COcppProtocol20::AuthorizeReq(const char* idToken, int tokenType) {
    models::authorizeRequest_t request;
    request.idToken_present = true;
    request.idToken.idToken = Text(idToken);
    request.idToken.type = models::GetIdTokenInString(tokenType);
    if (request.idToken.type.empty()) return std::string();
    return models::to_string(request, "", "");
}

std::string COcppProtocol20::AuthorizeWithCertificateReq(const char* idToken, int tokenType, const char* certificate) {
    models::authorizeRequest_t request;
    request.idToken_present = true;
    request.idToken.idToken = Text(idToken);
    request.idToken.type = models::GetIdTokenInString(tokenType);
    if (request.idToken.type.empty()) return std::string();
    request.certificate = Text(certificate);
    return models::to_string(request, "", "");
}

int COcppProtocol20::AuthorizeResp(const char* frame, int* status, models::idTokenInfo_t* info) {
    return AuthorizeWithCertificateResp(frame, status, nullptr, info);
}

int COcppProtocol20::AuthorizeWithCertificateResp(const char* frame, int* status, int* certificateStatus,
                                                  models::idTokenInfo_t* info) {
    models::authorizeResponse_t answer;
    if (!ReadAnswer(frame, models::AuthorizeResponseFromJsonData, answer)) return 0;
    if (status != nullptr) *status = models::GetAuthorizationStatusInInt(answer.idTokenInfo.status);
    if (certificateStatus != nullptr) {
        *certificateStatus = models::GetAuthorizeCertificateStatusInInt(answer.certificateStatus);
    }
    if (info != nullptr) *info = answer.idTokenInfo;
    return 1;
}

std::string COcppProtocol20::FirmwareStatusNotificationReq(int status, int requestId) {
    models::firmwareStatusNotificationRequest_t request;
    request.status = models::GetFirmwareStatusInString(status);
    if (request.status.empty()) return std::string();
    request.requestId = requestId;
    request.requestId_present = requestId >= 0;
    return models::to_string(request, "", "");
}

int COcppProtocol20::FirmwareStatusNotificationResp(const char* frame) {
    models::firmwareStatusNotificationResponse_t answer;
    return ReadAnswer(frame, models::FirmwareStatusNotificationResponseFromJsonData, answer) ? 1 : 0;
}

std::string COcppProtocol20::LogStatusNotificationReq(int status, int requestId) {
    models::logStatusNotificationRequest_t request;
    request.status = models::GetUploadLogStatusInString(status);
    if (request.status.empty()) return std::string();
    request.requestId = requestId;
    request.requestId_present = requestId >= 0;
    return models::to_string(request, "", "");
}

int COcppProtocol20::LogStatusNotificationResp(const char* frame) {
    models::logStatusNotificationResponse_t answer;
    return ReadAnswer(frame, models::LogStatusNotificationResponseFromJsonData, answer) ? 1 : 0;
}

std::string COcppProtocol20::PublishFirmwareStatusNotificationReq(int status, int requestId, const char* location) {
    models::publishFirmwareStatusNotificationRequest_t request;
    request.status = models::GetPublishFirmwareStatusInString(status);
    if (request.status.empty()) return std::string();
    if (location != nullptr && *location != '\0') request.location.push_back(location);
    request.requestId = requestId;
    request.requestId_present = requestId >= 0;
    return models::to_string(request, "", "");
}

int COcppProtocol20::PublishFirmwareStatusNotificationResp(const char* frame) {
    models::publishFirmwareStatusNotificationResponse_t answer;
    return ReadAnswer(frame, models::PublishFirmwareStatusNotificationResponseFromJsonData, answer) ? 1 : 0;
}

std::string COcppProtocol20::ReservationStatusUpdateReq(int reservationId, int status) {
    models::reservationStatusUpdateRequest_t request;
    request.reservationId = reservationId;
    request.reservationId_present = true;
    request.reservationUpdateStatus = models::GetReservationUpdateStatusInString(status);
    if (request.reservationUpdateStatus.empty()) return std::string();
    return models::to_string(request, "", "");
}

int COcppProtocol20::ReservationStatusUpdateResp(const char* frame) {
    models::reservationStatusUpdateResponse_t answer;
    return ReadAnswer(frame, models::ReservationStatusUpdateResponseFromJsonData, answer) ? 1 : 0;
}

std::string COcppProtocol20::ClearedChargingLimitReq(int source, int evseId) {
    models::clearedChargingLimitRequest_t request;
    request.chargingLimitSource = models::GetChargingLimitSourceInString(source);
    if (request.chargingLimitSource.empty()) return std::string();
    request.evseId = evseId;
    request.evseId_present = evseId >= 0;
    return models::to_string(request, "", "");
}

int COcppProtocol20::ClearedChargingLimitResp(const char* frame) {
    models::clearedChargingLimitResponse_t answer;
    return ReadAnswer(frame, models::ClearedChargingLimitResponseFromJsonData, answer) ? 1 : 0;
}

std::string COcppProtocol20::DataTransferReq(const char* vendorId, const char* dataMessageId, const char* data,
                                             bool dataIsJson) {
    models::dataTransferRequest_t request;
    request.vendorId = Text(vendorId);
    request.messageId = Text(dataMessageId);
    request.data = Text(data);
    request.data_json = dataIsJson;
    return models::to_string(request, "", "");
}

int COcppProtocol20::DataTransferResp(const char* frame, int* status, std::string* data) {
    models::dataTransferResponse_t answer;
    if (!ReadAnswer(frame, models::DataTransferResponseFromJsonData, answer)) return 0;
    if (status != nullptr) *status = models::GetDataTransferStatusInInt(answer.status);
    if (data != nullptr) *data = answer.data;
    return 1;
}

std::string COcppProtocol20::SignCertificateReq(const char* csr, int certificateType) {
    models::signCertificateRequest_t request;
    request.csr = Text(csr);
    if (certificateType >= 0) {
        request.certificateType = models::GetCertificateSigningUseInString(certificateType);
        if (request.certificateType.empty()) return std::string();
    }
    return models::to_string(request, "", "");
}

int COcppProtocol20::SignCertificateResq(const char* frame, int* status) {
    models::signCertificateResponse_t answer;
    if (!ReadAnswer(frame, models::SignCertificateResponseFromJsonData, answer)) return 0;
    if (status != nullptr) *status = models::GetGenericStatusInInt(answer.status);
    return 1;
}

std::string COcppProtocol20::GetCertificateStatusReq(const models::ocspRequestData_t& ocsp) {
    models::getCertificateStatusRequest_t request;
    request.ocspRequestData = ocsp;
    request.ocspRequestData_present = true;
    return models::to_string(request, "", "");
}

int COcppProtocol20::GetCertificateStatusResp(const char* frame, int* status, std::string* ocspResult) {
    models::getCertificateStatusResponse_t answer;
    if (!ReadAnswer(frame, models::GetCertificateStatusResponseFromJsonData, answer)) return 0;
    if (status != nullptr) *status = models::GetGetCertificateStatusInInt(answer.status);
    if (ocspResult != nullptr) *ocspResult = answer.ocspResult;
    return 1;
}

std::string COcppProtocol20::Get15118EVCertificateReq(const char* schemaVersion, int action, const char* exiRequest) {
    models::get15118EVCertificateRequest_t request;
    request.iso15118SchemaVersion = Text(schemaVersion);
    request.action = models::GetCertificateActionInString(action);
    if (request.action.empty()) return std::string();
    request.exiRequest = Text(exiRequest);
    return models::to_string(request, "", "");
}

int COcppProtocol20::Get15118EVCertificateResp(const char* frame, int* status, std::string* exiResponse) {
    models::get15118EVCertificateResponse_t answer;
    if (!ReadAnswer(frame, models::Get15118EVCertificateResponseFromJsonData, answer)) return 0;
    if (status != nullptr) *status = models::GetIso15118EVCertificateStatusInInt(answer.status);
    if (exiResponse != nullptr) *exiResponse = answer.exiResponse;
    return 1;
}

std::string COcppProtocol20::NotifyEventReq(models::notifyEventRequest_t request) { return Frame(request); }
int COcppProtocol20::NotifyEventResp(const char* frame) {
    models::notifyEventResponse_t answer;
    return ReadAnswer(frame, models::NotifyEventResponseFromJsonData, answer) ? 1 : 0;
}

std::string COcppProtocol20::NotifyReportReq(models::notifyReportRequest_t request) { return Frame(request); }
int COcppProtocol20::NotifyReportResp(const char* frame) {
    models::notifyReportResponse_t answer;
    return ReadAnswer(frame, models::NotifyReportResponseFromJsonData, answer) ? 1 : 0;
}

std::string COcppProtocol20::NotifyMonitoringReportReq(models::notifyMonitoringReportRequest_t request) {
    return Frame(request);
}
int COcppProtocol20::NotifyMonitoringReportResq(const char* frame) {
    models::notifyMonitoringReportResponse_t answer;
    return ReadAnswer(frame, models::NotifyMonitoringReportResponseFromJsonData, answer) ? 1 : 0;
}

std::string COcppProtocol20::NotifyChargingLimitReq(models::notifyChargingLimitRequest_t request) {
    return Frame(request);
}
int COcppProtocol20::NotifyChargingLimitResp(const char* frame) {
    models::notifyChargingLimitResponse_t answer;
    return ReadAnswer(frame, models::NotifyChargingLimitResponseFromJsonData, answer) ? 1 : 0;
}

std::string COcppProtocol20::NotifyCustomerInformationReq(models::notifyCustomerInformationRequest_t request) {
    return Frame(request);
}
int COcppProtocol20::NotifyCustomerInformationResp(const char* frame) {
    models::notifyCustomerInformationResponse_t answer;
    return ReadAnswer(frame, models::NotifyCustomerInformationResponseFromJsonData, answer) ? 1 : 0;
}

std::string COcppProtocol20::NotifyDisplayMessagesReq(models::notifyDisplayMessagesRequest_t request) {
    return Frame(request);
}
int COcppProtocol20::NotifyDisplayMessagesResp(const char* frame) {
    models::notifyDisplayMessagesResponse_t answer;
    return ReadAnswer(frame, models::NotifyDisplayMessagesResponseFromJsonData, answer) ? 1 : 0;
}

std::string COcppProtocol20::NotifyEVChargingNeedsReq(models::notifyEVChargingNeedsRequest_t request) {
    return Frame(request);
}
int COcppProtocol20::NotifyEVChargingNeedsResp(const char* frame, int* status) {
    models::notifyEVChargingNeedsResponse_t answer;
    if (!ReadAnswer(frame, models::NotifyEVChargingNeedsResponseFromJsonData, answer)) return 0;
    if (status != nullptr) *status = models::GetNotifyEVChargingNeedsStatusInInt(answer.status);
    return 1;
}

std::string COcppProtocol20::NotifyEVChargingScheduleReq(models::notifyEVChargingScheduleRequest_t request) {
    return Frame(request);
}
int COcppProtocol20::NotifyEVChargingScheduleResp(const char* frame, int* status) {
    models::notifyEVChargingScheduleResponse_t answer;
    if (!ReadAnswer(frame, models::NotifyEVChargingScheduleResponseFromJsonData, answer)) return 0;
    if (status != nullptr) *status = models::GetGenericStatusInInt(answer.status);
    return 1;
}

std::string COcppProtocol20::ReportChargingProfilesReq(models::reportChargingProfilesRequest_t request) {
    return Frame(request);
}
int COcppProtocol20::ReportChargingProfilesResp(const char* frame) {
    models::reportChargingProfilesResponse_t answer;
    return ReadAnswer(frame, models::ReportChargingProfilesResponseFromJsonData, answer) ? 1 : 0;
}

std::string COcppProtocol20::MeterValuesReq(models::meterValuesRequest_t request) { return Frame(request); }
int COcppProtocol20::MeterValuesResp(const char* frame) {
    models::meterValuesResponse_t answer;
    return ReadAnswer(frame, models::MeterValuesResponseFromJsonData, answer) ? 1 : 0;
}

// --- CALLRESULTs ---

std::string COcppProtocol20::ChangeAvailability(const char* messageId, int status) {
    return StatusAnswer<models::changeAvailabilityResponse_t>(messageId, models::GetChangeAvailabilityStatusInString(status));
}
std::string COcppProtocol20::CancelReservation(const char* messageId, int status) {
    return StatusAnswer<models::cancelReservationResponse_t>(messageId, models::GetCancelReservationStatusInString(status));
}
std::string COcppProtocol20::CertificateSigned(const char* messageId, int status) {
    return StatusAnswer<models::certificateSignedResponse_t>(messageId, models::GetCertificateSignedStatusInString(status));
}
std::string COcppProtocol20::ClearCache(const char* messageId, int status) {
    return StatusAnswer<models::clearCacheResponse_t>(messageId, models::GetClearCacheStatusInString(status));
}
std::string COcppProtocol20::ClearChargingProfile(const char* messageId, int status) {
    return StatusAnswer<models::clearChargingProfileResponse_t>(messageId,
                                                                models::GetClearChargingProfileStatusInString(status));
}
std::string COcppProtocol20::ClearDisplayMessage(const char* messageId, int status) {
    return StatusAnswer<models::clearDisplayMessageResponse_t>(messageId, models::GetClearMessageStatusInString(status));
}
std::string COcppProtocol20::CostUpdated(const char* messageId) {
    models::costUpdatedResponse_t answer;
    return Answer(answer, messageId);
}
std::string COcppProtocol20::CustomerInformation(const char* messageId, int status) {
    return StatusAnswer<models::customerInformationResponse_t>(messageId,
                                                               models::GetCustomerInformationStatusInString(status));
}
std::string COcppProtocol20::DeleteCertificate(const char* messageId, int status) {
    return StatusAnswer<models::deleteCertificateResponse_t>(messageId, models::GetDeleteCertificateStatusInString(status));
}
std::string COcppProtocol20::InstallCertificate(const char* messageId, int status) {
    return StatusAnswer<models::installCertificateResponse_t>(messageId,
                                                              models::GetInstallCertificateStatusInString(status));
}
std::string COcppProtocol20::TriggerMessage(const char* messageId, int status) {
    return StatusAnswer<models::triggerMessageResponse_t>(messageId, models::GetTriggerMessageStatusInString(status));
}
std::string COcppProtocol20::ReserveNow(const char* messageId, int status) {
    return StatusAnswer<models::reserveNowResponse_t>(messageId, models::GetReserveNowStatusInString(status));
}
std::string COcppProtocol20::Reset(const char* messageId, int status) {
    return StatusAnswer<models::resetResponse_t>(messageId, models::GetResetStatusInString(status));
}
std::string COcppProtocol20::SendLocalList(const char* messageId, int status) {
    return StatusAnswer<models::sendLocalListResponse_t>(messageId, models::GetSendLocalListStatusInString(status));
}
std::string COcppProtocol20::RequestStartTransaction(const char* messageId, int status, const char* transactionId) {
    models::requestStartTransactionResponse_t answer;
    answer.status = models::GetRequestStartStopStatusInString(status);
    if (answer.status.empty()) return std::string();
    answer.transactionId = Text(transactionId);
    return Answer(answer, messageId);
}
std::string COcppProtocol20::RequestStopTransaction(const char* messageId, int status) {
    return StatusAnswer<models::requestStopTransactionResponse_t>(messageId,
                                                                  models::GetRequestStartStopStatusInString(status));
}
std::string COcppProtocol20::PublishFirmware(const char* messageId, int status) {
    return StatusAnswer<models::publishFirmwareResponse_t>(messageId, models::GetGenericStatusInString(status));
}
std::string COcppProtocol20::DataTransfer(const char* messageId, int status, const char* data, bool dataIsJson) {
    models::dataTransferResponse_t answer;
    answer.status = models::GetDataTransferStatusInString(status);
    if (answer.status.empty()) return std::string();
    answer.data = Text(data);
    answer.data_json = dataIsJson;
    return Answer(answer, messageId);
}
std::string COcppProtocol20::GetBaseReport(const char* messageId, int status) {
    return StatusAnswer<models::getBaseReportResponse_t>(messageId,
                                                         models::GetGenericDeviceModelStatusInString(status));
}
std::string COcppProtocol20::GetChargingProfiles(const char* messageId, int status) {
    return StatusAnswer<models::getChargingProfilesResponse_t>(messageId,
                                                               models::GetGetChargingProfileStatusInString(status));
}
std::string COcppProtocol20::UnlockConnector(const char* messageId, int status) {
    return StatusAnswer<models::unlockConnectorResponse_t>(messageId, models::GetUnlockStatusInString(status));
}
std::string COcppProtocol20::UnpublishFirmware(const char* messageId, int status) {
    return StatusAnswer<models::unpublishFirmwareResponse_t>(messageId, models::GetUnpublishFirmwareStatusInString(status));
}
std::string COcppProtocol20::GetDisplayMessages(const char* messageId, int status) {
    return StatusAnswer<models::getDisplayMessagesResponse_t>(messageId,
                                                              models::GetGetDisplayMessagesStatusInString(status));
}
std::string COcppProtocol20::GetInstalledCertificateIds(const char* messageId, int status,
                                                        const CertificateHashDataChainItem* items, int count) {
    models::getInstalledCertificateIdsResponse_t answer;
    answer.status = models::GetGetInstalledCertificateStatusInString(status);
    if (answer.status.empty() || count < 0 || (count > 0 && items == nullptr)) return std::string();
    for (int i = 0; i < count; ++i) {
        const CertificateHashDataChainItem& item = items[i];
        models::certificateHashDataChain_t chain;
        chain.certificateType = models::GetGetCertificateIdUseInString(item.certificateType);
        chain.certificateHashData_present = true;
        models::certificateHashData_t& hash = chain.certificateHashData;
        hash.hashAlgorithm = models::GetHashAlgorithmInString(item.hashAlgorithm);
        hash.issuerNameHash.assign(item.issuerNameHash, strnlen(item.issuerNameHash, sizeof(item.issuerNameHash)));
        hash.issuerKeyHash.assign(item.issuerKeyHash, strnlen(item.issuerKeyHash, sizeof(item.issuerKeyHash)));
        hash.serialNumber.assign(item.serialNumber, strnlen(item.serialNumber, sizeof(item.serialNumber)));
        if (chain.certificateType.empty() || hash.hashAlgorithm.empty()) return std::string();
        answer.certificateHashDataChain.push_back(std::move(chain));
    }
    return Answer(answer, messageId);
}
std::string COcppProtocol20::GetLocalListVersion(const char* messageId, int versionNumber) {
    models::getLocalListVersionResponse_t answer;
    answer.versionNumber = versionNumber;
    answer.versionNumber_present = true;
    return Answer(answer, messageId);
}
std::string COcppProtocol20::UpdateFirmware(const char* messageId, int status) {
    return StatusAnswer<models::updateFirmwareResponse_t>(messageId, models::GetUpdateFirmwareStatusInString(status));
}
std::string COcppProtocol20::SetNetworkProfileResp(const char* messageId, int status) {
    return StatusAnswer<models::setNetworkProfileResponse_t>(messageId, models::GetSetNetworkProfileStatusInString(status));
}
std::string COcppProtocol20::SetMonitoringLevelResp(const char* messageId, int status) {
    return StatusAnswer<models::setMonitoringLevelResponse_t>(messageId, models::GetGenericStatusInString(status));
}
std::string COcppProtocol20::SetMonitoringBaseResp(const char* messageId, int status) {
    return StatusAnswer<models::setMonitoringBaseResponse_t>(messageId,
                                                             models::GetGenericDeviceModelStatusInString(status));
}
std::string COcppProtocol20::SetDisplayMessageResp(const char* messageId, int status) {
    return StatusAnswer<models::setDisplayMessageResponse_t>(messageId, models::GetDisplayMessageStatusInString(status));
}
std::string COcppProtocol20::GetLog(const char* messageId, int status, const char* filename) {
    models::getLogResponse_t answer;
    answer.status = models::GetLogStatusInString(status);
    if (answer.status.empty()) return std::string();
    answer.filename = Text(filename);
    return Answer(answer, messageId);
}
std::string COcppProtocol20::GetMonitoringReport(const char* messageId, int status) {
    return StatusAnswer<models::getMonitoringReportResponse_t>(messageId,
                                                               models::GetGenericDeviceModelStatusInString(status));
}
std::string COcppProtocol20::GetReport(const char* messageId, int status) {
    return StatusAnswer<models::getReportResponse_t>(messageId, models::GetGenericDeviceModelStatusInString(status));
}
std::string COcppProtocol20::SetChargingProfile(const char* messageId, int status) {
    return StatusAnswer<models::setChargingProfileResponse_t>(messageId, models::GetChargingProfileStatusInString(status));
}
std::string COcppProtocol20::ClearVariableMonitoring(const char* messageId,
                                                     models::clearVariableMonitoringResponse_t answer) {
    return Answer(answer, messageId);
}
std::string COcppProtocol20::SetVariables(const char* messageId, models::setVariablesResponse_t answer) {
    return Answer(answer, messageId);
}
std::string COcppProtocol20::GetVariables(const char* messageId, models::getVariablesResponse_t answer) {
    return Answer(answer, messageId);
}
std::string COcppProtocol20::SetVariableMonitoring(const char* messageId,
                                                   models::setVariableMonitoringResponse_t answer) {
    return Answer(answer, messageId);
}
std::string COcppProtocol20::GetCompositeSchedule(const char* messageId, models::getCompositeScheduleResponse_t answer) {
    return Answer(answer, messageId);
}
std::string COcppProtocol20::GetTransactionStatus(const char* messageId,
                                                  models::getTransactionStatusResponse_t answer) {
    return Answer(answer, messageId);
}
