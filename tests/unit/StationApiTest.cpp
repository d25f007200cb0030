#include <gtest/gtest.h>

#include <OcppProtocol.h>

#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "MeterBuffer.h"
#include "Ocpp20/Process/TransactionManager.h"
#include "OcppProtocol/OcppEnumTrans.h"
#include "OcppProtocol/OcppProtocol.h"
#include "OcppProtocol/OcppStructTrans.h"
#include "OcppProtocol/OutboundSender.h"
#include "OcppProtocol/StationEngine.h"
#include "RecordingHost.h"
#include "RecordingLink.h"
#include "TestSupport.h"
#include "Util/Tools.h"

using namespace ocpptest;

namespace {

// Says which entry reached it; every result is 7 so routing shows in the result too.
class FakeEngine : public CStationEngine {
public:
    std::vector<std::string> calls;
    int TransactionStart(int, int, const char*, int, TRANSACTIONREASON, TRANSACTIONCHARGINGSTATE, int, int,
                         const char*, const void*, int, char*, int*) override {
        return Call("start");
    }
    int TransactionUpate(const char*, TRANSACTIONREASON, TRANSACTIONCHARGINGSTATE, const void*, int, int) override {
        return Call("update");
    }
    int GetTransactionCount() override { return Call("count"); }
    int Answer(STATIONANSWER answer, const char*, int) override { return Call("answer" + std::to_string(answer)); }
    int SetMeterValues(int, const void*, int) override { return Call("meterValues"); }

private:
    int Call(const std::string& name) {
        calls.push_back(name);
        return 7;
    }
};

class StationApi : public ::testing::Test {
protected:
    void SetUp() override {
        ResetSdkState();
        RegisterStationEngine(OCPPPROTOCOL_201, &engine);
    }
    void TearDown() override {
        RegisterStationEngine(OCPPPROTOCOL_201, nullptr);
        ResetSdkState();
    }
    // One transaction entry and one answer entry, as the host calls them.
    std::vector<int> CallBoth() {
        char id[37] = {};
        return {OcppProtocol_TransactionStart(1, 1, "CARD", 2, TRANSACTIONREASON_AUTHORIZED,
                                              TRANSACTIONCHARGINGSTATE_CHARGING, 0, 0, nullptr, nullptr, 0, id,
                                              nullptr),
                OcppProtocol_TransactionUpate("tx", TRANSACTIONREASON_TRIGGER, TRANSACTIONCHARGINGSTATE_CHARGING,
                                              nullptr, 0, 0),
                OcppProtocol_GetTransactionCount(), OcppProtocol_Reset("m1", 0),
                OcppProtocol_RequestStopTransaction("m2", 0), OcppProtocol_SetMeterValues(1, nullptr, 0)};
    }
    FakeEngine engine;
    RecordingLink link;
};

OUTBOUNDKIND g_keptKind = OUTBOUNDKIND_COUNT;
int KeepOffline(const OutboundMessage& message) {
    g_keptKind = message.kind;
    return 1;
}

MeterItem HeadAt(const void* item) {
    MeterItem head;
    std::memcpy(&head, item, sizeof head);
    return head;
}


class StationReports : public ::testing::Test {
protected:
    void SetUp() override {
        ResetSdkState();
        g_eSdkStatus = SDKSTATUS_OK;
    }
    void TearDown() override { ResetSdkState(); }
    // The CSMS answers every request with `payload`.
    void CsmsAnswers(const std::string& payload) {
        link.Answer([payload](const std::string& id) { return "[3,\"" + id + "\"," + payload + "]"; });
    }
    RecordingLink link;
};

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

TEST_F(StationApi, EntriesGoToTheNegotiatedVersionsEngineAndDoNothingBeforeAVersionIsKnown) {
    OcppProtocol_InitOcppProtocol(OCPPPROTOCOL_NONE);
    EXPECT_EQ(CallBoth(), (std::vector<int>{255, 255, 255, 1, 1, 1}));
    OcppProtocol_InitOcppProtocol(OCPPPROTOCOL_16);
    EXPECT_EQ(CallBoth(), (std::vector<int>{255, 255, 255, 1, 1, 1})) << "no 1.6 engine in this build";
    EXPECT_TRUE(engine.calls.empty());
    EXPECT_EQ(link.Count(), 0u);

    OcppProtocol_InitOcppProtocol(OCPPPROTOCOL_201);
    EXPECT_EQ(CallBoth(), (std::vector<int>{7, 7, 7, 7, 7, 7}));
    EXPECT_EQ(engine.calls, (std::vector<std::string>{"start", "update", "count", "answer3", "answer12", "meterValues"}));

    // 2.1 answers the CSMS with the 2.0.1 engine; its transactions have no engine yet.
    engine.calls.clear();
    OcppProtocol_InitOcppProtocol(OCPPPROTOCOL_21);
    EXPECT_EQ(CallBoth(), (std::vector<int>{255, 255, 255, 7, 7, 7}));
    EXPECT_EQ(engine.calls, (std::vector<std::string>{"answer3", "answer12", "meterValues"}));
}

TEST(MeterBuffers, SignedItemsAreSteppedByTheirOwnLengthExceptWhenCutIntoSeparateItems) {
    MeterBuffer meter;
    meter.Add(1, 1.0, SAMPLEDVALUEMEASURAND_ENERGY_ACTIVE_IMPORT_REGISTER)
        .AddSigned(2, 2.0, SAMPLEDVALUEMEASURAND_ENERGY_ACTIVE_IMPORT_REGISTER, std::string(100, 'x'))
        .Add(3, 3.0, SAMPLEDVALUEMEASURAND_VOLTAGE);
    const std::vector<unsigned char>& bytes = meter.bytes;
    ASSERT_EQ(OcppProtocolUtils_GetMeterLength(bytes.data(), 3), static_cast<int>(bytes.size()));
    EXPECT_EQ(HeadAt(OcppProtocolUtils_GetLastMeter(bytes.data(), 3)).timestamp, 3u);

    // The copy is renumbered for 2.1 and 1.6; the host's buffer stays as it was.
    const std::vector<unsigned char> before = bytes;
    unsigned char* copy = static_cast<unsigned char*>(OcppProtocolUtils_GetMeterCopy(bytes.data(), 3));
    ASSERT_NE(copy, nullptr);
    OcppProtocolUtils_ChangeMeterMeasurand21(copy, 3);
    EXPECT_EQ(HeadAt(copy).measurand, 20) << "Energy.Active.Import.Register in the 2.1 list";
    EXPECT_EQ(HeadAt(copy + sizeof(MeterItem)).measurand, 20);
    EXPECT_EQ(HeadAt(copy + sizeof(MeterItem) + sizeof(SignedMeterItem)).measurand, 53) << "Voltage in 2.1";
    std::free(copy);
    copy = static_cast<unsigned char*>(OcppProtocolUtils_GetMeterCopy(bytes.data(), 3));
    OcppProtocolUtils_ChangeMeterMeasurand16(copy, 3);
    EXPECT_EQ(HeadAt(copy).measurand, 1) << "Energy.Active.Import.Register in the 1.6 list";
    EXPECT_EQ(HeadAt(copy + sizeof(MeterItem) + sizeof(SignedMeterItem)).measurand, 17) << "Voltage in 1.6";
    std::free(copy);
    EXPECT_EQ(bytes, before);

    // Cutting into items takes every length from the first item: a mixed
    // buffer's third item is read from inside the signed one.
    std::vector<void*> items = OcppProtocolUtils_MeterBufferToVector(3, bytes.data());
    ASSERT_EQ(items.size(), 3u);
    EXPECT_EQ(HeadAt(items[1]).timestamp, 2u);
    EXPECT_NE(HeadAt(items[2]).timestamp, 3u);
    OcppProtocolUtils_MeterVectorRelease(items);
    EXPECT_TRUE(items.empty());
}

TEST(EnumTrans, StopReasonsAndStatusesKeepTheirMeaningInEveryVersion) {
    EXPECT_EQ(OcppEnumTrans_TransTransactionStopReason20(TRANSACTIONSTOPREASON_MASTERPASS), 8);
    EXPECT_EQ(OcppEnumTrans_TransTransactionStopReason21(TRANSACTIONSTOPREASON_MASTERPASS), 6) << "2.1 moved it";
    EXPECT_EQ(OcppEnumTrans_TransTransactionStopReason21(TRANSACTIONSTOPREASON_LOCAL), 7);
    EXPECT_EQ(OcppEnumTrans_TransTransactionStopReason16(TRANSACTIONSTOPREASON_DEAUTHORIZED), 10);
    EXPECT_EQ(OcppEnumTrans_TransTransactionStopReason16(TRANSACTIONSTOPREASON_IMMEDIATERESET), 2) << "HardReset";
    EXPECT_EQ(OcppEnumTrans_TransTransactionStopReason20(19), -1);
    EXPECT_EQ(OcppEnumTrans_TransSampledValueMeasurand16(SAMPLEDVALUEMEASURAND_ENERGY_ACTIVE_NET), -1)
        << "1.6 has no net energy";
    EXPECT_EQ(OcppEnumTrans_TransAuthorizeStatus16(4), 2) << "1.6 ConcurrentTx";
    EXPECT_STREQ(OcppEnumTrans_ResponseErrorCodeToString(RESPONSEERRORCODE_FORMATVIOLATION), "FormatViolation");
    const TransactionInfoItem info[] = {{TRANSACTIONINFO_NUMBEROFPHASESUSED, 3}, {TRANSACTIONINFO_CABLEMAXCURRENT, 32},
                                        {TRANSACTIONINFO_NUMBEROFPHASESUSED, 4}};
    EXPECT_EQ(OcppStructTrans_TransactionEventParam20(info, 3, Ocpp20::TRANSACTIONEVENTPARAM_OFFLINE),
              Ocpp20::TRANSACTIONEVENTPARAM_OFFLINE | (3 << 4) | (32 << 8))
        << "four phases do not exist: the three stay";
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

TEST_F(StationReports, FirmwareStatusWaitsOfflineAndTheStationsDataTransferReturnsTheCsmsAnswer) {
    OcppProtocol_InitOcppProtocol(OCPPPROTOCOL_201);
    g_eSdkStatus = SDKSTATUS_DISCONNECTED;
    COutboundSender::SetOfflineStore(&KeepOffline);
    EXPECT_EQ(OcppProtocol_FirmwareStatusNotification(8, 5), 1) << "Installed, kept for later";
    EXPECT_EQ(g_keptKind, OUTBOUNDKIND_FIRMWARESTATUS);
    EXPECT_EQ(OcppProtocol_DataTransferRequest("acme", "price", "{}", 1, nullptr, nullptr, 0), 0)
        << "no answer while the link is down";
    COutboundSender::SetOfflineStore(nullptr);

    g_eSdkStatus = SDKSTATUS_OK;
    CsmsAnswers(R"({"status":"UnknownMessageId","data":"a long reply"})");
    int status = -1;
    char answer[7];
    EXPECT_EQ(OcppProtocol_DataTransferRequest("acme", "price", "{\"kWh\":3}", 1, &status, answer, sizeof answer), 1);
    EXPECT_EQ(status, 2);
    EXPECT_STREQ(answer, "a long") << "cut to the host's buffer";
    CsmsAnswers(R"({"status":"Rejected"})");
    EXPECT_EQ(OcppProtocol_SignCertificate("-----BEGIN CERTIFICATE REQUEST-----", 0), 0);
    CsmsAnswers(R"({"status":"Accepted"})");
    EXPECT_EQ(OcppProtocol_SignCertificate("-----BEGIN CERTIFICATE REQUEST-----", 0), 1);
}

TEST_F(StationReports, EventsCertificatesAndEvSchedulesGoOnlyToAVersionThatHasThem) {
    CsmsAnswers(R"({"status":"Accepted"})");

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
}

TEST_F(StationReports, TheCsmsCertificateAnswerReachesTheHostCutToItsBufferAndBadInputSendsNothing) {
    OcppProtocol_InitOcppProtocol(OCPPPROTOCOL_201);
    CsmsAnswers(R"({"status":"Failed","exiResponse":"RVhJUkVTUA=="})");
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
}

TEST(EndMeter, IsTheLastImportRegisterReadingScaledAndUnderOcpp16TheLastValueNotTheLargest) {
    EXPECT_DOUBLE_EQ(OcppStructTrans_GetEndMeter(
                         "[{\"sampledValue\":[{\"value\":7}]},"
                         "{\"sampledValue\":[{\"value\":1.5,\"unitOfMeasure\":{\"multiplier\":3}},"
                         "{\"value\":230,\"measurand\":\"Voltage\"}]}]"),
                     1500.0);
    EXPECT_EQ(OcppStructTrans_GetEndMeter("{\"sampledValue\":[{\"value\":1,\"measurand\":\"SoC\"}]}"), -1.0);
    EXPECT_EQ(OcppStructTrans_GetEndMeter("not json"), -1.0);
    MeterBuffer meter;
    meter.Add(0, 10.0, 4).Add(0, 30.0, 4).Add(0, 20.0, 4);
    EXPECT_EQ(OcppProtocolUtils_GetMeterMaxValue(3, meter.data()), 20u);
    EXPECT_EQ(OcppProtocolUtils_GetMeterMaxValue(0, nullptr), 0u);
}
