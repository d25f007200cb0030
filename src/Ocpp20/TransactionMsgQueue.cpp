#include "Ocpp20/TransactionMsgQueue.h"

#include <json/json.h>

#include <cstdio>
#include <memory>
#include <set>
#include <sstream>
#include <vector>

#include "Ocpp20/Ocpp20Transaction.h"
#include "Ocpp20/OcppProtocol20.h"
#include "Ocpp20/Process/TransactionManager.h"
#include "Ocpp20/Process/VariableCache.h"
#include "OcppProtocol/OcppProtocol.h"
#include "OcppProtocol/OcppSendSeam.h"
#include "OcppProtocol/OutboundSender.h"
#include "Process/OfflineCache.h"
#include "Util/CriticalSectionManager.h"
#include "Util/TransactionMessageManager.h"
#include "Util/Tools.h"

namespace {
pthread_mutex_t g_sendLock = PTHREAD_MUTEX_INITIALIZER;
const char kStartMarkerAction[] = "NotifyStartTransaction";

bool QueueMayGoOn() { return OcppProtocol_GetStatus() == SDKSTATUS_OK && COcppSendSeam::LinkUp(); }

// A retried frame: a new message id, written compact with at most 5 decimals.
std::string Rewrite(const std::string& frame) {
    Json::Value root;
    if (!CTools::ParseJson(frame, root) || !root.isArray() || root.size() < 4) return frame;
    root[1] = CTools::GetUuid();
    Json::StreamWriterBuilder writer;
    writer.settings_["commentStyle"] = "None";
    writer.settings_["indentation"] = "";
    writer.settings_["precision"] = 5;
    writer.settings_["precisionType"] = "decimal";
    return Json::writeString(writer, root);
}

int SeqNoOf(const std::string& frame) {
    Json::Value root;
    if (!CTools::ParseJson(frame, root) || !root.isArray() || root.size() < 4 || !root[3].isObject()) return -1;
    const Json::Value& seqNo = root[3]["seqNo"];
    return seqNo.isInt() ? seqNo.asInt() : -1;
}

std::string ActionOf(const std::string& frame) {
    Json::Value root;
    if (!CTools::ParseJson(frame, root) || !root.isArray() || root.size() < 3 || !root[2].isString()) return "";
    return root[2].asString();
}
}  // namespace

pthread_mutex_t* CTransactionMsgQueue::SendLock() { return &g_sendLock; }

void CTransactionMsgQueue::Start() {
    COutboundSender::SetOfflineStore(&COfflineCache::Store);
    COutboundSender::SetTransactionQueue(&CTransactionMsgQueue::Queue);
    CTransactionMessageManager::GetInstance()->RegisterTimer(1, &Ocpp20ProtocolPrivate_MsgSendTimerProc, nullptr);
}

int CTransactionMsgQueue::Queue(const OutboundMessage& message) {
    if (message.frame == nullptr) return 0;
    CTransactionMsgQueue* self = GetInstance();
    Entry entry;
    entry.frame.assign(message.frame, static_cast<size_t>(message.len));
    entry.transactionId = message.transactionId != nullptr ? message.transactionId : "";
    if (ActionOf(entry.frame) == kStartMarkerAction) {
        self->PushStartMarker(entry.transactionId);
        return 1;
    }
    {
        std::lock_guard<std::mutex> lock(self->m_mutex);
        // Older rows go first: the event waits behind them.
        if (self->m_orphans.exchange(false)) self->AdoptLocked();
        entry.rowId = COfflineCache::GetInstance()->JournalTransactionMessage(message.subtype, message.seqNo,
                                                                              entry.frame, entry.transactionId);
        entry.epoch = self->m_epoch;
        entry.serial = ++self->m_serial;
        self->m_queue.push_back(entry);
    }
    CTransactionMessageManager::GetInstance()->Wake();
    return 1;
}

void CTransactionMsgQueue::AdoptLocked() {
    std::set<int64_t> held;
    for (const Entry& e : m_queue)
        if (e.rowId != 0) held.insert(e.rowId);
    for (const COfflineCache::Row& row : COfflineCache::GetInstance()->ReadRows(-1)) {
        if (held.count(row.id) != 0) continue;
        Entry entry;
        entry.rowId = row.id;
        entry.msgtype = row.msgtype;
        entry.frame = row.frame;
        entry.transactionId = row.extra;
        entry.epoch = m_epoch;
        entry.serial = ++m_serial;
        m_queue.push_back(entry);
    }
}

void CTransactionMsgQueue::PushStartMarker(const std::string& transactionId) {
    char frame[512];
    snprintf(frame, sizeof frame,
             "[2,\"000000000000\",\"NotifyStartTransaction\",{\"transactionInfo\":{\"transactionId\":\"%s\"}}]",
             transactionId.c_str());
    Entry entry;
    entry.marker = true;
    entry.frame = frame;
    entry.transactionId = transactionId;
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        entry.epoch = m_epoch;
        entry.serial = ++m_serial;
        m_queue.push_back(entry);
    }
    CTransactionMessageManager::GetInstance()->Wake();
}

size_t CTransactionMsgQueue::Size() {
    std::lock_guard<std::mutex> lock(m_mutex);
    return m_queue.size();
}

void CTransactionMsgQueue::Flush() {
    std::deque<Entry> dropped;
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        dropped.swap(m_queue);
        ++m_epoch;
    }
    // If the link comes back without a replay, the kept rows still go first.
    m_orphans = true;
    for (const Entry& e : dropped)
        if (e.marker) CTransactionManager::GetInstance()->NotifyStartTransaction(e.transactionId);
}

CTransactionMsgQueue::SENDOUTCOME CTransactionMsgQueue::SendWithAttempts(std::string& frame, bool callErrorFails,
                                                                         bool (*linkUsable)(),
                                                                         const std::string& transactionId,
                                                                         std::string* answer) {
    CVariableCache* variables = CVariableCache::GetInstance();
    const int attempts = variables->OCPPCommCtrlrMessageAttemptsTransactionEvent();
    const int64_t intervalMs = static_cast<int64_t>(variables->OCPPCommCtrlrMessageAttemptIntervalTransactionEvent()) * 1000;
    for (int attempt = 1;; ++attempt) {
        const OutboundResult out = COutboundSender::SendStored(frame.c_str(), static_cast<int>(frame.size()));
        if (out.answer != nullptr) {
            if (!callErrorFails || !COcppProtocol20::IsReponseError(out.answer, static_cast<size_t>(out.answerLen))) {
                answer->assign(out.answer, static_cast<size_t>(out.answerLen));
                return SENDOUTCOME_ANSWERED;
            }
        } else if (!linkUsable()) {
            return SENDOUTCOME_LINKLOST;
        }
        LOG_INFO("20:MsgSendTimerProc going attempts<%s>", transactionId.c_str());
        frame = Rewrite(frame);
        if (attempt >= attempts) {
            LOG_ERROR("20:MsgSendTimerProc gave up<%s> seqNo:%d after %d attempts", transactionId.c_str(),
                      SeqNoOf(frame), attempt);
            return SENDOUTCOME_GAVEUP;
        }
        if (!CTransactionMessageManager::GetInstance()->Pause(CTools::GetCurRunTimeMilSec() + intervalMs * attempt,
                                                              linkUsable))
            return SENDOUTCOME_LINKLOST;
    }
}

void CTransactionMsgQueue::Drain() {
    for (;;) {
        Entry entry;
        {
            std::lock_guard<std::mutex> lock(m_mutex);
            if (OcppProtocol_GetStatus() == SDKSTATUS_OK && m_orphans.exchange(false)) AdoptLocked();
            if (m_queue.empty()) return;
            entry = m_queue.front();
        }
        auto finish = [this, &entry]() {
            std::lock_guard<std::mutex> lock(m_mutex);
            if (!m_queue.empty() && m_queue.front().serial == entry.serial) m_queue.pop_front();
        };
        if (entry.marker) {
            CTransactionManager::GetInstance()->NotifyStartTransaction(entry.transactionId);
            LOG_INFO("20:MsgSendTimerProc notify start transaction<%s>", entry.transactionId.c_str());
            finish();
            continue;
        }
        const bool transactionEvent = entry.msgtype == OFFLINEMSGTYPE_TRANSACTIONEVENT;
        if (transactionEvent) {
            const std::string action = ActionOf(entry.frame);
            const char* why = nullptr;
            if (action.empty()) why = "20:MsgSendTimerProc action is empty";
            else if (action != "TransactionEvent") why = "20:MsgSendTimerProc action is not TransactionEvent";
            else if (entry.transactionId.empty()) why = "20:MsgSendTimerProc transactionId is empty";
            if (why != nullptr) {
                LOG_INFO("%s", why);
                COfflineCache::GetInstance()->DeleteRow(entry.rowId);
                finish();
                continue;
            }
        }
        if (!QueueMayGoOn()) {
            // Not an attempt: the journal keeps the frames for the replay.
            Flush();
            return;
        }
        std::string answer;
        SENDOUTCOME outcome;
        {
            CSectionGuard sending(SendLock(), __FILE__, __LINE__, __FUNCTION__);
            {
                std::lock_guard<std::mutex> lock(m_mutex);
                if (entry.epoch != m_epoch) continue;  // flushed meanwhile: the replay has it
            }
            std::string frame = entry.frame;  // a retry rewrites it
            outcome = SendWithAttempts(frame, transactionEvent, &QueueMayGoOn, entry.transactionId, &answer);
            if (outcome != SENDOUTCOME_LINKLOST) COfflineCache::GetInstance()->DeleteRow(entry.rowId);
        }
        if (outcome == SENDOUTCOME_LINKLOST) {
            Flush();
            return;
        }
        finish();
        if (outcome == SENDOUTCOME_ANSWERED && transactionEvent)
            Ocpp20ProtocolPrivate_OnTransactionEventAnswer(entry.frame.c_str(), entry.frame.size(), answer.c_str(),
                                                           answer.size(), true);
    }
}

void* Ocpp20ProtocolPrivate_MsgSendTimerProc(void*) {
    if (g_eSdkVersion.load() == 1) return nullptr;
    CTransactionMsgQueue::GetInstance()->Drain();
    return nullptr;
}
