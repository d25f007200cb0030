#include "Process/ReservationManager.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <memory>

#include <json/json.h>

#include "Ocpp20/Protocol/JsonText.h"
#include "Util/CriticalSectionManager.h"
#include "Util/FileUtil.h"
#include "Util/Tools.h"

namespace {
pthread_mutex_t g_instanceSection = PTHREAD_MUTEX_INITIALIZER;

// 1000 records of a few hundred bytes each; a larger file is not ours.
const off_t kMaxFileBytes = 1024 * 1024;

uint32_t NowSec() {
    const int64_t now = CTools::CurTimeSec();
    return now < 0 ? 0u : static_cast<uint32_t>(now);
}

bool Expired(const ReservationItem& item, uint32_t now) { return item.expiryTimeSec <= now; }

// A token longer than its field would match another token once cut.
bool ReadToken(const Json::Value& value, char* field, size_t capacity) {
    if (!value.isString()) return false;
    const std::string text = value.asString();
    if (text.size() >= capacity) return false;
    CTools::CopyField(field, capacity, text);
    return true;
}

bool ItemFromJson(const Json::Value& e, ReservationItem* item) {
    if (!e.isObject()) return false;
    memset(item, 0, sizeof *item);
    const Json::Value& id = e["id"];
    const Json::Value& tokenType = e["tokentype"];
    const Json::Value& groupTokenType = e["grouptokentype"];
    const Json::Value& expiry = e["expirytimesec"];
    if (!id.isUInt() || !tokenType.isInt() || !groupTokenType.isInt() || !expiry.isUInt()) return false;
    item->id = id.asUInt();
    item->tokenType = tokenType.asInt();
    item->groupTokenType = groupTokenType.asInt();
    item->expiryTimeSec = expiry.asUInt();
    return ReadToken(e["token"], item->token, sizeof item->token) &&
           ReadToken(e["grouptoken"], item->groupToken, sizeof item->groupToken);
}
}  // namespace

CReservationManager* CReservationManager::s_instance = nullptr;

// The object is never freed: other threads may still hold the pointer they got
// a moment ago. Release puts it back to its freshly constructed state instead.
CReservationManager* CReservationManager::GetInstance() {
    OCPP_SECTION(&g_instanceSection);
    if (s_instance == nullptr) s_instance = new CReservationManager();
    return s_instance;
}

void CReservationManager::Release() {
    CReservationManager* instance;
    {
        OCPP_SECTION(&g_instanceSection);
        instance = s_instance;
    }
    if (instance == nullptr) return;
    OCPP_SECTION(&instance->m_mutex);
    instance->m_items.clear();
    instance->m_path.clear();
}

CReservationManager::CReservationManager() {
    pthread_mutex_init(&m_mutex, nullptr);
    pthread_mutex_init(&m_fileMutex, nullptr);
}

CReservationManager::~CReservationManager() {
    pthread_mutex_destroy(&m_fileMutex);
    pthread_mutex_destroy(&m_mutex);
}

int CReservationManager::SetStoreFile(const std::string& path) {
    {
        OCPP_SECTION(&m_mutex);
        m_path = path;
    }
    LOG_INFO("Reservation Cache File: %s", path.c_str());
    int err = 0;
    FileWriteResult r;
    const int created = CFileUtil::CreateIfAbsent(path, "[]", &err, &r);
    if (created == 0) {
        LOG_INFO("Reservation Cache File already exists");
        return SyncFromFile();
    }
    if (created < 0) {
        if (r.failedStep == FileWriteResult::kOpen)
            LOG_ERROR("SetStoreFile: openat failed, errno=%d", err);
        else
            LOG_ERROR("CReservationManager write error, errno=%d", err);
        return 0;
    }
    if (r.fsyncErr != 0) LOG_ERROR("CReservationManager fsync failed, errno=%d", r.fsyncErr);
    LOG_INFO("Reservation Cache File created");
    return SyncFromFile();
}

int CReservationManager::SyncFromFile() {
    std::string path;
    {
        OCPP_SECTION(&m_mutex);
        m_items.clear();
        path = m_path;
    }
    if (path.empty()) return 1;
    std::string text;
    struct stat st;
    if (stat(path.c_str(), &st) != 0 || st.st_size > kMaxFileBytes || !CFileUtil::ReadFile(path, text)) {
        LOG_ERROR("Reservation Cache File can not be read: %s", path.c_str());
        return 0;
    }
    Json::Value root;
    const bool parsed = CTools::ParseJson(text, root);
    if (!parsed || !root.isArray()) {
        LOG_ERROR("Reservation Cache File json parse failed");
        return 0;
    }
    const int count = static_cast<int>(root.size());
    if (count < 0 || count > kMaxReservations) {
        LOG_ERROR("预约数量异常(%d)，限制范围[0-%d]", count, kMaxReservations);
        return 0;
    }
    const uint32_t now = NowSec();
    OCPP_SECTION(&m_mutex);
    for (const Json::Value& element : root) {
        ReservationItem item;
        if (!ItemFromJson(element, &item)) continue;
        if (Expired(item, now)) continue;
        m_items.push_back(item);
    }
    return 1;
}

int CReservationManager::SyncToFile() {
    std::string text;
    std::string path;
    uint64_t seq;
    {
        OCPP_SECTION(&m_mutex);
        if (m_path.empty()) return 1;
        DropExpired();
        path = m_path;
        text.reserve(m_items.size() * 160 + 2);
        text += '[';
        for (size_t i = 0; i < m_items.size(); ++i) {
            const ReservationItem& r = m_items[i];
            if (i) text += ',';
            text += '{';
            CJsonText::AppendIntMember(text, "id", r.id, true);
            CJsonText::AppendIntMember(text, "tokentype", r.tokenType);
            CJsonText::AppendStringMember(text, "token", r.token);
            CJsonText::AppendIntMember(text, "grouptokentype", r.groupTokenType);
            CJsonText::AppendStringMember(text, "grouptoken", r.groupToken);
            CJsonText::AppendIntMember(text, "expirytimesec", r.expiryTimeSec);
            text += '}';
        }
        text += ']';
        seq = ++m_snapshotSeq;
    }
    // fsync runs without the list lock, so lookups never wait on the flash.
    OCPP_SECTION(&m_fileMutex);
    // A later snapshot already reached the disk: writing this one would undo it.
    if (seq < m_writtenSeq) return 1;
    const int rc = WriteImage(text, path);
    if (rc == 1) m_writtenSeq = seq;
    return rc;
}

// Caller holds m_mutex.
void CReservationManager::DropExpired() {
    const uint32_t now = NowSec();
    m_items.erase(std::remove_if(m_items.begin(), m_items.end(),
                                 [now](const ReservationItem& r) { return Expired(r, now); }),
                  m_items.end());
}

// Caller holds m_fileMutex.
int CReservationManager::WriteImage(const std::string& text, const std::string& path) {
    const std::string tmp = path + "1";
    const FileWriteResult r = CFileUtil::WriteFileAtomicEx(path, text, "1");
    switch (r.failedStep) {
    case FileWriteResult::kOpen:
        LOG_ERROR("SyncToFile: openat(%s) failed errno=%d", tmp.c_str(), r.err);
        return 0;
    case FileWriteResult::kWrite:
        LOG_ERROR("SyncToFile: write failed errno=%d", r.err);
        return 0;
    default:
        break;
    }
    if (r.fsyncErr != 0) LOG_ERROR("SyncToFile: fsync failed errno=%d", r.fsyncErr);
    if (r.failedStep == FileWriteResult::kRename) {
        LOG_ERROR("SyncToFile: renameat(%s→%s) failed errno=%d", tmp.c_str(), path.c_str(), r.err);
        return 0;
    }
    return 1;
}

int CReservationManager::AddReservationItem(const ReservationItem& item) {
    {
        OCPP_SECTION(&m_mutex);
        for (auto it = m_items.begin(); it != m_items.end(); ++it) {
            if (it->id == item.id) {
                m_items.erase(it);
                break;
            }
        }
        // Expired ones otherwise pile up until the file is too big to load at all.
        DropExpired();
        if (m_items.size() >= static_cast<size_t>(kMaxReservations)) {
            LOG_ERROR("reservation store full (%d live), reservation %u refused", static_cast<int>(m_items.size()),
                      static_cast<unsigned>(item.id));
            return 0;
        }
        ReservationItem copy = item;
        copy.token[sizeof copy.token - 1] = '\0';
        copy.groupToken[sizeof copy.groupToken - 1] = '\0';
        m_items.push_back(copy);
    }
    return SyncToFile();
}

int CReservationManager::GetReservationItem(uint32_t id, ReservationItem* item) {
    bool expired = false;
    {
        OCPP_SECTION(&m_mutex);
        for (const ReservationItem& r : m_items) {
            if (r.id != id) continue;
            if (Expired(r, NowSec())) {
                expired = true;
                break;
            }
            if (item != nullptr) *item = r;
            return 1;
        }
    }
    if (expired) RemoveReservation(id);
    return 0;
}

int CReservationManager::RemoveReservation(uint32_t id) {
    bool removed = false;
    {
        OCPP_SECTION(&m_mutex);
        for (auto it = m_items.begin(); it != m_items.end(); ++it) {
            if (it->id == id) {
                m_items.erase(it);
                removed = true;
                break;
            }
        }
    }
    if (removed) SyncToFile();
    return removed ? 1 : 0;
}

void CReservationManager::RemoveAll() {
    {
        OCPP_SECTION(&m_mutex);
        m_items.clear();
    }
    SyncToFile();
}

size_t CReservationManager::Count() {
    OCPP_SECTION(&m_mutex);
    return m_items.size();
}

int CReservationManager::StoreReservation(uint32_t id, const char* idToken, int32_t tokenType,
                                          const char* groupToken, int32_t groupTokenType, uint32_t expiryTimeSec) {
    ReservationItem item;
    memset(&item, 0, sizeof item);
    item.id = id;
    item.tokenType = tokenType;
    CTools::CopyField(item.token, idToken ? idToken : "");
    item.groupTokenType = groupTokenType;
    CTools::CopyField(item.groupToken, groupToken ? groupToken : "");
    item.expiryTimeSec = expiryTimeSec;
    return AddReservationItem(item);
}

int CReservationManager::CheckReservedStart(uint32_t id, const char* idToken, const char* groupToken) {
    ReservationItem item;
    if (GetReservationItem(id, &item) != 1) return RESERVATION_ABSENT;
    if (idToken != nullptr && strcmp(idToken, item.token) == 0) return RESERVATION_ACCEPTED;
    if (item.groupToken[0] != '\0' && groupToken != nullptr && strcmp(groupToken, item.groupToken) == 0)
        return RESERVATION_ACCEPTED;
    return RESERVATION_REFUSED;
}
