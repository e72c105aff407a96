/*
 * Chief public header of libtarvo-zel-client: the id- and path-addressed
 * resource-control client (namespace dolmHalclient), the resource element
 * shared with the event and wrapper layers, the caller-facing callback
 * interfaces and the callback registries.
 */
#pragma once

#include <cstdint>
#include <optional>
#include <string>

namespace ZelClient {

/**
 * One element of a resource list: a resource id and the value to set, as
 * text. An id of 0 marks an entry that carries no value. A resource without a
 * value is sent to the service with a present but empty value text.
 */
struct Resource {
    int32_t id = 0;
    std::optional<std::string> value;
};

}  // namespace ZelClient
