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

using Lines = std::vector<LogLine>;

// One function of the event API: the operation it calls, the call (which
// checks the result it is given), the lines it logs on entry (none for
// setRelatedSysInfo), the lines that follow when the service call fails, and
// its result then (it fails with -1 where no service is reached).
struct Function {
    const char* name;
    Op op;
    std::function<void(int32_t result)> call;
    Lines entry;
    Lines failure;
    int32_t failedResult = -1;
};

std::vector<Function> allFunctions() {
    const auto acquire = [](int32_t r) { EXPECT_EQ(ZelEventAcquire(1, "p", "i", 10, {}), r); };
    const Lines acquireEntry{zelInfo("ZelEventAcquire, cmdid:1, pkg:p, identity:i")};
    const Lines acquireFailure{failedLine("ZelEventAcquire"),
                               zelError("dolmResCtlRequest error:-1")};
    return {
            // Twice, to fail it once by each kind of failure.
            {"ZelEventAcquire", Op::kRequest, acquire, acquireEntry, acquireFailure},
            {"ZelEventAcquire", Op::kRequest, acquire, acquireEntry, acquireFailure},
            {"zelInit", Op::kInit, [](int32_t r) { EXPECT_EQ(zelInit(), r); },
             Lines{zelError("zelInit enter")}, Lines{failedLine("dolm_init")}, -2},
            {"ZelRelease", Op::kRelease, [](int32_t) { ZelRelease(1); },
             Lines{zelInfo("ZelRelease, handle:1")}, Lines{failedLine("dolmResCtlRelease")}},
            {"ZelNotify", Op::kRequest, [](int32_t r) { EXPECT_EQ(ZelNotify(1, 1, {}), r); },
             Lines{zelInfo("ZelNotify enter")}, Lines{failedLine("ZelNotify")}},
            {"zelRuleCtl", Op::kRuleCtl, [](int32_t r) { EXPECT_EQ(zelRuleCtl(1, 1, {}), r); },
             Lines{zelInfo("zelRuleCtl, ruleId:1, status:1")}, Lines{failedLine("zelRuleCtl")}},
            {"setRelatedSysInfo", Op::kSetRelatedSysInfo,
             [](int32_t r) { EXPECT_EQ(setRelatedSysInfo(1, "x"), r); }, Lines{},
             Lines{failedLine("setRelatedSysInfo")}},
            {"ZelGetHistory", Op::kGetData,
             [](int32_t r) {
                 std::string history = "kept";
                 EXPECT_EQ(ZelGetHistory(history), r);
                 EXPECT_EQ(history, "kept");
             },
             Lines{zelInfo("zel client ZelGetHistory")},
             Lines{zelInfo("zel client hal ZelGetHistory"), failedLine("ZelGetHistory"),
                   zelError("failed to get history or return vector empty, data vector size 0")}},
            {"ZelMutiResStateRequest", Op::kGetData,
             [](int32_t r) {
                 std::vector<ZelClient::Resource> resources{{1, std::nullopt}};
                 EXPECT_EQ(ZelMutiResStateRequest(resources), r);
             },
             Lines{zelInfo("ZelMutiResStateRequest enter")},
             Lines{failedLine("ZelMutiResStateRequest")}},
            {"ZelGetPMStatus", Op::kGetData, [](int32_t r) { EXPECT_EQ(ZelGetPMStatus(-2), r); },
             Lines{zelInfo("zel client ZelGetPMStatus")},
             Lines{zelInfo("zel client hal ZelGetPMStatus"), failedLine("ZelGetPMStatus"),
                   zelError("failed to get power mode status, mode -2, data vector size 0")}},
    };
}

// Why the connection fails: no service registered, or a service of this very
// process, whose lookup gives the local object that cannot be linked to death.
struct Unreachable {
    const char* name;
    bool localService;
    Lines connectLines;
};

void PrintTo(const Unreachable& c, std::ostream* os) {
    *os << c.name;
}

class ZelUnreachableTest : public ::testing::TestWithParam<Unreachable> {
  protected:
    LogCapture mLog;
};

// Every call tries to connect again and fails the same way; nothing reaches a
// service.
TEST_P(ZelUnreachableTest, EveryFunctionFailsWithTheConnectLines) {
    std::shared_ptr<FakeDolmService> local;
    if (GetParam().localService) {
        local = FakeDolmService::start(kDolmInstance, Reach::kLocal);
        ASSERT_NE(local, nullptr);
    }
    for (const Function& function : allFunctions()) {
        SCOPED_TRACE(function.name);
        mLog.clear();
        function.call(-1);
        Lines expected = function.entry;
        expected.insert(expected.end(), GetParam().connectLines.begin(),
                        GetParam().connectLines.end());
        EXPECT_THAT(mLog.lines(kZelTag), ElementsAreArray(expected));
    }
    if (local != nullptr) {
        EXPECT_TRUE(local->calls().empty());
    }
}

INSTANTIATE_TEST_SUITE_P(
        Causes, ZelUnreachableTest,
        ::testing::Values(Unreachable{"NoService", false, notFoundLines()},
                          Unreachable{"LocalService", true,
                                      Lines{zelError("Unable to link to g_zel_hal death "
                                                     "notifications!"),
                                            zelError("zel_get_dolm_hal_and_link_to_death "
                                                     "error:-1")}}),
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

// Each function fails on the service the library is connected to, by a
// service-specific error or a failed transaction in turn: it returns its
// failure result, logs exactly its lines with its failure label, and drops
// the connection, so that a replacement registered beside the failing service
// (which stays alive and reachable) receives the next call.
TEST_F(ZelConnectionTest, EveryFunctionDropsTheConnectionOnFailure) {
    std::shared_ptr<FakeDolmService> connected = mService;
    bool transport = false;
    for (const Function& function : allFunctions()) {
        SCOPED_TRACE(function.name);
        transport = !transport;
        // What a successful answer would carry.
        connected->setDataAnswer({entry(1, "3")});
        connected->setAnswer(function.op, transport ? Answer::transportFailure(STATUS_UNKNOWN_ERROR)
                                                    : Answer::serviceSpecific(1));
        const size_t before = connected->calls(function.op).size();
        mLog.clear();
        function.call(function.failedResult);
        ASSERT_EQ(connected->calls(function.op).size(), before + 1);
        Lines expected = function.entry;
        expected.insert(expected.end(), function.failure.begin(), function.failure.end());
        EXPECT_THAT(zelLines(), ElementsAreArray(expected));

        std::shared_ptr<FakeDolmService> replacement = startReplacement();
        ASSERT_NE(replacement, nullptr);
        EXPECT_EQ(ZelEventAcquire(1, "p", "i", 10, {}), 200);
        EXPECT_EQ(connected->calls(function.op).size(), before + 1);
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
