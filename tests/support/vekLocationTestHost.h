#pragma once

// A simulated host for the location tests: an SMBIOS table of one platform
// type, made by the project's generator (testtools/smbiosgen) from the slot
// and on-board records a case needs, and the platform services on it as the
// service builds them (SMBIOS only), made the process's current services.

#include "vekPlatformServices.h"
#include "vekTestRoot.h"

#include <string>
#include <vector>

class vekLocationTestHost {
public:
    explicit vekLocationTestHost(const vekTestRoot& root) : root_(root) {}

    // The platform identifier of a platform type; -1 gives one no table of
    // the platform code knows.
    static std::string platformIdentifier(int platformType);

    // Writes /sys/firmware/dmi/tables/DMI: a type 1 record, the OEM strings
    // of the platform, then the structures, a JSON array of the generator's
    // structure descriptions ('[{"type": 9, "designation": ...}, ...]').
    void writeTable(int platformType, const std::string& structures) const;

    // The services on that table, current from now on.
    vekPlatformServices& services();

    // The table of these records, and the services on it.
    vekPlatformServices& use(int platformType, const std::vector<std::string>& records);
    // Structure descriptions: a slot (type 9) and an on-board device (type 41).
    static std::string slot(const std::string& designation, const std::string& address);
    static std::string onboard(const std::string& designation, const std::string& address);

private:
    const vekTestRoot& root_;
    vekPlatformServices services_;
    bool built_ = false;
};
