// Sub-system control: a request for one whole sub-system by id (with and
// without a one-shot callback) and its release.
#include "RequestBuilding.h"

using halclient::DolmRequestData;
using halclient::DolmRequestParcel;
using halclient::IDolm;

namespace {

// The one entry of a sub-system request: the id and no texts at all.
void setSubsystemEntry(DolmRequestParcel& parcel, int saId) {
    DolmRequestData entry;
    entry.id = saId;
    parcel.data = {entry};
}

// Sub-system requests are never refused.
halclient::ControlRequest subsystemControl(const halclient::ControlArgs& args) {
    return {DolmRequestParcel(), nullptr, halclient::DOLM_REQ_SA_CTL, args};
}

}  // namespace

namespace dolmHalclient {

int dolmSACtlRequest(int leadArg, int timeout, int saId, int option, int flagArg, int clientArg) {
    DOLM_LOGI("dolm client dolmSACtlRequest");
    return halclient::sendControlRequest(
            "dolmSACtlRequest", subsystemControl({leadArg, timeout, option, flagArg, clientArg}),
            [&](DolmRequestParcel& parcel) { setSubsystemEntry(parcel, saId); });
}

int dolmSACtlRequest(int timeout, int saId, int clientArg) {
    return dolmSACtlRequest(-1, timeout, saId, -1, -1, clientArg);
}

int dolmSACtlRequest(int leadArg, int timeout, int saId, int option, int flagArg, int clientArg,
                     const std::shared_ptr<IClientCallback>& callback) {
    DOLM_LOGI("dolm client dolmSACtlRequest with callback");
    return halclient::sendControlRequest(
            "dolmSACtlRequest with callback",
            subsystemControl({leadArg, timeout, option, flagArg, clientArg}), callback,
            "dolm client dolmSACtlRequest add to request_callbacks",
            [&](DolmRequestParcel& parcel) { setSubsystemEntry(parcel, saId); });
}

int dolmSACtlRelease(int handle) {
    DOLM_LOGI("dolm client dolmSACtlRelease");
    return halclient::callForResult("dolmSACtlRelease", [&](IDolm& hal, int32_t* result) {
        return hal.release(handle, result);
    });
}

}  // namespace dolmHalclient
