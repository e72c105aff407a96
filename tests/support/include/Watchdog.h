/*
 * Bounds a test that could hang: if the watchdog is still armed when its
 * time is up, it prints what was running and the stack of every thread of
 * the process to stderr, and ends the process with exit status 124.
 */
#pragma once

#include <chrono>
#include <condition_variable>
#include <mutex>
#include <string>
#include <thread>

namespace zeltest {

class Watchdog {
  public:
    Watchdog(std::chrono::seconds limit, std::string what);
    /** Disarms the watchdog. */
    ~Watchdog();
    Watchdog(const Watchdog&) = delete;
    Watchdog& operator=(const Watchdog&) = delete;

  private:
    void watch(std::chrono::seconds limit);

    std::string mWhat;
    std::mutex mMutex;
    std::condition_variable mDisarmed;
    bool mDone = false;
    std::thread mThread;
};

/** Prints the stack of every thread of the process to stderr. */
void dumpThreadStacks();

}  // namespace zeltest
