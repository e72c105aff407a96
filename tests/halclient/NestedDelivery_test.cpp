// Deliveries from a service in a process of its own to this test process,
// which starts no binder thread pool: a callback that the service calls from
// inside a call of this process runs nested, on the calling thread, and the
// library relays it there without holding any of its locks; a callback that
// the service calls later, from a thread of its own, waits until a pool runs.
#include <android/binder_process.h>
#include <android/log.h>
#include <gtest/gtest.h>

#include <functional>
#include <thread>

#include "HalclientTestSupport.h"
#include "ServiceProcess.h"
#include "Watchdog.h"
#include "zel.h"

namespace halclienttest {
namespace {

using namespace dolmHalclient;
using zeltest::ServiceOptions;
using zeltest::ServiceProcess;

constexpr int32_t kInstance = 1;

// What a caller's callback does from inside its delivery: calls into the
// library in ways that need each of its locks free. A listener registration
// takes the listener registry mutex; the refused releases make both layers
// drop their connection, which takes their connection lock exclusive.
struct Reentry {
    int registered = 0;
    int released = 0;
    std::shared_ptr<RecordingCallback> listener = std::make_shared<RecordingCallback>();
};

void reenter(int32_t listId, Reentry& reentry) {
    ResourceList resources{res(listId, "1")};
    reentry.registered = dolmResListeningRegister(resources, 0, reentry.listener);
    reentry.released = dolmResCtlRelease(1);
    ZelRelease(1);
}

// Records on which threads its deliveries ran, and reenters the library from
// delivery number `reenterOn` (counted from 1).
class ReenteringCallback : public IClientCallback, public IClientCallbackByPath {
  public:
    ReenteringCallback(int32_t listId, size_t reenterOn) : mListId(listId), mReenterOn(reenterOn) {}

    void onCallback(std::list<ZelClient::Resource> /*resources*/) override { delivered(); }
    void onCallback(std::vector<std::string> /*values*/,
                    std::vector<std::string> /*paths*/) override {
        delivered();
    }

    std::vector<std::thread::id> threads() {
        std::lock_guard<std::mutex> lock(mMutex);
        return mThreads;
    }

    /** Written by the reentering delivery; read after the call has returned. */
    Reentry mReentry;

  private:
    void delivered() {
        size_t count = 0;
        {
            std::lock_guard<std::mutex> lock(mMutex);
            mThreads.push_back(std::this_thread::get_id());
            count = mThreads.size();
        }
        if (count == mReenterOn) reenter(mListId, mReentry);
    }

    std::mutex mMutex;
    std::vector<std::thread::id> mThreads;
    int32_t mListId;
    size_t mReenterOn;
};

using Reentering = std::shared_ptr<ReenteringCallback>;

struct NestedCase {
    const char* name;
    // Makes the call during which the service delivers to `callback`; returns its result.
    std::function<int(const Reentering& callback)> call;
    // The delivery that happens inside the call: the first, or a later one.
    size_t delivery = 1;
};

std::vector<NestedCase> nestedCases() {
    return {
            {"ResCtlCallback",
             [](const Reentering& cb) {
                 ResourceList resources{res(5, "1")};
                 return dolmResCtlRequest(-1, 10, resources, -1, -1, 0, cb);
             }},
            {"SACtlCallback",
             [](const Reentering& cb) { return dolmSACtlRequest(-1, 10, 4, -1, -1, 0, cb); }},
            {"PathCtlCallback",
             [](const Reentering& cb) {
                 return dolm_resctl_request_with_callback_by_path(-1, 10, {"/nested/ctl"}, {"1"},
                                                                  -1, -1, 0, cb);
             }},
            {"ListeningRegister",
             [](const Reentering& cb) {
                 ResourceList resources{res(7, "1")};
                 return dolmResListeningRegister(resources, 0, cb);
             }},
            {"PathListeningRegister",
             [](const Reentering& cb) {
                 return dolm_res_listening_register_by_path({"/nested/listen"}, 0, cb);
             }},
            {"ThermalRegister",
             [](const Reentering& cb) { return dolmThermalListeningRegister({8}, cb); }},
            // The service calls the listener registered last from inside an
            // event request: the listener's second delivery.
            {"ZelEventAcquireNotifiesListener",
             [](const Reentering& cb) {
                 ResourceList resources{res(9, "1")};
                 if (dolmResListeningRegister(resources, 0, cb) == -1) return -1;
                 return ZelEventAcquire(3, "pkg", "id", 10, {});
             },
             2},
    };
}

TEST(NestedDeliveryTest, RunsOnTheCallingThreadWithoutLibraryLocks) {
    const zeltest::Watchdog watchdog(std::chrono::seconds(60), "nested deliveries");
    zeltest::LogCapture log;
    ServiceProcess service(ZEL_SERVICE_PROCESS);
    ServiceOptions options;
    options.refuseRelease = true;
    options.notifyOnRequest = true;
    ASSERT_TRUE(service.start(kInstance, options));

    int32_t listId = 100;
    for (const NestedCase& c : nestedCases()) {
        SCOPED_TRACE(c.name);
        const size_t refusedBefore = log.count(failed("dolmResCtlRelease"));
        auto callback = std::make_shared<ReenteringCallback>(++listId, c.delivery);

        const int result = c.call(callback);

        // The service's answer, after the delivery has run on this thread.
        EXPECT_EQ(zeltest::instanceOf(result), kInstance) << result;
        const std::vector<std::thread::id> threads = callback->threads();
        ASSERT_EQ(threads.size(), c.delivery);
        EXPECT_EQ(threads.back(), std::this_thread::get_id());
        // The callback's own calls: the registration got its handle and its
        // own first delivery, the refused releases dropped both connections.
        const Reentry& reentry = callback->mReentry;
        EXPECT_EQ(zeltest::instanceOf(reentry.registered), kInstance) << reentry.registered;
        EXPECT_EQ(reentry.listener->threads(),
                  std::vector<std::thread::id>{std::this_thread::get_id()});
        EXPECT_EQ(reentry.released, -1);
        EXPECT_EQ(log.count(failed("dolmResCtlRelease")), refusedBefore + 1);
        EXPECT_EQ(requestCallbackCount(), 0u);
    }
    EXPECT_EQ(log.count(cbError("callback not found in request_callbacks")), 0u);
    EXPECT_EQ(log.count(LogLine{ANDROID_LOG_ERROR, "[ZEL_CLIENT]",
                                "dolmResCtlRelease() failed : dolm HAL service not available"}),
              nestedCases().size());
}

// Nothing in this suite has started a thread pool before this test.
TEST(NoThreadPoolTest, ListenerDeliveryWaitsUntilAPoolRuns) {
    const zeltest::Watchdog watchdog(std::chrono::seconds(60), "delivery without a thread pool");
    zeltest::LogCapture log;
    ServiceProcess service(ZEL_SERVICE_PROCESS);
    ServiceOptions options;
    options.delivery = ServiceOptions::Delivery::kAfterCall;
    ASSERT_TRUE(service.start(kInstance, options));
    auto callback = std::make_shared<RecordingCallback>();
    ResourceList resources{res(5, "1")};

    const int handle = dolmResListeningRegister(resources, 0, callback);
    EXPECT_EQ(zeltest::instanceOf(handle), kInstance) << handle;

    // The service's delivery waits for a binder thread of this process; calls
    // of this process go on meanwhile.
    EXPECT_FALSE(callback->waitFor(1, std::chrono::seconds(2)));
    ResourceList out;
    EXPECT_EQ(dolmResStateRequest(resources, 0, out), 1);

    // With a pool it arrives, on one of the pool's threads.
    ABinderProcess_startThreadPool();
    ASSERT_TRUE(callback->waitFor(1));
    EXPECT_NE(callback->threads()[0], std::this_thread::get_id());
    EXPECT_EQ(log.count(calledBack(1)), 1u);

    // The pool receives the death notice too; none may still run at exit.
    service.kill();
    EXPECT_TRUE(log.waitCount(error("Dolm HAL Service died"), 1, kWait));
}

}  // namespace
}  // namespace halclienttest
