// Private: the runtime's frame decoder on its own, without sockets or peers,
// so that it can be fed arbitrary bytes (the fuzz target does).
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

namespace binder_host {

/**
 * Reads \p data as the byte stream a connection receives and decodes each
 * complete frame as its receiver does: the header, the message's fields, and
 * for transactions and replies the parcel with its object table (endpoint
 * keys validated, nothing resolved). Stops at the first malformed frame or
 * at an incomplete one. Returns the number of frames decoded; when
 * \p parcels is not null, appends the data of each decoded parcel to it.
 */
size_t decodeFrames(const uint8_t* data, size_t size, std::vector<std::vector<uint8_t>>* parcels);

}  // namespace binder_host
