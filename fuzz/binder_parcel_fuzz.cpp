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

// Runs read number `op`; a failed read leaves the position where the reader
// left it, as it would for a caller that ignores the failure.
void readOne(const AParcel* parcel, uint8_t op) {
    switch (op % 24) {
        case 0: {
            int32_t value = 0;
            AParcel_readInt32(parcel, &value);
            break;
        }
        case 1: {
            uint32_t value = 0;
            AParcel_readUint32(parcel, &value);
            break;
        }
        case 2: {
            int64_t value = 0;
            AParcel_readInt64(parcel, &value);
            break;
        }
        case 3: {
            uint64_t value = 0;
            AParcel_readUint64(parcel, &value);
            break;
        }
        case 4: {
            float value = 0;
            AParcel_readFloat(parcel, &value);
            double other = 0;
            AParcel_readDouble(parcel, &other);
            break;
        }
        case 5: {
            bool value = false;
            AParcel_readBool(parcel, &value);
            char16_t c = 0;
            AParcel_readChar(parcel, &c);
            int8_t b = 0;
            AParcel_readByte(parcel, &b);
            break;
        }
        case 6: {
            std::string value;
            AParcel_readString(parcel, &value);
            break;
        }
        case 7: {
            std::optional<std::string> value;
            AParcel_readString(parcel, &value);
            break;
        }
        case 8: {
            std::vector<std::string> value;
            AParcel_readVector(parcel, &value);
            break;
        }
        case 9: {
            std::optional<std::vector<std::optional<std::string>>> value;
            AParcel_readVector(parcel, &value);
            break;
        }
        case 10: {
            std::vector<int32_t> value;
            AParcel_readVector(parcel, &value);
            break;
        }
        case 11: {
            std::optional<std::vector<int64_t>> value;
            AParcel_readVector(parcel, &value);
            break;
        }
        case 12: {
            std::vector<bool> value;
            AParcel_readVector(parcel, &value);
            break;
        }
        case 13: {
            std::vector<uint8_t> value;
            AParcel_readVector(parcel, &value);
            break;
        }
        case 14: {
            std::optional<std::vector<float>> value;
            AParcel_readVector(parcel, &value);
            break;
        }
        case 15: {
            std::vector<double> value;
            AParcel_readVector(parcel, &value);
            break;
        }
        case 16: {
            std::vector<char16_t> value;
            AParcel_readVector(parcel, &value);
            break;
        }
        case 17: {
            ::ndk::SpAIBinder binder;
            AParcel_readNullableStrongBinder(parcel, &binder);
            break;
        }
        case 18: {
            ::ndk::SpAIBinder binder;
            AParcel_readRequiredStrongBinder(parcel, &binder);
            break;
        }
        case 19: {
            AStatus* status = nullptr;
            if (AParcel_readStatusHeader(parcel, &status) == STATUS_OK) {
                AStatus_getMessage(status);
                AStatus_delete(status);
            } else if (status != nullptr) {
                abort();  // a failed read creates no status
            }
            break;
        }
        case 20: {
            ::ndk::ScopedFileDescriptor fd;
            AParcel_readNullableParcelFileDescriptor(parcel, &fd);
            break;
        }
        case kSetPosition: {
            int32_t position = 0;
            if (AParcel_readInt32(parcel, &position) == STATUS_OK) {
                AParcel_setDataPosition(parcel, position);
            }
            break;
        }
        case 22: {
            std::vector<int8_t> value;
            AParcel_readVector(parcel, &value);
            break;
        }
        default: {
            std::optional<std::vector<std::string>> value;
            AParcel_readVector(parcel, &value);
        }
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
