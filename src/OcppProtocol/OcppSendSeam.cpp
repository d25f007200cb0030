#include "OcppProtocol/OcppSendSeam.h"

#include <atomic>

#include "Ocpp20/OcppProtocol20.h"
#include "OcppProtocol/OcppProtocol.h"
#include "Process/ConnectManager.h"
#include "Util/Tools.h"

namespace {

// By default frames leave through the connection manager's current client.
int LinkSend(const char* frame, int len) { return CConnectManager::GetInstance()->SendMessage(frame, len); }

int LinkRequest(const char* id, const char* frame, int len, char* response, int capacity, int* responseLen) {
    int length = capacity;
    const int rc = CConnectManager::GetInstance()->SendMessage(id, frame, len, response, &length);
    if (responseLen != nullptr) *responseLen = rc == 1 ? length : 0;
    return rc == 1 ? 1 : 0;
}

bool LinkIsUp() { return CConnectManager::GetInstance()->IsConnected() == 1; }

std::atomic<COcppSendSeam::SendFn> g_send{&LinkSend};
std::atomic<COcppSendSeam::LinkUpFn> g_linkUp{&LinkIsUp};
std::atomic<COcppSendSeam::RequestFn> g_request{&LinkRequest};

}  // namespace

void COcppSendSeam::Set(SendFn send, RequestFn request) {
    g_send.store(send != nullptr ? send : &LinkSend);
    g_request.store(request != nullptr ? request : &LinkRequest);
}

void COcppSendSeam::SetLinkUp(LinkUpFn linkUp) { g_linkUp.store(linkUp != nullptr ? linkUp : &LinkIsUp); }

void COcppSendSeam::Reset() {
    Set(nullptr, nullptr);
    SetLinkUp(nullptr);
}

bool COcppSendSeam::LinkUp() { return g_linkUp.load()(); }

int COcppSendSeam::Send(const char* frame, int len) { return g_send.load()(frame, len); }

int COcppSendSeam::Request(const char* id, const char* frame, int len, char* response, int capacity,
                           int* responseLen) {
    return g_request.load()(id, frame, len, response, capacity, responseLen);
}

int OcppProtocol_SendMessage(const char* frame, int len) {
    if (frame == nullptr || len < 0) return 0;
    if (len >= kOcppMaxFrameLen) {
        LOG_ERROR("Send msg to csms iMessageLen too long, msglen:%d\n", len);
        return 0;
    }
    const std::string id = COcppProtocol20::GetIdentify(frame, len);
    if (COcppSendSeam::Send(frame, len) == 1) return 1;
    LOG_ERROR("Send msg to csms failed => Identify:%s msglen%d\n", id.c_str(), len);
    return 0;
}

int OcppProtocol_SendMessage(const char* frame, int len, char* response, int* responseLen) {
    if (frame == nullptr || len < 0 || response == nullptr || responseLen == nullptr) return 0;
    const OCPPPROTOCOL protocol = OcppProtocol_GetOcppProtocol();
    if (protocol != OCPPPROTOCOL_201 && protocol != OCPPPROTOCOL_21) return 0;
    if (len >= kOcppMaxFrameLen) {
        LOG_ERROR("Send msg to csms iMessageLen too long, msglen:%d\n", len);
        return 0;
    }
    const std::string id = COcppProtocol20::GetIdentify(frame, len);
    if (COcppSendSeam::Request(id.c_str(), frame, len, response, kOcppResponseBufferLen, responseLen) == 1) return 1;
    LOG_ERROR("Send msg to csms failed with recv => Identify:%s msglen%d\n", id.c_str(), len);
    return 0;
}
