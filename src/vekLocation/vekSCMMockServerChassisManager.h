#pragma once

#include "vekSCMServerChassisManager.h"

namespace vekSCM {

// A platform nobody knows: no slot, no form factor, and the storage
// questions are not answered.
class MockServerChassisManager : public ServerChassisManagerBase {
public:
    static MockServerChassisManager* getInstance();

    int getPCIeSlotForIOSlot(const std::string pci, std::string& slot) override;
    int checkIfPCIDevicesAreLocatedInSameChassis(const std::string pci1, const std::string pci2) override;
    int getPCIDeviceFormFactor(const std::string pci, _VEK_DEVICE_FORM_FACTOR& formFactor) override;
    int getChassisLocationForIOSlot(const std::string pci, std::string& location) override;
    bool isNVMeDeviceManagedByCPUStorageController(const std::string pci) override;
    int findMonarchPCHAttachedStorageEnclosureBoxNumber() override;
    int mapPCHSATAControllerPortToStorageEnclosureDriveBay(int port, int box) override;

private:
    MockServerChassisManager() = default;
};

IServerChassisManager* __MockServerChassisManager__getInstance();

} // namespace vekSCM
