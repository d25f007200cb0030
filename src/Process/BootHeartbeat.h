#pragma once
#include <atomic>

// Boot notification until accepted, then heartbeats.
class CBootHeartbeat {
public:
    static CBootHeartbeat* GetInstance();
    static void Release();

    // Status of the last BootNotification answer: 0 Accepted, 1 Pending, 2 Rejected.
    int GetBootStatus();
    void SetBootStatus(int status);

private:
    CBootHeartbeat() = default;
    ~CBootHeartbeat() = default;

    std::atomic<int> m_bootStatus{0};

    static CBootHeartbeat* s_instance;
};
