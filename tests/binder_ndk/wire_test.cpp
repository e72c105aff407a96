// A peer that sends malformed or unexpected frames: each bad request fails
// alone, with an error status, and the process goes on serving.
#include "wire.h"

#include <android/binder_host.h>
#include <android/binder_manager.h>
#include <android/binder_process.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cstring>
#include <fstream>
#include <optional>
#include <string>
#include <vector>

#include "TestBinders.h"
#include "TestProcess.h"

namespace bindertest {
namespace {

using namespace binder_host;

constexpr const char* kInstance = "binder.test.IEcho/wire";

// Frames by hand, as a misbehaving peer would send them.
class Frame {
  public:
    explicit Frame(uint32_t type) { u32(0).u32(type); }
    Frame& u32(uint32_t value) { return raw(&value, sizeof(value)); }
    Frame& u64(uint64_t value) { return raw(&value, sizeof(value)); }
    Frame& str(const std::string& value) {
        u32(static_cast<uint32_t>(value.size()));
        return raw(value.data(), value.size());
    }
    Frame& raw(const void* data, size_t size) {
        const auto* bytes = static_cast<const uint8_t*>(data);
        mBytes.insert(mBytes.end(), bytes, bytes + size);
        return *this;
    }
    /** With the payload size filled in (or \p size when given). */
    std::vector<uint8_t> bytes(std::optional<uint32_t> size = std::nullopt) const {
        std::vector<uint8_t> out = mBytes;
        uint32_t payload = size.value_or(static_cast<uint32_t>(out.size() - kHeaderSize));
        std::memcpy(out.data(), &payload, sizeof(payload));
        return out;
    }

  private:
    std::vector<uint8_t> mBytes;
};

// A parcel's data for a request: the interface token, then int32 words.
std::vector<uint8_t> requestData(const std::string& token, const std::vector<int32_t>& words) {
    std::vector<uint8_t> data;
    auto put = [&](const void* p, size_t n) {
        const auto* b = static_cast<const uint8_t*>(p);
        data.insert(data.end(), b, b + n);
    };
    int32_t length = static_cast<int32_t>(token.size());
    put(&length, 4);
    put(token.c_str(), token.size() + 1);
    data.resize((data.size() + 3) & ~size_t{3});
    for (int32_t word : words) put(&word, 4);
    return data;
}

class WireTest : public ::testing::Test {
  protected:
    void SetUp() override {
        // Served on this process's pool, reached through a proxy as from elsewhere.
        ABinderHost_setInProcessProxies(true);
        ABinderProcess_startThreadPool();
        mService = newEcho(&mObserved);
        ASSERT_EQ(AServiceManager_addService(mService.get(), kInstance), STATUS_OK);
        std::ifstream entry(mDir.path() + "/svc.binder.test.IEcho%2Fwire");
        std::string key;
        ASSERT_TRUE(std::getline(entry, key));
        mEndpoint = mDir.path() + "/" + key;
        mFd = connectRaw();
        ASSERT_GE(mFd, 0);
        std::string rawKey = "ep-" + std::to_string(getpid()) + "-raw";
        send(Frame(kHelloData).u32(static_cast<uint32_t>(getpid())).str(rawKey).bytes());
    }
    void TearDown() override {
        if (mFd >= 0) close(mFd);
    }

    int connectRaw() {
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        std::strncpy(address.sun_path, mEndpoint.c_str(), sizeof(address.sun_path) - 1);
        int fd = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
        if (connect(fd, reinterpret_cast<sockaddr*>(&address), sizeof(address)) != 0) {
            close(fd);
            return -1;
        }
        timeval timeout{10, 0};
        setsockopt(fd, SOL_SOCKET, SO_RCVTIMEO, &timeout, sizeof(timeout));
        return fd;
    }

    void send(const std::vector<uint8_t>& bytes) {
        ASSERT_EQ(write(mFd, bytes.data(), bytes.size()), static_cast<ssize_t>(bytes.size()));
    }

    bool readExact(void* data, size_t size) {
        auto* out = static_cast<uint8_t*>(data);
        while (size > 0) {
            ssize_t got = read(mFd, out, size);
            if (got <= 0) return false;
            out += got;
            size -= static_cast<size_t>(got);
        }
        return true;
    }

    // The next reply's status and flags; its payload stays in mPayload.
    bool reply(int32_t* status, uint32_t* flags) {
        uint32_t header[2];
        if (!readExact(header, sizeof(header)) || header[1] != kReply || header[0] < 8) {
            return false;
        }
        mPayload.resize(header[0]);
        if (!readExact(mPayload.data(), mPayload.size())) return false;
        std::memcpy(status, mPayload.data(), 4);
        std::memcpy(flags, mPayload.data() + 4, 4);
        return true;
    }

    int32_t statusOf(const std::vector<uint8_t>& request) {
        send(request);
        int32_t status = 1;
        uint32_t flags = 0;
        EXPECT_TRUE(reply(&status, &flags));
        return status;
    }

    // The service's node id, from a lookup on the raw connection.
    uint64_t serviceNode() {
        send(Frame(kGetService).str(kInstance).bytes());
        int32_t status = 1;
        uint32_t flags = 0;
        if (!reply(&status, &flags) || status != STATUS_OK) return 0;
        // status, flags, data size, data (8 bytes: object, index 0), object count, key...
        size_t offset = 8;
        uint32_t dataSize = 0;
        std::memcpy(&dataSize, mPayload.data() + offset, 4);
        offset += 4 + dataSize + 4;
        uint32_t keySize = 0;
        std::memcpy(&keySize, mPayload.data() + offset, 4);
        offset += 4 + keySize;
        uint64_t node = 0;
        std::memcpy(&node, mPayload.data() + offset, 8);
        return node;
    }

    // The service still answers real calls.
    void expectServing() {
        ndk::SpAIBinder proxy(AServiceManager_checkService(kInstance));
        ASSERT_NE(proxy.get(), nullptr);
        std::optional<std::string> text;
        int32_t value = 0;
        ASSERT_EQ(callEcho(proxy.get(), std::string("still"), 4, &text, &value), STATUS_OK);
        EXPECT_EQ(text, "still");
    }

    ScopedRegistryDir mDir;
    Observed mObserved;
    ndk::SpAIBinder mService;
    std::string mEndpoint;
    int mFd = -1;
    std::vector<uint8_t> mPayload;
};

TEST_F(WireTest, BadRequestsFailAloneWithAnErrorStatus) {
    uint64_t node = serviceNode();
    ASSERT_NE(node, 0u);
    std::vector<uint8_t> echoArgs = requestData(kEchoDescriptor, {-1, 5});  // null string, 5
    std::vector<uint8_t> wrongToken = requestData("binder.test.IOther", {-1, 5});
    std::string sameLength(kEchoDescriptor);
    sameLength.back() ^= 1;
    std::vector<uint8_t> sameLengthToken = requestData(sameLength, {-1, 5});
    std::vector<uint8_t> missingArgs = requestData(kEchoDescriptor, {});

    struct Case {
        const char* name;
        std::vector<uint8_t> frame;
        int32_t expected;
    } cases[] = {
            {"truncated header fields", Frame(kTransact).u32(7).bytes(), STATUS_BAD_VALUE},
            {"data size past the payload",
             Frame(kTransact).u64(node).u32(kEcho).u32(1000).u32(0).bytes(), STATUS_BAD_VALUE},
            {"absurd object count",
             Frame(kTransact).u64(node).u32(kEcho).u32(0).u32(0xfffffff0).bytes(), STATUS_BAD_VALUE},
            {"object with a bad endpoint key",
             Frame(kTransact).u64(node).u32(kEcho).u32(0).u32(1).str("../../etc").u64(1).str("d").bytes(),
             STATUS_BAD_VALUE},
            {"unknown object", Frame(kTransact).u64(node + 1000).u32(kEcho).u32(0).u32(0).bytes(),
             STATUS_DEAD_OBJECT},
            {"wrong interface token",
             Frame(kTransact)
                     .u64(node)
                     .u32(kEcho)
                     .u32(static_cast<uint32_t>(wrongToken.size()))
                     .raw(wrongToken.data(), wrongToken.size())
                     .u32(0)
                     .bytes(),
             STATUS_BAD_TYPE},
            {"wrong interface token of the same length",
             Frame(kTransact)
                     .u64(node)
                     .u32(kEcho)
                     .u32(static_cast<uint32_t>(sameLengthToken.size()))
                     .raw(sameLengthToken.data(), sameLengthToken.size())
                     .u32(0)
                     .bytes(),
             STATUS_BAD_TYPE},
            {"arguments missing",
             Frame(kTransact)
                     .u64(node)
                     .u32(kEcho)
                     .u32(static_cast<uint32_t>(missingArgs.size()))
                     .raw(missingArgs.data(), missingArgs.size())
                     .u32(0)
                     .bytes(),
             STATUS_NOT_ENOUGH_DATA},
            {"unknown request type", Frame(99).u64(node).bytes(), STATUS_UNKNOWN_TRANSACTION},
            {"lookup without a name", Frame(kGetService).u32(50).bytes(), STATUS_BAD_VALUE},
            {"well-formed call",
             Frame(kTransact)
                     .u64(node)
                     .u32(kEcho)
                     .u32(static_cast<uint32_t>(echoArgs.size()))
                     .raw(echoArgs.data(), echoArgs.size())
                     .u32(0)
                     .bytes(),
             STATUS_OK},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        EXPECT_EQ(statusOf(c.frame), c.expected);
    }
    expectServing();
}

TEST_F(WireTest, OversizedFrameClosesOnlyThatConnection) {
    send(Frame(kTransact).bytes(kMaxFrame + 1));
    char byte = 0;
    EXPECT_EQ(read(mFd, &byte, 1), 0);  // closed by the server
    expectServing();
}

TEST_F(WireTest, PeerVanishingMidFrameDoesNotDisturbTheServer) {
    std::vector<uint8_t> partial = Frame(kTransact).u64(1).u32(kEcho).bytes(400);
    send(partial);
    close(mFd);
    mFd = -1;
    expectServing();
}

}  // namespace
}  // namespace bindertest
