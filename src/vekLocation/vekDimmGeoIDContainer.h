#pragma once

#include "vekDecodedGeoID.h"

#include <map>
#include <mutex>
#include <regex>
#include <stdexcept>
#include <string>
#include <vector>

namespace vekGeoIDExceptions {

class DimmExceptions : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

// Unlike an unknown PCI address, an unknown DIMM is an error the caller
// must catch.
class NoSuchDimmID : public DimmExceptions {
public:
    explicit NoSuchDimmID(const std::string& dimmID) : DimmExceptions("No such DIMM ID: [" + dimmID + "]") {}
};

} // namespace vekGeoIDExceptions

// The GeoIDs of the DIMM slots (type 3), by DIMM ID, from the DIMM topology
// the host reports. Built once, on first use.
class vekDimmGeoIDContainer {
public:
    static vekDimmGeoIDContainer& getInstance();

    vekDimmGeoIDContainer(const vekDimmGeoIDContainer&) = delete;
    vekDimmGeoIDContainer& operator=(const vekDimmGeoIDContainer&) = delete;

    std::string getGeoIDStr(const std::string& dimmID);
    std::vector<std::string> getGeoIDInfo(const std::string& dimmID);
    vekDecodedGeoID getDecodedGeoID(const std::string& dimmID);

    void refreshDimmTopologyMap();
    // Adds the DIMM when its GeoID text has every element of the pattern.
    void populateDimmTopologyMap(const std::string dimmID, std::string& geoID);
    void printDimmTopologyMap();

private:
    vekDimmGeoIDContainer();
    vekDecodedGeoID lookup(const std::string& dimmID);

    std::mutex mutex_;
    std::map<std::string, vekDecodedGeoID> map_;
    std::regex pattern_;
    bool compiled_ = false;
};
