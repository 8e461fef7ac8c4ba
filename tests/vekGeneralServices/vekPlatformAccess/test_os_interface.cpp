#include "SMBIOSVMware.h"
#include "vekOSInterface.h"
#include "vekVmwareOSInterface.h"
#include "vekTestRoot.h"

#include <gtest/gtest.h>

#include <unistd.h>

#include <fstream>
#include <map>
#include <sstream>
#include <stdexcept>
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

std::string bundledOutput(const std::string& file)
{
    return bundledFile("sim/cli/" + file);
}

// The host's SMBIOS: the bundled rack server's table, copied into the case's
// root. The OS interface only keeps the reference.
vekSmbiosInterface& hostSmbios(const vekTestRoot& root)
{
    root.writeFile("/sys/firmware/dmi/tables/DMI", bundledFile("sys/firmware/dmi/tables/DMI"));
    static SMBIOSVMware smbios;
    return smbios;
}

class OSInterfaceTest : public vekRootTest {
protected:
    vekVmwareOSInterface& osi = vekVmwareOSInterface::getInstance(hostSmbios(root));

    void useBundledPciList() const { root.writeCliOutput("hardware pci list", bundledOutput("hardware_pci_list.txt")); }

    static std::map<std::string, std::string> ids(const char* vendor, const char* device, const char* subVendor,
                                                  const char* subDevice)
    {
        return {{"Vendor", vendor}, {"Device", device}, {"SubVendor", subVendor}, {"SubDevice", subDevice}};
    }
};

TEST_F(OSInterfaceTest, PciIdsOfTheRackServersDevices)
{
    useBundledPciList();
    ASSERT_EQ(osi.Initialize(), 0);
    ASSERT_TRUE(root.exists(kHardwareList));

    const struct {
        const char* device;
        const char* address;
        std::map<std::string, std::string> ids;
    } cases[] = {
        {"Intel E810 port 0", "0000:16:00.0", ids("0x8086", "0x1593", "0x8086", "0x0002")},
        {"Intel E810 port 1", "0000:16:00.1", ids("0x8086", "0x1593", "0x8086", "0x0002")},
        {"Broadcom BCM57508", "0000:2a:00.1", ids("0x14e4", "0x1750", "0x14e4", "0xd124")},
        {"MegaRAID", "0000:3b:00.0", ids("0x1000", "0x10e2", "0x1000", "0x4000")},
        {"QLogic FC", "0000:5e:00.0", ids("0x1077", "0x2281", "0x1077", "0x02e7")},
        {"Samsung NVMe", "0000:87:00.0", ids("0x144d", "0xa824", "0x144d", "0xa801")},
        {"Intel NVMe", "0000:88:00.0", ids("0x8086", "0x0b60", "0x8086", "0x8008")},
        {"NVIDIA A100", "0000:ca:00.0", ids("0x10de", "0x20b5", "0x10de", "0x1533")},
        // A bridge's address also stands in its children's "Parent Device" lines.
        {"root port", "0000:15:01.0", ids("0x8086", "0x352a", "0x0000", "0x0000")},
    };
    for (const auto& c : cases) {
        vekLogTail mainLog(vekTestMainLogPath());
        vekLogTail debug(vekTestDebugLogPath());
        EXPECT_EQ(osi.getPciIdInfo(c.address), c.ids) << c.device;
        EXPECT_FALSE(mainLog.contains("Cound not fetch")) << c.device << mainLog.newText();
        EXPECT_TRUE(debug.contains("vendorId = " + c.ids.at("Vendor") + ", deviceId = " + c.ids.at("Device") + "\n"))
            << c.device << debug.newText();
        EXPECT_TRUE(debug.contains("subVendorId = " + c.ids.at("SubVendor") + ", subDeviceId = " +
                                   c.ids.at("SubDevice") + "\n"))
            << c.device;
    }
}

TEST_F(OSInterfaceTest, AddressWithoutABlockLeavesTheIdsEmpty)
{
    useBundledPciList();
    osi.Initialize();
    for (const char* address : {"0000:ff:1f.7", "", "0000:16:00.0/' ; touch /tmp/vek-injected ; '"}) {
        vekLogTail mainLog(vekTestMainLogPath());
        EXPECT_EQ(osi.getPciIdInfo(address), ids("", "", "", "")) << address;
        const std::string logged = mainLog.newText();
        for (const char* what : {"vendorId", "deviceId", "subVendorId", "subDeviceId"}) {
            EXPECT_NE(logged.find(std::string("[WARNING] ")), std::string::npos);
            EXPECT_NE(logged.find(std::string("VMWARE_OS_UTILS: Cound not fetch ") + what + " for " + address + "\n"),
                      std::string::npos)
                << what << logged;
        }
    }
    EXPECT_NE(access("/tmp/vek-injected", F_OK), 0);
}

TEST_F(OSInterfaceTest, WithoutAPciListTheIdsAreEmpty)
{
    // The host's command fails: the list is empty and so are the ids.
    ASSERT_EQ(osi.Initialize(), 0);
    EXPECT_EQ(root.readFile(kHardwareList), "");
    EXPECT_EQ(osi.getPciIdInfo("0000:16:00.0"), ids("", "", "", ""));

    // Never initialised at all.
    osi.UnInitialize();
    EXPECT_EQ(osi.getPciIdInfo("0000:16:00.0"), ids("", "", "", ""));
}

TEST_F(OSInterfaceTest, UnInitializeRemovesTheList)
{
    useBundledPciList();
    ASSERT_EQ(osi.populateHardwarePCIDetails(), 0);
    EXPECT_EQ(root.readFile(kHardwareList), bundledOutput("hardware_pci_list.txt"));
    EXPECT_EQ(osi.UnInitialize(), 0);
    EXPECT_FALSE(root.exists(kHardwareList));
    EXPECT_EQ(osi.UnInitialize(), 0);
}

TEST_F(OSInterfaceTest, OneInstance)
{
    EXPECT_EQ(&vekVmwareOSInterface::getInstance(hostSmbios(root)), &osi);
    EXPECT_EQ(hostSmbios(root).platform(), 4);
}

TEST_F(OSInterfaceTest, ServicesTheHostDoesNotOffer)
{
    vekOSInterface& base = osi;
    EXPECT_FALSE(base.isExecuteCommandSuccessful(0));
    std::vector<std::string> output;
    try {
        base.executeCommandAndFetchOutput("localcli system version get", output);
        FAIL() << "no command service on this host";
    } catch (const std::runtime_error& e) {
        EXPECT_STREQ(e.what(), "Not Implemented!!");
    }
    EXPECT_THROW(base.getNvdimmInterface(), osi_exceptions::osi_not_implemeted);
    EXPECT_THROW(base.getSmbiosInterface(), osi_exceptions::osi_not_implemeted);
    EXPECT_THROW(base.getIBInterface(), osi_exceptions::osi_not_implemeted);
    EXPECT_THROW(base.getPerformanceTMInterface(), osi_exceptions::osi_not_implemeted);
    EXPECT_THROW(base.getTPMInterface(), osi_exceptions::osi_not_implemeted);
    EXPECT_THROW(base.getStorageInterface(), osi_exceptions::osi_not_implemeted);
}

} // namespace
