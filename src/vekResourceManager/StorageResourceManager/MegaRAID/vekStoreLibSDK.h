#pragma once

// The boundary with the MegaRAID management library (libstorelib.so): the
// request block of its one entry point and the firmware structures that pass
// through it. The service and the project's stand-in library both build on
// this header, so the two can never disagree on a layout.
//
// Only the members the service reads or fills are named; the rest of each
// structure is kept as reserved bytes so that the sizes stay those of the
// firmware interface. The firmware structures follow the MegaRAID firmware's
// published layouts (little-endian, no padding of their own).

#include <cstddef>
#include <cstdint>

extern "C" {

#pragma pack(push, 1)

// ---------------------------------------------------------------- requests

// Command types and commands of a request.
enum {
    SL_CMD_TYPE_LIBRARY = 0,
    SL_CMD_TYPE_CONTROLLER = 1,
    SL_CMD_TYPE_PD = 2,
    SL_CMD_TYPE_LD = 3,
    SL_CMD_TYPE_PASSTHRU = 6,
    SL_CMD_TYPE_EVENT = 7,
};
enum {
    SL_LIB_INIT = 0,
    SL_LIB_GET_CTRL_LIST = 3,
    SL_LIB_REGISTER_AEN = 6,
    SL_LIB_UNREGISTER_AEN = 7,
    SL_LIB_GET_PCI_INFO = 8,
    SL_LIB_EXIT = 9,
    SL_CTRL_GET_INFO = 0,
    SL_CTRL_GET_PD_LIST = 4,
    SL_CTRL_GET_ENCL_LIST = 5,
    SL_CTRL_GET_LD_LIST = 6,
    SL_PD_GET_INFO = 0,
    SL_LD_GET_INFO = 0,
    SL_LD_GET_PD_MAP = 11,
    SL_PASSTHRU_SCSI = 0,
    SL_PASSTHRU_DCMD = 3,
    SL_EVENT_GET_SEQ_INFO = 0,
};

// Library statuses the service tells apart.
const uint32_t SL_SUCCESS = 0;
const uint32_t SL_ERR_INIT_NOT_DONE = 0x8001;
const uint32_t SL_ERR_FAILED = 0x8002;
const uint32_t SL_ERR_WMI_INIT = 0x8003;
const uint32_t SL_ERR_WMI_REGISTRATION = 0x8004;
const uint32_t SL_ERR_COM_INIT = 0x8006;
const uint32_t SL_ERR_INVALID_EVENT_MASK = 0x8007;
const uint32_t SL_ERR_COMMAND_TIMEOUT = 0x8009;
const uint32_t SL_ERR_INVALID_CTRL = 0x800A;
const uint32_t SL_ERR_MEMORY_ALLOCATION = 0x8015;
const uint32_t SL_ERR_BUFFER_TOO_SMALL = 0x8019;
const uint32_t SL_ERR_LIBSYSFS_NOT_PRESENT = 0x801E;
const uint32_t SL_ERR_ACCESS_LEVEL = 0x802B;
const uint32_t SL_ERR_NOT_PRESENT = 0x802C;

// One request: what to do, to which device, with which buffer.
struct _SL_LIB_CMD_PARAM_T {
    uint8_t cmdType;
    uint8_t cmd;
    uint8_t reserved1[2];
    uint32_t ctrlId;
    uint16_t pdDeviceId;
    uint8_t ldTargetId;
    uint8_t reserved2;
    uint32_t dataSize;
    void* pData;
};

typedef uint32_t (*ProcessLibCommandFunction)(_SL_LIB_CMD_PARAM_T* param);

// The controllers the library serves. An entry's low 24 bits are the
// controller id, its top byte the controller's kind (0: MegaRAID).
const size_t SL_MAX_CONTROLLERS = 64;
const uint32_t SL_CTRL_KIND_MR = 0;
struct _SL_CTRL_LIST_T {
    uint16_t count;
    uint8_t simulationMode;
    uint8_t reserved;
    uint32_t ctrlId[SL_MAX_CONTROLLERS];
};
static_assert(sizeof(_SL_CTRL_LIST_T) == 260, "controller list");

// Where a controller sits on the PCI bus.
struct _SL_PCI_INFO_T {
    uint16_t domain;
    uint8_t bus;
    uint8_t device;
    uint8_t function;
    uint8_t reserved[11];
};

// A firmware command (DCMD) passed through; direction 2 reads.
const uint8_t SL_DCMD_DIR_READ = 2;
struct _SL_DCMD_INPUT_T {
    uint32_t opCode;
    uint8_t mbox[12];
    uint8_t flags;
    uint8_t dir;
    uint8_t reserved1[2];
    uint8_t reserved2[4];
    uint32_t dataTransferLength;
    void* pData;
};
static_assert(sizeof(_SL_DCMD_INPUT_T) == 36, "DCMD input");

// A SCSI command passed through to a drive: the fixed part, then `dataSize`
// bytes of data, all in the caller's one buffer (the request's data size is
// the fixed part plus `dataSize`). The library answers the SCSI status of
// the drive and the transport's status; on an underrun `dataSize` becomes
// what was transferred, on an overrun the buffer holds what fitted.
const uint16_t SL_SCSI_IO_STATUS_DATA_OVERRUN = 0x0044;
const uint16_t SL_SCSI_IO_STATUS_DATA_UNDERRUN = 0x0045;
const uint8_t SL_SCSI_STATUS_GOOD = 0x00;
const uint8_t SL_SCSI_STATUS_CHECK_CONDITION = 0x02;
struct _SL_SCSI_PASSTHRU_T {
    uint16_t deviceId;
    uint8_t lun;
    uint8_t cdbLength;
    uint8_t dir;
    uint8_t scsiStatus;
    uint16_t ioStatus;
    uint32_t timeoutSeconds;
    uint8_t cdb[16];
    uint32_t dataSize;
    uint8_t data[1];
};
const size_t SL_SCSI_PASSTHRU_HEADER = offsetof(_SL_SCSI_PASSTHRU_T, data);
static_assert(SL_SCSI_PASSTHRU_HEADER == 32, "SCSI pass-through");

// The CDBs the service sends: INQUIRY of a VPD page, and ATA PASS-THROUGH(16)
// carrying READ LOG EXT (PIO data-in, the count in 512-byte blocks).
const uint8_t SCSI_OP_INQUIRY = 0x12;
const uint8_t SCSI_OP_ATA_PASSTHRU_16 = 0x85;
const uint8_t ATA_CMD_READ_LOG_EXT = 0x2F;
const uint8_t VPD_PAGE_UNIT_SERIAL_NUMBER = 0x80;
const uint8_t VPD_PAGE_DRIVE_VENDOR = 0xD0;

// VPD page 0xD0 that the controller's firmware makes for a drive: the maker
// of an ATA drive, which its standard inquiry data names only "ATA".
struct _MR_VPD_PAGE_D0 {
    uint8_t deviceType;
    uint8_t pageCode;
    uint8_t pageLength[2]; // big-endian, the bytes after this header
    char vendor[8];        // space-padded
    uint8_t reserved[20];
};
static_assert(sizeof(_MR_VPD_PAGE_D0) == 32, "VPD page D0");

const uint32_t MR_DCMD_CTRL_MFC_MFG_GET = 0x010E0301;
const uint32_t MR_DCMD_CTRL_GET_SAFEID = 0x01160300;

// Manufacturing page 0 of the controller (32 bytes; the page in mbox[0]):
// the board's serial number.
struct _MR_MFC_MFG {
    char boardSerialNumber[16];
    uint8_t reserved[16];
};
static_assert(sizeof(_MR_MFC_MFG) == 32, "manufacturing page");

// The controller's connectors by index (168 bytes), and which connector each
// SAS PHY (for SAS and SATA drives) or PCIe lane (for NVMe drives) leads to,
// with the port it belongs to. A connection is used only when valid.
const uint32_t MR_DCMD_SAS_CONNECTORS_GET = 0x07030000;
const uint32_t MR_DCMD_SAS_PHY_CONNECTIONS_GET = 0x07020000;
const uint32_t MR_DCMD_PCIE_LANE_CONNECTIONS_GET = 0x0C010000;

const size_t MR_MAX_SAS_CONNECTORS = 8;
struct _MR_SAS_CONNECTORS {
    uint8_t count;
    uint8_t reserved[7];
    struct {
        char name[16]; // "C0.0", NUL-terminated when shorter
        uint8_t location;
        uint8_t reserved[3];
    } connectors[MR_MAX_SAS_CONNECTORS];
};
static_assert(sizeof(_MR_SAS_CONNECTORS) == 168, "SAS connectors");

const uint8_t MR_CONNECTION_VALID = 0x01;
struct _MR_CONNECTION {
    uint8_t flags;
    uint8_t portNumber;
    uint8_t connectorIndex;
    uint8_t reserved[5];
};
static_assert(sizeof(_MR_CONNECTION) == 8, "connection");

const size_t MR_MAX_SAS_PHYS = 32;
struct _MR_SAS_PHY_CONNECTIONS {
    uint8_t count;
    uint8_t reserved[7];
    _MR_CONNECTION phy[MR_MAX_SAS_PHYS];
};
static_assert(sizeof(_MR_SAS_PHY_CONNECTIONS) == 264, "SAS PHY connections");

const size_t MR_MAX_PCIE_LANES = 48;
struct _MR_PCIE_LANE_CONNECTIONS {
    uint8_t count;
    uint8_t reserved[7];
    _MR_CONNECTION lane[MR_MAX_PCIE_LANES];
};
static_assert(sizeof(_MR_PCIE_LANE_CONNECTIONS) == 392, "PCIe lane connections");

// ---------------------------------------------------------------- controller

struct _MR_CTRL_INFO {
    struct {
        uint16_t vendorId;
        uint16_t deviceId;
        uint16_t subVendorId;
        uint16_t subDeviceId;
        uint8_t reserved[24];
    } pci;
    uint8_t hostInterface[8];
    uint8_t deviceInterface[8];
    uint32_t imageCheckWord;
    uint32_t imageComponentCount;
    struct {
        char name[8];
        char version[32];
        char buildDate[16];
        char buildTime[16];
    } imageComponent[8];
    uint32_t pendingImageComponentCount;
    uint8_t pendingImageComponent[8][72];
    uint8_t maxArms;
    uint8_t maxSpans;
    uint8_t maxArrays;
    uint8_t maxLds;
    char productName[80];
    char serialNo[32];
    // The SAS PHYs of the controller; 0 when it can't tell.
    uint8_t sasPhyCount;
    uint8_t reserved[2488 - 1329];
};
static_assert(offsetof(_MR_CTRL_INFO, productName) == 1216, "controller product name");
static_assert(sizeof(_MR_CTRL_INFO) == 2488, "controller info");

// ---------------------------------------------------------------- physical drives

struct _MR_PD_ADDRESS {
    uint16_t deviceId;
    uint16_t enclDeviceId;
    uint8_t enclIndex;
    uint8_t slotNumber;
    uint8_t scsiDevType;
    uint8_t connectedPortBitmap;
    uint64_t sasAddr[2];
};
static_assert(sizeof(_MR_PD_ADDRESS) == 24, "PD address");

// The header of the PD list; the library writes `size` (the bytes the whole
// list needs) and `count` even when the caller's buffer holds fewer entries.
struct _MR_PD_LIST {
    uint32_t size;
    uint32_t count;
    _MR_PD_ADDRESS addr[1];
};
const size_t MR_PD_LIST_HEADER = offsetof(_MR_PD_LIST, addr);

// Firmware drive states.
enum {
    MR_PD_STATE_UNCONFIGURED_GOOD = 0x00,
    MR_PD_STATE_UNCONFIGURED_BAD = 0x01,
    MR_PD_STATE_HOT_SPARE = 0x02,
    MR_PD_STATE_OFFLINE = 0x10,
    MR_PD_STATE_FAILED = 0x11,
    MR_PD_STATE_REBUILD = 0x14,
    MR_PD_STATE_ONLINE = 0x18,
    MR_PD_STATE_COPYBACK = 0x20,
    MR_PD_STATE_SYSTEM = 0x40,
};
// Interface types of a drive.
enum { MR_PD_INTF_UNKNOWN = 0, MR_PD_INTF_PARALLEL_SCSI = 1, MR_PD_INTF_SAS = 2, MR_PD_INTF_SATA = 3,
       MR_PD_INTF_NVME = 5 };

struct _MR_PD_INFO {
    uint16_t deviceId;
    uint16_t seqNum;
    uint8_t inquiryData[96];
    uint8_t vpdPage83[64];
    uint8_t notSupported;
    uint8_t scsiDevType;
    uint8_t connectedPortBitmap;
    uint8_t deviceSpeed;
    uint32_t mediaErrCount;
    uint32_t otherErrCount;
    uint32_t predFailCount;
    uint32_t lastPredFailEventSeqNum;
    uint16_t fwState;
    uint8_t disabledForRemoval;
    uint8_t linkSpeed;
    uint32_t ddfState;
    // The drive's paths: a path is valid when its SAS address is not zero.
    // connectedPortBitmap then holds the controller port of each path, path
    // 0 in the low nibble and path 1 in the high one.
    struct {
        uint8_t count;
        uint8_t flags;
        uint8_t connectorIndex[2];
        uint8_t reserved[4];
        uint64_t sasAddr[2];
        uint8_t reserved2[16];
    } pathInfo;
    uint64_t rawSize;
    uint64_t nonCoercedSize;
    uint64_t coercedSize;
    uint16_t enclDeviceId;
    uint8_t enclIndex;
    uint8_t slotNumber;
    uint8_t progress[24];
    uint8_t badBlockTableFull;
    uint8_t unusableInCurrentConfig;
    uint8_t vpdPage83Ext[64];
    uint8_t powerState;
    uint8_t enclPosition;
    uint32_t allowedOps;
    uint16_t copyBackPartnerId;
    uint16_t enclPartnerDeviceId;
    uint16_t security;
    uint8_t mediaType;        // 0 HDD, 1 SSD
    uint8_t interfaceType;    // MR_PD_INTF_*
    uint32_t logicalBlockSize;
    uint8_t reserved[512 - 368];
};
static_assert(offsetof(_MR_PD_INFO, fwState) == 184, "PD firmware state");
static_assert(offsetof(_MR_PD_INFO, enclDeviceId) == 256, "PD enclosure");
static_assert(sizeof(_MR_PD_INFO) == 512, "PD info");

// ---------------------------------------------------------------- logical drives

const size_t MR_MAX_LOGICAL_DRIVES = 64;
struct _MR_LD_LIST {
    uint32_t ldCount;
    uint32_t reserved;
    struct {
        uint8_t targetId;
        uint8_t reserved;
        uint16_t seqNum;
        uint8_t state;
        uint8_t reserved2[3];
        uint64_t size;
    } ldList[MR_MAX_LOGICAL_DRIVES];
};
static_assert(sizeof(_MR_LD_LIST) == 1032, "LD list");

// Logical drive states.
enum { MR_LD_STATE_OFFLINE = 0, MR_LD_STATE_PARTIALLY_DEGRADED = 1, MR_LD_STATE_DEGRADED = 2, MR_LD_STATE_OPTIMAL = 3 };

struct _MR_LD_INFO {
    struct {
        uint8_t targetId;
        uint8_t reserved;
        uint16_t seqNum;
        char name[16];
        uint8_t cachePolicy[5];
        uint8_t reserved2[7];
    } properties;
    struct {
        uint8_t primaryRaidLevel;
        uint8_t raidLevelQualifier;
        uint8_t secondaryRaidLevel;
        uint8_t stripeSize;
        uint8_t numDrives;
        uint8_t spanDepth;
        uint8_t state;
        uint8_t initState;
        uint8_t isConsistent;
        uint8_t reserved[23];
    } parameters;
    uint8_t spans[8][24];
    uint64_t size; // blocks of 512 bytes
    uint8_t progress[20];
    uint16_t clusterOwner;
    uint8_t reconstructActive;
    uint8_t isEPD;
    uint8_t vpdPage83[64];
    uint8_t reserved[384 - 352];
};
static_assert(offsetof(_MR_LD_INFO, size) == 256, "LD size");
static_assert(sizeof(_MR_LD_INFO) == 384, "LD info");

// The members of a logical drive, with each member's user block size.
struct _MR_LD_PD_MAP {
    uint32_t count;
    struct {
        uint16_t deviceId;
        uint16_t reserved;
        uint32_t userDataBlockSize;
    } pd[64];
};
static_assert(sizeof(_MR_LD_PD_MAP) == 516, "LD to PD map");

// ---------------------------------------------------------------- enclosures

struct _MR_ENCL_LIST {
    uint32_t count;
    uint8_t reserved[4];
    struct {
        uint16_t deviceId;
        uint8_t index;
        uint8_t slotCount;
        uint8_t psCount;
        uint8_t fanCount;
        uint8_t tempSensorCount;
        uint8_t alarmCount;
        uint8_t simCount;
        uint8_t isFault;
        uint8_t reserved[62];
    } encl[64];
};
static_assert(sizeof(_MR_ENCL_LIST) == 4616, "enclosure list");

// ---------------------------------------------------------------- events

struct _MR_EVT_LOG_INFO {
    uint32_t newestSeqNum;
    uint32_t oldestSeqNum;
    uint32_t clearSeqNum;
    uint32_t shutdownSeqNum;
    uint32_t bootSeqNum;
};
static_assert(sizeof(_MR_EVT_LOG_INFO) == 20, "event log info");

// Firmware event codes of the battery backup unit that the service acts on:
// the battery failed or must be replaced, and the battery is good again.
const uint32_t MR_EVT_BBU_FAILED = 0x0095;
const uint32_t MR_EVT_BBU_REPLACE_BATTERY = 0x00C5;
const uint32_t MR_EVT_BBU_GOOD = 0x0092;
const uint32_t MR_EVT_BBU_REPLACED = 0x00C6;
// A drive that the firmware marks failed because it stopped responding.
const uint32_t MR_EVT_PD_NOT_RESPONDING_FAILED = 0x0185;

// A drive named in an event's arguments.
struct _MR_EVT_ARG_PD {
    uint16_t deviceId;
    uint8_t enclIndex;
    uint8_t slotNumber;
};
// A logical drive named in an event's arguments.
struct _MR_EVT_ARG_LD {
    uint8_t targetId;
    uint8_t ldIndex;
    uint16_t reserved;
};

struct _MR_EVT_DETAIL {
    uint32_t seqNum;
    uint32_t timeStamp;
    uint32_t code;
    uint16_t locale;
    uint8_t reserved;
    int8_t evtClass;
    uint8_t argType;
    uint8_t reserved1[15];
    uint8_t args[96];
    char description[128];
};
static_assert(offsetof(_MR_EVT_DETAIL, args) == 32, "event arguments");
static_assert(sizeof(_MR_EVT_DETAIL) == 256, "event detail");

// What the library hands the AEN callback: a non-zero status tells of a
// failed read, not an event.
struct _SL_EVENT_DETAIL_T {
    uint32_t ctrlId;
    uint32_t status;
    _MR_EVT_DETAIL evtDetail;
};

typedef void (*SL_AEN_CALLBACK)(_SL_EVENT_DETAIL_T* detail);

// Registration for events of several controllers with one callback; the
// library answers the registration's unique id.
struct _SL_REG_AEN_INPUT_T {
    uint32_t count;
    struct {
        uint32_t ctrlId;
        uint32_t seqNum;
        uint16_t locale;
        int8_t evtClass;
        uint8_t reserved;
    } ctrl[SL_MAX_CONTROLLERS];
    SL_AEN_CALLBACK pFunc;
    uint32_t uniqueId;
};

#pragma pack(pop)

} // extern "C"
