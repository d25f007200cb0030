// TransactionEvent and MeterValues frames from the host's meter items, and
// the TransactionEvent answer read back.
#include <OcppTransaction.h>

#include <cmath>
#include <cstddef>
#include <cstring>

#include "Ocpp20/Ocpp20Transaction.h"
#include "Ocpp20/OcppProtocol20.h"
#include "Ocpp20/Process/TransactionManager.h"
#include "Util/Tools.h"

namespace {

// ReadingContextEnumType indexes.
const int kContextOther = 2;
const int kContextSampleClock = 3;
const int kContextSamplePeriodic = 4;
const int kContextTransactionBegin = 5;
const int kContextTransactionEnd = 6;
const int kContextTrigger = 7;

const int kEventEnded = 0;
const int kEventStarted = 1;
const int kEventUpdated = 2;

const int kNoTokenType = 255;

std::string Field(const char* field, size_t capacity) { return std::string(field, strnlen(field, capacity)); }

// An enumerated head field holds the list index plus one; 0 is "not given".
std::string Shifted(std::string (*text)(int), uint8_t value) {
    return value == 0 ? std::string() : text(static_cast<int>(value) - 1);
}

// The item as the CSMS reads it; false when its measurand has no 2.0.1 name.
bool ReadItem(const unsigned char* at, int defaultContext, models::sampledValue_t& out, uint32_t* timestamp) {
    MeterItem head;
    std::memcpy(&head, at, sizeof head);  // the host's buffer is packed: never read it in place
    out.measurand = models::GetMeasurandInString(head.measurand);
    if (out.measurand.empty()) {
        LOG_ERROR("meter item skipped: measurand %d has no name here", static_cast<int>(head.measurand));
        return false;
    }
    if (!std::isfinite(head.value)) {
        // No JSON number can carry it: the whole frame would be refused.
        LOG_ERROR("meter item skipped: its value is not a number");
        return false;
    }
    *timestamp = head.timestamp;
    out.value = head.value;
    out.value_present = true;
    out.context = Shifted(&models::GetReadingContextInString, head.context);
    if (out.context.empty()) out.context = models::GetReadingContextInString(defaultContext);
    out.phase = Shifted(&models::GetPhaseInString, head.phase);
    out.location = Shifted(&models::GetLocationInString, head.location);
    const std::string unit = Field(head.unit, sizeof head.unit);
    if (!unit.empty() || head.multiplier != 0) {
        out.unitOfMeasure_present = true;
        out.unitOfMeasure.unit = unit;
        out.unitOfMeasure.multiplier = head.multiplier;
        out.unitOfMeasure.multiplier_present = head.multiplier != 0;
    }
    if (head.isSigned == 1) {
        const char* item = reinterpret_cast<const char*>(at);
        models::signedMeterValue_t& signedValue = out.signedMeterValue;
        // Each field keeps its last byte for the NUL: a full one still fits its length limit.
        signedValue.signedMeterData = Field(item + offsetof(SignedMeterItem, signedMeterData),
                                            sizeof(SignedMeterItem::signedMeterData) - 1);
        signedValue.signingMethod =
            Field(item + offsetof(SignedMeterItem, signingMethod), sizeof(SignedMeterItem::signingMethod) - 1);
        signedValue.encodingMethod =
            Field(item + offsetof(SignedMeterItem, encodingMethod), sizeof(SignedMeterItem::encodingMethod) - 1);
        signedValue.publicKey =
            Field(item + offsetof(SignedMeterItem, publicKey), sizeof(SignedMeterItem::publicKey) - 1);
        out.signedMeterValue_present = true;
    }
    return true;
}

int64_t EventTime(const TransactionEventArgs& args) {
    return args.timestamp != 0 ? args.timestamp : CTools::CurTimeSec();
}

int UpdatedContext(int reason) {
    switch (reason) {
        case TRANSACTIONREASON_METERVALUECLOCK:
            return kContextSampleClock;
        case TRANSACTIONREASON_TRIGGER:
            return kContextTrigger;
        default:
            // The schema's own default: what a CSMS assumes when no context is given.
            return kContextSamplePeriodic;
    }
}

std::string EventFrame(int eventType, const TransactionEventArgs& args, bool offline) {
    models::transactionEventRequest_t request;
    request.eventType = models::GetTransactionEventInString(eventType);
    request.triggerReason = models::GetTriggerReasonInString(args.reason);
    if (request.triggerReason.empty()) return std::string();
    const int64_t when = EventTime(args);
    request.timestamp = CTools::GetLocalTime(when);
    request.seqNo = args.seqNo;
    request.seqNo_present = true;
    if (offline) {
        request.offline = true;
        request.offline_present = true;
    }
    const int32_t phases =
        (args.eventParam & Ocpp20::TRANSACTIONEVENTPARAM_PHASES_MASK) >> Ocpp20::TRANSACTIONEVENTPARAM_PHASES_SHIFT;
    if (phases != 0) {
        request.numberOfPhasesUsed = phases;
        request.numberOfPhasesUsed_present = true;
    }
    const int32_t cableMax = (args.eventParam & Ocpp20::TRANSACTIONEVENTPARAM_CABLEMAX_MASK) >>
                             Ocpp20::TRANSACTIONEVENTPARAM_CABLEMAX_SHIFT;
    if (cableMax != 0) {
        request.cableMaxCurrent = cableMax;
        request.cableMaxCurrent_present = true;
    }
    if (eventType == kEventStarted && args.reservationId != 0) {
        request.reservationId = args.reservationId;
        request.reservationId_present = true;
    }
    request.transactionInfo_present = true;
    models::transactionInfo_t& info = request.transactionInfo;
    info.transactionId = args.transactionId != nullptr ? args.transactionId : "";
    if (args.chargingState >= 0) {
        info.chargingState = models::GetChargingStateInString(args.chargingState);
        if (info.chargingState.empty()) return std::string();
    }
    if (eventType == kEventEnded && args.stopReason >= 0) {
        info.stoppedReason = models::GetReasonInString(args.stopReason);
        if (info.stoppedReason.empty()) return std::string();
    }
    if (args.remoteStartId != 0) {
        info.remoteStartId = args.remoteStartId;
        info.remoteStartId_present = true;
    }
    if (args.idToken != nullptr && args.idToken[0] != '\0' && args.tokenType != kNoTokenType) {
        request.idToken_present = true;
        request.idToken.idToken = args.idToken;
        request.idToken.type = models::GetIdTokenInString(args.tokenType);
        if (request.idToken.type.empty()) return std::string();
    }
    if (args.evseId > 0) {
        request.evse_present = true;
        request.evse.id = args.evseId;
        request.evse.id_present = true;
        if (args.connectorId > 0) {
            request.evse.connectorId = args.connectorId;
            request.evse.connectorId_present = true;
        }
    }
    const int context = eventType == kEventStarted ? kContextTransactionBegin
                        : eventType == kEventEnded ? kContextTransactionEnd
                                                   : UpdatedContext(args.reason);
    COcppProtocol20::SetTransactionMeter(request.meterValue, args.meter, args.meterCount, when, context);
    request.base = Base(Base::CALL, CTools::GetUuid(), request.base.action);
    return models::to_string(request, "", "");
}

}  // namespace

void COcppProtocol20::SetTransactionMeter(std::vector<models::meterValue_t>& out, const void* meter, int meterCount,
                                          int64_t eventTime, int context) {
    if (meter == nullptr || meterCount <= 0) return;
    if (models::GetReadingContextInString(context).empty()) context = kContextOther;
    const std::string eventStamp = CTools::GetLocalTime(eventTime);
    const size_t first = out.size();
    const unsigned char* at = static_cast<const unsigned char*>(meter);
    for (int i = 0; i < meterCount; ++i) {
        const size_t length = at[offsetof(MeterItem, isSigned)] == 1 ? sizeof(SignedMeterItem) : sizeof(MeterItem);
        models::sampledValue_t value;
        uint32_t stamp = 0;
        if (ReadItem(at, context, value, &stamp)) {
            const std::string when = stamp != 0 ? CTools::GetLocalTime(stamp) : eventStamp;
            size_t slot = first;
            while (slot < out.size() && out[slot].timestamp != when) ++slot;
            if (slot == out.size()) {
                out.emplace_back();
                out.back().timestamp = when;
            }
            out[slot].sampledValue.push_back(std::move(value));
        }
        at += length;
    }
}

void COcppProtocol20::SetTransactionMeterStart(std::vector<models::meterValue_t>& out, const void* meter,
                                               int meterCount, int64_t eventTime) {
    SetTransactionMeter(out, meter, meterCount, eventTime, kContextTransactionBegin);
}

void COcppProtocol20::SetTransactionMeterEnd(std::vector<models::meterValue_t>& out, const void* meter,
                                             int meterCount, int64_t eventTime) {
    SetTransactionMeter(out, meter, meterCount, eventTime, kContextTransactionEnd);
}

std::string COcppProtocol20::MeterValuesReq(int evseId, const void* meter, int meterCount, int64_t eventTime) {
    models::meterValuesRequest_t request;
    request.evseId = evseId;
    request.evseId_present = true;
    SetTransactionMeter(request.meterValue, meter, meterCount, eventTime, kContextSamplePeriodic);
    // The schema wants at least one meter value: nothing readable, nothing to send.
    if (request.meterValue.empty()) return std::string();
    return MeterValuesReq(request);
}

std::string COcppProtocol20::TransactionStartReq(const TransactionEventArgs& args, bool offline) {
    return EventFrame(kEventStarted, args, offline);
}

std::string COcppProtocol20::TransactionUpdateReq(const TransactionEventArgs& args, bool offline) {
    return EventFrame(kEventUpdated, args, offline);
}

std::string COcppProtocol20::TransactionEndReq(const TransactionEventArgs& args, bool offline) {
    return EventFrame(kEventEnded, args, offline);
}

int COcppProtocol20::TransactionResp(const char* frame, TransactionAnswer* out) {
    return frame != nullptr ? TransactionResp(frame, std::strlen(frame), out) : 0;
}

int COcppProtocol20::TransactionResp(const char* frame, size_t len, TransactionAnswer* out,
                                     models::idTokenInfo_t* info) {
    if (frame == nullptr || out == nullptr || IsReponseError(frame, len)) return 0;
    models::transactionEventResponse_t answer;
    try {
        answer = models::TransactionEventResponseFromJsonData(frame, static_cast<unsigned int>(len));
    } catch (const CustomException& e) {
        LOG_INFO("CustomException: %s", e.what());
        return 0;
    }
    if (answer.base.messageType != Base::CALLRESULT) return 0;
    *out = TransactionAnswer();
    if (answer.idTokenInfo_present) {
        const int status = models::GetAuthorizationStatusInInt(answer.idTokenInfo.status);
        out->hasIdTokenInfo = status >= 0;
        out->status = status >= 0 ? status : 0;
        if (info != nullptr) *info = answer.idTokenInfo;
    }
    if (answer.totalCost_present) {
        out->hasTotalCost = true;
        out->totalCost = static_cast<float>(answer.totalCost);
    }
    if (answer.updatedPersonalMessage_present) {
        const models::messageContent_t& message = answer.updatedPersonalMessage;
        out->hasPersonalMessage = true;
        out->messageFormat = models::GetMessageFormatInInt(message.format);
        CTools::CopyField(out->language, message.language);
        CTools::CopyField(out->content, message.content);
    }
    return 1;
}
