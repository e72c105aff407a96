/*
 * Pieces shared by the dolmHalclient request functions: the entries of a
 * request parcel, the scalar fields of control requests, the one-shot and
 * listener callback clients, and the two call shapes most functions have
 * (send one request and return its out-parameter; register a listener).
 */
#pragma once

#include <cstdint>
#include <list>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "CallbackRegistry.h"
#include "DolmConnection.h"
#include "HalclientLog.h"
#include "halclient.h"

namespace halclient {

using ::aidl::vendor::tarvo::hardware::dolm::DolmRequestData;
using ::aidl::vendor::tarvo::hardware::dolm::DolmRequestParcel;
using ::aidl::vendor::tarvo::hardware::dolm::IDolm;

/**
 * The refusal of both control requests with a callback, id- and
 * path-addressed alike (the path form has always used the id form's text).
 */
inline constexpr const char* kCallbackRequestRefusal =
        "dolm client dolm_resctl_request ERROR: size unmatched for id and value ";

/** Request-type codes of DolmRequestParcel::requestType. */
enum RequestType : int32_t {
    DOLM_REQ_RES_CTL = 1,
    DOLM_REQ_SA_CTL = 2,
    DOLM_REQ_DIAG = 5,
    DOLM_REQ_THERMAL_NOTIFY = 7,
};

/**
 * Appends one entry per resource, in order: its id and its value, which is
 * always present (empty when the resource has none).
 */
void appendResourceEntries(DolmRequestParcel& parcel,
                           const std::list<ZelClient::Resource>& resources);

/** An entry addressed by path: id 0, the path, and `value` as given. */
DolmRequestData pathEntry(const std::string& path, std::optional<std::string> value);

/** The tag every path-addressed parcel carries; adds the tag to a new default parcel. */
DolmRequestParcel pathParcel();

/** The caller's control arguments, as every control request form takes them. */
struct ControlArgs {
    int leadArg;
    int64_t timeout;
    int option;
    int flagArg;
    int clientArg;
};

/**
 * Sets the fields that resource, sub-system and path control share: the
 * request type, `flag` (true for `flagArg` of 1 or more) and the numbers.
 */
void setControlFields(DolmRequestParcel& parcel, int32_t requestType, const ControlArgs& args);

/** A new callback client wrapping `callback` in the id form or the path form. */
std::shared_ptr<DolmCallbackClient> makeCallbackClient(
        const std::shared_ptr<IClientCallback>& callback, bool isRegister);
std::shared_ptr<DolmCallbackClient> makeCallbackClient(
        const std::shared_ptr<IClientCallbackByPath>& callback, bool isRegister);

/**
 * Makes the one-shot client of a request with a callback, registers it in
 * request_callbacks (logging `addedLine`) and puts it into the parcel. Runs
 * under the shared connection lock, before the request is sent.
 */
template <typename Callback>
void attachRequestCallback(DolmRequestParcel& parcel, const std::shared_ptr<Callback>& callback,
                           const char* addedLine) {
    DOLM_LOGI("new std::shared_ptr DolmCallbackClient callback");
    std::shared_ptr<DolmCallbackClient> client = makeCallbackClient(callback, false);
    addRequestCallback(client, addedLine);
    parcel.callback = client;
}

/**
 * Makes one call in the frame whose answer is an int32 out-parameter:
 * `call(hal, &result)` returns the status, or std::nullopt to send nothing.
 * Returns the out-parameter: preset to -1, then as the service left it.
 */
template <typename Call>
int32_t callForResult(const char* failureLabel, Call&& call) {
    int32_t result = -1;
    callInFrame(failureLabel, [&](IDolm& hal) -> std::optional<::ndk::ScopedAStatus> {
        return call(hal, &result);
    });
    return result;
}

/**
 * Sends one `request` in the call frame. `build(parcel)` fills a default
 * parcel, or logs and returns false to send nothing. Returns the
 * out-parameter: preset to -1, then as the service left it.
 */
template <typename Build>
int32_t sendRequest(const char* failureLabel, Build&& build) {
    return callForResult(failureLabel,
                         [&](IDolm& hal, int32_t* result) -> std::optional<::ndk::ScopedAStatus> {
                             DolmRequestParcel parcel;
                             if (!build(parcel)) return std::nullopt;
                             return hal.request(parcel, result);
                         });
}

/** A control request (resource, sub-system or path control) before it is built. */
struct ControlRequest {
    /** The parcel to start from: a default one, or a tagged one for path control. */
    DolmRequestParcel start;
    /** Null when the arguments are valid, else the ERROR line that refuses them. */
    const char* refusal;
    int32_t requestType;
    ControlArgs args;
};

/**
 * Sends a control request in the call frame: logs the refusal and sends
 * nothing when there is one, else sets the control fields, runs `attach` (the
 * one-shot callback, if any) and `fill` (the entries) on the parcel.
 */
template <typename Attach, typename Fill>
int32_t sendControlRequest(const char* failureLabel, const ControlRequest& request, Attach&& attach,
                           Fill&& fill) {
    return sendRequest(failureLabel, [&](DolmRequestParcel& parcel) {
        if (request.refusal != nullptr) {
            DOLM_LOGE("%s", request.refusal);
            return false;
        }
        parcel = request.start;
        setControlFields(parcel, request.requestType, request.args);
        attach(parcel);
        fill(parcel);
        return true;
    });
}

/** A control request without callback. */
template <typename Fill>
int32_t sendControlRequest(const char* failureLabel, const ControlRequest& request, Fill&& fill) {
    return sendControlRequest(
            failureLabel, request, [](DolmRequestParcel&) {}, std::forward<Fill>(fill));
}

/** A control request with a one-shot callback, registered as `addedLine` says. */
template <typename Callback, typename Fill>
int32_t sendControlRequest(const char* failureLabel, const ControlRequest& request,
                           const std::shared_ptr<Callback>& callback, const char* addedLine,
                           Fill&& fill) {
    return sendControlRequest(
            failureLabel, request,
            [&](DolmRequestParcel& parcel) { attachRequestCallback(parcel, callback, addedLine); },
            std::forward<Fill>(fill));
}

/** The registry record of an accepted id- or path-addressed registration. */
DolmCallbackGroup listenerGroup(std::vector<int32_t> ids, int32_t handle,
                                std::shared_ptr<DolmCallbackClient> client);
DolmCallbackGroup listenerGroup(std::vector<std::string> paths, int32_t handle,
                                std::shared_ptr<DolmCallbackClient> client);

/**
 * Registers a listener in the call frame. `build(parcel)` fills a default
 * parcel and returns the list (ids or paths) the registration is known by.
 * listen_callback_mutex is held from the duplicate test through the service
 * call and the append of the accepted group. Returns the handle (-1 when
 * refused or not written).
 *
 * A failed call releases the mutex before the connection reset takes the
 * connection lock exclusive: a concurrent registration may hold that lock
 * shared while it waits for the mutex, and the reset would wait for it.
 *
 * A delivery that the service makes to this thread from inside the call (a
 * new listener's first delivery) is relayed only after the mutex has been
 * released, when the function is about to return.
 */
template <typename Build, typename Callback>
int32_t registerListener(const char* failureLabel, Build&& build,
                         const std::shared_ptr<Callback>& callback) {
    // Opened before the registry lock, so it closes after the lock's release.
    HeldDeliveries held;
    int32_t handle = -1;
    std::unique_lock<std::mutex> registryLock(listen_callback_mutex, std::defer_lock);
    decltype(build(std::declval<DolmRequestParcel&>())) keys;
    std::shared_ptr<DolmCallbackClient> client;
    callInFrame(
            failureLabel,
            [&](IDolm& hal) -> std::optional<::ndk::ScopedAStatus> {
                DolmRequestParcel parcel;
                keys = build(parcel);
                registryLock.lock();
                if (isListenerRegisteredLocked(keys)) {
                    registryLock.unlock();
                    return std::nullopt;
                }
                client = makeCallbackClient(callback, true);
                return hal.registerListener(parcel, client, &handle);
            },
            [&](bool ok) {
                if (ok) {
                    listen_callbacks.push_back(listenerGroup(std::move(keys), handle, client));
                    DOLM_LOGI("A callback has been registered to Dolm HAL ");
                }
                registryLock.unlock();
            });
    return handle;
}

}  // namespace halclient
