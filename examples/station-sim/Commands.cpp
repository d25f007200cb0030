// Commands a tester sends on standard input, one JSON object a line.
#include <filesystem>
#include <fstream>
#include <sstream>

#include <Ocpp20Protocol.h>

#include "Sim.h"

namespace sim {

const std::vector<const char*> kTokenTypes = {"Central", "eMAID",      "ISO14443",  "ISO15693",
                                              "KeyCode", "Local",      "MacAddress", "NoAuthorization"};
const std::vector<const char*> kTokenStatuses = {"Accepted",          "Blocked",       "ConcurrentTx", "Expired",
                                                 "Invalid",           "NoCredit",      "NotAllowedTypeEVSE",
                                                 "NotAtThisLocation", "NotAtThisTime", "Unknown"};

const char* NameAt(const std::vector<const char*>& names, int index, const char* fallback) {
    return index >= 0 && index < static_cast<int>(names.size()) ? names[static_cast<size_t>(index)] : fallback;
}

namespace {

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

// Smart charging entries of the host.
int AddProfileCommand(const Json::Value& cmd, std::string* error) {
    if (!cmd["request"].isObject()) {
        *error = "needs request {evseId, chargingProfile}";
        return 0;
    }
    Json::StreamWriterBuilder writer;
    writer["indentation"] = "";
    return OcppProtocol_AddCharingProfile(Json::writeString(writer, cmd["request"]).c_str());
}

int RemoveProfilesCommand(const Json::Value& cmd, std::string* error) {
    const int source = IndexOf({"EMS", "Other", "SO", "CSO"}, cmd.get("source", "").asString(), -1);
    if (source < 0) {
        *error = "source is one of EMS, Other, SO, CSO";
        return 0;
    }
    return OcppProtocol_RemoveCharingProfile(cmd.get("evse", 0).asInt(), static_cast<CHARGINGLIMITSOURCE>(source));
}

int RequestProfileCommand(const Json::Value& cmd, std::string* error) {
    const int mode =
        IndexOf({"DC", "AC_single_phase", "AC_two_phase", "AC_three_phase"}, cmd.get("mode", "DC").asString(), -1);
    if (mode < 0) {
        *error = "mode is one of DC, AC_single_phase, AC_two_phase, AC_three_phase";
        return 0;
    }
    return OcppProtocol_RequestChargingProfile(cmd.get("evse", 1).asInt(), static_cast<ENERGYTRANSFERMODE>(mode),
                                               cmd.get("controlMode", 0).asInt(), cmd.get("departureTime", 0).asInt());
}

const std::vector<const char*> kAuthorizeSources = {"none", "exempt", "localList", "cache", "offlineUnknown", "csms"};

// The library's decision for a token, and where it came from.
int AuthorizeCommand(const Json::Value& cmd, Json::Value& result, std::string* error) {
    const int type = IndexOf(kTokenTypes, cmd.get("type", "ISO14443").asString(), -1);
    if (type < 0 || !cmd.isMember("token")) {
        *error = "needs token and a type of IdTokenEnumType";
        return 0;
    }
    const int status = Ocpp20ProtocolPrivate_Authorize(cmd["token"].asString().c_str(), type);
    result["status"] = NameAt(kTokenStatuses, status, "None");
    result["source"] = NameAt(kAuthorizeSources, static_cast<int>(Ocpp20ProtocolPrivate_GetAuthorizeSource()), "none");
    return 1;
}

// The host's view of the local list.
Json::Value TokenList() {
    Json::Value list(Json::arrayValue);
    const int count = OcppProtocol_GetTokenWhiteItems(nullptr, 0);
    if (count <= 0) return list;
    std::vector<TokenWhiteItem> items(static_cast<size_t>(count));
    const int read = OcppProtocol_GetTokenWhiteItems(items.data(), count);
    for (int i = 0; i < read && i < count; ++i) {
        const TokenWhiteItem& item = items[static_cast<size_t>(i)];
        Json::Value v;
        v["token"] = Text(item.token);
        v["type"] = NameAt(kTokenTypes, item.tokenType, "");
        v["status"] = NameAt(kTokenStatuses, item.status, "");
        v["expiryTime"] = item.expiryTime;
        v["groupToken"] = Text(item.groupToken);
        list.append(v);
    }
    return list;
}

int SetTokenListCommand(const Json::Value& cmd, std::string* error) {
    const Json::Value& items = cmd["items"];
    if (!items.isArray()) {
        *error = "needs items, an array";
        return 0;
    }
    std::vector<TokenWhiteItem> list;
    for (const Json::Value& v : items) {
        TokenWhiteItem item;
        std::memset(&item, 0, sizeof item);
        Fill(item.token, v, "token");
        Fill(item.groupToken, v, "groupToken");
        item.tokenType = IndexOf(kTokenTypes, v.get("type", "ISO14443").asString(), -1);
        item.status = IndexOf(kTokenStatuses, v.get("status", "Accepted").asString(), -1);
        item.expiryTime = v.get("expiryTime", 0).asInt();
        if (item.tokenType < 0 || item.status < 0) {
            *error = "unknown type or status";
            return 0;
        }
        list.push_back(item);
    }
    return OcppProtocol_SetTokenWhiteItems(list.data(), static_cast<int>(list.size()));
}

// Any variable of the library, whatever its mode (AuthCtrlr, AuthCacheCtrlr, LocalAuthListCtrlr ...).
int SetVariableCommand(const Json::Value& cmd, std::string* error) {
    if (!cmd.isMember("component") || !cmd.isMember("variable") || !cmd.isMember("value")) {
        *error = "needs component, variable and value";
        return 0;
    }
    const VariableDataItem item = ItemFromJson(cmd);
    return OcppProtocol_UpdateVariableValue(&item, cmd["value"].asString().c_str()) == VARIABLESTATUS_ACCEPTED ? 1 : 0;
}

// ---- meter items and transactions ----
const std::vector<const char*> kMeasurands = {
    "Current.Export", "Current.Import", "Current.Offered", "Energy.Active.Export.Register",
    "Energy.Active.Import.Register", "Energy.Reactive.Export.Register", "Energy.Reactive.Import.Register",
    "Energy.Active.Export.Interval", "Energy.Active.Import.Interval", "Energy.Active.Net",
    "Energy.Reactive.Export.Interval", "Energy.Reactive.Import.Interval", "Energy.Reactive.Net",
    "Energy.Apparent.Net", "Energy.Apparent.Import", "Energy.Apparent.Export", "Frequency", "Power.Active.Export",
    "Power.Active.Import", "Power.Factor", "Power.Offered", "Power.Reactive.Export", "Power.Reactive.Import", "SoC",
    "Voltage", "RPM", "Temperature"};
const std::vector<const char*> kContexts = {"Interruption.Begin", "Interruption.End", "Other", "Sample.Clock",
                                            "Sample.Periodic", "Transaction.Begin", "Transaction.End", "Trigger"};
const std::vector<const char*> kPhases = {"L1", "L2", "L3", "N", "L1-N", "L2-N", "L3-N", "L1-L2", "L2-L3", "L3-L1"};
const std::vector<const char*> kLocations = {"Body", "Cable", "EV", "Inlet", "Outlet"};

// "items" as the host packs them; names of an OCPP list are stored as their index plus one.
std::vector<unsigned char> MeterFromJson(const Json::Value& items) {
    std::vector<unsigned char> bytes;
    for (const Json::Value& j : items) {
        SignedMeterItem item{};
        MeterItem& head = item.head;
        head.timestamp = j.get("timestamp", 0).asUInt();
        head.value = j.get("value", 0).asDouble();
        head.measurand = static_cast<uint8_t>(
            IndexOf(kMeasurands, j.get("measurand", "Energy.Active.Import.Register").asString(), 4));
        head.context = static_cast<uint8_t>(IndexOf(kContexts, j.get("context", "").asString(), -1) + 1);
        head.phase = static_cast<uint8_t>(IndexOf(kPhases, j.get("phase", "").asString(), -1) + 1);
        head.location = static_cast<uint8_t>(IndexOf(kLocations, j.get("location", "").asString(), -1) + 1);
        Fill(head.unit, j, "unit");
        head.multiplier = static_cast<int8_t>(j.get("multiplier", 0).asInt());
        const Json::Value& sig = j["signed"];
        head.isSigned = sig.isObject() ? 1 : 0;
        if (head.isSigned) {
            Fill(item.signedMeterData, sig, "data");
            Fill(item.signingMethod, sig, "method");
            Fill(item.encodingMethod, sig, "encoding");
            Fill(item.publicKey, sig, "publicKey");
        }
        const unsigned char* at = reinterpret_cast<const unsigned char*>(&item);
        bytes.insert(bytes.end(), at, at + (head.isSigned ? sizeof(SignedMeterItem) : sizeof(MeterItem)));
    }
    return bytes;
}

const void* MeterData(const std::vector<unsigned char>& bytes) { return bytes.empty() ? nullptr : bytes.data(); }

TRANSACTIONREASON Reason(const Json::Value& cmd, const char* fallback) {
    return static_cast<TRANSACTIONREASON>(IndexOf(kTriggerReasons, cmd.get("reason", fallback).asString(), 0));
}

TRANSACTIONCHARGINGSTATE ChargingState(const Json::Value& cmd) {
    return static_cast<TRANSACTIONCHARGINGSTATE>(IndexOf(kChargingStates, cmd.get("chargingState", "").asString(), -1));
}

int TransactionStartCommand(const Json::Value& cmd, Json::Value& result) {
    const std::vector<unsigned char> meter = MeterFromJson(cmd["items"]);
    char transactionId[37] = {};
    int errorCode = 0;
    const std::string token = cmd.get("token", "").asString();
    const int rc = OcppProtocol_TransactionStart(
        cmd.get("evse", 1).asInt(), cmd.get("connector", 1).asInt(), token.c_str(),
        IndexOf(kTokenTypes, cmd.get("type", "ISO14443").asString(), 255), Reason(cmd, "Authorized"),
        ChargingState(cmd), cmd.get("remoteStartId", 0).asInt(), cmd.get("reservationId", 0).asInt(), nullptr,
        MeterData(meter), static_cast<int>(cmd["items"].size()), transactionId, &errorCode);
    result["transactionId"] = transactionId;
    result["errorCode"] = errorCode;
    return rc;
}

int TransactionUpdateCommand(const Json::Value& cmd) {
    const std::vector<unsigned char> meter = MeterFromJson(cmd["items"]);
    return OcppProtocol_TransactionUpate(cmd.get("transactionId", "").asString().c_str(),
                                         Reason(cmd, "MeterValuePeriodic"), ChargingState(cmd), MeterData(meter),
                                         static_cast<int>(cmd["items"].size()), cmd.get("repeat", 0).asInt());
}

int TransactionEndCommand(const Json::Value& cmd) {
    const std::vector<unsigned char> meter = MeterFromJson(cmd["items"]);
    return OcppProtocol_TransactionEnd(
        cmd.get("transactionId", "").asString().c_str(), Reason(cmd, "StopAuthorized"), ChargingState(cmd),
        static_cast<TRANSACTIONSTOPREASON>(IndexOf(kStopReasons, cmd.get("stopReason", "Local").asString(), 6)),
        MeterData(meter), static_cast<int>(cmd["items"].size()));
}

// ---- reports of the station's own ----
const std::vector<const char*> kEventTriggers = {"Alerting", "Delta", "Periodic"};
const std::vector<const char*> kEventNotifications = {"HardWiredNotification", "HardWiredMonitor",
                                                      "PreconfiguredMonitor", "CustomMonitor"};

int NotifyEventCommand(const Json::Value& cmd, std::string* error) {
    const Json::Value& events = cmd["events"];
    if (!events.isArray() || events.empty()) {
        *error = "needs events";
        return 0;
    }
    std::vector<EventDataItem> items;
    for (const Json::Value& v : events) {
        EventDataItem item;
        std::memset(&item, 0, sizeof item);
        item.eventId = v.get("eventId", 1).asInt();
        item.timestamp = v.get("timestamp", 0).asUInt();
        item.trigger = IndexOf(kEventTriggers, v.get("trigger", "Alerting").asString(), -1);
        item.cause = v.get("cause", -1).asInt();
        item.eventNotificationType =
            IndexOf(kEventNotifications, v.get("notificationType", "HardWiredNotification").asString(), -1);
        item.variableMonitoringId = v.get("monitoringId", -1).asInt();
        item.evseId = v.get("evse", 0).asInt();
        item.connectorId = v.get("connector", 0).asInt();
        item.cleared = v.get("cleared", false).asBool() ? 1 : 0;
        Fill(item.actualValue, v, "actualValue");
        Fill(item.techCode, v, "techCode");
        Fill(item.techInfo, v, "techInfo");
        Fill(item.transactionId, v, "transactionId");
        Fill(item.componentName, v, "component");
        Fill(item.componentInstance, v, "componentInstance");
        Fill(item.variableName, v, "variable");
        Fill(item.variableInstance, v, "variableInstance");
        items.push_back(item);
    }
    return OcppProtocol_NotifyEvent(items.data(), static_cast<int>(items.size()));
}

int EvScheduleCommand(const Json::Value& cmd) {
    Json::StreamWriterBuilder writer;
    writer["indentation"] = "";
    const std::string schedule = Json::writeString(writer, cmd["schedule"]);
    return OcppProtocol_NotifyEVChargingSchedule(cmd.get("evse", 1).asInt(), cmd.get("timeBase", 0).asUInt(),
                                                 schedule.c_str(), static_cast<int>(schedule.size()));
}

int MeterValuesCommand(const Json::Value& cmd) {
    const std::vector<unsigned char> meter = MeterFromJson(cmd["items"]);
    return OcppProtocol_SetMeterValues(cmd.get("evse", 1).asInt(), MeterData(meter),
                                       static_cast<int>(cmd["items"].size()));
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
    } else if (name == "addProfile") {
        rc = AddProfileCommand(cmd, error);
    } else if (name == "removeProfiles") {
        rc = RemoveProfilesCommand(cmd, error);
    } else if (name == "requestProfile") {
        rc = RequestProfileCommand(cmd, error);
    } else if (name == "selectSchedule") {
        rc = OcppProtocol_SelectChargingProfileSchedule(cmd.get("profileId", 0).asUInt(),
                                                        cmd.get("scheduleIds", "").asString().c_str());
    } else if (name == "authorize") {
        rc = AuthorizeCommand(cmd, result, error);
    } else if (name == "tokenList") {
        result["items"] = TokenList();
    } else if (name == "setTokenList") {
        rc = SetTokenListCommand(cmd, error);
    } else if (name == "setVariable") {
        rc = SetVariableCommand(cmd, error);
    } else if (name == "meterValues") {
        rc = MeterValuesCommand(cmd);
    } else if (name == "txStart") {
        rc = TransactionStartCommand(cmd, result);
    } else if (name == "txUpdate") {
        rc = TransactionUpdateCommand(cmd);
    } else if (name == "txEnd") {
        rc = TransactionEndCommand(cmd);
    } else if (name == "reconnect") {
        rc = OcppProtocol_ImmediatelyReconnect();
    } else if (name == "notifyEvent") {
        rc = NotifyEventCommand(cmd, error);
    } else if (name == "evSchedule") {
        rc = EvScheduleCommand(cmd);
    } else if (name == "securityEvent") {
        rc = OcppProtocol_SecurityEventNotification(static_cast<SECURITYEVENTTYPE>(cmd.get("type", 0).asInt()));
    } else if (name == "getStatus") {
        result["status"] = static_cast<int>(OcppProtocol_GetStatus());
        result["protocol"] = static_cast<int>(OcppProtocol_GetOcppProtocol());
    } else if ((rc = SessionCommand(name, cmd, result, error)) < 0) {
        rc = 0;
        *error = "unknown command";
    }
    return rc;
}

}  // namespace

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

}  // namespace sim
