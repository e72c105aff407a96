#include "SimProcess.h"

#include <android/binder_auto_utils.h>
#include <android/binder_manager.h>
#include <fcntl.h>
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
constexpr auto kStopTimeout = std::chrono::seconds(5);
constexpr auto kPollInterval = std::chrono::milliseconds(10);

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
    mDir = dir;
    setenv("BINDER_HOST_DIR", mDir.c_str(), 1);
    if (output == Output::kLogFile) mLogFile = mDir + "/dolm-sim.log";

    const std::string program = simProgram();
    std::vector<std::string> args = {program};
    args.insert(args.end(), extraArgs.begin(), extraArgs.end());
    std::vector<char*> argv;
    argv.reserve(args.size() + 1);
    for (std::string& arg : args) argv.push_back(arg.data());
    argv.push_back(nullptr);
    const pid_t parent = getpid();

    mPid = fork();
    if (mPid < 0) {
        error = "cannot start dolm-sim";
        return false;
    }
    if (mPid == 0) {
        // The simulator must not outlive this run, however zelctl ends.
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

    const auto deadline = std::chrono::steady_clock::now() + kStartTimeout;
    while (std::chrono::steady_clock::now() < deadline) {
        int status = 0;
        if (waitpid(mPid, &status, WNOHANG) == mPid) {
            mPid = -1;
            error = "dolm-sim (" + program + ") exited at start" +
                    (WIFEXITED(status) && WEXITSTATUS(status) == 127 ? ": not found" : "");
            return false;
        }
        ::ndk::SpAIBinder binder(AServiceManager_checkService(kInstance));
        if (binder.get() != nullptr) return true;
        std::this_thread::sleep_for(kPollInterval);
    }
    error = "dolm-sim did not come up within " + std::to_string(kStartTimeout.count()) + "s";
    return false;
}

void SimProcess::stop() {
    if (mPid > 0) {
        kill(mPid, SIGTERM);
        const auto deadline = std::chrono::steady_clock::now() + kStopTimeout;
        int status = 0;
        while (waitpid(mPid, &status, WNOHANG) == 0) {
            if (std::chrono::steady_clock::now() >= deadline) {
                kill(mPid, SIGKILL);
                waitpid(mPid, &status, 0);
                break;
            }
            std::this_thread::sleep_for(kPollInterval);
        }
        mPid = -1;
    }
    if (!mDir.empty()) {
        std::error_code ignored;
        std::filesystem::remove_all(mDir, ignored);
        mDir.clear();
    }
}

SimProcess::~SimProcess() {
    stop();
}

}  // namespace zelctl
