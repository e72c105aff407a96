/*
 * Binder NDK runtime for Linux hosts: stability marks.
 * A host has a single partition, so marks are accepted and have no effect.
 */
#pragma once

#include <android/binder_ibinder.h>
#include <sys/cdefs.h>

__BEGIN_DECLS

/** Marks \p binder as part of the VINTF stable interface (no effect on a host). */
void AIBinder_markVintfStability(AIBinder* binder);

/** Marks \p binder as local to its compilation unit (no effect on a host). */
void AIBinder_markCompilationUnitStability(AIBinder* binder);

/** Marks \p binder for the vendor partition (no effect on a host). */
void AIBinder_markVendorStability(AIBinder* binder);

/** Marks \p binder for the system partition (no effect on a host). */
void AIBinder_markSystemStability(AIBinder* binder);

__END_DECLS
