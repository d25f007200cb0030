#include <gtest/gtest.h>

#include <OcppProtocol.h>

#include <cstring>
#include <string>
#include <vector>

#include "OcppProtocol/OcppEnumTrans.h"
#include "OcppProtocol/OcppProtocol.h"
#include "OcppProtocol/OcppStructTrans.h"
#include "RecordingHost.h"
#include "RecordingLink.h"
#include "TestSupport.h"
#include "Util/Tools.h"

using namespace ocpptest;

namespace {

const char kSchedule[] = "{\"id\":1,\"chargingRateUnit\":\"A\",\"chargingSchedulePeriod\":[{\"startPeriod\":0,\"limit\":16}]}";

// Every new entry as the host calls it: event, monitoring report, EV certificate, OCSP, EV schedule.
std::vector<int> CallAll() {
    EventDataItem event = {};  // an Alerting hard-wired event of the station itself, ids absent
    event.cause = event.variableMonitoringId = -1;
    CTools::CopyField(event.componentName, "EVSE");
    CTools::CopyField(event.variableName, "Current");
    const OcspRequestDataItem ocsp = {0, "aa", "bb", "01", "http://ocsp.example"};
    return {OcppProtocol_NotifyEvent(&event, 1), OcppProtocol_MonitoringReport("m1", 3),
            OcppProtocol_Get15118EVCertificate("urn:iso:15118:2:2013:MsgDef", 0, "QUJD", nullptr, nullptr, 0),
            OcppProtocol_GetCertificateStatus(&ocsp, nullptr, nullptr, 0),
            OcppProtocol_NotifyEVChargingSchedule(1, 1700000000u, kSchedule, static_cast<int>(strlen(kSchedule)))};
}

}  // namespace

TEST(StationReports, EventsCertificatesAndEvSchedulesGoOnlyToAVersionThatHasThem) {
    ResetSdkState();
    RecordingLink link;
    link.Answer([](const std::string& id) { return "[3,\"" + id + "\",{\"status\":\"Accepted\"}]"; });
    g_eSdkStatus = SDKSTATUS_OK;

    OcppProtocol_InitOcppProtocol(OCPPPROTOCOL_NONE);
    EXPECT_EQ(CallAll(), (std::vector<int>{1, 1, 0, 0, 1})) << "requests whose answer the host reads report nothing done";
    OcppProtocol_InitOcppProtocol(OCPPPROTOCOL_16);
    EXPECT_EQ(CallAll(), (std::vector<int>{1, 1, 0, 0, 1}));
    EXPECT_EQ(link.Count(), 0u);

    // Each frame passes its schema on the recording link.
    OcppProtocol_InitOcppProtocol(OCPPPROTOCOL_201);
    EXPECT_EQ(CallAll(), (std::vector<int>{1, 1, 1, 1, 1}));
    EXPECT_EQ(link.Count("NotifyEvent"), 1u);
    EXPECT_EQ(link.Count("NotifyEVChargingSchedule"), 1u);
    EXPECT_EQ(link.Count(), 5u);

    // 2.1 has its own schedule message: the 2.0.1 one is never sent there.
    link.Clear();
    OcppProtocol_InitOcppProtocol(OCPPPROTOCOL_21);
    EXPECT_EQ(CallAll(), (std::vector<int>{1, 1, 1, 1, 1}));
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
