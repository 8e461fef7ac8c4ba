// The SMBIOS access and its decoders, on tables made by the project's
// generator (testtools/smbiosgen), checked against dmidecode reading the same
// tables.

#include "DmiOnboardDevice.h"
#include "DmiSystemSlot.h"
#include "SMBIOSVMware.h"
#include "vekDiskEmulator.h"
#include "vekSmbiosTable.h"
#include "vekTestRoot.h"

#include <gtest/gtest.h>

#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <map>
#include <sstream>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

namespace {

const char kLinuxTable[] = "/sys/firmware/dmi/tables/DMI";

// The records of one type, as the platform function hands them out.
struct Records {
    int result = -1;
    int count = 0;
    std::unique_ptr<unsigned char, decltype(&free)> block{nullptr, free};
};

Records fetch(int type)
{
    Records r;
    unsigned char* block = nullptr;
    r.result = getSmbiosRecordsByType(type, &block, &r.count);
    r.block.reset(block);
    return r;
}

// One structure as dmidecode prints it: its header and its "Key: value" lines.
struct DmiBlock {
    unsigned handle = 0, type = 0, length = 0;
    std::map<std::string, std::string> attributes;
    std::string at(const std::string& key) const { return attributes.count(key) ? attributes.at(key) : "<absent>"; }
};

std::string pciText(unsigned segment, unsigned bus, unsigned devfn)
{
    char text[32];
    snprintf(text, sizeof(text), "%04x:%02x:%02x.%x", segment, bus, devfn >> 3, devfn & 7);
    return text;
}

// What an operation throws; empty when it throws nothing.
template <typename Operation>
std::string thrown(Operation operation)
{
    try {
        operation();
    } catch (const std::exception& e) {
        return e.what();
    }
    return "";
}

class SmbiosTest : public vekRootTest {
protected:
    // Makes the host's table (and a dump of it for dmidecode) from a description.
    void generate(const std::string& description, const std::string& tablePath = kLinuxTable) const
    {
        root.writeFile("/tmp/smbios.json", description);
        root.makeDirectory(tablePath.substr(0, tablePath.rfind('/')));
        const vekProgramResult made =
            vekRunProgram({VEK_BINARY_DIR "/testtools/smbiosgen/smbiosgen", "--table", root.hostPath(tablePath),
                           "--dump", root.hostPath("/tmp/smbios.dump"), root.hostPath("/tmp/smbios.json")});
        ASSERT_EQ(made.status, 0) << made.output;
    }

    // dmidecode's reading of the dump, structures of one type in table order.
    std::vector<DmiBlock> dmidecode(int type) const
    {
        std::istringstream lines(
            vekRunProgram({"dmidecode", "--from-dump", root.hostPath("/tmp/smbios.dump"), "-t", std::to_string(type)})
                .output);
        std::vector<DmiBlock> blocks;
        for (std::string text; std::getline(lines, text);) {
            DmiBlock block;
            const size_t colon = text.find(": ");
            if (sscanf(text.c_str(), "Handle 0x%x, DMI type %u, %u bytes", &block.handle, &block.type,
                       &block.length) == 3) {
                blocks.push_back(block);
            } else if (!blocks.empty() && text.size() > 1 && text[0] == '\t' && text[1] != '\t' &&
                       colon != std::string::npos) {
                blocks.back().attributes[text.substr(1, colon - 1)] = text.substr(colon + 2);
            }
        }
        return blocks;
    }
};

const char kRackServer[] = R"({
  "smbiosVersion": "3.2.0",
  "structures": [
    {"type": 0, "vendor": "Zolvek", "version": "T4.0.1", "releaseDate": "01/02/2025"},
    {"type": 1, "manufacturer": "Zolvek", "product": "ZR4 Rack Server", "serial": "S-1",
     "uuid": "3f1c2a9e-5b7d-4e21-9c3a-8d2f6b1e0a47", "sku": "SKU-9", "family": "ZR4"},
    {"type": 11, "strings": ["4417PID11030201", "second string"]},
    {"type": 9, "designation": "PCIe Slot 1 r001u02p3i01", "slotId": 1, "address": "0000:16:00.0"},
    {"type": 9, "designation": "PCIe Slot 7 r001u02p3i07", "slotId": 7, "address": "0001:c2:1f.6",
     "baseDataBusWidth": 16, "peers": [{"address": "0001:c2:1f.7", "width": 8}]},
    {"type": 9, "designation": "Legacy Slot 3", "slotId": 3, "currentUsage": 3, "length": 13},
    {"type": 9, "designation": "Slot Without Device", "slotId": 9, "segment": "0xffff", "bus": 255, "devfn": 255},
    {"type": 41, "designation": "Onboard LAN r001u02p3i00", "deviceType": 5, "instance": 2, "address": "0000:18:00.1"},
    {"type": 41, "designation": "Onboard SATA", "deviceType": 9, "enabled": false, "instance": 1,
     "address": "0000:e3:02.3"},
    {"type": 9, "designation": "PCIe Slot 2 r001u02p3i02", "slotId": 2, "address": "0000:3b:00.0"}
  ]
})";

TEST_F(SmbiosTest, TableAgreesWithDmidecode)
{
    generate(kRackServer);
    Records slotRecords = fetch(DMI_SYSTEM_SLOT_TYPE);
    ASSERT_EQ(slotRecords.result, 0);
    const std::vector<DmiSystemSlot> slots = DmiSystemSlot_DecodeAll(slotRecords.block.get(), slotRecords.count);
    std::vector<DmiBlock> expected = dmidecode(DMI_SYSTEM_SLOT_TYPE);
    ASSERT_EQ(slots.size(), 5u);
    ASSERT_EQ(expected.size(), 5u);
    for (size_t i = 0; i < slots.size(); ++i) {
        const DmiSystemSlot& slot = slots[i];
        SCOPED_TRACE(expected[i].at("Designation"));
        EXPECT_EQ(slot.handle, expected[i].handle);
        EXPECT_EQ(std::string(slot.designation), expected[i].at("Designation"));
        EXPECT_EQ(std::to_string(slot.slotId), expected[i].at("ID"));
        EXPECT_EQ(slot.currentUsage == 3 ? "Available" : "In Use", expected[i].at("Current Usage"));
        // dmidecode leaves out the address of a short record and of one that names no device.
        const bool noDevice = slot.segmentGroupNum == 0xffff && slot.busNum == 0xff && slot.devFuncNum == 0xff;
        EXPECT_EQ(noDevice ? "<absent>" : pciText(slot.segmentGroupNum, slot.busNum, slot.devFuncNum),
                  expected[i].at("Bus Address"));
    }

    Records onboard = fetch(DMI_ONBOARD_DEVICE_TYPE);
    const std::vector<DmiOnboardDevice> devices = DmiOnboardDevice_DecodeAll(onboard.block.get(), onboard.count);
    expected = dmidecode(DMI_ONBOARD_DEVICE_TYPE);
    ASSERT_EQ(devices.size(), 2u);
    ASSERT_EQ(expected.size(), 2u);
    const std::map<int, std::string> kinds = {{5, "Ethernet"}, {9, "SATA Controller"}};
    for (size_t i = 0; i < devices.size(); ++i) {
        const DmiOnboardDevice& device = devices[i];
        SCOPED_TRACE(expected[i].at("Reference Designation"));
        EXPECT_EQ(device.handle, expected[i].handle);
        EXPECT_EQ(std::string(device.designation), expected[i].at("Reference Designation"));
        EXPECT_EQ(kinds.at(device.deviceType), expected[i].at("Type"));
        EXPECT_EQ(device.enabled ? "Enabled" : "Disabled", expected[i].at("Status"));
        EXPECT_EQ(std::to_string(device.deviceTypeInstance), expected[i].at("Type Instance"));
        EXPECT_EQ(pciText(device.segmentGroupNum, device.busNum, device.devFuncNum), expected[i].at("Bus Address"));
    }

    SMBIOSVMware smbios;
    const std::vector<DmiBlock> system = dmidecode(1);
    const std::vector<DmiBlock> oem = dmidecode(11);
    ASSERT_EQ(system.size() + oem.size(), 2u);
    EXPECT_EQ(smbios.getManufacturer(), system[0].at("Manufacturer"));
    EXPECT_EQ(smbios.platformFamily(), system[0].at("Family"));
    EXPECT_EQ(smbios.platformIdentifier(), oem[0].at("String 1"));
}

// A 13-byte slot record has no address: the decoder must not read past it
// nor write the fields it does not have.
TEST_F(SmbiosTest, ShortSlotRecordLeavesTheLastThreeFieldsAlone)
{
    generate(kRackServer);
    Records records = fetch(DMI_SYSTEM_SLOT_TYPE);
    ASSERT_GE(records.count, 3);
    const unsigned char* shortRecord = vekSmbios::nextStructure(vekSmbios::nextStructure(records.block.get()));
    DmiSystemSlot slots[2];
    memset(slots, 0xa5, sizeof(slots));
    ASSERT_EQ(DmiSystemSlot_Decode(slots, shortRecord, 1), 0);
    EXPECT_STREQ(slots[1].designation, "Legacy Slot 3");
    EXPECT_EQ(slots[1].currentUsage, 3);
    EXPECT_EQ(slots[1].segmentGroupNum, 0xa5a5);
    EXPECT_EQ(slots[1].busNum, 0xa5);
    EXPECT_EQ(slots[1].devFuncNum, 0xa5);
    EXPECT_EQ(slots[0].handle, 0xa5a5);
    EXPECT_EQ(DmiSystemSlot_Decode(nullptr, shortRecord, 0), -1);
    EXPECT_EQ(DmiSystemSlot_Decode(slots, nullptr, 0), -1);

    const std::string longName(300, 'd');
    generate(R"({"structures": [{"type": 9, "designation": ")" + longName + R"(", "address": "0000:01:00.0"}]})");
    Records cut = fetch(DMI_SYSTEM_SLOT_TYPE);
    EXPECT_EQ(std::string(DmiSystemSlot_DecodeAll(cut.block.get(), cut.count).at(0).designation),
              longName.substr(0, DMI_DESIGNATION_SIZE - 1));
}

// The identifier is the first string of the first OEM record that begins
// with "4417PID"; the platform code follows from it.
TEST_F(SmbiosTest, PlatformOfEachIdentifier)
{
    const struct {
        const char* oemRecords;
        const char* identifier;
        int platform; // -2: "Couldnot Fetch the Platform details"
    } cases[] = {
        {R"({"type": 11, "strings": ["4417PID11020101", "x"]})", "4417PID11020101", 0},
        {R"({"type": 11, "strings": ["4417PID10020001"]})", "4417PID10020001", 2},
        {R"({"type": 11, "strings": ["4417PID11030202"]})", "4417PID11030202", -1},
        {R"({"type": 11, "strings": ["4417PID11030201 "]})", "4417PID11030201 ", -1},
        {R"({"type": 11, "strings": ["Board 7", "4417PID11020101"]}, {"type": 11, "strings": ["4417PID10020001"]},
            {"type": 11, "strings": ["4417PID11030201"]})",
         "4417PID10020001", 2},
        {R"({"type": 11, "strings": ["Board 7", "4417PID11030201"]})", "", -2},
        {R"({"type": 11, "strings": ["4417pid11030201"]})", "", -2},
    };
    for (const auto& c : cases) {
        generate(std::string(R"({"structures": [{"type": 1, "manufacturer": "M", "family": "F"}, )") + c.oemRecords +
                 "]}");
        SMBIOSVMware smbios;
        EXPECT_EQ(smbios.platformIdentifier(), c.identifier) << c.oemRecords;
        int platform = -3;
        EXPECT_EQ(thrown([&] { platform = smbios.platform(); }),
                  c.platform == -2 ? "Couldnot Fetch the Platform details" : "")
            << c.oemRecords;
        EXPECT_EQ(platform, c.platform == -2 ? -3 : c.platform) << c.oemRecords;
    }
}

TEST_F(SmbiosTest, NoTableMeansNothingLoadedUntilItAppears)
{
    vekLogTail mainLog(vekTestMainLogPath());
    SMBIOSVMware smbios;
    EXPECT_THROW(smbios.platformFamily(), smbios_exceptions::not_initialized);
    EXPECT_THROW(smbios.platform(), smbios_exceptions::not_initialized);
    unsigned char* records = reinterpret_cast<unsigned char*>(&smbios);
    int count = 7;
    EXPECT_EQ(smbios.FetchSmbiosRecordsByType(9, &records, &count), ENOENT);
    EXPECT_EQ(records, nullptr);
    EXPECT_EQ(count, 0);
    EXPECT_TRUE(mainLog.contains("Unable to read the SMBIOS OEM strings: 2 - ")) << mainLog.newText();

    // The ESXi table is preferred to the Linux one.
    generate(R"({"structures": [{"type": 1, "family": "Linux"}, {"type": 11, "strings": ["4417PID10020001"]}]})");
    generate(R"({"structures": [{"type": 1, "family": "ESXi"}, {"type": 11, "strings": ["4417PID11020102"]}]})",
             "/vmfs/devices/char/mem/smbios");
    EXPECT_EQ(smbios.LoadSMBIOS(), 0);
    EXPECT_EQ(smbios.platformFamily(), "ESXi");

    // Family cut off by an older, shorter type 1; no manufacturer string.
    generate(R"({"structures": [{"type": 1, "product": "P", "family": "F", "length": 25},
                                {"type": 1, "manufacturer": "Second", "family": "Second"}]})",
             "/vmfs/devices/char/mem/smbios");
    SMBIOSVMware shortSystem;
    EXPECT_EQ(thrown([&] { shortSystem.platformFamily(); }), "Couldnot Fetch the family details");
    EXPECT_EQ(thrown([&] { shortSystem.getManufacturer(); }), "Couldnot Fetch the manufacturer details");
}

TEST_F(SmbiosTest, BrokenTableKeepsWhatCameBefore)
{
    generate(kRackServer);
    const std::string table = root.readFile(kLinuxTable);
    Records all = fetch(DMI_SYSTEM_SLOT_TYPE);
    const unsigned char* third = vekSmbios::nextStructure(vekSmbios::nextStructure(all.block.get()));
    const size_t thirdOffset = table.find(std::string(reinterpret_cast<const char*>(third), 4));
    ASSERT_NE(thirdOffset, std::string::npos);
    std::string shortHeader = table;
    shortHeader[thirdOffset + 1] = 2; // claims fewer bytes than its own header
    const struct {
        std::string table;
        const char* logged;
    } cases[] = {{table.substr(0, thirdOffset + 8), "SMBIOS table is truncated at offset"},
                 {shortHeader, "SMBIOS table is broken at offset"}};
    for (const auto& c : cases) {
        vekLogTail mainLog(vekTestMainLogPath());
        root.writeFile(kLinuxTable, c.table);
        Records records = fetch(DMI_SYSTEM_SLOT_TYPE);
        EXPECT_EQ(records.result, 0);
        EXPECT_EQ(records.count, 2);
        EXPECT_TRUE(mainLog.contains(c.logged)) << mainLog.newText();
    }
    root.writeFile(kLinuxTable, "");
    EXPECT_EQ(fetch(DMI_SYSTEM_SLOT_TYPE).count, 0);

    generate(R"({"endOfTable": false, "structures": [{"type": 9, "designation": "before", "address": "0000:01:00.0"},
        {"type": 127}, {"type": 9, "designation": "after", "address": "0000:02:00.0"}]})");
    Records ended = fetch(DMI_SYSTEM_SLOT_TYPE);
    ASSERT_EQ(ended.count, 1);
    EXPECT_EQ(dmidecode(DMI_SYSTEM_SLOT_TYPE).size(), 1u);
    EXPECT_EQ(vekSmbios::structureString(ended.block.get(), 1), "before");
    EXPECT_EQ(vekSmbios::structureString(ended.block.get(), 2), "");
}

TEST_F(SmbiosTest, InitHoldsTheTableUntilTheLastDeinit)
{
    EXPECT_EQ(SmBiosInit(), 1);
    generate(kRackServer);
    ASSERT_EQ(SmBiosInit(), 0);
    ASSERT_EQ(SmBiosInit(), 0);
    ASSERT_EQ(unlink(root.hostPath(kLinuxTable).c_str()), 0);
    EXPECT_EQ(fetch(DMI_SYSTEM_SLOT_TYPE).count, 5);
    SmBiosDeinit();
    EXPECT_EQ(fetch(DMI_SYSTEM_SLOT_TYPE).count, 5);
    SmBiosDeinit();
    EXPECT_EQ(fetch(DMI_SYSTEM_SLOT_TYPE).result, ENOENT);
    SmBiosDeinit(); // one too many does no harm
    EXPECT_EQ(fetch(DMI_SYSTEM_SLOT_TYPE).result, ENOENT);
}

// The bundled rack server's table is the generator's output of the
// description beside it, and names the platform TRB.
TEST_F(SmbiosTest, BundledRackServerTable)
{
    generate(vekBundledProfileFile("sys/firmware/dmi/tables/DMI.json"));
    ASSERT_EQ(root.readFile(kLinuxTable), vekBundledProfileFile("sys/firmware/dmi/tables/DMI"))
        << "regenerate DMI from DMI.json";
    SMBIOSVMware smbios;
    EXPECT_EQ(smbios.platform(), 4);
}

} // namespace
