// The simulator's behaviour model: how requests combine, expire, notify
// listeners and call one-shot callbacks, and what it refuses.
#include "SimModel.h"

#include <aidl/vendor/tarvo/hardware/dolm/BnDolmCallback.h>
#include <gtest/gtest.h>

#include <chrono>
#include <cstdio>
#include <fstream>
#include <mutex>
#include <thread>

#include "SimConfig.h"

namespace dolmsim {
namespace {

using namespace std::chrono_literals;

constexpr int32_t kFreqMin0 = 0x01010010;    // highest wins, path-addressed too
constexpr int32_t kFreqMin1 = 0x01010020;    // highest wins
constexpr int32_t kFreqMax0 = 0x010100A0;    // lowest wins
constexpr int32_t kTargetLoad = 0x010108A0;  // latest wins, 0..100
constexpr int32_t kColocation = 0x01011040;  // text

class Recorder : public ::aidl::vendor::tarvo::hardware::dolm::BnDolmCallback {
  public:
    ::ndk::ScopedAStatus onCallback(const std::vector<DolmRequestData>& data) override {
        std::lock_guard<std::mutex> lock(mMutex);
        mDeliveries.push_back(data);
        mThreads.push_back(std::this_thread::get_id());
        return ::ndk::ScopedAStatus::ok();
    }
    std::vector<std::vector<DolmRequestData>> deliveries() {
        std::lock_guard<std::mutex> lock(mMutex);
        return mDeliveries;
    }
    std::vector<std::thread::id> threads() {
        std::lock_guard<std::mutex> lock(mMutex);
        return mThreads;
    }

  private:
    std::mutex mMutex;
    std::vector<std::vector<DolmRequestData>> mDeliveries;
    std::vector<std::thread::id> mThreads;
};

RequestInfo untimed() {
    return {"resctl", "test", 0};
}

TEST(SimModel, ConcurrentRequestsCombinePerResourceAndFallBackOnRelease) {
    struct Case {
        int32_t id;
        const char* first;
        const char* second;
        const char* together;
        const char* afterFirstReleased;
        const char* afterBoth;
    };
    const Case cases[] = {
            {kFreqMin0, "1800000", "1200000", "1800000", "1200000", "0"},
            {kFreqMax0, "1800000", "2400000", "1800000", "2400000", "4000000"},
            {kTargetLoad, "90", "50", "50", "50", "80"},
            {kColocation, "1", "2", "2", "2", ""},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.id);
        Model model(defaultConfig(), nullptr);
        const int32_t first = model.acquire(untimed(), {{c.id, c.first}}, nullptr);
        const int32_t second = model.acquire(untimed(), {{c.id, c.second}}, nullptr);
        EXPECT_EQ(first + 1, second);
        EXPECT_EQ(model.effective(c.id), c.together);
        EXPECT_EQ(model.release(first), 0);
        EXPECT_EQ(model.effective(c.id), c.afterFirstReleased);
        EXPECT_EQ(model.release(second), 0);
        EXPECT_EQ(model.effective(c.id), c.afterBoth);
        EXPECT_EQ(model.release(second), -kErrUnknownHandle);
    }
}

TEST(SimModel, TimedRequestExpiresAndUntimedOneHolds) {
    Model model(defaultConfig(), nullptr);
    model.acquire({"resctl", "held", 0}, {{kFreqMin1, "1000000"}}, nullptr);
    const int32_t timed = model.acquire({"resctl", "timed", 50}, {{kFreqMin0, "1800000"}}, nullptr);
    EXPECT_EQ(model.effective(kFreqMin0), "1800000");
    const auto deadline = std::chrono::steady_clock::now() + 10s;
    while (model.effective(kFreqMin0) != "0" && std::chrono::steady_clock::now() < deadline) {
        std::this_thread::sleep_for(5ms);
    }
    EXPECT_EQ(model.effective(kFreqMin0), "0");
    EXPECT_EQ(model.release(timed), -kErrUnknownHandle);
    EXPECT_EQ(model.effective(kFreqMin1), "1000000");
}

TEST(SimModel, ListenersGetOnlyTheirChangedEntriesAndOneShotCallbackComesOnce) {
    Model model(defaultConfig(), nullptr);
    auto byId = ::ndk::SharedRefBase::make<Recorder>();
    auto byPath = ::ndk::SharedRefBase::make<Recorder>();
    auto oneShot = ::ndk::SharedRefBase::make<Recorder>();
    model.addListener({kFreqMin0, kFreqMax0}, {}, byId);
    model.addListener({}, {"/sys/devices/system/cpu/cpufreq/policy0/scaling_min_freq"}, byPath);

    // The second request changes nothing (a lower boost): no delivery for it.
    const int32_t handle =
            model.acquire(untimed(), {{kFreqMin0, "1800000"}, {kFreqMin1, "5"}}, oneShot);
    model.acquire(untimed(), {{kFreqMin0, "1000"}}, nullptr);
    model.release(handle);
    ASSERT_TRUE(model.waitIdle(10s));

    const auto deliveries = byId->deliveries();
    ASSERT_EQ(deliveries.size(), 2u);
    ASSERT_EQ(deliveries[0].size(), 1u);
    EXPECT_EQ(deliveries[0][0].id, kFreqMin0);
    EXPECT_EQ(deliveries[0][0].value, "1800000");
    EXPECT_EQ(deliveries[1][0].value, "1000");
    ASSERT_EQ(byPath->deliveries().size(), 2u);
    EXPECT_EQ(byPath->deliveries()[0][0].path,
              "/sys/devices/system/cpu/cpufreq/policy0/scaling_min_freq");

    const auto calls = oneShot->deliveries();
    ASSERT_EQ(calls.size(), 1u);
    ASSERT_EQ(calls[0].size(), 2u);
    EXPECT_EQ(calls[0][0].value, "1800000");
    EXPECT_EQ(calls[0][1].value, "5");
    EXPECT_NE(oneShot->threads()[0], std::this_thread::get_id());
}

TEST(SimModel, ThermalListenersGetTheirZones) {
    Model model(defaultConfig(), nullptr);
    auto zone3 = ::ndk::SharedRefBase::make<Recorder>();
    auto all = ::ndk::SharedRefBase::make<Recorder>();
    const int32_t handle = model.addThermalListener({3}, zone3);
    model.addThermalListener({}, all);
    EXPECT_EQ(model.removeListener(handle), -kErrUnknownHandle);
    EXPECT_EQ(model.thermalNotify({{3, std::nullopt, "40"}, {4, std::nullopt, "50"}}), 1);
    ASSERT_TRUE(model.waitIdle(10s));
    ASSERT_EQ(zone3->deliveries().size(), 1u);
    ASSERT_EQ(zone3->deliveries()[0].size(), 1u);
    EXPECT_EQ(zone3->deliveries()[0][0].value, "40");
    ASSERT_EQ(all->deliveries().size(), 1u);
    EXPECT_EQ(all->deliveries()[0].size(), 2u);
}

TEST(SimModel, ResolveRefusesUnknownResourcesAndBadValues) {
    struct Case {
        Target target;
        int32_t code;
    };
    const Case cases[] = {
            {{kFreqMin0, std::nullopt, "4000000"}, 0},
            {{0, std::string("/sys/class/devfreq/gpu/min_freq"), "1"}, 0},
            {{kColocation, std::nullopt, "any text"}, 0},
            {{0x7, std::nullopt, "1"}, kErrUnknownResource},
            {{0, std::string("/no/such/path"), "1"}, kErrUnknownResource},
            {{kFreqMin0, std::nullopt, "4000001"}, kErrBadValue},
            {{kTargetLoad, std::nullopt, "-1"}, kErrBadValue},
            {{kTargetLoad, std::nullopt, "5x"}, kErrBadValue},
            {{kTargetLoad, std::nullopt, ""}, kErrBadValue},
    };
    Model model(defaultConfig(), nullptr);
    for (const Case& c : cases) {
        SCOPED_TRACE(c.target.value);
        std::vector<ResourceSetting> settings;
        EXPECT_EQ(model.resolve({c.target}, settings), c.code);
    }
}

TEST(SimConfig, MalformedConfigurationsAreNamedAndGoodOnesLoad) {
    struct Case {
        const char* text;
        const char* error;  // nullptr: loads
    };
    const Case cases[] = {
            {R"({"resources": [{"id": "0x10", "min": 0, "max": 5, "default": 2,
                "combine": "highest", "path": "/p"}],
                "actions": [{"cmd": 0, "resources": {"0x10": 5}}],
                "power_modes": {"1": 7}, "properties": {"k": "v"}})",
             nullptr},
            {R"({"resources": [)", "not valid JSON"},
            {R"({"resources": [{"id": "0x10", "combine": "most"}]})", "resources[0].combine"},
            {R"({"resources": [{"id": "0x10", "max": 5, "default": 9}]})",
             "needs min <= default <= max"},
            {R"({"resources": [{"id": "0x10"}], "actions": [{"cmd": 1, "resources": {"0x20": 1}}]})",
             "not in the resource table"},
            {R"({"resources": [{"id": "0x10"}, {"id": 16}]})", "id listed twice"},
            {R"({"resource": []})", "unknown key \"resource\""},
    };
    const std::string file = ::testing::TempDir() + "sim-config.json";
    for (const Case& c : cases) {
        SCOPED_TRACE(c.text);
        std::ofstream(file) << c.text;
        std::string error;
        const std::optional<SimConfig> config = loadConfig(file, error);
        if (c.error == nullptr) {
            ASSERT_TRUE(config.has_value()) << error;
            ASSERT_EQ(config->resources.size(), 1u);
            EXPECT_EQ(config->resources[0].id, 0x10);
            EXPECT_EQ(config->resources[0].combine, Combine::kHighest);
            EXPECT_EQ(config->actions.at(0).settings.at(0).value, "5");
            EXPECT_EQ(config->powerModes.at(1), 7);
        } else {
            EXPECT_FALSE(config.has_value());
            EXPECT_NE(error.find(c.error), std::string::npos) << error;
        }
    }
    std::remove(file.c_str());
}

}  // namespace
}  // namespace dolmsim
