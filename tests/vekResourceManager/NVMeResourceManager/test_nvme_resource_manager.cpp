// The NVMe family on the rack server: which devices it reports and how, how
// it reads SMART flags, and what it makes of outputs the host garbles.

#include "NVMeResourceManager/NVMeResourceManager.h"
#include "NVMeResourceManager/vekNvmeEventManager.h"
#include "NVMeResourceManager/vekNvmeVmwareInterface.h"
#include "vekEventTestFixture.h"
#include "vekIOGeoIDHelper.h"
#include "vekNvmeTestHost.h"
#include "vekPhysLocFactory.h"
#include "vekPhysLocInterface.h"
#include "vekSCMServerChassisManager.h"

#include <gtest/gtest.h>
#include <json/json.h>

#include <cstdio>
#include <functional>
#include <map>
#include <string>
#include <vector>

namespace {

class NVMeManagerTest : public vekEventTestFixture {
protected:
    void SetUp() override { services = &nvme.services(com); }

    vekNvmeTestHost nvme{root};
    vekLogTail log{vekTestMainLogPath()};
    vekLogTail debug{vekTestDebugLogPath()};
};

TEST_F(NVMeManagerTest, CardsGiveAControllerAndADriveBaysADriveAndAVmdDriveNothing)
{
    ASSERT_TRUE(nvme.startManager());
    const std::vector<Json::Value> controllers = nvme.inventory(1);
    const std::vector<Json::Value> drives = nvme.inventory(2);
    ASSERT_EQ(controllers.size(), 2u);
    // Three bays and two cards; the VMD drive (below) is not this family's.
    ASSERT_EQ(drives.size(), 5u);

    const Json::Value card = vekNvmeTestHost::at(controllers, "0000:e3:00.0");
    EXPECT_EQ(card["Model"].asString(), "NVMe 3.2TB PCIe HHHL Card");
    EXPECT_EQ(card["SerialNumber"].asString(), "S55JNA0R200701");
    EXPECT_EQ(card["Manufacturer"].asString(), "Samsung Electronics Co Ltd");
    EXPECT_EQ(card["Status"]["State"].asString(), "Running");
    EXPECT_EQ(card["Status"]["Health"].asString(), "OK");
    EXPECT_TRUE(vekNvmeTestHost::at(controllers, "0000:86:00.0").isNull()) << "a bay has no controller object";
    EXPECT_TRUE(debug.contains("Skipping controller inventory for NVMe SSD/HDD device [vmhba64]."));

    // The card's drive: its sold capacity, and what its two namespaces add up to.
    const Json::Value cardDrive = vekNvmeTestHost::inSlot(drives, "07");
    EXPECT_EQ(cardDrive["CapacityBytes"].asInt64(), 3200631791616);
    EXPECT_EQ(cardDrive["Oem"]["CapacityBytesDetected"].asInt64(), 2 * 512 * 3125627568LL);

    // A bay drive is as big as its namespace.
    const Json::Value bay = vekNvmeTestHost::inSlot(drives, "01");
    EXPECT_EQ(bay["CapacityBytes"].asInt64(), 512 * 7501476528LL);
    EXPECT_FALSE(bay["Oem"].isMember("CapacityBytesDetected"));
    EXPECT_EQ(bay["Model"].asString(), "NVMe 3.84TB U.2 SSD");
    // The maker's own drive in bay 3.
    EXPECT_EQ(vekNvmeTestHost::inSlot(drives, "03")["Manufacturer"].asString(), "ZOL");

    // Every device in its place, as the RMC reads it.
    std::vector<std::string> places;
    for (const Json::Value& item : controllers) {
        places.push_back(item["Oem"]["Description"].asString() + " " + item["Oem"]["PhysicalLocation"].asString());
    }
    for (const Json::Value& item : drives) {
        places.push_back(item["Oem"]["Slot"].asString() + " " + item["Oem"]["PhysicalLocation"].asString() + " " +
                         item["Oem"]["DecodedPhysicalLocation"].asString());
    }
    EXPECT_EQ(places, (std::vector<std::string>{
                          "PCI 0000:e3:00.0 r001u03p1i07 03010301FF07FFFF",
                          "PCI 0000:e4:00.0 r001u03p1i08 03010301FF08FFFF",
                          "01 460103010101FFFF T70 R1 U3 P1 B1 S1 D255 X255",
                          "02 460103010102FFFF T70 R1 U3 P1 B1 S2 D255 X255",
                          "03 460103010103FFFF T70 R1 U3 P1 B1 S3 D255 X255",
                          "07 03010301FF07FFFF T3 R1 U3 P1 B255 S7 D255 X255",
                          "08 03010301FF08FFFF T3 R1 U3 P1 B255 S8 D255 X255",
                      }));

    // On this platform a five-digit domain is a drive behind Intel VMD: the
    // CPU's storage controller owns it, so the family leaves it out.
    vekNvmeVmwareInterface interface(*vekSystemInterfaceFactory::getSystemInterface());
    std::string address;
    interface.getNvmePCIAddress(vekNvmeTestHost::kVmdDrive, address);
    EXPECT_EQ(address, "10000:01:00.0");
    EXPECT_TRUE(vekSCM::ServerChassisManagerFactory::getServerChassisManager()
                    .isNVMeDeviceManagedByCPUStorageController(address));
    EXPECT_TRUE(debug.contains("Total number of NVMe instances is [6]"));
    EXPECT_TRUE(debug.contains("Total number of NVMe HBAs & unmanaged NVMe SSDs is [5]"));

    std::vector<Json::Value> none;
    nvme.manager().getInventoryJsonObject2(3, none);
    EXPECT_TRUE(none.empty());
    EXPECT_TRUE(log.contains("Unsupported inventory type"));
}

TEST(NVMeLoopTest, TheTickIsTheGreatestCommonDivisorOfRefreshAndPoll)
{
    const struct {
        long refresh;
        long step;
    } cases[] = {{30, 10}, {45, 5}, {7, 1}, {0, 10}, {10, 10}, {3600, 10}, {-20, 10}};
    for (const auto& c : cases) {
        EXPECT_EQ(NVMeResourceManager::compute_gcd(c.refresh, 10), c.step) << c.refresh;
    }
}

// The SMART flags as the host prints them, and what the RMC is told.
TEST(NVMeSmartTest, FlagsGiveStatusAndTheMostSevereText)
{
    using namespace vekNvmeSmartKeys;
    const std::string counters = ", PercentageUsed : 7, PowerOnHours : 1200]";
    const struct {
        std::map<std::string, std::string> values;
        VEK_RESOURCE_STATE state;
        VEK_RESOURCE_HEALTH health;
        std::string text;
    } cases[] = {
        {{}, VEK_STATE_RUNNING, VEK_HEALTH_OK, ""},
        {{{kTemperature, "TRUE"}}, VEK_STATE_DEGRADED, VEK_HEALTH_WARNING,
         std::string(vekNvmeEventManager::kTemperatureText) + ", [SMART Info : 0x2" + counters},
        {{{kAvailableSpare, "true"}, {kReliability, "true"}}, VEK_STATE_DEGRADED, VEK_HEALTH_WARNING,
         std::string(vekNvmeEventManager::kReliabilityText) + ", [SMART Info : 0x4" + counters},
        {{{kReadOnly, "true"}, {kTemperature, "true"}}, VEK_STATE_FAILED, VEK_HEALTH_CRITICAL,
         std::string(vekNvmeEventManager::kReadOnlyText) + ", [SMART Info : 0x8" + counters},
        {{{kVolatileBackup, "True"}, {kReadOnly, "true"}}, VEK_STATE_FAILED, VEK_HEALTH_CRITICAL,
         std::string(vekNvmeEventManager::kVolatileBackupText) + ", [SMART Info : 0x10" + counters},
        {{{kAvailableSpare, "true"}}, VEK_STATE_DEGRADED, VEK_HEALTH_WARNING,
         std::string(vekNvmeEventManager::kAvailableSpareText) + ", [SMART Info : 0x1" + counters},
        // Not a "true": the flag stays clear.
        {{{kReadOnly, "yes"}, {kTemperature, "truee"}}, VEK_STATE_RUNNING, VEK_HEALTH_OK, ""},
    };
    for (const auto& c : cases) {
        std::map<std::string, std::string> values = c.values;
        values[kPercentageUsed] = "7";
        values[kPowerOnHours] = "0x4b0";
        vekNvmeSmartInfo smart;
        vekNvmeInterfaceBase::setSmartInfo("vmhba7", values, smart);
        EXPECT_EQ(smart.state, c.state) << c.text;
        EXPECT_EQ(smart.health, c.health) << c.text;
        std::string text = "stale";
        vekNvmeEventManager::getEventInfoDescription(smart, text);
        EXPECT_EQ(text, c.text);
    }
}

// Outputs of the host that lack what the family reads: each costs only the
// field it would have given, with the line that says so.
TEST_F(NVMeManagerTest, GarbledOutputsCostOnlyTheirFields)
{
    vekNvmeVmwareInterface interface(*vekSystemInterfaceFactory::getSystemInterface());
    const struct {
        const char* words;   // the command whose output changes
        const char* output;  // nullptr: the command fails
        std::function<void()> check;
        const char* line;    // what the log tells
    } cases[] = {
        {"nvme device get -A vmhba64", "   PCIVID: 0x144d\n   Model Number:\n",
         [&] {
             NVMeControllerInfo info;
             interface.discoverNvmeProperties("vmhba64", info);
             EXPECT_EQ(info.serialNumber, "");
             EXPECT_EQ(info.model, "");
             EXPECT_EQ(info.pciAddress, "0000:86:00.0") << "the rest is still read";
             EXPECT_EQ(info.getCapacityBytesDetected(), 512 * 7501476528LL);
         },
         "Cound not fetch Serial Number for vmhba64"},
        {"nvme device log smart get -A vmhba64", "   Read Only Mode: true\n   Percentage Used: lots\n",
         [&] {
             vekNvmeSmartInfo smart;
             interface.getNvmeSmartLogInfo("vmhba64", smart);
             EXPECT_EQ(smart.health, VEK_HEALTH_CRITICAL);
             EXPECT_EQ(smart.percentageUsed, 0);
         },
         "Unreadable value [lots] of [Percentage Used:] for vmhba64"},
        {"nvme device log smart get -A vmhba65", nullptr,
         [&] {
             vekNvmeSmartInfo smart;
             interface.getNvmeSmartLogInfo("vmhba65", smart);
             EXPECT_EQ(smart.health, VEK_HEALTH_OK) << "an unreadable device counts as good";
             EXPECT_EQ(smart.state, VEK_STATE_RUNNING);
         },
         "Unable to gather NVMe HBA information for vmhba65, Error : 1, Reason : exit status 1"},
        {"device alias get -n vmhba66", "Alias    Bus type  Bus address\n-------  --------  ---\nvmhba66  pci\n",
         [&] {
             std::string address = "stale";
             interface.getNvmePCIAddress("vmhba66", address);
             EXPECT_EQ(address, "");
         },
         "Cound not fetch PCI Address for vmhba66"},
        {"nvme device namespace list -A vmhba7",
         "Namespace ID  Status  Device Name\n------------  ------  -----------\n         0x1  active\n",
         [&] {
             long long capacity = -1;
             EXPECT_FALSE(interface.getNvmeCapacityBytesDetected("vmhba7", capacity));
             EXPECT_EQ(capacity, 0);
         },
         "Device Name missing for Namespace ID : 0x1"},
        {"storage core device capacity list",
         "t10.NVMe____SSDPF21Q064TB________PHAL2201000T6P4BGN_00000001  4096  4096  many  6104710 MiB  4Kn\n",
         [&] {
             long long capacity = -1;
             EXPECT_FALSE(interface.getNvmeCapacityBytesDetected("vmhba8", capacity));
             EXPECT_EQ(capacity, 0);
         },
         "Could not fetch namespace attributes for vmhba8"},
        {"nvme device list", "HBA Name  Status  Signature\n--------  ------  ---------\n",
         [&] {
             std::vector<std::string> names;
             interface.populateNvmeInstances(names);
             EXPECT_TRUE(names.empty());
         },
         "Found zero NVMe PCI instances"},
    };
    for (const auto& c : cases) {
        // No output: the command fails.
        root.writeCliOutput(c.words, c.output != nullptr ? c.output : "", c.output != nullptr ? 0 : 1);
        c.check();
        EXPECT_TRUE(log.contains(c.line) || debug.contains(c.line)) << c.line;
    }
}

// A drive listed by the host whose details are gone by the time they are
// asked: it stays in the inventory with what could be read, and the others
// are whole.
TEST_F(NVMeManagerTest, ADriveThatVanishesBetweenListAndGet)
{
    for (const char* words : {"nvme_device_get_-A_vmhba65", "nvme_device_log_smart_get_-A_vmhba65",
                              "nvme_device_namespace_list_-A_vmhba65"}) {
        ASSERT_EQ(std::remove(root.hostPath(std::string("/sim/cli/") + words + ".txt").c_str()), 0);
    }
    ASSERT_TRUE(nvme.startManager());
    const std::vector<Json::Value> drives = nvme.inventory(2);
    ASSERT_EQ(drives.size(), 5u);
    const Json::Value gone = vekNvmeTestHost::inSlot(drives, "02");
    EXPECT_EQ(gone["SerialNumber"].asString(), "");
    EXPECT_EQ(gone["CapacityBytes"].asInt64(), 0);
    EXPECT_EQ(gone["Status"]["Health"].asString(), "OK");
    EXPECT_EQ(vekNvmeTestHost::inSlot(drives, "01")["SerialNumber"].asString(), "S4YNNE0N100101");
    EXPECT_TRUE(log.contains("Cound not fetch Serial Number for vmhba65"));
    EXPECT_TRUE(log.contains("No namespaces identified for vmhba65"));
    EXPECT_TRUE(nvme.manager().isRunning());
}

} // namespace
