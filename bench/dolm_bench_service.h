// Shared by the binder benchmarks: a private registry directory, a minimal
// IDolm service served by a child process (the benchmark program started
// again with a flag), the lookup of that service and the request record the
// benchmarks send.
#pragma once

#include <aidl/vendor/tarvo/hardware/dolm/DolmRequestParcel.h>
#include <aidl/vendor/tarvo/hardware/dolm/IDolm.h>
#include <sys/types.h>

#include <memory>
#include <string>
#include <vector>

namespace dolmbench {

/** A mkdtemp registry directory set as BINDER_HOST_DIR, removed again on destruction. */
class PrivateRegistry {
  public:
    PrivateRegistry();
    ~PrivateRegistry();
    PrivateRegistry(const PrivateRegistry&) = delete;
    PrivateRegistry& operator=(const PrivateRegistry&) = delete;
    bool ok() const { return !mDir.empty(); }

  private:
    std::string mDir;
};

/**
 * Starts this program again with \p args in a child that
 * dies with its parent; the child inherits the environment (BINDER_HOST_DIR).
 * Returns the child's pid, or -1.
 */
pid_t spawnSelf(const std::vector<std::string>& args);

/** Reads exactly \p size bytes; false on end of file or error. */
bool readFull(int fd, void* data, size_t size);

/** Kills and reaps a child started by spawnSelf. */
void stopChild(pid_t child);

/** Registers the minimal IDolm service, starts the binder pool and serves forever. */
[[noreturn]] void serveDolm();

/** Looks the service up until it appears (10 s at most); null if it does not. */
std::shared_ptr<aidl::vendor::tarvo::hardware::dolm::IDolm> waitForDolm();

/** A resource request with two resources, as a client sends one. */
aidl::vendor::tarvo::hardware::dolm::DolmRequestParcel twoResourceRequest();

/** One request (two resources) and the release of its handle; false if either fails. */
bool requestAndRelease(aidl::vendor::tarvo::hardware::dolm::IDolm& dolm,
                       const aidl::vendor::tarvo::hardware::dolm::DolmRequestParcel& parcel);

}  // namespace dolmbench
