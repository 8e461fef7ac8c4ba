#include "vekPCIeManufacturerResolver.h"

#include "vekGlobalDef.h"
#include "vekLog.h"
#include "vekSmbiosInterface.h"

#include <exception>
#include <vector>

namespace {
const char TAG[] = "PCI_VMWARE_RESOLV";
} // namespace

std::string vekVMwarePCIeManufacturerResolver::fetchManufacturerFromOS(const std::string& pci)
{
    const std::string manufacturer = fetchManufacturerFromSmbios();
    VEK_LOG_DEBUG(TAG, "The System Manufacturer for the pci device [%s] is [%s]", pci.c_str(),
                  manufacturer.c_str());
    return manufacturer;
}

vekVMwarePCIeManufacturerResolver::vekVMwarePCIeManufacturerResolver(vekSmbiosInterface& smbios, vekOSInterface& os)
    : smbios_(smbios), os_(os)
{
}

std::string vekVMwarePCIeManufacturerResolver::fetchManufacturerFromSmbios()
{
    std::string manufacturer;
    try {
        manufacturer = smbios_.getManufacturer();
    } catch (const std::exception& e) {
        VEK_LOG_WARNING(TAG, "No system manufacturer in SMBIOS: %s", e.what());
    }
    VEK_LOG_DEBUG(TAG, "The System Manufacturer for the onboard device is [%s]", manufacturer.c_str());
    return manufacturer;
}

void vekVMwarePCIeManufacturerResolver::getSubvendorID(std::string pci, std::string& subVendor)
{
    using vekGlobalDef::VMwareOSUtils;
    // The address becomes an awk pattern: only the address form may go there.
    if (!VMwareOSUtils::isPciAddress(pci)) {
        subVendor.clear();
        return;
    }
    const std::string command =
        VMwareOSUtils::composeCommand("cat {} | awk {} | grep -w 'SubVendor ID' | awk '{print $3}'",
                                      {VMwareOSUtils::HardwareListFilePath(), "/" + pci + "/,/^$/"});
    VEK_LOG_DEBUG(TAG, "Command to be executed : %s", command.c_str());
    const std::vector<std::string> output = VMwareOSUtils::executeCliCommandAndFetchOutput(command);
    subVendor = output.empty() ? "" : vekGlobalDef::stringUtils::trim(output.front());
}
