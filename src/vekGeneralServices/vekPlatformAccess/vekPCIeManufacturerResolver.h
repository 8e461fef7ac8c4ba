#pragma once

#include <string>

class vekOSInterface;
class vekSmbiosInterface;

// The two questions of manufacturer naming that depend on the host OS.
class PCIeManufacturerResolver {
public:
    virtual ~PCIeManufacturerResolver() = default;
    // The system manufacturer from SMBIOS; empty when unknown.
    virtual std::string fetchManufacturerFromSmbios() = 0;
    // The PCI subsystem vendor id of the device ("0x8086"); empty when unknown.
    virtual void getSubvendorID(std::string pci, std::string& subVendor) = 0;
};

// Names the maker of a PCI device: an on-board device is the system
// manufacturer's, an add-in card is named by its subsystem vendor.
class vekPCIeManufacturerResolver : public PCIeManufacturerResolver {
public:
    // 0 when a name was found, else -1 with the manufacturer left empty.
    int fetchManufacturer(std::string pci, std::string& manufacturer, std::string& subVendor);
};

class vekVMwarePCIeManufacturerResolver : public vekPCIeManufacturerResolver {
public:
    vekVMwarePCIeManufacturerResolver(vekSmbiosInterface& smbios, vekOSInterface& os);

    std::string fetchManufacturerFromSmbios() override;
    // From the hardware list file that the OS interface writes.
    void getSubvendorID(std::string pci, std::string& subVendor) override;
    std::string fetchManufacturerFromOS(const std::string& pci);

private:
    vekSmbiosInterface& smbios_;
    vekOSInterface& os_;
};
