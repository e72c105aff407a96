// Event API: zelInit, event and resource acquire, release.
#define LOG_TAG "[ZEL_CLIENT]"

#include <cutils/trace.h>
#include <log/log.h>

#include <cstdio>

#include "zel.h"
#include "zel/ZelConnection.h"

using ::aidl::vendor::tarvo::hardware::dolm::DolmRequestData;
using ::aidl::vendor::tarvo::hardware::dolm::DolmRequestParcel;
using ::aidl::vendor::tarvo::hardware::dolm::IDolm;

namespace {

// Emits an instant trace marker on the always-on category: the section carries
// the request's description and ends at once, so it does not span the call.
void traceInstant(const char* name) {
    atrace_begin(ATRACE_TAG_ALWAYS, name);
    atrace_end(ATRACE_TAG_ALWAYS);
}

DolmRequestData resourceEntry(const ZelClient::Resource& resource) {
    DolmRequestData entry;
    entry.id = resource.id;
    // A resource without a value still sends a present (empty) value.
    entry.value = resource.value.value_or(std::string());
    return entry;
}

DolmRequestParcel eventParcel(int32_t cmdId, const std::string& pkg, const std::string& identity,
                              int32_t timeout, const std::vector<ZelClient::Resource>& resources) {
    DolmRequestParcel parcel;
    parcel.requestType = zel::kReqEvent;
    parcel.identity = identity;
    parcel.timeout = timeout;
    parcel.pkg = pkg;
    if (cmdId == ZEL_CMD_PLATFORM_RES_ACQUIRE) {
        parcel.requestType = zel::kReqPlatformRes;
    } else if (cmdId == ZEL_CMD_RES_ACQUIRE) {
        parcel.requestType = zel::kReqResCtl;
    } else {
        DolmRequestData command;
        command.id = cmdId;
        parcel.data.reserve(resources.size() + 1);
        parcel.data.push_back(std::move(command));
    }
    for (const ZelClient::Resource& resource : resources) {
        parcel.data.push_back(resourceEntry(resource));
    }
    return parcel;
}

}  // namespace

namespace zel {

std::vector<DolmRequestData> resourceEntries(const std::vector<ZelClient::Resource>& resources) {
    std::vector<DolmRequestData> entries;
    entries.reserve(resources.size());
    for (const ZelClient::Resource& resource : resources)
        entries.push_back(resourceEntry(resource));
    return entries;
}

}  // namespace zel

int32_t zelInit() {
    // Kept at ERROR level so that it shows in default log filters.
    ALOGE("zelInit enter");
    if (const int32_t result = zel::connect(); result != 0) return result;
    switch (zel::callService("dolm_init", [](IDolm& hal) { return hal.init(); })) {
        case zel::CallResult::kNoProxy:
            ALOGE("g_zel_hal is null");
            return -1;
        case zel::CallResult::kFailed:
            return -2;
        case zel::CallResult::kOk:
            break;
    }
    return 0;
}

int32_t ZelEventAcquire(int32_t cmdId, const std::string& pkg, const std::string& identity,
                        int32_t timeout, const std::vector<ZelClient::Resource>& resources) {
    // Formatted in one go into a zero-filled stack buffer; names longer than
    // the buffer are cut. The description starts with a blank, so two blanks
    // follow the function name.
    char traceName[ZEL_TRACE_BUFFER_SIZE] = {};
    snprintf(traceName, sizeof(traceName),
             "ZelEventAcquire  cmd_id:%d pkg:%s identity:%s duration:%d", cmdId, zel::orNone(pkg),
             zel::orNone(identity), timeout);
    traceInstant(traceName);
    ALOGI("ZelEventAcquire, cmdid:%d, pkg:%s, identity:%s", cmdId, zel::orNone(pkg),
          zel::orNone(identity));

    int32_t handle = -1;
    if (const int32_t result = zel::connect(); result != 0) return result;
    const DolmRequestParcel parcel = eventParcel(cmdId, pkg, identity, timeout, resources);
    const zel::CallResult called = zel::callService(
            "ZelEventAcquire", [&](IDolm& hal) { return hal.request(parcel, &handle); });
    if (called == zel::CallResult::kFailed) ALOGE("dolmResCtlRequest error:%d", handle);
    return called == zel::CallResult::kOk ? handle : -1;
}

int32_t ZelResAcquire(const std::vector<ZelClient::Resource>& resources, void* /*unused*/,
                      const std::string& identity, int32_t timeout) {
    ALOGI("ZelResAcquire");
    return ZelEventAcquire(ZEL_CMD_RES_ACQUIRE, std::string(), identity, timeout, resources);
}

int32_t ZelPlatformResAcquire(const std::vector<ZelClient::Resource>& resources, void* /*unused*/,
                              const std::string& identity, const std::string& pkg, int32_t timeout) {
    ALOGI("ZelPlatformResAcquire");
    return ZelEventAcquire(ZEL_CMD_PLATFORM_RES_ACQUIRE, pkg, identity, timeout, resources);
}

void ZelRelease(int32_t handle) {
    char traceName[ZEL_TRACE_BUFFER_SIZE] = {};
    snprintf(traceName, sizeof(traceName), "ZelRelease: %d", handle);
    traceInstant(traceName);
    ALOGI("ZelRelease, handle:%d", handle);

    if (zel::connect() != 0) return;
    int32_t result = -1;  // the service's answer is not looked at
    if (zel::callService("dolmResCtlRelease", [&](IDolm& hal) {
            return hal.release(handle, &result);
        }) == zel::CallResult::kNoProxy) {
        ALOGE("ZelRelease g_zel_hal is null");
    }
}
