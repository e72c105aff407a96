// Private: the transport between endpoints (one per process) over
// Unix-domain stream sockets, remote reference counting and death.
//
// Connections:
// - data: opened by a calling thread to a peer's endpoint and pooled per
//   peer; carries requests one way and replies back. The peer serves each
//   data connection on one binder thread, which reads a request, runs it and
//   writes the reply itself.
// - control: one per ordered pair of endpoints, opened before the first data
//   connection or proxy; carries reference releases (holder -> owner) and
//   object deaths (owner -> holder). Its end of file means the peer process
//   is gone.
#pragma once

#include <android/binder_ibinder.h>
#include <sys/types.h>

#include <atomic>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <unordered_map>
#include <utility>
#include <vector>

#include "ibinder_internal.h"

namespace binder_host {

struct Connection;
struct Frame;
class Writer;
class Reader;

/** Another endpoint (or this process's own, which it reaches like any other). */
class Peer {
  public:
    Peer(std::string key, std::string path);
    ~Peer();
    Peer(const Peer&) = delete;
    Peer& operator=(const Peer&) = delete;
    const std::string& key() const { return mKey; }
    const std::string& path() const { return mPath; }

  private:
    friend class Runtime;
    const std::string mKey;
    const std::string mPath;
    std::mutex mMutex;
    std::vector<std::unique_ptr<Connection>> mIdle;  // guarded by mMutex
    int mControlOut = -1;                            // guarded by mMutex
    bool mDead = false;                              // guarded by mMutex
};

class Runtime {
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

    /** A proxy's last strong reference went: tell the owner, forget the proxy. */
    void onProxyGone(ABpBinder* proxy, int32_t grants);
    /** A local object's last strong reference went: forget its node. */
    void onLocalGone(ABBinder* binder);

    binder_status_t addService(ABBinder* binder, const char* instance);
    /**
     * The registered object, or empty: the local object for a service of this
     * process (a proxy when in-process proxies are enabled), else a proxy.
     */
    BinderRef checkService(const char* instance);
    void setInProcessProxies(bool enabled) { mInProcessProxies.store(enabled); }
    size_t peerCount();
    binder_status_t killLocal(ABBinder* binder);

    /** Delivers death notifications on a binder thread, keeping the proxies alive meanwhile. */
    static void deliverDeaths(std::vector<std::pair<BinderRef, std::vector<DeathLink>>> deaths);

    /** The pid of the process whose call the current thread serves (0 outside one). */
    static pid_t callingPid();

  private:
    struct Node {
        ABBinder* binder;                                  // holds a weak reference
        std::unordered_map<std::string, int64_t> holders;  // peer key -> references granted
        int64_t total = 0;                                 // holds a strong reference while > 0
    };
    struct ControlConn;

    Runtime() = default;
    bool init();
    void watch();
    void acceptOne();
    void readControl(uint64_t id);
    void parseControl(uint64_t id, ControlConn* control);
    void closeControl(uint64_t id);
    uint64_t registerControl(int fd, std::shared_ptr<Peer> peer, std::unique_ptr<Connection> conn);
    void serve(std::unique_ptr<Connection> conn, const std::shared_ptr<Peer>& peer, pid_t pid);
    void serveTransaction(const Frame& frame, const std::shared_ptr<Peer>& peer, Writer& reply,
                          std::unique_ptr<AParcel>* keep);
    void serveInternal(const Frame& frame, const std::shared_ptr<Peer>& peer, Writer& reply);

    std::shared_ptr<Peer> getPeer(const std::string& key);
    std::unique_ptr<Connection> acquireConnection(const std::shared_ptr<Peer>& peer);
    void releaseConnection(const std::shared_ptr<Peer>& peer, std::unique_ptr<Connection> conn);
    /** Connects to \p peer and sends a hello of \p type; the descriptor, or -1. */
    int connectAndGreet(const std::shared_ptr<Peer>& peer, uint32_t type);
    bool ensureControlLocked(const std::shared_ptr<Peer>& peer);
    bool sendControl(const std::shared_ptr<Peer>& peer, const std::vector<uint8_t>& frame);
    /** A call to \p peer failed on the connection: finds out whether the peer is gone. */
    void checkPeer(const std::shared_ptr<Peer>& peer);
    void onPeerDied(const std::shared_ptr<Peer>& peer);
    binder_status_t roundTrip(const std::shared_ptr<Peer>& peer, const std::vector<uint8_t>& request,
                              bool forceProxies, std::unique_ptr<AParcel>* reply, bool* nodeGone);

    void flatten(const AParcel& parcel, const std::shared_ptr<Peer>& dest, Writer& out);
    bool unflatten(Reader& in, AParcel* parcel, const std::shared_ptr<Peer>& sender,
                   bool forceProxies);
    BinderRef resolve(const std::string& key, uint64_t nodeId, std::string descriptor,
                      const std::shared_ptr<Peer>& sender, bool forceProxies);
    BinderRef getProxy(const std::shared_ptr<Peer>& peer, uint64_t nodeId, std::string descriptor,
                       bool granted);

    uint64_t grant(ABBinder* binder, const std::string& holder);
    void releaseGrants(uint64_t nodeId, const std::string& holder, int64_t count);
    BinderRef lookupLocal(uint64_t nodeId);
    void markProxyDead(const std::shared_ptr<Peer>& peer, uint64_t nodeId);

    std::string mDir;
    std::string mSelfKey;
    std::string mSelfPath;
    pid_t mPid = 0;
    int mListenFd = -1;
    int mEpollFd = -1;

    std::atomic<bool> mInProcessProxies{false};

    std::mutex mPeersMutex;
    std::map<std::string, std::shared_ptr<Peer>> mPeers;

    std::mutex mNodesMutex;
    uint64_t mNextNodeId = 1;
    std::unordered_map<uint64_t, Node> mNodes;

    std::mutex mProxiesMutex;
    std::map<std::pair<std::string, uint64_t>, ABpBinder*> mProxies;

    std::mutex mServicesMutex;
    std::map<std::string, BinderRef> mServices;

    std::mutex mControlMutex;
    uint64_t mNextControlId = 1;
    std::unordered_map<uint64_t, std::unique_ptr<ControlConn>> mControls;
};

}  // namespace binder_host
