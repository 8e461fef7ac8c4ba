// The GeoID map through the real discovery: SMBIOS tables made by the
// project's generator, read by the SMBIOS layer, reported through the OS
// interface and decoded by the rule book.

#include "vekDecodedGeoID.h"
#include "vekIOGeoIDHelper.h"
#include "vekLocationTestHost.h"
#include "vekTestRoot.h"

#include <gtest/gtest.h>

#include <functional>
#include <stdexcept>
#include <string>
#include <vector>

namespace {

const auto slot = vekLocationTestHost::slot;

class IOGeoIDHelperTest : public vekRootTest {
protected:
    vekIOGeoIDHelper& helperOn(int platform, const std::vector<std::string>& records)
    {
        host.use(platform, records);
        return vekIOGeoIDHelper::getInstance();
    }

    vekLocationTestHost host{root};
};

struct Expected {
    std::string address;
    VEK_GEOID_TYPES type;
    std::string geoID;
    std::vector<std::string> split;
};

// Every form in slot records, as each platform reads them.
const std::vector<std::string> kEveryForm = {
    slot("Slot 3 r001u02p3i04 PCIe", "0000:5e:00.0"), slot("r001u02p3i04x1y07", "0000:5f:00.0"),
    slot("OCP r001u02p3o1", "0000:2a:00.0"), slot("NVMe Bay r001u02p3x1y07", "0000:86:00.0"),
    slot("Legacy r001i05s02", "0000:17:00.0"), slot("No place at all", "0000:18:00.0")};

// The map holds these addresses and no other, each with its decoded GeoID.
void expectMap(vekIOGeoIDHelper& helper, const std::vector<Expected>& expected)
{
    std::vector<std::string> addresses;
    for (const Expected& e : expected) {
        SCOPED_TRACE(e.address);
        addresses.push_back(e.address);
        const vekDecodedGeoID decoded = helper.getDecodedGeoID(e.address);
        EXPECT_EQ(decoded.getType(), e.type);
        EXPECT_EQ(decoded.getGeoID(), e.geoID);
        EXPECT_EQ(decoded.getGeoIDSplit(), e.split);
        EXPECT_EQ(helper.getGeoIDStr(e.address), e.geoID);
        EXPECT_EQ(helper.getGeoIDInfo(e.address), e.split);
    }
    EXPECT_EQ(helper.getPCIAddresses(), addresses);
}

TEST_F(IOGeoIDHelperTest, TrbReadsEveryFormOfItsOwn)
{
    expectMap(helperOn(4, kEveryForm),
              {{"0000:2a:00.0", VEK_GEOID_TYPE_OCP, "r001u02p3o1", {"001", "02", "3", "1"}},
               {"0000:5e:00.0", VEK_GEOID_TYPE_IO_SLOT, "r001u02p3i04", {"001", "02", "3", "04"}},
               {"0000:5f:00.0", VEK_GEOID_TYPE_SLOT_DRIVE, "r001u02p3i04x1y07", {"001", "02", "3", "04", "1", "07"}},
               {"0000:86:00.0", VEK_GEOID_TYPE_CPU_NVME_DRIVE, "r001u02p3x1y07", {"001", "02", "3", "1", "07"}}});
}

TEST_F(IOGeoIDHelperTest, LmReadsOnlyIoSlotsAndTheLongerFormFailsOnTheWordBoundary)
{
    expectMap(helperOn(2, kEveryForm),
              {{"0000:5e:00.0", VEK_GEOID_TYPE_IO_SLOT, "r001u02p3i04", {"001", "02", "3", "04"}}});
}

TEST_F(IOGeoIDHelperTest, GqNwReadsOnlyTheLegacyForm)
{
    expectMap(helperOn(1, kEveryForm),
              {{"0000:17:00.0", VEK_GEOID_TYPE_IO_SLOT_LEGACY, "r001i05s02", {"001", "05", "02"}}});
}

TEST_F(IOGeoIDHelperTest, UnknownPlatformLeavesTheMapEmpty)
{
    expectMap(helperOn(-1, kEveryForm), {});
    const vekDecodedGeoID none = vekIOGeoIDHelper::getInstance().getDecodedGeoID("0000:5e:00.0");
    EXPECT_EQ(none.getType(), VEK_GEOID_TYPE_NONE);
    EXPECT_THROW(none.geoIDSplitAt(0), std::out_of_range);
}

TEST_F(IOGeoIDHelperTest, OnboardRecordsAllowOnlySlotFormsAndReplaceASlotRecord)
{
    vekLogTail debug(vekTestDebugLogPath());
    const auto onboard = vekLocationTestHost::onboard;
    vekIOGeoIDHelper& helper = helperOn(4, {slot("Slot 1 r001u03p1i01", "0000:16:00.0"),
                                            onboard("Onboard LAN r001u03p1i00", "0000:16:00.0"),
                                            onboard("Onboard NVMe r001u03p1x1y02", "0000:87:00.0")});
    expectMap(helper, {{"0000:16:00.0", VEK_GEOID_TYPE_IO_SLOT, "r001u03p1i00", {"001", "03", "1", "00"}}});
    EXPECT_TRUE(debug.contains("Default Rule Processor: [r...u..p.x.y..] Extraction Rule: GeoID type not allowed."));
}

TEST_F(IOGeoIDHelperTest, NoTableIsAFailedDiscoveryAndAnEmptyMap)
{
    vekLogTail log(vekTestMainLogPath());
    host.services();
    EXPECT_TRUE(vekIOGeoIDHelper::getInstance().getPCIAddresses().empty());
    EXPECT_TRUE(log.contains("Failure reported during I/O GeoID discovery process!"));
}

// A refresh replaces the picture whole: while it runs, readers see the old
// one only; afterwards the new one only.
TEST_F(IOGeoIDHelperTest, ReadersSeeTheOldPictureUntilTheRefreshEnds)
{
    vekIOGeoIDHelper& helper = helperOn(4, {slot("Slot 1 r001u03p1i01", "0000:16:00.0")});
    ASSERT_EQ(helper.getGeoIDStr("0000:16:00.0"), "r001u03p1i01");

    host.use(4, {slot("Slot 2 r001u03p1i02", "0000:3b:00.0")});
    // The legacy rule's gate runs for every designation; during the refresh
    // it looks at the map as a reader would.
    _VEK_IO_GEOID_EXTRACTION_RULE& legacy = IOGeoIDExtractionRuleBook.at(0);
    const auto gate = legacy.ruleProcessor;
    std::vector<std::string> seenDuring;
    legacy.ruleProcessor = [&](_VEK_IO_GEOID_EXTRACTION_RULE& rule, bool& stop, std::string pci, std::string text,
                               const std::vector<VEK_GEOID_TYPES>& allowed) {
        seenDuring.push_back(helper.getGeoIDStr("0000:16:00.0") + "|" + helper.getGeoIDStr("0000:3b:00.0"));
        helper.refreshGeoIDMap(); // a second refresh is refused while one runs
        return gate(rule, stop, pci, text, allowed);
    };
    vekLogTail log(vekTestMainLogPath());
    helper.refreshGeoIDMap();
    legacy.ruleProcessor = gate;

    ASSERT_EQ(seenDuring.size(), 1u);
    EXPECT_EQ(seenDuring[0], "r001u03p1i01|");
    EXPECT_TRUE(log.contains("Another refresh I/O GeoID map operation is already in progress!"));
    EXPECT_EQ(helper.getGeoIDStr("0000:16:00.0"), "");
    EXPECT_EQ(helper.getGeoIDStr("0000:3b:00.0"), "r001u03p1i02");
}

// An empty filter allows every type, and a later report for one address
// replaces type, text and split.
TEST_F(IOGeoIDHelperTest, LaterReportForAnAddressReplacesItsGeoID)
{
    vekIOGeoIDHelper& helper = helperOn(4, {});
    EXPECT_TRUE(helper.runRulesEngine("0000:5e:00.0", "r001u02p3x1y07", {}));
    EXPECT_TRUE(helper.runRulesEngine("0000:5e:00.0", "r002u04p1o2", {}));
    expectMap(helper, {{"0000:5e:00.0", VEK_GEOID_TYPE_OCP, "r002u04p1o2", {"002", "04", "1", "2"}}});
    EXPECT_EQ(helper.getDecodedGeoID("0000:5e:00.0").geoIDSplitAt(3), "2");
}

} // namespace
