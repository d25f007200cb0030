#pragma once
// Handlers of the CSMS's requests, one per action, run on the notification
// thread with the CALL's id and the whole frame.

typedef void (*Ocpp20InboundHandler)(const char* messageId, const char* frame, int len);

struct Ocpp20InboundAction {
    const char* action;
    Ocpp20InboundHandler handler;  // null: known, not answered here yet
};

// The action table in the order the dispatcher compares it; null when unknown.
const Ocpp20InboundAction* Ocpp20Protocol_FindInboundAction(const char* action);

// Requests the host answers: each posts its record and returns.
void Ocpp20Protocol_OnChangeAvailabilityRequest(const char* messageId, const char* frame, int len);
void Ocpp20Protocol_OnCancelReservationRequest(const char* messageId, const char* frame, int len);
void Ocpp20Protocol_OnCertificateSignedRequest(const char* messageId, const char* frame, int len);
void Ocpp20Protocol_OnClearDisplayMessageRequest(const char* messageId, const char* frame, int len);
void Ocpp20Protocol_OnCostUpdatedRequest(const char* messageId, const char* frame, int len);
void Ocpp20Protocol_OnDeleteCertificateRequest(const char* messageId, const char* frame, int len);
void Ocpp20Protocol_OnInstallCertificate(const char* messageId, const char* frame, int len);
void Ocpp20Protocol_OnTriggerMessageRequest(const char* messageId, const char* frame, int len);
void Ocpp20Protocol_OnSetNetworkProfileRequest(const char* messageId, const char* frame, int len);
void Ocpp20Protocol_OnReserveNowRequest(const char* messageId, const char* frame, int len);
void Ocpp20Protocol_OnResetRequest(const char* messageId, const char* frame, int len);
void Ocpp20Protocol_RequestStartTransactionRequest(const char* messageId, const char* frame, int len);
void Ocpp20Protocol_RequestStopTransactionRequest(const char* messageId, const char* frame, int len);
void Ocpp20Protocol_PublishFirmwareRequest(const char* messageId, const char* frame, int len);
void Ocpp20Protocol_OnDataTransferRequest(const char* messageId, const char* frame, int len);
void Ocpp20Protocol_OnUnlockConnectorRequest(const char* messageId, const char* frame, int len);
void Ocpp20Protocol_OnUnpublishFirmwareRequest(const char* messageId, const char* frame, int len);
void Ocpp20Protocol_OnGetInstalledCertificateIdsRequest(const char* messageId, const char* frame, int len);
void Ocpp20Protocol_OnGetLogRequest(const char* messageId, const char* frame, int len);
void Ocpp20Protocol_OnUpdateFirmwareRequest(const char* messageId, const char* frame, int len);

// Requests the library answers from the device model; SetVariables also tells the host.
void Ocpp20Protocol_OnSetVariablesRequest(const char* messageId, const char* frame, int len);
void Ocpp20Protocol_OnGetVariablesRequest(const char* messageId, const char* frame, int len);
