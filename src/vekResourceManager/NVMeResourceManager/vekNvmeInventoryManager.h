#pragma once

#include "vekNVMeDiskInfo.h"
#include "vekNvmeInterface.h"
#include "vekStorageControllerInfo.h"

#include <mutex>
#include <vector>

// The controller and drive records of the last build, where the health poll
// writes a device's new status, and the copy the poll compares with.
class vekNvmeInventoryManager {
public:
    void saveControllerInventory(const std::vector<vekStorageControllerInfo>& controllers);
    void savePhysicalDiskInventory(const std::vector<vekNVMeDiskInfo>& drives);
    void fetchInventory(std::vector<vekStorageControllerInfo>& controllers, std::vector<vekNVMeDiskInfo>& drives);
    void backupInventory(const std::vector<vekStorageControllerInfo>& controllers,
                         const std::vector<vekNVMeDiskInfo>& drives);
    void fetchBackupInventory(std::vector<vekStorageControllerInfo>& controllers,
                              std::vector<vekNVMeDiskInfo>& drives);
    // Writes the summary's state and health into both saved records of the device.
    void updateInventory(const vekNvmeSmartInfo& smart);

private:
    void updateNvmeInstanceControllerStatusAttributes(const vekNvmeSmartInfo& smart);
    void updateNvmeInstanceDriveStatusAttributes(const vekNvmeSmartInfo& smart);

    std::mutex mutex_;
    std::vector<vekStorageControllerInfo> controllers_;
    std::vector<vekNVMeDiskInfo> drives_;
    std::vector<vekStorageControllerInfo> backupControllers_;
    std::vector<vekNVMeDiskInfo> backupDrives_;
};
