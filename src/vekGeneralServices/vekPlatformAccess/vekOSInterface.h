#pragma once

#include <map>
#include <stdexcept>
#include <string>
#include <vector>

class vekFCInterface;
class vekGeoIDOSInterface;
class vekNICInterface;
class vekPCIeManufacturerResolver;
class vekSmbiosInterface;
class vekSubModulesInterface;

namespace osi_exceptions {

// The operating system of this host does not offer the asked-for service.
class osi_not_implemeted : public std::runtime_error {
public:
    osi_not_implemeted() : std::runtime_error("Service not implemented by this OS interface") {}
};

} // namespace osi_exceptions

// Everything that touches the operating system directly, with one
// implementation per host OS. The order of the operations is fixed: the
// per-resource interfaces are handed out from here.
class vekOSInterface {
public:
    virtual ~vekOSInterface() = default;

    // Writes the host's PCI device list where getPciIdInfo reads it; 0 or -1.
    virtual int populateHardwarePCIDetails() = 0;
    virtual int Initialize() = 0;
    virtual int UnInitialize() = 0;
    // The keys "Vendor", "Device", "SubVendor", "SubDevice", each "0x" and four
    // hexadecimal digits, or empty when the list does not say.
    virtual std::map<std::string, std::string> getPciIdInfo(std::string pciAddress) = 0;
    virtual bool isExecuteCommandSuccessful(int status);
    virtual int executeCommandAndFetchOutput(const std::string& command, std::vector<std::string>& output);
    virtual vekNICInterface* getNICInterface();
    virtual vekGeoIDOSInterface* getGeoIDInterface();
    virtual vekSubModulesInterface* getNvdimmInterface();
    virtual vekSmbiosInterface& getSmbiosInterface();
    virtual vekFCInterface* getFCInterface();
    virtual vekSubModulesInterface* getIBInterface();
    virtual vekSubModulesInterface* getPerformanceTMInterface();
    virtual vekPCIeManufacturerResolver* getPCIeManufacturerResolverInterface();
    virtual vekSubModulesInterface* getTPMInterface();
    virtual vekSubModulesInterface* getStorageInterface();
};

// Hands out the OS interface of this host, made on first use from the SMBIOS
// interface of the process's platform services.
class vekSystemInterfaceFactory {
public:
    // Null while the process has no platform services.
    static vekOSInterface* getSystemInterface();
    // At service stop, once the Resource Managers have stopped: UnInitialize()
    // of the interface handed out, which removes its scratch files. Nothing
    // when none was handed out.
    static void unInitializeSystemInterface();
};
