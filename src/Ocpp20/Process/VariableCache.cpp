#include "Ocpp20/Process/VariableCache.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <sstream>

#include <json/json.h>

#include "Ocpp20/Process/VariableCharacteristics.h"
#include "Ocpp20/Process/VariableCustom.h"
#include "Util/CriticalSectionManager.h"
#include "Process/ConnectManager.h"
#include "Util/FileUtil.h"
#include "Util/Tools.h"

namespace {

// Change notifications to blocks that are not in this library build yet.
// Each one is called with the cache lock held and must not call back into the cache's writers.
void NotifyVariableCheck(const VariableDataItem20&) {}
void NotifyVariableMonitor(const VariableDataItem20&) {}
void NotifyPingInterval(int seconds) { CConnectManager::GetInstance()->SetWebSocketPingInterval(seconds); }
// Refusing leaves the entry Rejected.
int ResetNetworkPriority(const char* value) {
    return value != nullptr ? CConnectManager::GetInstance()->ResetAllPriority(value) : 0;
}

JsonStoreTexts StoreTexts() {
    JsonStoreTexts t;
    t.fileIs = "Variable Cache File:%s";
    t.alreadyExists = "Variable Cache File already exist";
    t.created = "Variable Cache File created";
    t.createFailed = "SetStoreFile: create failed, errno=%d";
    t.createWriteFailed = "CVariableCache write error, errno=%d";
    t.createFsyncFailed = "fsync failed, errno=%d";
    t.invalid = "Variables File  json parse failed \n";
    t.openFailed = "SyncToFile: openat(%s) failed errno=%d\n";
    t.dataFailed = "SyncToFile: write failed errno=%d\n";
    t.fsyncFailed = "SyncToFile: fsync failed errno=%d\n";
    t.renameFailed = "SyncToFile: renameat(%s → %s) failed errno=%d\n";
    return t;
}

JsonStoreShape StoreShape() {
    JsonStoreShape shape;
    shape.emptyImage = "[]";
    // A legitimate file of 3000 records stays far below this; anything larger is not read into memory.
    shape.maxBytes = static_cast<size_t>(CVariableCache::kMaxRecords) * 8192;
    shape.writeFailuresToStdout = true;
    return shape;
}

bool IsHeartbeatInterval(const VariableDataItem20& item) {
    return strcmp(item.componentName, "OCPPCommCtrlr") == 0 && strcmp(item.variableName, "HeartbeatInterval") == 0;
}

// Whole seconds, never negative: anything else would turn into a heartbeat on every tick.
bool IsSeconds(const char* value) {
    if (!CTools::IsInt(value)) return false;
    errno = 0;
    const long long seconds = strtoll(value, nullptr, 10);
    return errno == 0 && seconds >= 0 && seconds <= INT32_MAX;
}

bool IsDateTime(const VariableDataItem20& item) {
    return strcmp(item.componentName, "ClockCtrlr") == 0 && strcmp(item.variableName, "DateTime") == 0;
}

// The station clock is never stored: it is read when asked for.
void FillClock(VariableDataItem20& item) {
    if (IsDateTime(item))
        CTools::CopyField(item.attributeValue, CTools::GetLocalTime(CTools::CurTimeMilSec() / 1000));
}

VariableDataItem20 FromRegister(const VariableItemRegister& row) {
    VariableDataItem20 item;
    CTools::CopyField(item.componentName, row.componentName);
    CTools::CopyField(item.variableName, row.variableName);
    CTools::CopyField(item.variableInstance, row.variableInstance);
    CTools::CopyField(item.attributeValue, row.defaultValue);
    item.mode = row.mode;
    item.attributeType = row.attributeType;
    item.constant = row.constant;
    return item;
}

}  // namespace

// Never freed (threads may hold the pointer); a release puts it back to its defaults.
void CVariableCache::ResetInPlace() {
    Unbind();
    InitDefault();
    LoadDefault();
}

CVariableCache::CVariableCache() : CJsonStore(StoreTexts(), StoreShape()) {
    pthread_mutex_init(&m_mutex, nullptr);
    InitDefault();  // a store opened without InitDefault still gets its defaults
    // Without a cache folder no file is ever bound; the station still needs its
    // defaults (heartbeat interval, offline threshold, ...). No path: nothing is written.
    LoadDefault();
}

CVariableCache::~CVariableCache() { pthread_mutex_destroy(&m_mutex); }

int CVariableCache::LoadDefault() {
    {
        OCPP_SECTION(&m_mutex);
        m_items.clear();
        for (const VariableItemRegister& row : m_register) m_items.push_back(FromRegister(row));
    }
    return SyncToFile();
}

int CVariableCache::CheckFromDefault() {
    {
        OCPP_SECTION(&m_mutex);
        for (const VariableItemRegister& row : m_register) {
            bool present = false;
            for (const VariableDataItem20& item : m_items) {
                if (item.IsSameVariable(&row)) {
                    present = true;
                    break;
                }
            }
            if (!present) m_items.push_back(FromRegister(row));
        }
    }
    SyncToFile();
    return 1;
}

int CVariableCache::SyncFromFile() {
    Json::Value root;
    const ReadResult read = ReadImage(root);
    if (read == kUnbound) return 1;
    const int count = read == kRead ? static_cast<int>(root.size()) : 0;
    if (count == 0) {
        LoadDefault();
        return 1;
    }
    if (count > kMaxRecords) {
        LOG_ERROR("变量数量超标(%d > %d)，加载默认配置", count, kMaxRecords);
        LoadDefault();
        return 1;
    }
    {
        OCPP_SECTION(&m_mutex);
        m_items.clear();
        for (const Json::Value& element : root) {
            VariableDataItem20 item;
            if (!item.FromJson(element)) continue;
            if (item.notPersistent == 1) continue;
            OnVariableChange(item);
            m_items.push_back(item);
        }
    }
    CheckFromDefault();
    return 1;
}

std::string CVariableCache::BuildImage() {
    std::string text;
    OCPP_SECTION(&m_mutex);
    text.reserve(m_items.size() * 256 + 2);
    text += '[';
    for (size_t i = 0; i < m_items.size(); ++i) {
        if (i) text += ',';
        m_items[i].AppendJson(text);
    }
    text += ']';
    return text;
}

std::vector<VariableDataItem20*> CVariableCache::GetItem(const char* component, const char* variable) {
    std::vector<VariableDataItem20*> found;
    for (VariableDataItem20& item : m_items) {
        if (strcmp(item.componentName, component) != 0) continue;
        if (variable[0] != '\0' && strcmp(item.variableName, variable) != 0) continue;
        found.push_back(&item);
    }
    return found;
}

std::vector<VariableDataItem20> CVariableCache::GetVariables(const VariableDataItem20& query, int exact) {
    std::vector<VariableDataItem20> result;
    OCPP_SECTION(&m_mutex);
    for (VariableDataItem20* item : GetItem(query.componentName, query.variableName))
        if (item->IsSameVariable(query, exact)) result.push_back(*item);
    return result;
}

VariableDataItem20 CVariableCache::GetVariable(const char* component, const char* variable) {
    VariableDataItem20 query = VariableDataItem20::Make(component, variable);
    query.status = VARIABLESTATUS_REJECTED;
    std::vector<VariableDataItem20> found = GetVariables(query, 1);
    if (found.size() == 1) return found[0];
    LOG_ERROR("GetVariable Error=>ComponentName:%s VariableName:%s", component, variable);
    return query;
}

int CVariableCache::GetVariable(VariableDataItem20* item) {
    if (item == nullptr) return 0;
    item->status = VARIABLESTATUS_REJECTED;
    std::vector<VariableDataItem20> found = GetVariables(*item, 1);
    if (found.size() != 1) return 0;
    *item = found[0];
    item->status = VARIABLESTATUS_ACCEPTED;
    FillClock(*item);
    return 1;
}

std::string CVariableCache::GetVariableAttributeValue(const VariableDataItem20& item) {
    VariableDataItem20 copy = item;
    return GetVariable(&copy) == 1 ? std::string(copy.attributeValue) : std::string();
}

std::string CVariableCache::GetValue(const std::vector<VariableDataItem20>& list, int attributeType) {
    for (const VariableDataItem20& item : list)
        if (item.attributeType == attributeType) return item.attributeValue;
    return std::string();
}

std::string CVariableCache::GetMaxValue(const std::vector<VariableDataItem20>& list) {
    return GetValue(list, VARIABLEATTRIBUTETYPE_MAXSET);
}

std::string CVariableCache::GetMinValue(const std::vector<VariableDataItem20>& list) {
    return GetValue(list, VARIABLEATTRIBUTETYPE_MINSET);
}

int CVariableCache::UpdateVariableValue(const VariableDataItem20& item) {
    bool found = false;
    {
        OCPP_SECTION(&m_mutex);
        for (VariableDataItem20& record : m_items) {
            if (!record.IsSameVariable(item, 1)) continue;
            CTools::CopyField(record.attributeValue, item.attributeValue);
            NotifyVariableMonitor(item);
            OnVariableChange(item);
            found = true;
            break;
        }
    }
    if (!found) return VARIABLESTATUS_UNKNOWNCOMPONENT;
    SyncToFile();
    return VARIABLESTATUS_ACCEPTED;
}

void CVariableCache::NotifyChange(const VariableDataItem20& item) {
    NotifyVariableCheck(item);
    NotifyVariableMonitor(item);
    OnVariableChange(item);
    CVariableCustom::GetInstance()->SetCustomVariable(item);
}

bool CVariableCache::ApplyLocked(const std::vector<VariableDataItem20>& list,
                                 std::vector<VariableDataItem20>* before) {
    bool changed = false;
    for (const VariableDataItem20& incoming : list) {
        auto it = m_items.begin();
        for (; it != m_items.end(); ++it)
            if (it->IsSameVariable(incoming, 1)) break;
        if (it == m_items.end()) {
            m_items.push_back(incoming);
            changed = true;
            continue;
        }
        if (strcmp(it->attributeValue, incoming.attributeValue) == 0) continue;
        if (before != nullptr) before->push_back(*it);
        m_items.erase(it);
        VariableDataItem20 record = incoming;
        record.status = VARIABLESTATUS_ACCEPTED;
        m_items.push_back(record);
        NotifyChange(record);
        changed = true;
    }
    return changed;
}

int CVariableCache::SetVariables(const std::vector<VariableDataItem20>& list) {
    bool changed;
    {
        OCPP_SECTION(&m_mutex);
        changed = ApplyLocked(list, nullptr);
    }
    return changed ? SyncToFile() : 1;
}

int CVariableCache::SetVariablesDurably(const std::vector<VariableDataItem20>& list) {
    std::vector<VariableDataItem20> before;
    bool changed;
    {
        OCPP_SECTION(&m_mutex);
        changed = ApplyLocked(list, &before);
    }
    // The same values again are already on the flash, unless the last write failed.
    if (!changed && !LastWriteFailed()) return 1;
    if (SyncToFileDurably() == 1) return 1;
    // Not on the flash, so not in force either: the previous values come back.
    OCPP_SECTION(&m_mutex);
    ApplyLocked(before, nullptr);
    return 0;
}

int CVariableCache::UpgradeVariable(const VariableUpgradeItem& upgradeItem) {
    VariableDataItem20 record = VariableDataItem20::FromPublic(upgradeItem.variable);
    LOG_INFO("UpgradeVariable===>%s", record.ToString().c_str());
    {
        OCPP_SECTION(&m_mutex);
        for (auto it = m_items.begin(); it != m_items.end(); ++it) {
            if (!it->IsSameVariable(record, 1)) continue;
            CTools::CopyField(record.attributeValue, it->attributeValue);
            m_items.erase(it);
            break;
        }
        if (upgradeItem.operation == VARIABLEUPGRADE_ADD || upgradeItem.operation == VARIABLEUPGRADE_UPDATE) {
            NotifyChange(record);
            m_items.push_back(record);
        }
    }
    return SyncToFile();
}

int CVariableCache::CheckStatus(const VariableDataItem20& item, int& mode) {
    int result = VARIABLESTATUS_UNKNOWNCOMPONENT;
    bool found = false;
    OCPP_SECTION(&m_mutex);
    for (const VariableDataItem20& record : m_items) {
        if (record.IsSameComponent(item)) {
            if (strcmp(record.variableName, item.variableName) == 0 &&
                strcmp(record.variableInstance, item.variableInstance) == 0) {
                found = true;
                if (record.attributeType == item.attributeType) {
                    mode = record.mode;
                    result = VARIABLESTATUS_ACCEPTED;
                } else {
                    result = VARIABLESTATUS_NOTSUPPORTEDATTRIBUTETYPE;
                }
            } else {
                result = VARIABLESTATUS_UNKNOWNVARIABLE;
            }
        }
        if (result == VARIABLESTATUS_ACCEPTED) break;
    }
    if (found && result != VARIABLESTATUS_ACCEPTED) result = VARIABLESTATUS_NOTSUPPORTEDATTRIBUTETYPE;
    return result;
}

namespace {

// Component part of the status checks. An instance together with an EVSE never
// matches: kept that way on purpose.
bool ComponentMatches(const VariableDataItem20& record, const VariableDataItem20& query) {
    if (strcmp(record.componentName, query.componentName) != 0) return false;
    const bool instance = query.componentInstance[0] != '\0';
    if (!instance && query.evseId != 0) return record.evseId == query.evseId;
    if (!instance) return true;
    if (query.evseId == 0) return strcmp(record.componentInstance, query.componentInstance) == 0;
    return false;
}

bool VariableMatches(const VariableDataItem20& record, const VariableDataItem20& query) {
    if (strcmp(record.variableName, query.variableName) != 0) return false;
    return query.variableInstance[0] == '\0' || strcmp(record.variableInstance, query.variableInstance) == 0;
}

}  // namespace

int CVariableCache::CheckMatchStatus(const VariableDataItem20& item, int& mode, RecordMatcher matches,
                                     int notFound) {
    bool matched = false;
    OCPP_SECTION(&m_mutex);
    for (const VariableDataItem20& record : m_items) {
        if (!matches(record, item)) continue;
        matched = true;
        if (record.attributeType == item.attributeType) {
            mode = record.mode;
            return VARIABLESTATUS_ACCEPTED;
        }
    }
    return matched ? VARIABLESTATUS_NOTSUPPORTEDATTRIBUTETYPE : notFound;
}

int CVariableCache::CheckComponentStatus(const VariableDataItem20& item, int& mode) {
    return CheckMatchStatus(item, mode, ComponentMatches, VARIABLESTATUS_UNKNOWNCOMPONENT);
}

int CVariableCache::CheckVariableStatus(const VariableDataItem20& item, int& mode) {
    return CheckMatchStatus(item, mode, VariableMatches, VARIABLESTATUS_UNKNOWNVARIABLE);
}

int CVariableCache::IsProtocolSdkOpt(const VariableDataItem20& item) {
    OCPP_SECTION(&m_mutex);
    for (const VariableItemRegister& row : m_register)
        if (item.IsSameVariable(&row)) return 1;
    return 0;
}

int CVariableCache::CheckSetVariable(VariableDataItem20& item) {
    int mode = VARIABLEMODE_READWRITE;
    int status = CheckStatus(item, mode);
    if (status == VARIABLESTATUS_ACCEPTED && mode == VARIABLEMODE_READONLY) {
        status = VARIABLESTATUS_REJECTED;
        LOG_INFO("This variable is readOnly");
    }
    if (status == VARIABLESTATUS_ACCEPTED &&
        CVariableCharacteristics::GetInstance()->CheckCharacteristics(
            item.attributeValue, item.componentName, item.variableName, item.variableInstance,
            item.componentInstance, item.evseId, item.connectorId) == 0) {
        status = VARIABLESTATUS_REJECTED;
        LOG_INFO("This value does not match the characteristics of the variable");
    }
    if (status == VARIABLESTATUS_ACCEPTED && IsHeartbeatInterval(item) && !IsSeconds(item.attributeValue)) {
        status = VARIABLESTATUS_REJECTED;
        LOG_INFO("This value does not match the characteristics of the variable");
    }
    if (status == VARIABLESTATUS_ACCEPTED) {
        if (IsProtocolSdkOpt(item) == 0) {
            status = VARIABLESTATUS_HOSTDECIDE;
            LOG_INFO("Not sdk opt");
        } else if (strcmp(item.componentName, "OCPPCommCtrlr") == 0 &&
                   strcmp(item.variableName, "NetworkConfigurationPriority") == 0) {
            status = ResetNetworkPriority(item.attributeValue) == 1 ? VARIABLESTATUS_REBOOTREQUIRED
                                                                    : VARIABLESTATUS_REJECTED;
        }
    }
    LOG_INFO("Variable:%s\t%s\t%d", item.componentName, item.variableName, status);
    item.status = status;
    return status;
}

bool CVariableCache::HasComponentAt(const VariableDataItem20& query) {
    OCPP_SECTION(&m_mutex);
    for (const VariableDataItem20& record : m_items)
        if (record.IsSameComponent(query) && record.connectorId == query.connectorId) return true;
    return false;
}

std::vector<VariableDataItem20> CVariableCache::AnswerGetVariables(const std::vector<VariableDataItem20>& queries) {
    std::vector<VariableDataItem20> answers;
    CVariableCustom* custom = CVariableCustom::GetInstance();
    for (const VariableDataItem20& q : queries) {
        VariableDataItem20 query = q;
        int mode = VARIABLEMODE_WRITEONLY;
        query.status = CheckStatus(query, mode);
        if (query.status != VARIABLESTATUS_ACCEPTED) {
            query.attributeValue[0] = '\0';
            answers.push_back(query);
            continue;
        }
        VariableDataItem20 read = query;
        if (GetVariable(&read) == 0) {
            // Every requested entry gets a result: one that cannot be read
            // is unknown, at the component level when nothing of that
            // component lives at the requested EVSE and connector.
            LOG_ERROR("GetVariable error\n%s", query.ToString().c_str());
            query.status = HasComponentAt(query) ? VARIABLESTATUS_UNKNOWNVARIABLE : VARIABLESTATUS_UNKNOWNCOMPONENT;
            query.attributeValue[0] = '\0';
            answers.push_back(query);
            continue;
        }
        if (mode == VARIABLEMODE_WRITEONLY) {
            LOG_INFO("This Variable is writeOnly");
            read.status = VARIABLESTATUS_REJECTED;
            read.attributeValue[0] = '\0';  // a write-only value never leaves the station
        } else if (custom->IsCustomVariable(read)) {
            CTools::CopyField(read.attributeValue, custom->GetCustomVariable(read));
        }
        answers.push_back(read);
    }
    return answers;
}

std::vector<VariableDataItem20> CVariableCache::FilterFromVariableMode(int mode) {
    std::vector<VariableDataItem20> result;
    {
        OCPP_SECTION(&m_mutex);
        for (const VariableDataItem20& item : m_items)
            if (item.mode == mode) result.push_back(item);
    }
    for (VariableDataItem20& item : result) FillClock(item);
    return result;
}

std::vector<VariableDataItem20> CVariableCache::GetFullVariables() {
    std::vector<VariableDataItem20> result;
    {
        OCPP_SECTION(&m_mutex);
        result = m_items;
    }
    for (VariableDataItem20& item : result) FillClock(item);
    return result;
}

std::vector<VariableDataItem20> CVariableCache::GetSummaryInventoryVariables() {
    std::vector<VariableDataItem20> result;
    OCPP_SECTION(&m_mutex);
    for (const VariableDataItem20& item : m_items) {
        const char* c = item.componentName;
        const char* v = item.variableName;
        const bool availability = (strcmp(c, "ChargingStation") == 0 || strcmp(c, "EVSE") == 0 ||
                                   strcmp(c, "Connector") == 0) &&
                                  strcmp(v, "AvailabilityState") == 0;
        const bool alarm = (strcmp(v, "Problem") == 0 || strcmp(v, "Tripped") == 0 || strcmp(v, "Overload") == 0 ||
                            strcmp(v, "Fallback") == 0) &&
                           strcmp(item.attributeValue, "Active") == 0;
        if (availability || alarm) result.push_back(item);
    }
    return result;
}

void CVariableCache::OnVariableChange(const VariableDataItem20& item) {
    if (strcmp(item.componentName, "OCPPCommCtrlr") == 0 && strcmp(item.variableName, "WebSocketPingInterval") == 0)
        NotifyPingInterval(atoi(item.attributeValue));
}

std::vector<int> CVariableCache::GetPoint(const std::string& text) {
    static const struct {
        const char* word;
        int point;
    } kPoints[] = {{"ParkingBayOccupancy", TRANSACTIONSTARTPOINT_PARKINGBAYOCCUPANCY},
                   {"EVConnected", TRANSACTIONSTARTPOINT_EVCONNECTED},
                   {"Authorized", TRANSACTIONSTARTPOINT_AUTHORIZED},
                   {"PowerPathClosed", TRANSACTIONSTARTPOINT_POWERPATHCLOSED},
                   {"EnergyTransfer", TRANSACTIONSTARTPOINT_ENERGYTRANSFER},
                   {"DataSigned", TRANSACTIONSTARTPOINT_DATASIGNED}};
    std::vector<int> points;
    std::stringstream stream(text);
    std::string word;
    while (std::getline(stream, word, ',')) {
        for (const auto& p : kPoints) {
            if (word == p.word) {
                points.push_back(p.point);
                break;
            }
        }
    }
    return points;
}

std::vector<int> CVariableCache::TxCtrlrTxStartPoint() {
    const std::string value = ReadString("TxCtrlr", "TxStartPoint");
    LOG_INFO("TxStartPoint:%s\n", value.c_str());
    if (value.empty()) return std::vector<int>(1, TRANSACTIONSTARTPOINT_NONE);
    return GetPoint(value);
}

std::vector<int> CVariableCache::TxCtrlrTxStopPoint() {
    const std::string value = ReadString("TxCtrlr", "TxStopPoint");
    LOG_INFO("TxCtrlrTxStopPoint:%s", value.c_str());
    if (value.empty()) return std::vector<int>(1, TRANSACTIONSTARTPOINT_NONE);
    return GetPoint(value);
}

bool CVariableCache::ReadText(const char* component, const char* variable, const char* instance, std::string& value) {
    VariableDataItem20 item = VariableDataItem20::Make(component, variable, instance);
    if (GetVariable(&item) == 0) {
        value.clear();
        return false;
    }
    value = item.attributeValue;
    return true;
}

int CVariableCache::ReadInt(const char* component, const char* variable, const char* instance) {
    std::string value;
    ReadText(component, variable, instance, value);
    return atoi(value.c_str());
}

bool CVariableCache::ReadBool(const char* component, const char* variable, const char* instance) {
    std::string value;
    ReadText(component, variable, instance, value);
    return value == "true";
}

std::string CVariableCache::ReadString(const char* component, const char* variable, const char* instance) {
    std::string value;
    ReadText(component, variable, instance, value);
    return value;
}

float CVariableCache::ReadFloat(const char* component, const char* variable, const char* instance,
                                const char* missingLog) {
    std::string value;
    if (!ReadText(component, variable, instance, value) && missingLog != nullptr) LOG_ERROR("%s", missingLog);
    return static_cast<float>(atof(value.c_str()));
}

int CVariableCache::OCPPCommCtrlrOfflineThreshold() { return ReadInt("OCPPCommCtrlr", "OfflineThreshold"); }
int CVariableCache::OCPPCommCtrlrRetryBackOffWaitMinimum() {
    return ReadInt("OCPPCommCtrlr", "RetryBackOffWaitMinimum");
}
int CVariableCache::OCPPCommCtrlrRetryBackOffRandomRange() {
    return ReadInt("OCPPCommCtrlr", "RetryBackOffRandomRange");
}
int CVariableCache::OCPPCommCtrlrRetryBackOffRepeatTimes() {
    return ReadInt("OCPPCommCtrlr", "RetryBackOffRepeatTimes");
}
int CVariableCache::OCPPCommCtrlrMessageAttemptsTransactionEvent() {
    return ReadInt("OCPPCommCtrlr", "MessageAttempts", "TransactionEvent");
}
int CVariableCache::OCPPCommCtrlrMessageAttemptIntervalTransactionEvent() {
    return ReadInt("OCPPCommCtrlr", "MessageAttemptInterval", "TransactionEvent");
}
int CVariableCache::OCPPCommCtrlrWebSocketPingInterval() { return ReadInt("OCPPCommCtrlr", "WebSocketPingInterval"); }
int CVariableCache::OCPPCommCtrlrHeartbeatInterval() { return ReadInt("OCPPCommCtrlr", "HeartbeatInterval"); }
void CVariableCache::SetHeartbeatInterval(int seconds) {
    VariableDataItem20 item = VariableDataItem20::Make("OCPPCommCtrlr", "HeartbeatInterval");
    const std::string value = std::to_string(seconds);
    if (GetVariableAttributeValue(item) == value) return;
    CTools::CopyField(item.attributeValue, value);
    UpdateVariableValue(item);
}
int CVariableCache::OCPPCommCtrlrMessageTimeout() { return ReadInt("OCPPCommCtrlr", "MessageTimeout", "Default"); }

bool CVariableCache::AuthCtrlrEnabled() {
    // First record without a component instance, even when several EVSEs declare their own.
    VariableDataItem20 query = VariableDataItem20::Make("AuthCtrlr", "Enabled");
    for (const VariableDataItem20& item : GetVariables(query, 0))
        if (item.componentInstance[0] == '\0') return strcmp(item.attributeValue, "true") == 0;
    return false;
}
bool CVariableCache::AuthCtrlrLocalPreAuthorize() { return ReadBool("AuthCtrlr", "LocalPreAuthorize"); }
bool CVariableCache::AuthCtrlrLocalAuthorizeOffline() { return ReadBool("AuthCtrlr", "LocalAuthorizeOffline"); }
bool CVariableCache::AuthCtrlrOfflineTxForUnknownIdEnabled() {
    return ReadBool("AuthCtrlr", "OfflineTxForUnknownIdEnabled");
}
bool CVariableCache::AuthCtrlrAuthorizeRemoteStart() { return ReadBool("AuthCtrlr", "AuthorizeRemoteStart"); }
bool CVariableCache::AuthCtrlrDisableRemoteAuthorization() {
    return ReadBool("AuthCtrlr", "DisableRemoteAuthorization");
}
std::string CVariableCache::AuthCtrlrMasterPassGroupId() { return ReadString("AuthCtrlr", "MasterPassGroupId"); }
bool CVariableCache::AuthCacheCtrlrEnabled() { return ReadBool("AuthCacheCtrlr", "Enabled"); }
bool CVariableCache::AuthCacheCtrlrAvailable() { return ReadBool("AuthCacheCtrlr", "Available"); }
bool CVariableCache::AuthCacheCtrlrDisablePostAuthorize() { return ReadBool("AuthCacheCtrlr", "DisablePostAuthorize"); }
int CVariableCache::AuthCacheCtrlrLifeTime() { return ReadInt("AuthCacheCtrlr", "LifeTime"); }
bool CVariableCache::LocalAuthListCtrlrAvailable() { return ReadBool("LocalAuthListCtrlr", "Available"); }
bool CVariableCache::LocalAuthListCtrlrEnabled() { return ReadBool("LocalAuthListCtrlr", "Enabled"); }
bool CVariableCache::LocalAuthListCtrlrDisablePostAuthorize() {
    return ReadBool("LocalAuthListCtrlr", "DisablePostAuthorize");
}
int CVariableCache::LocalAuthListCtrlrItemsPerMessage() { return ReadInt("LocalAuthListCtrlr", "ItemsPerMessage"); }
int CVariableCache::DeviceDataCtrlrItemsPerMessageGetReport() {
    return ReadInt("DeviceDataCtrlr", "ItemsPerMessage", "GetReport");
}
int CVariableCache::DeviceDataCtrlrItemsPerMessageGetVariables() {
    return ReadInt("DeviceDataCtrlr", "ItemsPerMessage", "GetVariables");
}
int CVariableCache::DeviceDataCtrlrItemsPerMessageSetVariables() {
    return ReadInt("DeviceDataCtrlr", "ItemsPerMessage", "SetVariables");
}
int CVariableCache::DeviceDataCtrlrBytesPerMessageGetReport() {
    return ReadInt("DeviceDataCtrlr", "BytesPerMessage", "GetReport");
}
int CVariableCache::DeviceDataCtrlrBytesPerMessageGetVariables() {
    return ReadInt("DeviceDataCtrlr", "BytesPerMessage", "GetVariables");
}
int CVariableCache::DeviceDataCtrlrBytesPerMessageSetVariables() {
    return ReadInt("DeviceDataCtrlr", "BytesPerMessage", "SetVariables");
}
int CVariableCache::SmartChargingCtrlrProfileStackLevel() { return ReadInt("SmartChargingCtrlr", "ProfileStackLevel"); }
int CVariableCache::SmartChargingCtrlrPeriodsPerSchedule() {
    return ReadInt("SmartChargingCtrlr", "PeriodsPerSchedule");
}
int CVariableCache::SmartChargingCtrlrEntries() { return ReadInt("SmartChargingCtrlr", "Entries", "ChargingProfiles"); }
bool CVariableCache::SmartChargingCtrlrEnabled() { return ReadBool("SmartChargingCtrlr", "Enabled"); }
bool CVariableCache::SmartChargingCtrlrAvailable() { return ReadBool("SmartChargingCtrlr", "Available"); }
bool CVariableCache::SmartChargingCtrlrNotifyChargingLimitWithSchedules() {
    return ReadBool("SmartChargingCtrlr", "NotifyChargingLimitWithSchedules");
}
std::string CVariableCache::SmartChargingCtrlrRateUnit() { return ReadString("SmartChargingCtrlr", "RateUnit"); }
std::string CVariableCache::SmartChargingCtrlrSetpointPriority() {
    return ReadString("SmartChargingCtrlr", "SetpointPriority");
}
float CVariableCache::SmartChargingCtrlrLimitChangeSignificance() {
    return ReadFloat("SmartChargingCtrlr", "LimitChangeSignificance", "", nullptr);
}
int CVariableCache::SecurityCtrlrSecurityProfile() { return ReadInt("SecurityCtrlr", "SecurityProfile"); }
std::string CVariableCache::SecurityCtrlrIdentity() { return ReadString("SecurityCtrlr", "Identity"); }
int CVariableCache::MonitoringCtrlrItemsPerMessageClearVariableMonitoring() {
    return ReadInt("MonitoringCtrlr", "ItemsPerMessage", "ClearVariableMonitoring");
}
int CVariableCache::MonitoringCtrlrItemsPerMessageSetVariableMonitoring() {
    return ReadInt("MonitoringCtrlr", "ItemsPerMessage", "SetVariableMonitoring");
}
int CVariableCache::MonitoringCtrlrBytesPerMessageClearVariableMonitoring() {
    return ReadInt("MonitoringCtrlr", "BytesPerMessage", "ClearVariableMonitoring");
}
int CVariableCache::MonitoringCtrlrBytesPerMessageSetVariableMonitoring() {
    return ReadInt("MonitoringCtrlr", "BytesPerMessage", "SetVariableMonitoring");
}
int CVariableCache::MonitoringCtrlrActiveMonitoringLevel() {
    return ReadInt("MonitoringCtrlr", "ActiveMonitoringLevel");
}
int CVariableCache::OfflineMonitoringEventQueuingSeverity() {
    return ReadInt("MonitoringCtrlr", "OfflineQueuingSeverity");
}
int CVariableCache::TxCtrlrEVConnectionTimeOut() { return ReadInt("TxCtrlr", "EVConnectionTimeOut"); }
bool CVariableCache::TxCtrlrStopTxOnEVSideDisconnect() { return ReadBool("TxCtrlr", "StopTxOnEVSideDisconnect"); }
bool CVariableCache::TxCtrlrStopTxOnInvalidId() { return ReadBool("TxCtrlr", "StopTxOnInvalidId"); }
bool CVariableCache::TxCtrlrTxBeforeAcceptedEnabled() { return ReadBool("TxCtrlr", "TxBeforeAcceptedEnabled"); }
bool CVariableCache::SampledDataCtrlrEnable() { return ReadBool("SampledDataCtrlr", "Enabled"); }
bool CVariableCache::SampledDataCtrlrAvailable() { return ReadBool("SampledDataCtrlr", "Available"); }
int CVariableCache::SampledDataCtrlrTxUpdatedInterval() { return ReadInt("SampledDataCtrlr", "TxUpdatedInterval"); }
bool CVariableCache::DisplayMessageCtrlrDisplayMessageEnabled() { return ReadBool("DisplayMessageCtrlr", "Enabled"); }
bool CVariableCache::DisplayMessageCtrlrDisplayMessageAvailable() {
    return ReadBool("DisplayMessageCtrlr", "Available");
}
int CVariableCache::DisplayMessageCtrlrNumberOfDisplayMessages() {
    return ReadInt("DisplayMessageCtrlr", "DisplayMessages");
}
std::string CVariableCache::DisplayMessageCtrlrDisplayMessageSupportedFormats() {
    return ReadString("DisplayMessageCtrlr", "SupportedFormats");
}
std::string CVariableCache::DisplayMessageCtrlrDisplayMessageSupportedPriorities() {
    return ReadString("DisplayMessageCtrlr", "SupportedPriorities");
}
float CVariableCache::V2XLocalLoadBalancingUpperThreshold() {
    return ReadFloat("V2XChargingCtrlr", "LocalLoadBalancing", "UpperThreshold",
                     "V2XChargingCtrlr_LocalLoadBalancing_UpperThreshold not found");
}
float CVariableCache::V2XLocalLoadBalancingLowerThreshold() {
    return ReadFloat("V2XChargingCtrlr", "LocalLoadBalancing", "LowerThreshold",
                     "V2XChargingCtrlr_LocalLoadBalancing_LowerThreshold not found");
}
float CVariableCache::V2XChargingCtrlrLocalFrequencyUpdateThreshold() {
    return ReadFloat("V2XChargingCtrlr", "LocalFrequencyUpdateThreshold", "",
                     "V2XChargingCtrlr_LocalFrequencyUpdateThreshold not found");
}
