#include "vekIPMIDBService.h"

#include "vekConfig.h"
#include "vekJsonAggregator.h"
#include "vekRmcEmulator.h"
#include "vekTestInventoryPush.h"
#include "vekTestResourceManager.h"
#include "vekTestRoot.h"

#include <gtest/gtest.h>

#include <chrono>
#include <cstdlib>
#include <memory>
#include <string>
#include <thread>

// The monitor reads its period through setConfig(): the process-wide
// configuration is read once in the test main, before any case.

namespace {

class IPMIDBServiceTest : public vekRootTest {
protected:
    void TearDown() override
    {
        if (monitorStarted_) {
            vekIPMIDBService::stopvekIPMIDBService();
        }
        if (aggregatorStarted_) {
            vekJsonAggregator::getInstance().stopvekJsonAggregator();
        }
    }

    void configure(const std::string& more)
    {
        root.writeConfig(R"({ "LoggingLevel": "Info", "EnableDebugLog": true, "EnableResources": ["HostOSInfo"], )" +
                         more + " }");
        config = std::make_shared<const vekConfig>();
        vekIPMIDBService::setConfig(config);
        vekJsonAggregator::getInstance().setConfig(config);
        vekJsonAggregator::getInstance().setFactory(factory);
    }

    void startMonitor()
    {
        vekIPMIDBService::startvekIPMIDBService();
        monitorStarted_ = true;
    }

    void stopMonitor()
    {
        vekIPMIDBService::stopvekIPMIDBService();
        monitorStarted_ = false;
    }

    // The aggregator with one ready host manager, after its first push.
    void startAggregatorAndWaitForTheFirstPush()
    {
        host.setItems({vekTestRecord("host")});
        factory->add(1, &host);
        vekJsonAggregator::getInstance().initialize(&com, {1});
        vekJsonAggregator::getInstance().start();
        aggregatorStarted_ = true;
        ASSERT_TRUE(channel.waitFor("WriteInventory", 1));
    }

    // Waits (generously) until the RMC answered doorbell 1 that many times.
    static bool waitForDoorbellReads(const vekRmcEmulator& rmc, size_t count)
    {
        const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(30);
        while (rmc.logLines("0x81 doorbell 1") < count) {
            if (std::chrono::steady_clock::now() > deadline) {
                return false;
            }
            std::this_thread::sleep_for(std::chrono::milliseconds(10));
        }
        return true;
    }

    std::shared_ptr<const vekConfig> config;
    std::shared_ptr<vekMapFactory> factory = std::make_shared<vekMapFactory>();
    vekFixedResourceManager host{0};
    vekRecordingChannel channel;
    vekTestSmbios smbios;
    vekTestComManager com{&channel, smbios};
    vekLogTail main{vekTestMainLogPath()};
    vekLogTail debug{vekTestDebugLogPath()};

private:
    bool monitorStarted_ = false;
    bool aggregatorStarted_ = false;
};

TEST_F(IPMIDBServiceTest, InventoryDoorbellBringsAPushAfterOnePeriod)
{
    VEK_REQUIRE_RMC_EMULATOR();
    vekRmcEmulator rmc;
    rmc.writeDoorbell(1, "WriteInventory");
    // A minute at sixtyfold speed.
    vekScopedTimeScale fast(60);
    configure(R"("IPMIDBSleepInterval": 1, "InventoryQueryIntervalInSeconds": 1)");
    startAggregatorAndWaitForTheFirstPush();

    startMonitor();
    ASSERT_TRUE(channel.waitFor("WriteInventory", 2));
    stopMonitor();

    EXPECT_GE(rmc.logLines("0x81 doorbell 1"), 1u);
    EXPECT_TRUE(debug.contains("IPMI_DB: DB service thread up."));
    EXPECT_TRUE(debug.contains("JSON_AGGR: Request to send inventory"));
    EXPECT_EQ(channel.inventories().at(1)["HostDataCollection"]["Oem"], vekTestRecord("host"));
}

TEST_F(IPMIDBServiceTest, DoorbellWithoutTheInventoryWordCausesNothing)
{
    VEK_REQUIRE_RMC_EMULATOR();
    vekRmcEmulator rmc;
    rmc.writeDoorbell(1, "WriteTelemetry");
    vekScopedTimeScale fast(60);
    configure(R"("IPMIDBSleepInterval": 1)");

    startMonitor();
    ASSERT_TRUE(waitForDoorbellReads(rmc, 2));
    stopMonitor();

    EXPECT_FALSE(debug.contains("Queuing inventory send request"));
    EXPECT_FALSE(debug.contains("Request to send inventory"));
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

    startMonitor();
    std::this_thread::sleep_for(std::chrono::milliseconds(2500));
    stopMonitor();

    EXPECT_EQ(rmc.logLines("0x81 doorbell 1"), 0u);
    EXPECT_FALSE(debug.contains("Queuing inventory send request"));
    // The stop woke the wait once, and the thread had ended when the stop returned.
    const std::string text = debug.newText();
    const size_t stopping = text.find("IPMI_DB: Stopping vekIPMIDBService");
    const size_t signalled = text.find("IPMI_DB: Signaled for stop.");
    ASSERT_NE(stopping, std::string::npos) << text;
    ASSERT_NE(signalled, std::string::npos) << text;
    EXPECT_LT(stopping, signalled);
    EXPECT_EQ(vekLogCount(debug, "IPMI_DB: DB service thread up."), 1u);
}

TEST_F(IPMIDBServiceTest, WithoutAnRmcTheMonitorCarriesOn)
{
    unsetenv("VEK_IPMI_EXTERNAL");
    vekScopedTimeScale fast(600);
    configure(R"("IPMIDBSleepInterval": 1)");

    startMonitor();
    ASSERT_TRUE(vekWaitForLog(main, "IPMI_DB: Unable to check the inventory doorbell", 2));
    stopMonitor();
    EXPECT_FALSE(debug.contains("Queuing inventory send request"));
}

} // namespace
