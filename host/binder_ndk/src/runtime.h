// Private: the runtime of a process. It owns the endpoint, the references
// across processes and the registered services, makes calls to other
// endpoints (nested ones back on the waiting thread) and serves the calls
// that arrive.
#pragma once

#include <android/binder_ibinder.h>
#include <sys/types.h>

#include <atomic>
#include <memory>
#include <string>
#include <vector>

#include "connection.h"
#include "ibinder_internal.h"
#include "references.h"
#include "registry.h"

namespace binder_host {

class Runtime : private EndpointEvents {
  public:
    /** The process's runtime, created (endpoint, watcher thread) on first use; null on failure. */
    static Runtime* get();
    /** The runtime if it exists already (never creates it). */
    static Runtime* getIfCreated();

    /** Sends a transaction to the proxied object; fills \p *out on success. */
    binder_status_t transact(ABpBinder* proxy, transaction_code_t code, const AParcel& in,
                             AParcel** out, binder_flags_t flags);
    /** A round trip to the proxied object. */
    binder_status_t ping(ABpBinder* proxy);

    binder_status_t addService(ABBinder* binder, const char* instance);
    /**
     * The registered object, or empty: the local object for a service of this
     * process (a proxy when in-process proxies are enabled), else a proxy.
     */
    BinderRef checkService(const char* instance);
    binder_status_t killLocal(ABBinder* binder);
    void setInProcessProxies(bool enabled) { mInProcessProxies.store(enabled); }
    size_t peerCount() { return mEndpoint.peerCount(); }
    References& references() { return mReferences; }

    /** The process whose call the current thread serves; false outside one. */
    static bool callingIdentity(Credentials* caller);

  private:
    class Incoming;

    Runtime();
    bool init();

    void onDataConnection(std::unique_ptr<Connection> conn, std::shared_ptr<Peer> peer) override;
    void onControlFrame(const std::shared_ptr<Peer>& peer, const Frame& frame) override;
    void onPeerDied(const std::shared_ptr<Peer>& peer) override;

    binder_status_t roundTrip(const std::shared_ptr<Peer>& peer, const std::vector<uint8_t>& request,
                              bool forceProxies, std::unique_ptr<AParcel>* reply, bool* nodeGone);
    /**
     * Serves one request from \p peer that arrived on \p conn and answers it
     * there. \p keep holds the last reply until the next request. False when
     * the answer could not be sent.
     */
    bool serveRequest(const Frame& frame, const std::shared_ptr<Peer>& peer, Connection& conn,
                      std::vector<uint8_t>& replyBuffer, std::unique_ptr<AParcel>* keep);
    void serveTransaction(const Frame& frame, const std::shared_ptr<Peer>& peer, Writer& reply,
                          std::unique_ptr<AParcel>* keep);
    void serveInternal(const Frame& frame, const std::shared_ptr<Peer>& peer, Writer& reply);

    /** Bytes \p parcel takes on the wire (checked against the transaction limit). */
    size_t flattenedSize(const AParcel& parcel) const;
    void flatten(const AParcel& parcel, const std::shared_ptr<Peer>& dest, Writer& out);
    bool unflatten(Reader& in, AParcel* parcel, const std::shared_ptr<Peer>& sender,
                   bool forceProxies);
    BinderRef resolve(const std::string& key, uint64_t nodeId, std::string descriptor,
                      const std::shared_ptr<Peer>& sender, bool forceProxies);

    std::string mDir;
    Endpoint mEndpoint;
    References mReferences;
    LocalServices mServices;
    std::atomic<bool> mInProcessProxies{false};
};

}  // namespace binder_host
