#include "vekConfig.h"
#include "vekGlobalDef.h"
#include "vekTestRoot.h"

#include <gtest/gtest.h>

#include <sys/utsname.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <regex>
#include <string>
#include <vector>

using vekGlobalDef::VMwareOSUtils;

namespace {

class VMwareOSUtilsTest : public vekRootTest {
protected:
    // $VEK_ROOT/bin/vim-cmd as a simulated host has it.
    void installVimCmd() const
    {
        root.makeDirectory("/bin");
        const std::string fake = std::string(VEK_SIMHOST_DIR) + "/bin/simcli";
        ASSERT_EQ(symlink(fake.c_str(), root.hostPath("/bin/vim-cmd").c_str()), 0);
    }
};

TEST_F(VMwareOSUtilsTest, CommandOutputComesBackOneElementPerLineWithItsNewline)
{
    const std::string longLine(5000, 'x');
    root.writeCliOutput("system version get", "   Product: VMware ESXi\n\n" + longLine + "\nlast line");
    const std::vector<std::string> lines =
        VMwareOSUtils::executeCliCommandAndFetchOutput("localcli system version get");
    const std::vector<std::string> expected = {"   Product: VMware ESXi\n", "\n", longLine + "\n", "last line"};
    EXPECT_EQ(lines, expected);
}

TEST_F(VMwareOSUtilsTest, AbsentOrFailingCommandGivesNoLines)
{
    EXPECT_TRUE(VMwareOSUtils::executeCliCommandAndFetchOutput("localcli network nic list 2>/dev/null").empty());
    EXPECT_EQ(VMwareOSUtils::fetchHostOSName(), "");
    EXPECT_EQ(VMwareOSUtils::readHostOSVersion(), "");
}

TEST_F(VMwareOSUtilsTest, HostOSNameAndVersionAreTheTrimmedTextBehindTheFirstColon)
{
    const struct {
        const char* output;
        const char* name;
        const char* version;
    } cases[] = {
        {"   Product: VMware ESXi\n   Version: 8.0.2\n   Build: Releasebuild-22380479\n", "VMware ESXi", "8.0.2"},
        {"Product:\tVMware ESXi \r\nVersion:\f8.0.3\v\r\n", "VMware ESXi", "8.0.3"},
        {"   product: VMware ESXi\n   version: 7.0.3:beta\n", "VMware ESXi", "7.0.3:beta"},
        {"   Build: Releasebuild-22380479\n", "", ""},
        {"   Product:\n   Version:   \n", "", ""},
    };
    for (const auto& c : cases) {
        root.writeCliOutput("system version get", c.output);
        EXPECT_EQ(VMwareOSUtils::fetchHostOSName(), c.name) << c.output;
        EXPECT_EQ(VMwareOSUtils::readHostOSVersion(), c.version) << c.output;
    }
}

TEST_F(VMwareOSUtilsTest, HostIdentityIsTheMachinesOwn)
{
    struct utsname info;
    ASSERT_EQ(uname(&info), 0);
    EXPECT_EQ(VMwareOSUtils::readHostName(), info.nodename);
    const std::string description = VMwareOSUtils::readHostOSDescription();
    EXPECT_EQ(description.rfind(std::string(info.sysname) + " " + info.nodename + " " + info.release + " ", 0), 0u)
        << description;
    EXPECT_EQ(description.substr(description.size() - std::string(info.machine).size()), info.machine);
}

TEST_F(VMwareOSUtilsTest, DateTimeIsCtimeWithoutItsNewline)
{
    const std::string now = VMwareOSUtils::getDateTime();
    EXPECT_TRUE(std::regex_match(now, std::regex(R"([A-Z][a-z]{2} [A-Z][a-z]{2} [ 0-9]\d \d\d:\d\d:\d\d \d{4})")))
        << "[" << now << "]";
}

TEST_F(VMwareOSUtilsTest, FixedAnswers)
{
    EXPECT_EQ(VMwareOSUtils::getOSType(), 104);
    EXPECT_EQ(VMwareOSUtils::getFCEventsPollInterval(), 30);
    EXPECT_EQ(VMwareOSUtils::getErrorDescription(ENOENT), "No such file or directory");
    EXPECT_EQ(VMwareOSUtils::execErrnoToDescription(EACCES), "Permission denied");
}

TEST_F(VMwareOSUtilsTest, PathsAreUnderThePathRoot)
{
    const std::string r = root.path();
    EXPECT_EQ(VMwareOSUtils::DirectoryPath(), r + "/opt/zolvek");
    EXPECT_EQ(VMwareOSUtils::StartupFilePath(), r + "/opt/zolvek/vital/zol");
    EXPECT_EQ(VMwareOSUtils::NICListsFilePath(), r + "/opt/zolvek/tmp/vek_niclist.txt");
    EXPECT_EQ(VMwareOSUtils::NICInstanceDetailsFilePath(), r + "/opt/zolvek/tmp/vek_nicAddDetails.txt");
    EXPECT_EQ(VMwareOSUtils::HardwareListFilePath(), r + "/opt/zolvek/tmp/vek_hwlist.txt");
    EXPECT_EQ(VMwareOSUtils::StartStopFilePath(), r + "/opt/zolvek/vital/zolVEKStartStop.txt");
    EXPECT_EQ(VMwareOSUtils::StartStopScratchFilePath(), r + "/opt/zolvek/vital/zolVEKStartStoptmp.txt");
}

TEST_F(VMwareOSUtilsTest, IPAddressesLeaveOutLoopback)
{
    vekLogTail debug(vekTestDebugLogPath());
    const std::vector<std::string> addresses = VMwareOSUtils::getIPAddress();
    const std::string logged = debug.newText();
    for (const std::string& address : addresses) {
        EXPECT_TRUE(std::regex_match(address, std::regex(R"(\d{1,3}\.\d{1,3}\.\d{1,3}\.\d{1,3})"))) << address;
        EXPECT_NE(logged.find("- IP Address: [" + address + "]"), std::string::npos) << logged;
    }
    if (logged.find("I/F Name: [lo] - IP Address: [127.0.0.1]") != std::string::npos) {
        for (const std::string& address : addresses) {
            EXPECT_NE(address, "127.0.0.1");
        }
    }
}

std::string esxtopCsv(const std::string& names, const std::string& values)
{
    return names + "\r\n" + values + "\r\n";
}

TEST_F(VMwareOSUtilsTest, MemoryIsReadFromEsxtopInWholeGiB)
{
    const std::string names =
        R"csv("(PDH-CSV 4.0) (UTC)(0)","\\h\Numa Node(0)\Free MBytes",)csv"
        R"csv("\\h\Memory\Machine MBytes","\\h\Memory\Free MBytes")csv";
    const std::string reversed =
        R"csv("(PDH-CSV 4.0) (UTC)(0)","\\h\Memory\Free MBytes",)csv"
        R"csv("\\h\Memory\Kernel MBytes","\\h\Memory\Machine MBytes")csv";
    const struct {
        std::string csv;
        double total;
        double free;
    } cases[] = {
        {esxtopCsv(names, R"csv("11/15/2026 12:00:05","7","3145200","2875123")csv"), 3071, 2807},
        {esxtopCsv(names, R"csv("11/15/2026 12:00:05","7","1023","1024")csv"), 0, 1},
        {esxtopCsv(names, R"csv("11/15/2026 12:00:05","7","2047","2048")csv"), 1, 2},
        {esxtopCsv(reversed, R"csv("11/15/2026 12:00:05","5000","9","262144")csv"), 256, 4},
        {"\n" + esxtopCsv(names, R"csv("t","7","4096","1024")csv"), 4, 1},
    };
    for (const auto& c : cases) {
        root.writeFile("/sim/cli/esxtop.csv", c.csv);
        vekLogTail mainLog(vekTestMainLogPath());
        const std::pair<double, double> memory = VMwareOSUtils::getTotalPhysicalMemory();
        EXPECT_EQ(memory.first, c.total) << c.csv;
        EXPECT_EQ(memory.second, c.free) << c.csv;
        EXPECT_FALSE(mainLog.contains("physical memory")) << mainLog.newText();
        EXPECT_FALSE(root.exists("/opt/zolvek/tmp/vek-mem.txt"));
    }
}

TEST_F(VMwareOSUtilsTest, MemoryThatCannotBeReadIsZeroWithAWarning)
{
    const struct {
        const char* what;
        const char* csv; // nullptr: esxtop fails
        bool commandFails;
    } cases[] = {
        {"esxtop fails", nullptr, true},
        {"no machine counter", "\"t\",\"\\\\h\\Memory\\Free MBytes\"\n\"x\",\"100\"\n", false},
        {"no value line", "\"t\",\"\\\\h\\Memory\\Machine MBytes\",\"\\\\h\\Memory\\Free MBytes\"\n", false},
        {"values not numbers", "\"\\\\h\\Memory\\Machine MBytes\",\"\\\\h\\Memory\\Free MBytes\"\n\"n/a\",\"n/a\"\n",
         false},
    };
    for (const auto& c : cases) {
        if (c.csv == nullptr) {
            unlink(root.hostPath("/sim/cli/esxtop.csv").c_str());
        } else {
            root.writeFile("/sim/cli/esxtop.csv", c.csv);
        }
        vekLogTail mainLog(vekTestMainLogPath());
        const std::pair<double, double> memory = VMwareOSUtils::getTotalPhysicalMemory();
        EXPECT_EQ(memory.first, 0) << c.what;
        EXPECT_EQ(memory.second, 0) << c.what;
        EXPECT_TRUE(mainLog.contains("VMWARE_OS_UTILS: Unable to fetch physical memory information.\n")) << c.what;
        EXPECT_EQ(mainLog.contains("VMWARE_OS_UTILS: Error occurred in fetching physical memory information : "),
                  c.commandFails)
            << c.what << mainLog.newText();
        EXPECT_FALSE(root.exists("/opt/zolvek/tmp/vek-mem.txt")) << c.what;
    }
}

TEST_F(VMwareOSUtilsTest, MemoryLeftOverFromAStoppedRunIsNotRead)
{
    const std::string names = R"csv("t","\\h\Memory\Machine MBytes","\\h\Memory\Free MBytes")csv";
    root.writeFile("/opt/zolvek/tmp/vek-mem.txt", esxtopCsv(names, R"csv("t","1024","1024")csv"));
    root.writeFile("/sim/cli/esxtop.csv", esxtopCsv(names, R"csv("t","8192","4096")csv"));
    EXPECT_EQ(VMwareOSUtils::getTotalPhysicalMemory(), std::make_pair(8.0, 4.0));
}

TEST_F(VMwareOSUtilsTest, RegexValueIsWhatStandsBehindTheColonOfTheFirstMatch)
{
    const std::string csv = ",Vendor ID: 0x8086 ,Device ID: 0x1593 ,SubVendor ID: 0x8086 ,Address: 0000:16:00.0";
    const struct {
        const char* regex;
        const char* value;
    } cases[] = {
        {",Vendor ID: 0x[A-Za-z0-9]{4}", "0x8086"},
        {",Device ID: 0x[A-Za-z0-9]{4}", "0x1593"},
        {",SubVendor ID: 0x[A-Za-z0-9]{4}", "0x8086"},
        {",Address: [0-9a-f:.]+", "0000:16:00.0"},
        {"ID: 0x[0-9]{4}", "0x8086"},
        {",Vendor ID: \\S+", "0x8086"},
        {",Vendor ID: 0x[0-9]{5}", ""},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(VMwareOSUtils::getValueByRegexFromLocalcli(csv, c.regex), c.value) << c.regex;
    }
}

TEST_F(VMwareOSUtilsTest, RegexFailuresGiveEmptyValuesAndTheirLogLines)
{
    {
        vekLogTail debug(vekTestDebugLogPath());
        EXPECT_EQ(VMwareOSUtils::getValueByRegexFromLocalcli(",Serial: 1", ",Model Number: \\S+"), "");
        EXPECT_TRUE(debug.contains("VMWARE_OS_UTILS: Error detecting valueType : ,Model Number: \\S+\n"))
            << debug.newText();
    }
    {
        vekLogTail mainLog(vekTestMainLogPath());
        EXPECT_EQ(VMwareOSUtils::getValueByRegexFromLocalcli(",Serial: 1", ",Serial: ([0-9]"), "");
        EXPECT_TRUE(mainLog.contains("VMWARE_OS_UTILS: Error Compiling Regex, Return Value: ")) << mainLog.newText();
        EXPECT_TRUE(mainLog.contains(", Error Info: ")) << mainLog.newText();
    }
    for (const char* regex : {"x*", ",Serial"}) {
        vekLogTail mainLog(vekTestMainLogPath());
        EXPECT_EQ(VMwareOSUtils::getValueByRegexFromLocalcli(",Serial: 1", regex), "") << regex;
        const std::string expected = "VMWARE_OS_UTILS: Issue in identifying details from localcli output : ";
        EXPECT_TRUE(mainLog.contains(expected + regex + "\n"))
            << mainLog.newText();
    }
}

TEST_F(VMwareOSUtilsTest, ListingsAreJoinedIntoOneCommaLine)
{
    const struct {
        std::vector<std::string> lines;
        const char* joined;
    } cases[] = {
        {{}, ""},
        {{"   Vendor ID: 0x8086\n"}, ",Vendor ID: 0x8086"},
        {{"   Vendor ID: 0x8086\n", "   Device ID: 0x1593\n"}, ",Vendor ID: 0x8086 ,Device ID: 0x1593"},
        {{"Address:0000:16:00.0\r\n", "\n", "  \t\n", "Slot Description:   PCIe Slot 1  \n"},
         ",Address: 0000:16:00.0 ,Slot Description: PCIe Slot 1"},
        {{"Parent Device:\n", "vmhba2\n"}, ",Parent Device:  ,vmhba2"},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(VMwareOSUtils::parseEsxiCommandOutputAsCsv(c.lines), c.joined);
    }
    root.writeCliOutput("nvme device get -A vmhba64", "   Serial Number: S4YNNA0R100123\n   Model Number: PM1733\n");
    const std::string command = "localcli nvme device get -A vmhba64";
    const std::string csv = VMwareOSUtils::parseEsxiCommandOutputAsCsv(command);
    EXPECT_EQ(csv, ",Serial Number: S4YNNA0R100123 ,Model Number: PM1733");
    EXPECT_EQ(VMwareOSUtils::getValueByRegexFromLocalcli(csv, ",Serial Number: \\S+"), "S4YNNA0R100123");
}

TEST_F(VMwareOSUtilsTest, PersistentStorageIsSynchronisedThroughVimCmdUnderThePathRoot)
{
    installVimCmd();
    root.writeCliOutput("vim-cmd hostsvc/firmware/sync_config", "");
    vekLogTail mainLog(vekTestMainLogPath());
    EXPECT_EQ(VMwareOSUtils::synchronizePersistentStorage(), 0);
    EXPECT_FALSE(mainLog.contains("synchronize persistent storage")) << mainLog.newText();
}

TEST_F(VMwareOSUtilsTest, FailedSynchronisationIsAWarning)
{
    {
        vekLogTail mainLog(vekTestMainLogPath());
        VMwareOSUtils::synchronizePersistentStorage();
        // No vim-cmd on this host: the shell's 127.
        EXPECT_TRUE(mainLog.contains("VMWARE_OS_UTILS: Failed to synchronize persistent storage. (0x7F00)\n"))
            << mainLog.newText();
    }
    installVimCmd();
    root.writeCliOutput("vim-cmd hostsvc/firmware/sync_config", "", 3);
    vekLogTail mainLog(vekTestMainLogPath());
    VMwareOSUtils::synchronizePersistentStorage();
    EXPECT_TRUE(mainLog.contains("[WARNING] ")) << mainLog.newText();
    EXPECT_TRUE(mainLog.contains("VMWARE_OS_UTILS: Failed to synchronize persistent storage. (0x300)\n"))
        << mainLog.newText();
}

// The bundled rack server, made runnable by its own script, answers as a host would.
TEST_F(VMwareOSUtilsTest, BundledRackServerProfileAnswers)
{
    const std::string host = root.path() + "/host";
    const std::string command = std::string(VEK_SIMHOST_DIR) + "/mkhost.sh " + VEK_SIMHOST_DIR +
                                "/profiles/rack-type4 " + host + " >/dev/null";
    ASSERT_EQ(system(command.c_str()), 0);
    setenv("VEK_ROOT", host.c_str(), 1);

    EXPECT_EQ(VMwareOSUtils::fetchHostOSName(), "VMware ESXi");
    EXPECT_EQ(VMwareOSUtils::readHostOSVersion(), "8.0.2");
    EXPECT_EQ(VMwareOSUtils::getTotalPhysicalMemory(), std::make_pair(3071.0, 2807.0));
    vekLogTail mainLog(vekTestMainLogPath());
    EXPECT_EQ(VMwareOSUtils::synchronizePersistentStorage(), 0);
    EXPECT_FALSE(mainLog.contains("synchronize persistent storage")) << mainLog.newText();

    vekConfig config;
    EXPECT_EQ(config.getVEKLoggingLevel(), "Info");
    EXPECT_EQ(config.getVEKLogFileLocation().find("/scratch/log/zolvek/vek.log") != std::string::npos, true);
    // Only the managers that exist are enabled; ids without one stay off.
    EXPECT_TRUE(config.isResourceEnabled(1));
    for (int id : {6, 8, 99}) {
        EXPECT_FALSE(config.isResourceEnabled(id)) << id;
    }

    for (const char* folder : {"/opt/zolvek/tmp", "/opt/zolvek/vital", "/scratch/log/zolvek/backup_log", "/tmp"}) {
        EXPECT_EQ(access((host + folder).c_str(), W_OK), 0) << folder;
    }
    // A second copy into the same place is refused: every run starts fresh.
    EXPECT_NE(system(command.c_str()), 0);
}

} // namespace
