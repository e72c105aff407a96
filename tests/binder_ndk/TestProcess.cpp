#include "TestProcess.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
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

ChildServer::ChildServer(const std::string& instance, const std::vector<std::string>& options) {
    int pipeFds[2];
    int inputFds[2];
    if (pipe2(pipeFds, O_CLOEXEC) != 0) {
        return;
    }
    // A socket rather than a pipe: writing after the child died fails without SIGPIPE.
    if (socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, inputFds) != 0) {
        close(pipeFds[0]);
        close(pipeFds[1]);
        return;
    }
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, pipeFds[1], STDOUT_FILENO);
    posix_spawn_file_actions_adddup2(&actions, inputFds[0], STDIN_FILENO);
    std::vector<const char*> argv = {BINDER_TEST_SERVER, instance.c_str()};
    for (const std::string& option : options) {
        argv.push_back(option.c_str());
    }
    argv.push_back(nullptr);
    int result = posix_spawn(&mPid, BINDER_TEST_SERVER, &actions, nullptr,
                             const_cast<char* const*>(argv.data()), environ);
    posix_spawn_file_actions_destroy(&actions);
    close(pipeFds[1]);
    close(inputFds[0]);
    mOutput = pipeFds[0];
    mInput = inputFds[1];
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
    if (mInput >= 0) {
        close(mInput);
    }
}

bool ChildServer::sendLine(const std::string& line) {
    std::string text = line + "\n";
    return mInput >= 0 && send(mInput, text.data(), text.size(), MSG_NOSIGNAL) ==
                                  static_cast<ssize_t>(text.size());
}

std::string ChildServer::nextLine(std::chrono::milliseconds limit) {
    auto deadline = std::chrono::steady_clock::now() + limit;
    for (;;) {
        size_t newline = mPending.find('\n');
        if (newline != std::string::npos) {
            std::string line = mPending.substr(0, newline);
            mPending.erase(0, newline + 1);
            return line;
        }
        auto left = std::chrono::duration_cast<std::chrono::milliseconds>(
                deadline - std::chrono::steady_clock::now());
        // Output already there is taken even when the limit has passed.
        pollfd entry{mOutput, POLLIN, 0};
        if (poll(&entry, 1, static_cast<int>(std::max<int64_t>(left.count(), 0))) <= 0) {
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

EchoChild::EchoChild(const char* instance, const std::vector<std::string>& options)
    : ChildServer(instance, options) {
    if (ChildServer::ready()) mProxy = getEcho(instance);
}

HolderAndDying::HolderAndDying(const char* holderInstance, const char* dyingInstance)
    : holder(holderInstance),
      dying(dyingInstance),
      linked(dying.ready() ? deaths.link(dying.proxy()) : STATUS_DEAD_OBJECT),
      callback(newCallback(&observed)) {}

binder_status_t HolderAndDying::callBackLater(const std::string& text) {
    int32_t unused = 0;
    binder_status_t status = callWithBinder(holder.proxy(), kHold, callback.get(), "", &unused);
    return status == STATUS_OK ? callHeldLater(holder.proxy(), text) : status;
}

bool HolderAndDying::callbackGoesWithHolder() {
    callback.set(nullptr);
    holder.kill();
    return observed.waitFor([&] { return observed.destroyed == 1; });
}

}  // namespace bindertest
