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
#include <sstream>
#include <string>
#include <vector>

namespace {

const std::string kAllF = "FFFFFFFFFFFFFFFF";
const int NA = 0xFF; // a field the system left as init left it

// The eight fields of a PL: type, rack, unit, partition, box, slot, DIMM
// channel, second slot. Type 0 (none of the system's): the encoder is not
// reached and the PL is all-F.
struct Fields {
    int f[8];
};
const Fields kNotReached{};

// The structure's 16 bytes in hexadecimal as the fake writes them down, or
// the fake's PL of the same fields.
std::string bytes(const Fields& v, const char* format = "%02x000000%02x%02xffff%02xff%02x%02x%02x%02xffff")
{
    char text[40];
    snprintf(text, sizeof text, format, v.f[0], v.f[1], v.f[2], v.f[3], v.f[4], v.f[5], v.f[6], v.f[7]);
    return text;
}
std::string pl(const Fields& v)
{
    return bytes(v, "%02X%02X%02X%02X%02X%02X%02X%02X");
}

const auto slot = vekLocationTestHost::slot;

class PhysLocTest : public vekRootTest {
protected:
    void on(int platform, const std::vector<std::string>& records)
    {
        host.use(platform, records);
        root.makeDirectory("/sim");
        physloc = vekPhysLocFactory::getPhysLocInterface();
    }

    // What the encoder received since the last look, one structure a line.
    std::vector<std::string> calls(const std::string& library)
    {
        const std::string file = "/sim/" + library + ".calls";
        std::istringstream in(root.exists(file) ? root.readFile(file) : "");
        std::vector<std::string> lines;
        for (std::string line; std::getline(in, line);) {
            lines.push_back(line);
        }
        std::remove(root.hostPath(file).c_str());
        return lines;
    }

    // One FRU: what the system is asked, and the fields the encoder must
    // receive and return.
    using Ask = std::function<std::string()>;
    struct Row {
        const char* what;
        Ask ask;
        Fields fields;
    };
    // Each row runs in turn, so the bytes it caused are its own.
    void expectRows(const std::string& library, const std::vector<Row>& rows)
    {
        calls(library);
        for (const Row& row : rows) {
            SCOPED_TRACE(row.what);
            const bool reached = row.fields.f[0] != 0;
            EXPECT_EQ(row.ask(), reached ? pl(row.fields) : kAllF);
            const std::vector<std::string> none, one{bytes(row.fields)};
            EXPECT_EQ(calls(library), reached ? one : none);
        }
    }
    Ask device(std::string pci) { return [this, pci] { return physloc->getPhysLocForPCIDevice(pci); }; }
    Ask adapter(std::string pci) { return [this, pci] { return physloc->getPhysLocForNetworkAdapter(pci); }; }
    Ask external(std::string pci) { return [this, pci] { return physloc->getPhysLocForExternalDrive(pci); }; }
    Ask drive(std::string pci, int box, int bay)
    {
        return [this, pci, box, bay] { return physloc->getPhysLocForChassisDriveSlot(pci, box, bay); };
    }
    Ask backplane(std::string pci, int box)
    {
        return [this, pci, box] { return physloc->getPhysLocForChassisStorageBackplane(pci, box); };
    }

    vekPhysLocInterface* physloc = nullptr;
    vekLocationTestHost host{root};
};

const std::vector<std::string> kTrbSlots = {
    slot("Slot 4 r001u03p1i04", "0000:5e:00.0"), slot("Onboard SATA r001u03p1i00", "0000:00:17.0"),
    slot("OCP r001u03p1o1", "0000:2a:00.0"), slot("NVMe Bay r001u03p1x1y02", "0000:87:00.0"),
    slot("Drive r001u03p1i04x2y07", "0000:88:00.0")};

TEST_F(PhysLocTest, TrbEveryKindOfFruAndTheLibrarysRefusals)
{
    vekLogTail log(vekTestMainLogPath());
    on(4, kTrbSlots);
    ASSERT_NE(dynamic_cast<vekTRBPhysLocInterface*>(physloc), nullptr);
    const std::string io = "0000:5e:00.0", onboard = "0000:00:17.0", ocp = "0000:2a:00.0";
    expectRows("libvekloc3", {
        {"I/O slot card", device(io), {3, 1, 3, 1, NA, 4, NA, NA}},
        {"network adapter", adapter(io), {3, 1, 3, 1, NA, 4, NA, NA}},
        {"OCP: rack and unit only", device(ocp), {7, 1, 3, NA, NA, NA, NA, NA}},
        {"CPU NVMe bay", device("0000:87:00.0"), {70, 1, 3, 1, 1, 2, NA, NA}},
        {"drive behind a slot", device("0000:88:00.0"), {71, 1, 3, 1, 2, 7, NA, 4}},
        {"on-board drive box 1 bay 12", drive(onboard, 1, 12), {71, 1, 3, 1, 1, 12, NA, NA}},
        {"drive behind slot card", drive(io, 2, 3), {59, 1, 3, 1, 2, 3, NA, 4}},
        {"bay 13", drive(io, 1, 13), kNotReached},
        {"box 4", drive(io, 4, 1), kNotReached},
        {"drive slot on OCP", drive(ocp, 1, 1), kNotReached},
        {"external drive", external(io), {69, 1, 3, 1, NA, 4, NA, NA}},
        {"external drive on OCP", external(ocp), kNotReached},
        {"backplane box 3", backplane(io, 3), {43, 1, 3, 1, NA, 4, NA, 3}},
        {"backplane box 0", backplane(io, 0), kNotReached},
        {"no GeoID", device("0000:99:00.0"), kNotReached},
        {"invalid address", device("5e:00.0"), kNotReached},
    });
    EXPECT_TRUE(log.contains("Invalid internal box # [1] and/or drive bay # [13] for chassis drive PL encoding at PCI "
                             "address [0000:5e:00.0]."));
    EXPECT_TRUE(log.contains("PCI address [0000:2a:00.0]: Unexpected GeoID type [4] for chassis drive slot! (GeoID: "
                             "[r001u03p1o1])"));
    EXPECT_TRUE(log.contains("PCI address [0000:99:00.0]: Unsupported/Unrecognized GeoID Type: [0 - ]! Invalid PL will "
                             "be reported."));

    // Decoding goes through the library too; what the library refuses ends
    // in an exception for a decode and in all-F for an encode.
    const std::string code = physloc->getPhysLocForPCIDevice("0000:5e:00.0");
    EXPECT_EQ(physloc->getDecodedPhysLocLongFormat(code), "T3 R1 U3 P1 B255 S4 D255 X255");
    // The all-F code is a PL like any other to the library.
    EXPECT_EQ(physloc->getDecodedPhysLocLongFormat(kAllF), "T255 R255 U255 P255 B255 S255 D255 X255");
    EXPECT_THROW(physloc->getDecodedPhysLocLongFormat("FFFFFFFFFFFFFFF"), vekPhysLoc::InvalidPLException);
    root.writeFile("/sim/libvekloc3.json", R"({"get_string": 7})");
    try {
        physloc->getDecodedPhysLocLongFormat(code);
        FAIL() << "a refused decode must throw";
    } catch (const vekPhysLoc::PLAPIFailureException& e) {
        EXPECT_STREQ(e.what(), "PL API failure: [physloc_get_string failed (7)]");
    }
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
    on(2, {slot("Slot 4 r001u03p1i04", "0000:5e:00.0"), slot("LOM r001u03p1i00", "0000:16:00.0")});
    ASSERT_NE(dynamic_cast<vekLMPhysLocInterface*>(physloc), nullptr);
    const std::string io = "0000:5e:00.0";
    expectRows("libvekloc1", {
        {"card", device(io), {3, 1, 3, 1, NA, 4, NA, NA}},
        {"embedded adapter", adapter("0000:16:00.0"), {59, 1, 3, 1, NA, 0, NA, NA}},
        {"adapter in a slot", adapter(io), {3, 1, 3, 1, NA, 4, NA, NA}},
        {"box 2 bay 3 is chassis bay 11", drive(io, 2, 3), {56, 1, 3, 1, NA, 11, NA, 4}},
        {"box 3", drive(io, 3, 1), kNotReached},
        {"bay 9", drive(io, 1, 9), kNotReached},
        {"external drive", external(io), {69, 1, 3, 1, NA, 4, NA, NA}},
        {"backplane box 2", backplane(io, 2), {64, 1, 3, 1, NA, 4, NA, 2}},
        {"no GeoID: no elements", device("0000:99:00.0"), kNotReached},
        {"invalid address", adapter("0000:5e:00"), kNotReached},
    });
}

TEST_F(PhysLocTest, GqNwEveryKindOfFru)
{
    on(0, {slot("Slot 2 r001i05s02", "0000:5e:00.0"), slot("LOM r001i05s00", "0000:16:00.0")});
    ASSERT_NE(dynamic_cast<vekGQNWPhysLocInterface*>(physloc), nullptr);
    const std::string io = "0000:5e:00.0";
    expectRows("libvekloc2", {
        {"card", device(io), {3, 1, 5, NA, NA, 2, NA, NA}},
        {"embedded adapter", adapter("0000:16:00.0"), {48, 1, 5, NA, NA, 0, NA, NA}},
        {"bay 0", drive(io, 7, 0), {45, 1, 5, NA, NA, 0, NA, 0}},
        {"bay 4", drive(io, 1, 4), kNotReached},
        {"external drive", external(io), {61, 1, 5, NA, NA, 2, NA, NA}},
        {"backplane", backplane(io, 9), {53, 1, 5, NA, NA, 2, NA, NA}},
    });
}

// An unknown platform, or a library that cannot be used, leaves the mock:
// all-F for every FRU.
TEST_F(PhysLocTest, UnknownPlatformOrBrokenLibraryGivesAllF)
{
    vekLogTail log(vekTestMainLogPath());
    on(-1, kTrbSlots);
    ASSERT_NE(dynamic_cast<vekMockPhysLocInterface*>(physloc), nullptr);
    expectRows("libvekloc3", {{"card", device("0000:5e:00.0"), kNotReached},
                              {"DIMM", [&] { return physloc->getPhysLocForDIMMSlot("DIMM_A1"); }, kNotReached}});
    EXPECT_EQ(physloc->getDecodedPhysLocLongFormat("0301030104FFFFFF"), "");
    EXPECT_TRUE(log.contains("Unable to determine platform type [-1]. Physical location will be reported by VEK as "
                             "FFFFFFFFFFFFFFFF for all FRUs."));

    vekPhysLocInterface* absent = vekPhysLocFactory::initializePhysLocInterface(
        __vekLMPhysLocInterface__getInstance, "libvekloc-absent.so", "LM");
    EXPECT_NE(dynamic_cast<vekMockPhysLocInterface*>(absent), nullptr);
    EXPECT_TRUE(log.contains("Failed to load physical locations library [libvekloc-absent.so]"));
    const std::string broken = std::string(VEK_BINARY_DIR) + "/testtools/lib/broken/libvekloc_nosym.so";
    EXPECT_THROW(vekLMPhysLocInterface::getInstance(broken), vekPhysLoc::SymbolAddressNotFoundException);
    EXPECT_TRUE(log.contains("Failed to find address of symbol [physloc_get_string]"));
    EXPECT_THROW(vekLMPhysLocInterface::getInstance(""), vekPhysLoc::InvalidLibraryPathException);
}

TEST_F(PhysLocTest, DimmSlots)
{
    vekLogTail log(vekTestMainLogPath());
    on(4, {});
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
    expectRows("libvekloc3", {{"DIMM", [&] { return physloc->getPhysLocForDIMMSlot("P1-DIMMA1"); },
                                {55, 1, 2, 1, NA, NA, 4, 3}}});
}

} // namespace
