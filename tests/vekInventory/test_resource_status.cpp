#include "vekResourceStatus.h"

#include <gtest/gtest.h>

#include <cctype>
#include <string>

namespace {

TEST(ResourceStatusTest, MappersMatchTheListedWordsExactly)
{
    const struct {
        const char* word;
        int state;  // -1: no match
        int health; // -1: no match
    } cases[] = {
        {"OK", -1, 2},
        {"ok", -1, 2},
        {"Ok", -1, -1},
        {"Warning", -1, 3},
        {"critical", -1, 1},
        {"Unknown", 0, 0},
        {"unknown", 0, 0},
        {"UNKNOWN", -1, -1},
        {"Cancel/Recovery", 3, -1},
        {"diagnostic mode", 8, -1},
        {"Linkdown", 14, -1},
        {"Partially degraded", 20, -1},
        {"Partially Degraded", -1, -1},
        {"unconfigured bad", 26, -1},
        {" Online", -1, -1},
        {"", -1, -1},
    };
    for (const auto& c : cases) {
        const auto state = vekResourceStateMapper.find(c.word);
        const auto health = vekResourceHealthMapper.find(c.word);
        EXPECT_EQ(state == vekResourceStateMapper.end() ? -1 : state->second, c.state) << '"' << c.word << '"';
        EXPECT_EQ(health == vekResourceHealthMapper.end() ? -1 : health->second, c.health) << '"' << c.word << '"';
    }
}

TEST(ResourceStatusTest, EveryWordAndItsLowerCaseMapBackToItsValue)
{
    auto lower = [](std::string word) {
        for (char& ch : word) {
            ch = static_cast<char>(std::tolower(static_cast<unsigned char>(ch)));
        }
        return word;
    };
    for (int value = 0; value < VEK_RESOURCE_STATE_COUNT; ++value) {
        const std::string& word = vekResourceStateMap[value];
        EXPECT_EQ(vekResourceStateMapper.at(word), value) << word;
        EXPECT_EQ(vekResourceStateMapper.at(lower(word)), value) << word;
    }
    for (int value = 0; value < VEK_RESOURCE_HEALTH_COUNT; ++value) {
        const std::string& word = vekResourceHealthMap[value];
        EXPECT_EQ(vekResourceHealthMapper.at(word), value) << word;
        EXPECT_EQ(vekResourceHealthMapper.at(lower(word)), value) << word;
    }
    // Nothing else: two spellings per value.
    EXPECT_EQ(vekResourceStateMapper.size(), 2u * VEK_RESOURCE_STATE_COUNT);
    EXPECT_EQ(vekResourceHealthMapper.size(), 2u * VEK_RESOURCE_HEALTH_COUNT);
}

TEST(ResourceStatusTest, DeviceStatusPairsCompareByBothValues)
{
    vekDeviceStatus before;
    vekDeviceStatus after;
    EXPECT_EQ(before, after);
    after.health = VEK_HEALTH_OK;
    EXPECT_NE(before, after);
    before.health = VEK_HEALTH_OK;
    before.state = VEK_STATE_DOWN;
    EXPECT_NE(before, after);
}

} // namespace
