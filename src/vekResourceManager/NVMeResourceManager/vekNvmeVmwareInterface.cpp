#include "vekNvmeVmwareInterface.h"

#include "vekGlobalDef.h"
#include "vekLog.h"
#include "vekOSInterface.h"
#include "vekPCIeIds.h"

#include <sys/wait.h>

#include <cerrno>
#include <cstdint>
#include <cstdlib>
#include <sstream>

using vekGlobalDef::HostCommandResult;
using vekGlobalDef::stringUtils;
using vekGlobalDef::VMwareOSUtils;

namespace {

const char TAG[] = "NVME_VMWARE_OS_INTF";

// A domain of five digits is a device behind Intel VMD.
const char kPciAddressPattern[] = "^((?:[a-fA-F0-9]{4}|[a-fA-F0-9]{5}):[a-fA-F0-9]{2}:[a-fA-F0-9]{2}\\.[0-7]{1})$";

std::vector<std::string> words(const std::string& line)
{
    std::vector<std::string> out;
    std::istringstream in(line);
    for (std::string word; in >> word;) {
        out.push_back(word);
    }
    return out;
}

// A whole decimal number that fits; false otherwise.
bool decimal(const std::string& text, long long& value)
{
    if (text.empty() || text.find_first_not_of("0123456789") != std::string::npos) {
        return false;
    }
    errno = 0;
    value = std::strtoll(text.c_str(), nullptr, 10);
    return errno == 0;
}

// The output of a host command, with the failure told in the family's words.
bool runFor(const std::string& name, const std::string& command, std::vector<std::string>& lines)
{
    const HostCommandResult run = VMwareOSUtils::runHostCommand(command);
    if (run.status == 0) {
        lines = run.lines;
        return true;
    }
    const int error = run.status == -1 ? run.error : WEXITSTATUS(run.status);
    const std::string reason = run.status == -1 ? VMwareOSUtils::execErrnoToDescription(run.error)
                                                : "exit status " + std::to_string(error);
    VEK_LOG_WARNING(TAG, "Unable to gather NVMe HBA information for %s, Error : %d, Reason : %s", name.c_str(), error,
                    reason.c_str());
    return false;
}

} // namespace

vekNvmeVmwareInterface::vekNvmeVmwareInterface(vekOSInterface& os) : vekNvmeInterfaceBase(os)
{
    pciAddressRegexCompiled_ = stringUtils::compileRegEx(kPciAddressPattern, pciAddressRegex_);
}

void vekNvmeVmwareInterface::populateNvmeInstances(std::vector<std::string>& names)
{
    const std::vector<std::string> lines =
        VMwareOSUtils::executeCliCommandAndFetchOutput("localcli nvme device list | awk '{print $1}'");
    if (lines.empty()) {
        VEK_LOG_ERROR(TAG, "Error occurred in identifying NVMe instances.");
    }
    const size_t before = names.size();
    for (const std::string& line : lines) {
        const std::string name = stringUtils::trim(line);
        if (name.find("vmhba") != std::string::npos) {
            names.push_back(name);
        }
    }
    if (names.size() == before) {
        VEK_LOG_INFO(TAG, "Found zero NVMe PCI instances");
    }
}

void vekNvmeVmwareInterface::getNvmePCIAddress(std::string name, std::string& pciAddress)
{
    pciAddress.clear();
    std::vector<std::string> lines;
    if (!pciAddressRegexCompiled_ ||
        !runFor(name, VMwareOSUtils::composeCommand("esxcli device alias get -n {}", {name}), lines) ||
        lines.empty() || lines.front().find("Alias") == std::string::npos) {
        VEK_LOG_WARNING(TAG, "Cound not fetch PCI Address for %s", name.c_str());
        return;
    }
    // The line under the header is dashes; the address is the row's token
    // that has the address's form, wherever its column stands.
    for (size_t i = 2; i < lines.size() && pciAddress.empty(); ++i) {
        for (const std::string& word : words(lines[i])) {
            if (word.find(':') != std::string::npos && std::regex_match(word, pciAddressRegex_)) {
                pciAddress = word;
                break;
            }
        }
    }
    if (pciAddress.empty()) {
        VEK_LOG_WARNING(TAG, "Cound not fetch PCI Address for %s", name.c_str());
        return;
    }
    VEK_LOG_DEBUG(TAG, "PCI Address of %s is [%s]", name.c_str(), pciAddress.c_str());
}

void vekNvmeVmwareInterface::discoverNvmeProperties(std::string name, NVMeControllerInfo& info)
{
    info.deviceName = name;
    std::vector<std::string> lines;
    runFor(name, VMwareOSUtils::composeCommand("localcli nvme device get -A {}", {name}), lines);
    const std::string csv = VMwareOSUtils::parseEsxiCommandOutputAsCsv(lines);
    const std::string serial = VMwareOSUtils::getValueByRegexFromLocalcli(csv, ",Serial Number: \\S+");
    const std::string model = VMwareOSUtils::getValueByRegexFromLocalcli(csv, ",Model Number: \\S+");
    const std::string firmware = VMwareOSUtils::getValueByRegexFromLocalcli(csv, ",Firmware Revision: \\S+");
    if (serial.empty()) {
        VEK_LOG_WARNING(TAG, "Cound not fetch Serial Number for %s", name.c_str());
    }
    if (model.empty()) {
        VEK_LOG_WARNING(TAG, "Cound not fetch Model Number for %s", name.c_str());
    }
    if (firmware.empty()) {
        VEK_LOG_WARNING(TAG, "Cound not fetch Firmware Version for %s", name.c_str());
    }

    getNvmePCIAddress(name, info.pciAddress);
    vekPCIeIds::populate(TAG, os_, "NVMe Device", name, info.pciAddress, info);
    std::string manufacturer;
    if (!info.pciAddress.empty()) {
        getNvmeManufacturer(info.pciAddress, model, manufacturer);
        getNvmePCIeProperties(info.pciAddress, info);
    }
    long long detected = 0;
    getNvmeCapacityBytesDetected(name, detected);
    info.setBasicProperties(serial, model, firmware, manufacturer, info.capacityBytes);
    info.capacityBytesDetected = detected;
}

void vekNvmeVmwareInterface::getNvmeSmartLogInfo(std::string name, vekNvmeSmartInfo& smart)
{
    using namespace vekNvmeSmartKeys;
    std::vector<std::string> lines;
    runFor(name, VMwareOSUtils::composeCommand("localcli nvme device log smart get -A {}", {name}), lines);
    const std::string csv = VMwareOSUtils::parseEsxiCommandOutputAsCsv(lines);
    std::map<std::string, std::string> values;
    for (const char* key : {kAvailableSpare, kTemperature, kReliability, kReadOnly, kVolatileBackup, kPercentageUsed,
                            kPowerOnHours}) {
        values[key] = VMwareOSUtils::getValueByRegexFromLocalcli(csv, std::string(",") + key + " \\S+");
    }
    setSmartInfo(name, values, smart);
}

std::vector<std::string> vekNvmeVmwareInterface::getNamespaceListsForThisDevice(const std::string& name)
{
    std::vector<std::string> devices;
    std::vector<std::string> lines;
    runFor(name, VMwareOSUtils::composeCommand("localcli nvme device namespace list -A {}", {name}), lines);
    bool header = false;
    bool rows = false;
    for (const std::string& line : lines) {
        const std::string text = stringUtils::trim(line);
        if (!rows) {
            header = header || text.find("Namespace ID") != std::string::npos;
            rows = header && text.compare(0, 5, "-----") == 0;
            continue;
        }
        const std::vector<std::string> columns = words(text);
        if (columns.empty()) {
            continue;
        }
        // A row is the id, its status and the device name; the name is the
        // last column and missing when the row is short.
        if (columns.size() < 3) {
            VEK_LOG_WARNING(TAG, "Device Name missing for Namespace ID : %s", columns.front().c_str());
            continue;
        }
        devices.push_back(columns.back());
    }
    VEK_LOG_DEBUG(TAG, "Device : %s, Number of Namespaces : %d", name.c_str(), static_cast<int>(devices.size()));
    if (devices.empty()) {
        VEK_LOG_WARNING(TAG, "No namespaces identified for %s", name.c_str());
    }
    return devices;
}

bool vekNvmeVmwareInterface::fetchNamespaceAttributes(const std::string& name, const std::string& namespaceDevice,
                                                      long long& bytes)
{
    const std::vector<std::string> lines = VMwareOSUtils::executeCliCommandAndFetchOutput(
        VMwareOSUtils::composeCommand("localcli storage core device capacity list | grep {}", {namespaceDevice}));
    for (const std::string& line : lines) {
        // Device, physical block size, logical block size, logical block count, ...
        const std::vector<std::string> columns = words(line);
        long long blockSize = 0;
        long long blockCount = 0;
        if (columns.size() >= 4 && columns[0] == namespaceDevice && decimal(columns[2], blockSize) &&
            decimal(columns[3], blockCount) && (blockSize == 0 || blockCount <= INT64_MAX / blockSize)) {
            bytes = blockSize * blockCount;
            return true;
        }
    }
    VEK_LOG_WARNING(TAG, "Could not fetch namespace attributes for %s", name.c_str());
    return false;
}

bool vekNvmeVmwareInterface::getNvmeCapacityBytesDetected(const std::string& name, long long& capacity)
{
    capacity = 0;
    bool measured = false;
    for (const std::string& device : getNamespaceListsForThisDevice(name)) {
        VEK_LOG_DEBUG(TAG, "The namespaceID is %s", device.c_str());
        long long bytes = 0;
        if (fetchNamespaceAttributes(name, device, bytes) && capacity <= INT64_MAX - bytes) {
            capacity += bytes;
            measured = true;
        }
    }
    VEK_LOG_DEBUG(TAG, "The capacityBytesDetected is %lld", capacity);
    return measured;
}
