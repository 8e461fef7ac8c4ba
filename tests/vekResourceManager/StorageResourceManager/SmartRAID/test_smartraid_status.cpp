// What the SmartRAID library's status words become in the inventory.

#include "vekSmartRAIDStatus.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <string>

namespace {

struct StatusCase {
    const char* what;
    vekSmartRAIDStatus (*map)(uint32_t);
    uint32_t word;
    VEK_RESOURCE_STATE state;
    VEK_RESOURCE_HEALTH health;
};

const StatusCase kCases[] = {
    // Controller: low nibble a, next nibble b, next byte c, next byte d.
    {"controller all clear", sciControllerStatusToVEKStatus, 0x0, VEK_STATE_RUNNING, VEK_HEALTH_OK},
    {"controller failed (a=2)", sciControllerStatusToVEKStatus, 0x2, VEK_STATE_FAILED, VEK_HEALTH_CRITICAL},
    {"controller failed wins over degraded", sciControllerStatusToVEKStatus, 0x20032, VEK_STATE_FAILED,
     VEK_HEALTH_CRITICAL},
    {"controller b=3, c=7", sciControllerStatusToVEKStatus, 0x0730, VEK_STATE_DEGRADED, VEK_HEALTH_WARNING},
    {"controller b=3, c=2 is no reason", sciControllerStatusToVEKStatus, 0x0230, VEK_STATE_RUNNING, VEK_HEALTH_OK},
    {"controller b=4, c=17 (bit of 0x37EF60000)", sciControllerStatusToVEKStatus, 0x1140, VEK_STATE_DEGRADED,
     VEK_HEALTH_WARNING},
    {"controller b=4, c=16 (not a bit)", sciControllerStatusToVEKStatus, 0x1040, VEK_STATE_RUNNING, VEK_HEALTH_OK},
    {"controller b=4, c=33", sciControllerStatusToVEKStatus, 0x2140, VEK_STATE_DEGRADED, VEK_HEALTH_WARNING},
    {"controller b=4, c=40 is past the mask", sciControllerStatusToVEKStatus, 0x2840, VEK_STATE_RUNNING,
     VEK_HEALTH_OK},
    {"controller d=4", sciControllerStatusToVEKStatus, 0x040000, VEK_STATE_DEGRADED, VEK_HEALTH_WARNING},
    {"controller d=3", sciControllerStatusToVEKStatus, 0x030000, VEK_STATE_RUNNING, VEK_HEALTH_OK},
    // Drive: by mask, the last match wins.
    {"drive clear", sciDiskStatusToVEKStatus, 0x0, VEK_STATE_RUNNING, VEK_HEALTH_OK},
    {"drive rebuilding", sciDiskStatusToVEKStatus, 0x100000, VEK_STATE_REBUILD, VEK_HEALTH_OK},
    {"drive offline", sciDiskStatusToVEKStatus, 0x4000, VEK_STATE_OFFLINE, VEK_HEALTH_WARNING},
    {"drive predictive failure over offline", sciDiskStatusToVEKStatus, 0x4800, VEK_STATE_PREDICTIVE_FAILURE,
     VEK_HEALTH_WARNING},
    {"drive low bits both set", sciDiskStatusToVEKStatus, 0x3, VEK_STATE_FAILED, VEK_HEALTH_CRITICAL},
    {"drive one low bit", sciDiskStatusToVEKStatus, 0x1, VEK_STATE_RUNNING, VEK_HEALTH_OK},
    {"drive failed over predictive", sciDiskStatusToVEKStatus, 0x801000, VEK_STATE_FAILED, VEK_HEALTH_CRITICAL},
    // Volume: by value.
    {"volume optimal", sciVolumeStatusToVEKStatus, 0, VEK_STATE_OPTIMAL, VEK_HEALTH_OK},
    {"volume failed", sciVolumeStatusToVEKStatus, 1, VEK_STATE_FAILED, VEK_HEALTH_CRITICAL},
    {"volume offline", sciVolumeStatusToVEKStatus, 2, VEK_STATE_OFFLINE, VEK_HEALTH_WARNING},
    {"volume degraded (3)", sciVolumeStatusToVEKStatus, 3, VEK_STATE_DEGRADED, VEK_HEALTH_WARNING},
    {"volume degraded (8)", sciVolumeStatusToVEKStatus, 8, VEK_STATE_DEGRADED, VEK_HEALTH_WARNING},
    {"volume degraded critical", sciVolumeStatusToVEKStatus, 9, VEK_STATE_DEGRADED, VEK_HEALTH_CRITICAL},
    {"volume 10 is optimal", sciVolumeStatusToVEKStatus, 10, VEK_STATE_OPTIMAL, VEK_HEALTH_OK},
    {"volume offline healthy", sciVolumeStatusToVEKStatus, 11, VEK_STATE_OFFLINE, VEK_HEALTH_OK},
    {"volume offline critical", sciVolumeStatusToVEKStatus, 15, VEK_STATE_OFFLINE, VEK_HEALTH_CRITICAL},
    // Enclosure: four two-bit fields from the lowest.
    {"enclosure clear", sciEnclosureStatusToVEKStatus, 0x0, VEK_STATE_RUNNING, VEK_HEALTH_OK},
    {"enclosure first pair 2", sciEnclosureStatusToVEKStatus, 0x2, VEK_STATE_DEGRADED, VEK_HEALTH_OK},
    {"enclosure first pair 1", sciEnclosureStatusToVEKStatus, 0x1, VEK_STATE_RUNNING, VEK_HEALTH_OK},
    {"enclosure second pair 1", sciEnclosureStatusToVEKStatus, 0x4, VEK_STATE_DEGRADED, VEK_HEALTH_OK},
    {"enclosure third pair 1", sciEnclosureStatusToVEKStatus, 0x10, VEK_STATE_DEGRADED, VEK_HEALTH_OK},
    {"enclosure fourth pair 2", sciEnclosureStatusToVEKStatus, 0x80, VEK_STATE_DEGRADED, VEK_HEALTH_OK},
    {"enclosure fourth pair 1", sciEnclosureStatusToVEKStatus, 0x40, VEK_STATE_RUNNING, VEK_HEALTH_OK},
};

} // namespace

TEST(SmartRAIDStatus, StatusWordsMapToStateAndHealth)
{
    for (const StatusCase& c : kCases) {
        const vekSmartRAIDStatus status = c.map(c.word);
        EXPECT_EQ(vekResourceStateMap[status.state], vekResourceStateMap[c.state]) << c.what;
        EXPECT_EQ(vekResourceHealthMap[status.health], vekResourceHealthMap[c.health]) << c.what;
    }
}
