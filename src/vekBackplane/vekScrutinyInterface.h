#pragma once

// UBM backplanes behind MegaRAID controllers, reached through the closed
// Scrutiny library: controllers, their configuration page 43 (which I2C
// buses carry enclosure sideband), and on each such bus the UBM controller
// (0x40) and the FRU EEPROM (0x57). The results are cached in two
// generations, so that readers never wait for a rebuild.

#include "ISubject.h"
#include "dsiControllerInfo.h"
#include "dsiEnclosureSegmentInfo.h"
#include "vekScrutinyLibrary.h"
#include "vekSubjectShutdownObserver.h"

#include <cstdint>
#include <cstdlib>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

typedef int _DSI_STATUS;
const _DSI_STATUS VEK_DSI_STATUS_SUCCESS = 0;
const _DSI_STATUS VEK_DSI_STATUS_FAILURE = 1;
const _DSI_STATUS VEK_DSI_STATUS_OUT_OF_MEMORY = 2;
const _DSI_STATUS VEK_DSI_STATUS_NOT_INITIALIZED = 3;
const _DSI_STATUS VEK_DSI_STATUS_LIBRARY_FAILURE = 4;
const _DSI_STATUS VEK_DSI_STATUS_IOC_FAILURE = 5;
const _DSI_STATUS VEK_DSI_STATUS_COMMAND_FAILED = 6;
const _DSI_STATUS VEK_DSI_STATUS_INVALID_PAGE_LENGTH = 7;
const _DSI_STATUS VEK_DSI_STATUS_NO_REQUESTS = 8;
const _DSI_STATUS VEK_DSI_STATUS_SHORT_TRANSFER = 9;
const _DSI_STATUS VEK_DSI_STATUS_SHUTDOWN_DETECTED = 14;

// The controller's PCI address as the arguments of "%04x:%02x:%02x.%x".
#define VEK_DSI_PCI_ADDRESS(device) (device).pciDomain, (device).pciBus, (device).pciDevice, (device).pciFunction

// Blocks handed to the library are calloc memory, zeroed as it expects.
struct vekCallocDeleter {
    void operator()(void* memory) const { free(memory); }
};
using vekCallocBlock = std::unique_ptr<unsigned char, vekCallocDeleter>;

// A configuration page as read: the request header, then the page itself.
struct _MR_SAS_CONFIG_PAGE {
    vekCallocBlock block;
    size_t size = 0;
};

class vekScrutinyInterface {
public:
    static vekScrutinyInterface& getInstance();

    vekScrutinyInterface(const vekScrutinyInterface&) = delete;
    vekScrutinyInterface& operator=(const vekScrutinyInterface&) = delete;

    // Loads the library, at most three failed attempts until
    // resetInitializeAttempts(); watches the subject for shutdown.
    void initialize(ISubject* subject);
    void shutdown();
    void resetInitializeAttempts();
    bool isInitialized();

    // Rebuilds the current generation; the records of the one before it are
    // deleted, so pointers from the readers hold for one inventory pass.
    void cacheBuild();
    std::vector<dsiControllerInfo*> getControllerList();
    std::vector<dsiEnclosureSegmentInfo*> getEnclosureSegmentList(const std::string& pci);

    // "%04x:%02x:%02x.%x" of the controller.
    static std::string pciAddressOf(const _SCRUTINY_DEVICE_INFO& device);

    // The requests; they talk to the library without locking it, so they run
    // inside cacheBuild() or while nothing can shut the interface down.
    _DSI_STATUS issueMegaRAIDConfigPageRequest(const _SCRUTINY_DEVICE_INFO& device, unsigned char* buffer, size_t size,
                                               uint8_t* mfiStatus = nullptr);
    _DSI_STATUS readMegaRAIDConfigurationPage43(const _SCRUTINY_DEVICE_INFO& device, _MR_SAS_CONFIG_PAGE& page);
    _DSI_STATUS reserveReleaseMegaRAIDI2CBus(const _SCRUTINY_DEVICE_INFO& device, uint8_t bus, uint16_t deviceAddress,
                                             uint8_t type, uint8_t muxChannel, uint8_t muxIndex, uint16_t muxAddress,
                                             bool reserve);
    // Runs the requests between a reservation and a release of the first
    // request's bus; a failed request does not stop the list. The optional
    // arrays get each request's library and IOC status. Returns the status
    // of the reservation when it failed, else that of the release.
    _DSI_STATUS executeMegaRAIDISTWIRequestList(const _SCRUTINY_DEVICE_INFO& device, _SCRUTINY_ISTWI_REQUEST* requests,
                                                size_t count, _SCRUTINY_STATUS* statuses = nullptr,
                                                __SCRUTINY_IOC_STATUS* iocStatuses = nullptr);

private:
    vekScrutinyInterface() = default;
    // Never runs: the singleton lives until the process ends.
    ~vekScrutinyInterface() = default;

    // The loaded library: its handle, closed when this goes, and its entry points.
    struct Library {
        struct Closer {
            void operator()(void* handle) const;
        };
        std::unique_ptr<void, Closer> handle;
        ScrutinyInitialize_t initialize = nullptr;
        ScrutinyExit_t exit = nullptr;
        ScrutinyGetLibraryVersion_t getLibraryVersion = nullptr;
        ScrutinyInitializeLogging_t initializeLogging = nullptr;
        ScrutinyDiscoverDevices_t discoverDevices = nullptr;
        ScrutinyGetDeviceCount_t getDeviceCount = nullptr;
        ScrutinyGetDeviceInfo_t getDeviceInfo = nullptr;
        ScrutinyControllerDcmdPassthrough_t dcmdPassthrough = nullptr;
        ScrutinyControllerToolboxIstwiReadWrite_t istwiReadWrite = nullptr;
    };
    // What one cache build found; a generation owns its records.
    struct Generation {
        std::vector<std::unique_ptr<dsiControllerInfo>> controllers;
        std::map<std::string, std::vector<std::unique_ptr<dsiEnclosureSegmentInfo>>> segments;
    };

    bool shutdownDetected() const;
    // Success when the library and the IOC both said so and exactly the
    // wanted bytes came back.
    static _DSI_STATUS transferStatus(const _SCRUTINY_ISTWI_REQUEST& request, uint16_t wanted, _SCRUTINY_STATUS status,
                                      const __SCRUTINY_IOC_STATUS& ioc);
    // Reads of the UBM controller (0x40) and the FRU EEPROM (0x57).
    static _SCRUTINY_ISTWI_REQUEST transfer(uint8_t bus, uint16_t deviceAddress, unsigned char* transmit,
                                            uint16_t transmitLength, unsigned char* receive, uint16_t receiveLength);
    // A UBM controller command and the Last Command Status after it.
    _DSI_STATUS ubmCommand(const _SCRUTINY_DEVICE_INFO& device, uint8_t bus, uint8_t command, unsigned char* response,
                           uint16_t size, uint8_t& lastStatus);

    _DSI_STATUS populateEnclosureInfoWithUBMSiliconIdentityVersion(const _SCRUTINY_DEVICE_INFO& device, uint8_t bus,
                                                                   dsiEnclosureSegmentInfo& segment);
    _DSI_STATUS populateEnclosureInfoWithUBMBackplaneInfo(const _SCRUTINY_DEVICE_INFO& device, uint8_t bus,
                                                          dsiEnclosureSegmentInfo& segment);
    _DSI_STATUS populateEnclosureInfoWithUBMOperationalState(const _SCRUTINY_DEVICE_INFO& device, uint8_t bus,
                                                             dsiEnclosureSegmentInfo& segment);
    _DSI_STATUS populateEnclosureInfoWithUBMFRUNVRAMData(const _SCRUTINY_DEVICE_INFO& device, uint8_t bus,
                                                         dsiEnclosureSegmentInfo& segment);

    _DSI_STATUS buildControllerList(Generation& generation);
    _DSI_STATUS buildControllerInfo(std::unique_ptr<_SCRUTINY_DEVICE_INFO> device,
                                    std::unique_ptr<dsiControllerInfo>& controller);
    _DSI_STATUS buildEnclosureSegmentList(const _SCRUTINY_DEVICE_INFO& device,
                                          std::vector<std::unique_ptr<dsiEnclosureSegmentInfo>>& list);
    _DSI_STATUS buildEnclosureSegmentInfo(const _SCRUTINY_DEVICE_INFO& device, uint8_t bus,
                                          std::unique_ptr<dsiEnclosureSegmentInfo>& segment);

    bool tryCurrCacheLock();

    // Guards loading, unloading and building; the cache locks come after it.
    static std::mutex instanceLock;
    std::unique_ptr<Library> library_;
    unsigned long initializeAttempts_ = 0;
    std::unique_ptr<vekSubjectShutdownObserver> observer_;

    std::mutex currCacheLock_;
    std::mutex prevCacheLock_;
    Generation current_;
    Generation previous_;
};
