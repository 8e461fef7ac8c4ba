#pragma once

#include "vekFCInterface.h"

#include <map>
#include <mutex>
#include <regex>
#include <string>
#include <vector>

class vekOSInterface;
class vekSmbiosInterface;

// The Fibre Channel adapters of an ESXi host. The HBA library tells the
// adapters and their attributes; localcli tells which OS name (vmhbaN) and
// which PCI address belong to each, joined on the node world wide name.
class vekFCVMwareInterface : public vekFCInterfaceBase {
public:
    // Loads the vendor libraries once for the life of the object.
    vekFCVMwareInterface(vekSmbiosInterface& smbios, vekOSInterface& os);
    ~vekFCVMwareInterface() override;

    vekFCVMwareInterface(const vekFCVMwareInterface&) = delete;
    vekFCVMwareInterface& operator=(const vekFCVMwareInterface&) = delete;

    void populateFCInstances(std::vector<std::string>& names) override;
    void discoverFCProperties(std::string name, FCDeviceInfo& info) override;
    void discoverFCStatusInfo(std::string name, FCDeviceInfo& info) override;
    IvekFCEventNotifier* getFCEventNotifierInterface() override;

    // Eight bytes as lower-case "xx:xx:...", the case localcli writes.
    static std::string wwnToString(const HBA_WWN& wwn);

private:
    void loadFCLibrary();
    // Fills both maps from localcli afresh; throws when one cannot be read.
    void initializeFCMaps();
    void populateFCInfoMap();
    bool populateFCGeoIDMap();
    bool populateFCNameMap();
    bool fcHBAFoundInHardwarePciList(const std::string& adapter) const;
    std::string getFCOsDevicename(const std::string& nodeWwn) const;
    // Names the adapter of the index and opens it: 0 or the library's error.
    HBA_STATUS openAdapter(FC::fcHBAProperties& properties);
    HBA_STATUS getFCHbaData(FC::fcHBAProperties& properties);
    bool getFCInstanceDetails(const std::string& name, FC::fcHBAProperties& properties);
    void getFCPCIAddress(const std::string& name, std::string& address);
    void populatePCIIDs(const std::string& name, const std::string& pciAddress, FCDeviceInfo& info);

    vekSmbiosInterface& smbios_;
    std::mutex mutex_;
    // One adapter open at a time in this process: the common library keeps
    // one vendor handle per library, the last one opened, so two adapters of
    // a library open at once (the build's thread and the poller's) would both
    // read the one opened last. Taken after mutex_ where both are held.
    std::mutex openAdapterMutex_;
    std::vector<FC::fcHBAProperties> adapters_;
    // Node world wide name text to OS name.
    std::map<std::string, std::string> nameMap_;
    // OS name to PCI address.
    std::map<std::string, std::string> geoIDMap_;
    std::regex pciAddressRegex_;
    bool pciAddressRegexCompiled_ = false;
    std::once_flag loadOnce_;
    bool libraryLoaded_ = false;
};
