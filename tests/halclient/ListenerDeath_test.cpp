// Listener registration and unregistration of every kind (id, path, map,
// thermal) from several threads while the service process fails calls, dies
// and is started again: every call returns, every handle comes from an
// instance that ran, and the listener registry stays consistent (no
// registration is ever refused as a duplicate, no unregistration misses its
// group, and every list can be registered again afterwards).
#include <android/binder_process.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <condition_variable>
#include <functional>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "HalclientTestSupport.h"
#include "ServiceProcess.h"
#include "Watchdog.h"

namespace halclienttest {
namespace {

using zeltest::ServiceOptions;
using zeltest::ServiceProcess;

constexpr int kRestarts = 10;
// Calls that must complete between two restarts.
constexpr uint64_t kCallsPerRound = 60;
// Every third service call fails, so the failure paths run between deaths too.
constexpr int kFailEvery = 3;

enum class Kind { kId, kPath, kMap, kThermal };

// One caller's registration of its own list of the given kind; returns the
// handle. Lists differ between callers, so none is a duplicate of another.
int registerOnce(Kind kind, int caller, const std::shared_ptr<RecordingCallback>& callback,
                 const std::shared_ptr<RecordingPathCallback>& pathCallback) {
    const int32_t id = 100 + caller;
    const std::string path = "/dev/res/" + std::to_string(caller);
    switch (kind) {
        case Kind::kId: {
            ResourceList resources{res(id, "1")};
            return dolmHalclient::dolmResListeningRegister(resources, caller, callback);
        }
        case Kind::kPath:
            return dolmHalclient::dolm_res_listening_register_by_path({path}, caller, pathCallback);
        case Kind::kMap:
            return dolmHalclient::dolm_res_listening_register_map_by_path({{path, "1"}}, caller,
                                                                          pathCallback);
        case Kind::kThermal:
            return dolmHalclient::dolmThermalListeningRegister({id}, callback);
    }
    return -1;
}

// Asks to remove a registration; thermal ones are unregistered at the service
// first, and their group goes only by the id-addressed unregistration. True
// when the service accepted: the group is gone then. (Without a service the
// group stays, and the caller has to ask again.)
bool unregisterOnce(Kind kind, int handle, const std::function<void(int)>& check) {
    if (kind == Kind::kThermal) check(dolmHalclient::dolmThermalListeningUnregister(handle));
    const int result = dolmHalclient::dolmResListeningUnRegister(handle);
    check(result);
    return result != -1;
}

TEST(ListenerDeathTest, RegistrationsOfEveryKindReturnWhileTheServiceDies) {
    const zeltest::Watchdog watchdog(std::chrono::seconds(60), "listener registrations");
    zeltest::LogCapture log;
    ABinderProcess_startThreadPool();
    ServiceProcess service(ZEL_SERVICE_PROCESS);
    int32_t started = 1;
    ASSERT_TRUE(service.start(started, ServiceOptions{kFailEvery}));

    const std::vector<Kind> kinds{Kind::kId,  Kind::kId,  Kind::kPath,    Kind::kPath,
                                  Kind::kMap, Kind::kMap, Kind::kThermal, Kind::kThermal};
    std::atomic<bool> stop{false};
    std::atomic<int32_t> latest{started};
    std::atomic<uint64_t> calls{0};
    std::atomic<uint64_t> foreign{0};
    std::mutex progressMutex;
    std::condition_variable progressed;
    auto callback = std::make_shared<RecordingCallback>();
    auto pathCallback = std::make_shared<RecordingPathCallback>();

    // A result is -1 or a number that an instance started so far gave.
    const std::function<void(int)> check = [&](int result) {
        const int32_t instance = zeltest::instanceOf(result);
        if (result != -1 && (instance < 1 || instance > latest.load())) ++foreign;
        calls.fetch_add(1);
        progressed.notify_all();
    };
    // Handles whose group may still be registered, per caller.
    std::vector<std::vector<int>> owned(kinds.size());
    std::vector<std::thread> callers;
    for (size_t caller = 0; caller < kinds.size(); ++caller) {
        callers.emplace_back([&, caller] {
            const Kind kind = kinds[caller];
            std::vector<int>& handles = owned[caller];
            while (!stop.load()) {
                const int handle =
                        registerOnce(kind, static_cast<int>(caller), callback, pathCallback);
                check(handle);
                if (handle != -1) handles.push_back(handle);
                handles.erase(std::remove_if(handles.begin(), handles.end(),
                                             [&](int h) { return unregisterOnce(kind, h, check); }),
                              handles.end());
            }
        });
    }
    for (int restart = 0; restart < kRestarts; ++restart) {
        {
            std::unique_lock<std::mutex> lock(progressMutex);
            const uint64_t target = calls.load() + kCallsPerRound;
            progressed.wait_for(lock, std::chrono::seconds(30),
                                [&] { return calls.load() >= target; });
        }
        service.kill();
        latest = ++started;
        ASSERT_TRUE(service.start(started, ServiceOptions{kFailEvery}));
    }
    stop = true;
    progressed.notify_all();
    for (std::thread& caller : callers) caller.join();

    EXPECT_EQ(foreign.load(), 0U) << "results that no instance gave, of " << calls.load();
    EXPECT_GT(calls.load(), kRestarts * kCallsPerRound);
    EXPECT_GT(log.count(failed("dolm_res_listening_register_map")), 0U);
    EXPECT_GT(log.count(failed("dolmResListeningUnRegister")), 0U);

    // On a service that fails nothing, the groups left over go by their
    // handles; then every list can be registered again, none is refused.
    service.kill();
    latest = ++started;
    ASSERT_TRUE(service.start(started));
    // The first call may still meet the connection to the killed instance.
    constexpr int kAttempts = 3;
    for (size_t caller = 0; caller < kinds.size(); ++caller) {
        for (int handle : owned[caller]) {
            bool removed = false;
            for (int attempt = 0; attempt < kAttempts && !removed; ++attempt) {
                removed = unregisterOnce(kinds[caller], handle, check);
            }
            EXPECT_TRUE(removed) << "caller " << caller << " handle " << handle;
        }
    }
    const size_t refusedBefore = log.count(error("Same callback interface registered already"));
    for (size_t caller = 0; caller < kinds.size(); ++caller) {
        int handle = -1;
        for (int attempt = 0; attempt < kAttempts && handle == -1; ++attempt) {
            handle = registerOnce(kinds[caller], static_cast<int>(caller), callback, pathCallback);
        }
        EXPECT_EQ(zeltest::instanceOf(handle), started) << "caller " << caller;
    }
    EXPECT_EQ(log.count(error("Same callback interface registered already")), refusedBefore);

    // No death notification may still run while the process exits.
    const size_t deaths = log.count(error("Dolm HAL Service died"));
    service.kill();
    EXPECT_TRUE(log.waitCount(error("Dolm HAL Service died"), deaths + 1, kWait));
}

}  // namespace
}  // namespace halclienttest
