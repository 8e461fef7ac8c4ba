// The SMBIOS access and its decoders, on tables made by the project's
// generator (testtools/smbiosgen), checked against dmidecode reading the same
// tables.

#include "DmiOnboardDevice.h"
#include "DmiSystemSlot.h"
#include "SMBIOSVMware.h"
#include "vekSmbiosTable.h"
#include "vekTestRoot.h"

#include <gtest/gtest.h>

#include <fcntl.h>
#include <sys/file.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <map>
#include <memory>
#include <sstream>
#include <stdexcept>
#include <string>
#include <vector>

namespace {

const std::string kGenerator = std::string(VEK_BINARY_DIR) + "/testtools/smbiosgen/smbiosgen";
const std::string kProfile = std::string(VEK_SIMHOST_DIR) + "/profiles/rack-type4";
const char kLinuxTable[] = "/sys/firmware/dmi/tables/DMI";
const char kEsxiTable[] = "/vmfs/devices/char/mem/smbios";
const char kDump[] = "/tmp/smbios.dump";

struct FreeDeleter {
    void operator()(unsigned char* block) const { free(block); }
};

// The records of one type, as the platform function hands them out.
struct Records {
    int result = -1;
    int count = 0;
    std::unique_ptr<unsigned char, FreeDeleter> block;
};

Records fetch(int type)
{
    Records r;
    unsigned char* block = nullptr;
    r.result = getSmbiosRecordsByType(type, &block, &r.count);
    r.block.reset(block);
    return r;
}

// One structure as dmidecode prints it.
struct DmiBlock {
    unsigned handle = 0;
    unsigned type = 0;
    unsigned length = 0;
    std::map<std::string, std::string> attributes;

    bool has(const std::string& key) const { return attributes.count(key) != 0; }
    std::string at(const std::string& key) const { return has(key) ? attributes.at(key) : "<absent>"; }
};

std::string slurp(const std::string& path)
{
    std::ifstream in(path, std::ios::binary);
    std::stringstream text;
    text << in.rdbuf();
    return text.str();
}

std::string pciText(unsigned segment, unsigned bus, unsigned devfn)
{
    char text[32];
    snprintf(text, sizeof(text), "%04x:%02x:%02x.%x", segment, bus, devfn >> 3, devfn & 7);
    return text;
}

class SmbiosTest : public vekRootTest {
protected:
    // Makes the host's table (and a dump of it for dmidecode) from a
    // description; the table goes where the host exposes it.
    void generate(const std::string& description, const std::string& tablePath = kLinuxTable) const
    {
        root.writeFile("/tmp/smbios.json", description);
        root.makeDirectory(tablePath.substr(0, tablePath.rfind('/')));
        const std::string command = "'" + kGenerator + "' --table '" + root.hostPath(tablePath) + "' --dump '" +
                                    root.hostPath(kDump) + "' '" + root.hostPath("/tmp/smbios.json") + "' 2>'" +
                                    root.hostPath("/tmp/smbiosgen.err") + "'";
        ASSERT_EQ(system(command.c_str()), 0) << root.readFile("/tmp/smbiosgen.err");
    }

    // dmidecode's reading of the dump, structures of one type in table order.
    std::vector<DmiBlock> dmidecode(int type) const
    {
        const std::string command = "dmidecode --from-dump '" + root.hostPath(kDump) + "' -t " + std::to_string(type);
        std::vector<DmiBlock> blocks;
        FILE* pipe = popen(command.c_str(), "r");
        EXPECT_NE(pipe, nullptr);
        if (pipe == nullptr) {
            return blocks;
        }
        char line[4096];
        while (fgets(line, sizeof(line), pipe) != nullptr) {
            std::string text(line);
            if (!text.empty() && text.back() == '\n') {
                text.pop_back();
            }
            DmiBlock block;
            if (sscanf(text.c_str(), "Handle 0x%x, DMI type %u, %u bytes", &block.handle, &block.type,
                       &block.length) == 3) {
                blocks.push_back(block);
                continue;
            }
            const size_t colon = text.find(": ");
            if (!blocks.empty() && text.size() > 1 && text[0] == '\t' && text[1] != '\t' &&
                colon != std::string::npos) {
                blocks.back().attributes[text.substr(1, colon - 1)] = text.substr(colon + 2);
            }
        }
        EXPECT_EQ(pclose(pipe), 0) << command;
        return blocks;
    }
};

// What the process sends to syslog, received by standing in for /dev/log.
// Possible only where no syslog daemon owns /dev/log and /dev is writable;
// elsewhere available() is false. Cases of the suite that run at once take
// turns through a lock file.
class SyslogCapture {
public:
    SyslogCapture()
    {
        lock_ = open("/tmp/vek-test-devlog.lock", O_CREAT | O_RDWR | O_CLOEXEC, 0666);
        if (lock_ >= 0) {
            flock(lock_, LOCK_EX);
        }
        struct stat st;
        if (lstat(kDevLog, &st) == 0) {
            if (!S_ISSOCK(st.st_mode) || daemonListens()) {
                return;
            }
            unlink(kDevLog); // left by a case that died holding it
        }
        socket_ = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        strncpy(address.sun_path, kDevLog, sizeof(address.sun_path) - 1);
        bound_ = socket_ >= 0 && bind(socket_, reinterpret_cast<sockaddr*>(&address), sizeof(address)) == 0;
    }

    ~SyslogCapture()
    {
        if (bound_) {
            unlink(kDevLog);
        }
        if (socket_ >= 0) {
            close(socket_);
        }
        if (lock_ >= 0) {
            flock(lock_, LOCK_UN);
            close(lock_);
        }
    }

    SyslogCapture(const SyslogCapture&) = delete;
    SyslogCapture& operator=(const SyslogCapture&) = delete;

    bool available() const { return bound_; }

    // Every message received so far, one a line.
    std::string received()
    {
        char message[8192];
        ssize_t got;
        while ((got = recv(socket_, message, sizeof(message), MSG_DONTWAIT)) > 0) {
            received_.append(message, static_cast<size_t>(got));
            received_ += '\n';
        }
        return received_;
    }

private:
    static constexpr const char* kDevLog = "/dev/log";

    static bool daemonListens()
    {
        const int probe = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        strncpy(address.sun_path, kDevLog, sizeof(address.sun_path) - 1);
        const bool listens = connect(probe, reinterpret_cast<sockaddr*>(&address), sizeof(address)) == 0 ||
                             errno != ECONNREFUSED;
        close(probe);
        return listens;
    }

    int lock_ = -1;
    int socket_ = -1;
    bool bound_ = false;
    std::string received_;
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

TEST_F(SmbiosTest, SystemSlotsAgreeWithDmidecode)
{
    generate(kRackServer);
    Records records = fetch(DMI_SYSTEM_SLOT_TYPE);
    ASSERT_EQ(records.result, 0);
    const std::vector<DmiSystemSlot> slots = DmiSystemSlot_DecodeAll(records.block.get(), records.count);
    const std::vector<DmiBlock> expected = dmidecode(DMI_SYSTEM_SLOT_TYPE);
    ASSERT_EQ(records.count, 5);
    ASSERT_EQ(slots.size(), expected.size());
    for (size_t i = 0; i < slots.size(); ++i) {
        const DmiSystemSlot& slot = slots[i];
        const DmiBlock& block = expected[i];
        SCOPED_TRACE(block.at("Designation"));
        EXPECT_EQ(slot.type, DMI_SYSTEM_SLOT_TYPE);
        EXPECT_EQ(slot.handle, block.handle);
        EXPECT_EQ(slot.length, block.length);
        EXPECT_EQ(std::string(slot.designation), block.at("Designation"));
        EXPECT_EQ(std::to_string(slot.slotId), block.at("ID"));
        EXPECT_EQ(slot.currentUsage == 3 ? "Available" : "In Use", block.at("Current Usage"));
        // dmidecode leaves out the address of a short record and of one that
        // names no device (all ones).
        const bool noDevice = slot.segmentGroupNum == 0xffff && slot.busNum == 0xff && slot.devFuncNum == 0xff;
        if (noDevice) {
            EXPECT_FALSE(block.has("Bus Address"));
        } else {
            EXPECT_EQ(pciText(slot.segmentGroupNum, slot.busNum, slot.devFuncNum), block.at("Bus Address"));
        }
    }
    // In table order; the slot after the on-board devices comes last.
    EXPECT_STREQ(slots[1].designation, "PCIe Slot 7 r001u02p3i07");
    EXPECT_EQ(slots[1].length, 0x18);
    EXPECT_EQ(pciText(slots[1].segmentGroupNum, slots[1].busNum, slots[1].devFuncNum), "0001:c2:1f.6");
    EXPECT_EQ(slots[2].length, DMI_SYSTEM_SLOT_SHORT_LENGTH);
    EXPECT_STREQ(slots[4].designation, "PCIe Slot 2 r001u02p3i02");
}

TEST_F(SmbiosTest, OnboardDevicesAgreeWithDmidecode)
{
    generate(kRackServer);
    Records records = fetch(DMI_ONBOARD_DEVICE_TYPE);
    ASSERT_EQ(records.result, 0);
    const std::vector<DmiOnboardDevice> devices = DmiOnboardDevice_DecodeAll(records.block.get(), records.count);
    const std::vector<DmiBlock> expected = dmidecode(DMI_ONBOARD_DEVICE_TYPE);
    ASSERT_EQ(devices.size(), 2u);
    ASSERT_EQ(devices.size(), expected.size());
    const std::map<int, std::string> kinds = {{5, "Ethernet"}, {9, "SATA Controller"}};
    for (size_t i = 0; i < devices.size(); ++i) {
        const DmiOnboardDevice& device = devices[i];
        const DmiBlock& block = expected[i];
        SCOPED_TRACE(block.at("Reference Designation"));
        EXPECT_EQ(device.handle, block.handle);
        EXPECT_EQ(std::string(device.designation), block.at("Reference Designation"));
        EXPECT_EQ(kinds.at(device.deviceType), block.at("Type"));
        EXPECT_EQ(device.enabled ? "Enabled" : "Disabled", block.at("Status"));
        EXPECT_EQ(std::to_string(device.deviceTypeInstance), block.at("Type Instance"));
        EXPECT_EQ(pciText(device.segmentGroupNum, device.busNum, device.devFuncNum), block.at("Bus Address"));
    }
    EXPECT_EQ(devices[1].deviceNum(), 2);
    EXPECT_EQ(devices[1].functionNum(), 3);
    EXPECT_EQ(devices[1].segmentGroupNum, 0x0000);
}

TEST_F(SmbiosTest, ShortSlotRecordLeavesTheLastThreeFieldsAlone)
{
    generate(kRackServer);
    Records records = fetch(DMI_SYSTEM_SLOT_TYPE);
    ASSERT_EQ(records.result, 0);
    ASSERT_GE(records.count, 3);
    const unsigned char* longRecord = records.block.get();
    const unsigned char* shortRecord = vekSmbios::nextStructure(vekSmbios::nextStructure(longRecord));
    ASSERT_EQ(shortRecord[vekSmbios::kLengthOffset], DMI_SYSTEM_SLOT_SHORT_LENGTH);

    DmiSystemSlot slots[2];
    memset(slots, 0xa5, sizeof(slots));
    ASSERT_EQ(DmiSystemSlot_Decode(slots, shortRecord, 1), 0);
    EXPECT_STREQ(slots[1].designation, "Legacy Slot 3");
    EXPECT_EQ(slots[1].slotId, 3);
    EXPECT_EQ(slots[1].currentUsage, 3);
    EXPECT_EQ(slots[1].slotCharacteristics2, 0x01);
    EXPECT_EQ(slots[1].segmentGroupNum, 0xa5a5);
    EXPECT_EQ(slots[1].busNum, 0xa5);
    EXPECT_EQ(slots[1].devFuncNum, 0xa5);
    // The neighbour in the array is not touched either.
    EXPECT_EQ(slots[0].handle, 0xa5a5);

    ASSERT_EQ(DmiSystemSlot_Decode(slots, longRecord, 0), 0);
    EXPECT_EQ(slots[0].segmentGroupNum, 0x0000);
    EXPECT_EQ(slots[0].busNum, 0x16);
    EXPECT_EQ(slots[0].devFuncNum, 0x00);

    EXPECT_EQ(DmiSystemSlot_Decode(nullptr, longRecord, 0), -1);
    EXPECT_EQ(DmiSystemSlot_Decode(slots, nullptr, 0), -1);
    DmiOnboardDevice devices[1];
    EXPECT_EQ(DmiOnboardDevice_Decode(devices, nullptr, 0), -1);
}

TEST_F(SmbiosTest, PrintLogsEveryField)
{
    generate(kRackServer);
    Records records = fetch(DMI_SYSTEM_SLOT_TYPE);
    ASSERT_EQ(records.result, 0);
    const std::vector<DmiSystemSlot> slots = DmiSystemSlot_DecodeAll(records.block.get(), records.count);
    vekLogTail debug(vekTestDebugLogPath());
    DmiSystemSlot_Print(slots[1]);
    EXPECT_TRUE(debug.contains("designation [PCIe Slot 7 r001u02p3i07]")) << debug.newText();
    EXPECT_TRUE(debug.contains("slot id [0x0007]"));
    EXPECT_TRUE(debug.contains("segment group [0x0001], bus [0xc2], device/function [0xfe]"));

    Records onboard = fetch(DMI_ONBOARD_DEVICE_TYPE);
    const std::vector<DmiOnboardDevice> devices = DmiOnboardDevice_DecodeAll(onboard.block.get(), onboard.count);
    DmiOnboardDevice_Print(devices[0]);
    EXPECT_TRUE(debug.contains("designation [Onboard LAN r001u02p3i00], device type [0x05] (enabled), instance [2]"))
        << debug.newText();
}

TEST_F(SmbiosTest, LongDesignationIsCutToFit)
{
    const std::string longName(300, 'd');
    generate(R"({"structures": [{"type": 9, "designation": ")" + longName + R"(", "address": "0000:01:00.0"}]})");
    Records records = fetch(DMI_SYSTEM_SLOT_TYPE);
    ASSERT_EQ(records.count, 1);
    const std::vector<DmiSystemSlot> slots = DmiSystemSlot_DecodeAll(records.block.get(), records.count);
    EXPECT_EQ(std::string(slots[0].designation), longName.substr(0, DMI_DESIGNATION_SIZE - 1));
    EXPECT_EQ(slots[0].busNum, 0x01);
}

TEST_F(SmbiosTest, SystemInformationAgreesWithDmidecode)
{
    generate(kRackServer);
    SMBIOSVMware smbios;
    const std::vector<DmiBlock> system = dmidecode(1);
    ASSERT_EQ(system.size(), 1u);
    EXPECT_EQ(smbios.getManufacturer(), system[0].at("Manufacturer"));
    EXPECT_EQ(smbios.platformFamily(), system[0].at("Family"));
    EXPECT_EQ(smbios.getManufacturer(), "Zolvek");
    EXPECT_EQ(smbios.platformFamily(), "ZR4");
    EXPECT_EQ(system[0].at("UUID"), "3f1c2a9e-5b7d-4e21-9c3a-8d2f6b1e0a47");

    const std::vector<DmiBlock> oem = dmidecode(11);
    ASSERT_EQ(oem.size(), 1u);
    EXPECT_EQ(smbios.platformIdentifier(), oem[0].at("String 1"));
    EXPECT_EQ(smbios.platform(), 4);
}

TEST_F(SmbiosTest, PlatformCodeOfEachIdentifier)
{
    const struct {
        const char* identifier;
        int code;
    } cases[] = {
        {"4417PID11020101", 0},  {"4417PID11020102", 1},   {"4417PID10020001", 2},
        {"4417PID11030201", 4},  {"4417PID11030202", -1},  {"4417PID11030201 ", -1},
        {"4417PID", -1},         {"4417PID110302010", -1},
    };
    for (const auto& c : cases) {
        generate(std::string(R"({"structures": [{"type": 1, "manufacturer": "M", "family": "F"},
                                                  {"type": 11, "strings": [")") +
                 c.identifier + R"(", "x"]}]})");
        SMBIOSVMware smbios;
        EXPECT_EQ(smbios.platform(), c.code) << "[" << c.identifier << "]";
        EXPECT_EQ(smbios.platformIdentifier(), c.identifier);
    }
}

TEST_F(SmbiosTest, IdentifierIsTheFirstStringOfTheFirstMatchingOemRecord)
{
    // The first OEM record holds no identifier; the second's first string is one;
    // a later record is not looked at.
    generate(R"({"structures": [
        {"type": 11, "strings": ["Board 7", "4417PID11020101"]},
        {"type": 11, "strings": ["4417PID10020001", "4417PID11030201"]},
        {"type": 11, "strings": ["4417PID11030201"]}]})");
    SMBIOSVMware smbios;
    EXPECT_EQ(smbios.platformIdentifier(), "4417PID10020001");
    EXPECT_EQ(smbios.platform(), 2);
}

TEST_F(SmbiosTest, NoIdentifierRaisesThePlatformError)
{
    for (const char* description : {
             R"({"structures": [{"type": 1, "manufacturer": "M"}, {"type": 11, "strings": ["Board 7", "4417PID11030201"]}]})",
             R"({"structures": [{"type": 1, "manufacturer": "M"}]})",
             R"({"structures": [{"type": 1, "manufacturer": "M"}, {"type": 11, "strings": ["4417pid11030201"]}]})",
         }) {
        generate(description);
        SMBIOSVMware smbios;
        EXPECT_EQ(smbios.platformIdentifier(), "");
        try {
            smbios.platform();
            ADD_FAILURE() << "no identifier in " << description;
        } catch (const smbios_exceptions::not_initialized&) {
            ADD_FAILURE() << "the table was there: " << description;
        } catch (const std::runtime_error& e) {
            EXPECT_STREQ(e.what(), "Couldnot Fetch the Platform details");
        }
    }
}

TEST_F(SmbiosTest, MissingSystemFieldsRaiseTheirErrors)
{
    // Family cut off by an older, shorter type 1; no manufacturer string.
    generate(R"({"structures": [{"type": 1, "product": "P", "family": "F", "length": 25},
                                {"type": 1, "manufacturer": "Second", "family": "Second"}]})");
    SMBIOSVMware smbios;
    try {
        smbios.platformFamily();
        ADD_FAILURE() << "the family lies past the record's length";
    } catch (const std::runtime_error& e) {
        EXPECT_STREQ(e.what(), "Couldnot Fetch the family details");
    }
    try {
        smbios.getManufacturer();
        ADD_FAILURE() << "the manufacturer is string number 0";
    } catch (const std::runtime_error& e) {
        EXPECT_STREQ(e.what(), "Couldnot Fetch the manufacturer details");
    }
}

TEST_F(SmbiosTest, NoTableMeansNothingLoaded)
{
    vekLogTail mainLog(vekTestMainLogPath());
    SMBIOSVMware smbios;
    EXPECT_THROW(smbios.platformFamily(), smbios_exceptions::not_initialized);
    EXPECT_THROW(smbios.getManufacturer(), smbios_exceptions::not_initialized);
    EXPECT_THROW(smbios.platform(), smbios_exceptions::not_initialized);
    EXPECT_EQ(smbios.platformIdentifier(), "");
    unsigned char* records = reinterpret_cast<unsigned char*>(&smbios);
    int count = 7;
    EXPECT_EQ(smbios.FetchSmbiosRecordsByType(9, &records, &count), ENOENT);
    EXPECT_EQ(records, nullptr);
    EXPECT_EQ(count, 0);
    EXPECT_TRUE(mainLog.contains("Unable to read the SMBIOS OEM strings: 2 - ")) << mainLog.newText();

    // The table appears later: loading again finds it.
    generate(kRackServer);
    EXPECT_EQ(smbios.LoadSMBIOS(), 0);
    EXPECT_EQ(smbios.platformFamily(), "ZR4");
}

TEST_F(SmbiosTest, FailedLoadWritesTheSyslogLine)
{
    SyslogCapture syslogs;
    if (!syslogs.available()) {
        GTEST_SKIP() << "a syslog daemon owns /dev/log here";
    }
    {
        SMBIOSVMware smbios;
        EXPECT_TRUE(syslogs.received().find("vek: Error starting SMBIOS table, Error : 2\n") != std::string::npos)
            << syslogs.received();
    }
    // A table without a type 1 record loads nothing either.
    generate(R"({"structures": [{"type": 11, "strings": ["4417PID11030201"]}]})");
    SMBIOSVMware smbios;
    const std::string expected = "vek: Error starting SMBIOS table, Error : " + std::to_string(ENODATA) + "\n";
    EXPECT_TRUE(syslogs.received().find(expected) != std::string::npos) << syslogs.received();
    EXPECT_THROW(smbios.platformFamily(), smbios_exceptions::not_initialized);
    EXPECT_EQ(smbios.platform(), 4);
}

TEST_F(SmbiosTest, EsxiTableIsPreferred)
{
    generate(R"({"structures": [{"type": 1, "family": "Linux"}, {"type": 11, "strings": ["4417PID10020001"]}]})");
    generate(R"({"structures": [{"type": 1, "family": "ESXi"}, {"type": 11, "strings": ["4417PID11020102"]}]})",
             kEsxiTable);
    SMBIOSVMware smbios;
    EXPECT_EQ(smbios.platformFamily(), "ESXi");
    EXPECT_EQ(smbios.platform(), 1);
    EXPECT_EQ(vekSmbios::tablePath(), root.hostPath(kEsxiTable));
}

TEST_F(SmbiosTest, BrokenTableKeepsWhatCameBefore)
{
    generate(kRackServer);
    const std::string table = root.readFile(kLinuxTable);
    Records all = fetch(DMI_SYSTEM_SLOT_TYPE);
    ASSERT_EQ(all.count, 5);
    // Cut inside the third slot record: the two before it stay.
    const unsigned char* third = vekSmbios::nextStructure(vekSmbios::nextStructure(all.block.get()));
    const std::string thirdDesignation = vekSmbios::structureString(third, third[4]);
    const size_t cut = table.find(thirdDesignation);
    ASSERT_NE(cut, std::string::npos);

    {
        vekLogTail mainLog(vekTestMainLogPath());
        root.writeFile(kLinuxTable, table.substr(0, cut + 3));
        Records records = fetch(DMI_SYSTEM_SLOT_TYPE);
        EXPECT_EQ(records.result, 0);
        EXPECT_EQ(records.count, 2);
        EXPECT_TRUE(mainLog.contains("SMBIOS table is truncated at offset")) << mainLog.newText();
        SMBIOSVMware smbios;
        EXPECT_EQ(smbios.platform(), 4);
    }
    {
        // A structure claiming fewer bytes than its header ends the walk.
        vekLogTail mainLog(vekTestMainLogPath());
        std::string broken = table;
        // Type, length and handle: the handle makes the header unique.
        const size_t thirdOffset = table.find(std::string(reinterpret_cast<const char*>(third), 4));
        ASSERT_NE(thirdOffset, std::string::npos);
        broken[thirdOffset + 1] = 2;
        root.writeFile(kLinuxTable, broken);
        Records records = fetch(DMI_SYSTEM_SLOT_TYPE);
        EXPECT_EQ(records.result, 0);
        EXPECT_EQ(records.count, 2);
        EXPECT_TRUE(mainLog.contains("SMBIOS table is broken at offset")) << mainLog.newText();
    }
    {
        // Nothing of the type at all: success with no records.
        root.writeFile(kLinuxTable, "");
        Records records = fetch(DMI_SYSTEM_SLOT_TYPE);
        EXPECT_EQ(records.result, 0);
        EXPECT_EQ(records.count, 0);
        EXPECT_EQ(records.block, nullptr);
    }
}

TEST_F(SmbiosTest, WalkStopsAtTheEndOfTable)
{
    generate(R"({"endOfTable": false, "structures": [
        {"type": 9, "designation": "before", "address": "0000:01:00.0"},
        {"type": 127},
        {"type": 9, "designation": "after", "address": "0000:02:00.0"}]})");
    Records records = fetch(DMI_SYSTEM_SLOT_TYPE);
    ASSERT_EQ(records.count, 1);
    EXPECT_EQ(dmidecode(DMI_SYSTEM_SLOT_TYPE).size(), 1u);
    EXPECT_EQ(vekSmbios::structureString(records.block.get(), 1), "before");
}

TEST_F(SmbiosTest, BadArguments)
{
    generate(kRackServer);
    int count = 0;
    unsigned char* records = nullptr;
    EXPECT_EQ(getSmbiosRecordsByType(9, nullptr, &count), EINVAL);
    EXPECT_EQ(getSmbiosRecordsByType(9, &records, nullptr), EINVAL);
    EXPECT_EQ(getSmbiosRecordsByType(256, &records, &count), EINVAL);
    EXPECT_EQ(getSmbiosRecordsByType(-1, &records, &count), EINVAL);
    EXPECT_EQ(records, nullptr);
}

TEST_F(SmbiosTest, InitHoldsTheTableUntilTheLastDeinit)
{
    errno = 0;
    EXPECT_EQ(SmBiosInit(), 1);
    EXPECT_EQ(errno, ENOENT);

    generate(kRackServer);
    ASSERT_EQ(SmBiosInit(), 0);
    ASSERT_EQ(SmBiosInit(), 0);
    // The host's table goes away: what was loaded still answers.
    ASSERT_EQ(unlink(root.hostPath(kLinuxTable).c_str()), 0);
    EXPECT_EQ(fetch(DMI_SYSTEM_SLOT_TYPE).count, 5);
    SmBiosDeinit();
    EXPECT_EQ(fetch(DMI_SYSTEM_SLOT_TYPE).count, 5);
    SmBiosDeinit();
    EXPECT_EQ(fetch(DMI_SYSTEM_SLOT_TYPE).result, ENOENT);
    SmBiosDeinit(); // one too many does no harm
    EXPECT_EQ(fetch(DMI_SYSTEM_SLOT_TYPE).result, ENOENT);
}

TEST_F(SmbiosTest, StringsOfAStructure)
{
    generate(R"({"structures": [{"type": 11, "strings": ["one", "two", "three"]}, {"type": 11, "strings": []}]})");
    Records records = fetch(11);
    ASSERT_EQ(records.count, 2);
    const unsigned char* first = records.block.get();
    EXPECT_EQ(vekSmbios::structureStrings(first), (std::vector<std::string>{"one", "two", "three"}));
    EXPECT_EQ(vekSmbios::structureString(first, 3), "three");
    EXPECT_EQ(vekSmbios::structureString(first, 4), "");
    EXPECT_EQ(vekSmbios::structureString(first, 0), "");
    const unsigned char* second = vekSmbios::nextStructure(first);
    EXPECT_EQ(vekSmbios::structureSize(second), 7u); // 5 bytes and the two NULs of an empty set
    EXPECT_TRUE(vekSmbios::structureStrings(second).empty());
    EXPECT_EQ(vekSmbios::structureString(second, 1), "");
}

TEST_F(SmbiosTest, GeneratorRefusesBadDescriptions)
{
    for (const char* description : {
             R"({"structures": [{"type": 9, "address": "0000:16:20.0"}]})",
             R"({"structures": [{"type": 9, "length": 3}]})",
             R"({"structures": [{"type": 11}]})",
             R"({"structures": [{"type": 200}]})",
             R"({"structures": [{"type": 1, "uuid": "not-a-uuid"}]})",
             R"({"structures": {}})",
             R"(not json)",
         }) {
        root.writeFile("/tmp/bad.json", description);
        const std::string command = "'" + kGenerator + "' --table '" + root.hostPath("/tmp/bad.table") + "' '" +
                                    root.hostPath("/tmp/bad.json") + "' 2>/dev/null";
        const int status = system(command.c_str());
        EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 1) << description;
    }
}

// The bundled rack server's table is the generator's output of the
// description beside it, names the platform TRB, and places the devices of
// the profile's PCI list.
TEST_F(SmbiosTest, BundledRackServerTable)
{
    const std::string tables = kProfile + "/sys/firmware/dmi/tables";
    generate(slurp(tables + "/DMI.json"));
    ASSERT_EQ(root.readFile(kLinuxTable), slurp(tables + "/DMI")) << "regenerate DMI from DMI.json";

    SMBIOSVMware smbios;
    EXPECT_EQ(smbios.platform(), 4);
    EXPECT_FALSE(smbios.getManufacturer().empty());
    EXPECT_FALSE(smbios.platformFamily().empty());

    const std::string pciList = slurp(kProfile + "/sim/cli/hardware_pci_list.txt");
    Records slotRecords = fetch(DMI_SYSTEM_SLOT_TYPE);
    int placed = 0;
    for (const DmiSystemSlot& slot : DmiSystemSlot_DecodeAll(slotRecords.block.get(), slotRecords.count)) {
        if (slot.length == DMI_SYSTEM_SLOT_SHORT_LENGTH) {
            continue;
        }
        const std::string address = pciText(slot.segmentGroupNum, slot.busNum, slot.devFuncNum);
        EXPECT_NE(pciList.find("\n" + address + "\n"), std::string::npos) << slot.designation;
        ++placed;
    }
    EXPECT_GE(placed, 10);
    Records onboardRecords = fetch(DMI_ONBOARD_DEVICE_TYPE);
    for (const DmiOnboardDevice& device :
         DmiOnboardDevice_DecodeAll(onboardRecords.block.get(), onboardRecords.count)) {
        const std::string address = pciText(device.segmentGroupNum, device.busNum, device.devFuncNum);
        EXPECT_NE(pciList.find("\n" + address + "\n"), std::string::npos) << device.designation;
    }
    EXPECT_EQ(onboardRecords.count, 2);
}

} // namespace
