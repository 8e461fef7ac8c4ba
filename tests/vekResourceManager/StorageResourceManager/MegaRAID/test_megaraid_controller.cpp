// MegaRAID controllers as the storage manager builds them from the library:
// the records it reports, controllers that come and go, and the one event
// registration for all of them.

#include "vekMegaRAIDTestHost.h"

#include <gtest/gtest.h>

#include <set>
#include <string>
#include <vector>

namespace {

using MegaRAIDControllerTest = vekMegaRAIDTest;

TEST_F(MegaRAIDControllerTest, TheRackServersControllerWithItsDrivesAndVolumes)
{
    build();
    ASSERT_EQ(controllers.size(), 1u);
    const vekStorageControllerInfo& ctrl = controllers[0];
    EXPECT_EQ(ctrl.getModel(), "MegaRAID 9560-16i");
    EXPECT_EQ(ctrl.getSerialNumber(), "SKC4012345");
    EXPECT_EQ(ctrl.getFirmwareVersion(), "5.220.02-3691");
    EXPECT_EQ(ctrl.getProtocol(), "SAS/SATA/NVMe");
    EXPECT_EQ(ctrl.getState(), VEK_STATE_RUNNING);
    EXPECT_EQ(ctrl.getHealth(), VEK_HEALTH_OK);
    EXPECT_EQ(ctrl.getDescription().rfind("PCI 0000:3b:00.0 ", 0), 0u) << ctrl.getDescription();
    // The maker's numbers of the adapter, as the RMC reads them.
    const Json::Value record = ctrl.getVariableData()["Data"];
    EXPECT_EQ(record["PartNumber"].asString(), "ZV4-RAID-9560-16I");
    EXPECT_EQ(record["SparePartNumber"].asString(), "ZV4-RAID-9560-16I-SP");
    EXPECT_EQ(record["SKU"].asString(), "ZR4-OPT-R9560");
    EXPECT_EQ(record["Manufacturer"].asString(), "Broadcom / LSI");

    ASSERT_EQ(drives.size(), 4u);
    std::set<std::string> slots;
    for (const vekDiskInfo& drive : drives) {
        slots.insert(drive.getSlot());
        EXPECT_EQ(drive.getState(), VEK_STATE_ONLINE) << drive.getSerialNumber();
        EXPECT_EQ(drive.getHealth(), VEK_HEALTH_OK) << drive.getSerialNumber();
        // All four bays lie on the backplane of box 1, two of them reached
        // through the FRU of the other connector's bus. This host has no slot
        // for the controller, so no PL can be encoded (the service case has).
        EXPECT_EQ(drive.getEnclosureBox(), 1) << drive.getSerialNumber();
    }
    EXPECT_EQ(slots, (std::set<std::string>{"252:1", "252:2", "252:3", "252:4"}));

    // Both segments of the UBM backplane are enclosures of the controller.
    ASSERT_EQ(enclosures.size(), 2u);
    for (size_t i = 0; i < enclosures.size(); ++i) {
        EXPECT_EQ(enclosures[i].getBox(), static_cast<int>(i) + 1);
        EXPECT_EQ(enclosures[i].getSerialNumber(), "BP4A0000" + std::to_string(i + 1));
        EXPECT_EQ(enclosures[i].getModel(), "UBM 4-Bay Backplane");
        EXPECT_EQ(enclosures[i].getBayCount(), 4);
        EXPECT_EQ(enclosures[i].getState(), VEK_STATE_RUNNING);
        EXPECT_EQ(enclosures[i].getHealth(), VEK_HEALTH_OK);
    }
    EXPECT_EQ(drives[2].getManufacturer(), "SAMSUNG");
    EXPECT_EQ(drives[2].getMediaType(), "SSD");
    struct Numbers {
        size_t drive;
        const char *part, *spare, *sku;
    };
    for (const Numbers& c : std::vector<Numbers>{{0, "ZV4-HDD-1T2", "ZV4-HDD-1T2-SP", "ZR4-OPT-HDD12"},
                                                 {3, "ZV4-SSD-960", "ZV4-SSD-960-SP", "ZR4-OPT-SSD96"}}) {
        const Json::Value drive = drives[c.drive].getVariableData()["Data"];
        EXPECT_EQ(drive["PartNumber"].asString(), c.part) << c.drive;
        EXPECT_EQ(drive["SparePartNumber"].asString(), c.spare) << c.drive;
        EXPECT_EQ(drive["SKU"].asString(), c.sku) << c.drive;
    }

    ASSERT_EQ(volumes.size(), 2u);
    const Json::Value volume = volumes[1].getVariableData()["Data"];
    EXPECT_EQ(volume["DurableName"].asString(), "600062B20CF5E6802A9D4E1F0B7C3D02");
    EXPECT_EQ(volume["VolumeType"].asString(), "RAID1");
    EXPECT_EQ(volume["Drives"].size(), 2u);
    EXPECT_EQ(volume["Oem"]["DeviceName"].asString(), "VD_DATA");
    EXPECT_TRUE(controller()->isEventsEnabled());
}

// Only the first controller registers for events; the registration ends with
// the last controller that leaves.
TEST_F(MegaRAIDControllerTest, TwoControllersShareOneEventRegistration)
{
    vekLogTail log(vekTestMainLogPath());
    Json::Value second = scenario["controllers"][0];
    second["id"] = 1;
    second["pci"] = "0000:86:00.0";
    second["serialNumber"] = "SKC4099999";
    second["logicalDrives"] = Json::arrayValue;
    // A board and a drive model the maker's tables don't know.
    second["subDeviceId"] = "4999";
    second["drives"][0]["model"] = "ST9999XX0001";
    scenario["controllers"].append(second);
    writeScenario();
    build();
    ASSERT_EQ(controllers.size(), 2u);
    EXPECT_EQ(drives.size(), 8u);
    EXPECT_EQ(volumes.size(), 2u);
    EXPECT_TRUE(log.contains("AEN Registration successful for [2] LSI MR controllers."));
    ASSERT_NE(controller("SKC4099999"), nullptr);
    EXPECT_TRUE(controller("SKC4099999")->isEventsEnabled());
    EXPECT_EQ(controllers[1].getSerialNumber(), "SKC4099999");
    EXPECT_EQ(controllers[1].getPartNumber() + controllers[1].getSkuPartNumber(), "");
    EXPECT_EQ(drives[4].getModel(), "ST9999XX0001");
    EXPECT_EQ(drives[4].getPartNumber() + drives[4].getSkuPartNumber(), "");

    // The first leaves; the registration stays for the other.
    scenario["controllers"] = Json::Value(Json::arrayValue);
    scenario["controllers"].append(second);
    writeScenario();
    build();
    ASSERT_EQ(controllers.size(), 1u);
    EXPECT_EQ(controllers[0].getSerialNumber(), "SKC4099999");
    EXPECT_EQ(controller("SKC4012345"), nullptr);
    EXPECT_FALSE(log.contains("Unregistering AEN for all LSI MegaRAID controllers"));
    EXPECT_TRUE(controller("SKC4099999")->isEventsEnabled());

    // The last leaves.
    scenario["controllers"] = Json::Value(Json::arrayValue);
    writeScenario();
    build();
    EXPECT_TRUE(controllers.empty());
    EXPECT_TRUE(log.contains("Unregistering AEN for all LSI MegaRAID controllers"));
    EXPECT_TRUE(log.contains("No more LSI MegaRAID controllers remaining."));
    EXPECT_FALSE(vekMegaRAIDController::isAENRegistered);
}

TEST_F(MegaRAIDControllerTest, AControllerOfAnUnknownChipsetIsLeftOut)
{
    Json::Value unknown = scenario["controllers"][0];
    unknown["id"] = 1;
    unknown["deviceId"] = "0016";
    unknown["serialNumber"] = "SKOLD00001";
    scenario["controllers"].append(unknown);
    writeScenario();
    build();
    ASSERT_EQ(controllers.size(), 1u);
    EXPECT_EQ(controllers[0].getSerialNumber(), "SKC4012345");
    EXPECT_EQ(controller("SKOLD00001"), nullptr);
}

// What the rebuild raises by itself: a change of a volume's health, never a
// drive's move to predictive failure (that comes from the firmware's event).
TEST_F(MegaRAIDControllerTest, StatusChangesSeenByARebuild)
{
    build();
    vekMegaRAIDController* ctrl = controller();
    ASSERT_NE(ctrl, nullptr);
    struct Case {
        VEK_RESOURCE_STATE before, after;
        bool raised;
    };
    for (const Case& c : std::vector<Case>{{VEK_STATE_ONLINE, VEK_STATE_FAILED, true},
                                           {VEK_STATE_OFFLINE, VEK_STATE_REBUILD, true},
                                           {VEK_STATE_FAILED, VEK_STATE_UNCONFIGURED_BAD, true},
                                           {VEK_STATE_ONLINE, VEK_STATE_PREDICTIVE_FAILURE, false},
                                           {VEK_STATE_ONLINE, VEK_STATE_ONLINE, false}}) {
        vekDiskInfo before = drives[0], after = drives[0];
        before.setState(c.before);
        after.setState(c.after);
        EXPECT_EQ(ctrl->generateEventOnStatusChange(&after, &before), c.raised)
            << vekResourceStateMap[c.before] << " -> " << vekResourceStateMap[c.after];
    }
    vekLogicalDiskInfo before = volumes[0], after = volumes[0];
    before.setHealth(VEK_HEALTH_CRITICAL);
    after.setHealth(VEK_HEALTH_WARNING);
    EXPECT_FALSE(ctrl->generateEventOnStatusChange(&after, &before));
    after.setHealth(VEK_HEALTH_OK);
    EXPECT_TRUE(ctrl->generateEventOnStatusChange(&after, &before));
    std::vector<int> ids;
    for (const Json::Value& event : host.events(4)) {
        ids.push_back(event["ID"].asInt());
    }
    EXPECT_EQ(ids, (std::vector<int>{538, 540, 540, 683}));
}

} // namespace
