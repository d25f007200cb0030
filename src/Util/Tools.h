#pragma once
#include <cstdarg>
#include <cstddef>
#include <cstdint>
#include <string>

namespace Json {
class Value;
}

// Diagnostic log levels used by every module.
enum { OCPP_LOG_DEBUG = 0, OCPP_LOG_INFO = 1, OCPP_LOG_ERROR = 2 };

#define OCPP_LOG(level, ...) CTools::Log((level), __FUNCTION__, __FILE__, __LINE__, __VA_ARGS__)
#define LOG_DEBUG(...) OCPP_LOG(OCPP_LOG_DEBUG, __VA_ARGS__)
#define LOG_INFO(...) OCPP_LOG(OCPP_LOG_INFO, __VA_ARGS__)
#define LOG_ERROR(...) OCPP_LOG(OCPP_LOG_ERROR, __VA_ARGS__)

// Shared helpers. Every clock read of the library goes through here so that
// tests can move or freeze time without touching the machine's clock.
class CTools {
public:
    // Clocks.
    static int64_t CurTimeMilSec();         // wall clock, ms since the epoch
    static int64_t CurTimeSec();            // wall clock, s since the epoch
    static int64_t GetCurRunTimeSec();      // monotonic seconds
    static int64_t GetCurRunTimeMilSec();   // monotonic milliseconds

    // Test seams: shift both clocks, or pin them at their current reading.
    static void SetClockOffsetMs(int64_t wallOffsetMs, int64_t monoOffsetMs);
    static void AdvanceClockMs(int64_t ms);  // moves both clocks forward
    static void FreezeClock(bool frozen);
    static void ResetClock();

    // Setting the system time needs privileges; a hook lets tests observe it.
    typedef int (*SetTimeHook)(int64_t epochSec);
    static void SetSetTimeHook(SetTimeHook hook);
    static int SetTimeSec(int64_t epochSec);
    static int SysToHcUtc();

    // Time texts.
    static std::string GetLocalTime(int64_t epochSec);      // "YYYY-MM-DDTHH:MM:SS.000Z" (UTC)
    static std::string FormatLocalTime(int64_t epochMs);    // "YYYY-MM-DD HH:MM:SS" in local time
    static int64_t GetTimeByString(const std::string& text); // RFC 3339 -> epoch s, -1 if invalid
    static bool IsValidUTCTime(const std::string& text);
    static int LocalHour(int64_t epochSec);

    // Value checks.
    static bool IsInt(const std::string& text);
    static bool IsDecimal(const std::string& text);
    static bool IsBool(const std::string& text);

    // Ids and hashes.
    static std::string GetUuid();
    static std::string Hash12(const std::string& text);
    static std::string MaskIdTokenFromJson(const std::string& text);

    // Parses untrusted JSON text; never throws (jsoncpp throws on nesting past its
    // limit, which must not unwind through a C library's frames). Optional error text.
    static bool ParseJson(const char* text, size_t length, Json::Value& root, std::string* errors = nullptr);
    static bool ParseJson(const std::string& text, Json::Value& root, std::string* errors = nullptr) {
        return ParseJson(text.data(), text.size(), root, errors);
    }

    // Formatting.
    static std::string StringFormat(const char* format, ...) __attribute__((format(printf, 1, 2)));
    static std::string VStringFormat(const char* format, va_list args);

    // Bounded, always NUL-terminated copy into a fixed field; returns bytes copied.
    static size_t CopyField(char* dst, size_t capacity, const char* src);
    static size_t CopyField(char* dst, size_t capacity, const std::string& src) {
        return CopyField(dst, capacity, src.c_str());
    }
    template <size_t N>
    static size_t CopyField(char (&dst)[N], const std::string& src) {
        return CopyField(dst, N, src.c_str());
    }
    template <size_t N>
    static size_t CopyField(char (&dst)[N], const char* src) {
        return CopyField(dst, N, src);
    }

    // Diagnostic log: formats and hands the line to the host's log sink.
    static void Log(int level, const char* function, const char* file, int line, const char* format, ...)
        __attribute__((format(printf, 5, 6)));

    static void SleepMs(int64_t ms);
};
