// The SmartRAID controller's events: what arrives on the storage library's
// own thread, filtered down to a few controller, drive and volume events.

#include "SASResourceManager.h"
#include "vekConfig.h"
#include "vekGlobalDef.h"
#include "vekLog.h"
#include "vekSmartRAIDController.h"
#include "vekSmartRAIDControllerFactory.h"

#include <cinttypes>
#include <cstdio>
#include <cstring>
#include <regex>

using vekGlobalDef::stringUtils;

namespace {

const char TAG[] = "STOR_SR";

const char* healthWord(VEK_RESOURCE_HEALTH health) { return vekResourceHealthMap[health].c_str(); }

// The event's controller date as host time; false when it is no date.
bool eventTime(const SA_CONTROLLER_EVENT& event, time_t offset, time_t& when)
{
    if (event.year < 1970 || event.month < 1 || event.month > 12 || event.day < 1 || event.day > 31 ||
        event.secondsSinceMidnight >= 86400) {
        return false;
    }
    struct tm parts {};
    parts.tm_year = event.year - 1900;
    parts.tm_mon = event.month - 1;
    parts.tm_mday = event.day;
    const time_t midnight = timegm(&parts);
    if (midnight == static_cast<time_t>(-1)) {
        return false;
    }
    when = midnight + static_cast<time_t>(event.secondsSinceMidnight) - offset;
    return true;
}

// The controller events the service reports, by class, subclass and detail.
struct ControllerEventRule {
    SA_WORD classCode;
    SA_WORD subclasses[2];
    SA_WORD details[2];
    VEK_RESOURCE_STATE state;
    VEK_RESOURCE_HEALTH health;
    int id;
};

const SA_WORD kNone = 0xFFFF;
const ControllerEventRule kControllerEvents[] = {
    {3, {4, kNone}, {0, kNone}, VEK_STATE_FAILED, VEK_HEALTH_CRITICAL, 398},
    {3, {4, 5}, {1, kNone}, VEK_STATE_DEGRADED, VEK_HEALTH_WARNING, 398},
    {3, {4, 5}, {2, kNone}, VEK_STATE_RUNNING, VEK_HEALTH_OK, 397},
    {12, {0, kNone}, {0, kNone}, VEK_STATE_FAILED, VEK_HEALTH_CRITICAL, 398},
    {2, {0, kNone}, {1, 3}, VEK_STATE_FAILED, VEK_HEALTH_CRITICAL, 398},
    {2, {0, kNone}, {2, kNone}, VEK_STATE_DEGRADED, VEK_HEALTH_WARNING, 398},
    {2, {1, kNone}, {0, kNone}, VEK_STATE_FAILED, VEK_HEALTH_CRITICAL, 398},
    {2, {4, kNone}, {0, 2}, VEK_STATE_DEGRADED, VEK_HEALTH_WARNING, 398},
    {2, {7, kNone}, {0, kNone}, VEK_STATE_FAILED, VEK_HEALTH_CRITICAL, 398},
    {2, {7, 11}, {4, kNone}, VEK_STATE_DEGRADED, VEK_HEALTH_WARNING, 1179},
    {2, {7, 11}, {5, kNone}, VEK_STATE_DEGRADED, VEK_HEALTH_WARNING, 1182},
    {2, {7, 11}, {192, kNone}, VEK_STATE_DEGRADED, VEK_HEALTH_WARNING, 1180},
    {2, {7, 11}, {208, kNone}, VEK_STATE_DEGRADED, VEK_HEALTH_WARNING, 1183},
    {2, {7, 11}, {240, kNone}, VEK_STATE_DEGRADED, VEK_HEALTH_WARNING, 1181},
};

const ControllerEventRule* controllerEventRule(const SA_CONTROLLER_EVENT& event)
{
    for (const ControllerEventRule& rule : kControllerEvents) {
        const bool subclass = rule.subclasses[0] == event.subclassCode || rule.subclasses[1] == event.subclassCode;
        const bool detail = rule.details[0] == event.detailCode || rule.details[1] == event.detailCode;
        if (rule.classCode == event.classCode && subclass && detail) {
            return &rule;
        }
    }
    return nullptr;
}

bool isNotableInterfaceEvent(const SA_CONTROLLER_EVENT& event)
{
    const SA_WORD d = event.detailCode;
    return event.classCode == 2 && event.subclassCode == 11 && (d == 4 || d == 5 || d == 192 || d == 208 || d == 240);
}

// Holds a controller found for an event, and gives its reference back.
class vekEventTarget {
public:
    explicit vekEventTarget(vekSmartRAIDController* controller) : controller_(controller) {}
    ~vekEventTarget()
    {
        if (controller_ != nullptr) {
            controller_->releaseReference();
        }
    }
    vekEventTarget(const vekEventTarget&) = delete;
    vekEventTarget& operator=(const vekEventTarget&) = delete;
    vekSmartRAIDController* get() const { return controller_; }

private:
    vekSmartRAIDController* controller_;
};

} // namespace

std::string vekSmartRAIDController::describe(const SA_CONTROLLER_EVENT& event) const
{
    char out[512];
    snprintf(out, sizeof out, "[CC=%u, SCC=%u, DC=%u, (%s)] on controller [%s] @ [%s]", event.classCode,
             event.subclassCode, event.detailCode, event.message, currentInfo_.getModel().c_str(), PciLocation.c_str());
    return out;
}

std::string vekSmartRAIDController::formatEventInfoString(const SA_CONTROLLER_EVENT& event) const
{
    return stringUtils::trim(std::string(event.message, strnlen(event.message, sizeof event.message)));
}

void vekSmartRAIDController::eventHandler(PCDA cda, const SA_CONTROLLER_EVENT* received)
{
    if (received == nullptr) {
        return;
    }
    // The library's text need not end inside its field: every use below
    // reads this copy, whose last byte ends it.
    SA_CONTROLLER_EVENT copy = *received;
    copy.message[sizeof copy.message - 1] = '\0';
    const SA_CONTROLLER_EVENT* const event = &copy;
    VEK_LOG_DEBUG(TAG, "Event 0x%016" PRIx64 ": tag %u, CC=%u, SCC=%u, DC=%u, %04u-%02u-%02u (%u), [%.256s]",
                  event->eventID, event->tag, event->classCode, event->subclassCode, event->detailCode, event->year,
                  event->month, event->day, event->secondsSinceMidnight, event->message);
    vekEventTarget target(vekSmartRAIDControllerFactory::getInstance().findControllerByCDA(cda));
    if (target.get() == nullptr) {
        VEK_LOG_WARNING(TAG, "Unable to find controller object with CDA 0x%016lX for Event 0x%016lX: (CC=%u, SCC=%u, DC=%u, [%s])",
                        static_cast<unsigned long>(reinterpret_cast<uintptr_t>(cda)),
                        static_cast<unsigned long>(event->eventID), event->classCode, event->subclassCode,
                        event->detailCode, event->message);
        return;
    }
    // The metadata's remove lock: held while the handler runs, so a rebuild
    // of the library's list can't give its CDA back underneath.
    SCI_CONTROLLER_METADATA_PTR removeLock = target.get()->getControllerMetadata();
    try {
        target.get()->analyzeAndGenerateEvent(*event);
    } catch (const std::exception& e) {
        VEK_LOG_ERROR(TAG, "Event [CC=%u, SCC=%u, DC=%u] not processed: %s", event->classCode, event->subclassCode,
                      event->detailCode, e.what());
    }
}

void vekSmartRAIDController::analyzeAndGenerateEvent(const SA_CONTROLLER_EVENT& event)
{
    std::lock_guard<std::recursive_mutex> lock(inventoryMutex_);
    if (isRemoved()) {
        VEK_LOG_DEBUG(TAG, "Ignoring event %s: the controller is being removed.", describe(event).c_str());
        return;
    }
    if (firstEventReceived && event.tag != lastEventTag + 1) {
        VEK_LOG_WARNING(TAG,
                        "VEK missed one or more events from StorageCore library on firmware queue [%ld]. Check if "
                        "there are other clients listening for events on the same queue. (Current tag: [%u]; Last "
                        "known tag: [%u])",
                        metadata_ ? metadata_->logIndex : 0L, event.tag, lastEventTag);
    }
    lastEventTag = event.tag;
    firstEventReceived = true;

    time_t when = 0;
    if (!eventTime(event, controllerClockOffset, when)) {
        VEK_LOG_WARNING(TAG, "Unable to convert event timestamp [%04u-%02u-%02u (%u)] to calendar time.", event.year,
                        event.month, event.day, event.secondsSinceMidnight);
        const bool firmwareFault =
            event.classCode == kEventClassFirmware && event.subclassCode == 0 && event.detailCode == 0;
        if (!firmwareFault) {
            VEK_LOG_WARNING(TAG, "Skipping event [CC=%u, SCC=%u, DC=%u, (%s)] with invalid timestamp on controller [%s] @ [%s].",
                            event.classCode, event.subclassCode, event.detailCode, event.message,
                            currentInfo_.getModel().c_str(), PciLocation.c_str());
            return;
        }
    } else if (when < eventRegistrationTimestamp) {
        VEK_LOG_INFO(TAG,
                     "Skipping pre-registration event [CC=%u, SCC=%u, DC=%u, (%s)] on controller [%s] @ [%s] that "
                     "occurred at [%jd]. (reg=%jd, offset=%jd)",
                     event.classCode, event.subclassCode, event.detailCode, event.message,
                     currentInfo_.getModel().c_str(), PciLocation.c_str(), static_cast<intmax_t>(when),
                     static_cast<intmax_t>(eventRegistrationTimestamp), static_cast<intmax_t>(controllerClockOffset));
        return;
    }
    switch (event.classCode) {
    case kEventClassDeviceChange:
        processDeviceRemovalAndInsertionEvent(event);
        break;
    case kEventClassHardware:
        processHardwareErrorEvent(event);
        break;
    case kEventClassEnvironment:
        processEnvironmentEvent(event);
        break;
    case kEventClassPhysicalDrive:
        processPhysicalDriveEvent(event);
        break;
    case kEventClassLogicalDrive:
        processLogicalDriveEvent(event);
        break;
    case kEventClassFirmware:
        processControllerFirmwareErrorEvent(event);
        break;
    default:
        VEK_LOG_DEBUG(TAG, "Ignoring other class event [CC=%u, SCC=%u, DC=%u, (%s)] on controller [%s] @ [%s].",
                      event.classCode, event.subclassCode, event.detailCode, event.message,
                      currentInfo_.getModel().c_str(), PciLocation.c_str());
    }
}

// ---------------------------------------------------------------- controller events

void vekSmartRAIDController::processHardwareErrorEvent(const SA_CONTROLLER_EVENT& event)
{
    const ControllerEventRule* rule = controllerEventRule(event);
    if (rule == nullptr) {
        VEK_LOG_DEBUG(TAG, "Ignoring hardware event [CC=%u, SCC=%u, DC=%u, (%s)] on controller [%s] @ [%s].",
                      event.classCode, event.subclassCode, event.detailCode, event.message,
                      currentInfo_.getModel().c_str(), PciLocation.c_str());
        return;
    }
    generateControllerEvent(event, rule->state, rule->health, rule->id, true);
}

void vekSmartRAIDController::processEnvironmentEvent(const SA_CONTROLLER_EVENT& event)
{
    const ControllerEventRule* rule = controllerEventRule(event);
    if (rule == nullptr) {
        VEK_LOG_DEBUG(TAG, "Ignoring environmental event [CC=%u, SCC=%u, DC=%u, (%s)] on controller [%s] @ [%s].",
                      event.classCode, event.subclassCode, event.detailCode, event.message,
                      currentInfo_.getModel().c_str(), PciLocation.c_str());
        return;
    }
    generateControllerEvent(event, rule->state, rule->health, rule->id, true);
}

void vekSmartRAIDController::processControllerFirmwareErrorEvent(const SA_CONTROLLER_EVENT& event)
{
    const ControllerEventRule* rule = controllerEventRule(event);
    if (rule == nullptr) {
        VEK_LOG_DEBUG(TAG, "Ignoring firmware error event [CC=%u, SCC=%u, DC=%u, (%s)] on controller [%s] @ [%s].",
                      event.classCode, event.subclassCode, event.detailCode, event.message,
                      currentInfo_.getModel().c_str(), PciLocation.c_str());
        return;
    }
    generateControllerEvent(event, rule->state, rule->health, rule->id, true);
}

void vekSmartRAIDController::generateControllerEvent(const SA_CONTROLLER_EVENT& event, VEK_RESOURCE_STATE state,
                                                     VEK_RESOURCE_HEALTH health, int eventId, bool service)
{
    const VEK_RESOURCE_HEALTH last = lastEventStatusValid ? lastEventHealth : currentInfo_.getHealth();
    bool send = false;
    if (vekSmartRAIDControllerFactory::getInstance().config().isForwardAllSmartRAIDDegradedOrHigherEventsEnabled()) {
        send = health == VEK_HEALTH_CRITICAL || health == VEK_HEALTH_WARNING ||
               (health == VEK_HEALTH_OK && last != VEK_HEALTH_OK);
    } else {
        send = (health == VEK_HEALTH_CRITICAL && last != VEK_HEALTH_CRITICAL) ||
               (health == VEK_HEALTH_OK && last != VEK_HEALTH_OK) || isNotableInterfaceEvent(event);
    }
    lastEventStatusValid = true;
    lastEventState = state;
    lastEventHealth = health;
    if (!send) {
        VEK_LOG_INFO(TAG, "Ignoring controller event [%u, %u, %u, (%s)] indicating %s health since device is already in %s health.",
                     event.classCode, event.subclassCode, event.detailCode, event.message, healthWord(health),
                     healthWord(last));
        return;
    }
    currentInfo_.setState(state);
    currentInfo_.setHealth(health);
    sendControllerEvent(eventId, service, formatEventInfoString(event));
}

// ---------------------------------------------------------------- drive events

void vekSmartRAIDController::processDeviceRemovalAndInsertionEvent(const SA_CONTROLLER_EVENT& event)
{
    if (event.subclassCode == 0 && event.detailCode == 1) {
        generatePhysicalDriveEvent(event, VEK_STATE_RUNNING, VEK_HEALTH_OK);
    } else if (event.subclassCode == 0 && event.detailCode == 0) {
        generatePhysicalDriveEvent(event, VEK_STATE_OFFLINE, VEK_HEALTH_CRITICAL);
    } else {
        VEK_LOG_DEBUG(TAG, "Ignoring PD event [CC=%u, SCC=%u, DC=%u, (%s)] on controller [%s] @ [%s].",
                      event.classCode, event.subclassCode, event.detailCode, event.message,
                      currentInfo_.getModel().c_str(), PciLocation.c_str());
    }
}

void vekSmartRAIDController::processPhysicalDriveEvent(const SA_CONTROLLER_EVENT& event)
{
    if (event.subclassCode == 0) {
        switch (event.detailCode) {
        case kPhysicalDriveEventFailed:
            return generatePhysicalDriveEvent(event, VEK_STATE_FAILED, VEK_HEALTH_CRITICAL);
        case kPhysicalDriveEventPredictiveFailure:
            return generatePhysicalDriveEvent(event, VEK_STATE_PREDICTIVE_FAILURE, VEK_HEALTH_WARNING);
        case kPhysicalDriveEventOffline:
            return generatePhysicalDriveEvent(event, VEK_STATE_OFFLINE, VEK_HEALTH_CRITICAL);
        case kPhysicalDriveEventOK:
            return generatePhysicalDriveEvent(event, VEK_STATE_RUNNING, VEK_HEALTH_OK);
        default:
            break;
        }
    } else if (event.subclassCode == 1 && event.detailCode == 3) {
        return generatePhysicalDriveEvent(event, VEK_STATE_PREDICTIVE_FAILURE, VEK_HEALTH_WARNING);
    }
    VEK_LOG_DEBUG(TAG, "Ignoring PD event [CC=%u, SCC=%u, DC=%u, (%s)] on controller [%s] @ [%s].",
                      event.classCode, event.subclassCode, event.detailCode, event.message,
                      currentInfo_.getModel().c_str(), PciLocation.c_str());
}

void vekSmartRAIDController::generatePhysicalDriveEvent(const SA_CONTROLLER_EVENT& event, VEK_RESOURCE_STATE state,
                                                        VEK_RESOURCE_HEALTH health)
{
    const std::string message = formatEventInfoString(event);
    const std::string port = wordAfterKey(message, "PORT");
    const std::string box = wordAfterKey(message, "BOX");
    const std::string bay = wordAfterKey(message, "BAY");
    if (port.empty() || box.empty() || bay.empty()) {
        VEK_LOG_WARNING(TAG, "Unable to determine PD location from incoming event. (%s; [%s])", describe(event).c_str(),
                        message.c_str());
        return;
    }
    unsigned portNumber = 0, boxNumber = 0, bayNumber = 0;
    if (!parseLocationNumber(port, portNumber)) {
        VEK_LOG_WARNING(TAG, "Unable to determine port number from location [%s] for drive [%s].", port.c_str(),
                        (port + ":" + box + ":" + bay).c_str());
        return;
    }
    if (!parseLocationNumber(box, boxNumber) || !parseLocationNumber(bay, bayNumber)) {
        VEK_LOG_WARNING(TAG, "Failed to convert drive location [%s, %d, %s, %d, %s, %d] to number. (%d)", port.c_str(),
                        static_cast<int>(portNumber), box.c_str(), static_cast<int>(boxNumber), bay.c_str(),
                        static_cast<int>(bayNumber), -1);
        return;
    }
    vekDiskInfo* disk = nullptr;
    for (size_t i = 0; i < driveKeys_.size() && i < disks_.size(); ++i) {
        const DriveKey& key = driveKeys_[i];
        if (key.port == portNumber && key.box == boxNumber && key.bay == bayNumber) {
            disk = &disks_[i];
        }
    }
    if (disk == nullptr) {
        VEK_LOG_INFO(TAG, "No PD exists at location [CN%u:%u:%u] in inventory (%s; [%s]); Updating PD inventory.",
                     portNumber, boxNumber, bayNumber, describe(event).c_str(), message.c_str());
        SASResourceManager::invalidateInventoryCache();
        VEK_LOG_INFO(TAG,
                     "Ignoring PD event [%u, %u, %u, (%s)] indicating {%s} health since no PD exists in inventory @ "
                     "location [CN%u:%u:%u]. (CTLR SN: [%s])",
                     event.classCode, event.subclassCode, event.detailCode, event.message, healthWord(health),
                     portNumber, boxNumber, bayNumber, currentInfo_.getSerialNumber().c_str());
        return;
    }
    VEK_RESOURCE_HEALTH& reported = driveHealth_[disk->getSerialNumber()];
    if (reported == health) {
        VEK_LOG_INFO(TAG, "Ignoring PD event [%u, %u, %u, (%s)] indicating %s health. (Previous Health: [%s]; SN: [%s])",
                     event.classCode, event.subclassCode, event.detailCode, event.message, healthWord(health),
                     healthWord(reported), disk->getSerialNumber().c_str());
        return;
    }
    reported = health;
    disk->setState(state);
    disk->setHealth(health);
    disk->setEventInfoString(message);
    const int id = health == VEK_HEALTH_OK ? 540 : health == VEK_HEALTH_CRITICAL ? 538 : 539;
    SASResourceManager::generateEvent(id, disk->getPhysicalLocation(), health != VEK_HEALTH_OK, *disk);
    SASResourceManager::sendInventorytToRMCOnCacheBuild();
    SASResourceManager::invalidateInventoryCache();
}

// ---------------------------------------------------------------- volume events

void vekSmartRAIDController::processLogicalDriveEvent(const SA_CONTROLLER_EVENT& event)
{
    const std::string message = formatEventInfoString(event);
    static const std::regex number("(?:ldrv|drive|volume|logical|primary)[^0-9]{0,3}([0-9]+)", std::regex::icase);
    const std::vector<std::string> groups = stringUtils::execRegexAndExtractCaptureGroups(message, number);
    if (groups.empty() || groups[0].empty()) {
        VEK_LOG_WARNING(TAG, "Unable to extract logical drive # from event message: [%s]", message.c_str());
        return;
    }
    const int index = std::stoi(groups[0]);
    vekLogicalDiskInfo* volume = nullptr;
    for (vekLogicalDiskInfo& candidate : logicalDisks_) {
        if (candidate.getLogicalDiskID() == groups[0]) {
            volume = &candidate;
        }
    }
    vekStorageCoreInterface& sci = vekStorageCoreInterface::getInstance();
    bool present = false;
    for (SA_WORD ld = sci.SA_EnumerateControllerLogicalDrives(metadata_->cda, kInvalidDeviceNumber);
         ld != kInvalidDeviceNumber; ld = sci.SA_EnumerateControllerLogicalDrives(metadata_->cda, ld)) {
        present = present || ld == index;
    }
    if (volume == nullptr || !present) {
        if (volume != nullptr) {
            VEK_LOG_INFO(TAG, "Detected deletion of LD # %d. Refreshing inventory.", index);
        } else if (present) {
            VEK_LOG_INFO(TAG, "Detected new LD # %d. Updated inventory will be sent to RMC.", index);
        } else {
            VEK_LOG_INFO(TAG, "Unable to find LD # %d in inventory list. (%s; [%s])", index, describe(event).c_str(),
                         message.c_str());
        }
        SASResourceManager::sendInventorytToRMCOnCacheBuild();
        SASResourceManager::invalidateInventoryCache();
        return;
    }
    const vekSmartRAIDStatus now =
        sciVolumeStatusToVEKStatus(sci.SA_GetLogicalDriveStatusInfo(metadata_->cda, static_cast<SA_WORD>(index)));
    if (now.state == VEK_STATE_REBUILD && now.health == VEK_HEALTH_OK) {
        VEK_LOG_INFO(TAG, "Found LD # %d undergoing rebuild operation in healthy state. (%s; [%s])", index,
                     describe(event).c_str(), message.c_str());
        return;
    }
    generateEventOnStatusChange(*volume, now, message);
}

void vekSmartRAIDController::generateEventOnStatusChange(vekLogicalDiskInfo& volume, const vekSmartRAIDStatus& now,
                                                         const std::string& eventText)
{
    VEK_RESOURCE_HEALTH& reported = volumeHealth_[volume.getLogicalDiskID()];
    volume.setState(now.state);
    volume.setHealth(now.health);
    if (reported == now.health || !isEventsEnabled()) {
        VEK_LOG_DEBUG(TAG, "LD # %s stays in %s health; no event for [%s].", volume.getLogicalDiskID().c_str(),
                      healthWord(now.health), eventText.c_str());
        reported = now.health;
        return;
    }
    const bool recovered = now.health == VEK_HEALTH_OK;
    reported = now.health;
    volume.setEventInfoString(eventText);
    SASResourceManager::generateEvent(recovered ? 683 : 681, currentInfo_.getPhysicalLocation(), !recovered, volume);
    SASResourceManager::sendInventorytToRMCOnCacheBuild();
    SASResourceManager::invalidateInventoryCache();
}
