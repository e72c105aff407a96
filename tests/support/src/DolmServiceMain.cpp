// dolm_service_process: an IDolm service that runs in a process of its own,
// for tests that kill the service process and start it again.
//
//   dolm_service_process --base B [--fail-every N] [--deliver inside|after]
//                        [--refuse-release 0|1] [--notify-on-request 0|1]
//
// Every number it answers with (handles, results, values of entries, property
// texts) is B + k for a k in [1, 999999] that counts up with each answer, so
// a test that gives each instance its own B can tell which one answered.
// With --fail-every N, every N-th call is answered with a service-specific
// error instead; with --refuse-release 1, every release is. Callbacks are
// called back once: the callback of a request, and every new listener. By
// default (inside) that happens from inside the call, before it is answered,
// as a quick service does; with "after", from a thread of the service's own
// once the call has been answered. With --notify-on-request 1, a request
// without a callback of its own calls back the listener registered last from
// inside the call. When the service is registered it writes "R" to its
// standard output. It dies with the thread that started it.
#include <aidl/vendor/tarvo/hardware/dolm/BnDolm.h>
#include <android/binder_manager.h>
#include <android/binder_process.h>
#include <signal.h>
#include <sys/prctl.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "ServiceProcess.h"

namespace {

using ::aidl::vendor::tarvo::hardware::dolm::BnDolm;
using ::aidl::vendor::tarvo::hardware::dolm::DolmRequestData;
using ::aidl::vendor::tarvo::hardware::dolm::DolmRequestParcel;
using ::aidl::vendor::tarvo::hardware::dolm::IDolmCallback;
using ::ndk::ScopedAStatus;

constexpr const char* kInstance = "vendor.tarvo.hardware.dolm.IDolm/default";
// getData answers at most this many entries.
constexpr size_t kMaxEntries = 8;

struct Behaviour {
    int failEvery = 0;
    bool deliverAfterCall = false;
    bool refuseRelease = false;
    bool notifyOnRequest = false;
};

class NumberedDolmService : public BnDolm {
  public:
    NumberedDolmService(int64_t base, Behaviour behaviour) : mBase(base), mBehaviour(behaviour) {}

    ScopedAStatus init() override { return answer(nullptr); }
    ScopedAStatus request(const DolmRequestParcel& parcel, int32_t* result) override {
        if (parcel.callback != nullptr) {
            callBack(parcel.callback, entries(parcel));
        } else if (mBehaviour.notifyOnRequest) {
            std::shared_ptr<IDolmCallback> listener;
            {
                std::lock_guard<std::mutex> lock(mListenerMutex);
                listener = mLastListener;
            }
            if (listener != nullptr) listener->onCallback(entries(parcel));
        }
        return answer(result);
    }
    ScopedAStatus release(int32_t /*handle*/, int32_t* result) override {
        if (mBehaviour.refuseRelease) return ScopedAStatus::fromServiceSpecificError(1);
        return answer(result);
    }
    ScopedAStatus getData(const DolmRequestParcel& parcel,
                          std::vector<DolmRequestData>* result) override {
        ScopedAStatus status = answer(nullptr);
        if (status.isOk()) *result = entries(parcel);
        return status;
    }
    ScopedAStatus registerListener(const DolmRequestParcel& parcel,
                                   const std::shared_ptr<IDolmCallback>& callback,
                                   int32_t* result) override {
        if (callback != nullptr) {
            rememberListener(callback);
            callBack(callback, entries(parcel));
        }
        return answer(result);
    }
    ScopedAStatus unregisterListener(int32_t /*handle*/, int32_t* result) override {
        return answer(result);
    }
    ScopedAStatus getProperty(const std::string& /*key*/, std::string* result) override {
        int32_t value = -1;
        ScopedAStatus status = answer(&value);
        if (status.isOk()) *result = std::to_string(value);
        return status;
    }
    ScopedAStatus setProperty(const std::string& /*key*/, const std::string& /*value*/,
                              int32_t* result) override {
        return answer(result);
    }
    ScopedAStatus registerThermalListener(const std::vector<int32_t>& ids,
                                          const std::shared_ptr<IDolmCallback>& callback,
                                          int32_t* result) override {
        if (callback != nullptr) {
            DolmRequestParcel parcel;
            for (int32_t id : ids) {
                DolmRequestData data;
                data.id = id;
                parcel.data.push_back(data);
            }
            rememberListener(callback);
            callBack(callback, entries(parcel));
        }
        return answer(result);
    }
    ScopedAStatus unregisterThermalListener(int32_t /*handle*/, int32_t* result) override {
        return answer(result);
    }
    ScopedAStatus reserved(const DolmRequestParcel& /*parcel*/, int32_t* result) override {
        return answer(result);
    }
    ScopedAStatus setRelatedSysInfo(int32_t /*type*/, const std::string& /*info*/,
                                    int32_t* result) override {
        return answer(result);
    }
    ScopedAStatus ruleCtl(int32_t /*ruleId*/, int32_t /*status*/,
                          const std::vector<DolmRequestData>& /*data*/, int32_t* result) override {
        return answer(result);
    }

  private:
    void rememberListener(const std::shared_ptr<IDolmCallback>& listener) {
        std::lock_guard<std::mutex> lock(mListenerMutex);
        mLastListener = listener;
    }

    // Inside the call, or from a thread of its own that the call does not
    // wait for (it may wait forever for a client without binder threads).
    void callBack(const std::shared_ptr<IDolmCallback>& callback,
                  std::vector<DolmRequestData> data) {
        if (!mBehaviour.deliverAfterCall) {
            callback->onCallback(data);
            return;
        }
        std::thread([callback, data = std::move(data)] { callback->onCallback(data); }).detach();
    }

    int32_t next() {
        const uint64_t k = mCounter.fetch_add(1, std::memory_order_relaxed);
        return static_cast<int32_t>(mBase + 1 +
                                    static_cast<int64_t>(k % (zeltest::kInstanceRange - 1)));
    }

    // The scripted answer: a service-specific error every mFailEvery calls,
    // else OK with the next number in `result`.
    ScopedAStatus answer(int32_t* result) {
        const uint64_t call = mCalls.fetch_add(1, std::memory_order_relaxed) + 1;
        if (mBehaviour.failEvery > 0 && call % static_cast<uint64_t>(mBehaviour.failEvery) == 0) {
            return ScopedAStatus::fromServiceSpecificError(1);
        }
        if (result != nullptr) *result = next();
        return ScopedAStatus::ok();
    }

    // One entry per entry asked for (one when none was), each with a value of
    // this instance; ids and paths as asked, the base in `extra`.
    std::vector<DolmRequestData> entries(const DolmRequestParcel& parcel) {
        std::vector<DolmRequestData> out;
        const size_t count = std::max<size_t>(1, std::min(parcel.data.size(), kMaxEntries));
        for (size_t i = 0; i < count; ++i) {
            DolmRequestData data;
            if (i < parcel.data.size()) {
                data.id = parcel.data[i].id;
                data.path = parcel.data[i].path;
            }
            data.value = std::to_string(next());
            data.extra = std::to_string(mBase);
            out.push_back(std::move(data));
        }
        return out;
    }

    const int64_t mBase;
    const Behaviour mBehaviour;
    std::mutex mListenerMutex;
    std::shared_ptr<IDolmCallback> mLastListener;
    std::atomic<uint64_t> mCounter{0};
    std::atomic<uint64_t> mCalls{0};
};

int usage() {
    fprintf(stderr,
            "usage: dolm_service_process --base B [--fail-every N] [--deliver inside|after]\n"
            "                            [--refuse-release 0|1] [--notify-on-request 0|1]\n");
    return 2;
}

}  // namespace

int main(int argc, char** argv) {
    int64_t base = -1;
    Behaviour behaviour;
    if (argc % 2 != 1) return usage();
    for (int i = 1; i + 1 < argc; i += 2) {
        const char* value = argv[i + 1];
        if (strcmp(argv[i], "--base") == 0) {
            base = strtoll(value, nullptr, 10);
        } else if (strcmp(argv[i], "--fail-every") == 0) {
            behaviour.failEvery = atoi(value);
        } else if (strcmp(argv[i], "--deliver") == 0 && strcmp(value, "inside") == 0) {
            behaviour.deliverAfterCall = false;
        } else if (strcmp(argv[i], "--deliver") == 0 && strcmp(value, "after") == 0) {
            behaviour.deliverAfterCall = true;
        } else if (strcmp(argv[i], "--refuse-release") == 0) {
            behaviour.refuseRelease = strcmp(value, "1") == 0;
        } else if (strcmp(argv[i], "--notify-on-request") == 0) {
            behaviour.notifyOnRequest = strcmp(value, "1") == 0;
        } else {
            return usage();
        }
    }
    if (base <= 0 || base % zeltest::kInstanceRange != 0 || behaviour.failEvery < 0) {
        return usage();
    }
    // Never outlive the test that started it (the thread that spawned it).
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    if (getppid() == 1) return 1;

    ABinderProcess_startThreadPool();
    auto service = ::ndk::SharedRefBase::make<NumberedDolmService>(base, behaviour);
    if (AServiceManager_addService(service->asBinder().get(), kInstance) != STATUS_OK) {
        fprintf(stderr, "dolm_service_process: cannot register %s\n", kInstance);
        return 1;
    }
    if (write(STDOUT_FILENO, "R", 1) != 1) return 1;
    ABinderProcess_joinThreadPool();
    return 0;
}
