#pragma once
#include <pthread.h>

#include <cstdint>
#include <list>

#include "Util/Singleton.h"
#include "Util/WorkerThread.h"

typedef void* (*TimerCallback)(void*);

struct TimerItem {
    TimerCallback callback;
    uint32_t intervalMs;
    int64_t lastRunMs;
    unsigned long long id;
    void* argument;
};

// Periodic callbacks run one after another on one worker thread. Intervals are
// measured from the end of the previous run, so periods drift by the run time.
class CTimerManager : public CSingleton<CTimerManager> {
public:
    unsigned long long RegisterTimer(int seconds, TimerCallback callback, void* argument);
    void UnRegisterTimer(unsigned long long id);
    // Whether `id` is still this callback's: a reset drops every timer and reuses ids.
    bool IsRegistered(unsigned long long id, TimerCallback callback, void* argument);

    // Runs every due callback once; what the worker does on each wake-up.
    int RunDue();
    size_t Count();

protected:
    friend class CSingleton<CTimerManager>;
    CTimerManager();
    virtual ~CTimerManager();
    unsigned long long GetTimerID();  // caller holds m_mutex

private:
    static void* TimerProc(void* self);
    void StopWorker();
    void ResetInPlace();
    void Resume();
    void Loop();
    int64_t NextDueMs();

    pthread_mutex_t m_mutex;      // the list
    pthread_mutex_t m_runMutex;   // held while callbacks run
    std::list<TimerItem*> m_items;
    CWorkerThread m_worker;
    bool m_changed = false;  // worker's wake lock
    pthread_t m_runningThread{};
    bool m_running = false;
};
