#include "vekJsonAggregator.h"

#include "vekConfig.h"
#include "vekFactory.h"
#include "vekGlobalDef.h"
#include "vekInBandComManager.h"
#include "vekJobManager.h"
#include "vekLog.h"
#include "vekResourceIds.h"
#include "vekResourceManager.h"

#include <algorithm>
#include <exception>
#include <stdexcept>
#include <fstream>
#include <utility>

using vekGlobalDef::timeUtils;

namespace {

const char TAG[] = "JSON_AGGR";

// The aggregator asks for readiness this many times before the first push.
const int kReadinessPolls = 9;
// Ids above this are telemetry and utilization streams, not inventory.
const int kLastInventoryId = 98;
// Used when the configured push period cannot be used.
const int kDefaultPushMinutes = 1440;

// The record kinds of the managers that answer by type.
const int kTypeControllers = 1;
const int kTypeDrives = 2;
const int kTypeVolumes = 3;
const int kTypeEnclosures = 4;

const std::map<int, std::string>& storageKeys()
{
    static const std::map<int, std::string> keys = {{kTypeControllers, "StorageControllers"},
                                                     {kTypeDrives, "Drives"},
                                                     {kTypeVolumes, "Volumes"},
                                                     {kTypeEnclosures, "StorageEnclosures"}};
    return keys;
}

const std::map<int, std::string>& nvmeKeys()
{
    static const std::map<int, std::string> keys = {{kTypeControllers, "StorageControllers"},
                                                     {kTypeDrives, "Drives"}};
    return keys;
}

} // namespace

vekJsonAggregator& vekJsonAggregator::getInstance()
{
    // Never destroyed: its thread may still be running at process exit.
    static vekJsonAggregator* const instance = new vekJsonAggregator();
    return *instance;
}

vekJsonAggregator::vekJsonAggregator()
    : keys_{{vekResourceIds::FIBRE_CHANNEL, "FibreChannelDevices"},
            {vekResourceIds::HOST, "Oem"},
            {vekResourceIds::STORAGE, "StorageControllers"},
            {vekResourceIds::ETHERNET, "EthernetDevices"},
            {vekResourceIds::GPU, "Processors"},
            {vekResourceIds::INFINIBAND, "InfiniBandDevices"},
            {vekResourceIds::STORAGE_RSRM, "StorageControllers (RSRM)"}}
{
}

void vekJsonAggregator::setFactory(std::shared_ptr<vekFactory> factory)
{
    factory_ = std::move(factory);
}

void vekJsonAggregator::setConfig(std::shared_ptr<const vekConfig> config)
{
    config_ = std::move(config);
}

const vekConfig& vekJsonAggregator::activeConfig() const
{
    return config_ ? *config_ : vekConfig::getInstance();
}

vekResourceManager* vekJsonAggregator::managerOf(int id) const
{
    const std::shared_ptr<vekFactory> factory = factory_ ? factory_ : std::make_shared<vekFactory>();
    return factory->createInstance(id);
}

void vekJsonAggregator::initialize(vekInBandComManager* comManager, std::vector<int> ids)
{
    ids.erase(std::remove_if(ids.begin(), ids.end(), [](int id) { return id > kLastInventoryId; }), ids.end());
    std::lock_guard<std::mutex> lock(mutex_);
    comManager_ = comManager;
    ids_ = std::move(ids);
    sendPending_ = false;
}

void vekJsonAggregator::start()
{
    if (thread_.joinable()) {
        VEK_LOG_WARNING(TAG, "Json Aggregator thread already running.");
        return;
    }
    {
        std::lock_guard<std::mutex> lock(mutex_);
        sendPending_ = true;
    }
    VEK_LOG_DEBUG(TAG, "Creating Json Aggregator thread");
    try {
        thread_ = std::thread(startInventoryPushThread, nullptr);
    } catch (const std::exception& e) {
        VEK_LOG_ERROR(TAG, "Unable to create Json Aggregator thread: %s", e.what());
    }
}

void vekJsonAggregator::sendInventory()
{
    std::lock_guard<std::mutex> lock(mutex_);
    sendPending_ = true;
    if (inventorySent_) {
        VEK_LOG_DEBUG(TAG, "Request to send inventory");
        condition_.notify_all();
    } else {
        VEK_LOG_DEBUG(TAG, "Queuing inventory send request as first inventory push is not yet complete.");
    }
}

bool vekJsonAggregator::isInventorySent() const
{
    return inventorySent_;
}

int vekJsonAggregator::saveJsonInventoryAsFile(std::string path)
{
    std::lock_guard<std::mutex> lock(lastInventoryMutex_);
    if (lastInventory_.empty()) {
        VEK_LOG_DEBUG(TAG, "Failed to write VEK inventory to file [%s], since no last known inventory is available.",
                      path.c_str());
        return -1;
    }
    const std::string hostPath = (!path.empty() && path[0] == '/') ? vekConfig::getEnv() + path : path;
    std::ofstream out(hostPath, std::ios::out | std::ios::trunc);
    if (!out) {
        VEK_LOG_ERROR(TAG, "Cannot open file %s for writing", path.c_str());
        return -2;
    }
    out << lastInventory_;
    out.close();
    if (!out) {
        VEK_LOG_ERROR(TAG, "Failed to write VEK inventory to file [%s]", path.c_str());
        return -2;
    }
    return 0;
}

void vekJsonAggregator::stopvekJsonAggregator()
{
    VEK_LOG_DEBUG(TAG, "Stopping vekJsonAggr");
    {
        std::lock_guard<std::mutex> lock(mutex_);
        stop_ = true;
    }
    condition_.notify_all();
    VEK_LOG_DEBUG(TAG, "Signalled for stop.");
    if (thread_.joinable()) {
        thread_.join();
    }
    VEK_LOG_INFO(TAG, "Stopped Json Aggregator gracefully.");
}

void vekJsonAggregator::initializeCachePush()
{
    long minutes = activeConfig().getInventoryPushIntervalSettings();
    if (minutes <= 0) {
        VEK_LOG_WARNING(TAG, "Inventory push period of %ld minutes cannot be used; pushing every %d minutes.", minutes,
                        kDefaultPushMinutes);
        minutes = kDefaultPushMinutes;
    }
    inventorySent_ = false;

    if (!WaitforInitialnventoryReady()) {
        VEK_LOG_ERROR(TAG, "VEK Inventory Not Ready");
        return;
    }

    while (!stop_) {
        if (!sendPending_) {
            if (!aggrThreadSleep(minutes * 60, true)) {
                break;
            }
            // A whole period without a request counts as one.
            sendPending_ = true;
        }
        if (sendPending_.exchange(false)) {
            createInventoryJsonString();
        }
    }
}

bool vekJsonAggregator::WaitforInitialnventoryReady()
{
    const long interval = activeConfig().getInventoryQueryInterval();
    VEK_LOG_DEBUG(TAG, "WaitforInitialnventoryReady RMs:[%zu]", ids_.size());

    for (int iteration = 1; iteration <= kReadinessPolls; ++iteration) {
        VEK_LOG_DEBUG(TAG, "Aggregator thread sleeping for %ld sec iteration no. %d", interval, iteration);
        if (!aggrThreadSleep(interval, false)) {
            return false;
        }
        if (ids_.empty()) {
            return true;
        }
        bool allReady = true;
        for (const int id : ids_) {
            if (!activeConfig().isResourceEnabled(id)) {
                continue;
            }
            VEK_LOG_DEBUG(TAG, "Aggregator WaitforInitialnventoryReady RM:[%d], enabled:[%d], sec iteration no. [%d]",
                          id, 1, iteration);
            bool ready = false;
            try {
                vekResourceManager* manager = managerOf(id);
                ready = manager != nullptr && manager->isInventoryReady(iteration - 1);
            } catch (const std::exception& e) {
                VEK_LOG_ERROR(TAG, "Readiness of RM %d unknown: %s", id, e.what());
            }
            if (!ready) {
                VEK_LOG_INFO(TAG, "RM %d not ready with inventory", id);
                allReady = false;
            }
        }
        if (allReady) {
            return true;
        }
    }
    // The first push goes out with what is there; a late manager pushes by
    // itself once it has built.
    return true;
}

bool vekJsonAggregator::aggrThreadSleep(long seconds, bool interruptible)
{
    std::unique_lock<std::mutex> lock(mutex_);
    condition_.wait_for(lock, timeUtils::scaledSeconds(seconds),
                        [&] { return stop_ || (interruptible && sendPending_); });
    if (stop_) {
        VEK_LOG_DEBUG(TAG, "Thread signaled: Stop Aggr state");
        return false;
    }
    VEK_LOG_DEBUG(TAG, "Thread signaled: Continue");
    return true;
}

void vekJsonAggregator::createInventoryJsonString()
{
    {
        std::lock_guard<std::mutex> lock(mutex_);
        aggregate_ = Json::Value(Json::objectValue);
    }

    for (const int id : ids_) {
        if (stop_) {
            return;
        }
        if (!activeConfig().isResourceEnabled(id)) {
            continue;
        }
        // Held while this manager's part is collected: a manager's own
        // request to push waits for it.
        std::lock_guard<std::mutex> lock(mutex_);
        try {
            vekResourceManager* manager = managerOf(id);
            if (manager == nullptr) {
                VEK_LOG_WARNING(TAG, "No Resource Manager for id [%d]", id);
                continue;
            }
            switch (id) {
            case vekResourceIds::FIBRE_CHANNEL:
            case vekResourceIds::HOST:
            case vekResourceIds::ETHERNET:
            case vekResourceIds::GPU:
            case vekResourceIds::INFINIBAND: {
                std::vector<Json::Value> inventory;
                fetchUpdatedInventory(id, manager, inventory);
                break;
            }
            case vekResourceIds::STORAGE:
            case vekResourceIds::STORAGE_RSRM:
                fetchTypedInventory(manager, storageKeys());
                break;
            case vekResourceIds::NVME:
                fetchTypedInventory(manager, nvmeKeys());
                break;
            default:
                VEK_LOG_WARNING(TAG, "No inventory key for RM [%d]", id);
                break;
            }
        } catch (const std::exception& e) {
            VEK_LOG_ERROR(TAG, "Failed to collect the inventory of RM [%d]: %s", id, e.what());
        }
    }

    if (aggregate_.empty()) {
        VEK_LOG_WARNING(TAG, "No inventory information found!");
        inventorySent_ = true;
        return;
    }

    std::lock_guard<std::mutex> lock(mutex_);
    root_["HostDataCollection"] = aggregate_;
    sendJsonString();
    inventorySent_ = true;
}

bool vekJsonAggregator::fetchUpdatedInventory(int id, vekResourceManager* manager,
                                              std::vector<Json::Value>& inventory)
{
    const bool result = manager->getInventoryJsonObject(inventory);
    VEK_LOG_DEBUG(TAG, "Collection Size for RM [%s]=[%zu]", vekResourceIds::nameOf(id).c_str(), inventory.size());
    const std::string& key = keys_.at(id);
    if (id == vekResourceIds::HOST) {
        // The host is one object, not a list.
        if (!inventory.empty()) {
            aggregate_[key] = inventory.front();
        }
    } else {
        for (const Json::Value& item : inventory) {
            aggregate_[key].append(item);
        }
    }
    return result;
}

void vekJsonAggregator::fetchTypedInventory(vekResourceManager* manager, const std::map<int, std::string>& keysByType)
{
    for (const auto& entry : keysByType) {
        std::vector<Json::Value> inventory;
        manager->getInventoryJsonObject2(entry.first, inventory);
        for (const Json::Value& item : inventory) {
            aggregate_[entry.second].append(item);
        }
    }
}

void vekJsonAggregator::sendJsonString()
{
    const std::string text = vekInBandComManager::transformJson(root_);
    VEK_LOG_INFO(TAG, "*************printing final Json String*******\n %s", text.c_str());
    {
        std::lock_guard<std::mutex> lock(lastInventoryMutex_);
        lastInventory_ = text;
    }
    try {
        if (comManager_ == nullptr) {
            throw std::runtime_error("no communication manager");
        }
        comManager_->sendInventory(text);
        VEK_LOG_DEBUG(TAG, "Success in delivering inventory string to RMC!");
    } catch (const std::exception& e) {
        VEK_LOG_ERROR(TAG, "An Error occurred in delivering inventory string to RMC!");
        VEK_LOG_DEBUG(TAG, "Inventory not queued: %s", e.what());
    }
}
