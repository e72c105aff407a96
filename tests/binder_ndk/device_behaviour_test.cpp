// Where a device's binder driver sets the rules, the host runtime follows
// them: nested calls run on the waiting thread, only pool threads serve
// incoming work, the calling identity names the caller, and transactions
// have a size limit. Lookups of a process's own service are with the
// transport cases.
//
// ctest runs every case in a process of its own: a case may rely on this
// process never having started its thread pool until the case starts it.
#include <android/binder_manager.h>
#include <android/binder_parcel_utils.h>
#include <android/binder_process.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstring>
#include <future>
#include <optional>
#include <string>
#include <thread>

#include "RawPeer.h"
#include "TestBinders.h"
#include "TestProcess.h"

namespace bindertest {
namespace {

constexpr const char* kInstance = "binder.test.IEcho/device";
constexpr const char* kDyingInstance = "binder.test.IEcho/dying";
// Time given to a runtime that wrongly serves or delivers something at once to do so.
constexpr auto kWrongAnswerWindow = std::chrono::seconds(1);

class DeviceBehaviourTest : public ::testing::Test {
  protected:
    ScopedRegistryDir mDir;
};

// The service calls back into this process while it handles our call: the
// callback runs on the thread that waits for the reply, with or without a
// thread pool, and a call the callback makes back into the service reaches
// the service's thread that waits in turn.
TEST_F(DeviceBehaviourTest, NestedCallRunsOnTheWaitingThread) {
    Observed states[2];  // outlive the child, which holds the callbacks
    EchoChild child(kInstance);
    ASSERT_TRUE(child.ready());
    for (int row = 0; row < 2; ++row) {
        bool pool = row == 1;
        SCOPED_TRACE(pool ? "with a thread pool" : "without a thread pool");
        if (pool) ABinderProcess_startThreadPool();
        Observed& observed = states[row];
        binder_status_t nestedStatus = STATUS_UNKNOWN_ERROR;
        int32_t nestedThread = 0;
        {
            std::lock_guard<std::mutex> lock(observed.mutex);
            observed.during = [&] {
                int32_t thread = 0;
                binder_status_t status = callInt(child.proxy(), kThreadId, &thread);
                std::lock_guard<std::mutex> lock(observed.mutex);
                nestedStatus = status;
                nestedThread = thread;
            };
        }
        ndk::SpAIBinder callback = newCallback(&observed);

        int32_t result = 0;
        int32_t childThread = 0;
        ASSERT_EQ(callWithBinder(child.proxy(), kCallBack, callback.get(), "nested", &result, 0,
                                 &childThread),
                  STATUS_OK);
        EXPECT_EQ(result, getpid());
        {
            std::lock_guard<std::mutex> lock(observed.mutex);
            EXPECT_EQ(observed.calls, 1);
            EXPECT_EQ(observed.lastThread, std::this_thread::get_id());
            // Served on this thread, the nested call still comes from the service.
            EXPECT_EQ(observed.callingPid, child.pid());
            EXPECT_EQ(observed.callingUid, getuid());
            EXPECT_EQ(nestedStatus, STATUS_OK);
            EXPECT_EQ(nestedThread, childThread);
        }
        EXPECT_EQ(AIBinder_getCallingPid(), getpid());
    }
    // The service's references to the callbacks go; they are released before their state is.
    child.kill();
    for (Observed& observed : states) {
        EXPECT_TRUE(observed.waitFor([&] { return observed.destroyed == 1; }));
    }
}

// A service with a single binder thread serves one call at a time: a second
// caller waits until the first call returns, and both complete.
TEST_F(DeviceBehaviourTest, ServiceWithOneThreadMakesTheSecondCallerWait) {
    EchoChild child(kInstance, {"--one-thread"});
    ASSERT_TRUE(child.ready());

    // A call on a thread of its own: its status and the int32 it answered.
    auto callOnThread = [&child](transaction_code_t code) {
        return std::async(std::launch::async, [&child, code] {
            int32_t answer = -1;
            binder_status_t status = callInt(child.proxy(), code, &answer);
            return std::make_pair(status, answer);
        });
    };
    auto first = callOnThread(kWaitGo);
    EXPECT_EQ(child.nextLine(), "waiting");
    auto second = callOnThread(kWaitingCount);
    EXPECT_EQ(second.wait_for(kWrongAnswerWindow), std::future_status::timeout)
            << "the second call was served while the only thread was busy";
    EXPECT_TRUE(child.sendLine("go"));
    EXPECT_EQ(first.get().first, STATUS_OK);
    auto [secondStatus, waitingWhenServed] = second.get();
    EXPECT_EQ(secondStatus, STATUS_OK);
    EXPECT_EQ(waitingWhenServed, 0);
}

// A process that never started a thread pool gets no call a peer makes on its
// own and no death notification, though its proxy to a dead process turns
// dead; both arrive once it starts its pool.
TEST_F(DeviceBehaviourTest, WithoutAPoolNothingArrivesUntilOneStarts) {
    HolderAndDying peers(kInstance, kDyingInstance);
    ASSERT_TRUE(peers.ready());
    Observed& observed = peers.observed;
    ASSERT_EQ(peers.callBackLater("late"), STATUS_OK);

    peers.dying.kill();
    std::optional<std::string> text;
    int32_t value = 0;
    EXPECT_EQ(callEcho(peers.dying.proxy(), std::string("x"), 1, &text, &value), STATUS_DEAD_OBJECT);
    EXPECT_FALSE(peers.deaths.waitFor(1, kWrongAnswerWindow))
            << "death notification delivered without a thread pool";
    {
        std::lock_guard<std::mutex> lock(observed.mutex);
        EXPECT_EQ(observed.calls, 0) << "incoming call served without a thread pool";
    }

    ABinderProcess_startThreadPool();
    EXPECT_TRUE(peers.deaths.waitFor(1));
    EXPECT_TRUE(
            observed.waitFor([&] { return observed.calls == 1 && observed.lastText == "late"; }));
    EXPECT_EQ(peers.holder.nextLine(), "called 0");
    EXPECT_TRUE(peers.callbackGoesWithHolder());
}

// AIBinder_getCallingPid/Uid: this process's own outside any call; the
// calling process inside a call, from the connection's credentials, never
// from what a peer claims in its hello.
TEST_F(DeviceBehaviourTest, CallingIdentityNamesTheCallingProcess) {
    EXPECT_EQ(AIBinder_getCallingPid(), getpid());
    EXPECT_EQ(AIBinder_getCallingUid(), getuid());
    ABinderProcess_startThreadPool();
    EchoChild child(kInstance);
    ASSERT_TRUE(child.ready());
    AIBinder* proxy = child.proxy();

    int32_t pid = 0;
    int32_t uid = -1;
    auto readId = [&](const AParcel* out) {
        binder_status_t status = AParcel_readInt32(out, &pid);
        return status == STATUS_OK ? AParcel_readInt32(out, &uid) : status;
    };
    ASSERT_EQ(callEchoService(
                      proxy, kCallingId, [](AParcel*) { return STATUS_OK; }, readId),
              STATUS_OK);
    EXPECT_EQ(pid, getpid());
    EXPECT_EQ(uid, static_cast<int32_t>(getuid()));

    Observed observed;
    ndk::SpAIBinder callback = newCallback(&observed);
    int32_t result = 0;
    ASSERT_EQ(callWithBinder(proxy, kHold, callback.get(), "", &result), STATUS_OK);
    ASSERT_EQ(callHeldLater(proxy, "id"), STATUS_OK);
    EXPECT_TRUE(observed.waitFor([&] { return observed.calls == 1; }));
    {
        std::lock_guard<std::mutex> lock(observed.mutex);
        EXPECT_EQ(observed.callingPid, child.pid());
        EXPECT_EQ(observed.callingUid, getuid());
    }

    // A raw peer in this process claims to be process 1: it is refused, or
    // the service sees this process.
    RawSocket liar(endpointPath(mDir.path(), registeredKey(mDir.path(), kInstance)));
    ASSERT_TRUE(liar.connected());
    liar.send(helloFrame(binder_host::kHelloData, 1, keyOf(1)));
    uint64_t node = liar.serviceNode(kInstance);
    uint32_t type = 0;
    std::vector<uint8_t> reply;
    if (node != 0 && liar.send(liar.transactFrame(node, kCallingId, kEchoDescriptor)) &&
        liar.readFrame(&type, &reply)) {
        // status, flags, data size, then the data: pid, uid.
        ASSERT_GE(reply.size(), 16u);
        int32_t seenPid = 0;
        std::memcpy(&seenPid, reply.data() + 12, sizeof(seenPid));
        EXPECT_EQ(seenPid, getpid());
    }

    callback.set(nullptr);
    child.kill();
    EXPECT_TRUE(observed.waitFor([&] { return observed.destroyed == 1; }));
}

// The limit is 1 MiB - 8 KiB per transaction, checked on the sender for
// requests and replies alike; the service stays usable after a refusal.
TEST_F(DeviceBehaviourTest, TransactionsOverTheSizeLimitFailAndTheServiceGoesOn) {
    EchoChild child(kInstance);
    ASSERT_TRUE(child.ready());
    constexpr size_t kLimit = (1u << 20) - (8u << 10);
    const struct {
        const char* name;
        size_t request;
        size_t reply;
        binder_status_t expected;
    } cases[] = {
            {"half the limit each way", kLimit / 2, kLimit / 2, STATUS_OK},
            {"request over the limit", kLimit * 3 / 2, 16, STATUS_FAILED_TRANSACTION},
            {"reply over the limit", 16, kLimit * 3 / 2, STATUS_FAILED_TRANSACTION},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        std::string received;
        binder_status_t status = callEchoService(
                child.proxy(), kSized,
                [&](AParcel* in) {
                    binder_status_t written =
                            ndk::AParcel_writeString(in, std::string(c.request, 'r'));
                    return written == STATUS_OK
                                   ? AParcel_writeInt32(in, static_cast<int32_t>(c.reply))
                                   : written;
                },
                [&](const AParcel* out) { return ndk::AParcel_readString(out, &received); });
        EXPECT_EQ(status, c.expected);
        if (c.expected == STATUS_OK) {
            EXPECT_EQ(received.size(), c.reply);
        }
        std::optional<std::string> text;
        int32_t value = 0;
        ASSERT_EQ(callEcho(child.proxy(), std::string("after"), 3, &text, &value), STATUS_OK);
        EXPECT_EQ(value, 6);
    }
}

}  // namespace
}  // namespace bindertest
