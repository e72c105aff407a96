// ZelNotify, zelRuleCtl and setRelatedSysInfo: the parcels and arguments the
// service receives, log lines and results.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <optional>
#include <string>
#include <vector>

#include "ZelFixture.h"
#include "zel.h"

namespace zeltest {
namespace {

using ::testing::ElementsAre;
using ::testing::ElementsAreArray;
using ::testing::IsEmpty;

class ZelNotifyTest : public ZelServiceTest {};

TEST_F(ZelNotifyTest, NotifySendsOneEntryPerValueAndNoTags) {
    struct Case {
        std::vector<int32_t> values;
        size_t entries;
    };
    const Case cases[] = {{{}, 1}, {{7}, 1}, {{7, 8, 9}, 3}};
    mService->setAnswer(Op::kRequest, Answer::ok(6));
    for (const Case& c : cases) {
        SCOPED_TRACE(::testing::PrintToString(c.values));
        mLog.clear();
        const size_t before = mService->calls(Op::kRequest).size();
        EXPECT_EQ(ZelNotify(3, 1, c.values), 6);

        const std::vector<Call> requests = mService->calls(Op::kRequest);
        ASSERT_EQ(requests.size(), before + 1);
        const DolmRequestParcel& parcel = requests.back().parcel;
        EXPECT_EQ(parcel.requestType, 10);
        EXPECT_THAT(parcel.data, ElementsAreArray(std::vector<DolmRequestData>(
                                         c.entries, entry(3, std::nullopt, /*param=*/1))));
        EXPECT_FALSE(parcel.tags.has_value());
        EXPECT_FALSE(parcel.pkg.has_value());
        EXPECT_FALSE(parcel.identity.has_value());
        EXPECT_EQ(parcel.timeout, 0);
        EXPECT_THAT(zelLines(), ElementsAre(zelInfo("ZelNotify enter")));
    }
}

TEST_F(ZelNotifyTest, RuleCtlSendsResourcesWithPresentValues) {
    mService->setAnswer(Op::kRuleCtl, Answer::ok(-4));
    EXPECT_EQ(zelRuleCtl(2, 0, {}), -4);
    EXPECT_EQ(zelRuleCtl(-7, 3, {{0x01011040, "-1"}, {0x01011040, std::nullopt}, {0, ""}}), -4);

    const std::vector<Call> calls = mService->calls(Op::kRuleCtl);
    ASSERT_EQ(calls.size(), 2u);
    EXPECT_EQ(calls[0].first, 2);
    EXPECT_EQ(calls[0].second, 0);
    EXPECT_THAT(calls[0].data, IsEmpty());
    EXPECT_EQ(calls[1].first, -7);
    EXPECT_EQ(calls[1].second, 3);
    EXPECT_THAT(calls[1].data,
                ElementsAre(entry(0x01011040, "-1"), entry(0x01011040, ""), entry(0, "")));
    EXPECT_THAT(zelLines(), ElementsAre(zelInfo("zelRuleCtl, ruleId:2, status:0"),
                                        zelInfo("zelRuleCtl, ruleId:-7, status:3")));
}

TEST_F(ZelNotifyTest, RelatedSysInfoIsPassedThroughWithoutLogging) {
    mService->setAnswer(Op::kSetRelatedSysInfo, Answer::ok(21));
    const std::string info = std::string("fg:com.example\0tail", 19);
    EXPECT_EQ(setRelatedSysInfo(4, info), 21);
    EXPECT_EQ(setRelatedSysInfo(-1, ""), 21);

    const std::vector<Call> calls = mService->calls(Op::kSetRelatedSysInfo);
    ASSERT_EQ(calls.size(), 2u);
    EXPECT_EQ(calls[0].first, 4);
    EXPECT_EQ(calls[0].value, info);
    EXPECT_EQ(calls[1].first, -1);
    EXPECT_EQ(calls[1].value, "");
    EXPECT_THAT(zelLines(), IsEmpty());
}

}  // namespace
}  // namespace zeltest
