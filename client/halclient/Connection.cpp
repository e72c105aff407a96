// The client's connection to the IDolm service: lazy connect with a link to
// the service's death, the death callback, the reset after a failed call, and
// dolm_init.
#include <android/binder_manager.h>

#include <vector>

#include "DolmConnection.h"
#include "HalclientLog.h"
#include "halclient.h"

using ::aidl::vendor::tarvo::hardware::dolm::IDolm;

std::shared_ptr<IDolm> g_dolm_hal;
std::shared_mutex g_dolm_hal_lock;
AIBinder_DeathRecipient* g_dolm_death_recipient = nullptr;

namespace halclient {

const char* const DOLM_SERVICE_INSTANCE = "vendor.tarvo.hardware.dolm.IDolm/default";

namespace {

// Recipients of earlier connections. They are never freed (a notification
// that is still under way must not reach a freed recipient); keeping them
// listed, in storage that is never destroyed, keeps them reachable.
std::vector<AIBinder_DeathRecipient*>& retiredDeathRecipients() {
    static auto* recipients = new std::vector<AIBinder_DeathRecipient*>();
    return *recipients;
}

// Runs on a binder thread when the service dies. Only drops the proxy: the
// next call connects again; callback registries are left as they are.
void onDolmHalDied(void* /*cookie*/) {
    std::unique_lock<std::shared_mutex> lock(g_dolm_hal_lock);
    g_dolm_hal = nullptr;
    DOLM_LOGE("Dolm HAL Service died");
}

}  // namespace

void resetDolmHal(const char* label) {
    DOLM_LOGE("%s() failed: dolm HAL service not available", label);
    std::unique_lock<std::shared_mutex> lock(g_dolm_hal_lock);
    g_dolm_hal = nullptr;
}

}  // namespace halclient

void get_dolm_hal_and_link_to_death() {
    {
        std::shared_lock<std::shared_mutex> lock(g_dolm_hal_lock);
        if (g_dolm_hal != nullptr) return;
    }
    std::unique_lock<std::shared_mutex> lock(g_dolm_hal_lock);
    // Declared after the lock, so the reference is released before the lock.
    ::ndk::SpAIBinder binder(AServiceManager_checkService(halclient::DOLM_SERVICE_INSTANCE));
    if (g_dolm_hal != nullptr) {
        // Another thread connected while this one waited for the exclusive
        // lock; its connection is kept. (The message is the historical one.)
        DOLM_LOGE("Dolm is not declared");
        return;
    }
    g_dolm_hal = IDolm::fromBinder(binder);
    if (g_dolm_hal == nullptr) {
        DOLM_LOGE("Dolm HAL Service not found");
        return;
    }
    if (g_dolm_death_recipient != nullptr) {
        halclient::retiredDeathRecipients().push_back(g_dolm_death_recipient);
    }
    g_dolm_death_recipient = AIBinder_DeathRecipient_new(halclient::onDolmHalDied);
    if (AIBinder_linkToDeath(g_dolm_hal->asBinder().get(), g_dolm_death_recipient,
                             g_dolm_hal.get()) != STATUS_OK) {
        g_dolm_hal = nullptr;
        DOLM_LOGE("Unable to link to g_dolm_hal death notifications!");
    }
}

namespace dolmHalclient {

void dolm_init() {
    DOLM_LOGI("dolm client dolm_init");
    halclient::callInFrame("dolm_init", [](IDolm& hal) { return hal.init(); });
}

}  // namespace dolmHalclient
