#pragma once
#include <string>

// Small gzip helpers over zlib's gz file interface.
class CZipUtil {
public:
    // Writes destPath as a gzip'd tar holding the one file srcPath under the
    // name nameInArchive (base name only; at most 99 characters). 1 on success;
    // a partial archive is removed.
    static int TarGzFile(const std::string& srcPath, const std::string& destPath, const std::string& nameInArchive);
};
