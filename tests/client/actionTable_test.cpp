#include <gtest/gtest.h>

#include <algorithm>
#include <cctype>
#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include "ZelWrapper.h"

namespace {

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
            {91, "ACTION_CAMERA_APS_CAPTURE_L1"},
            {94, "ACTION_CAMERA_APS_CAPTURE_L4"},
            {102, "ACTION_CAMERA_MULTI_SCENE"},
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

// Five names stand twice: each repeat, by its position, and the position of
// the name's first entry, which is the one a search by name finds.
TEST(ActionTableTest, OnlyTheKnownNamesStandTwice) {
    std::map<std::string, int> first;
    std::map<int, int> repeats;
    for (size_t i = 0; i < gActionList.size(); ++i) {
        const auto [at, inserted] = first.emplace(gActionList[i], static_cast<int>(i));
        if (!inserted) repeats[static_cast<int>(i)] = at->second;
    }
    EXPECT_EQ(repeats, (std::map<int, int>{{106, 91}, {107, 92}, {108, 93}, {109, 94}, {162, 102}}));
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

template <size_t N>
std::vector<int32_t> values(const int32_t (&table)[N]) {
    return {table, table + N};
}

TEST(OpcodeTablesTest, ValuesAndSizes) {
    using Ids = std::vector<int32_t>;
    EXPECT_EQ(values(opCodeTargetLoad), (Ids{0x010108A0, 0x010108B0, 0x010108C0}));
    EXPECT_EQ(values(opCodeAdpXpuCoreBoost), (Ids{0x01010B10, 0x01010B20, 0x01010B30, 0x01020070}));
    EXPECT_EQ(values(opCodeAdpXpuCoreLimit), (Ids{0x01010B90, 0x01010BA0, 0x01010BB0, 0x01020080}));
    EXPECT_EQ(values(opCodeAdpXpuFreqBoost), (Ids{0x01010010, 0x01010020, 0x01010030, 0x01020050}));
    EXPECT_EQ(values(opCodeAdpXpuFreqLimit), (Ids{0x010100A0, 0x010100B0, 0x010100C0, 0x01020060}));
}

}  // namespace
