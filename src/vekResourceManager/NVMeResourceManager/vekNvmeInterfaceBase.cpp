#include "vekNvmeInterface.h"

#include "vekGlobalDef.h"
#include "vekIOGeoIDHelper.h"
#include "vekLog.h"
#include "vekOSInterface.h"
#include "vekPCIeManufacturerResolver.h"
#include "vekPhysLocFactory.h"
#include "vekPhysLocInterface.h"

#include <strings.h>

#include <cerrno>
#include <cstdlib>

using vekGlobalDef::stringUtils;

namespace {

const char TAG[] = "NVME_OS_INTF_BASE";

// Model number prefixes of the drives the maker ships under its own name.
const char* const kZOLModelPrefixes[] = {"ZOLVEK", "ZOL-", "ZV4-NVME"};

bool flagSet(const std::map<std::string, std::string>& values, const char* key)
{
    const auto found = values.find(key);
    return found != values.end() && strcasecmp(stringUtils::trim(found->second).c_str(), "true") == 0;
}

// Decimal or "0x" hexadecimal; anything else is 0 with a warning.
long long counter(const std::string& name, const std::map<std::string, std::string>& values, const char* key)
{
    const auto found = values.find(key);
    if (found == values.end() || found->second.empty()) {
        return 0;
    }
    const std::string text = stringUtils::trim(found->second);
    errno = 0;
    char* end = nullptr;
    const long long value = std::strtoll(text.c_str(), &end, 0);
    if (text.empty() || end == nullptr || *end != '\0' || errno != 0 || value < 0) {
        VEK_LOG_WARNING(TAG, "Unreadable value [%s] of [%s] for %s", text.c_str(), key, name.c_str());
        return 0;
    }
    return value;
}

} // namespace

namespace vekNvmeSmartKeys {
const char* const kAvailableSpare = "Available Spare Space Below Threshold:";
const char* const kTemperature = "Temperature Warning:";
const char* const kReliability = "NVM Subsystem Reliability Degradation:";
const char* const kReadOnly = "Read Only Mode:";
const char* const kVolatileBackup = "Volatile Memory Backup Device Failure:";
const char* const kPercentageUsed = "Percentage Used:";
const char* const kPowerOnHours = "Power On Hours:";
} // namespace vekNvmeSmartKeys

void vekNvmeInterfaceBase::setSmartInfo(const std::string& name, const std::map<std::string, std::string>& values,
                                        vekNvmeSmartInfo& smart)
{
    using namespace vekNvmeSmartKeys;
    smart.deviceName = name;
    smart.availableSpareBelowThreshold = flagSet(values, kAvailableSpare) ? 1 : 0;
    smart.temperatureWarning = flagSet(values, kTemperature) ? 1 : 0;
    smart.reliabilityDegraded = flagSet(values, kReliability) ? 1 : 0;
    smart.readOnlyMode = flagSet(values, kReadOnly) ? 1 : 0;
    smart.volatileBackupFailed = flagSet(values, kVolatileBackup) ? 1 : 0;
    smart.percentageUsed = counter(name, values, kPercentageUsed);
    smart.powerOnHours = counter(name, values, kPowerOnHours);
    if (smart.readOnlyMode || smart.volatileBackupFailed) {
        smart.health = VEK_HEALTH_CRITICAL;
        smart.state = VEK_STATE_FAILED;
    } else if (!smart.availableSpareBelowThreshold && !smart.temperatureWarning && !smart.reliabilityDegraded) {
        smart.health = VEK_HEALTH_OK;
        smart.state = VEK_STATE_RUNNING;
    } else {
        smart.health = VEK_HEALTH_WARNING;
        smart.state = VEK_STATE_DEGRADED;
    }
}

bool vekNvmeInterfaceBase::isZOLDiskModelNumber(const std::string& model)
{
    const std::string text = stringUtils::trim(model);
    for (const char* prefix : kZOLModelPrefixes) {
        if (text.compare(0, std::char_traits<char>::length(prefix), prefix) == 0) {
            return true;
        }
    }
    return false;
}

void vekNvmeInterfaceBase::getNvmePCIeProperties(std::string pciAddress, NVMeControllerInfo& info)
{
    const std::string geoID = vekIOGeoIDHelper::getInstance().getGeoIDStr(pciAddress);
    info.description = "PCI " + pciAddress + " " + geoID;
    vekPhysLocInterface* physLoc = vekPhysLocFactory::getPhysLocInterface();
    info.physicalLocation = physLoc != nullptr ? physLoc->getPhysLocForPCIDevice(pciAddress)
                                               : vekPhysLocInterface::InvalidPL;
    vekSCM::IServerChassisManager& scm = vekSCM::ServerChassisManagerFactory::getServerChassisManager();
    const int rc = scm.getPCIDeviceFormFactor(pciAddress, info.formFactor);
    if (rc != vekSCM::SCM_SUCCESS) {
        VEK_LOG_WARNING(TAG, "Unable to determine device form-factor for [%s]: (%d) ", pciAddress.c_str(), rc);
        return;
    }
    // The slot is the I/O slot of a card and the bay of a drive.
    const vekDecodedGeoID decoded = vekIOGeoIDHelper::getInstance().getDecodedGeoID(pciAddress);
    const std::vector<std::string> split = decoded.getGeoIDSplit();
    if (info.formFactor == VEK_FORM_FACTOR_PCIE_CEM) {
        scm.getPCIeSlotForIOSlot(pciAddress, info.slot);
    } else if (!split.empty()) {
        info.slot = split.back();
    }
    if (info.physicalLocation == vekPhysLocInterface::InvalidPL || physLoc == nullptr) {
        return;
    }
    try {
        info.decodedPhysicalLocation = physLoc->getDecodedPhysLocLongFormat(info.physicalLocation);
    } catch (const std::exception& e) {
        VEK_LOG_WARNING(TAG, "Unable to decode PL [%s]: (%s)", info.physicalLocation.c_str(), e.what());
    }
}

void vekNvmeInterfaceBase::getNvmeManufacturer(std::string pciAddress, std::string model, std::string& manufacturer)
{
    _VEK_DEVICE_FORM_FACTOR formFactor = VEK_FORM_FACTOR_UNKNOWN;
    vekSCM::ServerChassisManagerFactory::getServerChassisManager().getPCIDeviceFormFactor(pciAddress, formFactor);
    if (formFactor == VEK_FORM_FACTOR_SSD_HDD) {
        if (isZOLDiskModelNumber(model)) {
            manufacturer = "ZOL";
            VEK_LOG_DEBUG(TAG, "SSD/HDD Manufacturer: [%s]", manufacturer.c_str());
            return;
        }
        VEK_LOG_DEBUG(TAG, "SSD/HDD model [%s] is not a known ZOL disk model.", model.c_str());
    }
    std::string subVendor;
    vekPCIeManufacturerResolver* resolver = os_.getPCIeManufacturerResolverInterface();
    if (resolver != nullptr) {
        resolver->fetchManufacturer(pciAddress, manufacturer, subVendor);
    }
    VEK_LOG_DEBUG(TAG, "Manufacturer: [%s]", manufacturer.c_str());
}
