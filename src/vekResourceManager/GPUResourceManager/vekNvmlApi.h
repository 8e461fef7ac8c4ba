#pragma once

// What this system uses of the NVIDIA Management Library, declared from its
// published API reference: no vendor header is shipped with the system, and
// the library is opened at run time. The stand-in library of the test
// tooling is built from the same declarations.

extern "C" {

typedef enum nvmlReturn_enum {
    NVML_SUCCESS = 0,
    NVML_ERROR_UNINITIALIZED = 1,
    NVML_ERROR_INVALID_ARGUMENT = 2,
    NVML_ERROR_NOT_SUPPORTED = 3,
    NVML_ERROR_NO_PERMISSION = 4,
    NVML_ERROR_ALREADY_INITIALIZED = 5,
    NVML_ERROR_NOT_FOUND = 6,
    NVML_ERROR_INSUFFICIENT_SIZE = 7,
    NVML_ERROR_INSUFFICIENT_POWER = 8,
    NVML_ERROR_DRIVER_NOT_LOADED = 9,
    NVML_ERROR_TIMEOUT = 10,
    NVML_ERROR_IRQ_ISSUE = 11,
    NVML_ERROR_LIBRARY_NOT_FOUND = 12,
    NVML_ERROR_FUNCTION_NOT_FOUND = 13,
    NVML_ERROR_CORRUPTED_INFOROM = 14,
    NVML_ERROR_GPU_IS_LOST = 15,
    NVML_ERROR_RESET_REQUIRED = 16,
    NVML_ERROR_OPERATING_SYSTEM = 17,
    NVML_ERROR_LIB_RM_VERSION_MISMATCH = 18,
    NVML_ERROR_IN_USE = 19,
    NVML_ERROR_MEMORY = 20,
    NVML_ERROR_NO_DATA = 21,
    NVML_ERROR_UNKNOWN = 999
} nvmlReturn_t;

// A device handle: opaque to its users, valid until nvmlShutdown.
typedef struct nvmlDevice_st* nvmlDevice_t;

#define NVML_DEVICE_PCI_BUS_ID_BUFFER_SIZE 32
#define NVML_DEVICE_PCI_BUS_ID_BUFFER_V2_SIZE 16
// busId: eight hexadecimal digits of domain; busIdLegacy: four. Upper case,
// the function always 0.
#define NVML_DEVICE_PCI_BUS_ID_FMT "%08X:%02X:%02X.0"
#define NVML_DEVICE_PCI_BUS_ID_LEGACY_FMT "%04X:%02X:%02X.0"

typedef struct nvmlPciInfo_st {
    char busIdLegacy[NVML_DEVICE_PCI_BUS_ID_BUFFER_V2_SIZE];
    unsigned int domain;
    unsigned int bus;
    unsigned int device;
    // The 16-bit device id in the upper half, the 16-bit vendor id in the lower.
    unsigned int pciDeviceId;
    // The same for the subsystem: subsystem device, then subsystem vendor.
    unsigned int pciSubSystemId;
    char busId[NVML_DEVICE_PCI_BUS_ID_BUFFER_SIZE];
} nvmlPciInfo_t;

typedef enum nvmlClockType_enum {
    NVML_CLOCK_GRAPHICS = 0,
    NVML_CLOCK_SM = 1,
    NVML_CLOCK_MEM = 2,
    NVML_CLOCK_VIDEO = 3,
    NVML_CLOCK_COUNT
} nvmlClockType_t;

#define NVML_DEVICE_NAME_BUFFER_SIZE 64
#define NVML_DEVICE_SERIAL_BUFFER_SIZE 30

// The entry points, as the library exports them.
typedef const char* (*nvmlErrorString_f)(nvmlReturn_t result);
typedef nvmlReturn_t (*nvmlInit_f)(void);
typedef nvmlReturn_t (*nvmlDeviceGetCount_f)(unsigned int* deviceCount);
typedef nvmlReturn_t (*nvmlDeviceGetPciInfo_v3_f)(nvmlDevice_t device, nvmlPciInfo_t* pci);
typedef nvmlReturn_t (*nvmlDeviceGetHandleByIndex_f)(unsigned int index, nvmlDevice_t* device);
typedef nvmlReturn_t (*nvmlDeviceGetName_f)(nvmlDevice_t device, char* name, unsigned int length);
typedef nvmlReturn_t (*nvmlDeviceGetSerial_f)(nvmlDevice_t device, char* serial, unsigned int length);
typedef nvmlReturn_t (*nvmlDeviceGetMaxClockInfo_f)(nvmlDevice_t device, nvmlClockType_t type, unsigned int* clock);
typedef nvmlReturn_t (*nvmlShutdown_f)(void);

} // extern "C"
