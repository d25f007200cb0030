#include "Ocpp20/Ocpp20ProtocolReport.h"

#include <rapidjson/document.h>

#include <cstring>
#include <string>

#include "Ocpp20/OcppProtocol20.h"
#include "Ocpp20/Protocol/SchemaCheck.h"
#include "OcppProtocol/OutboundSender.h"
#include "Util/Tools.h"

namespace {

const int kAccepted = 0;

// A host field need not end in a NUL within its width.
template <size_t N>
std::string Field(const char (&text)[N]) {
    return std::string(text, strnlen(text, N));
}

// False when an enumerated value is outside its list.
bool EventOf(const EventDataItem& in, models::eventData_t& out) {
    out.eventId = in.eventId;
    out.eventId_present = true;
    out.timestamp = CTools::GetLocalTime(in.timestamp != 0 ? static_cast<int64_t>(in.timestamp) : CTools::CurTimeSec());
    out.trigger = models::GetEventTriggerInString(in.trigger);
    out.eventNotificationType = models::GetEventNotificationInString(in.eventNotificationType);
    if (out.trigger.empty() || out.eventNotificationType.empty()) return false;
    if (in.cause >= 0) {
        out.cause = in.cause;
        out.cause_present = true;
    }
    if (in.variableMonitoringId >= 0) {
        out.variableMonitoringId = in.variableMonitoringId;
        out.variableMonitoringId_present = true;
    }
    out.cleared = in.cleared == 1;
    out.cleared_present = out.cleared;
    out.actualValue = Field(in.actualValue);
    out.techCode = Field(in.techCode);
    out.techInfo = Field(in.techInfo);
    out.transactionId = Field(in.transactionId);
    out.component.name = Field(in.componentName);
    out.component.instance = Field(in.componentInstance);
    if (in.evseId > 0) {
        out.component.evse.id = in.evseId;
        out.component.evse.id_present = true;
        if (in.connectorId > 0) {
            out.component.evse.connectorId = in.connectorId;
            out.component.evse.connectorId_present = true;
        }
        out.component.evse_present = true;
    }
    out.component_present = true;
    out.variable.name = Field(in.variableName);
    out.variable.instance = Field(in.variableInstance);
    out.variable_present = true;
    return true;
}

std::string NotifyEventFrame(const EventDataItem* items, int count) {
    models::notifyEventRequest_t request;
    request.generatedAt = CTools::GetLocalTime(CTools::CurTimeSec());
    request.seqNo = 0;  // the whole report is this one message
    request.seqNo_present = true;
    for (int i = 0; i < count; ++i) {
        models::eventData_t event;
        if (!EventOf(items[i], event)) return std::string();
        request.eventData.push_back(event);
    }
    return COcppProtocol20::NotifyEventReq(request);
}

std::string ScheduleFrame(int evseId, unsigned timeBase, const char* schedule, int length) {
    rapidjson::Document doc;
    doc.Parse(schedule, static_cast<size_t>(length));
    if (doc.HasParseError() || !doc.IsObject()) return std::string();
    models::notifyEVChargingScheduleRequest_t request;
    try {
        request.chargingSchedule = models::chargingSchedule_t(doc);
    } catch (const std::exception&) {
        return std::string();  // not a schedule: logged as outside its list
    }
    request.chargingSchedule_present = true;
    request.timeBase = CTools::GetLocalTime(static_cast<int64_t>(timeBase));
    request.evseId = evseId;
    request.evseId_present = true;
    const std::string frame = COcppProtocol20::NotifyEVChargingScheduleReq(request);
    // The reader takes what it can; the host's text must pass as the CSMS will check it.
    rapidjson::Document sent;
    sent.Parse(frame.c_str(), frame.size());
    std::string why;
    if (sent.HasParseError() || !sent.IsArray() || sent.Size() != 4 ||
        !models::ValidatePayload("NotifyEVChargingSchedule", true, sent[3], &why)) {
        LOG_ERROR("NotifyEVChargingSchedule schedule refused: %s", why.c_str());
        return std::string();
    }
    return frame;
}

// Copies an answer's text to the host's buffer (may be null).
void Give(const std::string& text, char* out, int capacity) {
    if (out != nullptr && capacity > 0) CTools::CopyField(out, static_cast<size_t>(capacity), text);
}

// Sends `frame`; with an answer the parser decides, otherwise the sender's word.
template <class Read>
int Report(const char* action, OUTBOUNDKIND kind, const std::string& frame, Read read) {
    try {
        if (frame.empty()) {
            LOG_ERROR("%s not sent: a value is outside its list", action);
            return 0;
        }
        const OutboundResult sent = COutboundSender::Send(kind, frame);
        return sent.answer != nullptr ? read(sent.answer) : sent.result;
    } catch (const std::exception& e) {
        LOG_ERROR("%s failed: %s", action, e.what());
        return 0;
    }
}

// A request whose answer is a status and a text for the host: 1 once both are read.
int AskStatusAndText(const char* action, const std::string& frame, int (*parse)(const char*, int*, std::string*),
                     int* status, char* out, int capacity) {
    const int answered = Report(action, OUTBOUNDKIND_REQUEST, frame, [&](const char* reply) {
        int replyStatus = -1;
        std::string text;
        if (parse(reply, &replyStatus, &text) != 1) return 0;
        if (status != nullptr) *status = replyStatus;
        Give(text, out, capacity);
        return 1;
    });
    return answered == 1 ? 1 : 0;
}

}  // namespace

int Ocpp20Protocol_FirmwareStatusNotification(int status, int requestId) {
    return Report("FirmwareStatusNotification", OUTBOUNDKIND_FIRMWARESTATUS,
                  COcppProtocol20::FirmwareStatusNotificationReq(status, requestId),
                  [](const char* answer) { return COcppProtocol20::FirmwareStatusNotificationResp(answer); });
}

int Ocpp20Protocol_LogStatusNotification(int status, int requestId) {
    return Report("LogStatusNotification", OUTBOUNDKIND_REQUEST,
                  COcppProtocol20::LogStatusNotificationReq(status, requestId),
                  [](const char* answer) { return COcppProtocol20::LogStatusNotificationResp(answer); });
}

int Ocpp20Protocol_PublishFirmwareStatusNotification(int status, int requestId, const char* location) {
    return Report("PublishFirmwareStatusNotification", OUTBOUNDKIND_REQUEST,
                  COcppProtocol20::PublishFirmwareStatusNotificationReq(status, requestId, location),
                  [](const char* answer) { return COcppProtocol20::PublishFirmwareStatusNotificationResp(answer); });
}

int Ocpp20Protocol_SignCertificate(const char* csr, int certificateType) {
    return Report("SignCertificate", OUTBOUNDKIND_REQUEST, COcppProtocol20::SignCertificateReq(csr, certificateType),
                  [](const char* answer) {
                      int status = -1;
                      return COcppProtocol20::SignCertificateResq(answer, &status) == 1 && status == kAccepted ? 1
                                                                                                              : 0;
                  });
}

int Ocpp20Protocol_DataTransferRequest(const char* vendorId, const char* messageId, const char* data, int dataIsJson,
                                       int* status, char* answer, int capacity) {
    const std::string frame = COcppProtocol20::DataTransferReq(vendorId, messageId, data, dataIsJson != 0);
    // A request without its answer is no request: nothing was sent or kept.
    const int answered = Report("DataTransfer", OUTBOUNDKIND_REQUEST, frame, [&](const char* reply) {
        int replyStatus = -1;
        std::string replyData;
        if (COcppProtocol20::DataTransferResp(reply, &replyStatus, &replyData) != 1) return 0;
        if (status != nullptr) *status = replyStatus;
        if (answer != nullptr && capacity > 0) CTools::CopyField(answer, static_cast<size_t>(capacity), replyData);
        return 1;
    });
    return answered == 1 ? 1 : 0;
}

int Ocpp20Protocol_NotifyEvent(const EventDataItem* items, int count) {
    if (items == nullptr || count <= 0) return 0;
    return Report("NotifyEvent", OUTBOUNDKIND_MONITOREVENT, NotifyEventFrame(items, count),
                  [](const char* answer) { return COcppProtocol20::NotifyEventResp(answer); });
}

int Ocpp20Protocol_Get15118EVCertificate(const char* schemaVersion, int action, const char* exiRequest, int* status,
                                         char* exiResponse, int capacity) {
    const std::string frame = COcppProtocol20::Get15118EVCertificateReq(schemaVersion, action, exiRequest);
    return AskStatusAndText("Get15118EVCertificate", frame, &COcppProtocol20::Get15118EVCertificateResp, status,
                            exiResponse, capacity);
}

int Ocpp20Protocol_GetCertificateStatus(const OcspRequestDataItem* ocsp, int* status, char* ocspResult,
                                        int capacity) {
    if (ocsp == nullptr) return 0;
    models::ocspRequestData_t data;
    data.hashAlgorithm = models::GetHashAlgorithmInString(ocsp->hashAlgorithm);
    data.issuerNameHash = Field(ocsp->issuerNameHash);
    data.issuerKeyHash = Field(ocsp->issuerKeyHash);
    data.serialNumber = Field(ocsp->serialNumber);
    data.responderURL = Field(ocsp->responderURL);
    const std::string frame = data.hashAlgorithm.empty() ? std::string() : COcppProtocol20::GetCertificateStatusReq(data);
    return AskStatusAndText("GetCertificateStatus", frame, &COcppProtocol20::GetCertificateStatusResp, status,
                            ocspResult, capacity);
}

int Ocpp20protocol_NotifyEVChargingSchedule(int evseId, unsigned timeBase, const char* schedule, int length) {
    if (schedule == nullptr || length <= 0) return 0;
    return Report("NotifyEVChargingSchedule", OUTBOUNDKIND_EVCHARGINGSCHEDULE,
                  ScheduleFrame(evseId, timeBase, schedule, length), [](const char* answer) {
                      int status = -1;
                      return COcppProtocol20::NotifyEVChargingScheduleResp(answer, &status) == 1 &&
                                     status == kAccepted
                                 ? 1
                                 : 0;
                  });
}
