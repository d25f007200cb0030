#include "SmartCharging/ChargingProfile21/ProfileManager.h"

#include <json/json.h>

#include <cstdlib>
#include <vector>

#include "OcppProtocol/OcppProtocol.h"
#include "SmartCharging/ProfileJson.h"
#include "Util/CriticalSectionManager.h"
#include "Util/Tools.h"

namespace {
CProfileStore::StoreShape Shape21() {
    CProfileStore::StoreShape shape;
    shape.storeName = "ChargingProfile21";
    shape.entriesPrefix = "21";
    shape.bindTransactionLog = "==========update remoteProfile===========";
    shape.validFromColumn = "validfromsec";
    shape.endColumn = "validtosec";
    shape.startColumn = "startsec";
    shape.stationPurposes = "purpose='ChargingStationMaxProfile'";
    shape.tables = {{"chargingprofile",
                     {{"content", "text"},
                      {"evseid", "integer DEFAULT 0"},
                      {"installtimesec", "integer DEFAULT 0"},
                      {"profileid", "integer"},
                      {"profilekind", "text"},
                      {"purpose", "text"},
                      {"scheduleids", "text"},
                      {"source", "text"},
                      {"stacklevel", "integer"},
                      {"startsec", "integer DEFAULT 0"},
                      {"transactionid", "text"},
                      {"validfromsec", "integer DEFAULT 0"},
                      {"validtosec", "integer DEFAULT 0"}}},
                    {"offlineprofile",
                     {{"chargingprofile", "text"}, {"evseid", "integer DEFAULT 0"}, {"profileid", "integer"}}}};
    return shape;
}
}  // namespace

CProfileManager21::CProfileManager21() : CProfileStore(Shape21()) {
    pthread_mutex_init(&m_dynamicMutex, nullptr);
    pthread_mutex_init(&m_offlineMutex, nullptr);
}

CProfileManager21::~CProfileManager21() {
    pthread_mutex_destroy(&m_offlineMutex);
    pthread_mutex_destroy(&m_dynamicMutex);
}

void CProfileManager21::ResetInPlace() {
    ResetStore();
    {
        OCPP_SECTION(&m_dynamicMutex);
        m_dynamic.clear();
    }
    OCPP_SECTION(&m_offlineMutex);
    m_offlineSinceSec = 0;
    m_bOfflineHandled = false;
    m_lastOfflineInfo = {0, 0, false};
    m_bHasOfflineInfo = false;
}

void CProfileManager21::CompleteRow(ProfileRow& row, const Json::Value& profile) {
    const std::string kind = CProfileJson::Text(profile, "chargingProfileKind");
    int64_t start = 0;
    if (kind == "Relative") {
        if (row.evseId == 0 && TransactionCount() > 0) start = row.now;
        if (!TransactionOfEvse(row.evseId).empty()) start = row.now;
    }
    if (kind == "Dynamic" && profile.isMember("updateInterval"))
        AddDynamicMonitorRecord(row.profileId, {row.now, CProfileJson::Int(profile, "updateInterval"), 0});
    if (row.purpose == "PriorityCharging") {
        // The host never chooses among priority schedules: every one of them applies.
        const Json::Value& schedules = profile["chargingSchedule"];
        std::string ids;
        if (schedules.isArray()) {
            for (const Json::Value& schedule : schedules) ids += std::to_string(CProfileJson::Int(schedule, "id")) + ",";
        } else if (schedules.isObject()) {
            ids = std::to_string(CProfileJson::Int(schedules, "id")) + ",";
        }
        row.scheduleIds = ids;
    }
    row.extra = {{"installtimesec", DbParam(static_cast<long long>(row.now))},
                 {"startsec", DbParam(static_cast<long long>(start))},
                 {"profilekind", DbParam(kind)}};
}

void CProfileManager21::ContentUpdateColumns(std::string& set, DbParams& params, int64_t now) {
    set += ", installtimesec=?";
    params.push_back(static_cast<long long>(now));
}

void CProfileManager21::ReCalculate() { Touch(CTools::CurTimeSec()); }

int64_t CProfileManager21::GetProfileInstallTime(int profileId) {
    const std::list<std::string> rows =
        QueryColumn("select installtimesec from chargingprofile where profileid=?", {profileId});
    return rows.empty() ? 0 : atoll(rows.front().c_str());
}

// ---- Relative start ------------------------------------------------------

int CProfileManager21::SetRelativeStart(const std::list<std::string>& profileIds, int64_t start) {
    int result = 1;
    for (const std::string& id : profileIds)
        if (!ExecuteLocked("update chargingprofile set startsec=? where profileid=?",
                           {static_cast<long long>(start), atoi(id.c_str())}))
            result = 0;
    Touch(CTools::CurTimeSec());
    return result;
}

int CProfileManager21::ActiveRelativeStartTime(unsigned evseId) {
    int result;
    {
        OCPP_SECTION(&m_storeMutex);
        const std::list<std::string> ids = QueryColumnLocked(
            "select profileid from chargingprofile where (evseid=? or evseid=0) and profilekind='Relative'",
            {evseId});
        result = SetRelativeStart(ids, CTools::CurTimeSec());
    }
    UpdateChargingProfileEntries();
    return result;
}

int CProfileManager21::ReleaseRelativeStartTime(unsigned evseId, int otherTransactions) {
    int result;
    {
        OCPP_SECTION(&m_storeMutex);
        std::list<std::string> ids = QueryColumnLocked(
            "select profileid from chargingprofile where evseid=? and profilekind='Relative'", {evseId});
        if (otherTransactions == 0)
            ids.splice(ids.end(), QueryColumnLocked(
                                      "select profileid from chargingprofile where evseid=0 and profilekind='Relative'",
                                      {}));
        result = SetRelativeStart(ids, 0);
    }
    UpdateChargingProfileEntries();
    return result;
}

// ---- Dynamic records -----------------------------------------------------

void CProfileManager21::AddDynamicMonitorRecord(int profileId, const DynamicProfileInfo& info) {
    OCPP_SECTION(&m_dynamicMutex);
    m_dynamic[profileId] = info;
}

int CProfileManager21::UpdateDynamicMonitorTime(int profileId) {
    OCPP_SECTION(&m_dynamicMutex);
    auto it = m_dynamic.find(profileId);
    if (it == m_dynamic.end()) return 0;
    it->second.lastUpdateSec = CTools::CurTimeSec();
    return 1;
}

void CProfileManager21::RemoveDynamicMonitorRecord(int profileId) {
    OCPP_SECTION(&m_dynamicMutex);
    m_dynamic.erase(profileId);
}

std::map<int, DynamicProfileInfo> CProfileManager21::GetDynamicMonitorRecords() {
    OCPP_SECTION(&m_dynamicMutex);
    return m_dynamic;
}

// ---- Offline parking -----------------------------------------------------

ProfileOfflineInfo CProfileManager21::GetOfflineInfoFromProfile(int profileId) {
    {
        OCPP_SECTION(&m_offlineMutex);
        if (m_bHasOfflineInfo && m_lastOfflineInfo.profileId == profileId) return m_lastOfflineInfo;
    }
    ProfileOfflineInfo info = {profileId, 0, false};
    Json::Value profile;
    const std::string content = GetChargingProfile(profileId);
    if (!content.empty() && CTools::ParseJson(content, profile)) {
        info.maxOfflineDuration = CProfileJson::Unsigned(profile, "maxOfflineDuration");
        info.stopAfterOffline = CProfileJson::Bool(profile, "stopAfterOffline");
    }
    OCPP_SECTION(&m_offlineMutex);
    m_lastOfflineInfo = info;
    m_bHasOfflineInfo = true;
    return info;
}

int CProfileManager21::SetProfileFromOfflineDB() {
    int result = 1;
    for (const DbRow& row : Query("select * from offlineprofile", {})) {
        auto evse = row.find("evseid");
        auto content = row.find("chargingprofile");
        if (content == row.end()) continue;
        if (!AddChargingProfile(evse != row.end() ? atoi(evse->second.c_str()) : 0, content->second.c_str()))
            result = 0;
    }
    return result;
}

int64_t CProfileManager21::GetOfflineSinceSec() {
    OCPP_SECTION(&m_offlineMutex);
    return m_offlineSinceSec;
}

void CProfileManager21::OfflineProcess(const std::map<unsigned, int>& activeProfiles) {
    const int64_t now = CTools::CurTimeSec();
    int64_t since;
    {
        OCPP_SECTION(&m_offlineMutex);
        if (OcppProtocol_GetStatus() == SDKSTATUS_OK) {
            const bool restore = m_bOfflineHandled;
            m_bOfflineHandled = false;
            m_offlineSinceSec = 0;
            if (!restore) return;
        } else {
            m_bOfflineHandled = true;
            if (m_offlineSinceSec == 0) m_offlineSinceSec = now;
        }
        since = m_offlineSinceSec;
    }
    if (since == 0) {
        // Back online: what was parked comes back.
        if (SetProfileFromOfflineDB()) Execute("delete from offlineprofile", {});
        return;
    }
    for (const auto& active : activeProfiles) {
        if (active.first == 0) continue;
        const ProfileOfflineInfo info = GetOfflineInfoFromProfile(active.second);
        if (info.maxOfflineDuration == 0 || now - since <= static_cast<int64_t>(info.maxOfflineDuration)) continue;
        if (!info.stopAfterOffline) {
            Execute("insert into offlineprofile(profileid, evseid, chargingprofile)values(?, ?, ?)",
                    {active.second, active.first, GetChargingProfile(active.second)});
        }
        RemoveChargingProfile(active.second);
    }
}
