// The chipset's SATA RAID controller: its firmware version from mdadm (read
// once per process, so each mdadm case runs in a process of its own), its
// port count by platform and the texts of its status.

#include "IvekStorageControllerFactory.h"
#include "vekLewisburgSATARAIDController.h"
#include "vekTestRoot.h"

#include <gtest/gtest.h>

#include <unistd.h>

#include <cstdio>
#include <memory>
#include <string>
#include <vector>

namespace {

const uint32_t kLewisburgSata = vekStorageChipsetID(0x8086, 0xA186);

// mdadm --detail-platform of that many controllers, "0000:00:NN.0" with
// version "6.3.0.NN", as the simulated host's mdadm fake prints it.
std::string detailPlatform(int controllers)
{
    std::string text;
    for (int i = 0; i < controllers; ++i) {
        char pair[256];
        snprintf(pair, sizeof(pair),
                 "       Platform : Intel(R) Rapid Storage Technology enterprise\n"
                 "        Version : 6.3.0.%02d\n"
                 "    RAID Levels : raid0 raid1 raid10 raid5\n"
                 " I/O Controller : /sys/devices/pci0000:00/0000:00:%02d.0 (SATA)\n\n",
                 i, i);
        text += pair;
    }
    return text;
}

class LewisburgMdadmTest : public vekRootTest {
protected:
    // mdadm at that host path: the simulated host's fake.
    void installMdadm(const std::string& hostPath, int controllers)
    {
        root.makeDirectory(hostPath.substr(0, hostPath.rfind('/')));
        ASSERT_EQ(symlink((std::string(VEK_SIMHOST_DIR) + "/bin/simcli").c_str(), root.hostPath(hostPath).c_str()),
                  0);
        root.writeFile("/sim/cli/mdadm_--detail-platform.txt", detailPlatform(controllers));
    }

    std::string versionAt(const std::string& pci)
    {
        IvekStorageController* claimed = nullptr;
        EXPECT_EQ(vekLewisburgSATARAIDController::claimDevice(kLewisburgSata, 0, pci, true, nullptr, &claimed), 1);
        std::unique_ptr<IvekStorageController> controller(claimed);
        std::string version;
        if (controller) {
            controller->discoverFirmwareVersion(version);
        }
        return version;
    }
};

TEST_F(LewisburgMdadmTest, ElevenControllersKeepTheFirstTen)
{
    installMdadm("/usr/sbin/mdadm", 11);
    EXPECT_EQ(versionAt("0000:00:00.0"), "6.3.0.00");
    EXPECT_EQ(versionAt("0000:00:09.0"), "6.3.0.09");
    EXPECT_EQ(versionAt("0000:00:10.0"), "");
    // Once: a changed output is not read again.
    root.writeFile("/sim/cli/mdadm_--detail-platform.txt", detailPlatform(12));
    EXPECT_EQ(versionAt("0000:00:10.0"), "");
}

TEST_F(LewisburgMdadmTest, OnlySbinMdadmIsFound)
{
    installMdadm("/sbin/mdadm", 2);
    EXPECT_EQ(versionAt("0000:00:01.0"), "6.3.0.01");
}

TEST_F(LewisburgMdadmTest, NoMdadmLeavesTheVersionEmpty)
{
    const vekLogTail log(vekTestMainLogPath());
    root.writeFile("/sim/cli/mdadm_--detail-platform.txt", detailPlatform(1));
    EXPECT_EQ(versionAt("0000:00:00.0"), "");
    EXPECT_TRUE(log.contains("STOR_LB: Unable to find mdadm at standard locations")) << log.newText();
    // A model of another family is not this class's.
    IvekStorageController* claimed = nullptr;
    EXPECT_EQ(vekLewisburgSATARAIDController::claimDevice(vekStorageChipsetID(0x8086, 0xA182), 0, "0000:00:17.0",
                                                          true, nullptr, &claimed),
              0);
    EXPECT_EQ(claimed, nullptr);
}

TEST(LewisburgPortsTest, PortCountByPlatform)
{
    const struct {
        int platform;
        size_t ports;
    } cases[] = {{4, 8}, {2, 8}, {1, 4}, {0, 0}, {3, 0}, {-1, 0}};
    for (const auto& c : cases) {
        EXPECT_EQ(vekLewisburgSATARAIDController::maxSupportedControllerPortsFor(c.platform), c.ports)
            << "platform " << c.platform;
    }
}

class TestLewisburg : public vekLewisburgSATARAIDController {
public:
    explicit TestLewisburg(int platform)
        : vekLewisburgSATARAIDController(kLewisburgSata, 0, "0000:00:17.0", VEK_STORAGE_FAMILY_LEWISBURG, true,
                                         nullptr, platform)
    {
    }
    using vekLewisburgSATARAIDController::currentInfo_;
    using vekLewisburgSATARAIDController::discoveryRunning;
};

TEST(LewisburgStatusTest, StatusAndTextFromThePortsTheOsShows)
{
    const std::string failing = " of the Intel SATA RAID controller have gone offline or will be removed from the "
                                "system, or have been in recovery state for >= 60 seconds.";
    const struct {
        const char* name;
        int platform;
        std::vector<VEK_RESOURCE_STATE> ports;
        VEK_RESOURCE_STATE state;
        VEK_RESOURCE_HEALTH health;
        std::string text;
    } cases[] = {
        {"all eight running", 4, std::vector<VEK_RESOURCE_STATE>(8, VEK_STATE_RUNNING), VEK_STATE_RUNNING,
         VEK_HEALTH_OK, "All ports of the Intel SATA RAID controller are now online."},
        {"six shown, all running", 4, std::vector<VEK_RESOURCE_STATE>(6, VEK_STATE_RUNNING), VEK_STATE_RUNNING,
         VEK_HEALTH_OK, "All ports of the Intel SATA RAID controller are now online."},
        {"two offline, one in recovery for a minute", 4,
         {VEK_STATE_RUNNING, VEK_STATE_OFFLINE, VEK_STATE_RUNNING, VEK_STATE_RECOVERY, VEK_STATE_CREATED,
          VEK_STATE_RUNNING, VEK_STATE_OFFLINE, VEK_STATE_RUNNING},
         VEK_STATE_DEGRADED, VEK_HEALTH_CRITICAL, "At least 3 of 8 ports" + failing},
        {"all four gone", 1, std::vector<VEK_RESOURCE_STATE>(4, VEK_STATE_OFFLINE), VEK_STATE_OFFLINE,
         VEK_HEALTH_CRITICAL, "At least 4 of 4 ports" + failing},
        {"a platform of no known port count", 3, std::vector<VEK_RESOURCE_STATE>(2, VEK_STATE_RUNNING),
         VEK_STATE_RUNNING, VEK_HEALTH_OK, ""},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        TestLewisburg controller(c.platform);
        for (const VEK_RESOURCE_STATE state : c.ports) {
            controller.addPort("/sys/class/scsi_host/host" + std::to_string(controller.getPortListSize()));
            vekStorageControllerPortInfo port;
            port.setState(state);
            controller.currentInfo_.addControllerPort(port);
        }
        controller.discoveryRunning = 0;
        controller.computeControllerStatus();
        EXPECT_EQ(controller.currentInfo_.getState(), c.state);
        EXPECT_EQ(controller.currentInfo_.getHealth(), c.health);
        EXPECT_EQ(controller.currentInfo_.getEventInfoString(), c.text);
    }
}

} // namespace
