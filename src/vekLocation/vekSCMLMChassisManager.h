#pragma once

#include "vekSCMServerChassisManager.h"

namespace vekSCM {

// LM (platform type 2): I/O slots only (GeoID type 2).
class LMChassisManager : public ServerChassisManagerBase {
public:
    static LMChassisManager* getInstance();

    int getPCIeSlotForIOSlot(const std::string pci, std::string& slot) override;
    int checkIfPCIDevicesAreLocatedInSameChassis(const std::string pci1, const std::string pci2) override;
    int getPCIDeviceFormFactor(const std::string pci, _VEK_DEVICE_FORM_FACTOR& formFactor) override;
    int getChassisLocationForIOSlot(const std::string pci, std::string& location) override;
    bool isNVMeDeviceManagedByCPUStorageController(const std::string) override { return false; }
    int findMonarchPCHAttachedStorageEnclosureBoxNumber() override { return 1; }
    int mapPCHSATAControllerPortToStorageEnclosureDriveBay(int port, int box) override;

private:
    LMChassisManager() = default;
};

IServerChassisManager* __LMChassisManager__getInstance();

} // namespace vekSCM
