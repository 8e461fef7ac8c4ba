#include "Logger.h"
#include "vekConfig.h"
#include "vekLog.h"
#include "vekTestResourceManager.h"
#include "vekTestRoot.h"

#include <gtest/gtest.h>

#include <cctype>
#include <sys/stat.h>
#include <thread>
#include <unistd.h>
#include <vector>

using CPlusPlusLogging::Logger;

namespace {

// Whether a line of the log is the text preceded by a UTC time "%FT%TZ".
bool stampedLine(const std::string& log, const std::string& text)
{
    const std::string mask = "dddd-dd-ddTdd:dd:ddZ";
    const size_t at = log.find(text);
    if (at == std::string::npos || at < mask.size() || (at > mask.size() && log[at - mask.size() - 1] != '\n')) {
        return false;
    }
    for (size_t i = 0; i < mask.size(); ++i) {
        const char c = log[at - mask.size() + i];
        if (mask[i] == 'd' ? !isdigit(static_cast<unsigned char>(c)) : c != mask[i]) {
            return false;
        }
    }
    return true;
}

class LoggerTest : public vekRootTest {
protected:
    void configure(const std::string& level, const std::string& main, const std::string& debug, bool debugOn)
    {
        root.writeFile("/scratch/log/zolvek/vek.log", "");
        root.writeConfig("{ \"LoggingLevel\": \"" + level + "\", \"VEKLogLocation\": \"" + main +
                         "\", \"DebugLogLocation\": \"" + debug + "\", \"EnableDebugLog\": " +
                         (debugOn ? "true" : "false") + " }");
    }
    std::string mainLog() const { return root.readFile("/scratch/log/zolvek/vek.log"); }
};

// What reaches the main file for each level word ("DEBUG" matches nothing and
// falls back to warning), in the format of the line.
TEST_F(LoggerTest, LevelWordDecidesWhatTheMainChannelGets)
{
    const struct {
        const char* word;
        bool info;
        bool warning;
    } cases[] = {{"Info", true, true}, {"warning", false, true}, {"DEBUG", false, true}, {"ERROR", false, false}};
    for (const auto& c : cases) {
        SCOPED_TRACE(c.word);
        configure(c.word, "/scratch/log/zolvek/vek.log", "/scratch/log/zolvek/dbg.log", false);
        vekConfig cfg;
        Logger log(cfg);
        log.info("hello", "JOB_MGR", 7);
        log.warning("careful", "JOB_MGR", 123);
        log.error("broken", "JOB_MGR", 45);
        log.always("always", "JOB_MGR", 1);
        log.debug("details", "JOB_MGR", 1000);
        const std::string main = mainLog();
        EXPECT_EQ(stampedLine(main, " [INFO]    100 007 JOB_MGR: hello\n"), c.info) << main;
        EXPECT_EQ(main.find(" [WARNING] 100 123 JOB_MGR: careful\n") != std::string::npos, c.warning) << main;
        EXPECT_TRUE(
            vekInOrder(main, {" [ERROR]    100 045 JOB_MGR: broken\n", " [INFO]    100 001 JOB_MGR: always\n"}));
        EXPECT_EQ(main.find("details"), std::string::npos);
        EXPECT_FALSE(root.exists("/scratch/log/zolvek/dbg.log"));
        // At 6 everything but "always" is silent.
        log.enaleLog();
        log.error("e6", "T", 1);
        log.always("a6", "T", 1);
        EXPECT_EQ(mainLog().find("e6"), std::string::npos);
        EXPECT_NE(mainLog().find("a6"), std::string::npos);
    }
}

TEST_F(LoggerTest, DebugLinesGoToTheirOwnFileLinkedIntoTheBackup)
{
    root.makeDirectory("/scratch/log/zolvek/backup_log");
    configure("Info", "/scratch/log/zolvek/deep/er/vek.log", "/scratch/log/zolvek/dbgdir/dbg.log", true);
    vekConfig cfg;
    Logger log(cfg);
    log.debug("details", "JOB_MGR", 1000);
    log.info("hello", "JOB_MGR", 7);
    const std::string debug = root.readFile("/scratch/log/zolvek/dbgdir/dbg.log");
    EXPECT_NE(debug.find(" [DEBUG]   100 1000 JOB_MGR: details\n"), std::string::npos) << debug;
    EXPECT_EQ(debug.find("hello"), std::string::npos);

    struct stat st;
    ASSERT_EQ(stat(root.hostPath("/scratch/log/zolvek/deep/er").c_str(), &st), 0);
    EXPECT_EQ(st.st_mode & 0777, 0700u);
    for (const std::string target : {"/scratch/log/zolvek/deep/er/vek.log", "/scratch/log/zolvek/dbgdir/dbg.log",
                                     "/opt/zolvek/tmp"}) {
        const std::string link = "/scratch/log/zolvek/backup_log" + target.substr(target.rfind('/'));
        char found[4096] = {0};
        ASSERT_GT(readlink(root.hostPath(link).c_str(), found, sizeof(found) - 1), 0) << link;
        EXPECT_EQ(std::string(found), root.hostPath(target));
    }
}

TEST_F(LoggerTest, ThreadNumbersBeginAt100InOrderOfFirstLine)
{
    configure("Info", "/scratch/log/zolvek/vek.log", "/scratch/log/zolvek/dbg.log", false);
    vekConfig cfg;
    Logger log(cfg);
    log.info("main first", "T", 1);
    // The helpers live until the end, so none can inherit another's identity;
    // each logs after the one before it.
    vekTestSteps steps;
    std::vector<std::thread> helpers;
    for (int line : {2, 3}) {
        helpers.emplace_back([&, line] {
            log.info("helper", "T", line);
            steps.record("logged " + std::to_string(line));
            steps.waitFor("release");
        });
        EXPECT_TRUE(steps.waitFor("logged " + std::to_string(line)));
    }
    log.info("main again", "T", 4);
    steps.record("release");
    for (auto& helper : helpers) {
        helper.join();
    }
    EXPECT_TRUE(vekInOrder(mainLog(), {" 100 001 T: main first\n", " 101 002 T: helper\n", " 102 003 T: helper\n",
                                       " 100 004 T: main again\n"}));
}

TEST_F(LoggerTest, TerminalMainChannelMakesNoDebugDirectories)
{
    configure("Info", "terminal", "/scratch/log/zolvek/notmade/dbg.log", false);
    vekConfig cfg;
    Logger log(cfg);
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
    EXPECT_EQ(vekLog::format("%s", std::string(5000, 'x').c_str()).size(), vekLog::kMessageBufferSize - 1);
    vekLogTail debug(vekTestDebugLogPath());
    vekLogTail main(vekTestMainLogPath());
    VEK_LOG_DEBUG("TEST_TAG", "value %d of %s", 42, "answer");
    VEK_LOG_INFO("TEST_TAG", "informed");
    EXPECT_TRUE(debug.contains("TEST_TAG: value 42 of answer\n")) << debug.newText();
    EXPECT_TRUE(main.contains("TEST_TAG: informed\n")) << main.newText();
}

} // namespace
