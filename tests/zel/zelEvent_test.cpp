// zelInit, ZelEventAcquire and its forwarders, ZelRelease: what reaches the
// service, what is logged and traced, and what the caller gets back.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <functional>
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

// The command id chooses the request type and whether a command entry leads
// the data; the timeout is sign-extended, and the service's answer comes back
// whatever its sign.
TEST_F(ZelEventTest, CommandIdChoosesRequestTypeAndCommandEntry) {
    struct Case {
        int32_t cmdId;
        int32_t requestType;
        bool commandEntry;
        int32_t timeout;
        int32_t answer;
    };
    const Case cases[] = {
            {5, 8, true, 3000, 41},      {0, 8, true, -1, 0},      {-1, 8, true, INT32_MIN, -9},
            {-4, 8, true, INT32_MAX, 7}, {198, 8, true, 3000, 41}, {-2, 1, false, 3000, 41},
            {-3, 12, false, -1, 41},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE("cmdId " + std::to_string(c.cmdId));
        mService->setAnswer(Op::kRequest, Answer::ok(c.answer));
        const size_t before = mService->calls(Op::kRequest).size();
        EXPECT_EQ(ZelEventAcquire(c.cmdId, "com.example.game", "scene-1", c.timeout, kTwoResources),
                  c.answer);

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
        EXPECT_EQ(parcel.timeout, static_cast<int64_t>(c.timeout));
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

// Markers go only to the always-on category.
TEST_F(ZelEventTest, AcquireLeavesAnInstantTraceMarker) {
    {
        TraceCapture trace;
        ZelEventAcquire(42, "p", "", 3000, {});
        EXPECT_THAT(trace.events(),
                    ElementsAre(TraceEvent{true,
                                           "ZelEventAcquire  cmd_id:42 pkg:p identity:none "
                                           "duration:3000"},
                                TraceEvent{false, ""}));
    }
    EXPECT_THAT(zelLines(),
                ElementsAre(zelInfo("ZelEventAcquire, cmdid:42, pkg:p, identity:none")));

    TraceCapture others(/*enabledTags=*/~uint64_t{1});
    ZelEventAcquire(42, "p", "i", 3000, {});
    ZelRelease(3);
    EXPECT_TRUE(others.events().empty());
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

// The resource forms: no package for ZelResAcquire, identity before package
// for ZelPlatformResAcquire.
TEST_F(ZelEventTest, ResourceFormsForwardToTheEventRequest) {
    using Lines = std::vector<LogLine>;
    struct Case {
        std::function<int32_t()> call;
        int32_t requestType;
        const char* pkg;
        int32_t timeout;
        Lines lines;
    };
    int ignored = 0;
    const Case cases[] = {
            {[] { return ZelResAcquire(kTwoResources, nullptr, "ident", -1); }, 1, "", -1,
             Lines{zelInfo("ZelResAcquire"),
                   zelInfo("ZelEventAcquire, cmdid:-2, pkg:none, identity:ident")}},
            {[&] { return ZelPlatformResAcquire(kTwoResources, &ignored, "ident", "pkg", 20); }, 12,
             "pkg", 20,
             Lines{zelInfo("ZelPlatformResAcquire"),
                   zelInfo("ZelEventAcquire, cmdid:-3, pkg:pkg, identity:ident")}},
    };
    mService->setAnswer(Op::kRequest, Answer::ok(12));
    for (const Case& c : cases) {
        SCOPED_TRACE(c.lines.front().text);
        mLog.clear();
        EXPECT_EQ(c.call(), 12);
        const DolmRequestParcel parcel = mService->calls(Op::kRequest).back().parcel;
        EXPECT_EQ(parcel.requestType, c.requestType);
        EXPECT_THAT(parcel.data, ElementsAre(entry(0x01010B10, "800"), entry(0x01010B20, "")));
        EXPECT_EQ(parcel.pkg, std::optional<std::string>(c.pkg));
        EXPECT_EQ(parcel.identity, std::optional<std::string>("ident"));
        EXPECT_EQ(parcel.timeout, c.timeout);
        EXPECT_THAT(zelLines(), ElementsAreArray(c.lines));
    }
}

TEST_F(ZelEventTest, ReleaseSendsAnyHandleAsItIs) {
    for (int32_t handle : {7, 0, -5}) {
        mLog.clear();
        TraceCapture trace;
        ZelRelease(handle);
        const std::string text = std::to_string(handle);
        EXPECT_EQ(mService->calls(Op::kRelease).back().first, handle);
        EXPECT_THAT(zelLines(), ElementsAre(zelInfo("ZelRelease, handle:" + text)));
        EXPECT_THAT(trace.events(),
                    ElementsAre(TraceEvent{true, "ZelRelease: " + text}, TraceEvent{false, ""}));
    }
}

TEST_F(ZelEventTest, InitCallsTheService) {
    EXPECT_EQ(zelInit(), 0);
    EXPECT_EQ(mService->calls(Op::kInit).size(), 1u);
    EXPECT_THAT(zelLines(), ElementsAre(zelError("zelInit enter")));
}

}  // namespace
}  // namespace zeltest
