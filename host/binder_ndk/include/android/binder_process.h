/*
 * Binder NDK runtime for Linux hosts: the binder thread pool.
 *
 * Same signatures as the device's <android/binder_process.h> (API level 30).
 *
 * How a host process serves incoming work:
 * - Each process has one endpoint (a listening Unix-domain socket in the
 *   registry directory), opened when the runtime is first used. A runtime
 *   thread accepts connections and watches peer processes; it never runs
 *   user code.
 * - Every incoming connection is served by a binder thread, which reads each
 *   request and runs onTransact itself (no hand-off per call). A peer opens
 *   one connection per thread that calls concurrently, so the number of busy
 *   binder threads follows the number of concurrent callers.
 * - Death notifications run on a binder thread of their own, never on a
 *   thread that is waiting for a reply.
 * - Without a started pool: incoming transactions and death notifications
 *   are still served, on binder threads the runtime starts on demand (as if
 *   ABinderProcess_startThreadPool had been called). This differs from a
 *   device, where a process without a pool never sees callbacks; code meant
 *   for a device must still start its pool.
 * - ABinderProcess_setThreadPoolMaxThreadCount bounds the number of idle
 *   binder threads kept for reuse; busy threads are never refused, so nested
 *   and concurrent calls cannot starve.
 * Binder threads are detached and keep running while the process exits.
 */
#pragma once

#include <android/binder_status.h>
#include <stdint.h>
#include <sys/cdefs.h>

__BEGIN_DECLS

/** Starts the binder thread pool. Idempotent; thread-safe. */
void ABinderProcess_startThreadPool(void);

/**
 * Sets the number of binder threads the pool keeps (default 15). Returns
 * false if the pool was already started; the count is recorded anyway.
 */
bool ABinderProcess_setThreadPoolMaxThreadCount(uint32_t numThreads);

/** Makes the calling thread a binder thread of the pool; never returns. */
void ABinderProcess_joinThreadPool(void);

__END_DECLS
