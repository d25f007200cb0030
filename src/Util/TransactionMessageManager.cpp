#include "Util/TransactionMessageManager.h"

#include <algorithm>
#include <chrono>
#include <vector>

#include "Util/CriticalSectionManager.h"
#include "Util/Tools.h"

namespace {
const int64_t kCeilingMs = 1200;
const int64_t kPauseSliceMs = 100;  // the clock may be moved by a test: look again this often
}  // namespace

CTransactionMessageManager::CTransactionMessageManager() {
    pthread_mutex_init(&m_mutex, nullptr);
    m_worker.Start(&CTransactionMessageManager::TimerProc, this);
}

CTransactionMessageManager::~CTransactionMessageManager() {
    StopWorker();
    pthread_mutex_destroy(&m_mutex);
}

// Joins the worker; a retry pause in progress ends at once (the frame it holds
// stays in the journal), then every timer is dropped.
void CTransactionMessageManager::StopWorker() {
    m_worker.Stop();
    OCPP_SECTION(&m_mutex);
    for (TimerItem* item : m_items) delete item;
    m_items.clear();
}

// Never freed: producers may hold the pointer to wake the worker.
void CTransactionMessageManager::ResetInPlace() {
    StopWorker();
    {
        std::lock_guard<std::mutex> lock(m_worker.WakeMutex());
        m_woken = false;
    }
    m_worker.ArmRestart();
}

void CTransactionMessageManager::Resume() { m_worker.Resume(); }

unsigned long long CTransactionMessageManager::RegisterTimer(int seconds, TimerCallback callback, void* argument) {
    if (callback == nullptr) return 0;
    OCPP_SECTION(&m_mutex);
    for (const TimerItem* item : m_items)
        if (item->callback == callback && item->argument == argument) return item->id;
    unsigned long long id = 1;
    while (std::any_of(m_items.begin(), m_items.end(), [id](const TimerItem* item) { return item->id == id; })) ++id;
    TimerItem* item = new TimerItem();
    item->callback = callback;
    item->intervalMs = static_cast<uint32_t>(seconds < 0 ? 0 : seconds) * 1000u;
    item->lastRunMs = CTools::GetCurRunTimeMilSec();
    item->id = id;
    item->argument = argument;
    m_items.push_back(item);
    return id;
}

void CTransactionMessageManager::UnRegisterTimer(unsigned long long id) {
    OCPP_SECTION(&m_mutex);
    for (auto it = m_items.begin(); it != m_items.end(); ++it) {
        if ((*it)->id != id) continue;
        delete *it;
        m_items.erase(it);
        return;
    }
}

size_t CTransactionMessageManager::Count() {
    OCPP_SECTION(&m_mutex);
    return m_items.size();
}

void CTransactionMessageManager::Wake() {
    {
        std::lock_guard<std::mutex> lock(m_worker.WakeMutex());
        m_woken = true;
    }
    m_worker.WakeCv().notify_all();
}

bool CTransactionMessageManager::Pause(int64_t untilMs, bool (*keepWaiting)()) {
    for (;;) {
        if (m_worker.Stopping()) return false;
        if (keepWaiting != nullptr && !keepWaiting()) return false;
        const int64_t left = untilMs - CTools::GetCurRunTimeMilSec();
        if (left <= 0) return true;
        std::unique_lock<std::mutex> lock(m_worker.WakeMutex());
        m_worker.WakeCv().wait_for(lock, std::chrono::milliseconds(std::min(left, kPauseSliceMs)),
                          [this] { return m_worker.Stopping(); });
    }
}

void* CTransactionMessageManager::TimerProc(void* self) {
    static_cast<CTransactionMessageManager*>(self)->Loop();
    return nullptr;
}

void CTransactionMessageManager::Loop() {
    for (;;) {
        struct Due {
            TimerCallback callback;
            void* argument;
            unsigned long long id;
        };
        std::vector<Due> due;
        bool woken;
        int64_t waitMs = kCeilingMs;
        {
            std::lock_guard<std::mutex> lock(m_worker.WakeMutex());
            if (m_worker.Stopping()) return;
            woken = m_woken;
            m_woken = false;
        }
        {
            OCPP_SECTION(&m_mutex);
            const int64_t now = CTools::GetCurRunTimeMilSec();
            for (const TimerItem* item : m_items) {
                const int64_t left = item->lastRunMs + item->intervalMs - now;
                if (woken || left <= 0) {
                    due.push_back({item->callback, item->argument, item->id});
                } else {
                    waitMs = std::min(waitMs, left);
                }
            }
        }
        for (const Due& d : due) {
            if (m_worker.Stopping()) return;
            d.callback(d.argument);
            OCPP_SECTION(&m_mutex);
            for (TimerItem* item : m_items)
                if (item->id == d.id) item->lastRunMs = CTools::GetCurRunTimeMilSec();
        }
        std::unique_lock<std::mutex> lock(m_worker.WakeMutex());
        if (!due.empty()) continue;
        m_worker.WakeCv().wait_for(lock, std::chrono::milliseconds(waitMs), [this] { return m_worker.Stopping() || m_woken; });
    }
}
