#include "Dbus/DbusTools.h"

#include <poll.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <climits>
#include <cstdio>
#include <cstring>

#include "Util/CriticalSectionManager.h"
#include "Util/Thread.h"
#include "Util/Tools.h"

namespace {

const size_t kNameCapacity = 256;  // bus names are at most 255 characters
const char* const kMember = "Message";

// Formats "<prefix><module>" and checks it with the bus's own rule, so that a
// bad module name is refused here instead of tripping libdbus's assertions.
bool FormatName(char (&out)[kNameCapacity], const char* format, const char* module,
                dbus_bool_t (*validate)(const char*, DBusError*)) {
    if (module == nullptr) return false;
    const int n = snprintf(out, sizeof out, format, module);
    if (n < 0 || static_cast<size_t>(n) >= sizeof out) return false;
    return validate(out, nullptr) != FALSE;
}

}  // namespace

CDbusTools::CDbusTools(int timeoutSec) : m_timeoutSec(5) {
    pthread_mutex_init(&m_waitMutex, nullptr);
    SetTimeOut(timeoutSec);
}

CDbusTools::~CDbusTools() {
    Release();
    pthread_mutex_destroy(&m_waitMutex);
}

void CDbusTools::SetTimeOut(int seconds) {
    // A zero period would turn the receive loop's sweep into a spin.
    m_timeoutSec = seconds > 0 ? seconds : 1;
    Wake();
}

int CDbusTools::InitConn(const char* name, void* context, DbusRecvCallBack callback) {
    if (m_pDBusConnection != nullptr) return 0;
    dbus_threads_init_default();
    m_pContext = context;
    m_callback = callback;
    m_bStop = false;

    DBusError err;
    dbus_error_init(&err);
    m_pDBusConnection = dbus_bus_get_private(DBUS_BUS_SESSION, &err);
    if (dbus_error_is_set(&err)) {
        printf("Connection Error (%s)\n", err.message);
        dbus_error_free(&err);
    }
    if (m_pDBusConnection == nullptr) {
        printf("m_pDBusConnection null\n");
        return 0;
    }
    // The bus going away must never take the host process with it.
    dbus_connection_set_exit_on_disconnect(m_pDBusConnection, FALSE);

    char busName[kNameCapacity];
    char path[kNameCapacity];
    if (!FormatName(busName, "com.quorvane.%s", name, dbus_validate_bus_name) ||
        !FormatName(path, "/com/quorvane/%s", name, dbus_validate_path) ||
        !dbus_validate_interface(busName, nullptr)) {
        printf("Error formatting Dbus name.\n");
        CloseConnection();
        return 0;
    }

    const int owner = dbus_bus_request_name(m_pDBusConnection, busName,
                                            DBUS_NAME_FLAG_ALLOW_REPLACEMENT | DBUS_NAME_FLAG_REPLACE_EXISTING, &err);
    if (dbus_error_is_set(&err)) {
        printf("Name Error (%s)\n", err.message);
        dbus_error_free(&err);
        CloseConnection();
        return 0;
    }
    if (owner != DBUS_REQUEST_NAME_REPLY_PRIMARY_OWNER && owner != DBUS_REQUEST_NAME_REPLY_ALREADY_OWNER)
        LOG_ERROR("dbus name %s is held by another process that keeps it; packets go there", busName);

    m_wakeFd = eventfd(0, EFD_NONBLOCK | EFD_CLOEXEC);
    if (m_wakeFd < 0) {
        LOG_ERROR("eventfd failed: %s", strerror(errno));
        CloseConnection();
        return 0;
    }
    // A sender that could not write everything at once hands the rest to the receive thread.
    dbus_connection_set_wakeup_main_function(m_pDBusConnection, &CDbusTools::WakeupMain, this, nullptr);
    m_thread = LinuxCreateThread(nullptr, &CDbusTools::DbusMessageProc, this);
    if (m_thread == pthread_t{}) {  // already logged; without a receive thread the module is deaf
        CloseConnection();
        close(m_wakeFd);
        m_wakeFd = -1;
        return 0;
    }
    m_threadStarted = true;
    LOG_DEBUG("dbus module %s connected", busName);
    return 1;
}

void CDbusTools::CloseConnection() {
    if (m_pDBusConnection == nullptr) return;
    dbus_connection_set_wakeup_main_function(m_pDBusConnection, nullptr, nullptr, nullptr);
    dbus_connection_close(m_pDBusConnection);
    dbus_connection_unref(m_pDBusConnection);
    m_pDBusConnection = nullptr;
}

void CDbusTools::Release() {
    if (m_threadStarted) {
        if (IsReceiveThread()) {
            LOG_ERROR("dbus connection released from its own receive thread; refused");
            return;
        }
        m_bStop = true;
        Wake();
        pthread_join(m_thread, nullptr);
        m_threadStarted = false;
    }
    {
        // Senders still waiting get no answer; wait until they have left.
        OCPP_SECTION_NAMED(guard, &m_waitMutex);
        m_bStop = true;
        for (auto& entry : m_waitTable) entry.second.done = true;
        m_waitCv.notify_all();
        m_waitCv.wait(guard, [this] { return m_waiters == 0; });
        m_waitTable.clear();
    }
    CloseConnection();
    if (m_wakeFd >= 0) {
        close(m_wakeFd);
        m_wakeFd = -1;
    }
}

void CDbusTools::Wake() {
    if (m_wakeFd < 0) return;
    const uint64_t one = 1;
    // Non-blocking: a full counter already means "wake up".
    ssize_t written = write(m_wakeFd, &one, sizeof one);
    (void)written;
}

void CDbusTools::WakeupMain(void* self) { static_cast<CDbusTools*>(self)->Wake(); }

DBusMessage* CDbusTools::GetDBusMessage(const char* target) {
    char busName[kNameCapacity];
    char path[kNameCapacity];
    if (!FormatName(busName, "com.quorvane.%s", target, dbus_validate_bus_name)) {
        printf("Error formatting bus name.\n");
        return nullptr;
    }
    if (!FormatName(path, "/com/quorvane/%s", target, dbus_validate_path)) {
        printf("Error formatting path name.\n");
        return nullptr;
    }
    if (!dbus_validate_interface(busName, nullptr)) {
        printf("Error formatting interface name.\n");
        return nullptr;
    }
    return dbus_message_new_method_call(busName, path, busName, kMember);
}

bool CDbusTools::AppendPacket(DBusMessage* message, const uint8_t* data, uint32_t length) {
    if (length > DBUS_MAXIMUM_ARRAY_LENGTH || (length > 0 && data == nullptr)) return false;
    static const uint8_t kEmpty = 0;
    const uint8_t* bytes = length > 0 ? data : &kEmpty;
    // Receivers skip this value; it carries the array's length for anyone reading the bus.
    const dbus_int32_t size = static_cast<dbus_int32_t>(length);
    return dbus_message_append_args(message, DBUS_TYPE_INT32, &size, DBUS_TYPE_ARRAY, DBUS_TYPE_BYTE, &bytes,
                                    static_cast<int>(length), DBUS_TYPE_INVALID) != FALSE;
}

int CDbusTools::SendData(const char* target, const uint8_t* data, uint32_t length) {
    if (m_pDBusConnection == nullptr || !dbus_connection_get_is_connected(m_pDBusConnection)) return 0;
    DBusMessage* message = GetDBusMessage(target);
    if (message == nullptr) return 0;
    int ok = 0;
    if (AppendPacket(message, data, length)) ok = dbus_connection_send(m_pDBusConnection, message, nullptr) ? 1 : 0;
    dbus_message_unref(message);
    return ok;
}

int CDbusTools::SendDataSync(const char* target, const uint8_t* data, uint32_t length,
                             std::vector<uint8_t>& answer) {
    answer.clear();
    if (m_pDBusConnection == nullptr || !dbus_connection_get_is_connected(m_pDBusConnection)) return 0;
    if (IsReceiveThread()) {
        // The answer could only arrive on this very thread, which would be blocked waiting for it.
        LOG_ERROR("synchronous dbus send from the module's own receive thread refused");
        return 0;
    }
    DBusMessage* message = GetDBusMessage(target);
    if (message == nullptr) return 0;
    if (!AppendPacket(message, data, length)) {
        dbus_message_unref(message);
        return 0;
    }
    // The table stays locked from the send until the item is in it, so an
    // answer that comes back at once still finds its waiter.
    OCPP_SECTION_NAMED(guard, &m_waitMutex);
    if (m_bStop) {
        dbus_message_unref(message);
        return 0;
    }
    dbus_uint32_t serial = 0;
    const bool sent = dbus_connection_send(m_pDBusConnection, message, &serial) != FALSE;
    dbus_message_unref(message);
    if (!sent) return 0;
    return WaitForRecive(guard, serial, answer);
}

int CDbusTools::WaitForRecive(CSectionGuard& guard, uint32_t serial, std::vector<uint8_t>& answer) {
    DbusMessageItem& item = m_waitTable[serial];
    item = DbusMessageItem();
    item.createdMs = CTools::GetCurRunTimeMilSec();
    ++m_waiters;
    // The sweep normally ends the wait; the bound only matters if the receive
    // thread could not run (clock held still, thread not started).
    const auto bound = std::chrono::seconds(2LL * m_timeoutSec.load() + 1);
    m_waitCv.wait_for(guard, bound, [&] { return item.done || m_bStop.load(); });
    const int result = item.answered ? 1 : 0;
    if (result) answer.swap(item.answer);
    answer.resize(item.answerLength);
    m_waitTable.erase(serial);
    --m_waiters;
    m_waitCv.notify_all();
    return result;
}

int CDbusTools::SendReplay(DBusMessage* request, const uint8_t* data, uint32_t length) {
    if (m_pDBusConnection == nullptr || request == nullptr) return 0;
    if (dbus_message_get_type(request) != DBUS_MESSAGE_TYPE_METHOD_CALL) return 0;
    DBusMessage* reply = dbus_message_new_method_return(request);
    if (reply == nullptr) return 0;
    dbus_message_set_serial(reply, dbus_message_get_serial(request));
    int ok = 0;
    if (AppendPacket(reply, data, length)) ok = dbus_connection_send(m_pDBusConnection, reply, nullptr) ? 1 : 0;
    dbus_message_unref(reply);
    return ok;
}

void CDbusTools::DoMessageRecv(DBusMessage* message) {
    const int type = dbus_message_get_type(message);
    if (type == DBUS_MESSAGE_TYPE_ERROR) {
        // The bus refused the request (no such module, ...): its sender need not wait any longer.
        OnMessageReturn(message, nullptr, 0, false);
        return;
    }
    if (type == DBUS_MESSAGE_TYPE_METHOD_CALL) {
        const char* member = dbus_message_get_member(message);
        if (member == nullptr || strcmp(member, kMember) != 0) return;
    } else if (type != DBUS_MESSAGE_TYPE_METHOD_RETURN) {
        return;
    }

    const uint8_t* data = nullptr;
    int length = 0;
    bool hasData = false;
    if (dbus_message_has_signature(message, "iay")) {
        dbus_int32_t ignored = 0;
        DBusError err;
        dbus_error_init(&err);
        hasData = dbus_message_get_args(message, &err, DBUS_TYPE_INT32, &ignored, DBUS_TYPE_ARRAY, DBUS_TYPE_BYTE,
                                        &data, &length, DBUS_TYPE_INVALID) != FALSE;
        dbus_error_free(&err);
        if (length <= 0) hasData = false;
    }
    if (type == DBUS_MESSAGE_TYPE_METHOD_RETURN &&
        OnMessageReturn(message, data, static_cast<uint32_t>(length > 0 ? length : 0), hasData))
        return;
    if (hasData && m_callback != nullptr) m_callback(message, data, static_cast<uint32_t>(length), m_pContext);
}

bool CDbusTools::OnMessageReturn(DBusMessage* message, const uint8_t* data, uint32_t length, bool hasData) {
    const dbus_uint32_t serial = dbus_message_get_reply_serial(message);
    OCPP_SECTION(&m_waitMutex);
    auto it = m_waitTable.find(serial);
    // A late answer (its sender gave up) is handed on like any other message.
    if (it == m_waitTable.end() || it->second.done) return false;
    DbusMessageItem& item = it->second;
    item.done = true;
    if (dbus_message_get_type(message) == DBUS_MESSAGE_TYPE_METHOD_RETURN) {
        item.answered = true;
        if (hasData) {
            item.answer.assign(data, data + length);
            item.answerLength = length;
        } else {
            item.answer.assign(1, 0);
            item.answerLength = 0;
        }
    }
    m_waitCv.notify_all();
    return true;
}

int CDbusTools::SweepTimeouts(int64_t nowMs) {
    const int64_t limitMs = 1000LL * m_timeoutSec.load();
    int given = 0;
    OCPP_SECTION(&m_waitMutex);
    for (auto& entry : m_waitTable) {
        DbusMessageItem& item = entry.second;
        if (item.done || nowMs - item.createdMs < limitMs) continue;
        item.done = true;
        ++given;
    }
    if (given > 0) m_waitCv.notify_all();
    return given;
}

size_t CDbusTools::WaitingCount() {
    OCPP_SECTION(&m_waitMutex);
    size_t n = 0;
    for (const auto& entry : m_waitTable)
        if (!entry.second.done) ++n;
    return n;
}

void* CDbusTools::DbusMessageProc(void* self) {
    static_cast<CDbusTools*>(self)->ReceiveLoop();
    return nullptr;
}

void CDbusTools::ReceiveLoop() {
    int64_t lastSweepMs = CTools::GetCurRunTimeMilSec();
    bool connected = true;
    while (!m_bStop) {
        uint64_t counter = 0;
        while (read(m_wakeFd, &counter, sizeof counter) > 0) {
        }

        if (connected && !dbus_connection_read_write(m_pDBusConnection, 0)) {
            connected = false;
            LOG_ERROR("dbus connection lost");
        }
        while (!m_bStop) {
            DBusMessage* message = dbus_connection_pop_message(m_pDBusConnection);
            if (message == nullptr) break;
            DoMessageRecv(message);
            dbus_message_unref(message);
        }

        const int64_t periodMs = 1000LL * m_timeoutSec.load();
        const int64_t nowMs = CTools::GetCurRunTimeMilSec();
        if (nowMs - lastSweepMs >= periodMs) {
            SweepTimeouts(nowMs);
            lastSweepMs = nowMs;
        }
        int64_t waitMs = lastSweepMs + periodMs - nowMs;
        if (waitMs < 0) waitMs = 0;
        if (waitMs > periodMs) waitMs = periodMs;  // the clock went backwards
        if (waitMs > INT_MAX) waitMs = INT_MAX;

        // Sleep until the bus has something for us, a sender needs help
        // writing, Release is called or the next sweep is due.
        struct pollfd fds[2];
        nfds_t count = 0;
        fds[count++] = {m_wakeFd, POLLIN, 0};
        int busFd = -1;
        if (connected && dbus_connection_get_unix_fd(m_pDBusConnection, &busFd)) {
            const short events = static_cast<short>(
                POLLIN | (dbus_connection_has_messages_to_send(m_pDBusConnection) ? POLLOUT : 0));
            fds[count++] = {busFd, events, 0};
        }
        if (!m_bStop) poll(fds, count, static_cast<int>(waitMs));
    }
}
