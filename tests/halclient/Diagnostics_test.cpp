// Dumps, the history switch and properties.
#include "HalclientTestSupport.h"

namespace halclienttest {
namespace {

using namespace dolmHalclient;

struct DiagnosticCase {
    const char* name;
    int (*call)();
    int32_t code;
};

// Test names and messages show the case by its name.
void PrintTo(const DiagnosticCase& c, std::ostream* os) {
    *os << c.name;
}

class DiagnosticTest : public HalclientTest, public ::testing::WithParamInterface<DiagnosticCase> {};

TEST_P(DiagnosticTest, SendsItsCodeAndMapsTheAnswer) {
    const std::string name = GetParam().name;
    mService->setAnswer(Op::kRequest, Answer::ok(1));
    EXPECT_EQ(GetParam().call(), 0);
    mService->setAnswer(Op::kRequest, Answer::ok(7));
    EXPECT_EQ(GetParam().call(), 0);
    mService->setAnswer(Op::kRequest, Answer::ok(0));
    EXPECT_EQ(GetParam().call(), -1);
    mService->setAnswer(Op::kRequest, Answer::ok(-3));
    EXPECT_EQ(GetParam().call(), -1);

    DolmRequestParcel parcel = requestParcel();
    EXPECT_EQ(parcel.requestType, 5);
    EXPECT_EQ(parcel.option, 1);
    EXPECT_EQ(parcel.clientArg, 0);
    EXPECT_EQ(parcel.leadArg, 0);
    EXPECT_EQ(parcel.timeout, 0);
    EXPECT_FALSE(parcel.flag);
    EXPECT_FALSE(parcel.tags.has_value());
    EXPECT_EQ(parcel.data, std::vector<DolmRequestData>{entry(GetParam().code, std::nullopt)});
    EXPECT_EQ(mLog.count(info("dolm client " + name)), 4u);
    EXPECT_EQ(mLog.lines().size(), 4u);

    mService->setAnswer(Op::kRequest, Answer::serviceSpecific(1));
    EXPECT_EQ(GetParam().call(), -1);
    EXPECT_EQ(mLog.count(failed(name)), 1u);
}

INSTANTIATE_TEST_SUITE_P(
        Table, DiagnosticTest,
        ::testing::Values(
                DiagnosticCase{"dolmDumpToDoQueue", dolmDumpToDoQueue, 0},
                DiagnosticCase{"dolmDumpRunMap", dolmDumpRunMap, 1},
                DiagnosticCase{"dolmDumpActiveResMap", dolmDumpActiveResMap, 2},
                DiagnosticCase{"dolmDumpResRequest", dolmDumpResRequest, 3},
                DiagnosticCase{"dolmDumpResInfo", dolmDumpResInfo, 4},
                DiagnosticCase{"dolmDumpSAInfo", dolmDumpSAInfo, 5},
                DiagnosticCase{"dolmDumpPidFdList", dolmDumpPidFdList, 6},
                DiagnosticCase{"dolmDumpPidfdMonitorMap", dolmDumpPidfdMonitorMap, 7},
                DiagnosticCase{"dolmDumpResRecordList", dolmDumpResRecordList, 8},
                DiagnosticCase{"dolmHistoryRequestRecordOn", dolmHistoryRequestRecordOn, 10},
                DiagnosticCase{"dolmHistoryRequestRecordOff", dolmHistoryRequestRecordOff, 11}),
        [](const auto& info) { return std::string(info.param.name); });

using PropertyTest = HalclientTest;

TEST_F(PropertyTest, GetReturnsTheValueInANewArray) {
    mService->setPropertyAnswer("perf");
    std::unique_ptr<char[]> value(dolmPropertyGet("vendor.key"));
    ASSERT_NE(value, nullptr);
    EXPECT_STREQ(value.get(), "perf");
    EXPECT_EQ(mService->calls(Op::kGetProperty).at(0).key, "vendor.key");
    EXPECT_EQ(mLog.lines(), (std::vector<LogLine>{info("dolm client dolmPropertyGet"),
                                                  info("dolmPropertyGet perf ")}));
}

TEST_F(PropertyTest, GetReturnsA255CharacterValueWhole) {
    const std::string longest(255, 'v');
    mService->setPropertyAnswer(longest);
    std::unique_ptr<char[]> value(dolmPropertyGet("k"));
    EXPECT_EQ(std::string(value.get()), longest);
}

TEST_F(PropertyTest, GetFailureResetsAndReturnsEmptyText) {
    mService->setPropertyAnswer("unused");
    mService->setAnswer(Op::kGetProperty, Answer::serviceSpecific(1));
    std::unique_ptr<char[]> value(dolmPropertyGet("k"));
    EXPECT_STREQ(value.get(), "");
    EXPECT_EQ(mLog.count(failed("dolmPropertyGet")), 1u);
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
    mService->setAnswer(Op::kSetProperty, Answer::serviceSpecific(9));
    EXPECT_EQ(dolmPropertySet("vendor.key", "on"), -1);
    EXPECT_EQ(mLog.count(failed("dolmPropertySet")), 1u);
    EXPECT_EQ(mLog.count(info("dolm client dolmPropertySet")), 2u);
}

}  // namespace
}  // namespace halclienttest
