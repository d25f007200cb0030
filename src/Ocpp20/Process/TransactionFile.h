#pragma once
#include <string>
#include <utility>
#include <vector>

#include "Ocpp20/Process/TransactionManager.h"

// transactioncache.bin: one 132-byte record per open transaction (the id,
// NUL-padded to 36 bytes, then the 96-byte TransactionItem image), no header.
class CTransactionFile {
public:
    typedef std::vector<std::pair<std::string, TransactionItem>> Records;
    // A station has a handful of EVSEs; a file holding more is not ours.
    static const size_t kMaxRecords = 1024;

    static std::string Encode(const Records& records);
    // Whole records only: a torn tail from a crash mid-write is left out.
    static Records Decode(const std::string& bytes);
    // Crash-safe replace; false when the file could not be put in place.
    static bool Write(const std::string& path, const std::string& image);
    static bool Read(const std::string& path, Records* records);
};
