#include "ServiceProcess.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <vector>

extern char** environ;

namespace zeltest {

namespace {

// How long a starting instance may take to register (sanitizer builds and
// emulators start slowly).
constexpr int kStartTimeoutMs = 30000;

}  // namespace

int32_t instanceOf(int64_t value) {
    if (value <= 0 || value % kInstanceRange == 0) return -1;
    const int64_t index = value / kInstanceRange;
    if (index < 1 || index >= kMaxInstances) return -1;
    return static_cast<int32_t>(index);
}

ServiceProcess::~ServiceProcess() {
    kill();
}

bool ServiceProcess::start(int32_t index, const ServiceOptions& options) {
    kill();
    int ready[2];
    if (pipe2(ready, O_CLOEXEC) != 0) {
        fprintf(stderr, "service process: pipe: %s\n", strerror(errno));
        return false;
    }
    // The child reports readiness on its standard output.
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, ready[1], STDOUT_FILENO);
    const std::string base = std::to_string(static_cast<int64_t>(index) * kInstanceRange);
    const std::string failEvery = std::to_string(options.failEvery);
    const bool afterCall = options.delivery == ServiceOptions::Delivery::kAfterCall;
    std::vector<char*> argv{mProgram.data(),
                            const_cast<char*>("--base"),
                            const_cast<char*>(base.c_str()),
                            const_cast<char*>("--fail-every"),
                            const_cast<char*>(failEvery.c_str()),
                            const_cast<char*>("--deliver"),
                            const_cast<char*>(afterCall ? "after" : "inside"),
                            const_cast<char*>("--refuse-release"),
                            const_cast<char*>(options.refuseRelease ? "1" : "0"),
                            const_cast<char*>("--notify-on-request"),
                            const_cast<char*>(options.notifyOnRequest ? "1" : "0"),
                            nullptr};
    pid_t pid = -1;
    const int spawned = posix_spawn(&pid, mProgram.c_str(), &actions, nullptr, argv.data(), environ);
    posix_spawn_file_actions_destroy(&actions);
    close(ready[1]);
    if (spawned != 0) {
        close(ready[0]);
        fprintf(stderr, "service process: cannot start %s: %s\n", mProgram.c_str(),
                strerror(spawned));
        return false;
    }
    mPid = pid;
    mRunning = index;
    pollfd waiting{ready[0], POLLIN, 0};
    char byte = 0;
    int polled = 0;
    do {
        polled = poll(&waiting, 1, kStartTimeoutMs);
    } while (polled < 0 && errno == EINTR);
    const bool up = polled == 1 && read(ready[0], &byte, 1) == 1 && byte == 'R';
    close(ready[0]);
    if (!up) {
        fprintf(stderr, "service process: instance %d did not come up\n", index);
        kill();
    }
    return up;
}

void ServiceProcess::kill() {
    if (mPid <= 0) return;
    ::kill(mPid, SIGKILL);
    while (waitpid(mPid, nullptr, 0) < 0 && errno == EINTR) {
    }
    mPid = -1;
    mRunning = 0;
}

}  // namespace zeltest
