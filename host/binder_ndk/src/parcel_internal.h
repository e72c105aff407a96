// Private: the AParcel object. Data is a byte buffer with a read/write
// position; binder objects live in a side table referenced from the data.
//
// The buffer grows geometrically (a small one is kept inside the object, so
// a typical request or reply needs no allocation of its own); a write copies
// its bytes and zeroes its padding in place, a read is a bounds check and a
// copy. Fixed-size fields take an inline path; everything else goes through
// writeSpace()/peek().
#pragma once

#include <android/binder_parcel.h>

#include <cstdint>
#include <cstring>
#include <vector>

#include "ibinder_internal.h"

namespace binder_host {

/** A read-only view of bytes. */
class ByteView {
  public:
    ByteView(const uint8_t* data, size_t size) : mData(data), mSize(size) {}
    const uint8_t* data() const { return mData; }
    size_t size() const { return mSize; }
    /** Same bytes (not the same place). */
    bool operator==(const ByteView& other) const {
        return mSize == other.mSize && (mSize == 0 || std::memcmp(mData, other.mData, mSize) == 0);
    }
    bool operator!=(const ByteView& other) const { return !(*this == other); }

  private:
    const uint8_t* mData;
    size_t mSize;
};

}  // namespace binder_host

struct AParcel {
  public:
    AParcel() = default;
    explicit AParcel(AIBinder* target) : mTarget(binder_host::BinderRef::share(target)) {}
    ~AParcel();
    AParcel(const AParcel&) = delete;
    AParcel& operator=(const AParcel&) = delete;

    /** Upper bound for a parcel's data, far beyond any real transaction. */
    static constexpr size_t kMaxSize = 64u << 20;

    /**
     * Makes room for \p size bytes plus padding to a multiple of 4 at the
     * position (the padding, and any gap a position past the end left, is
     * zeroed), advances the position past them and returns where the bytes
     * go; null (nothing changed) beyond kMaxSize or without memory.
     */
    uint8_t* writeSpace(size_t size) {
        size_t paddedSize = padded(size);
        if (mPos > mSize || size > kMaxSize || mCapacity - mPos < paddedSize) {
            return growForWrite(size);
        }
        uint8_t* space = mData + mPos;
        if (paddedSize != size) {
            // The last word is zeroed first; the caller's bytes then cover its start.
            std::memset(space + paddedSize - 4, 0, 4);
        }
        mPos += paddedSize;
        mSize = mPos > mSize ? mPos : mSize;
        return space;
    }
    /** Writes \p size bytes at the position, padded with zeros to a multiple of 4. */
    binder_status_t writeBytes(const void* data, size_t size) {
        uint8_t* space = writeSpace(size);
        if (space == nullptr) {
            return STATUS_NO_MEMORY;
        }
        if (size > 0) {
            std::memcpy(space, data, size);
        }
        return STATUS_OK;
    }
    /** Reads \p size bytes (position then skips the padding); fails past the end. */
    binder_status_t readBytes(void* data, size_t size) const {
        const uint8_t* source = peek(size);
        if (source == nullptr) {
            return STATUS_NOT_ENOUGH_DATA;
        }
        if (size > 0) {
            std::memcpy(data, source, size);
        }
        mPos += padded(size);
        return STATUS_OK;
    }
    /** Skips \p size bytes (plus padding); fails past the end. */
    binder_status_t skip(size_t size) const {
        if (peek(size) == nullptr) {
            return STATUS_NOT_ENOUGH_DATA;
        }
        mPos += padded(size);
        return STATUS_OK;
    }
    /** A pointer to \p size readable bytes (plus padding) at the position, or null past the end. */
    const uint8_t* peek(size_t size) const {
        if (size > kMaxSize || remaining() < padded(size)) {
            return nullptr;
        }
        return mData + mPos;
    }

    /** Writes a fixed-size field (4 or 8 bytes: no padding). */
    template <typename T>
    binder_status_t write(T value) {
        static_assert(sizeof(T) % 4 == 0, "narrow fields travel as int32");
        if (mPos <= mSize && mCapacity - mPos >= sizeof(T)) {
            std::memcpy(mData + mPos, &value, sizeof(T));
            mPos += sizeof(T);
            mSize = mPos > mSize ? mPos : mSize;
            return STATUS_OK;
        }
        return writeBytes(&value, sizeof(T));
    }
    /** Reads a fixed-size field (4 or 8 bytes); fails past the end. */
    template <typename T>
    binder_status_t read(T* value) const {
        static_assert(sizeof(T) % 4 == 0, "narrow fields travel as int32");
        if (remaining() < sizeof(T)) {
            return STATUS_NOT_ENOUGH_DATA;
        }
        std::memcpy(value, mData + mPos, sizeof(T));
        mPos += sizeof(T);
        return STATUS_OK;
    }

    size_t remaining() const { return mPos < mSize ? mSize - mPos : 0; }
    size_t position() const { return mPos; }
    void setPosition(size_t position) const { mPos = position; }

    /** The data bytes, as they travel. */
    binder_host::ByteView data() const { return binder_host::ByteView(mData, mSize); }
    /** Replaces the data with a copy of \p size bytes (position 0); false without memory. */
    bool setData(const uint8_t* data, size_t size);

    const std::vector<binder_host::BinderRef>& objects() const { return mObjects; }
    std::vector<binder_host::BinderRef>& mutableObjects() { return mObjects; }
    AIBinder* target() const { return mTarget.get(); }

    static constexpr size_t padded(size_t size) { return (size + 3) & ~static_cast<size_t>(3); }

  private:
    static constexpr size_t kInlineCapacity = 256;

    /** writeSpace() when the buffer must grow or the position is past the end. */
    uint8_t* growForWrite(size_t size);
    /** Grows the buffer to hold at least \p needed bytes (at most kMaxSize); false without memory. */
    bool reserve(size_t needed);

    uint8_t* mData = mInline;  // mInline or a heap block of mCapacity bytes
    size_t mSize = 0;
    size_t mCapacity = kInlineCapacity;
    mutable size_t mPos = 0;
    std::vector<binder_host::BinderRef> mObjects;
    binder_host::BinderRef mTarget;  // the binder a request was prepared for
    uint8_t mInline[kInlineCapacity];
};
