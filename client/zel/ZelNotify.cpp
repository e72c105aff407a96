// Event API: notify, rule control and related system information.
#define LOG_TAG "[ZEL_CLIENT]"

#include <log/log.h>

#include "zel.h"
#include "zel/ZelConnection.h"

using ::aidl::vendor::tarvo::hardware::dolm::DolmRequestData;
using ::aidl::vendor::tarvo::hardware::dolm::DolmRequestParcel;
using ::aidl::vendor::tarvo::hardware::dolm::IDolm;

int32_t ZelNotify(int32_t notifyId, int32_t notifyParam, const std::vector<int32_t>& values) {
    ALOGI("ZelNotify enter");
    int32_t out = -1;
    if (const int32_t result = zel::connect(); result != 0) return result;

    // One entry per value, at least one. The values themselves are not sent:
    // the tag list stays absent, as the service expects.
    DolmRequestParcel parcel;
    parcel.requestType = zel::kReqNotify;
    DolmRequestData entry;
    entry.id = notifyId;
    entry.param = notifyParam;
    parcel.data.assign(values.empty() ? 1 : values.size(), entry);

    return zel::callForResult("ZelNotify", out,
                              [&](IDolm& hal) { return hal.request(parcel, &out); });
}

int32_t zelRuleCtl(int32_t ruleId, int32_t status,
                   const std::vector<ZelClient::Resource>& resources) {
    ALOGI("zelRuleCtl, ruleId:%d, status:%d", ruleId, status);
    int32_t out = -1;
    if (const int32_t result = zel::connect(); result != 0) return result;
    const std::vector<DolmRequestData> data = zel::resourceEntries(resources);
    return zel::callForResult("zelRuleCtl", out,
                              [&](IDolm& hal) { return hal.ruleCtl(ruleId, status, data, &out); });
}

int32_t setRelatedSysInfo(int32_t type, const std::string& info) {
    int32_t out = -1;
    if (const int32_t result = zel::connect(); result != 0) return result;
    return zel::callForResult("setRelatedSysInfo", out,
                              [&](IDolm& hal) { return hal.setRelatedSysInfo(type, info, &out); });
}
