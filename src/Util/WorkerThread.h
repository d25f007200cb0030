#pragma once
#include <pthread.h>

#include <atomic>
#include <condition_variable>
#include <mutex>

// The one thread of a manager that a system reset stops in place and the
// manager's next use starts again. The owner's loop sleeps on WakeCv() under
// WakeMutex() and leaves once Stopping() is true.
class CWorkerThread {
public:
    typedef void* (*Body)(void*);

    void Start(Body body, void* self);
    // Sets the stop flag, wakes the loop and joins it; a second call has nothing to join.
    void Stop();
    // After Stop: clears the stop flag and lets the next Resume start the thread again.
    void ArmRestart();
    void Resume();

    bool Stopping() const { return m_stop.load(); }
    std::mutex& WakeMutex() { return m_wakeMutex; }
    std::condition_variable& WakeCv() { return m_wakeCv; }

private:
    std::mutex m_wakeMutex;
    std::condition_variable m_wakeCv;
    std::atomic<bool> m_stop{false};
    Body m_body = nullptr;
    void* m_self = nullptr;
    pthread_t m_thread{};
    bool m_running = false;                  // m_thread is there to join
    std::atomic<bool> m_afterReset{false};  // a reset stopped it; the next use starts it
};
