/*
 * Text descriptions of the IDolm records, written as templates so that the
 * same code describes our interface library's records in the test process
 * and the aidl compiler's records in the cross-check peer. Absent and
 * present-empty are told apart ("null" versus "").
 */
#pragma once

#include <cstdint>
#include <optional>
#include <sstream>
#include <string>
#include <vector>

namespace zeltest {

inline std::string describe(int32_t v) {
    return std::to_string(v);
}
inline std::string describe(int64_t v) {
    return std::to_string(v);
}
inline std::string describe(bool v) {
    return v ? "true" : "false";
}
inline std::string describe(const std::string& v) {
    return "\"" + v + "\"";
}
template <typename T>
std::string describe(const std::optional<T>& v);
template <typename T>
std::string describe(const std::vector<T>& v);

template <typename T>
std::string describe(const std::optional<T>& v) {
    return v.has_value() ? describe(*v) : "null";
}

template <typename T>
std::string describe(const std::vector<T>& v) {
    std::string text = "[";
    for (size_t i = 0; i < v.size(); ++i) text += (i != 0 ? "," : "") + describe(v[i]);
    return text + "]";
}

template <typename Data>
std::string describeData(const Data& d) {
    return "{id=" + describe(d.id) + " param=" + describe(d.param) + " value=" + describe(d.value) +
           " path=" + describe(d.path) + " extra=" + describe(d.extra) + "}";
}

template <typename Data>
std::string describeDataList(const std::vector<Data>& list) {
    std::string text = "[";
    for (size_t i = 0; i < list.size(); ++i) text += (i != 0 ? "," : "") + describeData(list[i]);
    return text + "]";
}

template <typename Parcel>
std::string describeParcel(const Parcel& p) {
    return "{requestType=" + describe(p.requestType) + " data=" + describeDataList(p.data) +
           " flag=" + describe(p.flag) + " option=" + describe(p.option) +
           " clientArg=" + describe(p.clientArg) + " timeout=" + describe(p.timeout) +
           " tags=" + describe(p.tags) + " leadArg=" + describe(p.leadArg) +
           " callback=" + (p.callback != nullptr ? "set" : "null") + " pkg=" + describe(p.pkg) +
           " identity=" + describe(p.identity) + " numbers=" + describe(p.numbers) + "}";
}

/** What the cross-check peer answers to request(): type * 100 + entries, wrapping. */
inline int32_t peerRequestAnswer(int32_t requestType, size_t entries) {
    return static_cast<int32_t>(static_cast<uint32_t>(requestType) * 100u +
                                static_cast<uint32_t>(entries));
}

}  // namespace zeltest
