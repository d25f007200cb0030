#pragma once
// The authorization store opened in a fresh folder with the device model it reads.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "Ocpp20/Process/AuthorizeCache.h"
#include "Ocpp20/Process/VariableCache.h"
#include "Ocpp20/Process/VariableCharacteristics.h"
#include "OcppProtocol/OcppProtocol.h"
#include "RecordingHost.h"
#include "TestSupport.h"
#include "Util/Tools.h"

namespace ocpptest {

class AuthorizeStore : public ::testing::Test {
protected:
    void SetUp() override { Open(dir); }
    // Every store bound to files in `folder`, from the defaults.
    void Open(const TempDir& folder) {
        ResetSdkState();
        OcppProtocol_InitOcppProtocol(OCPPPROTOCOL_201);
        CVariableCache::GetInstance()->InitDefault();
        ASSERT_EQ(CVariableCache::GetInstance()->SetStoreFile(folder.file("variablecache.json")), 1);
        ASSERT_EQ(CVariableCharacteristics::GetInstance()->SetStoreFile(folder.file("VariableCharacteristicscache.json")),
                  1);
        store = CAuthorizeCache::GetInstance();
        ASSERT_EQ(store->SetStoreFile(folder.file("authorizecache.db")), 1);
    }
    void TearDown() override {
        CAuthorizeCache::Release();
        CVariableCache::Release();
        CVariableCharacteristics::Release();
        ResetSdkState();
    }

    static void Set(const char* component, const char* variable, const char* value) {
        VariableDataItem20 item = VariableDataItem20::Make(component, variable);
        CTools::CopyField(item.attributeValue, value);
        ASSERT_EQ(CVariableCache::GetInstance()->UpdateVariableValue(item), VARIABLESTATUS_ACCEPTED);
    }
    static std::string Get(const char* component, const char* variable) {
        return CVariableCache::GetInstance()->GetVariableAttributeValue(VariableDataItem20::Make(component, variable));
    }
    // The Entries count is written on its own thread; a test that changes the
    // list waits for it so that the write cannot land in the next test.
    static bool EntriesReach(int n) {
        const std::string want = std::to_string(n);
        return WaitFor([&] { return Get("LocalAuthListCtrlr", "Entries") == want; });
    }

    static AuthorizeItem Item(const char* token, int type, int status, int32_t expiry = 0, const char* group = "") {
        AuthorizeItem item{};
        CTools::CopyField(item.token, token);
        item.tokenType = type;
        item.status = status;
        item.expiryTime = expiry;
        CTools::CopyField(item.groupToken, group);
        return item;
    }

    TempDir dir;
    CAuthorizeCache* store = nullptr;
};

enum { kISO14443 = 2, kCentral = 0, kBlocked = 1, kExpired = 3, kInvalid = 4, kNone = 255 };

}  // namespace ocpptest
