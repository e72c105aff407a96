// The simulator's configuration: the resource table, the sub-systems, the
// action map, power-mode answers and the starting properties.
#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

namespace dolmsim {

/** How the values of concurrent requests on one resource combine. */
enum class Combine { kHighest, kLowest, kLatest };

const char* combineName(Combine combine);

struct ResourceSpec {
    int32_t id = 0;
    std::optional<std::string> path;
    std::string name;
    /** Numeric resources take decimal values within [min, max]; text resources take any text. */
    bool numeric = true;
    int64_t min = 0;
    int64_t max = 0;
    std::string defaultValue;
    Combine combine = Combine::kLatest;
};

struct ResourceSetting {
    int32_t id = 0;
    std::string value;
};

/** A sub-system or an action: a number that stands for a set of resource values. */
struct ResourceSet {
    int32_t id = 0;
    std::string name;
    std::vector<ResourceSetting> settings;
};

struct SimConfig {
    std::vector<ResourceSpec> resources;
    std::vector<ResourceSet> subsystems;
    std::vector<ResourceSet> actions;
    /** Power-mode status per mode; the property "dolm.pm.<mode>" takes precedence. */
    std::map<int32_t, int32_t> powerModes;
    int32_t powerModeDefault = 0;
    std::map<std::string, std::string> properties;
};

/** The built-in table: the ids the wrapper layer sends, a few paths and an action map. */
SimConfig defaultConfig();

/**
 * Reads a JSON configuration file. On failure returns nullopt and puts one
 * readable sentence into `error` (file, position or field, and what is wrong).
 */
std::optional<SimConfig> loadConfig(const std::string& file, std::string& error);

/** Parses "0x1A2B" or "6699" (also negative decimals); false when it is not a 32-bit number. */
bool parseId(const std::string& text, int32_t& id);

}  // namespace dolmsim
