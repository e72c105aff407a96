/*
 * Binder NDK runtime for Linux hosts: host-only controls for tests and tools.
 * Not part of the device's NDK; code that must also build for a device uses
 * these only in host-only tests and tools.
 */
#pragma once

#include <android/binder_ibinder.h>
#include <stddef.h>
#include <sys/cdefs.h>

__BEGIN_DECLS

/**
 * Makes local object \p binder look dead to all its proxies, in this and in
 * every other process, as if its process had died: their transactions fail
 * with STATUS_DEAD_OBJECT, AIBinder_isAlive turns false and each linked death
 * recipient fires once on a binder thread. Every service registration of the
 * object is dropped, so a fresh object can be registered under the same name
 * (a restart). The local object itself stays usable by its holders in this
 * process, and references remote processes held on it are released.
 * Returns STATUS_OK; STATUS_UNEXPECTED_NULL for null; STATUS_INVALID_OPERATION
 * for a proxy. Thread-safe.
 */
binder_status_t ABinderHost_killLocalBinder(AIBinder* binder);

/**
 * Host only; a device has no such switch. As on a device, a lookup
 * (AServiceManager_checkService, AServiceManager_getService) of a service
 * registered by this same process returns the local object itself:
 * AIBinder_isRemote is false and AIBinder_linkToDeath fails with
 * STATUS_INVALID_OPERATION. When \p enabled, such lookups hand out a proxy
 * instead, so that a test can host a service in its own process and still have
 * every call marshalled and served on one of its binder threads as if the
 * service lived in another process (the process must start its thread pool).
 * Affects later lookups only. Disabled by default. Thread-safe.
 */
void ABinderHost_setInProcessProxies(bool enabled);

/**
 * Host only: the number of other processes the runtime keeps a record of
 * (processes this one talked to that are not known to be dead). Diagnostic.
 */
size_t ABinderHost_getPeerCount(void);

__END_DECLS
