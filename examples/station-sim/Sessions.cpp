// The car side of the station: cable, token, charging state and meter, and
// what the host tells the library about them, as a controller would.
#include <chrono>
#include <condition_variable>
#include <map>
#include <mutex>
#include <thread>

#include "Sim.h"

namespace sim {

const std::vector<const char*> kTriggerReasons = {
    "Authorized",        "CablePluggedIn",  "ChargingRateChanged", "ChargingStateChanged", "Deauthorized",
    "EnergyLimitReached", "EVCommunicationLost", "EVConnectTimeout", "MeterValueClock",  "MeterValuePeriodic",
    "TimeLimitReached",  "Trigger",         "UnlockCommand",       "StopAuthorized",       "EVDeparted",
    "EVDetected",        "RemoteStop",      "RemoteStart",         "AbnormalCondition",    "SignedDataReceived",
    "ResetCommand"};
const std::vector<const char*> kChargingStates = {"Charging", "EVConnected", "SuspendedEV", "SuspendedEVSE", "Idle"};
const std::vector<const char*> kStopReasons = {
    "DeAuthorized", "EmergencyStop",    "EnergyLimitReached", "EVDisconnected", "GroundFault",
    "ImmediateReset", "Local",          "LocalOutOfCredit",   "MasterPass",     "Other",
    "OvercurrentFault", "PowerLoss",    "PowerQuality",       "Reboot",         "Remote",
    "SOCLimitReached", "StoppedByEV",   "TimeLimitReached",   "Timeout"};

namespace {

using Clock = std::chrono::steady_clock;

// What the station knows of one EVSE besides the library's transaction.
struct Evse {
    bool plugged = false;
    int chargingState = TRANSACTIONCHARGINGSTATE_IDLE;
    double energyWh = 0, powerW = 0, currentA = 0, soc = -1;
    int meterInterval = 0;      // seconds; 0: no periodic meter values
    std::string meterTransaction;
    Clock::time_point nextMeter;
};

std::mutex g_evseMutex;
std::condition_variable g_meterCv;
std::map<int, Evse> g_evses;
std::thread g_meterThread;
bool g_meterStop = false;
std::vector<std::function<void()>> g_later;  // run on the meter thread, off the library's own threads

Evse Snapshot(int evse) {
    std::lock_guard<std::mutex> lock(g_evseMutex);
    return g_evses[evse];
}

MeterItem Item(int measurand, double value, const char* unit, int location = 0) {
    MeterItem item;
    std::memset(&item, 0, sizeof item);
    item.value = value;
    item.measurand = static_cast<uint8_t>(measurand);
    item.location = static_cast<uint8_t>(location);
    std::snprintf(item.unit, sizeof item.unit, "%s", unit);
    return item;
}

// The energy register alone marks a start or an end; a sample carries every reading the EVSE has.
std::vector<MeterItem> Readings(const Evse& e, bool sample) {
    std::vector<MeterItem> items{Item(SAMPLEDVALUEMEASURAND_ENERGY_ACTIVE_IMPORT_REGISTER, e.energyWh, "Wh")};
    if (!sample) return items;
    items.push_back(Item(SAMPLEDVALUEMEASURAND_POWER_ACTIVE_IMPORT, e.powerW, "W"));
    items.push_back(Item(SAMPLEDVALUEMEASURAND_CURRENT_IMPORT, e.currentA, "A"));
    if (e.soc >= 0) items.push_back(Item(SAMPLEDVALUEMEASURAND_SOC, e.soc, "Percent", 3 /* EV */));
    return items;
}

int Count(const std::vector<MeterItem>& items) { return static_cast<int>(items.size()); }

std::string OpenTransaction(int evse) {
    char id[37] = {};
    return OcppProtocol_TransactionIDFromEvseID(evse, id) == 1 ? Text(id) : std::string();
}

bool Detail(const std::string& transactionId, TransactionDetail* out) {
    int count = 1;
    return !transactionId.empty() && OcppProtocol_GetTransactionItemsDetail(transactionId.c_str(), out, &count) == 1 &&
           count >= 1;
}

int Enum(const std::vector<const char*>& names, const Json::Value& cmd, const char* key, const char* fallback,
         std::string* error) {
    const std::string name = cmd.get(key, fallback).asString();
    const int index = IndexOf(names, name, -1);
    if (index < 0) *error = std::string("unknown ") + key + " " + name;
    return index;
}

// The library's status for a start or a token: 0 is Accepted.
void Outcome(Json::Value& result, int status, const std::string& transactionId) {
    result["status"] = status == 255 ? "NoProtocol" : NameAt(kTokenStatuses, status, "Other");
    result["code"] = status;
    if (!transactionId.empty()) result["transactionId"] = transactionId;
}

int Start(int evse, int connector, const std::string& token, int type, int reason, int remoteStartId,
          const std::string& group, Json::Value& result) {
    const Evse e = Snapshot(evse);
    const std::vector<MeterItem> meter = Readings(e, false);
    char id[37] = {};
    int errorCode = 0;
    const int status = OcppProtocol_TransactionStart(
        evse, connector, token.c_str(), type, static_cast<TRANSACTIONREASON>(reason),
        static_cast<TRANSACTIONCHARGINGSTATE>(e.chargingState), remoteStartId, 0,
        group.empty() ? nullptr : group.c_str(), meter.data(), Count(meter), id, &errorCode);
    Outcome(result, status, status == 0 ? Text(id) : std::string());
    if (errorCode != 0) result["errorCode"] = errorCode;
    return status == 0 ? 1 : 0;
}

int Update(const std::string& transactionId, int reason, const std::vector<MeterItem>& meter) {
    TransactionDetail d;
    const int state = Detail(transactionId, &d) ? Snapshot(d.evseId).chargingState : TRANSACTIONCHARGINGSTATE_IDLE;
    return OcppProtocol_TransactionUpate(transactionId.c_str(), static_cast<TRANSACTIONREASON>(reason),
                                         static_cast<TRANSACTIONCHARGINGSTATE>(state), meter.data(), Count(meter), 0);
}

// The charging state once the station itself stops the energy: the car may still be plugged in.
int StoppedState(const Evse& e) {
    return e.plugged ? TRANSACTIONCHARGINGSTATE_EVCONNECTED : TRANSACTIONCHARGINGSTATE_IDLE;
}

// The station stopped charging for a session that then ended.
void Stopped(int evse) {
    std::lock_guard<std::mutex> lock(g_evseMutex);
    Evse& e = g_evses[evse];
    e.chargingState = StoppedState(e);
    e.powerW = e.currentA = 0;
}

// Ends the EVSE's transaction; `open` says whether the stop points kept it open. `stopsCharging`:
// the station stops the energy to end it (token, remote, its own decision), rather than reporting
// what the car or the cable did.
int End(int evse, const std::string& transactionId, int reason, int stopReason, Json::Value& result,
        bool stopsCharging = false) {
    const Evse e = Snapshot(evse);
    const std::vector<MeterItem> meter = Readings(e, false);
    const int state = stopsCharging ? StoppedState(e) : e.chargingState;
    const int rc = OcppProtocol_TransactionEnd(transactionId.c_str(), static_cast<TRANSACTIONREASON>(reason),
                                               static_cast<TRANSACTIONCHARGINGSTATE>(state),
                                               static_cast<TRANSACTIONSTOPREASON>(stopReason), meter.data(),
                                               Count(meter));
    result["transactionId"] = transactionId;
    result["open"] = OpenTransaction(evse) == transactionId;
    if (stopsCharging && !result["open"].asBool()) Stopped(evse);
    return rc == 0 ? 1 : 0;
}

// A token (or a remote start) for an EVSE whose transaction was opened by the cable alone.
int AuthorizeOpen(const TransactionDetail& open, const std::string& token, int type, int remoteStartId,
                  const std::string& group, Json::Value& result) {
    if (remoteStartId != 0) OcppProtocol_AddTransactionRemoteID(open.transactionId, remoteStartId);
    return Start(open.evseId, open.connectorId, token, type, TRANSACTIONREASON_AUTHORIZED, remoteStartId, group,
                 result);
}

std::string NeedTransaction(int evse, std::string* error) {
    const std::string id = OpenTransaction(evse);
    if (id.empty()) *error = "no transaction on evse " + std::to_string(evse);
    return id;
}

// ---- commands ------------------------------------------------------------------

int PlugCommand(const Json::Value& cmd, Json::Value& result, std::string* error) {
    const int evse = cmd.get("evse", 1).asInt();
    const int trigger = Enum(kTriggerReasons, cmd, "trigger", "CablePluggedIn", error);
    if (trigger < 0) return 0;
    {
        std::lock_guard<std::mutex> lock(g_evseMutex);
        g_evses[evse].plugged = true;
        g_evses[evse].chargingState = TRANSACTIONCHARGINGSTATE_EVCONNECTED;
    }
    const std::string open = OpenTransaction(evse);
    if (open.empty()) return Start(evse, cmd.get("connector", 1).asInt(), "", 255, trigger, 0, "", result);
    result["transactionId"] = open;
    const int rc = Update(open, trigger, Readings(Snapshot(evse), false));
    result["code"] = rc;
    return rc == 0 ? 1 : 0;
}

int UnplugCommand(const Json::Value& cmd, Json::Value& result, std::string* error) {
    const int evse = cmd.get("evse", 1).asInt();
    const int trigger = Enum(kTriggerReasons, cmd, "trigger", "EVCommunicationLost", error);
    const int reason = Enum(kStopReasons, cmd, "reason", "EVDisconnected", error);
    if (trigger < 0 || reason < 0) return 0;
    {
        std::lock_guard<std::mutex> lock(g_evseMutex);
        Evse& e = g_evses[evse];
        e.plugged = false;
        e.chargingState = TRANSACTIONCHARGINGSTATE_IDLE;
        e.powerW = e.currentA = 0;
    }
    const std::string open = OpenTransaction(evse);
    return open.empty() ? 1 : End(evse, open, trigger, reason, result);
}

// A token at the reader: it starts a session, authorizes one the cable opened, or stops one.
int TokenCommand(const Json::Value& cmd, Json::Value& result, std::string* error) {
    const int evse = cmd.get("evse", 1).asInt();
    const int type = Enum(kTokenTypes, cmd, "type", "ISO14443", error);
    const int reason = Enum(kStopReasons, cmd, "reason", "Local", error);
    if (type < 0 || reason < 0 || !cmd.isMember("token")) {
        if (error->empty()) *error = "needs token";
        return 0;
    }
    const std::string token = cmd["token"].asString(), group = cmd.get("groupToken", "").asString();
    const std::string open = OpenTransaction(evse);
    TransactionDetail d;
    if (open.empty() || !Detail(open, &d)) {
        result["action"] = "start";
        return Start(evse, cmd.get("connector", 1).asInt(), token, type, TRANSACTIONREASON_AUTHORIZED, 0, group, result);
    }
    if (d.authorizedTime == 0 && d.idTokenType == 255) {
        result["action"] = "authorize";
        return AuthorizeOpen(d, token, type, 0, group, result);
    }
    result["action"] = "stop";
    const Evse e = Snapshot(evse);
    const std::vector<MeterItem> meter = Readings(e, false);
    const int status = OcppProtocol_TransactionEndWithToken(
        open.c_str(), TRANSACTIONREASON_STOPAUTHORIZED, static_cast<TRANSACTIONCHARGINGSTATE>(StoppedState(e)),
        static_cast<TRANSACTIONSTOPREASON>(reason), token.c_str(), type, meter.data(), Count(meter));
    // 1: the token may end it and the host does; 0: the library ended it already.
    if (status == 1) End(evse, open, TRANSACTIONREASON_STOPAUTHORIZED, reason, result, true);
    Outcome(result, status == 1 ? 0 : status, open);
    result["code"] = status;
    result["open"] = OpenTransaction(evse) == open;
    if (!result["open"].asBool()) Stopped(evse);
    return status == 0 || status == 1 ? 1 : 0;
}

int ChargeCommand(const Json::Value& cmd, Json::Value& result, std::string* error) {
    const int evse = cmd.get("evse", 1).asInt();
    const int state = Enum(kChargingStates, cmd, "state", "Charging", error);
    if (state < 0) return 0;
    {
        std::lock_guard<std::mutex> lock(g_evseMutex);
        Evse& e = g_evses[evse];
        e.chargingState = state;
        e.powerW = cmd.get("power", state == TRANSACTIONCHARGINGSTATE_CHARGING ? e.powerW : 0).asDouble();
        e.currentA = cmd.get("current", state == TRANSACTIONCHARGINGSTATE_CHARGING ? e.currentA : 0).asDouble();
    }
    const std::string open = NeedTransaction(evse, error);
    if (open.empty()) return 0;
    result["transactionId"] = open;
    // Energy stops flowing: the stop points may end the session here, else it goes on.
    if (state != TRANSACTIONCHARGINGSTATE_CHARGING && state != TRANSACTIONCHARGINGSTATE_EVCONNECTED) {
        const char* fallback = state == TRANSACTIONCHARGINGSTATE_SUSPENDEDEV ? "StoppedByEV"
                               : state == TRANSACTIONCHARGINGSTATE_IDLE      ? "EVDisconnected"
                                                                             : "Other";
        const int reason = Enum(kStopReasons, cmd, "reason", fallback, error);
        if (reason < 0) return 0;
        const int rc = End(evse, open, TRANSACTIONREASON_CHARGINGSTATECHANGED, reason, result);
        if (!result["open"].asBool()) return rc;
    }
    return Update(open, TRANSACTIONREASON_CHARGINGSTATECHANGED, {}) == 0 ? 1 : 0;
}

void Take(const Json::Value& cmd, const char* key, double* field) {
    if (cmd.isMember(key)) *field = cmd[key].asDouble();
}

int MeterCommand(const Json::Value& cmd, Json::Value& result, std::string* error) {
    const int evse = cmd.get("evse", 1).asInt();
    const int trigger = Enum(kTriggerReasons, cmd, "trigger", "Trigger", error);
    if (trigger < 0) return 0;
    const std::string open = NeedTransaction(evse, error);
    Evse e;
    {
        std::lock_guard<std::mutex> lock(g_evseMutex);
        Evse& live = g_evses[evse];
        Take(cmd, "energy", &live.energyWh);
        Take(cmd, "power", &live.powerW);
        Take(cmd, "current", &live.currentA);
        Take(cmd, "soc", &live.soc);
        if (cmd.isMember("interval") && !open.empty()) {
            live.meterInterval = cmd["interval"].asInt();
            live.meterTransaction = open;
            live.nextMeter = Clock::now() + std::chrono::seconds(live.meterInterval);
        }
        e = live;
    }
    if (open.empty()) return 0;
    result["transactionId"] = open;
    if (cmd.isMember("interval")) {
        g_meterCv.notify_all();
        return 1;
    }
    return Update(open, trigger, Readings(e, true)) == 0 ? 1 : 0;
}

int StopCommand(const Json::Value& cmd, Json::Value& result, std::string* error) {
    const int evse = cmd.get("evse", 1).asInt();
    const int reason = Enum(kStopReasons, cmd, "reason", "Local", error);
    const int trigger = Enum(kTriggerReasons, cmd, "trigger", "StopAuthorized", error);
    if (reason < 0 || trigger < 0) return 0;
    const std::string open = NeedTransaction(evse, error);
    return open.empty() ? 0 : End(evse, open, trigger, reason, result, true);
}

Json::Value Transactions() {
    Json::Value list(Json::arrayValue);
    int count = OcppProtocol_GetTransactionCount();
    if (count <= 0) count = 8;
    std::vector<TransactionDetail> items(static_cast<size_t>(count));
    if (OcppProtocol_GetTransactionItemsDetail("", items.data(), &count) != 1) return list;
    for (int i = 0; i < count && i < static_cast<int>(items.size()); ++i) {
        const TransactionDetail& d = items[static_cast<size_t>(i)];
        Json::Value v;
        v["id"] = Text(d.transactionId);
        v["evse"] = d.evseId;
        v["connector"] = d.connectorId;
        v["seqNo"] = d.seqNo;
        v["token"] = Text(d.idToken);
        v["started"] = d.startedTime != 0;
        v["authorized"] = d.authorizedTime != 0;
        v["plugged"] = d.cablePluggedTime != 0;
        v["remoteStartId"] = d.remoteStartId;
        list.append(v);
    }
    return list;
}

// ---- periodic meter values -------------------------------------------------------

// One sample of every EVSE whose period is due; a period ends with its transaction.
void MeterTick() {
    std::vector<std::pair<int, Evse>> due;
    {
        std::lock_guard<std::mutex> lock(g_evseMutex);
        const Clock::time_point now = Clock::now();
        for (auto& [evse, e] : g_evses) {
            if (e.meterInterval <= 0 || now < e.nextMeter) continue;
            e.energyWh += e.powerW * e.meterInterval / 3600.0;
            e.nextMeter = now + std::chrono::seconds(e.meterInterval);
            due.emplace_back(evse, e);
        }
    }
    for (auto& [evse, e] : due) {
        Json::Value v = Event("meter");
        v["evse"] = evse;
        v["transactionId"] = e.meterTransaction;
        if (OpenTransaction(evse) != e.meterTransaction) {
            std::lock_guard<std::mutex> lock(g_evseMutex);
            g_evses[evse].meterInterval = 0;
            v["stopped"] = true;
        } else {
            v["energy"] = e.energyWh;
            v["rc"] = Update(e.meterTransaction, TRANSACTIONREASON_METERVALUEPERIODIC, Readings(e, true));
        }
        Emit(v);
    }
}

void MeterLoop() {
    std::unique_lock<std::mutex> lock(g_evseMutex);
    while (!g_meterStop) {
        g_meterCv.wait_for(lock, std::chrono::milliseconds(100));
        if (g_meterStop) break;
        std::vector<std::function<void()>> later;
        later.swap(g_later);
        lock.unlock();
        for (auto& fn : later) fn();
        MeterTick();
        lock.lock();
    }
}

}  // namespace

// ---- the CSMS's remote start and stop, once the host has answered -----------------

void RemoteStart(const RequestStartTransactionReq& request) {
    int evse = request.evseId;
    for (int i = 1; evse == 0 && i <= g_opt.evses; ++i)
        if (OpenTransaction(i).empty()) evse = i;
    if (evse == 0) evse = 1;
    Json::Value v = Event("remoteStart");
    v["evse"] = evse;
    v["remoteStartId"] = request.remoteStartId;
    const std::string open = OpenTransaction(evse);
    TransactionDetail d;
    const std::string token = Text(request.idToken);
    if (!open.empty() && Detail(open, &d) && d.authorizedTime == 0 && d.idTokenType == 255)
        v["rc"] = AuthorizeOpen(d, token, request.idTokenType, request.remoteStartId, "", v);
    else
        v["rc"] = Start(evse, 1, token, request.idTokenType, TRANSACTIONREASON_AUTHORIZED, request.remoteStartId, "", v);
    Emit(v);
}

// The transaction already open on the EVSE a remote start names, for the answer.
std::string RemoteStartTransactionId(const RequestStartTransactionReq& request) {
    return request.evseId > 0 ? OpenTransaction(request.evseId) : std::string();
}

void RemoteStop(const RequestStopTransactionReq& request) {
    const std::string id = Text(request.transactionId);
    TransactionDetail d;
    Json::Value v = Event("remoteStop");
    const int evse = Detail(id, &d) ? d.evseId : 0;
    v["evse"] = evse;
    v["rc"] = End(evse, id, TRANSACTIONREASON_REMOTESTOP, TRANSACTIONSTOPREASON_REMOTE, v, true);
    Emit(v);
}

// The CSMS refused the token of a running session: the station stops it, as deauthorized.
void Deauthorize(const std::string& transactionId) {
    std::lock_guard<std::mutex> lock(g_evseMutex);
    g_later.push_back([transactionId] {
        TransactionDetail d;
        if (!Detail(transactionId, &d)) return;
        Json::Value v = Event("deauthorized");
        v["evse"] = d.evseId;
        v["rc"] = End(d.evseId, transactionId, TRANSACTIONREASON_DEAUTHORIZED, TRANSACTIONSTOPREASON_DEAUTHORIZED, v,
                      true);
        Emit(v);
    });
    g_meterCv.notify_all();
}

int SessionCommand(const std::string& name, const Json::Value& cmd, Json::Value& result, std::string* error) {
    if (name == "plug") return PlugCommand(cmd, result, error);
    if (name == "unplug") return UnplugCommand(cmd, result, error);
    if (name == "token") return TokenCommand(cmd, result, error);
    if (name == "charge") return ChargeCommand(cmd, result, error);
    if (name == "meter") return MeterCommand(cmd, result, error);
    if (name == "stop") return StopCommand(cmd, result, error);
    if (name == "transactions") {
        result["items"] = Transactions();
        return 1;
    }
    return -1;
}

void StartSessions() { g_meterThread = std::thread(MeterLoop); }

void StopSessions() {
    {
        std::lock_guard<std::mutex> lock(g_evseMutex);
        g_meterStop = true;
    }
    g_meterCv.notify_all();
    if (g_meterThread.joinable()) g_meterThread.join();
}

}  // namespace sim
