// The small helpers: text, regular expressions, times, files and folders,
// and the host's summary log.

#include "vekGlobalDef.h"
#include "vekUtils.h"
#include "vekTestRoot.h"

#include <gtest/gtest.h>

#include <unistd.h>

#include <cstdlib>
#include <ctime>
#include <map>
#include <regex>
#include <string>
#include <vector>

using vekGlobalDef::stringUtils;
using vekGlobalDef::timeUtils;
using Pieces = std::vector<std::string>;

namespace {

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
    EXPECT_EQ(vekUtils::dirList(devices), (Pieces{"0000:16:00.0", "10000:e1:00.0", "README"}));
    EXPECT_EQ(vekUtils::dirPciList(devices), (Pieces{"0000:16:00.0", "10000:e1:00.0"}));
    EXPECT_EQ(vekUtils::dirListNvmeNameSpaces(root.hostPath("/sys/class/nvme/nvme0")), (Pieces{"nvme0n1", "nvme0n12"}));
    EXPECT_EQ(stringUtils::getMatchingLineFromFile(devices + "/0000:16:00.0/vendor", "e"), "second line");
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

TEST(StringUtilsTest, TextHelpers)
{
    EXPECT_EQ(stringUtils::trim(" \t\f\v\n\r"), "");
    EXPECT_EQ(stringUtils::trim("\vinner  blanks\tstay\r\n"), "inner  blanks\tstay");
    EXPECT_EQ(stringUtils::trim("--a-b--", "-"), "a-b");
    const struct {
        const char* in;
        bool valid;
        long value;
    } hex[] = {{"0X10DE", true, 0x10de}, {"0x", false, 0}, {"0x12g4", false, 0}, {" 0xffffffff\n", false, 0xffffffffL}};
    for (const auto& h : hex) {
        EXPECT_EQ(stringUtils::validateHexadecimalString(h.in), h.valid) << h.in;
        EXPECT_EQ(stringUtils::hexStringToInt(h.in), h.value) << h.in;
    }
    const unsigned char inquiry[] = {'S', 'E', 'A', 'G', 'A', 'T', 'E', ' ', ' ', 0, 'X'};
    EXPECT_EQ(stringUtils::stringifyByteArray(inquiry, sizeof(inquiry)), "SEAGATE");
    EXPECT_EQ(stringUtils::stringifyByteArray(inquiry, 3), "SEA");
    EXPECT_EQ(stringUtils::splitStringstream("a,b,,c,", ','), (Pieces{"a", "b", "", "c"}));
    EXPECT_EQ(stringUtils::convertStringStreamToKeyVal("   Address: 0000:16:00.0\nno delimiter\n: no key\n"
                                                       "   Slot:\n   Address: later wins\r\n"),
              (std::map<std::string, std::string>{{"Address", "later wins"}, {"Slot", ""}}));
}

TEST(StringUtilsTest, RegexHelpers)
{
    std::regex pciAddress;
    ASSERT_TRUE(stringUtils::compileRegEx("([a-fA-F0-9]{4}:[a-fA-F0-9]{2}:[a-fA-F0-9]{2}.[a-fA-F0-9]{1})", pciAddress));
    EXPECT_EQ(stringUtils::execRegexAndExtractAllMatches("PCI 0000:15:01.0 bridge of 0000:16:00.1", pciAddress),
              (Pieces{"0000:15:01.0", "0000:16:00.1"}));
    const std::regex keyValue("(\\w+): (\\d+)?(x)?");
    EXPECT_EQ(stringUtils::execRegexAndExtractCaptureGroups("Bus: 42 Slot: 7", keyValue), (Pieces{"Bus", "42", ""}));
    EXPECT_TRUE(stringUtils::execRegexAndExtractCaptureGroups("nothing", keyValue).empty());
    vekLogTail mainLog(vekTestMainLogPath());
    std::regex broken;
    EXPECT_FALSE(stringUtils::compileRegEx("([0-9]", broken));
    EXPECT_TRUE(mainLog.contains("VMWARE_OS_UTILS: Regular expression [([0-9]] does not compile")) << mainLog.newText();
}

TEST(TimeUtilsTest, TimeTextsDifferencesAndScale)
{
    setenv("TZ", "EST5", 1);
    tzset();
    EXPECT_EQ(timeUtils::getTimeAsString(1794681291), "2026-11-14 13:34:51");
    EXPECT_TRUE(std::regex_match(timeUtils::getUTCTime(), std::regex(R"(\d{4}-\d\d-\d\dT\d\d:\d\d:\d\dZ)")));
    timespec later{10, 100}, earlier{4, 200}, result{};
    timeUtils::computeTimeDiff(later, earlier, result);
    EXPECT_EQ(result.tv_sec, 5);
    EXPECT_EQ(result.tv_nsec, 999999900);

    const struct {
        const char* scale;
        long seconds;
        long long milliseconds;
    } scales[] = {{"1", 20, 20000}, {"1000", 20, 20}, {"100000", 20, 1}, {"100000", 0, 0}, {"fast", 20, 20000}};
    for (const auto& s : scales) {
        setenv("VEK_TIME_SCALE", s.scale, 1);
        EXPECT_EQ(timeUtils::scaledSeconds(s.seconds).count(), s.milliseconds) << s.scale;
    }
    unsetenv("VEK_TIME_SCALE");
}

} // namespace
