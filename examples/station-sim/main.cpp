// Station simulator: a charging-station host driven by JSON lines on standard
// input, reporting every record, status change and chosen log line as JSON
// lines on standard output. It answers the CSMS requests the host owns with a
// policy (Accepted unless a command says otherwise).
#include <OcppProtocol.h>
#include <getopt.h>
#include <json/json.h>
#include <linux/capability.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <condition_variable>
#include <cstdio>
#include <cstring>
#include <deque>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <map>
#include <mutex>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

namespace {

struct Options {
    std::string url, identity = "SIM001", protocol = "OCPP20", user, password;
    std::string caFile, certFile, keyFile, cacheDir;
    int profile = 0, evses = 1, connectors = 1, messageTimeout = 10, backOff = 3, logLevel = 2;
    bool setClock = false;
};

Options g_opt;

// ---- output -----------------------------------------------------------------

std::mutex g_outMutex;
FILE* g_out = stdout;

void Emit(const Json::Value& v) {
    Json::StreamWriterBuilder builder;
    builder["indentation"] = "";
    builder["emitUTF8"] = true;
    const std::string line = Json::writeString(builder, v);
    std::lock_guard<std::mutex> lock(g_outMutex);
    std::fwrite(line.data(), 1, line.size(), g_out);
    std::fputc('\n', g_out);
    std::fflush(g_out);
}

Json::Value Event(const char* name) {
    Json::Value v(Json::objectValue);
    v["event"] = name;
    return v;
}

// Text fields of records are NUL-terminated within their arrays; never read past them.
template <size_t N>
std::string Text(const char (&field)[N]) {
    return std::string(field, strnlen(field, N));
}

// ---- variables --------------------------------------------------------------

template <size_t N>
void Fill(char (&field)[N], const Json::Value& v, const char* key, const char* fallback = "") {
    const std::string s = v.isMember(key) ? v[key].asString() : fallback;
    std::snprintf(field, N, "%s", s.c_str());
}

int IndexOf(const std::vector<const char*>& names, const std::string& name, int fallback) {
    for (size_t i = 0; i < names.size(); ++i)
        if (name == names[i]) return static_cast<int>(i);
    return fallback;
}

VariableDataItem ItemFromJson(const Json::Value& j) {
    VariableDataItem item;
    std::memset(&item, 0, sizeof item);
    item.evseId = static_cast<uint8_t>(j.get("evse", 0).asInt());
    item.connectorId = static_cast<uint8_t>(j.get("connector", 0).asInt());
    item.status = VARIABLESTATUS_ACCEPTED;
    item.mode = static_cast<int8_t>(IndexOf({"ReadWrite", "ReadOnly", "WriteOnly"}, j.get("mode", "").asString(), 0));
    item.attributeType =
        static_cast<int8_t>(IndexOf({"Actual", "Target", "MinSet", "MaxSet"}, j.get("attributeType", "").asString(), 0));
    item.constant = static_cast<int8_t>(j.get("constant", false).asBool());
    item.notPersistent = static_cast<int8_t>(!j.get("persistent", true).asBool());
    Fill(item.attributeValue, j, "value");
    Fill(item.componentName, j, "component");
    Fill(item.variableName, j, "variable");
    Fill(item.componentInstance, j, "componentInstance");
    Fill(item.variableInstance, j, "variableInstance");
    Fill(item.unit, j, "unit");
    item.dataType = static_cast<int8_t>(IndexOf({"string", "decimal", "integer", "dateTime", "boolean", "OptionList",
                                                 "SequenceList", "MemberList"},
                                                j.get("dataType", "").asString(), 0));
    Fill(item.valuesList, j, "valuesList");
    item.supportsMonitoring = 1;
    return item;
}

Json::Value ItemToJson(const VariableDataItem& item) {
    Json::Value v(Json::objectValue);
    v["component"] = Text(item.componentName);
    v["variable"] = Text(item.variableName);
    if (item.componentInstance[0] != '\0') v["componentInstance"] = Text(item.componentInstance);
    if (item.variableInstance[0] != '\0') v["variableInstance"] = Text(item.variableInstance);
    v["evse"] = item.evseId;
    v["connector"] = item.connectorId;
    v["value"] = Text(item.attributeValue);
    v["mode"] = item.mode;
    v["attributeType"] = item.attributeType;
    return v;
}

Json::Value GetVariableData(const Json::Value& cmd) {
    const VariableDataItem query = ItemFromJson(cmd);
    int count = 16;
    std::vector<VariableDataItem> out(static_cast<size_t>(count));
    Json::Value list(Json::arrayValue);
    if (OcppProtocol_GetVariableData(&query, cmd.get("exact", 1).asInt(), &count, out.data()) == 1)
        for (int i = 0; i < count && i < static_cast<int>(out.size()); ++i) list.append(ItemToJson(out[static_cast<size_t>(i)]));
    return list;
}

bool SameVariable(const VariableDataItem& a, const VariableDataItem& b) {
    return Text(a.componentName) == Text(b.componentName) && Text(a.variableName) == Text(b.variableName) &&
           Text(a.componentInstance) == Text(b.componentInstance) &&
           Text(a.variableInstance) == Text(b.variableInstance) && a.evseId == b.evseId &&
           a.connectorId == b.connectorId && a.attributeType == b.attributeType;
}

// Variables the host declared (the station identity first: the library builds its url from it).
// Each CSMS has its own store, so they are declared again whenever the library asks.
std::mutex g_variablesMutex;
std::vector<VariableDataItem> g_declared;

int Declare(const std::vector<VariableDataItem>& items) {
    std::lock_guard<std::mutex> lock(g_variablesMutex);
    for (const VariableDataItem& item : items) {
        auto it = std::find_if(g_declared.begin(), g_declared.end(),
                               [&item](const VariableDataItem& d) { return SameVariable(d, item); });
        if (it == g_declared.end())
            g_declared.push_back(item);
        else
            *it = item;
    }
    return OcppProtocol_SetVariableData(static_cast<int>(items.size()), items.data(), 0);
}

// Values the CSMS set on host-owned variables survive the next report.
void Remember(const std::vector<VariableDataItem>& accepted) {
    std::lock_guard<std::mutex> lock(g_variablesMutex);
    for (const VariableDataItem& item : accepted)
        for (VariableDataItem& d : g_declared)
            if (SameVariable(d, item)) std::memcpy(d.attributeValue, item.attributeValue, sizeof d.attributeValue);
}

void ReportVariables() {
    std::lock_guard<std::mutex> lock(g_variablesMutex);
    if (OcppProtocol_SetVariableData(static_cast<int>(g_declared.size()), g_declared.data(), 0) == 1)
        OcppProtocol_SetNeedReportVariables(0);
}

void DeclareIdentity() {
    Json::Value j(Json::objectValue);
    j["component"] = "SecurityCtrlr";
    j["variable"] = "Identity";
    j["value"] = g_opt.identity;
    j["mode"] = "ReadOnly";
    Declare({ItemFromJson(j)});
}

int SetVariableData(const Json::Value& cmd) {
    std::vector<VariableDataItem> items;
    for (const Json::Value& j : cmd["items"]) items.push_back(ItemFromJson(j));
    if (items.empty()) return 0;
    if (cmd.get("fromResponse", 0).asInt() == 1)
        return OcppProtocol_SetVariableData(static_cast<int>(items.size()), items.data(), 1);
    return Declare(items);
}

// ---- answer policy ----------------------------------------------------------

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
        v["sent"] = p.action->answer != nullptr ? p.action->answer(p.messageId.c_str(), policy.status)
                                                : AnswerSetVariables(p, policy.status);
    }
    Emit(v);
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

// ---- records ----------------------------------------------------------------

const char* StatusName(int s) {
    switch (s) {
        case SDKSTATUS_DISCONNECTED: return "Disconnected";
        case SDKSTATUS_CONNECTED: return "Connected";
        case SDKSTATUS_SUBMITTING: return "Submitting";
        case SDKSTATUS_OK: return "OK";
        case SDKSTATUS_NONE: return "None";
        default: return "?";
    }
}

// Copies a packed record out of the library's buffer only when it is long enough.
template <typename T>
bool Read(const char* record, uint32_t length, T* out) {
    if (length < sizeof(T)) return false;
    std::memcpy(out, record, sizeof(T));
    return true;
}

struct BootSettings {
    bool requested = false, onReconnect = true;
    BOOTREASON reason = BOOTREASON_POWERUP;
    std::string model = "SIM-1", vendor = "Quorvane";
    BootNotificationOption option{};
};
std::mutex g_bootMutex;
BootSettings g_boot;
bool g_seenConnected = false;

void Boot(BOOTREASON reason) {
    BootSettings b;
    {
        std::lock_guard<std::mutex> lock(g_bootMutex);
        b = g_boot;
    }
    OcppProtocol_BootNotification(reason, b.model.c_str(), b.vendor.c_str(), &b.option);
}

// Every connector starts Available; the library holds the report until the station is online.
void ReportConnectorsOnce() {
    static std::once_flag once;
    std::call_once(once, [] {
        for (int evse = 1; evse <= g_opt.evses; ++evse)
            for (int connector = 1; connector <= g_opt.connectors; ++connector)
                OcppProtocol_StatusNotification(evse, connector, CONNECTORERRORCODE_NOERROR, CONNECTORSTATUS_AVAILABLE);
    });
}

void DecodeStatus(const SdkStatusChange& r, Json::Value& v) {
    v["status"] = r.status;
    v["statusName"] = StatusName(r.status);
    v["statusChangeOption"] = r.statusChangeOption;
    v["protocol"] = r.protocol;
    v["needReportVariables"] = r.needReportVariables;
    v["resetFactoryConfig"] = r.resetFactoryConfig;
    if (r.needReportVariables == 1 && r.protocol != OCPPPROTOCOL_NONE) ReportVariables();
    if (r.protocol != OCPPPROTOCOL_NONE) ReportConnectorsOnce();
    if (r.status != SDKSTATUS_CONNECTED) return;
    // A host boots again after every new link when it was asked to.
    bool reboot = false;
    {
        std::lock_guard<std::mutex> lock(g_bootMutex);
        reboot = g_seenConnected && g_boot.requested && g_boot.onReconnect;
        g_seenConnected = true;
    }
    if (reboot) Boot(BOOTREASON_UNKNOWN);
}

void OnRecord(const char* record, uint32_t length) {
    ServerRecvBase base;
    if (!Read(record, length, &base)) return;
    Json::Value v = Event("record");
    v["type"] = base.type;
    v["length"] = length;
    const std::string messageId = Text(base.messageId);
    if (!messageId.empty()) v["messageId"] = messageId;
    // Code 5 is SetVariables under 2.0.1 and 2.1 but a 1.6 configuration change, which this host only shows.
    const bool ocpp16 = OcppProtocol_GetOcppProtocol() == OCPPPROTOCOL_16;
    const Action* action = ocpp16 && base.type == SERVERRECVTYPE_SETVARIABLES ? nullptr : FindAction(base.type);
    if (action != nullptr) v["name"] = action->name;
    std::vector<VariableDataItem> variables;
    switch (base.type) {
        case SERVERRECVTYPE_SDKSTATUSCHANGE: {
            SdkStatusChange r;
            v["name"] = "SdkStatusChange";
            if (Read(record, length, &r)) DecodeStatus(r, v);
            break;
        }
        case SERVERRECVTYPE_ENTEROFFLINEMODE:
            v["name"] = "EnterOfflineMode";
            break;
        case SERVERRECVTYPE_SETVARIABLES: {
            if (ocpp16) {
                v["name"] = "ChangeConfiguration";
                break;
            }
            SetVariablesReq head;
            if (!Read(record, length, &head) || head.count < 0 ||
                (length - sizeof head) / sizeof(VariableDataItem) < static_cast<uint32_t>(head.count))
                break;
            variables.resize(static_cast<size_t>(head.count));
            std::memcpy(variables.data(), record + sizeof head, variables.size() * sizeof(VariableDataItem));
            v["variables"] = Json::Value(Json::arrayValue);
            for (const VariableDataItem& item : variables) {
                Json::Value j = ItemToJson(item);
                j["status"] = item.status;
                v["variables"].append(j);
            }
            break;
        }
        case SERVERRECVTYPE_RESET: {
            ResetReq r;
            if (Read(record, length, &r)) {
                v["resetType"] = r.type == 0 ? "Immediate" : "OnIdle";
                v["evseId"] = r.evseId;
            }
            break;
        }
        case SERVERRECVTYPE_CHANGEAVAILABILITY: {
            ChangeAvailabilityReq r;
            if (Read(record, length, &r)) {
                v["evseId"] = r.evseId;
                v["connectorId"] = r.connectorId;
                v["operationalStatus"] = r.operationalStatus == 1 ? "Operative" : "Inoperative";
            }
            break;
        }
        case SERVERRECVTYPE_TRIGGERMESSAGE: {
            TriggerMessageReq r;
            if (Read(record, length, &r)) {
                v["requestedMessage"] = r.requestedMessage;
                v["evseId"] = r.evseId;
            }
            break;
        }
        case SERVERRECVTYPE_UNLOCKCONNECTOR: {
            UnlockConnectorReq r;
            if (Read(record, length, &r)) {
                v["evseId"] = r.evseId;
                v["connectorId"] = r.connectorId;
            }
            break;
        }
        case SERVERRECVTYPE_DATATRANSFER: {
            DataTransferReq r;
            if (Read(record, length, &r)) {
                v["vendorId"] = Text(r.vendorId);
                v["data"] = Text(r.data);
            }
            break;
        }
        case SERVERRECVTYPE_RESERVENOW: {
            ReserveNowReq r;
            if (Read(record, length, &r)) {
                v["id"] = r.id;
                v["evseId"] = r.evseId;
                v["idToken"] = Text(r.idToken);
                v["idTokenType"] = r.idTokenType;
                v["expiryDateTime"] = r.expiryDateTime;
            }
            break;
        }
        case SERVERRECVTYPE_CANCELRESERVATION: {
            CancelReservationReq r;
            if (Read(record, length, &r)) v["reservationId"] = r.reservationId;
            break;
        }
        case SERVERRECVTYPE_REQUESTSTARTTRANSACTION: {
            RequestStartTransactionReq r;
            if (Read(record, length, &r)) {
                v["evseId"] = r.evseId;
                v["remoteStartId"] = r.remoteStartId;
            }
            break;
        }
        default:
            break;
    }
    Emit(v);
    // A cost update that rides on a TransactionEvent answer asks for no reply.
    if (action == nullptr || messageId.empty()) return;
    std::lock_guard<std::mutex> lock(g_queueMutex);
    g_queue.push_back(Pending{action, messageId, std::move(variables)});
    g_queueCv.notify_one();
}

void OnConnected() { Emit(Event("connected")); }
void OnDisconnected() { Emit(Event("disconnected")); }

void OnLog(LOGLEVEL level, const char* function, const char*, int, const char* text) {
    if (static_cast<int>(level) < g_opt.logLevel || text == nullptr) return;
    Json::Value v = Event("log");
    v["level"] = static_cast<int>(level);
    v["function"] = function != nullptr ? function : "";
    std::string t = text;
    while (!t.empty() && (t.back() == '\n' || t.back() == '\r')) t.pop_back();
    v["text"] = t;
    Emit(v);
}

// ---- commands ---------------------------------------------------------------

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

const std::vector<const char*> kConnectorStatuses = {"Available", "Occupied", "Reserved", "Unavailable", "Faulted"};
const std::vector<const char*> kConnectorErrors = {
    "NoError",           "ConnectorLockFailure", "EVCommunicationError", "GroundFailure",
    "HighTemperature",   "InternalError",        "LocalListConflict",    "OtherError",
    "OverCurrentFailure", "OverVoltage",         "PowerMeterFailure",    "PowerSwitchFailure",
    "ReaderFailure",     "ResetFailure",         "UnderVoltage",         "WeakSignal"};

int StatusCommand(const Json::Value& cmd, std::string* error) {
    const int status = IndexOf(kConnectorStatuses, cmd.get("status", "Available").asString(), -1);
    const int code = IndexOf(kConnectorErrors, cmd.get("errorCode", "NoError").asString(), -1);
    if (status < 0 || code < 0) {
        *error = "unknown status or errorCode";
        return 0;
    }
    return OcppProtocol_StatusNotification(cmd.get("evse", 1).asInt(), cmd.get("connector", 1).asInt(),
                                           static_cast<CONNECTORERRORCODE>(code), static_cast<CONNECTORSTATUS>(status));
}

// The host says a reservation ended (it expired or the host removed it).
int ReservationStatusCommand(const Json::Value& cmd, std::string* error) {
    const int status = IndexOf({"Expired", "Removed"}, cmd.get("status", "Expired").asString(), -1);
    if (status < 0 || !cmd.isMember("id")) {
        *error = "needs id and a status Expired or Removed";
        return 0;
    }
    return Ocpp20Protocol_ReservationStatusUpdate(cmd["id"].asInt(), status);
}

// What the library keeps in its reservation store, from every CSMS folder of the cache.
Json::Value StoredReservations() {
    Json::Value list(Json::arrayValue);
    std::error_code ec;
    for (const auto& entry : std::filesystem::directory_iterator(g_opt.cacheDir, ec)) {
        std::ifstream in(entry.path() / "reservation.json");
        Json::Value items;
        Json::CharReaderBuilder reader;
        std::string parseError;
        if (!in || !Json::parseFromStream(reader, in, &items, &parseError) || !items.isArray()) continue;
        for (Json::Value& item : items) {
            item["folder"] = entry.path().filename().string();
            list.append(item);
        }
    }
    return list;
}

const std::vector<const char*> kBootReasons = {"ApplicationReset", "FirmwareUpdate", "LocalReset",
                                               "PowerUp",          "RemoteReset",    "ScheduledReset",
                                               "Triggered",        "Unknown",        "Watchdog"};

int BootCommand(const Json::Value& cmd) {
    BOOTREASON reason;
    {
        std::lock_guard<std::mutex> lock(g_bootMutex);
        g_boot.requested = true;
        g_boot.onReconnect = cmd.get("onReconnect", true).asBool();
        g_boot.reason = static_cast<BOOTREASON>(IndexOf(kBootReasons, cmd.get("reason", "PowerUp").asString(), 3));
        g_boot.model = cmd.get("model", g_boot.model).asString();
        g_boot.vendor = cmd.get("vendor", g_boot.vendor).asString();
        Fill(g_boot.option.serialNumber, cmd, "serialNumber", "SIM-0001");
        Fill(g_boot.option.firmwareVersion, cmd, "firmwareVersion", "1.0.0");
        reason = g_boot.reason;
    }
    Boot(reason);
    return 1;
}

int RunCommand(const std::string& name, const Json::Value& cmd, Json::Value& result, std::string* error) {
    int rc = 1;
    if (name == "boot") {
        rc = BootCommand(cmd);
    } else if (name == "status") {
        rc = StatusCommand(cmd, error);
    } else if (name == "policy") {
        rc = SetPolicy(cmd, error);
    } else if (name == "setVariableData") {
        rc = SetVariableData(cmd);
    } else if (name == "getVariableData") {
        result["items"] = GetVariableData(cmd);
    } else if (name == "reservationStatus") {
        rc = ReservationStatusCommand(cmd, error);
    } else if (name == "reservations") {
        result["items"] = StoredReservations();
    } else if (name == "reconnect") {
        rc = OcppProtocol_ImmediatelyReconnect();
    } else if (name == "securityEvent") {
        rc = OcppProtocol_SecurityEventNotification(static_cast<SECURITYEVENTTYPE>(cmd.get("type", 0).asInt()));
    } else if (name == "getStatus") {
        result["status"] = static_cast<int>(OcppProtocol_GetStatus());
        result["protocol"] = static_cast<int>(OcppProtocol_GetOcppProtocol());
    } else {
        rc = 0;
        *error = "unknown command";
    }
    return rc;
}

// Handles one command line; false when the simulator should stop.
bool HandleLine(const std::string& line) {
    if (line.find_first_not_of(" \t\r") == std::string::npos) return true;
    Json::Value cmd;
    Json::CharReaderBuilder reader;
    std::string parseError;
    std::istringstream in(line);
    Json::Value result = Event("result");
    if (!Json::parseFromStream(reader, in, &cmd, &parseError) || !cmd.isObject()) {
        Json::Value v = Event("error");
        v["text"] = "not a JSON object: " + line;
        Emit(v);
        return true;
    }
    std::string error;
    int rc = 1;
    try {
        const std::string name = cmd.get("cmd", "").asString();
        result["cmd"] = name;
        if (name == "quit") return false;
        rc = RunCommand(name, cmd, result, &error);
    } catch (const std::exception& e) {  // a value of the wrong JSON type
        rc = 0;
        error = e.what();
    }
    result["rc"] = rc;
    if (!error.empty()) result["error"] = error;
    Emit(result);
    return true;
}


// ---- start-up ---------------------------------------------------------------

std::string ReadPem(const std::string& path) {
    if (path.empty()) return "";
    std::ifstream in(path);
    std::ostringstream s;
    s << in.rdbuf();
    return s.str();
}

// The library sets the system clock from the CSMS's answers, as a station should. A simulator
// run with privileges on a development machine must not, so it gives up that right first.
void KeepMachineClock() {
    __user_cap_header_struct header{_LINUX_CAPABILITY_VERSION_3, 0};
    __user_cap_data_struct data[_LINUX_CAPABILITY_U32S_3] = {};
    if (syscall(SYS_capget, &header, data) != 0) return;
    const unsigned index = CAP_TO_INDEX(CAP_SYS_TIME), mask = CAP_TO_MASK(CAP_SYS_TIME);
    data[index].effective &= ~mask;
    data[index].permitted &= ~mask;
    data[index].inheritable &= ~mask;
    if (syscall(SYS_capset, &header, data) != 0) std::perror("capset");
}

void Usage(const char* self) {
    std::fprintf(stderr,
                 "usage: %s --url ws://host:port/path --cache DIR [--id ID] [--protocol OCPP20|OCPP21|OCPP16]\n"
                 "  [--profile 0-3] [--user NAME] [--password PWD] [--ca FILE] [--cert FILE] [--key FILE]\n"
                 "  [--evses N] [--connectors N] [--message-timeout S] [--backoff S] [--log-level 0-3] [--set-clock]\n",
                 self);
}

bool ParseOptions(int argc, char** argv) {
    static const option longOptions[] = {
        {"url", required_argument, nullptr, 'u'},        {"id", required_argument, nullptr, 'i'},
        {"protocol", required_argument, nullptr, 'p'},   {"profile", required_argument, nullptr, 's'},
        {"user", required_argument, nullptr, 'n'},       {"password", required_argument, nullptr, 'w'},
        {"ca", required_argument, nullptr, 'a'},         {"cert", required_argument, nullptr, 'c'},
        {"key", required_argument, nullptr, 'k'},        {"cache", required_argument, nullptr, 'd'},
        {"evses", required_argument, nullptr, 'e'},      {"connectors", required_argument, nullptr, 'o'},
        {"message-timeout", required_argument, nullptr, 't'}, {"backoff", required_argument, nullptr, 'b'},
        {"log-level", required_argument, nullptr, 'l'},  {"set-clock", no_argument, nullptr, 'C'},
        {nullptr, 0, nullptr, 0}};
    int c;
    while ((c = getopt_long(argc, argv, "", longOptions, nullptr)) != -1) {
        const std::string arg = optarg != nullptr ? optarg : "";
        switch (c) {
            case 'u': g_opt.url = arg; break;
            case 'i': g_opt.identity = arg; break;
            case 'p': g_opt.protocol = arg; break;
            case 's': g_opt.profile = std::atoi(arg.c_str()); break;
            case 'n': g_opt.user = arg; break;
            case 'w': g_opt.password = arg; break;
            case 'a': g_opt.caFile = arg; break;
            case 'c': g_opt.certFile = arg; break;
            case 'k': g_opt.keyFile = arg; break;
            case 'd': g_opt.cacheDir = arg; break;
            case 'e': g_opt.evses = std::atoi(arg.c_str()); break;
            case 'o': g_opt.connectors = std::atoi(arg.c_str()); break;
            case 't': g_opt.messageTimeout = std::atoi(arg.c_str()); break;
            case 'b': g_opt.backOff = std::atoi(arg.c_str()); break;
            case 'l': g_opt.logLevel = std::atoi(arg.c_str()); break;
            case 'C': g_opt.setClock = true; break;
            default: return false;
        }
    }
    return !g_opt.url.empty() && !g_opt.cacheDir.empty() && g_opt.profile >= 0 && g_opt.profile <= 3;
}

}  // namespace

int main(int argc, char** argv) {
    // Standard output carries JSON lines only: whatever the library prints itself goes to standard error.
    const int jsonFd = dup(STDOUT_FILENO);
    if (jsonFd < 0 || (g_out = fdopen(jsonFd, "w")) == nullptr || dup2(STDERR_FILENO, STDOUT_FILENO) < 0) {
        std::perror("stdout");
        return 1;
    }
    if (!ParseOptions(argc, argv)) {
        Usage(argv[0]);
        return 2;
    }
    if (!g_opt.setClock) KeepMachineClock();
    OCPPPROTOCOL protocol = OCPPPROTOCOL_201;
    if (OcppProtocol_GetOcppProtocolType(g_opt.protocol.c_str(), &protocol) != 1) {
        std::fprintf(stderr, "unknown protocol %s\n", g_opt.protocol.c_str());
        return 2;
    }
    static OcppProtocolCallBack callbacks = {OnConnected, OnDisconnected, OnRecord};
    OcppProtocol_SetLog(OnLog);
    OcppProtocol_Init(0, &callbacks);
    if (OcppProtocol_SetCacheDir(g_opt.cacheDir.c_str()) != 1) {
        std::fprintf(stderr, "cache folder %s is not writable\n", g_opt.cacheDir.c_str());
        return 1;
    }
    std::thread answers(AnswerLoop);

    OcppProtocol_SetConnectParam(1, g_opt.backOff, 0, 0, 0);
    if (!g_opt.password.empty())
        OcppProtocol_SetNamePwd(g_opt.user.empty() ? nullptr : g_opt.user.c_str(), g_opt.password.c_str());
    const std::string cert = ReadPem(g_opt.certFile), key = ReadPem(g_opt.keyFile), ca = ReadPem(g_opt.caFile);
    if (!cert.empty() || !key.empty() || !ca.empty()) OcppProtocol_SetSsl(cert.c_str(), key.c_str(), ca.c_str());
    OcppProtocol_SetConnection(protocol, g_opt.url.c_str(), static_cast<CONNTYPE>(g_opt.profile), g_opt.messageTimeout);
    DeclareIdentity();
    OcppProtocol_ActiveConnection(1);

    Json::Value ready = Event("ready");
    ready["identity"] = g_opt.identity;
    ready["url"] = g_opt.url;
    ready["profile"] = g_opt.profile;
    Emit(ready);

    std::string line;
    while (std::getline(std::cin, line))
        if (!HandleLine(line)) break;

    {
        std::lock_guard<std::mutex> lock(g_queueMutex);
        g_stopping = true;
        g_queueCv.notify_all();
    }
    answers.join();
    OcppProtocol_Release();
    Emit(Event("exit"));
    return 0;
}
