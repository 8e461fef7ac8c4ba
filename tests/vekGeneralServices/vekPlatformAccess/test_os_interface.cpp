// The ESXi OS interface on a simulated host: PCI ids from the fake localcli's
// hardware list, the scratch files it leaves behind (none), and who made a
// PCI device (the vendor table against Debian's pci.ids, the resolver on
// SMBIOS slots and the PCI list).

#include "vekLocationTestHost.h"
#include "vekOSInterface.h"
#include "vekPCIVendorsMap.h"
#include "vekPCIeManufacturerResolver.h"
#include "vekTestRoot.h"

#include <gtest/gtest.h>

#include <unistd.h>

#include <cstdlib>
#include <fstream>
#include <map>
#include <regex>
#include <string>

namespace {

const char kHardwareList[] = "/opt/zolvek/tmp/vek_hwlist.txt";

std::map<std::string, std::string> ids(const char* vendor, const char* device, const char* subVendor,
                                       const char* subDevice)
{
    return {{"Vendor", vendor}, {"Device", device}, {"SubVendor", subVendor}, {"SubDevice", subDevice}};
}

// The interface as the service gets it: made, and initialised, at the first ask.
class OSInterfaceTest : public vekRootTest {
protected:
    void SetUp() override
    {
        host.writeTable(4, "[]");
        host.services();
    }
    static vekOSInterface& osi() { return *vekSystemInterfaceFactory::getSystemInterface(); }

    vekLocationTestHost host{root};
};

// An address without a block, or one that is no address at all (it would
// become an awk pattern), gives empty ids and four warnings.
TEST_F(OSInterfaceTest, PciIdsOfTheRackServersDevices)
{
    root.writeCliOutput("hardware pci list", vekBundledProfileFile("sim/cli/hardware_pci_list.txt"));
    const struct {
        const char* address;
        std::map<std::string, std::string> ids;
    } cases[] = {
        {"0000:16:00.1", ids("0x8086", "0x1593", "0x8086", "0x0002")},
        {"0000:2a:00.1", ids("0x14e4", "0x1750", "0x14e4", "0xd124")},
        {"0000:87:00.0", ids("0x144d", "0xa824", "0x144d", "0xa801")},
        // A bridge's address also stands in its children's "Parent Device" lines.
        {"0000:15:01.0", ids("0x8086", "0x352a", "0x0000", "0x0000")},
        {"0000:ff:1f.7", ids("", "", "", "")},
        {"", ids("", "", "", "")},
        {"0000:16:00.0/' ; touch /tmp/vek-injected ; '", ids("", "", "", "")},
        {"0000:16:00.0/", ids("", "", "", "")},
    };
    for (const auto& c : cases) {
        vekLogTail mainLog(vekTestMainLogPath());
        EXPECT_EQ(osi().getPciIdInfo(c.address), c.ids) << c.address;
        const bool known = !c.ids.at("Vendor").empty();
        for (const char* what : {"vendorId", "deviceId", "subVendorId", "subDeviceId"}) {
            EXPECT_EQ(mainLog.contains(std::string("Cound not fetch ") + what + " for " + c.address + "\n"), !known)
                << what << mainLog.newText();
        }
    }
    EXPECT_NE(access("/tmp/vek-injected", F_OK), 0);
}

// The start of the service once waited for ever on a hung PCI list.
TEST_F(OSInterfaceTest, HungPciListIsKilledAndTheStartGoesOn)
{
    setenv("VEK_TIME_SCALE", "1000000", 1);
    root.writeFile("/sim/cli/hardware_pci_list.sh", "echo 0000:16:00.0\nsleep 1000\n");
    vekLogTail mainLog(vekTestMainLogPath());
    EXPECT_EQ(osi().getPciIdInfo("0000:16:00.0"), ids("", "", "", ""));
    unsetenv("VEK_TIME_SCALE");
    EXPECT_TRUE(mainLog.contains("killed with its process group: [localcli hardware pci list > '" + root.path() +
                                 kHardwareList + "']\n"))
        << mainLog.newText();
    EXPECT_TRUE(mainLog.contains("VMWARE_OS_INTERFACE: Could not populate the Hardware PCI details\n"));
    EXPECT_FALSE(root.exists(kHardwareList));
    // Without a list the command ran, and failed: no second warning.
    vekSystemInterfaceFactory::unInitializeSystemInterface();
    unlink(root.hostPath("/sim/cli/hardware_pci_list.sh").c_str());
    vekLogTail again(vekTestMainLogPath());
    EXPECT_EQ(osi().getPciIdInfo("0000:16:00.0"), ids("", "", "", ""));
    EXPECT_FALSE(again.contains("Could not populate the Hardware PCI details")) << again.newText();
}

// What the service calls at stop: nothing is made for it, and the scratch
// files of what was handed out are removed, also those a stopped run left.
TEST_F(OSInterfaceTest, StopRemovesTheScratchFiles)
{
    root.writeFile(kHardwareList, "left by the last run\n");
    vekSystemInterfaceFactory::unInitializeSystemInterface();
    EXPECT_EQ(root.readFile(kHardwareList), "left by the last run\n");

    root.writeCliOutput("hardware pci list", vekBundledProfileFile("sim/cli/hardware_pci_list.txt"));
    osi();
    EXPECT_EQ(root.readFile(kHardwareList), vekBundledProfileFile("sim/cli/hardware_pci_list.txt"));
    root.writeFile("/opt/zolvek/tmp/vek_niclist.txt", "Name\n");
    root.writeFile("/opt/zolvek/tmp/vek_nicAddDetails.txt", "Firmware Version: 1\n");
    vekSystemInterfaceFactory::unInitializeSystemInterface();
    for (const char* file :
         {kHardwareList, "/opt/zolvek/tmp/vek_niclist.txt", "/opt/zolvek/tmp/vek_nicAddDetails.txt"}) {
        EXPECT_FALSE(root.exists(file)) << file;
    }
    EXPECT_EQ(osi().UnInitialize(), 0);
}

TEST(PCIVendorsMap, MirrorsTheVendorLinesOfPciIds)
{
    std::ifstream ids("/usr/share/misc/pci.ids");
    ASSERT_TRUE(ids) << "pci.ids is not installed";
    const std::regex vendorLine("^([0-9a-f]{4})  (.*)$");
    std::map<std::string, std::string> listed;
    for (std::string line; std::getline(ids, line);) {
        std::smatch match;
        if (std::regex_match(line, match, vendorLine)) {
            listed[match[1]] = match[2];
        }
    }
    ASSERT_GT(listed.size(), 2000u);
    EXPECT_EQ(vekPCIVendorsMap.size(), listed.size());
    for (const auto& vendor : listed) {
        const auto found = vekPCIVendorsMap.find(vendor.first);
        ASSERT_NE(found, vekPCIVendorsMap.end()) << vendor.first;
        if (vendor.first != "1000") {
            EXPECT_EQ(found->second, vendor.second) << vendor.first;
        }
    }
    EXPECT_EQ(vekPCIVendorsMap.at("1000"), "Broadcom / LSI");
}

std::string slot(const std::string& designation, const std::string& address)
{
    return "{\"type\": 9, \"designation\": \"" + designation + "\", \"address\": \"" + address + "\"}";
}

std::string pciBlock(const std::string& address, const std::string& subVendor)
{
    return address + "\n   Address: " + address +
           "\n   Vendor ID: 0x8086\n   Device ID: 0x1593\n   SubVendor ID: " + subVendor +
           "\n   SubDevice ID: 0x0002\n\n";
}

class ManufacturerResolverTest : public vekRootTest {
protected:
    void SetUp() override
    {
        host.writeTable(4, "[" + slot("Slot 3 r001u03p1i03", "0000:5e:00.0") + ", " +
                               slot("OCP r001u03p1o1", "0000:2a:00.0") + ", " +
                               slot("Slot 5 r001u03p1i05", "0000:ca:00.0") + ", " +
                               slot("Onboard SATA r001u03p1i00", "0000:00:17.0") + "]");
        host.services();
        root.writeCliOutput("hardware pci list",
                            pciBlock("0000:00:17.0", "0x1d49") + pciBlock("0000:2a:00.0", "0x14E4") +
                                pciBlock("0000:5e:00.0", "0x1077") + pciBlock("0000:ca:00.0", "0x0002"));
        resolver = vekSystemInterfaceFactory::getSystemInterface()->getPCIeManufacturerResolverInterface();
    }

    std::string manufacturerOf(const std::string& pci, int expectedResult = 0)
    {
        std::string manufacturer, subVendor;
        EXPECT_EQ(resolver->fetchManufacturer(pci, manufacturer, subVendor), expectedResult) << pci;
        return manufacturer;
    }

    vekLocationTestHost host{root};
    vekPCIeManufacturerResolver* resolver = nullptr;
};

TEST_F(ManufacturerResolverTest, CardsByTheirSubsystemVendorOnBoardByTheSystem)
{
    vekLogTail log(vekTestMainLogPath());
    EXPECT_EQ(manufacturerOf("0000:5e:00.0"), vekPCIVendorsMap.at("1077"));
    EXPECT_EQ(manufacturerOf("0000:2a:00.0"), vekPCIVendorsMap.at("14e4"));
    EXPECT_EQ(manufacturerOf("0000:00:17.0"), "Zolvek");

    EXPECT_EQ(manufacturerOf("0000:ca:00.0", -1), "");
    EXPECT_TRUE(log.contains("Unable to fetch manufacturer name for PCI Subsystem Vendor ID : 0x0002 as there is no "
                             "mapping vendor information."));
    EXPECT_EQ(manufacturerOf("0000:99:00.0", -1), "");
    EXPECT_TRUE(log.contains("Unable to determine form factor for PCI device @ [0000:99:00.0]! (-5, -1)"));
    EXPECT_TRUE(log.contains("Unable to fetch manufacturer name for PCI device : 0000:99:00.0 as it is neither OnBoard "
                             "nor Add-in device (-1)"));
}

} // namespace
