#include "HalclientTestSupport.h"

#include <android/binder_host.h>
#include <android/binder_manager.h>
#include <android/binder_process.h>

namespace halclienttest {

size_t requestCallbackCount() {
    std::lock_guard<std::mutex> lock(request_callback_mutex);
    return request_callbacks.size();
}

std::shared_ptr<CallingBackService> CallingBackService::startCallingBack(
        std::vector<DolmRequestData> data) {
    ABinderHost_setInProcessProxies(true);
    ABinderProcess_startThreadPool();
    auto service = ::ndk::SharedRefBase::make<CallingBackService>(std::move(data));
    if (AServiceManager_addService(service->asBinder().get(), zeltest::kDolmInstance) != STATUS_OK) {
        return nullptr;
    }
    return service;
}

::ndk::ScopedAStatus CallingBackService::request(const DolmRequestParcel& parcel, int32_t* result) {
    if (parcel.callback != nullptr) parcel.callback->onCallback(mData);
    return FakeDolmService::request(parcel, result);
}

void HalclientTest::SetUp() {
    mService = FakeDolmService::start();
    ASSERT_NE(mService, nullptr);
}

DolmRequestParcel HalclientTest::requestParcel(size_t n) const {
    std::vector<zeltest::Call> calls = mService->calls(Op::kRequest);
    if (n >= calls.size()) {
        ADD_FAILURE() << "no request call number " << n;
        return DolmRequestParcel{};
    }
    return calls[n].parcel;
}

}  // namespace halclienttest
