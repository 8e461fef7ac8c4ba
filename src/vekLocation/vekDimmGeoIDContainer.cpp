#include "vekDimmGeoIDContainer.h"

#include "vekGeoIDOSInterface.h"
#include "vekLog.h"
#include "vekOSInterface.h"
#include "vekPlatformServices.h"

#include <list>

namespace {
const char TAG[] = "DIMM_GEOID_CONTAINER";
} // namespace

vekDimmGeoIDContainer& vekDimmGeoIDContainer::getInstance()
{
    static vekDimmGeoIDContainer instance;
    return instance;
}

vekDimmGeoIDContainer::vekDimmGeoIDContainer()
{
    VEK_LOG_DEBUG(TAG, "Building DIMM Topology map for the first time.");
    refreshDimmTopologyMap();
}

void vekDimmGeoIDContainer::refreshDimmTopologyMap()
{
    VEK_LOG_DEBUG(TAG, "Kick-started Dimm Topology (GeoID) map refresh operation");
    vekGeoIDOSInterface::DimmTopology topology;
    std::list<std::string> errors;
    try {
        vekOSInterface* system = vekSystemInterfaceFactory::getSystemInterface();
        if (system == nullptr || system->getGeoIDInterface() == nullptr) {
            throw std::runtime_error("no OS interface");
        }
        system->getGeoIDInterface()->discoverNvdimmTopology(topology, errors);
    } catch (const std::exception& e) {
        VEK_LOG_WARNING(TAG, "Failure reported while discovering DIMM topology");
    }
    for (const auto& entry : topology) {
        if (entry.second.size() != 2) {
            VEK_LOG_WARNING(TAG, "DIMM topology does not have 2 (%zu) elements! Skipping DIMM entry for [%s].",
                            entry.second.size(), entry.first.c_str());
            continue;
        }
        std::string geoID = entry.second.front();
        populateDimmTopologyMap(entry.first, geoID);
    }
    printDimmTopologyMap();
    VEK_LOG_DEBUG(TAG, "Dimm topology (GeoID) refresh operation is complete.");
}

void vekDimmGeoIDContainer::populateDimmTopologyMap(const std::string dimmID, std::string& geoID)
{
    std::lock_guard<std::mutex> lock(mutex_);
    if (!compiled_) {
        const int platform = vekPlatformServices::getCachedPlatform();
        const char* pattern = (platform == 0 || platform == 1)
                                  ? "^r([0-9]{3})i([0-9]{2})_P([0-9]{1})-([A-Z]{5})([0-9]{1})"
                                  : "^r([0-9]{3})u([0-9]{2})_P([0-9]{1})-([A-Z]{5})([0-9]{1})";
        try {
            pattern_ = std::regex(pattern, std::regex::ECMAScript);
            compiled_ = true;
        } catch (const std::regex_error& e) {
            VEK_LOG_ERROR(TAG, "Exception caught while compiling regex. Dimm ID = {%s} Error = [%s]", dimmID.c_str(),
                          e.what());
            return;
        }
    }
    std::smatch match;
    if (!std::regex_search(geoID, match, pattern_) || match.size() != 6) {
        VEK_LOG_WARNING(TAG, "Unable to extract all elements of Geo ID : {%s} for Dimm ID: {%s}", geoID.c_str(),
                        dimmID.c_str());
        return;
    }
    vekDecodedGeoID decoded(VEK_GEOID_TYPE_DIMM, match[0].str(), {});
    for (size_t group = 1; group < match.size(); ++group) {
        decoded.addToGeoIDSplit(match[group].str());
    }
    map_[dimmID] = decoded;
}

void vekDimmGeoIDContainer::printDimmTopologyMap()
{
    std::lock_guard<std::mutex> lock(mutex_);
    VEK_LOG_DEBUG(TAG, "----- Printing DIMM Topology Map (DIMM ID => GeoID) -----");
    for (const auto& entry : map_) {
        VEK_LOG_DEBUG(TAG, "%s   =>   %s", entry.first.c_str(), entry.second.getGeoID().c_str());
    }
}

vekDecodedGeoID vekDimmGeoIDContainer::lookup(const std::string& dimmID)
{
    std::lock_guard<std::mutex> lock(mutex_);
    VEK_LOG_DEBUG(TAG, "Looking up GeoID for Dimm ID [%s] in current map.", dimmID.c_str());
    const auto found = map_.find(dimmID);
    if (found == map_.end()) {
        VEK_LOG_DEBUG(TAG, "GeoID not found for Dimm ID {%s}!", dimmID.c_str());
        throw vekGeoIDExceptions::NoSuchDimmID(dimmID);
    }
    VEK_LOG_DEBUG(TAG, "Found GeoID for Dimm ID [%s] in current map: [%s]", dimmID.c_str(),
                  found->second.getGeoID().c_str());
    return found->second;
}

std::string vekDimmGeoIDContainer::getGeoIDStr(const std::string& dimmID)
{
    return lookup(dimmID).getGeoID();
}

std::vector<std::string> vekDimmGeoIDContainer::getGeoIDInfo(const std::string& dimmID)
{
    return lookup(dimmID).getGeoIDSplit();
}

vekDecodedGeoID vekDimmGeoIDContainer::getDecodedGeoID(const std::string& dimmID)
{
    return lookup(dimmID);
}
