#pragma once
#include <pthread.h>

#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <list>
#include <memory>
#include <mutex>

#include "Util/Singleton.h"

class CInboundFrame;

// One queued record: this head, then `length` payload bytes in the same block.
struct MessageCallBackItem {
    int32_t kind;     // 1 record for the host
    uint32_t length;  // payload bytes
};

// The single thread on which inbound frames are handled and host records are
// delivered, so protocol handlers and host callbacks never run concurrently.
// A request answered from the station's own stores alone is handled on the
// receiving thread instead, when nothing waits before it: it takes the same turn.
// Release stops the worker (after the item in hand) and discards everything queued;
// the next GetInstance starts a fresh worker.
class CMessageCallBack : public CSingleton<CMessageCallBack> {
public:
    // Newest frame first: it goes to the front of the frame list. The frame
    // arrives already read and is released as soon as its handler returns.
    void OnWebSocketMessage(std::unique_ptr<CInboundFrame> frame);
    // Reads the text first; for callers that have no frame object.
    void OnWebSocketMessage(const char* frame, unsigned int len);
    // Priority records overtake everything; ordinary ones queue behind waiting frames.
    void OnMessage(const char* record, unsigned int len, int priority);
    void Reset();
    void Close();
    // Items waiting, not counting the one in hand.
    size_t Pending();

    // Observes every frame at the point where the protocol engines take it.
    typedef void (*FrameObserver)(const char* frame, uint32_t len);
    static void SetFrameObserver(FrameObserver observer);

    static const uint32_t kMaxPackageLen = 65535;
    static const uint32_t kMaxRecordLen = 10 * kMaxPackageLen;  // longer records are refused
    // A backlog this long hands the heap back once it has drained.
    static const size_t kGiveBackBacklog = 256;

private:
    friend class CSingleton<CMessageCallBack>;
    // Exactly one of the two is set.
    struct Queued {
        MessageCallBackItem* record;
        CInboundFrame* frame;
    };

    CMessageCallBack();
    ~CMessageCallBack() = delete;  // lives for the whole process, see GetInstance
    void Open();
    void ResetInPlace() { Close(); }
    void Resume() { Open(); }
    void ClearLocked();
    static void* MessageProc(void* start);
    void Loop(uint64_t generation);
    void Dispatch(const Queued& item);
    void DispatchFrame(const CInboundFrame& frame);
    static bool AnswersAtOnce(const CInboundFrame& frame);
    bool HandleNow(std::unique_ptr<CInboundFrame>& frame);
    void Push(const Queued& item, bool front, bool priority);
    static void Free(const Queued& item);

    void Signal();

    pthread_mutex_t m_mutex;
    // Held by whoever handles an item, from taking it to done: keeps handlers
    // and host callbacks one at a time and in queue order.
    std::mutex m_turnMutex;
    // The worker sleeps on a lock of its own: waking it never makes it queue
    // for the list lock behind the producer that woke it.
    std::mutex m_wakeMutex;
    std::condition_variable m_wake;
    bool m_signalled = false;  // wake lock
    std::list<Queued> m_frames;
    std::list<Queued> m_priority;
    std::atomic<bool> m_closed{true};
    uint64_t m_generation = 0;  // a worker runs while this still equals the value it started with
    size_t m_backlogPeak = 0;   // longest queue since the heap was last handed back
    bool m_hasThread = false;
    pthread_t m_thread{};

    static std::atomic<FrameObserver> s_frameObserver;
};
