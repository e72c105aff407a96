// ZelGetHistory, ZelMutiResStateRequest, ZelResStateRequest and
// ZelGetPMStatus: the queries sent, how answers are turned into results, and
// what is logged.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

#include "ZelFixture.h"
#include "zel.h"

namespace zeltest {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

class ZelQueryTest : public ZelServiceTest {};

DolmRequestData withExtra(std::optional<std::string> extra) {
    DolmRequestData data;
    data.extra = std::move(extra);
    return data;
}

TEST_F(ZelQueryTest, HistoryJoinsTheReturnedTexts) {
    // An empty answer leaves the caller's text.
    std::string kept = "kept";
    EXPECT_EQ(ZelGetHistory(kept), -1);
    EXPECT_EQ(kept, "kept");
    EXPECT_THAT(
            zelLines(),
            ElementsAre(
                    zelInfo("zel client ZelGetHistory"), zelInfo("zel client hal ZelGetHistory"),
                    zelError("failed to get history or return vector empty, data vector size 0")));

    struct Case {
        std::vector<DolmRequestData> answer;
        const char* history;
    };
    const Case cases[] = {
            {{withExtra("A")}, "start:A;end"},
            {{withExtra("x"), withExtra(std::nullopt), withExtra("z")}, "start:x;none;z;end"},
            {{withExtra("")}, "start:;end"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.history);
        mLog.clear();
        mService->setDataAnswer(c.answer);
        std::string history = "previous text";
        EXPECT_EQ(ZelGetHistory(history), 0);
        EXPECT_EQ(history, c.history);
        EXPECT_THAT(zelLines(),
                    ElementsAre(zelInfo("zel client ZelGetHistory"),
                                zelInfo("zel client hal ZelGetHistory"),
                                zelDebug(std::string("get history successful: ") + c.history)));
    }
    const DolmRequestParcel parcel = mService->calls(Op::kGetData).back().parcel;
    EXPECT_EQ(parcel.requestType, 11);
    EXPECT_THAT(parcel.data, IsEmpty());
}

TEST_F(ZelQueryTest, StateRequestAsksForIdsOnlyAndFillsMatches) {
    mService->setDataAnswer({entry(0x01010FB0, "30"), entry(1, "10"), entry(1, "later copy"),
                             entry(4, "unasked"), entry(5, std::nullopt)});
    std::vector<ZelClient::Resource> resources{{1, "stale"},
                                               {2, std::nullopt},
                                               {0x01010FB0, std::nullopt},
                                               {1, std::nullopt},
                                               {5, "old"}};
    EXPECT_EQ(ZelMutiResStateRequest(resources), 3);

    EXPECT_EQ(resources[0].value, std::optional<std::string>("10"));
    EXPECT_EQ(resources[1].value, std::nullopt);
    EXPECT_EQ(resources[2].value, std::optional<std::string>("30"));
    EXPECT_EQ(resources[3].value, std::optional<std::string>("10"));  // the first match again
    // Answered without a value: neither filled nor counted nor logged.
    EXPECT_EQ(resources[4].value, std::optional<std::string>("old"));

    const DolmRequestParcel parcel = mService->calls(Op::kGetData).back().parcel;
    EXPECT_EQ(parcel.requestType, 0);
    EXPECT_THAT(parcel.data, ElementsAre(entry(1), entry(2), entry(0x01010FB0), entry(1), entry(5)));
    EXPECT_THAT(zelLines(),
                ElementsAre(zelInfo("ZelMutiResStateRequest enter"),
                            zelDebug("get resource value, opcode 0x00000001, value 10"),
                            zelInfo("not match any opcode in zelcore"),
                            zelDebug("get resource value, opcode 0x01010fb0, value 30"),
                            zelDebug("get resource value, opcode 0x00000001, value 10")));
}

TEST_F(ZelQueryTest, StateRequestRefusesEmptyInputAndEmptyAnswers) {
    std::vector<ZelClient::Resource> none;
    EXPECT_EQ(ZelMutiResStateRequest(none), -1);
    EXPECT_THAT(mService->calls(Op::kGetData), IsEmpty());
    EXPECT_THAT(zelLines(), ElementsAre(zelInfo("ZelMutiResStateRequest enter"),
                                        zelError("input resource is empty, return")));

    mLog.clear();
    std::vector<ZelClient::Resource> one{{1, std::nullopt}};
    EXPECT_EQ(ZelMutiResStateRequest(one), -1);
    EXPECT_THAT(zelLines(), ElementsAre(zelInfo("ZelMutiResStateRequest enter"),
                                        zelError("failed to get resource value")));
}

TEST_F(ZelQueryTest, SingleStateRequestWritesOnlyAnAnsweredValue) {
    mService->setDataAnswer({entry(7, std::string("ab\0cd", 5))});
    std::string value = "unchanged";
    ZelResStateRequest(8, value);  // not answered
    EXPECT_EQ(value, "unchanged");
    ZelResStateRequest(7, value);  // answered; cut at the NUL
    EXPECT_EQ(value, "ab");
    EXPECT_THAT(mService->calls(Op::kGetData).back().parcel.data, ElementsAre(entry(7)));
    EXPECT_EQ(mLog.count(zelInfo("ZelResStateRequest enter")), 2u);

    mService->setDataAnswer({entry(7, std::nullopt)});
    value = "unchanged";
    ZelResStateRequest(7, value);  // answered without a value
    EXPECT_EQ(value, "unchanged");
}

// The description of std::stoi's error for `text`: the C++ runtime's own
// wording ("stoi" in libstdc++, "stoi: no conversion" in libc++).
std::string stoiError(const char* text) {
    try {
        (void)std::stoi(text);
    } catch (const std::exception& e) {
        return e.what();
    }
    return "(no error)";
}

TEST_F(ZelQueryTest, PowerModeStatusIsTheLeadingNumber) {
    EXPECT_EQ(ZelGetPMStatus(4), -1);  // an empty answer
    EXPECT_THAT(
            zelLines(),
            ElementsAre(zelInfo("zel client ZelGetPMStatus"),
                        zelInfo("zel client hal ZelGetPMStatus"),
                        zelError("failed to get power mode status, mode 4, data vector size 0")));

    struct Case {
        const char* text;
        int32_t status;
        std::string stdoutText;
    };
    const Case cases[] = {
            {"7", 7, ""},
            {" 7x", 7, ""},
            {"-12", -12, ""},
            {"abc", -1, "Invalid argument exception: " + stoiError("abc") + "\n"},
            {"", -1, "Invalid argument exception: " + stoiError("") + "\n"},
            {"99999999999", -1, "Out of range exception: " + stoiError("99999999999") + "\n"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.text);
        mService->setDataAnswer({entry(1, c.text), entry(2, "99")});
        ::testing::internal::CaptureStdout();
        EXPECT_EQ(ZelGetPMStatus(4), c.status);
        EXPECT_EQ(::testing::internal::GetCapturedStdout(), c.stdoutText);
    }
    const DolmRequestParcel parcel = mService->calls(Op::kGetData).back().parcel;
    EXPECT_EQ(parcel.requestType, 13);
    EXPECT_THAT(parcel.data, ElementsAre(entry(4)));
    EXPECT_EQ(mLog.count(zelInfo("zel client hal ZelGetPMStatus")), std::size(cases) + 1);
}

TEST_F(ZelQueryTest, PowerModeEntryWithoutValueRaisesToTheCaller) {
    mService->setDataAnswer({entry(1, std::nullopt)});
    EXPECT_THROW(ZelGetPMStatus(1), std::bad_optional_access);
    // The lock was released on the way out: the connection is still usable.
    mService->setDataAnswer({entry(1, "5")});
    EXPECT_EQ(ZelGetPMStatus(1), 5);
}

}  // namespace
}  // namespace zeltest
