#include "vekFCEventManager.h"

#include "FCResourceManager.h"
#include "ISubject.h"
#include "vekEvent.h"
#include "vekGlobalDef.h"
#include "vekInBandComManager.h"
#include "vekLog.h"
#include "vekPlatformServices.h"

#include <stdexcept>

namespace {

const char TAG[] = "FC_EVENT_MANAGER";

const std::string kFailedText = "The Fibre Channel device port has failed. ";
const std::string kLinkDownText =
    "Fibre channel device port has changed to a state of link down. Check the FC cabling to this port.";
const std::string kOfflineText = "The Fibre Channel device port has gone offline. ";
const std::string kReferText = "Refer to /var/log/messages for further details.";

std::string eventInfoText(int eventId)
{
    switch (eventId) {
    case 0:
        return "Injected Event";
    case 388:
        return kFailedText + kReferText;
    case 386:
        return kLinkDownText;
    case 385:
        return kOfflineText + kReferText;
    default:
        // 383, 384, 390, 1391 and any other id carry no text.
        return "";
    }
}

} // namespace

vekFCEventManager::vekFCEventManager(vekPlatformServices* services)
    : attachment_(TAG, VEK_OBSERVABLE_ASPECT_FC), services_(services)
{
}

vekObservableStatus vekFCEventManager::notifyChange(ISubject*, vekObservableAspect, std::string)
{
    // Changes come with their adapter; see the other notifyChange.
    return VEK_OBSERVABLE_STATUS_SUCCESS;
}

vekObservableStatus vekFCEventManager::notifyAttach(ISubject* subject, vekObservableAspect aspect)
{
    return attachment_.attach(getObserverName(), subject, aspect);
}

vekObservableStatus vekFCEventManager::notifyDetach(ISubject* subject, vekObservableAspect aspect)
{
    return attachment_.detach(getObserverName(), subject, aspect);
}

vekObservableStatus vekFCEventManager::notifyChange(ISubject* subject, vekObservableAspect aspect, std::string,
                                                    std::string name, int eventId, bool serviceEvent,
                                                    FCDeviceInfo* info)
{
    VEK_LOG_DEBUG(TAG, "Change notified");
    if (!attachment_.isAttachedTo(subject) || aspect != VEK_OBSERVABLE_ASPECT_FC || info == nullptr) {
        VEK_LOG_DEBUG(TAG, "FC event notification change will not be processed, Subject: %p",
                      static_cast<void*>(subject));
        return VEK_OBSERVABLE_STATUS_NOT_ATTACHED;
    }
    processEventGeneration(name, eventId, serviceEvent, *info);
    return VEK_OBSERVABLE_STATUS_SUCCESS;
}

void vekFCEventManager::processEventGeneration(const std::string& name, int eventId, bool serviceEvent,
                                               FCDeviceInfo& info)
{
    generateEvent(eventId, serviceEvent, info);
    vekFCInventoryManager::getInstance().updateInventory(name, info.deviceStatus);
}

Json::Value vekFCEventManager::getVariableData(const FCDeviceInfo& info, int eventId)
{
    Json::Value data(Json::objectValue);
    data["Data"] = info.getFCDeviceInfoJson();
    data["Type"] = "FibreChannelDevice";
    data["EventInfo"] = eventInfoText(eventId);
    return data;
}

void vekFCEventManager::generateEvent(int eventId, bool serviceEvent, FCDeviceInfo& info)
{
    // The ids are the RMC's numbers themselves; no resolver for this family.
    vekEvent event(eventId, info.physicalLocation, "FCHBA", serviceEvent, vekGlobalDef::timeUtils::getTime(),
                   "Not Available", getVariableData(info, eventId), "VEK");
    try {
        vekInBandComManager* com = services_ != nullptr ? services_->getInbandComInterface() : nullptr;
        if (com == nullptr) {
            throw std::runtime_error("no communication manager");
        }
        com->sendEvent(event);
    } catch (const std::exception&) {
        VEK_LOG_ERROR(TAG, "Event [%d] Failed to send for the FC HBA port at PL[%s]", eventId,
                      info.physicalLocation.c_str());
    }
}
