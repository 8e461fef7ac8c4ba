#pragma once

#include "NVMeControllerInfo.h"
#include "vekIOMatrixInterface.h"
#include "vekNVMeDiskInfo.h"
#include "vekNvmeEventManager.h"
#include "vekNvmeInterface.h"
#include "vekNvmeInventoryManager.h"
#include "vekResourceManager.h"
#include "vekResourceManagerLifecycle.h"
#include "vekStorageControllerInfo.h"

#include <json/json.h>

#include <atomic>
#include <condition_variable>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

class vekConfig;
class vekOSInterface;
class vekPlatformServices;

// Picks the host's NVMe devices that this family reports and reads each one.
class vekNvmeDeviceDataCollector {
public:
    // The interface is owned by the collector.
    explicit vekNvmeDeviceDataCollector(std::unique_ptr<vekNvmeInterface> nvme);

    vekNvmeInterface* getNvmeInterface() { return nvme_.get(); }

    // The PCIe NVMe cards and the NVMe drives in bays that no CPU-based
    // storage controller (Intel VMD) manages.
    void discoverNvmeDevices(std::vector<std::string>& names);
    // False when a stop cut the walk short.
    bool discoverControllerInventory(std::vector<vekStorageControllerInfo>& controllers,
                                     const std::vector<std::string>& names);
    bool discoverPhysicalDiskInventory(std::vector<vekNVMeDiskInfo>& drives, const std::vector<std::string>& names);
    void fetchNVMeHealthInfo(const std::string& name, vekNvmeSmartInfo& smart);

    bool isPCIeCEMNVMeDevice(const std::string& name);
    bool isUnmanagedCPUOrPCHAttachedNVMeSSD(const std::string& name);

    // The status of the devices the last build read, by device name and
    // serial number: a later build keeps it, so that a change between two
    // builds is the poll's to see and to report.
    void setKnownStatuses(const std::vector<vekStorageControllerInfo>& controllers);

    void notifyNVMeRMStop() { stop_ = true; }
    bool isStopRequested() const { return stop_; }

private:
    // Reads a device once per build; both records come from it.
    NVMeControllerInfo getNvmeProperties(const std::string& name);
    static void setControllerProperties(const NVMeControllerInfo& info, vekStorageControllerInfo& controller);
    static void setPhysicalDiskProperties(const NVMeControllerInfo& info, vekNVMeDiskInfo& drive);
    // The device's state and health: the known one, else its SMART log's.
    void statusOf(const NVMeControllerInfo& info, VEK_RESOURCE_STATE& state, VEK_RESOURCE_HEALTH& health);

    std::unique_ptr<vekNvmeInterface> nvme_;
    vekNvmeIOMatrixInterface matrix_;
    std::atomic<bool> stop_{false};
    // The devices read in this build, by name.
    std::map<std::string, NVMeControllerInfo> read_;
    std::map<std::string, std::pair<VEK_RESOURCE_STATE, VEK_RESOURCE_HEALTH>> known_;
};

// The NVMe devices (id 4, "NVMeControllers"): a controller and a drive record
// per device, rebuilt every refresh interval, and a health poll every ten
// seconds that raises the events of a SMART change.
class NVMeResourceManager : public vekResourceManager {
public:
    static NVMeResourceManager& getInstance();

    NVMeResourceManager(const NVMeResourceManager&) = delete;
    NVMeResourceManager& operator=(const NVMeResourceManager&) = delete;

    void stopResourceManagerJob() override;
    // The thread body: takes the process's platform services and runs the
    // loop until stopped; a second call does nothing.
    void init() override;
    using vekResourceManager::init;
    // This family answers by type only.
    bool getInventoryJsonObject(std::vector<Json::Value>& inventory) override;
    // Type 1 controllers, type 2 drives; true when it is the previous copy.
    bool getInventoryJsonObject2(int type, std::vector<Json::Value>& inventory) override;
    bool isRunning() override;
    bool isInventoryReady(int iteration) override;

    // The next tick rebuilds.
    void invalidateInventoryCache();
    // Raises event id for the device whose PL or device name is details:
    // a controller event (835-837) or a drive event (538-540). False for
    // another id or an unknown device.
    bool generateTestEvent(int id, std::string details, bool asserted);

    // The tick of the loop: both the refresh and the poll land on it.
    static long compute_gcd(long a, long b);

    void startInventory();
    void cacheBuild();
    void pollDevices();

protected:
    explicit NVMeResourceManager(const vekConfig& config);
    ~NVMeResourceManager() = default;

private:
    void getInventory();
    void createNVMeInventoryJsonPayload();
    void backupInventory();
    void fetchPrevInventoryOfType(int type, std::vector<Json::Value>& inventory);
    void processResourceManagerStop();
    bool stopRequested();

    const vekConfig& config_;
    std::atomic<bool> inventoryReady_{false};
    std::atomic<bool> pendingPush_{false};
    std::atomic<bool> cacheBuildInProgress_{false};
    std::atomic<bool> started_{false};
    bool noDevicesReported_ = false;

    std::mutex jobMutex_;
    std::condition_variable jobCondition_;
    bool refreshNeeded_ = true;
    bool stop_ = false;

    // Guards the current records and JSON during a build or a poll's update.
    std::mutex cacheMutex_;
    std::vector<vekStorageControllerInfo> controllers_;
    std::vector<vekNVMeDiskInfo> drives_;
    std::vector<Json::Value> controllerJson_;
    std::vector<Json::Value> driveJson_;
    std::atomic<size_t> controllerCount_{0};
    // The previous build, for readers while the current one is busy.
    std::mutex backupMutex_;
    std::vector<vekStorageControllerInfo> backupControllers_;
    std::vector<vekNVMeDiskInfo> backupDrives_;
    std::vector<Json::Value> backupControllerJson_;
    std::vector<Json::Value> backupDriveJson_;

    std::unique_ptr<vekNvmeDeviceDataCollector> collector_;
    vekNvmeInventoryManager inventoryManager_;
    std::unique_ptr<vekNvmeEventManager> eventManager_;
    std::atomic<vekPlatformServices*> services_{nullptr};
    // The stop handshake with the job manager.
    vekResourceManagerLifecycle lifecycle_;
};
