// The connection: no service, a service of this process, reconnection after a
// failure or a death, the racing first connection, dolm_init, and concurrent
// calls with deliveries.
#include <android/log.h>

#include <atomic>
#include <functional>

#include "HalclientTestSupport.h"
#include "ServiceProcess.h"
#include "Watchdog.h"

namespace halclienttest {
namespace {

using namespace dolmHalclient;
using PathList = std::vector<std::string>;
using PathMap = std::map<std::string, std::string>;

std::vector<LogLine> errorsOf(const std::vector<LogLine>& lines) {
    std::vector<LogLine> errors;
    for (const LogLine& line : lines) {
        if (line.priority == ANDROID_LOG_ERROR) errors.push_back(line);
    }
    return errors;
}

struct EntryPoint {
    const char* name;
    std::function<int()> call;
};

// Test names and messages show the case by its name.
void PrintTo(const EntryPoint& c, std::ostream* os) {
    *os << c.name;
}

ResourceList someResources() {
    return {res(1, "1")};
}

// Runs `call` on a fresh list of one well-formed resource.
template <typename Call>
std::function<int()> onList(Call call) {
    return [call] {
        ResourceList l = someResources();
        return call(l);
    };
}

std::vector<EntryPoint> allEntryPoints() {
    auto cb = std::make_shared<RecordingCallback>();
    auto pathCb = std::make_shared<RecordingPathCallback>();
    return {
            {"ResCtl3", onList([](ResourceList& l) { return dolmResCtlRequest(1, l, 0); })},
            {"ResCtl4", onList([](ResourceList& l) { return dolmResCtlRequest(1, l, 0, 0); })},
            {"ResCtl5", onList([](ResourceList& l) { return dolmResCtlRequest(1, l, 0, 0, 0); })},
            {"ResCtlLead4", onList([](ResourceList& l) { return dolmResCtlRequest(1, 1, l, 0); })},
            {"ResCtlLead5",
             onList([](ResourceList& l) { return dolmResCtlRequest(1, 1, l, 0, 0); })},
            {"ResCtlFull",
             onList([](ResourceList& l) { return dolmResCtlRequest(1, 1, l, 0, 0, 0); })},
            {"ResCtlCallback",
             onList([cb](ResourceList& l) { return dolmResCtlRequest(1, 1, l, 0, 0, 0, cb); })},
            {"ResCtlRelease", [] { return dolmResCtlRelease(1); }},
            {"SACtlFull", [] { return dolmSACtlRequest(1, 1, 1, 1, 1, 1); }},
            {"SACtlShort", [] { return dolmSACtlRequest(1, 1, 1); }},
            {"SACtlCallback", [cb] { return dolmSACtlRequest(1, 1, 1, 1, 1, 1, cb); }},
            {"SACtlRelease", [] { return dolmSACtlRelease(1); }},
            {"ListeningRegister",
             onList([cb](ResourceList& l) { return dolmResListeningRegister(l, 0, cb); })},
            {"ListeningUnRegister", [] { return dolmResListeningUnRegister(1); }},
            {"StateRequest", onList([](ResourceList& l) {
                 ResourceList out;
                 return dolmResStateRequest(l, 0, out);
             })},
            {"ThermalNotify", onList([](ResourceList& l) { return dolmThermalNotify(l, 0); })},
            {"ThermalRegister", [cb] { return dolmThermalListeningRegister({1}, cb); }},
            {"ThermalUnregister", [] { return dolmThermalListeningUnregister(1); }},
            {"PathCtl", [] { return dolm_resctl_request_by_path(1, 1, {"a"}, {"1"}, 0, 0, 0); }},
            {"PathCtlCallback",
             [pathCb] {
                 return dolm_resctl_request_with_callback_by_path(1, 1, {"a"}, {"1"}, 0, 0, 0,
                                                                  pathCb);
             }},
            {"PathState",
             [] {
                 PathList out;
                 return dolm_res_state_request_by_path({"a"}, {}, 0, out);
             }},
            {"PathStateMap",
             [] {
                 PathMap out;
                 return dolm_res_state_request_map_by_path({{"a", "1"}}, 0, out);
             }},
            {"PathListen",
             [pathCb] { return dolm_res_listening_register_by_path({"a"}, 0, pathCb); }},
            {"PathListenMap",
             [pathCb] {
                 return dolm_res_listening_register_map_by_path({{"a", "1"}}, 0, pathCb);
             }},
            {"DumpToDoQueue", dolmDumpToDoQueue},
            {"DumpRunMap", dolmDumpRunMap},
            {"DumpActiveResMap", dolmDumpActiveResMap},
            {"DumpResRequest", dolmDumpResRequest},
            {"DumpResInfo", dolmDumpResInfo},
            {"DumpSAInfo", dolmDumpSAInfo},
            {"DumpPidFdList", dolmDumpPidFdList},
            {"DumpPidfdMonitorMap", dolmDumpPidfdMonitorMap},
            {"DumpResRecordList", dolmDumpResRecordList},
            {"RecordOn", dolmHistoryRequestRecordOn},
            {"RecordOff", dolmHistoryRequestRecordOff},
            {"PropertySet", [] { return dolmPropertySet("k", "v"); }},
    };
}

class NoServiceTest : public HalclientNoServiceTest,
                      public ::testing::WithParamInterface<EntryPoint> {};

TEST_P(NoServiceTest, ReturnsMinusOneAndLogsOnlyTheLookupFailure) {
    EXPECT_EQ(GetParam().call(), -1);
    EXPECT_EQ(GetParam().call(), -1);
    EXPECT_EQ(errorsOf(mLog.lines()), (std::vector<LogLine>{error("Dolm HAL Service not found"),
                                                            error("Dolm HAL Service not found")}));
    EXPECT_EQ(requestCallbackCount(), 0u);
}

INSTANTIATE_TEST_SUITE_P(EntryPoints, NoServiceTest, ::testing::ValuesIn(allEntryPoints()),
                         [](const auto& info) { return std::string(info.param.name); });

TEST_F(HalclientNoServiceTest, InitAndPropertyGetWithoutServiceFailQuietly) {
    dolm_init();
    char* value = dolmPropertyGet("key");
    ASSERT_NE(value, nullptr);
    EXPECT_STREQ(value, "");
    delete[] value;
    EXPECT_EQ(
            mLog.lines(),
            (std::vector<LogLine>{info("dolm client dolm_init"), error("Dolm HAL Service not found"),
                                  info("dolm client dolmPropertyGet"),
                                  error("Dolm HAL Service not found"), info("dolmPropertyGet  ")}));
}

// A service of the caller's own process: the lookup gives the local object,
// to which no death recipient can be linked, so the connection fails on every
// call, each call tries again, and nothing ever reaches the service.
TEST_F(HalclientNoServiceTest, LocalServiceFailsTheLinkOnEveryCall) {
    auto service = FakeDolmService::start(zeltest::kDolmInstance, zeltest::Reach::kLocal);
    ASSERT_NE(service, nullptr);
    const LogLine unlinked = error("Unable to link to g_dolm_hal death notifications!");
    for (const EntryPoint& entryPoint : allEntryPoints()) {
        SCOPED_TRACE(entryPoint.name);
        mLog.clear();
        EXPECT_EQ(entryPoint.call(), -1);
        EXPECT_EQ(errorsOf(mLog.lines()), std::vector<LogLine>{unlinked});
    }
    mLog.clear();
    dolm_init();
    char* value = dolmPropertyGet("key");
    ASSERT_NE(value, nullptr);
    EXPECT_STREQ(value, "");
    delete[] value;
    EXPECT_EQ(mLog.lines(), (std::vector<LogLine>{info("dolm client dolm_init"), unlinked,
                                                  info("dolm client dolmPropertyGet"), unlinked,
                                                  info("dolmPropertyGet  ")}));
    EXPECT_TRUE(service->calls().empty());
    EXPECT_EQ(requestCallbackCount(), 0u);
}

using ConnectionTest = HalclientTest;

TEST_F(ConnectionTest, InitCallsTheServiceAndResetsOnFailure) {
    dolm_init();
    EXPECT_EQ(mService->calls(Op::kInit).size(), 1u);
    mService->setAnswer(Op::kInit, Answer::serviceSpecific(1));
    dolm_init();
    EXPECT_EQ(mLog.count(failed("dolm_init")), 1u);
}

TEST_F(ConnectionTest, ConnectionIsKeptWhileCallsSucceed) {
    EXPECT_EQ(dolmResCtlRelease(1), 0);
    auto replacement = FakeDolmService::start();
    ASSERT_NE(replacement, nullptr);
    EXPECT_EQ(dolmResCtlRelease(2), 0);
    EXPECT_EQ(mService->calls(Op::kRelease).size(), 2u);
    EXPECT_TRUE(replacement->calls().empty());
}

TEST_F(ConnectionTest, ServiceSpecificErrorDropsTheConnection) {
    mService->setAnswer(Op::kRelease, Answer::serviceSpecific(0));
    EXPECT_EQ(dolmResCtlRelease(1), -1);
    EXPECT_EQ(mLog.count(failed("dolmResCtlRelease")), 1u);

    // The next call looks the service up again and finds the new instance.
    auto replacement = FakeDolmService::start();
    ASSERT_NE(replacement, nullptr);
    replacement->setAnswer(Op::kRelease, Answer::ok(8));
    EXPECT_EQ(dolmResCtlRelease(2), 8);
    EXPECT_EQ(mService->calls(Op::kRelease).size(), 1u);
    EXPECT_EQ(replacement->calls(Op::kRelease).size(), 1u);
}

TEST_F(ConnectionTest, ReconnectsAfterServiceDeath) {
    EXPECT_EQ(dolmResCtlRelease(1), 0);
    mService->kill();
    ASSERT_TRUE(waitForLine(mLog, error("Dolm HAL Service died")));

    for (int restart = 0; restart < 2; ++restart) {
        auto replacement = FakeDolmService::start();
        ASSERT_NE(replacement, nullptr);
        replacement->setAnswer(Op::kRelease, Answer::ok(30 + restart));
        EXPECT_EQ(dolmResCtlRelease(2), 30 + restart);
        EXPECT_EQ(replacement->calls(Op::kRelease).size(), 1u);
        // Each connection is linked to death anew.
        replacement->kill();
        ASSERT_TRUE(waitForLine(mLog, error("Dolm HAL Service died"), 2 + restart));
    }
    EXPECT_EQ(mLog.count(failed("dolmResCtlRelease")), 0u);
}

// A logger that records lines like LogCapture and can hold the thread that
// writes a chosen text until the test lets it go.
class GatedLog {
  public:
    GatedLog() {
        {
            std::lock_guard<std::mutex> lock(sMutex);
            sLines.clear();
        }
        // Not under sMutex: liblog calls write() under its own logger lock.
        __android_log_set_minimum_priority(ANDROID_LOG_VERBOSE);
        __android_log_set_logger(write);
    }
    ~GatedLog() {
        open();
        __android_log_set_logger(__android_log_stderr_logger);
    }

    // Holds every later writer of `text` until open().
    void close(const std::string& text) {
        std::lock_guard<std::mutex> lock(sMutex);
        sGate = text;
        sHeld = 0;
    }
    void open() {
        {
            std::lock_guard<std::mutex> lock(sMutex);
            sGate.clear();
        }
        sChanged.notify_all();
    }
    bool waitHeld(int count) {
        std::unique_lock<std::mutex> lock(sMutex);
        return sChanged.wait_for(lock, kWait, [&] { return sHeld >= count; });
    }
    bool waitCount(const LogLine& line, size_t count) {
        std::unique_lock<std::mutex> lock(sMutex);
        return sChanged.wait_for(lock, kWait, [&] { return countLocked(line) >= count; });
    }
    size_t count(const LogLine& line) {
        std::lock_guard<std::mutex> lock(sMutex);
        return countLocked(line);
    }

  private:
    static size_t countLocked(const LogLine& line) {
        return static_cast<size_t>(std::count(sLines.begin(), sLines.end(), line));
    }
    static void write(const struct __android_logger_data* data, const char* message) {
        std::unique_lock<std::mutex> lock(sMutex);
        sLines.push_back(LogLine{data->priority, data->tag != nullptr ? data->tag : "", message});
        if (!sGate.empty() && sGate == message) {
            ++sHeld;
            sChanged.notify_all();
            sChanged.wait(lock, [] { return sGate.empty(); });
        }
        sChanged.notify_all();
    }

    static inline std::mutex sMutex;
    static inline std::condition_variable sChanged;
    static inline std::vector<LogLine> sLines;
    static inline std::string sGate;
    static inline int sHeld = 0;
};

// Two threads find no connection at once: one connects, the other finds the
// connection made when it gets the exclusive lock, says so, and uses it. The
// first thread holds the exclusive lock (stopped in its "not found" line)
// while the two line up behind it; whether both have reached the lock when it
// is let go is up to the scheduler, so rounds repeat until the race is seen.
// A shared_mutex that prefers writers (libc++'s) lets the second thread in
// shared only before the first asks for it exclusively, so the two meet in
// fewer rounds than with glibc's reader-preferring lock.
TEST(RacingConnectionTest, LoserKeepsTheWinnersConnection) {
    GatedLog log;
    const LogLine notDeclared = error("Dolm is not declared");
    const LogLine entryLine = info("dolm client dolmResCtlRelease");
    bool raced = false;
    for (int round = 0; round < 400 && !raced; ++round) {
        log.close("Dolm HAL Service not found");
        const size_t entriesBefore = log.count(entryLine);
        const size_t lostBefore = log.count(notDeclared);
        std::atomic<int> first{0};
        std::thread holder([&] { first = dolmResCtlRelease(1); });
        ASSERT_TRUE(log.waitHeld(1));

        auto service = FakeDolmService::start();
        ASSERT_NE(service, nullptr);
        service->setAnswer(Op::kRelease, Answer::ok(5));
        std::atomic<int> results[2] = {{0}, {0}};
        std::thread racers[2] = {std::thread([&] { results[0] = dolmResCtlRelease(2); }),
                                 std::thread([&] { results[1] = dolmResCtlRelease(2); })};
        ASSERT_TRUE(log.waitCount(entryLine, entriesBefore + 3));
        log.open();
        holder.join();
        for (std::thread& racer : racers) racer.join();

        EXPECT_EQ(results[0], 5);
        EXPECT_EQ(results[1], 5);
        // The first thread found no service, but it looks at the holder again
        // after connecting, and may find the connection the others made.
        EXPECT_TRUE(first == -1 || first == 5) << first;
        EXPECT_EQ(service->calls(Op::kRelease).size(), first == 5 ? 3u : 2u);
        const size_t lost = log.count(notDeclared) - lostBefore;
        EXPECT_LE(lost, 1u);
        raced = lost == 1;

        const size_t diedBefore = log.count(error("Dolm HAL Service died"));
        service->kill();
        ASSERT_TRUE(log.waitCount(error("Dolm HAL Service died"), diedBefore + 1));
    }
    EXPECT_TRUE(raced) << "the two threads never met at the connection step";
}

// Where the service that calls back from inside `request` runs: in this
// process, reached through in-process proxies, where the delivery runs on the
// binder thread that serves the request; or in a process of its own, where it
// runs nested, on the thread that waits for the request (this process then
// starts no thread pool).
enum class ServiceHost { kInProcess, kServiceProcess };

void PrintTo(ServiceHost host, std::ostream* os) {
    *os << (host == ServiceHost::kInProcess ? "InProcess" : "ServiceProcess");
}

class ConcurrentRequestsTest : public ::testing::TestWithParam<ServiceHost> {};

// Callback requests from several threads while their deliveries run: the
// connection lock (shared), the registry mutex and the delivery's own use of
// the registry mutex must not get in each other's way.
TEST_P(ConcurrentRequestsTest, CallbackRequestsAndDeliveriesInterleave) {
    const zeltest::Watchdog watchdog(std::chrono::seconds(60), "concurrent callback requests");
    zeltest::silenceLog();
    std::shared_ptr<CallingBackService> inProcess;
    zeltest::ServiceProcess serviceProcess(ZEL_SERVICE_PROCESS);
    if (GetParam() == ServiceHost::kInProcess) {
        inProcess = CallingBackService::startCallingBack({entry(1, "1")});
        ASSERT_NE(inProcess, nullptr);
    } else {
        ASSERT_TRUE(serviceProcess.start(1));
    }
    constexpr size_t kThreads = 4;
    constexpr size_t kRequests = 10;
    std::vector<std::shared_ptr<RecordingCallback>> callbacks;
    callbacks.reserve(kThreads * kRequests);
    for (size_t i = 0; i < kThreads * kRequests; ++i) {
        callbacks.push_back(std::make_shared<RecordingCallback>());
    }
    std::vector<int> results(kThreads * kRequests, -1);
    std::vector<std::thread> threads;
    threads.reserve(kThreads);
    for (size_t t = 0; t < kThreads; ++t) {
        threads.emplace_back([&, t] {
            for (size_t i = 0; i < kRequests; ++i) {
                ResourceList resources{res(1, "1")};
                results[t * kRequests + i] = dolmResCtlRequest(-1, 1, resources, -1, -1, 0,
                                                               callbacks[t * kRequests + i]);
                dolmResCtlRelease(static_cast<int>(i));
            }
        });
    }
    std::vector<std::thread::id> callers;
    callers.reserve(kThreads);
    for (std::thread& thread : threads) callers.push_back(thread.get_id());
    for (std::thread& thread : threads) thread.join();
    for (size_t n = 0; n < callbacks.size(); ++n) {
        SCOPED_TRACE(n);
        EXPECT_NE(results[n], -1);
        ASSERT_EQ(callbacks[n]->deliveries().size(), 1u);
        const bool onCaller = callbacks[n]->threads()[0] == callers[n / kRequests];
        EXPECT_EQ(onCaller, GetParam() == ServiceHost::kServiceProcess);
    }
    EXPECT_EQ(requestCallbackCount(), 0u);
    if (inProcess != nullptr) {
        EXPECT_EQ(inProcess->calls(Op::kRequest).size(), kThreads * kRequests);
    }
}

INSTANTIATE_TEST_SUITE_P(Hosts, ConcurrentRequestsTest,
                         ::testing::Values(ServiceHost::kInProcess, ServiceHost::kServiceProcess),
                         [](const auto& info) {
                             return std::string(info.param == ServiceHost::kInProcess
                                                        ? "InProcess"
                                                        : "ServiceProcess");
                         });

}  // namespace
}  // namespace halclienttest
