#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <thread>

#include <OcppRecords.h>

#include "OcppProtocol/OcppProtocol.h"
#include "Process/PlugInManager.h"
#include "RecordingHost.h"
#include "TestSupport.h"
#include "Util/CryptoUtil.h"
#include "Util/FileUtil.h"
#include "Util/Tools.h"

using namespace ocpptest;

namespace {

std::string Entry(const std::string& name, const std::string& path, bool autorun) {
    return "{\"name\":\"" + name + "\",\"path\":\"" + path + "\",\"autorun\":" + (autorun ? "true" : "false") + "}";
}

std::string List(int count) {
    std::string text = "[";
    for (int i = 0; i < count; ++i) {
        text += (i ? "," : "") + Entry("p" + std::to_string(i), OCPP_TEST_PLUGIN_PATH, false);
    }
    return text + "]";
}

class PlugIns : public ::testing::Test {
protected:
    void TearDown() override {
        CPlugInManager::Release();
        CPlugInManager::SetPlugInListFile(CPlugInManager::kDefaultListFile);
    }
    int Read(const std::string& text) {
        WriteText(listFile, text);
        return manager->ReadAllPlugInInfo(listFile);
    }
    std::string Ask(const std::string& name, const std::string& message, int capacity = 64, int* result = nullptr) {
        char answer[256];
        memset(answer, '#', sizeof answer);
        int length = capacity;
        const int rc = manager->SendMsgToPlugIn(name, message.data(), static_cast<int>(message.size()), answer, &length);
        if (result != nullptr) *result = rc;
        if (rc == 0) return "<failed>";
        EXPECT_EQ(answer[length], '\0');
        EXPECT_EQ(answer[capacity], '#') << "wrote past the caller's buffer";
        return std::string(answer, static_cast<size_t>(length));
    }

    TempDir dir;
    std::string listFile = dir.file("pluginlist.json");
    LogCapture log;
    CPlugInManager* manager = CPlugInManager::GetInstance();
};

TEST_F(PlugIns, AutorunPlugInIsStartedOnceAndAnswersSynchronousMessages) {
    ASSERT_EQ(Read("[" + Entry("TestPlugIn", OCPP_TEST_PLUGIN_PATH, true) + "]"), 1);
    EXPECT_EQ(manager->IsSupportPlugIn("TestPlugIn"), 1);
    EXPECT_EQ(manager->IsUsingPlugIn("TestPlugIn"), 1);
    EXPECT_TRUE(log.Contains("test plugin started 1", OCPP_LOG_INFO)) << "plug-in log callback not installed";

    EXPECT_EQ(Ask("TestPlugIn", "hello"), "echo:hello");
    EXPECT_TRUE(log.Contains("发送同步消息给插件:TestPlugIn"));

    // Engines use a plug-in before every send: same instance, not started again.
    EXPECT_EQ(manager->UsePlugIn("TestPlugIn"), 1);
    EXPECT_TRUE(log.Contains("TestPlugIn is existed"));
    EXPECT_EQ(Ask("TestPlugIn", "starts"), "starts=1");
}

TEST_F(PlugIns, ListedPlugInLoadsOnFirstUseAndUnloadsCleanly) {
    ASSERT_EQ(Read("[" + Entry("TestPlugIn", OCPP_TEST_PLUGIN_PATH, false) + "]"), 1);
    EXPECT_EQ(manager->IsUsingPlugIn("TestPlugIn"), 0);
    EXPECT_EQ(Ask("TestPlugIn", "hello"), "<failed>");
    EXPECT_TRUE(log.Contains("TestPlugIn not use"));

    ASSERT_EQ(manager->UsePlugIn("TestPlugIn"), 1);
    EXPECT_EQ(Ask("TestPlugIn", "hello"), "echo:hello");

    EXPECT_EQ(manager->UnUsePlugIn("TestPlugIn"), 1);
    EXPECT_EQ(Ask("TestPlugIn", "hello"), "<failed>");
    EXPECT_EQ(manager->UnUsePlugIn("TestPlugIn"), 0);
    EXPECT_EQ(manager->IsSupportPlugIn("TestPlugIn"), 1) << "unloading must keep the registration";

    EXPECT_EQ(manager->UsePlugIn("NotListed"), 0);
    EXPECT_TRUE(log.Contains("NotListed not support"));
}

TEST_F(PlugIns, UnloadingWhileAMessageIsWithThePlugInNeitherBlocksNorPullsItAway) {
    // Two names for one library: the second can release what the first holds.
    ASSERT_EQ(Read("[" + Entry("TestPlugIn", OCPP_TEST_PLUGIN_PATH, true) + "," +
                   Entry("Second", OCPP_TEST_PLUGIN_PATH, true) + "]"),
              1);
    std::string answer;
    std::thread sender([&] { answer = Ask("TestPlugIn", "wait"); });
    ASSERT_TRUE(WaitFor([&] { return Ask("Second", "waiting?") == "yes"; }));

    EXPECT_EQ(manager->UnUsePlugIn("TestPlugIn"), 1);
    EXPECT_EQ(manager->IsUsingPlugIn("TestPlugIn"), 0);
    EXPECT_EQ(manager->SendMsgToPlugIn("Second", "release", 7), 1);
    sender.join();
    EXPECT_EQ(answer, "released after starts=1");
}

TEST_F(PlugIns, PlugInClaimingALongerAnswerThanItsBufferCannotOverrunTheCaller) {
    ASSERT_EQ(Read("[" + Entry("TestPlugIn", OCPP_TEST_PLUGIN_PATH, true) + "]"), 1);
    int result = 0;
    const std::string answer = Ask("TestPlugIn", "lie", 16, &result);
    EXPECT_EQ(result, 7);
    EXPECT_EQ(answer, std::string(15, 'x'));
    // Short buffers and bad lengths from the caller are refused, not passed on.
    int length = 0;
    char one[1];
    EXPECT_EQ(manager->SendMsgToPlugIn("TestPlugIn", "x", 1, one, &length), 0);
    EXPECT_EQ(manager->SendMsgToPlugIn("TestPlugIn", "x", -5), 0);
}

TEST_F(PlugIns, WhiteListCommandFromPlugInReachesTheHostAsRecord40) {
    RecordingHost host;
    ASSERT_EQ(Read("[" + Entry("TestPlugIn", OCPP_TEST_PLUGIN_PATH, true) + "]"), 1);

    EXPECT_EQ(manager->SendMsgToPlugIn("TestPlugIn", "other", 5), 1);
    EXPECT_EQ(manager->SendMsgToPlugIn("TestPlugIn", "short", 5), 1);
    EXPECT_EQ(manager->SendMsgToPlugIn("TestPlugIn", "v2g", 3), 1);
    EXPECT_TRUE(log.Contains("发送异步消息给插件:TestPlugIn"));
    EXPECT_TRUE(log.Contains("ocpp recv plugin:TestPlugIn command id:3"));
    EXPECT_TRUE(log.Contains("ocpp recv plugin:TestPlugIn command id:7"));

    const GetV2GWhiteList record = host.RecordOf<GetV2GWhiteList>(SERVERRECVTYPE_GETV2GWHITELIST);
    EXPECT_EQ(host.Count(), 1u) << "only command 7 is for the host";
    EXPECT_EQ(record.base.messageId[0], '\0') << "the record answers no CSMS request";
}

TEST_F(PlugIns, ListSizeMustBeOneToAHundredEntries) {
    ASSERT_EQ(Read(List(100)), 1);
    EXPECT_EQ(manager->IsSupportPlugIn("p99"), 1);

    // A refused list leaves the previous registry as it was.
    EXPECT_EQ(Read(List(101)), 0);
    EXPECT_TRUE(log.Contains("Invalid plugin size: 101"));
    EXPECT_EQ(manager->IsSupportPlugIn("p99"), 1);

    EXPECT_EQ(Read("[]"), 0);
    EXPECT_TRUE(log.Contains("Invalid plugin size: 0"));

    // A smaller list replaces the registry as a whole.
    ASSERT_EQ(Read(List(2)), 1);
    EXPECT_EQ(manager->IsSupportPlugIn("p1"), 1);
    EXPECT_EQ(manager->IsSupportPlugIn("p2"), 0);
}

TEST_F(PlugIns, BrokenOrMissingListOrLibraryIsRefused) {
    EXPECT_EQ(manager->ReadAllPlugInInfo(dir.file("missing.json")), 0);
    EXPECT_TRUE(log.Contains(dir.file("missing.json") + " not exist"));
    EXPECT_EQ(Read("[{\"name\":\"a\",\"path\":"), 0);
    EXPECT_EQ(Read("{\"name\":\"a\"}"), 0);

    ASSERT_EQ(Read("[" + Entry("NoFactory", OCPP_TEST_NOFACTORY_PATH, true) + "," +
                   Entry("NoFile", dir.file("absent.so"), false) + "," +
                   Entry(std::string(101, 'n'), OCPP_TEST_PLUGIN_PATH, false) + ",{\"path\":\"x\"}]"),
              1);
    EXPECT_TRUE(log.Contains("NoFactory Failed to load symbol"));
    EXPECT_EQ(manager->IsUsingPlugIn("NoFactory"), 0);
    EXPECT_EQ(manager->SendMsgToPlugIn("NoFactory", "x", 1), 0);
    EXPECT_TRUE(log.Contains("NoFactory not use"));

    EXPECT_EQ(manager->UsePlugIn("NoFile"), 0);
    EXPECT_TRUE(log.Contains("NoFile Failed to load plugin"));
    // A name that does not fit its field is not registered under a cut name.
    EXPECT_EQ(manager->IsSupportPlugIn(std::string(100, 'n')), 0);
    EXPECT_EQ(manager->IsSupportPlugIn(std::string(101, 'n')), 0);

    EXPECT_EQ(manager->RegisPlugInInfo(nullptr, nullptr), 0);
    EXPECT_TRUE(log.Contains("RegisPlugInInfo eror"));
}

TEST_F(PlugIns, CacheInitialisationReadsTheConfiguredListAndReleaseUnloads) {
    ResetSdkState();
    const std::string cache = dir.path() + "/cache";
    CFileUtil::MakeDirs(cache);
    ASSERT_EQ(OcppProtocol_SetCacheDir(cache.c_str()), 1);
    WriteText(listFile, "[" + Entry("TestPlugIn", OCPP_TEST_PLUGIN_PATH, true) + "]");
    CPlugInManager::SetPlugInListFile(listFile);
    OcppProtocol_InitOcppProtocol(OCPPPROTOCOL_16);

    EXPECT_EQ(OcppProtocol_InitCache("ws://csms.example/ocpp"), 1);
    EXPECT_EQ(CPlugInManager::GetInstance()->IsUsingPlugIn("TestPlugIn"), 1);
    const std::string folder = cache + "/" + CCryptoUtil::GenSha256("ws://csms.example/ocpp") + "/";
    EXPECT_EQ(ReadText(folder + "reservation.json"), "[]");

    OcppProtocol_Release();
    EXPECT_EQ(CPlugInManager::GetInstance()->IsSupportPlugIn("TestPlugIn"), 0);
    ResetSdkState();
}

}  // namespace
