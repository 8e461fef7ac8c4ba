#include "vekNvmeEventManager.h"

#include "vekEvent.h"
#include "vekGlobalDef.h"
#include "vekInBandComManager.h"
#include "vekLog.h"
#include "vekPlatformServices.h"

#include <stdexcept>

using vekGlobalDef::timeUtils;

namespace {

const char TAG[] = "NVME_EVENT_MGR";

const int kControllerRecovered = 835;
const int kControllerWarning = 836;
const int kControllerCritical = 837;
const int kDriveCritical = 538;
const int kDriveWarning = 539;
const int kDriveRecovered = 540;

} // namespace

const char* const vekNvmeEventManager::kVolatileBackupText = "The Volatile Memory Backup device has failed";
const char* const vekNvmeEventManager::kReadOnlyText = "The NVMe media has been placed in Read Only mode";
const char* const vekNvmeEventManager::kReliabilityText =
    "The NVMe subsystem reliability has been degraded due to significant media related/internal errors";
const char* const vekNvmeEventManager::kTemperatureText =
    "The Temperature is above an over temperature threshold or below an under temperature threshold";
const char* const vekNvmeEventManager::kAvailableSpareText =
    "The available spare space has fallen below the available spare threshold";

bool vekNvmeEventManager::trackStatusChange(const vekStorageControllerInfo& controller, const vekNVMeDiskInfo& drive,
                                            const vekNvmeSmartInfo& smart)
{
    if (controller.getState() == smart.state && controller.getHealth() == smart.health) {
        return false;
    }
    VEK_LOG_INFO(TAG, "State Change Detected for [%s]", smart.deviceName.c_str());
    analyzeAndGenerateEvent(controller, drive, smart);
    return true;
}

bool vekNvmeEventManager::fetchPropertiesToGenerateEvent(const vekStorageControllerInfo& controller,
                                                         const vekNvmeSmartInfo& smart, int& controllerId,
                                                         int& driveId, bool& service)
{
    const VEK_RESOURCE_HEALTH previous = controller.getHealth();
    const VEK_RESOURCE_HEALTH current = static_cast<VEK_RESOURCE_HEALTH>(smart.health);
    if ((previous == VEK_HEALTH_CRITICAL || previous == VEK_HEALTH_WARNING) && current == VEK_HEALTH_OK) {
        controllerId = kControllerRecovered;
        driveId = kDriveRecovered;
        service = false;
        return true;
    }
    if ((previous == VEK_HEALTH_OK || previous == VEK_HEALTH_WARNING) && current == VEK_HEALTH_CRITICAL) {
        controllerId = kControllerCritical;
        driveId = kDriveCritical;
        service = true;
        return true;
    }
    if (previous == VEK_HEALTH_OK && current == VEK_HEALTH_WARNING) {
        controllerId = kControllerWarning;
        driveId = kDriveWarning;
        service = true;
        return true;
    }
    VEK_LOG_INFO(TAG, "No corresponding status change identified for %s", smart.deviceName.c_str());
    return false;
}

void vekNvmeEventManager::analyzeAndGenerateEvent(vekStorageControllerInfo controller, vekNVMeDiskInfo drive,
                                                  const vekNvmeSmartInfo& smart)
{
    int controllerId = 0;
    int driveId = 0;
    bool service = false;
    if (!fetchPropertiesToGenerateEvent(controller, smart, controllerId, driveId, service)) {
        VEK_LOG_DEBUG(TAG, "Ignoring generating NVMe controller and drive events");
        return;
    }
    std::string text;
    getEventInfoDescription(smart, text);
    // The RMC sees the device as it is now.
    const VEK_RESOURCE_STATE state = static_cast<VEK_RESOURCE_STATE>(smart.state);
    const VEK_RESOURCE_HEALTH health = static_cast<VEK_RESOURCE_HEALTH>(smart.health);
    controller.setState(state);
    controller.setHealth(health);
    controller.setEventInfoString(text);
    drive.getStatus().setState(state);
    drive.getStatus().setHealth(health);
    drive.setEventInfoString(text);
    if (controller.getFormFactor() == VEK_FORM_FACTOR_PCIE_CEM) {
        generateEvent(controllerId, controller.getPhysicalLocation(), service, controller);
    }
    generateEvent(driveId, drive.getOem().getPhysicalLocation(), service, drive);
}

void vekNvmeEventManager::getEventInfoDescription(const vekNvmeSmartInfo& smart, std::string& text)
{
    const struct {
        uint8_t set;
        const char* text;
        const char* code;
    } bits[] = {{smart.volatileBackupFailed, kVolatileBackupText, "0x10"},
                {smart.readOnlyMode, kReadOnlyText, "0x8"},
                {smart.reliabilityDegraded, kReliabilityText, "0x4"},
                {smart.temperatureWarning, kTemperatureText, "0x2"},
                {smart.availableSpareBelowThreshold, kAvailableSpareText, "0x1"}};
    text.clear();
    for (const auto& bit : bits) {
        if (bit.set) {
            text = std::string(bit.text) + ", [SMART Info : " + bit.code +
                   ", PercentageUsed : " + std::to_string(smart.percentageUsed) +
                   ", PowerOnHours : " + std::to_string(smart.powerOnHours) + "]";
            return;
        }
    }
    VEK_LOG_DEBUG(TAG, "Smart Log Critical Warning bit fields are not set.");
}

void vekNvmeEventManager::generateEvent(int id, const std::string& pl, bool service, const vekInventoryBase& record)
{
    try {
        vekInBandComManager* com = services_ != nullptr ? services_->getInbandComInterface() : nullptr;
        if (com == nullptr) {
            throw std::runtime_error("no communication manager");
        }
        com->sendEvent(vekEvent(id, "NVMeHBA", "NotAvailable", service, timeUtils::getTime(), pl,
                                record.getVariableData(), "VEK"));
    } catch (const std::exception& e) {
        VEK_LOG_ERROR(TAG, "Event [%d] Failed to send for the NVMe device at PL[%s]", id, pl.c_str());
    }
}
