// Which backplane a MegaRAID drive bay lies on, and which backplanes are
// reported, from the controller model, the connector and the enclosure
// segments discovery found.

#include "vekBroadcomRules.h"
#include "vekStorageBackplane.h"
#include "vekTestRoot.h"

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

namespace {

const char kTag[] = "LSIMR_UBM_SUPP";
const int kLM = 2;
const int kTRB = 4;

// A UBM backplane on a bus, with its box, firmware and the bays its FRU describes.
std::unique_ptr<dsiEnclosureSegmentInfo> segment(uint8_t bus, int box, const std::vector<uint8_t>& bays,
                                                 const std::string& firmware = "1.10", const std::string& type = "UBM")
{
    auto s = std::make_unique<dsiEnclosureSegmentInfo>();
    s->setI2CBusNumber(bus);
    s->setBoxNumber(box);
    s->setBackplaneType(type);
    s->setUBMBackplanePCIVendorID(0x4417);
    s->setUBMControllerDeviceCode(3);
    s->setUBMBackplaneImageVersion(firmware);
    for (const uint8_t bay : bays) {
        s->addUBMPortRouteInfo(UBM_PORT_ROUTE_INFO_DESCRIPTOR{{0, 0, 0, 0, 0, 0}, bay});
    }
    return s;
}

std::unique_ptr<dsiControllerInfo> megaRAID(uint32_t chipset, uint32_t board)
{
    auto c = std::make_unique<dsiControllerInfo>();
    c->setPCIAddress("0000:3b:00.0");
    c->setChipsetID(chipset);
    c->setBoardID(board);
    return c;
}

// "box N" or the class and text of what was thrown.
std::string locate(const vekUBMBackplaneLocator& locator, const dsiControllerInfo& controller,
                   const std::vector<dsiEnclosureSegmentInfo*>& segments, const std::string& connector, uint8_t bay)
{
    try {
        return "box " +
               std::to_string(locator.findBackplaneNumberForDriveLocation(controller, segments, connector, bay));
    } catch (const vekBroadcom::SBNFD_NoEnclosureSegmentInfoOnI2CBusException& e) {
        return std::string("no segment: ") + e.what();
    } catch (const vekBroadcom::SBNFD_NoUBMPortRouteInfoDescriptorForBayException& e) {
        return std::string("no bay: ") + e.what();
    } catch (const vekBroadcom::StorageBackplaneNumberForDriveNotFoundException& e) {
        return std::string("not found: ") + e.what();
    } catch (const vekStorageBackplane::Exception& e) {
        return std::string("firmware: ") + e.what();
    }
}

TEST(UBMDriveLocationTest, FindsTheBoxOfABayThroughTheRulesOfTheControllerModel)
{
    // Front backplane (box 1) on bus 3 and rear (box 2) on bus 5 behind connectors C0.0 and C0.1.
    const auto front = segment(3, 1, {0, 1, 2, 3});
    const auto rear = segment(5, 2, {4, 5, 6, 7});
    const auto oldFront = segment(3, 1, {0, 1, 2, 3}, "1.9");
    const auto silentFront = segment(3, -1, {0, 1, 2, 3}, "", ""); // PIC did not answer, FRU did
    const std::vector<dsiEnclosureSegmentInfo*> both{front.get(), rear.get()};
    const std::vector<dsiEnclosureSegmentInfo*> rearOnly{rear.get()};
    const std::vector<dsiEnclosureSegmentInfo*> oldBoth{oldFront.get(), rear.get()};
    const std::vector<dsiEnclosureSegmentInfo*> silent{silentFront.get()};
    const auto model = megaRAID(0x10E21000, 0x40001000);
    const auto unknown = megaRAID(0x10E21000, 0x12345678);
    const auto twoConnectors = megaRAID(0x10E21000, 0x40101000);
    struct Case {
        const char* situation;
        int platform;
        const dsiControllerInfo* controller;
        const std::vector<dsiEnclosureSegmentInfo*>* segments;
        const char* connector;
        uint8_t bay;
        std::string result;
        const char* logged; // in the debug log, or ""
    } const cases[] = {
        {"a bay on the home FRU", kLM, model.get(), &both, "C0.0", 2, "box 1", "Home FRU: I2C Bus #[3]"},
        {"straight cables: the alternate FRU has it", kLM, model.get(), &both, "C0.0", 5, "box 2",
         "Alternate FRU: I2CBus #[5]: Controller connector [C0.0]: Drive bay #[5] is located on backplane #[2]."},
        {"a bay no FRU describes", kLM, model.get(), &both, "C0.1", 9,
         "not found: Failed to find storage backplane number for PD bay #[9] on enclosure segment!",
         "Alternate UBM FRU on I2C Bus #[3] does not describe drive bay #[9] at connector [C0.1]."},
        {"no segment on the home bus", kLM, model.get(), &rearOnly, "C0.0", 2,
         "no segment: No enclosure segment info found on I2C bus #[3]!", ""},
        {"a controller model not in the rule book", kLM, unknown.get(), &both, "C0.0", 2,
         "not found: No ruleset for controller model! (Chipset ID: [0x10e21000]; Board ID: [0x12345678])", ""},
        {"a connector the model does not have", kLM, twoConnectors.get(), &both, "C1.0", 2,
         "not found: No sideband mapping rule for connector [C1.0] of controller model (0x10e21000, 0x40101000)!", ""},
        {"too old firmware on platform type 2", kLM, model.get(), &oldBoth, "C0.0", 2,
         "firmware: Minimum UBM controller/manager firmware version requirement [1.9 >= 1.10] not met.", ""},
        {"old firmware is no reason on platform type 4", kTRB, model.get(), &oldBoth, "C0.0", 2, "box 1", ""},
        {"a backplane whose PIC did not answer", kLM, model.get(), &silent, "C0.0", 2, "box -1", ""},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.situation);
        vekLogTail debug(vekTestDebugLogPath());
        const vekUBMBackplaneLocator locator(kTag, c.platform);
        EXPECT_EQ(locate(locator, *c.controller, *c.segments, c.connector, c.bay), c.result);
        EXPECT_TRUE(debug.contains(c.logged)) << debug.newText();
    }
}

TEST(UBMDriveLocationTest, ReportsOnPlatformType2OnlyBackplanesWithNewEnoughFirmware)
{
    const auto model = megaRAID(0x00A51000, 0x46001000);
    struct Case {
        int platform;
        std::string firmware;
        std::string type;
        bool reported;
    } const cases[] = {
        {kLM, "1.10", "UBM", true}, {kLM, "1.9", "UBM", false}, {kLM, "unknown", "UBM", false},
        {kLM, "1.9", "", true},     {kTRB, "1.9", "UBM", true},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(std::to_string(c.platform) + " " + c.firmware + " " + c.type);
        vekLogTail log(vekTestMainLogPath());
        const auto s = segment(4, 1, {0}, c.firmware, c.type);
        EXPECT_EQ(vekUBMBackplaneLocator(kTag, c.platform).acceptEnclosureSegment(*model, *s), c.reported);
        EXPECT_EQ(log.contains("MegaRAID controller [0x00a51000, 0x46001000] at PCI address [0000:3b:00.0]: Enclosure "
                               "on I2C Bus #[4]: Backplane [0x4417, 0x00000003, " +
                               c.firmware + "] failed to meet minimum firmware version requirement"),
                  !c.reported);
    }
}

TEST(UBMDriveLocationTest, MapsTheUBMControllerStateToStateAndHealth)
{
    struct Case {
        int ubm;
        VEK_RESOURCE_STATE state;
        VEK_RESOURCE_HEALTH health;
    } const cases[] = {
        {-1, VEK_STATE_UNKNOWN, VEK_HEALTH_UNKNOWN},   {0, VEK_STATE_UNKNOWN, VEK_HEALTH_UNKNOWN},
        {1, VEK_STATE_DEGRADED, VEK_HEALTH_WARNING},   {2, VEK_STATE_DEGRADED, VEK_HEALTH_WARNING},
        {3, VEK_STATE_RUNNING, VEK_HEALTH_OK},         {4, VEK_STATE_DEGRADED, VEK_HEALTH_WARNING},
        {0x80, VEK_STATE_UNKNOWN, VEK_HEALTH_UNKNOWN},
    };
    for (const Case& c : cases) {
        VEK_RESOURCE_STATE state = VEK_STATE_FAILED;
        VEK_RESOURCE_HEALTH health = VEK_HEALTH_CRITICAL;
        vekUBMBackplaneLocator::mapEnclosureSegmentStatusToVEKStatus(
            static_cast<UBM_CONTROLLER_OPERATIONAL_STATE>(c.ubm), state, health);
        EXPECT_EQ(state, c.state) << c.ubm;
        EXPECT_EQ(health, c.health) << c.ubm;
    }
}

} // namespace
