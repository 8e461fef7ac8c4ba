#pragma once

#include "vekRemoveLock.h"
#include "vekStorageCoreSDK.h"

#include <memory>
#include <mutex>
#include <string>
#include <vector>

class vekStorageCoreInterface;

// One controller as the storage library knows it. Held by shared pointer, so
// that a controller in use (by its object or by an event handler) outlives a
// rebuild of the list; the last holder gives the CDA back to the library.
struct SCI_CONTROLLER_METADATA : public vekRemoveLock {
    SCI_CONTROLLER_METADATA(vekStorageCoreInterface& owner, SC_DEVICE_DESCRIPTOR descriptor, PCDA cda);
    ~SCI_CONTROLLER_METADATA() override;
    SCI_CONTROLLER_METADATA(const SCI_CONTROLLER_METADATA&) = delete;
    SCI_CONTROLLER_METADATA& operator=(const SCI_CONTROLLER_METADATA&) = delete;

    SC_DEVICE_DESCRIPTOR descriptor;
    PCDA cda;
    // As the library prints it ("230:0:0.0"); "UNKNOWN" until read.
    std::string pciLocation = "UNKNOWN";
    long logIndex = 0;

private:
    vekStorageCoreInterface& owner_;
};

typedef std::shared_ptr<SCI_CONTROLLER_METADATA> SCI_CONTROLLER_METADATA_PTR;

// The symbols of both libraries, in the order they are looked up.
#define VEK_HOSTCORE_SYMBOLS(X)                                                                                     \
    X(InitializeSysCore, InitializeSysCore_t)                                                                       \
    X(UnInitializeSysCore, UnInitializeSysCore_t)                                                                   \
    X(SC_CreateControllerDescriptorList, SC_CreateControllerDescriptorList_t)                                       \
    X(SC_DestroyDeviceDescriptorList, SC_DestroyDeviceDescriptorList_t)                                             \
    X(SC_CreateDeviceListIterator, SC_CreateDeviceListIterator_t)                                                   \
    X(SC_IsDeviceListIteratorEnd, SC_IsDeviceListIteratorEnd_t)                                                     \
    X(SC_GetDeviceListItemAt, SC_GetDeviceListItemAt_t)                                                             \
    X(SC_MoveDeviceListIteratorNext, SC_MoveDeviceListIteratorNext_t)                                               \
    X(SC_DestroyDeviceListIterator, SC_DestroyDeviceListIterator_t)                                                 \
    X(SC_CopyDeviceDescriptor, SC_CopyDeviceDescriptor_t)                                                           \
    X(_SA_malloc, SA_malloc_t)                                                                                      \
    X(_SA_free, SA_free_t)                                                                                          \
    X(_SA_realloc, SA_realloc_t)

#define VEK_STORAGECORE_SYMBOLS(X)                                                                                  \
    X(InitializeStorageCore, InitializeStorageCore_t)                                                               \
    X(UnInitializeStorageCore, UnInitializeStorageCore_t)                                                           \
    X(SA_GetCDASize, SA_GetCDASize_t)                                                                               \
    X(SA_InitializeCDA, SA_InitializeCDA_t)                                                                         \
    X(SA_ReInitializeCDA, SA_ReInitializeCDA_t)                                                                     \
    X(SA_UnInitializeCDA, SA_UnInitializeCDA_t)                                                                     \
    X(SA_GetControllerPCILocation, SA_GetControllerText_t)                                                          \
    X(SA_GetControllerFirmwareVersion, SA_GetControllerText_t)                                                      \
    X(SA_GetControllerFirmwareBuildNumber, SA_GetControllerText_t)                                                  \
    X(SA_GetControllerSerialNumber, SA_GetControllerText_t)                                                         \
    X(SA_GetControllerStatusInfo, SA_GetControllerStatusInfo_t)                                                     \
    X(SA_GetControllerHealth, SA_GetControllerHealth_t)                                                             \
    X(SA_GetControllerHealthRollup, SA_GetControllerHealth_t)                                                       \
    X(SA_GetControllerManufacturingData, SA_GetControllerManufacturingData_t)                                       \
    X(SA_GetControllerPCIValue, SA_GetControllerPCIValue_t)                                                         \
    X(SA_EnumerateControllerPhysicalDrives, SA_EnumerateDevices_t)                                                  \
    X(SA_GetPhysicalDriveBasicInfo, SA_GetPhysicalDriveBasicInfo_t)                                                 \
    X(SA_GetPhysicalDriveModel, SA_GetDeviceText_t)                                                                 \
    X(SA_GetPhysicalDriveSerialNumber, SA_GetDeviceText_t)                                                          \
    X(SA_GetPhysicalDriveFirmwareVersion, SA_GetDeviceText_t)                                                       \
    X(SA_GetPhysicalDriveVendorID, SA_GetDeviceText_t)                                                              \
    X(SA_GetPhysicalDriveSize, SA_GetDeviceSize_t)                                                                  \
    X(SA_GetPhysicalDriveStatusInfo, SA_GetDeviceStatusInfo_t)                                                      \
    X(SA_GetPhysicalDriveHealth, SA_GetDeviceHealth_t)                                                              \
    X(SA_GetPhysicalDriveLocation, SA_GetPhysicalDriveLocation_t)                                                   \
    X(SA_EnumerateControllerLogicalDrives, SA_EnumerateDevices_t)                                                   \
    X(SA_GetLogicalDriveUniqueVolumeID, SA_GetDeviceText_t)                                                         \
    X(SA_GetLogicalDriveStatusInfo, SA_GetDeviceStatusInfo_t)                                                       \
    X(SA_GetLogicalDriveHealth, SA_GetDeviceHealth_t)                                                               \
    X(SA_GetLogicalDriveSize, SA_GetDeviceSize_t)                                                                   \
    X(SA_GetLogicalDriveRAIDInfo, SA_GetLogicalDriveRAIDInfo_t)                                                     \
    X(SA_GetLogicalDriveArray, SA_GetLogicalDriveArray_t)                                                           \
    X(SA_EnumerateArrayPhysicalDrives, SA_EnumerateArrayPhysicalDrives_t)                                           \
    X(SA_RegisterEventSink, SA_RegisterEventSink_t)                                                                 \
    X(SA_RegisterSerialLogSink, SA_RegisterSerialLogSink_t)                                                         \
    X(SA_StartEventQueue, SA_EventQueue_t)                                                                          \
    X(SA_StopEventQueue, SA_EventQueue_t)                                                                           \
    X(SA_GetControllerTime, SA_GetControllerTime_t)                                                                 \
    X(SA_SendPhysicalDeviceSCSICommand, SA_SendPhysicalDeviceSCSICommand_t)                                         \
    X(SA_CanSendPhysicalDeviceSCSICommand, SA_CanSendPhysicalDeviceSCSICommand_t)                                   \
    X(SA_GetPhysicalDriveConnectorIndex, SA_GetPhysicalDriveConnectorIndex_t)                                       \
    X(SA_GetControllerConnectorInfo, SA_GetControllerConnectorInfo_t)                                               \
    X(SA_EnumerateControllerStorageEnclosures, SA_EnumerateDevices_t)                                               \
    X(SA_GetStorageEnclosureVendorID, SA_GetDeviceText_t)                                                           \
    X(SA_GetStorageEnclosureProductID, SA_GetDeviceText_t)                                                          \
    X(SA_GetStorageEnclosureDeviceCount, SA_GetStorageEnclosureValue_t)                                             \
    X(SA_GetStorageEnclosureSerialNumber, SA_GetDeviceText_t)                                                       \
    X(SA_GetStorageEnclosureBackplaneInterfaceType, SA_GetStorageEnclosureValue_t)                                  \
    X(SA_GetStorageEnclosurePathCount, SA_GetStorageEnclosureValue_t)                                               \
    X(SA_GetStorageEnclosurePathName, SA_GetStorageEnclosurePathName_t)                                             \
    X(SA_GetStorageEnclosureStatusInfo, SA_GetStorageEnclosureStatusInfo_t)                                         \
    X(SA_GetUBMBackplaneProductString, SA_GetDeviceText_t)                                                          \
    X(SA_GetUBMBackplaneManagerDeviceCode, SA_GetStorageEnclosureValue_t)                                           \
    X(SA_GetUBMBackplanePCIVendorID, SA_GetStorageEnclosureValue_t)                                                 \
    X(SA_GetUBMBackplaneVersion, SA_GetDeviceText_t)                                                                \
    X(SA_GetUBMBackplanePartNumber, SA_GetDeviceText_t)

// Binds libvekhostcore.so and libstoragecore.so at run time and keeps the
// list of controllers the library sees, each with its CDA. Without either
// library the service simply has no SmartRAID controllers.
class vekStorageCoreInterface {
public:
    static vekStorageCoreInterface& getInstance();

    // The libraries by other names (a path, for a test's broken copy).
    vekStorageCoreInterface(std::string hostLibrary = "libvekhostcore.so",
                            std::string coreLibrary = "libstoragecore.so");
    ~vekStorageCoreInterface();
    vekStorageCoreInterface(const vekStorageCoreInterface&) = delete;
    vekStorageCoreInterface& operator=(const vekStorageCoreInterface&) = delete;

    // True when both libraries are bound and started (again true at a later
    // call once they are).
    bool Initialize();
    void UnInitialize();
    bool isInitialized() const { return initialized != 0; }

    void cacheBuild();
    // A copy of the list; empty when the list could not be had in time.
    std::vector<SCI_CONTROLLER_METADATA_PTR> getControllerCollection();
    // By the library's text of the PCI location; null when none.
    SCI_CONTROLLER_METADATA_PTR getControllerAt(const char* location);
    bool try_cache_lock();
    void cache_unlock() { cacheMutex.unlock(); }

#define VEK_SC_DECLARE_POINTER(name, type) type name = nullptr;
    VEK_HOSTCORE_SYMBOLS(VEK_SC_DECLARE_POINTER)
    VEK_STORAGECORE_SYMBOLS(VEK_SC_DECLARE_POINTER)
#undef VEK_SC_DECLARE_POINTER

private:
    struct LibraryCloser {
        void operator()(void* handle) const;
    };
    typedef std::unique_ptr<void, LibraryCloser> LibraryHandle;

    bool fetchSymbolAddress(void* handle, const char* name, void** pointer);
    bool bindSymbols();
    void closeLibraries();

    unsigned char initialized = 0;
    std::vector<SCI_CONTROLLER_METADATA_PTR> controllers;
    std::mutex cacheMutex;
    std::mutex initMutex_;
    LibraryHandle hostHandle;
    LibraryHandle coreHandle;
    std::string hostLibrary_;
    std::string coreLibrary_;
};
