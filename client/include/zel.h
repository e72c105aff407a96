/*
 * Event API of libtarvo-zel-client: framework code tells the resource-control
 * service IDolm that an event has begun, acquires lists of resources for a
 * while, releases them by handle, sends notifications and rule switches, and
 * reads history, resource state and power-mode status.
 *
 * The functions are exported with unmangled names (C linkage) but take C++
 * arguments, so this header is for C++ callers.
 *
 * Common behaviour:
 * - Every function runs on the caller's thread and makes at most one
 *   synchronous binder call; nothing is queued or retried.
 * - The layer keeps its own connection to the service. It connects lazily on
 *   first use (zelInit is optional), drops the connection when the service
 *   dies or a call fails (a service-specific error included), and connects
 *   again on the next call.
 * - Any number of threads may call at once. Calls run in parallel; connecting
 *   and dropping the connection wait for the calls in flight.
 * - The event API hands the service no callbacks, but the service may call a
 *   listener registered through halclient.h while it handles an event call.
 *   That delivery then runs on the calling thread, after this layer has
 *   released its lock and before the function returns (see halclient.h for
 *   what such a callback must not wait for).
 * - Results: the value the service wrote into its out-parameter, or -1 when
 *   the service is unreachable or the call failed. A connect failure returns
 *   the connect error, which is -1.
 * - Strings and lists passed by constant reference are only read and may be
 *   released by the caller on return; output arguments are written only as
 *   stated. No error is raised as an exception, except by ZelGetPMStatus.
 * - Lines go to the Android log with tag "[ZEL_CLIENT]".
 */
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "halclient.h"

/** Size of the stack buffer a trace-section name is formatted into; longer names are cut. */
#define ZEL_TRACE_BUFFER_SIZE 1024
/** Command id of a plain resource acquire (sent as a resource-control request). */
#define ZEL_CMD_RES_ACQUIRE (-2)
/** Command id of a platform resource acquire. */
#define ZEL_CMD_PLATFORM_RES_ACQUIRE (-3)

extern "C" {

/**
 * Connects to the service and calls its init operation.
 * Returns 0 on success, -1 when the service cannot be reached, -2 when init failed.
 */
int32_t zelInit();

/**
 * Acquires an event or a list of resources.
 *
 * @param cmdId     event command id (in the wrapper layer, the position of an
 *                  action in gActionList); ZEL_CMD_RES_ACQUIRE and
 *                  ZEL_CMD_PLATFORM_RES_ACQUIRE select the resource requests
 *                  instead. Any other value, negative ones included, is an
 *                  event command id and is sent as the first entry.
 * @param pkg       package text; sent as it is, also when empty.
 * @param identity  identity text; sent as it is, also when empty.
 * @param timeout   duration of the request, in the service's unit.
 * @param resources resources to set, sent in list order after the command
 *                  entry; a resource without a value is sent with an empty
 *                  value. Not validated.
 * @return the handle the service returned (pass it to ZelRelease), or -1.
 *
 * Emits the instant trace marker "ZelEventAcquire  cmd_id:... pkg:...
 * identity:... duration:..." (always-on category), cut to 1023 characters.
 */
int32_t ZelEventAcquire(int32_t cmdId, const std::string& pkg, const std::string& identity,
                        int32_t timeout, const std::vector<ZelClient::Resource>& resources);

/**
 * ZelEventAcquire(ZEL_CMD_RES_ACQUIRE, "", identity, timeout, resources).
 * `unused` is accepted and ignored.
 */
int32_t ZelResAcquire(const std::vector<ZelClient::Resource>& resources, void* unused,
                      const std::string& identity, int32_t timeout);

/**
 * ZelEventAcquire(ZEL_CMD_PLATFORM_RES_ACQUIRE, pkg, identity, timeout,
 * resources). Note the order: `identity` comes before `pkg`. `unused` is
 * accepted and ignored.
 */
int32_t ZelPlatformResAcquire(const std::vector<ZelClient::Resource>& resources, void* unused,
                              const std::string& identity, const std::string& pkg, int32_t timeout);

/**
 * Releases what an acquire returned. The handle is not checked here: 0,
 * negative and unknown handles go to the service as they are. Emits the
 * instant trace marker "ZelRelease: <handle>". Failures are only logged.
 */
void ZelRelease(int32_t handle);

/**
 * Notifies the service of a condition. The service receives one entry
 * {notifyId, notifyParam} per element of `values` (at least one); the values
 * themselves are not sent. Returns the service's result, or -1.
 */
int32_t ZelNotify(int32_t notifyId, int32_t notifyParam, const std::vector<int32_t>& values);

/**
 * Sets the status of service rule `ruleId`, with `resources` (sent in order,
 * a missing value as an empty one). Returns the service's result, or -1.
 */
int32_t zelRuleCtl(int32_t ruleId, int32_t status,
                   const std::vector<ZelClient::Resource>& resources);

/**
 * Passes one item of related system information to the service unchanged.
 * Returns the service's result, or -1.
 */
int32_t setRelatedSysInfo(int32_t type, const std::string& info);

/**
 * Reads the service's request history into `history` as
 * "start:<piece>;<piece>;...;end" (one piece per returned entry, "none" for
 * an entry without text). Returns 0; -1 on failure or an empty answer, when
 * `history` is left as it was.
 */
int32_t ZelGetHistory(std::string& history);

/**
 * Fills the current values of `resources` (input: the ids; output: the values
 * the service answered, made present). Resources the service does not answer,
 * or answers without a value, are left unchanged. Returns the number of
 * resources filled, or -1 for an empty list, a failure or an empty answer.
 */
int32_t ZelMutiResStateRequest(std::vector<ZelClient::Resource>& resources);

/**
 * Reads the current value of resource `id` into `value` (up to its first NUL
 * character). `value` is written only when the service answered for the id
 * with a value; otherwise, and on any failure, it is left unchanged.
 */
void ZelResStateRequest(int32_t id, std::string& value);

/**
 * Reads the power-mode status for `mode`: the leading base-10 number of the
 * first returned value. Returns -1 on failure or an empty answer, and when the
 * text holds no number or one beyond int32 (then a line goes to standard
 * output). Throws std::bad_optional_access when the service answers an entry
 * without a value; this is the one error the library raises to its callers.
 */
int32_t ZelGetPMStatus(int32_t mode);

}  // extern "C"
