// Records the library posts to the host, shown as JSON lines, and the station
// state they act on (boot settings, connectors).
#include <mutex>

#include "Sim.h"

namespace sim {

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
    if (action != nullptr) v["name"] = ActionName(action);
    std::vector<VariableDataItem> variables;
    FollowUp followUp;
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
            if (!Read(record, length, &r)) break;
            v["evseId"] = r.evseId;
            v["remoteStartId"] = r.remoteStartId;
            v["idToken"] = Text(r.idToken);
            v["idTokenType"] = NameAt(kTokenTypes, r.idTokenType, "");
            // The answer names a transaction the cable already opened; Accepted starts charging.
            followUp.answer = [r](const char* id, int status) {
                const std::string open = RemoteStartTransactionId(r);
                return Ocpp20Protocol_RequestStartTransaction(id, status, open.empty() ? nullptr : open.c_str());
            };
            followUp.then = [r](int status) {
                if (status == 0) RemoteStart(r);
            };
            break;
        }
        case SERVERRECVTYPE_REQUESTSTOPTRANSACTION: {
            RequestStopTransactionReq r;
            if (!Read(record, length, &r)) break;
            v["transactionId"] = Text(r.transactionId);
            followUp.then = [r](int status) {
                if (status == 0) RemoteStop(r);
            };
            break;
        }
        case SERVERRECVTYPE_NOTIFYTRANSACTIONSTART:
        case SERVERRECVTYPE_NOTIFYTRANSACTIONPAUSE: {
            NotifyTransactionStart r;
            v["name"] = base.type == SERVERRECVTYPE_NOTIFYTRANSACTIONSTART ? "NotifyTransactionStart"
                                                                          : "NotifyTransactionPause";
            if (!Read(record, length, &r)) break;
            v["evseId"] = r.evseId;
            v["connectorId"] = r.connectorId;
            v["transactionId"] = Text(r.transactionId);
            v["idToken"] = Text(r.idToken);
            v["idTokenType"] = NameAt(kTokenTypes, r.idTokenType, "");
            v["authorizationStatus"] = NameAt(kTokenStatuses, r.authorizationStatus, "");
            v["remoteStartId"] = r.remoteStartId;
            v["reservationId"] = r.reservationId;
            v["startTime"] = r.startTime;
            break;
        }
        case SERVERRECVTYPE_NOTIFYTRANSACTIONSTOP: {
            NotifyTransactionStop r;
            v["name"] = "NotifyTransactionStop";
            if (Read(record, length, &r)) {
                v["transactionId"] = Text(r.transactionId);
                v["stopReason"] = r.stopReason;
            }
            break;
        }
        case SERVERRECVTYPE_TRANSACTIONNOTACCEPTED: {
            TransactionNotAccepted r;
            v["name"] = "TransactionNotAccepted";
            if (!Read(record, length, &r)) break;
            v["transactionId"] = Text(r.transactionId);
            Deauthorize(Text(r.transactionId));
            break;
        }
        case SERVERRECVTYPE_PERSONALMSG: {
            PersonalMsg r;
            v["name"] = "PersonalMsg";
            if (Read(record, length, &r)) {
                v["evseId"] = r.evseId;
                v["transactionId"] = Text(r.transactionId);
                v["format"] = r.format;
                v["language"] = Text(r.language);
                v["content"] = Text(r.content);
            }
            break;
        }
        default:
            break;
    }
    Emit(v);
    // A cost update that rides on a TransactionEvent answer asks for no reply.
    if (action == nullptr || messageId.empty()) return;
    QueueAnswer(action, messageId, std::move(variables), std::move(followUp));
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

}  // namespace sim
