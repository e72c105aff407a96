/*
 * DolmRequestParcel: the request record of IDolm, in the shape the NDK
 * backend gives a stable parcelable. A default-constructed record has every
 * number 0, every bool false, every list empty, every nullable field absent
 * and a null callback.
 */
#pragma once

#include <aidl/vendor/tarvo/hardware/dolm/DolmRequestData.h>
#include <android/binder_parcel_utils.h>

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace aidl {
namespace vendor {
namespace tarvo {
namespace hardware {
namespace dolm {

class IDolmCallback;

class DolmRequestParcel {
  public:
    static const char* descriptor;

    /** Kind of request (1, 2, 5, 7, 8, 10, 11, 12, 13), or 0 where the operation says it. */
    int32_t requestType = 0;
    /** The resources (or the one sub-system, command or dump code), in the caller's order. */
    std::vector<DolmRequestData> data;
    bool flag = false;
    int32_t option = 0;
    int32_t clientArg = 0;
    /** Duration of the request. */
    int64_t timeout = 0;
    std::optional<std::vector<std::optional<std::string>>> tags;
    int32_t leadArg = 0;
    /** The client's callback object, or null. */
    std::shared_ptr<IDolmCallback> callback;
    std::optional<std::string> pkg;
    std::optional<std::string> identity;
    std::optional<std::vector<int32_t>> numbers;

    /** Reads a record written by writeToParcel(); see DolmRequestData::readFromParcel(). */
    binder_status_t readFromParcel(const AParcel* parcel);
    /** Writes the size of the record, then its fields in declaration order. */
    binder_status_t writeToParcel(AParcel* parcel) const;
};

}  // namespace dolm
}  // namespace hardware
}  // namespace tarvo
}  // namespace vendor
}  // namespace aidl
