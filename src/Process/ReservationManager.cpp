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
JsonStoreTexts StoreTexts() {
    JsonStoreTexts t;
    t.fileIs = "Reservation Cache File: %s";
    t.alreadyExists = "Reservation Cache File already exists";
    t.created = "Reservation Cache File created";
    t.createFailed = "SetStoreFile: openat failed, errno=%d";
    t.createWriteFailed = "CReservationManager write error, errno=%d";
    t.createFsyncFailed = "CReservationManager fsync failed, errno=%d";
    t.unreadable = "Reservation Cache File can not be read: %s";
    t.invalid = "Reservation Cache File json parse failed";
    t.openFailed = "SyncToFile: openat(%s) failed errno=%d";
    t.dataFailed = "SyncToFile: write failed errno=%d";
    t.fsyncFailed = "SyncToFile: fsync failed errno=%d";
    t.renameFailed = "SyncToFile: renameat(%s→%s) failed errno=%d";
    return t;
}

JsonStoreShape StoreShape() {
    JsonStoreShape shape;
    shape.emptyImage = "[]";
    // 1000 records of a few hundred bytes each; a larger file is not ours.
    shape.maxBytes = 1024 * 1024;
    shape.sameFileReloads = true;
    return shape;
}

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

// Never freed (threads may hold the pointer); a release empties and unbinds it.
void CReservationManager::ResetInPlace() {
    Unbind();
    OCPP_SECTION(&m_mutex);
    m_items.clear();
    m_pendingCancels.clear();
}

CReservationManager::CReservationManager() : CJsonStore(StoreTexts(), StoreShape()) {
    pthread_mutex_init(&m_mutex, nullptr);
}

CReservationManager::~CReservationManager() { pthread_mutex_destroy(&m_mutex); }

int CReservationManager::SyncFromFile() {
    {
        OCPP_SECTION(&m_mutex);
        m_items.clear();
    }
    Json::Value root;
    const ReadResult read = ReadImage(root);
    if (read != kRead) return read == kUnbound ? 1 : 0;
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

// fsync runs without the list lock, so lookups never wait on the flash.
std::string CReservationManager::BuildImage() {
    std::string text;
    OCPP_SECTION(&m_mutex);
    DropExpired();
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
    return text;
}

// Caller holds m_mutex.
void CReservationManager::DropExpired() {
    const uint32_t now = NowSec();
    m_items.erase(std::remove_if(m_items.begin(), m_items.end(),
                                 [now](const ReservationItem& r) { return Expired(r, now); }),
                  m_items.end());
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

void CReservationManager::NoteCancelRequest(const char* messageId, uint32_t id) {
    OCPP_SECTION(&m_mutex);
    if (m_pendingCancels.size() >= kMaxPendingCancels) m_pendingCancels.pop_front();
    m_pendingCancels.emplace_back(messageId != nullptr ? messageId : "", id);
}

int CReservationManager::SettleCancelRequest(const char* messageId, bool accepted) {
    const std::string key = messageId != nullptr ? messageId : "";
    bool found = false;
    uint32_t id = 0;
    {
        OCPP_SECTION(&m_mutex);
        for (auto it = m_pendingCancels.begin(); it != m_pendingCancels.end(); ++it) {
            if (it->first != key) continue;
            id = it->second;
            found = true;
            m_pendingCancels.erase(it);
            break;
        }
    }
    if (!found || !accepted) return 0;
    LOG_INFO("CancelReservation %s accepted: reservation %u removed", key.c_str(), id);
    return RemoveReservation(id);
}
