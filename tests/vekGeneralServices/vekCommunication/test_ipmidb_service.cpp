// The doorbell monitor against the emulated RMC: only the inventory doorbell
// brings a push, the first look waits one period, and a missing RMC does not
// stop it. It reads its period through setConfig(): the process-wide
// configuration is read once in the test main, before any case.

#include "vekIPMIDBService.h"

#include "vekConfig.h"
#include "vekJsonAggregator.h"
#include "vekRmcEmulator.h"
#include "vekTestInventoryPush.h"
#include "vekTestResourceManager.h"

#include <gtest/gtest.h>

#include <chrono>
#include <cstdlib>
#include <memory>
#include <string>
#include <thread>

namespace {

class IPMIDBServiceTest : public vekRootTest {
protected:
    void TearDown() override
    {
        vekIPMIDBService::stopvekIPMIDBService();
        vekJsonAggregator::getInstance().stopvekJsonAggregator();
    }

    void configure(const std::string& more)
    {
        root.writeConfig(R"({ "LoggingLevel": "Info", "EnableDebugLog": true, "EnableResources": ["HostOSInfo"], )" +
                         more + " }");
        auto config = std::make_shared<const vekConfig>();
        vekIPMIDBService::setConfig(config);
        vekJsonAggregator::getInstance().setConfig(config);
        vekJsonAggregator::getInstance().setFactory(factory);
    }

    std::shared_ptr<vekMapFactory> factory = std::make_shared<vekMapFactory>();
    vekFixedResourceManager host{0};
    vekRecordingChannel channel;
    vekTestSmbios smbios;
    vekTestComManager com{&channel, smbios};
    vekLogTail main{vekTestMainLogPath()};
    vekLogTail debug{vekTestDebugLogPath()};
};

TEST_F(IPMIDBServiceTest, OnlyTheInventoryDoorbellBringsAPush)
{
    VEK_REQUIRE_RMC_EMULATOR();
    vekRmcEmulator rmc;
    rmc.writeDoorbell(1, "WriteTelemetry");
    // A minute at sixtyfold speed.
    vekScopedTimeScale fast(60);
    configure(R"("IPMIDBSleepInterval": 1, "InventoryQueryIntervalInSeconds": 1)");
    host.setItems({vekTestRecord("host")});
    factory->add(1, &host);
    vekJsonAggregator::getInstance().initialize(&com, {1});
    vekJsonAggregator::getInstance().start();
    ASSERT_TRUE(channel.waitFor("WriteInventory", 1));

    vekIPMIDBService::startvekIPMIDBService();
    ASSERT_TRUE(vekEventually([&] { return rmc.logLines("0x81 doorbell 1") >= 2; }));
    EXPECT_FALSE(debug.contains("Request to send inventory"));

    rmc.writeDoorbell(1, "WriteInventory");
    ASSERT_TRUE(channel.waitFor("WriteInventory", 2));
    EXPECT_TRUE(debug.contains("JSON_AGGR: Request to send inventory"));
    EXPECT_EQ(channel.inventories().at(1)["HostDataCollection"]["Oem"], vekTestRecord("host"));
}

TEST_F(IPMIDBServiceTest, FirstLookComesAfterTheConfiguredPeriodNotAtStart)
{
    VEK_REQUIRE_RMC_EMULATOR();
    vekRmcEmulator rmc;
    rmc.writeDoorbell(1, "WriteInventory");
    // A thousand minutes is a hundred seconds here; the default ten minutes
    // would be one.
    vekScopedTimeScale fast(600);
    configure(R"("IPMIDBSleepInterval": 1000)");

    vekIPMIDBService::startvekIPMIDBService();
    std::this_thread::sleep_for(std::chrono::milliseconds(2500));
    vekIPMIDBService::stopvekIPMIDBService();

    EXPECT_EQ(rmc.logLines("0x81 doorbell 1"), 0u);
    // The stop woke the wait once.
    EXPECT_EQ(vekLogCount(debug, "IPMI_DB: DB service thread up."), 1u);
}

TEST_F(IPMIDBServiceTest, WithoutAnRmcTheMonitorCarriesOn)
{
    unsetenv("VEK_IPMI_EXTERNAL");
    vekScopedTimeScale fast(600);
    configure(R"("IPMIDBSleepInterval": 1)");
    vekIPMIDBService::startvekIPMIDBService();
    ASSERT_TRUE(vekWaitForLog(main, "IPMI_DB: Unable to check the inventory doorbell", 2));
    EXPECT_FALSE(debug.contains("Request to send inventory"));
}

} // namespace
