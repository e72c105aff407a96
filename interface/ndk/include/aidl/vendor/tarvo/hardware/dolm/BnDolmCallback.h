#pragma once

#include <aidl/vendor/tarvo/hardware/dolm/IDolmCallback.h>
#include <android/binder_ibinder.h>

namespace aidl {
namespace vendor {
namespace tarvo {
namespace hardware {
namespace dolm {

/**
 * Stub base of an IDolmCallback implementation. Derive from it, implement
 * onCallback(), and create objects with ::ndk::SharedRefBase::make so that the
 * binder and the shared pointers count the same object. Incoming calls run on
 * binder threads of this process.
 */
class BnDolmCallback : public ::ndk::BnCInterface<IDolmCallback> {
  public:
    BnDolmCallback();
    ~BnDolmCallback() override;
    ::ndk::ScopedAStatus getInterfaceVersion(int32_t* _aidl_return) final;
    ::ndk::ScopedAStatus getInterfaceHash(std::string* _aidl_return) final;

  protected:
    ::ndk::SpAIBinder createBinder() override;
};

}  // namespace dolm
}  // namespace hardware
}  // namespace tarvo
}  // namespace vendor
}  // namespace aidl
