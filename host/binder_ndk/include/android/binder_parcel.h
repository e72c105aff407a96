/*
 * Binder NDK runtime for Linux hosts: AParcel, the container that carries a
 * transaction's arguments and results.
 *
 * Same signatures and semantics as the device's <android/binder_parcel.h>
 * (API level 30). A parcel is owned by one thread at a time: no function here
 * may be called on the same parcel from two threads at once.
 *
 * Every read is bounds-checked: reading past the end gives
 * STATUS_NOT_ENOUGH_DATA (or STATUS_BAD_VALUE for a malformed length) and
 * leaves the output untouched. Arrays are written as an int32 length (-1 for
 * a null array; lengths below -1 are STATUS_BAD_VALUE) followed by the
 * elements. Strings are written as an int32 length (-1 for null) followed by
 * the UTF-8 bytes and a NUL, padded to 4 bytes.
 */
#pragma once

#include <stddef.h>
#ifndef __cplusplus
#include <uchar.h>
#endif
#include <android/binder_status.h>
#include <sys/cdefs.h>

struct AIBinder;
typedef struct AIBinder AIBinder;

__BEGIN_DECLS

/**
 * A parcel. Parcels are created by AIBinder_prepareTransaction and
 * AIBinder_transact (API 30 has no public constructor) and deleted with
 * AParcel_delete.
 */
struct AParcel;
typedef struct AParcel AParcel;

/** Deletes \p parcel, releasing the binder references it holds; null is allowed. */
void AParcel_delete(AParcel* parcel) __INTRODUCED_IN(29);

/**
 * Moves the read/write position. A negative \p position is STATUS_BAD_VALUE;
 * a position past the end is allowed (reads there fail, writes pad with zeros).
 */
binder_status_t AParcel_setDataPosition(const AParcel* parcel, int32_t position) __INTRODUCED_IN(29);

/** The current read/write position in bytes. */
int32_t AParcel_getDataPosition(const AParcel* parcel) __INTRODUCED_IN(29);

/**
 * Called by AParcel_readString with the length including the NUL terminator,
 * or -1 for a null string. Sets \p *buffer to storage for \p length bytes and
 * returns true; returns false to refuse (e.g. -1 for a non-nullable string).
 */
typedef bool (*AParcel_stringAllocator)(void* stringData, int32_t length, char** buffer);

/** Sizes the destination of a string array read; \p length is -1 for a null array. */
typedef bool (*AParcel_stringArrayAllocator)(void* arrayData, int32_t length);

/**
 * Provides storage for string \p index of an array being read: \p length
 * includes the NUL, or is -1 for a null element.
 */
typedef bool (*AParcel_stringArrayElementAllocator)(void* arrayData, size_t index, int32_t length,
                                                    char** buffer);

/**
 * Returns string \p index of an array being written and its length in bytes
 * (without NUL) in \p *outLength; returns null with -1 for a null element.
 */
typedef const char* (*AParcel_stringArrayElementGetter)(const void* arrayData, size_t index,
                                                        int32_t* outLength);

/** Sizes the destination of a parcelable array read; \p length is -1 for a null array. */
typedef bool (*AParcel_parcelableArrayAllocator)(void* arrayData, int32_t length);

/** Writes element \p index of a parcelable array. */
typedef binder_status_t (*AParcel_writeParcelableElement)(AParcel* parcel, const void* arrayData,
                                                          size_t index);

/** Reads element \p index of a parcelable array. */
typedef binder_status_t (*AParcel_readParcelableElement)(const AParcel* parcel, void* arrayData,
                                                         size_t index);

/**
 * Allocators for primitive array reads: size the destination for \p length
 * elements (-1 for a null array) and return its buffer in \p *outBuffer
 * (may be left null for a null or empty array). Return false to refuse.
 */
typedef bool (*AParcel_int32ArrayAllocator)(void* arrayData, int32_t length, int32_t** outBuffer);
typedef bool (*AParcel_uint32ArrayAllocator)(void* arrayData, int32_t length, uint32_t** outBuffer);
typedef bool (*AParcel_int64ArrayAllocator)(void* arrayData, int32_t length, int64_t** outBuffer);
typedef bool (*AParcel_uint64ArrayAllocator)(void* arrayData, int32_t length, uint64_t** outBuffer);
typedef bool (*AParcel_floatArrayAllocator)(void* arrayData, int32_t length, float** outBuffer);
typedef bool (*AParcel_doubleArrayAllocator)(void* arrayData, int32_t length, double** outBuffer);
typedef bool (*AParcel_boolArrayAllocator)(void* arrayData, int32_t length);
typedef bool (*AParcel_boolArrayGetter)(const void* arrayData, size_t index);
typedef void (*AParcel_boolArraySetter)(void* arrayData, size_t index, bool value);
typedef bool (*AParcel_charArrayAllocator)(void* arrayData, int32_t length, char16_t** outBuffer);
typedef bool (*AParcel_byteArrayAllocator)(void* arrayData, int32_t length, int8_t** outBuffer);

/**
 * Writes a binder object (null allowed). Takes no reference from the caller:
 * the parcel holds its own until it is deleted. A local object becomes a
 * proxy in a receiving process.
 */
binder_status_t AParcel_writeStrongBinder(AParcel* parcel, AIBinder* binder) __INTRODUCED_IN(29);

/**
 * Reads a binder object into \p *binder (null for a null object). The caller
 * owns one strong reference on the result. An object of the reading process
 * itself reads back as the local object.
 */
binder_status_t AParcel_readStrongBinder(const AParcel* parcel, AIBinder** binder)
        __INTRODUCED_IN(29);

/**
 * File descriptors do not cross this host transport: writing -1 writes a null
 * descriptor; any other descriptor is STATUS_FDS_NOT_ALLOWED.
 */
binder_status_t AParcel_writeParcelFileDescriptor(AParcel* parcel, int fd) __INTRODUCED_IN(29);

/** Reads a descriptor written by AParcel_writeParcelFileDescriptor: always -1 on a host. */
binder_status_t AParcel_readParcelFileDescriptor(const AParcel* parcel, int* fd) __INTRODUCED_IN(29);

/**
 * Writes the reply header for \p status: the exception code and, when it is
 * not EX_NONE, the message, a zero stack-trace size and (for
 * EX_SERVICE_SPECIFIC) the service-specific error. For EX_TRANSACTION_FAILED
 * nothing is written and the carried transport status is returned.
 */
binder_status_t AParcel_writeStatusHeader(AParcel* parcel, const AStatus* status)
        __INTRODUCED_IN(29);

/**
 * Reads a reply header. On success \p *status receives a new status the
 * caller owns; on failure \p *status is left untouched.
 */
binder_status_t AParcel_readStatusHeader(const AParcel* parcel, AStatus** status)
        __INTRODUCED_IN(29);

/**
 * Writes \p length bytes of \p string (UTF-8, not necessarily NUL-terminated).
 * (nullptr, -1) writes a null string; any other null or negative combination
 * is STATUS_BAD_VALUE.
 */
binder_status_t AParcel_writeString(AParcel* parcel, const char* string, int32_t length)
        __INTRODUCED_IN(29);

/**
 * Reads a string: calls \p allocator with the length including the NUL (or -1
 * for null) and copies the NUL-terminated bytes into its buffer. An allocator
 * that refuses -1 makes the read fail with STATUS_UNEXPECTED_NULL; one that
 * refuses a length gives STATUS_NO_MEMORY.
 */
binder_status_t AParcel_readString(const AParcel* parcel, void* stringData,
                                   AParcel_stringAllocator allocator) __INTRODUCED_IN(29);

/** Writes \p length strings obtained through \p getter (-1: null array). */
binder_status_t AParcel_writeStringArray(AParcel* parcel, const void* arrayData, int32_t length,
                                         AParcel_stringArrayElementGetter getter)
        __INTRODUCED_IN(29);

/** Reads a string array through \p allocator and \p elementAllocator. */
binder_status_t AParcel_readStringArray(const AParcel* parcel, void* arrayData,
                                        AParcel_stringArrayAllocator allocator,
                                        AParcel_stringArrayElementAllocator elementAllocator)
        __INTRODUCED_IN(29);

/** Writes \p length parcelables through \p elementWriter (-1: null array). */
binder_status_t AParcel_writeParcelableArray(AParcel* parcel, const void* arrayData, int32_t length,
                                             AParcel_writeParcelableElement elementWriter)
        __INTRODUCED_IN(29);

/** Reads a parcelable array through \p allocator and \p elementReader. */
binder_status_t AParcel_readParcelableArray(const AParcel* parcel, void* arrayData,
                                            AParcel_parcelableArrayAllocator allocator,
                                            AParcel_readParcelableElement elementReader)
        __INTRODUCED_IN(29);

/** Primitive writes. bool, char16_t and int8_t take 4 bytes each, as on a device. */
binder_status_t AParcel_writeInt32(AParcel* parcel, int32_t value) __INTRODUCED_IN(29);
binder_status_t AParcel_writeUint32(AParcel* parcel, uint32_t value) __INTRODUCED_IN(29);
binder_status_t AParcel_writeInt64(AParcel* parcel, int64_t value) __INTRODUCED_IN(29);
binder_status_t AParcel_writeUint64(AParcel* parcel, uint64_t value) __INTRODUCED_IN(29);
binder_status_t AParcel_writeFloat(AParcel* parcel, float value) __INTRODUCED_IN(29);
binder_status_t AParcel_writeDouble(AParcel* parcel, double value) __INTRODUCED_IN(29);
binder_status_t AParcel_writeBool(AParcel* parcel, bool value) __INTRODUCED_IN(29);
binder_status_t AParcel_writeChar(AParcel* parcel, char16_t value) __INTRODUCED_IN(29);
binder_status_t AParcel_writeByte(AParcel* parcel, int8_t value) __INTRODUCED_IN(29);

/** Primitive reads; \p value is written only on success. */
binder_status_t AParcel_readInt32(const AParcel* parcel, int32_t* value) __INTRODUCED_IN(29);
binder_status_t AParcel_readUint32(const AParcel* parcel, uint32_t* value) __INTRODUCED_IN(29);
binder_status_t AParcel_readInt64(const AParcel* parcel, int64_t* value) __INTRODUCED_IN(29);
binder_status_t AParcel_readUint64(const AParcel* parcel, uint64_t* value) __INTRODUCED_IN(29);
binder_status_t AParcel_readFloat(const AParcel* parcel, float* value) __INTRODUCED_IN(29);
binder_status_t AParcel_readDouble(const AParcel* parcel, double* value) __INTRODUCED_IN(29);
binder_status_t AParcel_readBool(const AParcel* parcel, bool* value) __INTRODUCED_IN(29);
binder_status_t AParcel_readChar(const AParcel* parcel, char16_t* value) __INTRODUCED_IN(29);
binder_status_t AParcel_readByte(const AParcel* parcel, int8_t* value) __INTRODUCED_IN(29);

/**
 * Primitive array writes: \p length elements of \p arrayData, or a null array
 * for length -1. A null \p arrayData with a positive length is
 * STATUS_UNEXPECTED_NULL; a length below -1 is STATUS_BAD_VALUE.
 */
binder_status_t AParcel_writeInt32Array(AParcel* parcel, const int32_t* arrayData, int32_t length)
        __INTRODUCED_IN(29);
binder_status_t AParcel_writeUint32Array(AParcel* parcel, const uint32_t* arrayData, int32_t length)
        __INTRODUCED_IN(29);
binder_status_t AParcel_writeInt64Array(AParcel* parcel, const int64_t* arrayData, int32_t length)
        __INTRODUCED_IN(29);
binder_status_t AParcel_writeUint64Array(AParcel* parcel, const uint64_t* arrayData, int32_t length)
        __INTRODUCED_IN(29);
binder_status_t AParcel_writeFloatArray(AParcel* parcel, const float* arrayData, int32_t length)
        __INTRODUCED_IN(29);
binder_status_t AParcel_writeDoubleArray(AParcel* parcel, const double* arrayData, int32_t length)
        __INTRODUCED_IN(29);
binder_status_t AParcel_writeBoolArray(AParcel* parcel, const void* arrayData, int32_t length,
                                       AParcel_boolArrayGetter getter) __INTRODUCED_IN(29);
binder_status_t AParcel_writeCharArray(AParcel* parcel, const char16_t* arrayData, int32_t length)
        __INTRODUCED_IN(29);
binder_status_t AParcel_writeByteArray(AParcel* parcel, const int8_t* arrayData, int32_t length)
        __INTRODUCED_IN(29);

/**
 * Primitive array reads through an allocator. An allocator that refuses a
 * null array (-1) makes the read fail with STATUS_UNEXPECTED_NULL; one that
 * refuses a length gives STATUS_NO_MEMORY.
 */
binder_status_t AParcel_readInt32Array(const AParcel* parcel, void* arrayData,
                                       AParcel_int32ArrayAllocator allocator) __INTRODUCED_IN(29);
binder_status_t AParcel_readUint32Array(const AParcel* parcel, void* arrayData,
                                        AParcel_uint32ArrayAllocator allocator) __INTRODUCED_IN(29);
binder_status_t AParcel_readInt64Array(const AParcel* parcel, void* arrayData,
                                       AParcel_int64ArrayAllocator allocator) __INTRODUCED_IN(29);
binder_status_t AParcel_readUint64Array(const AParcel* parcel, void* arrayData,
                                        AParcel_uint64ArrayAllocator allocator) __INTRODUCED_IN(29);
binder_status_t AParcel_readFloatArray(const AParcel* parcel, void* arrayData,
                                       AParcel_floatArrayAllocator allocator) __INTRODUCED_IN(29);
binder_status_t AParcel_readDoubleArray(const AParcel* parcel, void* arrayData,
                                        AParcel_doubleArrayAllocator allocator) __INTRODUCED_IN(29);
binder_status_t AParcel_readBoolArray(const AParcel* parcel, void* arrayData,
                                      AParcel_boolArrayAllocator allocator,
                                      AParcel_boolArraySetter setter) __INTRODUCED_IN(29);
binder_status_t AParcel_readCharArray(const AParcel* parcel, void* arrayData,
                                      AParcel_charArrayAllocator allocator) __INTRODUCED_IN(29);
binder_status_t AParcel_readByteArray(const AParcel* parcel, void* arrayData,
                                      AParcel_byteArrayAllocator allocator) __INTRODUCED_IN(29);

__END_DECLS
