#pragma once
// The SDK core's sticky TLS-failure flags, raised by the transport when a
// handshake fails for a reason the security events report.
#include <OcppExport.h>

OCPP_EXTERN_C_BEGIN
OCPP_API void OcppProtocol_SetInvalidCsmsCertificate(int value);
OCPP_API void OcppProtocol_SetInvalidTLSVersion(int value);
OCPP_API void OcppProtocol_SetInvalidTLSCiphersuite(int value);
OCPP_EXTERN_C_END
