#include "vekStatusInfo.h"

#include <gtest/gtest.h>

namespace {

Json::Value statusJson(const char* state, const char* health)
{
    Json::Value value(Json::objectValue);
    value["State"] = state;
    value["Health"] = health;
    return value;
}

TEST(StatusInfoTest, NewRecordIsUnknownUnknown)
{
    const vekStatusInfo status;
    EXPECT_EQ(status.getInventoryData(), statusJson("Unknown", "Unknown"));
    EXPECT_EQ(status.getVariableData(), statusJson("Unknown", "Unknown"));
}

TEST(StatusInfoTest, PrintsTheCurrentPairNotTheLastReportedOne)
{
    vekStatusInfo status;
    status.setState(VEK_STATE_PARTIALLY_DEGRADED);
    status.setHealth(VEK_HEALTH_WARNING);
    status.setEventState(VEK_STATE_OPTIMAL);
    status.setEventHealth(VEK_HEALTH_OK);

    EXPECT_EQ(status.getInventoryData(), statusJson("Partially degraded", "Warning"));
    EXPECT_EQ(status.getVariableData(), statusJson("Partially degraded", "Warning"));
    EXPECT_EQ(status.getEventState(), VEK_STATE_OPTIMAL);
    EXPECT_EQ(status.getEventHealth(), VEK_HEALTH_OK);
}

// A resource whose state is derived rather than stored.
class AlwaysRebuilding : public vekStatusInfo {
public:
    VEK_RESOURCE_STATE getState() const override { return VEK_STATE_REBUILD; }
    VEK_RESOURCE_HEALTH getHealth() const override { return VEK_HEALTH_CRITICAL; }
};

TEST(StatusInfoTest, OverriddenGettersDecideWhatIsPrinted)
{
    AlwaysRebuilding status;
    status.setState(VEK_STATE_ONLINE);
    const vekInventoryBase& record = status;
    EXPECT_EQ(record.getInventoryData(), statusJson("Rebuild", "Critical"));
    EXPECT_EQ(record.getVariableData(), statusJson("Rebuild", "Critical"));
}

TEST(StatusInfoTest, EnumerationsAreOneByte)
{
    EXPECT_EQ(sizeof(VEK_RESOURCE_STATE), 1u);
    EXPECT_EQ(sizeof(VEK_RESOURCE_HEALTH), 1u);
    EXPECT_EQ(sizeof(vekDeviceStatus), 2u);
}

} // namespace
