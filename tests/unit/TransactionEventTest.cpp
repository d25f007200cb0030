#include <gtest/gtest.h>
#include <json/json.h>

#include <OcppProtocol.h>

#include <cmath>
#include <string>

#include "Engine20.h"
#include "FrameSchema.h"
#include "MeterBuffer.h"
#include "Ocpp20/Ocpp20Transaction.h"
#include "Ocpp20/OcppProtocol20.h"
#include "Ocpp20/Process/AuthorizeCache.h"
#include "Ocpp20/Process/TransactionManager.h"
#include "OcppProtocol/OcppProtocol.h"
#include "OcppProtocol/OutboundSender.h"
#include "Util/Tools.h"

using namespace ocpptest;

namespace {

const int kISO14443 = 2;
const int kNoAuthorization = 7;
const uint32_t kT1 = 1700000000;
const uint32_t kT2 = 1700000060;

Json::Value Parse(const std::string& text) {
    Json::Value root;
    EXPECT_TRUE(CTools::ParseJson(text.data(), text.size(), root)) << text;
    return root;
}

Json::Value Payload(const std::string& frame) {
    const Json::Value root = Parse(frame);
    return root.isArray() && root.size() == 4 ? root[3] : Json::Value();
}

TransactionEventArgs Args(const MeterBuffer& meter) {
    TransactionEventArgs args;
    args.evseId = 1;
    args.connectorId = 2;
    args.idToken = "CARD";
    args.tokenType = kISO14443;
    args.transactionId = "tx-1";
    args.meter = meter.data();
    args.meterCount = meter.count();
    args.timestamp = kT2;
    return args;
}

int g_kept = 0;
int KeepOffline(const OutboundMessage&) {
    ++g_kept;
    return 1;
}

class TransactionEvent : public Engine20 {
protected:
    void SetUp() override {
        ASSERT_NO_FATAL_FAILURE(Engine20::SetUp());
        g_eSdkStatus = SDKSTATUS_OK;
        link.Answer([this](const std::string& id) { return "[3,\"" + id + "\"," + answer + "]"; });
    }
    void TearDown() override {
        COutboundSender::SetOfflineStore(nullptr);
        Engine20::TearDown();
    }
    std::string answer = "{}";
};

}  // namespace

TEST_F(TransactionEvent, StartedUpdatedAndEndedCarryTheTransactionAsTheCsmsBillsIt) {
    MeterBuffer meter;
    meter.Add(0, 1200.5, SAMPLEDVALUEMEASURAND_ENERGY_ACTIVE_IMPORT_REGISTER);
    TransactionEventArgs args = Args(meter);
    args.reason = TRANSACTIONREASON_AUTHORIZED;
    args.chargingState = TRANSACTIONCHARGINGSTATE_EVCONNECTED;
    args.reservationId = 7;
    args.eventParam =
        (3 << Ocpp20::TRANSACTIONEVENTPARAM_PHASES_SHIFT) | (32 << Ocpp20::TRANSACTIONEVENTPARAM_CABLEMAX_SHIFT);
    int32_t param = -1;
    ASSERT_EQ(Ocpp20ProtocolPrivate_TransactionStart(args, &param), 0);
    EXPECT_EQ(param, args.eventParam) << "online: the offline bit stays clear";
    // Not offline; the meter item without a time of its own takes the event's.
    Json::Value started = Parse(R"({"eventType":"Started","triggerReason":"Authorized","seqNo":0,
        "numberOfPhasesUsed":3,"cableMaxCurrent":32,"reservationId":7,
        "transactionInfo":{"transactionId":"tx-1","chargingState":"EVConnected"},"evse":{"id":1,"connectorId":2},
        "idToken":{"idToken":"CARD","type":"ISO14443"},"meterValue":[{"sampledValue":[
        {"value":1200.5,"context":"Transaction.Begin","measurand":"Energy.Active.Import.Register"}]}]})");
    started["timestamp"] = started["meterValue"][0]["timestamp"] = CTools::GetLocalTime(kT2);
    EXPECT_EQ(Payload(link.Last()), started);

    args.reason = TRANSACTIONREASON_METERVALUEPERIODIC;
    args.seqNo = 1;
    args.tokenType = 255;
    ASSERT_EQ(Ocpp20ProtocolPrivate_TransactionUpate(args, &param), 0);
    Json::Value updated = Payload(link.Last());
    EXPECT_FALSE(updated.isMember("reservationId")) << "a reservation is named only when the transaction starts";
    EXPECT_FALSE(updated.isMember("idToken")) << "token type 255 is no token";
    EXPECT_EQ(updated["meterValue"][0]["sampledValue"][0]["context"].asString(), "Sample.Periodic");

    args.reason = TRANSACTIONREASON_STOPAUTHORIZED;
    args.stopReason = TRANSACTIONSTOPREASON_LOCAL;
    args.seqNo = 2;
    ASSERT_EQ(Ocpp20ProtocolPrivate_TransactionEnd(args, &param), 0);
    Json::Value ended = Payload(link.Last());
    EXPECT_EQ(ended["eventType"].asString(), "Ended");
    EXPECT_EQ(ended["transactionInfo"]["stoppedReason"].asString(), "Local");
    EXPECT_EQ(ended["meterValue"][0]["sampledValue"][0]["context"].asString(), "Transaction.End");
    EXPECT_EQ(link.Count(), 3u);
}

TEST_F(TransactionEvent, PlainAndSignedMeterItemsAreReadAtTheirOwnLengthAndGroupedByTime) {
    MeterBuffer meter;
    meter.Add(kT1, 16, SAMPLEDVALUEMEASURAND_CURRENT_IMPORT, [](MeterItem& item) {
             item.phase = 1;     // L1
             item.location = 5;  // Outlet
             CTools::CopyField(item.unit, "A");
         })
        .AddSigned(kT2, 1500, SAMPLEDVALUEMEASURAND_ENERGY_ACTIVE_IMPORT_REGISTER, "SIGNED-DATA")
        .Add(kT1, 2.5, SAMPLEDVALUEMEASURAND_ENERGY_ACTIVE_IMPORT_REGISTER, [](MeterItem& item) {
            item.context = 8;  // Trigger
            CTools::CopyField(item.unit, "kWh");
            item.multiplier = 3;
        })
        .Add(kT1, 99, SAMPLEDVALUEMEASURAND_RPM)                  // no 2.0.1 name: left out
        .Add(kT2, std::nan(""), SAMPLEDVALUEMEASURAND_VOLTAGE);  // no JSON number: left out

    TransactionEventArgs args = Args(meter);
    args.reason = TRANSACTIONREASON_TRIGGER;
    const std::string frame = COcppProtocol20::TransactionUpdateReq(args, false);
    EXPECT_EQ(FrameSchemaProblem(frame), "");
    // A Trigger event's items are Trigger readings; the signed one carries no unit.
    Json::Value values = Parse(R"([{"sampledValue":[{"value":16,"context":"Trigger","measurand":"Current.Import",
        "phase":"L1","location":"Outlet","unitOfMeasure":{"unit":"A","multiplier":0}},
        {"value":2.5,"context":"Trigger","measurand":"Energy.Active.Import.Register",
        "unitOfMeasure":{"unit":"kWh","multiplier":3}}]},
        {"sampledValue":[{"value":1500,"context":"Trigger","measurand":"Energy.Active.Import.Register",
        "signedMeterValue":{"signedMeterData":"SIGNED-DATA","signingMethod":"ECDSA-secp256r1-SHA256",
        "encodingMethod":"OCMF","publicKey":"PUBKEY"}}]}])");
    values[0]["timestamp"] = CTools::GetLocalTime(kT1);
    values[1]["timestamp"] = CTools::GetLocalTime(kT2);
    EXPECT_EQ(Payload(frame)["meterValue"], values);
}

TEST_F(TransactionEvent, EventWhileNotOnlineIsMarkedOfflineAndIsRefusedOnlyWhenNothingKeepsIt) {
    MeterBuffer meter;
    TransactionEventArgs args = Args(meter);
    args.eventParam = 2 << Ocpp20::TRANSACTIONEVENTPARAM_PHASES_SHIFT;
    g_eSdkStatus = SDKSTATUS_DISCONNECTED;
    int32_t param = 0;
    EXPECT_NE(Ocpp20ProtocolPrivate_TransactionStart(args, &param), 0) << "no offline store: the event is lost";
    EXPECT_EQ(param, args.eventParam | Ocpp20::TRANSACTIONEVENTPARAM_OFFLINE);

    g_kept = 0;
    COutboundSender::SetOfflineStore(&KeepOffline);
    EXPECT_EQ(Ocpp20ProtocolPrivate_TransactionStart(args, &param), 0);
    EXPECT_EQ(g_kept, 1);
    EXPECT_EQ(link.Count(), 0u);
    EXPECT_TRUE(Payload(COcppProtocol20::TransactionStartReq(args, true))["offline"].asBool());

    // Back online, the next event is no longer offline.
    g_eSdkStatus = SDKSTATUS_OK;
    args.eventParam = param;
    ASSERT_EQ(Ocpp20ProtocolPrivate_TransactionUpate(args, &param), 0);
    EXPECT_EQ(param & Ocpp20::TRANSACTIONEVENTPARAM_OFFLINE, 0);
    EXPECT_FALSE(Payload(link.Last()).isMember("offline"));

    args.stopReason = 40;
    EXPECT_NE(Ocpp20ProtocolPrivate_TransactionEnd(args, &param), 0) << "a stop reason outside the list is not sent";
}

class TransactionAnswerTest : public TransactionEvent {
protected:
    void SetUp() override {
        ASSERT_NO_FATAL_FAILURE(TransactionEvent::SetUp());
        ASSERT_EQ(CAuthorizeCache::GetInstance()->SetStoreFile(dir.file("authorizecache.db")), 1);
        SetLibraryVariable("AuthCacheCtrlr", "Enabled", "true");
    }
    void TearDown() override {
        CAuthorizeCache::Release();
        TransactionEvent::TearDown();
    }
    static std::string Request(const char* token, int type) {
        MeterBuffer meter;
        TransactionEventArgs args = Args(meter);
        args.idToken = token;
        args.tokenType = type;
        return COcppProtocol20::TransactionUpdateReq(args, false);
    }
    static int Answer(const std::string& request, const std::string& answer) {
        return Ocpp20ProtocolPrivate_OnTransactionEventAnswer(request.data(), request.size(), answer.data(),
                                                              answer.size(), true);
    }
    static bool Cached(const char* token, int type, int status) {
        const std::unique_ptr<AuthorizeItem> item = CAuthorizeCache::GetInstance()->GetAuthorizeCacheItem(token, type);
        return item != nullptr && item->status == status;
    }
};

TEST_F(TransactionAnswerTest, AnswerUpdatesTheTokenCacheTheRunningCostAndThePersonalMessage) {
    // A synchronous send reads the answer itself.
    answer = "{\"idTokenInfo\":{\"status\":\"Invalid\"}}";
    MeterBuffer meter;
    int32_t param = 0;
    EXPECT_EQ(Ocpp20ProtocolPrivate_TransactionStart(Args(meter), &param), 0) << "sent and answered: the event went";
    EXPECT_TRUE(Cached("CARD", kISO14443, 4));

    const std::string blocked =
        "[3,\"m1\",{\"totalCost\":12.5,\"idTokenInfo\":{\"status\":\"Blocked\"},"
        "\"updatedPersonalMessage\":{\"format\":\"UTF8\",\"language\":\"de\",\"content\":\"Danke\"}}]";
    EXPECT_EQ(Answer(Request("CARD", kISO14443), blocked), 1) << "the token's status (Blocked)";
    EXPECT_TRUE(Cached("CARD", kISO14443, 1));

    const PersonalMsg msg = host.RecordOf<PersonalMsg>(SERVERRECVTYPE_PERSONALMSG);
    EXPECT_EQ(+msg.evseId, 1);
    EXPECT_STREQ(msg.transactionId, "tx-1");
    EXPECT_EQ(+msg.format, 3);
    EXPECT_STREQ(msg.language, "de");
    EXPECT_STREQ(msg.content, "Danke");
    const auto cost = host.RecordOf<UpdatedTransactionCostReq>(SERVERRECVTYPE_UPDATEDTRANSACTIONCOST);
    EXPECT_STREQ(cost.transactionId, "tx-1");
    EXPECT_STREQ(cost.totalCost, "12.5");

    // A NoAuthorization token is never cached, nor is anything while the cache is switched off.
    const std::string accepted = "[3,\"m2\",{\"idTokenInfo\":{\"status\":\"Accepted\"}}]";
    EXPECT_EQ(Answer(Request("FREE", kNoAuthorization), accepted), 0);
    EXPECT_EQ(CAuthorizeCache::GetInstance()->GetAuthorizeCacheItem("FREE", kNoAuthorization), nullptr);
    SetLibraryVariable("AuthCacheCtrlr", "Enabled", "false");
    EXPECT_EQ(Answer(Request("CARD", kISO14443), accepted), 0);
    EXPECT_TRUE(Cached("CARD", kISO14443, 1)) << "still the Blocked entry";

    // No idTokenInfo is no status; a CALLERROR is no answer at all.
    EXPECT_EQ(Answer(Request("CARD", kISO14443), "[3,\"m3\",{}]"), 0);
    EXPECT_EQ(Answer(Request("CARD", kISO14443), "[4,\"m4\",\"InternalError\",\"\",{}]"), TRANSACTIONANSWER_NORESULT);
}
