#include "Process/ConnectorManager.h"

#include <cstdio>
#include <thread>

#include "Ocpp20/OcppProtocol20.h"
#include "OcppProtocol/OcppProtocol.h"
#include "OcppProtocol/OutboundSender.h"
#include "SmartCharging/ChargingProfile21/ProfileManager.h"
#include "Util/CriticalSectionManager.h"
#include "Util/Tools.h"

namespace {
const int kTriggerAccepted = 0;
const int kTriggerRejected = 1;

int64_t NowSec() { return CTools::CurTimeSec(); }

// Gives the host time to report the new EVSE's other connectors first.
const int64_t kRecalculateDelayMs = 5000;

// True when `evseId` became the highest EVSE seen.
bool RaiseEvseNum(int evseId) {
    int32_t seen = g_iEvseNum.load();
    while (evseId > seen) {
        if (g_iEvseNum.compare_exchange_weak(seen, evseId)) return true;
    }
    return false;
}

void RecalculateLater() {
    try {
        std::thread([] {
            CTools::SleepMs(kRecalculateDelayMs);
            CProfileManager21::GetInstance()->ReCalculate();
        }).detach();
    } catch (const std::exception& e) {
        LOG_ERROR("no recalculation for the new EVSE: %s", e.what());
    }
}
}  // namespace

CConnectorManager::CConnectorManager() { pthread_mutex_init(&m_mutex, nullptr); }

CConnectorManager::~CConnectorManager() { pthread_mutex_destroy(&m_mutex); }

// Never freed (threads may hold the pointer); a release forgets every connector.
void CConnectorManager::ResetInPlace() {
    OCPP_SECTION(&m_mutex);
    m_status.clear();
    m_cache.clear();
}

void CConnectorManager::RecordConnectorStatus(uint8_t evseId, uint8_t connectorId, int errorCode, int status) {
    LOG_INFO("iEvseID:%d, iConnectorID:%d, eConnectorErrorCode:%d, eStatus:%d", evseId, connectorId, errorCode,
             status);
    ConnectorInfo info;
    info.evseId = evseId;
    info.connectorId = connectorId;
    info.errorCode = errorCode;
    info.status = status;
    info.timestamp = NowSec();
    {
        OCPP_SECTION(&m_mutex);
        std::map<uint8_t, ConnectorInfo>& evse = m_status[evseId];
        auto it = evse.find(connectorId);
        if (it != evse.end() && it->second.status == status && it->second.errorCode == errorCode) {
            it->second.timestamp = info.timestamp;
            return;
        }
        evse[connectorId] = info;
    }
    if (OcppProtocol_GetStatus() != SDKSTATUS_OK) {
        LOG_INFO("cache connector status");
        CacheConnectorStatus(evseId, connectorId, errorCode, status);
        return;
    }
    printf("send status\n");
    SendStatusNotification(evseId, connectorId, status, info.timestamp);
}

void CConnectorManager::CacheConnectorStatus(uint8_t evseId, uint8_t connectorId, int errorCode, int status) {
    ConnectorInfo info;
    info.evseId = evseId;
    info.connectorId = connectorId;
    info.errorCode = errorCode;
    info.status = status;
    info.timestamp = NowSec();
    OCPP_SECTION(&m_mutex);
    m_cache[evseId][connectorId] = info;
}

int CConnectorManager::SendStatusNotification(uint8_t evseId, uint8_t connectorId, int status, int64_t timestamp) {
    const std::string frame = COcppProtocol20::StatusNotificationReq(evseId, connectorId, status, timestamp);
    if (frame.empty()) {
        LOG_ERROR("StatusNotification not sent: status %d outside its list", status);
        return 0;
    }
    const OutboundResult out = COutboundSender::Send(OUTBOUNDKIND_STATUSNOTIFICATION, frame);
    if (out.answer == nullptr) return out.result;
    return COcppProtocol20::StatusNotificationResp(out.answer);
}

int CConnectorManager::ReportConnectorStatus(uint8_t evseId, uint8_t connectorId) {
    OCPP_SECTION(&m_mutex);
    auto evse = m_status.find(evseId);
    if (evse == m_status.end()) return 0;
    auto it = evse->second.find(connectorId);
    if (it == evse->second.end()) return 0;
    SendStatusNotification(evseId, connectorId, it->second.status, NowSec());
    return 1;
}

int CConnectorManager::ReportEvseAllConnectorStatus(uint8_t evseId) {
    OCPP_SECTION(&m_mutex);
    auto evse = m_status.find(evseId);
    if (evse == m_status.end()) return 0;
    for (const auto& c : evse->second) SendStatusNotification(evseId, c.first, c.second.status, NowSec());
    return 1;
}

void CConnectorManager::ReportAllConnectorStatus() {
    OCPP_SECTION(&m_mutex);
    if (m_status.empty()) return;
    for (const auto& evse : m_status) {
        for (const auto& c : evse.second) SendStatusNotification(evse.first, c.first, c.second.status, NowSec());
    }
    m_cache.clear();
}

void CConnectorManager::ReportAllCacheConnectorStatus() {
    OCPP_SECTION(&m_mutex);
    for (const auto& evse : m_cache) {
        for (const auto& c : evse.second) SendStatusNotification(evse.first, c.first, c.second.status, c.second.timestamp);
    }
    m_cache.clear();
}

void CConnectorManager::OnTriggerStatusNotification(const char* messageId, int evseId, int connectorId) {
    const bool named = evseId > 0 && evseId <= 255;
    const bool namedConnector = named && connectorId > 0 && connectorId <= 255;
    bool known = true;
    if (namedConnector)
        known = IsConnectorExist(static_cast<uint8_t>(evseId), static_cast<uint8_t>(connectorId)) == 1;
    else if (named)
        known = IsEvseExist(static_cast<uint8_t>(evseId)) == 1;
    else if (evseId > 255)
        known = false;
    // The CSMS must see the answer before the statuses it asked for.
    Ocpp20Protocol_TriggerMessage(messageId, known ? kTriggerAccepted : kTriggerRejected);
    if (!known) return;
    if (namedConnector)
        ReportConnectorStatus(static_cast<uint8_t>(evseId), static_cast<uint8_t>(connectorId));
    else if (named)
        ReportEvseAllConnectorStatus(static_cast<uint8_t>(evseId));
    else
        ReportAllConnectorStatus();
}

int CConnectorManager::GetConnectorInfo(uint8_t evseId, uint8_t connectorId, ConnectorInfo& out) {
    OCPP_SECTION(&m_mutex);
    auto evse = m_status.find(evseId);
    if (evse == m_status.end()) return 0;
    auto it = evse->second.find(connectorId);
    if (it == evse->second.end()) return 0;
    out = it->second;
    return 1;
}

int CConnectorManager::IsEvseExist(uint8_t evseId) {
    OCPP_SECTION(&m_mutex);
    return m_status.count(evseId) != 0 ? 1 : 0;
}

int CConnectorManager::IsConnectorExist(uint8_t evseId, uint8_t connectorId) {
    OCPP_SECTION(&m_mutex);
    auto evse = m_status.find(evseId);
    return evse != m_status.end() && evse->second.count(connectorId) != 0 ? 1 : 0;
}

std::vector<uint8_t> CConnectorManager::GetEvseIDList() {
    std::vector<uint8_t> ids;
    OCPP_SECTION(&m_mutex);
    for (const auto& evse : m_status) ids.push_back(evse.first);
    return ids;
}

size_t CConnectorManager::CachedChangeCount() {
    size_t n = 0;
    OCPP_SECTION(&m_mutex);
    for (const auto& evse : m_cache) n += evse.second.size();
    return n;
}

int OcppProtocol_StatusNotification(int evseId, int connectorId, CONNECTORERRORCODE errorCode,
                                    CONNECTORSTATUS status) {
    LOG_INFO("OcppProtocol_StatusNotification:%d\n", static_cast<int>(status));
    const OCPPPROTOCOL protocol = g_eOcppProtocol.load();
    if (protocol == OCPPPROTOCOL_16) {
        LOG_ERROR("StatusNotification: no 1.6 engine in this build");
        return 0;
    }
    if (protocol != OCPPPROTOCOL_201 && protocol != OCPPPROTOCOL_21) return 1;
    // Ids are one byte each on the record, as the host was told.
    CConnectorManager::GetInstance()->RecordConnectorStatus(static_cast<uint8_t>(evseId),
                                                           static_cast<uint8_t>(connectorId), errorCode, status);
    // The 2.1 limits cover every EVSE: a new one needs them calculated again.
    if (RaiseEvseNum(evseId) && protocol == OCPPPROTOCOL_21) RecalculateLater();
    return 1;
}
