#include "IELEvent.h"

#include <stdexcept>

namespace {

using namespace IELEVENT;
using IELEventMap::EventTable;

// The numbers every platform shares.
EventTable commonEvents()
{
    return {
        {IEL_EVENT_2, 434},
        {IEL_EVENT_3, 435},
        {IEL_EVENT_4, 356},
        {IEL_EVENT_5, 359},
        {IEL_EVENT_6, 360},
        {IEL_STORAGE_CONTROLLER_OK, 397},
        {IEL_STORAGE_CONTROLLER_FAULT, 398},
        {IEL_NVME_CONTROLLER_OK, 835},
        {IEL_NVME_CONTROLLER_CRITICAL, 837},
        {IEL_NVME_CONTROLLER_WARNING, 836},
        {IEL_DRIVE_OK, 540},
        {IEL_DRIVE_FAILED, 538},
        {IEL_DRIVE_PREDICTIVE_FAILURE, 539},
        {IEL_EVENT_15, 383},
        {IEL_FC_PORT_ONLINE, 384},
        {IEL_FC_PORT_OFFLINE, 385},
        {IEL_FC_PORT_LINK_DOWN, 386},
        {IEL_FC_PORT_FAILED, 388},
        {IEL_EVENT_20, 390},
        {IEL_FC_PORT_LINK_UP, 1391},
        {IEL_LOGICAL_DISK_DEGRADED, 681},
        {IEL_LOGICAL_DISK_OPTIMAL, 683},
        {IEL_CONSISTENCY_CHECK_FAILED, 1385},
        {IEL_CONSISTENCY_CHECK_WARNING, 1387},
        {IEL_CONSISTENCY_CHECK_PASSED, 1388},
        {IEL_NIC_PORT_OK, 680},
        {IEL_NIC_PORT_ERROR, 678},
        {IEL_NIC_PORT_LINK_DOWN, 1384},
        {IEL_NIC_PORT_LINK_UP, 1390},
        {IEL_EVENT_31, 708},
        {IEL_EVENT_32, 1138},
        {IEL_EVENT_33, 1139},
        {IEL_EVENT_34, 1150},
        {IEL_EVENT_36, 1152},
        {IEL_EVENT_37, 1148},
        {IEL_EVENT_38, 1151},
        {IEL_EVENT_39, 1179},
        {IEL_EVENT_40, 1180},
        {IEL_EVENT_41, 1181},
        {IEL_EVENT_42, 1182},
        {IEL_EVENT_43, 1183},
        {IEL_EVENT_44, 1337},
        {IEL_EVENT_45, 1338},
    };
}

int resolve(const EventTable& events, IELEventId id)
{
    const auto found = events.find(id);
    if (found == events.end()) {
        throw std::runtime_error("IEL Event Not Matching");
    }
    return found->second;
}

} // namespace

namespace IELEventMap {

IELEventTRB::IELEventTRB() : events_(commonEvents())
{
    events_.insert({
        {IEL_EVENT_35, 1978},
        {IEL_EVENT_46, 1750},
        {IEL_EVENT_47, 1751},
        {IEL_EVENT_48, 1752},
        {IEL_EVENT_49, 1968},
        {IEL_EVENT_50, 1969},
    });
}

int IELEventTRB::operator()(IELEventId id)
{
    return resolve(events_, id);
}

IELEventPreTRB::IELEventPreTRB() : events_(commonEvents())
{
    events_.insert({
        {IEL_EVENT_35, 1501},
        {IEL_EVENT_46, 1441},
        {IEL_EVENT_47, 1442},
        {IEL_EVENT_48, 1443},
    });
}

int IELEventPreTRB::operator()(IELEventId id)
{
    return resolve(events_, id);
}

} // namespace IELEventMap
