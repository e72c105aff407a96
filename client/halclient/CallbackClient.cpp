// The library's IDolmCallback object: translates the service's deliveries
// into the caller's terms and relays them; one-shot clients then remove
// themselves from the request registry.
#include <list>

#include "CallbackRegistry.h"
#include "HalclientLog.h"
#include "halclient.h"

using ::aidl::vendor::tarvo::hardware::dolm::DolmRequestData;

// Out of line, so that the vtables and type information of the caller-facing
// interfaces live in the library, where callers' derived classes find them.
IClientCallback::~IClientCallback() = default;
IClientCallbackByPath::~IClientCallbackByPath() = default;

DolmCallbackClient::DolmCallbackClient(const std::shared_ptr<IClientCallback>& clientCallback,
                                       bool isRegister, bool byPath)
    : callback(clientCallback), is_register(isRegister), by_path(byPath) {}

DolmCallbackClient::DolmCallbackClient(const std::shared_ptr<IClientCallbackByPath>& clientCallback,
                                       bool isRegister, bool byPath)
    : callbackByPath(clientCallback), is_register(isRegister), by_path(byPath) {}

DolmCallbackClient::~DolmCallbackClient() {
    DOLM_CB_LOGI("ndk backend ~DolmCallbackClient");
    callback = nullptr;
    callbackByPath = nullptr;
}

::ndk::ScopedAStatus DolmCallbackClient::onCallback(const std::vector<DolmRequestData>& data) {
    if (!data.empty() && !by_path) {
        std::list<ZelClient::Resource> resources;
        for (const DolmRequestData& entry : data) {
            resources.push_back({entry.id, entry.value.value_or("")});
            if (entry.value.has_value()) {
                DOLM_CB_LOGI(
                        "DolmCallbackClient::onCallback res_Id %#x res_Value %s "
                        "is_register %d",
                        entry.id, entry.value->c_str(), is_register);
            } else {
                DOLM_CB_LOGI("DolmCallbackClient::onCallback res_Id %#x is_register %d", entry.id,
                             is_register);
            }
        }
        if (callback != nullptr) {
            DOLM_CB_LOGI("DolmCallback::onCallback call IClientCallback onCallback is_register %d",
                         is_register);
            callback->onCallback(resources);
        }
    } else if (!data.empty()) {
        std::vector<std::string> paths;
        std::vector<std::string> values;
        for (const DolmRequestData& entry : data) {
            paths.push_back(entry.path.value_or(""));
            values.push_back(entry.value.value_or(""));
            if (entry.path.has_value() && entry.value.has_value()) {
                DOLM_CB_LOGI(
                        "DolmCallbackClient::onCallback res_Id %s res_Value %s "
                        "is_register %d",
                        entry.path->c_str(), entry.value->c_str(), is_register);
            }
        }
        if (callbackByPath != nullptr) {
            // The line names IClientCallback in the path form too.
            DOLM_CB_LOGI("DolmCallback::onCallback call IClientCallback onCallback is_register %d",
                         is_register);
            callbackByPath->onCallback(values, paths);
        }
    }
    if (!is_register) halclient::removeRequestCallback(this);
    return ::ndk::ScopedAStatus::ok();
}
