#pragma once

#include <aidl/vendor/tarvo/hardware/dolm/IDolm.h>
#include <android/binder_ibinder.h>

namespace aidl {
namespace vendor {
namespace tarvo {
namespace hardware {
namespace dolm {

/**
 * Stub base of an IDolm implementation (the service side). Derive from it,
 * implement the operations, create the object with ::ndk::SharedRefBase::make
 * and register asBinder() with the service manager. Incoming calls run on
 * binder threads of the serving process.
 */
class BnDolm : public ::ndk::BnCInterface<IDolm> {
  public:
    BnDolm();
    ~BnDolm() override;
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
