#pragma once
#include <memory>

class CInboundFrame;

// What the CSMS link reports upward. Called on the transport's service thread
// (and on its ping thread for a missed pong), never with a transport lock held.
class CWebSocketClientCallBack {
public:
    virtual ~CWebSocketClientCallBack() {}
    virtual void OnConnectSuccess() = 0;
    virtual void OnConnectError() = 0;
    // The frame as read on the service thread; the receiver owns it from here.
    virtual void OnMessage(std::unique_ptr<CInboundFrame> frame) = 0;
};
