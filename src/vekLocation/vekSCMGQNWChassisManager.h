#pragma once

#include "vekSCMServerChassisManager.h"

namespace vekSCM {

// GQ/NW (platform types 0 and 1): I/O slots only (GeoID type 1).
class GQNWChassisManager : public ServerChassisManagerBase {
public:
    static GQNWChassisManager* getInstance();

    int getPCIeSlotForIOSlot(const std::string pci, std::string& slot) override;
    int checkIfPCIDevicesAreLocatedInSameChassis(const std::string pci1, const std::string pci2) override;
    int getPCIDeviceFormFactor(const std::string pci, _VEK_DEVICE_FORM_FACTOR& formFactor) override;
    int getChassisLocationForIOSlot(const std::string pci, std::string& location) override;
    bool isNVMeDeviceManagedByCPUStorageController(const std::string) override { return false; }
    int findMonarchPCHAttachedStorageEnclosureBoxNumber() override { return 1; }
    int mapPCHSATAControllerPortToStorageEnclosureDriveBay(int port, int box) override;

private:
    GQNWChassisManager() = default;
};

IServerChassisManager* __GQNWChassisManager__getInstance();

} // namespace vekSCM
