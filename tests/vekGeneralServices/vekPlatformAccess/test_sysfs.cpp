// The sysfs tree over a simulated host's sys/ folder, laid out as the kernel
// shows a SAS adapter, and once over the machine's own /sys.

#include "SysFs.h"
#include "vekTestRoot.h"

#include <gtest/gtest.h>

#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <sstream>
#include <string>
#include <vector>

namespace {

const std::string kAdapter = "/sys/devices/pci0000:00/0000:00:01.0/0000:5e:00.0";
const std::string kScsiHost = kAdapter + "/host2/scsi_host/host2";
const std::string kHostLinkTarget = "../../devices/pci0000:00/0000:00:01.0/0000:5e:00.0/host2/scsi_host/host2";

class SysFsTest : public vekRootTest {
protected:
    void SetUp() override
    {
        root.writeFile(kAdapter + "/class", "0x010700\n");
        root.writeFile(kAdapter + "/vendor", "0x1000\n");
        root.writeFile(kScsiHost + "/proc_name", "mpt3sas\n");
        root.writeFile(kScsiHost + "/state", "running\n");
        root.makeDirectory("/sys/class/scsi_host");
        ASSERT_EQ(symlink(kHostLinkTarget.c_str(), root.hostPath("/sys/class/scsi_host/host2").c_str()), 0);
        // A loop of links must end, not hang the walk.
        ASSERT_EQ(symlink("loop", root.hostPath("/sys/class/scsi_host/loop").c_str()), 0);
        // Reads under the debug file system can stall or touch the hardware.
        root.writeFile("/sys/kernel/debug/dangerous", "0x010800\n");
    }

    static std::string valueOf(const SysFs& sysfs, const std::string& path)
    {
        std::string value;
        return sysfs.getValue(path, value) ? value : "<absent>";
    }
};

TEST_F(SysFsTest, ReadsAttributesThroughTheKernelsRelativeLinks)
{
    SysFs sysfs;
    ASSERT_TRUE(sysfs.synchronize("/sys"));

    const struct {
        std::string path;
        std::string value;
    } cases[] = {
        {kAdapter + "/class", "0x010700"},
        {"/sys/class/scsi_host/host2/proc_name", "mpt3sas"},
        {"/sys/class/../class/scsi_host/host2/state", "running"},
        // The link itself is a leaf whose value is its target.
        {"/sys/class/scsi_host/host2", kHostLinkTarget},
        {"/sys/class/scsi_host/host3/proc_name", "<absent>"},
        {"/sys/class/scsi_host/loop/x", "<absent>"},
        {kScsiHost, "<absent>"},
        {"/sys/kernel/debug/dangerous", "<absent>"},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(valueOf(sysfs, c.path), c.value) << c.path;
    }

    EXPECT_EQ(sysfs.resolve("/sys/class/scsi_host/host2"), kScsiHost);
    EXPECT_EQ(sysfs.dirList("/sys/class/scsi_host/host2").size(), 2u);
    EXPECT_EQ(sysfs.dirList("/sys/kernel/debug"), std::vector<std::string>());
    // Found once, in its own place: the link is not entered.
    EXPECT_EQ(sysfs.getPaths("/sys", "proc_name"), std::vector<std::string>{kScsiHost + "/proc_name"});
    EXPECT_FALSE(sysfs.exists("/sys", "dangerous"));
    EXPECT_TRUE(sysfs.existsPath("/sys/class/scsi_host/host2"));
    EXPECT_FALSE(sysfs.existsPath("/sys/class/nvme"));
    EXPECT_TRUE(sysfs.existsDeviceClass(0x0107));
    EXPECT_FALSE(sysfs.existsDeviceClass(0x0108));
    // The debug folder is listed, its file is not read.
    EXPECT_EQ(sysfs.stats(), "directories: 12, attributes: 4, links: 2");

    std::ostringstream listing;
    sysfs.toCout(listing);
    EXPECT_NE(listing.str().find("host2 -> " + kHostLinkTarget + "\n"), std::string::npos) << listing.str();
}

TEST_F(SysFsTest, FollowsALinkOutOfWhatWasSynchronizedAndStartsAfreshAfterDeleteAll)
{
    SysFs sysfs;
    EXPECT_FALSE(sysfs.synchronize("/sys/class/fc_host"));
    ASSERT_TRUE(sysfs.synchronize("/sys/class/scsi_host"));
    EXPECT_EQ(valueOf(sysfs, "/sys/class/scsi_host/host2/proc_name"), "mpt3sas");
    const std::vector<std::string> entries = sysfs.dirList("/sys/class/scsi_host/host2");
    EXPECT_NE(std::find(entries.begin(), entries.end(), "state"), entries.end());
    EXPECT_FALSE(sysfs.existsDeviceClass(0x0107));

    sysfs.deleteAll();
    EXPECT_FALSE(sysfs.existsPath("/sys/class/scsi_host"));
    EXPECT_EQ(valueOf(sysfs, "/sys/class/scsi_host/host2/proc_name"), "<absent>");

    // A rebuild sees what changed on the way.
    root.writeFile(kScsiHost + "/proc_name", "megaraid_sas\n");
    ASSERT_TRUE(sysfs.synchronize("/sys/devices"));
    EXPECT_TRUE(sysfs.existsDeviceClass(0x0107));
    EXPECT_EQ(valueOf(sysfs, kScsiHost + "/proc_name"), "megaraid_sas");
}

TEST(SysFsHostTest, ListsTheLoopbackInterfaceOfThisMachine)
{
    const char* previous = getenv("VEK_ROOT");
    const std::string saved = previous != nullptr ? previous : "";
    unsetenv("VEK_ROOT");
    SysFs sysfs;
    const bool synchronized = sysfs.synchronize("/sys/class/net");
    const std::vector<std::string> interfaces = sysfs.dirList("/sys/class/net");
    std::string address;
    const bool read = sysfs.getValue("/sys/class/net/lo/address", address);
    if (previous != nullptr) {
        setenv("VEK_ROOT", saved.c_str(), 1);
    }
    ASSERT_TRUE(synchronized);
    EXPECT_NE(std::find(interfaces.begin(), interfaces.end(), "lo"), interfaces.end());
    EXPECT_TRUE(read);
    EXPECT_EQ(address, "00:00:00:00:00:00");
}

} // namespace
