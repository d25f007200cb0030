#pragma once
// A host application as the library sees it: one callback table that records
// every notification and can hold the notification thread inside a callback.
#include <OcppProtocol.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <condition_variable>
#include <cstdint>
#include <cstring>
#include <functional>
#include <mutex>
#include <string>
#include <vector>

namespace ocpptest {

struct HostRecord {
    int32_t type;
    std::string bytes;  // the whole record as delivered
};

class RecordingHost {
public:
    RecordingHost();  // registers itself with OcppProtocol_Init(0, ...)
    ~RecordingHost();

    std::vector<HostRecord> Records();
    std::vector<int32_t> Types();
    size_t Count();
    size_t Count(int32_t type);
    void Clear();

    bool WaitForCount(size_t n, int timeoutMs = 2000);
    bool WaitForType(int32_t type, size_t n = 1, int timeoutMs = 2000);
    // The n-th record of `type` as the host reads it, once it has arrived; a later
    // record of another type cannot take its place.
    template <class T>
    T RecordOf(int32_t type, size_t n = 1) {
        T record{};
        EXPECT_TRUE(WaitForType(type, n)) << "no record of type " << type;
        size_t seen = 0;
        for (const HostRecord& r : Records()) {
            if (r.type != type || ++seen != n) continue;
            EXPECT_EQ(r.bytes.size(), sizeof record) << "record of type " << type;
            std::memcpy(&record, r.bytes.data(), std::min(sizeof record, r.bytes.size()));
        }
        return record;
    }
    // The entries of the SetVariables record for CSMS request `id`, once it has arrived.
    std::vector<VariableDataItem> SetVariablesEntries(const std::string& id);
    // Answers SetVariables request `id` with the verdicts the library gave it.
    void SettleSetVariables(const std::string& id);

    // The next record delivered keeps the notification thread inside the callback until Unblock().
    void BlockNext();
    bool WaitBlocked(int timeoutMs = 2000);
    void Unblock();

    // Runs inside the callback (on the notification thread) after the record is stored.
    void OnRecord(std::function<void(const char*, uint32_t)> hook);

private:
    static void Message(const char* record, uint32_t length);
    void Store(const char* record, uint32_t length);

    OcppProtocolCallBack m_table;
    std::mutex m_mutex;
    std::condition_variable m_cv;
    std::vector<HostRecord> m_records;
    bool m_blockNext = false;
    bool m_blocked = false;
    bool m_release = false;
    std::function<void(const char*, uint32_t)> m_hook;
};

// Field of a record at a byte offset, as the host reads it.
int32_t Int32At(const std::string& bytes, size_t offset);

// Brings the library's process-wide state back to its start values, for tests
// that run in one process.
void ResetSdkState();

}  // namespace ocpptest
