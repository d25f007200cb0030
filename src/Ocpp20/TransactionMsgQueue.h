#pragma once
#include <pthread.h>

#include <atomic>
#include <cstdint>
#include <deque>
#include <mutex>
#include <string>

#include "Util/Singleton.h"

struct OutboundMessage;

// The ordered queue of TransactionEvent frames while the station is online:
// first in, first out, each frame retried on a live link before the next one
// goes, and the start markers that hold the host's start notification behind
// the frames queued before them. Every frame is journaled in offline.db
// before it is queued (see COfflineCache), so the queue in memory is only the
// order of work; a lost link drops it and the next replay sends the rows.
class CTransactionMsgQueue : public CSingleton<CTransactionMsgQueue> {
public:
    struct Entry {
        int64_t rowId = 0;  // journal row; 0: not journaled (no store open)
        int msgtype = 1;    // OFFLINEMSGTYPE
        bool marker = false;
        std::string frame;
        std::string transactionId;
        uint64_t epoch = 0;
        uint64_t serial = 0;  // which push this is
    };

    enum SENDOUTCOME {
        SENDOUTCOME_ANSWERED,  // the CSMS answered; `answer` holds it
        SENDOUTCOME_GAVEUP,    // MessageAttempts used up on a live link
        SENDOUTCOME_LINKLOST   // the link went (or the sender is stopping): the frame is kept
    };

    // The outbound sender's transaction queue: journal, queue, wake the sender.
    static int Queue(const OutboundMessage& message);
    // Registers the sender on the transaction message manager and installs the
    // queue and the offline store on the outbound sender.
    static void Start();

    void PushStartMarker(const std::string& transactionId);
    size_t Size();
    // Forgets what is queued (the journal keeps the frames for the replay);
    // start markers among them tell the host at once, as when not online.
    void Flush();
    // Rows may sit in the journal that neither the replay nor the queue holds.
    void MayHaveOrphans() { m_orphans = true; }
    // One run of the sender: until the queue is empty or the link is gone.
    void Drain();

    // Sends `frame` until the CSMS answers it, under the TransactionEvent
    // attempt rule: an unanswered request on a live link (and, with
    // `callErrorFails`, a CALLERROR) is sent again under a new id in the
    // compact layout after MessageAttemptInterval x attempt seconds, at most
    // MessageAttempts times. A link that is down is not an attempt.
    static SENDOUTCOME SendWithAttempts(std::string& frame, bool callErrorFails, bool (*linkUsable)(),
                                        const std::string& transactionId, std::string* answer);
    // Held while a stored frame is on its way: the replay and the queue never overlap.
    static pthread_mutex_t* SendLock();

private:
    friend class CSingleton<CTransactionMsgQueue>;
    CTransactionMsgQueue() = default;
    ~CTransactionMsgQueue() = default;
    void ResetInPlace() { Flush(); }
    void AdoptLocked();  // m_mutex held

    std::mutex m_mutex;
    std::deque<Entry> m_queue;
    uint64_t m_epoch = 0;
    uint64_t m_serial = 0;
    std::atomic<bool> m_orphans{true};
};

void* Ocpp20ProtocolPrivate_MsgSendTimerProc(void* argument);
