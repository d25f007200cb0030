#pragma once

// What the CSMS link reports upward. Called on the transport's service thread
// (and on its ping thread for a missed pong), never with a transport lock held.
class CWebSocketClientCallBack {
public:
    virtual ~CWebSocketClientCallBack() {}
    virtual void OnConnectSuccess() = 0;
    virtual void OnConnectError() = 0;
    virtual void OnMessage(const char* message, int length) = 0;
};
