// Private: the AParcel object. Data is a byte buffer with a read/write
// position; binder objects live in a side table referenced from the data.
#pragma once

#include <android/binder_parcel.h>

#include <cstdint>
#include <cstring>
#include <vector>

#include "ibinder_internal.h"

struct AParcel {
  public:
    AParcel() = default;
    explicit AParcel(AIBinder* target) : mTarget(binder_host::BinderRef::share(target)) {}

    /** Writes \p size bytes at the position, padded with zeros to a multiple of 4. */
    binder_status_t writeBytes(const void* data, size_t size);
    /** Reads \p size bytes (position then skips the padding); fails past the end. */
    binder_status_t readBytes(void* data, size_t size) const;
    /** Skips \p size bytes (plus padding); fails past the end. */
    binder_status_t skip(size_t size) const;
    /** A pointer to \p size readable bytes at the position, or null past the end. */
    const uint8_t* peek(size_t size) const;

    template <typename T>
    binder_status_t write(T value) {
        return writeBytes(&value, sizeof(value));
    }
    template <typename T>
    binder_status_t read(T* value) const {
        return readBytes(value, sizeof(T));
    }

    size_t remaining() const { return mPos < mData.size() ? mData.size() - mPos : 0; }
    size_t position() const { return mPos; }
    void setPosition(size_t position) const { mPos = position; }

    const std::vector<uint8_t>& data() const { return mData; }
    std::vector<uint8_t>& mutableData() { return mData; }
    const std::vector<binder_host::BinderRef>& objects() const { return mObjects; }
    std::vector<binder_host::BinderRef>& mutableObjects() { return mObjects; }
    AIBinder* target() const { return mTarget.get(); }

    static size_t padded(size_t size) { return (size + 3) & ~static_cast<size_t>(3); }

  private:
    std::vector<uint8_t> mData;
    mutable size_t mPos = 0;
    std::vector<binder_host::BinderRef> mObjects;
    binder_host::BinderRef mTarget;  // the binder a request was prepared for
};
