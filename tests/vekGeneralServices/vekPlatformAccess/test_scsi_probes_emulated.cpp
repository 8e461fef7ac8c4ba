// The probes against the disks of the bundled rack server, served by the
// disk emulator over its sockets: what the service reads of each kind of
// disk, and what it reads of a disk that fails, stops answering or vanishes
// while it is asked.

#include "vekDiskEmulator.h"
#include "vekGlobalDef.h"
#include "vekScsiInfo.h"
#include "vekTestRoot.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <string>
#include <vector>

namespace {

class ScsiProbesEmulatedTest : public ::testing::Test {
protected:
    // The profile's description, in place before the emulator starts.
    static std::string describedHost(const vekTestRoot& host)
    {
        host.writeFile("/sim/disks.json", vekBundledProfileFile("sim/disks.json"));
        return host.path();
    }

    // An open generic device, closed when the case ends.
    int open(int sg)
    {
        const int fd = vekScsiOpenGenericDevice("sg" + std::to_string(sg));
        EXPECT_GE(fd, 0) << "sg" << sg << ": errno " << errno;
        fds.emplace_back(fd);
        return fd;
    }

    vekTestRoot root;
    vekDiskEmulator disks{describedHost(root)};
    std::vector<vekGlobalDef::UniqueFd> fds;
};

// What the service learns of each kind of disk of the profile.
TEST_F(ScsiProbesEmulatedTest, EachKindOfDiskAsTheServiceReadsIt)
{
    struct Case {
        int sg;
        const char* sysfsName;
        bool sata;
        const char* model;
        const char* serial;
        const char* revision;
        uint64_t capacity;
        int ssd;
        int temperature;
        int maxTemperature;
        int wear;    // -1: no wear page
        int hours;
        int health;  // SAS: (ASC << 8) | ASCQ; SATA: errors in the SMART error log
    };
    const Case cases[] = {
        {1, "2:0:0:0", false, "ST2400MM0129", "WBN2A7Q40000K9280ZYX", "C003", 4688430768ull * 512, 0, 33, 60, -1,
         21450, 0},
        {2, "2:0:1:0", false, "KPM6XRUG1T92", "71Q0A0C8TB7F", "0103", 3750748848ull * 512, 1, 31, 70, 4, 15320, 0},
        {3, "2:0:2:0", true, "ST8000NM000A-2KE101", "ZA1FQ2XY", "SN04", 15628053168ull * 512, 0, 35, 60, -1, 30211,
         0},
        {4, "2:0:3:0", true, "SAMSUNG MZ7L3960HCJR-00A07", "S6HUNE0T512345", "JXTC404Q", 1875385008ull * 512, 1, 30,
         70, 9, 9870, 0},
        {5, "2:0:4:0", false, "HUC101818CS4204", "0BG7X2ZD", "C7J0", 3516328368ull * 512, 0, 38, 60, -1, 41002,
         0x5D10},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.model);
        const int fd = open(c.sg);
        uint64_t capacity = 0;
        EXPECT_EQ(get_disk_capacity(fd, capacity), 0);
        EXPECT_EQ(capacity, c.capacity);
        EXPECT_TRUE(is_direct_access_block_device(c.sysfsName));
        std::string serial;
        EXPECT_EQ(get_unit_sn_from_sysfs_vpd_pg80(c.sysfsName, serial), 0);
        EXPECT_EQ(serial, c.serial);
        if (c.sata) {
            EXPECT_EQ(get_DiskVendor(c.sysfsName), "ATA");
            std::vector<unsigned char> identify;
            ASSERT_EQ(get_ata_identify_device_info(fd, identify), 0);
            EXPECT_EQ(ata_identify_string(identify, 27, 20), c.model);
            EXPECT_EQ(ata_identify_string(identify, 10, 10), c.serial);
            EXPECT_EQ(ata_capacity_bytes(identify), c.capacity);
            EXPECT_EQ(ata_is_ssd(identify), c.ssd == 1);
            EXPECT_GE(ata_major_revision(identify), 9); // ACS-2 or later
            std::string revision;
            EXPECT_EQ(get_sata_DiskRev(fd, revision), 0);
            EXPECT_EQ(revision, c.revision);
            unsigned char page[512];
            const int length = get_sata_temp(fd, page, sizeof(page));
            ASSERT_GT(length, 0);
            int current = 0, maximum = 0;
            EXPECT_EQ(sata_parse_current(page, length, &current), 0);
            EXPECT_EQ(sata_parse_mcot(page, length, &maximum), 0);
            EXPECT_EQ(current, c.temperature);
            EXPECT_EQ(maximum, c.maxTemperature);
            const int wear = get_sata_ssd_wear(fd);
            EXPECT_EQ(c.wear >= 0 ? wear : vekScsiIsNotSupported(wear) ? -1 : wear, c.wear);
            EXPECT_EQ(get_sata_pwron(fd), c.hours);
            EXPECT_EQ(get_sata_health(fd), c.health);
        } else {
            std::vector<unsigned char> inquiry;
            ASSERT_EQ(get_identify_info(fd, inquiry), 0);
            EXPECT_EQ(inq_parse_prodID(inquiry), c.model);
            EXPECT_EQ(inq_parse_rev(inquiry), c.revision);
            EXPECT_EQ(inq_parse_type(inquiry), 0);
            EXPECT_EQ(get_DiskModel(c.sysfsName), c.model);
            EXPECT_EQ(get_unit_sn_from_device_vpd_pg80(fd, serial), 0);
            EXPECT_EQ(serial, c.serial);
            EXPECT_EQ(is_unit_ssd(fd), c.ssd);
            EXPECT_EQ(get_scsi_transport_protocol(fd), 6); // SAS
            std::vector<unsigned char> page;
            ASSERT_EQ(get_sas_temp(fd, page), 0);
            EXPECT_EQ(sas_parse_current(page), c.temperature);
            EXPECT_EQ(sas_parse_mcot(page), c.maxTemperature);
            int temperature = 0;
            EXPECT_EQ(get_unit_temp(fd, temperature), 0);
            EXPECT_EQ(temperature, c.temperature);
            const int wear = get_sas_ssd_wear(fd);
            EXPECT_EQ(c.wear >= 0 ? wear : vekScsiIsNotSupported(wear) ? -1 : wear, c.wear);
            EXPECT_EQ(get_sas_pwron(fd), c.hours);
            EXPECT_EQ(get_sas_health(fd), c.health);
        }
    }
}

// A disk that fails, stops answering, or vanishes between two questions.
TEST_F(ScsiProbesEmulatedTest, ADiskThatFailsOrGoesAwayGivesTheProbesFailure)
{
    const int sas = open(1);
    const int sata = open(3);
    disks.set("d0", {"health=failed"});
    disks.set("d2", {"health=failed"});
    EXPECT_EQ(get_sas_health(sas), VEK_SCSI_HARDWARE_ERROR);
    EXPECT_EQ(get_sata_health(sata), VEK_SCSI_HARDWARE_ERROR);
    uint64_t capacity = 0;
    EXPECT_EQ(get_disk_capacity(sas, capacity), 0); // the rest of the disk still answers

    disks.set("d0", {"state=notready"});
    EXPECT_EQ(get_disk_capacity(sas, capacity), VEK_SCSI_NOT_READY);

    disks.set("d0", {"state=unresponsive"});
    EXPECT_EQ(get_sas_health(sas), VEK_SCSI_IOCTL_FAILED);

    // Gone while the service holds its descriptor open: the next question fails.
    disks.set("d2", {"present=false"});
    std::vector<unsigned char> identify;
    EXPECT_EQ(get_ata_identify_device_info(sata, identify), VEK_SCSI_IOCTL_FAILED);
    EXPECT_EQ(get_ScsiGeneric("2:0:2:0"), "");
    EXPECT_EQ(vekScsiOpenGenericDevice("sg3"), -1);

    // Back: in sysfs at once, its node as soon as the emulator follows.
    disks.set("d2", {"present=true", "health=ok"});
    EXPECT_EQ(get_ScsiGeneric("2:0:2:0"), "sg3");
    ASSERT_TRUE(vekEventually([] { return vekGlobalDef::UniqueFd(vekScsiOpenGenericDevice("sg3")).valid(); }));
    EXPECT_EQ(get_sata_health(open(3)), 0);
}

} // namespace
