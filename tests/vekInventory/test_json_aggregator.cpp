#include "vekJsonAggregator.h"

#include "HostResourceManager/HostResourceManager.h"
#include "vekConfig.h"
#include "vekPlatformServices.h"
#include "vekTestInventoryPush.h"
#include "vekTestResourceManager.h"
#include "vekTestRoot.h"

#include <gtest/gtest.h>

#include <map>
#include <memory>
#include <string>
#include <thread>
#include <vector>

// The aggregator reads its configuration through setConfig() and its managers
// through setFactory(); each case runs in a process of its own, so the
// aggregator singleton is fresh in every case.

namespace {

// The host manager under the case's configuration.
class TestHostResourceManager : public HostResourceManager {
public:
    explicit TestHostResourceManager(const vekConfig& config) : HostResourceManager(config) {}
};

class JsonAggregatorTest : public vekRootTest {
protected:
    // Stopping twice, or what never started, is harmless.
    void TearDown() override { aggregator.stopvekJsonAggregator(); }

    // This case's configuration (polls a second apart unless said) and factory.
    void configure(const std::string& enabled, const std::string& more = R"("InventoryQueryIntervalInSeconds": 1)")
    {
        root.writeConfig("{ \"LoggingLevel\": \"Info\", \"EnableDebugLog\": true, \"EnableResources\": " + enabled +
                         ", " + more + " }");
        config = std::make_shared<const vekConfig>();
        aggregator.setConfig(config);
        aggregator.setFactory(factory);
    }

    void start(const std::vector<int>& ids)
    {
        aggregator.initialize(&com, ids);
        aggregator.start();
    }

    // A manager for the id, ready from that poll on (-1: never), holding the items.
    vekFixedResourceManager& manager(int id, int readyFrom = 0, std::vector<Json::Value> items = {})
    {
        auto& slot = managers_[id];
        slot = std::make_unique<vekFixedResourceManager>(readyFrom);
        slot->setItems(std::move(items));
        factory->add(id, slot.get());
        return *slot;
    }

    std::shared_ptr<const vekConfig> config;
    std::shared_ptr<vekMapFactory> factory = std::make_shared<vekMapFactory>();
    vekRecordingChannel channel;
    vekTestSmbios smbios;
    vekTestComManager com{&channel, smbios};
    vekJsonAggregator& aggregator = vekJsonAggregator::getInstance();
    vekLogTail main{vekTestMainLogPath()};
    vekLogTail debug{vekTestDebugLogPath()};

private:
    // Outlive the aggregator's thread, which is stopped in TearDown.
    std::map<int, std::unique_ptr<vekFixedResourceManager>> managers_;
};

TEST_F(JsonAggregatorTest, DocumentCollectsEveryEnabledManagerUnderItsKey)
{
    vekScopedTimeScale fast(100);
    configure(R"(["HostOSInfo", "FibreChannelDevices", "EthernetDevices", "GPUDevices", "StorageControllers",
                  "NVMeControllers", "InfiniBandDevices", "Utilization", "ProcessorTelemetry"])");
    manager(1, 0, {vekTestRecord("host"), vekTestRecord("second host")});
    manager(0, 0, {vekTestRecord("fc1"), vekTestRecord("fc2")});
    manager(3, 0, {vekTestRecord("nic")});
    manager(5, 0, {vekTestRecord("gpu")});
    manager(99, 0, {vekTestRecord("utilization")});
    vekFixedResourceManager& sas = manager(2);
    sas.setTyped(1, {vekTestRecord("sas")});
    sas.setTyped(2, {vekTestRecord("sasDrive1"), vekTestRecord("sasDrive2")});
    sas.setTyped(3, {vekTestRecord("sasVolume")});
    sas.setTyped(4, {vekTestRecord("sasEnclosure")});
    vekFixedResourceManager& nvme = manager(4);
    nvme.setTyped(1, {vekTestRecord("nvme")});
    nvme.setTyped(2, {vekTestRecord("nvmeDrive")});
    nvme.setTyped(3, {vekTestRecord("nvmeVolume is never asked for")});
    manager(8).setTyped(1, {vekTestRecord("rsrm")});

    start({1, 0, 3, 5, 2, 4, 6, 8, 99, 100, 101});
    ASSERT_TRUE(channel.waitFor("WriteInventory", 1));
    // Settled: the channel may see the document before the thread logged the hand-over.
    aggregator.stopvekJsonAggregator();

    const std::string text = channel.payloads("WriteInventory").at(0);
    EXPECT_EQ(vekRecordingChannel::parse(text), vekRecordingChannel::parse(R"({"HostDataCollection": {
        "Oem": {"Name": "host"},
        "FibreChannelDevices": [{"Name": "fc1"}, {"Name": "fc2"}],
        "EthernetDevices": [{"Name": "nic"}],
        "Processors": [{"Name": "gpu"}],
        "StorageControllers": [{"Name": "sas"}, {"Name": "nvme"}, {"Name": "rsrm"}],
        "Drives": [{"Name": "sasDrive1"}, {"Name": "sasDrive2"}, {"Name": "nvmeDrive"}],
        "Volumes": [{"Name": "sasVolume"}],
        "StorageEnclosures": [{"Name": "sasEnclosure"}]}})"))
        << text;
    // One compact line.
    EXPECT_EQ(text.find('\n'), std::string::npos);
    EXPECT_EQ(text.find("\": "), std::string::npos);
    // Utilization and telemetry ids are no inventory; InfiniBand is never enabled.
    EXPECT_EQ(factory->requests(99) + factory->requests(100) + factory->requests(6), 0);
    EXPECT_TRUE(main.contains("*************printing final Json String*******\n " + text));
}

TEST_F(JsonAggregatorTest, FirstPushWaitsUntilEveryEnabledManagerIsReady)
{
    vekScopedTimeScale fast(100);
    configure(R"(["HostOSInfo", "EthernetDevices"])");
    vekFixedResourceManager& host = manager(1, 0, {vekTestRecord("host")});
    vekFixedResourceManager& nic = manager(3, 4, {vekTestRecord("nic")});
    manager(0, 0, {vekTestRecord("fc")});

    start({0, 1, 3});
    ASSERT_TRUE(channel.waitFor("WriteInventory", 1));
    aggregator.stopvekJsonAggregator();

    // The fifth poll finds the NIC manager ready; it was asked with iteration 4.
    EXPECT_EQ(nic.polls(), (std::vector<int>{0, 1, 2, 3, 4}));
    EXPECT_EQ(host.polls(), (std::vector<int>{0, 1, 2, 3, 4}));
    EXPECT_EQ(vekLogCount(main, "JSON_AGGR: RM 3 not ready with inventory"), 4u) << main.newText();
    // A disabled manager is neither asked nor collected.
    EXPECT_EQ(factory->requests(0), 0);
    EXPECT_EQ(channel.inventories().at(0)["HostDataCollection"].getMemberNames(),
              (std::vector<std::string>{"EthernetDevices", "Oem"}));
}

// The ninth poll gives up on the host manager whose thread has not started;
// its first build then pushes by itself.
TEST_F(JsonAggregatorTest, LateHostManagerPushesByItselfAfterItsFirstBuild)
{
    vekScopedTimeScale fast(100);
    configure(R"(["HostOSInfo", "EthernetDevices"])",
              R"("InventoryQueryIntervalInSeconds": 1, "CacheRefreshInSeconds": { "Global": 3600 })");
    TestHostResourceManager host(*config);
    factory->add(1, &host);
    manager(3, 0, {vekTestRecord("nic")});

    start({1, 3});
    ASSERT_TRUE(channel.waitFor("WriteInventory", 1));
    EXPECT_EQ(vekLogCount(main, "RM 1 not ready with inventory"), 9u);
    EXPECT_EQ(vekLogCount(main, "HOST_RM: Host cache ready 0"), 9u);
    EXPECT_EQ(channel.inventories().at(0)["HostDataCollection"].getMemberNames(),
              std::vector<std::string>{"EthernetDevices"});

    // The host's thread starts only now; its first build answers the missed poll.
    vekPlatformServices services;
    std::thread hostThread([&] { host.init(services); });
    ASSERT_TRUE(channel.waitFor("WriteInventory", 2));
    host.stopResourceManagerJob();
    hostThread.join();
    aggregator.stopvekJsonAggregator();

    const Json::Value second = channel.inventories().at(1)["HostDataCollection"];
    EXPECT_EQ(second.getMemberNames(), (std::vector<std::string>{"EthernetDevices", "Oem"}));
    EXPECT_EQ(second["Oem"]["HostOSInfo"]["OSType"], 104);
    // One push per build that follows a missed poll, not one per build.
    EXPECT_EQ(vekLogCount(debug, "HOST RM Inventory"), 1u);
}

// The RMC's requests (doorbells): one before the first push is served by it,
// one after sends the whole document again.
TEST_F(JsonAggregatorTest, RequestsBeforeAndAfterTheFirstPush)
{
    vekScopedTimeScale fast(10);
    configure(R"(["HostOSInfo"])", R"("InventoryQueryIntervalInSeconds": 10)");
    vekFixedResourceManager& host = manager(1, -1, {vekTestRecord("host")});

    start({1});
    aggregator.sendInventory();
    EXPECT_TRUE(debug.contains(
        "JSON_AGGR: Queuing inventory send request as first inventory push is not yet complete."));
    ASSERT_TRUE(vekWaitForLog(main, "RM 1 not ready with inventory"));
    // The request did not cut the readiness wait short.
    EXPECT_EQ(channel.count("WriteInventory"), 0u);
    host.setReadyFrom(0);
    ASSERT_TRUE(channel.waitFor("WriteInventory", 1));

    host.setItems({vekTestRecord("host rebuilt")});
    aggregator.sendInventory();
    ASSERT_TRUE(channel.waitFor("WriteInventory", 2));
    aggregator.stopvekJsonAggregator();
    EXPECT_EQ(vekLogCount(debug, "JSON_AGGR: Request to send inventory"), 1u);
    // The push period is a day: nothing else went out.
    EXPECT_EQ(channel.count("WriteInventory"), 2u);
    EXPECT_EQ(channel.inventories().at(1)["HostDataCollection"]["Oem"], vekTestRecord("host rebuilt"));
}

TEST_F(JsonAggregatorTest, PushesEveryPeriodWithoutRequests)
{
    // A minute at six hundredfold speed: a tenth of a second.
    vekScopedTimeScale fast(600);
    configure(R"(["HostOSInfo"])", R"("InventoryQueryIntervalInSeconds": 1, "PushInventoryFrequencyInMinutes": 1)");
    manager(1, 0, {vekTestRecord("host")});

    start({1});
    ASSERT_TRUE(channel.waitFor("WriteInventory", 3));
    EXPECT_FALSE(debug.contains("Request to send inventory"));
}

TEST_F(JsonAggregatorTest, WithoutEnabledManagersNothingIsSentButTheFirstInventoryCounts)
{
    vekScopedTimeScale fast(100);
    configure("[]");
    manager(1, 0, {vekTestRecord("host")});

    EXPECT_FALSE(aggregator.isInventorySent());
    start({1, 3});
    ASSERT_TRUE(vekWaitForLog(main, "JSON_AGGR: No inventory information found!"));
    EXPECT_EQ(vekLevelOf(main.newText(), "No inventory information found!"), "WARNING");
    // The first inventory counts as sent once that pass is over, just after its line.
    EXPECT_TRUE(vekEventually([&] { return aggregator.isInventorySent(); }));
    EXPECT_EQ(channel.count("WriteInventory"), 0u);
    EXPECT_EQ(factory->requests(1), 0);
    EXPECT_EQ(aggregator.saveJsonInventoryAsFile("/tmp/inventory.json"), -1);
}

TEST_F(JsonAggregatorTest, StopDuringTheReadinessWaitEndsWithoutInventory)
{
    configure(R"(["HostOSInfo"])", R"("InventoryQueryIntervalInSeconds": 3600)");
    vekFixedResourceManager& host = manager(1);

    start({1});
    aggregator.stopvekJsonAggregator();

    EXPECT_EQ(vekLevelOf(main.newText(), "JSON_AGGR: VEK Inventory Not Ready"), "ERROR") << main.newText();
    EXPECT_TRUE(main.contains("JSON_AGGR: Stopped Json Aggregator gracefully."));
    EXPECT_TRUE(host.polls().empty());
    EXPECT_FALSE(aggregator.isInventorySent());
    EXPECT_EQ(channel.count("WriteInventory"), 0u);
}

// The last document is kept even when it could not be delivered, and saved
// on request.
TEST_F(JsonAggregatorTest, LastDocumentIsSavedToAFileEvenWhenThePushFailed)
{
    vekScopedTimeScale fast(100);
    configure(R"(["HostOSInfo"])");
    manager(1, 0, {vekTestRecord("host")});

    root.makeDirectory("/tmp");
    EXPECT_EQ(aggregator.saveJsonInventoryAsFile("/tmp/inventory.json"), -1);
    EXPECT_TRUE(debug.contains("JSON_AGGR: Failed to write VEK inventory to file [/tmp/inventory.json], since no "
                               "last known inventory is available."));
    EXPECT_FALSE(root.exists("/tmp/inventory.json"));

    aggregator.initialize(nullptr, {1});
    aggregator.start();
    ASSERT_TRUE(vekWaitForLog(main, "JSON_AGGR: An Error occurred in delivering inventory string to RMC!"));
    aggregator.stopvekJsonAggregator();
    EXPECT_TRUE(aggregator.isInventorySent());
    EXPECT_EQ(aggregator.saveJsonInventoryAsFile("/tmp/inventory.json"), 0);
    EXPECT_EQ(vekRecordingChannel::parse(root.readFile("/tmp/inventory.json"))["HostDataCollection"]["Oem"],
              vekTestRecord("host"));
    EXPECT_EQ(aggregator.saveJsonInventoryAsFile("/no/such/folder/inventory.json"), -2);
    EXPECT_TRUE(main.contains("JSON_AGGR: Cannot open file /no/such/folder/inventory.json for writing"));
}

} // namespace
