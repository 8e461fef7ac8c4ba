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
// through setFactory(): the process-wide configuration is read once in the
// test main, before any case. Each case runs in its own process, so the
// aggregator singleton is fresh in every case.

namespace {

// The host manager under the case's configuration.
class TestHostResourceManager : public HostResourceManager {
public:
    explicit TestHostResourceManager(const vekConfig& config) : HostResourceManager(config) {}
};

class JsonAggregatorTest : public vekRootTest {
protected:
    void TearDown() override
    {
        if (started_) {
            aggregator.stopvekJsonAggregator();
        }
    }

    // This case's configuration, with the intervals given in seconds and
    // minutes, and the case's factory.
    void configure(const std::string& enabled, const std::string& more = "")
    {
        root.writeConfig("{ \"LoggingLevel\": \"Info\", \"EnableDebugLog\": true, \"EnableResources\": " + enabled +
                         (more.empty() ? "" : ", " + more) + " }");
        config = std::make_shared<const vekConfig>();
        aggregator.setConfig(config);
        aggregator.setFactory(factory);
    }

    void start(const std::vector<int>& ids)
    {
        aggregator.initialize(&com, ids);
        aggregator.start();
        started_ = true;
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
    bool started_ = false;
    // Outlive the aggregator's thread, which is stopped in TearDown.
    std::map<int, std::unique_ptr<vekFixedResourceManager>> managers_;
};

Json::Value array(std::initializer_list<Json::Value> items)
{
    Json::Value value(Json::arrayValue);
    for (const auto& item : items) {
        value.append(item);
    }
    return value;
}

TEST_F(JsonAggregatorTest, DocumentCollectsEveryEnabledManagerUnderItsKey)
{
    vekScopedTimeScale fast(100);
    configure(R"(["HostOSInfo", "FibreChannelDevices", "EthernetDevices", "GPUDevices", "StorageControllers",
                  "NVMeControllers", "InfiniBandDevices", "Utilization", "ProcessorTelemetry"])",
              R"("InventoryQueryIntervalInSeconds": 1)");
    manager(1, 0, {vekTestRecord("host"), vekTestRecord("second host object")});
    manager(0, 0, {vekTestRecord("fc 1"), vekTestRecord("fc 2")});
    manager(3, 0, {vekTestRecord("nic")});
    manager(5, 0, {vekTestRecord("gpu")});
    manager(99, 0, {vekTestRecord("not inventory")});
    vekFixedResourceManager& sas = manager(2);
    vekFixedResourceManager& nvme = manager(4);
    vekFixedResourceManager& rsrm = manager(8);
    sas.setTyped(1, {vekTestRecord("sas controller")});
    sas.setTyped(2, {vekTestRecord("sas drive 1"), vekTestRecord("sas drive 2")});
    sas.setTyped(3, {vekTestRecord("sas volume")});
    sas.setTyped(4, {vekTestRecord("sas enclosure")});
    nvme.setTyped(1, {vekTestRecord("nvme controller")});
    nvme.setTyped(2, {vekTestRecord("nvme drive")});
    nvme.setTyped(3, {vekTestRecord("nvme volume is never asked for")});
    rsrm.setTyped(1, {vekTestRecord("rsrm controller")});

    start({1, 0, 3, 5, 2, 4, 6, 8, 99, 100, 101});
    ASSERT_TRUE(channel.waitFor("WriteInventory", 1));
    // Settled: the channel may see the document before the thread logged the hand-over.
    aggregator.stopvekJsonAggregator();

    const Json::Value expected = [&] {
        Json::Value collection(Json::objectValue);
        collection["Oem"] = vekTestRecord("host");
        collection["FibreChannelDevices"] = array({vekTestRecord("fc 1"), vekTestRecord("fc 2")});
        collection["EthernetDevices"] = array({vekTestRecord("nic")});
        collection["Processors"] = array({vekTestRecord("gpu")});
        collection["StorageControllers"] = array(
            {vekTestRecord("sas controller"), vekTestRecord("nvme controller"), vekTestRecord("rsrm controller")});
        collection["Drives"] =
            array({vekTestRecord("sas drive 1"), vekTestRecord("sas drive 2"), vekTestRecord("nvme drive")});
        collection["Volumes"] = array({vekTestRecord("sas volume")});
        collection["StorageEnclosures"] = array({vekTestRecord("sas enclosure")});
        Json::Value document(Json::objectValue);
        document["HostDataCollection"] = collection;
        return document;
    }();
    const std::string text = channel.payloads("WriteInventory").at(0);
    EXPECT_EQ(vekRecordingChannel::parse(text), expected) << text;
    // One compact line.
    EXPECT_EQ(text.find('\n'), std::string::npos);
    EXPECT_EQ(text.find("  "), std::string::npos);
    EXPECT_EQ(text.front(), '{');
    EXPECT_EQ(text.back(), '}');
    // Utilization and telemetry ids are no inventory; InfiniBand is never enabled.
    EXPECT_EQ(factory->requests(99), 0);
    EXPECT_EQ(factory->requests(100), 0);
    EXPECT_EQ(factory->requests(6), 0);
    EXPECT_TRUE(debug.contains("JSON_AGGR: Collection Size for RM [HostOSInfo]=[2]")) << debug.newText();
    EXPECT_TRUE(main.contains("*************printing final Json String*******\n " + text));
    EXPECT_TRUE(debug.contains("JSON_AGGR: Success in delivering inventory string to RMC!"));
}

TEST_F(JsonAggregatorTest, FirstPushWaitsUntilEveryEnabledManagerIsReady)
{
    vekScopedTimeScale fast(100);
    configure(R"(["HostOSInfo", "EthernetDevices"])", R"("InventoryQueryIntervalInSeconds": 1)");
    vekFixedResourceManager& host = manager(1, 0, {vekTestRecord("host")});
    vekFixedResourceManager& nic = manager(3, 4, {vekTestRecord("nic")});
    vekFixedResourceManager& fc = manager(0, 0, {vekTestRecord("fc")});

    start({0, 1, 3});
    EXPECT_TRUE(debug.contains("JSON_AGGR: Creating Json Aggregator thread"));
    ASSERT_TRUE(channel.waitFor("WriteInventory", 1));
    aggregator.stopvekJsonAggregator();

    // The fifth poll finds the NIC manager ready; it was asked with iteration 4.
    EXPECT_EQ(nic.polls(), (std::vector<int>{0, 1, 2, 3, 4}));
    EXPECT_EQ(host.polls(), (std::vector<int>{0, 1, 2, 3, 4}));
    // A disabled manager is neither asked nor collected.
    EXPECT_TRUE(fc.polls().empty());
    EXPECT_EQ(factory->requests(0), 0);
    EXPECT_EQ(vekLogCount(main, "JSON_AGGR: RM 3 not ready with inventory"), 4u) << main.newText();
    EXPECT_EQ(vekLogCount(main, "RM 1 not ready"), 0u);
    EXPECT_TRUE(debug.contains("JSON_AGGR: WaitforInitialnventoryReady RMs:[3]"));
    EXPECT_TRUE(debug.contains("JSON_AGGR: Aggregator thread sleeping for 1 sec iteration no. 5"));
    EXPECT_FALSE(debug.contains("iteration no. 6"));
    EXPECT_TRUE(debug.contains("JSON_AGGR: Aggregator WaitforInitialnventoryReady RM:[3], enabled:[1], sec iteration no. [5]"));

    const Json::Value document = channel.inventories().at(0);
    EXPECT_EQ(document["HostDataCollection"].getMemberNames(), (std::vector<std::string>{"EthernetDevices", "Oem"}));
    EXPECT_TRUE(aggregator.isInventorySent());
}

TEST_F(JsonAggregatorTest, NinthPollGivesUpOnAManagerThatIsNeverReady)
{
    vekScopedTimeScale fast(100);
    configure(R"(["HostOSInfo", "EthernetDevices"])", R"("InventoryQueryIntervalInSeconds": 1)");
    manager(1, 0, {vekTestRecord("host")});
    vekFixedResourceManager& nic = manager(3, -1);

    start({1, 3});
    ASSERT_TRUE(channel.waitFor("WriteInventory", 1));
    aggregator.stopvekJsonAggregator();

    EXPECT_EQ(nic.polls(), (std::vector<int>{0, 1, 2, 3, 4, 5, 6, 7, 8}));
    EXPECT_EQ(vekLogCount(main, "RM 3 not ready with inventory"), 9u);
    EXPECT_EQ(channel.inventories().at(0)["HostDataCollection"].getMemberNames(), std::vector<std::string>{"Oem"});
}

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
    EXPECT_TRUE(second["Oem"].isObject());
    EXPECT_EQ(second["Oem"]["HostOSInfo"]["OSType"], 104);
    EXPECT_TRUE(debug.contains("HOST_RM: HOST RM Inventory"));
    EXPECT_TRUE(debug.contains("JSON_AGGR: Request to send inventory"));
    // One push per build that follows a missed poll, not one per build.
    EXPECT_EQ(vekLogCount(debug, "HOST RM Inventory"), 1u);
}

TEST_F(JsonAggregatorTest, RequestBeforeTheFirstPushIsServedByIt)
{
    vekScopedTimeScale fast(10);
    configure(R"(["HostOSInfo"])", R"("InventoryQueryIntervalInSeconds": 10)");
    vekFixedResourceManager& host = manager(1, -1, {vekTestRecord("host")});

    start({1});
    // The manager is not ready, so no push can have happened yet.
    aggregator.sendInventory();
    EXPECT_TRUE(debug.contains(
        "JSON_AGGR: Queuing inventory send request as first inventory push is not yet complete."));
    ASSERT_TRUE(vekWaitForLog(main, "RM 1 not ready with inventory"));
    // The request did not cut the readiness wait short.
    EXPECT_EQ(channel.count("WriteInventory"), 0u);
    host.setReadyFrom(0);
    ASSERT_TRUE(channel.waitFor("WriteInventory", 1));
    aggregator.stopvekJsonAggregator();

    EXPECT_EQ(channel.count("WriteInventory"), 1u);
    EXPECT_FALSE(debug.contains("Request to send inventory"));
}

TEST_F(JsonAggregatorTest, RequestAfterTheFirstPushSendsTheWholeDocumentAgain)
{
    vekScopedTimeScale fast(100);
    configure(R"(["HostOSInfo", "EthernetDevices"])", R"("InventoryQueryIntervalInSeconds": 1)");
    manager(1, 0, {vekTestRecord("host")});
    vekFixedResourceManager& nic = manager(3, 0, {vekTestRecord("nic")});

    start({1, 3});
    ASSERT_TRUE(channel.waitFor("WriteInventory", 1));
    nic.setItems({vekTestRecord("nic"), vekTestRecord("new nic")});
    aggregator.sendInventory();
    ASSERT_TRUE(channel.waitFor("WriteInventory", 2));
    aggregator.stopvekJsonAggregator();

    EXPECT_TRUE(debug.contains("JSON_AGGR: Request to send inventory"));
    const Json::Value second = channel.inventories().at(1)["HostDataCollection"];
    EXPECT_EQ(second["Oem"], vekTestRecord("host"));
    EXPECT_EQ(second["EthernetDevices"], array({vekTestRecord("nic"), vekTestRecord("new nic")}));
    // The push period is a day: nothing else went out.
    EXPECT_EQ(channel.count("WriteInventory"), 2u);
}

TEST_F(JsonAggregatorTest, PushesEveryPeriodWithoutRequests)
{
    // A minute at six hundredfold speed: a tenth of a second.
    vekScopedTimeScale fast(600);
    configure(R"(["HostOSInfo"])", R"("InventoryQueryIntervalInSeconds": 1, "PushInventoryFrequencyInMinutes": 1)");
    manager(1, 0, {vekTestRecord("host")});

    start({1});
    ASSERT_TRUE(channel.waitFor("WriteInventory", 3));
    EXPECT_GE(vekLogCount(debug, "JSON_AGGR: Thread signaled: Continue"), 2u);
    EXPECT_FALSE(debug.contains("Request to send inventory"));
}

TEST_F(JsonAggregatorTest, WithoutEnabledManagersNothingIsSentButTheFirstInventoryCounts)
{
    vekScopedTimeScale fast(100);
    configure("[]", R"("InventoryQueryIntervalInSeconds": 1)");
    manager(1, 0, {vekTestRecord("host")});

    EXPECT_FALSE(aggregator.isInventorySent());
    start({1, 3});
    ASSERT_TRUE(vekWaitForLog(main, "JSON_AGGR: No inventory information found!"));
    EXPECT_TRUE(main.contains("[WARNING] "));
    EXPECT_TRUE(aggregator.isInventorySent());
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

    const std::string text = main.newText();
    EXPECT_NE(text.find("[ERROR]   "), std::string::npos) << text;
    EXPECT_NE(text.find("JSON_AGGR: VEK Inventory Not Ready"), std::string::npos) << text;
    EXPECT_NE(text.find("JSON_AGGR: Stopped Json Aggregator gracefully."), std::string::npos) << text;
    EXPECT_TRUE(host.polls().empty());
    EXPECT_FALSE(aggregator.isInventorySent());
    EXPECT_EQ(channel.count("WriteInventory"), 0u);
    const std::string debugText = debug.newText();
    const size_t stopping = debugText.find("JSON_AGGR: Stopping vekJsonAggr");
    const size_t signalled = debugText.find("JSON_AGGR: Signalled for stop.");
    ASSERT_NE(stopping, std::string::npos);
    EXPECT_LT(stopping, signalled);
    EXPECT_NE(debugText.find("JSON_AGGR: Thread signaled: Stop Aggr state"), std::string::npos);
}

TEST_F(JsonAggregatorTest, LastDocumentIsSavedToAFileUnderTheRoot)
{
    vekScopedTimeScale fast(100);
    configure(R"(["HostOSInfo"])", R"("InventoryQueryIntervalInSeconds": 1)");
    manager(1, 0, {vekTestRecord("host")});

    root.makeDirectory("/tmp");
    EXPECT_EQ(aggregator.saveJsonInventoryAsFile("/tmp/inventory.json"), -1);
    EXPECT_TRUE(debug.contains("JSON_AGGR: Failed to write VEK inventory to file [/tmp/inventory.json], since no "
                               "last known inventory is available."));
    EXPECT_FALSE(root.exists("/tmp/inventory.json"));

    start({1});
    ASSERT_TRUE(channel.waitFor("WriteInventory", 1));
    EXPECT_EQ(aggregator.saveJsonInventoryAsFile("/tmp/inventory.json"), 0);
    EXPECT_EQ(root.readFile("/tmp/inventory.json"), channel.payloads("WriteInventory").at(0));

    EXPECT_EQ(aggregator.saveJsonInventoryAsFile("/no/such/folder/inventory.json"), -2);
    EXPECT_TRUE(main.contains("JSON_AGGR: Cannot open file /no/such/folder/inventory.json for writing"));
}

TEST_F(JsonAggregatorTest, WithoutACommunicationManagerThePushFailsButTheDocumentIsKept)
{
    vekScopedTimeScale fast(100);
    configure(R"(["HostOSInfo"])", R"("InventoryQueryIntervalInSeconds": 1)");
    manager(1, 0, {vekTestRecord("host")});

    root.makeDirectory("/tmp");
    aggregator.initialize(nullptr, {1});
    aggregator.start();
    ASSERT_TRUE(vekWaitForLog(main, "JSON_AGGR: An Error occurred in delivering inventory string to RMC!"));
    aggregator.stopvekJsonAggregator();

    EXPECT_TRUE(aggregator.isInventorySent());
    EXPECT_EQ(aggregator.saveJsonInventoryAsFile("/tmp/inventory.json"), 0);
    EXPECT_EQ(vekRecordingChannel::parse(root.readFile("/tmp/inventory.json"))["HostDataCollection"]["Oem"],
              vekTestRecord("host"));
}

TEST_F(JsonAggregatorTest, ManagersOfTheJobManagerAreCollectedAfterTheirFirstBuild)
{
    // The test managers of the job manager's tests, run on their own threads.
    vekScopedTimeScale fast(100);
    configure(R"(["HostOSInfo", "EthernetDevices"])",
              R"("InventoryQueryIntervalInSeconds": 60, "CacheRefreshInSeconds": { "Global": 3600 })");
    vekTestFactory managers(config);
    vekBuildGate gate;
    gate.hold();
    managers.gates[3] = &gate;
    factory->add(1, managers.createInstance(1));
    factory->add(3, managers.createInstance(3));
    vekPlatformServices services;
    std::thread host([&] { managers.createInstance(1)->init(services); });
    std::thread nic([&] { managers.createInstance(3)->init(services); });

    start({1, 3});
    ASSERT_TRUE(vekWaitForLog(main, "RM 3 not ready with inventory"));
    EXPECT_EQ(channel.count("WriteInventory"), 0u);
    gate.release();
    ASSERT_TRUE(channel.waitFor("WriteInventory", 1));
    aggregator.stopvekJsonAggregator();
    managers.createInstance(1)->stopResourceManagerJob();
    managers.createInstance(3)->stopResourceManagerJob();
    host.join();
    nic.join();

    const Json::Value collection = channel.inventories().at(0)["HostDataCollection"];
    EXPECT_EQ(collection["Oem"]["Manager"], 1);
    EXPECT_EQ(collection["EthernetDevices"][0]["Manager"], 3);
    EXPECT_EQ(collection["EthernetDevices"][0]["Build"], 1);
    // Nobody missed the last poll, so the managers did not push.
    EXPECT_FALSE(managers.steps.has("push 1"));
    EXPECT_FALSE(managers.steps.has("push 3"));
}

} // namespace
