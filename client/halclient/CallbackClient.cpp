// The library's IDolmCallback object: translates the service's deliveries
// into the caller's terms and relays them; one-shot clients then remove
// themselves from the request registry. Deliveries that arrive on a thread
// inside a library call are held until that call has released its locks.
#include <list>
#include <utility>

#include "CallbackDelivery.h"
#include "CallbackRegistry.h"
#include "HalclientLog.h"
#include "halclient.h"

using ::aidl::vendor::tarvo::hardware::dolm::DolmRequestData;

namespace {

// A delivery kept until the library call of its thread has released its locks.
struct HeldDelivery {
    std::shared_ptr<DolmCallbackClient> client;
    std::vector<DolmRequestData> data;
};

// Open HeldDeliveries scopes of this thread, and what they keep.
thread_local int tHeldScopes = 0;
thread_local std::vector<HeldDelivery> tHeldDeliveries;

// Translates one delivery, passes it to the caller's callback and, for a
// one-shot client, removes the client from request_callbacks.
void relay(DolmCallbackClient& client, const std::vector<DolmRequestData>& data) {
    const bool isRegister = client.is_register;
    if (!data.empty() && !client.by_path) {
        std::list<ZelClient::Resource> resources;
        for (const DolmRequestData& entry : data) {
            resources.push_back({entry.id, entry.value.value_or("")});
            if (entry.value.has_value()) {
                DOLM_CB_LOGI(
                        "DolmCallbackClient::onCallback res_Id %#x res_Value %s "
                        "is_register %d",
                        entry.id, entry.value->c_str(), isRegister);
            } else {
                DOLM_CB_LOGI("DolmCallbackClient::onCallback res_Id %#x is_register %d", entry.id,
                             isRegister);
            }
        }
        if (client.callback != nullptr) {
            DOLM_CB_LOGI("DolmCallback::onCallback call IClientCallback onCallback is_register %d",
                         isRegister);
            client.callback->onCallback(resources);
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
                        entry.path->c_str(), entry.value->c_str(), isRegister);
            }
        }
        if (client.callbackByPath != nullptr) {
            // The line names IClientCallback in the path form too.
            DOLM_CB_LOGI("DolmCallback::onCallback call IClientCallback onCallback is_register %d",
                         isRegister);
            client.callbackByPath->onCallback(values, paths);
        }
    }
    if (!isRegister) halclient::removeRequestCallback(&client);
}

}  // namespace

namespace halclient {

HeldDeliveries::HeldDeliveries() {
    ++tHeldScopes;
}

HeldDeliveries::~HeldDeliveries() {
    if (--tHeldScopes > 0) return;
    // A relayed callback may call into the library again; that call relays
    // what reaches it before it returns, so the list stays empty meanwhile.
    std::vector<HeldDelivery> due;
    due.swap(tHeldDeliveries);
    for (HeldDelivery& delivery : due) relay(*delivery.client, delivery.data);
}

}  // namespace halclient

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
    if (tHeldScopes > 0) {
        // Nested in a library call of this thread: relayed when it has
        // released its locks.
        tHeldDeliveries.push_back({ref<DolmCallbackClient>(), data});
    } else {
        relay(*this, data);
    }
    return ::ndk::ScopedAStatus::ok();
}
