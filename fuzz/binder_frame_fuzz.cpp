// The runtime's frame decoder: arbitrary bytes as they could arrive on a
// connection. Every frame it accepts decodes to bounded fields and parcels.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <vector>

#include "frame_decoder.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    std::vector<std::vector<uint8_t>> parcels;
    const size_t frames = binder_host::decodeFrames(data, size, &parcels);
    // Every frame takes its 8-byte header, and a parcel lies inside its frame.
    size_t parcelBytes = 0;
    for (const std::vector<uint8_t>& parcel : parcels) parcelBytes += parcel.size();
    if (frames * 8 > size || parcels.size() > frames || parcelBytes > size) abort();
    return 0;
}
