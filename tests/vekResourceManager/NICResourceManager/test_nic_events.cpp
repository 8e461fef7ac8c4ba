// Port changes on the simulated host become events: the real poller thread
// reads the fake localcli's list, the state machines decide, and the events
// leave through the communication manager's queue.

#include "IELEvent.h"
#include "NICResourceManager/NICResourceManager.h"
#include "NICResourceManager/vekNICEventManager.h"
#include "NICResourceManager/vekNICInterface.h"
#include "vekEventTestFixture.h"
#include "vekLocationTestHost.h"
#include "vekOSInterface.h"
#include "vekTestInventoryPush.h"
#include "vekTestRoot.h"

#include <gtest/gtest.h>
#include <json/json.h>

#include <chrono>
#include <cstdlib>
#include <memory>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

namespace {

const std::string kHeader =
    "Name    PCI Device    Driver   Admin Status  Link Status  Speed   Duplex  MAC Address         MTU   Description\n"
    "------  ------------  -------  ------------  -----------  ------  ------  -----------------  ----  -----------\n";

// The platform's table without one id, as a platform that lacks the event.
class ResolverWithout : public IELEventResolver {
public:
    explicit ResolverWithout(IELEVENT::IELEventId missing) : missing_(missing) {}
    int operator()(IELEVENT::IELEventId id) override
    {
        if (id == missing_) {
            throw std::runtime_error("IEL Event Not Matching");
        }
        return table_(id);
    }

private:
    IELEVENT::IELEventId missing_;
    IELEventMap::IELEventTRB table_;
};

class NICEventsTest : public vekEventTestFixture {
protected:
    void SetUp() override
    {
        // Ten-second polls in a hundredth of a second each.
        setenv("VEK_TIME_SCALE", "1000", 1);
        host.writeTable(4, "[{\"type\": 9, \"designation\": \"PCIe Slot 1 r001u03p1i01\", \"address\": "
                           "\"0000:16:00.0\"}]");
        services = &host.services();
        services->SetIELEventResolver(new IELEventMap::IELEventTRB());
        services->SetCommunicationService(com);
        root.makeDirectory("/opt/zolvek/tmp");
        root.writeCliOutput("network nic get -n vmnic0", "   Driver Info:\n         Firmware Version: 4.20\n");
        setLink("Up");
        os = vekSystemInterfaceFactory::getSystemInterface();
    }

    // The port's link, administratively up.
    void setLink(const std::string& link)
    {
        root.writeCliOutput("network nic list",
                            kHeader + "vmnic0  0000:16:00.0  icen  Up  " + link +
                                "  25000  Full  b4:96:91:a1:10:20  1500  Intel(R) Ethernet Controller E810-C\n");
    }

    // The ports as a build found them, watched by the manager from now on;
    // the poller runs only when asked.
    vekNICVmwareEventNotifier* watch(vekNICEventManager& manager, bool poll = true)
    {
        std::vector<std::string> names;
        os->getNICInterface()->populateNICInstances(names);
        EXPECT_EQ(names, std::vector<std::string>{"vmnic0"});
        auto* notifier =
            dynamic_cast<vekNICVmwareEventNotifier*>(os->getNICInterface()->getNICEventNotifierInterface());
        EXPECT_NE(notifier, nullptr);
        EXPECT_EQ(notifier->attach(&manager, VEK_OBSERVABLE_ASPECT_NIC), VEK_OBSERVABLE_STATUS_SUCCESS);
        manager.initNICDevicesPortContextMap(names);
        if (poll) {
            EXPECT_EQ(notifier->startMonitoring(names), 0);
        }
        return notifier;
    }

};

TEST_F(NICEventsTest, EachChangeOfTheLinkGivesOneEventAndRecoveryComesFirst)
{
    vekNICEventManager manager(services, os);
    vekNICVmwareEventNotifier* notifier = watch(manager);

    // Steady link: nothing.
    EXPECT_FALSE(channel.waitFor("MPEventGen", 1, std::chrono::seconds(1)));
    size_t count = 0;
    for (const auto& change : {std::make_pair("Down", 1), {"Up", 1}, {"Unknown", 1}, {"Up", 2}}) {
        setLink(change.first);
        count += change.second;
        ASSERT_TRUE(channel.waitFor("MPEventGen", count)) << change.first;
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(200));
    notifier->stopMonitoring();
    notifier->detach(&manager);
    // Down, Up; then error, recovery, Up.
    EXPECT_EQ(sentIds(), (std::vector<int>{1384, 1390, 678, 680, 1390}));

    const Json::Value down = sent(0);
    EXPECT_EQ(down["VariableData"]["Type"].asString(), "EthernetDevice");
    EXPECT_EQ(down["VariableData"]["EventInfo"].asString(),
              "The connectivity between the Ethernet port and the switch has been lost.");
    EXPECT_EQ(down["VariableData"]["Data"]["MACAddress"].asString(), "b4:96:91:a1:10:20");
    EXPECT_EQ(down["VariableData"]["Data"]["Oem"]["Description"].asString(), "PCI 0000:16:00.0 r001u03p1i01");
    EXPECT_FALSE(down["VariableData"]["Data"].isMember("Status"));
    EXPECT_EQ(sent(1)["VariableData"]["EventInfo"].asString(), "");
    EXPECT_EQ(sent(2)["VariableData"]["EventInfo"].asString(),
              "Errors detected on NIC, use 'ip' command for status. Refer to syslog for further details.");
}

TEST_F(NICEventsTest, FlapWithinOnePeriodSaysNothing)
{
    // Polls a tenth of a second apart; the link goes and comes back between two.
    setenv("VEK_TIME_SCALE", "100", 1);
    vekNICEventManager manager(services, os);
    vekNICVmwareEventNotifier* notifier = watch(manager);
    std::this_thread::sleep_for(std::chrono::milliseconds(30));
    setLink("Down");
    setLink("Up");
    EXPECT_FALSE(channel.waitFor("MPEventGen", 1, std::chrono::seconds(1)));
    notifier->stopMonitoring();
    notifier->detach(&manager);
    EXPECT_EQ(manager.getPortStates().at("vmnic0"), Port_Link_Up);
}

// What fails while an event is built ends the port's change; what fails on
// the way to the RMC loses only that event. Either way the port takes its
// new state and reports its next change.
class NICEventLostTest : public NICEventsTest {
protected:
    void TearDown() override
    {
        if (manager) {
            notifier->detach(manager.get());
        }
    }

    // The port, Up, watched by a manager on these services; no poller.
    void watchOn(vekPlatformServices* on)
    {
        NICDeviceInfo record;
        record.InterfaceName = "vmnic0";
        vekNICInventoryManager::getInstance().saveInventory({record});
        manager.reset(new vekNICEventManager(on, os));
        notifier = watch(*manager, false);
    }

    // What the poller's job does for the port: read its status and tell the
    // manager. Gives the port's status in the inventory afterwards.
    std::string poll(const std::string& link)
    {
        setLink(link);
        os->getNICInterface()->refreshData();
        NICDeviceInfo now;
        os->getNICInterface()->discoverNICStatusInfo("vmnic0", now);
        manager->notifyChange(notifier, VEK_OBSERVABLE_ASPECT_NIC, "", "vmnic0", &now.deviceStatus.state,
                              &now.deviceStatus.health);
        std::vector<NICDeviceInfo> inventory;
        vekNICInventoryManager::getInstance().getInventory(inventory);
        const Json::Value status = inventory.at(0).getStatusJson();
        return status["State"].asString() + "/" + status["Health"].asString();
    }

    // Recovery from an error sends 27 then 30. Without one of them on the
    // platform the recovery ends there: the RMC gets nothing more of it and
    // the inventory keeps the error.
    void expectRecoveryEndsWithout(IELEVENT::IELEventId missing, const std::vector<int>& sent)
    {
        services->SetIELEventResolver(new ResolverWithout(missing));
        watchOn(services);
        EXPECT_EQ(poll("Unknown"), "Offline/Critical");
        EXPECT_EQ(poll("Up"), "Offline/Critical");
        EXPECT_TRUE(log.contains("Issue occurred in transitioning from one state to another state: IEL Event Not "
                                 "Matching"));
        EXPECT_EQ(manager->getPortStates().at("vmnic0"), Port_Link_Up);
        EXPECT_EQ(poll("Down"), "Linkdown/OK");
        // The last event queues behind whatever the lost one would have sent.
        ASSERT_TRUE(channel.waitFor("MPEventGen", sent.size()));
        EXPECT_EQ(sentIds(), sent);
    }

    std::unique_ptr<vekNICEventManager> manager;
    vekNICVmwareEventNotifier* notifier = nullptr;
    vekLogTail log{vekTestMainLogPath()};
};

TEST_F(NICEventLostTest, WithoutTheRecoveryEventNeitherItNorTheLinkUpIsSent)
{
    expectRecoveryEndsWithout(IELEVENT::IEL_NIC_PORT_OK, {678, 1384});
}

TEST_F(NICEventLostTest, WithoutTheLinkUpEventTheRecoveryAloneIsSent)
{
    expectRecoveryEndsWithout(IELEVENT::IEL_NIC_PORT_LINK_UP, {678, 680, 1384});
}

TEST_F(NICEventLostTest, EventThatCannotBeHandedOverIsLostButTheChangeCompletes)
{
    vekPlatformServices noChannel;
    noChannel.SetIELEventResolver(new IELEventMap::IELEventTRB());
    watchOn(&noChannel);
    EXPECT_EQ(poll("Down"), "Linkdown/OK");
    EXPECT_TRUE(log.contains("Event [1384] Failed to send for the NIC device at PL[03010301FF01FFFF]"))
        << log.newText();
    EXPECT_FALSE(log.contains("Issue occurred in transitioning"));
    EXPECT_EQ(poll("Up"), "Online/OK");
}

// The statuses the simulated host above does not produce.
TEST(NICEventRows, StatusToPortEvent)
{
    using M = vekNICEventManager;
    EXPECT_EQ(M::computeNICDevicePortState(VEK_STATE_INITIALIZING, VEK_HEALTH_OK), Port_Link_Initializing);
    EXPECT_EQ(M::computeNICDevicePortState(VEK_STATE_OFFLINE, VEK_HEALTH_OK), Port_Link_Disabled);
    // An administratively down port is not watched.
    EXPECT_EQ(M::computeNICDevicePortState(VEK_STATE_DOWN, VEK_HEALTH_OK), Not_Found);
    EXPECT_EQ(M::computeNICDevicePortState(VEK_STATE_ONLINE, VEK_HEALTH_WARNING), Not_Found);
}

} // namespace
