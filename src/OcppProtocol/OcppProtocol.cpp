#include "OcppProtocol/OcppProtocol.h"

#include <pthread.h>

#include <cstdio>
#include <algorithm>
#include <cstring>
#include <vector>

#include "BuildInfo.h"
#include "Log/LogManager.h"
#include "Ocpp20/Process/AdditionalInfoStore.h"
#include "Ocpp20/Process/AuthorizeCache.h"
#include "Ocpp20/Process/VariableCache.h"
#include "Ocpp20/Process/VariableCharacteristics.h"
#include "Ocpp20/OcppProtocol20.h"
#include "OcppProtocol/InboundFrame.h"
#include "OcppProtocol/MessageCallBack.h"
#include "OcppProtocol/OutboundSender.h"
#include "Process/BootHeartbeat.h"
#include "Process/ConnectManager.h"
#include "Process/ConnectorManager.h"
#include "Process/OfflineCache.h"
#include "Ocpp20/TransactionMsgQueue.h"
#include "Util/TransactionMessageManager.h"
#include "Process/PlugInManager.h"
#include "Ocpp20/Process/TransactionManager.h"
#include "Process/ReservationManager.h"
#include "SmartCharging/ChargingProfile20/ProfileCache.h"
#include "SmartCharging/ChargingProfile20/ProfileManager.h"
#include "SmartCharging/ChargingProfile21/ProfileCache.h"
#include "SmartCharging/ChargingProfile21/ProfileManager.h"
#include "Util/CriticalSectionManager.h"
#include "Util/CryptoUtil.h"
#include "Util/FileUtil.h"
#include "Util/TimerManager.h"
#include "Util/Tools.h"

std::atomic<OCPPPROTOCOL> g_eOcppProtocol{OCPPPROTOCOL_NONE};
std::atomic<SDKSTATUS> g_eSdkStatus{SDKSTATUS_NONE};
std::atomic<int32_t> g_bNeedReportVariables{1};
std::atomic<int32_t> g_eSqlLogLevel{2};
std::atomic<OcppProtocolCallBack*> g_pOcppProtocolCallBack{nullptr};
std::atomic<int32_t> g_iEvseNum{0};
std::atomic<int32_t> g_iPrevUnconnectTimeSec{0};
std::atomic<int32_t> g_iPrevConnectTimeSec{0};
std::atomic<int32_t> g_bEnterOfflineMode{0};
std::atomic<int32_t> g_eSdkVersion{0};
std::atomic<int32_t> g_bSysToHcUtcEnabled{0};
std::atomic<int32_t> g_bInvalidCsmsCertificate{0};
std::atomic<int32_t> g_bInvalidTLSVersion{0};
std::atomic<int32_t> g_bInvalidTLSCiphersuite{0};
std::atomic<int32_t> g_eOfflineTransactionStorePoint{TRANSACTIONSTOREPOINT_ALWAYS};

namespace {
OcppLogCallBack g_logCallBack = nullptr;
pthread_mutex_t g_logSection = PTHREAD_MUTEX_INITIALIZER;

std::string g_strCacheDir;
pthread_mutex_t g_cacheDirSection = PTHREAD_MUTEX_INITIALIZER;

// Serialises status changes so the host sees them in the order they were made.
pthread_mutex_t g_statusSection = PTHREAD_MUTEX_INITIALIZER;

std::atomic<SecurityEventObserver> g_securityEventObserver{nullptr};

const char kProtocolNames[3][10] = {"OCPP16", "OCPP20", "OCPP21"};

const char* const kSecurityEventTypes[] = {"FirmwareUpdated",
                                           "FailedToAuthenticateAtCsms",
                                           "CsmsFailedToAuthenticate",
                                           "SettingSystemTime",
                                           "StartupOfTheDevice",
                                           "ResetOrReboot",
                                           "SecurityLogWasCleared",
                                           "ReconfigurationOfSecurityParameters",
                                           "MemoryExhaustion",
                                           "InvalidMessages",
                                           "AttemptedReplayAttacks",
                                           "TamperDetectionActivated",
                                           "InvalidFirmwareSignature",
                                           "InvalidFirmwareSigningCertificate",
                                           "InvalidCsmsCertificate",
                                           "InvalidChargingStationCertificate",
                                           "InvalidTLSVersion",
                                           "InvalidTLSCipherSuite",
                                           "MaintenanceLoginAccepted",
                                           "MaintenanceLoginFailed"};

int32_t RunTimeSec() { return static_cast<int32_t>(CTools::GetCurRunTimeSec()); }

enum ConnectorReport { REPORT_NONE, REPORT_ALL, REPORT_CACHED };

// The decision half of the status-change option; the connector report it asks
// for is made by the caller once no lock is held (it talks to the CSMS).
// Read before g_statusSection is taken: the stores have locks of their own and
// the connection manager changes the status while holding its lock.
int ReadOfflineThreshold(SDKSTATUS status) {
    const OCPPPROTOCOL protocol = g_eOcppProtocol.load();
    if (status != SDKSTATUS_OK || (protocol != OCPPPROTOCOL_201 && protocol != OCPPPROTOCOL_21)) return 0;
    return CVariableCache::GetInstance()->OCPPCommCtrlrOfflineThreshold();
}

int DecideStatusChangeOption(SDKSTATUS status, int threshold, ConnectorReport* report) {
    *report = REPORT_NONE;
    if (status == SDKSTATUS_DISCONNECTED) {
        g_iPrevUnconnectTimeSec = RunTimeSec();
        return 0;
    }
    if (status != SDKSTATUS_OK) return 0;
    const OCPPPROTOCOL protocol = g_eOcppProtocol.load();
    const int32_t now = RunTimeSec();
    if (protocol != OCPPPROTOCOL_201 && protocol != OCPPPROTOCOL_21) {
        g_iPrevConnectTimeSec = now;
        return 0;
    }
    const int32_t prevConnect = g_iPrevConnectTimeSec.load();
    int option;
    if (prevConnect == 0 || threshold < now - g_iPrevUnconnectTimeSec.load()) {
        LOG_INFO("报告所有枪状态 OCPPCommCtrlrOfflineThreshold:%d g_iPrevConnectTimeSec:%lld\n", threshold,
                 (long long)prevConnect);
        *report = REPORT_ALL;
        option = 1;
    } else {
        *report = REPORT_CACHED;
        option = 2;
    }
    g_iPrevConnectTimeSec = now;
    return option;
}

void RunConnectorReport(ConnectorReport report) {
    if (report == REPORT_ALL) CConnectorManager::GetInstance()->ReportAllConnectorStatus();
    if (report == REPORT_CACHED) CConnectorManager::GetInstance()->ReportAllCacheConnectorStatus();
}

void PostOfflineModeRecord() {
    ServerRecvBase record;
    memset(&record, 0, sizeof record);
    record.type = SERVERRECVTYPE_ENTEROFFLINEMODE;
    CMessageCallBack::GetInstance()->OnMessage(reinterpret_cast<const char*>(&record), sizeof record, 1);
}

// Under g_statusSection.
void EnterOfflineModeLocked() {
    if (g_bEnterOfflineMode.load() == 1) return;
    LOG_INFO("========================>Enter OFFLineMode<========================");
    g_bEnterOfflineMode = 1;
    PostOfflineModeRecord();
    char name[1024] = {0};
    OcppProtocol_GetOcppProtocolType(g_eOcppProtocol.load(), name);
    LOG_INFO("EnterOfflineMode Protocol:%s", name);
}
}  // namespace

// ---- Logging -------------------------------------------------------------

void OcppProtocol_SetLog(OcppLogCallBack callback) {
    OCPP_SECTION(&g_logSection);
    g_logCallBack = callback;
}

namespace {
thread_local bool t_inLogSink = false;

void PrintLine(const char* text) {
    fputs(text, stdout);
    fputc('\n', stdout);
    fflush(stdout);
}
}  // namespace

void OcppProtocol_WriteLog(int level, const char* function, const char* file, int line, const char* text) {
    if (text == nullptr) return;
    if (t_inLogSink) {
        // The host's log callback called back into something that logs: the lock
        // is ours already, so this line goes to standard output instead.
        PrintLine(text);
        return;
    }
    OCPP_SECTION(&g_logSection);
    if (g_logCallBack != nullptr) {
        t_inLogSink = true;
        g_logCallBack(static_cast<LOGLEVEL>(level), function, file, line, text);
        t_inLogSink = false;
    } else {
        PrintLine(text);
    }
}

// ---- Lifecycle -----------------------------------------------------------

int OcppProtocol_Init(int reserved, OcppProtocolCallBack* callback) {
    if (reserved == 0) g_pOcppProtocolCallBack = callback;
    return 1;
}

int OcppProtocol_SetCacheDir(const char* dir) {
    if (dir == nullptr || CFileUtil::CanWriteDir(dir) != 1) {
        LOG_ERROR("不能写cache:%s\n", dir ? dir : "");
        return 0;
    }
    std::string folder = dir;
    if (folder.empty() || folder.back() != '/') folder += "/";
    {
        OCPP_SECTION(&g_cacheDirSection);
        g_strCacheDir = folder;
    }
    LOG_INFO("ocpp cache folder:%s", folder.c_str());
    CConnectManager::GetInstance()->SetStoreFile(folder + "csmscfg.json");
    return 1;
}

namespace {
// When ResetSystem releases a store: before the cache stores, with them (ReleaseCache), or after.
enum STOREPHASE { STOREPHASE_SYSTEM, STOREPHASE_CACHE, STOREPHASE_AFTERCACHE };

const unsigned kVersion16 = 1u << 0;
const unsigned kVersion201 = 1u << 1;
const unsigned kVersion21 = 1u << 2;
const unsigned kVersion20x = kVersion201 | kVersion21;
const unsigned kUnknownVersion = 1u << 3;  // opened even when the version is not known
const unsigned kEveryVersion = kVersion16 | kVersion20x | kUnknownVersion;

unsigned VersionBit(OCPPPROTOCOL protocol) {
    switch (protocol) {
        case OCPPPROTOCOL_16:
            return kVersion16;
        case OCPPPROTOCOL_201:
            return kVersion201;
        case OCPPPROTOCOL_21:
            return kVersion21;
        default:
            return kUnknownVersion;
    }
}

// One per-connection store: what InitCache opens in the CSMS's folder and ResetSystem releases.
struct ConnectionStore {
    STOREPHASE phase;
    void (*release)();                      // null: outlives a reset
    int openRank;                           // InitCache opens in rising rank
    unsigned versions;                      // which negotiated versions open it
    int (*open)(const std::string& folder);  // null: nothing to open
    bool decidesResult;                     // its open result is InitCache's result
};

int OpenVariableCache(const std::string& folder) {
    return CVariableCache::GetInstance()->SetStoreFile(folder + "variablecache.json");
}
int OpenAuthorizeCache(const std::string& folder) {
    return CAuthorizeCache::GetInstance()->SetStoreFile(folder + "authorizecache.db");
}
int OpenCharacteristics(const std::string& folder) {
    return CVariableCharacteristics::GetInstance()->SetStoreFile(folder + "VariableCharacteristicscache.json");
}
int OpenProfiles20(const std::string& folder) {
    return CProfileManager20::GetInstance()->SetStoreFile(folder + "chargingprofile20.db");
}
int OpenProfiles21(const std::string& folder) {
    return CProfileManager21::GetInstance()->SetStoreFile(folder + "chargingprofile21.db");
}
int OpenTransactions(const std::string& folder) {
    CTransactionManager* transactions = CTransactionManager::GetInstance();
    transactions->Attach();
    return transactions->SetStoreFile(folder + "transactioncache.bin");
}
int OpenReservations(const std::string& folder) {
    return CReservationManager::GetInstance()->SetStoreFile(folder + "reservation.json");
}
int OpenOffline(const std::string& folder) {
    const int opened = COfflineCache::GetInstance()->SetStoreFile(folder + "offline.db");
    CTransactionMsgQueue::Start();
    return opened;
}
int OpenPlugInList(const std::string&) {
    return CPlugInManager::GetInstance()->ReadAllPlugInInfo(CPlugInManager::GetPlugInListFile());
}
int OpenLog(const std::string& folder) {
    const std::string hostLogFile = OcppProtocol_GetLogFile();
    return CLogManager::GetInstance()->SetStoreFile(hostLogFile.empty() ? folder + "log.db" : hostLogFile);
}

// In the order ResetSystem releases them; a new store is one more line.
const ConnectionStore kConnectionStores[] = {
    {STOREPHASE_SYSTEM, &CProfileManager20::Release, 40, kVersion201, &OpenProfiles20, false},
    {STOREPHASE_SYSTEM, &CProfileManager21::Release, 40, kVersion21, &OpenProfiles21, false},
    {STOREPHASE_SYSTEM, &CMessageCallBack::Release, 0, 0, nullptr, false},
    {STOREPHASE_SYSTEM, &CProfileCache20::Release, 0, 0, nullptr, false},
    {STOREPHASE_SYSTEM, &CProfileCache21::Release, 0, 0, nullptr, false},
    // Its sender stops before the journal it sends from closes.
    {STOREPHASE_SYSTEM, &CTransactionMessageManager::Release, 0, 0, nullptr, false},
    {STOREPHASE_CACHE, &CAuthorizeCache::Release, 32, kVersion201, &OpenAuthorizeCache, true},
    {STOREPHASE_CACHE, &CVariableCache::Release, 30, kVersion20x, &OpenVariableCache, false},
    {STOREPHASE_CACHE, &CVariableCharacteristics::Release, 31, kVersion20x, &OpenCharacteristics, false},
    {STOREPHASE_CACHE, &COfflineCache::Release, 45, kEveryVersion, &OpenOffline, false},
    {STOREPHASE_CACHE, &CTransactionManager::Release, 35, kVersion201, &OpenTransactions, false},
    {STOREPHASE_CACHE, &CReservationManager::Release, 50, kEveryVersion, &OpenReservations, false},
    {STOREPHASE_CACHE, &CLogManager::Release, 70, kEveryVersion, &OpenLog, false},
    {STOREPHASE_AFTERCACHE, &CAdditionalInfoStore::Release, 0, 0, nullptr, false},
    // Read again for every connection; the plug-ins stay loaded until OcppProtocol_Release.
    {STOREPHASE_AFTERCACHE, nullptr, 60, kEveryVersion, &OpenPlugInList, false},
};

void ReleaseStores(STOREPHASE phase) {
    for (const ConnectionStore& store : kConnectionStores)
        if (store.phase == phase && store.release != nullptr) store.release();
}
}  // namespace

std::string OcppProtocol_GetCacheDir() {
    OCPP_SECTION(&g_cacheDirSection);
    return g_strCacheDir;
}

int OcppProtocol_ActiveConnection(int reportVariables) {
    if (reportVariables == 1) {
        g_bNeedReportVariables = 1;
        g_iPrevConnectTimeSec = 0;
    }
    OcppProtocol_InitOcppProtocol(OCPPPROTOCOL_NONE);
    OcppProtocol_SetStatus(SDKSTATUS_NONE);
    return CConnectManager::GetInstance()->ActiveConnect();
}

int OcppProtocol_ResourceInit(ConnectionItem item) {
    item.url[sizeof item.url - 1] = '\0';
    LOG_INFO("==================>Using connection:%s\n", item.url);
    if (item.url[0] == '\0') {
        LOG_ERROR("ResourceInit Error! Reason:URL is empty!");
        return 0;
    }
    OcppProtocol_ResetSystem();
    OcppProtocol_InitOcppProtocol(static_cast<OCPPPROTOCOL>(item.protocol));
    const int result = OcppProtocol_InitCache(item.url);
    CTools::SleepMs(1000);
    OcppProtocol_SetStatus(SDKSTATUS_DISCONNECTED);
    return result;
}

int OcppProtocol_InitCache(std::string url) {
    const std::string cacheDir = OcppProtocol_GetCacheDir();
    if (cacheDir.empty()) {
        LOG_INFO("No need load cache");
        return 1;
    }
    const std::string folder = cacheDir + CCryptoUtil::GenSha256(url) + "/";

    // The folder is made without a shell, so no folder name can become a command;
    // the command text is still composed for the same length diagnostics.
    char command[510];
    const int needed = snprintf(command, sizeof command, "mkdir %s -p", folder.c_str());
    if (needed < 0) {
        LOG_ERROR("snprintf error: ret=%d", needed);
    } else if (needed > (int)sizeof command - 1) {
        LOG_ERROR("Command truncated: required length=%d, buffer size=%zu", needed, sizeof command);
    }
    CFileUtil::MakeDirs(folder);
    LOG_INFO("CSMS Cache Folder = %s", folder.c_str());

    const std::string variableCheckFile = folder + "variableCheck.json";  // fed to its store elsewhere
    (void)variableCheckFile;

    const unsigned version = VersionBit(g_eOcppProtocol.load());
    // An unknown version opens only the stores every version shares, and fails.
    int result = version != kUnknownVersion ? 1 : 0;
    std::vector<const ConnectionStore*> opening;
    for (const ConnectionStore& store : kConnectionStores)
        if (store.open != nullptr && (store.versions & version) != 0) opening.push_back(&store);
    std::stable_sort(opening.begin(), opening.end(),
                     [](const ConnectionStore* a, const ConnectionStore* b) { return a->openRank < b->openRank; });
    for (const ConnectionStore* store : opening) {
        const int opened = store->open(folder);
        if (store->decidesResult) result = opened;
    }
    return result;
}

void OcppProtocol_ReleaseCache() { ReleaseStores(STOREPHASE_CACHE); }

void OcppProtocol_ResetSystem() {
    g_eSdkStatus = SDKSTATUS_NONE;
    ReleaseStores(STOREPHASE_SYSTEM);
    OcppProtocol_ReleaseCache();
    ReleaseStores(STOREPHASE_AFTERCACHE);
}

void OcppProtocol_Release() {
    // The connector statuses go last: the boot timer, the link and the message worker
    // may be in the middle of a report that uses them until their threads are joined.
    CBootHeartbeat::Release();
    CTimerManager::Release();
    CConnectManager::Release();
    OcppProtocol_ResetSystem();
    CConnectorManager::Release();
    CPlugInManager::Release();
    // The log lock is static and stays valid; only the callback goes.
    OcppProtocol_SetLog(nullptr);
}

// ---- Status --------------------------------------------------------------

SDKSTATUS OcppProtocol_GetStatus(void) { return g_eSdkStatus.load(); }

void OcppProtocol_SetStatus(SDKSTATUS status) {
    if (status == g_eSdkStatus.load()) return;
    const int threshold = ReadOfflineThreshold(status);
    const int resetFactoryConfig = CConnectManager::GetInstance()->IsResetFactoryConfig();
    std::vector<SECURITYEVENTTYPE> pendingEvents;
    ConnectorReport report = REPORT_NONE;
    {
        OCPP_SECTION(&g_statusSection);
        const SDKSTATUS old = g_eSdkStatus.load();
        if (status == old) return;
        if (status == SDKSTATUS_OK) {
            if (g_bInvalidCsmsCertificate.exchange(0) == 1) {
                LOG_DEBUG("OcppProtocol_SetStatus is SDKSTATUS_OK and g_bInvalidCsmsCertificate is true");
                pendingEvents.push_back(SECURITYEVENTTYPE_INVALIDCSMSCERTIFICATE);
            }
            if (g_bInvalidTLSVersion.exchange(0) == 1) {
                LOG_DEBUG("OcppProtocol_SetStatus is SDKSTATUS_OK and g_bInvalidTLSVersion is true");
                pendingEvents.push_back(SECURITYEVENTTYPE_INVALIDTLSVERSION);
            }
            if (g_bInvalidTLSCiphersuite.exchange(0) == 1) {
                LOG_DEBUG("OcppProtocol_SetStatus is SDKSTATUS_OK and g_bInvalidTLSCiphersuite is true");
                pendingEvents.push_back(SECURITYEVENTTYPE_INVALIDTLSCIPHERSUITE);
            }
        }
        const int option = DecideStatusChangeOption(status, threshold, &report);
        // Stored before the host hears of it: a host acting on the record must find the library in that state.
        g_eSdkStatus = status;

        SdkStatusChange record;
        memset(&record, 0, sizeof record);
        record.base.type = SERVERRECVTYPE_SDKSTATUSCHANGE;
        record.status = status;
        record.statusChangeOption = option;
        record.protocol = g_eOcppProtocol.load();
        record.needReportVariables = g_bNeedReportVariables.load();
        record.resetFactoryConfig = resetFactoryConfig;
        CMessageCallBack::GetInstance()->OnMessage(reinterpret_cast<const char*>(&record), sizeof record, 1);

        if (status == SDKSTATUS_DISCONNECTED &&
            (old == SDKSTATUS_CONNECTED || old == SDKSTATUS_SUBMITTING || old == SDKSTATUS_OK)) {
            EnterOfflineModeLocked();
        }
        if (status != SDKSTATUS_DISCONNECTED) g_bEnterOfflineMode = 0;
    }
    // Both talk to the CSMS and may wait for answers, so no lock is held here.
    for (SECURITYEVENTTYPE type : pendingEvents) OcppProtocol_SecurityEventNotification(type);
    RunConnectorReport(report);
}

int OcppProtocol_GetStatusChangeOption(SDKSTATUS status) {
    const int threshold = ReadOfflineThreshold(status);
    ConnectorReport report = REPORT_NONE;
    int option;
    {
        OCPP_SECTION(&g_statusSection);
        option = DecideStatusChangeOption(status, threshold, &report);
    }
    RunConnectorReport(report);
    return option;
}

int OcppProtocol_IsEnterOfflineMode(void) { return g_bEnterOfflineMode.load(); }

void OcppProtocol_EnterOfflineMode() {
    OCPP_SECTION(&g_statusSection);
    EnterOfflineModeLocked();
}

// ---- Protocol ------------------------------------------------------------

OCPPPROTOCOL OcppProtocol_GetOcppProtocol(void) { return g_eOcppProtocol.load(); }

void OcppProtocol_InitOcppProtocol(OCPPPROTOCOL protocol) { g_eOcppProtocol = protocol; }

int OcppProtocol_GetOcppProtocolType(OCPPPROTOCOL protocol, char* out) {
    const int index = static_cast<int>(protocol);
    if (index >= 3 || index < 0) return 0;
    if (out == nullptr) return 1;
    CTools::CopyField(out, sizeof kProtocolNames[index], kProtocolNames[index]);
    return 1;
}

int OcppProtocol_GetOcppProtocolType(const char* name, OCPPPROTOCOL* out) {
    if (name == nullptr) return 0;
    for (int i = 0; i < 3; ++i) {
        if (strcmp(name, kProtocolNames[i]) == 0) {
            if (out != nullptr) *out = static_cast<OCPPPROTOCOL>(i);
            return 1;
        }
    }
    return 0;
}

int OcppProtocol_IsNeedReportVariables(void) {
    if (g_eOcppProtocol.load() == OCPPPROTOCOL_NONE) return 0;
    return g_bNeedReportVariables.load();
}

void OcppProtocol_SetNeedReportVariables(int need) {
    g_bNeedReportVariables = need;
    // Under 2.1 the smart-charging manager fetches its charging parameters again
    // once the host has reported; it attaches here.
}

int OcppProtocol_GetMaxEvse(void) { return g_iEvseNum.load(); }

int OcppProtocol_Version(char* out) {
    if (out == nullptr) return 0;
    const int size = 255;
    const int ret = snprintf(out, size, "Branch: %s\nBuild: %s\n", OCPP_BUILD_BRANCH, OCPP_BUILD_STAMP);
    if (ret < 0) return printf("snprintf error: ret=%d\n", ret);
    if (ret > size - 1) {
        return printf("snprintf truncated output: required length=%d, buffer size=%d\n", ret, size);
    }
    return ret;
}

int OcppProtocol_EnterCriticalSection(pthread_mutex_t* mutex, const char* file, int line, const char* function) {
    if (mutex == nullptr) return 0;
    return CCriticalSectionManager::GetInstance()->Enter(mutex, file, line, function);
}

int OcppProtocol_LeaveCriticalSection(pthread_mutex_t* mutex, const char* file, int line, const char* function) {
    if (mutex == nullptr) return 0;
    return CCriticalSectionManager::GetInstance()->Leave(mutex, file, line, function);
}

// ---- Settings ------------------------------------------------------------

void OcppProtocol_SetSdkVersion(int version) { g_eSdkVersion = version; }

void OcppProtocol_SetSqlLogLevel(int level) { g_eSqlLogLevel = level; }

void OcppProtocol_SetMaxFrameBytes(uint32_t bytes) { CInboundFrame::SetMaxReceiveBytes(bytes); }

int OcppProtocol_GetSqlLogLevel(void) { return g_eSqlLogLevel.load(); }

void OcppProtocol_SetOfflineTransactionStorePoint(TRANSACTIONSTOREPOINT point) {
    g_eOfflineTransactionStorePoint = static_cast<int32_t>(point);
}

TRANSACTIONSTOREPOINT OcppProtocol_GetOfflineTransactionStorePoint(void) {
    return static_cast<TRANSACTIONSTOREPOINT>(g_eOfflineTransactionStorePoint.load());
}

void OcppProtocol_SysToHcUtcEnabled(void) {
    const OCPPPROTOCOL protocol = g_eOcppProtocol.load();
    if (protocol == OCPPPROTOCOL_201 || protocol == OCPPPROTOCOL_21) g_bSysToHcUtcEnabled = 1;
}

int OcppProtocol_SetSystemTime(int64_t epochSec) {
    if (CTools::SetTimeSec(epochSec) != 1) return 0;
    if (g_bSysToHcUtcEnabled.load() == 1) {
        CTools::SysToHcUtc();
        LOG_INFO("ocpp protocol sys to hc utc");
    }
    return 1;
}

void OcppProtocol_SetInvalidCsmsCertificate(int invalid) { g_bInvalidCsmsCertificate = invalid; }

void OcppProtocol_SetInvalidTLSVersion(int invalid) { g_bInvalidTLSVersion = invalid; }

void OcppProtocol_SetInvalidTLSCiphersuite(int invalid) { g_bInvalidTLSCiphersuite = invalid; }

// ---- Security events -----------------------------------------------------

const char* OcppEnumTrans_SecurityEvevtType(SECURITYEVENTTYPE type) {
    const int index = static_cast<int>(type);
    if (index < 0 || index >= (int)(sizeof kSecurityEventTypes / sizeof kSecurityEventTypes[0])) return "";
    return kSecurityEventTypes[index];
}

int OcppProtocol_SecurityEventNotification(SECURITYEVENTTYPE type) {
    const char* text = OcppEnumTrans_SecurityEvevtType(type);
    CTools::Log(3, __FUNCTION__, __FILE__, __LINE__, "%s", text);
    const OCPPPROTOCOL protocol = g_eOcppProtocol.load();
    if (protocol == OCPPPROTOCOL_201 || protocol == OCPPPROTOCOL_21) return OcppProtocol_SendSecurityEvent(text);
    return 1;
}

int OcppProtocol_SendSecurityEvent(const char* eventType) {
    SecurityEventObserver observer = g_securityEventObserver.load();
    if (observer != nullptr) observer(eventType);
    const std::string frame =
        COcppProtocol20::SecurityEventNotificationReq(eventType, CTools::CurTimeSec(), nullptr);
    if (frame.empty()) return 0;
    const OutboundResult out = COutboundSender::Send(OUTBOUNDKIND_SECURITYEVENT, frame);
    if (out.answer == nullptr) return out.result;
    return COcppProtocol20::SecurityEventNotificationResp(out.answer);
}

void OcppProtocol_SetSecurityEventObserver(SecurityEventObserver observer) { g_securityEventObserver = observer; }
