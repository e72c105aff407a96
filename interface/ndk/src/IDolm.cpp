#include <aidl/vendor/tarvo/hardware/dolm/BnDolm.h>
#include <aidl/vendor/tarvo/hardware/dolm/BpDolm.h>
#include <aidl/vendor/tarvo/hardware/dolm/IDolm.h>

#include "Marshal.h"

namespace aidl {
namespace vendor {
namespace tarvo {
namespace hardware {
namespace dolm {

namespace {

// Transaction codes: the position of each method in the interface, and the
// two version methods at the top of the range, as the generated code numbers them.
constexpr transaction_code_t TRANSACTION_init = FIRST_CALL_TRANSACTION + 0;
constexpr transaction_code_t TRANSACTION_request = FIRST_CALL_TRANSACTION + 1;
constexpr transaction_code_t TRANSACTION_release = FIRST_CALL_TRANSACTION + 2;
constexpr transaction_code_t TRANSACTION_getData = FIRST_CALL_TRANSACTION + 3;
constexpr transaction_code_t TRANSACTION_registerListener = FIRST_CALL_TRANSACTION + 4;
constexpr transaction_code_t TRANSACTION_unregisterListener = FIRST_CALL_TRANSACTION + 5;
constexpr transaction_code_t TRANSACTION_getProperty = FIRST_CALL_TRANSACTION + 6;
constexpr transaction_code_t TRANSACTION_setProperty = FIRST_CALL_TRANSACTION + 7;
constexpr transaction_code_t TRANSACTION_registerThermalListener = FIRST_CALL_TRANSACTION + 8;
constexpr transaction_code_t TRANSACTION_unregisterThermalListener = FIRST_CALL_TRANSACTION + 9;
constexpr transaction_code_t TRANSACTION_reserved = FIRST_CALL_TRANSACTION + 10;
constexpr transaction_code_t TRANSACTION_setRelatedSysInfo = FIRST_CALL_TRANSACTION + 11;
constexpr transaction_code_t TRANSACTION_ruleCtl = FIRST_CALL_TRANSACTION + 12;
constexpr transaction_code_t TRANSACTION_getInterfaceVersion = FIRST_CALL_TRANSACTION + 16777214;
constexpr transaction_code_t TRANSACTION_getInterfaceHash = FIRST_CALL_TRANSACTION + 16777213;

using internal::NoReply;
using internal::serveCall;

binder_status_t onTransact(AIBinder* binder, transaction_code_t code, const AParcel* in,
                           AParcel* out) {
    std::shared_ptr<BnDolm> impl =
            std::static_pointer_cast<BnDolm>(::ndk::ICInterface::asInterface(binder));
    if (impl == nullptr) return STATUS_UNEXPECTED_NULL;

    DolmRequestParcel in_parcel;
    std::shared_ptr<IDolmCallback> in_callback;
    std::vector<DolmRequestData> in_data;
    std::vector<int32_t> in_ids;
    std::string in_key;
    std::string in_value;
    int32_t in_int = 0;
    int32_t in_int2 = 0;
    int32_t result = -1;
    switch (code) {
        case TRANSACTION_init:
            return serveCall(
                    in, out, [&] { return impl->init(); }, NoReply{});
        case TRANSACTION_request:
            return serveCall(
                    in, out, [&] { return impl->request(in_parcel, &result); }, result, &in_parcel);
        case TRANSACTION_release:
            return serveCall(
                    in, out, [&] { return impl->release(in_int, &result); }, result, &in_int);
        case TRANSACTION_getData: {
            std::vector<DolmRequestData> answer;
            return serveCall(
                    in, out, [&] { return impl->getData(in_parcel, &answer); }, answer, &in_parcel);
        }
        case TRANSACTION_registerListener:
            return serveCall(
                    in, out, [&] { return impl->registerListener(in_parcel, in_callback, &result); },
                    result, &in_parcel, &in_callback);
        case TRANSACTION_unregisterListener:
            return serveCall(
                    in, out, [&] { return impl->unregisterListener(in_int, &result); }, result,
                    &in_int);
        case TRANSACTION_getProperty: {
            std::string answer;
            return serveCall(
                    in, out, [&] { return impl->getProperty(in_key, &answer); }, answer, &in_key);
        }
        case TRANSACTION_setProperty:
            return serveCall(
                    in, out, [&] { return impl->setProperty(in_key, in_value, &result); }, result,
                    &in_key, &in_value);
        case TRANSACTION_registerThermalListener:
            return serveCall(
                    in, out,
                    [&] { return impl->registerThermalListener(in_ids, in_callback, &result); },
                    result, &in_ids, &in_callback);
        case TRANSACTION_unregisterThermalListener:
            return serveCall(
                    in, out, [&] { return impl->unregisterThermalListener(in_int, &result); },
                    result, &in_int);
        case TRANSACTION_reserved:
            return serveCall(
                    in, out, [&] { return impl->reserved(in_parcel, &result); }, result, &in_parcel);
        case TRANSACTION_setRelatedSysInfo:
            return serveCall(
                    in, out, [&] { return impl->setRelatedSysInfo(in_int, in_value, &result); },
                    result, &in_int, &in_value);
        case TRANSACTION_ruleCtl:
            return serveCall(
                    in, out, [&] { return impl->ruleCtl(in_int, in_int2, in_data, &result); },
                    result, &in_int, &in_int2, &in_data);
        case TRANSACTION_getInterfaceVersion:
            return serveCall(
                    in, out, [&] { return impl->getInterfaceVersion(&result); }, result);
        case TRANSACTION_getInterfaceHash: {
            std::string answer;
            return serveCall(
                    in, out, [&] { return impl->getInterfaceHash(&answer); }, answer);
        }
        default:
            return STATUS_UNKNOWN_TRANSACTION;
    }
}

// Defined once, at load, so that every binder of this interface shares it.
AIBinder_Class* const gClass = ::ndk::ICInterface::defineClass(IDolm::descriptor, onTransact);

}  // namespace

const char* IDolm::descriptor = "vendor.tarvo.hardware.dolm.IDolm";
std::shared_ptr<IDolm> IDolm::default_impl;

IDolm::IDolm() = default;
IDolm::~IDolm() = default;

std::shared_ptr<IDolm> IDolm::fromBinder(const ::ndk::SpAIBinder& binder) {
    return internal::interfaceFromBinder<IDolm, BpDolm>(binder, gClass);
}

binder_status_t IDolm::writeToParcel(AParcel* parcel, const std::shared_ptr<IDolm>& instance) {
    return internal::writeInterface(parcel, instance);
}

binder_status_t IDolm::readFromParcel(const AParcel* parcel, std::shared_ptr<IDolm>* instance) {
    return internal::readInterface(parcel, instance);
}

bool IDolm::setDefaultImpl(std::shared_ptr<IDolm> impl) {
    return internal::setDefaultImpl(default_impl, std::move(impl));
}

const std::shared_ptr<IDolm>& IDolm::getDefaultImpl() {
    return default_impl;
}

// IDolmDefault: every operation is unknown to it.
using internal::unknownTransaction;
::ndk::ScopedAStatus IDolmDefault::init() {
    return unknownTransaction();
}
::ndk::ScopedAStatus IDolmDefault::request(const DolmRequestParcel&, int32_t*) {
    return unknownTransaction();
}
::ndk::ScopedAStatus IDolmDefault::release(int32_t, int32_t*) {
    return unknownTransaction();
}
::ndk::ScopedAStatus IDolmDefault::getData(const DolmRequestParcel&, std::vector<DolmRequestData>*) {
    return unknownTransaction();
}
::ndk::ScopedAStatus IDolmDefault::registerListener(const DolmRequestParcel&,
                                                    const std::shared_ptr<IDolmCallback>&,
                                                    int32_t*) {
    return unknownTransaction();
}
::ndk::ScopedAStatus IDolmDefault::unregisterListener(int32_t, int32_t*) {
    return unknownTransaction();
}
::ndk::ScopedAStatus IDolmDefault::getProperty(const std::string&, std::string*) {
    return unknownTransaction();
}
::ndk::ScopedAStatus IDolmDefault::setProperty(const std::string&, const std::string&, int32_t*) {
    return unknownTransaction();
}
::ndk::ScopedAStatus IDolmDefault::registerThermalListener(const std::vector<int32_t>&,
                                                           const std::shared_ptr<IDolmCallback>&,
                                                           int32_t*) {
    return unknownTransaction();
}
::ndk::ScopedAStatus IDolmDefault::unregisterThermalListener(int32_t, int32_t*) {
    return unknownTransaction();
}
::ndk::ScopedAStatus IDolmDefault::reserved(const DolmRequestParcel&, int32_t*) {
    return unknownTransaction();
}
::ndk::ScopedAStatus IDolmDefault::setRelatedSysInfo(int32_t, const std::string&, int32_t*) {
    return unknownTransaction();
}
::ndk::ScopedAStatus IDolmDefault::ruleCtl(int32_t, int32_t, const std::vector<DolmRequestData>&,
                                           int32_t*) {
    return unknownTransaction();
}
::ndk::ScopedAStatus IDolmDefault::getInterfaceVersion(int32_t*) {
    return unknownTransaction();
}
::ndk::ScopedAStatus IDolmDefault::getInterfaceHash(std::string*) {
    return unknownTransaction();
}
::ndk::SpAIBinder IDolmDefault::asBinder() {
    return ::ndk::SpAIBinder();
}
bool IDolmDefault::isRemote() {
    return false;
}

BnDolm::BnDolm() = default;
BnDolm::~BnDolm() = default;

::ndk::ScopedAStatus BnDolm::getInterfaceVersion(int32_t* _aidl_return) {
    *_aidl_return = IDolm::version;
    return ::ndk::ScopedAStatus::ok();
}

::ndk::ScopedAStatus BnDolm::getInterfaceHash(std::string* _aidl_return) {
    *_aidl_return = IDolm::hash;
    return ::ndk::ScopedAStatus::ok();
}

::ndk::SpAIBinder BnDolm::createBinder() {
    AIBinder* binder = AIBinder_new(gClass, static_cast<void*>(this));
#ifdef BINDER_STABILITY_SUPPORT
    // A stable interface: the object may cross between system and vendor.
    AIBinder_markVintfStability(binder);
#endif
    return ::ndk::SpAIBinder(binder);
}

// BpDolm: each operation is one transaction with the code of its position in
// the interface; see internal::callRemote for the flow.
BpDolm::BpDolm(const ::ndk::SpAIBinder& binder) : BpCInterface(binder) {}
BpDolm::~BpDolm() = default;

#define DOLM_CALL(code, reply, fallback, ...) \
    internal::callRemote<IDolm>(              \
            asBinder(), code, [&](IDolm& impl) { return impl.fallback; }, reply, ##__VA_ARGS__)

::ndk::ScopedAStatus BpDolm::init() {
    NoReply none;
    return DOLM_CALL(TRANSACTION_init, &none, init());
}
::ndk::ScopedAStatus BpDolm::request(const DolmRequestParcel& in_parcel, int32_t* _aidl_return) {
    return DOLM_CALL(TRANSACTION_request, _aidl_return, request(in_parcel, _aidl_return), in_parcel);
}
::ndk::ScopedAStatus BpDolm::release(int32_t in_handle, int32_t* _aidl_return) {
    return DOLM_CALL(TRANSACTION_release, _aidl_return, release(in_handle, _aidl_return), in_handle);
}
::ndk::ScopedAStatus BpDolm::getData(const DolmRequestParcel& in_parcel,
                                     std::vector<DolmRequestData>* _aidl_return) {
    return DOLM_CALL(TRANSACTION_getData, _aidl_return, getData(in_parcel, _aidl_return), in_parcel);
}
::ndk::ScopedAStatus BpDolm::registerListener(const DolmRequestParcel& in_parcel,
                                              const std::shared_ptr<IDolmCallback>& in_callback,
                                              int32_t* _aidl_return) {
    return DOLM_CALL(TRANSACTION_registerListener, _aidl_return,
                     registerListener(in_parcel, in_callback, _aidl_return), in_parcel, in_callback);
}
::ndk::ScopedAStatus BpDolm::unregisterListener(int32_t in_handle, int32_t* _aidl_return) {
    return DOLM_CALL(TRANSACTION_unregisterListener, _aidl_return,
                     unregisterListener(in_handle, _aidl_return), in_handle);
}
::ndk::ScopedAStatus BpDolm::getProperty(const std::string& in_key, std::string* _aidl_return) {
    return DOLM_CALL(TRANSACTION_getProperty, _aidl_return, getProperty(in_key, _aidl_return),
                     in_key);
}
::ndk::ScopedAStatus BpDolm::setProperty(const std::string& in_key, const std::string& in_value,
                                         int32_t* _aidl_return) {
    return DOLM_CALL(TRANSACTION_setProperty, _aidl_return,
                     setProperty(in_key, in_value, _aidl_return), in_key, in_value);
}
::ndk::ScopedAStatus BpDolm::registerThermalListener(
        const std::vector<int32_t>& in_ids, const std::shared_ptr<IDolmCallback>& in_callback,
        int32_t* _aidl_return) {
    return DOLM_CALL(TRANSACTION_registerThermalListener, _aidl_return,
                     registerThermalListener(in_ids, in_callback, _aidl_return), in_ids,
                     in_callback);
}
::ndk::ScopedAStatus BpDolm::unregisterThermalListener(int32_t in_handle, int32_t* _aidl_return) {
    return DOLM_CALL(TRANSACTION_unregisterThermalListener, _aidl_return,
                     unregisterThermalListener(in_handle, _aidl_return), in_handle);
}
::ndk::ScopedAStatus BpDolm::reserved(const DolmRequestParcel& in_parcel, int32_t* _aidl_return) {
    return DOLM_CALL(TRANSACTION_reserved, _aidl_return, reserved(in_parcel, _aidl_return),
                     in_parcel);
}
::ndk::ScopedAStatus BpDolm::setRelatedSysInfo(int32_t in_type, const std::string& in_info,
                                               int32_t* _aidl_return) {
    return DOLM_CALL(TRANSACTION_setRelatedSysInfo, _aidl_return,
                     setRelatedSysInfo(in_type, in_info, _aidl_return), in_type, in_info);
}
::ndk::ScopedAStatus BpDolm::ruleCtl(int32_t in_ruleId, int32_t in_status,
                                     const std::vector<DolmRequestData>& in_data,
                                     int32_t* _aidl_return) {
    return DOLM_CALL(TRANSACTION_ruleCtl, _aidl_return,
                     ruleCtl(in_ruleId, in_status, in_data, _aidl_return), in_ruleId, in_status,
                     in_data);
}
::ndk::ScopedAStatus BpDolm::getInterfaceVersion(int32_t* _aidl_return) {
    return internal::askOnce(_aidl_cached_hash_mutex, _aidl_cached_version, -1, _aidl_return, [&] {
        return DOLM_CALL(TRANSACTION_getInterfaceVersion, _aidl_return,
                         getInterfaceVersion(_aidl_return));
    });
}
::ndk::ScopedAStatus BpDolm::getInterfaceHash(std::string* _aidl_return) {
    return internal::askOnce(_aidl_cached_hash_mutex, _aidl_cached_hash, std::string("-1"),
                             _aidl_return, [&] {
                                 return DOLM_CALL(TRANSACTION_getInterfaceHash, _aidl_return,
                                                  getInterfaceHash(_aidl_return));
                             });
}

#undef DOLM_CALL

}  // namespace dolm
}  // namespace hardware
}  // namespace tarvo
}  // namespace vendor
}  // namespace aidl
