#include "Process/ConnectManager.h"

#include "WebSocket/WebSocketConnect.h"
#include "Util/Tools.h"

// ---- Host entries -------------------------------------------------------------

int OcppProtocol_SetConnection(OCPPPROTOCOL protocol, const char* url, CONNTYPE connType, int messageTimeout) {
    CConnectManager::GetInstance()->AddCustomItem(protocol, url, connType, messageTimeout);
    return url != nullptr && url[0] != '\0' ? 1 : 0;
}

int OcppProtocol_SetConnectParam(int testAttempts, int backOffMinimum, int backOffRandomRange, int backOffRepeatTimes,
                                 int earlyStart) {
    CConnectManager::GetInstance()->SetConnectParam(testAttempts, backOffMinimum, backOffRandomRange,
                                                    backOffRepeatTimes, earlyStart);
    return 1;
}

int OcppProtocol_SetSsl(const char* cert, const char* privateKey, const char* ca) {
    CConnectManager::GetInstance()->SetSsl(cert, privateKey, ca);
    return 1;
}

int OcppProtocol_SetNamePwd(const char* name, const char* password) {
    CConnectManager::GetInstance()->SetNamePwd(name, password);
    return 1;
}

int OcppProtocol_SetPwd(const char* /*password*/) {
    // Kept by the variable monitor for the write-only monitor of BasicAuthPassword; it attaches here.
    return 1;
}

int OcppProtocol_SetOfflineMode(int enable) {
    if (enable != 0 && enable != 1) {
        LOG_ERROR("'enableofflinemode' Parameter setting error");
        LOG_ERROR("The correct parameters are '0' and '1'");
        return 0;
    }
    CConnectManager::GetInstance()->SetOfflineMode(enable);
    return 1;
}

int OcppProtocol_ImmediatelyReconnect(void) { return CConnectManager::GetInstance()->ReConnect(); }

int OcppProtocol_TestConnection(const char* url, int timeoutSec, ConnectParam* param) {
    CWebSocketConnect probe;
    return probe.CheckConnection(url, timeoutSec, param) == 1 ? 1 : 0;
}
