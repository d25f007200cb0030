#include "Process/OcppWebSocketClientCallBack.h"

#include "OcppProtocol/InboundFrame.h"
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

void COcppWebSocketClientCallBack::OnMessage(std::unique_ptr<CInboundFrame> frame) {
    if (!frame || frame->Length() == 0) return;
    CMessageCallBack::GetInstance()->OnWebSocketMessage(std::move(frame));
}
