#include "vekSCMMockServerChassisManager.h"

namespace vekSCM {

MockServerChassisManager* MockServerChassisManager::getInstance()
{
    static MockServerChassisManager instance;
    return &instance;
}

IServerChassisManager* __MockServerChassisManager__getInstance()
{
    return MockServerChassisManager::getInstance();
}

int MockServerChassisManager::getPCIeSlotForIOSlot(const std::string, std::string& slot)
{
    slot = "0";
    return SCM_MOCK_NOT_IMPLEMENTED;
}

int MockServerChassisManager::checkIfPCIDevicesAreLocatedInSameChassis(const std::string, const std::string)
{
    return SCM_MOCK_SAME_CHASSIS;
}

int MockServerChassisManager::getPCIDeviceFormFactor(const std::string, _VEK_DEVICE_FORM_FACTOR& formFactor)
{
    formFactor = VEK_FORM_FACTOR_UNKNOWN;
    return SCM_MOCK_NOT_IMPLEMENTED;
}

int MockServerChassisManager::getChassisLocationForIOSlot(const std::string, std::string&)
{
    return SCM_MOCK_NOT_IMPLEMENTED;
}

bool MockServerChassisManager::isNVMeDeviceManagedByCPUStorageController(const std::string)
{
    throw MethodNotImplementedException("isNVMeDeviceManagedByCPUStorageController");
}

int MockServerChassisManager::findMonarchPCHAttachedStorageEnclosureBoxNumber()
{
    throw MethodNotImplementedException("findMonarchPCHAttachedStorageEnclosureBoxNumber");
}

int MockServerChassisManager::mapPCHSATAControllerPortToStorageEnclosureDriveBay(int, int)
{
    throw MethodNotImplementedException("mapPCHSATAControllerPortToStorageEnclosureDriveBay");
}

} // namespace vekSCM
