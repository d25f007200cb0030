#pragma once

// Boot notification until accepted, then heartbeats.
class CBootHeartbeat {
public:
    static CBootHeartbeat* GetInstance();
    static void Release();

    // Status of the last BootNotification answer: 0 Accepted, 1 Pending, 2 Rejected.
    int GetBootStatus();

private:
    CBootHeartbeat() = default;
    ~CBootHeartbeat() = default;

    static CBootHeartbeat* s_instance;
};
