// zelctl: drives the resource-control client library from a shell, one
// subcommand per library operation, against a running dolm-sim or service,
// or against a private simulator (--sim).
#include <android/binder_process.h>
#include <android/log.h>
#include <signal.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <atomic>
#include <cstdio>
#include <fstream>
#include <iostream>
#include <nlohmann/json.hpp>
#include <string>

#include "Commands.h"
#include "SimProcess.h"

namespace {

using zelctl::CommandError;

std::atomic<bool> gInterrupted{false};

void onSignal(int /*signal*/) {
    // A second interrupt ends at once; the first lets a listener clean up.
    if (gInterrupted.exchange(true)) _exit(130);
}

constexpr const char* kFooter = R"(
Ids and numbers are accepted in hex (0x01010B10) or decimal.
--sim starts a private dolm-sim with a private registry for this run only, so
`zelctl --sim acquire ACTION_LAUNCH` works without anything else running;
`zelctl --sim shell` keeps one simulator for a series of commands.
Exit status: 0 success; 1 the service refused or failed; 2 bad arguments;
3 no service running (start dolm-sim, or use --sim).)";

// CLI11 reports a mistyped command as a missing one; name it instead.
std::string unknownCommand(CLI::App& app, const CLI::ParseError& error) {
    const std::vector<std::string> left = app.remaining();
    if (app.get_subcommands().empty() && !left.empty() && left.front().rfind('-', 0) != 0) {
        return "unknown command \"" + left.front() + "\"";
    }
    return error.what();
}

void quietLogger(const struct __android_logger_data* /*data*/, const char* /*message*/) {}

int runAction(const std::function<int()>& action) {
    try {
        return action();
    } catch (const CommandError& e) {
        fprintf(stderr, "zelctl: %s\n", e.what());
        return e.exitStatus;
    } catch (const std::exception& e) {
        fprintf(stderr, "zelctl: %s\n", e.what());
        return zelctl::kExitRefused;
    }
}

// Parses one command line of the shell into `action`; false after a message.
bool parseShellLine(const std::string& line, zelctl::Context& context,
                    std::function<int()>& action) {
    CLI::App app{"zelctl shell command"};
    app.require_subcommand(1);
    bool quietSim = false;
    zelctl::addCommands(app, context, action, quietSim);
    try {
        app.parse(line, false);
        return true;
    } catch (const CLI::CallForHelp& e) {
        app.exit(e);
    } catch (const CLI::ParseError& e) {
        fprintf(stderr, "zelctl: %s (help: --help)\n", unknownCommand(app, e).c_str());
    }
    return false;
}

// Prints what a private simulator reported since the last look.
void printSimOutput(const zelctl::Context& context, std::streamoff& offset) {
    if (context.simLog.empty()) return;
    std::ifstream in(context.simLog);
    in.seekg(offset);
    std::string line;
    while (std::getline(in, line)) {
        if (context.json) {
            fprintf(stdout, "%s\n", line.c_str());
        } else {
            const nlohmann::json event = nlohmann::json::parse(line, nullptr, false);
            if (event.is_object() && event.contains("msg") &&
                event.value("event", "") != "dump_line") {
                fprintf(stdout, "  [dolm-sim] %s\n", event.value("msg", "").c_str());
            }
        }
        offset += static_cast<std::streamoff>(line.size() + 1);
    }
    fflush(stdout);
}

int runShell(zelctl::Context& context) {
    const bool interactive = isatty(STDIN_FILENO) != 0;
    std::streamoff simOffset = 0;
    int firstFailure = zelctl::kExitOk;
    printSimOutput(context, simOffset);
    std::string line;
    for (;;) {
        if (interactive) {
            fprintf(stdout, "zelctl> ");
            fflush(stdout);
        }
        if (!std::getline(std::cin, line)) break;
        const size_t first = line.find_first_not_of(" \t");
        if (first == std::string::npos) continue;
        if (line[first] == '#') {
            // A script's comments narrate the session.
            if (!interactive) fprintf(stdout, "%s\n", line.c_str());
            continue;
        }
        if (!interactive) {
            fprintf(stdout, "zelctl> %s\n", line.c_str());
            fflush(stdout);
        }
        if (line.substr(first) == "exit" || line.substr(first) == "quit") break;
        gInterrupted = false;
        std::function<int()> action;
        const int status = !parseShellLine(line, context, action) ? zelctl::kExitUsage
                           : action                               ? runAction(action)
                                                                  : zelctl::kExitOk;
        if (firstFailure == zelctl::kExitOk) firstFailure = status;
        printSimOutput(context, simOffset);
    }
    // A script (not a person at the prompt) learns whether every command succeeded.
    return interactive ? zelctl::kExitOk : firstFailure;
}

}  // namespace

// The whole program; main() turns an unexpected exception into a message.
static int run(int argc, char** argv) {
    CLI::App app{"zelctl: drive the IDolm resource-control client library from a shell"};
    app.footer(kFooter);
    app.require_subcommand(1);
    zelctl::Context context;
    bool sim = false;
    bool verbose = false;
    std::string simConfig;
    app.add_flag("--sim", sim, "Run a private dolm-sim for this command (or shell)");
    app.add_option("--sim-config", simConfig, "Configuration file for the private dolm-sim");
    app.add_flag("--json", context.json, "Print one JSON object per result or delivery");
    app.add_flag("-v,--verbose", verbose,
                 "Show the library's log lines and the private simulator's output on stderr");
    // The global options may also follow the subcommand: zelctl state 0x10 --json.
    app.fallthrough();
    std::function<int()> action;
    bool quietSim = false;
    zelctl::addCommands(app, context, action, quietSim);
    bool shell = false;
    app.add_subcommand("shell", "Read commands line by line (with --sim: one simulator for all)")
            ->callback([&shell] { shell = true; });

    try {
        app.parse(argc, argv);
    } catch (const CLI::CallForHelp& e) {
        return app.exit(e);
    } catch (const CLI::CallForAllHelp& e) {
        return app.exit(e);
    } catch (const CLI::ParseError& e) {
        fprintf(stderr, "zelctl: %s (help: zelctl --help)\n", unknownCommand(app, e).c_str());
        return zelctl::kExitUsage;
    }
    if (!simConfig.empty() && !sim) {
        fprintf(stderr, "zelctl: --sim-config goes with --sim\n");
        return zelctl::kExitUsage;
    }

    struct sigaction handler {};
    handler.sa_handler = onSignal;
    sigaction(SIGINT, &handler, nullptr);
    sigaction(SIGTERM, &handler, nullptr);
    signal(SIGPIPE, SIG_IGN);
    context.interrupted = &gInterrupted;
    if (!verbose) __android_log_set_logger(quietLogger);

    zelctl::SimProcess simulator;
    if (sim) {
        std::vector<std::string> args;
        if (!verbose) args.emplace_back("--json");
        if (quietSim) args.emplace_back("--quiet");
        if (!simConfig.empty()) args.insert(args.end(), {"--config", simConfig});
        std::string error;
        const auto output = verbose ? zelctl::SimProcess::Output::kStderr
                                    : zelctl::SimProcess::Output::kLogFile;
        if (!simulator.start(args, output, error)) {
            fprintf(stderr, "zelctl: --sim: %s\n", error.c_str());
            return zelctl::kExitNoService;
        }
        context.simLog = simulator.logFile();
    }
    // Callbacks and listener deliveries arrive on binder threads.
    ABinderProcess_setThreadPoolMaxThreadCount(4);
    ABinderProcess_startThreadPool();

    return shell ? runShell(context) : runAction(action);
}

int main(int argc, char** argv) {
    try {
        return run(argc, argv);
    } catch (const std::exception& e) {
        fprintf(stderr, "zelctl: %s\n", e.what());
        return zelctl::kExitRefused;
    }
}
