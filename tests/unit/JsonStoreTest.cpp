#include <gtest/gtest.h>
#include <sys/stat.h>

#include <cerrno>
#include <string>

#include "TestSupport.h"
#include "Util/FileUtil.h"
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

TEST(StoreFileCreation, KeepsAnExistingStoreAndSaysWhyCreationFailed) {
    TempDir dir;
    const std::string path = dir.file("store.json");
    int err = -7;
    EXPECT_EQ(1, CFileUtil::CreateIfAbsent(path, "[]", &err));
    EXPECT_EQ("[]", ReadText(path));

    WriteText(path, "[{\"id\":1}]");
    EXPECT_EQ(0, CFileUtil::CreateIfAbsent(path, "[]", &err));
    EXPECT_EQ("[{\"id\":1}]", ReadText(path));  // a saved store is never reset

    FileWriteResult r;
    EXPECT_EQ(-1, CFileUtil::CreateIfAbsent(dir.file("missing/store.json"), "[]", &err, &r));
    EXPECT_EQ(ENOENT, err);
    EXPECT_EQ(FileWriteResult::kOpen, r.failedStep);
}

TEST(StoreFileReplace, ReportsTheFailingStepAndLeavesTheOldStoreIntact) {
    TempDir dir;
    const std::string path = dir.file("store.json");
    WriteText(path, "old");
    FileWriteResult r = CFileUtil::WriteFileAtomicEx(path, "new", "1");
    EXPECT_TRUE(r.Ok());
    EXPECT_EQ(0, r.fsyncErr);
    EXPECT_EQ("new", ReadText(path));
    EXPECT_FALSE(CFileUtil::Exists(path + "1"));

    r = CFileUtil::WriteFileAtomicEx(dir.file("missing/store.json"), "x", "1");
    EXPECT_EQ(FileWriteResult::kOpen, r.failedStep);
    EXPECT_EQ(ENOENT, r.err);

    // A folder in the store's place cannot be replaced by a file.
    const std::string blocked = dir.file("blocked");
    ASSERT_EQ(0, mkdir(blocked.c_str(), 0755));
    WriteText(blocked + "/inner", "keep");
    r = CFileUtil::WriteFileAtomicEx(blocked, "x", "1");
    EXPECT_EQ(FileWriteResult::kRename, r.failedStep);
    EXPECT_NE(0, r.err);
    EXPECT_EQ("keep", ReadText(blocked + "/inner"));
    EXPECT_FALSE(CFileUtil::WriteFileAtomic(blocked, "x", "1"));
    EXPECT_FALSE(CFileUtil::Exists(blocked + "1"));  // the strict writer cleans up after itself
}

}  // namespace
