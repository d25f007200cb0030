#pragma once
#include <pthread.h>

#include <OcppProtocol.h>

#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "Process/OcppWebSocketClientCallBack.h"
#include "Util/JsonStore.h"
#include "Util/Singleton.h"

struct ConnectLink;

// Picks the CSMS connection profile and keeps the link up.
class CConnectManager : public CJsonStore, public CSingleton<CConnectManager> {
public:
    // Profiles are kept in the store file (csmscfg.json in the cache folder).
    int SyncFromFile() override;

    void AddCustomItem(OCPPPROTOCOL protocol, const char* url, int connType, int messageTimeout);
    int AddConnItem(const ConnectionItem& item);
    // New NetworkConfigurationPriority value: comma-separated slots, highest first.
    int ResetAllPriority(const std::string& list);
    void SetConnectParam(int testAttempts, int minimum, int range, int repeat, int earlyStart);
    void SetSsl(const char* cert, const char* key, const char* ca);
    void SetNamePwd(const char* name, const char* password);
    void SetOfflineMode(int enable);

    // Starts connecting by profile priority; 1 when started.
    int ActiveConnect();
    int ReConnect();
    void DisConnect();
    int Connect(const ConnectionItem& item);
    int TestConnect(const ConnectionItem& item);
    int TestConnectItem();
    // One round of the connect thread; returns how long to wait before the next (ms).
    int ConnectStep();

    // Makes `item` the current profile; a new url forgets the CSMS's acceptance.
    void BackUpCurConnectionItem(const ConnectionItem& item);
    void ItemConnect();
    void ItemDisConnect();
    void RemoveLowerConnInfo();
    void SyncVariables();
    int GetReconnectTimeSec();

    std::string CombineUrl(const std::string& identity, const std::string& protocol);
    void SetWebSocketPingInterval(int seconds);
    int SendMessage(const char* message, int length);
    int SendMessage(const char* messageId, const char* message, int length, char* answer, int* answerLength);

    int IsConnected();
    int64_t GetLastOperateTimeSec();
    OCPPPROTOCOL GetCurOcppProtocol();
    int GetCurConnID();
    int IsTestConnectIng();
    int IsResetFactoryConfig();
    int IsAcceptedByCsms();
    void SetAcceptedByCsms(int accepted);
    void SetCheckNetworkEnable(int enable);
    int IsSupportSecurity2();
    int IsSupportSecurity3();
    void CertificateFallback();
    int RemoveFallBackCertificate();
    // One pass of the network-check thread: pings when enabled, a target is set and 60 s have passed.
    int CheckNetworkOnce();

    // Link events, reached through COcppWebSocketClientCallBack.
    void OnLinkUp(uint64_t generation);
    void OnLinkDown(uint64_t generation);

    // Inspection, for tests and diagnostics.
    std::vector<ConnectionItem> GetConnItems();
    ConnectionItem GetCurConnItem();
    std::string GetConnectPriority();
    int64_t GetNextConnTimeSec();
    int GetNextConnTimeSpace();
    int GetCurRetryCount();
    int64_t GetOfflineTimeSec();

    // Settings that are the integrator's, not the CSMS's.
    // Address the diagnostic ping goes to; empty (the default) turns the ping off.
    static void SetNetworkCheckTarget(const std::string& target);
    // Folder holding ca.crt, ca_fallback.crt, client.key and client.pem.
    // Bounds a profile's message time-out so that deadlines built from it
    // cannot overflow a 32-bit time_t or int.
    static const int kMaxMessageTimeoutSec = 3600;
    static int ClampMessageTimeout(int seconds) {
        return seconds < 1 ? 1 : (seconds > kMaxMessageTimeoutSec ? kMaxMessageTimeoutSec : seconds);
    }
    static void SetCertDir(const std::string& dir);
    static std::string GetCertDir();
    // Replaces the profile probe, for tests: returns 1 when the profile would connect.
    typedef int (*TestConnectFn)(const ConnectionItem& item);
    static void SetTestConnectHook(TestConnectFn hook);

private:
    friend class CSingleton<CConnectManager>;
    CConnectManager();
    ~CConnectManager() override;
    static JsonStoreTexts StoreTexts();
    static JsonStoreShape StoreShape();
    std::string BuildImage() override;
    CConnectManager(const CConnectManager&) = delete;
    CConnectManager& operator=(const CConnectManager&) = delete;

    static void* ConnectProc(void* self);
    static void* CheckNetworkProc(void* self);
    void Shutdown();
    void ResetInPlace();
    void Resume();
    void StartCheckThread();
    void StartClient(const ConnectionItem& item, bool test);
    void Wake();
    bool WaitWake(int milliseconds);  // false when stopping
    std::vector<int> SplitPriority(const std::string& list);

    // A store of a handful of profiles.
    static const size_t kMaxProfiles = 64;

    std::atomic<int> m_bStop{0};
    pthread_t m_connectThread{};
    bool m_bConnectThreadStarted = false;
    pthread_t m_checkThread{};
    bool m_bCheckThreadStarted = false;
    std::atomic<bool> m_bCheckAfterReset{false};  // a reset stopped the check thread; the next use starts it
    std::atomic<int> m_bTestConnectRequest{0};
    int64_t m_iNextConnTimeSec = 0;  // run-time seconds; 0 = none
    int m_iNextConnTimeSpace = 0;
    int m_iCurRetryCount = 0;

    pthread_mutex_t m_connLock;  // connection state, current profile, client
    pthread_mutex_t m_listLock;  // profile list and stored strings
    std::vector<ConnectionItem> m_ConnItemVec;
    ConnectionItem m_curConnItem;
    std::string m_strConnectPriority = "1";
    int m_iTestAttempts = 1;
    int m_iBackOffMinimum = 3;
    int m_iBackOffRandomRange = 0;
    int m_iBackOffRepeatTimes = 0;
    uint8_t m_iEarlyStart = 0;
    int64_t m_iOfflineTimeSec = 0;
    std::atomic<int> m_bOfflineMode{0};
    std::string m_strFactoryConfigBase64;
    std::atomic<int> m_bResetFactoryConfig{0};
    int m_iTestResult = -1;  // -1 while the probe is undecided
    std::atomic<int> m_bTesting{1};
    std::condition_variable_any m_testCv;  // m_connLock
    std::atomic<int> m_bCheckNetwork{0};
    int64_t m_iLastPingSec = 0;
    std::atomic<int> m_bConnected{0};
    std::atomic<int> m_bAcceptedByCsms{0};
    std::string m_strCert;
    std::string m_strKey;
    std::string m_strCa;
    std::string m_strName;
    std::string m_strPwd;
    std::shared_ptr<ConnectLink> m_pLink;  // the current client
    uint64_t m_iGeneration = 0;

    bool m_bWake = false;                  // m_connLock
    std::condition_variable_any m_wakeCv;  // m_connLock
    pthread_mutex_t m_checkLock;
    std::condition_variable_any m_checkCv;  // m_checkLock
};
