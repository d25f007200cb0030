#pragma once
// Handlers of the CSMS's requests, one per action, run on the notification
// thread with the CALL's id and the request record read from its payload.
#include <OcppVariables.h>
#include <rapidjson/fwd.h>

#include <memory>
#include <vector>

#include "models/Models.h"

class Base;

// A request record of the row's own type, read by the row's check and handed
// to the row's handler; nothing else looks inside.
struct Ocpp20RecordDeleter {
    void (*destroy)(void*);
    void operator()(void* record) const { destroy(record); }
};
typedef std::unique_ptr<void, Ocpp20RecordDeleter> Ocpp20Record;

// Checks the payload against the action's request schema, then reads it into
// the action's record; throws CustomException with the reason when it does not fit.
typedef Ocpp20Record (*Ocpp20PayloadCheck)(const rapidjson::Value& payload, const Base& header);
typedef void (*Ocpp20InboundHandler)(const char* messageId, const void* record, int frameLen);

struct Ocpp20InboundAction {
    const char* action;
    Ocpp20PayloadCheck check;
    Ocpp20InboundHandler handler;  // null: known, not answered here yet
    // The handler only reads the station's own stores and answers: it never
    // waits for the host or the CSMS, so it may run on the link's thread.
    bool atOnce;
};

// The action table in the order the dispatcher compares it; null when unknown.
const Ocpp20InboundAction* Ocpp20Protocol_FindInboundAction(const char* action);
// The row's check on a CALL document: the payload (element 3 when it is an
// object, else an empty one) read with the frame's header. Throws as the check does.
Ocpp20Record Ocpp20Protocol_CheckRequest(const Ocpp20InboundAction& row, const rapidjson::Value& frame);

// Requests the host answers: each posts its record and returns.
void Ocpp20Protocol_OnChangeAvailabilityRequest(const char* messageId, const models::changeAvailabilityRequest_t& request);
void Ocpp20Protocol_OnCancelReservationRequest(const char* messageId, const models::cancelReservationRequest_t& request);
void Ocpp20Protocol_OnCertificateSignedRequest(const char* messageId, const models::certificateSignedRequest_t& request);
void Ocpp20Protocol_OnClearDisplayMessageRequest(const char* messageId,
                                                 const models::clearDisplayMessageRequest_t& request);
void Ocpp20Protocol_OnCostUpdatedRequest(const char* messageId, const models::costUpdatedRequest_t& request);
void Ocpp20Protocol_OnDeleteCertificateRequest(const char* messageId, const models::deleteCertificateRequest_t& request);
void Ocpp20Protocol_OnInstallCertificate(const char* messageId, const models::installCertificateRequest_t& request);
void Ocpp20Protocol_OnTriggerMessageRequest(const char* messageId, const models::triggerMessageRequest_t& request);
void Ocpp20Protocol_OnSetNetworkProfileRequest(const char* messageId, const models::setNetworkProfileRequest_t& request);
void Ocpp20Protocol_OnReserveNowRequest(const char* messageId, const models::reserveNowRequest_t& request);
void Ocpp20Protocol_OnResetRequest(const char* messageId, const models::resetRequest_t& request);
void Ocpp20Protocol_RequestStartTransactionRequest(const char* messageId,
                                                   const models::requestStartTransactionRequest_t& request);
void Ocpp20Protocol_RequestStopTransactionRequest(const char* messageId,
                                                  const models::requestStopTransactionRequest_t& request);
void Ocpp20Protocol_OnGetTransactionStatusRequest(const char* messageId,
                                                  const models::getTransactionStatusRequest_t& request);
// Whether the offline store still holds a TransactionEvent of the transaction.
bool Ocpp20ProtocolPrivate_HasQueuedTransactionMessage(const char* txId);
void Ocpp20Protocol_PublishFirmwareRequest(const char* messageId, const models::publishFirmwareRequest_t& request);
void Ocpp20Protocol_OnDataTransferRequest(const char* messageId, const models::dataTransferRequest_t& request);
void Ocpp20Protocol_OnUnlockConnectorRequest(const char* messageId, const models::unlockConnectorRequest_t& request);
void Ocpp20Protocol_OnUnpublishFirmwareRequest(const char* messageId,
                                               const models::unpublishFirmwareRequest_t& request);
void Ocpp20Protocol_OnGetInstalledCertificateIdsRequest(const char* messageId,
                                                        const models::getInstalledCertificateIdsRequest_t& request);
void Ocpp20Protocol_OnGetLogRequest(const char* messageId, const models::getLogRequest_t& request);
void Ocpp20Protocol_OnUpdateFirmwareRequest(const char* messageId, const models::updateFirmwareRequest_t& request);

// Requests the library answers from the authorization store (Ocpp20ProtocolRecvAuthorize.cpp).
void Ocpp20Protocol_OnSendLocalListRequest(const char* messageId, const models::sendLocalListRequest_t& request);
void Ocpp20Protocol_OnGetLocalListVersionRequest(const char* messageId,
                                                 const models::getLocalListVersionRequest_t& request);
void Ocpp20Protocol_OnClearCacheRequest(const char* messageId, const models::clearCacheRequest_t& request);

// Requests the library answers from the device model (Ocpp20ProtocolRecvDeviceModel.cpp);
// the per-message byte limits need the frame's length. SetVariables also tells the host.
void Ocpp20Protocol_OnSetVariablesRequest(const char* messageId, const models::setVariablesRequest_t& request,
                                          int frameLen);
void Ocpp20Protocol_OnGetVariablesRequest(const char* messageId, const models::getVariablesRequest_t& request,
                                          int frameLen);

// The host's answer to a SetVariables record, with the library's own verdicts
// put back: the host settles only the entries that were marked for it.
// Entries it left undecided are Rejected.
std::vector<VariableDataItem> Ocpp20Protocol_SettleSetVariables(const char* messageId, int count,
                                                                const VariableDataItem* items);
// Builds and sends the CALLRESULT for settled entries; 1 when it left.
int Ocpp20Protocol_SendSetVariablesResponse(const char* messageId, const std::vector<VariableDataItem>& items);
// Forgets every SetVariables request still waiting for the host.
void Ocpp20Protocol_ClearPendingSetVariables();
