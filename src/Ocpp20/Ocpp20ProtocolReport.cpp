#include "Ocpp20/Ocpp20ProtocolReport.h"

#include <string>

#include "Ocpp20/OcppProtocol20.h"
#include "OcppProtocol/OutboundSender.h"
#include "Util/Tools.h"

namespace {

const int kAccepted = 0;

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
