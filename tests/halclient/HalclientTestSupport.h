/*
 * Shared pieces of the dolmHalclient suites: a fixture with a running fake
 * service and log capture, recording caller callbacks, log-line builders for
 * the two tags, and fakes that behave in ways the plain fake cannot.
 */
#pragma once

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

/** INFO and ERROR lines under the request functions' tag. */
LogLine info(const std::string& text);
LogLine error(const std::string& text);
/** INFO and ERROR lines under the callback client's tag. */
LogLine cbInfo(const std::string& text);
LogLine cbError(const std::string& text);
/** The reset line of a failed call. */
LogLine failed(const std::string& label);

/** A resource with a value, and one without. */
ZelClient::Resource res(int32_t id, const std::string& value);
ZelClient::Resource bare(int32_t id);

/** An entry as the service sends it. */
DolmRequestData entry(int32_t id, std::optional<std::string> value,
                      std::optional<std::string> path = std::nullopt);

/** Waits until `log` holds at least `count` copies of `line`; false on timeout. */
bool waitForLine(const zeltest::LogCapture& log, const LogLine& line, size_t count = 1);

/** Size of request_callbacks, read under its mutex. */
size_t requestCallbackCount();

/** An id-form caller callback that records each delivery and the thread it ran on. */
class RecordingCallback : public IClientCallback {
  public:
    void onCallback(std::list<ZelClient::Resource> resources) override;
    /** Waits for `count` deliveries; false on timeout. */
    bool waitFor(size_t count, std::chrono::milliseconds timeout = kWait);
    std::vector<ResourceList> deliveries() const;
    std::vector<std::thread::id> threads() const;

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
    void onCallback(std::vector<std::string> values, std::vector<std::string> paths) override;
    std::vector<Delivery> deliveries() const;

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
