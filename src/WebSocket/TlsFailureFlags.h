#pragma once
// The SDK core's sticky TLS-failure flags, raised by the transport when a
// handshake fails for a reason the security events report.
#include <OcppProtocol.h>
