#pragma once

// The UBM backplanes of the MegaRAID controllers that the Scrutiny library
// reaches: the box number of a drive's bay, found through the rule book of
// the controller model, and the enclosure records of the segments found.

#include "ISubject.h"
#include "vekBroadcomRules.h"
#include "vekStorageEnclosureInfo.h"

#include <cstdint>
#include <string>
#include <vector>

class vekMegaRAIDUBMSupport {
public:
    // The Scrutiny interface's own, forwarded.
    static void initialize(ISubject* subject);
    static void cacheBuild();
    static void shutdown();
    static bool isInitialized();

    // Sets `backplane`, or throws vekBroadcom::StorageBackplaneNumberForDriveNotFoundException
    // (or a vekStorageBackplane::Exception for a backplane too old to trust).
    static void findBackplaneNumberForDriveLocation(const std::string& pci, const std::string& connector,
                                                    uint8_t bay, int& backplane);
    // Appends one record per accepted segment of the controller; -1 when the
    // controller has no segment at all.
    static int populateEnclosureSegment(std::vector<vekStorageEnclosureInfo>& list, const std::string& pci);
    static void mapEnclosureSegmentStatusToVEKStatus(UBM_CONTROLLER_OPERATIONAL_STATE state,
                                                     VEK_RESOURCE_STATE& resourceState, VEK_RESOURCE_HEALTH& health);
    static void verifyBayNumberInFRUDescription(dsiEnclosureSegmentInfo* segment, uint8_t bay);
};
