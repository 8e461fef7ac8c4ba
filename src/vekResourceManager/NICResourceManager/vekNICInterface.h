#pragma once

#include "NICDeviceInfo.h"
#include "vekResourceStatus.h"
#include "vekSubModulesInterface.h"

#include <string>
#include <vector>

class IvekNICEventNotifier;

// One row of "localcli network nic list", in the order of its columns.
struct NICInterfacesDetailsStruct {
    std::string name;
    std::string pciDevice;
    std::string driver;
    std::string adminStatus;
    std::string linkStatus;
    std::string speed;
    std::string duplex;
    std::string macAddress;
    std::string mtu;
    std::string description;
};

// Everything the Ethernet family asks of the host.
class vekNICInterface : public vekSubModulesInterface {
public:
    ~vekNICInterface() override = default;
    // Appends the names of the host's adapter ports.
    virtual void populateNICInstances(std::vector<std::string>& names) = 0;
    virtual void discoverNICProperties(std::string name, NICDeviceInfo& info) = 0;
    virtual void discoverNICStatusInfo(std::string name, NICDeviceInfo& info) = 0;
    // Re-reads the link columns of the known ports.
    virtual void refreshData() = 0;
    virtual IvekNICEventNotifier* getNICEventNotifierInterface() = 0;
};

// What does not depend on the host OS.
class vekNICInterfaceBase : public vekNICInterface {
public:
    // The state and health of an adapter condition (see the VMware
    // interface): a link that reads "unknown" under a port that is up is the
    // one critical case.
    static void getNICStateAndHealthValues(int condition, VEK_RESOURCE_STATE& state, VEK_RESOURCE_HEALTH& health);
    // "PCI <address> <GeoID>" and the PL of the adapter's place.
    static void getNICPCIeProperties(const std::string& pciAddress, std::string& description,
                                     std::string& physicalLocation);
};
