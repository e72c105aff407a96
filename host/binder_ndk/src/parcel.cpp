// AParcel: bounds-checked reads and writes of primitives, strings, arrays,
// parcelables, binder objects and the reply status header.
#include <android/binder_parcel.h>

#include <climits>
#include <cstdlib>
#include <cstring>
#include <string>

#include "ibinder_internal.h"
#include "parcel_internal.h"
#include "status_internal.h"

namespace {

// Binder objects are written as a kind word followed by an index into the
// parcel's object table.
constexpr int32_t kNullBinder = 0;
constexpr int32_t kBinderObject = 1;

}  // namespace

AParcel::~AParcel() {
    if (mData != mInline) {
        std::free(mData);
    }
}

bool AParcel::reserve(size_t needed) {
    if (needed <= mCapacity) {
        return true;
    }
    size_t capacity = mCapacity * 2 > kMaxSize ? kMaxSize : mCapacity * 2;
    capacity = capacity < needed ? needed : capacity;
    auto* grown = static_cast<uint8_t*>(std::malloc(capacity));
    if (grown == nullptr) {
        return false;
    }
    std::memcpy(grown, mData, mSize);
    if (mData != mInline) {
        std::free(mData);
    }
    mData = grown;
    mCapacity = capacity;
    return true;
}

uint8_t* AParcel::growForWrite(size_t size) {
    if (size > kMaxSize || mPos > kMaxSize || padded(size) > kMaxSize - mPos) {
        return nullptr;
    }
    size_t end = mPos + padded(size);
    if (!reserve(end)) {
        return nullptr;
    }
    if (mPos > mSize) {
        std::memset(mData + mSize, 0, mPos - mSize);  // the gap a position past the end left
    }
    uint8_t* space = mData + mPos;
    std::memset(space + size, 0, padded(size) - size);
    mPos = end;
    mSize = end > mSize ? end : mSize;
    return space;
}

bool AParcel::setData(const uint8_t* data, size_t size) {
    mSize = 0;
    mPos = 0;
    if (size > kMaxSize || !reserve(size)) {
        return false;
    }
    if (size > 0) {
        std::memcpy(mData, data, size);
    }
    mSize = size;
    return true;
}

namespace {

// Reads an array length: -1 (null) or a length whose elements, at least
// minElementSize bytes each, fit in the rest of the parcel.
// On failure nothing is consumed.
binder_status_t readArrayLength(const AParcel* parcel, size_t minElementSize, int32_t* length) {
    size_t start = parcel->position();
    int32_t value = 0;
    binder_status_t status = parcel->read(&value);
    if (status == STATUS_OK && value < -1) {
        status = STATUS_BAD_VALUE;
    }
    if (status == STATUS_OK && value > 0 &&
        static_cast<size_t>(value) > parcel->remaining() / minElementSize) {
        status = STATUS_NOT_ENOUGH_DATA;
    }
    if (status != STATUS_OK) {
        parcel->setPosition(start);
        return status;
    }
    *length = value;
    return STATUS_OK;
}

// Checks the (data, length) pair of an array write: -1 is null, below is
// STATUS_BAD_VALUE, a positive length needs data.
binder_status_t checkArrayWrite(const void* data, int32_t length) {
    if (length < -1) {
        return STATUS_BAD_VALUE;
    }
    if (length > 0 && data == nullptr) {
        return STATUS_UNEXPECTED_NULL;
    }
    return STATUS_OK;
}

// Asks an array allocator for storage: refusing a null array is
// STATUS_UNEXPECTED_NULL, refusing a length STATUS_NO_MEMORY.
binder_status_t allocated(bool accepted, int32_t length) {
    if (accepted) {
        return STATUS_OK;
    }
    return length < 0 ? STATUS_UNEXPECTED_NULL : STATUS_NO_MEMORY;
}

// Wire is the type each element takes on the wire (int32 for the narrow ones).
template <typename T, typename Wire = T>
binder_status_t writeArray(AParcel* parcel, const T* data, int32_t length) {
    binder_status_t status = checkArrayWrite(data, length);
    if (status != STATUS_OK) {
        return status;
    }
    status = parcel->write(length);
    for (int32_t i = 0; i < length && status == STATUS_OK; ++i) {
        status = parcel->write(static_cast<Wire>(data[i]));
    }
    return status;
}

template <typename T, typename Wire = T, typename Allocator>
binder_status_t readArray(const AParcel* parcel, void* arrayData, Allocator allocator) {
    size_t start = parcel->position();
    int32_t length = 0;
    binder_status_t status = readArrayLength(parcel, sizeof(Wire), &length);
    if (status != STATUS_OK) {
        return status;
    }
    T* buffer = nullptr;
    status = allocated(allocator(arrayData, length, &buffer), length);
    if (status == STATUS_OK && length > 0 && buffer == nullptr) {
        status = STATUS_NO_MEMORY;
    }
    for (int32_t i = 0; i < length && status == STATUS_OK; ++i) {
        Wire value{};
        status = parcel->read(&value);
        buffer[i] = static_cast<T>(value);
    }
    if (status != STATUS_OK) {
        parcel->setPosition(start);
    }
    return status;
}

// Bytes are packed (one byte each, the array padded to 4).
binder_status_t writeByteArray(AParcel* parcel, const int8_t* data, int32_t length) {
    binder_status_t status = checkArrayWrite(data, length);
    if (status == STATUS_OK) {
        status = parcel->write(length);
    }
    if (status == STATUS_OK && length > 0) {
        status = parcel->writeBytes(data, static_cast<size_t>(length));
    }
    return status;
}

binder_status_t readByteArray(const AParcel* parcel, void* arrayData,
                              AParcel_byteArrayAllocator allocator) {
    size_t start = parcel->position();
    int32_t length = 0;
    binder_status_t status = readArrayLength(parcel, 1, &length);
    if (status == STATUS_OK && length > 0 && parcel->peek(static_cast<size_t>(length)) == nullptr) {
        status = STATUS_NOT_ENOUGH_DATA;
    }
    int8_t* buffer = nullptr;
    if (status == STATUS_OK) {
        status = allocated(allocator(arrayData, length, &buffer), length);
    }
    if (status == STATUS_OK && length > 0) {
        status = buffer != nullptr ? parcel->readBytes(buffer, static_cast<size_t>(length))
                                   : STATUS_NO_MEMORY;
    }
    if (status != STATUS_OK) {
        parcel->setPosition(start);
    }
    return status;
}

// Strings: int32 length (-1 null), the bytes, a NUL, padding.
binder_status_t writeStringValue(AParcel* parcel, const char* string, int32_t length) {
    if (string == nullptr || length < 0) {
        return string == nullptr && length == -1 ? parcel->write<int32_t>(-1) : STATUS_BAD_VALUE;
    }
    binder_status_t status = parcel->write(length);
    if (status != STATUS_OK) {
        return status;
    }
    // Bytes and terminator in one padded block.
    uint8_t* space = parcel->writeSpace(static_cast<size_t>(length) + 1);
    if (space == nullptr) {
        return STATUS_NO_MEMORY;
    }
    std::memcpy(space, string, static_cast<size_t>(length));
    space[length] = 0;
    return STATUS_OK;
}

// Reads a string header and returns the length (-1 for null) and the bytes.
binder_status_t readStringValue(const AParcel* parcel, int32_t* length, const char** bytes) {
    int32_t value = 0;
    binder_status_t status = parcel->read(&value);
    if (status != STATUS_OK) {
        return status;
    }
    if (value < -1 || value == INT32_MAX) {
        return STATUS_BAD_VALUE;
    }
    *length = value;
    *bytes = nullptr;
    if (value == -1) {
        return STATUS_OK;
    }
    size_t size = static_cast<size_t>(value) + 1;
    const uint8_t* data = parcel->peek(size);
    if (data == nullptr) {
        return STATUS_NOT_ENOUGH_DATA;
    }
    if (data[value] != 0) {
        return STATUS_BAD_VALUE;
    }
    *bytes = reinterpret_cast<const char*>(data);
    return parcel->skip(size);
}

// Copies a string read by readStringValue into storage from an allocator.
template <typename Allocate>
binder_status_t deliverString(int32_t length, const char* bytes, Allocate allocate) {
    char* buffer = nullptr;
    if (length < 0) {
        return allocate(-1, &buffer) ? STATUS_OK : STATUS_UNEXPECTED_NULL;
    }
    if (!allocate(length + 1, &buffer) || buffer == nullptr) {
        return STATUS_NO_MEMORY;
    }
    std::memcpy(buffer, bytes, static_cast<size_t>(length));
    buffer[length] = '\0';
    return STATUS_OK;
}

}  // namespace

void AParcel_delete(AParcel* parcel) {
    delete parcel;
}

binder_status_t AParcel_setDataPosition(const AParcel* parcel, int32_t position) {
    if (position < 0) {
        return STATUS_BAD_VALUE;
    }
    parcel->setPosition(static_cast<size_t>(position));
    return STATUS_OK;
}

int32_t AParcel_getDataPosition(const AParcel* parcel) {
    return static_cast<int32_t>(parcel->position());
}

binder_status_t AParcel_writeStrongBinder(AParcel* parcel, AIBinder* binder) {
    if (binder == nullptr) {
        return parcel->write(kNullBinder);
    }
    auto& objects = parcel->mutableObjects();
    binder_status_t status = parcel->write(kBinderObject);
    if (status == STATUS_OK) {
        status = parcel->write(static_cast<int32_t>(objects.size()));
    }
    if (status == STATUS_OK) {
        objects.push_back(binder_host::BinderRef::share(binder));
    }
    return status;
}

binder_status_t AParcel_readStrongBinder(const AParcel* parcel, AIBinder** binder) {
    size_t start = parcel->position();
    int32_t kind = 0;
    binder_status_t status = parcel->read(&kind);
    if (status != STATUS_OK) {
        return status;
    }
    if (kind == kNullBinder) {
        *binder = nullptr;
        return STATUS_OK;
    }
    int32_t index = -1;
    status = kind == kBinderObject ? parcel->read(&index) : STATUS_BAD_TYPE;
    if (status == STATUS_OK &&
        (index < 0 || static_cast<size_t>(index) >= parcel->objects().size())) {
        status = STATUS_BAD_VALUE;
    }
    if (status != STATUS_OK) {
        parcel->setPosition(start);
        return status;
    }
    *binder = binder_host::BinderRef(parcel->objects()[static_cast<size_t>(index)]).release();
    return STATUS_OK;
}

binder_status_t AParcel_writeParcelFileDescriptor(AParcel* parcel, int fd) {
    if (fd >= 0) {
        return STATUS_FDS_NOT_ALLOWED;
    }
    return parcel->write<int32_t>(0);
}

binder_status_t AParcel_readParcelFileDescriptor(const AParcel* parcel, int* fd) {
    int32_t present = 0;
    binder_status_t status = parcel->read(&present);
    if (status != STATUS_OK) {
        return status;
    }
    if (present != 0) {
        return STATUS_FDS_NOT_ALLOWED;
    }
    *fd = -1;
    return STATUS_OK;
}

binder_status_t AParcel_writeStatusHeader(AParcel* parcel, const AStatus* status) {
    if (status == nullptr) {
        return STATUS_UNEXPECTED_NULL;
    }
    if (status->mException == EX_TRANSACTION_FAILED) {
        return status->mStatus;
    }
    binder_status_t result = parcel->write(status->mException);
    if (result != STATUS_OK || status->mException == EX_NONE) {
        return result;
    }
    result = writeStringValue(parcel, status->mMessage.c_str(),
                              static_cast<int32_t>(status->mMessage.size()));
    if (result == STATUS_OK) {
        result = parcel->write<int32_t>(0);  // no remote stack trace
    }
    if (result == STATUS_OK && status->mException == EX_SERVICE_SPECIFIC) {
        result = parcel->write(status->mServiceSpecific);
    }
    return result;
}

binder_status_t AParcel_readStatusHeader(const AParcel* parcel, AStatus** status) {
    size_t start = parcel->position();
    int32_t exception = 0;
    binder_status_t result = parcel->read(&exception);
    if (result != STATUS_OK) {
        return result;
    }
    if (exception == EX_NONE) {
        *status = AStatus_newOk();
        return STATUS_OK;
    }
    int32_t messageLength = -1;
    const char* message = nullptr;
    int32_t traceSize = 0;
    int32_t serviceSpecific = 0;
    result = readStringValue(parcel, &messageLength, &message);
    if (result == STATUS_OK) {
        result = parcel->read(&traceSize);
    }
    if (result == STATUS_OK) {
        result = traceSize < 0 ? STATUS_BAD_VALUE : parcel->skip(static_cast<size_t>(traceSize));
    }
    if (result == STATUS_OK && exception == EX_SERVICE_SPECIFIC) {
        result = parcel->read(&serviceSpecific);
    }
    if (result != STATUS_OK) {
        parcel->setPosition(start);
        return result;
    }
    std::string text = message != nullptr ? std::string(message, messageLength) : std::string();
    *status = exception == EX_SERVICE_SPECIFIC
                      ? AStatus_fromServiceSpecificErrorWithMessage(serviceSpecific, text.c_str())
                      : AStatus_fromExceptionCodeWithMessage(exception, text.c_str());
    return STATUS_OK;
}

binder_status_t AParcel_writeString(AParcel* parcel, const char* string, int32_t length) {
    return writeStringValue(parcel, string, length);
}

binder_status_t AParcel_readString(const AParcel* parcel, void* stringData,
                                   AParcel_stringAllocator allocator) {
    size_t start = parcel->position();
    int32_t length = -1;
    const char* bytes = nullptr;
    binder_status_t status = readStringValue(parcel, &length, &bytes);
    if (status == STATUS_OK) {
        status = deliverString(length, bytes, [&](int32_t size, char** buffer) {
            return allocator(stringData, size, buffer);
        });
    }
    if (status != STATUS_OK) {
        parcel->setPosition(start);
    }
    return status;
}

binder_status_t AParcel_writeStringArray(AParcel* parcel, const void* arrayData, int32_t length,
                                         AParcel_stringArrayElementGetter getter) {
    binder_status_t status = checkArrayWrite(arrayData, length);
    if (status == STATUS_OK) {
        status = parcel->write(length);
    }
    for (int32_t i = 0; i < length && status == STATUS_OK; ++i) {
        int32_t elementLength = -1;
        const char* element = getter(arrayData, static_cast<size_t>(i), &elementLength);
        status = writeStringValue(parcel, element, elementLength);
    }
    return status;
}

binder_status_t AParcel_readStringArray(const AParcel* parcel, void* arrayData,
                                        AParcel_stringArrayAllocator allocator,
                                        AParcel_stringArrayElementAllocator elementAllocator) {
    size_t start = parcel->position();
    int32_t length = 0;
    binder_status_t status = readArrayLength(parcel, sizeof(int32_t), &length);
    if (status == STATUS_OK) {
        status = allocated(allocator(arrayData, length), length);
    }
    for (int32_t i = 0; i < length && status == STATUS_OK; ++i) {
        int32_t elementLength = -1;
        const char* bytes = nullptr;
        status = readStringValue(parcel, &elementLength, &bytes);
        if (status == STATUS_OK) {
            status = deliverString(elementLength, bytes, [&](int32_t size, char** buffer) {
                return elementAllocator(arrayData, static_cast<size_t>(i), size, buffer);
            });
        }
    }
    if (status != STATUS_OK) {
        parcel->setPosition(start);
    }
    return status;
}

binder_status_t AParcel_writeParcelableArray(AParcel* parcel, const void* arrayData, int32_t length,
                                             AParcel_writeParcelableElement elementWriter) {
    binder_status_t status = checkArrayWrite(arrayData, length);
    if (status == STATUS_OK) {
        status = parcel->write(length);
    }
    for (int32_t i = 0; i < length && status == STATUS_OK; ++i) {
        status = elementWriter(parcel, arrayData, static_cast<size_t>(i));
    }
    return status;
}

binder_status_t AParcel_readParcelableArray(const AParcel* parcel, void* arrayData,
                                            AParcel_parcelableArrayAllocator allocator,
                                            AParcel_readParcelableElement elementReader) {
    size_t start = parcel->position();
    int32_t length = 0;
    binder_status_t status = readArrayLength(parcel, sizeof(int32_t), &length);
    if (status == STATUS_OK) {
        status = allocated(allocator(arrayData, length), length);
    }
    for (int32_t i = 0; i < length && status == STATUS_OK; ++i) {
        status = elementReader(parcel, arrayData, static_cast<size_t>(i));
    }
    if (status != STATUS_OK) {
        parcel->setPosition(start);
    }
    return status;
}

binder_status_t AParcel_writeInt32(AParcel* parcel, int32_t value) {
    return parcel->write(value);
}
binder_status_t AParcel_writeUint32(AParcel* parcel, uint32_t value) {
    return parcel->write(value);
}
binder_status_t AParcel_writeInt64(AParcel* parcel, int64_t value) {
    return parcel->write(value);
}
binder_status_t AParcel_writeUint64(AParcel* parcel, uint64_t value) {
    return parcel->write(value);
}
binder_status_t AParcel_writeFloat(AParcel* parcel, float value) {
    return parcel->write(value);
}
binder_status_t AParcel_writeDouble(AParcel* parcel, double value) {
    return parcel->write(value);
}
binder_status_t AParcel_writeBool(AParcel* parcel, bool value) {
    return parcel->write(static_cast<int32_t>(value));
}
binder_status_t AParcel_writeChar(AParcel* parcel, char16_t value) {
    return parcel->write(static_cast<int32_t>(value));
}
binder_status_t AParcel_writeByte(AParcel* parcel, int8_t value) {
    return parcel->write(static_cast<int32_t>(value));
}

namespace {

// Narrow types travel as int32; the value is written only on success.
template <typename T>
binder_status_t readNarrow(const AParcel* parcel, T* value) {
    int32_t wide = 0;
    binder_status_t status = parcel->read(&wide);
    if (status == STATUS_OK) {
        *value = static_cast<T>(wide);
    }
    return status;
}

}  // namespace

binder_status_t AParcel_readInt32(const AParcel* parcel, int32_t* value) {
    return parcel->read(value);
}
binder_status_t AParcel_readUint32(const AParcel* parcel, uint32_t* value) {
    return parcel->read(value);
}
binder_status_t AParcel_readInt64(const AParcel* parcel, int64_t* value) {
    return parcel->read(value);
}
binder_status_t AParcel_readUint64(const AParcel* parcel, uint64_t* value) {
    return parcel->read(value);
}
binder_status_t AParcel_readFloat(const AParcel* parcel, float* value) {
    return parcel->read(value);
}
binder_status_t AParcel_readDouble(const AParcel* parcel, double* value) {
    return parcel->read(value);
}
binder_status_t AParcel_readBool(const AParcel* parcel, bool* value) {
    int32_t wide = 0;
    binder_status_t status = parcel->read(&wide);
    if (status == STATUS_OK) {
        *value = wide != 0;
    }
    return status;
}
binder_status_t AParcel_readChar(const AParcel* parcel, char16_t* value) {
    return readNarrow(parcel, value);
}
binder_status_t AParcel_readByte(const AParcel* parcel, int8_t* value) {
    return readNarrow(parcel, value);
}

binder_status_t AParcel_writeInt32Array(AParcel* parcel, const int32_t* arrayData, int32_t length) {
    return writeArray(parcel, arrayData, length);
}
binder_status_t AParcel_writeUint32Array(AParcel* parcel, const uint32_t* arrayData,
                                         int32_t length) {
    return writeArray(parcel, arrayData, length);
}
binder_status_t AParcel_writeInt64Array(AParcel* parcel, const int64_t* arrayData, int32_t length) {
    return writeArray(parcel, arrayData, length);
}
binder_status_t AParcel_writeUint64Array(AParcel* parcel, const uint64_t* arrayData,
                                         int32_t length) {
    return writeArray(parcel, arrayData, length);
}
binder_status_t AParcel_writeFloatArray(AParcel* parcel, const float* arrayData, int32_t length) {
    return writeArray(parcel, arrayData, length);
}
binder_status_t AParcel_writeDoubleArray(AParcel* parcel, const double* arrayData, int32_t length) {
    return writeArray(parcel, arrayData, length);
}
binder_status_t AParcel_writeCharArray(AParcel* parcel, const char16_t* arrayData, int32_t length) {
    return writeArray<char16_t, int32_t>(parcel, arrayData, length);
}
binder_status_t AParcel_writeByteArray(AParcel* parcel, const int8_t* arrayData, int32_t length) {
    return writeByteArray(parcel, arrayData, length);
}

binder_status_t AParcel_writeBoolArray(AParcel* parcel, const void* arrayData, int32_t length,
                                       AParcel_boolArrayGetter getter) {
    binder_status_t status = checkArrayWrite(arrayData, length);
    if (status == STATUS_OK) {
        status = parcel->write(length);
    }
    for (int32_t i = 0; i < length && status == STATUS_OK; ++i) {
        status = parcel->write(static_cast<int32_t>(getter(arrayData, static_cast<size_t>(i))));
    }
    return status;
}

binder_status_t AParcel_readInt32Array(const AParcel* parcel, void* arrayData,
                                       AParcel_int32ArrayAllocator allocator) {
    return readArray<int32_t>(parcel, arrayData, allocator);
}
binder_status_t AParcel_readUint32Array(const AParcel* parcel, void* arrayData,
                                        AParcel_uint32ArrayAllocator allocator) {
    return readArray<uint32_t>(parcel, arrayData, allocator);
}
binder_status_t AParcel_readInt64Array(const AParcel* parcel, void* arrayData,
                                       AParcel_int64ArrayAllocator allocator) {
    return readArray<int64_t>(parcel, arrayData, allocator);
}
binder_status_t AParcel_readUint64Array(const AParcel* parcel, void* arrayData,
                                        AParcel_uint64ArrayAllocator allocator) {
    return readArray<uint64_t>(parcel, arrayData, allocator);
}
binder_status_t AParcel_readFloatArray(const AParcel* parcel, void* arrayData,
                                       AParcel_floatArrayAllocator allocator) {
    return readArray<float>(parcel, arrayData, allocator);
}
binder_status_t AParcel_readDoubleArray(const AParcel* parcel, void* arrayData,
                                        AParcel_doubleArrayAllocator allocator) {
    return readArray<double>(parcel, arrayData, allocator);
}
binder_status_t AParcel_readCharArray(const AParcel* parcel, void* arrayData,
                                      AParcel_charArrayAllocator allocator) {
    return readArray<char16_t, int32_t>(parcel, arrayData, allocator);
}
binder_status_t AParcel_readByteArray(const AParcel* parcel, void* arrayData,
                                      AParcel_byteArrayAllocator allocator) {
    return readByteArray(parcel, arrayData, allocator);
}

binder_status_t AParcel_readBoolArray(const AParcel* parcel, void* arrayData,
                                      AParcel_boolArrayAllocator allocator,
                                      AParcel_boolArraySetter setter) {
    size_t start = parcel->position();
    int32_t length = 0;
    binder_status_t status = readArrayLength(parcel, sizeof(int32_t), &length);
    if (status == STATUS_OK) {
        status = allocated(allocator(arrayData, length), length);
    }
    for (int32_t i = 0; i < length && status == STATUS_OK; ++i) {
        int32_t value = 0;
        status = parcel->read(&value);
        if (status == STATUS_OK) {
            setter(arrayData, static_cast<size_t>(i), value != 0);
        }
    }
    if (status != STATUS_OK) {
        parcel->setPosition(start);
    }
    return status;
}
