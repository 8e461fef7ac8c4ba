#pragma once

#include "vekPhysLocInterface.h"

#include <memory>
#include <string>
#include <vector>

// PLs on LM (platform type 2), through libvekloc1.so.
class vekLMPhysLocInterface : public vekLibraryPhysLocInterface {
public:
    // The singleton on the library at that path; vekPhysLoc exceptions when
    // it can't be loaded.
    static vekLMPhysLocInterface* getInstance(const std::string& libraryPath);

    std::string getPhysLocForDIMMSlot(const std::string& dimmID) override;
    std::string getPhysLocForPCIDevice(const std::string& pci) override;
    std::string getPhysLocForNetworkAdapter(const std::string& pci) override;
    std::string getPhysLocForChassisDriveSlot(const std::string& pci, int box, int bay) override;
    std::string getPhysLocForExternalDrive(const std::string& pci) override;
    std::string getPhysLocForChassisStorageBackplane(const std::string& pci, int box) override;

    std::string physlocEncode(const std::string& pci, const std::vector<std::string>& elements, physloc_type_t type,
                              physloc_rtn_t* rtn, const std::string& last);

private:
    friend class vekLibraryPhysLocInterface;
    explicit vekLMPhysLocInterface(const std::string& libraryPath);
};

vekPhysLocInterface* __vekLMPhysLocInterface__getInstance(const std::string& libraryPath);
