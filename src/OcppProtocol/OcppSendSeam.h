#pragma once
// Where outgoing frames leave the library: the connection manager's current
// client by default (0 while there is none); tests put a recording fake here.
#include <OcppErrorCode.h>

#include <cstdint>
#include <string>

class COcppSendSeam {
public:
    // One-way send of a whole frame; 1 when it was handed to the link.
    typedef int (*SendFn)(const char* frame, int len);
    // Sends a CALL whose id is `id` and waits for the frame answering it.
    // `response` holds `capacity` bytes; the answer is copied NUL-terminated
    // (cut to capacity - 1) and its length stored in *responseLen.
    typedef int (*RequestFn)(const char* id, const char* frame, int len, char* response, int capacity,
                             int* responseLen);

    // Whether the link to the CSMS is up: a request that failed while it is
    // up went unanswered, one that failed while it is down never left.
    typedef bool (*LinkUpFn)();

    static void Set(SendFn send, RequestFn request);
    static void SetLinkUp(LinkUpFn linkUp);  // null: the connection manager's word
    static void Reset();  // back to the connection manager

    static bool LinkUp();

    static int Send(const char* frame, int len);
    static int Request(const char* id, const char* frame, int len, char* response, int capacity, int* responseLen);
};

// Frames of this size or more are never sent.
const int kOcppMaxFrameLen = 65525;
// Buffer a caller supplies for an answer.
const int kOcppResponseBufferLen = 65535;

// One-way send: every CALLRESULT, CALLERROR and request whose answer is not needed.
int OcppProtocol_SendMessage(const char* frame, int len);
// Request/response send: 1 when the frame answering this CALL's id was copied
// into `response` (kOcppResponseBufferLen bytes, zeroed by the caller).
int OcppProtocol_SendMessage(const char* frame, int len, char* response, int* responseLen);
