// Wrapper API: acquire and release by action name, and the notify dispatcher
// that turns state notifications into rule switches of the service.
#define LOG_TAG "[ZEL_CLIENT_WRAPPER]"

#include "ZelWrapper.h"

#include <log/log.h>

#include <string_view>

#include "stringUtils.h"
#include "zel.h"

namespace {

// Framework action names carry this prefix in front of an entry of gActionList.
constexpr const char* kActionPrefix = "TALVEN_";
// The name is what follows the first seven characters, wherever the prefix was
// found: only "TALVEN_" followed by an action name matches in practice.
constexpr size_t kActionNameOffset = 7;

// Rules and resource ids of the notify dispatch.
constexpr int32_t kRuleSharedSources = 200;  // sources 2, 3, 5 and 6
constexpr int32_t kResRuleLevel = 0x010103A0;
constexpr int32_t kResRuleEnable = 0x010112F0;
constexpr int32_t kResRuleBoost = 0x01011070;

const char* orNone(const std::string& text) {
    return text.empty() ? "none" : text.c_str();
}

}  // namespace

int32_t ZelEventAcquireWrapper(const std::string& eventId, const std::string& scene,
                               const std::string& identity, int32_t timeout) {
    const std::vector<ZelClient::Resource> resources;
    ALOGI("[%s] eventId:%s, scene:%s, identity:%s, timeout:%d", "ZelEventAcquireWrapper",
          orNone(eventId), orNone(scene), orNone(identity), timeout);
    // The prefix guarantees at least seven characters before the cut.
    if (!stringUtils::contains(eventId, kActionPrefix)) return -1;
    const std::string_view name = std::string_view(eventId).substr(kActionNameOffset);
    // Exact, case-sensitive comparison; the first copy of a name wins.
    for (size_t position = 0; position < gActionList.size(); ++position) {
        if (gActionList[position] == name) {
            return ZelEventAcquire(static_cast<int32_t>(position), scene, identity, timeout,
                                   resources);
        }
    }
    return -1;
}

void ZelReleaseWapper(int32_t handle) {
    ALOGI("[%s] %d", "ZelReleaseWapper", handle);
    ZelRelease(handle);
}

int32_t ZelNotifyWapper(const std::string& info, int32_t src, int32_t type, int32_t value,
                        int64_t /*unused1*/, int64_t /*unused2*/, const std::string& text) {
    ALOGI("[%s] %s, src:%d, type:%d", "ZelNotifyWapper", orNone(info), src, type);
    const std::vector<ZelClient::Resource> empty;
    // Results of rule control are logged by zelRuleCtl and otherwise dropped.
    switch (src) {
        case 1:
        case 10:
        case 11:
        case 12:
        case 16:
        case 110:
        case 129:
        case 1000:
            zelRuleCtl(src, type, empty);
            break;
        case 2:
        case 3:
        case 5:
        case 6:
            // One rule for the four sources: the source is the status while on.
            zelRuleCtl(kRuleSharedSources, type == 1 ? src : 0, empty);
            break;
        case 8:
            if (type == 0 || type == 2) {
                zelRuleCtl(src, type, {ZelResourceInfo(kResRuleLevel, stringUtils::valueOf(value))});
            }
            break;
        case 9:
            // Switched off with an empty list: the "enable 0" record is not sent.
            if (type == 0) zelRuleCtl(src, type, empty);
            if (type == 1) zelRuleCtl(src, type, {ZelResourceInfo(kResRuleEnable, "enable 1")});
            break;
        case 14:
            if (type == 0) clrGameUpgradeMode(src, type);
            // Called even for an empty text: the list then holds the level only.
            if (type == 1) zelRuleCtl(src, type, getGameUpgradeList(0, 0, value, 0, 0, text));
            break;
        case 15:
            if (type >= -1 && type <= 1) zelRuleCtl(src, type, empty);
            break;
        case 102:
            if (type == 0) zelRuleCtl(src, type, {ZelResourceInfo(kResRuleBoost, "0")});
            if (type == 1) {
                const std::string level =
                        (value == -1 || value == 0) ? "3" : stringUtils::valueOf(value);
                zelRuleCtl(src, type, {ZelResourceInfo(kResRuleBoost, level)});
            }
            break;
        case 111:
            // The record carries the type, not the value.
            if (type >= -1 && type <= 1) {
                zelRuleCtl(src, type, {ZelResourceInfo(kResRuleLevel, stringUtils::valueOf(type))});
            }
            break;
        case 130:
            if (type == 0) zelRuleCtl(src, type, empty);
            if (type == 1 && !text.empty()) zelRuleCtl(src, type, getTargetLoadList(text));
            break;
        case 131:
            if (type == 0) zelRuleCtl(src, type, empty);
            if (type == 1 && !text.empty()) zelRuleCtl(src, type, getColocationList(text));
            break;
        case 9000:
            if (type == 0) zelRuleCtl(src, type, empty);
            if (type == 1 && !text.empty()) zelRuleCtl(src, type, getGameAdpList(text));
            break;
        default:  // no rule for this source
            break;
    }
    return 0;
}
