/*
 * Request records that exercise every field and every presence case of
 * DolmRequestParcel and DolmRequestData: absent versus present-empty texts,
 * null versus empty lists, null entries inside a list, negative and extreme
 * numbers, order of entries.
 */
#pragma once

#include <aidl/vendor/tarvo/hardware/dolm/DolmRequestParcel.h>

#include <cstdint>
#include <limits>
#include <string>
#include <utility>
#include <vector>

namespace zeltest {

using ::aidl::vendor::tarvo::hardware::dolm::DolmRequestData;
using ::aidl::vendor::tarvo::hardware::dolm::DolmRequestParcel;

inline DolmRequestData makeData(int32_t id, int32_t param, std::optional<std::string> value,
                                std::optional<std::string> path = std::nullopt,
                                std::optional<std::string> extra = std::nullopt) {
    return {id, param, std::move(value), std::move(path), std::move(extra)};
}

struct ParcelCase {
    const char* name;
    DolmRequestParcel parcel;
};

inline std::vector<ParcelCase> parcelCases() {
    std::vector<ParcelCase> cases;

    cases.push_back({"Default", DolmRequestParcel()});

    DolmRequestParcel empties;
    empties.tags.emplace();
    empties.pkg = "";
    empties.identity = "";
    empties.numbers.emplace();
    empties.data.push_back(makeData(0, 0, "", "", ""));
    cases.push_back({"PresentButEmpty", empties});

    DolmRequestParcel full;
    full.requestType = 8;
    full.data = {makeData(42, 0, std::nullopt), makeData(0x01011040, 7, "1200"),
                 makeData(0, 0, "", "/sys/devices/cpu0/freq"), makeData(-1, -2, "x", "y", "z")};
    full.flag = true;
    full.option = -1;
    full.clientArg = 1000;
    full.timeout = -1;
    full.tags = std::vector<std::optional<std::string>>{std::nullopt, "", "zdbdebug"};
    full.leadArg = -1;
    full.pkg = "com.example.app";
    full.identity = "scene:launch";
    full.numbers = std::vector<int32_t>{0, -1, std::numeric_limits<int32_t>::max()};
    cases.push_back({"EveryField", full});

    DolmRequestParcel extremes;
    extremes.requestType = std::numeric_limits<int32_t>::min();
    extremes.option = std::numeric_limits<int32_t>::max();
    extremes.timeout = std::numeric_limits<int64_t>::min();
    extremes.pkg = std::string(3000, 'p');
    extremes.identity = "identit\xc3\xa4t \xe2\x9c\x93";
    cases.push_back({"Extremes", extremes});

    DolmRequestParcel many;
    many.requestType = 1;
    for (int32_t i = 0; i < 64; ++i) {
        many.data.push_back(makeData(
                i, 0, i % 2 == 0 ? std::optional<std::string>(std::to_string(i)) : std::nullopt));
    }
    cases.push_back({"ManyEntriesInOrder", many});
    return cases;
}

}  // namespace zeltest
