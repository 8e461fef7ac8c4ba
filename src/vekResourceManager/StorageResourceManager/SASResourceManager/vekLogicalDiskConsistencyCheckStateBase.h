#pragma once

#include <memory>

// The progress of a consistency check on one logical disk, as a controller
// family tracks it. A logical disk record owns its states and copies them
// through clone(), so two records never share one.
class vekLogicalDiskConsistencyCheckStateBase {
public:
    virtual ~vekLogicalDiskConsistencyCheckStateBase() = default;
    virtual std::unique_ptr<vekLogicalDiskConsistencyCheckStateBase> clone() const = 0;
};
