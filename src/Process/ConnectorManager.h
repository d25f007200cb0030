#pragma once
#include <pthread.h>

#include <OcppProtocol.h>

#include <cstdint>
#include <map>
#include <vector>

#include "Util/Singleton.h"

// One connector's last known state.
struct ConnectorInfo {
    uint8_t evseId = 0;
    uint8_t connectorId = 0;
    int32_t errorCode = CONNECTORERRORCODE_NOERROR;  // CONNECTORERRORCODE
    int32_t status = CONNECTORSTATUS_AVAILABLE;      // CONNECTORSTATUS
    int64_t timestamp = 0;                           // wall-clock seconds of the report
};

// Connector statuses: what the host reported and what the CSMS has been told.
class CConnectorManager : public CSingleton<CConnectorManager> {
public:
    // The host's report; sent at once only when it is a real change and the station is online.
    void RecordConnectorStatus(uint8_t evseId, uint8_t connectorId, int errorCode, int status);
    void CacheConnectorStatus(uint8_t evseId, uint8_t connectorId, int errorCode, int status);
    // 1 when the CSMS acknowledged it.
    int SendStatusNotification(uint8_t evseId, uint8_t connectorId, int status, int64_t timestamp);

    // 0 when the connector was never reported.
    int ReportConnectorStatus(uint8_t evseId, uint8_t connectorId);
    // 0 when the EVSE was never reported.
    int ReportEvseAllConnectorStatus(uint8_t evseId);
    // After a long outage (or a fresh activation) the CSMS gets every connector's status.
    void ReportAllConnectorStatus();
    // After a short outage only the changes held while offline are sent.
    void ReportAllCacheConnectorStatus();

    // A TriggerMessage for StatusNotification: answers it, then reports what it names
    // (a connector, an EVSE, or everything when evseId is 0).
    void OnTriggerStatusNotification(const char* messageId, int evseId, int connectorId);

    int GetConnectorInfo(uint8_t evseId, uint8_t connectorId, ConnectorInfo& out);
    int IsEvseExist(uint8_t evseId);
    int IsConnectorExist(uint8_t evseId, uint8_t connectorId);
    std::vector<uint8_t> GetEvseIDList();
    size_t CachedChangeCount();

private:
    typedef std::map<uint8_t, std::map<uint8_t, ConnectorInfo>> ConnectorMap;

    friend class CSingleton<CConnectorManager>;
    CConnectorManager();
    ~CConnectorManager();
    CConnectorManager(const CConnectorManager&) = delete;
    CConnectorManager& operator=(const CConnectorManager&) = delete;
    void ResetInPlace();

    // Held while a report is sent, so a change arriving meanwhile waits for it.
    pthread_mutex_t m_mutex;
    ConnectorMap m_status;
    ConnectorMap m_cache;
};
