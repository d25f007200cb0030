#include "Process/ConnectManager.h"

#include <json/json.h>
#include <sys/stat.h>

#include <cstring>

#include "Util/CriticalSectionManager.h"
#include "Util/FileUtil.h"
#include "Util/Tools.h"

namespace {
// One writer at a time: the temporary file has a fixed name, and a snapshot
// built earlier must not land over a later one.
pthread_mutex_t g_storeFileSection = PTHREAD_MUTEX_INITIALIZER;

// A store of a handful of profiles; anything this large is not ours.
const size_t kMaxStoreBytes = 256 * 1024;

Json::Value ItemToJson(const ConnectionItem& item) {
    Json::Value v(Json::objectValue);
    v["id"] = item.id;
    v["priority"] = item.priority;
    v["conntype"] = item.connType;
    v["protocol"] = item.protocol;
    v["messagetimeout"] = item.messageTimeout;
    v["url"] = item.url;
    return v;
}

int32_t IntOf(const Json::Value& v, const char* key, int32_t fallback) {
    const Json::Value& f = v[key];
    return f.isInt() ? f.asInt() : fallback;
}

bool ItemFromJson(const Json::Value& v, ConnectionItem& item) {
    if (!v.isObject() || !v["url"].isString()) return false;
    memset(&item, 0, sizeof item);
    item.id = IntOf(v, "id", 0);
    item.priority = IntOf(v, "priority", 0);
    item.connType = IntOf(v, "conntype", 0);
    item.protocol = IntOf(v, "protocol", OCPPPROTOCOL_201);
    item.messageTimeout = CConnectManager::ClampMessageTimeout(IntOf(v, "messagetimeout", 5));
    CTools::CopyField(item.url, v["url"].asString());
    return true;
}
}  // namespace

// ---- Store file ---------------------------------------------------------------

int CConnectManager::SetStoreFile(const std::string& path) {
    {
        OCPP_SECTION(&m_listLock);
        if (path == m_strStoreFile && !path.empty()) return 1;
        if (path.empty()) return 0;
        m_strStoreFile = path;
    }
    LOG_INFO("Connection Cache File: %s", path.c_str());
    int err = 0;
    FileWriteResult r;
    const int created = CFileUtil::CreateIfAbsent(path, "{}", &err, &r);
    if (created == 0) {
        LOG_INFO("Connection Cache File already exists");
    } else if (created < 0 && r.failedStep == FileWriteResult::kOpen) {
        LOG_ERROR("SetStoreFile: openat failed, errno=%d", err);
        return 0;
    } else {
        // A failed first write is not fatal here: the next sync rewrites the whole file.
        if (created < 0) LOG_ERROR("CConnectManager write error, errno=%d", err);
        if (r.fsyncErr != 0) LOG_ERROR("CConnectManager fsync failed, errno=%d", r.fsyncErr);
        LOG_INFO("Connection Cache File created");
    }
    return SyncFromFile();
}

int CConnectManager::SyncFromFile() {
    std::string path;
    {
        OCPP_SECTION(&m_listLock);
        path = m_strStoreFile;
    }
    if (path.empty()) return 0;
    struct stat st;
    if (stat(path.c_str(), &st) != 0) return 0;
    if (static_cast<size_t>(st.st_size) > kMaxStoreBytes) {
        LOG_ERROR("Connection Cache File too large: %lld", (long long)st.st_size);
        return 0;
    }
    std::string text;
    if (!CFileUtil::ReadFile(path, text)) return 0;
    Json::Value root;
    std::string errors;
    const bool parsed = CTools::ParseJson(text, root, &errors);
    if (!parsed || !root.isObject()) {
        LOG_ERROR("Connection Cache File is not valid: %s", errors.c_str());
        return 0;
    }
    std::vector<ConnectionItem> items;
    bool haveItems = false;
    if (root["connectinfo"].isArray()) {
        haveItems = true;
        for (const Json::Value& v : root["connectinfo"]) {
            ConnectionItem item;
            if (items.size() < kMaxProfiles && ItemFromJson(v, item)) items.push_back(item);
        }
    }
    ConnectionItem cur;
    const bool haveCur = ItemFromJson(root["curconnection"], cur);
    {
        OCPP_SECTION(&m_listLock);
        if (haveItems) m_ConnItemVec = items;
        if (root["connectpriority"].isString()) m_strConnectPriority = root["connectpriority"].asString();
        if (root["factoryconfigbase64"].isString()) m_strFactoryConfigBase64 = root["factoryconfigbase64"].asString();
    }
    {
        OCPP_SECTION(&m_connLock);
        if (haveCur) m_curConnItem = cur;
        if (root["offlinetimesec"].isInt64() && m_iOfflineTimeSec == 0)
            m_iOfflineTimeSec = root["offlinetimesec"].asInt64();
    }
    if (root["isacceptedbycsms"].isInt()) m_bAcceptedByCsms = root["isacceptedbycsms"].asInt() != 0 ? 1 : 0;
    return 1;
}

std::string CConnectManager::BuildJson() {
    Json::Value root(Json::objectValue);
    Json::Value list(Json::arrayValue);
    {
        OCPP_SECTION(&m_listLock);
        if (m_ConnItemVec.empty()) LOG_ERROR("m_ConnItemVec is empty");
        for (const ConnectionItem& item : m_ConnItemVec) list.append(ItemToJson(item));
        root["connectpriority"] = m_strConnectPriority;
        root["factoryconfigbase64"] = m_strFactoryConfigBase64;
    }
    root["connectinfo"] = list;
    {
        OCPP_SECTION(&m_connLock);
        if (m_curConnItem.url[0] != '\0') root["curconnection"] = ItemToJson(m_curConnItem);
        root["offlinetimesec"] = static_cast<Json::Int64>(m_iOfflineTimeSec);
    }
    root["isacceptedbycsms"] = m_bAcceptedByCsms.load();
    Json::StreamWriterBuilder writer;
    writer["indentation"] = "";
    return Json::writeString(writer, root);
}

int CConnectManager::SyncToFile() {
    std::string path;
    {
        OCPP_SECTION(&m_listLock);
        path = m_strStoreFile;
    }
    if (path.empty()) return 0;
    LOG_INFO("Connection write to File");
    OCPP_SECTION(&g_storeFileSection);
    const std::string text = BuildJson();
    const std::string tmp = path + "1";
    const FileWriteResult r = CFileUtil::WriteFileAtomicEx(path, text, "1");
    switch (r.failedStep) {
    case FileWriteResult::kOpen:
        LOG_ERROR("SyncToFile: openat(%s) failed, errno=%d", tmp.c_str(), r.err);
        return 0;
    case FileWriteResult::kWrite:
        LOG_ERROR("SyncToFile: write failed, errno=%d", r.err);
        return 0;
    default:
        break;
    }
    if (r.fsyncErr != 0) LOG_ERROR("SyncToFile: fsync failed, errno=%d", r.fsyncErr);
    if (r.failedStep == FileWriteResult::kRename) {
        LOG_ERROR("SyncToFile: renameat(%s -> %s) failed, errno=%d", tmp.c_str(), path.c_str(), r.err);
        return 0;
    }
    LOG_INFO("Connection write to File Success");
    return 1;
}
