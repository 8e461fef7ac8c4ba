#include "vekGlobalDef.h"
#include "vekIPMITestSupport.h"
#include "vekScsiInfo.h"
#include "vekTestRoot.h"

#include <gtest/gtest.h>

#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <functional>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

namespace {

using Bytes = std::vector<unsigned char>;
using vekGlobalDef::UniqueFd;

// One canned answer of the disk peer to one connection.
struct Answer {
    enum How { Reply, CloseEarly, Silent } how = Reply;
    uint32_t status = 0;
    Bytes sense;
    Bytes data; // more than the request's dxfer_len is an over-long answer
};

// A disk emulator in miniature: a Unix socket node that answers each
// connection with the next canned answer, and remembers the CDBs it got.
class DiskPeer {
public:
    DiskPeer(std::string path, std::vector<Answer> answers) : path_(std::move(path))
    {
        listen_.reset(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
        struct sockaddr_un address = {};
        address.sun_family = AF_UNIX;
        path_.copy(address.sun_path, sizeof(address.sun_path) - 1);
        EXPECT_EQ(bind(listen_.get(), reinterpret_cast<sockaddr*>(&address), sizeof(address)), 0) << path_;
        EXPECT_EQ(listen(listen_.get(), 4), 0);
        EXPECT_EQ(pipe(stop_), 0);
        thread_ = std::thread([this, answers] { serve(answers); });
    }
    ~DiskPeer()
    {
        EXPECT_EQ(write(stop_[1], "x", 1), 1);
        thread_.join();
        close(stop_[0]), close(stop_[1]);
        unlink(path_.c_str());
    }
    std::vector<Bytes> cdbs() const
    {
        std::lock_guard<std::mutex> lock(mutex_);
        return cdbs_;
    }

private:
    bool waitFor(int fd) const
    {
        struct pollfd p[2] = {{fd, POLLIN, 0}, {stop_[0], POLLIN, 0}};
        return poll(p, 2, -1) > 0 && p[1].revents == 0;
    }
    static bool readAll(int fd, unsigned char* into, size_t n)
    {
        for (size_t done = 0; done < n;) {
            const ssize_t got = recv(fd, into + done, n - done, 0);
            if (got <= 0) {
                return false;
            }
            done += static_cast<size_t>(got);
        }
        return true;
    }
    static void put32(Bytes& out, size_t v)
    {
        for (int shift = 0; shift < 32; shift += 8) {
            out.push_back(static_cast<unsigned char>(v >> shift));
        }
    }
    void serve(std::vector<Answer> answers)
    {
        for (const Answer& answer : answers) {
            if (!waitFor(listen_.get())) {
                return;
            }
            const UniqueFd conn(accept(listen_.get(), nullptr, nullptr));
            unsigned char header[20];
            if (!readAll(conn.get(), header, sizeof(header)) || std::memcmp(header, "SGIO", 4) != 0) {
                continue;
            }
            Bytes cdb(header[8]);
            readAll(conn.get(), cdb.data(), cdb.size());
            {
                std::lock_guard<std::mutex> lock(mutex_);
                cdbs_.push_back(cdb);
            }
            Bytes reply = {'S', 'G', 'I', 'O'};
            if (answer.how == Answer::Silent) {
                struct pollfd stop = {stop_[0], POLLIN, 0};
                poll(&stop, 1, -1);
                return;
            }
            if (answer.how == Answer::Reply) {
                for (size_t v : {size_t{answer.status}, size_t{0}, size_t{answer.sense.empty() ? 0u : 8u},
                                 answer.sense.size(), answer.data.size()}) {
                    put32(reply, v);
                }
                reply.insert(reply.end(), answer.sense.begin(), answer.sense.end());
                reply.insert(reply.end(), answer.data.begin(), answer.data.end());
            } else {
                reply.resize(6); // a header cut short
            }
            send(conn.get(), reply.data(), reply.size(), MSG_NOSIGNAL);
        }
    }

    std::string path_;
    UniqueFd listen_;
    int stop_[2] = {-1, -1};
    mutable std::mutex mutex_;
    std::vector<Bytes> cdbs_;
    std::thread thread_;
};

Answer reply(Bytes data, uint32_t status = 0, Bytes sense = {})
{
    Answer a;
    a.status = status;
    a.sense = std::move(sense);
    a.data = std::move(data);
    return a;
}

Answer broken(Answer::How how)
{
    Answer a;
    a.how = how;
    return a;
}

Bytes fixedSense(unsigned char key) { return {0x70, 0, key, 0, 0, 0, 0, 10, 0, 0, 0, 0, 0x24, 0, 0, 0, 0, 0}; }

// Informational exceptions page reporting ASC/ASCQ 5Dh/10h and 38 C.
const Bytes kIePage = {0x2F, 0, 0, 8, 0, 0, 3, 4, 0x5D, 0x10, 38, 0};

Bytes page(size_t size, std::initializer_list<std::pair<size_t, unsigned char>> bytes)
{
    Bytes p(size, 0);
    for (const auto& b : bytes) {
        p[b.first] = b.second;
    }
    return p;
}

class ScsiInfoTest : public vekRootTest {
protected:
    void SetUp() override { root.makeDirectory("/dev"); }
    std::string node() const { return root.hostPath("/dev/sg1"); }
};

TEST(ScsiParsers, PagesAndInquiryFields)
{
    const Bytes temp = {0x0D, 0, 0, 12, 0, 0, 3, 2, 0, 34, 0, 1, 3, 2, 0, 60};
    Bytes otherParam = temp;
    otherParam[11] = 2;
    Bytes negative = temp;
    negative[9] = 0xF6;
    EXPECT_EQ(sas_parse_current(temp), 34);
    EXPECT_EQ(sas_parse_current(negative), -10);
    EXPECT_EQ(sas_parse_mcot(temp), 60);
    EXPECT_EQ(sas_parse_mcot(otherParam), 0);
    EXPECT_EQ(sas_parse_mcot(Bytes(temp.begin(), temp.begin() + 12)), 0);

    const struct {
        Bytes buf;
        bool mcot;
        int result;
        int value;
    } sata[] = {
        {page(512, {{0, 1}, {2, 5}, {8, 41}, {15, 0xC0}}), false, 0, 41},
        {page(512, {{0, 1}, {2, 5}, {8, 41}, {15, 0x40}}), false, 0, 41},
        {page(512, {{0, 1}, {2, 5}, {8, 41}, {15, 0x20}}), false, VEK_SCSI_UNEXPECTED_DATA, -99},
        {page(512, {{2, 5}, {8, 41}, {15, 0xC0}}), false, VEK_SCSI_UNEXPECTED_DATA, -99},
        {page(512, {{0, 1}, {2, 4}, {8, 41}, {15, 0xC0}}), false, VEK_SCSI_UNEXPECTED_DATA, -99},
        {page(12, {{0, 1}, {2, 5}}), false, VEK_SCSI_SHORT_RESPONSE, -99},
        {page(512, {{0, 1}, {2, 5}, {88, 70}, {95, 0x80}}), true, 0, 70},
        {page(512, {{0, 1}, {2, 5}, {88, 70}}), true, VEK_SCSI_UNEXPECTED_DATA, -99},
        {page(90, {{0, 1}, {2, 5}, {88, 70}, {89, 0x80}}), true, VEK_SCSI_SHORT_RESPONSE, -99},
    };
    for (const auto& c : sata) {
        int value = -99;
        const int result = c.mcot ? sata_parse_mcot(c.buf.data(), c.buf.size(), &value)
                                  : sata_parse_current(c.buf.data(), c.buf.size(), &value);
        EXPECT_EQ(result, c.result) << &c - sata;
        EXPECT_EQ(value, c.value) << &c - sata;
    }

    const std::string text = std::string("\x00\x00\x06\x02\x5b\x00\x00\x02", 8) + "  ATA   " +
                             std::string("ST2400MM0129\0\0\0\0", 16) + "C0  " + "WBN0ABCD0000        ";
    const Bytes inq(text.begin(), text.end());
    EXPECT_EQ(inq_parse_vendor(inq), "ATA");
    EXPECT_EQ(inq_parse_prodID(inq), "ST2400MM0129");
    EXPECT_EQ(inq_parse_rev(inq), "C0");
    EXPECT_EQ(inq_parse_type(inq), 0);
    EXPECT_EQ(inq_parse_rev(Bytes(inq.begin(), inq.begin() + 34)), "C0");
    EXPECT_EQ(inq_parse_type(Bytes{0x0D}), 13);
}

TEST(ScsiParsers, AtaIdentifyData)
{
    Bytes id(512, 0);
    auto word = [&id](size_t w, unsigned v) { id[2 * w] = v & 0xFF; id[2 * w + 1] = v >> 8; };
    auto text = [&word](size_t first, const std::string& t) { // first character in each word's high byte
        for (size_t i = 0; i + 1 < t.size(); i += 2) {
            word(first + i / 2, static_cast<unsigned char>(t[i]) << 8 | static_cast<unsigned char>(t[i + 1]));
        }
    };
    text(23, "FW01    ");
    text(27, "Samsung SSD 860 EVO     ");
    word(60, 0xFFFF);
    word(61, 0x0FFF); // 28-bit count, ignored when 48-bit is there
    word(83, 1 << 10);
    word(100, 0x5970);
    word(101, 0x1D1C); // 488397168 sectors
    word(80, 0x03F0);  // ACS-2 and below
    word(217, 1);
    EXPECT_EQ(ata_identify_string(id, 23, 4), "FW01");
    EXPECT_EQ(ata_identify_string(id, 27, 20), "Samsung SSD 860 EVO");
    EXPECT_EQ(ata_identify_string(id, 250, 20), "");
    EXPECT_EQ(ata_major_revision(id), 9);
    EXPECT_EQ(ata_capacity_bytes(id), 488397168ull * 512);
    EXPECT_TRUE(ata_is_ssd(id));

    word(106, 0x4000 | 1 << 12);
    word(117, 2048); // 4096-byte logical sectors
    EXPECT_EQ(ata_capacity_bytes(id), 488397168ull * 4096);
    word(83, 0);
    word(80, 0xFFFF);
    word(217, 7200);
    EXPECT_EQ(ata_capacity_bytes(id), 0x0FFFFFFFull * 4096);
    EXPECT_EQ(ata_major_revision(id), 0);
    EXPECT_FALSE(ata_is_ssd(id));
}

// Each probe against the peer: what the caller gets, the log line it leaves,
// and the command the disk saw.
TEST_F(ScsiInfoTest, ProbesAgainstTheDiskPeer)
{
    vekIPMITest::ScopedEnv fast("VEK_TIME_SCALE", "1000");
    using Probe = std::function<int(int)>;
    const Probe health = [](int fd) { return get_sas_health(fd); };
    const Probe sasTemp = [](int fd) {
        std::vector<unsigned char> p;
        const int rc = get_sas_temp(fd, p);
        return rc == 0 ? sas_parse_current(p) * 1000 + sas_parse_mcot(p) : rc;
    };
    const Bytes tempPage = {0x0D, 0, 0, 12, 0, 0, 3, 2, 0, 34, 0, 1, 3, 2, 0, 60};
    struct Case {
        const char* what;
        Probe probe;
        std::vector<Answer> answers;
        int result;
        std::string log;
        Bytes cdb;
    };
    std::vector<Case> cases = {
        {"healthy page", health, {reply(kIePage)}, 0x5D10, "",
         {0x4D, 0, 0x6F, 0, 0, 0, 0, 0, 98, 0}},
        {"short page", health, {reply(Bytes(kIePage.begin(), kIePage.begin() + 6))},
         VEK_SCSI_SHORT_RESPONSE, "IOCTL for LOG SENSE (Informational Exceptions) returned 6 bytes. (Min expected: 10)", {}},
        {"closes early", health, {broken(Answer::CloseEarly)}, VEK_SCSI_IOCTL_FAILED,
         "IOCTL for LOG SENSE (Informational Exceptions) failed. (-1, 5)", {}},
        {"never answers", health, {broken(Answer::Silent)}, VEK_SCSI_IOCTL_FAILED,
         "IOCTL for LOG SENSE (Informational Exceptions) failed. (-1, 110)", {}},
        {"power-on", [](int fd) { return get_sas_pwron(fd); },
         {reply(page(16, {{0, 0x15}, {3, 12}, {9, 0x0A}, {10, 0xFC}, {11, 0x80}}))}, 12000, "",
         {0x4D, 0, 0x55, 0, 0, 0, 0, 0, 32, 0}},
        {"temperature page", sasTemp, {reply(tempPage), reply(tempPage)}, 34060, "",
         {0x4D, 0, 0x4D, 0, 0, 0, 0, 0, 16, 0}},
        {"temperature page cut", sasTemp,
         {reply(Bytes(tempPage.begin(), tempPage.begin() + 8)),
          reply(Bytes(tempPage.begin(), tempPage.begin() + 8))},
         VEK_SCSI_SHORT_RESPONSE, "IOCTL for LOG SENSE (Temperature) returned 8 bytes. (Min expected: 16)", {}},
        {"SATA power-on", [](int fd) { return get_sata_pwron(fd); },
         {reply(page(512, {{0, 1}, {2, 1}, {16, 0xE0}, {17, 0x2E}}))}, 12000, "",
         {0x85, 9, 0x0E, 0, 0, 0, 1, 0, 4, 0, 1, 0, 0, 0, 0x2F, 0}},
        {"SATA power-on, short page", [](int fd) { return get_sata_pwron(fd); },
         {reply(page(16, {{0, 1}, {2, 1}}))}, -1, "", {}},
        {"transport", [](int fd) { return get_scsi_transport_protocol(fd); },
         {reply({0x0B, 0, 0, 0, 0x19, 6, 0x06, 0})}, 6, "", {0x1A, 0x08, 0x19, 0, 255, 0}},
        {"solid state", [](int fd) { return is_unit_ssd(fd); },
         {reply({0, 0xB1, 0, 0x3C, 0, 1})}, 1, "", {0x12, 1, 0xB1, 0, 252, 0}},
        {"recovered error", health, {reply(kIePage, 2, fixedSense(1))}, 0x5D10,
         "LOG SENSE (Informational Exceptions): sense: 70 00 01 00", {}},
        {"descriptor sense", health, {reply(kIePage, 2, {0x72, 5, 0x24, 0, 0, 0, 0, 0})},
         VEK_SCSI_ILLEGAL_REQUEST, "LOG SENSE (Informational Exceptions) command failed.", {}},
    };
    const std::pair<unsigned char, int> keys[] = {{2, VEK_SCSI_NOT_READY},        {3, VEK_SCSI_MEDIUM_ERROR},
                                                  {4, VEK_SCSI_HARDWARE_ERROR},   {5, VEK_SCSI_ILLEGAL_REQUEST},
                                                  {6, VEK_SCSI_UNIT_ATTENTION},   {11, VEK_SCSI_ABORTED_COMMAND},
                                                  {14, VEK_SCSI_OTHER_SENSE}};
    for (const auto& key : keys) {
        cases.push_back({"sense key", health, {reply(kIePage, 2, fixedSense(key.first))}, key.second,
                         "LOG SENSE (Informational Exceptions): sgiob: info=[0x1]; masked_status=[0x1]; "
                         "host_status=[0x0]; driver_status=[0x8]; status=[0x2]; sb_len_wr=[18]; dxfer_len=[98]; "
                         "resid=[86]",
                         {}});
    }
    for (const Case& c : cases) {
        SCOPED_TRACE(std::string(c.what) + " " + std::to_string(c.result));
        DiskPeer peer(node(), c.answers);
        const UniqueFd fd(vekScsiOpenGenericDevice("/dev/sg1"));
        ASSERT_TRUE(fd.valid());
        vekIPMITest::LogTail log;
        EXPECT_EQ(c.probe(fd.get()), c.result);
        // No line expected: nothing at warning level or above either.
        EXPECT_TRUE(c.log.empty() ? !log.contains("[ERROR]") && !log.contains("[WARNING]") : log.contains(c.log))
            << log.text();
        if (!c.cdb.empty()) {
            ASSERT_FALSE(peer.cdbs().empty());
            EXPECT_EQ(peer.cdbs().front(), c.cdb);
        }
    }
}

// A peer that sends more than the caller's buffers hold never writes past
// them; the record says what the kernel would.
TEST_F(ScsiInfoTest, RecordFilledAsTheKernelWould)
{
    const Answer overflow = reply(Bytes(24, 0x11), 2, Bytes(40, 0x70));
    const Answer good = reply(Bytes(10, 0x22));
    DiskPeer peer(node(), {overflow, good});
    const UniqueFd fd(vekScsiOpenGenericDevice("sg1"));
    ASSERT_TRUE(fd.valid());

    for (const Answer* answer : {&overflow, &good}) {
        Bytes data(32, 0xA5), sense(40, 0xA5);
        unsigned char cdb[6] = {0x12, 0, 0, 0, 16, 0};
        sg_io_hdr_t io = {};
        io.interface_id = 'S';
        io.dxfer_direction = SG_DXFER_FROM_DEV;
        io.cmd_len = sizeof(cdb);
        io.cmdp = cdb;
        io.dxfer_len = 16;
        io.dxferp = data.data();
        io.mx_sb_len = 32;
        io.sbp = sense.data();
        io.timeout = 60000;
        ASSERT_EQ(vekScsiPassThrough(fd.get(), &io), 0);
        const bool over = answer == &overflow;
        EXPECT_EQ(io.status, over ? 2 : 0);
        EXPECT_EQ(io.masked_status, over ? 1 : 0);
        EXPECT_EQ(io.info & SG_INFO_CHECK, over ? SG_INFO_CHECK : 0u);
        EXPECT_EQ(io.sb_len_wr, over ? 32 : 0);
        EXPECT_EQ(io.resid, over ? 0 : 6);
        EXPECT_EQ(Bytes(data.begin(), data.begin() + 10), Bytes(10, over ? 0x11 : 0x22));
        EXPECT_EQ(Bytes(data.begin() + 16, data.end()), Bytes(16, 0xA5));
        EXPECT_EQ(Bytes(sense.begin() + 32, sense.end()), Bytes(8, 0xA5));
    }
    errno = 0;
    EXPECT_EQ(vekScsiOpenGenericDevice("sg9"), -1);
    EXPECT_EQ(errno, ENOENT);
    EXPECT_EQ(vekScsiOpenGenericDevice("../etc/passwd"), -1);
}

TEST_F(ScsiInfoTest, SysfsReaders)
{
    const std::string dev = "/sys/class/scsi_device/2:0:0:0/device/";
    root.writeFile(dev + "type", "0\n");
    root.writeFile(dev + "state", "running\n");
    root.makeDirectory(dev + "rev"); // present but unreadable
    root.makeDirectory(dev + "scsi_generic/sg1");
    root.writeFile("/sys/block/sdb/device/vpd_pg83", std::string("\x00\x83\x00\x04\x01\xA3\x00\x00", 8));
    const std::string bad = "/sys/class/scsi_device/2:0:1:0/device/";
    root.writeFile(bad + "vpd_pg80", std::string("\x00\x80\x00\x30", 4) + "SHORT");
    root.writeFile(bad + "inquiry", std::string(36, '\0') + "Z1Z0ABCD\0\0\0\0");
    root.writeFile("/sys/devices/pci0000:00/sdb/size", "4688430000\n");

    EXPECT_EQ(get_DiskType("2:0:0:0"), "0");
    EXPECT_FALSE(is_direct_access_block_device("2:0:1:0"));
    EXPECT_EQ(get_DiskState("2:0:0:0"), "running");
    EXPECT_EQ(get_sas_DiskRev("2:0:0:0"), "");
    EXPECT_EQ(get_DiskModel("9:0:0:0"), "");
    EXPECT_EQ(get_ScsiGeneric("2:0:0:0"), "sg1");
    EXPECT_EQ(get_ScsiGeneric("2:0:1:0"), "");
    EXPECT_EQ(get_durableName_from_block_vpd_pg83("sdb"), "0083000401A30000");
    EXPECT_EQ(get_durableName_from_block_vpd_pg83("sdc"), "");
    EXPECT_EQ(get_BlockSize("pci0000:00/sdb"), 4688430000LL);
    EXPECT_EQ(get_PciBlockSize("devices/pci0000:00/sdb"), 4688430000LL);
    EXPECT_EQ(get_BlockSize("pci0000:00/sdc"), -1);

    std::string serial = "unset";
    vekIPMITest::LogTail log;
    EXPECT_EQ(get_unit_sn_from_sysfs_vpd_pg80("2:0:1:0", serial), 0);
    EXPECT_EQ(serial, "Z1Z0ABCD");
    EXPECT_TRUE(log.contains("Unable to extract disk serial number from sysfs VPD page 80. (9, 48)")) << log.text();
    EXPECT_NE(get_unit_sn_from_sysfs_vpd_pg80("9:0:0:0", serial), 0);
    EXPECT_EQ(serial, "Z1Z0ABCD");
    EXPECT_TRUE(log.contains("Unable to extract disk serial number from sysfs inquiry. (-1, 0)")) << log.text();
}

} // namespace
