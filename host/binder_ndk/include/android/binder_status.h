/*
 * Binder NDK runtime for Linux hosts: status codes and AStatus.
 *
 * Same names, values and semantics as the device's <android/binder_status.h>
 * (API level 30), so code written against the NDK compiles unchanged.
 */
#pragma once

#include <errno.h>
#include <stdbool.h>
#include <stdint.h>
#include <sys/cdefs.h>

// Fallbacks for hosts whose C library is not bionic.
#ifndef __INTRODUCED_IN
#define __INTRODUCED_IN(x)
#endif
#ifndef __ANDROID_API__
#define __ANDROID_API__ 30
#endif
#ifndef __BEGIN_DECLS
#ifdef __cplusplus
#define __BEGIN_DECLS extern "C" {
#define __END_DECLS }
#else
#define __BEGIN_DECLS
#define __END_DECLS
#endif
#endif

__BEGIN_DECLS

/** Low-level transport status (0 or a negative errno-like value). */
enum {
    STATUS_OK = 0,
    STATUS_UNKNOWN_ERROR = (-2147483647 - 1),  // INT32_MIN
    STATUS_NO_MEMORY = -ENOMEM,
    STATUS_INVALID_OPERATION = -ENOSYS,
    STATUS_BAD_VALUE = -EINVAL,
    STATUS_BAD_TYPE = (STATUS_UNKNOWN_ERROR + 1),
    STATUS_NAME_NOT_FOUND = -ENOENT,
    STATUS_PERMISSION_DENIED = -EPERM,
    STATUS_NO_INIT = -ENODEV,
    STATUS_ALREADY_EXISTS = -EEXIST,
    STATUS_DEAD_OBJECT = -EPIPE,
    STATUS_FAILED_TRANSACTION = (STATUS_UNKNOWN_ERROR + 2),
    STATUS_BAD_INDEX = -EOVERFLOW,
    STATUS_NOT_ENOUGH_DATA = -ENODATA,
    STATUS_WOULD_BLOCK = -EWOULDBLOCK,
    STATUS_TIMED_OUT = -ETIMEDOUT,
    STATUS_UNKNOWN_TRANSACTION = -EBADMSG,
    STATUS_FDS_NOT_ALLOWED = (STATUS_UNKNOWN_ERROR + 7),
    STATUS_UNEXPECTED_NULL = (STATUS_UNKNOWN_ERROR + 8),
};

/** One of the STATUS_* values. Unknown values collapse to STATUS_UNKNOWN_ERROR. */
typedef int32_t binder_status_t;

/** Exception carried by a transaction reply (the AIDL-level error). */
enum {
    EX_NONE = 0,
    EX_SECURITY = -1,
    EX_BAD_PARCELABLE = -2,
    EX_ILLEGAL_ARGUMENT = -3,
    EX_NULL_POINTER = -4,
    EX_ILLEGAL_STATE = -5,
    EX_NETWORK_MAIN_THREAD = -6,
    EX_UNSUPPORTED_OPERATION = -7,
    EX_SERVICE_SPECIFIC = -8,
    EX_PARCELABLE = -9,
    /** The transport failed; the status carries a binder_status_t. */
    EX_TRANSACTION_FAILED = -129,
};

/** One of the EX_* values. Unknown values collapse to EX_TRANSACTION_FAILED. */
typedef int32_t binder_exception_t;

/**
 * The result of a call: an exception code plus, depending on it, a
 * service-specific error, a transport status and an optional message.
 * Every constructor returns an object the caller owns and releases with
 * AStatus_delete. AStatus objects are not synchronised: share one between
 * threads only with external locking.
 */
struct AStatus;
typedef struct AStatus AStatus;

/** A new status with EX_NONE. Never null. */
AStatus* AStatus_newOk(void) __INTRODUCED_IN(29);

/**
 * A new status carrying \p exception (unknown values become
 * EX_TRANSACTION_FAILED; EX_TRANSACTION_FAILED carries STATUS_FAILED_TRANSACTION).
 */
AStatus* AStatus_fromExceptionCode(binder_exception_t exception) __INTRODUCED_IN(29);

/** As AStatus_fromExceptionCode, keeping a copy of \p message (null means none). */
AStatus* AStatus_fromExceptionCodeWithMessage(binder_exception_t exception, const char* message)
        __INTRODUCED_IN(29);

/** A new EX_SERVICE_SPECIFIC status with \p serviceSpecific; not OK even for 0. */
AStatus* AStatus_fromServiceSpecificError(int32_t serviceSpecific) __INTRODUCED_IN(29);

/** As AStatus_fromServiceSpecificError, keeping a copy of \p message (null means none). */
AStatus* AStatus_fromServiceSpecificErrorWithMessage(int32_t serviceSpecific, const char* message)
        __INTRODUCED_IN(29);

/**
 * A status from a transport status: OK for STATUS_OK, else EX_TRANSACTION_FAILED
 * carrying \p status (unknown values become STATUS_UNKNOWN_ERROR).
 */
AStatus* AStatus_fromStatus(binder_status_t status) __INTRODUCED_IN(29);

/** True exactly when the exception code is EX_NONE. \p status must not be null. */
bool AStatus_isOk(const AStatus* status) __INTRODUCED_IN(29);

/** The exception code. */
binder_exception_t AStatus_getExceptionCode(const AStatus* status) __INTRODUCED_IN(29);

/** The service-specific error; 0 unless the exception is EX_SERVICE_SPECIFIC. */
int32_t AStatus_getServiceSpecificError(const AStatus* status) __INTRODUCED_IN(29);

/** The transport status; STATUS_OK unless the exception is EX_TRANSACTION_FAILED. */
binder_status_t AStatus_getStatus(const AStatus* status) __INTRODUCED_IN(29);

/** The message ("" when there is none); valid as long as \p status lives. */
const char* AStatus_getMessage(const AStatus* status) __INTRODUCED_IN(29);

/**
 * A human-readable description of \p status. The caller owns the returned
 * string and frees it with AStatus_deleteDescription.
 */
const char* AStatus_getDescription(const AStatus* status) __INTRODUCED_IN(30);

/** Frees a string returned by AStatus_getDescription; null is allowed. */
void AStatus_deleteDescription(const char* description) __INTRODUCED_IN(30);

/** Deletes a status; null is allowed. */
void AStatus_delete(AStatus* status) __INTRODUCED_IN(29);

__END_DECLS
