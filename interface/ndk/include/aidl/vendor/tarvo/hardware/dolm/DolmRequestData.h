/*
 * DolmRequestData: one entry of a request to IDolm or of its answer, in the
 * shape the NDK backend gives a stable parcelable.
 */
#pragma once

#include <android/binder_parcel_utils.h>

#include <cstdint>
#include <optional>
#include <string>

namespace aidl {
namespace vendor {
namespace tarvo {
namespace hardware {
namespace dolm {

class DolmRequestData {
  public:
    static const char* descriptor;

    /** Resource id (sub-system id, command id or dump code); 0 in path-addressed entries. */
    int32_t id = 0;
    /** A second number for the same id. */
    int32_t param = 0;
    /** The value text; absent and present-empty are different on the wire. */
    std::optional<std::string> value;
    /** The resource path of path-addressed entries. */
    std::optional<std::string> path;
    /** Extra text the service may return. */
    std::optional<std::string> extra;

    /**
     * Reads the fields written by writeToParcel(): the size, then the fields in
     * order, stopping when the size is used up (later fields keep their
     * defaults), then seeks past the whole record.
     */
    binder_status_t readFromParcel(const AParcel* parcel);
    /** Writes the size of the record, then its fields in declaration order. */
    binder_status_t writeToParcel(AParcel* parcel) const;
};

}  // namespace dolm
}  // namespace hardware
}  // namespace tarvo
}  // namespace vendor
}  // namespace aidl
