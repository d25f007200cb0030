// The host's answers to the CSMS requests it decides, and the error reply.
#include <Ocpp20Protocol.h>

#include <string>

#include "Ocpp20/OcppProtocol20.h"
#include "Ocpp20/Protocol/Base.h"
#include "OcppProtocol/OutboundSender.h"
#include "Process/ReservationManager.h"
#include "Util/Tools.h"

namespace {

int SendAnswer(const char* action, const char* messageId, const std::string& frame) {
    if (frame.empty()) {
        LOG_ERROR("%s answer for %s not sent: status outside its list", action, messageId != nullptr ? messageId : "");
        return 0;
    }
    return COutboundSender::Send(OUTBOUNDKIND_ANSWER, frame).result;
}

}  // namespace

void OcppProtocol_ResponseError(const char* messageId, RESPONSEERRORCODE code, const char* description,
                                const char* details) {
    try {
        Base header(Base::CALLERROR, messageId != nullptr ? messageId : "", "");
        header.errorCode = Base::ErrorCodeText(static_cast<int>(code));
        header.errorDescription = description != nullptr ? description : "";
        // The header writer keeps only a JSON object and sends {} otherwise.
        header.errorDetails = details != nullptr ? details : "{}";
        COutboundSender::Send(OUTBOUNDKIND_ANSWER, header.HeaderForJson());
    } catch (const std::exception& e) {
        LOG_ERROR("OcppProtocol_ResponseError: %s", e.what());
    }
}

// Each entry may be called from any host thread; nothing may escape to C.
#define OCPP20_ANSWER(action, build)                    \
    try {                                               \
        return SendAnswer(action, messageId, build);    \
    } catch (const std::exception& e) {                 \
        LOG_ERROR("%s answer failed: %s", action, e.what()); \
        return 0;                                       \
    }

int Ocpp20Protocol_ChangeAvailability(const char* messageId, int status) {
    OCPP20_ANSWER("ChangeAvailability", COcppProtocol20::ChangeAvailability(messageId, status))
}
int Ocpp20Protocol_CancelReservation(const char* messageId, int status) {
    try {
        const std::string frame = COcppProtocol20::CancelReservation(messageId, status);
        // Accepted: the reservation is gone from the store before the CSMS hears so.
        if (!frame.empty()) CReservationManager::GetInstance()->SettleCancelRequest(messageId, status == 0);
        return SendAnswer("CancelReservation", messageId, frame);
    } catch (const std::exception& e) {
        LOG_ERROR("%s answer failed: %s", "CancelReservation", e.what());
        return 0;
    }
}
int Ocpp20Protocol_CertificateSigned(const char* messageId, int status) {
    OCPP20_ANSWER("CertificateSigned", COcppProtocol20::CertificateSigned(messageId, status))
}
int Ocpp20Protocol_ClearDisplayMessage(const char* messageId, int status) {
    OCPP20_ANSWER("ClearDisplayMessage", COcppProtocol20::ClearDisplayMessage(messageId, status))
}
int Ocpp20Protocol_CostUpdated(const char* messageId) {
    OCPP20_ANSWER("CostUpdated", COcppProtocol20::CostUpdated(messageId))
}
int Ocpp20Protocol_DeleteCertificate(const char* messageId, int status) {
    OCPP20_ANSWER("DeleteCertificate", COcppProtocol20::DeleteCertificate(messageId, status))
}
int Ocpp20Protocol_InstallCertificate(const char* messageId, int status) {
    OCPP20_ANSWER("InstallCertificate", COcppProtocol20::InstallCertificate(messageId, status))
}
int Ocpp20Protocol_TriggerMessage(const char* messageId, int status) {
    OCPP20_ANSWER("TriggerMessage", COcppProtocol20::TriggerMessage(messageId, status))
}
int Ocpp20Protocol_ReserveNow(const char* messageId, int status) {
    OCPP20_ANSWER("ReserveNow", COcppProtocol20::ReserveNow(messageId, status))
}
int Ocpp20Protocol_Reset(const char* messageId, int status) {
    OCPP20_ANSWER("Reset", COcppProtocol20::Reset(messageId, status))
}
int Ocpp20Protocol_RequestStartTransaction(const char* messageId, int status, const char* transactionId) {
    OCPP20_ANSWER("RequestStartTransaction",
                  COcppProtocol20::RequestStartTransaction(messageId, status, transactionId))
}
int Ocpp20Protocol_RequestStopTransaction(const char* messageId, int status) {
    OCPP20_ANSWER("RequestStopTransaction", COcppProtocol20::RequestStopTransaction(messageId, status))
}
int Ocpp20Protocol_PublishFirmware(const char* messageId, int status) {
    OCPP20_ANSWER("PublishFirmware", COcppProtocol20::PublishFirmware(messageId, status))
}
int Ocpp20Protocol_DataTransfer(const char* messageId, int status, const char* data, int dataIsJson) {
    OCPP20_ANSWER("DataTransfer", COcppProtocol20::DataTransfer(messageId, status, data, dataIsJson != 0))
}
int Ocpp20Protocol_UnlockConnector(const char* messageId, int status) {
    OCPP20_ANSWER("UnlockConnector", COcppProtocol20::UnlockConnector(messageId, status))
}
int Ocpp20Protocol_UnpublishFirmware(const char* messageId, int status) {
    OCPP20_ANSWER("UnpublishFirmware", COcppProtocol20::UnpublishFirmware(messageId, status))
}
int Ocpp20Protocol_GetInstalledCertificateIds(const char* messageId, int status,
                                              const CertificateHashDataChainItem* items, int count) {
    OCPP20_ANSWER("GetInstalledCertificateIds",
                  COcppProtocol20::GetInstalledCertificateIds(messageId, status, items, count))
}
int Ocpp20Protocol_GetLog(const char* messageId, int status, const char* filename) {
    OCPP20_ANSWER("GetLog", COcppProtocol20::GetLog(messageId, status, filename))
}
int Ocpp20Protocol_UpdateFirmware(const char* messageId, int status) {
    OCPP20_ANSWER("UpdateFirmware", COcppProtocol20::UpdateFirmware(messageId, status))
}
int Ocpp20Protocol_GetMonitoringReport(const char* messageId, int status) {
    OCPP20_ANSWER("GetMonitoringReport", COcppProtocol20::GetMonitoringReport(messageId, status))
}

int Ocpp20Protocol_ReservationStatusUpdate(int reservationId, int status) {
    try {
        const std::string frame = COcppProtocol20::ReservationStatusUpdateReq(reservationId, status);
        if (frame.empty()) {
            LOG_ERROR("ReservationStatusUpdate not sent: status %d outside its list", status);
            return 0;
        }
        // The host says it is gone: forget it even if the CSMS cannot be told now.
        CReservationManager::GetInstance()->RemoveReservation(static_cast<uint32_t>(reservationId));
        const OutboundResult out = COutboundSender::Send(OUTBOUNDKIND_REQUEST, frame);
        if (out.answer == nullptr) return out.result;
        return COcppProtocol20::ReservationStatusUpdateResp(out.answer);
    } catch (const std::exception& e) {
        LOG_ERROR("ReservationStatusUpdate failed: %s", e.what());
        return 0;
    }
}
