// The service manager (AServiceManager_*) and the host-only controls of
// android/binder_host.h.
#include <android/binder_host.h>
#include <android/binder_manager.h>

#include <chrono>
#include <thread>

#include "runtime.h"

namespace {

constexpr auto kGetServiceTimeout = std::chrono::seconds(5);
constexpr auto kGetServicePollInterval = std::chrono::milliseconds(50);

}  // namespace

using binder_host::Runtime;

binder_status_t AServiceManager_addService(AIBinder* binder, const char* instance) {
    if (binder == nullptr || instance == nullptr) {
        return STATUS_UNEXPECTED_NULL;
    }
    binder_host::ABBinder* local = binder->asLocal();
    if (local == nullptr) {
        return STATUS_INVALID_OPERATION;
    }
    Runtime* runtime = Runtime::get();
    return runtime != nullptr ? runtime->addService(local, instance) : STATUS_NO_INIT;
}

AIBinder* AServiceManager_checkService(const char* instance) {
    if (instance == nullptr) {
        return nullptr;
    }
    Runtime* runtime = Runtime::get();
    return runtime != nullptr ? runtime->checkService(instance).release() : nullptr;
}

AIBinder* AServiceManager_getService(const char* instance) {
    auto deadline = std::chrono::steady_clock::now() + kGetServiceTimeout;
    for (;;) {
        AIBinder* binder = AServiceManager_checkService(instance);
        if (binder != nullptr || instance == nullptr ||
            std::chrono::steady_clock::now() >= deadline) {
            return binder;
        }
        std::this_thread::sleep_for(kGetServicePollInterval);
    }
}

binder_status_t ABinderHost_killLocalBinder(AIBinder* binder) {
    if (binder == nullptr) {
        return STATUS_UNEXPECTED_NULL;
    }
    binder_host::ABBinder* local = binder->asLocal();
    if (local == nullptr) {
        return STATUS_INVALID_OPERATION;
    }
    Runtime* runtime = Runtime::getIfCreated();
    return runtime != nullptr ? runtime->killLocal(local) : STATUS_OK;
}

void ABinderHost_setInProcessProxies(bool enabled) {
    if (Runtime* runtime = Runtime::get()) {
        runtime->setInProcessProxies(enabled);
    }
}

size_t ABinderHost_getPeerCount() {
    Runtime* runtime = Runtime::getIfCreated();
    return runtime != nullptr ? runtime->peerCount() : 0;
}
