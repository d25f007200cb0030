#pragma once
// Fixtures shared by every test: a temporary cache folder, captured log lines
// and a clock the test can move.
#include <gtest/gtest.h>
#include <json/json.h>

#include <OcppProtocol.h>

#include <functional>
#include <mutex>
#include <string>
#include <vector>

namespace ocpptest {

// A fresh folder under /tmp, removed with its content when the object dies.
class TempDir {
public:
    TempDir();
    ~TempDir();
    const std::string& path() const { return m_path; }      // no trailing slash
    std::string file(const std::string& name) const { return m_path + "/" + name; }

private:
    std::string m_path;
};

// The device-model stores (variables and their characteristics) opened fresh in `dir`,
// as a connection opens them; CloseDeviceModel releases them again.
void OpenDeviceModel(const TempDir& dir);
void CloseDeviceModel();

struct LogLine {
    int level;
    std::string function;
    std::string file;
    int line;
    std::string text;
};

// Captures the library's diagnostic log while alive.
class LogCapture {
public:
    LogCapture();
    ~LogCapture();
    std::vector<LogLine> Lines();
    bool Contains(const std::string& needle, int level = -1);
    size_t Count(const std::string& needle);
    void Clear();

    // Public so the capture sink can append; tests use the accessors.
    std::mutex m_mutex;
    std::vector<LogLine> m_lines;
};

// Waits until `pred` holds or `timeoutMs` passes; polls every millisecond.
bool WaitFor(const std::function<bool()>& pred, int timeoutMs = 2000);

// Restores the library's clocks when the test ends.
class ClockGuard {
public:
    ClockGuard();
    ~ClockGuard();
};

std::string ReadText(const std::string& path);
void WriteText(const std::string& path, const std::string& text);
// The file's JSON; null when it is missing or unreadable.
Json::Value ReadJson(const std::string& path);

// A variable record as the host fills it.
VariableDataItem HostVariable(const char* component, const char* variable, const char* value, int mode = 0,
                              int status = 0);
// The host sets one variable the library owns, as it does at start-up.
void SetLibraryVariable(const char* component, const char* variable, const char* value);
// A CSMS profile in slot `id`.
ConnectionItem Profile(int id, int connType, const char* url, int priority = 0);
std::vector<int> Ids(const std::vector<ConnectionItem>& items);

}  // namespace ocpptest
