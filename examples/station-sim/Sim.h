#pragma once
// Shared by the station simulator's parts: options, JSON-line output and the
// hooks each part offers the others.
#include <OcppProtocol.h>
#include <json/json.h>

#include <cstdint>
#include <cstdio>
#include <cstring>
#include <functional>
#include <string>
#include <vector>

namespace sim {

struct Options {
    std::string url, identity = "SIM001", protocol = "OCPP20", user, password;
    std::string caFile, certFile, keyFile, cacheDir;
    int profile = 0, evses = 1, connectors = 1, messageTimeout = 10, backOff = 3, logLevel = 2;
    bool setClock = false;
};

extern Options g_opt;
extern FILE* g_out;

// ---- output -----------------------------------------------------------------
void Emit(const Json::Value& v);
Json::Value Event(const char* name);

// Text fields of records are NUL-terminated within their arrays; never read past them.
template <size_t N>
std::string Text(const char (&field)[N]) {
    return std::string(field, strnlen(field, N));
}

template <size_t N>
void Fill(char (&field)[N], const Json::Value& v, const char* key, const char* fallback = "") {
    const std::string s = v.isMember(key) ? v[key].asString() : fallback;
    std::snprintf(field, N, "%s", s.c_str());
}

int IndexOf(const std::vector<const char*>& names, const std::string& name, int fallback);
const char* NameAt(const std::vector<const char*>& names, int index, const char* fallback);

// OCPP names of the enumerations the host passes as indexes.
extern const std::vector<const char*> kTokenTypes, kTokenStatuses;
extern const std::vector<const char*> kTriggerReasons, kChargingStates, kStopReasons;

// Copies a packed record out of the library's buffer only when it is long enough.
template <typename T>
bool Read(const char* record, uint32_t length, T* out) {
    if (length < sizeof(T)) return false;
    std::memcpy(out, record, sizeof(T));
    return true;
}

// ---- variables (Variables.cpp) ----------------------------------------------
VariableDataItem ItemFromJson(const Json::Value& j);
Json::Value ItemToJson(const VariableDataItem& item);
Json::Value GetVariableData(const Json::Value& cmd);
int SetVariableData(const Json::Value& cmd);
void DeclareIdentity();
void ReportVariables();
// Values the CSMS set on host-owned variables survive the next report.
void Remember(const std::vector<VariableDataItem>& accepted);

// ---- answers to the CSMS's requests (Answers.cpp) -----------------------------
struct Action;
const Action* FindAction(int type);
const char* ActionName(const Action* action);
// What a station does about a request beyond its answer: `answer` replaces the action's own
// answer entry, `then` acts once the answer went out (with the status index answered).
struct FollowUp {
    std::function<int(const char* messageId, int status)> answer;
    std::function<void(int status)> then;
};
// Queues the host's answer to a request; answered on the answer thread.
void QueueAnswer(const Action* action, const std::string& messageId, std::vector<VariableDataItem> variables,
                 FollowUp followUp = {});
void AnswerLoop();
void StopAnswers();
int SetPolicy(const Json::Value& cmd, std::string* error);

// ---- records and the station's own state (Records.cpp) ------------------------
void OnRecord(const char* record, uint32_t length);
void OnConnected();
void OnDisconnected();
void OnLog(LOGLEVEL level, const char* function, const char* file, int line, const char* text);
int BootCommand(const Json::Value& cmd);

// ---- charging sessions (Sessions.cpp) -------------------------------------------
// -1 when `name` is not a session command, else its rc.
int SessionCommand(const std::string& name, const Json::Value& cmd, Json::Value& result, std::string* error);
void RemoteStart(const RequestStartTransactionReq& request);
std::string RemoteStartTransactionId(const RequestStartTransactionReq& request);
void RemoteStop(const RequestStopTransactionReq& request);
void Deauthorize(const std::string& transactionId);
void StartSessions();
void StopSessions();

// ---- commands (Commands.cpp) ---------------------------------------------------
// Handles one command line; false when the simulator should stop.
bool HandleLine(const std::string& line);

}  // namespace sim
