#include "Commands.h"

#include <ZelWrapper.h>
#include <android/binder_auto_utils.h>
#include <android/binder_manager.h>
#include <halclient.h>
#include <zel.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <climits>
#include <condition_variable>
#include <cstdio>
#include <cstdlib>
#include <deque>
#include <fstream>
#include <list>
#include <memory>
#include <mutex>
#include <nlohmann/json.hpp>
#include <optional>
#include <thread>
#include <utility>
#include <vector>

namespace zelctl {
namespace {

using nlohmann::json;
using ZelClient::Resource;

constexpr const char* kInstance = "vendor.tarvo.hardware.dolm.IDolm/default";
constexpr auto kCallbackWait = std::chrono::seconds(5);
constexpr auto kPollSlice = std::chrono::milliseconds(100);

// ---- arguments -------------------------------------------------------------

int32_t parseNumber(const std::string& text, const char* what) {
    const bool hex = text.size() > 2 && text[0] == '0' && (text[1] == 'x' || text[1] == 'X');
    char* end = nullptr;
    errno = 0;
    if (hex) {
        const unsigned long long value = strtoull(text.c_str() + 2, &end, 16);
        if (*end == '\0' && errno == 0 && value <= UINT32_MAX && text[2] != '-' && text[2] != '+') {
            return static_cast<int32_t>(static_cast<uint32_t>(value));
        }
    } else if (!text.empty()) {
        const long long value = strtoll(text.c_str(), &end, 10);
        if (*end == '\0' && errno == 0 && value >= INT32_MIN && value <= INT32_MAX) {
            return static_cast<int32_t>(value);
        }
    }
    throw CommandError(kExitUsage, std::string("bad ") + what + " \"" + text +
                                           "\": expected a number (hex 0x... or decimal)");
}

std::pair<std::string, std::string> splitPair(const std::string& text, const char* what) {
    const size_t equals = text.find('=');
    if (equals == std::string::npos || equals == 0) {
        throw CommandError(kExitUsage,
                           std::string("bad ") + what + " \"" + text + "\": expected KEY=VALUE");
    }
    return {text.substr(0, equals), text.substr(equals + 1)};
}

// The library refuses a list where an id lacks its value, or id 0 carries
// one, without asking the service; say so here rather than report a failure.
std::list<Resource> resourcesOf(const std::vector<std::string>& pairs, const char* what,
                                bool checked = true) {
    std::list<Resource> resources;
    for (const std::string& text : pairs) {
        auto [id, value] = splitPair(text, what);
        const int32_t number = parseNumber(id, "id");
        if (checked && (number == 0) != value.empty()) {
            throw CommandError(
                    kExitUsage,
                    std::string("bad ") + what + " \"" + text +
                            "\": " + (number == 0 ? "id 0 carries no value" : "a value is needed"));
        }
        resources.push_back({number, value});
    }
    return resources;
}

std::list<Resource> idsOf(const std::vector<std::string>& texts) {
    std::list<Resource> resources;
    for (const std::string& text : texts) resources.push_back({parseNumber(text, "id"), {}});
    return resources;
}

std::string hexId(int32_t id) {
    char text[16];
    snprintf(text, sizeof(text), "0x%08X", static_cast<uint32_t>(id));
    return text;
}

// ---- service and results -----------------------------------------------------

void requireService() {
    ::ndk::SpAIBinder binder(AServiceManager_checkService(kInstance));
    if (binder.get() == nullptr) {
        throw CommandError(kExitNoService,
                           std::string("no resource-control service: \"") + kInstance +
                                   "\" is not running; start dolm-sim, or add --sim to run a "
                                   "private one");
    }
}

std::string refusalText(int32_t result) {
    switch (result) {
        case -11:
            return "unknown resource (code 11)";
        case -12:
            return "value not accepted (code 12)";
        case -13:
            return "unknown handle (code 13)";
        case -14:
            return "malformed request (code 14)";
        case -1:
            return "the call failed (dolm-sim's output tells why)";
        default:
            return "answered " + std::to_string(result);
    }
}

void refused(const std::string& what, int32_t result) {
    throw CommandError(kExitRefused, "the service refused " + what + ": " + refusalText(result));
}

void print(const Context& context, const json& object, const std::string& text) {
    if (context.json) {
        const std::string line = object.dump();
        fprintf(stdout, "%s\n", line.c_str());
    } else if (!text.empty()) {
        fprintf(stdout, "%s\n", text.c_str());
    }
    fflush(stdout);
}

json entriesJson(const std::vector<std::pair<std::string, std::string>>& entries,
                 const char* keyName) {
    json list = json::array();
    for (const auto& [key, value] : entries) list.push_back({{keyName, key}, {"value", value}});
    return list;
}

std::string entriesText(const std::vector<std::pair<std::string, std::string>>& entries) {
    std::string text;
    for (const auto& [key, value] : entries) {
        if (!text.empty()) text += ' ';
        text.append(key).append("=").append(value);
    }
    return text.empty() ? "(none)" : text;
}

// ---- deliveries --------------------------------------------------------------

using Entries = std::vector<std::pair<std::string, std::string>>;

// Deliveries arrive on binder threads; the command's own thread prints them.
class Deliveries {
  public:
    void push(Entries entries) {
        {
            std::lock_guard<std::mutex> lock(mMutex);
            mQueue.push_back(std::move(entries));
        }
        mArrived.notify_all();
    }
    std::optional<Entries> next(std::chrono::milliseconds timeout) {
        std::unique_lock<std::mutex> lock(mMutex);
        if (!mArrived.wait_for(lock, timeout, [this] { return !mQueue.empty(); })) {
            return std::nullopt;
        }
        Entries entries = std::move(mQueue.front());
        mQueue.pop_front();
        return entries;
    }

  private:
    std::mutex mMutex;
    std::condition_variable mArrived;
    std::deque<Entries> mQueue;
};

class IdCallback : public IClientCallback {
  public:
    explicit IdCallback(std::shared_ptr<Deliveries> sink) : mSink(std::move(sink)) {}
    void onCallback(std::list<Resource> resources) override {
        Entries entries;
        for (const Resource& resource : resources) {
            entries.emplace_back(hexId(resource.id), resource.value.value_or(""));
        }
        mSink->push(std::move(entries));
    }

  private:
    std::shared_ptr<Deliveries> mSink;
};

class ThermalCallback : public IClientCallback {
  public:
    explicit ThermalCallback(std::shared_ptr<Deliveries> sink) : mSink(std::move(sink)) {}
    void onCallback(std::list<Resource> resources) override {
        Entries entries;
        for (const Resource& resource : resources) {
            entries.emplace_back(std::to_string(resource.id), resource.value.value_or(""));
        }
        mSink->push(std::move(entries));
    }

  private:
    std::shared_ptr<Deliveries> mSink;
};

class PathCallback : public IClientCallbackByPath {
  public:
    explicit PathCallback(std::shared_ptr<Deliveries> sink) : mSink(std::move(sink)) {}
    void onCallback(std::vector<std::string> values, std::vector<std::string> paths) override {
        Entries entries;
        for (size_t i = 0; i < values.size() && i < paths.size(); ++i) {
            entries.emplace_back(paths[i], values[i]);
        }
        mSink->push(std::move(entries));
    }

  private:
    std::shared_ptr<Deliveries> mSink;
};

struct ListenLimits {
    int count = 0;         // 0: no limit
    double seconds = 0.0;  // 0: no limit
};

// Prints each delivery as it arrives until the count is reached, the time is
// up or the user interrupts. Fewer deliveries than asked for within the time
// is a failure, so scripts can wait for changes.
int printDeliveries(const Context& context, Deliveries& deliveries, const ListenLimits& limits,
                    const char* keyName, const std::string& command) {
    const auto start = std::chrono::steady_clock::now();
    const auto deadline =
            start + std::chrono::milliseconds(static_cast<int64_t>(limits.seconds * 1000.0));
    int received = 0;
    while (limits.count == 0 || received < limits.count) {
        if (context.interrupted != nullptr && context.interrupted->load()) break;
        if (limits.seconds > 0 && std::chrono::steady_clock::now() >= deadline) break;
        std::optional<Entries> entries = deliveries.next(kPollSlice);
        if (!entries) continue;
        ++received;
        const double at =
                std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
        char prefix[64];
        snprintf(prefix, sizeof(prefix), "delivery %d (+%.3fs): ", received, at);
        print(context,
              {{"command", command},
               {"delivery", received},
               {"t", at},
               {"values", entriesJson(*entries, keyName)}},
              prefix + entriesText(*entries));
    }
    if (limits.count > 0 && received < limits.count &&
        (context.interrupted == nullptr || !context.interrupted->load())) {
        throw CommandError(kExitRefused, std::to_string(received) + " of " +
                                                 std::to_string(limits.count) +
                                                 " deliveries arrived within " +
                                                 std::to_string(limits.seconds) + "s");
    }
    return kExitOk;
}

// A one-shot callback is finished by its first delivery.
void printCallback(const Context& context, Deliveries& deliveries, const char* keyName,
                   const std::string& command) {
    std::optional<Entries> entries =
            deliveries.next(std::chrono::duration_cast<std::chrono::milliseconds>(kCallbackWait));
    if (!entries) {
        throw CommandError(kExitRefused, "no callback arrived within " +
                                                 std::to_string(kCallbackWait.count()) + "s");
    }
    print(context,
          {{"command", command}, {"callback", true}, {"values", entriesJson(*entries, keyName)}},
          "callback: " + entriesText(*entries));
    // The library drops the one-shot client from request_callbacks after our
    // callback has returned, on the binder thread. Let it finish before this
    // process may exit and destroy the registry.
    const auto deadline = std::chrono::steady_clock::now() + kCallbackWait;
    for (;;) {
        {
            std::lock_guard<std::mutex> lock(request_callback_mutex);
            if (request_callbacks.empty()) break;
        }
        if (std::chrono::steady_clock::now() >= deadline) break;
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
}

// ---- the simulator's dump output ------------------------------------------------

std::streamoff logSize(const Context& context) {
    if (context.simLog.empty()) return 0;
    std::ifstream in(context.simLog, std::ios::ate);
    return in ? static_cast<std::streamoff>(in.tellg()) : 0;
}

// A private simulator writes its output to zelctl's log: show a dump's table.
std::optional<std::vector<std::string>> dumpLines(const Context& context, std::streamoff from,
                                                  const std::string& name) {
    if (context.simLog.empty()) return std::nullopt;
    std::ifstream in(context.simLog);
    in.seekg(from);
    std::string line;
    while (std::getline(in, line)) {
        const json event = json::parse(line, nullptr, false);
        if (event.is_object() && event.value("event", "") == "dump" &&
            event.value("name", "") == name && event.contains("lines")) {
            return event.at("lines").get<std::vector<std::string>>();
        }
    }
    return std::nullopt;
}

// ---- commands -------------------------------------------------------------------

struct DumpEntry {
    const char* name;
    int (*call)();
};

const DumpEntry kDumps[] = {
        {"ToDoQueue", dolmHalclient::dolmDumpToDoQueue},
        {"RunMap", dolmHalclient::dolmDumpRunMap},
        {"ActiveResMap", dolmHalclient::dolmDumpActiveResMap},
        {"ResRequest", dolmHalclient::dolmDumpResRequest},
        {"ResInfo", dolmHalclient::dolmDumpResInfo},
        {"SAInfo", dolmHalclient::dolmDumpSAInfo},
        {"PidFdList", dolmHalclient::dolmDumpPidFdList},
        {"PidfdMonitorMap", dolmHalclient::dolmDumpPidfdMonitorMap},
        {"ResRecordList", dolmHalclient::dolmDumpResRecordList},
};

bool sameIgnoringCase(const std::string& a, const std::string& b) {
    return a.size() == b.size() && std::equal(a.begin(), a.end(), b.begin(), [](char x, char y) {
               return tolower(static_cast<unsigned char>(x)) ==
                      tolower(static_cast<unsigned char>(y));
           });
}

int32_t actionPosition(const std::string& name) {
    const std::string bare = name.rfind("TALVEN_", 0) == 0 ? name.substr(7) : name;
    auto it = std::find(gActionList.begin(), gActionList.end(), bare);
    if (it == gActionList.end()) {
        throw CommandError(kExitUsage,
                           "unknown action \"" + name + "\" (zelctl actions lists them)");
    }
    return static_cast<int32_t>(it - gActionList.begin());
}

}  // namespace

void addCommands(CLI::App& app, Context& context, std::function<int()>& action,
                 bool& needsQuietSim) {
    Context* ctx = &context;
    auto set = [&action](CLI::App* command, std::function<int()> run) {
        command->callback([&action, run = std::move(run)] { action = run; });
    };

    // acquire ------------------------------------------------------------------
    {
        auto* cmd = app.add_subcommand(
                "acquire", "Acquire an event by action name (ZelEventAcquireWrapper) or number");
        auto name = std::make_shared<std::string>();
        auto pkg = std::make_shared<std::string>();
        auto identity = std::make_shared<std::string>();
        auto timeout = std::make_shared<int32_t>(0);
        auto cmdId = std::make_shared<std::string>();
        auto extra = std::make_shared<std::vector<std::string>>();
        cmd->add_option("action", *name, "ACTION_... name, with or without TALVEN_");
        cmd->add_option("--cmd", *cmdId, "Command id instead of a name (ZelEventAcquire)");
        cmd->add_option("--pkg", *pkg, "Package (scene)");
        cmd->add_option("--identity", *identity, "Identity");
        cmd->add_option("--timeout", *timeout, "Milliseconds to hold; 0 until release");
        cmd->add_option("--res", *extra, "ID=VALUE sent along (with --cmd)");
        set(cmd, [=] {
            if (name->empty() == cmdId->empty()) {
                throw CommandError(kExitUsage, "acquire needs an action name or --cmd N");
            }
            if (!extra->empty() && cmdId->empty()) {
                throw CommandError(kExitUsage, "--res goes with --cmd");
            }
            int32_t position = 0;
            std::list<Resource> resources;
            if (cmdId->empty()) {
                position = actionPosition(*name);
            } else {
                position = parseNumber(*cmdId, "command id");
                resources = resourcesOf(*extra, "resource", false);
            }
            requireService();
            int32_t handle = -1;
            if (cmdId->empty()) {
                const std::string eventId =
                        name->rfind("TALVEN_", 0) == 0 ? *name : "TALVEN_" + *name;
                handle = ZelEventAcquireWrapper(eventId, *pkg, *identity, *timeout);
            } else {
                handle = ZelEventAcquire(position, *pkg, *identity, *timeout,
                                         {resources.begin(), resources.end()});
            }
            if (handle < 0) refused("the acquire", handle);
            const std::string actionName =
                    position >= 0 && static_cast<size_t>(position) < gActionList.size()
                            ? gActionList[static_cast<size_t>(position)]
                            : "";
            print(*ctx,
                  {{"command", "acquire"},
                   {"cmd", position},
                   {"action", actionName},
                   {"timeout", *timeout},
                   {"handle", handle}},
                  "handle " + std::to_string(handle) + " (cmd " + std::to_string(position) +
                          (actionName.empty() ? "" : " " + actionName) + ", timeout " +
                          std::to_string(*timeout) + "ms)");
            return kExitOk;
        });
    }

    // resacquire ------------------------------------------------------------------
    {
        auto* cmd = app.add_subcommand(
                "resacquire", "Acquire resources (ZelResAcquire, or ZelPlatformResAcquire)");
        auto pairs = std::make_shared<std::vector<std::string>>();
        auto identity = std::make_shared<std::string>();
        auto pkg = std::make_shared<std::string>();
        auto timeout = std::make_shared<int32_t>(0);
        auto platform = std::make_shared<bool>(false);
        cmd->add_option("resources", *pairs, "ID=VALUE ...")->required();
        cmd->add_option("--identity", *identity, "Identity");
        cmd->add_option("--pkg", *pkg, "Package (platform form only)");
        cmd->add_option("--timeout", *timeout, "Milliseconds to hold; 0 until release");
        cmd->add_flag("--platform", *platform, "Platform resources");
        set(cmd, [=] {
            const std::list<Resource> list = resourcesOf(*pairs, "resource");
            const std::vector<Resource> resources(list.begin(), list.end());
            requireService();
            const int32_t handle =
                    *platform ? ZelPlatformResAcquire(resources, nullptr, *identity, *pkg, *timeout)
                              : ZelResAcquire(resources, nullptr, *identity, *timeout);
            if (handle < 0) refused("the acquire", handle);
            print(*ctx, {{"command", "resacquire"}, {"handle", handle}},
                  "handle " + std::to_string(handle));
            return kExitOk;
        });
    }

    // release ---------------------------------------------------------------------
    {
        auto* cmd =
                app.add_subcommand("release", "Release a request by handle (dolmResCtlRelease)");
        auto handle = std::make_shared<std::string>();
        cmd->add_option("handle", *handle, "Handle")->required();
        set(cmd, [=] {
            const int32_t value = parseNumber(*handle, "handle");
            requireService();
            const int32_t result = dolmHalclient::dolmResCtlRelease(value);
            if (result < 0) refused("the release of handle " + *handle, result);
            print(*ctx, {{"command", "release"}, {"handle", value}, {"result", result}},
                  "released " + std::to_string(value));
            return kExitOk;
        });
    }

    // resctl ----------------------------------------------------------------------
    {
        auto* cmd = app.add_subcommand("resctl", "Hold resource values (dolmResCtlRequest)");
        auto pairs = std::make_shared<std::vector<std::string>>();
        auto timeout = std::make_shared<int32_t>(0);
        auto callback = std::make_shared<bool>(false);
        cmd->add_option("resources", *pairs, "ID=VALUE ...")->required();
        cmd->add_option("--timeout", *timeout, "Milliseconds to hold; 0 until release");
        cmd->add_flag("--callback", *callback, "Ask for the one-shot callback and print it");
        set(cmd, [=] {
            std::list<Resource> resources = resourcesOf(*pairs, "resource");
            requireService();
            auto deliveries = std::make_shared<Deliveries>();
            const int32_t handle =
                    *callback ? dolmHalclient::dolmResCtlRequest(
                                        -1, *timeout, resources, -1, -1, 0,
                                        std::make_shared<IdCallback>(deliveries))
                              : dolmHalclient::dolmResCtlRequest(*timeout, resources, 0);
            if (handle < 0) refused("the request", handle);
            print(*ctx, {{"command", "resctl"}, {"handle", handle}, {"timeout", *timeout}},
                  "handle " + std::to_string(handle));
            if (*callback) printCallback(*ctx, *deliveries, "id", "resctl");
            return kExitOk;
        });
    }

    // sactl -----------------------------------------------------------------------
    {
        auto* cmd = app.add_subcommand("sactl", "Sub-system request (dolmSACtlRequest)");
        auto said = std::make_shared<std::string>();
        auto timeout = std::make_shared<int32_t>(0);
        auto callback = std::make_shared<bool>(false);
        cmd->add_option("said", *said, "Sub-system id")->required();
        cmd->add_option("--timeout", *timeout, "Milliseconds to hold; 0 until release");
        cmd->add_flag("--callback", *callback, "Ask for the one-shot callback and print it");
        set(cmd, [=] {
            const int32_t id = parseNumber(*said, "sub-system id");
            requireService();
            auto deliveries = std::make_shared<Deliveries>();
            const int32_t handle = *callback ? dolmHalclient::dolmSACtlRequest(
                                                       -1, *timeout, id, -1, -1, 0,
                                                       std::make_shared<IdCallback>(deliveries))
                                             : dolmHalclient::dolmSACtlRequest(*timeout, id, 0);
            if (handle < 0) refused("the sub-system request", handle);
            print(*ctx, {{"command", "sactl"}, {"handle", handle}, {"said", id}},
                  "handle " + std::to_string(handle));
            if (*callback) printCallback(*ctx, *deliveries, "id", "sactl");
            return kExitOk;
        });
    }

    // state -----------------------------------------------------------------------
    {
        auto* cmd = app.add_subcommand("state", "Read current values (dolmResStateRequest)");
        auto ids = std::make_shared<std::vector<std::string>>();
        cmd->add_option("ids", *ids, "Resource ids")->required();
        set(cmd, [=] {
            std::list<Resource> resources = idsOf(*ids);
            requireService();
            std::list<Resource> out;
            if (dolmHalclient::dolmResStateRequest(resources, 0, out) < 0) {
                refused("the state query", -1);
            }
            Entries entries;
            for (const Resource& resource : out) {
                entries.emplace_back(hexId(resource.id), resource.value.value_or(""));
            }
            std::string text;
            for (const auto& [id, value] : entries) {
                if (!text.empty()) text += '\n';
                text.append(id).append(" = ").append(value);
            }
            print(*ctx, {{"command", "state"}, {"values", entriesJson(entries, "id")}}, text);
            return kExitOk;
        });
    }

    const auto addLimits = [](CLI::App* cmd, const std::shared_ptr<ListenLimits>& limits) {
        cmd->add_option("--count", limits->count, "Stop after N deliveries");
        cmd->add_option("--for", limits->seconds, "Stop after SECONDS");
    };

    // listen ----------------------------------------------------------------------
    {
        auto* cmd = app.add_subcommand(
                "listen", "Print changes of resources as they arrive (dolmResListeningRegister)");
        auto ids = std::make_shared<std::vector<std::string>>();
        auto limits = std::make_shared<ListenLimits>();
        cmd->add_option("ids", *ids, "Resource ids")->required();
        addLimits(cmd, limits);
        set(cmd, [=] {
            std::list<Resource> resources = idsOf(*ids);
            requireService();
            auto deliveries = std::make_shared<Deliveries>();
            const int32_t handle = dolmHalclient::dolmResListeningRegister(
                    resources, 0, std::make_shared<IdCallback>(deliveries));
            if (handle < 0) refused("the listener", handle);
            print(*ctx, {{"command", "listen"}, {"listener", handle}},
                  "listening (listener " + std::to_string(handle) + ")");
            struct Unregister {
                int32_t handle;
                ~Unregister() { dolmHalclient::dolmResListeningUnRegister(handle); }
            } unregister{handle};
            return printDeliveries(*ctx, *deliveries, *limits, "id", "listen");
        });
    }

    // thermal ---------------------------------------------------------------------
    {
        auto* thermal = app.add_subcommand("thermal", "Thermal levels: notify, listen");
        thermal->require_subcommand(1);
        auto* notify = thermal->add_subcommand("notify", "Send levels (dolmThermalNotify)");
        auto levels = std::make_shared<std::vector<std::string>>();
        notify->add_option("levels", *levels, "ZONE=LEVEL ...")->required();
        set(notify, [=] {
            std::list<Resource> resources = resourcesOf(*levels, "level");
            requireService();
            if (dolmHalclient::dolmThermalNotify(resources, 0) != 0) {
                refused("the thermal notification", -1);
            }
            print(*ctx, {{"command", "thermal notify"}, {"result", 0}}, "notified");
            return kExitOk;
        });
        auto* listen = thermal->add_subcommand(
                "listen", "Print thermal levels as they arrive (dolmThermalListeningRegister)");
        auto zones = std::make_shared<std::vector<std::string>>();
        auto limits = std::make_shared<ListenLimits>();
        listen->add_option("zones", *zones, "Zone ids (none: all)");
        addLimits(listen, limits);
        set(listen, [=] {
            std::vector<int> ids;
            for (const std::string& zone : *zones) ids.push_back(parseNumber(zone, "zone"));
            requireService();
            auto deliveries = std::make_shared<Deliveries>();
            const int32_t handle = dolmHalclient::dolmThermalListeningRegister(
                    ids, std::make_shared<ThermalCallback>(deliveries));
            if (handle < 0) refused("the thermal listener", handle);
            print(*ctx, {{"command", "thermal listen"}, {"listener", handle}},
                  "listening (thermal listener " + std::to_string(handle) + ")");
            struct Unregister {
                int32_t handle;
                ~Unregister() { dolmHalclient::dolmThermalListeningUnregister(handle); }
            } unregister{handle};
            return printDeliveries(*ctx, *deliveries, *limits, "zone", "thermal listen");
        });
    }

    // path ------------------------------------------------------------------------
    {
        auto* path = app.add_subcommand("path", "Resources by path: set, state, listen");
        path->require_subcommand(1);
        auto* setCmd = path->add_subcommand("set", "Hold values (dolm_resctl_request_by_path)");
        auto pairs = std::make_shared<std::vector<std::string>>();
        auto timeout = std::make_shared<int64_t>(0);
        auto callback = std::make_shared<bool>(false);
        setCmd->add_option("values", *pairs, "PATH=VALUE ...")->required();
        setCmd->add_option("--timeout", *timeout, "Milliseconds to hold; 0 until release");
        setCmd->add_flag("--callback", *callback, "Ask for the one-shot callback and print it");
        set(setCmd, [=] {
            std::vector<std::string> paths;
            std::vector<std::string> values;
            for (const std::string& text : *pairs) {
                auto [key, value] = splitPair(text, "path value");
                paths.push_back(key);
                values.push_back(value);
            }
            requireService();
            auto deliveries = std::make_shared<Deliveries>();
            const int32_t handle =
                    *callback ? dolmHalclient::dolm_resctl_request_with_callback_by_path(
                                        -1, *timeout, paths, values, -1, -1, 0,
                                        std::make_shared<PathCallback>(deliveries))
                              : dolmHalclient::dolm_resctl_request_by_path(-1, *timeout, paths,
                                                                           values, -1, -1, 0);
            if (handle < 0) refused("the request", handle);
            print(*ctx, {{"command", "path set"}, {"handle", handle}},
                  "handle " + std::to_string(handle));
            if (*callback) printCallback(*ctx, *deliveries, "path", "path set");
            return kExitOk;
        });
        auto* state = path->add_subcommand("state", "Read values (dolm_res_state_request_by_path)");
        auto statePaths = std::make_shared<std::vector<std::string>>();
        state->add_option("paths", *statePaths, "Paths")->required();
        set(state, [=] {
            requireService();
            std::vector<std::string> out;
            if (dolmHalclient::dolm_res_state_request_by_path(*statePaths, {}, 0, out) < 0) {
                refused("the state query", -1);
            }
            Entries entries;
            std::string text;
            for (size_t i = 0; i < out.size(); ++i) {
                const std::string key = i < statePaths->size() ? (*statePaths)[i] : "?";
                entries.emplace_back(key, out[i]);
                text += (text.empty() ? "" : "\n") + key + " = " + out[i];
            }
            print(*ctx, {{"command", "path state"}, {"values", entriesJson(entries, "path")}}, text);
            return kExitOk;
        });
        auto* listen = path->add_subcommand(
                "listen", "Print changes as they arrive (dolm_res_listening_register_by_path)");
        auto listenPaths = std::make_shared<std::vector<std::string>>();
        auto limits = std::make_shared<ListenLimits>();
        listen->add_option("paths", *listenPaths, "Paths")->required();
        addLimits(listen, limits);
        set(listen, [=] {
            requireService();
            auto deliveries = std::make_shared<Deliveries>();
            const int32_t handle = dolmHalclient::dolm_res_listening_register_by_path(
                    *listenPaths, 0, std::make_shared<PathCallback>(deliveries));
            if (handle < 0) refused("the listener", handle);
            print(*ctx, {{"command", "path listen"}, {"listener", handle}},
                  "listening (listener " + std::to_string(handle) + ")");
            struct Unregister {
                int32_t handle;
                ~Unregister() { dolmHalclient::dolmResListeningUnRegister(handle); }
            } unregister{handle};
            return printDeliveries(*ctx, *deliveries, *limits, "path", "path listen");
        });
    }

    // notify ------------------------------------------------------------------------
    {
        auto* cmd = app.add_subcommand("notify", "Send a notification (ZelNotifyWapper)");
        auto src = std::make_shared<int32_t>(0);
        auto type = std::make_shared<int32_t>(0);
        auto value = std::make_shared<int32_t>(0);
        auto text = std::make_shared<std::string>();
        auto info = std::make_shared<std::string>("zelctl");
        cmd->add_option("--src", *src, "Source number")->required();
        cmd->add_option("--type", *type, "Type (0 off, 1 on, ...)")->required();
        cmd->add_option("--value", *value, "Value some sources carry");
        cmd->add_option("--text", *text, "Text the list builders parse, e.g. 1200,1500,1800");
        cmd->add_option("--info", *info, "Info text (logged only)")->capture_default_str();
        set(cmd, [=] {
            requireService();
            ZelNotifyWapper(*info, *src, *type, *value, 0, 0, *text);
            print(*ctx, {{"command", "notify"}, {"src", *src}, {"type", *type}},
                  "notified src " + std::to_string(*src) + " type " + std::to_string(*type));
            return kExitOk;
        });
    }

    // rule --------------------------------------------------------------------------
    {
        auto* cmd = app.add_subcommand("rule", "Set a rule's status (zelRuleCtl)");
        auto rule = std::make_shared<std::string>();
        auto status = std::make_shared<std::string>();
        auto pairs = std::make_shared<std::vector<std::string>>();
        cmd->add_option("rule", *rule, "Rule id")->required();
        cmd->add_option("status", *status, "Status")->required();
        cmd->add_option("records", *pairs, "ID=VALUE ...");
        set(cmd, [=] {
            const int32_t ruleId = parseNumber(*rule, "rule id");
            const int32_t ruleStatus = parseNumber(*status, "status");
            const std::list<Resource> list = resourcesOf(*pairs, "record", false);
            requireService();
            const int32_t result =
                    zelRuleCtl(ruleId, ruleStatus, std::vector<Resource>(list.begin(), list.end()));
            if (result < 0) refused("the rule", result);
            print(*ctx,
                  {{"command", "rule"}, {"rule", ruleId}, {"status", ruleStatus}, {"result", result}},
                  "rule " + std::to_string(ruleId) + " status " + std::to_string(ruleStatus));
            return kExitOk;
        });
    }

    // history -----------------------------------------------------------------------
    {
        auto* cmd = app.add_subcommand("history", "The service's request history (ZelGetHistory)");
        set(cmd, [=] {
            requireService();
            std::string history;
            if (ZelGetHistory(history) != 0) {
                throw CommandError(kExitRefused,
                                   "no history: recording is off or nothing was recorded "
                                   "(zelctl record on)");
            }
            // "start:" record { ";" record } ";end"
            std::vector<std::string> records;
            std::string body = history;
            if (body.rfind("start:", 0) == 0) body = body.substr(6);
            if (body.size() >= 4 && body.compare(body.size() - 4, 4, ";end") == 0) {
                body.resize(body.size() - 4);
            }
            size_t from = 0;
            for (size_t at = body.find(';');; at = body.find(';', from)) {
                records.push_back(body.substr(from, at == std::string::npos ? at : at - from));
                if (at == std::string::npos) break;
                from = at + 1;
            }
            std::string text;
            for (const std::string& record : records) text += (text.empty() ? "" : "\n") + record;
            print(*ctx, {{"command", "history"}, {"history", history}, {"records", records}}, text);
            return kExitOk;
        });
    }

    // pm ------------------------------------------------------------------------------
    {
        auto* cmd = app.add_subcommand("pm", "Power-mode status (ZelGetPMStatus)");
        auto mode = std::make_shared<std::string>();
        cmd->add_option("mode", *mode, "Mode")->required();
        set(cmd, [=] {
            const int32_t value = parseNumber(*mode, "mode");
            requireService();
            const int32_t status = ZelGetPMStatus(value);
            if (status < 0) refused("the power-mode query", status);
            print(*ctx, {{"command", "pm"}, {"mode", value}, {"status", status}},
                  "power mode " + std::to_string(value) + ": status " + std::to_string(status));
            return kExitOk;
        });
    }

    // prop ----------------------------------------------------------------------------
    {
        auto* prop = app.add_subcommand("prop", "Service properties: get, set");
        prop->require_subcommand(1);
        auto* get = prop->add_subcommand("get", "Read a property (dolmPropertyGet)");
        auto key = std::make_shared<std::string>();
        get->add_option("key", *key, "Key")->required();
        set(get, [=] {
            requireService();
            std::unique_ptr<char[]> value(dolmHalclient::dolmPropertyGet(*key));
            const std::string text = value != nullptr ? value.get() : "";
            print(*ctx, {{"command", "prop get"}, {"key", *key}, {"value", text}},
                  *key + " = " + text);
            return kExitOk;
        });
        auto* setCmd = prop->add_subcommand("set", "Write a property (dolmPropertySet)");
        auto setKey = std::make_shared<std::string>();
        auto setValue = std::make_shared<std::string>();
        setCmd->add_option("key", *setKey, "Key")->required();
        setCmd->add_option("value", *setValue, "Value")->required();
        set(setCmd, [=] {
            requireService();
            const int32_t result = dolmHalclient::dolmPropertySet(*setKey, *setValue);
            if (result < 0) refused("the property", result);
            print(*ctx, {{"command", "prop set"}, {"key", *setKey}, {"result", result}},
                  *setKey + " = " + *setValue);
            return kExitOk;
        });
    }

    // dump ----------------------------------------------------------------------------
    {
        std::string names;
        for (const DumpEntry& dump : kDumps)
            names += (names.empty() ? "" : ", ") + std::string(dump.name);
        auto* cmd = app.add_subcommand("dump", "Ask the service to dump a table: " + names);
        auto name = std::make_shared<std::string>();
        cmd->add_option("name", *name, "Table name")->required();
        set(cmd, [=] {
            const DumpEntry* entry = nullptr;
            for (const DumpEntry& dump : kDumps) {
                if (sameIgnoringCase(dump.name, *name)) entry = &dump;
            }
            if (entry == nullptr) {
                throw CommandError(kExitUsage, "unknown dump \"" + *name + "\" (" + names + ")");
            }
            requireService();
            const std::streamoff before = logSize(*ctx);
            if (entry->call() != 0) refused("the dump", -1);
            const std::optional<std::vector<std::string>> lines =
                    dumpLines(*ctx, before, entry->name);
            std::string text = std::string("dumped ") + entry->name;
            if (lines) {
                for (const std::string& line : *lines) text += "\n  " + line;
            } else {
                text += " (the table is in dolm-sim's output)";
            }
            json object = {{"command", "dump"}, {"name", entry->name}, {"result", 0}};
            if (lines) object["lines"] = *lines;
            print(*ctx, object, text);
            return kExitOk;
        });
    }

    // record --------------------------------------------------------------------------
    {
        auto* cmd = app.add_subcommand("record", "Switch history recording on or off");
        auto state = std::make_shared<std::string>();
        cmd->add_option("state", *state, "on or off")
                ->required()
                ->check(CLI::IsMember({"on", "off"}));
        set(cmd, [=] {
            requireService();
            const int result = *state == "on" ? dolmHalclient::dolmHistoryRequestRecordOn()
                                              : dolmHalclient::dolmHistoryRequestRecordOff();
            if (result != 0) refused("the recording switch", -1);
            print(*ctx, {{"command", "record"}, {"on", *state == "on"}},
                  "history recording " + *state);
            return kExitOk;
        });
    }

    // init, sysinfo -------------------------------------------------------------------
    {
        auto* cmd = app.add_subcommand("init", "Connect and call the service's init (zelInit)");
        set(cmd, [=] {
            requireService();
            const int32_t result = zelInit();
            if (result != 0) refused("init", result);
            print(*ctx, {{"command", "init"}, {"result", result}}, "initialised");
            return kExitOk;
        });
        auto* sysinfo =
                app.add_subcommand("sysinfo", "Pass related system info (setRelatedSysInfo)");
        auto type = std::make_shared<std::string>();
        auto info = std::make_shared<std::string>();
        sysinfo->add_option("type", *type, "Type")->required();
        sysinfo->add_option("info", *info, "Info text")->required();
        set(sysinfo, [=] {
            const int32_t value = parseNumber(*type, "type");
            requireService();
            const int32_t result = setRelatedSysInfo(value, *info);
            if (result < 0) refused("the system info", result);
            print(*ctx, {{"command", "sysinfo"}, {"type", value}, {"result", result}},
                  "sysinfo " + std::to_string(value) + " sent");
            return kExitOk;
        });
    }

    // actions -------------------------------------------------------------------------
    {
        auto* cmd = app.add_subcommand("actions", "List the action table with positions");
        set(cmd, [=] {
            for (size_t i = 0; i < gActionList.size(); ++i) {
                std::string position = std::to_string(i);
                position.insert(0, position.size() < 3 ? 3 - position.size() : 0, ' ');
                print(*ctx, {{"cmd", i}, {"action", gActionList[i]}},
                      position + "  " + gActionList[i]);
            }
            return kExitOk;
        });
    }

    // bench ---------------------------------------------------------------------------
    {
        auto* cmd = app.add_subcommand(
                "bench", "Measure sustained calls per second (resctl + release pairs)");
        auto threads = std::make_shared<int>(8);
        auto seconds = std::make_shared<double>(3.0);
        cmd->add_option("--threads", *threads, "Client threads")->capture_default_str();
        cmd->add_option("--seconds", *seconds, "Duration")->capture_default_str();
        cmd->parse_complete_callback([&needsQuietSim] { needsQuietSim = true; });
        set(cmd, [=] {
            if (*threads < 1 || *seconds <= 0) {
                throw CommandError(kExitUsage, "bench needs --threads >= 1 and --seconds > 0");
            }
            requireService();
            std::atomic<bool> stop{false};
            std::atomic<int64_t> calls{0};
            std::atomic<int64_t> failures{0};
            std::vector<std::thread> workers;
            workers.reserve(static_cast<size_t>(*threads));
            const auto start = std::chrono::steady_clock::now();
            for (int t = 0; t < *threads; ++t) {
                workers.emplace_back([&] {
                    std::list<Resource> resources = {{0x01010010, "1000000"}};
                    while (!stop.load(std::memory_order_relaxed)) {
                        const int32_t handle = dolmHalclient::dolmResCtlRequest(0, resources, 0);
                        const int32_t released = dolmHalclient::dolmResCtlRelease(handle);
                        if (handle < 0 || released != 0) failures.fetch_add(1);
                        calls.fetch_add(2, std::memory_order_relaxed);
                    }
                });
            }
            std::this_thread::sleep_for(std::chrono::duration<double>(*seconds));
            stop = true;
            for (std::thread& worker : workers) worker.join();
            const double elapsed =
                    std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
            const double rate = static_cast<double>(calls.load()) / elapsed;
            char text[160];
            snprintf(text, sizeof(text),
                     "%lld calls in %.2fs with %d threads: %.0f calls/s (%lld failed pairs)",
                     static_cast<long long>(calls.load()), elapsed, *threads, rate,
                     static_cast<long long>(failures.load()));
            print(*ctx,
                  {{"command", "bench"},
                   {"threads", *threads},
                   {"seconds", elapsed},
                   {"calls", calls.load()},
                   {"calls_per_second", rate},
                   {"failed_pairs", failures.load()}},
                  text);
            return failures.load() == 0 ? kExitOk : kExitRefused;
        });
    }
}

}  // namespace zelctl
