#include "Ocpp20/Process/TransactionManager.h"

#include <Ocpp20Protocol.h>

#include <algorithm>
#include <atomic>
#include <cstdio>
#include <cstring>
#include <iterator>

#include "Ocpp20/Process/AuthorizeCache.h"
#include "Ocpp20/Process/AuthorizeItem.h"
#include "Ocpp20/Process/TransactionFile.h"
#include "Ocpp20/Process/VariableCache.h"
#include "OcppProtocol/OcppProtocol.h"
#include "OcppProtocol/OutboundSender.h"
#include "Process/OfflineCache.h"
#include "Process/ReservationManager.h"
#include "SmartCharging/ChargingProfile20/ProfileManager.h"
#include "Util/CriticalSectionManager.h"
#include "Util/FileUtil.h"
#include "Util/TimerManager.h"
#include "Util/Tools.h"

namespace {

enum { SUBTYPE_STARTED = 1, SUBTYPE_UPDATED = 2, SUBTYPE_ENDED = 3 };
const int kNoToken = 255;
const int kDefaultConnectionTimeOut = 60;

std::atomic<CTransactionManager::EventSink> g_eventSink{nullptr};

int32_t NowSec() { return static_cast<int32_t>(CTools::CurTimeSec()); }

bool Contains(const std::vector<int>& points, int point) {
    return std::find(points.begin(), points.end(), point) != points.end();
}

bool Variant1() { return g_eSdkVersion.load() == 1; }

void SetTriggerTime(TransactionItem& item, int reason, int32_t now) {
    if (reason == TRANSACTIONREASON_AUTHORIZED) item.authorizedTime = now;
    if (reason == TRANSACTIONREASON_CABLEPLUGGEDIN) item.cablePluggedTime = now;
    if (reason == TRANSACTIONREASON_EVDETECTED) item.evDetectedTime = now;
}

TransactionEventArgs Args(const std::string& txId, const TransactionItem& item, int reason, int chargingState,
                          const CTransactionManager::Meter& meter) {
    TransactionEventArgs args;
    args.evseId = item.evseId;
    args.connectorId = item.connectorId;
    args.seqNo = item.seqNo;
    const bool hasToken = item.tokenType != kNoToken && item.idToken[0] != '\0';
    args.idToken = hasToken ? item.idToken : "";
    args.tokenType = hasToken ? item.tokenType : kNoToken;
    args.reason = reason;
    args.chargingState = chargingState;
    args.reservationId = item.reservationId;
    args.remoteStartId = item.remoteStartId;
    args.transactionId = txId.c_str();
    args.meter = meter.buffer;
    args.meterCount = meter.count;
    args.eventParam = item.eventParam;
    return args;
}

std::string TransactionOfEvse(int evseId) {
    std::string id;
    CTransactionManager::GetInstance()->TransactionIDFromEvseID(evseId, &id);
    return id;
}
int TransactionCount() { return CTransactionManager::GetInstance()->GetTransactionCount(); }

}  // namespace

CTransactionManager::CTransactionManager() {
    pthread_mutex_init(&m_mutex, nullptr);
    pthread_mutex_init(&m_fileMutex, nullptr);
}

CTransactionManager::~CTransactionManager() {
    pthread_mutex_destroy(&m_fileMutex);
    pthread_mutex_destroy(&m_mutex);
}

void CTransactionManager::SetEventSink(EventSink sink) { g_eventSink.store(sink); }

// Never freed: the timer thread may hold the pointer. The timers stay
// registered (they find nothing to do) because the timer manager may already
// be gone at shutdown and asking for it would start it again.
void CTransactionManager::ResetInPlace() {
    OCPP_SECTION(&m_fileMutex);
    OCPP_SECTION(&m_mutex);
    m_items.clear();
    m_errorCodes.clear();
    m_totalCosts.clear();
    m_starting.clear();
    m_path.clear();
}

void CTransactionManager::Attach() {
    CTimerManager* timers = CTimerManager::GetInstance();
    if (m_occupyTimer == 0 || !timers->IsRegistered(m_occupyTimer, &OccupyTimerProc, nullptr))
        m_occupyTimer = timers->RegisterTimer(1, &OccupyTimerProc, nullptr);
    if (m_clearTimer == 0 || !timers->IsRegistered(m_clearTimer, &TransactionTimerProc, nullptr))
        m_clearTimer = timers->RegisterTimer(1, &TransactionTimerProc, nullptr);
    CProfileManager20::GetInstance()->SetTransactionLookup(&TransactionOfEvse, &TransactionCount);
}

int CTransactionManager::SendEvent(int subtype, const TransactionEventArgs& args, int32_t* eventParam) {
    const EventSink sink = g_eventSink.load();
    if (sink != nullptr) return sink(subtype, args, eventParam);
    if (subtype == SUBTYPE_STARTED) return Ocpp20ProtocolPrivate_TransactionStart(args, eventParam);
    if (subtype == SUBTYPE_UPDATED) return Ocpp20ProtocolPrivate_TransactionUpate(args, eventParam);
    return Ocpp20ProtocolPrivate_TransactionEnd(args, eventParam);
}

// ---- authorization ----

int CTransactionManager::SwipeCard(const char* idToken, int tokenType, const char* requiredGroup, bool* isMaster) {
    *isMaster = false;
    const int status = Ocpp20ProtocolPrivate_Authorize(idToken, tokenType);
    if (status != AUTHORIZESTATUS_ACCEPTED) return status;
    const std::string group = CAuthorizeCache::GetInstance()->GetGroupToken(idToken);
    const std::string master = CVariableCache::GetInstance()->AuthCtrlrMasterPassGroupId();
    // A master pass may stop any transaction but never start one.
    if (!master.empty() && group == master) {
        *isMaster = true;
        return AUTHORIZESTATUS_INVALID;
    }
    if (requiredGroup != nullptr && requiredGroup[0] != '\0' && group != requiredGroup) return AUTHORIZESTATUS_INVALID;
    return AUTHORIZESTATUS_ACCEPTED;
}

int CTransactionManager::AuthorizeStart(int remoteStartId, int reservationId, const char* idToken, int tokenType,
                                        const char* groupIdToken, bool* isMaster) {
    if (remoteStartId != 0) {
        if (CVariableCache::GetInstance()->AuthCtrlrAuthorizeRemoteStart() && idToken[0] != '\0')
            return SwipeCard(idToken, tokenType, groupIdToken, isMaster);
        return AUTHORIZESTATUS_ACCEPTED;
    }
    ReservationItem reservation;
    if (reservationId == 0 ||
        CReservationManager::GetInstance()->GetReservationItem(static_cast<uint32_t>(reservationId), &reservation) != 1)
        return SwipeCard(idToken, tokenType, groupIdToken, isMaster);
    LOG_INFO("found Reservation:%d", reservationId);
    if (std::strcmp(idToken, reservation.token) == 0) return SwipeCard(idToken, tokenType, nullptr, isMaster);
    if (reservation.groupToken[0] != '\0') return SwipeCard(idToken, tokenType, reservation.groupToken, isMaster);
    return AUTHORIZESTATUS_INVALID;
}

// ---- start ----

// One transaction per EVSE: a later trigger (the token after the cable, or the
// cable after the token) joins the transaction already open there.
int CTransactionManager::OpenOrJoin(int evseId, int connectorId, const char* idToken, int tokenType, int reason,
                                    int remoteStartId, int reservationId, std::string* txId, bool* started) {
    const int32_t now = NowSec();
    OCPP_SECTION(&m_mutex);
    for (auto& entry : m_items) {
        TransactionItem& item = *entry.second;
        if (item.evseId != evseId) continue;
        const bool hasToken = item.tokenType != kNoToken && item.idToken[0] != '\0';
        if (reason == TRANSACTIONREASON_AUTHORIZED && hasToken && std::strcmp(item.idToken, idToken) != 0) {
            LOG_ERROR("EVSE %d already has transaction %s of another token", evseId, entry.first.c_str());
            return AUTHORIZESTATUS_INVALID;
        }
        if (reason == TRANSACTIONREASON_AUTHORIZED && !hasToken) {
            CTools::CopyField(item.idToken, idToken);
            item.tokenType = tokenType;
        }
        if (remoteStartId != 0) item.remoteStartId = remoteStartId;
        if (reservationId != 0) item.reservationId = reservationId;
        if (connectorId != 0) item.connectorId = connectorId;
        SetTriggerTime(item, reason, now);
        *txId = entry.first;
        *started = item.startedTime > 0;
        return AUTHORIZESTATUS_ACCEPTED;
    }
    std::unique_ptr<TransactionItem> item(new TransactionItem());
    std::memset(item.get(), 0, sizeof(TransactionItem));
    item->evseId = evseId;
    item->connectorId = connectorId;
    CTools::CopyField(item->idToken, idToken);
    item->tokenType = tokenType;
    item->reservationId = reservationId;
    item->remoteStartId = remoteStartId;
    item->lastEventTime = now;
    item->openFlag = 1;
    SetTriggerTime(*item, reason, now);
    do {
        *txId = CTools::GetUuid();
    } while (m_items.count(*txId) != 0);
    m_items.emplace(*txId, std::move(item));
    *started = false;
    return AUTHORIZESTATUS_ACCEPTED;
}

int CTransactionManager::TransactionStart(int evseId, int connectorId, const char* idToken, int tokenType,
                                          int reason, int chargingState, int remoteStartId, int reservationId,
                                          const char* groupIdToken, const Meter& meter, std::string* outTransactionId,
                                          int* errorCode) {
    if (errorCode != nullptr) *errorCode = TRANSACTIONERRORCODE_NONE;
    const char* token = idToken != nullptr ? idToken : "";
    bool isMaster = false;
    int status = AUTHORIZESTATUS_ACCEPTED;
    switch (reason) {
        case TRANSACTIONREASON_EVDETECTED:
            break;
        case TRANSACTIONREASON_AUTHORIZED:
            status = AuthorizeStart(remoteStartId, reservationId, token, tokenType, groupIdToken, &isMaster);
            break;
        case TRANSACTIONREASON_CABLEPLUGGEDIN:
            // Plugging in carries no token.
            token = "";
            tokenType = kNoToken;
            break;
        default:
            LOG_ERROR("Unknow transaction reason：%d", reason);
            return AUTHORIZESTATUS_INVALID;
    }
    if (status != AUTHORIZESTATUS_ACCEPTED) {
        if (isMaster && errorCode != nullptr) *errorCode = TRANSACTIONERRORCODE_MASTERPASS;
        return status;
    }
    std::string txId;
    bool started = false;
    status = OpenOrJoin(evseId, connectorId, token, tokenType, reason, remoteStartId, reservationId, &txId, &started);
    if (status != AUTHORIZESTATUS_ACCEPTED) return status;
    if (outTransactionId != nullptr) *outTransactionId = txId;
    if (started) {
        // Already under way: the CSMS hears of this trigger (and a token given now) in an Updated event.
        SendUpdate(txId, reason, chargingState, meter, 0);
        return AUTHORIZESTATUS_ACCEPTED;
    }
    if (StartIfDue(txId, reason, chargingState, meter) != 0 && errorCode != nullptr)
        *errorCode = TRANSACTIONERRORCODE_NOTACCEPTED;
    TransactionsToFile();
    return AUTHORIZESTATUS_ACCEPTED;
}

// A Started event that could not be sent or kept still counts as started, so
// the transaction is not started twice; the host is told.
int CTransactionManager::StartIfDue(const std::string& txId, int reason, int chargingState, const Meter& meter) {
    const int result = StartTransactionCheck(txId, reason, chargingState, meter);
    if (result == 0) return 0;
    {
        OCPP_SECTION(&m_mutex);
        auto it = m_items.find(txId);
        if (it == m_items.end()) return result;
        it->second->startedTime = NowSec();
        m_errorCodes[txId] = TRANSACTIONERRORCODE_NOTACCEPTED;
    }
    LOG_ERROR("Ocpp20::AUTHORIZESTATUS CTransactionManager::TransactionStart NotifyNotAccepted sid<%s>", txId.c_str());
    NotifyNotAcceptedTransaction(txId);
    return result;
}

int CTransactionManager::StartTransactionCheck(const std::string& txId, int reason, int chargingState,
                                               const Meter& meter) {
    std::lock_guard<std::recursive_mutex> order(m_eventOrder);
    TransactionItem item;
    {
        OCPP_SECTION(&m_mutex);
        auto it = m_items.find(txId);
        if (it == m_items.end()) return AUTHORIZESTATUS_INVALID;
        if (it->second->startedTime > 0 || m_starting.count(txId) != 0) return 0;
        item = *it->second;
    }
    int trigger = reason;
    bool holds = false;
    for (int point : CVariableCache::GetInstance()->TxCtrlrTxStartPoint()) {
        const bool both = item.authorizedTime > 0 && item.cablePluggedTime > 0;
        switch (point) {
            case TRANSACTIONSTARTPOINT_NONE:
            case TRANSACTIONSTARTPOINT_PARKINGBAYOCCUPANCY:
                holds = true;
                break;
            case TRANSACTIONSTARTPOINT_EVCONNECTED:
                holds = reason == TRANSACTIONREASON_CABLEPLUGGEDIN;
                break;
            case TRANSACTIONSTARTPOINT_AUTHORIZED:
                holds = reason == TRANSACTIONREASON_AUTHORIZED;
                break;
            case TRANSACTIONSTARTPOINT_POWERPATHCLOSED:
                holds = both;
                break;
            case TRANSACTIONSTARTPOINT_ENERGYTRANSFER:
                holds = reason == TRANSACTIONREASON_CHARGINGSTATECHANGED;
                break;
            case TRANSACTIONSTARTPOINT_DATASIGNED:
                holds = both;
                if (holds) trigger = TRANSACTIONREASON_SIGNEDDATARECEIVED;
                break;
            default:
                break;
        }
        if (holds) break;
    }
    if (!holds) return 0;
    if (item.remoteStartId != 0) trigger = TRANSACTIONREASON_REMOTESTART;
    {
        OCPP_SECTION(&m_mutex);
        auto it = m_items.find(txId);
        if (it == m_items.end() || it->second->startedTime > 0 || !m_starting.insert(txId).second) return 0;
    }
    int32_t param = item.eventParam;
    const int result = SendEvent(SUBTYPE_STARTED, Args(txId, item, trigger, chargingState, meter), &param);
    {
        OCPP_SECTION(&m_mutex);
        m_starting.erase(txId);
        if (result != 0) return result;
        auto it = m_items.find(txId);
        if (it != m_items.end()) {
            it->second->startedTime = NowSec();
            it->second->eventParam = param;
        }
    }
    NotifyStartTransactionPrivate(txId);
    return 0;
}

bool CTransactionManager::IsNeedStartTransaction(const std::string& txId) { return IsTransactionStart(txId); }

void CTransactionManager::NotifyStartTransactionPrivate(const std::string& txId) {
    if (Variant1()) return;
    if (!IsTransactionExist(txId) || !IsNeedStartTransaction(txId)) return;
    if (OcppProtocol_GetStatus() == SDKSTATUS_OK) {
        LOG_INFO("20::NotifyStartTransactionPrivate: status is ok");
        // Behind the Started event, so the host hears of the start in message order.
        const std::string marker = CTools::StringFormat(
            "[2,\"000000000000\",\"NotifyStartTransaction\",{\"transactionInfo\":{\"transactionId\":\"%s\"}}]",
            txId.c_str());
        OutboundMessage message;
        message.kind = OUTBOUNDKIND_TRANSACTIONEVENT;
        message.frame = marker.c_str();
        message.len = static_cast<int>(marker.size());
        message.transactionId = txId.c_str();
        if (COutboundSender::QueueTransactionMessage(message)) return;
    } else {
        LOG_INFO("20::NotifyStartTransactionPrivate: status not is ok");
    }
    NotifyStartTransaction(txId);
}

// ---- update ----

int CTransactionManager::TransactionUpdate(const std::string& txId, int reason, int chargingState, const Meter& meter,
                                           int isRepeat) {
    bool found = false;
    bool started = false;
    {
        OCPP_SECTION(&m_mutex);
        auto it = m_items.find(txId);
        if (it != m_items.end()) {
            TransactionItem& item = *it->second;
            found = true;
            if (!isRepeat) item.lastEventTime = NowSec();
            started = item.startedTime > 0;
            if (!started) SetTriggerTime(item, reason, NowSec());
        }
    }
    if (!found) {
        LOG_ERROR("Transaction ID not find:%s", txId.c_str());
        NotifyStopTransaction(txId, 18);
        return AUTHORIZESTATUS_INVALID;
    }
    if (!started) {
        // Nothing was sent yet: this trigger may be the one that starts it.
        StartIfDue(txId, reason, chargingState, meter);
        TransactionsToFile();
        return 0;
    }
    if (reason == TRANSACTIONREASON_METERVALUEPERIODIC) {
        CVariableCache* variables = CVariableCache::GetInstance();
        const bool enable = variables->SampledDataCtrlrEnable();
        const bool available = variables->SampledDataCtrlrAvailable();
        const int interval = variables->SampledDataCtrlrTxUpdatedInterval();
        if (!enable || !available || interval <= 0) {
            LOG_INFO("Not need update transaction meter Enable:%d Available:%d TxUpdatedInterval:%d\n", enable ? 1 : 0,
                     available ? 1 : 0, interval);
            return 0;
        }
    }
    return SendUpdate(txId, reason, chargingState, meter, isRepeat);
}

int CTransactionManager::SendUpdate(const std::string& txId, int reason, int chargingState, const Meter& meter,
                                    int isRepeat) {
    printf("CTransactionManager::TransactionUpdate------------<%d>----<>-------\n", reason);
    std::lock_guard<std::recursive_mutex> order(m_eventOrder);
    TransactionItem item;
    {
        OCPP_SECTION(&m_mutex);
        auto it = m_items.find(txId);
        if (it == m_items.end()) return AUTHORIZESTATUS_INVALID;
        item = *it->second;
    }
    if (!isRepeat) {
        CatchUpWithJournal(txId, item);
        item.seqNo += 1;
        OCPP_SECTION(&m_mutex);
        auto it = m_items.find(txId);
        if (it != m_items.end()) it->second->seqNo = item.seqNo;
    }
    TransactionEventArgs args = Args(txId, item, reason, chargingState, meter);
    args.timestamp = item.lastEventTime;
    int32_t param = item.eventParam;
    const int result = SendEvent(SUBTYPE_UPDATED, args, &param);
    UpdateTransactionParam(txId, param);
    TransactionsToFile();
    return result;
}

// ---- end ----

int CTransactionManager::StopTransactionCheck(const std::string& txId, int chargingState, int reason, int) {
    if (Variant1() || !IsTransactionStart(txId)) return 1;
    const std::vector<int> stops = CVariableCache::GetInstance()->TxCtrlrTxStopPoint();
    if (stops.empty() || (stops.size() == 1 && stops[0] == TRANSACTIONSTARTPOINT_NONE)) return 1;
    const bool powerPath = Contains(stops, TRANSACTIONSTARTPOINT_POWERPATHCLOSED);
    const bool connected = Contains(stops, TRANSACTIONSTARTPOINT_EVCONNECTED);
    const bool authorized = Contains(stops, TRANSACTIONSTARTPOINT_AUTHORIZED);
    const bool energy = Contains(stops, TRANSACTIONSTARTPOINT_ENERGYTRANSFER);
    switch (reason) {
        case TRANSACTIONREASON_CHARGINGSTATECHANGED:
            if (chargingState == TRANSACTIONCHARGINGSTATE_IDLE) return powerPath || connected ? 1 : 0;
            if (chargingState == TRANSACTIONCHARGINGSTATE_SUSPENDEDEV ||
                chargingState == TRANSACTIONCHARGINGSTATE_SUSPENDEDEVSE) {
                if (energy) return 1;
                NotifyPauseTransaction(txId);
            }
            return 0;
        case TRANSACTIONREASON_DEAUTHORIZED:
        case TRANSACTIONREASON_REMOTESTOP:
            if (powerPath || authorized || energy) return 1;
            NotifyPauseTransaction(txId);
            return 0;
        case TRANSACTIONREASON_ENERGYLIMITREACHED:
            return energy ? 1 : 0;
        case TRANSACTIONREASON_EVCOMMUNICATIONLOST:
            if (powerPath || connected || energy || CVariableCache::GetInstance()->TxCtrlrStopTxOnEVSideDisconnect())
                return 1;
            LOG_INFO(
                "Not contain PowerPathClosed&EVConnected and StopTxOnEVSideDisconnect false, unplug cable suspend energy offer");
            NotifyPauseTransaction(txId);
            return 0;
        case TRANSACTIONREASON_STOPAUTHORIZED:
            if (powerPath || authorized || energy) return 1;
            LOG_INFO("Not contain PowerPathClosed&Authorized, StopAuthorized paused transaction\n");
            NotifyPauseTransaction(txId);
            return 0;
        default:
            return 1;
    }
}

bool CTransactionManager::Take(const std::string& txId, TransactionItem* out) {
    OCPP_SECTION(&m_mutex);
    auto it = m_items.find(txId);
    if (it == m_items.end()) return false;
    *out = *it->second;
    m_items.erase(it);
    return true;
}

int CTransactionManager::TransactionEnd(const std::string& txId, int reason, int chargingState, int stopReason,
                                        const Meter& meter) {
    LOG_INFO("TransactionEnd---eReason<%d>---eChargingState<%d>---eStopReason<%d>---", reason, chargingState,
             stopReason);
    if (StopTransactionCheck(txId, chargingState, reason, stopReason) == 0) {
        LOG_INFO("TxCtrlrTxStopPoint variable reject TransactionEnd:eReason<%d>eChargingState<%d>\n", reason,
                 chargingState);
        return 0;
    }
    std::lock_guard<std::recursive_mutex> order(m_eventOrder);
    TransactionItem item;
    if (!Take(txId, &item)) {
        LOG_ERROR("protocol trasation end not find ID------------------------------------------------%s--",
                  txId.c_str());
        NotifyStopTransaction(txId, 18);
        return AUTHORIZESTATUS_INVALID;
    }
    int result = 0;
    if (item.startedTime == 0) {
        LOG_INFO("Transaction not start auto end\n");
    } else {
        CatchUpWithJournal(txId, item);
        item.seqNo += 1;
        TransactionEventArgs args = Args(txId, item, reason, chargingState, meter);
        args.stopReason = stopReason;
        int32_t param = item.eventParam;
        result = SendEvent(SUBTYPE_ENDED, args, &param);
    }
    ReleaseItem(txId, item, reason);
    TransactionsToFile();
    return result;
}

int CTransactionManager::TransactionEndWithToken(const std::string& txId, int reason, int chargingState,
                                                 int stopReason, const char* idToken, int tokenType,
                                                 const Meter& meter) {
    const char* token = idToken != nullptr ? idToken : "";
    const int status = Ocpp20ProtocolPrivate_Authorize(token, tokenType);
    if (status != AUTHORIZESTATUS_ACCEPTED) {
        LOG_ERROR("TransactionEndWithToken authorize failed:<%s>\n", CTools::Hash12(token).c_str());
        return status;
    }
    TransactionItem item;
    if (!GetTransactionItem(txId, &item)) {
        LOG_INFO("TransactionEndWithToken transaction <%s> already end\n", txId.c_str());
        return AUTHORIZESTATUS_INVALID;
    }
    const bool startedWithToken = item.tokenType != kNoToken && item.idToken[0] != '\0';
    if (startedWithToken && std::strcmp(item.idToken, token) == 0) return 1;
    CAuthorizeCache* cache = CAuthorizeCache::GetInstance();
    const std::string group = cache->GetGroupToken(token);
    const std::string master = CVariableCache::GetInstance()->AuthCtrlrMasterPassGroupId();
    if (!master.empty() && group == master) {
        LOG_INFO("TransactionEndWithToken Mastercard end transaction\n");
        TransactionEnd(txId, reason, chargingState, TRANSACTIONSTOPREASON_MASTERPASS, meter);
        return 0;
    }
    if (!startedWithToken) {
        LOG_INFO("TransactionEndWithToken Noauthorize start, authorize end\n");
        TransactionEnd(txId, reason, chargingState, stopReason, meter);
        return 0;
    }
    const std::string startGroup = cache->GetGroupToken(item.idToken);
    if (startGroup.empty()) {
        LOG_INFO("TransactionEndWithToken no grouptoken, start and end are inconsistent\n");
        return AUTHORIZESTATUS_INVALID;
    }
    if (startGroup != group) {
        LOG_INFO("TransactionEndWithToken have grouptoken, grouptoken incorrect\n");
        return AUTHORIZESTATUS_INVALID;
    }
    LOG_INFO("TransactionEndWithToken:Token:<%s> is vaild and grouptoken:<%s>, wait comproc deal\n",
             CTools::Hash12(token).c_str(), CTools::Hash12(group).c_str());
    return 1;
}

void CTransactionManager::ReleaseItem(const std::string& txId, const TransactionItem& item, int reason) {
    if (item.reservationId != 0)
        CReservationManager::GetInstance()->RemoveReservation(static_cast<uint32_t>(item.reservationId));
    // The library ended it on its own: the host frees the EVSE.
    if (reason == TRANSACTIONREASON_EVCONNECTTIMEOUT) NotifyStopTransaction(txId, TRANSACTIONSTOPREASON_TIMEOUT);
}

// ---- timers ----

void* CTransactionManager::OccupyTimerProc(void*) {
    if (Variant1()) return nullptr;
    CTransactionManager* self = GetInstance();
    bool candidate = false;
    {
        OCPP_SECTION(&self->m_mutex);
        for (const auto& entry : self->m_items) {
            const TransactionItem& item = *entry.second;
            candidate = candidate || (item.startedTime > 0 && item.authorizedTime > 0 && item.cablePluggedTime == 0);
        }
    }
    if (!candidate) return nullptr;
    std::lock_guard<std::recursive_mutex> order(self->m_eventOrder);
    int timeout = CVariableCache::GetInstance()->TxCtrlrEVConnectionTimeOut();
    if (timeout <= 0) timeout = kDefaultConnectionTimeOut;
    const int32_t now = NowSec();
    std::vector<std::pair<std::string, TransactionItem>> expired;
    {
        OCPP_SECTION(&self->m_mutex);
        for (auto it = self->m_items.begin(); it != self->m_items.end();) {
            const TransactionItem& item = *it->second;
            if (item.startedTime > 0 && now - item.startedTime > timeout && item.authorizedTime > 0 &&
                item.cablePluggedTime == 0) {
                LOG_INFO("==================Occupy remove one transaction======%s=======\n", it->first.c_str());
                expired.emplace_back(it->first, item);
                it = self->m_items.erase(it);
            } else {
                ++it;
            }
        }
    }
    if (expired.empty()) return nullptr;
    for (auto& entry : expired) {
        TransactionItem& item = entry.second;
        self->CatchUpWithJournal(entry.first, item);
        item.seqNo += 1;
        TransactionEventArgs args = Args(entry.first, item, TRANSACTIONREASON_EVCONNECTTIMEOUT,
                                         TRANSACTIONCHARGINGSTATE_IDLE, Meter());
        args.stopReason = TRANSACTIONSTOPREASON_TIMEOUT;
        int32_t param = item.eventParam;
        self->SendEvent(SUBTYPE_ENDED, args, &param);
        self->ReleaseItem(entry.first, item, TRANSACTIONREASON_EVCONNECTTIMEOUT);
    }
    self->TransactionsToFile();
    return nullptr;
}

void* CTransactionManager::TransactionTimerProc(void*) {
    GetInstance()->Clear();
    return nullptr;
}

// A token seen but no cable within EVConnectionTimeOut: nothing was sent for
// it, so it goes quietly and the host is told.
void CTransactionManager::Clear() {
    std::vector<std::pair<std::string, TransactionItem>> stale;
    bool candidate = false;
    {
        OCPP_SECTION(&m_mutex);
        for (const auto& entry : m_items) {
            const TransactionItem& item = *entry.second;
            candidate = candidate || (item.startedTime == 0 && item.authorizedTime > 0 && item.cablePluggedTime == 0);
        }
    }
    if (!candidate) return;
    int timeout = CVariableCache::GetInstance()->TxCtrlrEVConnectionTimeOut();
    if (timeout <= 0) timeout = kDefaultConnectionTimeOut;
    const int32_t now = NowSec();
    {
        OCPP_SECTION(&m_mutex);
        for (auto it = m_items.begin(); it != m_items.end();) {
            const TransactionItem& item = *it->second;
            if (item.startedTime == 0 && item.authorizedTime > 0 && item.cablePluggedTime == 0 &&
                now - item.authorizedTime > timeout) {
                LOG_INFO("==================timer remove one transaction======%s====%ld==%ld=\n", it->first.c_str(),
                         static_cast<long>(now), static_cast<long>(item.authorizedTime));
                stale.emplace_back(it->first, item);
                it = m_items.erase(it);
            } else {
                ++it;
            }
        }
    }
    if (stale.empty()) return;
    for (const auto& entry : stale) {
        ReleaseItem(entry.first, entry.second, TRANSACTIONREASON_EVCONNECTTIMEOUT);
    }
    TransactionsToFile();
}

void CTransactionManager::RemoveAll() {
    {
        OCPP_SECTION(&m_mutex);
        m_items.clear();
    }
    TransactionsToFile();
}

// ---- store ----

int CTransactionManager::SetStoreFile(const std::string& path) {
    {
        OCPP_SECTION(&m_mutex);
        if (path == m_path) return 1;
        m_path = path;
    }
    LOG_INFO("Transaction Cache File:%s", path.c_str());
    if (CFileUtil::Exists(path)) return TransactionsFromFile();
    return 1;
}

int CTransactionManager::TransactionsToFile() {
    OCPP_SECTION(&m_fileMutex);
    CTransactionFile::Records records;
    std::string path;
    {
        OCPP_SECTION(&m_mutex);
        if (m_path.empty()) return 1;
        path = m_path;
        records.reserve(m_items.size());
        for (const auto& entry : m_items) records.emplace_back(entry.first, *entry.second);
    }
    // fsync runs without the map lock, so lookups never wait on the flash.
    return CTransactionFile::Write(path, CTransactionFile::Encode(records)) ? 1 : 0;
}

int CTransactionManager::TransactionsFromFile() {
    OCPP_SECTION(&m_fileMutex);
    std::string path;
    {
        OCPP_SECTION(&m_mutex);
        path = m_path;
    }
    CTransactionFile::Records records;
    if (path.empty() || !CTransactionFile::Read(path, &records)) return 0;
    OCPP_SECTION(&m_mutex);
    m_items.clear();
    m_loadedUnchecked.clear();
    for (const auto& record : records) {
        LOG_INFO("Load cache transaction:%s\n", record.first.c_str());
        m_items[record.first].reset(new TransactionItem(record.second));
        m_loadedUnchecked.insert(record.first);
    }
    return 1;
}

void CTransactionManager::CatchUpWithJournal(const std::string& txId, TransactionItem& item) {
    {
        OCPP_SECTION(&m_mutex);
        if (m_loadedUnchecked.erase(txId) == 0) return;
    }
    const int journaled = COfflineCache::GetInstance()->LastJournaledSeqNo(txId);
    if (journaled > item.seqNo) item.seqNo = journaled;
}
