#pragma once
// Stands in for the CSMS link: records every frame the library sends and
// answers synchronous requests with whatever the test queued.
#include <functional>
#include <mutex>
#include <string>
#include <vector>

namespace ocpptest {

class RecordingLink {
public:
    RecordingLink();   // attaches itself to the send seam
    ~RecordingLink();  // puts "not connected" back

    std::vector<std::string> Sent();
    std::string Last();
    size_t Count();
    // Frames that name `action`.
    size_t Count(const std::string& action);
    size_t CountContaining(const std::string& text);
    void Clear();

    // 0 makes every send fail, as a dropped link does (the link reads as down);
    // a request without an answer is a silent CSMS on a live link.
    void SetSendResult(int result);
    // The answer a request gets: built from the request's id.
    void Answer(std::function<std::string(const std::string& id)> answer);

private:
    static bool LinkUp();
    static int Send(const char* frame, int len);
    static int Request(const char* id, const char* frame, int len, char* response, int capacity, int* responseLen);

    std::mutex m_mutex;
    std::vector<std::string> m_sent;
    int m_sendResult = 1;
    std::function<std::string(const std::string&)> m_answer;
};

}  // namespace ocpptest
