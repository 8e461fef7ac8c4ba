#include "vekSCMLMChassisManager.h"

#include "vekLog.h"

namespace vekSCM {

namespace {
const char TAG[] = "LM_SCM";
} // namespace

LMChassisManager* LMChassisManager::getInstance()
{
    static LMChassisManager instance;
    return &instance;
}

IServerChassisManager* __LMChassisManager__getInstance()
{
    return LMChassisManager::getInstance();
}

int LMChassisManager::getPCIeSlotForIOSlot(const std::string pci, std::string& slot)
{
    slot = "0";
    if (!isPCIAddressFormatValid(pci)) {
        VEK_LOG_ERROR(TAG, "I/O controller PCI address is invalid. ([%s])", pci.c_str());
        return SCM_INVALID_PCI_ADDRESS;
    }
    const vekDecodedGeoID geoID = decodedGeoID(pci);
    if (geoID.getType() != VEK_GEOID_TYPE_IO_SLOT) {
        VEK_LOG_ERROR(TAG, "PCI address [%s]: Unexpected GeoID type [%d] for I/O slot! (GeoID: [%s])", pci.c_str(),
                      static_cast<int>(geoID.getType()), geoID.getGeoID().c_str());
        return SCM_UNEXPECTED_GEOID_TYPE;
    }
    slot = geoID.geoIDSplitAt(3);
    VEK_LOG_DEBUG(TAG, "PCI address [%s]: GeoID [%s], GeoID type [%d], PCI slot # [%s].", pci.c_str(),
                  geoID.getGeoID().c_str(), static_cast<int>(geoID.getType()), slot.c_str());
    return SCM_SUCCESS;
}

int LMChassisManager::getPCIDeviceFormFactor(const std::string pci, _VEK_DEVICE_FORM_FACTOR& formFactor)
{
    return legacyFormFactor(TAG, pci, formFactor);
}

int LMChassisManager::getChassisLocationForIOSlot(const std::string pci, std::string& location)
{
    return legacyChassisLocation(TAG, pci, VEK_GEOID_TYPE_IO_SLOT, location);
}

int LMChassisManager::checkIfPCIDevicesAreLocatedInSameChassis(const std::string pci1, const std::string pci2)
{
    return legacySameChassis(TAG, pci1, pci2, VEK_GEOID_TYPE_IO_SLOT);
}

int LMChassisManager::mapPCHSATAControllerPortToStorageEnclosureDriveBay(int, int)
{
    throw MethodNotImplementedException("mapPCHSATAControllerPortToStorageEnclosureDriveBay");
}

} // namespace vekSCM
