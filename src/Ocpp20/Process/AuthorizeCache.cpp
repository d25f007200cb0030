#include "Ocpp20/Process/AuthorizeCache.h"

#include <cstdio>
#include <cstdlib>
#include <mutex>

#include "Ocpp20/Process/VariableCache.h"
#include "Util/CriticalSectionManager.h"
#include "Util/Thread.h"
#include "Util/Tools.h"

namespace {

const char kCacheTable[] = "authorizecache";
const char kListTable[] = "locallist";

const std::map<std::string, std::string>& Columns() {
    static const std::map<std::string, std::string> columns = {{"token", "text"},
                                                               {"tokentype", "integer"},
                                                               {"status", "integer"},
                                                               {"grouptoken", "text"},
                                                               {"expirytime", "integer"}};
    return columns;
}

int ToInt(const DbRow& row, const char* column) {
    const DbRow::const_iterator it = row.find(column);
    return it == row.end() ? 0 : std::atoi(it->second.c_str());
}

std::string ToText(const DbRow& row, const char* column) {
    const DbRow::const_iterator it = row.find(column);
    return it == row.end() ? std::string() : it->second;
}

AuthorizeItem ItemFromRow(const DbRow& row) {
    AuthorizeItem item{};
    CTools::CopyField(item.token, ToText(row, "token"));
    item.tokenType = ToInt(row, "tokentype");
    // An empty status column is a row written without one: no status.
    item.status = ToText(row, "status").empty() ? AUTHORIZESTATUS_NONE : ToInt(row, "status");
    item.expiryTime = ToInt(row, "expirytime");
    CTools::CopyField(item.groupToken, ToText(row, "grouptoken"));
    return item;
}

// Counts are numbered as they are taken; writers run one at a time and skip a
// count older than one already written, so the newest count is the one that stays.
struct EntriesCount {
    int entries;
    uint64_t number;
};
std::mutex g_entriesWriteMutex;
uint64_t g_entriesTaken = 0;    // store lock
uint64_t g_entriesWritten = 0;  // entries-write lock

void* WriteEntries(void* argument) {
    const EntriesCount count = *static_cast<EntriesCount*>(argument);
    delete static_cast<EntriesCount*>(argument);
    std::lock_guard<std::mutex> lock(g_entriesWriteMutex);
    if (count.number < g_entriesWritten) return nullptr;
    g_entriesWritten = count.number;
    VariableDataItem20 item = VariableDataItem20::Make("LocalAuthListCtrlr", "Entries");
    const int ret = snprintf(item.attributeValue, sizeof item.attributeValue, "%d", count.entries);
    if (ret < 0 || ret >= static_cast<int>(sizeof item.attributeValue)) {
        LOG_ERROR("20UpdateLocalAuthListEntries=> snprintf error ret: %d", ret);
        return nullptr;
    }
    CVariableCache::GetInstance()->UpdateVariableValue(item);
    return nullptr;
}

}  // namespace

CAuthorizeCache::CAuthorizeCache() { pthread_mutex_init(&m_mutex, nullptr); }

CAuthorizeCache::~CAuthorizeCache() {
    m_db.CloseDB();
    pthread_mutex_destroy(&m_mutex);
}

void CAuthorizeCache::ResetInPlace() {
    OCPP_SECTION(&m_mutex);
    m_db.CloseDB();
    m_path.clear();
}

void CAuthorizeCache::CreateTables() {
    m_db.CreateTable(kCacheTable, Columns());
    m_db.CreateTable(kListTable, Columns());
}

int CAuthorizeCache::SetStoreFile(const std::string& path) {
    OCPP_SECTION(&m_mutex);
    if (!path.empty() && path == m_path) return 1;
    LOG_INFO("AuthorizeCache Cache File:%s", path.c_str());
    m_db.CloseDB();
    m_path.clear();
    if (path.empty()) return 0;
    if (m_db.OpenDB(path) != 1) return 0;
    // Also for a file that exists: one left empty by a start that failed has no tables yet.
    CreateTables();
    // Lookups go by (token, tokentype): without an index they read every row.
    // Files made before the indexes existed get them too; a no-op otherwise.
    m_db.ExecuteSQL("create index if not exists authorizecache_token on authorizecache(token, tokentype)");
    m_db.ExecuteSQL("create index if not exists locallist_token on locallist(token, tokentype)");
    m_path = path;
    return 1;
}

bool CAuthorizeCache::ObtainItem(const char* table, const char* token, int tokenType, AuthorizeItem* item) {
    const DbRows rows = m_db.QuerySQLBind(
        std::string("select * from ") + table + " where token=? and tokentype=? limit 1", {token, tokenType});
    if (rows.empty()) return false;
    if (item != nullptr) *item = ItemFromRow(rows.front());
    return true;
}

int CAuthorizeCache::InsertItem(const char* table, const AuthorizeItem& item) {
    return m_db.ExecuteSQLBind(std::string("insert into ") + table +
                                   "(token, tokentype, status, grouptoken, expirytime)values(?,?,?,?,?)",
                               {item.token, item.tokenType, item.status, item.groupToken, item.expiryTime});
}

int CAuthorizeCache::UpdateItem(const char* table, const AuthorizeItem& item) {
    return m_db.ExecuteSQLBind(std::string("update ") + table +
                                   " set status=?,grouptoken=?,expirytime=? where token=? and tokentype=?",
                               {item.status, item.groupToken, item.expiryTime, item.token, item.tokenType});
}

int CAuthorizeCache::UpdateAuthorizeCache(const AuthorizeItem& item) {
    if (!CVariableCache::GetInstance()->AuthCacheCtrlrAvailable()) return 0;
    if (item.tokenType == IDTOKENTYPE_CENTRAL) {
        LOG_INFO("This token:<%s> Type is Central, not cache", CTools::Hash12(item.token).c_str());
        return 0;
    }
    if (item.token[0] == '\0') {
        LOG_INFO("This token is empty, not cache");
        return 0;
    }
    OCPP_SECTION(&m_mutex);
    if (ObtainAuthorizeCacheItem(item.token, item.tokenType, nullptr)) return UpdateItem(kCacheTable, item);
    return InsertItem(kCacheTable, item);
}

int CAuthorizeCache::ClearAuthorizeCache() {
    OCPP_SECTION(&m_mutex);
    return m_db.ExecuteSQL("delete from authorizecache");
}

int CAuthorizeCache::DeleteAuthorizeCacheItem(const AuthorizeItem& item) {
    OCPP_SECTION(&m_mutex);
    return m_db.ExecuteSQLBind("delete from authorizecache where token=? and tokentype=?",
                               {item.token, item.tokenType});
}

std::unique_ptr<AuthorizeItem> CAuthorizeCache::GetAuthorizeCacheItem(const char* token, int tokenType) {
    std::unique_ptr<AuthorizeItem> item(new AuthorizeItem());
    OCPP_SECTION(&m_mutex);
    if (!ObtainAuthorizeCacheItem(token != nullptr ? token : "", tokenType, item.get())) item.reset();
    return item;
}

std::unique_ptr<AuthorizeItem> CAuthorizeCache::GetLocalListItem(const char* token, int tokenType) {
    std::unique_ptr<AuthorizeItem> item(new AuthorizeItem());
    OCPP_SECTION(&m_mutex);
    if (!ObtainLocalListItem(token != nullptr ? token : "", tokenType, item.get())) item.reset();
    return item;
}

int CAuthorizeCache::UpdateLocalList(int version, const std::vector<AuthorizeItem>& items, int full) {
    {
        OCPP_SECTION(&m_mutex);
        if (full && m_db.ExecuteSQL("delete from locallist") != 1) return 0;
        bool ok = true;
        for (const AuthorizeItem& item : items) {
            if (item.status == AUTHORIZESTATUS_NONE) {
                ok = m_db.ExecuteSQLBind("delete from locallist where token=? and tokentype=?",
                                         {item.token, item.tokenType}) == 1;
            } else {
                AuthorizeItem stored{};
                if (!ObtainLocalListItem(item.token, item.tokenType, &stored)) {
                    ok = InsertItem(kListTable, item) == 1;
                } else if (!stored.IsSame(item)) {
                    ok = UpdateItem(kListTable, item) == 1;
                }
            }
            if (!ok) break;
        }
        if (ok) {
            ok = m_db.ExecuteSQLBind("delete from locallist where tokentype=?", {kVersionTokenType}) == 1 &&
                 m_db.ExecuteSQLBind("insert into locallist(token, tokentype)values(?, ?)",
                                     {std::to_string(version), kVersionTokenType}) == 1;
        }
        if (!ok) return 0;
    }
    UpdateLocalAuthListEntries();
    return 1;
}

int CAuthorizeCache::GetLocalListVersion() {
    OCPP_SECTION(&m_mutex);
    const std::list<std::string> rows =
        m_db.QuerySQL2Bind("select token from locallist where tokentype=? limit 1", {kVersionTokenType});
    return rows.empty() ? 0 : std::atoi(rows.front().c_str());
}

int CAuthorizeCache::IsTokenAcceptFrom(const char* table, const char* token, int tokenType, int* status) {
    *status = AUTHORIZESTATUS_NONE;
    AuthorizeItem item{};
    if (!ObtainItem(table, token, tokenType, &item)) return 0;
    if (item.expiryTime != 0 && item.status == AUTHORIZESTATUS_ACCEPTED && item.expiryTime < CTools::CurTimeSec()) {
        item.status = AUTHORIZESTATUS_EXPIRED;
        m_db.ExecuteSQLBind(std::string("update ") + table + " set status=? where token=? and tokentype=?",
                            {item.status, item.token, item.tokenType});
    }
    *status = item.status;
    return item.status == AUTHORIZESTATUS_ACCEPTED ? 1 : 0;
}

int CAuthorizeCache::IsTokenAcceptFromLocalList(const char* token, int tokenType, int* status) {
    OCPP_SECTION(&m_mutex);
    return IsTokenAcceptFrom(kListTable, token != nullptr ? token : "", tokenType, status);
}

int CAuthorizeCache::IsTokenAcceptFromAuthorizeCache(const char* token, int tokenType, int* status) {
    OCPP_SECTION(&m_mutex);
    return IsTokenAcceptFrom(kCacheTable, token != nullptr ? token : "", tokenType, status);
}

int CAuthorizeCache::IsTokenAccept(const char* token, int tokenType, int* status, int* fromLocalList) {
    *status = AUTHORIZESTATUS_NONE;
    CVariableCache* variables = CVariableCache::GetInstance();
    if (variables->LocalAuthListCtrlrEnabled()) {
        LOG_DEBUG("LocalAuthListEnable == TRUE");
        int found = AUTHORIZESTATUS_NONE;
        const int accepted = IsTokenAcceptFromLocalList(token, tokenType, &found);
        if (found != AUTHORIZESTATUS_NONE) {
            *status = found;
            *fromLocalList = 1;
        }
        if (accepted == 1) return 1;
    }
    if (variables->AuthCacheCtrlrEnabled()) {
        LOG_DEBUG("AuthCacheEnable == TRUE");
        int found = AUTHORIZESTATUS_NONE;
        const int accepted = IsTokenAcceptFromAuthorizeCache(token, tokenType, &found);
        // A cache entry overrides a local-list entry that did not accept.
        if (found != AUTHORIZESTATUS_NONE) {
            *status = found;
            *fromLocalList = 0;
        }
        if (accepted == 1) return 1;
    }
    return 0;
}

std::string CAuthorizeCache::GetGroupToken(const char* token) {
    const std::string text = token != nullptr ? token : "";
    OCPP_SECTION(&m_mutex);
    // A list entry without a group leaves the cache's group to answer.
    std::list<std::string> rows = m_db.QuerySQL2Bind("select grouptoken from locallist where token=? limit 1", {text});
    if (rows.empty() || rows.front().empty())
        rows = m_db.QuerySQL2Bind("select grouptoken from authorizecache where token=? limit 1", {text});
    return rows.empty() ? std::string() : rows.front();
}

std::vector<AuthorizeItem> CAuthorizeCache::GetTokenWhiteItems() {
    std::vector<AuthorizeItem> items;
    OCPP_SECTION(&m_mutex);
    const DbRows rows = m_db.QuerySQLBind("select * from locallist where tokentype != ?", {kVersionTokenType});
    items.reserve(rows.size());
    for (const DbRow& row : rows) items.push_back(ItemFromRow(row));
    return items;
}

int CAuthorizeCache::SetTokenWhiteItems(const std::vector<AuthorizeItem>& items) {
    int ok = 0;
    {
        OCPP_SECTION(&m_mutex);
        ok = m_db.ExecuteSQLBind("delete from locallist where tokentype != ?", {kVersionTokenType});
        for (size_t i = 0; ok == 1 && i < items.size(); ++i) ok = InsertItem(kListTable, items[i]);
    }
    UpdateLocalAuthListEntries();
    return ok;
}

int CAuthorizeCache::CountLocalList() {
    const std::list<std::string> rows = m_db.QuerySQL2("select count(*) as total from locallist");
    return rows.empty() ? 0 : std::atoi(rows.front().c_str());
}

int CAuthorizeCache::GetCurLocalListEntries() {
    OCPP_SECTION(&m_mutex);
    return CountLocalList();
}

void CAuthorizeCache::UpdateLocalAuthListEntries() {
    EntriesCount* count = new EntriesCount{0, 0};
    {
        OCPP_SECTION(&m_mutex);
        count->entries = CountLocalList();
        count->number = ++g_entriesTaken;
    }
    // Its own thread: the variable cache's lock is never taken under this store's.
    pthread_t thread = LinuxCreateThread(nullptr, &WriteEntries, count);
    if (thread != pthread_t{})
        pthread_detach(thread);
    else
        delete count;
}
