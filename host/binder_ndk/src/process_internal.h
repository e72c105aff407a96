// Private: the binder thread pool. As on a device, only pool threads serve
// incoming work: the thread ABinderProcess_startThreadPool starts, threads
// that joined, and up to the maximum more, spawned when all are busy. Work
// that arrives while every pool thread is busy, or before there is any,
// waits. Incoming connections are watched by the pool threads themselves
// (one epoll set, each connection armed for one thread at a time), so a
// request costs no hand-off between threads.
#pragma once

#include <atomic>
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

/** An incoming connection served by the pool. */
class Served {
  public:
    virtual ~Served() = default;
    virtual int fd() const = 0;
    /** True when bytes were received already that may hold a request. */
    virtual bool hasBuffered() const = 0;
    /** Serves the requests that are ready (on a pool thread); false when the connection ended. */
    virtual bool serveReady() = 0;

  private:
    friend class ThreadPool;
    bool mInEpoll = false;
    // Handed from thread to thread through the epoll set, which orders the
    // hand-offs; the flag makes that order visible to the memory model too.
    std::atomic<bool> mHandedOver{false};
};

class ThreadPool {
  public:
    static ThreadPool& get();

    /** Runs \p job on a pool thread, once one is free. */
    void submit(std::function<void()> job);
    /** Serves \p served on the pool from now on; the pool deletes it when it ends. */
    void serve(Served* served);

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
    void runServed(Served* served);
    void runJob();
    void beginWork();
    void endWork();

    int mEpollFd = -1;
    int mJobsFd = -1;  // eventfd counting queued jobs

    std::mutex mMutex;
    std::deque<std::function<void()>> mJobs;
    uint32_t mThreads = 0;  // pool threads: started, joined and spawned
    uint32_t mSpawned = 0;  // spawned beyond the first, bounded by mMaxThreads
    uint32_t mBusy = 0;
    uint32_t mMaxThreads = 15;
    bool mStarted = false;
};

}  // namespace binder_host
