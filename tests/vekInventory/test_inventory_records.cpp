// What every record prints: the state and health words the RMC reads, and
// the mappers that read them back. (The fields every PCIe record shares are
// checked whole in the Ethernet and FC managers' inventories.)

#include "vekResourceStatus.h"
#include "vekStatusInfo.h"

#include <gtest/gtest.h>

#include <cctype>
#include <string>

namespace {

Json::Value statusJson(const char* state, const char* health)
{
    Json::Value value(Json::objectValue);
    value["State"] = state;
    value["Health"] = health;
    return value;
}

// A resource whose state is derived rather than stored.
class AlwaysRebuilding : public vekStatusInfo {
public:
    VEK_RESOURCE_STATE getState() const override { return VEK_STATE_REBUILD; }
    VEK_RESOURCE_HEALTH getHealth() const override { return VEK_HEALTH_CRITICAL; }
};

TEST(StatusInfoTest, PrintsTheCurrentPairAsTheGettersGiveIt)
{
    vekStatusInfo status;
    EXPECT_EQ(status.getInventoryData(), statusJson("Unknown", "Unknown"));
    status.setState(VEK_STATE_PARTIALLY_DEGRADED);
    status.setHealth(VEK_HEALTH_WARNING);
    status.setEventState(VEK_STATE_OPTIMAL);
    status.setEventHealth(VEK_HEALTH_OK);
    // Not the pair last reported in an event.
    EXPECT_EQ(status.getInventoryData(), statusJson("Partially degraded", "Warning"));
    EXPECT_EQ(status.getVariableData(), statusJson("Partially degraded", "Warning"));

    AlwaysRebuilding derived;
    derived.setState(VEK_STATE_ONLINE);
    const vekInventoryBase& record = derived;
    EXPECT_EQ(record.getInventoryData(), statusJson("Rebuild", "Critical"));
    EXPECT_EQ(record.getVariableData(), statusJson("Rebuild", "Critical"));
}

TEST(ResourceStatusTest, MappersReadBackTheWordAndItsLowerCaseOnly)
{
    const struct {
        const char* word;
        int state;  // -1: no match
        int health; // -1: no match
    } cases[] = {
        {"ok", -1, 2},         {"Ok", -1, -1},       {"Unknown", 0, 0},           {"UNKNOWN", -1, -1},
        {"Linkdown", 14, -1},  {" Online", -1, -1},  {"Cancel/Recovery", 3, -1},  {"Partially degraded", 20, -1},
        {"Partially Degraded", -1, -1}, {"unconfigured bad", 26, -1},
    };
    for (const auto& c : cases) {
        const auto state = vekResourceStateMapper.find(c.word);
        const auto health = vekResourceHealthMapper.find(c.word);
        EXPECT_EQ(state == vekResourceStateMapper.end() ? -1 : state->second, c.state) << '"' << c.word << '"';
        EXPECT_EQ(health == vekResourceHealthMapper.end() ? -1 : health->second, c.health) << '"' << c.word << '"';
    }
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
}

} // namespace
