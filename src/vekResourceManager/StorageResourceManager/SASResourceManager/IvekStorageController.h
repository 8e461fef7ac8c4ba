#pragma once

#include "vekDiskInfo.h"
#include "vekLogicalDiskInfo.h"
#include "vekRemoveLock.h"
#include "vekStorageControllerInfo.h"
#include "vekStorageEnclosureInfo.h"

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

// Which text a controller's event carries, by how its ports are doing.
enum STORAGE_EVENT_INFO_TYPE {
    STORAGE_EVENT_INFO_PORTS_ONLINE = 1,
    STORAGE_EVENT_INFO_PORTS_PARTIAL = 2,
    STORAGE_EVENT_INFO_PORTS_FAILING = 3,
};

// One storage controller as the storage resource manager sees it. The order
// of the virtual operations is fixed.
//
// Lifetime: the owner (a factory) holds the first reference; every list
// handed out takes one more. A controller that left the system is marked
// removed and refuses event work; the release of its last reference then
// deletes it, so a concurrent reader never holds a freed object.
class IvekStorageController : public vekRemoveLock {
public:
    ~IvekStorageController() override = default;

    virtual int discoverInventory(vekStorageControllerInfo& info) = 0;
    virtual int discoverPhysicalDiskInventory(std::vector<vekDiskInfo>& disks) = 0;
    virtual int discoverLogicalDiskInventory(std::vector<vekLogicalDiskInfo>& disks) = 0;
    virtual int discoverStorageEnclosureInventory(std::vector<vekStorageEnclosureInfo>& enclosures) = 0;
    virtual bool isMatchingController(uint32_t chipsetID, uint32_t boardID, const std::string& pciLocation,
                                      bool ignored) = 0;

    virtual int enableEvents() = 0;
    virtual bool isEventsEnabled() = 0;
    virtual int disableEvents() = 0;
    virtual int poll() = 0;
    virtual void processDeviceRemoval() = 0;
    virtual void processDeviceAddition(IvekStorageController* newer) = 0;

    virtual uint32_t getChipsetID() = 0;
    virtual uint32_t getBoardID() = 0;
    virtual std::string getPciLocation() = 0;

    // Sysfs paths of the controller's host ports.
    virtual std::vector<std::string> getPortVector() = 0;
    virtual void setPortVector(const std::vector<std::string>& ports) = 0;
    virtual std::string getPort(size_t index) = 0;
    virtual void setPort(size_t index, const std::string& port) = 0;
    virtual void addPort(const std::string& port) = 0;
    virtual void clearPortList() = 0;
    virtual size_t getPortListSize() = 0;
    virtual void deletePort(size_t index) = 0;

    virtual unsigned char getFamilyFlags() = 0;
    virtual bool getNewDevice() = 0;
    virtual void setNewDevice(bool value) = 0;
    virtual bool getFoundOnFirstDiscoveryPass() = 0;

    virtual void getInventory(vekStorageControllerInfo& info) = 0;
    virtual vekStorageControllerInfo getInventory() = 0;
    virtual void getPhysicalDrivesInventory(std::vector<vekDiskInfo>& disks) = 0;
    virtual std::vector<vekDiskInfo> getPhysicalDrivesInventory() = 0;
    virtual void getLogicalDiskInventory(std::vector<vekLogicalDiskInfo>& disks) = 0;
    virtual std::vector<vekLogicalDiskInfo> getLogicalDiskInventory() = 0;
    virtual void getStorageEnclosureInventory(std::vector<vekStorageEnclosureInfo>& enclosures) = 0;
    virtual std::vector<vekStorageEnclosureInfo> getStorageEnclosureInventory() = 0;

    // -1 when the port's path names no host (or no ATA device).
    virtual int getHostNumberForControllerPort(size_t index) = 0;
    virtual int getATADeviceNumberForControllerPort(size_t index) = 0;

    virtual int discoverFirmwareVersion(std::string& version) = 0;
    virtual int discoverSerialNumber(std::string& serial) = 0;
    virtual int discoverManufacturer(std::string& manufacturer) = 0;
    // The port record at that index of the port list.
    virtual int discoverControllerPortStatus(size_t index, vekStorageControllerPortInfo& port) = 0;

    virtual int discoverPhysicalDiskBoxNumber(vekDiskInfo& disk) = 0;
    // The same for a disk known by its SCSI name ("2:0:3:0").
    virtual int discoverPhysicalDiskBoxNumber(const std::string& scsiName, vekDiskInfo& disk) = 0;
    virtual int discoverPhysicalDiskManufacturer(const vekDiskInfo& disk, std::string& manufacturer) = 0;
    virtual int discoverPhysicalDiskStatus(vekDiskInfo& disk) = 0;
    virtual bool validatePhysicalDisk(vekDiskInfo& disk) = 0;

    virtual void computeControllerStatus() = 0;
    virtual std::string formatControllerEventInfoString(STORAGE_EVENT_INFO_TYPE type) = 0;

    virtual int populateDeviceNameMap() = 0;
    virtual std::string getLogicalDeviceName(const std::string& name) = 0;

    virtual void synchronizePhysicalDrivesInventory() = 0;
    virtual void synchronizeLogicalDiskInventory() = 0;

    // ---- removal and references ----
    bool isRemoved() const { return removed_; }
    void markRemoved() { removed_ = true; }
    // A removed controller that came back at its place.
    void clearRemoved() { removed_ = false; }
    void acquireReference() { ++references_; }
    // Deletes the object when that was the last reference of a removed one.
    void releaseReference()
    {
        if (--references_ == 0 && removed_) {
            delete this;
        }
    }
    int getReferenceCount() const { return references_; }

private:
    std::atomic<bool> removed_{false};
    // The owner's reference.
    std::atomic<int> references_{1};
};
