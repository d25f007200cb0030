#pragma once
#include <pthread.h>

#include <condition_variable>
#include <cstdint>
#include <map>
#include <mutex>
#include <string>

#include "Util/Singleton.h"

struct SectionItem {
    char function[100];
    char file[101];
    int line;
    int64_t takenSec;  // run-time seconds
};

// Every mutex of the library is taken through here so that re-entry and locks
// held too long show up in the log.
// Destroyed by Release rather than reset in place: its table describes locks other
// threads hold right now, and forgetting it would make every later leave a mismatch.
// Nothing in the library releases it; it lives until the process ends.
class CCriticalSectionManager : public CSingleton<CCriticalSectionManager, SINGLETONLIFETIME_DESTROY> {
public:
    int Enter(pthread_mutex_t* mutex, const char* file, int line, const char* function);
    int Leave(pthread_mutex_t* mutex, const char* file, int line, const char* function);

    // One watchdog pass: logs every section held longer than the limit. Returns how many.
    int ScanLongSections();
    size_t HeldCount();

    static const int kScanEverySec = 19;
    static const int kLongHoldSec = 59;

private:
    friend class CSingleton<CCriticalSectionManager, SINGLETONLIFETIME_DESTROY>;
    CCriticalSectionManager();
    ~CCriticalSectionManager();
    static void* TimerProc(void* self);
    void WatchdogLoop();

    pthread_mutex_t m_mutex;
    std::map<pthread_mutex_t*, SectionItem> m_sections;
    std::mutex m_stopMutex;
    std::condition_variable m_stopCv;
    bool m_stop = false;
    pthread_t m_thread{};
    int64_t m_lastScanSec = 0;
};

// Scoped lock through the traced service. It is also BasicLockable, so a
// std::condition_variable_any can wait on it and keep the tracing intact.
class CSectionGuard {
public:
    CSectionGuard(pthread_mutex_t* mutex, const char* file, int line, const char* function);
    ~CSectionGuard();
    CSectionGuard(const CSectionGuard&) = delete;
    CSectionGuard& operator=(const CSectionGuard&) = delete;

    void lock();
    void unlock();

private:
    pthread_mutex_t* m_mutex;
    const char* m_file;
    int m_line;
    const char* m_function;
    bool m_held = false;
};

#define OCPP_GUARD_CAT2(a, b) a##b
#define OCPP_GUARD_CAT(a, b) OCPP_GUARD_CAT2(a, b)
// Holds `mutex` (a pthread_mutex_t*) until the end of the scope.
#define OCPP_SECTION(mutex) \
    CSectionGuard OCPP_GUARD_CAT(ocppSection_, __LINE__)((mutex), __FILE__, __LINE__, __FUNCTION__)
// Named form, for waiting on a condition variable.
#define OCPP_SECTION_NAMED(name, mutex) CSectionGuard name((mutex), __FILE__, __LINE__, __FUNCTION__)
#define OCPP_ENTER(mutex) CCriticalSectionManager::GetInstance()->Enter((mutex), __FILE__, __LINE__, __FUNCTION__)
#define OCPP_LEAVE(mutex) CCriticalSectionManager::GetInstance()->Leave((mutex), __FILE__, __LINE__, __FUNCTION__)
