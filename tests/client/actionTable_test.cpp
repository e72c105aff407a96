#include <gtest/gtest.h>

#include <algorithm>
#include <cctype>
#include <cstdint>
#include <iterator>
#include <set>
#include <string>

#include "ZelWrapper.h"

namespace {

// Position of the first entry with this name, as the acquire wrapper looks it up.
int firstPosition(const std::string& name) {
    auto it = std::find(gActionList.begin(), gActionList.end(), name);
    return it == gActionList.end() ? -1 : static_cast<int>(it - gActionList.begin());
}

TEST(ActionTableTest, HasAllEntriesInOrder) {
    ASSERT_EQ(gActionList.size(), 199u);
    EXPECT_EQ(gActionList.front(), "ACTION_LAUNCH");
    EXPECT_EQ(gActionList.back(), "ACTION_CAMERA_APS_INNER_THDR_CAPTURE_L1");

    // A sample across the table: an insertion or a swap anywhere shifts these ids.
    const std::pair<int, const char*> landmarks[] = {
            {9, "ACTION_COMPRESS"},
            {28, "ACTION_QILDEN_GAME_LOADING"},
            {49, "ACTION_CLEAN_UP"},
            {78, "ACTION_CAMERA_STIKER_RECORD"},
            {99, "ACTION_CAMERA_VIDEO_GIFMAKER_REAR"},
            {105, "ACTION_VIRTUAL_KEY"},
            {120, "ACTION_CAMERA_PREVIEW_PORTAIT"},
            {124, "ACTION_WFD"},
            {133, "ACTION_CAMERA_FRONT_PREVIEW_30FPS_FACE_NUM_2"},
            {149, "ACTION_EPS_FALLBACK_BOOST"},
            {175, "ACTION_CAST_SCREENOFF_DISABLE_DISPLAY_VOTE"},
            {189, "ACTION_CAMERA_3RD_WECHAT_SCAN"},
            {197, "ACTION_CAMERA_APS_INNER_THDR_CAPTURE"},
    };
    for (const auto& [position, name] : landmarks) {
        EXPECT_EQ(gActionList[position], name) << "position " << position;
    }
}

TEST(ActionTableTest, DuplicatesStandAtBothPlacesAndSearchFindsTheFirst) {
    for (int level = 1; level <= 4; ++level) {
        const std::string name = "ACTION_CAMERA_APS_CAPTURE_L" + std::to_string(level);
        EXPECT_EQ(gActionList[90 + level], name);
        EXPECT_EQ(gActionList[105 + level], name);
        EXPECT_EQ(firstPosition(name), 90 + level);
    }
    EXPECT_EQ(gActionList[102], "ACTION_CAMERA_MULTI_SCENE");
    EXPECT_EQ(gActionList[162], "ACTION_CAMERA_MULTI_SCENE");
    EXPECT_EQ(firstPosition("ACTION_CAMERA_MULTI_SCENE"), 102);
}

TEST(ActionTableTest, OnlyTheKnownNamesStandTwice) {
    std::set<std::string> seen;
    std::set<int> repeatedAt;
    for (size_t i = 0; i < gActionList.size(); ++i) {
        if (!seen.insert(gActionList[i]).second) repeatedAt.insert(static_cast<int>(i));
    }
    EXPECT_EQ(repeatedAt, (std::set<int>{106, 107, 108, 109, 162}));
}

TEST(ActionTableTest, EntriesAreWellFormed) {
    size_t shortest = SIZE_MAX;
    size_t longest = 0;
    for (const std::string& name : gActionList) {
        EXPECT_EQ(name.rfind("ACTION_", 0), 0u) << name;
        EXPECT_TRUE(std::all_of(name.begin(), name.end(), [](unsigned char c) {
            return std::isupper(c) || std::isdigit(c) || c == '_';
        })) << name;
        shortest = std::min(shortest, name.size());
        longest = std::max(longest, name.size());
    }
    EXPECT_EQ(shortest, std::string("ACTION_WFD").size());
    EXPECT_EQ(longest, std::string("ACTION_CAMERA_FRONT_PREVIEW_30FPS_FACE_NUM_2").size());
}

struct OpcodeTable {
    const char* name;
    const int32_t* begin;
    size_t size;
    std::initializer_list<int32_t> expected;
};

TEST(OpcodeTablesTest, ValuesAndSizes) {
    const OpcodeTable tables[] = {
            {"opCodeTargetLoad",
             opCodeTargetLoad,
             std::size(opCodeTargetLoad),
             {0x010108A0, 0x010108B0, 0x010108C0}},
            {"opCodeAdpXpuCoreBoost",
             opCodeAdpXpuCoreBoost,
             std::size(opCodeAdpXpuCoreBoost),
             {0x01010B10, 0x01010B20, 0x01010B30, 0x01020070}},
            {"opCodeAdpXpuCoreLimit",
             opCodeAdpXpuCoreLimit,
             std::size(opCodeAdpXpuCoreLimit),
             {0x01010B90, 0x01010BA0, 0x01010BB0, 0x01020080}},
            {"opCodeAdpXpuFreqBoost",
             opCodeAdpXpuFreqBoost,
             std::size(opCodeAdpXpuFreqBoost),
             {0x01010010, 0x01010020, 0x01010030, 0x01020050}},
            {"opCodeAdpXpuFreqLimit",
             opCodeAdpXpuFreqLimit,
             std::size(opCodeAdpXpuFreqLimit),
             {0x010100A0, 0x010100B0, 0x010100C0, 0x01020060}},
    };
    for (const OpcodeTable& t : tables) {
        SCOPED_TRACE(t.name);
        ASSERT_EQ(t.size, t.expected.size());
        EXPECT_TRUE(std::equal(t.begin, t.begin + t.size, t.expected.begin()));
        // The first three ids step by 0x10; a fourth id lies in the 0x0102.... range.
        EXPECT_EQ(t.begin[1] - t.begin[0], 0x10);
        EXPECT_EQ(t.begin[2] - t.begin[1], 0x10);
        if (t.size == 4) {
            EXPECT_EQ(t.begin[3] & 0xFFFF0000, 0x01020000);
        }
    }
}

}  // namespace
