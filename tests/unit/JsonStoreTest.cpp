#include <gtest/gtest.h>

#include <string>

#include "TestSupport.h"
#include "Util/JsonStore.h"

using namespace ocpptest;

namespace {

// The smallest store: one number, 7 unless the file says otherwise.
class NumberStore : public CJsonStore {
public:
    NumberStore() : CJsonStore(Texts(), Shape()) {}
    int value = 7;

    int SyncFromFile() override {
        Json::Value root;
        const ReadResult read = ReadImage(root);
        if (read == kUnbound) return 1;
        if (read == kFailed || !root["value"].isInt()) {
            value = 7;
            return SyncToFile();
        }
        value = root["value"].asInt();
        return 1;
    }

private:
    static JsonStoreTexts Texts() {
        JsonStoreTexts t;
        t.tooLarge = "number file too large: %lld";
        t.invalid = "number file broken: %s";
        return t;
    }
    static JsonStoreShape Shape() {
        JsonStoreShape shape;
        shape.emptyImage = "{}";
        shape.maxBytes = 64;
        shape.sameFileReloads = true;
        return shape;
    }
    std::string BuildImage() override { return "{\"value\":" + std::to_string(value) + "}"; }
};

TEST(JsonStore, AnOversizedOrCorruptFileGivesWayToTheDefaultsAndEachStoreSaysSoInItsOwnWords) {
    TempDir dir;
    LogCapture log;
    const std::string path = dir.file("number.json");
    NumberStore store;

    WriteText(path, "{\"value\":3}");
    ASSERT_EQ(store.SetStoreFile(path), 1);
    EXPECT_EQ(store.value, 3);

    const std::string big = "{\"value\":4,\"pad\":\"" + std::string(100, 'x') + "\"}";
    WriteText(path, big);
    store.SetStoreFile(path);
    EXPECT_EQ(store.value, 7) << "a file above the cap is not read";
    EXPECT_TRUE(log.Contains("number file too large: " + std::to_string(big.size())));
    EXPECT_EQ(ReadText(path), "{\"value\":7}") << "the defaults replace it";

    WriteText(path, "{\"value\":5");
    store.SetStoreFile(path);
    EXPECT_EQ(store.value, 7);
    EXPECT_TRUE(log.Contains("number file broken: "));
    EXPECT_EQ(ReadText(path), "{\"value\":7}");
}

}  // namespace
