/*
 * A scriptable stand-in for the IDolm service, for tests of the library.
 *
 * It is a real BnDolm served through the host binder runtime: the library
 * under test looks it up with AServiceManager_checkService and, by default,
 * talks to it through a proxy, so every call is marshalled and served on a
 * binder thread as it would be across processes. The fake records every call with its arguments,
 * answers each operation with a scripted result and status, can call back the IDolmCallback objects
 * it has received, and can die and be started again under the same name.
 */
#pragma once

#include <aidl/vendor/tarvo/hardware/dolm/BnDolm.h>

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "RequestMatchers.h"

namespace zeltest {

using ::aidl::vendor::tarvo::hardware::dolm::DolmRequestData;
using ::aidl::vendor::tarvo::hardware::dolm::DolmRequestParcel;
using ::aidl::vendor::tarvo::hardware::dolm::IDolmCallback;

/** The instance name the library looks the service up under. */
inline constexpr const char* kDolmInstance = "vendor.tarvo.hardware.dolm.IDolm/default";

/** The operations of IDolm, in interface order. */
enum class Op {
    kInit,
    kRequest,
    kRelease,
    kGetData,
    kRegisterListener,
    kUnregisterListener,
    kGetProperty,
    kSetProperty,
    kRegisterThermalListener,
    kUnregisterThermalListener,
    kReserved,
    kSetRelatedSysInfo,
    kRuleCtl,
};

/** Name of an operation, for messages. */
const char* opName(Op op);

/** How the fake answers an operation. */
struct Answer {
    enum class Kind {
        kOk,                ///< OK status; `result` goes into the out-parameter
        kServiceSpecific,   ///< EX_SERVICE_SPECIFIC with `code`; nothing comes back
        kTransportFailure,  ///< the transaction fails with binder status `code`
    };
    Kind kind = Kind::kOk;
    int32_t result = 0;
    int32_t code = 0;

    static Answer ok(int32_t result = 0) { return {Kind::kOk, result, 0}; }
    static Answer serviceSpecific(int32_t code) { return {Kind::kServiceSpecific, 0, code}; }
    static Answer transportFailure(int32_t status);
};

/** One call as the service received it. Only the fields of the operation are set. */
struct Call {
    explicit Call(Op what = Op::kInit) : op(what) {}

    Op op;
    DolmRequestParcel parcel;                 ///< request, getData, registerListener, reserved
    std::shared_ptr<IDolmCallback> callback;  ///< registerListener, registerThermalListener
    std::vector<int32_t> ids;                 ///< registerThermalListener
    std::vector<DolmRequestData> data;        ///< ruleCtl
    int32_t first = 0;                        ///< handle, rule id or info type
    int32_t second = 0;                       ///< ruleCtl status
    std::string key;                          ///< getProperty, setProperty
    std::string value;                        ///< setProperty value, setRelatedSysInfo info
};

/** How the process that hosts the fake reaches it. */
enum class Reach {
    /**
     * Through a proxy: lookups of the process's own services hand out proxies
     * (a host-only switch of the runtime, set for the whole process), served
     * on the process's binder thread pool, which is started.
     */
    kProxy,
    /**
     * As on a device: a lookup returns the local object itself, to which no
     * death recipient can be linked. No thread pool is started.
     */
    kLocal,
};

class FakeDolmService : public ::aidl::vendor::tarvo::hardware::dolm::BnDolm {
  public:
    /**
     * Registers a new fake under `instance`, after preparing the process for
     * `reach` (once). Returns null if the registration failed.
     */
    static std::shared_ptr<FakeDolmService> start(const char* instance = kDolmInstance,
                                                  Reach reach = Reach::kProxy);

    /** Scripts the answer to every later call of `op` (default: OK with result 0). */
    void setAnswer(Op op, Answer answer);
    /** The list getData answers with (when its answer is OK). */
    void setDataAnswer(std::vector<DolmRequestData> data);
    /** The text getProperty answers with (when its answer is OK). */
    void setPropertyAnswer(std::string value);

    /** Every call received so far, in order of arrival. */
    std::vector<Call> calls() const;
    /** The calls of one operation. */
    std::vector<Call> calls(Op op) const;
    /** Waits until at least `count` calls have arrived; false on timeout. */
    bool waitForCalls(size_t count, std::chrono::milliseconds timeout = std::chrono::seconds(10));

    /**
     * The callback objects received so far (the `callback` field of request
     * parcels and the callback arguments of the listener registrations),
     * non-null ones only, in order of arrival.
     */
    std::vector<std::shared_ptr<IDolmCallback>> callbacks() const;
    /** Calls onCallback on the received callback number `index`. */
    ::ndk::ScopedAStatus deliver(size_t index, const std::vector<DolmRequestData>& data);

    /**
     * Makes this service look dead to every proxy (their calls fail with
     * STATUS_DEAD_OBJECT and their death recipients fire) and drops its
     * registration, so that a new fake can be started under the same name.
     */
    void kill();

    ::ndk::ScopedAStatus init() override;
    ::ndk::ScopedAStatus request(const DolmRequestParcel& parcel, int32_t* result) override;
    ::ndk::ScopedAStatus release(int32_t handle, int32_t* result) override;
    ::ndk::ScopedAStatus getData(const DolmRequestParcel& parcel,
                                 std::vector<DolmRequestData>* result) override;
    ::ndk::ScopedAStatus registerListener(const DolmRequestParcel& parcel,
                                          const std::shared_ptr<IDolmCallback>& callback,
                                          int32_t* result) override;
    ::ndk::ScopedAStatus unregisterListener(int32_t handle, int32_t* result) override;
    ::ndk::ScopedAStatus getProperty(const std::string& key, std::string* result) override;
    ::ndk::ScopedAStatus setProperty(const std::string& key, const std::string& value,
                                     int32_t* result) override;
    ::ndk::ScopedAStatus registerThermalListener(const std::vector<int32_t>& ids,
                                                 const std::shared_ptr<IDolmCallback>& callback,
                                                 int32_t* result) override;
    ::ndk::ScopedAStatus unregisterThermalListener(int32_t handle, int32_t* result) override;
    ::ndk::ScopedAStatus reserved(const DolmRequestParcel& parcel, int32_t* result) override;
    ::ndk::ScopedAStatus setRelatedSysInfo(int32_t type, const std::string& info,
                                           int32_t* result) override;
    ::ndk::ScopedAStatus ruleCtl(int32_t ruleId, int32_t status,
                                 const std::vector<DolmRequestData>& data, int32_t* result) override;

  private:
    // Records `call` and answers it as scripted for its operation; `result`
    // (may be null) receives the scripted int32 when the answer is OK.
    ::ndk::ScopedAStatus answer(Call call, int32_t* result);

    mutable std::mutex mMutex;
    std::condition_variable mCallArrived;
    std::vector<Call> mCalls;
    std::map<Op, Answer> mAnswers;
    std::vector<DolmRequestData> mDataAnswer;
    std::string mPropertyAnswer;
};

}  // namespace zeltest
