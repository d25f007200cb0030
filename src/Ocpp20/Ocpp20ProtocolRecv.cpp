#include "Ocpp20/Ocpp20ProtocolRecv.h"

#include <OcppRecords.h>

#include <cstring>
#include <vector>

#include "Ocpp20/Protocol/JsonText.h"
#include "OcppProtocol/MessageCallBack.h"
#include "Process/ConnectorManager.h"
#include "Ocpp20/OcppProtocol20.h"
#include "OcppProtocol/OcppSendSeam.h"
#include "Process/BootHeartbeat.h"
#include "Process/ConnectManager.h"
#include "Process/ReservationManager.h"
#include "Util/Tools.h"
#include "models/Models.h"

namespace {

// Rows without a handler belong to stores that are not attached yet; they are
// matched and left unanswered, like an unknown action.
const Ocpp20InboundAction kInboundActions[] = {
    {"ChangeAvailability", &Ocpp20Protocol_OnChangeAvailabilityRequest},
    {"CancelReservation", &Ocpp20Protocol_OnCancelReservationRequest},
    {"CertificateSigned", &Ocpp20Protocol_OnCertificateSignedRequest},
    {"ClearCache", nullptr},
    {"ClearChargingProfile", nullptr},
    {"ClearDisplayMessage", &Ocpp20Protocol_OnClearDisplayMessageRequest},
    {"ClearVariableMonitoring", nullptr},
    {"CostUpdated", &Ocpp20Protocol_OnCostUpdatedRequest},
    {"CustomerInformation", nullptr},
    {"DeleteCertificate", &Ocpp20Protocol_OnDeleteCertificateRequest},
    {"InstallCertificate", &Ocpp20Protocol_OnInstallCertificate},
    {"TriggerMessage", &Ocpp20Protocol_OnTriggerMessageRequest},
    {"ReserveNow", &Ocpp20Protocol_OnReserveNowRequest},
    {"Reset", &Ocpp20Protocol_OnResetRequest},
    {"SendLocalList", nullptr},
    {"RequestStartTransaction", &Ocpp20Protocol_RequestStartTransactionRequest},
    {"RequestStopTransaction", &Ocpp20Protocol_RequestStopTransactionRequest},
    {"PublishFirmware", &Ocpp20Protocol_PublishFirmwareRequest},
    {"DataTransfer", &Ocpp20Protocol_OnDataTransferRequest},
    {"SetVariables", &Ocpp20Protocol_OnSetVariablesRequest},
    {"GetBaseReport", nullptr},
    {"GetChargingProfiles", nullptr},
    {"UnlockConnector", &Ocpp20Protocol_OnUnlockConnectorRequest},
    {"GetCompositeSchedule", nullptr},
    {"UnpublishFirmware", &Ocpp20Protocol_OnUnpublishFirmwareRequest},
    {"GetDisplayMessages", nullptr},
    {"GetInstalledCertificateIds", &Ocpp20Protocol_OnGetInstalledCertificateIdsRequest},
    {"SetVariableMonitoring", nullptr},
    {"GetLocalListVersion", nullptr},
    {"SetNetworkProfile", &Ocpp20Protocol_OnSetNetworkProfileRequest},
    {"SetMonitoringLevel", nullptr},
    {"SetMonitoringBase", nullptr},
    {"SetDisplayMessage", nullptr},
    {"GetLog", &Ocpp20Protocol_OnGetLogRequest},
    {"GetMonitoringReport", nullptr},
    {"GetReport", nullptr},
    {"GetTransactionStatus", nullptr},
    {"SetChargingProfile", nullptr},
    {"UpdateFirmware", &Ocpp20Protocol_OnUpdateFirmwareRequest},
    {"GetVariables", &Ocpp20Protocol_OnGetVariablesRequest},
};

static_assert(sizeof(kInboundActions) / sizeof(kInboundActions[0]) == 40, "the action table has 40 rows");

template <class Record>
void Post(Record& record, int32_t type, const char* messageId) {
    record.base.type = type;
    CTools::CopyField(record.base.messageId, messageId != nullptr ? messageId : "");
    CMessageCallBack::GetInstance()->OnMessage(reinterpret_cast<const char*>(&record), sizeof(record), 0);
}

// Record times are unsigned 32-bit seconds; absent or unreadable ones are 0.
uint32_t RecordTime(const std::string& text) {
    if (text.empty()) return 0;
    const int64_t t = CTools::GetTimeByString(text);
    return t > 0 && t <= static_cast<int64_t>(UINT32_MAX) ? static_cast<uint32_t>(t) : 0;
}

unsigned int Len(int len) { return len > 0 ? static_cast<unsigned int>(len) : 0u; }

}  // namespace

const Ocpp20InboundAction* Ocpp20Protocol_FindInboundAction(const char* action) {
    if (action == nullptr) return nullptr;
    for (const Ocpp20InboundAction& row : kInboundActions) {
        if (std::strcmp(row.action, action) == 0) return &row;
    }
    return nullptr;
}

void Ocpp20Protocol_OnChangeAvailabilityRequest(const char* messageId, const char* frame, int len) {
    const models::changeAvailabilityRequest_t request = models::ChangeAvailabilityRequestFromJsonData(frame, Len(len));
    ChangeAvailabilityReq record;
    std::memset(&record, 0, sizeof(record));
    record.evseId = request.evse_present ? request.evse.id : 0;
    record.connectorId = request.evse_present && request.evse.connectorId_present ? request.evse.connectorId : 0;
    record.operationalStatus = models::GetOperationalStatusInInt(request.operationalStatus);
    Post(record, SERVERRECVTYPE_CHANGEAVAILABILITY, messageId);
}

void Ocpp20Protocol_OnCancelReservationRequest(const char* messageId, const char* frame, int len) {
    const models::cancelReservationRequest_t request = models::CancelReservationRequestFromJsonData(frame, Len(len));
    CancelReservationReq record;
    std::memset(&record, 0, sizeof(record));
    record.reservationId = request.reservationId;
    Post(record, SERVERRECVTYPE_CANCELRESERVATION, messageId);
}

void Ocpp20Protocol_OnCertificateSignedRequest(const char* messageId, const char* frame, int len) {
    const models::certificateSignedRequest_t request = models::CertificateSignedRequestFromJsonData(frame, Len(len));
    std::vector<char> block(sizeof(CertificateSignedReq), 0);  // 10 kB: off the worker's stack
    CertificateSignedReq& record = *reinterpret_cast<CertificateSignedReq*>(block.data());
    CTools::CopyField(record.certificateChain, request.certificateChain);
    record.certificateType = models::GetCertificateSigningUseInInt(request.certificateType);
    Post(record, SERVERRECVTYPE_CERTIFICATESIGNED, messageId);
}

void Ocpp20Protocol_OnClearDisplayMessageRequest(const char* messageId, const char* frame, int len) {
    const models::clearDisplayMessageRequest_t request =
        models::ClearDisplayMessageRequestFromJsonData(frame, Len(len));
    ClearDisplayMessageReq record;
    std::memset(&record, 0, sizeof(record));
    record.id = request.id;
    Post(record, SERVERRECVTYPE_CLEARDISPLAYMESSAGE, messageId);
}

void Ocpp20Protocol_OnCostUpdatedRequest(const char* messageId, const char* frame, int len) {
    const models::costUpdatedRequest_t request = models::CostUpdatedRequestFromJsonData(frame, Len(len));
    UpdatedTransactionCostReq record;
    std::memset(&record, 0, sizeof(record));
    CTools::CopyField(record.transactionId, request.transactionId);
    std::string cost;
    if (request.totalCost_present) CJsonText::AppendNumber(cost, request.totalCost);
    CTools::CopyField(record.totalCost, cost);
    Post(record, SERVERRECVTYPE_UPDATEDTRANSACTIONCOST, messageId);
}

void Ocpp20Protocol_OnDeleteCertificateRequest(const char* messageId, const char* frame, int len) {
    const models::deleteCertificateRequest_t request = models::DeleteCertificateRequestFromJsonData(frame, Len(len));
    DeleteCertificateReq record;
    std::memset(&record, 0, sizeof(record));
    const models::certificateHashData_t& hash = request.certificateHashData;
    // An algorithm outside the list reads as 255.
    record.hashAlgorithm = static_cast<uint8_t>(models::GetHashAlgorithmInInt(hash.hashAlgorithm));
    CTools::CopyField(record.issuerNameHash, hash.issuerNameHash);
    CTools::CopyField(record.issuerKeyHash, hash.issuerKeyHash);
    CTools::CopyField(record.serialNumber, hash.serialNumber);
    Post(record, SERVERRECVTYPE_DELETECERTIFICATE, messageId);
}

void Ocpp20Protocol_OnInstallCertificate(const char* messageId, const char* frame, int len) {
    const models::installCertificateRequest_t request = models::InstallCertificateRequestFromJsonData(frame, Len(len));
    std::vector<char> block(sizeof(InstallCertificateReq), 0);
    InstallCertificateReq& record = *reinterpret_cast<InstallCertificateReq*>(block.data());
    record.certificateType = models::GetInstallCertificateUseInInt(request.certificateType);
    CTools::CopyField(record.certificate, request.certificate);
    Post(record, SERVERRECVTYPE_INSTALLCERTIFICATE, messageId);
}

void Ocpp20Protocol_OnTriggerMessageRequest(const char* messageId, const char* frame, int len) {
    const models::triggerMessageRequest_t request = models::TriggerMessageRequestFromJsonData(frame, Len(len));
    // Boot and heartbeat are the library's own: accept, then send the message
    // (the answer must reach the CSMS before the message it asked for).
    if (request.requestedMessage == "BootNotification" || request.requestedMessage == "Heartbeat") {
        const std::string answer = COcppProtocol20::TriggerMessage(messageId, 0);
        OcppProtocol_SendMessage(answer.c_str(), static_cast<int>(answer.size()));
        if (request.requestedMessage == "BootNotification") {
            CBootHeartbeat::GetInstance()->TriggerBoot();
        } else {
            CBootHeartbeat::GetInstance()->TriggerHeartBeat();
        }
        return;
    }
    if (request.requestedMessage == "StatusNotification") {
        // The library keeps every connector's status: it answers and reports itself.
        const bool evse = request.evse_present && request.evse.id_present;
        CConnectorManager::GetInstance()->OnTriggerStatusNotification(
            messageId, evse ? request.evse.id : 0,
            evse && request.evse.connectorId_present ? request.evse.connectorId : 0);
        return;
    }
    TriggerMessageReq record;
    std::memset(&record, 0, sizeof(record));
    record.requestedMessage = models::GetMessageTriggerInInt(request.requestedMessage);
    if (request.evse_present) {
        record.evseId = static_cast<uint8_t>(request.evse.id_present ? request.evse.id : 0);
        record.connectorId = static_cast<uint8_t>(request.evse.connectorId_present ? request.evse.connectorId : 0);
    }
    Post(record, SERVERRECVTYPE_TRIGGERMESSAGE, messageId);
}

void Ocpp20Protocol_OnReserveNowRequest(const char* messageId, const char* frame, int len) {
    const models::reserveNowRequest_t request = models::ReserveNowRequestFromJsonData(frame, Len(len));
    ReserveNowReq record;
    std::memset(&record, 0, sizeof(record));
    record.id = request.id;
    record.expiryDateTime = RecordTime(request.expiryDateTime);
    CTools::CopyField(record.idToken, request.idToken.idToken);
    record.idTokenType = models::GetIdTokenInInt(request.idToken.type);
    record.evseId = request.evseId_present ? request.evseId : 0;
    // Stored before the host decides; a refused reservation stays until it expires or is removed.
    CReservationManager::GetInstance()->StoreReservation(
        static_cast<uint32_t>(record.id), record.idToken, record.idTokenType,
        request.groupIdToken_present ? request.groupIdToken.idToken.c_str() : "",
        request.groupIdToken_present ? models::GetIdTokenInInt(request.groupIdToken.type) : 0, record.expiryDateTime);
    Post(record, SERVERRECVTYPE_RESERVENOW, messageId);
}

void Ocpp20Protocol_OnResetRequest(const char* messageId, const char* frame, int len) {
    const models::resetRequest_t request = models::ResetRequestFromJsonData(frame, Len(len));
    ResetReq record;
    std::memset(&record, 0, sizeof(record));
    record.type = models::GetResetTypeInInt(request.type);
    // One byte on purpose: larger EVSE ids are cut, as the host expects.
    record.evseId = static_cast<uint8_t>(request.evseId_present ? request.evseId : 0);
    Post(record, SERVERRECVTYPE_RESET, messageId);
}

void Ocpp20Protocol_RequestStartTransactionRequest(const char* messageId, const char* frame, int len) {
    const models::requestStartTransactionRequest_t request =
        models::RequestStartTransactionRequestFromJsonData(frame, Len(len));
    RequestStartTransactionReq record;
    std::memset(&record, 0, sizeof(record));
    record.evseId = request.evseId_present ? request.evseId : 0;
    record.remoteStartId = request.remoteStartId;
    CTools::CopyField(record.idToken, request.idToken.idToken);
    record.idTokenType = models::GetIdTokenInInt(request.idToken.type);
    Post(record, SERVERRECVTYPE_REQUESTSTARTTRANSACTION, messageId);
}

void Ocpp20Protocol_RequestStopTransactionRequest(const char* messageId, const char* frame, int len) {
    const models::requestStopTransactionRequest_t request =
        models::RequestStopTransactionRequestFromJsonData(frame, Len(len));
    RequestStopTransactionReq record;
    std::memset(&record, 0, sizeof(record));
    CTools::CopyField(record.transactionId, request.transactionId);
    Post(record, SERVERRECVTYPE_REQUESTSTOPTRANSACTION, messageId);
}

void Ocpp20Protocol_PublishFirmwareRequest(const char* messageId, const char* frame, int len) {
    const models::publishFirmwareRequest_t request = models::PublishFirmwareRequestFromJsonData(frame, Len(len));
    PublishFirmwareReq record;
    std::memset(&record, 0, sizeof(record));
    CTools::CopyField(record.location, request.location);
    record.retries = request.retries_present ? request.retries : -1;
    CTools::CopyField(record.checksum, request.checksum);
    record.requestId = request.requestId;
    record.retryInterval = request.retryInterval_present ? request.retryInterval : -1;
    Post(record, SERVERRECVTYPE_PUBLISHFIRMWARE, messageId);
}

void Ocpp20Protocol_OnDataTransferRequest(const char* messageId, const char* frame, int len) {
    const models::dataTransferRequest_t request = models::DataTransferRequestFromJsonData(frame, Len(len));
    DataTransferReq record;
    std::memset(&record, 0, sizeof(record));
    CTools::CopyField(record.vendorId, request.vendorId);
    CTools::CopyField(record.dataMessageId, request.messageId);
    CTools::CopyField(record.data, request.data);
    Post(record, SERVERRECVTYPE_DATATRANSFER, messageId);
}

void Ocpp20Protocol_OnUnlockConnectorRequest(const char* messageId, const char* frame, int len) {
    const models::unlockConnectorRequest_t request = models::UnlockConnectorRequestFromJsonData(frame, Len(len));
    UnlockConnectorReq record;
    std::memset(&record, 0, sizeof(record));
    record.evseId = request.evseId;
    record.connectorId = request.connectorId;
    Post(record, SERVERRECVTYPE_UNLOCKCONNECTOR, messageId);
}

void Ocpp20Protocol_OnUnpublishFirmwareRequest(const char* messageId, const char* frame, int len) {
    const models::unpublishFirmwareRequest_t request = models::UnpublishFirmwareRequestFromJsonData(frame, Len(len));
    UnpublishFirmwareReq record;
    std::memset(&record, 0, sizeof(record));
    CTools::CopyField(record.checksum, request.checksum);
    Post(record, SERVERRECVTYPE_UNPUBLISHFIRMWARE, messageId);
}

void Ocpp20Protocol_OnGetInstalledCertificateIdsRequest(const char* messageId, const char* frame, int len) {
    const models::getInstalledCertificateIdsRequest_t request =
        models::GetInstalledCertificateIdsRequestFromJsonData(frame, Len(len));
    // Variable length: the head, then one 32-bit type per requested kind.
    const size_t count = request.certificateType.size();
    std::vector<char> block(sizeof(GetInstalledCertificateIdsReq) + 4 * count, 0);
    GetInstalledCertificateIdsReq head;
    std::memset(&head, 0, sizeof(head));
    head.base.type = SERVERRECVTYPE_GETINSTALLEDCERTIFICATEIDS;
    CTools::CopyField(head.base.messageId, messageId != nullptr ? messageId : "");
    head.count = static_cast<int32_t>(count);
    std::memcpy(block.data(), &head, sizeof(head));
    for (size_t i = 0; i < count; ++i) {
        const int32_t type = models::GetGetCertificateIdUseInInt(request.certificateType[i]);
        std::memcpy(block.data() + sizeof(head) + 4 * i, &type, 4);
    }
    CMessageCallBack::GetInstance()->OnMessage(block.data(), static_cast<unsigned int>(block.size()), 0);
}

void Ocpp20Protocol_OnGetLogRequest(const char* messageId, const char* frame, int len) {
    const models::getLogRequest_t request = models::GetLogRequestFromJsonData(frame, Len(len));
    GetLogRequest record;
    std::memset(&record, 0, sizeof(record));
    record.logType = models::GetLogInInt(request.logType);
    record.requestId = request.requestId;
    record.retries = request.retries_present ? request.retries : -1;
    record.retryInterval = request.retryInterval_present ? request.retryInterval : -1;
    CTools::CopyField(record.remoteLocation, request.log.remoteLocation);
    record.oldestTimestamp = RecordTime(request.log.oldestTimestamp);
    record.latestTimestamp = RecordTime(request.log.latestTimestamp);
    Post(record, SERVERRECVTYPE_GETLOG, messageId);
}

void Ocpp20Protocol_OnUpdateFirmwareRequest(const char* messageId, const char* frame, int len) {
    const models::updateFirmwareRequest_t request = models::UpdateFirmwareRequestFromJsonData(frame, Len(len));
    std::vector<char> block(sizeof(UpdateFirmwareReq), 0);
    UpdateFirmwareReq& record = *reinterpret_cast<UpdateFirmwareReq*>(block.data());
    record.retries = request.retries_present ? request.retries : -1;
    record.retryInterval = request.retryInterval_present ? request.retryInterval : -1;
    record.requestId = request.requestId;
    const models::firmware_t& firmware = request.firmware;
    CTools::CopyField(record.location, firmware.location);
    record.retrieveDateTime = RecordTime(firmware.retrieveDateTime);
    record.installDateTime = RecordTime(firmware.installDateTime);
    CTools::CopyField(record.signingCertificate, firmware.signingCertificate);
    CTools::CopyField(record.signature, firmware.signature);
    Post(record, SERVERRECVTYPE_UPDATEFIRMWARE, messageId);
}

namespace {
// Accepted 0, Rejected 1 (SetNetworkProfileStatus).
int CheckNetworkProfile(const models::setNetworkProfileRequest_t& request, ConnectionItem& item) {
    const models::connectionData_t& data = request.connectionData;
    memset(&item, 0, sizeof item);
    if (data.ocppVersion == "OCPP16") {
        item.protocol = OCPPPROTOCOL_16;
    } else if (data.ocppVersion == "OCPP20") {
        item.protocol = OCPPPROTOCOL_201;
    } else {
        LOG_ERROR("SetNetworkProfile: ocppVersion %s not supported", data.ocppVersion.c_str());
        return 1;
    }
    const std::string& url = data.ocppCsmsUrl;
    const bool tls = url.compare(0, 6, "wss://") == 0;
    if ((!tls && url.compare(0, 5, "ws://") != 0) || url.size() >= sizeof item.url) {
        LOG_ERROR("SetNetworkProfile: url not usable: %s", url.c_str());
        return 1;
    }
    CConnectManager* manager = CConnectManager::GetInstance();
    const int type = data.securityProfile;
    if (type < CONNTYPE_WS || type > CONNTYPE_TLS_CLIENT_CERT || tls != (type >= CONNTYPE_TLS_BASIC)) return 1;
    if (type < manager->GetCurConnItem().connType) {
        LOG_ERROR("SetNetworkProfile: security profile %d lower than the current one", type);
        return 1;
    }
    if ((type == CONNTYPE_TLS_BASIC && manager->IsSupportSecurity2() != 1) ||
        (type == CONNTYPE_TLS_CLIENT_CERT && manager->IsSupportSecurity3() != 1)) {
        LOG_ERROR("SetNetworkProfile: no certificates for security profile %d", type);
        return 1;
    }
    if (request.configurationSlot <= 0) return 1;
    item.id = request.configurationSlot;
    item.connType = type;
    item.messageTimeout = data.messageTimeout > 0 ? CConnectManager::ClampMessageTimeout(data.messageTimeout) : 5;
    CTools::CopyField(item.url, url);
    return 0;
}
}  // namespace

void Ocpp20Protocol_OnSetNetworkProfileRequest(const char* messageId, const char* frame, int len) {
    const models::setNetworkProfileRequest_t request = models::SetNetworkProfileRequestFromJsonData(frame, Len(len));
    ConnectionItem item;
    int status = CheckNetworkProfile(request, item);
    if (status == 0 && CConnectManager::GetInstance()->AddConnItem(item) != 1) status = 2;
    LOG_INFO("SetNetworkProfile slot:%d status:%d", item.id, status);
    const std::string answer = COcppProtocol20::SetNetworkProfileResp(messageId, status);
    OcppProtocol_SendMessage(answer.c_str(), static_cast<int>(answer.size()));
}
