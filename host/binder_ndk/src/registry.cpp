// The service registry: the directory of instance names, and the services
// this process registered.
#include "registry.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <string>

namespace binder_host {
namespace {

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

bool LocalServices::add(const std::string& dir, const std::string& key, ABBinder* binder,
                        const std::string& instance) {
    BinderRef previous = BinderRef::share(binder);
    {
        std::lock_guard<std::mutex> lock(mMutex);
        auto it = std::find_if(mServices.begin(), mServices.end(),
                               [&](const auto& entry) { return entry.first == instance; });
        if (it != mServices.end()) {
            std::swap(it->second, previous);  // the replaced object is dropped after the lock
        } else {
            mServices.emplace_back(instance, std::move(previous));
        }
    }
    return registryWrite(dir, instance, key);
}

BinderRef LocalServices::find(const std::string& instance) {
    std::lock_guard<std::mutex> lock(mMutex);
    for (const auto& entry : mServices) {
        if (entry.first == instance) return entry.second;
    }
    return BinderRef();
}

void LocalServices::removeAll(const std::string& dir, const std::string& key, ABBinder* binder) {
    std::vector<std::pair<std::string, BinderRef>> removed;
    {
        std::lock_guard<std::mutex> lock(mMutex);
        auto split = std::stable_partition(
                mServices.begin(), mServices.end(),
                [&](const auto& entry) { return entry.second.get() != binder; });
        std::move(split, mServices.end(), std::back_inserter(removed));
        mServices.erase(split, mServices.end());
    }
    for (const auto& entry : removed) registryRemove(dir, entry.first, key);
}

}  // namespace binder_host
