#include "Process/OcppWebSocketClientCallBack.h"

#include "OcppProtocol/MessageCallBack.h"
#include "Process/ConnectLink.h"
#include "Process/ConnectManager.h"

void COcppWebSocketClientCallBack::OnConnectSuccess() {
    ConnectLink::EventScope scope;
    m_pManager->OnLinkUp(m_iGeneration);
}

void COcppWebSocketClientCallBack::OnConnectError() {
    ConnectLink::EventScope scope;
    m_pManager->OnLinkDown(m_iGeneration);
}

void COcppWebSocketClientCallBack::OnMessage(const char* message, int length) {
    if (message == nullptr || length <= 0) return;
    CMessageCallBack::GetInstance()->OnWebSocketMessage(message, static_cast<unsigned int>(length));
}
