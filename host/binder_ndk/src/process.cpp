// The binder thread pool (ABinderProcess_*). See process_internal.h.
#include <android/binder_process.h>
#include <pthread.h>
#include <sys/epoll.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <memory>
#include <thread>
#include <vector>

#include "process_internal.h"

namespace binder_host {
namespace {

// Never destroyed: pool threads keep using the pool while the process exits.
ThreadPool*& poolSlot() {
    static ThreadPool* pool = new ThreadPool;
    return pool;
}

// Pools of a parent process, left behind in a forked child (kept reachable).
std::vector<ThreadPool*>& abandonedPools() {
    static auto* list = new std::vector<ThreadPool*>;
    return *list;
}

constexpr uint64_t kJobsId = 0;  // epoll id of the job counter; served connections count from 1

}  // namespace

// Started with pthread_create so that a refused thread is an error code, not
// an exception: the runtime builds with and without exceptions alike.
bool startDetachedThread(std::function<void()> body) {
    auto job = std::make_unique<std::function<void()>>(std::move(body));
    pthread_attr_t attr;
    if (pthread_attr_init(&attr) != 0) return false;
    pthread_attr_setdetachstate(&attr, PTHREAD_CREATE_DETACHED);
    pthread_t thread;
    const int err = pthread_create(
            &thread, &attr,
            [](void* arg) -> void* {
                std::unique_ptr<std::function<void()>> run(static_cast<std::function<void()>*>(arg));
                (*run)();
                return nullptr;
            },
            job.get());
    pthread_attr_destroy(&attr);
    if (err != 0) return false;
    static_cast<void>(job.release());  // the thread owns it now
    return true;
}

ThreadPool::ThreadPool() {
    mEpollFd = epoll_create1(EPOLL_CLOEXEC);
    mJobsFd = eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK | EFD_SEMAPHORE);
    epoll_event event{};
    event.events = EPOLLIN;
    event.data.u64 = kJobsId;
    epoll_ctl(mEpollFd, EPOLL_CTL_ADD, mJobsFd, &event);
}

ThreadPool& ThreadPool::get() {
    return *poolSlot();
}

void ThreadPool::resetAfterFork() {
    abandonedPools().push_back(poolSlot());
    poolSlot() = new ThreadPool;
}

void ThreadPool::submit(std::function<void()> job) {
    {
        std::lock_guard<std::mutex> lock(mMutex);
        mJobs.push_back(std::move(job));
    }
    uint64_t one = 1;
    ssize_t written = write(mJobsFd, &one, sizeof(one));
    (void)written;
}

void ThreadPool::serve(std::unique_ptr<Served> owned) {
    std::shared_ptr<Served> served(std::move(owned));
    {
        std::lock_guard<std::mutex> lock(mMutex);
        served->mId = mNextServedId++;
        mServed.emplace(served->mId, served);
    }
    // Asked before the connection is armed: from then on a pool thread may own it.
    bool buffered = served->hasBuffered();
    epoll_event event{};
    event.events = EPOLLIN | EPOLLRDHUP | EPOLLET;
    event.data.u64 = served->mId;
    epoll_ctl(mEpollFd, EPOLL_CTL_ADD, served->fd(), &event);
    if (buffered) {
        // A request came with the hello: no readiness event will announce it.
        submit([this, served] { drive(served, true); });
    }
}

void ThreadPool::drive(const std::shared_ptr<Served>& served, bool counted) {
    std::atomic<int>& state = served->mState;
    int seen = state.load(std::memory_order_acquire);
    for (;;) {
        if (seen == Served::kIdle) {
            if (state.compare_exchange_weak(seen, Served::kBusy, std::memory_order_acq_rel)) break;
        } else if (seen == Served::kBusy) {
            // Its thread looks again before it lets go.
            if (state.compare_exchange_weak(seen, Served::kAgain, std::memory_order_acq_rel))
                return;
        } else {
            return;  // already to be looked at again, or ended
        }
    }
    if (!counted) beginWork();
    for (;;) {
        if (!served->serveAvailable()) {
            state.store(Served::kClosed, std::memory_order_release);
            epoll_ctl(mEpollFd, EPOLL_CTL_DEL, served->fd(), nullptr);
            std::lock_guard<std::mutex> lock(mMutex);
            mServed.erase(served->mId);
            break;
        }
        int busy = Served::kBusy;
        if (state.compare_exchange_strong(busy, Served::kIdle, std::memory_order_acq_rel)) break;
        state.store(Served::kBusy, std::memory_order_relaxed);  // was kAgain: more arrived
    }
    if (!counted) endWork();
}

void ThreadPool::runJob() {
    std::function<void()> job;
    {
        std::lock_guard<std::mutex> lock(mMutex);
        job = std::move(mJobs.front());
        mJobs.pop_front();
    }
    job();
}

void ThreadPool::beginWork() {
    bool spawn = false;
    {
        std::lock_guard<std::mutex> lock(mMutex);
        ++mBusy;
        // The last free thread took work: the pool grows, as the driver asks a process to.
        spawn = mStarted && mBusy == mThreads && mSpawned < mMaxThreads;
        if (spawn) {
            ++mSpawned;
            ++mThreads;
        }
    }
    if (spawn && !startDetachedThread([this] { work(); })) {
        std::lock_guard<std::mutex> lock(mMutex);
        --mSpawned;
        --mThreads;
    }
}

void ThreadPool::endWork() {
    std::lock_guard<std::mutex> lock(mMutex);
    --mBusy;
}

void ThreadPool::work() {
    for (;;) {
        epoll_event event{};
        if (epoll_wait(mEpollFd, &event, 1, -1) != 1) continue;
        if (event.data.u64 == kJobsId) {
            uint64_t token = 0;
            if (read(mJobsFd, &token, sizeof(token)) != sizeof(token)) continue;  // taken already
            beginWork();
            runJob();
            endWork();
            continue;
        }
        std::shared_ptr<Served> served;
        {
            std::lock_guard<std::mutex> lock(mMutex);
            auto it = mServed.find(event.data.u64);
            if (it == mServed.end()) continue;  // ended meanwhile
            served = it->second;
        }
        drive(served, false);
    }
}

void ThreadPool::start() {
    {
        std::lock_guard<std::mutex> lock(mMutex);
        if (mStarted) return;
        mStarted = true;
        ++mThreads;
    }
    if (!startDetachedThread([this] { work(); })) {
        std::lock_guard<std::mutex> lock(mMutex);
        --mThreads;
    }
}

bool ThreadPool::setMaxThreadCount(uint32_t count) {
    // Later calls only bound threads still to come; running ones stay.
    std::lock_guard<std::mutex> lock(mMutex);
    mMaxThreads = count;
    return true;
}

void ThreadPool::join() {
    {
        std::lock_guard<std::mutex> lock(mMutex);
        ++mThreads;
    }
    work();
    // work() never returns; keep the compiler's [[noreturn]] promise.
    for (;;) {
        std::this_thread::yield();
    }
}

}  // namespace binder_host

void ABinderProcess_startThreadPool() {
    binder_host::ThreadPool::get().start();
}

bool ABinderProcess_setThreadPoolMaxThreadCount(uint32_t numThreads) {
    return binder_host::ThreadPool::get().setMaxThreadCount(numThreads);
}

void ABinderProcess_joinThreadPool() {
    binder_host::ThreadPool::get().join();
}
