// The service manager of a host: a registry directory mapping instance
// names to the endpoints of the processes that own them (no daemon).
#include <android/binder_host.h>
#include <android/binder_manager.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <thread>

#include "ibinder_internal.h"
#include "registry.h"
#include "transport.h"

namespace binder_host {
namespace {

constexpr auto kGetServiceTimeout = std::chrono::seconds(5);
constexpr auto kGetServicePollInterval = std::chrono::milliseconds(50);

// Instance names may contain '/': escape them into one file name.
std::string entryPath(const std::string& dir, const std::string& instance) {
    std::string name = "svc.";
    for (char c : instance) {
        bool plain = (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') ||
                     c == '.' || c == '-' || c == '_';
        if (plain) {
            name += c;
        } else {
            char escaped[4];
            snprintf(escaped, sizeof(escaped), "%%%02X", static_cast<unsigned char>(c));
            name += escaped;
        }
    }
    return dir + "/" + name;
}

}  // namespace

std::string registryDir() {
    const char* configured = getenv("BINDER_HOST_DIR");
    std::string dir = configured != nullptr && configured[0] != '\0'
                              ? configured
                              : "/tmp/binder-host-" + std::to_string(getuid());
    if (mkdir(dir.c_str(), 0700) != 0 && errno != EEXIST) {
        fprintf(stderr, "binder_ndk: cannot create registry directory %s\n", dir.c_str());
        return std::string();
    }
    struct stat info {};
    if (lstat(dir.c_str(), &info) != 0 || !S_ISDIR(info.st_mode) || info.st_uid != getuid()) {
        fprintf(stderr, "binder_ndk: %s is not a directory of this user\n", dir.c_str());
        return std::string();
    }
    return dir;
}

bool registryWrite(const std::string& dir, const std::string& instance, const std::string& key) {
    static std::atomic<uint64_t> counter{0};
    std::string path = entryPath(dir, instance);
    // Written aside, then renamed over the entry: readers see the old or the new one.
    std::string temporary = dir + "/.tmp." + key + "." + std::to_string(counter++);
    int fd = open(temporary.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0600);
    if (fd < 0) {
        return false;
    }
    bool written = write(fd, key.data(), key.size()) == static_cast<ssize_t>(key.size());
    written = close(fd) == 0 && written;
    if (!written || rename(temporary.c_str(), path.c_str()) != 0) {
        unlink(temporary.c_str());
        return false;
    }
    return true;
}

std::string registryRead(const std::string& dir, const std::string& instance) {
    int fd = open(entryPath(dir, instance).c_str(), O_RDONLY | O_CLOEXEC);
    if (fd < 0) {
        return std::string();
    }
    char buffer[128];
    ssize_t size = read(fd, buffer, sizeof(buffer));
    close(fd);
    return size > 0 ? std::string(buffer, static_cast<size_t>(size)) : std::string();
}

void registryRemove(const std::string& dir, const std::string& instance, const std::string& key) {
    // Another process may have registered the name since; leave its entry alone.
    if (registryRead(dir, instance) == key) {
        unlink(entryPath(dir, instance).c_str());
    }
}

}  // namespace binder_host

using binder_host::Runtime;

binder_status_t AServiceManager_addService(AIBinder* binder, const char* instance) {
    if (binder == nullptr || instance == nullptr) {
        return STATUS_UNEXPECTED_NULL;
    }
    binder_host::ABBinder* local = binder->asLocal();
    if (local == nullptr) {
        return STATUS_INVALID_OPERATION;
    }
    Runtime* runtime = Runtime::get();
    return runtime != nullptr ? runtime->addService(local, instance) : STATUS_NO_INIT;
}

AIBinder* AServiceManager_checkService(const char* instance) {
    if (instance == nullptr) {
        return nullptr;
    }
    Runtime* runtime = Runtime::get();
    return runtime != nullptr ? runtime->checkService(instance).release() : nullptr;
}

AIBinder* AServiceManager_getService(const char* instance) {
    auto deadline = std::chrono::steady_clock::now() + binder_host::kGetServiceTimeout;
    for (;;) {
        AIBinder* binder = AServiceManager_checkService(instance);
        if (binder != nullptr || instance == nullptr ||
            std::chrono::steady_clock::now() >= deadline) {
            return binder;
        }
        std::this_thread::sleep_for(binder_host::kGetServicePollInterval);
    }
}

binder_status_t ABinderHost_killLocalBinder(AIBinder* binder) {
    if (binder == nullptr) {
        return STATUS_UNEXPECTED_NULL;
    }
    binder_host::ABBinder* local = binder->asLocal();
    if (local == nullptr) {
        return STATUS_INVALID_OPERATION;
    }
    Runtime* runtime = Runtime::getIfCreated();
    return runtime != nullptr ? runtime->killLocal(local) : STATUS_OK;
}

void ABinderHost_setInProcessProxies(bool enabled) {
    if (Runtime* runtime = Runtime::get()) {
        runtime->setInProcessProxies(enabled);
    }
}

size_t ABinderHost_getPeerCount() {
    Runtime* runtime = Runtime::getIfCreated();
    return runtime != nullptr ? runtime->peerCount() : 0;
}
