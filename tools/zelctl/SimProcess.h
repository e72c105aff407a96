// A private dolm-sim for the lifetime of one zelctl run: its own registry
// directory (so nothing else sees it, and it sees nothing else), started
// before zelctl's first binder call and stopped when zelctl is done.
#pragma once

#include <sys/types.h>

#include <string>
#include <vector>

namespace zelctl {

class SimProcess {
  public:
    /** Where the simulator's output goes: a log file in the private directory, or stderr. */
    enum class Output { kLogFile, kStderr };

    SimProcess() = default;
    ~SimProcess();
    SimProcess(const SimProcess&) = delete;
    SimProcess& operator=(const SimProcess&) = delete;

    /**
     * Makes the private directory, points BINDER_HOST_DIR at it, starts
     * dolm-sim (found beside zelctl) with `extraArgs` and waits until it
     * serves. On failure returns false with one sentence in `error`.
     */
    bool start(const std::vector<std::string>& extraArgs, Output output, std::string& error);
    /** The log file of kLogFile output (JSON lines), empty otherwise. */
    const std::string& logFile() const { return mLogFile; }

  private:
    void stop();

    std::string mDir;
    std::string mLogFile;
    pid_t mPid = -1;
};

/** The dolm-sim program beside the running zelctl, or "dolm-sim" to be found on PATH. */
std::string simProgram();

}  // namespace zelctl
