#include "OcppProtocol/MessageCallBack.h"

#include <chrono>
#include <cstdlib>
#include <cstring>
#include <exception>

#include "Ocpp20/OcppProtocol20.h"
#include "OcppProtocol/InboundFrame.h"
#include "OcppProtocol/OcppProtocol.h"
#include "Util/CriticalSectionManager.h"
#include "Util/Thread.h"
#include "Util/Tools.h"

std::atomic<CMessageCallBack::FrameObserver> CMessageCallBack::s_frameObserver{nullptr};

namespace {
const auto kIdleWait = std::chrono::milliseconds(200);

inline char* Payload(MessageCallBackItem* item) { return reinterpret_cast<char*>(item) + sizeof(MessageCallBackItem); }

struct WorkerStart {
    CMessageCallBack* self;
    uint64_t generation;
};
}  // namespace

void CMessageCallBack::SetFrameObserver(FrameObserver observer) { s_frameObserver.store(observer); }

CMessageCallBack::CMessageCallBack() { pthread_mutex_init(&m_mutex, nullptr); }

void CMessageCallBack::Open() {
    if (!m_closed.load()) return;
    WorkerStart* start = new WorkerStart{this, 0};
    {
        OCPP_SECTION(&m_mutex);
        if (!m_closed.load()) {
            delete start;
            return;
        }
        start->generation = ++m_generation;
        const pthread_t worker = LinuxCreateThread(nullptr, &CMessageCallBack::MessageProc, start);
        if (pthread_equal(worker, pthread_t{})) {
            delete start;  // stays closed; the next GetInstance tries again
            return;
        }
        m_thread = worker;
        m_hasThread = true;
        m_closed.store(false);
    }
}

void CMessageCallBack::OnWebSocketMessage(std::unique_ptr<CInboundFrame> frame) {
    if (!frame || HandleNow(frame)) return;
    Push(Queued{nullptr, frame.release()}, true, false);
}

// Saves the two thread hand-offs of a round trip the CSMS may repeat many times.
// Never waits for the turn: the worker may be waiting for this very thread.
bool CMessageCallBack::HandleNow(std::unique_ptr<CInboundFrame>& frame) {
    if (!AnswersAtOnce(*frame)) return false;
    std::unique_lock<std::mutex> turn(m_turnMutex, std::try_to_lock);
    if (!turn.owns_lock()) return false;
    {
        OCPP_SECTION(&m_mutex);
        if (m_closed.load() || !m_frames.empty() || !m_priority.empty()) return false;
    }
    Dispatch(Queued{nullptr, frame.get()});
    frame.reset();
    return true;
}

void CMessageCallBack::OnWebSocketMessage(const char* frame, unsigned int len) {
    OnWebSocketMessage(CInboundFrame::Copy(frame, len));
}

void CMessageCallBack::OnMessage(const char* record, unsigned int len, int priority) {
    if (len > kMaxRecordLen) {
        LOG_ERROR("CMessageCallBack::OnMessage MessageLen over 10*MAX_PACKAGE_LEN");
        return;
    }
    if (record == nullptr && len > 0) return;
    MessageCallBackItem* item = static_cast<MessageCallBackItem*>(calloc(1, sizeof(MessageCallBackItem) + len));
    if (item == nullptr) {
        LOG_ERROR("CMessageCallBack: out of memory for %u bytes", len);
        return;
    }
    item->kind = 1;
    item->length = len;
    if (len > 0) memcpy(Payload(item), record, len);
    Push(Queued{item, nullptr}, false, priority != 0);
}

void CMessageCallBack::Free(const Queued& item) {
    free(item.record);
    delete item.frame;
}

void CMessageCallBack::Push(const Queued& item, bool front, bool priority) {
    {
        OCPP_SECTION(&m_mutex);
        if (m_closed.load()) {
            // Released while the producer still held the pointer: nobody would deliver it.
            Free(item);
            return;
        }
        if (priority) {
            m_priority.push_back(item);
        } else if (front) {
            m_frames.push_front(item);
        } else {
            m_frames.push_back(item);
        }
    }
    Signal();
}

void CMessageCallBack::Signal() {
    {
        std::lock_guard<std::mutex> lock(m_wakeMutex);
        m_signalled = true;
    }
    m_wake.notify_all();
}

void CMessageCallBack::Reset() {
    OCPP_SECTION(&m_mutex);
    ClearLocked();
}

size_t CMessageCallBack::Pending() {
    OCPP_SECTION(&m_mutex);
    return m_frames.size() + m_priority.size();
}

void CMessageCallBack::ClearLocked() {
    for (const Queued& item : m_frames) Free(item);
    for (const Queued& item : m_priority) Free(item);
    m_frames.clear();
    m_priority.clear();
}

void CMessageCallBack::Close() {
    pthread_t worker{};
    bool join = false;
    {
        OCPP_SECTION(&m_mutex);
        if (m_closed.load()) return;
        m_closed.store(true);
        ++m_generation;
        // Emptied now, so nothing queued before the release can reach the host.
        ClearLocked();
        if (m_hasThread) {
            worker = m_thread;
            m_hasThread = false;
            join = true;
        }
    }
    Signal();
    if (join && pthread_equal(worker, pthread_self())) {
        // Released from inside a host callback: the worker ends when the callback returns.
        pthread_detach(worker);
        return;
    }
    if (join) pthread_join(worker, nullptr);
    // A request being answered on the receiving thread ends before the stores it reads are released.
    std::lock_guard<std::mutex> turn(m_turnMutex);
}

void* CMessageCallBack::MessageProc(void* arg) {
    WorkerStart* start = static_cast<WorkerStart*>(arg);
    CMessageCallBack* self = start->self;
    const uint64_t generation = start->generation;
    delete start;
    self->Loop(generation);
    return nullptr;
}

void CMessageCallBack::Loop(uint64_t generation) {
    for (;;) {
        Queued item{nullptr, nullptr};
        bool drained = false;
        bool idle = false;
        std::unique_lock<std::mutex> turn(m_turnMutex);
        {
            OCPP_SECTION(&m_mutex);
            if (m_generation != generation) return;
            idle = m_priority.empty() && m_frames.empty();
            if (!idle) {
                const size_t backlog = m_priority.size() + m_frames.size();
                if (backlog > m_backlogPeak) m_backlogPeak = backlog;
                std::list<Queued>& from = m_priority.empty() ? m_frames : m_priority;
                item = from.front();
                from.pop_front();
                drained = backlog == 1 && m_backlogPeak >= kGiveBackBacklog;
                if (drained) m_backlogPeak = 0;
            }
        }
        if (idle) {
            turn.unlock();
            // A push after the look above has set the flag by the time this lock is ours.
            std::unique_lock<std::mutex> lock(m_wakeMutex);
            m_wake.wait_for(lock, kIdleWait, [this] { return m_signalled; });
            m_signalled = false;
            continue;
        }
        Dispatch(item);
        turn.unlock();
        // The frame's document goes as soon as its handler is done.
        Free(item);
        // A burst of small frames leaves the heap in pieces no single frame would give back.
        if (drained) CInboundFrame::GiveBackHeap();
    }
}

void CMessageCallBack::Dispatch(const Queued& item) {
    const int kind = item.frame != nullptr ? 0 : 1;
    try {
        if (item.frame != nullptr) {
            DispatchFrame(*item.frame);
            return;
        }
        OcppProtocolCallBack* callback = g_pOcppProtocolCallBack.load();
        if (callback != nullptr && callback->OnMessage != nullptr)
            callback->OnMessage(Payload(item.record), item.record->length);
    } catch (const std::exception& e) {
        LOG_ERROR("CMessageCallBack: item of kind %d failed: %s", kind, e.what());
    } catch (...) {
        LOG_ERROR("CMessageCallBack: item of kind %d failed", kind);
    }
}

bool CMessageCallBack::AnswersAtOnce(const CInboundFrame& frame) {
    switch (OcppProtocol_GetOcppProtocol()) {
        case OCPPPROTOCOL_201:
            return COcppProtocol20::AnswersAtOnce(frame);
        default:
            return false;
    }
}

// The one place where a frame meets the engine of the negotiated version.
void CMessageCallBack::DispatchFrame(const CInboundFrame& frame) {
    FrameObserver observer = s_frameObserver.load();
    if (observer != nullptr) observer(frame.Text(), static_cast<uint32_t>(frame.Length()));
    switch (OcppProtocol_GetOcppProtocol()) {
        case OCPPPROTOCOL_16:
            // the 1.6 engine takes the frame here
            break;
        case OCPPPROTOCOL_201:
            COcppProtocol20::OnMessage(frame);
            break;
        case OCPPPROTOCOL_21:
            // the 2.1 front end takes the frame here
            break;
        default:
            break;  // no protocol negotiated: nobody to answer
    }
}
