// The runtime: calls to other endpoints and the serving of calls that
// arrive, parcels on the wire, and the process-wide instance.
#include "runtime.h"

#include <android/binder_stability.h>
#include <pthread.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <mutex>

#include "parcel_internal.h"
#include "process_internal.h"
#include "status_internal.h"

namespace binder_host {

namespace {

std::atomic<Runtime*> gRuntime{nullptr};
char gSocketPath[108];  // sockaddr_un::sun_path

std::mutex& initMutex() {
    static auto* mutex = new std::mutex;
    return *mutex;
}

// Runtimes of a parent process, left behind in a forked child (kept reachable).
std::vector<Runtime*>& abandonedRuntimes() {
    static auto* list = new std::vector<Runtime*>;
    return *list;
}

void unlinkSocketAtExit() {
    if (gSocketPath[0] != '\0') unlink(gSocketPath);
}

void resetInChild() {
    Runtime* old = gRuntime.exchange(nullptr);
    if (old != nullptr) abandonedRuntimes().push_back(old);
    gSocketPath[0] = '\0';
    ThreadPool::resetAfterFork();
}

/**
 * The request a thread serves, innermost first: which peer sent it on which
 * connection. A call from that thread to the same peer goes back on that
 * connection, where the peer's thread waits for its answer and serves it (a
 * nested call); the caller's identity comes from the connection.
 */
struct ServingScope {
    ServingScope(const Peer* from, Connection* on);
    ~ServingScope();
    ServingScope(const ServingScope&) = delete;
    ServingScope& operator=(const ServingScope&) = delete;

    const Peer* peer;
    Connection* conn;
    ServingScope* outer;
};

thread_local ServingScope* tServing = nullptr;

ServingScope::ServingScope(const Peer* from, Connection* on)
    : peer(from), conn(on), outer(tServing) {
    tServing = this;
}

ServingScope::~ServingScope() {
    tServing = outer;
}

Connection* nestedConnection(const Peer* peer) {
    for (ServingScope* scope = tServing; scope != nullptr; scope = scope->outer) {
        if (scope->peer == peer) return scope->conn;
    }
    return nullptr;
}

// What objects do when their last strong reference goes.
void localGone(ABBinder* binder) {
    if (Runtime* runtime = Runtime::getIfCreated()) runtime->references().onLocalGone(binder);
}

void proxyGone(ABpBinder* proxy, int32_t grants) {
    if (Runtime* runtime = Runtime::getIfCreated())
        runtime->references().onProxyGone(proxy, grants);
}

constexpr ObjectHooks kObjectHooks{localGone, proxyGone};

// The interface token: the descriptor, written as a parcel string.
binder_status_t writeInterfaceToken(AParcel* parcel, const std::string& descriptor) {
    return AParcel_writeString(parcel, descriptor.c_str(), static_cast<int32_t>(descriptor.size()));
}

/**
 * Serves a transaction on a local object: checks the interface token at
 * the start of \p in and runs the class's onTransact with \p in positioned
 * after it.
 */
binder_status_t dispatchLocal(ABBinder* binder, transaction_code_t code, AParcel* in, AParcel* out) {
    // The token is compared where it lies in the parcel: no copy per call.
    const AIBinder_Class* clazz = binder->getClass();
    const std::string& descriptor = clazz->mDescriptor;
    in->setPosition(0);
    int32_t length = -1;
    if (in->read(&length) != STATUS_OK || length < 0 ||
        static_cast<size_t>(length) != descriptor.size()) {
        return STATUS_BAD_TYPE;
    }
    const uint8_t* token = in->peek(descriptor.size() + 1);
    if (token == nullptr || token[length] != 0 ||
        std::memcmp(token, descriptor.data(), descriptor.size()) != 0) {
        return STATUS_BAD_TYPE;
    }
    in->skip(descriptor.size() + 1);
    return clazz->mOnTransact(binder, code, in, out);
}

}  // namespace

/** A data connection from a peer, served by the thread pool. */
class Runtime::Incoming : public Served {
  public:
    Incoming(Runtime* runtime, std::unique_ptr<Connection> conn, std::shared_ptr<Peer> peer)
        : mRuntime(runtime), mConn(std::move(conn)), mPeer(std::move(peer)) {}

    int fd() const override { return mConn->fd(); }
    bool hasBuffered() const override { return mConn->buffered() > 0; }
    bool serveAvailable() override {
        if (serveReceived()) return true;
        // A caller that never opened a control connection is known from this
        // connection alone: find out whether it is gone, so its record goes too.
        mRuntime->mEndpoint.checkPeer(mPeer);
        return false;
    }

  private:
    bool serveReceived() {
        bool drained = false;
        for (;;) {
            Frame frame;
            int result;
            while ((result = mConn->takeFrame(&frame)) > 0) {
                if (!mRuntime->serveRequest(frame, mPeer, *mConn, mReplyBuffer, &mLastReply)) {
                    return false;
                }
            }
            if (result < 0) return false;
            // The rest of a request announces itself with a new readiness event.
            if (drained) return true;
            if (!mConn->receiveNow(&drained)) return false;
        }
    }

    Runtime* const mRuntime;
    std::unique_ptr<Connection> mConn;
    std::shared_ptr<Peer> mPeer;
    std::vector<uint8_t> mReplyBuffer;
    // The previous reply is kept until the next request: objects of third
    // endpoints in it stay referenced while the caller acquires them.
    std::unique_ptr<AParcel> mLastReply;
};

// ---- creation ----------------------------------------------------------------

Runtime::Runtime() : mEndpoint(this), mReferences(mEndpoint) {}

Runtime* Runtime::getIfCreated() {
    return gRuntime.load(std::memory_order_acquire);
}

Runtime* Runtime::get() {
    Runtime* runtime = gRuntime.load(std::memory_order_acquire);
    if (runtime != nullptr) return runtime;
    std::lock_guard<std::mutex> lock(initMutex());
    runtime = gRuntime.load(std::memory_order_acquire);
    if (runtime == nullptr) {
        static bool registered = [] {
            pthread_atfork(nullptr, nullptr, resetInChild);
            setObjectHooks(&kObjectHooks);
            return atexit(unlinkSocketAtExit) == 0;
        }();
        (void)registered;
        // Never deleted: binder threads use it until the process exits.
        runtime = new Runtime;
        if (!runtime->init()) {
            abandonedRuntimes().push_back(runtime);
            return nullptr;
        }
        gRuntime.store(runtime, std::memory_order_release);
    }
    return runtime;
}

bool Runtime::init() {
    mDir = registryDir();
    if (mDir.empty() || !mEndpoint.open(mDir)) return false;
    const std::string& path = mEndpoint.selfPath();
    std::memcpy(gSocketPath, path.c_str(), std::min(path.size() + 1, sizeof(gSocketPath)));
    return true;
}

// ---- endpoint events ---------------------------------------------------------------

void Runtime::onDataConnection(std::unique_ptr<Connection> conn, std::shared_ptr<Peer> peer) {
    ThreadPool::get().serve(std::make_unique<Incoming>(this, std::move(conn), std::move(peer)));
}

void Runtime::onControlFrame(const std::shared_ptr<Peer>& peer, const Frame& frame) {
    Reader reader(frame);
    uint64_t node = 0;
    uint32_t count = 0;
    if (frame.type == kRelease && reader.u64(&node) && reader.u32(&count)) {
        mReferences.releaseGrants(node, peer->key(), count);
    } else if (frame.type == kDead && reader.u64(&node)) {
        mReferences.markProxyDead(peer, node);
    }
}

void Runtime::onPeerDied(const std::shared_ptr<Peer>& peer) {
    mReferences.onPeerDied(peer);
}

// ---- parcels on the wire -------------------------------------------------------

size_t Runtime::flattenedSize(const AParcel& parcel) const {
    size_t size = 4 + parcel.data().size() + 4;
    for (const BinderRef& object : parcel.objects()) {
        if (!object) {
            size += wireObjectSize(0, 0);
        } else if (const ABBinder* local = object.get()->asLocal()) {
            size += wireObjectSize(mEndpoint.selfKey().size(), local->descriptor().size());
        } else {
            const ABpBinder* proxy = object.get()->asProxy();
            size += wireObjectSize(proxy->peer()->key().size(), proxy->descriptor().size());
        }
    }
    return size;
}

void Runtime::flatten(const AParcel& parcel, const std::shared_ptr<Peer>& dest, Writer& out) {
    ByteView data = parcel.data();
    out.u32(static_cast<uint32_t>(data.size()));
    out.bytes(data.data(), data.size());
    out.u32(static_cast<uint32_t>(parcel.objects().size()));
    for (const BinderRef& object : parcel.objects()) {
        if (!object) {
            out.str(std::string());
            out.u64(0);
            out.str(std::string());
            out.u32(0);
        } else if (ABBinder* local = object.get()->asLocal()) {
            uint64_t nodeId = mReferences.grant(local, dest->key());
            out.str(mEndpoint.selfKey());
            out.u64(nodeId);
            out.str(local->descriptor());
            out.u32(static_cast<uint32_t>(local->stability()));
        } else {
            ABpBinder* proxy = object.get()->asProxy();
            out.str(proxy->peer()->key());
            out.u64(proxy->nodeId());
            out.str(proxy->descriptor());
            out.u32(static_cast<uint32_t>(proxy->stability()));
        }
    }
}

bool Runtime::unflatten(Reader& in, AParcel* parcel, const std::shared_ptr<Peer>& sender,
                        bool forceProxies) {
    std::vector<WireObject> objects;
    const uint8_t* data = nullptr;
    size_t size = 0;
    if (!readParcel(in, &data, &size, &objects) || !parcel->setData(data, size)) return false;
    auto& resolved = parcel->mutableObjects();
    resolved.reserve(objects.size());
    for (WireObject& object : objects) {
        if (object.key.empty()) {
            resolved.emplace_back();
            continue;
        }
        BinderRef binder = resolve(object.key, object.nodeId, std::move(object.descriptor), sender,
                                   forceProxies);
        // A proxy takes the mark its object was sent with, as a device records it.
        if (binder && binder.get()->isRemote()) {
            binder.get()->setStability(static_cast<int32_t>(object.stability));
        }
        resolved.push_back(std::move(binder));
    }
    return true;
}

BinderRef Runtime::resolve(const std::string& key, uint64_t nodeId, std::string descriptor,
                           const std::shared_ptr<Peer>& sender, bool forceProxies) {
    const std::string& self = mEndpoint.selfKey();
    if (key == self && !forceProxies) {
        // One of this process's own objects comes back as the local object;
        // a reference this process granted to itself is returned at once.
        BinderRef local = mReferences.lookupLocal(nodeId);
        if (sender->key() == self) mReferences.releaseGrants(nodeId, self, 1);
        return local;
    }
    if (key == sender->key()) {
        return mReferences.getProxy(sender, nodeId, std::move(descriptor), true);
    }
    // An object of a third endpoint: ask its owner for a reference of our own.
    std::shared_ptr<Peer> owner = mEndpoint.getPeer(key);
    std::vector<uint8_t> request;
    Writer writer(request);
    writer.begin(kAcquire);
    writer.u64(nodeId);
    bool nodeGone = false;
    binder_status_t status = roundTrip(owner, writer.finish(), false, nullptr, &nodeGone);
    BinderRef proxy =
            mReferences.getProxy(owner, nodeId, std::move(descriptor), status == STATUS_OK);
    if (status != STATUS_OK) mReferences.markProxyDead(owner, nodeId);
    return proxy;
}

// ---- calls -----------------------------------------------------------------------

binder_status_t Runtime::roundTrip(const std::shared_ptr<Peer>& peer,
                                   const std::vector<uint8_t>& request, bool forceProxies,
                                   std::unique_ptr<AParcel>* reply, bool* nodeGone) {
    // While serving a call from this peer, the call goes back on that
    // connection to the thread that waits there.
    Connection* conn = nestedConnection(peer.get());
    std::unique_ptr<Connection> pooled;
    if (conn == nullptr) {
        pooled = mEndpoint.acquireConnection(peer);
        if (pooled == nullptr) return STATUS_DEAD_OBJECT;
        conn = pooled.get();
    }
    Frame frame;
    bool ok = conn->send(request);
    std::vector<uint8_t> nestedReply;
    std::unique_ptr<AParcel> keep;
    while (ok && (ok = conn->readFrame(&frame)) && frame.type != kReply) {
        // The peer calls back into this process while handling the request:
        // this thread serves the call.
        ok = serveRequest(frame, peer, *conn, nestedReply, &keep);
    }
    if (!ok) {
        pooled.reset();
        mEndpoint.checkPeer(peer);
        return STATUS_DEAD_OBJECT;
    }
    Reader reader(frame);
    int32_t status = STATUS_OK;
    uint32_t flags = 0;
    if (!reader.i32(&status) || !reader.u32(&flags)) {
        return STATUS_BAD_VALUE;  // a pooled connection is dropped: its state is unknown
    }
    *nodeGone = (flags & kReplyNodeGone) != 0;
    status = normalizeStatus(status);
    if (status == STATUS_OK && reply != nullptr) {
        *reply = std::make_unique<AParcel>();
        if (!unflatten(reader, reply->get(), peer, forceProxies)) {
            reply->reset();
            status = STATUS_BAD_VALUE;
        }
    }
    if (pooled != nullptr) mEndpoint.releaseConnection(peer, std::move(pooled));
    return status;
}

binder_status_t Runtime::transact(ABpBinder* proxy, transaction_code_t code, const AParcel& in,
                                  AParcel** out, binder_flags_t flags) {
    if (proxy->isDead()) return STATUS_DEAD_OBJECT;
    // As a device's binder buffer, a transaction holds a bounded amount.
    if (flattenedSize(in) > kMaxTransaction) return STATUS_FAILED_TRANSACTION;
    const std::shared_ptr<Peer>& peer = proxy->peer();
    bool oneway = (flags & FLAG_ONEWAY) != 0;
    // Sent before any nested call on this thread could write it again.
    thread_local std::vector<uint8_t> request;
    Writer writer(request);
    writer.begin(oneway ? kTransactOneway : kTransact);
    writer.u64(proxy->nodeId());
    writer.u32(code);
    flatten(in, peer, writer);
    writer.finish();
    if (oneway) {
        // One-way calls are never nested: they queue at the peer like any other.
        std::unique_ptr<Connection> conn = mEndpoint.acquireConnection(peer);
        if (conn == nullptr) return STATUS_DEAD_OBJECT;
        if (!conn->send(request)) {
            conn.reset();
            mEndpoint.checkPeer(peer);
            return STATUS_DEAD_OBJECT;
        }
        mEndpoint.releaseConnection(peer, std::move(conn));
        *out = new AParcel;
        return STATUS_OK;
    }
    std::unique_ptr<AParcel> reply;
    bool nodeGone = false;
    binder_status_t status = roundTrip(peer, request, false, &reply, &nodeGone);
    if (nodeGone) {
        mReferences.markProxyDead(peer, proxy->nodeId());
        return STATUS_DEAD_OBJECT;
    }
    if (status == STATUS_OK) *out = reply.release();
    return status;
}

binder_status_t Runtime::ping(ABpBinder* proxy) {
    if (proxy->isDead()) return STATUS_DEAD_OBJECT;
    std::vector<uint8_t> request;
    Writer writer(request);
    writer.begin(kPing);
    writer.u64(proxy->nodeId());
    bool nodeGone = false;
    binder_status_t status = roundTrip(proxy->peer(), writer.finish(), false, nullptr, &nodeGone);
    if (nodeGone) {
        mReferences.markProxyDead(proxy->peer(), proxy->nodeId());
        return STATUS_DEAD_OBJECT;
    }
    return status;
}

// ---- serving -----------------------------------------------------------------------

bool Runtime::serveRequest(const Frame& frame, const std::shared_ptr<Peer>& peer, Connection& conn,
                           std::vector<uint8_t>& replyBuffer, std::unique_ptr<AParcel>* keep) {
    Writer reply(replyBuffer);
    {
        ServingScope scope(peer.get(), &conn);
        if (frame.type == kTransact || frame.type == kTransactOneway) {
            serveTransaction(frame, peer, reply, keep);
        } else {
            serveInternal(frame, peer, reply);
        }
    }
    return frame.type == kTransactOneway || conn.send(reply.finish());
}

void Runtime::serveTransaction(const Frame& frame, const std::shared_ptr<Peer>& peer, Writer& reply,
                               std::unique_ptr<AParcel>* keep) {
    uint32_t type = frame.type;
    Reader reader(frame);
    uint64_t nodeId = 0;
    uint32_t code = 0;
    auto in = std::make_unique<AParcel>();
    if (!reader.u64(&nodeId) || !reader.u32(&code) || !unflatten(reader, in.get(), peer, false)) {
        reply.begin(kReply);
        reply.i32(STATUS_BAD_VALUE);
        reply.u32(0);
        return;
    }
    // The frame's bytes are not used past this point: nested calls reuse the buffer.
    BinderRef target = mReferences.lookupLocal(nodeId);
    if (!target) {
        reply.begin(kReply);
        reply.i32(STATUS_DEAD_OBJECT);
        reply.u32(kReplyNodeGone);
        return;
    }
    auto out = std::make_unique<AParcel>();
    binder_status_t status = dispatchLocal(target.get()->asLocal(), code, in.get(), out.get());
    // Written after the call: a nested call on this thread builds its own reply meanwhile.
    reply.begin(kReply);
    if (status == STATUS_OK && type == kTransact && flattenedSize(*out) > kMaxTransaction) {
        status = STATUS_FAILED_TRANSACTION;  // the reply does not fit the caller's buffer
    }
    reply.i32(status);
    reply.u32(0);
    if (status == STATUS_OK && type == kTransact) {
        flatten(*out, peer, reply);
        *keep = std::move(out);
    }
}

void Runtime::serveInternal(const Frame& frame, const std::shared_ptr<Peer>& peer, Writer& reply) {
    Reader reader(frame);
    reply.begin(kReply);
    uint64_t nodeId = 0;
    if (frame.type == kPing || frame.type == kAcquire) {
        BinderRef target = reader.u64(&nodeId) ? mReferences.lookupLocal(nodeId) : BinderRef();
        if (target && frame.type == kAcquire) {
            mReferences.grant(target.get()->asLocal(), peer->key());
        }
        reply.i32(target ? STATUS_OK : STATUS_DEAD_OBJECT);
        reply.u32(target ? 0 : kReplyNodeGone);
        return;
    }
    std::string instance;
    if (frame.type == kGetService && reader.str(&instance, kMaxDescriptorLength)) {
        AParcel parcel;
        BinderRef service = mServices.find(instance);
        AParcel_writeStrongBinder(&parcel, service.get());
        reply.i32(STATUS_OK);
        reply.u32(0);
        flatten(parcel, peer, reply);
        return;
    }
    reply.i32(frame.type == kGetService ? STATUS_BAD_VALUE : STATUS_UNKNOWN_TRANSACTION);
    reply.u32(0);
}

bool Runtime::callingIdentity(Credentials* caller) {
    if (tServing == nullptr) return false;
    *caller = tServing->conn->peer();
    return true;
}

// ---- services ------------------------------------------------------------------------

binder_status_t Runtime::addService(ABBinder* binder, const char* instance) {
    return mServices.add(mDir, mEndpoint.selfKey(), binder, instance) ? STATUS_OK
                                                                      : STATUS_UNKNOWN_ERROR;
}

BinderRef Runtime::checkService(const char* instance) {
    std::string key = registryRead(mDir, instance);
    if (!validKey(key)) return BinderRef();
    bool self = key == mEndpoint.selfKey();
    if (self && !mInProcessProxies.load()) {
        // A service of this process is its local object, as on a device.
        return mServices.find(instance);
    }
    std::vector<uint8_t> request;
    Writer writer(request);
    writer.begin(kGetService);
    writer.str(instance);
    std::unique_ptr<AParcel> reply;
    bool nodeGone = false;
    // With in-process proxies enabled, this process's own services come back as proxies too.
    if (roundTrip(mEndpoint.getPeer(key), writer.finish(), self, &reply, &nodeGone) != STATUS_OK) {
        return BinderRef();
    }
    AIBinder* binder = nullptr;
    if (AParcel_readStrongBinder(reply.get(), &binder) != STATUS_OK) return BinderRef();
    return BinderRef::adopt(binder);
}

binder_status_t Runtime::killLocal(ABBinder* binder) {
    mServices.removeAll(mDir, mEndpoint.selfKey(), binder);
    mReferences.killNode(binder);
    return STATUS_OK;
}

}  // namespace binder_host

// ---- entry points that reach other processes -------------------------------------------

using binder_host::ABBinder;
using binder_host::Runtime;

binder_status_t AIBinder_ping(AIBinder* binder) {
    if (binder == nullptr) return STATUS_UNEXPECTED_NULL;
    binder_host::ABpBinder* proxy = binder->asProxy();
    if (proxy == nullptr) return STATUS_OK;
    Runtime* runtime = Runtime::get();
    return runtime != nullptr ? runtime->ping(proxy) : STATUS_DEAD_OBJECT;
}

uid_t AIBinder_getCallingUid() {
    binder_host::Credentials caller;
    return Runtime::callingIdentity(&caller) ? caller.uid : getuid();
}

pid_t AIBinder_getCallingPid() {
    binder_host::Credentials caller;
    return Runtime::callingIdentity(&caller) ? caller.pid : getpid();
}
binder_status_t AIBinder_transact(AIBinder* binder, transaction_code_t code, AParcel** in,
                                  AParcel** out, binder_flags_t flags) {
    // The request is always consumed, whatever the outcome.
    std::unique_ptr<AParcel> request(in != nullptr ? *in : nullptr);
    if (in != nullptr) {
        *in = nullptr;
    }
    if (out != nullptr) {
        *out = nullptr;
    }
    if (binder == nullptr || in == nullptr || out == nullptr || request == nullptr) {
        return STATUS_UNEXPECTED_NULL;
    }
    if (code < FIRST_CALL_TRANSACTION || code > LAST_CALL_TRANSACTION) {
        return STATUS_UNKNOWN_TRANSACTION;
    }
    constexpr binder_flags_t kKnownFlags = FLAG_ONEWAY | FLAG_PRIVATE_VENDOR;
    if ((flags & ~kKnownFlags) != 0) {
        return STATUS_BAD_VALUE;
    }
    if (request->target() != binder) {
        return STATUS_BAD_VALUE;
    }
    if (ABBinder* local = binder->asLocal()) {
        // A local object is called directly on this thread, as on a device.
        auto reply = std::make_unique<AParcel>();
        binder_status_t status = binder_host::dispatchLocal(local, code, request.get(), reply.get());
        if (status == STATUS_OK) {
            reply->setPosition(0);
            *out = reply.release();
        }
        return status;
    }
    // A call from vendor code needs an object that is stable for the vendor
    // partition; the flag itself stays in this process.
    if ((flags & FLAG_PRIVATE_VENDOR) != 0) {
        constexpr int32_t kRequired = binder_host::kStabilityVendor;
        if ((binder->stability() & kRequired) != kRequired) {
            return STATUS_BAD_TYPE;
        }
    }
    Runtime* runtime = Runtime::get();
    if (runtime == nullptr) {
        return STATUS_DEAD_OBJECT;
    }
    return runtime->transact(binder->asProxy(), code, *request, out,
                             flags & ~static_cast<binder_flags_t>(FLAG_PRIVATE_VENDOR));
}

binder_status_t AIBinder_prepareTransaction(AIBinder* binder, AParcel** in) {
    if (binder == nullptr || in == nullptr) {
        return STATUS_UNEXPECTED_NULL;
    }
    const AIBinder_Class* clazz = binder->getClass();
    if (clazz == nullptr) {
        return STATUS_INVALID_OPERATION;
    }
    auto* parcel = new AParcel(binder);
    binder_status_t status = binder_host::writeInterfaceToken(parcel, clazz->mDescriptor);
    if (status != STATUS_OK) {
        delete parcel;
        return status;
    }
    *in = parcel;
    return STATUS_OK;
}
