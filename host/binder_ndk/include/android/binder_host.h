/*
 * Binder NDK runtime for Linux hosts: host-only controls for tests and tools.
 * Not part of the device's NDK; code that must also build for a device uses
 * these only in host-only tests and tools.
 */
#pragma once

#include <android/binder_ibinder.h>
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

__END_DECLS
