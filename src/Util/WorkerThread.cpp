#include "Util/WorkerThread.h"

#include "Util/Thread.h"

void CWorkerThread::Start(Body body, void* self) {
    m_body = body;
    m_self = self;
    m_thread = LinuxCreateThread(nullptr, body, self);
    m_running = true;
}

void CWorkerThread::Stop() {
    {
        std::lock_guard<std::mutex> lock(m_wakeMutex);
        m_stop = true;
    }
    m_wakeCv.notify_all();
    if (m_running) pthread_join(m_thread, nullptr);
    m_running = false;
}

void CWorkerThread::ArmRestart() {
    {
        std::lock_guard<std::mutex> lock(m_wakeMutex);
        m_stop = false;
    }
    m_afterReset = true;
}

void CWorkerThread::Resume() {
    if (m_afterReset.exchange(false)) Start(m_body, m_self);
}
