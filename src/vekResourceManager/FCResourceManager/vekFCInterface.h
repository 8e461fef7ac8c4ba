#pragma once

#include "FCDeviceInfo.h"
#include "vekHBACommonLibrary.h"
#include "vekResourceStatus.h"
#include "vekSubModulesInterface.h"

#include <cstdint>
#include <string>
#include <vector>

class IvekFCEventNotifier;
class vekOSInterface;

namespace FC {

// One adapter as the HBA library reported it at the last discovery.
struct fcHBAProperties {
    std::string osDeviceName;
    std::string adapterName;
    uint32_t adapterIndex = 0;
    uint32_t hbaHandle = 0;
    HBA_ADAPTERATTRIBUTES adapterAttributes{};
    HBA_PORTATTRIBUTES portAttributes{};
};

} // namespace FC

// Everything the Fibre Channel family asks of the host.
class vekFCInterface : public vekSubModulesInterface {
public:
    ~vekFCInterface() override = default;
    // Appends the OS names of the adapters the HBA library and the OS both know.
    virtual void populateFCInstances(std::vector<std::string>& names) = 0;
    virtual void discoverFCProperties(std::string name, FCDeviceInfo& info) = 0;
    // State and health of the adapter's first port.
    virtual void discoverFCStatusInfo(std::string name, FCDeviceInfo& info) = 0;
    virtual IvekFCEventNotifier* getFCEventNotifierInterface() = 0;
    // "PCI <address> <GeoID>" and the PL of the adapter's place.
    virtual void getFCPCIeProperties(std::string pciAddress, std::string& description,
                                     std::string& physicalLocation) = 0;
    virtual void getFCManufacturer(std::string pciAddress, std::string& manufacturer) = 0;
    virtual VEK_RESOURCE_HEALTH getFCDeviceHealthValue(VEK_RESOURCE_STATE state) = 0;
};

// What does not depend on the host OS.
class vekFCInterfaceBase : public vekFCInterface {
public:
    explicit vekFCInterfaceBase(vekOSInterface& os) : os_(os) {}

    void getFCPCIeProperties(std::string pciAddress, std::string& description,
                             std::string& physicalLocation) override;
    void getFCManufacturer(std::string pciAddress, std::string& manufacturer) override;
    VEK_RESOURCE_HEALTH getFCDeviceHealthValue(VEK_RESOURCE_STATE state) override;
    // The state of a port's PortState (HBA_PORTSTATE_*).
    static VEK_RESOURCE_STATE getFCDeviceStateValue(int portState);

protected:
    vekOSInterface& os_;
};
