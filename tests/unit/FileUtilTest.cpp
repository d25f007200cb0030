#include <gtest/gtest.h>

#include <cerrno>
#include <sys/stat.h>

#include "TestSupport.h"
#include "Util/FileUtil.h"

using namespace ocpptest;

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
