// Thermal levels to the service, and thermal listening.
#include "RequestBuilding.h"

using halclient::DolmRequestParcel;
using halclient::IDolm;

namespace dolmHalclient {

int dolmThermalNotify(std::list<ZelClient::Resource>& resources, int clientArg) {
    DOLM_LOGI("dolm client dolmThermalNotify");
    const int32_t result =
            halclient::sendRequest("dolmThermalNotify", [&](DolmRequestParcel& parcel) {
                parcel.clientArg = clientArg;
                if (!checkResourceList(resources)) {
                    DOLM_LOGE("dolmThermalNotify ERROR: size unmatched for id and level ");
                    return false;
                }
                parcel.requestType = halclient::DOLM_REQ_THERMAL_NOTIFY;
                halclient::appendResourceEntries(parcel, resources);
                return true;
            });
    return result < 1 ? -1 : 0;
}

int dolmThermalListeningRegister(const std::vector<int>& ids,
                                 const std::shared_ptr<IClientCallback>& callback) {
    DOLM_LOGI("dolmThermalListeningRegister");
    int32_t handle = -1;
    std::shared_ptr<DolmCallbackClient> client;
    halclient::callInFrame(
            "dolmThermalListeningRegister",
            [&](IDolm& hal) {
                client = halclient::makeCallbackClient(callback, true);
                return hal.registerThermalListener(ids, client, &handle);
            },
            [&](bool ok) {
                if (!ok) return;
                // No duplicate test: the same ids may be registered for
                // thermal events any number of times.
                {
                    std::lock_guard<std::mutex> registryLock(listen_callback_mutex);
                    listen_callbacks.push_back(halclient::listenerGroup(ids, handle, client));
                }
                DOLM_LOGI("subsys's callback has been registered to Dolm HAL");
            });
    return handle;
}

int dolmThermalListeningUnregister(int handle) {
    DOLM_LOGI("dolm client dolmThermalListeningUnregister");
    int32_t result = -1;
    // The registry keeps the group: only dolmResListeningUnRegister removes it.
    halclient::callInFrame(
            "dolmThermalListeningUnregister",
            [&](IDolm& hal) { return hal.unregisterThermalListener(handle, &result); },
            [](bool ok) {
                if (ok) DOLM_LOGI("subsys's callback has been unRegistered to Dolm HAL");
            });
    return result;
}

}  // namespace dolmHalclient
