// Prints every frame the 2.0.1 builders produce for host input that is valid
// or longer than the message allows, one JSON line each:
// {"schema":"urn:Reset.conf","frame":"..."}. The node test checks them.
#include <rapidjson/stringbuffer.h>
#include <rapidjson/writer.h>

#include <functional>
#include <iostream>
#include <string>

#include "Ocpp20/OcppProtocol20.h"
#include "Util/Tools.h"

namespace {

void Emit(const std::string& schema, const std::string& frame) {
    rapidjson::StringBuffer sb;
    rapidjson::Writer<rapidjson::StringBuffer> w(sb);
    w.StartObject();
    w.Key("schema");
    w.String(schema.c_str(), static_cast<rapidjson::SizeType>(schema.size()));
    w.Key("frame");
    w.String(frame.c_str(), static_cast<rapidjson::SizeType>(frame.size()));
    w.EndObject();
    std::cout << sb.GetString() << '\n';
}

// Every value of an enumeration, until the builder says the list has ended.
void Every(const std::string& schema, const std::function<std::string(int)>& build) {
    for (int value = 0;; ++value) {
        const std::string frame = build(value);
        if (frame.empty()) return;
        Emit(schema, frame);
    }
}

void EveryStatus(const char* action, const std::function<std::string(int)>& build) {
    Every(std::string("urn:") + action + ".conf", build);
}

// Texts longer than any limit the messages set, with multi-byte characters at the cut.
const std::string kLong = std::string(7000, 'a') + "\xe4\xb8\xad\xe6\x96\x87";
const std::string kLongWide = [] {
    std::string s;
    while (s.size() < 7000) s += "\xe4\xb8\xad";
    return s;
}();

}  // namespace

int main() {
    typedef COcppProtocol20 P;
    const int64_t now = 1893456000;

    BootNotificationOption option;
    CTools::CopyField(option.serialNumber, kLong);
    CTools::CopyField(option.firmwareVersion, kLongWide);
    CTools::CopyField(option.iccid, kLong);
    CTools::CopyField(option.imsi, kLongWide);
    Every("urn:BootNotification.req", [&](int reason) {
        return P::BootNotificationReq(static_cast<BOOTREASON>(reason), kLong.c_str(), kLongWide.c_str(), option);
    });
    BootNotificationOption empty = {};
    Emit("urn:BootNotification.req", P::BootNotificationReq(BOOTREASON_POWERUP, "M", "V", empty));
    Emit("urn:Heartbeat.req", P::HeartbeatReq());
    Every("urn:StatusNotification.req", [&](int s) { return P::StatusNotificationReq(1, 2, s, now); });
    Emit("urn:SecurityEventNotification.req", P::SecurityEventNotificationReq(kLong.c_str(), now, kLongWide.c_str()));
    Emit("urn:SecurityEventNotification.req", P::SecurityEventNotificationReq("StartupOfTheDevice", now, nullptr));
    Every("urn:Authorize.req", [&](int t) { return P::AuthorizeReq(kLong.c_str(), t); });
    Emit("urn:Authorize.req", P::AuthorizeWithCertificateReq(kLongWide.c_str(), 1, kLong.c_str()));
    Every("urn:FirmwareStatusNotification.req",
          [&](int s) { return P::FirmwareStatusNotificationReq(s, s % 2 ? -1 : s); });
    Every("urn:LogStatusNotification.req", [&](int s) { return P::LogStatusNotificationReq(s, s); });
    Every("urn:PublishFirmwareStatusNotification.req", [&](int s) {
        return P::PublishFirmwareStatusNotificationReq(s, 3, s % 2 ? kLong.c_str() : nullptr);
    });
    Every("urn:ReservationStatusUpdate.req", [&](int s) { return P::ReservationStatusUpdateReq(4, s); });
    Every("urn:ClearedChargingLimit.req", [&](int s) { return P::ClearedChargingLimitReq(s, s - 1); });
    Emit("urn:DataTransfer.req", P::DataTransferReq(kLong.c_str(), kLongWide.c_str(), kLong.c_str(), false));
    Emit("urn:DataTransfer.req", P::DataTransferReq("v", nullptr, "{\"a\":[1,2]}", true));
    Emit("urn:DataTransfer.req", P::DataTransferReq("v", "", nullptr, false));
    Every("urn:SignCertificate.req", [&](int s) { return P::SignCertificateReq(kLong.c_str(), s); });
    Emit("urn:SignCertificate.req", P::SignCertificateReq("csr", -1));
    models::ocspRequestData_t ocsp;
    ocsp.hashAlgorithm = "SHA256";
    ocsp.issuerNameHash = kLong;
    ocsp.issuerKeyHash = kLongWide;
    ocsp.serialNumber = kLong;
    ocsp.responderURL = kLong;
    Emit("urn:GetCertificateStatus.req", P::GetCertificateStatusReq(ocsp));
    Every("urn:Get15118EVCertificate.req",
          [&](int a) { return P::Get15118EVCertificateReq(kLong.c_str(), a, kLong.c_str()); });

    const char* id = "0123456789abcdef0123456789abcdef0123";
    EveryStatus("ChangeAvailability", [&](int s) { return P::ChangeAvailability(id, s); });
    EveryStatus("CancelReservation", [&](int s) { return P::CancelReservation(id, s); });
    EveryStatus("CertificateSigned", [&](int s) { return P::CertificateSigned(id, s); });
    EveryStatus("ClearCache", [&](int s) { return P::ClearCache(id, s); });
    EveryStatus("ClearChargingProfile", [&](int s) { return P::ClearChargingProfile(id, s); });
    EveryStatus("ClearDisplayMessage", [&](int s) { return P::ClearDisplayMessage(id, s); });
    Emit("urn:CostUpdated.conf", P::CostUpdated(id));
    EveryStatus("CustomerInformation", [&](int s) { return P::CustomerInformation(id, s); });
    EveryStatus("DeleteCertificate", [&](int s) { return P::DeleteCertificate(id, s); });
    EveryStatus("InstallCertificate", [&](int s) { return P::InstallCertificate(id, s); });
    EveryStatus("TriggerMessage", [&](int s) { return P::TriggerMessage(id, s); });
    EveryStatus("ReserveNow", [&](int s) { return P::ReserveNow(id, s); });
    EveryStatus("Reset", [&](int s) { return P::Reset(id, s); });
    EveryStatus("SendLocalList", [&](int s) { return P::SendLocalList(id, s); });
    EveryStatus("RequestStartTransaction", [&](int s) { return P::RequestStartTransaction(id, s, kLong.c_str()); });
    EveryStatus("RequestStartTransaction", [&](int s) { return P::RequestStartTransaction(id, s, nullptr); });
    EveryStatus("RequestStopTransaction", [&](int s) { return P::RequestStopTransaction(id, s); });
    EveryStatus("PublishFirmware", [&](int s) { return P::PublishFirmware(id, s); });
    EveryStatus("DataTransfer", [&](int s) { return P::DataTransfer(id, s, kLongWide.c_str(), s % 2 == 1); });
    EveryStatus("DataTransfer", [&](int s) { return P::DataTransfer(id, s, "[true,{}]", true); });
    EveryStatus("GetBaseReport", [&](int s) { return P::GetBaseReport(id, s); });
    EveryStatus("GetChargingProfiles", [&](int s) { return P::GetChargingProfiles(id, s); });
    EveryStatus("UnlockConnector", [&](int s) { return P::UnlockConnector(id, s); });
    EveryStatus("UnpublishFirmware", [&](int s) { return P::UnpublishFirmware(id, s); });
    EveryStatus("GetDisplayMessages", [&](int s) { return P::GetDisplayMessages(id, s); });
    CertificateHashDataChainItem items[3] = {};
    for (int i = 0; i < 3; ++i) {
        items[i].certificateType = i + 2;
        items[i].hashAlgorithm = i;
        CTools::CopyField(items[i].issuerNameHash, kLong);
        CTools::CopyField(items[i].issuerKeyHash, kLongWide);
        CTools::CopyField(items[i].serialNumber, kLong);
    }
    EveryStatus("GetInstalledCertificateIds", [&](int s) { return P::GetInstalledCertificateIds(id, s, items, 3); });
    EveryStatus("GetInstalledCertificateIds", [&](int s) { return P::GetInstalledCertificateIds(id, s, nullptr, 0); });
    Emit("urn:GetLocalListVersion.conf", P::GetLocalListVersion(id, 12));
    EveryStatus("UpdateFirmware", [&](int s) { return P::UpdateFirmware(id, s); });
    EveryStatus("SetNetworkProfile", [&](int s) { return P::SetNetworkProfileResp(id, s); });
    EveryStatus("SetMonitoringLevel", [&](int s) { return P::SetMonitoringLevelResp(id, s); });
    EveryStatus("SetMonitoringBase", [&](int s) { return P::SetMonitoringBaseResp(id, s); });
    EveryStatus("SetDisplayMessage", [&](int s) { return P::SetDisplayMessageResp(id, s); });
    EveryStatus("GetLog", [&](int s) { return P::GetLog(id, s, kLong.c_str()); });
    EveryStatus("GetMonitoringReport", [&](int s) { return P::GetMonitoringReport(id, s); });
    EveryStatus("GetReport", [&](int s) { return P::GetReport(id, s); });
    EveryStatus("SetChargingProfile", [&](int s) { return P::SetChargingProfile(id, s); });
    return 0;
}
