#include "RawPeer.h"

#include <poll.h>
#include <signal.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>

#include "wire.h"

namespace bindertest {

using binder_host::kGetService;
using binder_host::kHeaderSize;
using binder_host::kReply;
using binder_host::kTransact;

Payload& Payload::str(const std::string& value) {
    u32(static_cast<uint32_t>(value.size()));
    return raw(value.data(), value.size());
}

Payload& Payload::raw(const void* data, size_t size) {
    const auto* bytes = static_cast<const uint8_t*>(data);
    mBytes.insert(mBytes.end(), bytes, bytes + size);
    return *this;
}

std::vector<uint8_t> Payload::frame(uint32_t type, uint32_t announced) const {
    uint32_t header[2] = {announced != 0 ? announced : static_cast<uint32_t>(mBytes.size()), type};
    std::vector<uint8_t> out(sizeof(header) + mBytes.size());
    std::memcpy(out.data(), header, sizeof(header));
    if (!mBytes.empty()) std::memcpy(out.data() + sizeof(header), mBytes.data(), mBytes.size());
    return out;
}

std::string keyOf(pid_t pid) {
    return "ep-" + std::to_string(pid) + "-0123456789abcdef";
}

std::vector<uint8_t> helloFrame(uint32_t type, pid_t pid, const std::string& key) {
    return Payload().i32(pid).str(key).frame(type);
}

std::string registeredKey(const std::string& dir, const std::string& instance) {
    std::string name = "svc.";
    for (char c : instance) {
        if ((c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') ||
            c == '.' || c == '_' || c == '-') {
            name += c;
        } else {
            char escaped[4];
            snprintf(escaped, sizeof(escaped), "%%%02X", static_cast<unsigned char>(c));
            name += escaped;
        }
    }
    std::ifstream entry(dir + "/" + name);
    std::string key;
    std::getline(entry, key);
    return key;
}

RawSocket::RawSocket(const std::string& path) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    if (path.size() >= sizeof(address.sun_path)) return;
    std::memcpy(address.sun_path, path.c_str(), path.size() + 1);
    mFd = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    // A receiver that neither reads nor closes must not block a test for good.
    timeval timeout{10, 0};
    if (mFd >= 0) setsockopt(mFd, SOL_SOCKET, SO_SNDTIMEO, &timeout, sizeof(timeout));
    if (mFd >= 0 && connect(mFd, reinterpret_cast<sockaddr*>(&address), sizeof(address)) != 0) {
        close(mFd);
        mFd = -1;
    }
}

RawSocket::~RawSocket() {
    if (mFd >= 0) close(mFd);
}

bool RawSocket::send(const std::vector<uint8_t>& bytes) {
    size_t done = 0;
    while (done < bytes.size()) {
        ssize_t sent = ::send(mFd, bytes.data() + done, bytes.size() - done, MSG_NOSIGNAL);
        if (sent < 0 && errno == EINTR) continue;
        if (sent <= 0) return false;
        done += static_cast<size_t>(sent);
    }
    return true;
}

bool RawSocket::readExact(void* data, size_t size, std::chrono::steady_clock::time_point deadline) {
    auto* out = static_cast<uint8_t*>(data);
    while (size > 0) {
        auto left = std::chrono::duration_cast<std::chrono::milliseconds>(
                deadline - std::chrono::steady_clock::now());
        pollfd entry{mFd, POLLIN, 0};
        if (left.count() <= 0 || poll(&entry, 1, static_cast<int>(left.count())) <= 0) {
            return false;
        }
        ssize_t got = read(mFd, out, size);
        if (got < 0 && errno == EINTR) continue;
        if (got <= 0) return false;
        out += got;
        size -= static_cast<size_t>(got);
    }
    return true;
}

bool RawSocket::readFrame(uint32_t* type, std::vector<uint8_t>* payload,
                          std::chrono::milliseconds limit) {
    auto deadline = std::chrono::steady_clock::now() + limit;
    uint32_t header[2];
    if (!readExact(header, sizeof(header), deadline) || header[0] > (1u << 24)) {
        return false;
    }
    *type = header[1];
    payload->resize(header[0]);
    return readExact(payload->data(), payload->size(), deadline);
}

bool RawSocket::waitClosed(std::chrono::milliseconds limit) {
    pollfd entry{mFd, POLLIN | POLLRDHUP, 0};
    if (poll(&entry, 1, static_cast<int>(limit.count())) <= 0) {
        return false;
    }
    char byte = 0;
    ssize_t got = recv(mFd, &byte, 1, MSG_PEEK | MSG_DONTWAIT);
    return got == 0 || (got < 0 && errno == ECONNRESET);
}

uint64_t RawSocket::serviceNode(const std::string& instance) {
    uint32_t type = 0;
    std::vector<uint8_t> reply;
    if (!send(Payload().str(instance).frame(kGetService)) || !readFrame(&type, &reply) ||
        type != kReply) {
        return 0;
    }
    // status, flags, data size, data, object count, then the object: key, node id...
    int32_t status = -1;
    uint32_t dataSize = 0;
    uint32_t keySize = 0;
    uint64_t node = 0;
    size_t offset = 8;
    if (reply.size() < offset + 4) return 0;
    std::memcpy(&status, reply.data(), 4);
    std::memcpy(&dataSize, reply.data() + offset, 4);
    offset += 4 + dataSize + 4;
    if (status != 0 || reply.size() < offset + 4) return 0;
    std::memcpy(&keySize, reply.data() + offset, 4);
    offset += 4 + keySize;
    if (reply.size() < offset + 8) return 0;
    std::memcpy(&node, reply.data() + offset, 8);
    return node;
}

std::vector<uint8_t> RawSocket::transactFrame(uint64_t node, uint32_t code,
                                              const std::string& descriptor,
                                              const std::vector<int32_t>& words) {
    // The parcel data: the interface token as a string (length, bytes, NUL, padding).
    Payload data;
    data.i32(static_cast<int32_t>(descriptor.size())).raw(descriptor.c_str(), descriptor.size() + 1);
    size_t padding = (4 - (descriptor.size() + 1) % 4) % 4;
    const uint8_t zeros[4] = {};
    data.raw(zeros, padding);
    for (int32_t word : words) data.i32(word);
    std::vector<uint8_t> bytes = data.frame(0);
    bytes.erase(bytes.begin(), bytes.begin() + kHeaderSize);
    return Payload()
            .u64(node)
            .u32(code)
            .u32(static_cast<uint32_t>(bytes.size()))
            .raw(bytes.data(), bytes.size())
            .u32(0)
            .frame(kTransact);
}

pid_t forkPeer(const std::function<int()>& body) {
    pid_t pid = fork();
    if (pid == 0) {
        _exit(body());
    }
    return pid;
}

int waitPeer(pid_t pid, std::chrono::milliseconds limit) {
    auto deadline = std::chrono::steady_clock::now() + limit;
    for (;;) {
        int status = 0;
        pid_t done = waitpid(pid, &status, WNOHANG);
        if (done == pid) return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
        if (done < 0) return -1;
        if (std::chrono::steady_clock::now() >= deadline) {
            kill(pid, SIGKILL);
            waitpid(pid, nullptr, 0);
            return -1;
        }
        // A child has no descriptor to wait on; poll its state every few milliseconds.
        poll(nullptr, 0, 5);
    }
}

long peakMemoryKiB(pid_t pid) {
    std::ifstream status("/proc/" + std::to_string(pid) + "/status");
    std::string line;
    while (std::getline(status, line)) {
        if (line.compare(0, 6, "VmHWM:") == 0) return std::strtol(line.c_str() + 6, nullptr, 10);
    }
    return -1;
}

}  // namespace bindertest
