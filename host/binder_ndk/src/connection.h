// Private: the process's endpoint and its connections to other endpoints.
//
// Each process listens on one Unix-domain stream socket, `<dir>/<key>`, key
// "ep-<pid>-<random>". Connections:
// - data: opened by a calling thread to a peer's endpoint and pooled per
//   peer; carries requests one way and replies back. While a request waits
//   for its reply, the other side may send nested requests back on the same
//   connection, which the waiting thread serves (as the binder driver runs
//   a nested call on the thread that waits). The receiving endpoint serves
//   data connections on its binder thread pool.
// - control: one per ordered pair of endpoints, opened before the first data
//   connection or proxy; carries reference releases (holder -> owner) and
//   object deaths (owner -> holder). Its end of file means the peer process
//   is gone.
// Every connection starts with a hello naming the connecting process (pid,
// key). The receiver reads hellos without blocking, with a deadline, and
// accepts one only when the pid and key agree with the kernel's credentials
// of the socket, so no process can speak for another.
#pragma once

#include <sys/types.h>

#include <atomic>
#include <chrono>
#include <deque>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <unordered_map>
#include <vector>

#include "frames.h"

namespace binder_host {

/** The process at the other end of a socket, as the kernel tells (SO_PEERCRED). */
struct Credentials {
    pid_t pid = 0;
    uid_t uid = 0;
};

/** A stream socket with a receive buffer that frames are cut from. */
class Connection {
  public:
    Connection(int fd, Credentials peer) : mFd(fd), mPeer(peer) {}
    ~Connection();
    Connection(const Connection&) = delete;
    Connection& operator=(const Connection&) = delete;

    int fd() const { return mFd; }
    const Credentials& peer() const { return mPeer; }
    /** Blocks until a whole frame has arrived; false on end of file, error or protocol error. */
    bool readFrame(Frame* frame);
    /** Receives what is there without blocking; false on end of file or error. */
    bool receiveAvailable() { return receiveNow(nullptr); }
    /**
     * Receives what is there without blocking; false on end of file or
     * error. \p drained tells that nothing more was waiting in the socket.
     */
    bool receiveNow(bool* drained);
    /** Cuts a frame received earlier: -1 protocol error, 0 none complete, 1 a frame. */
    int takeFrame(Frame* frame) { return mIn.take(frame); }
    /** The payload size the frame being received announces, once its header is here. */
    bool announcedSize(uint32_t* size) const { return mIn.peekSize(size); }
    /** Received bytes not yet taken as frames. */
    size_t buffered() const { return mIn.available(); }
    bool send(const std::vector<uint8_t>& frame) const;

  private:
    /** Receives once; the byte count (0 at end of file), or -1 with errno set. */
    ssize_t receive(int flags);

    int mFd;
    Credentials mPeer;
    FrameBuffer mIn;
};

/** Another endpoint, or this process's own (which it reaches like any other). */
class Peer {
  public:
    Peer(std::string key, std::string path);
    ~Peer();
    Peer(const Peer&) = delete;
    Peer& operator=(const Peer&) = delete;
    const std::string& key() const { return mKey; }
    bool isDead();

  private:
    friend class Endpoint;
    const std::string mKey;
    const std::string mPath;
    std::mutex mMutex;
    std::vector<std::unique_ptr<Connection>> mIdle;  // guarded by mMutex
    int mControlOut = -1;                            // guarded by mMutex
    bool mDead = false;                              // guarded by mMutex
};

/** What the endpoint reports; called on the watcher thread (data connections too). */
class EndpointEvents {
  public:
    virtual ~EndpointEvents() = default;
    /** A peer opened a data connection to this endpoint. */
    virtual void onDataConnection(std::unique_ptr<Connection> conn, std::shared_ptr<Peer> peer) = 0;
    /** A control message from \p peer. */
    virtual void onControlFrame(const std::shared_ptr<Peer>& peer, const Frame& frame) = 0;
    /** \p peer is gone; its record is already forgotten. */
    virtual void onPeerDied(const std::shared_ptr<Peer>& peer) = 0;
};

class Endpoint {
  public:
    explicit Endpoint(EndpointEvents* events);
    ~Endpoint();
    Endpoint(const Endpoint&) = delete;
    Endpoint& operator=(const Endpoint&) = delete;

    /** Opens the listening socket in \p dir and starts the watcher thread. */
    bool open(const std::string& dir);
    const std::string& selfKey() const { return mSelfKey; }
    const std::string& selfPath() const { return mSelfPath; }

    /** The record of the endpoint \p key (created on first use). */
    std::shared_ptr<Peer> getPeer(const std::string& key);
    /** Peers other than this process with a record. */
    size_t peerCount();

    /** An idle data connection to \p peer, or a new one; null when the peer is gone. */
    std::unique_ptr<Connection> acquireConnection(const std::shared_ptr<Peer>& peer);
    void releaseConnection(const std::shared_ptr<Peer>& peer, std::unique_ptr<Connection> conn);
    /** Makes sure the control connection to \p peer exists; false when the peer is gone. */
    bool ensureControl(const std::shared_ptr<Peer>& peer);
    bool sendControl(const std::shared_ptr<Peer>& peer, const std::vector<uint8_t>& frame);
    /** A call to \p peer failed on its connection: finds out whether the peer is gone. */
    void checkPeer(const std::shared_ptr<Peer>& peer);

  private:
    struct Watched;

    bool ensureControlLocked(const std::shared_ptr<Peer>& peer);
    /** Connects to \p peer, checks who listens there and sends a hello of \p type. */
    std::unique_ptr<Connection> connectAndGreet(const std::shared_ptr<Peer>& peer, uint32_t type);
    void onPeerDied(const std::shared_ptr<Peer>& peer);

    void watch();
    void acceptAll();
    void onReadable(uint64_t id);
    void onHello(uint64_t id, Watched* watched);
    void readControl(uint64_t id, Watched* watched);
    void closeWatched(uint64_t id);
    uint64_t watchFd(std::unique_ptr<Watched> watched, uint32_t events);
    void expireHandshakes(std::chrono::steady_clock::time_point now);
    int nextTimeoutMs(std::chrono::steady_clock::time_point now);

    EndpointEvents* const mEvents;
    std::string mDir;
    std::string mSelfKey;
    std::string mSelfPath;
    pid_t mPid = 0;
    uid_t mUid = 0;
    int mListenFd = -1;
    int mEpollFd = -1;

    std::mutex mPeersMutex;
    std::map<std::string, std::shared_ptr<Peer>> mPeers;

    // Connections the watcher reads: hellos still to come, and control connections.
    std::mutex mWatchedMutex;
    uint64_t mNextWatchedId = 1;
    std::unordered_map<uint64_t, std::unique_ptr<Watched>> mWatched;
    // Hellos still due, oldest first, with their deadlines (watcher thread only).
    std::deque<std::pair<std::chrono::steady_clock::time_point, uint64_t>> mHandshakes;
};

/** Sends all of \p size bytes; false on error. */
bool sendAll(int fd, const uint8_t* data, size_t size);

}  // namespace binder_host
