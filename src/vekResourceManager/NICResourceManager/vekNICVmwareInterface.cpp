#include "vekNICVmwareInterface.h"

#include "vekGlobalDef.h"
#include "vekLog.h"
#include "vekNICEventNotifier.h"
#include "vekOSInterface.h"
#include "vekPCIeIds.h"
#include "vekPCIeManufacturerResolver.h"

#include <cerrno>
#include <cstdio>
#include <fstream>
#include <sstream>
#include <stdexcept>
#include <strings.h>

namespace {

const char TAG[] = "NIC_VMWARE_OS_INTF";

using vekGlobalDef::VMwareOSUtils;
using vekGlobalDef::stringUtils;

// Removes a scratch file however its reading ends.
struct RemoveOnExit {
    std::string path;
    ~RemoveOnExit() { std::remove(path.c_str()); }
};

bool equalsIgnoringCase(const std::string& a, const char* b)
{
    return strcasecmp(a.c_str(), b) == 0;
}

size_t countTokens(const std::string& line)
{
    std::istringstream words(line);
    size_t count = 0;
    for (std::string word; words >> word;) {
        ++count;
    }
    return count;
}

} // namespace

vekNICVmwareInterface::vekNICVmwareInterface(vekSmbiosInterface& smbios, vekOSInterface& os)
    : smbios_(smbios), os_(os)
{
    try {
        pciAddressRegex_ = std::regex("([a-fA-F0-9]{4}:[a-fA-F0-9]{2}:[a-fA-F0-9]{2}.[a-fA-F0-9]{1})");
        pciAddressRegexCompiled_ = true;
    } catch (const std::regex_error& e) {
        VEK_LOG_ERROR(TAG, "Exception caught while compiling regex. Error = [%s]", e.what());
    }
}

vekNICVmwareInterface::~vekNICVmwareInterface()
{
    VEK_LOG_DEBUG(TAG, "NIC VMware Interface destructor called.");
    std::lock_guard<std::mutex> lock(mutex_);
    nicDevicesPropertiesFromLocalcli.clear();
}

bool vekNICVmwareInterface::isVirtualNICInstance(const std::string& name)
{
    return name.find("vmnic") == std::string::npos;
}

int vekNICVmwareInterface::fetchNICDevicesInterfaceDetails()
{
    const std::string file = VMwareOSUtils::NICListsFilePath();
    RemoveOnExit cleanup{file};
    const vekGlobalDef::HostCommandResult run =
        VMwareOSUtils::runHostCommand(VMwareOSUtils::composeCommand("localcli network nic list >> {}", {file}));
    std::ifstream list;
    if (run.status == 0) {
        list.open(file);
    }
    if (run.status != 0 || !list) {
        const int error = run.status == 0 ? errno : run.error;
        VEK_LOG_ERROR(TAG, "Error occurred in gathering network interface information, Errno : %d, Reason : %s",
                      error, VMwareOSUtils::getErrorDescription(error).c_str());
        return -1;
    }

    int lineNumber = 0;
    for (std::string line; std::getline(list, line);) {
        ++lineNumber;
        if (lineNumber == 1) {
            if (line.find("Name") == std::string::npos) {
                VEK_LOG_ERROR(TAG, "Unable to find NIC information.");
                return -1;
            }
            continue;
        }
        if (lineNumber == 2) {
            continue; // the dashes under the header
        }
        NICInterfacesDetailsStruct row;
        std::istringstream fields(line);
        fields >> row.name >> row.pciDevice >> row.driver >> row.adminStatus >> row.linkStatus >> row.speed >>
            row.duplex >> row.macAddress >> row.mtu;
        // The description is the rest of the line, blanks and all.
        if (fields) {
            std::getline(fields, row.description);
        }
        if (countTokens(line) < 9) {
            VEK_LOG_ERROR(TAG, "An error occurred while trying to fetch NIC information");
            return -1;
        }
        if (isVirtualNICInstance(row.name)) {
            VEK_LOG_DEBUG(TAG, "Excluding Virtual NIC instance : %s", row.name.c_str());
            continue;
        }
        // A row once seen is kept as it was; only refreshData() updates it.
        nicDevicesPropertiesFromLocalcli.emplace(row.name, row);
    }
    return 0;
}

void vekNICVmwareInterface::populateNICInstances(std::vector<std::string>& names)
{
    std::lock_guard<std::mutex> lock(mutex_);
    fetchNICDevicesInterfaceDetails();
    for (const auto& entry : nicDevicesPropertiesFromLocalcli) {
        names.push_back(entry.first);
    }
    VEK_LOG_DEBUG(TAG, "Number of ethernet instances : %d", static_cast<int>(names.size()));
}

void vekNICVmwareInterface::fetchNICInstanceInterfaceDetails(const std::string& name, NICInterfacesDetailsStruct& row)
{
    try {
        row = nicDevicesPropertiesFromLocalcli.at(name);
    } catch (const std::out_of_range& e) {
        VEK_LOG_WARNING(TAG, "Failed to fetch NIC interface details for device [%s]. Error = {%s}", name.c_str(),
                        e.what());
    }
}

void vekNICVmwareInterface::refreshData()
{
    const std::string command = "localcli network nic list | awk '{print $1, $4, $5, $6}' | grep -i vmnic";
    VEK_LOG_DEBUG(TAG, "Command to be executed: [%s]", command.c_str());
    const std::vector<std::string> output = VMwareOSUtils::executeCliCommandAndFetchOutput(command);
    std::lock_guard<std::mutex> lock(mutex_);
    for (const std::string& line : output) {
        std::istringstream words(line);
        std::string name, admin, link, speed;
        words >> name >> admin >> link >> speed;
        if (name.compare(0, 5, "vmnic") != 0) {
            VEK_LOG_WARNING(TAG, "Unexpected format encountered! Output = {%s}. Skipping processing.",
                            stringUtils::trim(line).c_str());
            continue;
        }
        const auto found = nicDevicesPropertiesFromLocalcli.find(name);
        if (found == nicDevicesPropertiesFromLocalcli.end()) {
            VEK_LOG_DEBUG(TAG, "Couldn't find any nic interface called [%s] in nicDevicesPropertiesFromLocalcli map",
                          name.c_str());
            continue;
        }
        found->second.adminStatus = admin;
        found->second.linkStatus = link;
        found->second.speed = speed;
        VEK_LOG_DEBUG(TAG, "NicAdapter: [%s], Current values: Admin Status: [%s], Link Status: [%s], Speed: [%s]",
                      name.c_str(), admin.c_str(), link.c_str(), speed.c_str());
    }
}

std::string vekNICVmwareInterface::getNICDeviceName(const NICInterfacesDetailsStruct& row)
{
    if (row.pciDevice.empty()) {
        VEK_LOG_WARNING(TAG, "Unable to fetch DeviceName for %s", row.name.c_str());
    }
    return row.pciDevice;
}

std::string vekNICVmwareInterface::getNICMACAddress(const NICInterfacesDetailsStruct& row)
{
    if (row.macAddress.empty()) {
        VEK_LOG_WARNING(TAG, "Unable to fetch MACAddress for %s", row.name.c_str());
    }
    return row.macAddress;
}

std::string vekNICVmwareInterface::getNICPCIAddress(const NICInterfacesDetailsStruct& row)
{
    if (!pciAddressRegexCompiled_) {
        VEK_LOG_WARNING(TAG, "Unable to fetch PCI Address for %s as the regexto match PCI-Address was not compiled!",
                        row.name.c_str());
        return "";
    }
    const std::vector<std::string> matches = stringUtils::execRegexAndExtractAllMatches(row.pciDevice, pciAddressRegex_);
    if (matches.empty()) {
        VEK_LOG_WARNING(TAG, "Error in fetching PCI Address for NIC Instance: [%s]", row.name.c_str());
        return "";
    }
    VEK_LOG_DEBUG(TAG, "PCI Address is [%s]", matches.back().c_str());
    return matches.back();
}

void vekNICVmwareInterface::getNICFirmwareVersion(const NICInterfacesDetailsStruct& row, std::string& firmware)
{
    const std::string file = VMwareOSUtils::NICInstanceDetailsFilePath();
    RemoveOnExit cleanup{file};
    // The name comes from the host's list: it goes in as one quoted word.
    VMwareOSUtils::runHostCommand(
        VMwareOSUtils::composeCommand("localcli network nic get -n {} > {}", {row.name, file}));
    const std::vector<std::string> found = VMwareOSUtils::executeCliCommandAndFetchOutput(
        VMwareOSUtils::composeCommand("grep \"Firmware Version\" {}", {file}));
    const std::string line = found.empty() ? "" : found.back();
    const size_t colon = line.find(':');
    if (colon == std::string::npos) {
        VEK_LOG_WARNING(TAG, "Error occurred in identifying fw version.");
    } else {
        firmware = line.size() > colon + 2 ? line.substr(colon + 2) : "";
        firmware = firmware.substr(0, firmware.find('\n'));
    }
    if (firmware.empty()) {
        VEK_LOG_WARNING(TAG, "Unable to fetch Firmware version for %s", row.name.c_str());
    }
}

int64_t vekNICVmwareInterface::getNICSpeedMbps(const NICInterfacesDetailsStruct& row)
{
    // Not a decimal number, or more than 32 bits: the discovery fails.
    size_t used = 0;
    const int speed = std::stoi(row.speed, &used, 10);
    if (used != row.speed.size()) {
        throw std::invalid_argument("speed is not a number: " + row.speed);
    }
    if (speed < 0) {
        VEK_LOG_WARNING(TAG, "Error occurred in identifying the speed for %s", row.name.c_str());
    }
    return speed;
}

std::string vekNICVmwareInterface::getNICSerialNumber(const NICInterfacesDetailsStruct&)
{
    // ESXi does not tell an adapter's serial number; the card matrix may.
    return "";
}

std::string vekNICVmwareInterface::getNICManufacturer(const NICInterfacesDetailsStruct& row)
{
    std::string manufacturer;
    std::string subVendor;
    os_.getPCIeManufacturerResolverInterface()->fetchManufacturer(getNICPCIAddress(row), manufacturer, subVendor);
    return manufacturer;
}

void vekNICVmwareInterface::populatePCIIDs(const std::string& pciAddress, const NICInterfacesDetailsStruct& row,
                                           NICDeviceInfo& info)
{
    vekPCIeIds::populate(TAG, os_, "NIC Adapter", row.name, pciAddress, info);
}

void vekNICVmwareInterface::discoverNICProperties(std::string name, NICDeviceInfo& info)
{
    std::lock_guard<std::mutex> lock(mutex_);
    VEK_LOG_DEBUG(TAG, "The deviceName to query NIC properties : %s", name.c_str());
    NICInterfacesDetailsStruct row;
    fetchNICInstanceInterfaceDetails(name, row);

    const std::string deviceName = getNICDeviceName(row);
    const std::string mac = getNICMACAddress(row);
    const std::string pciAddress = getNICPCIAddress(row);
    std::string firmware;
    getNICFirmwareVersion(row, firmware);
    const int64_t speed = getNICSpeedMbps(row);
    const std::string serial = getNICSerialNumber(row);
    const std::string manufacturer = getNICManufacturer(row);
    std::string description;
    std::string physicalLocation;
    getNICPCIeProperties(pciAddress, description, physicalLocation);
    populatePCIIDs(pciAddress, row, info);

    info.setBasicProperties(serial, firmware, manufacturer, mac, deviceName, name, speed);
    info.pciAddress = pciAddress;
    info.description = description;
    info.physicalLocation = physicalLocation;
}

void vekNICVmwareInterface::getNICAdapterCondition(const NICInterfacesDetailsStruct& row, int& condition)
{
    VEK_LOG_DEBUG(TAG, "Getting adapter status for %s", row.name.c_str());
    const bool adminUp = equalsIgnoringCase(row.adminStatus, "up");
    if (adminUp) {
        if (equalsIgnoringCase(row.linkStatus, "down")) {
            condition = 4;
        } else if (equalsIgnoringCase(row.linkStatus, "unknown")) {
            condition = 3;
        } else {
            condition = 1;
        }
    } else {
        condition = equalsIgnoringCase(row.linkStatus, "down") ? 5 : 6;
    }
}

void vekNICVmwareInterface::discoverNICStatusInfo(std::string name, NICDeviceInfo& info)
{
    std::lock_guard<std::mutex> lock(mutex_);
    NICInterfacesDetailsStruct row;
    fetchNICInstanceInterfaceDetails(name, row);
    int condition = 0;
    getNICAdapterCondition(row, condition);
    getNICStateAndHealthValues(condition, info.deviceStatus.state, info.deviceStatus.health);
}

IvekNICEventNotifier* vekNICVmwareInterface::getNICEventNotifierInterface()
{
    return &vekNICVmwareEventNotifier::getInstance(os_);
}
