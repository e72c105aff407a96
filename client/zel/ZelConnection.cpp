// The event layer's connection to the IDolm service: lazy lookup, link to
// death, the death handler and the reset after a failed call. Kept apart from
// the resource-control client's connection: its own holder, lock and death
// recipient.
#define LOG_TAG "[ZEL_CLIENT]"

#include "zel/ZelConnection.h"

#include <android/binder_manager.h>
#include <log/log.h>

using ::aidl::vendor::tarvo::hardware::dolm::IDolm;

std::shared_ptr<IDolm> g_zel_hal;
std::shared_mutex g_zel_hal_lock;
AIBinder_DeathRecipient* g_zel_death_recipient = nullptr;

namespace {

constexpr const char* kDolmServiceInstance = "vendor.tarvo.hardware.dolm.IDolm/default";

// Runs on a binder thread when the service's process dies. Only empties the
// holder: the next call of any event function connects again.
void onZelHalDied(void* /*cookie*/) {
    std::unique_lock<std::shared_mutex> lock(g_zel_hal_lock);
    g_zel_hal.reset();
    ALOGE("Dolm HAL Service died");
}

}  // namespace

int32_t zel_get_dolm_hal_and_link_to_death() {
    {
        std::shared_lock<std::shared_mutex> lock(g_zel_hal_lock);
        if (g_zel_hal != nullptr) return 0;
    }
    std::unique_lock<std::shared_mutex> lock(g_zel_hal_lock);
    // Not examined again under the exclusive lock: a thread that lost the race
    // looks the service up once more and its proxy replaces the winner's.
    g_zel_hal =
            IDolm::fromBinder(::ndk::SpAIBinder(AServiceManager_checkService(kDolmServiceInstance)));
    if (g_zel_hal == nullptr) {
        ALOGE("Dolm HAL Service not found");
        return -1;
    }
    // The previous recipient is dropped, not deleted: deleting it would unlink
    // a connection that another thread may still be calling through.
    g_zel_death_recipient = AIBinder_DeathRecipient_new(onZelHalDied);
    if (AIBinder_linkToDeath(g_zel_hal->asBinder().get(), g_zel_death_recipient, g_zel_hal.get()) ==
        STATUS_OK) {
        return 0;
    }
    g_zel_hal.reset();
    ALOGE("Unable to link to g_zel_hal death notifications!");
    return -1;
}

namespace zel {

int32_t connect() {
    const int32_t result = zel_get_dolm_hal_and_link_to_death();
    if (result != 0) ALOGE("zel_get_dolm_hal_and_link_to_death error:%d", result);
    return result;
}

void resetConnection(const char* label) {
    ALOGE("%s() failed : dolm HAL service not available", label);
    std::shared_ptr<IDolm> dropped;
    std::unique_lock<std::shared_mutex> lock(g_zel_hal_lock);
    // Whatever the holder holds now goes, even a proxy that another thread has
    // just installed; the next call connects again. The proxy is destroyed
    // after the lock is released.
    dropped.swap(g_zel_hal);
}

}  // namespace zel
