// ZelEventAcquireWrapper, ZelReleaseWapper and ZelNotifyWapper against the
// fake service: which event ids and rule switches reach it, and the log lines.
#include "ZelWrapper.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <optional>
#include <string>
#include <vector>

#include "../zel/ZelFixture.h"

namespace zeltest {
namespace {

using ::testing::ElementsAre;
using ::testing::ElementsAreArray;

constexpr const char* kWrapperTag = "[ZEL_CLIENT_WRAPPER]";

LogLine wrapperInfo(std::string text) {
    return LogLine{4, kWrapperTag, std::move(text)};
}

using WrapperTest = ZelServiceTest;

TEST_F(WrapperTest, ActionNameSelectsTheFirstTablePosition) {
    struct Case {
        std::string eventId;
        int32_t cmdId;  // -1: no call
    };
    const Case cases[] = {
            {"TALVEN_ACTION_LAUNCH", 0},
            {"TALVEN_ACTION_COLD_LAUNCH", 1},
            {"TALVEN_ACTION_CAMERA_APS_INNER_THDR_CAPTURE_L1", 198},
            {"TALVEN_ACTION_CAMERA_APS_CAPTURE_L1", 91},
            {"TALVEN_ACTION_CAMERA_APS_CAPTURE_L4", 94},
            {"TALVEN_ACTION_CAMERA_MULTI_SCENE", 102},
            {"ACTION_LAUNCH", -1},
            {"TALVEN_", -1},
            {"TALVEN_action_launch", -1},
            {"XTALVEN_ACTION_LAUNCH", -1},  // the cut at 7 leaves "_ACTION_LAUNCH"
            {"TALVEN_ACTION_LAUNCH ", -1},
            {"TALVEN_ACTION_LAUNCHX", -1},
            {"", -1},
            // The prefix is looked for anywhere but the cut stays at 7.
            {"ABCDEFGACTION_LAUNCHTALVEN_", -1},
            {"TALVENXACTION_WFDTALVEN_", -1},
            {"TALVENXACTION_WFD", -1},
            {"TALVEN_ACTION_WFD", 124},
    };
    mService->setAnswer(Op::kRequest, Answer::ok(77));
    for (const Case& c : cases) {
        SCOPED_TRACE(c.eventId);
        const size_t before = mService->calls(Op::kRequest).size();
        EXPECT_EQ(ZelEventAcquireWrapper(c.eventId, "scene", "ident", 500), c.cmdId < 0 ? -1 : 77);
        const std::vector<Call> requests = mService->calls(Op::kRequest);
        if (c.cmdId < 0) {
            EXPECT_EQ(requests.size(), before);
            continue;
        }
        ASSERT_EQ(requests.size(), before + 1);
        const DolmRequestParcel& parcel = requests.back().parcel;
        EXPECT_EQ(parcel.requestType, 8);
        EXPECT_THAT(parcel.data, ElementsAre(entry(c.cmdId)));
        EXPECT_EQ(parcel.pkg, std::optional<std::string>("scene"));
        EXPECT_EQ(parcel.identity, std::optional<std::string>("ident"));
        EXPECT_EQ(parcel.timeout, 500);
    }
}

TEST_F(WrapperTest, AcquireLogsItsArgumentsWithNoneForEmptyTexts) {
    mService->setAnswer(Op::kRequest, Answer::ok(5));
    EXPECT_EQ(ZelEventAcquireWrapper("TALVEN_ACTION_SWIPE_V", "", "", -1), 5);
    EXPECT_EQ(ZelEventAcquireWrapper("", "s", "i", 0), -1);
    EXPECT_THAT(
            mLog.lines(kWrapperTag),
            ElementsAre(wrapperInfo("[ZelEventAcquireWrapper] eventId:TALVEN_ACTION_SWIPE_V, "
                                    "scene:none, identity:none, timeout:-1"),
                        wrapperInfo("[ZelEventAcquireWrapper] eventId:none, scene:s, identity:i, "
                                    "timeout:0")));
    // The event API saw only the matched name, with its texts as they were.
    const std::vector<Call> requests = mService->calls(Op::kRequest);
    ASSERT_EQ(requests.size(), 1u);
    EXPECT_EQ(requests[0].parcel.pkg, std::optional<std::string>(""));
    EXPECT_EQ(requests[0].parcel.timeout, -1);
}

TEST_F(WrapperTest, ReleasePassesAnyHandle) {
    const int32_t handles[] = {12, 0, -3};
    for (int32_t handle : handles) {
        mLog.clear();
        ZelReleaseWapper(handle);
        EXPECT_EQ(mService->calls(Op::kRelease).back().first, handle);
        EXPECT_THAT(mLog.lines(kWrapperTag),
                    ElementsAre(wrapperInfo("[ZelReleaseWapper] " + std::to_string(handle))));
    }
}

// One row of the notify dispatch: the wrapper's arguments and the rule
// control call it must make, if any.
using Data = std::vector<DolmRequestData>;

struct RuleCall {
    int32_t rule;
    int32_t status;
    Data data;
};

struct NotifyRow {
    int32_t src;
    int32_t type;
    int32_t value;
    std::string text;
    std::optional<RuleCall> expected;
};

std::string describe(const NotifyRow& row) {
    return "src " + std::to_string(row.src) + ", type " + std::to_string(row.type) + ", value " +
           std::to_string(row.value) + ", text \"" + row.text + "\"";
}

void expectDispatch(FakeDolmService& service, const std::vector<NotifyRow>& rows) {
    for (const NotifyRow& row : rows) {
        SCOPED_TRACE(describe(row));
        const size_t before = service.calls().size();
        EXPECT_EQ(ZelNotifyWapper("info", row.src, row.type, row.value, 1, 2, row.text), 0);
        const std::vector<Call> calls = service.calls();
        if (!row.expected.has_value()) {
            EXPECT_EQ(calls.size(), before);
            continue;
        }
        ASSERT_EQ(calls.size(), before + 1);
        const Call& call = calls.back();
        EXPECT_EQ(call.op, Op::kRuleCtl);
        EXPECT_EQ(call.first, row.expected->rule);
        EXPECT_EQ(call.second, row.expected->status);
        EXPECT_THAT(call.data, ElementsAreArray(row.expected->data));
    }
}

constexpr int32_t kResLevel = 0x010103A0;
constexpr int32_t kResEnable = 0x010112F0;
constexpr int32_t kResBoost = 0x01011070;
constexpr int32_t kResColocation = 0x01011040;

// Rules without records: most sources forward source and type; sources 2, 3,
// 5 and 6 share rule 200, whose status is the source for type 1, else 0;
// unknown sources call nothing.
TEST_F(WrapperTest, NotifyRulesWithoutRecords) {
    std::vector<NotifyRow> rows;
    for (int32_t src : {1, 10, 11, 12, 16, 110, 129, 1000}) {
        for (int32_t type : {0, 1, 7, -5})
            rows.push_back({src, type, 3, "t", RuleCall{src, type, {}}});
    }
    for (int32_t src : {2, 3, 5, 6}) {
        rows.push_back({src, 1, 9, "", RuleCall{200, src, {}}});
        for (int32_t type : {0, 5, -1}) rows.push_back({src, type, 9, "", RuleCall{200, 0, {}}});
    }
    for (int32_t src : {0, -1, 4, 7, 13, 17, 101, 103, 109, 112, 128, 132, 999, 1001, 8999, 9001}) {
        for (int32_t type : {0, 1}) rows.push_back({src, type, 1, "1,2", std::nullopt});
    }
    expectDispatch(*mService, rows);
}

TEST_F(WrapperTest, NotifyRulesWithRecords) {
    expectDispatch(*mService, {
                                      {8, 0, 40, "", RuleCall{8, 0, {entry(kResLevel, "40")}}},
                                      {8, 2, -7, "", RuleCall{8, 2, {entry(kResLevel, "-7")}}},
                                      {8, 1, 40, "", std::nullopt},
                                      {9, 0, 1, "", RuleCall{9, 0, {}}},  // "enable 0" is not sent
                                      {9, 1, 0, "", RuleCall{9, 1, {entry(kResEnable, "enable 1")}}},
                                      {9, 2, 0, "", std::nullopt},
                                      {15, -1, 0, "", RuleCall{15, -1, {}}},
                                      {15, 0, 0, "", RuleCall{15, 0, {}}},
                                      {15, 1, 0, "", RuleCall{15, 1, {}}},
                                      {15, 2, 0, "", std::nullopt},
                                      {102, 0, 8, "", RuleCall{102, 0, {entry(kResBoost, "0")}}},
                                      {102, 1, 0, "", RuleCall{102, 1, {entry(kResBoost, "3")}}},
                                      {102, 1, -1, "", RuleCall{102, 1, {entry(kResBoost, "3")}}},
                                      {102, 1, 5, "", RuleCall{102, 1, {entry(kResBoost, "5")}}},
                                      {102, 1, -2, "", RuleCall{102, 1, {entry(kResBoost, "-2")}}},
                                      {102, 2, 5, "", std::nullopt},
                                      // The record carries the type, not the value.
                                      {111, -1, 8, "", RuleCall{111, -1, {entry(kResLevel, "-1")}}},
                                      {111, 0, 8, "", RuleCall{111, 0, {entry(kResLevel, "0")}}},
                                      {111, 1, 8, "", RuleCall{111, 1, {entry(kResLevel, "1")}}},
                                      {111, 2, 8, "", std::nullopt},
                              });
}

TEST_F(WrapperTest, NotifyRulesBuiltFromText) {
    expectDispatch(
            *mService,
            {
                    {14, 0, 3, "x",
                     RuleCall{14, 0, {entry(kResColocation, "-1"), entry(kResColocation, "")}}},
                    // The builder is called even for an empty text.
                    {14, 1, 3, "", RuleCall{14, 1, {entry(kResColocation, "3")}}},
                    {14, 1, 0, "", RuleCall{14, 1, {}}},
                    {14, 1, 2, "g",
                     RuleCall{14, 1, {entry(kResColocation, "2"), entry(0x010115B0, "g")}}},
                    {14, 2, 2, "g", std::nullopt},
                    {130, 0, 0, "1,2", RuleCall{130, 0, {}}},
                    {130, 1, 0, "1,2",
                     RuleCall{130, 1,
                              Data{entry(opCodeTargetLoad[0], "1"),
                                   entry(opCodeTargetLoad[1], "2")}}},
                    // A text that yields no record still sends the empty list.
                    {130, 1, 0, "1,-1", RuleCall{130, 1, {}}},
                    {130, 1, 0, "", std::nullopt},
                    {130, 2, 0, "1", std::nullopt},
                    {131, 0, 0, "", RuleCall{131, 0, {}}},
                    {131, 1, 0, "colocation:4", RuleCall{131, 1, {entry(kResColocation, "4")}}},
                    {131, 1, 0, "nothing", RuleCall{131, 1, {}}},
                    {131, 1, 0, "", std::nullopt},
                    {9000, 0, 0, "", RuleCall{9000, 0, {}}},
                    {9000, 1, 0, "1,2",
                     RuleCall{9000, 1,
                              Data{entry(opCodeAdpXpuCoreBoost[0], "1"),
                                   entry(opCodeAdpXpuCoreBoost[1], "2")}}},
                    {9000, 1, 0, "", std::nullopt},
                    {9000, 3, 0, "1,2", std::nullopt},
            });
}

TEST_F(WrapperTest, NotifyLogsInfoSourceAndType) {
    ZelNotifyWapper("", 999, 3, 0, 0, 0, "");
    ZelNotifyWapper("game scene", 1, -1, 0, 0, 0, "");
    EXPECT_THAT(mLog.lines(kWrapperTag),
                ElementsAre(wrapperInfo("[ZelNotifyWapper] none, src:999, type:3"),
                            wrapperInfo("[ZelNotifyWapper] game scene, src:1, type:-1")));
}

TEST(WrapperNoServiceTest, NotifyStillReturnsZero) {
    LogCapture log;
    EXPECT_EQ(ZelNotifyWapper("i", 1000, 7, 0, 0, 0, ""), 0);
    EXPECT_EQ(log.count(zelInfo("zelRuleCtl, ruleId:1000, status:7")), 1u);
    EXPECT_EQ(log.count(zelError("Dolm HAL Service not found")), 1u);
    EXPECT_EQ(ZelEventAcquireWrapper("TALVEN_ACTION_LAUNCH", "s", "i", 1), -1);
}

}  // namespace
}  // namespace zeltest
