#include "SmartCharging/PendingProfileCache.h"

#include <cstdio>
#include <utility>
#include <vector>

#include "Util/CriticalSectionManager.h"
#include "Util/TimerManager.h"
#include "Util/Tools.h"

CPendingProfileCache::CPendingProfileCache() {
    pthread_mutex_init(&m_mutex, nullptr);
    pthread_mutex_init(&m_timerMutex, nullptr);
}

CPendingProfileCache::~CPendingProfileCache() {
    unsigned long long id;
    {
        OCPP_SECTION(&m_timerMutex);
        id = m_timerId;
    }
    if (id != 0) CTimerManager::GetInstance()->UnRegisterTimer(id);
    RemoveAll();
    pthread_mutex_destroy(&m_timerMutex);
    pthread_mutex_destroy(&m_mutex);
}

void CPendingProfileCache::EnsureTimer() {
    CTimerManager* timers = CTimerManager::GetInstance();
    OCPP_SECTION(&m_timerMutex);
    if (m_timerId != 0 && timers->IsRegistered(m_timerId, &TimerProc, this)) return;
    m_timerId = timers->RegisterTimer(kTimerSec, &TimerProc, this);
}

void* CPendingProfileCache::TimerProc(void* self) {
    static_cast<CPendingProfileCache*>(self)->Clear();
    return nullptr;
}

void CPendingProfileCache::AddCacheRecord(unsigned evseId) {
    EnsureTimer();
    OCPP_SECTION(&m_mutex);
    if (m_items.count(evseId) != 0) return;
    m_items[evseId] = ProfileCacheItem{0, CTools::CurTimeSec(), nullptr};
}

int CPendingProfileCache::IsNeedCacheProfile(unsigned evseId) {
    OCPP_SECTION(&m_mutex);
    return m_items.count(evseId) != 0 ? 1 : 0;
}

void CPendingProfileCache::RemoveCacheRecord(unsigned evseId) {
    OCPP_SECTION(&m_mutex);
    m_items.erase(evseId);
}

void CPendingProfileCache::CacheProfile(unsigned evseId, unsigned profileId, const char* json) {
    std::unique_ptr<std::string> copy(json != nullptr ? new std::string(json) : nullptr);
    EnsureTimer();
    OCPP_SECTION(&m_mutex);
    m_items.erase(evseId);
    m_items[evseId] = ProfileCacheItem{profileId, CTools::CurTimeSec(), std::move(copy)};
}

int CPendingProfileCache::SelectSchedule(unsigned profileId, const char* scheduleIds) {
    if (profileId == 0) return 0;
    // Taken out first: the store is written without the cache lock held, and a
    // profile whose store fails is lost, as it would be after the expiry.
    std::vector<std::pair<unsigned, std::unique_ptr<std::string>>> selected;
    {
        OCPP_SECTION(&m_mutex);
        for (auto it = m_items.begin(); it != m_items.end();) {
            if (it->second.profileId != profileId) {
                ++it;
                continue;
            }
            selected.emplace_back(it->first, std::move(it->second.json));
            it = m_items.erase(it);
        }
    }
    int result = 0;
    for (const auto& item : selected)
        if (item.second) result = StoreSelected(item.first, item.second->c_str(), scheduleIds != nullptr ? scheduleIds : "");
    return result;
}

void CPendingProfileCache::RemoveAll() {
    OCPP_SECTION(&m_mutex);
    m_items.clear();
}

int CPendingProfileCache::Clear() {
    const int64_t now = CTools::CurTimeSec();
    int dropped = 0;
    OCPP_SECTION(&m_mutex);
    for (auto it = m_items.begin(); it != m_items.end();) {
        if (now - it->second.createTimeSec > kExpirySec) {
            printf("====================Not select, Timer remove the CacheProfile=============\n");
            it = m_items.erase(it);
            ++dropped;
        } else {
            ++it;
        }
    }
    if (dropped > 0) fflush(stdout);
    return dropped;
}

size_t CPendingProfileCache::Count() {
    OCPP_SECTION(&m_mutex);
    return m_items.size();
}
