// The minimal IDolm service of the binder benchmarks and the process plumbing
// around it.
#include "dolm_bench_service.h"

#include <aidl/vendor/tarvo/hardware/dolm/BnDolm.h>
#include <android/binder_manager.h>
#include <android/binder_process.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <thread>

namespace dolmbench {

using aidl::vendor::tarvo::hardware::dolm::BnDolm;
using aidl::vendor::tarvo::hardware::dolm::DolmRequestData;
using aidl::vendor::tarvo::hardware::dolm::DolmRequestParcel;
using aidl::vendor::tarvo::hardware::dolm::IDolm;
using aidl::vendor::tarvo::hardware::dolm::IDolmCallback;
using ndk::ScopedAStatus;

namespace {

constexpr const char* kInstance = "vendor.tarvo.hardware.dolm.IDolm/default";

// Answers a request with a fresh handle and everything else with 0.
class MinimalDolm : public BnDolm {
  public:
    ScopedAStatus init() override { return ScopedAStatus::ok(); }
    ScopedAStatus request(const DolmRequestParcel&, int32_t* handle) override {
        *handle = mNextHandle.fetch_add(1, std::memory_order_relaxed);
        return ScopedAStatus::ok();
    }
    ScopedAStatus release(int32_t, int32_t* result) override { return zero(result); }
    ScopedAStatus getData(const DolmRequestParcel&, std::vector<DolmRequestData>*) override {
        return ScopedAStatus::ok();
    }
    ScopedAStatus registerListener(const DolmRequestParcel&, const std::shared_ptr<IDolmCallback>&,
                                   int32_t* result) override {
        return zero(result);
    }
    ScopedAStatus unregisterListener(int32_t, int32_t* result) override { return zero(result); }
    ScopedAStatus getProperty(const std::string&, std::string*) override {
        return ScopedAStatus::ok();
    }
    ScopedAStatus setProperty(const std::string&, const std::string&, int32_t* result) override {
        return zero(result);
    }
    ScopedAStatus registerThermalListener(const std::vector<int32_t>&,
                                          const std::shared_ptr<IDolmCallback>&,
                                          int32_t* result) override {
        return zero(result);
    }
    ScopedAStatus unregisterThermalListener(int32_t, int32_t* result) override {
        return zero(result);
    }
    ScopedAStatus reserved(const DolmRequestParcel&, int32_t* result) override {
        return zero(result);
    }
    ScopedAStatus setRelatedSysInfo(int32_t, const std::string&, int32_t* result) override {
        return zero(result);
    }
    ScopedAStatus ruleCtl(int32_t, int32_t, const std::vector<DolmRequestData>&,
                          int32_t* result) override {
        return zero(result);
    }

  private:
    static ScopedAStatus zero(int32_t* result) {
        *result = 0;
        return ScopedAStatus::ok();
    }
    std::atomic<int32_t> mNextHandle{1};
};

}  // namespace

PrivateRegistry::PrivateRegistry() {
    std::string dir = (std::filesystem::temp_directory_path() / "binder-bench-XXXXXX").string();
    if (mkdtemp(dir.data()) != nullptr && setenv("BINDER_HOST_DIR", dir.c_str(), 1) == 0) {
        mDir = dir;
    }
}

PrivateRegistry::~PrivateRegistry() {
    if (!mDir.empty()) {
        std::error_code ignored;
        std::filesystem::remove_all(mDir, ignored);
    }
}

pid_t spawnSelf(const std::vector<std::string>& args) {
    // The path rather than /proc/self/exe itself: under valgrind the latter
    // names valgrind's launcher, while readlink is answered with the program.
    char self[4096];
    ssize_t length = readlink("/proc/self/exe", self, sizeof(self) - 1);
    if (length <= 0) {
        return -1;
    }
    self[length] = '\0';
    std::vector<char*> argv;
    argv.push_back(self);
    for (const std::string& arg : args) {
        argv.push_back(const_cast<char*>(arg.c_str()));
    }
    argv.push_back(nullptr);
    pid_t child = fork();
    if (child == 0) {
        prctl(PR_SET_PDEATHSIG, SIGKILL);  // never outlive the benchmark
        execv(self, argv.data());
        _exit(127);
    }
    return child;
}

bool readFull(int fd, void* data, size_t size) {
    auto* bytes = static_cast<char*>(data);
    while (size > 0) {
        ssize_t got = read(fd, bytes, size);
        if (got <= 0) return false;
        bytes += got;
        size -= static_cast<size_t>(got);
    }
    return true;
}

void stopChild(pid_t child) {
    if (child > 0) {
        kill(child, SIGKILL);
        waitpid(child, nullptr, 0);
    }
}

void serveDolm() {
    std::shared_ptr<MinimalDolm> service = ndk::SharedRefBase::make<MinimalDolm>();
    if (AServiceManager_addService(service->asBinder().get(), kInstance) != STATUS_OK) {
        fprintf(stderr, "bench service: addService failed\n");
        _exit(1);
    }
    ABinderProcess_startThreadPool();
    ABinderProcess_joinThreadPool();
    _exit(0);
}

std::shared_ptr<IDolm> waitForDolm() {
    auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(10);
    while (std::chrono::steady_clock::now() < deadline) {
        ndk::SpAIBinder binder(AServiceManager_checkService(kInstance));
        if (binder.get() != nullptr) {
            return IDolm::fromBinder(binder);
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
    return nullptr;
}

DolmRequestParcel twoResourceRequest() {
    DolmRequestParcel parcel;
    parcel.requestType = 1;
    parcel.timeout = 3000;
    for (auto [id, value] : {std::pair<int32_t, const char*>{0x01010B10, "800"},
                             std::pair<int32_t, const char*>{0x01010B20, "1200"}}) {
        DolmRequestData entry;
        entry.id = id;
        entry.value = value;
        parcel.data.push_back(std::move(entry));
    }
    return parcel;
}

bool requestAndRelease(IDolm& dolm, const DolmRequestParcel& parcel) {
    int32_t handle = 0;
    int32_t result = -1;
    return dolm.request(parcel, &handle).isOk() && dolm.release(handle, &result).isOk();
}

}  // namespace dolmbench
