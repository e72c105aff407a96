// Test fixture pieces: a private registry directory per test, and the
// helper server run as a child process.
#pragma once

#include <android/binder_auto_utils.h>
#include <sys/types.h>

#include <chrono>
#include <string>
#include <vector>

#include "TestBinders.h"

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

/** The helper server under \p instance with a proxy to its echo service. */
class EchoChild : public ChildServer {
  public:
    explicit EchoChild(const char* instance, const std::vector<std::string>& options = {});
    /** True once the server is ready and its service was found. */
    bool ready() const { return ChildServer::ready() && mProxy.get() != nullptr; }
    AIBinder* proxy() const { return mProxy.get(); }

  private:
    ndk::SpAIBinder mProxy;
};

/**
 * Two helper servers: a holder that takes a callback of this process and calls it from a
 * thread of its own, and one that is to die, its death linked to `deaths`.
 */
struct HolderAndDying {
    HolderAndDying(const char* holderInstance, const char* dyingInstance);
    /** True once both servers are ready and the death link is made. */
    bool ready() const { return holder.ready() && dying.ready() && linked == STATUS_OK; }
    /** The holder takes the callback, then calls it with \p text from a thread of its own. */
    binder_status_t callBackLater(const std::string& text);
    /** Drops this process's reference and kills the holder; true once the callback is gone. */
    bool callbackGoesWithHolder();

    Observed observed;  // first: the holder's death may release the callback last
    EchoChild holder;
    EchoChild dying;
    Deaths deaths;
    binder_status_t linked;
    ndk::SpAIBinder callback;
};

}  // namespace bindertest
