// The callback registries: their storage and the operations that the request,
// listening and callback-client code performs on them.
#include "CallbackRegistry.h"

#include <algorithm>

#include "HalclientLog.h"

std::vector<std::shared_ptr<DolmCallbackClient>> request_callbacks;
std::mutex request_callback_mutex;

std::vector<DolmCallbackGroup> listen_callbacks;
std::mutex listen_callback_mutex;

namespace halclient {

namespace {

// Walks the groups in order and stops at the first whose `field` equals `list`.
template <typename T>
bool isRegisteredLocked(const std::vector<T>& list, std::vector<T> DolmCallbackGroup::*field) {
    const bool found =
            std::any_of(listen_callbacks.begin(), listen_callbacks.end(),
                        [&](const DolmCallbackGroup& group) { return group.*field == list; });
    if (found) DOLM_LOGE("Same callback interface registered already");
    return found;
}

}  // namespace

void addRequestCallback(const std::shared_ptr<DolmCallbackClient>& client, const char* addedLine) {
    std::lock_guard<std::mutex> lock(request_callback_mutex);
    DOLM_LOGI("%s", addedLine);
    request_callbacks.push_back(client);
}

void removeRequestCallback(const DolmCallbackClient* client) {
    std::lock_guard<std::mutex> lock(request_callback_mutex);
    const size_t before = request_callbacks.size();
    auto kept = std::remove_if(request_callbacks.begin(), request_callbacks.end(),
                               [client](const std::shared_ptr<DolmCallbackClient>& entry) {
                                   if (entry.get() != client) return false;
                                   DOLM_CB_LOGI("callback is found in request_callbacks");
                                   return true;
                               });
    const bool found = kept != request_callbacks.end();
    request_callbacks.erase(kept, request_callbacks.end());
    if (!found) DOLM_CB_LOGE("callback not found in request_callbacks");
    DOLM_CB_LOGI(
            "DolmCallback::onCallback request callback called , remove from "
            "request_callbacks , request_callbacks size before %d after %d",
            static_cast<int>(before), static_cast<int>(request_callbacks.size()));
}

bool isListenerRegisteredLocked(const std::vector<int32_t>& ids) {
    return isRegisteredLocked(ids, &DolmCallbackGroup::ids);
}

bool isListenerRegisteredLocked(const std::vector<std::string>& paths) {
    return isRegisteredLocked(paths, &DolmCallbackGroup::paths);
}

void removeListenersLocked(int32_t handle) {
    auto kept = std::remove_if(listen_callbacks.begin(), listen_callbacks.end(),
                               [handle](const DolmCallbackGroup& group) {
                                   if (group.handle != handle) return false;
                                   DOLM_LOGI(
                                           "a callback has been unregistered to Dolm HAL "
                                           "handle %d",
                                           handle);
                                   return true;
                               });
    const bool found = kept != listen_callbacks.end();
    listen_callbacks.erase(kept, listen_callbacks.end());
    if (!found) DOLM_LOGE("The callback was not registered before");
}

}  // namespace halclient
