// The CSMS's requests about transactions: remote start and stop go to the
// host, the transaction status is answered from the library's own state.
#include <OcppRecords.h>

#include <cstring>

#include "Ocpp20/Ocpp20ProtocolRecv.h"
#include "Ocpp20/OcppProtocol20.h"
#include "Ocpp20/Process/TransactionManager.h"
#include "OcppProtocol/MessageCallBack.h"
#include "OcppProtocol/OcppProtocol.h"
#include "OcppProtocol/OutboundSender.h"
#include "SmartCharging/ChargingProfile20/ProfileManager.h"
#include "Util/Tools.h"

namespace {

const int kRejected = 1;  // RequestStartStopStatusEnumType

template <class Record>
void Post(Record& record, int32_t type, const char* messageId) {
    record.base.type = type;
    CTools::CopyField(record.base.messageId, messageId != nullptr ? messageId : "");
    CMessageCallBack::GetInstance()->OnMessage(reinterpret_cast<const char*>(&record), sizeof(record), 0);
}

void Answer(const std::string& frame) {
    if (!frame.empty()) COutboundSender::Send(OUTBOUNDKIND_ANSWER, frame);
}

// Not connected yet: nothing the host starts or stops now could be reported.
bool TooEarly() { return static_cast<int>(OcppProtocol_GetStatus()) < SDKSTATUS_SUBMITTING; }

}  // namespace

// The offline store answers this once it is attached; until then nothing is held back.
bool Ocpp20ProtocolPrivate_HasQueuedTransactionMessage(const char*) { return false; }

void Ocpp20Protocol_RequestStartTransactionRequest(const char* messageId,
                                                   const models::requestStartTransactionRequest_t& request) {
    if (TooEarly()) {
        Answer(COcppProtocol20::RequestStartTransaction(messageId, kRejected, ""));
        return;
    }
    RequestStartTransactionReq record;
    std::memset(&record, 0, sizeof(record));
    record.evseId = request.evseId_present ? request.evseId : 0;
    record.remoteStartId = request.remoteStartId;
    CTools::CopyField(record.idToken, request.idToken.idToken);
    record.idTokenType = models::GetIdTokenInInt(request.idToken.type);
    // Stored before the host hears of the start, so its first limit already counts.
    if (request.chargingProfile_present) {
        const std::string profile = models::to_string(request.chargingProfile, "", "");
        CProfileManager20::GetInstance()->AddChargingProfile(record.evseId, profile.c_str());
    }
    Post(record, SERVERRECVTYPE_REQUESTSTARTTRANSACTION, messageId);
}

void Ocpp20Protocol_RequestStopTransactionRequest(const char* messageId,
                                                  const models::requestStopTransactionRequest_t& request) {
    if (TooEarly()) {
        LOG_ERROR("Charing status:%d Error, reject RequestStopTransactionRequest\n",
                  static_cast<int>(OcppProtocol_GetStatus()));
        Answer(COcppProtocol20::RequestStopTransaction(messageId, kRejected));
        return;
    }
    RequestStopTransactionReq record;
    std::memset(&record, 0, sizeof(record));
    CTools::CopyField(record.transactionId, request.transactionId);
    Post(record, SERVERRECVTYPE_REQUESTSTOPTRANSACTION, messageId);
}

void Ocpp20Protocol_OnGetTransactionStatusRequest(const char* messageId,
                                                  const models::getTransactionStatusRequest_t& request) {
    CTransactionManager* transactions = CTransactionManager::GetInstance();
    models::getTransactionStatusResponse_t answer;
    if (request.transactionId.empty()) {
        answer.messagesInQueue = transactions->GetTransactionCount() > 0;
    } else {
        answer.ongoingIndicator = transactions->IsTransactionStart(request.transactionId);
        answer.ongoingIndicator_present = true;
        answer.messagesInQueue = Ocpp20ProtocolPrivate_HasQueuedTransactionMessage(request.transactionId.c_str());
    }
    answer.messagesInQueue_present = true;
    Answer(COcppProtocol20::GetTransactionStatus(messageId, answer));
}
