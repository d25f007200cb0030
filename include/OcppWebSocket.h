/*
 * Charge-point protocol library: connection types, the connection probe's
 * parameters and the small local WebSocket server a host may run.
 */
#ifndef OCPP_WEBSOCKET_H
#define OCPP_WEBSOCKET_H

#include "OcppExport.h"

/* Connection type of a CSMS profile; the value is also its security profile. */
typedef enum {
    CONNTYPE_WS = 0,              /* plain WebSocket, no authentication */
    CONNTYPE_BASIC = 1,           /* plain WebSocket, HTTP Basic authentication */
    CONNTYPE_TLS_BASIC = 2,       /* TLS checked against the CA, HTTP Basic authentication */
    CONNTYPE_TLS_CLIENT_CERT = 3  /* TLS with client certificate and private key */
} CONNTYPE;

/* Input of a one-off connection probe. PEM texts, not file names. */
typedef struct OCPP_PACKED ConnectParam {
    char szName[41];
    char szPwd[41];
    char szCert[5001];
    char szPrivateKey[5001];
    char szCa[5001];
    CONNTYPE eConnType;
} ConnectParam;

OCPP_STATIC_ASSERT(sizeof(ConnectParam) == 41 * 2 + 5001 * 3 + 4, "ConnectParam layout");

#ifdef __cplusplus
struct lws;
class CWebSocketServer;

/* The host's view of the local server. Called from the server's own thread. */
class CWebSocketServerCallBack {
public:
    virtual ~CWebSocketServerCallBack() {}
    virtual void OnNewSession(CWebSocketServer* server, struct lws* connection) = 0;
    virtual void OnCloseSession(CWebSocketServer* server, struct lws* connection) = 0;
    virtual void OnMessage(CWebSocketServer* server, struct lws* connection, const char* data, int length) = 0;
};

/* A small local WebSocket server: forwards sessions and complete messages to the
 * callback. Every method may be called from any thread. */
class OCPP_API CWebSocketServer {
public:
    CWebSocketServer();
    ~CWebSocketServer();
    CWebSocketServer(const CWebSocketServer&) = delete;
    CWebSocketServer& operator=(const CWebSocketServer&) = delete;

    /* Port 0 lets the system choose; GetPort() tells which. Returns 1 or 0. */
    int Init(const char* protocolName, int port, CWebSocketServerCallBack* callback);
    /* PEM texts; TLS is used when at least one is set before Init. */
    void SetSsl(const char* cert, const char* privateKey, const char* ca);
    int SendMessage(struct lws* connection, const char* text);
    int SendMessage(struct lws* connection, const char* data, int length);
    void RemoveConnection(struct lws* connection);
    void Close();
    int GetPort() const;

    struct Impl;

private:
    Impl* m_pImpl;
};
#else
typedef struct CWebSocketServer CWebSocketServer;
typedef struct CWebSocketServerCallBack CWebSocketServerCallBack;
#endif

OCPP_EXTERN_C_BEGIN

/* Starts a local server with subprotocol "ws"; returns it, or a null pointer. */
OCPP_API CWebSocketServer* OcppProtocol_StartWebSocketServer(int port, CWebSocketServerCallBack* callback);
/* Closes and deletes the server and clears the caller's pointer. Returns 1, or 0 for none. */
OCPP_API int OcppProtocol_StopWebSocketServer(CWebSocketServer** server);

OCPP_EXTERN_C_END

#endif
