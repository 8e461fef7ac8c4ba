#pragma once

#include "IvekStorageControllerFactory.h"
#include "vekStorageCoreInterface.h"
#include "vekStorageFactoryInit.h"

#include <cstdint>
#include <memory>
#include <mutex>
#include <vector>

class vekConfig;
class vekSmartRAIDController;
class vekSubjectShutdownObserver;

// A row of the maker's model table, keyed by the four PCI identifiers.
struct vekSmartRAIDModel {
    uint16_t vendor;
    uint16_t device;
    uint16_t subVendor;
    uint16_t subDevice;
    const char* model;
    const char* partNumber;
    const char* sparePartNumber;
    const char* sku;
};

// Null for a combination the table does not hold.
const vekSmartRAIDModel* findSmartRAIDModel(uint16_t vendor, uint16_t device, uint16_t subVendor, uint16_t subDevice);

// Finds the SmartRAID controllers through the storage library and owns their
// objects.
class vekSmartRAIDControllerFactory : public IvekStorageControllerFactory {
public:
    static vekSmartRAIDControllerFactory& getInstance();

    vekSmartRAIDControllerFactory();
    ~vekSmartRAIDControllerFactory() override;

    bool initialize(vekOSInterface* osInterface, ISubject* shutdownSubject) override;
    int discoverControllers(std::vector<IvekStorageController*>& controllers) override;
    void getControllers(unsigned char familyMask, std::vector<IvekStorageController*>& controllers) override;
    void shutdownFactory() override;
    void poll() override {}
    void deleteControllers(unsigned char familyMask) override;
    std::vector<std::tuple<uint32_t, uint32_t>> getSupportedControllerModels() override;

    // The controller whose metadata holds the CDA, with a reference the
    // caller releases; null when none.
    vekSmartRAIDController* findControllerByCDA(PCDA cda);

    // The configuration the controllers follow: the process's own unless
    // another was set.
    const vekConfig& config() const;
    void setConfig(std::shared_ptr<const vekConfig> config);

private:
    void resetControllerDetection();

    std::vector<vekSmartRAIDController*> controllers_;
    std::recursive_mutex mutex_;
    vekStorageFactoryInit init_;
    bool firstPass_ = true;
    std::shared_ptr<const vekConfig> config_;
};
