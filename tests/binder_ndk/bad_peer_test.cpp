// Local processes that misbehave on purpose: a peer that dribbles its hello,
// peers that claim another process's endpoint key, processes that come and
// go, a frame that announces more than any transaction may carry. None of
// them may stall, cut off or bloat a well-behaved process.
#include <android/binder_host.h>
#include <android/binder_manager.h>
#include <android/binder_parcel_utils.h>
#include <android/binder_process.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "RawPeer.h"
#include "TestBinders.h"
#include "TestProcess.h"

namespace bindertest {
namespace {

using binder_host::kHelloControl;
using binder_host::kHelloData;
using binder_host::kTransact;

constexpr const char* kInstance = "binder.test.IEcho/bad-peer";
constexpr const char* kOtherInstance = "binder.test.IEcho/other";
constexpr const char* kOwnInstance = "binder.test.IEcho/own";
// Under TSan a new pool thread alone costs about 1 MiB of peak memory, while
// memory the runtime allocates and fills costs several times its size.
#if defined(__SANITIZE_THREAD__)
constexpr bool kThreadSanitizer = true;
#elif defined(__has_feature)
constexpr bool kThreadSanitizer = __has_feature(thread_sanitizer);
#else
constexpr bool kThreadSanitizer = false;
#endif

// Time given to a runtime that wrongly acts on a bad peer at once to do so.
constexpr auto kWrongAnswerWindow = std::chrono::milliseconds(500);

class BadPeerTest : public ::testing::Test {
  protected:
    /** Registers a service of this process; the endpoint key of this process. */
    std::string ownKey() {
        mOwn = newEcho(&mOwnState);
        if (AServiceManager_addService(mOwn.get(), kOwnInstance) != STATUS_OK) return "";
        return registeredKey(mDir.path(), kOwnInstance);
    }

    ScopedRegistryDir mDir;
    Observed mOwnState;
    ndk::SpAIBinder mOwn;
};

// A connection that sends its hello one byte every 1.5 s, until the other end
// closes it or 20 s pass.
class SlowHello {
  public:
    explicit SlowHello(const std::string& path)
        : mSocket(path),
          mHello(helloFrame(kHelloData, getpid(), keyOf(getpid()))),
          mThread([this] { dribble(); }) {
        // The receiver has the first byte before anything else happens.
        std::unique_lock<std::mutex> lock(mMutex);
        mChanged.wait_for(lock, kWaitLimit, [&] { return mSent > 0 || mDone; });
    }
    ~SlowHello() { mThread.join(); }
    SlowHello(const SlowHello&) = delete;
    SlowHello& operator=(const SlowHello&) = delete;

    bool cutOff() {
        std::lock_guard<std::mutex> lock(mMutex);
        return mCutOff;
    }
    /** Waits until the receiver closed the connection; false after \p limit or once all was sent. */
    bool waitCutOff(std::chrono::seconds limit) {
        std::unique_lock<std::mutex> lock(mMutex);
        return mChanged.wait_for(lock, limit, [&] { return mDone; }) && mCutOff;
    }
    std::string progress() {
        std::lock_guard<std::mutex> lock(mMutex);
        return std::to_string(mSent) + " of " + std::to_string(mHello.size()) + " bytes sent";
    }

  private:
    void dribble() {
        auto giveUp = std::chrono::steady_clock::now() + std::chrono::seconds(20);
        bool closed = !mSocket.connected();
        for (size_t i = 0; i < mHello.size() && !closed; ++i) {
            closed = !mSocket.send({mHello[i]});
            {
                std::lock_guard<std::mutex> lock(mMutex);
                mSent += closed ? 0 : 1;
                mChanged.notify_all();
            }
            closed = closed || mSocket.waitClosed(std::chrono::milliseconds(1500));
            if (std::chrono::steady_clock::now() > giveUp) break;
        }
        std::lock_guard<std::mutex> lock(mMutex);
        mCutOff = closed && mSent > 0;  // not when it could not even connect
        mDone = true;
        mChanged.notify_all();
    }

    RawSocket mSocket;
    const std::vector<uint8_t> mHello;
    std::mutex mMutex;
    std::condition_variable mChanged;
    size_t mSent = 0;
    bool mCutOff = false;
    bool mDone = false;
    std::thread mThread;  // last: starts once the rest is ready
};

// While a peer dribbles its hello, another process connects and calls, and a
// death notice arrives: each before that slow peer is cut off, which its 2 s
// deadline does long before its hello could be complete.
TEST_F(BadPeerTest, SlowHelloStallsNoOtherPeer) {
    ABinderProcess_startThreadPool();
    std::string path = endpointPath(mDir.path(), ownKey());
    HolderAndDying peers(kInstance, kOtherInstance);
    ASSERT_TRUE(peers.ready());
    Observed& observed = peers.observed;

    // The holder knows nothing of this process yet: taking the callback and
    // calling it from a thread of its own opens its connections to us.
    SlowHello first(path);
    EXPECT_EQ(peers.callBackLater("meanwhile"), STATUS_OK);
    EXPECT_TRUE(observed.waitFor([&] { return observed.calls == 1; }));
    EXPECT_FALSE(first.cutOff()) << "the call was served only once the slow peer was cut off";

    SlowHello second(path);
    peers.dying.kill();
    EXPECT_TRUE(peers.deaths.waitFor(1));
    EXPECT_FALSE(second.cutOff()) << "the death notice came only once the slow peer was cut off";

    for (SlowHello* slow : {&first, &second}) {
        EXPECT_TRUE(slow->waitCutOff(std::chrono::seconds(20)))
                << "the slow peer was not cut off (" << slow->progress() << ")";
    }
    EXPECT_EQ(peers.holder.nextLine(), "called 0");
    EXPECT_TRUE(peers.callbackGoesWithHolder());
}

// A third process sends a control hello that claims another process's key,
// then closes it: as if that process had died. Claiming the client's key at
// the service must not make the service drop the client's callback; claiming
// the service's key at the client must not turn the client's proxy dead.
TEST_F(BadPeerTest, PeerClaimingAnotherProcesssKeyChangesNothing) {
    ABinderProcess_startThreadPool();
    std::string clientKey = ownKey();
    ASSERT_FALSE(clientKey.empty());
    EchoChild service(kInstance);
    ASSERT_TRUE(service.ready());
    std::string serviceKey = registeredKey(mDir.path(), kInstance);
    AIBinder* proxy = service.proxy();
    Deaths deaths;
    ASSERT_EQ(deaths.link(proxy), STATUS_OK);
    Observed observed;
    ndk::SpAIBinder callback = newCallback(&observed);
    int32_t result = 0;
    // The service links to the callback's death and reports "held died" if it fires.
    ASSERT_EQ(callWithBinder(proxy, kHold, callback.get(), "", &result), STATUS_OK);

    const struct {
        const char* name;
        std::string target;  // endpoint the hello goes to
        std::string key;     // key it claims
        pid_t pid;           // pid it claims; 0: the liar's own
    } cases[] = {
            {"client's key at the service, own pid", serviceKey, clientKey, 0},
            {"client's key and pid at the service", serviceKey, clientKey, getpid()},
            {"service's key at the client, own pid", clientKey, serviceKey, 0},
            {"service's key and pid at the client", clientKey, serviceKey, service.pid()},
    };
    int calls = 0;
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        std::string path = endpointPath(mDir.path(), c.target);
        pid_t liar = forkPeer([&] {
            RawSocket socket(path);
            bool sent = socket.connected() &&
                        socket.send(helloFrame(kHelloControl, c.pid != 0 ? c.pid : getpid(), c.key));
            return sent ? 0 : 1;
        });
        ASSERT_GT(liar, 0);
        ASSERT_EQ(waitPeer(liar), 0);

        EXPECT_FALSE(deaths.waitFor(1, kWrongAnswerWindow))
                << "the client took the service for dead";
        // Within the same window, the service would have reported the callback dead.
        EXPECT_EQ(service.nextLine(std::chrono::milliseconds(0)), "")
                << "the service took the client for dead";
        EXPECT_TRUE(AIBinder_isAlive(proxy));
        EXPECT_TRUE(echoes(proxy));
        ASSERT_EQ(callHeldLater(proxy, c.name), STATUS_OK);
        EXPECT_EQ(service.nextLine(), "called 0");
        ++calls;
        EXPECT_TRUE(observed.waitFor([&] { return observed.calls == calls; }));
    }
    callback.set(nullptr);
    service.kill();
    EXPECT_TRUE(observed.waitFor([&] { return observed.destroyed == 1; }));
}

// Processes that come and go leave no record behind: a service restarted
// again and again, and short-lived callers that only ever send a request.
TEST_F(BadPeerTest, DeadPeersAreForgotten) {
    ABinderProcess_startThreadPool();
    auto allForgotten = [] {
        auto deadline = std::chrono::steady_clock::now() + kWaitLimit;
        while (ABinderHost_getPeerCount() != 0 && std::chrono::steady_clock::now() < deadline) {
            std::this_thread::sleep_for(std::chrono::milliseconds(10));
        }
        return ABinderHost_getPeerCount() == 0;
    };
    constexpr int kRestarts = 20;
    for (int i = 0; i < kRestarts; ++i) {
        SCOPED_TRACE("restart " + std::to_string(i));
        EchoChild child(kInstance);
        ASSERT_TRUE(child.ready());
        EXPECT_TRUE(echoes(child.proxy()));
        // This child and at most its predecessor, not yet found dead.
        EXPECT_LE(ABinderHost_getPeerCount(), 2u);
    }
    EXPECT_TRUE(allForgotten()) << ABinderHost_getPeerCount() << " restarted services kept";

    std::string path = endpointPath(mDir.path(), ownKey());
    constexpr int kCallers = 10;
    for (int i = 0; i < kCallers; ++i) {
        pid_t caller = forkPeer([&] {
            RawSocket socket(path);
            bool served = socket.connected() &&
                          socket.send(helloFrame(kHelloData, getpid(), keyOf(getpid()))) &&
                          socket.serviceNode(kOwnInstance) != 0;
            return served ? 0 : 1;
        });
        ASSERT_GT(caller, 0);
        ASSERT_EQ(waitPeer(caller), 0);
    }
    EXPECT_TRUE(allForgotten()) << ABinderHost_getPeerCount()
                                << " callers kept that only sent a request, then exited";
}

// A frame that announces 2 MiB, then brings them, as the hello or after
// one: the connection is closed without an answer, the receiver's peak
// memory does not grow by what was announced, and it serves on.
TEST_F(BadPeerTest, HugeFrameIsRefusedBeforeItCostsMemory) {
    constexpr uint32_t kAnnounced = 2u << 20;
    // The 1 MiB limit and some slack, not the 2 MiB announced.
    constexpr long kMaxGrowthKiB = kThreadSanitizer ? 4096 : 1536;
    const struct {
        const char* name;
        bool afterHello;
        uint32_t type;
    } cases[] = {
            {"as the hello", false, kHelloData},
            {"after a hello", true, kTransact},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        EchoChild child(kInstance);
        ASSERT_TRUE(child.ready());
        std::string path = endpointPath(mDir.path(), registeredKey(mDir.path(), kInstance));
        const std::vector<uint8_t> hello = helloFrame(kHelloData, getpid(), keyOf(getpid()));
        {
            // The same kind of connection, well-behaved: what any connection costs is in the baseline.
            RawSocket warmUp(path);
            ASSERT_TRUE(warmUp.send(hello));
            ASSERT_NE(warmUp.serviceNode(kInstance), 0u);
        }
        ASSERT_TRUE(echoes(child.proxy()));
        long before = peakMemoryKiB(child.pid());
        ASSERT_GT(before, 0);

        RawSocket socket(path);
        ASSERT_TRUE(socket.connected());
        if (c.afterHello) {
            ASSERT_TRUE(socket.send(hello));
        }
        std::vector<uint8_t> huge = Payload().frame(c.type, kAnnounced);
        huge.resize(huge.size() + kAnnounced);
        socket.send(huge);  // may fail part way: the receiver closes as soon as it sees the header
        EXPECT_TRUE(socket.waitClosed(kWaitLimit)) << "not closed, or answered";
        long after = peakMemoryKiB(child.pid());
        EXPECT_LT(after - before, kMaxGrowthKiB)
                << "peak memory " << before << " -> " << after << " KiB";
        EXPECT_TRUE(echoes(child.proxy()));
    }
}

}  // namespace
}  // namespace bindertest
