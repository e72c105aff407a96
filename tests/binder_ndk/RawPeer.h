// A peer that speaks the runtime's wire protocol by hand, byte by byte if it
// must: for tests of how a process copes with peers that misbehave (slow,
// lying about who they are, oversized). Also forked peer processes.
#pragma once

#include <sys/types.h>

#include <chrono>
#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "wire.h"

namespace bindertest {

/** A frame payload built by hand, in host byte order as the wire carries it. */
class Payload {
  public:
    Payload& u32(uint32_t value) { return raw(&value, sizeof(value)); }
    Payload& i32(int32_t value) { return raw(&value, sizeof(value)); }
    Payload& u64(uint64_t value) { return raw(&value, sizeof(value)); }
    Payload& str(const std::string& value);
    Payload& raw(const void* data, size_t size);
    /** A whole frame of \p type with this payload; the header announces \p announced if nonzero. */
    std::vector<uint8_t> frame(uint32_t type, uint32_t announced = 0) const;

  private:
    std::vector<uint8_t> mBytes;
};

/** A well-formed endpoint key of process \p pid (no endpoint need exist under it). */
std::string keyOf(pid_t pid);
/** A hello frame (kHelloData or kHelloControl) claiming \p pid and \p key. */
std::vector<uint8_t> helloFrame(uint32_t type, pid_t pid, const std::string& key);
/** The endpoint key registered for \p instance in registry \p dir ("" if none). */
std::string registeredKey(const std::string& dir, const std::string& instance);
/** The socket path of endpoint \p key in registry \p dir. */
inline std::string endpointPath(const std::string& dir, const std::string& key) {
    return dir + "/" + key;
}

/** A connected Unix stream socket, closed with the object. */
class RawSocket {
  public:
    /** Connects to the endpoint socket at \p path (allocates nothing: fine in a forked child). */
    explicit RawSocket(const std::string& path);
    ~RawSocket();
    RawSocket(const RawSocket&) = delete;
    RawSocket& operator=(const RawSocket&) = delete;

    bool connected() const { return mFd >= 0; }
    int fd() const { return mFd; }
    /** Sends all of \p bytes; false once the other end closed. */
    bool send(const std::vector<uint8_t>& bytes);
    /** The next frame: type and payload; false on end of file, error or after \p limit. */
    bool readFrame(uint32_t* type, std::vector<uint8_t>* payload,
                   std::chrono::milliseconds limit = std::chrono::seconds(10));
    /**
     * Waits up to \p limit for the other end to close the connection, without reading
     * anything that might arrive first: true on end of file or reset, false when data
     * arrives instead or the limit passes.
     */
    bool waitClosed(std::chrono::milliseconds limit);
    /** The node id of \p instance as the peer's kGetService answers it; 0 on failure. */
    uint64_t serviceNode(const std::string& instance);
    /** A transaction with the interface token of \p descriptor and \p words as arguments. */
    std::vector<uint8_t> transactFrame(uint64_t node, uint32_t code, const std::string& descriptor,
                                       const std::vector<int32_t>& words = {});

  private:
    bool readExact(void* data, size_t size, std::chrono::steady_clock::time_point deadline);
    int mFd = -1;
};

/**
 * Runs \p body in a forked child, which exits with its result. The child must
 * do only system calls (sockets, reads, writes): it is a copy of a process
 * with threads. Returns the child's pid, or -1.
 */
pid_t forkPeer(const std::function<int()>& body);
/** Waits up to \p limit for forked child \p pid; its exit code, or -1 (killed after the limit). */
int waitPeer(pid_t pid, std::chrono::milliseconds limit = std::chrono::seconds(20));

/** VmHWM of process \p pid in KiB (peak resident memory), or -1. */
long peakMemoryKiB(pid_t pid);

}  // namespace bindertest
