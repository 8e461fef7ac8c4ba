#pragma once

#include "vekLogicalDiskInfo.h"
#include "vekSASLSIEvent.h"

class vekMegaRAIDController;

// Folds the many firmware events of one consistency check into one system
// event: findings are counted on the logical disk while the check runs, and
// the closing event sends their summary.
class vekMegaRAIDConsistencyCheckEventHandler {
public:
    // True when the event was consumed, and the general analysis ends.
    static bool processConsistencyCheckEvents(vekMegaRAIDController* controller, vekLogicalDiskInfo& disk,
                                              VEK_SAS_EVENT_DETAIL* detail);
};
