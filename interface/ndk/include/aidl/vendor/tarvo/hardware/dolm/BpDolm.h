#pragma once

#include <aidl/vendor/tarvo/hardware/dolm/IDolm.h>
#include <android/binder_ibinder.h>

#include <mutex>

namespace aidl {
namespace vendor {
namespace tarvo {
namespace hardware {
namespace dolm {

/** Proxy of a remote IDolm; every call is one synchronous binder transaction. */
class BpDolm : public ::ndk::BpCInterface<IDolm> {
  public:
    explicit BpDolm(const ::ndk::SpAIBinder& binder);
    ~BpDolm() override;

    ::ndk::ScopedAStatus init() override;
    ::ndk::ScopedAStatus request(const DolmRequestParcel& in_parcel, int32_t* _aidl_return) override;
    ::ndk::ScopedAStatus release(int32_t in_handle, int32_t* _aidl_return) override;
    ::ndk::ScopedAStatus getData(const DolmRequestParcel& in_parcel,
                                 std::vector<DolmRequestData>* _aidl_return) override;
    ::ndk::ScopedAStatus registerListener(const DolmRequestParcel& in_parcel,
                                          const std::shared_ptr<IDolmCallback>& in_callback,
                                          int32_t* _aidl_return) override;
    ::ndk::ScopedAStatus unregisterListener(int32_t in_handle, int32_t* _aidl_return) override;
    ::ndk::ScopedAStatus getProperty(const std::string& in_key, std::string* _aidl_return) override;
    ::ndk::ScopedAStatus setProperty(const std::string& in_key, const std::string& in_value,
                                     int32_t* _aidl_return) override;
    ::ndk::ScopedAStatus registerThermalListener(const std::vector<int32_t>& in_ids,
                                                 const std::shared_ptr<IDolmCallback>& in_callback,
                                                 int32_t* _aidl_return) override;
    ::ndk::ScopedAStatus unregisterThermalListener(int32_t in_handle,
                                                   int32_t* _aidl_return) override;
    ::ndk::ScopedAStatus reserved(const DolmRequestParcel& in_parcel,
                                  int32_t* _aidl_return) override;
    ::ndk::ScopedAStatus setRelatedSysInfo(int32_t in_type, const std::string& in_info,
                                           int32_t* _aidl_return) override;
    ::ndk::ScopedAStatus ruleCtl(int32_t in_ruleId, int32_t in_status,
                                 const std::vector<DolmRequestData>& in_data,
                                 int32_t* _aidl_return) override;
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
