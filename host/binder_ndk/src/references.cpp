// References across processes (nodes and proxies) and death delivery.
#include "references.h"

#include <algorithm>

#include "process_internal.h"

namespace binder_host {

// ---- nodes: local objects known to other endpoints ---------------------------

uint64_t References::grant(ABBinder* binder, const std::string& holder) {
    std::lock_guard<std::mutex> lock(mNodesMutex);
    if (binder->mNodeId == 0) {
        binder->mNodeId = mNextNodeId++;
        binder->incWeak();
        mNodes.emplace(binder->mNodeId, Node{binder, {}, 0});
    }
    Node& node = mNodes.at(binder->mNodeId);
    ++node.holders[holder];
    if (node.total++ == 0) binder->incStrong();
    return binder->mNodeId;
}

void References::releaseGrants(uint64_t nodeId, const std::string& holder, int64_t count) {
    BinderRef released;
    std::lock_guard<std::mutex> lock(mNodesMutex);
    auto it = mNodes.find(nodeId);
    if (it == mNodes.end() || count <= 0) return;
    Node& node = it->second;
    auto held = node.holders.find(holder);
    if (held == node.holders.end()) return;
    int64_t releasedCount = std::min(count, held->second);
    held->second -= releasedCount;
    if (held->second == 0) node.holders.erase(held);
    node.total -= releasedCount;
    if (node.total == 0) {
        // Dropped after the lock (declared before it): the object's destruction may call back.
        released = BinderRef::adopt(node.binder);
    }
}

BinderRef References::lookupLocal(uint64_t nodeId) {
    std::lock_guard<std::mutex> lock(mNodesMutex);
    auto it = mNodes.find(nodeId);
    if (it == mNodes.end() || !it->second.binder->tryIncStrong()) return BinderRef();
    return BinderRef::adopt(it->second.binder);
}

void References::onLocalGone(ABBinder* binder) {
    bool known = false;
    {
        std::lock_guard<std::mutex> lock(mNodesMutex);
        if (binder->mNodeId != 0) {
            mNodes.erase(binder->mNodeId);
            binder->mNodeId = 0;
            known = true;
        }
    }
    if (known) binder->decWeak();
}

void References::killNode(ABBinder* binder) {
    uint64_t nodeId = 0;
    std::vector<std::string> holders;
    bool heldStrong = false;
    {
        std::lock_guard<std::mutex> lock(mNodesMutex);
        if (binder->mNodeId == 0) return;
        nodeId = binder->mNodeId;
        Node& node = mNodes.at(nodeId);
        for (const auto& holder : node.holders) holders.push_back(holder.first);
        heldStrong = node.total > 0;
        mNodes.erase(nodeId);
        binder->mNodeId = 0;  // written again later, it becomes a new object
    }
    std::vector<uint8_t> frame;
    Writer writer(frame);
    writer.begin(kDead);
    writer.u64(nodeId);
    writer.finish();
    for (const std::string& holder : holders) {
        mEndpoint.sendControl(mEndpoint.getPeer(holder), frame);
    }
    if (heldStrong) binder->decStrong();
    binder->decWeak();
}

// ---- proxies ---------------------------------------------------------------------

BinderRef References::getProxy(const std::shared_ptr<Peer>& peer, uint64_t nodeId,
                               std::string descriptor, bool granted) {
    BinderRef proxy;
    {
        std::lock_guard<std::mutex> lock(mProxiesMutex);
        ABpBinder*& slot = mProxies[{peer->key(), nodeId}];
        if (slot != nullptr && slot->tryIncStrong()) {
            proxy = BinderRef::adopt(slot);
        } else {
            // A proxy whose last reference is going away is replaced; it
            // removes its slot only while the slot still names it.
            slot = new ABpBinder(peer, nodeId, std::move(descriptor));
            proxy = BinderRef::adopt(slot);
        }
        if (granted) static_cast<ABpBinder*>(proxy.get())->addGrant();
    }
    if (!mEndpoint.ensureControl(peer)) {
        // Created after its owner died: dead from the start, nobody linked yet.
        static_cast<ABpBinder*>(proxy.get())->markDead();
    }
    return proxy;
}

void References::onProxyGone(ABpBinder* proxy, int32_t grants) {
    {
        std::lock_guard<std::mutex> lock(mProxiesMutex);
        auto it = mProxies.find({proxy->peer()->key(), proxy->nodeId()});
        if (it != mProxies.end() && it->second == proxy) mProxies.erase(it);
    }
    if (grants > 0 && !proxy->isDead()) {
        std::vector<uint8_t> frame;
        Writer writer(frame);
        writer.begin(kRelease);
        writer.u64(proxy->nodeId());
        writer.u32(static_cast<uint32_t>(grants));
        mEndpoint.sendControl(proxy->peer(), writer.finish());
    }
}

void References::markProxyDead(const std::shared_ptr<Peer>& peer, uint64_t nodeId) {
    BinderRef proxy;
    {
        std::lock_guard<std::mutex> lock(mProxiesMutex);
        auto it = mProxies.find({peer->key(), nodeId});
        if (it != mProxies.end() && it->second->tryIncStrong()) {
            proxy = BinderRef::adopt(it->second);
        }
    }
    if (proxy) {
        Deaths deaths;
        std::vector<DeathLink> links = static_cast<ABpBinder*>(proxy.get())->markDead();
        deaths.emplace_back(std::move(proxy), std::move(links));
        deliver(std::move(deaths));
    }
}

// ---- deaths ----------------------------------------------------------------------

void References::onPeerDied(const std::shared_ptr<Peer>& peer) {
    // Release every reference the peer held on this process's objects.
    std::vector<BinderRef> released;
    {
        std::lock_guard<std::mutex> lock(mNodesMutex);
        for (auto& entry : mNodes) {
            Node& node = entry.second;
            auto holder = node.holders.find(peer->key());
            if (holder == node.holders.end()) continue;
            node.total -= holder->second;
            node.holders.erase(holder);
            if (node.total == 0) released.push_back(BinderRef::adopt(node.binder));
        }
    }
    released.clear();
    // Every proxy to the peer's objects turns dead.
    Deaths deaths;
    {
        std::lock_guard<std::mutex> lock(mProxiesMutex);
        for (auto& entry : mProxies) {
            if (entry.first.first == peer->key() && entry.second->tryIncStrong()) {
                deaths.emplace_back(BinderRef::adopt(entry.second), std::vector<DeathLink>());
            }
        }
    }
    for (auto& death : deaths) {
        death.second = static_cast<ABpBinder*>(death.first.get())->markDead();
    }
    deliver(std::move(deaths));
}

void References::deliver(Deaths deaths) {
    bool any = std::any_of(deaths.begin(), deaths.end(),
                           [](const auto& death) { return !death.second.empty(); });
    if (!any) return;
    // Only pool threads deliver: a process without a pool hears of deaths once it starts one.
    auto shared = std::make_shared<Deaths>(std::move(deaths));
    ThreadPool::get().submit([shared] {
        for (auto& death : *shared) {
            for (DeathLink& link : death.second) link.recipient->deliver(link.cookie);
        }
    });
}

}  // namespace binder_host
