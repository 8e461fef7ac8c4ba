#pragma once

#include "IvekStorageControllerFactory.h"
#include "vekStorageFactoryInit.h"

#include <sys/stat.h>

#include <memory>
#include <mutex>
#include <string>
#include <vector>

class SysFs;

// The factory of the adapters seen through sysfs: every SCSI host whose PCI
// function is a model of the table and not served by another factory.
class vekStorageControllerFactory : public IvekStorageControllerFactory {
public:
    static vekStorageControllerFactory& getInstance();

    vekStorageControllerFactory();
    ~vekStorageControllerFactory() override;
    vekStorageControllerFactory(const vekStorageControllerFactory&) = delete;
    vekStorageControllerFactory& operator=(const vekStorageControllerFactory&) = delete;

    bool initialize(vekOSInterface* osInterface, ISubject* shutdownSubject) override;
    int discoverControllers(std::vector<IvekStorageController*>& controllers) override;
    void getControllers(unsigned char familyMask, std::vector<IvekStorageController*>& controllers) override;
    void shutdownFactory() override;
    void poll() override;
    void deleteControllers(unsigned char familyMask) override;
    std::vector<std::tuple<uint32_t, uint32_t>> getSupportedControllerModels() override;

    IvekStorageController* FindExistingController(uint32_t chipsetID, uint32_t boardID,
                                                  const std::string& pciLocation, bool ignored);

private:
    struct HostCard {
        std::string pciLocation;
        uint32_t chipsetID = 0;
        uint32_t boardID = 0;
    };
    // 0 with the card of the host; -1 when the card can't be read, -2 when
    // the host hangs off no PCI function.
    int findHostCard(SysFs& sysfs, const std::string& hostPath, HostCard& card);
    IvekStorageController* claim(const std::string& hostPath, const HostCard& card);
    // Controllers not seen in this pass leave; a new one where a removed one
    // stood takes the old object's place, history and all.
    void reconcile(const std::vector<IvekStorageController*>& seen,
                   const std::vector<IvekStorageController*>& created);

    std::vector<IvekStorageController*> controllers_;
    // Removed controllers, kept (with the list's reference) for their return.
    std::vector<IvekStorageController*> removed_;
    std::recursive_mutex mutex_;
    struct stat hostStat_ {};
    struct stat deviceStat_ {};
    vekStorageFactoryInit init_;
    bool firstPass_ = true;
};
