#pragma once
#include <pthread.h>

#include <OcppProtocol.h>

#include <atomic>
#include <cstdint>
#include <string>

#include "Util/Singleton.h"

struct BootNotificationResult;

// Boot notification until accepted, then heartbeats; sets the clock from the CSMS.
class CBootHeartbeat : public CSingleton<CBootHeartbeat> {
public:
    // From the host: the next timer tick sends the BootNotification.
    int BootNotification(BOOTREASON reason, const char* model, const char* vendorName,
                         const BootNotificationOption* option);
    // TriggerMessage: send at once; 1 when an answer came.
    int TriggerBoot();
    int TriggerHeartBeat();

    // Status of the last BootNotification answer: 0 Accepted, 1 Pending, 2 Rejected.
    int GetBootStatus();
    void SetBootStatus(int status);
    // 0 nothing asked yet, 1 booting, 2 accepted (heartbeats).
    int GetBootPhase();
    // The boot retry interval while booting; once accepted, the device model's heartbeat interval.
    int GetInterval();

    void ResetReconnctTimes();
    void AddReconnctTimes();
    int CalcReconnctBackOffTime();

    // One tick of the 2-second timer.
    void TimerProc();
    // Takes the timer off the timer manager, for tests that tick by hand.
    void StopTimer();

    // Where the time of the link's last frame comes from (the connection manager's
    // client by default); tests replace it.
    typedef int64_t (*LastOperateFn)();
    static void SetLastOperateSource(LastOperateFn source);

    // After an accepted boot: replay what was kept offline, then report OK.
    static void SubmitOfflineMessage();

private:
    friend class CSingleton<CBootHeartbeat>;
    CBootHeartbeat();
    ~CBootHeartbeat();
    CBootHeartbeat(const CBootHeartbeat&) = delete;
    CBootHeartbeat& operator=(const CBootHeartbeat&) = delete;

    void ResetInPlace();
    void Resume();
    void StartTimer();
    static void* OnTimer(void* self);
    // Callers hold m_mutex.
    int RequestBoot();
    int RequestHeartBeat();
    int SendBoot(BOOTREASON reason, BootNotificationResult* result);
    int SendHeartBeat(int64_t* currentTime);
    void DealBootResponse(const BootNotificationResult& result);

    BOOTREASON m_eReason = BOOTREASON_POWERUP;
    std::string m_strModel;
    std::string m_strVendor;
    BootNotificationOption m_option;
    int m_iBootPhase = 0;
    std::atomic<int> m_iBootStatus{0};
    unsigned long long m_iTimerId = 0;
    std::atomic<bool> m_bTimerAfterReset{false};  // a reset stopped the timer; the next use starts it
    int m_iInterval = 0;  // of the last boot answer; heartbeats follow OCPPCommCtrlr.HeartbeatInterval
    int64_t m_iLastExchangeSec = 0;  // run-time seconds
    pthread_mutex_t m_mutex;
    pthread_mutex_t m_backOffLock;
    int m_iBackOffValue = 5;
    int m_iRetryCount = -1;
    int64_t m_iLastHeartbeatSec = 0;  // run-time seconds of the last attempt, answered or not
};
