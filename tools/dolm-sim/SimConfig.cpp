#include "SimConfig.h"

#include <cerrno>
#include <climits>
#include <cstdlib>
#include <fstream>
#include <nlohmann/json.hpp>
#include <set>
#include <stdexcept>

namespace dolmsim {
namespace {

using nlohmann::json;

// Frequencies are in kHz, so one range suits every numeric resource of the table.
constexpr int64_t kFreqMax = 4000000;

ResourceSpec numeric(int32_t id, const char* name, Combine combine, int64_t min, int64_t max,
                     int64_t defaultValue, const char* path = nullptr) {
    ResourceSpec spec;
    spec.id = id;
    spec.name = name;
    spec.combine = combine;
    spec.min = min;
    spec.max = max;
    spec.defaultValue = std::to_string(defaultValue);
    if (path != nullptr) spec.path = path;
    return spec;
}

ResourceSpec text(int32_t id, const char* name, const char* defaultValue) {
    ResourceSpec spec;
    spec.id = id;
    spec.name = name;
    spec.numeric = false;
    spec.defaultValue = defaultValue;
    return spec;
}

// A configuration error names where it is; thrown inside the loader only.
struct ConfigError : std::runtime_error {
    using std::runtime_error::runtime_error;
};

int32_t idOf(const json& value, const std::string& where) {
    int32_t id = 0;
    if (value.is_number_integer()) {
        const auto number = value.get<int64_t>();
        if (number < INT32_MIN || number > INT32_MAX) {
            throw ConfigError(where + ": id out of range");
        }
        return static_cast<int32_t>(number);
    }
    if (value.is_string() && parseId(value.get<std::string>(), id)) return id;
    throw ConfigError(where + ": expected an id (number, or text such as \"0x01010B10\")");
}

std::string textOf(const json& value, const std::string& where) {
    if (value.is_string()) return value.get<std::string>();
    if (value.is_number_integer()) return std::to_string(value.get<int64_t>());
    throw ConfigError(where + ": expected a text or an integer");
}

int64_t integerOf(const json& value, const std::string& where) {
    if (!value.is_number_integer()) throw ConfigError(where + ": expected an integer");
    return value.get<int64_t>();
}

Combine combineOf(const json& value, const std::string& where) {
    const std::string name = value.is_string() ? value.get<std::string>() : "";
    if (name == "highest") return Combine::kHighest;
    if (name == "lowest") return Combine::kLowest;
    if (name == "latest") return Combine::kLatest;
    throw ConfigError(where + ": combine must be \"highest\", \"lowest\" or \"latest\"");
}

ResourceSpec resourceOf(const json& entry, const std::string& where) {
    if (!entry.is_object()) throw ConfigError(where + ": expected an object");
    ResourceSpec spec;
    if (!entry.contains("id")) throw ConfigError(where + ": missing \"id\"");
    spec.id = idOf(entry.at("id"), where + ".id");
    spec.name = entry.contains("name") ? textOf(entry.at("name"), where + ".name") : "";
    if (entry.contains("path")) spec.path = textOf(entry.at("path"), where + ".path");
    const std::string type =
            entry.contains("type") ? textOf(entry.at("type"), where + ".type") : "int";
    if (type != "int" && type != "text") {
        throw ConfigError(where + ".type: must be \"int\" or \"text\"");
    }
    spec.numeric = type == "int";
    spec.combine = entry.contains("combine") ? combineOf(entry.at("combine"), where + ".combine")
                                             : Combine::kLatest;
    if (!spec.numeric) {
        if (spec.combine != Combine::kLatest) {
            throw ConfigError(where + ".combine: text resources combine as \"latest\"");
        }
        spec.defaultValue =
                entry.contains("default") ? textOf(entry.at("default"), where + ".default") : "";
        return spec;
    }
    spec.min = entry.contains("min") ? integerOf(entry.at("min"), where + ".min") : 0;
    spec.max = entry.contains("max") ? integerOf(entry.at("max"), where + ".max") : INT32_MAX;
    const int64_t defaultValue = entry.contains("default")
                                         ? integerOf(entry.at("default"), where + ".default")
                                         : spec.min;
    if (spec.min > spec.max || defaultValue < spec.min || defaultValue > spec.max) {
        throw ConfigError(where + ": needs min <= default <= max");
    }
    spec.defaultValue = std::to_string(defaultValue);
    return spec;
}

ResourceSet setOf(const json& entry, const char* idKey, const std::string& where) {
    if (!entry.is_object()) throw ConfigError(where + ": expected an object");
    if (!entry.contains(idKey)) throw ConfigError(where + ": missing \"" + idKey + "\"");
    ResourceSet set;
    set.id = idOf(entry.at(idKey), where + "." + idKey);
    set.name = entry.contains("name") ? textOf(entry.at("name"), where + ".name") : "";
    if (!entry.contains("resources") || !entry.at("resources").is_object()) {
        throw ConfigError(where + ": \"resources\" must be an object of id: value");
    }
    for (const auto& [key, value] : entry.at("resources").items()) {
        int32_t id = 0;
        std::string place = where + ".resources.";
        place += key;
        if (!parseId(key, id)) throw ConfigError(place + ": bad id");
        set.settings.push_back({id, textOf(value, place)});
    }
    return set;
}

// Every value a sub-system or an action sets must be one a request could set.
void checkSettings(const SimConfig& config, const std::vector<ResourceSet>& sets,
                   const std::string& section) {
    for (const ResourceSet& set : sets) {
        for (const ResourceSetting& setting : set.settings) {
            const ResourceSpec* spec = nullptr;
            for (const ResourceSpec& candidate : config.resources) {
                if (candidate.id == setting.id) spec = &candidate;
            }
            const std::string where = section + " " + std::to_string(set.id);
            if (spec == nullptr) {
                throw ConfigError(where + ": resource " + std::to_string(setting.id) +
                                  " is not in the resource table");
            }
            if (!spec->numeric) continue;
            char* end = nullptr;
            errno = 0;
            const long long value = strtoll(setting.value.c_str(), &end, 10);
            if (setting.value.empty() || *end != '\0' || errno != 0 || value < spec->min ||
                value > spec->max) {
                throw ConfigError(where + ": value \"" + setting.value + "\" outside " +
                                  spec->name + "'s range");
            }
        }
    }
}

SimConfig configOf(const json& root) {
    if (!root.is_object()) throw ConfigError("top level: expected an object");
    for (const auto& [key, value] : root.items()) {
        static const std::set<std::string> kKnown = {"resources",  "subsystems",
                                                     "actions",    "power_modes",
                                                     "properties", "power_mode_default"};
        if (kKnown.count(key) == 0) throw ConfigError("top level: unknown key \"" + key + "\"");
    }
    SimConfig config;
    if (!root.contains("resources") || !root.at("resources").is_array()) {
        throw ConfigError("\"resources\" must be an array");
    }
    std::set<int32_t> ids;
    const json& resources = root.at("resources");
    for (size_t i = 0; i < resources.size(); ++i) {
        ResourceSpec spec = resourceOf(resources[i], "resources[" + std::to_string(i) + "]");
        if (!ids.insert(spec.id).second) {
            throw ConfigError("resources[" + std::to_string(i) + "]: id listed twice");
        }
        config.resources.push_back(std::move(spec));
    }
    const std::pair<const char*, std::vector<ResourceSet>*> sections[] = {
            {"subsystems", &config.subsystems}, {"actions", &config.actions}};
    for (const auto& [section, sets] : sections) {
        if (!root.contains(section)) continue;
        const json& list = root.at(section);
        if (!list.is_array())
            throw ConfigError(std::string("\"") + section + "\" must be an array");
        for (size_t i = 0; i < list.size(); ++i) {
            sets->push_back(setOf(list[i], sets == &config.actions ? "cmd" : "id",
                                  std::string(section) + "[" + std::to_string(i) + "]"));
        }
        checkSettings(config, *sets, section);
    }
    if (root.contains("power_modes")) {
        if (!root.at("power_modes").is_object()) {
            throw ConfigError("\"power_modes\" must be an object of mode: status");
        }
        for (const auto& [key, value] : root.at("power_modes").items()) {
            int32_t mode = 0;
            if (!parseId(key, mode)) throw ConfigError("power_modes: bad mode \"" + key + "\"");
            config.powerModes[mode] = static_cast<int32_t>(integerOf(value, "power_modes." + key));
        }
    }
    if (root.contains("power_mode_default")) {
        config.powerModeDefault = static_cast<int32_t>(
                integerOf(root.at("power_mode_default"), "power_mode_default"));
    }
    if (root.contains("properties")) {
        if (!root.at("properties").is_object()) {
            throw ConfigError("\"properties\" must be an object of key: text");
        }
        for (const auto& [key, value] : root.at("properties").items()) {
            config.properties[key] = textOf(value, "properties." + key);
        }
    }
    return config;
}

}  // namespace

const char* combineName(Combine combine) {
    switch (combine) {
        case Combine::kHighest:
            return "highest";
        case Combine::kLowest:
            return "lowest";
        case Combine::kLatest:
            return "latest";
    }
    return "latest";
}

bool parseId(const std::string& text, int32_t& id) {
    if (text.empty()) return false;
    const bool hex = text.size() > 2 && text[0] == '0' && (text[1] == 'x' || text[1] == 'X');
    char* end = nullptr;
    errno = 0;
    if (hex) {
        const unsigned long long value = strtoull(text.c_str() + 2, &end, 16);
        if (*end != '\0' || errno != 0 || value > UINT32_MAX || text[2] == '-' || text[2] == '+') {
            return false;
        }
        id = static_cast<int32_t>(static_cast<uint32_t>(value));
        return true;
    }
    const long long value = strtoll(text.c_str(), &end, 10);
    if (*end != '\0' || errno != 0 || value < INT32_MIN || value > INT32_MAX) return false;
    id = static_cast<int32_t>(value);
    return true;
}

SimConfig defaultConfig() {
    SimConfig config;
    const auto H = Combine::kHighest;
    const auto L = Combine::kLowest;
    const auto T = Combine::kLatest;
    config.resources = {
            numeric(0x010108A0, "target_load_cluster0", T, 0, 100, 80),
            numeric(0x010108B0, "target_load_cluster1", T, 0, 100, 80),
            numeric(0x010108C0, "target_load_cluster2", T, 0, 100, 80),
            numeric(0x01010B10, "core_boost_cluster0", H, 0, kFreqMax, 0),
            numeric(0x01010B20, "core_boost_cluster1", H, 0, kFreqMax, 0),
            numeric(0x01010B30, "core_boost_cluster2", H, 0, kFreqMax, 0),
            numeric(0x01020070, "core_boost_gpu", H, 0, kFreqMax, 0),
            numeric(0x01010B90, "core_limit_cluster0", L, 0, kFreqMax, kFreqMax),
            numeric(0x01010BA0, "core_limit_cluster1", L, 0, kFreqMax, kFreqMax),
            numeric(0x01010BB0, "core_limit_cluster2", L, 0, kFreqMax, kFreqMax),
            numeric(0x01020080, "core_limit_gpu", L, 0, kFreqMax, kFreqMax),
            numeric(0x01010010, "freq_min_cluster0", H, 0, kFreqMax, 0,
                    "/sys/devices/system/cpu/cpufreq/policy0/scaling_min_freq"),
            numeric(0x01010020, "freq_min_cluster1", H, 0, kFreqMax, 0,
                    "/sys/devices/system/cpu/cpufreq/policy4/scaling_min_freq"),
            numeric(0x01010030, "freq_min_cluster2", H, 0, kFreqMax, 0,
                    "/sys/devices/system/cpu/cpufreq/policy7/scaling_min_freq"),
            numeric(0x01020050, "freq_min_gpu", H, 0, kFreqMax, 0,
                    "/sys/class/devfreq/gpu/min_freq"),
            numeric(0x010100A0, "freq_max_cluster0", L, 0, kFreqMax, kFreqMax,
                    "/sys/devices/system/cpu/cpufreq/policy0/scaling_max_freq"),
            numeric(0x010100B0, "freq_max_cluster1", L, 0, kFreqMax, kFreqMax),
            numeric(0x010100C0, "freq_max_cluster2", L, 0, kFreqMax, kFreqMax),
            numeric(0x01020060, "freq_max_gpu", L, 0, kFreqMax, kFreqMax,
                    "/sys/class/devfreq/gpu/max_freq"),
            text(0x01011040, "game_colocation", ""),
            text(0x010115B0, "game_upgrade_info", ""),
            numeric(0x01010FB0, "group_migrate_up", T, 0, 100, 0),
            numeric(0x01010FC0, "group_migrate_down", T, 0, 100, 0),
            numeric(0x010103A0, "sched_boost", H, -1, 100, 0),
            text(0x010112F0, "frame_boost", "enable 0"),
            numeric(0x01011070, "ddr_boost_level", H, 0, 10, 0,
                    "/sys/class/devfreq/ddr/boost_level"),
    };
    config.subsystems = {
            {1, "cpu_performance", {{0x01010010, "1800000"}, {0x01010020, "2400000"}}},
            {2, "gpu_performance", {{0x01020050, "600000"}}},
    };
    config.actions = {
            {0, "ACTION_LAUNCH", {{0x01010010, "1800000"}, {0x01010020, "2400000"}}},
            {1,
             "ACTION_COLD_LAUNCH",
             {{0x01010010, "2000000"}, {0x01010020, "2800000"}, {0x01011070, "3"}}},
            {6, "ACTION_SWIPE_V", {{0x01010010, "1200000"}, {0x01020050, "400000"}}},
            {11, "ACTION_CAMERA_OPEN", {{0x01010B10, "4"}, {0x01011070, "2"}}},
            {37, "ACTION_TOUCH_BOOST", {{0x01010010, "1400000"}}},
    };
    config.powerModes = {{0, 1}, {1, 2}, {2, 3}};
    config.properties = {{"vendor.dolm.version", "1"}};
    return config;
}

std::optional<SimConfig> loadConfig(const std::string& file, std::string& error) {
    std::ifstream in(file);
    if (!in) {
        error = file + ": cannot be read";
        return std::nullopt;
    }
    try {
        return configOf(json::parse(in, nullptr, true, true));
    } catch (const json::parse_error& e) {
        error = file + ": not valid JSON (" + e.what() + ")";
    } catch (const ConfigError& e) {
        error = file + ": " + e.what();
    } catch (const json::exception& e) {
        error = file + ": " + e.what();
    }
    return std::nullopt;
}

}  // namespace dolmsim
