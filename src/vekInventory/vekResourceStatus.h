#pragma once

#include <cstdint>
#include <map>
#include <string>

// The state and health vocabulary shared by all resources. The values and
// their words are what the RMC receives; neither may change.

enum VEK_RESOURCE_STATE : uint8_t {
    VEK_STATE_UNKNOWN = 0,
    VEK_STATE_BYPASSED = 1,
    VEK_STATE_CANCEL = 2,
    VEK_STATE_CANCEL_RECOVERY = 3,
    VEK_STATE_CREATED = 4,
    VEK_STATE_DEGRADED = 5,
    VEK_STATE_DELETED = 6,
    VEK_STATE_DELETED_RECOVERY = 7,
    VEK_STATE_DIAGNOSTIC_MODE = 8,
    VEK_STATE_DISABLED = 9,
    VEK_STATE_DOWN = 10,
    VEK_STATE_ERROR = 11,
    VEK_STATE_FAILED = 12,
    VEK_STATE_INITIALIZING = 13,
    VEK_STATE_LINKDOWN = 14,
    VEK_STATE_LOOPBACK = 15,
    VEK_STATE_OFFLINE = 16,
    VEK_STATE_ONLINE = 17,
    VEK_STATE_OPTIMAL = 18,
    VEK_STATE_OTHER = 19,
    VEK_STATE_PARTIALLY_DEGRADED = 20,
    VEK_STATE_PREDICTIVE_FAILURE = 21,
    VEK_STATE_REBUILD = 22,
    VEK_STATE_RECOVERING = 23,
    VEK_STATE_RECOVERY = 24,
    VEK_STATE_RUNNING = 25,
    VEK_STATE_UNCONFIGURED_BAD = 26,
};

const int VEK_RESOURCE_STATE_COUNT = 27;

// Not an order of severity: never compare health values with less-than.
enum VEK_RESOURCE_HEALTH : uint8_t {
    VEK_HEALTH_UNKNOWN = 0,
    VEK_HEALTH_CRITICAL = 1,
    VEK_HEALTH_OK = 2,
    VEK_HEALTH_WARNING = 3,
};

const int VEK_RESOURCE_HEALTH_COUNT = 4;

// Words by value. Indexed without a check: a record must hold a legal value.
extern const std::string vekResourceStateMap[VEK_RESOURCE_STATE_COUNT];
extern const std::string vekResourceHealthMap[VEK_RESOURCE_HEALTH_COUNT];

// Values by word, for collectors that read states as text: each word as in
// the tables above and in lower case, matched exactly.
extern const std::map<std::string, VEK_RESOURCE_STATE> vekResourceStateMapper;
extern const std::map<std::string, VEK_RESOURCE_HEALTH> vekResourceHealthMapper;

// The state and health pair of every PCIe record.
struct vekDeviceStatus {
    VEK_RESOURCE_STATE state = VEK_STATE_UNKNOWN;
    VEK_RESOURCE_HEALTH health = VEK_HEALTH_UNKNOWN;
};

inline bool operator==(const vekDeviceStatus& a, const vekDeviceStatus& b)
{
    return a.state == b.state && a.health == b.health;
}

inline bool operator!=(const vekDeviceStatus& a, const vekDeviceStatus& b)
{
    return !(a == b);
}
