// Private: frames as they travel between endpoints. Building them (Writer),
// cutting them out of a connection's receive buffer (FrameBuffer), reading
// their payload (Reader) and the parcels inside them (readParcel). Nothing
// here knows sockets, peers or binder objects.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

#include "wire.h"

namespace binder_host {

constexpr size_t kMaxKeyLength = 64;           // endpoint keys
constexpr size_t kMaxDescriptorLength = 4096;  // interface descriptors, instance names

/** Endpoint keys name socket files in the registry directory: "ep-<pid>-<hex>", no separators. */
bool validKey(const std::string& key);
/** The process id a key names, or 0 when it names none. */
int32_t keyPid(const std::string& key);

/** One received message; data points into the receive buffer until the next read. */
struct Frame {
    uint32_t type = 0;
    const uint8_t* data = nullptr;
    size_t size = 0;
};

/** Received bytes that frames are cut from; grows to at most one frame of \p maxFrame. */
class FrameBuffer {
  public:
    explicit FrameBuffer(uint32_t maxFrame = kMaxFrame) : mMaxFrame(maxFrame) {}

    /** Room for at least one more byte at the end; returns where to write and how much fits. */
    uint8_t* space(size_t* room);
    /** \p count bytes were written at the end. */
    void commit(size_t count) { mEnd += count; }
    /** Appends bytes (for a decoder that has all of them already). */
    void append(const uint8_t* data, size_t size);

    /**
     * Cuts a complete frame from the front. Returns -1 when the frame
     * announces more than the limit (before anything is allocated for it),
     * 0 when more bytes are needed, 1 with \p frame filled in.
     */
    int take(Frame* frame);
    size_t available() const { return mEnd - mStart; }
    /** The announced payload size of the frame at the front, if its header is here. */
    bool peekSize(uint32_t* size) const;

  private:
    static constexpr size_t kInitialSize = 4096;
    static constexpr size_t kKeepSize = size_t{64} * 1024;  // a larger buffer is dropped once empty

    uint32_t mMaxFrame;
    std::vector<uint8_t> mBuffer;
    size_t mStart = 0;
    size_t mEnd = 0;
};

/**
 * Builds one frame into a reusable byte vector (capacity is kept between
 * frames). While the frame is built the vector is raw room that doubles when
 * it fills up (zeroed only then), so a field is a bounds check and a copy;
 * finish() trims the vector to the frame.
 */
class Writer {
  public:
    explicit Writer(std::vector<uint8_t>& out) : mOut(out) {}
    void begin(uint32_t type) {
        mLength = 0;
        if (mOut.size() < kStartRoom) mOut.resize(kStartRoom);
        u32(0);
        u32(type);
    }
    void u32(uint32_t value) { bytes(&value, sizeof(value)); }
    void i32(int32_t value) { bytes(&value, sizeof(value)); }
    void u64(uint64_t value) { bytes(&value, sizeof(value)); }
    void str(const std::string& value) {
        u32(static_cast<uint32_t>(value.size()));
        bytes(value.data(), value.size());
    }
    void bytes(const void* data, size_t size) {
        if (mOut.size() - mLength < size) mOut.resize(std::max(mOut.size() * 2, mLength + size));
        if (size > 0) std::memcpy(mOut.data() + mLength, data, size);
        mLength += size;
    }
    /** Bytes written so far, header included. */
    size_t size() const { return mLength; }
    /** Fills in the payload size; the frame is ready to send. */
    const std::vector<uint8_t>& finish() {
        mOut.resize(mLength);
        auto size = static_cast<uint32_t>(mLength - kHeaderSize);
        std::memcpy(mOut.data(), &size, sizeof(size));
        return mOut;
    }

  private:
    static constexpr size_t kStartRoom = 256;

    std::vector<uint8_t>& mOut;
    size_t mLength = 0;
};

/** Reads a frame's payload; every read is bounds-checked. */
class Reader {
  public:
    Reader(const uint8_t* data, size_t size) : mData(data), mLeft(size) {}
    explicit Reader(const Frame& frame) : Reader(frame.data, frame.size) {}

    bool u32(uint32_t* value) { return bytes(value, sizeof(*value)); }
    bool i32(int32_t* value) { return bytes(value, sizeof(*value)); }
    bool u64(uint64_t* value) { return bytes(value, sizeof(*value)); }
    bool str(std::string* value, size_t maxLength);
    bool view(size_t size, const uint8_t** data) {
        if (size > mLeft) return false;
        *data = mData;
        mData += size;
        mLeft -= size;
        return true;
    }
    size_t left() const { return mLeft; }

  private:
    bool bytes(void* value, size_t size) {
        const uint8_t* data = nullptr;
        if (!view(size, &data)) return false;
        std::memcpy(value, data, size);
        return true;
    }

    const uint8_t* mData;
    size_t mLeft;
};

/** A binder object as a parcel carries it on the wire; an empty key is null. */
struct WireObject {
    std::string key;
    uint64_t nodeId = 0;
    std::string descriptor;
    uint32_t stability = 0;
};

/** Bytes an object takes on the wire with a key and a descriptor of these lengths. */
constexpr size_t wireObjectSize(size_t keyLength, size_t descriptorLength) {
    return 4 + keyLength + 8 + 4 + descriptorLength + 4;
}

/**
 * Reads a parcel as it travels (uint32 data size, the data, uint32 object
 * count, the objects): every field bounds-checked and every endpoint key
 * validated. Resolves nothing. \p data points into the frame (no copy).
 */
bool readParcel(Reader& in, const uint8_t** data, size_t* size, std::vector<WireObject>* objects);

}  // namespace binder_host
