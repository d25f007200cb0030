// The host's answers to the CSMS's requests, decided by a policy per action and
// sent from a thread of their own, like a real controller.
#include <condition_variable>
#include <deque>
#include <map>
#include <mutex>

#include "Sim.h"

namespace sim {

enum class Mode { Answer, NoAnswer, Error };

struct Policy {
    Mode mode = Mode::Answer;
    int status = 0;  // index into the action's status list
    int errorCode = RESPONSEERRORCODE_GENERICERROR;
};

using AnswerFn = int (*)(const char* messageId, int status);

struct Action {
    int type;
    const char* name;
    std::vector<const char*> statuses;
    AnswerFn answer;
};

const std::vector<Action>& Actions() {
    static const std::vector<Action> actions = {
        {SERVERRECVTYPE_CHANGEAVAILABILITY, "ChangeAvailability", {"Accepted", "Rejected", "Scheduled"},
         Ocpp20Protocol_ChangeAvailability},
        {SERVERRECVTYPE_CANCELRESERVATION, "CancelReservation", {"Accepted", "Rejected"}, Ocpp20Protocol_CancelReservation},
        {SERVERRECVTYPE_TRIGGERMESSAGE, "TriggerMessage", {"Accepted", "Rejected", "NotImplemented"},
         Ocpp20Protocol_TriggerMessage},
        {SERVERRECVTYPE_RESERVENOW, "ReserveNow", {"Accepted", "Faulted", "Occupied", "Rejected", "Unavailable"},
         Ocpp20Protocol_ReserveNow},
        {SERVERRECVTYPE_DATATRANSFER, "DataTransfer", {"Accepted", "Rejected", "UnknownMessageId", "UnknownVendorId"},
         [](const char* id, int s) { return Ocpp20Protocol_DataTransfer(id, s, nullptr, 0); }},
        {SERVERRECVTYPE_CERTIFICATESIGNED, "CertificateSigned", {"Accepted", "Rejected"}, Ocpp20Protocol_CertificateSigned},
        {SERVERRECVTYPE_CLEARDISPLAYMESSAGE, "ClearDisplayMessage", {"Accepted", "Unknown"},
         Ocpp20Protocol_ClearDisplayMessage},
        {SERVERRECVTYPE_UNLOCKCONNECTOR, "UnlockConnector",
         {"Unlocked", "UnlockFailed", "OngoingAuthorizedTransaction", "UnknownConnector"}, Ocpp20Protocol_UnlockConnector},
        {SERVERRECVTYPE_UNPUBLISHFIRMWARE, "UnpublishFirmware", {"DownloadOngoing", "NoFirmware", "Unpublished"},
         Ocpp20Protocol_UnpublishFirmware},
        {SERVERRECVTYPE_UPDATEDTRANSACTIONCOST, "CostUpdated", {"Accepted"},
         [](const char* id, int) { return Ocpp20Protocol_CostUpdated(id); }},
        {SERVERRECVTYPE_DELETECERTIFICATE, "DeleteCertificate", {"Accepted", "Failed", "NotFound"},
         Ocpp20Protocol_DeleteCertificate},
        {SERVERRECVTYPE_INSTALLCERTIFICATE, "InstallCertificate", {"Accepted", "Rejected", "Failed"},
         Ocpp20Protocol_InstallCertificate},
        {SERVERRECVTYPE_GETINSTALLEDCERTIFICATEIDS, "GetInstalledCertificateIds", {"Accepted", "NotFound"},
         [](const char* id, int s) { return Ocpp20Protocol_GetInstalledCertificateIds(id, s, nullptr, 0); }},
        {SERVERRECVTYPE_UPDATEFIRMWARE, "UpdateFirmware",
         {"Accepted", "Rejected", "AcceptedCanceled", "InvalidCertificate", "RevokedCertificate"},
         Ocpp20Protocol_UpdateFirmware},
        {SERVERRECVTYPE_RESET, "Reset", {"Accepted", "Rejected", "Scheduled"}, Ocpp20Protocol_Reset},
        {SERVERRECVTYPE_REQUESTSTARTTRANSACTION, "RequestStartTransaction", {"Accepted", "Rejected"},
         [](const char* id, int s) { return Ocpp20Protocol_RequestStartTransaction(id, s, nullptr); }},
        {SERVERRECVTYPE_REQUESTSTOPTRANSACTION, "RequestStopTransaction", {"Accepted", "Rejected"},
         Ocpp20Protocol_RequestStopTransaction},
        {SERVERRECVTYPE_PUBLISHFIRMWARE, "PublishFirmware", {"Accepted", "Rejected"}, Ocpp20Protocol_PublishFirmware},
        {SERVERRECVTYPE_GETLOG, "GetLog", {"Accepted", "Rejected", "AcceptedCanceled"},
         [](const char* id, int s) { return Ocpp20Protocol_GetLog(id, s, "station-sim.log"); }},
        // Decided per entry, for the variables the host owns (see AnswerSetVariables).
        {SERVERRECVTYPE_SETVARIABLES, "SetVariables",
         {"Accepted", "Rejected", "UnknownComponent", "UnknownVariable", "NotSupportedAttributeType", "RebootRequired"},
         nullptr},
    };
    return actions;
}

const Action* FindAction(int type) {
    for (const Action& a : Actions())
        if (a.type == type) return &a;
    return nullptr;
}

const Action* FindAction(const std::string& name) {
    for (const Action& a : Actions())
        if (name == a.name) return &a;
    return nullptr;
}

const char* const kErrorCodes[] = {"FormatViolation", "GenericError", "InternalError", "MessageTypeNotSupported",
                                   "NotImplemented", "NotSupported", "OccurrenceConstraintViolation",
                                   "PropertyConstraintViolation", "ProtocolError", "RpcFrameworkError",
                                   "SecurityError", "TypeConstraintViolation"};

std::mutex g_policyMutex;
std::map<std::string, Policy> g_policies;

Policy PolicyFor(const std::string& action) {
    std::lock_guard<std::mutex> lock(g_policyMutex);
    auto it = g_policies.find(action);
    return it == g_policies.end() ? Policy() : it->second;
}

// ---- answers (on a thread of their own, like a real controller) ----------------

struct Pending {
    const Action* action;
    std::string messageId;
    std::vector<VariableDataItem> variables;  // SetVariables only
    FollowUp followUp;
};

std::mutex g_queueMutex;
std::condition_variable g_queueCv;
std::deque<Pending> g_queue;
bool g_stopping = false;

// Every entry goes back; the host decides only those the library left to it.
int AnswerSetVariables(Pending& p, int status) {
    std::vector<VariableDataItem> accepted;
    for (VariableDataItem& item : p.variables) {
        if (item.status != VARIABLESTATUS_HOSTDECIDE) continue;
        item.status = static_cast<int8_t>(status);
        if (status == VARIABLESTATUS_ACCEPTED) accepted.push_back(item);
    }
    Remember(accepted);
    return OcppProtocol_SetVariables(p.messageId.c_str(), static_cast<int>(p.variables.size()), p.variables.data());
}

void Answer(Pending& p) {
    const Policy policy = PolicyFor(p.action->name);
    Json::Value v = Event("answer");
    v["action"] = p.action->name;
    v["messageId"] = p.messageId;
    if (policy.mode == Mode::NoAnswer) {
        v["status"] = "NoAnswer";
    } else if (policy.mode == Mode::Error) {
        OcppProtocol_ResponseError(p.messageId.c_str(), static_cast<RESPONSEERRORCODE>(policy.errorCode),
                                   "refused by the station simulator", nullptr);
        v["status"] = "Error";
        v["errorCode"] = kErrorCodes[policy.errorCode];
    } else {
        v["status"] = p.action->statuses[static_cast<size_t>(policy.status)];
        if (p.followUp.answer)
            v["sent"] = p.followUp.answer(p.messageId.c_str(), policy.status);
        else
            v["sent"] = p.action->answer != nullptr ? p.action->answer(p.messageId.c_str(), policy.status)
                                                    : AnswerSetVariables(p, policy.status);
    }
    Emit(v);
    if (policy.mode == Mode::Answer && p.followUp.then) p.followUp.then(policy.status);
}

void AnswerLoop() {
    std::unique_lock<std::mutex> lock(g_queueMutex);
    for (;;) {
        g_queueCv.wait(lock, [] { return g_stopping || !g_queue.empty(); });
        if (g_queue.empty()) return;
        Pending p = g_queue.front();
        g_queue.pop_front();
        lock.unlock();
        Answer(p);
        lock.lock();
    }
}

const char* ActionName(const Action* action) { return action != nullptr ? action->name : nullptr; }

void QueueAnswer(const Action* action, const std::string& messageId, std::vector<VariableDataItem> variables,
                 FollowUp followUp) {
    std::lock_guard<std::mutex> lock(g_queueMutex);
    g_queue.push_back(Pending{action, messageId, std::move(variables), std::move(followUp)});
    g_queueCv.notify_one();
}

void StopAnswers() {
    std::lock_guard<std::mutex> lock(g_queueMutex);
    g_stopping = true;
    g_queueCv.notify_all();
}

int SetPolicy(const Json::Value& cmd, std::string* error) {
    const std::string name = cmd.get("action", "").asString();
    const std::string status = cmd.get("status", "Accepted").asString();
    const Action* action = FindAction(name);
    if (action == nullptr) {
        *error = "unknown action " + name;
        return 0;
    }
    Policy p;
    if (status == "NoAnswer") {
        p.mode = Mode::NoAnswer;
    } else if (status == "Error") {
        p.mode = Mode::Error;
        p.errorCode = IndexOf(std::vector<const char*>(std::begin(kErrorCodes), std::end(kErrorCodes)),
                              cmd.get("code", "GenericError").asString(), RESPONSEERRORCODE_GENERICERROR);
    } else {
        p.status = IndexOf(action->statuses, status, -1);
        if (p.status < 0) {
            *error = "unknown status " + status + " for " + name;
            return 0;
        }
    }
    std::lock_guard<std::mutex> lock(g_policyMutex);
    g_policies[name] = p;
    return 1;
}

}  // namespace sim
