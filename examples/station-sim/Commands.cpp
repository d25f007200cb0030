// Commands a tester sends on standard input, one JSON object a line.
#include <filesystem>
#include <fstream>
#include <sstream>

#include "Sim.h"

namespace sim {
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
