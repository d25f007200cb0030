#pragma once
// Internal view of the SDK core: globals and entries other modules call.
#include <OcppProtocol.h>

// Sink of the diagnostic log: the host's callback, or standard output.
void OcppProtocol_WriteLog(int level, const char* function, const char* file, int line, const char* text);
