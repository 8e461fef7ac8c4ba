// PLs through the real dlopen of the project's fake encoders: every kind of
// FRU on each platform family, checked by the bytes the encoder received
// (written down in $VEK_ROOT/sim/<library>.calls) and by the PL it returned.

#include "vekDimmGeoIDContainer.h"
#include "vekGQNWPhysLocInterface.h"
#include "vekLMPhysLocInterface.h"
#include "vekLocationTestHost.h"
#include "vekMockPhysLocInterface.h"
#include "vekPhysLocFactory.h"
#include "vekTRBPhysLocInterface.h"
#include "vekTestRoot.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <functional>
#include <string>
#include <vector>

namespace {

const std::string kAllF = "FFFFFFFFFFFFFFFF";
const int NA = 0xFF; // a field the system left as init left it

// The structure's 16 bytes in hexadecimal, as the fake writes them down.
std::string bytes(int type, int rack, int unit, int partition, int box, int slot, int dimm, int slot2)
{
    char text[40];
    snprintf(text, sizeof text, "%02x000000%02x%02xffff%02xff%02x%02x%02x%02xffff", type, rack, unit, partition, box,
             slot, dimm, slot2);
    return text;
}

// The fake's PL of the same fields.
std::string pl(int type, int rack, int unit, int partition, int box, int slot, int dimm, int slot2)
{
    char text[20];
    snprintf(text, sizeof text, "%02X%02X%02X%02X%02X%02X%02X%02X", type, rack, unit, partition, box, slot, dimm, slot2);
    return text;
}

std::string slot(const std::string& designation, const std::string& address)
{
    return "{\"type\": 9, \"designation\": \"" + designation + "\", \"address\": \"" + address + "\"}";
}

class PhysLocTest : public vekRootTest {
protected:
    vekPhysLocInterface* on(int platform, const std::string& structures)
    {
        host.writeTable(platform, structures);
        host.services();
        root.makeDirectory("/sim");
        return vekPhysLocFactory::getPhysLocInterface();
    }

    // What the encoder received since the last look, one structure a line.
    std::vector<std::string> calls(const std::string& library)
    {
        const std::string file = "/sim/" + library + ".calls";
        std::vector<std::string> lines;
        if (root.exists(file)) {
            std::string text = root.readFile(file);
            for (size_t at = 0; at < text.size();) {
                const size_t end = text.find('\n', at);
                lines.push_back(text.substr(at, end - at));
                at = end + 1;
            }
            std::remove(root.hostPath(file).c_str());
        }
        return lines;
    }

    struct Row {
        const char* what;
        std::string pl;
        std::string bytes; // empty: the encoder is not reached
    };

    // Each row's call runs in turn, so the bytes it caused are its own.
    struct RowCall {
        Row first;
        std::function<std::string()> second;
    };
    void expectRows(const std::string& library, const std::vector<RowCall>& rows)
    {
        calls(library);
        for (const auto& row : rows) {
            SCOPED_TRACE(row.first.what);
            EXPECT_EQ(row.second(), row.first.pl);
            const std::vector<std::string> seen = calls(library);
            if (row.first.bytes.empty()) {
                EXPECT_TRUE(seen.empty());
            } else {
                EXPECT_EQ(seen, std::vector<std::string>{row.first.bytes});
            }
        }
    }

    vekLocationTestHost host{root};
};

const std::string kTrbSlots = "[" + slot("Slot 4 r001u03p1i04", "0000:5e:00.0") + ", " +
                              slot("Onboard SATA r001u03p1i00", "0000:00:17.0") + ", " +
                              slot("OCP r001u03p1o1", "0000:2a:00.0") + ", " +
                              slot("NVMe Bay r001u03p1x1y02", "0000:87:00.0") + ", " +
                              slot("Drive r001u03p1i04x2y07", "0000:88:00.0") + "]";

TEST_F(PhysLocTest, TrbEveryKindOfFru)
{
    vekLogTail log(vekTestMainLogPath());
    vekPhysLocInterface* physloc = on(4, kTrbSlots);
    ASSERT_NE(dynamic_cast<vekTRBPhysLocInterface*>(physloc), nullptr);
    const std::string io = "0000:5e:00.0", onboard = "0000:00:17.0", ocp = "0000:2a:00.0";
    expectRows("libvekloc3",
               {
                   {{"I/O slot card", pl(3, 1, 3, 1, NA, 4, NA, NA), bytes(3, 1, 3, 1, NA, 4, NA, NA)},
                    [&] { return physloc->getPhysLocForPCIDevice(io); }},
                   {{"network adapter", pl(3, 1, 3, 1, NA, 4, NA, NA), bytes(3, 1, 3, 1, NA, 4, NA, NA)},
                    [&] { return physloc->getPhysLocForNetworkAdapter(io); }},
                   {{"OCP: rack and unit only", pl(7, 1, 3, NA, NA, NA, NA, NA), bytes(7, 1, 3, NA, NA, NA, NA, NA)},
                    [&] { return physloc->getPhysLocForPCIDevice(ocp); }},
                   {{"CPU NVMe bay", pl(70, 1, 3, 1, 1, 2, NA, NA), bytes(70, 1, 3, 1, 1, 2, NA, NA)},
                    [&] { return physloc->getPhysLocForPCIDevice("0000:87:00.0"); }},
                   {{"drive behind a slot", pl(71, 1, 3, 1, 2, 7, NA, 4), bytes(71, 1, 3, 1, 2, 7, NA, 4)},
                    [&] { return physloc->getPhysLocForPCIDevice("0000:88:00.0"); }},
                   {{"on-board drive box 1 bay 12", pl(71, 1, 3, 1, 1, 12, NA, NA), bytes(71, 1, 3, 1, 1, 12, NA, NA)},
                    [&] { return physloc->getPhysLocForChassisDriveSlot(onboard, 1, 12); }},
                   {{"drive behind slot card", pl(59, 1, 3, 1, 2, 3, NA, 4), bytes(59, 1, 3, 1, 2, 3, NA, 4)},
                    [&] { return physloc->getPhysLocForChassisDriveSlot(io, 2, 3); }},
                   {{"bay 13", kAllF, ""}, [&] { return physloc->getPhysLocForChassisDriveSlot(io, 1, 13); }},
                   {{"box 4", kAllF, ""}, [&] { return physloc->getPhysLocForChassisDriveSlot(io, 4, 1); }},
                   {{"drive slot on OCP", kAllF, ""}, [&] { return physloc->getPhysLocForChassisDriveSlot(ocp, 1, 1); }},
                   {{"external drive", pl(69, 1, 3, 1, NA, 4, NA, NA), bytes(69, 1, 3, 1, NA, 4, NA, NA)},
                    [&] { return physloc->getPhysLocForExternalDrive(io); }},
                   {{"external drive on OCP", kAllF, ""}, [&] { return physloc->getPhysLocForExternalDrive(ocp); }},
                   {{"backplane box 3", pl(43, 1, 3, 1, NA, 4, NA, 3), bytes(43, 1, 3, 1, NA, 4, NA, 3)},
                    [&] { return physloc->getPhysLocForChassisStorageBackplane(io, 3); }},
                   {{"backplane box 0", kAllF, ""}, [&] { return physloc->getPhysLocForChassisStorageBackplane(io, 0); }},
                   {{"no GeoID", kAllF, ""}, [&] { return physloc->getPhysLocForPCIDevice("0000:99:00.0"); }},
                   {{"invalid address", kAllF, ""}, [&] { return physloc->getPhysLocForPCIDevice("5e:00.0"); }},
               });
    EXPECT_TRUE(log.contains("Successfully created TRB PL interface object."));
    EXPECT_TRUE(log.contains("Invalid internal box # [1] and/or drive bay # [13] for chassis drive PL encoding at PCI "
                             "address [0000:5e:00.0]."));
    EXPECT_TRUE(log.contains("PCI address [0000:2a:00.0]: Unexpected GeoID type [4] for chassis drive slot! (GeoID: "
                             "[r001u03p1o1])"));
    EXPECT_TRUE(log.contains("PCI address [0000:99:00.0]: Unsupported/Unrecognized GeoID Type: [0 - ]! Invalid PL will "
                             "be reported."));
    EXPECT_TRUE(log.contains("I/O controller PCI address is invalid. ([5e:00.0])"));
}

TEST_F(PhysLocTest, DecodingGoesThroughTheLibrary)
{
    vekPhysLocInterface* physloc = on(4, kTrbSlots);
    const std::string code = physloc->getPhysLocForPCIDevice("0000:5e:00.0");
    EXPECT_EQ(physloc->getDecodedPhysLocLongFormat(code), "T3 R1 U3 P1 B255 S4 D255 X255");
    // The all-F code is a PL like any other to the library.
    EXPECT_EQ(physloc->getDecodedPhysLocLongFormat(kAllF), "T255 R255 U255 P255 B255 S255 D255 X255");
    EXPECT_THROW(physloc->getDecodedPhysLocLongFormat("FFFFFFFFFFFFFFF"), vekPhysLoc::InvalidPLException);
    EXPECT_THROW(physloc->getDecodedPhysLocLongFormat("not a PL"), vekPhysLoc::InvalidPLException);
    root.writeFile("/sim/libvekloc3.json", R"({"get_string": 7})");
    try {
        physloc->getDecodedPhysLocLongFormat(code);
        FAIL() << "a refused decode must throw";
    } catch (const vekPhysLoc::PLAPIFailureException& e) {
        EXPECT_STREQ(e.what(), "PL API failure: [physloc_get_string failed (7)]");
    }
}

TEST_F(PhysLocTest, LibraryThatRefusesToWorkGivesAllF)
{
    vekLogTail log(vekTestMainLogPath());
    vekPhysLocInterface* physloc = on(4, kTrbSlots);
    root.writeFile("/sim/libvekloc3.json", R"({"init": 5})");
    EXPECT_EQ(physloc->getPhysLocForPCIDevice("0000:5e:00.0"), kAllF);
    EXPECT_TRUE(log.contains("Failed to initialize PL data for encoding! (5)"));
    root.writeFile("/sim/libvekloc3.json", R"({"encode": 9})");
    EXPECT_EQ(physloc->getPhysLocForPCIDevice("0000:5e:00.0"), kAllF);
    EXPECT_TRUE(log.contains("Failed to encode physical location for PCI address [0000:5e:00.0]. (9) [001, 03, 1, 04, "
                             "NA, NA]"));
}

TEST_F(PhysLocTest, LmEveryKindOfFru)
{
    vekPhysLocInterface* physloc =
        on(2, "[" + slot("Slot 4 r001u03p1i04", "0000:5e:00.0") + ", " + slot("LOM r001u03p1i00", "0000:16:00.0") + "]");
    ASSERT_NE(dynamic_cast<vekLMPhysLocInterface*>(physloc), nullptr);
    const std::string io = "0000:5e:00.0";
    expectRows("libvekloc1",
               {
                   {{"card", pl(3, 1, 3, 1, NA, 4, NA, NA), bytes(3, 1, 3, 1, NA, 4, NA, NA)},
                    [&] { return physloc->getPhysLocForPCIDevice(io); }},
                   {{"embedded adapter", pl(59, 1, 3, 1, NA, 0, NA, NA), bytes(59, 1, 3, 1, NA, 0, NA, NA)},
                    [&] { return physloc->getPhysLocForNetworkAdapter("0000:16:00.0"); }},
                   {{"adapter in a slot", pl(3, 1, 3, 1, NA, 4, NA, NA), bytes(3, 1, 3, 1, NA, 4, NA, NA)},
                    [&] { return physloc->getPhysLocForNetworkAdapter(io); }},
                   {{"box 2 bay 3 is chassis bay 11", pl(56, 1, 3, 1, NA, 11, NA, 4), bytes(56, 1, 3, 1, NA, 11, NA, 4)},
                    [&] { return physloc->getPhysLocForChassisDriveSlot(io, 2, 3); }},
                   {{"box 3", kAllF, ""}, [&] { return physloc->getPhysLocForChassisDriveSlot(io, 3, 1); }},
                   {{"bay 9", kAllF, ""}, [&] { return physloc->getPhysLocForChassisDriveSlot(io, 1, 9); }},
                   {{"external drive", pl(69, 1, 3, 1, NA, 4, NA, NA), bytes(69, 1, 3, 1, NA, 4, NA, NA)},
                    [&] { return physloc->getPhysLocForExternalDrive(io); }},
                   {{"backplane box 2", pl(64, 1, 3, 1, NA, 4, NA, 2), bytes(64, 1, 3, 1, NA, 4, NA, 2)},
                    [&] { return physloc->getPhysLocForChassisStorageBackplane(io, 2); }},
                   {{"no GeoID: no elements", kAllF, ""}, [&] { return physloc->getPhysLocForPCIDevice("0000:99:00.0"); }},
                   {{"invalid address", kAllF, ""}, [&] { return physloc->getPhysLocForNetworkAdapter("0000:5e:00"); }},
               });
}

TEST_F(PhysLocTest, GqNwEveryKindOfFru)
{
    vekPhysLocInterface* physloc =
        on(0, "[" + slot("Slot 2 r001i05s02", "0000:5e:00.0") + ", " + slot("LOM r001i05s00", "0000:16:00.0") + "]");
    ASSERT_NE(dynamic_cast<vekGQNWPhysLocInterface*>(physloc), nullptr);
    const std::string io = "0000:5e:00.0";
    expectRows("libvekloc2",
               {
                   {{"card", pl(3, 1, 5, NA, NA, 2, NA, NA), bytes(3, 1, 5, NA, NA, 2, NA, NA)},
                    [&] { return physloc->getPhysLocForPCIDevice(io); }},
                   {{"embedded adapter", pl(48, 1, 5, NA, NA, 0, NA, NA), bytes(48, 1, 5, NA, NA, 0, NA, NA)},
                    [&] { return physloc->getPhysLocForNetworkAdapter("0000:16:00.0"); }},
                   {{"bay 0", pl(45, 1, 5, NA, NA, 0, NA, 0), bytes(45, 1, 5, NA, NA, 0, NA, 0)},
                    [&] { return physloc->getPhysLocForChassisDriveSlot(io, 7, 0); }},
                   {{"bay 4", kAllF, ""}, [&] { return physloc->getPhysLocForChassisDriveSlot(io, 1, 4); }},
                   {{"external drive", pl(61, 1, 5, NA, NA, 2, NA, NA), bytes(61, 1, 5, NA, NA, 2, NA, NA)},
                    [&] { return physloc->getPhysLocForExternalDrive(io); }},
                   {{"backplane", pl(53, 1, 5, NA, NA, 2, NA, NA), bytes(53, 1, 5, NA, NA, 2, NA, NA)},
                    [&] { return physloc->getPhysLocForChassisStorageBackplane(io, 9); }},
               });
}

TEST_F(PhysLocTest, UnknownPlatformLoadsNothingAndSaysAllF)
{
    vekLogTail log(vekTestMainLogPath());
    vekPhysLocInterface* physloc = on(-1, kTrbSlots);
    ASSERT_NE(dynamic_cast<vekMockPhysLocInterface*>(physloc), nullptr);
    EXPECT_EQ(physloc->getPhysLocForPCIDevice("0000:5e:00.0"), kAllF);
    EXPECT_EQ(physloc->getPhysLocForChassisDriveSlot("0000:5e:00.0", 1, 1), kAllF);
    EXPECT_EQ(physloc->getPhysLocForDIMMSlot("DIMM_A1"), kAllF);
    EXPECT_EQ(physloc->getDecodedPhysLocLongFormat("0301030104FFFFFF"), "");
    EXPECT_TRUE(calls("libvekloc3").empty());
    EXPECT_TRUE(log.contains("Unable to determine platform type [-1]. Physical location will be reported by VEK as "
                             "FFFFFFFFFFFFFFFF for all FRUs."));
}

TEST_F(PhysLocTest, BrokenLibrariesFallBackToMock)
{
    vekLogTail log(vekTestMainLogPath());
    host.writeTable(2, "[]");
    host.services();
    vekPhysLocInterface* absent =
        vekPhysLocFactory::initializePhysLocInterface(__vekLMPhysLocInterface__getInstance, "libvekloc-absent.so", "LM");
    EXPECT_NE(dynamic_cast<vekMockPhysLocInterface*>(absent), nullptr);
    EXPECT_TRUE(log.contains("Failed to load physical locations library [libvekloc-absent.so]"));
    EXPECT_TRUE(log.contains("Physical location will be reported by VEK as FFFFFFFFFFFFFFFF for all FRUs."));

    const std::string broken = std::string(VEK_BINARY_DIR) + "/testtools/lib/broken/libvekloc_nosym.so";
    EXPECT_THROW(vekLMPhysLocInterface::getInstance(broken), vekPhysLoc::SymbolAddressNotFoundException);
    EXPECT_TRUE(log.contains("Failed to find address of symbol [physloc_get_string]"));
    EXPECT_THROW(vekLMPhysLocInterface::getInstance(""), vekPhysLoc::InvalidLibraryPathException);
}

TEST_F(PhysLocTest, DimmSlots)
{
    vekLogTail log(vekTestMainLogPath());
    vekPhysLocInterface* physloc = on(4, "[]");
    vekDimmGeoIDContainer& dimms = vekDimmGeoIDContainer::getInstance();
    // ESXi reports no DIMM topology: the map starts empty.
    EXPECT_TRUE(log.contains("Failure reported while discovering DIMM topology"));
    EXPECT_THROW(dimms.getGeoIDStr("P1-DIMMA1"), vekGeoIDExceptions::NoSuchDimmID);
    EXPECT_EQ(physloc->getPhysLocForDIMMSlot("P1-DIMMA1"), kAllF);

    std::string geoID = "r001u02_P1-ABCDE3 trailing";
    dimms.populateDimmTopologyMap("P1-DIMMA1", geoID);
    std::string broken = "r001u02_P1-abcde3";
    dimms.populateDimmTopologyMap("P1-DIMMB1", broken);
    EXPECT_EQ(dimms.getGeoIDStr("P1-DIMMA1"), "r001u02_P1-ABCDE3");
    EXPECT_EQ(dimms.getGeoIDInfo("P1-DIMMA1"), (std::vector<std::string>{"001", "02", "1", "ABCDE", "3"}));
    EXPECT_EQ(dimms.getDecodedGeoID("P1-DIMMA1").getType(), VEK_GEOID_TYPE_DIMM);
    EXPECT_THROW(dimms.getGeoIDStr("P1-DIMMB1"), vekGeoIDExceptions::NoSuchDimmID);

    // Channel E (4) and slot 3.
    EXPECT_EQ(physloc->getPhysLocForDIMMSlot("P1-DIMMA1"), pl(55, 1, 2, 1, NA, NA, 4, 3));
    EXPECT_EQ(calls("libvekloc3"), std::vector<std::string>{bytes(55, 1, 2, 1, NA, NA, 4, 3)});
}

} // namespace
