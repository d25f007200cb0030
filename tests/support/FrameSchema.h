#pragma once
// Every frame the library sends must pass its official schema, as a
// certifying CSMS checks it. The recording link runs this on each frame.
#include <cstddef>
#include <string>

namespace ocpptest {

// Remembers the action of a CSMS CALL so the station's answer to it can be
// checked against that action's response schema. Ignores anything else.
void NoteInboundCall(const char* frame, size_t len);
// Forgets every remembered CALL (ids are reused from test to test).
void ForgetInboundCalls();
// Hands a CSMS frame to the 2.0.1 dispatcher as the notification thread does, noting it first.
void DeliverTo20(const std::string& frame);

// Empty when `frame` is a well-formed CALL, CALLRESULT or CALLERROR whose
// payload passes its schema; otherwise what is wrong. A CALLRESULT whose CALL
// was never seen is checked for shape only.
std::string FrameSchemaProblem(const std::string& frame);

}  // namespace ocpptest
