// The disk emulator of the simulated host, through its sockets: what four
// disks (SAS and SATA, spinning and solid state) answer, read back by
// Debian's own decoders (sg3-utils, hdparm); and the disks changing while it
// runs.

#include "vekDiskEmulator.h"
#include "vekTestRoot.h"

#include <gtest/gtest.h>

#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <cstdio>
#include <fstream>
#include <ostream>
#include <sstream>
#include <string>
#include <vector>

namespace {

using Bytes = std::vector<uint8_t>;

enum Disk { kSasHdd = 1, kSasSsd = 2, kSataHdd = 3, kSataSsd = 4 };

const char kFourDisks[] = R"({
  "hbas": [ { "id": "hba0", "pci": "0000:5e:00.0", "host": 2 } ],
  "devices": [
    { "id": "sashdd", "hba": "hba0", "target": 0, "sg": 1, "block": "sdb", "vendor": "SEAGATE",
      "model": "ST2400MM0129", "revision": "C003", "serial": "WBN0ABCD0000", "wwn": "5000c500a1b2c3d4",
      "blocks": 4688430000, "rotationRate": 10000, "temperature": 34, "powerOnHours": 12000 },
    { "id": "sasssd", "hba": "hba0", "target": 1, "sg": 2, "block": "sdc", "vendor": "HGST",
      "model": "HUSMR3280ASS200", "revision": "A3B0", "serial": "0LX1ABCD", "wwn": "5000cca0aabbccdd",
      "blocks": 1562824368, "rotationRate": 1, "temperature": 34, "wear": 7, "powerOnHours": 5000 },
    { "id": "satahdd", "hba": "hba0", "target": 2, "sg": 3, "block": "sdd", "transport": "SATA",
      "model": "ST4000NM0035-1V4107", "revision": "TN03", "serial": "ZC1ABCDE", "wwn": "5000c500b1b2b3b4",
      "blocks": 7814037168, "rotationRate": 7200, "temperature": 34, "powerOnHours": 30000 },
    { "id": "satassd", "hba": "hba0", "target": 3, "sg": 4, "block": "sde", "transport": "SATA",
      "model": "SAMSUNG MZ7LH960HAJR-00005", "revision": "HXT7404Q", "serial": "S45NNA0M123456",
      "wwn": "5002538e40a1b2c3", "blocks": 1875385008, "rotationRate": 1, "temperature": 34, "wear": 3,
      "powerOnHours": 8000 }
  ]
})";

// The CDBs of the service's probes.
Bytes inquiry(uint8_t page = 0, bool evpd = false, uint8_t allocation = 252)
{
    return {0x12, static_cast<uint8_t>(evpd ? 1 : 0), page, 0, allocation, 0};
}
Bytes logSense(uint8_t page) { return {0x4D, 0, static_cast<uint8_t>(0x40 | page), 0, 0, 0, 0, 0x0F, 0xFF, 0}; }
Bytes ataIdentify() { return {0x85, 0x08, 0x0E, 0, 0, 0, 1, 0, 0, 0, 0, 0, 0, 0, 0xEC, 0}; }
Bytes ataReadLog(uint8_t log, uint8_t page) { return {0x85, 0x09, 0x0E, 0, 0, 0, 1, 0, log, 0, page, 0, 0, 0, 0x2F, 0}; }
const Bytes kTestUnitReady = {0, 0, 0, 0, 0, 0};

std::string hexText(const Bytes& bytes)
{
    std::ostringstream out;
    for (size_t i = 0; i < bytes.size(); ++i) {
        char word[4];
        std::snprintf(word, sizeof(word), "%02x", bytes[i]);
        out << word << ((i % 16 == 15) ? "\n" : " ");
    }
    return out.str();
}

// IDENTIFY DEVICE as hdparm --Istdin reads it: 256 words in hexadecimal.
std::string identifyWords(const Bytes& bytes)
{
    std::ostringstream out;
    for (size_t word = 0; word + 1 < bytes.size(); word += 2) {
        char text[6];
        std::snprintf(text, sizeof(text), "%04x", bytes[word] | bytes[word + 1] << 8);
        out << text << ((word % 16 == 14) ? "\n" : " ");
    }
    return out.str();
}

class DiskEmulatorTest : public vekRootTest {
protected:
    void SetUp() override { root.writeFile("/sim/disks.json", kFourDisks); }

    // Runs a decoder on what came back: the data (or the sense) as a hex
    // file whose name takes the place of "@", or as hdparm's words on its input.
    std::string decode(std::vector<std::string> argv, const vekDiskEmulator::Reply& reply, bool sense = false)
    {
        const Bytes& bytes = sense ? reply.sense : reply.data;
        if (argv[0] == "hdparm") {
            return vekRunProgram(argv, identifyWords(bytes)).output;
        }
        const std::string file = root.path() + "/answer.hex";
        std::ofstream(file) << hexText(bytes);
        for (std::string& arg : argv) {
            const size_t at = arg.find('@');
            if (at != std::string::npos) {
                arg.replace(at, 1, file);
            }
        }
        return vekRunProgram(argv).output;
    }
};

struct DecoderCase {
    const char* name;
    int sg;
    std::vector<std::string> change; // "id", then key=value, applied first
    Bytes cdb;
    std::vector<std::string> decoder; // "@" stands for the answer's hex file
    std::vector<std::string> expected;
    bool decodeSense = false;
};

const DecoderCase kDecoderCases[] = {
    {"SasInquiry", kSasHdd, {}, inquiry(), {"sg_inq", "--inhex=@"},
     {"Vendor identification: SEAGATE", "Product identification: ST2400MM0129", "Product revision level: C003",
      "Peripheral device type: disk"}},
    {"SataInquiryShowsTheTranslationLayer", kSataSsd, {}, inquiry(), {"sg_inq", "--inhex=@"},
     {"Vendor identification: ATA", "Product identification: SAMSUNG MZ7LH960", "Product revision level: 404Q"}},
    {"SerialNumber", kSasHdd, {}, inquiry(0x80, true), {"sg_vpd", "--inhex=@"},
     {"Unit serial number: WBN0ABCD0000"}},
    {"DeviceIdentification", kSasHdd, {}, inquiry(0x83, true), {"sg_vpd", "--inhex=@"},
     {"0x5000c500a1b2c3d4", "Serial Attached SCSI"}},
    {"RotationRate", kSasHdd, {}, inquiry(0xB1, true), {"sg_vpd", "--inhex=@"},
     {"Nominal rotation rate: 10000 rpm"}},
    {"SolidState", kSasSsd, {}, inquiry(0xB1, true), {"sg_vpd", "--inhex=@"},
     {"Non-rotating medium (e.g. solid state)"}},
    {"SataAtaInformation", kSataHdd, {}, Bytes{0x12, 1, 0x89, 0x02, 0x40, 0}, {"sg_vpd", "--inhex=@"},
     {"model: ST4000NM0035-1V4107", "serial number: ZC1ABCDE", "firmware revision: TN03"}},
    {"SasTemperature", kSasSsd, {}, logSense(0x0D), {"sg_logs", "--in=@"},
     {"Current temperature = 34 C", "Reference temperature = 60 C"}},
    {"SataTemperatureThroughTheTranslationLayer", kSataHdd, {}, logSense(0x0D), {"sg_logs", "--in=@"},
     {"Current temperature = 34 C"}},
    {"PercentageUsed", kSasSsd, {}, logSense(0x11), {"sg_logs", "--in=@"},
     {"Percentage used endurance indicator: 7 %"}},
    {"PowerOnTime", kSasHdd, {}, logSense(0x15), {"sg_logs", "--in=@"},
     {"Accumulated power on minutes: 720000 [h:m  12000:0]"}},
    {"PredictedFailure", kSasHdd, {"sashdd", "health=predictive"}, logSense(0x2F), {"sg_logs", "--in=@"},
     {"IE asc = 0x5d, ascq = 0x10", "Current temperature = 34 C"}},
    {"SataIdentify", kSataHdd, {}, ataIdentify(), {"hdparm", "--Istdin"},
     {"Model Number:       ST4000NM0035-1V4107", "Serial Number:      ZC1ABCDE", "Firmware Revision:  TN03",
      "Likely used: 10", "LBA48  user addressable sectors:  7814037168", "Nominal Media Rotation Rate: 7200",
      "Logical Unit WWN Device Identifier: 5000c500b1b2b3b4", "Checksum: correct"}},
    {"SataSsdIdentify", kSataSsd, {}, ataIdentify(), {"hdparm", "--Istdin"},
     {"Model Number:       SAMSUNG MZ7LH960HAJR-00005", "Firmware Revision:  HXT7404Q",
      "Nominal Media Rotation Rate: Solid State Device", "Checksum: correct"}},
    {"FailedDiskRefusesItsHealthPage", kSasHdd, {"sashdd", "health=failed"}, logSense(0x2F),
     {"sg_decode_sense", "--file=@"}, {"Sense key: Hardware Error", "Internal target failure"}, true},
    {"FailedSataDiskRefusesItsErrorLog", kSataSsd, {"satassd", "health=failed"}, ataReadLog(0x03, 0),
     {"sg_decode_sense", "--file=@"}, {"Sense key: Hardware Error", "Internal target failure"}, true},
    {"DiskNotReady", kSataHdd, {"satahdd", "state=notready"}, kTestUnitReady, {"sg_decode_sense", "--file=@"},
     {"Sense key: Not Ready", "Logical unit not ready"}, true},
    {"MissingPage", kSasHdd, {}, logSense(0x11), {"sg_decode_sense", "--file=@"},
     {"Sense key: Illegal Request", "Invalid field in cdb"}, true},
    {"SasDiskHasNoAtaPassThrough", kSasSsd, {}, ataIdentify(), {"sg_decode_sense", "--file=@"},
     {"Sense key: Illegal Request", "Invalid command operation code"}, true},
};

// Names a case in test listings by its name alone.
void PrintTo(const DecoderCase& c, std::ostream* out) { *out << c.name; }

class DiskDecoderTest : public DiskEmulatorTest, public ::testing::WithParamInterface<DecoderCase> {};

TEST_P(DiskDecoderTest, DecodesAsARealDisk)
{
    const DecoderCase& c = GetParam();
    if (!vekProgramOnPath(c.decoder[0])) {
        GTEST_SKIP() << c.decoder[0] << " is not installed";
    }
    vekDiskEmulator disks(root.path());
    if (!c.change.empty()) {
        disks.set(c.change[0], std::vector<std::string>(c.change.begin() + 1, c.change.end()));
    }
    const auto reply = disks.request(c.sg, c.cdb, vekDiskEmulator::kFromDevice, c.cdb[0] == 0x85 ? 512 : 4096);
    ASSERT_TRUE(reply.answered);
    EXPECT_EQ(reply.status, c.decodeSense ? 2u : 0u);
    const std::string decoded = decode(c.decoder, reply, c.decodeSense);
    for (const std::string& text : c.expected) {
        EXPECT_NE(decoded.find(text), std::string::npos) << "missing \"" << text << "\" in:\n" << decoded;
    }
}

INSTANTIATE_TEST_SUITE_P(Disks, DiskDecoderTest, ::testing::ValuesIn(kDecoderCases),
                         [](const ::testing::TestParamInfo<DecoderCase>& info) { return info.param.name; });

// Bytes no decoder here looks at and the probes' cases do not reach (what the
// probes read of each kind of disk is checked through them on the bundled
// disks): a SATA disk's transport in the mode page, a short inquiry's
// allocation length, the defect list header.
TEST_F(DiskEmulatorTest, ProbesFindTheirBytes)
{
    vekDiskEmulator disks(root.path());
    struct Probe {
        int sg;
        Bytes cdb;
        std::vector<std::pair<size_t, uint8_t>> bytes; // offset, value
        size_t length;
    } probes[] = {
        {kSataSsd, {0x1A, 0x08, 0x19, 0, 0xFF, 0}, {{4, 0x19}, {5, 6}, {6, 6}}, 12},
        {kSasHdd, inquiry(0, false, 36), {{8, 'S'}, {35, '3'}}, 36},
        {kSasHdd, {0x37, 0, 0x18, 0, 0, 0, 0, 0x10, 0, 0}, {{1, 0x18}, {2, 0}, {3, 0}}, 4},
    };
    for (const Probe& probe : probes) {
        SCOPED_TRACE(hexText(probe.cdb));
        const auto reply = disks.request(probe.sg, probe.cdb, vekDiskEmulator::kFromDevice, 4096);
        ASSERT_TRUE(reply.answered);
        ASSERT_EQ(reply.status, 0u) << hexText(reply.sense);
        ASSERT_EQ(reply.data.size(), probe.length);
        for (const auto& byte : probe.bytes) {
            EXPECT_EQ(reply.data[byte.first], byte.second) << "byte " << byte.first;
        }
    }
}

// While it runs: a disk vanishes and comes back, stops answering, goes
// offline; a broken description changes nothing; a stop takes the sockets.
TEST_F(DiskEmulatorTest, FollowsTheDescriptionWhileRunning)
{
    vekDiskEmulator disks(root.path());
    EXPECT_EQ(disks.readyDevices(), 4);
    struct stat info {};
    const auto exists = [&](int sg) { return stat(disks.socketPath(sg).c_str(), &info) == 0; };

    disks.set("sasssd", {"present=false"});
    EXPECT_TRUE(vekEventually([&] { return !exists(kSasSsd); }));
    EXPECT_FALSE(disks.request(kSasSsd, kTestUnitReady).answered);
    disks.set("sasssd", {"present=true"});
    EXPECT_TRUE(vekEventually([&] { return exists(kSasSsd) && disks.request(kSasSsd, kTestUnitReady).answered; }));

    disks.set("satahdd", {"state=unresponsive"});
    EXPECT_FALSE(disks.request(kSataHdd, inquiry()).answered);
    disks.set("satahdd", {"state=offline"});
    const auto offline = disks.request(kSataHdd, inquiry());
    ASSERT_TRUE(offline.answered);
    EXPECT_EQ(offline.hostStatus, 1u); // DID_NO_CONNECT
    EXPECT_TRUE(offline.data.empty());

    EXPECT_THROW(disks.set("nosuch", {"health=failed"}), std::runtime_error);
    root.writeFile("/sim/disks.json", "{ not json");
    EXPECT_EQ(disks.request(kSasHdd, kTestUnitReady).status, 0u);
    EXPECT_TRUE(exists(kSasHdd));

    disks.stop();
    for (int sg : {kSasHdd, kSasSsd, kSataHdd, kSataSsd}) {
        EXPECT_FALSE(exists(sg)) << sg;
    }
}

// 256 disks from one loop; a client that connects and stalls holds up no one.
TEST_F(DiskEmulatorTest, ServesManyDisksPastAStalledClient)
{
    std::string devices;
    for (int sg = 0; sg < 256; ++sg) {
        devices += std::string(sg ? "," : "") + R"({"id": "d)" + std::to_string(sg) +
                   R"(", "hba": "hba0", "sg": )" + std::to_string(sg) + R"(, "serial": "S)" + std::to_string(sg) +
                   R"(", "blocks": 1000})";
    }
    root.writeFile("/sim/disks.json", R"({"hbas": [{"id": "hba0", "host": 2}], "devices": [)" + devices + "]}");
    vekDiskEmulator disks(root.path());
    ASSERT_EQ(disks.readyDevices(), 256);

    const int stalled = socket(AF_UNIX, SOCK_STREAM, 0);
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    std::snprintf(address.sun_path, sizeof(address.sun_path), "%s", disks.socketPath(0).c_str());
    ASSERT_EQ(connect(stalled, reinterpret_cast<const sockaddr*>(&address), sizeof(address)), 0);
    ASSERT_EQ(send(stalled, "SGIO", 4, 0), 4);

    const auto reply = disks.request(255, inquiry(0x80, true));
    ASSERT_TRUE(reply.answered);
    EXPECT_EQ(std::string(reply.data.begin() + 4, reply.data.end()), "S255");
    close(stalled);
}

} // namespace
