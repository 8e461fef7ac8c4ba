// The host helpers on a simulated host: commands through the real shell and
// the fake localcli, their bound, their quoting, and the answers built on them.

#include "vekConfig.h"
#include "vekGlobalDef.h"
#include "vekTestRoot.h"

#include <gtest/gtest.h>

#include <arpa/inet.h>
#include <ifaddrs.h>
#include <netinet/in.h>
#include <signal.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <fstream>
#include <string>
#include <vector>

using vekGlobalDef::VMwareOSUtils;
using Lines = std::vector<std::string>;

namespace {

class VMwareOSUtilsTest : public vekRootTest {
protected:
    void TearDown() override { unsetenv("VEK_TIME_SCALE"); }
};

// Listed and not a zombie waiting for its parent.
bool alive(const std::string& pid)
{
    std::ifstream stat("/proc/" + pid + "/stat");
    std::string text;
    std::getline(stat, text);
    const size_t close = text.rfind(')');
    return close != std::string::npos && text.size() > close + 2 && text[close + 2] != 'Z';
}

TEST_F(VMwareOSUtilsTest, CommandOutputComesBackOneElementPerLineWithItsNewline)
{
    const std::string longLine(5000, 'x');
    root.writeCliOutput("system version get", "   Product: VMware ESXi\n\n" + longLine + "\nlast line");
    EXPECT_EQ(VMwareOSUtils::executeCliCommandAndFetchOutput("localcli system version get"),
              (Lines{"   Product: VMware ESXi\n", "\n", longLine + "\n", "last line"}));
    const vekGlobalDef::HostCommandResult failed =
        VMwareOSUtils::runHostCommand("localcli network nic list 2>/dev/null");
    EXPECT_EQ(failed.lines, Lines{});
    EXPECT_EQ(failed.status, 1 << 8);
}

// A command that hangs is killed at the bound with all it started (here a
// hook and its sleep, both deaf to SIGTERM), named in the log, and its
// caller sees a failed command. The shell that ran it is reaped, no zombie.
TEST_F(VMwareOSUtilsTest, HungCommandIsKilledWithItsProcessGroupAtTheBound)
{
    setenv("VEK_TIME_SCALE", "1000000", 1); // the bound falls to its floor
    root.writeFile("/sim/cli/system_version_get.sh", "trap '' TERM\necho '   Product: VMware ESXi'\n"
                                                     "sleep 1000 &\necho $PPID $$ $! > \"$VEK_ROOT/pids\"\nwait\n");
    vekLogTail mainLog(vekTestMainLogPath());
    EXPECT_EQ(VMwareOSUtils::fetchHostOSName(), "");
    EXPECT_TRUE(mainLog.contains("[ERROR] ")) << mainLog.newText();
    EXPECT_TRUE(mainLog.contains("HOST_COMMAND: Host command still running after 2000 ms, killed with its process "
                                 "group: [localcli system version get | grep -i Product:]\n"))
        << mainLog.newText();
    std::ifstream pidFile(root.hostPath("/pids"));
    Lines pids;
    for (std::string pid; pidFile >> pid;) {
        pids.push_back(pid);
    }
    ASSERT_EQ(pids.size(), 3u);
    EXPECT_FALSE(std::ifstream("/proc/" + pids[0] + "/stat")) << "the shell " << pids[0] << " is not reaped";
    for (const std::string& pid : {pids[1], pids[2]}) {
        // Whoever adopted the orphans reaps them.
        EXPECT_TRUE(vekEventually([&] { return !alive(pid); }, std::chrono::seconds(5))) << pid;
    }
}

// The service blocks SIGTERM and SIGINT in all its threads; its commands must
// still stop on them, and each leads a process group of its own.
TEST_F(VMwareOSUtilsTest, CommandsStartWithNoSignalBlockedOrIgnoredInTheirOwnGroup)
{
    sigset_t stop;
    sigemptyset(&stop);
    sigaddset(&stop, SIGTERM);
    sigaddset(&stop, SIGINT);
    ASSERT_EQ(pthread_sigmask(SIG_BLOCK, &stop, nullptr), 0);
    signal(SIGINT, SIG_IGN);
    const Lines signals = VMwareOSUtils::executeCliCommandAndFetchOutput("grep -E '^Sig(Blk|Ign):' /proc/self/status");
    const Lines group = VMwareOSUtils::executeCliCommandAndFetchOutput("echo $$ $(cut -d' ' -f5 /proc/$$/stat)");
    signal(SIGINT, SIG_DFL);
    pthread_sigmask(SIG_UNBLOCK, &stop, nullptr);
    ASSERT_EQ(signals.size(), 2u);
    EXPECT_EQ(signals[0], "SigBlk:\t0000000000000000\n");
    // The C library keeps two real-time signals of its own; the standard ones are at their defaults.
    EXPECT_EQ(std::stoull(signals[1].substr(7), nullptr, 16) & 0x7fffffffULL, 0u) << signals[1];
    ASSERT_EQ(group.size(), 1u);
    const size_t blank = group[0].find(' ');
    EXPECT_EQ(group[0].substr(0, blank) + "\n", group[0].substr(blank + 1));
}

TEST_F(VMwareOSUtilsTest, CommandBoundComesFromTheConfigurationAndTheTimeScale)
{
    for (const auto& scale : {std::make_pair("1", 300000), {"60", 5000}, {"100000", 2000}}) {
        setenv("VEK_TIME_SCALE", scale.first, 1);
        EXPECT_EQ(VMwareOSUtils::hostCommandTimeout().count(), scale.second) << scale.first;
    }
    for (const auto& c : {std::make_pair("7", 7), {"0", 300}, {"\"7\"", 300}, {"null", 300}}) {
        root.writeConfig(std::string(R"({"LoggingLevel": "Info", "HostCommandTimeoutInSeconds": )") + c.first + "}");
        EXPECT_EQ(vekConfig().getHostCommandTimeout(), c.second) << c.first;
    }
}

// Outside text reaches a command as one literal word, whatever it holds.
TEST_F(VMwareOSUtilsTest, ComposedCommandsPassWordsLiterally)
{
    char* previous = getcwd(nullptr, 0);
    ASSERT_EQ(chdir(root.path().c_str()), 0);
    const std::string pwned = "vmnic$(touch PWNED)";
    root.writeFile("/sim/cli/network_nic_get_-n_" + pwned + ".txt", "   Firmware Version: 1.2\n");
    EXPECT_EQ(VMwareOSUtils::executeCliCommandAndFetchOutput(
                  VMwareOSUtils::composeCommand("localcli network nic get -n {} | grep {}", {pwned, "Firmware"})),
              Lines{"   Firmware Version: 1.2\n"});
    for (const std::string& word :
         {pwned, std::string("vmnic'1"), std::string("a  b;`id` \"$HOME\" \\"), std::string("-n"), std::string()}) {
        EXPECT_EQ(VMwareOSUtils::executeCliCommandAndFetchOutput(VMwareOSUtils::composeCommand("printf %s {}", {word})),
                  (word.empty() ? Lines{} : Lines{word}));
    }
    EXPECT_FALSE(root.exists("/PWNED"));
    EXPECT_EQ(chdir(previous), 0);
    free(previous);
    EXPECT_THROW(VMwareOSUtils::composeCommand("cat {} {}", {"one"}), std::invalid_argument);
    EXPECT_THROW(VMwareOSUtils::composeCommand("cat {}", {"one", "two"}), std::invalid_argument);

    for (const char* address : {"0000:16:00.0", "10000:e1:00.7", "0000:3B:1f.f"}) {
        EXPECT_TRUE(VMwareOSUtils::isPciAddress(address)) << address;
    }
    for (const char* address :
         {"", ":16:00.0", "0000:16:00", "0000:16:00:0", "000:16:00.0", "0000:16:00.0/", "0000:g6:00.0"}) {
        EXPECT_FALSE(VMwareOSUtils::isPciAddress(address)) << address;
    }
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
        {"   Product:\n   Version:   \n", "", ""},
    };
    for (const auto& c : cases) {
        root.writeCliOutput("system version get", c.output);
        EXPECT_EQ(VMwareOSUtils::fetchHostOSName(), c.name) << c.output;
        EXPECT_EQ(VMwareOSUtils::readHostOSVersion(), c.version) << c.output;
    }
}

// The host's addresses as the RMC gets them: every IPv4 address of the
// machine, in the order of its list, but loopback's.
TEST_F(VMwareOSUtilsTest, IPAddressesAreTheMachinesButLoopback)
{
    std::vector<std::string> expected;
    bool loopbackSeen = false;
    ifaddrs* list = nullptr;
    ASSERT_EQ(getifaddrs(&list), 0);
    for (const ifaddrs* each = list; each != nullptr; each = each->ifa_next) {
        if (each->ifa_addr == nullptr || each->ifa_addr->sa_family != AF_INET) {
            continue;
        }
        char text[INET_ADDRSTRLEN] = {};
        inet_ntop(AF_INET, &reinterpret_cast<const sockaddr_in*>(each->ifa_addr)->sin_addr, text, sizeof(text));
        if (std::string(text) == "127.0.0.1") {
            loopbackSeen = true;
        } else {
            expected.push_back(text);
        }
    }
    freeifaddrs(list);
    ASSERT_TRUE(loopbackSeen) << "the machine has no loopback address to leave out";

    EXPECT_EQ(VMwareOSUtils::getIPAddress(), expected);
}

TEST_F(VMwareOSUtilsTest, MemoryIsReadFromEsxtopInWholeGiB)
{
    const std::string names = R"c("(PDH-CSV 4.0) (UTC)(0)","\\h\Numa Node(0)\Free MBytes",)c"
                              R"c("\\h\Memory\Machine MBytes","\\h\Memory\Free MBytes")c"
                              "\r\n";
    const std::string reversed = R"c("t","\\h\Memory\Free MBytes","\\h\Memory\Kernel MBytes",)c"
                                 R"c("\\h\Memory\Machine MBytes")c"
                                 "\n";
    const struct {
        std::string csv; // empty: esxtop fails
        double total;
        double free;
        bool warned;
    } cases[] = {
        {names + R"c("11/15/2026 12:00:05","7","3145200","2875123")c"
                 "\r\n",
         3071, 2807, false},
        {reversed + R"c("t","5000","9","262144")c", 256, 4, false},
        {"\n" + names + R"c("t","7","4096","1024")c", 4, 1, false},
        {"", 0, 0, true},
        {names, 0, 0, true},
        {names + R"c("t","7","n/a","n/a")c", 0, 0, true},
    };
    for (const auto& c : cases) {
        // What a stopped run left behind is not read.
        root.writeFile("/opt/zolvek/tmp/vek-mem.txt", names + R"c("t","7","1024","1024")c");
        unlink(root.hostPath("/sim/cli/esxtop.csv").c_str());
        if (!c.csv.empty()) {
            root.writeFile("/sim/cli/esxtop.csv", c.csv);
        }
        vekLogTail mainLog(vekTestMainLogPath());
        EXPECT_EQ(VMwareOSUtils::getTotalPhysicalMemory(), std::make_pair(c.total, c.free)) << c.csv;
        EXPECT_EQ(mainLog.contains("VMWARE_OS_UTILS: Unable to fetch physical memory information.\n"), c.warned);
        EXPECT_EQ(mainLog.contains("VMWARE_OS_UTILS: Error occurred in fetching physical memory information : exit "
                                   "status 1\n"),
                  c.csv.empty())
            << mainLog.newText();
        EXPECT_FALSE(root.exists("/opt/zolvek/tmp/vek-mem.txt"));
    }
}

// A listing becomes one comma line, and a value is what stands behind the
// colon of the first match in it.
TEST_F(VMwareOSUtilsTest, RegexValueOfAListingJoinedIntoOneCommaLine)
{
    EXPECT_EQ(VMwareOSUtils::parseEsxiCommandOutputAsCsv(Lines{}), "");
    EXPECT_EQ(VMwareOSUtils::parseEsxiCommandOutputAsCsv(Lines{"Parent Device:\n", "vmhba2\n"}),
              ",Parent Device:  ,vmhba2");
    root.writeCliOutput("hardware pci list -p 0000:16:00.0",
                        "Vendor ID:0x8086\r\n\n  \t\n   Device ID: 0x1593  \nAddress: 0000:16:00.0\n");
    const std::string csv = VMwareOSUtils::parseEsxiCommandOutputAsCsv("localcli hardware pci list -p 0000:16:00.0");
    ASSERT_EQ(csv, ",Vendor ID: 0x8086 ,Device ID: 0x1593 ,Address: 0000:16:00.0");
    const struct {
        const char* regex;
        const char* value;
        const char* logged;
    } cases[] = {
        {",Device ID: 0x[A-Za-z0-9]{4}", "0x1593", nullptr},
        {",Address: [0-9a-f:.]+", "0000:16:00.0", nullptr},
        {"ID: 0x[0-9]{4}", "0x8086", nullptr},
        {",Model Number: \\S+", "", "Error detecting valueType : ,Model Number: \\S+\n"},
        {",Serial: ([0-9]", "", "Error Compiling Regex, Return Value: "},
        {"x*", "", "Issue in identifying details from localcli output : x*\n"},
        {",Vendor ID", "", "Issue in identifying details from localcli output : ,Vendor ID\n"},
    };
    for (const auto& c : cases) {
        vekLogTail mainLog(vekTestMainLogPath());
        vekLogTail debug(vekTestDebugLogPath());
        EXPECT_EQ(VMwareOSUtils::getValueByRegexFromLocalcli(csv, c.regex), c.value) << c.regex;
        const std::string logged = mainLog.newText() + debug.newText();
        EXPECT_EQ(logged.find(std::string("VMWARE_OS_UTILS: ") + (c.logged ? c.logged : "")) != std::string::npos,
                  c.logged != nullptr)
            << c.regex << logged;
    }
}

TEST_F(VMwareOSUtilsTest, PersistentStorageIsSynchronisedThroughVimCmdUnderThePathRoot)
{
    vekLogTail mainLog(vekTestMainLogPath());
    EXPECT_EQ(VMwareOSUtils::synchronizePersistentStorage(), 127 << 8); // no vim-cmd on this host
    EXPECT_TRUE(mainLog.contains("[WARNING] ")) << mainLog.newText();
    EXPECT_TRUE(mainLog.contains("VMWARE_OS_UTILS: Failed to synchronize persistent storage. (0x7F00)\n"));
    root.makeDirectory("/bin");
    ASSERT_EQ(symlink(VEK_SIMHOST_DIR "/bin/simcli", root.hostPath("/bin/vim-cmd").c_str()), 0);
    root.writeCliOutput("vim-cmd hostsvc/firmware/sync_config", "", 3);
    EXPECT_EQ(VMwareOSUtils::synchronizePersistentStorage(), 3 << 8);
    EXPECT_TRUE(mainLog.contains("VMWARE_OS_UTILS: Failed to synchronize persistent storage. (0x300)\n"));
}

} // namespace
