#pragma once

#include "vekInventoryBase.h"
#include "vekNVMeDiskInfo.h"
#include "vekNvmeInterface.h"
#include "vekStorageControllerInfo.h"

#include <string>

class vekPlatformServices;

// Turns a change of an NVMe device's SMART status into events for its
// controller and its drive.
class vekNvmeEventManager {
public:
    // The texts of the critical warning bits.
    static const char* const kVolatileBackupText;
    static const char* const kReadOnlyText;
    static const char* const kReliabilityText;
    static const char* const kTemperatureText;
    static const char* const kAvailableSpareText;

    explicit vekNvmeEventManager(vekPlatformServices* services) : services_(services) {}

    // True when the summary's state and health differ from the stored
    // controller's; the events of the change are sent on the way.
    bool trackStatusChange(const vekStorageControllerInfo& controller, const vekNVMeDiskInfo& drive,
                           const vekNvmeSmartInfo& smart);
    void analyzeAndGenerateEvent(vekStorageControllerInfo controller, vekNVMeDiskInfo drive,
                                 const vekNvmeSmartInfo& smart);
    // False when the change has no event.
    static bool fetchPropertiesToGenerateEvent(const vekStorageControllerInfo& controller,
                                               const vekNvmeSmartInfo& smart, int& controllerId, int& driveId,
                                               bool& service);
    void generateEvent(int id, const std::string& pl, bool service, const vekInventoryBase& record);
    // The text of the first set warning bit, most severe first; empty with none.
    static void getEventInfoDescription(const vekNvmeSmartInfo& smart, std::string& text);

private:
    vekPlatformServices* services_;
};
