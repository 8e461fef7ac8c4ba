#pragma once

// Which backplane a MegaRAID's drive bay lies on: the rules that tie a
// controller connector to the I2C bus of its backplane's UBM FRU, per
// controller model, and the walk over the enclosure segments found on those
// buses. Policy only: it takes the controller and its segments as they were
// discovered, and the platform type.

#include "dsiControllerInfo.h"
#include "dsiEnclosureSegmentInfo.h"
#include "vekResourceStatus.h"

#include <cstdint>
#include <map>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

namespace vekBroadcom {

class StorageBackplaneNumberForDriveNotFoundException : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

class SBNFD_NoEnclosureSegmentInfoOnI2CBusException : public StorageBackplaneNumberForDriveNotFoundException {
public:
    using StorageBackplaneNumberForDriveNotFoundException::StorageBackplaneNumberForDriveNotFoundException;
};

class SBNFD_NoUBMPortRouteInfoDescriptorForBayException : public StorageBackplaneNumberForDriveNotFoundException {
public:
    using StorageBackplaneNumberForDriveNotFoundException::StorageBackplaneNumberForDriveNotFoundException;
};

} // namespace vekBroadcom

namespace vekBroadcomRules {

// "C0.0", "C0.1", "C1.0", "C1.1", "C2.0", "C2.1".
typedef std::string VEK_STORAGE_CONTROLLER_CONNECTOR_ID;

struct VEK_STORAGE_CONTROLLER_RULESETS {
    // The bus of the FRU that describes the connector's drives.
    std::map<VEK_STORAGE_CONTROLLER_CONNECTOR_ID, uint8_t> mappingRules;
    // Where else to look: a premium backplane cabled straight has the
    // connector's drives described by the FRU on another bus.
    std::map<VEK_STORAGE_CONTROLLER_CONNECTOR_ID, std::vector<uint8_t>> alternateRules;
};

// By (Chipset ID, Board ID).
typedef std::map<std::pair<uint32_t, uint32_t>, VEK_STORAGE_CONTROLLER_RULESETS> VEK_STORAGE_CONTROLLER_RULEBOOK;
const VEK_STORAGE_CONTROLLER_RULEBOOK& ruleBook();

} // namespace vekBroadcomRules

class vekUBMBackplaneLocator {
public:
    // The tag is the log tag of the controller family's support class.
    vekUBMBackplaneLocator(const char* tag, int platform) : tag_(tag), platform_(platform) {}

    // The box number of the backplane that holds the bay at the connector;
    // a vekBroadcom exception when none does, or a vekStorageBackplane one
    // when the backplane's firmware is too old to be trusted (platform 2).
    int findBackplaneNumberForDriveLocation(const dsiControllerInfo& controller,
                                            const std::vector<dsiEnclosureSegmentInfo*>& segments,
                                            const std::string& connector, uint8_t bay) const;

    // Whether the segment may be reported as an enclosure: on platform 2 a
    // UBM backplane only with firmware new enough.
    bool acceptEnclosureSegment(const dsiControllerInfo& controller, const dsiEnclosureSegmentInfo& segment) const;

    // SBNFD_NoUBMPortRouteInfoDescriptorForBayException when no port route
    // of the segment's FRU describes the bay.
    void verifyBayNumberInFRUDescription(const dsiEnclosureSegmentInfo* segment, uint8_t bay) const;
    static void mapEnclosureSegmentStatusToVEKStatus(UBM_CONTROLLER_OPERATIONAL_STATE state,
                                                     VEK_RESOURCE_STATE& resourceState, VEK_RESOURCE_HEALTH& health);

private:
    int findBackplaneNumberForDriveLocationInternal(const dsiControllerInfo& controller,
                                                    const std::vector<dsiEnclosureSegmentInfo*>& segments, uint8_t bus,
                                                    uint8_t bay) const;
    // Only on platform 2, and only for a UBM backplane.
    bool firmwareCheckApplies(const dsiEnclosureSegmentInfo& segment) const;

    const char* tag_;
    const int platform_;
};
