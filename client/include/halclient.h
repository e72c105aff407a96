/*
 * Chief public header of libtarvo-zel-client: the id- and path-addressed
 * resource-control client (namespace dolmHalclient), the resource element
 * shared with the event and wrapper layers, the caller-facing callback
 * interfaces and the callback registries.
 *
 * Common rules of the dolmHalclient functions:
 * - Every function runs on its caller's thread, connects to the IDolm service
 *   lazily (again after the service died), makes at most one synchronous
 *   binder call and never retries. Any thread may call any function at any
 *   time, from inside a caller callback too.
 * - Results are the service's handle or result code as the service wrote it,
 *   or -1 when the service is unreachable, the call failed or the arguments
 *   were refused. No exception crosses the library boundary.
 * - A failed call (transport failure or service refusal alike) drops the
 *   connection; the next call connects again.
 * - Callbacks are delivered on binder threads of the host process, which must
 *   run a binder thread pool; a delivery can arrive before the registering
 *   function has returned. A delivery that the service makes from inside a
 *   call of this process (a request's callback sent before the answer, a new
 *   listener's first delivery, a listener called while the service handles
 *   another call of this process, of the event API too) runs on the thread
 *   that made the call instead, as binder runs nested calls, and needs no
 *   thread pool: the library relays it there once it has released its locks,
 *   before the function returns. The library never runs a caller callback
 *   under one of its locks.
 * - Because of that, a callback must not wait for anything that the calling
 *   thread holds around its library call: a mutex the caller holds while it
 *   calls (a non-recursive one would be taken twice on one thread), or
 *   `request_callback_mutex`.
 * - A callback that the service calls from another of its threads, while it
 *   keeps a call of this process waiting until that callback returns, should
 *   make no library call: connecting again and dropping the connection (after
 *   a failed call, on the service's death) wait for the calls in flight, the
 *   waiting one included, and later calls may queue behind them.
 */
#pragma once

#include <aidl/vendor/tarvo/hardware/dolm/BnDolmCallback.h>
#include <aidl/vendor/tarvo/hardware/dolm/DolmRequestData.h>
#include <aidl/vendor/tarvo/hardware/dolm/DolmRequestParcel.h>

#include <cstdint>
#include <list>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

namespace ZelClient {

/**
 * One element of a resource list: a resource id and the value to set, as
 * text. An id of 0 marks an entry that carries no value. A resource without a
 * value is sent to the service with a present but empty value text.
 */
struct Resource {
    int32_t id = 0;
    std::optional<std::string> value;
};

}  // namespace ZelClient

/**
 * Callback for id-addressed calls, implemented by the caller and held by it
 * through std::shared_ptr. The library keeps a reference for as long as its
 * callback client lives.
 */
class IClientCallback {
  public:
    virtual ~IClientCallback();

    /**
     * Receives the resources of one delivery, in the service's order. Every
     * element has its value set (empty when the service sent none). Runs on a
     * binder thread, possibly on several at once for a listener, or on a
     * thread of the caller's during a library call of that thread (see the
     * common rules above); no library lock is held.
     */
    virtual void onCallback(std::list<ZelClient::Resource> resources) = 0;
};

/**
 * Callback for path-addressed calls, implemented by the caller and held by it
 * through std::shared_ptr.
 */
class IClientCallbackByPath {
  public:
    virtual ~IClientCallbackByPath();

    /**
     * Receives one delivery as two parallel lists with one element per entry,
     * values first, then paths; missing texts are empty. Runs on a binder
     * thread or, during a library call of a thread of the caller's, on that
     * thread; no library lock is held.
     */
    virtual void onCallback(std::vector<std::string> values, std::vector<std::string> paths) = 0;
};

/**
 * The library's IDolmCallback object: wraps one caller callback, is handed to
 * the service, translates its deliveries and relays them. Created only through
 * ::ndk::SharedRefBase::make, so the binder and the shared pointers count the
 * same object. A one-shot client (`is_register` false) removes itself from
 * `request_callbacks` after each delivery, once the caller's callback has
 * returned.
 */
class DolmCallbackClient : public ::aidl::vendor::tarvo::hardware::dolm::BnDolmCallback {
  public:
    /** Id form: deliveries go to `clientCallback` as resource lists. */
    DolmCallbackClient(const std::shared_ptr<IClientCallback>& clientCallback, bool isRegister,
                       bool byPath);
    /** Path form: deliveries go to `clientCallback` as value and path lists. */
    DolmCallbackClient(const std::shared_ptr<IClientCallbackByPath>& clientCallback,
                       bool isRegister, bool byPath);
    /** Logs "ndk backend ~DolmCallbackClient" and releases the caller's callback. */
    ~DolmCallbackClient() override;

    /**
     * Relays one delivery to the caller's callback (when there is one), then,
     * for a one-shot client, removes the client from `request_callbacks`.
     * Always answers OK.
     */
    ::ndk::ScopedAStatus onCallback(
            const std::vector<::aidl::vendor::tarvo::hardware::dolm::DolmRequestData>& data) override;

    std::shared_ptr<IClientCallback> callback;
    std::shared_ptr<IClientCallbackByPath> callbackByPath;
    /** True for a listener (many deliveries), false for a one-shot request callback. */
    bool is_register;
    /** Selects the delivery form: false = through `callback`, true = through `callbackByPath`. */
    bool by_path;
};

/**
 * One listener registration: the ids (id-addressed and thermal
 * registrations) or the paths (path-addressed ones) it listens to, the handle
 * the service gave it and the client handed to the service.
 */
struct DolmCallbackGroup {
    std::vector<int32_t> ids;
    std::vector<std::string> paths;
    int32_t handle = -1;
    std::shared_ptr<DolmCallbackClient> client;
};

/**
 * The one-shot callback clients of requests sent with a callback, in the
 * order they were sent. A client stays here from just before its request is
 * sent until its first delivery (forever if none comes). Read or write it only
 * while holding `request_callback_mutex`.
 */
extern std::vector<std::shared_ptr<DolmCallbackClient>> request_callbacks;
/**
 * Guards `request_callbacks`. Never hold it while calling into the library:
 * a delivery that arrives during the call removes its client on the calling
 * thread.
 */
extern std::mutex request_callback_mutex;

/**
 * Validation of a resource list: an entry with an id other than 0 needs a
 * non-empty value; an entry with id 0 must have no value or an empty one. An
 * empty list passes. Logs nothing. The list is not modified.
 */
bool checkResourceList(std::list<ZelClient::Resource>& resources);

namespace dolmHalclient {

using ::aidl::vendor::tarvo::hardware::dolm::DolmRequestParcel;

/** Connects to the service if needed and calls its init operation. */
void dolm_init();

/**
 * Asks the service to hold `resources` at their values for `timeout`
 * (sign-extended to 64 bits). `flagArg` of 1 or more sets the request's flag;
 * `leadArg`, `option` and `clientArg` are passed as they are. The list is
 * validated with checkResourceList() first. Returns the service's handle
 * (unchecked) or -1. The shorter forms fill `leadArg`, `option` and `flagArg`
 * with -1; they are told apart by how many integers precede the list.
 */
int dolmResCtlRequest(int leadArg, int timeout, std::list<ZelClient::Resource>& resources,
                      int option, int flagArg, int clientArg);
int dolmResCtlRequest(int timeout, std::list<ZelClient::Resource>& resources, int clientArg);
int dolmResCtlRequest(int timeout, std::list<ZelClient::Resource>& resources, int flagArg,
                      int clientArg);
int dolmResCtlRequest(int timeout, std::list<ZelClient::Resource>& resources, int option,
                      int flagArg, int clientArg);
int dolmResCtlRequest(int leadArg, int timeout, std::list<ZelClient::Resource>& resources,
                      int clientArg);
int dolmResCtlRequest(int leadArg, int timeout, std::list<ZelClient::Resource>& resources,
                      int flagArg, int clientArg);
/**
 * As the full form, and registers `callback` for one delivery: the library
 * keeps a client for it in `request_callbacks` from before the request is sent
 * until the first delivery (also when the request fails).
 */
int dolmResCtlRequest(int leadArg, int timeout, std::list<ZelClient::Resource>& resources,
                      int option, int flagArg, int clientArg,
                      const std::shared_ptr<IClientCallback>& callback);
/** Releases a request by its handle (not checked here); returns the service's result or -1. */
int dolmResCtlRelease(int handle);

/**
 * Asks the service to act on the whole sub-system `saId` (not checked). The
 * arguments go where those of dolmResCtlRequest() go. Returns the handle or
 * -1. The short form fills `leadArg`, `option` and `flagArg` with -1.
 */
int dolmSACtlRequest(int leadArg, int timeout, int saId, int option, int flagArg, int clientArg);
int dolmSACtlRequest(int timeout, int saId, int clientArg);
/** As the full form, with a one-shot callback kept as for dolmResCtlRequest(). */
int dolmSACtlRequest(int leadArg, int timeout, int saId, int option, int flagArg, int clientArg,
                     const std::shared_ptr<IClientCallback>& callback);
/** Releases a sub-system request; returns the service's result or -1. */
int dolmSACtlRelease(int handle);

/**
 * Registers `callback` for changes of the resources with the ids of
 * `resources`, in that order. The same id list cannot be registered twice
 * until it is unregistered. Returns the listener handle or -1.
 */
int dolmResListeningRegister(std::list<ZelClient::Resource>& resources, int clientArg,
                             const std::shared_ptr<IClientCallback>& callback);
/**
 * Unregisters a listener (id-, path- or thermal-registered) by handle and
 * drops the library's registrations with that handle. Returns the service's
 * result or -1.
 */
int dolmResListeningUnRegister(int handle);
/**
 * Reads the current values of `resources` and appends them to `out`. Returns
 * the size of `out` afterwards (its earlier elements included), or -1 when
 * the call failed or the service returned nothing.
 */
int dolmResStateRequest(std::list<ZelClient::Resource>& resources, int clientArg,
                        std::list<ZelClient::Resource>& out);

/**
 * Passes thermal levels (resource values) to the service. The list is
 * validated with checkResourceList(). Returns 0 when the service answered 1
 * or more, otherwise -1.
 */
int dolmThermalNotify(std::list<ZelClient::Resource>& resources, int clientArg);
/**
 * Registers `callback` for thermal events of `ids` (the same list may be
 * registered any number of times). Returns the listener handle or -1.
 */
int dolmThermalListeningRegister(const std::vector<int>& ids,
                                 const std::shared_ptr<IClientCallback>& callback);
/**
 * Unregisters a thermal listener at the service. The library's own record of
 * the registration stays until dolmResListeningUnRegister() is called with
 * the same handle. Returns the service's result or -1.
 */
int dolmThermalListeningUnregister(int handle);

/** Sets the parcel's tags to the one-element list ["zdbdebug"]. */
void dolm_add_zdbdebug_for_request_parcel(DolmRequestParcel& parcel);
/**
 * Path-addressed resource control: `paths` and `values` must have the same
 * length. Returns the handle or -1.
 */
int dolm_resctl_request_by_path(int leadArg, int64_t timeout, const std::vector<std::string>& paths,
                                const std::vector<std::string>& values, int option, int flagArg,
                                int clientArg);
/** As dolm_resctl_request_by_path(), with a one-shot callback. */
int dolm_resctl_request_with_callback_by_path(
        int leadArg, int64_t timeout, const std::vector<std::string>& paths,
        const std::vector<std::string>& values, int option, int flagArg, int clientArg,
        const std::shared_ptr<IClientCallbackByPath>& callback);
/**
 * Reads the values of `paths` (with `values` when both lists have the same
 * non-zero length) and appends them to `outValues`. Returns the size of
 * `outValues` afterwards, or -1.
 */
int dolm_res_state_request_by_path(const std::vector<std::string>& paths,
                                   const std::vector<std::string>& values, int clientArg,
                                   std::vector<std::string>& outValues);
/**
 * Reads the values of the map's paths and stores the answers by path in
 * `outPathValues` (not cleared first). Returns the size of `outPathValues`
 * afterwards, or -1.
 */
int dolm_res_state_request_map_by_path(const std::map<std::string, std::string>& pathValues,
                                       int clientArg,
                                       std::map<std::string, std::string>& outPathValues);
/**
 * Registers `callback` for changes of `paths`. The same path list cannot be
 * registered twice until unregistered with dolmResListeningUnRegister().
 * Returns the listener handle or -1.
 */
int dolm_res_listening_register_by_path(const std::vector<std::string>& paths, int clientArg,
                                        const std::shared_ptr<IClientCallbackByPath>& callback);
/** As dolm_res_listening_register_by_path(), for the map's keys with their values. */
int dolm_res_listening_register_map_by_path(const std::map<std::string, std::string>& pathValues,
                                            int clientArg,
                                            const std::shared_ptr<IClientCallbackByPath>& callback);

/** Diagnostics: ask the service to dump one of its tables. 0 when accepted, else -1. */
int dolmDumpToDoQueue();
int dolmDumpRunMap();
int dolmDumpActiveResMap();
int dolmDumpResRequest();
int dolmDumpResInfo();
int dolmDumpSAInfo();
int dolmDumpPidFdList();
int dolmDumpPidfdMonitorMap();
int dolmDumpResRecordList();
/** Switch the service's request-history recording on or off. 0 when accepted, else -1. */
int dolmHistoryRequestRecordOn();
int dolmHistoryRequestRecordOff();

/**
 * Reads a service property. Returns a new 256-byte array holding the value as
 * a NUL-terminated text (empty when the service is unreachable); the caller
 * frees it with delete[]. A value of 256 characters or more aborts the
 * process.
 */
char* dolmPropertyGet(const std::string& key);
/** Writes a service property; returns the service's result or -1. */
int dolmPropertySet(const std::string& key, const std::string& value);

}  // namespace dolmHalclient
