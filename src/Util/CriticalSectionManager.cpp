#include "Util/CriticalSectionManager.h"

#include <chrono>

#include "Util/Thread.h"
#include "Util/Tools.h"

CCriticalSectionManager::CCriticalSectionManager() {
    // Every lock of every thread passes through this table for a few hundred
    // nanoseconds: spinning that long beats a trip through the scheduler.
    pthread_mutexattr_t attr;
    pthread_mutexattr_init(&attr);
    pthread_mutexattr_settype(&attr, PTHREAD_MUTEX_ADAPTIVE_NP);
    pthread_mutex_init(&m_mutex, &attr);
    pthread_mutexattr_destroy(&attr);
    m_lastScanSec = CTools::GetCurRunTimeSec();
    m_thread = LinuxCreateThread(nullptr, &CCriticalSectionManager::TimerProc, this);
}

CCriticalSectionManager::~CCriticalSectionManager() {
    {
        std::lock_guard<std::mutex> lock(m_stopMutex);
        m_stop = true;
    }
    m_stopCv.notify_all();
    pthread_join(m_thread, nullptr);
    pthread_mutex_destroy(&m_mutex);
}

int CCriticalSectionManager::Enter(pthread_mutex_t* mutex, const char* file, int line, const char* function) {
    int rc = pthread_mutex_lock(mutex);
    pthread_mutex_lock(&m_mutex);
    auto it = m_sections.find(mutex);
    if (it != m_sections.end()) {
        const SectionItem old = it->second;
        pthread_mutex_unlock(&m_mutex);
        CTools::Log(OCPP_LOG_ERROR, "Enter", "Util/CriticalSectionManager.cpp", __LINE__,
                    "ReEnter Old:%s===>%s==>%d\n", old.function, old.file, old.line);
        CTools::Log(OCPP_LOG_ERROR, "Enter", "Util/CriticalSectionManager.cpp", __LINE__,
                    "ReEnter New:%s===>%s==>%d\n", function ? function : "", file ? file : "", line);
        CTools::SleepMs(1000);
        return rc;
    }
    SectionItem item{};
    CTools::CopyField(item.function, function ? function : "");
    CTools::CopyField(item.file, file ? file : "");
    item.line = line;
    item.takenSec = CTools::GetCurRunTimeSec();
    m_sections.emplace(mutex, item);
    pthread_mutex_unlock(&m_mutex);
    return rc;
}

int CCriticalSectionManager::Leave(pthread_mutex_t* mutex, const char*, int, const char*) {
    pthread_mutex_lock(&m_mutex);
    m_sections.erase(mutex);
    pthread_mutex_unlock(&m_mutex);
    return pthread_mutex_unlock(mutex);
}

size_t CCriticalSectionManager::HeldCount() {
    pthread_mutex_lock(&m_mutex);
    const size_t n = m_sections.size();
    pthread_mutex_unlock(&m_mutex);
    return n;
}

int CCriticalSectionManager::ScanLongSections() {
    int reported = 0;
    pthread_mutex_lock(&m_mutex);
    const int64_t now = CTools::GetCurRunTimeSec();
    std::map<pthread_mutex_t*, SectionItem> snapshot = m_sections;
    pthread_mutex_unlock(&m_mutex);
    for (const auto& entry : snapshot) {
        if (now - entry.second.takenSec <= kLongHoldSec) continue;
        CTools::Log(OCPP_LOG_ERROR, "TimerProc", "Util/CriticalSectionManager.cpp", __LINE__,
                    "CriticalSection Long:%s===>%s==>%d\n", entry.second.function, entry.second.file,
                    entry.second.line);
        ++reported;
        // Pace the report so a storm of stuck locks does not flood the log.
        std::unique_lock<std::mutex> lock(m_stopMutex);
        if (m_stopCv.wait_for(lock, std::chrono::seconds(1), [this] { return m_stop; })) break;
    }
    return reported;
}

void* CCriticalSectionManager::TimerProc(void* self) {
    static_cast<CCriticalSectionManager*>(self)->WatchdogLoop();
    return nullptr;
}

void CCriticalSectionManager::WatchdogLoop() {
    for (;;) {
        {
            std::unique_lock<std::mutex> lock(m_stopMutex);
            if (m_stopCv.wait_for(lock, std::chrono::milliseconds(500), [this] { return m_stop; })) return;
        }
        const int64_t now = CTools::GetCurRunTimeSec();
        if (now - m_lastScanSec > kScanEverySec) {
            m_lastScanSec = now;
            ScanLongSections();
        }
    }
}

CSectionGuard::CSectionGuard(pthread_mutex_t* mutex, const char* file, int line, const char* function)
    : m_mutex(mutex), m_file(file), m_line(line), m_function(function) {
    lock();
}

CSectionGuard::~CSectionGuard() {
    if (m_held) unlock();
}

void CSectionGuard::lock() {
    CCriticalSectionManager::GetInstance()->Enter(m_mutex, m_file, m_line, m_function);
    m_held = true;
}

void CSectionGuard::unlock() {
    m_held = false;
    CCriticalSectionManager::GetInstance()->Leave(m_mutex, m_file, m_line, m_function);
}
