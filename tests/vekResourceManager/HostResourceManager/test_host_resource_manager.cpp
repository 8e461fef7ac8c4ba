#include "HostResourceManager/HostResourceManager.h"

#include "vekConfig.h"
#include "vekFactory.h"
#include "vekGlobalDef.h"
#include "vekPlatformServices.h"
#include "vekTestInventoryPush.h"
#include "vekTestRoot.h"

#include "vekTestResourceManager.h"

#include <gtest/gtest.h>

#include <sys/utsname.h>

#include <chrono>
#include <cstdlib>
#include <memory>
#include <regex>
#include <string>
#include <thread>
#include <vector>

using vekGlobalDef::VMwareOSUtils;

namespace {

// The host manager under the case's configuration, outside the singleton.
class TestHostResourceManager : public HostResourceManager {
public:
    explicit TestHostResourceManager(const vekConfig& config) : HostResourceManager(config) {}
    using HostResourceManager::addHostService;
};

// Records what the manager does with it.
class RecordingHostService : public vekHostService {
public:
    RecordingHostService(int id, bool activates, vekTestSteps& steps) : id_(id), activates_(activates), steps_(steps)
    {
    }
    bool activate(vekPlatformServices& /*services*/) override
    {
        steps_.record("activate " + std::to_string(id_));
        return activates_;
    }
    int getServiceId() const override { return id_; }
    void shutdown() override { steps_.record("shutdown " + std::to_string(id_)); }

private:
    const int id_;
    const bool activates_;
    vekTestSteps& steps_;
};

class HostResourceManagerTest : public vekRootTest {
protected:
    // The rack-type4 simulated host as the root.
    void useSimulatedHost() const
    {
        const std::string copy = std::string("cp -r '") + VEK_SIMHOST_DIR + "/profiles/rack-type4/.' '" + root.path() + "'";
        ASSERT_EQ(system(copy.c_str()), 0);
    }

    TestHostResourceManager& manager(const std::string& more = "")
    {
        root.writeConfig("{ \"LoggingLevel\": \"Info\", \"EnableDebugLog\": true, \"EnableResources\": [\"HostOSInfo\"]" +
                         (more.empty() ? std::string() : ", " + more) + " }");
        config_ = std::make_unique<vekConfig>();
        host_ = std::make_unique<TestHostResourceManager>(*config_);
        return *host_;
    }

    // Runs the manager's thread; stopped and joined at the end of the case.
    void startThread()
    {
        thread_ = std::thread([this] { host_->init(services); });
    }
    void stopThread()
    {
        if (thread_.joinable()) {
            host_->stopResourceManagerJob();
            thread_.join();
        }
    }
    void TearDown() override { stopThread(); }

    static Json::Value onlyInventory(HostResourceManager& host)
    {
        std::vector<Json::Value> inventory;
        EXPECT_FALSE(host.getInventoryJsonObject(inventory));
        EXPECT_EQ(inventory.size(), 1u);
        return inventory.empty() ? Json::Value() : inventory.front();
    }

    vekPlatformServices services;
    vekLogTail main{vekTestMainLogPath()};
    vekLogTail debug{vekTestDebugLogPath()};

private:
    std::unique_ptr<vekConfig> config_;
    std::unique_ptr<TestHostResourceManager> host_;
    std::thread thread_;
};

TEST_F(HostResourceManagerTest, DocumentOfTheSimulatedHost)
{
    useSimulatedHost();
    TestHostResourceManager& host = manager(R"("PushInventoryFrequencyInMinutes": 720)");
    EXPECT_FALSE(host.isInventoryReady(0));
    host.cacheBuild();
    EXPECT_TRUE(host.isInventoryReady(0));

    const Json::Value inventory = onlyInventory(host);
    EXPECT_EQ(inventory.getMemberNames(), (std::vector<std::string>{"CollectionInfo", "HostOSInfo"}));

    const Json::Value& collection = inventory["CollectionInfo"];
    EXPECT_EQ(collection.getMemberNames(),
              (std::vector<std::string>{"CollectionFrequencyMin", "CollectionType", "LastCollection"}));
    EXPECT_EQ(collection["CollectionType"], "RemoteSupport");
    EXPECT_EQ(collection["CollectionFrequencyMin"], 720);
    EXPECT_TRUE(std::regex_match(collection["LastCollection"].asString(),
                                 std::regex("[0-9]{4}-[0-9]{2}-[0-9]{2}T[0-9]{2}:[0-9]{2}:[0-9]{2}Z")))
        << collection["LastCollection"];

    struct utsname self;
    ASSERT_EQ(uname(&self), 0);
    const Json::Value& os = inventory["HostOSInfo"];
    EXPECT_EQ(os.getMemberNames(),
              (std::vector<std::string>{"HostName", "IPv4Addresses", "OSDescription", "OSMemorySummary", "OSName",
                                        "OSSoftwareSummary", "OSType", "OSVersion"}));
    EXPECT_EQ(os["HostName"], self.nodename);
    EXPECT_EQ(os["OSName"], "VMware ESXi");
    EXPECT_EQ(os["OSVersion"], "8.0.2");
    EXPECT_EQ(os["OSDescription"], std::string(self.sysname) + " " + self.nodename + " " + self.release + " " +
                                       self.version + " " + self.machine);
    EXPECT_EQ(os["OSType"], 104);
    Json::Value software(Json::objectValue);
    software["VekSwVersion"] = "4.4.6.1";
    EXPECT_EQ(os["OSSoftwareSummary"], software);
    // esxtop's Machine and Free MBytes in whole GiB.
    EXPECT_EQ(os["OSMemorySummary"]["TotalSystemMemoryGiB"].asDouble(), 3071.0);
    EXPECT_EQ(os["OSMemorySummary"]["TotalFreeSystemMemoryGiB"].asDouble(), 2807.0);
    EXPECT_EQ(os["OSMemorySummary"].size(), 2u);

    // Every IPv4 address of the machine but the loopback's, one object each.
    ASSERT_TRUE(os["IPv4Addresses"].isArray());
    const std::vector<std::string> addresses = VMwareOSUtils::getIPAddress();
    ASSERT_EQ(os["IPv4Addresses"].size(), addresses.size());
    for (Json::ArrayIndex i = 0; i < os["IPv4Addresses"].size(); ++i) {
        const Json::Value& entry = os["IPv4Addresses"][i];
        EXPECT_EQ(entry.getMemberNames(), std::vector<std::string>{"Address"});
        EXPECT_EQ(entry["Address"], addresses[i]);
        EXPECT_NE(entry["Address"].asString().rfind("127.", 0), 0u) << entry;
    }

    const std::string text = debug.newText();
    const std::vector<std::string> steps = {"HOST_RM: Starting Host resource manager cache build",
                                            "HOST_RM:  Populating host information.",
                                            "HOST_RM:  Populating host information : Completed.",
                                            "HOST_RM: Exiting CacheBuild"};
    size_t at = 0;
    for (const auto& step : steps) {
        const size_t found = text.find(step, at);
        ASSERT_NE(found, std::string::npos) << step << "\n" << text;
        at = found + step.size();
    }
}

TEST_F(HostResourceManagerTest, HostThatAnswersNothingStillCountsAsBuilt)
{
    // No command outputs at all: the OS helpers give empty values.
    TestHostResourceManager& host = manager();
    host.cacheBuild();

    EXPECT_TRUE(host.isInventoryReady(0));
    const Json::Value os = onlyInventory(host)["HostOSInfo"];
    EXPECT_EQ(os["OSName"], "");
    EXPECT_EQ(os["OSVersion"], "");
    EXPECT_EQ(os["OSMemorySummary"]["TotalSystemMemoryGiB"].asDouble(), 0.0);
    EXPECT_EQ(os["OSSoftwareSummary"]["VekSwVersion"], "4.4.6.1");
    EXPECT_TRUE(main.contains("Error occurred in fetching physical memory information"));
}

TEST_F(HostResourceManagerTest, OptionalSummariesAppearOnlyWhenCollected)
{
    TestHostResourceManager& host = manager();
    vekCollectionInfo collection;

    vekHostOSInfo plain;
    const Json::Value plainOS = host.serializeHostInfo(plain, collection)["HostOSInfo"];
    EXPECT_FALSE(plainOS.isMember("OSConfigurationSummary"));
    EXPECT_FALSE(plainOS["OSSoftwareSummary"].isMember("SoftwaresInstalled"));
    EXPECT_TRUE(plainOS["IPv4Addresses"].isArray());
    EXPECT_EQ(plainOS["IPv4Addresses"].size(), 0u);

    vekHostOSInfo full;
    full.setCrashKernelMemBytes(268435456);
    full.setKDumpSvcsStatus("active");
    full.setListOfSoftwaresInstalled("vek 4.4.6.1");
    const Json::Value fullOS = host.serializeHostInfo(full, collection)["HostOSInfo"];
    const Json::Value& summary = fullOS["OSConfigurationSummary"];
    EXPECT_EQ(summary.getMemberNames(),
              (std::vector<std::string>{"CrashKernelCmd", "CrashKernelMemBytes", "CrashkernelLoaded",
                                        "KDumpSvcsEnabled", "KDumpSvcsStatus", "KernelCmdLine"}));
    EXPECT_EQ(summary["CrashKernelMemBytes"].asInt64(), 268435456);
    EXPECT_EQ(summary["KDumpSvcsStatus"], "active");
    EXPECT_EQ(summary["KernelCmdLine"], "");
    EXPECT_EQ(fullOS["OSSoftwareSummary"]["SoftwaresInstalled"], "vek 4.4.6.1");
}

TEST_F(HostResourceManagerTest, PeriodOfZeroMeansThirtySeconds)
{
    // Thirty seconds at thirtyfold speed; the global hour must not count.
    vekScopedTimeScale fast(30);
    useSimulatedHost();
    manager(R"("CacheRefreshInSeconds": { "HostOSInfo": 0, "Global": 3600 })");
    const auto started = std::chrono::steady_clock::now();
    startThread();
    ASSERT_TRUE(vekWaitForLog(debug, "HOST_RM: Refresh Host RM data [2]", 1, std::chrono::seconds(60)))
        << debug.newText();
    stopThread();
    const auto elapsed = std::chrono::steady_clock::now() - started;

    // Not a busy loop either: at most one build per scaled period, and the first.
    const auto periods = std::chrono::duration_cast<std::chrono::seconds>(elapsed).count();
    EXPECT_LE(vekLogCount(debug, "Starting Host resource manager cache build"), static_cast<size_t>(periods + 2));
}

TEST_F(HostResourceManagerTest, StopDuringTheWaitEndsItAtOnce)
{
    useSimulatedHost();
    TestHostResourceManager& host = manager(R"("CacheRefreshInSeconds": { "HostOSInfo": 3600 })");
    vekTestSteps steps;
    host.addHostService(std::make_shared<RecordingHostService>(7, true, steps));
    host.addHostService(std::make_shared<RecordingHostService>(8, false, steps));
    startThread();
    ASSERT_TRUE(vekWaitForLog(debug, "HOST_RM: Exiting CacheBuild"));
    stopThread();

    // Finished within the ten seconds the stop waits for.
    EXPECT_TRUE(main.contains("HOST_RM: RM completed Shutdown gracefully: [1]")) << main.newText();
    EXPECT_EQ(vekLogCount(debug, "Starting Host resource manager cache build"), 1u);
    const std::string text = debug.newText();
    const std::vector<std::string> order = {"HOST_RM: Entry init()",
                                            "HOST_RM: Host Service [7] Activation Status= [1]",
                                            "HOST_RM: Host Service [8] Activation Status= [0]",
                                            "HOST_RM: Refresh Host RM data [1]",
                                            "HOST_RM: Resource manager stop called.",
                                            "HOST_RM: HOST RM stopped !!!"};
    size_t at = 0;
    for (const auto& line : order) {
        const size_t found = text.find(line, at);
        ASSERT_NE(found, std::string::npos) << line << "\n" << text;
        at = found + line.size();
    }
    // Written by the stopping thread while the manager's thread ends.
    EXPECT_LT(text.find("HOST_RM: Resource manager stop called."),
              text.find("HOST_RM: Signalled for stop & waiting for RM to complete Shutdown."));
    EXPECT_EQ(steps.all(), "activate 7\nactivate 8\nshutdown 7\nshutdown 8\n");
}

TEST_F(HostResourceManagerTest, SecondThreadIsRefused)
{
    useSimulatedHost();
    TestHostResourceManager& host = manager(R"("CacheRefreshInSeconds": { "HostOSInfo": 3600 })");
    startThread();
    ASSERT_TRUE(vekWaitForLog(debug, "HOST_RM: Exiting CacheBuild"));

    // Returns at once instead of running a second loop.
    host.init(services);
    EXPECT_TRUE(debug.contains("HOST_RM: VEK thread for host already active. Cannot spawn another one."));
    stopThread();
    EXPECT_EQ(vekLogCount(debug, "Refresh Host RM data"), 1u);
}

TEST_F(HostResourceManagerTest, MissedLastPollPushesRightAfterTheNextBuild)
{
    useSimulatedHost();
    TestHostResourceManager& host = manager(R"("CacheRefreshInSeconds": { "HostOSInfo": 3600 })");
    for (int poll = 0; poll < 8; ++poll) {
        EXPECT_FALSE(host.isInventoryReady(poll));
    }
    EXPECT_EQ(vekLogCount(main, "HOST_RM: Host cache ready 0"), 8u);
    EXPECT_FALSE(host.isInventoryReady(8));

    // The aggregator has not pushed yet, so it queues the request.
    startThread();
    ASSERT_TRUE(vekWaitForLog(
        debug, "JSON_AGGR: Queuing inventory send request as first inventory push is not yet complete."));
    const std::string text = debug.newText();
    const size_t built = text.find("HOST_RM: Exiting CacheBuild");
    const size_t pushed = text.find("HOST_RM: HOST RM Inventory");
    ASSERT_NE(built, std::string::npos) << text;
    ASSERT_NE(pushed, std::string::npos) << text;
    EXPECT_LT(built, pushed);
    EXPECT_TRUE(host.isInventoryReady(8));
    EXPECT_TRUE(main.contains("HOST_RM: Host cache ready 1"));
}

TEST_F(HostResourceManagerTest, PollsBeforeTheLastOneLeaveNoPush)
{
    useSimulatedHost();
    TestHostResourceManager& host = manager(R"("CacheRefreshInSeconds": { "HostOSInfo": 3600 })");
    for (int poll = 0; poll < 8; ++poll) {
        EXPECT_FALSE(host.isInventoryReady(poll));
    }
    startThread();
    ASSERT_TRUE(vekWaitForLog(debug, "HOST_RM: Exiting CacheBuild"));
    stopThread();
    EXPECT_FALSE(debug.contains("HOST RM Inventory"));
    EXPECT_FALSE(debug.contains("Queuing inventory send request"));
}

TEST_F(HostResourceManagerTest, IsRunningMeansNoInventoryYet)
{
    vekScopedTimeScale fast(1000);
    useSimulatedHost();
    TestHostResourceManager& host = manager();
    std::vector<Json::Value> nothing;
    EXPECT_FALSE(host.getInventoryJsonObject(nothing));
    EXPECT_TRUE(nothing.empty());
    EXPECT_TRUE(host.isRunning());
    EXPECT_FALSE(main.contains("_cacheBuildInProgress"));

    host.cacheBuild();
    EXPECT_FALSE(host.isRunning());
    for (int retry = 0; retry < 3; ++retry) {
        EXPECT_TRUE(main.contains("HOST_RM: _cacheBuildInProgress = 0, HostInventory.size() =1,retryCount =" +
                                  std::to_string(retry)))
            << main.newText();
    }
}

TEST_F(HostResourceManagerTest, TestEventGoesThroughTheCommunicationManager)
{
    useSimulatedHost();
    TestHostResourceManager& host = manager(R"("CacheRefreshInSeconds": { "HostOSInfo": 3600 })");
    vekRecordingChannel channel;
    vekTestSmbios smbios;
    vekTestComManager com(&channel, smbios);
    services.SetCommunicationService(com);

    // Before the thread runs there are no platform services to send through.
    host.generateTestEvent(434);
    EXPECT_TRUE(main.contains("HOST_RM: Test event [434] not sent: no communication manager.")) << main.newText();

    startThread();
    ASSERT_TRUE(vekWaitForLog(debug, "HOST_RM: Exiting CacheBuild"));
    host.generateTestEvent(1337);
    ASSERT_TRUE(channel.waitFor("MPEventGen", 1));
    stopThread();

    ASSERT_EQ(channel.count("MPEventGen"), 1u);
    const Json::Value event = vekRecordingChannel::parse(channel.payloads("MPEventGen").at(0));
    EXPECT_EQ(event["ID"], 1337);
    EXPECT_EQ(event["Source"], "VEK-CLI");
    EXPECT_EQ(event["PhysicalLocation"], "Not-Available");
    EXPECT_FALSE(event.isMember("VariableData"));
    EXPECT_FALSE(event["EventTime"].asString().empty());
}

TEST(HostResourceManagerFactory, IdOneIsTheHostSingleton)
{
    vekFactory factory;
    vekResourceManager* host = factory.createInstance(1);
    ASSERT_NE(host, nullptr);
    EXPECT_EQ(host, &HostResourceManager::getInstance());
    EXPECT_EQ(vekFactory().createInstance(1), host);
    EXPECT_EQ(factory.createInstance(6), nullptr);
    EXPECT_EQ(factory.createInstance(99), nullptr);
}

} // namespace
