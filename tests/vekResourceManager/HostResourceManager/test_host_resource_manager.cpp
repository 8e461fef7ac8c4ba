#include "HostResourceManager/HostResourceManager.h"

#include "vekBundledProfile.h"
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
    void useSimulatedHost() const { vekCopyBundledProfile(root); }

    TestHostResourceManager& manager(const std::string& more = "")
    {
        root.writeConfig(R"({ "LoggingLevel": "Info", "EnableDebugLog": true, "EnableResources": ["HostOSInfo"])" +
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

    Json::Value inventory = onlyInventory(host);
    // What depends on the machine the test runs on, and on the time.
    EXPECT_TRUE(std::regex_match(inventory["CollectionInfo"]["LastCollection"].asString(),
                                 std::regex("[0-9]{4}-[0-9]{2}-[0-9]{2}T[0-9]{2}:[0-9]{2}:[0-9]{2}Z")))
        << inventory["CollectionInfo"]["LastCollection"];
    struct utsname self;
    ASSERT_EQ(uname(&self), 0);
    Json::Value& os = inventory["HostOSInfo"];
    EXPECT_EQ(os["HostName"], self.nodename);
    EXPECT_EQ(os["OSDescription"], std::string(self.sysname) + " " + self.nodename + " " + self.release + " " +
                                       self.version + " " + self.machine);
    // Every IPv4 address of the machine but the loopback's, one object each.
    const std::vector<std::string> addresses = VMwareOSUtils::getIPAddress();
    ASSERT_EQ(os["IPv4Addresses"].size(), addresses.size());
    for (Json::ArrayIndex i = 0; i < addresses.size(); ++i) {
        EXPECT_EQ(os["IPv4Addresses"][i].getMemberNames(), std::vector<std::string>{"Address"});
        EXPECT_EQ(os["IPv4Addresses"][i]["Address"], addresses[i]);
        EXPECT_NE(addresses[i].rfind("127.", 0), 0u);
    }
    inventory["CollectionInfo"].removeMember("LastCollection");
    for (const char* key : {"HostName", "OSDescription", "IPv4Addresses"}) {
        os.removeMember(key);
    }
    // The rest from the simulated host; memory is esxtop's Machine and Free MBytes in whole GiB.
    EXPECT_EQ(inventory, vekRecordingChannel::parse(R"({
        "CollectionInfo": {"CollectionFrequencyMin": 720, "CollectionType": "RemoteSupport"},
        "HostOSInfo": {"OSName": "VMware ESXi", "OSVersion": "8.0.2", "OSType": 104,
                       "OSSoftwareSummary": {"VekSwVersion": "4.4.6.1"},
                       "OSMemorySummary": {"TotalSystemMemoryGiB": 3071.0, "TotalFreeSystemMemoryGiB": 2807.0}}})"))
        << inventory.toStyledString();
}

TEST_F(HostResourceManagerTest, HostThatAnswersNothingStillCountsAsBuilt)
{
    // No command outputs at all: the OS helpers give empty values. Running
    // means no inventory yet.
    TestHostResourceManager& host = manager();
    std::vector<Json::Value> nothing;
    EXPECT_FALSE(host.getInventoryJsonObject(nothing));
    EXPECT_TRUE(nothing.empty());
    EXPECT_TRUE(host.isRunning());
    host.cacheBuild();

    EXPECT_FALSE(host.isRunning());
    EXPECT_TRUE(host.isInventoryReady(0));
    EXPECT_EQ(onlyInventory(host)["HostOSInfo"]["OSSoftwareSummary"]["VekSwVersion"], "4.4.6.1");
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

// One build, then the hour's wait: a second thread is refused, the stop ends
// the wait at once, and polls before the aggregator's last one leave no push
// behind (only a missed last poll makes a build push by itself).
TEST_F(HostResourceManagerTest, StopDuringTheWaitEndsItAtOnce)
{
    useSimulatedHost();
    TestHostResourceManager& host = manager(R"("CacheRefreshInSeconds": { "HostOSInfo": 3600 })");
    vekTestSteps steps;
    host.addHostService(std::make_shared<RecordingHostService>(7, true, steps));
    host.addHostService(std::make_shared<RecordingHostService>(8, false, steps));
    for (int poll = 0; poll < 8; ++poll) {
        EXPECT_FALSE(host.isInventoryReady(poll));
    }
    startThread();
    ASSERT_TRUE(vekWaitForLog(debug, "HOST_RM: Exiting CacheBuild"));
    host.init(services);
    EXPECT_TRUE(debug.contains("HOST_RM: VEK thread for host already active. Cannot spawn another one."));
    stopThread();

    // Finished within the ten seconds the stop waits for.
    EXPECT_TRUE(main.contains("HOST_RM: RM completed Shutdown gracefully: [1]")) << main.newText();
    EXPECT_EQ(vekLogCount(debug, "Starting Host resource manager cache build"), 1u);
    EXPECT_TRUE(debug.contains("HOST_RM: Host Service [8] Activation Status= [0]"));
    EXPECT_EQ(steps.all(), "activate 7\nactivate 8\nshutdown 7\nshutdown 8\n");
    EXPECT_FALSE(debug.contains("HOST RM Inventory"));
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

    const Json::Value event = vekRecordingChannel::parse(channel.payloads("MPEventGen").at(0));
    EXPECT_EQ(event["ID"], 1337);
    EXPECT_EQ(event["Source"], "VEK-CLI");
    EXPECT_EQ(event["PhysicalLocation"], "Not-Available");
    EXPECT_FALSE(event.isMember("VariableData"));
    EXPECT_TRUE(std::regex_match(event["EventTime"].asString(),
                                 std::regex("[A-Z][a-z]{2} [A-Z][a-z]{2} +[0-9]{1,2} [0-9]{2}:[0-9]{2}:[0-9]{2} [0-9]{4}")))
        << event["EventTime"];
}

TEST(HostResourceManagerFactory, IdOneIsTheHostSingleton)
{
    EXPECT_EQ(vekFactory().createInstance(1), &HostResourceManager::getInstance());
    EXPECT_EQ(vekFactory().createInstance(6), nullptr);
    EXPECT_EQ(vekFactory().createInstance(99), nullptr);
}

} // namespace
