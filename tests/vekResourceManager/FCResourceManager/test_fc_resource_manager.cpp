// The Fibre Channel Resource Manager on the rack server: a host whose HBAs
// report nothing yet, then both HBAs; its thread, inventory and stop.

#include "FCResourceManager/FCResourceManager.h"
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

TEST(FCResourceManagerTest, WithoutCardsItRunsQuietlyAndWatchesOnceTheyCome)
{
    vekTestRoot root;
    setenv("VEK_TIME_SCALE", "1000", 1);
    ASSERT_NO_FATAL_FAILURE(vekCopyBundledProfile(root));
    root.makeDirectory("/opt/zolvek/tmp");
    root.writeConfig(R"({"EnableResources": ["FibreChannelDevices"],
                         "CacheRefreshInSeconds": {"FibreChannelDevices": 20}})");
    for (const char* vendor : {"/sim/libfakehba_qlogic.json", "/sim/libfakehba_emulex.json"}) {
        root.writeFile(vendor, R"({"adapters": []})");
    }
    vekLocationTestHost host{root};
    vekPlatformServices& services = host.services();
    vekLogTail log(vekTestDebugLogPath());
    vekLogTail mainLog(vekTestMainLogPath());

    FCResourceManager& fc = FCResourceManager::getInstance();
    EXPECT_EQ(vekFactory().createInstance(vekResourceIds::FIBRE_CHANNEL), &fc);
    vekManagerJob job(fc, services);

    ASSERT_TRUE(vekWaitForLog(log, "Refreshing FC cache", 3));
    EXPECT_EQ(vekLogCount(mainLog, "discoverFibreChannelDevices() completed, zero FC cards identified"), 1u);
    EXPECT_TRUE(fc.isInventoryReady(0));
    EXPECT_TRUE(fc.isRunning());
    EXPECT_EQ(fc.getEventManager(), nullptr);

    // The cards answer: the next build lists them and their watch begins.
    for (const char* vendor : {"/sim/libfakehba_qlogic.json", "/sim/libfakehba_emulex.json"}) {
        root.writeFile(vendor, vekBundledProfileFile(vendor + 1));
    }
    ASSERT_TRUE(vekEventually([&] { return fc.getEventManager() != nullptr; }));
    std::vector<Json::Value> inventory;
    ASSERT_TRUE(vekEventually([&] {
        inventory.clear();
        return !fc.getInventoryJsonObject(inventory) && inventory.size() == 4;
    }));
    EXPECT_EQ(inventory[1]["WWNN"].asString(), "20:00:f4:c7:aa:1c:35:e1");
    // The QLogic card's second port is down.
    EXPECT_EQ(inventory[1]["Oem"]["Description"].asString(), "PCI 0000:5e:00.1 r001u03p1i03");
    EXPECT_EQ(inventory[1]["Status"], vekRecordingChannel::parse(R"({"State": "Linkdown", "Health": "Critical"})"));
    // The Emulex card whole: its model and part numbers from the card matrix
    // by its PCI ids, its PL from the encoder (I/O card type 3, slot 6).
    EXPECT_EQ(inventory[2], vekRecordingChannel::parse(R"json({
        "WWNN": "20:00:00:90:fa:8c:7e:10", "WWPN": "10:00:00:90:fa:8c:7e:10", "SerialNumber": "FC21048812",
        "FirmwareVersion": "14.0.499.25", "RomVersion": "14.0.499.25", "Manufacturer": "Emulex Corporation",
        "Model": "32Gb 2-port Fibre Channel HBA (LPe35002)", "PartNumber": "ZV4-FC-32G2E",
        "SparePartNumber": "ZV4-FC-32G2E-SP", "SKU": "ZR4-OPT-FC32E",
        "Oem": {"Description": "PCI 0000:d8:00.0 r001u03p1i06", "PhysicalLocation": "03010301FF06FFFF"},
        "Status": {"Health": "OK", "State": "Online"}})json"));
    EXPECT_TRUE(fc.isRunning());
}

} // namespace
