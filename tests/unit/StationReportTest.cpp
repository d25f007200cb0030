#include <gtest/gtest.h>

#include <OcppProtocol.h>

#include <cstring>
#include <string>

#include "OcppProtocol/OcppEnumTrans.h"
#include "OcppProtocol/OcppProtocol.h"
#include "OcppProtocol/OcppStructTrans.h"
#include "RecordingHost.h"
#include "RecordingLink.h"
#include "TestSupport.h"
#include "Util/Tools.h"

using namespace ocpptest;

namespace {

EventDataItem OverCurrentEvent() {
    EventDataItem event;
    std::memset(&event, 0, sizeof event);
    event.eventId = 12;
    event.trigger = 0;                // Alerting
    event.cause = -1;
    event.eventNotificationType = 3;  // CustomMonitor
    event.variableMonitoringId = 4;
    event.evseId = 1;
    event.cleared = 1;
    CTools::CopyField(event.actualValue, "40.5");
    CTools::CopyField(event.componentName, "EVSE");
    CTools::CopyField(event.variableName, "Current");
    return event;
}

const char kSchedule[] = "{\"id\":1,\"chargingRateUnit\":\"A\",\"chargingSchedulePeriod\":[{\"startPeriod\":0,\"limit\":16}]}";

std::string Accepted(const std::string& id, const std::string& extra = "") {
    return "[3,\"" + id + "\",{\"status\":\"Accepted\"" + extra + "}]";
}

// Every new entry, with what each returns.
struct Results {
    int event, report, certificate, ocsp, schedule;
    bool operator==(const Results& o) const {
        return event == o.event && report == o.report && certificate == o.certificate && ocsp == o.ocsp &&
               schedule == o.schedule;
    }
};
std::ostream& operator<<(std::ostream& os, const Results& r) {
    return os << r.event << r.report << r.certificate << r.ocsp << r.schedule;
}

Results CallAll() {
    const EventDataItem event = OverCurrentEvent();
    OcspRequestDataItem ocsp;
    std::memset(&ocsp, 0, sizeof ocsp);
    CTools::CopyField(ocsp.issuerNameHash, "aa");
    CTools::CopyField(ocsp.issuerKeyHash, "bb");
    CTools::CopyField(ocsp.serialNumber, "01");
    CTools::CopyField(ocsp.responderURL, "http://ocsp.example");
    return {OcppProtocol_NotifyEvent(&event, 1), OcppProtocol_MonitoringReport("m1", 3),
            OcppProtocol_Get15118EVCertificate("urn:iso:15118:2:2013:MsgDef", 0, "QUJD", nullptr, nullptr, 0),
            OcppProtocol_GetCertificateStatus(&ocsp, nullptr, nullptr, 0),
            OcppProtocol_NotifyEVChargingSchedule(1, 1700000000u, kSchedule, static_cast<int>(strlen(kSchedule)))};
}

}  // namespace

TEST(StationReports, EventsCertificatesAndEvSchedulesGoOnlyToAVersionThatHasThem) {
    ResetSdkState();
    RecordingLink link;
    link.Answer([](const std::string& id) { return Accepted(id); });
    g_eSdkStatus = SDKSTATUS_OK;

    OcppProtocol_InitOcppProtocol(OCPPPROTOCOL_NONE);
    EXPECT_EQ(CallAll(), (Results{1, 1, 0, 0, 1})) << "requests whose answer the host reads report nothing done";
    OcppProtocol_InitOcppProtocol(OCPPPROTOCOL_16);
    EXPECT_EQ(CallAll(), (Results{1, 1, 0, 0, 1}));
    EXPECT_EQ(link.Count(), 0u);

    // Each frame passes its schema on the recording link.
    OcppProtocol_InitOcppProtocol(OCPPPROTOCOL_201);
    EXPECT_EQ(CallAll(), (Results{1, 1, 1, 1, 1}));
    EXPECT_EQ(link.Count("NotifyEvent"), 1u);
    EXPECT_EQ(link.Count("NotifyEVChargingSchedule"), 1u);
    EXPECT_EQ(link.Count(), 5u);

    // 2.1 has its own schedule message: the 2.0.1 one is never sent there.
    link.Clear();
    OcppProtocol_InitOcppProtocol(OCPPPROTOCOL_21);
    EXPECT_EQ(CallAll(), (Results{1, 1, 1, 1, 1}));
    EXPECT_EQ(link.Count("NotifyEVChargingSchedule"), 0u);
    EXPECT_EQ(link.Count(), 4u);
    ResetSdkState();
}

TEST(StationReports, TheCsmsCertificateAnswerReachesTheHostCutToItsBufferAndBadInputSendsNothing) {
    ResetSdkState();
    RecordingLink link;
    g_eSdkStatus = SDKSTATUS_OK;
    OcppProtocol_InitOcppProtocol(OCPPPROTOCOL_201);
    link.Answer([](const std::string& id) {
        return "[3,\"" + id + "\",{\"status\":\"Failed\",\"exiResponse\":\"RVhJUkVTUA==\"}]";
    });
    int status = -1;
    char exi[5];
    EXPECT_EQ(OcppProtocol_Get15118EVCertificate("urn:iso:15118:2:2013:MsgDef", 1, "QUJD", &status, exi, sizeof exi),
              1);
    EXPECT_EQ(status, 1);
    EXPECT_STREQ(exi, "RVhJ");

    link.Clear();
    EventDataItem event = OverCurrentEvent();
    event.trigger = 3;
    EXPECT_EQ(OcppProtocol_NotifyEvent(&event, 1), 0) << "a trigger outside the list";
    EXPECT_EQ(OcppProtocol_NotifyEVChargingSchedule(1, 0, "{\"id\":1}", 8), 0) << "a schedule without periods";
    EXPECT_EQ(OcppProtocol_Get15118EVCertificate("v", 2, "QUJD", nullptr, nullptr, 0), 0) << "no such action";
    EXPECT_EQ(link.Count(), 0u);
    ResetSdkState();
}

TEST(EnumTrans, NeutralStatusesLandOnTheRightOcpp16Value) {
    EXPECT_EQ(OcppEnumTrans_TransFirmwareStatus16(FIRMWARESTATUS_DOWNLOADED), 0);
    EXPECT_EQ(OcppEnumTrans_TransFirmwareStatus16(FIRMWARESTATUS_IDLE), 3);
    EXPECT_EQ(OcppEnumTrans_TransFirmwareStatus16(FIRMWARESTATUS_INSTALLED), 6);
    EXPECT_EQ(OcppEnumTrans_TransFirmwareStatus16(FIRMWARESTATUS_INVALIDSIGNATURE), 4) << "InstallationFailed";
    EXPECT_EQ(OcppEnumTrans_TransFirmwareStatus16(static_cast<FIRMWARESTATUS>(14)), -1);
    EXPECT_EQ(OcppEnumTrans_TransUploadLogStatus16(UPLOADLOGSTATUS_IDLE), 0);
    EXPECT_EQ(OcppEnumTrans_TransUploadLogStatus16(UPLOADLOGSTATUS_UPLOADING), 3);
    EXPECT_EQ(OcppEnumTrans_UnlockStatus16(UNLOCKSTATUS_UNKNOWNCONNECTOR), 2) << "NotSupported";
    EXPECT_EQ(OcppEnumTrans_TransMessageTrigger(5), 7) << "1.6 StatusNotification";
    EXPECT_EQ(OcppEnumTrans_TransMessageTrigger(6), -1);
    EXPECT_EQ(OcppEnumTrans_TransAllowEnergyTransfer21("AC_three_phase"), ENERGYTRANSFERMODE_AC_THREE_PHASE);
    EXPECT_EQ(OcppEnumTrans_TransAllowEnergyTransfer21("DC_BPT"), -1);
}

TEST(StructTrans, TheEndMeterIsTheLastImportRegisterReadingScaled) {
    EXPECT_DOUBLE_EQ(OcppStructTrans_GetEndMeter(
                         "[{\"sampledValue\":[{\"value\":7}]},"
                         "{\"sampledValue\":[{\"value\":1.5,\"unitOfMeasure\":{\"multiplier\":3}},"
                         "{\"value\":230,\"measurand\":\"Voltage\"}]}]"),
                     1500.0);
    EXPECT_EQ(OcppStructTrans_GetEndMeter("{\"sampledValue\":[{\"value\":1,\"measurand\":\"SoC\"}]}"), -1.0);
    EXPECT_EQ(OcppStructTrans_GetEndMeter("not json"), -1.0);
}
