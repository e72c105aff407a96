// Resource control and sub-system control: validation, the parcels the
// service receives, results, failure lines and the one-shot callbacks.
#include <functional>

#include "HalclientTestSupport.h"

namespace halclienttest {
namespace {

using namespace dolmHalclient;

void expectEntries(const std::vector<DolmRequestData>& actual,
                   const std::vector<DolmRequestData>& expected) {
    ASSERT_EQ(actual.size(), expected.size());
    for (size_t i = 0; i < actual.size(); ++i) {
        EXPECT_EQ(actual[i], expected[i])
                << "entry " << i << ": " << describe(actual[i]) << " vs " << describe(expected[i]);
    }
}

struct ListCase {
    const char* name;
    ResourceList resources;
    bool valid;
};

// Test names and messages show the case by its name.
void PrintTo(const ListCase& c, std::ostream* os) {
    *os << c.name;
}

class CheckResourceListTest : public ::testing::TestWithParam<ListCase> {};

TEST_P(CheckResourceListTest, AcceptsExactlyTheWellFormedLists) {
    ResourceList resources = GetParam().resources;
    EXPECT_EQ(checkResourceList(resources), GetParam().valid);
}

INSTANTIATE_TEST_SUITE_P(Lists, CheckResourceListTest,
                         ::testing::Values(ListCase{"Empty", {}, true},
                                           ListCase{"IdWithValue", {res(5, "100")}, true},
                                           ListCase{"IdWithoutValue", {bare(5)}, false},
                                           ListCase{"IdWithEmptyValue", {res(5, "")}, false},
                                           ListCase{"ZeroWithoutValue", {bare(0)}, true},
                                           ListCase{"ZeroWithEmptyValue", {res(0, "")}, true},
                                           ListCase{"ZeroWithValue", {res(0, "1")}, false},
                                           ListCase{"NegativeIdWithValue", {res(-3, "x")}, true},
                                           ListCase{"BadAfterGood", {res(5, "1"), bare(6)}, false},
                                           ListCase{"Duplicates", {res(5, "1"), res(5, "2")}, true}),
                         [](const auto& info) { return std::string(info.param.name); });

using ResourceControlTest = HalclientTest;

TEST_F(ResourceControlTest, FullFormSendsEveryFieldAndReturnsTheHandle) {
    mService->setAnswer(Op::kRequest, Answer::ok(77));
    ResourceList resources{res(5, "100"), bare(0), res(0, "")};

    EXPECT_EQ(dolmResCtlRequest(3, -5, resources, 9, 1, 42), 77);

    DolmRequestParcel parcel = requestParcel();
    EXPECT_EQ(parcel.requestType, 1);
    EXPECT_TRUE(parcel.flag);
    EXPECT_EQ(parcel.option, 9);
    EXPECT_EQ(parcel.clientArg, 42);
    EXPECT_EQ(parcel.timeout, int64_t{-5});
    EXPECT_EQ(parcel.leadArg, 3);
    EXPECT_FALSE(parcel.tags.has_value());
    EXPECT_EQ(parcel.callback, nullptr);
    EXPECT_FALSE(parcel.pkg.has_value());
    EXPECT_FALSE(parcel.identity.has_value());
    EXPECT_FALSE(parcel.numbers.has_value());
    expectEntries(parcel.data, {entry(5, "100"), entry(0, ""), entry(0, "")});
    EXPECT_EQ(mLog.lines(), std::vector<LogLine>{info("dolm client dolmResCtlRequest")});
}

TEST_F(ResourceControlTest, EmptyListSendsEmptyData) {
    ResourceList resources;
    EXPECT_EQ(dolmResCtlRequest(1, resources, 0), 0);
    EXPECT_TRUE(requestParcel().data.empty());
}

TEST_F(ResourceControlTest, NegativeHandleIsReturnedUnchanged) {
    mService->setAnswer(Op::kRequest, Answer::ok(-9));
    ResourceList resources{res(1, "1")};
    EXPECT_EQ(dolmResCtlRequest(1, resources, 0), -9);
    EXPECT_EQ(mLog.count(failed("dolmResCtlRequest")), 0u);
}

struct OverloadCase {
    const char* name;
    std::function<int(ResourceList&)> call;
    int32_t leadArg;
    int32_t option;
    bool flag;
};

// Test names and messages show the case by its name.
void PrintTo(const OverloadCase& c, std::ostream* os) {
    *os << c.name;
}

class ResCtlOverloadTest : public HalclientTest,
                           public ::testing::WithParamInterface<OverloadCase> {};

TEST_P(ResCtlOverloadTest, ForwardsWithDefaults) {
    mService->setAnswer(Op::kRequest, Answer::ok(5));
    ResourceList resources{res(8, "2")};
    EXPECT_EQ(GetParam().call(resources), 5);
    DolmRequestParcel parcel = requestParcel();
    EXPECT_EQ(parcel.leadArg, GetParam().leadArg);
    EXPECT_EQ(parcel.option, GetParam().option);
    EXPECT_EQ(parcel.flag, GetParam().flag);
    EXPECT_EQ(parcel.timeout, 10);
    EXPECT_EQ(parcel.clientArg, 4);
    expectEntries(parcel.data, {entry(8, "2")});
}

INSTANTIATE_TEST_SUITE_P(
        Overloads, ResCtlOverloadTest,
        ::testing::Values(
                OverloadCase{"TimeoutClient",
                             [](ResourceList& l) { return dolmResCtlRequest(10, l, 4); }, -1, -1,
                             false},
                OverloadCase{"TimeoutFlagClient",
                             [](ResourceList& l) { return dolmResCtlRequest(10, l, 1, 4); }, -1, -1,
                             true},
                OverloadCase{"TimeoutOptionFlagClient",
                             [](ResourceList& l) { return dolmResCtlRequest(10, l, 6, 0, 4); }, -1,
                             6, false},
                OverloadCase{"LeadTimeoutClient",
                             [](ResourceList& l) { return dolmResCtlRequest(2, 10, l, 4); }, 2, -1,
                             false},
                OverloadCase{"LeadTimeoutFlagClient",
                             [](ResourceList& l) { return dolmResCtlRequest(2, 10, l, 7, 4); }, 2,
                             -1, true},
                OverloadCase{"Full",
                             [](ResourceList& l) { return dolmResCtlRequest(2, 10, l, 6, -1, 4); },
                             2, 6, false}),
        [](const auto& info) { return std::string(info.param.name); });

class FlagTest : public HalclientTest, public ::testing::WithParamInterface<std::pair<int, bool>> {};

TEST_P(FlagTest, FlagIsSetFromOneUp) {
    ResourceList resources;
    dolmResCtlRequest(-1, 0, resources, -1, GetParam().first, 0);
    dolmSACtlRequest(-1, 0, 3, -1, GetParam().first, 0);
    EXPECT_EQ(requestParcel(0).flag, GetParam().second);
    EXPECT_EQ(requestParcel(1).flag, GetParam().second);
}

INSTANTIATE_TEST_SUITE_P(Flags, FlagTest,
                         ::testing::Values(std::make_pair(-1, false), std::make_pair(0, false),
                                           std::make_pair(1, true), std::make_pair(7, true)));

struct RefusalCase {
    const char* name;
    std::function<int(ResourceList&)> call;
    const char* message;
};

// Test names and messages show the case by its name.
void PrintTo(const RefusalCase& c, std::ostream* os) {
    *os << c.name;
}

class ResCtlRefusalTest : public HalclientTest, public ::testing::WithParamInterface<RefusalCase> {};

TEST_P(ResCtlRefusalTest, InvalidListIsRefusedWithoutCall) {
    ResourceList resources{res(5, "1"), bare(6)};
    EXPECT_EQ(GetParam().call(resources), -1);
    EXPECT_TRUE(mService->calls().empty());
    EXPECT_EQ(mLog.count(error(GetParam().message)), 1u);
    EXPECT_EQ(requestCallbackCount(), 0u);
}

INSTANTIATE_TEST_SUITE_P(
        Refusals, ResCtlRefusalTest,
        ::testing::Values(
                RefusalCase{"Plain", [](ResourceList& l) { return dolmResCtlRequest(10, l, 0); },
                            "dolmResCtlRequest ERROR: size unmatched for id and value "},
                RefusalCase{"WithCallback",
                            [](ResourceList& l) {
                                return dolmResCtlRequest(-1, 10, l, -1, -1, 0,
                                                         std::make_shared<RecordingCallback>());
                            },
                            "dolm client dolm_resctl_request ERROR: size unmatched for id and "
                            "value "},
                RefusalCase{"ThermalNotify", [](ResourceList& l) { return dolmThermalNotify(l, 0); },
                            "dolmThermalNotify ERROR: size unmatched for id and level "}),
        [](const auto& info) { return std::string(info.param.name); });

TEST_F(ResourceControlTest, CallbackVariantRegistersBeforeSendingAndIsRemovedByItsDelivery) {
    mService->setAnswer(Op::kRequest, Answer::ok(12));
    auto callback = std::make_shared<RecordingCallback>();
    ResourceList resources{res(5, "100")};

    EXPECT_EQ(dolmResCtlRequest(1, 2, resources, 3, 4, 5, callback), 12);

    DolmRequestParcel parcel = requestParcel();
    EXPECT_NE(parcel.callback, nullptr);
    EXPECT_EQ(parcel.requestType, 1);
    EXPECT_EQ(parcel.leadArg, 1);
    EXPECT_EQ(parcel.timeout, 2);
    EXPECT_EQ(parcel.option, 3);
    EXPECT_TRUE(parcel.flag);
    EXPECT_EQ(parcel.clientArg, 5);
    expectEntries(parcel.data, {entry(5, "100")});
    EXPECT_EQ(requestCallbackCount(), 1u);
    EXPECT_EQ(
            mLog.lines(),
            (std::vector<LogLine>{info("dolm client dolmResCtlRequest with callback"),
                                  info("new std::shared_ptr DolmCallbackClient callback"),
                                  info("dolm client dolmResCtlRequest add to request_callbacks")}));

    mLog.clear();
    ASSERT_TRUE(mService->deliver(0, {entry(0x10, "1")}).isOk());
    ASSERT_EQ(callback->deliveries().size(), 1u);
    EXPECT_EQ(requestCallbackCount(), 0u);
    EXPECT_EQ(mLog.count(cbInfo("callback is found in request_callbacks")), 1u);
    EXPECT_EQ(mLog.count(cbInfo("DolmCallback::onCallback request callback called , remove from "
                                "request_callbacks , request_callbacks size before 1 after 0")),
              1u);

    // A second delivery still reaches the caller, but the client is gone.
    mLog.clear();
    ASSERT_TRUE(mService->deliver(0, {entry(0x10, "2")}).isOk());
    EXPECT_EQ(callback->deliveries().size(), 2u);
    EXPECT_EQ(mLog.count(cbError("callback not found in request_callbacks")), 1u);
    EXPECT_EQ(mLog.count(cbInfo("DolmCallback::onCallback request callback called , remove from "
                                "request_callbacks , request_callbacks size before 0 after 0")),
              1u);
}

TEST_F(ResourceControlTest, FailedCallbackRequestsLeaveTheirClientsRegistered) {
    mService->setAnswer(Op::kRequest, Answer::serviceSpecific(3));
    ResourceList resources{res(5, "1")};
    auto callback = std::make_shared<RecordingCallback>();

    EXPECT_EQ(dolmResCtlRequest(-1, 10, resources, -1, -1, 0, callback), -1);
    EXPECT_EQ(dolmSACtlRequest(-1, 10, 4, -1, -1, 0, callback), -1);

    EXPECT_EQ(requestCallbackCount(), 2u);
    EXPECT_EQ(mLog.count(failed("dolm client DolmCallbackClient with callback")), 1u);
    EXPECT_EQ(mLog.count(failed("dolmSACtlRequest with callback")), 1u);
}

// The fake lives in this process and is reached through an in-process proxy,
// so it delivers from the binder thread that serves the request while the
// caller waits, as a service that delivers from another thread does. (A
// service in another process that delivers from inside the request reaches
// the caller's own thread: NestedDelivery_test.cpp.)
TEST(ResourceControlDeliveryTest, CallbackFromAnotherThreadArrivesBeforeRequestReturns) {
    zeltest::LogCapture log;
    auto service = CallingBackService::startCallingBack({entry(7, "70"), entry(8, std::nullopt)});
    ASSERT_NE(service, nullptr);
    service->setAnswer(Op::kRequest, Answer::ok(3));
    auto callback = std::make_shared<RecordingCallback>();
    ResourceList resources{res(7, "1")};

    EXPECT_EQ(dolmResCtlRequest(-1, 10, resources, -1, -1, 0, callback), 3);

    // No waiting: the delivery has already happened.
    std::vector<ResourceList> deliveries = callback->deliveries();
    ASSERT_EQ(deliveries.size(), 1u);
    ASSERT_EQ(deliveries[0].size(), 2u);
    EXPECT_EQ(deliveries[0].front().id, 7);
    EXPECT_EQ(deliveries[0].front().value, std::optional<std::string>("70"));
    EXPECT_EQ(deliveries[0].back().value, std::optional<std::string>(""));
    EXPECT_NE(callback->threads()[0], std::this_thread::get_id());
    EXPECT_EQ(requestCallbackCount(), 0u);
    EXPECT_EQ(log.count(cbInfo("callback is found in request_callbacks")), 1u);
}

TEST_F(ResourceControlTest, ReleasePassesHandleAndResultAndFailsWithItsLabel) {
    mService->setAnswer(Op::kRelease, Answer::ok(6));
    EXPECT_EQ(dolmResCtlRelease(-4), 6);
    EXPECT_EQ(dolmSACtlRelease(0), 6);
    std::vector<zeltest::Call> calls = mService->calls(Op::kRelease);
    ASSERT_EQ(calls.size(), 2u);
    EXPECT_EQ(calls[0].first, -4);
    EXPECT_EQ(calls[1].first, 0);
    EXPECT_EQ(mLog.lines(), (std::vector<LogLine>{info("dolm client dolmResCtlRelease"),
                                                  info("dolm client dolmSACtlRelease")}));

    mService->setAnswer(Op::kRelease, Answer::transportFailure(STATUS_FAILED_TRANSACTION));
    EXPECT_EQ(dolmResCtlRelease(1), -1);
    EXPECT_EQ(dolmSACtlRelease(1), -1);
    EXPECT_EQ(mLog.count(failed("dolmResCtlRelease")), 1u);
    EXPECT_EQ(mLog.count(failed("dolmSACtlRelease")), 1u);
}

using SubsystemControlTest = HalclientTest;

TEST_F(SubsystemControlTest, FullFormSendsOneEntryWithoutValue) {
    mService->setAnswer(Op::kRequest, Answer::ok(21));
    EXPECT_EQ(dolmSACtlRequest(3, -5, 0, 9, 1, 42), 21);
    DolmRequestParcel parcel = requestParcel();
    EXPECT_EQ(parcel.requestType, 2);
    EXPECT_EQ(parcel.leadArg, 3);
    EXPECT_EQ(parcel.timeout, int64_t{-5});
    EXPECT_EQ(parcel.option, 9);
    EXPECT_TRUE(parcel.flag);
    EXPECT_EQ(parcel.clientArg, 42);
    EXPECT_EQ(parcel.callback, nullptr);
    expectEntries(parcel.data, {entry(0, std::nullopt)});
    EXPECT_EQ(mLog.lines(), std::vector<LogLine>{info("dolm client dolmSACtlRequest")});
}

TEST_F(SubsystemControlTest, ShortFormFillsDefaults) {
    dolmSACtlRequest(10, 7, 4);
    DolmRequestParcel parcel = requestParcel();
    EXPECT_EQ(parcel.leadArg, -1);
    EXPECT_EQ(parcel.option, -1);
    EXPECT_FALSE(parcel.flag);
    EXPECT_EQ(parcel.timeout, 10);
    EXPECT_EQ(parcel.clientArg, 4);
    expectEntries(parcel.data, {entry(7, std::nullopt)});
}

TEST_F(SubsystemControlTest, CallbackVariantRegistersOneShotClient) {
    auto callback = std::make_shared<RecordingCallback>();
    dolmSACtlRequest(1, 2, -6, 3, 0, 5, callback);
    DolmRequestParcel parcel = requestParcel();
    EXPECT_NE(parcel.callback, nullptr);
    expectEntries(parcel.data, {entry(-6, std::nullopt)});
    EXPECT_EQ(requestCallbackCount(), 1u);
    EXPECT_EQ(
            mLog.lines(),
            (std::vector<LogLine>{info("dolm client dolmSACtlRequest with callback"),
                                  info("new std::shared_ptr DolmCallbackClient callback"),
                                  info("dolm client dolmSACtlRequest add to request_callbacks")}));
    ASSERT_TRUE(mService->deliver(0, {}).isOk());
    EXPECT_EQ(requestCallbackCount(), 0u);
    EXPECT_TRUE(callback->deliveries().empty());
}

}  // namespace
}  // namespace halclienttest
