// The probes: one command each, through the one pass-through, with the page
// checked before a byte of it is believed. Every failure is a result code and
// a log line; nothing here throws or keeps state.

#include "vekScsiInfo.h"

#include "vekConfig.h"
#include "vekGlobalDef.h"
#include "vekLog.h"
#include "vekUtils.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <initializer_list>
#include <string>
#include <vector>

std::vector<unsigned char> vekAtaIdentifyDeviceCdb()
{
    return {0x85, 0x08, 0x0E, 0x00, 0x00, 0x00, 0x01, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0xEC, 0x00};
}

namespace {

const char* const TAG = "SCSI_INFO";

using vekGlobalDef::stringUtils;
using vekGlobalDef::UniqueFd;

const unsigned int kTimeoutMs = 60000;
// The SMART logs of a busy ATA disk can take a while to gather.
const unsigned int kSmartLogTimeoutMs = 20000;
const unsigned char kSenseBufferSize = 32;
const size_t kSenseTextMax = 256;
// Sysfs pages are small; anything longer is not a page we know.
const size_t kSysfsPageMax = 4096;

// Blanks and the NULs that pad fixed-size fields of SCSI and ATA data.
const std::string kFieldPadding(" \t\r\n\f\v\0", 7);

unsigned char hi(size_t value) { return static_cast<unsigned char>((value >> 8) & 0xFF); }
unsigned char lo(size_t value) { return static_cast<unsigned char>(value & 0xFF); }

unsigned int be16(const unsigned char* p) { return static_cast<unsigned int>(p[0]) << 8 | p[1]; }
uint32_t be32(const unsigned char* p)
{
    return static_cast<uint32_t>(p[0]) << 24 | static_cast<uint32_t>(p[1]) << 16 | static_cast<uint32_t>(p[2]) << 8 |
           p[3];
}
uint64_t be64(const unsigned char* p) { return static_cast<uint64_t>(be32(p)) << 32 | be32(p + 4); }

std::string trimField(const unsigned char* bytes, size_t length)
{
    return stringUtils::trim(std::string(reinterpret_cast<const char*>(bytes), length), kFieldPadding);
}

// One command to one device: the record zeroed, the data in from the device.
class ScsiCommand {
public:
    ScsiCommand(const char* name, std::initializer_list<unsigned char> cdb, size_t transfer,
                unsigned int timeoutMs = kTimeoutMs)
        : name_(name), cdb_(cdb), data_(transfer, 0), timeoutMs_(timeoutMs)
    {
    }
    ScsiCommand(const char* name, std::vector<unsigned char> cdb, size_t transfer)
        : name_(name), cdb_(std::move(cdb)), data_(transfer, 0), timeoutMs_(kTimeoutMs)
    {
    }

    // 0 when the command succeeded (transferred() then tells how much came
    // back), else the result code, logged.
    int run(int fd)
    {
        unsigned char sense[kSenseBufferSize] = {0};
        std::fill(data_.begin(), data_.end(), 0);
        sg_io_hdr_t io;
        std::memset(&io, 0, sizeof(io));
        io.interface_id = 'S';
        io.dxfer_direction = SG_DXFER_FROM_DEV;
        io.cmd_len = static_cast<unsigned char>(cdb_.size());
        io.cmdp = cdb_.data();
        io.mx_sb_len = sizeof(sense);
        io.sbp = sense;
        io.dxfer_len = static_cast<unsigned int>(data_.size());
        io.dxferp = data_.data();
        io.timeout = timeoutMs_;
        const int rc = vekScsiPassThrough(fd, &io);
        if (rc < 0) {
            const int error = errno;
            VEK_LOG_ERROR(TAG, "IOCTL for %s failed. (%d, %d)", name_, rc, error);
            return VEK_SCSI_IOCTL_FAILED;
        }
        const int result = process_scsi_completion(io, data_.data(), name_);
        if (result != VEK_SCSI_OK) {
            VEK_LOG_WARNING(TAG, "%s command failed.", name_);
            return result;
        }
        const int resid = std::max(0, std::min(io.resid, static_cast<int>(io.dxfer_len)));
        transferred_ = io.dxfer_len - static_cast<unsigned int>(resid);
        return VEK_SCSI_OK;
    }

    // run(), then at least 'minimum' bytes, else VEK_SCSI_SHORT_RESPONSE.
    int runAtLeast(int fd, size_t minimum)
    {
        const int result = run(fd);
        if (result != VEK_SCSI_OK) {
            return result;
        }
        return atLeast(minimum) ? VEK_SCSI_OK : VEK_SCSI_SHORT_RESPONSE;
    }

    // Same check for a length the answer itself states.
    bool atLeast(size_t minimum) const
    {
        if (transferred_ < minimum) {
            VEK_LOG_WARNING(TAG, "IOCTL for %s returned %zu bytes. (Min expected: %zu)", name_, transferred_, minimum);
            return false;
        }
        return true;
    }

    unsigned char operator[](size_t index) const { return index < data_.size() ? data_[index] : 0; }
    const unsigned char* data() const { return data_.data(); }
    size_t transferred() const { return transferred_; }

private:
    const char* name_;
    std::vector<unsigned char> cdb_;
    std::vector<unsigned char> data_;
    unsigned int timeoutMs_;
    size_t transferred_ = 0;
};

// --- CDBs --------------------------------------------------------------------
// 'pageByte' carries page control 01b (cumulative values) over the page code.
ScsiCommand logSense(const char* name, unsigned char pageByte, size_t transfer)
{
    return ScsiCommand(name, {0x4D, 0x00, pageByte, 0x00, 0x00, 0x00, 0x00, hi(transfer), lo(transfer), 0x00},
                       transfer);
}

ScsiCommand inquiry(const char* name, bool vpd, unsigned char page, size_t transfer)
{
    return ScsiCommand(name, {0x12, static_cast<unsigned char>(vpd ? 0x01 : 0x00), page, hi(transfer), lo(transfer), 0x00},
                       transfer);
}

ScsiCommand modeSense6(const char* name, unsigned char flags, unsigned char page, size_t transfer)
{
    return ScsiCommand(name, {0x1A, flags, page, 0x00, lo(transfer), 0x00}, transfer);
}

ScsiCommand ataIdentify() { return ScsiCommand("ATA IDENTIFY DEVICE", vekAtaIdentifyDeviceCdb(), 512); }

const size_t kAtaIdentifyMinimum = 53;

// A stated length ("n more bytes follow") as a minimum, never more than the
// command could bring back.
size_t statedMinimum(size_t header, size_t stated, size_t transfer) { return std::min(header + stated, transfer); }

// --- Sysfs -------------------------------------------------------------------
bool isPlainName(const std::string& name)
{
    return !name.empty() && name.find('/') == std::string::npos && name != "." && name != "..";
}

std::string scsiDevicePath(const std::string& scsiName, const char* attribute)
{
    return vekConfig::getEnv() + "/sys/class/scsi_device/" + scsiName + "/device/" + attribute;
}

std::string readScsiAttribute(const std::string& scsiName, const char* attribute)
{
    if (!isPlainName(scsiName)) {
        return "";
    }
    return stringUtils::trim(vekUtils::getLineFromFile(scsiDevicePath(scsiName, attribute)));
}

// The bytes of a binary sysfs file (at most kSysfsPageMax), or -1.
ssize_t readBinaryFile(const std::string& path, std::vector<unsigned char>& bytes)
{
    bytes.assign(kSysfsPageMax, 0);
    const UniqueFd fd(::open(path.c_str(), O_RDONLY | O_CLOEXEC));
    if (!fd.valid()) {
        bytes.clear();
        return -1;
    }
    size_t done = 0;
    while (done < bytes.size()) {
        const ssize_t n = ::read(fd.get(), bytes.data() + done, bytes.size() - done);
        if (n < 0 && errno == EINTR) {
            continue;
        }
        if (n < 0) {
            bytes.clear();
            return -1;
        }
        if (n == 0) {
            break;
        }
        done += static_cast<size_t>(n);
    }
    bytes.resize(done);
    return static_cast<ssize_t>(done);
}

long long readSizeFile(const std::string& path)
{
    const std::string text = stringUtils::trim(vekUtils::getLineFromFile(path));
    if (text.empty()) {
        return -1;
    }
    char* end = nullptr;
    errno = 0;
    const long long value = std::strtoll(text.c_str(), &end, 10);
    return (errno != 0 || end == text.c_str() || *end != '\0' || value < 0) ? -1 : value;
}

// The vendor-specific field of standard inquiry data where disks put their
// serial number.
const size_t kInquirySerialOffset = 36;
const size_t kInquirySerialLength = 20;

std::string inquirySerial(const unsigned char* inquiryData, size_t length)
{
    if (length <= kInquirySerialOffset) {
        return "";
    }
    return trimField(inquiryData + kInquirySerialOffset, std::min(kInquirySerialLength, length - kInquirySerialOffset));
}

std::string inquiryField(const std::vector<unsigned char>& inquiryData, size_t offset, size_t length)
{
    if (inquiryData.size() <= offset) {
        return "";
    }
    return trimField(inquiryData.data() + offset, std::min(length, inquiryData.size() - offset));
}

// ATA data is a sequence of little-endian words.
unsigned int ataWord(const std::vector<unsigned char>& identify, size_t word)
{
    const size_t at = word * 2;
    return at + 1 < identify.size() ? static_cast<unsigned int>(identify[at]) | identify[at + 1] << 8 : 0;
}

// Device Statistics pages: revision in bytes 0-1, page number in byte 2.
bool isDeviceStatisticsPage(const unsigned char* page, size_t size, unsigned char number)
{
    return size > 2 && (page[0] != 0 || page[1] != 0) && page[2] == number;
}

// A statistic's qualifier: "supported" or "valid value".
bool statisticIsValid(unsigned char qualifier) { return (qualifier & 0xC0) != 0; }

int parseDeviceStatistic(const unsigned char* buf, size_t size, size_t minimum, size_t qualifier, size_t offset,
                         int* value)
{
    if (buf == nullptr || value == nullptr) {
        return VEK_SCSI_INVALID_ARGUMENT;
    }
    if (size < minimum) {
        return VEK_SCSI_SHORT_RESPONSE;
    }
    if (!isDeviceStatisticsPage(buf, size, 5) || !statisticIsValid(buf[qualifier])) {
        return VEK_SCSI_UNEXPECTED_DATA;
    }
    *value = static_cast<signed char>(buf[offset]);
    return VEK_SCSI_OK;
}

} // namespace

bool vekScsiIsNotSupported(int result)
{
    // An ATA disk refuses a log page it lacks with ABORT, which a translation
    // layer reports as ABORTED COMMAND.
    return result == VEK_SCSI_SHORT_RESPONSE || result == VEK_SCSI_ILLEGAL_REQUEST ||
           result == VEK_SCSI_ABORTED_COMMAND || result == VEK_SCSI_UNEXPECTED_DATA;
}

int process_scsi_completion(const sg_io_hdr_t& io, const unsigned char* buffer, const char* name)
{
    (void)buffer; // the data needs no look: everything to judge is in the record
    if ((io.info & SG_INFO_OK_MASK) != SG_INFO_CHECK) {
        return VEK_SCSI_OK;
    }
    const unsigned char* sense = io.sbp;
    const size_t senseLength = sense == nullptr ? 0 : std::min<size_t>(io.sb_len_wr, io.mx_sb_len);
    std::string senseText;
    for (size_t i = 0; i < senseLength && senseText.size() + 3 <= kSenseTextMax; ++i) {
        senseText += vekLog::format(" %02x", sense[i]);
    }
    VEK_LOG_WARNING(TAG,
                    "%s: sgiob: info=[0x%x]; masked_status=[0x%x]; host_status=[0x%x]; driver_status=[0x%x]; "
                    "status=[0x%x]; sb_len_wr=[%d]; dxfer_len=[%u]; resid=[%d]",
                    name, io.info, io.masked_status, io.host_status, io.driver_status, io.status, io.sb_len_wr,
                    io.dxfer_len, io.resid);
    if (!senseText.empty()) {
        VEK_LOG_WARNING(TAG, "%s: sense:%s", name, senseText.c_str());
    }
    // The command did not reach the disk, or the driver gave up on it: no
    // sense can make that a success. (Driver status 8 only says sense came.)
    const unsigned int driverCode = io.driver_status & 0x0F;
    if (io.host_status != 0 || (driverCode != 0 && driverCode != 0x08)) {
        return VEK_SCSI_COMMAND_FAILED;
    }
    int key = -1;
    if (senseLength >= 3 && ((sense[0] & 0x7F) == 0x70 || (sense[0] & 0x7F) == 0x71)) {
        key = sense[2] & 0x0F; // fixed format, current or deferred
    } else if (senseLength >= 2 && ((sense[0] & 0x7F) == 0x72 || (sense[0] & 0x7F) == 0x73)) {
        key = sense[1] & 0x0F; // descriptor format, for disks that prefer it
    }
    switch (key) {
    case -1:
        return io.masked_status == 0 ? VEK_SCSI_OK : VEK_SCSI_COMMAND_FAILED;
    case 0x0: // NO SENSE
    case 0x1: // RECOVERED ERROR: the command completed
        return VEK_SCSI_OK;
    case 0x2:
        return VEK_SCSI_NOT_READY;
    case 0x3:
        return VEK_SCSI_MEDIUM_ERROR;
    case 0x4:
        return VEK_SCSI_HARDWARE_ERROR;
    case 0x5:
        return VEK_SCSI_ILLEGAL_REQUEST;
    case 0x6:
        return VEK_SCSI_UNIT_ATTENTION;
    case 0xB:
        return VEK_SCSI_ABORTED_COMMAND;
    default:
        return VEK_SCSI_OTHER_SENSE;
    }
}

// --- SCSI (SAS) pages -----------------------------------------------------------

int get_unit_temp(int fd, int& temperature)
{
    ScsiCommand cmd = logSense("LOG SENSE (Informational Exceptions)", 0x6F, 98);
    const int result = cmd.runAtLeast(fd, 11);
    if (result != VEK_SCSI_OK) {
        return result;
    }
    if ((cmd[0] & 0x3F) != 0x2F) {
        return VEK_SCSI_UNEXPECTED_DATA;
    }
    temperature = cmd[10]; // most recent temperature reading of parameter 0000h
    return VEK_SCSI_OK;
}

int get_sas_temp(int fd, std::vector<unsigned char>& page)
{
    const char* const name = "LOG SENSE (Temperature)";
    ScsiCommand head = logSense(name, 0x4D, 16);
    int result = head.runAtLeast(fd, 4);
    if (result != VEK_SCSI_OK) {
        return result;
    }
    const size_t whole = std::min<size_t>(be16(head.data() + 2) + 4, 0xFFFF);
    ScsiCommand cmd = logSense(name, 0x4D, whole);
    result = cmd.runAtLeast(fd, whole);
    if (result != VEK_SCSI_OK) {
        return result;
    }
    page.assign(cmd.data(), cmd.data() + whole);
    return VEK_SCSI_OK;
}

int sas_parse_current(const std::vector<unsigned char>& page)
{
    // Parameter 0000h, the current temperature.
    if (page.size() < 10 || page[4] != 0 || page[5] != 0) {
        return 0;
    }
    return static_cast<signed char>(page[9]);
}

int sas_parse_mcot(const std::vector<unsigned char>& page)
{
    // Parameter 0001h, the reference (maximum operating) temperature.
    if (page.size() < 16 || page[10] != 0 || page[11] != 1) {
        return 0;
    }
    return static_cast<signed char>(page[15]);
}

int get_sas_ssd_wear(int fd)
{
    ScsiCommand cmd = logSense("LOG SENSE (Solid State Media)", 0x51, 16);
    const int result = cmd.runAtLeast(fd, 12);
    if (result != VEK_SCSI_OK) {
        return result;
    }
    VEK_LOG_DEBUG(TAG, "Wear Response: %02x %02x %02x", cmd[0], cmd[3], cmd[11]);
    if (cmd[0] != 17 || cmd[3] != 8) {
        return VEK_SCSI_UNEXPECTED_DATA;
    }
    return cmd[11]; // percentage used endurance indicator
}

int get_sas_pwron(int fd)
{
    ScsiCommand cmd = logSense("LOG SENSE (Background Scan Results)", 0x55, 32);
    const int result = cmd.runAtLeast(fd, 12);
    if (result != VEK_SCSI_OK) {
        return result;
    }
    if (cmd[0] != 21) {
        return VEK_SCSI_UNEXPECTED_DATA;
    }
    return static_cast<int>(be32(cmd.data() + 8) / 60); // accumulated power-on minutes
}

int get_sas_health(int fd)
{
    ScsiCommand cmd = logSense("LOG SENSE (Informational Exceptions)", 0x6F, 98);
    const int result = cmd.runAtLeast(fd, 10);
    if (result != VEK_SCSI_OK) {
        return result;
    }
    VEK_LOG_DEBUG(TAG, "SAS Health Response: %02x %02x %02x", cmd[0], cmd[8], cmd[9]);
    if (cmd[0] != 47) {
        return VEK_SCSI_UNEXPECTED_DATA;
    }
    return static_cast<int>(cmd[8]) << 8 | cmd[9]; // informational exception ASC and ASCQ
}

int get_identify_info(int fd, std::vector<unsigned char>& inquiryData)
{
    ScsiCommand cmd = inquiry("INQUIRY", false, 0x00, 252);
    int result = cmd.runAtLeast(fd, 5);
    if (result != VEK_SCSI_OK) {
        return result;
    }
    const size_t whole = statedMinimum(5, cmd[4], 252);
    if (!cmd.atLeast(whole)) {
        return VEK_SCSI_SHORT_RESPONSE;
    }
    inquiryData.assign(cmd.data(), cmd.data() + whole);
    return VEK_SCSI_OK;
}

int get_unit_sn_from_device_inquiry(int fd, std::string& serial)
{
    std::vector<unsigned char> inquiryData;
    const int result = get_identify_info(fd, inquiryData);
    if (result != VEK_SCSI_OK && result != VEK_SCSI_SHORT_RESPONSE) {
        return result;
    }
    const std::string found = inquirySerial(inquiryData.data(), inquiryData.size());
    if (found.empty()) {
        VEK_LOG_INFO(TAG, "No disk S/N available from SCSI Standard Inquiry page. Trying VPD page 0x80");
        return get_unit_sn_from_device_vpd_pg80(fd, serial);
    }
    serial = found;
    return VEK_SCSI_OK;
}

int get_unit_sn_from_device_vpd_pg80(int fd, std::string& serial)
{
    ScsiCommand cmd = inquiry("INQUIRY (VPD page 0x80)", true, 0x80, 252);
    const int result = cmd.runAtLeast(fd, 4);
    if (result != VEK_SCSI_OK) {
        return result;
    }
    const size_t whole = statedMinimum(4, be16(cmd.data() + 2), 252);
    if (!cmd.atLeast(whole)) {
        return VEK_SCSI_SHORT_RESPONSE;
    }
    const std::string found = trimField(cmd.data() + 4, whole - 4);
    if (cmd[1] != 0x80 || found.empty()) {
        return VEK_SCSI_UNEXPECTED_DATA;
    }
    serial = found;
    return VEK_SCSI_OK;
}

int is_unit_ssd(int fd)
{
    ScsiCommand cmd = inquiry("INQUIRY (VPD page 0xB1)", true, 0xB1, 252);
    const int result = cmd.runAtLeast(fd, 6);
    if (result != VEK_SCSI_OK) {
        return result;
    }
    VEK_LOG_DEBUG(TAG, "SSD Response: %02x %02x %02x %02x %02x %02x", cmd[0], cmd[1], cmd[2], cmd[3], cmd[4], cmd[5]);
    return (cmd[4] == 0 && cmd[5] == 1) ? 1 : 0; // medium rotation rate 1: non-rotating
}

int get_scsi_disk_medium_rotation_rate(int fd)
{
    ScsiCommand cmd = inquiry("INQUIRY (VPD page 0xB1)", true, 0xB1, 252);
    const int result = cmd.runAtLeast(fd, 6);
    if (result != VEK_SCSI_OK) {
        return result;
    }
    VEK_LOG_DEBUG(TAG, "DMRR Response: %02x %02x %02x %02x %02x %02x", cmd[0], cmd[1], cmd[2], cmd[3], cmd[4], cmd[5]);
    if (cmd[1] != 0xB1 || be16(cmd.data() + 2) <= 1) {
        return VEK_SCSI_UNEXPECTED_DATA;
    }
    return static_cast<int>(be16(cmd.data() + 4));
}

int is_unit_smart(int fd)
{
    ScsiCommand cmd = modeSense6("MODE SENSE(6) (Informational Exceptions Control)", 0x00, 0x1C, 252);
    const int result = cmd.runAtLeast(fd, 4);
    if (result != VEK_SCSI_OK) {
        return result;
    }
    const size_t whole = statedMinimum(1, cmd[0], 252);
    if (!cmd.atLeast(whole)) {
        return VEK_SCSI_SHORT_RESPONSE;
    }
    const size_t page = 4 + cmd[3]; // past the block descriptors
    if (page + 3 > whole || (cmd[page] & 0x3F) != 0x1C) {
        return VEK_SCSI_UNEXPECTED_DATA;
    }
    return (cmd[page + 2] & 0x08) ? 0 : 1; // DEXCPT: failure prediction switched off
}

int get_scsi_transport_protocol(int fd)
{
    ScsiCommand cmd = modeSense6("MODE SENSE(6) (Protocol Specific Port)", 0x08, 25, 255);
    const int result = cmd.runAtLeast(fd, 7);
    if (result != VEK_SCSI_OK) {
        return result;
    }
    VEK_LOG_DEBUG(TAG, "PSPP Response: %02x %02x %02x %02x %02x %02x %02x", cmd[0], cmd[1], cmd[2], cmd[3], cmd[4],
                  cmd[5], cmd[6]);
    const size_t page = 4 + cmd[3];
    if (!cmd.atLeast(page + 3)) {
        return VEK_SCSI_SHORT_RESPONSE;
    }
    if ((cmd[page] & 127) != 25 || cmd[page + 1] == 0) {
        return VEK_SCSI_UNEXPECTED_DATA;
    }
    return cmd[page + 2] & 0x0F;
}

int get_disk_capacity(int fd, uint64_t& bytes)
{
    ScsiCommand rc10("READ CAPACITY(10)", {0x25, 0, 0, 0, 0, 0, 0, 0, 0, 0}, 4096);
    int result = rc10.runAtLeast(fd, 8);
    if (result != VEK_SCSI_OK) {
        return result;
    }
    uint64_t lastBlock = be32(rc10.data());
    uint32_t blockSize = be32(rc10.data() + 4);
    if (lastBlock == 0xFFFFFFFFu) {
        // Too large for 32 bits: the 16-byte command tells the whole.
        ScsiCommand rc16("READ CAPACITY(16)",
                         {0x9E, 0x10, 0, 0, 0, 0, 0, 0, 0, 0, 0x00, 0x00, hi(4096), lo(4096), 0, 0}, 4096);
        result = rc16.runAtLeast(fd, 12);
        if (result != VEK_SCSI_OK) {
            return result;
        }
        lastBlock = be64(rc16.data());
        blockSize = be32(rc16.data() + 8);
    }
    if (blockSize == 0 || lastBlock == UINT64_MAX) {
        return VEK_SCSI_UNEXPECTED_DATA;
    }
    bytes = (lastBlock + 1) * blockSize;
    return VEK_SCSI_OK;
}

int get_defect_data_size(int fd)
{
    // The grown defect list, in bytes-from-index format.
    ScsiCommand cmd("READ DEFECT DATA(10)", {0x37, 0x00, 0x0C, 0, 0, 0, 0, hi(4096), lo(4096), 0x00}, 4096);
    const int result = cmd.runAtLeast(fd, 4);
    if (result != VEK_SCSI_OK) {
        return result;
    }
    return static_cast<int>(be16(cmd.data() + 2));
}

int get_unit_speed(int fd)
{
    // Phy Control And Discover (19h/01h): the negotiated logical link rate
    // of the disk's first phy (8h 1.5, 9h 3, Ah 6, Bh 12, Ch 22.5 Gbit/s).
    ScsiCommand cmd("MODE SENSE(10) (Phy Control And Discover)",
                    {0x5A, 0x08, 0x19, 0x01, 0, 0, 0, hi(4096), lo(4096), 0x00}, 4096);
    const int result = cmd.runAtLeast(fd, 38);
    if (result != VEK_SCSI_OK) {
        return result;
    }
    const size_t page = 8 + be16(cmd.data() + 6); // past the block descriptors
    const size_t phy = page + 8;
    if (!cmd.atLeast(phy + 6)) {
        return VEK_SCSI_SHORT_RESPONSE;
    }
    VEK_LOG_DEBUG(TAG, "Speed Response: %02x %02x", cmd[phy + 1], cmd[phy + 5]);
    if ((cmd[page] & 0x3F) != 0x19 || cmd[page + 1] != 0x01 || cmd[page + 7] == 0) {
        return VEK_SCSI_UNEXPECTED_DATA;
    }
    return cmd[phy + 5] & 0x0F;
}

// --- ATA through ATA PASS-THROUGH(16) -------------------------------------------

int get_sata_DiskRev(int fd, std::string& revision)
{
    ScsiCommand cmd = ataIdentify();
    const int result = cmd.runAtLeast(fd, kAtaIdentifyMinimum);
    if (result != VEK_SCSI_OK) {
        return result;
    }
    revision = ata_identify_string(std::vector<unsigned char>(cmd.data(), cmd.data() + 512), 23, 4);
    return VEK_SCSI_OK;
}

int get_ata_identify_device_info(int fd, std::vector<unsigned char>& identify)
{
    ScsiCommand cmd = ataIdentify();
    const int result = cmd.runAtLeast(fd, kAtaIdentifyMinimum);
    if (result != VEK_SCSI_OK) {
        return result;
    }
    identify.assign(cmd.data(), cmd.data() + 512);
    return VEK_SCSI_OK;
}

int get_sata_log(int fd, int page, unsigned char* out, size_t size)
{
    if (out == nullptr || size == 0 || page < 0 || page > 0xFF) {
        return VEK_SCSI_INVALID_ARGUMENT;
    }
    ScsiCommand cmd("ATA READ LOG EXT (Device Statistics)",
                    {0x85, 0x09, 0x0E, 0x00, 0x00, 0x00, 0x01, 0x00, 0x04, 0x00, static_cast<unsigned char>(page),
                     0x00, 0x00, 0x00, 0x2F, 0x00},
                    512);
    const int result = cmd.runAtLeast(fd, 1);
    if (result != VEK_SCSI_OK) {
        return result;
    }
    const size_t n = std::min(size, cmd.transferred());
    std::memcpy(out, cmd.data(), n);
    return static_cast<int>(n);
}

int get_sata_statlog(int fd, unsigned char* out, size_t size) { return get_sata_log(fd, 1, out, size); }
int get_sata_temp(int fd, unsigned char* out, size_t size) { return get_sata_log(fd, 5, out, size); }
int get_sata_ssdlog(int fd, unsigned char* out, size_t size) { return get_sata_log(fd, 7, out, size); }

int get_sata_ssd_wear(int fd)
{
    unsigned char page[512];
    const int n = get_sata_ssdlog(fd, page, sizeof(page));
    if (n < 0) {
        return n;
    }
    if (n < 9) {
        return VEK_SCSI_SHORT_RESPONSE;
    }
    if (!isDeviceStatisticsPage(page, static_cast<size_t>(n), 7)) {
        return VEK_SCSI_UNEXPECTED_DATA;
    }
    return page[8]; // percentage used endurance indicator
}

int get_sata_pwron(int fd)
{
    unsigned char page[512];
    const int n = get_sata_statlog(fd, page, sizeof(page));
    if (n <= 19) {
        return -1;
    }
    const uint32_t hours = static_cast<uint32_t>(page[16]) | static_cast<uint32_t>(page[17]) << 8 |
                           static_cast<uint32_t>(page[18]) << 16 | static_cast<uint32_t>(page[19]) << 24;
    return static_cast<int>(std::min<uint32_t>(hours, 0x7FFFFFFF));
}

int get_sata_health(int fd)
{
    ScsiCommand cmd("ATA READ LOG EXT (SMART Error Log)",
                    {0x85, 0x08, 0x0E, 0x00, 0x00, 0x00, 0x01, 0x00, 0x03, 0x00, 0x00, 0x00, 0x00, 0x00, 0x2F, 0x00},
                    512, kSmartLogTimeoutMs);
    const int result = cmd.runAtLeast(fd, 4);
    if (result != VEK_SCSI_OK) {
        return result;
    }
    if (cmd[0] != 1) {
        return VEK_SCSI_UNEXPECTED_DATA;
    }
    return static_cast<int>(cmd[2]) | cmd[3] << 8;
}

int get_sata_log_vpd_pgD0(int fd, std::vector<unsigned char>& page)
{
    ScsiCommand cmd = inquiry("INQUIRY (log address 0xD0)", true, 0xD0, 512);
    const int result = cmd.runAtLeast(fd, 2);
    if (result != VEK_SCSI_OK) {
        return result;
    }
    if (cmd[1] != 208) {
        return VEK_SCSI_UNEXPECTED_DATA;
    }
    page.assign(cmd.data(), cmd.data() + cmd.transferred());
    return VEK_SCSI_OK;
}

int get_sata_sct_stat(int fd, unsigned char* out, size_t size)
{
    if (out == nullptr || size == 0) {
        return VEK_SCSI_INVALID_ARGUMENT;
    }
    ScsiCommand cmd("SMART READ LOG",
                    {0x85, 0x08, 0x0E, 0x00, 0xD5, 0x00, 0x01, 0x00, 0x0E, 0x00, 0x4F, 0x00, 0xC2, 0x00, 0xB0, 0x00},
                    512, kSmartLogTimeoutMs);
    const int result = cmd.runAtLeast(fd, 512);
    if (result != VEK_SCSI_OK) {
        return result;
    }
    const size_t n = std::min<size_t>(size, 512);
    std::memcpy(out, cmd.data(), n);
    return static_cast<int>(n);
}

int sata_parse_current(const unsigned char* buf, size_t size, int* value)
{
    return parseDeviceStatistic(buf, size, 16, 15, 8, value);
}

int sata_parse_mcot(const unsigned char* buf, size_t size, int* value)
{
    return parseDeviceStatistic(buf, size, 96, 95, 88, value);
}

std::string ata_identify_string(const std::vector<unsigned char>& identify, int firstWord, int words)
{
    if (firstWord < 0 || words <= 0) {
        return "";
    }
    std::string text;
    for (size_t word = static_cast<size_t>(firstWord); word < static_cast<size_t>(firstWord) + words; ++word) {
        if (word * 2 + 1 >= identify.size()) {
            break;
        }
        // ATA strings hold the first character in the high byte of each word.
        text += static_cast<char>(identify[word * 2 + 1]);
        text += static_cast<char>(identify[word * 2]);
    }
    return stringUtils::trim(text, kFieldPadding);
}

int ata_major_revision(const std::vector<unsigned char>& identify)
{
    const unsigned int major = ataWord(identify, 80);
    if (major == 0 || major == 0xFFFF) {
        return 0; // not reported
    }
    for (int bit = 15; bit >= 1; --bit) {
        if (major & (1u << bit)) {
            return bit;
        }
    }
    return 0;
}

uint64_t ata_capacity_bytes(const std::vector<unsigned char>& identify)
{
    uint64_t sectors = 0;
    if (ataWord(identify, 83) & (1u << 10)) { // 48-bit addressing
        for (int word = 103; word >= 100; --word) {
            sectors = sectors << 16 | ataWord(identify, static_cast<size_t>(word));
        }
    }
    if (sectors == 0) {
        sectors = static_cast<uint64_t>(ataWord(identify, 61)) << 16 | ataWord(identify, 60);
    }
    uint64_t sectorSize = 512;
    const unsigned int sizes = ataWord(identify, 106);
    if ((sizes & 0xC000) == 0x4000 && (sizes & (1u << 12))) { // valid, and a logical sector above 256 words
        const uint64_t wordsPerSector = static_cast<uint64_t>(ataWord(identify, 118)) << 16 | ataWord(identify, 117);
        if (wordsPerSector != 0) {
            sectorSize = wordsPerSector * 2;
        }
    }
    return sectors * sectorSize;
}

bool ata_is_ssd(const std::vector<unsigned char>& identify) { return ataWord(identify, 217) == 1; }

// --- Standard inquiry data --------------------------------------------------------

std::string inq_parse_vendor(const std::vector<unsigned char>& inquiryData) { return inquiryField(inquiryData, 8, 8); }
std::string inq_parse_prodID(const std::vector<unsigned char>& inquiryData) { return inquiryField(inquiryData, 16, 16); }
std::string inq_parse_rev(const std::vector<unsigned char>& inquiryData) { return inquiryField(inquiryData, 32, 4); }

int inq_parse_type(const std::vector<unsigned char>& inquiryData)
{
    return inquiryData.empty() ? VEK_SCSI_SHORT_RESPONSE : (inquiryData[0] & 0x1F);
}

// --- Sysfs readers ------------------------------------------------------------------

std::string get_DiskType(const std::string& scsiName) { return readScsiAttribute(scsiName, "type"); }
std::string get_DiskModel(const std::string& scsiName) { return readScsiAttribute(scsiName, "model"); }
std::string get_sas_DiskRev(const std::string& scsiName) { return readScsiAttribute(scsiName, "rev"); }
std::string get_DiskVendor(const std::string& scsiName) { return readScsiAttribute(scsiName, "vendor"); }
std::string get_DiskState(const std::string& scsiName) { return readScsiAttribute(scsiName, "state"); }

bool is_direct_access_block_device(const std::string& scsiName) { return get_DiskType(scsiName) == "0"; }

std::string get_ScsiGeneric(const std::string& scsiName)
{
    if (!isPlainName(scsiName)) {
        return "";
    }
    const std::vector<std::string> entries = vekUtils::dirList(scsiDevicePath(scsiName, "scsi_generic"));
    return entries.empty() ? "" : entries.front();
}

int get_unit_sn_from_sysfs_vpd_pg80(const std::string& scsiName, std::string& serial)
{
    std::vector<unsigned char> page;
    const ssize_t n = isPlainName(scsiName) ? readBinaryFile(scsiDevicePath(scsiName, "vpd_pg80"), page) : -1;
    const unsigned int stated = n >= 4 ? be16(page.data() + 2) : 0;
    std::string found;
    if (n >= 4 && page[1] == 0x80 && 4 + static_cast<size_t>(stated) <= static_cast<size_t>(n)) {
        found = trimField(page.data() + 4, stated);
    }
    if (found.empty()) {
        VEK_LOG_WARNING(TAG, "Unable to extract disk serial number from sysfs VPD page 80. (%zd, %u)", n, stated);
        return get_unit_sn_from_sysfs_inquiry(scsiName, serial);
    }
    serial = found;
    return VEK_SCSI_OK;
}

int get_unit_sn_from_sysfs_inquiry(const std::string& scsiName, std::string& serial)
{
    std::vector<unsigned char> inquiryData;
    const ssize_t n = isPlainName(scsiName) ? readBinaryFile(scsiDevicePath(scsiName, "inquiry"), inquiryData) : -1;
    const unsigned int stated = n >= 5 ? inquiryData[4] + 5u : 0;
    const std::string found = n > 0 ? inquirySerial(inquiryData.data(), static_cast<size_t>(n)) : "";
    if (found.empty()) {
        VEK_LOG_WARNING(TAG, "Unable to extract disk serial number from sysfs inquiry. (%zd, %u)", n, stated);
        return n < 0 ? VEK_SCSI_IOCTL_FAILED : VEK_SCSI_UNEXPECTED_DATA;
    }
    serial = found;
    return VEK_SCSI_OK;
}

std::string get_durableName_from_block_vpd_pg83(const std::string& blockName)
{
    std::vector<unsigned char> page;
    if (!isPlainName(blockName) ||
        readBinaryFile(vekConfig::getEnv() + "/sys/block/" + blockName + "/device/vpd_pg83", page) <= 0) {
        return "";
    }
    std::string text;
    text.reserve(page.size() * 2);
    for (unsigned char byte : page) {
        text += vekLog::format("%02X", byte);
    }
    return text;
}

long long get_BlockSize(const std::string& deviceName)
{
    return readSizeFile(vekConfig::getEnv() + "/sys/devices/" + deviceName + "/size");
}

long long get_PciBlockSize(const std::string& deviceName)
{
    return readSizeFile(vekConfig::getEnv() + "/sys/devices/../" + deviceName + "/size");
}
