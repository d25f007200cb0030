#pragma once
#include <pthread.h>

#include <cstdint>
#include <string>
#include <vector>

#include "Ocpp20/Process/VariableDataItem20.h"
#include "Util/JsonStore.h"
#include "Util/Singleton.h"

// Transaction start and stop points, in the order the transaction manager uses.
enum TRANSACTIONSTARTPOINT {
    TRANSACTIONSTARTPOINT_NONE = 0,
    TRANSACTIONSTARTPOINT_PARKINGBAYOCCUPANCY = 1,
    TRANSACTIONSTARTPOINT_EVCONNECTED = 2,
    TRANSACTIONSTARTPOINT_AUTHORIZED = 3,
    TRANSACTIONSTARTPOINT_POWERPATHCLOSED = 4,
    TRANSACTIONSTARTPOINT_ENERGYTRANSFER = 5,
    TRANSACTIONSTARTPOINT_DATASIGNED = 6
};

// The device model: one ordered list of variable records, persisted as a JSON
// array, seeded from the built-in register.
class CVariableCache : public CJsonStore, public CSingleton<CVariableCache> {
public:
    static const int kMaxRecords = 3000;

    void InitDefault();
    int LoadDefault();
    int CheckFromDefault();
    int SyncFromFile() override;

    std::vector<VariableDataItem20> GetVariables(const VariableDataItem20& query, int exact);
    VariableDataItem20 GetVariable(const char* component, const char* variable);
    int GetVariable(VariableDataItem20* item);
    std::string GetVariableAttributeValue(const VariableDataItem20& item);
    static std::string GetValue(const std::vector<VariableDataItem20>& list, int attributeType);
    static std::string GetMaxValue(const std::vector<VariableDataItem20>& list);
    static std::string GetMinValue(const std::vector<VariableDataItem20>& list);

    int UpdateVariableValue(const VariableDataItem20& item);
    int SetVariables(const std::vector<VariableDataItem20>& list);
    // For values a CSMS is about to be told are Accepted: 1 once they are on the flash.
    // Otherwise 0, and the records keep their previous values.
    int SetVariablesDurably(const std::vector<VariableDataItem20>& list);
    int UpgradeVariable(const VariableUpgradeItem& upgradeItem);

    int CheckStatus(const VariableDataItem20& item, int& mode);
    int CheckComponentStatus(const VariableDataItem20& item, int& mode);
    int CheckVariableStatus(const VariableDataItem20& item, int& mode);
    int IsProtocolSdkOpt(const VariableDataItem20& item);

    // Status of one SetVariables entry before the host sees it: 0 to 5 decided
    // here, VARIABLESTATUS_HOSTDECIDE when the host owns the variable.
    int CheckSetVariable(VariableDataItem20& item);
    // Answers of a GetVariables request, one per query, in order.
    std::vector<VariableDataItem20> AnswerGetVariables(const std::vector<VariableDataItem20>& queries);
    // Whether any variable of the query's component lives at its EVSE and connector.
    bool HasComponentAt(const VariableDataItem20& query);

    std::vector<VariableDataItem20> FilterFromVariableMode(int mode);
    std::vector<VariableDataItem20> GetFullVariables();
    std::vector<VariableDataItem20> GetSummaryInventoryVariables();

    void OnVariableChange(const VariableDataItem20& item);
    static std::vector<int> GetPoint(const std::string& text);
    std::vector<int> TxCtrlrTxStartPoint();
    std::vector<int> TxCtrlrTxStopPoint();

    size_t RegisterSize();

    // Typed accessors.
    int OCPPCommCtrlrOfflineThreshold();
    int OCPPCommCtrlrRetryBackOffWaitMinimum();
    int OCPPCommCtrlrRetryBackOffRandomRange();
    int OCPPCommCtrlrRetryBackOffRepeatTimes();
    int OCPPCommCtrlrMessageAttemptsTransactionEvent();
    int OCPPCommCtrlrMessageAttemptIntervalTransactionEvent();
    int OCPPCommCtrlrWebSocketPingInterval();
    int OCPPCommCtrlrHeartbeatInterval();
    // Accepted boot answers keep the device model's interval; the file is rewritten only on a change.
    void SetHeartbeatInterval(int seconds);
    int OCPPCommCtrlrMessageTimeout();
    bool AuthCtrlrEnabled();
    bool AuthCtrlrLocalPreAuthorize();
    bool AuthCtrlrLocalAuthorizeOffline();
    bool AuthCtrlrOfflineTxForUnknownIdEnabled();
    bool AuthCtrlrAuthorizeRemoteStart();
    bool AuthCtrlrDisableRemoteAuthorization();
    std::string AuthCtrlrMasterPassGroupId();
    bool AuthCacheCtrlrEnabled();
    bool AuthCacheCtrlrAvailable();
    bool AuthCacheCtrlrDisablePostAuthorize();
    int AuthCacheCtrlrLifeTime();
    bool LocalAuthListCtrlrAvailable();
    bool LocalAuthListCtrlrEnabled();
    bool LocalAuthListCtrlrDisablePostAuthorize();
    int LocalAuthListCtrlrItemsPerMessage();
    int DeviceDataCtrlrItemsPerMessageGetReport();
    int DeviceDataCtrlrItemsPerMessageGetVariables();
    int DeviceDataCtrlrItemsPerMessageSetVariables();
    int DeviceDataCtrlrBytesPerMessageGetReport();
    int DeviceDataCtrlrBytesPerMessageGetVariables();
    int DeviceDataCtrlrBytesPerMessageSetVariables();
    int SmartChargingCtrlrProfileStackLevel();
    int SmartChargingCtrlrPeriodsPerSchedule();
    int SmartChargingCtrlrEntries();
    bool SmartChargingCtrlrEnabled();
    bool SmartChargingCtrlrAvailable();
    bool SmartChargingCtrlrNotifyChargingLimitWithSchedules();
    std::string SmartChargingCtrlrRateUnit();
    std::string SmartChargingCtrlrSetpointPriority();
    float SmartChargingCtrlrLimitChangeSignificance();
    int SecurityCtrlrSecurityProfile();
    std::string SecurityCtrlrIdentity();
    int MonitoringCtrlrItemsPerMessageClearVariableMonitoring();
    int MonitoringCtrlrItemsPerMessageSetVariableMonitoring();
    int MonitoringCtrlrBytesPerMessageClearVariableMonitoring();
    int MonitoringCtrlrBytesPerMessageSetVariableMonitoring();
    int MonitoringCtrlrActiveMonitoringLevel();
    int OfflineMonitoringEventQueuingSeverity();
    int TxCtrlrEVConnectionTimeOut();
    bool TxCtrlrStopTxOnEVSideDisconnect();
    bool TxCtrlrStopTxOnInvalidId();
    bool TxCtrlrTxBeforeAcceptedEnabled();
    bool SampledDataCtrlrEnable();
    bool SampledDataCtrlrAvailable();
    int SampledDataCtrlrTxUpdatedInterval();
    bool DisplayMessageCtrlrDisplayMessageEnabled();
    bool DisplayMessageCtrlrDisplayMessageAvailable();
    int DisplayMessageCtrlrNumberOfDisplayMessages();
    std::string DisplayMessageCtrlrDisplayMessageSupportedFormats();
    std::string DisplayMessageCtrlrDisplayMessageSupportedPriorities();
    float V2XLocalLoadBalancingUpperThreshold();
    float V2XLocalLoadBalancingLowerThreshold();
    float V2XChargingCtrlrLocalFrequencyUpdateThreshold();

private:
    using RecordMatcher = bool (*)(const VariableDataItem20& record, const VariableDataItem20& query);
    // Accepted (with the record's mode) when a matching record has the asked attribute type,
    // not-supported-attribute when only other types match, `notFound` when nothing matches.
    int CheckMatchStatus(const VariableDataItem20& item, int& mode, RecordMatcher matches, int notFound);
    friend class CSingleton<CVariableCache>;
    CVariableCache();
    ~CVariableCache() override;
    CVariableCache(const CVariableCache&) = delete;
    CVariableCache& operator=(const CVariableCache&) = delete;

    // Caller holds m_mutex; the pointers are only valid while it does.
    std::vector<VariableDataItem20*> GetItem(const char* component, const char* variable);
    // Caller holds m_mutex. True when a record changed or was added; `before`
    // receives the previous state of every changed record.
    bool ApplyLocked(const std::vector<VariableDataItem20>& list, std::vector<VariableDataItem20>* before);
    // Runs every change notification of one changed record; caller holds m_mutex.
    void NotifyChange(const VariableDataItem20& item);
    bool ReadText(const char* component, const char* variable, const char* instance, std::string& value);
    int ReadInt(const char* component, const char* variable, const char* instance = "");
    bool ReadBool(const char* component, const char* variable, const char* instance = "");
    std::string ReadString(const char* component, const char* variable, const char* instance = "");
    float ReadFloat(const char* component, const char* variable, const char* instance, const char* missingLog);
    std::string BuildImage() override;
    void ResetInPlace();

    pthread_mutex_t m_mutex;
    std::vector<VariableItemRegister> m_register;
    std::vector<VariableDataItem20> m_items;
};
