#include <gtest/gtest.h>

#include <thread>
#include <vector>

#include "Log/RotatingLogFile.h"
#include "TestSupport.h"
#include "Util/FileUtil.h"

using namespace ocpptest;

namespace {
// 39 characters plus the newline: 40 bytes a line.
std::string Line(char c) { return std::string(39, c); }
}  // namespace

TEST(RotatingLogFile, RotatesIntoTwoNumberedFilesNewestFirst) {
    TempDir dir;
    CRotatingLogFile file(100);
    file.SetEchoToStdout(false);
    ASSERT_EQ(file.Open(dir.path(), "ocpp"), 1);
    EXPECT_EQ(file.Path(), dir.file("ocpp.log"));
    for (char c : {'a', 'b', 'c', 'd', 'e', 'f', 'g'}) ASSERT_EQ(file.Write(Line(c).c_str()), 1);

    EXPECT_EQ(ReadText(dir.file("ocpp.log")), Line('g') + "\n");
    EXPECT_EQ(ReadText(dir.file("ocpp.log.0")), Line('e') + "\n" + Line('f') + "\n");
    EXPECT_EQ(ReadText(dir.file("ocpp.log.1")), Line('c') + "\n" + Line('d') + "\n");
    EXPECT_FALSE(CFileUtil::Exists(dir.file("ocpp.log.2"))) << "only two rotated files are kept";
}

TEST(RotatingLogFile, ReopeningAppendsAndCountsWhatIsThere) {
    TempDir dir;
    {
        CRotatingLogFile file(100);
        file.SetEchoToStdout(false);
        ASSERT_EQ(file.Open(dir.path()), 1);
        file.Write(Line('a').c_str());
        file.Write(Line('b').c_str());
    }
    CRotatingLogFile file(100);
    file.SetEchoToStdout(false);
    ASSERT_EQ(file.Open(dir.path()), 1);
    file.Write(Line('c').c_str());
    EXPECT_EQ(ReadText(dir.file("ocpp.log.0")), Line('a') + "\n" + Line('b') + "\n")
        << "a restart must not let the file grow past its limit";
    EXPECT_EQ(ReadText(dir.file("ocpp.log")), Line('c') + "\n");
}

TEST(RotatingLogFile, ConcurrentWritersNeverInterleaveLines) {
    TempDir dir;
    CRotatingLogFile file;
    file.SetEchoToStdout(false);
    ASSERT_EQ(file.Open(dir.path()), 1);
    std::vector<std::thread> threads;
    for (char c : {'p', 'q', 'r', 's'})
        threads.emplace_back([&file, c] {
            for (int i = 0; i < 300; ++i) file.Write(Line(c).c_str());
        });
    for (auto& t : threads) t.join();
    const std::string text = ReadText(dir.file("ocpp.log"));
    ASSERT_EQ(text.size(), 4u * 300u * 40u);
    for (size_t pos = 0; pos < text.size(); pos += 40)
        ASSERT_EQ(text.substr(pos, 40), Line(text[pos]) + "\n") << "line at byte " << pos;
}

TEST(RotatingLogFile, WritesWithoutAFolderAreDroppedSafely) {
    TempDir dir;
    CRotatingLogFile file;
    file.SetEchoToStdout(false);
    EXPECT_EQ(file.Write("nowhere"), 0);
    EXPECT_EQ(file.Open(dir.file("no/such/folder")), 0);
    EXPECT_FALSE(file.IsOpen());
    EXPECT_EQ(file.Write(nullptr), 0);
}
