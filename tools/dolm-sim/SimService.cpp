#include "SimService.h"

#include <cstdio>

namespace dolmsim {
namespace {

constexpr int32_t kReqResCtl = 1;
constexpr int32_t kReqSaCtl = 2;
constexpr int32_t kReqDiag = 5;
constexpr int32_t kReqThermalNotify = 7;
constexpr int32_t kReqEvent = 8;
constexpr int32_t kReqNotify = 10;
constexpr int32_t kReqHistory = 11;
constexpr int32_t kReqPlatformRes = 12;
constexpr int32_t kReqPmStatus = 13;
constexpr int32_t kDiagRecordOn = 10;
constexpr int32_t kDiagRecordOff = 11;
constexpr size_t kMaxPropertyValue = 255;

std::string hexId(int32_t id) {
    char text[16];
    snprintf(text, sizeof(text), "0x%08X", static_cast<uint32_t>(id));
    return text;
}

// Entries of a control request as targets. An id-0 entry without a path
// carries no value (the client sends such place holders) and is left out.
std::vector<Target> targetsOf(const std::vector<DolmRequestData>& data, size_t from = 0) {
    std::vector<Target> targets;
    for (size_t i = from; i < data.size(); ++i) {
        if (data[i].id == 0 && !data[i].path) continue;
        targets.push_back({data[i].id, data[i].path, data[i].value.value_or("")});
    }
    return targets;
}

// Targets as text: "0x01010010=1800000,/sys/...=1"; zones in decimal; no "=" for queries.
std::string describe(const std::vector<Target>& targets, bool zones = false, bool values = true) {
    std::string text;
    for (const Target& target : targets) {
        if (!text.empty()) text += ",";
        text += target.id == 0 && target.path ? *target.path
                : zones                       ? std::to_string(target.id)
                                              : hexId(target.id);
        if (values) text += "=" + target.value;
    }
    return text.empty() ? "-" : text;
}

std::string clientText(const DolmRequestParcel& parcel) {
    std::string text;
    if (parcel.pkg) text += " pkg=" + (parcel.pkg->empty() ? std::string("none") : *parcel.pkg);
    if (parcel.identity) {
        text += " identity=" + (parcel.identity->empty() ? std::string("none") : *parcel.identity);
    }
    return text;
}

}  // namespace

const char* dumpName(int32_t code) {
    static const char* const kNames[] = {"ToDoQueue",  "RunMap",          "ActiveResMap",
                                         "ResRequest", "ResInfo",         "SAInfo",
                                         "PidFdList",  "PidfdMonitorMap", "ResRecordList"};
    return code >= 0 && code < 9 ? kNames[code] : nullptr;
}

SimService::SimService(Model& model, Reporter reporter)
    : mModel(model), mReporter(std::move(reporter)) {}

void SimService::call(const std::string& line, const nlohmann::json& fields) {
    if (mReporter) mReporter(line, fields);
}

int32_t SimService::refuse(const std::string& op, int32_t code, const std::string& why) {
    call(op + " refused: " + errorName(code) + " (code " + std::to_string(code) + "): " + why,
         {{"event", "refused"}, {"op", op}, {"code", code}, {"error", errorName(code)}, {"why", why}});
    return -code;
}

::ndk::ScopedAStatus SimService::refuseStatus(const std::string& op, int32_t code,
                                              const std::string& why) {
    refuse(op, code, why);
    return ::ndk::ScopedAStatus::fromServiceSpecificError(code);
}

::ndk::ScopedAStatus SimService::init() {
    call("init", {{"event", "call"}, {"op", "init"}});
    return ::ndk::ScopedAStatus::ok();
}

int32_t SimService::control(const DolmRequestParcel& parcel) {
    const bool byPath = parcel.tags.has_value();
    RequestInfo info;
    info.timeoutMs = parcel.timeout;
    std::vector<ResourceSetting> settings;
    std::vector<Target> extra;
    switch (parcel.requestType) {
        case kReqResCtl:
        case kReqPlatformRes:
            info.kind = parcel.requestType == kReqResCtl ? (byPath ? "resctl-path" : "resctl")
                                                         : "platform";
            extra = targetsOf(parcel.data);
            info.detail = describe(extra) + clientText(parcel);
            break;
        case kReqSaCtl: {
            if (parcel.data.size() != 1) {
                return refuse("request", kErrBadRequest, "a sub-system request names one id");
            }
            const ResourceSet* set = mModel.subsystem(parcel.data[0].id);
            if (set == nullptr) {
                return refuse("request", kErrUnknownResource,
                              "no sub-system " + std::to_string(parcel.data[0].id));
            }
            info.kind = "sactl";
            info.detail = std::to_string(set->id) + " (" + set->name + ")";
            settings = set->settings;
            break;
        }
        case kReqEvent: {
            if (parcel.data.empty()) {
                return refuse("request", kErrBadRequest, "an event request names its command");
            }
            const int32_t cmd = parcel.data[0].id;
            const ResourceSet* action = mModel.action(cmd);
            info.kind = "event";
            info.detail = "cmd " + std::to_string(cmd) + " (" +
                          (action != nullptr ? action->name : std::string("no resources mapped")) +
                          ")" + clientText(parcel);
            if (action != nullptr) settings = action->settings;
            extra = targetsOf(parcel.data, 1);
            break;
        }
        default:
            return refuse("request", kErrBadRequest,
                          "request type " + std::to_string(parcel.requestType));
    }
    std::vector<ResourceSetting> resolved;
    const int32_t code = mModel.resolve(extra, resolved);
    if (code != 0) return refuse("request", code, info.kind + " " + describe(extra));
    settings.insert(settings.end(), resolved.begin(), resolved.end());
    return mModel.acquire(info, std::move(settings), parcel.callback);
}

::ndk::ScopedAStatus SimService::request(const DolmRequestParcel& parcel, int32_t* result) {
    switch (parcel.requestType) {
        case kReqThermalNotify: {
            const std::vector<Target> levels = targetsOf(parcel.data);
            call("thermal notify " + describe(levels, true),
                 {{"event", "call"}, {"op", "thermal_notify"}, {"levels", describe(levels, true)}});
            *result = mModel.thermalNotify(levels);
            break;
        }
        case kReqNotify: {
            if (parcel.data.empty()) {
                *result = refuse("notify", kErrBadRequest, "no entry");
                break;
            }
            const int32_t id = parcel.data[0].id;
            const int32_t param = parcel.data[0].param;
            call("notify " + std::to_string(id) + " param " + std::to_string(param) + " x" +
                         std::to_string(parcel.data.size()) + ": rule " + std::to_string(id) +
                         " status " + std::to_string(param),
                 {{"event", "call"},
                  {"op", "notify"},
                  {"id", id},
                  {"param", param},
                  {"count", parcel.data.size()}});
            *result = mModel.ruleCtl(id, param, {});
            break;
        }
        case kReqDiag: {
            const int32_t code = parcel.data.size() == 1 ? parcel.data[0].id : -1;
            if (code == kDiagRecordOn || code == kDiagRecordOff) {
                mModel.setRecording(code == kDiagRecordOn);
                call(std::string("history recording ") + (code == kDiagRecordOn ? "on" : "off"),
                     {{"event", "call"}, {"op", "record"}, {"on", code == kDiagRecordOn}});
                *result = 1;
                break;
            }
            const std::optional<std::vector<std::string>> lines = mModel.dump(code);
            if (!lines || dumpName(code) == nullptr) {
                *result = refuse("diagnostics", kErrBadRequest, "code " + std::to_string(code));
                break;
            }
            call(std::string("dump ") + dumpName(code) + ": " + std::to_string(lines->size()) +
                         " line(s)",
                 {{"event", "dump"}, {"name", dumpName(code)}, {"lines", *lines}});
            for (const std::string& line : *lines) {
                call("  " + line,
                     {{"event", "dump_line"}, {"name", dumpName(code)}, {"line", line}});
            }
            *result = 1;
            break;
        }
        default:
            *result = control(parcel);
            break;
    }
    return ::ndk::ScopedAStatus::ok();
}

::ndk::ScopedAStatus SimService::release(int32_t handle, int32_t* result) {
    *result = mModel.release(handle);
    return ::ndk::ScopedAStatus::ok();
}

::ndk::ScopedAStatus SimService::getData(const DolmRequestParcel& parcel,
                                         std::vector<DolmRequestData>* result) {
    result->clear();
    switch (parcel.requestType) {
        case kReqHistory: {
            const std::vector<std::string> history = mModel.history();
            for (const std::string& text : history) {
                DolmRequestData data;
                data.extra = text;
                result->push_back(std::move(data));
            }
            call("history: " + std::to_string(history.size()) + " record(s)",
                 {{"event", "call"}, {"op", "history"}, {"count", history.size()}});
            return ::ndk::ScopedAStatus::ok();
        }
        case kReqPmStatus: {
            if (parcel.data.empty()) {
                return refuseStatus("power mode", kErrBadRequest, "no mode given");
            }
            const int32_t mode = parcel.data[0].id;
            const int32_t status = mModel.powerModeStatus(mode);
            DolmRequestData data;
            data.id = mode;
            data.value = std::to_string(status);
            result->push_back(std::move(data));
            call("power mode " + std::to_string(mode) + ": status " + std::to_string(status),
                 {{"event", "call"}, {"op", "pm_status"}, {"mode", mode}, {"status", status}});
            return ::ndk::ScopedAStatus::ok();
        }
        case 0: {
            std::vector<Target> targets;
            for (const DolmRequestData& entry : parcel.data) {
                targets.push_back({entry.id, entry.path, ""});
            }
            const int32_t code = mModel.state(targets, *result);
            if (code != 0) return refuseStatus("state", code, describe(targets, false, false));
            std::string values;
            for (const DolmRequestData& entry : *result) {
                values += (values.empty() ? "" : ",") + hexId(entry.id) + "=" +
                          entry.value.value_or("");
            }
            call("state " + (values.empty() ? std::string("-") : values),
                 {{"event", "call"}, {"op", "state"}, {"values", values}});
            return ::ndk::ScopedAStatus::ok();
        }
        default:
            return refuseStatus("getData", kErrBadRequest,
                                "request type " + std::to_string(parcel.requestType));
    }
}

::ndk::ScopedAStatus SimService::registerListener(const DolmRequestParcel& parcel,
                                                  const std::shared_ptr<IDolmCallback>& callback,
                                                  int32_t* result) {
    std::vector<Target> targets;
    std::vector<int32_t> ids;
    std::vector<std::string> paths;
    for (const DolmRequestData& entry : parcel.data) {
        targets.push_back({entry.id, entry.path, ""});
        if (entry.id != 0 || !entry.path) ids.push_back(entry.id);
        if (entry.path) paths.push_back(*entry.path);
    }
    std::vector<DolmRequestData> known;
    if (callback == nullptr) {
        *result = refuse("listen", kErrBadRequest, "no callback");
    } else if (const int32_t code = mModel.state(targets, known); code != 0) {
        *result = refuse("listen", code, describe(targets, false, false));
    } else {
        *result = mModel.addListener(ids, paths, callback);
        const std::string on = describe(targets, false, false);
        call("listener " + std::to_string(*result) + " on " + on,
             {{"event", "call"}, {"op", "listen"}, {"listener", *result}, {"on", on}});
    }
    return ::ndk::ScopedAStatus::ok();
}

::ndk::ScopedAStatus SimService::unregisterListener(int32_t handle, int32_t* result) {
    *result = mModel.removeListener(handle);
    if (*result != 0) {
        refuse("unlisten", kErrUnknownHandle, "listener " + std::to_string(handle));
    } else {
        call("listener " + std::to_string(handle) + " removed",
             {{"event", "call"}, {"op", "unlisten"}, {"listener", handle}});
    }
    return ::ndk::ScopedAStatus::ok();
}

::ndk::ScopedAStatus SimService::getProperty(const std::string& key, std::string* result) {
    *result = mModel.property(key);
    call("property " + key + " = " + *result,
         {{"event", "call"}, {"op", "prop_get"}, {"key", key}, {"value", *result}});
    return ::ndk::ScopedAStatus::ok();
}

::ndk::ScopedAStatus SimService::setProperty(const std::string& key, const std::string& value,
                                             int32_t* result) {
    if (key.empty()) {
        *result = refuse("property", kErrBadRequest, "empty key");
        return ::ndk::ScopedAStatus::ok();
    }
    // Clients read values into 256-byte buffers; a longer one could never be read back.
    if (value.size() > kMaxPropertyValue) {
        *result = refuse("property", kErrBadValue,
                         key + ": value longer than " + std::to_string(kMaxPropertyValue));
        return ::ndk::ScopedAStatus::ok();
    }
    *result = mModel.setProperty(key, value);
    call("property " + key + " := " + value,
         {{"event", "call"}, {"op", "prop_set"}, {"key", key}, {"value", value}});
    return ::ndk::ScopedAStatus::ok();
}

::ndk::ScopedAStatus SimService::registerThermalListener(
        const std::vector<int32_t>& ids, const std::shared_ptr<IDolmCallback>& callback,
        int32_t* result) {
    if (callback == nullptr) {
        *result = refuse("thermal listen", kErrBadRequest, "no callback");
        return ::ndk::ScopedAStatus::ok();
    }
    *result = mModel.addThermalListener(ids, callback);
    std::string zones;
    for (int32_t id : ids) zones += (zones.empty() ? "" : ",") + std::to_string(id);
    call("thermal listener " + std::to_string(*result) + " on " + (zones.empty() ? "all" : zones),
         {{"event", "call"}, {"op", "thermal_listen"}, {"listener", *result}, {"zones", ids}});
    return ::ndk::ScopedAStatus::ok();
}

::ndk::ScopedAStatus SimService::unregisterThermalListener(int32_t handle, int32_t* result) {
    *result = mModel.removeThermalListener(handle);
    if (*result != 0) {
        refuse("thermal unlisten", kErrUnknownHandle, "listener " + std::to_string(handle));
    } else {
        call("thermal listener " + std::to_string(handle) + " removed",
             {{"event", "call"}, {"op", "thermal_unlisten"}, {"listener", handle}});
    }
    return ::ndk::ScopedAStatus::ok();
}

::ndk::ScopedAStatus SimService::reserved(const DolmRequestParcel& /*parcel*/, int32_t* result) {
    *result = refuse("reserved", kErrBadRequest, "not served");
    return ::ndk::ScopedAStatus::ok();
}

::ndk::ScopedAStatus SimService::setRelatedSysInfo(int32_t type, const std::string& info,
                                                   int32_t* result) {
    *result = mModel.setSysInfo(type, info);
    call("sysinfo " + std::to_string(type) + " = " + info,
         {{"event", "call"}, {"op", "sysinfo"}, {"type", type}, {"info", info}});
    return ::ndk::ScopedAStatus::ok();
}

::ndk::ScopedAStatus SimService::ruleCtl(int32_t ruleId, int32_t status,
                                         const std::vector<DolmRequestData>& data, int32_t* result) {
    std::vector<Target> records = targetsOf(data);
    const std::string text = describe(records);
    *result = mModel.ruleCtl(ruleId, status, std::move(records));
    call("rule " + std::to_string(ruleId) + " status " + std::to_string(status) + " records " + text,
         {{"event", "call"}, {"op", "rule"}, {"rule", ruleId}, {"status", status}, {"records", text}});
    return ::ndk::ScopedAStatus::ok();
}

}  // namespace dolmsim
