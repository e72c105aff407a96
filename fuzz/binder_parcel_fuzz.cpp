// The runtime's AParcel readers, through the C API and the ndk:: helpers:
// a sequence of reads, chosen by the input, over data from the input.
//
// Input: one byte of null objects in the object table (mod 4), eight bytes
// naming the reads, then the parcel's data.
#include <android/binder_parcel_utils.h>
#include <android/binder_status.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <optional>
#include <string>
#include <vector>

#include "FuzzParcel.h"

namespace {

using ::ndk::AParcel_readNullableParcelFileDescriptor;
using ::ndk::AParcel_readNullableStrongBinder;
using ::ndk::AParcel_readRequiredStrongBinder;
using ::ndk::AParcel_readString;
using ::ndk::AParcel_readVector;

constexpr size_t kReads = 8;
// The read that sets the position from an int32 it reads.
constexpr int kSetPosition = 21;

// One read of a T with `read`, whatever its outcome.
template <typename T>
void readAs(const AParcel* parcel, binder_status_t (*read)(const AParcel*, T*)) {
    T value{};
    read(parcel, &value);
}

template <typename T>
void readVector(const AParcel* parcel) {
    T value;
    AParcel_readVector(parcel, &value);
}

// Runs read number `op`; a failed read leaves the position where the reader
// left it, as it would for a caller that ignores the failure.
void readOne(const AParcel* parcel, uint8_t op) {
    switch (op % 24) {
        case 0:
            return readAs(parcel, AParcel_readInt32);
        case 1:
            return readAs(parcel, AParcel_readUint32);
        case 2:
            return readAs(parcel, AParcel_readInt64);
        case 3:
            return readAs(parcel, AParcel_readUint64);
        case 4:
            readAs(parcel, AParcel_readFloat);
            return readAs(parcel, AParcel_readDouble);
        case 5:
            readAs(parcel, AParcel_readBool);
            readAs(parcel, AParcel_readChar);
            return readAs(parcel, AParcel_readByte);
        case 6:
            return readAs<std::string>(parcel, AParcel_readString);
        case 7:
            return readAs<std::optional<std::string>>(parcel, AParcel_readString);
        case 8:
            return readVector<std::vector<std::string>>(parcel);
        case 9:
            return readVector<std::optional<std::vector<std::optional<std::string>>>>(parcel);
        case 10:
            return readVector<std::vector<int32_t>>(parcel);
        case 11:
            return readVector<std::optional<std::vector<int64_t>>>(parcel);
        case 12:
            return readVector<std::vector<bool>>(parcel);
        case 13:
            return readVector<std::vector<uint8_t>>(parcel);
        case 14:
            return readVector<std::optional<std::vector<float>>>(parcel);
        case 15:
            return readVector<std::vector<double>>(parcel);
        case 16:
            return readVector<std::vector<char16_t>>(parcel);
        case 17:
            return readAs(parcel, AParcel_readNullableStrongBinder);
        case 18:
            return readAs(parcel, AParcel_readRequiredStrongBinder);
        case 19: {
            AStatus* status = nullptr;
            if (AParcel_readStatusHeader(parcel, &status) == STATUS_OK) {
                AStatus_getMessage(status);
                AStatus_delete(status);
            } else if (status != nullptr) {
                abort();  // a failed read creates no status
            }
            return;
        }
        case 20:
            return readAs(parcel, AParcel_readNullableParcelFileDescriptor);
        case kSetPosition: {
            int32_t position = 0;
            if (AParcel_readInt32(parcel, &position) == STATUS_OK) {
                AParcel_setDataPosition(parcel, position);
            }
            return;
        }
        case 22:
            return readVector<std::vector<int8_t>>(parcel);
        default:
            return readVector<std::optional<std::vector<std::string>>>(parcel);
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size < 1 + kReads) return 0;
    AParcel parcel;
    zelfuzz::fillParcel(parcel, data + 1 + kReads, size - 1 - kReads, data[0] % 4);
    for (size_t i = 0; i < kReads; ++i) {
        const int32_t before = AParcel_getDataPosition(&parcel);
        readOne(&parcel, data[1 + i]);
        // Only setDataPosition may move the position past the data; no read does.
        const int32_t limit = std::max(before, static_cast<int32_t>(parcel.data().size()));
        if (data[1 + i] % 24 != kSetPosition && AParcel_getDataPosition(&parcel) > limit) abort();
    }
    return 0;
}
