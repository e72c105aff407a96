// Private: the binder thread pool. As on a device, only pool threads serve
// incoming work: the thread ABinderProcess_startThreadPool starts, threads
// that joined, and up to the maximum more, spawned when all are busy. Work
// that arrives while every pool thread is busy, or before there is any,
// waits. Incoming connections are watched by the pool threads themselves
// (one edge-triggered epoll set; a connection is served by one thread at a
// time), so a request costs no hand-off between threads and no more system
// calls than a plain socket server makes, but the wait.
#pragma once

#include <atomic>
#include <cstdint>
#include <deque>
#include <functional>
#include <memory>
#include <mutex>
#include <unordered_map>

namespace binder_host {

/**
 * Starts \p body on a detached thread. False, with nothing started, when the
 * system refuses a thread (as it may while the process is exiting); never throws.
 */
bool startDetachedThread(std::function<void()> body);

/** An incoming connection served by the pool. */
class Served {
  public:
    virtual ~Served() = default;
    virtual int fd() const = 0;
    /** True when bytes were received already that may hold a request. */
    virtual bool hasBuffered() const = 0;
    /**
     * Serves every complete request received so far or waiting in the
     * socket, without blocking for more (on a pool thread); false when the
     * connection ended.
     */
    virtual bool serveAvailable() = 0;

  private:
    friend class ThreadPool;
    // Which thread serves it: none, one, or one that must look again because
    // more arrived meanwhile. Only the serving thread leaves kBusy or kAgain.
    enum State { kIdle, kBusy, kAgain, kClosed };
    std::atomic<int> mState{kIdle};
    uint64_t mId = 0;
};

class ThreadPool {
  public:
    static ThreadPool& get();

    /** Runs \p job on a pool thread, once one is free. */
    void submit(std::function<void()> job);
    /** Serves \p served on the pool from now on; the pool deletes it when it ends. */
    void serve(std::unique_ptr<Served> served);

    void start();
    bool setMaxThreadCount(uint32_t count);
    /** Makes the calling thread a pool thread for good. */
    [[noreturn]] void join();

    /** In a forked child: starts over with an empty pool (the parent's threads do not exist). */
    static void resetAfterFork();

    ThreadPool();
    ThreadPool(const ThreadPool&) = delete;
    ThreadPool& operator=(const ThreadPool&) = delete;

  private:
    void work();
    /**
     * Serves \p served on this thread unless another one does (which then
     * looks again). \p counted: the thread is counted busy already (a job).
     */
    void drive(const std::shared_ptr<Served>& served, bool counted);
    void runJob();
    void beginWork();
    void endWork();

    int mEpollFd = -1;
    int mJobsFd = -1;  // eventfd counting queued jobs

    std::mutex mMutex;
    std::deque<std::function<void()>> mJobs;
    // Served connections by the id their readiness events carry; an event
    // may still be in a thread's hands after its connection ended.
    uint64_t mNextServedId = 1;
    std::unordered_map<uint64_t, std::shared_ptr<Served>> mServed;
    uint32_t mThreads = 0;  // pool threads: started, joined and spawned
    uint32_t mSpawned = 0;  // spawned beyond the first, bounded by mMaxThreads
    uint32_t mBusy = 0;
    uint32_t mMaxThreads = 15;
    bool mStarted = false;
};

}  // namespace binder_host
