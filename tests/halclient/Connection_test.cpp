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
    const char* label;  ///< the label of its failure line
    Op op;              ///< the operation it calls
    std::function<int()> call;
    size_t clients = 0;  ///< one-shot clients it registers before calling
};

// Runs `call` on a fresh list of one well-formed resource.
template <typename Call>
std::function<int()> onList(Call call) {
    return [call] {
        ResourceList l{res(1, "1")};
        return call(l);
    };
}

// Every entry point that returns a result, called with well-formed arguments.
// The path registrations use lists of their own, so that one registered
// later is not refused as a duplicate of another.
std::vector<EntryPoint> allEntryPoints() {
    auto cb = std::make_shared<RecordingCallback>();
    auto pathCb = std::make_shared<RecordingPathCallback>();
    const char* const resCtl = "dolmResCtlRequest";
    const char* const saCtl = "dolmSACtlRequest";
    std::vector<EntryPoint> points{
            {"ResCtl3", resCtl, Op::kRequest,
             onList([](ResourceList& l) { return dolmResCtlRequest(1, l, 0); })},
            {"ResCtl4", resCtl, Op::kRequest,
             onList([](ResourceList& l) { return dolmResCtlRequest(1, l, 0, 0); })},
            {"ResCtl5", resCtl, Op::kRequest,
             onList([](ResourceList& l) { return dolmResCtlRequest(1, l, 0, 0, 0); })},
            {"ResCtlLead4", resCtl, Op::kRequest,
             onList([](ResourceList& l) { return dolmResCtlRequest(1, 1, l, 0); })},
            {"ResCtlLead5", resCtl, Op::kRequest,
             onList([](ResourceList& l) { return dolmResCtlRequest(1, 1, l, 0, 0); })},
            {"ResCtlFull", resCtl, Op::kRequest,
             onList([](ResourceList& l) { return dolmResCtlRequest(1, 1, l, 0, 0, 0); })},
            {"ResCtlCallback", "dolm client DolmCallbackClient with callback", Op::kRequest,
             onList([cb](ResourceList& l) { return dolmResCtlRequest(1, 1, l, 0, 0, 0, cb); }), 1},
            {"ResCtlRelease", "dolmResCtlRelease", Op::kRelease,
             [] { return dolmResCtlRelease(1); }},
            {"SACtlFull", saCtl, Op::kRequest, [] { return dolmSACtlRequest(1, 1, 1, 1, 1, 1); }},
            {"SACtlShort", saCtl, Op::kRequest, [] { return dolmSACtlRequest(1, 1, 1); }},
            {"SACtlCallback", "dolmSACtlRequest with callback", Op::kRequest,
             [cb] { return dolmSACtlRequest(1, 1, 1, 1, 1, 1, cb); }, 1},
            {"SACtlRelease", "dolmSACtlRelease", Op::kRelease, [] { return dolmSACtlRelease(1); }},
            {"ListeningRegister", "dolm_res_listening_register_map", Op::kRegisterListener,
             onList([cb](ResourceList& l) { return dolmResListeningRegister(l, 0, cb); })},
            {"ListeningUnRegister", "dolmResListeningUnRegister", Op::kUnregisterListener,
             [] { return dolmResListeningUnRegister(1); }},
            {"StateRequest", "dolmResStateRequest", Op::kGetData, onList([](ResourceList& l) {
                 ResourceList out;
                 return dolmResStateRequest(l, 0, out);
             })},
            {"ThermalNotify", "dolmThermalNotify", Op::kRequest,
             onList([](ResourceList& l) { return dolmThermalNotify(l, 0); })},
            {"ThermalRegister", "dolmThermalListeningRegister", Op::kRegisterThermalListener,
             [cb] { return dolmThermalListeningRegister({1}, cb); }},
            {"ThermalUnregister", "dolmThermalListeningUnregister", Op::kUnregisterThermalListener,
             [] { return dolmThermalListeningUnregister(1); }},
            {"PathCtl", "dolm_resctl_request_by_path", Op::kRequest,
             [] { return dolm_resctl_request_by_path(1, 1, {"a"}, {"1"}, 0, 0, 0); }},
            {"PathCtlCallback", "dolm client dolm_resctl_request_with_callback", Op::kRequest,
             [pathCb] {
                 return dolm_resctl_request_with_callback_by_path(1, 1, {"a"}, {"1"}, 0, 0, 0,
                                                                  pathCb);
             },
             1},
            {"PathState", "dolm_res_state_request", Op::kGetData,
             [] {
                 PathList out;
                 return dolm_res_state_request_by_path({"a"}, {}, 0, out);
             }},
            {"PathStateMap", "dolm_res_state_request_map", Op::kGetData,
             [] {
                 PathMap out;
                 return dolm_res_state_request_map_by_path({{"a", "1"}}, 0, out);
             }},
            {"PathListen", "dolm_res_listening_register", Op::kRegisterListener,
             [pathCb] { return dolm_res_listening_register_by_path({"a"}, 0, pathCb); }},
            {"PathListenMap", "dolm_res_listening_register_map", Op::kRegisterListener,
             [pathCb] {
                 return dolm_res_listening_register_map_by_path({{"b", "1"}}, 0, pathCb);
             }},
            {"PropertySet", "dolmPropertySet", Op::kSetProperty,
             [] { return dolmPropertySet("k", "v"); }},
            // The empty text is what a failed read gives.
            {"PropertyGet", "dolmPropertyGet", Op::kGetProperty,
             [] {
                 std::unique_ptr<char[]> value(dolmPropertyGet("k"));
                 return value[0] == '\0' ? -1 : 0;
             }},
    };
    for (const Diagnostic& d : kDiagnostics)
        points.push_back({d.name, d.name, Op::kRequest, d.call});
    return points;
}

// Why no call reaches a service: none is registered, or it is a service of
// the caller's own process, whose lookup gives the local object, to which no
// death recipient can be linked.
struct Unreachable {
    const char* name;
    bool localService;
    LogLine connectLine;
};

void PrintTo(const Unreachable& c, std::ostream* os) {
    *os << c.name;
}

class UnreachableTest : public HalclientNoServiceTest,
                        public ::testing::WithParamInterface<Unreachable> {};

// Every call tries to connect again, fails with only the connect line as an
// error, and registers no client.
TEST_P(UnreachableTest, EveryEntryPointFailsWithTheConnectLine) {
    std::shared_ptr<FakeDolmService> local;
    if (GetParam().localService) {
        local = FakeDolmService::start(zeltest::kDolmInstance, zeltest::Reach::kLocal);
        ASSERT_NE(local, nullptr);
    }
    const LogLine& connect = GetParam().connectLine;
    for (const EntryPoint& entryPoint : allEntryPoints()) {
        SCOPED_TRACE(entryPoint.name);
        mLog.clear();
        EXPECT_EQ(entryPoint.call(), -1);
        EXPECT_EQ(entryPoint.call(), -1);
        EXPECT_EQ(errorsOf(mLog.lines()), (std::vector<LogLine>{connect, connect}));
    }
    mLog.clear();
    dolm_init();
    delete[] dolmPropertyGet("key");
    EXPECT_EQ(mLog.lines(), (std::vector<LogLine>{info("dolm client dolm_init"), connect,
                                                  info("dolm client dolmPropertyGet"), connect,
                                                  info("dolmPropertyGet  ")}));
    EXPECT_EQ(requestCallbackCount(), 0u);
    if (local != nullptr) {
        EXPECT_TRUE(local->calls().empty());
    }
}

INSTANTIATE_TEST_SUITE_P(
        Causes, UnreachableTest,
        ::testing::Values(Unreachable{"NoService", false, error("Dolm HAL Service not found")},
                          Unreachable{"LocalService", true,
                                      error("Unable to link to g_dolm_hal death notifications!")}),
        [](const auto& info) { return std::string(info.param.name); });

using ConnectionTest = HalclientTest;

TEST_F(ConnectionTest, InitCallsTheServiceAndResetsOnFailure) {
    dolm_init();
    EXPECT_EQ(mService->calls(Op::kInit).size(), 1u);
    mService->setAnswer(Op::kInit, Answer::serviceSpecific(1));
    dolm_init();
    EXPECT_EQ(mLog.count(failed("dolm_init")), 1u);
}

// Each entry point fails on the service it is connected to, by a
// service-specific error or a failed transaction in turn: it returns -1, logs
// its own failure line as its only error, and drops the connection, so that
// the same call goes to a replacement registered beside the failed service
// (which stays alive). A failed registration records nothing: the retry is
// not refused as a duplicate. A failed request with a callback leaves its
// one-shot client registered.
TEST_F(ConnectionTest, EveryEntryPointDropsTheConnectionOnFailure) {
    std::shared_ptr<FakeDolmService> connected = mService;
    bool transport = false;
    for (const EntryPoint& entryPoint : allEntryPoints()) {
        SCOPED_TRACE(entryPoint.name);
        transport = !transport;
        // Content a successful answer would carry.
        connected->setDataAnswer({entry(1, "1", "a")});
        connected->setPropertyAnswer("unused");
        connected->setAnswer(entryPoint.op,
                             transport ? Answer::transportFailure(STATUS_FAILED_TRANSACTION)
                                       : Answer::serviceSpecific(1));
        const size_t clients = requestCallbackCount();
        const size_t calls = connected->calls(entryPoint.op).size() + 1;
        mLog.clear();
        EXPECT_EQ(entryPoint.call(), -1);
        std::vector<LogLine> errors{failed(entryPoint.label)};
        // The registry is searched for the handle, unknown here, before the reset.
        if (entryPoint.op == Op::kUnregisterListener) {
            errors.insert(errors.begin(), error("The callback was not registered before"));
        }
        EXPECT_EQ(errorsOf(mLog.lines()), errors);
        EXPECT_EQ(requestCallbackCount(), clients + entryPoint.clients);
        EXPECT_EQ(connected->calls(entryPoint.op).size(), calls);

        std::shared_ptr<FakeDolmService> replacement = FakeDolmService::start();
        ASSERT_NE(replacement, nullptr);
        entryPoint.call();
        EXPECT_EQ(connected->calls(entryPoint.op).size(), calls);
        EXPECT_EQ(replacement->calls(entryPoint.op).size(), 1u);
        connected = replacement;
    }
}

// The connection is kept while calls succeed, even when another service is
// registered under the name; a death drops it, and each new one is linked to
// death anew.
TEST_F(ConnectionTest, ReconnectsAfterServiceDeath) {
    EXPECT_EQ(dolmResCtlRelease(1), 0);
    auto ignored = FakeDolmService::start();
    ASSERT_NE(ignored, nullptr);
    EXPECT_EQ(dolmResCtlRelease(1), 0);
    EXPECT_EQ(mService->calls(Op::kRelease).size(), 2u);
    EXPECT_TRUE(ignored->calls().empty());
    mService->kill();
    ASSERT_TRUE(mLog.waitCount(error("Dolm HAL Service died"), 1, kWait));

    for (int restart = 0; restart < 2; ++restart) {
        auto replacement = FakeDolmService::start();
        ASSERT_NE(replacement, nullptr);
        replacement->setAnswer(Op::kRelease, Answer::ok(30 + restart));
        EXPECT_EQ(dolmResCtlRelease(2), 30 + restart);
        EXPECT_EQ(replacement->calls(Op::kRelease).size(), 1u);
        replacement->kill();
        ASSERT_TRUE(mLog.waitCount(error("Dolm HAL Service died"), 2 + restart, kWait));
    }
    EXPECT_EQ(mLog.count(failed("dolmResCtlRelease")), 0u);
}

// Two threads find no connection at once: one connects, the other finds the
// connection made when it gets the exclusive lock, says so, and uses it. The
// first thread holds the exclusive lock (stopped in its "not found" line)
// while the two line up behind it; whether both have reached the lock when it
// is let go is up to the scheduler, so rounds repeat until the race is seen.
// A shared_mutex that prefers writers (libc++'s) lets the second thread in
// shared only before the first asks for it exclusively, so the two meet in
// fewer rounds than with glibc's reader-preferring lock.
TEST(RacingConnectionTest, LoserKeepsTheWinnersConnection) {
    zeltest::LogCapture log;
    const LogLine notDeclared = error("Dolm is not declared");
    bool raced = false;
    for (int round = 0; round < 400 && !raced; ++round) {
        log.clear();
        log.close("Dolm HAL Service not found");
        std::atomic<int> first{0};
        std::thread holder([&] { first = dolmResCtlRelease(1); });
        ASSERT_TRUE(log.waitHeld(1, kWait));

        auto service = FakeDolmService::start();
        ASSERT_NE(service, nullptr);
        service->setAnswer(Op::kRelease, Answer::ok(5));
        std::atomic<int> results[2] = {{0}, {0}};
        std::thread racers[2] = {std::thread([&] { results[0] = dolmResCtlRelease(2); }),
                                 std::thread([&] { results[1] = dolmResCtlRelease(2); })};
        ASSERT_TRUE(log.waitCount(info("dolm client dolmResCtlRelease"), 3, kWait));
        log.open();
        holder.join();
        for (std::thread& racer : racers) racer.join();

        EXPECT_EQ(results[0], 5);
        EXPECT_EQ(results[1], 5);
        // The first thread found no service, but it looks at the holder again
        // after connecting, and may find the connection the others made.
        EXPECT_TRUE(first == -1 || first == 5) << first;
        EXPECT_EQ(service->calls(Op::kRelease).size(), first == 5 ? 3u : 2u);
        EXPECT_LE(log.count(notDeclared), 1u);
        raced = log.count(notDeclared) == 1;

        service->kill();
        ASSERT_TRUE(log.waitCount(error("Dolm HAL Service died"), 1, kWait));
    }
    EXPECT_TRUE(raced) << "the two threads never met at the connection step";
}

// Where the service that calls back from inside `request` runs: in this
// process, reached through in-process proxies, where the delivery runs on the
// binder thread that serves the request; or in a process of its own, where it
// runs nested, on the thread that waits for the request (this process then
// starts no thread pool).
enum class ServiceHost { kInProcess, kServiceProcess };

class ConcurrentRequestsTest : public ::testing::TestWithParam<ServiceHost> {};

// Callback requests from several threads while their deliveries run: the
// connection lock (shared), the registry mutex and the delivery's own use of
// the registry mutex must not get in each other's way. Each delivery has
// arrived, on its thread, by the time its request returns.
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
    // Deliveries a callback had received when its request returned.
    std::vector<size_t> deliveredOnReturn(kThreads * kRequests, 0);
    std::vector<std::thread> threads;
    threads.reserve(kThreads);
    for (size_t t = 0; t < kThreads; ++t) {
        threads.emplace_back([&, t] {
            for (size_t i = 0; i < kRequests; ++i) {
                const size_t n = t * kRequests + i;
                ResourceList resources{res(1, "1")};
                results[n] = dolmResCtlRequest(-1, 1, resources, -1, -1, 0, callbacks[n]);
                deliveredOnReturn[n] = callbacks[n]->deliveries().size();
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
        EXPECT_EQ(deliveredOnReturn[n], 1u);
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
