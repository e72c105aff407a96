// readFromParcel of the service's records, DolmRequestParcel and
// DolmRequestData, over arbitrary data. A record that reads back whole is
// written again, and what it writes reads back to the same bytes.
//
// Input: one byte choosing the record (and null objects in the table), then
// the parcel's data.
#include <aidl/vendor/tarvo/hardware/dolm/DolmRequestData.h>
#include <aidl/vendor/tarvo/hardware/dolm/DolmRequestParcel.h>

#include <cstddef>
#include <cstdint>
#include <cstdlib>

#include "FuzzParcel.h"

namespace {

using ::aidl::vendor::tarvo::hardware::dolm::DolmRequestData;
using ::aidl::vendor::tarvo::hardware::dolm::DolmRequestParcel;

template <typename Record>
void roundTrip(const uint8_t* data, size_t size, size_t nullObjects) {
    AParcel in;
    zelfuzz::fillParcel(in, data, size, nullObjects);
    Record record;
    if (record.readFromParcel(&in) != STATUS_OK) return;
    AParcel first;
    if (record.writeToParcel(&first) != STATUS_OK) abort();
    first.setPosition(0);
    Record again;
    if (again.readFromParcel(&first) != STATUS_OK) abort();
    AParcel second;
    if (again.writeToParcel(&second) != STATUS_OK) abort();
    if (first.data() != second.data()) abort();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size < 1) return 0;
    const size_t nullObjects = (data[0] >> 1) % 4;
    if ((data[0] & 1) == 0) {
        roundTrip<DolmRequestParcel>(data + 1, size - 1, nullObjects);
    } else {
        roundTrip<DolmRequestData>(data + 1, size - 1, nullObjects);
    }
    return 0;
}
