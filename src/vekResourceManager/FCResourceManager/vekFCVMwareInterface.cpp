#include "vekFCVMwareInterface.h"

#include "vekFCEventNotifier.h"
#include "vekGlobalDef.h"
#include "vekLog.h"
#include "vekOSInterface.h"
#include "vekPCIeIds.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <fstream>
#include <set>
#include <sstream>
#include <stdexcept>

namespace {

const char TAG[] = "FC_VMWARE_OS_INTF";
const char kNotAvailable[] = "NotAvailable";

using vekGlobalDef::VMwareOSUtils;
using vekGlobalDef::stringUtils;

// Removes a scratch file however its reading ends.
struct RemoveOnExit {
    std::string path;
    ~RemoveOnExit() { std::remove(path.c_str()); }
};

std::string hbaInfoFile()
{
    return VMwareOSUtils::DirectoryPath() + "/tmp/vek_fcHbaInfo.txt";
}

std::string fcNameFile()
{
    return VMwareOSUtils::DirectoryPath() + "/tmp/fc_name.txt";
}

const char* hbaStatusText(HBA_STATUS status)
{
    switch (status) {
    case HBA_STATUS_OK:
        return "Success";
    case HBA_STATUS_ERROR:
        return "Error";
    case HBA_STATUS_ERROR_NOT_SUPPORTED:
        return "Function not supported";
    case HBA_STATUS_ERROR_INVALID_HANDLE:
        return "Invalid handle";
    case HBA_STATUS_ERROR_ARG:
        return "Bad argument";
    case HBA_STATUS_ERROR_ILLEGAL_INDEX:
        return "Index not recognized";
    default:
        return "Unknown error";
    }
}

std::string fixedText(const char* bytes, size_t size)
{
    return stringUtils::stringifyByteArray(reinterpret_cast<const unsigned char*>(bytes), size);
}

// What stands two characters after the first ':', without trailing blanks.
std::string valueAfterColon(const std::string& line)
{
    const size_t colon = line.find(':');
    if (colon == std::string::npos || line.size() <= colon + 2) {
        return "";
    }
    return stringUtils::trim(line.substr(colon + 2));
}

// A command run into a scratch file: 0, or the errno-like code of the failure.
int runIntoFile(const std::string& command)
{
    const vekGlobalDef::HostCommandResult run = VMwareOSUtils::runHostCommand(command);
    if (run.status == 0) {
        return 0;
    }
    return run.status == -1 ? run.error : run.status;
}

} // namespace

vekFCVMwareInterface::vekFCVMwareInterface(vekSmbiosInterface& smbios, vekOSInterface& os)
    : vekFCInterfaceBase(os), smbios_(smbios)
{
    pciAddressRegexCompiled_ = stringUtils::compileRegEx(
        "([a-fA-F0-9]{4}:[a-fA-F0-9]{2}:[a-fA-F0-9]{2}.[a-fA-F0-9]{1})", pciAddressRegex_);
    std::call_once(loadOnce_, [this] { loadFCLibrary(); });
}

vekFCVMwareInterface::~vekFCVMwareInterface()
{
    if (!libraryLoaded_) {
        return;
    }
    const HBA_STATUS status = HBA_FreeLibrary();
    if (status == HBA_STATUS_OK) {
        VEK_LOG_DEBUG(TAG, "FC HBA vendor library unloaded successfully");
    } else {
        VEK_LOG_ERROR(TAG, "Unable to unload FC HBA vendor library, Error : %d, Reason : %s", status,
                      hbaStatusText(status));
    }
}

void vekFCVMwareInterface::loadFCLibrary()
{
    const HBA_STATUS status = HBA_LoadLibrary();
    if (status != HBA_STATUS_OK) {
        VEK_LOG_ERROR(TAG, "Could not load FC HBA vendor library, Error : %d, Reason : %s", status,
                      hbaStatusText(status));
        return;
    }
    libraryLoaded_ = true;
    VEK_LOG_DEBUG(TAG, "FC HBA vendor library loaded successfully");
}

std::string vekFCVMwareInterface::wwnToString(const HBA_WWN& wwn)
{
    char text[24];
    const HBA_UINT8* b = wwn.wwn;
    snprintf(text, sizeof text, "%02x:%02x:%02x:%02x:%02x:%02x:%02x:%02x", b[0], b[1], b[2], b[3], b[4], b[5], b[6],
             b[7]);
    return text;
}

bool vekFCVMwareInterface::populateFCGeoIDMap()
{
    const std::string file = hbaInfoFile();
    RemoveOnExit cleanup{file};
    std::vector<std::string> aliases;
    {
        const int error = runIntoFile(VMwareOSUtils::composeCommand("localcli device alias list > {}", {file}));
        if (error != 0) {
            VEK_LOG_ERROR(TAG, "Error occurred in gathering FC HBA lists, Error : %d, Reason : %s", error,
                          VMwareOSUtils::getErrorDescription(error).c_str());
            return false;
        }
        std::ifstream list(file);
        if (!list) {
            VEK_LOG_ERROR(TAG, "Error occured in gathering FC HBA lists, Error : %d, Reason : %s", errno,
                          VMwareOSUtils::getErrorDescription(errno).c_str());
            return false;
        }
        std::string line;
        if (!std::getline(list, line) || line.find("Alias") == std::string::npos) {
            VEK_LOG_ERROR(TAG, "Unable to find out lists of FC devices, Error : %d, Reason : %s", EINVAL,
                          VMwareOSUtils::getErrorDescription(EINVAL).c_str());
            return false;
        }
        std::set<std::string> seen;
        while (std::getline(list, line)) {
            if (line.find("vmhba") == std::string::npos) {
                continue;
            }
            // The alias is the word that names the adapter, wherever its column stands.
            std::istringstream words(line);
            for (std::string word; words >> word;) {
                if (word.compare(0, 5, "vmhba") == 0) {
                    if (seen.insert(word).second) {
                        VEK_LOG_DEBUG(TAG, "FC HBA name : %s", word.c_str());
                        aliases.push_back(word);
                    }
                    break;
                }
            }
        }
    }

    for (const std::string& name : aliases) {
        const std::string command = VMwareOSUtils::composeCommand("localcli device alias get -n {} > {}", {name, file});
        VEK_LOG_DEBUG(TAG, "The command to be executed is %s", command.c_str());
        const int error = runIntoFile(command);
        if (error != 0) {
            VEK_LOG_ERROR(TAG, "Error occurred in gathering FC HBA information for %s, Error : %d, Reason : %s",
                          name.c_str(), error, VMwareOSUtils::getErrorDescription(error).c_str());
            continue;
        }
        std::ifstream details(file);
        std::string line;
        if (!details || !std::getline(details, line) || line.find("Alias") == std::string::npos) {
            VEK_LOG_ERROR(TAG, "Unable to gather FC HBA information for %s, Error : %d, Reason : %s", name.c_str(),
                          EINVAL, VMwareOSUtils::getErrorDescription(EINVAL).c_str());
            continue;
        }
        std::getline(details, line); // the dashes under the header
        std::string address;
        while (address.empty() && std::getline(details, line)) {
            std::istringstream words(line);
            for (std::string word; words >> word;) {
                if (word.size() == 12 && word.find(':') == 4) {
                    address = word;
                    break;
                }
            }
        }
        if (!address.empty()) {
            geoIDMap_[name] = address;
        }
    }
    return true;
}

bool vekFCVMwareInterface::fcHBAFoundInHardwarePciList(const std::string& adapter) const
{
    return geoIDMap_.count(adapter) != 0;
}

bool vekFCVMwareInterface::populateFCNameMap()
{
    const std::string file = fcNameFile();
    // The command appends: what an earlier run left must not count.
    std::remove(file.c_str());
    RemoveOnExit cleanup{file};
    const int error = runIntoFile(VMwareOSUtils::composeCommand(
        "localcli storage san fc list | grep -e 'Adapter: ' -e 'Node Name:'>> {}", {file}));
    if (error != 0) {
        VEK_LOG_ERROR(TAG, "Error occurred in gathering localcli storage SAN information, Error : %d, Reason : %s",
                      error, VMwareOSUtils::getErrorDescription(error).c_str());
        return false;
    }
    std::ifstream list(file);
    for (std::string adapterLine, nodeLine; std::getline(list, adapterLine);) {
        if (adapterLine.find("Adapter: ") == std::string::npos) {
            VEK_LOG_ERROR(TAG, "Unable to find localcli storage SAN information.");
            return false;
        }
        if (!std::getline(list, nodeLine)) {
            break;
        }
        const std::string adapter = valueAfterColon(adapterLine);
        if (fcHBAFoundInHardwarePciList(adapter)) {
            nameMap_[valueAfterColon(nodeLine)] = adapter;
        }
    }
    return true;
}

void vekFCVMwareInterface::populateFCInfoMap()
{
    if (!populateFCGeoIDMap()) {
        VEK_LOG_ERROR(TAG, "Could not populate FC GeoID Map, hence PCI Address for FC cards will be invalid");
        throw std::runtime_error("Failed to populate FC info map.");
    }
}

void vekFCVMwareInterface::initializeFCMaps()
{
    geoIDMap_.clear();
    nameMap_.clear();
    VEK_LOG_DEBUG(TAG, "Populating FC info map [populateFCInfoMap()]....");
    populateFCInfoMap();
    VEK_LOG_DEBUG(TAG, "Populating FC name map [populateFCNameMap()]....");
    if (!populateFCNameMap()) {
        throw std::runtime_error("Failed to populate FC name map.");
    }
    VEK_LOG_DEBUG(TAG, "End of initializeFCMaps().......");
}

std::string vekFCVMwareInterface::getFCOsDevicename(const std::string& nodeWwn) const
{
    const auto found = nameMap_.find(nodeWwn);
    return found != nameMap_.end() ? found->second : kNotAvailable;
}

HBA_STATUS vekFCVMwareInterface::openAdapter(FC::fcHBAProperties& properties)
{
    char name[vekHBACommonLibrary::kAdapterNameSize] = {0};
    const HBA_STATUS status = HBA_GetAdapterName(properties.adapterIndex, name);
    if (status != HBA_STATUS_OK) {
        return status;
    }
    properties.adapterName = fixedText(name, sizeof name);
    properties.hbaHandle = HBA_OpenAdapter(name);
    return properties.hbaHandle != 0 ? HBA_STATUS_OK : HBA_STATUS_ERROR;
}

HBA_STATUS vekFCVMwareInterface::getFCHbaData(FC::fcHBAProperties& properties)
{
    HBA_ADAPTERATTRIBUTES attributes{};
    const HBA_STATUS status = HBA_GetAdapterAttributes(properties.hbaHandle, &attributes);
    if (status != HBA_STATUS_OK) {
        VEK_LOG_ERROR(TAG, "HBA_GetAdapterAttributes() Failed, Error : %d, Reason : %s", status,
                      hbaStatusText(status));
        return status;
    }
    properties.adapterAttributes = attributes;
    properties.osDeviceName = getFCOsDevicename(wwnToString(attributes.NodeWWN));
    adapters_.push_back(properties);
    return HBA_STATUS_OK;
}

void vekFCVMwareInterface::populateFCInstances(std::vector<std::string>& names)
{
    std::lock_guard<std::mutex> lock(mutex_);
    try {
        initializeFCMaps();
    } catch (const std::exception& e) {
        VEK_LOG_ERROR(TAG, "FC pre-requisite map could not be populated, Error: [%s]", e.what());
    }
    if (!libraryLoaded_) {
        return;
    }
    adapters_.clear();
    const HBA_UINT32 count = HBA_GetNumberOfAdapters();
    VEK_LOG_DEBUG(TAG, "The numFCAdapters is %d", static_cast<int>(count));
    for (HBA_UINT32 index = 0; index < count; ++index) {
        FC::fcHBAProperties properties;
        properties.adapterIndex = index;
        std::lock_guard<std::mutex> opened(openAdapterMutex_);
        HBA_STATUS status = openAdapter(properties);
        if (status != HBA_STATUS_OK) {
            VEK_LOG_ERROR(TAG, "openAdapter() for FcaEntry %d Failed! , Error : %d, Reason : %s",
                          static_cast<int>(index), status, hbaStatusText(status));
            continue;
        }
        status = getFCHbaData(properties);
        if (status != HBA_STATUS_OK) {
            VEK_LOG_ERROR(TAG, "getFCHbaData() for FcaEntry %d Failed! , Error : %d, Reason : %s",
                          static_cast<int>(index), status, hbaStatusText(status));
        } else if (std::find(names.begin(), names.end(), properties.osDeviceName) == names.end()) {
            // Adapters without an OS name all stand under "NotAvailable", once.
            names.push_back(properties.osDeviceName);
        }
        HBA_CloseAdapter(properties.hbaHandle);
    }
    VEK_LOG_DEBUG(TAG, "Number of FC instances : %zu", adapters_.size());
}

bool vekFCVMwareInterface::getFCInstanceDetails(const std::string& name, FC::fcHBAProperties& properties)
{
    for (const FC::fcHBAProperties& adapter : adapters_) {
        if (adapter.osDeviceName == name) {
            properties = adapter;
            return true;
        }
    }
    VEK_LOG_WARNING(TAG, "Could not fetch FC HBA details for %s and hence inventory information will be empty",
                    name.c_str());
    return false;
}

void vekFCVMwareInterface::getFCPCIAddress(const std::string& name, std::string& address)
{
    const auto found = geoIDMap_.find(name);
    if (!pciAddressRegexCompiled_) {
        VEK_LOG_WARNING(TAG, "Unable to fetch PCI Address for %s as the regexto match PCI-Address was not compiled!",
                        name.c_str());
        return;
    }
    const std::vector<std::string> matches = stringUtils::execRegexAndExtractAllMatches(
        found != geoIDMap_.end() ? found->second : "", pciAddressRegex_);
    if (matches.empty()) {
        VEK_LOG_WARNING(TAG, "Error in fetching PCI Address for NIC Instance: [%s]", name.c_str());
        return;
    }
    address = matches.back();
    VEK_LOG_DEBUG(TAG, "PCI Address is [%s]", address.c_str());
}

void vekFCVMwareInterface::populatePCIIDs(const std::string& name, const std::string& pciAddress, FCDeviceInfo& info)
{
    vekPCIeIds::populate(TAG, os_, "FC Device", name, pciAddress, info);
}

void vekFCVMwareInterface::discoverFCProperties(std::string name, FCDeviceInfo& info)
{
    std::lock_guard<std::mutex> lock(mutex_);
    VEK_LOG_DEBUG(TAG, "The deviceName to query FC properties : %s", name.c_str());
    FC::fcHBAProperties properties;
    if (!getFCInstanceDetails(name, properties)) {
        info.DeviceName = name;
        return;
    }
    const HBA_ADAPTERATTRIBUTES& attributes = properties.adapterAttributes;
    const std::string serial = fixedText(attributes.SerialNumber, sizeof attributes.SerialNumber);
    const std::string firmware = fixedText(attributes.FirmwareVersion, sizeof attributes.FirmwareVersion);
    const std::string rom = fixedText(attributes.OptionROMVersion, sizeof attributes.OptionROMVersion);
    const std::string wwnn = wwnToString(attributes.NodeWWN);
    std::string wwpn;
    char adapterName[vekHBACommonLibrary::kAdapterNameSize] = {0};
    snprintf(adapterName, sizeof adapterName, "%s", properties.adapterName.c_str());
    std::unique_lock<std::mutex> opened(openAdapterMutex_);
    if (const HBA_HANDLE handle = HBA_OpenAdapter(adapterName)) {
        HBA_PORTATTRIBUTES port{};
        if (HBA_GetAdapterPortAttributes(handle, 0, &port) == HBA_STATUS_OK) {
            properties.portAttributes = port;
            wwpn = wwnToString(port.PortWWN);
        }
        HBA_CloseAdapter(handle);
    }
    opened.unlock();
    std::string pciAddress;
    getFCPCIAddress(name, pciAddress);
    populatePCIIDs(name, pciAddress, info);
    std::string manufacturer;
    getFCManufacturer(pciAddress, manufacturer);
    std::string description;
    std::string physicalLocation;
    getFCPCIeProperties(pciAddress, description, physicalLocation);
    info.setBasicProperties(serial, firmware, rom, manufacturer, wwnn, wwpn, name, properties.hbaHandle,
                            static_cast<int32_t>(properties.adapterIndex),
                            static_cast<int32_t>(attributes.NumberOfPorts));
    info.pciAddress = pciAddress;
    info.description = description;
    info.physicalLocation = physicalLocation;
}

void vekFCVMwareInterface::discoverFCStatusInfo(std::string name, FCDeviceInfo& info)
{
    FC::fcHBAProperties properties;
    {
        std::lock_guard<std::mutex> lock(mutex_);
        if (!getFCInstanceDetails(name, properties)) {
            return;
        }
    }
    char adapterName[vekHBACommonLibrary::kAdapterNameSize] = {0};
    snprintf(adapterName, sizeof adapterName, "%s", properties.adapterName.c_str());
    std::lock_guard<std::mutex> opened(openAdapterMutex_);
    const HBA_HANDLE handle = HBA_OpenAdapter(adapterName);
    if (handle == 0) {
        return; // Unknown, health Unknown
    }
    // Only the first port counts, whatever the adapter has.
    HBA_PORTATTRIBUTES port{};
    if (HBA_GetAdapterPortAttributes(handle, 0, &port) == HBA_STATUS_OK) {
        info.deviceStatus.state = getFCDeviceStateValue(static_cast<int>(port.PortState));
        info.deviceStatus.health = getFCDeviceHealthValue(info.deviceStatus.state);
    }
    VEK_LOG_DEBUG(TAG, "Closing the FC HBA handle : %d", static_cast<int>(handle));
    HBA_CloseAdapter(handle);
}

IvekFCEventNotifier* vekFCVMwareInterface::getFCEventNotifierInterface()
{
    return &vekFCEventNotifier::getInstance(os_);
}
