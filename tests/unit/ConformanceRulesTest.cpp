// What a certifying CSMS checks on the station beyond the schemas (the triggered
// boot and the heartbeat interval variable are in the boot and heartbeat tests).
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <Ocpp20Protocol.h>

#include <string>
#include <vector>

#include "Engine20.h"
#include "FrameSchema.h"
#include "Ocpp20/Process/VariableCache.h"
#include "OcppProtocol/OcppSendSeam.h"
#include "Process/BootHeartbeat.h"
#include "Process/ReservationManager.h"
#include "Util/Tools.h"

using namespace ocpptest;

namespace {

using Conformance = Engine20;

std::string Error(const std::string& id, const char* code) { return "[4,\"" + id + "\",\"" + code + "\",\"\",{}]\n"; }

}  // namespace

// Which rule a payload breaks is the schema check test's; here each kind of break is refused the same way.
TEST_F(Conformance, RequestBreakingItsSchemaIsRefusedAndNeverReachesTheHost) {
    const struct {
        const char* action;
        std::string payload;
    } cases[] = {
        {"Reset", R"({"type":"Sometime"})"},                                    // text outside the enumeration
        {"TriggerMessage", R"({"requestedMessage":"Coffee"})"},                 // the same, on a library-decided row
        {"CertificateSigned", "{\"certificateChain\":\"" + std::string(10001, 'C') + "\"}"},  // string too long
        {"Reset", R"(["Immediate"])"},                                          // payload not an object
        {"Reset", R"({"type":0})"},                                             // member of the wrong JSON type
        {"GetVariables", R"({"getVariableData":{"component":{}}})"},            // object where an array belongs
    };
    int n = 0;
    for (const auto& c : cases) {
        const std::string id = "v" + std::to_string(n++);
        DeliverTo20(Call(id, c.action, c.payload));
        EXPECT_EQ(link.Last(), Error(id, "TypeConstraintViolation")) << c.action << " " << c.payload.substr(0, 60);
    }
    EXPECT_EQ(link.Count(), static_cast<size_t>(n)) << "nothing but the errors leaves";
    EXPECT_TRUE(log.Contains("CustomException: type: not in enumeration", 1)) << "the log says which rule broke";
    Drain();
    EXPECT_EQ(host.Count(), 0u);
}

TEST_F(Conformance, ActionOutsideOcppIsNotImplementedAtOnce) {
    DeliverTo20(Call("u1", "MakeCoffee", "{}"));
    EXPECT_EQ(link.Last(), Error("u1", "NotImplemented"));
    DeliverTo20(Call("u2", "reset", R"({"type":"Immediate"})"));
    EXPECT_EQ(link.Last(), Error("u2", "NotImplemented"));
    // A rejected station still says SecurityError first.
    CBootHeartbeat::GetInstance()->SetBootStatus(2);
    DeliverTo20(Call("u3", "MakeCoffee", "{}"));
    EXPECT_EQ(link.Last(), Error("u3", "SecurityError"));
    Drain();
    EXPECT_EQ(host.Count(), 0u);
}

TEST_F(Conformance, FrameCheckRefusesWhatAStrictCsmsRefuses) {
    DeliverTo20(Call("g2", "GetVariables", R"({"getVariableData":[{"component":{"name":"X"},"variable":{"name":"Y"}}]})"));
    EXPECT_NE(FrameSchemaProblem("[3,\"g2\",\n{\"getVariableResult\": []}]"), "") << "empty result list";
    EXPECT_NE(FrameSchemaProblem("[2,\"c1\",\"Heartbeat\",\n{\"x\": 1}]"), "") << "unknown member";
    EXPECT_NE(FrameSchemaProblem("[4,\"c1\",\"Oops\",\"\",{}]\n"), "") << "unknown error code";
    EXPECT_EQ(FrameSchemaProblem("[4,\"c1\",\"GenericError\",\"\",{}]\n"), "");
}

TEST_F(Conformance, AcceptedCancelReservationForgetsTheReservationAndRejectedKeepsIt) {
    CReservationManager* store = CReservationManager::GetInstance();
    const uint32_t expiry = static_cast<uint32_t>(CTools::CurTimeSec() + 3600);
    store->StoreReservation(5, "A", 0, "", 0, expiry);
    store->StoreReservation(6, "B", 0, "", 0, expiry);
    DeliverTo20(R"([2,"c1","CancelReservation",{"reservationId":5}])");
    DeliverTo20(R"([2,"c2","CancelReservation",{"reservationId":6}])");
    EXPECT_EQ(Ocpp20Protocol_CancelReservation("c2", 1), 1);
    EXPECT_EQ(store->GetReservationItem(6, nullptr), 1);
    EXPECT_EQ(Ocpp20Protocol_CancelReservation("c1", 0), 1);
    EXPECT_EQ(store->GetReservationItem(5, nullptr), 0);

    // Requests the host never answers are forgotten first; they cannot pile up.
    DeliverTo20(R"([2,"old","CancelReservation",{"reservationId":6}])");
    for (size_t i = 0; i < CReservationManager::kMaxPendingCancels; ++i)
        DeliverTo20(R"([2,"n)" + std::to_string(i) + R"(","CancelReservation",{"reservationId":99}])");
    Ocpp20Protocol_CancelReservation("old", 0);
    EXPECT_EQ(store->GetReservationItem(6, nullptr), 1);
    CReservationManager::Release();
}

namespace {
std::string g_storePath;
std::vector<std::string> g_answers;
std::vector<std::string> g_storeAtAnswer;  // the store file as each answer left
int SendSeeingTheStore(const char* frame, int len) {
    const std::string text(frame, static_cast<size_t>(len));
    if (text.find("setVariableResult") == std::string::npos) return 1;
    g_answers.push_back(text);
    g_storeAtAnswer.push_back(ReadText(g_storePath));
    return 1;
}
int NoRequests(const char*, const char*, int, char*, int, int*) { return 0; }
}  // namespace

TEST_F(Conformance, LibraryOwnedSetVariablesValueIsOnTheFlashBeforeAcceptedIsSent) {
    g_storePath = dir.file("variablecache.json");
    g_answers.clear();
    g_storeAtAnswer.clear();
    COcppSendSeam::Set(&SendSeeingTheStore, &NoRequests);
    const std::string stored = R"("value":"%s","componentname":"OCPPCommCtrlr","variablename":"OfflineThreshold")";
    DeliverTo20(SetCall("d1", "OfflineThreshold", "42"));
    host.SettleSetVariables("d1");
    ASSERT_EQ(g_storeAtAnswer.size(), 1u);
    EXPECT_NE(g_answers[0].find("\"Accepted\""), std::string::npos);
    EXPECT_NE(g_storeAtAnswer[0].find(CTools::StringFormat(stored.c_str(), "42")), std::string::npos);

    // A store that cannot be written: the value is neither confirmed nor in force.
    ASSERT_EQ(mkdir((g_storePath + "1").c_str(), 0755), 0);
    DeliverTo20(SetCall("d2", "OfflineThreshold", "43"));
    host.SettleSetVariables("d2");
    ASSERT_EQ(g_answers.size(), 2u);
    EXPECT_NE(g_answers[1].find("\"Rejected\""), std::string::npos);
    EXPECT_EQ(CVariableCache::GetInstance()->OCPPCommCtrlrOfflineThreshold(), 42);
    EXPECT_TRUE(log.Contains("SetVariables OCPPCommCtrlr.OfflineThreshold not stored, answered Rejected"));

    // The station itself changed the value but could not write it: the same value from the CSMS is written now.
    VariableDataItem20 local = VariableDataItem20::Make("OCPPCommCtrlr", "OfflineThreshold");
    CTools::CopyField(local.attributeValue, "50");
    CVariableCache::GetInstance()->UpdateVariableValue(local);
    rmdir((g_storePath + "1").c_str());
    DeliverTo20(SetCall("d3", "OfflineThreshold", "50"));
    host.SettleSetVariables("d3");
    ASSERT_EQ(g_answers.size(), 3u);
    EXPECT_NE(g_answers[2].find("\"Accepted\""), std::string::npos);
    EXPECT_NE(g_storeAtAnswer[2].find(CTools::StringFormat(stored.c_str(), "50")), std::string::npos);
    COcppSendSeam::Reset();
}
