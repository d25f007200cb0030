#pragma once
#include <pthread.h>

#include <OcppTransaction.h>

#include <cstdint>
#include <map>
#include <memory>
#include <mutex>
#include <set>
#include <string>
#include <vector>

#include "Ocpp20/Ocpp20Transaction.h"
#include "Util/Singleton.h"

namespace Ocpp20 {
// The event parameter the message layer hands back with each event and gets
// again with the next one (an int32 in the transaction file).
enum TransactionEventParam : int32_t {
    TRANSACTIONEVENTPARAM_OFFLINE = 1 << 0,           // the last event occurred while not online
    TRANSACTIONEVENTPARAM_PHASES_SHIFT = 4,           // bits 4..7: numberOfPhasesUsed, 0 = not given
    TRANSACTIONEVENTPARAM_PHASES_MASK = 0xF << 4,
    TRANSACTIONEVENTPARAM_CABLEMAX_SHIFT = 8,         // bits 8..23: cableMaxCurrent, 0 = not given
    TRANSACTIONEVENTPARAM_CABLEMAX_MASK = 0xFFFF << 8,
};
}  // namespace Ocpp20

// One open transaction. Persisted as its raw 96-byte image: field order and
// widths are the file format.
#pragma pack(push, 1)
struct TransactionItem {
    int32_t evseId;
    int32_t connectorId;
    int32_t seqNo;            // of the next event: 0 for Started
    char idToken[40];         // 36 used
    int32_t tokenType;        // 255: opened by plugging in
    int32_t reservationId;    // 0 = none
    int32_t remoteStartId;    // 0 = not remotely started
    int32_t startedTime;      // 0 = Started not yet sent
    int32_t lastEventTime;
    int32_t authorizedTime;
    int32_t cablePluggedTime;
    int32_t evDetectedTime;
    int32_t openFlag;
    int32_t reserved;
    int32_t eventParam;       // Ocpp20::TransactionEventParam
};
#pragma pack(pop)
static_assert(sizeof(TransactionItem) == 96, "TransactionItem image is 96 bytes");

// The station's open OCPP 2.0.1 transactions: when Started and Ended are
// due, seqNo, and transactioncache.bin so an open transaction survives a restart.
class CTransactionManager : public CSingleton<CTransactionManager> {
public:
    static constexpr size_t kIdBytes = 36;
    static constexpr size_t kRecordBytes = kIdBytes + sizeof(TransactionItem);  // 132

    // Meter items of the event being raised, as the host passed them.
    struct Meter {
        const void* buffer = nullptr;
        int count = 0;
    };

    // Returns an AuthorizationStatusEnumType index, 0 = opened.
    int TransactionStart(int evseId, int connectorId, const char* idToken, int tokenType, int reason,
                         int chargingState, int remoteStartId, int reservationId, const char* groupIdToken,
                         const Meter& meter, std::string* outTransactionId, int* errorCode);
    int TransactionUpdate(const std::string& txId, int reason, int chargingState, const Meter& meter, int isRepeat);
    int TransactionEnd(const std::string& txId, int reason, int chargingState, int stopReason, const Meter& meter);
    int TransactionEndWithToken(const std::string& txId, int reason, int chargingState, int stopReason,
                                const char* idToken, int tokenType, const Meter& meter);
    int UpdateTransactionInfo(const std::string& txId, const TransactionInfoItem* items, int count);

    int StartTransactionCheck(const std::string& txId, int reason, int chargingState, const Meter& meter);
    int StopTransactionCheck(const std::string& txId, int chargingState, int reason, int stopReason);

    std::string GetTransactionID();
    bool GetTransactionItem(const std::string& txId, TransactionItem* out);
    bool IsTransactionExist(const std::string& txId);
    bool IsTransactionExist(int evseId, const std::string& txId);
    bool IsTransactionStart(const std::string& txId);
    int GetTransactionCount();
    bool TransactionIDFromEvseID(int evseId, std::string* out);
    std::vector<TransactionDetail> GetTransactionItemsDetail(const std::string& txId);
    bool IsRemoteStart(const std::string& txId);
    bool IsReservedStart(const std::string& txId);
    int GetReservedID(const std::string& txId);
    int AddTransactionRemoteID(const std::string& txId, int remoteStartId);
    int SetTransactionErrorCode(const std::string& txId, int code);
    int GetTransactionErrorCode(const std::string& txId);
    float GetTotalCostByTransactionID(const std::string& txId);
    int UpdateTotalCostByTransactionID(float cost, const std::string& txId);
    int UpdateTransactionParam(const std::string& txId, int32_t param);

    void Clear();
    void RemoveAll();

    // Host notifications (records 33, 34, 35, 39).
    void NotifyStartTransaction(const std::string& txId);
    void NotifyStopTransaction(const std::string& txId, int reason);
    void NotifyPauseTransaction(const std::string& txId);
    void NotifyNotAcceptedTransaction(const std::string& txId);

    int SetStoreFile(const std::string& path);
    int TransactionsToFile();
    int TransactionsFromFile();
    // Raises a loaded transaction's seqNo to the highest its journal kept: a power
    // cut between journaling an event and rewriting the store must not reuse it.
    // Looked at once per transaction, before its first event after loading.
    void CatchUpWithJournal(const std::string& txId, TransactionItem& item);

    // Timer callbacks; plain functions so tests call them directly.
    static void* OccupyTimerProc(void* argument);
    static void* TransactionTimerProc(void* argument);

    // Joins the running connection: the 1-second timers and the profile
    // store's view of open transactions.
    void Attach();

    // Where events go instead of the message builders (null: the builders).
    // subtype 1 started, 2 updated, 3 ended; returns as the builders do.
    using EventSink = int (*)(int subtype, const TransactionEventArgs& args, int32_t* eventParam);
    static void SetEventSink(EventSink sink);

private:
    friend class CSingleton<CTransactionManager>;
    CTransactionManager();
    ~CTransactionManager();
    CTransactionManager(const CTransactionManager&) = delete;
    CTransactionManager& operator=(const CTransactionManager&) = delete;
    void ResetInPlace();

    int SwipeCard(const char* idToken, int tokenType, const char* requiredGroup, bool* isMaster);
    int AuthorizeStart(int remoteStartId, int reservationId, const char* idToken, int tokenType,
                       const char* groupIdToken, bool* isMaster);
    int OpenOrJoin(int evseId, int connectorId, const char* idToken, int tokenType, int reason, int remoteStartId,
                   int reservationId, std::string* txId, bool* started);
    int StartIfDue(const std::string& txId, int reason, int chargingState, const Meter& meter);
    int SendEvent(int subtype, const TransactionEventArgs& args, int32_t* eventParam);
    int SendUpdate(const std::string& txId, int reason, int chargingState, const Meter& meter, int isRepeat);
    void NotifyStartTransactionPrivate(const std::string& txId);
    bool IsNeedStartTransaction(const std::string& txId);
    void ReleaseItem(const std::string& txId, const TransactionItem& item, int reason);
    bool Take(const std::string& txId, TransactionItem* out);
    void PostStartRecord(const std::string& txId, int type);

    pthread_mutex_t m_mutex;      // the map and the file path
    pthread_mutex_t m_fileMutex;  // one writer at a time, so an older image never lands last
    std::map<std::string, std::unique_ptr<TransactionItem>> m_items;
    std::set<std::string> m_loadedUnchecked;  // map lock: loaded, not yet held against the journal
    std::map<std::string, int> m_errorCodes;
    std::map<std::string, float> m_totalCosts;
    std::set<std::string> m_starting;  // Started on its way out: no second one meanwhile
    // Held from numbering an event until the sender has taken it, so two
    // threads raising events cannot hand them over out of seqNo order.
    // Recursive: ending by token ends from inside the same call.
    std::recursive_mutex m_eventOrder;
    std::string m_path;
    unsigned long long m_occupyTimer = 0;
    unsigned long long m_clearTimer = 0;
};
