#include <aidl/vendor/tarvo/hardware/dolm/BnDolmCallback.h>
#include <aidl/vendor/tarvo/hardware/dolm/BpDolmCallback.h>
#include <aidl/vendor/tarvo/hardware/dolm/IDolmCallback.h>

#include "Marshal.h"

namespace aidl {
namespace vendor {
namespace tarvo {
namespace hardware {
namespace dolm {

namespace {

// Transaction codes: the position of each method in the interface, and the
// two version methods at the top of the range, as the generated code numbers them.
constexpr transaction_code_t TRANSACTION_onCallback = FIRST_CALL_TRANSACTION + 0;
constexpr transaction_code_t TRANSACTION_getInterfaceVersion = FIRST_CALL_TRANSACTION + 16777214;
constexpr transaction_code_t TRANSACTION_getInterfaceHash = FIRST_CALL_TRANSACTION + 16777213;

binder_status_t onTransact(AIBinder* binder, transaction_code_t code, const AParcel* in,
                           AParcel* out) {
    std::shared_ptr<BnDolmCallback> impl =
            std::static_pointer_cast<BnDolmCallback>(::ndk::ICInterface::asInterface(binder));
    if (impl == nullptr) return STATUS_UNEXPECTED_NULL;
    switch (code) {
        case TRANSACTION_onCallback: {
            std::vector<DolmRequestData> in_data;
            return internal::serveCall(
                    in, out, [&] { return impl->onCallback(in_data); }, internal::NoReply{},
                    &in_data);
        }
        case TRANSACTION_getInterfaceVersion: {
            int32_t version = 0;
            return internal::serveCall(
                    in, out, [&] { return impl->getInterfaceVersion(&version); }, version);
        }
        case TRANSACTION_getInterfaceHash: {
            std::string hash;
            return internal::serveCall(
                    in, out, [&] { return impl->getInterfaceHash(&hash); }, hash);
        }
        default:
            return STATUS_UNKNOWN_TRANSACTION;
    }
}

// Defined once, at load, so that every binder of this interface shares it.
AIBinder_Class* const gClass =
        ::ndk::ICInterface::defineClass(IDolmCallback::descriptor, onTransact);

}  // namespace

const char* IDolmCallback::descriptor = "vendor.tarvo.hardware.dolm.IDolmCallback";
std::shared_ptr<IDolmCallback> IDolmCallback::default_impl;

IDolmCallback::IDolmCallback() = default;
IDolmCallback::~IDolmCallback() = default;

std::shared_ptr<IDolmCallback> IDolmCallback::fromBinder(const ::ndk::SpAIBinder& binder) {
    return internal::interfaceFromBinder<IDolmCallback, BpDolmCallback>(binder, gClass);
}

binder_status_t IDolmCallback::writeToParcel(AParcel* parcel,
                                             const std::shared_ptr<IDolmCallback>& instance) {
    return internal::writeInterface(parcel, instance);
}

binder_status_t IDolmCallback::readFromParcel(const AParcel* parcel,
                                              std::shared_ptr<IDolmCallback>* instance) {
    return internal::readInterface(parcel, instance);
}

bool IDolmCallback::setDefaultImpl(std::shared_ptr<IDolmCallback> impl) {
    return internal::setDefaultImpl(default_impl, std::move(impl));
}

const std::shared_ptr<IDolmCallback>& IDolmCallback::getDefaultImpl() {
    return default_impl;
}

::ndk::ScopedAStatus IDolmCallbackDefault::onCallback(const std::vector<DolmRequestData>&) {
    return internal::unknownTransaction();
}
::ndk::ScopedAStatus IDolmCallbackDefault::getInterfaceVersion(int32_t*) {
    return internal::unknownTransaction();
}
::ndk::ScopedAStatus IDolmCallbackDefault::getInterfaceHash(std::string*) {
    return internal::unknownTransaction();
}
::ndk::SpAIBinder IDolmCallbackDefault::asBinder() {
    return ::ndk::SpAIBinder();
}
bool IDolmCallbackDefault::isRemote() {
    return false;
}

BnDolmCallback::BnDolmCallback() = default;
BnDolmCallback::~BnDolmCallback() = default;

::ndk::ScopedAStatus BnDolmCallback::getInterfaceVersion(int32_t* _aidl_return) {
    *_aidl_return = IDolmCallback::version;
    return ::ndk::ScopedAStatus::ok();
}

::ndk::ScopedAStatus BnDolmCallback::getInterfaceHash(std::string* _aidl_return) {
    *_aidl_return = IDolmCallback::hash;
    return ::ndk::ScopedAStatus::ok();
}

::ndk::SpAIBinder BnDolmCallback::createBinder() {
    AIBinder* binder = AIBinder_new(gClass, static_cast<void*>(this));
#ifdef BINDER_STABILITY_SUPPORT
    // A stable interface: the object may cross between system and vendor.
    AIBinder_markVintfStability(binder);
#endif
    return ::ndk::SpAIBinder(binder);
}

BpDolmCallback::BpDolmCallback(const ::ndk::SpAIBinder& binder) : BpCInterface(binder) {}
BpDolmCallback::~BpDolmCallback() = default;

::ndk::ScopedAStatus BpDolmCallback::onCallback(const std::vector<DolmRequestData>& in_data) {
    internal::NoReply none;
    return internal::callRemote<IDolmCallback>(
            asBinder(), TRANSACTION_onCallback,
            [&](IDolmCallback& impl) { return impl.onCallback(in_data); }, &none, in_data);
}

::ndk::ScopedAStatus BpDolmCallback::getInterfaceVersion(int32_t* _aidl_return) {
    return internal::askOnce(_aidl_cached_hash_mutex, _aidl_cached_version, -1, _aidl_return, [&] {
        return internal::callRemote<IDolmCallback>(
                asBinder(), TRANSACTION_getInterfaceVersion,
                [&](IDolmCallback& impl) { return impl.getInterfaceVersion(_aidl_return); },
                _aidl_return);
    });
}

::ndk::ScopedAStatus BpDolmCallback::getInterfaceHash(std::string* _aidl_return) {
    return internal::askOnce(
            _aidl_cached_hash_mutex, _aidl_cached_hash, std::string("-1"), _aidl_return, [&] {
                return internal::callRemote<IDolmCallback>(
                        asBinder(), TRANSACTION_getInterfaceHash,
                        [&](IDolmCallback& impl) { return impl.getInterfaceHash(_aidl_return); },
                        _aidl_return);
            });
}

namespace internal {

binder_status_t writeField(AParcel* p, const std::shared_ptr<IDolmCallback>& v) {
    return IDolmCallback::writeToParcel(p, v);
}

binder_status_t readField(const AParcel* p, std::shared_ptr<IDolmCallback>* v) {
    return IDolmCallback::readFromParcel(p, v);
}

}  // namespace internal
}  // namespace dolm
}  // namespace hardware
}  // namespace tarvo
}  // namespace vendor
}  // namespace aidl
