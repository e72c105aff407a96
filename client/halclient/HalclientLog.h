/*
 * Log tags and helpers of the resource-control client. The request functions
 * and the connection log under the upper-case tag; the callback client and
 * its removal from the request registry under the mixed-case one. The two
 * differ on purpose and must stay apart.
 */
#pragma once

#include <android/log.h>

namespace halclient {

/** Tag of the connection and of every dolmHalclient function. */
inline constexpr const char* kLogTag = "DOLMFramework-lib-vendor";
/** Tag of the callback client and of the request-callback removal. */
inline constexpr const char* kCallbackLogTag = "DolmFramework-lib-vendor";

}  // namespace halclient

#define DOLM_LOGI(...) __android_log_print(ANDROID_LOG_INFO, ::halclient::kLogTag, __VA_ARGS__)
#define DOLM_LOGE(...) __android_log_print(ANDROID_LOG_ERROR, ::halclient::kLogTag, __VA_ARGS__)
#define DOLM_CB_LOGI(...) \
    __android_log_print(ANDROID_LOG_INFO, ::halclient::kCallbackLogTag, __VA_ARGS__)
#define DOLM_CB_LOGE(...) \
    __android_log_print(ANDROID_LOG_ERROR, ::halclient::kCallbackLogTag, __VA_ARGS__)
