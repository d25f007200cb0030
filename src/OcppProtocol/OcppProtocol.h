#pragma once
// Internal view of the SDK core: globals and entries other modules call.
#include <OcppProtocol.h>

#include <atomic>
#include <cstdint>
#include <string>

// Process-wide state. Written from the transport, replay and host threads,
// hence atomic; the string is behind a lock (OcppProtocol_GetCacheDir).
extern std::atomic<OCPPPROTOCOL> g_eOcppProtocol;
extern std::atomic<SDKSTATUS> g_eSdkStatus;
extern std::atomic<int32_t> g_bNeedReportVariables;
extern std::atomic<int32_t> g_eSqlLogLevel;
extern std::atomic<OcppProtocolCallBack*> g_pOcppProtocolCallBack;
extern std::atomic<int32_t> g_iEvseNum;
extern std::atomic<int32_t> g_iPrevUnconnectTimeSec;  // run-time seconds
extern std::atomic<int32_t> g_iPrevConnectTimeSec;    // run-time seconds; 0 = not since activation
extern std::atomic<int32_t> g_bEnterOfflineMode;
extern std::atomic<int32_t> g_eSdkVersion;
extern std::atomic<int32_t> g_bSysToHcUtcEnabled;
extern std::atomic<int32_t> g_bInvalidCsmsCertificate;
extern std::atomic<int32_t> g_bInvalidTLSVersion;
extern std::atomic<int32_t> g_bInvalidTLSCiphersuite;
extern std::atomic<int32_t> g_eOfflineTransactionStorePoint;

// Sink of the diagnostic log: the host's callback, or standard output.
void OcppProtocol_WriteLog(int level, const char* function, const char* file, int line, const char* text);

// Cache folder as set by the host, with its trailing "/"; empty when none.
std::string OcppProtocol_GetCacheDir();

// Lifecycle steps driven by the connection manager.
int OcppProtocol_ResourceInit(ConnectionItem item);
int OcppProtocol_InitCache(std::string url);
void OcppProtocol_ReleaseCache();
void OcppProtocol_ResetSystem();

// Status machine.
void OcppProtocol_SetStatus(SDKSTATUS status);
int OcppProtocol_GetStatusChangeOption(SDKSTATUS status);
void OcppProtocol_EnterOfflineMode();

void OcppProtocol_InitOcppProtocol(OCPPPROTOCOL protocol);

// Sets the system clock from the CSMS; when the host asked for it, the hardware
// clock follows. 1 when the system clock was set.
int OcppProtocol_SetSystemTime(int64_t epochSec);
// Version string of `protocol` into `out` (10 bytes at most); 0 when there is none.
int OcppProtocol_GetOcppProtocolType(OCPPPROTOCOL protocol, char* out);

// Security event type text; empty for an unknown code.
const char* OcppEnumTrans_SecurityEvevtType(SECURITYEVENTTYPE type);

// Where a security event leaves for the CSMS: the 2.0.1 sender attaches here.
int OcppProtocol_SendSecurityEvent(const char* eventType);
// Sees every security event handed to the sender, in order.
typedef void (*SecurityEventObserver)(const char* eventType);
void OcppProtocol_SetSecurityEventObserver(SecurityEventObserver observer);
