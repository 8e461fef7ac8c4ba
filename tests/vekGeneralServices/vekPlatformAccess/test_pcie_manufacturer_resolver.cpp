// Who made a PCI device: the vendor table against Debian's pci.ids, and the
// resolver on a simulated host (SMBIOS slots, the fake localcli's PCI list).

#include "vekLocationTestHost.h"
#include "vekOSInterface.h"
#include "vekPCIVendorsMap.h"
#include "vekPCIeManufacturerResolver.h"
#include "vekTestRoot.h"

#include <gtest/gtest.h>

#include <fstream>
#include <map>
#include <regex>
#include <string>

namespace {

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
