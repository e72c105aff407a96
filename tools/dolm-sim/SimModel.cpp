#include "SimModel.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <sstream>

namespace dolmsim {
namespace {

std::string hexId(int32_t id) {
    char text[16];
    snprintf(text, sizeof(text), "0x%08X", static_cast<uint32_t>(id));
    return text;
}

bool parseValue(const std::string& text, int64_t& value) {
    if (text.empty()) return false;
    char* end = nullptr;
    errno = 0;
    value = strtoll(text.c_str(), &end, 10);
    return *end == '\0' && errno == 0;
}

std::string describe(const std::vector<ResourceSetting>& settings) {
    std::string text;
    for (const ResourceSetting& setting : settings) {
        if (!text.empty()) text += ",";
        text += hexId(setting.id) + "=" + setting.value;
    }
    return text.empty() ? "-" : text;
}

nlohmann::json settingsJson(const std::vector<ResourceSetting>& settings) {
    nlohmann::json list = nlohmann::json::array();
    for (const ResourceSetting& setting : settings) {
        list.push_back({{"id", hexId(setting.id)}, {"value", setting.value}});
    }
    return list;
}

DolmRequestData entry(const ResourceSpec& spec, const std::string& value) {
    DolmRequestData data;
    data.id = spec.id;
    data.value = value;
    data.path = spec.path;
    return data;
}

}  // namespace

const char* errorName(int32_t code) {
    switch (code) {
        case kErrUnknownResource:
            return "unknown resource";
        case kErrBadValue:
            return "value not accepted";
        case kErrUnknownHandle:
            return "unknown handle";
        case kErrBadRequest:
            return "malformed request";
        default:
            return "refused";
    }
}

Model::Model(SimConfig config, Reporter reporter)
    : mConfig(std::move(config)), mReporter(std::move(reporter)) {
    for (const ResourceSpec& spec : mConfig.resources) mEffective[spec.id] = spec.defaultValue;
    mProperties = mConfig.properties;
    mThread = std::thread([this] { run(); });
}

Model::~Model() {
    {
        std::lock_guard<std::mutex> lock(mMutex);
        mStopping = true;
    }
    mWake.notify_all();
    mThread.join();
}

void Model::report(const std::string& line, const nlohmann::json& fields) const {
    if (mReporter) mReporter(line, fields);
}

const ResourceSpec* Model::specLocked(int32_t id) const {
    for (const ResourceSpec& spec : mConfig.resources) {
        if (spec.id == id) return &spec;
    }
    return nullptr;
}

const ResourceSpec* Model::specByPathLocked(const std::string& path) const {
    for (const ResourceSpec& spec : mConfig.resources) {
        if (spec.path == path) return &spec;
    }
    return nullptr;
}

int32_t Model::resolve(const std::vector<Target>& targets,
                       std::vector<ResourceSetting>& settings) const {
    settings.clear();
    for (const Target& target : targets) {
        const ResourceSpec* spec = target.id != 0 || !target.path ? specLocked(target.id)
                                                                  : specByPathLocked(*target.path);
        if (spec == nullptr) return kErrUnknownResource;
        int64_t value = 0;
        if (spec->numeric &&
            (!parseValue(target.value, value) || value < spec->min || value > spec->max)) {
            return kErrBadValue;
        }
        settings.push_back({spec->id, target.value});
    }
    return 0;
}

const ResourceSet* Model::subsystem(int32_t id) const {
    for (const ResourceSet& set : mConfig.subsystems) {
        if (set.id == id) return &set;
    }
    return nullptr;
}

const ResourceSet* Model::action(int32_t cmd) const {
    for (const ResourceSet& set : mConfig.actions) {
        if (set.id == cmd) return &set;
    }
    return nullptr;
}

int32_t Model::acquire(const RequestInfo& info, std::vector<ResourceSetting> settings,
                       const std::shared_ptr<IDolmCallback>& oneShot) {
    std::lock_guard<std::mutex> lock(mMutex);
    const int32_t handle = mNextHandle++;
    Request request;
    request.info = info;
    request.settings = std::move(settings);
    request.sequence = ++mSequence;
    if (info.timeoutMs > 0) {
        request.deadline = Clock::now() + std::chrono::milliseconds(info.timeoutMs);
    }
    const std::string values = describe(request.settings);
    report("acquired handle " + std::to_string(handle) + ": " + info.kind + " " + info.detail +
                   " timeout " + std::to_string(info.timeoutMs) + "ms values " + values,
           {{"event", "acquired"},
            {"handle", handle},
            {"kind", info.kind},
            {"detail", info.detail},
            {"timeout_ms", info.timeoutMs},
            {"values", settingsJson(request.settings)}});
    recordLocked("handle " + std::to_string(handle) + " " + info.kind + " " + info.detail +
                 " timeout " + std::to_string(info.timeoutMs) + " values " + values);
    std::vector<ResourceSetting> held = request.settings;
    mRequests.emplace(handle, std::move(request));
    recomputeLocked("acquire");
    if (oneShot != nullptr) {
        Delivery delivery{oneShot, {}, 0};
        for (const ResourceSetting& setting : held) {
            delivery.data.push_back(entry(*specLocked(setting.id), mEffective[setting.id]));
        }
        mDeliveries.push_back(std::move(delivery));
    }
    mWake.notify_all();
    return handle;
}

int32_t Model::release(int32_t handle) {
    std::lock_guard<std::mutex> lock(mMutex);
    if (mRequests.erase(handle) == 0) {
        report("release of handle " + std::to_string(handle) + " refused: unknown handle",
               {{"event", "refused"},
                {"op", "release"},
                {"handle", handle},
                {"code", kErrUnknownHandle}});
        return -kErrUnknownHandle;
    }
    report("released handle " + std::to_string(handle), {{"event", "released"}, {"handle", handle}});
    recomputeLocked("release");
    mWake.notify_all();
    return 0;
}

void Model::recomputeLocked(const char* why) {
    std::vector<const ResourceSpec*> changed;
    for (const ResourceSpec& spec : mConfig.resources) {
        std::optional<std::string> value;
        std::optional<int64_t> number;
        uint64_t latest = 0;
        for (const auto& [handle, request] : mRequests) {
            for (const ResourceSetting& setting : request.settings) {
                if (setting.id != spec.id) continue;
                int64_t candidate = 0;
                parseValue(setting.value, candidate);
                const bool wins = !value ||
                                  (spec.combine == Combine::kHighest && candidate > *number) ||
                                  (spec.combine == Combine::kLowest && candidate < *number) ||
                                  (spec.combine == Combine::kLatest && request.sequence >= latest);
                if (wins) {
                    value = setting.value;
                    number = candidate;
                    latest = request.sequence;
                }
            }
        }
        const std::string now = value.value_or(spec.defaultValue);
        std::string& current = mEffective[spec.id];
        if (current == now) continue;
        std::string line = "value " + spec.name + " (" + hexId(spec.id) + "): ";
        line += current + " -> " + now + " (" + why + ")";
        report(line, {{"event", "changed"},
                      {"id", hexId(spec.id)},
                      {"name", spec.name},
                      {"old", current},
                      {"new", now},
                      {"cause", why}});
        current = now;
        changed.push_back(&spec);
    }
    if (changed.empty()) return;
    for (const auto& [handle, listener] : mListeners) {
        if (listener.thermal) continue;
        Delivery delivery{listener.callback, {}, handle};
        for (const ResourceSpec* spec : changed) {
            if (listener.ids.count(spec->id) != 0 ||
                (spec->path && listener.paths.count(*spec->path) != 0)) {
                delivery.data.push_back(entry(*spec, mEffective[spec->id]));
            }
        }
        if (!delivery.data.empty()) mDeliveries.push_back(std::move(delivery));
    }
}

int32_t Model::state(const std::vector<Target>& targets, std::vector<DolmRequestData>& out) const {
    std::lock_guard<std::mutex> lock(mMutex);
    out.clear();
    for (const Target& target : targets) {
        const ResourceSpec* spec = target.id != 0 || !target.path ? specLocked(target.id)
                                                                  : specByPathLocked(*target.path);
        if (spec == nullptr) return kErrUnknownResource;
        DolmRequestData data = entry(*spec, mEffective.at(spec->id));
        if (target.id == 0 && target.path) data.path = target.path;
        out.push_back(std::move(data));
    }
    return 0;
}

int32_t Model::addListener(std::vector<int32_t> ids, std::vector<std::string> paths,
                           const std::shared_ptr<IDolmCallback>& callback) {
    std::lock_guard<std::mutex> lock(mMutex);
    const int32_t handle = mNextListener++;
    Listener listener;
    listener.ids.insert(ids.begin(), ids.end());
    listener.paths.insert(paths.begin(), paths.end());
    listener.callback = callback;
    mListeners.emplace(handle, std::move(listener));
    return handle;
}

int32_t Model::addThermalListener(std::vector<int32_t> ids,
                                  const std::shared_ptr<IDolmCallback>& callback) {
    std::lock_guard<std::mutex> lock(mMutex);
    const int32_t handle = mNextListener++;
    Listener listener;
    listener.ids.insert(ids.begin(), ids.end());
    listener.callback = callback;
    listener.thermal = true;
    mListeners.emplace(handle, std::move(listener));
    return handle;
}

int32_t Model::removeListener(int32_t handle) {
    std::lock_guard<std::mutex> lock(mMutex);
    auto it = mListeners.find(handle);
    if (it == mListeners.end() || it->second.thermal) return -kErrUnknownHandle;
    mListeners.erase(it);
    return 0;
}

int32_t Model::removeThermalListener(int32_t handle) {
    std::lock_guard<std::mutex> lock(mMutex);
    auto it = mListeners.find(handle);
    if (it == mListeners.end() || !it->second.thermal) return -kErrUnknownHandle;
    mListeners.erase(it);
    return 0;
}

int32_t Model::thermalNotify(const std::vector<Target>& levels) {
    std::lock_guard<std::mutex> lock(mMutex);
    for (const Target& level : levels) mThermalLevels[level.id] = level.value;
    for (const auto& [handle, listener] : mListeners) {
        if (!listener.thermal) continue;
        Delivery delivery{listener.callback, {}, handle};
        for (const Target& level : levels) {
            if (!listener.ids.empty() && listener.ids.count(level.id) == 0) continue;
            DolmRequestData data;
            data.id = level.id;
            data.value = level.value;
            delivery.data.push_back(std::move(data));
        }
        if (!delivery.data.empty()) mDeliveries.push_back(std::move(delivery));
    }
    mWake.notify_all();
    return 1;
}

int32_t Model::ruleCtl(int32_t rule, int32_t status, std::vector<Target> records) {
    std::lock_guard<std::mutex> lock(mMutex);
    mRules[rule] = {status, std::move(records)};
    return 0;
}

int32_t Model::setSysInfo(int32_t type, const std::string& info) {
    std::lock_guard<std::mutex> lock(mMutex);
    mSysInfo[type] = info;
    return 0;
}

std::string Model::property(const std::string& key) const {
    std::lock_guard<std::mutex> lock(mMutex);
    auto it = mProperties.find(key);
    return it == mProperties.end() ? std::string() : it->second;
}

int32_t Model::setProperty(const std::string& key, const std::string& value) {
    std::lock_guard<std::mutex> lock(mMutex);
    mProperties[key] = value;
    return 0;
}

int32_t Model::powerModeStatus(int32_t mode) const {
    std::lock_guard<std::mutex> lock(mMutex);
    auto property = mProperties.find("dolm.pm." + std::to_string(mode));
    int64_t value = 0;
    if (property != mProperties.end() && parseValue(property->second, value)) {
        return static_cast<int32_t>(value);
    }
    auto configured = mConfig.powerModes.find(mode);
    return configured != mConfig.powerModes.end() ? configured->second : mConfig.powerModeDefault;
}

void Model::setRecording(bool on) {
    std::lock_guard<std::mutex> lock(mMutex);
    mRecording = on;
}

void Model::recordLocked(const std::string& text) {
    if (mRecording) mHistory.push_back(text);
}

std::vector<std::string> Model::history() const {
    std::lock_guard<std::mutex> lock(mMutex);
    return mRecording ? mHistory : std::vector<std::string>();
}

std::optional<std::string> Model::effective(int32_t id) const {
    std::lock_guard<std::mutex> lock(mMutex);
    auto it = mEffective.find(id);
    if (it == mEffective.end()) return std::nullopt;
    return it->second;
}

std::optional<std::vector<std::string>> Model::dump(int32_t code) const {
    std::lock_guard<std::mutex> lock(mMutex);
    std::vector<std::string> lines;
    const auto now = Clock::now();
    const auto join = [](const auto& values) {
        std::ostringstream text;
        for (const auto& value : values) text << (text.tellp() > 0 ? "," : "") << value;
        return text.str();
    };
    switch (code) {
        case 0:  // ToDoQueue: the pending timeouts, soonest first
        {
            std::vector<std::pair<Clock::time_point, int32_t>> due;
            for (const auto& [handle, request] : mRequests) {
                if (request.deadline) due.emplace_back(*request.deadline, handle);
            }
            std::sort(due.begin(), due.end());
            for (const auto& [deadline, handle] : due) {
                const auto left =
                        std::chrono::duration_cast<std::chrono::milliseconds>(deadline - now);
                lines.push_back("handle " + std::to_string(handle) + " expires in " +
                                std::to_string(std::max<int64_t>(0, left.count())) + "ms");
            }
            break;
        }
        case 1:  // RunMap: the rules
            for (const auto& [rule, entry] : mRules) {
                std::vector<std::string> records;
                for (const Target& record : entry.second) {
                    records.push_back(hexId(record.id) + "=" + record.value);
                }
                lines.push_back("rule " + std::to_string(rule) + " status " +
                                std::to_string(entry.first) + " records " +
                                (records.empty() ? "-" : join(records)));
            }
            for (const auto& [type, info] : mSysInfo) {
                lines.push_back("sysinfo " + std::to_string(type) + " " + info);
            }
            break;
        case 2:  // ActiveResMap: resources away from their default
            for (const ResourceSpec& spec : mConfig.resources) {
                const std::string& value = mEffective.at(spec.id);
                if (value != spec.defaultValue) {
                    lines.push_back(hexId(spec.id) + " " + spec.name + " = " + value);
                }
            }
            break;
        case 3:  // ResRequest: the requests being held
            for (const auto& [handle, request] : mRequests) {
                lines.push_back("handle " + std::to_string(handle) + " " + request.info.kind + " " +
                                request.info.detail + " values " + describe(request.settings));
            }
            break;
        case 4:  // ResInfo: the resource table
            for (const ResourceSpec& spec : mConfig.resources) {
                std::string line = hexId(spec.id) + " " + spec.name + " " +
                                   (spec.numeric ? "int [" + std::to_string(spec.min) + ", " +
                                                           std::to_string(spec.max) + "]"
                                                 : std::string("text")) +
                                   " default " + spec.defaultValue + " combine " +
                                   combineName(spec.combine) + " value " + mEffective.at(spec.id);
                if (spec.path) line += " path " + *spec.path;
                lines.push_back(line);
            }
            break;
        case 5:  // SAInfo: sub-systems and the action map
            for (const ResourceSet& set : mConfig.subsystems) {
                lines.push_back("subsystem " + std::to_string(set.id) + " " + set.name + " " +
                                describe(set.settings));
            }
            for (const ResourceSet& set : mConfig.actions) {
                lines.push_back("action " + std::to_string(set.id) + " " + set.name + " " +
                                describe(set.settings));
            }
            break;
        case 6:  // PidFdList: resource listeners
        case 7:  // PidfdMonitorMap: thermal listeners and levels
            for (const auto& [handle, listener] : mListeners) {
                if (listener.thermal != (code == 7)) continue;
                std::vector<std::string> ids;
                for (int32_t id : listener.ids)
                    ids.push_back(code == 7 ? std::to_string(id) : hexId(id));
                lines.push_back("listener " + std::to_string(handle) + " ids " +
                                (ids.empty() ? "-" : join(ids)) + " paths " +
                                (listener.paths.empty() ? "-" : join(listener.paths)));
            }
            if (code == 7) {
                for (const auto& [zone, level] : mThermalLevels) {
                    lines.push_back("thermal " + std::to_string(zone) + " level " + level);
                }
            }
            break;
        case 8:  // ResRecordList: the request history
            lines.push_back(std::string("recording ") + (mRecording ? "on" : "off"));
            lines.insert(lines.end(), mHistory.begin(), mHistory.end());
            break;
        default:
            return std::nullopt;
    }
    return lines;
}

bool Model::waitIdle(std::chrono::milliseconds timeout) {
    std::unique_lock<std::mutex> lock(mMutex);
    return mIdle.wait_for(lock, timeout, [this] { return mDeliveries.empty() && !mDelivering; });
}

void Model::run() {
    std::unique_lock<std::mutex> lock(mMutex);
    while (!mStopping) {
        const auto now = Clock::now();
        std::vector<int32_t> expired;
        std::optional<Clock::time_point> next;
        for (const auto& [handle, request] : mRequests) {
            if (!request.deadline) continue;
            if (*request.deadline <= now) {
                expired.push_back(handle);
            } else if (!next || *request.deadline < *next) {
                next = request.deadline;
            }
        }
        for (int32_t handle : expired) {
            mRequests.erase(handle);
            report("expired handle " + std::to_string(handle),
                   {{"event", "expired"}, {"handle", handle}});
        }
        if (!expired.empty()) recomputeLocked("timeout");

        if (!mDeliveries.empty()) {
            Delivery delivery = std::move(mDeliveries.front());
            mDeliveries.pop_front();
            mDelivering = true;
            lock.unlock();
            // Called without the lock: the client may call back into the service.
            const bool delivered = delivery.callback->onCallback(delivery.data).isOk();
            lock.lock();
            mDelivering = false;
            if (!delivered && delivery.listener != 0 && mListeners.erase(delivery.listener) != 0) {
                report("listener " + std::to_string(delivery.listener) +
                               " dropped: its client is gone",
                       {{"event", "listener_dropped"}, {"listener", delivery.listener}});
            }
            continue;
        }
        mIdle.notify_all();
        if (next) {
            mWake.wait_until(lock, *next);
        } else {
            mWake.wait(lock);
        }
    }
}

}  // namespace dolmsim
