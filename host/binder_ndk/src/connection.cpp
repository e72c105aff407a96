// The endpoint: listening, handshakes, data and control connections, and
// finding out that a peer process is gone.
#include "connection.h"

#include <fcntl.h>
#include <sys/epoll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <random>
#include <utility>

#include "process_internal.h"

namespace binder_host {

namespace {

constexpr uint64_t kListenId = 0;  // epoll id of the listening socket
// A connecting peer must have sent its whole hello within this time.
constexpr std::chrono::seconds kHandshakeDeadline(2);
constexpr size_t kMaxIdleConnections = 16;  // per peer

std::string randomHex() {
    std::random_device device;
    char text[17];
    snprintf(text, sizeof(text), "%08x%08x", device(), device());
    return text;
}

bool credentialsOf(int fd, Credentials* credentials) {
    ucred peer{};
    socklen_t size = sizeof(peer);
    if (getsockopt(fd, SOL_SOCKET, SO_PEERCRED, &peer, &size) != 0 || size != sizeof(peer)) {
        return false;
    }
    credentials->pid = peer.pid;
    credentials->uid = peer.uid;
    return true;
}

int connectTo(const std::string& path) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    if (path.size() >= sizeof(address.sun_path)) return -1;
    std::memcpy(address.sun_path, path.c_str(), path.size() + 1);
    int fd = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (fd < 0) return -1;
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

void setBlocking(int fd) {
    int flags = fcntl(fd, F_GETFL);
    if (flags >= 0) fcntl(fd, F_SETFL, flags & ~O_NONBLOCK);
}

}  // namespace

bool sendAll(int fd, const uint8_t* data, size_t size) {
    while (size > 0) {
        ssize_t sent = send(fd, data, size, MSG_NOSIGNAL);
        if (sent < 0) {
            if (errno == EINTR) continue;
            return false;
        }
        data += sent;
        size -= static_cast<size_t>(sent);
    }
    return true;
}

// ---- connections ----------------------------------------------------------------

Connection::~Connection() {
    close(mFd);
}

bool Connection::send(const std::vector<uint8_t>& frame) const {
    return sendAll(mFd, frame.data(), frame.size());
}

ssize_t Connection::receive(int flags) {
    size_t room = 0;
    uint8_t* at = mIn.space(&room);
    for (;;) {
        ssize_t received = recv(mFd, at, room, flags);
        if (received > 0) mIn.commit(static_cast<size_t>(received));
        if (received >= 0 || errno != EINTR) return received;
    }
}

bool Connection::readFrame(Frame* frame) {
    for (;;) {
        int result = mIn.take(frame);
        if (result != 0) return result > 0;
        if (receive(0) <= 0) return false;
    }
}

bool Connection::receiveNow(bool* drained) {
    size_t room = 0;
    mIn.space(&room);
    ssize_t received = receive(MSG_DONTWAIT);
    bool waiting = received < 0 && (errno == EAGAIN || errno == EWOULDBLOCK);
    // Fewer bytes than there was room for: the socket had no more.
    if (drained != nullptr)
        *drained = waiting || (received > 0 && static_cast<size_t>(received) < room);
    return received > 0 || waiting;
}

// ---- peers --------------------------------------------------------------------------

Peer::Peer(std::string key, std::string path) : mKey(std::move(key)), mPath(std::move(path)) {}
Peer::~Peer() = default;

bool Peer::isDead() {
    std::lock_guard<std::mutex> lock(mMutex);
    return mDead;
}

/** A connection the watcher reads: one whose hello is still due, or a control connection. */
struct Endpoint::Watched {
    std::unique_ptr<Connection> conn;
    std::shared_ptr<Peer> peer;  // null while the hello is due
    bool outgoing = false;
};

Endpoint::Endpoint(EndpointEvents* events) : mEvents(events) {}
Endpoint::~Endpoint() = default;

bool Endpoint::open(const std::string& dir) {
    mDir = dir;
    mPid = getpid();
    mUid = getuid();
    mSelfKey = "ep-" + std::to_string(mPid) + "-" + randomHex();
    mSelfPath = mDir + "/" + mSelfKey;
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    if (mSelfPath.size() >= sizeof(address.sun_path)) {
        fprintf(stderr, "binder_ndk: registry directory path too long: %s\n", mDir.c_str());
        return false;
    }
    std::memcpy(address.sun_path, mSelfPath.c_str(), mSelfPath.size() + 1);
    mListenFd = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
    if (mListenFd < 0 ||
        bind(mListenFd, reinterpret_cast<const sockaddr*>(&address), sizeof(address)) != 0 ||
        listen(mListenFd, SOMAXCONN) != 0) {
        fprintf(stderr, "binder_ndk: cannot open endpoint %s: %s\n", mSelfPath.c_str(),
                strerror(errno));
        return false;
    }
    mEpollFd = epoll_create1(EPOLL_CLOEXEC);
    epoll_event event{};
    event.events = EPOLLIN;
    event.data.u64 = kListenId;
    if (mEpollFd < 0 || epoll_ctl(mEpollFd, EPOLL_CTL_ADD, mListenFd, &event) != 0) {
        return false;
    }
    return startDetachedThread([this] { watch(); });
}

std::shared_ptr<Peer> Endpoint::getPeer(const std::string& key) {
    std::lock_guard<std::mutex> lock(mPeersMutex);
    std::shared_ptr<Peer>& peer = mPeers[key];
    if (peer == nullptr) {
        peer = std::make_shared<Peer>(key, mDir + "/" + key);
    }
    return peer;
}

size_t Endpoint::peerCount() {
    std::lock_guard<std::mutex> lock(mPeersMutex);
    return mPeers.size() - mPeers.count(mSelfKey);
}

// ---- outgoing connections -------------------------------------------------------------

std::unique_ptr<Connection> Endpoint::connectAndGreet(const std::shared_ptr<Peer>& peer,
                                                      uint32_t type) {
    int fd = connectTo(peer->mPath);
    if (fd < 0) return nullptr;
    // Whoever listens there must be the process the key names.
    Credentials listener;
    if (!credentialsOf(fd, &listener) || listener.pid != keyPid(peer->key()) ||
        listener.uid != mUid) {
        close(fd);
        return nullptr;
    }
    auto conn = std::make_unique<Connection>(fd, listener);
    std::vector<uint8_t> hello;
    Writer writer(hello);
    writer.begin(type);
    writer.i32(mPid);
    writer.str(mSelfKey);
    if (!conn->send(writer.finish())) return nullptr;
    return conn;
}

bool Endpoint::ensureControlLocked(const std::shared_ptr<Peer>& peer) {
    if (peer->mDead) return false;
    if (peer->mControlOut >= 0) return true;
    std::unique_ptr<Connection> conn = connectAndGreet(peer, kHelloControl);
    if (conn == nullptr) return false;
    peer->mControlOut = conn->fd();
    auto watched = std::make_unique<Watched>();
    watched->conn = std::move(conn);
    watched->peer = peer;
    watched->outgoing = true;
    // Watched for its end of file, which tells that the peer is gone.
    watchFd(std::move(watched), EPOLLIN | EPOLLRDHUP);
    return true;
}

bool Endpoint::ensureControl(const std::shared_ptr<Peer>& peer) {
    bool alive = false;
    {
        std::lock_guard<std::mutex> lock(peer->mMutex);
        alive = ensureControlLocked(peer);
    }
    if (!alive) {
        checkPeer(peer);
        alive = !peer->isDead();
    }
    return alive;
}

std::unique_ptr<Connection> Endpoint::acquireConnection(const std::shared_ptr<Peer>& peer) {
    bool controlReady = false;
    {
        std::lock_guard<std::mutex> lock(peer->mMutex);
        if (peer->mDead) return nullptr;
        if (!peer->mIdle.empty()) {
            std::unique_ptr<Connection> conn = std::move(peer->mIdle.back());
            peer->mIdle.pop_back();
            return conn;
        }
        // The control connection comes first, so the peer knows this process
        // before it serves any of its calls.
        controlReady = ensureControlLocked(peer);
    }
    std::unique_ptr<Connection> conn = controlReady ? connectAndGreet(peer, kHelloData) : nullptr;
    if (conn == nullptr) checkPeer(peer);
    return conn;
}

void Endpoint::releaseConnection(const std::shared_ptr<Peer>& peer,
                                 std::unique_ptr<Connection> conn) {
    std::lock_guard<std::mutex> lock(peer->mMutex);
    if (!peer->mDead && peer->mIdle.size() < kMaxIdleConnections) {
        peer->mIdle.push_back(std::move(conn));
    }
}

bool Endpoint::sendControl(const std::shared_ptr<Peer>& peer, const std::vector<uint8_t>& frame) {
    std::lock_guard<std::mutex> lock(peer->mMutex);
    return ensureControlLocked(peer) && sendAll(peer->mControlOut, frame.data(), frame.size());
}

void Endpoint::checkPeer(const std::shared_ptr<Peer>& peer) {
    // A process that is gone no longer accepts connections on its endpoint.
    if (connectAndGreet(peer, kHelloProbe) == nullptr) onPeerDied(peer);
}

void Endpoint::onPeerDied(const std::shared_ptr<Peer>& peer) {
    std::vector<std::unique_ptr<Connection>> idle;
    {
        std::lock_guard<std::mutex> lock(peer->mMutex);
        if (peer->mDead) return;
        peer->mDead = true;
        idle.swap(peer->mIdle);
    }
    idle.clear();
    {
        // Forget the peer: a process that is gone never comes back under its key.
        std::lock_guard<std::mutex> lock(mPeersMutex);
        auto it = mPeers.find(peer->key());
        if (it != mPeers.end() && it->second == peer) mPeers.erase(it);
    }
    mEvents->onPeerDied(peer);
}

// ---- the watcher: accepts connections, reads hellos and control messages -------------------

uint64_t Endpoint::watchFd(std::unique_ptr<Watched> watched, uint32_t events) {
    int fd = watched->conn->fd();
    std::lock_guard<std::mutex> lock(mWatchedMutex);
    uint64_t id = mNextWatchedId++;
    mWatched.emplace(id, std::move(watched));
    epoll_event event{};
    event.events = events;
    event.data.u64 = id;
    epoll_ctl(mEpollFd, EPOLL_CTL_ADD, fd, &event);
    return id;
}

void Endpoint::closeWatched(uint64_t id) {
    std::unique_ptr<Watched> watched;
    {
        std::lock_guard<std::mutex> lock(mWatchedMutex);
        auto it = mWatched.find(id);
        if (it == mWatched.end()) return;
        watched = std::move(it->second);
        mWatched.erase(it);
    }
    epoll_ctl(mEpollFd, EPOLL_CTL_DEL, watched->conn->fd(), nullptr);
    if (watched->outgoing) {
        // Writers use the descriptor under the peer's lock: close it under the lock too.
        std::lock_guard<std::mutex> lock(watched->peer->mMutex);
        watched->peer->mControlOut = -1;
        watched->conn.reset();
    }
}

void Endpoint::watch() {
    epoll_event events[16];
    for (;;) {
        int count =
                epoll_wait(mEpollFd, events, 16, nextTimeoutMs(std::chrono::steady_clock::now()));
        for (int i = 0; i < count; ++i) {
            if (events[i].data.u64 == kListenId) {
                acceptAll();
            } else {
                onReadable(events[i].data.u64);
            }
        }
        expireHandshakes(std::chrono::steady_clock::now());
    }
}

void Endpoint::acceptAll() {
    for (;;) {
        int fd = accept4(mListenFd, nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK);
        if (fd < 0) {
            if (errno == EINTR || errno == ECONNABORTED) continue;
            return;
        }
        Credentials peer;
        if (!credentialsOf(fd, &peer)) {
            close(fd);
            continue;
        }
        // The hello is read as it arrives, never waited for: a slow peer stalls nobody.
        auto watched = std::make_unique<Watched>();
        watched->conn = std::make_unique<Connection>(fd, peer);
        uint64_t id = watchFd(std::move(watched), EPOLLIN | EPOLLRDHUP);
        mHandshakes.emplace_back(std::chrono::steady_clock::now() + kHandshakeDeadline, id);
    }
}

void Endpoint::onReadable(uint64_t id) {
    Watched* watched = nullptr;
    {
        std::lock_guard<std::mutex> lock(mWatchedMutex);
        auto it = mWatched.find(id);
        if (it == mWatched.end()) return;
        watched = it->second.get();  // stays valid: only this thread erases
    }
    if (!watched->conn->receiveAvailable()) {
        std::shared_ptr<Peer> peer = watched->peer;
        closeWatched(id);
        // The end of a control connection, either way, means the peer is gone.
        if (peer != nullptr) onPeerDied(peer);
        return;
    }
    if (watched->peer == nullptr) {
        onHello(id, watched);
    } else {
        readControl(id, watched);
    }
}

void Endpoint::onHello(uint64_t id, Watched* watched) {
    Connection& conn = *watched->conn;
    uint32_t announced = 0;
    Frame frame;
    int result = conn.announcedSize(&announced) && announced > kMaxHelloFrame
                         ? -1
                         : conn.takeFrame(&frame);
    if (result == 0) return;  // more to come, until the deadline
    Reader reader(frame);
    int32_t pid = 0;
    std::string key;
    bool hello = result > 0 && (frame.type == kHelloData || frame.type == kHelloControl) &&
                 reader.i32(&pid) && reader.str(&key, kMaxKeyLength) && validKey(key);
    // A process speaks for itself only: the kernel's credentials of the
    // socket must name the process the hello and its key name.
    if (!hello || pid != conn.peer().pid || keyPid(key) != pid || conn.peer().uid != mUid) {
        closeWatched(id);  // probes end here too
        return;
    }
    std::shared_ptr<Peer> peer = getPeer(key);
    if (frame.type == kHelloControl) {
        watched->peer = std::move(peer);
        readControl(id, watched);  // messages that came with the hello
        return;
    }
    std::unique_ptr<Connection> data;
    {
        std::lock_guard<std::mutex> lock(mWatchedMutex);
        auto it = mWatched.find(id);
        data = std::move(it->second->conn);
        mWatched.erase(it);
    }
    epoll_ctl(mEpollFd, EPOLL_CTL_DEL, data->fd(), nullptr);
    setBlocking(data->fd());
    mEvents->onDataConnection(std::move(data), std::move(peer));
}

void Endpoint::readControl(uint64_t id, Watched* watched) {
    Frame frame;
    int result;
    while ((result = watched->conn->takeFrame(&frame)) > 0) {
        mEvents->onControlFrame(watched->peer, frame);
    }
    if (result < 0) {
        // A peer that breaks the protocol loses this connection, not its record.
        closeWatched(id);
    }
}

void Endpoint::expireHandshakes(std::chrono::steady_clock::time_point now) {
    while (!mHandshakes.empty() && mHandshakes.front().first <= now) {
        uint64_t id = mHandshakes.front().second;
        mHandshakes.pop_front();
        bool pending = false;
        {
            std::lock_guard<std::mutex> lock(mWatchedMutex);
            auto it = mWatched.find(id);
            pending = it != mWatched.end() && it->second->peer == nullptr;
        }
        if (pending) closeWatched(id);
    }
}

int Endpoint::nextTimeoutMs(std::chrono::steady_clock::time_point now) {
    if (mHandshakes.empty()) return -1;
    auto left = std::chrono::ceil<std::chrono::milliseconds>(mHandshakes.front().first - now);
    return left.count() > 0 ? static_cast<int>(left.count()) : 0;
}

}  // namespace binder_host
