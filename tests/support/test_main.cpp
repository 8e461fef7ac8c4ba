// The test binary's main: a process-wide simulated root holds the
// configuration that the configuration and logger singletons read once, with
// both log channels going to files that cases can read back. The simulated
// host's command fakes come first on PATH.

#include "Logger.h"
#include "vekConfig.h"
#include "vekTestRoot.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <fstream>
#include <string>
#include <sys/stat.h>

namespace {

std::string gSuiteRoot;

void removeSuiteRoot()
{
    if (!gSuiteRoot.empty()) {
        const std::string cmd = "rm -rf '" + gSuiteRoot + "'";
        if (system(cmd.c_str()) != 0) {
        }
    }
}

} // namespace

std::string vekTestMainLogPath()
{
    return gSuiteRoot + "/scratch/log/zolvek/vek.log";
}

std::string vekTestDebugLogPath()
{
    return gSuiteRoot + "/scratch/log/zolvek/vek-debug.log";
}

int main(int argc, char** argv)
{
    // A death test's child is this binary run again: it works in its
    // parent's root, which the parent removes, since a child that dies
    // never runs its own clean-up.
    const char* inherited = getenv("VEK_TEST_SUITE_ROOT");
    if (inherited != nullptr && *inherited != '\0') {
        gSuiteRoot = inherited;
    } else {
        char pattern[] = "/tmp/vek-suite-XXXXXX";
        if (mkdtemp(pattern) == nullptr) {
            return 2;
        }
        gSuiteRoot = pattern;
        setenv("VEK_TEST_SUITE_ROOT", pattern, 1);
        atexit(removeSuiteRoot);
    }
    // Every temporary folder of a case (simulated hosts, the emulated RMC's
    // state) goes below the root too, so that none outlives the run.
    mkdir((gSuiteRoot + "/tmp").c_str(), 0700);
    setenv("TMPDIR", (gSuiteRoot + "/tmp").c_str(), 1);
    for (const char* dir : {"/opt", "/opt/zolvek", "/opt/zolvek/vital", "/opt/zolvek/tmp", "/scratch", "/scratch/log",
                            "/scratch/log/zolvek", "/scratch/log/zolvek/backup_log"}) {
        mkdir((gSuiteRoot + dir).c_str(), 0755);
    }
    {
        std::ofstream conf(gSuiteRoot + "/opt/zolvek/vital/vek.conf");
        conf << R"({
  "EnableDebugLog": true,
  "LoggingLevel": "Info",
  "VEKLogLocation": "/scratch/log/zolvek/vek.log",
  "DebugLogLocation": "/scratch/log/zolvek/vek-debug.log"
})";
    }
    setenv("VEK_ROOT", gSuiteRoot.c_str(), 1);
    const std::string path = std::string(VEK_SIMHOST_DIR) + "/bin:" + (getenv("PATH") ? getenv("PATH") : "");
    setenv("PATH", path.c_str(), 1);
    CPlusPlusLogging::Logger::getInstance();

    ::testing::InitGoogleTest(&argc, argv);
    ::testing::GTEST_FLAG(death_test_style) = "threadsafe";
    return RUN_ALL_TESTS();
}
