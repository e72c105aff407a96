// Resource listening by id (register, unregister) and the one-off state
// query of resources by id.
#include "RequestBuilding.h"

using halclient::DolmRequestData;
using halclient::DolmRequestParcel;
using halclient::IDolm;
using ResourceList = std::list<ZelClient::Resource>;

namespace dolmHalclient {

int dolmResListeningRegister(ResourceList& resources, int clientArg,
                             const std::shared_ptr<IClientCallback>& callback) {
    DOLM_LOGI("dolmResListeningRegister");
    // This function has always reported failures under the map registration's
    // name; log readers rely on the text.
    return halclient::registerListener(
            "dolm_res_listening_register_map",
            [&](DolmRequestParcel& parcel) {
                parcel.clientArg = clientArg;
                halclient::appendResourceEntries(parcel, resources);
                std::vector<int32_t> ids;
                for (const ZelClient::Resource& resource : resources) ids.push_back(resource.id);
                return ids;
            },
            callback);
}

int dolmResListeningUnRegister(int handle) {
    DOLM_LOGI("dolm client dolmResListeningUnRegister");
    int32_t result = -1;
    // The registry mutex is taken after the service call, and released before
    // the reset of a failed call takes the connection lock exclusive.
    halclient::callInFrame(
            "dolmResListeningUnRegister",
            [&](IDolm& hal) { return hal.unregisterListener(handle, &result); },
            [&](bool /*ok*/) {
                std::lock_guard<std::mutex> registryLock(listen_callback_mutex);
                halclient::removeListenersLocked(handle);
            });
    return result;
}

int dolmResStateRequest(ResourceList& resources, int clientArg, ResourceList& out) {
    DOLM_LOGI("dolm client dolmResStateRequest");
    std::vector<DolmRequestData> reply;
    const halclient::CallOutcome outcome =
            halclient::callInFrame("dolmResStateRequest", [&](IDolm& hal) {
                DolmRequestParcel parcel;
                parcel.clientArg = clientArg;
                halclient::appendResourceEntries(parcel, resources);
                DOLM_LOGI("dolm client hal dolmResStateRequest");
                return hal.getData(parcel, &reply);
            });
    if (outcome != halclient::CallOutcome::kOk || reply.empty()) return -1;
    for (const DolmRequestData& entry : reply) {
        out.push_back({entry.id, entry.value.value_or("")});
    }
    DOLM_LOGI("dolm client dolmResStateRequest size %d", static_cast<int>(out.size()));
    return static_cast<int>(out.size());
}

}  // namespace dolmHalclient
