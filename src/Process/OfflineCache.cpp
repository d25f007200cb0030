#include "Process/OfflineCache.h"

#include <OcppRecords.h>
#include <unistd.h>

#include <cstdio>
#include <cstring>

#include "Ocpp20/Ocpp20Transaction.h"
#include "Ocpp20/Process/TransactionManager.h"
#include "Ocpp20/Process/VariableCache.h"
#include "Ocpp20/TransactionMsgQueue.h"
#include "OcppProtocol/MessageCallBack.h"
#include "OcppProtocol/OcppProtocol.h"
#include "OcppProtocol/OcppSendSeam.h"
#include "OcppProtocol/OutboundSender.h"
#include "Process/ConnectManager.h"
#include "Util/CriticalSectionManager.h"
#include "Util/FileUtil.h"
#include "Util/Thread.h"
#include "Util/Tools.h"

namespace {
const int kBatchRows = 10;
const char kTable[] = "offline";

bool ReplayMayGoOn() { return OcppProtocol_GetStatus() == SDKSTATUS_SUBMITTING && COcppSendSeam::LinkUp(); }

int MsgTypeOf(OUTBOUNDKIND kind) {
    switch (kind) {
        case OUTBOUNDKIND_STATUSNOTIFICATION:
            return OFFLINEMSGTYPE_STATUSNOTIFICATION;
        case OUTBOUNDKIND_TRANSACTIONEVENT:
            return OFFLINEMSGTYPE_TRANSACTIONEVENT;
        case OUTBOUNDKIND_SECURITYEVENT:
            return OFFLINEMSGTYPE_SECURITYEVENTNOTIFICATION;
        case OUTBOUNDKIND_EVCHARGINGSCHEDULE:
            return OFFLINEMSGTYPE_NOTIFYEVCHARGINGSCHEDULE;
        case OUTBOUNDKIND_MONITOREVENT:
            return OFFLINEMSGTYPE_NOTIFYMONITOREVENT;
        case OUTBOUNDKIND_EVCHARGINGNEEDS:
            return OFFLINEMSGTYPE_NOTIFYEVCHARGINGNEEDS;
        case OUTBOUNDKIND_FIRMWARESTATUS:
            return OFFLINEMSGTYPE_FIRMWARESTATUSNOTIFICATION;
        default:
            return -1;
    }
}
}  // namespace

COfflineCache::COfflineCache() {
    pthread_mutex_init(&m_mutex, nullptr);
    pthread_mutex_init(&m_threadMutex, nullptr);
}

COfflineCache::~COfflineCache() {
    JoinReplay();
    m_db.CloseDB();
    pthread_mutex_destroy(&m_threadMutex);
    pthread_mutex_destroy(&m_mutex);
}

void COfflineCache::ResetInPlace() {
    JoinReplay();
    CTransactionMsgQueue::GetInstance()->Flush();
    OCPP_SECTION(&m_mutex);
    m_db.CloseDB();
    m_path.clear();
    m_invalidIds.clear();
}

int COfflineCache::SetStoreFile(const std::string& path) {
    {
        OCPP_SECTION(&m_mutex);
        if (path == m_path && m_db.IsOpen()) return 1;
    }
    LOG_INFO("COffline Cache File:%s", path.c_str());
    // Rows queued from another folder's journal are not this one's.
    CTransactionMsgQueue::GetInstance()->Flush();
    OCPP_SECTION(&m_mutex);
    m_db.CloseDB();
    m_path = path;
    if (m_db.OpenDB(path) != 1) return 0;
    m_db.SetLogOutLevel(OcppProtocol_GetSqlLogLevel());
    // Write-ahead log: an insert is one fsync of the log (see Insert); a
    // delete is not synced on its own, as losing one only sends a row again.
    m_db.QuerySQL("PRAGMA journal_mode=WAL");
    m_db.ExecuteSQL("PRAGMA synchronous=NORMAL");
    if (m_db.ExecuteSQL("create table if not exists offline(id integer PRIMARY KEY autoincrement, msgtype integer, "
                        "msgsubtype integer, seqno integer, msgcontent text, extra text DEFAULT '')") != 1) {
        m_db.CloseDB();
        return 0;
    }
    return access(path.c_str(), W_OK) == 0 ? 1 : 0;
}

bool COfflineCache::IsTransactionShouldStore() {
    switch (OcppProtocol_GetOfflineTransactionStorePoint()) {
        case TRANSACTIONSTOREPOINT_ALWAYS:
            return true;
        case TRANSACTIONSTOREPOINT_TXBEFOREACCEPTED_OR_ACCEPTED:
            return CVariableCache::GetInstance()->TxCtrlrTxBeforeAcceptedEnabled() ||
                   CConnectManager::GetInstance()->IsAcceptedByCsms() == 1;
        case TRANSACTIONSTOREPOINT_ACCEPTED:
            return CConnectManager::GetInstance()->IsAcceptedByCsms() == 1;
        default:
            return false;
    }
}

int64_t COfflineCache::Insert(int msgtype, int subtype, int seqNo, const std::string& content,
                              const std::string* extra) {
    OCPP_SECTION(&m_mutex);
    if (!m_db.IsOpen()) return 0;
    // Durable before the producer hears it was kept; the sync also carries
    // every delete committed before it.
    m_db.ExecuteSQL("PRAGMA synchronous=FULL");
    int ok;
    if (extra != nullptr) {
        ok = m_db.ExecuteSQL(
            "insert into offline(msgtype,msgsubtype,seqno,msgcontent,extra)values('%d','%d','%d', '%s', '%s')",
            msgtype, subtype, seqNo, content.c_str(), extra->c_str());
    } else {
        ok = m_db.ExecuteSQL("insert into offline(msgtype,msgsubtype,seqno,msgcontent)values('%d','%d','%d', '%s')",
                             msgtype, subtype, seqNo, content.c_str());
    }
    const int64_t id = ok == 1 ? m_db.LastInsertId() : 0;
    m_db.ExecuteSQL("PRAGMA synchronous=NORMAL");
    return id;
}

int COfflineCache::AddTransactionMessage(int subtype, int seqNo, const std::string& content,
                                         const std::string& transactionId) {
    if (!IsTransactionShouldStore()) {
        LOG_INFO("This TransactionEventis not allowed to store=>%s", content.c_str());
        return 0;
    }
    return Insert(OFFLINEMSGTYPE_TRANSACTIONEVENT, subtype, seqNo, content, &transactionId) != 0 ? 1 : 0;
}

int64_t COfflineCache::JournalTransactionMessage(int subtype, int seqNo, const std::string& content,
                                                 const std::string& transactionId) {
    return Insert(OFFLINEMSGTYPE_TRANSACTIONEVENT, subtype, seqNo, content, &transactionId);
}

int COfflineCache::AddStatusNotificationMessage(const std::string& content) {
    return Insert(OFFLINEMSGTYPE_STATUSNOTIFICATION, 0, 0, content, nullptr) != 0 ? 1 : 0;
}
int COfflineCache::AddSecurityEventNotificationMessage(const std::string& content) {
    return Insert(OFFLINEMSGTYPE_SECURITYEVENTNOTIFICATION, 0, 0, content, nullptr) != 0 ? 1 : 0;
}
int COfflineCache::AddNotifyEVChargingScheduleMessage(const std::string& content) {
    return Insert(OFFLINEMSGTYPE_NOTIFYEVCHARGINGSCHEDULE, 0, 0, content, nullptr) != 0 ? 1 : 0;
}
int COfflineCache::AddNotifyMonitorEventMessage(const std::string& content) {
    return Insert(OFFLINEMSGTYPE_NOTIFYMONITOREVENT, 0, 0, content, nullptr) != 0 ? 1 : 0;
}
int COfflineCache::AddNotifyEVChargingNeedsMessage(const std::string& content) {
    return Insert(OFFLINEMSGTYPE_NOTIFYEVCHARGINGNEEDS, 0, 0, content, nullptr) != 0 ? 1 : 0;
}
int COfflineCache::AddFirmwareStatusNotification(const std::string& content) {
    return Insert(OFFLINEMSGTYPE_FIRMWARESTATUSNOTIFICATION, 0, 0, content, nullptr) != 0 ? 1 : 0;
}

int COfflineCache::Store(const OutboundMessage& message) {
    const int msgtype = MsgTypeOf(message.kind);
    if (msgtype < 0 || message.frame == nullptr) return 0;
    const std::string frame(message.frame, static_cast<size_t>(message.len));
    COfflineCache* cache = GetInstance();
    int kept;
    if (msgtype == OFFLINEMSGTYPE_TRANSACTIONEVENT) {
        kept = cache->AddTransactionMessage(message.subtype, message.seqNo, frame,
                                            message.transactionId != nullptr ? message.transactionId : "");
    } else {
        kept = cache->Insert(msgtype, 0, 0, frame, nullptr) != 0 ? 1 : 0;
    }
    // A row written while the status changes around the end of a replay may
    // be missed by it; the queue looks for such rows before it sends on.
    if (kept == 1) CTransactionMsgQueue::GetInstance()->MayHaveOrphans();
    // The producer of a security event reports it as kept whatever the store does.
    return message.kind == OUTBOUNDKIND_SECURITYEVENT ? 1 : kept;
}

bool COfflineCache::IsTransactionMessageExist(const std::string& transactionId) {
    OCPP_SECTION(&m_mutex);
    if (!m_db.IsOpen()) return false;
    const DbRows rows = m_db.QuerySQL("select * from offline where msgtype='%d' and extra='%s' limit 1",
                                      OFFLINEMSGTYPE_TRANSACTIONEVENT, transactionId.c_str());
    return !rows.empty();
}

int COfflineCache::LastJournaledSeqNo(const std::string& transactionId) {
    OCPP_SECTION(&m_mutex);
    if (!m_db.IsOpen()) return -1;
    const DbRows rows = m_db.QuerySQL("select max(seqno) as seqno from offline where msgtype='%d' and extra='%s'",
                                      OFFLINEMSGTYPE_TRANSACTIONEVENT, transactionId.c_str());
    if (rows.empty()) return -1;
    auto it = rows.front().find("seqno");
    return it == rows.front().end() || it->second.empty() ? -1 : std::atoi(it->second.c_str());
}

std::vector<COfflineCache::Row> COfflineCache::ReadRows(int limit) {
    std::vector<Row> out;
    OCPP_SECTION(&m_mutex);
    if (!m_db.IsOpen()) return out;
    const DbRows rows =
        m_db.QuerySQL("select id, msgcontent, msgtype, extra from offline order by id asc  limit %d", limit);
    for (const DbRow& r : rows) {
        Row row;
        auto get = [&r](const char* key) {
            auto it = r.find(key);
            return it != r.end() ? it->second : std::string();
        };
        row.id = atoll(get("id").c_str());
        row.msgtype = atoi(get("msgtype").c_str());
        row.frame = get("msgcontent");
        row.extra = get("extra");
        out.push_back(row);
    }
    return out;
}

int COfflineCache::DeleteRow(int64_t id) {
    if (id <= 0) return 0;
    OCPP_SECTION(&m_mutex);
    if (!m_db.IsOpen()) return 0;
    return m_db.ExecuteSQL("delete from offline where id='%lld'", static_cast<long long>(id));
}

size_t COfflineCache::Count() {
    OCPP_SECTION(&m_mutex);
    if (!m_db.IsOpen()) return 0;
    const std::list<std::string> n = m_db.QuerySQL2("select count(*) from offline");
    return n.empty() ? 0 : static_cast<size_t>(atoll(n.front().c_str()));
}

// ---- Replay ------------------------------------------------------------------

void COfflineCache::SubmitOfflineMessage() {
    printf("=========SubmitOfflineMessage==========\n");
    OcppProtocol_SetStatus(SDKSTATUS_SUBMITTING);
    // What the queue held goes again in the replay, in journal order.
    CTransactionMsgQueue::GetInstance()->Flush();
    JoinReplay();
    if (Count() == 0) {
        // Nothing kept: the replay is over before a thread would have started.
        Replay();
        return;
    }
    OCPP_SECTION(&m_threadMutex);
    m_thread = LinuxCreateThread(nullptr, &COfflineCache::SubmitOfflineMessageProc, this);
    m_threadStarted = true;
}

void COfflineCache::JoinReplay() {
    pthread_t thread;
    {
        OCPP_SECTION(&m_threadMutex);
        if (!m_threadStarted) return;
        thread = m_thread;
        m_threadStarted = false;
    }
    pthread_join(thread, nullptr);
}

void* COfflineCache::SubmitOfflineMessageProc(void* self) {
    static_cast<COfflineCache*>(self)->Replay();
    return nullptr;
}

void COfflineCache::Replay() {
    bool found = false;
    bool drained = false;
    std::string lastTransactionId;
    {
        // One sender of stored frames at a time: the queue waits for the replay.
        CSectionGuard sending(CTransactionMsgQueue::SendLock(), __FILE__, __LINE__, __FUNCTION__);
        bool cut = false;
        while (!cut && OcppProtocol_GetStatus() == SDKSTATUS_SUBMITTING) {
            const std::vector<Row> rows = ReadRows(kBatchRows);
            if (rows.empty()) {
                drained = true;
                break;
            }
            found = true;
            for (const Row& row : rows) {
                std::string frame = row.frame;
                std::string answer;
                const CTransactionMsgQueue::SENDOUTCOME outcome = CTransactionMsgQueue::SendWithAttempts(
                    frame, false, &ReplayMayGoOn, row.extra, &answer);
                if (outcome == CTransactionMsgQueue::SENDOUTCOME_LINKLOST) {
                    // The row stays for the next replay.
                    cut = true;
                    break;
                }
                if (outcome == CTransactionMsgQueue::SENDOUTCOME_ANSWERED && row.extra != lastTransactionId) {
                    lastTransactionId = row.extra.substr(0, 36);
                    RecordOfflineMessageInvalidIDRes(row.msgtype, row.frame, answer.c_str(),
                                                     static_cast<int>(answer.size()), row.extra);
                }
                DeleteRow(row.id);
            }
        }
        if (drained && found) {
            OCPP_SECTION(&m_mutex);
            // Checked again under the lock: a row written since the last read stays.
            const std::list<std::string> left = m_db.QuerySQL2("select count(*) from offline");
            if (!left.empty() && atoll(left.front().c_str()) == 0) {
                m_db.ExecuteSQL("DELETE FROM %s", kTable);
                m_db.ExecuteSQL("UPDATE sqlite_sequence SET seq = 0 WHERE name = '%s'", kTable);
            }
        }
    }
    // A replay cut short by the link leaves the status to the link.
    if (OcppProtocol_GetStatus() == SDKSTATUS_SUBMITTING) OcppProtocol_SetStatus(SDKSTATUS_OK);
    NotifyAllInvalidIdTransaction();
    CTransactionMsgQueue::GetInstance()->MayHaveOrphans();
    printf("=========SubmitOfflineMessage end==========\n");
}

// ---- Refused transactions ----------------------------------------------------

void COfflineCache::RecordOfflineMessageInvalidIDRes(int type, const std::string& request, const char* answer,
                                                     int answerLength, const std::string& transactionId) {
    if (type != OFFLINEMSGTYPE_TRANSACTIONEVENT || answer == nullptr || answerLength <= 0) return;
    const int status = Ocpp20ProtocolPrivate_OnTransactionEventAnswer(
        request.c_str(), request.size(), answer, static_cast<size_t>(answerLength), false);
    if (status <= 0 || !CTransactionManager::GetInstance()->IsTransactionExist(transactionId)) return;
    LOG_INFO("offline transaction<%s> not accepted:%d", transactionId.c_str(), status);
    OCPP_SECTION(&m_mutex);
    m_invalidIds.insert(transactionId);
}

void COfflineCache::NotifyAllInvalidIdTransaction() {
    std::set<std::string> ids;
    {
        OCPP_SECTION(&m_mutex);
        ids.swap(m_invalidIds);
    }
    for (const std::string& id : ids) {
        LOG_INFO("-----------------------------NotifyAllInvalidIdTransaction<%s>---------------", id.c_str());
        NotifyInvalidIdTransaction(id);
    }
}

void COfflineCache::NotifyInvalidIdTransaction(const std::string& transactionId) {
    LOG_INFO("==============Notify offline transaction not accepted<%s>============================",
             transactionId.c_str());
    TransactionNotAccepted record;
    memset(&record, 0, sizeof record);
    record.base.type = SERVERRECVTYPE_TRANSACTIONNOTACCEPTED;
    CTools::CopyField(record.transactionId, transactionId);
    CMessageCallBack::GetInstance()->OnMessage(reinterpret_cast<const char*>(&record), sizeof record, 0);
}

void COfflineCache::DealOfflineMessageResponse(int type, const std::string& request, const char* answer,
                                               int answerLength, const std::string& transactionId) {
    if (type != OFFLINEMSGTYPE_TRANSACTIONEVENT || answer == nullptr || answerLength <= 0) return;
    const int status = Ocpp20ProtocolPrivate_OnTransactionEventAnswer(
        request.c_str(), request.size(), answer, static_cast<size_t>(answerLength), false);
    if (status <= 0) return;
    CTransactionManager* manager = CTransactionManager::GetInstance();
    if (!manager->IsTransactionExist(transactionId)) return;
    int reason = TRANSACTIONREASON_DEAUTHORIZED;
    int chargingState = TRANSACTIONCHARGINGSTATE_EVCONNECTED;
    const int kInvalid = 4;
    if (status == kInvalid && !CVariableCache::GetInstance()->TxCtrlrStopTxOnInvalidId()) {
        reason = TRANSACTIONREASON_CHARGINGSTATECHANGED;
        chargingState = TRANSACTIONCHARGINGSTATE_SUSPENDEDEVSE;
    }
    manager->TransactionEnd(transactionId, reason, chargingState, -1, CTransactionManager::Meter());
}
