/*
 * Binder NDK runtime for Linux hosts: stability marks (platform API, same
 * names and values as Android 11's <android/binder_stability.h>).
 *
 * A binder object's stability says which partitions may rely on its
 * interface. The mark travels with the object when it is sent to another
 * process, and a transaction flagged FLAG_PRIVATE_VENDOR (what vendor code
 * passes as FLAG_PRIVATE_LOCAL) is refused with STATUS_BAD_TYPE on a proxy
 * whose object is not stable for the vendor partition (vendor or VINTF).
 */
#pragma once

#include <android/binder_ibinder.h>
#include <sys/cdefs.h>

__BEGIN_DECLS

/** Private transaction flag: the call is made from the vendor partition. */
enum {
    FLAG_PRIVATE_VENDOR = 0x10000000,
};

#if defined(__ANDROID_VNDK__)

/** The flag this compilation unit's transactions carry. */
enum {
    FLAG_PRIVATE_LOCAL = FLAG_PRIVATE_VENDOR,
};

/** Marks \p binder as stable within the vendor partition. */
void AIBinder_markVendorStability(AIBinder* binder);

/** Marks \p binder with the stability of this compilation unit's partition. */
static inline void AIBinder_markCompilationUnitStability(AIBinder* binder) {
    AIBinder_markVendorStability(binder);
}

#else  // defined(__ANDROID_VNDK__)

/** The flag this compilation unit's transactions carry. */
enum {
    FLAG_PRIVATE_LOCAL = 0,
};

/** Marks \p binder as stable within the system partition. */
__attribute__((weak)) void AIBinder_markSystemStability(AIBinder* binder);

/** Marks \p binder with the stability of this compilation unit's partition. */
static inline void AIBinder_markCompilationUnitStability(AIBinder* binder) {
    if (AIBinder_markSystemStability == nullptr) return;
    AIBinder_markSystemStability(binder);
}

#endif  // defined(__ANDROID_VNDK__)

/**
 * Marks \p binder as stable between the system and vendor partitions (a VINTF
 * interface). Generated code of a stable interface calls it from createBinder().
 */
void AIBinder_markVintfStability(AIBinder* binder);

__END_DECLS
