#pragma once

#include "IvekStorageController.h"

#include <cstdint>
#include <map>
#include <mutex>
#include <string>
#include <vector>

class vekOSInterface;

// Bits of eventControlFlags.
const uint32_t VEK_STORAGE_EVENTS_NO_PORT_POLL = 0x1;
const uint32_t VEK_STORAGE_EVENTS_NO_DISK_POLL = 0x2;
const uint32_t VEK_STORAGE_EVENTS_ENABLED = 0x4;

// A plain SAS/SATA host bus adapter, seen through sysfs and asked directly
// through the SCSI probes; the base of the RAID controller families. Keeps
// the latest discovery and what was last reported, and turns the difference
// into events.
class vekStorageController : public IvekStorageController {
public:
    // Claims a device of a model of the table: 1 with the object (none when
    // out of memory), 0 for an unknown model.
    static int claimDevice(uint32_t chipsetID, uint32_t boardID, const std::string& pciLocation, bool firstPass,
                           vekOSInterface* osInterface, IvekStorageController** controller);

    ~vekStorageController() override = default;

    int discoverInventory(vekStorageControllerInfo& info) override;
    int discoverPhysicalDiskInventory(std::vector<vekDiskInfo>& disks) override;
    int discoverLogicalDiskInventory(std::vector<vekLogicalDiskInfo>& disks) override;
    int discoverStorageEnclosureInventory(std::vector<vekStorageEnclosureInfo>& enclosures) override;
    bool isMatchingController(uint32_t chipsetID, uint32_t boardID, const std::string& pciLocation,
                              bool ignored) override;

    int enableEvents() override;
    bool isEventsEnabled() override;
    int disableEvents() override;
    int poll() override;
    void processDeviceRemoval() override;
    void processDeviceAddition(IvekStorageController* newer) override;

    uint32_t getChipsetID() override { return ChipsetID; }
    uint32_t getBoardID() override { return BoardID; }
    std::string getPciLocation() override { return PciLocation; }

    std::vector<std::string> getPortVector() override;
    void setPortVector(const std::vector<std::string>& ports) override;
    std::string getPort(size_t index) override;
    void setPort(size_t index, const std::string& port) override;
    void addPort(const std::string& port) override;
    void clearPortList() override;
    size_t getPortListSize() override;
    void deletePort(size_t index) override;

    unsigned char getFamilyFlags() override { return FamilyFlags; }
    bool getNewDevice() override;
    void setNewDevice(bool value) override;
    bool getFoundOnFirstDiscoveryPass() override { return FoundOnFirstDiscoveryPass; }

    void getInventory(vekStorageControllerInfo& info) override;
    vekStorageControllerInfo getInventory() override;
    void getPhysicalDrivesInventory(std::vector<vekDiskInfo>& disks) override;
    std::vector<vekDiskInfo> getPhysicalDrivesInventory() override;
    void getLogicalDiskInventory(std::vector<vekLogicalDiskInfo>& disks) override;
    std::vector<vekLogicalDiskInfo> getLogicalDiskInventory() override;
    void getStorageEnclosureInventory(std::vector<vekStorageEnclosureInfo>& enclosures) override;
    std::vector<vekStorageEnclosureInfo> getStorageEnclosureInventory() override;

    int getHostNumberForControllerPort(size_t index) override;
    int getATADeviceNumberForControllerPort(size_t index) override;

    int discoverFirmwareVersion(std::string& version) override;
    int discoverSerialNumber(std::string& serial) override;
    int discoverManufacturer(std::string& manufacturer) override;
    int discoverControllerPortStatus(size_t index, vekStorageControllerPortInfo& port) override;

    int discoverPhysicalDiskBoxNumber(vekDiskInfo& disk) override;
    int discoverPhysicalDiskBoxNumber(const std::string& scsiName, vekDiskInfo& disk) override;
    int discoverPhysicalDiskManufacturer(const vekDiskInfo& disk, std::string& manufacturer) override;
    int discoverPhysicalDiskStatus(vekDiskInfo& disk) override;
    bool validatePhysicalDisk(vekDiskInfo& disk) override;

    void computeControllerStatus() override;
    std::string formatControllerEventInfoString(STORAGE_EVENT_INFO_TYPE type) override;

    int populateDeviceNameMap() override;
    std::string getLogicalDeviceName(const std::string& name) override;

    void synchronizePhysicalDrivesInventory() override;
    void synchronizeLogicalDiskInventory() override;

    // Ports a model has whether or not the OS shows them; 0: the port list's
    // own size counts.
    size_t getMaxSupportedControllerPorts() const { return maxSupportedControllerPorts_; }

protected:
    vekStorageController(uint32_t chipsetID, uint32_t boardID, std::string pciLocation, unsigned char familyFlags,
                         bool firstPass, vekOSInterface* osInterface);

    // The controller's event on a change of its health; true when raised.
    bool generateEventOnStatusChange();
    // A disk's event on a change of its state; true when raised.
    bool generateEventOnStatusChange(vekDiskInfo& current, const vekDiskInfo& previous);
    void setMaxSupportedControllerPorts(size_t ports) { maxSupportedControllerPorts_ = ports; }
    // Reads a sysfs attribute of a port ("state"); false when unreadable.
    bool readPortAttribute(size_t index, const std::string& name, std::string& value);
    static bool isLocationValid(const vekDiskInfo& disk);
    // The disk's PL in its chassis box and bay, and the PL's long decoded
    // form when there is one.
    void setChassisDriveLocation(vekDiskInfo& disk, int box, int bay) const;
    // State, health and text of a disk from what its probes answered: the
    // health probe's result (negative: unreadable; else errors or ASC/ASCQ),
    // the wear percentage and the temperatures.
    static void applyDiskVerdict(vekDiskInfo& disk, bool ata, int health, int wear, int temperature,
                                 int maxTemperature, bool haveTemperature);

    uint32_t ChipsetID;
    uint32_t BoardID;
    std::string PciLocation;
    std::vector<std::string> ports_;
    unsigned char FamilyFlags;
    bool NewDevice = true;
    bool FoundOnFirstDiscoveryPass;
    vekStorageControllerInfo currentInfo_;
    std::vector<vekDiskInfo> disks_;
    std::vector<vekLogicalDiskInfo> logicalDisks_;
    std::vector<vekStorageEnclosureInfo> enclosures_;
    std::map<std::string, std::string> deviceNameMap_;
    uint32_t eventControlFlags = 0;
    vekStorageControllerInfo previousInfo_;
    std::vector<vekDiskInfo> previousDisks_;
    std::vector<vekLogicalDiskInfo> previousLogicalDisks_;
    std::vector<vekStorageEnclosureInfo> previousEnclosures_;
    std::recursive_mutex inventoryMutex_;
    // -1: nothing raised yet; 1: a fault is outstanding; 0: cleared.
    int criticalEventOutstanding = -1;
    vekOSInterface* osInterface_;

private:
    int discoverAtaStatus(vekDiskInfo& disk, int fd, int& wear, int& temperature, int& maxTemperature,
                          bool& haveTemperature);
    int discoverSasStatus(vekDiskInfo& disk, int fd, int& wear, int& temperature, int& maxTemperature);
    bool discoverDisk(const std::string& scsiName, vekDiskInfo& disk);
    void alignPreviousDisks();
    // A refresh asked for while a discovery runs would only repeat it.
    void invalidateUnlessDiscovering();
    void raiseControllerEvent(int kind, bool asserted);
    void raiseDiskEvent(int kind, const std::string& location, bool asserted, const vekDiskInfo& disk);

    size_t maxSupportedControllerPorts_ = 0;
    bool discovering_ = false;
};
