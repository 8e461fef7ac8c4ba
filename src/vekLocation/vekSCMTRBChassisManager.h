#pragma once

#include "vekSCMServerChassisManager.h"

#include <map>

namespace vekSCM {

// TRB (platform type 4): I/O slots, OCP slots and drive bays behind the CPU,
// the PCH or a slot card (GeoID types 2, 4, 5, 6).
class TRBChassisManager : public ServerChassisManagerBase {
public:
    static TRBChassisManager* getInstance();

    int getPCIeSlotForIOSlot(const std::string pci, std::string& slot) override;
    int checkIfPCIDevicesAreLocatedInSameChassis(const std::string pci1, const std::string pci2) override;
    int getPCIDeviceFormFactor(const std::string pci, _VEK_DEVICE_FORM_FACTOR& formFactor) override;
    int getChassisLocationForIOSlot(const std::string pci, std::string& location) override;
    // Behind Intel VMD (a five-digit domain) the CPU manages the drive.
    bool isNVMeDeviceManagedByCPUStorageController(const std::string pci) override;
    int findMonarchPCHAttachedStorageEnclosureBoxNumber() override;
    int mapPCHSATAControllerPortToStorageEnclosureDriveBay(int port, int box) override;

    // Box -> (PCH SATA/sSATA port -> drive bay), as the drives are cabled.
    static const std::map<int, std::map<int, int>> driveBayMap;

private:
    TRBChassisManager() = default;
};

IServerChassisManager* __TRBChassisManager__getInstance();

} // namespace vekSCM
