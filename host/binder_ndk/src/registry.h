// Private: the registry directory mapping service instance names to endpoints.
#pragma once

#include <string>

namespace binder_host {

/** BINDER_HOST_DIR, or /tmp/binder-host-<uid>; created with mode 0700. Empty on failure. */
std::string registryDir();

/** Atomically points \p instance at endpoint \p key (replacing an earlier entry). */
bool registryWrite(const std::string& dir, const std::string& instance, const std::string& key);

/** The endpoint key registered for \p instance, or empty. */
std::string registryRead(const std::string& dir, const std::string& instance);

/** Removes the entry of \p instance if it still names endpoint \p key. */
void registryRemove(const std::string& dir, const std::string& instance, const std::string& key);

}  // namespace binder_host
