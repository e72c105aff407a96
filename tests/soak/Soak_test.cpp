// Soak: 8 threads call every kind of function of the library (resource
// control with and without callback, sub-system control, listeners of every
// kind, state queries, thermal, diagnostics, properties; the event API and
// the wrappers) without pause, while the service process is killed with
// SIGKILL and started again ZEL_SOAK_RESTARTS times (default 50).
//
// It checks that every call returns (a watchdog prints every stack if one
// does not), that every result is -1 or a value that a started instance gave,
// that descriptors, threads and heap come back to where they were after the
// first restart (the heap within a bound per restart), and that right after
// the last restart one call of each layer succeeds. The figures are printed.
#include <android/binder_process.h>
#include <android/log.h>
#include <dirent.h>
#include <gtest/gtest.h>
#include <malloc.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cinttypes>
#include <condition_variable>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <list>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "ServiceProcess.h"
#include "Watchdog.h"
#include "ZelWrapper.h"
#include "halclient.h"
#include "zel.h"

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
#define ZEL_SOAK_SANITIZER_HEAP 1
#elif defined(__has_feature)
#if __has_feature(address_sanitizer) || __has_feature(thread_sanitizer)
#define ZEL_SOAK_SANITIZER_HEAP 1
#endif
#endif
#ifdef ZEL_SOAK_SANITIZER_HEAP
// The sanitizer runtime's count of the heap the program holds (the sanitizers
// replace malloc, so mallinfo does not see it).
extern "C" size_t __sanitizer_get_current_allocated_bytes();
#endif

namespace {

using ResourceList = std::list<ZelClient::Resource>;
using zeltest::ServiceProcess;

constexpr int kCallers = 8;
constexpr int kDefaultRestarts = 50;
// Calls that the service must answer between two restarts.
constexpr uint64_t kCallsPerRound = 300;
// No round, and no quiet phase, may take longer.
constexpr auto kRoundLimit = std::chrono::seconds(60);
// Idle binder threads the pool may keep; the thread count may differ by that.
constexpr uint32_t kMaxIdleBinderThreads = 4;
// Heap growth per restart allowed beyond the required request_callbacks entries.
constexpr int64_t kHeapPerRestartBound = 4096;
// Heap that one required request_callbacks entry may keep (client, binder
// object, the caller's callback).
constexpr int64_t kHeapPerRetainedEntry = 1024;
constexpr const char* kDiedLine = "Dolm HAL Service died";

int restartsFromEnvironment() {
    const char* text = getenv("ZEL_SOAK_RESTARTS");
    const int restarts = text != nullptr ? atoi(text) : kDefaultRestarts;
    return std::clamp(restarts, 2, zeltest::kMaxInstances - 2);
}

// ---- what the process holds ----------------------------------------------

size_t countEntries(const char* directory) {
    size_t count = 0;
    if (DIR* dir = opendir(directory)) {
        while (dirent* entry = readdir(dir)) count += entry->d_name[0] != '.';
        closedir(dir);
    }
    return count;
}

// Descriptors, not counting the one that reads the directory.
size_t openDescriptors() {
    return countEntries("/proc/self/fd") - 1;
}

size_t threadCount() {
    return countEntries("/proc/self/task");
}

int64_t heapInUse() {
#ifdef ZEL_SOAK_SANITIZER_HEAP
    return static_cast<int64_t>(__sanitizer_get_current_allocated_bytes());
#else
    return static_cast<int64_t>(mallinfo2().uordblks);
#endif
}

size_t requestCallbackCount() {
    std::lock_guard<std::mutex> lock(request_callback_mutex);
    return request_callbacks.size();
}

struct Snapshot {
    size_t descriptors;
    size_t threads;
    int64_t heap;
    size_t requestCallbacks;
};

// ---- log: counts the death lines of both layers, drops the rest -----------

// Never destroyed: death notifications may still be logged on binder threads
// while the process exits.
struct DeathLog {
    std::mutex mutex;
    std::condition_variable logged;
    std::map<std::string, uint64_t> byTag;
};
DeathLog& deathLog() {
    static auto* log = new DeathLog;
    return *log;
}

void countLine(const struct __android_logger_data* data, const char* message) {
    if (message == nullptr || std::string(message) != kDiedLine) return;
    DeathLog& log = deathLog();
    {
        std::lock_guard<std::mutex> lock(log.mutex);
        ++log.byTag[data->tag != nullptr ? data->tag : ""];
    }
    log.logged.notify_all();
}

std::map<std::string, uint64_t> deathLines() {
    std::lock_guard<std::mutex> lock(deathLog().mutex);
    return deathLog().byTag;
}

// ---- results ----------------------------------------------------------------

struct Tally {
    std::atomic<uint64_t> calls{0};
    std::atomic<uint64_t> answered{0};  // a value from an instance
    std::atomic<uint64_t> failed{0};    // -1 (or nothing, for the functions without a result)
    std::atomic<uint64_t> wrong{0};     // anything else
    std::atomic<uint64_t> deliveries{0};
    std::atomic<int32_t> latest{0};  // the newest instance started
    std::mutex progressMutex;
    std::condition_variable progressed;

    void count(bool answeredByService, bool right) {
        ++calls;
        if (!right) {
            ++wrong;
        } else if (answeredByService) {
            ++answered;
        } else {
            ++failed;
        }
        progressed.notify_all();
    }
    bool fromInstance(int64_t value) const {
        const int32_t instance = zeltest::instanceOf(value);
        return instance >= 1 && instance <= latest.load();
    }
    /** A handle or result: -1 or a number of a started instance. */
    void number(int64_t value) { count(value != -1, value == -1 || fromInstance(value)); }
    /** A count of entries: -1 or exactly `expected`. */
    void exactly(int value, int expected) { count(value != -1, value == -1 || value == expected); }
    /** A success flag: 0 or -1. */
    void zeroOrFailed(int value) { count(value == 0, value == 0 || value == -1); }
    /** A text the service sent: empty, or a number of a started instance. */
    void text(const std::string& value) {
        count(!value.empty(), value.empty() || fromInstance(atoll(value.c_str())));
    }
    /** A function that returns nothing. */
    void returned() { count(false, true); }
};

// Counts the deliveries of both callback kinds; every value must come from a
// started instance.
class SoakCallback : public IClientCallback, public IClientCallbackByPath {
  public:
    explicit SoakCallback(Tally& tally) : mTally(tally) {}
    void onCallback(std::list<ZelClient::Resource> resources) override {
        ++mTally.deliveries;
        for (const ZelClient::Resource& resource : resources) check(resource.value.value_or(""));
    }
    void onCallback(std::vector<std::string> values, std::vector<std::string> /*paths*/) override {
        ++mTally.deliveries;
        for (const std::string& value : values) check(value);
    }

  private:
    void check(const std::string& value) {
        if (!mTally.fromInstance(atoll(value.c_str()))) ++mTally.wrong;
    }

    Tally& mTally;
};

// ---- the callers --------------------------------------------------------------

// The calls of the mix; each caller starts at a different one.
constexpr uint64_t kMixSize = 20;

class Caller {
  public:
    Caller(int index, Tally& tally)
        : mIndex(index), mTally(tally), mCallback(std::make_shared<SoakCallback>(tally)) {}

    /** Runs call number `step` of the mix. */
    void call(uint64_t step);

    /**
     * Asks to remove the listeners still registered; keeps those whose
     * unregistration the service did not take (without a service the group
     * stays). True when none is left.
     */
    bool unregisterListeners() {
        std::vector<Listener> kept;
        for (const Listener& listener : mListeners) {
            // Thermal ones are unregistered at the service first; their group
            // goes with the id-addressed unregistration.
            if (listener.thermal) {
                mTally.number(dolmHalclient::dolmThermalListeningUnregister(listener.handle));
            }
            const int result = dolmHalclient::dolmResListeningUnRegister(listener.handle);
            mTally.number(result);
            if (result == -1) kept.push_back(listener);
        }
        mListeners.swap(kept);
        return mListeners.empty();
    }

  private:
    struct Listener {
        bool thermal;
        int handle;
    };

    std::string path(int n) const {
        return "/sys/soak/" + std::to_string(mIndex) + "/" + std::to_string(n);
    }
    // Ids and paths of this caller's listeners, apart from every other caller's.
    int32_t listenId(int n) const { return 1000 + mIndex * 10 + n; }
    void listened(int handle, bool thermal) {
        mTally.number(handle);
        if (handle != -1) mListeners.push_back({thermal, handle});
    }

    const int mIndex;
    Tally& mTally;
    std::shared_ptr<SoakCallback> mCallback;  // of both kinds
    std::vector<Listener> mListeners;
};

void Caller::call(uint64_t step) {
    ResourceList resources{{0x01000100 + mIndex, std::string("1200")}, {0, std::nullopt}};
    const std::vector<std::string> paths{path(0), path(1)};
    const std::vector<std::string> values{"1", "2"};
    const std::vector<ZelClient::Resource> zelResources{{0x01000200, std::string("3")}};
    switch ((step + static_cast<uint64_t>(mIndex)) % kMixSize) {
        case 0: {  // resource control, in its forms, and release
            const int handle =
                    step % 3 == 0 ? dolmHalclient::dolmResCtlRequest(5000, resources, mIndex)
                    : step % 3 == 1
                            ? dolmHalclient::dolmResCtlRequest(1, 5000, resources, 2, 1, mIndex)
                            : dolmHalclient::dolmResCtlRequest(1, 5000, resources, -1, 0, mIndex,
                                                               mCallback);
            mTally.number(handle);
            if (handle != -1) mTally.number(dolmHalclient::dolmResCtlRelease(handle));
            break;
        }
        case 1: {  // sub-system control, with and without callback, and release
            const int handle = step % 2 == 0 ? dolmHalclient::dolmSACtlRequest(5000, 7, mIndex)
                                             : dolmHalclient::dolmSACtlRequest(1, 5000, 7, -1, 1,
                                                                               mIndex, mCallback);
            mTally.number(handle);
            if (handle != -1) mTally.number(dolmHalclient::dolmSACtlRelease(handle));
            break;
        }
        case 2: {
            ResourceList ids{{listenId(0), std::string("1")}, {listenId(1), std::nullopt}};
            listened(dolmHalclient::dolmResListeningRegister(ids, mIndex, mCallback), false);
            unregisterListeners();
            break;
        }
        case 3: {
            ResourceList out;
            mTally.exactly(dolmHalclient::dolmResStateRequest(resources, mIndex, out), 2);
            for (const ZelClient::Resource& resource : out)
                mTally.text(resource.value.value_or(""));
            break;
        }
        case 4: {
            ResourceList levels{{3, std::string("2")}};
            mTally.zeroOrFailed(dolmHalclient::dolmThermalNotify(levels, mIndex));
            break;
        }
        case 5:
            listened(dolmHalclient::dolmThermalListeningRegister({listenId(2)}, mCallback), true);
            unregisterListeners();
            break;
        case 6:
            mTally.number(dolmHalclient::dolm_resctl_request_by_path(1, 5000, paths, values, -1, 1,
                                                                     mIndex));
            break;
        case 7:
            mTally.number(dolmHalclient::dolm_resctl_request_with_callback_by_path(
                    1, 5000, paths, values, -1, 1, mIndex, mCallback));
            break;
        case 8: {
            std::vector<std::string> out;
            mTally.exactly(
                    dolmHalclient::dolm_res_state_request_by_path(paths, values, mIndex, out), 2);
            std::map<std::string, std::string> outMap;
            mTally.exactly(dolmHalclient::dolm_res_state_request_map_by_path(
                                   {{path(0), "1"}, {path(1), "2"}}, mIndex, outMap),
                           2);
            break;
        }
        case 9:
            listened(dolmHalclient::dolm_res_listening_register_by_path({path(3)}, mIndex,
                                                                        mCallback),
                     false);
            listened(dolmHalclient::dolm_res_listening_register_map_by_path({{path(4), "1"}},
                                                                            mIndex, mCallback),
                     false);
            unregisterListeners();
            break;
        case 10: {  // diagnostics and properties
            mTally.zeroOrFailed(step % 2 == 0 ? dolmHalclient::dolmDumpResInfo()
                                              : dolmHalclient::dolmHistoryRequestRecordOn());
            char* value = dolmHalclient::dolmPropertyGet("vendor.soak.key");
            mTally.text(value);
            delete[] value;
            mTally.number(dolmHalclient::dolmPropertySet("vendor.soak.key", "1"));
            break;
        }
        case 11:
            dolmHalclient::dolm_init();
            mTally.returned();
            break;
        case 12: {
            const int result = zelInit();
            mTally.count(result == 0, result == 0 || result == -1 || result == -2);
            break;
        }
        case 13: {  // event acquire in its forms, and release
            const int handle =
                    step % 3 == 0 ? ZelEventAcquire(3, "com.soak", "soak", 200, zelResources)
                    : step % 3 == 1
                            ? ZelResAcquire(zelResources, nullptr, "soak", 200)
                            : ZelPlatformResAcquire(zelResources, nullptr, "soak", "com.soak", 200);
            mTally.number(handle);
            ZelRelease(handle);
            mTally.returned();
            break;
        }
        case 14:
            mTally.number(ZelNotify(4, 1, {1, 2}));
            mTally.number(zelRuleCtl(102, 1, zelResources));
            mTally.number(setRelatedSysInfo(2, "soak"));
            break;
        case 15: {
            std::string history;
            const int result = ZelGetHistory(history);
            // "start:<base>;end": the base of the instance that answered.
            mTally.count(result == 0,
                         result == -1 || (result == 0 && history.rfind("start:", 0) == 0 &&
                                          mTally.fromInstance(atoll(history.c_str() + 6) + 1)));
            break;
        }
        case 16: {
            std::vector<ZelClient::Resource> asked{{0x01000300, std::nullopt},
                                                   {0x01000301, std::nullopt}};
            mTally.exactly(ZelMutiResStateRequest(asked), 2);
            std::string value;
            ZelResStateRequest(0x01000302, value);
            mTally.text(value);
            break;
        }
        case 17:
            mTally.number(ZelGetPMStatus(1));
            break;
        case 18: {
            const int handle =
                    ZelEventAcquireWrapper("TALVEN_ACTION_LAUNCH", "com.soak", "soak", 200);
            mTally.number(handle);
            ZelReleaseWapper(handle);
            mTally.returned();
            break;
        }
        default: {  // notify texts through the wrapper, and the game upgrade reset
            static const struct {
                int32_t src;
                int32_t type;
                const char* text;
            } kNotices[] = {{1, 1, ""},
                            {130, 1, "1200,1500,1800"},
                            {131, 1, "colocation:1,groupmigrate:5-3"},
                            {9000, 1, "1,2;3,4;5;6"},
                            {14, 1, "mode"},
                            {102, 1, ""}};
            const auto& notice = kNotices[step % (sizeof(kNotices) / sizeof(kNotices[0]))];
            const int result =
                    ZelNotifyWapper("soak", notice.src, notice.type, 40, 0, 0, notice.text);
            mTally.count(false, result == 0);
            clrGameUpgradeMode(14, 0);
            mTally.returned();
        }
    }
}

// ---- the soak -------------------------------------------------------------------

class Soak {
  public:
    Soak() : mService(ZEL_SERVICE_PROCESS) {}

    bool start() {
        mTally.latest = ++mStarted;
        return mService.start(mStarted);
    }

    /** Starts the callers; each runs the mix without pause until stopped. */
    void runCallers() {
        mStop = false;
        for (int i = 0; i < kCallers; ++i) {
            mThreads.emplace_back([this, i] {
                Caller& caller = *mCallers[static_cast<size_t>(i)];
                for (uint64_t step = 0; !mStop.load(); ++step) caller.call(step);
            });
        }
    }

    void stopCallers() {
        mStop = true;
        for (std::thread& thread : mThreads) thread.join();
        mThreads.clear();
    }

    /** Waits until the service answered `calls` more calls; false on timeout. */
    bool waitForCalls(uint64_t calls) {
        std::unique_lock<std::mutex> lock(mTally.progressMutex);
        const uint64_t target = mTally.answered.load() + calls;
        return mTally.progressed.wait_for(lock, kRoundLimit,
                                          [&] { return mTally.answered.load() >= target; });
    }

    /**
     * With the callers stopped: connects both layers to the running instance,
     * kills it and waits until both have seen it die, then until the
     * process's threads settle. What the process holds is then comparable
     * between two such points.
     */
    bool killQuietly() {
        bool connected = false;
        for (int attempt = 0; attempt < 3 && !connected; ++attempt) {
            connected = dolmHalclient::dolmPropertySet("vendor.soak.key", "1") != -1 &&
                        ZelGetPMStatus(1) != -1;
        }
        if (!connected) return false;
        const std::map<std::string, uint64_t> before = deathLines();
        mService.kill();
        DeathLog& log = deathLog();
        std::unique_lock<std::mutex> lock(log.mutex);
        const bool seen = log.logged.wait_for(lock, kRoundLimit, [&] {
            return log.byTag.size() == 2 &&
                   std::all_of(log.byTag.begin(), log.byTag.end(), [&](const auto& tag) {
                       auto it = before.find(tag.first);
                       return tag.second > (it == before.end() ? 0 : it->second);
                   });
        });
        lock.unlock();
        return seen && settle();
    }

    Snapshot snapshot() const {
        return {openDescriptors(), threadCount(), heapInUse(), requestCallbackCount()};
    }

    std::vector<std::unique_ptr<Caller>> mCallers;
    Tally mTally;
    ServiceProcess mService;
    int32_t mStarted = 0;

  private:
    // Waits until the thread and descriptor counts have not changed for a while.
    static bool settle() {
        const auto deadline = std::chrono::steady_clock::now() + kRoundLimit;
        size_t threads = threadCount();
        size_t descriptors = openDescriptors();
        int steady = 0;
        while (steady < 50) {
            if (std::chrono::steady_clock::now() > deadline) return false;
            std::this_thread::sleep_for(std::chrono::milliseconds(2));
            const size_t nowThreads = threadCount();
            const size_t nowDescriptors = openDescriptors();
            steady = nowThreads == threads && nowDescriptors == descriptors ? steady + 1 : 0;
            threads = nowThreads;
            descriptors = nowDescriptors;
        }
        return true;
    }

    std::atomic<bool> mStop{false};
    std::vector<std::thread> mThreads;
};

TEST(SoakTest, CallsOfBothLayersWhileTheServiceProcessIsKilledAndRestarted) {
    const int restarts = restartsFromEnvironment();
    __android_log_set_logger(countLine);
    __android_log_set_minimum_priority(ANDROID_LOG_INFO);
    ABinderProcess_setThreadPoolMaxThreadCount(kMaxIdleBinderThreads);
    ABinderProcess_startThreadPool();
    const auto began = std::chrono::steady_clock::now();

    Soak soak;
    for (int i = 0; i < kCallers; ++i)
        soak.mCallers.push_back(std::make_unique<Caller>(i, soak.mTally));

    // The first and the last restart are quiet: the callers stop and both
    // layers see the death; what the process holds is compared between them.
    Snapshot baseline{};
    Snapshot end{};
    ASSERT_TRUE(soak.start());
    soak.runCallers();
    for (int restart = 1; restart <= restarts; ++restart) {
        const zeltest::Watchdog watchdog(kRoundLimit * 2,
                                         "soak: restart " + std::to_string(restart));
        EXPECT_TRUE(soak.waitForCalls(kCallsPerRound)) << "no progress before restart " << restart;
        if (restart == 1 || restart == restarts) {
            soak.stopCallers();
            ASSERT_TRUE(soak.killQuietly())
                    << "the death before restart " << restart << " went unseen";
            (restart == 1 ? baseline : end) = soak.snapshot();
        } else {
            soak.mService.kill();
        }
        ASSERT_TRUE(soak.start()) << "restart " << restart;
        if (restart == 1) soak.runCallers();
    }
    {
        const zeltest::Watchdog watchdog(kRoundLimit * 2, "soak: after the last restart");
        // Right after the last restart, one call of each layer succeeds.
        ResourceList resources{{0x01000100, std::string("1")}};
        EXPECT_EQ(zeltest::instanceOf(dolmHalclient::dolmResCtlRequest(100, resources, 0)),
                  soak.mStarted);
        EXPECT_EQ(zeltest::instanceOf(ZelEventAcquire(3, "com.soak", "soak", 100, {})),
                  soak.mStarted);
        for (auto& caller : soak.mCallers) EXPECT_TRUE(caller->unregisterListeners());
        // No death notification may still run while the process exits.
        EXPECT_TRUE(soak.killQuietly());
    }
    const double seconds =
            std::chrono::duration<double>(std::chrono::steady_clock::now() - began).count();

    const Tally& tally = soak.mTally;
    const int measured = restarts - 1;  // restarts between the two snapshots
    const int64_t retained = static_cast<int64_t>(end.requestCallbacks) -
                             static_cast<int64_t>(baseline.requestCallbacks);
    const int64_t heapGrowth = end.heap - baseline.heap;
    printf("soak: %d restarts in %.1f s, %d callers\n", restarts, seconds, kCallers);
    printf("soak: calls %" PRIu64 ": answered %" PRIu64 ", -1 %" PRIu64 ", wrong %" PRIu64
           "; callbacks delivered %" PRIu64 "\n",
           tally.calls.load(), tally.answered.load(), tally.failed.load(), tally.wrong.load(),
           tally.deliveries.load());
    printf("soak: hangs 0; descriptors %zu -> %zu; threads %zu -> %zu\n", baseline.descriptors,
           end.descriptors, baseline.threads, end.threads);
    printf("soak: heap %" PRId64 " -> %" PRId64 " bytes: %+.0f bytes per restart\n", baseline.heap,
           end.heap, static_cast<double>(heapGrowth) / measured);
    printf("soak: request_callbacks %zu -> %zu: %+.1f entries per restart (failed callback "
           "requests stay registered)\n",
           baseline.requestCallbacks, end.requestCallbacks,
           static_cast<double>(retained) / measured);
    fflush(stdout);

    EXPECT_EQ(tally.wrong.load(), 0U);
    EXPECT_GT(tally.answered.load(), 0U);
    EXPECT_EQ(end.descriptors, baseline.descriptors);
    EXPECT_LE(end.threads, baseline.threads + kMaxIdleBinderThreads);
    EXPECT_LE(heapGrowth - retained * kHeapPerRetainedEntry, kHeapPerRestartBound * measured)
            << "heap growth per restart beyond the request_callbacks entries";
}

}  // namespace

// The event layer makes a death recipient per connection and never deletes
// the earlier ones (deleting one could unlink a connection still in use), so
// each reconnection leaves one behind by design, with what the runtime keeps
// in it about its deliveries. Exactly those allocations are exempt.
extern "C" const char* __lsan_default_suppressions() {
    return "leak:zel_get_dolm_hal_and_link_to_death\n"
           "leak:binder_host::DeathRecipientState::deliver\n";
}
