// A plug-in as a vendor would build it against the public header.
#include <PluginBase.h>

#include <condition_variable>
#include <cstdint>
#include <cstring>
#include <mutex>
#include <string>

namespace {

// Shared by every instance in the process, so one instance can release another.
std::mutex g_mutex;
std::condition_variable g_cv;
bool g_waiting = false;
bool g_released = false;

class CTestPlugin : public PlugIn::CPluginBase {
public:
    void Destroy(void*) override { delete this; }
    int OnStart() override {
        ++m_starts;
        Log(PlugIn::PLUGINLOGLEVEL_INFO, "test plugin started %d", m_starts);
        return 1;
    }
    int OnStop() override { return 1; }
    void SetMessageCallBack(PlugIn::PluginMessageCallBack callBack) override { m_onMessage = callBack; }

    // "v2g": asks for the white list (command 7); "other": an unknown command;
    // "short": a message too short to hold a command.
    int SendAsyncMessage(const char* data, int length) override {
        const std::string text(data, static_cast<size_t>(length));
        if (text == "release") {
            std::lock_guard<std::mutex> lock(g_mutex);
            g_released = true;
            g_cv.notify_all();
            return 1;
        }
        if (m_onMessage == nullptr) return 0;
        int32_t command = text == "v2g" ? 7 : 3;
        char message[8] = {0};
        memcpy(message, &command, sizeof command);
        m_onMessage("TestPlugIn", message, text == "short" ? 2 : static_cast<int>(sizeof message));
        return 1;
    }

    // "wait": blocks until "release" is sent; "starts": how often this instance was started; "lie": fills the buffer and
    // claims far more; anything else is echoed.
    int SendSyncMessage(const char* data, int length, char* answer, int* answerLength) override {
        const std::string text(data, static_cast<size_t>(length));
        std::string reply;
        if (text == "wait") {
            // Holds the caller until "release" arrives, as a slow plug-in would.
            std::unique_lock<std::mutex> lock(g_mutex);
            g_waiting = true;
            g_cv.wait(lock, [] { return g_released; });
            reply = "released after starts=" + std::to_string(m_starts);  // this instance must still exist
        } else if (text == "waiting?") {
            std::lock_guard<std::mutex> lock(g_mutex);
            reply = g_waiting ? "yes" : "no";
        } else if (text == "starts") {
            reply = "starts=" + std::to_string(m_starts);
        } else if (text == "lie") {
            memset(answer, 'x', static_cast<size_t>(*answerLength));
            *answerLength = 1 << 20;
            return 7;
        } else {
            reply = "echo:" + text;
        }
        const size_t n = reply.size() < static_cast<size_t>(*answerLength) ? reply.size() : *answerLength;
        memcpy(answer, reply.data(), n);
        *answerLength = static_cast<int>(n);
        return 1;
    }

private:
    int m_starts = 0;
    PlugIn::PluginMessageCallBack m_onMessage = nullptr;
};

}  // namespace

extern "C" __attribute__((visibility("default"))) PlugIn::CPluginBase* CreatePlugin(void) { return new CTestPlugin(); }
