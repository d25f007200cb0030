#include "Ocpp20/Process/VariableCharacteristics.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <set>
#include <sstream>

#include <json/json.h>

#include "Ocpp20/Protocol/JsonText.h"
#include "Util/CriticalSectionManager.h"
#include "Util/FileUtil.h"
#include "Util/Tools.h"

using namespace Ocpp20;

namespace {

JsonStoreTexts StoreTexts() {
    JsonStoreTexts t;
    t.fileIs = "Variable Characteristics File:%s";
    t.createFailed = "Variable Characteristics File create failed, errno=%d";
    t.createWriteFailed = "Variable Characteristics File write error, errno=%d";
    t.createFsyncFailed = "fsync failed, errno=%d";
    t.invalid = "Variable Characteristics File json parse failed";
    t.writeFailed = "Variable Characteristics File write failed, errno=%d";
    return t;
}

JsonStoreShape StoreShape() {
    JsonStoreShape shape;
    shape.emptyImage = "[]";
    shape.maxBytes = static_cast<size_t>(CVariableCharacteristics::kMaxRecords) * 8192;
    shape.strictFsync = true;
    return shape;
}
const double kEpsilon = 1e-7;

struct Row {
    const char* component;
    const char* variable;
    const char* instance;
    const char* unit;
    int dataType;
    float minLimit;
    float maxLimit;
    int flag;
    const char* values;
};

const int STR = VARIABLECHARACTERDATATYPE_STRING;
const int DEC = VARIABLECHARACTERDATATYPE_DECIMAL;
const int INT = VARIABLECHARACTERDATATYPE_INTEGER;
const int DT = VARIABLECHARACTERDATATYPE_DATETIME;
const int BOOL = VARIABLECHARACTERDATATYPE_BOOLEAN;
const int OPT = VARIABLECHARACTERDATATYPE_OPTIONLIST;
const int SEQ = VARIABLECHARACTERDATATYPE_SEQUENCELIST;
const int MEM = VARIABLECHARACTERDATATYPE_MEMBERLIST;

const Row kDefaults[] = {
    {"TxCtrlr", "TxStartPoint", "", "", MEM, 0, 0, 0,
     "EVConnected,Authorized,PowerPathClosed,EnergyTransfer,DataSigned,ParkingBayOccupancy"},
    {"TxCtrlr", "TxStopPoint", "", "", MEM, 0, 0, 0, "EVConnected,Authorized,PowerPathClosed,EnergyTransfer,ParkingBayOccupancy"},
    {"TxCtrlr", "EVConnectionTimeOut", "", "s", INT, 0, 0, 1, ""},
    {"AuthCtrlr", "OfflineTxForUnknownIdEnabled", "", "", BOOL, 0, 0, 0, ""},
    {"AuthCtrlr", "Enabled", "", "", BOOL, 0, 0, 0, ""},
    {"AuthCtrlr", "LocalPreAuthorize", "", "", BOOL, 0, 0, 0, ""},
    {"AuthCtrlr", "AuthorizeRemoteStart", "", "", BOOL, 0, 0, 0, ""},
    {"AuthCtrlr", "DisableRemoteAuthorization", "", "", BOOL, 0, 0, 0, ""},
    {"AuthCtrlr", "LocalAuthorizeOffline", "", "", BOOL, 0, 0, 0, ""},
    {"AuthCtrlr", "MasterPassGroupId", "", "", STR, 0, 36, 2, ""},
    {"LocalAuthListCtrlr", "Available", "", "", BOOL, 0, 0, 0, ""},
    {"LocalAuthListCtrlr", "Enabled", "", "", BOOL, 0, 0, 0, ""},
    {"LocalAuthListCtrlr", "DisablePostAuthorize", "", "", BOOL, 0, 0, 0, ""},
    {"LocalAuthListCtrlr", "BytesPerMessage", "", "", INT, 0, 0, 0, ""},
    {"LocalAuthListCtrlr", "ItemsPerMessage", "", "", INT, 0, 0, 0, ""},
    {"LocalAuthListCtrlr", "Entries", "", "", INT, 0, 10000, 2, ""},
    {"AuthCacheCtrlr", "Available", "", "", BOOL, 0, 0, 0, ""},
    {"AuthCacheCtrlr", "Enabled", "", "", BOOL, 0, 0, 0, ""},
    {"AuthCacheCtrlr", "DisablePostAuthorize", "", "", BOOL, 0, 0, 0, ""},
    {"AuthCacheCtrlr", "LifeTime", "", "s", INT, 0, 0, 1, ""},
    {"DeviceDataCtrlr", "ItemsPerMessage", "GetReport", "", INT, 0, 0, 0, ""},
    {"DeviceDataCtrlr", "ItemsPerMessage", "GetVariables", "", INT, 0, 0, 0, ""},
    {"DeviceDataCtrlr", "ItemsPerMessage", "SetVariables", "", INT, 0, 0, 0, ""},
    {"DeviceDataCtrlr", "BytesPerMessage", "GetReport", "", INT, 0, 0, 0, ""},
    {"DeviceDataCtrlr", "BytesPerMessage", "GetVariables", "", INT, 0, 0, 0, ""},
    {"DeviceDataCtrlr", "BytesPerMessage", "SetVariables", "", INT, 0, 0, 0, ""},
    {"SmartChargingCtrlr", "ProfileStackLevel", "", "", INT, 0, 0, 0, ""},
    {"SmartChargingCtrlr", "PeriodsPerSchedule", "", "", INT, 0, 0, 0, ""},
    {"SmartChargingCtrlr", "Entries", "ChargingProfiles", "", INT, 0, 100, 2, ""},
    {"SmartChargingCtrlr", "LimitChangeSignificance", "", "", DEC, 0, 0, 0, ""},
    {"SmartChargingCtrlr", "RateUnit", "", "", MEM, 0, 0, 0, "W,A"},
    {"SmartChargingCtrlr", "Enabled", "", "", BOOL, 0, 0, 0, ""},
    {"SmartChargingCtrlr", "Available", "", "", BOOL, 0, 0, 0, ""},
    {"SmartChargingCtrlr", "NotifyChargingLimitWithSchedules", "", "", BOOL, 0, 0, 0, ""},
    {"SmartChargingCtrlr", "SetpointPriority", "", "", OPT, 0, 0, 0, "ExternalSystem,CSMS"},
    {"ClockCtrlr", "DateTime", "", "", DT, 0, 0, 0, ""},
    {"ClockCtrlr", "NtpSource", "", "", OPT, 0, 0, 0, "DHCP,manual"},
    {"OCPPCommCtrlr", "MessageAttempts", "TransactionEvent", "", INT, 0, 0, 1, ""},
    {"OCPPCommCtrlr", "MessageAttemptInterval", "TransactionEvent", "s", INT, 0, 0, 1, ""},
    {"OCPPCommCtrlr", "WebSocketPingInterval", "", "", INT, 0, 0, 1, ""},
    {"OCPPCommCtrlr", "OfflineThreshold", "", "s", INT, 0, 0, 1, ""},
    {"OCPPCommCtrlr", "FileTransferProtocols", "", "", MEM, 0, 0, 0, "FTP,FTPS,HTTP,HTTPS,SFTP"},
    {"OCPPCommCtrlr", "NetworkConfigurationPriority", "", "", SEQ, 0, 0, 0, "1,2"},
    {"DisplayMessageCtrlr", "Enabled", "", "", BOOL, 0, 0, 0, ""},
    {"DisplayMessageCtrlr", "Available", "", "", BOOL, 0, 0, 0, ""},
    {"DisplayMessageCtrlr", "DisplayMessages", "", "", INT, 0, 10, 2, ""},
    {"DisplayMessageCtrlr", "SupportedFormats", "", "", MEM, 0, 0, 0, "ASCII,HTML,URI,UTF8"},
    {"DisplayMessageCtrlr", "SupportedPriorities", "", "", MEM, 0, 0, 0, "AlwaysFront,InFront,NormalCycle"},
    {"SecurityCtrlr", "CertificateEntries", "", "", INT, 0, 10000, 2, ""},
    {"SecurityCtrlr", "AdditionalRootCertificateCheck", "", "", BOOL, 0, 0, 0, ""},
    {"TariffCostCtrlr", "Currency", "", "", STR, 0, 3, 2, ""},
    {"TariffCostCtrlr", "TariffFallbackMessage", "", "", STR, 0, 255, 2, ""},
    {"TariffCostCtrlr", "TotalCostFallbackMessage", "", "", STR, 0, 255, 2, ""},
    {"MonitoringCtrlr", "ItemsPerMessage", "ClearVariableMonitoring", "", INT, 0, 0, 0, ""},
    {"MonitoringCtrlr", "ItemsPerMessage", "SetVariableMonitoring", "", INT, 0, 0, 0, ""},
    {"MonitoringCtrlr", "BytesPerMessage", "ClearVariableMonitoring", "", INT, 0, 0, 0, ""},
    {"MonitoringCtrlr", "BytesPerMessage", "SetVariableMonitoring", "", INT, 0, 0, 0, ""},
    {"MonitoringCtrlr", "OfflineQueuingSeverity", "", "", INT, 0, 9, 3, ""},
    {"MonitoringCtrlr", "ActiveMonitoringLevel", "", "", INT, 0, 9, 3, ""},
    {"MonitoringCtrlr", "Enabled", "", "", BOOL, 0, 0, 0, ""},
    {"MonitoringCtrlr", "Available", "", "", BOOL, 0, 0, 0, ""},
    {"MonitoringCtrlr", "ActiveMonitoringBase", "", "", MEM, 0, 0, 0, "All,FactoryDefault,HardwiredOnly"},
    {"CaseAccessSensor", "Enabled", "", "", BOOL, 0, 0, 0, ""},
};

int IntOf(const Json::Value& obj, const char* key) {
    const Json::Value& v = obj[key];
    if (v.isInt()) return v.asInt();
    if (v.isBool()) return v.asBool() ? 1 : 0;
    if (v.isDouble()) {
        const double d = v.asDouble();
        return (d > -2147483648.0 && d < 2147483648.0) ? static_cast<int>(d) : 0;
    }
    return 0;
}

float FloatOf(const Json::Value& obj, const char* key) {
    const Json::Value& v = obj[key];
    return v.isNumeric() ? static_cast<float>(v.asDouble()) : 0.0f;
}

std::string TextOf(const Json::Value& obj, const char* key) {
    const Json::Value& v = obj[key];
    return v.isString() ? v.asString() : std::string();
}

std::string Bounded(const char* text, size_t width) { return std::string(text, strnlen(text, width)); }

std::set<std::string> SplitWords(const char* text) {
    std::set<std::string> words;
    if (text[0] == '\0') return words;
    std::stringstream stream(text);
    std::string word;
    while (std::getline(stream, word, ',')) words.insert(word);
    if (text[strlen(text) - 1] == ',') words.insert(std::string());
    return words;
}

}  // namespace

bool VariableCharacteristics::IsSame(const VariableCharacteristics& o) const {
    return strcmp(componentName, o.componentName) == 0 && strcmp(variableName, o.variableName) == 0 &&
           strcmp(componentInstance, o.componentInstance) == 0 && strcmp(variableInstance, o.variableInstance) == 0 &&
           evseId == o.evseId && connectorId == o.connectorId;
}

void VariableCharacteristics::AppendJson(std::string& out) const {
    out += '{';
    CJsonText::AppendIntMember(out, "evseid", evseId, true);
    CJsonText::AppendIntMember(out, "connectorid", connectorId);
    CJsonText::AppendStringMember(out, "componentname", componentName);
    CJsonText::AppendStringMember(out, "variablename", variableName);
    CJsonText::AppendStringMember(out, "unit", unit);
    CJsonText::AppendIntMember(out, "datatype", dataType);
    CJsonText::AppendFloatMember(out, "minilimit", minLimit);
    CJsonText::AppendFloatMember(out, "maxlimit", maxLimit);
    CJsonText::AppendIntMember(out, "limitflag", limitFlag);
    CJsonText::AppendStringMember(out, "valueslist", valuesList);
    CJsonText::AppendIntMember(out, "notsupportsmonitoring", notSupportsMonitoring);
    CJsonText::AppendStringMember(out, "variableinstance", variableInstance);
    CJsonText::AppendStringMember(out, "componentinstance", componentInstance);
    out += '}';
}

bool VariableCharacteristics::FromJson(const Json::Value& in) {
    *this = VariableCharacteristics();
    if (!in.isObject()) return false;
    evseId = static_cast<uint8_t>(IntOf(in, "evseid"));
    connectorId = static_cast<uint8_t>(IntOf(in, "connectorid"));
    CTools::CopyField(componentName, TextOf(in, "componentname"));
    CTools::CopyField(variableName, TextOf(in, "variablename"));
    CTools::CopyField(unit, TextOf(in, "unit"));
    dataType = IntOf(in, "datatype");
    minLimit = FloatOf(in, "minilimit");
    maxLimit = FloatOf(in, "maxlimit");
    limitFlag = IntOf(in, "limitflag");
    CTools::CopyField(valuesList, TextOf(in, "valueslist"));
    notSupportsMonitoring = IntOf(in, "notsupportsmonitoring");
    CTools::CopyField(variableInstance, TextOf(in, "variableinstance"));
    CTools::CopyField(componentInstance, TextOf(in, "componentinstance"));
    return true;
}

VariableCharacteristics VariableCharacteristics::FromPublic(const VariableDataItem& in) {
    VariableCharacteristics c;
    CTools::CopyField(c.componentName, Bounded(in.componentName, 50));
    CTools::CopyField(c.variableName, Bounded(in.variableName, 50));
    CTools::CopyField(c.componentInstance, Bounded(in.componentInstance, 50));
    CTools::CopyField(c.variableInstance, Bounded(in.variableInstance, 50));
    c.evseId = in.evseId;
    c.connectorId = in.connectorId;
    CTools::CopyField(c.unit, Bounded(in.unit, 16));
    c.dataType = in.dataType;
    c.minLimit = in.minLimit;
    c.maxLimit = in.maxLimit;
    c.limitFlag = in.limitFlag;
    CTools::CopyField(c.valuesList, Bounded(in.valuesList, 1000));
    c.notSupportsMonitoring = in.supportsMonitoring ? 0 : 1;
    return c;
}

void VariableCharacteristics::ToPublic(VariableDataItem& out) const {
    CTools::CopyField(out.unit, unit);
    out.dataType = static_cast<int8_t>(dataType);
    out.minLimit = minLimit;
    out.maxLimit = maxLimit;
    out.limitFlag = static_cast<int8_t>(limitFlag);
    CTools::CopyField(out.valuesList, valuesList);
    out.supportsMonitoring = notSupportsMonitoring ? 0 : 1;
}

// Never freed (threads may hold the pointer); a release puts it back to its defaults.
void CVariableCharacteristics::ResetInPlace() {
    Unbind();
    InitDefault();
    OCPP_SECTION(&m_mutex);
    m_items = m_defaults;
}

CVariableCharacteristics::CVariableCharacteristics() : CJsonStore(StoreTexts(), StoreShape()) {
    pthread_mutex_init(&m_mutex, nullptr);
    InitDefault();
    m_items = m_defaults;  // usable before a store is named
}

CVariableCharacteristics::~CVariableCharacteristics() { pthread_mutex_destroy(&m_mutex); }

void CVariableCharacteristics::InitDefault() {
    std::vector<VariableCharacteristics> rows;
    for (const Row& r : kDefaults) {
        VariableCharacteristics c;
        CTools::CopyField(c.componentName, r.component);
        CTools::CopyField(c.variableName, r.variable);
        CTools::CopyField(c.variableInstance, r.instance);
        CTools::CopyField(c.unit, r.unit);
        c.dataType = r.dataType;
        c.minLimit = r.minLimit;
        c.maxLimit = r.maxLimit;
        c.limitFlag = r.flag;
        CTools::CopyField(c.valuesList, r.values);
        rows.push_back(c);
    }
    OCPP_SECTION(&m_mutex);
    m_defaults.swap(rows);
}

int CVariableCharacteristics::LoadDefault() {
    {
        OCPP_SECTION(&m_mutex);
        m_items = m_defaults;
    }
    return SyncToFile();
}

int CVariableCharacteristics::CheckFromDefault() {
    {
        OCPP_SECTION(&m_mutex);
        for (const VariableCharacteristics& row : m_defaults)
            if (Find(row) == nullptr) m_items.push_back(row);
    }
    SyncToFile();
    return 1;
}

/*
 * Older layout (builds before limit flags): the same array, but each record
 * carries `minlimit` and `maxlimit` only when that limit exists, a boolean
 * `supportsmonitoring`, no `limitflag` and no instance keys. A document is of
 * the older layout when any record lacks `limitflag`.
 */
bool CVariableCharacteristics::JudgeDataMigrate(Json::Value& root) {
    if (!root.isArray()) return false;
    bool migrated = false;
    for (Json::Value& obj : root) {
        if (!obj.isObject() || obj.isMember("limitflag")) continue;
        int flag = LIMITFALG_NONE;
        if (obj["minlimit"].isNumeric()) {
            flag |= LIMITFALG_MIN;
            obj["minilimit"] = obj["minlimit"];
        }
        if (obj["maxlimit"].isNumeric()) flag |= LIMITFALG_MAX;
        obj["limitflag"] = flag;
        const Json::Value& supports = obj["supportsmonitoring"];
        obj["notsupportsmonitoring"] = (supports.isBool() && !supports.asBool()) ? 1 : 0;
        obj.removeMember("minlimit");
        obj.removeMember("supportsmonitoring");
        if (!obj.isMember("variableinstance")) obj["variableinstance"] = "";
        if (!obj.isMember("componentinstance")) obj["componentinstance"] = "";
        migrated = true;
    }
    return migrated;
}

int CVariableCharacteristics::SyncFromFile() {
    Json::Value root;
    const ReadResult read = ReadImage(root);
    if (read == kUnbound) return 1;
    if (read == kFailed) {
        LoadDefault();
        return 1;
    }
    const int count = static_cast<int>(root.size());
    if (count == 0) {
        LoadDefault();
        return 1;
    }
    if (count > kMaxRecords) {
        LOG_ERROR("Variable Characteristics count over limit(%d > %d), loading defaults", count, kMaxRecords);
        LoadDefault();
        return 1;
    }
    if (JudgeDataMigrate(root)) LOG_INFO("Variable Characteristics File migrated from the older layout");
    {
        OCPP_SECTION(&m_mutex);
        m_items.clear();
        for (const Json::Value& element : root) {
            VariableCharacteristics c;
            if (c.FromJson(element)) m_items.push_back(c);
        }
    }
    CheckFromDefault();
    return 1;
}

std::string CVariableCharacteristics::BuildImage() {
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

const VariableCharacteristics* CVariableCharacteristics::Find(const VariableCharacteristics& key) const {
    for (const VariableCharacteristics& c : m_items)
        if (c.IsSame(key)) return &c;
    return nullptr;
}

std::vector<VariableCharacteristics> CVariableCharacteristics::GetAll() {
    OCPP_SECTION(&m_mutex);
    return m_items;
}

bool CVariableCharacteristics::GetVariableCharacteristics(VariableCharacteristics& out, const char* component,
                                                          const char* variable, const char* componentInstance,
                                                          const char* variableInstance, int evseId,
                                                          int connectorId) {
    VariableCharacteristics key;
    CTools::CopyField(key.componentName, component);
    CTools::CopyField(key.variableName, variable);
    CTools::CopyField(key.componentInstance, componentInstance);
    CTools::CopyField(key.variableInstance, variableInstance);
    key.evseId = static_cast<uint8_t>(evseId < 0 ? 0 : evseId);
    key.connectorId = static_cast<uint8_t>(connectorId < 0 ? 0 : connectorId);
    OCPP_SECTION(&m_mutex);
    const VariableCharacteristics* found = Find(key);
    if (found == nullptr) return false;
    out = *found;
    return true;
}

int CVariableCharacteristics::GetVariableDataType(const char* component, const char* variable,
                                                  const char* componentInstance, const char* variableInstance,
                                                  int evseId, int connectorId) {
    VariableCharacteristics c;
    if (!GetVariableCharacteristics(c, component, variable, componentInstance, variableInstance, evseId, connectorId))
        return VARIABLECHARACTERDATATYPE_STRING;
    return c.dataType;
}

int CVariableCharacteristics::GetVariableMaxLimit(float& value, const char* component, const char* variable,
                                                  const char* componentInstance, const char* variableInstance,
                                                  int evseId, int connectorId) {
    VariableCharacteristics c;
    if (!GetVariableCharacteristics(c, component, variable, componentInstance, variableInstance, evseId, connectorId) ||
        (c.limitFlag & LIMITFALG_MAX) == 0)
        return 0;
    value = c.maxLimit;
    return 1;
}

int CVariableCharacteristics::GetVariableMinLimit(float& value, const char* component, const char* variable,
                                                  const char* componentInstance, const char* variableInstance,
                                                  int evseId, int connectorId) {
    VariableCharacteristics c;
    if (!GetVariableCharacteristics(c, component, variable, componentInstance, variableInstance, evseId, connectorId) ||
        (c.limitFlag & LIMITFALG_MIN) == 0)
        return 0;
    value = c.minLimit;
    return 1;
}

int CVariableCharacteristics::AddVariableCharacteristics(const VariableDataItem& publicVariable) {
    const VariableCharacteristics c = VariableCharacteristics::FromPublic(publicVariable);
    {
        OCPP_SECTION(&m_mutex);
        bool replaced = false;
        for (VariableCharacteristics& existing : m_items) {
            if (existing.IsSame(c)) {
                existing = c;
                replaced = true;
                break;
            }
        }
        if (!replaced) m_items.push_back(c);
    }
    return SyncToFile();
}

int CVariableCharacteristics::UpgradeCharacteristics(const VariableUpgradeItem& upgradeItem) {
    const VariableCharacteristics c = VariableCharacteristics::FromPublic(upgradeItem.variable);
    {
        OCPP_SECTION(&m_mutex);
        for (auto it = m_items.begin(); it != m_items.end(); ++it) {
            if (it->IsSame(c)) {
                m_items.erase(it);
                break;
            }
        }
        if (upgradeItem.operation == VARIABLEUPGRADE_ADD || upgradeItem.operation == VARIABLEUPGRADE_UPDATE)
            m_items.push_back(c);
    }
    return SyncToFile();
}

bool CVariableCharacteristics::IsExceedStringLengthLimit(const char* value, float minLimit, float maxLimit,
                                                         int limitFlag) {
    const long long len = value != nullptr ? static_cast<long long>(strlen(value)) : 0;
    const long long lo = static_cast<long long>(minLimit);
    const long long hi = static_cast<long long>(maxLimit);
    switch (limitFlag) {
        case LIMITFALG_MIN: return len < lo;
        case LIMITFALG_MAX: return len > hi;
        case LIMITFALG_BOTH: return len < lo || len > hi;
        default: return false;
    }
}

bool CVariableCharacteristics::IsSubsetOfSubstrings(const char* value, const char* valuesList, int dataType) {
    if (valuesList == nullptr || valuesList[0] == '\0') return true;
    if (value == nullptr) {
        LOG_ERROR("IsSubsetOfSubstrings=>pszValue is null");
        return false;
    }
    const std::set<std::string> allowed = SplitWords(valuesList);
    const std::set<std::string> words = SplitWords(value);
    auto allAllowed = [&]() {
        for (const std::string& w : words)
            if (allowed.count(w) == 0) return false;
        return true;
    };
    switch (dataType) {
        case VARIABLECHARACTERDATATYPE_OPTIONLIST:
            return words.size() == 1 && allowed.count(*words.begin()) == 1;
        case VARIABLECHARACTERDATATYPE_MEMBERLIST:
            if (value[0] == '\0') return true;
            return words.size() <= allowed.size() && allAllowed();
        case VARIABLECHARACTERDATATYPE_SEQUENCELIST:
            return allAllowed();
        default:
            return true;
    }
}

int CVariableCharacteristics::CheckCharacteristics(const char* value, const char* component, const char* variable,
                                                   const char* variableInstance, const char* componentInstance,
                                                   int evseId, int connectorId) {
    if (value == nullptr || component == nullptr || variable == nullptr) {
        LOG_ERROR("CheckCharacteristics Error: pszValue, pszComponentName or pszVariableName is NULL");
        return 0;
    }
    if (variableInstance == nullptr) variableInstance = "";
    if (componentInstance == nullptr) componentInstance = "";
    VariableCharacteristics c;
    if (!GetVariableCharacteristics(c, component, variable, componentInstance, variableInstance, evseId,
                                    connectorId)) {
        LOG_INFO("CheckCharacteristics=>ComponentName:%s VariableName:%s VariableInstance:%s ComponentInstance:%s "
                 "value:%s do not have characteristics",
                 component, variable, variableInstance, componentInstance, value);
        return 1;
    }
    const std::string prefix = CTools::StringFormat(
        "CheckCharacteristics=>ComponentName:%s VariableName:%s VariableInstance:%s ComponentInstance:%s value:%s",
        component, variable, variableInstance, componentInstance, value);
    auto refuse = [&](const std::string& reason) {
        LOG_INFO("%s%s", prefix.c_str(), reason.c_str());
        return 0;
    };
    const double minWhole = static_cast<double>(static_cast<long long>(c.minLimit));
    const double maxWhole = static_cast<double>(static_cast<long long>(c.maxLimit));
    switch (c.dataType) {
        case VARIABLECHARACTERDATATYPE_STRING:
            if (IsExceedStringLengthLimit(value, c.minLimit, c.maxLimit, c.limitFlag))
                return refuse(CTools::StringFormat(" len out of range(%f-%f)", minWhole, maxWhole));
            break;
        case VARIABLECHARACTERDATATYPE_DECIMAL: {
            if (!CTools::IsDecimal(value)) return refuse(" is not decimal");
            const float v = static_cast<float>(atof(value));
            const double below = static_cast<double>(c.minLimit) - v;
            // The maximum-only rule compares with the minimum field; hosts rely on it as it stands.
            const double aboveMinField = static_cast<double>(v) - c.minLimit;
            const double aboveMax = static_cast<double>(v) - c.maxLimit;
            if (c.limitFlag == LIMITFALG_MIN && v < c.minLimit && std::fabs(below) >= kEpsilon)
                return refuse(CTools::StringFormat(" is less then minlimit:%f", c.minLimit));
            if (c.limitFlag == LIMITFALG_MAX && v > c.minLimit && std::fabs(aboveMinField) >= kEpsilon)
                return refuse(CTools::StringFormat(" is greater then maxlimit:%f", c.maxLimit));
            if (c.limitFlag == LIMITFALG_BOTH && ((v < c.minLimit && std::fabs(below) >= kEpsilon) ||
                                                  (v > c.maxLimit && std::fabs(aboveMax) >= kEpsilon)))
                return refuse(CTools::StringFormat(" is out of range(%f-%f)", c.minLimit, c.maxLimit));
            break;
        }
        case VARIABLECHARACTERDATATYPE_INTEGER: {
            if (!CTools::IsInt(value)) return refuse(" is not integer");
            errno = 0;
            const long long v = strtoll(value, nullptr, 10);
            const int lo = static_cast<int>(c.minLimit);
            const int hi = static_cast<int>(c.maxLimit);
            if (c.limitFlag == LIMITFALG_MIN && v < lo)
                return refuse(CTools::StringFormat(" is less then minlimit:%d", lo));
            if (c.limitFlag == LIMITFALG_MAX && v > hi)
                return refuse(CTools::StringFormat(" is greater then maxlimit:%d", hi));
            if (c.limitFlag == LIMITFALG_BOTH && (v < lo || v > hi))
                return refuse(CTools::StringFormat(" is out of range(%d-%d)", lo, hi));
            break;
        }
        case VARIABLECHARACTERDATATYPE_DATETIME:
            if (!CTools::IsValidUTCTime(value)) return refuse(" is not utctime");
            break;
        case VARIABLECHARACTERDATATYPE_BOOLEAN:
            if (!CTools::IsBool(value)) return refuse(" is not bool(true:false)");
            break;
        case VARIABLECHARACTERDATATYPE_OPTIONLIST:
        case VARIABLECHARACTERDATATYPE_SEQUENCELIST:
        case VARIABLECHARACTERDATATYPE_MEMBERLIST:
            if (IsExceedStringLengthLimit(value, c.minLimit, c.maxLimit, c.limitFlag))
                return refuse(CTools::StringFormat(" len out of range(%f-%f)", minWhole, maxWhole));
            if (!IsSubsetOfSubstrings(value, c.valuesList, c.dataType))
                return refuse(CTools::StringFormat(" is not in valuelist:%s", c.valuesList));
            break;
        default:
            break;
    }
    return 1;
}
