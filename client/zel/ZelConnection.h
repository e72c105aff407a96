/*
 * The event layer's own connection to the IDolm service (private to the
 * library): the proxy holder, its reader/writer lock, the death recipient,
 * and the one call frame that every event function uses.
 *
 * Lock discipline: g_zel_hal_lock is held shared to read g_zel_hal and for the
 * whole of a binder call made through it, and exclusive only to replace or
 * reset the holder. It is never upgraded: a reset after a failed call takes
 * the exclusive lock after the shared one has been released. No caller
 * callback runs under it, not even one delivered to the calling thread from
 * inside a call (see callService()).
 */
#pragma once

#include <aidl/vendor/tarvo/hardware/dolm/IDolm.h>
#include <android/binder_ibinder.h>

#include <cstdint>
#include <memory>
#include <mutex>
#include <shared_mutex>
#include <string>
#include <utility>
#include <vector>

#include "halclient.h"
#include "halclient/CallbackDelivery.h"

/** The connected proxy, or null when not connected. */
extern std::shared_ptr<::aidl::vendor::tarvo::hardware::dolm::IDolm> g_zel_hal;
/** Guards g_zel_hal; see the lock discipline above. */
extern std::shared_mutex g_zel_hal_lock;
/** Death recipient of the current connection; replaced on every lookup, never deleted. */
extern AIBinder_DeathRecipient* g_zel_death_recipient;

/**
 * Connects if not connected: looks the service up, stores the proxy and links
 * it to death. Returns 0 when g_zel_hal holds a proxy on return, -1 otherwise
 * (after logging why). Two threads that both find the holder empty both look
 * the service up, one after the other; the second one's proxy replaces the first.
 */
int32_t zel_get_dolm_hal_and_link_to_death();

namespace zel {

/** Request-type codes of DolmRequestParcel as the event layer sends them. */
constexpr int32_t kReqResCtl = 1;
constexpr int32_t kReqEvent = 8;
constexpr int32_t kReqNotify = 10;
constexpr int32_t kReqHistory = 11;
constexpr int32_t kReqPlatformRes = 12;
constexpr int32_t kReqPmStatus = 13;

/** A text as the event layer shows it in log lines and trace names: "none" when empty. */
inline const char* orNone(const std::string& text) {
    return text.empty() ? "none" : text.c_str();
}

/**
 * Connects (zel_get_dolm_hal_and_link_to_death) and logs the connect error
 * line on failure. Returns 0 when connected, the connect error otherwise.
 */
int32_t connect();

/** Logs "<label>() failed : ..." and drops the connection under the exclusive lock. */
void resetConnection(const char* label);

/**
 * One request entry per resource, in list order: the resource's id, and its
 * value, present even when the resource has none (then empty).
 */
std::vector<::aidl::vendor::tarvo::hardware::dolm::DolmRequestData> resourceEntries(
        const std::vector<ZelClient::Resource>& resources);

/** How one service call made through callService() ended. */
enum class CallResult {
    kNoProxy,  ///< the holder was empty when the shared lock was taken; nothing was called
    kFailed,   ///< the status was missing or not OK; the failure was logged, the connection dropped
    kOk,       ///< the status was OK
};

/**
 * The call frame of every event function: takes g_zel_hal_lock shared, runs
 * `call(IDolm&)` (which makes the one binder call and returns its status) if
 * the holder is set, releases the lock as soon as the call returns, and on a
 * missing or not-OK status logs the failure with `label` and resets the
 * connection. The caller has connected before.
 *
 * The event layer hands the service no callbacks, but the service may call a
 * listener of the resource-control client from inside an event call; such a
 * delivery reaches the calling thread and is relayed once the lock has been
 * released (halclient/CallbackDelivery.h).
 */
template <typename Call>
CallResult callService(const char* label, Call&& call) {
    ::ndk::ScopedAStatus status;
    {
        // Opened before the lock is taken, so that a delivery nested in the
        // call is relayed once the lock has been released.
        halclient::HeldDeliveries held;
        std::shared_lock<std::shared_mutex> lock(g_zel_hal_lock);
        if (g_zel_hal == nullptr) return CallResult::kNoProxy;
        status = std::forward<Call>(call)(*g_zel_hal);
    }
    if (status.isOk()) return CallResult::kOk;
    resetConnection(label);
    return CallResult::kFailed;
}

/**
 * callService() for an operation that answers through the int32 `out`: the
 * value the service wrote there when the call succeeded, -1 otherwise. `out`
 * is read only after the call has returned.
 */
template <typename Call>
int32_t callForResult(const char* label, const int32_t& out, Call&& call) {
    return callService(label, std::forward<Call>(call)) == CallResult::kOk ? out : -1;
}

}  // namespace zel
