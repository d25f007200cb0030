// A power cut while a store is being rewritten: whatever moment it strikes, the
// next start finds the old content or the new one, never the defaults.
#include <gtest/gtest.h>

#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <random>
#include <string>
#include <thread>

#include "TestSupport.h"

extern char** environ;

using namespace ocpptest;

namespace {

const char* const kStores[] = {"variablecache.json", "VariableCharacteristicscache.json", "csmscfg.json",
                               "reservation.json", "transactioncache.bin"};

// Runs the writer; with `killAfterMs` >= 0 it is killed that long after it said "ready".
std::string RunWriter(const std::string& dir, const char* store, const char* mode, int killAfterMs) {
    int out[2];
    if (pipe(out) != 0) return "pipe failed";
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, out[1], 1);
    posix_spawn_file_actions_addclose(&actions, out[0]);
    const char* argv[] = {OCPP_STORE_WRITER, dir.c_str(), store, mode, nullptr};
    pid_t pid = 0;
    const int spawned = posix_spawn(&pid, OCPP_STORE_WRITER, &actions, nullptr, const_cast<char**>(argv), environ);
    posix_spawn_file_actions_destroy(&actions);
    close(out[1]);
    if (spawned != 0) {
        close(out[0]);
        return "spawn failed";
    }
    std::string text;
    char buf[64];
    ssize_t n;
    while ((n = read(out[0], buf, sizeof buf)) > 0) {
        text.append(buf, static_cast<size_t>(n));
        if (killAfterMs >= 0 && text.find("ready\n") != std::string::npos) {
            std::this_thread::sleep_for(std::chrono::microseconds(killAfterMs * 1000 + static_cast<int>(pid % 997)));
            kill(pid, SIGKILL);
            break;
        }
    }
    close(out[0]);
    int status = 0;
    waitpid(pid, &status, 0);
    return text;
}

}  // namespace

TEST(PowerCut, StoreRewrittenWhenThePowerFailsComesBackOldOrNewNeverAsDefaults) {
    std::mt19937 random(20261123);
    for (const char* store : kStores) {
        TempDir dir;
        const auto until = std::chrono::steady_clock::now() + std::chrono::seconds(5);
        int cuts = 0;
        int seen[3] = {0, 0, 0};
        // A few cuts even where a start takes a second (sanitizers, emulation), more where it is quick.
        while (cuts < 3 || std::chrono::steady_clock::now() < until) {
            const std::string wrote = RunWriter(dir.path(), store, "write", static_cast<int>(random() % 40));
            ASSERT_NE(wrote.find("ready"), std::string::npos) << store << ": the writer never got going";
            const std::string loaded = RunWriter(dir.path(), store, "read", -1);
            const int version = atoi(loaded.c_str());
            ASSERT_TRUE(version == 1 || version == 2)
                << store << " fell back to its defaults after a power cut (cut " << cuts + 1 << ")";
            ++seen[version];
            ++cuts;
        }
        printf("%s: %d cuts, old content %d, new content %d\n", store, cuts, seen[1], seen[2]);
    }
}
