// Station simulator: a charging-station host driven by JSON lines on standard
// input, reporting every record, status change and chosen log line as JSON
// lines on standard output. It answers the CSMS requests the host owns with a
// policy (Accepted unless a command says otherwise).
#include <OcppProtocol.h>
#include <getopt.h>
#include <linux/capability.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cstdio>
#include <fstream>
#include <iostream>
#include <mutex>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "Sim.h"

namespace sim {

Options g_opt;
FILE* g_out = stdout;

namespace {
std::mutex g_outMutex;
}  // namespace

void Emit(const Json::Value& v) {
    Json::StreamWriterBuilder builder;
    builder["indentation"] = "";
    builder["emitUTF8"] = true;
    const std::string line = Json::writeString(builder, v);
    std::lock_guard<std::mutex> lock(g_outMutex);
    std::fwrite(line.data(), 1, line.size(), g_out);
    std::fputc('\n', g_out);
    std::fflush(g_out);
}

Json::Value Event(const char* name) {
    Json::Value v(Json::objectValue);
    v["event"] = name;
    return v;
}

int IndexOf(const std::vector<const char*>& names, const std::string& name, int fallback) {
    for (size_t i = 0; i < names.size(); ++i)
        if (name == names[i]) return static_cast<int>(i);
    return fallback;
}

}  // namespace sim

using namespace sim;

namespace {

// ---- start-up ---------------------------------------------------------------

std::string ReadPem(const std::string& path) {
    if (path.empty()) return "";
    std::ifstream in(path);
    std::ostringstream s;
    s << in.rdbuf();
    return s.str();
}

// The library sets the system clock from the CSMS's answers, as a station should. A simulator
// run with privileges on a development machine must not, so it gives up that right first.
void KeepMachineClock() {
    __user_cap_header_struct header{_LINUX_CAPABILITY_VERSION_3, 0};
    __user_cap_data_struct data[_LINUX_CAPABILITY_U32S_3] = {};
    if (syscall(SYS_capget, &header, data) != 0) return;
    const unsigned index = CAP_TO_INDEX(CAP_SYS_TIME), mask = CAP_TO_MASK(CAP_SYS_TIME);
    data[index].effective &= ~mask;
    data[index].permitted &= ~mask;
    data[index].inheritable &= ~mask;
    if (syscall(SYS_capset, &header, data) != 0) std::perror("capset");
}

void Usage(const char* self) {
    std::fprintf(stderr,
                 "usage: %s --url ws://host:port/path --cache DIR [--id ID] [--protocol OCPP20|OCPP21|OCPP16]\n"
                 "  [--profile 0-3] [--user NAME] [--password PWD] [--ca FILE] [--cert FILE] [--key FILE]\n"
                 "  [--evses N] [--connectors N] [--message-timeout S] [--backoff S] [--log-level 0-3] [--set-clock]\n",
                 self);
}

bool ParseOptions(int argc, char** argv) {
    static const option longOptions[] = {
        {"url", required_argument, nullptr, 'u'},        {"id", required_argument, nullptr, 'i'},
        {"protocol", required_argument, nullptr, 'p'},   {"profile", required_argument, nullptr, 's'},
        {"user", required_argument, nullptr, 'n'},       {"password", required_argument, nullptr, 'w'},
        {"ca", required_argument, nullptr, 'a'},         {"cert", required_argument, nullptr, 'c'},
        {"key", required_argument, nullptr, 'k'},        {"cache", required_argument, nullptr, 'd'},
        {"evses", required_argument, nullptr, 'e'},      {"connectors", required_argument, nullptr, 'o'},
        {"message-timeout", required_argument, nullptr, 't'}, {"backoff", required_argument, nullptr, 'b'},
        {"log-level", required_argument, nullptr, 'l'},  {"set-clock", no_argument, nullptr, 'C'},
        {nullptr, 0, nullptr, 0}};
    int c;
    while ((c = getopt_long(argc, argv, "", longOptions, nullptr)) != -1) {
        const std::string arg = optarg != nullptr ? optarg : "";
        switch (c) {
            case 'u': g_opt.url = arg; break;
            case 'i': g_opt.identity = arg; break;
            case 'p': g_opt.protocol = arg; break;
            case 's': g_opt.profile = std::atoi(arg.c_str()); break;
            case 'n': g_opt.user = arg; break;
            case 'w': g_opt.password = arg; break;
            case 'a': g_opt.caFile = arg; break;
            case 'c': g_opt.certFile = arg; break;
            case 'k': g_opt.keyFile = arg; break;
            case 'd': g_opt.cacheDir = arg; break;
            case 'e': g_opt.evses = std::atoi(arg.c_str()); break;
            case 'o': g_opt.connectors = std::atoi(arg.c_str()); break;
            case 't': g_opt.messageTimeout = std::atoi(arg.c_str()); break;
            case 'b': g_opt.backOff = std::atoi(arg.c_str()); break;
            case 'l': g_opt.logLevel = std::atoi(arg.c_str()); break;
            case 'C': g_opt.setClock = true; break;
            default: return false;
        }
    }
    return !g_opt.url.empty() && !g_opt.cacheDir.empty() && g_opt.profile >= 0 && g_opt.profile <= 3;
}

}  // namespace

int main(int argc, char** argv) {
    // Standard output carries JSON lines only: whatever the library prints itself goes to standard error.
    const int jsonFd = dup(STDOUT_FILENO);
    if (jsonFd < 0 || (g_out = fdopen(jsonFd, "w")) == nullptr || dup2(STDERR_FILENO, STDOUT_FILENO) < 0) {
        std::perror("stdout");
        return 1;
    }
    if (!ParseOptions(argc, argv)) {
        Usage(argv[0]);
        return 2;
    }
    if (!g_opt.setClock) KeepMachineClock();
    OCPPPROTOCOL protocol = OCPPPROTOCOL_201;
    if (OcppProtocol_GetOcppProtocolType(g_opt.protocol.c_str(), &protocol) != 1) {
        std::fprintf(stderr, "unknown protocol %s\n", g_opt.protocol.c_str());
        return 2;
    }
    static OcppProtocolCallBack callbacks = {OnConnected, OnDisconnected, OnRecord};
    OcppProtocol_SetLog(OnLog);
    OcppProtocol_Init(0, &callbacks);
    if (OcppProtocol_SetCacheDir(g_opt.cacheDir.c_str()) != 1) {
        std::fprintf(stderr, "cache folder %s is not writable\n", g_opt.cacheDir.c_str());
        return 1;
    }
    std::thread answers(AnswerLoop);
    StartSessions();

    OcppProtocol_SetConnectParam(1, g_opt.backOff, 0, 0, 0);
    if (!g_opt.password.empty())
        OcppProtocol_SetNamePwd(g_opt.user.empty() ? nullptr : g_opt.user.c_str(), g_opt.password.c_str());
    const std::string cert = ReadPem(g_opt.certFile), key = ReadPem(g_opt.keyFile), ca = ReadPem(g_opt.caFile);
    if (!cert.empty() || !key.empty() || !ca.empty()) OcppProtocol_SetSsl(cert.c_str(), key.c_str(), ca.c_str());
    OcppProtocol_SetConnection(protocol, g_opt.url.c_str(), static_cast<CONNTYPE>(g_opt.profile), g_opt.messageTimeout);
    DeclareIdentity();
    OcppProtocol_ActiveConnection(1);

    Json::Value ready = Event("ready");
    ready["identity"] = g_opt.identity;
    ready["url"] = g_opt.url;
    ready["profile"] = g_opt.profile;
    Emit(ready);

    std::string line;
    while (std::getline(std::cin, line))
        if (!HandleLine(line)) break;

    StopSessions();
    StopAnswers();
    answers.join();
    OcppProtocol_Release();
    Emit(Event("exit"));
    return 0;
}
