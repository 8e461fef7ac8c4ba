#pragma once

#include "NVMeControllerInfo.h"
#include "vekResourceStatus.h"
#include "vekSubModulesInterface.h"

#include <cstdint>
#include <map>
#include <string>
#include <vector>

class vekOSInterface;

// The SMART summary of one NVMe device: the five critical warning bits, two
// counters, and the state and health that follow from the bits.
struct vekNvmeSmartInfo {
    uint8_t availableSpareBelowThreshold = 0;
    uint8_t temperatureWarning = 0;
    uint8_t reliabilityDegraded = 0;
    uint8_t readOnlyMode = 0;
    uint8_t volatileBackupFailed = 0;
    long long percentageUsed = 0;
    long long powerOnHours = 0;
    std::string deviceName;
    uint8_t state = VEK_STATE_UNKNOWN;
    uint8_t health = VEK_HEALTH_UNKNOWN;
};

// The keys of the SMART log, as the host prints them.
namespace vekNvmeSmartKeys {
extern const char* const kAvailableSpare;
extern const char* const kTemperature;
extern const char* const kReliability;
extern const char* const kReadOnly;
extern const char* const kVolatileBackup;
extern const char* const kPercentageUsed;
extern const char* const kPowerOnHours;
} // namespace vekNvmeSmartKeys

// Everything the NVMe family asks of the host.
class vekNvmeInterface : public vekSubModulesInterface {
public:
    ~vekNvmeInterface() override = default;
    // Appends the OS names (vmhbaN) of the NVMe devices.
    virtual void populateNvmeInstances(std::vector<std::string>& names) = 0;
    virtual void discoverNvmeProperties(std::string name, NVMeControllerInfo& info) = 0;
    virtual void getNvmeSmartLogInfo(std::string name, vekNvmeSmartInfo& smart) = 0;
    // Empty when the host does not tell it.
    virtual void getNvmePCIAddress(std::string name, std::string& pciAddress) = 0;
    // Description "PCI <address> <GeoID>", PL, form factor, slot and decoded PL.
    virtual void getNvmePCIeProperties(std::string pciAddress, NVMeControllerInfo& info) = 0;
    virtual void getNvmeManufacturer(std::string pciAddress, std::string model, std::string& manufacturer) = 0;
};

// What does not depend on the host OS: location, manufacturer and the
// reading of the SMART flags.
class vekNvmeInterfaceBase : public vekNvmeInterface {
public:
    explicit vekNvmeInterfaceBase(vekOSInterface& os) : os_(os) {}

    void getNvmePCIeProperties(std::string pciAddress, NVMeControllerInfo& info) override;
    void getNvmeManufacturer(std::string pciAddress, std::string model, std::string& manufacturer) override;

    // The summary of the values of the SMART keys (missing keys read as
    // clear flags and zero counters).
    static void setSmartInfo(const std::string& name, const std::map<std::string, std::string>& values,
                             vekNvmeSmartInfo& smart);
    // Whether the model number is one of the maker's own drives.
    static bool isZOLDiskModelNumber(const std::string& model);

protected:
    vekOSInterface& os_;
};
