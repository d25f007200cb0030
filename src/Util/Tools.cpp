#include "Util/Tools.h"

#include <atomic>
#include <cctype>
#include <cerrno>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <mutex>
#include <sys/time.h>
#include <unistd.h>
#include <uuid/uuid.h>
#include <vector>

#include <json/json.h>

#include "OcppProtocol/OcppProtocol.h"
#include "Util/CryptoUtil.h"

namespace {
std::atomic<int64_t> g_wallOffsetMs{0};
std::atomic<int64_t> g_monoOffsetMs{0};
std::atomic<bool> g_frozen{false};
std::atomic<int64_t> g_frozenWallMs{0};
std::atomic<int64_t> g_frozenMonoMs{0};
std::atomic<CTools::SetTimeHook> g_setTimeHook{nullptr};

int64_t RawWallMs() {
    struct timespec ts;
    clock_gettime(CLOCK_REALTIME, &ts);
    return static_cast<int64_t>(ts.tv_sec) * 1000 + ts.tv_nsec / 1000000;
}

int64_t RawMonoMs() {
    struct timespec ts;
    clock_gettime(CLOCK_MONOTONIC, &ts);
    return static_cast<int64_t>(ts.tv_sec) * 1000 + ts.tv_nsec / 1000000;
}

// Days since 1970-01-01 for a proleptic Gregorian date; avoids timegm's 32-bit time_t.
int64_t DaysFromCivil(int64_t y, unsigned m, unsigned d) {
    y -= m <= 2;
    const int64_t era = (y >= 0 ? y : y - 399) / 400;
    const unsigned yoe = static_cast<unsigned>(y - era * 400);
    const unsigned doy = (153 * (m + (m > 2 ? -3 : 9)) + 2) / 5 + d - 1;
    const unsigned doe = yoe * 365 + yoe / 4 - yoe / 100 + doy;
    return era * 146097 + static_cast<int64_t>(doe) - 719468;
}

void CivilFromDays(int64_t z, int64_t& y, unsigned& m, unsigned& d) {
    z += 719468;
    const int64_t era = (z >= 0 ? z : z - 146096) / 146097;
    const unsigned doe = static_cast<unsigned>(z - era * 146097);
    const unsigned yoe = (doe - doe / 1460 + doe / 36524 - doe / 146096) / 365;
    y = static_cast<int64_t>(yoe) + era * 400;
    const unsigned doy = doe - (365 * yoe + yoe / 4 - yoe / 100);
    const unsigned mp = (5 * doy + 2) / 153;
    d = doy - (153 * mp + 2) / 5 + 1;
    m = mp < 10 ? mp + 3 : mp - 9;
    y += (m <= 2);
}

bool ReadDigits(const char*& p, int count, int& out) {
    out = 0;
    for (int i = 0; i < count; ++i) {
        if (!isdigit(static_cast<unsigned char>(p[i]))) return false;
        out = out * 10 + (p[i] - '0');
    }
    p += count;
    return true;
}

// Parses an RFC 3339 date-time ("2024-01-02T03:04:05[.fff](Z|+hh:mm|-hh:mm)").
bool ParseRfc3339(const std::string& text, int64_t& epochSec) {
    const char* p = text.c_str();
    int year, mon, day, hour, min, sec;
    if (!ReadDigits(p, 4, year) || *p++ != '-' || !ReadDigits(p, 2, mon) || *p++ != '-' ||
        !ReadDigits(p, 2, day))
        return false;
    if (*p != 'T' && *p != 't' && *p != ' ') return false;
    ++p;
    if (!ReadDigits(p, 2, hour) || *p++ != ':' || !ReadDigits(p, 2, min) || *p++ != ':' ||
        !ReadDigits(p, 2, sec))
        return false;
    if (*p == '.') {
        ++p;
        if (!isdigit(static_cast<unsigned char>(*p))) return false;
        while (isdigit(static_cast<unsigned char>(*p))) ++p;
    }
    int offsetSec = 0;
    if (*p == 'Z' || *p == 'z') {
        ++p;
    } else if (*p == '+' || *p == '-') {
        const int sign = (*p == '-') ? -1 : 1;
        ++p;
        int oh, om;
        if (!ReadDigits(p, 2, oh) || *p++ != ':' || !ReadDigits(p, 2, om)) return false;
        if (oh > 23 || om > 59) return false;
        offsetSec = sign * (oh * 3600 + om * 60);
    } else {
        return false;
    }
    if (*p != '\0') return false;
    static const int kDays[] = {31, 29, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};
    if (mon < 1 || mon > 12 || day < 1 || day > kDays[mon - 1]) return false;
    const bool leap = (year % 4 == 0 && year % 100 != 0) || year % 400 == 0;
    if (mon == 2 && day == 29 && !leap) return false;
    if (hour > 23 || min > 59 || sec > 60) return false;
    epochSec = DaysFromCivil(year, mon, day) * 86400 + hour * 3600 + min * 60 + sec - offsetSec;
    return true;
}

void MaskTokens(Json::Value& v) {
    if (v.isObject()) {
        for (const auto& name : v.getMemberNames()) {
            Json::Value& member = v[name];
            if (name == "idToken" && member.isString())
                member = CTools::Hash12(member.asString());
            else
                MaskTokens(member);
        }
    } else if (v.isArray()) {
        for (Json::ArrayIndex i = 0; i < v.size(); ++i) MaskTokens(v[i]);
    }
}
}  // namespace

int64_t CTools::CurTimeMilSec() {
    if (g_frozen.load()) return g_frozenWallMs.load() + g_wallOffsetMs.load();
    return RawWallMs() + g_wallOffsetMs.load();
}

int64_t CTools::CurTimeSec() { return CurTimeMilSec() / 1000; }

int64_t CTools::GetCurRunTimeMilSec() {
    if (g_frozen.load()) return g_frozenMonoMs.load() + g_monoOffsetMs.load();
    return RawMonoMs() + g_monoOffsetMs.load();
}

int64_t CTools::GetCurRunTimeSec() { return GetCurRunTimeMilSec() / 1000; }

void CTools::SetClockOffsetMs(int64_t wallOffsetMs, int64_t monoOffsetMs) {
    g_wallOffsetMs = wallOffsetMs;
    g_monoOffsetMs = monoOffsetMs;
}

void CTools::AdvanceClockMs(int64_t ms) {
    g_wallOffsetMs += ms;
    g_monoOffsetMs += ms;
}

void CTools::FreezeClock(bool frozen) {
    if (frozen && !g_frozen.load()) {
        g_frozenWallMs = RawWallMs();
        g_frozenMonoMs = RawMonoMs();
    } else if (!frozen && g_frozen.load()) {
        // Keep readings continuous when time starts running again.
        g_wallOffsetMs += g_frozenWallMs.load() - RawWallMs();
        g_monoOffsetMs += g_frozenMonoMs.load() - RawMonoMs();
    }
    g_frozen = frozen;
}

void CTools::ResetClock() {
    g_frozen = false;
    g_wallOffsetMs = 0;
    g_monoOffsetMs = 0;
}

void CTools::SetSetTimeHook(SetTimeHook hook) { g_setTimeHook = hook; }

int CTools::SetTimeSec(int64_t epochSec) {
    if (SetTimeHook hook = g_setTimeHook.load()) return hook(epochSec);
    // A 32-bit time_t would wrap a time after 2038 back to 1901: refuse it.
    if (static_cast<int64_t>(static_cast<time_t>(epochSec)) != epochSec || epochSec < 0) {
        LOG_ERROR("system time %lld out of range", static_cast<long long>(epochSec));
        return 0;
    }
    struct timeval tv;
    tv.tv_sec = static_cast<time_t>(epochSec);
    tv.tv_usec = 0;
    if (settimeofday(&tv, nullptr) != 0) {
        LOG_ERROR("settimeofday failed: %s", strerror(errno));
        return 0;
    }
    return 1;
}

int CTools::SysToHcUtc() {
    const int rc = system("hwclock --systohc --utc > /dev/null 2>&1");
    return rc == 0 ? 1 : 0;
}

std::string CTools::GetLocalTime(int64_t epochSec) {
    int64_t days = epochSec / 86400;
    int64_t rem = epochSec % 86400;
    if (rem < 0) {
        rem += 86400;
        --days;
    }
    int64_t y;
    unsigned m, d;
    CivilFromDays(days, y, m, d);
    return StringFormat("%04lld-%02u-%02uT%02d:%02d:%02d.000Z", static_cast<long long>(y), m, d,
                        static_cast<int>(rem / 3600), static_cast<int>(rem / 60 % 60), static_cast<int>(rem % 60));
}

std::string CTools::FormatLocalTime(int64_t epochMs) {
    time_t t = static_cast<time_t>(epochMs / 1000);
    struct tm tmv;
    localtime_r(&t, &tmv);
    char buf[32];
    strftime(buf, sizeof buf, "%Y-%m-%d %H:%M:%S", &tmv);
    return buf;
}

int CTools::LocalHour(int64_t epochSec) {
    time_t t = static_cast<time_t>(epochSec);
    struct tm tmv;
    localtime_r(&t, &tmv);
    return tmv.tm_hour;
}

int64_t CTools::GetTimeByString(const std::string& text) {
    int64_t sec = 0;
    return ParseRfc3339(text, sec) ? sec : -1;
}

bool CTools::IsValidUTCTime(const std::string& text) {
    int64_t sec = 0;
    return ParseRfc3339(text, sec);
}

bool CTools::IsInt(const std::string& text) {
    size_t i = 0;
    if (i < text.size() && (text[i] == '-' || text[i] == '+')) ++i;
    if (i == text.size()) return false;
    for (; i < text.size(); ++i)
        if (!isdigit(static_cast<unsigned char>(text[i]))) return false;
    return true;
}

bool CTools::IsDecimal(const std::string& text) {
    size_t i = 0;
    if (i < text.size() && (text[i] == '-' || text[i] == '+')) ++i;
    bool digits = false, dot = false;
    for (; i < text.size(); ++i) {
        const char c = text[i];
        if (isdigit(static_cast<unsigned char>(c))) {
            digits = true;
        } else if (c == '.' && !dot) {
            dot = true;
        } else {
            return false;
        }
    }
    return digits;
}

bool CTools::IsBool(const std::string& text) { return text == "true" || text == "false"; }

std::string CTools::GetUuid() {
    uuid_t id;
    uuid_generate(id);
    char text[37];
    uuid_unparse(id, text);
    return text;
}

std::string CTools::Hash12(const std::string& text) {
    if (text.empty()) return std::string();
    return CCryptoUtil::GenSha256(text).substr(0, 12);
}

namespace {
// Building the settings costs more than reading a short frame; they never
// change, so they are made once and kept for the life of the process.
const Json::CharReaderBuilder& ReaderSettings() {
    static const Json::CharReaderBuilder* settings = new Json::CharReaderBuilder();
    return *settings;
}

const Json::StreamWriterBuilder& CompactWriterSettings() {
    static const Json::StreamWriterBuilder* settings = [] {
        Json::StreamWriterBuilder* builder = new Json::StreamWriterBuilder();
        (*builder)["indentation"] = "";
        return builder;
    }();
    return *settings;
}
}  // namespace

bool CTools::ParseJson(const char* text, size_t length, Json::Value& root, std::string* errors) {
    if (text == nullptr || length == 0) return false;
    std::unique_ptr<Json::CharReader> reader(ReaderSettings().newCharReader());
    std::string why;
    bool parsed = false;
    try {
        parsed = reader->parse(text, text + length, &root, &why);
    } catch (const std::exception& e) {
        why = e.what();  // nesting beyond the reader's limit
    }
    if (errors != nullptr) *errors = why;
    return parsed;
}

std::string CTools::MaskIdTokenFromJson(const std::string& text) {
    // Most frames carry no token: spare them a parse and a rewrite. A \u escape
    // could spell the member's name, so such text is always parsed.
    if (text.find("\"idToken\"") == std::string::npos && text.find("\\u") == std::string::npos) return text;
    Json::Value root;
    if (!ParseJson(text, root)) return text;
    try {
        MaskTokens(root);
        return Json::writeString(CompactWriterSettings(), root);
    } catch (const std::exception&) {
        return text;
    }
}

std::string CTools::VStringFormat(const char* format, va_list args) {
    if (format == nullptr) return std::string();
    char small[256];
    va_list copy;
    va_copy(copy, args);
    const int needed = vsnprintf(small, sizeof small, format, copy);
    va_end(copy);
    if (needed < 0) return std::string();
    if (static_cast<size_t>(needed) < sizeof small) return std::string(small, static_cast<size_t>(needed));
    std::string out(static_cast<size_t>(needed) + 1, '\0');
    vsnprintf(&out[0], out.size(), format, args);
    out.resize(static_cast<size_t>(needed));
    return out;
}

std::string CTools::StringFormat(const char* format, ...) {
    va_list args;
    va_start(args, format);
    std::string out = VStringFormat(format, args);
    va_end(args);
    return out;
}

size_t CTools::CopyField(char* dst, size_t capacity, const char* src) {
    if (dst == nullptr || capacity == 0) return 0;
    if (src == nullptr) {
        dst[0] = '\0';
        return 0;
    }
    size_t n = strnlen(src, capacity - 1);
    memcpy(dst, src, n);
    dst[n] = '\0';
    return n;
}

void CTools::Log(int level, const char* function, const char* file, int line, const char* format, ...) {
    if (format == nullptr) return;
    va_list args;
    va_start(args, format);
    char small[256];
    va_list copy;
    va_copy(copy, args);
    const int needed = vsnprintf(small, sizeof small, format, copy);
    va_end(copy);
    if (needed < 0) {
        va_end(args);
        return;
    }
    if (static_cast<size_t>(needed) < sizeof small) {
        va_end(args);
        OcppProtocol_WriteLog(level, function, file, line, small);
        return;
    }
    std::vector<char> big(static_cast<size_t>(needed) + 1);
    vsnprintf(big.data(), big.size(), format, args);
    va_end(args);
    OcppProtocol_WriteLog(level, function, file, line, big.data());
}

void CTools::SleepMs(int64_t ms) {
    if (ms > 0) usleep(static_cast<useconds_t>(ms * 1000));
}
