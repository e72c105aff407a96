// Private: the binder thread pool. Jobs are long-lived (serving one
// incoming connection) or short (delivering death notifications); a job
// runs on an idle binder thread, or on a new one when none is idle.
#pragma once

#include <condition_variable>
#include <cstdint>
#include <deque>
#include <functional>
#include <mutex>

namespace binder_host {

/**
 * Starts \p body on a detached thread. False, with nothing started, when the
 * system refuses a thread (as it may while the process is exiting); never throws.
 */
bool startDetachedThread(std::function<void()> body);

class ThreadPool {
  public:
    static ThreadPool& get();

    /** Runs \p job on a binder thread. Never blocks on other jobs. */
    void submit(std::function<void()> job);

    void start();
    bool setMaxThreadCount(uint32_t count);
    /** Makes the calling thread a binder thread for good. */
    [[noreturn]] void join();

    /** In a forked child: starts over with an empty pool (the parent's threads do not exist). */
    static void resetAfterFork();

    /** True on a thread of the pool. */
    static bool onBinderThread();

  private:
    void work(bool joined);

    std::mutex mMutex;
    std::condition_variable mJobReady;
    std::deque<std::function<void()>> mJobs;
    uint32_t mIdle = 0;
    uint32_t mMaxThreads = 15;
    bool mStarted = false;
};

}  // namespace binder_host
