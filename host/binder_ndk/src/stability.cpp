// Stability marks: a host has one partition, so they have no effect.
#include <android/binder_stability.h>

void AIBinder_markVintfStability(AIBinder* /*binder*/) {}
void AIBinder_markCompilationUnitStability(AIBinder* /*binder*/) {}
void AIBinder_markVendorStability(AIBinder* /*binder*/) {}
void AIBinder_markSystemStability(AIBinder* /*binder*/) {}
