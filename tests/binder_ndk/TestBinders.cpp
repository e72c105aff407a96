#include "TestBinders.h"

#include <android/binder_manager.h>
#include <android/binder_parcel_utils.h>
#include <unistd.h>

#include <atomic>

namespace bindertest {

void (*gReport)(const std::string& line) = nullptr;

namespace {

void report(const std::string& line) {
    if (gReport != nullptr) gReport(line);
}

std::atomic<int> gWaiting{0};

// The held callback's death is reported, so that a test can tell the service
// took its holder for dead.
void onHeldDied(void*) {
    report("held died");
}

AIBinder_DeathRecipient* heldRecipient() {
    static AIBinder_DeathRecipient* recipient = AIBinder_DeathRecipient_new(onHeldDied);
    return recipient;
}

// Blocks until a line (or end of file) arrives on stdin.
void waitForLine() {
    char byte = 0;
    while (read(STDIN_FILENO, &byte, 1) == 1 && byte != '\n') {
    }
}

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
    observed->callingPid = AIBinder_getCallingPid();
    observed->callingUid = AIBinder_getCallingUid();
    observed->changed.notify_all();
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
            if (status == STATUS_OK) status = AParcel_writeInt32(out, result);
            return status == STATUS_OK ? AParcel_writeInt32(out, threadHash()) : status;
        }
        case kHold: {
            ndk::SpAIBinder held;
            binder_status_t status = ndk::AParcel_readRequiredStrongBinder(in, &held);
            if (status != STATUS_OK) return status;
            if (AIBinder_isRemote(held.get())) {
                AIBinder_linkToDeath(held.get(), heldRecipient(), nullptr);
            }
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
            report("blocked");
            for (;;) pause();
        case kThreadId:
            record(binder, "thread");
            return AParcel_writeInt32(out, threadHash());
        case kCallHeldLater: {
            std::string text;
            binder_status_t status = ndk::AParcel_readString(in, &text);
            if (status != STATUS_OK) return status;
            ndk::SpAIBinder held;
            {
                std::lock_guard<std::mutex> lock(observed->mutex);
                held = observed->held;
            }
            if (held.get() == nullptr) return STATUS_INVALID_OPERATION;
            // Not nested: the call leaves from a thread of the service's own.
            std::thread([held, text] {
                int32_t result = 0;
                report("called " +
                       std::to_string(callWithBinder(held.get(), kNotify, nullptr, text, &result)));
            }).detach();
            return AParcel_writeInt32(out, 0);
        }
        case kWaitGo:
            ++gWaiting;
            report("waiting");
            waitForLine();
            --gWaiting;
            return AParcel_writeInt32(out, 0);
        case kWaitingCount:
            return AParcel_writeInt32(out, gWaiting.load());
        case kCallingId: {
            binder_status_t status = AParcel_writeInt32(out, AIBinder_getCallingPid());
            return status == STATUS_OK
                           ? AParcel_writeInt32(out, static_cast<int32_t>(AIBinder_getCallingUid()))
                           : status;
        }
        case kSized: {
            std::string ignored;
            int32_t size = 0;
            binder_status_t status = ndk::AParcel_readString(in, &ignored);
            if (status == STATUS_OK) status = AParcel_readInt32(in, &size);
            if (status != STATUS_OK) return status;
            return ndk::AParcel_writeString(out, std::string(static_cast<size_t>(size), 's'));
        }
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
    auto* observed = static_cast<Observed*>(AIBinder_getUserData(binder));
    std::function<void()> during;
    {
        std::lock_guard<std::mutex> lock(observed->mutex);
        during = observed->during;
    }
    if (during) during();
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
                               const std::string& text, int32_t* result, binder_flags_t flags,
                               int32_t* serverThread) {
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
    if (status == STATUS_OK && serverThread != nullptr) {
        status = AParcel_readInt32(reply.get(), serverThread);
    }
    return status;
}

binder_status_t callEchoService(AIBinder* binder, transaction_code_t code,
                                const std::function<binder_status_t(AParcel*)>& write,
                                const std::function<binder_status_t(const AParcel*)>& read) {
    AIBinder_associateClass(binder, echoClass());
    ndk::ScopedAParcel reply;
    binder_status_t status = call(binder, code, write, &reply);
    return status == STATUS_OK ? read(reply.get()) : status;
}

void Deaths::onDied(void* cookie) {
    auto* deaths = static_cast<Deaths*>(cookie);
    std::lock_guard<std::mutex> lock(deaths->mutex);
    ++deaths->count;
    deaths->changed.notify_all();
}

bool Deaths::waitFor(int total, std::chrono::milliseconds limit) {
    std::unique_lock<std::mutex> lock(mutex);
    return changed.wait_for(lock, limit, [&] { return count >= total; });
}

ndk::SpAIBinder getEcho(const char* instance) {
    ndk::SpAIBinder binder(AServiceManager_getService(instance));
    if (binder.get() != nullptr) AIBinder_associateClass(binder.get(), echoClass());
    return binder;
}

bool echoes(AIBinder* binder) {
    std::optional<std::string> text;
    int32_t value = 0;
    return callEcho(binder, std::string("fine"), 2, &text, &value) == STATUS_OK && text == "fine" &&
           value == 4;
}

binder_status_t callHeldLater(AIBinder* service, const std::string& text) {
    return callEchoService(
            service, kCallHeldLater, [&](AParcel* in) { return ndk::AParcel_writeString(in, text); },
            [](const AParcel*) { return STATUS_OK; });
}

int32_t threadHash() {
    return static_cast<int32_t>(std::hash<std::thread::id>()(std::this_thread::get_id()));
}

}  // namespace bindertest
