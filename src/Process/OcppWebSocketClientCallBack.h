#pragma once
#include <cstdint>
#include <memory>

#include "WebSocket/WebSocketClientCallBack.h"

class CConnectManager;

// Link events of one client. Each client gets its own, tagged with the
// generation it was created for, so a late event of a replaced client is dropped.
class COcppWebSocketClientCallBack : public CWebSocketClientCallBack {
public:
    COcppWebSocketClientCallBack(CConnectManager* manager, uint64_t generation)
        : m_pManager(manager), m_iGeneration(generation) {}
    void OnConnectSuccess() override;
    void OnConnectError() override;
    void OnMessage(std::unique_ptr<CInboundFrame> frame) override;

private:
    CConnectManager* m_pManager;
    uint64_t m_iGeneration;
};
