#include "TestProcess.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <filesystem>

extern char** environ;

namespace bindertest {

ScopedRegistryDir::ScopedRegistryDir() {
    std::string pattern = (std::filesystem::temp_directory_path() / "binder-test-XXXXXX").string();
    if (mkdtemp(pattern.data()) != nullptr) {
        mPath = pattern;
        setenv("BINDER_HOST_DIR", mPath.c_str(), 1);
    }
}

ScopedRegistryDir::~ScopedRegistryDir() {
    std::error_code ignored;
    std::filesystem::remove_all(mPath, ignored);
}

ChildServer::ChildServer(const std::string& instance) {
    int pipeFds[2];
    if (pipe2(pipeFds, O_CLOEXEC) != 0) {
        return;
    }
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, pipeFds[1], STDOUT_FILENO);
    const char* argv[] = {BINDER_TEST_SERVER, instance.c_str(), nullptr};
    int result = posix_spawn(&mPid, BINDER_TEST_SERVER, &actions, nullptr,
                             const_cast<char* const*>(argv), environ);
    posix_spawn_file_actions_destroy(&actions);
    close(pipeFds[1]);
    mOutput = pipeFds[0];
    if (result != 0) {
        mPid = -1;
        return;
    }
    mReady = nextLine() == "ready";
}

ChildServer::~ChildServer() {
    kill();
    if (mOutput >= 0) {
        close(mOutput);
    }
}

std::string ChildServer::nextLine() {
    auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(10);
    for (;;) {
        size_t newline = mPending.find('\n');
        if (newline != std::string::npos) {
            std::string line = mPending.substr(0, newline);
            mPending.erase(0, newline + 1);
            return line;
        }
        auto left = std::chrono::duration_cast<std::chrono::milliseconds>(
                deadline - std::chrono::steady_clock::now());
        pollfd entry{mOutput, POLLIN, 0};
        if (left.count() <= 0 || poll(&entry, 1, static_cast<int>(left.count())) <= 0) {
            return "";
        }
        char buffer[256];
        ssize_t size = read(mOutput, buffer, sizeof(buffer));
        if (size <= 0) {
            return "";
        }
        mPending.append(buffer, static_cast<size_t>(size));
    }
}

void ChildServer::kill() {
    if (mPid > 0) {
        ::kill(mPid, SIGKILL);
        waitpid(mPid, nullptr, 0);
        mPid = -1;
    }
}

}  // namespace bindertest
