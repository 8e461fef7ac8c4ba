// The simulated storage of the bundled rack server: its description, the
// sysfs tree that `diskemu` lays out for it (checked with the kernel's
// link rules and Debian's SCSI decoders), devices and adapters that vanish
// and return, and the large descriptions made for benchmarks.

#include "vekDiskEmulator.h"
#include "vekTestRoot.h"

#include <json/json.h>

#include <gtest/gtest.h>

#include <sys/stat.h>

#include <climits>
#include <cstdlib>
#include <filesystem>
#include <map>
#include <set>
#include <sstream>
#include <string>
#include <vector>

namespace {

namespace fs = std::filesystem;

const std::string kHba = "0000:a8:00.0";
const std::string kDiskemu = std::string(VEK_BINARY_DIR) + "/testtools/diskemu/diskemu";

// What a program printed; its words go to it as they are, no shell between.
std::string output(const std::vector<std::string>& argv) { return vekRunProgram(argv).output; }

std::string realPath(const std::string& path)
{
    char resolved[PATH_MAX];
    return realpath(path.c_str(), resolved) != nullptr ? resolved : "<unresolved " + path + ">";
}

// A host made from the bundled profile, its storage laid out.
class SimulatedStorageTest : public vekRootTest {
protected:
    void SetUp() override
    {
        ASSERT_EQ(vekRunProgram({"sh", VEK_SIMHOST_DIR "/mkhost.sh", VEK_SIMHOST_DIR "/profiles/rack-type4", host})
                      .status,
                  0);
        ASSERT_FALSE(fs::exists(sys("class"))) << "the profile must not carry a storage tree";
        ASSERT_EQ(diskemu({"sync", host}), 0);
    }

    static int diskemu(std::vector<std::string> arguments)
    {
        arguments.insert(arguments.begin(), kDiskemu);
        return vekRunProgram(arguments).status;
    }
    std::string sys(const std::string& relative) const { return host + "/sys/" + relative; }
    std::string read(const std::string& relative) const { return root.readFile("/host/sys/" + relative); }
    // What the service's change watch compares: whole seconds and the inode.
    std::pair<time_t, ino_t> changed(const std::string& relative) const
    {
        struct stat status {};
        EXPECT_EQ(stat(sys(relative).c_str(), &status), 0) << relative;
        return {status.st_mtime, status.st_ino};
    }

    // Every entry under sys/: a link's target, a file's content, or "dir".
    std::map<std::string, std::string> tree() const
    {
        std::map<std::string, std::string> entries;
        for (const auto& entry : fs::recursive_directory_iterator(sys(""))) {
            const std::string path = entry.path().string().substr(host.size() + 1);
            entries[path] = entry.is_symlink()     ? "-> " + fs::read_symlink(entry.path()).string()
                            : entry.is_directory() ? "dir"
                                                   : root.readFile("/host/" + path);
        }
        return entries;
    }

    const std::string host = root.path() + "/host";
};

TEST_F(SimulatedStorageTest, BundledStorageAsTheKernelShowsIt)
{
    const std::string card = realPath(sys("bus/pci/devices/" + kHba));
    EXPECT_EQ(fs::read_symlink(sys("class/scsi_host/host2")).string(),
              "../../devices/pci0000:a8/" + kHba + "/host2/scsi_host/host2");
    EXPECT_EQ(realPath(sys("class/scsi_host/host2/device")), card + "/host2");
    const std::string pci = "bus/pci/devices/" + kHba + "/";
    EXPECT_EQ(read(pci + "vendor") + read(pci + "device") + read(pci + "subsystem_vendor") +
                  read(pci + "subsystem_device") + read(pci + "class") + read(pci + "host2/scsi_host/host2/proc_name"),
              "0x1000\n0x00e6\n0x1000\n0x4050\n0x010700\nmpt3sas\n");

    const struct {
        int target;
        const char *vendor, *model, *revision, *serial, *wwn, *block, *sectors;
    } devices[] = {
        {0, "SEAGATE ", "ST2400MM0129    ", "C003", "WBN2A7Q40000K9280ZYX", "0x5000c500d4a1b2c0", "sdb", "4688430768"},
        {1, "KIOXIA  ", "KPM6XRUG1T92    ", "0103", "71Q0A0C8TB7F", "0x58ce38ee2190a5c0", "sdc", "3750748848"},
        {2, "ATA     ", "ST8000NM000A-2KE", "SN04", "ZA1FQ2XY", "0x5000c500c8d7e6f0", "sdd", "15628053168"},
        {3, "ATA     ", "SAMSUNG MZ7L3960", "404Q", "S6HUNE0T512345", "0x5002538f0123a4b0", "sde", "1875385008"},
        {4, "HGST    ", "HUC101818CS4204 ", "C7J0", "0BG7X2ZD", "0x5000cca0a1b2c3d0", "sdf", "3516328368"},
        {5, "ATA     ", "WDC WUH721414ALE", "W07G", "9MGK2T4L", "0x5000cca28ec1d2e0", "sdg", "27344764928"},
        {8, "ZOLVEK  ", "8 SFF BP        ", "0100", "BP8SFF0417A2", "0x50015b21c0a7b43e", "", ""},
    };
    for (size_t i = 0; i < std::size(devices); ++i) {
        const auto& d = devices[i];
        const std::string t = std::to_string(d.target), name = "2:0:" + t + ":0",
                          device = "class/scsi_device/" + name + "/device";
        SCOPED_TRACE(name);
        EXPECT_EQ(realPath(sys(device)),
                  card + "/host2/port-2:" + t + "/end_device-2:" + t + "/target2:0:" + t + "/" + name);
        EXPECT_EQ(read(device + "/type"), d.target == 8 ? "13\n" : "0\n");
        EXPECT_EQ(read(device + "/vendor") + read(device + "/model") + read(device + "/state"),
                  d.vendor + std::string("\n") + d.model + "\nrunning\n");
        EXPECT_TRUE(fs::is_directory(sys(device + "/scsi_generic/sg" + std::to_string(i + 1))));
        EXPECT_EQ(read("class/sas_device/end_device-2:" + t + "/bay_identifier"),
                  d.target == 8 ? "-1\n" : std::to_string(i + 1) + "\n");

        const std::string serial = output({"sg_vpd", "--raw", "--inhex=" + sys(device + "/vpd_pg80")});
        EXPECT_NE(serial.find(std::string("Unit serial number: ") + d.serial + "\n"), std::string::npos) << serial;
        const std::string names = output({"sg_vpd", "--raw", "--inhex=" + sys(device + "/vpd_pg83")});
        EXPECT_NE(names.find("NAA,  code set: Binary\n      " + std::string(d.wwn) + "\n"), std::string::npos) << names;
        const std::string inquiry = output({"sg_inq", "--raw", "--inhex=" + sys(device + "/inquiry")});
        EXPECT_NE(inquiry.find("Vendor identification: " + std::string(d.vendor) + "\n Product identification: " +
                               d.model + "\n Product revision level: " + d.revision + "\n"),
                  std::string::npos)
            << inquiry;
        if (*d.block != '\0') {
            EXPECT_EQ(read("block/" + std::string(d.block) + "/size"), d.sectors + std::string("\n"));
            EXPECT_EQ(realPath(sys("block/") + d.block), realPath(sys(device + "/block/" + d.block)));
        }
    }
    // The chipset's SATA controller: a host per ATA port, a SATA disk on
    // ports 6 and 7, as libata lays them out (no SAS end device).
    const std::string chipset = "devices/pci0000:00/0000:00:17.0";
    for (int port = 0; port < 8; ++port) {
        const std::string host = "host" + std::to_string(3 + port);
        EXPECT_EQ(fs::read_symlink(sys("class/scsi_host/" + host)).string(),
                  "../../" + chipset + "/ata" + std::to_string(1 + port) + "/" + host + "/scsi_host/" + host);
        EXPECT_EQ(read("class/scsi_host/" + host + "/proc_name"), "ahci\n");
    }
    for (const char* name : {"9:0:0:0", "10:0:0:0"}) {
        SCOPED_TRACE(name);
        const std::string host = std::string(name).substr(0, std::string(name).find(':'));
        const std::string ata = std::to_string(std::stoi(host) - 2);
        EXPECT_EQ(realPath(sys("class/scsi_device/" + std::string(name) + "/device")),
                  realPath(sys(chipset)) + "/ata" + ata + "/host" + host + "/target" + host + ":0:0/" + name);
        EXPECT_EQ(read("class/scsi_device/" + std::string(name) + "/device/vendor"), "ATA     \n");
    }
    EXPECT_EQ(read("bus/pci/devices/0000:00:17.0/device"), "0xa186\n");
    EXPECT_FALSE(fs::exists(sys("class/sas_device/end_device-9:0")));
    // Those devices and no others.
    EXPECT_EQ(std::distance(fs::directory_iterator(sys("class/scsi_device")), fs::directory_iterator()), 9);
    EXPECT_EQ(read("class/enclosure/2:0:8:0/components") + read("class/enclosure/2:0:8:0/id"),
              "8\n0x50015b21c0a7b43e\n");
}

// A device or an adapter that goes takes exactly its own entries with it,
// in a way the service's change watch sees; coming back, it is as before.
TEST_F(SimulatedStorageTest, DeviceAndAdapterVanishAndReturn)
{
    // What someone else laid out stays.
    root.writeFile("/host/sys/devices/pci0000:00/0000:00:17.0/host0/scsi_host/host0/proc_name", "ahci\n");
    fs::create_directory_symlink("../../devices/pci0000:00/0000:00:17.0/host0/scsi_host/host0",
                                 sys("class/scsi_host/host0"));
    const std::map<std::string, std::string> before = tree();

    const struct {
        const char* id;
        std::vector<std::string> marks; // what names the item's entries
        bool hostGoes;
    } cases[] = {
        {"d4", {"port-2:4", "end_device-2:4", "2:0:4:0", "sys/block/sdf"}, false},
        {"bp0", {"port-2:8", "end_device-2:8", "2:0:8:0"}, false},
        {"hba0",
         {"pci0000:a8", kHba, "host2", "end_device-2:", "2:0:", "sys/block/sdb", "sys/block/sdc", "sys/block/sdd",
          "sys/block/sde", "sys/block/sdf", "sys/block/sdg"},
         true},
        {"s0", {"target9:0:0", "scsi_device/9:0:0:0", "sys/block/sdh"}, false},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.id);
        const auto hosts = changed("class/scsi_host"), devices = changed("class/scsi_device");
        ASSERT_EQ(diskemu({"set", host, c.id, "present=false"}), 0);
        const std::map<std::string, std::string> gone = tree();
        size_t removed = 0;
        for (const auto& entry : before) {
            bool marked = false;
            for (const auto& mark : c.marks) {
                marked = marked || entry.first.find(mark) != std::string::npos;
            }
            removed += marked ? 1 : 0;
            const auto left = gone.find(entry.first);
            EXPECT_EQ(left == gone.end(), marked) << entry.first;
            EXPECT_TRUE(marked || left == gone.end() || left->second == entry.second) << entry.first;
        }
        EXPECT_GT(removed, 10u);
        EXPECT_EQ(gone.size() + removed, before.size());
        EXPECT_NE(changed("class/scsi_device"), devices);
        EXPECT_EQ(changed("class/scsi_host") != hosts, c.hostGoes);

        ASSERT_EQ(diskemu({"set", host, c.id, "present=true"}), 0);
        EXPECT_EQ(tree(), before);
    }
    ASSERT_EQ(diskemu({"sync", host}), 0);
    EXPECT_EQ(tree(), before) << "a second run changes nothing";
}

// 8 adapters with 32 disks each, all different; a smaller one laid out.
TEST_F(SimulatedStorageTest, GeneratedBenchmarkStorage)
{
    std::istringstream text(output({kDiskemu, "generate", "8", "32"}));
    Json::Value description;
    ASSERT_TRUE(Json::parseFromStream(Json::CharReaderBuilder(), text, &description, nullptr));
    std::map<std::string, std::set<std::string>> distinct;
    std::map<std::string, int> kinds;
    for (const auto& hba : description["hbas"]) {
        for (const char* key : {"pci", "host"}) {
            distinct[key].insert(hba[key].asString());
        }
    }
    for (const auto& disk : description["devices"]) {
        for (const char* key : {"serial", "wwn", "sg", "block"}) {
            distinct[key].insert(disk[key].asString());
        }
        distinct["target"].insert(disk["hba"].asString() + "/" + disk["target"].asString());
        ++kinds[disk["transport"].asString() + (disk["rotationRate"].asInt() == 1 ? " SSD" : " HDD")];
    }
    for (const auto& key : std::map<std::string, size_t>{
             {"pci", 8}, {"host", 8}, {"serial", 256}, {"wwn", 256}, {"sg", 256}, {"block", 256}, {"target", 256}}) {
        EXPECT_EQ(distinct[key.first].size(), key.second) << key.first;
    }
    EXPECT_EQ(kinds,
              (std::map<std::string, int>{{"SAS HDD", 64}, {"SAS SSD", 64}, {"SATA HDD", 64}, {"SATA SSD", 64}}));

    // Laid out, past the 26 single-letter block names.
    root.writeFile("/host/sim/disks.json", output({kDiskemu, "generate", "2", "16"}));
    ASSERT_EQ(diskemu({"sync", host}), 0);
    const auto count = [&](const std::string& folder) {
        return std::distance(fs::directory_iterator(sys(folder)), fs::directory_iterator());
    };
    EXPECT_EQ(count("class/scsi_device"), 32);
    EXPECT_EQ(count("class/scsi_host"), 2);
    EXPECT_EQ(realPath(sys("block/sdag")), realPath(sys("class/scsi_device/3:0:15:0/device/block/sdag")));
    EXPECT_FALSE(fs::exists(sys("bus/pci/devices/" + kHba))) << "the bundled adapter is no longer described";
}

// The adapter's address is the same in its description, the host's PCI list
// (slot 4) and the SMBIOS record of slot 4, as dmidecode reads it.
TEST_F(SimulatedStorageTest, SlotFourHoldsTheAdapterEverywhere)
{
    const std::string list = root.readFile("/host/sim/cli/hardware_pci_list.txt");
    const size_t start = list.find(kHba + "\n");
    ASSERT_NE(start, std::string::npos);
    const std::string block = list.substr(start, list.find("\n\n", start) - start);
    for (const char* line : {"Slot Description: PCIe Slot 4\n", "Vendor ID: 0x1000\n", "Device ID: 0x00e6\n",
                             "SubVendor ID: 0x1000\n", "SubDevice ID: 0x4050\n"}) {
        EXPECT_NE(block.find(line), std::string::npos) << line;
    }
    EXPECT_NE(root.readFile("/host/sim/disks.json").find("\"pci\": \"" + kHba + "\""), std::string::npos);

    const std::string dump = root.path() + "/smbios.dump";
    ASSERT_EQ(vekRunProgram({VEK_BINARY_DIR "/testtools/smbiosgen/smbiosgen", "--dump", dump,
                             host + "/sys/firmware/dmi/tables/DMI.json"})
                  .status,
              0);
    const std::string slots = output({"dmidecode", "-t", "9", "--from-dump", dump});
    const size_t slot = slots.find("Designation: PCIe Slot 4 r001u03p1i04\n");
    ASSERT_NE(slot, std::string::npos) << slots;
    const std::string record = slots.substr(slot, slots.find("\n\n", slot) - slot);
    EXPECT_NE(record.find("Current Usage: In Use\n"), std::string::npos) << record;
    EXPECT_NE(record.find("Bus Address: " + kHba), std::string::npos) << record;
}

} // namespace
