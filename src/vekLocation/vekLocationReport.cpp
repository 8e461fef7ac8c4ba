#include "vekLocationReport.h"

#include "vekIOGeoIDHelper.h"
#include "vekLog.h"
#include "vekPhysLocFactory.h"
#include "vekSCMServerChassisManager.h"

#include <string>

namespace {

const char TAG[] = "LOCATION_MAP";

const char* formFactorName(_VEK_DEVICE_FORM_FACTOR formFactor)
{
    switch (formFactor) {
    case VEK_FORM_FACTOR_ON_BOARD:
        return "on-board";
    case VEK_FORM_FACTOR_PCIE_CEM:
        return "PCIe CEM";
    case VEK_FORM_FACTOR_OCP:
        return "OCP";
    case VEK_FORM_FACTOR_SSD_HDD:
        return "SSD/HDD";
    default:
        return "unknown";
    }
}

} // namespace

void vekLogPCILocations()
{
    vekIOGeoIDHelper& geoIDs = vekIOGeoIDHelper::getInstance();
    vekSCM::IServerChassisManager& chassis = vekSCM::ServerChassisManagerFactory::getServerChassisManager();
    vekPhysLocInterface* physloc = vekPhysLocFactory::getPhysLocInterface();
    VEK_LOG_DEBUG(TAG, "----- PCI locations: address, GeoID, form factor, chassis, PL -----");
    for (const std::string& pci : geoIDs.getPCIAddresses()) {
        _VEK_DEVICE_FORM_FACTOR formFactor = VEK_FORM_FACTOR_UNKNOWN;
        chassis.getPCIDeviceFormFactor(pci, formFactor);
        // Drive bays have no I/O slot, hence no chassis location to ask for.
        std::string location = "-";
        if (formFactor != VEK_FORM_FACTOR_SSD_HDD && chassis.getChassisLocationForIOSlot(pci, location) != 0) {
            location = "-";
        }
        VEK_LOG_DEBUG(TAG, "       %s  %-18s  %-9s  %-8s  %s", pci.c_str(), geoIDs.getGeoIDStr(pci).c_str(),
                      formFactorName(formFactor), location.c_str(), physloc->getPhysLocForPCIDevice(pci).c_str());
    }
}
