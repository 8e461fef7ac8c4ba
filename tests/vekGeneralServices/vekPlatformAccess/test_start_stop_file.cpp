#include "vekGlobalDef.h"
#include "vekTestRoot.h"

#include <gtest/gtest.h>

#include <unistd.h>

#include <cstdlib>
#include <ctime>
#include <fstream>
#include <stdexcept>
#include <string>

using vekGlobalDef::VMwareOSUtils;

namespace {

const char kStartStopFile[] = "/opt/zolvek/vital/zolVEKStartStop.txt";

std::string line(const std::string& key, long value)
{
    return key + " " + std::to_string(value) + "\n";
}

class StartStopFileTest : public vekRootTest {
protected:
    void SetUp() override
    {
        // The 20-second settling sleep of the boot decision becomes a millisecond.
        setenv("VEK_TIME_SCALE", "100000", 1);
        unsetenv("VEK_SIM_BOOT_TIME");
    }

    void bootedAt(long when) const { setenv("VEK_SIM_BOOT_TIME", std::to_string(when).c_str(), 1); }
};

TEST_F(StartStopFileTest, OneServiceLifeFromTheFirstStartEver)
{
    const long start = VMwareOSUtils::getVEKStartTime();
    vekLogTail mainLog(vekTestMainLogPath());
    VMwareOSUtils::vekStartStopFileOperations(vekGlobalDef::VEK_OPERATION_INIT);
    EXPECT_EQ(root.readFile(kStartStopFile), line("current_start", start) + "last_start 0\nlast_stop 0\n");
    EXPECT_TRUE(mainLog.contains("VMWARE_OS_UTILS: Successful in creating the file\n")) << mainLog.newText();

    VMwareOSUtils::updateVEKLastStartValue();
    EXPECT_EQ(root.readFile(kStartStopFile),
              line("current_start", start) + line("last_start", start) + "last_stop 0\n");

    VMwareOSUtils::vekStartStopFileOperations(vekGlobalDef::VEK_OPERATION_SHUTDOWN);
    const long stop = VMwareOSUtils::readStartupValue("last_stop");
    EXPECT_GE(stop, start);
    EXPECT_LE(stop, static_cast<long>(time(nullptr)));
    EXPECT_EQ(root.readFile(kStartStopFile), line("last_start", start) + line("last_stop", stop) + "current_start 0\n");
    EXPECT_FALSE(root.exists("/opt/zolvek/vital/zolVEKStartStoptmp.txt"));
}

TEST_F(StartStopFileTest, BootDecisions)
{
    const char* const notGraceful = "In gen OS boot logic.Last shutdown was not-graceful.";
    const char* const graceful = "In gen OS boot logic.Last shutdown was graceful.";
    const char* const crashedRunning = "VEK crashed in current boot so do nothing in point 3";
    const char* const crashedStopped = "VEK crashed in current boot so do nothing in point 2";
    const struct {
        long lastStart, lastStop, bootTime;
        const char* logged; // nullptr: no decision, the first start ever
    } cases[] = {{0, 0, 5000, nullptr},
                 {1000, 500, 2000, notGraceful},
                 {1000, 500, 900, crashedRunning},
                 {1000, 500, 1000, crashedRunning},
                 {500, 1000, 2000, graceful},
                 {500, 1000, 800, crashedStopped},
                 {500, 1000, 1000, crashedStopped}};
    for (const auto& c : cases) {
        SCOPED_TRACE(std::to_string(c.lastStart) + " " + std::to_string(c.lastStop) + " " + std::to_string(c.bootTime));
        root.writeFile(kStartStopFile,
                       line("current_start", 99999) + line("last_start", c.lastStart) + line("last_stop", c.lastStop));
        bootedAt(c.bootTime);
        vekLogTail mainLog(vekTestMainLogPath());
        bool ungracefulFlag = false;
        bool gracefulFlag = false;
        VMwareOSUtils::getLastOSShutdownStatus(ungracefulFlag, gracefulFlag);
        EXPECT_EQ(ungracefulFlag, c.logged == notGraceful);
        EXPECT_EQ(gracefulFlag, c.logged == graceful);
        const std::string logged = mainLog.newText();
        EXPECT_NE(logged.find("VMWARE_OS_UTILS: The current system boot time is " + std::to_string(c.bootTime) + "\n"),
                  std::string::npos)
            << logged;
        for (const char* decision : {notGraceful, graceful, crashedRunning, crashedStopped}) {
            EXPECT_EQ(logged.find(std::string("VMWARE_OS_UTILS: ") + decision + "\n") != std::string::npos,
                      decision == c.logged)
                << decision;
        }
    }
}

// Keys without a value or with no number read as 0; init rewrites its own
// line and keeps the others as they are.
TEST_F(StartStopFileTest, ValuesReadFromTheFileAndInitKeepsTheOtherLines)
{
    EXPECT_EQ(VMwareOSUtils::readStartupValue("last_start"), 0) << "no file";
    root.writeFile(kStartStopFile, "current_start 1794681291\nlast_start   12\n\nlast_stop\nlast_boot soon\n");
    for (const auto& c : {std::make_pair("current_start", 1794681291L), {"last_start", 12L}, {"last_stop", 0L},
                          {"last_boot", 0L}, {"previous_start", 0L}}) {
        EXPECT_EQ(VMwareOSUtils::readStartupValue(c.first), c.second) << c.first;
    }
    const long start = VMwareOSUtils::getVEKStartTime();
    root.writeFile(kStartStopFile, "last_stop 20\ncurrent_start 7\nlast_start 10\n");
    VMwareOSUtils::vekStartStopFileOperations(vekGlobalDef::VEK_OPERATION_INIT);
    EXPECT_EQ(root.readFile(kStartStopFile), "last_stop 20\n" + line("current_start", start) + "last_start 10\n");
}

TEST_F(StartStopFileTest, FileThatCannotBeWritten)
{
    ASSERT_EQ(rmdir(root.hostPath("/opt/zolvek/vital").c_str()), 0);
    EXPECT_THROW(VMwareOSUtils::vekStartStopFileOperations(vekGlobalDef::VEK_OPERATION_INIT), std::runtime_error);
    EXPECT_THROW(VMwareOSUtils::vekStartStopFileOperations(vekGlobalDef::VEK_OPERATION_SHUTDOWN), std::runtime_error);

    vekLogTail mainLog(vekTestMainLogPath());
    VMwareOSUtils::updateVEKLastStartValue();
    EXPECT_TRUE(mainLog.contains("VMWARE_OS_UTILS: Could not update the 'last_start' value in " + root.path() +
                                 kStartStopFile + "\n"))
        << mainLog.newText();
}

TEST_F(StartStopFileTest, BootTimeOfTheMachineWithoutTheSimulatedOne)
{
    const long start = VMwareOSUtils::getVEKStartTime();
    const long boot = VMwareOSUtils::getSystemCurrentBootTime();
    // The kernel's own boot time; the service's is rounded to whole seconds twice.
    std::ifstream stat("/proc/stat");
    long kernelBoot = 0;
    for (std::string key; stat >> key && !(key == "btime" && stat >> kernelBoot);) {
    }
    ASSERT_GT(kernelBoot, 0);
    EXPECT_NEAR(boot, kernelBoot, 2);
    EXPECT_LT(boot, start);

    bootedAt(1794681291);
    EXPECT_EQ(VMwareOSUtils::getSystemCurrentBootTime(), 1794681291);
    EXPECT_EQ(VMwareOSUtils::getVEKStartTime(), start) << "kept from the first call";
    // Without a path root the simulated boot time is not looked at.
    unsetenv("VEK_ROOT");
    EXPECT_NEAR(VMwareOSUtils::getSystemCurrentBootTime(), boot, 1); // uptime may tick in between
}

} // namespace
