/*
 * Shared pieces of the dolmHalclient suites: a fixture with a running fake
 * service and log capture, recording caller callbacks, log-line builders for
 * the two tags, and fakes that behave in ways the plain fake cannot.
 */
#pragma once

#include <android/log.h>
#include <gtest/gtest.h>

#include <chrono>
#include <condition_variable>
#include <list>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "FakeDolmService.h"
#include "LogCapture.h"
#include "halclient.h"

namespace halclienttest {

using ::aidl::vendor::tarvo::hardware::dolm::DolmRequestData;
using ::aidl::vendor::tarvo::hardware::dolm::DolmRequestParcel;
using ResourceList = std::list<ZelClient::Resource>;
using zeltest::Answer;
using zeltest::FakeDolmService;
using zeltest::LogLine;
using zeltest::Op;

inline constexpr auto kWait = std::chrono::seconds(10);

inline constexpr const char* kTag = "DOLMFramework-lib-vendor";
inline constexpr const char* kCallbackTag = "DolmFramework-lib-vendor";

/** INFO and ERROR lines under the request functions' tag and the callback client's. */
inline LogLine info(const std::string& text) {
    return {ANDROID_LOG_INFO, kTag, text};
}
inline LogLine error(const std::string& text) {
    return {ANDROID_LOG_ERROR, kTag, text};
}
inline LogLine cbInfo(const std::string& text) {
    return {ANDROID_LOG_INFO, kCallbackTag, text};
}
inline LogLine cbError(const std::string& text) {
    return {ANDROID_LOG_ERROR, kCallbackTag, text};
}
/** The callback client's lines: the caller's callback is called, a one-shot client found and removed. */
inline LogLine calledBack(int isRegister) {
    return cbInfo("DolmCallback::onCallback call IClientCallback onCallback is_register " +
                  std::to_string(isRegister));
}
inline LogLine found() {
    return cbInfo("callback is found in request_callbacks");
}
inline LogLine removed(int before, int after) {
    return cbInfo(
            "DolmCallback::onCallback request callback called , remove from "
            "request_callbacks , request_callbacks size before " +
            std::to_string(before) + " after " + std::to_string(after));
}
/** The reset line of a failed call. */
inline LogLine failed(const std::string& label) {
    return error(label + "() failed: dolm HAL service not available");
}

/** A resource with a value, and one without. */
inline ZelClient::Resource res(int32_t id, const std::string& value) {
    return {id, value};
}
inline ZelClient::Resource bare(int32_t id) {
    return {id, std::nullopt};
}

/** An entry as the service sends it. */
inline DolmRequestData entry(int32_t id, std::optional<std::string> value,
                             std::optional<std::string> path = std::nullopt) {
    DolmRequestData data = zeltest::entry(id, std::move(value));
    data.path = std::move(path);
    return data;
}

/** A diagnostics request: its name (failure label and entry line), function and dump code. */
struct Diagnostic {
    const char* name;
    int (*call)();
    int32_t code;
};
inline const Diagnostic kDiagnostics[] = {
        {"dolmDumpToDoQueue", dolmHalclient::dolmDumpToDoQueue, 0},
        {"dolmDumpRunMap", dolmHalclient::dolmDumpRunMap, 1},
        {"dolmDumpActiveResMap", dolmHalclient::dolmDumpActiveResMap, 2},
        {"dolmDumpResRequest", dolmHalclient::dolmDumpResRequest, 3},
        {"dolmDumpResInfo", dolmHalclient::dolmDumpResInfo, 4},
        {"dolmDumpSAInfo", dolmHalclient::dolmDumpSAInfo, 5},
        {"dolmDumpPidFdList", dolmHalclient::dolmDumpPidFdList, 6},
        {"dolmDumpPidfdMonitorMap", dolmHalclient::dolmDumpPidfdMonitorMap, 7},
        {"dolmDumpResRecordList", dolmHalclient::dolmDumpResRecordList, 8},
        {"dolmHistoryRequestRecordOn", dolmHalclient::dolmHistoryRequestRecordOn, 10},
        {"dolmHistoryRequestRecordOff", dolmHalclient::dolmHistoryRequestRecordOff, 11},
};

/** Size of request_callbacks, read under its mutex. */
size_t requestCallbackCount();

/** An id-form caller callback that records each delivery and the thread it ran on. */
class RecordingCallback : public IClientCallback {
  public:
    void onCallback(std::list<ZelClient::Resource> resources) override {
        {
            std::lock_guard<std::mutex> lock(mMutex);
            mDeliveries.push_back(std::move(resources));
            mThreads.push_back(std::this_thread::get_id());
        }
        mArrived.notify_all();
    }
    /** Waits for `count` deliveries; false on timeout. */
    bool waitFor(size_t count, std::chrono::milliseconds timeout = kWait) {
        std::unique_lock<std::mutex> lock(mMutex);
        return mArrived.wait_for(lock, timeout, [&] { return mDeliveries.size() >= count; });
    }
    std::vector<ResourceList> deliveries() const {
        std::lock_guard<std::mutex> lock(mMutex);
        return mDeliveries;
    }
    std::vector<std::thread::id> threads() const {
        std::lock_guard<std::mutex> lock(mMutex);
        return mThreads;
    }

  private:
    mutable std::mutex mMutex;
    std::condition_variable mArrived;
    std::vector<ResourceList> mDeliveries;
    std::vector<std::thread::id> mThreads;
};

/** A path-form caller callback that records each delivery. */
class RecordingPathCallback : public IClientCallbackByPath {
  public:
    struct Delivery {
        std::vector<std::string> values;
        std::vector<std::string> paths;
    };
    void onCallback(std::vector<std::string> values, std::vector<std::string> paths) override {
        std::lock_guard<std::mutex> lock(mMutex);
        mDeliveries.push_back({std::move(values), std::move(paths)});
    }
    std::vector<Delivery> deliveries() const {
        std::lock_guard<std::mutex> lock(mMutex);
        return mDeliveries;
    }

  private:
    mutable std::mutex mMutex;
    std::vector<Delivery> mDeliveries;
};

/**
 * A fake that, like a quick service, calls back the callback of a request
 * parcel from inside `request`, before answering. Hosted in the test process
 * and reached through an in-process proxy, the delivery runs on the binder
 * thread that serves the request, while the caller still waits (across
 * processes it would run nested, on the caller's thread).
 */
class CallingBackService : public FakeDolmService {
  public:
    /** Registers a new one under the library's instance name. */
    static std::shared_ptr<CallingBackService> startCallingBack(std::vector<DolmRequestData> data);

    explicit CallingBackService(std::vector<DolmRequestData> data) : mData(std::move(data)) {}
    ::ndk::ScopedAStatus request(const DolmRequestParcel& parcel, int32_t* result) override;

  private:
    std::vector<DolmRequestData> mData;
};

/** Fixture: captured log and a running fake service. */
class HalclientTest : public ::testing::Test {
  protected:
    void SetUp() override;

    /** The parcel of the n-th request call. */
    DolmRequestParcel requestParcel(size_t n = 0) const;

    zeltest::LogCapture mLog;
    std::shared_ptr<FakeDolmService> mService;
};

/** Fixture without a service: nothing is registered under the instance name. */
class HalclientNoServiceTest : public ::testing::Test {
  protected:
    zeltest::LogCapture mLog;
};

}  // namespace halclienttest
