#pragma once

#include "vekStatusInfo.h"

#include <cstdint>

// What the SmartRAID library's status words mean to the inventory. Plain
// functions of a word, so that the tables are tested without a library.
struct vekSmartRAIDStatus {
    VEK_RESOURCE_STATE state;
    VEK_RESOURCE_HEALTH health;
};

vekSmartRAIDStatus sciControllerStatusToVEKStatus(uint32_t word);
vekSmartRAIDStatus sciDiskStatusToVEKStatus(uint32_t word);
vekSmartRAIDStatus sciVolumeStatusToVEKStatus(uint32_t value);
vekSmartRAIDStatus sciEnclosureStatusToVEKStatus(uint32_t word);
