#include "vekNvmeInventoryManager.h"

#include "vekLog.h"

namespace {
const char TAG[] = "NVME_INV_MGR";
} // namespace

void vekNvmeInventoryManager::saveControllerInventory(const std::vector<vekStorageControllerInfo>& controllers)
{
    std::lock_guard<std::mutex> lock(mutex_);
    controllers_ = controllers;
}

void vekNvmeInventoryManager::savePhysicalDiskInventory(const std::vector<vekNVMeDiskInfo>& drives)
{
    std::lock_guard<std::mutex> lock(mutex_);
    drives_ = drives;
}

void vekNvmeInventoryManager::fetchInventory(std::vector<vekStorageControllerInfo>& controllers,
                                             std::vector<vekNVMeDiskInfo>& drives)
{
    std::lock_guard<std::mutex> lock(mutex_);
    controllers = controllers_;
    drives = drives_;
}

void vekNvmeInventoryManager::backupInventory(const std::vector<vekStorageControllerInfo>& controllers,
                                              const std::vector<vekNVMeDiskInfo>& drives)
{
    std::lock_guard<std::mutex> lock(mutex_);
    backupControllers_ = controllers;
    backupDrives_ = drives;
}

void vekNvmeInventoryManager::fetchBackupInventory(std::vector<vekStorageControllerInfo>& controllers,
                                                   std::vector<vekNVMeDiskInfo>& drives)
{
    std::lock_guard<std::mutex> lock(mutex_);
    controllers = backupControllers_;
    drives = backupDrives_;
}

void vekNvmeInventoryManager::updateInventory(const vekNvmeSmartInfo& smart)
{
    VEK_LOG_DEBUG(TAG, "Updating NVMe inventory for a particular NVMe device : %s", smart.deviceName.c_str());
    std::lock_guard<std::mutex> lock(mutex_);
    updateNvmeInstanceControllerStatusAttributes(smart);
    updateNvmeInstanceDriveStatusAttributes(smart);
}

void vekNvmeInventoryManager::updateNvmeInstanceControllerStatusAttributes(const vekNvmeSmartInfo& smart)
{
    for (vekStorageControllerInfo& controller : controllers_) {
        if (controller.getDeviceName() == smart.deviceName) {
            controller.setState(static_cast<VEK_RESOURCE_STATE>(smart.state));
            controller.setHealth(static_cast<VEK_RESOURCE_HEALTH>(smart.health));
            return;
        }
    }
    VEK_LOG_WARNING(TAG, "NVMe controller inventory for %s not found", smart.deviceName.c_str());
}

void vekNvmeInventoryManager::updateNvmeInstanceDriveStatusAttributes(const vekNvmeSmartInfo& smart)
{
    for (vekNVMeDiskInfo& drive : drives_) {
        if (drive.getDeviceName() == smart.deviceName) {
            drive.getStatus().setState(static_cast<VEK_RESOURCE_STATE>(smart.state));
            drive.getStatus().setHealth(static_cast<VEK_RESOURCE_HEALTH>(smart.health));
            return;
        }
    }
    VEK_LOG_WARNING(TAG, "NVMe drive inventory for %s not found", smart.deviceName.c_str());
}
