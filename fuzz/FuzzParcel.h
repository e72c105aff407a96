// A parcel holding bytes that a fuzz target chose, as the runtime holds a
// received one: the data, and an object table of null binders.
#pragma once

#include <cstddef>
#include <cstdint>

#include "parcel_internal.h"

namespace zelfuzz {

inline void fillParcel(AParcel& parcel, const uint8_t* data, size_t size, size_t nullObjects) {
    parcel.setData(data, size);
    parcel.mutableObjects().resize(nullObjects);
    parcel.setPosition(0);
}

}  // namespace zelfuzz
