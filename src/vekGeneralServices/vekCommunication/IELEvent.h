#pragma once

#include <map>

namespace IELEVENT {

// The kinds of event the system raises, by internal id. The RMC knows them
// by its own numbers, which depend on the platform: IELEventResolver gives
// the number. Kinds without a name here are known to the RMC's catalogue
// only by their number.
enum IELEventId : int {
    IEL_EVENT_2 = 2,
    IEL_EVENT_3 = 3,
    IEL_EVENT_4 = 4,
    IEL_EVENT_5 = 5,
    IEL_EVENT_6 = 6,
    IEL_STORAGE_CONTROLLER_OK = 7,
    IEL_STORAGE_CONTROLLER_FAULT = 8,
    IEL_NVME_CONTROLLER_OK = 9,
    IEL_NVME_CONTROLLER_CRITICAL = 10,
    IEL_NVME_CONTROLLER_WARNING = 11,
    IEL_DRIVE_OK = 12,
    IEL_DRIVE_FAILED = 13,
    IEL_DRIVE_PREDICTIVE_FAILURE = 14,
    IEL_EVENT_15 = 15,
    IEL_FC_PORT_ONLINE = 16,
    IEL_FC_PORT_OFFLINE = 17,
    IEL_FC_PORT_LINK_DOWN = 18,
    IEL_FC_PORT_FAILED = 19,
    IEL_EVENT_20 = 20,
    IEL_FC_PORT_LINK_UP = 21,
    IEL_LOGICAL_DISK_DEGRADED = 22,
    IEL_LOGICAL_DISK_OPTIMAL = 23,
    IEL_CONSISTENCY_CHECK_FAILED = 24,
    IEL_CONSISTENCY_CHECK_WARNING = 25,
    IEL_CONSISTENCY_CHECK_PASSED = 26,
    IEL_NIC_PORT_OK = 27,
    IEL_NIC_PORT_ERROR = 28,
    IEL_NIC_PORT_LINK_DOWN = 29,
    IEL_NIC_PORT_LINK_UP = 30,
    IEL_EVENT_31 = 31,
    IEL_EVENT_32 = 32,
    IEL_EVENT_33 = 33,
    IEL_EVENT_34 = 34,
    IEL_EVENT_35 = 35,
    IEL_EVENT_36 = 36,
    IEL_EVENT_37 = 37,
    IEL_EVENT_38 = 38,
    IEL_EVENT_39 = 39,
    IEL_EVENT_40 = 40,
    IEL_EVENT_41 = 41,
    IEL_EVENT_42 = 42,
    IEL_EVENT_43 = 43,
    IEL_EVENT_44 = 44,
    IEL_EVENT_45 = 45,
    IEL_EVENT_46 = 46,
    IEL_EVENT_47 = 47,
    IEL_EVENT_48 = 48,
    IEL_EVENT_49 = 49,
    IEL_EVENT_50 = 50,
};

} // namespace IELEVENT

// Maps an internal event id to the RMC's event number on this platform.
// Raises std::runtime_error for an id that the platform's table doesn't hold.
class IELEventResolver {
public:
    virtual ~IELEventResolver() = default;
    virtual int operator()(IELEVENT::IELEventId id) = 0;
};

namespace IELEventMap {

using EventTable = std::map<IELEVENT::IELEventId, int>;

// The table of the TRB platform (platform code 4): 49 pairs.
class IELEventTRB : public IELEventResolver {
public:
    IELEventTRB();
    int operator()(IELEVENT::IELEventId id) override;

private:
    EventTable events_;
};

// The table of the platforms before TRB: 47 pairs, without ids 49 and 50.
class IELEventPreTRB : public IELEventResolver {
public:
    IELEventPreTRB();
    int operator()(IELEVENT::IELEventId id) override;

private:
    EventTable events_;
};

} // namespace IELEventMap
