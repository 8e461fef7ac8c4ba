// The Ethernet Resource Manager on the bundled rack server: its thread, its
// inventory as the aggregator reads it, and its stop.

#include "NICResourceManager/NICResourceManager.h"
#include "vekBundledProfile.h"
#include "vekFactory.h"
#include "vekLocationTestHost.h"
#include "vekResourceIds.h"
#include "vekTestInventoryPush.h"
#include "vekTestRoot.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <string>
#include <vector>

namespace {

class NICResourceManagerTest : public vekRootTest {
protected:
    void SetUp() override
    {
        setenv("VEK_TIME_SCALE", "1000", 1);
        ASSERT_NO_FATAL_FAILURE(vekCopyBundledProfile(root));
        root.makeDirectory("/opt/zolvek/tmp");
        root.writeConfig(R"({"EnableResources": ["HostOSInfo", "EthernetDevices"],
                             "CacheRefreshInSeconds": {"EthernetDevices": 3600}})");
    }

    vekLocationTestHost host{root};
};

TEST_F(NICResourceManagerTest, BundledRackServerPortsAreInTheInventory)
{
    vekPlatformServices& services = host.services();
    NICResourceManager& nic = NICResourceManager::getInstance();
    EXPECT_EQ(vekFactory().createInstance(vekResourceIds::ETHERNET), &nic);
    vekManagerJob job(nic, services);
    ASSERT_TRUE(vekEventually([&] { return nic.isInventoryReady(0); }));

    std::vector<Json::Value> inventory;
    EXPECT_FALSE(nic.getInventoryJsonObject(inventory));
    ASSERT_EQ(inventory.size(), 4u); // vusb0 is a virtual port
    // The card's numbers come from the card matrix by its PCI ids; its PL
    // from the encoder: I/O card type 3, rack 1, unit 3, partition 1, slot 1.
    EXPECT_EQ(inventory[0], vekRecordingChannel::parse(R"({
        "FirmwareVersion": "4.20 0x80017785 1.3346.0", "MACAddress": "b4:96:91:a1:10:20",
        "Manufacturer": "Intel Corporation", "Model": "Ethernet 25Gb 2-port E810-C SFP28 Adapter",
        "Oem": {"Description": "PCI 0000:16:00.0 r001u03p1i01", "DeviceName": "0000:16:00.0",
                "PhysicalLocation": "03010301FF01FFFF"},
        "PartNumber": "ZV4-NIC-25G2", "SKU": "ZR4-OPT-NIC25", "SerialNumber": "",
        "SparePartNumber": "ZV4-NIC-25G2-SP", "SpeedMbps": 25000,
        "Status": {"Health": "OK", "State": "Online"}})"));
    EXPECT_EQ(inventory[2]["Oem"]["Description"].asString(), "PCI 0000:2a:00.0 r001u03p1o1");
    // The administratively down port.
    EXPECT_EQ(inventory[3]["Status"]["State"].asString(), "Offline");
    EXPECT_EQ(inventory[3]["Status"]["Health"].asString(), "OK");

    // The watch of the links starts right after the first build.
    ASSERT_TRUE(vekEventually([&] { return nic.getEventManager() != nullptr; }));
    EXPECT_TRUE(nic.isRunning());
    const std::map<std::string, int> ports = nic.getEventManager()->getPortStates();
    EXPECT_EQ(ports.at("vmnic0"), Port_Link_Up);
    EXPECT_EQ(ports.at("vmnic3"), Port_Link_Disabled);
}

} // namespace
