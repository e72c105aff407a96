// Binder classes shared by the runtime's tests and their helper server
// process: an echo service and a callback object, both observable.
#pragma once

#include <android/binder_auto_utils.h>
#include <android/binder_ibinder.h>
#include <sys/types.h>

#include <chrono>
#include <condition_variable>
#include <functional>
#include <mutex>
#include <optional>
#include <string>
#include <thread>

namespace bindertest {

constexpr const char* kEchoDescriptor = "binder.test.IEcho";
constexpr const char* kCallbackDescriptor = "binder.test.ICallback";
constexpr auto kWaitLimit = std::chrono::seconds(10);

/** Echo service codes. */
enum : transaction_code_t {
    kEcho = FIRST_CALL_TRANSACTION,  // optional string, int32 -> same string, int32 * 2
    kCallBack,                       // binder, string -> the callback's reply (int32)
    kHold,                           // binder: the service keeps it
    kDropHeld,                       // the service drops what it holds
    kPid,                            // -> the serving process's pid
    kBlock,                          // never answers (the serving thread blocks)
    kThreadId,                       // -> a hash of the serving thread's id
    kCallHeldLater,  // string: a new thread of the service calls the held callback with it
    kWaitGo,         // reports "waiting", returns once a line arrives on the service's stdin
    kWaitingCount,   // -> how many kWaitGo calls are waiting right now
    kCallingId,      // -> AIBinder_getCallingPid(), AIBinder_getCallingUid() as int32
    kSized,          // string (ignored), int32 size -> a string of that many bytes
};

/** Callback code: string -> int32 pid of the process it runs in. */
constexpr transaction_code_t kNotify = FIRST_CALL_TRANSACTION;

/** State of one echo or callback object; condition-based waits only. */
struct Observed {
    std::mutex mutex;
    std::condition_variable changed;
    int destroyed = 0;
    int calls = 0;
    std::string lastText;
    std::thread::id lastThread;
    pid_t callingPid = 0;  // AIBinder_getCallingPid/Uid during the last call
    uid_t callingUid = 0;
    ndk::SpAIBinder held;
    /** Run by a callback object during each call, outside the lock (e.g. a nested call); set under
     * the lock. */
    std::function<void()> during;

    /** Waits until \p done holds (under the lock) or the limit passes. */
    bool waitFor(const std::function<bool()>& done) {
        std::unique_lock<std::mutex> lock(mutex);
        return changed.wait_for(lock, kWaitLimit, done);
    }
};

/** Death notifications received by a recipient whose cookie is this object. */
struct Deaths {
    std::mutex mutex;
    std::condition_variable changed;
    int count = 0;
    // Last: deleted (and so unlinked) before what its notifications touch.
    ndk::ScopedAIBinder_DeathRecipient recipient{AIBinder_DeathRecipient_new(onDied)};

    static void onDied(void* cookie);
    /** Links this object's recipient to \p binder's death. */
    binder_status_t link(AIBinder* binder) {
        return AIBinder_linkToDeath(binder, recipient.get(), this);
    }
    /** Waits until \p total arrived or \p limit passes. */
    bool waitFor(int total, std::chrono::milliseconds limit = kWaitLimit);
    /** How many arrived so far. */
    int arrived() {
        std::lock_guard<std::mutex> lock(mutex);
        return count;
    }
};

AIBinder_Class* echoClass();
AIBinder_Class* callbackClass();

/** A new local object of the class; \p observed must outlive it. One strong reference. */
ndk::SpAIBinder newEcho(Observed* observed);
ndk::SpAIBinder newCallback(Observed* observed);

/**
 * Where a service reports what happens to it ("blocked", "waiting", "called <status>",
 * "held died"); the helper server prints each line on stdout. Null: not reported.
 */
extern void (*gReport)(const std::string& line);

/** Calls kEcho on \p binder; returns the transport status. */
binder_status_t callEcho(AIBinder* binder, const std::optional<std::string>& text, int32_t value,
                         std::optional<std::string>* textOut, int32_t* valueOut);

/** A two-way call with no arguments that returns an int32 (kPid, kThreadId, kDropHeld...). */
binder_status_t callInt(AIBinder* binder, transaction_code_t code, int32_t* result);

/**
 * A call whose only argument is \p arg (kHold; kCallBack adds \p text). kCallBack also
 * answers a hash of the service's serving thread, stored in \p serverThread when given.
 */
binder_status_t callWithBinder(AIBinder* binder, transaction_code_t code, AIBinder* arg,
                               const std::string& text, int32_t* result, binder_flags_t flags = 0,
                               int32_t* serverThread = nullptr);

/**
 * Any two-way call to the echo service: \p write adds the arguments, \p read takes the
 * results from the reply. Returns the first failing status.
 */
binder_status_t callEchoService(AIBinder* binder, transaction_code_t code,
                                const std::function<binder_status_t(AParcel*)>& write,
                                const std::function<binder_status_t(const AParcel*)>& read);

/** The echo service registered as \p instance (waiting for it as getService does), or null. */
ndk::SpAIBinder getEcho(const char* instance);

/** True when kEcho on \p binder answers as it should. */
bool echoes(AIBinder* binder);

/** kCallHeldLater: the service calls the callback it holds with \p text, from a thread of its own. */
binder_status_t callHeldLater(AIBinder* service, const std::string& text);

/** A hash of the calling thread's id, as kThreadId and kCallBack answer it. */
int32_t threadHash();

}  // namespace bindertest
