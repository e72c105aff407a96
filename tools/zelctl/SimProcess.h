// A private dolm-sim for the lifetime of one zelctl run: its own registry
// directory (so nothing else sees it, and it sees nothing else), started
// before zelctl's first binder call.
//
// The simulator is stopped only after zelctl has exited: a watcher process
// waits for zelctl's end, then stops the simulator and removes the
// directory. Stopping it earlier would deliver a service death to the client
// library while the process tears down its statics.
#pragma once

#include <string>
#include <vector>

namespace zelctl {

class SimProcess {
  public:
    /** Where the simulator's output goes: a log file in the private directory, or stderr. */
    enum class Output { kLogFile, kStderr };

    /**
     * Makes the private directory, points BINDER_HOST_DIR at it, starts
     * dolm-sim (found beside zelctl) with `extraArgs` under a watcher and
     * waits until it serves. Call it before any binder call and while the
     * process has one thread. On failure returns false with one sentence in
     * `error`.
     */
    bool start(const std::vector<std::string>& extraArgs, Output output, std::string& error);
    /** The log file of kLogFile output (JSON lines), empty otherwise. */
    const std::string& logFile() const { return mLogFile; }

  private:
    std::string mLogFile;
};

/** The dolm-sim program beside the running zelctl, or "dolm-sim" to be found on PATH. */
std::string simProgram();

}  // namespace zelctl
