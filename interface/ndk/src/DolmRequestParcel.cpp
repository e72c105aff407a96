#include <aidl/vendor/tarvo/hardware/dolm/DolmRequestParcel.h>
#include <aidl/vendor/tarvo/hardware/dolm/IDolmCallback.h>

#include "Marshal.h"

namespace aidl {
namespace vendor {
namespace tarvo {
namespace hardware {
namespace dolm {

const char* DolmRequestParcel::descriptor = "vendor.tarvo.hardware.dolm.DolmRequestParcel";

binder_status_t DolmRequestParcel::readFromParcel(const AParcel* parcel) {
    return internal::readParcelableFields(parcel, &requestType, &data, &flag, &option, &clientArg,
                                          &timeout, &tags, &leadArg, &callback, &pkg, &identity,
                                          &numbers);
}

binder_status_t DolmRequestParcel::writeToParcel(AParcel* parcel) const {
    return internal::writeParcelableFields(parcel, requestType, data, flag, option, clientArg,
                                           timeout, tags, leadArg, callback, pkg, identity, numbers);
}

namespace internal {

binder_status_t writeField(AParcel* p, const DolmRequestParcel& v) {
    return ::ndk::AParcel_writeParcelable(p, v);
}

binder_status_t readField(const AParcel* p, DolmRequestParcel* v) {
    return ::ndk::AParcel_readParcelable(p, v);
}

}  // namespace internal
}  // namespace dolm
}  // namespace hardware
}  // namespace tarvo
}  // namespace vendor
}  // namespace aidl
