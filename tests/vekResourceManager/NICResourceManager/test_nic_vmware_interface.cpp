// The Ethernet ports of an ESXi host through the real popen of the simulated
// host's localcli, with outputs shaped like real hosts'.

#include "NICResourceManager/vekNICVmwareInterface.h"
#include "vekLocationTestHost.h"
#include "vekOSInterface.h"
#include "vekTestRoot.h"

#include <gtest/gtest.h>

#include <unistd.h>

#include <cstdlib>
#include <stdexcept>
#include <string>
#include <vector>

namespace {

const std::string kHeader =
    "Name    PCI Device    Driver   Admin Status  Link Status  Speed   Duplex  MAC Address         MTU   Description\n"
    "------  ------------  -------  ------------  -----------  ------  ------  -----------------  ----  -----------\n";

std::string row(const std::string& name, const std::string& pci, const std::string& admin, const std::string& link,
                const std::string& speed, const std::string& description = "Intel(R) Ethernet Controller E810-C")
{
    return name + "  " + pci + "  icen     " + admin + "  " + link + "  " + speed +
           "  Full    b4:96:91:a1:10:20  1500  " + description + "\n";
}

class NICVmwareInterfaceTest : public vekRootTest {
protected:
    void SetUp() override
    {
        host.writeTable(4, "[{\"type\": 9, \"designation\": \"PCIe Slot 1 r001u03p1i01\", \"address\": "
                           "\"0000:16:00.0\"}]");
        host.services();
        root.makeDirectory("/opt/zolvek/tmp");
        os = vekSystemInterfaceFactory::getSystemInterface();
        ASSERT_NE(os, nullptr);
        nic = os->getNICInterface();
    }

    void writeList(const std::string& rows) { root.writeCliOutput("network nic list", kHeader + rows); }

    std::vector<std::string> names()
    {
        std::vector<std::string> found;
        nic->populateNICInstances(found);
        return found;
    }

    vekDeviceStatus status(const std::string& name)
    {
        NICDeviceInfo info;
        nic->discoverNICStatusInfo(name, info);
        return info.deviceStatus;
    }

    vekLocationTestHost host{root};
    vekOSInterface* os = nullptr;
    vekNICInterface* nic = nullptr;
};

TEST_F(NICVmwareInterfaceTest, ListKeepsPhysicalPortsAndTheirRows)
{
    vekLogTail debug(vekTestDebugLogPath());
    writeList(row("vmnic1", "0000:16:00.1", "Up", "Up", "25000") + row("vusb0", "Pseudo", "Up", "Up", "100") +
              row("vmnic0", "0000:16:00.0", "Up", "Down", "0", ""));
    EXPECT_EQ(names(), (std::vector<std::string>{"vmnic0", "vmnic1"}));
    EXPECT_TRUE(debug.contains("Excluding Virtual NIC instance : vusb0"));
    EXPECT_FALSE(root.exists("/opt/zolvek/tmp/vek_niclist.txt"));
    EXPECT_EQ(status("vmnic0").state, VEK_STATE_LINKDOWN);
}

// A short row ends the parse but keeps the rows before it; a list without
// its header, or a failing command, adds none (rows once read stay).
TEST_F(NICVmwareInterfaceTest, ListsThatCannotBeReadWhole)
{
    const struct {
        std::string list;
        int status;
        std::vector<std::string> names;
        const char* logged;
    } cases[] = {
        {kHeader + row("vmnic0", "0000:16:00.0", "Up", "Up", "25000") +
             "vmnic1  0000:16:00.1  icen  Up  Up  25000  Full  b4:96:91:a1:10:21\n" +
             row("vmnic2", "0000:2a:00.0", "Up", "Up", "1"),
         0,
         {"vmnic0"},
         "An error occurred while trying to fetch NIC information"},
        {row("vmnic3", "0000:16:00.0", "Up", "Up", "25000"), 0, {"vmnic0"}, "Unable to find NIC information."},
        {"", 1, {"vmnic0"}, "Error occurred in gathering network interface information"},
    };
    for (const auto& c : cases) {
        vekLogTail log(vekTestMainLogPath());
        root.writeCliOutput("network nic list", c.list, c.status);
        EXPECT_EQ(names(), c.names) << c.logged;
        EXPECT_TRUE(log.contains(c.logged)) << log.newText();
        EXPECT_FALSE(root.exists("/opt/zolvek/tmp/vek_niclist.txt"));
    }
}

TEST_F(NICVmwareInterfaceTest, AdapterConditionGivesStateAndHealth)
{
    struct Case {
        const char* admin;
        const char* link;
        VEK_RESOURCE_STATE state;
        VEK_RESOURCE_HEALTH health;
    };
    const Case cases[] = {
        {"Up", "Up", VEK_STATE_ONLINE, VEK_HEALTH_OK},
        {"up", "DOWN", VEK_STATE_LINKDOWN, VEK_HEALTH_OK},
        {"Up", "Unknown", VEK_STATE_OFFLINE, VEK_HEALTH_CRITICAL},
        {"Down", "Down", VEK_STATE_OFFLINE, VEK_HEALTH_OK},
        {"Down", "Up", VEK_STATE_DOWN, VEK_HEALTH_OK},
    };
    writeList(row("vmnic0", "0000:16:00.0", "Up", "Up", "25000"));
    ASSERT_EQ(names().size(), 1u);
    for (const Case& c : cases) {
        SCOPED_TRACE(std::string(c.admin) + "/" + c.link);
        // The poller's refresh rewrites the link columns of known rows only.
        writeList(row("vmnic0", "0000:16:00.0", c.admin, c.link, "25000") +
                  row("vmnic9", "0000:99:00.0", "Up", "Up", "1000"));
        nic->refreshData();
        EXPECT_EQ(status("vmnic0").state, c.state);
        EXPECT_EQ(status("vmnic0").health, c.health);
    }
    // A port the build never saw reads as down, and is not added.
    EXPECT_EQ(status("vmnic9").state, VEK_STATE_DOWN);
    EXPECT_EQ(status("vmnic9").health, VEK_HEALTH_OK);
}

// Names come from the host's list and go into the next command line: the
// fake localcli gets them literally, and the shell runs nothing of them.
TEST_F(NICVmwareInterfaceTest, NamesFromTheListAreNeverRun)
{
    char* previous = getcwd(nullptr, 0);
    ASSERT_EQ(chdir(root.path().c_str()), 0);
    const std::string names[] = {"vmnic$(touch${IFS}PWNED)", "vmnic'1", "vmnic`touch${IFS}PWNED`;"};
    std::string rows;
    for (const std::string& name : names) {
        rows += row(name, "0000:16:00.0", "Up", "Up", "25000");
        root.writeFile("/sim/cli/network_nic_get_-n_" + name + ".txt", "   Firmware Version: " + name + "\n");
    }
    writeList(rows);
    ASSERT_EQ(this->names().size(), 3u);
    for (const std::string& name : names) {
        NICDeviceInfo info;
        nic->discoverNICProperties(name, info);
        EXPECT_EQ(info.firmwareVersion, name);
    }
    EXPECT_FALSE(root.exists("/PWNED"));
    EXPECT_EQ(chdir(previous), 0);
    free(previous);
}

// Firmware is what follows the colon of the last line read.
TEST_F(NICVmwareInterfaceTest, FirmwareIsWhatFollowsTheColon)
{
    writeList(row("vmnic0", "0000:16:00.0", "Up", "Up", "25000"));
    ASSERT_EQ(names().size(), 1u);
    for (const auto& c : {std::make_pair("Firmware Version: 1.0\n   Firmware Version: 2.0\n", "2.0"),
                          {"   Driver: icen\n", ""}}) {
        root.writeCliOutput("network nic get -n vmnic0", c.first);
        NICDeviceInfo info;
        nic->discoverNICProperties("vmnic0", info);
        EXPECT_EQ(info.firmwareVersion, c.second) << c.first;
        // The output's scratch file lives only during its read.
        EXPECT_FALSE(root.exists("/opt/zolvek/tmp/vek_nicAddDetails.txt"));
    }
}

TEST_F(NICVmwareInterfaceTest, SpeedThatIsNoNumberFailsTheDiscovery)
{
    writeList(row("vmnic0", "0000:16:00.0", "Up", "Up", "fast"));
    ASSERT_EQ(names().size(), 1u);
    NICDeviceInfo info;
    EXPECT_ANY_THROW(nic->discoverNICProperties("vmnic0", info));
}

} // namespace
