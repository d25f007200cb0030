#pragma once
// The local server's class is part of the host interface; its state lives in
// CWebSocketServer::Impl inside WebSocketServer.cpp.
#include <OcppWebSocket.h>
