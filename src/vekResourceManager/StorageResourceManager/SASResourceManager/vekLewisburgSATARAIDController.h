#pragma once

#include "vekStorageController.h"

#include <cstddef>
#include <cstdint>
#include <string>

// The SATA RAID controller of the Intel Lewisburg chipset. No vendor library
// serves it: the base's sysfs discovery finds the disks, mdadm gives the
// firmware version, and the disks' ATA port numbers with the chassis
// manager's PCH bay map give their bays.
class vekLewisburgSATARAIDController : public vekStorageController {
public:
    // Claims only the models of the Lewisburg family of the model table.
    static int claimDevice(uint32_t chipsetID, uint32_t boardID, const std::string& pciLocation, bool firstPass,
                           vekOSInterface* osInterface, IvekStorageController** controller);
    // The registry's hook before each discovery; mdadm is read once, at need.
    static void refreshVendorInterfaceCache();

    // The ports the chipset has on a platform type; 0 when the platform is
    // not one this controller is known on.
    static size_t maxSupportedControllerPortsFor(int platform);

    int discoverInventory(vekStorageControllerInfo& info) override;
    int getATADeviceNumberForControllerPort(size_t index) override;
    int discoverFirmwareVersion(std::string& version) override;
    int discoverPhysicalDiskBoxNumber(vekDiskInfo& disk) override;
    int discoverPhysicalDiskBoxNumber(const std::string& scsiName, vekDiskInfo& disk) override;
    bool validatePhysicalDisk(vekDiskInfo& disk) override;
    void computeControllerStatus() override;
    std::string formatControllerEventInfoString(STORAGE_EVENT_INFO_TYPE type) override;
    void synchronizePhysicalDrivesInventory() override;

    // The disk's bay in the box, from its ATA port; -1 when not found.
    int discoverPhysicalDiskSlotNumber(vekDiskInfo& disk, int box);

protected:
    vekLewisburgSATARAIDController(uint32_t chipsetID, uint32_t boardID, std::string pciLocation,
                                   unsigned char familyFlags, bool firstPass, vekOSInterface* osInterface,
                                   int platform);

    // 0 from the start of a discovery until its first status is computed:
    // that one counts only the ports the OS shows.
    unsigned char discoveryRunning = 1;

private:
    int getDiskSlotNumberFromATADeviceNumber(vekDiskInfo& disk, int box);
    // Ports that are not Running or Created: offline, being removed, or in
    // recovery for a minute (the port status says Recovery only then).
    size_t countFailingPorts();
};
