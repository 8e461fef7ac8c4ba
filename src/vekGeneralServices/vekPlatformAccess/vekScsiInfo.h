#pragma once

// Direct questions to a disk through the generic SCSI driver and sysfs, for
// what no vendor library reports: temperature, wear, power-on hours, health,
// capacity, speed, medium, transport, serial number.
//
// Every SCSI function takes an open descriptor of the disk's generic device
// (/dev/sgN under the path root) and goes through vekScsiPassThrough, the one
// place that talks to a device. None keeps state and none throws: a failure
// is a negative result (the codes below) and the caller leaves the property
// unset. Outputs are written only on success.

#include <scsi/sg.h>

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

// Results of the probes. A sense key of fixed-format sense data maps to its
// own code; success is zero or a non-negative value.
enum VEK_SCSI_RESULT : int {
    VEK_SCSI_OK = 0,
    VEK_SCSI_IOCTL_FAILED = -1,     // the pass-through itself failed (errno tells)
    VEK_SCSI_INVALID_ARGUMENT = -2, // bad descriptor, buffer or page
    VEK_SCSI_COMMAND_FAILED = -3,   // error without usable fixed-format sense
    VEK_SCSI_SHORT_RESPONSE = -4,   // fewer bytes than the command's minimum
    VEK_SCSI_NOT_READY = -5,        // sense key 2
    VEK_SCSI_MEDIUM_ERROR = -6,     // sense key 3
    VEK_SCSI_ILLEGAL_REQUEST = -7,  // sense key 5
    VEK_SCSI_HARDWARE_ERROR = -8,   // sense key 4
    VEK_SCSI_ABORTED_COMMAND = -9,  // sense key 11
    VEK_SCSI_UNIT_ATTENTION = -10,  // sense key 6
    VEK_SCSI_OTHER_SENSE = -11,     // any other sense key
    VEK_SCSI_UNEXPECTED_DATA = -12, // the answer is not the page that was asked for
};

// True for a result that means "this disk does not have that page", as
// opposed to a disk that failed to answer: a short or foreign page, ILLEGAL
// REQUEST, and ABORTED COMMAND (how a translation layer reports an ATA disk's
// refusal of a log page it lacks).
bool vekScsiIsNotSupported(int result);

// The one pass-through: SG_IO on a character device, or, when the descriptor
// names a Unix socket node (opened by vekScsiOpenGenericDevice), one request
// to the disk emulator behind it, connected and closed per request. Returns what ioctl would: 0, or -1 with errno set (EIO when the
// emulator's connection fails or closes early, ETIMEDOUT when it does not
// answer within the request's timeout, scaled by VEK_TIME_SCALE but never
// below 2 s). Fills resid, sb_len_wr, status, masked_status, host_status,
// driver_status and info as the kernel does, and never writes past dxfer_len
// or mx_sb_len: what an emulator sends beyond them is read and dropped.
int vekScsiPassThrough(int fd, sg_io_hdr_t* io);

// How many requests vekScsiPassThrough was given since the process started.
unsigned long long vekScsiRequestCount();

// Opens a generic device node under the path root ("sg3" or "/dev/sg3"): a
// character device read-write and non-blocking, a socket node as an O_PATH
// descriptor. Returns the descriptor or -1 with errno set (ENODEV, ENXIO...).
int vekScsiOpenGenericDevice(const std::string& sgName);

// Checks the completed record: 0 when the command succeeded (also with sense
// key NO SENSE or RECOVERED ERROR), else the code of its sense key (fixed
// format, or descriptor format) or VEK_SCSI_COMMAND_FAILED, with the record
// logged under 'name'. The sense is read through the record's sbp; 'buffer',
// the command's data, is not needed for the verdict.
int process_scsi_completion(const sg_io_hdr_t& io, const unsigned char* buffer, const char* name);

// --- SCSI (SAS) pages -------------------------------------------------------
int get_unit_temp(int fd, int& temperature);             // informational exceptions page
int get_sas_temp(int fd, std::vector<unsigned char>& page); // the whole temperature page
int sas_parse_current(const std::vector<unsigned char>& page);
int sas_parse_mcot(const std::vector<unsigned char>& page);
int get_sas_ssd_wear(int fd);                             // percentage used, or a negative result
int get_sas_pwron(int fd);                                // hours, or a negative result
int get_sas_health(int fd);                               // (ASC << 8) | ASCQ, 0 when healthy

int get_identify_info(int fd, std::vector<unsigned char>& inquiry);
// Bytes 36-55 of standard inquiry data; when empty, VPD page 80h instead.
int get_unit_sn_from_device_inquiry(int fd, std::string& serial);
int get_unit_sn_from_device_vpd_pg80(int fd, std::string& serial);
int is_unit_ssd(int fd);                                  // 1, 0, or a negative result
int get_scsi_disk_medium_rotation_rate(int fd);           // VPD B1h rate, or a negative result
int is_unit_smart(int fd);                                // 1, 0, or a negative result
int get_scsi_transport_protocol(int fd);                  // protocol identifier (6 SAS), or negative
int get_disk_capacity(int fd, uint64_t& bytes);
int get_defect_data_size(int fd);                         // defect list length, or negative
// Negotiated logical link rate of the first phy (mode page 19h/01h): 8h 1.5,
// 9h 3, Ah 6, Bh 12, Ch 22.5 Gbit/s; or negative.
int get_unit_speed(int fd);

// --- ATA through ATA PASS-THROUGH(16) -----------------------------------------
// The CDB of IDENTIFY DEVICE (512 bytes data-in), for a pass-through of a
// vendor library that takes the bytes rather than a descriptor.
std::vector<unsigned char> vekAtaIdentifyDeviceCdb();
int get_sata_DiskRev(int fd, std::string& revision);
int get_ata_identify_device_info(int fd, std::vector<unsigned char>& identify); // 512 bytes
// READ LOG EXT of the Device Statistics log (04h), one page: the number of
// bytes written to 'out' (at most 'size'), or a negative result.
int get_sata_log(int fd, int page, unsigned char* out, size_t size);
int get_sata_statlog(int fd, unsigned char* out, size_t size); // page 1, general statistics
int get_sata_temp(int fd, unsigned char* out, size_t size);    // page 5, temperature statistics
int get_sata_ssdlog(int fd, unsigned char* out, size_t size);  // page 7, solid state statistics
int get_sata_ssd_wear(int fd);                                 // percentage used, or negative
int get_sata_pwron(int fd);                                    // hours, -1 when not reported
int get_sata_health(int fd);                                   // errors in the SMART error log, or negative
int get_sata_log_vpd_pgD0(int fd, std::vector<unsigned char>& page);
int get_sata_sct_stat(int fd, unsigned char* out, size_t size); // SMART READ LOG, 512 bytes
int sata_parse_current(const unsigned char* buf, size_t size, int* value);
int sata_parse_mcot(const unsigned char* buf, size_t size, int* value);
// Firmware revision, model and serial number of IDENTIFY DEVICE data, and
// the major version word's highest ACS/ATA level (9 and above: ACS-2 or later).
std::string ata_identify_string(const std::vector<unsigned char>& identify, int firstWord, int words);
int ata_major_revision(const std::vector<unsigned char>& identify);
uint64_t ata_capacity_bytes(const std::vector<unsigned char>& identify);
bool ata_is_ssd(const std::vector<unsigned char>& identify); // nominal media rotation rate 1

// --- Standard inquiry data ------------------------------------------------------
std::string inq_parse_vendor(const std::vector<unsigned char>& inquiry);
std::string inq_parse_prodID(const std::vector<unsigned char>& inquiry);
std::string inq_parse_rev(const std::vector<unsigned char>& inquiry);
int inq_parse_type(const std::vector<unsigned char>& inquiry);

// --- Sysfs readers: "/sys/class/scsi_device/<name>/device/..." under the path root.
// A string reader gives the attribute's first line trimmed of blanks ("ATA",
// not "ATA     "), or "" when it is absent or unreadable. The serial number
// readers fall back from VPD page 80 to the inquiry data; the size readers
// give -1 when the file is missing or not a number.
std::string get_DiskType(const std::string& scsiName);
std::string get_DiskModel(const std::string& scsiName);
std::string get_sas_DiskRev(const std::string& scsiName);
std::string get_DiskVendor(const std::string& scsiName);
std::string get_DiskState(const std::string& scsiName);
bool is_direct_access_block_device(const std::string& scsiName);
std::string get_ScsiGeneric(const std::string& scsiName);   // "sg3", or "" when none
int get_unit_sn_from_sysfs_vpd_pg80(const std::string& scsiName, std::string& serial);
int get_unit_sn_from_sysfs_inquiry(const std::string& scsiName, std::string& serial);
std::string get_durableName_from_block_vpd_pg83(const std::string& blockName);
long long get_BlockSize(const std::string& deviceName);
long long get_PciBlockSize(const std::string& deviceName);
