// Resource list builders: notification texts to lists of ZelClient::Resource,
// each id taken from a fixed opcode or, position by position, from an opcode
// table. Pure functions; they never log.
#include <iterator>
#include <optional>

#include "ZelWrapper.h"
#include "stringUtils.h"
#include "zel.h"

namespace {

// Resource ids the builders and the game-mode reset send.
constexpr int32_t kResColocation = 0x01011040;  // also the game upgrade level
constexpr int32_t kResGroupMigrateUp = 0x01010FB0;
constexpr int32_t kResGroupMigrateDown = 0x01010FC0;
constexpr int32_t kResGameUpgradeText = 0x010115B0;

// The opcode table of each group of a game adaptation text, in group order.
const int32_t (*const kAdpTables[])[4] = {&opCodeAdpXpuCoreBoost, &opCodeAdpXpuCoreLimit,
                                          &opCodeAdpXpuFreqBoost, &opCodeAdpXpuFreqLimit};

// Appends (table[i], values[i]) for every value that has a table entry; the
// surplus values of a text longer than the table are ignored.
template <size_t N, typename ValueOf>
void appendByPosition(std::vector<ZelClient::Resource>& list, const int32_t (&table)[N],
                      size_t count, ValueOf valueOf) {
    for (size_t i = 0; i < count && i < N; ++i) {
        if (auto value = valueOf(i)) list.push_back(ZelResourceInfo(table[i], *value));
    }
}

}  // namespace

ZelClient::Resource ZelResourceInfo(int32_t id, const std::string& value) {
    return ZelClient::Resource{id, value};
}

std::vector<ZelClient::Resource> getTargetLoadList(const std::string& text) {
    std::vector<ZelClient::Resource> list;
    if (text.empty()) return list;
    const std::vector<std::string> fields = stringUtils::split(text, ",");
    // A "-" anywhere selects the paired form "k-v,...", where only the position
    // of a field chooses the id. So a plain list holding "-1" is read as paired
    // and yields nothing, and no "-1" field ever reaches the plain form.
    const bool paired = stringUtils::contains(text, "-");
    appendByPosition(list, opCodeTargetLoad, fields.size(),
                     [&](size_t i) -> std::optional<std::string> {
                         if (!paired) return fields[i];
                         std::vector<std::string> parts = stringUtils::split(fields[i], "-");
                         if (parts.size() < 2) return std::nullopt;
                         return std::move(parts[1]);
                     });
    return list;
}

std::vector<ZelClient::Resource> getColocationList(const std::string& text) {
    std::vector<ZelClient::Resource> list;
    if (!stringUtils::contains(text, ":")) return list;
    for (const std::string& field : stringUtils::split(text, ",")) {
        const std::vector<std::string> pair = stringUtils::split(field, ":");
        if (pair.size() < 2) continue;
        const std::string& key = pair[0];
        const std::string& value = pair[1];
        if (key == "colocation") {
            list.push_back(ZelResourceInfo(kResColocation, value));
        } else if (key == "groupmigrate" && stringUtils::contains(value, "-")) {
            const std::vector<std::string> bounds = stringUtils::split(value, "-");
            if (bounds.size() < 2) continue;
            const int32_t first = stringUtils::parseInt(bounds[0]);
            const int32_t second = stringUtils::parseInt(bounds[1]);
            if (first > second && first != -1 && second != -1) {
                list.push_back(ZelResourceInfo(kResGroupMigrateUp, stringUtils::valueOf(first)));
                list.push_back(ZelResourceInfo(kResGroupMigrateDown, stringUtils::valueOf(second)));
            }
        }
    }
    return list;
}

std::vector<ZelClient::Resource> getGameAdpList(const std::string& text) {
    std::vector<ZelClient::Resource> list;
    if (text.empty()) return list;
    const std::vector<std::string> groups = stringUtils::split(text, ";");
    for (size_t g = 0; g < groups.size(); ++g) {
        // A group needs a ",", even when it holds a single value; a fifth
        // group and later ones are ignored.
        if (!stringUtils::contains(groups[g], ",")) continue;
        const std::vector<std::string> values = stringUtils::split(groups[g], ",");
        const auto trimmed = [&](size_t j) -> std::optional<std::string> {
            return stringUtils::trim(values[j], stringUtils::WHITESPACE);
        };
        if (g < std::size(kAdpTables)) {
            appendByPosition(list, *kAdpTables[g], values.size(), trimmed);
        }
    }
    return list;
}

std::vector<ZelClient::Resource> getGameUpgradeList(int32_t /*unused1*/, int32_t /*unused2*/,
                                                    int32_t level, int32_t /*unused3*/,
                                                    int32_t /*unused4*/, const std::string& text) {
    std::vector<ZelClient::Resource> list;
    if (level >= 1) list.push_back(ZelResourceInfo(kResColocation, stringUtils::valueOf(level)));
    if (!text.empty()) list.push_back(ZelResourceInfo(kResGameUpgradeText, text));
    return list;
}

void clrGameUpgradeMode(int32_t ruleId, int32_t status) {
    const std::vector<ZelClient::Resource> list{ZelResourceInfo(kResColocation, "-1"),
                                                ZelResourceInfo(kResColocation, "")};
    zelRuleCtl(ruleId, status, list);
}
