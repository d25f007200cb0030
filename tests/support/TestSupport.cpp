#include "TestSupport.h"

#include <chrono>
#include <cstdlib>
#include <fstream>
#include <sstream>
#include <thread>

#include "Ocpp20/Process/VariableCache.h"
#include "Ocpp20/Process/VariableCharacteristics.h"
#include "Ocpp20/Process/VariableCustom.h"
#include "Util/Tools.h"

namespace ocpptest {

namespace {
std::mutex g_captureMutex;
LogCapture* g_capture = nullptr;

void CaptureLog(LOGLEVEL level, const char* function, const char* file, int line, const char* text) {
    std::lock_guard<std::mutex> lock(g_captureMutex);
    if (g_capture == nullptr) return;
    LogLine l{static_cast<int>(level), function ? function : "", file ? file : "", line, text ? text : ""};
    std::lock_guard<std::mutex> inner(g_capture->m_mutex);
    g_capture->m_lines.push_back(std::move(l));
}
}  // namespace

TempDir::TempDir() {
    char tmpl[] = "/tmp/ocpptest-XXXXXX";
    const char* made = mkdtemp(tmpl);
    m_path = made ? made : "";
    EXPECT_FALSE(m_path.empty()) << "could not create a temporary folder";
}

TempDir::~TempDir() {
    if (m_path.rfind("/tmp/ocpptest-", 0) == 0) {
        const std::string cmd = "rm -rf '" + m_path + "'";
        if (system(cmd.c_str()) != 0) ADD_FAILURE() << "could not remove " << m_path;
    }
}

LogCapture::LogCapture() {
    {
        std::lock_guard<std::mutex> lock(g_captureMutex);
        g_capture = this;
    }
    OcppProtocol_SetLog(&CaptureLog);
}

LogCapture::~LogCapture() {
    OcppProtocol_SetLog(nullptr);
    std::lock_guard<std::mutex> lock(g_captureMutex);
    if (g_capture == this) g_capture = nullptr;
}

std::vector<LogLine> LogCapture::Lines() {
    std::lock_guard<std::mutex> lock(m_mutex);
    return m_lines;
}

bool LogCapture::Contains(const std::string& needle, int level) {
    for (const auto& l : Lines())
        if (l.text.find(needle) != std::string::npos && (level < 0 || l.level == level)) return true;
    return false;
}

size_t LogCapture::Count(const std::string& needle) {
    size_t n = 0;
    for (const auto& l : Lines()) n += l.text.find(needle) != std::string::npos;
    return n;
}

void LogCapture::Clear() {
    std::lock_guard<std::mutex> lock(m_mutex);
    m_lines.clear();
}

bool WaitFor(const std::function<bool()>& pred, int timeoutMs) {
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(timeoutMs);
    while (!pred()) {
        if (std::chrono::steady_clock::now() >= deadline) return pred();
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    return true;
}

ClockGuard::ClockGuard() { CTools::ResetClock(); }
ClockGuard::~ClockGuard() { CTools::ResetClock(); }

std::string ReadText(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    std::stringstream ss;
    ss << in.rdbuf();
    return ss.str();
}

void WriteText(const std::string& path, const std::string& text) {
    std::ofstream out(path, std::ios::binary | std::ios::trunc);
    out << text;
}

Json::Value ReadJson(const std::string& path) {
    Json::Value root;
    std::istringstream in(ReadText(path));
    Json::parseFromStream(Json::CharReaderBuilder(), in, &root, nullptr);
    return root;
}

VariableDataItem HostVariable(const char* component, const char* variable, const char* value, int mode, int status) {
    VariableDataItem v{};
    CTools::CopyField(v.componentName, component);
    CTools::CopyField(v.variableName, variable);
    CTools::CopyField(v.attributeValue, value);
    v.mode = static_cast<int8_t>(mode);
    v.status = static_cast<int8_t>(status);
    return v;
}

void SetLibraryVariable(const char* component, const char* variable, const char* value) {
    VariableDataItem item = HostVariable(component, variable, value, 0, VARIABLESTATUS_ACCEPTED);
    EXPECT_EQ(OcppProtocol_SetVariableData(1, &item, 1), 1) << component << "." << variable;
}

ConnectionItem Profile(int id, int connType, const char* url, int priority) {
    ConnectionItem item{};
    item.id = id;
    item.priority = priority;
    item.protocol = OCPPPROTOCOL_201;
    item.connType = connType;
    item.messageTimeout = 5;
    CTools::CopyField(item.url, url);
    return item;
}

std::vector<int> Ids(const std::vector<ConnectionItem>& items) {
    std::vector<int> ids;
    for (const ConnectionItem& item : items) ids.push_back(item.id);
    return ids;
}

void OpenDeviceModel(const TempDir& dir) {
    CVariableCache* cache = CVariableCache::GetInstance();
    cache->InitDefault();
    ASSERT_EQ(cache->SetStoreFile(dir.file("variablecache.json")), 1);
    ASSERT_EQ(CVariableCharacteristics::GetInstance()->SetStoreFile(dir.file("VariableCharacteristicscache.json")), 1);
}

void CloseDeviceModel() {
    CVariableCache::Release();
    CVariableCharacteristics::Release();
    CVariableCustom::Release();
}

}  // namespace ocpptest
