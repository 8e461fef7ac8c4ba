// The door to libstorelib.so: the firmware's words, the cache built from the
// stand-in library's answers, and what the library's faults leave.

#include "vekMegaRAIDTestHost.h"
#include "vekStoreLibInterface.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <functional>

#include <string>
#include <vector>

namespace {

TEST(MegaRAIDStoreLibTablesTest, FirmwareStatesRaidLevelsAndHealth)
{
    struct Drive {
        int state;
        const char* word;
        int health;
    };
    for (const Drive& c : std::vector<Drive>{{0x00, "Online", 1}, {0x02, "Online", 1}, {0x18, "Online", 1},
                                             {0x20, "Online", 1}, {0x40, "Online", 1}, {0x14, "Rebuild", 1},
                                             {0x01, "Unconfigured bad", 4}, {0x10, "Offline", 4},
                                             {0x11, "Failed", 4}, {0x99, "Unknown", 3}}) {
        EXPECT_EQ(vekStoreLibInterface::getFWStateString(c.state), c.word) << c.state;
        EXPECT_EQ(vekStoreLibInterface::getHealth(c.state), c.health) << c.state;
    }
    struct Volume {
        int state;
        const char* word;
        int health;
    };
    for (const Volume& c : std::vector<Volume>{{0, "Offline", 4}, {1, "Partially degraded", 0}, {2, "Degraded", 0},
                                               {3, "Optimal", 0}, {7, "Undefined", 3}}) {
        EXPECT_EQ(vekStoreLibInterface::getLDStateString(c.state), c.word) << c.state;
        EXPECT_EQ(vekStoreLibInterface::getLDHealth(c.state), c.health) << c.state;
    }
    struct Level {
        int primary, secondary, spans;
        const char* label;
    };
    for (const Level& c : std::vector<Level>{{0, 0, 1, "RAID0"},   {1, 0, 1, "RAID1"},       {5, 0, 1, "RAID5"},
                                             {6, 0, 1, "RAID6"},   {17, 0, 1, "PRL11"},      {15, 0, 1, "SingleDisk"},
                                             {1, 0, 2, "RAID10"},  {5, 0, 3, "RAID50"},      {6, 0, 2, "RAID60"},
                                             {17, 0, 2, "PRL11 with Spanning"}, {0x2a, 0, 1, "0x2a"},
                                             {1, 3, 1, "SRL 3"}}) {
        EXPECT_EQ(vekStoreLibInterface::getRAIDLevelString(c.primary, c.secondary, c.spans), c.label)
            << c.primary << "/" << c.secondary << "/" << c.spans;
    }
    struct Health {
        int library;
        VEK_RESOURCE_HEALTH health;
    };
    for (const Health& c : std::vector<Health>{{1, VEK_HEALTH_OK},
                                               {2, VEK_HEALTH_WARNING},
                                               {3, VEK_HEALTH_UNKNOWN},
                                               {4, VEK_HEALTH_CRITICAL},
                                               {0, VEK_HEALTH_UNKNOWN}}) {
        EXPECT_EQ(vekMegaRAIDController::getHealthEnum(c.library), c.health) << c.library;
    }
}

TEST(MegaRAIDStoreLibLoadTest, ALibraryThatFailsToLoadIsNotTriedAgain)
{
    vekLogTail log(vekTestMainLogPath());
    vekStoreLibInterface absent("libstorelib-absent.so");
    EXPECT_FALSE(absent.vekStoreInit());
    EXPECT_FALSE(absent.vekStoreInit());
    EXPECT_FALSE(absent.isInitialized());
    const std::string told = log.newText();
    EXPECT_EQ(vekOccurrences(told, "Failed to load library for monitoring MegaRAID devices. If you need VEK to monitor "
                                "this class of devices, then kindly remove and install storelib package and restart"),
              1u)
        << told;
    EXPECT_EQ(vekOccurrences(told, "Error occurred while loading MegaRAID lib dlerror = libstorelib-absent.so"), 1u);
    // Nothing reaches a library that is not there.
    _SL_LIB_CMD_PARAM_T param{};
    EXPECT_EQ(absent.ProcessLibCommandCall(param), SL_ERR_INIT_NOT_DONE);
}

class MegaRAIDStoreLibTest : public vekMegaRAIDTest {
protected:
    vekStoreLibInterface& lib = vekStoreLibInterface::getInstance();
};

TEST_F(MegaRAIDStoreLibTest, TheCacheHoldsTheRackServersControllerDrivesAndVolumes)
{
    ASSERT_TRUE(lib.vekStoreInit());
    lib.cacheBuild("All");
    const std::vector<CTRL_INFO> ctrls = lib.getControllerCollection();
    ASSERT_EQ(ctrls.size(), 1u);
    // What the controller's record shows of it is the controller test's; the
    // library's model still carries the cache size.
    EXPECT_EQ(ctrls[0].model, "MegaRAID 9560-16i 8GB");
    uint32_t id = 99;
    EXPECT_TRUE(lib.getControllerID("SKC4012345", id));
    EXPECT_EQ(id, 0u);

    const std::vector<PD_INFO> pds = lib.getPDInventoryForCtrl(0);
    ASSERT_EQ(pds.size(), 4u);
    EXPECT_EQ(pds[0].serialNumber, "WFK0A1B20000C9270ABC");
    EXPECT_EQ(pds[0].model, "ST1200MM0009");
    EXPECT_EQ(pds[0].vendor, "SEAGATE");
    EXPECT_EQ(pds[0].protocol, "SAS");
    EXPECT_EQ(pds[0].mediaType, "HDD");
    EXPECT_EQ(pds[0].capacityBytes, 2344225968ULL * 512);
    EXPECT_EQ(pds[3].connectorNames, std::vector<std::string>{"C0.1"});
    EXPECT_EQ(pds[3].protocol, "SATA");
    EXPECT_EQ(pds[3].mediaType, "SSD");
    EXPECT_EQ(pds[3].health, 1);

    const std::vector<LD_INFO> lds = lib.getLDInventoryForCtrl(0);
    ASSERT_EQ(lds.size(), 2u);
    EXPECT_EQ(lds[0].durableName, "600062B20CF5E6802A9D4E1F0B7C3D01");
    EXPECT_EQ(lds[0].name, "VD_OS");
    EXPECT_EQ(lds[0].raidLevel, "RAID1");
    EXPECT_EQ(lds[0].capacityBytes, 2343174144ULL * 512);
    EXPECT_EQ(lds[0].members, (std::vector<std::string>{"WFK0A1B20000C9270ABC", "WFK0A1B30000C9270ABD"}));
    EXPECT_EQ(lds[1].members, (std::vector<std::string>{"S45NNE0M500123", "S45NNE0M500124"}));
}

// Each fault of the library, and what stays of the cache.
TEST_F(MegaRAIDStoreLibTest, LibraryFaultsLeaveTheRestOfTheCache)
{
    vekLogTail log(vekTestMainLogPath());
    // Refused initialisation: told, and tried again at the next call.
    scenario["init"] = "802B";
    writeScenario();
    EXPECT_FALSE(lib.vekStoreInit());
    EXPECT_TRUE(log.contains("User Access level incorrect, administrator privilege required"));
    EXPECT_TRUE(log.contains("InitLib failed for MegaRAID SAS Controller!!"));
    scenario.removeMember("init");

    // A controller of an unknown chipset is skipped, with its ids; one whose
    // information can't be read stays, with an empty model.
    Json::Value unknown = scenario["controllers"][0];
    unknown["id"] = 1;
    unknown["deviceId"] = "0017";
    unknown["serialNumber"] = "SKUNKNOWN1";
    Json::Value mute = scenario["controllers"][0];
    mute["id"] = 2;
    mute["serialNumber"] = "SKMUTE0002";
    mute["fail"].append("info");
    scenario["controllers"].append(unknown);
    scenario["controllers"].append(mute);
    // A volume whose members report no block size.
    scenario["controllers"][0]["logicalDrives"][1]["blockSize"] = 0;
    writeScenario();
    ASSERT_TRUE(lib.vekStoreInit());
    lib.cacheBuild("All");
    EXPECT_TRUE(log.contains("Skipping the controller as chipset is not recognized. (vendorID= \t\t\t\t   0x1000, "
                             "chipsetID= 0x00171000"));
    const std::vector<CTRL_INFO> ctrls = lib.getControllerCollection();
    ASSERT_EQ(ctrls.size(), 2u);
    EXPECT_EQ(ctrls[0].serialNumber, "SKC4012345");
    EXPECT_EQ(ctrls[1].serialNumber, "SKMUTE0002");
    EXPECT_EQ(ctrls[1].model, "");
    EXPECT_EQ(lib.GetUserDataBlockSizeOfPdInLD(0, 1), 512u);
    EXPECT_EQ(lib.getLDInventoryForCtrl(0)[1].capacityBytes, 1874329600ULL * 512);

    // The list shrinks between builds: the cache follows.
    scenario["controllers"].resize(1);
    writeScenario();
    lib.cacheBuild("All");
    EXPECT_EQ(lib.getControllerCollection().size(), 1u);
    EXPECT_TRUE(lib.getPDInventoryForCtrl(2).empty());
}

// The connectors a drive hangs on, through its ports and the controller's
// PHYs or lanes; a drive whose connectors can't be told keeps none, and says why.
TEST_F(MegaRAIDStoreLibTest, ConnectorNamesOfADriveFollowItsPortsToTheConnectors)
{
    const Json::Value lanes = vekRecordingChannel::parse(
        R"([{"port": 4, "connector": 2, "count": 4}, {"count": 4}, {"port": 5, "connector": 3, "count": 4}])");
    struct Case {
        const char* name;
        std::function<void(Json::Value& ctrl, Json::Value& drive)> change;
        std::vector<std::string> names;
        const char* told;
    } cases[] = {
        {"a SAS drive on port 0", [](Json::Value&, Json::Value&) {}, {"C0.0"}, nullptr},
        {"a SATA drive on port 3", [&](Json::Value& ctrl, Json::Value& drive) { drive["interface"] = "SATA"; drive["port"] = 3; }, {"C1.1"}, nullptr},
        {"a dual-ported drive", [&](Json::Value& ctrl, Json::Value& drive) { drive.removeMember("port"); drive["ports"] = vekRecordingChannel::parse("[0, 1]"); },
         {"C0.0", "C0.1"}, nullptr},
        {"an NVMe drive on lanes", [&](Json::Value& ctrl, Json::Value& drive) { drive["interface"] = "NVMe"; drive["port"] = 5; ctrl["lanes"] = lanes; },
         {"C1.1"}, nullptr},
        {"a port that no valid PHY leads from", [&](Json::Value& ctrl, Json::Value& drive) { drive["port"] = 9; }, {}, nullptr},
        {"a drive without a SAS address", [&](Json::Value& ctrl, Json::Value& drive) { drive.removeMember("port"); }, {}, "has no SAS address"},
        {"a controller that counts no PHYs", [&](Json::Value& ctrl, Json::Value& drive) { ctrl.removeMember("phys"); }, {},
         "Unable to determine connector names for drive (Device ID: [8]), since the # of PHYs supported by the "
         "controller (ID: [0]) cannot be determined!"},
        {"a drive of an unknown interface", [&](Json::Value& ctrl, Json::Value& drive) { drive["interface"] = "FC"; }, {},
         "Controller ID [0]; PD Device ID [8]: Unrecognized drive interface type [0]!"},
        {"a controller that refuses the DCMDs", [&](Json::Value& ctrl, Json::Value& drive) { ctrl["fail"].append("dcmd"); }, {},
         "ProcessLibCommandCall failed on controller (ID: [0]) when retrieving SAS PHY connections! (0x8002)"},
    };
    ASSERT_TRUE(lib.vekStoreInit());
    lib.cacheBuild("All");
    const Json::Value original = scenario;
    for (const Case& c : cases) {
        scenario = original;
        c.change(scenario["controllers"][0], scenario["controllers"][0]["drives"][0]);
        writeScenario();
        vekLogTail log(vekTestMainLogPath());
        lib.cacheBuild("PD_EVENT");
        const std::vector<PD_INFO> pds = lib.getPDInventoryForCtrl(0);
        ASSERT_EQ(pds.size(), 4u) << c.name;
        EXPECT_EQ(pds[0].serialNumber, "WFK0A1B20000C9270ABC") << c.name;
        EXPECT_EQ(pds[0].connectorNames, c.names) << c.name;
        if (c.told != nullptr) {
            EXPECT_TRUE(log.contains(c.told)) << c.name << ": " << log.newText();
        }
    }
}

// What the cache takes from a drive's VPD pages: the maker of an ATA drive
// (page D0) and a serial number the standard inquiry lacks (page 0x80).
TEST_F(MegaRAIDStoreLibTest, VPDPagesGiveTheMakerOfAnATADriveAndAMissingSerialNumber)
{
    const std::string longSerial(300, 'Z');
    struct Case {
        const char* name;
        size_t drive;
        std::function<void(Json::Value& ctrl, Json::Value& drive)> change;
        std::string vendor, serial;
        std::vector<std::string> told;
    } cases[] = {
        {"an ATA drive names its maker in page D0", 3, [](Json::Value&, Json::Value& d) { d["vpdVendor"] = "SAMSUNG"; },
         "SAMSUNG", "S45NNE0M500124", {}},
        {"an ATA drive without page D0", 3, [](Json::Value&, Json::Value&) {}, "ATA", "S45NNE0M500124", {}},
        {"a SAS drive keeps its inquiry's maker", 0, [](Json::Value&, Json::Value& d) { d["vpdVendor"] = "OTHER"; },
         "SEAGATE", "WFK0A1B20000C9270ABC", {}},
        {"no serial number in the inquiry data", 0,
         [](Json::Value&, Json::Value& d) { d["serialNumber"] = ""; d["vpdSerialNumber"] = "WFK0VPD80"; }, "SEAGATE",
         "WFK0VPD80",
         {"No disk S/N available from SCSI Standard Inquiry page. Trying VPD page 0x80",
          "Disk S/N from VPD Page 0x80 for disk @ [252:1]: [WFK0VPD80]"}},
        {"a page longer than the buffer", 0,
         [&](Json::Value&, Json::Value& d) { d["serialNumber"] = ""; d["vpdSerialNumber"] = longSerial; }, "SEAGATE",
         longSerial.substr(0, 252), {}},
        {"a library that refuses pass-through", 0,
         [](Json::Value& c, Json::Value& d) { d["serialNumber"] = ""; c["fail"].append("scsi"); }, "SEAGATE", "",
         {"ProcessLibCommandCall failed!! retVal 0x8002",
          "Unable to retrieve disk S/N from VPD Inquiry Page 0x80 for disk @ [252:1]. [32770]"}},
    };
    ASSERT_TRUE(lib.vekStoreInit());
    lib.cacheBuild("All");
    const Json::Value original = scenario;
    for (const Case& c : cases) {
        scenario = original;
        c.change(scenario["controllers"][0], scenario["controllers"][0]["drives"][static_cast<int>(c.drive)]);
        writeScenario();
        vekLogTail log(vekTestMainLogPath());
        lib.cacheBuild("PD_EVENT");
        const std::vector<PD_INFO> pds = lib.getPDInventoryForCtrl(0);
        ASSERT_EQ(pds.size(), 4u) << c.name;
        EXPECT_EQ(pds[c.drive].vendor, c.vendor) << c.name;
        EXPECT_EQ(pds[c.drive].serialNumber, c.serial) << c.name;
        for (const std::string& line : c.told) {
            EXPECT_TRUE(log.contains(line)) << c.name << ": " << line;
        }
    }
}

// An ATA drive's log, read whole blocks at a time; a SAS drive has none.
TEST_F(MegaRAIDStoreLibTest, ATALogsAreReadInWholeBlocks)
{
    scenario["controllers"][0]["drives"][2]["ataLogs"]["30"] = "0100ff";
    writeScenario();
    ASSERT_TRUE(lib.vekStoreInit());
    std::vector<uint8_t> log(1024, 0xAA);
    ASSERT_EQ(lib.FireATAReadLogExt(0, 10, 0x30, log.data(), static_cast<uint32_t>(log.size())), SL_SUCCESS);
    EXPECT_EQ(std::vector<uint8_t>(log.begin(), log.begin() + 4), (std::vector<uint8_t>{0x01, 0x00, 0xFF, 0x00}));
    EXPECT_EQ(std::count(log.begin(), log.end(), 0xAA), 0) << "the unread block is cleared";
    EXPECT_EQ(lib.FireATAReadLogExt(0, 10, 0x04, log.data(), 512), SL_SCSI_STATUS_CHECK_CONDITION);
    EXPECT_EQ(lib.FireATAReadLogExt(0, 8, 0x30, log.data(), 512), SL_SCSI_STATUS_CHECK_CONDITION);
}

// A PD list longer than the first buffer is asked again with room for all,
// and never read past what the library filled.
TEST_F(MegaRAIDStoreLibTest, APDListLongerThanTheCallersBufferIsReadWhole)
{
    ASSERT_TRUE(lib.vekStoreInit());
    std::vector<_MR_PD_ADDRESS> drives;
    ASSERT_EQ(lib.GetPDListFunc(0, drives, 1), SL_SUCCESS);
    ASSERT_EQ(drives.size(), 4u);
    EXPECT_EQ(drives[3].deviceId, 11);
    EXPECT_EQ(drives[3].slotNumber, 4);
    EXPECT_EQ(lib.GetPDListFunc(7, drives), SL_ERR_INVALID_CTRL);
    EXPECT_TRUE(drives.empty());
}

} // namespace
