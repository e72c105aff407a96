/*
 * An IDolm service in a process of its own, for tests that kill the service
 * for real (SIGKILL) and start it again.
 *
 * The service is the program `dolm_service_process` (see
 * DolmServiceMain.cpp), started by path with posix_spawn: no fork of the
 * threaded test process, and nothing that needs the child to find its own
 * executable, so a binfmt-based emulator runs it as well. It registers under
 * the library's instance name in the test's registry directory
 * (BINDER_HOST_DIR, inherited), and answers every call with numbers drawn
 * from a range of its own, so a test can tell which instance gave a result.
 */
#pragma once

#include <sys/types.h>

#include <cstdint>
#include <string>
#include <utility>

namespace zeltest {

/** Each instance answers with values in [index * kInstanceRange + 1, (index + 1) * kInstanceRange). */
inline constexpr int32_t kInstanceRange = 1000000;
/** Instances a test can start: their ranges must fit in an int32. */
inline constexpr int32_t kMaxInstances = 2000;

/**
 * The instance whose range holds `value` (values an instance gives), or -1 for
 * a value that no instance gives.
 */
int32_t instanceOf(int64_t value);

/** How the service process answers. */
struct ServiceOptions {
    /** When the service calls back the callbacks it is handed. */
    enum class Delivery {
        kInsideCall,  ///< from inside the call that hands the callback over, before answering
        kAfterCall,   ///< from a thread of its own, after that call has been answered
    };

    /** Answer every n-th call with a service-specific error (0: never). */
    int failEvery = 0;
    Delivery delivery = Delivery::kInsideCall;
    /** Answer every release with a service-specific error. */
    bool refuseRelease = false;
    /**
     * Call back the listener registered last from inside every request that
     * carries no callback of its own, before answering.
     */
    bool notifyOnRequest = false;
};

class ServiceProcess {
  public:
    /** `program`: path of the dolm_service_process executable. */
    explicit ServiceProcess(std::string program) : mProgram(std::move(program)) {}
    ~ServiceProcess();
    ServiceProcess(const ServiceProcess&) = delete;
    ServiceProcess& operator=(const ServiceProcess&) = delete;

    /**
     * Starts instance `index` (1 to kMaxInstances - 1) and waits until it is
     * registered. False (after printing why) when it did not come up within
     * the timeout. At most one instance runs at a time.
     */
    bool start(int32_t index, const ServiceOptions& options = {});
    /** Kills the running instance with SIGKILL and reaps it. */
    void kill();
    /** The instance running now, 0 when none. */
    int32_t running() const { return mRunning; }

  private:
    std::string mProgram;
    pid_t mPid = -1;
    int32_t mRunning = 0;
};

}  // namespace zeltest
