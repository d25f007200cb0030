#include "Util/JsonStore.h"

#include <sys/stat.h>

#include <cstdarg>
#include <cstdio>
#include <vector>

#include "Util/CriticalSectionManager.h"
#include "Util/FileUtil.h"
#include "Util/Tools.h"

const char JsonStoreTexts::kQuiet[] = "";

namespace {
enum { kTooLarge, kUnreadable, kInvalid };
// Load failures are the store's SyncFromFile speaking.
const char* const kLoadFunction = "SyncFromFile";
// Both kinds of write speak as SyncToFile.
const char* const kWriteFunction = "SyncToFile";
}

CJsonStore::CJsonStore(const JsonStoreTexts& texts, const JsonStoreShape& shape) : m_texts(texts), m_shape(shape) {
    pthread_mutex_init(&m_pathMutex, nullptr);
    pthread_mutex_init(&m_writeMutex, nullptr);
}

CJsonStore::~CJsonStore() {
    pthread_mutex_destroy(&m_writeMutex);
    pthread_mutex_destroy(&m_pathMutex);
}

void CJsonStore::Say(const char* function, int level, bool toStdout, const char* text, ...) {
    if (text == nullptr || text == JsonStoreTexts::kQuiet) return;
    va_list args;
    va_start(args, text);
    va_list copy;
    va_copy(copy, args);
    const int needed = vsnprintf(nullptr, 0, text, copy);
    va_end(copy);
    std::vector<char> line(needed > 0 ? static_cast<size_t>(needed) + 1 : 1, '\0');
    if (needed > 0) vsnprintf(line.data(), line.size(), text, args);
    va_end(args);
    if (toStdout)
        fputs(line.data(), stdout);
    else
        CTools::Log(level, function, __FILE__, __LINE__, "%s", line.data());
}

std::string CJsonStore::GetStoreFile() {
    OCPP_SECTION(&m_pathMutex);
    return m_path;
}

void CJsonStore::Unbind() {
    OCPP_SECTION(&m_pathMutex);
    m_path.clear();
}

int CJsonStore::SetStoreFile(const std::string& path) {
    {
        OCPP_SECTION(&m_pathMutex);
        if (m_shape.emptyPathRefused && path.empty()) return 0;
        if (!m_shape.sameFileReloads && path == m_path) return 1;
        m_path = path;
    }
    Say(__FUNCTION__, OCPP_LOG_INFO, false, m_texts.fileIs, path.c_str());
    int err = 0;
    FileWriteResult r;
    const int created = CFileUtil::CreateIfAbsent(path, m_shape.emptyImage, &err, &r);
    if (created == 0) {
        Say(__FUNCTION__, OCPP_LOG_INFO, false, m_texts.alreadyExists);
        return SyncFromFile();
    }
    if (created < 0) {
        if (r.failedStep == FileWriteResult::kOpen) {
            Say(__FUNCTION__, OCPP_LOG_ERROR, false, m_texts.createFailed, err);
            return 0;
        }
        Say(__FUNCTION__, OCPP_LOG_ERROR, false, m_texts.createWriteFailed, err);
        if (!m_shape.keepAfterCreateWriteError) return 0;
    }
    if (r.fsyncErr != 0) Say(__FUNCTION__, OCPP_LOG_ERROR, false, m_texts.createFsyncFailed, r.fsyncErr);
    Say(__FUNCTION__, OCPP_LOG_INFO, false, m_texts.created);
    return SyncFromFile();
}

void CJsonStore::ReportReadFailure(int kind, long long size, const std::string& path, const std::string& errors) {
    if (kind == kTooLarge) {
        if (m_texts.tooLarge != nullptr) {
            Say(kLoadFunction, OCPP_LOG_ERROR, false, m_texts.tooLarge, size);
            return;
        }
        kind = kUnreadable;
    }
    if (kind == kUnreadable && m_texts.unreadable != nullptr) {
        Say(kLoadFunction, OCPP_LOG_ERROR, false, m_texts.unreadable, path.c_str());
        return;
    }
    Say(kLoadFunction, OCPP_LOG_ERROR, false, m_texts.invalid, errors.c_str());
}

CJsonStore::ReadResult CJsonStore::ReadImage(Json::Value& root) {
    const std::string path = GetStoreFile();
    if (path.empty()) return kUnbound;
    struct stat st;
    std::string text;
    if (stat(path.c_str(), &st) != 0) {
        ReportReadFailure(kUnreadable, 0, path, "");
        return kFailed;
    }
    if (static_cast<uint64_t>(st.st_size) > m_shape.maxBytes) {
        ReportReadFailure(kTooLarge, static_cast<long long>(st.st_size), path, "");
        return kFailed;
    }
    if (!CFileUtil::ReadFile(path, text)) {
        ReportReadFailure(kUnreadable, 0, path, "");
        return kFailed;
    }
    std::string errors;
    const bool wantArray = m_shape.emptyImage[0] == '[';
    if (!CTools::ParseJson(text, root, &errors) || (wantArray ? !root.isArray() : !root.isObject())) {
        ReportReadFailure(kInvalid, 0, path, errors);
        return kFailed;
    }
    return kRead;
}

int CJsonStore::SyncToFile() { return Write(m_shape.strictFsync); }

int CJsonStore::SyncToFileDurably() { return Write(true); }

int CJsonStore::Write(bool strictFsync) {
    const std::string path = GetStoreFile();
    if (path.empty()) return m_shape.unboundWriteResult;
    Say(kWriteFunction, OCPP_LOG_INFO, false, m_texts.writing);
    OCPP_SECTION(&m_writeMutex);
    const std::string image = BuildImage();
    const std::string tmp = path + "1";
    const FileWriteResult r = CFileUtil::WriteFileAtomicEx(path, image, "1", strictFsync);
    m_lastWriteFailed = !r.Ok() || r.fsyncErr != 0;
    const bool out = m_shape.writeFailuresToStdout;
    // A step without its own text is reported with the store's one failure text.
    auto own = [this](const char* text) { return text != nullptr ? text : m_texts.writeFailed; };
    switch (r.failedStep) {
        case FileWriteResult::kOpen:
            if (m_texts.openFailed != nullptr)
                Say(kWriteFunction, OCPP_LOG_ERROR, out, m_texts.openFailed, tmp.c_str(), r.err);
            else
                Say(kWriteFunction, OCPP_LOG_ERROR, out, m_texts.writeFailed, r.err);
            return 0;
        case FileWriteResult::kWrite:
            Say(kWriteFunction, OCPP_LOG_ERROR, out, own(m_texts.dataFailed), r.err);
            return 0;
        case FileWriteResult::kFsync:  // strict stores only
            Say(kWriteFunction, OCPP_LOG_ERROR, out, own(m_texts.fsyncFailed), r.err);
            return 0;
        default:
            break;
    }
    if (r.fsyncErr != 0) Say(kWriteFunction, OCPP_LOG_ERROR, out, m_texts.fsyncFailed, r.fsyncErr);
    if (r.failedStep == FileWriteResult::kRename) {
        if (m_texts.renameFailed != nullptr)
            Say(kWriteFunction, OCPP_LOG_ERROR, out, m_texts.renameFailed, tmp.c_str(), path.c_str(), r.err);
        else
            Say(kWriteFunction, OCPP_LOG_ERROR, out, m_texts.writeFailed, r.err);
        return 0;
    }
    Say(kWriteFunction, OCPP_LOG_INFO, false, m_texts.written);
    return 1;
}
