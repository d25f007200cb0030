#include <cstring>

#include "Ocpp20/OcppProtocol20.h"
#include "Util/Tools.h"
#include "models/Models.h"

namespace {

typedef void (*PayloadCheck)(const char* frame, unsigned int len);

template <class T, T (*Parse)(const char*, unsigned int)>
void Check(const char* frame, unsigned int len) {
    (void)Parse(frame, len);
}

struct ActionCheck {
    const char* action;
    PayloadCheck check;
};

// Same order as the dispatcher's action table.
const ActionCheck kChecks[] = {
    {"ChangeAvailability", &Check<models::changeAvailabilityRequest_t, &models::ChangeAvailabilityRequestFromJsonData>},
    {"CancelReservation", &Check<models::cancelReservationRequest_t, &models::CancelReservationRequestFromJsonData>},
    {"CertificateSigned", &Check<models::certificateSignedRequest_t, &models::CertificateSignedRequestFromJsonData>},
    {"ClearCache", &Check<models::clearCacheRequest_t, &models::ClearCacheRequestFromJsonData>},
    {"ClearChargingProfile",
     &Check<models::clearChargingProfileRequest_t, &models::ClearChargingProfileRequestFromJsonData>},
    {"ClearDisplayMessage",
     &Check<models::clearDisplayMessageRequest_t, &models::ClearDisplayMessageRequestFromJsonData>},
    {"ClearVariableMonitoring",
     &Check<models::clearVariableMonitoringRequest_t, &models::ClearVariableMonitoringRequestFromJsonData>},
    {"CostUpdated", &Check<models::costUpdatedRequest_t, &models::CostUpdatedRequestFromJsonData>},
    {"CustomerInformation",
     &Check<models::customerInformationRequest_t, &models::CustomerInformationRequestFromJsonData>},
    {"DeleteCertificate", &Check<models::deleteCertificateRequest_t, &models::DeleteCertificateRequestFromJsonData>},
    {"InstallCertificate", &Check<models::installCertificateRequest_t, &models::InstallCertificateRequestFromJsonData>},
    {"TriggerMessage", &Check<models::triggerMessageRequest_t, &models::TriggerMessageRequestFromJsonData>},
    {"ReserveNow", &Check<models::reserveNowRequest_t, &models::ReserveNowRequestFromJsonData>},
    {"Reset", &Check<models::resetRequest_t, &models::ResetRequestFromJsonData>},
    {"SendLocalList", &Check<models::sendLocalListRequest_t, &models::SendLocalListRequestFromJsonData>},
    {"RequestStartTransaction",
     &Check<models::requestStartTransactionRequest_t, &models::RequestStartTransactionRequestFromJsonData>},
    {"RequestStopTransaction",
     &Check<models::requestStopTransactionRequest_t, &models::RequestStopTransactionRequestFromJsonData>},
    {"PublishFirmware", &Check<models::publishFirmwareRequest_t, &models::PublishFirmwareRequestFromJsonData>},
    {"DataTransfer", &Check<models::dataTransferRequest_t, &models::DataTransferRequestFromJsonData>},
    {"SetVariables", &Check<models::setVariablesRequest_t, &models::SetVariablesRequestFromJsonData>},
    {"GetBaseReport", &Check<models::getBaseReportRequest_t, &models::GetBaseReportRequestFromJsonData>},
    {"GetChargingProfiles",
     &Check<models::getChargingProfilesRequest_t, &models::GetChargingProfilesRequestFromJsonData>},
    {"UnlockConnector", &Check<models::unlockConnectorRequest_t, &models::UnlockConnectorRequestFromJsonData>},
    {"GetCompositeSchedule",
     &Check<models::getCompositeScheduleRequest_t, &models::GetCompositeScheduleRequestFromJsonData>},
    {"UnpublishFirmware", &Check<models::unpublishFirmwareRequest_t, &models::UnpublishFirmwareRequestFromJsonData>},
    {"GetDisplayMessages", &Check<models::getDisplayMessagesRequest_t, &models::GetDisplayMessagesRequestFromJsonData>},
    {"GetInstalledCertificateIds",
     &Check<models::getInstalledCertificateIdsRequest_t, &models::GetInstalledCertificateIdsRequestFromJsonData>},
    {"SetVariableMonitoring",
     &Check<models::setVariableMonitoringRequest_t, &models::SetVariableMonitoringRequestFromJsonData>},
    {"GetLocalListVersion",
     &Check<models::getLocalListVersionRequest_t, &models::GetLocalListVersionRequestFromJsonData>},
    {"SetNetworkProfile", &Check<models::setNetworkProfileRequest_t, &models::SetNetworkProfileRequestFromJsonData>},
    {"SetMonitoringLevel", &Check<models::setMonitoringLevelRequest_t, &models::SetMonitoringLevelRequestFromJsonData>},
    {"SetMonitoringBase", &Check<models::setMonitoringBaseRequest_t, &models::SetMonitoringBaseRequestFromJsonData>},
    {"SetDisplayMessage", &Check<models::setDisplayMessageRequest_t, &models::SetDisplayMessageRequestFromJsonData>},
    {"GetLog", &Check<models::getLogRequest_t, &models::GetLogRequestFromJsonData>},
    {"GetMonitoringReport",
     &Check<models::getMonitoringReportRequest_t, &models::GetMonitoringReportRequestFromJsonData>},
    {"GetReport", &Check<models::getReportRequest_t, &models::GetReportRequestFromJsonData>},
    {"GetTransactionStatus",
     &Check<models::getTransactionStatusRequest_t, &models::GetTransactionStatusRequestFromJsonData>},
    {"SetChargingProfile", &Check<models::setChargingProfileRequest_t, &models::SetChargingProfileRequestFromJsonData>},
    {"UpdateFirmware", &Check<models::updateFirmwareRequest_t, &models::UpdateFirmwareRequestFromJsonData>},
    {"GetVariables", &Check<models::getVariablesRequest_t, &models::GetVariablesRequestFromJsonData>},
};

static_assert(sizeof(kChecks) / sizeof(kChecks[0]) == 40, "one check per action of the table");

}  // namespace

int COcppProtocol20::OnParamCheck(const char* action, const char* frame, int len) {
    if (action == nullptr) return 1;
    for (const ActionCheck& row : kChecks) {
        if (std::strcmp(row.action, action) != 0) continue;
        try {
            row.check(frame, len > 0 ? static_cast<unsigned int>(len) : 0u);
        } catch (const CustomException& e) {
            LOG_INFO("CustomException: %s", e.what());
            return 0;
        }
        return 1;
    }
    return 1;
}
