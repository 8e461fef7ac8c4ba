#pragma once

#include "IvekStorageController.h"
#include "vekRegistryManager.h"

#include <cstddef>
#include <cstdint>
#include <string>
#include <tuple>
#include <vector>

class ISubject;
class vekOSInterface;

// Family bits of a controller model; a factory serves the families of its
// mask and leaves the others alone.
const unsigned char VEK_STORAGE_FAMILY_HBA = 0x01;
const unsigned char VEK_STORAGE_FAMILY_MEGARAID = 0x02;
const unsigned char VEK_STORAGE_FAMILY_MEGARAID_96XX = 0x04;
const unsigned char VEK_STORAGE_FAMILY_SMARTRAID = 0x08;
const unsigned char VEK_STORAGE_FAMILY_LEWISBURG = 0x10;
const unsigned char VEK_STORAGE_FAMILY_ALL = 0xFF;

// Finds the controllers of its families, owns their objects and hands out
// referenced copies of its list. The order of the operations is fixed.
class IvekStorageControllerFactory {
public:
    virtual ~IvekStorageControllerFactory() = default;

    virtual bool initialize(vekOSInterface* osInterface, ISubject* shutdownSubject) = 0;
    // The controllers present now, each with a reference the caller releases;
    // negative on failure.
    virtual int discoverControllers(std::vector<IvekStorageController*>& controllers) = 0;
    virtual void getControllers(unsigned char familyMask, std::vector<IvekStorageController*>& controllers) = 0;
    virtual void shutdownFactory() = 0;
    virtual void poll() = 0;
    virtual void deleteControllers(unsigned char familyMask) = 0;
    // (board id, chipset id) of the models the factory serves itself.
    virtual std::vector<std::tuple<uint32_t, uint32_t>> getSupportedControllerModels() = 0;
};

// A controller class that can claim a device seen in sysfs.
typedef int (*vekClaimDeviceFunction)(uint32_t chipsetID, uint32_t boardID, const std::string& pciLocation,
                                      bool firstPass, vekOSInterface* osInterface,
                                      IvekStorageController** controller);
typedef void (*vekRefreshVendorInterfaceCacheFunction)();

struct _VEK_STORAGE_CONTROLLER_CLASS_METADATA {
    std::string className;
    vekClaimDeviceFunction claimDevice;
    vekRefreshVendorInterfaceCacheFunction refreshVendorInterfaceCache;
};

typedef vekRegistryManager<IvekStorageControllerFactory*> FactoryRegister;
typedef vekRegistryManager<_VEK_STORAGE_CONTROLLER_CLASS_METADATA> ControllerClassRegister;

// One supported adapter model. A zero id matches any; the predicate decides
// whether the row applies to this system.
struct _VEK_STORAGE_HBA_MODEL {
    bool (*isSupported)();
    uint32_t chipsetID;
    uint32_t boardID;
    unsigned char familyFlags;
    const char* modelName;
};

const size_t MAX_STORAGE_HBA_LIST = 24;
// Rows past the last model have a null name.
extern const _VEK_STORAGE_HBA_MODEL gStorageHbaList[MAX_STORAGE_HBA_LIST];

// Ids of a PCI function as the model table keys them.
constexpr uint32_t vekStorageChipsetID(uint16_t vendor, uint16_t device)
{
    return (static_cast<uint32_t>(device) << 16) | vendor;
}

// The model name of the first row that matches, with its family byte in
// flags; null when no row does. A zero mask matches every family.
const char* getStorageControllerModel(uint32_t chipsetID, uint32_t boardID, unsigned char familyMask,
                                      unsigned char& flags);
