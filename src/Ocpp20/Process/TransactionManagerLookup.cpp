// Lookups and what the host or the CSMS adds to an open transaction.
#include <cstring>
#include <iterator>

#include "Ocpp20/Process/AuthorizeItem.h"
#include "Ocpp20/Process/TransactionManager.h"
#include "Util/CriticalSectionManager.h"
#include "Util/Tools.h"

namespace {

// Error codes and costs outlive their transaction (an Ended answer still
// carries the cost); past this many, those of ended transactions go.
const size_t kMaxSideEntries = 64;

template <class Map>
void Prune(Map& side, const std::map<std::string, std::unique_ptr<TransactionItem>>& open) {
    if (side.size() <= kMaxSideEntries) return;
    for (auto it = side.begin(); it != side.end();) it = open.count(it->first) ? std::next(it) : side.erase(it);
}

}  // namespace

std::string CTransactionManager::GetTransactionID() {
    OCPP_SECTION(&m_mutex);
    std::string id;
    do {
        id = CTools::GetUuid();
    } while (m_items.count(id) != 0);
    return id;
}

bool CTransactionManager::GetTransactionItem(const std::string& txId, TransactionItem* out) {
    OCPP_SECTION(&m_mutex);
    auto it = m_items.find(txId);
    if (it == m_items.end()) return false;
    if (out != nullptr) *out = *it->second;
    return true;
}

bool CTransactionManager::IsTransactionExist(const std::string& txId) { return GetTransactionItem(txId, nullptr); }

bool CTransactionManager::IsTransactionExist(int evseId, const std::string& txId) {
    TransactionItem item;
    return GetTransactionItem(txId, &item) && item.evseId == evseId;
}

bool CTransactionManager::IsTransactionStart(const std::string& txId) {
    TransactionItem item;
    return GetTransactionItem(txId, &item) && item.startedTime > 0;
}

int CTransactionManager::GetTransactionCount() {
    OCPP_SECTION(&m_mutex);
    return static_cast<int>(m_items.size());
}

bool CTransactionManager::TransactionIDFromEvseID(int evseId, std::string* out) {
    OCPP_SECTION(&m_mutex);
    for (const auto& entry : m_items) {
        if (entry.second->evseId != evseId) continue;
        if (out != nullptr) *out = entry.first;
        return true;
    }
    return false;
}

std::vector<TransactionDetail> CTransactionManager::GetTransactionItemsDetail(const std::string& txId) {
    std::vector<TransactionDetail> details;
    OCPP_SECTION(&m_mutex);
    for (const auto& entry : m_items) {
        if (!txId.empty() && entry.first != txId) continue;
        const TransactionItem& item = *entry.second;
        TransactionDetail d;
        std::memset(&d, 0, sizeof d);
        CTools::CopyField(d.transactionId, entry.first);
        d.evseId = item.evseId;
        d.connectorId = item.connectorId;
        d.seqNo = item.seqNo;
        CTools::CopyField(d.idToken, item.idToken);
        d.idTokenType = item.tokenType;
        d.reservationId = item.reservationId;
        d.remoteStartId = item.remoteStartId;
        d.startedTime = static_cast<uint32_t>(item.startedTime);
        d.lastEventTime = static_cast<uint32_t>(item.lastEventTime);
        d.authorizedTime = static_cast<uint32_t>(item.authorizedTime);
        d.cablePluggedTime = static_cast<uint32_t>(item.cablePluggedTime);
        d.evDetectedTime = static_cast<uint32_t>(item.evDetectedTime);
        auto code = m_errorCodes.find(entry.first);
        d.errorCode = code != m_errorCodes.end() ? code->second : TRANSACTIONERRORCODE_NONE;
        auto cost = m_totalCosts.find(entry.first);
        d.totalCost = cost != m_totalCosts.end() ? cost->second : 0.0f;
        details.push_back(d);
    }
    return details;
}

bool CTransactionManager::IsRemoteStart(const std::string& txId) {
    TransactionItem item;
    return GetTransactionItem(txId, &item) && item.remoteStartId != 0;
}

bool CTransactionManager::IsReservedStart(const std::string& txId) { return GetReservedID(txId) != 0; }

int CTransactionManager::GetReservedID(const std::string& txId) {
    TransactionItem item;
    return GetTransactionItem(txId, &item) ? item.reservationId : 0;
}

int CTransactionManager::AddTransactionRemoteID(const std::string& txId, int remoteStartId) {
    {
        OCPP_SECTION(&m_mutex);
        auto it = m_items.find(txId);
        if (it == m_items.end()) return 0;
        it->second->remoteStartId = remoteStartId;
    }
    TransactionsToFile();
    return 1;
}

int CTransactionManager::SetTransactionErrorCode(const std::string& txId, int code) {
    OCPP_SECTION(&m_mutex);
    m_errorCodes[txId] = code;
    Prune(m_errorCodes, m_items);
    return 1;
}

int CTransactionManager::GetTransactionErrorCode(const std::string& txId) {
    OCPP_SECTION(&m_mutex);
    auto it = m_errorCodes.find(txId);
    return it != m_errorCodes.end() ? it->second : TRANSACTIONERRORCODE_NONE;
}

float CTransactionManager::GetTotalCostByTransactionID(const std::string& txId) {
    OCPP_SECTION(&m_mutex);
    auto it = m_totalCosts.find(txId);
    return it != m_totalCosts.end() ? it->second : 0.0f;
}

int CTransactionManager::UpdateTotalCostByTransactionID(float cost, const std::string& txId) {
    OCPP_SECTION(&m_mutex);
    m_totalCosts[txId] = cost;
    Prune(m_totalCosts, m_items);
    return 1;
}

int CTransactionManager::UpdateTransactionParam(const std::string& txId, int32_t param) {
    OCPP_SECTION(&m_mutex);
    auto it = m_items.find(txId);
    if (it == m_items.end()) return 0;
    it->second->eventParam = param;
    return 1;
}

int CTransactionManager::UpdateTransactionInfo(const std::string& txId, const TransactionInfoItem* items, int count) {
    if (count < 0 || (count > 0 && items == nullptr)) return 1;
    {
        OCPP_SECTION(&m_mutex);
        auto it = m_items.find(txId);
        if (it == m_items.end()) return AUTHORIZESTATUS_INVALID;
        int32_t param = it->second->eventParam;
        for (int i = 0; i < count; ++i) {
            const int32_t value = items[i].value;
            if (items[i].type == TRANSACTIONINFO_NUMBEROFPHASESUSED && value >= 0 && value <= 0xF) {
                param = (param & ~Ocpp20::TRANSACTIONEVENTPARAM_PHASES_MASK) |
                        (value << Ocpp20::TRANSACTIONEVENTPARAM_PHASES_SHIFT);
            } else if (items[i].type == TRANSACTIONINFO_CABLEMAXCURRENT && value >= 0 && value <= 0xFFFF) {
                param = (param & ~Ocpp20::TRANSACTIONEVENTPARAM_CABLEMAX_MASK) |
                        (value << Ocpp20::TRANSACTIONEVENTPARAM_CABLEMAX_SHIFT);
            } else {
                LOG_ERROR("UpdateTransactionInfo type:%d value:%d refused", items[i].type, value);
                return 1;
            }
        }
        it->second->eventParam = param;
    }
    TransactionsToFile();
    return 0;
}

