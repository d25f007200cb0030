#include "RecordingHost.h"

#include <chrono>
#include <cstring>

#include "FrameSchema.h"
#include "OcppProtocol/MessageCallBack.h"
#include "OcppProtocol/OcppProtocol.h"
#include "OcppProtocol/OutboundSender.h"
#include "TestSupport.h"

namespace ocpptest {

namespace {
std::mutex g_hostMutex;
RecordingHost* g_host = nullptr;
}  // namespace

RecordingHost::RecordingHost() {
    m_table = {};
    m_table.OnMessage = &RecordingHost::Message;
    {
        std::lock_guard<std::mutex> lock(g_hostMutex);
        g_host = this;
    }
    OcppProtocol_Init(0, &m_table);
}

RecordingHost::~RecordingHost() {
    Unblock();  // from here on no delivery blocks
    {
        // A delivery in progress finishes first; none reaches this host afterwards, even
        // from a worker that a late link event of a still running manager starts again.
        std::lock_guard<std::mutex> lock(g_hostMutex);
        if (g_host == this) g_host = nullptr;
    }
    CMessageCallBack::Release();
    OcppProtocol_Init(0, nullptr);
}

void RecordingHost::Message(const char* record, uint32_t length) {
    std::lock_guard<std::mutex> lock(g_hostMutex);
    if (g_host != nullptr) g_host->Store(record, length);
}

void RecordingHost::Store(const char* record, uint32_t length) {
    std::function<void(const char*, uint32_t)> hook;
    {
        std::unique_lock<std::mutex> lock(m_mutex);
        HostRecord r;
        r.type = length >= 4 ? Int32At(std::string(record, 4), 0) : -1;
        r.bytes.assign(record, length);
        m_records.push_back(std::move(r));
        hook = m_hook;
        if (m_blockNext) {
            m_blockNext = false;
            m_blocked = true;
            m_release = false;
            m_cv.notify_all();
            m_cv.wait(lock, [this] { return m_release; });
            m_blocked = false;
        }
        m_cv.notify_all();
    }
    if (hook) hook(record, length);
}

std::vector<HostRecord> RecordingHost::Records() {
    std::lock_guard<std::mutex> lock(m_mutex);
    return m_records;
}

std::vector<int32_t> RecordingHost::Types() {
    std::vector<int32_t> types;
    for (const auto& r : Records()) types.push_back(r.type);
    return types;
}

size_t RecordingHost::Count() {
    std::lock_guard<std::mutex> lock(m_mutex);
    return m_records.size();
}

size_t RecordingHost::Count(int32_t type) {
    size_t n = 0;
    for (const auto& r : Records()) n += r.type == type;
    return n;
}

void RecordingHost::Clear() {
    std::lock_guard<std::mutex> lock(m_mutex);
    m_records.clear();
}

bool RecordingHost::WaitForCount(size_t n, int timeoutMs) {
    return WaitFor([&] { return Count() >= n; }, timeoutMs);
}

bool RecordingHost::WaitForType(int32_t type, size_t n, int timeoutMs) {
    return WaitFor([&] { return Count(type) >= n; }, timeoutMs);
}

std::vector<VariableDataItem> RecordingHost::SetVariablesEntries(const std::string& id) {
    std::vector<VariableDataItem> items;
    const bool found = WaitFor([&] {
        for (const HostRecord& r : Records()) {
            SetVariablesReq head;
            if (r.type != SERVERRECVTYPE_SETVARIABLES) continue;
            memcpy(&head, r.bytes.data(), sizeof head);
            if (id != head.base.messageId) continue;
            EXPECT_EQ(r.bytes.size(), sizeof head + sizeof(VariableDataItem) * static_cast<size_t>(head.count));
            items.resize(static_cast<size_t>(head.count));
            memcpy(items.data(), r.bytes.data() + sizeof head, sizeof(VariableDataItem) * items.size());
            return true;
        }
        return false;
    });
    if (!found) ADD_FAILURE() << "no SetVariables record for " << id;
    return items;
}

void RecordingHost::SettleSetVariables(const std::string& id) {
    std::vector<VariableDataItem> items = SetVariablesEntries(id);
    OcppProtocol_SetVariables(id.c_str(), static_cast<int>(items.size()), items.data());
}

void RecordingHost::BlockNext() {
    std::lock_guard<std::mutex> lock(m_mutex);
    m_blockNext = true;
}

bool RecordingHost::WaitBlocked(int timeoutMs) {
    std::unique_lock<std::mutex> lock(m_mutex);
    return m_cv.wait_for(lock, std::chrono::milliseconds(timeoutMs), [this] { return m_blocked; });
}

void RecordingHost::Unblock() {
    std::lock_guard<std::mutex> lock(m_mutex);
    m_blockNext = false;
    m_release = true;
    m_cv.notify_all();
}

void RecordingHost::OnRecord(std::function<void(const char*, uint32_t)> hook) {
    std::lock_guard<std::mutex> lock(m_mutex);
    m_hook = std::move(hook);
}

int32_t Int32At(const std::string& bytes, size_t offset) {
    int32_t v = 0;
    if (offset + sizeof v <= bytes.size()) memcpy(&v, bytes.data() + offset, sizeof v);
    return v;
}

void ResetSdkState() {
    CMessageCallBack::Release();
    g_eOcppProtocol = OCPPPROTOCOL_NONE;
    g_eSdkStatus = SDKSTATUS_NONE;
    g_bNeedReportVariables = 1;
    g_iPrevUnconnectTimeSec = 0;
    g_iPrevConnectTimeSec = 0;
    g_bEnterOfflineMode = 0;
    g_bInvalidCsmsCertificate = 0;
    g_bInvalidTLSVersion = 0;
    g_bInvalidTLSCiphersuite = 0;
    OcppProtocol_SetSecurityEventObserver(nullptr);
    // CALLs that reach the dispatcher are noted, so answers to them are checked against their schema.
    CMessageCallBack::SetFrameObserver([](const char* frame, uint32_t len) { NoteInboundCall(frame, len); });
    COutboundSender::SetOfflineStore(nullptr);
    COutboundSender::SetTransactionQueue(nullptr);
}

}  // namespace ocpptest
