// zelInit, ZelEventAcquire and its forwarders, ZelRelease: what reaches the
// service, what is logged and traced, and what the caller gets back.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <optional>
#include <string>
#include <vector>

#include "TraceCapture.h"
#include "ZelFixture.h"
#include "zel.h"

namespace zeltest {
namespace {

using ::testing::ElementsAre;
using ::testing::ElementsAreArray;

const std::vector<ZelClient::Resource> kTwoResources{{0x01010B10, "800"},
                                                     {0x01010B20, std::nullopt}};

class ZelEventTest : public ZelServiceTest {};

TEST_F(ZelEventTest, CommandIdChoosesRequestTypeAndCommandEntry) {
    struct Case {
        int32_t cmdId;
        int32_t requestType;
        bool commandEntry;
    };
    const Case cases[] = {
            {5, 8, true},   {0, 8, true},   {-1, 8, true},   {-4, 8, true},
            {198, 8, true}, {-2, 1, false}, {-3, 12, false},
    };
    mService->setAnswer(Op::kRequest, Answer::ok(41));
    for (const Case& c : cases) {
        SCOPED_TRACE("cmdId " + std::to_string(c.cmdId));
        const size_t before = mService->calls(Op::kRequest).size();
        EXPECT_EQ(ZelEventAcquire(c.cmdId, "com.example.game", "scene-1", 3000, kTwoResources), 41);

        const std::vector<Call> requests = mService->calls(Op::kRequest);
        ASSERT_EQ(requests.size(), before + 1);
        const DolmRequestParcel& parcel = requests.back().parcel;
        EXPECT_EQ(parcel.requestType, c.requestType);
        std::vector<DolmRequestData> expected;
        if (c.commandEntry) expected.push_back(entry(c.cmdId));
        // A resource without a value arrives with a present, empty value.
        expected.push_back(entry(0x01010B10, "800"));
        expected.push_back(entry(0x01010B20, ""));
        EXPECT_THAT(parcel.data, ElementsAreArray(expected));
        EXPECT_EQ(parcel.pkg, std::optional<std::string>("com.example.game"));
        EXPECT_EQ(parcel.identity, std::optional<std::string>("scene-1"));
        EXPECT_EQ(parcel.timeout, 3000);
    }
}

TEST_F(ZelEventTest, EmptyTextsAreSentPresentAndEverythingElseStaysDefault) {
    EXPECT_EQ(ZelEventAcquire(5, "", "", 100, {}), 0);

    const DolmRequestParcel parcel = onlyRequest();
    EXPECT_EQ(parcel.requestType, 8);
    EXPECT_THAT(parcel.data, ElementsAre(entry(5)));
    EXPECT_EQ(parcel.pkg, std::optional<std::string>(""));
    EXPECT_EQ(parcel.identity, std::optional<std::string>(""));
    EXPECT_EQ(parcel.timeout, 100);
    EXPECT_FALSE(parcel.flag);
    EXPECT_EQ(parcel.option, 0);
    EXPECT_EQ(parcel.clientArg, 0);
    EXPECT_EQ(parcel.leadArg, 0);
    EXPECT_EQ(parcel.callback, nullptr);
    EXPECT_FALSE(parcel.tags.has_value());
    EXPECT_FALSE(parcel.numbers.has_value());
    EXPECT_THAT(zelLines(),
                ElementsAre(zelInfo("ZelEventAcquire, cmdid:5, pkg:none, identity:none")));
}

TEST_F(ZelEventTest, TimeoutIsSignExtended) {
    const int32_t timeouts[] = {-1, INT32_MIN, INT32_MAX};
    for (int32_t timeout : timeouts) {
        ZelEventAcquire(1, "p", "i", timeout, {});
        EXPECT_EQ(mService->calls(Op::kRequest).back().parcel.timeout,
                  static_cast<int64_t>(timeout));
    }
}

TEST_F(ZelEventTest, ServiceAnswerIsPassedThroughWhateverItsSign) {
    const int32_t answers[] = {7, 0, -9};
    for (int32_t answer : answers) {
        mService->setAnswer(Op::kRequest, Answer::ok(answer));
        EXPECT_EQ(ZelEventAcquire(1, "p", "i", 10, {}), answer);
    }
}

TEST_F(ZelEventTest, AcquireLeavesAnInstantTraceMarker) {
    TraceCapture trace;
    ZelEventAcquire(42, "p", "", 3000, {});
    EXPECT_THAT(
            trace.events(),
            ElementsAre(TraceEvent{true,
                                   "ZelEventAcquire  cmd_id:42 pkg:p identity:none duration:3000"},
                        TraceEvent{false, ""}));
    EXPECT_THAT(zelLines(),
                ElementsAre(zelInfo("ZelEventAcquire, cmdid:42, pkg:p, identity:none")));
}

TEST_F(ZelEventTest, MarkersGoOnlyToTheAlwaysOnCategory) {
    TraceCapture trace(/*enabledTags=*/~uint64_t{1});
    ZelEventAcquire(42, "p", "i", 3000, {});
    ZelRelease(3);
    EXPECT_TRUE(trace.events().empty());
}

TEST_F(ZelEventTest, LongTraceNameIsCutButLogAndParcelKeepTheFullText) {
    TraceCapture trace;
    // The trace name runs 6 characters past the cut; the log line, which
    // liblog itself would cut at 1023 characters, stays just below it.
    const std::string pkg(975, 'p');
    ZelEventAcquire(7, pkg, "id", 50, {});

    const std::string fullName = "ZelEventAcquire  cmd_id:7 pkg:" + pkg + " identity:id duration:50";
    const std::vector<TraceEvent> events = trace.events();
    ASSERT_EQ(events.size(), 2u);
    EXPECT_EQ(events[0].name.size(), 1023u);
    ASSERT_EQ(fullName.size(), 1029u);
    EXPECT_EQ(events[0].name, fullName.substr(0, 1023));
    EXPECT_THAT(zelLines(),
                ElementsAre(zelInfo("ZelEventAcquire, cmdid:7, pkg:" + pkg + ", identity:id")));
    EXPECT_EQ(onlyRequest().pkg, std::optional<std::string>(pkg));
}

TEST_F(ZelEventTest, ResAcquireSendsAResourceRequestWithoutPackage) {
    mService->setAnswer(Op::kRequest, Answer::ok(12));
    EXPECT_EQ(ZelResAcquire(kTwoResources, nullptr, "ident", -1), 12);

    const DolmRequestParcel parcel = onlyRequest();
    EXPECT_EQ(parcel.requestType, 1);
    EXPECT_THAT(parcel.data, ElementsAre(entry(0x01010B10, "800"), entry(0x01010B20, "")));
    EXPECT_EQ(parcel.pkg, std::optional<std::string>(""));
    EXPECT_EQ(parcel.identity, std::optional<std::string>("ident"));
    EXPECT_EQ(parcel.timeout, -1);
    EXPECT_THAT(zelLines(),
                ElementsAre(zelInfo("ZelResAcquire"),
                            zelInfo("ZelEventAcquire, cmdid:-2, pkg:none, identity:ident")));
}

TEST_F(ZelEventTest, PlatformResAcquireTakesIdentityBeforePackage) {
    mService->setAnswer(Op::kRequest, Answer::ok(13));
    int ignored = 0;
    EXPECT_EQ(ZelPlatformResAcquire(kTwoResources, &ignored, "ident", "pkg", 20), 13);

    const DolmRequestParcel parcel = onlyRequest();
    EXPECT_EQ(parcel.requestType, 12);
    EXPECT_THAT(parcel.data, ElementsAre(entry(0x01010B10, "800"), entry(0x01010B20, "")));
    EXPECT_EQ(parcel.pkg, std::optional<std::string>("pkg"));
    EXPECT_EQ(parcel.identity, std::optional<std::string>("ident"));
    EXPECT_EQ(parcel.timeout, 20);
    EXPECT_THAT(zelLines(),
                ElementsAre(zelInfo("ZelPlatformResAcquire"),
                            zelInfo("ZelEventAcquire, cmdid:-3, pkg:pkg, identity:ident")));
}

TEST_F(ZelEventTest, ReleaseSendsAnyHandleAsItIs) {
    TraceCapture trace;
    const int32_t handles[] = {7, 0, -5};
    for (int32_t handle : handles) ZelRelease(handle);

    const std::vector<Call> releases = mService->calls(Op::kRelease);
    ASSERT_EQ(releases.size(), 3u);
    EXPECT_EQ(releases[0].first, 7);
    EXPECT_EQ(releases[1].first, 0);
    EXPECT_EQ(releases[2].first, -5);
    EXPECT_THAT(zelLines(),
                ElementsAre(zelInfo("ZelRelease, handle:7"), zelInfo("ZelRelease, handle:0"),
                            zelInfo("ZelRelease, handle:-5")));
    EXPECT_THAT(trace.events(),
                ElementsAre(TraceEvent{true, "ZelRelease: 7"}, TraceEvent{false, ""},
                            TraceEvent{true, "ZelRelease: 0"}, TraceEvent{false, ""},
                            TraceEvent{true, "ZelRelease: -5"}, TraceEvent{false, ""}));
}

TEST_F(ZelEventTest, InitCallsTheServiceAndReportsItsFailureAsMinusTwo) {
    EXPECT_EQ(zelInit(), 0);
    EXPECT_EQ(mService->calls(Op::kInit).size(), 1u);
    EXPECT_THAT(zelLines(), ElementsAre(zelError("zelInit enter")));

    mLog.clear();
    mService->setAnswer(Op::kInit, Answer::serviceSpecific(4));
    EXPECT_EQ(zelInit(), -2);
    EXPECT_THAT(zelLines(), ElementsAre(zelError("zelInit enter"), failedLine("dolm_init")));
}

TEST_F(ZelEventTest, FailedRequestReturnsMinusOneAndLogsWhatWasWritten) {
    const Answer failures[] = {Answer::serviceSpecific(17),
                               Answer::transportFailure(STATUS_UNKNOWN_ERROR)};
    for (const Answer& failure : failures) {
        mLog.clear();
        mService->setAnswer(Op::kRequest, failure);
        EXPECT_EQ(ZelEventAcquire(9, "p", "i", 10, {}), -1);
        EXPECT_THAT(zelLines(), ElementsAre(zelInfo("ZelEventAcquire, cmdid:9, pkg:p, identity:i"),
                                            failedLine("ZelEventAcquire"),
                                            zelError("dolmResCtlRequest error:-1")));
    }
}

TEST_F(ZelEventTest, FailedReleaseIsOnlyLogged) {
    mService->setAnswer(Op::kRelease, Answer::transportFailure(STATUS_UNKNOWN_ERROR));
    ZelRelease(4);
    EXPECT_THAT(zelLines(),
                ElementsAre(zelInfo("ZelRelease, handle:4"), failedLine("dolmResCtlRelease")));
}

}  // namespace
}  // namespace zeltest
