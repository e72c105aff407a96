// Listening by id, thermal notification and listening, and state queries by
// id: parcels, the duplicate test, unregistration by handle, and results.
#include "HalclientTestSupport.h"

namespace halclienttest {
namespace {

using namespace dolmHalclient;

const LogLine kDuplicate = error("Same callback interface registered already");
const LogLine kRegistered = info("A callback has been registered to Dolm HAL ");
const LogLine kNotRegistered = error("The callback was not registered before");

LogLine unregistered(int handle) {
    return info("a callback has been unregistered to Dolm HAL handle " + std::to_string(handle));
}

class ListeningTest : public HalclientTest {
  protected:
    int registerIds(const std::vector<int32_t>& ids, int handle) {
        mService->setAnswer(Op::kRegisterListener, Answer::ok(handle));
        ResourceList resources;
        for (int32_t id : ids) resources.push_back(res(id, "1"));
        return dolmResListeningRegister(resources, 0, mCallback);
    }

    std::shared_ptr<RecordingCallback> mCallback = std::make_shared<RecordingCallback>();
};

TEST_F(ListeningTest, RegisterSendsTheResourcesAndReturnsTheHandle) {
    mService->setAnswer(Op::kRegisterListener, Answer::ok(11));
    ResourceList resources{res(5, "50"), bare(7)};
    EXPECT_EQ(dolmResListeningRegister(resources, 9, mCallback), 11);

    std::vector<zeltest::Call> calls = mService->calls(Op::kRegisterListener);
    ASSERT_EQ(calls.size(), 1u);
    EXPECT_NE(calls[0].callback, nullptr);
    const DolmRequestParcel& parcel = calls[0].parcel;
    EXPECT_EQ(parcel.requestType, 0);
    EXPECT_EQ(parcel.clientArg, 9);
    EXPECT_EQ(parcel.callback, nullptr);
    EXPECT_FALSE(parcel.tags.has_value());
    EXPECT_EQ(parcel.data, (std::vector<DolmRequestData>{entry(5, "50"), entry(7, "")}));
    EXPECT_EQ(mLog.lines(), (std::vector<LogLine>{info("dolmResListeningRegister"), kRegistered}));
}

// A negative handle is recorded like any other.
TEST_F(ListeningTest, SameIdListIsRefusedUntilUnregistered) {
    EXPECT_EQ(registerIds({5, 7}, -7), -7);
    EXPECT_EQ(registerIds({5, 7}, 12), -1);
    EXPECT_EQ(mLog.count(kDuplicate), 1u);
    EXPECT_EQ(mService->calls(Op::kRegisterListener).size(), 1u);

    EXPECT_EQ(registerIds({7, 5}, 13), 13);  // order matters

    mService->setAnswer(Op::kUnregisterListener, Answer::ok(0));
    EXPECT_EQ(dolmResListeningUnRegister(-7), 0);
    EXPECT_EQ(mLog.count(unregistered(-7)), 1u);
    EXPECT_EQ(mService->calls(Op::kUnregisterListener).at(0).first, -7);
    EXPECT_EQ(registerIds({5, 7}, 14), 14);
}

TEST_F(ListeningTest, UnregisterReturnsTheServiceResultForAnUnknownHandle) {
    mService->setAnswer(Op::kUnregisterListener, Answer::ok(4));
    EXPECT_EQ(dolmResListeningUnRegister(99), 4);
    EXPECT_EQ(mLog.lines(), (std::vector<LogLine>{info("dolm client dolmResListeningUnRegister"),
                                                  kNotRegistered}));

    // A failed unregistration still removes the groups, then resets.
    registerIds({1}, 6);
    mLog.clear();
    mService->setAnswer(Op::kUnregisterListener, Answer::transportFailure(STATUS_DEAD_OBJECT));
    EXPECT_EQ(dolmResListeningUnRegister(6), -1);
    EXPECT_EQ(mLog.lines(),
              (std::vector<LogLine>{info("dolm client dolmResListeningUnRegister"), unregistered(6),
                                    failed("dolmResListeningUnRegister")}));
    EXPECT_EQ(registerIds({1}, 7), 7);
}

TEST_F(ListeningTest, ListenerDeliveriesReachTheCallerAndLeaveTheRegistryAlone) {
    registerIds({0x10, 0x11}, 1);
    mLog.clear();
    ASSERT_TRUE(mService->deliver(0, {entry(0x10, "1"), entry(0x11, std::nullopt)}).isOk());
    ASSERT_TRUE(mService->deliver(0, {entry(0x10, "2")}).isOk());
    // An empty delivery to a listener does nothing at all.
    ASSERT_TRUE(mService->deliver(0, {}).isOk());
    std::vector<ResourceList> deliveries = mCallback->deliveries();
    ASSERT_EQ(deliveries.size(), 2u);
    EXPECT_EQ(deliveries[1].front().value, std::optional<std::string>("2"));
    // No line of the request functions' tag, none about request_callbacks.
    const LogLine called = calledBack(1);
    EXPECT_EQ(
            mLog.lines(),
            (std::vector<LogLine>{
                    cbInfo("DolmCallbackClient::onCallback res_Id 0x10 res_Value 1 is_register 1"),
                    cbInfo("DolmCallbackClient::onCallback res_Id 0x11 is_register 1"), called,
                    cbInfo("DolmCallbackClient::onCallback res_Id 0x10 res_Value 2 is_register 1"),
                    called}));
}

TEST_F(ListeningTest, EmptyIdListCollidesWithAnyPathRegistration) {
    mService->setAnswer(Op::kRegisterListener, Answer::ok(1));
    EXPECT_EQ(dolm_res_listening_register_by_path({"a"}, 0,
                                                  std::make_shared<RecordingPathCallback>()),
              1);
    ResourceList empty;
    EXPECT_EQ(dolmResListeningRegister(empty, 0, mCallback), -1);
    EXPECT_EQ(mLog.count(kDuplicate), 1u);
}

using ThermalTest = ListeningTest;

TEST_F(ThermalTest, NotifyMapsTheServiceAnswer) {
    ResourceList resources{res(3, "2"), bare(0)};
    mService->setAnswer(Op::kRequest, Answer::ok(5));
    EXPECT_EQ(dolmThermalNotify(resources, 8), 0);
    mService->setAnswer(Op::kRequest, Answer::ok(0));
    EXPECT_EQ(dolmThermalNotify(resources, 8), -1);
    mService->setAnswer(Op::kRequest, Answer::ok(1));
    EXPECT_EQ(dolmThermalNotify(resources, 8), 0);

    DolmRequestParcel parcel = requestParcel();
    EXPECT_EQ(parcel.requestType, 7);
    EXPECT_EQ(parcel.clientArg, 8);
    EXPECT_EQ(parcel.option, 0);
    EXPECT_EQ(parcel.leadArg, 0);
    EXPECT_EQ(parcel.data, (std::vector<DolmRequestData>{entry(3, "2"), entry(0, "")}));
    EXPECT_EQ(mLog.count(info("dolm client dolmThermalNotify")), 3u);
}

TEST_F(ThermalTest, SameIdsRegisterTwiceAndBlockIdListening) {
    mService->setAnswer(Op::kRegisterThermalListener, Answer::ok(4));
    EXPECT_EQ(dolmThermalListeningRegister({3, 4}, mCallback), 4);
    mService->setAnswer(Op::kRegisterThermalListener, Answer::ok(5));
    EXPECT_EQ(dolmThermalListeningRegister({3, 4}, mCallback), 5);
    std::vector<zeltest::Call> calls = mService->calls(Op::kRegisterThermalListener);
    ASSERT_EQ(calls.size(), 2u);
    EXPECT_EQ(calls[0].ids, (std::vector<int32_t>{3, 4}));
    EXPECT_NE(calls[0].callback, nullptr);
    EXPECT_EQ(mLog.count(info("subsys's callback has been registered to Dolm HAL")), 2u);

    EXPECT_EQ(registerIds({3, 4}, 9), -1);
    EXPECT_EQ(mLog.count(kDuplicate), 1u);

    // An empty id vector is sent as it is.
    EXPECT_EQ(dolmThermalListeningRegister({}, mCallback), 5);
    EXPECT_TRUE(mService->calls(Op::kRegisterThermalListener).back().ids.empty());
}

// The group of a thermal registration outlives its unregistration at the
// service: its id list is still refused, and the id-addressed unregistration
// removes it, with every other group of the same handle.
TEST_F(ThermalTest, GroupOutlivesThermalUnregistrationAndGoesByHandle) {
    mService->setAnswer(Op::kRegisterThermalListener, Answer::ok(4));
    dolmThermalListeningRegister({3}, mCallback);
    registerIds({2}, 4);
    mService->setAnswer(Op::kUnregisterThermalListener, Answer::ok(2));
    EXPECT_EQ(dolmThermalListeningUnregister(4), 2);
    EXPECT_EQ(mService->calls(Op::kUnregisterThermalListener).at(0).first, 4);
    EXPECT_EQ(mLog.count(info("subsys's callback has been unRegistered to Dolm HAL")), 1u);
    EXPECT_EQ(registerIds({3}, 8), -1);

    EXPECT_EQ(dolmResListeningUnRegister(4), 0);
    EXPECT_EQ(mLog.count(unregistered(4)), 2u);
    EXPECT_EQ(mLog.count(kNotRegistered), 0u);
    EXPECT_EQ(registerIds({3}, 6), 6);
    EXPECT_EQ(registerIds({2}, 7), 7);
}

using StateRequestTest = HalclientTest;

TEST_F(StateRequestTest, AppendsTheAnswerAfterExistingElements) {
    ResourceList resources{res(1, "x"), bare(2)};
    ResourceList out{res(9, "old"), bare(8)};
    EXPECT_EQ(dolmResStateRequest(resources, 6, out), -1);  // an empty answer
    EXPECT_EQ(out.size(), 2u);

    mLog.clear();
    mService->setDataAnswer({entry(1, "a,b"), entry(2, std::nullopt), entry(3, "c", "p")});
    EXPECT_EQ(dolmResStateRequest(resources, 6, out), 5);

    std::vector<zeltest::Call> calls = mService->calls(Op::kGetData);
    ASSERT_EQ(calls.size(), 2u);
    EXPECT_EQ(calls[1].parcel.requestType, 0);
    EXPECT_EQ(calls[1].parcel.clientArg, 6);
    EXPECT_EQ(calls[1].parcel.data, (std::vector<DolmRequestData>{entry(1, "x"), entry(2, "")}));
    std::vector<std::pair<int32_t, std::optional<std::string>>> got;
    for (const auto& r : out) got.emplace_back(r.id, r.value);
    EXPECT_EQ(got, (std::vector<std::pair<int32_t, std::optional<std::string>>>{
                           {9, "old"}, {8, std::nullopt}, {1, "a,b"}, {2, ""}, {3, "c"}}));
    EXPECT_EQ(mLog.lines(), (std::vector<LogLine>{info("dolm client dolmResStateRequest"),
                                                  info("dolm client hal dolmResStateRequest"),
                                                  info("dolm client dolmResStateRequest size 5")}));
}

}  // namespace
}  // namespace halclienttest
