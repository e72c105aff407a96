/*
 * Binder NDK runtime for Linux hosts: the service manager.
 *
 * Same signatures as the device's <android/binder_manager.h> (API level 30).
 * On a host there is no service manager daemon: a registry directory
 * (environment variable BINDER_HOST_DIR, else /tmp/binder-host-<uid>, created
 * with mode 0700) maps instance names to the endpoint of the owning process.
 * The variable is read once, when the process first uses the runtime.
 * All functions are thread-safe.
 */
#pragma once

#include <android/binder_ibinder.h>
#include <android/binder_status.h>
#include <sys/cdefs.h>

__BEGIN_DECLS

/**
 * Registers local object \p binder under \p instance, replacing any earlier
 * registration of that name (atomically). Takes no reference from the caller:
 * the registration keeps its own. Null arguments: STATUS_UNEXPECTED_NULL; a
 * proxy: STATUS_INVALID_OPERATION.
 */
binder_status_t AServiceManager_addService(AIBinder* binder, const char* instance);

/**
 * Looks \p instance up without waiting. Returns one strong reference to a
 * proxy (always remote, also when the service lives in this process), or null
 * when the name is not registered or its owner is gone.
 */
AIBinder* AServiceManager_checkService(const char* instance);

/** As AServiceManager_checkService, but polls for up to about 5 seconds. */
AIBinder* AServiceManager_getService(const char* instance);

__END_DECLS
