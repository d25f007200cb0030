#include "Process/ConnectManager.h"

#include <json/json.h>

#include <cstring>

#include "Util/CriticalSectionManager.h"
#include "Util/Tools.h"

namespace {

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

JsonStoreTexts CConnectManager::StoreTexts() {
    JsonStoreTexts t;
    t.fileIs = "Connection Cache File: %s";
    t.alreadyExists = "Connection Cache File already exists";
    t.created = "Connection Cache File created";
    t.createFailed = "SetStoreFile: openat failed, errno=%d";
    t.createWriteFailed = "CConnectManager write error, errno=%d";
    t.createFsyncFailed = "CConnectManager fsync failed, errno=%d";
    t.tooLarge = "Connection Cache File too large: %lld";
    t.unreadable = JsonStoreTexts::kQuiet;
    t.invalid = "Connection Cache File is not valid: %s";
    t.writing = "Connection write to File";
    t.openFailed = "SyncToFile: openat(%s) failed, errno=%d";
    t.dataFailed = "SyncToFile: write failed, errno=%d";
    t.fsyncFailed = "SyncToFile: fsync failed, errno=%d";
    t.renameFailed = "SyncToFile: renameat(%s -> %s) failed, errno=%d";
    t.written = "Connection write to File Success";
    return t;
}

JsonStoreShape CConnectManager::StoreShape() {
    JsonStoreShape shape;
    shape.emptyImage = "{}";
    // A store of a handful of profiles; anything this large is not ours.
    shape.maxBytes = 256 * 1024;
    shape.emptyPathRefused = true;
    // A failed first write is not fatal here: the next sync rewrites the whole file.
    shape.keepAfterCreateWriteError = true;
    shape.unboundWriteResult = 0;
    return shape;
}

// ---- Store file ---------------------------------------------------------------

int CConnectManager::SyncFromFile() {
    Json::Value root;
    if (ReadImage(root) != kRead) return 0;
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

std::string CConnectManager::BuildImage() {
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
