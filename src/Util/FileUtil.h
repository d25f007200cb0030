#pragma once
#include <string>

class CFileUtil {
public:
    // 1 when the directory exists and a file can be created in it.
    static int CanWriteDir(const std::string& dir);
    static bool Exists(const std::string& path);
    static std::string DirName(const std::string& path);
    // Crash-safe replace: writes a temporary file (path + suffix), fsyncs it, renames it over path.
    static bool WriteFileAtomic(const std::string& path, const std::string& content, const std::string& tmpSuffix = "1");
    static bool ReadFile(const std::string& path, std::string& content);
    // Creates the directory and its parents; 1 on success or when it exists.
    static int MakeDirs(const std::string& dir);
};
