/*
 * The client's connection to the IDolm service and the call frame that every
 * dolmHalclient entry point runs its one service call in.
 *
 * The proxy holder is guarded by a reader/writer lock: every call holds it
 * shared from the check of the holder to the return of the binder call, so the
 * proxy cannot be dropped under a call in flight; connecting, dropping after a
 * failure and the death callback take it exclusive. The lock is never
 * upgraded and is not re-entrant: a delivery that the service makes to the
 * calling thread from inside a call is relayed only after the lock has been
 * released (CallbackDelivery.h), so no caller callback runs under it.
 */
#pragma once

#include <aidl/vendor/tarvo/hardware/dolm/IDolm.h>
#include <android/binder_ibinder.h>

#include <memory>
#include <mutex>
#include <optional>
#include <shared_mutex>
#include <utility>

#include "CallbackDelivery.h"

/** The service proxy; empty while not connected. Guarded by g_dolm_hal_lock. */
extern std::shared_ptr<::aidl::vendor::tarvo::hardware::dolm::IDolm> g_dolm_hal;
/** Guards g_dolm_hal. */
extern std::shared_mutex g_dolm_hal_lock;
/**
 * Death recipient of the latest connection. Each connection makes a new one;
 * earlier ones are kept, never freed, so that a late notification never
 * reaches a freed recipient.
 */
extern AIBinder_DeathRecipient* g_dolm_death_recipient;

/**
 * Connects to the service and links to its death unless a connection exists.
 * Never reports failure: callers look at g_dolm_hal afterwards.
 */
void get_dolm_hal_and_link_to_death();

namespace halclient {

/** "vendor.tarvo.hardware.dolm.IDolm/default" */
extern const char* const DOLM_SERVICE_INSTANCE;

/**
 * Logs "<label>() failed: dolm HAL service not available" and drops the
 * connection under the exclusive lock. The caller holds no shared lock.
 */
void resetDolmHal(const char* label);

/** How a call made in the frame ended. */
enum class CallOutcome {
    kNotConnected,  ///< no service; nothing was built or sent
    kNotSent,       ///< the builder refused the arguments; nothing was sent
    kFailed,        ///< the status was null or not OK; the connection was dropped
    kOk,            ///< the status was OK
};

/**
 * The call frame: connects if needed, takes the connection lock shared and,
 * when connected, runs `call(IDolm&)` under it. `call` builds the arguments,
 * makes the one binder call and returns its status, or std::nullopt to send
 * nothing (after logging why). The shared lock is released as soon as `call`
 * returns, and deliveries that the service made to this thread from inside
 * the call are relayed (see CallbackDelivery.h), unless an enclosing scope
 * holds them longer; then `afterCall(bool ok)` runs (without the connection
 * lock), and after it a null or non-OK status drops the connection under
 * `failureLabel`.
 */
template <typename Call, typename AfterCall>
CallOutcome callInFrame(const char* failureLabel, Call&& call, AfterCall&& afterCall) {
    get_dolm_hal_and_link_to_death();
    ::ndk::ScopedAStatus status;
    {
        // Opened before the lock is taken, so that a delivery nested in the
        // call is relayed once the lock has been released.
        HeldDeliveries held;
        std::shared_lock<std::shared_mutex> lock(g_dolm_hal_lock);
        if (g_dolm_hal == nullptr) return CallOutcome::kNotConnected;
        std::optional<::ndk::ScopedAStatus> sent = call(*g_dolm_hal);
        if (!sent.has_value()) return CallOutcome::kNotSent;
        status = std::move(*sent);
    }
    const bool ok = status.isOk();
    afterCall(ok);
    if (!ok) {
        resetDolmHal(failureLabel);
        return CallOutcome::kFailed;
    }
    return CallOutcome::kOk;
}

/** The call frame with nothing to do between the call and the reset. */
template <typename Call>
CallOutcome callInFrame(const char* failureLabel, Call&& call) {
    return callInFrame(failureLabel, std::forward<Call>(call), [](bool) {});
}

}  // namespace halclient
