#include "vekGlobalDef.h"
#include "vekTestRoot.h"

#include <gtest/gtest.h>

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
