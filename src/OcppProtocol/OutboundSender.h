#pragma once
// The one way out for every frame the station sends: it decides, by the kind
// of message and the SDK status, whether a frame goes to the CSMS now, waits
// on the ordered transaction queue or is handed to the offline store.
#include <cstdint>
#include <string>

// What a frame is, as far as sending is concerned; the same for every
// protocol version.
enum OUTBOUNDKIND {
    OUTBOUNDKIND_ANSWER = 0,             // CALLRESULT or CALLERROR: one-way, the transport decides
    OUTBOUNDKIND_REQUEST,                // any request without rules of its own
    OUTBOUNDKIND_BOOTHEARTBEAT,          // boot and heartbeat: sent before the station is accepted
    OUTBOUNDKIND_STATUSNOTIFICATION,     // held by the connector manager, never stored here
    OUTBOUNDKIND_SECURITYEVENT,          // kept offline while disconnected
    OUTBOUNDKIND_TRANSACTIONEVENT,       // ordered queue while online, kept offline otherwise
    OUTBOUNDKIND_MONITOREVENT,           // NotifyEvent from monitoring
    OUTBOUNDKIND_EVCHARGINGNEEDS,
    OUTBOUNDKIND_EVCHARGINGSCHEDULE,
    OUTBOUNDKIND_FIRMWARESTATUS,
    OUTBOUNDKIND_COUNT
};

// One frame on its way out. The transaction fields are what the offline
// store files a transaction event under; other kinds leave them as they are.
struct OutboundMessage {
    OUTBOUNDKIND kind = OUTBOUNDKIND_REQUEST;
    const char* frame = nullptr;
    int len = 0;
    int subtype = 0;  // transaction events: 1 started, 2 updated, 3 ended
    int seqNo = 0;
    const char* transactionId = "";
};

// What the producer gets back. `answer` is set only when the CSMS answered
// (a CALLERROR included); it is this thread's buffer and stays valid until
// this thread sends its next request. Otherwise `result` is what the
// producer returns: 1 or 0 for a one-way send, the store's or queue's word
// for a frame kept back, 0 for one not sent.
struct OutboundResult {
    int result = 0;
    const char* answer = nullptr;
    int answerLen = 0;
};

class COutboundSender {
public:
    // Both return what the producer gets back.
    typedef int (*OfflineFn)(const OutboundMessage& message);
    typedef int (*QueueFn)(const OutboundMessage& message);

    static OutboundResult Send(const OutboundMessage& message);
    static OutboundResult Send(OUTBOUNDKIND kind, const std::string& frame);

    // Null puts the built-in behaviour back: no store (logged; a security
    // event still counts as kept), no queue (transaction events sent at once).
    static void SetOfflineStore(OfflineFn store);
    static void SetTransactionQueue(QueueFn queue);

    // Puts a message on the transaction queue as it is, whatever the status;
    // false when there is no queue to take it.
    static bool QueueTransactionMessage(const OutboundMessage& message);

    static const char* KindName(OUTBOUNDKIND kind);

    // Bytes held by this thread's answer buffer (0 until its first request).
    static size_t AnswerCapacity();
};
