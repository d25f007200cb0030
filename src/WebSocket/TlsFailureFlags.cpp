// Stand-in for the SDK core's flag setters until the core provides them.
#include "WebSocket/TlsFailureFlags.h"

#include <atomic>

namespace {
std::atomic<int> g_iInvalidCsmsCertificate{0};
std::atomic<int> g_iInvalidTLSVersion{0};
std::atomic<int> g_iInvalidTLSCiphersuite{0};
}  // namespace

void OcppProtocol_SetInvalidCsmsCertificate(int value) { g_iInvalidCsmsCertificate = value; }
void OcppProtocol_SetInvalidTLSVersion(int value) { g_iInvalidTLSVersion = value; }
void OcppProtocol_SetInvalidTLSCiphersuite(int value) { g_iInvalidTLSCiphersuite = value; }
