#include "NVMeResourceManager.h"

#include "vekConfig.h"
#include "vekGlobalDef.h"
#include "vekJsonAggregator.h"
#include "vekLog.h"
#include "vekNvmeVmwareInterface.h"
#include "vekOSInterface.h"
#include "vekPCIeInventoryJson.h"
#include "vekPlatformServices.h"
#include "vekResourceIds.h"
#include "vekSCMServerChassisManager.h"

#include <cstdlib>
#include <exception>
#include <thread>

using vekGlobalDef::timeUtils;
using vekPCIeInventoryJson::writeCompact;

namespace {

const char TAG[] = "NVME_RM";
const long kPollSeconds = 10;
const int kRunningChecks = 3;
const long kRunningCheckPauseSeconds = 5;
const int kTypeControllers = 1;
const int kTypeDrives = 2;

} // namespace

// ---- the collector ----

vekNvmeDeviceDataCollector::vekNvmeDeviceDataCollector(std::unique_ptr<vekNvmeInterface> nvme)
    : nvme_(std::move(nvme))
{
}

void vekNvmeDeviceDataCollector::discoverNvmeDevices(std::vector<std::string>& names)
{
    read_.clear();
    std::vector<std::string> all;
    nvme_->populateNvmeInstances(all);
    VEK_LOG_DEBUG(TAG, "Total number of NVMe instances is [%zu]", all.size());
    for (const std::string& name : all) {
        try {
            if (isPCIeCEMNVMeDevice(name) || isUnmanagedCPUOrPCHAttachedNVMeSSD(name)) {
                names.push_back(name);
            }
        } catch (const std::exception& e) {
            // Only this device is left out.
            VEK_LOG_WARNING(TAG, "NVMe device [%s] left out: %s", name.c_str(), e.what());
        }
    }
    VEK_LOG_DEBUG(TAG, "Total number of NVMe HBAs & unmanaged NVMe SSDs is [%zu]", names.size());
}

bool vekNvmeDeviceDataCollector::isPCIeCEMNVMeDevice(const std::string& name)
{
    std::string pciAddress;
    nvme_->getNvmePCIAddress(name, pciAddress);
    if (pciAddress.empty()) {
        return false;
    }
    // A card the matrix knows as an NVMe card, sitting in a PCIe slot.
    NVMeControllerInfo ids;
    const std::pair<std::string, std::string> device = vekGlobalDef::VMwareOSUtils::get_vendor_device(pciAddress);
    const std::pair<std::string, std::string> subsystem =
        vekGlobalDef::VMwareOSUtils::get_subvendor_subdevice(pciAddress);
    ids.vendorId = device.first;
    ids.deviceId = device.second;
    ids.subVendorId = subsystem.first;
    ids.subDeviceId = subsystem.second;
    vekIODevice* card = nullptr;
    const std::string key = matrix_.getIOPciIdFromDeviceInfo(ids);
    if (key.empty() || matrix_.getIOPropertiesFromIOMatrix(card, key) == nullptr) {
        return false;
    }
    std::string protocol;
    matrix_.getNvmeProtocolName(card, protocol);
    _VEK_DEVICE_FORM_FACTOR formFactor = VEK_FORM_FACTOR_UNKNOWN;
    vekSCM::ServerChassisManagerFactory::getServerChassisManager().getPCIDeviceFormFactor(pciAddress, formFactor);
    return protocol == "NVMe" && formFactor == VEK_FORM_FACTOR_PCIE_CEM;
}

bool vekNvmeDeviceDataCollector::isUnmanagedCPUOrPCHAttachedNVMeSSD(const std::string& name)
{
    std::string pciAddress;
    nvme_->getNvmePCIAddress(name, pciAddress);
    vekSCM::IServerChassisManager& scm = vekSCM::ServerChassisManagerFactory::getServerChassisManager();
    _VEK_DEVICE_FORM_FACTOR formFactor = VEK_FORM_FACTOR_UNKNOWN;
    const int rc = scm.getPCIDeviceFormFactor(pciAddress, formFactor);
    if (rc != vekSCM::SCM_SUCCESS) {
        VEK_LOG_WARNING(TAG, "Failed to determine form-factor for device @ PCI address [%s]! (%d).",
                        pciAddress.c_str(), rc);
        return false;
    }
    if (formFactor != VEK_FORM_FACTOR_SSD_HDD) {
        VEK_LOG_DEBUG(TAG, "Skipping non-SSD/HDD form factor device [%d] @ [%s].", static_cast<int>(formFactor),
                      pciAddress.c_str());
        return false;
    }
    try {
        // A drive that VMD manages belongs to the CPU's storage controller.
        return !scm.isNVMeDeviceManagedByCPUStorageController(pciAddress);
    } catch (const vekSCM::Exception& e) {
        VEK_LOG_WARNING(TAG,
                        "Failed to determine if NVMe device @ [%s] is managed by a CPU-based storage controller! (%s)",
                        pciAddress.c_str(), e.what());
        return false;
    }
}

NVMeControllerInfo vekNvmeDeviceDataCollector::getNvmeProperties(const std::string& name)
{
    const auto found = read_.find(name);
    if (found != read_.end()) {
        return found->second;
    }
    NVMeControllerInfo info;
    nvme_->discoverNvmeProperties(name, info);
    matrix_.supplementAdditionalNvmeProperties(info);
    vekIODevice* card = nullptr;
    const std::string key = matrix_.getIOPciIdFromDeviceInfo(info);
    long capacity = 0;
    if (!key.empty() && matrix_.getIOPropertiesFromIOMatrix(card, key) != nullptr) {
        matrix_.getNvmeMediaType(card, info.mediaType);
        matrix_.getNvmeProtocolName(card, info.protocolName);
        if (matrix_.getNvmeCapacityBytes(card, capacity)) {
            info.capacityBytes = capacity;
        }
    }
    info.setExtendedProperties(info.capacityBytesDetected, info.mediaType.empty() ? "SSD" : info.mediaType,
                               info.protocolName.empty() ? "NVMe" : info.protocolName);
    read_[name] = info;
    return info;
}

void vekNvmeDeviceDataCollector::setControllerProperties(const NVMeControllerInfo& info,
                                                         vekStorageControllerInfo& controller)
{
    controller.setDeviceName(info.deviceName);
    controller.setModel(info.model);
    controller.setSerialNumber(info.serialNumber);
    controller.setPartNumber(info.partNumber);
    controller.setSparePartNumber(info.sparePartNumber);
    controller.setSkuPartNumber(info.sku);
    controller.setFirmwareVersion(info.firmwareVersion);
    controller.setManufacturer(info.manufacturer);
    controller.setProtocol(info.getProtocolName());
    controller.setDescription(info.description);
    controller.setPhysicalLocation(info.physicalLocation);
    controller.setFormFactor(info.formFactor);
}

void vekNvmeDeviceDataCollector::setPhysicalDiskProperties(const NVMeControllerInfo& info, vekNVMeDiskInfo& drive)
{
    drive.setDeviceName(info.deviceName);
    drive.setSerialNumber(info.serialNumber);
    drive.setPartNumber(info.partNumber);
    drive.setSparePartNumber(info.sparePartNumber);
    drive.setSku(info.sku);
    drive.setModel(info.model);
    drive.setCapacityBytes(info.getCapacityBytes());
    drive.setProtocol(info.getProtocolName());
    drive.setManufacturer(info.manufacturer);
    drive.setMediaType(info.getMediaType());
    drive.setRevision(info.firmwareVersion);
    drive.setFormFactor(info.formFactor);
    vekNVMeOemInfo& oem = drive.getOem();
    oem.setCapacityBytesDetected(static_cast<uint64_t>(info.getCapacityBytesDetected()));
    oem.setSlot(info.slot);
    oem.setPhysicalLocation(info.physicalLocation);
    oem.setDecodedPhysicalLocation(info.decodedPhysicalLocation);
    oem.setDescription(info.description);
}

bool vekNvmeDeviceDataCollector::discoverControllerInventory(std::vector<vekStorageControllerInfo>& controllers,
                                                             const std::vector<std::string>& names)
{
    for (const std::string& name : names) {
        if (stop_) {
            VEK_LOG_INFO(TAG, "NVMe RM shutdown notification received while fetching controller inventory "
                              "information of NVMe cards");
            return false;
        }
        VEK_LOG_DEBUG(TAG, "Fetching controller inventory details for %s", name.c_str());
        vekStorageControllerInfo controller;
        const NVMeControllerInfo info = getNvmeProperties(name);
        setControllerProperties(info, controller);
        VEK_RESOURCE_STATE state = VEK_STATE_UNKNOWN;
        VEK_RESOURCE_HEALTH health = VEK_HEALTH_UNKNOWN;
        statusOf(info, state, health);
        controller.setState(state);
        controller.setHealth(health);
        controllers.push_back(controller);
    }
    return true;
}

bool vekNvmeDeviceDataCollector::discoverPhysicalDiskInventory(std::vector<vekNVMeDiskInfo>& drives,
                                                               const std::vector<std::string>& names)
{
    for (const std::string& name : names) {
        if (stop_) {
            VEK_LOG_INFO(TAG, "NVMe RM shutdown notification received while fetching drive inventory information "
                              "of NVMe cards");
            return false;
        }
        VEK_LOG_DEBUG(TAG, "Fetching drive inventory details for [%s]", name.c_str());
        vekNVMeDiskInfo drive;
        const NVMeControllerInfo info = getNvmeProperties(name);
        setPhysicalDiskProperties(info, drive);
        VEK_RESOURCE_STATE state = VEK_STATE_UNKNOWN;
        VEK_RESOURCE_HEALTH health = VEK_HEALTH_UNKNOWN;
        statusOf(info, state, health);
        drive.getStatus().setState(state);
        drive.getStatus().setHealth(health);
        drives.push_back(drive);
    }
    return true;
}

void vekNvmeDeviceDataCollector::setKnownStatuses(const std::vector<vekStorageControllerInfo>& controllers)
{
    known_.clear();
    for (const vekStorageControllerInfo& controller : controllers) {
        known_[controller.getDeviceName() + "/" + controller.getSerialNumber()] = {controller.getState(),
                                                                                  controller.getHealth()};
    }
}

void vekNvmeDeviceDataCollector::statusOf(const NVMeControllerInfo& info, VEK_RESOURCE_STATE& state,
                                          VEK_RESOURCE_HEALTH& health)
{
    const auto found = known_.find(info.deviceName + "/" + info.serialNumber);
    if (found != known_.end()) {
        state = found->second.first;
        health = found->second.second;
        return;
    }
    // A device seen for the first time takes its status from its SMART log.
    vekNvmeSmartInfo smart;
    fetchNVMeHealthInfo(info.deviceName, smart);
    state = static_cast<VEK_RESOURCE_STATE>(smart.state);
    health = static_cast<VEK_RESOURCE_HEALTH>(smart.health);
    known_[info.deviceName + "/" + info.serialNumber] = {state, health};
}

void vekNvmeDeviceDataCollector::fetchNVMeHealthInfo(const std::string& name, vekNvmeSmartInfo& smart)
{
    nvme_->getNvmeSmartLogInfo(name, smart);
}

// ---- the manager ----

NVMeResourceManager& NVMeResourceManager::getInstance()
{
    // Never destroyed: its thread may still be running at process exit.
    static NVMeResourceManager* const instance = new NVMeResourceManager(vekConfig::getInstance());
    return *instance;
}

NVMeResourceManager::NVMeResourceManager(const vekConfig& config)
    : config_(config),
      lifecycle_(TAG, vekResourceIds::nameOf(vekResourceIds::NVME), "NVMeInventory",
                 [] { vekJsonAggregator::getInstance().sendInventory(); }, config)
{
}

long NVMeResourceManager::compute_gcd(long a, long b)
{
    a = std::labs(a);
    b = std::labs(b);
    while (b != 0) {
        const long rest = a % b;
        a = b;
        b = rest;
    }
    return a;
}

void NVMeResourceManager::init()
{
    VEK_LOG_INFO(TAG, "Initializing NVMe RM");
    if (started_.exchange(true)) {
        return;
    }
    services_ = vekPlatformServices::getCurrent();
    vekOSInterface* system = vekSystemInterfaceFactory::getSystemInterface();
    if (system == nullptr) {
        VEK_LOG_ERROR(TAG, "No OS interface on this host: NVMe devices are not collected");
        lifecycle_.markShutdownComplete();
        return;
    }
    {
        // The stop and the test events come from other threads.
        std::lock_guard<std::mutex> lock(jobMutex_);
        collector_.reset(
            new vekNvmeDeviceDataCollector(std::unique_ptr<vekNvmeInterface>(new vekNvmeVmwareInterface(*system))));
        eventManager_.reset(new vekNvmeEventManager(services_));
    }
    startInventory();
}

bool NVMeResourceManager::stopRequested()
{
    std::lock_guard<std::mutex> lock(jobMutex_);
    return stop_;
}

void NVMeResourceManager::startInventory()
{
    // The stop side waits for this mark however the thread leaves.
    struct CompletionMark {
        vekResourceManagerLifecycle& lifecycle;
        ~CompletionMark() { lifecycle.markShutdownComplete(); }
    } mark{lifecycle_};

    const long refresh = config_.getrefreshInterval(vekResourceIds::nameOf(vekResourceIds::NVME));
    VEK_LOG_INFO(TAG, "NVMe refresh interval: [%ld]", refresh);
    VEK_LOG_INFO(TAG, "NVMe poll interval: [%ld]", kPollSeconds);
    const long step = compute_gcd(refresh, kPollSeconds);
    // Seconds of the loop's own clock, which the time scale speeds up.
    long now = 0;
    long lastRefresh = 0;
    long lastPoll = 0;

    std::unique_lock<std::mutex> lock(jobMutex_);
    for (;;) {
        bool pollDue = false;
        while (!stop_ && !refreshNeeded_ && !pollDue) {
            const bool woken = jobCondition_.wait_for(lock, timeUtils::scaledSeconds(step),
                                                      [this] { return stop_ || refreshNeeded_; });
            if (woken) {
                break;
            }
            if (now + step - lastRefresh >= refresh) {
                refreshNeeded_ = true;
            }
            pollDue = now + step - lastPoll > kPollSeconds - 1;
            now += step;
        }
        const bool refreshNow = refreshNeeded_;
        refreshNeeded_ = false;
        const bool stopping = stop_;
        lock.unlock();
        if (stopping) {
            processResourceManagerStop();
            return;
        }
        if (refreshNow) {
            cacheBuild();
            lastRefresh = now;
        }
        if (pollDue) {
            pollDevices();
            lastPoll = now;
        }
        lock.lock();
    }
}

void NVMeResourceManager::processResourceManagerStop()
{
    VEK_LOG_INFO(TAG, "Resource manager stop in progress.");
    if (collector_) {
        collector_->notifyNVMeRMStop();
    }
}

void NVMeResourceManager::backupInventory()
{
    std::lock_guard<std::mutex> lock(backupMutex_);
    backupControllers_ = controllers_;
    backupDrives_ = drives_;
    backupControllerJson_ = controllerJson_;
    backupDriveJson_ = driveJson_;
}

void NVMeResourceManager::cacheBuild()
{
    VEK_LOG_DEBUG(TAG, "Building NVMe controller and disk cache.");
    {
        std::lock_guard<std::mutex> lock(cacheMutex_);
        backupInventory();
        cacheBuildInProgress_ = true;
        controllers_.clear();
        drives_.clear();
        try {
            getInventory();
        } catch (const std::exception& e) {
            VEK_LOG_ERROR(TAG, "NVMe cache build failed: %s", e.what());
        }
        // Also with no devices: the RMC must learn that they are gone.
        createNVMeInventoryJsonPayload();
        cacheBuildInProgress_ = false;
    }
    inventoryReady_ = true;
    if (pendingPush_.exchange(false)) {
        VEK_LOG_DEBUG(TAG, "NVMe RM requesting cache push.");
        vekJsonAggregator::getInstance().sendInventory();
    }
}

void NVMeResourceManager::getInventory()
{
    {
        std::vector<vekStorageControllerInfo> known;
        std::vector<vekNVMeDiskInfo> unused;
        inventoryManager_.fetchInventory(known, unused);
        collector_->setKnownStatuses(known);
    }
    std::vector<std::string> names;
    collector_->discoverNvmeDevices(names);
    if (names.empty() && !noDevicesReported_) {
        VEK_LOG_INFO(TAG, "discoverNvmeDevices() completed, zero NVMe cards identified");
        noDevicesReported_ = true;
    }
    std::vector<vekStorageControllerInfo> controllers;
    std::vector<vekNVMeDiskInfo> drives;
    if (!collector_->discoverControllerInventory(controllers, names) ||
        !collector_->discoverPhysicalDiskInventory(drives, names)) {
        return;
    }
    inventoryManager_.saveControllerInventory(controllers);
    inventoryManager_.savePhysicalDiskInventory(drives);
    // The poll compares with what this build read.
    inventoryManager_.backupInventory(controllers, drives);
    inventoryManager_.fetchInventory(controllers_, drives_);
    VEK_LOG_DEBUG(TAG, "controllerList : size is {%zu}", controllers_.size());
    VEK_LOG_DEBUG(TAG, "diskList size is {%zu}", drives_.size());
}

void NVMeResourceManager::createNVMeInventoryJsonPayload()
{
    std::vector<Json::Value> controllers;
    std::vector<Json::Value> drives;
    for (const vekStorageControllerInfo& controller : controllers_) {
        if (controller.getFormFactor() == VEK_FORM_FACTOR_SSD_HDD) {
            VEK_LOG_DEBUG(TAG, "Skipping controller inventory for NVMe SSD/HDD device [%s].",
                          controller.getDeviceName().c_str());
            continue;
        }
        Json::Value object = controller.getVariableData()["Data"];
        object["Status"] = controller.vekStatusInfo::getInventoryData();
        VEK_LOG_DEBUG(TAG, "Printing controller instance:    %s", writeCompact(object).c_str());
        controllers.push_back(object);
    }
    for (const vekNVMeDiskInfo& drive : drives_) {
        const Json::Value object = drive.getInventoryData();
        VEK_LOG_DEBUG(TAG, "Printing disk instance:    %s", writeCompact(object).c_str());
        drives.push_back(object);
    }
    controllerJson_.swap(controllers);
    driveJson_.swap(drives);
    controllerCount_ = controllerJson_.size();
}

void NVMeResourceManager::pollDevices()
{
    VEK_LOG_DEBUG(TAG, "Polling devices.");
    std::vector<vekStorageControllerInfo> controllers;
    std::vector<vekNVMeDiskInfo> drives;
    inventoryManager_.fetchBackupInventory(controllers, drives);
    bool dirty = false;
    for (const vekStorageControllerInfo& controller : controllers) {
        if (collector_->isStopRequested() || stopRequested()) {
            return;
        }
        vekNvmeSmartInfo smart;
        collector_->fetchNVMeHealthInfo(controller.getDeviceName(), smart);
        const vekNVMeDiskInfo* drive = nullptr;
        for (const vekNVMeDiskInfo& candidate : drives) {
            if (candidate.getDeviceName() == controller.getDeviceName()) {
                drive = &candidate;
                break;
            }
        }
        if (drive == nullptr) {
            VEK_LOG_WARNING(TAG, "NVMe drive inventory for %s not found", controller.getDeviceName().c_str());
            continue;
        }
        if (eventManager_->trackStatusChange(controller, *drive, smart)) {
            inventoryManager_.updateInventory(smart);
            dirty = true;
        }
    }
    if (!dirty) {
        return;
    }
    std::lock_guard<std::mutex> lock(cacheMutex_);
    inventoryManager_.fetchInventory(controllers_, drives_);
    inventoryManager_.backupInventory(controllers_, drives_);
    createNVMeInventoryJsonPayload();
}

bool NVMeResourceManager::getInventoryJsonObject(std::vector<Json::Value>&)
{
    return false;
}

void NVMeResourceManager::fetchPrevInventoryOfType(int type, std::vector<Json::Value>& inventory)
{
    std::lock_guard<std::mutex> lock(backupMutex_);
    if (type == kTypeControllers || type == kTypeDrives) {
        const std::vector<Json::Value>& saved = type == kTypeControllers ? backupControllerJson_ : backupDriveJson_;
        inventory.insert(inventory.end(), saved.begin(), saved.end());
    } else {
        VEK_LOG_WARNING(TAG, "Unsupported inventory type");
    }
}

bool NVMeResourceManager::getInventoryJsonObject2(int type, std::vector<Json::Value>& inventory)
{
    VEK_LOG_DEBUG(TAG, "reached getInventoryJsonObject2");
    std::unique_lock<std::mutex> lock(cacheMutex_, std::defer_lock);
    if (cacheBuildInProgress_ || !lock.try_lock()) {
        VEK_LOG_DEBUG(TAG, "Cache build is in progress. Returning previously saved inventory");
        fetchPrevInventoryOfType(type, inventory);
        return true;
    }
    if (type != kTypeControllers && type != kTypeDrives) {
        VEK_LOG_WARNING(TAG, "Unsupported inventory type");
        return false;
    }
    const std::vector<Json::Value>& current = type == kTypeControllers ? controllerJson_ : driveJson_;
    inventory.insert(inventory.end(), current.begin(), current.end());
    VEK_LOG_DEBUG(TAG, "returning Inventory size: {%zu}", current.size());
    return false;
}

void NVMeResourceManager::invalidateInventoryCache()
{
    VEK_LOG_DEBUG(TAG, "Invalidating inventory cache.");
    {
        std::lock_guard<std::mutex> lock(jobMutex_);
        refreshNeeded_ = true;
    }
    jobCondition_.notify_all();
    VEK_LOG_DEBUG(TAG, "Inventory cache invalidated.");
}

bool NVMeResourceManager::isInventoryReady(int iteration)
{
    const bool ready = inventoryReady_;
    VEK_LOG_INFO(TAG, "NVMe RM cache status [%d]", ready ? 1 : 0);
    if (iteration == vekResourceManagerLifecycle::kLastReadinessPoll && !ready) {
        pendingPush_ = true;
    }
    return ready;
}

bool NVMeResourceManager::isRunning()
{
    for (int retryCount = 0; retryCount < kRunningChecks; ++retryCount) {
        const bool building = cacheBuildInProgress_;
        if (!building && inventoryReady_) {
            return true;
        }
        VEK_LOG_WARNING(TAG, "cacheBuildInProgress = {%d}, HostInventory.size() = {%zu}, retryCount = {%d}",
                        building ? 1 : 0, controllerCount_.load(), retryCount);
        std::this_thread::sleep_for(timeUtils::scaledSeconds(kRunningCheckPauseSeconds));
    }
    return false;
}

void NVMeResourceManager::stopResourceManagerJob()
{
    if (!started_) {
        return;
    }
    {
        std::lock_guard<std::mutex> lock(jobMutex_);
        stop_ = true;
        // A walk in progress ends after the device in hand.
        if (collector_) {
            collector_->notifyNVMeRMStop();
        }
    }
    jobCondition_.notify_all();
    lifecycle_.stopResourceManagerJob();
}

bool NVMeResourceManager::generateTestEvent(int id, std::string details, bool asserted)
{
    const bool controllerEvent = id >= 835 && id <= 837;
    const bool driveEvent = id >= 538 && id <= 540;
    if (!controllerEvent && !driveEvent) {
        VEK_LOG_ERROR(TAG, "Test event [%d] is not an NVMe event.", id);
        return false;
    }
    vekNvmeEventManager* events = nullptr;
    {
        std::lock_guard<std::mutex> lock(jobMutex_);
        events = eventManager_.get();
    }
    if (events == nullptr) {
        VEK_LOG_ERROR(TAG, "Test event [%d] not sent: the manager has not started", id);
        return false;
    }
    std::vector<vekStorageControllerInfo> controllers;
    std::vector<vekNVMeDiskInfo> drives;
    inventoryManager_.fetchInventory(controllers, drives);
    const std::string injected = "Injected Event";
    if (controllerEvent) {
        for (vekStorageControllerInfo& controller : controllers) {
            if (controller.getPhysicalLocation() == details || controller.getDeviceName() == details) {
                controller.setEventInfoString(injected);
                events->generateEvent(id, controller.getPhysicalLocation(), asserted, controller);
                return true;
            }
        }
    } else {
        for (vekNVMeDiskInfo& drive : drives) {
            if (drive.getOem().getPhysicalLocation() == details || drive.getDeviceName() == details) {
                drive.setEventInfoString(injected);
                events->generateEvent(id, drive.getOem().getPhysicalLocation(), asserted, drive);
                return true;
            }
        }
    }
    VEK_LOG_ERROR(TAG, "Test event [%d]: no NVMe device at [%s].", id, details.c_str());
    return false;
}
