/*
 * IDolmCallback: the interface through which the service reports resource ids
 * and values to a client. Clients implement it by deriving from
 * BnDolmCallback; the service holds a BpDolmCallback.
 */
#pragma once

#include <aidl/vendor/tarvo/hardware/dolm/DolmRequestData.h>
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

class IDolmCallback : public ::ndk::ICInterface {
  public:
    static const char* descriptor;
    IDolmCallback();
    ~IDolmCallback() override;

    /** Version of the frozen interface this code was written for. */
    static const int32_t version = 1;
    /** Hash of the frozen interface; initialised once and shared by every user. */
    static inline const std::string hash = "cae43655eaf0af39cbb6d273c5e2206eebe33a10";

    /**
     * The interface behind `binder`: the local object when the binder lives in
     * this process, otherwise a new proxy. Null when the binder is null or
     * does not implement this interface.
     */
    static std::shared_ptr<IDolmCallback> fromBinder(const ::ndk::SpAIBinder& binder);
    /** Writes `instance`'s binder (null allowed) into `parcel`. */
    static binder_status_t writeToParcel(AParcel* parcel,
                                         const std::shared_ptr<IDolmCallback>& instance);
    /** Reads a binder from `parcel` and turns it into the interface (null allowed). */
    static binder_status_t readFromParcel(const AParcel* parcel,
                                          std::shared_ptr<IDolmCallback>* instance);
    /** Sets the implementation a proxy uses when the remote side lacks a method. */
    static bool setDefaultImpl(std::shared_ptr<IDolmCallback> impl);
    static const std::shared_ptr<IDolmCallback>& getDefaultImpl();

    virtual ::ndk::ScopedAStatus onCallback(const std::vector<DolmRequestData>& in_data) = 0;
    virtual ::ndk::ScopedAStatus getInterfaceVersion(int32_t* _aidl_return) = 0;
    virtual ::ndk::ScopedAStatus getInterfaceHash(std::string* _aidl_return) = 0;

  private:
    static std::shared_ptr<IDolmCallback> default_impl;
};

/** Answers every method with STATUS_UNKNOWN_TRANSACTION. */
class IDolmCallbackDefault : public IDolmCallback {
  public:
    ::ndk::ScopedAStatus onCallback(const std::vector<DolmRequestData>& in_data) override;
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
