/*
 * Binder NDK runtime for Linux hosts: binder objects (AIBinder), classes,
 * transactions, weak references and death recipients.
 *
 * Same signatures and semantics as the device's <android/binder_ibinder.h>
 * (API level 30).
 *
 * Reference counting: every function documented as returning "one strong
 * reference" hands the caller a reference it must release with
 * AIBinder_decStrong (or give to ndk::SpAIBinder). All AIBinder functions
 * are thread-safe.
 *
 * A local binder (created by AIBinder_new) lives in this process; a proxy
 * (AIBinder_isRemote true) stands for an object of another endpoint, and
 * every transaction on it is marshalled and served on a binder thread of the
 * owner.
 */
#pragma once

#include <android/binder_parcel.h>
#include <android/binder_status.h>
#include <stdint.h>
#include <sys/cdefs.h>
#include <sys/types.h>

__BEGIN_DECLS

/** A transaction code: FIRST_CALL_TRANSACTION..LAST_CALL_TRANSACTION for user calls. */
typedef uint32_t transaction_code_t;

/** Transaction flags: 0 or FLAG_ONEWAY. */
typedef uint32_t binder_flags_t;

enum {
    /** Asynchronous call: AIBinder_transact returns once the request is sent. */
    FLAG_ONEWAY = 0x01,
};

enum {
    FIRST_CALL_TRANSACTION = 0x00000001,
    LAST_CALL_TRANSACTION = 0x00ffffff,
};

/** An interface class: a descriptor plus the callbacks of its local objects. */
struct AIBinder_Class;
typedef struct AIBinder_Class AIBinder_Class;

/** A binder object, local or proxy. */
struct AIBinder;
typedef struct AIBinder AIBinder;

/** A weak reference to a binder object. */
struct AIBinder_Weak;
typedef struct AIBinder_Weak AIBinder_Weak;

/** A death recipient: a callback run when a proxied object's process dies. */
struct AIBinder_DeathRecipient;
typedef struct AIBinder_DeathRecipient AIBinder_DeathRecipient;

/** Called by AIBinder_new with its \p args; returns the object's user data. */
typedef void* (*AIBinder_Class_onCreate)(void* args);

/** Called with the user data when the last strong reference to a local object goes. */
typedef void (*AIBinder_Class_onDestroy)(void* userData);

/**
 * Serves a transaction on a local object. \p in is positioned after the
 * interface token (already checked). Runs on a binder thread for calls
 * arriving through proxies, or on the caller's thread for a direct
 * AIBinder_transact on the local object.
 */
typedef binder_status_t (*AIBinder_Class_onTransact)(AIBinder* binder, transaction_code_t code,
                                                     const AParcel* in, AParcel* out);

/**
 * Defines a class. Returns null if any argument is null. The returned class
 * lives for the rest of the process. Safe to call from static initialisers
 * (before main). Two calls make two distinct classes, even with the same
 * descriptor.
 */
AIBinder_Class* AIBinder_Class_define(const char* interfaceDescriptor,
                                      AIBinder_Class_onCreate onCreate,
                                      AIBinder_Class_onDestroy onDestroy,
                                      AIBinder_Class_onTransact onTransact) __INTRODUCED_IN(29);

/** Dump callback: writes a description of \p binder to \p fd. */
typedef binder_status_t (*AIBinder_onDump)(AIBinder* binder, int fd, const char** args,
                                           uint32_t numArgs);

/** Sets the dump callback of \p clazz (used by AIBinder_dump on local objects). */
void AIBinder_Class_setOnDump(AIBinder_Class* clazz, AIBinder_onDump onDump) __INTRODUCED_IN(29);

/** Shell-command callback (accepted for compatibility; never invoked on a host). */
typedef binder_status_t (*AIBinder_handleShellCommand)(AIBinder* binder, int in, int out, int err,
                                                       const char** argv, uint32_t argc);

/** Sets the shell-command callback of \p clazz (stored, never invoked on a host). */
void AIBinder_Class_setHandleShellCommand(AIBinder_Class* clazz,
                                          AIBinder_handleShellCommand handleShellCommand)
        __INTRODUCED_IN(30);

/**
 * Creates a local object of \p clazz: calls onCreate(args) at once and
 * returns one strong reference (null if \p clazz is null). onDestroy runs
 * when the last strong reference goes.
 */
AIBinder* AIBinder_new(const AIBinder_Class* clazz, void* args) __INTRODUCED_IN(29);

/** True for a proxy; false for null and for local objects. */
bool AIBinder_isRemote(const AIBinder* binder) __INTRODUCED_IN(29);

/** False once the object's process (or the object, see binder_host.h) is known dead; true for local
 * objects. */
bool AIBinder_isAlive(const AIBinder* binder) __INTRODUCED_IN(29);

/** STATUS_OK if the object answers (a round trip for a proxy); STATUS_DEAD_OBJECT if not. */
binder_status_t AIBinder_ping(AIBinder* binder) __INTRODUCED_IN(29);

/** Runs the dump callback of a local object; STATUS_OK without one; proxies: STATUS_OK, nothing
 * written. */
binder_status_t AIBinder_dump(AIBinder* binder, int fd, const char** args, uint32_t numArgs)
        __INTRODUCED_IN(29);

/**
 * Links \p recipient to the death of proxy \p binder with \p cookie. When the
 * object's process dies, the recipient's callback runs once with \p cookie on
 * a binder thread and the link is removed. Local binder:
 * STATUS_INVALID_OPERATION; already dead: STATUS_DEAD_OBJECT; null binder or
 * recipient: STATUS_UNEXPECTED_NULL.
 */
binder_status_t AIBinder_linkToDeath(AIBinder* binder, AIBinder_DeathRecipient* recipient,
                                     void* cookie) __INTRODUCED_IN(29);

/** Removes one (binder, recipient, cookie) link; STATUS_NAME_NOT_FOUND if none. */
binder_status_t AIBinder_unlinkToDeath(AIBinder* binder, AIBinder_DeathRecipient* recipient,
                                       void* cookie) __INTRODUCED_IN(29);

/** The uid of the process making the current incoming call (own uid on a host). */
uid_t AIBinder_getCallingUid(void) __INTRODUCED_IN(29);

/** The pid of the process making the current incoming call, or the own pid outside one. */
pid_t AIBinder_getCallingPid(void) __INTRODUCED_IN(29);

/** Adds a strong reference; null is harmless. */
void AIBinder_incStrong(AIBinder* binder) __INTRODUCED_IN(29);

/** Releases a strong reference; null is harmless. */
void AIBinder_decStrong(AIBinder* binder) __INTRODUCED_IN(29);

/** The number of strong references (for debugging); -1 for null. */
int32_t AIBinder_debugGetRefCount(AIBinder* binder) __INTRODUCED_IN(29);

/**
 * Associates \p binder with \p clazz. False on null; true if already that
 * class; false for another class object (even with the same descriptor);
 * for a proxy without a class, true exactly when the remote descriptor
 * equals the class's descriptor.
 */
bool AIBinder_associateClass(AIBinder* binder, const AIBinder_Class* clazz) __INTRODUCED_IN(29);

/** The associated class, or null. */
const AIBinder_Class* AIBinder_getClass(AIBinder* binder) __INTRODUCED_IN(29);

/** The user data of a local object (from onCreate); null for proxies and null. */
void* AIBinder_getUserData(AIBinder* binder) __INTRODUCED_IN(29);

/**
 * Creates the request parcel for a transaction on \p binder in \p *in (the
 * caller owns it) and writes the interface token. \p binder needs a class
 * (STATUS_INVALID_OPERATION otherwise).
 */
binder_status_t AIBinder_prepareTransaction(AIBinder* binder, AParcel** in) __INTRODUCED_IN(29);

/**
 * Sends a transaction. Always takes and deletes \p *in (sets it to null). On
 * success \p *out receives the reply parcel the caller owns (empty for
 * FLAG_ONEWAY); on failure \p *out is set to null. Codes outside
 * FIRST_CALL_TRANSACTION..LAST_CALL_TRANSACTION: STATUS_UNKNOWN_TRANSACTION;
 * unknown flags: STATUS_BAD_VALUE; null arguments: STATUS_UNEXPECTED_NULL;
 * dead object: STATUS_DEAD_OBJECT. Blocks until the reply arrives (two-way).
 */
binder_status_t AIBinder_transact(AIBinder* binder, transaction_code_t code, AParcel** in,
                                  AParcel** out, binder_flags_t flags) __INTRODUCED_IN(29);

/** A new weak reference to \p binder (the caller owns it); null for null. */
AIBinder_Weak* AIBinder_Weak_new(AIBinder* binder) __INTRODUCED_IN(29);

/** Deletes a weak reference; null is a no-op. */
void AIBinder_Weak_delete(AIBinder_Weak* weakBinder) __INTRODUCED_IN(29);

/** One strong reference to the object, or null once it is gone (or for null). */
AIBinder* AIBinder_Weak_promote(AIBinder_Weak* weakBinder) __INTRODUCED_IN(29);

/** Death callback; \p cookie is the one given to AIBinder_linkToDeath. */
typedef void (*AIBinder_DeathRecipient_onBinderDied)(void* cookie);

/** A new death recipient (the caller owns it); null if \p onBinderDied is null. */
AIBinder_DeathRecipient* AIBinder_DeathRecipient_new(
        AIBinder_DeathRecipient_onBinderDied onBinderDied) __INTRODUCED_IN(29);

/**
 * Deletes a recipient: unlinks all its links first, so its callback never runs
 * for them afterwards (a callback already running finishes before this
 * returns, unless it runs on the calling thread). Null is allowed.
 */
void AIBinder_DeathRecipient_delete(AIBinder_DeathRecipient* recipient) __INTRODUCED_IN(29);

__END_DECLS
