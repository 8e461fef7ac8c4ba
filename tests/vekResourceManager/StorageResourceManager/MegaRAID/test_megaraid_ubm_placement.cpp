// Where the rack server's MegaRAID drives lie: the connector the library
// names for a drive's port, the rule book of the controller model, and the
// UBM FRUs on the controller's I2C buses (box 1 on bus 3 describes bays 1-4,
// box 2 on bus 5 bays 5-8).

#include "vekMegaRAIDTestHost.h"

#include <gtest/gtest.h>

#include <string>

namespace {

using MegaRAIDUBMPlacementTest = vekMegaRAIDTest;

TEST_F(MegaRAIDUBMPlacementTest, ADriveLiesOnTheBoxWhoseFRUDescribesItsBay)
{
    struct Case {
        const char* name;
        int port; // -1: the drive has no path, so no connector
        int bay;
        int box;
        const char* told;
    } const cases[] = {
        {"C0.0 to its home FRU", 0, 1, 1,
         "Home FRU: I2C Bus #[3]: Controller connector [C0.0]: Drive bay #[1] is located on backplane #[1]."},
        {"C0.1 to its home FRU", 1, 6, 2,
         "Home FRU: I2C Bus #[5]: Controller connector [C0.1]: Drive bay #[6] is located on backplane #[2]."},
        {"C0.1 cabled straight to the first backplane", 1, 3, 1,
         "Alternate FRU: I2CBus #[3]: Controller connector [C0.1]: Drive bay #[3] is located on backplane #[1]."},
        {"C0.0 cabled straight to the second backplane", 0, 7, 2,
         "Alternate FRU: I2CBus #[5]: Controller connector [C0.0]: Drive bay #[7] is located on backplane #[2]."},
        {"a connector with no UBM behind it", 2, 2, -1,
         "Unable to determine LM enclosure box # [-1] for PD on Broadcom controller [0x10E21000, 0x40001000] @ "
         "[0000:3b:00.0]. PL for PD [ST1200MM0009, WFK0A1B20000C9270ABC] @ slot [252:2] will be reported as "
         "FFFFFFFFFFFFFFFF. (1, C1.0, [No enclosure segment info found on I2C bus #[6]!])"},
        {"a bay that neither FRU describes", 0, 9, -1,
         "No alternate UBM FRU(s) describe drive bay #[9] at connector [C0.0]!"},
        {"a drive with no connector", -1, 1, -1,
         "will be reported as FFFFFFFFFFFFFFFF. (0, , [No connector known for the drive!])"},
    };
    const Json::Value original = scenario;
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        scenario = original;
        Json::Value& drive = scenario["controllers"][0]["drives"][0];
        drive["slot"] = c.bay;
        if (c.port < 0) {
            drive.removeMember("port");
        } else {
            drive["port"] = c.port;
        }
        writeScenario();
        vekLogTail main(vekTestMainLogPath());
        vekLogTail debug(vekTestDebugLogPath());
        build();
        ASSERT_EQ(drives.size(), 4u);
        EXPECT_EQ(drives[0].getSerialNumber(), "WFK0A1B20000C9270ABC");
        EXPECT_EQ(drives[0].getEnclosureBox(), c.box);
        EXPECT_TRUE(main.contains(c.told) || debug.contains(c.told)) << main.newText();
        if (c.box < 0) {
            EXPECT_EQ(drives[0].getPhysicalLocation(), "FFFFFFFFFFFFFFFF");
        }
        // The other drives keep their places whatever happens to this one.
        EXPECT_EQ(drives[3].getEnclosureBox(), 1);
        // A drive that can't be placed doesn't cost the controller its
        // backplane, nor its events.
        EXPECT_EQ(enclosures.size(), 2u);
        EXPECT_TRUE(controller()->isEventsEnabled());
    }
}

// A controller the Scrutiny library sees no backplane of: its drives keep the
// all-F PL, and without enclosure segments its collection ends before events.
TEST_F(MegaRAIDUBMPlacementTest, AControllerWithoutBackplaneLeavesItsDrivesUnplaced)
{
    root.writeFile("/sim/libscrutiny.json", R"({"controllers": []})");
    vekLogTail debug(vekTestDebugLogPath());
    build();
    ASSERT_EQ(drives.size(), 4u);
    for (const vekDiskInfo& drive : drives) {
        EXPECT_EQ(drive.getEnclosureBox(), -1) << drive.getSerialNumber();
        EXPECT_EQ(drive.getPhysicalLocation(), "FFFFFFFFFFFFFFFF") << drive.getSerialNumber();
    }
    EXPECT_TRUE(enclosures.empty());
    EXPECT_TRUE(debug.contains("No Enclosure Segment List found for 0000:3b:00.0 MegaRAID controller."));
    EXPECT_TRUE(debug.contains("Returning -1 as no enclosure segments found."));
    EXPECT_FALSE(controller()->isEventsEnabled());
}

} // namespace
