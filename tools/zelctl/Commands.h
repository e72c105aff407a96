// zelctl's subcommands: one per operation of the client library's layers.
#pragma once

#include <CLI/CLI.hpp>
#include <atomic>
#include <functional>
#include <stdexcept>
#include <string>

namespace zelctl {

/** Exit statuses, as the help text documents them. */
constexpr int kExitOk = 0;
constexpr int kExitRefused = 1;
constexpr int kExitUsage = 2;
constexpr int kExitNoService = 3;

/** Ends a command with an exit status and one line for stderr. */
struct CommandError : std::runtime_error {
    CommandError(int status, const std::string& message)
        : std::runtime_error(message), exitStatus(status) {}
    int exitStatus;
};

struct Context {
    bool json = false;
    /** JSON-lines log of a private simulator (zelctl --sim), empty otherwise. */
    std::string simLog;
    /** Set by SIGINT/SIGTERM: listening commands stop and clean up. */
    const std::atomic<bool>* interrupted = nullptr;
};

/**
 * Adds every subcommand to `app`. Parsing one of them stores in `action` what
 * it runs; the action returns the exit status or throws CommandError. With
 * `needsQuietSim`, a command says that a private simulator should not print
 * each call (the benchmark).
 */
void addCommands(CLI::App& app, Context& context, std::function<int()>& action, bool& needsQuietSim);

}  // namespace zelctl
