// Wire cross-check: our proxy of IDolm against a peer process built from the
// code Debian's aidl compiler generates for the same .aidl files. Every
// operation and every record field must reach the peer intact, and the
// peer's answers (and its calls back into us) must arrive intact.
#include <aidl/vendor/tarvo/hardware/dolm/BnDolmCallback.h>
#include <aidl/vendor/tarvo/hardware/dolm/IDolm.h>
#include <android/binder_manager.h>
#include <android/binder_process.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>

#include <chrono>
#include <condition_variable>
#include <cstdlib>
#include <fstream>
#include <functional>
#include <mutex>
#include <string>

#include "Describe.h"
#include "ParcelCases.h"

extern char** environ;

namespace zeltest {
namespace {

using ::aidl::vendor::tarvo::hardware::dolm::BnDolmCallback;
using ::aidl::vendor::tarvo::hardware::dolm::IDolm;

constexpr const char* kPeerInstance = "vendor.tarvo.hardware.dolm.IDolm/crosscheck";

// Records what the peer calls back with.
class RecordingCallback : public BnDolmCallback {
  public:
    ::ndk::ScopedAStatus onCallback(const std::vector<DolmRequestData>& data) override {
        std::lock_guard<std::mutex> lock(mMutex);
        mReceived.push_back(describeDataList(data));
        mArrived.notify_all();
        return ::ndk::ScopedAStatus::ok();
    }

    // The n-th delivery (from 0), or "timeout".
    std::string delivery(size_t n) {
        std::unique_lock<std::mutex> lock(mMutex);
        if (!mArrived.wait_for(lock, std::chrono::seconds(10),
                               [&] { return mReceived.size() > n; })) {
            return "timeout";
        }
        return mReceived[n];
    }

  private:
    std::mutex mMutex;
    std::condition_variable mArrived;
    std::vector<std::string> mReceived;
};

class CrossCheckTest : public ::testing::Test {
  protected:
    void SetUp() override {
        ABinderProcess_startThreadPool();
        mRecordPath = std::string(std::getenv("BINDER_HOST_DIR")) + "/peer-record.txt";
        const char* args[] = {DOLM_AIDL_PEER, kPeerInstance, mRecordPath.c_str(), nullptr};
        ASSERT_EQ(posix_spawn(&mPeer, DOLM_AIDL_PEER, nullptr, nullptr,
                              const_cast<char* const*>(args), environ),
                  0);
        ::ndk::SpAIBinder binder(AServiceManager_getService(kPeerInstance));
        ASSERT_NE(binder.get(), nullptr) << "the peer did not register";
        ASSERT_TRUE(AIBinder_isRemote(binder.get()));
        mDolm = IDolm::fromBinder(binder);
        ASSERT_NE(mDolm, nullptr);
    }

    void TearDown() override {
        mDolm.reset();
        if (mPeer > 0) {
            kill(mPeer, SIGKILL);
            waitpid(mPeer, nullptr, 0);
        }
    }

    // The line the peer recorded for the latest call.
    std::string lastRecord() const {
        std::ifstream in(mRecordPath);
        std::string line;
        std::string last;
        while (std::getline(in, line)) last = line;
        return last;
    }

    pid_t mPeer = 0;
    std::string mRecordPath;
    std::shared_ptr<IDolm> mDolm;
};

TEST_F(CrossCheckTest, RecordsTravelThroughEveryParcelOperation) {
    for (const ParcelCase& c : parcelCases()) {
        SCOPED_TRACE(c.name);
        int32_t handle = -1;
        ::ndk::ScopedAStatus status = mDolm->request(c.parcel, &handle);
        ASSERT_TRUE(status.isOk()) << status.getDescription();
        EXPECT_EQ(lastRecord(), "request " + describeParcel(c.parcel));
        EXPECT_EQ(handle, peerRequestAnswer(c.parcel.requestType, c.parcel.data.size()));

        std::vector<DolmRequestData> answer;
        ASSERT_TRUE(mDolm->getData(c.parcel, &answer).isOk());
        EXPECT_EQ(lastRecord(), "getData " + describeParcel(c.parcel));

        // The peer answers with the entries reversed and a summary entry.
        std::vector<DolmRequestData> expected(c.parcel.data.rbegin(), c.parcel.data.rend());
        expected.push_back(makeData(-1, c.parcel.clientArg, c.parcel.pkg, c.parcel.identity));
        EXPECT_EQ(describeDataList(answer), describeDataList(expected));

        int32_t result = 0;
        ASSERT_TRUE(mDolm->reserved(c.parcel, &result).isOk());
        EXPECT_EQ(lastRecord(), "reserved " + describeParcel(c.parcel));
        EXPECT_EQ(result, static_cast<int32_t>(c.parcel.timeout));
    }
}

TEST_F(CrossCheckTest, CallbackInsideTheRecordIsCalledBack) {
    auto callback = ::ndk::SharedRefBase::make<RecordingCallback>();
    DolmRequestParcel parcel = parcelCases()[2].parcel;
    parcel.callback = callback;
    int32_t handle = -1;
    ASSERT_TRUE(mDolm->request(parcel, &handle).isOk());
    EXPECT_EQ(lastRecord(), "request " + describeParcel(parcel));  // "callback=set"
    EXPECT_EQ(callback->delivery(0), describeDataList(parcel.data));
}

TEST_F(CrossCheckTest, ListenerScalarAndTextOperations) {
    // Listener registrations carry a callback or null; the peer calls a given
    // one back at once.
    auto callback = ::ndk::SharedRefBase::make<RecordingCallback>();
    const std::string noParcel = describeParcel(DolmRequestParcel());
    struct Case {
        const char* name;
        std::function<::ndk::ScopedAStatus(int32_t*)> call;
        std::string record;
        int32_t result;
    };
    const Case cases[] = {
            {"registerListener",
             [&](int32_t* r) { return mDolm->registerListener(DolmRequestParcel(), callback, r); },
             "registerListener " + noParcel + " cb=set", 40},
            {"registerListenerNull",
             [&](int32_t* r) { return mDolm->registerListener(DolmRequestParcel(), nullptr, r); },
             "registerListener " + noParcel + " cb=null", 40},
            {"registerThermalListener",
             [&](int32_t* r) {
                 return mDolm->registerThermalListener({3, -1, 7}, callback, r);
             },
             "registerThermalListener [3,-1,7] cb=set", 9},
            {"registerThermalListenerNull",
             [&](int32_t* r) { return mDolm->registerThermalListener({}, nullptr, r); },
             "registerThermalListener [] cb=null", 0},
            {"release", [&](int32_t* r) { return mDolm->release(-5, r); }, "release -5", -4},
            {"unregisterListener", [&](int32_t* r) { return mDolm->unregisterListener(21, r); },
             "unregisterListener 21", 42},
            {"unregisterThermalListener",
             [&](int32_t* r) { return mDolm->unregisterThermalListener(8, r); },
             "unregisterThermalListener 8", -8},
            {"setProperty", [&](int32_t* r) { return mDolm->setProperty("k.e.y", "", r); },
             "setProperty \"k.e.y\" \"\"", 5000},
            {"setRelatedSysInfo",
             [&](int32_t* r) { return mDolm->setRelatedSysInfo(-3, "fps:120", r); },
             "setRelatedSysInfo -3 \"fps:120\"", 4},
            {"ruleCtl",
             [&](int32_t* r) {
                 return mDolm->ruleCtl(
                         2, 1, {makeData(0x01011040, 0, "-1"), makeData(0x01011040, 0, "")}, r);
             },
             "ruleCtl 2 1 [{id=16846912 param=0 value=\"-1\" path=null extra=null},"
             "{id=16846912 param=0 value=\"\" path=null extra=null}]",
             23},
            {"ruleCtlEmpty", [&](int32_t* r) { return mDolm->ruleCtl(0, 0, {}, r); },
             "ruleCtl 0 0 []", 0},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        int32_t result = -1;
        ::ndk::ScopedAStatus status = c.call(&result);
        ASSERT_TRUE(status.isOk()) << status.getDescription();
        EXPECT_EQ(lastRecord(), c.record);
        EXPECT_EQ(result, c.result);
    }
    EXPECT_EQ(callback->delivery(0), describeDataList(std::vector{makeData(40, 0, "listener")}));
    EXPECT_EQ(callback->delivery(1), describeDataList(std::vector{makeData(3, 0, std::nullopt),
                                                                  makeData(-1, 0, std::nullopt),
                                                                  makeData(7, 0, std::nullopt)}));

    ASSERT_TRUE(mDolm->init().isOk());
    EXPECT_EQ(lastRecord(), "init");

    std::string value;
    ASSERT_TRUE(mDolm->getProperty("persist.dolm.level", &value).isOk());
    EXPECT_EQ(lastRecord(), "getProperty \"persist.dolm.level\"");
    EXPECT_EQ(value, "value:persist.dolm.level");
}

TEST_F(CrossCheckTest, OlderPeerDoesNotKnowTheVersionOperations) {
    // The older generator adds no version operations: the proxy reports the
    // unknown transaction instead of inventing a version.
    int32_t version = 0;
    ::ndk::ScopedAStatus status = mDolm->getInterfaceVersion(&version);
    EXPECT_FALSE(status.isOk());
    EXPECT_EQ(status.getStatus(), STATUS_UNKNOWN_TRANSACTION);
}

}  // namespace
}  // namespace zeltest
