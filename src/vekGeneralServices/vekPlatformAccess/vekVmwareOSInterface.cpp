#include "vekVmwareOSInterface.h"

#include "FCResourceManager/vekFCVMwareInterface.h"
#include "NICResourceManager/vekNICVmwareInterface.h"
#include "vekGeoIDOSInterface.h"
#include "vekPCIeManufacturerResolver.h"
#include "vekGlobalDef.h"
#include "vekLog.h"

#include <cstdio>
#include <memory>

namespace {

const char TAG[] = "VMWARE_OS_INTERFACE";

} // namespace

vekVmwareOSInterface& vekVmwareOSInterface::getInstance(vekSmbiosInterface& smbios)
{
    static vekVmwareOSInterface instance(smbios);
    return instance;
}

vekVmwareOSInterface::vekVmwareOSInterface(vekSmbiosInterface& smbios)
    : smbios_(smbios),
      nic_(new vekNICVmwareInterface(smbios, *this)),
      fc_(new vekFCVMwareInterface(smbios, *this)),
      geoID_(new vekGeoIDVMwareInterface(*this, smbios)),
      resolver_(new vekVMwarePCIeManufacturerResolver(smbios, *this))
{
}

vekNICInterface* vekVmwareOSInterface::getNICInterface()
{
    return nic_.get();
}

vekFCInterface* vekVmwareOSInterface::getFCInterface()
{
    return fc_.get();
}

vekPCIeManufacturerResolver* vekVmwareOSInterface::getPCIeManufacturerResolverInterface()
{
    return resolver_.get();
}

vekVmwareOSInterface::~vekVmwareOSInterface() = default;

int vekVmwareOSInterface::populateHardwarePCIDetails()
{
    using vekGlobalDef::VMwareOSUtils;
    const std::string file = VMwareOSUtils::HardwareListFilePath();
    const vekGlobalDef::HostCommandResult run =
        VMwareOSUtils::runHostCommand(VMwareOSUtils::composeCommand("localcli hardware pci list > {}", {file}));
    if (run.status == -1) {
        // What a killed run wrote is not the host's list.
        std::remove(file.c_str());
        return -1;
    }
    return 0;
}

int vekVmwareOSInterface::Initialize()
{
    if (populateHardwarePCIDetails() != 0) {
        VEK_LOG_ERROR(TAG, "Could not populate the Hardware PCI details");
    }
    return 0;
}

int vekVmwareOSInterface::UnInitialize()
{
    using vekGlobalDef::VMwareOSUtils;
    const std::string file = VMwareOSUtils::HardwareListFilePath();
    if (FILE* list = std::fopen(file.c_str(), "r")) {
        std::fclose(list);
        std::remove(file.c_str());
    }
    // The NIC scratch files live only during their reads; a run stopped in
    // the middle of one may have left them.
    std::remove(VMwareOSUtils::NICInstanceDetailsFilePath().c_str());
    std::remove(VMwareOSUtils::NICListsFilePath().c_str());
    return 0;
}

std::map<std::string, std::string> vekVmwareOSInterface::getPciIdInfo(std::string pciAddress)
{
    using vekGlobalDef::VMwareOSUtils;
    const auto ids = VMwareOSUtils::get_vendor_device(pciAddress);
    const auto subsystemIds = VMwareOSUtils::get_subvendor_subdevice(pciAddress);
    return {{"Vendor", ids.first},
            {"Device", ids.second},
            {"SubVendor", subsystemIds.first},
            {"SubDevice", subsystemIds.second}};
}
