#include "vekNICEventManager.h"

#include "NICResourceManager.h"

#include "ISubject.h"
#include "vekGlobalDef.h"
#include "vekIOMatrixInterface.h"
#include "vekInBandComManager.h"
#include "vekLog.h"
#include "vekNICInterface.h"
#include "vekOSInterface.h"
#include "vekPlatformServices.h"

#include <stdexcept>

namespace {

const char TAG[] = "NIC_EVT_MGR";

// The events of the Ethernet family.
const IELEVENT::IELEventId kInjectedEvent = static_cast<IELEVENT::IELEventId>(1);
const IELEVENT::IELEventId kNicOk = static_cast<IELEVENT::IELEventId>(27);
const IELEVENT::IELEventId kPortError = static_cast<IELEVENT::IELEventId>(28);
const IELEVENT::IELEventId kLinkDown = static_cast<IELEVENT::IELEventId>(29);
const IELEVENT::IELEventId kLinkUp = static_cast<IELEVENT::IELEventId>(30);

} // namespace

vekNICEventManager::vekNICEventManager(vekPlatformServices* services, vekOSInterface* system)
    : attachment_(TAG, VEK_OBSERVABLE_ASPECT_NIC), services_(services), system_(system)
{
}

vekObservableStatus vekNICEventManager::notifyChange(ISubject*, vekObservableAspect, std::string)
{
    // Port statuses come with their port; see the other notifyChange.
    return VEK_OBSERVABLE_STATUS_SUCCESS;
}

vekObservableStatus vekNICEventManager::notifyAttach(ISubject* subject, vekObservableAspect aspect)
{
    return attachment_.attach(getObserverName(), subject, aspect);
}

vekObservableStatus vekNICEventManager::notifyDetach(ISubject* subject, vekObservableAspect aspect)
{
    return attachment_.detach(getObserverName(), subject, aspect);
}

NetworkEvents vekNICEventManager::computeNICDevicePortState(VEK_RESOURCE_STATE state, VEK_RESOURCE_HEALTH health)
{
    if (state == VEK_STATE_INITIALIZING && health == VEK_HEALTH_OK) {
        return Port_Link_Initializing;
    }
    if (state == VEK_STATE_LINKDOWN && health == VEK_HEALTH_OK) {
        return Port_Link_Down;
    }
    if (state == VEK_STATE_OFFLINE) {
        return health == VEK_HEALTH_CRITICAL ? Port_Error : Port_Link_Disabled;
    }
    if (state == VEK_STATE_ONLINE && health == VEK_HEALTH_OK) {
        return Port_Link_Up;
    }
    return Not_Found;
}

vekObservableStatus vekNICEventManager::notifyChange(ISubject* subject, vekObservableAspect aspect, std::string,
                                                     std::string name, VEK_RESOURCE_STATE* state,
                                                     VEK_RESOURCE_HEALTH* health)
{
    VEK_LOG_DEBUG(TAG, "Change notified");
    if (!attachment_.isAttachedTo(subject)) {
        return VEK_OBSERVABLE_STATUS_NOT_ATTACHED;
    }
    changed_ = true;
    if (aspect != VEK_OBSERVABLE_ASPECT_NIC) {
        return VEK_OBSERVABLE_STATUS_UNSUPPORTED_ASPECT;
    }
    try {
        const NetworkEvents event = computeNICDevicePortState(*state, *health);
        if (event == Not_Found) {
            VEK_LOG_DEBUG(TAG,
                          "Unrecognized network port state identified for (%s), hence we are not processing the "
                          "notification further",
                          name.c_str());
            return VEK_OBSERVABLE_STATUS_SUCCESS;
        }
        std::unique_ptr<vekIODevicePortContext> context = fetchNICDevicePortContext(name);
        if (!context) {
            VEK_LOG_WARNING(TAG, "Unable to process the incoming NIC event notification for %s : NULL pointer detected",
                            name.c_str());
            return VEK_OBSERVABLE_STATUS_FAILURE;
        }
        context->handlePortStateChange(event);
        updateNICDevicePortContext(name, std::move(context));
    } catch (const std::exception& e) {
        VEK_LOG_ERROR(TAG, "Unable to process the incoming NIC event notification for %s, Reason : %s", name.c_str(),
                      e.what());
        return VEK_OBSERVABLE_STATUS_FAILURE;
    }
    return VEK_OBSERVABLE_STATUS_SUCCESS;
}

std::unique_ptr<vekIODevicePortContext> vekNICEventManager::fetchNICDevicePortContext(const std::string& name)
{
    std::lock_guard<std::mutex> lock(mapMutex_);
    const auto found = nicDevicesPortContextStateMap.find(name);
    if (found == nicDevicesPortContextStateMap.end()) {
        VEK_LOG_WARNING(TAG, "%s entry not found in nicDevicesPortContextStateMap", name.c_str());
        return nullptr;
    }
    return std::move(found->second);
}

void vekNICEventManager::updateNICDevicePortContext(const std::string& name,
                                                    std::unique_ptr<vekIODevicePortContext> context)
{
    std::lock_guard<std::mutex> lock(mapMutex_);
    nicDevicesPortContextStateMap.erase(name);
    nicDevicesPortContextStateMap.emplace(name, std::move(context));
}

void vekNICEventManager::initNICDevicesPortContextMap(const std::vector<std::string>& names)
{
    try {
        vekNICInterface* nic = system_->getNICInterface();
        for (const std::string& name : names) {
            NICDeviceInfo info;
            info.InterfaceName = name;
            nic->discoverNICStatusInfo(name, info);
            const NetworkEvents event = computeNICDevicePortState(info.deviceStatus.state, info.deviceStatus.health);
            if (event == Not_Found) {
                VEK_LOG_DEBUG(TAG,
                              "Unrecognized network state identified for (%s), hence it will not bemonitored for "
                              "state change",
                              name.c_str());
                continue;
            }
            std::lock_guard<std::mutex> lock(mapMutex_);
            nicDevicesPortContextStateMap[name].reset(new vekIODevicePortContext(event, name, this));
        }
    } catch (const std::exception& e) {
        VEK_LOG_ERROR(TAG, "Unable to initialize IO Device Port Context map : %s", e.what());
    }
}

std::map<std::string, int> vekNICEventManager::getPortStates()
{
    std::lock_guard<std::mutex> lock(mapMutex_);
    std::map<std::string, int> states;
    for (const auto& entry : nicDevicesPortContextStateMap) {
        states[entry.first] = entry.second ? entry.second->getCurrentStateID() : -1;
    }
    return states;
}

void vekNICEventManager::setEventPayloadAttributes(const NetworkEvents& event, const std::string&,
                                                   IELEVENT::IELEventId& id, bool& serviceEvent)
{
    switch (event) {
    case Port_Link_Up:
        id = kLinkUp;
        serviceEvent = false;
        break;
    case Port_Link_Down:
        id = kLinkDown;
        serviceEvent = true;
        break;
    case Port_Error:
        id = kPortError;
        serviceEvent = true;
        break;
    case Port_NIC_OK:
        id = kNicOk;
        serviceEvent = false;
        break;
    default:
        serviceEvent = false;
        break;
    }
}

std::string vekNICEventManager::getEventInfoDescription(const IELEVENT::IELEventId& id)
{
    switch (static_cast<int>(id)) {
    case 1:
        return "Injected Event";
    case 27:
    case 30:
        return "";
    case 28:
        return "Errors detected on NIC, use 'ip' command for status. Refer to syslog for further details.";
    case 29:
        return "The connectivity between the Ethernet port and the switch has been lost.";
    default:
        VEK_LOG_WARNING(TAG, "An Un-Recognized event id %d found", static_cast<int>(id));
        return "";
    }
}

Json::Value vekNICEventManager::getVariableData(NICDeviceInfo& info, IELEVENT::IELEventId id)
{
    Json::Value data(Json::objectValue);
    data["Data"] = info.getNICDeviceInfoJson();
    data["Type"] = "EthernetDevice";
    data["EventInfo"] = getEventInfoDescription(id);
    return data;
}

void vekNICEventManager::generateNetworkEvent(const std::string& device, const IELEVENT::IELEventId& id,
                                              const bool& serviceEvent)
{
    // An event that cannot be built throws to the port's transition, which
    // then ends: no later event of that change and no inventory update. Only
    // the hand-over to the RMC is answered here, since the state has moved
    // on whether or not the event got out.
    NICDeviceInfo info;
    system_->getNICInterface()->discoverNICProperties(device, info);
    matrix_.supplementAdditionalNICProperties(info);
    Json::Value data = getVariableData(info, id);
    IELEventResolver* resolver = services_->getIELEventResolver();
    if (resolver == nullptr) {
        throw std::runtime_error("No event resolver for this platform");
    }
    const int number = (*resolver)(id);
    vekEvent event(number, info.physicalLocation, "NICEVENT", serviceEvent, vekGlobalDef::timeUtils::getUTCTime(),
                   "Not Available", data, "VEK");
    try {
        vekInBandComManager* com = services_->getInbandComInterface();
        if (com == nullptr) {
            throw std::runtime_error("no communication manager");
        }
        com->sendEvent(event);
    } catch (const std::exception&) {
        VEK_LOG_ERROR(TAG, "Event [%d] Failed to send for the NIC device at PL[%s]", number,
                      info.physicalLocation.c_str());
    }
}

void vekNICEventManager::postProcessingEventNotification(const std::string& device)
{
    NICDeviceInfo info;
    system_->getNICInterface()->discoverNICStatusInfo(device, info);
    vekNICInventoryManager::getInstance().updateInventory(device, info.deviceStatus);
}
