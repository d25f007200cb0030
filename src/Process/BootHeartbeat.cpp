#include "Process/BootHeartbeat.h"

#include <cstdlib>
#include <cstring>

#include "Ocpp20/OcppProtocol20.h"
#include "Ocpp20/Process/VariableCache.h"
#include "OcppProtocol/OcppProtocol.h"
#include "OcppProtocol/OutboundSender.h"
#include "Process/ConnectManager.h"
#include "Process/OfflineCache.h"
#include "Util/CriticalSectionManager.h"
#include "Util/TimerManager.h"
#include "Util/Tools.h"

namespace {
const int kTimerSec = 2;
const int kNoAnswerDelaySec = 10;
const int kHeartbeatLeadSec = 2;
const int64_t kClockRefreshSec = 86400;

int64_t RunSec() { return CTools::GetCurRunTimeSec(); }

int64_t LinkLastOperate() { return CConnectManager::GetInstance()->GetLastOperateTimeSec(); }
std::atomic<CBootHeartbeat::LastOperateFn> g_lastOperate{&LinkLastOperate};

bool Is20() {
    const OCPPPROTOCOL protocol = OcppProtocol_GetOcppProtocol();
    return protocol == OCPPPROTOCOL_201 || protocol == OCPPPROTOCOL_21;
}

void SetClock(int64_t epochSec) {
    if (OcppProtocol_SetSystemTime(epochSec) != 1)
        LOG_ERROR("set system time failed (no privilege?), time:%lld", (long long)epochSec);
}

// Synchronous request; the answer frame, or null when none came.
const char* Request(const std::string& frame) {
    if (frame.empty()) return nullptr;
    return COutboundSender::Send(OUTBOUNDKIND_BOOTHEARTBEAT, frame).answer;
}
}  // namespace

CBootHeartbeat::CBootHeartbeat() {
    pthread_mutex_init(&m_mutex, nullptr);
    pthread_mutex_init(&m_backOffLock, nullptr);
    memset(&m_option, 0, sizeof m_option);
    StartTimer();
}

void CBootHeartbeat::StartTimer() {
    const unsigned long long id = CTimerManager::GetInstance()->RegisterTimer(kTimerSec, OnTimer, this);
    OCPP_SECTION(&m_mutex);
    m_iTimerId = id;
}

// Never freed (threads may hold the pointer): a release stops the timer and forgets
// the boot; the next GetInstance starts the timer again.
void CBootHeartbeat::ResetInPlace() {
    StopTimer();
    {
        OCPP_SECTION(&m_mutex);
        m_eReason = BOOTREASON_POWERUP;
        m_strModel.clear();
        m_strVendor.clear();
        memset(&m_option, 0, sizeof m_option);
        m_iBootPhase = 0;
        COutboundSender::SetAwaitingAcceptance(false);
        m_iBootStatus = 0;
        m_iInterval = 0;
        m_iLastExchangeSec = 0;
        m_iLastHeartbeatSec = 0;
    }
    {
        OCPP_SECTION(&m_backOffLock);
        m_iBackOffValue = 5;
        m_iRetryCount = -1;
    }
    m_bTimerAfterReset = true;
}

void CBootHeartbeat::Resume() {
    if (m_bTimerAfterReset.exchange(false)) StartTimer();
}

CBootHeartbeat::~CBootHeartbeat() {
    StopTimer();  // waits for a tick in flight
    pthread_mutex_destroy(&m_backOffLock);
    pthread_mutex_destroy(&m_mutex);
}

void CBootHeartbeat::StopTimer() {
    unsigned long long id;
    {
        OCPP_SECTION(&m_mutex);
        id = m_iTimerId;
        m_iTimerId = 0;
    }
    if (id != 0) CTimerManager::GetInstance()->UnRegisterTimer(id);
}

void CBootHeartbeat::SetLastOperateSource(LastOperateFn source) {
    g_lastOperate = source != nullptr ? source : &LinkLastOperate;
}

void* CBootHeartbeat::OnTimer(void* self) {
    static_cast<CBootHeartbeat*>(self)->TimerProc();
    return nullptr;
}

int CBootHeartbeat::BootNotification(BOOTREASON reason, const char* model, const char* vendorName,
                                     const BootNotificationOption* option) {
    OCPP_SECTION(&m_mutex);
    m_iInterval = 0;
    m_iLastExchangeSec = 0;
    m_eReason = reason;
    m_strModel = model != nullptr ? model : "";
    m_strVendor = vendorName != nullptr ? vendorName : "";
    if (option != nullptr) {
        m_option = *option;
    } else {
        memset(&m_option, 0, sizeof m_option);
    }
    m_iBootPhase = 1;
    COutboundSender::SetAwaitingAcceptance(true);
    return 1;
}

void CBootHeartbeat::TimerProc() {
    if (OcppProtocol_GetStatus() == SDKSTATUS_DISCONNECTED) return;
    int phase;
    {
        OCPP_SECTION(&m_mutex);
        if (m_iBootPhase == 1) {
            RequestBoot();
        } else if (m_iBootPhase == 2) {
            RequestHeartBeat();
        }
        phase = m_iBootPhase;
    }
    if (OcppProtocol_GetStatus() == SDKSTATUS_CONNECTED && phase == 2) SubmitOfflineMessage();
}

void CBootHeartbeat::SubmitOfflineMessage() { COfflineCache::GetInstance()->SubmitOfflineMessage(); }

int CBootHeartbeat::SendBoot(BOOTREASON reason, BootNotificationResult* result) {
    if (!Is20()) {
        LOG_ERROR("BootNotification: no engine for protocol %d", static_cast<int>(OcppProtocol_GetOcppProtocol()));
        return 0;
    }
    const std::string frame =
        COcppProtocol20::BootNotificationReq(reason, m_strModel.c_str(), m_strVendor.c_str(), m_option);
    const char* answer = Request(frame);
    if (answer == nullptr) return 0;
    return COcppProtocol20::BootNotificationResp(answer, result) == 1 ? 1 : 0;
}

int CBootHeartbeat::SendHeartBeat(int64_t* currentTime) {
    *currentTime = 0;
    if (!Is20()) return 0;
    const char* answer = Request(COcppProtocol20::HeartbeatReq());
    if (answer == nullptr) return 0;
    return COcppProtocol20::HeartbeatResp(answer, currentTime) == 1 ? 1 : 0;
}

int CBootHeartbeat::RequestBoot() {
    const int64_t now = RunSec();
    if (now - m_iLastExchangeSec < m_iInterval) return 0;
    BootNotificationResult result;
    memset(&result, 0, sizeof result);
    if (SendBoot(m_eReason, &result) != 1) {
        m_iLastExchangeSec = now + kNoAnswerDelaySec;
        return 0;
    }
    DealBootResponse(result);
    return 1;
}

void CBootHeartbeat::DealBootResponse(const BootNotificationResult& result) {
    m_iBootStatus = result.status;
    m_iLastExchangeSec = RunSec();
    LOG_INFO("BootNotification status:%d interval:%d currentTime:%lld", result.status, result.interval,
             (long long)result.currentTime);
    if (result.status == 0) {
        m_iInterval = result.interval;
        // The device model holds the heartbeat interval from here on: the CSMS may
        // read it and change it with SetVariables.
        CVariableCache::GetInstance()->SetHeartbeatInterval(result.interval);
        if (result.currentTime > 0) SetClock(result.currentTime);
        m_iBootPhase = 2;
        COutboundSender::SetAwaitingAcceptance(false);
        OcppProtocol_SecurityEventNotification(SECURITYEVENTTYPE_RESETORREBOOT);
        CConnectManager::GetInstance()->SetAcceptedByCsms(1);
    } else {
        CConnectManager::GetInstance()->SetAcceptedByCsms(0);
        m_iInterval = result.interval;
    }
}

int CBootHeartbeat::TriggerBoot() {
    OCPP_SECTION(&m_mutex);
    const int64_t started = RunSec();
    const BOOTREASON reason = Is20() ? BOOTREASON_TRIGGERED : m_eReason;
    BootNotificationResult result;
    memset(&result, 0, sizeof result);
    if (SendBoot(reason, &result) != 1) {
        m_iLastExchangeSec = started + kNoAnswerDelaySec;
        return 0;
    }
    DealBootResponse(result);
    return 1;
}

int CBootHeartbeat::RequestHeartBeat() {
    const int64_t lastOperate = g_lastOperate.load()();
    if (lastOperate > m_iLastExchangeSec) m_iLastExchangeSec = lastOperate;
    const int64_t now = RunSec();
    // Read on every tick, so a SetVariables takes effect from the next heartbeat on.
    const int interval = CVariableCache::GetInstance()->OCPPCommCtrlrHeartbeatInterval();
    if (now - m_iLastHeartbeatSec < kClockRefreshSec && now - m_iLastExchangeSec < interval - kHeartbeatLeadSec)
        return 0;
    // Counted whatever the answer: an answer without a usable time must not
    // turn the daily heartbeat into one per tick.
    m_iLastHeartbeatSec = now;
    int64_t currentTime = 0;
    const int sent = SendHeartBeat(&currentTime);
    if (sent == 1 && currentTime > 0) SetClock(currentTime);
    m_iLastExchangeSec = RunSec();
    return sent;
}

int CBootHeartbeat::TriggerHeartBeat() {
    int64_t currentTime = 0;
    const int sent = SendHeartBeat(&currentTime);
    OCPP_SECTION(&m_mutex);
    if (sent == 1 && currentTime > 0) SetClock(currentTime);
    m_iLastExchangeSec = RunSec();
    return sent;
}

int CBootHeartbeat::GetBootStatus() { return m_iBootStatus.load(); }

void CBootHeartbeat::SetBootStatus(int status) { m_iBootStatus.store(status); }

int CBootHeartbeat::GetBootPhase() {
    OCPP_SECTION(&m_mutex);
    return m_iBootPhase;
}

int CBootHeartbeat::GetInterval() {
    {
        OCPP_SECTION(&m_mutex);
        if (m_iBootPhase != 2) return m_iInterval;
    }
    return CVariableCache::GetInstance()->OCPPCommCtrlrHeartbeatInterval();
}

void CBootHeartbeat::ResetReconnctTimes() {
    if (!Is20()) return;
    OCPP_SECTION(&m_backOffLock);
    m_iBackOffValue = 5;
    m_iRetryCount = 0;
}

void CBootHeartbeat::AddReconnctTimes() {
    if (!Is20()) return;
    OCPP_SECTION(&m_backOffLock);
    if (m_iRetryCount >= 0) ++m_iRetryCount;
}

int CBootHeartbeat::CalcReconnctBackOffTime() {
    if (!Is20()) {
        OCPP_SECTION(&m_backOffLock);
        return m_iBackOffValue;
    }
    // Read before our lock: the variable cache has its own.
    CVariableCache* cache = CVariableCache::GetInstance();
    const int repeat = cache->OCPPCommCtrlrRetryBackOffRepeatTimes();
    const int minimum = cache->OCPPCommCtrlrRetryBackOffWaitMinimum();
    const int range = cache->OCPPCommCtrlrRetryBackOffRandomRange();
    OCPP_SECTION(&m_backOffLock);
    if (m_iRetryCount == -1 || m_iRetryCount > repeat) return m_iBackOffValue;
    if (m_iRetryCount == 1) {
        m_iBackOffValue = minimum + range;
    } else if (m_iRetryCount > 1) {
        m_iBackOffValue = 2 * m_iBackOffValue + (range > 0 ? rand() % (range + 1) : 0);
    }
    return m_iBackOffValue;
}

// ---- Host entries -------------------------------------------------------------

int OcppProtocol_GetReconnctBackOffTime(void) { return CBootHeartbeat::GetInstance()->CalcReconnctBackOffTime(); }

int OcppProtocol_BootNotification(BOOTREASON reason, const char* model, const char* vendorName,
                                  const BootNotificationOption* option) {
    return CBootHeartbeat::GetInstance()->BootNotification(reason, model, vendorName, option);
}
