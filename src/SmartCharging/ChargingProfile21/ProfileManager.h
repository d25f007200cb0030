#pragma once
#include <pthread.h>

#include <cstdint>
#include <map>

#include "SmartCharging/ProfileStore.h"
#include "Util/Singleton.h"

typedef ProfileItem ProfileItem21;

// A "Dynamic" profile whose schedule the station pulls again every updateInterval.
struct DynamicProfileInfo {
    int64_t createTimeSec;
    int32_t updateInterval;   // seconds
    int64_t lastUpdateSec;    // 0: never pulled
};

// Offline settings of one stored profile.
struct ProfileOfflineInfo {
    int32_t profileId;
    uint32_t maxOfflineDuration;  // seconds, 0 when absent
    bool stopAfterOffline;
};

// The OCPP 2.1 charging profile store ("chargingprofile21.db"): the common store
// plus the relative start of "Relative" profiles, the records of "Dynamic"
// profiles and the table where profiles wait while the station is offline too long.
class CProfileManager21 : public CProfileStore, public CSingleton<CProfileManager21> {
public:
    int64_t GetProfileInstallTime(int profileId);

    // Makes the calculation start over, as a change of the store does.
    void ReCalculate();

    // A transaction started on the EVSE: its relative profiles (and the station's) start now.
    int ActiveRelativeStartTime(unsigned evseId);
    // It ended; the station's relative profiles stop too when no other transaction runs.
    int ReleaseRelativeStartTime(unsigned evseId, int otherTransactions);

    void AddDynamicMonitorRecord(int profileId, const DynamicProfileInfo& info);
    int UpdateDynamicMonitorTime(int profileId);
    void RemoveDynamicMonitorRecord(int profileId);
    std::map<int, DynamicProfileInfo> GetDynamicMonitorRecords();

    // One pass of the calculation thread. `activeProfiles`: EVSE id -> the profile
    // that sets its limit now, as the calculation found it.
    void OfflineProcess(const std::map<unsigned, int>& activeProfiles);
    int SetProfileFromOfflineDB();
    ProfileOfflineInfo GetOfflineInfoFromProfile(int profileId);
    int64_t GetOfflineSinceSec();

private:
    friend class CSingleton<CProfileManager21>;
    CProfileManager21();
    ~CProfileManager21() override;
    void ResetInPlace();
    void CompleteRow(ProfileRow& row, const Json::Value& profile) override;
    void ContentUpdateColumns(std::string& set, DbParams& params, int64_t now) override;
    int SetRelativeStart(const std::list<std::string>& profileIds, int64_t start);

    pthread_mutex_t m_dynamicMutex;
    std::map<int, DynamicProfileInfo> m_dynamic;  // guarded by m_dynamicMutex

    pthread_mutex_t m_offlineMutex;
    int64_t m_offlineSinceSec = 0;  // 0 while online
    bool m_bOfflineHandled = false;
    ProfileOfflineInfo m_lastOfflineInfo = {0, 0, false};
    bool m_bHasOfflineInfo = false;
};
