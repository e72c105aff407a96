// ZelEventAcquire + ZelRelease against the same two calls made directly on an
// IDolm proxy with the same parcels, both against the fake service served in
// this process through the host binder runtime. The difference between the
// two is what the event layer adds per acquire/release pair: the trace name,
// the log lines (routed to a no-op logger), the connection check under the
// shared lock and the parcel building.
#include <android/binder_manager.h>
#include <benchmark/benchmark.h>

#include <cstdlib>
#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include "FakeDolmService.h"
#include "LogCapture.h"
#include "zel.h"

namespace {

using ::aidl::vendor::tarvo::hardware::dolm::DolmRequestData;
using ::aidl::vendor::tarvo::hardware::dolm::DolmRequestParcel;
using ::aidl::vendor::tarvo::hardware::dolm::IDolm;

const std::vector<ZelClient::Resource> kResources{{0x01010B10, "800"}, {0x01010B20, "1200"}};

std::shared_ptr<zeltest::FakeDolmService> service() {
    static std::shared_ptr<zeltest::FakeDolmService> fake = [] {
        zeltest::silenceLog();
        auto started = zeltest::FakeDolmService::start();
        if (started) started->setAnswer(zeltest::Op::kRequest, zeltest::Answer::ok(7));
        return started;
    }();
    return fake;
}

void BM_ZelAcquireRelease(benchmark::State& state) {
    if (service() == nullptr) {
        state.SkipWithError("fake service not registered");
        return;
    }
    for (auto _ : state) {
        const int32_t handle = ZelEventAcquire(3, "com.example.app", "scene", 3000, kResources);
        benchmark::DoNotOptimize(handle);
        ZelRelease(handle);
    }
}
BENCHMARK(BM_ZelAcquireRelease);

void BM_ProxyRequestRelease(benchmark::State& state) {
    if (service() == nullptr) {
        state.SkipWithError("fake service not registered");
        return;
    }
    std::shared_ptr<IDolm> proxy = IDolm::fromBinder(
            ::ndk::SpAIBinder(AServiceManager_checkService(zeltest::kDolmInstance)));
    if (proxy == nullptr) {
        state.SkipWithError("no proxy");
        return;
    }
    // The parcel ZelEventAcquire sends for the same arguments.
    DolmRequestParcel parcel;
    parcel.requestType = 8;
    parcel.pkg = "com.example.app";
    parcel.identity = "scene";
    parcel.timeout = 3000;
    parcel.data.resize(1);
    parcel.data[0].id = 3;
    for (const ZelClient::Resource& resource : kResources) {
        DolmRequestData entry;
        entry.id = resource.id;
        entry.value = resource.value;
        parcel.data.push_back(entry);
    }
    for (auto _ : state) {
        int32_t handle = -1;
        benchmark::DoNotOptimize(proxy->request(parcel, &handle).isOk());
        int32_t result = -1;
        benchmark::DoNotOptimize(proxy->release(handle, &result).isOk());
    }
}
BENCHMARK(BM_ProxyRequestRelease);

}  // namespace

int main(int argc, char** argv) {
    // A registry of its own, so that a benchmark run never meets a test's services.
    std::string dir = (std::filesystem::temp_directory_path() / "zel-bench-XXXXXX").string();
    if (mkdtemp(dir.data()) == nullptr) return 2;
    setenv("BINDER_HOST_DIR", dir.c_str(), 1);

    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();

    std::error_code ignored;
    std::filesystem::remove_all(dir, ignored);
    return 0;
}
