#pragma once

#include "PCIeDevice.h"
#include "vekLog.h"
#include "vekOSInterface.h"

#include <map>
#include <string>

namespace vekPCIeIds {

// Copies the vendor, device and subsystem ids the OS lists for the address
// into the record; logged with the caller's tag, the device named as the
// family calls it ("NIC Adapter", "FC Device").
inline void populate(const char* tag, vekOSInterface& os, const char* kind, const std::string& name,
                     const std::string& pciAddress, PCIeDevice& info)
{
    if (pciAddress.empty()) {
        VEK_LOG_WARNING(tag, "Unable to populate the PCI ID's information as the PCI Address is empty");
        return;
    }
    std::map<std::string, std::string> ids = os.getPciIdInfo(pciAddress);
    info.vendorId = ids["Vendor"];
    info.deviceId = ids["Device"];
    info.subVendorId = ids["SubVendor"];
    info.subDeviceId = ids["SubDevice"];
    VEK_LOG_DEBUG(tag,
                  "%s : [%s], Pci Id's - vendorID : [%s], deviceID : [%s],subVendorID : [%s], subDeviceID : [%s]",
                  kind, name.c_str(), info.vendorId.c_str(), info.deviceId.c_str(), info.subVendorId.c_str(),
                  info.subDeviceId.c_str());
}

} // namespace vekPCIeIds
