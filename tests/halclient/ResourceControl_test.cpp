// Resource control and sub-system control: validation, the parcels the
// service receives, results, refusals and the one-shot callbacks.
#include <functional>

#include "HalclientTestSupport.h"

namespace halclienttest {
namespace {

using namespace dolmHalclient;

TEST(CheckResourceListTest, AcceptsExactlyTheWellFormedLists) {
    const std::pair<ResourceList, bool> cases[] = {
            {{}, true},
            {{res(5, "100")}, true},
            {{bare(5)}, false},
            {{res(5, "")}, false},
            {{bare(0)}, true},
            {{res(0, "")}, true},
            {{res(0, "1")}, false},
            {{res(-3, "x")}, true},
            {{res(5, "1"), bare(6)}, false},  // a bad one after a good one
            {{res(5, "1"), res(5, "2")}, true},
    };
    for (size_t i = 0; i < std::size(cases); ++i) {
        ResourceList resources = cases[i].first;
        EXPECT_EQ(checkResourceList(resources), cases[i].second) << "case " << i;
    }
}

using ResourceControlTest = HalclientTest;

// Every form of resource and sub-system control: the parcel it sends, the
// one-shot client of the callback forms, and its log lines. The shorter forms
// fill what they lack with -1; `flag` is set from a flag argument of 1 up.
TEST_F(ResourceControlTest, EveryFormSendsItsFields) {
    struct Case {
        const char* name;
        std::function<int()> call;
        int32_t requestType;
        int32_t leadArg;
        int32_t option;
        bool flag;
        int32_t clientArg;
        std::vector<DolmRequestData> data;
        const char* addedLine;  // the registration line of a callback form, else null
    };
    auto callback = std::make_shared<RecordingCallback>();
    const auto onList = [](ResourceList list, auto call) {
        return [list, call]() mutable { return call(list); };
    };
    // A present empty value goes for a resource without one.
    const ResourceList full{res(5, "100"), bare(0), res(0, "")};
    const std::vector<DolmRequestData> sent{entry(5, "100"), entry(0, ""), entry(0, "")};
    // A sub-system goes as one entry without a value.
    const auto subsystem = [](int32_t id) {
        return std::vector<DolmRequestData>{entry(id, std::nullopt)};
    };
    const Case cases[] = {
            {"TimeoutClient",
             onList(ResourceList{}, [](ResourceList& l) { return dolmResCtlRequest(10, l, 4); }), 1,
             -1, -1, false, 4, std::vector<DolmRequestData>(), nullptr},
            {"TimeoutFlagClient",
             onList(full, [](ResourceList& l) { return dolmResCtlRequest(10, l, 1, 4); }), 1, -1,
             -1, true, 4, sent, nullptr},
            {"TimeoutOptionFlagClient",
             onList(full, [](ResourceList& l) { return dolmResCtlRequest(10, l, 6, 0, 4); }), 1, -1,
             6, false, 4, sent, nullptr},
            {"LeadTimeoutClient",
             onList(full, [](ResourceList& l) { return dolmResCtlRequest(2, 10, l, 4); }), 1, 2, -1,
             false, 4, sent, nullptr},
            {"LeadTimeoutFlagClient",
             onList(full, [](ResourceList& l) { return dolmResCtlRequest(2, 10, l, 7, 4); }), 1, 2,
             -1, true, 4, sent, nullptr},
            {"Full",
             onList(full, [](ResourceList& l) { return dolmResCtlRequest(2, 10, l, 6, -1, 4); }), 1,
             2, 6, false, 4, sent, nullptr},
            {"FullWithCallback",
             onList(full,
                    [callback](ResourceList& l) {
                        return dolmResCtlRequest(2, 10, l, 6, 1, 4, callback);
                    }),
             1, 2, 6, true, 4, sent, "dolm client dolmResCtlRequest add to request_callbacks"},
            {"SubsystemFull", [] { return dolmSACtlRequest(2, 10, 0, 6, 1, 4); }, 2, 2, 6, true, 4,
             subsystem(0), nullptr},
            {"SubsystemShort", [] { return dolmSACtlRequest(10, 7, 4); }, 2, -1, -1, false, 4,
             subsystem(7), nullptr},
            {"SubsystemWithCallback",
             [callback] { return dolmSACtlRequest(2, 10, -6, 6, 0, 4, callback); }, 2, 2, 6, false,
             4, subsystem(-6), "dolm client dolmSACtlRequest add to request_callbacks"},
    };
    mService->setAnswer(Op::kRequest, Answer::ok(77));
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        mLog.clear();
        const size_t clients = requestCallbackCount();
        EXPECT_EQ(c.call(), 77);
        const DolmRequestParcel parcel = mService->calls(Op::kRequest).back().parcel;
        EXPECT_EQ(parcel.requestType, c.requestType);
        EXPECT_EQ(parcel.leadArg, c.leadArg);
        EXPECT_EQ(parcel.timeout, 10);
        EXPECT_EQ(parcel.option, c.option);
        EXPECT_EQ(parcel.flag, c.flag);
        EXPECT_EQ(parcel.clientArg, c.clientArg);
        EXPECT_EQ(parcel.data, c.data);
        EXPECT_FALSE(parcel.tags.has_value());
        EXPECT_FALSE(parcel.pkg.has_value());
        EXPECT_FALSE(parcel.identity.has_value());
        EXPECT_FALSE(parcel.numbers.has_value());
        const std::string entryLine = c.requestType == 1 ? "dolm client dolmResCtlRequest"
                                                         : "dolm client dolmSACtlRequest";
        if (c.addedLine == nullptr) {
            EXPECT_EQ(parcel.callback, nullptr);
            EXPECT_EQ(requestCallbackCount(), clients);
            EXPECT_EQ(mLog.lines(), std::vector<LogLine>{info(entryLine)});
        } else {
            EXPECT_NE(parcel.callback, nullptr);
            EXPECT_EQ(requestCallbackCount(), clients + 1);
            EXPECT_EQ(mLog.lines(),
                      (std::vector<LogLine>{info(entryLine + " with callback"),
                                            info("new std::shared_ptr DolmCallbackClient callback"),
                                            info(c.addedLine)}));
        }
    }
}

TEST_F(ResourceControlTest, TimeoutAndNegativeHandleArePassedUnchanged) {
    mService->setAnswer(Op::kRequest, Answer::ok(-9));
    ResourceList resources{res(1, "1")};
    EXPECT_EQ(dolmResCtlRequest(3, -5, resources, 9, 1, 42), -9);
    EXPECT_EQ(dolmSACtlRequest(-5, 7, 4), -9);
    EXPECT_EQ(requestParcel(0).timeout, int64_t{-5});
    EXPECT_EQ(requestParcel(1).timeout, int64_t{-5});
    EXPECT_EQ(mLog.count(failed("dolmResCtlRequest")), 0u);
}

TEST_F(ResourceControlTest, InvalidListIsRefusedWithoutCall) {
    const std::pair<std::function<int(ResourceList&)>, const char*> cases[] = {
            {[](ResourceList& l) { return dolmResCtlRequest(10, l, 0); },
             "dolmResCtlRequest ERROR: size unmatched for id and value "},
            {[](ResourceList& l) {
                 return dolmResCtlRequest(-1, 10, l, -1, -1, 0,
                                          std::make_shared<RecordingCallback>());
             },
             "dolm client dolm_resctl_request ERROR: size unmatched for id and value "},
            {[](ResourceList& l) { return dolmThermalNotify(l, 0); },
             "dolmThermalNotify ERROR: size unmatched for id and level "},
    };
    for (const auto& [call, message] : cases) {
        SCOPED_TRACE(message);
        ResourceList resources{res(5, "1"), bare(6)};
        EXPECT_EQ(call(resources), -1);
        EXPECT_EQ(mLog.count(error(message)), 1u);
    }
    EXPECT_TRUE(mService->calls().empty());
    EXPECT_EQ(requestCallbackCount(), 0u);
}

TEST_F(ResourceControlTest, ReleasePassesHandleAndResult) {
    mService->setAnswer(Op::kRelease, Answer::ok(6));
    EXPECT_EQ(dolmResCtlRelease(-4), 6);
    EXPECT_EQ(dolmSACtlRelease(0), 6);
    std::vector<zeltest::Call> calls = mService->calls(Op::kRelease);
    ASSERT_EQ(calls.size(), 2u);
    EXPECT_EQ(calls[0].first, -4);
    EXPECT_EQ(calls[1].first, 0);
    EXPECT_EQ(mLog.lines(), (std::vector<LogLine>{info("dolm client dolmResCtlRelease"),
                                                  info("dolm client dolmSACtlRelease")}));
}

}  // namespace
}  // namespace halclienttest
