#include "vekGlobalDef.h"
#include "vekUtils.h"
#include "vekTestRoot.h"

#include <gtest/gtest.h>

#include <unistd.h>

#include <string>
#include <vector>

namespace {

using Names = std::vector<std::string>;

class VekUtilsTest : public vekRootTest {};

TEST_F(VekUtilsTest, TimeStampsToEpochSeconds)
{
    const struct {
        const char* stamp;
        long epoch; // 0: "Invalid time stamp format."
    } cases[] = {{"2026-11-14T18:34:51.123Z", 1794681291}, {"2026-11-14 18:34:51", 1794681291},
                 {"2000-02-29T23:59:59Z", 951868799},      {"", 0},
                 {"2026-1x-14T18:34:51Z", 0},              {"2026-11-14T18:34", 0}};
    for (const auto& c : cases) {
        vekLogTail mainLog(vekTestMainLogPath());
        EXPECT_EQ(vekUtils::toEpoc(c.stamp), c.epoch) << c.stamp;
        EXPECT_EQ(mainLog.contains("VEK_UTILS: Invalid time stamp format.\n"), c.epoch == 0) << c.stamp;
    }
}

// The adapter name goes into the pipeline as one quoted word.
TEST_F(VekUtilsTest, PciAddressOfAStorageAdapter)
{
    root.writeCliOutput("storage core adapter list", vekBundledProfileFile("sim/cli/storage_core_adapter_list.txt"));
    const struct {
        const char* name;
        const char* address;
    } cases[] = {{"vmhba2", "0000:5e:00.0"}, {"VMHBA1", "0000:3b:00.0"}, {"vmhba9", ""},
                 {"-f/etc/passwd", ""},      {"x' /etc/passwd; touch /tmp/vek-pwned; '", ""}};
    for (const auto& c : cases) {
        EXPECT_EQ(vekUtils::getPCIString(c.name), c.address) << c.name;
    }
    EXPECT_NE(access("/tmp/vek-pwned", F_OK), 0);
}

TEST_F(VekUtilsTest, FileAndDirectoryReaders)
{
    root.writeFile("/sys/bus/pci/devices/0000:16:00.0/vendor", "0x8086\r\nsecond line\n");
    root.writeFile("/sys/bus/pci/devices/10000:e1:00.0/vendor", "0x144d\n");
    root.writeFile("/sys/bus/pci/devices/README", "");
    for (const char* name : {"nvme0n1", "nvme0n12", "nvme0c0n1"}) {
        root.writeFile(std::string("/sys/class/nvme/nvme0/") + name + "/size", "1");
    }
    const std::string devices = root.hostPath("/sys/bus/pci/devices");
    EXPECT_EQ(vekUtils::getLineFromFile(devices + "/0000:16:00.0/vendor"), "0x8086");
    EXPECT_EQ(vekUtils::dirList(devices), (Names{"0000:16:00.0", "10000:e1:00.0", "README"}));
    EXPECT_EQ(vekUtils::dirPciList(devices), (Names{"0000:16:00.0", "10000:e1:00.0"}));
    EXPECT_EQ(vekUtils::dirListNvmeNameSpaces(root.hostPath("/sys/class/nvme/nvme0")), (Names{"nvme0n1", "nvme0n12"}));
    EXPECT_EQ(vekGlobalDef::stringUtils::getMatchingLineFromFile(devices + "/0000:16:00.0/vendor", "e"), "second line");
    EXPECT_EQ(vekUtils::getSubStr("vmhba2  qlnativefc  (0000:5e:00.0) QLogic (x)", "(", ")"), "0000:5e:00.0");
    EXPECT_EQ(vekUtils::getSubStr("no open) here (no close", "(", ")"), "");
}

TEST_F(VekUtilsTest, BootAndShutdownTimesFromTheHostsSummaryLog)
{
    root.writeFile("/var/log/vmksummary.log", vekBundledProfileFile("var/log/vmksummary.log"));
    root.writeFile("/tmp/vekboot.log", "1999-01-01T00:00:00Z\n"); // left by a stopped run
    long last = -1, previous = -1, shutdown = -1;
    ASSERT_TRUE(vekUtils::fetchSystemBootTime(last, previous));
    EXPECT_EQ(last, vekUtils::toEpoc("2026-11-14T18:34:51Z"));
    EXPECT_EQ(previous, vekUtils::toEpoc("2026-10-19T21:15:09Z"));
    ASSERT_TRUE(vekUtils::fetchSystemShutdownTime(shutdown));
    EXPECT_EQ(shutdown, vekUtils::toEpoc("2026-11-14T18:22:30Z"));
    EXPECT_FALSE(root.exists("/tmp/vekboot.log"));

    for (const char* log : {"", "2026-11-15T08:00:01Z heartbeat: up 0d0h0m, 0 VMs; [] []\n"}) {
        unlink(root.hostPath("/var/log/vmksummary.log").c_str());
        if (*log != '\0') {
            root.writeFile("/var/log/vmksummary.log", log);
        }
        vekLogTail mainLog(vekTestMainLogPath());
        EXPECT_FALSE(vekUtils::fetchSystemBootTime(last, previous)) << log;
        EXPECT_FALSE(vekUtils::fetchSystemShutdownTime(shutdown)) << log;
        EXPECT_EQ(std::vector<long>({last, previous, shutdown}), std::vector<long>(3, 0));
        EXPECT_TRUE(mainLog.contains("VEK_UTILS: Error occurred in gathering system boot time information.\n"));
        EXPECT_TRUE(
            mainLog.contains("VEK_UTILS: Error occurred in gathering system last shutdown time information.\n"));
        EXPECT_FALSE(root.exists("/tmp/vekboot.log"));
    }
}

} // namespace
