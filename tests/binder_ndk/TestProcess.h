// Test fixture pieces: a private registry directory per test, and the
// helper server run as a child process.
#pragma once

#include <sys/types.h>

#include <chrono>
#include <string>
#include <vector>

namespace bindertest {

/** Creates a fresh registry directory (mkdtemp) and points BINDER_HOST_DIR at it. */
class ScopedRegistryDir {
  public:
    ScopedRegistryDir();
    ~ScopedRegistryDir();
    ScopedRegistryDir(const ScopedRegistryDir&) = delete;
    ScopedRegistryDir& operator=(const ScopedRegistryDir&) = delete;
    const std::string& path() const { return mPath; }

  private:
    std::string mPath;
};

/**
 * The helper server (fork+exec), serving an echo service under \p instance;
 * \p options are passed on (see TestServer.cpp).
 */
class ChildServer {
  public:
    explicit ChildServer(const std::string& instance, const std::vector<std::string>& options = {});
    ~ChildServer();
    ChildServer(const ChildServer&) = delete;
    ChildServer& operator=(const ChildServer&) = delete;

    /** True once the child printed "ready" (within the wait limit). */
    bool ready() const { return mReady; }
    /** Waits for the next output line of the child (e.g. "blocked"); "" on timeout. */
    std::string nextLine(std::chrono::milliseconds limit = std::chrono::seconds(10));
    /** Writes \p line and a newline to the child's stdin (releases a kWaitGo call). */
    bool sendLine(const std::string& line);
    /** SIGKILLs the child and reaps it. */
    void kill();
    pid_t pid() const { return mPid; }

  private:
    pid_t mPid = -1;
    int mOutput = -1;
    int mInput = -1;
    bool mReady = false;
    std::string mPending;
};

}  // namespace bindertest
