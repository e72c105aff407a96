// The binder thread pool (ABinderProcess_*). See binder_process.h for how
// incoming work is served with and without a started pool.
#include <android/binder_process.h>
#include <pthread.h>

#include <memory>
#include <thread>
#include <vector>

#include "process_internal.h"

namespace binder_host {
namespace {

thread_local bool tBinderThread = false;

// Never destroyed: binder threads keep using the pool while the process exits.
ThreadPool*& poolSlot() {
    static ThreadPool* pool = new ThreadPool;
    return pool;
}

// Pools of a parent process, left behind in a forked child (kept reachable).
std::vector<ThreadPool*>& abandonedPools() {
    static auto* list = new std::vector<ThreadPool*>;
    return *list;
}

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

ThreadPool& ThreadPool::get() {
    return *poolSlot();
}

void ThreadPool::resetAfterFork() {
    abandonedPools().push_back(poolSlot());
    poolSlot() = new ThreadPool;
}

bool ThreadPool::onBinderThread() {
    return tBinderThread;
}

void ThreadPool::submit(std::function<void()> job) {
    bool spawn = false;
    {
        std::lock_guard<std::mutex> lock(mMutex);
        mJobs.push_back(std::move(job));
        spawn = mIdle < mJobs.size();
    }
    // When no thread can be started the job waits for the next idle one.
    if (spawn) {
        startDetachedThread([this] { work(false); });
    } else {
        mJobReady.notify_one();
    }
}

void ThreadPool::work(bool joined) {
    tBinderThread = true;
    std::unique_lock<std::mutex> lock(mMutex);
    for (;;) {
        while (mJobs.empty()) {
            // Idle threads beyond the pool size leave; joined threads stay.
            if (!joined && mIdle >= mMaxThreads) {
                return;
            }
            ++mIdle;
            mJobReady.wait(lock);
            --mIdle;
        }
        std::function<void()> job = std::move(mJobs.front());
        mJobs.pop_front();
        lock.unlock();
        job();
        job = nullptr;  // release what the job captured before going idle
        lock.lock();
    }
}

void ThreadPool::start() {
    std::lock_guard<std::mutex> lock(mMutex);
    mStarted = true;
}

bool ThreadPool::setMaxThreadCount(uint32_t count) {
    std::lock_guard<std::mutex> lock(mMutex);
    mMaxThreads = count;
    return !mStarted;
}

void ThreadPool::join() {
    start();
    work(true);
    // work(true) never returns; keep the compiler's [[noreturn]] promise.
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
