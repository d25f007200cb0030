#include "Ocpp20/Process/TransactionFile.h"

#include <algorithm>
#include <cstring>

#include "Util/FileUtil.h"
#include "Util/Tools.h"

std::string CTransactionFile::Encode(const Records& records) {
    std::string image(records.size() * CTransactionManager::kRecordBytes, '\0');
    char* at = &image[0];
    for (const auto& record : records) {
        // Ids are 36 characters; a longer one would shift every record after it.
        std::memcpy(at, record.first.data(), std::min(record.first.size(), CTransactionManager::kIdBytes));
        std::memcpy(at + CTransactionManager::kIdBytes, &record.second, sizeof(TransactionItem));
        at += CTransactionManager::kRecordBytes;
    }
    return image;
}

CTransactionFile::Records CTransactionFile::Decode(const std::string& bytes) {
    Records records;
    const size_t count = bytes.size() / CTransactionManager::kRecordBytes;
    records.reserve(count);
    for (size_t i = 0; i < count; ++i) {
        const char* at = bytes.data() + i * CTransactionManager::kRecordBytes;
        char id[CTransactionManager::kIdBytes + 1] = {};
        std::memcpy(id, at, CTransactionManager::kIdBytes);
        TransactionItem item;
        std::memcpy(&item, at + CTransactionManager::kIdBytes, sizeof item);
        item.idToken[sizeof item.idToken - 1] = '\0';
        if (id[0] == '\0') continue;
        records.emplace_back(id, item);
    }
    return records;
}

bool CTransactionFile::Write(const std::string& path, const std::string& image) {
    const FileWriteResult result = CFileUtil::WriteFileAtomicEx(path, image);
    if (!result.Ok()) {
        LOG_ERROR("Transaction Cache File write failed step:%d errno=%d", static_cast<int>(result.failedStep),
                  result.err);
        return false;
    }
    if (result.fsyncErr != 0) LOG_ERROR("Transaction Cache File fsync failed errno=%d", result.fsyncErr);
    return true;
}

bool CTransactionFile::Read(const std::string& path, Records* records) {
    std::string bytes;
    if (!CFileUtil::ReadFile(path, bytes)) return false;
    if (bytes.size() > kMaxRecords * CTransactionManager::kRecordBytes) {
        LOG_ERROR("Transaction Cache File too large: %u bytes, not loaded", static_cast<unsigned>(bytes.size()));
        return false;
    }
    if (bytes.size() % CTransactionManager::kRecordBytes != 0)
        LOG_ERROR("Transaction Cache File truncated: %u bytes", static_cast<unsigned>(bytes.size()));
    *records = Decode(bytes);
    return true;
}
