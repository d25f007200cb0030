#include "Util/TimerManager.h"

#include <algorithm>
#include <chrono>
#include <vector>

#include "Util/CriticalSectionManager.h"
#include "Util/Tools.h"

namespace {
const int64_t kTickMs = 200;
}

CTimerManager::CTimerManager() {
    pthread_mutex_init(&m_mutex, nullptr);
    pthread_mutex_init(&m_runMutex, nullptr);
    m_worker.Start(&CTimerManager::TimerProc, this);
}

CTimerManager::~CTimerManager() {
    StopWorker();
    pthread_mutex_destroy(&m_runMutex);
    pthread_mutex_destroy(&m_mutex);
}

// Joins the worker (after the callback in hand) and drops every timer.
void CTimerManager::StopWorker() {
    m_worker.Stop();
    OCPP_SECTION(&m_mutex);
    for (TimerItem* item : m_items) delete item;
    m_items.clear();
}

// Never freed: a timer owner may still hold the pointer to unregister with.
void CTimerManager::ResetInPlace() {
    StopWorker();
    {
        std::lock_guard<std::mutex> lock(m_worker.WakeMutex());
        m_changed = false;
    }
    m_worker.ArmRestart();
}

void CTimerManager::Resume() { m_worker.Resume(); }

unsigned long long CTimerManager::GetTimerID() {
    unsigned long long id = 1;
    for (;;) {
        bool used = false;
        for (const TimerItem* item : m_items) {
            if (item->id == id) {
                used = true;
                break;
            }
        }
        if (!used) return id;
        ++id;
    }
}

unsigned long long CTimerManager::RegisterTimer(int seconds, TimerCallback callback, void* argument) {
    if (callback == nullptr) return 0;
    unsigned long long id;
    {
        OCPP_SECTION(&m_mutex);
        TimerItem* item = new TimerItem();
        item->callback = callback;
        item->intervalMs = static_cast<uint32_t>(seconds < 0 ? 0 : seconds) * 1000u;
        item->lastRunMs = CTools::GetCurRunTimeMilSec();
        item->id = id = GetTimerID();
        item->argument = argument;
        m_items.push_back(item);
    }
    {
        std::lock_guard<std::mutex> lock(m_worker.WakeMutex());
        m_changed = true;
    }
    m_worker.WakeCv().notify_all();
    return id;
}

void CTimerManager::UnRegisterTimer(unsigned long long id) {
    {
        OCPP_SECTION(&m_mutex);
        for (auto it = m_items.begin(); it != m_items.end(); ++it) {
            if ((*it)->id == id) {
                delete *it;
                m_items.erase(it);
                break;
            }
        }
    }
    // An owner that unregisters and then frees its argument must not race a
    // callback in flight; from inside a callback there is nothing to wait for.
    bool self = false;
    {
        std::lock_guard<std::mutex> lock(m_worker.WakeMutex());
        self = m_running && pthread_equal(m_runningThread, pthread_self());
    }
    if (!self) {
        OCPP_SECTION(&m_runMutex);
    }
}

bool CTimerManager::IsRegistered(unsigned long long id, TimerCallback callback, void* argument) {
    OCPP_SECTION(&m_mutex);
    for (const TimerItem* item : m_items)
        if (item->id == id && item->callback == callback && item->argument == argument) return true;
    return false;
}

size_t CTimerManager::Count() {
    OCPP_SECTION(&m_mutex);
    return m_items.size();
}

int CTimerManager::RunDue() {
    OCPP_SECTION(&m_runMutex);
    {
        std::lock_guard<std::mutex> lock(m_worker.WakeMutex());
        m_running = true;
        m_runningThread = pthread_self();
    }
    std::vector<unsigned long long> due;
    {
        OCPP_SECTION(&m_mutex);
        const int64_t now = CTools::GetCurRunTimeMilSec();
        for (const TimerItem* item : m_items)
            if (now - item->lastRunMs >= static_cast<int64_t>(item->intervalMs)) due.push_back(item->id);
    }
    int ran = 0;
    for (unsigned long long id : due) {
        TimerCallback callback = nullptr;
        void* argument = nullptr;
        {
            OCPP_SECTION(&m_mutex);
            for (const TimerItem* item : m_items) {
                if (item->id == id) {
                    callback = item->callback;
                    argument = item->argument;
                    break;
                }
            }
        }
        if (callback == nullptr) continue;  // removed by an earlier callback
        callback(argument);
        ++ran;
        OCPP_SECTION(&m_mutex);
        const int64_t end = CTools::GetCurRunTimeMilSec();
        for (TimerItem* item : m_items)
            if (item->id == id && item->callback == callback) item->lastRunMs = end;
    }
    {
        std::lock_guard<std::mutex> lock(m_worker.WakeMutex());
        m_running = false;
    }
    return ran;
}

int64_t CTimerManager::NextDueMs() {
    OCPP_SECTION(&m_mutex);
    int64_t next = INT64_MAX;
    for (const TimerItem* item : m_items) next = std::min(next, item->lastRunMs + static_cast<int64_t>(item->intervalMs));
    return next;
}

void* CTimerManager::TimerProc(void* self) {
    static_cast<CTimerManager*>(self)->Loop();
    return nullptr;
}

void CTimerManager::Loop() {
    for (;;) {
        // Sleep until the earliest timer is due (at the 200 ms tick's granularity),
        // or until a registration or shutdown wakes us.
        const int64_t next = NextDueMs();
        int64_t waitMs = next == INT64_MAX ? 60000 : next - CTools::GetCurRunTimeMilSec();
        waitMs = std::max<int64_t>(kTickMs, std::min<int64_t>(waitMs, 60000));
        {
            std::unique_lock<std::mutex> lock(m_worker.WakeMutex());
            m_worker.WakeCv().wait_for(lock, std::chrono::milliseconds(waitMs),
                                       [this] { return m_worker.Stopping() || m_changed; });
            if (m_worker.Stopping()) return;
            m_changed = false;
        }
        RunDue();
    }
}
