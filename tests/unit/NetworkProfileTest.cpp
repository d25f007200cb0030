#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "Ocpp20/Process/VariableCache.h"
#include "OcppProtocol/OcppProtocol.h"
#include "Process/ConnectManager.h"
#include "Engine20.h"
#include "FrameSchema.h"
#include "Util/Tools.h"

using namespace ocpptest;

// Profiles the CSMS changes: SetNetworkProfile and NetworkConfigurationPriority.
namespace {

size_t StoredCount(const std::string& path) { return ReadJson(path)["connectinfo"].size(); }

class NetworkProfile : public Engine20 {
protected:
    void SetUp() override {
        CConnectManager::Release();
        CConnectManager::SetCertDir(dir.path());
        ASSERT_NO_FATAL_FAILURE(Engine20::SetUp());
        manager = CConnectManager::GetInstance();
        manager->SetStoreFile(store);
    }
    void TearDown() override {
        CConnectManager::Release();
        CConnectManager::SetCertDir("/usrfs/conf/ocpp20/cert/");
        Engine20::TearDown();
    }
    std::string store = dir.file("csmscfg.json");
    CConnectManager* manager = nullptr;
};

std::string NetworkProfileCall(const std::string& id, int slot, int securityProfile, const std::string& url) {
    return "[2,\"" + id + "\",\"SetNetworkProfile\",{\"configurationSlot\":" + std::to_string(slot) +
           ",\"connectionData\":{\"ocppVersion\":\"OCPP20\",\"ocppTransport\":\"JSON\",\"ocppCsmsUrl\":\"" + url +
           "\",\"messageTimeout\":30,\"securityProfile\":" + std::to_string(securityProfile) +
           ",\"ocppInterface\":\"Wired0\"}}]";
}

TEST_F(NetworkProfile, CsmsInstallsProfilesButNeverAWeakerOne) {
    manager->AddCustomItem(OCPPPROTOCOL_201, "ws://one.example/ocpp", CONNTYPE_BASIC, 5);
    manager->BackUpCurConnectionItem(manager->GetConnItems()[0]);

    DeliverTo20(NetworkProfileCall("n1", 2, 1, "ws://two.example/ocpp"));
    ASSERT_EQ(link.Count(), 1u);
    EXPECT_NE(link.Last().find("\"Accepted\""), std::string::npos);
    ASSERT_EQ(Ids(manager->GetConnItems()), (std::vector<int>{1, 2}));
    EXPECT_EQ(manager->GetConnItems()[1].messageTimeout, 30);
    EXPECT_STREQ(manager->GetConnItems()[1].url, "ws://two.example/ocpp");
    EXPECT_EQ(StoredCount(store), 2u);

    DeliverTo20(NetworkProfileCall("n2", 3, 0, "ws://three.example/ocpp"));
    EXPECT_NE(link.Last().find("\"Rejected\""), std::string::npos) << "security profile 0 after 1";
    DeliverTo20(NetworkProfileCall("n3", 4, 2, "wss://four.example/ocpp"));
    EXPECT_NE(link.Last().find("\"Rejected\""), std::string::npos) << "no CA for security profile 2";
    DeliverTo20(NetworkProfileCall("n4", 5, 1, "wss://five.example/ocpp"));
    EXPECT_NE(link.Last().find("\"Rejected\""), std::string::npos) << "wss with a plain security profile";
    EXPECT_EQ(Ids(manager->GetConnItems()), (std::vector<int>{1, 2}));

    // Same slot again replaces the profile.
    DeliverTo20(NetworkProfileCall("n5", 2, 1, "ws://two-b.example/ocpp"));
    ASSERT_EQ(Ids(manager->GetConnItems()), (std::vector<int>{1, 2}));
    EXPECT_STREQ(manager->GetConnItems()[1].url, "ws://two-b.example/ocpp");
}

TEST_F(NetworkProfile, CsmsMessageTimeoutIsBoundedToAnHourWhereverAProfileComesFrom) {
    std::string call = NetworkProfileCall("n1", 2, 0, "ws://two.example/ocpp");
    call.replace(call.find("\"messageTimeout\":30"), 19, "\"messageTimeout\":2147483647");
    DeliverTo20(call);
    EXPECT_NE(link.Last().find("\"Accepted\""), std::string::npos);
    ASSERT_EQ(manager->GetConnItems().size(), 1u);
    EXPECT_EQ(manager->GetConnItems()[0].messageTimeout, 3600);

    manager->AddCustomItem(OCPPPROTOCOL_201, "ws://one.example/ocpp", CONNTYPE_BASIC, 2147483647);
    EXPECT_EQ(manager->GetConnItems()[0].messageTimeout, 3600);

    WriteText(store, "{\"connectinfo\":[{\"id\":3,\"messagetimeout\":2147483647,\"url\":\"ws://x/y\"}]}");
    CConnectManager::Release();
    manager = CConnectManager::GetInstance();
    manager->SetStoreFile(store);
    ASSERT_EQ(manager->GetConnItems().size(), 1u);
    EXPECT_EQ(manager->GetConnItems()[0].messageTimeout, 3600);
}

TEST_F(NetworkProfile, NetworkPriorityVariableReordersProfilesOrIsRejected) {
    manager->AddCustomItem(OCPPPROTOCOL_201, "ws://one.example/ocpp", CONNTYPE_WS, 5);
    manager->AddConnItem(Profile(2, CONNTYPE_WS, "ws://two.example/ocpp"));
    VariableDataItem20 item = VariableDataItem20::Make("OCPPCommCtrlr", "NetworkConfigurationPriority", "");
    CTools::CopyField(item.attributeValue, "2,1");
    EXPECT_EQ(CVariableCache::GetInstance()->CheckSetVariable(item), VARIABLESTATUS_REBOOTREQUIRED);
    EXPECT_EQ(manager->GetConnectPriority(), "2,1");
    EXPECT_EQ(manager->GetConnItems()[1].priority, 2);

    CTools::CopyField(item.attributeValue, "3,1");
    EXPECT_EQ(CVariableCache::GetInstance()->CheckSetVariable(item), VARIABLESTATUS_REJECTED);
    EXPECT_EQ(manager->GetConnectPriority(), "2,1");
}

}  // namespace
