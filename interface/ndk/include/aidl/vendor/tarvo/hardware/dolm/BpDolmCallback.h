#pragma once

#include <aidl/vendor/tarvo/hardware/dolm/IDolmCallback.h>
#include <android/binder_ibinder.h>

#include <mutex>

namespace aidl {
namespace vendor {
namespace tarvo {
namespace hardware {
namespace dolm {

/** Proxy of a remote IDolmCallback; every call is one binder transaction. */
class BpDolmCallback : public ::ndk::BpCInterface<IDolmCallback> {
  public:
    explicit BpDolmCallback(const ::ndk::SpAIBinder& binder);
    ~BpDolmCallback() override;

    ::ndk::ScopedAStatus onCallback(const std::vector<DolmRequestData>& in_data) override;
    /** Asks the remote side once and caches the answer (-1 until then). */
    ::ndk::ScopedAStatus getInterfaceVersion(int32_t* _aidl_return) override;
    /** Asks the remote side once and caches the answer ("-1" until then). */
    ::ndk::ScopedAStatus getInterfaceHash(std::string* _aidl_return) override;

    int32_t _aidl_cached_version = -1;
    std::string _aidl_cached_hash = "-1";
    std::mutex _aidl_cached_hash_mutex;
};

}  // namespace dolm
}  // namespace hardware
}  // namespace tarvo
}  // namespace vendor
}  // namespace aidl
