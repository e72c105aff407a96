// Frames: building, cutting from a byte stream, reading; and the frame
// decoder on its own for the fuzz target.
#include "frames.h"

#include <algorithm>
#include <cstdlib>

#include "frame_decoder.h"
#include "status_internal.h"

namespace binder_host {

bool validKey(const std::string& key) {
    if (key.size() > kMaxKeyLength || keyPid(key) == 0) return false;
    return std::all_of(key.begin(), key.end(), [](char c) {
        return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') ||
               c == '-' || c == '_' || c == '.';
    });
}

int32_t keyPid(const std::string& key) {
    constexpr const char kPrefix[] = "ep-";
    if (key.compare(0, sizeof(kPrefix) - 1, kPrefix) != 0) return 0;
    int32_t pid = 0;
    size_t at = sizeof(kPrefix) - 1;
    for (; at < key.size() && key[at] >= '0' && key[at] <= '9'; ++at) {
        if (pid > (INT32_MAX - 9) / 10) return 0;
        pid = pid * 10 + (key[at] - '0');
    }
    bool separated = at > sizeof(kPrefix) - 1 && at + 1 < key.size() && key[at] == '-';
    return separated ? pid : 0;
}

uint8_t* FrameBuffer::space(size_t* room) {
    if (mStart == mEnd) {
        mStart = mEnd = 0;
        if (mBuffer.size() > kKeepSize) {
            std::vector<uint8_t>().swap(mBuffer);
        }
    } else if (mStart > 0 && mEnd == mBuffer.size()) {
        std::memmove(mBuffer.data(), mBuffer.data() + mStart, mEnd - mStart);
        mEnd -= mStart;
        mStart = 0;
    }
    if (mEnd == mBuffer.size()) {
        // Grows for the frame being received, never beyond one frame of the limit.
        size_t needed = mEnd + 1;
        uint32_t announced = 0;
        if (peekSize(&announced) && announced <= mMaxFrame) {
            needed = std::max(needed, kHeaderSize + announced);
        }
        size_t limit = kHeaderSize + mMaxFrame;
        size_t grown = std::max({kInitialSize, mBuffer.size() * 2, needed});
        mBuffer.resize(std::min(grown, std::max(limit, needed)));
    }
    *room = mBuffer.size() - mEnd;
    return mBuffer.data() + mEnd;
}

void FrameBuffer::append(const uint8_t* data, size_t size) {
    mBuffer.insert(mBuffer.begin() + static_cast<ptrdiff_t>(mEnd), data, data + size);
    mEnd += size;
}

bool FrameBuffer::peekSize(uint32_t* size) const {
    if (available() < kHeaderSize) return false;
    std::memcpy(size, mBuffer.data() + mStart, sizeof(*size));
    return true;
}

int FrameBuffer::take(Frame* frame) {
    uint32_t size = 0;
    if (!peekSize(&size)) return 0;
    if (size > mMaxFrame) return -1;
    if (available() < kHeaderSize + size) return 0;
    std::memcpy(&frame->type, mBuffer.data() + mStart + 4, sizeof(frame->type));
    frame->data = mBuffer.data() + mStart + kHeaderSize;
    frame->size = size;
    mStart += kHeaderSize + size;
    return 1;
}

bool Reader::str(std::string* value, size_t maxLength) {
    uint32_t length = 0;
    const uint8_t* data = nullptr;
    if (!u32(&length) || length > maxLength || !view(length, &data)) return false;
    value->assign(reinterpret_cast<const char*>(data), length);
    return true;
}

bool readParcel(Reader& in, const uint8_t** data, size_t* size, std::vector<WireObject>* objects) {
    uint32_t dataSize = 0;
    const uint8_t* bytes = nullptr;
    uint32_t count = 0;
    if (!in.u32(&dataSize) || !in.view(dataSize, &bytes) || !in.u32(&count)) return false;
    *data = bytes;
    *size = dataSize;
    if (count > in.left() / wireObjectSize(0, 0)) return false;
    objects->reserve(count);
    for (uint32_t i = 0; i < count; ++i) {
        WireObject object;
        if (!in.str(&object.key, kMaxKeyLength) || !in.u64(&object.nodeId) ||
            !in.str(&object.descriptor, kMaxDescriptorLength) || !in.u32(&object.stability)) {
            return false;
        }
        if (!object.key.empty() && !validKey(object.key)) return false;
        objects->push_back(std::move(object));
    }
    return true;
}

size_t decodeFrames(const uint8_t* data, size_t size, std::vector<std::vector<uint8_t>>* parcels) {
    FrameBuffer stream;
    stream.append(data, size);
    size_t decoded = 0;
    Frame frame;
    for (;;) {
        // All bytes are here: a frame longer than what is left never completes.
        uint32_t declared = 0;
        if (!stream.peekSize(&declared) || declared > stream.available() - kHeaderSize ||
            stream.take(&frame) <= 0) {
            break;
        }
        Reader reader(frame);
        uint64_t node = 0;
        uint32_t word = 0;
        int32_t number = 0;
        std::string text;
        const uint8_t* parcel = nullptr;
        size_t parcelSize = 0;
        std::vector<WireObject> objects;
        bool ok = false;
        switch (frame.type) {
            case kHelloData:
            case kHelloControl:
                ok = reader.i32(&number) && reader.str(&text, kMaxKeyLength) && validKey(text);
                break;
            case kHelloProbe:
                ok = true;
                break;
            case kTransact:
            case kTransactOneway:
                ok = reader.u64(&node) && reader.u32(&word) &&
                     readParcel(reader, &parcel, &parcelSize, &objects);
                break;
            case kReply:
                ok = reader.i32(&number) && reader.u32(&word) &&
                     (normalizeStatus(number) != STATUS_OK ||
                      readParcel(reader, &parcel, &parcelSize, &objects));
                break;
            case kPing:
            case kAcquire:
            case kDead:
                ok = reader.u64(&node);
                break;
            case kRelease:
                ok = reader.u64(&node) && reader.u32(&word);
                break;
            case kGetService:
                ok = reader.str(&text, kMaxDescriptorLength);
                break;
            default:
                break;
        }
        if (!ok) break;
        if (parcels != nullptr &&
            (frame.type == kTransact || frame.type == kTransactOneway || frame.type == kReply)) {
            parcels->emplace_back(parcel, parcel + parcelSize);
        }
        ++decoded;
    }
    return decoded;
}

}  // namespace binder_host
