// Connection set-up shared by the client and the probe: URL reading, the
// libwebsockets context with its TLS material, Basic authentication and the
// checks made on the CSMS's certificate.
#include <libwebsockets.h>
#include <openssl/ssl.h>
#include <openssl/x509.h>
#include <openssl/x509_vfy.h>

#include <cstring>
#include <mutex>

#include "Util/CriticalSectionManager.h"
#include "Util/Tools.h"
#include "WebSocket/TlsFailureFlags.h"
#include "WebSocket/WebSocketClient.h"

namespace {
// SSL_OP_NO_SSLv3 | SSL_OP_NO_TLSv1 | SSL_OP_NO_TLSv1_1: TLS 1.2 is the lowest offered.
const long kTlsOptions = 0x16000000L;

pthread_mutex_t g_settingsLock = PTHREAD_MUTEX_INITIALIZER;
std::string g_strWildcardRefusedDomain;

void LibraryLogLine(int level, const char* line) {
    std::string text(line != nullptr ? line : "");
    while (!text.empty() && (text.back() == '\n' || text.back() == '\r')) text.pop_back();
    if (level & LLL_ERR) {
        LOG_ERROR("lws: %s", text.c_str());
    } else {
        LOG_INFO("lws: %s", text.c_str());
    }
}
}  // namespace

int CWebSocketClient::GetUrlInfo(const char* url, WebSocketUrlInfo& info) {
    memset(&info, 0, sizeof(info));
    if (url == nullptr) return 0;
    WebSocketUrlInfo t;
    memset(&t, 0, sizeof(t));
    if (sscanf(url, "%255[^:/]://%255[^:]:%d/%255s", t.szProtocol, t.szHost, &t.iPort, t.szPath) == 4) {
        info = t;
        return 1;
    }
    memset(&t, 0, sizeof(t));
    if (sscanf(url, "%255[^:/]://%255[^/]/%255s", t.szProtocol, t.szHost, t.szPath) == 3) {
        t.iPort = 80;
        info = t;
        return 1;
    }
    memset(&t, 0, sizeof(t));
    if (sscanf(url, "%255[^:/]://%255[^:]:%d", t.szProtocol, t.szHost, &t.iPort) == 3) {
        t.szPath[0] = '\0';
        info = t;
        return 1;
    }
    memset(&t, 0, sizeof(t));
    if (sscanf(url, "%255[^:/]://%255s", t.szProtocol, t.szHost) == 2) {
        t.iPort = 80;
        t.szPath[0] = '\0';
        info = t;
        return 1;
    }
    return 0;
}

void CWebSocketClient::RouteLibraryLog() {
    static std::once_flag once;
    std::call_once(once, [] { lws_set_log_level(LLL_ERR | LLL_WARN, LibraryLogLine); });
}

lws_context* CWebSocketClient::CreateClientContext(const lws_protocols* protocols, bool tls, const std::string& cert,
                                                   const std::string& privateKey, const std::string& ca,
                                                   void* user) {
    RouteLibraryLog();
    struct lws_context_creation_info info;
    memset(&info, 0, sizeof(info));
    info.port = CONTEXT_PORT_NO_LISTEN;
    info.protocols = protocols;
    info.gid = -1;
    info.uid = -1;
    info.user = user;
    if (tls) {
        info.options |= LWS_SERVER_OPTION_DO_SSL_GLOBAL_INIT;
        if (!cert.empty()) {
            info.client_ssl_cert_mem = cert.c_str();
            info.client_ssl_cert_mem_len = static_cast<unsigned int>(cert.size());
        }
        if (!privateKey.empty()) {
            info.client_ssl_key_mem = privateKey.c_str();
            info.client_ssl_key_mem_len = static_cast<unsigned int>(privateKey.size());
        }
        if (!ca.empty()) {
            info.client_ssl_ca_mem = ca.c_str();
            info.client_ssl_ca_mem_len = static_cast<unsigned int>(ca.size());
        }
        info.ssl_options_set = kTlsOptions;
        info.ssl_client_options_set = kTlsOptions;
    }
    return lws_create_context(&info);
}

lws* CWebSocketClient::ConnectClient(lws_context* context, const WebSocketUrlInfo& url, bool tls) {
    // The request line needs the path with its leading slash.
    std::string path = std::string("/") + url.szPath;
    struct lws_client_connect_info ci;
    memset(&ci, 0, sizeof(ci));
    ci.context = context;
    ci.address = url.szHost;
    ci.port = url.iPort;
    ci.path = path.c_str();
    ci.host = url.szHost;
    ci.origin = url.szHost;
    ci.protocol = url.szProtocol;
    ci.ssl_connection = tls ? LCCSCF_USE_SSL : 0;
    return lws_client_connect_via_info(&ci);
}

int CWebSocketClient::AppendBasicAuthHeader(lws* wsi, void* in, size_t len, const std::string& name,
                                            const std::string& password) {
    if (name.empty() && password.empty()) return 0;
    // "Basic " plus base64 of "name:password" plus the terminator always fits.
    size_t capacity = 5 * (name.size() + password.size()) + 16;
    std::vector<char> credential(capacity, '\0');
    if (lws_http_basic_auth_gen(name.c_str(), password.c_str(), credential.data(), capacity) != 0) {
        LOG_ERROR("basic auth credential does not fit");
        return -1;
    }
    unsigned char** p = static_cast<unsigned char**>(in);
    unsigned char* end = (*p) + len;
    // By name, so the header keeps its usual capitalisation for strict servers.
    if (lws_add_http_header_by_name(wsi, reinterpret_cast<const unsigned char*>("Authorization:"),
                                    reinterpret_cast<const unsigned char*>(credential.data()),
                                    static_cast<int>(strlen(credential.data())), p, end) != 0) {
        LOG_ERROR("no room for the Authorization header");
        return -1;
    }
    return 0;
}

int CWebSocketClient::ClassifyTlsError(const char* errorText) {
    if (errorText == nullptr) return 0;
    int found = 0;
    if (strstr(errorText, "server's cert didn't look good") != nullptr) {
        found |= TLSFAIL_CSMS_CERTIFICATE;
        OcppProtocol_SetInvalidCsmsCertificate(1);
    }
    if (strstr(errorText, "tlsv1 alert protocol version") != nullptr ||
        strstr(errorText, "tls: error:00000001:lib(0)::reason(1)") != nullptr) {
        found |= TLSFAIL_TLS_VERSION;
        OcppProtocol_SetInvalidTLSVersion(1);
    }
    if (strstr(errorText, "alert insufficient security") != nullptr ||
        strstr(errorText, "alert handshake failure") != nullptr) {
        found |= TLSFAIL_CIPHER_SUITE;
        OcppProtocol_SetInvalidTLSCiphersuite(1);
    }
    return found;
}

void CWebSocketClient::SetWildcardRefusedDomain(const char* label) {
    OCPP_SECTION(&g_settingsLock);
    g_strWildcardRefusedDomain = label != nullptr ? label : "";
}

std::string CWebSocketClient::GetWildcardRefusedDomain() {
    OCPP_SECTION(&g_settingsLock);
    return g_strWildcardRefusedDomain;
}

bool CWebSocketClient::IsRefusedWildcardCommonName(const char* commonName) {
    if (commonName == nullptr || commonName[0] != '*') return false;
    std::string label = GetWildcardRefusedDomain();
    return !label.empty() && strstr(commonName, label.c_str()) != nullptr;
}

int CWebSocketClient::VerifyPeerCertificate(void* x509StoreCtx, int preverifyOk, bool& refused) {
    refused = preverifyOk == 0;
    X509_STORE_CTX* store = static_cast<X509_STORE_CTX*>(x509StoreCtx);
    if (store == nullptr || X509_STORE_CTX_get_error_depth(store) != 0) return 0;
    X509* cert = X509_STORE_CTX_get_current_cert(store);
    if (cert == nullptr) return 0;
    X509_NAME* subject = X509_get_subject_name(cert);
    char subjectText[512] = {0};
    char commonName[256] = {0};
    X509_NAME_oneline(subject, subjectText, sizeof(subjectText));
    X509_NAME_get_text_by_NID(subject, NID_commonName, commonName, sizeof(commonName));
    LOG_INFO("get peer certificate subject=%s\n", subjectText);
    LOG_INFO("peer certificate CommonName=%s\n", commonName);
    if (IsRefusedWildcardCommonName(commonName)) {
        LOG_ERROR("verify peer certificate CommonName fail=%s\n", commonName);
        X509_STORE_CTX_set_error(store, X509_V_ERR_APPLICATION_VERIFICATION);
        refused = true;
        return 1;
    }
    return 0;
}

void CWebSocketClient::LogUrlInfo(const char* url, const WebSocketUrlInfo& info) {
    LOG_INFO("pszUrl:%s\n", url != nullptr ? url : "");
    LOG_INFO("szProtocol:%s\n", info.szProtocol);
    LOG_INFO("szHost:%s\n", info.szHost);
    LOG_INFO("iPort:%d\n", info.iPort);
    LOG_INFO("szPath:%s\n", info.szPath);
}

void CWebSocketClient::LogTlsSession(lws* wsi) {
    SSL* ssl = lws_get_ssl(wsi);
    if (ssl == nullptr) return;
    LOG_INFO("TLS version: %d\n", SSL_version(ssl));
    const SSL_CIPHER* cipher = SSL_get_current_cipher(ssl);
    const char* name = cipher != nullptr ? SSL_CIPHER_standard_name(cipher) : nullptr;
    LOG_INFO("Cipher Suite: %s\n", name != nullptr ? name : "");
}

