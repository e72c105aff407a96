/*
 * Marshalling shared by the proxies, the stubs and the records of the IDolm
 * interface library: one overload set that writes and reads every type the
 * interface uses, the frame of a structured parcelable, and the call flows of
 * a proxy method and of a stub's transaction handler. Private to the library.
 */
#pragma once

#ifdef BINDER_STABILITY_SUPPORT
#include <android/binder_stability.h>
#endif

#include <android/binder_ibinder.h>
#include <android/binder_interface_utils.h>
#include <android/binder_parcel_utils.h>
#include <android/binder_status.h>

#include <cstdint>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

namespace aidl {
namespace vendor {
namespace tarvo {
namespace hardware {
namespace dolm {

class IDolmCallback;
class DolmRequestParcel;

namespace internal {

/** Stands for the missing result of a method that returns nothing. */
struct NoReply {};

inline binder_status_t writeField(AParcel* p, int32_t v) {
    return AParcel_writeInt32(p, v);
}
inline binder_status_t writeField(AParcel* p, int64_t v) {
    return AParcel_writeInt64(p, v);
}
inline binder_status_t writeField(AParcel* p, bool v) {
    return AParcel_writeBool(p, v);
}
inline binder_status_t writeField(AParcel* p, const std::string& v) {
    return ::ndk::AParcel_writeString(p, v);
}
inline binder_status_t writeField(AParcel* p, const std::optional<std::string>& v) {
    return ::ndk::AParcel_writeString(p, v);
}
template <typename T>
binder_status_t writeField(AParcel* p, const std::vector<T>& v) {
    return ::ndk::AParcel_writeVector(p, v);
}
template <typename T>
binder_status_t writeField(AParcel* p, const std::optional<std::vector<T>>& v) {
    return ::ndk::AParcel_writeVector(p, v);
}
binder_status_t writeField(AParcel* p, const std::shared_ptr<IDolmCallback>& v);
binder_status_t writeField(AParcel* p, const DolmRequestParcel& v);
inline binder_status_t writeField(AParcel*, const NoReply&) {
    return STATUS_OK;
}

inline binder_status_t readField(const AParcel* p, int32_t* v) {
    return AParcel_readInt32(p, v);
}
inline binder_status_t readField(const AParcel* p, int64_t* v) {
    return AParcel_readInt64(p, v);
}
inline binder_status_t readField(const AParcel* p, bool* v) {
    return AParcel_readBool(p, v);
}
inline binder_status_t readField(const AParcel* p, std::string* v) {
    return ::ndk::AParcel_readString(p, v);
}
inline binder_status_t readField(const AParcel* p, std::optional<std::string>* v) {
    return ::ndk::AParcel_readString(p, v);
}
template <typename T>
binder_status_t readField(const AParcel* p, std::vector<T>* v) {
    return ::ndk::AParcel_readVector(p, v);
}
template <typename T>
binder_status_t readField(const AParcel* p, std::optional<std::vector<T>>* v) {
    return ::ndk::AParcel_readVector(p, v);
}
binder_status_t readField(const AParcel* p, std::shared_ptr<IDolmCallback>* v);
binder_status_t readField(const AParcel* p, DolmRequestParcel* v);
inline binder_status_t readField(const AParcel*, NoReply*) {
    return STATUS_OK;
}

/** Writes each value in order, stopping at the first error. */
template <typename... Fields>
binder_status_t writeFields([[maybe_unused]] AParcel* p, const Fields&... fields) {
    binder_status_t status = STATUS_OK;
    ((status = status == STATUS_OK ? writeField(p, fields) : status), ...);
    return status;
}

/** Reads each value in order, stopping at the first error. */
template <typename... Fields>
binder_status_t readFields([[maybe_unused]] const AParcel* p, Fields*... fields) {
    binder_status_t status = STATUS_OK;
    ((status = status == STATUS_OK ? readField(p, fields) : status), ...);
    return status;
}

/**
 * Writes a structured parcelable: an int32 size placeholder, the fields in
 * declaration order, then the size (end minus start) over the placeholder.
 */
template <typename... Fields>
binder_status_t writeParcelableFields(AParcel* p, const Fields&... fields) {
    const int32_t start = AParcel_getDataPosition(p);
    binder_status_t status = AParcel_writeInt32(p, 0);
    if (status == STATUS_OK) status = writeFields(p, fields...);
    if (status != STATUS_OK) return status;
    const int32_t end = AParcel_getDataPosition(p);
    status = AParcel_setDataPosition(p, start);
    if (status == STATUS_OK) status = AParcel_writeInt32(p, end - start);
    if (status == STATUS_OK) status = AParcel_setDataPosition(p, end);
    return status;
}

/**
 * Reads a structured parcelable: the size (negative is STATUS_BAD_VALUE),
 * then the fields in order until the size is used up (the fields a shorter,
 * older record lacks keep their defaults), then seeks to start + size so that
 * fields a newer writer added are skipped.
 */
template <typename... Fields>
binder_status_t readParcelableFields(const AParcel* p, Fields*... fields) {
    const int32_t start = AParcel_getDataPosition(p);
    int32_t size = 0;
    binder_status_t status = AParcel_readInt32(p, &size);
    if (status != STATUS_OK) return status;
    if (size < 0 || start > INT32_MAX - size) return STATUS_BAD_VALUE;
    auto readOne = [&](auto* field) {
        if (status != STATUS_OK || AParcel_getDataPosition(p) - start >= size) return;
        status = readField(p, field);
    };
    (readOne(fields), ...);
    if (status != STATUS_OK) return status;
    return AParcel_setDataPosition(p, start + size);
}

/**
 * The flow of a proxy method: prepare the transaction (interface token), write
 * the arguments, transact, read the status header and, when it is OK, the
 * result. A transport or parcel error becomes a status carrying that error.
 * When the remote side does not know the method and a default implementation
 * is set, `fallback` answers instead.
 */
template <typename Interface, typename Fallback, typename Reply, typename... Args>
::ndk::ScopedAStatus callRemote(const ::ndk::SpAIBinder& binder, transaction_code_t code,
                                Fallback&& fallback, Reply* reply, const Args&... args) {
    ::ndk::ScopedAParcel in;
    ::ndk::ScopedAParcel out;
    binder_status_t err = AIBinder_prepareTransaction(binder.get(), in.getR());
    if (err == STATUS_OK) err = writeFields(in.get(), args...);
    // A vendor build transacts with FLAG_PRIVATE_LOCAL, so a device checks the
    // object's stability for the vendor partition.
    if (err == STATUS_OK) {
        err = AIBinder_transact(binder.get(), code, in.getR(), out.getR(),
                                0
#ifdef BINDER_STABILITY_SUPPORT
                                        | FLAG_PRIVATE_LOCAL
#endif
        );
    }
    if (err == STATUS_UNKNOWN_TRANSACTION && Interface::getDefaultImpl()) {
        return fallback(*Interface::getDefaultImpl());
    }
    if (err != STATUS_OK) return ::ndk::ScopedAStatus::fromStatus(err);

    ::ndk::ScopedAStatus status;
    err = AParcel_readStatusHeader(out.get(), status.getR());
    if (err != STATUS_OK) return ::ndk::ScopedAStatus::fromStatus(err);
    if (!status.isOk()) return status;
    err = readField(out.get(), reply);
    if (err != STATUS_OK) return ::ndk::ScopedAStatus::fromStatus(err);
    return status;
}

/**
 * The flow of a stub's transaction handler for one method: read the
 * arguments, call the implementation, write the status header and, when the
 * status is OK, the result.
 */
template <typename Invoke, typename Reply, typename... Args>
binder_status_t serveCall(const AParcel* in, AParcel* out, Invoke&& invoke, const Reply& reply,
                          Args*... args) {
    binder_status_t err = readFields(in, args...);
    if (err != STATUS_OK) return err;
    ::ndk::ScopedAStatus status = invoke();
    err = AParcel_writeStatusHeader(out, status.get());
    if (err != STATUS_OK || !status.isOk()) return err;
    return writeField(out, reply);
}

/**
 * Answers from `cache` once it holds something other than `unset`; otherwise
 * asks the remote side with `call` (which fills `*result`) and keeps a good
 * answer. The cached version and hash of a proxy never change once read.
 */
template <typename Value, typename Call>
::ndk::ScopedAStatus askOnce(std::mutex& mutex, Value& cache, const Value& unset, Value* result,
                             Call&& call) {
    std::lock_guard<std::mutex> lock(mutex);
    if (cache != unset) {
        *result = cache;
        return ::ndk::ScopedAStatus::ok();
    }
    ::ndk::ScopedAStatus status = call();
    if (status.isOk()) cache = *result;
    return status;
}

/**
 * fromBinder() of an interface: null when `binder` is null or not of
 * `clazz`, the local object when the binder lives in this process, otherwise
 * a new proxy of type `Proxy`.
 */
template <typename Interface, typename Proxy>
std::shared_ptr<Interface> interfaceFromBinder(const ::ndk::SpAIBinder& binder,
                                               AIBinder_Class* clazz) {
    if (!AIBinder_associateClass(binder.get(), clazz)) return nullptr;
    std::shared_ptr<::ndk::ICInterface> local = ::ndk::ICInterface::asInterface(binder.get());
    if (local != nullptr) return std::static_pointer_cast<Interface>(local);
    return ::ndk::SharedRefBase::make<Proxy>(binder);
}

/** Writes an interface as its binder (null allowed). */
template <typename Interface>
binder_status_t writeInterface(AParcel* parcel, const std::shared_ptr<Interface>& instance) {
    return AParcel_writeStrongBinder(parcel,
                                     instance != nullptr ? instance->asBinder().get() : nullptr);
}

/** Reads a binder (null allowed) and turns it into the interface. */
template <typename Interface>
binder_status_t readInterface(const AParcel* parcel, std::shared_ptr<Interface>* instance) {
    ::ndk::SpAIBinder binder;
    binder_status_t status = AParcel_readStrongBinder(parcel, binder.getR());
    if (status != STATUS_OK) return status;
    *instance = Interface::fromBinder(binder);
    return STATUS_OK;
}

/** setDefaultImpl(): a non-null implementation replaces any earlier one. */
template <typename Interface>
bool setDefaultImpl(std::shared_ptr<Interface>& slot, std::shared_ptr<Interface> impl) {
    if (impl == nullptr) return false;
    slot = std::move(impl);
    return true;
}

/** A status answering a method the implementation does not have. */
inline ::ndk::ScopedAStatus unknownTransaction() {
    return ::ndk::ScopedAStatus::fromStatus(STATUS_UNKNOWN_TRANSACTION);
}

}  // namespace internal
}  // namespace dolm
}  // namespace hardware
}  // namespace tarvo
}  // namespace vendor
}  // namespace aidl
