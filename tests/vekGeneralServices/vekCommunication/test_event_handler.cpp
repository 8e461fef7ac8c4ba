#include "vekEventHandler.h"

#include "vekConfig.h"
#include "vekEvent.h"
#include "vekGlobalDef.h"
#include "vekJsonAggregator.h"
#include "vekRmcEmulator.h"
#include "vekTestInventoryPush.h"
#include "vekTestResourceManager.h"
#include "vekTestRoot.h"

#include <gtest/gtest.h>

#include <sys/utsname.h>

#include <chrono>
#include <cstdlib>
#include <memory>
#include <string>
#include <thread>
#include <vector>

using vekGlobalDef::VMwareOSUtils;

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

TEST(EventHandlerGate, OnlyTheHostsOwnEventsGoOutBeforeTheFirstInventory)
{
    for (int id : {356, 359, 360, 434, 435, 1337, 1338, 1750, 1751, 1752}) {
        EXPECT_TRUE(vekEventHandler::passesBeforeFirstInventory(id)) << id;
    }
    for (int id : {0, 540, 538, 539, 397, 1441, 1968}) {
        EXPECT_FALSE(vekEventHandler::passesBeforeFirstInventory(id)) << id;
    }
}

TEST_F(EventHandlerTest, BeforeTheFirstInventoryOnlyTheHostsEventsReachTheRmc)
{
    VEK_REQUIRE_RMC_EMULATOR();
    vekRmcEmulator rmc;
    ASSERT_FALSE(vekJsonAggregator::getInstance().isInventorySent());

    vekEventHandler::generateEvent(event(540));
    vekEventHandler::generateEvent(event(434));

    // Synchronous: the event is at the RMC when the call returns.
    const std::vector<Json::Value> events = eventsAt(rmc);
    ASSERT_EQ(events.size(), 1u);
    EXPECT_EQ(events[0]["ID"], 434);
    EXPECT_TRUE(debug.contains("EVT_HANDLER: SUCCESS in delivering event to RMC"));
    // The dropped one left no trace.
    EXPECT_FALSE(main.contains("\"ID\":540"));
    EXPECT_TRUE(main.contains("EVT_HANDLER: " + rmc.spooledCommands().at(0).payload));
}

TEST_F(EventHandlerTest, AfterTheFirstInventoryEveryEventGoesOut)
{
    VEK_REQUIRE_RMC_EMULATOR();
    vekRmcEmulator rmc;
    vekScopedTimeScale fast(100);
    // No manager enabled: the first "push" finds nothing, and still counts.
    root.writeConfig(R"({ "LoggingLevel": "Info", "EnableResources": [], "InventoryQueryIntervalInSeconds": 1 })");
    auto config = std::make_shared<const vekConfig>();
    vekJsonAggregator& aggregator = vekJsonAggregator::getInstance();
    aggregator.setConfig(config);
    aggregator.initialize(nullptr, {1, 3});
    aggregator.start();
    ASSERT_TRUE(vekWaitForLog(main, "JSON_AGGR: No inventory information found!"));
    aggregator.stopvekJsonAggregator();

    vekEventHandler::generateEvent(event(540));
    const std::vector<Json::Value> events = eventsAt(rmc);
    ASSERT_EQ(events.size(), 1u);
    EXPECT_EQ(events[0]["ID"], 540);
}

TEST_F(EventHandlerTest, EnvelopeAsTheRmcReceivesIt)
{
    VEK_REQUIRE_RMC_EMULATOR();
    vekRmcEmulator rmc;
    Json::Value variableData(Json::objectValue);
    variableData["EventInfo"] = "Injected Event";
    vekEventHandler::generateEvent(event(1337, "0123456789ABCDEF", variableData));

    const auto commands = rmc.spooledCommands();
    ASSERT_EQ(commands.size(), 1u);
    const std::string& text = commands[0].payload;
    EXPECT_EQ(text.find('\n'), std::string::npos) << text;
    const Json::Value envelope = vekRecordingChannel::parse(text);

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
    const std::vector<std::string> addresses = VMwareOSUtils::getIPAddress();
    if (!addresses.empty()) {
        Json::Value address(Json::objectValue);
        address["Address"] = addresses.front();
        expected["IPv4Addresses"].append(address);
    }
    // Module name, part number and the service flag stay with the collectors.
    EXPECT_EQ(envelope, expected) << text;
}

TEST_F(EventHandlerTest, LocationAndVariableDataOnlyWhenTheyMeanSomething)
{
    const struct {
        const char* location;
        bool present;
    } locations[] = {
        {"", false},
        {"Not Applicable", false},
        {"Not Available", false},
        {"NotApplicable", false},
        {"NotAvailable", false},
        {"Not-Available", true},
        {"FFFFFFFFFFFFFFFF", true},
    };
    for (const auto& c : locations) {
        const Json::Value envelope = vekEventHandler::buildEnvelope(event(434, c.location));
        EXPECT_EQ(envelope.isMember("PhysicalLocation"), c.present) << c.location;
        EXPECT_FALSE(envelope.isMember("VariableData")) << c.location;
    }

    const Json::Value empty = vekEventHandler::buildEnvelope(event(434, "", Json::Value(Json::objectValue)));
    ASSERT_TRUE(empty.isMember("VariableData"));
    EXPECT_EQ(empty["VariableData"], Json::Value(Json::objectValue));
}

TEST_F(EventHandlerTest, RefusedEventIsLoggedAndLost)
{
    VEK_REQUIRE_RMC_EMULATOR();
    vekRmcEmulator rmc;
    rmc.injectFault(6, 1);

    vekEventHandler::generateEvent(event(434));

    EXPECT_TRUE(rmc.spooledCommands().empty());
    // One chunk answered, nothing retried.
    EXPECT_EQ(rmc.chunkExchanges(), 1u);
    EXPECT_TRUE(main.contains("EVT_HANDLER: FAILURE in logging event to RMC")) << main.newText();
    EXPECT_FALSE(debug.contains("SUCCESS in delivering event to RMC"));
}

TEST_F(EventHandlerTest, WithoutAChannelTheEventIsLoggedAndLost)
{
    // No emulator and no device under the root.
    unsetenv("VEK_IPMI_EXTERNAL");
    vekScopedTimeScale fast(1000);
    EXPECT_EQ(vekEventHandler::sendEventToRMC(vekEventHandler::buildEnvelope(event(434)).toStyledString()), 1);
    EXPECT_TRUE(main.contains("EVT_HANDLER: FAILURE in logging event to RMC")) << main.newText();

    vekEventHandler::generateEvent(event(435));
    EXPECT_EQ(vekLogCount(main, "EVT_HANDLER: FAILURE in logging event to RMC"), 2u);
}

} // namespace
