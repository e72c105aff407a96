// A peer process that serves IDolm with the code Debian's aidl compiler
// generates from our .aidl files. For every call it appends one line to a
// record file, describing what arrived, and answers with values derived from
// the arguments, so that a client can check both directions of the wire.
// Callbacks it receives are called back at once with data derived from the call.
//
// Usage: dolm_aidl_peer <instance> <record file>
#include <aidl/vendor/tarvo/hardware/dolm/BnDolm.h>
#include <android/binder_manager.h>
#include <android/binder_process.h>
#include <android/binder_stability.h>

#include <algorithm>
#include <cstdio>
#include <fstream>
#include <mutex>
#include <numeric>
#include <string>

#include "Describe.h"
#include "ParcelCases.h"

namespace {

using ::aidl::vendor::tarvo::hardware::dolm::DolmRequestData;
using ::aidl::vendor::tarvo::hardware::dolm::DolmRequestParcel;
using ::aidl::vendor::tarvo::hardware::dolm::IDolmCallback;
using ::ndk::ScopedAStatus;
using zeltest::describe;
using zeltest::describeDataList;
using zeltest::describeParcel;
using zeltest::makeData;

class Peer : public ::aidl::vendor::tarvo::hardware::dolm::BnDolm {
  public:
    explicit Peer(std::string recordPath) : mRecordPath(std::move(recordPath)) {}

    ScopedAStatus init() override { return record("init"); }
    ScopedAStatus request(const DolmRequestParcel& p, int32_t* r) override {
        *r = zeltest::peerRequestAnswer(p.requestType, p.data.size());
        callBack(p.callback, p.data);
        return record("request " + describeParcel(p));
    }
    ScopedAStatus release(int32_t h, int32_t* r) override {
        *r = h + 1;
        return record("release " + describe(h));
    }
    ScopedAStatus getData(const DolmRequestParcel& p, std::vector<DolmRequestData>* r) override {
        *r = p.data;
        std::reverse(r->begin(), r->end());
        r->push_back(makeData(-1, p.clientArg, p.pkg, p.identity));
        return record("getData " + describeParcel(p));
    }
    ScopedAStatus registerListener(const DolmRequestParcel& p,
                                   const std::shared_ptr<IDolmCallback>& cb, int32_t* r) override {
        *r = 40;
        callBack(cb, {makeData(40, 0, "listener")});
        return record("registerListener " + describeParcel(p) + " cb=" + (cb ? "set" : "null"));
    }
    ScopedAStatus unregisterListener(int32_t h, int32_t* r) override {
        *r = h * 2;
        return record("unregisterListener " + describe(h));
    }
    ScopedAStatus getProperty(const std::string& key, std::string* r) override {
        *r = "value:" + key;
        return record("getProperty " + describe(key));
    }
    ScopedAStatus setProperty(const std::string& key, const std::string& value,
                              int32_t* r) override {
        *r = static_cast<int32_t>(key.size() * 1000 + value.size());
        return record("setProperty " + describe(key) + " " + describe(value));
    }
    ScopedAStatus registerThermalListener(const std::vector<int32_t>& ids,
                                          const std::shared_ptr<IDolmCallback>& cb,
                                          int32_t* r) override {
        *r = std::accumulate(ids.begin(), ids.end(), 0);
        std::vector<DolmRequestData> levels;
        levels.reserve(ids.size());
        for (int32_t id : ids) levels.push_back(makeData(id, 0, std::nullopt));
        callBack(cb, levels);
        return record("registerThermalListener " + describe(ids) + " cb=" + (cb ? "set" : "null"));
    }
    ScopedAStatus unregisterThermalListener(int32_t h, int32_t* r) override {
        *r = -h;
        return record("unregisterThermalListener " + describe(h));
    }
    ScopedAStatus reserved(const DolmRequestParcel& p, int32_t* r) override {
        *r = static_cast<int32_t>(p.timeout);
        return record("reserved " + describeParcel(p));
    }
    ScopedAStatus setRelatedSysInfo(int32_t type, const std::string& info, int32_t* r) override {
        *r = type + static_cast<int32_t>(info.size());
        return record("setRelatedSysInfo " + describe(type) + " " + describe(info));
    }
    ScopedAStatus ruleCtl(int32_t ruleId, int32_t status, const std::vector<DolmRequestData>& data,
                          int32_t* r) override {
        *r = ruleId * 10 + status + static_cast<int32_t>(data.size());
        return record("ruleCtl " + describe(ruleId) + " " + describe(status) + " " +
                      describeDataList(data));
    }

  private:
    static void callBack(const std::shared_ptr<IDolmCallback>& cb,
                         const std::vector<DolmRequestData>& data) {
        if (cb != nullptr) cb->onCallback(data);
    }

    ScopedAStatus record(const std::string& line) {
        std::lock_guard<std::mutex> lock(mMutex);
        std::ofstream out(mRecordPath, std::ios::app);
        out << line << "\n";
        return ScopedAStatus::ok();
    }

    std::mutex mMutex;
    std::string mRecordPath;
};

}  // namespace

int main(int argc, char** argv) {
    if (argc != 3) {
        std::fprintf(stderr, "usage: %s <instance> <record file>\n", argv[0]);
        return 2;
    }
    ABinderProcess_setThreadPoolMaxThreadCount(4);
    std::shared_ptr<Peer> peer = ::ndk::SharedRefBase::make<Peer>(argv[2]);
    // This generator predates stability marks; a stable service's object
    // carries the VINTF mark, which vendor-flagged proxy calls require.
    const ::ndk::SpAIBinder binder = peer->asBinder();
    AIBinder_markVintfStability(binder.get());
    if (AServiceManager_addService(binder.get(), argv[1]) != STATUS_OK) return 1;
    ABinderProcess_joinThreadPool();
    return 0;
}
