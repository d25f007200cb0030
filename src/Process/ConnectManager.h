#pragma once
#include <pthread.h>

#include <string>

// Picks the CSMS connection profile and keeps the link up.
class CConnectManager {
public:
    static CConnectManager* GetInstance();
    static void Release();

    // Profiles are kept in this file (csmscfg.json in the cache folder).
    int SetStoreFile(const std::string& path);
    // Starts connecting by profile priority; 1 when started.
    int ActiveConnect();
    // 1 when the factory connection profile was put back since the last connection.
    int IsResetFactoryConfig();

private:
    CConnectManager();
    ~CConnectManager();

    static CConnectManager* s_instance;
    pthread_mutex_t m_mutex;
    std::string m_storeFile;
};
