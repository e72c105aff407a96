// Requests that address resources by path: control (with and without a
// one-shot callback), state queries by lists and by map, and listener
// registration by list and by map. Every parcel carries the "zdbdebug" tag.
#include "RequestBuilding.h"

using halclient::DolmRequestData;
using halclient::DolmRequestParcel;
using halclient::IDolm;
using PathList = std::vector<std::string>;
using PathMap = std::map<std::string, std::string>;

namespace {

// The control request's entries: one per index, path and (present) value.
void appendPathValueEntries(DolmRequestParcel& parcel, const PathList& paths,
                            const PathList& values) {
    for (size_t i = 0; i < paths.size(); ++i) {
        parcel.data.push_back(halclient::pathEntry(paths[i], values[i]));
    }
}

// A path control request; refused when the lists differ in length.
halclient::ControlRequest pathControl(const PathList& paths, const PathList& values,
                                      const char* refusal, const halclient::ControlArgs& args) {
    return {halclient::pathParcel(), paths.size() == values.size() ? nullptr : refusal,
            halclient::DOLM_REQ_RES_CTL, args};
}

// A map's entries in key order, path = key, value = the mapped text.
void appendPathMapEntries(DolmRequestParcel& parcel, const PathMap& pathValues) {
    for (const auto& [path, value] : pathValues) {
        parcel.data.push_back(halclient::pathEntry(path, value));
    }
}

// getData with a tagged parcel that `build` fills; false when the call failed
// or the service answered nothing.
template <typename Build>
bool queryByPath(const char* failureLabel, int clientArg, Build&& build,
                 std::vector<DolmRequestData>& answer) {
    const halclient::CallOutcome outcome = halclient::callInFrame(failureLabel, [&](IDolm& hal) {
        DolmRequestParcel parcel = halclient::pathParcel();
        parcel.clientArg = clientArg;
        build(parcel);
        return hal.getData(parcel, &answer);
    });
    return outcome == halclient::CallOutcome::kOk && !answer.empty();
}

// Registers a path listener known by `paths`; `fill` adds the entries.
template <typename Fill>
int registerPathListener(const char* failureLabel, const PathList& paths, int clientArg,
                         const std::shared_ptr<IClientCallbackByPath>& callback, Fill&& fill) {
    return halclient::registerListener(
            failureLabel,
            [&](DolmRequestParcel& parcel) {
                parcel = halclient::pathParcel();
                parcel.clientArg = clientArg;
                fill(parcel);
                return paths;
            },
            callback);
}

}  // namespace

namespace dolmHalclient {

void dolm_add_zdbdebug_for_request_parcel(DolmRequestParcel& parcel) {
    parcel.tags = std::vector<std::optional<std::string>>{std::string("zdbdebug")};
}

int dolm_resctl_request_by_path(int leadArg, int64_t timeout, const PathList& paths,
                                const PathList& values, int option, int flagArg, int clientArg) {
    DOLM_LOGI("dolm client dolm_resctl_request");
    return halclient::sendControlRequest(
            "dolm_resctl_request_by_path",
            pathControl(paths, values,
                        "dolm_resctl_request ERROR: size unmatched for paths and value ",
                        {leadArg, timeout, option, flagArg, clientArg}),
            [&](DolmRequestParcel& parcel) { appendPathValueEntries(parcel, paths, values); });
}

int dolm_resctl_request_with_callback_by_path(
        int leadArg, int64_t timeout, const PathList& paths, const PathList& values, int option,
        int flagArg, int clientArg, const std::shared_ptr<IClientCallbackByPath>& callback) {
    DOLM_LOGI("dolm client dolm_resctl_request_with_callback");
    return halclient::sendControlRequest(
            "dolm client dolm_resctl_request_with_callback",
            pathControl(paths, values, halclient::kCallbackRequestRefusal,
                        {leadArg, timeout, option, flagArg, clientArg}),
            callback, "dolm client dolm_resctl_request_with_callback add to request_callbacks",
            [&](DolmRequestParcel& parcel) { appendPathValueEntries(parcel, paths, values); });
}

int dolm_res_state_request_by_path(const PathList& paths, const PathList& values, int clientArg,
                                   PathList& outValues) {
    DOLM_LOGI("dolm client dolm_res_state_request");
    std::vector<DolmRequestData> answer;
    const bool answered = queryByPath(
            "dolm_res_state_request", clientArg,
            [&](DolmRequestParcel& parcel) {
                // Values go along only when they pair up with the paths; a
                // mismatch is not an error here, the paths alone are asked.
                if (!values.empty() && values.size() == paths.size()) {
                    appendPathValueEntries(parcel, paths, values);
                    return;
                }
                for (const std::string& path : paths) {
                    parcel.data.push_back(halclient::pathEntry(path, std::nullopt));
                }
            },
            answer);
    if (!answered) return -1;
    for (const DolmRequestData& entry : answer) outValues.push_back(entry.value.value_or(""));
    DOLM_LOGI("dolm client dolm_res_state_request size %d", static_cast<int>(outValues.size()));
    return static_cast<int>(outValues.size());
}

int dolm_res_state_request_map_by_path(const PathMap& pathValues, int clientArg,
                                       PathMap& outPathValues) {
    DOLM_LOGI("dolm client dolm_res_state_request_map");
    std::vector<DolmRequestData> answer;
    const bool answered = queryByPath(
            "dolm_res_state_request_map", clientArg,
            [&](DolmRequestParcel& parcel) { appendPathMapEntries(parcel, pathValues); }, answer);
    if (!answered) return -1;
    for (const DolmRequestData& entry : answer) {
        if (!entry.path.has_value() || !entry.value.has_value()) continue;
        outPathValues[*entry.path] = *entry.value;
        // ERROR on purpose: this line is meant to show in production logs.
        DOLM_LOGE("res_Path: %s, res_Value:%s", entry.path->c_str(), entry.value->c_str());
    }
    DOLM_LOGI("dolm client dolm_res_state_request_map size %d",
              static_cast<int>(outPathValues.size()));
    return static_cast<int>(outPathValues.size());
}

int dolm_res_listening_register_by_path(const PathList& paths, int clientArg,
                                        const std::shared_ptr<IClientCallbackByPath>& callback) {
    DOLM_LOGI("dolm client dolm_res_listening_register");
    return registerPathListener(
            "dolm_res_listening_register", paths, clientArg, callback,
            [&](DolmRequestParcel& parcel) {
                for (const std::string& path : paths) {
                    parcel.data.push_back(halclient::pathEntry(path, std::nullopt));
                }
            });
}

int dolm_res_listening_register_map_by_path(const PathMap& pathValues, int clientArg,
                                            const std::shared_ptr<IClientCallbackByPath>& callback) {
    DOLM_LOGI("dolm client dolm_res_listening_register_map");
    PathList keys;
    for (const auto& entry : pathValues) keys.push_back(entry.first);
    return registerPathListener(
            "dolm_res_listening_register_map", keys, clientArg, callback,
            [&](DolmRequestParcel& parcel) { appendPathMapEntries(parcel, pathValues); });
}

}  // namespace dolmHalclient
