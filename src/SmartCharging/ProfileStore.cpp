#include "SmartCharging/ProfileStore.h"

#include <fcntl.h>
#include <json/json.h>
#include <unistd.h>

#include <cstdio>
#include <cstring>
#include <cstdlib>
#include <memory>
#include <thread>
#include <utility>

#include "Ocpp20/Process/VariableCache.h"
#include "Ocpp20/Process/VariableDataItem20.h"
#include "SmartCharging/ProfileJson.h"
#include "Util/CriticalSectionManager.h"
#include "Util/Tools.h"

namespace {
bool CanOpenForWriting(const std::string& path) {
    const int fd = open(path.c_str(), O_WRONLY);
    if (fd < 0) return false;
    close(fd);
    return true;
}

// Entries counts are read in ticket order and written in it.
pthread_mutex_t g_ticketSection = PTHREAD_MUTEX_INITIALIZER;
pthread_mutex_t g_entriesSection = PTHREAD_MUTEX_INITIALIZER;
}  // namespace

CProfileStore::CProfileStore(StoreShape shape) : m_shape(std::move(shape)) { pthread_mutex_init(&m_storeMutex, nullptr); }

CProfileStore::~CProfileStore() {
    WaitEntriesWriters(5000);
    {
        OCPP_SECTION(&m_storeMutex);
        m_db.CloseDB();
    }
    pthread_mutex_destroy(&m_storeMutex);
}

void CProfileStore::ResetStore() {
    WaitEntriesWriters(5000);
    {
        OCPP_SECTION(&m_storeMutex);
        m_db.CloseDB();
        m_strPath.clear();
    }
    m_changeStamp = 0;
}

int CProfileStore::SetStoreFile(const std::string& path) {
    {
        OCPP_SECTION(&m_storeMutex);
        if (path == m_strPath) return 1;
        m_strPath = path;
    }
    LOG_INFO("%s Cache File:%s", m_shape.storeName, path.c_str());
    {
        OCPP_SECTION(&m_storeMutex);
        m_db.CloseDB();
        if (!CanOpenForWriting(path) && m_db.OpenDB(path)) {
            for (const auto& table : m_shape.tables) m_db.CreateTable(table.first, table.second);
            m_db.CloseDB();
        }
        if (!CanOpenForWriting(path) || !m_db.OpenDB(path)) return 0;
    }
    UpdateChargingProfileEntries();
    return 1;
}

std::string CProfileStore::GetStoreFile() {
    OCPP_SECTION(&m_storeMutex);
    return m_strPath;
}

void CProfileStore::SetTransactionLookup(ProfileTransactionOfEvse ofEvse, ProfileTransactionCount count) {
    m_transactionOfEvse = ofEvse;
    m_transactionCount = count;
}

std::string CProfileStore::TransactionOfEvse(int evseId) {
    ProfileTransactionOfEvse lookup = m_transactionOfEvse.load();
    return lookup != nullptr ? lookup(evseId) : std::string();
}

int CProfileStore::TransactionCount() {
    ProfileTransactionCount count = m_transactionCount.load();
    return count != nullptr ? count() : 0;
}

// ---- Statements ----------------------------------------------------------

int CProfileStore::ExecuteLocked(const std::string& sql, const DbParams& params) {
    return m_db.ExecuteSQLBind(sql, params);
}

std::list<std::string> CProfileStore::QueryColumnLocked(const std::string& sql, const DbParams& params) {
    return m_db.QuerySQL2Bind(sql, params);
}

int CProfileStore::Execute(const std::string& sql, const DbParams& params) {
    OCPP_SECTION(&m_storeMutex);
    return ExecuteLocked(sql, params);
}

DbRows CProfileStore::Query(const std::string& sql, const DbParams& params) {
    OCPP_SECTION(&m_storeMutex);
    return m_db.QuerySQLBind(sql, params);
}

std::list<std::string> CProfileStore::QueryColumn(const std::string& sql, const DbParams& params) {
    OCPP_SECTION(&m_storeMutex);
    return QueryColumnLocked(sql, params);
}

bool CProfileStore::TextsStorable(const std::vector<const std::string*>& texts) {
    for (const std::string* text : texts) {
        if (text->find('\'') == std::string::npos) continue;
        // Spliced into a quoted literal an apostrophe ended it early and the
        // statement failed; profiles that held one were never stored.
        m_db.WriteLog(DBLOGLEVEL_ERROR, "SQL error: %d => %s", SQLITE_ERROR, "unrecognized token: \"'\"");
        return false;
    }
    return true;
}

std::string CProfileStore::IdList(const std::vector<int>& ids) {
    std::string list;
    for (int id : ids) list += std::to_string(id) + ",";
    if (!list.empty()) list.back() = ')';
    return list;
}

std::string CProfileStore::WriteCompact(const Json::Value& value) { return CProfileJson::Compact(value); }

// ---- Writes --------------------------------------------------------------

int CProfileStore::AddChargingProfile(const char* requestJson) {
    Json::Value request;
    if (requestJson == nullptr || !CTools::ParseJson(requestJson, strlen(requestJson), request) ||
        !request.isObject()) {
        LOG_ERROR("ChargingProfile content error\n");
        return 0;
    }
    const Json::Value& profile = request["chargingProfile"];
    const std::string source = CProfileJson::HostSource(profile);
    return AddChargingProfile(CProfileJson::Int(request, "evseId"), WriteCompact(profile).c_str(), "", source.c_str());
}

int CProfileStore::AddChargingProfile(int evseId, const char* profileJson) {
    return AddChargingProfile(evseId, profileJson, "", "CSO");
}

int CProfileStore::AddChargingProfile(int evseId, const char* profileJson, const char* scheduleIds,
                                      const char* source) {
    Json::Value profile;
    if (profileJson == nullptr || !CTools::ParseJson(profileJson, strlen(profileJson), profile) ||
        !profile.isObject())
        return 0;
    ProfileRow row;
    row.now = CTools::CurTimeSec();
    row.profileId = CProfileJson::Int(profile, "id");
    row.evseId = evseId;
    row.stackLevel = static_cast<int>(CProfileJson::Unsigned(profile, "stackLevel"));
    row.purpose = CProfileJson::Text(profile, "chargingProfilePurpose");
    row.transactionId = CProfileJson::Text(profile, "transactionId");
    row.scheduleIds = scheduleIds != nullptr ? scheduleIds : "";
    row.source = source != nullptr ? source : "";
    row.content = profileJson;
    row.validFrom = profile.isMember("validFrom") ? CTools::GetTimeByString(CProfileJson::Text(profile, "validFrom"))
                                                  : row.now;
    row.validTo = profile.isMember("validTo") ? CTools::GetTimeByString(CProfileJson::Text(profile, "validTo")) : kNoEnd;
    CompleteRow(row, profile);

    std::string columns = std::string("profileid, evseid, stacklevel, purpose, transactionid, content, scheduleids, "
                                      "source, ") +
                          m_shape.validFromColumn + ", " + m_shape.endColumn;
    DbParams params = {row.profileId, row.evseId,  row.stackLevel, row.purpose,   row.transactionId,
                       row.content,   row.scheduleIds, row.source, row.validFrom, row.validTo};
    std::vector<const std::string*> texts = {&row.purpose, &row.transactionId, &row.content, &row.scheduleIds,
                                             &row.source};
    for (const auto& extra : row.extra) {
        columns += ", " + extra.first;
        params.push_back(extra.second);
        if (extra.second.kind == DbParam::Text) texts.push_back(&extra.second.text);
    }
    std::string marks;
    for (size_t i = 0; i < params.size(); ++i) marks += i == 0 ? "?" : ", ?";

    int result;
    {
        OCPP_SECTION(&m_storeMutex);
        ExecuteLocked("delete from chargingprofile where profileid=?", {row.profileId});
        if (!HasStoreFileLocked()) return 1;
        result = TextsStorable(texts)
                     ? ExecuteLocked("insert into chargingprofile(" + columns + ")values (" + marks + ")", params)
                     : 0;
        Touch(row.now);
    }
    UpdateChargingProfileEntries();
    return result;
}

int CProfileStore::RemoveChargingProfile(int profileId) {
    const int result = Execute("delete from chargingprofile where profileid=?", {profileId});
    Touch(CTools::CurTimeSec());
    UpdateChargingProfileEntries();
    return result;
}

int CProfileStore::RemoveChargingProfile(const std::vector<int>& profileIds) {
    if (profileIds.empty()) return 0;
    const int result = Execute("delete from chargingprofile where 1=1 and profileid in(" + IdList(profileIds), {});
    Touch(CTools::CurTimeSec());
    UpdateChargingProfileEntries();
    return result;
}

int CProfileStore::RemoveChargingProfile(const char* source) {
    const std::string text = source != nullptr ? source : "";
    int result = 0;
    {
        OCPP_SECTION(&m_storeMutex);
        if (TextsStorable({&text})) result = ExecuteLocked("delete from chargingprofile where source=?", {text});
        Touch(CTools::CurTimeSec());
    }
    UpdateChargingProfileEntries();
    return result;
}

void CProfileStore::ContentUpdateColumns(std::string&, DbParams&, int64_t) {}

int CProfileStore::UpdateChargingProfileContent(int profileId, const char* json) {
    const std::string content = json != nullptr ? json : "";
    const int64_t now = CTools::CurTimeSec();
    std::string set = "content=?";
    DbParams params = {content};
    ContentUpdateColumns(set, params, now);
    params.push_back(profileId);
    int result = 0;
    {
        OCPP_SECTION(&m_storeMutex);
        if (TextsStorable({&content}))
            result = ExecuteLocked("update chargingprofile set " + set + " where profileid=?", params);
        Touch(now);
    }
    UpdateChargingProfileEntries();
    return result;
}

int CProfileStore::AddTransactionID(int evseId, const char* transactionId) {
    const std::string id = transactionId != nullptr ? transactionId : "";
    int result = 0;
    {
        OCPP_SECTION(&m_storeMutex);
        const std::list<std::string> waiting = QueryColumnLocked(
            "select profileid from chargingprofile where evseid=? and transactionid=?", {evseId, "-1"});
        if (waiting.empty()) return 0;
        LOG_INFO("%s", m_shape.bindTransactionLog);
        if (TextsStorable({&id}))
            result = ExecuteLocked("update chargingprofile set transactionid=? where evseid=? and transactionid=?",
                                   {id, evseId, "-1"});
        Touch(CTools::CurTimeSec());
    }
    UpdateChargingProfileEntries();
    return result;
}

int CProfileStore::RemoveTransactionProfile(const char* transactionId) {
    const std::list<std::string> ids = QueryColumn("select profileid from chargingprofile where transactionid=?",
                                                   {transactionId != nullptr ? transactionId : ""});
    if (ids.empty()) return 0;
    return RemoveChargingProfile(atoi(ids.front().c_str()));
}

int CProfileStore::RemoveTimeOutProfile(uint64_t now) {
    const std::string expired =
        std::string(" from chargingprofile where ") + m_shape.endColumn + " > 0 and " + m_shape.endColumn + " < ?";
    const DbParams params = {static_cast<long long>(now)};
    {
        OCPP_SECTION(&m_storeMutex);
        const std::list<std::string> count = QueryColumnLocked("select count(profileid) as tcount" + expired, params);
        if (count.empty() || atoi(count.front().c_str()) == 0) return 0;
        ExecuteLocked("delete" + expired, params);
        Touch(CTools::CurTimeSec());
    }
    UpdateChargingProfileEntries();
    return 1;
}

// ---- Reads ---------------------------------------------------------------

std::string CProfileStore::GetChargingProfile(int profileId) {
    const std::list<std::string> rows = QueryColumn("select content from chargingprofile where profileid=?", {profileId});
    return rows.empty() ? std::string() : rows.front();
}

std::list<std::string> CProfileStore::GetChargingProfile(const std::vector<int>& profileIds) {
    if (profileIds.empty()) return {};
    return QueryColumn("select content from chargingprofile where 1=1 and profileid in(" + IdList(profileIds), {});
}

std::string CProfileStore::GetScheduleIDs(int profileId) {
    const std::list<std::string> rows =
        QueryColumn("select scheduleids from chargingprofile where profileid=?", {profileId});
    return rows.empty() ? std::string() : rows.front();
}

std::string CProfileStore::GetChargingProfileSource(int profileId) {
    const std::list<std::string> rows = QueryColumn("select source from chargingprofile where profileid=?", {profileId});
    return rows.empty() ? std::string() : rows.front();
}

int64_t CProfileStore::GetProfileStartTime(int profileId) {
    const std::list<std::string> rows = QueryColumn(
        std::string("select ") + m_shape.startColumn + " from chargingprofile where profileid=?", {profileId});
    return rows.empty() ? 0 : atoll(rows.front().c_str());
}

std::list<int> CProfileStore::GetEvseIDList() {
    std::list<int> out;
    for (const std::string& id : QueryColumn("select distinct(evseid) from chargingprofile", {}))
        out.push_back(atoi(id.c_str()));
    return out;
}

int CProfileStore::GetLocalChargingProfileCount() {
    const std::list<std::string> rows = QueryColumn("select count(profileid) as total from chargingprofile", {});
    return rows.empty() ? 0 : atoi(rows.front().c_str());
}

std::list<int> CProfileStore::GetProfieIDsFromPurpose(const char* purpose) {
    std::list<int> out;
    for (const std::string& id :
         QueryColumn("select profileid from chargingprofile where purpose=?", {purpose != nullptr ? purpose : ""}))
        out.push_back(atoi(id.c_str()));
    return out;
}

std::list<ProfileItem> CProfileStore::GetProfileItemList(int evseId) {
    // Asked before the store lock: the transaction manager has a lock of its own.
    const std::string transactionId = evseId > 0 ? TransactionOfEvse(evseId) : std::string();
    std::list<ProfileItem> items;
    std::list<ProfileItem> negative;
    auto collect = [&](const DbRows& rows) {
        for (const DbRow& row : rows) {
            ProfileItem item;
            auto id = row.find("profileid");
            auto content = row.find("content");
            item.profileId = id != row.end() ? atoi(id->second.c_str()) : 0;
            if (content != row.end()) item.content = content->second;
            (item.profileId < 0 ? negative : items).push_back(std::move(item));
        }
    };
    {
        OCPP_SECTION(&m_storeMutex);
        if (evseId == 0) {
            collect(m_db.QuerySQLBind(std::string("select profileid, content from chargingprofile where (") +
                                          m_shape.stationPurposes + ") and evseid=0 and transactionid=''",
                                      {}));
        } else {
            collect(m_db.QuerySQLBind("select profileid, content from chargingprofile where (evseid=? or evseid=0) "
                                      "and purpose!='ChargingStationMaxProfile' and transactionid=''",
                                      {evseId}));
            if (!transactionId.empty())
                collect(m_db.QuerySQLBind(
                    "select profileid, content from chargingprofile where evseid=? and transactionid=?",
                    {evseId, transactionId}));
        }
    }
    items.splice(items.end(), negative);
    return items;
}

std::string CProfileStore::GetCurVaildTxDefaultProfile(int evseId) {
    // The highest TxDefault stack level of station and EVSE, valid or not, and any
    // unexpired row on that level: the EV is sent that one.
    const std::list<std::string> rows = QueryColumn(
        std::string("select content from chargingprofile where (") + m_shape.endColumn +
            " > ?) and stacklevel=(select max(stacklevel) from chargingprofile where (evseid=0 or evseid=?) and "
            "purpose='TxDefaultProfile')",
        {static_cast<long long>(CTools::CurTimeSec()), evseId});
    return rows.empty() ? std::string() : rows.front();
}

std::map<int, std::vector<int>> CProfileStore::FilterChargingProfileIDs(int evseId, int stackLevel,
                                                                        const char* purpose,
                                                                        const std::vector<int>& profileIds,
                                                                        const std::vector<std::string>& sources) {
    std::map<int, std::vector<int>> out;
    std::string where = "1=1";
    DbParams params;
    if (!profileIds.empty()) {
        where += " and profileid in(" + IdList(profileIds);
    } else {
        if (evseId >= 0) {
            where += " and evseid=?";
            params.push_back(evseId);
        }
        if (purpose != nullptr && purpose[0] != '\0') {
            where += " and purpose=?";
            params.push_back(purpose);
        }
        if (stackLevel >= 0) {
            where += " and stacklevel=?";
            params.push_back(stackLevel);
        }
        if (!sources.empty()) {
            where += " and source in(";
            for (size_t i = 0; i < sources.size(); ++i) {
                where += i == 0 ? "?" : ",?";
                params.push_back(sources[i]);
            }
            where += ")";
        }
    }
    DbRows rows;
    {
        OCPP_SECTION(&m_storeMutex);
        if (!HasStoreFileLocked()) return out;
        rows = m_db.QuerySQLBind("select evseid, profileid from chargingprofile where " + where, params);
    }
    for (const DbRow& row : rows) {
        auto evse = row.find("evseid");
        auto id = row.find("profileid");
        if (evse == row.end() || id == row.end()) continue;
        out[atoi(evse->second.c_str())].push_back(atoi(id->second.c_str()));
    }
    return out;
}

std::vector<int> CProfileStore::FilterChargingProfileIDs(int evseId, int stackLevel, const char* purpose) {
    std::string where = "1=1";
    DbParams params;
    if (stackLevel >= 0) {
        where += " and stacklevel=?";
        params.push_back(stackLevel);
    }
    if (purpose != nullptr && purpose[0] != '\0') {
        where += " and purpose=?";
        params.push_back(purpose);
    }
    if (evseId >= 0) {
        where += " and evseid=?";
        params.push_back(evseId);
    }
    std::vector<int> out;
    for (const std::string& id : QueryColumn("select profileid from chargingprofile where " + where, params))
        out.push_back(atoi(id.c_str()));
    return out;
}

// ---- Entries -------------------------------------------------------------

void CProfileStore::UpdateChargingProfileEntries() {
    // Writers finish in any order: each count gets a ticket when it is read, and
    // only a newer ticket than the last written one reaches the variable.
    static uint64_t s_issued = 0;   // guarded by g_ticketSection
    static uint64_t s_written = 0;  // guarded by g_entriesSection
    int count;
    uint64_t ticket;
    {
        OCPP_SECTION(&g_ticketSection);
        count = GetLocalChargingProfileCount();
        ticket = ++s_issued;
    }
    const char* prefix = m_shape.entriesPrefix;
    ++m_entriesWriters;
    auto write = [this, count, ticket, prefix] {
        VariableDataItem20 item = VariableDataItem20::Make("SmartChargingCtrlr", "Entries", "ChargingProfiles");
        const int ret = snprintf(item.attributeValue, sizeof item.attributeValue, "%d", count);
        if (ret < 0 || ret >= (int)sizeof item.attributeValue) {
            LOG_DEBUG("%sUpdateChargingProfileEntries=> snprintf error ret: %d", prefix, ret);
        } else {
            OCPP_SECTION(&g_entriesSection);
            if (ticket > s_written) {
                s_written = ticket;
                CVariableCache::GetInstance()->UpdateVariableValue(item);
            }
        }
        --m_entriesWriters;
    };
    try {
        std::thread(write).detach();
    } catch (const std::exception&) {
        write();  // no thread to spare: written here, still without the store lock
    }
}

bool CProfileStore::WaitEntriesWriters(int timeoutMs) {
    for (int waited = 0; m_entriesWriters.load() > 0; ++waited) {
        if (waited >= timeoutMs) return false;
        usleep(1000);
    }
    return true;
}
