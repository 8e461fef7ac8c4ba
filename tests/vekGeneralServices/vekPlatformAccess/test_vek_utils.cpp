#include "vekGlobalDef.h"
#include "vekUtils.h"
#include "vekTestRoot.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <ctime>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

namespace {

std::string bundledFile(const std::string& relative)
{
    std::ifstream in(std::string(VEK_SIMHOST_DIR) + "/profiles/rack-type4/" + relative);
    std::stringstream text;
    text << in.rdbuf();
    return text.str();
}

class VekUtilsTest : public vekRootTest {
protected:
    void SetUp() override { root.makeDirectory("/tmp"); }
};

TEST_F(VekUtilsTest, TimeStampsToEpochSeconds)
{
    const struct {
        const char* stamp;
        long epoch;
    } cases[] = {
        {"2026-11-14T18:34:51Z", 1794681291},
        {"2026-11-14T18:34:51.123Z", 1794681291},
        {"2026-11-14 18:34:51", 1794681291},
        {"1970-01-01T00:00:00Z", 0},
        {"2000-02-29T23:59:59Z", 951868799},
    };
    for (const auto& c : cases) {
        vekLogTail mainLog(vekTestMainLogPath());
        EXPECT_EQ(vekUtils::toEpoc(c.stamp), c.epoch) << c.stamp;
        EXPECT_FALSE(mainLog.contains("Invalid time stamp format.")) << c.stamp;
    }
    for (const char* bad : {"", "14/11/2026 18:34:51", "2026-1x-14T18:34:51Z", "2026-11-14T18:34", "bootstop:"}) {
        vekLogTail mainLog(vekTestMainLogPath());
        EXPECT_EQ(vekUtils::toEpoc(bad), 0) << bad;
        EXPECT_TRUE(mainLog.contains("VEK_UTILS: Invalid time stamp format.\n")) << bad;
    }
}

TEST_F(VekUtilsTest, PciAddressOfAStorageAdapter)
{
    root.writeCliOutput("storage core adapter list", bundledFile("sim/cli/storage_core_adapter_list.txt"));
    EXPECT_EQ(vekUtils::getPCIString("vmhba2"), "0000:5e:00.0");
    EXPECT_EQ(vekUtils::getPCIString("VMHBA1"), "0000:3b:00.0");
    EXPECT_EQ(vekUtils::getPCIString("vmhba66"), "0000:88:00.0");
    EXPECT_EQ(vekUtils::getPCIString("vmhba9"), "");
}

TEST_F(VekUtilsTest, Ipv4Addresses)
{
    for (const char* good : {"10.1.2.3", "0.0.0.0", "255.255.255.255"}) {
        EXPECT_TRUE(vekUtils::is_ipv4_address(good)) << good;
    }
    for (const char* bad : {"", "256.1.1.1", "10.1.2", "fe80::1", "10.1.2.3 ", "host"}) {
        EXPECT_FALSE(vekUtils::is_ipv4_address(bad)) << bad;
    }
}

TEST_F(VekUtilsTest, PrimaryAddressIsTheCachedFirstOne)
{
    vekUtils::setPrimaryIPAddress("192.0.2.10");
    EXPECT_EQ(vekUtils::getPrimaryIPAddress(), "192.0.2.10");

    const std::vector<std::string> addresses = vekUtils::updateAndFetchIPAddresses();
    EXPECT_EQ(addresses, vekGlobalDef::VMwareOSUtils::getIPAddress());
    EXPECT_EQ(vekUtils::getPrimaryIPAddress(), addresses.empty() ? "" : addresses.front());
}

TEST_F(VekUtilsTest, CacheRefreshInterval)
{
    EXPECT_EQ(vekUtils::getCacheRefreshTimeInterval(), 0);
    vekUtils::setCacheRefreshTimeInterval(45);
    EXPECT_EQ(vekUtils::getCacheRefreshTimeInterval(), 45);
}

TEST_F(VekUtilsTest, RepeatedHostQuestionsGiveTheSameAnswers)
{
    root.writeCliOutput("system version get", bundledFile("sim/cli/system_version_get.txt"));
    EXPECT_EQ(vekUtils::readHostOSName(), "VMware ESXi");
    EXPECT_EQ(vekUtils::readHostOSVersion(), "8.0.2");
    EXPECT_EQ(vekUtils::readHostName(), vekGlobalDef::VMwareOSUtils::readHostName());
    EXPECT_EQ(vekUtils::readHostOSDescription(), vekGlobalDef::VMwareOSUtils::readHostOSDescription());
    EXPECT_EQ(vekUtils::executeCliCommandAndFetchOutput("localcli system version get | grep Build:"),
              std::vector<std::string>{"   Build: Releasebuild-22380479\n"});
    EXPECT_EQ(vekUtils::getIPAddresses(), vekGlobalDef::VMwareOSUtils::getIPAddress());
    vekLogTail mainLog(vekTestMainLogPath());
    vekUtils::synchronizePersistentStorage();
    EXPECT_TRUE(mainLog.contains("VMWARE_OS_UTILS: Failed to synchronize persistent storage.")) << mainLog.newText();

    setenv("TZ", "UTC", 1);
    tzset();
    EXPECT_EQ(vekUtils::getTimeZone(), "UTC");
    EXPECT_EQ(vekUtils::getTime().size(), std::string("2026-11-14 18:34:51").size());
    EXPECT_EQ(vekUtils::getUTCTime().back(), 'Z');
    EXPECT_FALSE(vekUtils::getDateTime().empty());
}

TEST_F(VekUtilsTest, SubStrings)
{
    const struct {
        const char* text;
        const char* begin;
        const char* end;
        const char* out;
    } cases[] = {
        {"vmhba2  qlnativefc  (0000:5e:00.0) QLogic (x)", "(", ")", "0000:5e:00.0"},
        {"key=[value]", "[", "]", "value"},
        {"<<>>", "<<", ">>", ""},
        {"no open) here", "(", ")", ""},
        {"(no close", "(", ")", ""},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(vekUtils::getSubStr(c.text, c.begin, c.end), c.out) << c.text;
    }
}

TEST_F(VekUtilsTest, FileAndDirectoryReaders)
{
    root.writeFile("/sys/bus/pci/devices/0000:16:00.0/vendor", "0x8086\r\nsecond line\n");
    root.writeFile("/sys/bus/pci/devices/0000:2a:00.1/vendor", "0x14e4\n");
    root.writeFile("/sys/bus/pci/devices/10000:e1:00.0/vendor", "0x144d\n");
    root.writeFile("/sys/bus/pci/devices/README", "");
    root.writeFile("/sys/class/nvme/nvme0/nvme0n1/size", "1");
    root.writeFile("/sys/class/nvme/nvme0/nvme0n12/size", "1");
    root.writeFile("/sys/class/nvme/nvme0/nvme0c0n1/size", "1");
    root.writeFile("/sys/class/nvme/nvme0/model", "PM1733");
    const std::string devices = root.hostPath("/sys/bus/pci/devices");

    EXPECT_EQ(vekUtils::getLineFromFile(devices + "/0000:16:00.0/vendor"), "0x8086");
    EXPECT_EQ(vekUtils::getLineFromFile(devices + "/README"), "");
    EXPECT_EQ(vekUtils::getLineFromFile(devices + "/absent"), "");

    EXPECT_EQ(vekUtils::dirList(devices),
              (std::vector<std::string>{"0000:16:00.0", "0000:2a:00.1", "10000:e1:00.0", "README"}));
    EXPECT_EQ(vekUtils::dirPciList(devices),
              (std::vector<std::string>{"0000:16:00.0", "0000:2a:00.1", "10000:e1:00.0"}));
    EXPECT_EQ(vekUtils::dirListNvmeNameSpaces(root.hostPath("/sys/class/nvme/nvme0")),
              (std::vector<std::string>{"nvme0n1", "nvme0n12"}));
    EXPECT_TRUE(vekUtils::dirList(root.hostPath("/sys/absent")).empty());
}

TEST_F(VekUtilsTest, BootAndShutdownTimesFromTheHostsSummaryLog)
{
    root.writeFile("/var/log/vmksummary.log", bundledFile("var/log/vmksummary.log"));
    // A stopped run left its scratch file behind.
    root.writeFile("/tmp/vekboot.log", "1999-01-01T00:00:00Z\n");

    long last = -1;
    long previous = -1;
    ASSERT_TRUE(vekUtils::fetchSystemBootTime(last, previous));
    EXPECT_EQ(last, vekUtils::toEpoc("2026-11-14T18:34:51Z"));
    EXPECT_EQ(previous, vekUtils::toEpoc("2026-10-19T21:15:09Z"));
    EXPECT_FALSE(root.exists("/tmp/vekboot.log"));

    long shutdown = -1;
    ASSERT_TRUE(vekUtils::fetchSystemShutdownTime(shutdown));
    EXPECT_EQ(shutdown, vekUtils::toEpoc("2026-11-14T18:22:30Z"));
    EXPECT_FALSE(root.exists("/tmp/vekboot.log"));

    root.writeFile("/var/log/vmksummary.log", "2026-11-15T08:00:00Z bootstop: Host has booted\n");
    ASSERT_TRUE(vekUtils::fetchSystemBootTime(last, previous));
    EXPECT_EQ(last, vekUtils::toEpoc("2026-11-15T08:00:00Z"));
    EXPECT_EQ(previous, 0);
}

TEST_F(VekUtilsTest, SummaryLogWithoutTheLines)
{
    const struct {
        const char* what;
        const char* log; // nullptr: no log at all
    } cases[] = {
        {"no log", nullptr},
        {"never booted", "2026-11-15T08:00:01Z heartbeat: up 0d0h0m, 0 VMs; [] []\n"},
    };
    for (const auto& c : cases) {
        if (c.log != nullptr) {
            root.writeFile("/var/log/vmksummary.log", c.log);
        }
        vekLogTail mainLog(vekTestMainLogPath());
        long last = -1;
        long previous = -1;
        long shutdown = -1;
        EXPECT_FALSE(vekUtils::fetchSystemBootTime(last, previous)) << c.what;
        EXPECT_FALSE(vekUtils::fetchSystemShutdownTime(shutdown)) << c.what;
        EXPECT_EQ(last, 0);
        EXPECT_EQ(previous, 0);
        EXPECT_EQ(shutdown, 0);
        EXPECT_TRUE(mainLog.contains("VEK_UTILS: Error occurred in gathering system boot time information.\n"))
            << c.what << mainLog.newText();
        EXPECT_TRUE(
            mainLog.contains("VEK_UTILS: Error occurred in gathering system last shutdown time information.\n"))
            << c.what;
        EXPECT_FALSE(root.exists("/tmp/vekboot.log"));
    }
}

} // namespace
