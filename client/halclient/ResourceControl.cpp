// Resource control by id: validation of resource lists, the request in its
// forms (with and without a one-shot callback) and the release.
#include "RequestBuilding.h"

using halclient::DolmRequestParcel;
using halclient::IDolm;
using ResourceList = std::list<ZelClient::Resource>;

bool checkResourceList(ResourceList& resources) {
    for (const ZelClient::Resource& resource : resources) {
        const bool hasText = resource.value.has_value() && !resource.value->empty();
        // An id names a resource that needs a value; id 0 carries none.
        if (resource.id != 0 ? !hasText : hasText) return false;
    }
    return true;
}

namespace {

// The request as sent, with `refusal` logged instead when the list is invalid.
halclient::ControlRequest resourceControl(ResourceList& resources, const char* refusal,
                                          const halclient::ControlArgs& args) {
    return {DolmRequestParcel(), checkResourceList(resources) ? nullptr : refusal,
            halclient::DOLM_REQ_RES_CTL, args};
}

}  // namespace

namespace dolmHalclient {

int dolmResCtlRequest(int leadArg, int timeout, ResourceList& resources, int option, int flagArg,
                      int clientArg) {
    DOLM_LOGI("dolm client dolmResCtlRequest");
    return halclient::sendControlRequest(
            "dolmResCtlRequest",
            resourceControl(resources, "dolmResCtlRequest ERROR: size unmatched for id and value ",
                            {leadArg, timeout, option, flagArg, clientArg}),
            [&](DolmRequestParcel& parcel) { halclient::appendResourceEntries(parcel, resources); });
}

int dolmResCtlRequest(int timeout, ResourceList& resources, int clientArg) {
    return dolmResCtlRequest(-1, timeout, resources, -1, -1, clientArg);
}

int dolmResCtlRequest(int timeout, ResourceList& resources, int flagArg, int clientArg) {
    return dolmResCtlRequest(-1, timeout, resources, -1, flagArg, clientArg);
}

int dolmResCtlRequest(int timeout, ResourceList& resources, int option, int flagArg, int clientArg) {
    return dolmResCtlRequest(-1, timeout, resources, option, flagArg, clientArg);
}

int dolmResCtlRequest(int leadArg, int timeout, ResourceList& resources, int clientArg) {
    return dolmResCtlRequest(leadArg, timeout, resources, -1, -1, clientArg);
}

int dolmResCtlRequest(int leadArg, int timeout, ResourceList& resources, int flagArg,
                      int clientArg) {
    return dolmResCtlRequest(leadArg, timeout, resources, -1, flagArg, clientArg);
}

int dolmResCtlRequest(int leadArg, int timeout, ResourceList& resources, int option, int flagArg,
                      int clientArg, const std::shared_ptr<IClientCallback>& callback) {
    DOLM_LOGI("dolm client dolmResCtlRequest with callback");
    // The failure label names the callback client rather than this function;
    // log readers search for it as it stands.
    return halclient::sendControlRequest(
            "dolm client DolmCallbackClient with callback",
            resourceControl(resources, halclient::kCallbackRequestRefusal,
                            {leadArg, timeout, option, flagArg, clientArg}),
            callback, "dolm client dolmResCtlRequest add to request_callbacks",
            [&](DolmRequestParcel& parcel) { halclient::appendResourceEntries(parcel, resources); });
}

int dolmResCtlRelease(int handle) {
    DOLM_LOGI("dolm client dolmResCtlRelease");
    return halclient::callForResult("dolmResCtlRelease", [&](IDolm& hal, int32_t* result) {
        return hal.release(handle, result);
    });
}

}  // namespace dolmHalclient
