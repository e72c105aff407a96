// The callback client as the service sees it: translation of deliveries,
// one-shot removal, null caller callbacks, and its lifetime.
#include "HalclientTestSupport.h"

namespace halclienttest {
namespace {

using namespace dolmHalclient;

using CallbackClientTest = HalclientTest;

TEST_F(CallbackClientTest, IdFormTranslatesEntriesAndLogsEach) {
    auto callback = std::make_shared<RecordingCallback>();
    ResourceList resources;
    dolmResCtlRequest(-1, 1, resources, -1, -1, 0, callback);
    mLog.clear();

    ASSERT_TRUE(
            mService->deliver(0, {entry(0x10, "1", "ignored"), entry(0x11, std::nullopt)}).isOk());

    std::vector<ResourceList> deliveries = callback->deliveries();
    ASSERT_EQ(deliveries.size(), 1u);
    std::vector<std::pair<int32_t, std::optional<std::string>>> got;
    for (const auto& r : deliveries[0]) got.emplace_back(r.id, r.value);
    EXPECT_EQ(got, (std::vector<std::pair<int32_t, std::optional<std::string>>>{{0x10, "1"},
                                                                                {0x11, ""}}));
    EXPECT_EQ(mLog.lines(),
              (std::vector<LogLine>{
                      cbInfo("DolmCallbackClient::onCallback res_Id 0x10 res_Value 1 is_register "
                             "0"),
                      cbInfo("DolmCallbackClient::onCallback res_Id 0x11 is_register 0"),
                      calledBack(0), found(), removed(1, 0)}));

    // A second delivery still reaches the caller, but the client is gone.
    mLog.clear();
    ASSERT_TRUE(mService->deliver(0, {entry(0x10, "2")}).isOk());
    EXPECT_EQ(callback->deliveries().size(), 2u);
    EXPECT_EQ(mLog.count(cbError("callback not found in request_callbacks")), 1u);
    EXPECT_EQ(mLog.count(removed(0, 0)), 1u);
}

TEST_F(CallbackClientTest, EmptyDeliveryToOneShotRemovesWithoutCalling) {
    auto first = std::make_shared<RecordingCallback>();
    auto second = std::make_shared<RecordingCallback>();
    dolmSACtlRequest(-1, 1, 1, -1, -1, 0, first);
    dolmSACtlRequest(-1, 1, 2, -1, -1, 0, second);
    mLog.clear();
    ASSERT_TRUE(mService->deliver(1, {}).isOk());
    EXPECT_TRUE(second->deliveries().empty());
    EXPECT_EQ(mLog.lines(), (std::vector<LogLine>{found(), removed(2, 1)}));
    // The other client is still there and is the one that remains.
    ASSERT_TRUE(mService->deliver(0, {entry(1, "x")}).isOk());
    EXPECT_EQ(first->deliveries().size(), 1u);
    EXPECT_EQ(requestCallbackCount(), 0u);
}

TEST_F(CallbackClientTest, NullCallerCallbackStillLogsAndRemoves) {
    ResourceList resources;
    dolmResCtlRequest(-1, 1, resources, -1, -1, 0, std::shared_ptr<IClientCallback>());
    dolm_resctl_request_with_callback_by_path(0, 0, {}, {}, 0, 0, 0,
                                              std::shared_ptr<IClientCallbackByPath>());
    mLog.clear();
    EXPECT_TRUE(mService->deliver(0, {entry(2, "5")}).isOk());
    EXPECT_TRUE(mService->deliver(1, {entry(0, "6", "/p")}).isOk());
    EXPECT_EQ(mLog.lines(),
              (std::vector<LogLine>{
                      cbInfo("DolmCallbackClient::onCallback res_Id 0x2 res_Value 5 is_register 0"),
                      found(), removed(2, 1),
                      cbInfo("DolmCallbackClient::onCallback res_Id /p res_Value 6 is_register 0"),
                      found(), removed(1, 0)}));
}

TEST_F(CallbackClientTest, ClientIsOneBinderObjectThatReleasesTheCallerCallback) {
    auto callback = std::make_shared<RecordingCallback>();
    std::weak_ptr<RecordingCallback> watch = callback;
    ResourceList resources;
    dolmResCtlRequest(-1, 1, resources, -1, -1, 0, callback);
    callback = nullptr;
    {
        std::lock_guard<std::mutex> lock(request_callback_mutex);
        ASSERT_EQ(request_callbacks.size(), 1u);
        auto* client = dynamic_cast<DolmCallbackClient*>(request_callbacks[0].get());
        ASSERT_NE(client, nullptr);
        EXPECT_FALSE(client->is_register);
        EXPECT_FALSE(client->by_path);
        EXPECT_EQ(client->callbackByPath, nullptr);
        // The registry's pointer and the binder's object are the same.
        EXPECT_EQ(::ndk::ICInterface::asInterface(client->asBinder().get()).get(), client);
    }
    EXPECT_FALSE(watch.expired());
    ASSERT_TRUE(mService->deliver(0, {}).isOk());
    // Once the service lets go too, the client goes and takes the caller's
    // callback with it.
    mService->kill();
    ASSERT_TRUE(mLog.waitCount(error("Dolm HAL Service died"), 1, kWait));
    mService = nullptr;
    EXPECT_TRUE(watch.expired());
    EXPECT_EQ(mLog.count(cbInfo("ndk backend ~DolmCallbackClient")), 1u);
}

}  // namespace
}  // namespace halclienttest
