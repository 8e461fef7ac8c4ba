#pragma once

// What the service uses of the closed Scrutiny library (libscrutiny.so):
// its entry points and the structures they take, as the service lays them
// out. There is no vendor header; the project's fake library includes this
// one, so the two sides cannot drift apart.

#include <cstddef>
#include <cstdint>

extern "C" {

// 0 is success; anything else is the library's failure code.
typedef uint32_t _SCRUTINY_STATUS;
const _SCRUTINY_STATUS SCRUTINY_STATUS_SUCCESS = 0;
const _SCRUTINY_STATUS SCRUTINY_STATUS_FAILED = 1;
const _SCRUTINY_STATUS SCRUTINY_STATUS_INVALID_HANDLE = 2;
const _SCRUTINY_STATUS SCRUTINY_STATUS_INVALID_PARAMETER = 3;

// Controller generation of a Gen3 MegaRAID, the only family with UBM sideband.
const uint32_t SCRUTINY_GENERATION_GEN3_MEGARAID = 2;

struct _SCRUTINY_DEVICE_INFO {
    uint32_t productHandle; // what the other calls take to name the controller
    uint32_t generation;
    uint32_t chipsetID; // PCI device ID << 16 | vendor ID
    uint32_t boardID;   // PCI subsystem ID << 16 | subsystem vendor ID
    uint16_t pciDomain;
    uint8_t pciBus;
    uint8_t pciDevice;
    uint8_t pciFunction;
    uint8_t reserved0[3];
    char serialNumber[32]; // not necessarily NUL-terminated
    uint8_t reserved1[64];
};

struct __SCRUTINY_DISCOVERY_PARAMS {
    uint32_t flags;
    uint32_t reserved[7];
};

struct __SCRUTINY_DEBUG_LOGGER {
    void (*log)(const char* message);
    uint32_t level;
};

struct __SCRUTINY_IOC_STATUS {
    uint16_t iocStatus; // 0 success
    uint16_t reserved;
    uint32_t iocLogInfo;
};

// A firmware command (DCMD) to a MegaRAID controller.
struct _SCRUTINY_DCMD_PASSTHROUGH {
    uint64_t command;   // opcode and frame flags; reading a configuration page is kDcmdReadConfigPage
    uint32_t direction; // 3: from the controller
    uint32_t dataLength;
    void* dataBuffer;
    void* mailbox; // 4 bytes
    uint32_t mailboxLength;
    uint32_t reserved0;
    void* response; // 24 bytes; byte 0 is the command's MFI status, 0 success
    uint32_t responseLength;
    uint32_t reserved1;
};
const uint64_t SCRUTINY_DCMD_READ_CONFIG_PAGE = 0x0704000000000048ULL;
const uint32_t SCRUTINY_DCMD_DIRECTION_READ = 3;
const size_t SCRUTINY_DCMD_MAILBOX_SIZE = 4;
const size_t SCRUTINY_DCMD_RESPONSE_SIZE = 24;

// The configuration page request block of a DCMD: a 31-byte request header
// (byte 3 request kind 4, bytes 4-5 the page bytes wanted, little-endian,
// byte 6 0x1A) and the page from byte 31 on. The page starts with an 8-byte
// page header whose bytes 4-5 (block bytes 35-36) are the page length in
// 4-byte words. Page 43 (enclosure sideband) then holds the entry count at
// block byte 39 and 28-byte entries from block byte 40, each naming an I2C
// bus at its byte 20.
const size_t MR_CONFIG_PAGE_REQUEST_HEADER_SIZE = 31;
const size_t MR_CONFIG_PAGE_HEADER_SIZE = 8;
const size_t MR_CONFIG_PAGE_REQUEST_KIND_OFFSET = 3;
const uint8_t MR_CONFIG_PAGE_REQUEST_KIND = 4;
const size_t MR_CONFIG_PAGE_REQUEST_LENGTH_OFFSET = 4;
const size_t MR_CONFIG_PAGE_REQUEST_PAGE_OFFSET = 6;
const uint8_t MR_CONFIG_PAGE_43_REQUEST_PAGE = 0x1A;
const size_t MR_CONFIG_PAGE_LENGTH_OFFSET = 35;
const size_t MR_CONFIG_PAGE_43_COUNT_OFFSET = 39;
const size_t MR_CONFIG_PAGE_43_ENTRIES_OFFSET = 40;
const size_t MR_CONFIG_PAGE_43_ENTRY_SIZE = 28;
const size_t MR_CONFIG_PAGE_43_ENTRY_BUS_OFFSET = 20;

// One I2C transaction (or bus reservation) through the controller's
// toolbox; 40 bytes. On return the library leaves in receiveLength the
// number of bytes it actually put into the receive buffer.
struct _SCRUTINY_ISTWI_REQUEST {
    uint8_t reserved0;
    uint8_t action; // SCRUTINY_ISTWI_ACTION_*
    uint8_t reserved2[2];
    uint16_t receiveLength;
    uint16_t transmitLength;
    void* receiveBuffer;
    void* transmitBuffer;
    uint8_t flags; // always 1
    uint8_t reserved25;
    uint8_t type; // always SCRUTINY_ISTWI_TYPE
    uint8_t bus;
    uint16_t deviceAddress;
    uint8_t muxChannel;
    uint8_t muxIndex;
    uint16_t muxAddress;
    uint8_t reserved34[6];
};
static_assert(sizeof(_SCRUTINY_ISTWI_REQUEST) == 40, "the library takes a 40-byte ISTWI request");
static_assert(offsetof(_SCRUTINY_ISTWI_REQUEST, receiveBuffer) == 8 &&
                  offsetof(_SCRUTINY_ISTWI_REQUEST, transmitBuffer) == 16 &&
                  offsetof(_SCRUTINY_ISTWI_REQUEST, flags) == 24 && offsetof(_SCRUTINY_ISTWI_REQUEST, type) == 26 &&
                  offsetof(_SCRUTINY_ISTWI_REQUEST, deviceAddress) == 28 &&
                  offsetof(_SCRUTINY_ISTWI_REQUEST, muxAddress) == 32,
              "ISTWI request fields at the library's offsets");

const uint8_t SCRUTINY_ISTWI_ACTION_READ_WRITE = 3;
const uint8_t SCRUTINY_ISTWI_ACTION_RESERVE_BUS = 0x10;
const uint8_t SCRUTINY_ISTWI_ACTION_RELEASE_BUS = 0x11;
const uint8_t SCRUTINY_ISTWI_TYPE = 14;
const uint16_t UBM_CONTROLLER_I2C_ADDRESS = 0x40;
const uint16_t UBM_FRU_I2C_ADDRESS = 0x57;

// UBM controller commands: the transmit buffer is the command and its
// checksum, 0xDB minus the command.
const uint8_t UBM_COMMAND_OPERATIONAL_STATE = 0x00;
const uint8_t UBM_COMMAND_LAST_COMMAND_STATUS = 0x01;
const uint8_t UBM_COMMAND_SILICON_IDENTITY_VERSION = 0x02;
const uint8_t UBM_COMMAND_BACKPLANE_INFO = 0x31;
const uint8_t UBM_COMMAND_CHECKSUM_BASE = 0xDB;
const uint8_t UBM_LAST_COMMAND_STATUS_SUCCESS = 1;
const size_t UBM_SILICON_IDENTITY_VERSION_SIZE = 14;

typedef _SCRUTINY_STATUS (*ScrutinyInitialize_t)();
typedef _SCRUTINY_STATUS (*ScrutinyExit_t)();
typedef _SCRUTINY_STATUS (*ScrutinyGetLibraryVersion_t)(unsigned* version);
typedef _SCRUTINY_STATUS (*ScrutinyInitializeLogging_t)(__SCRUTINY_DEBUG_LOGGER* logger);
typedef _SCRUTINY_STATUS (*ScrutinyDiscoverDevices_t)(unsigned mode, __SCRUTINY_DISCOVERY_PARAMS* params);
typedef _SCRUTINY_STATUS (*ScrutinyGetDeviceCount_t)(unsigned* count);
typedef _SCRUTINY_STATUS (*ScrutinyGetDeviceInfo_t)(unsigned index, unsigned size, _SCRUTINY_DEVICE_INFO* info);
typedef _SCRUTINY_STATUS (*ScrutinyControllerDcmdPassthrough_t)(unsigned* handle,
                                                                _SCRUTINY_DCMD_PASSTHROUGH* passthrough);
typedef _SCRUTINY_STATUS (*ScrutinyControllerToolboxIstwiReadWrite_t)(unsigned* handle,
                                                                      _SCRUTINY_ISTWI_REQUEST* request,
                                                                      __SCRUTINY_IOC_STATUS* status);

} // extern "C"
