#pragma once
// TransactionEvent on its way out and its answer coming back: the contract
// between the transaction manager, the message builders and the queue.
#include <cstdint>
#include <string>

// One event as the transaction manager raises it.
struct TransactionEventArgs {
    int evseId = 0;
    int connectorId = 0;
    int seqNo = 0;
    const char* idToken = "";        // empty: the event carries no idToken
    int tokenType = 255;             // IdTokenEnumType index; 255: none
    int reason = 0;                  // TRANSACTIONREASON
    int chargingState = -1;          // TRANSACTIONCHARGINGSTATE; -1: not given
    int stopReason = -1;             // Ended only; TRANSACTIONSTOPREASON, -1: not given
    int reservationId = 0;           // 0: none
    int remoteStartId = 0;           // 0: none
    const char* transactionId = "";
    const void* meter = nullptr;     // the host's meter items
    int meterCount = 0;
    int32_t eventParam = 0;          // Ocpp20::TransactionEventParam of the last event
    int64_t timestamp = 0;           // Unix seconds of the event; 0: now
};

// Build the event and hand it to the outbound sender. 0 when it was sent,
// queued or kept for later (the transaction goes on), otherwise not.
// `*eventParam` gets the parameter to keep for the next event.
int Ocpp20ProtocolPrivate_TransactionStart(const TransactionEventArgs& args, int32_t* eventParam);
int Ocpp20ProtocolPrivate_TransactionUpate(const TransactionEventArgs& args, int32_t* eventParam);
int Ocpp20ProtocolPrivate_TransactionEnd(const TransactionEventArgs& args, int32_t* eventParam);

// What a TransactionEvent answer said.
struct TransactionAnswer {
    int status = 0;                 // idTokenInfo status (AuthorizationStatusEnumType); 0 when absent
    bool hasIdTokenInfo = false;
    bool hasTotalCost = false;
    float totalCost = 0;
    bool hasPersonalMessage = false;
    int messageFormat = 0;
    char language[9] = {};
    char content[513] = {};
};

// The CSMS answered `request` (the TransactionEvent CALL frame as sent) with
// the CALLRESULT `answer`. Updates the authorization cache from idTokenInfo
// (unless the token is NoAuthorization), the running cost and posts a
// PersonalMsg record when the answer carries one. With `notifyNotAccepted`
// a status other than Accepted also tells the transaction manager. Returns
// the idTokenInfo status, 0 when the answer had none, and
// TRANSACTIONANSWER_NORESULT when `answer` is a CALLERROR or unreadable: no
// result, nothing updated.
const int TRANSACTIONANSWER_NORESULT = -1;
int Ocpp20ProtocolPrivate_OnTransactionEventAnswer(const char* request, size_t requestLen, const char* answer,
                                                    size_t answerLen, bool notifyNotAccepted);

// MeterValues outside a transaction (Sample.Periodic unless an item says
// otherwise); 1 when the CSMS answered it, 0 otherwise.
int Ocpp20Protocol_MeterValueReport(int evseId, const void* meter, int meterCount);
