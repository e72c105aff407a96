// Dumps, the history switch and properties.
#include "HalclientTestSupport.h"

namespace halclienttest {
namespace {

using namespace dolmHalclient;

using DiagnosticTest = HalclientTest;

TEST_F(DiagnosticTest, EachSendsItsCodeAndMapsTheAnswer) {
    // The service's answer and what the caller gets: 0 from 1 up, else -1.
    const std::pair<int32_t, int> answers[] = {{1, 0}, {7, 0}, {0, -1}, {-3, -1}};
    for (const Diagnostic& c : kDiagnostics) {
        SCOPED_TRACE(c.name);
        mLog.clear();
        for (const auto& [answer, result] : answers) {
            mService->setAnswer(Op::kRequest, Answer::ok(answer));
            EXPECT_EQ(c.call(), result) << "answer " << answer;
        }
        const DolmRequestParcel parcel = mService->calls(Op::kRequest).back().parcel;
        EXPECT_EQ(parcel.requestType, 5);
        EXPECT_EQ(parcel.option, 1);
        EXPECT_EQ(parcel.clientArg, 0);
        EXPECT_EQ(parcel.leadArg, 0);
        EXPECT_EQ(parcel.timeout, 0);
        EXPECT_FALSE(parcel.flag);
        EXPECT_FALSE(parcel.tags.has_value());
        EXPECT_EQ(parcel.data, std::vector<DolmRequestData>{entry(c.code, std::nullopt)});
        EXPECT_EQ(mLog.lines(), std::vector<LogLine>(4, info(std::string("dolm client ") + c.name)));
    }
}

using PropertyTest = HalclientTest;

// The value comes back in a new array, whole up to 255 characters.
TEST_F(PropertyTest, GetReturnsTheValueInANewArray) {
    mService->setPropertyAnswer("perf");
    std::unique_ptr<char[]> value(dolmPropertyGet("vendor.key"));
    ASSERT_NE(value, nullptr);
    EXPECT_STREQ(value.get(), "perf");
    EXPECT_EQ(mService->calls(Op::kGetProperty).at(0).key, "vendor.key");
    EXPECT_EQ(mLog.lines(), (std::vector<LogLine>{info("dolm client dolmPropertyGet"),
                                                  info("dolmPropertyGet perf ")}));

    const std::string longest(255, 'v');
    mService->setPropertyAnswer(longest);
    value.reset(dolmPropertyGet("k"));
    EXPECT_EQ(std::string(value.get()), longest);
}

using PropertyDeathTest = HalclientTest;

TEST_F(PropertyDeathTest, ValueOf256CharactersAborts) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_DEATH(
            {
                mService->setPropertyAnswer(std::string(256, 'v'));
                delete[] dolmPropertyGet("k");
            },
            "");
}

TEST_F(PropertyTest, SetPassesKeyValueAndResult) {
    mService->setAnswer(Op::kSetProperty, Answer::ok(-2));
    EXPECT_EQ(dolmPropertySet("vendor.key", "on"), -2);
    zeltest::Call call = mService->calls(Op::kSetProperty).at(0);
    EXPECT_EQ(call.key, "vendor.key");
    EXPECT_EQ(call.value, "on");
    EXPECT_EQ(mLog.lines(), std::vector<LogLine>{info("dolm client dolmPropertySet")});
}

}  // namespace
}  // namespace halclienttest
