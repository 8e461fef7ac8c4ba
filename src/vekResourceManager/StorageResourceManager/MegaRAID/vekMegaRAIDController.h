#pragma once

#include "vekSASLSIEvent.h"
#include "vekStorageController.h"
#include "vekStoreLibInterface.h"

#include <atomic>
#include <cstdint>
#include <functional>
#include <string>
#include <vector>

// A Broadcom MegaRAID controller served by libstorelib.so. Its inventory
// comes from the library's cache instead of sysfs, and its health from the
// firmware's events and each rebuild; the base keeps the synchronisation of
// disks, the status roll-up and the removal.
class vekMegaRAIDController : public vekStorageController {
public:
    // Where a drive of a backplane platform sits: the box number of its
    // enclosure; an exception when no backplane describes the drive. Set by
    // the factory once the UBM support is up; with it set, the controller's
    // enclosures are the UBM support's segments too.
    typedef std::function<int(const CTRL_INFO& controller, const PD_INFO& drive)> DriveBoxLocator;
    static void setDriveBoxLocator(DriveBoxLocator locator);

    explicit vekMegaRAIDController(vekOSInterface* osInterface);
    ~vekMegaRAIDController() override = default;

    int discoverInventory(vekStorageControllerInfo& info) override;
    int discoverPhysicalDiskInventory(std::vector<vekDiskInfo>& disks) override;
    int discoverLogicalDiskInventory(std::vector<vekLogicalDiskInfo>& disks) override;
    int discoverStorageEnclosureInventory(std::vector<vekStorageEnclosureInfo>& enclosures) override;
    int enableEvents() override;
    bool isEventsEnabled() override;
    int disableEvents() override;
    int poll() override;
    void processDeviceRemoval() override;
    void processDeviceAddition(IvekStorageController* newer) override;
    int discoverPhysicalDiskStatus(vekDiskInfo& disk) override;

    bool getDeviceDetected() const { return deviceDetected_; }
    void setDeviceDetected(bool value) { deviceDetected_ = value; }
    std::string getDeviceName() const { return deviceName_; }
    void setDeviceName(const std::string& value) { deviceName_ = value; }
    uint32_t getControllerId() const { return controllerId_; }
    void setControllerId(uint32_t value) { controllerId_ = value; }

    // The library's health result in the service's terms.
    static VEK_RESOURCE_HEALTH getHealthEnum(int health);
    // A state word of the firmware in the service's terms; Unknown when none matches.
    static VEK_RESOURCE_STATE getStateEnum(const std::string& word);

    // The maker's part numbers of a supported adapter model; false for a model
    // the table doesn't know.
    static bool getHBAPartNumber(uint32_t chipsetID, uint32_t boardID, std::string& partNumber,
                                 std::string& sparePartNumber);
    static bool getHBASkuPartNumber(uint32_t chipsetID, uint32_t boardID, std::string& skuPartNumber);
    // The same for a drive, by the model its inquiry data gives.
    static bool getDiskPartNumber(const std::string& model, std::string& partNumber, std::string& sparePartNumber);
    static bool getDiskSkuPartNumber(const std::string& model, std::string& skuPartNumber);
    // The PCI subsystem vendor of the controller, as the library reads it.
    uint16_t getControllerVendorID() const { return static_cast<uint16_t>(BoardID & 0xFFFF); }

    bool generateEventOnStatusChange(vekDiskInfo* current, vekDiskInfo* previous);
    bool generateEventOnStatusChange(vekLogicalDiskInfo* current, vekLogicalDiskInfo* previous);

    // "[Msg # 0x003a] <firmware text>[, (<detail>)]. Please refer to ...".
    static std::string getAddEventInfo(const VEK_SAS_EVENT_DETAIL& detail);
    static std::string getAddEventInfo(const VEK_SAS_EVENT_DETAIL& detail, const std::string& extra);
    static std::string getAddEventInfoWithOptionalDetail(const VEK_SAS_EVENT_DETAIL& detail,
                                                         const std::string& optional);
    // Copies of the member disks of the logical disk, from the current disks.
    void getPhyDiskListForLD(const vekLogicalDiskInfo& disk, std::vector<vekDiskInfo>& members);

    // ForwardAllMegaRAIDCriticalOrHigherEvents, read from the configuration
    // when the controller is made.
    void setForwardAllCriticalOrHigherEvents(bool value) { forwardAllCritical_ = value; }

    // Updates the inventory from a firmware event and raises the system events.
    void analyzeAndGenerateEvent(VEK_SAS_EVENT_DETAIL& detail);

    // Shared by all MegaRAID controllers; written on the manager's thread.
    static bool isLSILibLoaded;
    static bool isAENRegistered;
    static unsigned totalLSICtrls;

private:
    void discoverPhysicalDiskAttributes(vekDiskInfo& disk, const PD_INFO& pd);
    void analyzeLDEvent(VEK_SAS_EVENT_DETAIL& detail);
    void analyzePDEvent(VEK_SAS_EVENT_DETAIL& detail);
    void analyzeControllerEvent(VEK_SAS_EVENT_DETAIL& detail);
    void analyzeBBUEvent(VEK_SAS_EVENT_DETAIL& detail);
    vekDiskInfo* findDiskBySlot(int enclosure, int slot);
    // Sets the drive's event state and raises the event, unless a guard drops it.
    void raiseDriveEvent(vekDiskInfo& disk, VEK_RESOURCE_STATE state, VEK_RESOURCE_HEALTH health, int kind,
                         bool asserted, const VEK_SAS_EVENT_DETAIL& detail, const std::string& text);
    void raiseEvent(int kind, const std::string& location, bool asserted, const vekInventoryBase& record);

    uint32_t controllerId_ = 0;
    bool deviceDetected_ = false;
    std::string deviceName_;
    std::atomic<bool> forwardAllCritical_;
};
