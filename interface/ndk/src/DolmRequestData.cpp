#include <aidl/vendor/tarvo/hardware/dolm/DolmRequestData.h>

#include "Marshal.h"

namespace aidl {
namespace vendor {
namespace tarvo {
namespace hardware {
namespace dolm {

const char* DolmRequestData::descriptor = "vendor.tarvo.hardware.dolm.DolmRequestData";

binder_status_t DolmRequestData::readFromParcel(const AParcel* parcel) {
    return internal::readParcelableFields(parcel, &id, &param, &value, &path, &extra);
}

binder_status_t DolmRequestData::writeToParcel(AParcel* parcel) const {
    return internal::writeParcelableFields(parcel, id, param, value, path, extra);
}

}  // namespace dolm
}  // namespace hardware
}  // namespace tarvo
}  // namespace vendor
}  // namespace aidl
