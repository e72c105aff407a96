// dolm-sim: serves "vendor.tarvo.hardware.dolm.IDolm/default" with a
// behaviour model, so that the client library's calls have visible effects
// on a workstation.
#include <android/binder_manager.h>
#include <android/binder_process.h>

#include <CLI/CLI.hpp>
#include <chrono>
#include <cstdio>
#include <mutex>
#include <string>

#include "SimConfig.h"
#include "SimModel.h"
#include "SimService.h"

namespace {

constexpr const char* kDefaultInstance = "vendor.tarvo.hardware.dolm.IDolm/default";

constexpr const char* kModel = R"(Behaviour model:
  Resources   A table of resources: id, optional path, name, default value and
              how concurrent requests combine: "highest" (boosts), "lowest"
              (limits) or "latest". Numeric resources accept decimal values
              within [min, max]; text resources accept any text. The built-in
              table covers the ids the wrapper layer sends; --config FILE
              loads another one (JSON, see the README).
  Requests    Every request gets a handle (1, 2, ...): resource control by id
              or by path, sub-system control (a configured set of values),
              event acquire (the action map turns command ids, the positions
              in the action table, into values, e.g. 0 = ACTION_LAUNCH), and
              resource/platform acquire. A request holds its values until it
              is released or its timeout (milliseconds; 0 or less: until
              release) expires; one timer thread serves every timeout. After
              each change every effective value is recomputed.
  Callbacks   Listeners (by id, by path, thermal) get onCallback with the
              entries whose effective value (or thermal level) changed. A
              request's one-shot callback is called once, after the request
              took effect, from the simulator's own thread.
  Queries     getData answers state queries with current values, the history
              query with the recorded requests (in "extra") while recording
              is on (diagnostic codes 10 on, 11 off), and the power-mode query
              from property "dolm.pm.<mode>" or the configured power_modes.
  Rules       Notify and rule control set a rule's status and records.
  Thermal     Thermal notify records the levels and informs thermal listeners.
  Properties  getProperty/setProperty on a key/value table.
  Dumps       Codes 0-8 (ToDoQueue, RunMap, ActiveResMap, ResRequest, ResInfo,
              SAInfo, PidFdList, PidfdMonitorMap, ResRecordList) print their
              table here and answer 1.
Refusals (each printed as a line; never a crash):
  11 unknown resource (id, path, sub-system)
  12 value not accepted (not a number, outside [min, max], a property value
     over 255 characters)
  13 unknown handle
  14 malformed request (unknown request type or diagnostic code).
  Operations that answer a number answer the negative code (e.g. -13); getData
  fails with a service-specific error carrying the code.
Runs until killed (SIGINT, SIGTERM). Exit status 2 on a bad
configuration or when the name cannot be registered.)";

double secondsSince(std::chrono::steady_clock::time_point start) {
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

}  // namespace

// The whole program; main() turns an unexpected exception into a message.
static int run(int argc, char** argv) {
    CLI::App app{"dolm-sim: an IDolm resource-control service simulator"};
    app.footer(kModel);
    std::string configFile;
    std::string instance = kDefaultInstance;
    bool json = false;
    bool quiet = false;
    app.add_option("--config", configFile, "Resource table and maps to load (JSON)");
    app.add_option("--instance", instance, "Service instance name to register")
            ->capture_default_str();
    app.add_flag("--json", json, "Print JSON lines instead of readable lines");
    app.add_flag("--quiet", quiet, "Print only the start line and refusals");
    CLI11_PARSE(app, argc, argv);

    dolmsim::SimConfig config = dolmsim::defaultConfig();
    if (!configFile.empty()) {
        std::string error;
        std::optional<dolmsim::SimConfig> loaded = dolmsim::loadConfig(configFile, error);
        if (!loaded) {
            fprintf(stderr, "dolm-sim: bad configuration: %s\n", error.c_str());
            return 2;
        }
        config = std::move(*loaded);
    }

    const auto start = std::chrono::steady_clock::now();
    std::mutex outputMutex;
    dolmsim::Reporter reporter = [&](const std::string& line, const nlohmann::json& fields) {
        const bool refusal = fields.value("event", "") == "refused";
        if (quiet && !refusal) return;
        std::lock_guard<std::mutex> lock(outputMutex);
        if (json) {
            nlohmann::json object = fields;
            object["t"] = secondsSince(start);
            object["msg"] = line;
            const std::string text = object.dump();
            fprintf(stdout, "%s\n", text.c_str());
        } else {
            fprintf(stdout, "[+%.3fs] %s\n", secondsSince(start), line.c_str());
        }
        fflush(stdout);
    };

    const size_t resourceCount = config.resources.size();
    dolmsim::Model model(std::move(config), reporter);
    auto service = ::ndk::SharedRefBase::make<dolmsim::SimService>(model, reporter);
    ABinderProcess_setThreadPoolMaxThreadCount(16);
    ABinderProcess_startThreadPool();
    if (AServiceManager_addService(service->asBinder().get(), instance.c_str()) != STATUS_OK) {
        fprintf(stderr, "dolm-sim: cannot register \"%s\"\n", instance.c_str());
        return 2;
    }
    {
        std::lock_guard<std::mutex> lock(outputMutex);
        if (json) {
            const std::string text = nlohmann::json{
                    {"event", "ready"},
                    {"instance", instance},
                    {"resources", resourceCount},
                    {"t",
                     secondsSince(start)}}.dump();
            fprintf(stdout, "%s\n", text.c_str());
        } else {
            fprintf(stdout, "[+%.3fs] dolm-sim serving \"%s\" with %zu resources\n",
                    secondsSince(start), instance.c_str(), resourceCount);
        }
        fflush(stdout);
    }
    ABinderProcess_joinThreadPool();
    return 0;
}

int main(int argc, char** argv) {
    try {
        return run(argc, argv);
    } catch (const std::exception& e) {
        fprintf(stderr, "dolm-sim: %s\n", e.what());
        return 1;
    }
}
