// Calls across endpoints: lookups in the same process, proxies to this
// process and to a child process, callbacks, objects in parcels, remote
// references, death, restart and concurrency.
#include <android/binder_host.h>
#include <android/binder_manager.h>
#include <android/binder_process.h>
#include <android/binder_stability.h>
#include <gtest/gtest.h>

#include <atomic>
#include <future>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "TestBinders.h"
#include "TestProcess.h"

namespace bindertest {
namespace {

constexpr const char* kInstance = "binder.test.IEcho/default";

// Most cases host a service of their own too and reach it through a proxy,
// served on this process's pool like a service of another process.
class TransportTest : public ::testing::Test {
  protected:
    void SetUp() override {
        ABinderHost_setInProcessProxies(true);
        ABinderProcess_startThreadPool();
    }
    ScopedRegistryDir mDir;
};

TEST_F(TransportTest, SameProcessLookupIsLocalUnlessInProcessProxiesAreOn) {
    Observed observed;
    ndk::SpAIBinder service = newEcho(&observed);
    ASSERT_EQ(AServiceManager_addService(service.get(), kInstance), STATUS_OK);

    // As on a device: the object itself, called on the calling thread, no death link.
    ABinderHost_setInProcessProxies(false);
    ndk::SpAIBinder local(AServiceManager_checkService(kInstance));
    EXPECT_EQ(local.get(), service.get());
    EXPECT_FALSE(AIBinder_isRemote(local.get()));
    Deaths deaths;
    EXPECT_EQ(deaths.link(local.get()), STATUS_INVALID_OPERATION);
    std::optional<std::string> text;
    int32_t value = 0;
    ASSERT_EQ(callEcho(local.get(), std::string("direct"), 1, &text, &value), STATUS_OK);
    {
        std::lock_guard<std::mutex> lock(observed.mutex);
        EXPECT_EQ(observed.lastThread, std::this_thread::get_id());
    }

    ABinderHost_setInProcessProxies(true);
    ndk::SpAIBinder proxy(AServiceManager_checkService(kInstance));
    ASSERT_NE(proxy.get(), nullptr);
    EXPECT_TRUE(AIBinder_isRemote(proxy.get()));
    EXPECT_EQ(AIBinder_getUserData(proxy.get()), nullptr);
    EXPECT_TRUE(AIBinder_isAlive(proxy.get()));
    EXPECT_EQ(AIBinder_ping(proxy.get()), STATUS_OK);

    ASSERT_EQ(callEcho(proxy.get(), std::string("hello"), 21, &text, &value), STATUS_OK);
    EXPECT_EQ(text, "hello");
    EXPECT_EQ(value, 42);
    std::lock_guard<std::mutex> lock(observed.mutex);
    EXPECT_EQ(observed.calls, 2);
    EXPECT_NE(observed.lastThread, std::this_thread::get_id());
}

// Vendor code transacts with FLAG_PRIVATE_VENDOR: a proxy accepts it only for
// an object marked stable for the vendor partition, and the mark travels with
// the object. A local object is called whatever its mark.
TEST_F(TransportTest, VendorFlaggedCallsNeedAVendorStableObject) {
    Observed observed;
    ndk::SpAIBinder service = newEcho(&observed);
    ASSERT_EQ(AServiceManager_addService(service.get(), kInstance), STATUS_OK);
    const auto call = [](AIBinder* binder, binder_flags_t flags) {
        ndk::ScopedAParcel in;
        ndk::ScopedAParcel out;
        binder_status_t status = AIBinder_prepareTransaction(binder, in.getR());
        if (status == STATUS_OK) status = AParcel_writeString(in.get(), "x", 1);
        if (status == STATUS_OK) status = AParcel_writeInt32(in.get(), 1);
        if (status != STATUS_OK) return status;
        return AIBinder_transact(binder, kEcho, in.getR(), out.getR(), flags);
    };
    const struct {
        const char* name;
        void (*mark)(AIBinder*);
        binder_status_t vendorCall;
    } cases[] = {
            {"unmarked", nullptr, STATUS_BAD_TYPE},
            {"system", AIBinder_markSystemStability, STATUS_BAD_TYPE},
            {"vintf", AIBinder_markVintfStability, STATUS_OK},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        if (c.mark != nullptr) c.mark(service.get());
        ndk::SpAIBinder proxy(AServiceManager_checkService(kInstance));
        ASSERT_TRUE(AIBinder_associateClass(proxy.get(), echoClass()));
        EXPECT_EQ(call(proxy.get(), FLAG_PRIVATE_VENDOR), c.vendorCall);
        EXPECT_EQ(call(proxy.get(), 0), STATUS_OK);
        EXPECT_EQ(call(service.get(), FLAG_PRIVATE_VENDOR), STATUS_OK);
    }
}

TEST_F(TransportTest, LookupOfAbsentOrDeadServiceIsNull) {
    EXPECT_EQ(AServiceManager_checkService("binder.test.IEcho/absent"), nullptr);
    EXPECT_EQ(AServiceManager_checkService(nullptr), nullptr);
    EXPECT_EQ(AServiceManager_addService(nullptr, kInstance), STATUS_UNEXPECTED_NULL);

    ChildServer child(kInstance);
    ASSERT_TRUE(child.ready());
    ndk::SpAIBinder proxy(AServiceManager_checkService(kInstance));
    ASSERT_NE(proxy.get(), nullptr);
    child.kill();
    // The registry entry remains, but its owner is gone.
    EXPECT_EQ(AServiceManager_checkService(kInstance), nullptr);
}

TEST_F(TransportTest, CrossProcessCallsKeepNullAndEmptyApart) {
    EchoChild child(kInstance);
    ASSERT_TRUE(child.ready());
    ASSERT_TRUE(AIBinder_isRemote(child.proxy()));

    int32_t pid = 0;
    ASSERT_EQ(callInt(child.proxy(), kPid, &pid), STATUS_OK);
    EXPECT_EQ(pid, child.pid());

    const std::optional<std::string> cases[] = {std::nullopt, std::string(), std::string("x"),
                                                std::string(300, 'p')};
    for (const auto& sent : cases) {
        std::optional<std::string> received = std::string("unset");
        int32_t value = 0;
        ASSERT_EQ(callEcho(child.proxy(), sent, -7, &received, &value), STATUS_OK);
        EXPECT_EQ(received, sent);
        EXPECT_EQ(value, -14);
    }
}

TEST_F(TransportTest, AssociateClassOnProxyComparesRemoteDescriptor) {
    ChildServer child(kInstance);
    ASSERT_TRUE(child.ready());
    ndk::SpAIBinder proxy(AServiceManager_checkService(kInstance));
    ASSERT_NE(proxy.get(), nullptr);
    EXPECT_EQ(AIBinder_getClass(proxy.get()), nullptr);
    ndk::ScopedAParcel request;
    EXPECT_EQ(AIBinder_prepareTransaction(proxy.get(), request.getR()), STATUS_INVALID_OPERATION);

    EXPECT_FALSE(AIBinder_associateClass(proxy.get(), callbackClass()));
    AIBinder_Class* twin = AIBinder_Class_define(
            kEchoDescriptor, [](void* a) { return a; }, [](void*) {},
            [](AIBinder*, transaction_code_t, const AParcel*, AParcel*) -> binder_status_t {
                return STATUS_OK;
            });
    EXPECT_TRUE(AIBinder_associateClass(proxy.get(), echoClass()));
    EXPECT_TRUE(AIBinder_associateClass(proxy.get(), echoClass()));
    EXPECT_FALSE(AIBinder_associateClass(proxy.get(), twin));
    EXPECT_EQ(AIBinder_getClass(proxy.get()), echoClass());
}

TEST_F(TransportTest, ObjectReadBackInItsOwnProcessIsTheLocalObject) {
    Observed echoState;
    ndk::SpAIBinder service = newEcho(&echoState);
    ASSERT_EQ(AServiceManager_addService(service.get(), kInstance), STATUS_OK);
    ndk::SpAIBinder proxy(AServiceManager_checkService(kInstance));
    ASSERT_NE(proxy.get(), nullptr);

    Observed callbackState;
    ndk::SpAIBinder callback = newCallback(&callbackState);
    int32_t result = 0;
    ASSERT_EQ(callWithBinder(proxy.get(), kHold, callback.get(), "", &result), STATUS_OK);
    ndk::SpAIBinder held;
    {
        std::lock_guard<std::mutex> lock(echoState.mutex);
        std::swap(held, echoState.held);
    }
    EXPECT_EQ(held.get(), callback.get());
    EXPECT_FALSE(AIBinder_isRemote(held.get()));
}

// A callback object of this process held only by the child's echo service.
class RemoteHolderTest : public TransportTest {
  protected:
    void SetUp() override {
        ASSERT_TRUE(mChild.ready());
        ndk::SpAIBinder callback = newCallback(&mObserved);
        int32_t result = 0;
        ASSERT_EQ(callWithBinder(mChild.proxy(), kHold, callback.get(), "", &result), STATUS_OK);
        // Dropping the last local reference: only the child's proxy keeps it alive now.
    }
    bool destroyedOnce() {
        return mObserved.waitFor([&] { return mObserved.destroyed == 1; });
    }

    Observed mObserved;  // outlives the callback object's last release
    EchoChild mChild{kInstance};
};

TEST_F(RemoteHolderTest, OwnerReleasesObjectWhenRemoteHolderDropsIt) {
    {
        std::lock_guard<std::mutex> lock(mObserved.mutex);
        EXPECT_EQ(mObserved.destroyed, 0);
    }
    int32_t result = 0;
    ASSERT_EQ(callInt(mChild.proxy(), kDropHeld, &result), STATUS_OK);
    EXPECT_TRUE(destroyedOnce());
}

TEST_F(RemoteHolderTest, OwnerReleasesObjectWhenRemoteHolderDies) {
    mChild.kill();
    EXPECT_TRUE(destroyedOnce());
}

TEST_F(TransportTest, OnewayCallsArriveInOrder) {
    EchoChild child(kInstance);
    ASSERT_TRUE(child.ready());
    Observed observed;
    ndk::SpAIBinder callback = newCallback(&observed);
    int32_t result = 0;
    ASSERT_EQ(callWithBinder(child.proxy(), kHold, callback.get(), "", &result, FLAG_ONEWAY),
              STATUS_OK);
    callback.set(nullptr);
    // Served after the oneway hold on the same connection: the drop releases it.
    ASSERT_EQ(callInt(child.proxy(), kDropHeld, &result), STATUS_OK);
    EXPECT_TRUE(observed.waitFor([&] { return observed.destroyed == 1; }));
}

// One recipient linked under two cookies, one of them unlinked again, and a
// second recipient deleted while linked: only the link still made fires.
TEST_F(TransportTest, ChildDeathTurnsProxyDeadAndFiresEachRecipientOnce) {
    EchoChild child(kInstance);
    ASSERT_TRUE(child.ready());
    AIBinder* proxy = child.proxy();
    Deaths kept;
    Deaths unlinked;
    AIBinder_DeathRecipient* recipient = kept.recipient.get();
    ndk::ScopedAIBinder_DeathRecipient deleted(AIBinder_DeathRecipient_new(Deaths::onDied));
    ASSERT_EQ(kept.link(proxy), STATUS_OK);
    ASSERT_EQ(AIBinder_linkToDeath(proxy, recipient, &unlinked), STATUS_OK);
    ASSERT_EQ(AIBinder_linkToDeath(proxy, deleted.get(), &unlinked), STATUS_OK);
    ASSERT_EQ(AIBinder_unlinkToDeath(proxy, recipient, &unlinked), STATUS_OK);
    EXPECT_EQ(AIBinder_unlinkToDeath(proxy, recipient, &unlinked), STATUS_NAME_NOT_FOUND);
    deleted.set(nullptr);

    child.kill();
    ASSERT_TRUE(kept.waitFor(1));
    EXPECT_FALSE(AIBinder_isAlive(proxy));
    EXPECT_EQ(AIBinder_ping(proxy), STATUS_DEAD_OBJECT);
    std::optional<std::string> text;
    int32_t value = 0;
    EXPECT_EQ(callEcho(proxy, std::string("x"), 1, &text, &value), STATUS_DEAD_OBJECT);
    EXPECT_EQ(kept.link(proxy), STATUS_DEAD_OBJECT);
    EXPECT_EQ(AIBinder_unlinkToDeath(proxy, recipient, &kept), STATUS_NAME_NOT_FOUND);
    // A later notification would have arrived by the time a round trip to
    // our own endpoint completes; none may come.
    Observed observed;
    ndk::SpAIBinder service = newEcho(&observed);
    ASSERT_EQ(AServiceManager_addService(service.get(), "binder.test.IEcho/probe"), STATUS_OK);
    ndk::SpAIBinder self(AServiceManager_checkService("binder.test.IEcho/probe"));
    ASSERT_EQ(callEcho(self.get(), std::string("y"), 1, &text, &value), STATUS_OK);
    EXPECT_EQ(kept.arrived(), 1);
    EXPECT_EQ(unlinked.arrived(), 0);
}

TEST_F(TransportTest, CallInFlightWhenPeerDiesReturnsDeadObject) {
    EchoChild child(kInstance);
    ASSERT_TRUE(child.ready());
    std::future<binder_status_t> call = std::async(std::launch::async, [&child] {
        int32_t unused = 0;
        return callInt(child.proxy(), kBlock, &unused);
    });
    EXPECT_EQ(child.nextLine(), "blocked");
    child.kill();
    EXPECT_EQ(call.get(), STATUS_DEAD_OBJECT);
}

TEST_F(TransportTest, KilledLocalBinderLooksDeadAndCanBeRestarted) {
    Observed first;
    ndk::SpAIBinder service = newEcho(&first);
    ASSERT_EQ(AServiceManager_addService(service.get(), kInstance), STATUS_OK);
    ndk::SpAIBinder proxy(AServiceManager_checkService(kInstance));
    ASSERT_NE(proxy.get(), nullptr);
    Deaths deaths;
    ASSERT_EQ(deaths.link(proxy.get()), STATUS_OK);
    EXPECT_EQ(deaths.link(service.get()), STATUS_INVALID_OPERATION);

    ASSERT_EQ(ABinderHost_killLocalBinder(service.get()), STATUS_OK);
    ASSERT_TRUE(deaths.waitFor(1));
    EXPECT_FALSE(AIBinder_isAlive(proxy.get()));
    std::optional<std::string> text;
    int32_t value = 0;
    EXPECT_EQ(callEcho(proxy.get(), std::string("x"), 1, &text, &value), STATUS_DEAD_OBJECT);
    EXPECT_EQ(AServiceManager_checkService(kInstance), nullptr);

    Observed second;
    ndk::SpAIBinder restarted = newEcho(&second);
    ASSERT_EQ(AServiceManager_addService(restarted.get(), kInstance), STATUS_OK);
    ndk::SpAIBinder fresh(AServiceManager_checkService(kInstance));
    ASSERT_NE(fresh.get(), nullptr);
    EXPECT_NE(fresh.get(), proxy.get());
    ASSERT_EQ(callEcho(fresh.get(), std::string("again"), 2, &text, &value), STATUS_OK);
    EXPECT_EQ(text, "again");
    std::lock_guard<std::mutex> lock(second.mutex);
    EXPECT_EQ(second.calls, 1);
    EXPECT_EQ(deaths.arrived(), 1);
}

TEST_F(TransportTest, KilledServiceIsReleasedOnceProxiesGo) {
    Observed observed;
    {
        ndk::SpAIBinder service = newEcho(&observed);
        ASSERT_EQ(AServiceManager_addService(service.get(), kInstance), STATUS_OK);
        ndk::SpAIBinder proxy(AServiceManager_checkService(kInstance));
        ASSERT_NE(proxy.get(), nullptr);
        ASSERT_EQ(ABinderHost_killLocalBinder(service.get()), STATUS_OK);
    }
    EXPECT_TRUE(observed.waitFor([&] { return observed.destroyed == 1; }));
}

TEST_F(TransportTest, ManyThreadsCallAtOnce) {
    EchoChild child(kInstance);
    ASSERT_TRUE(child.ready());
    Observed observed;
    ndk::SpAIBinder local = newEcho(&observed);
    ASSERT_EQ(AServiceManager_addService(local.get(), "binder.test.IEcho/local"), STATUS_OK);
    ndk::SpAIBinder self(AServiceManager_checkService("binder.test.IEcho/local"));
    ASSERT_NE(self.get(), nullptr);

    constexpr int kThreads = 6;
    constexpr int kCalls = 100;
    std::atomic<int> failures{0};
    std::vector<std::thread> threads;
    threads.reserve(kThreads);
    for (int t = 0; t < kThreads; ++t) {
        threads.emplace_back([&, t] {
            for (int i = 0; i < kCalls; ++i) {
                AIBinder* target = i % 2 == 0 ? child.proxy() : self.get();
                std::string sent = std::to_string(t) + ":" + std::to_string(i);
                std::optional<std::string> text;
                int32_t value = 0;
                if (callEcho(target, sent, i, &text, &value) != STATUS_OK || text != sent ||
                    value != 2 * i) {
                    ++failures;
                }
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(failures.load(), 0);
    std::lock_guard<std::mutex> lock(observed.mutex);
    EXPECT_EQ(observed.calls, kThreads * kCalls / 2);
}

}  // namespace
}  // namespace bindertest
