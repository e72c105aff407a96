// Sub-system control: a request for one whole sub-system by id (with and
// without a one-shot callback) and its release.
#include "RequestBuilding.h"

using halclient::DolmRequestData;
using halclient::DolmRequestParcel;
using halclient::IDolm;

namespace {

// The one entry of a sub-system request: the id and no texts at all.
DolmRequestData subsystemEntry(int saId) {
    DolmRequestData entry;
    entry.id = saId;
    return entry;
}

}  // namespace

namespace dolmHalclient {

int dolmSACtlRequest(int leadArg, int timeout, int saId, int option, int flagArg, int clientArg) {
    DOLM_LOGI("dolm client dolmSACtlRequest");
    return halclient::sendRequest("dolmSACtlRequest", [&](DolmRequestParcel& parcel) {
        halclient::setControlFields(parcel, halclient::DOLM_REQ_SA_CTL, leadArg, timeout, option,
                                    flagArg, clientArg);
        parcel.data = {subsystemEntry(saId)};
        return true;
    });
}

int dolmSACtlRequest(int timeout, int saId, int clientArg) {
    return dolmSACtlRequest(-1, timeout, saId, -1, -1, clientArg);
}

int dolmSACtlRequest(int leadArg, int timeout, int saId, int option, int flagArg, int clientArg,
                     const std::shared_ptr<IClientCallback>& callback) {
    DOLM_LOGI("dolm client dolmSACtlRequest with callback");
    return halclient::sendRequest("dolmSACtlRequest with callback", [&](DolmRequestParcel& parcel) {
        halclient::setControlFields(parcel, halclient::DOLM_REQ_SA_CTL, leadArg, timeout, option,
                                    flagArg, clientArg);
        halclient::attachRequestCallback(parcel, callback,
                                         "dolm client dolmSACtlRequest add to request_callbacks");
        parcel.data = {subsystemEntry(saId)};
        return true;
    });
}

int dolmSACtlRelease(int handle) {
    DOLM_LOGI("dolm client dolmSACtlRelease");
    return halclient::callForResult("dolmSACtlRelease", [&](IDolm& hal, int32_t* result) {
        return hal.release(handle, result);
    });
}

}  // namespace dolmHalclient
