#include "RecordingLink.h"

#include <gtest/gtest.h>

#include <cstring>

#include "FrameSchema.h"
#include "OcppProtocol/OcppSendSeam.h"

namespace ocpptest {

namespace {
RecordingLink* g_link = nullptr;

// A frame a strict CSMS would refuse fails the test that made the library send it.
void CheckSchema(const char* frame, int len) {
    const std::string text(frame, static_cast<size_t>(len));
    const std::string problem = FrameSchemaProblem(text);
    if (!problem.empty()) ADD_FAILURE() << "the station sent a frame a strict CSMS refuses (" << problem << "):\n" << text;
}
}  // namespace

RecordingLink::RecordingLink() {
    g_link = this;
    ForgetInboundCalls();
    COcppSendSeam::Set(&RecordingLink::Send, &RecordingLink::Request);
    COcppSendSeam::SetLinkUp(&RecordingLink::LinkUp);
}

RecordingLink::~RecordingLink() {
    COcppSendSeam::Reset();
    g_link = nullptr;
}

std::vector<std::string> RecordingLink::Sent() {
    std::lock_guard<std::mutex> lock(m_mutex);
    return m_sent;
}

std::string RecordingLink::Last() {
    std::lock_guard<std::mutex> lock(m_mutex);
    return m_sent.empty() ? std::string() : m_sent.back();
}

size_t RecordingLink::Count() {
    std::lock_guard<std::mutex> lock(m_mutex);
    return m_sent.size();
}

size_t RecordingLink::Count(const std::string& action) { return CountContaining("\"" + action + "\""); }

size_t RecordingLink::CountContaining(const std::string& text) {
    size_t n = 0;
    for (const std::string& frame : Sent()) n += frame.find(text) != std::string::npos ? 1 : 0;
    return n;
}

void RecordingLink::Clear() {
    std::lock_guard<std::mutex> lock(m_mutex);
    m_sent.clear();
}

void RecordingLink::SetSendResult(int result) {
    std::lock_guard<std::mutex> lock(m_mutex);
    m_sendResult = result;
}

void RecordingLink::Answer(std::function<std::string(const std::string&)> answer) {
    std::lock_guard<std::mutex> lock(m_mutex);
    m_answer = std::move(answer);
}

bool RecordingLink::LinkUp() {
    RecordingLink* self = g_link;
    if (self == nullptr) return false;
    std::lock_guard<std::mutex> lock(self->m_mutex);
    return self->m_sendResult == 1;
}

int RecordingLink::Send(const char* frame, int len) {
    RecordingLink* self = g_link;
    if (self == nullptr) return 0;
    CheckSchema(frame, len);
    std::lock_guard<std::mutex> lock(self->m_mutex);
    self->m_sent.emplace_back(frame, static_cast<size_t>(len));
    return self->m_sendResult;
}

int RecordingLink::Request(const char* id, const char* frame, int len, char* response, int capacity,
                           int* responseLen) {
    RecordingLink* self = g_link;
    if (self == nullptr) return 0;
    CheckSchema(frame, len);
    std::function<std::string(const std::string&)> answer;
    {
        std::lock_guard<std::mutex> lock(self->m_mutex);
        self->m_sent.emplace_back(frame, static_cast<size_t>(len));
        if (self->m_sendResult != 1) return 0;
        answer = self->m_answer;
    }
    if (!answer) return 0;
    const std::string text = answer(id);
    const size_t n = text.size() < static_cast<size_t>(capacity) ? text.size() : static_cast<size_t>(capacity) - 1;
    std::memcpy(response, text.data(), n);
    response[n] = '\0';
    *responseLen = static_cast<int>(n);
    return 1;
}

}  // namespace ocpptest
