#pragma once
// Secure-element storage hooks. This build has no secure storage: the key and
// certificate checks fall back to the certificate files.

int Optee_Check();
int Optee_Read(const char* name, char* buffer, int length);
int Optee_Write(const char* name, const char* data, int length);
int Optee_Delete(const char* name);
int Optee_IsTlsPrivateKeyExist();
int Optee_IsTlsTlsCertExist();
