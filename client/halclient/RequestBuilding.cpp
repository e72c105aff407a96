// Parcel entries, control fields, callback clients and listener records
// shared by the dolmHalclient request functions.
#include "RequestBuilding.h"

namespace halclient {

void appendResourceEntries(DolmRequestParcel& parcel,
                           const std::list<ZelClient::Resource>& resources) {
    for (const ZelClient::Resource& resource : resources) {
        DolmRequestData entry;
        entry.id = resource.id;
        entry.value = resource.value.value_or("");
        parcel.data.push_back(std::move(entry));
    }
}

DolmRequestData pathEntry(const std::string& path, std::optional<std::string> value) {
    DolmRequestData entry;
    entry.path = path;
    entry.value = std::move(value);
    return entry;
}

DolmRequestParcel pathParcel() {
    DolmRequestParcel parcel;
    dolmHalclient::dolm_add_zdbdebug_for_request_parcel(parcel);
    return parcel;
}

void setControlFields(DolmRequestParcel& parcel, int32_t requestType, const ControlArgs& args) {
    parcel.requestType = requestType;
    parcel.flag = args.flagArg >= 1;
    parcel.option = args.option;
    parcel.clientArg = args.clientArg;
    parcel.timeout = args.timeout;
    parcel.leadArg = args.leadArg;
}

std::shared_ptr<DolmCallbackClient> makeCallbackClient(
        const std::shared_ptr<IClientCallback>& callback, bool isRegister) {
    return ::ndk::SharedRefBase::make<DolmCallbackClient>(callback, isRegister, false);
}

std::shared_ptr<DolmCallbackClient> makeCallbackClient(
        const std::shared_ptr<IClientCallbackByPath>& callback, bool isRegister) {
    return ::ndk::SharedRefBase::make<DolmCallbackClient>(callback, isRegister, true);
}

DolmCallbackGroup listenerGroup(std::vector<int32_t> ids, int32_t handle,
                                std::shared_ptr<DolmCallbackClient> client) {
    return DolmCallbackGroup{std::move(ids), {}, handle, std::move(client)};
}

DolmCallbackGroup listenerGroup(std::vector<std::string> paths, int32_t handle,
                                std::shared_ptr<DolmCallbackClient> client) {
    return DolmCallbackGroup{{}, std::move(paths), handle, std::move(client)};
}

}  // namespace halclient
