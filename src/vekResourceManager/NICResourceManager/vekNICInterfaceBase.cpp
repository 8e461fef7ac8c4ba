#include "vekNICInterface.h"

#include "vekIOGeoIDHelper.h"
#include "vekLog.h"
#include "vekPhysLocFactory.h"

namespace {
const char TAG[] = "NIC_OS_INTF_BASE";
} // namespace

void vekNICInterfaceBase::getNICStateAndHealthValues(int condition, VEK_RESOURCE_STATE& state,
                                                     VEK_RESOURCE_HEALTH& health)
{
    VEK_LOG_DEBUG(TAG, "The adapterCondition is %d", condition);
    switch (condition) {
    case 1:
    case 2:
        state = VEK_STATE_ONLINE;
        health = VEK_HEALTH_OK;
        break;
    case 3:
        state = VEK_STATE_OFFLINE;
        health = VEK_HEALTH_CRITICAL;
        break;
    case 4:
        state = VEK_STATE_LINKDOWN;
        health = VEK_HEALTH_OK;
        break;
    case 5:
        state = VEK_STATE_OFFLINE;
        health = VEK_HEALTH_OK;
        break;
    default:
        state = VEK_STATE_DOWN;
        health = VEK_HEALTH_OK;
        break;
    }
}

void vekNICInterfaceBase::getNICPCIeProperties(const std::string& pciAddress, std::string& description,
                                               std::string& physicalLocation)
{
    description = "PCI " + pciAddress + " " + vekIOGeoIDHelper::getInstance().getGeoIDStr(pciAddress);
    physicalLocation = vekPhysLocFactory::getPhysLocInterface()->getPhysLocForNetworkAdapter(pciAddress);
}
