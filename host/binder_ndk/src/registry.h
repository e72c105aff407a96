// Private: the service registry. A directory maps service instance names to
// the endpoints of the processes that own them (no daemon): `svc.<instance>`
// holds the owner's endpoint key. Each process keeps the objects it
// registered itself.
#pragma once

#include <mutex>
#include <string>
#include <vector>

#include "ibinder_internal.h"

namespace binder_host {

/** BINDER_HOST_DIR, or /tmp/binder-host-<uid>; created with mode 0700. Empty on failure. */
std::string registryDir();

/** Atomically points \p instance at endpoint \p key (replacing an earlier entry). */
bool registryWrite(const std::string& dir, const std::string& instance, const std::string& key);

/** The endpoint key registered for \p instance, or empty. */
std::string registryRead(const std::string& dir, const std::string& instance);

/** Removes the entry of \p instance if it still names endpoint \p key. */
void registryRemove(const std::string& dir, const std::string& instance, const std::string& key);

/** The services this process registered, and their entries in the directory. */
class LocalServices {
  public:
    /** Registers \p binder under \p instance for endpoint \p key (replacing an earlier object). */
    bool add(const std::string& dir, const std::string& key, ABBinder* binder,
             const std::string& instance);
    /** This process's object registered under \p instance, or empty. */
    BinderRef find(const std::string& instance);
    /** Drops every registration of \p binder, here and in the directory. */
    void removeAll(const std::string& dir, const std::string& key, ABBinder* binder);

  private:
    std::mutex mMutex;
    std::vector<std::pair<std::string, BinderRef>> mServices;
};

}  // namespace binder_host
