/*
 * IDolm: the resource-control service, in the shape the NDK backend gives a
 * stable interface frozen at version 1. Every method returns a binder status
 * (OK, a service-specific error, or a transport failure); results come back
 * through the last pointer argument.
 */
#pragma once

#include <aidl/vendor/tarvo/hardware/dolm/DolmRequestData.h>
#include <aidl/vendor/tarvo/hardware/dolm/DolmRequestParcel.h>
#include <aidl/vendor/tarvo/hardware/dolm/IDolmCallback.h>
#include <android/binder_interface_utils.h>

#include <cstdint>
#include <memory>
#include <string>
#include <vector>
#ifdef BINDER_STABILITY_SUPPORT
#include <android/binder_stability.h>
#endif  // BINDER_STABILITY_SUPPORT

namespace aidl {
namespace vendor {
namespace tarvo {
namespace hardware {
namespace dolm {

class IDolm : public ::ndk::ICInterface {
  public:
    static const char* descriptor;
    IDolm();
    ~IDolm() override;

    /** Version of the frozen interface this code was written for. */
    static const int32_t version = 1;
    /** Hash of the frozen interface; initialised once and shared by every user. */
    static inline const std::string hash = "cae43655eaf0af39cbb6d273c5e2206eebe33a10";

    /**
     * The interface behind `binder`: the local object when the binder lives in
     * this process, otherwise a new proxy. Null when the binder is null or
     * does not implement IDolm.
     */
    static std::shared_ptr<IDolm> fromBinder(const ::ndk::SpAIBinder& binder);
    /** Writes `instance`'s binder (null allowed) into `parcel`. */
    static binder_status_t writeToParcel(AParcel* parcel, const std::shared_ptr<IDolm>& instance);
    /** Reads a binder from `parcel` and turns it into the interface (null allowed). */
    static binder_status_t readFromParcel(const AParcel* parcel, std::shared_ptr<IDolm>* instance);
    /** Sets the implementation a proxy uses when the remote side lacks a method. */
    static bool setDefaultImpl(std::shared_ptr<IDolm> impl);
    static const std::shared_ptr<IDolm>& getDefaultImpl();

    virtual ::ndk::ScopedAStatus init() = 0;
    virtual ::ndk::ScopedAStatus request(const DolmRequestParcel& in_parcel,
                                         int32_t* _aidl_return) = 0;
    virtual ::ndk::ScopedAStatus release(int32_t in_handle, int32_t* _aidl_return) = 0;
    virtual ::ndk::ScopedAStatus getData(const DolmRequestParcel& in_parcel,
                                         std::vector<DolmRequestData>* _aidl_return) = 0;
    virtual ::ndk::ScopedAStatus registerListener(const DolmRequestParcel& in_parcel,
                                                  const std::shared_ptr<IDolmCallback>& in_callback,
                                                  int32_t* _aidl_return) = 0;
    virtual ::ndk::ScopedAStatus unregisterListener(int32_t in_handle, int32_t* _aidl_return) = 0;
    virtual ::ndk::ScopedAStatus getProperty(const std::string& in_key,
                                             std::string* _aidl_return) = 0;
    virtual ::ndk::ScopedAStatus setProperty(const std::string& in_key, const std::string& in_value,
                                             int32_t* _aidl_return) = 0;
    virtual ::ndk::ScopedAStatus registerThermalListener(
            const std::vector<int32_t>& in_ids, const std::shared_ptr<IDolmCallback>& in_callback,
            int32_t* _aidl_return) = 0;
    virtual ::ndk::ScopedAStatus unregisterThermalListener(int32_t in_handle,
                                                           int32_t* _aidl_return) = 0;
    /** Holds the place of a service operation that this library never calls. */
    virtual ::ndk::ScopedAStatus reserved(const DolmRequestParcel& in_parcel,
                                          int32_t* _aidl_return) = 0;
    virtual ::ndk::ScopedAStatus setRelatedSysInfo(int32_t in_type, const std::string& in_info,
                                                   int32_t* _aidl_return) = 0;
    virtual ::ndk::ScopedAStatus ruleCtl(int32_t in_ruleId, int32_t in_status,
                                         const std::vector<DolmRequestData>& in_data,
                                         int32_t* _aidl_return) = 0;
    virtual ::ndk::ScopedAStatus getInterfaceVersion(int32_t* _aidl_return) = 0;
    virtual ::ndk::ScopedAStatus getInterfaceHash(std::string* _aidl_return) = 0;

  private:
    static std::shared_ptr<IDolm> default_impl;
};

/** Answers every method with STATUS_UNKNOWN_TRANSACTION. */
class IDolmDefault : public IDolm {
  public:
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
    ::ndk::ScopedAStatus getInterfaceVersion(int32_t* _aidl_return) override;
    ::ndk::ScopedAStatus getInterfaceHash(std::string* _aidl_return) override;
    ::ndk::SpAIBinder asBinder() override;
    bool isRemote() override;
};

}  // namespace dolm
}  // namespace hardware
}  // namespace tarvo
}  // namespace vendor
}  // namespace aidl
