// The event layer's connection: lazy lookup, no service, reconnection after
// the service died and after a failed call, and racing first calls.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <condition_variable>
#include <functional>
#include <mutex>
#include <thread>
#include <vector>

#include "ZelFixture.h"
#include "zel.h"

namespace zeltest {
namespace {

using ::testing::ElementsAreArray;

class ZelNoServiceTest : public ::testing::Test {
  protected:
    std::vector<LogLine> zelLines() const { return mLog.lines(kZelTag); }
    LogCapture mLog;
};

// Why the connection fails: no service registered, or a service of this very
// process, whose lookup gives the local object that cannot be linked to death.
struct Unreachable {
    const char* name;
    bool localService;
    std::vector<LogLine> connectLines;
};

void PrintTo(const Unreachable& c, std::ostream* os) {
    *os << c.name;
}

class ZelUnreachableTest : public ZelNoServiceTest,
                           public ::testing::WithParamInterface<Unreachable> {};

// Every call tries to connect again and fails the same way; nothing reaches a
// service.
TEST_P(ZelUnreachableTest, EveryFunctionFailsWithTheConnectLines) {
    std::shared_ptr<FakeDolmService> local;
    if (GetParam().localService) {
        local = FakeDolmService::start(kDolmInstance, Reach::kLocal);
        ASSERT_NE(local, nullptr);
    }
    const std::vector<LogLine>& notFound = GetParam().connectLines;
    auto expectLines = [&](const LogLine& entryLine) {
        std::vector<LogLine> expected{entryLine};
        expected.insert(expected.end(), notFound.begin(), notFound.end());
        EXPECT_THAT(zelLines(), ElementsAreArray(expected));
        mLog.clear();
    };

    EXPECT_EQ(zelInit(), -1);
    expectLines(zelError("zelInit enter"));
    EXPECT_EQ(ZelEventAcquire(1, "p", "i", 10, {}), -1);
    expectLines(zelInfo("ZelEventAcquire, cmdid:1, pkg:p, identity:i"));
    ZelRelease(3);
    expectLines(zelInfo("ZelRelease, handle:3"));
    EXPECT_EQ(ZelNotify(3, 1, {}), -1);
    expectLines(zelInfo("ZelNotify enter"));
    EXPECT_EQ(zelRuleCtl(2, 0, {}), -1);
    expectLines(zelInfo("zelRuleCtl, ruleId:2, status:0"));
    std::string history = "kept";
    EXPECT_EQ(ZelGetHistory(history), -1);
    expectLines(zelInfo("zel client ZelGetHistory"));
    EXPECT_EQ(history, "kept");
    std::vector<ZelClient::Resource> resources{{1, std::nullopt}};
    EXPECT_EQ(ZelMutiResStateRequest(resources), -1);
    expectLines(zelInfo("ZelMutiResStateRequest enter"));
    EXPECT_EQ(ZelGetPMStatus(1), -1);
    expectLines(zelInfo("zel client ZelGetPMStatus"));

    // No entry line of its own.
    EXPECT_EQ(setRelatedSysInfo(1, "x"), -1);
    EXPECT_THAT(zelLines(), ElementsAreArray(notFound));
    if (local != nullptr) {
        EXPECT_TRUE(local->calls().empty());
    }
}

INSTANTIATE_TEST_SUITE_P(
        Causes, ZelUnreachableTest,
        ::testing::Values(
                Unreachable{"NoService", false, notFoundLines()},
                Unreachable{"LocalService", true,
                            std::vector<LogLine>{
                                    zelError("Unable to link to g_zel_hal death notifications!"),
                                    zelError("zel_get_dolm_hal_and_link_to_death error:-1")}}),
        [](const auto& info) { return std::string(info.param.name); });

class ZelConnectionTest : public ZelServiceTest {
  protected:
    /** Registers a second fake under the same name; the first one stays alive. */
    std::shared_ptr<FakeDolmService> startReplacement() {
        std::shared_ptr<FakeDolmService> replacement = FakeDolmService::start();
        EXPECT_NE(replacement, nullptr);
        if (replacement != nullptr) replacement->setAnswer(Op::kRequest, Answer::ok(200));
        return replacement;
    }
};

// Each function fails on the service the library is connected to: it returns
// its failure result (checked in its call), logs exactly its lines with its
// failure label, and drops the connection, so that a replacement registered
// beside the failing service (which stays alive and reachable) receives the
// next call.
TEST_F(ZelConnectionTest, EveryFunctionDropsTheConnectionOnFailure) {
    using Lines = std::vector<LogLine>;
    struct Case {
        Op op;
        Answer failure;
        std::function<void()> call;
        Lines lines;
    };
    std::vector<ZelClient::Resource> resources{{1, std::nullopt}};
    const auto acquire = [] { EXPECT_EQ(ZelEventAcquire(1, "p", "i", 10, {}), -1); };
    const Lines acquireLines{zelInfo("ZelEventAcquire, cmdid:1, pkg:p, identity:i"),
                             failedLine("ZelEventAcquire"), zelError("dolmResCtlRequest error:-1")};
    const LogLine historyCall = zelInfo("zel client hal ZelGetHistory");
    const LogLine statusCall = zelInfo("zel client hal ZelGetPMStatus");
    const Answer refused = Answer::serviceSpecific(1);
    const Answer broken = Answer::transportFailure(STATUS_UNKNOWN_ERROR);
    const Case cases[] = {
            {Op::kRequest, refused, acquire, acquireLines},
            {Op::kRequest, broken, acquire, acquireLines},
            {Op::kInit, refused, [] { EXPECT_EQ(zelInit(), -2); },
             Lines{zelError("zelInit enter"), failedLine("dolm_init")}},
            {Op::kRelease, broken, [] { ZelRelease(1); },
             Lines{zelInfo("ZelRelease, handle:1"), failedLine("dolmResCtlRelease")}},
            {Op::kRequest, refused, [] { EXPECT_EQ(ZelNotify(1, 1, {}), -1); },
             Lines{zelInfo("ZelNotify enter"), failedLine("ZelNotify")}},
            {Op::kRuleCtl, broken, [] { EXPECT_EQ(zelRuleCtl(1, 1, {}), -1); },
             Lines{zelInfo("zelRuleCtl, ruleId:1, status:1"), failedLine("zelRuleCtl")}},
            {Op::kSetRelatedSysInfo, refused, [] { EXPECT_EQ(setRelatedSysInfo(1, "x"), -1); },
             Lines{failedLine("setRelatedSysInfo")}},
            {Op::kGetData, refused,
             [] {
                 std::string history = "kept";
                 EXPECT_EQ(ZelGetHistory(history), -1);
                 EXPECT_EQ(history, "kept");
             },
             Lines{zelInfo("zel client ZelGetHistory"), historyCall, failedLine("ZelGetHistory"),
                   zelError("failed to get history or return vector empty, data vector size 0")}},
            {Op::kGetData, refused, [&] { EXPECT_EQ(ZelMutiResStateRequest(resources), -1); },
             Lines{zelInfo("ZelMutiResStateRequest enter"), failedLine("ZelMutiResStateRequest")}},
            {Op::kGetData, broken, [] { EXPECT_EQ(ZelGetPMStatus(-2), -1); },
             Lines{zelInfo("zel client ZelGetPMStatus"), statusCall, failedLine("ZelGetPMStatus"),
                   zelError("failed to get power mode status, mode -2, data vector size 0")}},
    };
    std::shared_ptr<FakeDolmService> connected = mService;
    for (const Case& c : cases) {
        SCOPED_TRACE(c.lines.front().text);
        // What a successful answer would carry.
        connected->setDataAnswer({entry(1, "3")});
        connected->setAnswer(c.op, c.failure);
        const size_t before = connected->calls(c.op).size();
        mLog.clear();
        c.call();
        ASSERT_EQ(connected->calls(c.op).size(), before + 1);
        EXPECT_THAT(zelLines(), ElementsAreArray(c.lines));

        std::shared_ptr<FakeDolmService> replacement = startReplacement();
        ASSERT_NE(replacement, nullptr);
        EXPECT_EQ(ZelEventAcquire(1, "p", "i", 10, {}), 200);
        EXPECT_EQ(connected->calls(c.op).size(), before + 1);
        EXPECT_EQ(replacement->calls(Op::kRequest).size(), 1u);
        connected = replacement;
    }
}

// The connection is kept while calls succeed, even when another service is
// registered under the name. A death empties the holder: with no service
// registered, the next call looks it up in vain; once one is registered
// again, a call connects to it (without calling init).
TEST_F(ZelConnectionTest, ReconnectsAfterTheServiceDied) {
    mService->setAnswer(Op::kRequest, Answer::ok(100));
    ASSERT_EQ(ZelEventAcquire(1, "p", "i", 10, {}), 100);
    std::shared_ptr<FakeDolmService> ignored = startReplacement();
    ASSERT_NE(ignored, nullptr);
    EXPECT_EQ(ZelEventAcquire(1, "p", "i", 10, {}), 100);
    EXPECT_TRUE(ignored->calls().empty());
    ignored->kill();

    mService->kill();
    ASSERT_TRUE(waitUntil([&] { return mLog.count(zelError("Dolm HAL Service died")) == 1; }));
    mLog.clear();
    EXPECT_EQ(ZelEventAcquire(1, "p", "i", 10, {}), -1);
    std::vector<LogLine> expected{zelInfo("ZelEventAcquire, cmdid:1, pkg:p, identity:i")};
    for (const LogLine& line : notFoundLines()) expected.push_back(line);
    EXPECT_THAT(zelLines(), ElementsAreArray(expected));

    std::shared_ptr<FakeDolmService> restarted = FakeDolmService::start();
    ASSERT_NE(restarted, nullptr);
    restarted->setAnswer(Op::kRequest, Answer::ok(300));
    EXPECT_EQ(ZelEventAcquire(1, "p", "i", 10, {}), 300);
    EXPECT_EQ(restarted->calls(Op::kRequest).size(), 1u);
    EXPECT_TRUE(restarted->calls(Op::kInit).empty());
    EXPECT_EQ(mService->calls(Op::kRequest).size(), 2u);
    // No failed call was logged.
    EXPECT_EQ(mLog.count(failedLine("ZelEventAcquire")), 0u);
}

TEST_F(ZelConnectionTest, RacingFirstCallsAllReachTheService) {
    constexpr int kThreads = 8;
    mService->setAnswer(Op::kRequest, Answer::ok(55));

    std::mutex mutex;
    std::condition_variable go;
    bool started = false;
    std::vector<int32_t> results(kThreads, 0);
    std::vector<std::thread> threads;
    threads.reserve(kThreads);
    for (int i = 0; i < kThreads; ++i) {
        threads.emplace_back([&, i] {
            {
                std::unique_lock<std::mutex> lock(mutex);
                go.wait(lock, [&] { return started; });
            }
            results[i] = ZelEventAcquire(i, "p", "i", 10, {});
            ZelRelease(results[i]);
        });
    }
    {
        std::lock_guard<std::mutex> lock(mutex);
        started = true;
    }
    go.notify_all();
    for (std::thread& thread : threads) thread.join();

    EXPECT_THAT(results, ::testing::Each(55));
    EXPECT_EQ(mService->calls(Op::kRequest).size(), static_cast<size_t>(kThreads));
    EXPECT_EQ(mService->calls(Op::kRelease).size(), static_cast<size_t>(kThreads));
    EXPECT_EQ(mLog.count(zelError("Dolm HAL Service not found")), 0u);
}

}  // namespace
}  // namespace zeltest
