// What dolmResCtlRequest + dolmResCtlRelease cost against the same two calls
// made directly on the service proxy with the same parcels, both served by
// the fake service in this process. The difference is the library's own cost:
// connection check under the shared lock, validation, parcel building and its
// (silenced) log lines.
#include <android/binder_manager.h>
#include <benchmark/benchmark.h>

#include <cstdlib>
#include <filesystem>
#include <list>
#include <string>

#include "FakeDolmService.h"
#include "LogCapture.h"
#include "halclient.h"

namespace {

using ::aidl::vendor::tarvo::hardware::dolm::DolmRequestData;
using ::aidl::vendor::tarvo::hardware::dolm::DolmRequestParcel;
using ::aidl::vendor::tarvo::hardware::dolm::IDolm;

std::list<ZelClient::Resource> makeResources(int64_t count) {
    std::list<ZelClient::Resource> resources;
    for (int64_t i = 0; i < count; ++i) {
        resources.push_back({static_cast<int32_t>(0x40800000 + i), std::to_string(1000 + i)});
    }
    return resources;
}

// The parcel dolmResCtlRequest(timeout, resources, clientArg) sends.
DolmRequestParcel makeParcel(const std::list<ZelClient::Resource>& resources) {
    DolmRequestParcel parcel;
    parcel.requestType = 1;
    parcel.option = -1;
    parcel.leadArg = -1;
    parcel.timeout = 1000;
    for (const ZelClient::Resource& resource : resources) {
        DolmRequestData entry;
        entry.id = resource.id;
        entry.value = resource.value.value_or("");
        parcel.data.push_back(std::move(entry));
    }
    return parcel;
}

void BM_LibraryRequestRelease(benchmark::State& state) {
    std::list<ZelClient::Resource> resources = makeResources(state.range(0));
    for (auto _ : state) {
        int handle = dolmHalclient::dolmResCtlRequest(1000, resources, 0);
        benchmark::DoNotOptimize(dolmHalclient::dolmResCtlRelease(handle));
    }
}
BENCHMARK(BM_LibraryRequestRelease)->Arg(1)->Arg(8);

void BM_ProxyRequestRelease(benchmark::State& state) {
    ::ndk::SpAIBinder binder(AServiceManager_checkService(zeltest::kDolmInstance));
    std::shared_ptr<IDolm> proxy = IDolm::fromBinder(binder);
    if (proxy == nullptr) {
        state.SkipWithError("no service");
        return;
    }
    const DolmRequestParcel parcel = makeParcel(makeResources(state.range(0)));
    for (auto _ : state) {
        int32_t handle = -1;
        ::ndk::ScopedAStatus requested = proxy->request(parcel, &handle);
        int32_t result = -1;
        ::ndk::ScopedAStatus released = proxy->release(handle, &result);
        benchmark::DoNotOptimize(result);
    }
}
BENCHMARK(BM_ProxyRequestRelease)->Arg(1)->Arg(8);

}  // namespace

int main(int argc, char** argv) {
    // A registry of its own, so that tests running at the same time do not
    // see this process's service.
    std::string dir = (std::filesystem::temp_directory_path() / "halclient-bench-XXXXXX").string();
    if (mkdtemp(dir.data()) == nullptr) return 2;
    setenv("BINDER_HOST_DIR", dir.c_str(), 1);
    zeltest::silenceLog();
    std::shared_ptr<zeltest::FakeDolmService> service = zeltest::FakeDolmService::start();
    if (service == nullptr) return 2;
    service->setAnswer(zeltest::Op::kRequest, zeltest::Answer::ok(7));

    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();

    service->kill();
    std::error_code ignored;
    std::filesystem::remove_all(dir, ignored);
    return 0;
}
