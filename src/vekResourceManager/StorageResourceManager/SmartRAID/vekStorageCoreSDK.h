#pragma once

/*
 * The boundary to the SmartRAID management libraries, libvekhostcore.so and
 * libstoragecore.so. The vendor's own headers are not part of this tree: this
 * file declares the only types, codes and entry points the service uses, with
 * the layouts the libraries hand across. The service binds the functions by
 * name (dlsym) through the pointer types below; the project's stand-in
 * libraries (testtools/storagecore) define them with the same signatures.
 *
 * Plain C, so that either side may be written in C or C++.
 */

#include <stddef.h>
#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

typedef uint8_t SA_BYTE;
typedef uint16_t SA_WORD;
typedef uint32_t SA_DWORD;
typedef uint64_t SA_QWORD;
typedef uint8_t SA_BOOL;

/* The controller data area: memory of SA_GetCDASize() bytes, allocated with
 * _SA_malloc, that the library fills on SA_InitializeCDA and uses as the
 * controller's handle in every later call. */
typedef void* PCDA;
/* Opaque objects of the host library. */
typedef void* SC_DEVICE_DESCRIPTOR;
typedef void* SC_DEVICE_LIST;
typedef void* SC_DEVICE_LIST_ITERATOR;

/* Both libraries refuse to start without this string. */
#define kStorageCoreAccessString "4f1c0b7a9e52d8c36a0e7b91d2f45c8a3b6e9d07"

/* ---- return codes ---- */
#define kSysCoreOK 0
#define kStorageCoreOK 0
#define kStorageCoreFailed 1
/* Calls that fill a caller's buffer or record. */
#define kSAOK 0
#define kSAFailed 1
#define kSANotSupported 2
/* SA_InitializeCDA and SA_ReInitializeCDA. */
#define kInitializeCDASuccess 0x0000
#define kInitializeCDAFailed 0x0001
/* Event sink, event queue and serial log calls. */
#define kEventOK 0x00
#define kEventFailed 0x01
/* The end of an enumeration, and the value that starts one. */
#define kInvalidDeviceNumber 0xFFFF

/* ---- what SA_GetControllerPCIValue reads ---- */
#define kControllerPCIVendorID 0
#define kControllerPCIDeviceID 1
#define kControllerPCISubVendorID 2
#define kControllerPCISubDeviceID 3

/* ---- health of SA_Get...Health (controller, drive, volume) ---- */
#define kHealthOK 1
#define kHealthWarning 2
#define kHealthCritical 3
#define kHealthUnknown 0

/* ---- the info word of SA_GetPhysicalDriveBasicInfo ---- */
#define kPhysicalDrivePresent 0x1u
/* Bits 4-7: the protocol. */
#define kPhysicalDriveProtocolMask 0xF0u
#define kPhysicalDriveProtocolSAS 0x10u
#define kPhysicalDriveProtocolSATA 0x20u
#define kPhysicalDriveProtocolNVMe 0x30u
/* Bits 8-11: the medium. */
#define kPhysicalDriveMediaMask 0xF00u
#define kPhysicalDriveMediaHDD 0x100u
#define kPhysicalDriveMediaSSD 0x200u

/* ---- SA_GetLogicalDriveRAIDInfo: the level ---- */
#define kRAID0 0
#define kRAID1 1
#define kRAID5 5
#define kRAID6 6
#define kRAID10 10
#define kRAID50 50
#define kRAID60 60

/* ---- SA_SendPhysicalDeviceSCSICommand: direction of the data ---- */
#define kSCSIDataNone 0
#define kSCSIDataIn 1
#define kSCSIDataOut 2

/* Where a drive sits: the controller's connector (port) name ("1I"), the
 * box and the bay, as the library prints them ("1I:1:3"). */
typedef struct _SA_PHYSICAL_DRIVE_LOCATION {
    char port[16];
    char box[16];
    char bay[16];
} SA_PHYSICAL_DRIVE_LOCATION;

/* One connector of the controller. */
#define kConnectorInternal 0
#define kConnectorExternal 1
typedef struct _SA_CONNECTOR_INFO {
    char name[16];
    SA_BYTE mode; /* kConnectorInternal or kConnectorExternal */
    SA_BYTE laneCount;
} SA_CONNECTOR_INFO;

/* What the maker wrote into the controller. */
typedef struct _SA_MANUFACTURING_DATA {
    char boardSerialNumber[32];
    char assemblyNumber[32];
} SA_MANUFACTURING_DATA;

/* One event of the controller's event queue, handed to the sink on the
 * library's own thread and valid only during the call. The date is the
 * controller's: year, month, day, and seconds since its midnight. */
typedef struct _ControllerEvent {
    SA_QWORD eventID;
    SA_DWORD tag;
    SA_WORD classCode;
    SA_WORD subclassCode;
    SA_WORD detailCode;
    SA_WORD year;
    SA_BYTE month;
    SA_BYTE day;
    SA_DWORD secondsSinceMidnight;
    char message[256];
} SA_CONTROLLER_EVENT;

/* Class codes of an event, and the details of a drive's status event
 * (class 4, subclass 0). */
#define kEventClassDeviceChange 1
#define kEventClassHardware 2
#define kEventClassEnvironment 3
#define kEventClassPhysicalDrive 4
#define kEventClassLogicalDrive 5
#define kEventClassFirmware 12
#define kPhysicalDriveEventFailed 0
#define kPhysicalDriveEventPredictiveFailure 1
#define kPhysicalDriveEventOffline 2
#define kPhysicalDriveEventOK 3

typedef void (*SA_EVENT_SINK)(PCDA cda, const SA_CONTROLLER_EVENT* event);
typedef void (*SA_SERIAL_LOG_SINK)(PCDA cda, const char* line);

/* ---- libvekhostcore.so ---- */
typedef SA_BYTE (*InitializeSysCore_t)(const char* accessString);
typedef void (*UnInitializeSysCore_t)(void);
typedef SC_DEVICE_LIST (*SC_CreateControllerDescriptorList_t)(void);
typedef void (*SC_DestroyDeviceDescriptorList_t)(SC_DEVICE_LIST list);
typedef SC_DEVICE_LIST_ITERATOR (*SC_CreateDeviceListIterator_t)(SC_DEVICE_LIST list);
typedef SA_BOOL (*SC_IsDeviceListIteratorEnd_t)(SC_DEVICE_LIST_ITERATOR iterator);
typedef SC_DEVICE_DESCRIPTOR (*SC_GetDeviceListItemAt_t)(SC_DEVICE_LIST_ITERATOR iterator);
typedef void (*SC_MoveDeviceListIteratorNext_t)(SC_DEVICE_LIST_ITERATOR iterator);
typedef void (*SC_DestroyDeviceListIterator_t)(SC_DEVICE_LIST_ITERATOR iterator);
/* A descriptor that outlives its list; freed with _SA_free. */
typedef SC_DEVICE_DESCRIPTOR (*SC_CopyDeviceDescriptor_t)(SC_DEVICE_DESCRIPTOR descriptor);
typedef void* (*SA_malloc_t)(size_t size, const char* file, int line);
typedef void (*SA_free_t)(void* memory, const char* file, int line);
typedef void* (*SA_realloc_t)(void* memory, size_t size, const char* file, int line);

/* ---- libstoragecore.so ---- */
typedef SA_BYTE (*InitializeStorageCore_t)(const char* accessString);
typedef void (*UnInitializeStorageCore_t)(void);

typedef SA_DWORD (*SA_GetCDASize_t)(void);
typedef SA_WORD (*SA_InitializeCDA_t)(PCDA cda, SC_DEVICE_DESCRIPTOR descriptor);
typedef SA_WORD (*SA_ReInitializeCDA_t)(PCDA cda);
typedef void (*SA_UnInitializeCDA_t)(PCDA cda);

/* Texts are written NUL-terminated into the caller's buffer. The PCI
 * location reads "%hu:%hu:%hu.%hu" in decimal (domain, bus, device,
 * function). */
typedef SA_BYTE (*SA_GetControllerText_t)(PCDA cda, char* buffer, size_t size);
typedef SA_DWORD (*SA_GetControllerStatusInfo_t)(PCDA cda);
typedef SA_BYTE (*SA_GetControllerHealth_t)(PCDA cda);
typedef SA_BYTE (*SA_GetControllerManufacturingData_t)(PCDA cda, SA_MANUFACTURING_DATA* data);
typedef SA_WORD (*SA_GetControllerPCIValue_t)(PCDA cda, SA_BYTE which);

/* Enumerations: start with kInvalidDeviceNumber; kInvalidDeviceNumber ends. */
typedef SA_WORD (*SA_EnumerateDevices_t)(PCDA cda, SA_WORD previous);
typedef SA_DWORD (*SA_GetPhysicalDriveBasicInfo_t)(PCDA cda, SA_WORD drive);
typedef SA_BYTE (*SA_GetDeviceText_t)(PCDA cda, SA_WORD device, char* buffer, size_t size);
typedef SA_QWORD (*SA_GetDeviceSize_t)(PCDA cda, SA_WORD device);
typedef SA_DWORD (*SA_GetDeviceStatusInfo_t)(PCDA cda, SA_WORD device);
typedef SA_BYTE (*SA_GetDeviceHealth_t)(PCDA cda, SA_WORD device);
typedef SA_BYTE (*SA_GetPhysicalDriveLocation_t)(PCDA cda, SA_WORD drive, SA_PHYSICAL_DRIVE_LOCATION* location);

typedef SA_BYTE (*SA_GetLogicalDriveRAIDInfo_t)(PCDA cda, SA_WORD volume, SA_BYTE* level);
typedef SA_WORD (*SA_GetLogicalDriveArray_t)(PCDA cda, SA_WORD volume);
typedef SA_WORD (*SA_EnumerateArrayPhysicalDrives_t)(PCDA cda, SA_WORD array, SA_WORD previous);

typedef SA_BYTE (*SA_RegisterEventSink_t)(PCDA cda, SA_EVENT_SINK sink);
typedef SA_BYTE (*SA_RegisterSerialLogSink_t)(PCDA cda, SA_SERIAL_LOG_SINK sink);
typedef SA_BYTE (*SA_EventQueue_t)(PCDA cda, SA_BYTE queueIndex);
/* The controller's clock, in seconds since the epoch; 0 when unknown. */
typedef SA_QWORD (*SA_GetControllerTime_t)(PCDA cda);

/* SCSI status in *status, sense bytes written in *senseLength. */
typedef SA_BYTE (*SA_SendPhysicalDeviceSCSICommand_t)(PCDA cda, SA_WORD drive, const SA_BYTE* cdb, SA_BYTE cdbLength,
                                                      SA_BYTE direction, void* data, SA_DWORD dataLength,
                                                      SA_BYTE* sense, SA_BYTE* senseLength, SA_BYTE* status);
typedef SA_BOOL (*SA_CanSendPhysicalDeviceSCSICommand_t)(PCDA cda, SA_WORD drive);

typedef SA_BYTE (*SA_GetPhysicalDriveConnectorIndex_t)(PCDA cda, SA_WORD drive, SA_BYTE* connector);
typedef SA_BYTE (*SA_GetControllerConnectorInfo_t)(PCDA cda, SA_BYTE connector, SA_CONNECTOR_INFO* info);

typedef SA_WORD (*SA_GetStorageEnclosureValue_t)(PCDA cda, SA_WORD enclosure);
typedef SA_BYTE (*SA_GetStorageEnclosurePathName_t)(PCDA cda, SA_WORD enclosure, SA_WORD path, char* buffer,
                                                    size_t size);
typedef SA_DWORD (*SA_GetStorageEnclosureStatusInfo_t)(PCDA cda, SA_WORD enclosure);

#ifdef __cplusplus
}
#endif
