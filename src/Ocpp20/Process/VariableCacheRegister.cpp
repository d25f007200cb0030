#include "Ocpp20/Process/VariableCache.h"

#include "Util/CriticalSectionManager.h"
#include "Util/Tools.h"

// The built-in register: the variables the library operates itself, with their defaults.
namespace {

struct RegisterRow {
    const char* component;
    const char* variable;
    const char* instance;
    int mode;
    const char* value;
};

const int RW = VARIABLEMODE_READWRITE;
const int RO = VARIABLEMODE_READONLY;

const RegisterRow kRegister[] = {
    {"TxCtrlr", "TxStartPoint", "", RW, "PowerPathClosed,EVConnected,Authorized"},
    {"TxCtrlr", "TxStopPoint", "", RW, "PowerPathClosed,EVConnected,Authorized"},
    {"TxCtrlr", "EVConnectionTimeOut", "", RW, "60"},
    {"AuthCtrlr", "OfflineTxForUnknownIdEnabled", "", RW, "false"},
    {"AuthCtrlr", "MasterPassGroupId", "", RW, ""},
    {"AuthCtrlr", "Enabled", "", RW, "true"},
    {"AuthCtrlr", "LocalPreAuthorize", "", RW, "true"},
    {"AuthCtrlr", "AuthorizeRemoteStart", "", RW, "true"},
    {"AuthCtrlr", "LocalAuthorizeOffline", "", RW, "true"},
    {"AuthCtrlr", "DisableRemoteAuthorization", "", RW, "false"},
    {"AuthCacheCtrlr", "Available", "", RO, "true"},
    {"AuthCacheCtrlr", "Enabled", "", RW, "true"},
    {"AuthCacheCtrlr", "LifeTime", "", RW, "600"},
    {"LocalAuthListCtrlr", "Available", "", RO, "true"},
    {"LocalAuthListCtrlr", "Enabled", "", RW, "true"},
    {"LocalAuthListCtrlr", "BytesPerMessage", "", RO, "5000"},
    {"LocalAuthListCtrlr", "Entries", "", RO, "0"},
    {"LocalAuthListCtrlr", "ItemsPerMessage", "", RO, "100"},
    {"DeviceDataCtrlr", "ItemsPerMessage", "GetReport", RO, "4"},
    {"DeviceDataCtrlr", "ItemsPerMessage", "GetVariables", RO, "4"},
    {"DeviceDataCtrlr", "BytesPerMessage", "GetReport", RO, "5000"},
    {"DeviceDataCtrlr", "BytesPerMessage", "GetVariables", RO, "5000"},
    {"DeviceDataCtrlr", "BytesPerMessage", "SetVariables", RO, "5000"},
    {"DeviceDataCtrlr", "ItemsPerMessage", "SetVariables", RO, "4"},
    {"SmartChargingCtrlr", "ProfileStackLevel", "", RO, "99"},
    {"SmartChargingCtrlr", "PeriodsPerSchedule", "", RO, "1024"},
    {"SmartChargingCtrlr", "Entries", "ChargingProfiles", RO, "0"},
    {"SmartChargingCtrlr", "Enabled", "", RW, "true"},
    {"SmartChargingCtrlr", "Available", "", RO, "true"},
    {"SmartChargingCtrlr", "RateUnit", "", RO, "W"},
    {"SmartChargingCtrlr", "LimitChangeSignificance", "", RW, "0.2"},
    {"SmartChargingCtrlr", "NotifyChargingLimitWithSchedules", "", RW, "false"},
    {"OCPPCommCtrlr", "NetworkConfigurationPriority", "", RW, "1"},
    {"OCPPCommCtrlr", "MessageAttempts", "TransactionEvent", RW, "2"},
    {"OCPPCommCtrlr", "MessageAttemptInterval", "TransactionEvent", RW, "5"},
    {"OCPPCommCtrlr", "OfflineThreshold", "", RW, "10"},
    {"OCPPCommCtrlr", "WebSocketPingInterval", "", RW, "30"},
    {"OCPPCommCtrlr", "FileTransferProtocols", "", RO, "FTP,HTTP,HTTPS"},
    {"DisplayMessageCtrlr", "Enabled", "", RW, "true"},
    {"DisplayMessageCtrlr", "Available", "", RO, "true"},
    {"DisplayMessageCtrlr", "DisplayMessages", "", RO, "0"},
    {"DisplayMessageCtrlr", "SupportedFormats", "", RO, "ASCII,HTML,URI,UTF8"},
    {"DisplayMessageCtrlr", "SupportedPriorities", "", RO, "AlwaysFront,InFront,NormalCycle"},
    {"SecurityCtrlr", "CertificateEntries", "", RO, "0"},
    {"SecurityCtrlr", "AdditionalRootCertificateCheck", "", RO, "false"},
    {"ClockCtrlr", "DateTime", "", RO, ""},
    {"TariffCostCtrlr", "Currency", "", RW, ""},
    {"TariffCostCtrlr", "TariffFallbackMessage", "", RW, ""},
    {"TariffCostCtrlr", "TotalCostFallbackMessage", "", RW, ""},
    {"AuthCacheCtrlr", "DisablePostAuthorize", "", RW, "false"},
    {"LocalAuthListCtrlr", "DisablePostAuthorize", "", RW, "false"},
    {"MonitoringCtrlr", "ItemsPerMessage", "ClearVariableMonitoring", RO, "100"},
    {"MonitoringCtrlr", "ItemsPerMessage", "SetVariableMonitoring", RO, "100"},
    {"MonitoringCtrlr", "BytesPerMessage", "ClearVariableMonitoring", RO, "50000"},
    {"MonitoringCtrlr", "BytesPerMessage", "SetVariableMonitoring", RO, "50000"},
    {"MonitoringCtrlr", "Enabled", "", RW, "true"},
    {"MonitoringCtrlr", "Available", "", RO, "true"},
    {"MonitoringCtrlr", "OfflineQueuingSeverity", "", RW, "0"},
    {"MonitoringCtrlr", "ActiveMonitoringBase", "", RO, "All"},
    {"MonitoringCtrlr", "ActiveMonitoringLevel", "", RO, "0"},
    {"ClockCtrlr", "NtpSource", "", RW, "manual"},
    {"CaseAccessSensor", "Enabled", "", RO, "false"},
    {"SmartChargingCtrlr", "SetpointPriority", "", RW, "CSMS"},
    // Integer seconds; an Accepted boot answer writes it, so "0" only until the first one.
    {"OCPPCommCtrlr", "HeartbeatInterval", "", RW, "0"},
};

}  // namespace

void CVariableCache::InitDefault() {
    OCPP_SECTION(&m_mutex);
    m_register.clear();
    for (const RegisterRow& r : kRegister) {
        VariableItemRegister row{};
        CTools::CopyField(row.componentName, r.component);
        CTools::CopyField(row.variableName, r.variable);
        CTools::CopyField(row.variableInstance, r.instance);
        CTools::CopyField(row.defaultValue, r.value);
        row.mode = r.mode;
        row.attributeType = VARIABLEATTRIBUTETYPE_ACTUAL;
        row.constant = 0;
        m_register.push_back(row);
    }
}

size_t CVariableCache::RegisterSize() {
    OCPP_SECTION(&m_mutex);
    return m_register.size();
}
