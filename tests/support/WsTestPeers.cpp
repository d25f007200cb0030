#include "WsTestPeers.h"

#include "OcppProtocol/InboundFrame.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <openssl/evp.h>
#include <openssl/sha.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cctype>
#include <chrono>
#include <cstdlib>

#include "TestSupport.h"

namespace ocpptest {

namespace {
std::string Lower(std::string text) {
    for (char& c : text) c = static_cast<char>(tolower(static_cast<unsigned char>(c)));
    return text;
}

std::string HeaderValue(const std::string& request, const std::string& name) {
    const std::string key = Lower("\r\n" + name + ":");
    const size_t at = Lower(request).find(key);
    if (at == std::string::npos) return "";
    const size_t start = request.find_first_not_of(' ', at + key.size());
    return request.substr(start, request.find("\r\n", start) - start);
}

std::string AcceptKey(const std::string& key) {
    std::string text = key + "258EAFA5-E914-47DA-95CA-C5AB0DC85B11";
    unsigned char digest[SHA_DIGEST_LENGTH];
    SHA1(reinterpret_cast<const unsigned char*>(text.data()), text.size(), digest);
    unsigned char out[64] = {0};
    EVP_EncodeBlock(out, digest, SHA_DIGEST_LENGTH);
    return reinterpret_cast<char*>(out);
}

// A listening socket on 127.0.0.1 and an ephemeral port; -1 on failure.
int ListenOnLoopback(int& port) {
    int fd = socket(AF_INET, SOCK_STREAM, 0);
    struct sockaddr_in addr {};
    addr.sin_family = AF_INET;
    addr.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t len = sizeof(addr);
    if (bind(fd, reinterpret_cast<sockaddr*>(&addr), sizeof(addr)) != 0 || listen(fd, 4) != 0 ||
        getsockname(fd, reinterpret_cast<sockaddr*>(&addr), &len) != 0) {
        close(fd);
        return -1;
    }
    port = ntohs(addr.sin_port);
    return fd;
}
}  // namespace

RawWsServer::RawWsServer(bool answerHandshake) : m_answer(answerHandshake) {
    m_listenFd = ListenOnLoopback(m_port);
    if (m_listenFd < 0) {
        ADD_FAILURE() << "raw server cannot listen";
        return;
    }
    m_thread = std::thread([this] { Run(); });
}

RawWsServer::~RawWsServer() {
    m_stop = true;
    if (m_thread.joinable()) m_thread.join();
    if (m_listenFd >= 0) close(m_listenFd);
}

void RawWsServer::Run() {
    Serve();
    // Only this thread closes the socket, so no other thread can act on a reused descriptor.
    std::lock_guard<std::mutex> lock(m_fdMutex);
    int fd = m_connFd.exchange(-1);
    if (fd >= 0) close(fd);
}

void RawWsServer::Serve() {
    int fd = -1;
    while (!m_stop && fd < 0) {
        struct pollfd p = {m_listenFd, POLLIN, 0};
        if (poll(&p, 1, 100) > 0) fd = accept(m_listenFd, nullptr, nullptr);
    }
    if (fd < 0) return;
    {
        std::lock_guard<std::mutex> lock(m_fdMutex);
        m_connFd = fd;
    }
    std::string request;
    char buf[4096];
    while (!m_stop && request.find("\r\n\r\n") == std::string::npos) {
        struct pollfd p = {fd, POLLIN, 0};
        if (poll(&p, 1, 100) <= 0) continue;
        ssize_t r = recv(fd, buf, sizeof(buf), 0);
        if (r <= 0) return;
        request.append(buf, static_cast<size_t>(r));
    }
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        m_request = request;
    }
    if (!m_answer) {
        while (!m_stop) std::this_thread::sleep_for(std::chrono::milliseconds(20));
        return;
    }
    std::string reply = "HTTP/1.1 101 Switching Protocols\r\nUpgrade: websocket\r\nConnection: Upgrade\r\n"
                        "Sec-WebSocket-Accept: " + AcceptKey(HeaderValue(request, "Sec-WebSocket-Key")) + "\r\n";
    std::string protocol = HeaderValue(request, "Sec-WebSocket-Protocol");
    if (!protocol.empty()) reply += "Sec-WebSocket-Protocol: " + protocol + "\r\n";
    reply += "\r\n";
    send(fd, reply.data(), reply.size(), MSG_NOSIGNAL);
    // What the client sends after the handshake is kept as it arrives; nothing is answered (no pongs).
    while (!m_stop) {
        struct pollfd p = {fd, POLLIN, 0};
        if (poll(&p, 1, 100) <= 0) continue;
        ssize_t r = recv(fd, buf, sizeof(buf), 0);
        if (r <= 0) break;
        std::lock_guard<std::mutex> lock(m_mutex);
        m_received.append(buf, static_cast<size_t>(r));
    }
}

std::string RawWsServer::WaitRequest(int timeoutMs) {
    std::string request;
    WaitFor(
        [&] {
            std::lock_guard<std::mutex> lock(m_mutex);
            request = m_request;
            return !request.empty();
        },
        timeoutMs);
    return request;
}

bool RawWsServer::SendFrame(unsigned char finAndOpcode, const std::string& payload) {
    std::lock_guard<std::mutex> lock(m_fdMutex);
    int fd = m_connFd;
    if (fd < 0) return false;
    std::string frame;
    frame.push_back(static_cast<char>(finAndOpcode));
    if (payload.size() < 126) {
        frame.push_back(static_cast<char>(payload.size()));
    } else {
        frame.push_back(126);
        frame.push_back(static_cast<char>((payload.size() >> 8) & 0xff));
        frame.push_back(static_cast<char>(payload.size() & 0xff));
    }
    frame += payload;
    return send(fd, frame.data(), frame.size(), MSG_NOSIGNAL) == static_cast<ssize_t>(frame.size());
}

void RawWsServer::CloseConnection() {
    std::lock_guard<std::mutex> lock(m_fdMutex);
    if (m_connFd >= 0) shutdown(m_connFd, SHUT_RDWR);
}

std::string RawWsServer::Received() {
    std::lock_guard<std::mutex> lock(m_mutex);
    return m_received;
}

RecordingCsms::RecordingCsms(const std::string& protocol, const std::string& cert, const std::string& key,
                             const std::string& ca) {
    if (!cert.empty() || !key.empty() || !ca.empty()) m_server.SetSsl(cert.c_str(), key.c_str(), ca.c_str());
    m_started = m_server.Init(protocol.c_str(), 0, this) == 1;
}

RecordingCsms::~RecordingCsms() { m_server.Close(); }

bool RecordingCsms::Send(const std::string& text) {
    struct lws* session;
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        session = m_session;
    }
    return session != nullptr && m_server.SendMessage(session, text.c_str()) == 1;
}

bool RecordingCsms::WaitSession(int timeoutMs) {
    return WaitFor([this] {
        std::lock_guard<std::mutex> lock(m_mutex);
        return m_session != nullptr;
    }, timeoutMs);
}

std::vector<std::string> RecordingCsms::Messages() {
    std::lock_guard<std::mutex> lock(m_mutex);
    return m_messages;
}

size_t RecordingCsms::CountContaining(const std::string& needle) {
    size_t n = 0;
    for (const std::string& m : Messages()) n += m.find(needle) != std::string::npos ? 1 : 0;
    return n;
}

bool RecordingCsms::WaitMessageContaining(const std::string& needle, int timeoutMs) {
    return WaitFor([&] { return CountContaining(needle) > 0; }, timeoutMs);
}

void RecordingCsms::OnNewSession(CWebSocketServer*, struct lws* connection) {
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        m_session = connection;
    }
    ++sessionsOpened;
}

void RecordingCsms::OnCloseSession(CWebSocketServer*, struct lws* connection) {
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        if (m_session == connection) m_session = nullptr;
    }
    ++sessionsClosed;
}

void RecordingCsms::OnMessage(CWebSocketServer*, struct lws*, const char* data, int length) {
    std::string text(data, static_cast<size_t>(length));
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        m_messages.push_back(text);
    }
    if (onMessage) onMessage(text);
}

void RecordingClientEvents::OnMessage(std::unique_ptr<CInboundFrame> frame) {
    std::lock_guard<std::mutex> lock(m_mutex);
    m_messages.emplace_back(frame->Text(), frame->Length());
}

std::vector<std::string> RecordingClientEvents::Messages() {
    std::lock_guard<std::mutex> lock(m_mutex);
    return m_messages;
}

TestPki MakeTestPki(const std::string& dir, const std::string& serverCommonName) {
    const std::string d = "'" + dir + "'";
    const std::string script =
        "cd " + d + " && "
        "openssl req -x509 -newkey ec -pkeyopt ec_paramgen_curve:prime256v1 -nodes -keyout ca.key -out ca.crt "
        "-days 2 -subj '/CN=Test Root' >/dev/null 2>&1 && "
        "openssl req -newkey ec -pkeyopt ec_paramgen_curve:prime256v1 -nodes -keyout server.key -out server.csr "
        "-subj '/CN=" + serverCommonName + "' >/dev/null 2>&1 && "
        "printf 'subjectAltName=IP:127.0.0.1,DNS:localhost\\nbasicConstraints=CA:FALSE\\n' > ext.cnf && "
        "openssl x509 -req -in server.csr -CA ca.crt -CAkey ca.key -CAcreateserial -out server.crt -days 2 "
        "-extfile ext.cnf >/dev/null 2>&1";
    TestPki pki;
    if (system(script.c_str()) != 0) return pki;
    pki.caCert = ReadText(dir + "/ca.crt");
    pki.serverCert = ReadText(dir + "/server.crt");
    pki.serverKey = ReadText(dir + "/server.key");
    return pki;
}

}  // namespace ocpptest
