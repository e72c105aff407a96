// zelctl against dolm-sim, each in processes of their own, as a platform
// engineer runs them: outputs, JSON outputs, exit statuses, deliveries,
// timeouts, bad arguments and the missing service.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <fstream>
#include <nlohmann/json.hpp>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

namespace {

using namespace std::chrono_literals;
using nlohmann::json;

constexpr auto kWait = 30s;  // generous for sanitizer builds; only a bound
using Clock = std::chrono::steady_clock;

// A program running with its stdout and stderr on pipes of their own.
class Child {
  public:
    explicit Child(std::vector<std::string> args, const std::string& input = "") {
        int out[2];
        int err[2];
        int in[2];
        EXPECT_EQ(pipe2(out, O_CLOEXEC) | pipe2(err, O_CLOEXEC) | pipe2(in, O_CLOEXEC), 0);
        std::vector<char*> argv;
        for (std::string& arg : args) argv.push_back(arg.data());
        argv.push_back(nullptr);
        mPid = fork();
        if (mPid == 0) {
            dup2(in[0], STDIN_FILENO);
            dup2(out[1], STDOUT_FILENO);
            dup2(err[1], STDERR_FILENO);
            execv(argv[0], argv.data());
            _exit(127);
        }
        close(out[1]);
        close(err[1]);
        close(in[0]);
        mFds[0] = out[0];
        mFds[1] = err[0];
        EXPECT_EQ(write(in[1], input.data(), input.size()), static_cast<ssize_t>(input.size()));
        close(in[1]);
    }
    ~Child() {
        if (mPid > 0) {
            kill(mPid, SIGKILL);
            waitpid(mPid, nullptr, 0);
        }
        for (int fd : mFds) {
            if (fd >= 0) close(fd);
        }
    }

    /** Reads output until stdout holds `text`; false if it does not in time. */
    bool waitForOutput(const std::string& text) {
        const auto deadline = Clock::now() + kWait;
        while (mTexts[0].find(text) == std::string::npos) {
            if (!readSome(deadline)) return false;
        }
        return true;
    }

    /** Collects all output and the exit status; -1 if the program did not end in time. */
    int finish() {
        const auto deadline = Clock::now() + kWait;
        while (readSome(deadline)) {
        }
        int status = 0;
        pid_t ended = 0;
        // The pipes close a moment before the exit can be collected.
        while ((ended = waitpid(mPid, &status, WNOHANG)) == 0 && Clock::now() < deadline) {
            std::this_thread::sleep_for(1ms);
        }
        if (ended != mPid) return -1;  // the destructor kills it
        mPid = -1;
        return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
    }

    const std::string& out() const { return mTexts[0]; }
    const std::string& err() const { return mTexts[1]; }

  private:
    // Appends what the pipes hold; false once both are closed or nothing came in time.
    bool readSome(Clock::time_point deadline) {
        pollfd fds[2] = {{mFds[0], POLLIN, 0}, {mFds[1], POLLIN, 0}};
        const auto left =
                std::chrono::duration_cast<std::chrono::milliseconds>(deadline - Clock::now());
        if ((mFds[0] < 0 && mFds[1] < 0) ||
            poll(fds, 2, static_cast<int>(std::max<int64_t>(left.count(), 0))) <= 0) {
            return false;
        }
        for (int i = 0; i < 2; ++i) {
            if (fds[i].revents == 0) continue;
            char buffer[4096];
            const ssize_t size = read(mFds[i], buffer, sizeof(buffer));
            if (size > 0) {
                mTexts[i].append(buffer, static_cast<size_t>(size));
            } else {
                close(mFds[i]);
                mFds[i] = -1;
            }
        }
        return true;
    }

    pid_t mPid = -1;
    int mFds[2] = {-1, -1};  // stdout, stderr; -1 once closed
    std::string mTexts[2];
};

struct Result {
    int status;
    std::string out;
    std::string err;
};

Result zelctl(std::vector<std::string> args, const std::string& input = "") {
    args.insert(args.begin(), ZELCTL_PATH);
    Child child(args, input);
    const int status = child.finish();
    return {status, child.out(), child.err()};
}

std::vector<json> jsonLines(const std::string& text) {
    std::vector<json> objects;
    std::istringstream lines(text);
    for (std::string line; std::getline(lines, line);) objects.push_back(json::parse(line));
    return objects;
}

// ---- one command against a private simulator (--sim), text and JSON -----------

struct CommandCase {
    const char* name;
    std::vector<std::string> args;
    int status;
    const char* text;                 // in stdout (status 0) or stderr (otherwise)
    const char* jsonField = nullptr;  // checked in the --json output of a success
    json jsonValue = nullptr;
};

class Command : public ::testing::TestWithParam<CommandCase> {};

TEST_P(Command, PrintsItsResultAndExitStatus) {
    const CommandCase& c = GetParam();
    std::vector<std::string> args = c.args;
    args.insert(args.begin(), "--sim");
    const Result text = zelctl(args);
    EXPECT_EQ(text.status, c.status) << text.out << text.err;
    EXPECT_NE((c.status == 0 ? text.out : text.err).find(c.text), std::string::npos)
            << "stdout: " << text.out << "\nstderr: " << text.err;
    if (c.status != 0) {
        // One clear line, never a trace.
        EXPECT_EQ(std::count(text.err.begin(), text.err.end(), '\n'), 1) << text.err;
        return;
    }
    if (c.jsonField == nullptr) return;
    args.push_back("--json");  // global options may follow the subcommand
    const Result structured = zelctl(args);
    ASSERT_EQ(structured.status, 0) << structured.err;
    const std::vector<json> objects = jsonLines(structured.out);
    ASSERT_FALSE(objects.empty());
    EXPECT_EQ(objects.front().at(c.jsonField), c.jsonValue) << structured.out;
}

const CommandCase kCommands[] = {
        {"AcquireByName",
         {"acquire", "ACTION_LAUNCH", "--pkg", "com.example", "--timeout", "3000"},
         0,
         "handle 1 (cmd 0 ACTION_LAUNCH, timeout 3000ms)",
         "handle",
         1},
        {"AcquireTakesTheFirstOfTwinNames",
         {"acquire", "TALVEN_ACTION_CAMERA_MULTI_SCENE"},
         0,
         "cmd 102 ACTION_CAMERA_MULTI_SCENE",
         "cmd",
         102},
        {"AcquireByCommandId", {"acquire", "--cmd", "0x25"}, 0, "cmd 37 ACTION_TOUCH_BOOST", "cmd", 37},
        {"ResourceAcquire",
         {"resacquire", "0x01010B10=4", "--platform", "--pkg", "p"},
         0,
         "handle 1",
         "handle",
         1},
        {"ResourceControl",
         {"resctl", "0x01010B10=800", "16845600=1200", "--timeout", "3000"},
         0,
         "handle 1",
         "timeout",
         3000},
        {"ResourceControlCallback",
         {"resctl", "0x01010B10=800", "--callback"},
         0,
         "callback: 0x01010B10=800"},
        {"SubsystemControl", {"sactl", "2", "--timeout", "100"}, 0, "handle 1", "said", 2},
        {"State",
         {"state", "0x010100A0", "0x01010B10"},
         0,
         "0x010100A0 = 4000000\n0x01010B10 = 0",
         "command",
         "state"},
        {"PathSet", {"path", "set", "/sys/class/devfreq/gpu/min_freq=500"}, 0, "handle 1", "handle", 1},
        {"PathState",
         {"path", "state", "/sys/class/devfreq/gpu/max_freq"},
         0,
         "/sys/class/devfreq/gpu/max_freq = 4000000",
         "command",
         "path state"},
        {"ThermalNotify", {"thermal", "notify", "3=40", "4=35"}, 0, "notified", "result", 0},
        {"Notify",
         {"notify", "--src", "130", "--type", "1", "--text", "1200,1500,1800"},
         0,
         "notified src 130 type 1",
         "src",
         130},
        {"Rule", {"rule", "9", "1", "0x010112F0=enable 1"}, 0, "rule 9 status 1", "rule", 9},
        {"PowerMode", {"pm", "2"}, 0, "power mode 2: status 3", "status", 3},
        {"PropertySet", {"prop", "set", "debug.level", "3"}, 0, "debug.level = 3", "result", 0},
        {"PropertyGet",
         {"prop", "get", "vendor.dolm.version"},
         0,
         "vendor.dolm.version = 1",
         "value",
         "1"},
        {"Dump",
         {"dump", "resinfo"},
         0,
         "dumped ResInfo\n  0x010108A0 target_load_cluster0 int [0, 100] default 80",
         "name",
         "ResInfo"},
        {"Record", {"record", "on"}, 0, "history recording on", "on", true},
        {"Init", {"init"}, 0, "initialised", "result", 0},
        {"SysInfo", {"sysinfo", "4", "fg=com.example"}, 0, "sysinfo 4 sent", "type", 4},
        {"Actions",
         {"actions"},
         0,
         "198  ACTION_CAMERA_APS_INNER_THDR_CAPTURE_L1\n",
         "action",
         "ACTION_LAUNCH"},
        {"HistoryWhileNotRecording", {"history"}, 1, "no history: recording is off"},
        {"ValueOutOfRange", {"resctl", "0x010108A0=101"}, 1, "value not accepted (code 12)"},
        {"UnknownResource", {"resctl", "0x7=1"}, 1, "unknown resource (code 11)"},
        {"PropertyTooLong",
         {"prop", "set", "k", std::string(256, 'x')},
         1,
         "value not accepted (code 12)"},
        {"UnknownSubsystem", {"sactl", "9"}, 1, "unknown resource (code 11)"},
        {"UnknownHandle", {"release", "42"}, 1, "unknown handle (code 13)"},
        {"UnknownStateId", {"state", "0x7"}, 1, "refused the state query"},
        {"UnknownAction", {"acquire", "ACTION_NOPE"}, 2, "unknown action \"ACTION_NOPE\""},
        {"BadNumber", {"release", "0xZZ"}, 2, "bad handle \"0xZZ\""},
        {"ValueMissing", {"resctl", "0x01010B10="}, 2, "a value is needed"},
        {"NotAPair", {"thermal", "notify", "3"}, 2, "expected KEY=VALUE"},
        {"UnknownDump", {"dump", "Everything"}, 2, "unknown dump \"Everything\""},
        {"MissingArgument", {"resctl"}, 2, "resources is required"},
        {"UnknownCommand", {"boost"}, 2, "unknown command \"boost\""},
};

void PrintTo(const CommandCase& c, std::ostream* os) {
    *os << c.name;
}

INSTANTIATE_TEST_SUITE_P(Zelctl, Command, ::testing::ValuesIn(kCommands),
                         [](const auto& info) { return std::string(info.param.name); });

// ---- sequences against one simulator --------------------------------------------

class Session : public ::testing::Test {
  protected:
    void SetUp() override {
        // zel_test_main gave this process a private registry; children share it.
        mSim = std::make_unique<Child>(std::vector<std::string>{DOLM_SIM_PATH});
        ASSERT_TRUE(mSim->waitForOutput("dolm-sim serving")) << mSim->err();
    }
    std::unique_ptr<Child> mSim;
};

TEST_F(Session, ListenersPrintChangesAndTheValueReturnsWhenTheTimeoutExpires) {
    Child text({ZELCTL_PATH, "listen", "0x01010010", "--count", "2", "--for", "30"});
    Child structured({ZELCTL_PATH, "--json", "path", "listen",
                      "/sys/devices/system/cpu/cpufreq/policy0/scaling_min_freq", "--count", "2"});
    ASSERT_TRUE(text.waitForOutput("listening (listener ")) << text.err();
    ASSERT_TRUE(structured.waitForOutput("\"listener\":")) << structured.err();

    const Result acquired = zelctl({"acquire", "ACTION_LAUNCH", "--timeout", "3000"});
    ASSERT_EQ(acquired.status, 0) << acquired.err;

    EXPECT_EQ(text.finish(), 0) << text.err();
    EXPECT_NE(text.out().find("delivery 1 "), std::string::npos);
    EXPECT_NE(text.out().find("0x01010010=1800000\ndelivery 2 "), std::string::npos) << text.out();
    EXPECT_NE(text.out().find("0x01010010=0\n"), std::string::npos) << text.out();
    EXPECT_EQ(structured.finish(), 0) << structured.err();
    const std::vector<json> deliveries = jsonLines(structured.out());
    ASSERT_EQ(deliveries.size(), 3u) << structured.out();
    EXPECT_EQ(deliveries[1].at("values").at(0).at("value"), "1800000");
    EXPECT_EQ(deliveries[2].at("values").at(0).at("value"), "0");

    EXPECT_TRUE(mSim->waitForOutput("expired handle 1")) << mSim->out();
}

TEST_F(Session, ThermalListenerGetsItsZoneAndAQuietListenerTimesOut) {
    Child thermal({ZELCTL_PATH, "thermal", "listen", "3", "--count", "1"});
    ASSERT_TRUE(thermal.waitForOutput("listening (thermal listener 1)")) << thermal.err();
    EXPECT_EQ(zelctl({"thermal", "notify", "4=50", "3=40"}).status, 0);
    EXPECT_EQ(thermal.finish(), 0) << thermal.err();
    EXPECT_NE(thermal.out().find(": 3=40\n"), std::string::npos) << thermal.out();
    EXPECT_EQ(thermal.out().find("4=50"), std::string::npos) << thermal.out();

    const Result quiet = zelctl({"listen", "0x01010B10", "--count", "1", "--for", "0.2"});
    EXPECT_EQ(quiet.status, 1);
    EXPECT_NE(quiet.err.find("0 of 1 deliveries arrived within"), std::string::npos) << quiet.err;
}

TEST_F(Session, NotifySwitchesARuleAndHistoryListsRecordedRequests) {
    EXPECT_EQ(zelctl({"record", "on"}).status, 0);
    EXPECT_EQ(zelctl({"notify", "--src", "130", "--type", "1", "--text", "1200,1500,1800"}).status,
              0);
    EXPECT_EQ(zelctl({"acquire", "ACTION_CAMERA_OPEN", "--pkg", "cam"}).status, 0);
    EXPECT_EQ(zelctl({"dump", "RunMap"}).status, 0);
    EXPECT_TRUE(mSim->waitForOutput(
            "  rule 130 status 1 records 0x010108A0=1200,0x010108B0=1500,0x010108C0=1800"))
            << mSim->out();

    const Result history = zelctl({"history"});
    EXPECT_EQ(history.status, 0) << history.err;
    EXPECT_NE(history.out.find("handle 1 event cmd 11 (ACTION_CAMERA_OPEN) pkg=cam"),
              std::string::npos)
            << history.out;
}

TEST(Zelctl, WithoutAServiceSaysHowToGetOne) {
    const Result result = zelctl({"acquire", "ACTION_LAUNCH"});
    EXPECT_EQ(result.status, 3);
    EXPECT_NE(result.err.find("start dolm-sim, or add --sim"), std::string::npos) << result.err;
    EXPECT_EQ(std::count(result.err.begin(), result.err.end(), '\n'), 1) << result.err;
}

TEST(Zelctl, ShellKeepsOneSimulatorForAllCommands) {
    const Result result = zelctl({"--sim", "shell"},
                                 "acquire ACTION_LAUNCH\nstate 0x01010020\nrelease 1\n"
                                 "state 0x01010020\nfrobnicate\nexit\n");
    EXPECT_EQ(result.status, 2) << result.err;  // the unknown command's
    EXPECT_NE(result.out.find("zelctl> state 0x01010020\n0x01010020 = 2400000\n"), std::string::npos)
            << result.out;
    EXPECT_NE(result.out.find("zelctl> state 0x01010020\n0x01010020 = 0\n"), std::string::npos)
            << result.out;
    EXPECT_NE(result.err.find("unknown command \"frobnicate\""), std::string::npos) << result.err;
}

TEST(DolmSim, HelpDescribesTheModelAndABadConfigurationStopsTheStart) {
    Child help({DOLM_SIM_PATH, "--help"});
    EXPECT_EQ(help.finish(), 0);
    EXPECT_NE(help.out().find("Behaviour model:"), std::string::npos);
    EXPECT_NE(help.out().find("13 unknown handle"), std::string::npos);

    const std::string file = ::testing::TempDir() + "bad-sim-config.json";
    std::ofstream(file) << R"({"resources": [{"id": "0x10", "type": "float"}]})";
    Child bad({DOLM_SIM_PATH, "--config", file});
    EXPECT_EQ(bad.finish(), 2);
    EXPECT_NE(bad.err().find("bad configuration: " + file + ": resources[0].type"), std::string::npos)
            << bad.err();
    std::remove(file.c_str());
}

}  // namespace
