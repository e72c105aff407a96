// The simulator's behaviour model: the resource table with its effective
// values, timed requests, listeners, one-shot callbacks, thermal levels,
// rules, properties and the request history. The binder service translates
// each IDolm call into one call here; this class knows nothing of parcels.
#pragma once

#include <aidl/vendor/tarvo/hardware/dolm/DolmRequestData.h>
#include <aidl/vendor/tarvo/hardware/dolm/IDolmCallback.h>

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <nlohmann/json.hpp>
#include <optional>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "SimConfig.h"

namespace dolmsim {

using ::aidl::vendor::tarvo::hardware::dolm::DolmRequestData;
using ::aidl::vendor::tarvo::hardware::dolm::IDolmCallback;

/**
 * Refusal codes. Operations that answer a number answer their negative; they
 * start at 11 so that none of them reads as the client library's own -1.
 */
constexpr int32_t kErrUnknownResource = 11;
constexpr int32_t kErrBadValue = 12;
constexpr int32_t kErrUnknownHandle = 13;
constexpr int32_t kErrBadRequest = 14;

const char* errorName(int32_t code);

/** Receives one report per event: a readable line and the same as JSON fields. */
using Reporter = std::function<void(const std::string& line, const nlohmann::json& fields)>;

/** One resource of a request as the caller addressed it: by id, or by path with id 0. */
struct Target {
    int32_t id = 0;
    std::optional<std::string> path;
    std::string value;
};

/** What a request is, for the report, the dumps and the history. */
struct RequestInfo {
    std::string kind;  // "resctl", "sactl", "event", ...
    std::string detail;
    int64_t timeoutMs = 0;
};

class Model {
  public:
    Model(SimConfig config, Reporter reporter);
    ~Model();
    Model(const Model&) = delete;
    Model& operator=(const Model&) = delete;

    /** Checks targets against the table; on success fills `settings`, else returns a code. */
    int32_t resolve(const std::vector<Target>& targets,
                    std::vector<ResourceSetting>& settings) const;
    const ResourceSet* subsystem(int32_t id) const;
    const ResourceSet* action(int32_t cmd) const;

    /**
     * Holds `settings` until release or until `info.timeoutMs` ms pass (0 or
     * less: until release). Returns the new handle (1, 2, ...). `oneShot` is
     * called once from the model's thread after the values took effect.
     */
    int32_t acquire(const RequestInfo& info, std::vector<ResourceSetting> settings,
                    const std::shared_ptr<IDolmCallback>& oneShot);
    /** 0, or -kErrUnknownHandle. */
    int32_t release(int32_t handle);

    /** Current values of the targets (unknown ones make it fail with a code). */
    int32_t state(const std::vector<Target>& targets, std::vector<DolmRequestData>& out) const;

    /** Listener on resource ids and paths; called with the entries whose value changed. */
    int32_t addListener(std::vector<int32_t> ids, std::vector<std::string> paths,
                        const std::shared_ptr<IDolmCallback>& callback);
    int32_t removeListener(int32_t handle);
    /** Thermal listener on zone ids (none: every zone). */
    int32_t addThermalListener(std::vector<int32_t> ids,
                               const std::shared_ptr<IDolmCallback>& callback);
    int32_t removeThermalListener(int32_t handle);
    /** Records the levels and informs the thermal listeners; answers 1. */
    int32_t thermalNotify(const std::vector<Target>& levels);

    /** Sets a rule's status and records; answers 0. */
    int32_t ruleCtl(int32_t rule, int32_t status, std::vector<Target> records);
    int32_t setSysInfo(int32_t type, const std::string& info);

    std::string property(const std::string& key) const;
    int32_t setProperty(const std::string& key, const std::string& value);
    int32_t powerModeStatus(int32_t mode) const;

    void setRecording(bool on);
    /** The recorded requests, one text each, while recording is on; else empty. */
    std::vector<std::string> history() const;
    /** Lines of dump `code` (0 to 8), or nullopt for an unknown code. */
    std::optional<std::vector<std::string>> dump(int32_t code) const;

    /** The effective value of a resource, for tests and reports. */
    std::optional<std::string> effective(int32_t id) const;
    /** Waits until the model's thread has nothing due now (deliveries made). */
    bool waitIdle(std::chrono::milliseconds timeout);

  private:
    using Clock = std::chrono::steady_clock;
    struct Request {
        RequestInfo info;
        std::vector<ResourceSetting> settings;
        uint64_t sequence = 0;
        std::optional<Clock::time_point> deadline;
    };
    struct Listener {
        std::set<int32_t> ids;
        std::set<std::string> paths;
        std::shared_ptr<IDolmCallback> callback;
        bool thermal = false;
    };
    struct Delivery {
        std::shared_ptr<IDolmCallback> callback;
        std::vector<DolmRequestData> data;
        int32_t listener = 0;  // 0 for a one-shot request callback
    };

    const ResourceSpec* specLocked(int32_t id) const;
    const ResourceSpec* specByPathLocked(const std::string& path) const;
    /** Recomputes every effective value; queues deliveries for the changes. */
    void recomputeLocked(const char* why);
    void recordLocked(const std::string& text);
    void report(const std::string& line, const nlohmann::json& fields) const;
    void run();

    const SimConfig mConfig;
    const Reporter mReporter;

    mutable std::mutex mMutex;
    std::condition_variable mWake;
    std::condition_variable mIdle;
    std::map<int32_t, std::string> mEffective;
    std::map<int32_t, Request> mRequests;
    std::map<int32_t, Listener> mListeners;
    std::map<int32_t, std::string> mThermalLevels;
    std::map<int32_t, std::pair<int32_t, std::vector<Target>>> mRules;
    std::map<int32_t, std::string> mSysInfo;
    std::map<std::string, std::string> mProperties;
    std::vector<std::string> mHistory;
    std::deque<Delivery> mDeliveries;
    bool mRecording = false;
    bool mDelivering = false;
    bool mStopping = false;
    int32_t mNextHandle = 1;
    int32_t mNextListener = 1;
    uint64_t mSequence = 0;
    std::thread mThread;
};

}  // namespace dolmsim
