#pragma once

#include "vekSmartRAIDStatus.h"
#include "vekStorageController.h"
#include "vekStorageCoreInterface.h"

#include <cstdint>
#include <ctime>
#include <map>
#include <stdexcept>
#include <string>
#include <vector>

namespace vekSmartRAID {

class Exception : public std::runtime_error {
public:
    explicit Exception(const std::string& text) : std::runtime_error(text) {}
};
class StorageCoreAPIFailureException : public Exception {
public:
    using Exception::Exception;
};
class ConnectorInfoNotAvailableException : public Exception {
public:
    using Exception::Exception;
};
class InvalidConnectorIndexException : public Exception {
public:
    using Exception::Exception;
};
class PhysicalDriveNotPresentException : public Exception {
public:
    using Exception::Exception;
};

} // namespace vekSmartRAID

// One Microchip SmartRAID controller, read through the storage library at
// each build; its events arrive on the library's own thread.
class vekSmartRAIDController : public vekStorageController {
public:
    vekSmartRAIDController(SCI_CONTROLLER_METADATA_PTR metadata, bool firstPass, vekOSInterface* osInterface);
    ~vekSmartRAIDController() override = default;

    int discoverInventory(vekStorageControllerInfo& info) override;
    int discoverPhysicalDiskInventory(std::vector<vekDiskInfo>& disks) override;
    int discoverLogicalDiskInventory(std::vector<vekLogicalDiskInfo>& disks) override;
    int discoverStorageEnclosureInventory(std::vector<vekStorageEnclosureInfo>& enclosures) override;
    bool isMatchingController(uint32_t chipsetID, uint32_t boardID, const std::string& pciLocation,
                              bool ignored) override;
    int enableEvents() override;
    int disableEvents() override;
    int poll() override { return 0; }
    void processDeviceRemoval() override;

    int refreshCDA();
    SCI_CONTROLLER_METADATA_PTR getControllerMetadata();
    // A controller that came back gets the library's new entry.
    void setControllerMetadata(SCI_CONTROLLER_METADATA_PTR metadata);
    bool getDeviceDetected() const { return deviceDetected; }
    void setDeviceDetected(bool value) { deviceDetected = value; }
    time_t getEventRegistrationTimestamp() const { return eventRegistrationTimestamp; }
    time_t getControllerClockOffset() const { return controllerClockOffset; }

    // The library's sink: finds the controller of the CDA and hands it the event.
    static void eventHandler(PCDA cda, const SA_CONTROLLER_EVENT* event);
    void analyzeAndGenerateEvent(const SA_CONTROLLER_EVENT& event);

    // "%hu:%hu:%hu.%hu" of the library as "%04x:%02x:%02x.%x"; false when
    // the text is no location.
    static bool formatPciLocation(const std::string& library, std::string& location);
    // The number a location word starts with ("1I" -> 1); false when none.
    static bool parseLocationNumber(const std::string& word, unsigned& value);
    // The word after a key word of an event's message ("PORT 1I" -> "1I").
    static std::string wordAfterKey(const std::string& message, const std::string& key);

private:
    // Where a drive sits, as the library and its events name it.
    struct DriveKey {
        SA_WORD number = kInvalidDeviceNumber;
        unsigned port = 0;
        unsigned box = 0;
        unsigned bay = 0;
    };

    bool discoverPhysicalDiskAttributes(SA_WORD drive, vekDiskInfo& disk, DriveKey& key);
    void discoverPhysicalDiskModel(SA_WORD drive, vekDiskInfo& disk);
    bool issueATAIdentifyDevice(SA_WORD drive, std::vector<unsigned char>& identify);
    void discoverPhysicalDiskManufacturer(SA_WORD drive, vekDiskInfo& disk);
    void discoverPhysicalDiskConnectorType(SA_WORD drive, int& external);
    std::vector<std::string> getPhysicalDrivesForVolume(SA_WORD volume);
    void requestInventoryPushToRMCOnPhysicalDiskChange(const std::vector<vekDiskInfo>& before);
    void requestInventoryPushToRMCOnLogicalDiskChange(const std::vector<vekLogicalDiskInfo>& before);

    // Event handlers by class.
    void processDeviceRemovalAndInsertionEvent(const SA_CONTROLLER_EVENT& event);
    void processHardwareErrorEvent(const SA_CONTROLLER_EVENT& event);
    void processEnvironmentEvent(const SA_CONTROLLER_EVENT& event);
    void processPhysicalDriveEvent(const SA_CONTROLLER_EVENT& event);
    void processLogicalDriveEvent(const SA_CONTROLLER_EVENT& event);
    void processControllerFirmwareErrorEvent(const SA_CONTROLLER_EVENT& event);
    void generateControllerEvent(const SA_CONTROLLER_EVENT& event, VEK_RESOURCE_STATE state,
                                 VEK_RESOURCE_HEALTH health, int eventId, bool service);
    void generatePhysicalDriveEvent(const SA_CONTROLLER_EVENT& event, VEK_RESOURCE_STATE state,
                                    VEK_RESOURCE_HEALTH health);
    void generateEventOnStatusChange(vekLogicalDiskInfo& volume, const vekSmartRAIDStatus& now,
                                     const std::string& text);
    std::string formatEventInfoString(const SA_CONTROLLER_EVENT& event) const;
    // "[CC=.., SCC=.., DC=.., (message)] on controller [model] @ [location]" pieces.
    std::string describe(const SA_CONTROLLER_EVENT& event) const;
    void sendControllerEvent(int eventId, bool service, const std::string& text);

    SCI_CONTROLLER_METADATA_PTR metadata_;
    bool deviceDetected = true;
    time_t eventRegistrationTimestamp = 0;
    time_t controllerClockOffset = 0;
    uint32_t lastEventTag = 0;
    bool firstEventReceived = false;
    bool wentOffline_ = false;
    // The last controller event's status, once there was one.
    bool lastEventStatusValid = false;
    VEK_RESOURCE_STATE lastEventState = VEK_STATE_UNKNOWN;
    VEK_RESOURCE_HEALTH lastEventHealth = VEK_HEALTH_UNKNOWN;
    std::vector<DriveKey> driveKeys_;
    // The health last reported for a drive (by serial number) or a volume
    // (by its number): an event that repeats it is dropped.
    std::map<std::string, VEK_RESOURCE_HEALTH> driveHealth_;
    std::map<std::string, VEK_RESOURCE_HEALTH> volumeHealth_;
};
