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

vekFCEventManager::vekFCEventManager(vekPlatformServices* services) : services_(services) {}

vekObservableStatus vekFCEventManager::notifyChange(ISubject*, vekObservableAspect, std::string)
{
    // Changes come with their adapter; see the other notifyChange.
    return VEK_OBSERVABLE_STATUS_SUCCESS;
}

vekObservableStatus vekFCEventManager::notifyAttach(ISubject* subject, vekObservableAspect aspect)
{
    const std::string me = getObserverName();
    const std::string name = subject != nullptr ? subject->getSubjectName() : "";
    if (aspect != VEK_OBSERVABLE_ASPECT_FC) {
        VEK_LOG_WARNING(TAG, "Observer[%s]: Unrecognized aspect [%d].", me.c_str(), aspect);
        return VEK_OBSERVABLE_STATUS_UNSUPPORTED_ASPECT;
    }
    if (!attached_) {
        VEK_LOG_DEBUG(TAG, "Observer[%s]: Processing attach notification from subject [%s].", me.c_str(),
                      name.c_str());
        subject_ = subject;
        attached_ = true;
        return VEK_OBSERVABLE_STATUS_SUCCESS;
    }
    if (subject_ == subject) {
        VEK_LOG_DEBUG(TAG, "Observer[%s]: Duplicate attach notification from subject [%s].", me.c_str(),
                      name.c_str());
        return VEK_OBSERVABLE_STATUS_SUCCESS;
    }
    VEK_LOG_WARNING(TAG,
                    "Observer[%s]: Attach notification received from subject [%s] when already attached to subject "
                    "[%s].",
                    me.c_str(), name.c_str(), subject_->getSubjectName().c_str());
    return VEK_OBSERVABLE_STATUS_ALREADY_ATTACHED;
}

vekObservableStatus vekFCEventManager::notifyDetach(ISubject* subject, vekObservableAspect aspect)
{
    const std::string me = getObserverName();
    const std::string name = subject != nullptr ? subject->getSubjectName() : "";
    if (attached_ && subject == subject_ && aspect == VEK_OBSERVABLE_ASPECT_FC) {
        VEK_LOG_DEBUG(TAG, "Observer[%s]: Detaching from subject [%s].", me.c_str(), name.c_str());
        subject_ = nullptr;
        attached_ = false;
        return VEK_OBSERVABLE_STATUS_SUCCESS;
    }
    VEK_LOG_WARNING(TAG,
                    "Observer[%s]: Not detached due to unregistered observer [%s], unrecognized subject [%s] or aspect "
                    "[%d].",
                    me.c_str(), attached_ ? "true" : "false", name.c_str(), aspect);
    return VEK_OBSERVABLE_STATUS_NOT_ATTACHED;
}

vekObservableStatus vekFCEventManager::notifyChange(ISubject* subject, vekObservableAspect aspect, std::string,
                                                    std::string name, int eventId, bool serviceEvent,
                                                    FCDeviceInfo* info)
{
    VEK_LOG_DEBUG(TAG, "Change notified");
    if (!attached_ || aspect != VEK_OBSERVABLE_ASPECT_FC || subject != subject_ || info == nullptr) {
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
