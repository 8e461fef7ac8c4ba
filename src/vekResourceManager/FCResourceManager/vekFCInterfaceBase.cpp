#include "vekFCInterface.h"

#include "vekIOGeoIDHelper.h"
#include "vekLog.h"
#include "vekOSInterface.h"
#include "vekPCIeManufacturerResolver.h"
#include "vekPhysLocFactory.h"

namespace {
const char TAG[] = "FC_OS_INTF_BASE";
} // namespace

void vekFCInterfaceBase::getFCPCIeProperties(std::string pciAddress, std::string& description,
                                             std::string& physicalLocation)
{
    description = "PCI " + pciAddress + " " + vekIOGeoIDHelper::getInstance().getGeoIDStr(pciAddress);
    physicalLocation = vekPhysLocFactory::getPhysLocInterface()->getPhysLocForPCIDevice(pciAddress);
}

void vekFCInterfaceBase::getFCManufacturer(std::string pciAddress, std::string& manufacturer)
{
    std::string subVendor;
    os_.getPCIeManufacturerResolverInterface()->fetchManufacturer(pciAddress, manufacturer, subVendor);
    VEK_LOG_DEBUG(TAG, "Manufacturer: [%s]", manufacturer.c_str());
}

VEK_RESOURCE_STATE vekFCInterfaceBase::getFCDeviceStateValue(int portState)
{
    switch (portState) {
    case HBA_PORTSTATE_ONLINE:
        return VEK_STATE_ONLINE;
    case HBA_PORTSTATE_OFFLINE:
        return VEK_STATE_OFFLINE;
    case HBA_PORTSTATE_BYPASSED:
        return VEK_STATE_BYPASSED;
    case HBA_PORTSTATE_DIAGNOSTICS:
        return VEK_STATE_DIAGNOSTIC_MODE;
    case HBA_PORTSTATE_LINKDOWN:
        return VEK_STATE_LINKDOWN;
    case HBA_PORTSTATE_ERROR:
        return VEK_STATE_ERROR;
    case HBA_PORTSTATE_LOOPBACK:
        return VEK_STATE_LOOPBACK;
    default:
        return VEK_STATE_UNKNOWN;
    }
}

VEK_RESOURCE_HEALTH vekFCInterfaceBase::getFCDeviceHealthValue(VEK_RESOURCE_STATE state)
{
    switch (state) {
    case VEK_STATE_ONLINE:
        return VEK_HEALTH_OK;
    case VEK_STATE_OFFLINE:
    case VEK_STATE_DIAGNOSTIC_MODE:
    case VEK_STATE_LOOPBACK:
    case VEK_STATE_BYPASSED:
        return VEK_HEALTH_WARNING;
    case VEK_STATE_LINKDOWN:
    case VEK_STATE_ERROR:
        return VEK_HEALTH_CRITICAL;
    default:
        return VEK_HEALTH_UNKNOWN;
    }
}
