// The service's own events, sent straight to the emulated RMC: the gate
// before the first inventory, the envelope as the RMC receives it, and an
// event the RMC refuses or cannot be reached for.

#include "vekEventHandler.h"

#include "vekConfig.h"
#include "vekGlobalDef.h"
#include "vekJsonAggregator.h"
#include "vekRmcEmulator.h"
#include "vekTestInventoryPush.h"
#include "vekTestResourceManager.h"

#include <gtest/gtest.h>

#include <sys/utsname.h>

#include <cstdlib>
#include <memory>
#include <string>
#include <vector>

namespace {

class EventHandlerTest : public vekRootTest {
protected:
    void SetUp() override
    {
        // The OS version comes from the simulated host's localcli.
        root.writeCliOutput("system version get", "   Product: VMware ESXi\n   Version: 8.0.2\n");
    }

    static vekEvent event(int id, const std::string& location = "0123456789ABCDEF",
                          const Json::Value& variableData = Json::Value())
    {
        return vekEvent(id, "Host", "PN-1234", true, "Tue Nov 17 10:00:00 2026", location, variableData, "VEK");
    }

    // The events the RMC received, parsed, oldest first.
    static std::vector<Json::Value> eventsAt(const vekRmcEmulator& rmc)
    {
        std::vector<Json::Value> events;
        for (const auto& command : rmc.spooledCommands()) {
            EXPECT_EQ(command.name, "MPEventGen");
            events.push_back(vekRecordingChannel::parse(command.payload));
        }
        return events;
    }

    vekLogTail main{vekTestMainLogPath()};
    vekLogTail debug{vekTestDebugLogPath()};
};

TEST_F(EventHandlerTest, BeforeTheFirstInventoryOnlyTheHostsEventsReachTheRmcAfterItAll)
{
    VEK_REQUIRE_RMC_EMULATOR();
    vekRmcEmulator rmc;
    ASSERT_FALSE(vekJsonAggregator::getInstance().isInventorySent());
    Json::Value variableData(Json::objectValue);
    variableData["EventInfo"] = "Injected Event";
    vekEventHandler::generateEvent(event(540));
    vekEventHandler::generateEvent(event(1337, "0123456789ABCDEF", variableData));

    // Synchronous: the event is at the RMC when the call returns.
    std::vector<Json::Value> events = eventsAt(rmc);
    ASSERT_EQ(events.size(), 1u);
    EXPECT_TRUE(debug.contains("EVT_HANDLER: SUCCESS in delivering event to RMC"));
    EXPECT_FALSE(main.contains("\"ID\":540")) << "the dropped one left no trace";
    EXPECT_TRUE(main.contains("EVT_HANDLER: " + rmc.spooledCommands().at(0).payload));
    EXPECT_EQ(rmc.spooledCommands().at(0).payload.find('\n'), std::string::npos);

    struct utsname self;
    ASSERT_EQ(uname(&self), 0);
    Json::Value expected(Json::objectValue);
    expected["HostName"] = self.nodename;
    expected["OSVersion"] = "8.0.2";
    expected["OSType"] = 104;
    expected["ID"] = 1337;
    expected["Source"] = "VEK";
    expected["EventTime"] = "Tue Nov 17 10:00:00 2026";
    expected["PhysicalLocation"] = "0123456789ABCDEF";
    expected["VariableData"] = variableData;
    const std::vector<std::string> addresses = vekGlobalDef::VMwareOSUtils::getIPAddress();
    if (!addresses.empty()) {
        expected["IPv4Addresses"][0]["Address"] = addresses.front();
    }
    // Module name, part number and the service flag stay with the collectors.
    EXPECT_EQ(events[0], expected);

    // No manager enabled: the first "push" finds nothing, and still counts.
    vekScopedTimeScale fast(100);
    root.writeConfig(R"({ "LoggingLevel": "Info", "EnableResources": [], "InventoryQueryIntervalInSeconds": 1 })");
    vekJsonAggregator& aggregator = vekJsonAggregator::getInstance();
    aggregator.setConfig(std::make_shared<const vekConfig>());
    aggregator.initialize(nullptr, {1, 3});
    aggregator.start();
    ASSERT_TRUE(vekWaitForLog(main, "JSON_AGGR: No inventory information found!"));
    aggregator.stopvekJsonAggregator();
    vekEventHandler::generateEvent(event(540));
    events = eventsAt(rmc);
    ASSERT_EQ(events.size(), 2u);
    EXPECT_EQ(events[1]["ID"], 540);
}

TEST_F(EventHandlerTest, LocationAndVariableDataOnlyWhenTheyMeanSomething)
{
    for (const char* location : {"", "Not Applicable", "Not Available", "NotApplicable", "NotAvailable"}) {
        EXPECT_FALSE(vekEventHandler::buildEnvelope(event(434, location)).isMember("PhysicalLocation")) << location;
    }
    for (const char* location : {"Not-Available", "FFFFFFFFFFFFFFFF"}) {
        EXPECT_TRUE(vekEventHandler::buildEnvelope(event(434, location)).isMember("PhysicalLocation")) << location;
    }
    EXPECT_FALSE(vekEventHandler::buildEnvelope(event(434)).isMember("VariableData"));
    const Json::Value empty = vekEventHandler::buildEnvelope(event(434, "", Json::Value(Json::objectValue)));
    EXPECT_EQ(empty["VariableData"], Json::Value(Json::objectValue));
}

TEST_F(EventHandlerTest, RefusedOrUnreachableEventIsLoggedAndLost)
{
    VEK_REQUIRE_RMC_EMULATOR();
    std::unique_ptr<vekRmcEmulator> rmc(new vekRmcEmulator());
    rmc->injectFault(6, 1);
    vekEventHandler::generateEvent(event(434));
    EXPECT_EQ(rmc->chunkExchanges(), 1u) << "one chunk answered, nothing retried";
    rmc.reset();  // and with it the external link
    vekScopedTimeScale fast(1000);
    EXPECT_EQ(vekEventHandler::sendEventToRMC(vekEventHandler::buildEnvelope(event(434)).toStyledString()), 1);
    EXPECT_EQ(vekLogCount(main, "EVT_HANDLER: FAILURE in logging event to RMC"), 2u);
    EXPECT_FALSE(debug.contains("SUCCESS in delivering event to RMC"));
}

} // namespace
