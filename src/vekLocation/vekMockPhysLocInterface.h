#pragma once

#include "vekPhysLocInterface.h"

// The PL interface of a platform without an encoder: every FRU is
// "FFFFFFFFFFFFFFFF" and nothing decodes.
class vekMockPhysLocInterface : public vekPhysLocInterface {
public:
    static vekMockPhysLocInterface* getInstance(const std::string& libraryPath = "");

    std::string getPhysLocForDIMMSlot(const std::string&) override { return InvalidPL; }
    std::string getPhysLocForPCIDevice(const std::string&) override { return InvalidPL; }
    std::string getPhysLocForNetworkAdapter(const std::string&) override { return InvalidPL; }
    std::string getPhysLocForChassisDriveSlot(const std::string&, int, int) override { return InvalidPL; }
    std::string getPhysLocForExternalDrive(const std::string&) override { return InvalidPL; }
    std::string getPhysLocForChassisStorageBackplane(const std::string&, int) override { return InvalidPL; }
    std::string getDecodedPhysLocLongFormat(const std::string&) override { return ""; }

private:
    vekMockPhysLocInterface() = default;
};

vekPhysLocInterface* __vekMockPhysLocInterface__getInstance(const std::string& libraryPath);
