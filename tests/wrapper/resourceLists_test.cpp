// The resource list builders: notification texts to resource lists.
#include <gtest/gtest.h>

#include <optional>
#include <ostream>
#include <string>
#include <vector>

#include "ZelWrapper.h"

namespace ZelClient {

// For readable failures and for comparing whole lists.
bool operator==(const Resource& a, const Resource& b) {
    return a.id == b.id && a.value == b.value;
}
void PrintTo(const Resource& r, std::ostream* os) {
    *os << "{0x" << std::hex << r.id << std::dec << ", "
        << (r.value.has_value() ? "\"" + *r.value + "\"" : std::string("<absent>")) << "}";
}

}  // namespace ZelClient

namespace {

using ZelClient::Resource;
using List = std::vector<Resource>;

struct TextCase {
    const char* text;
    List expected;
};

// Builds a list from each text; failures show the text with control
// characters spelled out.
template <typename Builder>
void expectLists(Builder build, const std::vector<TextCase>& cases) {
    for (const TextCase& c : cases) {
        EXPECT_EQ(build(c.text), c.expected) << ::testing::PrintToString(std::string(c.text));
    }
}

TEST(TargetLoadListTest, Builds) {
    const int32_t kTl0 = opCodeTargetLoad[0], kTl1 = opCodeTargetLoad[1], kTl2 = opCodeTargetLoad[2];
    expectLists(getTargetLoadList,
                {{"", {}},
                 {"1200,1500,1800", {{kTl0, "1200"}, {kTl1, "1500"}, {kTl2, "1800"}}},
                 // Values are passed on untrimmed and unchecked.
                 {" 12,abc", {{kTl0, " 12"}, {kTl1, "abc"}}},
                 // Empty fields vanish in the split, so positions close up.
                 {",1200,,1500", {{kTl0, "1200"}, {kTl1, "1500"}}},
                 // A "-" anywhere selects the paired form; a "-1" field has no pair.
                 {"1200,-1,1800", {}},
                 {"-1", {}},
                 {"0-1200,1-1500", {{kTl0, "1200"}, {kTl1, "1500"}}},
                 // The position, not the key, chooses the id; later parts are ignored.
                 {"2-1200,0-1500-9", {{kTl0, "1200"}, {kTl1, "1500"}}},
                 {"0-1200,x,2-1800", {{kTl0, "1200"}, {kTl2, "1800"}}},
                 // More fields than the table has entries: the surplus is ignored.
                 {"1,2,3,4,5", {{kTl0, "1"}, {kTl1, "2"}, {kTl2, "3"}}},
                 {"0-1,1-2,2-3,3-4", {{kTl0, "1"}, {kTl1, "2"}, {kTl2, "3"}}}});
}

constexpr int32_t kColocation = 0x01011040;
constexpr int32_t kMigrateUp = 0x01010FB0;
constexpr int32_t kMigrateDown = 0x01010FC0;

TEST(ColocationListTest, Builds) {
    expectLists(getColocationList,
                {{"", {}},
                 {"colocation", {}},
                 {"colocation:1", {{kColocation, "1"}}},
                 {"groupmigrate:5-3", {{kMigrateUp, "5"}, {kMigrateDown, "3"}}},
                 {"groupmigrate:3-5", {}},
                 {"groupmigrate:4-4", {}},
                 {"groupmigrate:-1-3", {}},
                 {"groupmigrate:5", {}},
                 // Numbers are parsed: leading zeros and garbage go.
                 {"groupmigrate:07x-2", {{kMigrateUp, "7"}, {kMigrateDown, "2"}}},
                 // Unparsable numbers count as 0.
                 {"groupmigrate:3-x", {{kMigrateUp, "3"}, {kMigrateDown, "0"}}},
                 {"colocation:2,groupmigrate:6-4",
                  {{kColocation, "2"}, {kMigrateUp, "6"}, {kMigrateDown, "4"}}},
                 // Keys are compared exactly; later parts are ignored.
                 {"Colocation:1, colocation:2,colocation:3:4,other:5", {{kColocation, "3"}}}});
}

List group(const int32_t (&table)[4], std::vector<std::string> values) {
    List list;
    for (size_t j = 0; j < values.size(); ++j) list.push_back({table[j], values[j]});
    return list;
}

List concat(std::vector<List> lists) {
    List all;
    for (List& l : lists) all.insert(all.end(), l.begin(), l.end());
    return all;
}

TEST(GameAdpListTest, Builds) {
    expectLists(getGameAdpList,
                {{"", {}},
                 {"1,2,3,4;5,6,7,8", concat({group(opCodeAdpXpuCoreBoost, {"1", "2", "3", "4"}),
                                             group(opCodeAdpXpuCoreLimit, {"5", "6", "7", "8"})})},
                 // A group without a "," is skipped whole, but it keeps its place.
                 {"1;5,6", group(opCodeAdpXpuCoreLimit, {"5", "6"})},
                 {"a,b;c,d;e,f;g,h;i,j", concat({group(opCodeAdpXpuCoreBoost, {"a", "b"}),
                                                 group(opCodeAdpXpuCoreLimit, {"c", "d"}),
                                                 group(opCodeAdpXpuFreqBoost, {"e", "f"}),
                                                 group(opCodeAdpXpuFreqLimit, {"g", "h"})})},
                 // Values are trimmed; -1 is not special; surplus values are ignored.
                 {" 1 ,\t-1\r\n, 3,4,5,6", group(opCodeAdpXpuCoreBoost, {"1", "-1", "3", "4"})},
                 {",;,,", {}}});
}

TEST(GameUpgradeListTest, ReadsOnlyLevelAndText) {
    struct Case {
        int32_t level;
        const char* text;
        List expected;
    };
    const Case cases[] = {
            {0, "", {}},
            {-3, "", {}},
            {1, "", {{kColocation, "1"}}},
            {0, "mode", {{0x010115B0, "mode"}}},
            {2, "mode a", {{kColocation, "2"}, {0x010115B0, "mode a"}}},
    };
    for (const Case& c : cases) {
        EXPECT_EQ(getGameUpgradeList(99, 98, c.level, 97, 96, c.text), c.expected)
                << "level " << c.level << ", text \"" << c.text << "\"";
    }
}

TEST(ZelResourceInfoTest, MakesAPresentValue) {
    EXPECT_EQ(ZelResourceInfo(5, ""), (Resource{5, std::string()}));
    EXPECT_EQ(ZelResourceInfo(-1, "v"), (Resource{-1, std::string("v")}));
}

}  // namespace
