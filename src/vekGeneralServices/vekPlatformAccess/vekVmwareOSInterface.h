#pragma once

#include "vekOSInterface.h"

#include <memory>

// The ESXi host: PCI identification from "localcli hardware pci list", and
// the per-resource OS interfaces it owns.
class vekVmwareOSInterface : public vekOSInterface {
public:
    // The SMBIOS interface counts only at the first call.
    static vekVmwareOSInterface& getInstance(vekSmbiosInterface& smbios);

    ~vekVmwareOSInterface() override;
    vekVmwareOSInterface(const vekVmwareOSInterface&) = delete;
    vekVmwareOSInterface& operator=(const vekVmwareOSInterface&) = delete;

    int populateHardwarePCIDetails() override;
    // Writes the PCI list; without it the PCI ids are simply empty.
    int Initialize() override;
    // Removes the PCI list.
    int UnInitialize() override;
    std::map<std::string, std::string> getPciIdInfo(std::string pciAddress) override;
    vekNICInterface* getNICInterface() override;
    vekFCInterface* getFCInterface() override;
    vekGeoIDOSInterface* getGeoIDInterface() override { return geoID_.get(); }
    vekPCIeManufacturerResolver* getPCIeManufacturerResolverInterface() override;

private:
    explicit vekVmwareOSInterface(vekSmbiosInterface& smbios);

    vekSmbiosInterface& smbios_;
    // Made in this order, deleted in the reverse one.
    std::unique_ptr<vekNICInterface> nic_;
    std::unique_ptr<vekFCInterface> fc_;
    std::unique_ptr<vekGeoIDOSInterface> geoID_;
    std::unique_ptr<vekPCIeManufacturerResolver> resolver_;
};
