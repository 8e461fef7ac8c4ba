#include "Logger.h"
#include "vekConfig.h"
#include "vekLog.h"
#include "vekTestRoot.h"

#include <gtest/gtest.h>

#include <future>
#include <regex>
#include <sys/stat.h>
#include <thread>
#include <unistd.h>

using CPlusPlusLogging::Logger;

namespace {

class LoggerTest : public vekRootTest {
protected:
    void configure(const std::string& level, const std::string& mainLocation, const std::string& debugLocation,
                   bool debug)
    {
        root.writeConfig("{ \"LoggingLevel\": \"" + level + "\", \"VEKLogLocation\": \"" + mainLocation +
                         "\", \"DebugLogLocation\": \"" + debugLocation +
                         "\", \"EnableDebugLog\": " + (debug ? "true" : "false") + " }");
    }
};

TEST_F(LoggerTest, LevelWordsMapToLevels)
{
    const struct {
        const char* word;
        int level;
    } cases[] = {{"Error", 4}, {"ERROR", 4}, {"warning", 3}, {"Info", 2}, {"DEBUG", 3}, {"verbose", 3}};
    for (const auto& c : cases) {
        configure(c.word, "/scratch/log/zolvek/vek.log", "/scratch/log/zolvek/dbg.log", false);
        vekConfig cfg;
        Logger log(cfg);
        EXPECT_EQ(log.getLoglevel(), c.level) << c.word;
        EXPECT_EQ(log.getDebugLoglevel(), 12) << c.word;
    }
}

TEST_F(LoggerTest, LinesCarryTimeLevelThreadLineAndTag)
{
    configure("Info", "/scratch/log/zolvek/vek.log", "/scratch/log/zolvek/dbg.log", true);
    vekConfig cfg;
    Logger log(cfg);
    log.info("hello", "JOB_MGR", 7);
    log.warning("careful", "JOB_MGR", 123);
    log.error("broken", "JOB_MGR", 45);
    log.debug("details", "JOB_MGR", 1000);

    const std::string main = root.readFile("/scratch/log/zolvek/vek.log");
    EXPECT_TRUE(std::regex_search(main, std::regex(R"(^\d{4}-\d\d-\d\dT\d\d:\d\d:\d\dZ \[INFO\]    100 007 JOB_MGR: hello\n)")))
        << main;
    EXPECT_NE(main.find(" [WARNING] 100 123 JOB_MGR: careful\n"), std::string::npos) << main;
    EXPECT_NE(main.find(" [ERROR]    100 045 JOB_MGR: broken\n"), std::string::npos) << main;
    EXPECT_EQ(main.find("details"), std::string::npos);

    const std::string debug = root.readFile("/scratch/log/zolvek/dbg.log");
    EXPECT_NE(debug.find(" [DEBUG]   100 1000 JOB_MGR: details\n"), std::string::npos) << debug;
    EXPECT_EQ(debug.find("hello"), std::string::npos);
}

TEST_F(LoggerTest, LevelFiltersTheMainChannel)
{
    configure("Error", "/scratch/log/zolvek/vek.log", "/scratch/log/zolvek/dbg.log", false);
    vekConfig cfg;
    Logger log(cfg);
    log.info("i", "T", 1);
    log.warning("w", "T", 1);
    log.error("e", "T", 1);
    log.always("a", "T", 1);
    log.debug("d", "T", 1);
    const std::string main = root.readFile("/scratch/log/zolvek/vek.log");
    EXPECT_EQ(main.find(": i\n"), std::string::npos);
    EXPECT_EQ(main.find(": w\n"), std::string::npos);
    EXPECT_NE(main.find("[ERROR]    100 001 T: e\n"), std::string::npos);
    EXPECT_NE(main.find("[INFO]    100 001 T: a\n"), std::string::npos);
    EXPECT_FALSE(root.exists("/scratch/log/zolvek/dbg.log"));

    // With 6 everything but "always" is silent.
    log.enaleLog();
    log.error("e6", "T", 1);
    log.always("a6", "T", 1);
    const std::string after = root.readFile("/scratch/log/zolvek/vek.log");
    EXPECT_EQ(after.find("e6"), std::string::npos);
    EXPECT_NE(after.find("a6"), std::string::npos);
}

TEST_F(LoggerTest, ThreadNumbersBeginAt100InOrderOfFirstLine)
{
    configure("Info", "/scratch/log/zolvek/vek.log", "/scratch/log/zolvek/dbg.log", false);
    vekConfig cfg;
    Logger log(cfg);
    log.info("main first", "T", 1);
    // Both helper threads stay alive until the end, so neither can inherit
    // the other's identity.
    std::promise<void> secondLogged;
    std::promise<void> release;
    std::shared_future<void> released(release.get_future());
    std::thread second([&] {
        log.info("second thread", "T", 2);
        secondLogged.set_value();
        released.wait();
    });
    secondLogged.get_future().wait();
    std::thread third([&] {
        log.info("third thread", "T", 3);
        released.wait();
    });
    log.info("main again", "T", 4);
    release.set_value();
    second.join();
    third.join();
    const std::string main = root.readFile("/scratch/log/zolvek/vek.log");
    EXPECT_NE(main.find(" 100 001 T: main first"), std::string::npos);
    EXPECT_NE(main.find(" 101 002 T: second thread"), std::string::npos);
    EXPECT_NE(main.find(" 102 003 T: third thread"), std::string::npos);
    EXPECT_NE(main.find(" 100 004 T: main again"), std::string::npos);
}

TEST_F(LoggerTest, DirectoriesAreMadeAndLinkedIntoBackup)
{
    root.makeDirectory("/scratch/log/zolvek/backup_log");
    configure("Info", "/scratch/log/zolvek/deep/er/vek.log", "/scratch/log/zolvek/dbgdir/dbg.log", true);
    vekConfig cfg;
    Logger log(cfg);
    log.debug("x", "T", 1);
    struct stat st;
    ASSERT_EQ(stat(root.hostPath("/scratch/log/zolvek/deep/er").c_str(), &st), 0);
    EXPECT_EQ(st.st_mode & 0777, 0700u);
    ASSERT_TRUE(root.exists("/scratch/log/zolvek/dbgdir/dbg.log"));

    char target[4096] = {0};
    ASSERT_GT(readlink(root.hostPath("/scratch/log/zolvek/backup_log/vek.log").c_str(), target, sizeof(target) - 1), 0);
    EXPECT_EQ(std::string(target), root.hostPath("/scratch/log/zolvek/deep/er/vek.log"));
    ASSERT_GT(readlink(root.hostPath("/scratch/log/zolvek/backup_log/dbg.log").c_str(), target, sizeof(target) - 1), 0);
    ASSERT_GT(readlink(root.hostPath("/scratch/log/zolvek/backup_log/tmp").c_str(), target, sizeof(target) - 1), 0);
}

TEST_F(LoggerTest, TerminalMainChannelMakesNoDebugDirectories)
{
    configure("Info", "terminal", "/scratch/log/zolvek/notmade/dbg.log", false);
    vekConfig cfg;
    Logger log(cfg);
    EXPECT_EQ(log.getLogType(), CPlusPlusLogging::TERMINAL_LOG);
    EXPECT_FALSE(root.exists("/scratch/log/zolvek/notmade"));
    testing::internal::CaptureStdout();
    log.warning("on the terminal", "T", 9);
    const std::string out = testing::internal::GetCapturedStdout();
    EXPECT_NE(out.find("[WARNING] 100 009 T: on the terminal\n"), std::string::npos) << out;
}

TEST_F(LoggerTest, UncreatableLogDirectoryEndsTheProcess)
{
    root.writeFile("/scratch/blocker", "a file where a folder should be");
    configure("Info", "/scratch/blocker/sub/vek.log", "/scratch/log/dbg.log", false);
    EXPECT_EXIT({ vekConfig cfg; Logger log(cfg); }, testing::ExitedWithCode(static_cast<unsigned char>(-10)), "");

    configure("Info", "/scratch/log/vek.log", "/scratch/blocker/sub/dbg.log", true);
    EXPECT_EXIT({ vekConfig cfg; Logger log(cfg); }, testing::ExitedWithCode(static_cast<unsigned char>(-11)), "");
}

TEST(LogHelper, FormatsIntoTheBoundedBufferAndUsesTheProcessLogger)
{
    const std::string longText(5000, 'x');
    EXPECT_EQ(vekLog::format("%s", longText.c_str()).size(), vekLog::kMessageBufferSize - 1);

    vekLogTail debug(vekTestDebugLogPath());
    vekLogTail main(vekTestMainLogPath());
    VEK_LOG_DEBUG("TEST_TAG", "value %d of %s", 42, "answer");
    VEK_LOG_INFO("TEST_TAG", "informed");
    EXPECT_TRUE(debug.contains("TEST_TAG: value 42 of answer\n")) << debug.newText();
    EXPECT_TRUE(main.contains("TEST_TAG: informed\n")) << main.newText();
}

} // namespace
