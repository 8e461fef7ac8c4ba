#pragma once

#include "vekPhysLocInterface.h"

#include <memory>
#include <string>

// PLs on TRB (platform type 4), through libvekloc3.so. The library is loaded
// with the object and stays for the life of the process.
class vekTRBPhysLocInterface : public vekLibraryPhysLocInterface {
public:
    // The singleton on the library at that path; vekPhysLoc exceptions when
    // it can't be loaded.
    static vekTRBPhysLocInterface* getInstance(const std::string& libraryPath);

    std::string getPhysLocForDIMMSlot(const std::string& dimmID) override;
    std::string getPhysLocForPCIDevice(const std::string& pci) override;
    std::string getPhysLocForNetworkAdapter(const std::string& pci) override;
    std::string getPhysLocForChassisDriveSlot(const std::string& pci, int box, int bay) override;
    std::string getPhysLocForExternalDrive(const std::string& pci) override;
    std::string getPhysLocForChassisStorageBackplane(const std::string& pci, int box) override;

    // One PL: the type and six element texts (rack, unit, then bytes 8, 11,
    // 13 and 10); "NA" or empty leaves a field as init left it.
    std::string physlocEncode(const std::string& pci, physloc_type_t type, const std::string& e1,
                              const std::string& e2, const std::string& e3, const std::string& e4,
                              const std::string& e5, const std::string& e6);

private:
    friend class vekLibraryPhysLocInterface;
    explicit vekTRBPhysLocInterface(const std::string& libraryPath);
};

vekPhysLocInterface* __vekTRBPhysLocInterface__getInstance(const std::string& libraryPath);
