#include "vekConfig.h"
#include "vekTestRoot.h"

#include <gtest/gtest.h>

#include <algorithm>

namespace {

class ConfigTest : public vekRootTest {
};

TEST_F(ConfigTest, MissingFileGivesEveryDefault)
{
    vekConfig cfg;
    EXPECT_TRUE(cfg.isDefaultSettingsApplied().second);
    EXPECT_FALSE(cfg.getDebugLogSettings());
    EXPECT_EQ(cfg.getTestEventSettings(), "test");
    EXPECT_EQ(cfg.getrefreshInterval("HostOSInfo"), 30);
    EXPECT_EQ(cfg.getInventoryPushIntervalSettings(), 1440);
    EXPECT_EQ(cfg.getVEKLoggingLevel(), "Warning");
    EXPECT_EQ(cfg.getDoorBellSleepInterval(), 10);
    EXPECT_EQ(cfg.getUnhandledExceptionToSimulate(), 0);
    EXPECT_EQ(cfg.getInventoryQueryInterval(), 10);
    EXPECT_EQ(cfg.getMicrochipEventQueueIndex(), 0);
    EXPECT_EQ(cfg.getHealthMonitorFlags(), 0);
    EXPECT_TRUE(cfg.isTPMStatusMonitorFeatureEnabled());
    EXPECT_FALSE(cfg.isPCIeRegistersFeatureEnabled());
    EXPECT_EQ(cfg.getSyslogFileLocation(), "syslog");
    EXPECT_TRUE(cfg.getTelemetrySettings().isNull());
    EXPECT_EQ(cfg.getVEKLogFileLocation(), "syslog");
    EXPECT_EQ(cfg.getVEKDebugLogFileLocation(), "syslog");
    for (int id : {0, 1, 2, 3, 4, 5, 8, 99}) {
        EXPECT_FALSE(cfg.isResourceEnabled(id)) << id;
    }
}

TEST_F(ConfigTest, MalformedOrSingleKeyFileCountsAsUnparsed)
{
    const struct {
        const char* text;
        const char* why;
    } cases[] = {
        {"{ \"LoggingLevel\": \"Info\", ", "truncated JSON"},
        {"{ \"LoggingLevel\": \"Info\" }", "one key only"},
        {"[1, 2, 3]", "not an object"},
        {"", "empty file"},
    };
    for (const auto& c : cases) {
        root.writeConfig(c.text);
        vekConfig cfg;
        EXPECT_TRUE(cfg.isDefaultSettingsApplied().second) << c.why;
        EXPECT_FALSE(cfg.isDefaultSettingsApplied().first.empty()) << c.why;
        EXPECT_EQ(cfg.getVEKLoggingLevel(), "Warning") << c.why;
    }
}

TEST_F(ConfigTest, WellFormedFileIsRead)
{
    root.writeConfig(R"({
        "EnableDebugLog": true,
        "CliMode": "prod",
        "PushInventoryFrequencyInMinutes": 5,
        "LoggingLevel": "Error",
        "IPMIDBSleepInterval": 2,
        "SimulateUnhandledException": 6,
        "ForwardAllMegaRAIDCriticalOrHigherEvents": true,
        "InventoryQueryIntervalInSeconds": 1,
        "HostOsServices": { "EnablePCIeRegistersDataCollection": true, "TPMMonitoring": false,
                            "SyslogFileLocation": "/var/log/x" },
        "Telemetry": { "Enabled": true },
        "VEKLogLocation": "/scratch/log/zolvek/vek.log",
        "DebugLogLocation": "terminal"
    })");
    vekConfig cfg;
    EXPECT_EQ(cfg.isDefaultSettingsApplied(), std::make_pair(std::string("no-error"), false));
    EXPECT_TRUE(cfg.getDebugLogSettings());
    EXPECT_EQ(cfg.getTestEventSettings(), "prod");
    EXPECT_EQ(cfg.getInventoryPushIntervalSettings(), 5);
    EXPECT_EQ(cfg.getVEKLoggingLevel(), "Error");
    EXPECT_EQ(cfg.getDoorBellSleepInterval(), 2);
    EXPECT_EQ(cfg.getUnhandledExceptionToSimulate(), 6);
    EXPECT_TRUE(cfg.isForwardAllMegaRAIDCriticalOrHigherEventsEnabled());
    EXPECT_EQ(cfg.getInventoryQueryInterval(), 1);
    EXPECT_TRUE(cfg.isPCIeRegistersFeatureEnabled());
    EXPECT_FALSE(cfg.isTPMStatusMonitorFeatureEnabled());
    EXPECT_EQ(cfg.getSyslogFileLocation(), "/var/log/x");
    EXPECT_TRUE(cfg.getTelemetrySettings()["Enabled"].asBool());
    // Log files live under the path root; a channel word stays a word.
    EXPECT_EQ(cfg.getVEKLogFileLocation(), root.path() + "/scratch/log/zolvek/vek.log");
    EXPECT_EQ(cfg.getVEKDebugLogFileLocation(), "terminal");
    EXPECT_FALSE(cfg.getSendTestEventSettings("anything"));
}

TEST_F(ConfigTest, WrongTypesGiveDefaultsAndTpmDefaultsToTrue)
{
    root.writeConfig(R"({
        "EnableDebugLog": "yes",
        "PushInventoryFrequencyInMinutes": "5",
        "LoggingLevel": 3,
        "HostOsServices": { "TPMMonitoring": "yes", "EnablePCIeLinkStatusMonitoring": "yes" },
        "EnableResources": "All",
        "VEKLogLocation": 7
    })");
    vekConfig cfg;
    EXPECT_FALSE(cfg.getDebugLogSettings());
    EXPECT_EQ(cfg.getInventoryPushIntervalSettings(), 1440);
    EXPECT_EQ(cfg.getVEKLoggingLevel(), "Warning");
    EXPECT_TRUE(cfg.isTPMStatusMonitorFeatureEnabled());
    EXPECT_FALSE(cfg.isPCIeLinkStatusMonitorFeatureEnabled());
    EXPECT_FALSE(cfg.isResourceEnabled(1));
    EXPECT_EQ(cfg.getVEKLogFileLocation(), "syslog");
}

TEST_F(ConfigTest, RefreshIntervalPerResourceThenGlobalThenThirty)
{
    root.writeConfig(R"({ "CacheRefreshInSeconds": { "HostOSInfo": 60, "Global": 120 }, "LoggingLevel": "Info" })");
    vekConfig both;
    EXPECT_EQ(both.getrefreshInterval("HostOSInfo"), 60);
    EXPECT_EQ(both.getrefreshInterval("GPUDevices"), 120);

    root.writeConfig(R"({ "CacheRefreshInSeconds": { "EthernetDevices": 0 }, "LoggingLevel": "Info" })");
    vekConfig neither;
    EXPECT_EQ(neither.getrefreshInterval("HostOSInfo"), 30);
    // Zero is passed through: the managers apply their own floor.
    EXPECT_EQ(neither.getrefreshInterval("EthernetDevices"), 0);

    root.writeConfig(R"({ "CacheRefreshInSeconds": { "HostOSInfo": "soon" }, "LoggingLevel": "Info" })");
    vekConfig wrongType;
    EXPECT_EQ(wrongType.getrefreshInterval("HostOSInfo"), 30);
}

TEST_F(ConfigTest, ResourceEnablingByIdAndName)
{
    const struct {
        const char* resources;
        std::vector<int> enabled;
    } cases[] = {
        {R"(["StorageControllers"])", {2, 8}},
        {R"x(["StorageControllers (SASRM)"])x", {2}},
        {R"x(["StorageControllers (RSRM)"])x", {8}},
        {R"(["HostOSInfo", "EthernetDevices"])", {1, 3}},
        {R"(["All"])", {0, 1, 2, 3, 4, 5, 8, 99}},
        {R"(["Utilization", "FibreChannelDevices", "NVMeControllers", "GPUDevices"])", {0, 4, 5, 99}},
        {R"([])", {}},
    };
    for (const auto& c : cases) {
        root.writeConfig(std::string(R"({ "LoggingLevel": "Info", "EnableResources": )") + c.resources + "}");
        vekConfig cfg;
        for (int id : {-1, 0, 1, 2, 3, 4, 5, 6, 7, 8, 99, 100}) {
            const bool expected = std::find(c.enabled.begin(), c.enabled.end(), id) != c.enabled.end();
            EXPECT_EQ(cfg.isResourceEnabled(id), expected) << c.resources << " id " << id;
        }
    }
    root.writeConfig(R"({ "LoggingLevel": "Info", "EnableResources": ["All"] })");
    vekConfig all;
    EXPECT_TRUE(all.isResourceEnabled(std::string("SomethingNew")));
}

} // namespace
