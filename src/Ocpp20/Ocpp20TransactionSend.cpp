// TransactionEvent on its way out, its answer coming back, and MeterValues
// outside a transaction.
#include "Ocpp20/Ocpp20Transaction.h"

#include <OcppRecords.h>

#include <cstring>
#include <string>

#include "Ocpp20/Ocpp20ProtocolPrivate.h"
#include "Ocpp20/OcppProtocol20.h"
#include "Ocpp20/Process/AuthorizeItem.h"
#include "Ocpp20/Process/TransactionManager.h"
#include "Ocpp20/Process/VariableCache.h"
#include "Ocpp20/Protocol/JsonText.h"
#include "OcppProtocol/MessageCallBack.h"
#include "OcppProtocol/OcppProtocol.h"
#include "OcppProtocol/OutboundSender.h"
#include "Util/Tools.h"

namespace {

const int kSubtypeStarted = 1;
const int kSubtypeUpdated = 2;
const int kSubtypeEnded = 3;

typedef std::string (*EventBuilder)(const TransactionEventArgs& args, bool offline);

int SendEvent(const char* name, EventBuilder build, int subtype, const TransactionEventArgs& args,
              int32_t* eventParam) {
    try {
        // Offline is a fact of the moment the event occurred, whatever happens to the frame later.
        const bool offline = OcppProtocol_GetStatus() != SDKSTATUS_OK;
        int32_t param = args.eventParam & ~Ocpp20::TRANSACTIONEVENTPARAM_OFFLINE;
        if (offline) param |= Ocpp20::TRANSACTIONEVENTPARAM_OFFLINE;
        if (eventParam != nullptr) *eventParam = param;
        const std::string frame = build(args, offline);
        if (frame.empty()) {
            LOG_ERROR("%s not sent: a value is outside its list (reason %d, state %d, stop %d)", name, args.reason,
                      args.chargingState, args.stopReason);
            return 1;
        }
        OutboundMessage message;
        message.kind = OUTBOUNDKIND_TRANSACTIONEVENT;
        message.frame = frame.c_str();
        message.len = static_cast<int>(frame.size());
        message.subtype = subtype;
        message.seqNo = args.seqNo;
        message.transactionId = args.transactionId != nullptr ? args.transactionId : "";
        const OutboundResult sent = COutboundSender::Send(message);
        if (sent.answer != nullptr) {
            Ocpp20ProtocolPrivate_OnTransactionEventAnswer(frame.c_str(), frame.size(), sent.answer,
                                                           static_cast<size_t>(sent.answerLen), true);
            return 0;
        }
        return sent.result == 1 ? 0 : 1;
    } catch (const std::exception& e) {
        LOG_ERROR("%s failed: %s", name, e.what());
        return 1;
    }
}

// The CSMS's running cost goes to the host as a CostUpdated would.
void PostRunningCost(const std::string& transactionId, float totalCost) {
    UpdatedTransactionCostReq record;
    std::memset(&record, 0, sizeof record);
    record.base.type = SERVERRECVTYPE_UPDATEDTRANSACTIONCOST;
    CTools::CopyField(record.transactionId, transactionId);
    std::string cost;
    CJsonText::AppendNumber(cost, totalCost);
    CTools::CopyField(record.totalCost, cost);
    CMessageCallBack::GetInstance()->OnMessage(reinterpret_cast<const char*>(&record), sizeof record, 0);
}

}  // namespace

int Ocpp20ProtocolPrivate_TransactionStart(const TransactionEventArgs& args, int32_t* eventParam) {
    return SendEvent("TransactionEvent Started", &COcppProtocol20::TransactionStartReq, kSubtypeStarted, args,
                     eventParam);
}

int Ocpp20ProtocolPrivate_TransactionUpate(const TransactionEventArgs& args, int32_t* eventParam) {
    return SendEvent("TransactionEvent Updated", &COcppProtocol20::TransactionUpdateReq, kSubtypeUpdated, args,
                     eventParam);
}

int Ocpp20ProtocolPrivate_TransactionEnd(const TransactionEventArgs& args, int32_t* eventParam) {
    return SendEvent("TransactionEvent Ended", &COcppProtocol20::TransactionEndReq, kSubtypeEnded, args,
                     eventParam);
}

int Ocpp20ProtocolPrivate_OnTransactionEventAnswer(const char* request, size_t requestLen, const char* answer,
                                                    size_t answerLen, bool notifyNotAccepted) {
    try {
        TransactionAnswer result;
        models::idTokenInfo_t info;
        if (COcppProtocol20::TransactionResp(answer, answerLen, &result, &info) != 1) {
            return TRANSACTIONANSWER_NORESULT;
        }
        // Most answers say nothing more; only then is the request read again.
        if (!result.hasIdTokenInfo && !result.hasTotalCost && !result.hasPersonalMessage) return result.status;
        // What the answer refers to is in the request as sent: it is ours, and schema-valid.
        const models::transactionEventRequest_t sent =
            models::TransactionEventRequestFromJsonData(request, static_cast<unsigned int>(requestLen));
        const std::string& transactionId = sent.transactionInfo.transactionId;
        if (result.hasIdTokenInfo && sent.idToken_present) {
            const int tokenType = models::GetIdTokenInInt(sent.idToken.type);
            if (tokenType != IDTOKENTYPE_NOAUTHORIZATION && CVariableCache::GetInstance()->AuthCacheCtrlrEnabled()) {
                Ocpp20ProtocolPrivate_CacheIdTokenInfo(sent.idToken.idToken.c_str(), tokenType, result.status, info);
            }
        }
        if (result.hasTotalCost) {
            CTransactionManager::GetInstance()->UpdateTotalCostByTransactionID(result.totalCost, transactionId);
            PostRunningCost(transactionId, result.totalCost);
        }
        if (result.hasPersonalMessage) {
            PersonalMsg record;
            std::memset(&record, 0, sizeof record);
            record.evseId = sent.evse_present ? sent.evse.id : 0;
            CTools::CopyField(record.transactionId, transactionId);
            record.format = result.messageFormat;
            CTools::CopyField(record.language, result.language);
            CTools::CopyField(record.content, result.content);
            Ocpp20ProtocolPrivate_PersonalMsgUpdated(record);
        }
        if (notifyNotAccepted && result.hasIdTokenInfo && result.status != AUTHORIZESTATUS_ACCEPTED) {
            CTransactionManager::GetInstance()->NotifyNotAcceptedTransaction(transactionId);
        }
        return result.status;
    } catch (const std::exception& e) {
        LOG_ERROR("TransactionEvent answer not read: %s", e.what());
        return TRANSACTIONANSWER_NORESULT;
    }
}

int Ocpp20Protocol_MeterValueReport(int evseId, const void* meter, int meterCount) {
    try {
        const std::string frame = COcppProtocol20::MeterValuesReq(evseId, meter, meterCount, CTools::CurTimeSec());
        if (frame.empty()) return 0;
        const OutboundResult sent = COutboundSender::Send(OUTBOUNDKIND_REQUEST, frame);
        return sent.answer != nullptr ? COcppProtocol20::MeterValuesResp(sent.answer) : 0;
    } catch (const std::exception& e) {
        LOG_ERROR("MeterValues failed: %s", e.what());
        return 0;
    }
}
