#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <cstring>
#include <mutex>
#include <regex>
#include <string>
#include <thread>
#include <vector>

#include "OcppProtocol/MessageCallBack.h"
#include "OcppProtocol/OcppProtocol.h"
#include "RecordingHost.h"
#include "TestSupport.h"
#include "Util/CryptoUtil.h"
#include "Util/Tools.h"

using namespace ocpptest;

namespace {

std::mutex g_eventsMutex;
std::vector<std::string> g_events;

void RecordEvent(const char* type) {
    std::lock_guard<std::mutex> lock(g_eventsMutex);
    g_events.push_back(type);
}

std::vector<std::string> Events() {
    std::lock_guard<std::mutex> lock(g_eventsMutex);
    return g_events;
}

class Sdk : public ::testing::Test {
protected:
    void SetUp() override {
        ResetSdkState();
        std::lock_guard<std::mutex> lock(g_eventsMutex);
        g_events.clear();
    }
    void TearDown() override { ResetSdkState(); }

    // Status records in delivery order: (status, option).
    std::vector<std::pair<int, int>> StatusRecords(RecordingHost& host) {
        std::vector<std::pair<int, int>> out;
        for (const auto& r : host.Records())
            if (r.type == SERVERRECVTYPE_SDKSTATUSCHANGE) out.emplace_back(Int32At(r.bytes, 41), Int32At(r.bytes, 45));
        return out;
    }

    void GoOnline() {
        OcppProtocol_SetStatus(SDKSTATUS_CONNECTED);
        OcppProtocol_SetStatus(SDKSTATUS_SUBMITTING);
        OcppProtocol_SetStatus(SDKSTATUS_OK);
    }
};

TEST_F(Sdk, InitWithNonZeroFirstArgumentKeepsNoCallbackTable) {
    OcppProtocolCallBack table{};
    OcppProtocol_Init(0, nullptr);
    EXPECT_EQ(OcppProtocol_Init(1, &table), 1);
    EXPECT_EQ(g_pOcppProtocolCallBack.load(), nullptr);
    EXPECT_EQ(OcppProtocol_Init(0, &table), 1);
    EXPECT_EQ(g_pOcppProtocolCallBack.load(), &table);
    OcppProtocol_Init(0, nullptr);
}

TEST_F(Sdk, CacheFolderGetsOneTrailingSlashAndUnwritableFolderIsRefused) {
    TempDir dir;
    LogCapture log;
    ASSERT_EQ(OcppProtocol_SetCacheDir(dir.path().c_str()), 1);
    EXPECT_EQ(OcppProtocol_GetCacheDir(), dir.path() + "/");
    ASSERT_EQ(OcppProtocol_SetCacheDir((dir.path() + "/").c_str()), 1);
    EXPECT_EQ(OcppProtocol_GetCacheDir(), dir.path() + "/");
    EXPECT_TRUE(log.Contains("ocpp cache folder:" + dir.path() + "/", OCPP_LOG_INFO));

    EXPECT_EQ(OcppProtocol_SetCacheDir((dir.path() + "/missing").c_str()), 0);
    EXPECT_EQ(OcppProtocol_SetCacheDir(nullptr), 0);
    EXPECT_TRUE(log.Contains("不能写cache:" + dir.path() + "/missing", OCPP_LOG_ERROR));
    EXPECT_EQ(OcppProtocol_GetCacheDir(), dir.path() + "/") << "a refused folder must not replace the previous one";
}

TEST_F(Sdk, SameStatusTwiceNotifiesHostOnceAndTheRecordCarriesStatusOptionProtocolAndReportFlag) {
    RecordingHost host;
    OcppProtocol_InitOcppProtocol(OCPPPROTOCOL_201);
    OcppProtocol_SetNeedReportVariables(0);
    OcppProtocol_SetStatus(SDKSTATUS_DISCONNECTED);
    OcppProtocol_SetStatus(SDKSTATUS_DISCONNECTED);
    OcppProtocol_SetStatus(SDKSTATUS_CONNECTED);
    ASSERT_TRUE(host.WaitForCount(2));
    CMessageCallBack::GetInstance()->OnMessage("\x63\0\0\0", 4, 0);  // marker: everything before it is delivered
    ASSERT_TRUE(host.WaitForType(99));
    EXPECT_EQ(host.Types(), (std::vector<int32_t>{0, 0, 99}));
    EXPECT_EQ(OcppProtocol_GetStatus(), SDKSTATUS_CONNECTED);

    SdkStatusChange expected{};  // no message id: status records answer no CSMS request
    expected.status = SDKSTATUS_CONNECTED;
    expected.protocol = OCPPPROTOCOL_201;
    EXPECT_EQ(host.Records()[1].bytes, std::string(reinterpret_cast<const char*>(&expected), sizeof expected));
}

TEST_F(Sdk, HostActingOnAStatusRecordFindsTheLibraryAlreadyInThatStatus) {
    RecordingHost host;
    static std::atomic<int> seen;
    seen = -1;
    host.OnRecord([](const char* r, uint32_t len) {
        const std::string bytes(r, len);
        if (Int32At(bytes, 0) == SERVERRECVTYPE_SDKSTATUSCHANGE && Int32At(bytes, 41) == SDKSTATUS_DISCONNECTED)
            seen = OcppProtocol_GetStatus();
    });
    // Holds the library on its offline-mode log line, just after the record went out.
    OcppProtocol_SetLog([](LOGLEVEL, const char*, const char*, int, const char* text) {
        if (strstr(text, "Enter OFFLineMode") != nullptr) WaitFor([] { return seen.load() != -1; }, 1000);
    });
    OcppProtocol_InitOcppProtocol(OCPPPROTOCOL_201);
    GoOnline();
    OcppProtocol_SetStatus(SDKSTATUS_DISCONNECTED);
    OcppProtocol_SetLog(nullptr);
    ASSERT_TRUE(WaitFor([] { return seen.load() != -1; }));
    EXPECT_EQ(seen.load(), SDKSTATUS_DISCONNECTED) << "an event the host reports on that record must count as offline";
}

TEST_F(Sdk, DropFromOkAnnouncesOfflineModeOnce) {
    RecordingHost host;
    LogCapture log;
    OcppProtocol_InitOcppProtocol(OCPPPROTOCOL_201);
    OcppProtocol_SetStatus(SDKSTATUS_DISCONNECTED);
    EXPECT_EQ(OcppProtocol_IsEnterOfflineMode(), 0) << "255 -> 0 is a start, not an outage";
    GoOnline();
    OcppProtocol_SetStatus(SDKSTATUS_DISCONNECTED);
    EXPECT_EQ(OcppProtocol_IsEnterOfflineMode(), 1);
    // The connection manager announces again while it tries the other profiles.
    OcppProtocol_EnterOfflineMode();
    ASSERT_TRUE(host.WaitForType(SERVERRECVTYPE_ENTEROFFLINEMODE));
    ASSERT_TRUE(host.WaitForCount(6));
    EXPECT_EQ(host.Types(), (std::vector<int32_t>{0, 0, 0, 0, 0, 36}));
    EXPECT_EQ(host.Records().back().bytes, std::string("\x24\0\0\0", 4) + std::string(37, '\0'));
    EXPECT_EQ(log.Count("========================>Enter OFFLineMode<========================"), 1u);
    EXPECT_TRUE(log.Contains("EnterOfflineMode Protocol:OCPP20"));

    // Back online, then lost again: a new outage is announced again.
    OcppProtocol_SetStatus(SDKSTATUS_CONNECTED);
    EXPECT_EQ(OcppProtocol_IsEnterOfflineMode(), 0);
    OcppProtocol_SetStatus(SDKSTATUS_DISCONNECTED);
    ASSERT_TRUE(host.WaitForType(SERVERRECVTYPE_ENTEROFFLINEMODE, 2));
}

TEST_F(Sdk, PendingTlsSecurityEventsAreSentOnceInOrderOnReachingOk) {
    RecordingHost host;
    OcppProtocol_SetSecurityEventObserver(&RecordEvent);
    OcppProtocol_InitOcppProtocol(OCPPPROTOCOL_201);
    OcppProtocol_SetInvalidTLSCiphersuite(1);
    OcppProtocol_SetInvalidCsmsCertificate(1);
    OcppProtocol_SetInvalidTLSVersion(1);
    OcppProtocol_SetStatus(SDKSTATUS_CONNECTED);
    OcppProtocol_SetStatus(SDKSTATUS_SUBMITTING);
    EXPECT_TRUE(Events().empty()) << "events wait until the station is fully online";
    OcppProtocol_SetStatus(SDKSTATUS_OK);
    EXPECT_EQ(Events(), (std::vector<std::string>{"InvalidCsmsCertificate", "InvalidTLSVersion", "InvalidTLSCipherSuite"}));
    OcppProtocol_SetStatus(SDKSTATUS_DISCONNECTED);
    GoOnline();
    EXPECT_EQ(Events().size(), 3u) << "an event is reported once, not on every reconnect";
}

TEST_F(Sdk, SecurityEventUnder16IsLoggedButNotHandedToTheSender) {
    LogCapture log;
    OcppProtocol_SetSecurityEventObserver(&RecordEvent);
    OcppProtocol_InitOcppProtocol(OCPPPROTOCOL_16);
    EXPECT_EQ(OcppProtocol_SecurityEventNotification(SECURITYEVENTTYPE_RESETORREBOOT), 1);
    EXPECT_TRUE(Events().empty());
    EXPECT_TRUE(log.Contains("ResetOrReboot", 3));
    EXPECT_STREQ(OcppEnumTrans_SecurityEvevtType(static_cast<SECURITYEVENTTYPE>(20)), "");
    EXPECT_STREQ(OcppEnumTrans_SecurityEvevtType(static_cast<SECURITYEVENTTYPE>(-1)), "");
}

TEST_F(Sdk, ReconnectReportsEveryConnectorOnlyAfterLongOutageOrFreshActivation) {
    ClockGuard clock;
    CTools::FreezeClock(true);
    RecordingHost host;
    size_t oks = 0;
    // Offline for `offlineMs`, then online again: the option the new OK carries, once it has arrived.
    auto reconnect = [&](int offlineMs) {
        OcppProtocol_SetStatus(SDKSTATUS_DISCONNECTED);
        CTools::AdvanceClockMs(offlineMs);
        GoOnline();
        std::vector<int> options;
        EXPECT_TRUE(WaitFor([&] {
            options.clear();
            for (const auto& s : StatusRecords(host))
                if (s.first == SDKSTATUS_OK) options.push_back(s.second);
            return options.size() > oks;
        }));
        ++oks;
        return options.empty() ? -1 : options.back();
    };
    OcppProtocol_ActiveConnection(1);
    OcppProtocol_InitOcppProtocol(OCPPPROTOCOL_201);
    EXPECT_EQ(reconnect(0), 1) << "first OK after activation reports every connector";
    // Threshold is 10 s: 11 s offline is long, exactly the threshold counts as short.
    EXPECT_EQ(reconnect(11000), 1);
    EXPECT_EQ(reconnect(10000), 2);

    // Activation without reporting variables keeps the short-outage rule.
    OcppProtocol_ActiveConnection(0);
    OcppProtocol_InitOcppProtocol(OCPPPROTOCOL_201);
    EXPECT_EQ(reconnect(0), 2);

    // Reporting variables again forgets the previous connection.
    OcppProtocol_ActiveConnection(1);
    OcppProtocol_InitOcppProtocol(OCPPPROTOCOL_16);
    EXPECT_EQ(reconnect(60000), 0) << "1.6 reports connectors itself";
}

TEST_F(Sdk, ActivationResetsProtocolAndStatusAndNotifiesOnce) {
    RecordingHost host;
    OcppProtocol_InitOcppProtocol(OCPPPROTOCOL_21);
    OcppProtocol_SetStatus(SDKSTATUS_CONNECTED);
    EXPECT_EQ(OcppProtocol_ActiveConnection(1), 1);
    EXPECT_EQ(OcppProtocol_GetOcppProtocol(), OCPPPROTOCOL_NONE);
    EXPECT_EQ(OcppProtocol_GetStatus(), SDKSTATUS_NONE);
    EXPECT_EQ(OcppProtocol_IsNeedReportVariables(), 0) << "nothing to report before a protocol is chosen";
    OcppProtocol_InitOcppProtocol(OCPPPROTOCOL_201);
    EXPECT_EQ(OcppProtocol_IsNeedReportVariables(), 1);
    OcppProtocol_ActiveConnection(1);
    ASSERT_TRUE(host.WaitForCount(2));
    EXPECT_EQ(StatusRecords(host), (std::vector<std::pair<int, int>>{{1, 0}, {255, 0}}));
}

// The names themselves show in the offline log line and the CSMS address tests.
TEST_F(Sdk, UnknownProtocolsAndNamesAreRefused) {
    char out[1024] = {0};
    EXPECT_EQ(OcppProtocol_GetOcppProtocolType(OCPPPROTOCOL_NONE, out), 0);
    EXPECT_EQ(OcppProtocol_GetOcppProtocolType(static_cast<OCPPPROTOCOL>(3), out), 0);
    EXPECT_EQ(OcppProtocol_GetOcppProtocolType(OCPPPROTOCOL_201, static_cast<char*>(nullptr)), 1);
    OCPPPROTOCOL p = OCPPPROTOCOL_NONE;
    for (const char* name : {"ocpp20", "OCPP201", static_cast<const char*>(nullptr)})
        EXPECT_EQ(OcppProtocol_GetOcppProtocolType(name, &p), 0) << (name != nullptr ? name : "no name");
    EXPECT_EQ(p, OCPPPROTOCOL_NONE);
}

TEST_F(Sdk, VersionReportsBranchAndBuildTime) {
    char out[255];
    const int n = OcppProtocol_Version(out);
    EXPECT_EQ(n, (int)strlen(out));
    const std::string text(out);
    std::smatch stamp;
    ASSERT_TRUE(std::regex_match(text, stamp, std::regex("Branch: .+\nBuild: (.{20})\n"))) << text;
    EXPECT_TRUE(CTools::IsValidUTCTime(stamp[1].str())) << text;
}

TEST_F(Sdk, ResourceInitNeedsAUrlAndOpensOneFolderPerCsmsEvenForOddFolderNames) {
    TempDir dir;
    // A folder name a shell would take as two commands; the second would run in the working folder.
    char previousCwd[4096];
    ASSERT_NE(getcwd(previousCwd, sizeof previousCwd), nullptr);
    ASSERT_EQ(chdir(dir.path().c_str()), 0);
    const std::string cache = dir.path() + "/cache;touch pwned;";
    ASSERT_EQ(mkdir(cache.c_str(), 0755), 0);
    ASSERT_EQ(OcppProtocol_SetCacheDir(cache.c_str()), 1);
    RecordingHost host;
    LogCapture log;
    OcppProtocol_InitOcppProtocol(OCPPPROTOCOL_16);
    OcppProtocol_SetStatus(SDKSTATUS_OK);
    ASSERT_TRUE(host.WaitForCount(1));
    ConnectionItem item{};
    item.protocol = OCPPPROTOCOL_201;
    EXPECT_EQ(OcppProtocol_ResourceInit(item), 0);
    EXPECT_TRUE(log.Contains("ResourceInit Error! Reason:URL is empty!", OCPP_LOG_ERROR));
    EXPECT_EQ(OcppProtocol_GetStatus(), SDKSTATUS_OK);
    EXPECT_EQ(OcppProtocol_GetOcppProtocol(), OCPPPROTOCOL_16);

    CTools::CopyField(item.url, "ws://csms.example/ocpp");
    EXPECT_EQ(OcppProtocol_ResourceInit(item), 1);
    const std::string folder = cache + "/" + CCryptoUtil::GenSha256("ws://csms.example/ocpp");
    struct stat st;
    EXPECT_EQ(stat(folder.c_str(), &st), 0) << folder;
    EXPECT_NE(stat((dir.path() + "/pwned").c_str(), &st), 0) << "the folder name ran as a command";
    EXPECT_TRUE(log.Contains("CSMS Cache Folder = " + folder + "/"));
    EXPECT_EQ(OcppProtocol_GetOcppProtocol(), OCPPPROTOCOL_201);
    EXPECT_EQ(OcppProtocol_GetStatus(), SDKSTATUS_DISCONNECTED);
    ASSERT_TRUE(host.WaitForCount(2));
    EXPECT_EQ(Int32At(host.Records()[1].bytes, 41), SDKSTATUS_DISCONNECTED);
    OcppProtocol_Release();
    EXPECT_EQ(chdir(previousCwd), 0);
}

std::atomic<int> g_nestedLogCalls{0};

void LoggingHostLog(LOGLEVEL, const char*, const char*, int, const char* text) {
    // A host that reacts to a library line by calling the library again.
    if (strstr(text, "ocpp cache folder:") != nullptr && g_nestedLogCalls++ == 0)
        OcppProtocol_SetCacheDir("/nonexistent/folder");  // logs an error from inside the sink
}

TEST_F(Sdk, HostLogCallbackMayCallEntriesThatLogAgain) {
    TempDir dir;
    std::atomic<bool> done{false};
    OcppProtocol_SetLog(&LoggingHostLog);
    std::thread host([&] {
        OcppProtocol_SetCacheDir(dir.path().c_str());
        done = true;
    });
    const bool finished = WaitFor([&] { return done.load(); });
    if (!finished) {
        host.detach();
        FAIL() << "logging from inside the host's log callback hangs";
    }
    host.join();
    OcppProtocol_SetLog(nullptr);
    EXPECT_EQ(g_nestedLogCalls.load(), 1);
}

}  // namespace
