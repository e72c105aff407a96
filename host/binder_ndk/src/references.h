// Private: references across processes and deaths.
//
// Nodes: this process's local objects that other endpoints know, with the
// references each holder was granted; a node holds a strong reference on
// its object while any holder has one. Proxies: this process's proxies for
// objects of other endpoints, one per (endpoint, node). When an endpoint
// dies (or an owner kills an object), the proxies turn dead and their death
// recipients are notified on a binder thread.
#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <unordered_map>
#include <utility>
#include <vector>

#include "connection.h"
#include "ibinder_internal.h"

namespace binder_host {

class References {
  public:
    explicit References(Endpoint& endpoint) : mEndpoint(endpoint) {}
    References(const References&) = delete;
    References& operator=(const References&) = delete;

    // ---- nodes ----
    /** Grants \p holder one reference on \p binder; returns its node id. */
    uint64_t grant(ABBinder* binder, const std::string& holder);
    void releaseGrants(uint64_t nodeId, const std::string& holder, int64_t count);
    /** The local object of \p nodeId, or empty when it is gone. */
    BinderRef lookupLocal(uint64_t nodeId);
    /** A local object's last strong reference went: forget its node. */
    void onLocalGone(ABBinder* binder);
    /** Makes \p binder look dead to every holder and drops what they held. */
    void killNode(ABBinder* binder);

    // ---- proxies ----
    /** The proxy for \p nodeId of \p peer; \p granted counts a reference the owner granted. */
    BinderRef getProxy(const std::shared_ptr<Peer>& peer, uint64_t nodeId, std::string descriptor,
                       bool granted);
    /** A proxy's last strong reference went: tell the owner, forget the proxy. */
    void onProxyGone(ABpBinder* proxy, int32_t grants);
    void markProxyDead(const std::shared_ptr<Peer>& peer, uint64_t nodeId);

    /** \p peer is gone: release what it held here, turn its proxies dead. */
    void onPeerDied(const std::shared_ptr<Peer>& peer);

  private:
    struct Node {
        ABBinder* binder;                                  // holds a weak reference
        std::unordered_map<std::string, int64_t> holders;  // peer key -> references granted
        int64_t total = 0;                                 // holds a strong reference while > 0
    };
    using Deaths = std::vector<std::pair<BinderRef, std::vector<DeathLink>>>;
    /** Delivers death notifications on a binder thread, keeping the proxies alive meanwhile. */
    static void deliver(Deaths deaths);

    Endpoint& mEndpoint;

    std::mutex mNodesMutex;
    uint64_t mNextNodeId = 1;
    std::unordered_map<uint64_t, Node> mNodes;

    std::mutex mProxiesMutex;
    std::map<std::pair<std::string, uint64_t>, ABpBinder*> mProxies;
};

}  // namespace binder_host
