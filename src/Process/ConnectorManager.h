#pragma once

// Connector statuses: what the host reported and what the CSMS has been told.
class CConnectorManager {
public:
    static CConnectorManager* GetInstance();
    static void Release();

    // After a long outage (or a fresh activation) the CSMS gets every connector's status.
    void ReportAllConnectorStatus();
    // After a short outage only the changes held while offline are sent.
    void ReportAllCacheConnectorStatus();

private:
    CConnectorManager() = default;
    ~CConnectorManager() = default;

    static CConnectorManager* s_instance;
};
