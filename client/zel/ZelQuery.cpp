// Event API: the read side. Request history, resource state and power-mode
// status, all through the service's getData operation.
#define LOG_TAG "[ZEL_CLIENT]"

#include <log/log.h>

#include <algorithm>
#include <iostream>
#include <optional>
#include <stdexcept>

#include "zel.h"
#include "zel/ZelConnection.h"

using ::aidl::vendor::tarvo::hardware::dolm::DolmRequestData;
using ::aidl::vendor::tarvo::hardware::dolm::DolmRequestParcel;
using ::aidl::vendor::tarvo::hardware::dolm::IDolm;

namespace {

// getData through the call frame for the queries that log `callLine` once the
// holder is known to be set and report a failed call like an empty answer.
// Null when the holder was empty (nothing to report); otherwise the answer,
// empty after a failed call.
std::optional<std::vector<DolmRequestData>> queryData(const char* label, const char* callLine,
                                                      const DolmRequestParcel& parcel) {
    std::vector<DolmRequestData> answer;
    const zel::CallResult called = zel::callService(label, [&](IDolm& hal) {
        ALOGI("%s", callLine);
        return hal.getData(parcel, &answer);
    });
    if (called == zel::CallResult::kNoProxy) return std::nullopt;
    if (called == zel::CallResult::kFailed) answer.clear();
    return answer;
}

}  // namespace

int32_t ZelGetHistory(std::string& history) {
    ALOGI("zel client ZelGetHistory");
    if (const int32_t result = zel::connect(); result != 0) return result;

    DolmRequestParcel parcel;
    parcel.requestType = zel::kReqHistory;
    const std::optional<std::vector<DolmRequestData>> answer =
            queryData("ZelGetHistory", "zel client hal ZelGetHistory", parcel);
    if (!answer.has_value()) return -1;
    if (answer->empty()) {
        ALOGE("failed to get history or return vector empty, data vector size %d",
              static_cast<int>(answer->size()));
        return -1;
    }
    history = "start:";
    for (size_t i = 0; i < answer->size(); ++i) {
        if (i > 0) history += ';';
        const std::optional<std::string>& extra = (*answer)[i].extra;
        history += extra.has_value() ? *extra : "none";
    }
    history += ";end";
    ALOGD("get history successful: %s", history.c_str());
    return 0;
}

int32_t ZelMutiResStateRequest(std::vector<ZelClient::Resource>& resources) {
    ALOGI("ZelMutiResStateRequest enter");
    if (const int32_t result = zel::connect(); result != 0) return result;
    if (resources.empty()) {
        ALOGE("input resource is empty, return");
        return -1;
    }

    // Only the ids are asked for; the caller's values stay home.
    DolmRequestParcel parcel;
    parcel.data.resize(resources.size());
    for (size_t i = 0; i < resources.size(); ++i) parcel.data[i].id = resources[i].id;
    std::vector<DolmRequestData> answer;
    if (zel::callService("ZelMutiResStateRequest", [&](IDolm& hal) {
            return hal.getData(parcel, &answer);
        }) != zel::CallResult::kOk) {
        return -1;
    }
    if (answer.empty()) {
        ALOGE("failed to get resource value");
        return -1;
    }

    int32_t filled = 0;
    for (ZelClient::Resource& resource : resources) {
        // The first answered entry with the id counts; later ones are ignored.
        auto match = std::find_if(answer.begin(), answer.end(), [&](const DolmRequestData& entry) {
            return entry.id == resource.id;
        });
        if (match == answer.end()) {
            ALOGI("not match any opcode in zelcore");
            continue;
        }
        if (!match->value.has_value()) continue;
        resource.value = *match->value;
        ALOGD("get resource value, opcode 0x%08x, value %s", static_cast<unsigned>(resource.id),
              resource.value->c_str());
        ++filled;
    }
    return filled;
}

void ZelResStateRequest(int32_t id, std::string& value) {
    ALOGI("ZelResStateRequest enter");
    std::vector<ZelClient::Resource> resources{ZelClient::Resource{id, std::string()}};
    if (ZelMutiResStateRequest(resources) != 1) return;
    // The text up to its first NUL, as a C caller would read it.
    value = resources.front().value.value_or(std::string()).c_str();
}

int32_t ZelGetPMStatus(int32_t mode) {
    ALOGI("zel client ZelGetPMStatus");
    if (const int32_t result = zel::connect(); result != 0) return result;

    DolmRequestParcel parcel;
    parcel.requestType = zel::kReqPmStatus;
    parcel.data.resize(1);
    parcel.data.front().id = mode;
    const std::optional<std::vector<DolmRequestData>> answer =
            queryData("ZelGetPMStatus", "zel client hal ZelGetPMStatus", parcel);
    if (!answer.has_value()) return -1;
    if (answer->empty()) {
        ALOGE("failed to get power mode status, mode %d, data vector size %d", mode,
              static_cast<int>(answer->size()));
        return -1;
    }
    // An entry without a value raises std::bad_optional_access to the caller:
    // the one error this library lets cross its boundary.
    const std::string& text = answer->front().value.value();
    try {
        return std::stoi(text);
    } catch (const std::invalid_argument& e) {
        std::cout << "Invalid argument exception: " << e.what() << std::endl;
    } catch (const std::out_of_range& e) {
        std::cout << "Out of range exception: " << e.what() << std::endl;
    }
    return -1;
}
