#pragma once
#include <string>

// Outcome of a crash-safe replace, so callers can say which step failed.
struct FileWriteResult {
    enum Step { kNone, kOpen, kWrite, kFsync, kRename };
    Step failedStep = kNone;
    int err = 0;       // errno of the failed step (0 for a short write)
    int fsyncErr = 0;  // non-zero: fsync of the data failed, the file was still put in place
    bool Ok() const { return failedStep == kNone; }
};

class CFileUtil {
public:
    // 1 when the directory exists and a file can be created in it.
    static int CanWriteDir(const std::string& dir);
    static bool Exists(const std::string& path);
    static std::string DirName(const std::string& path);
    // Crash-safe replace: writes a temporary file (path + suffix), fsyncs it, renames it over path.
    static bool WriteFileAtomic(const std::string& path, const std::string& content, const std::string& tmpSuffix = "1");
    // Same, but says which step failed. Unless strict, a failed fsync is reported and the
    // replace goes on, and the temporary file is left when the rename fails.
    static FileWriteResult WriteFileAtomicEx(const std::string& path, const std::string& content,
                                             const std::string& tmpSuffix = "1", bool strict = false);
    // Creates path holding initialContent unless it exists (never overwrites).
    // 1 created, 0 already existed, -1 failed with errno in *err; detail, when given,
    // also says which step failed and whether the fsync failed.
    static int CreateIfAbsent(const std::string& path, const std::string& initialContent, int* err,
                              FileWriteResult* detail = nullptr);
    static bool ReadFile(const std::string& path, std::string& content);
    // Creates the directory and its parents; 1 on success or when it exists.
    static int MakeDirs(const std::string& dir);
};
