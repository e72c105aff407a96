#include "FakeDolmService.h"

#include <android/binder_host.h>
#include <android/binder_manager.h>
#include <android/binder_process.h>

#include <algorithm>

namespace zeltest {

const char* opName(Op op) {
    switch (op) {
        case Op::kInit:
            return "init";
        case Op::kRequest:
            return "request";
        case Op::kRelease:
            return "release";
        case Op::kGetData:
            return "getData";
        case Op::kRegisterListener:
            return "registerListener";
        case Op::kUnregisterListener:
            return "unregisterListener";
        case Op::kGetProperty:
            return "getProperty";
        case Op::kSetProperty:
            return "setProperty";
        case Op::kRegisterThermalListener:
            return "registerThermalListener";
        case Op::kUnregisterThermalListener:
            return "unregisterThermalListener";
        case Op::kReserved:
            return "reserved";
        case Op::kSetRelatedSysInfo:
            return "setRelatedSysInfo";
        case Op::kRuleCtl:
            return "ruleCtl";
    }
    return "?";
}

Answer Answer::transportFailure(int32_t status) {
    return {Kind::kTransportFailure, 0, status};
}

std::shared_ptr<FakeDolmService> FakeDolmService::start(const char* instance, Reach reach) {
    static std::once_flag poolStarted;
    if (reach == Reach::kProxy) {
        std::call_once(poolStarted, [] {
            ABinderHost_setInProcessProxies(true);
            ABinderProcess_startThreadPool();
        });
    }
    auto service = ::ndk::SharedRefBase::make<FakeDolmService>();
    if (AServiceManager_addService(service->asBinder().get(), instance) != STATUS_OK) {
        return nullptr;
    }
    return service;
}

void FakeDolmService::setAnswer(Op op, Answer answer) {
    std::lock_guard<std::mutex> lock(mMutex);
    mAnswers[op] = answer;
}

void FakeDolmService::setDataAnswer(std::vector<DolmRequestData> data) {
    std::lock_guard<std::mutex> lock(mMutex);
    mDataAnswer = std::move(data);
}

void FakeDolmService::setPropertyAnswer(std::string value) {
    std::lock_guard<std::mutex> lock(mMutex);
    mPropertyAnswer = std::move(value);
}

std::vector<Call> FakeDolmService::calls() const {
    std::lock_guard<std::mutex> lock(mMutex);
    return mCalls;
}

std::vector<Call> FakeDolmService::calls(Op op) const {
    std::lock_guard<std::mutex> lock(mMutex);
    std::vector<Call> matching;
    std::copy_if(mCalls.begin(), mCalls.end(), std::back_inserter(matching),
                 [op](const Call& call) { return call.op == op; });
    return matching;
}

bool FakeDolmService::waitForCalls(size_t count, std::chrono::milliseconds timeout) {
    std::unique_lock<std::mutex> lock(mMutex);
    return mCallArrived.wait_for(lock, timeout, [&] { return mCalls.size() >= count; });
}

std::vector<std::shared_ptr<IDolmCallback>> FakeDolmService::callbacks() const {
    std::lock_guard<std::mutex> lock(mMutex);
    std::vector<std::shared_ptr<IDolmCallback>> received;
    for (const Call& call : mCalls) {
        if (call.parcel.callback != nullptr) received.push_back(call.parcel.callback);
        if (call.callback != nullptr) received.push_back(call.callback);
    }
    return received;
}

::ndk::ScopedAStatus FakeDolmService::deliver(size_t index,
                                              const std::vector<DolmRequestData>& data) {
    std::vector<std::shared_ptr<IDolmCallback>> received = callbacks();
    if (index >= received.size()) return ::ndk::ScopedAStatus::fromStatus(STATUS_BAD_INDEX);
    return received[index]->onCallback(data);
}

void FakeDolmService::kill() {
    ABinderHost_killLocalBinder(asBinder().get());
}

::ndk::ScopedAStatus FakeDolmService::answer(Call call, int32_t* result) {
    Answer scripted;
    {
        std::lock_guard<std::mutex> lock(mMutex);
        auto it = mAnswers.find(call.op);
        if (it != mAnswers.end()) scripted = it->second;
        mCalls.push_back(std::move(call));
    }
    mCallArrived.notify_all();
    switch (scripted.kind) {
        case Answer::Kind::kOk:
            if (result != nullptr) *result = scripted.result;
            return ::ndk::ScopedAStatus::ok();
        case Answer::Kind::kServiceSpecific:
            return ::ndk::ScopedAStatus::fromServiceSpecificError(scripted.code);
        case Answer::Kind::kTransportFailure:
            return ::ndk::ScopedAStatus::fromStatus(scripted.code);
    }
    return ::ndk::ScopedAStatus::ok();
}

::ndk::ScopedAStatus FakeDolmService::init() {
    return answer(Call{Op::kInit}, nullptr);
}

::ndk::ScopedAStatus FakeDolmService::request(const DolmRequestParcel& parcel, int32_t* result) {
    Call call{Op::kRequest};
    call.parcel = parcel;
    return answer(std::move(call), result);
}

::ndk::ScopedAStatus FakeDolmService::release(int32_t handle, int32_t* result) {
    Call call{Op::kRelease};
    call.first = handle;
    return answer(std::move(call), result);
}

::ndk::ScopedAStatus FakeDolmService::getData(const DolmRequestParcel& parcel,
                                              std::vector<DolmRequestData>* result) {
    Call call{Op::kGetData};
    call.parcel = parcel;
    ::ndk::ScopedAStatus status = answer(std::move(call), nullptr);
    if (status.isOk()) {
        std::lock_guard<std::mutex> lock(mMutex);
        *result = mDataAnswer;
    }
    return status;
}

::ndk::ScopedAStatus FakeDolmService::registerListener(const DolmRequestParcel& parcel,
                                                       const std::shared_ptr<IDolmCallback>& callback,
                                                       int32_t* result) {
    Call call{Op::kRegisterListener};
    call.parcel = parcel;
    call.callback = callback;
    return answer(std::move(call), result);
}

::ndk::ScopedAStatus FakeDolmService::unregisterListener(int32_t handle, int32_t* result) {
    Call call{Op::kUnregisterListener};
    call.first = handle;
    return answer(std::move(call), result);
}

::ndk::ScopedAStatus FakeDolmService::getProperty(const std::string& key, std::string* result) {
    Call call{Op::kGetProperty};
    call.key = key;
    ::ndk::ScopedAStatus status = answer(std::move(call), nullptr);
    if (status.isOk()) {
        std::lock_guard<std::mutex> lock(mMutex);
        *result = mPropertyAnswer;
    }
    return status;
}

::ndk::ScopedAStatus FakeDolmService::setProperty(const std::string& key, const std::string& value,
                                                  int32_t* result) {
    Call call{Op::kSetProperty};
    call.key = key;
    call.value = value;
    return answer(std::move(call), result);
}

::ndk::ScopedAStatus FakeDolmService::registerThermalListener(
        const std::vector<int32_t>& ids, const std::shared_ptr<IDolmCallback>& callback,
        int32_t* result) {
    Call call{Op::kRegisterThermalListener};
    call.ids = ids;
    call.callback = callback;
    return answer(std::move(call), result);
}

::ndk::ScopedAStatus FakeDolmService::unregisterThermalListener(int32_t handle, int32_t* result) {
    Call call{Op::kUnregisterThermalListener};
    call.first = handle;
    return answer(std::move(call), result);
}

::ndk::ScopedAStatus FakeDolmService::reserved(const DolmRequestParcel& parcel, int32_t* result) {
    Call call{Op::kReserved};
    call.parcel = parcel;
    return answer(std::move(call), result);
}

::ndk::ScopedAStatus FakeDolmService::setRelatedSysInfo(int32_t type, const std::string& info,
                                                        int32_t* result) {
    Call call{Op::kSetRelatedSysInfo};
    call.first = type;
    call.value = info;
    return answer(std::move(call), result);
}

::ndk::ScopedAStatus FakeDolmService::ruleCtl(int32_t ruleId, int32_t status,
                                              const std::vector<DolmRequestData>& data,
                                              int32_t* result) {
    Call call{Op::kRuleCtl};
    call.first = ruleId;
    call.second = status;
    call.data = data;
    return answer(std::move(call), result);
}

}  // namespace zeltest
