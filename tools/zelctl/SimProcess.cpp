#include "SimProcess.h"

#include <android/binder_auto_utils.h>
#include <android/binder_manager.h>
#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <thread>

namespace zelctl {
namespace {

constexpr const char* kInstance = "vendor.tarvo.hardware.dolm.IDolm/default";
// Generous for sanitizer builds on a busy machine; a healthy start takes milliseconds.
constexpr auto kStartTimeout = std::chrono::seconds(20);
constexpr int kStopTimeoutMs = 5000;
constexpr int kWatchIntervalMs = 50;
constexpr auto kPollInterval = std::chrono::milliseconds(10);

// Runs in the watcher process: keeps the simulator until zelctl is gone
// (its end of `lifeline` closes), reports an early end of the simulator
// through `died`, then stops it and removes the private directory.
[[noreturn]] void watch(pid_t sim, int lifeline, int died, const std::string& dir) {
    signal(SIGINT, SIG_IGN);
    signal(SIGTERM, SIG_IGN);
    const int null = open("/dev/null", O_RDWR);
    if (null >= 0) {
        dup2(null, STDIN_FILENO);
        dup2(null, STDOUT_FILENO);
        dup2(null, STDERR_FILENO);
    }
    bool running = true;
    for (;;) {
        pollfd fd = {lifeline, POLLIN, 0};
        const int ready = poll(&fd, 1, kWatchIntervalMs);
        int status = 0;
        if (running && waitpid(sim, &status, WNOHANG) == sim) {
            running = false;
            const char code = static_cast<char>(WIFEXITED(status) ? WEXITSTATUS(status) : 128);
            (void)!write(died, &code, 1);
        }
        char byte = 0;
        if (ready > 0 && read(lifeline, &byte, 1) <= 0) break;
    }
    if (running) {
        kill(sim, SIGTERM);
        int waited = 0;
        while (waitpid(sim, nullptr, WNOHANG) == 0) {
            if (waited >= kStopTimeoutMs) {
                kill(sim, SIGKILL);
                waitpid(sim, nullptr, 0);
                break;
            }
            poll(nullptr, 0, kWatchIntervalMs);
            waited += kWatchIntervalMs;
        }
    }
    std::error_code ignored;
    std::filesystem::remove_all(dir, ignored);
    _exit(0);
}

}  // namespace

std::string simProgram() {
    if (const char* configured = getenv("DOLM_SIM"); configured != nullptr && *configured != '\0') {
        return configured;
    }
    std::error_code error;
    const std::filesystem::path self = std::filesystem::read_symlink("/proc/self/exe", error);
    if (!error) {
        const std::filesystem::path beside = self.parent_path() / "dolm-sim";
        if (access(beside.c_str(), X_OK) == 0) return beside.string();
    }
    return "dolm-sim";
}

bool SimProcess::start(const std::vector<std::string>& extraArgs, Output output,
                       std::string& error) {
    std::string dir = (std::filesystem::temp_directory_path() / "zelctl-sim-XXXXXX").string();
    if (mkdtemp(dir.data()) == nullptr) {
        error = "cannot make a private directory for the simulator";
        return false;
    }
    setenv("BINDER_HOST_DIR", dir.c_str(), 1);
    if (output == Output::kLogFile) mLogFile = dir + "/dolm-sim.log";

    const std::string program = simProgram();
    std::vector<std::string> args = {program};
    args.insert(args.end(), extraArgs.begin(), extraArgs.end());
    std::vector<char*> argv;
    argv.reserve(args.size() + 1);
    for (std::string& arg : args) argv.push_back(arg.data());
    argv.push_back(nullptr);

    // zelctl keeps the write end of `lifeline` until it exits; the watcher
    // keeps the write end of `died`.
    int lifeline[2];
    int died[2];
    if (pipe2(lifeline, O_CLOEXEC) != 0 || pipe2(died, O_CLOEXEC | O_NONBLOCK) != 0) {
        error = "cannot start dolm-sim";
        return false;
    }
    const pid_t watcher = fork();
    if (watcher < 0) {
        error = "cannot start dolm-sim";
        return false;
    }
    if (watcher == 0) {
        close(lifeline[1]);
        close(died[0]);
        const pid_t parent = getpid();
        const pid_t sim = fork();
        if (sim == 0) {
            // Ends with the watcher, however that ends.
            prctl(PR_SET_PDEATHSIG, SIGTERM);
            if (getppid() != parent) _exit(127);
            const int out = mLogFile.empty()
                                    ? dup(STDERR_FILENO)
                                    : open(mLogFile.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
            if (out >= 0) dup2(out, STDOUT_FILENO);
            const int null = open("/dev/null", O_RDONLY);
            if (null >= 0) dup2(null, STDIN_FILENO);
            execvp(argv[0], argv.data());
            _exit(127);
        }
        if (sim < 0) _exit(127);
        watch(sim, lifeline[0], died[1], dir);
    }
    close(lifeline[0]);
    close(died[1]);

    const auto deadline = std::chrono::steady_clock::now() + kStartTimeout;
    while (std::chrono::steady_clock::now() < deadline) {
        char code = 0;
        if (read(died[0], &code, 1) == 1) {
            error = "dolm-sim (" + program + ") exited at start" +
                    (code == 127 ? ": not found" : "");
            return false;
        }
        ::ndk::SpAIBinder binder(AServiceManager_checkService(kInstance));
        if (binder.get() != nullptr) return true;
        std::this_thread::sleep_for(kPollInterval);
    }
    error = "dolm-sim did not come up within " + std::to_string(kStartTimeout.count()) + "s";
    return false;
}

}  // namespace zelctl
