#include <gtest/gtest.h>

#include <cstddef>
#include <cstring>
#include <functional>
#include <string>
#include <vector>

#include <OcppRecords.h>

#include "OcppProtocol/InboundFrame.h"
#include "OcppProtocol/MessageCallBack.h"
#include "Process/BootHeartbeat.h"
#include "Engine20.h"
#include "FrameSchema.h"
#include "Util/Tools.h"

using namespace ocpptest;

namespace {

using Dispatch = Engine20;

std::string Text(const std::string& bytes, size_t offset) { return std::string(bytes.c_str() + offset); }

uint32_t U32At(const std::string& bytes, size_t offset) {
    uint32_t v = 0;
    std::memcpy(&v, bytes.data() + offset, 4);
    return v;
}

struct Field {
    size_t offset;
    char kind;  // 'i' int32, 'u' uint32, 'b' byte, 's' text
    int64_t number;
    const char* text = nullptr;
};

struct HostRow {
    const char* action;
    const char* payload;
    int32_t type;
    size_t size;
    std::vector<Field> fields;
    std::function<int(const char* id)> hostAnswers;
    const char* answer;  // a status, or the whole payload the CALLRESULT carries after its header line
};

const int64_t k2030 = 1893456000;  // 2030-01-01T00:00:00Z

std::vector<HostRow> HostRows() {
    return {
        {"ChangeAvailability", R"({"evse":{"id":2,"connectorId":1},"operationalStatus":"Operative"})", 1, 53,
         {{41, 'i', 2}, {45, 'i', 1}, {49, 'i', 1}},
         [](const char* id) { return Ocpp20Protocol_ChangeAvailability(id, 2); }, "Scheduled"},
        {"CancelReservation", R"({"reservationId":77})", 2, 45, {{41, 'i', 77}},
         [](const char* id) { return Ocpp20Protocol_CancelReservation(id, 1); }, "Rejected"},
        {"CertificateSigned", R"({"certificateChain":"-----PEM-----","certificateType":"V2GCertificate"})", 7, 10046,
         {{41, 's', 0, "-----PEM-----"}, {10042, 'i', 1}},
         [](const char* id) { return Ocpp20Protocol_CertificateSigned(id, 0); }, "Accepted"},
        {"ClearDisplayMessage", R"({"id":5})", 9, 45, {{41, 'i', 5}},
         [](const char* id) { return Ocpp20Protocol_ClearDisplayMessage(id, 1); }, "Unknown"},
        {"CostUpdated", R"({"totalCost":12.5,"transactionId":"tx-9"})", 13, 422,
         {{41, 's', 0, "tx-9"}, {78, 's', 0, "12.5"}}, [](const char* id) { return Ocpp20Protocol_CostUpdated(id); },
         "{\n}"},
        {"DeleteCertificate",
         R"({"certificateHashData":{"hashAlgorithm":"SHA384","issuerNameHash":"aa","issuerKeyHash":"bb","serialNumber":"01"}})",
         15, 342, {{41, 'b', 1}, {42, 's', 0, "aa"}, {171, 's', 0, "bb"}, {300, 's', 0, "01"}},
         [](const char* id) { return Ocpp20Protocol_DeleteCertificate(id, 2); }, "NotFound"},
        {"InstallCertificate", R"({"certificateType":"CSMSRootCertificate","certificate":"PEM"})", 16, 5546,
         {{41, 'i', 2}, {45, 's', 0, "PEM"}},
         [](const char* id) { return Ocpp20Protocol_InstallCertificate(id, 2); }, "Failed"},
        {"TriggerMessage", R"({"requestedMessage":"MeterValues","evse":{"id":1,"connectorId":2}})", 3, 47,
         {{41, 'i', 4}, {45, 'b', 1}, {46, 'b', 2}},
         [](const char* id) { return Ocpp20Protocol_TriggerMessage(id, 2); }, "NotImplemented"},
        {"ReserveNow",
         R"({"id":3,"expiryDateTime":"2030-01-01T00:00:00Z","idToken":{"idToken":"TOKEN1","type":"ISO14443"},"evseId":2})",
         4, 94, {{41, 'i', 3}, {45, 'u', k2030}, {49, 's', 0, "TOKEN1"}, {86, 'i', 2}, {90, 'i', 2}},
         [](const char* id) { return Ocpp20Protocol_ReserveNow(id, 2); }, "Occupied"},
        {"Reset", R"({"type":"OnIdle","evseId":300})", 21, 46, {{41, 'i', 1}, {45, 'b', 300 & 0xFF}},
         [](const char* id) { return Ocpp20Protocol_Reset(id, 0); }, "Accepted"},
        {"RequestStartTransaction", R"({"idToken":{"idToken":"ABC","type":"Central"},"remoteStartId":12,"evseId":1})",
         23, 90, {{41, 'i', 1}, {45, 'i', 12}, {49, 's', 0, "ABC"}, {86, 'i', 0}},
         [](const char* id) { return Ocpp20Protocol_RequestStartTransaction(id, 0, "tx-1"); },
         "{\n\"status\": \"Accepted\",\n\"transactionId\": \"tx-1\"\n}"},
        {"RequestStopTransaction", R"({"transactionId":"tx-2"})", 24, 78, {{41, 's', 0, "tx-2"}},
         [](const char* id) { return Ocpp20Protocol_RequestStopTransaction(id, 1); }, "Rejected"},
        {"PublishFirmware", R"({"location":"ftp://x","checksum":"0123456789abcdef0123456789abcdef","requestId":9})",
         25, 599, {{41, 's', 0, "ftp://x"}, {554, 'i', -1}, {558, 's', 0, "0123456789abcdef0123456789abcdef"},
          {591, 'i', 9}, {595, 'i', -1}},
         [](const char* id) { return Ocpp20Protocol_PublishFirmware(id, 0); }, "Accepted"},
        {"DataTransfer", R"({"vendorId":"com.v","messageId":"m1","data":{"a":1}})", 6, 1373,
         {{41, 's', 0, "com.v"}, {297, 's', 0, "m1"}, {348, 's', 0, "{\"a\":1}"}},
         [](const char* id) { return Ocpp20Protocol_DataTransfer(id, 0, "{\"ok\":true}", 1); },
         "{\n\"status\": \"Accepted\",\n\"data\": {\"ok\":true}\n}"},
        {"UnlockConnector", R"({"evseId":1,"connectorId":2})", 10, 49, {{41, 'i', 1}, {45, 'i', 2}},
         [](const char* id) { return Ocpp20Protocol_UnlockConnector(id, 0); }, "Unlocked"},
        {"UnpublishFirmware", R"({"checksum":"ffffffffffffffffffffffffffffffff"})", 12, 74,
         {{41, 's', 0, "ffffffffffffffffffffffffffffffff"}},
         [](const char* id) { return Ocpp20Protocol_UnpublishFirmware(id, 2); }, "Unpublished"},
        {"GetInstalledCertificateIds", R"({"certificateType":["V2GRootCertificate","CSMSRootCertificate"]})", 18, 53,
         {{41, 'i', 2}, {45, 'i', 0}, {49, 'i', 2}},
         [](const char* id) { return Ocpp20Protocol_GetInstalledCertificateIds(id, 1, nullptr, 0); }, "NotFound"},
        {"GetLog",
         R"({"log":{"remoteLocation":"https://up","oldestTimestamp":"2030-01-01T00:00:00Z"},"logType":"SecurityLog","requestId":4,"retries":2})",
         27, 2066, {{41, 'i', 1}, {45, 'i', 4}, {49, 'i', 2}, {53, 'i', -1},
          {57, 's', 0, "https://up"}, {2058, 'u', k2030}, {2062, 'u', 0}},
         [](const char* id) { return Ocpp20Protocol_GetLog(id, 0, "diag.zip"); },
         "{\n\"status\": \"Accepted\",\n\"filename\": \"diag.zip\"\n}"},
        {"UpdateFirmware", R"({"requestId":5,"firmware":{"location":"https://fw","retrieveDateTime":"2030-01-01T00:00:00Z"}})",
         20, 6876, {{41, 'i', -1}, {45, 'i', -1}, {49, 'i', 5}, {53, 's', 0, "https://fw"},
          {566, 'u', k2030}, {570, 'u', 0}, {574, 's', 0, ""}, {6075, 's', 0, ""}},
         [](const char* id) { return Ocpp20Protocol_UpdateFirmware(id, 3); }, "InvalidCertificate"},
    };
}

}  // namespace

TEST_F(Dispatch, EveryHostAnsweredRequestReachesTheHostAndItsAnswerGoesBackUnderTheSameId) {
    const std::vector<HostRow> rows = HostRows();
    for (size_t i = 0; i < rows.size(); ++i) {
        const HostRow& row = rows[i];
        SCOPED_TRACE(row.action);
        host.Clear();
        link.Clear();
        const std::string id = "call-" + std::to_string(i);
        DeliverTo20(Call(id, row.action, row.payload));
        ASSERT_TRUE(host.WaitForCount(1));
        EXPECT_EQ(link.Count(), 0u) << "nothing goes out before the host answers";

        const std::string record = host.Records()[0].bytes;
        ASSERT_EQ(record.size(), row.size);
        EXPECT_EQ(Int32At(record, 0), row.type);
        EXPECT_EQ(Text(record, 4), id);
        for (const Field& f : row.fields) {
            SCOPED_TRACE(f.offset);
            switch (f.kind) {
                case 'i': EXPECT_EQ(Int32At(record, f.offset), f.number); break;
                case 'u': EXPECT_EQ(U32At(record, f.offset), static_cast<uint32_t>(f.number)); break;
                case 'b': EXPECT_EQ(static_cast<uint8_t>(record[f.offset]), f.number); break;
                default: EXPECT_EQ(Text(record, f.offset), f.text); break;
            }
        }

        EXPECT_EQ(row.hostAnswers(id.c_str()), 1);
        const std::string payload =
            row.answer[0] == '{' ? row.answer : std::string("{\n\"status\": \"") + row.answer + "\"\n}";
        EXPECT_EQ(link.Last(), "[3,\"" + id + "\",\n" + payload + "]");
    }
}

TEST_F(Dispatch, RequestIsServedFromTheFrameAsReadOnArrival) {
    const std::string call = Call("q2", "Reset", R"({"type":"OnIdle","evseId":2})");
    std::unique_ptr<CInboundFrame> frame = CInboundFrame::Copy(call.data(), call.size());
    ASSERT_TRUE(frame && frame->Parsed());
    // Through the notification thread, as the link delivers; the text is spoiled after
    // reading, so only the document read on arrival can serve the request.
    std::memset(const_cast<char*>(frame->Text()), ' ', frame->Length());
    CMessageCallBack::GetInstance()->OnWebSocketMessage(std::move(frame));
    ASSERT_TRUE(host.WaitForType(SERVERRECVTYPE_RESET));
    const std::string record = host.Records()[0].bytes;
    EXPECT_EQ(Text(record, 4), "q2");
    EXPECT_EQ(Int32At(record, 41), 1);
    EXPECT_EQ(static_cast<uint8_t>(record[45]), 2);
}

// An action no store serves yet is left to the transport's time-out; unawaited answers are dropped quietly,
// and only a frame typed CALL is a request, whatever action name an answer or error carries.
TEST_F(Dispatch, UnservedUnawaitedOrUnreadableFramesGetNoAnswerAndDoNotStopTheNextRequest) {
    DeliverTo20(Call("u3", "ClearChargingProfile", "{}"));
    DeliverTo20("[4,\"e1\",\"GenericError\",\"late\",{}]");
    DeliverTo20("[3,\"r1\",{\"status\":\"Accepted\"}]");
    DeliverTo20(R"([4,"e2","Reset","",{}])");
    DeliverTo20(R"([3,"r2","Reset",{"type":"Immediate"}])");
    Drain();
    EXPECT_EQ(host.Count(), 0u);
    EXPECT_EQ(log.Count("recv cms data error"), 0u);

    DeliverTo20("[5,\"x\",{\"a\":1}]");
    EXPECT_TRUE(log.Contains("recv cms data error:[5,\"x\",{\"a\":1}]\n", 2));
    DeliverTo20("[2,\"x\",\"Reset\",{");
    DeliverTo20(std::string(200000, '['));
    EXPECT_EQ(log.Count("recv cms data error"), 3u);
    EXPECT_EQ(link.Count(), 0u);

    // Out-of-range numbers and deep nesting may be answered with an error, but must not stop what follows.
    const std::string nested = std::string(1200, '[') + std::string(1200, ']');
    DeliverTo20("[3000000000,\"x\",{}]");
    DeliverTo20("[1e10,\"x\"]");
    DeliverTo20(nested);
    DeliverTo20(Call("n1", "Reset", nested));
    DeliverTo20(Call("n2", "Reset", R"({"type":"Immediate","evseId":3000000000})"));
    DeliverTo20(Call("n3", "Reset", R"({"type":"Immediate","evseId":1e10})"));
    DeliverTo20(Call("n4", "GetVariables", "{\"getVariableData\":" + nested + "}"));
    Drain();
    host.Clear();
    DeliverTo20(Call("ok", "Reset", R"({"type":"Immediate"})"));
    ASSERT_TRUE(host.WaitForType(SERVERRECVTYPE_RESET));
    EXPECT_EQ(Text(host.Records()[0].bytes, 4), "ok");
}

TEST_F(Dispatch, RejectedStationRefusesRequestsExceptBootTrigger) {
    CBootHeartbeat::GetInstance()->SetBootStatus(2);
    DeliverTo20(Call("g1", "GetVariables", R"({"getVariableData":[]})"));
    DeliverTo20(Call("g2", "Reset", R"({"type":"Immediate"})"));
    DeliverTo20(Call("g3", "TriggerMessage", R"({"requestedMessage":"Heartbeat"})"));
    EXPECT_EQ(link.Sent(), (std::vector<std::string>{"[4,\"g1\",\"SecurityError\",\"\",{}]\n",
                                                     "[4,\"g2\",\"SecurityError\",\"\",{}]\n",
                                                     "[4,\"g3\",\"SecurityError\",\"\",{}]\n"}));

    // The library answers a boot trigger itself and boots again.
    DeliverTo20(Call("t1", "TriggerMessage", R"({"requestedMessage":"BootNotification"})"));
    ASSERT_EQ(link.Count(), 5u);
    EXPECT_EQ(link.Sent()[3], "[3,\"t1\",\n{\n\"status\": \"Accepted\"\n}]");
    EXPECT_NE(link.Sent()[4].find("\"BootNotification\""), std::string::npos);
    EXPECT_NE(link.Sent()[4].find("\"Triggered\""), std::string::npos);

    CBootHeartbeat::GetInstance()->SetBootStatus(1);
    DeliverTo20(Call("p1", "Reset", R"({"type":"Immediate"})"));
    ASSERT_TRUE(host.WaitForType(SERVERRECVTYPE_RESET));
    EXPECT_EQ(link.Count(), 5u);
}

TEST_F(Dispatch, LongTextsAreCutToTheRecordFields) {
    const std::string chain(10000, 'C');
    DeliverTo20(Call("c1", "CertificateSigned", "{\"certificateChain\":\"" + chain + "\"}"));
    ASSERT_TRUE(host.WaitForType(SERVERRECVTYPE_CERTIFICATESIGNED));
    const std::string record = host.Records()[0].bytes;
    EXPECT_EQ(Text(record, 41), std::string(10000, 'C'));
    EXPECT_EQ(Int32At(record, 10042), -1);

    host.Clear();
    const std::string longId(60, 'i');
    DeliverTo20(Call(longId, "CancelReservation", R"({"reservationId":1})"));
    ASSERT_TRUE(host.WaitForType(SERVERRECVTYPE_CANCELRESERVATION));
    EXPECT_EQ(Text(host.Records()[0].bytes, 4), longId.substr(0, 36));
}

TEST_F(Dispatch, InstalledCertificatesAreListedInTheAnswer) {
    CertificateHashDataChainItem items[2];
    std::memset(items, 0, sizeof(items));
    items[0].certificateType = 2;
    items[0].hashAlgorithm = 0;
    CTools::CopyField(items[0].issuerNameHash, "n0");
    CTools::CopyField(items[0].issuerKeyHash, "k0");
    CTools::CopyField(items[0].serialNumber, "s0");
    items[1] = items[0];
    items[1].certificateType = 4;
    EXPECT_EQ(Ocpp20Protocol_GetInstalledCertificateIds("i1", 0, items, 2), 1);
    for (const char* member : {"\"certificateType\": \"CSMSRootCertificate\"",
                               "\"certificateType\": \"ManufacturerRootCertificate\"", "\"serialNumber\": \"s0\""})
        EXPECT_NE(link.Last().find(member), std::string::npos) << member;

    items[1].hashAlgorithm = 7;
    EXPECT_EQ(Ocpp20Protocol_GetInstalledCertificateIds("i2", 0, items, 2), 0);
    EXPECT_EQ(Ocpp20Protocol_GetInstalledCertificateIds("i3", 0, nullptr, 1), 0);
    EXPECT_EQ(link.Count(), 1u);
}

// Hosts parse records by byte offset; a moved field breaks every host silently.
// The request records above are checked field by field; these the library fills itself.
TEST(RecordLayout, StatusTransactionMessageAndVariableLengthRecordsKeepTheirByteOffsets) {
    EXPECT_EQ(offsetof(SdkStatusChange, protocol), 49u);
    EXPECT_EQ(offsetof(SdkStatusChange, needReportVariables), 53u);
    EXPECT_EQ(offsetof(SdkStatusChange, resetFactoryConfig), 57u);
    EXPECT_EQ(offsetof(NotifyTransactionStop, transactionId), 41u);
    EXPECT_EQ(offsetof(NotifyTransactionStop, stopReason), 78u);
    EXPECT_EQ(offsetof(PersonalMsg, evseId), 41u);
    EXPECT_EQ(offsetof(PersonalMsg, transactionId), 45u);
    EXPECT_EQ(offsetof(PersonalMsg, format), 82u);
    EXPECT_EQ(offsetof(PersonalMsg, language), 86u);
    EXPECT_EQ(offsetof(PersonalMsg, content), 95u);
    EXPECT_EQ(sizeof(((PersonalMsg*)0)->content), 513u);
    // A variable-length record's tail follows its head.
    EXPECT_EQ(offsetof(ChargingProfileChange, evseId), 41u);
    EXPECT_EQ(offsetof(ChargingProfileChange, value), 42u);
    EXPECT_EQ(offsetof(ChargingProfileChange, textLength), 46u);
}
