#include "TestBinders.h"

#include <android/binder_parcel_utils.h>
#include <unistd.h>

namespace bindertest {

void (*gOnBlock)() = nullptr;

namespace {

void* onCreate(void* args) {
    return args;
}

void onDestroy(void* userData) {
    auto* observed = static_cast<Observed*>(userData);
    std::lock_guard<std::mutex> lock(observed->mutex);
    ++observed->destroyed;
    observed->changed.notify_all();
}

void record(AIBinder* binder, const std::string& text) {
    auto* observed = static_cast<Observed*>(AIBinder_getUserData(binder));
    std::lock_guard<std::mutex> lock(observed->mutex);
    ++observed->calls;
    observed->lastText = text;
    observed->lastThread = std::this_thread::get_id();
    observed->changed.notify_all();
}

int32_t threadHash() {
    return static_cast<int32_t>(std::hash<std::thread::id>()(std::this_thread::get_id()));
}

binder_status_t echoTransact(AIBinder* binder, transaction_code_t code, const AParcel* in,
                             AParcel* out) {
    auto* observed = static_cast<Observed*>(AIBinder_getUserData(binder));
    switch (code) {
        case kEcho: {
            std::optional<std::string> text;
            int32_t value = 0;
            binder_status_t status = ndk::AParcel_readString(in, &text);
            if (status == STATUS_OK) status = AParcel_readInt32(in, &value);
            if (status != STATUS_OK) return status;
            record(binder, text.value_or("<null>"));
            status = ndk::AParcel_writeString(out, text);
            return status == STATUS_OK ? AParcel_writeInt32(out, value * 2) : status;
        }
        case kCallBack: {
            ndk::SpAIBinder callback;
            std::string text;
            binder_status_t status = ndk::AParcel_readRequiredStrongBinder(in, &callback);
            if (status == STATUS_OK) status = ndk::AParcel_readString(in, &text);
            if (status != STATUS_OK) return status;
            int32_t result = 0;
            status = callWithBinder(callback.get(), kNotify, nullptr, text, &result);
            return status == STATUS_OK ? AParcel_writeInt32(out, result) : status;
        }
        case kHold: {
            ndk::SpAIBinder held;
            binder_status_t status = ndk::AParcel_readRequiredStrongBinder(in, &held);
            if (status != STATUS_OK) return status;
            std::lock_guard<std::mutex> lock(observed->mutex);
            observed->held = held;
            observed->changed.notify_all();
            return STATUS_OK;
        }
        case kDropHeld: {
            ndk::SpAIBinder dropped;
            {
                std::lock_guard<std::mutex> lock(observed->mutex);
                dropped = observed->held;
                observed->held.set(nullptr);
            }
            return AParcel_writeInt32(out, 0);
        }
        case kPid:
            return AParcel_writeInt32(out, getpid());
        case kBlock:
            if (gOnBlock != nullptr) gOnBlock();
            for (;;) pause();
        case kThreadId:
            record(binder, "thread");
            return AParcel_writeInt32(out, threadHash());
        default:
            return STATUS_UNKNOWN_TRANSACTION;
    }
}

binder_status_t callbackTransact(AIBinder* binder, transaction_code_t code, const AParcel* in,
                                 AParcel* out) {
    if (code != kNotify) return STATUS_UNKNOWN_TRANSACTION;
    std::string text;
    binder_status_t status = ndk::AParcel_readString(in, &text);
    if (status != STATUS_OK) return status;
    record(binder, text);
    return AParcel_writeInt32(out, getpid());
}

// Prepares a call, lets \p write add the arguments, transacts.
template <typename Write>
binder_status_t call(AIBinder* binder, transaction_code_t code, Write write,
                     ndk::ScopedAParcel* reply, binder_flags_t flags = 0) {
    ndk::ScopedAParcel request;
    binder_status_t status = AIBinder_prepareTransaction(binder, request.getR());
    if (status == STATUS_OK) status = write(request.get());
    if (status != STATUS_OK) return status;
    return AIBinder_transact(binder, code, request.getR(), reply->getR(), flags);
}

}  // namespace

AIBinder_Class* echoClass() {
    static AIBinder_Class* clazz =
            AIBinder_Class_define(kEchoDescriptor, onCreate, onDestroy, echoTransact);
    return clazz;
}

AIBinder_Class* callbackClass() {
    static AIBinder_Class* clazz =
            AIBinder_Class_define(kCallbackDescriptor, onCreate, onDestroy, callbackTransact);
    return clazz;
}

ndk::SpAIBinder newEcho(Observed* observed) {
    return ndk::SpAIBinder(AIBinder_new(echoClass(), observed));
}

ndk::SpAIBinder newCallback(Observed* observed) {
    return ndk::SpAIBinder(AIBinder_new(callbackClass(), observed));
}

binder_status_t callEcho(AIBinder* binder, const std::optional<std::string>& text, int32_t value,
                         std::optional<std::string>* textOut, int32_t* valueOut) {
    AIBinder_associateClass(binder, echoClass());
    ndk::ScopedAParcel reply;
    binder_status_t status = call(
            binder, kEcho,
            [&](AParcel* in) {
                binder_status_t written = ndk::AParcel_writeString(in, text);
                return written == STATUS_OK ? AParcel_writeInt32(in, value) : written;
            },
            &reply);
    if (status == STATUS_OK) status = ndk::AParcel_readString(reply.get(), textOut);
    if (status == STATUS_OK) status = AParcel_readInt32(reply.get(), valueOut);
    return status;
}

binder_status_t callInt(AIBinder* binder, transaction_code_t code, int32_t* result) {
    AIBinder_associateClass(binder, echoClass());
    ndk::ScopedAParcel reply;
    binder_status_t status = call(
            binder, code, [](AParcel*) { return STATUS_OK; }, &reply);
    return status == STATUS_OK ? AParcel_readInt32(reply.get(), result) : status;
}

binder_status_t callWithBinder(AIBinder* binder, transaction_code_t code, AIBinder* arg,
                               const std::string& text, int32_t* result, binder_flags_t flags) {
    bool toCallback = code == kNotify;
    AIBinder_associateClass(binder, toCallback ? callbackClass() : echoClass());
    ndk::ScopedAParcel reply;
    binder_status_t status = call(
            binder, code,
            [&](AParcel* in) {
                binder_status_t written = STATUS_OK;
                if (!toCallback) written = AParcel_writeStrongBinder(in, arg);
                if (written == STATUS_OK && code != kHold) {
                    written = ndk::AParcel_writeString(in, text);
                }
                return written;
            },
            &reply, flags);
    if (status == STATUS_OK && code != kHold && (flags & FLAG_ONEWAY) == 0) {
        status = AParcel_readInt32(reply.get(), result);
    }
    return status;
}

}  // namespace bindertest
