#include "GPUResourceManager.h"

#include "vekConfig.h"
#include "vekGPUNVidiaInterface.h"
#include "vekGlobalDef.h"
#include "vekJsonAggregator.h"
#include "vekLog.h"
#include "vekPCIeInventoryJson.h"
#include "vekPlatformServices.h"
#include "vekResourceIds.h"

#include <exception>
#include <thread>
#include <utility>

using vekGlobalDef::timeUtils;

namespace {

const char TAG[] = "GPU_RM";
// GPUs change seldom and NVML is slow to ask: twice a day.
const long kDefaultRefreshSeconds = 43200;
const int kIdlenessChecks = 3;
const long kIdlenessCheckPauseSeconds = 5;

enum DiscoveryResult { GATHERED = 0, NO_DRIVER = 1, NO_GPU = 2, STOPPED = 3 };

} // namespace

// ---- the collector ----

vekGPUDataCollector::vekGPUDataCollector(vekPlatformServices* services, std::unique_ptr<vekGPUVendorInterface> vendor)
    : services_(services), vendor_(std::move(vendor))
{
}

int vekGPUDataCollector::discoverGPUInventory(std::vector<GPUInfo>& out)
{
    VEK_LOG_DEBUG(TAG, "Inside discoverGPUInventory()");
    const int result = discoverNVidiaGPUInventory(out);
    switch (result) {
    case GATHERED:
        VEK_LOG_DEBUG(TAG, "Successfully gathered NVIDIA GPU inventory");
        break;
    case NO_DRIVER:
        VEK_LOG_DEBUG(TAG, "NVidia drivers not installed");
        break;
    case NO_GPU:
        VEK_LOG_DEBUG(TAG, "Zero NVIDIA GPU Devices found");
        break;
    case STOPPED:
        VEK_LOG_DEBUG(TAG, "Stop signal received from GPU RM");
        break;
    default:
        VEK_LOG_WARNING(TAG, "Unknown return value!, ret = [%d].", result);
        break;
    }
    return result;
}

int vekGPUDataCollector::discoverNVidiaGPUInventory(std::vector<GPUInfo>& out)
{
    VEK_LOG_DEBUG(TAG, "Inside discoverNVidiaGPUInventory().");
    if (!vendor_->initVendorLibrary()) {
        return NO_DRIVER;
    }
    std::vector<std::string> names;
    vendor_->populateGPUInstances(names);
    if (names.empty()) {
        return NO_GPU;
    }
    for (const std::string& name : names) {
        if (stop_) {
            VEK_LOG_DEBUG(TAG,
                          "GPU RM shutdown notification received while fetching inventory information for GPU "
                          "instances");
            return STOPPED;
        }
        VEK_LOG_DEBUG(TAG, "Fetching GPU instance inventory details for GPU: [%s].", name.c_str());
        GPUInfo info;
        try {
            vendor_->discoverGPUProperties(name, info);
            vendor_->discoverGPUStatusInfo(name, info);
        } catch (const vekGPUExceptions::Exception& e) {
            // One GPU that does not answer costs its own record only.
            VEK_LOG_ERROR(TAG, "GPU [%s] left out of the inventory: %s", name.c_str(), e.what());
            continue;
        }
        matrix_.supplementAdditionalGPUProperties(info);
        out.push_back(info);
    }
    return GATHERED;
}

// ---- the inventory store ----

vekGPUInventoryManager& vekGPUInventoryManager::getInstance()
{
    static vekGPUInventoryManager instance;
    return instance;
}

vekGPUInventoryManager::vekGPUInventoryManager()
    : vekPCIeInventoryStore({TAG, "GPU", "GPU", "."}, [](const GPUInfo& record) { return record.getInterfaceName(); })
{
}

// ---- the manager ----

GPUResourceManager& GPUResourceManager::getInstance()
{
    // Never destroyed: its thread may still be running at process exit.
    static GPUResourceManager* const instance =
        new GPUResourceManager(vekConfig::getInstance(), vekGPUNVidiaInterface::kLibraryName);
    return *instance;
}

GPUResourceManager::GPUResourceManager(const vekConfig& config, std::string libraryName)
    : config_(config),
      libraryName_(std::move(libraryName)),
      inventoryManager_(vekGPUInventoryManager::getInstance()),
      lifecycle_(
          TAG, vekResourceIds::nameOf(vekResourceIds::GPU), "GPUInventory",
          [] {
              VEK_LOG_DEBUG(TAG, "GPU RM requesting cache push.");
              vekJsonAggregator::getInstance().sendInventory();
          },
          config)
{
}

void GPUResourceManager::init(vekPlatformServices& services)
{
    VEK_LOG_DEBUG(TAG, "Initializing GPU RM.");
    services_ = &services;
    if (lifecycle_.inventorySize() == 0 && !started_.exchange(true)) {
        collector_.reset(new vekGPUDataCollector(
            &services, std::unique_ptr<vekGPUVendorInterface>(new vekGPUNVidiaInterface(&services, libraryName_))));
        collectorReady_ = collector_.get();
        startInventory();
    }
}

void GPUResourceManager::startInventory()
{
    // Marked however this thread leaves: the stop side waits for it.
    struct CompletionMark {
        vekResourceManagerLifecycle& lifecycle;
        ~CompletionMark() { lifecycle.markShutdownComplete(); }
    } mark{lifecycle_};

    long interval = config_.getrefreshInterval(vekResourceIds::nameOf(vekResourceIds::GPU));
    if (interval <= 0) {
        VEK_LOG_WARNING(TAG, "Undefined interval. Reset to default");
        interval = kDefaultRefreshSeconds;
    }
    VEK_LOG_INFO(TAG, "Refresh interval = [%ld].", interval);
    const std::chrono::milliseconds period = timeUtils::scaledSeconds(interval);

    bool firstPass = true;
    while (firstPass ? !lifecycle_.isStopRequested() : lifecycle_.waitForNextPass(period)) {
        firstPass = false;
        try {
            cacheBuild();
        } catch (const std::exception& e) {
            VEK_LOG_ERROR(TAG, "GPU cache build failed: %s", e.what());
        }
    }
    if (lifecycle_.isStopRequested()) {
        VEK_LOG_DEBUG(TAG, "In condition wait timeout.");
    }
    // The vendor library is closed with its reader, at the end of the job.
    collectorReady_ = nullptr;
    collector_.reset();
}

int GPUResourceManager::getInventory(std::vector<GPUInfo>& records)
{
    try {
        if (collector_->discoverGPUInventory(records) == STOPPED) {
            return -1;
        }
    } catch (const vekGPUExceptions::Exception& e) {
        // A library that cannot even count its GPUs gives no build at all.
        VEK_LOG_ERROR(TAG, "Exception caught! {%s}", e.what());
        return -1;
    }
    inventoryManager_.saveInventory(records);
    inventoryManager_.getInventory(records);
    VEK_LOG_DEBUG(TAG, "discoverGpuInstance() for NVIDIA completed. Number of GPU's = [%zu].", records.size());
    return 0;
}

void GPUResourceManager::cacheBuild()
{
    VEK_LOG_DEBUG(TAG, "Building GPU Cache.");
    bool good = false;
    lifecycle_.cacheBuild(
        [this, &good] {
            // While the build runs, the lifecycle hands out the last build.
            vekResourceManagerLifecycle::Inventory previous;
            lifecycle_.getInventory(previous);
            std::vector<GPUInfo> records;
            if (getInventory(records) != 0) {
                // A build cut short keeps the JSON of the last good build.
                return previous;
            }
            good = true;
            return records.empty() ? previous : createGpuInfoJsonPayload(records);
        },
        false);
    if (good) {
        lifecycle_.pushIfPending();
    }
    VEK_LOG_DEBUG(TAG, "Exiting CacheBuild.");
}

std::vector<Json::Value> GPUResourceManager::createGpuInfoJsonPayload(const std::vector<GPUInfo>& records)
{
    std::vector<Json::Value> json;
    for (size_t i = 0; i < records.size(); ++i) {
        const Json::Value gpu = records[i].getGPUInstanceInfoJson();
        VEK_LOG_DEBUG(TAG, "Printing GPU Instance %zu:\n %s", i, vekPCIeInventoryJson::writeCompact(gpu).c_str());
        json.push_back(gpu);
    }
    return json;
}

bool GPUResourceManager::getInventoryJsonObject(std::vector<Json::Value>& inventory)
{
    const bool previous = lifecycle_.getInventory(inventory);
    if (previous) {
        VEK_LOG_DEBUG(TAG, "Cache build is in progress. Returning previous copy of inventory.");
    }
    return previous;
}

bool GPUResourceManager::isRunning()
{
    for (int retryCount = 0; retryCount < kIdlenessChecks; ++retryCount) {
        const bool building = lifecycle_.isBuildInProgress();
        const size_t size = lifecycle_.inventorySize();
        if (!building && size != 0) {
            return true;
        }
        VEK_LOG_WARNING(TAG, "cacheBuildInProgress = [%d], GPUInventory.size() = [%zu], retryCount = [%d]",
                        building ? 1 : 0, size, retryCount);
        std::this_thread::sleep_for(timeUtils::scaledSeconds(kIdlenessCheckPauseSeconds));
    }
    return false;
}

bool GPUResourceManager::isInventoryReady(int iteration)
{
    VEK_LOG_INFO(TAG, "GPU resource status: [%d].", lifecycle_.isReady() ? 1 : 0);
    return lifecycle_.isInventoryReady(iteration);
}

void GPUResourceManager::stopResourceManagerJob()
{
    // A read in progress ends after the GPU in hand.
    vekGPUDataCollector* collector = collectorReady_.load();
    if (collector != nullptr) {
        collector->notifyGPURMStop();
    }
    lifecycle_.stopResourceManagerJob();
}
