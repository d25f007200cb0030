#include "OcppProtocol/OutboundSender.h"

#include <atomic>
#include <vector>

#include "OcppProtocol/OcppProtocol.h"
#include "OcppProtocol/OcppSendSeam.h"
#include "Util/Tools.h"

namespace {

enum Route {
    ROUTE_ONEWAY,   // hand to the link, no answer awaited
    ROUTE_REQUEST,  // send now and wait for the answer
    ROUTE_QUEUE,    // ordered transaction queue
    ROUTE_OFFLINE,  // offline store
    ROUTE_HOLD      // not sent; the producer keeps it if it wants to
};

Route Decide(OUTBOUNDKIND kind, SDKSTATUS status) {
    const bool disconnected = status == SDKSTATUS_DISCONNECTED;
    switch (kind) {
        case OUTBOUNDKIND_ANSWER:
            return ROUTE_ONEWAY;
        case OUTBOUNDKIND_REQUEST:
        case OUTBOUNDKIND_BOOTHEARTBEAT:
            // Their producers have always tried the link whatever the status;
            // it refuses while down and says so in the log.
            return ROUTE_REQUEST;
        case OUTBOUNDKIND_STATUSNOTIFICATION:
            return disconnected ? ROUTE_HOLD : ROUTE_REQUEST;
        case OUTBOUNDKIND_TRANSACTIONEVENT:
            return status == SDKSTATUS_OK ? ROUTE_QUEUE : ROUTE_OFFLINE;
        case OUTBOUNDKIND_SECURITYEVENT:
        case OUTBOUNDKIND_MONITOREVENT:
        case OUTBOUNDKIND_EVCHARGINGNEEDS:
        case OUTBOUNDKIND_EVCHARGINGSCHEDULE:
        case OUTBOUNDKIND_FIRMWARESTATUS:
            return disconnected ? ROUTE_OFFLINE : ROUTE_REQUEST;
        case OUTBOUNDKIND_COUNT:
            break;
    }
    return ROUTE_HOLD;
}

int NoOfflineStore(const OutboundMessage& message) {
    LOG_INFO("no offline store: %s not kept", COutboundSender::KindName(message.kind));
    // The producer of a security event reports it as kept whatever the store does.
    return message.kind == OUTBOUNDKIND_SECURITYEVENT ? 1 : 0;
}

std::atomic<COutboundSender::OfflineFn> g_offlineStore{&NoOfflineStore};
std::atomic<COutboundSender::QueueFn> g_transactionQueue{nullptr};

// Answers land here; one buffer per sending thread, made on its first request,
// instead of a fresh 64 KiB on the heap for every call.
thread_local std::vector<char> t_answer;

OutboundResult Request(const OutboundMessage& message) {
    OutboundResult out;
    if (t_answer.size() < static_cast<size_t>(kOcppResponseBufferLen)) t_answer.resize(kOcppResponseBufferLen);
    t_answer[0] = '\0';
    int answerLen = 0;
    if (OcppProtocol_SendMessage(message.frame, message.len, t_answer.data(), &answerLen) != 1) return out;
    out.result = 1;
    out.answer = t_answer.data();
    out.answerLen = answerLen;
    return out;
}

}  // namespace

OutboundResult COutboundSender::Send(const OutboundMessage& message) {
    OutboundResult out;
    const int kind = static_cast<int>(message.kind);
    if (message.frame == nullptr || kind < 0 || kind >= OUTBOUNDKIND_COUNT) return out;
    switch (Decide(message.kind, OcppProtocol_GetStatus())) {
        case ROUTE_ONEWAY:
            out.result = OcppProtocol_SendMessage(message.frame, message.len);
            return out;
        case ROUTE_REQUEST:
            return Request(message);
        case ROUTE_QUEUE: {
            // In the synchronous SDK mode, or before the queue exists, the
            // producer waits for the CSMS itself.
            const QueueFn queue = g_transactionQueue.load();
            if (queue == nullptr || g_eSdkVersion.load() == 1) return Request(message);
            out.result = queue(message);
            return out;
        }
        case ROUTE_OFFLINE:
            out.result = g_offlineStore.load()(message);
            return out;
        case ROUTE_HOLD:
            break;
    }
    return out;
}

OutboundResult COutboundSender::Send(OUTBOUNDKIND kind, const std::string& frame) {
    OutboundMessage message;
    message.kind = kind;
    message.frame = frame.c_str();
    message.len = static_cast<int>(frame.size());
    return Send(message);
}

void COutboundSender::SetOfflineStore(OfflineFn store) {
    g_offlineStore.store(store != nullptr ? store : &NoOfflineStore);
}

void COutboundSender::SetTransactionQueue(QueueFn queue) { g_transactionQueue.store(queue); }

bool COutboundSender::QueueTransactionMessage(const OutboundMessage& message) {
    const QueueFn queue = g_transactionQueue.load();
    if (queue == nullptr || message.frame == nullptr) return false;
    queue(message);
    return true;
}

const char* COutboundSender::KindName(OUTBOUNDKIND kind) {
    static const char* const kNames[OUTBOUNDKIND_COUNT] = {
        "answer",           "request",                   "BootNotification/Heartbeat",
        "StatusNotification", "SecurityEventNotification", "TransactionEvent",
        "NotifyEvent",      "NotifyEVChargingNeeds",     "NotifyEVChargingSchedule",
        "FirmwareStatusNotification"};
    const int index = static_cast<int>(kind);
    if (index < 0 || index >= OUTBOUNDKIND_COUNT) return "";
    return kNames[index];
}

size_t COutboundSender::AnswerCapacity() { return t_answer.size(); }
