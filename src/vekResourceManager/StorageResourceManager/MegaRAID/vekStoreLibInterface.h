#pragma once

#include "vekStoreLibSDK.h"

#include <chrono>
#include <cstdint>
#include <map>
#include <mutex>
#include <stdexcept>
#include <string>
#include <vector>

namespace vekBroadcom {

class Exception : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

class StorelibAPIFailureException : public Exception {
public:
    StorelibAPIFailureException(uint32_t status, const std::string& what)
        : Exception("storelib failure 0x" + hex(status) + " retrieving " + what), status_(status)
    {
    }
    uint32_t status() const { return status_; }

private:
    static std::string hex(uint32_t value);
    uint32_t status_;
};

// Why a drive's connector names can't be told.
class PhysicalDriveHasNoSASAddressException : public Exception {
public:
    using Exception::Exception;
};

class NoPhysSupportedException : public Exception {
public:
    using Exception::Exception;
};

class UnrecognizedDriveInterfaceTypeException : public Exception {
public:
    using Exception::Exception;
};

} // namespace vekBroadcom

// A controller as the library's cache holds it.
struct CTRL_INFO {
    uint32_t ctrlId = 0;
    std::string serialNumber;
    std::string protocol;
    std::string model;
    std::string firmwareVersion;
    std::string pciLocation;
    uint32_t chipsetId = 0;
    uint32_t boardId = 0;
};

// A physical drive of a controller.
struct PD_INFO {
    uint16_t deviceId = 0;
    int enclosure = -1;
    int slot = -1;
    std::string serialNumber;
    std::string model;
    std::string vendor;
    std::string revision;
    std::string protocol;
    std::string mediaType;
    int fwState = -1;
    int health = 3;
    uint64_t capacityBytes = 0;
    // Retries and failures seen since the drive was last inserted or changed state.
    int retryCount = 0;
    std::vector<std::string> connectorNames;
};

// A logical drive of a controller, its members by serial number.
struct LD_INFO {
    int targetId = -1;
    std::string durableName;
    std::string name;
    std::string raidLevel;
    int state = -1;
    uint64_t capacityBytes = 0;
    std::vector<std::string> members;
};

// The one door to libstorelib.so: loads it once, wraps its entry point in
// named requests and keeps a per-controller cache of what it answered, from
// which the MegaRAID controllers build their inventory. The library's calls
// and the cache share one lock, since a request sequence runs against the
// library's notion of a current controller.
class vekStoreLibInterface {
public:
    static vekStoreLibInterface& getInstance();

    // An interface over another library file (tests of a library that can't load).
    explicit vekStoreLibInterface(std::string libraryName);
    ~vekStoreLibInterface();
    vekStoreLibInterface(const vekStoreLibInterface&) = delete;
    vekStoreLibInterface& operator=(const vekStoreLibInterface&) = delete;

    // True when the library is loaded and initialised; a library that can't
    // be loaded is not tried again in this process.
    bool vekStoreInit();
    // Ends the library's work and unloads it; the next vekStoreInit loads it again.
    void UnInitializeLibrary();
    bool isInitialized() const { return initializeMRsuccessful; }

    // The one gate to the library: the entry of the current controller's kind.
    uint32_t ProcessLibCommandCall(_SL_LIB_CMD_PARAM_T& param);

    // "All"/"ALL_EVENT", "PD_EVENT", "LD_EVENT", "CTRL_EVENT".
    void cacheBuild(const std::string& selector);

    std::vector<CTRL_INFO> getControllerCollection();
    bool getControllerInventory(uint32_t ctrlId, CTRL_INFO& info);
    std::vector<PD_INFO> getPDInventoryForCtrl(uint32_t ctrlId);
    std::vector<LD_INFO> getLDInventoryForCtrl(uint32_t ctrlId);
    bool getControllerID(const std::string& serial, uint32_t& ctrlId);
    // Zeroes the retry counter of the drive at that place.
    void resetPDRetryCounter(uint32_t ctrlId, int enclosure, int slot);
    // The ids of the library's controller list, as last read.
    std::vector<uint32_t> getLibraryControllerIds();
    // The enclosure's device id for the index a firmware event names it by;
    // false when the controller's enclosure list has no such index.
    bool getEnclosureDeviceId(uint32_t ctrlId, int index, int& deviceId);

    // The lock of the cache and the library, for the event path: bounded, so
    // an event never hangs on a long build.
    std::unique_lock<std::recursive_mutex> takeLock(std::chrono::milliseconds wait);

    uint32_t getCtrlList(_SL_CTRL_LIST_T& list);
    uint32_t getCtrlInfoFunc(uint32_t ctrlId, _MR_CTRL_INFO& info);
    // The drives of a controller; grows its buffer once when the library says
    // the list is longer than the first one holds.
    uint32_t GetPDListFunc(uint32_t ctrlId, std::vector<_MR_PD_ADDRESS>& drives, size_t initialEntries = 32);
    uint32_t FirePDInfo(uint32_t ctrlId, uint16_t deviceId, _MR_PD_INFO& info);
    uint32_t GetEnclListFunc(uint32_t ctrlId, _MR_ENCL_LIST& list);
    uint32_t GetLDListFunc(uint32_t ctrlId, _MR_LD_LIST& list);
    uint32_t FireLDInfo(uint32_t ctrlId, uint8_t targetId, _MR_LD_INFO& info);
    uint32_t GetLDPDMap(uint32_t ctrlId, uint8_t targetId, _MR_LD_PD_MAP& map);
    // The first member's user block size, 512 when the library says 0 or fails.
    uint32_t GetUserDataBlockSizeOfPdInLD(uint32_t ctrlId, uint8_t targetId);
    uint32_t IssueEventSequenceInfo(uint32_t ctrlId, _MR_EVT_LOG_INFO& info);
    uint32_t sendDCMDPassThru(uint32_t ctrlId, uint32_t opCode, void* data, uint32_t length, const char* what,
                              uint8_t mbox0 = 0);
    uint32_t GetMFCMFG(uint32_t ctrlId, _MR_MFC_MFG& out, uint8_t page);
    // The controller's safe ID, a NUL-terminated text of at most 40 characters.
    uint32_t getCtrlSafeID(uint32_t ctrlId, char (&out)[41]);
    // A VPD page of the drive into `data`; `length` becomes the bytes it
    // holds. A drive that refuses the page gives its SCSI status.
    uint32_t fireSCSIVPDInquiry(uint32_t ctrlId, uint16_t deviceId, uint8_t page, uint8_t* data, uint32_t& length);
    // READ LOG EXT of an ATA drive: `size` bytes (whole 512-byte blocks) of
    // the log at `page`, from its first block.
    uint32_t FireATAReadLogExt(uint32_t ctrlId, uint16_t deviceId, uint8_t page, uint8_t* buffer, uint32_t size);

    // The names of the controller connectors ("C0.0") that the drive hangs
    // on, through the PHYs (SAS, SATA) or lanes (NVMe) of its ports. Throws a
    // vekBroadcom::Exception when they can't be told.
    void discoverDriveConnectorNames(uint32_t ctrlId, uint16_t deviceId, std::vector<std::string>& out);
    uint32_t readSASConnectorsInfo(uint32_t ctrlId, _MR_SAS_CONNECTORS& connectors);
    uint32_t readPhyConnectionsInfo(uint32_t ctrlId, _MR_SAS_PHY_CONNECTIONS& phys);
    uint32_t readLaneConnectionsInfo(uint32_t ctrlId, _MR_PCIE_LANE_CONNECTIONS& lanes);

    static int getHealth(int fwState);
    static std::string getFWStateString(int fwState);
    static int getLDHealth(int ldState);
    static std::string getLDStateString(int ldState);
    static std::string getRAIDLevelString(int primary, int secondary, int spanDepth);
    static std::string getCtrlPCILoc(const _SL_PCI_INFO_T& pci);

private:
    // The connector indices that lead to the port, added to `indices` when new.
    void discoverDriveConnectorNamesForPort(uint32_t ctrlId, uint16_t deviceId, uint8_t interfaceType, uint8_t port,
                                            unsigned phyCount, std::vector<uint8_t>& indices);
    void discoverConnectionIndicesForSASOrSATAPort(uint32_t ctrlId, uint8_t port, unsigned phyCount,
                                                   std::vector<uint8_t>& indices);
    void discoverConnectionIndicesForNVMePort(uint32_t ctrlId, uint8_t port, std::vector<uint8_t>& indices);

    void buildControllerInfo();
    void buildPDInfo();
    void buildLDInfo();
    std::string getControllerSerialNo(uint32_t ctrlId, const _MR_CTRL_INFO* info);
    // The maker of an ATA drive from VPD page D0.
    void setDriveVendorName(uint32_t ctrlId, PD_INFO& pd);
    // The standard inquiry's serial number, else VPD page 0x80's.
    void populateDiskSerialNumber(uint32_t ctrlId, const _MR_PD_INFO& info, PD_INFO& pd);
    // A SCSI command to a drive; `length` in: the room, out: what arrived.
    uint32_t fireSCSIPassThru(uint32_t ctrlId, uint16_t deviceId, const uint8_t* cdb, uint8_t cdbLength,
                              uint8_t* data, uint32_t& length);
    // The library's list into gCtrlList, each entry with its kind.
    void mergeControllerLists(const _SL_CTRL_LIST_T& mr);
    // Makes the controller the current one of the request sequence that follows.
    void selectController(uint32_t ctrlId);
    void unloadDLL(void*& handle);
    void unloadDLLs();
    uint32_t libraryCommand(uint8_t type, uint8_t cmd, uint32_t ctrlId, void* data, uint32_t size);

    std::string libraryName_;
    void* handle_ = nullptr;
    ProcessLibCommandFunction pfnProcessLibCommandMR = nullptr;
    // The entry the next request goes through, chosen by the current controller's kind.
    ProcessLibCommandFunction pfnProcessLibCommand = nullptr;
    bool libMRPresent = false;
    bool initializeMRsuccessful = false;
    bool doNotRetryLibLoad = false;
    _SL_CTRL_LIST_T gCtrlListMR{};
    // All controllers, each entry's top byte its kind; the current index points in here.
    _SL_CTRL_LIST_T gCtrlList{};
    uint32_t gTotalControllers = 0;
    int currentCtrlIndex_ = -1;
    std::recursive_mutex cache_lock;
    std::vector<CTRL_INFO> controllers_;
    std::map<uint32_t, std::vector<PD_INFO>> drives_;
    std::map<uint32_t, std::vector<LD_INFO>> logicalDrives_;
    // Per controller, the enclosure device id of each enclosure index.
    std::map<uint32_t, std::map<int, int>> enclosures_;
};
