// The wait table: CSMS CALLs the host still has to answer, and the station's
// own requests blocked until their answer arrives or the time-out sweep ends them.
#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <ctime>

#include "Ocpp20/Protocol/JsonText.h"
#include "Util/CriticalSectionManager.h"
#include "Util/Tools.h"
#include "WebSocket/WebSocketClient.h"

namespace {
// Extra real time a synchronous request waits beyond its time-out if no sweep releases it.
const int kSweepGraceSec = 2;

int64_t BoundWaitSec(int64_t seconds) {
    const int64_t most = CWebSocketClient::kMaxWaitSec;
    return seconds < 1 ? 1 : (seconds > most ? most : seconds);
}

bool WaitSemaphore(sem_t* sem, int64_t seconds) {
    struct timespec deadline;
    clock_gettime(CLOCK_MONOTONIC, &deadline);
    deadline.tv_sec += static_cast<time_t>(BoundWaitSec(seconds));
    for (;;) {
        if (sem_clockwait(sem, CLOCK_MONOTONIC, &deadline) == 0) return true;
        if (errno != EINTR) return false;
    }
}
}  // namespace

void CWebSocketClient::ReleaseWaiters() {
    // Inbound items have no waiter; a late host answer then finds nothing and is dropped.
    OCPP_SECTION_NAMED(guard, &m_waitLock);
    for (auto it = m_waitTable.begin(); it != m_waitTable.end();) {
        if (it->second->bInbound) {
            FreeItem(it->second);
            it = m_waitTable.erase(it);
        } else {
            ++it;
        }
    }
    // Outbound items belong to their blocked senders: wake them and wait until they have left.
    while (!m_waitTable.empty()) {
        for (auto& entry : m_waitTable) {
            if (entry.second->iStatus == -1) {
                entry.second->iStatus = 0;
                sem_post(&entry.second->sem);
            }
        }
        m_removedCv.wait_for(guard, std::chrono::milliseconds(300));
    }
}

size_t CWebSocketClient::WaitingCount() {
    OCPP_SECTION(&m_waitLock);
    return m_waitTable.size();
}

SendItem* CWebSocketClient::NewItem(const std::string& id, uint8_t inbound) {
    SendItem* item = static_cast<SendItem*>(calloc(1, sizeof(SendItem)));
    if (item == nullptr) return nullptr;
    CTools::CopyField(item->szMessageId, id);
    item->iStatus = -1;
    sem_init(&item->sem, 0, 0);
    item->bInbound = inbound;
    item->iCreated = CTools::GetCurRunTimeSec();
    return item;
}

void CWebSocketClient::FreeItem(SendItem* item) {
    if (item == nullptr) return;
    sem_destroy(&item->sem);
    free(item->pAnswer);
    free(item);
}

int CWebSocketClient::SendMessage(const char* messageId, const char* message, int length, char* answer,
                                  int* answerLength) {
    if (messageId == nullptr || message == nullptr || length <= 0 || answer == nullptr || answerLength == nullptr) {
        return 0;
    }
    if (IsServiceThread()) {
        // The answer could only arrive on this very thread: waiting would stall the link.
        LOG_ERROR("synchronous request %s refused on the websocket service thread", messageId);
        return 0;
    }
    int capacity = *answerLength > 0 ? *answerLength : kDefaultAnswerCapacity;
    std::string id(messageId);
    {
        OCPP_SECTION(&m_waitLock);
        if (m_waitTable.find(id) != m_waitTable.end()) {
            LOG_ERROR("request %s already waiting", id.c_str());
            return 0;
        }
        SendItem* item = NewItem(id, 0);
        if (item == nullptr) return 0;
        m_waitTable[id] = item;
    }
    LOG_INFO("[OCPP=>CSMS] %s", OneLine(message, length).c_str());
    SendItem* item = nullptr;
    bool closeNeeded = false;
    if (!WriteFrame(message, length, "webSocket client innerRequestMessage false SendLen<%d> MessageLen<%d>",
                    closeNeeded)) {
        {
            OCPP_SECTION(&m_waitLock);
            auto it = m_waitTable.find(id);
            if (it != m_waitTable.end()) {
                FreeItem(it->second);
                m_waitTable.erase(it);
            }
        }
        m_removedCv.notify_all();
        if (closeNeeded) Close();
        return 0;
    }
    {
        OCPP_SECTION(&m_waitLock);
        auto it = m_waitTable.find(id);
        item = it != m_waitTable.end() ? it->second : nullptr;
    }
    if (item == nullptr) return 0;
    // The sweeper or Close ends the wait; the real-time bound only guards against neither running.
    WaitSemaphore(&item->sem, m_iMessageTimeout + kSweepGraceSec);
    int result = 0;
    {
        OCPP_SECTION(&m_waitLock);
        auto it = m_waitTable.find(id);
        if (it == m_waitTable.end()) return 0;
        item = it->second;
        if (item->iStatus == 1 && item->pAnswer != nullptr) {
            if (item->iAnswerLen < capacity) {
                memcpy(answer, item->pAnswer, static_cast<size_t>(item->iAnswerLen) + 1);
                *answerLength = item->iAnswerLen;
                result = 1;
            } else {
                LOG_ERROR("answer to %s of %d bytes does not fit %d", id.c_str(), item->iAnswerLen, capacity);
            }
        }
        FreeItem(item);
        m_waitTable.erase(it);
    }
    m_removedCv.notify_all();
    return result;
}

std::string CWebSocketClient::ErrorFrame(const std::string& id, const char* code, const char* description) {
    // The id is the CSMS's text: written as a JSON string so quotes and control bytes stay inside it.
    std::string frame = "[4,";
    CJsonText::AppendString(frame, id);
    frame.push_back(',');
    CJsonText::AppendString(frame, code);
    frame.push_back(',');
    CJsonText::AppendString(frame, description);
    frame += ",{}]";
    return frame;
}

void CWebSocketClient::SendOwnError(const std::string& id, const char* code, const char* description) {
    const std::string frame = ErrorFrame(id, code, description);
    LOG_INFO("[OCPP=>CSMS] %s", OneLine(frame.c_str(), static_cast<int>(frame.size())).c_str());
    bool closeNeeded = false;
    WriteFrame(frame.c_str(), static_cast<int>(frame.size()),
               "webSocket client sendMessage false SendLen<%d> MessageLen<%d>", closeNeeded);
    if (closeNeeded) Close();
}

void CWebSocketClient::SweepTimeouts() {
    int state;
    {
        OCPP_SECTION(&m_socketLock);
        state = m_iState;
    }
    std::vector<std::string> unanswered;
    {
        OCPP_SECTION(&m_waitLock);
        int64_t now = CTools::GetCurRunTimeSec();
        for (auto& entry : m_waitTable) {
            SendItem* item = entry.second;
            bool expired = state == 3 || (item->iStatus == -1 && now - item->iCreated > m_iMessageTimeout);
            if (!expired) continue;
            if (item->bInbound) {
                unanswered.push_back(entry.first);
            } else if (item->iStatus == -1) {
                item->iStatus = 0;
                sem_post(&item->sem);
            }
        }
    }
    for (const std::string& id : unanswered) {
        std::string frame = ErrorFrame(id, "InternalError", "Request Timeout");
        SendMessage(frame.c_str(), static_cast<int>(frame.size()));
    }
}

