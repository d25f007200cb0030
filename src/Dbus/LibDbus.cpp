#include <LibDbus.h>

#include <atomic>
#include <cstring>
#include <string>
#include <vector>

#include "Dbus/DbusTools.h"
#include "Dbus/Package.h"
#include "Util/Tools.h"

namespace {

struct LibDbusHandle {
    explicit LibDbusHandle(int timeoutSec) : tools(timeoutSec) {}
    CDbusTools tools;
    LibDbusCallBack callback = nullptr;
};

std::atomic<LibDbusHexLogFunc> g_pHexLog{nullptr};
std::atomic<uint32_t> g_uTempModuleCount{0};

void HexLog(const uint8_t* data, uint32_t length) {
    LibDbusHexLogFunc function = g_pHexLog.load();
    if (function == nullptr || data == nullptr) return;
    static const char kDigits[] = "0123456789ABCDEF";
    std::string text;
    text.reserve(static_cast<size_t>(length) * 3);
    for (uint32_t i = 0; i < length; ++i) {
        text += kDigits[data[i] >> 4];
        text += kDigits[data[i] & 0x0F];
        text += ' ';
    }
    function(text.c_str());
}

void OnDbusMessageCallBack(DBusMessage* message, const uint8_t* data, uint32_t length, void* context) {
    LibDbusHandle* handle = static_cast<LibDbusHandle*>(context);
    HexLog(data, length);
    CPackage package;
    if (!package.Parse(data, length)) {
        LOG_INFO("dbus packet of %u bytes refused", (unsigned)length);
        return;
    }
    if (handle->callback != nullptr)
        handle->callback(handle, message, package.GetCommand(), package.GetData(), package.GetDataLength());
}

bool BuildPacket(CPackage& package, uint16_t command, const uint8_t* data, uint32_t length) {
    if (!package.Build(command, data, length)) {
        LOG_ERROR("dbus payload of %u bytes cannot be framed", (unsigned)length);
        return false;
    }
    HexLog(package.GetPacket(), package.GetPacketLength());
    return true;
}

}  // namespace

OCPP_EXTERN_C_BEGIN

void* LibDbus_Init(const char* moduleName, int timeoutSec, LibDbusCallBack callback) {
    LibDbusHandle* handle = new LibDbusHandle(timeoutSec > 0 ? timeoutSec : 5);
    handle->callback = callback;
    if (!handle->tools.InitConn(moduleName, handle, &OnDbusMessageCallBack)) {
        delete handle;
        return nullptr;
    }
    return handle;
}

void LibDbus_UnInit(void* handle) {
    LibDbusHandle* h = static_cast<LibDbusHandle*>(handle);
    if (h == nullptr) return;
    if (h->tools.IsReceiveThread()) {
        // Joining our own thread would hang forever; leaking the handle is the lesser harm.
        LOG_ERROR("LibDbus_UnInit called from the module's own callback; ignored");
        return;
    }
    h->tools.Release();
    delete h;
}

int LibDbus_Send(void* handle, const char* target, uint16_t command, const uint8_t* data, uint32_t length) {
    LibDbusHandle* h = static_cast<LibDbusHandle*>(handle);
    if (h == nullptr) return 0;
    CPackage package;
    if (!BuildPacket(package, command, data, length)) return 0;
    return h->tools.SendData(target, package.GetPacket(), package.GetPacketLength());
}

int LibDbus_SendSyncWithTimeout(const char* target, uint16_t command, const uint8_t* data, uint32_t length,
                                uint8_t* answer, uint32_t* answerLength, int timeoutSec) {
    if (answer == nullptr || answerLength == nullptr) return 0;
    CPackage request;
    if (!BuildPacket(request, command, data, length)) return 0;

    // Monotonic seconds and a sub-second part; the counter keeps two requests
    // in the same millisecond from asking for the same name.
    const int64_t nowMs = CTools::GetCurRunTimeMilSec();
    const long long subSecond =
        (long long)(nowMs % 1000) * 1000000LL + (long long)(g_uTempModuleCount.fetch_add(1) % 1000000u);
    const std::string moduleName = CTools::StringFormat("Module_dbus_%lld_%lld", (long long)(nowMs / 1000), subSecond);

    CDbusTools tools(timeoutSec);
    if (!tools.InitConn(moduleName.c_str(), nullptr, nullptr)) return 0;
    std::vector<uint8_t> reply;
    int result = 0;
    if (tools.SendDataSync(target, request.GetPacket(), request.GetPacketLength(), reply)) {
        HexLog(reply.data(), static_cast<uint32_t>(reply.size()));
        CPackage package;
        if (package.Parse(reply.data(), reply.size()) && package.GetDataLength() <= *answerLength) {
            if (package.GetDataLength() > 0) memcpy(answer, package.GetData(), package.GetDataLength());
            *answerLength = package.GetDataLength();
            result = 1;
        }
    }
    tools.Release();
    return result;
}

int LibDbus_SendSync(const char* target, uint16_t command, const uint8_t* data, uint32_t length, uint8_t* answer,
                     uint32_t* answerLength) {
    return LibDbus_SendSyncWithTimeout(target, command, data, length, answer, answerLength, 10);
}

int LibDbus_Reply(void* handle, void* request, uint16_t command, const uint8_t* data, uint32_t length) {
    LibDbusHandle* h = static_cast<LibDbusHandle*>(handle);
    if (h == nullptr || request == nullptr) return 0;
    CPackage package;
    if (!BuildPacket(package, command, data, length)) return 0;
    return h->tools.SendReplay(static_cast<DBusMessage*>(request), package.GetPacket(), package.GetPacketLength());
}

void LibDbus_SetHexLog(LibDbusHexLogFunc function) { g_pHexLog = function; }

OCPP_EXTERN_C_END
