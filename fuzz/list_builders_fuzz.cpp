// The resource list builders over arbitrary texts. Every record they make has
// its value present, and no builder makes more records than its text can hold.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>
#include <vector>

#include "ZelWrapper.h"

namespace {

void checkList(const std::vector<ZelClient::Resource>& list, size_t bound) {
    if (list.size() > bound) abort();
    for (const ZelClient::Resource& resource : list) {
        if (!resource.value.has_value()) abort();
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size < 1) return 0;
    const int32_t level = static_cast<int32_t>(data[0]) - 0x80;  // -128 to 127
    const std::string text(reinterpret_cast<const char*>(data + 1), size - 1);
    // One record per field at most (three load targets, 4 groups of 4 cores).
    checkList(getTargetLoadList(text), 3);
    checkList(getColocationList(text), 2 * (text.size() + 1));
    checkList(getGameAdpList(text), 16);
    checkList(getGameUpgradeList(0, 0, level, 0, 0, text), 2);
    return 0;
}
