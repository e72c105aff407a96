// Stability marks: recorded on the object and sent along with it, as a device
// does; AIBinder_transact checks them for vendor-flagged calls on proxies.
#include <android/binder_stability.h>

#include "ibinder_internal.h"

namespace {

void mark(AIBinder* binder, int32_t level) {
    if (binder != nullptr) binder->setStability(level);
}

}  // namespace

// Declared by the header only for the partition a unit is built for; the
// runtime serves both.
extern "C" void AIBinder_markVendorStability(AIBinder* binder);
extern "C" void AIBinder_markSystemStability(AIBinder* binder);

void AIBinder_markVintfStability(AIBinder* binder) {
    mark(binder, binder_host::kStabilityVintf);
}
void AIBinder_markVendorStability(AIBinder* binder) {
    mark(binder, binder_host::kStabilityVendor);
}
void AIBinder_markSystemStability(AIBinder* binder) {
    mark(binder, binder_host::kStabilitySystem);
}
