#include "Ocpp20/Ocpp20ProtocolRecv.h"

#include <OcppRecords.h>
#include <rapidjson/document.h>

#include <cstring>
#include <vector>

#include "Ocpp20/Protocol/CustomException.h"
#include "Ocpp20/Protocol/JsonText.h"
#include "Ocpp20/Protocol/SchemaCheck.h"
#include "OcppProtocol/MessageCallBack.h"
#include "OcppProtocol/OutboundSender.h"
#include "Process/ConnectorManager.h"
#include "Ocpp20/OcppProtocol20.h"
#include "OcppProtocol/OcppSendSeam.h"
#include "Process/BootHeartbeat.h"
#include "Process/ConnectManager.h"
#include "Process/ReservationManager.h"
#include "Util/Tools.h"
#include "models/Models.h"

namespace {

template <class T>
void Destroy(void* record) {
    delete static_cast<T*>(record);
}

// The check of every row: the whole request schema first, so that a handler
// or the host only ever sees a request a certifying CSMS would call valid;
// the record is read only from a payload that passed.
template <class T, models::PayloadValidator Validate>
Ocpp20Record Read(const rapidjson::Value& payload, const Base& header) {
    std::string why;
    if (!Validate(payload, &why)) throw CustomException(why);
    return Ocpp20Record(new T(payload, header), Ocpp20RecordDeleter{&Destroy<T>});
}

template <class T, void (*Handler)(const char*, const T&)>
void Handle(const char* messageId, const void* record, int) {
    Handler(messageId, *static_cast<const T*>(record));
}

template <class T, void (*Handler)(const char*, const T&, int)>
void HandleSized(const char* messageId, const void* record, int frameLen) {
    Handler(messageId, *static_cast<const T*>(record), frameLen);
}

// One template per row shape, so a row's check and handler always agree on the record.
template <class T, models::PayloadValidator Validate>
constexpr Ocpp20InboundAction Row(const char* action) {
    return Ocpp20InboundAction{action, &Read<T, Validate>, nullptr, false};
}

template <class T, models::PayloadValidator Validate, void (*Handler)(const char*, const T&)>
constexpr Ocpp20InboundAction Row(const char* action) {
    return Ocpp20InboundAction{action, &Read<T, Validate>, &Handle<T, Handler>, false};
}

template <class T, models::PayloadValidator Validate, void (*Handler)(const char*, const T&, int)>
constexpr Ocpp20InboundAction Row(const char* action) {
    return Ocpp20InboundAction{action, &Read<T, Validate>, &HandleSized<T, Handler>, false};
}

constexpr Ocpp20InboundAction AtOnce(Ocpp20InboundAction row) {
    row.atOnce = true;
    return row;
}

// Rows without a handler belong to stores that are not attached yet; their
// payload is checked, then they are left to the message time-out.
const Ocpp20InboundAction kInboundActions[] = {
    Row<models::changeAvailabilityRequest_t, &models::ValidateChangeAvailabilityRequest, &Ocpp20Protocol_OnChangeAvailabilityRequest>("ChangeAvailability"),
    Row<models::cancelReservationRequest_t, &models::ValidateCancelReservationRequest, &Ocpp20Protocol_OnCancelReservationRequest>("CancelReservation"),
    Row<models::certificateSignedRequest_t, &models::ValidateCertificateSignedRequest, &Ocpp20Protocol_OnCertificateSignedRequest>("CertificateSigned"),
    Row<models::clearCacheRequest_t, &models::ValidateClearCacheRequest, &Ocpp20Protocol_OnClearCacheRequest>("ClearCache"),
    Row<models::clearChargingProfileRequest_t, &models::ValidateClearChargingProfileRequest>("ClearChargingProfile"),
    Row<models::clearDisplayMessageRequest_t, &models::ValidateClearDisplayMessageRequest, &Ocpp20Protocol_OnClearDisplayMessageRequest>("ClearDisplayMessage"),
    Row<models::clearVariableMonitoringRequest_t, &models::ValidateClearVariableMonitoringRequest>("ClearVariableMonitoring"),
    Row<models::costUpdatedRequest_t, &models::ValidateCostUpdatedRequest, &Ocpp20Protocol_OnCostUpdatedRequest>("CostUpdated"),
    Row<models::customerInformationRequest_t, &models::ValidateCustomerInformationRequest>("CustomerInformation"),
    Row<models::deleteCertificateRequest_t, &models::ValidateDeleteCertificateRequest, &Ocpp20Protocol_OnDeleteCertificateRequest>("DeleteCertificate"),
    Row<models::installCertificateRequest_t, &models::ValidateInstallCertificateRequest, &Ocpp20Protocol_OnInstallCertificate>("InstallCertificate"),
    Row<models::triggerMessageRequest_t, &models::ValidateTriggerMessageRequest, &Ocpp20Protocol_OnTriggerMessageRequest>("TriggerMessage"),
    Row<models::reserveNowRequest_t, &models::ValidateReserveNowRequest, &Ocpp20Protocol_OnReserveNowRequest>("ReserveNow"),
    Row<models::resetRequest_t, &models::ValidateResetRequest, &Ocpp20Protocol_OnResetRequest>("Reset"),
    Row<models::sendLocalListRequest_t, &models::ValidateSendLocalListRequest, &Ocpp20Protocol_OnSendLocalListRequest>("SendLocalList"),
    Row<models::requestStartTransactionRequest_t, &models::ValidateRequestStartTransactionRequest, &Ocpp20Protocol_RequestStartTransactionRequest>("RequestStartTransaction"),
    Row<models::requestStopTransactionRequest_t, &models::ValidateRequestStopTransactionRequest, &Ocpp20Protocol_RequestStopTransactionRequest>("RequestStopTransaction"),
    Row<models::publishFirmwareRequest_t, &models::ValidatePublishFirmwareRequest, &Ocpp20Protocol_PublishFirmwareRequest>("PublishFirmware"),
    Row<models::dataTransferRequest_t, &models::ValidateDataTransferRequest, &Ocpp20Protocol_OnDataTransferRequest>("DataTransfer"),
    Row<models::setVariablesRequest_t, &models::ValidateSetVariablesRequest, &Ocpp20Protocol_OnSetVariablesRequest>("SetVariables"),
    Row<models::getBaseReportRequest_t, &models::ValidateGetBaseReportRequest>("GetBaseReport"),
    Row<models::getChargingProfilesRequest_t, &models::ValidateGetChargingProfilesRequest>("GetChargingProfiles"),
    Row<models::unlockConnectorRequest_t, &models::ValidateUnlockConnectorRequest, &Ocpp20Protocol_OnUnlockConnectorRequest>("UnlockConnector"),
    Row<models::getCompositeScheduleRequest_t, &models::ValidateGetCompositeScheduleRequest>("GetCompositeSchedule"),
    Row<models::unpublishFirmwareRequest_t, &models::ValidateUnpublishFirmwareRequest, &Ocpp20Protocol_OnUnpublishFirmwareRequest>("UnpublishFirmware"),
    Row<models::getDisplayMessagesRequest_t, &models::ValidateGetDisplayMessagesRequest>("GetDisplayMessages"),
    Row<models::getInstalledCertificateIdsRequest_t, &models::ValidateGetInstalledCertificateIdsRequest, &Ocpp20Protocol_OnGetInstalledCertificateIdsRequest>("GetInstalledCertificateIds"),
    Row<models::setVariableMonitoringRequest_t, &models::ValidateSetVariableMonitoringRequest>("SetVariableMonitoring"),
    Row<models::getLocalListVersionRequest_t, &models::ValidateGetLocalListVersionRequest, &Ocpp20Protocol_OnGetLocalListVersionRequest>("GetLocalListVersion"),
    Row<models::setNetworkProfileRequest_t, &models::ValidateSetNetworkProfileRequest, &Ocpp20Protocol_OnSetNetworkProfileRequest>("SetNetworkProfile"),
    Row<models::setMonitoringLevelRequest_t, &models::ValidateSetMonitoringLevelRequest>("SetMonitoringLevel"),
    Row<models::setMonitoringBaseRequest_t, &models::ValidateSetMonitoringBaseRequest>("SetMonitoringBase"),
    Row<models::setDisplayMessageRequest_t, &models::ValidateSetDisplayMessageRequest>("SetDisplayMessage"),
    Row<models::getLogRequest_t, &models::ValidateGetLogRequest, &Ocpp20Protocol_OnGetLogRequest>("GetLog"),
    Row<models::getMonitoringReportRequest_t, &models::ValidateGetMonitoringReportRequest>("GetMonitoringReport"),
    Row<models::getReportRequest_t, &models::ValidateGetReportRequest>("GetReport"),
    Row<models::getTransactionStatusRequest_t, &models::ValidateGetTransactionStatusRequest, &Ocpp20Protocol_OnGetTransactionStatusRequest>("GetTransactionStatus"),
    Row<models::setChargingProfileRequest_t, &models::ValidateSetChargingProfileRequest>("SetChargingProfile"),
    Row<models::updateFirmwareRequest_t, &models::ValidateUpdateFirmwareRequest, &Ocpp20Protocol_OnUpdateFirmwareRequest>("UpdateFirmware"),
    AtOnce(Row<models::getVariablesRequest_t, &models::ValidateGetVariablesRequest, &Ocpp20Protocol_OnGetVariablesRequest>("GetVariables")),
};

static_assert(sizeof(kInboundActions) / sizeof(kInboundActions[0]) == 40, "the action table has 40 rows");

template <class Record>
void Post(Record& record, int32_t type, const char* messageId) {
    record.base.type = type;
    CTools::CopyField(record.base.messageId, messageId != nullptr ? messageId : "");
    CMessageCallBack::GetInstance()->OnMessage(reinterpret_cast<const char*>(&record), sizeof(record), 0);
}

const int kTriggerRejected = 1;  // TriggerMessageStatus

// Record times are unsigned 32-bit seconds; absent or unreadable ones are 0.
uint32_t RecordTime(const std::string& text) {
    if (text.empty()) return 0;
    const int64_t t = CTools::GetTimeByString(text);
    return t > 0 && t <= static_cast<int64_t>(UINT32_MAX) ? static_cast<uint32_t>(t) : 0;
}

}  // namespace

const Ocpp20InboundAction* Ocpp20Protocol_FindInboundAction(const char* action) {
    if (action == nullptr) return nullptr;
    for (const Ocpp20InboundAction& row : kInboundActions) {
        if (std::strcmp(row.action, action) == 0) return &row;
    }
    return nullptr;
}

Ocpp20Record Ocpp20Protocol_CheckRequest(const Ocpp20InboundAction& row, const rapidjson::Value& frame) {
    // The header a record read from the whole frame would carry.
    Base header(Base::CALL, std::string(), std::string());
    const rapidjson::Value* payload = header.TakeHeader(frame);
    // A payload that is there but not an object goes to the check as it stands, to be refused.
    if (payload == nullptr && frame.IsArray() && frame.Size() >= 4) payload = &frame[3];
    static const rapidjson::Value kEmpty(rapidjson::kObjectType);
    return row.check(payload != nullptr ? *payload : kEmpty, header);
}

void Ocpp20Protocol_OnChangeAvailabilityRequest(const char* messageId, const models::changeAvailabilityRequest_t& request) {
    ChangeAvailabilityReq record;
    std::memset(&record, 0, sizeof(record));
    record.evseId = request.evse_present ? request.evse.id : 0;
    record.connectorId = request.evse_present && request.evse.connectorId_present ? request.evse.connectorId : 0;
    record.operationalStatus = models::GetOperationalStatusInInt(request.operationalStatus);
    Post(record, SERVERRECVTYPE_CHANGEAVAILABILITY, messageId);
}

void Ocpp20Protocol_OnCancelReservationRequest(const char* messageId, const models::cancelReservationRequest_t& request) {
    CancelReservationReq record;
    std::memset(&record, 0, sizeof(record));
    record.reservationId = request.reservationId;
    // The host's answer names only the CALL: remember which reservation it was about.
    CReservationManager::GetInstance()->NoteCancelRequest(messageId, static_cast<uint32_t>(request.reservationId));
    Post(record, SERVERRECVTYPE_CANCELRESERVATION, messageId);
}

void Ocpp20Protocol_OnCertificateSignedRequest(const char* messageId, const models::certificateSignedRequest_t& request) {
    std::vector<char> block(sizeof(CertificateSignedReq), 0);  // 10 kB: off the worker's stack
    CertificateSignedReq& record = *reinterpret_cast<CertificateSignedReq*>(block.data());
    CTools::CopyField(record.certificateChain, request.certificateChain);
    record.certificateType = models::GetCertificateSigningUseInInt(request.certificateType);
    Post(record, SERVERRECVTYPE_CERTIFICATESIGNED, messageId);
}

void Ocpp20Protocol_OnClearDisplayMessageRequest(const char* messageId, const models::clearDisplayMessageRequest_t& request) {
    ClearDisplayMessageReq record;
    std::memset(&record, 0, sizeof(record));
    record.id = request.id;
    Post(record, SERVERRECVTYPE_CLEARDISPLAYMESSAGE, messageId);
}

void Ocpp20Protocol_OnCostUpdatedRequest(const char* messageId, const models::costUpdatedRequest_t& request) {
    UpdatedTransactionCostReq record;
    std::memset(&record, 0, sizeof(record));
    CTools::CopyField(record.transactionId, request.transactionId);
    std::string cost;
    if (request.totalCost_present) CJsonText::AppendNumber(cost, request.totalCost);
    CTools::CopyField(record.totalCost, cost);
    Post(record, SERVERRECVTYPE_UPDATEDTRANSACTIONCOST, messageId);
}

void Ocpp20Protocol_OnDeleteCertificateRequest(const char* messageId, const models::deleteCertificateRequest_t& request) {
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

void Ocpp20Protocol_OnInstallCertificate(const char* messageId, const models::installCertificateRequest_t& request) {
    std::vector<char> block(sizeof(InstallCertificateReq), 0);
    InstallCertificateReq& record = *reinterpret_cast<InstallCertificateReq*>(block.data());
    record.certificateType = models::GetInstallCertificateUseInInt(request.certificateType);
    CTools::CopyField(record.certificate, request.certificate);
    Post(record, SERVERRECVTYPE_INSTALLCERTIFICATE, messageId);
}

void Ocpp20Protocol_OnTriggerMessageRequest(const char* messageId, const models::triggerMessageRequest_t& request) {
    // Boot and heartbeat are the library's own: accept, then send the message
    // (the answer must reach the CSMS before the message it asked for).
    if (request.requestedMessage == "BootNotification" || request.requestedMessage == "Heartbeat") {
        const bool boot = request.requestedMessage == "BootNotification";
        // A station already accepted is not registered again on request: Rejected, nothing sent.
        const bool accepted = boot && CBootHeartbeat::GetInstance()->GetBootPhase() == 2;
        const std::string answer = COcppProtocol20::TriggerMessage(messageId, accepted ? kTriggerRejected : 0);
        COutboundSender::Send(OUTBOUNDKIND_ANSWER, answer);
        if (accepted) return;
        if (boot) {
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

void Ocpp20Protocol_OnReserveNowRequest(const char* messageId, const models::reserveNowRequest_t& request) {
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

void Ocpp20Protocol_OnResetRequest(const char* messageId, const models::resetRequest_t& request) {
    ResetReq record;
    std::memset(&record, 0, sizeof(record));
    record.type = models::GetResetTypeInInt(request.type);
    // One byte on purpose: larger EVSE ids are cut, as the host expects.
    record.evseId = static_cast<uint8_t>(request.evseId_present ? request.evseId : 0);
    Post(record, SERVERRECVTYPE_RESET, messageId);
}

void Ocpp20Protocol_PublishFirmwareRequest(const char* messageId, const models::publishFirmwareRequest_t& request) {
    PublishFirmwareReq record;
    std::memset(&record, 0, sizeof(record));
    CTools::CopyField(record.location, request.location);
    record.retries = request.retries_present ? request.retries : -1;
    CTools::CopyField(record.checksum, request.checksum);
    record.requestId = request.requestId;
    record.retryInterval = request.retryInterval_present ? request.retryInterval : -1;
    Post(record, SERVERRECVTYPE_PUBLISHFIRMWARE, messageId);
}

void Ocpp20Protocol_OnDataTransferRequest(const char* messageId, const models::dataTransferRequest_t& request) {
    DataTransferReq record;
    std::memset(&record, 0, sizeof(record));
    CTools::CopyField(record.vendorId, request.vendorId);
    CTools::CopyField(record.dataMessageId, request.messageId);
    CTools::CopyField(record.data, request.data);
    Post(record, SERVERRECVTYPE_DATATRANSFER, messageId);
}

void Ocpp20Protocol_OnUnlockConnectorRequest(const char* messageId, const models::unlockConnectorRequest_t& request) {
    UnlockConnectorReq record;
    std::memset(&record, 0, sizeof(record));
    record.evseId = request.evseId;
    record.connectorId = request.connectorId;
    Post(record, SERVERRECVTYPE_UNLOCKCONNECTOR, messageId);
}

void Ocpp20Protocol_OnUnpublishFirmwareRequest(const char* messageId, const models::unpublishFirmwareRequest_t& request) {
    UnpublishFirmwareReq record;
    std::memset(&record, 0, sizeof(record));
    CTools::CopyField(record.checksum, request.checksum);
    Post(record, SERVERRECVTYPE_UNPUBLISHFIRMWARE, messageId);
}

void Ocpp20Protocol_OnGetInstalledCertificateIdsRequest(const char* messageId, const models::getInstalledCertificateIdsRequest_t& request) {
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

void Ocpp20Protocol_OnGetLogRequest(const char* messageId, const models::getLogRequest_t& request) {
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

void Ocpp20Protocol_OnUpdateFirmwareRequest(const char* messageId, const models::updateFirmwareRequest_t& request) {
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

void Ocpp20Protocol_OnSetNetworkProfileRequest(const char* messageId, const models::setNetworkProfileRequest_t& request) {
    ConnectionItem item;
    int status = CheckNetworkProfile(request, item);
    if (status == 0 && CConnectManager::GetInstance()->AddConnItem(item) != 1) status = 2;
    LOG_INFO("SetNetworkProfile slot:%d status:%d", item.id, status);
    const std::string answer = COcppProtocol20::SetNetworkProfileResp(messageId, status);
    COutboundSender::Send(OUTBOUNDKIND_ANSWER, answer);
}
