#include "vekPCIeManufacturerResolver.h"

#include "vekGlobalDef.h"
#include "vekLog.h"
#include "vekPCIVendorsMap.h"
#include "vekSCMServerChassisManager.h"
#include "vekSmbiosInterface.h"

#include <algorithm>
#include <cctype>
#include <exception>

namespace {
const char TAG[] = "MFR";
} // namespace

int vekPCIeManufacturerResolver::fetchManufacturer(std::string pci, std::string& manufacturer, std::string& subVendor)
{
    VEK_LOG_DEBUG(TAG, "fetchManufacturer for the PCI address[=%s]", pci.c_str());
    _VEK_DEVICE_FORM_FACTOR formFactor = VEK_FORM_FACTOR_UNKNOWN;
    const int code = vekSCM::ServerChassisManagerFactory::getServerChassisManager().getPCIDeviceFormFactor(pci, formFactor);
    if (code != 0) {
        VEK_LOG_WARNING(TAG, "Unable to determine form factor for PCI device @ [%s]! (%d, %d)", pci.c_str(), code,
                        static_cast<int>(formFactor));
    }
    switch (formFactor) {
    case VEK_FORM_FACTOR_PCIE_CEM:
    case VEK_FORM_FACTOR_OCP: {
        getSubvendorID(pci, subVendor);
        std::string id = vekGlobalDef::stringUtils::stripHexRepresentedString(vekGlobalDef::stringUtils::trim(subVendor));
        std::transform(id.begin(), id.end(), id.begin(), [](unsigned char c) { return std::tolower(c); });
        const auto found = vekPCIVendorsMap.find(id);
        if (found == vekPCIVendorsMap.end()) {
            VEK_LOG_WARNING(TAG,
                            "Unable to fetch manufacturer name for PCI Subsystem Vendor ID : 0x%s as there is no "
                            "mapping vendor information.",
                            id.c_str());
            return -1;
        }
        manufacturer = found->second;
        return 0;
    }
    case VEK_FORM_FACTOR_ON_BOARD:
        manufacturer = fetchManufacturerFromSmbios();
        return manufacturer.empty() ? -1 : 0;
    default:
        VEK_LOG_WARNING(TAG,
                        "Unable to fetch manufacturer name for PCI device : %s as it is neither OnBoard nor Add-in "
                        "device (%d)",
                        pci.c_str(), static_cast<int>(formFactor));
        return -1;
    }
}
