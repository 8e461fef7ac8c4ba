#include "vekSmartRAIDStatus.h"

vekSmartRAIDStatus sciControllerStatusToVEKStatus(uint32_t word)
{
    vekSmartRAIDStatus status{VEK_STATE_RUNNING, VEK_HEALTH_OK};
    const uint32_t a = word & 0xF;
    const uint32_t b = (word >> 4) & 0xF;
    const uint32_t c = (word >> 8) & 0xFF;
    const uint32_t d = (word >> 16) & 0xFF;
    const uint64_t degradedReasons = 0x37EF60000ULL;
    const bool degraded = (b == 3 && (c == 1 || c == 7 || c == 9 || c == 10 || c == 12 || c == 14)) ||
                          (b == 4 && c < 34 && ((degradedReasons >> c) & 1) != 0) || d == 2 || d == 4 || d == 8;
    if (a == 2) {
        status = {VEK_STATE_FAILED, VEK_HEALTH_CRITICAL};
    } else if (degraded) {
        status = {VEK_STATE_DEGRADED, VEK_HEALTH_WARNING};
    }
    return status;
}

vekSmartRAIDStatus sciDiskStatusToVEKStatus(uint32_t word)
{
    vekSmartRAIDStatus status{VEK_STATE_RUNNING, VEK_HEALTH_OK};
    if ((word & 0x300000) != 0) {
        status = {VEK_STATE_REBUILD, VEK_HEALTH_OK};
    }
    if ((word & 0x4000) != 0) {
        status = {VEK_STATE_OFFLINE, VEK_HEALTH_WARNING};
    }
    if ((word & 0x1800) != 0) {
        status = {VEK_STATE_PREDICTIVE_FAILURE, VEK_HEALTH_WARNING};
    }
    if ((word & 0x3) == 0x3 || (word & 0xC08700) != 0) {
        status = {VEK_STATE_FAILED, VEK_HEALTH_CRITICAL};
    }
    return status;
}

vekSmartRAIDStatus sciVolumeStatusToVEKStatus(uint32_t value)
{
    switch (value) {
    case 1:
        return {VEK_STATE_FAILED, VEK_HEALTH_CRITICAL};
    case 2:
        return {VEK_STATE_OFFLINE, VEK_HEALTH_WARNING};
    case 3:
    case 4:
    case 5:
    case 6:
    case 7:
    case 8:
        return {VEK_STATE_DEGRADED, VEK_HEALTH_WARNING};
    case 9:
        return {VEK_STATE_DEGRADED, VEK_HEALTH_CRITICAL};
    case 11:
        return {VEK_STATE_OFFLINE, VEK_HEALTH_OK};
    case 14:
    case 15:
        return {VEK_STATE_OFFLINE, VEK_HEALTH_CRITICAL};
    default:
        return {VEK_STATE_OPTIMAL, VEK_HEALTH_OK};
    }
}

vekSmartRAIDStatus sciEnclosureStatusToVEKStatus(uint32_t word)
{
    // Four two-bit fields, the first in the lowest bits.
    const uint32_t p0 = word & 0x3;
    const uint32_t p1 = (word >> 2) & 0x3;
    const uint32_t p2 = (word >> 4) & 0x3;
    const uint32_t p3 = (word >> 6) & 0x3;
    if (p0 == 2 || p1 == 1 || p2 == 1 || p3 == 2) {
        return {VEK_STATE_DEGRADED, VEK_HEALTH_OK};
    }
    return {VEK_STATE_RUNNING, VEK_HEALTH_OK};
}
