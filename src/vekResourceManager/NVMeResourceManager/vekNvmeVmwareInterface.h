#pragma once

#include "vekNvmeInterface.h"

#include <map>
#include <regex>
#include <string>
#include <vector>

// The NVMe devices of an ESXi host, read through localcli and esxcli.
class vekNvmeVmwareInterface : public vekNvmeInterfaceBase {
public:
    explicit vekNvmeVmwareInterface(vekOSInterface& os);

    void populateNvmeInstances(std::vector<std::string>& names) override;
    void discoverNvmeProperties(std::string name, NVMeControllerInfo& info) override;
    void getNvmeSmartLogInfo(std::string name, vekNvmeSmartInfo& smart) override;
    void getNvmePCIAddress(std::string name, std::string& pciAddress) override;

    // The sum of block size times block count over the device's namespaces;
    // false when no namespace could be measured.
    bool getNvmeCapacityBytesDetected(const std::string& name, long long& capacity);

private:
    // The device names of the device's namespaces.
    std::vector<std::string> getNamespaceListsForThisDevice(const std::string& name);
    // Block size times block count of one namespace; false when unknown.
    bool fetchNamespaceAttributes(const std::string& name, const std::string& namespaceDevice, long long& bytes);

    std::regex pciAddressRegex_;
    bool pciAddressRegexCompiled_ = false;
};
