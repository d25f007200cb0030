#pragma once
#include <pthread.h>

#include <cstdint>
#include <map>
#include <memory>
#include <string>

// A TxProfile waiting for the host to choose its schedules (ISO 15118). Without
// JSON the EVSE has asked the CSMS for a profile and waits for it.
struct ProfileCacheItem {
    uint32_t profileId;
    int64_t createTimeSec;
    std::unique_ptr<std::string> json;  // absent while waiting
};

// The pending-profile cache both generations share; what differs is only the
// store a selected profile goes to.
class CPendingProfileCache {
public:
    void AddCacheRecord(unsigned evseId);
    int IsNeedCacheProfile(unsigned evseId);
    void RemoveCacheRecord(unsigned evseId);
    void CacheProfile(unsigned evseId, unsigned profileId, const char* json);
    // Stores the waiting profile with the host's schedules; the result of the last store.
    int SelectSchedule(unsigned profileId, const char* scheduleIds);
    void RemoveAll();
    // Drops records older than kExpirySec; returns how many.
    int Clear();
    static void* TimerProc(void* self);

    size_t Count();

    static const int kTimerSec = 100;
    static const int64_t kExpirySec = 300;

protected:
    CPendingProfileCache();
    virtual ~CPendingProfileCache();
    virtual int StoreSelected(unsigned evseId, const char* json, const char* scheduleIds) = 0;
    // Forgets every record. The expiry timer stays: on an empty cache it does nothing.
    void ResetCache() { RemoveAll(); }

private:
    // The timer is registered with the first record, and again when a reset of the
    // timer service dropped it; a release never has to wake the timer service.
    void EnsureTimer();

    pthread_mutex_t m_mutex;
    std::map<unsigned, ProfileCacheItem> m_items;  // by EVSE id
    pthread_mutex_t m_timerMutex;
    unsigned long long m_timerId = 0;  // guarded by m_timerMutex
};
