// The ESXi OS interface on a simulated host: PCI ids from the fake localcli's
// hardware list, and the scratch files it leaves behind (none).

#include "SMBIOSVMware.h"
#include "vekLocationTestHost.h"
#include "vekOSInterface.h"
#include "vekVmwareOSInterface.h"
#include "vekTestRoot.h"

#include <gtest/gtest.h>

#include <unistd.h>

#include <cstdlib>
#include <fstream>
#include <map>
#include <sstream>
#include <string>

namespace {

const char kHardwareList[] = "/opt/zolvek/tmp/vek_hwlist.txt";

std::string bundledFile(const std::string& file)
{
    std::ifstream in(std::string(VEK_SIMHOST_DIR) + "/profiles/rack-type4/" + file, std::ios::binary);
    std::stringstream text;
    text << in.rdbuf();
    return text.str();
}

// The OS interface only keeps the reference.
vekSmbiosInterface& hostSmbios(const vekTestRoot& root)
{
    root.writeFile("/sys/firmware/dmi/tables/DMI", bundledFile("sys/firmware/dmi/tables/DMI"));
    static SMBIOSVMware smbios;
    return smbios;
}

std::map<std::string, std::string> ids(const char* vendor, const char* device, const char* subVendor,
                                       const char* subDevice)
{
    return {{"Vendor", vendor}, {"Device", device}, {"SubVendor", subVendor}, {"SubDevice", subDevice}};
}

class OSInterfaceTest : public vekRootTest {
protected:
    void SetUp() override { root.writeCliOutput("hardware pci list", bundledFile("sim/cli/hardware_pci_list.txt")); }

    vekVmwareOSInterface& osi = vekVmwareOSInterface::getInstance(hostSmbios(root));
};

TEST_F(OSInterfaceTest, PciIdsOfTheRackServersDevices)
{
    ASSERT_EQ(osi.Initialize(), 0);
    const struct {
        const char* address;
        std::map<std::string, std::string> ids;
    } cases[] = {
        {"0000:16:00.1", ids("0x8086", "0x1593", "0x8086", "0x0002")},
        {"0000:2a:00.1", ids("0x14e4", "0x1750", "0x14e4", "0xd124")},
        {"0000:3b:00.0", ids("0x1000", "0x10e2", "0x1000", "0x4000")},
        {"0000:87:00.0", ids("0x144d", "0xa824", "0x144d", "0xa801")},
        {"0000:ca:00.0", ids("0x10de", "0x20b5", "0x10de", "0x1533")},
        // A bridge's address also stands in its children's "Parent Device" lines.
        {"0000:15:01.0", ids("0x8086", "0x352a", "0x0000", "0x0000")},
    };
    for (const auto& c : cases) {
        vekLogTail mainLog(vekTestMainLogPath());
        vekLogTail debug(vekTestDebugLogPath());
        EXPECT_EQ(osi.getPciIdInfo(c.address), c.ids) << c.address;
        EXPECT_FALSE(mainLog.contains("Cound not fetch")) << c.address << mainLog.newText();
        EXPECT_TRUE(debug.contains("vendorId = " + c.ids.at("Vendor") + ", deviceId = " + c.ids.at("Device") + "\n"));
        EXPECT_TRUE(debug.contains("subVendorId = " + c.ids.at("SubVendor") + ", subDeviceId = " +
                                   c.ids.at("SubDevice") + "\n"));
    }
}

// An address without a block, or one that is no address at all (it would
// become an awk pattern), gives empty ids and four warnings.
TEST_F(OSInterfaceTest, AddressWithoutABlockLeavesTheIdsEmpty)
{
    osi.Initialize();
    for (const char* address : {"0000:ff:1f.7", "", "0000:16:00.0/' ; touch /tmp/vek-injected ; '", "0000:16:00.0/"}) {
        vekLogTail mainLog(vekTestMainLogPath());
        EXPECT_EQ(osi.getPciIdInfo(address), ids("", "", "", "")) << address;
        for (const char* what : {"vendorId", "deviceId", "subVendorId", "subDeviceId"}) {
            EXPECT_TRUE(mainLog.contains(std::string("VMWARE_OS_UTILS: Cound not fetch ") + what + " for " + address +
                                         "\n"))
                << what << mainLog.newText();
        }
    }
    EXPECT_NE(access("/tmp/vek-injected", F_OK), 0);
}

TEST_F(OSInterfaceTest, WithoutAPciListTheIdsAreEmpty)
{
    unlink(root.hostPath("/sim/cli/hardware_pci_list.txt").c_str());
    vekLogTail mainLog(vekTestMainLogPath());
    ASSERT_EQ(osi.Initialize(), 0); // the command failed, but it ran
    EXPECT_FALSE(mainLog.contains("Could not populate the Hardware PCI details"));
    EXPECT_EQ(root.readFile(kHardwareList), "");
    EXPECT_EQ(osi.getPciIdInfo("0000:16:00.0"), ids("", "", "", ""));
}

// The start of the service once waited for ever on a hung PCI list.
TEST_F(OSInterfaceTest, HungPciListIsKilledAndTheStartGoesOn)
{
    setenv("VEK_TIME_SCALE", "1000000", 1);
    root.writeFile("/sim/cli/hardware_pci_list.sh", "echo 0000:16:00.0\nsleep 1000\n");
    vekLogTail mainLog(vekTestMainLogPath());
    EXPECT_EQ(osi.Initialize(), 0);
    unsetenv("VEK_TIME_SCALE");
    EXPECT_TRUE(mainLog.contains("killed with its process group: [localcli hardware pci list > '" + root.path() +
                                 kHardwareList + "']\n"))
        << mainLog.newText();
    EXPECT_TRUE(mainLog.contains("VMWARE_OS_INTERFACE: Could not populate the Hardware PCI details\n"));
    EXPECT_FALSE(root.exists(kHardwareList));
    EXPECT_EQ(osi.getPciIdInfo("0000:16:00.0"), ids("", "", "", ""));
}

TEST_F(OSInterfaceTest, UnInitializeRemovesTheScratchFiles)
{
    ASSERT_EQ(osi.Initialize(), 0);
    EXPECT_EQ(root.readFile(kHardwareList), bundledFile("sim/cli/hardware_pci_list.txt"));
    // Left by a run stopped in the middle of reading the NIC list.
    root.writeFile("/opt/zolvek/tmp/vek_niclist.txt", "Name\n");
    root.writeFile("/opt/zolvek/tmp/vek_nicAddDetails.txt", "Firmware Version: 1\n");
    EXPECT_EQ(osi.UnInitialize(), 0);
    for (const char* file : {kHardwareList, "/opt/zolvek/tmp/vek_niclist.txt", "/opt/zolvek/tmp/vek_nicAddDetails.txt"}) {
        EXPECT_FALSE(root.exists(file)) << file;
    }
    EXPECT_EQ(osi.UnInitialize(), 0);
}

// The call of the service's stop: nothing is made for it, and what was handed
// out is uninitialised.
TEST(SystemInterfaceFactory, StopUninitialisesOnlyWhatWasHandedOut)
{
    vekTestRoot root;
    vekLocationTestHost host(root);
    host.writeTable(4, "[]");
    host.services();
    root.writeFile(kHardwareList, "left by the last run\n");
    root.writeCliOutput("hardware pci list", bundledFile("sim/cli/hardware_pci_list.txt"));
    vekSystemInterfaceFactory::unInitializeSystemInterface();
    EXPECT_EQ(root.readFile(kHardwareList), "left by the last run\n");

    ASSERT_NE(vekSystemInterfaceFactory::getSystemInterface(), nullptr);
    EXPECT_EQ(root.readFile(kHardwareList), bundledFile("sim/cli/hardware_pci_list.txt"));
    vekSystemInterfaceFactory::unInitializeSystemInterface();
    EXPECT_FALSE(root.exists(kHardwareList));
}

} // namespace
