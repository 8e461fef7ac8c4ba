#pragma once

#include "IvekStorageControllerFactory.h"
#include "vekStorageFactoryInit.h"

#include <memory>
#include <mutex>
#include <string>
#include <vector>

class vekMegaRAIDController;

// The factory of the MegaRAID controllers that libstorelib.so serves: what
// the library lists is created, what it no longer lists is removed.
class vekMegaRAIDControllerFactory : public IvekStorageControllerFactory {
public:
    static vekMegaRAIDControllerFactory& getInstance();

    vekMegaRAIDControllerFactory();
    ~vekMegaRAIDControllerFactory() override;
    vekMegaRAIDControllerFactory(const vekMegaRAIDControllerFactory&) = delete;
    vekMegaRAIDControllerFactory& operator=(const vekMegaRAIDControllerFactory&) = delete;

    bool initialize(vekOSInterface* osInterface, ISubject* shutdownSubject) override;
    int discoverControllers(std::vector<IvekStorageController*>& controllers) override;
    void getControllers(unsigned char familyMask, std::vector<IvekStorageController*>& controllers) override;
    // All controllers, each with a reference.
    void getControllers(std::vector<IvekStorageController*>& controllers);
    void shutdownFactory() override;
    // Changes arrive through the library's events.
    void poll() override {}
    void deleteControllers(unsigned char familyMask) override;
    std::vector<std::tuple<uint32_t, uint32_t>> getSupportedControllerModels() override;

    IvekStorageController* FindExistingController(uint32_t chipsetID, uint32_t boardID,
                                                  const std::string& pciLocation, bool ignored);

private:
    void resetControllerDetection();
    // The first pass brings the UBM support up on a platform with UBM backplanes.
    void initializeUBMSupport();

    std::vector<vekMegaRAIDController*> controllers_;
    std::recursive_mutex mutex_;
    vekStorageFactoryInit init_;
    bool firstPass_ = true;
    // Whether the UBM support of backplane platforms came up on the first pass.
    bool isScrutinyInitialized = false;
    ISubject* shutdownSubject_ = nullptr;
};
