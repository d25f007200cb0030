#pragma once
#include <memory>

#include "Process/OcppWebSocketClientCallBack.h"
#include "WebSocket/WebSocketClient.h"

// One client with the callback object it was given; the client goes first.
struct ConnectLink {
    std::unique_ptr<COcppWebSocketClientCallBack> callBack;
    std::unique_ptr<CWebSocketClient> client;
    ~ConnectLink() { client.reset(); }

    // A link with no client yet; its last reference may safely go inside one of its own link events.
    static std::shared_ptr<ConnectLink> Create();

    // Marks a link event running on the client's own thread.
    struct EventScope {
        EventScope();
        ~EventScope();
    };
};
