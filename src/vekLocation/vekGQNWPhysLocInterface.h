#pragma once

#include "vekPhysLocInterface.h"

#include <memory>
#include <string>
#include <vector>

// PLs on GQ/NW (platform types 0 and 1), through libvekloc2.so.
class vekGQNWPhysLocInterface : public vekLibraryPhysLocInterface {
public:
    // The singleton on the library at that path; vekPhysLoc exceptions when
    // it can't be loaded.
    static vekGQNWPhysLocInterface* getInstance(const std::string& libraryPath);

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
    explicit vekGQNWPhysLocInterface(const std::string& libraryPath);
};

vekPhysLocInterface* __vekGQNWPhysLocInterface__getInstance(const std::string& libraryPath);
