#include <gtest/gtest.h>

#include <string>
#include <tuple>
#include <vector>

#include "OcppProtocol/OcppProtocol.h"
#include "Process/ConnectorManager.h"
#include "Engine20.h"
#include "FrameSchema.h"
#include "Util/Tools.h"

using namespace ocpptest;

namespace {

// evse, connector, status, timestamp
using Notification = std::tuple<int, int, std::string, std::string>;

std::string Value(const std::string& frame, const std::string& key) {
    const std::string tag = "\"" + key + "\": ";
    const size_t at = frame.find(tag);
    if (at == std::string::npos) return "";
    size_t from = at + tag.size();
    if (frame[from] == '"') {
        ++from;
        return frame.substr(from, frame.find('"', from) - from);
    }
    return frame.substr(from, frame.find_first_of(",\n}", from) - from);
}

class ConnectorStatus : public Engine20 {
protected:
    void SetUp() override {
        CConnectorManager::Release();
        g_iEvseNum = 0;
        ASSERT_NO_FATAL_FAILURE(Engine20::SetUp());
        // The CSMS acknowledges every StatusNotification.
        link.Answer([](const std::string& id) { return "[3,\"" + id + "\",{}]"; });
        CTools::FreezeClock(true);
        OcppProtocol_SetStatus(SDKSTATUS_OK);
    }
    void TearDown() override {
        CConnectorManager::Release();
        Engine20::TearDown();
    }

    std::vector<Notification> Sent() {
        std::vector<Notification> out;
        for (const std::string& f : link.Sent()) {
            if (f.find("\"StatusNotification\"") == std::string::npos) continue;
            out.push_back({std::stoi(Value(f, "evseId")), std::stoi(Value(f, "connectorId")),
                           Value(f, "connectorStatus"), Value(f, "timestamp")});
        }
        return out;
    }
    static std::string At(int64_t sec) { return CTools::GetLocalTime(sec); }

    static void Report(int evse, int connector, CONNECTORSTATUS status,
                       CONNECTORERRORCODE error = CONNECTORERRORCODE_NOERROR) {
        ASSERT_EQ(OcppProtocol_StatusNotification(evse, connector, error, status), 1);
    }

    ClockGuard clock;
};

}  // namespace

TEST_F(ConnectorStatus, OnlineStatusIsSentOncePerRealChangeAndTheHighestEvseOnlyGrows) {
    Report(1, 1, CONNECTORSTATUS_AVAILABLE);
    Report(1, 1, CONNECTORSTATUS_AVAILABLE);
    ASSERT_EQ(Sent().size(), 1u) << "a repeated status is not a change";

    Report(1, 1, CONNECTORSTATUS_AVAILABLE, CONNECTORERRORCODE_HIGHTEMPERATURE);
    ASSERT_EQ(Sent().size(), 2u) << "a new error code alone is a change";

    Report(1, 1, CONNECTORSTATUS_OCCUPIED, CONNECTORERRORCODE_HIGHTEMPERATURE);
    const std::vector<Notification> sent = Sent();
    ASSERT_EQ(sent.size(), 3u);
    EXPECT_EQ(sent[2], (Notification{1, 1, "Occupied", At(CTools::CurTimeSec())}));

    Report(3, 1, CONNECTORSTATUS_AVAILABLE);
    Report(2, 1, CONNECTORSTATUS_AVAILABLE);
    EXPECT_EQ(OcppProtocol_GetMaxEvse(), 3);
    EXPECT_EQ((std::vector<uint8_t>{1, 2, 3}), CConnectorManager::GetInstance()->GetEvseIDList());
}

TEST_F(ConnectorStatus, ShortOutageSendsOnlyTheChangesWithTheTimeEachHappened) {
    Report(1, 1, CONNECTORSTATUS_AVAILABLE);
    Report(2, 1, CONNECTORSTATUS_AVAILABLE);
    Report(3, 1, CONNECTORSTATUS_AVAILABLE);
    link.Clear();

    OcppProtocol_SetStatus(SDKSTATUS_DISCONNECTED);
    CTools::AdvanceClockMs(2000);
    Report(1, 1, CONNECTORSTATUS_OCCUPIED);
    CTools::AdvanceClockMs(1000);
    Report(1, 1, CONNECTORSTATUS_AVAILABLE);  // the latest change of a connector replaces the earlier one
    const int64_t firstChange = CTools::CurTimeSec();
    CTools::AdvanceClockMs(3000);
    Report(2, 1, CONNECTORSTATUS_FAULTED);
    const int64_t secondChange = CTools::CurTimeSec();
    ASSERT_TRUE(Sent().empty()) << "nothing leaves while the link is down";

    CTools::AdvanceClockMs(4000);  // 10 s offline: exactly the threshold still counts as short
    OcppProtocol_SetStatus(SDKSTATUS_CONNECTED);
    OcppProtocol_SetStatus(SDKSTATUS_OK);
    EXPECT_EQ(Sent(), (std::vector<Notification>{{1, 1, "Available", At(firstChange)},
                                                 {2, 1, "Faulted", At(secondChange)}}));
    EXPECT_EQ(CConnectorManager::GetInstance()->CachedChangeCount(), 0u);
}

TEST_F(ConnectorStatus, LongOutageReportsEveryConnectorWithTheCurrentTime) {
    Report(1, 1, CONNECTORSTATUS_AVAILABLE);
    Report(1, 2, CONNECTORSTATUS_AVAILABLE);
    Report(2, 1, CONNECTORSTATUS_AVAILABLE);
    link.Clear();

    OcppProtocol_SetStatus(SDKSTATUS_DISCONNECTED);
    CTools::AdvanceClockMs(1000);
    Report(1, 2, CONNECTORSTATUS_OCCUPIED);
    CTools::AdvanceClockMs(10000);  // 11 s offline, threshold 10
    OcppProtocol_SetStatus(SDKSTATUS_OK);
    const std::string now = At(CTools::CurTimeSec());
    EXPECT_EQ(Sent(), (std::vector<Notification>{{1, 1, "Available", now}, {1, 2, "Occupied", now},
                                                 {2, 1, "Available", now}}));
    EXPECT_EQ(CConnectorManager::GetInstance()->CachedChangeCount(), 0u) << "the cached changes are discarded";

    // The discarded change is not sent again after the next short outage.
    link.Clear();
    OcppProtocol_SetStatus(SDKSTATUS_DISCONNECTED);
    OcppProtocol_SetStatus(SDKSTATUS_OK);
    EXPECT_TRUE(Sent().empty());
}

TEST_F(ConnectorStatus, TriggerMessageReportsTheConnectorEvseOrStationItNames) {
    Report(1, 1, CONNECTORSTATUS_AVAILABLE);
    Report(1, 2, CONNECTORSTATUS_OCCUPIED);
    Report(2, 1, CONNECTORSTATUS_FAULTED);
    const std::string now = At(CTools::CurTimeSec());
    const struct {
        const char* evse;  // the request's evse, if any
        const char* answer;
        std::vector<Notification> reported;
    } cases[] = {
        {R"(,"evse":{"id":1,"connectorId":2})", "Accepted", {{1, 2, "Occupied", now}}},
        {R"(,"evse":{"id":1})", "Accepted", {{1, 1, "Available", now}, {1, 2, "Occupied", now}}},
        {"", "Accepted", {{1, 1, "Available", now}, {1, 2, "Occupied", now}, {2, 1, "Faulted", now}}},
        {R"(,"evse":{"id":1,"connectorId":9})", "Rejected", {}},
        {R"(,"evse":{"id":7})", "Rejected", {}},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.evse);
        link.Clear();
        DeliverTo20(std::string(R"([2,"t1","TriggerMessage",{"requestedMessage":"StatusNotification")") + c.evse + "}]");
        const std::vector<std::string> all = link.Sent();
        ASSERT_FALSE(all.empty());
        EXPECT_EQ(all[0].rfind("[3,\"t1\"", 0), 0u) << "the answer leaves before the statuses";
        EXPECT_EQ(Value(all[0], "status"), c.answer);
        EXPECT_EQ(Sent(), c.reported);
    }
    EXPECT_EQ(host.Count(SERVERRECVTYPE_TRIGGERMESSAGE), 0u) << "the host is not asked";
}
