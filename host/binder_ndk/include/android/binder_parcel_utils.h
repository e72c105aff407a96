/*
 * Binder NDK runtime for Linux hosts: C++ parcel helpers for std::string,
 * std::optional, std::vector, parcelables, binders and file descriptors
 * (header-only, as on a device; same names as Android 11's
 * <android/binder_parcel_utils.h>).
 *
 * "Nullable" forms map a null string or array to an empty std::optional;
 * the plain forms fail with STATUS_UNEXPECTED_NULL when the parcel holds
 * null. A parcelable type P provides
 *   binder_status_t writeToParcel(AParcel*) const;
 *   binder_status_t readFromParcel(const AParcel*);
 * and is written after an int32 marker (1 present, 0 null).
 */
#pragma once

#include <android/binder_auto_utils.h>
#include <android/binder_parcel.h>

#include <climits>
#include <cstring>
#include <optional>
#include <string>
#include <vector>

namespace ndk {

namespace internal {

/** The int32 length of a container, or -2 (rejected as STATUS_BAD_VALUE) when too large. */
template <typename C>
inline int32_t containerLength(const C& container) {
    return container.size() > static_cast<size_t>(INT32_MAX)
                   ? -2
                   : static_cast<int32_t>(container.size());
}

}  // namespace internal

// ---- strings -------------------------------------------------------------

/** Allocator for std::string: refuses null (-1). */
inline bool AParcel_stdStringAllocator(void* stringData, int32_t length, char** buffer) {
    if (length <= 0) {
        return false;
    }
    auto* str = static_cast<std::string*>(stringData);
    str->resize(static_cast<size_t>(length) - 1);
    *buffer = &(*str)[0];
    return true;
}

/** Allocator for std::optional<std::string>: null resets the optional. */
inline bool AParcel_nullableStdStringAllocator(void* stringData, int32_t length, char** buffer) {
    auto* str = static_cast<std::optional<std::string>*>(stringData);
    if (length < 0) {
        *str = std::nullopt;
        return true;
    }
    str->emplace();
    return AParcel_stdStringAllocator(&**str, length, buffer);
}

inline binder_status_t AParcel_writeString(AParcel* parcel, const std::string& str) {
    int32_t length = internal::containerLength(str);
    return length < 0 ? STATUS_BAD_VALUE : ::AParcel_writeString(parcel, str.c_str(), length);
}

inline binder_status_t AParcel_readString(const AParcel* parcel, std::string* str) {
    return ::AParcel_readString(parcel, str, AParcel_stdStringAllocator);
}

inline binder_status_t AParcel_writeString(AParcel* parcel, const std::optional<std::string>& str) {
    if (!str) {
        return ::AParcel_writeString(parcel, nullptr, -1);
    }
    return AParcel_writeString(parcel, *str);
}

inline binder_status_t AParcel_readString(const AParcel* parcel, std::optional<std::string>* str) {
    return ::AParcel_readString(parcel, str, AParcel_nullableStdStringAllocator);
}

// ---- vector allocators -----------------------------------------------------

/** Sizes a std::vector<T> for \p length elements; refuses null (-1). */
template <typename T>
inline bool AParcel_stdVectorAllocator(void* vectorData, int32_t length) {
    if (length < 0) {
        return false;
    }
    static_cast<std::vector<T>*>(vectorData)->resize(static_cast<size_t>(length));
    return true;
}

/** Sizes a std::optional<std::vector<T>>; null (-1) resets it. */
template <typename T>
inline bool AParcel_nullableStdVectorAllocator(void* vectorData, int32_t length) {
    auto* vec = static_cast<std::optional<std::vector<T>>*>(vectorData);
    if (length < 0) {
        *vec = std::nullopt;
        return true;
    }
    vec->emplace(static_cast<size_t>(length));
    return true;
}

/** Primitive-array allocator for std::vector<T>: refuses null (-1). */
template <typename T>
inline bool AParcel_stdVectorExternalAllocator(void* vectorData, int32_t length, T** outBuffer) {
    if (!AParcel_stdVectorAllocator<T>(vectorData, length)) {
        return false;
    }
    *outBuffer = static_cast<std::vector<T>*>(vectorData)->data();
    return true;
}

/** Primitive-array allocator for std::optional<std::vector<T>>. */
template <typename T>
inline bool AParcel_nullableStdVectorExternalAllocator(void* vectorData, int32_t length,
                                                       T** outBuffer) {
    auto* vec = static_cast<std::optional<std::vector<T>>*>(vectorData);
    AParcel_nullableStdVectorAllocator<T>(vectorData, length);
    *outBuffer = *vec ? (*vec)->data() : nullptr;
    return true;
}

// ---- vectors of strings ----------------------------------------------------

inline bool AParcel_stdVectorStringElementAllocator(void* vectorData, size_t index, int32_t length,
                                                    char** buffer) {
    auto* vec = static_cast<std::vector<std::string>*>(vectorData);
    return AParcel_stdStringAllocator(&vec->at(index), length, buffer);
}

inline const char* AParcel_stdVectorStringElementGetter(const void* vectorData, size_t index,
                                                        int32_t* outLength) {
    const std::string& element = static_cast<const std::vector<std::string>*>(vectorData)->at(index);
    *outLength = internal::containerLength(element);
    return element.c_str();
}

template <typename V>
inline bool AParcel_nullableStringElementAllocator(V* vec, size_t index, int32_t length,
                                                   char** buffer) {
    return AParcel_nullableStdStringAllocator(&vec->at(index), length, buffer);
}

template <typename V>
inline const char* AParcel_nullableStringElementGetter(const V& vec, size_t index,
                                                       int32_t* outLength) {
    const std::optional<std::string>& element = vec.at(index);
    if (!element) {
        *outLength = -1;
        return nullptr;
    }
    *outLength = internal::containerLength(*element);
    return element->c_str();
}

inline bool AParcel_stdVectorNullableStringElementAllocator(void* vectorData, size_t index,
                                                            int32_t length, char** buffer) {
    return AParcel_nullableStringElementAllocator(
            static_cast<std::vector<std::optional<std::string>>*>(vectorData), index, length,
            buffer);
}

inline const char* AParcel_stdVectorNullableStringElementGetter(const void* vectorData,
                                                                size_t index, int32_t* outLength) {
    return AParcel_nullableStringElementGetter(
            *static_cast<const std::vector<std::optional<std::string>>*>(vectorData), index,
            outLength);
}

inline bool AParcel_nullableStdVectorNullableStringElementAllocator(void* vectorData, size_t index,
                                                                    int32_t length, char** buffer) {
    auto* vec = static_cast<std::optional<std::vector<std::optional<std::string>>>*>(vectorData);
    return AParcel_nullableStringElementAllocator(&**vec, index, length, buffer);
}

inline const char* AParcel_nullableStdVectorNullableStringElementGetter(const void* vectorData,
                                                                        size_t index,
                                                                        int32_t* outLength) {
    const auto* vec =
            static_cast<const std::optional<std::vector<std::optional<std::string>>>*>(vectorData);
    return AParcel_nullableStringElementGetter(**vec, index, outLength);
}

inline binder_status_t AParcel_writeVector(AParcel* parcel, const std::vector<std::string>& vec) {
    return AParcel_writeStringArray(parcel, &vec, internal::containerLength(vec),
                                    AParcel_stdVectorStringElementGetter);
}

inline binder_status_t AParcel_readVector(const AParcel* parcel, std::vector<std::string>* vec) {
    return AParcel_readStringArray(parcel, vec, AParcel_stdVectorAllocator<std::string>,
                                   AParcel_stdVectorStringElementAllocator);
}

inline binder_status_t AParcel_writeVector(AParcel* parcel,
                                           const std::vector<std::optional<std::string>>& vec) {
    return AParcel_writeStringArray(parcel, &vec, internal::containerLength(vec),
                                    AParcel_stdVectorNullableStringElementGetter);
}

inline binder_status_t AParcel_readVector(const AParcel* parcel,
                                          std::vector<std::optional<std::string>>* vec) {
    return AParcel_readStringArray(parcel, vec,
                                   AParcel_stdVectorAllocator<std::optional<std::string>>,
                                   AParcel_stdVectorNullableStringElementAllocator);
}

inline binder_status_t AParcel_writeVector(
        AParcel* parcel, const std::optional<std::vector<std::optional<std::string>>>& vec) {
    if (!vec) {
        return AParcel_writeStringArray(parcel, nullptr, -1,
                                        AParcel_nullableStdVectorNullableStringElementGetter);
    }
    return AParcel_writeStringArray(parcel, &vec, internal::containerLength(*vec),
                                    AParcel_nullableStdVectorNullableStringElementGetter);
}

inline binder_status_t AParcel_readVector(
        const AParcel* parcel, std::optional<std::vector<std::optional<std::string>>>* vec) {
    return AParcel_readStringArray(parcel, vec,
                                   AParcel_nullableStdVectorAllocator<std::optional<std::string>>,
                                   AParcel_nullableStdVectorNullableStringElementAllocator);
}

// ---- vectors of primitives -------------------------------------------------

// For each primitive type: write/read of std::vector<T> and of
// std::optional<std::vector<T>> (an empty optional is a null array).
// T is a type used as a template argument, where parentheses cannot go.
// NOLINTBEGIN(bugprone-macro-parentheses)
#define ZEL_BINDER_PRIMITIVE_VECTOR(T, Name)                                                   \
    inline binder_status_t AParcel_writeVector(AParcel* parcel, const std::vector<T>& vec) {   \
        return AParcel_write##Name##Array(parcel, vec.data(), internal::containerLength(vec)); \
    }                                                                                          \
    inline binder_status_t AParcel_writeVector(AParcel* parcel,                                \
                                               const std::optional<std::vector<T>>& vec) {     \
        return vec ? AParcel_writeVector(parcel, *vec)                                         \
                   : AParcel_write##Name##Array(parcel, nullptr, -1);                          \
    }                                                                                          \
    inline binder_status_t AParcel_readVector(const AParcel* parcel, std::vector<T>* vec) {    \
        return AParcel_read##Name##Array(parcel, vec, AParcel_stdVectorExternalAllocator<T>);  \
    }                                                                                          \
    inline binder_status_t AParcel_readVector(const AParcel* parcel,                           \
                                              std::optional<std::vector<T>>* vec) {            \
        return AParcel_read##Name##Array(parcel, vec,                                          \
                                         AParcel_nullableStdVectorExternalAllocator<T>);       \
    }
// NOLINTEND(bugprone-macro-parentheses)

ZEL_BINDER_PRIMITIVE_VECTOR(int32_t, Int32)
ZEL_BINDER_PRIMITIVE_VECTOR(uint32_t, Uint32)
ZEL_BINDER_PRIMITIVE_VECTOR(int64_t, Int64)
ZEL_BINDER_PRIMITIVE_VECTOR(uint64_t, Uint64)
ZEL_BINDER_PRIMITIVE_VECTOR(float, Float)
ZEL_BINDER_PRIMITIVE_VECTOR(double, Double)
ZEL_BINDER_PRIMITIVE_VECTOR(char16_t, Char)
ZEL_BINDER_PRIMITIVE_VECTOR(int8_t, Byte)

#undef ZEL_BINDER_PRIMITIVE_VECTOR

/** AIDL byte[] as std::vector<uint8_t>: the same wire form as int8_t. */
inline bool AParcel_stdVectorUint8Allocator(void* vectorData, int32_t length, int8_t** outBuffer) {
    uint8_t* buffer = nullptr;
    if (!AParcel_stdVectorExternalAllocator<uint8_t>(vectorData, length, &buffer)) {
        return false;
    }
    *outBuffer = reinterpret_cast<int8_t*>(buffer);
    return true;
}

inline bool AParcel_nullableStdVectorUint8Allocator(void* vectorData, int32_t length,
                                                    int8_t** outBuffer) {
    uint8_t* buffer = nullptr;
    AParcel_nullableStdVectorExternalAllocator<uint8_t>(vectorData, length, &buffer);
    *outBuffer = reinterpret_cast<int8_t*>(buffer);
    return true;
}

inline binder_status_t AParcel_writeVector(AParcel* parcel, const std::vector<uint8_t>& vec) {
    return AParcel_writeByteArray(parcel, reinterpret_cast<const int8_t*>(vec.data()),
                                  internal::containerLength(vec));
}

inline binder_status_t AParcel_writeVector(AParcel* parcel,
                                           const std::optional<std::vector<uint8_t>>& vec) {
    return vec ? AParcel_writeVector(parcel, *vec) : AParcel_writeByteArray(parcel, nullptr, -1);
}

inline binder_status_t AParcel_readVector(const AParcel* parcel, std::vector<uint8_t>* vec) {
    return AParcel_readByteArray(parcel, vec, AParcel_stdVectorUint8Allocator);
}

inline binder_status_t AParcel_readVector(const AParcel* parcel,
                                          std::optional<std::vector<uint8_t>>* vec) {
    return AParcel_readByteArray(parcel, vec, AParcel_nullableStdVectorUint8Allocator);
}

// std::vector<bool> has no contiguous storage: elements go through a getter and a setter.
inline bool AParcel_stdVectorBoolGetter(const void* vectorData, size_t index) {
    return static_cast<const std::vector<bool>*>(vectorData)->at(index);
}

inline void AParcel_stdVectorBoolSetter(void* vectorData, size_t index, bool value) {
    static_cast<std::vector<bool>*>(vectorData)->at(index) = value;
}

inline bool AParcel_nullableStdVectorBoolGetter(const void* vectorData, size_t index) {
    return (*static_cast<const std::optional<std::vector<bool>>*>(vectorData))->at(index);
}

inline void AParcel_nullableStdVectorBoolSetter(void* vectorData, size_t index, bool value) {
    (*static_cast<std::optional<std::vector<bool>>*>(vectorData))->at(index) = value;
}

inline binder_status_t AParcel_writeVector(AParcel* parcel, const std::vector<bool>& vec) {
    return AParcel_writeBoolArray(parcel, &vec, internal::containerLength(vec),
                                  AParcel_stdVectorBoolGetter);
}

inline binder_status_t AParcel_writeVector(AParcel* parcel,
                                           const std::optional<std::vector<bool>>& vec) {
    return AParcel_writeBoolArray(parcel, &vec, vec ? internal::containerLength(*vec) : -1,
                                  AParcel_nullableStdVectorBoolGetter);
}

inline binder_status_t AParcel_readVector(const AParcel* parcel, std::vector<bool>* vec) {
    return AParcel_readBoolArray(parcel, vec, AParcel_stdVectorAllocator<bool>,
                                 AParcel_stdVectorBoolSetter);
}

inline binder_status_t AParcel_readVector(const AParcel* parcel,
                                          std::optional<std::vector<bool>>* vec) {
    return AParcel_readBoolArray(parcel, vec, AParcel_nullableStdVectorAllocator<bool>,
                                 AParcel_nullableStdVectorBoolSetter);
}

// ---- parcelables -------------------------------------------------------------

/** Writes \p p after a non-null marker (int32 1). */
template <typename P>
inline binder_status_t AParcel_writeParcelable(AParcel* parcel, const P& p) {
    binder_status_t status = AParcel_writeInt32(parcel, 1);
    if (status != STATUS_OK) {
        return status;
    }
    return p.writeToParcel(parcel);
}

/** Reads a parcelable written by AParcel_writeParcelable; a null marker is STATUS_UNEXPECTED_NULL. */
template <typename P>
inline binder_status_t AParcel_readParcelable(const AParcel* parcel, P* p) {
    int32_t marker = 0;
    binder_status_t status = AParcel_readInt32(parcel, &marker);
    if (status != STATUS_OK) {
        return status;
    }
    if (marker == 0) {
        return STATUS_UNEXPECTED_NULL;
    }
    return p->readFromParcel(parcel);
}

/** Writes an optional parcelable: marker 0 when empty. */
template <typename P>
inline binder_status_t AParcel_writeNullableParcelable(AParcel* parcel, const std::optional<P>& p) {
    if (!p) {
        return AParcel_writeInt32(parcel, 0);
    }
    return AParcel_writeParcelable(parcel, *p);
}

/** Reads an optional parcelable: marker 0 gives an empty optional. */
template <typename P>
inline binder_status_t AParcel_readNullableParcelable(const AParcel* parcel, std::optional<P>* p) {
    int32_t marker = 0;
    binder_status_t status = AParcel_readInt32(parcel, &marker);
    if (status != STATUS_OK) {
        return status;
    }
    if (marker == 0) {
        *p = std::nullopt;
        return STATUS_OK;
    }
    p->emplace();
    return (*p)->readFromParcel(parcel);
}

/** Element writer for a std::vector<P>: each element with its marker. */
template <typename P>
inline binder_status_t AParcel_writeStdVectorParcelableElement(AParcel* parcel,
                                                               const void* vectorData,
                                                               size_t index) {
    return AParcel_writeParcelable(parcel,
                                   static_cast<const std::vector<P>*>(vectorData)->at(index));
}

/** Element reader for a std::vector<P>. */
template <typename P>
inline binder_status_t AParcel_readStdVectorParcelableElement(const AParcel* parcel,
                                                              void* vectorData, size_t index) {
    return AParcel_readParcelable(parcel, &static_cast<std::vector<P>*>(vectorData)->at(index));
}

/** Writes a vector of parcelables. */
template <typename P>
inline binder_status_t AParcel_writeVector(AParcel* parcel, const std::vector<P>& vec) {
    return AParcel_writeParcelableArray(parcel, &vec, internal::containerLength(vec),
                                        AParcel_writeStdVectorParcelableElement<P>);
}

/** Reads a vector of parcelables. */
template <typename P>
inline binder_status_t AParcel_readVector(const AParcel* parcel, std::vector<P>* vec) {
    return AParcel_readParcelableArray(parcel, vec, AParcel_stdVectorAllocator<P>,
                                       AParcel_readStdVectorParcelableElement<P>);
}

/** Writes an optional vector of parcelables (empty optional: null array). */
template <typename P>
inline binder_status_t AParcel_writeVector(AParcel* parcel,
                                           const std::optional<std::vector<P>>& vec) {
    if (!vec) {
        return AParcel_writeParcelableArray(parcel, nullptr, -1,
                                            AParcel_writeStdVectorParcelableElement<P>);
    }
    return AParcel_writeVector(parcel, *vec);
}

/** Reads an optional vector of parcelables. */
template <typename P>
inline binder_status_t AParcel_readVector(const AParcel* parcel,
                                          std::optional<std::vector<P>>* vec) {
    int32_t position = AParcel_getDataPosition(parcel);
    int32_t length = 0;
    binder_status_t status = AParcel_readInt32(parcel, &length);
    if (status != STATUS_OK) {
        return status;
    }
    if (length == -1) {
        *vec = std::nullopt;
        return STATUS_OK;
    }
    AParcel_setDataPosition(parcel, position);
    vec->emplace();
    return AParcel_readVector(parcel, &**vec);
}

// ---- binders -------------------------------------------------------------------

/** Writes a binder that must not be null (STATUS_UNEXPECTED_NULL otherwise). */
inline binder_status_t AParcel_writeRequiredStrongBinder(AParcel* parcel, const SpAIBinder& binder) {
    if (binder.get() == nullptr) {
        return STATUS_UNEXPECTED_NULL;
    }
    return AParcel_writeStrongBinder(parcel, binder.get());
}

/** Reads a binder that must not be null (STATUS_UNEXPECTED_NULL otherwise). */
inline binder_status_t AParcel_readRequiredStrongBinder(const AParcel* parcel, SpAIBinder* binder) {
    AIBinder* read = nullptr;
    binder_status_t status = AParcel_readStrongBinder(parcel, &read);
    if (status != STATUS_OK) {
        return status;
    }
    if (read == nullptr) {
        return STATUS_UNEXPECTED_NULL;
    }
    binder->set(read);
    return STATUS_OK;
}

/** Writes a binder, null allowed. */
inline binder_status_t AParcel_writeNullableStrongBinder(AParcel* parcel, const SpAIBinder& binder) {
    return AParcel_writeStrongBinder(parcel, binder.get());
}

/** Reads a binder, null allowed. */
inline binder_status_t AParcel_readNullableStrongBinder(const AParcel* parcel, SpAIBinder* binder) {
    AIBinder* read = nullptr;
    binder_status_t status = AParcel_readStrongBinder(parcel, &read);
    if (status == STATUS_OK) {
        binder->set(read);
    }
    return status;
}

// ---- file descriptors ----------------------------------------------------------

/** Writes a descriptor that must be valid (STATUS_UNEXPECTED_NULL for -1). */
inline binder_status_t AParcel_writeRequiredParcelFileDescriptor(AParcel* parcel,
                                                                 const ScopedFileDescriptor& fd) {
    if (fd.get() < 0) {
        return STATUS_UNEXPECTED_NULL;
    }
    return AParcel_writeParcelFileDescriptor(parcel, fd.get());
}

/** Reads a descriptor that must be valid (STATUS_UNEXPECTED_NULL for null). */
inline binder_status_t AParcel_readRequiredParcelFileDescriptor(const AParcel* parcel,
                                                                ScopedFileDescriptor* fd) {
    int read = -1;
    binder_status_t status = AParcel_readParcelFileDescriptor(parcel, &read);
    if (status != STATUS_OK) {
        return status;
    }
    if (read < 0) {
        return STATUS_UNEXPECTED_NULL;
    }
    fd->set(read);
    return STATUS_OK;
}

/** Writes a descriptor, -1 meaning null. */
inline binder_status_t AParcel_writeNullableParcelFileDescriptor(AParcel* parcel,
                                                                 const ScopedFileDescriptor& fd) {
    return AParcel_writeParcelFileDescriptor(parcel, fd.get());
}

/** Reads a descriptor, null giving -1. */
inline binder_status_t AParcel_readNullableParcelFileDescriptor(const AParcel* parcel,
                                                                ScopedFileDescriptor* fd) {
    int read = -1;
    binder_status_t status = AParcel_readParcelFileDescriptor(parcel, &read);
    if (status == STATUS_OK) {
        fd->set(read);
    }
    return status;
}

/** Writes the length of \p vec as the int32 that precedes a vector's elements. */
template <typename T>
static inline binder_status_t AParcel_writeVectorSize(AParcel* parcel, const std::vector<T>& vec) {
    if (vec.size() > static_cast<size_t>(INT32_MAX)) {
        return STATUS_BAD_VALUE;
    }
    return AParcel_writeInt32(parcel, static_cast<int32_t>(vec.size()));
}

/** Writes the length of \p vec, -1 when it is absent. */
template <typename T>
static inline binder_status_t AParcel_writeVectorSize(AParcel* parcel,
                                                      const std::optional<std::vector<T>>& vec) {
    if (!vec.has_value()) {
        return AParcel_writeInt32(parcel, -1);
    }
    return AParcel_writeVectorSize(parcel, *vec);
}

/**
 * Reads a vector's length and resizes \p vec to it; a null vector (negative
 * length) is STATUS_UNEXPECTED_NULL and leaves \p vec alone.
 */
template <typename T>
static inline binder_status_t AParcel_resizeVector(const AParcel* parcel, std::vector<T>* vec) {
    int32_t size = 0;
    binder_status_t status = AParcel_readInt32(parcel, &size);
    if (status != STATUS_OK) {
        return status;
    }
    if (size < 0) {
        return STATUS_UNEXPECTED_NULL;
    }
    vec->resize(static_cast<size_t>(size));
    return STATUS_OK;
}

/**
 * Reads a vector's length and makes \p vec absent (-1) or present with that
 * many default elements; below -1 is STATUS_UNEXPECTED_NULL.
 */
template <typename T>
static inline binder_status_t AParcel_resizeVector(const AParcel* parcel,
                                                   std::optional<std::vector<T>>* vec) {
    int32_t size = 0;
    binder_status_t status = AParcel_readInt32(parcel, &size);
    if (status != STATUS_OK) {
        return status;
    }
    if (size < -1) {
        return STATUS_UNEXPECTED_NULL;
    }
    if (size == -1) {
        *vec = std::nullopt;
        return STATUS_OK;
    }
    *vec = std::vector<T>(static_cast<size_t>(size));
    return STATUS_OK;
}

}  // namespace ndk
