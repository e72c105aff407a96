// The transport between endpoints: Unix-domain stream sockets, one listening
// endpoint per process, no daemon. See transport.h for the connection model.
#include "transport.h"

#include <pthread.h>
#include <sys/epoll.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <random>
#include <thread>

#include "frame_decoder.h"
#include "parcel_internal.h"
#include "process_internal.h"
#include "registry.h"
#include "status_internal.h"
#include "wire.h"

namespace binder_host {

namespace {

constexpr size_t kMaxIdleConnections = 16;     // per peer
constexpr size_t kMaxKeyLength = 64;           // endpoint keys
constexpr size_t kMaxDescriptorLength = 4096;  // interface descriptors, instance names
constexpr uint64_t kListenId = 0;              // epoll id of the listening socket

thread_local pid_t tCallingPid = 0;

std::atomic<Runtime*> gRuntime{nullptr};
char gSocketPath[sizeof(sockaddr_un::sun_path)];

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
    if (gSocketPath[0] != '\0') {
        unlink(gSocketPath);
    }
}

void resetInChild() {
    Runtime* old = gRuntime.exchange(nullptr);
    if (old != nullptr) {
        abandonedRuntimes().push_back(old);
    }
    gSocketPath[0] = '\0';
    ThreadPool::resetAfterFork();
}

// Endpoint keys name socket files in the registry directory: no separators.
bool validKey(const std::string& key) {
    if (key.empty() || key.size() > kMaxKeyLength) {
        return false;
    }
    return std::all_of(key.begin(), key.end(),
                       [](char c) {
                           return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') ||
                                  (c >= '0' && c <= '9') || c == '-' || c == '_' || c == '.';
                       }) &&
           key[0] != '.';
}

bool sendAll(int fd, const uint8_t* data, size_t size) {
    while (size > 0) {
        ssize_t sent = send(fd, data, size, MSG_NOSIGNAL);
        if (sent < 0) {
            if (errno == EINTR) {
                continue;
            }
            return false;
        }
        data += sent;
        size -= static_cast<size_t>(sent);
    }
    return true;
}

bool sendAll(int fd, const std::vector<uint8_t>& frame) {
    return sendAll(fd, frame.data(), frame.size());
}

int connectTo(const std::string& path) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    if (path.size() >= sizeof(address.sun_path)) {
        return -1;
    }
    std::memcpy(address.sun_path, path.c_str(), path.size() + 1);
    int fd = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (fd < 0) {
        return -1;
    }
    int result;
    do {
        result = connect(fd, reinterpret_cast<const sockaddr*>(&address), sizeof(address));
    } while (result < 0 && errno == EINTR);
    if (result < 0) {
        close(fd);
        return -1;
    }
    return fd;
}

void setReceiveTimeout(int fd, int seconds) {
    timeval timeout{};
    timeout.tv_sec = seconds;
    setsockopt(fd, SOL_SOCKET, SO_RCVTIMEO, &timeout, sizeof(timeout));
}

std::string randomHex() {
    std::random_device device;
    char text[17];
    snprintf(text, sizeof(text), "%08x%08x", device(), device());
    return text;
}

}  // namespace

/** A stream socket with a receive buffer that frames are parsed from. */
struct Connection {
    explicit Connection(int socket) : fd(socket), buffer(4096) {}
    ~Connection() { close(fd); }
    Connection(const Connection&) = delete;
    Connection& operator=(const Connection&) = delete;

    /** Receives more bytes; false on end of file or error. */
    bool fill(int flags) {
        if (start == end) {
            start = end = 0;
        } else if (end == buffer.size() && start > 0) {
            std::memmove(buffer.data(), buffer.data() + start, end - start);
            end -= start;
            start = 0;
        }
        if (end == buffer.size()) {
            buffer.resize(buffer.size() * 2);
        }
        for (;;) {
            ssize_t received = recv(fd, buffer.data() + end, buffer.size() - end, flags);
            if (received > 0) {
                end += static_cast<size_t>(received);
                return true;
            }
            if (received < 0 && errno == EINTR) {
                continue;
            }
            return false;
        }
    }

    size_t available() const { return end - start; }

    int fd;
    std::vector<uint8_t> buffer;
    size_t start = 0;
    size_t end = 0;
};

/** One received message; data points into the connection's buffer. */
struct Frame {
    uint32_t type = 0;
    const uint8_t* data = nullptr;
    size_t size = 0;
};

namespace {

// Parses a complete frame at the start of the buffer, if there is one.
// Returns -1 on a protocol error, 0 if more bytes are needed, 1 with a frame.
int takeFrame(Connection& conn, Frame* frame) {
    if (conn.available() < kHeaderSize) {
        return 0;
    }
    uint32_t size = 0;
    std::memcpy(&size, conn.buffer.data() + conn.start, sizeof(size));
    if (size > kMaxFrame) {
        return -1;
    }
    if (conn.available() < kHeaderSize + size) {
        if (conn.buffer.size() < kHeaderSize + size) {
            conn.buffer.resize(std::max(conn.buffer.size() * 2, kHeaderSize + size));
        }
        return 0;
    }
    std::memcpy(&frame->type, conn.buffer.data() + conn.start + 4, sizeof(frame->type));
    frame->data = conn.buffer.data() + conn.start + kHeaderSize;
    frame->size = size;
    conn.start += kHeaderSize + size;
    return 1;
}

// Blocks until a whole frame has arrived; false on end of file, error or protocol error.
bool readFrame(Connection& conn, Frame* frame) {
    for (;;) {
        int result = takeFrame(conn, frame);
        if (result != 0) {
            return result > 0;
        }
        if (!conn.fill(0)) {
            return false;
        }
    }
}

}  // namespace

/** Builds one frame. */
class Writer {
  public:
    explicit Writer(std::vector<uint8_t>& out) : mOut(out) {}
    void begin(uint32_t type) {
        mOut.clear();
        u32(0);
        u32(type);
    }
    void u32(uint32_t value) { bytes(&value, sizeof(value)); }
    void i32(int32_t value) { bytes(&value, sizeof(value)); }
    void u64(uint64_t value) { bytes(&value, sizeof(value)); }
    void str(const std::string& value) {
        u32(static_cast<uint32_t>(value.size()));
        bytes(value.data(), value.size());
    }
    void bytes(const void* data, size_t size) {
        const auto* begin = static_cast<const uint8_t*>(data);
        mOut.insert(mOut.end(), begin, begin + size);
    }
    /** Fills in the payload size; the frame is ready to send. */
    const std::vector<uint8_t>& finish() {
        auto size = static_cast<uint32_t>(mOut.size() - kHeaderSize);
        std::memcpy(mOut.data(), &size, sizeof(size));
        return mOut;
    }

  private:
    std::vector<uint8_t>& mOut;
};

/** Reads a frame's payload; every read is bounds-checked. */
class Reader {
  public:
    Reader(const uint8_t* data, size_t size) : mData(data), mLeft(size) {}
    explicit Reader(const Frame& frame) : Reader(frame.data, frame.size) {}

    bool u32(uint32_t* value) { return bytes(value, sizeof(*value)); }
    bool i32(int32_t* value) { return bytes(value, sizeof(*value)); }
    bool u64(uint64_t* value) { return bytes(value, sizeof(*value)); }
    bool str(std::string* value, size_t maxLength) {
        uint32_t length = 0;
        const uint8_t* data = nullptr;
        if (!u32(&length) || length > maxLength || !view(length, &data)) {
            return false;
        }
        value->assign(reinterpret_cast<const char*>(data), length);
        return true;
    }
    bool view(size_t size, const uint8_t** data) {
        if (size > mLeft) {
            return false;
        }
        *data = mData;
        mData += size;
        mLeft -= size;
        return true;
    }
    size_t left() const { return mLeft; }

  private:
    bool bytes(void* value, size_t size) {
        const uint8_t* data = nullptr;
        if (!view(size, &data)) {
            return false;
        }
        std::memcpy(value, data, size);
        return true;
    }

    const uint8_t* mData;
    size_t mLeft;
};

namespace {

/** A binder object as a parcel carries it on the wire; an empty key is null. */
struct WireObject {
    std::string key;
    uint64_t nodeId = 0;
    std::string descriptor;
    uint32_t stability = 0;
};

// Reads a parcel as it travels: its data and its object table, every field
// bounds-checked and every endpoint key validated. Resolves nothing.
bool readParcel(Reader& in, std::vector<uint8_t>* data, std::vector<WireObject>* objects) {
    uint32_t dataSize = 0;
    const uint8_t* bytes = nullptr;
    uint32_t count = 0;
    if (!in.u32(&dataSize) || !in.view(dataSize, &bytes) || !in.u32(&count)) {
        return false;
    }
    data->assign(bytes, bytes + dataSize);
    // Each object takes at least 20 bytes on the wire.
    if (count > in.left() / 20) {
        return false;
    }
    objects->reserve(count);
    for (uint32_t i = 0; i < count; ++i) {
        WireObject object;
        if (!in.str(&object.key, kMaxKeyLength) || !in.u64(&object.nodeId) ||
            !in.str(&object.descriptor, kMaxDescriptorLength) || !in.u32(&object.stability)) {
            return false;
        }
        if (!object.key.empty() && !validKey(object.key)) {
            return false;
        }
        objects->push_back(std::move(object));
    }
    return true;
}

}  // namespace

Peer::Peer(std::string key, std::string path) : mKey(std::move(key)), mPath(std::move(path)) {}
Peer::~Peer() = default;

/** A control connection watched by the watcher thread. */
struct Runtime::ControlConn {
    std::unique_ptr<Connection> conn;
    std::shared_ptr<Peer> peer;
    bool outgoing;
};

// ---- creation ----------------------------------------------------------------

Runtime* Runtime::getIfCreated() {
    return gRuntime.load(std::memory_order_acquire);
}

Runtime* Runtime::get() {
    Runtime* runtime = gRuntime.load(std::memory_order_acquire);
    if (runtime != nullptr) {
        return runtime;
    }
    std::lock_guard<std::mutex> lock(initMutex());
    runtime = gRuntime.load(std::memory_order_acquire);
    if (runtime == nullptr) {
        static bool registered = [] {
            pthread_atfork(nullptr, nullptr, resetInChild);
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
    if (mDir.empty()) {
        return false;
    }
    mPid = getpid();
    mSelfKey = "ep-" + std::to_string(mPid) + "-" + randomHex();
    mSelfPath = mDir + "/" + mSelfKey;
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    if (mSelfPath.size() >= sizeof(address.sun_path)) {
        fprintf(stderr, "binder_ndk: registry directory path too long: %s\n", mDir.c_str());
        return false;
    }
    std::memcpy(address.sun_path, mSelfPath.c_str(), mSelfPath.size() + 1);
    mListenFd = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (mListenFd < 0 ||
        bind(mListenFd, reinterpret_cast<const sockaddr*>(&address), sizeof(address)) != 0 ||
        listen(mListenFd, SOMAXCONN) != 0) {
        fprintf(stderr, "binder_ndk: cannot open endpoint %s: %s\n", mSelfPath.c_str(),
                strerror(errno));
        return false;
    }
    std::memcpy(gSocketPath, mSelfPath.c_str(), mSelfPath.size() + 1);
    mEpollFd = epoll_create1(EPOLL_CLOEXEC);
    epoll_event event{};
    event.events = EPOLLIN;
    event.data.u64 = kListenId;
    if (mEpollFd < 0 || epoll_ctl(mEpollFd, EPOLL_CTL_ADD, mListenFd, &event) != 0) {
        return false;
    }
    return startDetachedThread([this] { watch(); });
}

// ---- watcher: accepts connections, reads control messages ------------------

void Runtime::watch() {
    epoll_event events[16];
    for (;;) {
        int count = epoll_wait(mEpollFd, events, 16, -1);
        for (int i = 0; i < count; ++i) {
            if (events[i].data.u64 == kListenId) {
                acceptOne();
            } else {
                readControl(events[i].data.u64);
            }
        }
    }
}

void Runtime::acceptOne() {
    int fd = accept4(mListenFd, nullptr, nullptr, SOCK_CLOEXEC);
    if (fd < 0) {
        return;
    }
    auto conn = std::make_unique<Connection>(fd);
    // A connecting peer sends its hello at once; do not let a silent one stall the watcher.
    setReceiveTimeout(fd, 2);
    Frame frame;
    int32_t pid = 0;
    std::string key;
    if (!readFrame(*conn, &frame)) {
        return;
    }
    Reader reader(frame);
    uint32_t type = frame.type;
    if (type == kHelloProbe || !reader.i32(&pid) || !reader.str(&key, kMaxKeyLength) ||
        !validKey(key)) {
        return;
    }
    setReceiveTimeout(fd, 0);
    std::shared_ptr<Peer> peer = getPeer(key);
    if (type == kHelloData) {
        Connection* raw = conn.release();
        ThreadPool::get().submit(
                [this, raw, peer, pid] { serve(std::unique_ptr<Connection>(raw), peer, pid); });
    } else if (type == kHelloControl) {
        bool pending = conn->available() > 0;
        uint64_t id = registerControl(fd, peer, std::move(conn));
        if (pending) {
            // Messages that came with the hello raise no readiness event of their own.
            ControlConn* control = nullptr;
            {
                std::lock_guard<std::mutex> lock(mControlMutex);
                control = mControls.at(id).get();
            }
            parseControl(id, control);
        }
    }
}

uint64_t Runtime::registerControl(int fd, std::shared_ptr<Peer> peer,
                                  std::unique_ptr<Connection> conn) {
    bool outgoing = conn == nullptr;
    if (outgoing) {
        conn = std::make_unique<Connection>(fd);
    }
    std::lock_guard<std::mutex> lock(mControlMutex);
    uint64_t id = mNextControlId++;
    epoll_event event{};
    event.events = EPOLLIN | EPOLLRDHUP;
    event.data.u64 = id;
    mControls.emplace(id, std::make_unique<ControlConn>(
                                  ControlConn{std::move(conn), std::move(peer), outgoing}));
    epoll_ctl(mEpollFd, EPOLL_CTL_ADD, fd, &event);
    return id;
}

void Runtime::readControl(uint64_t id) {
    ControlConn* control = nullptr;
    {
        std::lock_guard<std::mutex> lock(mControlMutex);
        auto it = mControls.find(id);
        if (it == mControls.end()) {
            return;
        }
        control = it->second.get();  // stays valid: only this thread erases
    }
    if (!control->conn->fill(MSG_DONTWAIT) && errno != EAGAIN && errno != EWOULDBLOCK) {
        std::shared_ptr<Peer> peer = control->peer;
        closeControl(id);
        onPeerDied(peer);
        return;
    }
    parseControl(id, control);
}

void Runtime::parseControl(uint64_t id, ControlConn* control) {
    Frame frame;
    int result;
    while ((result = takeFrame(*control->conn, &frame)) > 0) {
        Reader reader(frame);
        uint64_t node = 0;
        uint32_t count = 0;
        if (frame.type == kRelease && reader.u64(&node) && reader.u32(&count)) {
            releaseGrants(node, control->peer->key(), count);
        } else if (frame.type == kDead && reader.u64(&node)) {
            markProxyDead(control->peer, node);
        }
    }
    if (result < 0) {
        // A peer that breaks the protocol loses this connection, not the process.
        closeControl(id);
    }
}

void Runtime::closeControl(uint64_t id) {
    std::unique_ptr<ControlConn> control;
    {
        std::lock_guard<std::mutex> lock(mControlMutex);
        auto it = mControls.find(id);
        if (it == mControls.end()) {
            return;
        }
        control = std::move(it->second);
        mControls.erase(it);
    }
    epoll_ctl(mEpollFd, EPOLL_CTL_DEL, control->conn->fd, nullptr);
    if (control->outgoing) {
        // Writers use the descriptor under the peer's lock: close it under the lock too.
        std::lock_guard<std::mutex> lock(control->peer->mMutex);
        control->peer->mControlOut = -1;
        control->conn.reset();
    }
}

// ---- peers and connections ---------------------------------------------------

std::shared_ptr<Peer> Runtime::getPeer(const std::string& key) {
    std::lock_guard<std::mutex> lock(mPeersMutex);
    std::shared_ptr<Peer>& peer = mPeers[key];
    if (peer == nullptr) {
        peer = std::make_shared<Peer>(key, mDir + "/" + key);
    }
    return peer;
}

bool Runtime::ensureControlLocked(const std::shared_ptr<Peer>& peer) {
    if (peer->mDead) {
        return false;
    }
    if (peer->mControlOut >= 0) {
        return true;
    }
    int fd = connectAndGreet(peer, kHelloControl);
    if (fd < 0) {
        return false;
    }
    peer->mControlOut = fd;
    registerControl(fd, peer, nullptr);
    return true;
}

std::unique_ptr<Connection> Runtime::acquireConnection(const std::shared_ptr<Peer>& peer) {
    bool controlReady = false;
    {
        std::lock_guard<std::mutex> lock(peer->mMutex);
        if (peer->mDead) {
            return nullptr;
        }
        if (!peer->mIdle.empty()) {
            std::unique_ptr<Connection> conn = std::move(peer->mIdle.back());
            peer->mIdle.pop_back();
            return conn;
        }
        // The control connection comes first, so the peer knows this process
        // before it serves any of its calls.
        controlReady = ensureControlLocked(peer);
    }
    if (!controlReady) {
        checkPeer(peer);
        return nullptr;
    }
    int fd = connectAndGreet(peer, kHelloData);
    if (fd < 0) {
        checkPeer(peer);
        return nullptr;
    }
    return std::make_unique<Connection>(fd);
}

int Runtime::connectAndGreet(const std::shared_ptr<Peer>& peer, uint32_t type) {
    int fd = connectTo(peer->mPath);
    if (fd < 0) {
        return -1;
    }
    std::vector<uint8_t> hello;
    Writer writer(hello);
    writer.begin(type);
    writer.i32(mPid);
    writer.str(mSelfKey);
    if (!sendAll(fd, writer.finish())) {
        close(fd);
        return -1;
    }
    return fd;
}

void Runtime::releaseConnection(const std::shared_ptr<Peer>& peer,
                                std::unique_ptr<Connection> conn) {
    std::lock_guard<std::mutex> lock(peer->mMutex);
    if (!peer->mDead && peer->mIdle.size() < kMaxIdleConnections) {
        peer->mIdle.push_back(std::move(conn));
    }
}

bool Runtime::sendControl(const std::shared_ptr<Peer>& peer, const std::vector<uint8_t>& frame) {
    std::lock_guard<std::mutex> lock(peer->mMutex);
    return ensureControlLocked(peer) && sendAll(peer->mControlOut, frame);
}

void Runtime::checkPeer(const std::shared_ptr<Peer>& peer) {
    // A process that is gone no longer accepts connections on its endpoint.
    int fd = connectAndGreet(peer, kHelloProbe);
    if (fd < 0) {
        onPeerDied(peer);
        return;
    }
    close(fd);
}

void Runtime::onPeerDied(const std::shared_ptr<Peer>& peer) {
    std::vector<std::unique_ptr<Connection>> idle;
    {
        std::lock_guard<std::mutex> lock(peer->mMutex);
        if (peer->mDead) {
            return;
        }
        peer->mDead = true;
        idle.swap(peer->mIdle);
    }
    idle.clear();
    // Release every reference the peer held on this process's objects.
    std::vector<BinderRef> released;
    {
        std::lock_guard<std::mutex> lock(mNodesMutex);
        for (auto& entry : mNodes) {
            Node& node = entry.second;
            auto holder = node.holders.find(peer->key());
            if (holder == node.holders.end()) {
                continue;
            }
            node.total -= holder->second;
            node.holders.erase(holder);
            if (node.total == 0) {
                released.push_back(BinderRef::adopt(node.binder));
            }
        }
    }
    released.clear();
    // Every proxy to the peer's objects turns dead.
    std::vector<std::pair<BinderRef, std::vector<DeathLink>>> deaths;
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
    deliverDeaths(std::move(deaths));
}

void Runtime::deliverDeaths(std::vector<std::pair<BinderRef, std::vector<DeathLink>>> deaths) {
    bool any = std::any_of(deaths.begin(), deaths.end(),
                           [](const auto& death) { return !death.second.empty(); });
    if (!any) {
        return;
    }
    auto shared = std::make_shared<decltype(deaths)>(std::move(deaths));
    ThreadPool::get().submit([shared] {
        for (auto& death : *shared) {
            for (DeathLink& link : death.second) {
                link.recipient->deliver(link.cookie);
            }
        }
    });
}

void Runtime::markProxyDead(const std::shared_ptr<Peer>& peer, uint64_t nodeId) {
    BinderRef proxy;
    {
        std::lock_guard<std::mutex> lock(mProxiesMutex);
        auto it = mProxies.find({peer->key(), nodeId});
        if (it != mProxies.end() && it->second->tryIncStrong()) {
            proxy = BinderRef::adopt(it->second);
        }
    }
    if (proxy) {
        std::vector<std::pair<BinderRef, std::vector<DeathLink>>> deaths;
        std::vector<DeathLink> links = static_cast<ABpBinder*>(proxy.get())->markDead();
        deaths.emplace_back(std::move(proxy), std::move(links));
        deliverDeaths(std::move(deaths));
    }
}

// ---- nodes: local objects known to other endpoints ---------------------------

uint64_t Runtime::grant(ABBinder* binder, const std::string& holder) {
    std::lock_guard<std::mutex> lock(mNodesMutex);
    if (binder->mNodeId == 0) {
        binder->mNodeId = mNextNodeId++;
        binder->incWeak();
        mNodes.emplace(binder->mNodeId, Node{binder, {}, 0});
    }
    Node& node = mNodes.at(binder->mNodeId);
    ++node.holders[holder];
    if (node.total++ == 0) {
        binder->incStrong();
    }
    return binder->mNodeId;
}

void Runtime::releaseGrants(uint64_t nodeId, const std::string& holder, int64_t count) {
    BinderRef released;
    {
        std::lock_guard<std::mutex> lock(mNodesMutex);
        auto it = mNodes.find(nodeId);
        if (it == mNodes.end()) {
            return;
        }
        Node& node = it->second;
        auto held = node.holders.find(holder);
        if (held == node.holders.end() || count <= 0) {
            return;
        }
        int64_t releasedCount = std::min(count, held->second);
        held->second -= releasedCount;
        if (held->second == 0) {
            node.holders.erase(held);
        }
        node.total -= releasedCount;
        if (node.total == 0) {
            released = BinderRef::adopt(node.binder);
        }
    }
}

BinderRef Runtime::lookupLocal(uint64_t nodeId) {
    std::lock_guard<std::mutex> lock(mNodesMutex);
    auto it = mNodes.find(nodeId);
    if (it == mNodes.end() || !it->second.binder->tryIncStrong()) {
        return BinderRef();
    }
    return BinderRef::adopt(it->second.binder);
}

void Runtime::onLocalGone(ABBinder* binder) {
    bool known = false;
    {
        std::lock_guard<std::mutex> lock(mNodesMutex);
        if (binder->mNodeId != 0) {
            mNodes.erase(binder->mNodeId);
            binder->mNodeId = 0;
            known = true;
        }
    }
    if (known) {
        binder->decWeak();
    }
}

// ---- proxies -------------------------------------------------------------------

BinderRef Runtime::getProxy(const std::shared_ptr<Peer>& peer, uint64_t nodeId,
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
        if (granted) {
            static_cast<ABpBinder*>(proxy.get())->addGrant();
        }
    }
    bool alive = false;
    {
        std::lock_guard<std::mutex> lock(peer->mMutex);
        alive = ensureControlLocked(peer);
    }
    if (!alive) {
        checkPeer(peer);
        std::lock_guard<std::mutex> lock(peer->mMutex);
        alive = !peer->mDead;
    }
    if (!alive) {
        // Created after its owner died: dead from the start, nobody linked yet.
        static_cast<ABpBinder*>(proxy.get())->markDead();
    }
    return proxy;
}

void Runtime::onProxyGone(ABpBinder* proxy, int32_t grants) {
    {
        std::lock_guard<std::mutex> lock(mProxiesMutex);
        auto it = mProxies.find({proxy->peer()->key(), proxy->nodeId()});
        if (it != mProxies.end() && it->second == proxy) {
            mProxies.erase(it);
        }
    }
    if (grants > 0 && !proxy->isDead()) {
        std::vector<uint8_t> frame;
        Writer writer(frame);
        writer.begin(kRelease);
        writer.u64(proxy->nodeId());
        writer.u32(static_cast<uint32_t>(grants));
        sendControl(proxy->peer(), writer.finish());
    }
}

// ---- parcels on the wire -------------------------------------------------------

void Runtime::flatten(const AParcel& parcel, const std::shared_ptr<Peer>& dest, Writer& out) {
    out.u32(static_cast<uint32_t>(parcel.data().size()));
    out.bytes(parcel.data().data(), parcel.data().size());
    out.u32(static_cast<uint32_t>(parcel.objects().size()));
    for (const BinderRef& object : parcel.objects()) {
        if (!object) {
            out.str(std::string());
            out.u64(0);
            out.str(std::string());
            out.u32(0);
        } else if (ABBinder* local = object.get()->asLocal()) {
            uint64_t nodeId = grant(local, dest->key());
            out.str(mSelfKey);
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
    if (!readParcel(in, &parcel->mutableData(), &objects)) {
        return false;
    }
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
    if (key == mSelfKey && !forceProxies) {
        // One of this process's own objects comes back as the local object;
        // a reference this process granted to itself is returned at once.
        BinderRef local = lookupLocal(nodeId);
        if (sender->key() == mSelfKey) {
            releaseGrants(nodeId, mSelfKey, 1);
        }
        return local;
    }
    if (key == sender->key()) {
        return getProxy(sender, nodeId, std::move(descriptor), true);
    }
    // An object of a third endpoint: ask its owner for a reference of our own.
    std::shared_ptr<Peer> owner = getPeer(key);
    std::vector<uint8_t> request;
    Writer writer(request);
    writer.begin(kAcquire);
    writer.u64(nodeId);
    bool nodeGone = false;
    binder_status_t status = roundTrip(owner, writer.finish(), false, nullptr, &nodeGone);
    BinderRef proxy = getProxy(owner, nodeId, std::move(descriptor), status == STATUS_OK);
    if (status != STATUS_OK) {
        markProxyDead(owner, nodeId);
    }
    return proxy;
}

// ---- calls -----------------------------------------------------------------------

binder_status_t Runtime::roundTrip(const std::shared_ptr<Peer>& peer,
                                   const std::vector<uint8_t>& request, bool forceProxies,
                                   std::unique_ptr<AParcel>* reply, bool* nodeGone) {
    std::unique_ptr<Connection> conn = acquireConnection(peer);
    if (conn == nullptr) {
        return STATUS_DEAD_OBJECT;
    }
    Frame frame;
    if (!sendAll(conn->fd, request) || !readFrame(*conn, &frame) || frame.type != kReply) {
        conn.reset();
        checkPeer(peer);
        return STATUS_DEAD_OBJECT;
    }
    Reader reader(frame);
    int32_t status = STATUS_OK;
    uint32_t flags = 0;
    if (!reader.i32(&status) || !reader.u32(&flags)) {
        return STATUS_BAD_VALUE;  // the connection is dropped: its state is unknown
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
    releaseConnection(peer, std::move(conn));
    return status;
}

binder_status_t Runtime::transact(ABpBinder* proxy, transaction_code_t code, const AParcel& in,
                                  AParcel** out, binder_flags_t flags) {
    if (proxy->isDead()) {
        return STATUS_DEAD_OBJECT;
    }
    const std::shared_ptr<Peer>& peer = proxy->peer();
    bool oneway = (flags & FLAG_ONEWAY) != 0;
    thread_local std::vector<uint8_t> request;
    Writer writer(request);
    writer.begin(oneway ? kTransactOneway : kTransact);
    writer.u64(proxy->nodeId());
    writer.u32(code);
    flatten(in, peer, writer);
    writer.finish();
    if (oneway) {
        std::unique_ptr<Connection> conn = acquireConnection(peer);
        if (conn == nullptr) {
            return STATUS_DEAD_OBJECT;
        }
        if (!sendAll(conn->fd, request)) {
            conn.reset();
            checkPeer(peer);
            return STATUS_DEAD_OBJECT;
        }
        releaseConnection(peer, std::move(conn));
        *out = new AParcel;
        return STATUS_OK;
    }
    std::unique_ptr<AParcel> reply;
    bool nodeGone = false;
    binder_status_t status = roundTrip(peer, request, false, &reply, &nodeGone);
    if (nodeGone) {
        markProxyDead(peer, proxy->nodeId());
        return STATUS_DEAD_OBJECT;
    }
    if (status == STATUS_OK) {
        *out = reply.release();
    }
    return status;
}

binder_status_t Runtime::ping(ABpBinder* proxy) {
    if (proxy->isDead()) {
        return STATUS_DEAD_OBJECT;
    }
    std::vector<uint8_t> request;
    Writer writer(request);
    writer.begin(kPing);
    writer.u64(proxy->nodeId());
    bool nodeGone = false;
    binder_status_t status = roundTrip(proxy->peer(), writer.finish(), false, nullptr, &nodeGone);
    if (nodeGone) {
        markProxyDead(proxy->peer(), proxy->nodeId());
        return STATUS_DEAD_OBJECT;
    }
    return status;
}

// ---- serving -----------------------------------------------------------------------

void Runtime::serve(std::unique_ptr<Connection> conn, const std::shared_ptr<Peer>& peer, pid_t pid) {
    std::vector<uint8_t> replyBuffer;
    std::unique_ptr<AParcel> lastReply;
    Frame frame;
    while (readFrame(*conn, &frame)) {
        Writer reply(replyBuffer);
        if (frame.type == kTransact || frame.type == kTransactOneway) {
            pid_t outerPid = tCallingPid;
            tCallingPid = pid;
            // The previous reply is kept until the next request: objects of
            // third endpoints in it stay referenced while the caller acquires them.
            serveTransaction(frame, peer, reply, &lastReply);
            tCallingPid = outerPid;
        } else {
            serveInternal(frame, peer, reply);
        }
        if (frame.type != kTransactOneway && !sendAll(conn->fd, reply.finish())) {
            break;
        }
    }
}

void Runtime::serveTransaction(const Frame& frame, const std::shared_ptr<Peer>& peer, Writer& reply,
                               std::unique_ptr<AParcel>* keep) {
    Reader reader(frame);
    uint64_t nodeId = 0;
    uint32_t code = 0;
    auto in = std::make_unique<AParcel>();
    reply.begin(kReply);
    if (!reader.u64(&nodeId) || !reader.u32(&code) || !unflatten(reader, in.get(), peer, false)) {
        reply.i32(STATUS_BAD_VALUE);
        reply.u32(0);
        return;
    }
    BinderRef target = lookupLocal(nodeId);
    if (!target) {
        reply.i32(STATUS_DEAD_OBJECT);
        reply.u32(kReplyNodeGone);
        return;
    }
    auto out = std::make_unique<AParcel>();
    binder_status_t status = dispatchLocal(target.get()->asLocal(), code, in.get(), out.get());
    reply.i32(status);
    reply.u32(0);
    if (status == STATUS_OK && frame.type == kTransact) {
        flatten(*out, peer, reply);
        *keep = std::move(out);
    }
}

void Runtime::serveInternal(const Frame& frame, const std::shared_ptr<Peer>& peer, Writer& reply) {
    Reader reader(frame);
    reply.begin(kReply);
    uint64_t nodeId = 0;
    if (frame.type == kPing || frame.type == kAcquire) {
        BinderRef target = reader.u64(&nodeId) ? lookupLocal(nodeId) : BinderRef();
        if (target && frame.type == kAcquire) {
            grant(target.get()->asLocal(), peer->key());
        }
        reply.i32(target ? STATUS_OK : STATUS_DEAD_OBJECT);
        reply.u32(target ? 0 : kReplyNodeGone);
        return;
    }
    std::string instance;
    if (frame.type == kGetService && reader.str(&instance, kMaxDescriptorLength)) {
        BinderRef service;
        {
            std::lock_guard<std::mutex> lock(mServicesMutex);
            auto it = mServices.find(instance);
            if (it != mServices.end()) {
                service = it->second;
            }
        }
        AParcel parcel;
        AParcel_writeStrongBinder(&parcel, service.get());
        reply.i32(STATUS_OK);
        reply.u32(0);
        flatten(parcel, peer, reply);
        return;
    }
    reply.i32(frame.type == kGetService ? STATUS_BAD_VALUE : STATUS_UNKNOWN_TRANSACTION);
    reply.u32(0);
}

// ---- services ------------------------------------------------------------------------

binder_status_t Runtime::addService(ABBinder* binder, const char* instance) {
    BinderRef previous = BinderRef::share(binder);
    {
        std::lock_guard<std::mutex> lock(mServicesMutex);
        std::swap(mServices[instance], previous);
    }
    return registryWrite(mDir, instance, mSelfKey) ? STATUS_OK : STATUS_UNKNOWN_ERROR;
}

BinderRef Runtime::checkService(const char* instance) {
    std::string key = registryRead(mDir, instance);
    if (!validKey(key)) {
        return BinderRef();
    }
    if (key == mSelfKey && !mInProcessProxies.load()) {
        // A service of this process is its local object, as on a device.
        std::lock_guard<std::mutex> lock(mServicesMutex);
        auto it = mServices.find(instance);
        return it != mServices.end() ? it->second : BinderRef();
    }
    std::vector<uint8_t> request;
    Writer writer(request);
    writer.begin(kGetService);
    writer.str(instance);
    std::unique_ptr<AParcel> reply;
    bool nodeGone = false;
    // With in-process proxies enabled, this process's own services come back as proxies too.
    if (roundTrip(getPeer(key), writer.finish(), true, &reply, &nodeGone) != STATUS_OK) {
        return BinderRef();
    }
    AIBinder* binder = nullptr;
    if (AParcel_readStrongBinder(reply.get(), &binder) != STATUS_OK) {
        return BinderRef();
    }
    return BinderRef::adopt(binder);
}

binder_status_t Runtime::killLocal(ABBinder* binder) {
    std::vector<BinderRef> registrations;
    std::vector<std::string> names;
    {
        std::lock_guard<std::mutex> lock(mServicesMutex);
        for (auto it = mServices.begin(); it != mServices.end();) {
            if (it->second.get() == binder) {
                names.push_back(it->first);
                registrations.push_back(std::move(it->second));
                it = mServices.erase(it);
            } else {
                ++it;
            }
        }
    }
    for (const std::string& name : names) {
        registryRemove(mDir, name, mSelfKey);
    }
    uint64_t nodeId = 0;
    std::vector<std::string> holders;
    bool heldStrong = false;
    {
        std::lock_guard<std::mutex> lock(mNodesMutex);
        if (binder->mNodeId != 0) {
            nodeId = binder->mNodeId;
            Node& node = mNodes.at(nodeId);
            for (const auto& holder : node.holders) {
                holders.push_back(holder.first);
            }
            heldStrong = node.total > 0;
            mNodes.erase(nodeId);
            binder->mNodeId = 0;  // written again later, it becomes a new object
        }
    }
    if (nodeId == 0) {
        return STATUS_OK;
    }
    std::vector<uint8_t> frame;
    Writer writer(frame);
    writer.begin(kDead);
    writer.u64(nodeId);
    writer.finish();
    for (const std::string& holder : holders) {
        sendControl(getPeer(holder), frame);
    }
    if (heldStrong) {
        binder->decStrong();
    }
    binder->decWeak();
    return STATUS_OK;
}

size_t Runtime::peerCount() {
    std::lock_guard<std::mutex> lock(mPeersMutex);
    size_t count = 0;
    for (const auto& entry : mPeers) {
        std::lock_guard<std::mutex> peerLock(entry.second->mMutex);
        count += entry.first != mSelfKey && !entry.second->mDead ? 1 : 0;
    }
    return count;
}

pid_t Runtime::callingPid() {
    return tCallingPid;
}

// ---- decoding without a peer, for the fuzz target ----------------------------

size_t decodeFrames(const uint8_t* data, size_t size, std::vector<std::vector<uint8_t>>* parcels) {
    Connection stream(-1);
    stream.buffer.assign(data, data + size);
    stream.end = size;
    size_t decoded = 0;
    Frame frame;
    for (;;) {
        // All bytes are here: a frame longer than what is left never completes
        // (and the buffer need not grow for it, as it would on a socket).
        uint32_t declared = 0;
        if (stream.available() < kHeaderSize) {
            break;
        }
        std::memcpy(&declared, stream.buffer.data() + stream.start, sizeof(declared));
        if (declared > stream.available() - kHeaderSize || takeFrame(stream, &frame) <= 0) {
            break;
        }
        Reader reader(frame);
        uint64_t node = 0;
        uint32_t word = 0;
        int32_t number = 0;
        std::string text;
        std::vector<uint8_t> parcel;
        std::vector<WireObject> objects;
        bool ok = false;
        switch (frame.type) {
            case kHelloData:
            case kHelloControl:
                ok = reader.i32(&number) && reader.str(&text, kMaxKeyLength) && validKey(text);
                break;
            case kHelloProbe:
                ok = true;
                break;
            case kTransact:
            case kTransactOneway:
                ok = reader.u64(&node) && reader.u32(&word) && readParcel(reader, &parcel, &objects);
                break;
            case kReply:
                ok = reader.i32(&number) && reader.u32(&word) &&
                     (normalizeStatus(number) != STATUS_OK || readParcel(reader, &parcel, &objects));
                break;
            case kPing:
            case kAcquire:
            case kDead:
                ok = reader.u64(&node);
                break;
            case kRelease:
                ok = reader.u64(&node) && reader.u32(&word);
                break;
            case kGetService:
                ok = reader.str(&text, kMaxDescriptorLength);
                break;
            default:
                break;
        }
        if (!ok) {
            break;
        }
        if (parcels != nullptr &&
            (frame.type == kTransact || frame.type == kTransactOneway || frame.type == kReply)) {
            parcels->push_back(std::move(parcel));
        }
        ++decoded;
    }
    return decoded;
}

}  // namespace binder_host
