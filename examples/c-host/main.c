/* Smallest useful host: register, name the cache folder, report, release. */
#include <stdio.h>
#include <string.h>

#include <OcppProtocol.h>

static void OnConnected(void) { printf("host: connected to the CSMS\n"); }

static void OnDisconnected(void) { printf("host: link to the CSMS lost\n"); }

static void OnMessage(const char* record, uint32_t length) {
    ServerRecvBase base;
    if (length < sizeof base) return;
    memcpy(&base, record, sizeof base);
    if (base.type == SERVERRECVTYPE_SDKSTATUSCHANGE && length >= sizeof(SdkStatusChange)) {
        SdkStatusChange change;
        memcpy(&change, record, sizeof change);
        printf("host: SDK status %d (option %d)\n", (int)change.status, (int)change.statusChangeOption);
    } else {
        printf("host: record type %d, %u bytes\n", (int)base.type, (unsigned)length);
    }
}

int main(int argc, char** argv) {
    static OcppProtocolCallBack callbacks = {OnConnected, OnDisconnected, OnMessage};
    const char* cacheDir = argc > 1 ? argv[1] : "/tmp";
    char version[255];

    OcppProtocol_Init(0, &callbacks);
    if (OcppProtocol_SetCacheDir(cacheDir) != 1) {
        fprintf(stderr, "cache folder %s is not writable\n", cacheDir);
        return 1;
    }
    if (OcppProtocol_Version(version) > 0) printf("%s", version);
    printf("SDK status: %d\n", (int)OcppProtocol_GetStatus());
    OcppProtocol_Release();
    return 0;
}
