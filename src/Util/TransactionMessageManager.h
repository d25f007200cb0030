#pragma once
#include <pthread.h>

#include <cstdint>
#include <list>

#include "Util/Singleton.h"
#include "Util/TimerManager.h"
#include "Util/WorkerThread.h"

// Periodic callbacks on a thread of their own: the transaction queue's sender
// blocks for whole retry schedules, which must not hold up the general timers.
// The thread sleeps on a condition variable: Wake() runs every callback at
// once (a frame was pushed), otherwise a callback runs when its interval is
// due, and the timers are looked at no later than every 1.2 s.
class CTransactionMessageManager : public CSingleton<CTransactionMessageManager> {
public:
    // The same callback and argument registered again keep their one timer.
    unsigned long long RegisterTimer(int seconds, TimerCallback callback, void* argument);
    void UnRegisterTimer(unsigned long long id);
    size_t Count();

    void Wake();
    // Waits until the movable clock reaches `untilMs` (CTools run time). False
    // when `keepWaiting` says no or the manager is stopping: the caller gives
    // up the wait and keeps what it was holding.
    bool Pause(int64_t untilMs, bool (*keepWaiting)());
    bool Stopping() const { return m_worker.Stopping(); }

private:
    friend class CSingleton<CTransactionMessageManager>;
    CTransactionMessageManager();
    ~CTransactionMessageManager();
    void ResetInPlace();
    void Resume();
    void StopWorker();
    static void* TimerProc(void* self);
    void Loop();

    pthread_mutex_t m_mutex;  // the list
    std::list<TimerItem*> m_items;
    CWorkerThread m_worker;
    bool m_woken = false;  // worker's wake lock
};
