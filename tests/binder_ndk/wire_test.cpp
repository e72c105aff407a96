// A peer that sends malformed or unexpected frames: each bad request fails
// alone, with an error status, and the process goes on serving.
#include "wire.h"

#include <android/binder_host.h>
#include <android/binder_manager.h>
#include <android/binder_process.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstring>
#include <optional>
#include <string>
#include <vector>

#include "RawPeer.h"
#include "TestBinders.h"
#include "TestProcess.h"

namespace bindertest {
namespace {

using namespace binder_host;

constexpr const char* kInstance = "binder.test.IEcho/wire";

class WireTest : public ::testing::Test {
  protected:
    void SetUp() override {
        // Served on this process's pool, reached through a proxy as from elsewhere.
        ABinderHost_setInProcessProxies(true);
        ABinderProcess_startThreadPool();
        mService = newEcho(&mObserved);
        ASSERT_EQ(AServiceManager_addService(mService.get(), kInstance), STATUS_OK);
        mPeer = std::make_unique<RawSocket>(
                endpointPath(mDir.path(), registeredKey(mDir.path(), kInstance)));
        ASSERT_TRUE(mPeer->connected());
        ASSERT_TRUE(mPeer->send(helloFrame(kHelloData, getpid(), keyOf(getpid()))));
    }

    // The status the service answers \p request with.
    int32_t statusOf(const std::vector<uint8_t>& request) {
        uint32_t type = 0;
        std::vector<uint8_t> reply;
        int32_t status = 1;
        EXPECT_TRUE(mPeer->send(request));
        EXPECT_TRUE(mPeer->readFrame(&type, &reply));
        EXPECT_EQ(type, kReply);
        if (reply.size() >= sizeof(status)) std::memcpy(&status, reply.data(), sizeof(status));
        return status;
    }

    // The service still answers real calls.
    void expectServing() {
        ndk::SpAIBinder proxy(AServiceManager_checkService(kInstance));
        ASSERT_NE(proxy.get(), nullptr);
        std::optional<std::string> text;
        int32_t value = 0;
        ASSERT_EQ(callEcho(proxy.get(), std::string("still"), 4, &text, &value), STATUS_OK);
        EXPECT_EQ(text, "still");
    }

    ScopedRegistryDir mDir;
    Observed mObserved;
    ndk::SpAIBinder mService;
    std::unique_ptr<RawSocket> mPeer;
};

TEST_F(WireTest, BadRequestsFailAloneWithAnErrorStatus) {
    uint64_t node = mPeer->serviceNode(kInstance);
    ASSERT_NE(node, 0u);
    struct Case {
        const char* name;
        std::vector<uint8_t> frame;
        int32_t expected;
    } cases[] = {
            {"truncated header fields", Payload().u32(7).frame(kTransact), STATUS_BAD_VALUE},
            {"data size past the payload",
             Payload().u64(node).u32(kEcho).u32(1000).u32(0).frame(kTransact), STATUS_BAD_VALUE},
            {"absurd object count",
             Payload().u64(node).u32(kEcho).u32(0).u32(0xfffffff0).frame(kTransact),
             STATUS_BAD_VALUE},
            {"object with a bad endpoint key",
             Payload().u64(node).u32(kEcho).u32(0).u32(1).str("../../etc").u64(1).str("d").frame(kTransact),
             STATUS_BAD_VALUE},
            {"unknown object", Payload().u64(node + 1000).u32(kEcho).u32(0).u32(0).frame(kTransact),
             STATUS_DEAD_OBJECT},
            {"wrong interface token",
             mPeer->transactFrame(node, kEcho, "binder.test.IOther", {-1, 5}), STATUS_BAD_TYPE},
            {"arguments missing", mPeer->transactFrame(node, kEcho, kEchoDescriptor),
             STATUS_NOT_ENOUGH_DATA},
            {"unknown request type", Payload().u64(node).frame(99), STATUS_UNKNOWN_TRANSACTION},
            {"lookup without a name", Payload().u32(50).frame(kGetService), STATUS_BAD_VALUE},
            {"well-formed call", mPeer->transactFrame(node, kEcho, kEchoDescriptor, {-1, 5}),
             STATUS_OK},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        EXPECT_EQ(statusOf(c.frame), c.expected);
    }
    expectServing();
}

TEST_F(WireTest, OversizedFrameClosesOnlyThatConnection) {
    ASSERT_TRUE(mPeer->send(Payload().frame(kTransact, kMaxFrame + 1)));
    EXPECT_TRUE(mPeer->waitClosed(std::chrono::seconds(10)));
    expectServing();
}

TEST_F(WireTest, PeerVanishingMidFrameDoesNotDisturbTheServer) {
    ASSERT_TRUE(mPeer->send(Payload().u64(1).u32(kEcho).frame(kTransact, 400)));
    mPeer.reset();
    expectServing();
}

}  // namespace
}  // namespace bindertest
