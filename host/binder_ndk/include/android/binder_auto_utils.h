/*
 * Binder NDK runtime for Linux hosts: RAII holders for the C objects
 * (header-only, as on a device; same names as Android 11's
 * <android/binder_auto_utils.h>).
 *
 * Each holder owns exactly one reference or object and releases it when it
 * is destroyed or reset. Holders are not synchronised: one holder must not
 * be used from two threads at once without a lock.
 */
#pragma once

#include <android/binder_ibinder.h>
#include <android/binder_parcel.h>
#include <android/binder_status.h>
#include <assert.h>
#include <unistd.h>

#include <cstddef>
#include <string>

namespace ndk {

/**
 * Owns one strong reference to a binder object (or none).
 * Copying adds a reference; destruction and set() release the old one.
 */
class SpAIBinder {
  public:
    SpAIBinder() : mBinder(nullptr) {}

    /** Takes over one strong reference the caller owns (null allowed). */
    explicit SpAIBinder(AIBinder* binder) : mBinder(binder) {}

    SpAIBinder(std::nullptr_t) : SpAIBinder() {}  // NOLINT(google-explicit-constructor)

    SpAIBinder(const SpAIBinder& other) : mBinder(other.mBinder) { AIBinder_incStrong(mBinder); }

    ~SpAIBinder() { set(nullptr); }

    SpAIBinder& operator=(const SpAIBinder& other) {
        if (this != &other) {
            AIBinder_incStrong(other.mBinder);
            set(other.mBinder);
        }
        return *this;
    }

    /** Releases the held reference and takes over \p binder's (null allowed). */
    void set(AIBinder* binder) {
        AIBinder* old = mBinder;
        mBinder = binder;
        AIBinder_decStrong(old);
    }

    /** The held object, without adding a reference. */
    AIBinder* get() const { return mBinder; }

    /**
     * The slot itself, for functions that read or replace the held pointer
     * through an out-parameter (as AIBinder_transact does with its parcels).
     * A reference already held is not released: empty the holder first when
     * a function will overwrite the slot.
     */
    AIBinder** getR() { return &mBinder; }

  private:
    AIBinder* mBinder;
};

namespace impl {

/**
 * Owns one resource of type T, destroyed with Destroy; DEFAULT means "none".
 * Movable, not copyable.
 */
template <typename T, typename R, R (*Destroy)(T), T DEFAULT>
class ScopedAResource {
  public:
    explicit ScopedAResource(T resource = DEFAULT) : mResource(resource) {}
    ~ScopedAResource() { set(DEFAULT); }

    ScopedAResource(const ScopedAResource&) = delete;
    ScopedAResource& operator=(const ScopedAResource&) = delete;

    ScopedAResource(ScopedAResource&& other) noexcept : mResource(other.release()) {}
    ScopedAResource& operator=(ScopedAResource&& other) noexcept {
        if (this != &other) {
            set(other.release());
        }
        return *this;
    }

    /** Destroys the held resource and takes over \p resource. */
    void set(T resource) {
        T old = mResource;
        mResource = resource;
        if (old != DEFAULT) {
            Destroy(old);
        }
    }

    /** The held resource, still owned by this holder. */
    T get() const { return mResource; }

    /**
     * The slot itself, for functions that take the resource or store a new
     * one through an out-parameter (AIBinder_transact takes the request and
     * stores the reply). Nothing is destroyed here.
     */
    T* getR() { return &mResource; }

    /** Gives up ownership and returns the resource. */
    T release() {
        T held = mResource;
        mResource = DEFAULT;
        return held;
    }

  private:
    T mResource;
};

}  // namespace impl

/** Owns a parcel. */
class ScopedAParcel : public impl::ScopedAResource<AParcel*, void, AParcel_delete, nullptr> {
  public:
    explicit ScopedAParcel(AParcel* parcel = nullptr) : ScopedAResource(parcel) {}
    ~ScopedAParcel() {}
    ScopedAParcel(ScopedAParcel&&) = default;
    ScopedAParcel& operator=(ScopedAParcel&&) = default;
};

/** Owns a status; a holder with no status counts as not OK. */
class ScopedAStatus : public impl::ScopedAResource<AStatus*, void, AStatus_delete, nullptr> {
  public:
    explicit ScopedAStatus(AStatus* status = nullptr) : ScopedAResource(status) {}
    ~ScopedAStatus() {}
    ScopedAStatus(ScopedAStatus&&) = default;
    ScopedAStatus& operator=(ScopedAStatus&&) = default;

    bool isOk() const { return get() != nullptr && AStatus_isOk(get()); }
    binder_exception_t getExceptionCode() const { return AStatus_getExceptionCode(get()); }
    int32_t getServiceSpecificError() const { return AStatus_getServiceSpecificError(get()); }
    binder_status_t getStatus() const { return AStatus_getStatus(get()); }
    const char* getMessage() const { return AStatus_getMessage(get()); }

    /** A description of the status, e.g. for logs. */
    std::string getDescription() const {
        const char* text = AStatus_getDescription(get());
        std::string description(text != nullptr ? text : "");
        AStatus_deleteDescription(text);
        return description;
    }

    static ScopedAStatus ok() { return ScopedAStatus(AStatus_newOk()); }
    static ScopedAStatus fromExceptionCode(binder_exception_t exception) {
        return ScopedAStatus(AStatus_fromExceptionCode(exception));
    }
    static ScopedAStatus fromExceptionCodeWithMessage(binder_exception_t exception,
                                                      const char* message) {
        return ScopedAStatus(AStatus_fromExceptionCodeWithMessage(exception, message));
    }
    static ScopedAStatus fromServiceSpecificError(int32_t serviceSpecific) {
        return ScopedAStatus(AStatus_fromServiceSpecificError(serviceSpecific));
    }
    static ScopedAStatus fromServiceSpecificErrorWithMessage(int32_t serviceSpecific,
                                                             const char* message) {
        return ScopedAStatus(AStatus_fromServiceSpecificErrorWithMessage(serviceSpecific, message));
    }
    static ScopedAStatus fromStatus(binder_status_t status) {
        return ScopedAStatus(AStatus_fromStatus(status));
    }
};

/** Owns a death recipient (deleting it unlinks its links). */
class ScopedAIBinder_DeathRecipient
    : public impl::ScopedAResource<AIBinder_DeathRecipient*, void, AIBinder_DeathRecipient_delete,
                                   nullptr> {
  public:
    explicit ScopedAIBinder_DeathRecipient(AIBinder_DeathRecipient* recipient = nullptr)
        : ScopedAResource(recipient) {}
    ~ScopedAIBinder_DeathRecipient() {}
    ScopedAIBinder_DeathRecipient(ScopedAIBinder_DeathRecipient&&) = default;
    ScopedAIBinder_DeathRecipient& operator=(ScopedAIBinder_DeathRecipient&&) = default;
};

/** Owns a weak reference. */
class ScopedAIBinder_Weak
    : public impl::ScopedAResource<AIBinder_Weak*, void, AIBinder_Weak_delete, nullptr> {
  public:
    explicit ScopedAIBinder_Weak(AIBinder_Weak* weak = nullptr) : ScopedAResource(weak) {}
    ~ScopedAIBinder_Weak() {}
    ScopedAIBinder_Weak(ScopedAIBinder_Weak&&) = default;
    ScopedAIBinder_Weak& operator=(ScopedAIBinder_Weak&&) = default;

    /** A strong reference to the object, or an empty holder once it is gone. */
    SpAIBinder promote() { return SpAIBinder(AIBinder_Weak_promote(get())); }
};

/** Owns a file descriptor (-1 for none), closed on destruction. */
class ScopedFileDescriptor : public impl::ScopedAResource<int, int, close, -1> {
  public:
    explicit ScopedFileDescriptor(int fd = -1) : ScopedAResource(fd) {}
    ~ScopedFileDescriptor() {}
    ScopedFileDescriptor(ScopedFileDescriptor&&) = default;
    ScopedFileDescriptor& operator=(ScopedFileDescriptor&&) = default;
};

}  // namespace ndk
