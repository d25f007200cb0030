#include "WebSocket/Optee.h"

#include <unistd.h>

namespace {
const char* const kClientKeyFile = "/usrfs/conf/ocpp20/cert/client.key";
const char* const kClientCertFile = "/usrfs/conf/ocpp20/cert/client.pem";
const char* const kSecureKeyName = "client.key";
const char* const kSecureCertName = "client.pem";
const int kMaxSecureObject = 5500;
const int kNoSecureStorage = -2;

int SecureObjectOrFileExists(const char* name, const char* file) {
    if (Optee_Check() != 0) {
        char buffer[kMaxSecureObject];
        return Optee_Read(name, buffer, sizeof(buffer)) > 0 ? 1 : 0;
    }
    return access(file, F_OK) == 0 ? 1 : 0;
}
}  // namespace

int Optee_Check() { return 0; }

int Optee_Read(const char*, char*, int) { return kNoSecureStorage; }

int Optee_Write(const char*, const char*, int) { return kNoSecureStorage; }

int Optee_Delete(const char*) { return kNoSecureStorage; }

int Optee_IsTlsPrivateKeyExist() { return SecureObjectOrFileExists(kSecureKeyName, kClientKeyFile); }

int Optee_IsTlsTlsCertExist() { return SecureObjectOrFileExists(kSecureCertName, kClientCertFile); }
