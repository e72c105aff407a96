/*
 * Helpers for suites that check what the fake service received: entry
 * builders, readable printing of request entries, and waiting for a condition
 * that another thread brings about.
 */
#pragma once

#include <aidl/vendor/tarvo/hardware/dolm/DolmRequestData.h>

#include <chrono>
#include <cstdint>
#include <optional>
#include <ostream>
#include <string>
#include <thread>

namespace aidl::vendor::tarvo::hardware::dolm {

// The generated record has no comparison; tests compare every field, each
// optional text with its presence.
inline bool operator==(const DolmRequestData& lhs, const DolmRequestData& rhs) {
    return lhs.id == rhs.id && lhs.param == rhs.param && lhs.value == rhs.value &&
           lhs.path == rhs.path && lhs.extra == rhs.extra;
}
inline bool operator!=(const DolmRequestData& lhs, const DolmRequestData& rhs) {
    return !(lhs == rhs);
}

/** Prints an entry as {id, param, value, path, extra}, absent texts as "<absent>". */
inline void PrintTo(const DolmRequestData& entry, std::ostream* os) {
    const auto text = [](const std::optional<std::string>& s) {
        return s.has_value() ? "\"" + *s + "\"" : std::string("<absent>");
    };
    *os << "{id 0x" << std::hex << entry.id << std::dec << ", param " << entry.param << ", value "
        << text(entry.value) << ", path " << text(entry.path) << ", extra " << text(entry.extra)
        << "}";
}

}  // namespace aidl::vendor::tarvo::hardware::dolm

namespace zeltest {

/** An entry with `id`, `param` and `value`; path and extra absent. */
inline ::aidl::vendor::tarvo::hardware::dolm::DolmRequestData entry(
        int32_t id, std::optional<std::string> value = std::nullopt, int32_t param = 0) {
    ::aidl::vendor::tarvo::hardware::dolm::DolmRequestData data;
    data.id = id;
    data.param = param;
    data.value = std::move(value);
    return data;
}

/**
 * Waits until `condition` holds, checking it every millisecond; false when it
 * still does not hold after `timeout`.
 */
template <typename Condition>
bool waitUntil(Condition condition, std::chrono::milliseconds timeout = std::chrono::seconds(5)) {
    const auto deadline = std::chrono::steady_clock::now() + timeout;
    while (!condition()) {
        if (std::chrono::steady_clock::now() >= deadline) return false;
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    return true;
}

}  // namespace zeltest
