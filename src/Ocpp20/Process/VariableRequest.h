#pragma once
// The CSMS's GetVariables and SetVariables requests against the device model.
#include <OcppVariables.h>

#include <pthread.h>

#include <deque>
#include <string>
#include <vector>

class CVariableRequest {
public:
    // Checks a SetVariables request against the store and hands it to the host
    // (record SetVariablesReq), or answers a CALLERROR when it is over the limits.
    static void OnSetVariables(const char* messageId, const char* frame, int len);
    // Answered by the library alone.
    static void OnGetVariables(const char* messageId, const char* frame, int len);

    // The host's answer to a SetVariables record, with the library's own verdicts
    // put back: the host settles only the entries that were marked for it.
    // Entries it left undecided are Rejected.
    static std::vector<VariableDataItem> Settle(const char* messageId, int count, const VariableDataItem* items);
    // Builds and sends the CALLRESULT for settled entries; 1 when it left.
    static int SendSetVariablesResponse(const char* messageId, const std::vector<VariableDataItem>& items);

    // Forgets every request still waiting for the host.
    static void Clear();

private:
    struct Pending {
        std::string messageId;
        std::vector<int> statuses;  // the library's verdict per entry
    };
    // Requests the host has not answered yet; the oldest fall off, as their CALLs have long timed out.
    static const size_t kMaxPending = 16;
    static pthread_mutex_t s_mutex;
    static std::deque<Pending> s_pending;
};
