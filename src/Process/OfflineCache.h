#pragma once
#include <pthread.h>

#include <cstdint>
#include <set>
#include <string>
#include <vector>

#include "Util/DbDriver.h"
#include "Util/Singleton.h"

struct OutboundMessage;

enum OFFLINEMSGTYPE {
    OFFLINEMSGTYPE_STATUSNOTIFICATION = 0,
    OFFLINEMSGTYPE_TRANSACTIONEVENT = 1,
    OFFLINEMSGTYPE_SECURITYEVENTNOTIFICATION = 2,
    OFFLINEMSGTYPE_NOTIFYEVCHARGINGSCHEDULE = 3,
    OFFLINEMSGTYPE_NOTIFYMONITOREVENT = 4,
    OFFLINEMSGTYPE_NOTIFYEVCHARGINGNEEDS = 5,
    OFFLINEMSGTYPE_FIRMWARESTATUSNOTIFICATION = 6
};

enum OFFLINEMSGSUBTYPE { OFFLINEMSGSUBTYPE_STARTED = 1, OFFLINEMSGSUBTYPE_UPDATED = 2, OFFLINEMSGSUBTYPE_ENDED = 3 };

// offline.db: what the station must not lose while it cannot talk to the CSMS,
// replayed in insertion order once it is connected and booted again.
//
// It is also the journal of the ordered transaction queue: every
// TransactionEvent the library accepts is a row here (one fsync'd commit)
// before the host's call returns, and the row goes only when the CSMS has
// answered it or the queue gave it up on a live link. A killed process or a
// power cut therefore loses no event; the rows are replayed after the next
// accepted boot, ahead of anything newer. Delivery is at least once: a row
// whose answer was lost is sent again.
class COfflineCache : public CSingleton<COfflineCache> {
public:
    struct Row {
        int64_t id = 0;
        int msgtype = 0;
        std::string frame;
        std::string extra;  // transaction events: the transaction id
    };

    int SetStoreFile(const std::string& path);

    // Kept only where the store point allows; 1 when kept.
    int AddTransactionMessage(int subtype, int seqNo, const std::string& content, const std::string& transactionId);
    // The ordered queue's journal entry, kept whatever the store point says
    // (the event was accepted online). Its row id, 0 when it could not be written.
    int64_t JournalTransactionMessage(int subtype, int seqNo, const std::string& content,
                                      const std::string& transactionId);
    int AddStatusNotificationMessage(const std::string& content);
    int AddSecurityEventNotificationMessage(const std::string& content);
    int AddNotifyEVChargingScheduleMessage(const std::string& content);
    int AddNotifyMonitorEventMessage(const std::string& content);
    int AddNotifyEVChargingNeedsMessage(const std::string& content);
    int AddFirmwareStatusNotification(const std::string& content);

    bool IsTransactionMessageExist(const std::string& transactionId);
    // Highest seqNo journaled for the transaction, or -1 when none is kept.
    int LastJournaledSeqNo(const std::string& transactionId);
    std::vector<Row> ReadRows(int limit);
    int DeleteRow(int64_t id);
    size_t Count();

    // After an accepted boot: SUBMITTING, replay, then OK.
    void SubmitOfflineMessage();
    // Waits for a replay in progress to end (tests and shutdown).
    void JoinReplay();

    void NotifyInvalidIdTransaction(const std::string& transactionId);
    void NotifyAllInvalidIdTransaction();
    void RecordOfflineMessageInvalidIDRes(int type, const std::string& request, const char* answer, int answerLength,
                                          const std::string& transactionId);
    void DealOfflineMessageResponse(int type, const std::string& request, const char* answer, int answerLength,
                                    const std::string& transactionId);

    // The outbound sender's offline store.
    static int Store(const OutboundMessage& message);

private:
    friend class CSingleton<COfflineCache>;
    COfflineCache();
    ~COfflineCache();
    COfflineCache(const COfflineCache&) = delete;
    COfflineCache& operator=(const COfflineCache&) = delete;
    void ResetInPlace();

    bool IsTransactionShouldStore();
    int64_t Insert(int msgtype, int subtype, int seqNo, const std::string& content, const std::string* extra);
    static void* SubmitOfflineMessageProc(void* self);
    void Replay();

    pthread_mutex_t m_mutex;        // the database, the path and the refused set
    pthread_mutex_t m_threadMutex;  // the replay thread's handle
    std::string m_path;
    CDbDriver m_db;
    pthread_t m_thread{};
    bool m_threadStarted = false;
    std::set<std::string> m_invalidIds;
};
