#pragma once
#include <dbus/dbus.h>
#include <pthread.h>

#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <map>
#include <vector>

class CSectionGuard;

// One synchronous request waiting for its answer, keyed by the request's serial.
struct DbusMessageItem {
    std::vector<uint8_t> answer;  // copy of the answer's byte array
    uint32_t answerLength = 0;
    bool answered = false;
    bool done = false;            // answered, refused by the bus or given up
    int64_t createdMs = 0;        // run-time clock
};

// Receives every method call (and every unclaimed method return) that carries a
// byte array, on the connection's receive thread. The data is only valid during the call.
typedef void (*DbusRecvCallBack)(DBusMessage* message, const uint8_t* data, uint32_t length, void* context);

// One module's private connection to the session bus, with the thread that
// receives for it.
class CDbusTools {
public:
    explicit CDbusTools(int timeoutSec = 5);
    ~CDbusTools();
    CDbusTools(const CDbusTools&) = delete;
    CDbusTools& operator=(const CDbusTools&) = delete;

    int InitConn(const char* name, void* context, DbusRecvCallBack callback);
    int SendData(const char* target, const uint8_t* data, uint32_t length);
    // Sends and waits for the answer; 1 with the answer's bytes, 0 when none came in time.
    int SendDataSync(const char* target, const uint8_t* data, uint32_t length, std::vector<uint8_t>& answer);
    int SendReplay(DBusMessage* request, const uint8_t* data, uint32_t length);
    void SetTimeOut(int seconds);
    int GetTimeOut() const { return m_timeoutSec.load(); }
    void Release();

    // Gives up every request older than the time-out; returns how many. The
    // receive thread runs it once per time-out period.
    int SweepTimeouts(int64_t nowMs);
    size_t WaitingCount();
    bool IsReceiveThread() const { return m_threadStarted && pthread_equal(pthread_self(), m_thread); }

private:
    DBusMessage* GetDBusMessage(const char* target);
    static bool AppendPacket(DBusMessage* message, const uint8_t* data, uint32_t length);
    int WaitForRecive(CSectionGuard& guard, uint32_t serial, std::vector<uint8_t>& answer);
    void DoMessageRecv(DBusMessage* message);
    bool OnMessageReturn(DBusMessage* message, const uint8_t* data, uint32_t length, bool hasData);
    static void* DbusMessageProc(void* self);
    void ReceiveLoop();
    void Wake();
    static void WakeupMain(void* self);
    void CloseConnection();

    DBusConnection* m_pDBusConnection = nullptr;
    std::atomic<bool> m_bStop{false};
    pthread_t m_thread{};
    bool m_threadStarted = false;
    int m_wakeFd = -1;

    pthread_mutex_t m_waitMutex;
    std::condition_variable_any m_waitCv;
    std::map<uint32_t, DbusMessageItem> m_waitTable;
    int m_waiters = 0;

    void* m_pContext = nullptr;
    DbusRecvCallBack m_callback = nullptr;
    std::atomic<int> m_timeoutSec;
};
