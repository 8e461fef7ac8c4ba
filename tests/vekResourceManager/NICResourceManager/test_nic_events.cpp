// Port changes on the simulated host become events: the real poller thread
// reads the fake localcli's list, the state machines decide, and the events
// leave through the communication manager's queue.

#include "IELEvent.h"
#include "NICResourceManager/NICResourceManager.h"
#include "NICResourceManager/vekNICEventManager.h"
#include "NICResourceManager/vekNICInterface.h"
#include "vekInBandComManager.h"
#include "vekInbandComInterface.h"
#include "vekLocationTestHost.h"
#include "vekOSInterface.h"
#include "vekTestRoot.h"

#include <gtest/gtest.h>
#include <json/json.h>

#include <chrono>
#include <condition_variable>
#include <cstdlib>
#include <mutex>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

namespace {

class RecordingChannel : public vekInbandComInterface {
public:
    void sendData(std::string command, std::string data) override
    {
        std::lock_guard<std::mutex> lock(mutex_);
        sent_.push_back(command + " " + data);
        changed_.notify_all();
    }
    void sendData(std::string command, std::string data, std::function<void(int)> callback) override
    {
        sendData(std::move(command), std::move(data));
        if (callback) {
            callback(0);
        }
    }
    int readDoorBell(int) override { return 0; }

    bool waitForCount(size_t count, std::chrono::milliseconds limit = std::chrono::seconds(20))
    {
        std::unique_lock<std::mutex> lock(mutex_);
        return changed_.wait_for(lock, limit, [&] { return sent_.size() >= count; });
    }
    std::vector<std::string> sent()
    {
        std::lock_guard<std::mutex> lock(mutex_);
        return sent_;
    }

private:
    std::mutex mutex_;
    std::condition_variable changed_;
    std::vector<std::string> sent_;
};

class TestComManager : public vekInBandComManager {
public:
    TestComManager(vekInbandComInterface* channel, vekSmbiosInterface& smbios) : vekInBandComManager(channel, smbios)
    {
    }
};

Json::Value parse(const std::string& text)
{
    Json::Value value;
    std::istringstream in(text);
    Json::CharReaderBuilder reader;
    std::string errors;
    Json::parseFromStream(reader, in, &value, &errors);
    return value;
}

const std::string kHeader =
    "Name    PCI Device    Driver   Admin Status  Link Status  Speed   Duplex  MAC Address         MTU   Description\n"
    "------  ------------  -------  ------------  -----------  ------  ------  -----------------  ----  -----------\n";

class NICEventsTest : public vekRootTest {
protected:
    void SetUp() override
    {
        // Ten-second polls in a hundredth of a second each.
        setenv("VEK_TIME_SCALE", "1000", 1);
        host.writeTable(4, "[{\"type\": 9, \"designation\": \"PCIe Slot 1 r001u03p1i01\", \"address\": "
                           "\"0000:16:00.0\"}]");
        services = &host.services();
        services->SetIELEventResolver(new IELEventMap::IELEventTRB());
        com.reset(new TestComManager(&channel, *services->getvekSmbiosInterface()));
        services->SetCommunicationService(*com);
        root.makeDirectory("/opt/zolvek/tmp");
        root.writeCliOutput("network nic get -n vmnic0", "   Driver Info:\n         Firmware Version: 4.20\n");
        setPorts("Up", "Up");
        os = vekSystemInterfaceFactory::getSystemInterface();
    }

    void setPorts(const std::string& admin, const std::string& link)
    {
        root.writeCliOutput("network nic list",
                            kHeader + "vmnic0  0000:16:00.0  icen  " + admin + "  " + link +
                                "  25000  Full  b4:96:91:a1:10:20  1500  Intel(R) Ethernet Controller E810-C\n");
    }

    // The ports as a build found them, watched by the manager from now on.
    vekNICVmwareEventNotifier* watch(vekNICEventManager& manager)
    {
        std::vector<std::string> names;
        os->getNICInterface()->populateNICInstances(names);
        EXPECT_EQ(names, std::vector<std::string>{"vmnic0"});
        auto* notifier =
            dynamic_cast<vekNICVmwareEventNotifier*>(os->getNICInterface()->getNICEventNotifierInterface());
        EXPECT_NE(notifier, nullptr);
        EXPECT_EQ(notifier->attach(&manager, VEK_OBSERVABLE_ASPECT_NIC), VEK_OBSERVABLE_STATUS_SUCCESS);
        manager.initNICDevicesPortContextMap(names);
        EXPECT_EQ(notifier->startMonitoring(names), 0);
        return notifier;
    }

    vekLocationTestHost host{root};
    vekPlatformServices* services = nullptr;
    RecordingChannel channel;
    std::unique_ptr<TestComManager> com;
    vekOSInterface* os = nullptr;
};

TEST_F(NICEventsTest, LinkLostAndBackGivesOneEventEach)
{
    vekNICEventManager manager(services, os);
    vekNICVmwareEventNotifier* notifier = watch(manager);

    // Steady link: nothing.
    EXPECT_FALSE(channel.waitForCount(1, std::chrono::milliseconds(300)));

    setPorts("Up", "Down");
    ASSERT_TRUE(channel.waitForCount(1));
    setPorts("Up", "Up");
    ASSERT_TRUE(channel.waitForCount(2));
    std::this_thread::sleep_for(std::chrono::milliseconds(200));
    notifier->stopMonitoring();
    notifier->detach(&manager);

    const std::vector<std::string> sent = channel.sent();
    ASSERT_EQ(sent.size(), 2u);
    ASSERT_EQ(sent[0].rfind("MPEventGen ", 0), 0u);
    const Json::Value down = parse(sent[0].substr(11));
    const Json::Value up = parse(sent[1].substr(11));
    EXPECT_EQ(down["ID"].asInt(), 1384);
    EXPECT_EQ(down["VariableData"]["Type"].asString(), "EthernetDevice");
    EXPECT_EQ(down["VariableData"]["EventInfo"].asString(),
              "The connectivity between the Ethernet port and the switch has been lost.");
    EXPECT_EQ(down["VariableData"]["Data"]["MACAddress"].asString(), "b4:96:91:a1:10:20");
    EXPECT_EQ(down["VariableData"]["Data"]["Oem"]["Description"].asString(), "PCI 0000:16:00.0 r001u03p1i01");
    EXPECT_FALSE(down["VariableData"]["Data"].isMember("Status"));
    EXPECT_EQ(up["ID"].asInt(), 1390);
    EXPECT_EQ(up["VariableData"]["EventInfo"].asString(), "");
}

TEST_F(NICEventsTest, UnknownLinkIsAnErrorAndItsRecoveryComesFirst)
{
    vekNICEventManager manager(services, os);
    vekNICVmwareEventNotifier* notifier = watch(manager);

    setPorts("Up", "Unknown");
    ASSERT_TRUE(channel.waitForCount(1));
    setPorts("Up", "Up");
    ASSERT_TRUE(channel.waitForCount(3));
    notifier->stopMonitoring();
    notifier->detach(&manager);

    const std::vector<std::string> sent = channel.sent();
    ASSERT_EQ(sent.size(), 3u);
    EXPECT_EQ(parse(sent[0].substr(11))["ID"].asInt(), 678);
    EXPECT_EQ(parse(sent[1].substr(11))["ID"].asInt(), 680);
    EXPECT_EQ(parse(sent[2].substr(11))["ID"].asInt(), 1390);
}

TEST_F(NICEventsTest, FlapWithinOnePeriodSaysNothing)
{
    // Polls a tenth of a second apart; the link goes and comes back between two.
    setenv("VEK_TIME_SCALE", "100", 1);
    vekNICEventManager manager(services, os);
    vekNICVmwareEventNotifier* notifier = watch(manager);
    std::this_thread::sleep_for(std::chrono::milliseconds(30));
    setPorts("Up", "Down");
    setPorts("Up", "Up");
    EXPECT_FALSE(channel.waitForCount(1, std::chrono::milliseconds(400)));
    notifier->stopMonitoring();
    notifier->detach(&manager);
    EXPECT_EQ(manager.getPortStates().at("vmnic0"), Port_Link_Up);
}

TEST(NICEventRows, StatusToPortEventAndEventTexts)
{
    EXPECT_EQ(vekNICEventManager::computeNICDevicePortState(VEK_STATE_ONLINE, VEK_HEALTH_OK), Port_Link_Up);
    EXPECT_EQ(vekNICEventManager::computeNICDevicePortState(VEK_STATE_LINKDOWN, VEK_HEALTH_OK), Port_Link_Down);
    EXPECT_EQ(vekNICEventManager::computeNICDevicePortState(VEK_STATE_OFFLINE, VEK_HEALTH_CRITICAL), Port_Error);
    EXPECT_EQ(vekNICEventManager::computeNICDevicePortState(VEK_STATE_OFFLINE, VEK_HEALTH_OK), Port_Link_Disabled);
    EXPECT_EQ(vekNICEventManager::computeNICDevicePortState(VEK_STATE_INITIALIZING, VEK_HEALTH_OK),
              Port_Link_Initializing);
    EXPECT_EQ(vekNICEventManager::computeNICDevicePortState(VEK_STATE_DOWN, VEK_HEALTH_OK), Not_Found);
}

} // namespace
