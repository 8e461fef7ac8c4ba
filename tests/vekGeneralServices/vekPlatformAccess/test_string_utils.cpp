#include "vekGlobalDef.h"
#include "vekTestRoot.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <ctime>
#include <regex>
#include <string>
#include <vector>

using vekGlobalDef::stringUtils;
using vekGlobalDef::timeUtils;

namespace {

TEST(StringUtilsTest, TrimRemovesTheBlankSetAtBothEnds)
{
    const struct {
        const char* in;
        const char* out;
    } cases[] = {
        {"", ""},
        {" \t\f\v\n\r", ""},
        {"  VMware ESXi \r\n", "VMware ESXi"},
        {"\vinner  blanks\tstay\f", "inner  blanks\tstay"},
        {"x", "x"},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(stringUtils::trim(c.in), c.out) << "[" << c.in << "]";
    }
    EXPECT_EQ(stringUtils::trim("--a-b--", "-"), "a-b");
}

TEST(StringUtilsTest, HexadecimalTexts)
{
    const struct {
        const char* in;
        bool valid;
        const char* stripped;
        long value;
    } cases[] = {
        {"0x8086", true, "8086", 0x8086},
        {"0X10DE", true, "10DE", 0x10de},
        {"abcdef", true, "abcdef", 0xabcdef},
        {"0x", false, "", 0},
        {"", false, "", 0},
        {"0x12g4", false, "12g4", 0},
        {"-12", false, "-12", 0},
        {"x8086", false, "x8086", 0},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(stringUtils::validateHexadecimalString(c.in), c.valid) << c.in;
        EXPECT_EQ(stringUtils::stripHexRepresentedString(c.in), c.stripped) << c.in;
        EXPECT_EQ(stringUtils::hexStringToInt(c.in), c.value) << c.in;
    }
    EXPECT_EQ(stringUtils::hexStringToInt(" 0xffffffff\n"), 0xffffffffL);
}

TEST(StringUtilsTest, LimitPrecisionRoundsTheValue)
{
    const struct {
        double in;
        int precision;
        const char* text;
        double out;
    } cases[] = {
        {3.14159, 2, "3.14", 3.14}, {2.675, 0, "3", 3.0}, {-1.25, 1, "-1.2", -1.2}, {1536.0 / 1024, 3, "1.500", 1.5},
    };
    for (const auto& c : cases) {
        double value = c.in;
        EXPECT_EQ(stringUtils::limitPrecision(value, c.precision), c.text) << c.in;
        EXPECT_DOUBLE_EQ(value, c.out) << c.in;
    }
}

TEST(StringUtilsTest, SmallTextHelpers)
{
    EXPECT_EQ(stringUtils::extractFilename("/opt/zolvek/data/hba.conf"), "hba.conf");
    EXPECT_EQ(stringUtils::extractFilename("C:\\vek\\lib.dll"), "lib.dll");
    EXPECT_EQ(stringUtils::extractFilename("mixed/dir\\name"), "name");
    EXPECT_EQ(stringUtils::extractFilename("plain"), "plain");
    EXPECT_EQ(stringUtils::extractFilename("/trailing/"), "");

    EXPECT_TRUE(stringUtils::findString("Broadcom MegaRAID", "MegaRAID"));
    EXPECT_FALSE(stringUtils::findString("Broadcom MegaRAID", "megaraid"));
    EXPECT_TRUE(stringUtils::findString("Broadcom MegaRAID", "megaraid", true));
    EXPECT_FALSE(stringUtils::findString("Broadcom", "SmartRAID", true));

    EXPECT_EQ(stringUtils::removeNonAscii("Caf\xc3\xa9 \xe2\x84\xa2 ok\t"), "Caf  ok\t");

    const unsigned char inquiry[] = {'S', 'E', 'A', 'G', 'A', 'T', 'E', ' ', ' ', 0, 'X'};
    EXPECT_EQ(stringUtils::stringifyByteArray(inquiry, sizeof(inquiry)), "SEAGATE");
    const unsigned char unterminated[] = {' ', 'S', 'T', '4', '0', '0'};
    EXPECT_EQ(stringUtils::stringifyByteArray(unterminated, 4), "ST4");
    EXPECT_EQ(stringUtils::stringifyByteArray(nullptr, 4), "");
}

TEST(StringUtilsTest, SplitKeepsInnerEmptyPieces)
{
    EXPECT_EQ(stringUtils::splitStringstream("a,b,,c", ','), (std::vector<std::string>{"a", "b", "", "c"}));
    EXPECT_EQ(stringUtils::splitStringstream("a,b,", ','), (std::vector<std::string>{"a", "b"}));
    EXPECT_EQ(stringUtils::splitStringstream("", ','), std::vector<std::string>{});
    EXPECT_EQ(stringUtils::splitStringstream("one line", '\n'), std::vector<std::string>{"one line"});
}

TEST(StringUtilsTest, KeyValueListing)
{
    const auto pairs = stringUtils::convertStringStreamToKeyVal("   Address: 0000:16:00.0\n"
                                                                "   Vendor Name: Intel(R)\r\n"
                                                                "no delimiter here\n"
                                                                ": no key\n"
                                                                "   Slot Description:\n"
                                                                "   Vendor Name: later wins\n");
    const std::map<std::string, std::string> expected = {
        {"Address", "0000:16:00.0"}, {"Vendor Name", "later wins"}, {"Slot Description", ""}};
    EXPECT_EQ(pairs, expected);
    EXPECT_EQ(stringUtils::convertStringStreamToKeyVal("a=1\nb = 2", '='),
              (std::map<std::string, std::string>{{"a", "1"}, {"b", "2"}}));
}

TEST(StringUtilsTest, RegexHelpers)
{
    std::regex pciAddress;
    ASSERT_TRUE(stringUtils::compileRegEx("([a-fA-F0-9]{4}:[a-fA-F0-9]{2}:[a-fA-F0-9]{2}.[a-fA-F0-9]{1})", pciAddress));

    const std::string pciDevice = "PCI 0000:15:01.0 bridge of 0000:16:00.1";
    EXPECT_EQ(stringUtils::execRegexAndExtractAllMatches(pciDevice, pciAddress),
              (std::vector<std::string>{"0000:15:01.0", "0000:16:00.1"}));
    EXPECT_TRUE(stringUtils::execRegexAndExtractAllMatches("no address", pciAddress).empty());

    const std::regex keyValue("(\\w+): (\\d+)?(x)?");
    EXPECT_EQ(stringUtils::execRegexAndExtractCaptureGroups("Bus: 42 Slot: 7", keyValue),
              (std::vector<std::string>{"Bus", "42", ""}));
    EXPECT_TRUE(stringUtils::execRegexAndExtractCaptureGroups("nothing", keyValue).empty());

    vekLogTail mainLog(vekTestMainLogPath());
    std::regex broken;
    EXPECT_FALSE(stringUtils::compileRegEx("([0-9]", broken));
    EXPECT_TRUE(mainLog.contains("VMWARE_OS_UTILS: Regular expression [([0-9]] does not compile")) << mainLog.newText();
    std::regex extended;
    EXPECT_TRUE(stringUtils::compileRegEx("a{2}", extended, std::regex::extended));
    EXPECT_TRUE(std::regex_match("aa", extended));
}

class StringUtilsFileTest : public vekRootTest {
};

TEST_F(StringUtilsFileTest, MatchingLineFromFile)
{
    root.writeFile("/opt/zolvek/data/hba.conf", "# vendors\nqlogic /usr/lib/libqlsdm.so\nemulex /usr/lib/libemsdm.so");
    const std::string path = root.hostPath("/opt/zolvek/data/hba.conf");
    EXPECT_EQ(stringUtils::getMatchingLineFromFile(path, "emulex"), "emulex /usr/lib/libemsdm.so");
    EXPECT_EQ(stringUtils::getMatchingLineFromFile(path, "lib"), "qlogic /usr/lib/libqlsdm.so");
    EXPECT_EQ(stringUtils::getMatchingLineFromFile(path, "brocade"), "");
    EXPECT_EQ(stringUtils::getMatchingLineFromFile(root.hostPath("/absent"), "x"), "");
}

TEST(TimeUtilsTest, TimeTexts)
{
    setenv("TZ", "UTC", 1);
    tzset();
    EXPECT_EQ(timeUtils::getTimeAsString(0), "1970-01-01 00:00:00");
    EXPECT_EQ(timeUtils::getTimeAsString(1794681291), "2026-11-14 18:34:51");
    EXPECT_TRUE(std::regex_match(timeUtils::getUTCTime(), std::regex(R"(\d{4}-\d\d-\d\dT\d\d:\d\d:\d\dZ)")));
    EXPECT_TRUE(std::regex_match(timeUtils::getTime(), std::regex(R"(\d{4}-\d\d-\d\d \d\d:\d\d:\d\d)")));

    setenv("TZ", "EST5", 1);
    tzset();
    EXPECT_EQ(timeUtils::getTimeAsString(0), "1969-12-31 19:00:00");
}

TEST(TimeUtilsTest, TimeDifferenceBorrowsASecond)
{
    const struct {
        timespec later;
        timespec earlier;
        timespec diff;
    } cases[] = {
        {{10, 500}, {4, 200}, {6, 300}},
        {{10, 100}, {4, 200}, {5, 999999900}},
        {{10, 0}, {9, 999999999}, {0, 1}},
        {{7, 42}, {7, 42}, {0, 0}},
    };
    for (auto c : cases) {
        timespec result{};
        timeUtils::computeTimeDiff(c.later, c.earlier, result);
        EXPECT_EQ(result.tv_sec, c.diff.tv_sec);
        EXPECT_EQ(result.tv_nsec, c.diff.tv_nsec);
    }
}

TEST(TimeUtilsTest, WaitsAreDividedByTheTimeScale)
{
    unsetenv("VEK_TIME_SCALE");
    EXPECT_EQ(timeUtils::scaledSeconds(20).count(), 20000);
    setenv("VEK_TIME_SCALE", "1000", 1);
    EXPECT_EQ(timeUtils::scaledSeconds(20).count(), 20);
    setenv("VEK_TIME_SCALE", "100000", 1);
    EXPECT_EQ(timeUtils::scaledSeconds(20).count(), 1);
    EXPECT_EQ(timeUtils::scaledSeconds(0).count(), 0);
    setenv("VEK_TIME_SCALE", "fast", 1);
    EXPECT_EQ(timeUtils::timeScale(), 1);
    unsetenv("VEK_TIME_SCALE");
}

} // namespace
