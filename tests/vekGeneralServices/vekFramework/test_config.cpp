#include "vekConfig.h"
#include "vekTestRoot.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <string>
#include <vector>

namespace {

class ConfigTest : public vekRootTest {
};

std::string text(bool value) { return value ? "true" : "false"; }
std::string text(long value) { return std::to_string(value); }
std::string text(const std::string& value) { return value; }

// A sound value is read; a value of the wrong JSON type and a missing file
// give the same default.
TEST_F(ConfigTest, GettersReadTheirKeyAndFallBackToTheirDefault)
{
    const struct {
        std::string sound;
        std::string wrong;
        std::function<std::string(const vekConfig&)> ask;
        std::string fromSound;
        std::string byDefault;
    } cases[] = {
        {R"("EnableDebugLog": true)", R"("EnableDebugLog": "yes")",
         [](const vekConfig& c) { return text(c.getDebugLogSettings()); }, "true", "false"},
        {R"("PushInventoryFrequencyInMinutes": 5)", R"("PushInventoryFrequencyInMinutes": "5")",
         [](const vekConfig& c) { return text(long(c.getInventoryPushIntervalSettings())); }, "5", "1440"},
        {R"("LoggingLevel": "Error")", R"("LoggingLevel": 3)",
         [](const vekConfig& c) { return text(c.getVEKLoggingLevel()); }, "Error", "Warning"},
        {R"("SimulateUnhandledException": 6)", R"("SimulateUnhandledException": 6.5)",
         [](const vekConfig& c) { return text(c.getUnhandledExceptionToSimulate()); }, "6", "0"},
        {R"("EnableResources": ["HostOSInfo"])", R"("EnableResources": "All")",
         [](const vekConfig& c) { return text(c.isResourceEnabled(1)); }, "true", "false"},
        {R"("HostOsServices": { "EnablePCIeLinkStatusMonitoring": true })",
         R"("HostOsServices": { "EnablePCIeLinkStatusMonitoring": 1 })",
         [](const vekConfig& c) { return text(c.isPCIeLinkStatusMonitorFeatureEnabled()); }, "true", "false"},
        // The one boolean whose default is true.
        {R"("HostOsServices": { "TPMMonitoring": false })", R"("HostOsServices": { "TPMMonitoring": "yes" })",
         [](const vekConfig& c) { return text(c.isTPMStatusMonitorFeatureEnabled()); }, "false", "true"},
        // A path lies under the path root; a channel word stays a word.
        {R"("VEKLogLocation": "/scratch/vek.log")", R"("VEKLogLocation": 7)",
         [](const vekConfig& c) { return text(c.getVEKLogFileLocation()); }, root.path() + "/scratch/vek.log",
         "syslog"},
        {R"("DebugLogLocation": "terminal")", R"("DebugLogLocation": ["terminal"])",
         [](const vekConfig& c) { return text(c.getVEKDebugLogFileLocation()); }, "terminal", "syslog"},
    };
    vekConfig missing;
    for (const auto& c : cases) {
        root.writeConfig("{ \"CliMode\": \"prod\", " + c.sound + " }");
        vekConfig sound;
        root.writeConfig("{ \"CliMode\": \"prod\", " + c.wrong + " }");
        vekConfig wrong;
        EXPECT_EQ(c.ask(sound), c.fromSound) << c.sound;
        EXPECT_EQ(c.ask(wrong), c.byDefault) << c.wrong;
        EXPECT_EQ(c.ask(missing), c.byDefault) << c.sound << " without a file";
    }
}

TEST_F(ConfigTest, MalformedOrSingleKeyFileCountsAsUnparsed)
{
    for (const char* content : {"{ \"LoggingLevel\": \"Info\", ", "{ \"LoggingLevel\": \"Info\" }", "[1, 2, 3]", ""}) {
        root.writeConfig(content);
        vekConfig cfg;
        EXPECT_TRUE(cfg.isDefaultSettingsApplied().second) << content;
        EXPECT_EQ(cfg.getVEKLoggingLevel(), "Warning") << content;
    }
    root.writeConfig(R"({ "LoggingLevel": "Info", "CliMode": "prod" })");
    EXPECT_EQ(vekConfig().isDefaultSettingsApplied(), std::make_pair(std::string("no-error"), false));
}

TEST_F(ConfigTest, RefreshIntervalIsPerResourceThenGlobalThenThirty)
{
    const struct {
        const char* intervals;
        const char* resource;
        int seconds;
    } cases[] = {
        {R"({ "HostOSInfo": 60, "Global": 120 })", "HostOSInfo", 60},
        {R"({ "HostOSInfo": 60, "Global": 120 })", "GPUDevices", 120},
        {R"({ "EthernetDevices": 0 })", "HostOSInfo", 30},
        // Zero is passed through: the managers apply their own floor.
        {R"({ "EthernetDevices": 0 })", "EthernetDevices", 0},
        {R"({ "HostOSInfo": "soon" })", "HostOSInfo", 30},
    };
    for (const auto& c : cases) {
        root.writeConfig(std::string(R"({ "LoggingLevel": "Info", "CacheRefreshInSeconds": )") + c.intervals + "}");
        EXPECT_EQ(vekConfig().getrefreshInterval(c.resource), c.seconds) << c.intervals << " " << c.resource;
    }
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
        {R"(["HostOSInfo", "EthernetDevices", "hostosinfo"])", {1, 3}},
        {R"(["All"])", {0, 1, 2, 3, 4, 5, 8, 99}},
        {R"(["Utilization", "FibreChannelDevices", "NVMeControllers", "GPUDevices"])", {0, 4, 5, 99}},
    };
    for (const auto& c : cases) {
        root.writeConfig(std::string(R"({ "LoggingLevel": "Info", "EnableResources": )") + c.resources + "}");
        vekConfig cfg;
        for (int id : {-1, 0, 1, 2, 3, 4, 5, 6, 7, 8, 99, 100}) {
            const bool expected = std::find(c.enabled.begin(), c.enabled.end(), id) != c.enabled.end();
            EXPECT_EQ(cfg.isResourceEnabled(id), expected) << c.resources << " id " << id;
        }
        EXPECT_EQ(cfg.isResourceEnabled(std::string("SomethingNew")), c.enabled.size() == 8) << c.resources;
    }
}

} // namespace
