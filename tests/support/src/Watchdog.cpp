#include "Watchdog.h"

#include <dirent.h>
#include <execinfo.h>
#include <signal.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <vector>

namespace zeltest {

namespace {

constexpr int kStackSignal = SIGUSR2;
constexpr int kMaxFrames = 64;

std::atomic<bool> gStackPrinted{false};

void writeText(const char* text) {
    const ssize_t ignored = write(STDERR_FILENO, text, strlen(text));
    (void)ignored;
}

// Runs on the thread whose stack is wanted.
void printOwnStack(int /*signal*/) {
    void* frames[kMaxFrames];
    const int count = backtrace(frames, kMaxFrames);
    backtrace_symbols_fd(frames, count, STDERR_FILENO);
    gStackPrinted.store(true);
}

std::vector<pid_t> threadIds() {
    std::vector<pid_t> ids;
    DIR* dir = opendir("/proc/self/task");
    if (dir == nullptr) return ids;
    while (dirent* entry = readdir(dir)) {
        if (entry->d_name[0] != '.') ids.push_back(static_cast<pid_t>(atoi(entry->d_name)));
    }
    closedir(dir);
    return ids;
}

}  // namespace

void dumpThreadStacks() {
    struct sigaction action {};
    action.sa_handler = printOwnStack;
    sigemptyset(&action.sa_mask);
    action.sa_flags = SA_RESTART;
    sigaction(kStackSignal, &action, nullptr);
    const pid_t self = static_cast<pid_t>(syscall(SYS_gettid));
    for (pid_t tid : threadIds()) {
        char header[64];
        snprintf(header, sizeof(header), "--- thread %d%s\n", tid, tid == self ? " (watchdog)" : "");
        writeText(header);
        if (tid == self) {
            printOwnStack(0);
            continue;
        }
        gStackPrinted.store(false);
        if (syscall(SYS_tgkill, getpid(), tid, kStackSignal) != 0) continue;
        // A thread that cannot take the signal is given a second, then skipped.
        for (int i = 0; i < 1000 && !gStackPrinted.load(); ++i) usleep(1000);
    }
}

Watchdog::Watchdog(std::chrono::seconds limit, std::string what) : mWhat(std::move(what)) {
    // Loads the unwinder now: it must not be loaded from a signal handler.
    void* frame[1];
    backtrace(frame, 1);
    mThread = std::thread([this, limit] { watch(limit); });
}

Watchdog::~Watchdog() {
    {
        std::lock_guard<std::mutex> lock(mMutex);
        mDone = true;
    }
    mDisarmed.notify_all();
    mThread.join();
}

void Watchdog::watch(std::chrono::seconds limit) {
    std::unique_lock<std::mutex> lock(mMutex);
    if (mDisarmed.wait_for(lock, limit, [this] { return mDone; })) return;
    fprintf(stderr, "watchdog: %s still running after %lld s; stacks of all threads follow\n",
            mWhat.c_str(), static_cast<long long>(limit.count()));
    fflush(stderr);
    dumpThreadStacks();
    writeText("watchdog: giving up\n");
    _exit(124);
}

}  // namespace zeltest
